// Fentra lattice: the element table of one superperiod, read from the lattice text file,
// the lookup of the element at a ring position, and the FODO cell rule.
#pragma once

constexpr int element_capacity = 500;
constexpr int element_name_size = 16;   // names are at most 15 characters

// Magnetic rigidity of the beam in T m: a lattice file's gradient / rigidity = k.
constexpr double beam_rigidity = 1.235293713;

extern char element_name[element_capacity][element_name_size];
extern double element_length[element_capacity];      // m
extern double element_strength[element_capacity];    // quadrupole k, 1/m^2
extern double element_bend_radius[element_capacity]; // m, 0 = no bend
extern int element_count;
// "Ring <name>" while the table holds a ring read from a lattice file, else empty (KORA).
extern char lattice_ring_name[80];

// Reads the table from a text file of lines "name length gradient angle". Gradients become k
// by dividing by the beam rigidity; a non-zero angle becomes the bend radius length / angle.
// Names longer than 15 characters are cut and lines past the 500th ignored, with a warning.
void read_lattice(const char *file_name);

// Writes the carried KORA superperiod text to file_name, byte for byte.
void write_builtin_lattice(const char *file_name);

// Reads the carried KORA superperiod into the element table as read_lattice reads a file,
// through a private temporary file that is removed again.
void load_builtin_lattice();

// Sum of the element lengths in table order (0 for an empty table).
double lattice_length();

// The element at a ring position. A position exactly on a boundary belongs to the following
// element. index is -1 when there is no element (empty table); the other fields are then 0.
struct element_here {
    int index;
    double distance_to_end;  // m from the position to the element's end
    double quad_strength;    // the element's k, which replaces the keyboard quadrupole
    bool bend_active;        // the element has a bend radius
};
element_here find_element(double ring_position, double superperiod_length);

// Looks up the element at sim.ring_position and applies it as the frame needs:
// sim.component_index, sim.distance_to_element_end, sim.bend_active and magnets.quad_strength.
void enter_current_element();

// Quadrupole of the 3 m FODO cell at a ring position: +1.384 in the focusing quadrupole
// (0.5 m centred on the cell boundary), -1.384 in the defocusing one (1.25 m to 1.75 m), else 0.
double fodo_quadrupole(double ring_position);
