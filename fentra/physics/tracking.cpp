// Fentra tracking: the per-particle kick and drift, the aperture and scraper losses with
// in-place compaction, and the step length along the ring.
#include "fentra/physics/tracking.h"

#include "fentra/physics/lattice.h"
#include "fentra/physics/state.h"

// Square of the 0.07 m pipe radius as the double product 0.07 * 0.07; a particle exactly on
// the pipe survives.
static const double aperture_radius_squared = 0.004900000000000001;

// The fields of one step: the held magnets with the lattice's, and the current bend.
struct step_fields {
    double ds, K, D, S, SX, OC;
    bool with_bend;    // a bend is active
    double bend;       // its ds / rho^2
    bool scraper;
    double edge;       // scraper edge, m
};

// Thin kick, then drift, of particle i. The x kick uses the old y', the y kick the new x'
// (solenoid coupling); the bend's horizontal weak focusing uses the old x.
static inline void kick_and_drift(int i, const step_fields &f)
{
    double x = beam_x[i], y = beam_y[i], xp = beam_xp[i], yp = beam_yp[i], p = beam_momentum[i];
    double xpn = xp - ((f.K * x + f.D - f.S * yp) + f.SX * (x * x - y * y) +
                       f.OC * (x * x * x - 3 * x * y * y)) * f.ds / p;
    double ypn = yp + ((3 * x * x * y - y * y * y) * f.OC + (2 * f.SX * x + f.K) * y -
                       f.S * xpn) * f.ds / p;
    if (f.with_bend) xpn = xpn - f.bend * x / p;
    beam_x[i] = x + xpn * f.ds;
    beam_y[i] = y + ypn * f.ds;
    beam_xp[i] = xpn;
    beam_yp[i] = ypn;
}

static inline bool is_lost(int i, const step_fields &f)
{
    double x = beam_x[i], y = beam_y[i];
    return x * x + y * y > aperture_radius_squared || (f.scraper && x > f.edge);
}

// The last live particle (not yet stepped) takes lost slot i, in all five arrays, with its tag.
static inline void move_last_into(int i, int last)
{
    beam_x[i] = beam_x[last];
    beam_y[i] = beam_y[last];
    beam_xp[i] = beam_xp[last];
    beam_yp[i] = beam_yp[last];
    beam_momentum[i] = beam_momentum[last];
    beam_tag[i] = beam_tag[last];
}

static step_fields fields_now()
{
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
    return f;
}

track_sums track_step()
{
    track_sums sums = {0, 0};
    const step_fields f = fields_now();
    int n = sim.particle_count, i = 0;
    while (i < n) {
        kick_and_drift(i, f);
        if (!is_lost(i, f)) {
            sums.sx += beam_x[i] * beam_x[i];
            sums.sy += beam_y[i] * beam_y[i];
            i++;
            continue;
        }
        n--;
        move_last_into(i, n);
        // The highlighted particle is particle 0: losing it ends the highlight. Any other
        // loss counts the particle before the slot into the sums once more.
        if (i == 0) {
            sim.highlight = false;
        } else {
            sums.sx += beam_x[i - 1] * beam_x[i - 1];
            sums.sy += beam_y[i - 1] * beam_y[i - 1];
        }
    }
    sim.particle_count = n;
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
