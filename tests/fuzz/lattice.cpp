// Fuzz target: the lattice file reader. The input becomes a lattice file, either as raw bytes
// or as a stream of generated tokens, and read_lattice reads it. Any file must leave the table
// within its 500 elements with every name terminated inside its 16 bytes; a generated file
// must also give exactly the elements that reading it token by token gives.
#include "Morvane/report.h"
#include "fentra/physics/lattice.h"
#include "fuzz_input.h"

static const char *lattice_path;

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    report_handler = nullptr;   // the reader warns about long names and long files
    warnings_log_enabled = 0;
    lattice_path = fuzz_scratch("fentra_fuzz_lattice", false);
    return 0;
}

// A number in one of the forms a lattice file uses ("0", ".16", "-.001003050", "2.5494") or
// that the number scan also accepts (exponents, many digits, "inf", "nan").
static std::string number_text(fuzz_input &in) {
    uint8_t form = fuzz_get<uint8_t>(in) % 8;
    uint32_t digits = fuzz_get<uint32_t>(in);
    char out[64];
    switch (form) {
    case 0: return "0";
    case 1: snprintf(out, sizeof out, ".%09u", digits % 1000000000u); break;
    case 2: snprintf(out, sizeof out, "-.%09u", digits % 1000000000u); break;
    case 3: snprintf(out, sizeof out, "%u.%u", digits % 100, digits / 100 % 100000); break;
    case 4: snprintf(out, sizeof out, "%.17g", fuzz_get<double>(in)); break;
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
    size_t n = 1 + fuzz_get<uint8_t>(in) % 22;
    std::string s(1, first[fuzz_get<uint8_t>(in) % (sizeof first - 1)]);
    for (size_t i = 1; i < n; i++) s += (char)('!' + fuzz_get<uint8_t>(in) % ('~' - '!' + 1));
    return s;
}

struct element {
    std::string name;
    double fields[3];   // length, strength, bend radius
};

// Element lines of generated tokens, now and then with a field that does not scan ("?..."),
// which ends its line early: the next token then starts the next element. Returns the file and
// the table that reading its tokens in order gives: a name, then up to three numbers, a field
// that does not scan leaving it and the rest of the element as they were (zero here).
static std::string generate(fuzz_input &in, std::vector<element> &table) {
    std::vector<std::string> tokens;
    size_t lines = fuzz_get<uint16_t>(in) % 620;
    for (size_t line = 0; line < lines && in.size > 0; line++) {
        tokens.push_back(name_text(in));
        table.push_back({tokens.back().substr(0, 15), {0, 0, 0}});   // the reader keeps 15 bytes
        uint8_t shape = fuzz_get<uint8_t>(in);
        for (int f = 0; f < (shape < 200 ? 3 : shape % 4); f++) {
            tokens.push_back(number_text(in));
            table.back().fields[f] = strtod(tokens.back().c_str(), nullptr);
        }
        if (shape >= 240) table.push_back({(tokens.emplace_back(name_text(in).insert(0, 1, '?'))).substr(0, 15), {0, 0, 0}});
    }
    static const char *const separators[] = {" ", "\t", "\t\t", "\r\n", "\n", "  \t", "\r\n\r\n", " \n\t"};
    std::string text = fuzz_get<uint8_t>(in) & 1 ? separators[fuzz_get<uint8_t>(in) % 8] : "";
    for (const std::string &t : tokens) text += t + separators[fuzz_get<uint8_t>(in) % 8];
    if (!tokens.empty() && (fuzz_get<uint8_t>(in) & 1)) text.pop_back();   // sometimes no final line end
    if (tokens.empty()) table.push_back({"", {0, 0, 0}});   // an empty file still counts one
    for (element &e : table) e.fields[1] /= 1.235293713, e.fields[2] = e.fields[2] != 0 ? e.fields[0] / e.fields[2] : 0;
    if (table.size() > 500) table.resize(500);
    return text;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    bool generated = fuzz_get<uint8_t>(in) & 1;
    std::vector<element> expected;
    std::string text = generated ? generate(in, expected) : fuzz_rest(in);
    FILE *f = fopen(lattice_path, "wb");
    if (!f || fwrite(text.data(), 1, text.size(), f) != text.size() || fclose(f) != 0) abort();
    memset(element_name, 0, sizeof element_name);
    for (double *column : {element_length, element_strength, element_bend_radius})
        memset(column, 0, sizeof element_length);
    read_lattice(lattice_path);

    // Any file: at most the table's elements, each name terminated within its 16 bytes, without white space.
    FUZZ_CHECK(element_count >= 0 && element_count <= element_capacity, "element_count %d", element_count);
    FUZZ_CHECK(!generated || element_count == (int)expected.size(), "element_count %d, expected %zu", element_count,
               expected.size());
    for (int i = 0; i < element_count; i++) {
        const char *end = (const char *)memchr(element_name[i], 0, element_name_size);
        FUZZ_CHECK(end && std::none_of((const char *)element_name[i], end, [](char c) { return isspace((unsigned char)c); }),
                   "element %d: name not terminated within 16 bytes or with white space", i);
        if (!generated) continue;
        const element &e = expected[i];
        const double got[3] = {element_length[i], element_strength[i], element_bend_radius[i]};
        FUZZ_CHECK(e.name == element_name[i], "element %d: name '%s', expected '%s'", i, element_name[i], e.name.c_str());
        for (int k = 0; k < 3; k++)
            FUZZ_CHECK(fuzz_same(got[k], e.fields[k]), "element %d (%s): field %d is %.17g, expected %.17g", i,
                       e.name.c_str(), k, got[k], e.fields[k]);
    }
    return 0;
}
