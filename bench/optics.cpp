// The optics panel's work a frame with 10,000 particles, footprint included: the model at
// the ring position, the beam's moments, the mismatch and every particle's phase step, in
// KORA's matched beam and in the FODO cell (target: at most 0.5 ms on one core).
#include "fentra/physics/beam.h"
#include "fentra/physics/optics_figures.h"
#include "fentra/physics/tracking.h"

#include <benchmark/benchmark.h>


static void start(bool kora)
{
    allocate_particles();
    if (kora) load_builtin_lattice();
    reset_simulation_state();
    for (int i = 0; i < particle_capacity; i++) beam_momentum[i] = 1;
    sim.kora_lattice = kora;
    sim.fodo_cell = !kora;
    if (kora) make_beam(beam_kv);
    else make_fodo_matched_beam();
    footprint.running = false;
}

static void observe_frames(benchmark::State &state, bool kora)
{
    start(kora);
    const footprint_setup setup = footprint_setup_now(magnet_settings{});
    observe_beam_optics(setup);   // the model is solved once, the footprint starts
    for (auto _ : state) {
        sim.ring_position += 0.012;   // one frame at the default speed
        observe_beam_optics(setup);
        benchmark::DoNotOptimize(footprint.shown);
    }
    state.counters["particles"] = sim.particle_count;
}

static void BM_optics_panel_work_kora(benchmark::State &state) { observe_frames(state, true); }
static void BM_optics_panel_work_fodo(benchmark::State &state) { observe_frames(state, false); }

BENCHMARK(BM_optics_panel_work_kora)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_optics_panel_work_fodo)->Unit(benchmark::kMillisecond);
