// Window placement on a list of monitors, the projection and camera matrices, the pixel
// size, the circle segment and culling rules and the palette colours, all without a window.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <tuple>

// Primary 1920 x 1080; a second screen to its right; a third to the left, lower down.
static const screen_rect three_monitors[] = {
    {0, 0, 1920, 1080}, {1920, 0, 3200, 1024}, {-800, 200, 0, 800}};

TEST(placement, virtual_screen_is_the_bounding_box)
{
    screen_rect v = virtual_screen(three_monitors, 3);
    EXPECT_EQ(std::make_tuple(v.left, v.top, v.right, v.bottom), std::make_tuple(-800, 0, 3200, 1080));
    screen_rect none = virtual_screen(three_monitors, 0);
    EXPECT_EQ(none.right - none.left, 0);
}

TEST(placement, full_screen_areas_by_mode_and_argument)
{
    const struct {
        const char *what;
        int mode, arg, offset_x, offset_y;
        int x, y, w, h;
    } cases[] = {
        {"primary screen", 0, 0, 0, 0, 0, 0, 1920, 1080},
        {"explicit size at the origin", 1280, 720, 0, 0, 0, 0, 1280, 720},
        {"monitor 2", 0, 2, 0, 0, 1920, 0, 1280, 1024},
        {"monitor 3", 0, 3, 0, 0, -800, 200, 800, 600},
        {"monitor 5 of 3 falls back to 1", 0, 5, 0, 0, 0, 0, 1920, 1080},
        {"virtual screen", -1, 0, 0, 0, -800, 0, 4000, 1080},
        {"virtual screen, negative argument", -1, -7, 0, 0, -800, 0, 4000, 1080},
        {"mask 0b101: monitors 1 and 3", -1, 0b101, 0, 0, -800, 0, 2720, 1080},
        {"mask 0b110: monitors 2 and 3", -1, 0b110, 0, 0, -800, 0, 4000, 1024},
        {"mask 0b010: monitor 2", -1, 0b010, 0, 0, 1920, 0, 1280, 1024},
        {"mask bit past the list is ignored", -1, 0b1001, 0, 0, 0, 0, 1920, 1080},
        {"mask of absent monitors: zero size", -1, 0b11000, 0, 0, 0, 0, 0, 0},
        {"offsets move the corner", 0, 0, 10, -20, 10, -20, 1920, 1080},
        {"offsets with a monitor", 0, 2, 5, 5, 1925, 5, 1280, 1024},
        {"zero height", 640, 0, 0, 0, 0, 0, 640, 0},
    };
    for (const auto &c : cases) {
        window_placement p = place_window(c.mode, c.arg, three_monitors, 3, 0, c.offset_x,
                                          c.offset_y, 100, 100, 4, 4, 23);
        EXPECT_EQ(std::make_tuple(p.x, p.y, p.width, p.height, p.outer_width, p.outer_height),
                  std::make_tuple(c.x, c.y, c.w, c.h, c.w, c.h))
            << c.what << " (full screen has no frame)";
    }
}

TEST(placement, windowed_areas_are_centred_on_the_pointer_inside_the_virtual_screen)
{
    static const screen_rect one_monitor[] = {{0, 0, 1920, 1080}};
    const struct {
        const char *what;
        const screen_rect *monitors;
        int count, mode, arg, pointer_x, pointer_y, frame_x, frame_y, caption;
        int x, y, w, h, outer_w, outer_h;
    } cases[] = {
        {"4:3 shrink, pointer centred", one_monitor, 1, 0, 0, 960, 540, 0, 0, 0,
         528, 216, 864, 648, 864, 648},
        {"clamped right and bottom", one_monitor, 1, 0, 0, 1900, 1070, 0, 0, 0,
         1056, 432, 864, 648, 864, 648},
        {"clamped left and top", one_monitor, 1, 0, 0, 3, 2, 0, 0, 0,
         0, 0, 864, 648, 864, 648},
        {"frame and caption", one_monitor, 1, 0, 0, 960, 540, 4, 4, 23,
         524, 201, 864, 648, 872, 679},
        {"explicit size is not shrunk", one_monitor, 1, 800, 600, 960, 540, 0, 0, 0,
         560, 240, 800, 600, 800, 600},
        {"monitor 2 shrinks from its own height", three_monitors, 3, 0, 2, 2560, 512, 0, 0, 0,
         2151, 205, 818, 614, 818, 614},
        {"pointer on the left monitor, clamped to the virtual left", three_monitors, 3, 0, 0,
         -700, 500, 0, 0, 0, -800, 176, 864, 648, 864, 648},
    };
    for (const auto &c : cases) {
        window_placement p = place_window(c.mode, c.arg, c.monitors, c.count, 1, 0, 0,
                                          c.pointer_x, c.pointer_y, c.frame_x, c.frame_y,
                                          c.caption);
        EXPECT_EQ(std::make_tuple(p.x, p.y, p.width, p.height, p.outer_width, p.outer_height),
                  std::make_tuple(c.x, c.y, c.w, c.h, c.outer_w, c.outer_h))
            << c.what;
    }
    // the offsets do not move a framed window
    window_placement p = place_window(0, 0, one_monitor, 1, 1, 300, 300, 960, 540, 0, 0, 0);
    EXPECT_EQ(std::make_pair(p.x, p.y), std::make_pair(528, 216));
}

static unsigned bits(float f)
{
    unsigned u;
    memcpy(&u, &f, 4);
    return u;
}

TEST(matrices, fixed_perspective_of_the_resize_step)
{
    const struct { int w, h; float m0, m5; } cases[] = {
        {1920, 1080, 0.75f, 4.0f / 3.0f},          // wider than 4:3: vertical scale fixed
        {1366, 768, (float)(768 / (0.75 * 1366)), 4.0f / 3.0f},
        {800, 600, 1.0f, 1.0f / 0.75f},            // exactly 4:3
        {600, 800, 1.0f, 0.75f},                   // taller: horizontal scale fixed
        {1000, 1000, 1.0f, 1.0f},
    };
    for (const auto &c : cases) {
        float m[16];
        memset(m, 0x7F, sizeof m);
        perspective_matrix(c.w, c.h, m);
        SCOPED_TRACE(testing::Message() << c.w << " x " << c.h);
        EXPECT_FLOAT_EQ(m[0], c.m0);
        EXPECT_FLOAT_EQ(m[5], c.m5);
        EXPECT_EQ(std::make_tuple(bits(m[10]), bits(m[11]), bits(m[14])),
                  std::make_tuple(0xBF80068Du, bits(-1.0f), 0xBE4CD20Bu));
        for (int i : {1, 2, 3, 4, 6, 7, 8, 9, 12, 13, 15}) EXPECT_EQ(m[i], 0.0f) << "m[" << i << "]";
    }
    float m[16];
    perspective_matrix(1920, 1080, m);
    EXPECT_EQ(bits(m[5]), 0x3FAAAAABu);   // 4/3 as 1.3333334
}

TEST(matrices, camera_helpers)
{
    const int w = 1920, h = 1080;
    float m[16];
    matrix_perspective(m, 90, 1, 101, w, h);
    EXPECT_FLOAT_EQ(m[0], 1.0f);                       // tan 45 = 1
    EXPECT_FLOAT_EQ(m[5], (float)(1920.0 / 1080.0));
    EXPECT_FLOAT_EQ(m[10], (float)(102.0 / -100.0));
    EXPECT_FLOAT_EQ(m[14], (float)(2 * 101.0 / -100.0));
    EXPECT_EQ(std::make_pair(m[11], m[15]), std::make_pair(-1.0f, 0.0f));
    EXPECT_NEAR(matrix_field_of_view_x(m), 90.0, 1e-4);

    matrix_depth_range(m, 0.5, 50);
    EXPECT_FLOAT_EQ(m[10], (float)(50.5 / -49.5));
    EXPECT_FLOAT_EQ(m[14], (float)(50.0 / -49.5));
    EXPECT_FLOAT_EQ(m[0], 1.0f);                       // the rest is kept

    // 4:3 rule: a 16:9 screen keeps the 4:3 vertical angle and widens the horizontal one
    matrix_perspective_43(m, 60, 1, 100, w, h);
    double t = tan(30 * M_PI / 180);
    EXPECT_FLOAT_EQ(m[5], (float)(1 / (0.75 * t)));
    EXPECT_FLOAT_EQ(m[0], (float)(1 / (w * 0.75 * t / h)));
    EXPECT_NEAR(matrix_field_of_view_43(m, w, h), 60.0, 1e-4);
    EXPECT_GT(matrix_field_of_view_x(m), 60.0);
    // a screen taller than 4:3 keeps the given angle across its width
    matrix_perspective_43(m, 60, 1, 100, 600, 800);
    EXPECT_FLOAT_EQ(m[0], (float)(1 / t));
    EXPECT_NEAR(matrix_field_of_view_43(m, 600, 800), 60.0, 1e-4);
    EXPECT_NEAR(matrix_field_of_view_x(m), 60.0, 1e-4);

    for (double angle : {20.0, 45.0, 75.0, 120.0}) {
        matrix_field_of_view(m, angle, w, h);
        EXPECT_NEAR(matrix_field_of_view_43(m, w, h), angle, 1e-4) << angle << " degrees";
    }
}

TEST(circles, segment_counts)
{
    const struct { double r, pixel; int n; } cases[] = {
        {100, 1, 50}, {0.1, 1, 1}, {0.01, 1, 1}, {0, 1, 1}, {1, 1, 5}, {50, 1, 35},
        {100, 0.5, 70}, {400, 1, 100}, {100, 4, 25},
    };
    for (const auto &c : cases)
        EXPECT_EQ(circle_segments(c.r, c.pixel), c.n) << "r " << c.r << ", pixel " << c.pixel;
    // arcs: |a1 - a0| x 0.8 x sqrt(r in pixels), at least 1
    EXPECT_EQ(std::make_tuple(arc_segments(M_PI, 100, 1), arc_segments(-M_PI, 100, 1), arc_segments(0.01, 100, 1),
                              arc_segments(2 * M_PI, 25, 1)),
              std::make_tuple(25, 25, 1, 25));
}

TEST(circles, culling_of_discs_and_outlines)
{
    const int w = 1920, h = 1080;
    const struct { const char *what; double x, y, r; int disc, outline; } cases[] = {
        {"on screen", 500, 500, 50, 1, 1},
        {"left of the screen", -200, 50, 100, 0, 0},
        {"touching the left edge", -100, 50, 100, 1, 1},
        {"right of the screen", 2100, 50, 100, 0, 0},
        {"above", 500, -101, 100, 0, 0},
        {"below", 500, 1181, 100, 0, 0},
        {"huge, containing the screen", 960, 540, 5000, 1, 0},
        {"huge, outline crossing the screen", -4000, 540, 4500, 1, 1},
        {"huge, off centre, containing the screen", 960, -3000, 8000, 1, 0},
        {"huge, outline passing just beyond a corner", -4000, -3000, 7200, 1, 1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(circle_on_screen(c.x, c.y, c.r, w, h), c.disc) << c.what;
        EXPECT_EQ(outline_on_screen(c.x, c.y, c.r, w, h), c.outline) << c.what;
    }
}
