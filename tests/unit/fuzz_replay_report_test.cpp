// Replays the inputs of the fuzz target for the report stack through the target itself:
// its committed corpus, and the inputs that once failed.
#define FUZZ_REPLAY
#include "../fuzz/report.cpp"

#include "fuzz_replay.h"

FUZZ_REPLAY_TESTS("report")
