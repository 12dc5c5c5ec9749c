// Fentra linear optics of the active lattice: thick-element transfer matrices, the period's
// matrix, stability, tunes with their whole part, natural chromaticity, the periodic Twiss
// functions and phase at any position, and beta samples over one period.
#pragma once

#include "fentra/physics/lattice.h"

// One thick piece of a period. kx, ky > 0 focus in that plane: kx = k + 1/rho^2 in a bend,
// ky = -k; the bend's own term is divided by p like every kick of the tracking.
struct optics_piece {
    double length;  // m
    double k;       // quadrupole k, 1/m^2
    double bend;    // 1/rho^2 of a bend, 0 elsewhere, 1/m^2
};

// A period of the ring and how many make the ring (the FODO cell is a ring of one cell).
struct optics_lattice {
    int count;
    optics_piece piece[element_capacity];
    int periods;
    double length;  // m, one period
    bool cell;      // the FODO cell: figures are given a cell
};

// The element table as a period, repeated periods times.
void lattice_from_table(optics_lattice *l, int periods);
// The 3 m FODO cell: half focusing quadrupole 0.25 m, drift 1 m, defocusing quadrupole
// 0.5 m, drift 1 m, half focusing quadrupole 0.25 m, k = 1.384 m^-2.
void fodo_cell_lattice(optics_lattice *l);

// A 2 x 2 transfer matrix acting on (position, angle).
struct matrix2 {
    double m11, m12, m21, m22;
};
matrix2 multiply(const matrix2 &a, const matrix2 &b);   // a after b
// A thick piece of length L and focusing K: cos/sin for K > 0, cosh/sinh for K < 0, a drift for 0.
matrix2 thick_matrix(double L, double K);
// Focusing of a piece in plane 0 (x) or 1 (y) for a particle of momentum 1 + delta.
double piece_focusing(const optics_piece &p, int plane, double delta);
// The period's matrix from its start, in beam order.
matrix2 period_matrix(const optics_lattice &l, int plane, double delta);

// The periodic solution of one plane.
struct plane_optics {
    bool stable;      // |trace| < 2
    double trace;
    double beta, alpha;   // at the period's start, m and 1 (0 when unstable)
    double phase;     // phase advance a period, rad, whole turns included
    double tune;      // periods x phase / 2 pi
    double beta_max;  // largest beta over the period, m
};
struct lattice_optics {
    bool periodic;       // both planes stable
    plane_optics plane[2];
    double chromaticity[2];   // dQ/d delta, natural (0 when not periodic)
};

// The solution at momentum 1 + delta (chromaticity included only for delta = 0).
lattice_optics solve_lattice(const optics_lattice &l, double delta = 0);

// Twiss functions and the phase since the period's start, at s metres into the period
// (0 <= s <= length), for a stable plane.
struct twiss_point {
    double beta, alpha;
    double phase;   // rad from the period's start
};
twiss_point twiss_at(const optics_lattice &l, const plane_optics &start, int plane, double s,
                     double delta = 0);

// Phase advance of one plane from the ring's start to ring position s (whole periods and
// the part of the current one): the model's phase function.
double ring_phase(const optics_lattice &l, const plane_optics &start, int plane, double s);

// Beta of both planes at count evenly spaced positions over one period (first at 0, last at
// the period's end).
void beta_samples(const optics_lattice &l, const lattice_optics &o, int count, double *beta_x,
                  double *beta_y);
