// Fentra's command line: the options, the lattice names --optics understands, and the
// lattice's figures printed one a line.
#include "fentra/command_line.h"

#include "fentra/physics/optics_figures.h"

#include <cstring>
#include <string>
#include <unistd.h>

static const char usage_text[] =
    "Usage: fentra [--optics NAME | --help | --version]\n"
    "  --optics NAME  print the optics of lattice NAME (kora, fodo) and exit\n"
    "  --help         print this help and exit\n"
    "  --version      print the version and exit\n"
    "Without options Fentra opens its window. Keys: P K W G beams, 2-9 0 O magnets, D momentum\n"
    "spread, F FODO cell, I KORA lattice, + - speed, H highlight, A graphs, L luminous, S scraper,\n"
    "C space charge, T optics panel, F1 help, Q or Escape quit.\n";

// The carried KORA superperiod read into the element table through a private file.
static bool load_carried_kora()
{
    std::string file = "/tmp/fentra_kora_" + std::to_string(getpid()) + ".txt";
    write_builtin_lattice(file.c_str());
    read_lattice(file.c_str());
    remove(file.c_str());
    return element_count > 0;
}

bool resolve_lattice(const char *name, optics_lattice *l, char *error, int error_size)
{
    if (strcmp(name, "fodo") == 0) {
        fodo_cell_lattice(l);
        return true;
    }
    if (strcmp(name, "kora") == 0 && load_carried_kora()) {
        lattice_from_table(l, 10);
        return true;
    }
    snprintf(error, error_size, "unknown lattice \"%s\" (known: kora, fodo)", name);
    return false;
}

static int usage_error(FILE *err, const char *message)
{
    fprintf(err, "fentra: %s\n%s", message, usage_text);
    return 2;
}

static int print_optics(const char *name, FILE *out, FILE *err)
{
    static optics_lattice l;
    char error[200];
    if (!resolve_lattice(name, &l, error, sizeof error)) return usage_error(err, error);
    lattice_optics o = solve_lattice(l);
    char lines[24][figure_line_size];
    int n = lattice_figure_lines(l, o, lines, 24);
    for (int i = 0; i < n; i++) fprintf(out, "%s\n", lines[i]);
    return 0;
}

int run_command_line(int argc, char **argv, FILE *out, FILE *err)
{
    if (argc <= 1) return -1;
    const char *a = argv[1];
    char message[200];
    if (strcmp(a, "--help") == 0 && argc == 2) return fputs(usage_text, out), 0;
    if (strcmp(a, "--version") == 0 && argc == 2) return fprintf(out, "fentra %s\n", FENTRA_VERSION), 0;
    if (strcmp(a, "--optics") == 0 && argc == 3) return print_optics(argv[2], out, err);
    if (strncmp(a, "--optics=", 9) == 0 && argc == 2) return print_optics(a + 9, out, err);
    if (strcmp(a, "--optics") == 0 && argc == 2) return usage_error(err, "--optics needs a lattice name");
    if (argc > 2 && (strcmp(a, "--help") == 0 || strcmp(a, "--version") == 0 || strncmp(a, "--optics", 8) == 0))
        snprintf(message, sizeof message, "unexpected argument \"%s\"", argv[strncmp(a, "--optics", 8) == 0 && a[8] == 0 ? 3 : 2]);
    else
        snprintf(message, sizeof message, "unknown option \"%s\"", a);
    return usage_error(err, message);
}
