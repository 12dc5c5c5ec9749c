// The program's drawing on a real GL context (run under Xvfb), read back from the back
// buffer: the beam pipe, dots, glow sprites, the highlight ring, the scraper chord, the
// luminosity bar and line, and the identity of the vertex-array passes with immediate mode.
#include "app_window.h"

#include "Morvane/random.h"
#include "fentra/beam.h"
#include "fentra/beam_view.h"
#include "fentra/hud.h"

#include <cmath>
#include <map>
#include <vector>

static const int W = 800, H = 600;

struct render_environment : testing::Environment {
    void SetUp() override { open_app_window(W, H, "app render test"); }
};
static testing::Environment *const environment =
    testing::AddGlobalTestEnvironment(new render_environment);

struct Render : testing::Test {
    void SetUp() override
    {
        unsigned texture = sim.glow_texture;
        reset_simulation_state();
        sim.glow_texture = texture;
        clear_to_black();
    }
};

static int red(unsigned c) { return (int)(c >> 16); }
static int green(unsigned c) { return (int)((c >> 8) & 255); }
static int blue(unsigned c) { return (int)(c & 255); }

static void place_particle(int i, double x, double y, double xp, double yp, double p)
{
    beam_x[i] = x;
    beam_y[i] = y;
    beam_xp[i] = xp;
    beam_yp[i] = yp;
    beam_momentum[i] = p;
}

// ---- Beam pipe ----------------------------------------------------------------------------------

TEST_F(Render, BeamPipeDiscAndWallAtTheApertureRadius)
{
    struct pipe_case {
        const char *name;
        bool graphs;
        int cx, cy;
        double radius;   // 0.07 m in pixels
    } cases[] = {
        {"without graphs", false, 400, 300, 0.07 * 600 / 0.15},         // 280 pixels
        {"with graphs: higher and smaller", true, 400, 216, 0.07 * 600 / 0.225},  // 186.7
    };
    for (const pipe_case &c : cases) {
        clear_to_black();
        view_geometry v = compute_view_geometry(W, H, c.graphs);
        ASSERT_EQ(v.centre_x, c.cx) << c.name;
        ASSERT_EQ(v.centre_y, c.cy) << c.name;
        draw_beam_pipe(v.centre_x, v.centre_y, v.pixels_per_metre);
        const double R = c.radius;
        EXPECT_LE(red(pixel_at(c.cx, c.cy)), 2) << c.name << ": black at the axis";
        // Four directions: inside the wall dark grey shading up to 0.15, on the wall mid-grey,
        // outside black.
        const int dirs[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
        for (const auto &d : dirs) {
            auto at = [&](double r) {
                return pixel_at(c.cx + (int)lround(d[0] * r), c.cy + (int)lround(d[1] * r));
            };
            unsigned inside = at(R - 6), wall = at(R + 0.01 * R), outside = at(R * 1.02 + 4);
            unsigned half = at(R / 2);
            EXPECT_TRUE(red(inside) == green(inside) && green(inside) == blue(inside)) << c.name;
            EXPECT_NEAR(red(inside), 0.15 * 255 * (R - 6) / R, 2.5) << c.name << " inside the wall";
            EXPECT_NEAR(red(half), 0.15 * 255 / 2, 2.5) << c.name << " half way";
            EXPECT_TRUE(wall == 0x7F7F7F || wall == 0x808080) << c.name << ": wall " << std::hex << wall;
            EXPECT_EQ(outside, 0u) << c.name << ": outside the wall";
        }
        // The other case's wall radius is not grey here.
        double other = c.graphs ? 0.07 * 600 / 0.15 : 0.07 * 600 / 0.225;
        unsigned p = pixel_at(c.cx + (int)(other * 1.01), c.cy);
        EXPECT_FALSE(p == 0x7F7F7F || p == 0x808080) << c.name;
    }
}

// ---- Magnet pole pictures ----------------------------------------------------------------------

TEST_F(Render, PolePicturesWithTheirFacesAndLetters)
{
    // 4000 pixels a metre: the pipe radius f is 280 pixels, the faces lie between 1.03 f and
    // 1.06 f (288.4 .. 296.8), the bodies from there to 3 f. y grows downwards, so the pole
    // at 45 degrees is the lower right one.
    const unsigned north = 0xFF3333, south = 0x3399FF, body = 0x333333;
    view_geometry v = compute_view_geometry(W, H, false);
    auto face = [](double degrees) {
        double a = degrees * M_PI / 180;
        return pixel_at(400 + (int)lround(292 * cos(a)), 300 + (int)lround(292 * sin(a)));
    };
    struct pole_case {
        const char *name;
        int n;
        double s;
        double at[4];          // angles of the pole centres checked, degrees
        unsigned colour[4];
        int checked;
    } cases[] = {
        // The first pole drawn (k = n - 1) is S for s > 0; k = 3 sits at 315 degrees.
        {"focusing quadrupole", 4, 2, {315, 225, 135, 45}, {south, north, south, north}, 4},
        {"defocusing quadrupole", 4, -2, {315, 225, 135, 45}, {north, south, north, south}, 4},
        {"steering dipole", 2, 1.0 / 30, {270, 90}, {south, north}, 2},
        {"sextupole", 6, 30, {330, 270, 210, 150}, {south, north, south, north}, 4},
    };
    for (const pole_case &c : cases) {
        clear_to_black();
        draw_magnet_poles(v, c.n, c.s);
        for (int k = 0; k < c.checked; k++)
            EXPECT_EQ(face(c.at[k]), c.colour[k]) << c.name << " at " << c.at[k];
        // Each pole covers two thirds of its sector: the middle between two poles is empty.
        EXPECT_EQ(face(c.at[0] + 180.0 / c.n), 0u) << c.name << ": gap between poles";
    }
    // The body in dark grey, and the letters in white just outside the faces.
    clear_to_black();
    draw_magnet_poles(v, 4, 2);
    double a = 25 * M_PI / 180;
    EXPECT_EQ(pixel_at(400 + (int)(330 * cos(a)), 300 + (int)(330 * sin(a))), body);
    EXPECT_EQ(pixel_at(400 + 200, 300 + 200), 0u) << "inside the pipe";
    int white = 0;
    for (int y = 505; y < 545; y++)
        for (int x = 600; x < 640; x++) white += pixel_at(x, y) == 0xFFFFFFu;
    EXPECT_GT(white, 10) << "the letter of the lower right pole";
}

// ---- Particles ----------------------------------------------------------------------------------

TEST_F(Render, DotsAreWhiteWithoutSpreadAndColouredByMomentumWithIt)
{
    const double S = 4000;
    // Pixel centres: x = 20.5 / S puts a particle at pixel column cx + 20.
    place_particle(0, 20.5 / S, 10.5 / S, 0, 0, 1.0);
    place_particle(1, -30.5 / S, -40.5 / S, 0, 0, 0.9);
    place_particle(2, 60.5 / S, 0.5 / S, 0, 0, 1.1);
    beam_frame plain = {400, 300, S, 0.0, 0.0};
    draw_beam_particles(plain, 3, 0, sim.glow_texture);
    EXPECT_EQ(pixel_at(420, 310), 0xFFFFFFu);
    EXPECT_EQ(pixel_at(369, 259), 0xFFFFFFu);
    EXPECT_EQ(pixel_at(460, 300), 0xFFFFFFu);
    EXPECT_EQ(pixel_at(421, 310), 0u) << "one pixel each";
    EXPECT_EQ(pixel_at(420, 311), 0u);

    clear_to_black();
    beam_frame spread = {400, 300, S, 0.0, 0.15};
    draw_beam_particles(spread, 3, 0, sim.glow_texture);
    EXPECT_EQ(pixel_at(420, 310), 0x00FF00u) << "p = 1.0 is pure green";
    EXPECT_EQ(pixel_at(369, 259), momentum_colour(0.9, 0.15));
    EXPECT_EQ(pixel_at(460, 300), momentum_colour(1.1, 0.15));
}

TEST_F(Render, StreaksReachTwoStepsBack)
{
    const double S = 4000;
    // x' = 0.01, ds = 0.5: the streak runs 2 x 0.5 x 0.01 m = 40 pixels to the left.
    place_particle(0, 0.5 / S, 0.5 / S, 0.01, 0, 1.0);
    beam_frame f = {400, 300, S, 0.5, 0.0};
    draw_beam_particles(f, 1, 0, sim.glow_texture);
    EXPECT_EQ(pixel_at(400, 300), 0xFFFFFFu);
    EXPECT_EQ(pixel_at(380, 300), 0xFFFFFFu);
    EXPECT_EQ(pixel_at(362, 300), 0xFFFFFFu);
    EXPECT_EQ(pixel_at(355, 300), 0u);
    EXPECT_EQ(pixel_at(410, 300), 0u);
}

TEST_F(Render, GlowSpritesBrightenAdditivelyAndStayGrey)
{
    const double S = 4000;
    // On whole pixels each pixel centre samples one texel of the 32 x 32 glow.
    place_particle(0, 0, 0, 0, 0, 1.0);
    beam_frame f = {400, 300, S, 0.0, 0.0};
    draw_beam_particles(f, 1, 1, sim.glow_texture);
    EXPECT_EQ(pixel_at(400, 300), 0xFFFFFFu) << "the centre texel is white";
    // Six texels right of the centre on the axis: (0.05 / 0.375 - 0.05) x 0.5 x 255 = 10.6
    unsigned one = pixel_at(406, 300);
    EXPECT_EQ(one, 0x0A0A0Au);
    EXPECT_EQ(pixel_at(400 + 17, 300), 0u) << "the sprite is 32 pixels wide";
    EXPECT_EQ(pixel_at(400, 300 - 17), 0u);

    clear_to_black();
    place_particle(1, 0, 0, 0, 0, 1.0);
    draw_beam_particles(f, 2, 1, sim.glow_texture);
    unsigned two = pixel_at(406, 300);
    // Screen blending: a + b (1 - a).
    double a = red(one) / 255.0;
    EXPECT_NEAR(red(two), 255 * (a + a * (1 - a)), 1.0);
    EXPECT_EQ(red(two), green(two));
    EXPECT_EQ(red(two), blue(two));

    clear_to_black();
    for (int i = 0; i < 100; i++) place_particle(i, 0, 0, 0, 0, 1.0);
    draw_beam_particles(f, 100, 1, sim.glow_texture);
    unsigned many = pixel_at(406, 300);
    EXPECT_GT(red(many), 3 * red(two)) << "a hundred glows brighten towards white";
    EXPECT_EQ(pixel_at(400, 300), 0xFFFFFFu) << "and white stays white";

    clear_to_black();
    beam_frame coloured = {400, 300, S, 0.0, 0.15};
    draw_beam_particles(coloured, 1, 1, sim.glow_texture);
    EXPECT_EQ(pixel_at(400, 300), 0x00FF00u) << "p = 1 tints the glow green";
    EXPECT_EQ(pixel_at(406, 300), 0x000A00u);
}

TEST_F(Render, HighlightRingRoundTheMiddleOfTheStreak)
{
    const double S = 4000, ds = 0.25;
    // Particle 0 at pixel (440.5, 300.5) with x' 0.02: the streak's middle is ds x' S = 20
    // pixels back, at (420.5, 300.5).
    place_particle(0, 40.5 / S, 0.5 / S, 0.02, 0, 1.0);
    beam_frame f = {400, 300, S, ds, 0.0};
    draw_particle_highlight(f);
    EXPECT_EQ(pixel_at(425, 300), 0xFF00FFu) << "angle 0: 5 pixels to the right";
    EXPECT_EQ(pixel_at(420, 305), 0xFF00FFu) << "angle 1.6: just left of straight below";
    EXPECT_EQ(pixel_at(415, 300), 0xFF00FFu) << "angle 3.1";
    EXPECT_EQ(pixel_at(420, 295), 0xFF00FFu) << "angle 4.7";
    EXPECT_EQ(pixel_at(420, 300), 0u) << "the centre is not marked";
    EXPECT_EQ(pixel_at(445, 300), 0u) << "not round the particle itself";
    int marked = 0;
    for (int y = 290; y <= 310; y++)
        for (int x = 410; x <= 430; x++) marked += pixel_at(x, y) == 0xFF00FFu;
    EXPECT_GE(marked, 25);
    EXPECT_LE(marked, 63);
}

TEST_F(Render, ScraperChordAcrossTheAperture)
{
    view_geometry v = compute_view_geometry(W, H, false);   // 4000 pixels a metre
    sim.scraper_x = 0.042;   // x = 400 + 168; half chord sqrt(0.0049 - 0.042^2) = 0.056 m
    draw_scraper(v);
    auto scraper_at = [](int y) {
        return pixel_at(567, y) == 0x800000u || pixel_at(568, y) == 0x800000u;
    };
    EXPECT_TRUE(scraper_at(300));
    EXPECT_TRUE(scraper_at(300 - 220));
    EXPECT_TRUE(scraper_at(300 + 220));
    EXPECT_FALSE(scraper_at(300 - 230)) << "the chord ends at the pipe";
    EXPECT_FALSE(scraper_at(300 + 230));
    EXPECT_EQ(pixel_at(560, 300), 0u);
}

// ---- Luminosity ---------------------------------------------------------------------------------

TEST_F(Render, LuminosityBarHeightAndPeakOutline)
{
    const unsigned colour = 0xFFFF80;
    // L = 1.875e33 is half of 3.75e33: the bar reaches half the height, y = 300.
    draw_luminosity_bar(W, H, 1.875e33, 3e33, colour);
    EXPECT_EQ(pixel_at(770, 599), colour);
    EXPECT_EQ(pixel_at(770, 302), colour);
    EXPECT_EQ(pixel_at(770, 297), 0u);
    // The bar spans 0.94 W = 752 to 0.99 W = 792; the peak's blue outline runs up its left
    // side and one pixel inside its right edge.
    EXPECT_EQ(pixel_at(749, 450), 0u);
    EXPECT_EQ(pixel_at(753, 450), colour);
    EXPECT_EQ(pixel_at(789, 450), colour);
    EXPECT_EQ(pixel_at(794, 450), 0u);
    EXPECT_TRUE(pixel_at(751, 450) == 0x0000FFu || pixel_at(752, 450) == 0x0000FFu);
    EXPECT_TRUE(pixel_at(790, 450) == 0x0000FFu || pixel_at(791, 450) == 0x0000FFu);
    EXPECT_EQ(pixel_at(791, 250), 0u) << "the peak's right side is 0.99 W - 1";
    // Peak 3e33: the outline's top at 601 - 480 = 121.
    bool top = false;
    for (int y = 119; y <= 122; y++) top |= pixel_at(770, y) == 0x0000FFu;
    EXPECT_TRUE(top);
    EXPECT_EQ(pixel_at(770, 110), 0u);
    bool side = false;
    for (int x = 751; x <= 753; x++) side |= pixel_at(x, 200) == 0x0000FFu;
    EXPECT_TRUE(side) << "the outline's left side above the bar";
}

TEST_F(Render, LuminosityLineColourFollowsTheExponent)
{
    struct exponent_case {
        double L;
        unsigned colour;
    } cases[] = {{5e30, 0x808000}, {5e31, 0xC0C000}, {5e32, 0xFFF000}, {5e33, 0xFFFF80},
                 {5e34, 0xFFFFFF}};
    for (const exponent_case &c : cases) {
        clear_to_black();
        sim.particle_count = 10000;
        sim.peak_luminosity = 1e-6;
        // L = 3e27 / <x^2> for equal mean squares over 10000 particles.
        double mean_square = 3e27 / c.L;
        track_sums sums = {mean_square * 10000, mean_square * 10000};
        double L = draw_text_overlay(sums);
        EXPECT_NEAR(L, c.L, c.L * 1e-9);
        EXPECT_EQ(sim.peak_luminosity, L);
        // The brightest colour of the line's left part (3W/4 = 600 .. 740, rows 50 .. 65) is
        // where a glyph's white texel is sampled whole: the line's own colour.
        std::map<unsigned, int> seen;
        for (int y = 50; y < 66; y++)
            for (int x = 600; x < 740; x++) {
                unsigned p = pixel_at(x, y);
                if (p) seen[p]++;
            }
        unsigned brightest = 0;
        for (const auto &s : seen)
            if (red(s.first) + green(s.first) + blue(s.first) >
                red(brightest) + green(brightest) + blue(brightest))
                brightest = s.first;
        EXPECT_EQ(brightest, c.colour) << "L = " << c.L;
        EXPECT_GT(seen[c.colour], 30) << "L = " << c.L;
        // The peak line below it in blue.
        int blue_pixels = 0;
        for (int y = 74; y < 90; y++)
            for (int x = 600; x < 700; x++) blue_pixels += pixel_at(x, y) == 0x0000FFu;
        EXPECT_GT(blue_pixels, 30) << "L = " << c.L;
        growarray_clear(&sim.spark_list);
    }
}

TEST_F(Render, NoBeamLossTextWithAFullBeamAndRedTextAfterALoss)
{
    auto red_pixels = [] {
        int n = 0;
        // "BEAM LOSS" at (3W/4, 3 h + 50) with h = 16 at double scale: rows 98 .. 113.
        for (int y = 98; y < 114; y++)
            for (int x = 600; x < 740; x++) n += pixel_at(x, y) == 0xFF0000u;
        return n;
    };
    track_sums sums = {0.5, 0.5};
    sim.particle_count = 10000;
    draw_text_overlay(sums);
    EXPECT_EQ(red_pixels(), 0);
    clear_to_black();
    sim.particle_count = 9999;
    draw_text_overlay(sums);
    EXPECT_GT(red_pixels(), 30);
}

// ---- Vertex arrays against immediate mode -----------------------------------------------------

static void set_rgb(unsigned c) { glColor3ub((GLubyte)(c >> 16), (GLubyte)(c >> 8), (GLubyte)c); }

// The beam as one glBegin/glEnd batch a pass, straight from the drawing rules.
static void draw_beam_immediate(const beam_frame &f, int n, int luminous, unsigned texture)
{
    const double S = f.pixels_per_metre, ds = f.step_length, s = f.momentum_spread;
    const double cx = f.centre_x, cy = f.centre_y;
    glBegin(GL_LINES);
    for (int i = n - 1; i >= 0; i--) {
        set_rgb(s > 0 ? momentum_colour(beam_momentum[i], s) : 0xFFFFFF);
        glVertex2d(cx + beam_x[i] * S, cy + beam_y[i] * S);
        glVertex2d(cx + (beam_x[i] - 2 * ds * beam_xp[i]) * S,
                   cy + (beam_y[i] - 2 * ds * beam_yp[i]) * S);
    }
    glEnd();
    glColor3f(1, 1, 1);
    if (!luminous) {
        glBegin(GL_POINTS);
        for (int i = n - 1; i >= 0; i--) {
            if (s > 0) set_rgb(momentum_colour(beam_momentum[i], s));
            glVertex2d(cx + beam_x[i] * S, cy + beam_y[i] * S);
        }
        glEnd();
        return;
    }
    glEnable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, texture);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_COLOR);
    glBegin(GL_QUADS);
    for (int i = n - 1; i >= 0; i--) {
        if (s > 0) set_rgb(momentum_colour(beam_momentum[i], s));
        double px = cx + beam_x[i] * S, py = cy + beam_y[i] * S;
        glTexCoord2f(0, 0);
        glVertex2f(px - 16, py - 16);
        glTexCoord2f(0, 1);
        glVertex2f(px - 16, py + 16);
        glTexCoord2f(1, 1);
        glVertex2f(px + 16, py + 16);
        glTexCoord2f(1, 0);
        glVertex2f(px + 16, py - 16);
    }
    glEnd();
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_BLEND);
}

static std::vector<unsigned char> read_screen()
{
    std::vector<unsigned char> rgb((size_t)W * H * 3);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, W, H, GL_RGB, GL_UNSIGNED_BYTE, rgb.data());
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    return rgb;
}

TEST_F(Render, VertexArraysDrawTheSamePixelsAsImmediateMode)
{
    struct identity_case {
        const char *name;
        int kind;
        double spread;
        int luminous;
        int count;
    } cases[] = {
        {"dots, no spread", beam_gaussian, 0.0, 0, 10000},
        {"dots, momentum colours", beam_waterbag, 0.15, 0, 10000},
        {"glow sprites, white", beam_game, 0.0, 1, 3000},
        {"glow sprites, momentum colours", beam_kv, 0.15, 1, 3000},
    };
    for (const identity_case &c : cases) {
        random15_restart();
        sim.momentum_spread = c.spread;
        make_beam(c.kind);
        // Streaks of a few pixels, at a scale that puts the beam over most of the window.
        beam_frame f = {W / 2, H / 2, 4000.0, 0.137, c.spread};
        clear_to_black();
        draw_beam_immediate(f, c.count, c.luminous, sim.glow_texture);
        std::vector<unsigned char> expected = read_screen();
        clear_to_black();
        draw_beam_particles(f, c.count, c.luminous, sim.glow_texture);
        std::vector<unsigned char> drawn = read_screen();
        size_t differing = 0, lit = 0;
        for (size_t k = 0; k < drawn.size(); k++) {
            differing += drawn[k] != expected[k];
            lit += expected[k] != 0;
        }
        EXPECT_EQ(differing, 0u) << c.name;
        EXPECT_GT(lit, 20000u) << c.name << ": the beam is there";
    }
}
