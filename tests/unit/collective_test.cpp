// Collective effects and figures of merit: the space-charge kick, the luminosity with its
// exponent, mantissa, colour, text and bar, the beam-loss text and the scraper's chord. (The
// scraper's movement is checked through the frame, in gl/app_frame_test.)
#include "fentra/physics/collective.h"
#include "fentra/physics/state.h"
#include "fentra/physics/tracking.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

class collective : public ::testing::Test {
protected:
    void SetUp() override
    {
        allocate_particles();
        reset_simulation_state();
    }
};

// Four particles at the ends of the axes of an ellipse with a = 0.01 m and b = 0.02 m: the
// uniform-beam field gives every edge particle the same outward kick ds x 0.0005 / (a + b).
TEST_F(collective, space_charge_pushes_outwards_in_proportion_to_position)
{
    const double xs[] = {0.01, -0.01, 0, 0, 0.005, 0};
    const double ys[] = {0, 0, 0.02, -0.02, -0.01, 0};
    const double ps[] = {1, 1, 1, 1, 1, 2};
    for (int i = 0; i < 6; i++) {
        beam_x[i] = xs[i];
        beam_y[i] = ys[i];
        beam_xp[i] = 0.001;
        beam_yp[i] = -0.001;
        beam_momentum[i] = ps[i];
    }
    sim.particle_count = 6;
    sim.step_length = 0.1;
    space_charge_kick();
    const double edge = 0.1 * 0.0005 / 0.03;   // 0.0016667
    const double want_xp[] = {0.001 + edge, 0.001 - edge, 0.001, 0.001, 0.001 + edge / 2, 0.001};
    const double want_yp[] = {-0.001, -0.001, -0.001 + edge, -0.001 - edge, -0.001 - edge / 2, -0.001};
    for (int i = 0; i < 6; i++) {
        EXPECT_NEAR(beam_xp[i], want_xp[i], 1e-15) << "particle " << i;
        EXPECT_NEAR(beam_yp[i], want_yp[i], 1e-15) << "particle " << i;
    }

    // Twice the momentum, half the kick.
    beam_x[5] = 0.01;
    beam_xp[5] = 0;
    space_charge_kick();
    EXPECT_NEAR(beam_xp[5], 0.1 * 0.0005 / 0.03 / 2, 1e-15);
}

TEST_F(collective, space_charge_on_a_flat_beam_makes_that_plane_nan)
{
    // All particles on the x axis: b = 0, and 0 x (1 / 0) makes every y' NaN; x is kicked
    // normally. NaN particles then survive the aperture, whose test compares false.
    for (int i = 0; i < 4; i++) {
        beam_x[i] = 0.01 * (i - 1.5);
        beam_y[i] = 0;
        beam_xp[i] = 0;
        beam_yp[i] = 0.002;
        beam_momentum[i] = 1;
    }
    sim.particle_count = 4;
    sim.step_length = 0.01;
    space_charge_kick();
    for (int i = 0; i < 4; i++) {
        EXPECT_TRUE(std::isnan(beam_yp[i])) << "particle " << i;
        EXPECT_TRUE(std::isfinite(beam_xp[i])) << "particle " << i;
        EXPECT_GT(beam_xp[i] * beam_x[i], 0) << "outwards in x";
    }
    magnets = {};
    sim.bend_active = false;
    sim.scraper_on = true;
    track_step();
    EXPECT_EQ(sim.particle_count, 4) << "NaN particles pass the aperture and scraper tests";
}

TEST(luminosity, is_particles_over_the_rms_area)
{
    struct row {
        const char *what;
        int n;
        double sx, sy, L;
    };
    const row rows[] = {
        // 10000 particles, rms 0.0224 m each way: 3e27 / 0.0005.
        {"round beam", 10000, 5.0, 5.0, 6e30},
        {"half the particles", 5000, 2.5, 2.5, 3e30},
        {"flat beam", 10000, 1.0, 4.0, 1.5e31},
        {"point beam: mean squares floored at 1e-16", 10000, 0.0, 0.0, 3e43},
        {"one plane floored", 10000, 1e-13, 5.0, 3e27 / sqrt(1e-16 * 5e-4)},
        {"no particles", 0, 0.0, 0.0, 0.0},
    };
    for (const row &r : rows) EXPECT_NEAR(luminosity(r.n, r.sx, r.sy), r.L, 1e-12 * r.L) << r.what;

    // The Default beam, uniform within 0.05 m: about 10000 x 3e23 / (0.0224 x 0.0224).
    EXPECT_NEAR(luminosity(10000, 10000 * 0.0005, 10000 * 0.0005) / (10000 * 3e23 / (0.0224 * 0.0224)), 1, 0.01);
}

TEST(luminosity, reading_colour_and_text_by_exponent)
{
    struct row {
        double L;
        int exponent;
        unsigned colour;
        const char *text;
    };
    const row rows[] = {
        {6e30, 30, 0x808000, "Luminosity: 6.0 x 10^{30}"},
        {9.9e30, 30, 0x808000, "Luminosity: 9.9 x 10^{30}"},
        {1e31, 31, 0xC0C000, "Luminosity: 1.0 x 10^{31}"},
        {5.5e31, 31, 0xC0C000, "Luminosity: 5.5 x 10^{31}"},
        {1.25e32, 32, 0xFFF000, "Luminosity: 1.2 x 10^{32}"},
        // The exponent is fixed before the mantissa is rounded.
        {9.99e32, 32, 0xFFF000, "Luminosity: 10.0 x 10^{32}"},
        {3e33, 33, 0xFFFF80, "Luminosity: 3.0 x 10^{33}"},
        {2e34, 34, 0xFFFFFF, "Luminosity: 2.0 x 10^{34}"},
        {3e43, 43, 0xFFFFFF, "Luminosity: 3.0 x 10^{43}"},
        {4.2e20, 20, 0x808000, "Luminosity: 4.2 x 10^{20}"},
        // No particles: L = 0 has no logarithm; it reads as zero with exponent 0.
        {0.0, 0, 0x808000, "Luminosity: 0.0 x 10^{0}"},
    };
    for (const row &r : rows) {
        luminosity_reading got = read_luminosity(r.L);
        EXPECT_EQ(got.exponent, r.exponent) << r.L;
        EXPECT_EQ(got.colour, r.colour) << r.L;
        char text[64];
        luminosity_text(text, sizeof text, r.L);
        EXPECT_STREQ(text, r.text);
    }
    EXPECT_EQ(read_luminosity(NAN).exponent, 0) << "a value that is not a number has no exponent either";

    char text[64];
    peak_text(text, sizeof text, 1e-6);
    EXPECT_STREQ(text, "Peak: 1.0 x 10^{-6}") << "the peak of a new beam";
    peak_text(text, sizeof text, 2.5e33);
    EXPECT_STREQ(text, "Peak: 2.5 x 10^{33}");
}

TEST_F(collective, peak_only_rises)
{
    const double sequence[] = {3e30, 1e30, 5e31, 0, 4e31, 6e31};
    const double peak_after[] = {3e30, 3e30, 5e31, 5e31, 5e31, 6e31};
    EXPECT_EQ(sim.peak_luminosity, 1e-6);
    for (int k = 0; k < 6; k++) {
        update_peak_luminosity(sequence[k]);
        EXPECT_EQ(sim.peak_luminosity, peak_after[k]) << "after value " << k;
    }
    update_peak_luminosity(NAN);
    EXPECT_EQ(sim.peak_luminosity, 6e31);
}

TEST(beam_loss, text_is_the_share_of_ten_thousand_lost)
{
    struct row {
        int count;
        const char *text;
    };
    const row rows[] = {
        {10000, "BEAM LOSS: 0.00%"}, {9999, "BEAM LOSS: 0.01%"},  {9995, "BEAM LOSS: 0.05%"},
        {9000, "BEAM LOSS: 10.00%"}, {5000, "BEAM LOSS: 50.00%"}, {1, "BEAM LOSS: 99.99%"},
        {0, "BEAM LOSS: 100.00%"},
    };
    for (const row &r : rows) {
        char text[64];
        beam_loss_text(text, sizeof text, r.count);
        EXPECT_STREQ(text, r.text) << r.count << " particles";
    }
    EXPECT_NEAR(loss_percentage(9999), 0.01, 1e-5);
}

TEST(luminosity_bar, fills_the_height_at_3_75e33)
{
    struct row {
        double L, peak;
        double top, peak_top;
    };
    const row rows[] = {
        {0, 1e-6, 800, 801},
        {3.75e33, 3.75e33, 0, 1},
        {1.875e33, 3e33, 400, 801 - 640},
        {5e33, 5e33, -800.0 / 3, 1 - 800.0 / 3},   // beyond the window
    };
    for (const row &r : rows) {
        luminosity_bar b = luminosity_bar_geometry(1000, 800, r.L, r.peak);
        EXPECT_NEAR(b.left, 940, 1e-9);
        EXPECT_NEAR(b.right, 990, 1e-9);
        EXPECT_NEAR(b.peak_right, 989, 1e-9);
        EXPECT_EQ(b.bottom, 800);
        EXPECT_NEAR(b.top, r.top, 1e-9) << "L = " << r.L;
        EXPECT_NEAR(b.peak_top, r.peak_top, 1e-9) << "peak = " << r.peak;
    }
}

TEST(scraper, line_is_the_aperture_chord_at_the_edge)
{
    struct row {
        double edge;
        int x, half_height;
    };
    // 1920 wide at 7200 pixels per metre: the pipe is 504 pixels in radius.
    const row rows[] = {
        {0.03, 1176, 455},   // sqrt(0.0049 - 0.0009) x 7200 = 455.4
        {0.0, 960, 503},     // sqrt(0.0049) is just below 0.07: 503.99 truncates
        {0.05, 1320, 352},   // sqrt(0.0024) x 7200 = 352.7
        {0.07, 1464, 0},     // at the pipe the chord closes
    };
    for (const row &r : rows) {
        scraper_chord c = scraper_chord_geometry(1920, r.edge, 7200);
        EXPECT_EQ(c.x, r.x) << "edge " << r.edge;
        EXPECT_EQ(c.half_height, r.half_height) << "edge " << r.edge;
    }
}

} // namespace
