// Opening the window and failing to: every case runs in a child process of its own (one
// window per process), under Xvfb. Fatal errors are printed by a report handler, so no
// message box is ever shown; a failed check in a child ends it with status 2.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

static int print_record(report_record *r) { return fprintf(stderr, "%s:%d %s\n", r->source, r->line, r->message ? r->message : ""), 0; }
static void check(bool ok, const char *what) { if (!ok) fprintf(stderr, "check failed: %s\n", what), exit(2); }

struct open_death : testing::Test {
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); report_handler = print_record; }
};

// Each step of creating the window, made to fail where SDL lets it be provoked.
TEST_F(open_death, creation_failures_exit_with_the_step_and_its_message)
{
    const struct { const char *step; void (*provoke)(); const char *message; } cases[] = {
        {"video that cannot start", [] { setenv("SDL_VIDEODRIVER", "nonexistent", 1); },
         "Morvane/gfx_opengl:590 Failed To Register The Window Class\\."},
        {"no GL driver", [] { setenv("SDL_OPENGL_LIBRARY", "/nonexistent/libGL.so.1", 1); },
         "Morvane/gfx_opengl:621 Can't Find A Suitable PixelFormat\\."},
        {"a buffer no visual has",   // attributes are kept only once video is up
         [] { SDL_Init(SDL_INIT_VIDEO), SDL_GL_SetAttribute(SDL_GL_ACCUM_RED_SIZE, 64); },
         "Morvane/gfx_opengl:595 Window Creation Error\\."},
        {"an impossible context version",
         [] { SDL_Init(SDL_INIT_VIDEO), SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 99); },
         "Morvane/gfx_opengl:624 Can't Create A GL Rendering Context\\."},
    };
    for (const auto &c : cases)
        EXPECT_EXIT((c.provoke(), graphics_open(0, 0, "t", nullptr), exit(0)), testing::ExitedWithCode(1), c.message)
            << c.step;
}

TEST_F(open_death, zero_sized_choice_returns_zero_and_the_loop_check_fails)
{
    EXPECT_EXIT(
        {
            check(graphics_open(-1, 0b100, "t", nullptr) == 0 && !graphics_window(), "monitor 3 of 1 opened");
            check(graphics_open(640, 0, "t", nullptr) == 0 && !graphics_window(), "zero height opened");
            screen_width = 0;
            LOOP { break; }
            exit(0);
        },
        testing::ExitedWithCode(1), "GRAPHICS\\(\\) macro not called at LOOP start, or no resolution specified");
}

// A framed window can be resized and shows the cursor; full screen at an explicit resolution
// changes the display mode until the window is released, and hides the cursor.
TEST_F(open_death, windowed_and_explicit_resolution_windows)
{
    for (void (*child)() : {+[] {
             windowed = 1;
             check(graphics_open(0, 0, "windowed", nullptr) == 1, "did not open");
             Uint32 flags = SDL_GetWindowFlags(graphics_window());
             check(!(flags & SDL_WINDOW_BORDERLESS) && (flags & SDL_WINDOW_RESIZABLE), "not a framed window");
             check(SDL_ShowCursor(SDL_QUERY) == SDL_ENABLE, "cursor hidden");
         }, +[] {
             check(graphics_open(1024, 768, "explicit", nullptr) == 1 && screen_width == 1024, "did not open");
             SDL_Window *window = graphics_window();
             check(SDL_GetWindowFlags(window) & SDL_WINDOW_FULLSCREEN, "no mode change");
             check(SDL_ShowCursor(SDL_QUERY) == SDL_DISABLE, "cursor shown");
             graphics_close();
             check(!(SDL_GetWindowFlags(window) & SDL_WINDOW_FULLSCREEN), "the desktop mode was not restored");
             check(SDL_GL_GetCurrentContext() == nullptr, "context still current");
         }})
        EXPECT_EXIT((child(), exit(0)), testing::ExitedWithCode(0), "");
}
