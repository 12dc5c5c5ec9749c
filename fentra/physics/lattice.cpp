// Fentra lattice: the element table, the lattice text file (read and carried copy written),
// the current-element lookup and the FODO cell rule.
#include "fentra/physics/lattice.h"

#include "Morvane/report.h"
#include "carried_data.h"
#include "fentra/physics/state.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <unistd.h>

char element_name[element_capacity][element_name_size];
double element_length[element_capacity];
double element_strength[element_capacity];
double element_bend_radius[element_capacity];
int element_count;
char lattice_ring_name[80];

// Consumes white space; returns 1 when more text follows, 0 at the end of the file
// (which sets the file's end-of-file mark, as a scan reaching the end does).
static int skip_space(FILE *f)
{
    int c;
    do c = getc(f);
    while (c != EOF && isspace(c));
    if (c == EOF) return 0;
    ungetc(c, f);
    return 1;
}

// Reads the name token into element_name[index], keeping at most 15 characters.
// Returns 1 when a name was read, 0 at the end of the file.
static int scan_name(FILE *f, int index)
{
    if (fscanf(f, "%15s", element_name[index]) != 1) return 0;
    int c = getc(f);
    if (c == EOF || isspace(c)) {
        if (c != EOF) ungetc(c, f);
        return 1;
    }
    while (c != EOF && !isspace(c)) c = getc(f);
    if (c != EOF) ungetc(c, f);
    char message[96];
    snprintf(message, sizeof message, "Lattice element name \"%s...\" cut to 15 characters",
             element_name[index]);
    report_inner("fentra", __LINE__, REPORT_WARNING, message, 1);
    return 1;
}

// One line "name length gradient angle". As with a single scan of the whole line, the first
// field that does not scan ends the line's scan and leaves the rest of the fields as they were;
// after a complete line all following white space is consumed, so a final line end does not
// start another element.
static void scan_element(FILE *f, int index)
{
    if (!scan_name(f, index)) return;
    if (fscanf(f, "%lf", &element_length[index]) != 1) return;
    if (fscanf(f, "%lf", &element_strength[index]) != 1) return;
    if (fscanf(f, "%lf", &element_bend_radius[index]) != 1) return;
    skip_space(f);
}

void read_lattice(const char *file_name)
{
    FILE *f = fopen(file_name, "rt");
    element_count = 0;
    if (!f) return;
    while (!feof(f)) {
        if (element_count == element_capacity) {
            if (skip_space(f))
                report_inner("fentra", __LINE__, REPORT_WARNING,
                             "Lattice file has more than 500 elements; the rest is ignored", 1);
            break;
        }
        int i = element_count;
        scan_element(f, i);
        element_strength[i] /= beam_rigidity;
        // The file gives the bend angle; the table keeps the bending radius.
        if (element_bend_radius[i] != 0) element_bend_radius[i] = element_length[i] / element_bend_radius[i];
        element_count++;
    }
    fclose(f);
}

void write_builtin_lattice(const char *file_name)
{
    FILE *f = fopen(file_name, "wb");
    if (!f) return;
    fwrite(data_kora_sp_txt, 1, data_kora_sp_txt_size, f);
    fclose(f);
}

void load_builtin_lattice()
{
    char file[] = "/tmp/fentra_kora_XXXXXX";
    int fd = mkstemp(file);
    if (fd < 0) return;
    close(fd);
    write_builtin_lattice(file);
    read_lattice(file);
    remove(file);
}

double lattice_length()
{
    double s = 0;
    for (int i = 0; i < element_count; i++) s += element_length[i];
    return s;
}

element_here find_element(double ring_position, double superperiod_length)
{
    element_here e = {-1, 0, 0, false};
    if (element_count <= 0 || !(superperiod_length > 0)) return e;
    double p = fmod(ring_position, superperiod_length);
    if (p < 0) return e;
    // The search goes on while the running sum is <= p, so a boundary belongs to the next
    // element. The sum reaches superperiod_length (> p) at the last element at the latest.
    double s = 0;
    int i = 0;
    do {
        s += element_length[i];
        i++;
    } while (s <= p && i < element_count);
    e.index = i - 1;
    e.distance_to_end = s - p;
    e.quad_strength = element_strength[e.index];
    e.bend_active = element_bend_radius[e.index] != 0;
    return e;
}

void enter_current_element()
{
    element_here e = find_element(sim.ring_position, sim.superperiod_length);
    sim.component_index = e.index;
    if (e.index < 0) {
        sim.distance_to_element_end = 1e20;
        sim.bend_active = false;
        return;
    }
    sim.distance_to_element_end = e.distance_to_end;
    sim.bend_active = e.bend_active;
    magnets.quad_strength = e.quad_strength;
}

double fodo_quadrupole(double ring_position)
{
    double c = fmod(ring_position, 3.0);
    int slot = (int)floor(4 * c);   // quarter-metre slots 0 .. 11
    if (slot == 0 || slot == 11) return 1.384;
    if (slot == 5 || slot == 6) return -1.384;
    return 0;
}
