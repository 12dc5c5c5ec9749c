// Speed of the run without a window: whole steps of the frame's physics (lattice lookup,
// tracking, the optics panel's moments and tune footprint) for a full beam of 10000 particles
// in the FODO cell and in KORA with momentum spread. Items are steps, so the report shows
// steps a second (the aim: at least 1000 on one core).
#include "fentra/physics/headless_run.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/setup_string.h"
#include "fentra/physics/state.h"

#include "Morvane/random.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

static void prepare(const char *setup_text)
{
    load_builtin_lattice();
    allocate_particles();
    reset_simulation_state();
    random15_restart();
    fentra_setup s;
    std::string error;
    if (!parse_setup(setup_text, &s, &error)) abort();
    apply_setup(s);
}

// A new matched beam every 2000 steps keeps the work that of a full beam (KORA's spread loses
// particles slowly).
static void run_steps(benchmark::State &state, const char *setup_text)
{
    prepare(setup_text);
    int steps = 0;
    for (auto _ : state) {
        if (++steps % 2000 == 0) {
            state.PauseTiming();
            prepare(setup_text);
            state.ResumeTiming();
        }
        headless_step(headless_default_step);
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["live"] = sim.particle_count;
}

static void BM_headless_step_fodo(benchmark::State &state) { run_steps(state, "lattice=fodo"); }
static void BM_headless_step_kora_spread(benchmark::State &state) { run_steps(state, "lattice=kora&spread=1"); }
BENCHMARK(BM_headless_step_fodo)->MinTime(2);
BENCHMARK(BM_headless_step_kora_spread)->MinTime(2);
