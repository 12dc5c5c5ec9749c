// Simulation state: the particle arrays, every initial value and the beam view geometry.
// (Magnet settings from held keys are checked through the frame's key reading, in
// app_controls_test.)
#include "fentra/physics/lattice.h"
#include "fentra/physics/state.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

TEST(state, particle_arrays_are_allocated_once)
{
    allocate_particles();
    double *first[5] = {beam_x, beam_y, beam_xp, beam_yp, beam_momentum};
    for (int i = 0; i < 5; i++) {
        ASSERT_NE(first[i], nullptr);
        for (int j = i + 1; j < 5; j++) EXPECT_NE(first[i], first[j]);
    }
    beam_x[particle_capacity - 1] = 1.25;   // the whole capacity is usable
    allocate_particles();
    double *second[5] = {beam_x, beam_y, beam_xp, beam_yp, beam_momentum};
    for (int i = 0; i < 5; i++) EXPECT_EQ(first[i], second[i]) << "array " << i << " reallocated";
    EXPECT_EQ(beam_x[particle_capacity - 1], 1.25);
}

TEST(state, reset_sets_every_initial_value)
{
    // A table of three elements gives the superperiod length.
    element_count = 3;
    element_length[0] = 1.5, element_length[1] = 0.25, element_length[2] = 2.0;
    // Disturb everything first (the spark list, once made, holding sparks).
    reset_simulation_state();
    sim.particle_count = 17, sim.superperiod_count = 2, sim.luminous = 1, sim.component_index = 7;
    sim.touch_mode = 2, sim.glow_texture = 9;
    sim.momentum_spread = 0.15, sim.simulation_speed = 8, sim.ring_position = 99, sim.step_length = 3;
    sim.scraper_x = 0.01, sim.peak_luminosity = 5e33, sim.distance_to_element_end = 0.5;
    sim.kora_lattice = sim.beam_made_for_kora = sim.fodo_cell = true;
    sim.space_charge = sim.scraper_on = sim.highlight = sim.show_graphs = sim.bend_active = true;
    spark s = {1, 2, 3, 4, 2};
    for (int k = 0; k < 5; k++) growarray_append(&sim.spark_list, &s);
    reset_simulation_state();

    EXPECT_EQ(std::make_tuple(sim.particle_count, sim.superperiod_count, sim.luminous, sim.component_index,
                              sim.touch_mode, sim.glow_texture),
              std::make_tuple(0, 10, 0, -1, 0, 0u));
    EXPECT_EQ(std::make_tuple(sim.momentum_spread, sim.simulation_speed, sim.ring_position, sim.step_length,
                              sim.superperiod_length, sim.scraper_x, sim.peak_luminosity,
                              sim.distance_to_element_end),
              std::make_tuple(0.0, 1.0, 0.0, 0.01, 3.75, 0.03, 1e-6, 1e20));
    EXPECT_EQ(std::make_tuple(sim.kora_lattice, sim.beam_made_for_kora, sim.fodo_cell, sim.space_charge,
                              sim.scraper_on, sim.highlight, sim.show_graphs, sim.bend_active),
              std::make_tuple(false, false, false, false, false, false, false, false));
    // An empty spark list of capacity 1, started afresh.
    const growarray &l = sim.spark_list;
    EXPECT_EQ(std::make_tuple(l.count, l.capacity, l.min_capacity, l.element_size, l.growth),
              std::make_tuple(0u, 1u, 1u, 40u, 60.0f));
    EXPECT_NE(l.data, nullptr);

    element_count = 0;
    reset_simulation_state();
    EXPECT_EQ(sim.superperiod_length, 0.0) << "an empty table has length 0";
}

TEST(state, view_geometry_shows_fifteen_centimetres_per_screen_height)
{
    struct row {
        int W, H;
        bool graphs;
        double zoom, pixels_per_metre;
        int centre_x, centre_y;
    };
    const row rows[] = {
        {1920, 1080, false, 1.0, 7200.0, 960, 540},
        {1920, 1080, true, 1.5, 4800.0, 960, 388},   // 0.36 x 1080 = 388.8
        {1281, 1023, false, 1.0, 6820.0, 640, 511},
        {1281, 1023, true, 1.5, 4546.666666666667, 640, 368},
        {800, 600, false, 1.0, 4000.0, 400, 300},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(testing::Message() << r.W << "x" << r.H << " graphs " << r.graphs);
        view_geometry v = compute_view_geometry(r.W, r.H, r.graphs);
        EXPECT_EQ(std::make_tuple(v.zoom, v.centre_x, v.centre_y), std::make_tuple(r.zoom, r.centre_x, r.centre_y));
        EXPECT_NEAR(v.pixels_per_metre, r.pixels_per_metre, 1e-9 * r.pixels_per_metre);
    }
}

} // namespace
