// Fentra lattice files: the built-in lattices (the carried KORA superperiod and the FODO cell
// rule) written in the lattice-file language, with every number in its shortest exact form so
// that reading the file back gives the same element data to the last bit.
#include "fentra/physics/lattice.h"
#include "fentra/physics/lattice_file.h"

#include "carried_data.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace {

// The shortest text that reads back as exactly v.
std::string exact(double v)
{
    char s[32];
#if defined(__cpp_lib_to_chars)
    return std::string(s, std::to_chars(s, s + sizeof s, v).ptr);
#else
    // a standard library without floating-point to_chars (the web build's): the fewest
    // significant digits that read back exactly
    for (int digits = 1; digits <= 17; digits++) {
        snprintf(s, sizeof s, "%.*g", digits, v);
        if (strtod(s, nullptr) == v) break;
    }
    return s;
#endif
}

// "NAME: KIND, L=..., ...;" for an element of the table's kinds.
std::string definition(const ring_element &e)
{
    std::string s = e.name + ": ";
    if (e.angle != 0) s += "SBEND, L=" + exact(e.length) + ", ANGLE=" + exact(e.angle);
    else if (e.k1 != 0) s += "QUADRUPOLE, L=" + exact(e.length);
    else s += "DRIFT, L=" + exact(e.length);
    if (e.k1 != 0) s += ", K1=" + exact(e.k1);
    return s + ";\n";
}

// Definitions of the distinct names, the superperiod as a LINE, the ring and USE.
std::string lattice_text(const std::string &header, const std::string &period, const std::vector<ring_element> &elements,
                         int superperiods)
{
    std::string text = header, line = period + ": LINE=(";
    std::vector<std::string> defined;
    for (const ring_element &e : elements) {
        bool known = false;
        for (const std::string &d : defined) known |= d == e.name;
        if (!known) text += definition(e), defined.push_back(e.name);
    }
    size_t line_start = 0;
    for (size_t i = 0; i < elements.size(); i++) {
        std::string item = elements[i].name + (i + 1 < elements.size() ? "," : ");\n");
        if (line.size() - line_start + item.size() > 90) line += "\n ", line_start = line.size() - 1;
        line += (i ? " " : "") + item;
    }
    text += "\n" + line;
    if (superperiods == 1) return text + "USE, PERIOD=" + period + ";\n";
    std::string ring = period.substr(0, period.find('_'));
    return text + ring + ": LINE=(" + std::to_string(superperiods) + "*" + period + ");\nUSE, PERIOD=" + ring + ";\n";
}

// The carried KORA table read as read_lattice reads it: the gradient divided by the beam
// rigidity is k, the angle stays an angle. ':' in the names becomes '.'.
std::vector<ring_element> kora_elements()
{
    std::string text((const char *)data_kora_sp_txt, data_kora_sp_txt_size);
    std::vector<ring_element> elements;
    char name[64];
    double length, gradient, angle;
    int used;
    for (const char *p = text.c_str(); sscanf(p, "%63s %lf %lf %lf%n", name, &length, &gradient, &angle, &used) == 4; p += used) {
        std::string n = name;
        for (char &c : n) c = c == ':' ? '.' : c;
        elements.push_back({n, length, gradient / beam_rigidity, angle});
    }
    return elements;
}

}  // namespace

std::string export_builtin_lattice(const std::string &which)
{
    if (which == "kora")
        return lattice_text("! KORA, Fentra's built-in synchrotron lattice: ten superperiods of 48 elements.\n"
                            "! K1 is the built-in gradient divided by the beam rigidity, 1.235293713 T m; the\n"
                            "! built-in names have ':' where these have '.'. Bends are sector bends.\n\n",
                            "KORA_SP", kora_elements(), 10);
    if (which == "fodo")
        return lattice_text("! FODO, Fentra's built-in 3 m cell: the focusing quadrupole (0.5 m, centred on the\n"
                            "! cell boundary, so half of it at each end), 1 m drifts and the defocusing\n"
                            "! quadrupole (0.5 m) in the middle. No bends.\n\n",
                            "FODO",
                            {{"QF", 0.25, 1.384, 0}, {"D", 1.0, 0, 0}, {"QD", 0.5, -1.384, 0}, {"D", 1.0, 0, 0}, {"QF", 0.25, 1.384, 0}},
                            1);
    return {};
}
