// Fentra help screen (F1): a page with the key list that holds the program until F1 has been
// let go and Space is pressed, or the window closes.
#include "Morvane/bitmapfonts.h"
#include "Morvane/gfx_opengl.h"
#include "fentra/views/game.h"
#include "fentra/views/views.h"

#include <string_view>

using namespace std::string_view_literals;

const char help_key_text[] =
    "P,K,W,G: Create matched Parallel, K-V, Waterbag or Gaussian beam\n(also resets "
    "simulation)\n\n2,3: Left/Right Steering Dipoles\n\n4,5: Focussing/Defocussing "
    "Quadrupoles\n\n6,7: Sextupoles\n\n8,9: Octupoles\n\n0,O: Apply solenoid field\n\nD: "
    "Toggle momentum spread\n\nF: Toggle FODO cell with matched beam\n\nI: Toggle KORA lattice "
    "with matched beam\n\n+: Increase simulation speed\n-: Decrease simulation speed\n\nH: "
    "Toggle highlighting of one particle\n\nA: Toggle phase-space graphs\n\nL: Toggle luminous "
    "particles\n\nS: Toggle scraper\nleft/right: Move scraper\n\nC: Toggle space-charge "
    "(uniform beam approximation)\n\nQ/Escape: Quit";

// The keys Fentra adds, in a block of their own under the page's last line.
const char help_added_text[] = "Added keys:\nT: Toggle optics panel (tunes, beam figures, tune diagram)";

int (*help_pump)() = pump_events;

// In a page the pump's wait switches stacks, which the web build follows through direct
// calls only (see Morvane's build), so there the page calls the pump itself.
static int pump_for_help()
{
#ifdef __EMSCRIPTEN__
    return pump_events();
#else
    return help_pump();
#endif
}

void draw_help_page()
{
    printtext(100, 90, "Key list:"sv, 0xFFFFFF);
    printtext(100, 120, std::string_view(help_key_text), 0x00FFFF);
    printtext(100, 500, "Press space to continue..."sv, 0x0000FF);
    printtext(100, 500 + 2 * current_line_height, std::string_view(help_added_text), 0x00FF00);
}

void help_screen()
{
    // The frame drawn so far is shown; the page starts on a cleared one.
    end_frame(0);
    draw_help_page();
    end_frame(0);

    // F1 is still down from opening the page: wait for it to go, then for Space. The frame
    // goes on with the snapshot of the last pump, so this Space press also counts there.
    while (key_held(VK_F1))
        if (pump_for_help()) return;
    while (!key_held(VK_SPACE))
        if (pump_for_help()) return;
}
