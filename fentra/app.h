// Fentra's spine: start-up, the frame with its fixed order, and the loop that runs frames
// until the user quits.
#pragma once

#include "fentra/physics/state.h"

// The whole program: opens the window, starts up and runs frames until Q, Escape or the
// window closing. Returns 0 (also when the window cannot be opened).
int fentra_main();

// Start-up once the window is open: the carried fonts, the program's directory made current,
// the lattice file written and read back, the initial state, the glow texture, touch and
// pointer state; a missing resolution is fatal; then one pump of events.
void start_simulation();

// What the last frame did, for the frame's callers and tests.
struct frame_record {
    int restarts;             // passes restarted by a beam made mid-run
    int beam_kind;            // kind of the last beam made (beam_none if none)
    int fodo_beam;            // the FODO matched beam was made
    int screenshot;           // Ctrl+S saved a screenshot
    int bunch_export;         // Ctrl+E wrote the bunch as CSV
    double luminosity;        // as shown by the text overlay
    view_geometry view;       // the beam view the frame was drawn in
};
extern frame_record last_frame;

// One frame: read the keys of this frame's snapshot, make beams, track, draw everything,
// present, pace, set the next step and pump events. Returns 1 when the program is to quit.
int run_frame();
