// A setup as one line of text, as a link's address fragment or the --setup option carries it:
// "lattice=kora&beam=K&graphs=1&spread=1". Parsing with one clear message for a bad string,
// formatting (keys in a fixed order, defaults left out), and applying it to the simulation state.
#pragma once

#include "fentra/physics/state.h"

#include <string>
#include <string_view>

enum setup_lattice { setup_lattice_none, setup_lattice_fodo, setup_lattice_kora };

// What a setup string can say; default_setup() is the program's own start.
struct setup {
    setup_lattice lattice;
    int beam;               // a beam_kind: beam_parallel, beam_kv, beam_waterbag, beam_gaussian, beam_game
    bool spread, graphs, scraper, space_charge, luminous, highlight, panel;
    double scraper_x;       // m, 0 to 0.07
    double speed;           // m of ring a second, above 0 and at most max_setup_speed
};

constexpr size_t max_setup_length = 2000;
constexpr double max_setup_speed = 65536;

setup default_setup();

// Reads "key=value" items joined by '&' over the default setup. False, with one line saying
// what is wrong in *error, for an unknown key, a bad value or a string longer than
// max_setup_length; *out is then the default setup.
bool parse_setup(std::string_view text, setup *out, std::string *error);

// The string parse_setup reads back as the same setup: the keys that differ from the default.
std::string format_setup(const setup &s);

// The setup's lattice, toggles and speed into the state; the beam to make is s.beam, which
// the caller makes as its key would.
void apply_setup(const setup &s, simulation_state *state);

// The setup the state shows, with the beam last made.
setup setup_of_state(const simulation_state &state, int beam);
