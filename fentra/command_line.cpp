// Fentra's command line: the options and their values, the lattice names --optics
// understands, the lattice's figures printed one a line, and the ring --lattice reads.
#include "fentra/command_line.h"

#include "fentra/physics/headless_run.h"
#include "fentra/physics/optics_figures.h"
#include "fentra/physics/ring_setup.h"
#include "fentra/physics/state.h"

#include <cmath>
#include <cstdlib>

#include <cstring>
#include <string>
#include <unistd.h>

launch_options launch;

static const char usage_text[] =
    "Usage: fentra [--lattice FILE] [--setup TEXT] [--run METRES --export FILE.csv [--step METRES]\n"
    "              [--every METRES]]\n"
    "       fentra --optics NAME | --export-lattice NAME | --check-setup TEXT | --help | --version\n"
    "  --lattice FILE         run with the ring of a lattice file (MAD-X language) in KORA's place\n"
    "  --setup TEXT           start in a setup, e.g. 'lattice=kora&beam=K&graphs=1&spread=1'\n"
    "                         (keys: lattice, beam, spread, graphs, scraper, edge, spacecharge,\n"
    "                         luminous, highlight, panel, speed)\n"
    "  --run METRES           track the setup over METRES of ring without a window, then write\n"
    "  --export FILE.csv      the bunch (x, x', y, y', delta, Qx, Qy a particle) to FILE.csv\n"
    "  --step METRES          the length of a step of the run (default 0.012)\n"
    "  --every METRES         write every particle every METRES of ring instead (turn by turn)\n"
    "  --optics NAME          print the optics of NAME (kora, fodo or a lattice file) and exit\n"
    "  --export-lattice NAME  print the built-in lattice NAME (kora, fodo) as a lattice file\n"
    "  --check-setup TEXT     check a setup text, print its canonical form and exit\n"
    "  --help                 print this help and exit\n"
    "  --version              print the version and exit\n"
    "Without options Fentra opens its window. Keys: P K W G beams, 2-9 0 O magnets, D momentum\n"
    "spread, F FODO cell, I KORA lattice (or the loaded ring), + - speed, H highlight, A graphs,\n"
    "L luminous, S scraper, C space charge, T optics panel, Ctrl+S screenshot, Ctrl+E bunch as CSV,\n"
    "F1 help, Q or Escape quit.\n";

// The carried KORA superperiod read into the element table.
static bool load_carried_kora()
{
    load_builtin_lattice();
    return element_count > 0;
}

// A lattice file's notes and warnings, one a line.
static void print_notes(const ring_file &ring, FILE *notes)
{
    for (const std::string &n : ring.notes) fprintf(notes, "%s\n", n.c_str());
}

// Names that are not a built-in lattice are taken as files when they look like one.
static bool looks_like_file(const char *name)
{
    return strchr(name, '/') || strchr(name, '.') || access(name, F_OK) == 0;
}

int resolve_lattice(const char *name, optics_lattice *l, bool *failed, char *error, int error_size,
                    FILE *notes)
{
    *failed = false;
    if (strcmp(name, "fodo") == 0) {
        fodo_cell_lattice(l);
        return 1;
    }
    if (strcmp(name, "kora") == 0 && load_carried_kora()) {
        lattice_from_table(l, 10);
        return 1;
    }
    if (!looks_like_file(name)) {
        snprintf(error, error_size, "unknown lattice \"%s\" (known: kora, fodo, or a lattice file)", name);
        return 2;
    }
    ring_file ring = read_ring_file(name);
    print_notes(ring, notes);
    if (!ring.error.empty()) {
        snprintf(error, error_size, "%s", ring.error.c_str());
        *failed = true;
        return 1;
    }
    lattice_from_table(l, install_ring(ring));
    return 1;
}

static int usage_error(FILE *err, const char *message)
{
    fprintf(err, "fentra: %s\n%s", message, usage_text);
    return 2;
}

static int print_optics(const char *name, FILE *out, FILE *err)
{
    static optics_lattice l;
    char error[600];
    bool failed;
    if (resolve_lattice(name, &l, &failed, error, sizeof error, err) == 2) return usage_error(err, error);
    if (failed) return fprintf(err, "fentra: %s\n", error), 1;
    lattice_optics o = solve_lattice(l);
    char lines[24][figure_line_size];
    int n = lattice_figure_lines(l, o, lines, 24);
    for (int i = 0; i < n; i++) fprintf(out, "%s\n", lines[i]);
    return 0;
}

static int export_lattice(const char *name, FILE *out, FILE *err)
{
    std::string text = export_builtin_lattice(name);
    if (text.empty()) {
        std::string message = std::string("unknown built-in lattice \"") + name + "\" (known: kora, fodo)";
        return usage_error(err, message.c_str());
    }
    fputs(text.c_str(), out);
    return 0;
}

// The options, those that take a value first.
enum option_id {
    opt_optics, opt_export_lattice, opt_check_setup, opt_lattice, opt_setup, opt_run, opt_export,
    opt_step, opt_every, opt_help, opt_version, opt_count
};
static const char *const option_names[opt_count] = {
    "--optics", "--export-lattice", "--check-setup", "--lattice", "--setup", "--run", "--export",
    "--step", "--every", "--help", "--version"};
static bool takes_value(int id) { return id < opt_help; }

// Reads argv into value[] (the option's value, or "" for one that stands alone). Returns
// false with a message for an unknown option, a missing value or an option given twice.
static bool parse_options(int argc, char **argv, const char *value[opt_count], std::string *message)
{
    for (int i = 1; i < argc; i++) {
        const char *a = argv[i], *eq = strncmp(a, "--", 2) == 0 ? strchr(a, '=') : nullptr;
        size_t name_length = eq ? (size_t)(eq - a) : strlen(a);
        int id = 0;
        while (id < opt_count && !(strlen(option_names[id]) == name_length && strncmp(a, option_names[id], name_length) == 0))
            id++;
        const std::string name = id < opt_count ? option_names[id] : "";
        if (id == opt_count)
            return *message = std::string(a[0] == '-' ? "unknown option \"" : "unexpected argument \"") + a + "\"", false;
        if (value[id]) return *message = name + " given twice", false;
        if (!takes_value(id) && eq) return *message = name + " takes no value", false;
        if (!takes_value(id)) value[id] = "";
        else if (eq) value[id] = eq + 1;
        else if (i + 1 < argc) value[id] = argv[++i];
        else return *message = name + " needs " + (id == opt_optics || id == opt_export_lattice ? "a lattice name"
                                                    : id == opt_lattice || id == opt_export ? "a file name"
                                                    : id == opt_setup || id == opt_check_setup ? "a setup text"
                                                                                              : "a distance in metres"), false;
    }
    return true;
}

// A whole number in metres, or a usage message.
static bool metres(const char *text, const char *option, double *out, std::string *message)
{
    char *end = nullptr;
    *out = strtod(text, &end);
    if (end != text && *end == 0 && std::isfinite(*out)) return true;
    return *message = std::string(option) + " needs a distance in metres, not \"" + text + "\"", false;
}

// The options that stand alone, and those a run or the simulation combines.
static bool check_combination(const char *value[opt_count], std::string *message)
{
    int alone = 0, together = 0;
    for (int id = 0; id < opt_count; id++) {
        if (!value[id]) continue;
        bool stands_alone = id <= opt_check_setup || id >= opt_help;
        (stands_alone ? alone : together)++;
    }
    if (alone > 1 || (alone && together)) return *message = "one of --optics, --export-lattice, --check-setup, --help and --version at a time, alone", false;
    if (value[opt_run] && !value[opt_export]) return *message = "--run needs --export FILE.csv", false;
    for (int id : {opt_export, opt_step, opt_every})
        if (value[id] && !value[opt_run]) return *message = std::string(option_names[id]) + " needs --run METRES", false;
    return true;
}

// The setup text read, and checked against the lattice the options give.
static bool read_setup(const char *text, bool has_ring, fentra_setup *s, std::string *message)
{
    if (!parse_setup(text, s, message)) return false;
    if (s->lattice == setup_ring && !has_ring) return *message = "setup: lattice=ring needs a ring loaded with --lattice FILE", false;
    if (s->lattice == setup_kora && has_ring) return *message = "setup: with --lattice the ring takes KORA's place: say lattice=ring", false;
    return true;
}

static int check_setup(const char *text, FILE *out, FILE *err)
{
    fentra_setup s;
    std::string message;
    if (!parse_setup(text, &s, &message)) return fprintf(err, "fentra: %s\n", message.c_str()), 1;
    fprintf(out, "%s\n", format_setup(s).c_str());
    return 0;
}

static bool read_launch_ring(const char *file, FILE *err)
{
    launch.ring = read_ring_file(file);
    print_notes(launch.ring, err);
    if (!launch.ring.error.empty()) return fprintf(err, "fentra: %s\n", launch.ring.error.c_str()), false;
    launch.has_ring = true;
    return true;
}

// The run without a window: the lattice table, a fresh state, the run.
static int run_headless(const char *value[opt_count], FILE *err)
{
    headless_options o;
    std::string message;
    o.setup_text = launch.setup_text;
    o.setup = launch.has_setup ? launch.setup : default_setup();
    o.step = headless_default_step;
    o.every = 0;
    o.export_file = value[opt_export];
    if (!metres(value[opt_run], "--run", &o.run, &message) ||
        (value[opt_step] && !metres(value[opt_step], "--step", &o.step, &message)) ||
        (value[opt_every] && !metres(value[opt_every], "--every", &o.every, &message)) ||
        (value[opt_every] && o.every <= 0 && (message = "--every needs a positive distance in metres", true)) ||
        !check_headless_options(o, &message))
        return usage_error(err, message.c_str());
    allocate_particles();
    load_carried_kora();
    reset_simulation_state();
    if (launch.has_ring) use_ring_in_place_of_kora(launch.ring);
    return headless_run(o, err);
}

int run_command_line(int argc, char **argv, FILE *out, FILE *err)
{
    const char *value[opt_count] = {};
    std::string message;
    launch = launch_options{};
    if (!parse_options(argc, argv, value, &message) || !check_combination(value, &message))
        return usage_error(err, message.c_str());
    if (value[opt_help]) return fputs(usage_text, out), 0;
    if (value[opt_version]) return fprintf(out, "fentra %s\n", FENTRA_VERSION), 0;
    if (value[opt_optics]) return print_optics(value[opt_optics], out, err);
    if (value[opt_export_lattice]) return export_lattice(value[opt_export_lattice], out, err);
    if (value[opt_check_setup]) return check_setup(value[opt_check_setup], out, err);
    if (value[opt_setup]) {
        if (!read_setup(value[opt_setup], value[opt_lattice] != nullptr, &launch.setup, &message))
            return usage_error(err, message.c_str());
        launch.has_setup = true;
        launch.setup_text = format_setup(launch.setup);
    }
    if (value[opt_lattice] && !read_launch_ring(value[opt_lattice], err)) return 1;
    if (value[opt_run]) return run_headless(value, err);
    return -1;
}
