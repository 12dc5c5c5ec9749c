// Fentra's command line: --help, --version, --optics NAME (the lattice's figures as text,
// without a window), --export-lattice NAME, and --lattice FILE (the simulation with a ring
// read from a lattice file); anything else is a usage error.
#pragma once

#include "fentra/physics/lattice_file.h"
#include "fentra/physics/optics.h"

#include <cstdio>

// What the options ask of the simulation when it runs.
struct launch_options {
    bool has_ring;   // --lattice FILE: the ring takes KORA's place
    ring_file ring;
};
extern launch_options launch;

// Puts the lattice that NAME names into *l: "kora" (the carried superperiod, ten of them),
// "fodo" (the FODO cell) or a lattice file. Returns 1 when done, 2 for a name that is neither
// (a usage error), 1 with *failed set for a file that does not load; error holds one line.
// The element table holds the lattice afterwards where it is a table.
int resolve_lattice(const char *name, optics_lattice *l, bool *failed, char *error, int error_size,
                    FILE *notes);

// Acts on the options. Returns the exit status when the program is to end here (0 after
// --help, --version, --optics or --export-lattice; 1 when a lattice file does not load; 2
// after a usage error), or -1 to run the simulation.
int run_command_line(int argc, char **argv, FILE *out, FILE *err);
