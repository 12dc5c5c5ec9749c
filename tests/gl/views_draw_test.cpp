// The views drawn on a real GL context (run under Xvfb), pixels read back: the ring map in
// its four colours with the marker diamond at the anchor, the phase-space graphs (axes, dots,
// clipping, momentum colours, highlight rings, statistics text, R), the sparks, the title and
// goal text, and the help page.
#include "gl_fixture.h"

#include "fentra/views/beam_view.h"
#include "fentra/views/game.h"
#include "fentra/physics/lattice.h"
#include "fentra/views/phase_graphs.h"
#include "fentra/views/ring_view.h"
#include "fentra/physics/state.h"
#include "fentra/views/views.h"

#include "Morvane/clock.h"
#include "Morvane/random.h"

#include <cmath>
#include <cstring>
#include <tuple>

using namespace views_gl;

namespace {

const int W = 800, H = 600;
::testing::Environment *const gl_window = ::testing::AddGlobalTestEnvironment(new window(W, H));

bool grey_axis(rgb c) { return c == rgb{128, 128, 128}; }

const ring_colours colours = {0x800080, 0x800000, 0x008080, 0xFFFFFF};

void load_kora()
{
    write_builtin_lattice("views_draw_test_kora.txt");
    read_lattice("views_draw_test_kora.txt");
    remove("views_draw_test_kora.txt");
    reset_simulation_state();
}

} // namespace

// ---------------------------------------------------------------------------------------
// Ring map

TEST(ring_view_gl, the_map_uses_its_four_colours_and_the_marker_sits_at_the_anchor)
{
    load_kora();
    // Let the camera settle on a point in a drift (about 2 m into the seventh superperiod).
    ring_view_camera = {0, 0, 0};
    ring_walk walk;
    growarray_init(&walk.segments, sizeof(ring_segment), 16);
    for (int frame = 0; frame < 1500; frame++)
        walk_ring(&walk, &ring_view_camera, W, H, 100.0, 10, sim.superperiod_length, colours);
    growarray_free(&walk.segments);

    glEnable(GL_LINE_SMOOTH);   // the marker must be drawn plain all the same
    clear_screen();
    draw_ring_view(colours.orbit, colours.focusing, colours.defocusing, colours.marker, 100.0);
    EXPECT_TRUE(glIsEnabled(GL_LINE_SMOOTH)) << "line smoothing is put back as it was";
    glDisable(GL_LINE_SMOOTH);
    screen s = read_screen();

    // Only the four colours, no blended or smoothed shades, once the smoothing is off.
    clear_screen();
    draw_ring_view(colours.orbit, colours.focusing, colours.defocusing, colours.marker, 100.0);
    screen plain = read_screen();
    const rgb allowed[5] = {{0, 0, 0}, colour_of(colours.orbit), colour_of(colours.focusing),
                            colour_of(colours.defocusing), colour_of(colours.marker)};
    int counts[5] = {0, 0, 0, 0, 0};
    for (int y = 0; y < H; y++)
        for (int x = 0; x < W; x++) {
            rgb c = plain.at(x, y);
            int k = 0;
            while (k < 5 && !(c == allowed[k])) k++;
            ASSERT_LT(k, 5) << "pixel " << x << "," << y << " is " << c.r << " " << c.g << " " << c.b;
            counts[k]++;
        }
    // Both kinds of magnet, and the orbit of 163 m at 8 pixels a metre, of which the right
    // half of the ring is on screen with the anchor at (200.5, 200.5).
    EXPECT_GT(counts[1], 300);
    EXPECT_GT(counts[2], 200);
    EXPECT_GT(counts[3], 200);

    // The diamond round the anchor (200.5, 200.5): a bar of four pixels with bars of two
    // above and below, the zero-length tips drawing nothing.
    for (const screen *shot : {&s, &plain}) {
        int left = W, right = -1, top = H, bottom = -1, total = 0;
        for (int y = 190; y < 212; y++)
            for (int x = 190; x < 212; x++)
                if (shot->at(x, y) == rgb{255, 255, 255}) {
                    total++;
                    left = std::min(left, x), right = std::max(right, x);
                    top = std::min(top, y), bottom = std::max(bottom, y);
                }
        EXPECT_EQ(total, 8);
        EXPECT_EQ(right - left + 1, 4);
        EXPECT_EQ(bottom - top + 1, 3);
        EXPECT_GE(left, 197);
        EXPECT_LE(right, 202);
        EXPECT_EQ(shot->count(0, 0, W, H, [](rgb c) { return c == rgb{255, 255, 255}; }), 8)
            << "white is the marker's alone";
    }
}

// The map's line list from client arrays matches the same walk drawn one vertex call per end,
// pixel for pixel, with line smoothing on and off.
TEST(ring_view_gl, the_line_list_matches_immediate_mode_pixel_for_pixel)
{
    load_kora();
    for (bool smooth : {false, true}) {
        for (double position : {3.7, 57.25, 131.9}) {
            ring_view_camera = {12.5, -40.25, 0.3};
            ring_camera camera = ring_view_camera;
            ring_walk walk;
            growarray_init(&walk.segments, sizeof(ring_segment), 16);
            walk_ring(&walk, &camera, W, H, position, 10, sim.superperiod_length, colours);

            smooth ? glEnable(GL_LINE_SMOOTH) : glDisable(GL_LINE_SMOOTH);
            clear_screen();
            draw_ring_view(colours.orbit, colours.focusing, colours.defocusing, colours.marker,
                           position);
            screen arrays = read_screen();

            clear_screen();
            const ring_segment *seg = (const ring_segment *)walk.segments.data;
            glBegin(GL_LINES);
            for (unsigned i = 0; i < walk.segments.count; i++) {
                unsigned c = seg[i].colour;
                glColor3ub((GLubyte)(c >> 16), (GLubyte)(c >> 8), (GLubyte)c);
                glVertex2d(seg[i].x1, seg[i].y1);
                glVertex2d(seg[i].x2, seg[i].y2);
            }
            glEnd();
            screen immediate = read_screen();
            growarray_free(&walk.segments);
            glDisable(GL_LINE_SMOOTH);

            // The marker is drawn after the list: leave its 5 x 5 square out.
            int mx = (int)walk.marker_x, my = (int)walk.marker_y;
            int lit = 0;
            for (int yy = 0; yy < H; yy++)
                for (int xx = 0; xx < W; xx++) {
                    if (walk.marker_found && abs(xx - mx) <= 3 && abs(yy - my) <= 3) continue;
                    ASSERT_EQ(arrays.at(xx, yy), immediate.at(xx, yy))
                        << "smooth " << smooth << " position " << position << " pixel " << xx
                        << "," << yy;
                    if (!immediate.at(xx, yy).black()) lit++;
                }
            EXPECT_GT(lit, 1000) << "position " << position;
        }
    }
}

// ---------------------------------------------------------------------------------------
// Phase-space graphs

namespace {

// Left graph origin (133, 450), right (666, 450); 2000 pixels a metre, 4000 a radian.
const double S = 2000, A = 4000;
struct particle {
    double x, y, xp, yp, p;
};
const particle graph_beam[] = {
    // 0: left dot (153.3, 460.3), right dot (625.7, 439.7); highlighted
    {0.01015, -0.02015, -0.002575, 0.002575, 1.0},
    // 1: left dot past W/3 (273.3, 490.3) is not drawn; right dot (726.3, 490.3) is
    {0.07015, 0.03015, -0.010075, -0.010075, 1.0},
    // 2: angles put both dots above mid-screen: neither is drawn
    {-0.02015, 0.01015, 0.04, 0.04, 1.0},
};

void draw_graph_beam(double spread, bool highlight)
{
    double x[3], y[3], xp[3], yp[3], p[3];
    for (int i = 0; i < 3; i++) {
        x[i] = graph_beam[i].x, y[i] = graph_beam[i].y;
        xp[i] = graph_beam[i].xp, yp[i] = graph_beam[i].yp, p[i] = graph_beam[i].p;
    }
    clear_screen();
    draw_phase_graphs(x, y, xp, yp, p, 3, highlight, S, A, spread);
}

bool magenta(rgb c) { return c == rgb{255, 0, 255}; }

} // namespace

TEST(phase_graphs_gl, axes_dots_clipping_records_and_text)
{
    memset(key_state, 0, sizeof key_state);
    phase_records = {1, 1, 1, 1};
    selectfont("captionfont");
    BitmapFont *font = current_font;
    draw_graph_beam(0, false);
    EXPECT_EQ(current_font, font) << "the text is written in ncgismall and the font put back";
    EXPECT_EQ(phase_records.x, 1.0) << "records stay while R is up";
    screen s = read_screen();
    const rgb white = {255, 255, 255};
    EXPECT_EQ(s.at(153, 460), white) << "particle 0, left";
    EXPECT_EQ(s.at(625, 439), white) << "particle 0, right";
    EXPECT_TRUE(s.at(273, 490).black()) << "particle 1, left: past W/3";
    EXPECT_EQ(s.at(726, 490), white) << "particle 1, right";
    EXPECT_TRUE(s.at(92, 290).black()) << "particle 2, left: above mid-screen";
    EXPECT_TRUE(s.at(686, 290).black()) << "particle 2, right: above mid-screen";
    EXPECT_EQ(s.count(0, 0, W, 300, [](rgb c) { return !c.black(); }), 0)
        << "nothing is drawn above mid-screen";
    EXPECT_EQ(s.count(0, 300, W, H, magenta), 0) << "no highlight asked for";

    // Axes: grey, one pixel wide, over their stated spans.
    int row = s.at(10, 450) == rgb{128, 128, 128} ? 450 : 449;
    EXPECT_NEAR(s.count(0, row, 266, row + 1, grey_axis), 266, 1) << "left horizontal axis";
    EXPECT_EQ(s.count(266, row, 533, row + 1, grey_axis), 0) << "no axis between the graphs";
    EXPECT_NEAR(s.count(533, row, W, row + 1, grey_axis), W - 1 - 533, 1) << "right horizontal axis";
    int column = s.at(133, 350) == rgb{128, 128, 128} ? 133 : 132;
    EXPECT_NEAR(s.count(column, 300, column + 1, H, grey_axis), H - 1 - 300, 1)
        << "left vertical axis";
    int rcolumn = s.at(666, 350) == rgb{128, 128, 128} ? 666 : 665;
    EXPECT_NEAR(s.count(rcolumn, 300, rcolumn + 1, H, grey_axis), H - 1 - 300, 1)
        << "right vertical axis";

    // The statistics in white between the graphs, from (360, 450) down.
    int text = s.count(360, 450, 533, 520, [](rgb c) { return c.r > 0 && c.r == c.g && c.g == c.b; });
    EXPECT_GT(text, 100);
    EXPECT_EQ(s.count(266, 300, 360, 449, [](rgb c) { return !c.black(); }), 0)
        << "the text starts at 0.45 W, 3 H / 4";

    // Held R sets the records to the current maxima.
    key_state['R'] = 0x80;
    draw_graph_beam(0, false);
    key_state['R'] = 0;
    EXPECT_EQ(std::make_tuple(phase_records.x, phase_records.y, phase_records.xp, phase_records.yp),
              std::make_tuple(0.07015, 0.03015, 0.04, 0.04));
    selectdefaultfont();
}

TEST(phase_graphs_gl, momentum_colours_and_a_ring_in_each_graph_for_the_highlight)
{
    memset(key_state, 0, sizeof key_state);
    draw_graph_beam(0.15, true);
    screen s = read_screen();
    const rgb green = {0, 255, 0};   // momentum 1 is the middle of the ramp
    EXPECT_EQ(s.at(153, 460), green);
    EXPECT_EQ(s.at(625, 439), green);
    EXPECT_EQ(s.at(726, 490), green);
    // 63 points 5 pixels round particle 0's dots, none round the others.
    int left_ring = s.count(147, 454, 160, 467, magenta);
    int right_ring = s.count(619, 433, 632, 446, magenta);
    EXPECT_GE(left_ring, 28);
    EXPECT_LE(left_ring, 40);
    EXPECT_GE(right_ring, 28);
    EXPECT_LE(right_ring, 40);
    EXPECT_EQ(s.count(0, 0, W, H, magenta), left_ring + right_ring);
    // The ring has a hole: the dot's neighbours are not on it.
    EXPECT_EQ(s.count(151, 458, 156, 463, magenta), 0);
}

TEST(phase_graphs_gl, the_dots_match_one_point_batch_drawn_a_point_at_a_time)
{
    // A thousand particles in the graphs, momentum colours and the highlight: the picture
    // must be the same as the same points sent one by one between glBegin and glEnd.
    const int n = 1000;
    std::vector<double> x(n), y(n), xp(n), yp(n), p(n);
    random15_restart();
    for (int i = 0; i < n; i++) {
        x[i] = 0.04 * random_signed(), y[i] = 0.04 * random_signed();
        xp[i] = 0.03 * random_signed(), yp[i] = 0.03 * random_signed();
        p[i] = 1 + 0.15 * random_signed();
    }
    // Round maxima keep the statistics text short, clear of the graphs.
    x[7] = 0.05, y[7] = 0.05, xp[7] = 0.04, yp[7] = 0.04;
    phase_records = {0, 0, 0, 0};
    memset(key_state, 0, sizeof key_state);
    clear_screen();
    draw_phase_graphs(x.data(), y.data(), xp.data(), yp.data(), p.data(), n, true, S, A, 0.15);
    screen arrays = read_screen();

    clear_screen();
    glBegin(GL_POINTS);
    for (int i = n - 1; i >= 0; i--) {
        unsigned c = momentum_colour(p[i], 0.15);
        graph_dot dots[2] = {left_graph_dot(x[i], xp[i], S, A, W, H),
                             right_graph_dot(y[i], yp[i], S, A, W, H)};
        for (const graph_dot &d : dots) {
            if (!d.drawn) continue;
            glColor3ub((GLubyte)(c >> 16), (GLubyte)(c >> 8), (GLubyte)c);
            glVertex2f(d.px, d.py);
            if (i == 0) {
                glColor3f(1, 0, 1);
                float a = 0;
                for (int k = 0; k < 63; k++, a += 0.1f)
                    glVertex2f(d.px + (float)(5 * cos(a)), d.py + (float)(5 * sin(a)));
            }
        }
    }
    glEnd();
    screen immediate = read_screen();

    // Compare inside the two graphs, away from the axes and the text.
    int compared = 0, lit = 0;
    for (int yy = 300; yy < H; yy++)
        for (int xx = 0; xx < W; xx++) {
            if (xx >= 266 && xx < 533) continue;
            if (yy >= 448 && yy <= 451) continue;
            if (xx >= 131 && xx <= 134) continue;
            if (xx >= 664 && xx <= 667) continue;
            ASSERT_EQ(arrays.at(xx, yy), immediate.at(xx, yy)) << "pixel " << xx << "," << yy;
            compared++;
            if (!immediate.at(xx, yy).black()) lit++;
        }
    EXPECT_GT(lit, 500);
    EXPECT_GT(compared, 100000);
}

// ---------------------------------------------------------------------------------------
// Sparks

namespace {

double fake_seconds = 100.0;
double fake_clock() { return fake_seconds; }

// The brightest pixel of the square of half-side r round (x, y) lies within a pixel of it;
// returns its colour.
rgb expect_peak_at(const screen &s, int x, int y, int r)
{
    int bx = -1, by = -1, best = -1;
    for (int yy = y - r; yy < y + r; yy++)
        for (int xx = x - r; xx < x + r; xx++) {
            rgb c = s.at(xx, yy);
            if (c.r + c.g + c.b > best) best = c.r + c.g + c.b, bx = xx, by = yy;
        }
    EXPECT_TRUE(abs(bx - x) <= 1 && abs(by - y) <= 1) << "brightest at " << bx << "," << by << ", not " << x << "," << y;
    return s.at(bx, by);
}

} // namespace

// Sparks drawn by the frame's update, on a clock of the test's own.
struct sparks_gl : testing::Test {
    double (*saved)() = time_now;
    growarray list;
    void SetUp() override
    {
        time_now = fake_clock;
        spark_clock_restart();
        growarray_init(&list, sizeof(spark), 1);
        clear_screen();
    }
    void TearDown() override
    {
        growarray_free(&list);
        time_now = saved;
    }
};

TEST_F(sparks_gl, each_spark_glows_white_at_its_heart_in_its_kinds_colour_round_it)
{
    const spark red = {-150, 0, 0, 0, 0}, green = {0, 0, 0, 0, 1}, blue = {150, 100, 0, 0, 2};
    for (const spark &s : {red, green, blue}) growarray_append(&list, &s);
    update_and_draw_sparks(&list);
    screen s = read_screen();
    EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D) || glIsEnabled(GL_BLEND));
    EXPECT_EQ(list.count, 3u);

    struct case_ {
        const char *name;
        int cx, cy;   // screen centre of the spark: (W/2 + x, H/2 - y)
        int channel;  // 0 red, 1 green, 2 blue
    };
    const case_ cases[] = {{"red", 250, 300, 0}, {"green", 400, 300, 1}, {"blue", 550, 200, 2}};
    for (const case_ &c : cases) {
        SCOPED_TRACE(c.name);
        rgb heart = expect_peak_at(s, c.cx, c.cy, 40);
        EXPECT_GT(std::min({heart.r, heart.g, heart.b}), 100) << "a white heart";
        // Round the heart the kind's channel leads and the other two are equal.
        auto lead = [&](rgb q) {   // the kind's own channel, then the other two
            int v[3] = {q.r, q.g, q.b};
            return std::make_tuple(v[c.channel], v[(c.channel + 1) % 3], v[(c.channel + 2) % 3]);
        };
        EXPECT_GT(s.count(c.cx - 28, c.cy - 28, c.cx + 28, c.cy + 28, [&](rgb q) {
            auto [own, o1, o2] = lead(q);
            return own > o1 + 10 && o1 == o2;
        }), 50);
        EXPECT_EQ(s.count(c.cx - 28, c.cy - 28, c.cx + 28, c.cy + 28, [&](rgb q) {
            auto [own, o1, o2] = lead(q);
            return o1 > own || o2 > own;
        }), 0);
        // Nothing beyond the large square's 28 pixels.
        EXPECT_EQ(s.count(c.cx - 40, c.cy + 29, c.cx + 40, c.cy + 40, [](rgb q) { return !q.black(); }), 0);
    }
}

TEST_F(sparks_gl, sparks_stand_still_on_the_first_update_then_move_and_leave)
{
    const spark mover = {0, 0, 30, 20, 0}, leaver = {399.5, -250, 1, 0, 1};
    growarray_append(&list, &mover);
    growarray_append(&list, &leaver);
    update_and_draw_sparks(&list);   // dt = 0 however long the clock has run
    expect_peak_at(read_screen(), 400, 300, 100);
    EXPECT_EQ(((spark *)list.data)[0].x, 0.0);

    fake_seconds += 0.1;             // dt = 1: the mover goes 30 right and 20 up
    clear_screen();
    update_and_draw_sparks(&list);
    screen second = read_screen();
    ASSERT_EQ(list.count, 1u) << "the spark past the right edge is gone";
    expect_peak_at(second, 430, 280, 100);
    EXPECT_EQ(second.count(W - 60, H - 80, W, H, [](rgb q) { return !q.black(); }), 0)
        << "the removed spark is not drawn";
}

// ---------------------------------------------------------------------------------------
// Title and help page

TEST(title_gl, fentra_in_white_and_the_goal_in_light_green_in_the_caption_font)
{
    selectfont("captionfont");
    int h = current_line_height;
    float title_width = textwidth("Fentra");
    selectfont("ncgismall");
    clear_screen();
    draw_title_overlay();
    EXPECT_STREQ(current_font->name, "ncgibig") << "the default font is current afterwards";
    screen s = read_screen();

    auto lit = [](rgb c) { return !c.black(); };
    int title = s.count(0, 0, (int)title_width + 2, h, [](rgb c) { return c.r > 0 && c.r == c.g && c.g == c.b; });
    EXPECT_GT(title, 30);
    EXPECT_EQ(s.count(0, 0, W, h, [](rgb c) { return !c.black() && !(c.r == c.g && c.g == c.b); }), 0)
        << "the title is white";
    EXPECT_EQ(s.count((int)title_width + 2, 0, W, h, lit), 0) << "the title is one word";
    EXPECT_EQ(s.count(0, h, W, 2 * h, lit), 0) << "a blank line before the goal";
    // The goal: 0x80C080 times the glyph's brightness.
    int goal = s.count(0, 2 * h, W, H, lit);
    EXPECT_GT(goal, 500);
    int green = s.count(0, 2 * h, W, H, [](rgb c) { return c.g > c.r && abs(c.r - c.b) <= 1; });
    EXPECT_EQ(green, goal) << "every goal pixel is light green";
    // Eleven lines in the caption font, the last one "Press Space Bar to reset."
    int last_row = -1;
    for (int y = H - 1; y >= 0 && last_row < 0; y--)
        if (s.count(0, y, W, y + 1, lit)) last_row = y;
    EXPECT_GT(last_row, 2 * h + 10 * h);
    EXPECT_LT(last_row, 2 * h + 12 * h + 12);
}

TEST(help_gl, the_page_has_its_three_texts_in_their_places_and_colours)
{
    selectdefaultfont();
    int h = current_line_height;
    clear_screen();
    draw_help_page();
    screen s = read_screen();
    auto lit = [](rgb c) { return !c.black(); };
    EXPECT_EQ(s.count(0, 0, 100, H, lit), 0) << "every text starts at x = 100";
    EXPECT_EQ(s.count(0, 0, W, 90, lit), 0) << "nothing above the heading";
    float heading = textwidth("Key list:");
    EXPECT_GT(s.count(100, 90, 100 + (int)heading + 1, 90 + h, [](rgb c) { return c.r > 0 && c.r == c.g && c.g == c.b; }), 20)
        << "\"Key list:\" in white";
    EXPECT_EQ(s.count(100 + (int)heading + 2, 90, W, 90 + h, lit), 0);
    auto cyan = [](rgb c) { return c.r == 0 && c.g > 0 && c.g == c.b; };
    EXPECT_GT(s.count(100, 120, W, 120 + h, cyan), 20) << "the key list in cyan";
    EXPECT_EQ(s.count(0, 90 + h, W, 120, lit), 0) << "the key list starts at y = 120";
    auto blue = [](rgb c) { return c.r == 0 && c.g == 0 && c.b > 0; };
    EXPECT_GT(s.count(100, 500, W, 500 + h, blue), 20) << "\"Press space to continue...\" in blue";
    EXPECT_EQ(s.count(0, 0, W, 500, blue), 0) << "blue only from y = 500";
}
