// Three scenes played the same way on the desktop and in the browser, for comparing their
// pictures pixel by pixel: the first frame after start, the KORA ring map with the phase-space
// graphs, and the help page. Fentra runs with a counting clock and scripted keyboard snapshots,
// so both builds compute the same frames. On the desktop each scene is written as
// scene_NAME.bmp into the current directory; in the browser each scene stays on the canvas
// until the page's test driver has taken it (Module.scene_shown / Module.scene_taken).
#include "Morvane/gfx_opengl.h"
#include "Morvane/random.h"
#include "Morvane/report.h"
#include "fentra/app.h"
#include "fentra/physics/state.h"
#include "fentra/views/game.h"
#include "fentra/views/views.h"

#include <GL/gl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#ifdef __EMSCRIPTEN__
#include <emscripten.h>
#else
#include <dirent.h>
#endif
#include <unistd.h>

enum { SCENE_WIDTH = 1024, SCENE_HEIGHT = 768 };

static unsigned char held_keys[256];

static void scripted_keyboard(unsigned char snapshot[256]) { memcpy(snapshot, held_keys, 256); }

static double clock_reading;
static double counting_clock()
{
    clock_reading += 1.0 / 256;   // exact in binary, so sums of readings are exact too
    return clock_reading;
}

static int print_record(report_record *r)
{
    fprintf(stderr, "report %d %s:%d %s\n", r->type, r->source, r->line, r->message ? r->message : "");
    return 0;
}

// The keys held from now on reach the program through a pump; then one frame runs.
static void frame(std::initializer_list<int> keys = {})
{
    memset(held_keys, 0, sizeof held_keys);
    for (int k : keys) held_keys[k] = 0x80;
    pump_events();
    run_frame();
}

// A fresh start: the state as the program starts, the random sequence from its beginning.
static void restart()
{
    unsigned glow = sim.glow_texture;
    reset_simulation_state();
    sim.glow_texture = glow;
    random15_restart();
    memset(held_keys, 0, sizeof held_keys);
    pump_events();
    pump_events();   // nothing pressed, nothing held
}

#ifdef __EMSCRIPTEN__
// clang-format off
EM_JS(void, scene_shown, (const char *name), { Module.scene_taken = false; Module.scene_shown = UTF8ToString(name); });
EM_JS(int, scene_taken, (), { return Module.scene_taken ? 1 : 0; });
// clang-format on

// The canvas shows the frame last presented; the page's driver takes it.
static void show(const char *name)
{
    scene_shown(name);
    while (!scene_taken()) emscripten_sleep(10);
}

// The frame as drawn, presented on the canvas.
static void frame_scene(const char *name, std::initializer_list<int> keys)
{
    frame(keys);
    show(name);
}
#else
// The frame as Ctrl+S saves it (the BMP stays: no image converter on PATH), renamed.
static void frame_scene(const char *name, std::initializer_list<int> keys)
{
    std::string path = getenv("PATH") ? getenv("PATH") : "";
    setenv("PATH", "/nonexistent", 1);
    frame(keys);
    setenv("PATH", path.c_str(), 1);
    DIR *d = opendir(".");
    while (dirent *e = readdir(d)) {
        if (strncmp(e->d_name, "Fentra_", 7) != 0) continue;
        std::string target = std::string("scene_") + name + ".bmp";
        rename(e->d_name, target.c_str());
        break;
    }
    closedir(d);
}
#endif

// The help page on a cleared frame, as the help screen draws it.
static void help_scene()
{
    end_frame(0);
#ifdef __EMSCRIPTEN__
    draw_help_page();
    end_frame(0);
    show("help");
#else
    draw_help_page();
    save_screen("scene_help.bmp", 0);
    end_frame(0);
#endif
}

// On the desktop the scenes are written into the directory named by the first argument.
int main(int argc, char **argv)
{
    report_handler = print_record;   // never a message box
    windowed = 1;
    time_now = counting_clock;
    keyboard_snapshot_source = scripted_keyboard;
    allocate_particles();
    texture_unsized_formats = 1;
    if (!graphics_open(SCENE_WIDTH, SCENE_HEIGHT, "Fentra scenes", nullptr)) return 1;
    report_message_box = nullptr;
    start_simulation();   // makes the program's own directory current
    if (argc > 1 && chdir(argv[1]) != 0) return 1;

    restart();
    frame_scene("start", {VK_CONTROL, 'S'});

    restart();
    frame({'I'});
    frame();   // the K-V beam made for KORA restarts this frame
    frame({'A'});
    for (int k = 0; k < 3; k++) frame();
    frame_scene("kora", {VK_CONTROL, 'S'});

    help_scene();
    return 0;
}
