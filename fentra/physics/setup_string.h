// Fentra setups as text: "lattice=kora&beam=K&graphs=1" names a lattice, a beam and the
// toggles and speed, so a teacher can hand a class one line (a command-line option or a
// page's address fragment). Display-free: parsing, the canonical text, and applying it.
#pragma once

#include <string>

enum setup_lattice { setup_no_lattice = 0, setup_kora = 1, setup_fodo = 2, setup_ring = 3 };

struct fentra_setup {
    int lattice;         // setup_lattice
    int beam;            // beam_kind; beam_none: the lattice's own beam
    bool spread, graphs, scraper, space_charge, luminous, highlight, panel;
    double scraper_edge; // m, in [0, 0.07]
    double speed;        // m/s
};

// The setup of a fresh start: no lattice, the game beam, every toggle off, edge 0.03 m, 1 m/s.
fentra_setup default_setup();

// Longest setup text taken (a page's address fragment included).
constexpr int setup_text_limit = 1000;

// Reads "key=value&key=value" (a leading '#' or '?' is skipped) over the default setup. False
// with one line in error for an unknown key, a bad value, a key given twice or a text over
// the limit; *s is then the default setup.
bool parse_setup(const std::string &text, fentra_setup *s, std::string *error);

// The canonical text: the keys that differ from the default, in a fixed order ("" for the
// default setup). Parsing it gives the same setup.
std::string format_setup(const fentra_setup &s);

// The setup of the running simulation.
fentra_setup current_setup();

// Puts the simulation into the setup from a fresh state: lattice, momentum spread, beam,
// toggles, speed, highlight. setup_ring needs a ring installed in KORA's place.
void apply_setup(const fentra_setup &s);
