// Fentra's command line: --help, --version, --optics NAME (the lattice's figures as text,
// without a window), --export-lattice NAME, --check-setup TEXT, --lattice FILE (a ring read
// from a lattice file), --setup TEXT (the start's lattice, beam and toggles), and a headless
// run (--run, --export, --step, --every); anything else is a usage error.
#pragma once

#include "fentra/physics/lattice_file.h"
#include "fentra/physics/optics.h"
#include "fentra/physics/setup_string.h"

#include <cstdio>
#include <string>

// What the options ask of the simulation when it runs.
struct launch_options {
    bool has_ring;   // --lattice FILE: the ring takes KORA's place
    ring_file ring;
    bool has_setup;  // --setup TEXT: the simulation starts in that setup
    fentra_setup setup;
    std::string setup_text;
};
extern launch_options launch;

// Puts the lattice that NAME names into *l: "kora" (the carried superperiod, ten of them),
// "fodo" (the FODO cell) or a lattice file. Returns 1 when done, 2 for a name that is neither
// (a usage error), 1 with *failed set for a file that does not load; error holds one line.
// The element table holds the lattice afterwards where it is a table.
int resolve_lattice(const char *name, optics_lattice *l, bool *failed, char *error, int error_size,
                    FILE *notes);

// Acts on the options. Returns the exit status when the program is to end here (0 after
// --help, --version, --optics, --export-lattice, --check-setup or a headless run; 1 when a
// lattice file does not load, a setup does not check or a file cannot be written; 2 after a
// usage error), or -1 to run the simulation.
int run_command_line(int argc, char **argv, FILE *out, FILE *err);
