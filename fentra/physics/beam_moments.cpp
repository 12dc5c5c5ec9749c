// Fentra beam moments: one pass for the sums, centred moments by the shifted-sums form
// (relative to the first particle, so a beam far off axis loses no precision), and the
// beam's ellipse and mismatch from them.
#include "fentra/physics/beam_moments.h"

#include <cmath>

static plane_moments plane_of(const double *x, const double *xp, int n)
{
    plane_moments m = {};
    if (n <= 0) return m;
    const double x0 = x[0], a0 = xp[0];
    double s1 = 0, s2 = 0, s11 = 0, s12 = 0, s22 = 0;
    for (int i = 0; i < n; i++) {
        double u = x[i] - x0, v = xp[i] - a0;
        s1 += u, s2 += v, s11 += u * u, s12 += u * v, s22 += v * v;
    }
    double mu = s1 / n, mv = s2 / n;
    m.centroid = x0 + mu;
    m.centroid_angle = a0 + mv;
    m.xx = fmax(s11 / n - mu * mu, 0);
    m.xxp = s12 / n - mu * mv;
    m.xpxp = fmax(s22 / n - mv * mv, 0);
    m.sigma = sqrt(m.xx);
    double e2 = m.xx * m.xpxp - m.xxp * m.xxp;
    m.emittance = e2 > 0 ? sqrt(e2) : 0;
    if (m.emittance > 0) {
        m.beta = m.xx / m.emittance;
        m.alpha = -m.xxp / m.emittance;
        m.gamma = m.xpxp / m.emittance;
    }
    return m;
}

beam_moments measure_beam(const double *x, const double *xp, const double *y, const double *yp,
                          int n)
{
    beam_moments b;
    b.count = n > 0 ? n : 0;
    b.plane[0] = plane_of(x, xp, n);
    b.plane[1] = plane_of(y, yp, n);
    return b;
}

double mismatch_factor(double beta, double alpha, const plane_moments &beam)
{
    if (!(beam.emittance > 0) || !(beta > 0)) return 0;
    double gamma = (1 + alpha * alpha) / beta;
    return 0.5 * (beta * beam.gamma - 2 * alpha * beam.alpha + gamma * beam.beta);
}
