// Replays the inputs of the fuzz target for the font data block packing through the target itself:
// its committed corpus, and the inputs that once failed.
#define FUZZ_REPLAY
#include "../fuzz/fontdata.cpp"

#include "fuzz_replay.h"

FUZZ_REPLAY_TESTS("fontdata")
