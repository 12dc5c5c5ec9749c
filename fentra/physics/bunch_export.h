// Fentra's bunch as CSV for notebooks and spreadsheets: a header of '#' lines (version, setup,
// ring position, lattice and beam figures), a row of column names, then one row per live
// particle, or one per particle per observation for a turn-by-turn record. Written under a
// temporary name and renamed, so a failed write leaves nothing half-written behind.
#pragma once

#include <cstdio>
#include <string>

// The header lines: program version, setup text, ring position, and the optics panel's
// figures (the lattice's, and the beam's own moments), each line starting with "# ".
std::string bunch_header(const std::string &setup_text);

// Column names of the two kinds of file.
extern const char bunch_columns[];        // "x,xp,y,yp,delta,Qx,Qy"
extern const char turn_record_columns[];  // "s,particle,x,xp,y,yp,delta"

// Rows of the live particles: x (m), x' (rad), y (m), y' (rad), delta, and the particle's
// measured tunes (empty where not measured), each number exact ("%.17g").
void write_bunch_rows(FILE *f);
// Rows of one observation of a turn-by-turn record: ring position, the particle's number
// (its place in the beam when the record started), x, x', y, y', delta.
void write_turn_rows(FILE *f, double ring_position);

// A file being written: the temporary file and the final name.
struct csv_output {
    FILE *file;
    std::string final_name, temporary_name;
};
// Opens "<name>.part-<pid>" beside the final name. False with the reason in *error.
bool csv_open(csv_output *out, const std::string &name, std::string *error);
// Closes and renames the file into place (true), or removes it when writing failed.
bool csv_close(csv_output *out, std::string *error);
// Removes the temporary file unfinished.
void csv_abandon(csv_output *out);

// Ctrl+E: the live bunch written to name (the screenshot numbering's "Fentra_NNNNN.csv").
bool export_bunch(const std::string &name, const std::string &setup_text, std::string *error);
