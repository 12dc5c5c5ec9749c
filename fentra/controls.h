// Fentra controls: the keyboard snapshot and the touch pointer of this frame turned into
// magnet settings, beam requests, speed changes, lattice switching and view toggles.
#pragma once

#include "fentra/physics/beam.h"
#include "fentra/physics/state.h"

// The magnet keys held in this frame's snapshot.
magnet_keys held_magnet_keys();

// Quadrupole change from a touch drag: while a touch screen is dragged (buttons down now and
// at the end of the last frame), the horizontal travel since then in steps of W / 250 pixels;
// dragging left strengthens the focusing.
int touch_drag_quadrupole(int touch_mode, unsigned buttons, int previous_buttons,
                          int previous_x, int x, int W);

// Sets magnets from the held keys, plus the touch drag on the quadrupole.
void read_magnet_keys();

// Beam keys pressed this frame: P, K, W, G, Space.
beam_keys pressed_beam_keys();

// Keypad + doubles and keypad - halves the simulation speed, without limits.
void speed_keys();

// I and F: the KORA lattice and the FODO cell, with their matched beams. With the FODO cell
// on, its quadrupole is added to magnets.quad_strength.
struct lattice_outcome {
    bool kora_next;    // the KORA setting that the frame's end makes current
    bool fodo_beam;    // the FODO matched beam was made
};
lattice_outcome lattice_keys();

// H highlight, A graphs, L luminous particles, S scraper (not with Ctrl), C space charge,
// T optics panel; the solenoid setting from "O" and "0".
void toggle_keys();

bool screenshot_keys_pressed();
// Ctrl+E: the live bunch written as CSV.
bool bunch_export_keys_pressed();   // Ctrl held and S pressed
bool quit_keys_held();            // Q or Escape
bool slow_motion_held();          // Shift
