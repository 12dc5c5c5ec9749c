// Tracking: drifts, the sign and momentum dependence of every kick, the aperture and scraper
// losses with their compaction and sums, and the step length along the ring.
#include "fentra/physics/lattice.h"
#include "fentra/physics/state.h"
#include "fentra/physics/tracking.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>
#include <vector>

namespace {

struct particle {
    double x, y, xp, yp, p;
};

class tracking : public ::testing::Test {
protected:
    void SetUp() override
    {
        allocate_particles();
        reset_simulation_state();
        magnets = magnet_settings{0, 0, 0, 0, 0};
    }
    void load(const std::vector<particle> &ps)
    {
        for (size_t i = 0; i < ps.size(); i++)
            beam_x[i] = ps[i].x, beam_y[i] = ps[i].y, beam_xp[i] = ps[i].xp, beam_yp[i] = ps[i].yp,
            beam_momentum[i] = ps[i].p;
        sim.particle_count = (int)ps.size();
    }
    // Element 0, bending with radius rho, is the current one (rho 0: no bend).
    void bend(double rho)
    {
        if (rho == 0) return;
        element_bend_radius[0] = rho;
        sim.component_index = 0;
        sim.bend_active = true;
    }
};

TEST_F(tracking, with_no_fields_a_particle_drifts_in_a_straight_line)
{
    load({{0.01, -0.02, 0.002, 0.001, 1.0}, {-0.03, 0.0, -0.004, 0.0005, 0.9}});
    sim.step_length = 0.05;
    for (int step = 0; step < 10; step++) track_step();
    EXPECT_NEAR(beam_x[0], 0.011, 1e-15);
    EXPECT_NEAR(beam_y[0], -0.0195, 1e-15);
    EXPECT_NEAR(beam_x[1], -0.032, 1e-15);
    EXPECT_NEAR(beam_y[1], 0.00025, 1e-15);
    EXPECT_EQ(beam_xp[0], 0.002) << "angles do not change in a drift";
    EXPECT_EQ(beam_yp[1], 0.0005);
    EXPECT_EQ(sim.particle_count, 2);
}

// Kick per metre of each field on a particle at x = 0.02, y = 0.01 with p = 1, worked out by
// hand from the multipole expansions: positive K focuses x and defocuses y, positive steering
// pushes x' negative, the bend focuses x only.
TEST_F(tracking, every_field_kicks_with_its_sign_and_size)
{
    struct row {
        const char *field;
        magnet_settings m;
        double bend_radius;   // 0: no bend
        double kick_x, kick_y;   // change of x' and y' per metre
    };
    const row rows[] = {
        {"quadrupole K = 2", {0, 2, 0, 0, 0}, 0, -0.04, 0.02},
        {"quadrupole K = -2", {0, -2, 0, 0, 0}, 0, 0.04, -0.02},
        {"steering +1/30", {1.0 / 30, 0, 0, 0, 0}, 0, -1.0 / 30, 0},
        {"sextupole 30", {0, 0, 30, 0, 0}, 0, -30 * 0.0003, 30 * 2 * 0.0002},
        {"octupole 900", {0, 0, 0, 900, 0}, 0, -900 * 2e-6, 900 * 1.1e-5},
        {"bend radius 2 m", {0, 0, 0, 0, 0}, 2.0, -0.02 / 4, 0},
        {"bend and quadrupole", {0, 2, 0, 0, 0}, 2.0, -0.04 - 0.005, 0.02},
    };
    const double ds = 0.001;
    for (const row &r : rows) {
        SetUp();
        load({{0.02, 0.01, 0, 0, 1.0}});
        magnets = r.m;
        sim.step_length = ds;
        bend(r.bend_radius);
        track_step();
        EXPECT_NEAR(beam_xp[0], r.kick_x * ds, 1e-15) << r.field;
        EXPECT_NEAR(beam_yp[0], r.kick_y * ds, 1e-15) << r.field;
        EXPECT_NEAR(beam_x[0], 0.02 + beam_xp[0] * ds, 1e-17) << r.field << ": drift with the new angle";
    }
}

TEST_F(tracking, the_bend_acts_only_in_an_active_current_element)
{
    struct row {
        int component;
        bool active;
        bool bends;
    };
    const row rows[] = {{0, true, true}, {-1, true, false}, {0, false, false}};
    element_bend_radius[0] = 2.0;
    for (const row &r : rows) {
        load({{0.02, 0, 0, 0, 1.0}});
        sim.step_length = 0.01;
        sim.component_index = r.component;
        sim.bend_active = r.active;
        track_step();
        EXPECT_EQ(beam_xp[0] != 0, r.bends) << "component " << r.component << " active " << r.active;
    }
}

TEST_F(tracking, solenoid_couples_y_prime_to_the_new_x_prime)
{
    load({{0, 0, 0.001, 0.002, 1.0}});
    magnets.solenoid = 1;
    sim.step_length = 0.1;
    track_step();
    // x' gains S y' ds from the old y': 0.001 + 0.0002.
    EXPECT_NEAR(beam_xp[0], 0.0012, 1e-15);
    // y' loses S x' ds from the new x': 0.002 - 0.00012 (the old x' would give 0.0019).
    EXPECT_NEAR(beam_yp[0], 0.00188, 1e-15);
}

// With spread, a particle below the reference momentum is kicked harder than one above it,
// by every field, in the ratio of the momenta.
TEST_F(tracking, lower_momentum_is_kicked_harder_by_every_field)
{
    struct row {
        const char *field;
        magnet_settings m;
        double bend_radius;
    };
    const row rows[] = {
        {"steering", {1.0 / 30, 0, 0, 0, 0}, 0}, {"quadrupole", {0, 2, 0, 0, 0}, 0},
        {"sextupole", {0, 0, 30, 0, 0}, 0},      {"octupole", {0, 0, 0, 900, 0}, 0},
        {"solenoid", {0, 0, 0, 0, 1}, 0},        {"bend", {0, 0, 0, 0, 0}, 3.0},
    };
    for (const row &r : rows) {
        SetUp();
        // Particle 0 below, particle 1 above the reference momentum, otherwise the same.
        load({{0.02, 0.01, 0.001, 0.001, 0.9}, {0.02, 0.01, 0.001, 0.001, 1.1}});
        magnets = r.m;
        sim.step_length = 0.01;
        bend(r.bend_radius);
        track_step();
        double low = std::hypot(beam_xp[0] - 0.001, beam_yp[0] - 0.001);
        double high = std::hypot(beam_xp[1] - 0.001, beam_yp[1] - 0.001);
        EXPECT_GT(low, 0) << r.field;
        EXPECT_GT(low, high) << r.field;
        if (r.m.solenoid == 0) {
            EXPECT_NEAR(low / high, 1.1 / 0.9, 1e-9) << r.field;
        }
    }
}

TEST_F(tracking, aperture_takes_particles_beyond_seven_centimetres)
{
    struct row {
        const char *where;
        double x, y;
        bool lost;
    };
    const row rows[] = {
        {"x = 0.0700001", 0.0700001, 0, true},
        {"x = 0.07 exactly on the pipe", 0.07, 0, false},
        {"y = 0.07 exactly on the pipe", 0, 0.07, false},
        {"x = -0.0700001", -0.0700001, 0, true},
        {"y = -0.0700001", 0, -0.0700001, true},
        {"diagonal 0.05, 0.05", 0.05, 0.05, true},
        {"diagonal 0.049, 0.049", 0.049, 0.049, false},
        {"centre", 0, 0, false},
    };
    for (const row &r : rows) {
        load({{r.x, r.y, 0, 0, 1.0}});
        sim.step_length = 0.01;
        track_step();
        EXPECT_EQ(sim.particle_count, r.lost ? 0 : 1) << r.where;
    }
    // The boundary is the double square of 0.07.
    ASSERT_EQ(0.07 * 0.07, 0.004900000000000001);
}

TEST_F(tracking, scraper_takes_particles_strictly_beyond_its_edge)
{
    struct row {
        const char *where;
        bool scraper_on;
        double edge, x, y;
        bool lost;
    };
    const row rows[] = {
        {"on the edge", true, 0.03, 0.03, 0, false},
        {"just beyond", true, 0.03, 0.0300001, 0, true},
        {"beyond, any y", true, 0.03, 0.031, -0.06, true},
        {"negative x", true, 0.03, -0.06, 0, false},
        {"scraper off", false, 0.03, 0.05, 0, false},
        {"edge at 0: x > 0 goes", true, 0.0, 1e-12, 0, true},
        {"edge at 0: x = 0 stays", true, 0.0, 0.0, 0.06, false},
    };
    for (const row &r : rows) {
        load({{r.x, r.y, 0, 0, 1.0}});
        sim.step_length = 0.01;
        sim.scraper_on = r.scraper_on;
        sim.scraper_x = r.edge;
        track_step();
        EXPECT_EQ(sim.particle_count, r.lost ? 0 : 1) << r.where;
    }
}

TEST_F(tracking, losing_particle_zero_ends_the_highlight)
{
    struct row {
        int lost_slot;
        bool highlight_after;
    };
    const row rows[] = {{0, false}, {1, true}, {2, true}};
    for (const row &r : rows) {
        std::vector<particle> ps(3, particle{0.01, 0, 0, 0, 1});
        ps[r.lost_slot].x = 0.08;
        load(ps);
        sim.highlight = true;
        sim.step_length = 0.01;
        track_step();
        EXPECT_EQ(sim.particle_count, 2);
        EXPECT_EQ(sim.highlight, r.highlight_after) << "lost slot " << r.lost_slot;
    }
}

// Losses move the last live particle into the gap, and each loss counts the particle before
// the gap once more in the sums. The sums are worked out by hand.
TEST_F(tracking, losses_compact_the_arrays_and_count_the_previous_particle_again)
{
    struct row {
        const char *what;
        std::vector<double> x;        // y = x / 10, p = 1 + slot / 100 to follow the moves
        std::vector<double> x_after;
        double sx;
    };
    const row rows[] = {
        // 0.01 kept; 0.08 lost: 0.04 moves in, 0.01 counted again; then 0.04, 0.02, 0.03.
        {"loss in the middle", {0.01, 0.08, 0.02, 0.03, 0.04}, {0.01, 0.04, 0.02, 0.03},
         0.0001 + 0.0001 + 0.0016 + 0.0004 + 0.0009},
        // 0.08 lost, 0.09 moves in and is lost too: 0.01 is counted three times.
        {"two losses in a row at the end", {0.01, 0.08, 0.09}, {0.01}, 3 * 0.0001},
        // Slot 0 lost: no previous particle to count.
        {"loss in slot 0", {0.08, 0.01, 0.02}, {0.02, 0.01}, 0.0004 + 0.0001},
        {"all lost", {0.08, 0.09, -0.1}, {}, 0},
        {"none lost", {0.01, 0.02}, {0.01, 0.02}, 0.0005},
        {"no particles", {}, {}, 0},
    };
    for (const row &r : rows) {
        std::vector<particle> ps;
        for (size_t i = 0; i < r.x.size(); i++) ps.push_back({r.x[i], r.x[i] / 10, 0, 0, 1 + i / 100.0});
        load(ps);
        sim.step_length = 0.01;
        track_sums s = track_step();
        ASSERT_EQ(sim.particle_count, (int)r.x_after.size()) << r.what;
        for (size_t i = 0; i < r.x_after.size(); i++) {
            EXPECT_EQ(beam_x[i], r.x_after[i]) << r.what << ", slot " << i;
            EXPECT_EQ(beam_y[i], r.x_after[i] / 10) << r.what << ", slot " << i;
            size_t from = 0;
            while (r.x[from] != r.x_after[i]) from++;
            EXPECT_EQ(beam_momentum[i], 1 + from / 100.0) << r.what << ": momentum moves along";
        }
        EXPECT_NEAR(s.sx, r.sx, 1e-18) << r.what;
        EXPECT_NEAR(s.sy, r.sx / 100, 1e-20) << r.what;
    }
}

// The step as described, one particle at a time: step particle i, test it, and on a loss move
// the last (not yet stepped) particle into slot i and go on with it.
struct reference_result {
    std::vector<particle> ps;
    double sx, sy;
    bool highlight;
};

reference_result reference_step(std::vector<particle> ps, const magnet_settings &m, double ds,
                                 double rho, bool scraper, double edge, bool highlight)
{
    double sx = 0, sy = 0;
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
            sx += q.x * q.x;
            sy += q.y * q.y;
            i++;
            continue;
        }
        n--;
        ps[i] = ps[n];
        if (i == 0) {
            highlight = false;
        } else {
            sx += ps[i - 1].x * ps[i - 1].x;
            sy += ps[i - 1].y * ps[i - 1].y;
        }
    }
    ps.resize(n);
    return {ps, sx, sy, highlight};
}

// Random beams, fields and losses: the step gives exactly the same arrays, count, sums and
// highlight as the particle-at-a-time description, whatever the count, wherever the losses fall.
TEST_F(tracking, matches_the_particle_at_a_time_step_exactly)
{
    {
        std::mt19937 gen(2024);
        std::uniform_real_distribution<double> u(-1, 1);
        const int counts[] = {1, 2, 3, 4, 5, 7, 8, 9, 64, 101, 1000, 4099, 10000};
        for (int trial = 0; trial < 52; trial++) {
            int n = counts[trial % 13];
            double size = 0.03 + 0.05 * (trial % 4) / 3;   // from few to many losses
            std::vector<particle> ps(n);
            for (particle &q : ps) q = {size * u(gen), size * u(gen), 0.01 * u(gen), 0.01 * u(gen), 1 + 0.15 * u(gen)};
            magnet_settings m = {u(gen) / 30, 4 * u(gen), 30 * u(gen), 900 * u(gen), (double)(trial % 3 - 1)};
            double ds = 0.05 * (u(gen) + 1.5);
            double rho = trial % 2 ? 7.0028 : 0;
            bool scraper = trial % 5 < 2;
            double edge = 0.02 + 0.03 * (u(gen) + 1) / 2;

            load(ps);
            magnets = m;
            sim.step_length = ds;
            element_bend_radius[3] = rho;
            sim.component_index = 3;
            sim.bend_active = rho != 0;
            sim.scraper_on = scraper;
            sim.scraper_x = edge;
            sim.highlight = true;
            track_sums s = track_step();
            reference_result want = reference_step(ps, m, ds, rho, scraper, edge, true);

            ASSERT_EQ(sim.particle_count, (int)want.ps.size()) << "trial " << trial;
            EXPECT_EQ(std::make_tuple(s.sx, s.sy, sim.highlight), std::make_tuple(want.sx, want.sy, want.highlight))
                << "trial " << trial;
            for (int i = 0; i < sim.particle_count; i++) {
                const particle &w = want.ps[i];
                ASSERT_EQ(std::make_tuple(beam_x[i], beam_y[i], beam_xp[i], beam_yp[i], beam_momentum[i]),
                          std::make_tuple(w.x, w.y, w.xp, w.yp, w.p))
                    << "trial " << trial << " slot " << i;
            }
        }
    }
}

TEST(step_length, follows_the_frame_time_and_stops_just_past_the_element)
{
    struct row {
        const char *what;
        double elapsed, speed, distance;
        bool shift;
        double ds;
    };
    const row rows[] = {
        {"normal frame", 0.012, 1.0, 1e20, false, 0.012},
        {"slow frame, fast speed", 0.05, 4.0, 1e20, false, 0.2},
        {"clipped at the element end", 1.0, 100.0, 0.5, false, 0.500001},
        {"short of the element end", 0.012, 1.0, 0.5, false, 0.012},
        {"slow motion", 0.02, 2.0, 1e20, true, 0.008},
        {"slow motion after clipping", 1.0, 100.0, 0.5, true, 0.1000002},
    };
    for (const row &r : rows)
        EXPECT_NEAR(next_step_length(r.elapsed, r.speed, r.distance, r.shift), r.ds, 1e-15) << r.what;

    allocate_particles();
    reset_simulation_state();
    sim.ring_position = 2.0;
    sim.simulation_speed = 8;
    sim.distance_to_element_end = 0.05;
    advance_along_ring(0.012, false);
    EXPECT_NEAR(sim.step_length, 0.050001, 1e-15);
    EXPECT_NEAR(sim.ring_position, 2.050001, 1e-15);
}

} // namespace
