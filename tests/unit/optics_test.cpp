// Optics that no one here made up: the tracking step, driven as the frame drives it (fields
// sampled at each step's end, KORA steps clipped at element ends), must reproduce the textbook
// thick-lens optics of the FODO cell, keep a matched beam's size, make a mismatched beam beat,
// and give a stable KORA superperiod.
#include "fentra/physics/beam.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/state.h"
#include "fentra/physics/tracking.h"

#include "Morvane/report.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <string>
#include <unistd.h>

namespace {

// 2x2 transfer matrix [[a, b], [c, d]] acting on (position, angle).
struct mat2 {
    double a, b, c, d;
};

mat2 operator*(const mat2 &m, const mat2 &n)
{
    return {m.a * n.a + m.b * n.c, m.a * n.b + m.b * n.d, m.c * n.a + m.d * n.c, m.c * n.b + m.d * n.d};
}

mat2 drift(double L) { return {1, L, 0, 1}; }

// A thick quadrupole of length L and strength k (k > 0 focuses in this plane).
mat2 quadrupole(double L, double k)
{
    double s = sqrt(fabs(k)), phi = s * L;
    if (k > 0) return {cos(phi), sin(phi) / s, -s * sin(phi), cos(phi)};
    return {cosh(phi), sinh(phi) / s, s * sinh(phi), cosh(phi)};
}

// Periodic optics of a one-period matrix: phase advance (rad) and beta at its start (m).
struct periodic {
    double trace, mu, beta;
};

periodic optics_of(const mat2 &m)
{
    periodic p;
    p.trace = m.a + m.d;
    p.mu = acos(p.trace / 2);
    p.beta = m.b / sin(p.mu);
    return p;
}

const double ds_fine = 0.0005;

// Two probe particles (offset, then angle) in both planes with no momentum deviation.
void place_probes(double offset)
{
    sim.particle_count = 2;
    beam_x[0] = beam_y[0] = offset;
    beam_xp[0] = beam_yp[0] = 0;
    beam_x[1] = beam_y[1] = 0;
    beam_xp[1] = beam_yp[1] = offset;
    beam_momentum[0] = beam_momentum[1] = 1;
}

void probe_matrices(double offset, mat2 *mx, mat2 *my)
{
    *mx = {beam_x[0] / offset, beam_x[1] / offset, beam_xp[0] / offset, beam_xp[1] / offset};
    *my = {beam_y[0] / offset, beam_y[1] / offset, beam_yp[0] / offset, beam_yp[1] / offset};
}

// Frames of the FODO cell as the loop runs them: the quadrupole found at the ring position
// (the end of the step about to be tracked), the step, then the advance by ds.
void fodo_frames(int count, double ds)
{
    for (int k = 0; k < count; k++) {
        magnets = magnet_settings{0, 0, 0, 0, 0};
        magnets.quad_strength += fodo_quadrupole(sim.ring_position);
        track_step();
        advance_along_ring(ds, false);   // speed 1 m/s: ds metres in ds seconds
    }
}

class optics : public ::testing::Test {
protected:
    void SetUp() override
    {
        allocate_particles();
        reset_simulation_state();
        sim.fodo_cell = true;
        sim.step_length = 0;   // the beam's first frame tracks nothing
        sim.ring_position = 0;
    }
};

// Textbook cell: half F quadrupole 0.25 m, drift 1 m, D quadrupole 0.5 m, drift 1 m, half F
// quadrupole 0.25 m, k = 1.384 m^-2.
mat2 textbook_cell(double k)
{
    return quadrupole(0.25, k) * drift(1) * quadrupole(0.5, -k) * drift(1) * quadrupole(0.25, k);
}

TEST_F(optics, fodo_cell_matrix_matches_the_thick_lens_product)
{
    place_probes(1e-4);
    // The cell from 0 to 3 m: the first frame (length 0) and 6000 steps of 0.5 mm.
    fodo_frames(1, ds_fine);
    fodo_frames(6000, ds_fine);
    ASSERT_NEAR(sim.ring_position, 3.0 + ds_fine, 1e-9);
    mat2 mx, my;
    probe_matrices(1e-4, &mx, &my);

    const periodic px = optics_of(mx), py = optics_of(my);
    const periodic wx = optics_of(textbook_cell(1.384)), wy = optics_of(textbook_cell(-1.384));
    printf("tracked cell: mu %.3f / %.3f deg, beta %.4f / %.4f m\n", px.mu * 180 / std::numbers::pi,
           py.mu * 180 / std::numbers::pi, px.beta, py.beta);
    // The textbook values themselves, then the tracked cell within 1 %.
    EXPECT_NEAR(wx.mu * 180 / std::numbers::pi, 54.45, 0.01);
    EXPECT_NEAR(wy.mu * 180 / std::numbers::pi, 54.45, 0.01);
    EXPECT_NEAR(wx.beta, 5.2355, 1e-3);
    EXPECT_NEAR(wy.beta, 2.0496, 1e-3);
    EXPECT_NEAR(px.mu / wx.mu, 1, 0.01);
    EXPECT_NEAR(py.mu / wy.mu, 1, 0.01);
    EXPECT_NEAR(px.beta / wx.beta, 1, 0.01);
    EXPECT_NEAR(py.beta / wy.beta, 1, 0.01);
    EXPECT_NEAR(mx.a * mx.d - mx.b * mx.c, 1, 1e-9) << "a symplectic map has determinant 1";
}

// rms x and y of the live particles.
void rms(double *x, double *y)
{
    double sx = 0, sy = 0;
    for (int i = 0; i < sim.particle_count; i++) {
        sx += beam_x[i] * beam_x[i];
        sy += beam_y[i] * beam_y[i];
    }
    *x = sqrt(sx / sim.particle_count);
    *y = sqrt(sy / sim.particle_count);
}

// Largest over smallest rms size at the cell starts over a number of cells.
void beat(int cells, double ds, double *ratio_x, double *ratio_y)
{
    double lo_x = 1, hi_x = 0, lo_y = 1, hi_y = 0;
    int steps = (int)lround(3.0 / ds);
    fodo_frames(1, ds);
    for (int c = 0; c <= cells; c++) {
        double x, y;
        rms(&x, &y);
        lo_x = fmin(lo_x, x);
        hi_x = fmax(hi_x, x);
        lo_y = fmin(lo_y, y);
        hi_y = fmax(hi_y, y);
        if (c < cells) fodo_frames(steps, ds);
    }
    *ratio_x = hi_x / lo_x;
    *ratio_y = hi_y / lo_y;
}

// The FODO matched beam, 1000 of its particles, over 30 cells: its size at the cell start
// stays within a few per cent. Squeezed to half the matched beta (same emittance), the beam
// beats: its size swings by about a factor 2.
TEST_F(optics, matched_beam_keeps_its_size_and_a_mismatched_one_beats)
{
    for (int i = 0; i < particle_capacity; i++) beam_momentum[i] = 1;
    make_fodo_matched_beam();
    sim.particle_count = 1000;
    sim.fodo_cell = true;
    double rx, ry;
    beat(30, 0.001, &rx, &ry);
    printf("matched beam over 30 cells: rms max / min x %.4f y %.4f, %d particles left\n", rx, ry,
           sim.particle_count);
    EXPECT_EQ(sim.particle_count, 1000) << "a matched beam inside the pipe loses nothing";
    EXPECT_LT(rx, 1.05);
    EXPECT_LT(ry, 1.05);

    SetUp();
    for (int i = 0; i < particle_capacity; i++) beam_momentum[i] = 1;
    make_fodo_matched_beam();
    sim.particle_count = 1000;
    sim.fodo_cell = true;
    for (int i = 0; i < sim.particle_count; i++) {
        beam_x[i] /= std::numbers::sqrt2;
        beam_y[i] /= std::numbers::sqrt2;
        beam_xp[i] *= std::numbers::sqrt2;
        beam_yp[i] *= std::numbers::sqrt2;
    }
    beat(20, 0.001, &rx, &ry);
    printf("beta / 2 beam over 20 cells: rms max / min x %.4f y %.4f\n", rx, ry);
    EXPECT_GT(rx, 1.6);
    EXPECT_GT(ry, 1.6);
}

// One KORA superperiod as the loop tracks it: element lookup at the ring position, steps of
// at most 0.5 mm clipped to end 1e-6 m past each element's end.
TEST_F(optics, kora_superperiod_is_stable_in_both_planes)
{
    char dir[] = "/tmp/fentra_optics_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string file = std::string(dir) + "/kora_sp.txt";
    write_builtin_lattice(file.c_str());
    read_lattice(file.c_str());
    remove(file.c_str());
    rmdir(dir);
    ASSERT_EQ(element_count, 48);
    reset_simulation_state();
    sim.kora_lattice = true;
    sim.step_length = 0;
    place_probes(1e-4);

    const double L = sim.superperiod_length;
    int frames = 0;
    for (;;) {
        magnets = magnet_settings{0, 0, 0, 0, 0};
        sim.component_index = -1;
        sim.distance_to_element_end = 1e20;
        enter_current_element();
        track_step();
        if (sim.ring_position >= L) break;
        advance_along_ring(ds_fine, false);
        frames++;
    }
    EXPECT_NEAR(sim.ring_position, L, 1e-6 + 1e-9) << "the last step ends just past the superperiod";
    EXPECT_GT(frames, 16.3362818 / ds_fine) << "every element end adds a clipped step";
    EXPECT_EQ(sim.particle_count, 2);

    mat2 mx, my;
    probe_matrices(1e-4, &mx, &my);
    const periodic px = optics_of(mx), py = optics_of(my);

    // The same superperiod as a product of thick elements: a bend of radius rho focuses x with
    // k + 1 / rho^2 and y with -k.
    mat2 tx = {1, 0, 0, 1}, ty = {1, 0, 0, 1};
    for (int i = 0; i < element_count; i++) {
        double k = element_strength[i], rho = element_bend_radius[i];
        double kx = k + (rho != 0 ? 1 / (rho * rho) : 0), len = element_length[i];
        tx = (kx == 0 ? drift(len) : quadrupole(len, kx)) * tx;
        ty = (k == 0 ? drift(len) : quadrupole(len, -k)) * ty;
    }
    const periodic qx = optics_of(tx), qy = optics_of(ty);
    printf("KORA superperiod: trace x %.4f y %.4f; tunes Qx %.4f Qy %.4f (phase below 180 deg)\n", px.trace,
           py.trace, 10 * px.mu / (2 * std::numbers::pi), 10 * py.mu / (2 * std::numbers::pi));
    EXPECT_NEAR(px.trace, qx.trace, 0.01);
    EXPECT_NEAR(py.trace, qy.trace, 0.01);
    EXPECT_NEAR(px.beta / qx.beta, 1, 0.01);
    EXPECT_NEAR(py.beta / qy.beta, 1, 0.01);
    EXPECT_LT(fabs(px.trace), 2) << "stable horizontally";
    EXPECT_LT(fabs(py.trace), 2) << "stable vertically";
    EXPECT_NEAR(mx.a * mx.d - mx.b * mx.c, 1, 1e-9);
    EXPECT_NEAR(my.a * my.d - my.b * my.c, 1, 1e-9);
}

} // namespace
