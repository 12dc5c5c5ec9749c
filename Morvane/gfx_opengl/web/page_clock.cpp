// The clock of a page counts only the time the page is visible: a browser stops a hidden tab's
// display frames and slows its timers, and that time must not become one long step of the
// simulation when the tab comes back. While the page is hidden the pump waits.
#include "Morvane/clock.h"
#include "Morvane/gfx_opengl/web/platform_web.h"

#include <emscripten.h>

// clang-format off
// Module.hidden_ms: the time spent hidden so far; Module.hidden_since: when the page was
// hidden, or -1 while it is visible. Both the event and every reading of the clock bring them
// up to date, so that a program that reads the clock in a loop, where the event cannot run,
// sees it go on as soon as the page is shown.
EM_JS(void, page_track_visibility, (), {
    Module.hidden_ms = 0;
    Module.hidden_since = -1;
    Module.note_visibility = () => {
        const now = performance.now();
        if (document.hidden && Module.hidden_since < 0) Module.hidden_since = now;
        if (!document.hidden && Module.hidden_since >= 0) {
            Module.hidden_ms += now - Module.hidden_since;
            Module.hidden_since = -1;
        }
    };
    Module.note_visibility();
    document.addEventListener('visibilitychange', Module.note_visibility);
});
EM_JS(double, page_visible_ms, (), {
    Module.note_visibility();
    const now = performance.now();
    return now - Module.hidden_ms - (Module.hidden_since >= 0 ? now - Module.hidden_since : 0);
});
EM_JS(int, page_hidden_now, (), { return document.hidden ? 1 : 0; });
// clang-format on

static double visible_seconds() { return page_visible_ms() * 0.001; }

void page_clock_install()
{
    page_track_visibility();
    if (time_now == time_init) time_now = visible_seconds;   // a test's own clock stays
}

bool page_hidden() { return page_hidden_now() != 0; }

void wait_while_hidden()
{
    while (page_hidden()) emscripten_sleep(100);
}
