// Fentra without a window: a setup tracked over a stretch of ring in steps of a fixed length,
// the frame's physics in the frame's order with no key held and the optics panel's
// measurement on, then the bunch (or a turn-by-turn record) written as CSV.
#pragma once

#include "fentra/physics/setup_string.h"

#include <cstdio>
#include <string>

struct headless_options {
    std::string setup_text;   // as given, for the file's header
    fentra_setup setup;
    double run;               // m of ring to track
    double step;              // m a step (0.012: the default speed and pacing)
    double every;             // m between observations of a turn-by-turn record; 0 for none
    std::string export_file;
};

// The default step: 1 m/s for the 12 ms a paced frame takes.
constexpr double headless_default_step = 0.012;
// Largest file a run may write.
constexpr double headless_file_limit = 1e9;   // bytes

// Checks the options' figures: false with one line in *error for a distance or step that is
// not a positive finite number, a step longer than the run, more than 1e9 steps, or a
// turn-by-turn record that would pass the file limit.
bool check_headless_options(const headless_options &o, std::string *error);

// One step of the frame's physics at the current ring position, then the advance by step
// (clipped, as the frame's, to just past the element's end in a table lattice).
void headless_step(double step);

// The whole run from a fresh state (reset_simulation_state, and the element table holding the
// lattice with its superperiods). Returns
// the exit status: 0 written, 1 when the file cannot be written. Progress goes to err.
int headless_run(const headless_options &o, FILE *err);
