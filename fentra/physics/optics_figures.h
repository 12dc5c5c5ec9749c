// Fentra optics figures: the model of the lattice in use (kept until the lattice changes),
// the beam's moments and tune footprint observed each frame while the optics panel is shown,
// and the lattice's figures as text lines for the panel and the command line.
#pragma once

#include "fentra/physics/beam_moments.h"
#include "fentra/physics/footprint.h"
#include "fentra/physics/optics.h"

constexpr int beta_sample_count = 121;

struct optics_model {
    bool present;            // a lattice is in use
    optics_lattice lattice;
    lattice_optics optics;
    double beta[2][beta_sample_count];   // over one period
};

// The lattice in use: the KORA table (sim.superperiod_count periods) or the FODO cell, with
// the quadrupole of the keys held at the last observation added all along it. False without
// a lattice.
bool active_lattice(optics_lattice *l);

// The model of the lattice in use, solved again only when the lattice has changed.
const optics_model &current_optics_model();

// The beam and the lattice where the particles are now.
struct beam_now {
    beam_moments moments;
    double position;           // m into the period
    twiss_point lattice[2];    // the periodic Twiss functions there (zeros without a solution)
    double mismatch[2];
};
extern beam_now panel_beam;

// One frame's observation after the tracking: moments, the lattice there, the mismatch and
// the footprint's step.
void observe_beam_optics(const footprint_setup &setup);

// The lattice's figures, one a line with its unit ("Qx: 4.4036"); fewer lines when the
// period is unstable. Returns the number of lines written.
constexpr int figure_line_size = 64;
int lattice_figure_lines(const optics_lattice &l, const lattice_optics &o,
                         char lines[][figure_line_size], int capacity);
