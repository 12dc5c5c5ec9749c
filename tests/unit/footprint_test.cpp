// The tune footprint measured from particles tracked by the real tracking step, frame by frame
// as the loop drives it at the default speed (12 ms frames at 1 m/s), against the optics
// model and against physics: the linear footprint settles on the working point, momentum
// spread moves each particle along its own momentum's tunes, space charge moves all tunes
// alike, and an octupole detunes with amplitude as first-order theory says.
#include "fentra/physics/beam.h"
#include "fentra/physics/collective.h"
#include "fentra/physics/optics_figures.h"
#include "fentra/physics/tracking.h"

#include "Morvane/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

const double frame_seconds = 0.012;

void load_kora() { load_builtin_lattice(); }

// A fresh state with n particles of the lattice's matched beam, all on momentum.
void start(bool kora, int n)
{
    allocate_particles();
    if (kora) load_kora();
    reset_simulation_state();
    random15_restart();
    for (int i = 0; i < particle_capacity; i++) beam_momentum[i] = 1;
    if (kora) {
        sim.kora_lattice = true;
        make_beam(beam_kv);
    } else {
        make_fodo_matched_beam();
        sim.fodo_cell = true;
    }
    sim.particle_count = n;
    sim.step_length = 0;
    sim.ring_position = 0;
    footprint.running = false;
}

// Frames as the loop runs them: the held magnets, the lattice at the ring position, space
// charge, the step, the observation, then the advance by one frame's time at the speed.
void frames(int count, double speed = 1, magnet_settings held = {})
{
    sim.simulation_speed = speed;
    for (int k = 0; k < count && sim.particle_count > 0; k++) {
        magnets = held;
        sim.component_index = -1;
        sim.distance_to_element_end = 1e20;
        if (sim.kora_lattice) enter_current_element();
        if (sim.fodo_cell) magnets.quad_strength += fodo_quadrupole(sim.ring_position);
        if (sim.space_charge) space_charge_kick();
        track_step();
        observe_beam_optics(footprint_setup_now(held));
        advance_along_ring(frame_seconds, false);
    }
}

// The shown tunes of a plane at two percentiles (the 5th and the 95th unless given).
std::pair<double, double> central_tunes(int plane, int low = 5, int high = 95)
{
    const float *q = plane ? footprint.qy : footprint.qx;
    std::vector<float> sorted(q, q + footprint.shown);
    std::sort(sorted.begin(), sorted.end());
    if (sorted.empty()) return {NAN, NAN};
    return {sorted[sorted.size() * low / 100], sorted[sorted.size() * high / 100]};
}

// The footprint's mean and its middle half lie within 0.005 of the model's working point in
// both planes, and every live particle shows its tunes. (Its tails, +-0.01 in KORA, come
// from normalising with the thick-lens optics, which the tracking's steps follow only
// closely; they shrink as periods pass.)
bool on_working_point()
{
    const lattice_optics &o = current_optics_model().optics;
    if (footprint.shown != sim.particle_count) return false;
    for (int p = 0; p < 2; p++) {
        auto [lo, hi] = central_tunes(p, 25, 75);
        if (!(std::fabs(footprint.mean_q[p] - o.plane[p].tune) < 0.005)) return false;
        if (!(std::fabs(lo - o.plane[p].tune) < 0.005 && std::fabs(hi - o.plane[p].tune) < 0.005)) return false;
    }
    return true;
}

// With no nonlinear field, the footprint of KORA's matched beam (model 4.4036, 3.7980)
// settles on the working point within about a superperiod (16 s) of the default speed and
// stays there through the next; so does the FODO cell's (model 0.1513 a cell) within seconds.
// The mean over whole superperiods is the tracked tune, 4.4023 and 3.7962 by an independent
// tracking of this model.
TEST(footprint, linear_footprint_settles_on_the_working_point)
{
    const struct { bool kora; int settle_limit, then; } cases[] = {{true, 2400, 1400}, {false, 600, 1000}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.kora ? "KORA" : "FODO");
        start(c.kora, 2000);
        int settled = -1;
        for (int k = 1; k <= c.settle_limit && settled < 0; k++) {
            frames(1);
            if (on_working_point()) settled = k;
        }
        EXPECT_GT(settled, 0);
        printf("settled after %d frames, %.1f s at the default speed\n", settled, settled * frame_seconds);
        frames(c.then);
        EXPECT_TRUE(on_working_point());
        EXPECT_LT(std::fabs(footprint.mean_q[0] - current_optics_model().optics.plane[0].tune), 0.003);
    }
}

// Longer steps move the tracked tunes away from the model: the FODO cell at 2 m/s tracks
// about 57 and 50 degrees a cell, and the footprint shows that rather than the model's 54.45.
TEST(footprint, higher_speed_shows_the_tracked_tunes_not_the_model)
{
    start(false, 1000);
    frames(3000, 2.0);
    ASSERT_EQ(footprint.shown, sim.particle_count);
    EXPECT_NEAR(footprint.mean_q[0] * 360, 57, 1.0);
    EXPECT_NEAR(footprint.mean_q[1] * 360, 50, 1.0);
    EXPECT_FALSE(on_working_point());
}

// Momentum spread: each particle's tunes follow the model's tunes at its own momentum, over
// whole superperiods; for small deviations along the chromaticities. Momenta within +-4 %
// keep Qx below 5, so no particle is lost.
TEST(footprint, momentum_spread_moves_each_particle_along_its_momentum_tunes)
{
    start(true, 400);
    for (int i = 0; i < 400; i++) beam_momentum[i] = 1 + 0.04 * (2.0 * (i % 41) / 40 - 1);
    sim.momentum_spread = 0.04;
    frames(1);
    double L = sim.superperiod_length;
    frames((int)(10 * L / frame_seconds));   // a turn, clipped steps make it a little more
    ASSERT_GT(sim.particle_count, 390) << "a mismatched beam loses a few at most";
    const optics_model &m = current_optics_model();
    std::vector<double> off;
    for (int i = 0; i < sim.particle_count; i++) {
        double delta = beam_momentum[i] - 1;
        lattice_optics own = solve_lattice(m.lattice, delta);
        for (int p = 0; p < 2; p++) off.push_back(std::fabs(particle_tune(p, beam_tag[i]) - own.plane[p].tune));
        if (std::fabs(delta) < 0.003) {
            for (int p = 0; p < 2; p++)
                EXPECT_NEAR(particle_tune(p, beam_tag[i]), m.optics.plane[p].tune + m.optics.chromaticity[p] * delta, 0.015);
        }
    }
    std::sort(off.begin(), off.end());
    EXPECT_LT(off[off.size() * 9 / 10], 0.03) << "nine in ten within 0.03 of their momentum's tunes";
    // Over the spread the footprint is a line, Qx - 4.40 about 1.3 times Qy - 3.80.
    auto [lo, hi] = std::minmax_element(footprint.qx, footprint.qx + footprint.shown);
    EXPECT_GT(*hi - *lo, 0.4);
}

// Space charge: the model's field is linear for every particle, so the whole FODO footprint
// moves down together, from 0.149 to below 0.07 a cell, with little spread: the field
// changes only as the beam's extent does (the beam is being lost meanwhile).
TEST(footprint, space_charge_moves_all_tunes_alike)
{
    start(false, 10000);
    sim.space_charge = true;
    frames(1500);
    ASSERT_GT(footprint.shown, sim.particle_count * 9 / 10);
    for (int p = 0; p < 2; p++) {
        auto [lo, hi] = central_tunes(p, 25, 75);
        EXPECT_LT(footprint.mean_q[p], 0.085);
        EXPECT_LT(hi - lo, 0.01) << "plane " << p;
    }
}

// An octupole held: a particle's tune moves with its amplitude squared, by first-order theory
// dQx = 3 / (8 pi) x OC x J x (integral of beta_x^2 over the cell), and the other way for the
// other key. Particles in mirror pairs keep the centroid on the axis.
TEST(footprint, octupole_detunes_with_amplitude_both_ways)
{
    const double amplitudes[] = {0.0002, 0.002, 0.003};
    optics_lattice l;
    fodo_cell_lattice(&l);
    lattice_optics o = solve_lattice(l);
    double beta[2][beta_sample_count], beta2 = 0;
    beta_samples(l, o, beta_sample_count, beta[0], beta[1]);
    for (int k = 0; k + 1 < beta_sample_count; k++)   // trapezoids
        beta2 += 0.5 * (beta[0][k] * beta[0][k] + beta[0][k + 1] * beta[0][k + 1]) * 3.0 / (beta_sample_count - 1);
    for (double oc : {900.0, -900.0}) {
        start(false, 6);
        for (int i = 0; i < 6; i++) {
            beam_x[i] = (i % 2 ? -1 : 1) * amplitudes[i / 2];
            beam_xp[i] = beam_y[i] = beam_yp[i] = 0;
        }
        frames(30 * 250, 1, magnet_settings{0, 0, 0, oc, 0});
        ASSERT_EQ(sim.particle_count, 6);
        double q0 = particle_tune(0, beam_tag[0]);
        for (int a = 1; a < 3; a++) {
            double J = amplitudes[a] * amplitudes[a] / (2 * o.plane[0].beta);
            double theory = 3 / (8 * std::numbers::pi) * oc * J * beta2;
            double measured = particle_tune(0, beam_tag[2 * a]) - q0;
            EXPECT_NEAR(measured / theory, 1, 0.25) << "OC " << oc << " amplitude " << amplitudes[a]
                                                   << " measured " << measured << " theory " << theory;
        }
    }
}

} // namespace
