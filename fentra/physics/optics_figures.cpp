// Fentra optics figures: the cached model of the lattice in use, the frame's observation of
// the beam against it, and the lattice's figures as text.
#include "fentra/physics/optics_figures.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>

// The quadrupole the held keys add all round the FODO cell (KORA's elements replace it).
static double held_quadrupole;

bool active_lattice(optics_lattice *l)
{
    if (sim.kora_lattice && element_count > 0) {
        lattice_from_table(l, sim.superperiod_count);
        return true;
    }
    if (sim.fodo_cell) {
        fodo_cell_lattice(l);
        for (int i = 0; i < l->count; i++) l->piece[i].k += held_quadrupole;
        return true;
    }
    l->count = 0;
    return false;
}

static bool same_lattice(const optics_lattice &a, const optics_lattice &b)
{
    return a.count == b.count && a.periods == b.periods && a.cell == b.cell &&
           memcmp(a.piece, b.piece, sizeof(optics_piece) * a.count) == 0;
}

const optics_model &current_optics_model()
{
    static optics_model model;
    static optics_lattice now;
    bool present = active_lattice(&now);
    if (present == model.present && (!present || same_lattice(now, model.lattice))) return model;
    model.present = present;
    model.lattice = now;
    model.optics = present ? solve_lattice(now) : lattice_optics{};
    if (model.optics.periodic)
        beta_samples(now, model.optics, beta_sample_count, model.beta[0], model.beta[1]);
    return model;
}

beam_now panel_beam;

void observe_beam_optics(const footprint_setup &setup)
{
    held_quadrupole = setup.keyboard_quadrupole;
    const optics_model &m = current_optics_model();
    beam_now &b = panel_beam;
    b = beam_now{};
    b.moments = measure_beam(beam_x, beam_xp, beam_y, beam_yp, sim.particle_count);
    if (!m.optics.periodic) {
        footprint.running = false;
        footprint.shown = 0;
        return;
    }
    const optics_lattice &l = m.lattice;
    b.position = sim.ring_position - floor(sim.ring_position / l.length) * l.length;
    for (int p = 0; p < 2; p++) {
        b.lattice[p] = twiss_at(l, m.optics.plane[p], p, b.position);
        b.mismatch[p] = mismatch_factor(b.lattice[p].beta, b.lattice[p].alpha, b.moments.plane[p]);
    }
    footprint_update(l, m.optics, sim.ring_position, b.moments, setup);
}

int lattice_figure_lines(const optics_lattice &l, const lattice_optics &o,
                         char lines[][figure_line_size], int capacity)
{
    int n = 0;
    auto line = [&](const char *format, auto... values) {
        if (n < capacity) snprintf(lines[n++], figure_line_size, format, values...);
    };
    const char *per = l.cell ? "cell" : "superperiod";
    const char *axis[2] = {"x", "y"};
    if (l.cell) line("%s", "lattice: FODO cell");
    else line("lattice: %d superperiod%s", l.periods, l.periods == 1 ? "" : "s");
    line("period length: %.4f m", l.length);
    for (int p = 0; p < 2; p++)
        line("stability %s: %s (trace %.4f)", axis[p], o.plane[p].stable ? "stable" : "unstable",
             o.plane[p].trace);
    if (!o.periodic) {
        line("%s", "no periodic solution");
        return n;
    }
    for (int p = 0; p < 2; p++) line("Q%s: %.4f", axis[p], o.plane[p].tune);
    for (int p = 0; p < 2; p++)
        line("phase advance %s: %.2f deg a %s", axis[p], o.plane[p].phase * 180 / std::numbers::pi, per);
    for (int p = 0; p < 2; p++) line("chromaticity %s: %.3f", axis[p], o.chromaticity[p]);
    for (int p = 0; p < 2; p++) line("beta %s at start: %.4f m", axis[p], o.plane[p].beta);
    // A symmetry point has alpha 0 (within rounding): it reads 0.0000, not -0.0000.
    for (int p = 0; p < 2; p++) line("alpha %s at start: %.4f", axis[p], fabs(o.plane[p].alpha) < 5e-5 ? 0.0 : o.plane[p].alpha);
    for (int p = 0; p < 2; p++) line("largest beta %s: %.4f m", axis[p], o.plane[p].beta_max);
    return n;
}
