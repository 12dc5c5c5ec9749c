// The event pump in a web page: the browser's keyboard, mouse, wheel, touch, focus and size
// events are queued by handlers and drained by pump_events, which first yields to the browser
// (so it runs the handlers and shows the last frame), then takes the keyboard snapshot by the
// same rules as on the desktop: held keys plus the key-downs latched since the last snapshot.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"
#include "Morvane/gfx_opengl/web/gl1_webgl.h"
#include "Morvane/gfx_opengl/web/platform_web.h"

#include <SDL_scancode.h>
#include <emscripten.h>
#include <emscripten/html5.h>

#include <cstring>

enum event_kind { EVENT_KEY_DOWN, EVENT_KEY_UP, EVENT_MOUSE, EVENT_WHEEL, EVENT_RELEASE_ALL, EVENT_SIZE };

// One browser event as the pump reads it.
struct page_event {
    event_kind kind;
    int scancode;          // keys: SDL scancode; wheel: +1 up, -1 down
    int modifiers;         // key-downs: bit 0 Ctrl, 1 Shift, 2 Alt
    int x, y;              // mouse: position on the canvas
    unsigned raw;          // mouse: the held buttons as the program keeps them
    char typed;            // key-downs: the character typed, or 0
};

enum { EVENT_QUEUE_SIZE = 1024 };

static struct {
    page_event queue[EVENT_QUEUE_SIZE];
    int count;
    unsigned char down[SDL_NUM_SCANCODES];   // keys held, by scancode
    bool handlers_installed;
    bool waited;                             // the browser had the page since the last pump
    bool skipped_wait;                       // the last pump did not wait, in mid-frame
} events;

static void enqueue(const page_event &e)
{
    if (events.count < EVENT_QUEUE_SIZE) events.queue[events.count++] = e;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Keys: the browser's key codes (positions on a US keyboard) as SDL scancodes

static const struct { const char *code; int scancode; } key_codes[] = {
    {"Enter", SDL_SCANCODE_RETURN}, {"Escape", SDL_SCANCODE_ESCAPE},
    {"Backspace", SDL_SCANCODE_BACKSPACE}, {"Tab", SDL_SCANCODE_TAB},
    {"Space", SDL_SCANCODE_SPACE}, {"Minus", SDL_SCANCODE_MINUS},
    {"Equal", SDL_SCANCODE_EQUALS}, {"BracketLeft", SDL_SCANCODE_LEFTBRACKET},
    {"BracketRight", SDL_SCANCODE_RIGHTBRACKET}, {"Backslash", SDL_SCANCODE_BACKSLASH},
    {"Semicolon", SDL_SCANCODE_SEMICOLON}, {"Quote", SDL_SCANCODE_APOSTROPHE},
    {"Backquote", SDL_SCANCODE_GRAVE}, {"Comma", SDL_SCANCODE_COMMA},
    {"Period", SDL_SCANCODE_PERIOD}, {"Slash", SDL_SCANCODE_SLASH},
    {"IntlBackslash", SDL_SCANCODE_NONUSBACKSLASH}, {"CapsLock", SDL_SCANCODE_CAPSLOCK},
    {"PrintScreen", SDL_SCANCODE_PRINTSCREEN}, {"ScrollLock", SDL_SCANCODE_SCROLLLOCK},
    {"Pause", SDL_SCANCODE_PAUSE}, {"Insert", SDL_SCANCODE_INSERT},
    {"Home", SDL_SCANCODE_HOME}, {"PageUp", SDL_SCANCODE_PAGEUP},
    {"Delete", SDL_SCANCODE_DELETE}, {"End", SDL_SCANCODE_END},
    {"PageDown", SDL_SCANCODE_PAGEDOWN}, {"ArrowRight", SDL_SCANCODE_RIGHT},
    {"ArrowLeft", SDL_SCANCODE_LEFT}, {"ArrowDown", SDL_SCANCODE_DOWN},
    {"ArrowUp", SDL_SCANCODE_UP}, {"NumLock", SDL_SCANCODE_NUMLOCKCLEAR},
    {"NumpadDivide", SDL_SCANCODE_KP_DIVIDE}, {"NumpadMultiply", SDL_SCANCODE_KP_MULTIPLY},
    {"NumpadSubtract", SDL_SCANCODE_KP_MINUS}, {"NumpadAdd", SDL_SCANCODE_KP_PLUS},
    {"NumpadEnter", SDL_SCANCODE_KP_ENTER}, {"NumpadDecimal", SDL_SCANCODE_KP_PERIOD},
    {"Numpad0", SDL_SCANCODE_KP_0}, {"ContextMenu", SDL_SCANCODE_APPLICATION},
    {"ControlLeft", SDL_SCANCODE_LCTRL}, {"ShiftLeft", SDL_SCANCODE_LSHIFT},
    {"AltLeft", SDL_SCANCODE_LALT}, {"MetaLeft", SDL_SCANCODE_LGUI},
    {"ControlRight", SDL_SCANCODE_RCTRL}, {"ShiftRight", SDL_SCANCODE_RSHIFT},
    {"AltRight", SDL_SCANCODE_RALT}, {"MetaRight", SDL_SCANCODE_RGUI},
};

// "KeyA".."KeyZ", "Digit0".."Digit9", "F1".."F24", "Numpad1".."Numpad9" and the table.
static int scancode_of_code(const char *code)
{
    if (!strncmp(code, "Key", 3) && code[3] >= 'A' && code[3] <= 'Z' && !code[4])
        return SDL_SCANCODE_A + (code[3] - 'A');
    if (!strncmp(code, "Digit", 5) && code[5] >= '0' && code[5] <= '9' && !code[6])
        return code[5] == '0' ? SDL_SCANCODE_0 : SDL_SCANCODE_1 + (code[5] - '1');
    if (!strncmp(code, "Numpad", 6) && code[6] >= '1' && code[6] <= '9' && !code[7])
        return SDL_SCANCODE_KP_1 + (code[6] - '1');
    if (code[0] == 'F' && code[1] >= '1' && code[1] <= '9') {
        int n = code[1] - '0';
        if (code[2] >= '0' && code[2] <= '9' && !code[3]) n = n * 10 + (code[2] - '0');
        else if (code[2]) n = 0;
        if (n >= 1 && n <= 12) return SDL_SCANCODE_F1 + (n - 1);
        if (n >= 13 && n <= 24) return SDL_SCANCODE_F13 + (n - 13);
    }
    for (const auto &k : key_codes)
        if (!strcmp(code, k.code)) return k.scancode;
    return SDL_SCANCODE_UNKNOWN;
}

// The browser keeps reload, full screen, its developer tools and every Meta (Command)
// combination; every other key, Ctrl+S and F1 among them, belongs to the program.
static bool browser_keeps(const EmscriptenKeyboardEvent *e)
{
    return !strcmp(e->code, "F5") || !strcmp(e->code, "F11") || !strcmp(e->code, "F12") ||
           (e->ctrlKey && !strcmp(e->code, "KeyR")) || e->metaKey;
}

static EM_BOOL on_key(int type, const EmscriptenKeyboardEvent *e, void *)
{
    // A key pressed with Meta is the browser's alone (Meta+Q is not the program's Q); a key
    // let go is always seen, so nothing stays down.
    if (type == EMSCRIPTEN_EVENT_KEYDOWN && e->metaKey) return 0;
    page_event p = {};
    p.kind = type == EMSCRIPTEN_EVENT_KEYDOWN ? EVENT_KEY_DOWN : EVENT_KEY_UP;
    p.scancode = scancode_of_code(e->code);
    p.modifiers = (e->ctrlKey ? 1 : 0) | (e->shiftKey ? 2 : 0) | (e->altKey ? 4 : 0);
    // a printable character without Ctrl or Alt is typed text
    if (!e->ctrlKey && !e->altKey && (unsigned char)e->key[0] >= 32 && (unsigned char)e->key[0] < 127 && !e->key[1])
        p.typed = e->key[0];
    // auto-repeat changes nothing: the snapshot is the state, not the events
    if (!(p.kind == EVENT_KEY_DOWN && e->repeat)) enqueue(p);
    return !browser_keeps(e);
}

static EM_BOOL on_blur(int, const EmscriptenFocusEvent *, void *)
{
    page_event p = {};
    p.kind = EVENT_RELEASE_ALL;   // keys and buttons let go while the page had no focus never report it
    enqueue(p);
    return 0;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Mouse, wheel and touch

// Button bits as the program keeps them: left 0x01, right 0x02, middle 0x10.
static unsigned raw_from_buttons(unsigned short buttons)
{
    return ((buttons & 1) ? 0x01u : 0u) | ((buttons & 2) ? 0x02u : 0u) | ((buttons & 4) ? 0x10u : 0u);
}

// A move or button change at a place on the canvas, the raw buttons as the program keeps them.
static void enqueue_mouse(long x, long y, unsigned raw)
{
    page_event p = {};
    p.kind = EVENT_MOUSE;
    p.x = (int)x;
    p.y = (int)y;
    p.raw = raw;
    enqueue(p);
}

static EM_BOOL on_mouse(int, const EmscriptenMouseEvent *e, void *)
{
    enqueue_mouse(e->targetX, e->targetY, raw_from_buttons(e->buttons));
    return 1;
}

// A button let go anywhere, over the canvas or outside it (the browser reports it to the page
// when the press began on the canvas), at its place on the canvas.
static EM_BOOL on_mouse_up(int, const EmscriptenMouseEvent *e, void *)
{
    enqueue_mouse(e->canvasX, e->canvasY, raw_from_buttons(e->buttons));
    return 0;
}

static EM_BOOL on_wheel(int, const EmscriptenWheelEvent *e, void *)
{
    page_event p = {};
    p.kind = EVENT_WHEEL;
    p.scancode = e->deltaY < 0 ? 1 : e->deltaY > 0 ? -1 : 0;
    enqueue(p);
    return 1;
}

// One finger is the left button at its position; the browser's own gestures (scrolling,
// zooming) are kept from the canvas.
static EM_BOOL on_touch(int type, const EmscriptenTouchEvent *e, void *)
{
    if (e->numTouches <= 0) return 1;
    const EmscriptenTouchPoint &t = e->touches[0];
    bool lifted = type == EMSCRIPTEN_EVENT_TOUCHEND || type == EMSCRIPTEN_EVENT_TOUCHCANCEL;
    enqueue_mouse(t.targetX, t.targetY, lifted && e->numTouches <= 1 ? 0u : 0x01u);
    return 1;
}

static EM_BOOL on_resize(int, const EmscriptenUiEvent *, void *)
{
    page_event p = {};
    p.kind = EVENT_SIZE;
    enqueue(p);
    return 0;
}

void install_event_handlers()
{
    if (events.handlers_installed) return;
    events.handlers_installed = true;
    const char *page = EMSCRIPTEN_EVENT_TARGET_WINDOW;
    emscripten_set_keydown_callback(page, nullptr, 1, on_key);
    emscripten_set_keyup_callback(page, nullptr, 1, on_key);
    emscripten_set_blur_callback(page, nullptr, 1, on_blur);
    emscripten_set_mousemove_callback("#canvas", nullptr, 1, on_mouse);
    emscripten_set_mousedown_callback("#canvas", nullptr, 1, on_mouse);
    emscripten_set_mouseup_callback(page, nullptr, 1, on_mouse_up);
    emscripten_set_wheel_callback("#canvas", nullptr, 1, on_wheel);
    emscripten_set_touchstart_callback("#canvas", nullptr, 1, on_touch);
    emscripten_set_touchmove_callback("#canvas", nullptr, 1, on_touch);
    emscripten_set_touchend_callback("#canvas", nullptr, 1, on_touch);
    emscripten_set_touchcancel_callback("#canvas", nullptr, 1, on_touch);
    emscripten_set_resize_callback(page, nullptr, 1, on_resize);
}

// ---------------------------------------------------------------------------------------
// [SECTION] The window procedure and the pump

// A quick tap is latched together with the Ctrl, Shift and Alt keys held when it went down,
// so a Ctrl released in the same pump as a quick S still makes Ctrl+S.
static void window_procedure(const page_event &e)
{
    static const int modifier_scancodes[3] = {SDL_SCANCODE_LCTRL, SDL_SCANCODE_LSHIFT, SDL_SCANCODE_LALT};
    switch (e.kind) {
    case EVENT_KEY_DOWN:
        if (e.scancode > 0 && e.scancode < SDL_NUM_SCANCODES) {
            events.down[e.scancode] = 1;
            keyboard_latch_keydown(e.scancode);
        }
        for (int i = 0; i < 3; i++)
            if (e.modifiers & (1 << i)) keyboard_latch_keydown(modifier_scancodes[i]);
        if (e.typed) typed_text_append(e.typed);
        break;
    case EVENT_KEY_UP:
        if (e.scancode > 0 && e.scancode < SDL_NUM_SCANCODES) events.down[e.scancode] = 0;
        break;
    case EVENT_RELEASE_ALL:
        memset(events.down, 0, sizeof events.down);
        mouse_message(mouse_x, mouse_y, 0);
        break;
    case EVENT_MOUSE:
        mouse_message(e.x, e.y, e.raw);
        break;
    case EVENT_WHEEL:
        mouse_wheel(e.scancode);
        break;
    case EVENT_SIZE:
        follow_browser_window();
        break;
    }
}

int pump_events()
{
    mouse_pump_begin();
    // The browser runs the handlers and shows the canvas only while the program waits: once
    // between two pumps is enough (a frame's pacing may have waited already). A pump in the
    // middle of a frame (a new beam restarts it) does not wait, as the page would show the
    // half-made frame; a second one in a row does, so that a loop of pumps cannot hold the page.
    if (!events.waited) {
        if (gl1_drawing_unshown() && !events.skipped_wait) {
            events.skipped_wait = true;
        } else {
            emscripten_sleep(0);
            events.skipped_wait = false;
        }
    }
    // A hidden page pauses the program here; its clock stood still meanwhile.
    wait_while_hidden();
    events.waited = false;
    for (int i = 0; i < events.count; i++) window_procedure(events.queue[i]);
    events.count = 0;

    take_keyboard_snapshot(events.down, SDL_NUM_SCANCODES, mouse_raw_buttons);
    return quit_requested;
}

void wait_in_browser(unsigned ms)
{
    emscripten_sleep(ms);
    events.waited = true;
}

void browser_had_page() { events.waited = true; }

// Touches arrive as mouse events: there are no gesture entry points to look up.
void gesture_api_load() {}
