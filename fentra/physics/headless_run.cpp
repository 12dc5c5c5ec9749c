// Fentra without a window: the checks of a run's figures, the frame's physics for one step,
// and the run that writes the bunch or a turn-by-turn record.
#include "fentra/physics/headless_run.h"

#include "fentra/physics/bunch_export.h"
#include "fentra/physics/collective.h"
#include "fentra/physics/footprint.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/optics_figures.h"
#include "fentra/physics/state.h"
#include "fentra/physics/tracking.h"

#include "Morvane/random.h"

#include <cmath>

// A row of a turn-by-turn record is at most this long: seven numbers of 24 characters.
static const double turn_row_bytes = 7 * 25;

bool check_headless_options(const headless_options &o, std::string *error)
{
    auto fail = [error](const std::string &message) { return *error = message, false; };
    if (!(o.run > 0) || !std::isfinite(o.run)) return fail("--run needs a positive distance in metres");
    if (!(o.step > 0) || !std::isfinite(o.step)) return fail("--step needs a positive length in metres");
    if (o.run / o.step > 1e9) return fail("--run over --step would take more than 1e9 steps");
    if (o.every < 0 || !std::isfinite(o.every)) return fail("--every needs a positive distance in metres");
    if (o.every > 0) {
        double observations = floor(o.run / o.every) + 1;
        double bytes = observations * 10000 * turn_row_bytes;
        if (bytes > headless_file_limit)
            return fail("the turn-by-turn record would pass 1 GB (" + std::to_string((long long)observations) +
                        " observations of up to 10000 particles): use a larger --every or a shorter --run");
    }
    return true;
}

void headless_step(double step)
{
    sim.component_index = -1;
    sim.distance_to_element_end = 1e20;
    magnets = magnet_settings{};
    if (sim.kora_lattice) enter_current_element();
    if (sim.fodo_cell) magnets.quad_strength += fodo_quadrupole(sim.ring_position);
    if (sim.space_charge && sim.particle_count > 0) space_charge_kick();
    if (sim.particle_count > 0) track_step();
    observe_beam_optics(footprint_setup_now(magnet_settings{}));
    sim.step_length = next_step_length(step, 1.0, sim.distance_to_element_end, false);
    sim.ring_position += sim.step_length;
}

int headless_run(const headless_options &o, FILE *err)
{
    csv_output out;
    std::string error;
    if (!csv_open(&out, o.export_file, &error)) return fprintf(err, "fentra: %s\n", error.c_str()), 1;
    random15_restart();   // the program's own sequence from its start: the same run, the same file
    apply_setup(o.setup);
    sim.step_length = o.step;
    observe_beam_optics(footprint_setup_now(magnet_settings{}));   // numbers the particles
    if (o.every > 0) {
        fputs(bunch_header(o.setup_text).c_str(), out.file);
        fprintf(out.file, "%s\n", turn_record_columns);
        write_turn_rows(out.file, sim.ring_position);
    }
    long observed = 0, reported = 0;
    const double tenth = o.run / 10;
    while (sim.ring_position < o.run) {
        headless_step(o.step);
        if (o.every > 0 && floor(sim.ring_position / o.every) > observed) {
            observed = (long)floor(sim.ring_position / o.every);
            write_turn_rows(out.file, sim.ring_position);
        }
        if (floor(sim.ring_position / tenth) > reported && sim.ring_position < o.run) {
            reported = (long)floor(sim.ring_position / tenth);
            fprintf(err, "fentra: %.0f %% of %g m tracked, %d particles\n", 10.0 * reported, o.run, sim.particle_count);
        }
    }
    if (o.every <= 0) {
        fputs(bunch_header(o.setup_text).c_str(), out.file);
        fprintf(out.file, "%s\n", bunch_columns);
        write_bunch_rows(out.file);
    }
    if (!csv_close(&out, &error)) return fprintf(err, "fentra: %s\n", error.c_str()), 1;
    return 0;
}
