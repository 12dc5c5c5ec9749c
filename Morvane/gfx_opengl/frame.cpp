// The frame protocol: presenting a frame, clearing the next one with a colour that is
// handed to GL only when it changes, pacing to at most one frame every 0.012 s, and the
// resolution check at the head of each pass of the frame loop.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL.h>
#include <SDL_opengl.h>
#ifdef __EMSCRIPTEN__
#include "Morvane/gfx_opengl/web/platform_web.h"
#endif

// Matches no 0xRRGGBB colour, so the first frame always applies its clear colour.
unsigned clear_colour_applied = 0x01000000;

static struct {
    double frame_start;   // time_now at the last frame check
} frame;

void end_frame(unsigned colour)
{
    glFinish();
    SDL_GL_SwapWindow(graphics_window());
    if (colour != clear_colour_applied) {
        glClearColor((colour >> 16) / 255.0f, ((colour >> 8) & 255) / 255.0f,
                     (colour & 255) / 255.0f, 0.0f);
        clear_colour_applied = colour;
    }
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glLoadIdentity();
}

// After two swaps the front buffer shows what the back buffer held; later drawing goes
// straight to the visible buffer.
void end_frame_no_clear()
{
    glFinish();
    SDL_GL_SwapWindow(graphics_window());
    SDL_GL_SwapWindow(graphics_window());
    glDrawBuffer(GL_FRONT);
    glLoadIdentity();
}

void end_frame_twice(unsigned colour)
{
    end_frame(colour);
    end_frame(colour);
}

#ifdef __EMSCRIPTEN__
// In a page the wait is spent in the browser, whole milliseconds at a time (its timers'
// granularity), so it can draw the page and run its handlers; the rest is a busy wait. A page
// hidden during the wait has a clock that stands still: the busy wait ends there, and the next
// pump waits until the page is shown.
void pace_frame(double frame_start)
{
    double left = 0.012 - (time_now() - frame_start);
    if (left >= 0.001) wait_in_browser((unsigned)(left * 1000));
    while (time_now() - frame_start < 0.012 && !page_hidden()) {
    }
}
#else
// A busy wait: sleeping would overshoot by the scheduler's granularity.
void pace_frame(double frame_start)
{
    while (time_now() - frame_start < 0.012) {
    }
}
#endif

// From here a fatal error shows its box and releases the context.
void graphics_opened(void (*message_box)(const char *caption, const char *text))
{
    report_message_box = message_box;
    report_graphics_close = graphics_close;
    reset_gl(screen_width, screen_height);
}

void graphics_frame_check(const char *source, int line)
{
    if (screen_width == 0)
        fatal_error(source, line,
                    "GRAPHICS() macro not called at LOOP start, or no resolution specified", 0);
    frame.frame_start = time_now();
}

void graphics_frame_end()
{
    end_frame(0);
    pace_frame(frame.frame_start);
}
