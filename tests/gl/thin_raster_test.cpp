// The CPU's thin points and lines against Mesa's GL, pixel for pixel: random segments of every
// direction and length, and points on and off the pixel grid.
#include "gl_fixture.h"
#include "Morvane/gfx_opengl/web/thin_raster.h"
#include "../web/window_coordinates.h"

#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

static testing::Environment *const environment = testing::AddGlobalTestEnvironment(new views_gl::window(640, 480));

static const int W = 640, H = 480, CELL = 40;
static const unsigned char white[4] = {255, 255, 255, 255};

// A position inside a cell: any float, or on the 1/256 grid, or (on_grid) also on whole
// pixels, halves and quarters.
static float place(std::mt19937 &rng, float base, float span, bool on_grid = false)
{
    float v = base + std::uniform_real_distribution<float>(0, span)(rng);
    switch (rng() % (on_grid ? 5 : 2)) {
    case 0: return v;
    case 1: return std::floor(v * 256) / 256;
    case 2: return std::floor(v);
    case 3: return std::floor(v) + 0.5f;
    default: return std::floor(v * 4) / 4;
    }
}

// Pixels where GL and the CPU differ; both pictures are W x H, rows from the bottom.
static int differing(const std::vector<unsigned char> &gl_rgb, const thin_raster &r)
{
    int n = 0;
    for (int i = 0; i < W * H; i++) n += (gl_rgb[(size_t)i * 3] != 0) != (r.rgba[(size_t)i * 4 + 3] != 0);
    return n;
}

static std::vector<unsigned char> gl_rows_from_bottom()
{
    std::vector<unsigned char> rgb((size_t)W * H * 3);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadBuffer(GL_BACK);
    glReadPixels(0, 0, W, H, GL_RGB, GL_UNSIGNED_BYTE, rgb.data());
    return rgb;
}

static void fresh_picture()
{
    window_coordinates(W, H);
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
    glColor3ub(255, 255, 255);
}

TEST(thin_raster, lines_light_the_pixels_gl_lights)
{
    std::mt19937 rng(7);
    int total = 0, lit = 0;
    for (int round = 0; round < 6; round++) {
        fresh_picture();
        thin_raster r = {};
        thin_raster_resize(&r, W, H);
        glBegin(GL_LINES);
        for (int cy = 0; cy + CELL <= H; cy += CELL)
            for (int cx = 0; cx + CELL <= W; cx += CELL) {
                float span = round < 2 ? 4.0f : CELL - 4.0f;   // short streaks, then long lines
                float ax = place(rng, cx + 2, span), ay = place(rng, cy + 2, span);
                float bx = place(rng, cx + 2, span), by = place(rng, cy + 2, span);
                glVertex2f(ax, ay), glVertex2f(bx, by);
                thin_raster_line(&r, ax, ay, bx, by, white);
            }
        glEnd();
        std::vector<unsigned char> rgb = gl_rows_from_bottom();
        total += differing(rgb, r);
        for (int i = 0; i < W * H; i++) lit += rgb[(size_t)i * 3] != 0;
        thin_raster_erase(&r);
        EXPECT_EQ(std::count(r.rgba, r.rgba + (size_t)W * H * 4, 0), (long)W * H * 4) << "erased";
        thin_raster_release(&r);
    }
    // Mesa decides an end that falls within 1/256 pixel of a diamond's edge by its own fixed
    // point: about one pixel in 1,000 goes the other way (14 of 13,555 here).
    EXPECT_GT(lit, 5000);
    EXPECT_LE(total * 200, lit) << total << " of " << lit << " pixels differ";
}

TEST(thin_raster, points_light_the_pixel_that_holds_them_and_stay_in_the_clip)
{
    std::mt19937 rng(11);
    fresh_picture();
    thin_raster r = {};
    thin_raster_resize(&r, W, H);
    glBegin(GL_POINTS);
    for (int i = 0; i < 4000; i++) {
        float x = place(rng, -2, W + 4, true), y = place(rng, -2, H + 4, true);
        glVertex2f(x, y);
        thin_raster_point(&r, x, y, white);
    }
    glEnd();
    EXPECT_EQ(differing(gl_rows_from_bottom(), r), 0);
    // The box holds every drawn pixel, and each band's span holds its band's drawn pixels
    // with a drawn pixel in its first and last column; erasing leaves none.
    int outside = 0, drawn = 0, loose_ends = 0;
    std::vector<int> first(H / BAND_ROWS, W), last(H / BAND_ROWS, -1);
    for (int y = 0; y < H; y++)
        for (int x = 0; x < W; x++)
            if (r.rgba[((size_t)y * W + x) * 4 + 3]) {
                drawn++;
                outside += x < r.box[0] || y < r.box[1] || x >= r.box[2] || y >= r.box[3];
                first[y / BAND_ROWS] = std::min(first[y / BAND_ROWS], x);
                last[y / BAND_ROWS] = std::max(last[y / BAND_ROWS], x);
            }
    for (int band = 0; band < H / BAND_ROWS; band++) {
        const int *span = r.band_x + 2 * band;
        int x0 = span[1] > span[0] ? span[0] : W, x1 = span[1] > span[0] ? span[1] - 1 : -1;
        loose_ends += x0 != first[band] || x1 != last[band];
    }
    EXPECT_GT(drawn, 3000);
    EXPECT_EQ(outside, 0);
    EXPECT_EQ(loose_ends, 0);
    thin_raster_erase(&r);
    for (size_t i = 0; i < (size_t)W * H * 4; i++) ASSERT_EQ(r.rgba[i], 0);
    for (int band = 0; band < H / BAND_ROWS; band++) ASSERT_LE(r.band_x[2 * band + 1], r.band_x[2 * band]);
    // A clip keeps the picture outside it undrawn.
    r.clip[0] = 100, r.clip[1] = 50, r.clip[2] = 101, r.clip[3] = 51;
    thin_raster_line(&r, 0.5f, 50.5f, 600.5f, 50.5f, white);
    thin_raster_point(&r, 300.5f, 50.5f, white);
    EXPECT_EQ(std::vector<int>(r.box, r.box + 4), (std::vector<int>{100, 50, 101, 51}));
    thin_raster_release(&r);
}

// Lines along a row or column of pixel edges, and diagonals through pixel corners: GL lights
// one side of the edge, the same side for every line.
TEST(thin_raster, lines_on_pixel_edges_light_the_side_gl_lights)
{
    fresh_picture();
    thin_raster r = {};
    thin_raster_resize(&r, W, H);
    const float lines[][4] = {
        {170, 10.5f, 170, 50.5f}, {180, 50.5f, 180, 10.5f}, {10.5f, 100, 60.5f, 100}, {60.5f, 110, 10.5f, 110},
        {200, 200, 240, 240}, {300, 240, 260, 200}, {400, 100, 440, 60}, {500.25f, 300, 500.25f, 340},
    };
    glBegin(GL_LINES);
    for (const auto &l : lines) {
        glVertex2f(l[0], l[1]), glVertex2f(l[2], l[3]);
        thin_raster_line(&r, l[0], l[1], l[2], l[3], white);
    }
    glEnd();
    EXPECT_EQ(differing(gl_rows_from_bottom(), r), 0);
    thin_raster_release(&r);
}
