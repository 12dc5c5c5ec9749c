// Fentra simulation state: particle arrays, the state record and its initial values,
// magnet settings from held keys, and the beam view geometry.
#include "fentra/physics/state.h"

#include "fentra/physics/lattice.h"

#include <cstdlib>

double *beam_x, *beam_y, *beam_xp, *beam_yp, *beam_momentum;
int *beam_tag;
simulation_state sim;
magnet_settings magnets;

void allocate_particles()
{
    if (beam_x) return;
    beam_x = (double *)calloc(particle_capacity, sizeof(double));
    beam_y = (double *)calloc(particle_capacity, sizeof(double));
    beam_xp = (double *)calloc(particle_capacity, sizeof(double));
    beam_yp = (double *)calloc(particle_capacity, sizeof(double));
    beam_momentum = (double *)calloc(particle_capacity, sizeof(double));
    beam_tag = (int *)calloc(particle_capacity, sizeof(int));
}

void reset_simulation_state()
{
    if (sim.spark_list.data) growarray_free(&sim.spark_list);
    sim = simulation_state{};
    sim.particle_count = 0;
    sim.momentum_spread = 0;
    sim.simulation_speed = 1.0;
    sim.ring_position = 0;
    sim.step_length = 0.01;
    sim.superperiod_length = lattice_length();
    sim.superperiod_count = 10;
    sim.kora_lattice = false;
    sim.beam_made_for_kora = false;
    sim.fodo_cell = false;
    sim.space_charge = false;
    sim.scraper_on = false;
    sim.scraper_x = 0.03;
    sim.highlight = false;
    sim.show_graphs = false;
    sim.luminous = 0;
    sim.peak_luminosity = 1e-6;
    sim.component_index = -1;
    sim.distance_to_element_end = 1e20;
    sim.bend_active = false;
    growarray_init(&sim.spark_list, sizeof(spark), 1);
}

magnet_settings magnets_from_keys(const magnet_keys &held)
{
    magnet_settings m;
    m.steering = (held.two - held.three) * (1.0 / 30);
    m.quad_strength = (held.four - held.five) * 2 + (held.left - held.right) * 2;
    m.sextupole = (held.six - held.seven) * 30;
    m.octupole = (held.eight - held.nine) * 900;
    m.solenoid = held.letter_o - held.zero;
    return m;
}

view_geometry compute_view_geometry(int W, int H, bool show_graphs)
{
    view_geometry v;
    v.zoom = show_graphs ? 1.5 : 1;
    v.pixels_per_metre = W * (1 / (v.zoom * (0.15 * W / H)));
    v.centre_x = W / 2;
    v.centre_y = show_graphs ? (int)(0.36 * H) : H / 2;
    return v;
}
