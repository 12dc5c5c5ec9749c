// The cost of a whole frame (tracking and all drawing, the swap included) at full screen on
// the GL of the machine, in three configurations, and the reference cost of 10,000 textured
// 32 x 32 glow quads drawn alone. Pacing is excluded: the clock given to the program runs
// 0.012 s ahead at every reading, so the frame's busy-wait ends at once.
// Run under Xvfb: xvfb-run -a -s "-screen 0 1920x1080x24" bench_frame
#include "Morvane/gfx_opengl.h"
#include "Morvane/report.h"
#include "fentra/app.h"
#include "fentra/physics/beam.h"
#include "fentra/views/beam_view.h"
#include "fentra/views/hud.h"
#include "fentra/views/optics_panel.h"
#include "Morvane/bitmapfonts.h"
#include "fentra/physics/tracking.h"
#include "fentra/views/views.h"

#include <GL/gl.h>
#include <SDL.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <vector>

static double clock_skip;
static double clock_running_ahead()
{
    clock_skip += 0.012;
    return SDL_GetPerformanceCounter() / (double)SDL_GetPerformanceFrequency() + clock_skip;
}

static unsigned char held[256];
static void held_keys(unsigned char snapshot[256]) { memcpy(snapshot, held, 256); }

static int quiet_report(report_record *r)
{
    fprintf(stderr, "report %d %s:%d %s\n", r->type, r->source, r->line,
            r->message ? r->message : "");
    return 0;
}

static bool open_once()
{
    static int opened = -1;
    if (opened >= 0) return opened == 1;
    report_handler = quiet_report;
    keyboard_snapshot_source = held_keys;
    time_now = clock_running_ahead;
    allocate_particles();
    texture_unsized_formats = 1;
    opened = graphics_open(0, 0, "Fentra frame bench", nullptr);
    report_message_box = nullptr;
    if (opened == 1) start_simulation();
    return opened == 1;
}

// One frame with these keys held (pressed if they were not held in the frame before).
static void frame_with(std::initializer_list<int> keys)
{
    memset(held, 0, sizeof held);
    for (int k : keys) held[k] = 0x80;
    pump_events();
    run_frame();
}

static void fresh_start()
{
    unsigned texture = sim.glow_texture;
    reset_simulation_state();
    sim.glow_texture = texture;
    frame_with({});
}

// KORA with its matched beam, the phase-space graphs, momentum spread and space charge.
// Space charge blows a KORA beam up within a few metres of ring; a slow speed keeps all
// 10,000 particles for the whole run, and the work of a frame does not depend on the speed.
static void kora_with_everything(bool luminous)
{
    fresh_start();
    frame_with({'I'});
    frame_with({});
    frame_with({'D', 'A', 'C'});
    if (luminous) frame_with({'L'});
    sim.simulation_speed = 0.001;
    frame_with({});
}

static void report_times(benchmark::State &state, std::vector<double> &ms)
{
    std::sort(ms.begin(), ms.end());
    state.counters["median_ms"] = ms[ms.size() / 2];
    state.counters["p95_ms"] = ms[ms.size() * 95 / 100];
    state.counters["particles"] = sim.particle_count;
}

static void run_frames(benchmark::State &state)
{
    std::vector<double> ms;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        run_frame();
        auto t1 = std::chrono::steady_clock::now();
        ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
    }
    report_times(state, ms);
}

// Frames from the start, after a frame with the key first held (none when 0), with the
// optics panel shown or not.
static void start_frames(benchmark::State &state, int first, bool panel)
{
    if (!open_once()) return state.SkipWithError("no window");
    fresh_start();
    if (first) frame_with({first});
    if (panel) frame_with({'T'});
    memset(held, 0, sizeof held);
    run_frames(state);
    sim.optics_panel = false;
}

static void BM_frame_default_beam(benchmark::State &state) { start_frames(state, 0, false); }

static void BM_frame_kora_graphs_spread_space_charge(benchmark::State &state)
{
    if (!open_once()) return state.SkipWithError("no window");
    kora_with_everything(false);
    run_frames(state);
}

static void BM_frame_kora_all_with_glow_sprites(benchmark::State &state)
{
    if (!open_once()) return state.SkipWithError("no window");
    kora_with_everything(true);
    run_frames(state);
}

// The fill cost alone: the same beam's 10,000 glow quads with the same blending, then the
// present and clear that every frame has.
static void BM_reference_10000_glow_quads(benchmark::State &state)
{
    if (!open_once()) return state.SkipWithError("no window");
    kora_with_everything(true);
    const int n = sim.particle_count;
    std::vector<float> xy(8 * n), st(8 * n);
    std::vector<unsigned char> rgb(12 * n);
    beam_frame f = {screen_width / 2, (int)(0.36 * screen_height),
                    screen_height / (0.15 * 1.5), 0.0, 0.15};
    fill_sprite_vertices(f, n, xy.data(), st.data(), rgb.data());
    std::vector<double> ms;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        glEnable(GL_TEXTURE_2D);
        glBindTexture(GL_TEXTURE_2D, sim.glow_texture);
        glEnable(GL_BLEND);
        glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_COLOR);
        glEnableClientState(GL_VERTEX_ARRAY);
        glEnableClientState(GL_TEXTURE_COORD_ARRAY);
        glEnableClientState(GL_COLOR_ARRAY);
        glVertexPointer(2, GL_FLOAT, 0, xy.data());
        glTexCoordPointer(2, GL_FLOAT, 0, st.data());
        glColorPointer(3, GL_UNSIGNED_BYTE, 0, rgb.data());
        glDrawArrays(GL_QUADS, 0, 4 * n);
        glDisableClientState(GL_COLOR_ARRAY);
        glDisableClientState(GL_TEXTURE_COORD_ARRAY);
        glDisableClientState(GL_VERTEX_ARRAY);
        glDisable(GL_BLEND);
        glDisable(GL_TEXTURE_2D);
        end_frame(0);
        auto t1 = std::chrono::steady_clock::now();
        ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
    }
    report_times(state, ms);
}

// Parts of the default frame, each followed by the present and clear, for the breakdown.
static void run_part(benchmark::State &state, void (*part)())
{
    if (!open_once()) return state.SkipWithError("no window");
    fresh_start();
    std::vector<double> ms;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        part();
        end_frame(0);
        auto t1 = std::chrono::steady_clock::now();
        ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
    }
    report_times(state, ms);
}

static view_geometry default_view()
{
    return compute_view_geometry(screen_width, screen_height, false);
}

static void BM_part_present_and_clear(benchmark::State &state)
{
    run_part(state, [] {});
}

static void BM_part_beam_pipe(benchmark::State &state)
{
    run_part(state, [] {
        view_geometry v = default_view();
        glDisable(GL_DEPTH_TEST);   // as the frame draws the beam view
        draw_beam_pipe(v.centre_x, v.centre_y, v.pixels_per_metre);
        glEnable(GL_DEPTH_TEST);
    });
}

static void BM_part_streaks_and_dots(benchmark::State &state)
{
    run_part(state, [] {
        view_geometry v = default_view();
        beam_frame f = {v.centre_x, v.centre_y, v.pixels_per_metre, 0.016, 0.0};
        glDisable(GL_DEPTH_TEST);
        draw_beam_particles(f, sim.particle_count, 0, sim.glow_texture);
        glEnable(GL_DEPTH_TEST);
    });
}

static void BM_part_text_overlay(benchmark::State &state)
{
    run_part(state, [] { draw_text_overlay(track_sums{0.5, 0.5}); });
}

static void BM_part_tracking(benchmark::State &state)
{
    run_part(state, [] { track_step(); });
}

static void BM_part_pump_events(benchmark::State &state)
{
    run_part(state, [] { pump_events(); });
}

static void BM_part_ring_view(benchmark::State &state)
{
    run_part(state, [] {
        sim.ring_position += 0.05;
        draw_ring_view(0x800080, 0x800000, 0x008080, 0xFFFFFF, sim.ring_position);
    });
}

static void BM_part_phase_graphs_with_spread(benchmark::State &state)
{
    run_part(state, [] {
        view_geometry v = compute_view_geometry(screen_width, screen_height, true);
        draw_phase_graphs(beam_x, beam_y, beam_xp, beam_yp, beam_momentum, sim.particle_count,
                          false, v.pixels_per_metre, 2 * v.pixels_per_metre, 0.15);
    });
}

static void BM_part_streaks_and_dots_with_spread(benchmark::State &state)
{
    run_part(state, [] {
        view_geometry v = compute_view_geometry(screen_width, screen_height, true);
        beam_frame f = {v.centre_x, v.centre_y, v.pixels_per_metre, 0.016, 0.15};
        glDisable(GL_DEPTH_TEST);
        draw_beam_particles(f, sim.particle_count, 0, sim.glow_texture);
        glEnable(GL_DEPTH_TEST);
    });
}

// The optics panel's drawing alone (its figures observed once, in KORA with a footprint of
// 10,000 particles), at the place the frame gives it.
static void BM_part_optics_panel(benchmark::State &state)
{
    if (!open_once()) return state.SkipWithError("no window");
    kora_with_everything(false);
    frame_with({'T'});
    for (int i = 0; i < 20; i++) frame_with({});
    selectfont("ncgismall");
    const int h = current_line_height + 2;
    selectdefaultfont();
    const optics_panel_layout layout = layout_optics_panel(screen_width, screen_height, sim.show_graphs, h);
    std::vector<double> ms;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        draw_optics_panel(layout);
        end_frame(0);
        auto t1 = std::chrono::steady_clock::now();
        ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
    }
    report_times(state, ms);
    sim.optics_panel = false;
}

// The KORA frame with everything, and the optics panel shown beside it.
static void BM_frame_kora_with_optics_panel(benchmark::State &state)
{
    if (!open_once()) return state.SkipWithError("no window");
    kora_with_everything(false);
    frame_with({'T'});
    memset(held, 0, sizeof held);
    run_frames(state);
    sim.optics_panel = false;
}

// The default start (no lattice: the panel says so and draws no plot), and the FODO cell's
// matched beam, without and with the panel (its beta plot and footprint).
static void BM_frame_default_with_optics_panel(benchmark::State &state) { start_frames(state, 0, true); }
static void BM_frame_fodo_cell(benchmark::State &state) { start_frames(state, 'F', false); }
static void BM_frame_fodo_with_optics_panel(benchmark::State &state) { start_frames(state, 'F', true); }

BENCHMARK(BM_part_ring_view)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_part_phase_graphs_with_spread)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_part_streaks_and_dots_with_spread)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_part_pump_events)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_part_present_and_clear)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_part_beam_pipe)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_part_streaks_and_dots)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_part_text_overlay)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_part_optics_panel)->Iterations(200)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_part_tracking)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_frame_default_beam)->Iterations(300)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_frame_kora_graphs_spread_space_charge)->Iterations(300)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_frame_kora_all_with_glow_sprites)->Iterations(200)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_frame_kora_with_optics_panel)->Iterations(300)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_frame_default_with_optics_panel)->Iterations(300)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_frame_fodo_cell)->Iterations(300)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_frame_fodo_with_optics_panel)->Iterations(300)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_reference_10000_glow_quads)->Iterations(200)->Unit(benchmark::kMillisecond);
