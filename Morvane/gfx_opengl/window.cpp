// The one window and its GL context: choosing the drawing area among the monitors,
// creating the window and context with the fixed pixel format, the initial GL state,
// the projection kept in step with the window size, and the release on close.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"
#include "Morvane/growarray.h"

#include <SDL.h>
#include <SDL_opengl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <unistd.h>

void *window_icon = nullptr;

static struct {
    SDL_Window *window;
    SDL_GLContext context;
    int display_mode_changed;   // explicit-resolution full screen switched the display mode
} window_state;

static const char source_name[] = "Morvane/gfx_opengl";

SDL_Window *graphics_window() { return window_state.window; }

// ---------------------------------------------------------------------------------------
// [SECTION] Choosing the drawing area

screen_rect virtual_screen(const screen_rect *monitors, int count)
{
    screen_rect box = {0, 0, 0, 0};
    for (int i = 0; i < count; ++i) {
        const screen_rect &m = monitors[i];
        if (i == 0 || m.left < box.left) box.left = m.left;
        if (i == 0 || m.top < box.top) box.top = m.top;
        if (i == 0 || m.right > box.right) box.right = m.right;
        if (i == 0 || m.bottom > box.bottom) box.bottom = m.bottom;
    }
    return box;
}

// The area named by the two arguments: an explicit size, the primary screen, one monitor,
// the virtual screen or the bounding box of a set of monitors.
static screen_rect chosen_area(int mode, int arg, const screen_rect *monitors, int count)
{
    screen_rect primary = count > 0 ? monitors[0] : screen_rect{0, 0, 0, 0};
    if (mode > 0) return {primary.left, primary.top, primary.left + mode, primary.top + arg};
    if (mode == 0) {
        if (arg <= 0 || count == 0) return primary;
        return monitors[arg <= count ? arg - 1 : 0];  // a monitor beyond the list: the first
    }
    if (arg <= 0) return virtual_screen(monitors, count);
    screen_rect box = {0, 0, 0, 0};
    bool any = false;
    for (int i = 0; i <= 30 && i < count; ++i) {
        if (!((arg >> i) & 1)) continue;
        const screen_rect pair[2] = {box, monitors[i]};
        box = any ? virtual_screen(pair, 2) : monitors[i];
        any = true;
    }
    return box;
}

window_placement place_window(int mode, int size_or_monitors, const screen_rect *monitors,
                              int count, int windowed_flag, int offset_x, int offset_y,
                              int pointer_x, int pointer_y, int frame_x, int frame_y,
                              int caption)
{
    screen_rect area = chosen_area(mode, size_or_monitors, monitors, count);
    window_placement p;
    p.x = area.left + offset_x;
    p.y = area.top + offset_y;
    p.width = area.right - area.left;
    p.height = area.bottom - area.top;
    p.outer_width = p.width;
    p.outer_height = p.height;
    if (!windowed_flag) return p;

    if (mode == 0) {  // a 4:3 window on 60% of the screen's height
        p.height = (int)(p.height * 0.6);
        p.width = p.height * 4 / 3;
    }
    p.outer_width = p.width + 2 * frame_x;
    p.outer_height = p.height + caption + 2 * frame_y;
    // centred on the pointer, kept inside the virtual screen (the offsets do not apply)
    screen_rect v = virtual_screen(monitors, count);
    p.x = pointer_x - p.outer_width / 2;
    if (p.x > v.right - p.outer_width) p.x = v.right - p.outer_width;
    if (p.x < v.left) p.x = v.left;
    p.y = pointer_y - p.outer_height / 2;
    if (p.y > v.bottom - p.outer_height) p.y = v.bottom - p.outer_height;
    if (p.y < v.top) p.y = v.top;
    return p;
}

// The displays in SDL's order (display 0 is the primary), in a growable array with
// growth setting 60 that starts with room for one; built afresh for each use.
static void collect_monitors(growarray *monitors)
{
    growarray_init(monitors, sizeof(screen_rect), 1);
    for (int i = 0, n = SDL_GetNumVideoDisplays(); i < n; ++i) {
        SDL_Rect b;
        if (SDL_GetDisplayBounds(i, &b) != 0) continue;
        screen_rect r = {b.x, b.y, b.x + b.w, b.y + b.h};
        growarray_append(monitors, &r);
    }
}

// ---------------------------------------------------------------------------------------
// [SECTION] Opening and closing

static void show_error_box(const char *caption, const char *text)
{
    SDL_ShowSimpleMessageBox(SDL_MESSAGEBOX_ERROR, caption, text, nullptr);
}

// A start-up step SDL could not do: SDL's own reason on the console, then the fatal error.
[[noreturn]] static void startup_failure(int line, const char *message)
{
    fprintf(stderr, "SDL: %s\n", SDL_GetError());
    fatal_error(source_name, line, message, 0);
}

// SDL falls back by itself to a driver that only draws off screen ("offscreen", "dummy") when
// no display can be opened. Nobody sees such a window, so unless SDL_VIDEODRIVER asked for
// that driver it counts as no display at all.
bool is_unseen_display(const char *driver, const char *requested)
{
    if (!driver || (strcasecmp(driver, "offscreen") != 0 && strcasecmp(driver, "dummy") != 0))
        return false;
    return !requested || strcasecmp(requested, driver) != 0;
}

// The pixel format: 8 bits of red, green and blue, no alpha, the given depth, double
// buffered, with the compatibility profile that keeps immediate mode.
static bool request_pixel_format(int depth)
{
    return SDL_GL_SetAttribute(SDL_GL_RED_SIZE, 8) == 0 &&
           SDL_GL_SetAttribute(SDL_GL_GREEN_SIZE, 8) == 0 &&
           SDL_GL_SetAttribute(SDL_GL_BLUE_SIZE, 8) == 0 &&
           SDL_GL_SetAttribute(SDL_GL_ALPHA_SIZE, 0) == 0 &&
           SDL_GL_SetAttribute(SDL_GL_DEPTH_SIZE, depth) == 0 &&
           SDL_GL_SetAttribute(SDL_GL_DOUBLEBUFFER, 1) == 0 &&
           SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK,
                               SDL_GL_CONTEXT_PROFILE_COMPATIBILITY) == 0;
}

static SDL_Window *create_window(const char *title, const window_placement &p, int depth)
{
    if (!request_pixel_format(depth))
        startup_failure(622, "Can't Set The PixelFormat.");
    // full screen is a borderless window over the chosen area; a framed window can be resized
    Uint32 flags = SDL_WINDOW_OPENGL | (windowed ? SDL_WINDOW_RESIZABLE : SDL_WINDOW_BORDERLESS);
    return SDL_CreateWindow(title ? title : "", p.x, p.y, p.width, p.height, flags);
}

// The placement for graphics_open's arguments on the displays as they are now, with the
// given frame sizes of a framed window.
static window_placement current_placement(int mode, int size_or_monitors, int frame_x,
                                          int frame_y, int caption)
{
    growarray monitors;
    collect_monitors(&monitors);
    int pointer_x = 0, pointer_y = 0;
    SDL_GetGlobalMouseState(&pointer_x, &pointer_y);
    window_placement p = place_window(mode, size_or_monitors, (screen_rect *)monitors.data,
                                      (int)monitors.count, windowed, window_offset_x,
                                      window_offset_y, pointer_x, pointer_y, frame_x, frame_y,
                                      caption);
    growarray_free(&monitors);
    return p;
}

// A 32-bit depth buffer is asked for first; 24 bits when the window or context can't be made.
static void create_window_and_context(const char *title, const window_placement &p)
{
    // Without a GL driver there is no pixel format to be found.
    if (SDL_GL_LoadLibrary(nullptr) != 0)
        startup_failure(621, "Can't Find A Suitable PixelFormat.");
    int depth = 32;
    SDL_Window *window = create_window(title, p, depth);
    if (!window) window = create_window(title, p, depth = 24);
    if (!window) startup_failure(595, "Window Creation Error.");
    SDL_GLContext context = SDL_GL_CreateContext(window);
    if (!context && depth == 32) {
        SDL_DestroyWindow(window);
        window = create_window(title, p, 24);
        if (!window) startup_failure(595, "Window Creation Error.");
        context = SDL_GL_CreateContext(window);
    }
    if (!context) startup_failure(624, "Can't Create A GL Rendering Context.");
    window_state.window = window;
    window_state.context = context;
    if (SDL_GL_MakeCurrent(window, context) != 0)
        startup_failure(625, "Can't activate GLRC.");
}

// The window manager frames a window only once it is shown, so a framed window is first
// centred without its frame; when the frame's size is known by then, the outer window is
// centred instead (SDL places the inside of the frame).
static void centre_with_frame(int mode, int size_or_monitors)
{
    int top = 0, left = 0, bottom = 0, right = 0;
    if (SDL_GetWindowBordersSize(window_state.window, &top, &left, &bottom, &right) != 0) return;
    if (top == 0 && left == 0) return;
    window_placement p = current_placement(mode, size_or_monitors, left, bottom, top - bottom);
    SDL_SetWindowPosition(window_state.window, p.x + left, p.y + top);
}

int graphics_open(int mode, int size_or_monitors, const char *title, void *instance)
{
    (void)instance; // SDL has no program instance handle
    // High-DPI awareness needs no call: X11 windows are sized in physical pixels already.
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
        startup_failure(590, "Failed To Register The Window Class.");
    if (is_unseen_display(SDL_GetCurrentVideoDriver(), getenv("SDL_VIDEODRIVER"))) {
        fprintf(stderr, "No display: %s needs a graphical desktop (an X11 or Wayland session, "
                        "with DISPLAY or WAYLAND_DISPLAY set). The tests run without one under a "
                        "virtual X server: see the test command in the README.\n",
                title && *title ? title : "this program");
        fatal_error(source_name, 595, "Window Creation Error.", 0);
    }
    window_placement p = current_placement(mode, size_or_monitors, 0, 0, 0);
    screen_width = p.width;
    screen_height = p.height;
    if (screen_width == 0 || screen_height == 0) return 0;

    keyboard_clear();
    create_window_and_context(title, p);
    if (window_icon) SDL_SetWindowIcon(window_state.window, (SDL_Surface *)window_icon);
    if (windowed) centre_with_frame(mode, size_or_monitors);
    graphics_opened(show_error_box);
    SDL_StartTextInput();

    if (!windowed && mode > 0 && window_offset_x == 0 && window_offset_y == 0) {
        SDL_DisplayMode display = {};
        display.w = screen_width;
        display.h = screen_height;
        SDL_SetWindowDisplayMode(window_state.window, &display);
        SDL_SetWindowFullscreen(window_state.window, SDL_WINDOW_FULLSCREEN);
        window_state.display_mode_changed = 1;
    }
    if (!windowed) SDL_ShowCursor(SDL_DISABLE);
    return 1;
}

// Leaves an explicit-resolution full screen and releases the context; the window itself
// stays until the process ends. Safe to call more than once.
void graphics_close()
{
    if (!window_state.window) return;
    if (!windowed && window_state.display_mode_changed) {
        SDL_SetWindowFullscreen(window_state.window, 0);
        window_state.display_mode_changed = 0;
    }
    if (window_state.context) {
        SDL_GL_MakeCurrent(window_state.window, nullptr);
        SDL_GL_DeleteContext(window_state.context);
        window_state.context = nullptr;
    }
}

// ---------------------------------------------------------------------------------------
// [SECTION] Program directory, touch and cursor

char *executable_directory()
{
    char *path = (char *)malloc(500);
    ssize_t n = readlink("/proc/self/exe", path, 499);
    path[n > 0 ? n : 0] = 0;
    char *slash = strrchr(path, '/');
    if (slash) *slash = 0;
    return path;
}

int touch_capability()
{
    int devices = SDL_GetNumTouchDevices();
    if (devices <= 0) return 0;
    for (int i = 0; i < devices; ++i)
        if (SDL_GetNumTouchFingers(SDL_GetTouchDevice(i)) > 1) return 2;
    return 1;
}

void show_cursor(int show) { SDL_ShowCursor(show ? SDL_ENABLE : SDL_DISABLE); }

void set_cursor_position(int x, int y)
{
    if (window_state.window) SDL_WarpMouseInWindow(window_state.window, x, y);
}

void cursor_position(int *x, int *y) { SDL_GetGlobalMouseState(x, y); }
