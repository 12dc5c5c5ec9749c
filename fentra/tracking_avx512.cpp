// The tracking step in groups of eight particles, built for processors with AVX-512; the step
// calls it only where the processor has it.
#include "fentra/tracking_kernel.h"

step_result step_beam_eights(int n, const step_fields &f, int *loss_slots)
{
    return step_beam_in_groups<eight_doubles>(n, f, loss_slots);
}
