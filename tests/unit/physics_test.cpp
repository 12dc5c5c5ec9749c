// The physics without a display: magnets from keys and the view geometry, the tracking step
// (the particle-at-a-time description bit for bit, a golden run that must come out the same on
// every processor), beams and their random draws, collective effects and figures of merit,
// and the lattice file.
#include "fentra/physics/beam.h"
#include "fentra/physics/beam_moments.h"
#include "fentra/physics/optics.h"
#include "fentra/physics/ring_setup.h"
#include "fentra/physics/collective.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/state.h"
#include "fentra/physics/tracking.h"

#include "Morvane/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

struct particle {
    double x, y, xp, yp, p;
};

void fresh(const std::vector<particle> &ps = {})
{
    allocate_particles();
    reset_simulation_state();
    random15_restart();
    magnets = magnet_settings{0, 0, 0, 0, 0};
    for (size_t i = 0; i < ps.size(); i++)
        beam_x[i] = ps[i].x, beam_y[i] = ps[i].y, beam_xp[i] = ps[i].xp, beam_yp[i] = ps[i].yp,
        beam_momentum[i] = ps[i].p;
    if (!ps.empty()) sim.particle_count = (int)ps.size();
}

// The fields, step, bend (radius rho of element 3, 0 for none) and scraper of the next step.
void set_step(const magnet_settings &m, double ds, double rho, bool scraper, double edge)
{
    magnets = m;
    sim.step_length = ds;
    element_bend_radius[3] = rho;
    sim.component_index = 3;
    sim.bend_active = rho != 0;
    sim.scraper_on = scraper;
    sim.scraper_x = edge;
}

// ---- Keys and view -----------------------------------------------------------------------

TEST(state, magnets_from_keys_and_view_geometry)
{
    magnet_keys held = {};
    held.two = held.four = held.left = held.six = held.eight = held.letter_o = true;
    magnet_settings m = magnets_from_keys(held);
    EXPECT_EQ(std::make_tuple(m.steering, m.quad_strength, m.sextupole, m.octupole, m.solenoid),
              std::make_tuple(1.0 / 30, 4.0, 30.0, 900.0, 1.0));
    struct row { int W, H; bool graphs; double ppm; int cx, cy; };
    const row rows[] = {{1920, 1080, false, 7200.0, 960, 540}, {1281, 1023, true, 4546.666666666667, 640, 368}};
    for (const row &r : rows) {
        view_geometry v = compute_view_geometry(r.W, r.H, r.graphs);
        EXPECT_EQ(std::make_tuple(v.zoom, v.centre_x, v.centre_y), std::make_tuple(r.graphs ? 1.5 : 1.0, r.cx, r.cy));
        EXPECT_NEAR(v.pixels_per_metre, r.ppm, 1e-9 * r.ppm) << r.W << "x" << r.H;
    }
}

// ---- Tracking ------------------------------------------------------------------------------

// The step as described, one particle at a time: step particle i, test it, and on a loss move
// the last (not yet stepped) particle into slot i and go on with it; a loss counts the particle
// before the slot into the sums once more, and losing particle 0 ends the highlight.
struct reference_result { std::vector<particle> ps; double sx, sy; bool highlight; };

reference_result reference_step(std::vector<particle> ps, const magnet_settings &m, double ds, double rho,
                                 bool scraper, double edge)
{
    double sx = 0, sy = 0;
    bool highlight = true;
    int n = (int)ps.size(), i = 0;
    while (i < n) {
        particle &q = ps[i];
        double x = q.x, y = q.y, xp = q.xp, yp = q.yp, p = q.p;
        double xpn = xp - ((m.quad_strength * x + m.steering - m.solenoid * yp) + m.sextupole * (x * x - y * y) +
                           m.octupole * (x * x * x - 3 * x * y * y)) * ds / p;
        double ypn = yp + ((3 * x * x * y - y * y * y) * m.octupole + (2 * m.sextupole * x + m.quad_strength) * y -
                           m.solenoid * xpn) * ds / p;
        if (rho != 0) xpn = xpn - ds / (rho * rho) * x / p;
        q = {x + xpn * ds, y + ypn * ds, xpn, ypn, p};
        if (!(q.x * q.x + q.y * q.y > 0.004900000000000001 || (scraper && q.x > edge))) {
            sx += q.x * q.x, sy += q.y * q.y, i++;
            continue;
        }
        ps[i] = ps[--n];
        if (i == 0) highlight = false;
        else sx += ps[i - 1].x * ps[i - 1].x, sy += ps[i - 1].y * ps[i - 1].y;
    }
    ps.resize(n);
    return {ps, sx, sy, highlight};
}

// Random beams, fields and losses: the step gives exactly the arrays, count, sums and highlight
// of the description, whatever the count, wherever the losses fall.
TEST(tracking, matches_the_particle_at_a_time_step_bit_for_bit)
{
    std::mt19937 gen(2024);
    std::uniform_real_distribution<double> u(-1, 1);
    const int counts[] = {1, 2, 3, 5, 8, 101, 1000, 10000};
    for (int trial = 0; trial < 32; trial++) {
        int n = counts[trial % 8];
        double size = 0.03 + 0.05 * (trial % 4) / 3;   // from few to many losses
        std::vector<particle> ps(n);
        for (particle &q : ps) q = {size * u(gen), size * u(gen), 0.01 * u(gen), 0.01 * u(gen), 1 + 0.15 * u(gen)};
        magnet_settings m = {u(gen) / 30, 4 * u(gen), 30 * u(gen), 900 * u(gen), (double)(trial % 3 - 1)};
        double ds = 0.05 * (u(gen) + 1.5), rho = trial % 2 ? 7.0028 : 0, edge = 0.02 + 0.03 * (u(gen) + 1) / 2;
        bool scraper = trial % 5 < 2;
        fresh(ps);
        set_step(m, ds, rho, scraper, edge);
        sim.highlight = true;
        track_sums s = track_step();
        reference_result want = reference_step(ps, m, ds, rho, scraper, edge);
        ASSERT_EQ(sim.particle_count, (int)want.ps.size()) << "trial " << trial;
        EXPECT_EQ(std::make_tuple(s.sx, s.sy, sim.highlight), std::make_tuple(want.sx, want.sy, want.highlight))
            << "trial " << trial;
        for (int i = 0; i < sim.particle_count; i++) {
            const particle &w = want.ps[i];
            ASSERT_EQ(std::make_tuple(beam_x[i], beam_y[i], beam_xp[i], beam_yp[i], beam_momentum[i]),
                      std::make_tuple(w.x, w.y, w.xp, w.yp, w.p)) << "trial " << trial << " slot " << i;
        }
    }
}

// The default beam after a restart of the generator, tracked for 300 steps through every kind of
// field with losses: a hash of every bit of the arrays and sums, as computed on x86-64. Any
// processor, compiler or vector width must give the same bits.
TEST(tracking, golden_run_is_the_same_on_every_processor)
{
    fresh();
    make_beam(beam_game);
    set_step({0.002, 0.5, 5, 50, 0.2}, 0.02, 7.0028, true, 0.035);
    uint64_t hash = 1469598103934665603u;
    auto mix = [&hash](double v) { uint64_t b; memcpy(&b, &v, 8); hash = (hash ^ b) * 1099511628211u; };
    for (int step = 0; step < 300; step++) {
        track_sums s = track_step();
        mix(s.sx), mix(s.sy);
    }
    for (double *a : {beam_x, beam_y, beam_xp, beam_yp, beam_momentum})
        for (int i = 0; i < sim.particle_count; i++) mix(a[i]);
    EXPECT_EQ(sim.particle_count, 764);
    EXPECT_EQ(hash, 7822282742663518481u);
}

// The pipe's edge: a particle exactly on the 0.07 m radius stays, one a hair outside is lost.
TEST(tracking, a_particle_exactly_on_the_pipe_stays)
{
    struct row { double x, y; bool stays; };
    const row rows[] = {{0.07, 0, true}, {0, -0.07, true}, {0.0700000000000001, 0, false}, {0.0495, 0.0495, false}};
    for (const row &r : rows) {
        fresh({{r.x, r.y, 0, 0, 1}});
        set_step({0, 0, 0, 0, 0}, 0.01, 0, false, 0);
        track_step();
        EXPECT_EQ(sim.particle_count, r.stays ? 1 : 0) << "at (" << r.x << ", " << r.y << ")";
    }
}

TEST(tracking, step_length_follows_the_frame_time_and_stops_just_past_the_element)
{
    struct row { double elapsed, speed, distance; bool shift; double ds; };
    const row rows[] = {{0.05, 4.0, 1e20, false, 0.2}, {1.0, 100.0, 0.5, false, 0.500001},
                        {0.02, 2.0, 1e20, true, 0.008}, {1.0, 100.0, 0.5, true, 0.1000002}};
    for (const row &r : rows)
        EXPECT_NEAR(next_step_length(r.elapsed, r.speed, r.distance, r.shift), r.ds, 1e-15) << r.elapsed << " s";
}

// ---- Beams ---------------------------------------------------------------------------------

// Each kind fills its shape in the unit 4-D space of its scale: the parallel beam a disc
// without angles, K-V the 4-sphere, waterbag the 4-ball (rms a sixth of the scale squared),
// Gaussian a quarter of the scale, not cut. Squared radii lie in [least_from, least_to] and
// [most_from, most_to].
TEST(beam, every_kind_has_its_shape_and_scale)
{
    const double cell[4] = {0.04, 0.04, 1.0 / 75, 1.0 / 75};
    struct row { int kind; double least_from, least_to, most_from, most_to, rms; };
    const row rows[] = {{beam_parallel, 0, 0.01, 0.99, 1 + 1e-12, 0},
                        {beam_kv, 1 - 1e-6, 1 + 1e-6, 1 - 1e-6, 1 + 1e-6, 0.5},
                        {beam_waterbag, 0, 0.05, 0.9, 1 + 1e-7, sqrt(1.0 / 6)},
                        {beam_gaussian, 0, 0.05, 1.0, 100, 0.25}};
    for (const row &r : rows) {
        fresh();
        make_beam(r.kind);
        double least = 10, most = 0, sum_x2 = 0, sum_y2 = 0, angles = 0, mean[4] = {};
        int quadrant[8] = {};
        for (int i = 0; i < sim.particle_count; i++) {
            double a = beam_x[i] / cell[0], b = beam_y[i] / cell[1], c = beam_xp[i] / cell[2], d = beam_yp[i] / cell[3];
            double q = a * a + b * b + c * c + d * d;
            least = fmin(least, q), most = fmax(most, q), sum_x2 += a * a, sum_y2 += b * b, angles += c * c + d * d;
            for (int k = 0; k < 4; k++) mean[k] += (k < 2 ? (k ? b : a) : (k == 2 ? c : d)) / 10000;
            quadrant[(a > 0) + 2 * (b > 0)]++, quadrant[4 + (c > 0) + 2 * (d > 0)]++;
        }
        // Every kind is symmetric about the axis: means near 0 and a quarter of the beam in each
        // quadrant of (x, y) and of (x', y'), within five standard errors of 10,000 draws.
        for (int k = 0; k < 4; k++) EXPECT_LT(fabs(mean[k]), 0.03) << "kind " << r.kind << " mean " << k;
        for (int k = 0; k < (r.rms ? 8 : 4); k++)
            EXPECT_NEAR(quadrant[k], 2500, 220) << "kind " << r.kind << " quadrant " << k;
        const double rx = sqrt(sum_x2 / 10000), ry = sqrt(sum_y2 / 10000);
        EXPECT_TRUE(sim.particle_count == 10000 && least >= r.least_from && least <= r.least_to &&
                    most >= r.most_from && most <= r.most_to &&
                    (r.rms ? fabs(rx - r.rms) < 0.02 && fabs(ry - r.rms) < 0.02 : angles == 0))
            << "kind " << r.kind << ": " << least << " to " << most << ", rms " << rx << ", " << ry;
    }
}

// A ring from a lattice file in KORA's place: its superperiods and name in the heads-up lines,
// and every beam kind matched to its periodic beta and alpha at the start, each plane's edge
// at 35 mm where beta is largest; an unstable ring gets the round 3 m beams.
TEST(beam, a_loaded_ring_gets_matched_beams)
{
    fresh();
    use_ring_in_place_of_kora(read_ring_file(FENTRA_SOURCE_DIR "/data/examples/triplet_ring.madx"));
    EXPECT_EQ(std::make_tuple(sim.superperiod_count, sim.superperiod_length, std::string(lattice_ring_name)),
              std::make_tuple(1, 72.0, std::string("Ring triplet_ring")));
    static optics_lattice l;
    lattice_from_table(&l, 1);
    const lattice_optics o = solve_lattice(l);
    sim.kora_lattice = true;
    for (int kind : {beam_kv, beam_waterbag, beam_gaussian}) {
        make_beam(kind);
        beam_moments m = measure_beam(beam_x, beam_xp, beam_y, beam_yp, sim.particle_count);
        for (int p = 0; p < 2; p++) {
            const plane_optics &lat = o.plane[p];
            const plane_moments &b = m.plane[p];
            EXPECT_NEAR(b.beta / lat.beta, 1, 0.03) << "kind " << kind << " plane " << p;
            EXPECT_NEAR(b.alpha - lat.alpha, 0, 0.03 * (1 + fabs(lat.alpha))) << "kind " << kind << " plane " << p;
            // rms of a coordinate over the unit edge: 1/2 (K-V), 1/sqrt 6 (waterbag), 1/4 (Gaussian).
            double edge = kind == beam_kv ? 0.5 : kind == beam_waterbag ? 1 / sqrt(6.0) : 0.25;
            EXPECT_NEAR(sqrt(b.xx / lat.beta) * sqrt(lat.beta_max), 0.035 * edge, 0.001) << "kind " << kind;
        }
    }
    auto largest_radius = [] {
        make_beam(beam_parallel);
        double most = 0;
        for (int i = 0; i < sim.particle_count; i++) most = fmax(most, hypot(beam_x[i], beam_y[i]));
        return most;
    };
    sim.kora_lattice = false;
    EXPECT_NEAR(largest_radius(), 0.04, 1e-4) << "with the ring off, the round beam of the 3 m cell";
    sim.kora_lattice = true;
    use_ring_in_place_of_kora(read_ring_file(FENTRA_SOURCE_DIR "/data/examples/unstable_ring.madx"));
    EXPECT_NEAR(largest_radius(), 0.04, 1e-4) << "an unstable ring: the round beam of the 3 m cell";
    use_kora_beams();
    lattice_ring_name[0] = 0;
}

// A new beam resets the peak and the sparks; the spread toggles between 0 and 0.15 and redraws
// the momenta from the last particle down; the highlight swaps a random particle into slot 0.
TEST(beam, new_beam_spread_and_highlight)
{
    fresh();
    sim.ring_position = 12.5, sim.peak_luminosity = 4e33, sim.particle_count = 1234;
    spark s = {1, 2, 3, 4, 1};
    growarray_append(&sim.spark_list, &s);
    beam_outcome o = create_beam_if_asked(beam_keys{true, false, false, false, false});
    EXPECT_EQ(std::make_tuple(o.restart_frame, sim.ring_position, sim.peak_luminosity, sim.spark_list.count),
              std::make_tuple(true, 1e-6, 1e-6, 0u));

    sim.particle_count = 3;
    random15_restart();
    double p2 = random_signed() * 0.15 + 1.0, p1 = random_signed() * 0.15 + 1.0, p0 = random_signed() * 0.15 + 1.0;
    random15_restart();
    toggle_momentum_spread();
    EXPECT_EQ(std::make_tuple(sim.momentum_spread, beam_momentum[0], beam_momentum[1], beam_momentum[2]),
              std::make_tuple(0.15, p0, p1, p2));
    toggle_momentum_spread();
    EXPECT_EQ(std::make_tuple(sim.momentum_spread, beam_momentum[0]), std::make_tuple(0.0, 1.0));

    // The highlight swaps the coordinates, not the momentum.
    for (int i = 0; i < 10000; i++)
        beam_x[i] = i, beam_y[i] = -i, beam_xp[i] = 2.0 * i, beam_yp[i] = 3.0 * i, beam_momentum[i] = 1 + i * 1e-5;
    sim.particle_count = 10000, sim.highlight = false;
    random15_restart();
    toggle_highlight();
    const int j = 5635;   // floor(10000 x the first uniform draw)
    EXPECT_EQ(std::make_tuple(beam_x[0], beam_y[0], beam_xp[0], beam_yp[0], beam_momentum[0], beam_yp[j]),
              std::make_tuple((double)j, (double)-j, 2.0 * j, 3.0 * j, 1.0, 0.0)) << "slot 0 and slot " << j;
}

// ---- Collective effects and figures of merit ------------------------------------------------

// Particles at the ends of the axes of an ellipse a = 0.01 m, b = 0.02 m: the uniform-beam
// field kicks every edge particle outwards by ds x 0.0005 / (a + b) / p.
TEST(collective, space_charge_pushes_outwards)
{
    fresh({{0.01, 0, 0, 0, 1}, {-0.01, 0, 0, 0, 1}, {0, 0.02, 0, 0, 1}, {0, -0.02, 0, 0, 1}, {0.005, 0, 0, 0, 2}});
    sim.step_length = 0.1;
    space_charge_kick();
    const double edge = 0.1 * 0.0005 / 0.03;
    const double want_xp[] = {edge, -edge, 0, 0, edge / 4}, want_yp[] = {0, 0, edge, -edge, 0};
    for (int i = 0; i < 5; i++)
        EXPECT_TRUE(fabs(beam_xp[i] - want_xp[i]) < 1e-15 && fabs(beam_yp[i] - want_yp[i]) < 1e-15) << "particle " << i;
}

TEST(collective, luminosity_its_reading_texts_and_bar_and_the_scraper)
{
    EXPECT_NEAR(luminosity(10000, 1.0, 4.0), 1.5e31, 1e-12 * 1.5e31);
    struct row { double L; int exponent; unsigned colour; const char *text; };
    const row rows[] = {
        {9.9e30, 30, 0x808000, "Luminosity: 9.9 x 10^{30}"}, {1e31, 31, 0xC0C000, "Luminosity: 1.0 x 10^{31}"},
        {9.99e32, 32, 0xFFF000, "Luminosity: 10.0 x 10^{32}"}, {3e33, 33, 0xFFFF80, "Luminosity: 3.0 x 10^{33}"},
        {2e34, 34, 0xFFFFFF, "Luminosity: 2.0 x 10^{34}"},    {0.0, 0, 0x808000, "Luminosity: 0.0 x 10^{0}"},
    };
    char text[64];
    for (const row &r : rows) {
        luminosity_reading got = read_luminosity(r.L);
        EXPECT_EQ(std::make_tuple(got.exponent, got.colour), std::make_tuple(r.exponent, r.colour)) << r.L;
        luminosity_text(text, sizeof text, r.L);
        EXPECT_STREQ(text, r.text);
    }
    peak_text(text, sizeof text, 1e-6);
    EXPECT_STREQ(text, "Peak: 1.0 x 10^{-6}");
    beam_loss_text(text, sizeof text, 9999);
    EXPECT_STREQ(text, "BEAM LOSS: 0.01%");

    fresh();
    for (double L : {3e30, 1e30, (double)NAN, 3.001e30}) update_peak_luminosity(L);
    EXPECT_EQ(sim.peak_luminosity, 3.001e30) << "the peak only rises, and follows every new maximum";

    // The bar's edges and peak mark, and the scraper's steps of 0.5 mm inside [0, 0.07].
    luminosity_bar b = luminosity_bar_geometry(1000, 800, 1.875e33, 3e33);
    const double got[] = {b.left, b.right, b.peak_right, b.bottom, b.top, b.peak_top};
    const double want[] = {940, 990, 989, 800, 400, 161};
    for (int k = 0; k < 6; k++) EXPECT_NEAR(got[k], want[k], 1e-9) << "bar edge " << k;
    const double from[] = {0.03, 0.0002, 0.0698}, left[] = {0.0295, 0, 0.0693}, right[] = {0.0305, 0.0007, 0.07};
    for (int k = 0; k < 6; k++) {
        sim.scraper_x = from[k / 2];
        move_scraper(k % 2 == 0, k % 2 == 1);
        EXPECT_NEAR(sim.scraper_x, k % 2 ? right[k / 2] : left[k / 2], 1e-15)
            << (k % 2 ? "right" : "left") << " from " << from[k / 2];
    }
}

// ---- The lattice file ----------------------------------------------------------------------

// KORA's superperiod: its values as derived on reading, the element at a position (a boundary
// belongs to the next element), and the FODO cell's quadrupole by position.
TEST(lattice, kora_reads_back_and_elements_are_found_by_position)
{
    std::string file = "/tmp/fentra_lattice_" + std::to_string(getpid()) + ".txt";
    write_builtin_lattice(file.c_str());
    read_lattice(file.c_str());
    remove(file.c_str());
    ASSERT_EQ(element_count, 48);
    EXPECT_EQ(std::make_tuple(element_bend_radius[44], element_strength[8]),
              std::make_tuple(3.8 / 0.54264, -0.786049666 / 1.235293713));

    const double L = lattice_length(), end_of_d1 = 2.9394;
    EXPECT_NEAR(L, 16.3362818, 1e-9);
    struct row { double position; int index; double distance; };
    const row rows[] = {{0.1, 0, 0.06}, {0.16, 1, 0.2}, {end_of_d1 - 1e-9, 3, 1e-9}, {L - 0.01, 47, 0.01},
                        {9 * L + end_of_d1 + 1e-7, 4, 0.05275 - 1e-7}};
    for (const row &r : rows) {
        element_here e = find_element(r.position, L);
        EXPECT_EQ(e.index, r.index) << "at " << r.position;
        EXPECT_NEAR(e.distance_to_end, r.distance, 1e-9) << "at " << r.position;
    }
    const double cell[][2] = {{0.2499, 1.384}, {0.25, 0}, {1.25, -1.384}, {1.7499, -1.384}, {1.75, 0},
                              {2.75, 1.384}, {4.5, -1.384}};
    for (const auto &r : cell) EXPECT_EQ(fodo_quadrupole(r[0]), r[1]) << "FODO cell at " << r[0] << " m";
}

} // namespace
