// The keyboard snapshot by Windows virtual-key code: the translation from SDL's scancodes
// (keys by their position on a US keyboard), the generic Shift/Control/Alt entries beside
// the left and right ones, and the latch that keeps a quick tap from being lost.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL_scancode.h>

#include <cstring>

unsigned char key_state[512];
unsigned char key_state_previous[512];
void (*keyboard_snapshot_source)(unsigned char snapshot[256]) = nullptr;

static const struct { int scancode; unsigned char vk; } key_pairs[] = {
    {SDL_SCANCODE_RETURN, VK_RETURN}, {SDL_SCANCODE_ESCAPE, VK_ESCAPE},
    {SDL_SCANCODE_BACKSPACE, VK_BACK}, {SDL_SCANCODE_TAB, VK_TAB},
    {SDL_SCANCODE_SPACE, VK_SPACE}, {SDL_SCANCODE_MINUS, VK_OEM_MINUS},
    {SDL_SCANCODE_EQUALS, VK_OEM_PLUS}, {SDL_SCANCODE_LEFTBRACKET, VK_OEM_4},
    {SDL_SCANCODE_RIGHTBRACKET, VK_OEM_6}, {SDL_SCANCODE_BACKSLASH, VK_OEM_5},
    {SDL_SCANCODE_NONUSHASH, VK_OEM_5}, {SDL_SCANCODE_SEMICOLON, VK_OEM_1},
    {SDL_SCANCODE_APOSTROPHE, VK_OEM_7}, {SDL_SCANCODE_GRAVE, VK_OEM_3},
    {SDL_SCANCODE_COMMA, VK_OEM_COMMA}, {SDL_SCANCODE_PERIOD, VK_OEM_PERIOD},
    {SDL_SCANCODE_SLASH, VK_OEM_2}, {SDL_SCANCODE_NONUSBACKSLASH, VK_OEM_102},
    {SDL_SCANCODE_CAPSLOCK, VK_CAPITAL}, {SDL_SCANCODE_PRINTSCREEN, VK_SNAPSHOT},
    {SDL_SCANCODE_SCROLLLOCK, VK_SCROLL}, {SDL_SCANCODE_PAUSE, VK_PAUSE},
    {SDL_SCANCODE_INSERT, VK_INSERT}, {SDL_SCANCODE_HOME, VK_HOME},
    {SDL_SCANCODE_PAGEUP, VK_PRIOR}, {SDL_SCANCODE_DELETE, VK_DELETE},
    {SDL_SCANCODE_END, VK_END}, {SDL_SCANCODE_PAGEDOWN, VK_NEXT},
    {SDL_SCANCODE_RIGHT, VK_RIGHT}, {SDL_SCANCODE_LEFT, VK_LEFT},
    {SDL_SCANCODE_DOWN, VK_DOWN}, {SDL_SCANCODE_UP, VK_UP},
    {SDL_SCANCODE_NUMLOCKCLEAR, VK_NUMLOCK}, {SDL_SCANCODE_KP_DIVIDE, VK_DIVIDE},
    {SDL_SCANCODE_KP_MULTIPLY, VK_MULTIPLY}, {SDL_SCANCODE_KP_MINUS, VK_SUBTRACT},
    {SDL_SCANCODE_KP_PLUS, VK_ADD}, {SDL_SCANCODE_KP_ENTER, VK_RETURN},
    {SDL_SCANCODE_KP_PERIOD, VK_DECIMAL}, {SDL_SCANCODE_KP_0, VK_NUMPAD0},
    {SDL_SCANCODE_APPLICATION, VK_APPS},
    {SDL_SCANCODE_LCTRL, VK_LCONTROL}, {SDL_SCANCODE_LSHIFT, VK_LSHIFT},
    {SDL_SCANCODE_LALT, VK_LMENU}, {SDL_SCANCODE_LGUI, VK_LWIN},
    {SDL_SCANCODE_RCTRL, VK_RCONTROL}, {SDL_SCANCODE_RSHIFT, VK_RSHIFT},
    {SDL_SCANCODE_RALT, VK_RMENU}, {SDL_SCANCODE_RGUI, VK_RWIN},
};

static struct {
    unsigned char table[SDL_NUM_SCANCODES];   // scancode -> virtual-key code, 0 = none
    bool table_built;
    unsigned char latched[SDL_NUM_SCANCODES]; // key-downs seen since the last snapshot
} keymap;

static void build_table()
{
    unsigned char *t = keymap.table;
    for (int i = 0; i < 26; ++i) t[SDL_SCANCODE_A + i] = (unsigned char)('A' + i);
    for (int i = 0; i < 9; ++i) t[SDL_SCANCODE_1 + i] = (unsigned char)('1' + i);
    t[SDL_SCANCODE_0] = '0';
    for (int i = 0; i < 12; ++i) t[SDL_SCANCODE_F1 + i] = (unsigned char)(VK_F1 + i);
    for (int i = 0; i < 12; ++i) t[SDL_SCANCODE_F13 + i] = (unsigned char)(VK_F12 + 1 + i);
    for (int i = 0; i < 9; ++i) t[SDL_SCANCODE_KP_1 + i] = (unsigned char)(VK_NUMPAD0 + 1 + i);
    for (const auto &p : key_pairs) t[p.scancode] = p.vk;
    keymap.table_built = true;
}

unsigned char scancode_virtual_key(int scancode)
{
    if (!keymap.table_built) build_table();
    if (scancode < 0 || scancode >= SDL_NUM_SCANCODES) return 0;
    return keymap.table[scancode];
}

void keyboard_latch_keydown(int scancode)
{
    if (scancode >= 0 && scancode < SDL_NUM_SCANCODES) keymap.latched[scancode] = 1;
}

void keyboard_snapshot(const unsigned char *scancode_down, int scancode_count,
                       unsigned mouse_raw)
{
    memcpy(key_state_previous, key_state, sizeof key_state);
    memset(key_state, 0, 256);
    for (int s = 0; s < SDL_NUM_SCANCODES; ++s) {
        bool down = (s < scancode_count && scancode_down[s]) || keymap.latched[s];
        unsigned char vk = scancode_virtual_key(s);
        if (down && vk) key_state[vk] |= 0x80;
    }
    memset(keymap.latched, 0, sizeof keymap.latched);
    // either side's key also counts as the generic one
    const unsigned char generic[3][3] = {{VK_SHIFT, VK_LSHIFT, VK_RSHIFT},
                                         {VK_CONTROL, VK_LCONTROL, VK_RCONTROL},
                                         {VK_MENU, VK_LMENU, VK_RMENU}};
    for (int i = 0; i < 3; i++)
        key_state[generic[i][0]] |= (key_state[generic[i][1]] | key_state[generic[i][2]]) & 0x80;
    if (mouse_raw & 0x01) key_state[VK_LBUTTON] |= 0x80;
    if (mouse_raw & 0x02) key_state[VK_RBUTTON] |= 0x80;
    if (mouse_raw & 0x10) key_state[VK_MBUTTON] |= 0x80;
}

void take_keyboard_snapshot(const unsigned char *scancode_down, int scancode_count,
                            unsigned mouse_raw)
{
    if (!keyboard_snapshot_source) return keyboard_snapshot(scancode_down, scancode_count, mouse_raw);
    memcpy(key_state_previous, key_state, sizeof key_state);
    keyboard_snapshot_source(key_state);
}

void keyboard_clear()
{
    memset(key_state, 0, sizeof key_state);
    memset(key_state_previous, 0, sizeof key_state_previous);
}
