// The tracking step in groups of four particles, built for processors with AVX; the step calls
// it only where the processor has it.
#include "fentra/tracking_kernel.h"

step_result step_beam_fours_avx(int n, const step_fields &f, int *loss_slots)
{
    return step_beam_in_groups<four_doubles>(n, f, loss_slots);
}
