// Setup strings: "key=value" items joined by '&', read over the default setup and written
// with the keys in a fixed order, each only when it differs from the default.
#include "fentra/physics/setup_string.h"

#include "fentra/physics/beam.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

setup default_setup()
{
    setup s = {};
    s.lattice = setup_lattice_none;
    s.beam = beam_game;
    s.scraper_x = 0.03;
    s.speed = 1;
    return s;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Values

static const struct { const char *name; int kind; } beam_names[] = {
    {"P", beam_parallel}, {"K", beam_kv}, {"W", beam_waterbag}, {"G", beam_gaussian}, {"game", beam_game},
};
static const char *const lattice_names[] = {"none", "fodo", "kora"};

// A finite number in [low, high] (low itself excluded when open_low), the whole value read.
static bool read_number(std::string_view v, double low, double high, bool open_low, double *out)
{
    std::string text(v);
    char *end = nullptr;
    double d = text.empty() ? NAN : strtod(text.c_str(), &end);
    if (!std::isfinite(d) || *end || d < low || d > high || (open_low && d == low)) return false;
    *out = d;
    return true;
}

static bool read_flag(std::string_view v, bool *out)
{
    if (v != "0" && v != "1") return false;
    *out = v == "1";
    return true;
}

// The toggles, by key, in the order they are written.
static const struct { const char *key; bool setup::*field; } flag_keys[] = {
    {"spread", &setup::spread}, {"graphs", &setup::graphs}, {"scraper", &setup::scraper},
    {"spacecharge", &setup::space_charge}, {"luminous", &setup::luminous},
    {"highlight", &setup::highlight}, {"panel", &setup::panel},
};

static bool *flag_of(setup *s, std::string_view key)
{
    for (const auto &f : flag_keys)
        if (key == f.key) return &(s->*f.field);
    return nullptr;
}

// One item into *s; false with the message in *error.
static bool read_item(std::string_view key, std::string_view value, setup *s, std::string *error)
{
    std::string k(key), v(value);
    bool ok = false;
    const char *expected = "";
    if (bool *flag = flag_of(s, key)) {
        ok = read_flag(value, flag), expected = "0 or 1";
    } else if (key == "lattice") {
        for (int i = 0; i < 3; i++)
            if (value == lattice_names[i]) s->lattice = (setup_lattice)i, ok = true;
        expected = "kora, fodo or none";
    } else if (key == "beam") {
        for (const auto &b : beam_names)
            if (value == b.name) s->beam = b.kind, ok = true;
        expected = "P, K, W, G or game";
    } else if (key == "scraper_x") {
        ok = read_number(value, 0, 0.07, false, &s->scraper_x), expected = "metres from 0 to 0.07";
    } else if (key == "speed") {
        ok = read_number(value, 0, max_setup_speed, true, &s->speed), expected = "metres a second above 0, at most 65536";
    } else {
        *error = "unknown key \"" + k + "\" in the setup (keys: lattice, beam, spread, graphs, scraper, "
                 "scraper_x, spacecharge, luminous, highlight, panel, speed)";
        return false;
    }
    if (!ok) *error = "bad value \"" + v + "\" for " + k + " in the setup (" + expected + ")";
    return ok;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Reading, writing, applying

bool parse_setup(std::string_view text, setup *out, std::string *error)
{
    *out = default_setup();
    if (text.size() > max_setup_length) {
        *error = "the setup is " + std::to_string(text.size()) + " characters long, more than " +
                 std::to_string(max_setup_length);
        return false;
    }
    setup s = default_setup();
    while (!text.empty()) {
        size_t amp = text.find('&');
        std::string_view item = text.substr(0, amp);
        text = amp == std::string_view::npos ? std::string_view() : text.substr(amp + 1);
        if (item.empty()) continue;   // "a=1&&b=2" or a trailing '&'
        size_t eq = item.find('=');
        std::string_view key = item.substr(0, eq);
        std::string_view value = eq == std::string_view::npos ? std::string_view() : item.substr(eq + 1);
        if (!read_item(key, value, &s, error)) return false;
    }
    *out = s;
    return true;
}

// The shortest text that reads back as the same double.
static std::string number_text(double d)
{
    char text[32];
    for (int digits = 1; digits <= 17; digits++) {
        snprintf(text, sizeof text, "%.*g", digits, d);
        if (strtod(text, nullptr) == d) break;
    }
    return text;
}

std::string format_setup(const setup &s)
{
    const setup d = default_setup();
    std::string out;
    auto add = [&](const char *key, const std::string &value) {
        out += (out.empty() ? "" : "&") + std::string(key) + "=" + value;
    };
    if (s.lattice != d.lattice) add("lattice", lattice_names[s.lattice]);
    for (const auto &b : beam_names)
        if (s.beam == b.kind && s.beam != d.beam) add("beam", b.name);
    for (const auto &f : flag_keys)
        if (s.*f.field != d.*f.field) add(f.key, s.*f.field ? "1" : "0");
    if (s.scraper_x != d.scraper_x) add("scraper_x", number_text(s.scraper_x));
    if (s.speed != d.speed) add("speed", number_text(s.speed));
    return out;
}

void apply_setup(const setup &s, simulation_state *state)
{
    state->kora_lattice = s.lattice == setup_lattice_kora;
    state->fodo_cell = s.lattice == setup_lattice_fodo;
    state->momentum_spread = s.spread ? 0.15 : 0;
    state->show_graphs = s.graphs;
    state->scraper_on = s.scraper;
    state->scraper_x = s.scraper_x;
    state->space_charge = s.space_charge;
    state->luminous = s.luminous ? 1 : 0;
    state->highlight = s.highlight;
    state->optics_panel = s.panel;
    state->simulation_speed = s.speed;
}

setup setup_of_state(const simulation_state &state, int beam)
{
    setup s = default_setup();
    s.lattice = state.kora_lattice ? setup_lattice_kora : state.fodo_cell ? setup_lattice_fodo : setup_lattice_none;
    s.beam = beam;
    s.spread = state.momentum_spread != 0;
    s.graphs = state.show_graphs;
    s.scraper = state.scraper_on;
    s.scraper_x = state.scraper_x;
    s.space_charge = state.space_charge;
    s.luminous = state.luminous != 0;
    s.highlight = state.highlight;
    s.panel = state.optics_panel;
    s.speed = state.simulation_speed;
    return s;
}
