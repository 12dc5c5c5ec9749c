// Fentra focussing game: the collision sparks (spawning, their mutual forces, movement and
// removal at the screen edge) kept apart from their drawing, the game's texts and the seam
// through which the help screen waits for keys.
#pragma once

#include "Morvane/growarray.h"
#include "fentra/physics/state.h"

// The goal of the game, drawn under the title in the caption font.
extern const char game_goal_text[];
// The key list of the help screen.
extern const char help_key_text[];

// The time step of this update from a clock reading: ten times the seconds since the previous
// update, 0 on the very first one.
double spark_time_step(double now);
// Forgets the previous update time, as at start-up. For tests.
void spark_clock_restart();

// Adds the pairwise forces over dt to the velocities: a 1/r^3 repulsion at short range, and a
// force of constant size out to 50 pixels (2/3 pushing like kinds apart, 1/3 pulling unlike
// kinds together) that falls as 1/r beyond.
void spark_forces(spark *sparks, unsigned count, double dt);

// A spark as it is drawn: the centre pixel (y downwards) and its kind's colour.
struct spark_sprite {
    double x, y;
    unsigned colour;
};

// Moves each spark by dt from the last down to the first; a spark off a W x H screen (more
// than W/2 or H/2 from the centre) is removed at once (the last spark takes its place) and
// the others are written to sprites, in drawing order. sprites needs room for list->count.
// Returns how many were written.
unsigned move_sparks(growarray *list, double dt, int W, int H, spark_sprite *sprites);

// The help page in the current font: the heading, the key list and how to go on.
void draw_help_page();

// How the help screen pumps events while it waits: pump_events, unless a test puts its own
// (which may script the keyboard snapshot) in its place.
extern int (*help_pump)();
