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
extern void (*gesture_handler)(unsigned long long wparam, long long lparam);
extern int quit_requested;

int graphics_open(int mode, int size_or_monitors, const char *title, void *instance);
void graphics_close();
void resize_view(int width, int height);
char *executable_directory();         // newly allocated, caller frees
void enter_executable_directory();
int touch_capability();
void show_cursor(int show);

// Frame protocol: present the frame and clear the next one.
void end_frame(unsigned colour);
void end_frame_no_clear();

// The library's frame interface: GRAPHICS() opens the window with the full primary screen,
// LOOP is the head of the frame loop (checks the resolution, pumps, runs while open).
#define GRAPHICS() graphics_open(0, 0, "Morvane", nullptr)
#define LOOP for (graphics_frame_check(); !pump_events(); graphics_frame_end())
void graphics_frame_check();
void graphics_frame_end();

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

int pump_events();                    // returns quit_requested
char next_typed_char();
void gesture_api_load();

inline bool key_held(int vk) { return (key_state[vk] & 0x80) != 0; }
inline bool key_pressed(int vk) { return (key_state[vk] & 0x80) && !(key_state_previous[vk] & 0x80); }

// Windows virtual-key codes (letters and digits are their upper-case ASCII codes).
enum virtual_key {
    VK_BACK = 0x08, VK_TAB = 0x09, VK_RETURN = 0x0D, VK_SHIFT = 0x10, VK_CONTROL = 0x11,
    VK_MENU = 0x12, VK_PAUSE = 0x13, VK_CAPITAL = 0x14, VK_ESCAPE = 0x1B, VK_SPACE = 0x20,
    VK_PRIOR = 0x21, VK_NEXT = 0x22, VK_END = 0x23, VK_HOME = 0x24,
    VK_LEFT = 0x25, VK_UP = 0x26, VK_RIGHT = 0x27, VK_DOWN = 0x28,
    VK_INSERT = 0x2D, VK_DELETE = 0x2E,
    VK_NUMPAD0 = 0x60, VK_MULTIPLY = 0x6A, VK_ADD = 0x6B, VK_SUBTRACT = 0x6D,
    VK_DECIMAL = 0x6E, VK_DIVIDE = 0x6F,
    VK_F1 = 0x70, VK_F12 = 0x7B,
    VK_LSHIFT = 0xA0, VK_RSHIFT = 0xA1, VK_LCONTROL = 0xA2, VK_RCONTROL = 0xA3,
    VK_LMENU = 0xA4, VK_RMENU = 0xA5,
};
