// Fentra tracking: one thin-kick-then-drift step of every live particle through the lattice
// and the held magnets, with losses at the aperture and the scraper, and the advance along
// the ring that sets the next step's length.
#pragma once

// Sums of x^2 and y^2 over the particles after a step, with the loss accounting below.
struct track_sums {
    double sx, sy;
};

// Steps particles 0 .. sim.particle_count - 1 over sim.step_length with the fields in
// magnets (the bend of element sim.component_index when sim.bend_active). A particle is lost
// when it ends outside the 0.07 m pipe or beyond the scraper edge; the last live particle
// takes its slot, which switches the highlight off when slot 0 is lost, and each loss counts
// the particle before the slot into the sums once more. Updates sim.particle_count.
track_sums track_step();

// Length of the next step: the frame's elapsed seconds times the speed, ending at most 1e-6 m
// past the current element's end, and a fifth of that in slow motion.
double next_step_length(double elapsed, double speed, double distance_to_element_end,
                        bool slow_motion);

// Sets sim.step_length from the frame's elapsed time and adds it to sim.ring_position.
void advance_along_ring(double elapsed, bool slow_motion);
