// Fentra lattice files, inside: what the reader keeps of a file as written (variables,
// elements, lines and sequences, with their places in the text) for the ring builder, which
// evaluates it only for the ring in use. Shared by lattice_file.cpp and lattice_ring.cpp.
#pragma once

#include "fentra/physics/lattice_file.h"

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

// A place in the text: index into lattice_definitions::files, line and column from 1.
struct source_place {
    int file = 0, line = 1, column = 1;
};

// A failure to read: its message is the error a ring_file carries.
struct lattice_failure {
    std::string message;
};

// One term of an expression in postfix order. op: 'n' number, 'v' variable or constant,
// 'a' attribute of an element (name->attribute), 'f' function of one argument, '~' negation,
// or one of + - * / ^.
struct expression_term {
    char op;
    double number;
    std::string name, attribute;
    source_place at;
};
using expression = std::vector<expression_term>;

struct variable_definition {
    expression value;
    int state = 0;   // 0 not evaluated, 1 being evaluated, 2 done
    double result = 0;
};

// Element kinds; kind_drifted are the magnets and devices that the ring holds as drifts.
enum element_kind { kind_drift, kind_quadrupole, kind_sbend, kind_rbend, kind_marker, kind_drifted };

struct attribute_definition {
    expression value;   // empty for an attribute read and ignored
    source_place at;
};

struct element_definition {
    std::string name;      // as first written
    element_kind kind;
    std::string keyword;   // the keyword it descends from, upper case ("QUADRUPOLE")
    std::map<std::string, attribute_definition> attributes;   // by lower-case name
    source_place at;
};

// An entry of a LINE: an element, line or sequence by name, or a parenthesised sub-list.
struct line_item {
    std::string name;   // lower case; empty for a sub-list
    int repeat = 1;
    bool reflect = false;
    std::vector<line_item> sublist;
    source_place at;
};

// An element or sequence placed in a sequence.
struct placement {
    std::string name;   // lower case
    expression position;
    std::string from;   // lower case; empty when AT is from the sequence's start
    source_place at;
};

enum refer_point { refer_entry, refer_centre, refer_exit };

struct beamline_definition {
    std::string name;   // as written
    bool is_sequence = false;
    std::vector<line_item> items;           // a LINE
    expression length;                      // a SEQUENCE: L, its placements and reference point
    std::vector<placement> placements;
    refer_point refer = refer_centre;
    source_place at;
};

struct lattice_definitions {
    std::vector<std::string> files;   // file names as given, for messages
    std::unordered_map<std::string, variable_definition> variables;   // by lower-case name
    std::unordered_map<std::string, element_definition> elements;
    std::unordered_map<std::string, beamline_definition> beamlines;
    std::string used;            // lower-case name of the beamline in use ...
    source_place used_at;        // ... and where it was chosen or defined
    bool use_given = false;      // by USE; otherwise the last beamline defined
    bool stopped = false;        // STOP read: nothing more is read
    size_t pieces = 0;           // definitions, expression terms and LINE entries kept so far
    std::vector<std::string> notes;
    std::vector<std::string> skipped_seen;   // commands already noted as skipped
};

// The function of one argument that an expression may call by that (lower-case) name, or null.
double (*lattice_function(const std::string &name))(double);

// Throws the failure "file:line:col: error: message".
[[noreturn]] void fail_at(const lattice_definitions &d, source_place at, const std::string &message);

// "file:line: kind: text" for the notes.
std::string note_at(const lattice_definitions &d, source_place at, const char *kind, const std::string &text);

// Builds the ring in use from what was read (throws lattice_failure).
void build_ring(lattice_definitions &d, ring_file &ring);
