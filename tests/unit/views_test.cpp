// The views' numbers without a window, where a picture would hide them: colours at the ends of
// the momentum ramp, the glow image, the ring map's turn, spark counts and forces, the touch
// "Reset" region and the phase-space graphs' records and edges. (Everything else is in the
// pictures of gl/app_frame_test.)
#include "fentra/views/beam_view.h"
#include "fentra/views/game.h"
#include "fentra/views/hud.h"
#include "fentra/views/phase_graphs.h"
#include "fentra/views/ring_view.h"
#include "fentra/views/optics_panel.h"
#include "fentra/physics/collective.h"
#include "fentra/physics/lattice.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <tuple>
#include <vector>

TEST(BeamView, MomentumRampEndsAndGlowImage)
{
    // spread 0.15: the ramp runs from 0.864 (red) through 1 (green) to 1.136 (blue).
    // Beyond the top the blue darkens.
    EXPECT_EQ(std::make_tuple(momentum_colour(0.864, 0.15), momentum_colour(1.0, 0.15),
                              momentum_colour(1.136, 0.15), momentum_colour(1.136 + 0.068, 0.15)),
              std::make_tuple(0xFF0000u, 0x00FF00u, 0x0000FFu, 0x00007Fu));
    // 32 x 32, rows padded to 4 bytes: saturated centre; next to it on the axis
    // (0.8 - 0.05) x 0.5 x 255 = 95; black from the rim on.
    std::vector<unsigned char> image(96 * 32);
    glow_image(32, image.data());
    EXPECT_EQ(std::make_tuple(image[16 * 96 + 48], image[16 * 96 + 51], image[16 * 96]),
              std::make_tuple(255, 95, 0));
}

// The map turns back by a hundredth of the heading at the start of the beam's element a frame.
TEST(RingView, TheMapTurnsAHundredthOfTheBeamElementsHeadingAFrame)
{
    element_count = 2;   // a quarter turn of radius 10 m, then a 2 m drift
    element_length[0] = 5 * M_PI, element_bend_radius[0] = 10, element_length[1] = 2;
    ring_walk walk;
    growarray_init(&walk.segments, sizeof(ring_segment), 16);
    ring_camera camera = {0, 0, 0};
    walk_ring(&walk, &camera, 1920, 1080, 5 * M_PI + 1, 1, 5 * M_PI + 2, {1, 2, 3, 4});
    EXPECT_NEAR(camera.angle, 0.01 * M_PI / 2, 1e-12);
    growarray_free(&walk.segments);
}

TEST(Sparks, ThreeForEach1e33UpToAThousandTriplets)
{
    const struct { double luminosity; int triplets; } cases[] = {
        {9.99e32, 0}, {1e33, 1}, {2.5e33, 2}, {7.9e35, 790}, {1e36, 1000}, {3e43, 1000}, {NAN, 0}, {-1e33, 0}};
    for (const auto &c : cases) EXPECT_EQ(sparks_for_luminosity(c.luminosity), c.triplets) << c.luminosity;
}

TEST(Sparks, LikeKindsRepelAndUnlikeKindsAttract)
{
    // Two sparks 10 apart, dt = 1: a = 0.1, b = 1e-4; c = -2/3 for like kinds, +1/3 for unlike.
    const struct { int kind0, kind1; double vx1; } cases[] = {{0, 0, 0.667666666666667}, {1, 2, -0.332333333333333}};
    for (const auto &c : cases) {
        spark s[2] = {{0, 0, 0, 0, c.kind0}, {10, 0, 0, 0, c.kind1}};
        spark_forces(s, 2, 1.0);
        EXPECT_NEAR(s[1].vx, c.vx1, 1e-12) << c.kind0 << c.kind1;
        EXPECT_NEAR(s[0].vx, -c.vx1, 1e-12) << c.kind0 << c.kind1;
    }
}

// The region lies at the left edge, rows 50 - h to 50 + 2h - 1, although the word is drawn
// mid-screen.
// The exponent of the luminosity and peak lines is drawn raised and smaller: its compiled
// commands (scale 179 raised 38, then back to 256) hold zero bytes and belong to the line.
TEST(Hud, LuminosityLinesCarryTheirExponentAsASuperscript)
{
    const std::string up("\5\2\xB3\0\x26\0", 6), back("\5\2\0\1\0\0", 6);
    char text[200];
    EXPECT_EQ(luminosity_line_text(text, sizeof text, luminosity_text, 7.3e30), "Luminosity: 7.3 x 10" + up + "30" + back);
    EXPECT_EQ(luminosity_line_text(text, sizeof text, peak_text, 0), "Peak: 0.0 x 10" + up + "0" + back);
}

TEST(TouchReset, TheHitRegionIsAtTheLeftEdge)
{
    const struct { int x, y; bool hit; } cases[] = {
        {55, 40, true}, {56, 40, false}, {0, 34, true}, {0, 33, false}, {0, 81, true}, {0, 82, false}};
    for (const auto &c : cases) EXPECT_EQ(touch_reset_hit(c.x, c.y, 40, 16), c.hit) << c.x << ", " << c.y;
}

TEST(PhaseGraphs, RecordsFollowTheCurrentMaximaOnlyWhileRIsHeld)
{
    auto values = [](const phase_maxima &m) { return std::make_tuple(m.x, m.xp, m.y, m.yp); };
    phase_records = {0.03, 0.002, 0.025, 0.004};
    update_phase_records({0.01, 0.003, 0.005, 0.001}, false);
    EXPECT_EQ(values(phase_records), std::make_tuple(0.03, 0.003, 0.025, 0.004));
    update_phase_records({0.002, 0.001, 0.001, 0.0005}, true);
    EXPECT_EQ(values(phase_records), std::make_tuple(0.002, 0.001, 0.001, 0.0005));
}

TEST(PhaseGraphs, DotsLandInTheirGraphOrAreNotDrawn)
{
    // A 1920 x 1080 screen: 4800 pixels a metre, twice that a radian.
    const struct { const char *name; bool left; double position, angle; bool drawn; float px, py; } cases[] = {
        {"left, on the W/3 edge", true, 0.0666666666666667, 0, true, 640, 810},
        {"left, past the W/3 edge", true, 0.067, 0, false, 641.6f, 810},
        {"left, angle above mid-screen", true, 0, 0.0282, false, 320, 539.28f},
        {"right, on the 2W/3 edge", false, -0.0666666666666667, 0, true, 1280, 810},
        {"right, far right is kept", false, 0.5, 0, true, 4000, 810},
    };
    for (const auto &c : cases) {
        graph_dot d = c.left ? left_graph_dot(c.position, c.angle, 4800, 9600, 1920, 1080)
                             : right_graph_dot(c.position, c.angle, 4800, 9600, 1920, 1080);
        EXPECT_TRUE(d.drawn == c.drawn && fabs(d.px - c.px) < 1e-3 && fabs(d.py - c.py) < 1e-3)
            << c.name << ": " << d.drawn << " at " << d.px << ", " << d.py;
    }
}

// The optics panel lies right of the beam pipe (moved aside where it must be), left of the
// luminosity bar and under the luminosity lines, at both common screen sizes; with the graphs
// it stays above them. Its tune diagram spans at least 0.1 and holds a footprint far from the
// working point; resonance lines are cut at the window's edges.
TEST(OpticsPanel, LayoutKeepsClearOfTheBeamViewBarAndLines)
{
    for (auto [W, H] : {std::pair{1024, 768}, std::pair{1920, 1080}, std::pair{640, 480}})
        for (bool graphs : {false, true}) {
            optics_panel_layout l = layout_optics_panel(W, H, graphs, 10);
            view_geometry v = view_beside_panel(compute_view_geometry(W, H, graphs), l);
            SCOPED_TRACE(std::to_string(W) + (graphs ? " graphs" : ""));
            EXPECT_LE(v.centre_x + 0.07 * v.pixels_per_metre, l.panel.x) << "pipe";
            EXPECT_GE(v.centre_x - 0.07 * v.pixels_per_metre, 0);
            EXPECT_LE(l.panel.x + l.panel.w, 0.94 * W) << "luminosity bar";
            EXPECT_GE(l.panel.y, 130) << "luminosity lines";
            EXPECT_LE(l.panel.y + l.panel.h, graphs ? H / 2 : H);
            EXPECT_TRUE(l.tune_diagram.h == 0 || l.tune_diagram.y + l.tune_diagram.h <= l.panel.y + l.panel.h);
            EXPECT_GE(l.tune_diagram.h, graphs ? 0 : 100);
        }
    // At 1920 x 1080 the beam view keeps its place and size.
    view_geometry v = compute_view_geometry(1920, 1080, false);
    view_geometry w = view_beside_panel(v, layout_optics_panel(1920, 1080, false, 10));
    EXPECT_EQ(std::make_tuple(w.centre_x, w.pixels_per_metre), std::make_tuple(v.centre_x, v.pixels_per_metre));

    const float fx[2] = {4.41f, 3.9f}, fy[2] = {3.80f, 3.6f};
    tune_window t = tune_window_for(4.4036, 3.798, fx, fy, 1);
    EXPECT_NEAR(t.qx1 - t.qx0, 0.1, 1e-12);
    EXPECT_TRUE(t.qx0 < 4.4036 && t.qx1 > 4.41);
    t = tune_window_for(4.4036, 3.798, fx, fy, 2);
    EXPECT_TRUE(t.qx0 < 3.9 && t.qy0 < 3.6) << "widened to hold the footprint";
    double ax, ay, bx, by;
    tune_window u = {4.3, 4.5, 3.4, 3.6};
    ASSERT_TRUE(resonance_segment(1, -1, 1, u, &ax, &ay, &bx, &by));   // Qx - Qy = 1
    EXPECT_NEAR(ax - ay, 1, 1e-12);
    EXPECT_NEAR(bx - by, 1, 1e-12);
    EXPECT_EQ(std::make_tuple(ax, bx), std::make_tuple(4.4, 4.5));
    EXPECT_FALSE(resonance_segment(2, 0, 10, u, &ax, &ay, &bx, &by)) << "Qx = 5 lies outside";
    ASSERT_TRUE(resonance_segment(1, 0, 4, tune_window{3.9, 4.1, 3.7, 3.9}, &ax, &ay, &bx, &by));
    EXPECT_EQ(std::make_tuple(ax, ay, bx, by), std::make_tuple(4.0, 3.7, 4.0, 3.9));
}

// The heads-up lines count the superperiods of the ring in use: ten for KORA, eight for a ring
// of eight read from a file.
TEST(KoraLines, SuperperiodOfTheRingInUse)
{
    const struct { int count; double length, position; const char *superperiod, *distance; } rows[] = {
        {10, 16.3363, 17.0, "Superperiod 2 / 10", "Distance around ring 17.00 m"},
        {8, 6.0, 50.0, "Superperiod 1 / 8", "Distance around ring 2.00 m"},
        {8, 6.0, 47.5, "Superperiod 8 / 8", "Distance around ring 47.50 m"},
    };
    for (const auto &r : rows) {
        sim.superperiod_count = r.count, sim.superperiod_length = r.length, sim.ring_position = r.position;
        kora_lines t = kora_line_texts();
        EXPECT_EQ(std::make_pair(std::string(t.superperiod), std::string(t.distance)),
                  std::make_pair(std::string(r.superperiod), std::string(r.distance))) << r.position;
    }
}
