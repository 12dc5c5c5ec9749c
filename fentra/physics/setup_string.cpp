// Fentra setups as text: the keys and their values, parsing with one-line errors, the
// canonical form, and the setup applied to a fresh simulation.
#include "fentra/physics/setup_string.h"

#include "fentra/physics/beam.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/state.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

fentra_setup default_setup()
{
    fentra_setup s = {};
    s.lattice = setup_no_lattice;
    s.beam = beam_none;
    s.scraper_edge = 0.03;
    s.speed = 1.0;
    return s;
}

static const char *const lattice_names[] = {"none", "kora", "fodo", "ring"};
static const char *const beam_names[] = {"", "P", "K", "W", "G", "game"};

// The yes-or-no keys, in the canonical order, with where each lives in the record.
static const struct {
    const char *key;
    bool fentra_setup::*field;
} toggles[] = {{"spread", &fentra_setup::spread},       {"graphs", &fentra_setup::graphs},
               {"scraper", &fentra_setup::scraper},     {"spacecharge", &fentra_setup::space_charge},
               {"luminous", &fentra_setup::luminous},   {"highlight", &fentra_setup::highlight},
               {"panel", &fentra_setup::panel}};

static const char known_keys[] =
    "lattice, beam, spread, graphs, scraper, edge, spacecharge, luminous, highlight, panel, speed";

static int index_of(const char *const *names, int count, const std::string &v, bool any_case)
{
    for (int i = 0; i < count; i++)
        if (names[i][0] && (any_case ? strcasecmp(names[i], v.c_str()) == 0 : v == names[i])) return i;
    return -1;
}

// A finite number in [lo, hi], the whole value read.
static bool number_in(const std::string &v, double lo, double hi, double *out)
{
    char *end = nullptr;
    double d = v.empty() ? NAN : strtod(v.c_str(), &end);
    if (!end || *end || !std::isfinite(d) || d < lo || d > hi) return false;
    *out = d;
    return true;
}

// One key and value into *s; false with the reason in *error.
static bool set_key(const std::string &key, const std::string &v, fentra_setup *s, std::string *error)
{
    auto bad = [&](const char *expected) {
        *error = "setup: bad value \"" + v + "\" for " + key + " (expected " + expected + ")";
        return false;
    };
    if (key == "lattice") {
        int i = index_of(lattice_names, 4, v, true);
        return i < 0 ? bad("kora, fodo, ring or none") : (s->lattice = i, true);
    }
    if (key == "beam") {
        int i = index_of(beam_names, 6, v, true);
        return i < 0 ? bad("P, K, W, G or game") : (s->beam = i, true);
    }
    if (key == "edge") return number_in(v, 0, 0.07, &s->scraper_edge) || bad("metres from 0 to 0.07");
    if (key == "speed") return number_in(v, 1.0 / 1024, 1024, &s->speed) || bad("m/s from 1/1024 to 1024");
    for (const auto &t : toggles) {
        if (key != t.key) continue;
        if (v != "0" && v != "1") return bad("0 or 1");
        s->*t.field = v == "1";
        return true;
    }
    *error = "setup: unknown key \"" + key + "\" (known: " + known_keys + ")";
    return false;
}

bool parse_setup(const std::string &text, fentra_setup *s, std::string *error)
{
    *s = default_setup();
    if (text.size() > (size_t)setup_text_limit) {
        *error = "setup: the text is " + std::to_string(text.size()) + " characters long, at most " +
                 std::to_string(setup_text_limit) + " are read";
        return false;
    }
    size_t at = !text.empty() && (text[0] == '#' || text[0] == '?');
    std::string seen = "&";
    fentra_setup out = default_setup();
    while (at < text.size()) {
        size_t end = text.find('&', at);
        if (end == std::string::npos) end = text.size();
        std::string pair = text.substr(at, end - at);
        at = end + 1;
        if (pair.empty()) continue;
        size_t eq = pair.find('=');
        std::string key = pair.substr(0, eq), value = eq == std::string::npos ? "" : pair.substr(eq + 1);
        if (eq == std::string::npos) return *error = "setup: \"" + key + "\" has no value (key=value)", false;
        if (seen.find("&" + key + "&") != std::string::npos)
            return *error = "setup: " + key + " is given twice", false;
        if (!set_key(key, value, &out, error)) return false;
        seen += key + "&";
    }
    *s = out;
    return true;
}

// Shortest text that reads back as the same double.
static std::string number_text(double d)
{
    char text[32];
    for (int digits = 1; digits <= 17; digits++) {
        snprintf(text, sizeof text, "%.*g", digits, d);
        if (strtod(text, nullptr) == d) break;
    }
    return text;
}

std::string format_setup(const fentra_setup &s)
{
    const fentra_setup d = default_setup();
    std::string out;
    auto add = [&out](const std::string &key, const std::string &value) {
        out += (out.empty() ? "" : "&") + key + "=" + value;
    };
    if (s.lattice != d.lattice) add("lattice", lattice_names[s.lattice]);
    if (s.beam != d.beam) add("beam", beam_names[s.beam]);
    for (const auto &t : toggles)
        if (s.*t.field) add(t.key, "1");
    if (s.scraper_edge != d.scraper_edge) add("edge", number_text(s.scraper_edge));
    if (s.speed != d.speed) add("speed", number_text(s.speed));
    return out;
}

fentra_setup current_setup()
{
    fentra_setup s = default_setup();
    s.lattice = sim.kora_lattice ? (lattice_ring_name[0] ? setup_ring : setup_kora)
                : sim.fodo_cell  ? setup_fodo
                                 : setup_no_lattice;
    // The lattice's own beam (K-V for KORA or a ring, the game beam without a lattice, the
    // matched beam of the FODO cell) needs no key.
    const int own = s.lattice == setup_kora || s.lattice == setup_ring ? beam_kv : s.lattice == setup_no_lattice ? beam_game : beam_none;
    s.beam = last_beam_kind == own ? beam_none : last_beam_kind;
    s.spread = sim.momentum_spread != 0;
    s.graphs = sim.show_graphs;
    s.scraper = sim.scraper_on;
    s.space_charge = sim.space_charge;
    s.luminous = sim.luminous != 0;
    s.highlight = sim.highlight;
    s.panel = sim.optics_panel;
    s.scraper_edge = sim.scraper_x;
    s.speed = sim.simulation_speed;
    return s;
}

void apply_setup(const fentra_setup &s)
{
    sim.momentum_spread = s.spread ? 0.15 : 0;
    sim.kora_lattice = sim.beam_made_for_kora = s.lattice == setup_kora || s.lattice == setup_ring;
    sim.fodo_cell = s.lattice == setup_fodo;
    // A lattice's own beam: KORA's (or the ring's) K-V beam, the FODO cell's matched beam, or
    // the game beam without a lattice.
    int kind = s.beam != beam_none ? s.beam : sim.kora_lattice ? beam_kv : beam_game;
    make_beam(kind);
    // As F does after the start's game beam: the matched beam keeps that beam's momenta.
    if (sim.fodo_cell && s.beam == beam_none) make_fodo_matched_beam();
    sim.show_graphs = s.graphs;
    sim.scraper_on = s.scraper;
    sim.scraper_x = s.scraper_edge;
    sim.space_charge = s.space_charge;
    sim.luminous = s.luminous;
    sim.optics_panel = s.panel;
    sim.simulation_speed = s.speed;
    sim.highlight = false;
    if (s.highlight) toggle_highlight();
}
