// Fentra beam moments: the live beam's centroid, rms sizes and statistical emittances about
// the centroid, its own Twiss functions from the second moments, and the mismatch factor of
// its ellipse against the lattice's.
#pragma once

// One plane of the beam: first and centred second moments and what follows from them.
struct plane_moments {
    double centroid, centroid_angle;   // m, rad
    double xx, xxp, xpxp;              // <x^2>, <x x'>, <x'^2> about the centroid
    double sigma;                      // rms size, m
    double emittance;                  // rms emittance, m rad
    double beta, alpha, gamma;         // the beam's own ellipse (0 without an emittance)
};
struct beam_moments {
    int count;
    plane_moments plane[2];
};

// Moments of particles 0 .. n - 1.
beam_moments measure_beam(const double *x, const double *xp, const double *y, const double *yp,
                          int n);

// B = (beta gamma_b - 2 alpha alpha_b + gamma beta_b) / 2 of the beam's ellipse against the
// lattice's (beta, alpha) at the same point: 1 for a matched beam, larger otherwise; 0 when
// the beam has no emittance.
double mismatch_factor(double beta, double alpha, const plane_moments &beam);
