// Replays the inputs of the fuzz target for the lattice file reader through the target itself:
// its committed corpus, and the inputs that once failed.
#define FUZZ_REPLAY
#include "../fuzz/lattice.cpp"

#include "fuzz_replay.h"

FUZZ_REPLAY_TESTS("lattice")
