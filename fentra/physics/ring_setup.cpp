// Fentra with a ring read from a lattice file in KORA's place: the table, the superperiod
// count and length, the name the heads-up lines show, and the matched beams.
#include "fentra/physics/ring_setup.h"

#include "fentra/physics/beam.h"
#include "fentra/physics/optics.h"
#include "fentra/physics/state.h"

#include <cstdio>

void use_ring_in_place_of_kora(const ring_file &ring)
{
    int periods = install_ring(ring);
    sim.superperiod_length = lattice_length();
    sim.superperiod_count = periods;
    snprintf(lattice_ring_name, sizeof lattice_ring_name, "Ring %s", ring.name.c_str());
    static optics_lattice l;
    lattice_from_table(&l, periods);
    lattice_optics o = solve_lattice(l);
    const plane_optics &x = o.plane[0], &y = o.plane[1];
    const double beta[2] = {x.beta, y.beta}, alpha[2] = {x.alpha, y.alpha},
                 beta_max[2] = {x.beta_max, y.beta_max};
    match_beams_to_ring(o.periodic, beta, alpha, beta_max);
}
