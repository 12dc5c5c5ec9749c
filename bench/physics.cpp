// Speed of the per-frame physics: one tracking step and one space-charge kick of a full beam
// of 10000 particles. Items are particle-steps, so the report shows particles per second.
#include "fentra/physics/beam.h"
#include "fentra/physics/collective.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/state.h"
#include "fentra/physics/tracking.h"

#include "Morvane/random.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

// Fresh state with the KORA table loaded and a full game beam with momentum spread.
static void prepare_kora_beam()
{
    load_builtin_lattice();
    allocate_particles();
    reset_simulation_state();
    random15_restart();
    sim.momentum_spread = 0.15;
    make_beam(beam_game);
}

struct saved_beam {
    double v[5][particle_capacity];
};

static void save_beam(saved_beam *s)
{
    double *a[5] = {beam_x, beam_y, beam_xp, beam_yp, beam_momentum};
    for (int k = 0; k < 5; k++) memcpy(s->v[k], a[k], sizeof s->v[k]);
}

static void restore_beam(const saved_beam *s)
{
    double *a[5] = {beam_x, beam_y, beam_xp, beam_yp, beam_momentum};
    for (int k = 0; k < 5; k++) memcpy(a[k], s->v[k], sizeof s->v[k]);
    sim.particle_count = particle_capacity;
}

// Every user magnet held, in the main bending magnet (element 44), spread on, scraper on
// beyond the beam: all terms of the step are computed. The beam is restored untimed before
// each step, so losses never shrink the work.
static void BM_track_step(benchmark::State &state)
{
    prepare_kora_beam();
    sim.kora_lattice = true;
    sim.ring_position = 16.3362818 - 2.0;   // inside BQF2:HBF1D
    enter_current_element();
    magnets.steering = 1.0 / 30;
    magnets.quad_strength += 2;
    magnets.sextupole = 30;
    magnets.octupole = 900;
    magnets.solenoid = 1;
    sim.scraper_on = true;
    sim.scraper_x = 0.07;
    sim.step_length = 0.012;
    if (!sim.bend_active) state.SkipWithError("not in a bending magnet");
    saved_beam *saved = (saved_beam *)malloc(sizeof(saved_beam));
    save_beam(saved);
    for (auto _ : state) {
        state.PauseTiming();
        restore_beam(saved);
        state.ResumeTiming();
        track_sums s = track_step();
        benchmark::DoNotOptimize(s);
    }
    state.SetItemsProcessed(state.iterations() * particle_capacity);
    state.counters["live_after_step"] = sim.particle_count;
    free(saved);
}
BENCHMARK(BM_track_step);

// One space-charge kick of the full beam (the kick only changes angles slightly, so the beam
// is left as it is between iterations).
static void BM_space_charge(benchmark::State &state)
{
    prepare_kora_beam();
    sim.space_charge = true;
    sim.step_length = 0.012;
    for (auto _ : state) {
        space_charge_kick();
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * sim.particle_count);
}
BENCHMARK(BM_space_charge);
