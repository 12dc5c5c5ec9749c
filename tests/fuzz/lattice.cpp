// Fuzz target: the lattice file reader. The input becomes a lattice file, either as raw bytes
// or as a stream of generated tokens, and read_lattice reads it. Any file must leave the table
// within its 500 elements with every name terminated inside its 16 bytes; a generated file
// must also give exactly the elements that reading it token by token gives.
#include <cmath>
#include <string>
#include <unistd.h>
#include <vector>

#include "Morvane/report.h"
#include "fentra/physics/lattice.h"
#include "fuzz_input.h"

static char lattice_path[256];

static void remove_lattice_file() { unlink(lattice_path); }

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    report_handler = nullptr;   // the reader warns about long names and long files
    warnings_log_enabled = 0;
    const char *tmp = getenv("TMPDIR");
    snprintf(lattice_path, sizeof lattice_path, "%s/fentra_fuzz_lattice_XXXXXX", tmp && *tmp ? tmp : "/tmp");
    int fd = mkstemp(lattice_path);
    if (fd < 0) abort();
    close(fd);
    atexit(remove_lattice_file);
    return 0;
}

// ---- Generated files ---------------------------------------------------------------------

struct token {
    std::string text;
    bool number;   // a field that scans as a number
};

static const char *const separators[] = {" ", "\t", "\t\t", "\r\n", "\n", "  \t", "\r\n\r\n", " \n\t"};

// A number in one of the forms a lattice file uses ("0", ".16", "-.001003050", "2.5494") or
// that the number scan also accepts (exponents, many digits, "inf", "nan").
static std::string number_text(fuzz_input &in) {
    uint8_t form = fuzz_u8(in) % 8;
    uint32_t digits = fuzz_u32(in);
    char out[64];
    switch (form) {
    case 0: return "0";
    case 1: snprintf(out, sizeof out, ".%09u", digits % 1000000000u); break;
    case 2: snprintf(out, sizeof out, "-.%09u", digits % 1000000000u); break;
    case 3: snprintf(out, sizeof out, "%u.%u", digits % 100, digits / 100 % 100000); break;
    case 4: snprintf(out, sizeof out, "%.17g", fuzz_f64(in)); break;
    case 5: snprintf(out, sizeof out, "%de%d", (int)(digits % 2001) - 1000, (int)(digits >> 16) % 40 - 20); break;
    case 6: snprintf(out, sizeof out, "%+.3f", (int32_t)digits / 1000.0); break;
    default: return digits & 1 ? "inf" : "-nan";
    }
    return out;
}

// A name: printable bytes without white space, sometimes longer than the 15 kept. Its first
// byte can start no number (no digit, sign, point, "inf" or "nan"), so that a name after a
// short line is never taken for a missing field.
static std::string name_text(fuzz_input &in) {
    static const char first[] = "ABCDEFGHJKLMOPQRSTUVWXYZabcdefghjklmopqrstuvwxyz:_#?!$%&*/<=>@[]^{|}~";
    size_t n = 1 + fuzz_u8(in) % 22;
    std::string s(1, first[fuzz_u8(in) % (sizeof first - 1)]);
    for (size_t i = 1; i < n; i++) s += (char)('!' + fuzz_u8(in) % ('~' - '!' + 1));
    return s;
}

// Tokens of element lines, with now and then a field that does not scan ("?..."), which
// ends its line early: the next token then starts the next element.
static std::vector<token> generate_tokens(fuzz_input &in) {
    std::vector<token> tokens;
    size_t lines = fuzz_u16(in) % 620;
    for (size_t line = 0; line < lines && fuzz_left(in) > 0; line++) {
        tokens.push_back({name_text(in), false});
        uint8_t shape = fuzz_u8(in);
        int fields = shape < 200 ? 3 : shape % 4;
        for (int f = 0; f < fields; f++) tokens.push_back({number_text(in), true});
        if (shape >= 240) tokens.push_back({name_text(in).insert(0, 1, '?'), false});
    }
    return tokens;
}

static std::string join_tokens(fuzz_input &in, const std::vector<token> &tokens) {
    std::string text;
    if (fuzz_u8(in) & 1) text += separators[fuzz_u8(in) % 8];
    for (const token &t : tokens) {
        text += t.text;
        text += separators[fuzz_u8(in) % 8];
    }
    if (!tokens.empty() && (fuzz_u8(in) & 1)) text.pop_back();   // sometimes no final line end
    return text;
}

struct element {
    std::string name;
    double length, strength, bend_radius;
};

// The table that reading the tokens in order gives: a name, then up to three numbers; a field
// that does not scan leaves it and the rest of the element as they were (zero here).
static std::vector<element> expected_table(const std::vector<token> &tokens) {
    std::vector<element> table;
    size_t j = 0;
    if (tokens.empty()) table.push_back({"", 0, 0, 0});   // an empty file still counts one
    while (j < tokens.size()) {
        element e = {tokens[j++].text.substr(0, 15), 0, 0, 0};
        double *fields[3] = {&e.length, &e.strength, &e.bend_radius};
        for (int f = 0; f < 3 && j < tokens.size() && tokens[j].number; f++, j++)
            *fields[f] = strtod(tokens[j].text.c_str(), nullptr);
        e.strength /= 1.235293713;
        if (e.bend_radius != 0) e.bend_radius = e.length / e.bend_radius;
        table.push_back(e);
    }
    if (table.size() > 500) table.resize(500);
    return table;
}

static bool same(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// ---- The target ------------------------------------------------------------------------------

static void write_file(const std::string &text) {
    FILE *f = fopen(lattice_path, "wb");
    if (!f) abort();
    fwrite(text.data(), 1, text.size(), f);
    fclose(f);
}

static void clear_table() {
    memset(element_name, 0, sizeof element_name);
    memset(element_length, 0, sizeof element_length);
    memset(element_strength, 0, sizeof element_strength);
    memset(element_bend_radius, 0, sizeof element_bend_radius);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    bool generated = fuzz_u8(in) & 1;
    std::vector<token> tokens;
    std::string text = generated ? join_tokens(in, tokens = generate_tokens(in)) : fuzz_rest(in);
    write_file(text);
    clear_table();
    read_lattice(lattice_path);

    FUZZ_CHECK(element_count >= 0 && element_count <= element_capacity, "element_count %d", element_count);
    for (int i = 0; i < element_count; i++) {
        const char *end = (const char *)memchr(element_name[i], 0, element_name_size);
        FUZZ_CHECK(end != nullptr, "element %d: name not terminated within 16 bytes", i);
        for (const char *p = element_name[i]; p < end; p++)
            FUZZ_CHECK(!isspace((unsigned char)*p), "element %d: white space in name", i);
    }
    if (!generated) return 0;

    std::vector<element> expected = expected_table(tokens);
    FUZZ_CHECK(element_count == (int)expected.size(), "element_count %d, expected %zu", element_count, expected.size());
    for (int i = 0; i < element_count; i++) {
        const element &e = expected[i];
        FUZZ_CHECK(e.name == element_name[i], "element %d: name '%s', expected '%s'", i, element_name[i], e.name.c_str());
        FUZZ_CHECK(same(element_length[i], e.length), "element %d (%s): length %.17g, expected %.17g", i,
                   e.name.c_str(), element_length[i], e.length);
        FUZZ_CHECK(same(element_strength[i], e.strength), "element %d (%s): k %.17g, expected %.17g", i,
                   e.name.c_str(), element_strength[i], e.strength);
        FUZZ_CHECK(same(element_bend_radius[i], e.bend_radius), "element %d (%s): radius %.17g, expected %.17g", i,
                   e.name.c_str(), element_bend_radius[i], e.bend_radius);
    }
    return 0;
}
