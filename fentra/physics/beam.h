// Fentra beam generation: the five beam kinds scaled to the active lattice, the momentum
// spread toggle, the FODO matched beam and the pick of the highlighted particle.
#pragma once

enum beam_kind {
    beam_none = 0,
    beam_parallel = 1,   // P: uniform disc, no angles
    beam_kv = 2,         // K: on the surface of the unit 4-sphere
    beam_waterbag = 3,   // W: uniform in the unit 4-ball
    beam_gaussian = 4,   // G: normal, sigma a quarter of the unit scale, not truncated
    beam_game = 5,       // Space, or no particles: waterbag with the game's scaling
};

// With a ring from a lattice file in KORA's place, the beams made while it is on are matched
// to its periodic beta and alpha (x, y) at the ring's start, each plane's emittance putting
// the beam's edge at 35 mm where beta is largest; an unstable ring gets round beams for a
// 3 m beta.
void match_beams_to_ring(bool stable, const double beta[2], const double alpha[2], const double beta_max[2]);
// KORA's own beams again (the start's choice).
void use_kora_beams();

// Two independent unit normal deviates by the Box-Muller form, from four random draws.
void gaussian_pair(double *a, double *b);

// Keys pressed this frame (down now, up in the previous snapshot).
struct beam_keys {
    bool p, k, w, g, space;
};

// The kind the keys and the state ask for, first match in the order P, K, KORA switched on
// since the beam was made (K-V), W, G, Space, no particles (game beam); beam_none if none.
int chosen_beam_kind(const beam_keys &pressed);

// Fills all 10000 particles with a beam of the kind, scaled to the active lattice, each with
// momentum 1 + spread x u; empties the spark list and sets the count and a peak of 1e-6. When
// the beam has travelled (ring_position != 0) it also records the lattice in
// beam_made_for_kora, sets ring_position to 1e-6 and returns 1: the frame must pump events
// (so the key is not seen pressed again) and restart. Returns 0 otherwise.
int make_beam(int kind);

// The kind of the last beam made by make_beam; beam_none after the FODO matched beam.
extern int last_beam_kind;

struct beam_outcome {
    int kind;            // beam_none when no beam was made
    bool restart_frame;  // see make_beam
};
// Makes the beam the keys and state ask for, if any.
beam_outcome create_beam_if_asked(const beam_keys &pressed);

// D: toggles the momentum spread between 0 and 0.15 and redraws every live particle's
// momentum, from the last particle down to the first.
void toggle_momentum_spread();

// F: 10000 particles on the surface of the unit 4-sphere scaled to the FODO cell's periodic
// optics at its start. Switches the KORA lattice off and ring_position to 0; momenta, peak
// and sparks are kept.
void make_fodo_matched_beam();

// H: switches the highlight off, or picks a random live particle, swaps it into slot 0
// (positions and angles only) and switches the highlight on.
void toggle_highlight();
