// The one window in a web page: the canvas as the drawing area (for full screen the browser
// window, less a side the page keeps for its controls), its GL context, the projection kept in
// step with its size, message boxes shown in the page, files (screenshots among them) offered as
// downloads, and the few SDL entry points that the layer's shared files call, provided over the
// browser.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"
#include "Morvane/gfx_opengl/web/gl1_webgl.h"
#include "Morvane/gfx_opengl/web/platform_web.h"

#include <SDL.h>
#include <SDL_opengl.h>
#include <emscripten.h>
#include <emscripten/html5.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

static struct {
    bool open;
    bool follows_browser_window;   // full screen: the canvas is resized with the browser window
    char window_token;             // its address stands for the window
} window_state;

static const char source_name[] = "Morvane/gfx_opengl";

SDL_Window *graphics_window()
{
    return window_state.open ? (SDL_Window *)(void *)&window_state.window_token : nullptr;
}

bool canvas_follows_browser_window() { return window_state.follows_browser_window; }

// ---------------------------------------------------------------------------------------
// [SECTION] The page

// clang-format off
// The part of the browser window left to the canvas: the page may keep a side of it for its
// own controls (Module.canvas_room gives [width, height]), else the whole window.
EM_JS(int, page_width, (), { return (Module.canvas_room ? Module.canvas_room()[0] : window.innerWidth) | 0; });
EM_JS(int, page_height, (), { return (Module.canvas_room ? Module.canvas_room()[1] : window.innerHeight) | 0; });
EM_JS(void, page_prepare_canvas, (int width, int height, int hide_cursor, const char *title), {
    const canvas = Module.canvas;
    canvas.width = width;
    canvas.height = height;
    canvas.style.width = width + 'px';
    canvas.style.height = height + 'px';
    canvas.style.cursor = hide_cursor ? 'none' : 'default';
    // On a high-density screen each of the canvas's pixels covers several of the screen's: they
    // are enlarged without smoothing, so text and thin lines stay as sharp as the program draws
    // them in CSS pixels (its fonts and layout are pixel-exact).
    canvas.style.imageRendering = 'pixelated';
    if (title) document.title = UTF8ToString(title);
});
EM_JS(void, page_show_message, (const char *caption, const char *text), {
    const c = UTF8ToString(caption), t = UTF8ToString(text);
    console.error(c + ': ' + t);
    if (Module.show_message) Module.show_message(c, t);
});
EM_JS(int, page_touch_points, (), { return navigator.maxTouchPoints | 0; });
EM_JS(void, page_cursor, (int show), { Module.canvas.style.cursor = show ? 'default' : 'none'; });
// A file offered as a download: the page keeps one way of doing it for every kind of file.
EM_JS(void, page_install_download, (), {
    Module.offer_download = (blob, name) => {
        const a = document.createElement('a');
        a.href = URL.createObjectURL(blob);
        a.download = name;
        document.body.appendChild(a);
        a.click();
        a.remove();
        setTimeout(() => URL.revokeObjectURL(a.href), 10000);
    };
});
// A file of the virtual file system becomes a download, and the file goes.
EM_JS(void, page_offer_file, (const char *file_name, const char *download_name, const char *type), {
    const name = UTF8ToString(file_name);
    const data = FS.readFile(name);
    FS.unlink(name);
    Module.offer_download(new Blob([data], {type: UTF8ToString(type)}), UTF8ToString(download_name));
});
// A BMP of the virtual file system becomes a PNG download of the given name, and the BMP goes.
EM_JS(void, page_offer_png, (const char *bmp_name, const char *png_name), {
    const name = UTF8ToString(bmp_name), png = UTF8ToString(png_name);
    const bmp = FS.readFile(name);
    FS.unlink(name);
    const view = new DataView(bmp.buffer, bmp.byteOffset, bmp.byteLength);
    const w = view.getInt32(18, true), h = view.getInt32(22, true);
    const stride = (w * 3 + 3) & ~3, start = view.getUint32(10, true);
    const image = new ImageData(w, h);
    for (let y = 0; y < h; y++)
        for (let x = 0; x < w; x++) {
            const s = start + (h - 1 - y) * stride + x * 3, d = (y * w + x) * 4;
            image.data[d] = bmp[s + 2];
            image.data[d + 1] = bmp[s + 1];
            image.data[d + 2] = bmp[s];
            image.data[d + 3] = 255;
        }
    const canvas = document.createElement('canvas');
    canvas.width = w;
    canvas.height = h;
    canvas.getContext('2d').putImageData(image, 0, 0);
    canvas.toBlob(blob => Module.offer_download(blob, png), 'image/png');
});
// The time of each swap, for a benchmark that sets Module.frame_times to an array.
EM_JS(void, page_note_swap, (), { if (Module.frame_times) Module.frame_times.push(performance.now()); });
// clang-format on

void offer_png_download(const char *bmp_name, const char *png_name)
{
    page_install_download();
    page_offer_png(bmp_name, png_name);
}

void offer_file_download(const char *file_name, const char *download_name, const char *type)
{
    page_install_download();
    page_offer_file(file_name, download_name, type);
}

static void show_error_box(const char *caption, const char *text) { page_show_message(caption, text); }

// ---------------------------------------------------------------------------------------
// [SECTION] The SDL entry points of the shared files

// GL entry points looked up by name: the ones the GL 1.x subset provides.
void *SDL_GL_GetProcAddress(const char *proc) { return gl1_proc_address(proc); }
// The browser paces the page's frames itself: no swap control.
int SDL_GL_SetSwapInterval(int) { return -1; }
// The swap: the frame is shown on the canvas, the browser having had the page meanwhile.
void SDL_GL_SwapWindow(SDL_Window *)
{
    gl1_present();
    browser_had_page();
    page_note_swap();
}

// ---------------------------------------------------------------------------------------
// [SECTION] Opening and closing

// The browser window is the one monitor: mode > 0 asks for mode x size_or_monitors pixels;
// otherwise the room the page leaves in the browser window, or a 4:3 window on 60% of its height when windowed.
int graphics_open(int mode, int size_or_monitors, const char *title, void *instance)
{
    (void)instance;
    int width = mode > 0 ? mode : page_width();
    int height = mode > 0 ? size_or_monitors : page_height();
    if (mode <= 0 && windowed) {
        height = (int)(height * 0.6);
        width = height * 4 / 3;
    }
    window_state.follows_browser_window = mode <= 0 && !windowed;
    screen_width = width;
    screen_height = height;
    if (screen_width <= 0 || screen_height <= 0) return 0;

    keyboard_clear();
    page_prepare_canvas(width, height, !windowed, title);
    if (!gl1_open("#canvas", width, height))
        fatal_error(source_name, 624, "Can't Create A GL Rendering Context.", 0);
    window_state.open = true;
    graphics_opened(show_error_box);
    page_clock_install();
    install_event_handlers();
    return 1;
}

// The context stays with the page; the window counts as closed.
void graphics_close() { window_state.open = false; }

// The browser window, or the page's controls beside the canvas, changed size: a full-screen
// canvas follows.
void follow_browser_window()
{
    if (!window_state.follows_browser_window || !window_state.open) return;
    int width = page_width(), height = page_height();
    if (width <= 0 || height <= 0 || (width == screen_width && height == screen_height)) return;
    page_prepare_canvas(width, height, !windowed, nullptr);
    resize_view(width, height);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Program directory, touch and cursor

// The program's files live in the page's own file system, at its root.
char *executable_directory()
{
    char *path = (char *)malloc(500);
    strcpy(path, "/");
    return path;
}

int touch_capability()
{
    int points = page_touch_points();
    return points <= 0 ? 0 : points == 1 ? 1 : 2;
}

void show_cursor(int show) { page_cursor(show); }

// A page cannot move the pointer.
void set_cursor_position(int, int) {}

void cursor_position(int *x, int *y)
{
    *x = mouse_x;
    *y = mouse_y;
}
