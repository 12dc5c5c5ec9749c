// Fentra's bunch as CSV: the header from the optics figures, the particle rows, and the
// write-then-rename file handling shared by Ctrl+E and the headless run.
#include "fentra/physics/bunch_export.h"

#include "fentra/physics/footprint.h"
#include "fentra/physics/optics_figures.h"
#include "fentra/physics/state.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <unistd.h>

const char bunch_columns[] = "x,xp,y,yp,delta,Qx,Qy";
const char turn_record_columns[] = "s,particle,x,xp,y,yp,delta";

std::string bunch_header(const std::string &setup_text)
{
    char line[200];
    std::string h = std::string("# Fentra ") + FENTRA_VERSION + " bunch\n";
    h += "# setup: " + (setup_text.empty() ? std::string("(default)") : setup_text) + "\n";
    snprintf(line, sizeof line, "# ring position: %.6f m\n# particles: %d\n", sim.ring_position,
             sim.particle_count);
    h += line;
    const optics_model &m = current_optics_model();
    if (m.present) {
        char lines[24][figure_line_size];
        int n = lattice_figure_lines(m.lattice, m.optics, lines, 24);
        for (int i = 0; i < n; i++) h += std::string("# ") + lines[i] + "\n";
    } else {
        h += "# lattice: none (no periodic solution)\n";
    }
    beam_moments b = measure_beam(beam_x, beam_xp, beam_y, beam_yp, sim.particle_count);
    for (int p = 0; p < 2; p++) {
        const plane_moments &q = b.plane[p];
        const char *axis = p ? "y" : "x";
        snprintf(line, sizeof line,
                 "# beam %s: centroid %.6g m, rms size %.6g m, rms emittance %.6g m rad, beta %.6g m, alpha %.6g\n",
                 axis, q.centroid, q.sigma, q.emittance, q.beta, q.alpha);
        h += line;
    }
    if (footprint.running && footprint.shown > 0) {
        snprintf(line, sizeof line, "# footprint: %d particles, mean Qx %.6f, mean Qy %.6f\n", footprint.shown,
                 footprint.mean_q[0], footprint.mean_q[1]);
        h += line;
    }
    return h;
}

// A tune, or nothing where it is not measured.
static void put_tune(FILE *f, double q)
{
    if (std::isfinite(q)) fprintf(f, ",%.17g", q);
    else fputc(',', f);
}

void write_bunch_rows(FILE *f)
{
    for (int i = 0; i < sim.particle_count; i++) {
        fprintf(f, "%.17g,%.17g,%.17g,%.17g,%.17g", beam_x[i], beam_xp[i], beam_y[i], beam_yp[i],
                beam_momentum[i] - 1);
        int tag = beam_tag[i];
        bool measured = footprint.running && tag >= 0 && tag < particle_capacity;
        put_tune(f, measured ? particle_tune(0, tag) : NAN);
        put_tune(f, measured ? particle_tune(1, tag) : NAN);
        fputc('\n', f);
    }
}

void write_turn_rows(FILE *f, double ring_position)
{
    for (int i = 0; i < sim.particle_count; i++)
        fprintf(f, "%.17g,%d,%.17g,%.17g,%.17g,%.17g,%.17g\n", ring_position, beam_tag[i], beam_x[i], beam_xp[i],
                beam_y[i], beam_yp[i], beam_momentum[i] - 1);
}

bool csv_open(csv_output *out, const std::string &name, std::string *error)
{
    out->final_name = name;
    out->temporary_name = name + ".part-" + std::to_string(getpid());
    out->file = fopen(out->temporary_name.c_str(), "wb");
    if (out->file) return true;
    *error = "cannot write " + name + ": " + strerror(errno);
    return false;
}

bool csv_close(csv_output *out, std::string *error)
{
    bool written = !ferror(out->file);
    if (fclose(out->file) != 0) written = false;
    out->file = nullptr;
    if (written && rename(out->temporary_name.c_str(), out->final_name.c_str()) == 0) return true;
    *error = "cannot write " + out->final_name + ": " + strerror(errno ? errno : EIO);
    remove(out->temporary_name.c_str());
    return false;
}

void csv_abandon(csv_output *out)
{
    if (out->file) fclose(out->file);
    out->file = nullptr;
    remove(out->temporary_name.c_str());
}

bool export_bunch(const std::string &name, const std::string &setup_text, std::string *error)
{
    csv_output out;
    if (!csv_open(&out, name, error)) return false;
    fputs(bunch_header(setup_text).c_str(), out.file);
    fprintf(out.file, "%s\n", bunch_columns);
    write_bunch_rows(out.file);
    return csv_close(&out, error);
}
