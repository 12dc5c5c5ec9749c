// Fentra tracking: the per-particle kick and drift, the aperture and scraper losses with
// in-place compaction, and the step length along the ring.
#include "fentra/tracking.h"

#include "fentra/lattice.h"
#include "fentra/state.h"
#include "fentra/tracking_kernel.h"

// The step in groups of two particles for any processor.
step_result step_beam_twos(int n, const step_fields &f, int *loss_slots)
{
    return step_beam_in_groups<two_doubles>(n, f, loss_slots);
}

bool track_build_available(track_build b)
{
#if defined(FENTRA_X86_BUILDS)
    __builtin_cpu_init();
    if (b == track_avx) return __builtin_cpu_supports("avx");
    if (b == track_avx512) return __builtin_cpu_supports("avx512f");
#endif
    return b == track_plain;
}

static track_build fastest_build()
{
    if (track_build_available(track_avx512)) return track_avx512;
    if (track_build_available(track_avx)) return track_avx;
    return track_plain;
}

track_build track_build_in_use = fastest_build();

track_sums track_step()
{
    static int loss_slots[particle_capacity];
    track_sums sums = {0, 0};
    int n = sim.particle_count;
    if (n <= 0) return sums;

    step_fields f;
    f.ds = sim.step_length;
    f.K = magnets.quad_strength;
    f.D = magnets.steering;
    f.S = magnets.solenoid;
    f.SX = magnets.sextupole;
    f.OC = magnets.octupole;
    f.bend = 0;
    f.with_bend = sim.component_index >= 0 && sim.bend_active;
    if (f.with_bend) {
        double rho = element_bend_radius[sim.component_index];
        f.bend = f.ds / (rho * rho);
    }
    f.scraper = sim.scraper_on;
    f.edge = sim.scraper_x;
    step_result r;
#if defined(FENTRA_X86_BUILDS)
    if (track_build_in_use == track_avx512)
        r = step_beam_eights(n, f, loss_slots);
    else if (track_build_in_use == track_avx)
        r = step_beam_fours_avx(n, f, loss_slots);
    else
#endif
        r = step_beam_twos(n, f, loss_slots);
    sim.particle_count = r.count;
    // The highlighted particle is particle 0: losing it ends the highlight.
    if (r.lost_first) sim.highlight = false;
    sums.sx = r.sx;
    sums.sy = r.sy;
    return sums;
}

double next_step_length(double elapsed, double speed, double distance_to_element_end,
                        bool slow_motion)
{
    double ds = elapsed * speed;
    // Ending just past the element's end lands the next step inside the following element,
    // so no element is ever skipped.
    double limit = distance_to_element_end + 1e-6;
    if (ds > limit) ds = limit;
    if (slow_motion) ds = 0.2 * ds;
    return ds;
}

void advance_along_ring(double elapsed, bool slow_motion)
{
    double ds = next_step_length(elapsed, sim.simulation_speed, sim.distance_to_element_end,
                                 slow_motion);
    sim.step_length = ds;
    sim.ring_position += ds;
}
