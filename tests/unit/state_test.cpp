// Simulation state: the particle arrays, every initial value, magnet settings from held keys
// and the beam view geometry.
#include "fentra/lattice.h"
#include "fentra/state.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(state, particle_arrays_are_allocated_once)
{
    allocate_particles();
    double *first[5] = {beam_x, beam_y, beam_xp, beam_yp, beam_momentum};
    for (double *a : first) ASSERT_NE(a, nullptr);
    for (int i = 0; i < 5; i++)
        for (int j = i + 1; j < 5; j++) EXPECT_NE(first[i], first[j]);
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
    element_length[0] = 1.5;
    element_length[1] = 0.25;
    element_length[2] = 2.0;

    // Disturb everything first.
    sim.particle_count = 17;
    sim.momentum_spread = 0.15;
    sim.simulation_speed = 8;
    sim.ring_position = 99;
    sim.step_length = 3;
    sim.superperiod_count = 2;
    sim.kora_lattice = sim.beam_made_for_kora = sim.fodo_cell = true;
    sim.space_charge = sim.scraper_on = sim.highlight = sim.show_graphs = sim.bend_active = true;
    sim.scraper_x = 0.01;
    sim.luminous = 1;
    sim.peak_luminosity = 5e33;
    sim.component_index = 7;
    sim.distance_to_element_end = 0.5;
    sim.touch_mode = 2;
    sim.glow_texture = 9;
    reset_simulation_state();

    EXPECT_EQ(sim.particle_count, 0);
    EXPECT_EQ(sim.momentum_spread, 0.0);
    EXPECT_EQ(sim.simulation_speed, 1.0);
    EXPECT_EQ(sim.ring_position, 0.0);
    EXPECT_EQ(sim.step_length, 0.01);
    EXPECT_EQ(sim.superperiod_length, 3.75);
    EXPECT_EQ(sim.superperiod_count, 10);
    EXPECT_FALSE(sim.kora_lattice);
    EXPECT_FALSE(sim.beam_made_for_kora);
    EXPECT_FALSE(sim.fodo_cell);
    EXPECT_FALSE(sim.space_charge);
    EXPECT_FALSE(sim.scraper_on);
    EXPECT_EQ(sim.scraper_x, 0.03);
    EXPECT_FALSE(sim.highlight);
    EXPECT_FALSE(sim.show_graphs);
    EXPECT_EQ(sim.luminous, 0);
    EXPECT_EQ(sim.peak_luminosity, 1e-6);
    EXPECT_EQ(sim.component_index, -1);
    EXPECT_EQ(sim.distance_to_element_end, 1e20);
    EXPECT_FALSE(sim.bend_active);
    EXPECT_EQ(sim.touch_mode, 0);
    EXPECT_EQ(sim.glow_texture, 0u);
    EXPECT_EQ(sim.spark_list.count, 0u);
    EXPECT_EQ(sim.spark_list.capacity, 1u);
    EXPECT_EQ(sim.spark_list.min_capacity, 1u);
    EXPECT_EQ(sim.spark_list.element_size, 40u);
    EXPECT_EQ(sim.spark_list.growth, 60.0f);
    EXPECT_NE(sim.spark_list.data, nullptr);

    // A second reset starts the spark list afresh.
    spark s = {1, 2, 3, 4, 2};
    for (int k = 0; k < 5; k++) growarray_append(&sim.spark_list, &s);
    reset_simulation_state();
    EXPECT_EQ(sim.spark_list.count, 0u);
    EXPECT_EQ(sim.spark_list.capacity, 1u);

    element_count = 0;
    reset_simulation_state();
    EXPECT_EQ(sim.superperiod_length, 0.0) << "an empty table has length 0";
}

// Held keys from a list such as "4+Left": digits, "O", "Left" and "Right".
magnet_keys held(const char *keys)
{
    magnet_keys k = {};
    std::string list = std::string(keys) + "+";
    size_t start = 0, plus;
    while ((plus = list.find('+', start)) != std::string::npos) {
        std::string key = list.substr(start, plus - start);
        start = plus + 1;
        bool *flag = key == "2" ? &k.two : key == "3" ? &k.three : key == "4" ? &k.four
                   : key == "5" ? &k.five : key == "Left" ? &k.left : key == "Right" ? &k.right
                   : key == "6" ? &k.six : key == "7" ? &k.seven : key == "8" ? &k.eight
                   : key == "9" ? &k.nine : key == "O" ? &k.letter_o : key == "0" ? &k.zero
                   : nullptr;
        if (flag) *flag = true;
    }
    return k;
}

TEST(state, magnet_settings_follow_the_held_keys)
{
    struct row {
        const char *keys;
        magnet_settings expected;
    };
    const double third = 1.0 / 30;
    const row rows[] = {
        {"", {0, 0, 0, 0, 0}},
        {"2", {third, 0, 0, 0, 0}},
        {"3", {-third, 0, 0, 0, 0}},
        {"2+3", {0, 0, 0, 0, 0}},
        {"4", {0, 2, 0, 0, 0}},
        {"5", {0, -2, 0, 0, 0}},
        {"Left", {0, 2, 0, 0, 0}},
        {"Right", {0, -2, 0, 0, 0}},
        {"4+Left", {0, 4, 0, 0, 0}},
        {"5+Right", {0, -4, 0, 0, 0}},
        {"4+Right", {0, 0, 0, 0, 0}},
        {"4+5", {0, 0, 0, 0, 0}},
        {"6", {0, 0, 30, 0, 0}},
        {"7", {0, 0, -30, 0, 0}},
        {"8", {0, 0, 0, 900, 0}},
        {"9", {0, 0, 0, -900, 0}},
        {"O", {0, 0, 0, 0, 1}},
        {"0", {0, 0, 0, 0, -1}},
        {"O+0", {0, 0, 0, 0, 0}},
        {"2+5+6+9+O", {third, -2, 30, -900, 1}},
    };
    for (const row &r : rows) {
        magnet_settings m = magnets_from_keys(held(r.keys));
        EXPECT_DOUBLE_EQ(m.steering, r.expected.steering) << "keys " << r.keys;
        EXPECT_EQ(m.quad_strength, r.expected.quad_strength) << "keys " << r.keys;
        EXPECT_EQ(m.sextupole, r.expected.sextupole) << "keys " << r.keys;
        EXPECT_EQ(m.octupole, r.expected.octupole) << "keys " << r.keys;
        EXPECT_EQ(m.solenoid, r.expected.solenoid) << "keys " << r.keys;
    }
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
        view_geometry v = compute_view_geometry(r.W, r.H, r.graphs);
        EXPECT_EQ(v.zoom, r.zoom) << r.W << "x" << r.H << " graphs " << r.graphs;
        EXPECT_NEAR(v.pixels_per_metre, r.pixels_per_metre, 1e-9 * r.pixels_per_metre)
            << r.W << "x" << r.H << " graphs " << r.graphs;
        EXPECT_EQ(v.centre_x, r.centre_x);
        EXPECT_EQ(v.centre_y, r.centre_y) << r.W << "x" << r.H << " graphs " << r.graphs;
    }
}

} // namespace
