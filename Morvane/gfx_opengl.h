// Morvane window and GL layer: the one window and its GL context, the frame protocol,
// the event pump with keyboard and mouse state, 2-D drawing in pixel coordinates,
// textures and screenshots. Everything here runs on the thread that owns the context.
#pragma once

#include "Morvane/clock.h"
#include "Morvane/report.h"   // the `windowed` flag lives with the diagnostics, which read it

// ---------------------------------------------------------------------------------------
// [SECTION] Window and GL context
extern int screen_width;              // drawing area in pixels; 0 until a window is open
extern int screen_height;             // never below 1 after a resize
extern int window_offset_x, window_offset_y;
extern int ortho_mode;                // 1 pixel-exact orthographic projection, 0 fixed perspective
extern void *window_icon;             // an SDL_Surface for the window's icon, or nullptr
// Called for touch gesture events: wparam is the SDL event type, lparam the SDL_Event's address.
extern void (*gesture_handler)(unsigned long long wparam, long long lparam);
extern int quit_requested;

// mode > 0: width mode x height size_or_monitors; mode 0: primary screen (0) or monitor n;
// mode -1: virtual screen (<= 0) or the bounding box of a monitor bit mask.
// Returns 1 when open, 0 when the chosen size is zero. Failures are fatal.
int graphics_open(int mode, int size_or_monitors, const char *title, void *instance);
void graphics_close();                // leaves full screen, releases the context
void resize_view(int width, int height);
char *executable_directory();         // newly allocated (500 bytes), caller frees
void enter_executable_directory();
int touch_capability();               // 0 none, 1 touch, 2 multi-touch
void show_cursor(int show);
void set_cursor_position(int x, int y);     // in the window's pixels
void cursor_position(int *x, int *y);       // on the virtual screen

// Frame protocol: present the frame and clear the next one.
void end_frame(unsigned colour);      // colour 0xRRGGBB, applied only when it changes
void end_frame_no_clear();            // present, then draw straight into the front buffer
void end_frame_twice(unsigned colour);
void pace_frame(double frame_start);  // busy-waits until 0.012 s after frame_start

// The library's frame interface: GRAPHICS() opens the window with the full primary screen,
// LOOP is the head of the frame loop: each pass checks that a resolution exists (fatal
// otherwise, reported with the caller's source name and line), pumps events and runs the
// body while the window is open; after the body the frame is presented, cleared and paced.
#ifndef MORVANE_SOURCE
#define MORVANE_SOURCE __FILE__
#endif
#define GRAPHICS() graphics_open(0, 0, "Morvane", nullptr)
#define LOOP for (graphics_frame_check(MORVANE_SOURCE, __LINE__); !pump_events(); \
                  graphics_frame_end(), graphics_frame_check(MORVANE_SOURCE, __LINE__))
void graphics_frame_check(const char *source, int line);
void graphics_frame_end();            // end_frame(0), then paced from the last check

// ---------------------------------------------------------------------------------------
// [SECTION] Event pump, keyboard and mouse
extern unsigned char key_state[512];          // indexed by Windows virtual-key code, bit 7 = down
extern unsigned char key_state_previous[512];
extern int mouse_x, mouse_y;
extern unsigned mouse_buttons;                // bit 0 left, 1 right, 4 middle, 2/3 wheel up/down this frame
extern unsigned mouse_buttons_previous;
extern unsigned mouse_raw_buttons;
extern int mouse_click_suppressed;
extern char typed_text[500];
extern unsigned char minimised_by_alt_tab;

// Where the pump's keyboard snapshot comes from: nullptr (the default) reads the keyboard;
// tests point it at a function that writes a prepared snapshot into the first 256 entries.
extern void (*keyboard_snapshot_source)(unsigned char snapshot[256]);
int pump_events();                    // returns quit_requested
char next_typed_char();               // 0 when nothing was typed
void gesture_api_load();

inline bool key_held(int vk) { return (key_state[vk] & 0x80) != 0; }
inline bool key_pressed(int vk) { return (key_state[vk] & 0x80) && !(key_state_previous[vk] & 0x80); }

// Windows virtual-key codes (letters and digits are their upper-case ASCII codes).
enum virtual_key {
    VK_LBUTTON = 0x01, VK_RBUTTON = 0x02, VK_MBUTTON = 0x04,
    VK_BACK = 0x08, VK_TAB = 0x09, VK_RETURN = 0x0D, VK_SHIFT = 0x10, VK_CONTROL = 0x11,
    VK_MENU = 0x12, VK_PAUSE = 0x13, VK_CAPITAL = 0x14, VK_ESCAPE = 0x1B, VK_SPACE = 0x20,
    VK_PRIOR = 0x21, VK_NEXT = 0x22, VK_END = 0x23, VK_HOME = 0x24,
    VK_LEFT = 0x25, VK_UP = 0x26, VK_RIGHT = 0x27, VK_DOWN = 0x28,
    VK_SNAPSHOT = 0x2C, VK_INSERT = 0x2D, VK_DELETE = 0x2E,
    VK_LWIN = 0x5B, VK_RWIN = 0x5C, VK_APPS = 0x5D,
    VK_NUMPAD0 = 0x60, VK_MULTIPLY = 0x6A, VK_ADD = 0x6B, VK_SUBTRACT = 0x6D,
    VK_DECIMAL = 0x6E, VK_DIVIDE = 0x6F,
    VK_F1 = 0x70, VK_F12 = 0x7B,
    VK_NUMLOCK = 0x90, VK_SCROLL = 0x91,
    VK_LSHIFT = 0xA0, VK_RSHIFT = 0xA1, VK_LCONTROL = 0xA2, VK_RCONTROL = 0xA3,
    VK_LMENU = 0xA4, VK_RMENU = 0xA5,
    VK_OEM_1 = 0xBA, VK_OEM_PLUS = 0xBB, VK_OEM_COMMA = 0xBC, VK_OEM_MINUS = 0xBD,
    VK_OEM_PERIOD = 0xBE, VK_OEM_2 = 0xBF, VK_OEM_3 = 0xC0, VK_OEM_4 = 0xDB,
    VK_OEM_5 = 0xDC, VK_OEM_6 = 0xDD, VK_OEM_7 = 0xDE, VK_OEM_102 = 0xE2,
};

// ---------------------------------------------------------------------------------------
// [SECTION] 2-D drawing in pixel coordinates (colours 0xRRGGBB)
extern int cull_offscreen;            // 1: circle shapes wholly off screen draw nothing

void set_colour(unsigned colour);
void set_palette_colour(int index);
void draw_line(double x1, double y1, double x2, double y2, unsigned colour);
void draw_point(double x, double y, unsigned colour);
// Batch forms: colour and vertices only, inside the caller's glBegin (POINTS, LINES, QUADS).
void point_vertex(double x, double y, unsigned colour);
void line_vertices(double x1, double y1, double x2, double y2, unsigned colour);
void rect_vertices(double x, double y, double w, double h, unsigned colour);
void fill_rect(double x, double y, double w, double h, unsigned colour);
void outline_rect(double x, double y, double w, double h, unsigned colour);
void outline_box(double x1, double y1, double x2, double y2, unsigned colour);
void fill_circle(double x, double y, double r, unsigned colour);
void outline_circle(double x, double y, double r, unsigned colour);
void outline_ellipse(double x, double y, double rx, double ry, unsigned colour);
// Angles in radians, clockwise from straight up on screen.
void draw_arc(double x, double y, double r, double a0, double a1, unsigned colour);
void fill_sector(double x, double y, double r_inner, double r_outer, double a0, double a1,
                 unsigned colour, int alpha);
// Soft-edged shapes: opaque inside, fading to transparent over the last `edge` pixels.
void soft_disc(double x, double y, double r, double edge, unsigned colour, int alpha);
void soft_ring(double x, double y, double r_inner, double r_outer, double edge,
               unsigned colour, int alpha);

void smooth_begin(int additive, double width);
void smooth_end();
void overlay_begin();
void overlay_end();
double pixel_size();                  // drawing units per screen pixel at the origin

// Clip rectangles as corners {x1, y1, x2, y2} in screen pixels, y downwards.
void set_clip(const int rect[4]);
void get_clip(int rect[4]);
void push_clip(int x1, int y1, int x2, int y2); // intersected with the current one; 200 deep
void pop_clip();
void clear_rect(int x, int y, int w, int h);    // GL window coordinates, as given

void reset_gl(int width, int height);
double gl_version();

// Camera helpers for 3-D scenes (angles in degrees).
void set_depth_range(double near_plane, double far_plane);
void set_field_of_view(double angle);
double field_of_view_x();
double field_of_view_43();
void set_perspective(double angle, double near_plane, double far_plane);
void set_perspective_43(double angle, double near_plane, double far_plane);

// ---------------------------------------------------------------------------------------
// [SECTION] Textures and optional GL features
extern int texture_unsized_formats;   // 1: uploads pass the component count as internal format
extern const unsigned texture_pixel_formats[5];  // by components 1-4: LUMINANCE .. RGBA
extern const unsigned texture_sized_formats[5];  // LUMINANCE8 .. RGBA8

void upload_texture_level(unsigned target, int level, int components, int width, int height,
                          unsigned type, const void *data);
// Level 0 of unsigned bytes, then the mipmap chain.
void upload_texture(unsigned target, int components, int width, int height, const void *data);
// Six faces +X, -X, +Y, -Y, +Z, -Z of size x size texels each.
void upload_cube_texture(int components, int size, const void *const faces[6]);
void generate_mipmaps(unsigned target);   // by GL when it offers it, else software_mipmaps
void software_mipmaps();                  // the chain of the bound GL_TEXTURE_2D from level 0
// Halves one level: each byte is (a + b + c + d + 2) / 4 of its 2 x 2 block; rows of both
// images padded to 4 bytes. The new size is max(width / 2, 1) x max(height / 2, 1).
void mipmap_halve(const unsigned char *source, int width, int height, int components,
                  unsigned char *destination);
// Screen rectangle (top-left x, y, y downwards) into a texture; 0 creates one. Returns its name.
unsigned copy_screen_to_texture(int x, int y, int width, int height, int with_alpha,
                                unsigned texture);
void anisotropic_filtering(unsigned target);
int swap_interval(int interval);          // 1 when the driver took it, else 0
void blend_equation(unsigned mode);
void blend_func_separate(unsigned src_rgb, unsigned dst_rgb, unsigned src_alpha,
                         unsigned dst_alpha);

// ---------------------------------------------------------------------------------------
// [SECTION] Screenshots and file helpers
int bmp_row_stride(int width);            // 3 bytes a pixel, rows padded to 4 bytes
void bmp_header(unsigned char header[54], int width, int height);
// Bottom-up rows of BGR pixels; convert != 0 turns the file into PNG with "magick".
void write_bmp(const void *pixels, int width, int height, const char *file_name, int convert);
void save_screenshot(const char *prefix); // "<prefix>_NNNNN.bmp" from the clock, converted
// The screenshot file name for a clock reading t: n = (int)(t x 3.3333333333333335) % 100000.
void screenshot_name(char *out, int size, const char *prefix, double t);
unsigned char *read_screen_rect(int x, int y, int width, int height); // caller frees
void save_screen_rect(int x, int y, int width, int height, const char *file_name, int convert);
void save_screen(const char *file_name, int convert);
char *replace_extension(const char *name, const char *extension); // caller frees
// The shell command that turns a BMP into a PNG with whichever image converter is installed;
// both names are quoted for the shell. Caller frees.
char *converter_command(const char *bmp_name, const char *png_name);
int file_exists(const char *name);
int delete_file(const char *name);        // 1 when removed
