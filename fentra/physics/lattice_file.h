// Fentra lattice files: a ring read from the MAD-X language subset that accelerator courses
// teach, its installation into the element table, and the built-in lattices written in that
// language. Display-free; the reader never touches the table or the simulation state.
#pragma once

#include <string>
#include <vector>

// One element of a superperiod, in beam order.
struct ring_element {
    std::string name;   // as written in the file (gap drifts of a sequence are "drift_<n>")
    double length;      // m, > 0
    double k1;          // quadrupole strength, 1/m^2, > 0 focuses horizontally
    double angle;       // bend angle, rad; 0 = no bend
};

// What reading a lattice file gives: the ring, or an error, and the notes and warnings to show.
struct ring_file {
    std::string name;                    // the file name without directory and extension
    int superperiod_count = 1;           // the elements repeat this many times round the ring
    std::vector<ring_element> elements;  // one superperiod
    std::vector<std::string> notes;      // "file:line: note: ..." and "file:line: warning: ..."
    std::string error;                   // "file:line:col: error: ..."; empty when the ring loaded
};

// Reads a lattice file (CALL statements read other files relative to it). On any error the
// result has `error` set and no elements.
ring_file read_ring_file(const std::string &path);

// The same for text in memory; file_name names it in messages, gives the ring its name and
// is the place CALL paths are taken relative to.
ring_file read_ring_text(const std::string &text, const std::string &file_name);

// Makes the ring the element table (element_name cut to 15 characters, element_length,
// element_strength = k1, element_bend_radius = length / angle or 0, element_count) and returns
// its superperiod count. A ring from read_ring_file never exceeds the table's capacity.
int install_ring(const ring_file &ring);

// A built-in lattice ("kora" or "fodo") as a lattice file whose elements read back exactly as
// the built-in data; empty for another name.
std::string export_builtin_lattice(const std::string &which);
