// Fentra tune footprint by the average phase advance: the angle of each particle in the
// lattice's normalised phase space turns by the particle's phase advance; summed step by step
// and divided by the model's phase over the same steps, it gives the particle's tune exactly
// for linear motion after any stretch, and the mean over whole periods otherwise.
#include "fentra/physics/footprint.h"

#include <cmath>
#include <numbers>

tune_footprint footprint;

// Where the particles are observed: the lattice's Twiss functions there and the model's phase
// from the ring's start.
struct observation {
    double beta[2], alpha[2], ring_phase[2];
};

static observation observe(const optics_lattice &l, const lattice_optics &o, double s)
{
    observation w;
    double periods = floor(s / l.length), r = s - periods * l.length;
    for (int p = 0; p < 2; p++) {
        twiss_point t = twiss_at(l, o.plane[p], p, r);
        w.beta[p] = t.beta;
        w.alpha[p] = t.alpha;
        w.ring_phase[p] = periods * o.plane[p].phase + t.phase;
    }
    return w;
}

static const double *position_of(int p) { return p ? beam_y : beam_x; }
static const double *angle_of(int p) { return p ? beam_yp : beam_xp; }

// Normalised coordinates X = x / sqrt(beta), X' = (alpha x + beta x') / sqrt(beta) of the
// particle in slot i, about the centroid.
static inline void normalise(int p, int i, const observation &w, const plane_moments &c,
                             double *X, double *XP)
{
    double u = position_of(p)[i] - c.centroid, v = angle_of(p)[i] - c.centroid_angle;
    double r = 1 / sqrt(w.beta[p]);
    *X = u * r;
    *XP = (w.alpha[p] * u + w.beta[p] * v) * r;
}

void footprint_reset(const optics_lattice &l, const lattice_optics &o, double ring_position,
                     const beam_moments &m, const footprint_setup &setup)
{
    tune_footprint &f = footprint;
    f.running = true;
    f.setup = setup;
    f.last_position = ring_position;
    f.last_count = sim.particle_count;
    f.shown = 0;
    f.mean_q[0] = f.mean_q[1] = NAN;
    for (int p = 0; p < 2; p++) f.model_tune[p] = o.plane[p].tune;
    if (!o.periodic || !(l.length > 0)) {
        f.running = false;
        return;
    }
    observation w = observe(l, o, ring_position);
    for (int i = 0; i < sim.particle_count; i++) beam_tag[i] = i;
    for (int p = 0; p < 2; p++) {
        f.last_ring_phase[p] = w.ring_phase[p];
        for (int i = 0; i < sim.particle_count; i++) {
            normalise(p, i, w, m.plane[p], &f.X[p][i], &f.XP[p][i]);
            f.phase[p][i] = f.model[p][i] = 0;
        }
    }
}

// The particle's phase advance from (X0, XP0) to (X1, XP1): the motion turns clockwise in
// (X, X'), so the advance is minus the angle turned, taken within pi of the model's step.
static inline double phase_step(double X0, double XP0, double X1, double XP1, double model_step)
{
    double c = XP0 * X1 - X0 * XP1, d = X0 * X1 + XP0 * XP1, turned;
    // A frame turns a particle by a few milliradians: the series of atan(c / d), exact to
    // 1e-10 rad for |c / d| < 0.1, costs a fifth of atan2.
    if (d > 0 && fabs(c) < 0.1 * d) {
        double t = c / d, t2 = t * t;
        turned = t * (1 - t2 * (1.0 / 3 - t2 * (1.0 / 5 - t2 * (1.0 / 7))));
    } else {
        turned = atan2(c, d);
    }
    const double two_pi = 2 * std::numbers::pi;
    return turned + two_pi * nearbyint((model_step - turned) / two_pi);
}

// Adds plane p's step of every live particle; a particle within a small fraction of the rms
// amplitude of the centroid, before or after, has no defined angle and skips the step.
static void add_plane_steps(int p, const observation &w, const plane_moments &c, double model_step)
{
    tune_footprint &f = footprint;
    const double small = 2e-3 * c.emittance;
    for (int i = 0; i < sim.particle_count; i++) {
        int t = beam_tag[i];
        double X, XP;
        normalise(p, i, w, c, &X, &XP);
        double before = f.X[p][t] * f.X[p][t] + f.XP[p][t] * f.XP[p][t];
        if (before > small && X * X + XP * XP > small) {
            f.phase[p][t] += phase_step(f.X[p][t], f.XP[p][t], X, XP, model_step);
            f.model[p][t] += model_step;
        }
        f.X[p][t] = X;
        f.XP[p][t] = XP;
    }
}

bool same_setup(const footprint_setup &a, const footprint_setup &b)
{
    return a.kora == b.kora && a.fodo == b.fodo && a.space_charge == b.space_charge &&
           a.momentum_spread == b.momentum_spread && a.steering == b.steering &&
           a.keyboard_quadrupole == b.keyboard_quadrupole && a.sextupole == b.sextupole &&
           a.octupole == b.octupole && a.solenoid == b.solenoid && a.element_count == b.element_count &&
           a.periods == b.periods && a.period_length == b.period_length;
}

footprint_setup footprint_setup_now(const magnet_settings &keys)
{
    return {sim.kora_lattice,      sim.fodo_cell,      sim.space_charge,  sim.momentum_spread,
            keys.steering,         keys.quad_strength, keys.sextupole,    keys.octupole,
            keys.solenoid,         element_count,      sim.superperiod_count, sim.superperiod_length};
}

double particle_tune(int plane, int tag)
{
    const tune_footprint &f = footprint;
    double model = f.model[plane][tag];
    if (!(model >= footprint_min_phase)) return NAN;
    return f.model_tune[plane] * f.phase[plane][tag] / model;
}

// The tunes of the live particles measured in both planes, and their means.
static void collect_shown()
{
    tune_footprint &f = footprint;
    double sum[2] = {0, 0};
    f.shown = 0;
    for (int i = 0; i < sim.particle_count; i++) {
        int t = beam_tag[i];
        double qx = particle_tune(0, t), qy = particle_tune(1, t);
        if (std::isnan(qx) || std::isnan(qy)) continue;
        f.qx[f.shown] = (float)qx;
        f.qy[f.shown] = (float)qy;
        sum[0] += qx, sum[1] += qy;
        f.shown++;
    }
    for (int p = 0; p < 2; p++) f.mean_q[p] = f.shown ? sum[p] / f.shown : NAN;
}

void footprint_update(const optics_lattice &l, const lattice_optics &o, double ring_position,
                      const beam_moments &m, const footprint_setup &setup)
{
    tune_footprint &f = footprint;
    bool new_beam = ring_position < f.last_position || sim.particle_count > f.last_count;
    if (!f.running || new_beam || !same_setup(setup, f.setup)) {
        footprint_reset(l, o, ring_position, m, setup);
        return;
    }
    observation w = observe(l, o, ring_position);
    for (int p = 0; p < 2; p++) {
        add_plane_steps(p, w, m.plane[p], w.ring_phase[p] - f.last_ring_phase[p]);
        f.last_ring_phase[p] = w.ring_phase[p];
    }
    f.last_position = ring_position;
    f.last_count = sim.particle_count;
    collect_shown();
}
