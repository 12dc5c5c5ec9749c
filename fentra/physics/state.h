// Fentra simulation state: the particle arrays, the one simulation state record, the magnet
// settings that the held keys give each frame, and the beam view's geometry.
#pragma once

#include "Morvane/growarray.h"

constexpr int particle_capacity = 10000;

// Particle i (0 <= i < sim.particle_count) is entry i of each array; particle 0 is the one
// highlighted by H. Allocated once by allocate_particles and never freed.
extern double *beam_x;         // horizontal position, m
extern double *beam_y;         // vertical position, m
extern double *beam_xp;        // horizontal angle x', rad
extern double *beam_yp;        // vertical angle y', rad
extern double *beam_momentum;  // relative momentum 1 + delta

// Allocates the five arrays of particle_capacity doubles (zero-filled); later calls do nothing.
void allocate_particles();

// A collision spark of the focussing game (offsets from the screen centre, pixels).
struct spark {
    double x, y;
    double vx, vy;
    int kind;    // 0, 1, 2: red, green, blue
};
static_assert(sizeof(spark) == 40, "a spark record is 40 bytes");

struct simulation_state {
    int particle_count;              // live particles; 0 makes the next frame build the default beam
    double momentum_spread;          // half-width of the momentum distribution: 0 or 0.15
    double simulation_speed;         // metres of ring per second of wall-clock time
    double ring_position;            // m travelled round the ring since the beam was made
    double step_length;              // ds of the next tracking step, m
    double superperiod_length;       // m, sum of the lattice element lengths
    int superperiod_count;           // 10 superperiods make the ring
    bool kora_lattice;               // the KORA superperiod lattice is active
    bool beam_made_for_kora;         // kora_lattice as it was when the beam was made
    bool fodo_cell;                  // the FODO cell rule is active
    bool space_charge;               // space-charge kick on
    bool scraper_on;
    double scraper_x;                // scraper edge, m, in [0, 0.07]
    bool highlight;                  // particle 0 is drawn highlighted
    bool show_graphs;                // phase-space graphs shown
    int luminous;                    // glow-sprite particles, toggled by ^= 1
    double peak_luminosity;          // running maximum of the luminosity
    int component_index;             // current KORA element, -1 outside the KORA lattice
    double distance_to_element_end;  // m to the current element's end, 1e20 outside KORA
    bool bend_active;                // the current element bends
    double frame_start_time;         // s, clock at the top of the frame
    int previous_mouse_x;            // pointer at the end of the last frame (touch drag)
    int previous_mouse_buttons;
    int touch_mode;                  // 0 none, 1 single-touch, 2 multi-touch
    bool optics_panel;               // the optics panel (T) is shown
    growarray spark_list;            // records of type spark
    unsigned glow_texture;           // GL texture name of the 32 x 32 glow sprite
};

extern simulation_state sim;

// Sets every field to its initial value: no particles, speed 1 m/s, step 0.01 m, 10
// superperiods of the current lattice table's length, scraper at 0.03 m, peak 1e-6, no current
// element, an empty spark list of capacity 1. The texture, touch and pointer fields become 0,
// so start-up fills them after calling this.
void reset_simulation_state();

// Magnet strengths per metre of ring, from the keys held in this frame.
struct magnet_settings {
    double steering;       // dipole kick, rad/m
    double quad_strength;  // k, 1/m^2
    double sextupole;      // 1/m^3
    double octupole;       // 1/m^4
    double solenoid;       // 1/m
};
extern magnet_settings magnets;

// The held state of the magnet keys ("0" and "O" are the solenoid pair).
struct magnet_keys {
    bool two, three;     // steering + / -
    bool four, five;     // quadrupole + / -
    bool left, right;    // quadrupole + / - as well
    bool six, seven;     // sextupole + / -
    bool eight, nine;    // octupole + / -
    bool letter_o, zero; // solenoid + / -
};
magnet_settings magnets_from_keys(const magnet_keys &held);

// Where and how large the beam is drawn.
struct view_geometry {
    double zoom;              // 1.5 with the graphs, else 1
    double pixels_per_metre;  // the screen height shows 0.15 m x zoom of beam
    int centre_x, centre_y;   // beam view centre, pixels
};
view_geometry compute_view_geometry(int W, int H, bool show_graphs);
