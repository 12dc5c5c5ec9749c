// The event pump: drains SDL's queue into the mouse, wheel, typed-text, size and quit
// state, keeps a full-screen window on top (or minimised after Alt+Tab) and takes the
// keyboard snapshot once a frame. The pump never blocks.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL.h>

#include <cstring>

static struct {
    bool gesture_api_loaded;
} events;

// ---------------------------------------------------------------------------------------
// [SECTION] Mouse

// Button bits as the program keeps them: left 0x01, right 0x02, middle 0x10.
static unsigned raw_from_mask(Uint32 mask)
{
    return ((mask & SDL_BUTTON_LMASK) ? 0x01u : 0u) | ((mask & SDL_BUTTON_RMASK) ? 0x02u : 0u) |
           ((mask & SDL_BUTTON_MMASK) ? 0x10u : 0u);
}

static unsigned raw_from_button(Uint8 button)
{
    return button == SDL_BUTTON_LEFT ? 0x01u : button == SDL_BUTTON_RIGHT ? 0x02u
         : button == SDL_BUTTON_MIDDLE ? 0x10u : 0u;
}

// ---------------------------------------------------------------------------------------
// [SECTION] The window procedure


// A quick tap is latched together with the Ctrl, Shift and Alt keys held when it went down,
// so a Ctrl released in the same pump as a quick S still makes Ctrl+S.
static void latch_keydown_with_modifiers(const SDL_Keysym &key)
{
    static const struct { Uint16 mod; SDL_Scancode scancode; } modifiers[] = {
        {KMOD_LCTRL, SDL_SCANCODE_LCTRL}, {KMOD_RCTRL, SDL_SCANCODE_RCTRL},
        {KMOD_LSHIFT, SDL_SCANCODE_LSHIFT}, {KMOD_RSHIFT, SDL_SCANCODE_RSHIFT},
        {KMOD_LALT, SDL_SCANCODE_LALT}, {KMOD_RALT, SDL_SCANCODE_RALT},
    };
    keyboard_latch_keydown(key.scancode);
    for (const auto &m : modifiers)
        if (key.mod & m.mod) keyboard_latch_keydown(m.scancode);
}

static void window_procedure(SDL_Event &e)
{
    switch (e.type) {
    case SDL_MOUSEMOTION:
        mouse_message(e.motion.x, e.motion.y, raw_from_mask(e.motion.state));
        break;
    case SDL_MOUSEBUTTONDOWN:
        mouse_message(e.button.x, e.button.y, mouse_raw_buttons | raw_from_button(e.button.button));
        break;
    case SDL_MOUSEBUTTONUP:
        mouse_message(e.button.x, e.button.y, mouse_raw_buttons & ~raw_from_button(e.button.button));
        break;
    case SDL_MOUSEWHEEL:
        mouse_wheel(e.wheel.direction == SDL_MOUSEWHEEL_FLIPPED ? -e.wheel.y : e.wheel.y);
        break;
    case SDL_TEXTINPUT:
        for (const char *c = e.text.text; *c; ++c) typed_text_append(*c);
        break;
    case SDL_KEYDOWN:
        // auto-repeat changes nothing: the snapshot is the state, not the events
        if (!e.key.repeat) latch_keydown_with_modifiers(e.key.keysym);
        break;
    case SDL_MULTIGESTURE:
    case SDL_DOLLARGESTURE:
        if (gesture_handler) gesture_handler(e.type, (long long)(intptr_t)&e);
        break;
    case SDL_WINDOWEVENT:
        if (e.window.event == SDL_WINDOWEVENT_SIZE_CHANGED)
            resize_view(e.window.data1, e.window.data2);
        else if (e.window.event == SDL_WINDOWEVENT_CLOSE) {
            graphics_close();
            quit_requested = 1;
        }
        break;
    default:
        break;
    }
}

// ---------------------------------------------------------------------------------------
// [SECTION] The pump

int pump_events()
{
    mouse_pump_begin();
    SDL_Event e;
    while (SDL_PollEvent(&e)) {
        if (e.type == SDL_QUIT) {   // the queue has ended: later events stay where they are
            graphics_close();
            quit_requested = 1;
            return 1;
        }
        window_procedure(e);
    }
    SDL_Window *window = graphics_window();
    if (window && (SDL_GetWindowFlags(window) & SDL_WINDOW_MINIMIZED)) {
        minimised_by_alt_tab = 0;   // no snapshot: key_state keeps its last value
        return quit_requested;
    }
    // Asking again while the window is already kept on top costs a round trip to the X
    // server every frame and changes nothing.
    if (window && !minimised_by_alt_tab && !windowed &&
        !(SDL_GetWindowFlags(window) & SDL_WINDOW_ALWAYS_ON_TOP))
        SDL_SetWindowAlwaysOnTop(window, SDL_TRUE);

    int count = 0;
    const Uint8 *keys = SDL_GetKeyboardState(&count);
    take_keyboard_snapshot(keys, count, raw_from_mask(SDL_GetMouseState(nullptr, nullptr)));
    if (window && key_held(VK_MENU) && key_held(VK_TAB)) {
        minimised_by_alt_tab = 1;
        SDL_MinimizeWindow(window);
    } else if (window && minimised_by_alt_tab) {
        SDL_MinimizeWindow(window);
    }
    return quit_requested;
}

// SDL delivers gestures as events of its own, so there are no entry points to look up:
// the once-only load is kept so that a gesture handler can rely on it having been done.
void gesture_api_load()
{
    if (events.gesture_api_loaded) return;
    events.gesture_api_loaded = true;
}
