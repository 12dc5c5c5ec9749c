// Fentra optics panel (T): the lattice's figures with a beta plot over an element bar, the
// beam's own figures, and a tune diagram with resonance lines and the measured footprint, in
// a column beside the beam view.
#pragma once

#include "fentra/physics/state.h"

struct panel_rect {
    int x, y, w, h;
};
// Where the panel and its parts go on a W x H screen: right of the beam view, left of the
// luminosity bar, under the luminosity lines; above the phase-space graphs when they show.
struct optics_panel_layout {
    panel_rect panel, text, beta_plot, tune_diagram;
    int line_height;
};
optics_panel_layout layout_optics_panel(int W, int H, bool graphs, int line_height);

// The beam view moved left, and made smaller when it must, so that the pipe ends left of the
// panel. Unchanged when it already does.
view_geometry view_beside_panel(view_geometry v, const optics_panel_layout &layout);

// The tune diagram's window: at least 0.1 wide in each plane, holding the working point and
// the footprint (at most 1.5 from the working point).
struct tune_window {
    double qx0, qx1, qy0, qy1;
};
tune_window tune_window_for(double qx, double qy, const float *fx, const float *fy, int n);

// The piece of the line m Qx + n Qy = p inside the window; false when it misses it.
bool resonance_segment(int m, int n, int p, const tune_window &w, double *ax, double *ay,
                       double *bx, double *by);

// The resonance lines of order 1 to 4 crossing the window, the others before the structure
// resonances (p a multiple of the ring's periods), higher orders first within each.
struct resonance_line {
    double ax, ay, bx, by;
    int order;
    unsigned colour;
};
constexpr int max_resonance_lines = 4000;
int resonance_lines(const tune_window &w, int periods, resonance_line *out, int capacity);

// Draws the panel from the live state (the optics observation of this frame).
void draw_optics_panel(const optics_panel_layout &layout);
