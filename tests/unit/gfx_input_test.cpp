// Input and frame logic without a window: the scancode to virtual-key table, keyboard
// snapshots with edge detection and tap latching, the typed-text queue, the clip stack
// and the frame loop's resolution check.
#define MORVANE_SOURCE "input_test"
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL_keyboard.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

TEST(key_table, scancodes_to_virtual_keys)
{
    const struct { int scancode; int vk; } cases[] = {
        {SDL_SCANCODE_0, '0'}, {SDL_SCANCODE_SPACE, 0x20}, {SDL_SCANCODE_ESCAPE, 0x1B},
        {SDL_SCANCODE_TAB, 0x09}, {SDL_SCANCODE_RETURN, 0x0D}, {SDL_SCANCODE_KP_ENTER, 0x0D}, {SDL_SCANCODE_BACKSPACE, 0x08},
        {SDL_SCANCODE_LSHIFT, 0xA0}, {SDL_SCANCODE_RSHIFT, 0xA1}, {SDL_SCANCODE_LCTRL, 0xA2},
        {SDL_SCANCODE_RCTRL, 0xA3}, {SDL_SCANCODE_LALT, 0xA4}, {SDL_SCANCODE_RALT, 0xA5},
        {SDL_SCANCODE_LEFT, 0x25}, {SDL_SCANCODE_UP, 0x26}, {SDL_SCANCODE_RIGHT, 0x27},
        {SDL_SCANCODE_DOWN, 0x28}, {SDL_SCANCODE_F13, 0x7C}, {SDL_SCANCODE_KP_PLUS, 0x6B},
        {SDL_SCANCODE_KP_MINUS, 0x6D}, {SDL_SCANCODE_KP_MULTIPLY, 0x6A},
        {SDL_SCANCODE_KP_DIVIDE, 0x6F}, {SDL_SCANCODE_KP_PERIOD, 0x6E}, {SDL_SCANCODE_KP_0, 0x60},
        {SDL_SCANCODE_KP_1, 0x61}, {SDL_SCANCODE_KP_5, 0x65}, {SDL_SCANCODE_KP_9, 0x69},
        {SDL_SCANCODE_PAGEUP, 0x21}, {SDL_SCANCODE_PAGEDOWN, 0x22}, {SDL_SCANCODE_END, 0x23},
        {SDL_SCANCODE_HOME, 0x24}, {SDL_SCANCODE_INSERT, 0x2D}, {SDL_SCANCODE_DELETE, 0x2E},
        {SDL_SCANCODE_CAPSLOCK, 0x14}, {SDL_SCANCODE_PAUSE, 0x13}, {SDL_SCANCODE_LGUI, 0x5B},
        {SDL_SCANCODE_MINUS, 0xBD}, {SDL_SCANCODE_EQUALS, 0xBB}, {SDL_SCANCODE_COMMA, 0xBC},
        {SDL_SCANCODE_PERIOD, 0xBE}, {SDL_SCANCODE_SLASH, 0xBF}, {SDL_SCANCODE_GRAVE, 0xC0},
        {SDL_SCANCODE_UNKNOWN, 0}, {SDL_SCANCODE_MUTE, 0}, {-1, 0}, {SDL_NUM_SCANCODES, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(scancode_virtual_key(c.scancode), c.vk) << SDL_GetScancodeName((SDL_Scancode)c.scancode)
                                                          << " (" << c.scancode << ")";
    // every letter and digit by its character code
    for (int i = 0; i < 26; ++i) EXPECT_EQ(scancode_virtual_key(SDL_SCANCODE_A + i), 'A' + i);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(scancode_virtual_key(SDL_SCANCODE_1 + i), '1' + i);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(scancode_virtual_key(SDL_SCANCODE_F1 + i), 0x70 + i);
}

// A keyboard as SDL reports it: one byte a scancode, non-zero = down.
struct fake_keyboard {
    unsigned char down[SDL_NUM_SCANCODES] = {};
    void snapshot(unsigned mouse = 0) { keyboard_snapshot(down, SDL_NUM_SCANCODES, mouse); }
};

static void clear_keys()
{
    memset(key_state, 0, sizeof key_state);
    memset(key_state_previous, 0, sizeof key_state_previous);
    fake_keyboard().snapshot();   // empties the latch
    memset(key_state_previous, 0, sizeof key_state_previous);
}

TEST(keyboard, held_key_is_pressed_once_then_held_then_released)
{
    clear_keys();
    fake_keyboard kb;
    kb.down[SDL_SCANCODE_K] = 1;
    const struct { bool down, held, pressed; } frames[] = {
        {true, true, true}, {true, true, false}, {true, true, false},
        {false, false, false}, {true, true, true},
    };
    int n = 0;
    for (const auto &f : frames) {
        kb.down[SDL_SCANCODE_K] = f.down;
        kb.snapshot();
        EXPECT_EQ(key_held('K'), f.held) << "frame " << n;
        EXPECT_EQ(key_pressed('K'), f.pressed) << "frame " << n;
        EXPECT_FALSE(key_held('J')) << "frame " << n;
        ++n;
    }
}

TEST(keyboard, tap_within_one_pump_counts_for_exactly_one_frame)
{
    clear_keys();
    fake_keyboard kb;   // the key is already up again when the snapshot is taken
    keyboard_latch_keydown(SDL_SCANCODE_P);
    kb.snapshot();
    EXPECT_TRUE(key_pressed('P'));
    kb.snapshot();
    EXPECT_FALSE(key_held('P'));
    EXPECT_TRUE(key_state_previous['P'] & 0x80);   // the release edge is visible
    kb.snapshot();
    EXPECT_FALSE(key_held('P'));
    EXPECT_FALSE(key_state_previous['P'] & 0x80);

    // a latched key that is still held simply stays held
    keyboard_latch_keydown(SDL_SCANCODE_ESCAPE);
    kb.down[SDL_SCANCODE_ESCAPE] = 1;
    kb.snapshot();
    kb.snapshot();
    EXPECT_TRUE(key_held(VK_ESCAPE));
    EXPECT_FALSE(key_pressed(VK_ESCAPE));
}

TEST(keyboard, mouse_buttons_appear_in_the_snapshot_and_upper_half_is_copied)
{
    clear_keys();
    key_state[300] = 7;   // the snapshot fills only the first 256 entries
    fake_keyboard kb;
    kb.snapshot(0x01 | 0x10);
    EXPECT_TRUE(key_held(VK_LBUTTON));
    EXPECT_FALSE(key_held(VK_RBUTTON));
    EXPECT_TRUE(key_held(VK_MBUTTON));
    EXPECT_EQ(key_state[300], 7);
    EXPECT_EQ(key_state_previous[300], 7);
    kb.snapshot(0x02);
    EXPECT_TRUE(key_held(VK_RBUTTON));
    EXPECT_FALSE(key_held(VK_LBUTTON));
    key_state[300] = 0;
}

TEST(typed_text, characters_come_out_in_order_from_a_queue_capped_at_499)
{
    typed_text[0] = 0;
    EXPECT_EQ(next_typed_char(), 0);
    std::string typed;
    int kept = 0;
    for (int i = 0; i < 600; ++i) {
        char c = (char)('a' + i % 26);
        typed += c;
        kept += typed_text_append(c);
    }
    EXPECT_EQ(kept, 499);
    EXPECT_EQ(std::string(typed_text), typed.substr(0, 499));
    // taking one makes room for one more
    EXPECT_EQ(next_typed_char(), 'a');
    EXPECT_EQ(std::string(typed_text), typed.substr(1, 498));
    EXPECT_EQ(typed_text_append('!'), 1);
    EXPECT_EQ(typed_text_append('?'), 0);
    EXPECT_EQ(typed_text[498], '!');
    std::string out;
    for (char c; (c = next_typed_char()) != 0;) out += c;
    EXPECT_EQ(out, typed.substr(1, 498) + "!");
    EXPECT_EQ(typed_text[0], 0);
}

TEST(clip_stack, pushes_intersect_with_the_top)
{
    clip_stack s = {};
    const struct { int in[4]; int out[4]; } pushes[] = {
        {{0, 0, 100, 100}, {0, 0, 100, 100}},        // the first is taken as it is
        {{50, -10, 200, 60}, {50, 0, 100, 60}},      // clamped into the first
        {{-5, 20, 70, 500}, {50, 20, 70, 60}},
        {{150, 150, 300, 300}, {70, 60, 70, 60}},    // wholly outside: an empty rectangle
    };
    int depth = 0;
    for (const auto &p : pushes) {
        ASSERT_EQ(clip_stack_push(&s, p.in[0], p.in[1], p.in[2], p.in[3]), 1);
        ++depth;
        ASSERT_EQ(s.depth, depth);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(s.rect[depth - 1][i], p.out[i]) << "push " << depth << " corner " << i;
    }
    EXPECT_EQ(clip_stack_pop(&s), 3);
    EXPECT_EQ(s.rect[2][0], 50);   // the new top is the third push
    EXPECT_EQ(clip_stack_pop(&s), 2);
    EXPECT_EQ(clip_stack_pop(&s), 1);
    EXPECT_EQ(clip_stack_pop(&s), 0);
    EXPECT_EQ(clip_stack_pop(&s), -1);
    EXPECT_EQ(s.depth, 0);
}

