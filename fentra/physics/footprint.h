// Fentra tune footprint: every particle's own tunes, measured from its phase advance in the
// lattice's normalised coordinates (about the beam centroid) over the stretch of ring it has
// travelled, against the model's phase advance over the same stretch.
#pragma once

#include "fentra/physics/beam_moments.h"
#include "fentra/physics/optics.h"
#include "fentra/physics/state.h"

// What the footprint depends on besides the particles: a change starts the measurement anew.
struct footprint_setup {
    bool kora, fodo, space_charge;
    double momentum_spread;
    double steering, keyboard_quadrupole, sextupole, octupole, solenoid;
    int element_count, periods;
    double period_length;
};

bool same_setup(const footprint_setup &a, const footprint_setup &b);

// The setup now, with the magnets the keys give (before the lattice changes the quadrupole).
footprint_setup footprint_setup_now(const magnet_settings &keys);

// A particle's tune is shown once the model's phase over its measured stretch reaches this
// (about 0.6 of a KORA superperiod in x, a third of a FODO cell).
constexpr double footprint_min_phase = 1.0;   // rad

struct tune_footprint {
    bool running;
    footprint_setup setup;
    double last_position;
    int last_count;
    double last_ring_phase[2];   // the model's phase at the last observation
    // Per particle tag (beam_tag), per plane: the normalised coordinates at the last
    // observation, the particle's summed phase advance and the model's over the same steps.
    double X[2][particle_capacity], XP[2][particle_capacity];
    double phase[2][particle_capacity], model[2][particle_capacity];
    // The measured tunes of the live particles that have them, for drawing.
    int shown;
    float qx[particle_capacity], qy[particle_capacity];
    double mean_q[2];
    double model_tune[2];
};
extern tune_footprint footprint;

// Starts the measurement: the live particles get tags 0 .. n - 1 and their coordinates now.
void footprint_reset(const optics_lattice &l, const lattice_optics &o, double ring_position,
                     const beam_moments &m, const footprint_setup &setup);

// One observation after a tracking step, at ring position s: adds each particle's phase step
// (unwrapped about the model's step) to its sum. A new beam (the position went back or the
// count grew) or a new setup resets instead. Particles too near the centroid in a plane skip
// the step there. Then collects the shown tunes.
void footprint_update(const optics_lattice &l, const lattice_optics &o, double ring_position,
                      const beam_moments &m, const footprint_setup &setup);

// The tune of one plane of the particle tagged t: the model's tune times the particle's
// phase over the model's; NaN while the model's phase is below footprint_min_phase.
double particle_tune(int plane, int tag);
