// Fentra's secondary views, called from the frame: the ring map (KORA lattice), the
// phase-space graphs (A), the help screen (F1) and the focussing game's title and sparks.
#pragma once

#include "Morvane/growarray.h"

// Map of the whole ring following the beam, with the marker where the beam is now.
void draw_ring_view(unsigned orbit, unsigned focusing, unsigned defocusing, unsigned marker,
                    double ring_position);

// x-x' and y-y' phase space in the lower half of the screen, with the statistics text.
// S is pixels per metre, A pixels per radian.
void draw_phase_graphs(const double *x, const double *y, const double *xp, const double *yp,
                       const double *p, int n, bool highlight, double S, double A,
                       double spread);

// The key list; returns when F1 has been released and Space is held, or the window closes.
void help_screen();

// The title "Fentra" and the goal text in the caption font.
void draw_title_overlay();

// Appends 3 n sparks in a Gaussian cloud round the screen centre.
void spawn_sparks(growarray *list, int n);

// Moves the sparks by their mutual forces, removes those off screen and draws the rest.
void update_and_draw_sparks(growarray *list);
