// The phase-space graphs' numbers without a window: current maxima of signed values, record
// maxima and R, the statistics text, and which dots land in the graphs and where.
#include "fentra/physics/beam.h"
#include "fentra/views/phase_graphs.h"
#include "fentra/physics/state.h"

#include "Morvane/random.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <string>
#include <tuple>
#include <vector>

namespace {

std::string statistics(const phase_maxima &current, const phase_maxima &record)
{
    char text[300];
    phase_statistics_text(text, sizeof text, current, record);
    return text;
}

std::tuple<double, double, double, double> values(const phase_maxima &m) { return {m.x, m.xp, m.y, m.yp}; }

// The beam layout of a 1920 x 1080 screen with the graphs on: 4800 pixels per metre
// (1080 / 0.225) and twice that per radian.
const int W = 1920, H = 1080;
const double S = 4800, A = 9600;

} // namespace

TEST(phase_graphs, maxima_are_of_signed_values_and_start_from_zero)
{
    struct case_ {
        const char *name;
        std::vector<double> x, y, xp, yp;
        phase_maxima expected;
    };
    const case_ cases[] = {
        {"symmetric", {-0.02, 0.01, 0.015}, {0.003, -0.004, 0.001}, {1e-3, -2e-3, 5e-4},
         {0, 0, -1e-5}, {0.015, 1e-3, 0.003, 0}},
        {"wholly negative x shows 0", {-0.01, -0.03}, {0.02, 0.01}, {-1e-3, -1e-3},
         {2e-4, 3e-4}, {0, 0, 0.02, 3e-4}},
        {"no particles", {}, {}, {}, {}, {0, 0, 0, 0}},
    };
    for (const case_ &c : cases) {
        phase_maxima m = current_maxima(c.x.data(), c.y.data(), c.xp.data(), c.yp.data(),
                                        (int)c.x.size());
        EXPECT_EQ(values(m), values(c.expected)) << c.name;
    }
}

TEST(phase_graphs, records_hold_the_largest_until_r_is_held)
{
    phase_records = {0, 0, 0, 0};
    const phase_maxima big = {0.03, 0.002, 0.025, 0.004};
    const phase_maxima small = {0.01, 0.003, 0.005, 0.001};
    update_phase_records(big, false);
    update_phase_records(small, false);
    // Each record is the larger of the two, coordinate by coordinate.
    EXPECT_EQ(values(phase_records), std::make_tuple(0.03, 0.003, 0.025, 0.004));

    // While R is held the records follow the current maxima, down as well as up.
    const phase_maxima frames[] = {small, {0.002, 0.001, 0.001, 0.0005}, big};
    for (const phase_maxima &m : frames) {
        update_phase_records(m, true);
        EXPECT_EQ(values(phase_records), values(m));
    }
    // With no particles the records stay as they are.
    update_phase_records({0, 0, 0, 0}, false);
    EXPECT_EQ(values(phase_records), values(big));
}

TEST(phase_graphs, the_statistics_text_has_four_lines_of_current_and_record)
{
    struct case_ {
        phase_maxima current, record;
        const char *expected;
    };
    const case_ cases[] = {
        {{0.0123, 0.00045, 0.02, 1e-05}, {0.05, 0.001, 0.03, 2.5e-05},
         "Max |x| = 0.0123 m (0.05)\nMax |x'| = 0.00045 (0.001)\nMax |y| = 0.02 m (0.03)\n"
         "Max |y'| = 1e-05 (2.5e-05)"},
        {{0, 0, 0, 0}, {0, 0, 0, 0},
         "Max |x| = 0 m (0)\nMax |x'| = 0 (0)\nMax |y| = 0 m (0)\nMax |y'| = 0 (0)"},
        {{0.0399871234, 0.0133332, 0.04, 0.013333333}, {0.1234567, 1, 2, 3},
         "Max |x| = 0.0399871 m (0.123457)\nMax |x'| = 0.0133332 (1)\nMax |y| = 0.04 m (2)\n"
         "Max |y'| = 0.0133333 (3)"},
    };
    for (const case_ &c : cases) EXPECT_EQ(statistics(c.current, c.record), c.expected);
}

TEST(phase_graphs, dots_land_in_their_graph_or_are_not_drawn)
{
    struct case_ {
        const char *name;
        bool left;          // left graph (x, x') or right graph (y, y')
        double position, angle;
        bool drawn;
        float px, py;
    };
    const case_ cases[] = {
        {"left origin", true, 0, 0, true, 320, 810},
        {"left, on the W/3 edge", true, 0.0666666666666667, 0, true, 640, 810},
        {"left, past the W/3 edge", true, 0.067, 0, false, 641.6f, 810},
        {"left, far left is kept", true, -0.5, 0, true, -2080, 810},
        {"left, angle to mid-screen", true, 0, 0.028125, true, 320, 540},
        {"left, angle above mid-screen", true, 0, 0.0282, false, 320, 539.28f},
        {"left, large negative angle kept", true, 0, -1, true, 320, 10410},
        {"right origin", false, 0, 0, true, 1600, 810},
        {"right, on the 2W/3 edge", false, -0.0666666666666667, 0, true, 1280, 810},
        {"right, past the 2W/3 edge", false, -0.07, 0, false, 1264, 810},
        {"right, far right is kept", false, 0.5, 0, true, 4000, 810},
        {"right, angle above mid-screen", false, 0.01, 0.03, false, 1648, 522},
    };
    for (const case_ &c : cases) {
        graph_dot d = c.left ? left_graph_dot(c.position, c.angle, S, A, W, H)
                             : right_graph_dot(c.position, c.angle, S, A, W, H);
        EXPECT_EQ(d.drawn, c.drawn) << c.name;
        EXPECT_NEAR(d.px, c.px, 1e-3) << c.name;
        EXPECT_NEAR(d.py, c.py, 1e-3) << c.name;
    }
}
