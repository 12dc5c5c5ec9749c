// Opening the window in each mode and failing to: every case runs in a child process of
// its own (one window per process), under Xvfb. Fatal errors are caught by a report
// handler that prints the record, so no message box is ever shown.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

static int print_record(report_record *r)
{
    fprintf(stderr, "%s:%d %s\n", r->source, r->line, r->message ? r->message : "");
    return 0;
}

static void prepare_child()
{
    report_handler = print_record;
}

// In a child: a failed check prints its reason and ends the child with status 2.
#define CHILD_CHECK(condition, ...)                                              \
    do {                                                                         \
        if (!(condition)) {                                                      \
            fprintf(stderr, "check failed: %s: ", #condition);                   \
            fprintf(stderr, __VA_ARGS__);                                        \
            fprintf(stderr, "\n");                                               \
            exit(2);                                                             \
        }                                                                        \
    } while (0)

class open_death : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
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
        EXPECT_EXIT(
            {
                prepare_child();
                c.provoke();
                graphics_open(0, 0, "t", nullptr);
                exit(0);
            },
            testing::ExitedWithCode(1), c.message)
            << c.step;
}

TEST_F(open_death, zero_sized_choice_returns_zero_and_the_loop_check_fails)
{
    EXPECT_EXIT(
        {
            prepare_child();
            int opened = graphics_open(-1, 0b100, "t", nullptr);   // monitor 3 of 1
            CHILD_CHECK(opened == 0, "returned %d", opened);
            CHILD_CHECK(graphics_window() == nullptr, "a window was made");
            CHILD_CHECK(screen_width == 0, "width %d", screen_width);
            opened = graphics_open(640, 0, "t", nullptr);
            CHILD_CHECK(opened == 0 && graphics_window() == nullptr, "zero height opened");
            screen_width = 0;
            LOOP { break; }
            exit(0);
        },
        testing::ExitedWithCode(1),
        "GRAPHICS\\(\\) macro not called at LOOP start, or no resolution specified");
}

// The window cases open in a child and check the window there; the child ends with 0
// when all is well.
static void open_windowed()
{
    prepare_child();
    windowed = 1;
    SDL_Init(SDL_INIT_VIDEO);
    SDL_Rect b;
    SDL_GetDisplayBounds(0, &b);
    int pointer_x, pointer_y;
    SDL_GetGlobalMouseState(&pointer_x, &pointer_y);
    CHILD_CHECK(graphics_open(0, 0, "windowed", nullptr) == 1, "did not open");
    int h = (int)(b.h * 0.6), w = h * 4 / 3;
    CHILD_CHECK(screen_width == w && screen_height == h, "%d x %d", screen_width, screen_height);
    if (b.w == 1920 && b.h == 1080) CHILD_CHECK(w == 864 && h == 648, "%d x %d", w, h);
    SDL_Window *window = graphics_window();
    int ww, wh;
    SDL_GetWindowSize(window, &ww, &wh);
    CHILD_CHECK(ww == w && wh == h, "window %d x %d", ww, wh);
    Uint32 flags = SDL_GetWindowFlags(window);
    CHILD_CHECK(!(flags & SDL_WINDOW_BORDERLESS), "borderless");
    CHILD_CHECK(flags & SDL_WINDOW_RESIZABLE, "not resizable");
    CHILD_CHECK(SDL_ShowCursor(SDL_QUERY) == SDL_ENABLE, "cursor hidden");
    int x, y;
    SDL_GetWindowPosition(window, &x, &y);
    int want_x = pointer_x - w / 2, want_y = pointer_y - h / 2;
    want_x = want_x > b.w - w ? b.w - w : want_x < 0 ? 0 : want_x;
    want_y = want_y > b.h - h ? b.h - h : want_y < 0 ? 0 : want_y;
    CHILD_CHECK(x == want_x && y == want_y, "at %d, %d; wanted %d, %d", x, y, want_x, want_y);
    for (int i = 0; i < 3; ++i) pump_events();
    CHILD_CHECK(!(SDL_GetWindowFlags(window) & SDL_WINDOW_ALWAYS_ON_TOP),
                "a framed window is not kept on top");
    exit(0);
}

static void open_explicit_resolution()
{
    prepare_child();
    CHILD_CHECK(graphics_open(1024, 768, "explicit", nullptr) == 1, "did not open");
    CHILD_CHECK(screen_width == 1024 && screen_height == 768, "%d x %d", screen_width,
                screen_height);
    SDL_Window *window = graphics_window();
    CHILD_CHECK(SDL_GetWindowFlags(window) & SDL_WINDOW_FULLSCREEN, "no mode change");
    CHILD_CHECK(SDL_ShowCursor(SDL_QUERY) == SDL_DISABLE, "cursor shown");
    graphics_close();
    CHILD_CHECK(!(SDL_GetWindowFlags(window) & SDL_WINDOW_FULLSCREEN),
                "the desktop mode was not restored");
    CHILD_CHECK(SDL_GL_GetCurrentContext() == nullptr, "context still current");
    graphics_close();   // a second release does nothing
    exit(0);
}

static void open_explicit_resolution_with_offset()
{
    prepare_child();
    window_offset_x = 10;
    CHILD_CHECK(graphics_open(1024, 768, "offset", nullptr) == 1, "did not open");
    SDL_Window *window = graphics_window();
    CHILD_CHECK(!(SDL_GetWindowFlags(window) & SDL_WINDOW_FULLSCREEN), "mode changed");
    CHILD_CHECK(SDL_ShowCursor(SDL_QUERY) == SDL_DISABLE, "cursor shown");
    int x, y;
    SDL_GetWindowPosition(window, &x, &y);
    CHILD_CHECK(x == 10 && y == 0, "at %d, %d", x, y);
    // The X server confirms the keep-on-top state asynchronously: pump until it shows.
    for (int i = 0; i < 200 && !(SDL_GetWindowFlags(window) & SDL_WINDOW_ALWAYS_ON_TOP); ++i) {
        pump_events();
        SDL_Delay(10);
    }
    CHILD_CHECK(SDL_GetWindowFlags(window) & SDL_WINDOW_ALWAYS_ON_TOP,
                "full screen is kept on top");
    exit(0);
}

static void open_monitor_five()
{
    prepare_child();
    SDL_Init(SDL_INIT_VIDEO);
    SDL_Rect b;
    SDL_GetDisplayBounds(0, &b);
    CHILD_CHECK(SDL_GetNumVideoDisplays() == 1, "%d displays", SDL_GetNumVideoDisplays());
    CHILD_CHECK(graphics_open(0, 5, "monitor 5", nullptr) == 1, "did not open");
    CHILD_CHECK(screen_width == b.w && screen_height == b.h, "%d x %d", screen_width,
                screen_height);
    exit(0);
}

TEST_F(open_death, windowed_mode_is_a_centred_4_by_3_window_with_a_cursor)
{
    EXPECT_EXIT(open_windowed(), testing::ExitedWithCode(0), "");
}

TEST_F(open_death, explicit_resolution_changes_the_display_mode_unless_offset)
{
    EXPECT_EXIT(open_explicit_resolution(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(open_explicit_resolution_with_offset(), testing::ExitedWithCode(0), "");
}

TEST_F(open_death, monitor_beyond_the_list_opens_on_the_first)
{
    EXPECT_EXIT(open_monitor_five(), testing::ExitedWithCode(0), "");
}

TEST(program_directory, is_where_the_executable_lives)
{
    char *dir = executable_directory();
    std::string expected = std::string(FENTRA_BINARY_DIR) + "/tests";
    EXPECT_EQ(std::string(dir), expected);
    free(dir);
    char *before = getcwd(nullptr, 0);
    ASSERT_EQ(chdir("/"), 0);
    enter_executable_directory();
    char *after = getcwd(nullptr, 0);
    EXPECT_EQ(std::string(after), expected);
    EXPECT_EQ(chdir(before), 0);
    free(before);
    free(after);
    EXPECT_EQ(touch_capability(), 0) << "no touch device on the test screen";
}
