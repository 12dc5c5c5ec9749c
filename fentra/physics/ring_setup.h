// Fentra with a ring read from a lattice file in KORA's place: the element table, the
// superperiods, the ring's name on the screen and beams matched to its optics.
#pragma once

#include "fentra/physics/lattice_file.h"

// Installs the ring (after reset_simulation_state, which counts ten KORA superperiods) and
// matches the beams made while it is on to its periodic optics at the ring's start.
void use_ring_in_place_of_kora(const ring_file &ring);
