// The window layer's plain logic, shared between its files and reachable by its tests:
// window placement on a list of monitors, matrices, circle segments, the key table,
// the keyboard snapshot with tap latching, typed text and the clip stack. No GL or SDL here.
#pragma once

// ---------------------------------------------------------------------------------------
// [SECTION] Window placement
struct screen_rect { int left, top, right, bottom; };

struct window_placement {
    int x, y;                        // top-left corner of the window in virtual-screen pixels
    int width, height;               // drawing area
    int outer_width, outer_height;   // with the frame (windowed), else the drawing area
};

// The bounding box of all monitors (the virtual screen); all zero for an empty list.
screen_rect virtual_screen(const screen_rect *monitors, int count);

// Chooses the drawing area and the window's place from graphics_open's two arguments.
// monitors[0] is the primary screen. frame_x, frame_y and caption are the border sizes
// of a framed window; pointer_x, pointer_y the mouse pointer for centring it.
window_placement place_window(int mode, int size_or_monitors, const screen_rect *monitors,
                              int count, int windowed_flag, int offset_x, int offset_y,
                              int pointer_x, int pointer_y, int frame_x, int frame_y,
                              int caption);

// True when SDL chose a video driver that draws off screen ("offscreen", "dummy") without
// `requested` (SDL_VIDEODRIVER, may be null) asking for it: nobody would see the window.
bool is_unseen_display(const char *driver, const char *requested);

// The fixed perspective of resize_view: near 0.1, far 1000, the wider axis fixed.
void perspective_matrix(int width, int height, float m[16]);

// ---------------------------------------------------------------------------------------
// [SECTION] Camera matrices (column-major, angles in degrees)
void matrix_depth_range(float m[16], double near_plane, double far_plane);
void matrix_field_of_view(float m[16], double angle, int width, int height);
double matrix_field_of_view_x(const float m[16]);
double matrix_field_of_view_43(const float m[16], int width, int height);
void matrix_perspective(float m[16], double angle, double near_plane, double far_plane,
                        int width, int height);
void matrix_perspective_43(float m[16], double angle, double near_plane, double far_plane,
                           int width, int height);
// Drawing units per screen pixel at the origin for these matrices and viewport.
double pixel_size_of(const double projection[16], const double modelview[16],
                     const int viewport[4]);

// ---------------------------------------------------------------------------------------
// [SECTION] Circles
int circle_segments(double r, double pixel);   // 5 x sqrt(r in pixels), at least 1
int arc_segments(double angle, double r, double pixel);  // |angle| x 0.8 x sqrt(r in pixels), >= 1
// 0 when the circle's bounding square lies wholly outside a w x h screen.
int circle_on_screen(double x, double y, double r, int w, int h);
// The outline test: also 0 when a huge circle contains the screen without crossing it.
int outline_on_screen(double x, double y, double r, int w, int h);
// The colour of a palette index, each channel 0..1.
void palette_index_rgb(int index, float rgb[3]);

// ---------------------------------------------------------------------------------------
// [SECTION] Keyboard and typed text
// The virtual-key code of an SDL scancode, 0 for a key with no code.
unsigned char scancode_virtual_key(int scancode);
// A key-down event seen while draining the queue: the key counts as down in the next snapshot.
void keyboard_latch_keydown(int scancode);
// Copies key_state to key_state_previous, then fills key_state's first 256 entries from the
// scancode states (non-zero = down), the latched key-downs and the mouse buttons
// (bit 0 left, bit 1 right, bit 4 middle); clears the latch.
void keyboard_snapshot(const unsigned char *scancode_down, int scancode_count,
                       unsigned mouse_raw);
// keyboard_snapshot, or when keyboard_snapshot_source is set (a test's keyboard), the
// previous snapshot kept and the source's snapshot taken instead.
void take_keyboard_snapshot(const unsigned char *scancode_down, int scancode_count,
                            unsigned mouse_raw);
// Both snapshots all up, as a new window finds them.
void keyboard_clear();
// Appends a character to typed_text unless it holds 499 already; 1 when kept.
int typed_text_append(char c);
// A mouse move or button change from the platform's events: position and raw buttons
// 0x01 left, 0x02 right, 0x10 middle.
void mouse_message(int x, int y, unsigned raw);
// The start of a pump: the buttons become the previous ones and the wheel bits are cleared.
void mouse_pump_begin();
// A wheel turn: up (> 0) or down (< 0) for this frame; 0 (a sideways turn) is not the wheel.
void mouse_wheel(int turn);

// ---------------------------------------------------------------------------------------
// [SECTION] Clip stack
enum { CLIP_STACK_DEPTH = 200 };
struct clip_stack {
    int depth;
    int rect[CLIP_STACK_DEPTH][4];
};
// Pushes the rectangle, intersected with the top one; 0 when the stack is full (nothing done).
int clip_stack_push(clip_stack *stack, int x1, int y1, int x2, int y2);
// Removes the top; returns the new depth, or -1 when it was empty already.
int clip_stack_pop(clip_stack *stack);

// ---------------------------------------------------------------------------------------
// [SECTION] Pixel rows
// Bytes of a row of `width` pixels of `components` bytes each, padded to `alignment` bytes.
int padded_row_bytes(int width, int components, int alignment);
// Bytes a pixel of a GL pixel format (luminance, luminance and alpha, RGB, BGR, RGBA, BGRA) or
// of an unsized internal format (1 to 4); 0 for any other.
int format_components(unsigned format);

// ---------------------------------------------------------------------------------------
// [SECTION] Shared between the layer's files
struct SDL_Window;
SDL_Window *graphics_window();        // the one window, nullptr before graphics_open
// The window and context are open: fatal errors show their message in the given box and
// release the context, and GL gets its initial state.
void graphics_opened(void (*message_box)(const char *caption, const char *text));

// ---------------------------------------------------------------------------------------
// [SECTION] Cached GL capabilities: -1 not asked yet, 0 absent, 1 present
extern int gl_has_mipmap_generation;
extern int gl_has_anisotropy;
extern int gl_has_swap_control;
// The clear colour last applied by end_frame (0x01000000 before the first frame).
extern unsigned clear_colour_applied;
