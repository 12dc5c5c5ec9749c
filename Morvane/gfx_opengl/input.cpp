// Input state that both platforms' event pumps fill by the same rules: the mouse position and
// buttons with the click suppression of a new window, the queue of typed characters, the
// request to quit and the program's gesture handler.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <cstring>

int mouse_x = 0, mouse_y = 0;
unsigned mouse_buttons = 0;
unsigned mouse_buttons_previous = 0;
unsigned mouse_raw_buttons = 0;
int mouse_click_suppressed = 1;   // a button held while the window opens is ignored
char typed_text[500];
int quit_requested = 0;
unsigned char minimised_by_alt_tab = 0;
void (*gesture_handler)(unsigned long long wparam, long long lparam) = nullptr;

// ---------------------------------------------------------------------------------------
// [SECTION] Typed text

int typed_text_append(char c)
{
    size_t length = strlen(typed_text);
    if (length >= 499) return 0;
    typed_text[length] = c;
    typed_text[length + 1] = 0;
    return 1;
}

char next_typed_char()
{
    char c = typed_text[0];
    if (c) memmove(typed_text, typed_text + 1, strlen(typed_text));
    return c;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Mouse

void mouse_pump_begin()
{
    mouse_buttons_previous = mouse_buttons;
    mouse_buttons &= ~0x0Cu;   // the wheel bits last one frame
}

void mouse_wheel(int turn)
{
    if (turn == 0) return;   // a sideways turn is not the wheel the program reads
    mouse_buttons |= turn > 0 ? 0x04u : 0x08u;
}

// Position as unsigned 16-bit client coordinates; the held buttons replace the button
// bits but leave this frame's wheel bits. Until every button has been up once, button
// changes are ignored, so a press that began before the window existed never counts.
void mouse_message(int x, int y, unsigned raw)
{
    mouse_x = (unsigned short)x;
    mouse_y = (unsigned short)y;
    mouse_raw_buttons = raw & 0x13;
    if (!mouse_raw_buttons) mouse_click_suppressed = 0;
    else if (mouse_click_suppressed) return;
    mouse_buttons = (mouse_buttons & 0x0C) | mouse_raw_buttons;
}

