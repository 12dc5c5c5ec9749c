// Fentra's command line: --help, --version and --optics NAME (the lattice's figures as text,
// without a window); anything else is a usage error.
#pragma once

#include "fentra/physics/optics.h"

#include <cstdio>

// Puts the lattice that NAME names into *l: "kora" (the carried superperiod, ten of them) or
// "fodo" (the FODO cell). Returns false with a one-line reason in error otherwise.
bool resolve_lattice(const char *name, optics_lattice *l, char *error, int error_size);

// Acts on the options. Returns the exit status when the program is to end here (0 after
// --help, --version or --optics; 2 after a usage error), or -1 to run the simulation.
int run_command_line(int argc, char **argv, FILE *out, FILE *err);
