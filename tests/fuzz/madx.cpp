// Fuzz target: the lattice-file reader of the course language. The input is either raw text
// or a generated file (elements, then nested LINEs with repetitions and reflections, written
// in mixed case with comments between tokens). Any input must give an error of the form
// "file:line:col: error: ..." and no elements, or a ring of 1 to 500 elements of finite,
// positive length that installs into the table unchanged; a generated file must give exactly
// the elements that expanding its lines by hand gives.
#include "fentra/physics/lattice.h"
#include "fentra/physics/lattice_file.h"
#include "fuzz_input.h"


static std::string ring_path;

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    ring_path = std::string(fuzz_scratch("fentra_fuzz_madx", true)) + "/t.madx";   // CALL finds nothing there
    return 0;
}

// A token separator: blanks, line ends or comments of the three kinds.
static std::string blank(fuzz_input &in) {
    static const char *const forms[] = {" ", "", "\n", "\t", " ! note\n", "/* c */", "//x\n", "\r\n  "};
    return forms[fuzz_get<uint8_t>(in) % 8];
}

// A keyword or name in a random mix of cases.
static std::string mixed_case(fuzz_input &in, std::string s) {
    uint8_t bits = fuzz_get<uint8_t>(in);
    for (size_t i = 0; i < s.size(); i++)
        if (bits >> (i % 8) & 1) s[i] = (char)toupper((unsigned char)s[i]);
    return s;
}

static std::string number(double v) {
    char s[40];
    snprintf(s, sizeof s, "%.17g", v);
    return s;
}

// A LINE's entries and what they expand to, from the elements e0 .. e<n-1> and lines made before.
static std::string line_items(fuzz_input &in, const std::vector<std::vector<ring_element>> &made, int depth,
                              std::vector<ring_element> &out) {
    std::string text;
    int count = 1 + fuzz_get<uint8_t>(in) % 4;
    for (int i = 0; i < count; i++) {
        uint8_t form = fuzz_get<uint8_t>(in);
        int repeat = form & 1 ? 1 + form / 2 % 3 : 1;
        bool reflect = form & 8;
        std::vector<ring_element> part;
        std::string item;
        if (depth < 2 && form % 5 == 0) {
            item = "(" + line_items(in, made, depth + 1, part) + ")";
        } else {
            size_t which = fuzz_get<uint8_t>(in) % made.size();
            item = mixed_case(in, "n" + std::to_string(which));
            part = made[which];
        }
        text += (i ? "," + blank(in) : "") + (repeat > 1 ? std::to_string(repeat) + "*" : "") + (reflect ? "-" : "") + item;
        for (int r = 0; r < repeat && out.size() <= 600; r++) {
            if (reflect) out.insert(out.end(), part.rbegin(), part.rend());
            else out.insert(out.end(), part.begin(), part.end());
        }
    }
    return text;
}

// Elements n0 ..; lines n<k> .. built on them; the ring a line of two or more entries.
static std::string generate(fuzz_input &in, std::vector<ring_element> &ring) {
    static const char *const kinds[] = {"drift", "quadrupole", "sbend", "marker"};
    std::vector<std::vector<ring_element>> made;
    std::string text;
    int elements = 1 + fuzz_get<uint8_t>(in) % 6;
    for (int i = 0; i < elements; i++) {
        int kind = fuzz_get<uint8_t>(in) % 4;
        std::string name = "n" + std::to_string(i);
        double length = 0.001 + fuzz_get<uint16_t>(in) / 1000.0, k1 = fuzz_get<int16_t>(in) / 4096.0;
        double angle = fuzz_get<int16_t>(in) / 8192.0;
        text += name + blank(in) + ":" + blank(in) + mixed_case(in, kinds[kind]);
        if (kind != 3) text += ", l =" + blank(in) + number(length);
        if (kind == 1 || kind == 2) text += ", k1 := " + number(k1);
        if (kind == 2) text += ", angle=" + number(angle) + ", aperture={0.1, 0.2}";
        text += ";" + blank(in);
        if (kind == 3) made.push_back({});
        else made.push_back({{name, length, kind ? k1 : 0, kind == 2 ? angle : 0}});
    }
    int lines = fuzz_get<uint8_t>(in) % 4;
    for (int i = 0; i < lines; i++) {
        std::vector<ring_element> out;
        std::string items = line_items(in, made, 0, out);
        text += "n" + std::to_string(made.size()) + ": " + mixed_case(in, "line") + "=(" + items + ");" + blank(in);
        made.push_back(out);
    }
    std::vector<ring_element> first, second;
    std::string a = line_items(in, made, 1, first), b = line_items(in, made, 1, second);
    ring = first;
    ring.insert(ring.end(), second.begin(), second.end());
    return text + "ring: line=((" + a + "), (" + b + "));\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    bool generated = fuzz_get<uint8_t>(in) & 1;
    std::vector<ring_element> expected;
    std::string text = generated ? generate(in, expected) : fuzz_rest(in);
    // CALL could name any file, /dev/stdin among them: here it is made an unknown keyword.
    for (size_t i = 0; i + 4 <= text.size(); i++)
        if (strncasecmp(text.c_str() + i, "call", 4) == 0) text[i] = 'k';
    ring_file r = read_ring_text(text, ring_path);

    if (!r.error.empty()) {
        // "<path>/t.madx:LINE:COL: error: <what>"
        size_t at = r.error.find("/t.madx:");
        unsigned line = 0, column = 0;
        int tail = 0;
        bool form = at != std::string::npos &&
                    sscanf(r.error.c_str() + at, "/t.madx:%u:%u: error: %n", &line, &column, &tail) == 2 && tail > 0 &&
                    r.error.size() > at + tail;
        FUZZ_CHECK(form, "error '%s' not of the form file:line:col: error: ...", r.error.c_str());
        FUZZ_CHECK(r.elements.empty(), "an error with %zu elements", r.elements.size());
    } else {
        FUZZ_CHECK(!r.elements.empty() && r.elements.size() <= (size_t)element_capacity, "%zu elements", r.elements.size());
        FUZZ_CHECK(r.superperiod_count >= 1, "superperiod count %d", r.superperiod_count);
        for (const ring_element &e : r.elements)
            FUZZ_CHECK(e.length > 0 && std::isfinite(e.length) && std::isfinite(e.k1) && std::isfinite(e.angle),
                       "element %s: length %g, k1 %g, angle %g", e.name.c_str(), e.length, e.k1, e.angle);
        FUZZ_CHECK(install_ring(r) == r.superperiod_count && element_count == (int)r.elements.size(), "installed %d of %zu",
                   element_count, r.elements.size());
        for (int i = 0; i < element_count; i++)
            FUZZ_CHECK(element_length[i] == r.elements[i].length && element_strength[i] == r.elements[i].k1 &&
                           std::isfinite(element_bend_radius[i]),
                       "table entry %d differs from element %s", i, r.elements[i].name.c_str());
    }
    if (!generated) return 0;
    if (expected.size() > (size_t)element_capacity) {
        FUZZ_CHECK(r.error.find("more than 500 elements") != std::string::npos, "%zu elements expected, error '%s'",
                   expected.size(), r.error.c_str());
        return 0;
    }
    if (expected.empty()) {
        FUZZ_CHECK(r.error.find("has zero length") != std::string::npos, "no elements expected, error '%s'", r.error.c_str());
        return 0;
    }
    FUZZ_CHECK(r.error.empty(), "generated file failed: %s\n%s", r.error.c_str(), text.c_str());
    FUZZ_CHECK(r.superperiod_count == 1, "superperiod count %d", r.superperiod_count);
    FUZZ_CHECK(r.elements.size() == expected.size(), "%zu elements, expected %zu", r.elements.size(), expected.size());
    for (size_t i = 0; i < expected.size(); i++) {
        const ring_element &e = expected[i], &g = r.elements[i];
        FUZZ_CHECK(e.name == g.name && e.length == g.length && e.k1 == g.k1 && e.angle == g.angle,
                   "element %zu: %s %.17g %.17g %.17g, expected %s %.17g %.17g %.17g", i, g.name.c_str(), g.length, g.k1,
                   g.angle, e.name.c_str(), e.length, e.k1, e.angle);
    }
    return 0;
}
