// Fentra beam generation: sampling of the five beam kinds in the order of random draws the
// program has always used, scaling to the lattice optics, and the beam-wide key actions.
#include "fentra/physics/beam.h"

#include "Morvane/random.h"
#include "fentra/physics/state.h"

#include <cmath>
#include <initializer_list>

// Scale from the unit 4-D distribution to metres and radians. Position / angle factor is the
// beta function the beam is made for: 3 m for the default cell; 14.0 m (x) and 5.32 m (y)
// for KORA, whose negative x' factor mirrors the angles.
struct beam_scale {
    double x, y, xp, yp;
};
static const beam_scale kora_scale = {0.0323835344, 0.02434880285, -0.002313357742, 0.004573547238};
static const beam_scale game_scale = {0.05, 0.05, 0.0006666666666666666, 0.0006666666666666666};
static const beam_scale cell_scale = {0.04, 0.04, 0.013333333333333334, 0.013333333333333334};

// The FODO cell's periodic optics at the cell start (middle of the focusing quadrupole):
// beta 5.2355 m in x and 2.0496 m in y.
static const beam_scale fodo_scale = {0.05720499999999999, 0.03579625, 0.010925618390000875,
                                      0.017459929461884974};

// A ring read from a lattice file takes KORA's place with beams matched to its periodic
// optics at the ring's start: x' gets -alpha / beta of x besides its own spread.
static struct {
    bool loaded;
    beam_scale scale;
    double coupling_x, coupling_y;   // -alpha / beta, 1/m
} ring_beams;

void match_beams_to_ring(bool stable, const double beta[2], const double alpha[2], const double beta_max[2])
{
    ring_beams.loaded = true;
    if (!stable) {
        ring_beams.scale = cell_scale;
        ring_beams.coupling_x = ring_beams.coupling_y = 0;
        return;
    }
    // Each plane's emittance puts the beam's edge at 35 mm where beta is largest: half the
    // pipe's radius, so even a corner of the 4-D shape stays inside the pipe.
    double s[2], sp[2];
    for (int k = 0; k < 2; k++) {
        double emittance = 0.035 * 0.035 / beta_max[k];
        s[k] = sqrt(emittance * beta[k]);
        sp[k] = sqrt(emittance / beta[k]);
    }
    ring_beams.scale = {s[0], s[1], sp[0], sp[1]};
    ring_beams.coupling_x = -alpha[0] / beta[0];
    ring_beams.coupling_y = -alpha[1] / beta[1];
}

int last_beam_kind = beam_none;

void use_kora_beams() { ring_beams.loaded = false; }

void gaussian_pair(double *a, double *b)
{
    // 1e-20 keeps the logarithm finite for a zero draw; 0.000191747... is 2 pi / 32768.
    double rho = sqrt(2 * fabs(log(random_unit() + 1e-20)));
    double theta = random30() * 0.00019174759848570515;
    *a = rho * cos(theta);
    *b = rho * sin(theta);
}

// Uniform in the unit 4-ball by rejection; the squared radius is compared in single
// precision. Returns that squared radius.
static float draw_in_4ball(double *x, double *y, double *xp, double *yp)
{
    float r2;
    do {
        *x = random_signed();
        *y = random_signed();
        *xp = random_signed();
        *yp = random_signed();
        r2 = (float)(*x * *x + *y * *y + *xp * *xp + *yp * *yp);
    } while (r2 > 1.0);
    return r2;
}

// One particle's unit-scaled point (x, y, x', y') of the given kind.
static void draw_point(int kind, double c[4])
{
    if (kind == beam_parallel) {
        do {
            c[0] = random_signed();
            c[1] = random_signed();
        } while (c[0] * c[0] + c[1] * c[1] > 1);
        c[2] = c[3] = 0;
    } else if (kind == beam_kv) {
        float r2 = draw_in_4ball(&c[0], &c[1], &c[2], &c[3]);
        // Onto the sphere: the root and its reciprocal are taken in single precision.
        float inverse = 1 / std::sqrt(r2);
        for (int k = 0; k < 4; k++) c[k] *= inverse;
    } else if (kind == beam_gaussian) {
        gaussian_pair(&c[0], &c[1]);
        gaussian_pair(&c[2], &c[3]);
        // The unit scale is four standard deviations.
        for (int k = 0; k < 4; k++) c[k] *= 0.25;
    } else {
        draw_in_4ball(&c[0], &c[1], &c[2], &c[3]);
    }
}

int chosen_beam_kind(const beam_keys &pressed)
{
    if (pressed.p) return beam_parallel;
    if (pressed.k) return beam_kv;
    if (sim.kora_lattice && !sim.beam_made_for_kora) return beam_kv;
    if (pressed.w) return beam_waterbag;
    if (pressed.g) return beam_gaussian;
    if (pressed.space) return beam_game;
    if (sim.particle_count == 0) return beam_game;
    return beam_none;
}

int make_beam(int kind)
{
    const bool ring = sim.kora_lattice && ring_beams.loaded;
    const beam_scale &s = ring                ? ring_beams.scale
                          : sim.kora_lattice  ? kora_scale
                          : kind == beam_game ? game_scale
                                              : cell_scale;
    const double spread = sim.momentum_spread;
    for (int i = 0; i < particle_capacity; i++) {
        double c[4];
        draw_point(kind, c);
        beam_x[i] = c[0] * s.x;
        beam_y[i] = c[1] * s.y;
        beam_xp[i] = c[2] * s.xp;
        beam_yp[i] = c[3] * s.yp;
        if (ring) {
            beam_xp[i] += ring_beams.coupling_x * beam_x[i];
            beam_yp[i] += ring_beams.coupling_y * beam_y[i];
        }
        beam_momentum[i] = random_signed() * spread + 1.0;
    }
    growarray_clear(&sim.spark_list);
    last_beam_kind = kind;
    sim.particle_count = particle_capacity;
    sim.peak_luminosity = 1e-6;
    if (sim.ring_position == 0) return 0;
    sim.beam_made_for_kora = sim.kora_lattice;
    sim.ring_position = 1e-6;
    return 1;
}

beam_outcome create_beam_if_asked(const beam_keys &pressed)
{
    beam_outcome o = {chosen_beam_kind(pressed), false};
    if (o.kind != beam_none) o.restart_frame = make_beam(o.kind) != 0;
    return o;
}

void toggle_momentum_spread()
{
    sim.momentum_spread = 0.15 - sim.momentum_spread;
    for (int i = sim.particle_count - 1; i >= 0; i--)
        beam_momentum[i] = random_signed() * sim.momentum_spread + 1.0;
}

void make_fodo_matched_beam()
{
    last_beam_kind = beam_none;
    for (int i = 0; i < particle_capacity; i++) {
        double x, y, xp, yp;
        float r = std::sqrt(draw_in_4ball(&x, &y, &xp, &yp));
        beam_x[i] = x / r * fodo_scale.x;
        beam_y[i] = y / r * fodo_scale.y;
        beam_xp[i] = xp / r * fodo_scale.xp;
        beam_yp[i] = yp / r * fodo_scale.yp;
    }
    sim.kora_lattice = false;
    sim.ring_position = 0;
    sim.particle_count = particle_capacity;
}

void toggle_highlight()
{
    if (sim.highlight) {
        sim.highlight = false;
        return;
    }
    int n = sim.particle_count;
    int j = (int)floor(n * random_unit());
    if (j >= n) j = n - 1 < 0 ? 0 : n - 1;
    for (double *a : {beam_x, beam_y, beam_xp, beam_yp}) {
        double t = a[0];
        a[0] = a[j];
        a[j] = t;
    }
    // The tags go with the coordinates, which carry the particles' phases.
    int t = beam_tag[0];
    beam_tag[0] = beam_tag[j];
    beam_tag[j] = t;
    sim.highlight = true;
}
