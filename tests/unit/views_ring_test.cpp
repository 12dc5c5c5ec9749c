// The ring map's geometry without a window: the pen closing on itself round the KORA ring,
// one-pixel arc steps, reverse bends leaving a gap, magnet boxes, the beam's point, and the
// camera that brings the point to the anchor and decays the turn by 1 % a frame.
#include "fentra/physics/lattice.h"
#include "fentra/views/ring_view.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <vector>

namespace {

const ring_colours colours = {0x800080, 0x800000, 0x008080, 0xFFFFFF};
const int W = 1920, H = 1080;   // q = 19 pixels per metre
const double q = 19;

struct element {
    double length, strength, bend_radius;
};

void set_lattice(const std::vector<element> &elements)
{
    element_count = (int)elements.size();
    for (int i = 0; i < element_count; i++) {
        element_length[i] = elements[i].length;
        element_strength[i] = elements[i].strength;
        element_bend_radius[i] = elements[i].bend_radius;
    }
}

void load_kora()
{
    write_builtin_lattice("views_ring_test_kora.txt");
    read_lattice("views_ring_test_kora.txt");
    ASSERT_EQ(element_count, 48);
}

struct walker {
    ring_walk walk;
    walker() { growarray_init(&walk.segments, sizeof(ring_segment), 16); }
    ~walker() { growarray_free(&walk.segments); }
    const ring_segment &segment(unsigned i) const { return ((ring_segment *)walk.segments.data)[i]; }
    std::vector<ring_segment> of_colour(unsigned colour) const
    {
        std::vector<ring_segment> out;
        for (unsigned i = 0; i < walk.segments.count; i++)
            if (segment(i).colour == colour) out.push_back(segment(i));
        return out;
    }
};

double length_of(const ring_segment &s) { return hypot(s.x2 - s.x1, s.y2 - s.y1); }

} // namespace

TEST(ring_view, the_kora_ring_closes_on_itself_within_a_pixel)
{
    load_kora();
    double superperiod = lattice_length();
    walker w;
    for (double angle : {0.0, 0.7, -2.5}) {
        ring_camera camera = {13, -40, angle};
        walk_ring(&w.walk, &camera, W, H, 3.0, 10, superperiod, colours);
        EXPECT_NEAR(w.walk.end_x, w.walk.start_x, 1.0) << "camera angle " << angle;
        EXPECT_NEAR(w.walk.end_y, w.walk.start_y, 1.0) << "camera angle " << angle;
        // Ten superperiods of 0.62832 rad of bending make one turn.
        EXPECT_NEAR(w.walk.end_heading - (-angle), 2 * M_PI, 1e-4) << "camera angle " << angle;
        // The drawn orbit line ends where it began: the last arc step lands within a pixel.
        std::vector<ring_segment> orbit = w.of_colour(colours.orbit);
        ASSERT_FALSE(orbit.empty());
        EXPECT_NEAR(orbit.back().x2, orbit.front().x1, 1.0) << "camera angle " << angle;
        EXPECT_NEAR(orbit.back().y2, orbit.front().y1, 1.0) << "camera angle " << angle;
    }
    // The orbit runs 3104 pixels (163.36 m at 19 pixels a metre), plus up to one pixel for
    // each of the 130 bends, whose last step may overshoot the end before the pen is set back.
    double total = 0;
    for (const ring_segment &s : w.of_colour(colours.orbit)) total += length_of(s);
    EXPECT_GT(total, 163.362818 * q - 1.0);
    EXPECT_LT(total, 163.362818 * q + 130.0);
}

TEST(ring_view, a_bend_is_drawn_in_one_pixel_steps_and_ends_exactly_on_its_arc)
{
    // A quarter turn of radius 10 m: 190 pixels of radius, about 298 one-pixel steps.
    set_lattice({{10 * M_PI / 2, 0, 10}});
    walker w;
    ring_camera camera = {0, 0, 0};
    walk_ring(&w.walk, &camera, W, H, 1e9, 1, 10 * M_PI / 2, colours);
    std::vector<ring_segment> orbit = w.of_colour(colours.orbit);
    EXPECT_GE(orbit.size(), 298u);
    EXPECT_LE(orbit.size(), 299u);
    for (size_t i = 0; i < orbit.size(); i++) {
        ASSERT_NEAR(length_of(orbit[i]), 1.0, 1e-3) << "step " << i;
        if (i > 0) {
            ASSERT_EQ(orbit[i].x1, orbit[i - 1].x2) << "step " << i;
            ASSERT_EQ(orbit[i].y1, orbit[i - 1].y2) << "step " << i;
        }
    }
    // Heading 0 sets off downwards on screen and the bend turns it toward -x.
    EXPECT_NEAR(w.walk.end_x - w.walk.start_x, -190, 1e-9);
    EXPECT_NEAR(w.walk.end_y - w.walk.start_y, 190, 1e-9);
    EXPECT_NEAR(w.walk.end_heading, M_PI / 2, 1e-12);
}

TEST(ring_view, magnets_get_an_inner_and_a_strength_scaled_outer_box)
{
    struct case_ {
        const char *name;
        double k;
        unsigned colour;
        double outer;   // |k| q + 0.8 q
    };
    const case_ cases[] = {
        {"focusing", 0.5, colours.focusing, 0.5 * 19 + 15.2},
        {"defocusing", -2.0, colours.defocusing, 2.0 * 19 + 15.2},
    };
    for (const case_ &c : cases) {
        set_lattice({{2, 0, 0}, {1, c.k, 0}});
        walker w;
        ring_camera camera = {0, 0, 0};
        walk_ring(&w.walk, &camera, W, H, 1e9, 1, 3, colours);
        std::vector<ring_segment> box = w.of_colour(c.colour);
        ASSERT_EQ(box.size(), 8u) << c.name;
        EXPECT_TRUE(w.of_colour(c.k > 0 ? colours.defocusing : colours.focusing).empty()) << c.name;
        // The magnet runs from 38 to 57 pixels below the start, heading straight down.
        double x0 = w.walk.start_x, y0 = w.walk.start_y + 38, y1 = y0 + 19;
        const double widths[2] = {(float)(0.8 * 19), (float)c.outer};
        for (int b = 0; b < 2; b++) {
            double wdt = widths[b];
            const ring_segment *s = &box[4 * b];
            // corners: start + w, end + w, end - w, start - w, back to the first
            const double corner[5][2] = {{x0 + wdt, y0}, {x0 + wdt, y1}, {x0 - wdt, y1},
                                         {x0 - wdt, y0}, {x0 + wdt, y0}};
            for (int k = 0; k < 4; k++) {
                EXPECT_NEAR(s[k].x1, corner[k][0], 1e-9) << c.name << " box " << b << " side " << k;
                EXPECT_NEAR(s[k].y1, corner[k][1], 1e-9) << c.name << " box " << b << " side " << k;
                EXPECT_NEAR(s[k].x2, corner[k + 1][0], 1e-9) << c.name << " box " << b << " side " << k;
                EXPECT_NEAR(s[k].y2, corner[k + 1][1], 1e-9) << c.name << " box " << b << " side " << k;
            }
        }
    }
}

TEST(ring_view, the_beam_point_lies_on_its_element_and_wraps_with_the_ring)
{
    set_lattice({{2, 0, 0}, {M_PI * 5, 0, 10}});
    const double period = 2 + M_PI * 5;
    struct case_ {
        const char *name;
        double position;
        double dx, dy;   // from the pen's start, camera at rest
    };
    const case_ cases[] = {
        {"in the drift", 0.5, 0, 9.5},
        {"on the boundary, start of the bend", 2.0, 0, 38},
        {"a quarter into the bend", 2 + 10 * M_PI / 4, 190 * (cos(M_PI / 4) - 1) , 38 + 190 * sin(M_PI / 4)},
        {"one ring later", 2 * period + 0.5, 0, 9.5},
    };
    for (const case_ &c : cases) {
        walker w;
        ring_camera camera = {0, 0, 0};
        walk_ring(&w.walk, &camera, W, H, c.position, 2, period, colours);
        ASSERT_TRUE(w.walk.marker_found) << c.name;
        EXPECT_NEAR(w.walk.marker_x - w.walk.start_x, c.dx, 1e-9) << c.name;
        EXPECT_NEAR(w.walk.marker_y - w.walk.start_y, c.dy, 1e-9) << c.name;
        // The next frame's shift brings the point exactly to the anchor.
        EXPECT_NEAR(camera.ox, c.dx, 1e-9) << c.name;
        EXPECT_NEAR(camera.oy, c.dy, 1e-9) << c.name;
    }
}

// The map turns to follow the bunch by 1 % of its heading a frame.
TEST(ring_view, the_turn_decays_by_one_percent_a_frame)
{
    load_kora();
    walker w;
    ring_camera camera = {0, 0, 0};
    walk_ring(&w.walk, &camera, W, H, 151.3, 10, lattice_length(), colours);
    double previous = w.walk.marker_heading;
    ASSERT_GT(fabs(previous), 0.1);
    for (int frame = 1; frame < 10; frame++) {
        walk_ring(&w.walk, &camera, W, H, 151.3, 10, lattice_length(), colours);
        ASSERT_NEAR(w.walk.marker_heading, 0.99 * previous, 1e-12) << "frame " << frame;
        previous = w.walk.marker_heading;
    }
}
