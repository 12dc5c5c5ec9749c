// The program's drawing on a real GL context (run under Xvfb), read back from the back
// buffer: the beam pipe, dots, glow sprites, the highlight ring, the scraper chord, the
// luminosity bar and line, and the identity of the vertex-array passes with immediate mode.
#include "gl_fixture.h"

#include "Morvane/random.h"
#include "fentra/physics/beam.h"
#include "fentra/views/beam_view.h"
#include "fentra/views/hud.h"

#include <cmath>
#include <map>
#include <vector>

static const int W = 800, H = 600;

static testing::Environment *const environment =
    testing::AddGlobalTestEnvironment(new app_window_environment(W, H, "app render test"));

struct Render : testing::Test {
    void SetUp() override
    {
        reset_state_keeping_glow();
        clear_to_black();
    }
};

static int red(unsigned c) { return (int)(c >> 16); }
static int green(unsigned c) { return (int)((c >> 8) & 255); }
static int blue(unsigned c) { return (int)(c & 255); }

static void place_particle(int i, double x, double y, double xp, double yp, double p)
{
    beam_x[i] = x, beam_y[i] = y, beam_xp[i] = xp, beam_yp[i] = yp, beam_momentum[i] = p;
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
    EXPECT_GT(pixels_of(0xFFFFFF, 600, 505, 639, 544), 10) << "the letter of the lower right pole";
}

// ---- Particles ----------------------------------------------------------------------------------

TEST_F(Render, DotsAreWhiteWithoutSpreadAndColouredByMomentumWithIt)
{
    const double S = 4000;
    // Pixel centres: x = 20.5 / S puts a particle at pixel column cx + 20.
    place_particle(0, 20.5 / S, 10.5 / S, 0, 0, 1.0);
    place_particle(1, -30.5 / S, -40.5 / S, 0, 0, 0.9);
    place_particle(2, 60.5 / S, 0.5 / S, 0, 0, 1.1);
    draw_beam_particles(beam_frame{400, 300, S, 0.0, 0.0}, 3, 0, sim.glow_texture);
    expect_pixels({{420, 310, 0xFFFFFF}, {369, 259, 0xFFFFFF}, {460, 300, 0xFFFFFF},
                   {421, 310, 0, "one pixel each"}, {420, 311, 0}});
    clear_to_black();
    draw_beam_particles(beam_frame{400, 300, S, 0.0, 0.15}, 3, 0, sim.glow_texture);
    expect_pixels({{420, 310, 0x00FF00, "p = 1.0 is pure green"}, {369, 259, momentum_colour(0.9, 0.15)},
                   {460, 300, momentum_colour(1.1, 0.15)}});
}

TEST_F(Render, StreaksReachTwoStepsBack)
{
    const double S = 4000;
    // x' = 0.01, ds = 0.5: the streak runs 2 x 0.5 x 0.01 m = 40 pixels to the left.
    place_particle(0, 0.5 / S, 0.5 / S, 0.01, 0, 1.0);
    draw_beam_particles(beam_frame{400, 300, S, 0.5, 0.0}, 1, 0, sim.glow_texture);
    expect_pixels({{400, 300, 0xFFFFFF}, {380, 300, 0xFFFFFF}, {362, 300, 0xFFFFFF}, {355, 300, 0}, {410, 300, 0}});
}

TEST_F(Render, GlowSpritesBrightenAdditivelyAndStayGrey)
{
    const double S = 4000;
    // On whole pixels each pixel centre samples one texel of the 32 x 32 glow.
    place_particle(0, 0, 0, 0, 0, 1.0);
    beam_frame f = {400, 300, S, 0.0, 0.0};
    draw_beam_particles(f, 1, 1, sim.glow_texture);
    // Six texels right of the centre on the axis: (0.05 / 0.375 - 0.05) x 0.5 x 255 = 10.6
    expect_pixels({{400, 300, 0xFFFFFF, "the centre texel is white"}, {406, 300, 0x0A0A0A},
                   {417, 300, 0, "the sprite is 32 pixels wide"}, {400, 283, 0}});
    unsigned one = pixel_at(406, 300);

    clear_to_black();
    place_particle(1, 0, 0, 0, 0, 1.0);
    draw_beam_particles(f, 2, 1, sim.glow_texture);
    unsigned two = pixel_at(406, 300);
    // Screen blending: a + b (1 - a).
    double a = red(one) / 255.0;
    EXPECT_NEAR(red(two), 255 * (a + a * (1 - a)), 1.0);
    EXPECT_TRUE(red(two) == green(two) && red(two) == blue(two));

    clear_to_black();
    for (int i = 0; i < 100; i++) place_particle(i, 0, 0, 0, 0, 1.0);
    draw_beam_particles(f, 100, 1, sim.glow_texture);
    EXPECT_GT(red(pixel_at(406, 300)), 3 * red(two)) << "a hundred glows brighten towards white";
    expect_pixels({{400, 300, 0xFFFFFF, "and white stays white"}});

    clear_to_black();
    draw_beam_particles(beam_frame{400, 300, S, 0.0, 0.15}, 1, 1, sim.glow_texture);
    expect_pixels({{400, 300, 0x00FF00, "p = 1 tints the glow green"}, {406, 300, 0x000A00}});
}

TEST_F(Render, HighlightRingRoundTheMiddleOfTheStreak)
{
    const double S = 4000, ds = 0.25;
    // Particle 0 at pixel (440.5, 300.5) with x' 0.02: the streak's middle is ds x' S = 20
    // pixels back, at (420.5, 300.5).
    place_particle(0, 40.5 / S, 0.5 / S, 0.02, 0, 1.0);
    draw_particle_highlight(beam_frame{400, 300, S, ds, 0.0});
    expect_pixels({{425, 300, 0xFF00FF, "angle 0: 5 pixels to the right"},
                   {420, 305, 0xFF00FF, "angle 1.6: just left of straight below"},
                   {415, 300, 0xFF00FF, "angle 3.1"}, {420, 295, 0xFF00FF, "angle 4.7"},
                   {420, 300, 0, "the centre is not marked"}, {445, 300, 0, "not round the particle itself"}});
    int marked = pixels_of(0xFF00FF, 410, 290, 430, 310);
    EXPECT_GE(marked, 25);
    EXPECT_LE(marked, 63);
}

TEST_F(Render, ScraperChordAcrossTheAperture)
{
    view_geometry v = compute_view_geometry(W, H, false);   // 4000 pixels a metre
    sim.scraper_x = 0.042;   // x = 400 + 168; half chord sqrt(0.0049 - 0.042^2) = 0.056 m
    draw_scraper(v);
    for (int y : {300 - 220, 300, 300 + 220}) EXPECT_GT(pixels_of(0x800000, 567, y, 568, y), 0) << "y " << y;
    for (int y : {300 - 230, 300 + 230}) EXPECT_EQ(pixels_of(0x800000, 567, y, 568, y), 0) << "the chord ends at the pipe";
    EXPECT_EQ(pixel_at(560, 300), 0u);
}

// ---- Luminosity ---------------------------------------------------------------------------------

TEST_F(Render, LuminosityBarHeightAndPeakOutline)
{
    const unsigned colour = 0xFFFF80, blue = 0x0000FF;
    // L = 1.875e33 is half of 3.75e33: the bar reaches half the height, y = 300. The bar spans
    // 0.94 W = 752 to 0.99 W = 792; the peak's blue outline runs up its left side and one pixel
    // inside its right edge.
    draw_luminosity_bar(W, H, 1.875e33, 3e33, colour);
    expect_pixels({{770, 599, colour}, {770, 302, colour}, {770, 297, 0}, {749, 450, 0}, {753, 450, colour},
                   {789, 450, colour}, {794, 450, 0}, {791, 250, 0, "the peak's right side is 0.99 W - 1"},
                   {770, 110, 0}});
    EXPECT_GT(pixels_of(blue, 751, 450, 752, 450), 0);
    EXPECT_GT(pixels_of(blue, 790, 450, 791, 450), 0);
    EXPECT_GT(pixels_of(blue, 770, 119, 770, 122), 0) << "peak 3e33: the outline's top at 601 - 480 = 121";
    EXPECT_GT(pixels_of(blue, 751, 200, 753, 200), 0) << "the outline's left side above the bar";
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
        EXPECT_GT(pixels_of(0x0000FF, 600, 74, 699, 89), 30) << "L = " << c.L << ": the peak line below it in blue";
        growarray_clear(&sim.spark_list);
    }
}

TEST_F(Render, NoBeamLossTextWithAFullBeamAndRedTextAfterALoss)
{
    // "BEAM LOSS" at (3W/4, 3 h + 50) with h = 16 at double scale: rows 98 .. 113.
    track_sums sums = {0.5, 0.5};
    sim.particle_count = 10000;
    draw_text_overlay(sums);
    EXPECT_EQ(pixels_of(0xFF0000, 600, 98, 739, 113), 0);
    clear_to_black();
    sim.particle_count = 9999;
    draw_text_overlay(sums);
    EXPECT_GT(pixels_of(0xFF0000, 600, 98, 739, 113), 30);
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
