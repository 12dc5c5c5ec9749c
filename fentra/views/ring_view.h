// Fentra ring map: the walk of the pen round the whole ring (orbit, magnet boxes, the beam's
// point) and the camera that follows the beam, kept apart from the GL drawing.
#pragma once

#include "Morvane/growarray.h"

// The camera that follows the beam: shift in pixels and turn in radians. It lives for the
// whole run and is never reset, so after a lattice switch the map glides to its new place.
struct ring_camera {
    double ox, oy;   // the map is drawn shifted back by this much
    double angle;    // the map is turned back by this much
};
extern ring_camera ring_view_camera;

// One straight piece of the map, in screen pixels (y downwards).
struct ring_segment {
    double x1, y1, x2, y2;
    unsigned colour;   // 0xRRGGBB
};

struct ring_colours {
    unsigned orbit, focusing, defocusing, marker;
};

// What one walk round the ring produced.
struct ring_walk {
    growarray segments;      // ring_segment records in drawing order (initialise before use)
    bool marker_found;       // the beam's position lies in some element
    double marker_x, marker_y;
    double marker_heading;   // the pen's heading at the start of the beam's element
    double start_x, start_y; // where the pen set out
    double end_x, end_y;     // where it stopped after the whole ring
    double end_heading;      // its heading there
};

// The anchor point where the beam's marker settles: (W/4 + 0.5, H/3 + 0.5).
double ring_anchor_x(int W);
double ring_anchor_y(int H);

// Walks the ring for the lattice table (superperiods times the element list) as seen by the
// camera, appending the segments to walk->segments (emptied first) and locating the beam at
// ring_position. When the beam is found the camera is moved for the next frame: the full
// shift that brings the marker to the anchor and one hundredth of the turn that brings the
// local heading to zero.
void walk_ring(ring_walk *walk, ring_camera *camera, int W, int H, double ring_position,
               int superperiods, double superperiod_length, const ring_colours &colours);
