// Beam generation: which beam the keys and the state ask for, the shape, bounds and scaling of
// each kind for each lattice, the exact order of random draws (anchored by an independent copy
// of the generator), the momentum spread, the FODO matched beam and the highlight pick.
#include "fentra/physics/beam.h"
#include "fentra/physics/state.h"

#include "Morvane/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>
#include <tuple>

namespace {

// The program's generator written out again: state x 214013 + 2531011, bits 16..30.
struct lcg {
    uint32_t state = 1;
    double next() { state = state * 214013u + 2531011u; return (double)((state >> 16) & 0x7FFF); }
    double r() { double r1 = next(); return r1 / 32768 + next(); }     // 30-bit draw, r1 first
    double S() { return r() / 16384 - 1; }                             // [-1, 1)
    double U() { return r() / 32768; }                                 // [0, 1)
};

struct scale {
    double x, y, xp, yp;
};
const scale kora = {0.0323835344, 0.02434880285, -0.002313357742, 0.004573547238};
const scale game = {0.05, 0.05, 1.0 / 1500, 1.0 / 1500};
const scale cell = {0.04, 0.04, 1.0 / 75, 1.0 / 75};
const scale fodo = {0.05720499999999999, 0.03579625, 0.010925618390000875, 0.017459929461884974};

// Particle i as (x, y, x', y', p).
std::tuple<double, double, double, double, double> particle(int i)
{
    return {beam_x[i], beam_y[i], beam_xp[i], beam_yp[i], beam_momentum[i]};
}

class beam : public ::testing::Test {
protected:
    void SetUp() override
    {
        allocate_particles();
        reset_simulation_state();
        random15_restart();
    }
    // Squared radius of particle i in the unit 4-D space of the scale.
    double r2(int i, const scale &s)
    {
        double a = beam_x[i] / s.x, b = beam_y[i] / s.y, c = beam_xp[i] / s.xp, d = beam_yp[i] / s.yp;
        return a * a + b * b + c * c + d * d;
    }
};

TEST_F(beam, kind_follows_the_keys_then_the_lattice_then_an_empty_beam)
{
    struct row {
        const char *what;
        beam_keys pressed;
        bool kora, made_for_kora;
        int count, kind;
    };
    const row rows[] = {
        {"nothing", {}, false, false, 10000, beam_none},
        {"empty beam", {}, false, false, 0, beam_game},
        {"Space", {false, false, false, false, true}, false, false, 10000, beam_game},
        {"G before Space", {false, false, false, true, true}, false, false, 10000, beam_gaussian},
        {"W before G", {false, false, true, true, false}, false, false, 10000, beam_waterbag},
        {"K before W", {false, true, true, false, false}, false, false, 10000, beam_kv},
        {"P before all", {true, true, true, true, true}, false, false, 0, beam_parallel},
        {"KORA switched on", {}, true, false, 10000, beam_kv},
        {"KORA switched on beats W", {false, false, true, false, false}, true, false, 10000, beam_kv},
        {"P beats KORA switched on", {true, false, false, false, false}, true, false, 10000, beam_parallel},
        {"KORA switched on beats an empty beam", {}, true, false, 0, beam_kv},
        {"beam already made for KORA", {}, true, true, 10000, beam_none},
        {"KORA switched off keeps the beam", {}, false, true, 10000, beam_none},
        {"empty beam in KORA", {}, true, true, 0, beam_game},
    };
    for (const row &r : rows) {
        sim.kora_lattice = r.kora;
        sim.beam_made_for_kora = r.made_for_kora;
        sim.particle_count = r.count;
        EXPECT_EQ(chosen_beam_kind(r.pressed), r.kind) << r.what;
    }
}

// Shape and bounds of every kind in the default cell, the FODO cell and KORA.
TEST_F(beam, every_kind_has_its_shape_and_scale_in_every_lattice)
{
    struct lattice_case {
        const char *name;
        bool kora, fodo;
    };
    const lattice_case lattices[] = {{"no lattice", false, false}, {"FODO", false, true}, {"KORA", true, false}};
    const int kinds[] = {beam_parallel, beam_kv, beam_waterbag, beam_gaussian, beam_game};
    for (const lattice_case &l : lattices) {
        for (int kind : kinds) {
            SetUp();
            sim.kora_lattice = l.kora;
            sim.fodo_cell = l.fodo;
            make_beam(kind);
            ASSERT_EQ(sim.particle_count, 10000);
            const scale &s = l.kora ? kora : kind == beam_game ? game : cell;
            double least = 10, most = 0, sum_x2 = 0;
            int beyond_40mm = 0;
            for (int i = 0; i < 10000; i++) {
                double q = r2(i, s);
                least = q < least ? q : least;
                most = q > most ? q : most;
                sum_x2 += beam_x[i] * beam_x[i];
                if (beam_x[i] * beam_x[i] + beam_y[i] * beam_y[i] > 0.04 * 0.04) beyond_40mm++;
                ASSERT_EQ(beam_momentum[i], 1.0) << "no spread";
            }
            SCOPED_TRACE(std::string(l.name) + ", kind " + std::to_string(kind));
            switch (kind) {
            case beam_parallel:
                for (int i = 0; i < 10000; i++) {
                    ASSERT_EQ(beam_xp[i], 0.0);
                    ASSERT_EQ(beam_yp[i], 0.0);
                }
                EXPECT_LE(most, 1 + 1e-12) << "inside the disc";
                EXPECT_GT(most, 0.99);
                EXPECT_LT(least, 0.01);
                break;
            case beam_kv:
                EXPECT_GT(least, 1 - 1e-6) << "on the unit 4-sphere within single-precision rounding";
                EXPECT_LT(most, 1 + 1e-6);
                break;
            case beam_waterbag:
            case beam_game:
                EXPECT_LE(most, 1 + 1e-7) << "inside the unit 4-ball";
                EXPECT_LT(least, 0.05) << "filled, not a shell";
                // Uniform in the 4-ball: <x^2> is a sixth of the scale squared.
                EXPECT_NEAR(sqrt(sum_x2 / 10000) / s.x, sqrt(1.0 / 6), 0.02);
                break;
            case beam_gaussian:
                // Sigma is a quarter of the scale and the tails are not cut.
                EXPECT_NEAR(sqrt(sum_x2 / 10000) / s.x, 0.25, 0.01);
                EXPECT_GT(most, 1.0) << "some particles beyond the unit scale";
                if (!l.kora) {
                    EXPECT_GT(beyond_40mm, 0) << "some particles beyond 40 mm";
                }
                break;
            }
        }
    }
}

// The first particles after a restart of the generator, as fixed numbers: the point is drawn
// with its rejection loop (three points are rejected before particle 0), then two draws for the
// momentum, then particle 1's point, accepted at the first try.
TEST_F(beam, first_particles_follow_the_draw_order)
{
    beam_outcome o = create_beam_if_asked(beam_keys{});   // the first frame: no particles
    ASSERT_EQ(o.kind, beam_game);
    EXPECT_FALSE(o.restart_frame);
    const double fixed[2][4] = {
        {-0.012213107571005822, 0.007118321675807238, 0.000142887440820535, 0.0002173733003437519},
        {0.010766775626689196, 0.03026056913658977, -0.00026405762260158855, 0.0003022410459816456}};
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(particle(i), std::make_tuple(fixed[i][0], fixed[i][1], fixed[i][2], fixed[i][3], 1.0))
            << "particle " << i;
}

TEST_F(beam, parallel_gaussian_and_kv_draws_follow_their_order)
{
    // Parallel: pairs until inside the disc, then the momentum pair (spread 0.15 here).
    {
        lcg g;
        sim.momentum_spread = 0.15;
        double x, y;
        do {
            x = g.S();
            y = g.S();
        } while (x * x + y * y > 1);
        double p = g.S() * 0.15 + 1.0;
        make_beam(beam_parallel);
        EXPECT_EQ(beam_x[0], x * 0.04);
        EXPECT_EQ(beam_y[0], y * 0.04);
        EXPECT_EQ(beam_momentum[0], p);
    }
    // Gaussian: two Box-Muller pairs of four draws each, a quarter of the scale.
    {
        SetUp();
        lcg g;
        double v[4];
        for (int k = 0; k < 4; k += 2) {
            double rho = sqrt(2 * fabs(log(g.U() + 1e-20)));
            double theta = g.r() * (2 * std::numbers::pi / 32768);
            v[k] = rho * cos(theta);
            v[k + 1] = rho * sin(theta);
        }
        make_beam(beam_gaussian);
        EXPECT_NEAR(beam_x[0], v[0] * 0.25 * 0.04, 1e-17);
        EXPECT_NEAR(beam_y[0], v[1] * 0.25 * 0.04, 1e-17);
        EXPECT_NEAR(beam_xp[0], v[2] * 0.25 / 75, 1e-17);
        EXPECT_NEAR(beam_yp[0], v[3] * 0.25 / 75, 1e-17);
    }
    // K-V in KORA: the accepted point times the single-precision reciprocal of its
    // single-precision radius, and KORA's scale mirrors the horizontal angles.
    {
        SetUp();
        lcg g;
        double c[4];
        float q;
        do {
            for (double &a : c) a = g.S();
            q = (float)(c[0] * c[0] + c[1] * c[1] + c[2] * c[2] + c[3] * c[3]);
        } while (q > 1.0);
        float inverse = 1 / sqrtf(q);
        sim.kora_lattice = true;
        make_beam(beam_kv);
        EXPECT_EQ(particle(0), std::make_tuple(c[0] * inverse * kora.x, c[1] * inverse * kora.y,
                                               c[2] * inverse * kora.xp, c[3] * inverse * kora.yp, 1.0));
    }
}

TEST_F(beam, a_new_beam_resets_the_peak_the_sparks_and_after_travel_the_ring)
{
    struct row {
        const char *what;
        double ring_before;
        bool kora;
        bool restart;
        double ring_after;
        bool made_for_kora_after;
    };
    const row rows[] = {
        {"first frame", 0, false, false, 0, false},
        {"first frame in KORA", 0, true, false, 0, false},   // made again on a later frame
        {"mid-run", 12.5, false, true, 1e-6, false},
        {"mid-run in KORA", 12.5, true, true, 1e-6, true},
    };
    for (const row &r : rows) {
        SetUp();
        sim.ring_position = r.ring_before;
        sim.kora_lattice = r.kora;
        sim.peak_luminosity = 4e33;
        sim.particle_count = 1234;
        spark s = {1, 2, 3, 4, 1};
        for (int k = 0; k < 6; k++) growarray_append(&sim.spark_list, &s);
        beam_outcome o = create_beam_if_asked(beam_keys{true, false, false, false, false});
        EXPECT_EQ(std::make_tuple(o.kind, o.restart_frame, sim.ring_position, sim.beam_made_for_kora),
                  std::make_tuple((int)beam_parallel, r.restart, r.ring_after, r.made_for_kora_after))
            << r.what;
        EXPECT_EQ(std::make_tuple(sim.particle_count, sim.peak_luminosity, sim.spark_list.count, sim.spark_list.capacity),
                  std::make_tuple(10000, 1e-6, 0u, 1u))
            << r.what;
    }
}

TEST_F(beam, momentum_spread_toggles_and_redraws_from_the_last_particle_down)
{
    make_beam(beam_waterbag);
    sim.particle_count = 3;
    beam_momentum[3] = 7.0;   // not live: untouched
    random15_restart();
    lcg g;
    double p2 = g.S() * 0.15 + 1.0, p1 = g.S() * 0.15 + 1.0, p0 = g.S() * 0.15 + 1.0;
    toggle_momentum_spread();
    EXPECT_EQ(std::make_tuple(sim.momentum_spread, beam_momentum[0], beam_momentum[1], beam_momentum[2], beam_momentum[3]),
              std::make_tuple(0.15, p0, p1, p2, 7.0));

    sim.particle_count = 10000;
    toggle_momentum_spread();
    EXPECT_EQ(sim.momentum_spread, 0.0);
    for (int i = 0; i < 10000; i++) ASSERT_EQ(beam_momentum[i], 1.0) << "particle " << i;

    toggle_momentum_spread();
    double least = 2, most = 0;
    for (int i = 0; i < 10000; i++) {
        ASSERT_GE(beam_momentum[i], 0.85);
        ASSERT_LT(beam_momentum[i], 1.15);
        least = fmin(least, beam_momentum[i]);
        most = fmax(most, beam_momentum[i]);
    }
    EXPECT_LT(least, 0.851);
    EXPECT_GT(most, 1.149);

    // A new beam draws its momenta with the spread in force.
    make_beam(beam_kv);
    for (int i = 0; i < 10000; i++) {
        ASSERT_GE(beam_momentum[i], 0.85);
        ASSERT_LT(beam_momentum[i], 1.15);
    }
}

TEST_F(beam, fodo_matched_beam_lies_on_the_cell_optics_sphere)
{
    for (int i = 0; i < 10000; i++) beam_momentum[i] = 1.2;
    sim.kora_lattice = true;
    sim.ring_position = 40;
    sim.peak_luminosity = 3e33;
    spark s = {0, 0, 0, 0, 0};
    growarray_append(&sim.spark_list, &s);
    make_fodo_matched_beam();
    EXPECT_EQ(sim.particle_count, 10000);
    EXPECT_FALSE(sim.kora_lattice);
    EXPECT_EQ(sim.ring_position, 0.0);
    EXPECT_EQ(sim.peak_luminosity, 3e33) << "peak kept";
    EXPECT_EQ(sim.spark_list.count, 1u) << "sparks kept";
    double sum_x2 = 0;
    for (int i = 0; i < 10000; i++) {
        ASSERT_NEAR(r2(i, fodo), 1.0, 1e-6) << "particle " << i;
        ASSERT_EQ(beam_momentum[i], 1.2) << "momenta kept";
        sum_x2 += beam_x[i] * beam_x[i];
    }
    // On the 4-sphere each coordinate carries a quarter of the squared radius.
    EXPECT_NEAR(sqrt(sum_x2 / 10000) / fodo.x, 0.5, 0.01);
}

TEST_F(beam, highlight_picks_a_random_particle_and_swaps_it_into_slot_zero)
{
    for (int i = 0; i < 10000; i++) {
        beam_x[i] = i;
        beam_y[i] = -i;
        beam_xp[i] = 2.0 * i;
        beam_yp[i] = 3.0 * i;
        beam_momentum[i] = 1 + i * 1e-5;
    }
    sim.particle_count = 10000;
    lcg g;
    int j = (int)floor(10000 * g.U());
    ASSERT_EQ(j, 5635);   // (41 / 32768 + 18467) / 32768 = 0.5636
    toggle_highlight();
    EXPECT_TRUE(sim.highlight);
    // The two swap places; the momenta stay where they were.
    EXPECT_EQ(particle(0), std::make_tuple((double)j, (double)-j, 2.0 * j, 3.0 * j, 1.0));
    EXPECT_EQ(particle(j), std::make_tuple(0.0, -0.0, 0.0, 0.0, 1 + j * 1e-5));

    // Switching off draws nothing.
    toggle_highlight();
    EXPECT_FALSE(sim.highlight);
    EXPECT_EQ(random15(), (int)g.next());

    // One particle, or none: slot 0 with itself.
    const int counts[] = {1, 0};
    for (int n : counts) {
        sim.particle_count = n;
        beam_x[0] = 0.5;
        toggle_highlight();
        EXPECT_TRUE(sim.highlight) << n << " particles";
        EXPECT_EQ(beam_x[0], 0.5) << n << " particles";
        toggle_highlight();
    }
}

} // namespace
