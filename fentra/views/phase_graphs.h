// Fentra phase-space graphs: the largest coordinates of the beam now and since the last reset
// (R), their statistics text, and where each particle's dot lands in the two graphs.
#pragma once

// The largest signed value of each coordinate (not of its magnitude: a beam lying wholly at
// negative x has a largest x of 0).
struct phase_maxima {
    double x, xp, y, yp;
};

// The record maxima, kept from frame to frame and across beams; only R held clears them.
extern phase_maxima phase_records;

// Largest values over n particles, each starting from 0.
phase_maxima current_maxima(const double *x, const double *y, const double *xp,
                            const double *yp, int n);

// Clears the records when R is held, then raises each record to the current maximum.
void update_phase_records(const phase_maxima &current, bool r_held);

// The four statistics lines: current value and record of x, x', y and y'.
void phase_statistics_text(char *out, int size, const phase_maxima &current,
                           const phase_maxima &record);

// Where a particle's dot lands in one graph, in single precision, and whether it is drawn:
// the left graph (x, x') keeps dots left of W/3, the right one (y, y') right of 2W/3, and
// both only those below the screen's middle.
struct graph_dot {
    float px, py;
    bool drawn;
};
graph_dot left_graph_dot(double x, double xp, double S, double A, int W, int H);
graph_dot right_graph_dot(double y, double yp, double S, double A, int W, int H);
