// Fentra linear optics: thick matrices of the lattice's pieces, the periodic solution of each
// plane, the phase advance summed piece by piece (so tunes keep their whole part), the
// chromaticity by momentum deviations of +-1e-5, and the Twiss functions along a period.
#include "fentra/physics/optics.h"

#include <cmath>
#include <numbers>

void lattice_from_table(optics_lattice *l, int periods)
{
    l->count = element_count;
    l->periods = periods;
    l->cell = false;
    l->length = 0;
    for (int i = 0; i < element_count; i++) {
        double rho = element_bend_radius[i];
        l->piece[i] = {element_length[i], element_strength[i], rho != 0 ? 1 / (rho * rho) : 0};
        l->length += element_length[i];
    }
}

void fodo_cell_lattice(optics_lattice *l)
{
    const double k = 1.384;
    const optics_piece cell[5] = {{0.25, k, 0}, {1, 0, 0}, {0.5, -k, 0}, {1, 0, 0}, {0.25, k, 0}};
    l->count = 5;
    for (int i = 0; i < 5; i++) l->piece[i] = cell[i];
    l->periods = 1;
    l->cell = true;
    l->length = 3;
}

matrix2 multiply(const matrix2 &a, const matrix2 &b)
{
    return {a.m11 * b.m11 + a.m12 * b.m21, a.m11 * b.m12 + a.m12 * b.m22,
            a.m21 * b.m11 + a.m22 * b.m21, a.m21 * b.m12 + a.m22 * b.m22};
}

matrix2 thick_matrix(double L, double K)
{
    if (K == 0) return {1, L, 0, 1};
    double s = sqrt(fabs(K)), phi = s * L;
    if (K > 0) return {cos(phi), sin(phi) / s, -s * sin(phi), cos(phi)};
    return {cosh(phi), sinh(phi) / s, s * sinh(phi), cosh(phi)};
}

double piece_focusing(const optics_piece &p, int plane, double delta)
{
    // The tracking divides every kick, the bend's weak focusing included, by p = 1 + delta.
    return (plane == 0 ? p.k + p.bend : -p.k) / (1 + delta);
}

matrix2 period_matrix(const optics_lattice &l, int plane, double delta)
{
    matrix2 m = {1, 0, 0, 1};
    for (int i = 0; i < l.count; i++)
        m = multiply(thick_matrix(l.piece[i].length, piece_focusing(l.piece[i], plane, delta)), m);
    return m;
}

// ---- Walking a period

// Twiss functions carried through a matrix; the phase grows by atan2(M12, beta M11 - alpha M12),
// which lies in (0, pi) while M12 > 0.
static void transport(twiss_point *t, const matrix2 &m)
{
    double b = t->beta, a = t->alpha, g = (1 + a * a) / b;
    t->phase += atan2(m.m12, b * m.m11 - a * m.m12);
    t->beta = m.m11 * m.m11 * b - 2 * m.m11 * m.m12 * a + m.m12 * m.m12 * g;
    t->alpha = -m.m11 * m.m21 * b + (m.m11 * m.m22 + m.m12 * m.m21) * a - m.m12 * m.m22 * g;
}

// Slices short enough that each turns the phase by less than pi (sqrt|K| x slice <= 0.5) and
// that the largest beta is seen (at most max_slice metres).
static int slices_for(double L, double K, double max_slice)
{
    double n = fmax(sqrt(fabs(K)) * L / 0.5, L / max_slice);
    return n > 1 ? (int)ceil(n) : 1;
}

// Carries t through L metres of focusing K; the largest beta on the way raises *beta_max.
static void advance(twiss_point *t, double L, double K, double max_slice, double *beta_max)
{
    if (L <= 0) return;
    int n = slices_for(L, K, max_slice);
    matrix2 m = thick_matrix(L / n, K);
    for (int i = 0; i < n; i++) {
        transport(t, m);
        if (beta_max && t->beta > *beta_max) *beta_max = t->beta;
    }
}

// Moves along the period from a position: the piece index and the metres used of it.
struct period_walker {
    int piece;
    double used;
    twiss_point t;
};

static void walk(const optics_lattice &l, period_walker *w, double distance, int plane, double delta)
{
    while (distance > 0 && w->piece < l.count) {
        const optics_piece &p = l.piece[w->piece];
        double rest = p.length - w->used, d = fmin(rest, distance);
        advance(&w->t, d, piece_focusing(p, plane, delta), 1.0, nullptr);
        distance -= d;
        w->used += d;
        if (w->used >= p.length) w->piece++, w->used = 0;
    }
}

// ---- The periodic solution

static plane_optics solve_plane(const optics_lattice &l, int plane, double delta)
{
    plane_optics o = {};
    matrix2 m = period_matrix(l, plane, delta);
    o.trace = m.m11 + m.m22;
    o.stable = l.count > 0 && fabs(o.trace) < 2;
    if (!o.stable) return o;
    double c = o.trace / 2, s = copysign(sqrt(1 - c * c), m.m12);
    o.beta = m.m12 / s;
    o.alpha = (m.m11 - m.m22) / (2 * s);
    // The phase is summed through the pieces, so a period of more than a whole turn keeps it.
    twiss_point t = {o.beta, o.alpha, 0};
    o.beta_max = o.beta;
    for (int i = 0; i < l.count; i++)
        advance(&t, l.piece[i].length, piece_focusing(l.piece[i], plane, delta), 0.05, &o.beta_max);
    o.phase = t.phase;
    o.tune = l.periods * o.phase / (2 * std::numbers::pi);
    return o;
}

lattice_optics solve_lattice(const optics_lattice &l, double delta)
{
    lattice_optics o = {};
    for (int p = 0; p < 2; p++) o.plane[p] = solve_plane(l, p, delta);
    o.periodic = o.plane[0].stable && o.plane[1].stable;
    if (!o.periodic || delta != 0) return o;
    const double d = 1e-5;
    lattice_optics up = solve_lattice(l, d), down = solve_lattice(l, -d);
    if (!up.periodic || !down.periodic) return o;
    for (int p = 0; p < 2; p++)
        o.chromaticity[p] = (up.plane[p].tune - down.plane[p].tune) / (2 * d);
    return o;
}

twiss_point twiss_at(const optics_lattice &l, const plane_optics &start, int plane, double s,
                     double delta)
{
    period_walker w = {0, 0, {start.beta, start.alpha, 0}};
    walk(l, &w, s, plane, delta);
    return w.t;
}

double ring_phase(const optics_lattice &l, const plane_optics &start, int plane, double s)
{
    if (!(l.length > 0)) return 0;
    double periods = floor(s / l.length);
    return periods * start.phase + twiss_at(l, start, plane, s - periods * l.length).phase;
}

void beta_samples(const optics_lattice &l, const lattice_optics &o, int count, double *beta_x,
                  double *beta_y)
{
    double *out[2] = {beta_x, beta_y};
    for (int p = 0; p < 2; p++) {
        period_walker w = {0, 0, {o.plane[p].beta, o.plane[p].alpha, 0}};
        double at = 0;
        for (int k = 0; k < count; k++) {
            double s = count > 1 ? l.length * k / (count - 1) : 0;
            walk(l, &w, s - at, p, 0);
            at = s;
            out[p][k] = w.t.beta;
        }
    }
}
