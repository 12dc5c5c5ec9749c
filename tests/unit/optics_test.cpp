// Optics that no one here made up: the tracking step, driven as the frame drives it (fields
// sampled at each step's end, KORA steps clipped at element ends), must reproduce the textbook
// thick-lens optics of the FODO cell, keep a matched beam's size, make a mismatched beam beat,
// and give a stable KORA superperiod; the optics model shown to students must give the
// figures computed outside the project for the FODO cell and the KORA ring.
#include "fentra/physics/beam.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/optics.h"
#include "fentra/physics/optics_figures.h"
#include "fentra/physics/state.h"
#include "fentra/physics/tracking.h"

#include "Morvane/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <numbers>

namespace {

// 2x2 transfer matrix [[a, b], [c, d]] acting on (position, angle).
struct mat2 {
    double a, b, c, d;
};

mat2 operator*(const mat2 &m, const mat2 &n)
{
    return {m.a * n.a + m.b * n.c, m.a * n.b + m.b * n.d, m.c * n.a + m.d * n.c, m.c * n.b + m.d * n.d};
}

// A thick element of length L and strength k (k > 0 focuses in this plane, 0 is a drift).
mat2 thick(double L, double k)
{
    double s = sqrt(fabs(k)), phi = s * L;
    if (k > 0) return {cos(phi), sin(phi) / s, -s * sin(phi), cos(phi)};
    if (k < 0) return {cosh(phi), sinh(phi) / s, s * sinh(phi), cosh(phi)};
    return {1, L, 0, 1};
}

// Periodic optics of a one-period matrix: trace, phase advance (rad) and beta at its start (m),
// and its determinant (1 for a symplectic map).
struct periodic {
    double trace, mu, beta, det;
};

periodic optics_of(const mat2 &m)
{
    double mu = acos((m.a + m.d) / 2);
    return {m.a + m.d, mu, m.b / sin(mu), m.a * m.d - m.b * m.c};
}

const double ds_fine = 0.0005, probe = 1e-4;

// Two probe particles (offset, then angle) in both planes with no momentum deviation, after
// a fresh state whose first frame tracks nothing.
void start_probes()
{
    allocate_particles();
    reset_simulation_state();
    sim.step_length = 0;
    sim.particle_count = 2;
    beam_x[0] = beam_y[0] = beam_xp[1] = beam_yp[1] = probe;
    beam_xp[0] = beam_yp[0] = beam_x[1] = beam_y[1] = 0;
    beam_momentum[0] = beam_momentum[1] = 1;
}

// The probes' optics over one period in each plane against the thick elements' matrix: the
// same phase advance (a NaN, failing, for an unstable period) and beta within 1 %, and a
// symplectic map.
void expect_probes_follow(const mat2 want[2])
{
    for (int plane = 0; plane < 2; plane++) {
        const double *x = plane ? beam_y : beam_x, *xp = plane ? beam_yp : beam_xp;
        const periodic got = optics_of({x[0] / probe, x[1] / probe, xp[0] / probe, xp[1] / probe});
        const periodic w = optics_of(want[plane]);
        SCOPED_TRACE(plane ? "y" : "x");
        EXPECT_NEAR(got.mu / w.mu, 1, 0.01);
        EXPECT_NEAR(got.beta / w.beta, 1, 0.01);
        EXPECT_NEAR(got.det, 1, 1e-9);
    }
}

// Frames of the FODO cell as the loop runs them: the quadrupole found at the ring position
// (the end of the step about to be tracked), the step, then the advance by ds.
void fodo_frames(int count, double ds)
{
    for (int k = 0; k < count; k++) {
        magnets = magnet_settings{0, fodo_quadrupole(sim.ring_position), 0, 0, 0};
        track_step();
        advance_along_ring(ds, false);   // speed 1 m/s: ds metres in ds seconds
    }
}

// The cell from 0 to 3 m (the first frame of length 0, then 6000 steps of 0.5 mm) against the
// thick-lens cell: half F quadrupole 0.25 m, drift 1 m, D quadrupole 0.5 m, drift 1 m, half F
// quadrupole 0.25 m, k = 1.384 m^-2, whose phase advance is 54.45 degrees in both planes and
// beta 5.2355 m (x) and 2.0496 m (y).
TEST(optics, fodo_cell_matches_the_thick_lens_cell)
{
    start_probes();
    fodo_frames(6001, ds_fine);
    ASSERT_NEAR(sim.ring_position, 3.0 + ds_fine, 1e-9);
    const double beta[2] = {5.2355, 2.0496};
    mat2 want[2];
    for (int plane = 0; plane < 2; plane++) {
        const double k = plane ? -1.384 : 1.384;
        want[plane] = thick(0.25, k) * thick(1, 0) * thick(0.5, -k) * thick(1, 0) * thick(0.25, k);
        EXPECT_NEAR(optics_of(want[plane]).mu * 180 / std::numbers::pi, 54.45, 0.01) << "plane " << plane;
        EXPECT_NEAR(optics_of(want[plane]).beta, beta[plane], 1e-3) << "plane " << plane;
    }
    expect_probes_follow(want);
}

// Largest over smallest rms size in x and y at the cell starts over a number of cells, for
// 1000 particles of the FODO matched beam, their sizes divided by squeeze and angles multiplied.
void beat(int cells, double squeeze, double ratio[2])
{
    allocate_particles();
    reset_simulation_state();
    sim.step_length = 0;
    for (int i = 0; i < particle_capacity; i++) beam_momentum[i] = 1;
    random15_restart();
    make_fodo_matched_beam();
    sim.particle_count = 1000;
    for (int i = 0; i < 1000; i++)
        beam_x[i] /= squeeze, beam_y[i] /= squeeze, beam_xp[i] *= squeeze, beam_yp[i] *= squeeze;
    double lo[2] = {1, 1}, hi[2] = {0, 0};
    fodo_frames(1, 0.001);
    for (int c = 0; c <= cells; c++) {
        double s[2] = {0, 0};
        for (int i = 0; i < sim.particle_count; i++) s[0] += beam_x[i] * beam_x[i], s[1] += beam_y[i] * beam_y[i];
        for (int p = 0; p < 2; p++)
            lo[p] = fmin(lo[p], sqrt(s[p] / sim.particle_count)), hi[p] = fmax(hi[p], sqrt(s[p] / sim.particle_count));
        if (c < cells) fodo_frames(3000, 0.001);
    }
    for (int p = 0; p < 2; p++) ratio[p] = hi[p] / lo[p];
}

// Over 12 cells (650 degrees of phase) the matched beam's size at the cell start stays within a
// few per cent; squeezed to half the matched beta (same emittance), the beam beats: over 6
// cells its size swings by about a factor 2.
TEST(optics, matched_beam_keeps_its_size_and_a_mismatched_one_beats)
{
    double r[2];
    beat(12, 1, r);
    EXPECT_EQ(sim.particle_count, 1000) << "a matched beam inside the pipe loses nothing";
    EXPECT_TRUE(r[0] < 1.05 && r[1] < 1.05) << "rms max / min " << r[0] << " (x), " << r[1] << " (y)";
    beat(6, std::numbers::sqrt2, r);
    EXPECT_TRUE(r[0] > 1.6 && r[1] > 1.6) << "rms max / min " << r[0] << " (x), " << r[1] << " (y)";
}

// One KORA superperiod as the loop tracks it (element lookup at the ring position, steps of
// at most 0.5 mm clipped to end 1e-6 m past each element's end) against the product of its
// thick elements, where a bend of radius rho focuses x with k + 1 / rho^2 and y with -k.
void load_kora() { load_builtin_lattice(); }

// Tracks the particles in place through one KORA superperiod from the ring position they are at,
// as the loop does, with steps of ds.
void kora_superperiod(double ds)
{
    sim.kora_lattice = true;
    const double end = sim.ring_position + sim.superperiod_length;
    for (;;) {
        magnets = magnet_settings{0, 0, 0, 0, 0};
        sim.component_index = -1;
        sim.distance_to_element_end = 1e20;
        enter_current_element();
        track_step();
        if (sim.ring_position >= end - 1e-6) break;
        advance_along_ring(ds, false);
    }
}

// The superperiod's thick-element matrices, every focusing strength divided by p.
void kora_thick(double p, mat2 t[2])
{
    t[0] = t[1] = {1, 0, 0, 1};
    for (int i = 0; i < element_count; i++) {
        double k = element_strength[i], rho = element_bend_radius[i];
        t[0] = thick(element_length[i], (k + (rho != 0 ? 1 / (rho * rho) : 0)) / p) * t[0];
        t[1] = thick(element_length[i], -k / p) * t[1];
    }
}

TEST(optics, kora_superperiod_is_stable_in_both_planes)
{
    load_kora();
    start_probes();
    kora_superperiod(ds_fine);
    EXPECT_NEAR(sim.ring_position, sim.superperiod_length, 1e-6 + 1e-9) << "the last step ends just past the superperiod";
    EXPECT_EQ(sim.particle_count, 2);
    mat2 t[2];
    kora_thick(1, t);
    expect_probes_follow(t);
}

// KORA's momentum acceptance: Qx reaches 5 (trace -2 a superperiod) at -5.2 % in the thick-lens
// model; the tracking at the default step is stable at -5.0 % and unstable at -5.5 %.
TEST(guide_figures, kora_momentum_acceptance_ends_where_qx_reaches_5)
{
    load_kora();
    double delta = 0;
    mat2 t[2];
    for (kora_thick(1, t); t[0].a + t[0].d > -2; kora_thick(1 + delta, t)) delta -= 1e-5;
    EXPECT_NEAR(delta, -0.0523, 0.0005);
    const struct { double delta; bool x_stable; } rows[] = {{-0.050, true}, {-0.055, false}, {0.15, true}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.delta);
        start_probes();
        beam_momentum[0] = beam_momentum[1] = 1 + r.delta;
        sim.ring_position = 1e-6;
        sim.step_length = 0.012;
        kora_superperiod(0.012);
        EXPECT_EQ(fabs((beam_x[0] + beam_xp[1]) / probe) < 2, r.x_stable);
    }
}

// The K beam made for KORA (beta 14.0 m and 5.32 m, alpha 0) against the superperiod's periodic
// ellipse: mismatch factors 1.28 and 1.54, so its size beats by about 2.1 and 2.7.
TEST(guide_figures, kora_beam_is_mismatched_to_the_periodic_optics)
{
    load_kora();
    allocate_particles();
    reset_simulation_state();
    sim.kora_lattice = true;
    random15_restart();
    make_beam(beam_kv);
    mat2 t[2];
    kora_thick(1, t);
    const double want[2] = {1.28, 1.54};
    for (int plane = 0; plane < 2; plane++) {
        const double *x = plane ? beam_y : beam_x, *xp = plane ? beam_yp : beam_xp;
        double xx = 0, xxp = 0, pp = 0;
        for (int i = 0; i < particle_capacity; i++) xx += x[i] * x[i], xxp += x[i] * xp[i], pp += xp[i] * xp[i];
        const double e = sqrt(xx * pp - xxp * xxp), bb = xx / e, ab = -xxp / e, gb = pp / e;
        const periodic o = optics_of(t[plane]);
        const double alpha = (t[plane].a - t[plane].d) / (2 * sin(o.mu)), gamma = (1 + alpha * alpha) / o.beta;
        const double B = 0.5 * (o.beta * gb - 2 * alpha * ab + gamma * bb);
        EXPECT_NEAR(B, want[plane], 0.02) << "plane " << plane;
    }
}

// ---- Figures the student guide quotes

// The thick-lens FODO cell in one plane with k_add added all along it, drifts included (a held
// quadrupole key in the FODO cell).
mat2 fodo_thick(int plane, double k_add)
{
    const double sign = plane ? -1 : 1, L[5] = {0.25, 1, 0.5, 1, 0.25}, k[5] = {1.384, 0, -1.384, 0, 1.384};
    mat2 m = {1, 0, 0, 1};
    for (int i = 0; i < 5; i++) m = thick(L[i], sign * (k[i] + k_add)) * m;
    return m;
}

// The probes' one-cell map in each plane after tracking the FODO cell from 0 with steps of ds
// and the key's k_add held all the while.
void tracked_fodo_cell(double ds, double k_add, mat2 out[2])
{
    start_probes();
    sim.step_length = ds;
    for (int k = 0; sim.ring_position < 3.0 - 1e-9; k++) {
        magnets = magnet_settings{0, k_add + fodo_quadrupole(sim.ring_position), 0, 0, 0};
        track_step();
        advance_along_ring(ds, false);
    }
    for (int plane = 0; plane < 2; plane++) {
        const double *x = plane ? beam_y : beam_x, *xp = plane ? beam_yp : beam_xp;
        out[plane] = {x[0] / probe, x[1] / probe, xp[0] / probe, xp[1] / probe};
    }
}

// The same cell as thin kicks at the ends of steps j ds (j = 1 .. 3 / ds), a quadrupole wherever
// the step's end lies within 0.25 m of a cell boundary or of the cell's middle: the sampling
// the guide explains, worked out apart from the program's lookup.
mat2 sampled_fodo_cell(int plane, double ds)
{
    mat2 m = {1, 0, 0, 1};
    const int steps = (int)lround(3.0 / ds);
    for (int j = 0; j < steps; j++) {
        double s = j * ds, k = 0;
        if (s < 0.25 - 1e-9 || s >= 2.75 - 1e-9) k = 1.384;
        if (s >= 1.25 - 1e-9 && s < 1.75 - 1e-9) k = -1.384;
        if (plane) k = -k;
        m = mat2{1, ds, 0, 1} * mat2{1, 0, -k * ds, 1} * m;
    }
    return m;
}

double degrees(const mat2 &m) { return optics_of(m).mu * 180 / std::numbers::pi; }

// The guide's table of the FODO cell's tracked phase advance against the step: at 1 m/s the
// cell tracks 53.65 degrees (41 step ends in each 0.5 m quadrupole), at 2 m/s the planes part.
TEST(guide_figures, fodo_phase_advance_follows_the_step_sampling)
{
    const struct { double ds, mu_x, mu_y; } rows[] = {
        {0.006, 54.25, 54.25}, {0.012, 53.65, 53.65}, {0.024, 56.96, 50.14}, {0.048, 61.80, 48.33}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.ds);
        mat2 got[2];
        tracked_fodo_cell(r.ds, 0, got);
        EXPECT_NEAR(degrees(got[0]), degrees(sampled_fodo_cell(0, r.ds)), 0.01);
        EXPECT_NEAR(degrees(got[1]), degrees(sampled_fodo_cell(1, r.ds)), 0.01);
        EXPECT_NEAR(degrees(got[0]), r.mu_x, 0.01);
        EXPECT_NEAR(degrees(got[1]), r.mu_y, 0.01);
    }
}

// A held 4 or 5 in the FODO cell: the thick-lens limit of the added k is 0.092 m^-2 in the
// plane it defocuses, the tracking's within 0.005 of it; +2 m^-2 leaves x stable (trace -1.09)
// and makes y grow 67 times a cell.
TEST(guide_figures, fodo_cell_stability_limit_under_a_held_quadrupole)
{
    double limit = 0;
    while (fodo_thick(1, limit).a + fodo_thick(1, limit).d < 2) limit += 1e-5;
    EXPECT_NEAR(limit, 0.092, 0.0005);
    const struct { double k_add; bool x_stable, y_stable; } rows[] = {
        {limit - 0.006, true, true}, {limit + 0.004, true, false}, {-limit + 0.006, true, true},
        {-limit - 0.004, false, true}, {2, true, false}, {-2, false, true}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.k_add);
        mat2 got[2];
        tracked_fodo_cell(0.012, r.k_add, got);
        EXPECT_EQ(fabs(got[0].a + got[0].d) < 2, r.x_stable);
        EXPECT_EQ(fabs(got[1].a + got[1].d) < 2, r.y_stable);
    }
    mat2 got[2];
    tracked_fodo_cell(0.012, 2, got);
    EXPECT_NEAR(got[0].a + got[0].d, fodo_thick(0, 2).a + fodo_thick(0, 2).d, 0.05);
    EXPECT_NEAR(fodo_thick(0, 2).a + fodo_thick(0, 2).d, -1.10, 0.01);
    EXPECT_NEAR(got[1].a + got[1].d, 67.1, 0.5);
}

double degrees(double rad) { return rad * 180 / std::numbers::pi; }

// The model's FODO cell against the cell's matrix multiplied out here and the known solution:
// 54.45 degrees a cell, beta 5.2355 m and 2.0496 m, alpha 0 at the cell's start (a symmetry
// point), chromaticity -0.164 a cell in both planes.
TEST(optics_model, fodo_cell_has_its_known_periodic_solution)
{
    optics_lattice l;
    fodo_cell_lattice(&l);
    lattice_optics o = solve_lattice(l);
    ASSERT_TRUE(o.periodic);
    const double beta[2] = {5.2355, 2.0496};
    for (int p = 0; p < 2; p++) {
        SCOPED_TRACE(p ? "y" : "x");
        const double k = p ? -1.384 : 1.384;
        const mat2 want = thick(0.25, k) * thick(1, 0) * thick(0.5, -k) * thick(1, 0) * thick(0.25, k);
        const matrix2 got = period_matrix(l, p, 0);
        EXPECT_NEAR(got.m11, want.a, 1e-12);
        EXPECT_NEAR(got.m12, want.b, 1e-12);
        EXPECT_NEAR(got.m21, want.c, 1e-12);
        EXPECT_NEAR(got.m22, want.d, 1e-12);
        EXPECT_NEAR(degrees(o.plane[p].phase), 54.45, 0.01);
        EXPECT_NEAR(o.plane[p].tune, 54.45 / 360, 1e-4);
        EXPECT_NEAR(o.plane[p].beta, beta[p], 1e-3);
        EXPECT_NEAR(o.plane[p].alpha, 0, 1e-9);
        EXPECT_NEAR(o.chromaticity[p], -0.164, 0.001);
        // The largest beta of a FODO cell sits in the middle of its focusing quadrupole (x), at
        // the cell's start here, and of the defocusing one (y), in the middle of the cell.
        EXPECT_NEAR(o.plane[p].beta_max, p ? twiss_at(l, o.plane[p], p, 1.5).beta : o.plane[p].beta, 1e-3);
    }
}

// The KORA ring (ten superperiods of the table) against the figures computed outside the
// project: tunes with their whole part, Twiss functions at the superperiod's start and the
// natural chromaticities.
TEST(optics_model, kora_ring_has_the_reference_tunes_twiss_and_chromaticities)
{
    load_kora();
    optics_lattice l;
    lattice_from_table(&l, 10);
    lattice_optics o = solve_lattice(l);
    ASSERT_TRUE(o.periodic);
    const struct { double tune, beta, alpha, xi; } want[2] = {{4.4036, 10.59, 0.606, -6.13},
                                                             {3.7980, 5.99, -1.098, -4.71}};
    for (int p = 0; p < 2; p++) {
        SCOPED_TRACE(p ? "y" : "x");
        EXPECT_NEAR(o.plane[p].tune, want[p].tune, 1e-4);
        EXPECT_NEAR(o.plane[p].beta, want[p].beta, 0.005);
        EXPECT_NEAR(o.plane[p].alpha, want[p].alpha, 0.0005);
        EXPECT_NEAR(o.chromaticity[p], want[p].xi, 0.005);
        // Walking the whole period brings the periodic functions back to where they started.
        twiss_point end = twiss_at(l, o.plane[p], p, l.length);
        EXPECT_NEAR(end.beta, o.plane[p].beta, 1e-9);
        EXPECT_NEAR(end.alpha, o.plane[p].alpha, 1e-9);
        EXPECT_NEAR(ring_phase(l, o.plane[p], p, 10 * l.length) / (2 * std::numbers::pi), want[p].tune, 1e-4);
    }
}

// The same superperiod as one of 2 or 20 periods changes the tunes in proportion; the FODO
// quadrupoles made 2.3 times stronger are past the stability limit (|trace| > 2).
TEST(optics_model, tunes_scale_with_the_period_count_and_strong_quadrupoles_are_unstable)
{
    load_kora();
    optics_lattice l;
    lattice_from_table(&l, 10);
    const double qx10 = solve_lattice(l).plane[0].tune;
    for (int n : {2, 20}) {
        lattice_from_table(&l, n);
        EXPECT_NEAR(solve_lattice(l).plane[0].tune, qx10 * n / 10, 1e-9) << n << " periods";
    }
    fodo_cell_lattice(&l);
    for (int i = 0; i < l.count; i++) l.piece[i].k *= 2.3;
    lattice_optics o = solve_lattice(l);
    EXPECT_FALSE(o.periodic);
    EXPECT_GT(std::fabs(o.plane[0].trace), 2);
    // A particle 5 % low in momentum sees every strength 1 / 0.95 times stronger.
    fodo_cell_lattice(&l);
    const double k = 1.384 / 0.95;
    const mat2 want = thick(0.25, k) * thick(1, 0) * thick(0.5, -k) * thick(1, 0) * thick(0.25, k);
    EXPECT_NEAR(period_matrix(l, 0, -0.05).m12, want.b, 1e-12);
}

} // namespace

// Keys held in the FODO cell add their quadrupole all along it, and the panel's model follows:
// +2 m^-2 (4) leaves x stable and throws y far past |trace| = 2, -2 (5) the other way round,
// released the cell is stable again. The traces are the cell's matrices multiplied out here.
TEST(optics_model, keys_held_in_the_fodo_cell_change_its_stability)
{
    reset_simulation_state();
    sim.fodo_cell = true;
    for (double key : {2.0, -2.0, 0.0}) {
        SCOPED_TRACE(key);
        footprint_setup setup = footprint_setup_now(magnet_settings{0, key, 0, 0, 0});
        observe_beam_optics(setup);
        const lattice_optics &o = current_optics_model().optics;
        for (int p = 0; p < 2; p++) {
            const double k = p ? -1.384 : 1.384, extra = p ? -key : key;
            const mat2 m = thick(0.25, k + extra) * thick(1, extra) * thick(0.5, -k + extra) * thick(1, extra) *
                           thick(0.25, k + extra);
            EXPECT_NEAR(o.plane[p].trace, m.a + m.d, 1e-9 * (1 + fabs(m.a + m.d)));
            EXPECT_EQ(o.plane[p].stable, fabs(m.a + m.d) < 2);
        }
        EXPECT_EQ(o.periodic, key == 0);
    }
    sim.fodo_cell = false;
}
