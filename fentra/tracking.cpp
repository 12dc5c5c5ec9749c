// Fentra tracking: the per-particle kick and drift, the aperture and scraper losses with
// in-place compaction, and the step length along the ring.
#include "fentra/tracking.h"

#include "fentra/lattice.h"
#include "fentra/state.h"

// Square of the 0.07 m pipe radius as the double product 0.07 * 0.07; a particle exactly on
// the pipe survives.
static const double aperture_radius_squared = 0.004900000000000001;

// Where the processor family allows, the stepping loop is compiled twice, for plain x86-64
// and for AVX, and the version to run is chosen once at load time.
#if defined(__x86_64__)
#define WIDEST_VECTORS __attribute__((target_clones("avx", "default")))
#else
#define WIDEST_VECTORS
#endif

// The fields of one step.
struct step_fields {
    double ds, K, D, S, SX, OC;
    double bend;   // ds / rho^2 of the current bend
};

// One particle's kick and drift. The x kick uses the old y', the y kick the new x' (solenoid
// coupling); the bend's horizontal weak focusing uses the old x.
static inline __attribute__((always_inline)) void
step_particle(int i, double *__restrict X, double *__restrict Y, double *__restrict XP,
              double *__restrict YP, const double *__restrict P, const step_fields &f,
              bool with_bend)
{
    const double ds = f.ds, K = f.K, D = f.D, S = f.S, SX = f.SX, OC = f.OC;
    double x = X[i], y = Y[i], xp = XP[i], yp = YP[i], p = P[i];
    double xpn = xp - ((K * x + D - S * yp) + SX * (x * x - y * y) + OC * (x * x * x - 3 * x * y * y)) * ds / p;
    double ypn = yp + ((3 * x * x * y - y * y * y) * OC + (2 * SX * x + K) * y - S * xpn) * ds / p;
    if (with_bend) xpn = xpn - f.bend * x / p;
    X[i] = x + xpn * ds;
    Y[i] = y + ypn * ds;
    XP[i] = xpn;
    YP[i] = ypn;
}

// Kicks and drifts particles [0, n). Every particle's step depends only on its own
// coordinates, so all of them can be stepped before the losses are taken in slot order: the
// arrays and sums come out as if each particle were stepped just before its test. The main
// loop runs over a multiple of four particles so that it compiles to vector code with no
// scalar tail inside; with_bend is a constant in each branch, giving one loop with the bend
// term and one without. Each operation keeps the rounding of a lone double (standard C++
// contracts nothing into fused multiply-adds), so the results do not depend on the vector
// width. The fields come by value: the loop reads its own copy, which no store through the
// particle arrays can change, so they stay in registers.
WIDEST_VECTORS static void
step_particles(int n, double *__restrict X, double *__restrict Y, double *__restrict XP,
               double *__restrict YP, const double *__restrict P, step_fields f, bool with_bend)
{
    int n4 = n & ~3;
    if (with_bend) {
        for (int i = 0; i < n4; i++) step_particle(i, X, Y, XP, YP, P, f, true);
        for (int i = n4; i < n; i++) step_particle(i, X, Y, XP, YP, P, f, true);
    } else {
        for (int i = 0; i < n4; i++) step_particle(i, X, Y, XP, YP, P, f, false);
        for (int i = n4; i < n; i++) step_particle(i, X, Y, XP, YP, P, f, false);
    }
}

// Takes the losses among the stepped particles [0, n) in slot order; returns the new count
// and the sums of x^2 and y^2. Kept out of line with the sums as separate outputs: inlined,
// the compiler pairs the two sums into one vector that it keeps in memory, which makes the
// chain of additions several times slower.
__attribute__((noinline)) static int take_losses(int n, double *sum_x2, double *sum_y2,
                                                 bool *lost_first)
{
    double *X = beam_x, *Y = beam_y, *XP = beam_xp, *YP = beam_yp, *P = beam_momentum;
    const bool scraper = sim.scraper_on;
    const double edge = sim.scraper_x;
    double sx = 0, sy = 0;
    int i = 0;
    while (i < n) {
        double x = X[i], y = Y[i];
        double x2 = x * x, y2 = y * y;
        if (!(x2 + y2 > aperture_radius_squared || (scraper && x > edge))) {
            sx += x2;
            sy += y2;
            i++;
            continue;
        }
        // Lost: the last live particle moves into the slot and is tested next.
        n--;
        X[i] = X[n];
        Y[i] = Y[n];
        XP[i] = XP[n];
        YP[i] = YP[n];
        P[i] = P[n];
        if (i == 0) {
            *lost_first = true;
        } else {
            // The particle before the slot is counted once more on each loss.
            sx += X[i - 1] * X[i - 1];
            sy += Y[i - 1] * Y[i - 1];
        }
    }
    *sum_x2 = sx;
    *sum_y2 = sy;
    return n;
}

track_sums track_step()
{
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
    bool bend = sim.component_index >= 0 && sim.bend_active;
    if (bend) {
        double rho = element_bend_radius[sim.component_index];
        f.bend = f.ds / (rho * rho);
    }
    step_particles(n, beam_x, beam_y, beam_xp, beam_yp, beam_momentum, f, bend);

    bool lost_first = false;
    sim.particle_count = take_losses(n, &sums.sx, &sums.sy, &lost_first);
    // The highlighted particle is particle 0: losing it ends the highlight.
    if (lost_first) sim.highlight = false;
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
