// Fentra's command line: the options and their values, the lattice names --optics
// understands, the lattice's figures printed one a line, and the ring --lattice reads.
#include "fentra/command_line.h"

#include "fentra/physics/optics_figures.h"

#include <cstring>
#include <string>
#include <unistd.h>

launch_options launch;

static const char usage_text[] =
    "Usage: fentra [--lattice FILE] | --optics NAME | --export-lattice NAME | --help | --version\n"
    "  --lattice FILE         run with the ring of a lattice file (MAD-X language) in KORA's place\n"
    "  --optics NAME          print the optics of NAME (kora, fodo or a lattice file) and exit\n"
    "  --export-lattice NAME  print the built-in lattice NAME (kora, fodo) as a lattice file\n"
    "  --help                 print this help and exit\n"
    "  --version              print the version and exit\n"
    "Without options Fentra opens its window. Keys: P K W G beams, 2-9 0 O magnets, D momentum\n"
    "spread, F FODO cell, I KORA lattice (or the loaded ring), + - speed, H highlight, A graphs,\n"
    "L luminous, S scraper, C space charge, T optics panel, F1 help, Q or Escape quit.\n";

// The carried KORA superperiod read into the element table through a private file.
static bool load_carried_kora()
{
    std::string file = "/tmp/fentra_kora_" + std::to_string(getpid()) + ".txt";
    write_builtin_lattice(file.c_str());
    read_lattice(file.c_str());
    remove(file.c_str());
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

static int read_launch_ring(const char *file, FILE *err)
{
    launch.ring = read_ring_file(file);
    print_notes(launch.ring, err);
    if (!launch.ring.error.empty()) return fprintf(err, "fentra: %s\n", launch.ring.error.c_str()), 1;
    launch.has_ring = true;
    return -1;
}

// The options that take a value, and the ones that stand alone.
enum option_id { opt_help, opt_version, opt_optics, opt_export, opt_lattice, opt_count };
static const struct { const char *name; bool takes_value; } options[opt_count] = {
    {"--help", false}, {"--version", false}, {"--optics", true}, {"--export-lattice", true},
    {"--lattice", true}};

// Reads argv into value[] (the option's value, or "" for one that stands alone). Returns
// false with a message for an unknown option, a missing value or an option given twice.
static bool parse_options(int argc, char **argv, const char *value[opt_count], char *message, int size)
{
    for (int i = 1; i < argc; i++) {
        const char *a = argv[i], *eq = strchr(a, '=');
        size_t name_length = eq && strncmp(a, "--", 2) == 0 ? (size_t)(eq - a) : strlen(a);
        int id = 0;
        while (id < opt_count && !(strlen(options[id].name) == name_length &&
                                   strncmp(a, options[id].name, name_length) == 0))
            id++;
        if (id == opt_count) {
            snprintf(message, size, a[0] == '-' ? "unknown option \"%s\"" : "unexpected argument \"%s\"", a);
            return false;
        }
        if (value[id]) return snprintf(message, size, "%s given twice", options[id].name), false;
        if (!options[id].takes_value) {
            if (eq && strncmp(a, "--", 2) == 0) return snprintf(message, size, "%s takes no value", options[id].name), false;
            value[id] = "";
        } else if (eq) {
            value[id] = eq + 1;
        } else if (i + 1 < argc) {
            value[id] = argv[++i];
        } else {
            return snprintf(message, size, "%s needs a %s", options[id].name,
                            id == opt_lattice ? "file name" : "lattice name"), false;
        }
    }
    return true;
}

int run_command_line(int argc, char **argv, FILE *out, FILE *err)
{
    const char *value[opt_count] = {};
    char message[300];
    if (!parse_options(argc, argv, value, message, sizeof message)) return usage_error(err, message);
    int given = 0;
    for (const char *v : value) given += v != nullptr;
    if (given > 1) return usage_error(err, "one option at a time");
    if (value[opt_help]) return fputs(usage_text, out), 0;
    if (value[opt_version]) return fprintf(out, "fentra %s\n", FENTRA_VERSION), 0;
    if (value[opt_optics]) return print_optics(value[opt_optics], out, err);
    if (value[opt_export]) return export_lattice(value[opt_export], out, err);
    if (value[opt_lattice]) return read_launch_ring(value[opt_lattice], err);
    return -1;
}
