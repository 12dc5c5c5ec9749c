// Fentra lattice files: the ring built from what the reader kept. Expressions are evaluated
// (every assignment as a definition, circles refused), the LINE or SEQUENCE in use becomes one
// superperiod of drifts, quadrupoles and bends, what the ring does not model is named in
// warnings, and install_ring puts the result into the element table.
#include "fentra/physics/lattice.h"
#include "fentra/physics/lattice_definitions.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <unordered_set>

namespace {

const int depth_limit = 200;             // variables through variables, lines in lines
const double position_tolerance = 1e-9;  // m: smaller gaps and overlaps in a sequence are rounding

struct element_values {
    double length, k1, angle;
};

// A warning that names every element it concerns, in one line.
struct warning_group {
    std::string text;   // "{}" stands for the names
    source_place at;    // the first element's definition
    std::vector<std::string> names;
};

struct builder {
    lattice_definitions &d;
    std::unordered_map<std::string, element_values> values{};               // elements evaluated
    std::unordered_map<std::string, std::vector<ring_element>> expanded{};  // beamlines expanded
    std::vector<std::string> expanding{};   // beamlines being expanded, outermost first
    std::vector<std::string> used{};        // elements met, in beam order, once each
    std::unordered_set<std::string> used_set{};
    int gaps = 0;                         // sequence gaps made drifts so far
};

std::string format_number(double v)
{
    char s[32];
    snprintf(s, sizeof s, "%g", v);
    return s;
}

// ---- Expressions

double evaluate(builder &b, const expression &e, int depth);

double variable_value(builder &b, const expression_term &t, int depth)
{
    auto it = b.d.variables.find(t.name);
    if (it == b.d.variables.end()) {
        if (t.name == "pi") return std::numbers::pi;
        if (t.name == "twopi") return 2 * std::numbers::pi;
        if (t.name == "e") return std::numbers::e;
        if (t.name == "degrad") return 180 / std::numbers::pi;
        if (t.name == "raddeg") return std::numbers::pi / 180;
        fail_at(b.d, t.at, "undefined variable '" + t.name + "': expected a variable assigned in the file");
    }
    variable_definition &v = it->second;
    if (v.state == 1) fail_at(b.d, t.at, "circular definition: '" + t.name + "' depends on itself");
    if (v.state == 0) {
        if (depth > depth_limit) fail_at(b.d, t.at, "variables defined through more than 200 others");
        v.state = 1;
        v.result = evaluate(b, v.value, depth + 1);
        v.state = 2;
    }
    return v.result;
}

double attribute_of(builder &b, const element_definition &e, const char *key, int depth)
{
    auto a = e.attributes.find(key);
    if (a == e.attributes.end() || a->second.value.empty()) return 0;
    if (depth > depth_limit) fail_at(b.d, a->second.at, "attributes defined through more than 200 others (a circular definition?)");
    return evaluate(b, a->second.value, depth + 1);
}

double evaluate(builder &b, const expression &e, int depth)
{
    std::vector<double> stack;
    for (const expression_term &t : e) {
        double v, y = 0, x = 0;
        if (strchr("+-*/^", t.op)) y = stack.back(), stack.pop_back();
        if (strchr("+-*/^f~", t.op)) x = stack.back(), stack.pop_back();
        switch (t.op) {
        case 'n': v = t.number; break;
        case 'v': v = variable_value(b, t, depth); break;
        case 'a': {
            auto el = b.d.elements.find(t.name);
            if (el == b.d.elements.end()) fail_at(b.d, t.at, "undefined element '" + t.name + "' before ->");
            v = attribute_of(b, el->second, t.attribute.c_str(), depth);
            break;
        }
        case 'f': v = lattice_function(t.name)(x); break;
        case '~': v = -x; break;
        case '+': v = x + y; break;
        case '-': v = x - y; break;
        case '*': v = x * y; break;
        case '/':
            if (y == 0) fail_at(b.d, t.at, "division by zero");
            v = x / y;
            break;
        default: v = pow(x, y); break;
        }
        if (std::isnan(v)) fail_at(b.d, t.at, "result is not a number (NaN): expected a finite value");
        if (std::isinf(v)) fail_at(b.d, t.at, "result is infinite: expected a finite value");
        stack.push_back(v);
    }
    return stack.back();
}

// ---- Elements

const char *kind_word(element_kind kind) { return kind == kind_quadrupole ? "quadrupole" : "bend"; }

const element_values &values_of(builder &b, const std::string &key)
{
    auto memo = b.values.find(key);
    if (memo != b.values.end()) return memo->second;
    const element_definition &e = b.d.elements.at(key);
    element_values v = {attribute_of(b, e, "l", 0), attribute_of(b, e, "k1", 0), attribute_of(b, e, "angle", 0)};
    if (v.length < 0)
        fail_at(b.d, e.attributes.at("l").at, "negative length L = " + format_number(v.length) + " of '" + e.name + "': expected a length of 0 or more");
    if (e.kind == kind_quadrupole || e.kind == kind_sbend || e.kind == kind_rbend) {
        if (v.length == 0)
            fail_at(b.d, e.at, std::string("zero-length ") + kind_word(e.kind) + " '" + e.name +
                                   "': Fentra's tracking steps through elements of non-zero length only, expected L > 0");
        // An RBEND's length is its straight chord; the sector bend it loads as has the arc.
        if (e.kind == kind_rbend && v.angle != 0) v.length *= (v.angle / 2) / sin(v.angle / 2);
    }
    if (e.kind == kind_drift || e.kind == kind_drifted || e.kind == kind_quadrupole) v.angle = 0;
    if (e.kind == kind_drift || e.kind == kind_drifted) v.k1 = 0;
    if (e.kind == kind_marker) v = {0, 0, 0};
    return b.values[key] = v;
}

// ---- Lines and sequences

std::vector<ring_element> expand_name(builder &b, const std::string &key, source_place at, int depth);

// Appends repeat copies of part, reversed when reflected, within the table's capacity.
void append(builder &b, std::vector<ring_element> &out, const std::vector<ring_element> &part, int repeat,
            bool reflect, source_place at)
{
    if (part.empty()) return;
    if (out.size() + (size_t)repeat * part.size() > (size_t)element_capacity)
        fail_at(b.d, at, "more than 500 elements in a superperiod after expansion: expected at most 500, the element table's size");
    for (int n = 0; n < repeat; n++) {
        if (reflect) out.insert(out.end(), part.rbegin(), part.rend());
        else out.insert(out.end(), part.begin(), part.end());
    }
}

std::vector<ring_element> expand_items(builder &b, const std::vector<line_item> &items, int depth)
{
    std::vector<ring_element> out;
    for (const line_item &it : items) {
        if (depth > depth_limit) fail_at(b.d, it.at, "LINEs nested more than 200 deep");
        std::vector<ring_element> part =
            it.name.empty() ? expand_items(b, it.sublist, depth + 1) : expand_name(b, it.name, it.at, depth + 1);
        append(b, out, part, it.repeat, it.reflect, it.at);
    }
    return out;
}

double total_length(const std::vector<ring_element> &elements)
{
    double s = 0;
    for (const ring_element &e : elements) s += e.length;
    return s;
}

void add_gap(builder &b, std::vector<ring_element> &out, double length, source_place at)
{
    append(b, out, {{"drift_" + std::to_string(b.gaps++), length, 0, 0}}, 1, false, at);
}

// A name as written and the line it was placed on, for overlap messages.
std::string written_name(builder &b, const std::string &key)
{
    auto e = b.d.elements.find(key);
    return e != b.d.elements.end() ? e->second.name : b.d.beamlines.at(key).name;
}

// Placements in order; the gaps between them become drifts; an overlap is an error.
std::vector<ring_element> expand_sequence(builder &b, const beamline_definition &s, int depth)
{
    double length = evaluate(b, s.length, 0);
    if (length < 0) fail_at(b.d, s.at, "negative length L = " + format_number(length) + " of sequence '" + s.name + "'");
    std::vector<ring_element> out;
    std::unordered_map<std::string, double> positions;   // of the elements placed so far, for FROM
    double end = 0;
    const placement *last = nullptr;
    for (const placement &p : s.placements) {
        double at = evaluate(b, p.position, 0);
        if (!p.from.empty()) {
            auto from = positions.find(p.from);
            if (from == positions.end()) fail_at(b.d, p.at, "FROM=" + p.from + ": expected an element placed earlier in sequence '" + s.name + "'");
            at += from->second;
        }
        std::vector<ring_element> part = expand_name(b, p.name, p.at, depth + 1);
        double l = b.d.elements.contains(p.name) ? values_of(b, p.name).length
                   : b.d.beamlines.at(p.name).is_sequence ? evaluate(b, b.d.beamlines.at(p.name).length, 0)
                                                         : total_length(part);
        double start = at - (s.refer == refer_centre ? l / 2 : s.refer == refer_exit ? l : 0);
        if (start < end - position_tolerance) {
            std::string before = last ? "'" + written_name(b, last->name) + "' (line " + std::to_string(last->at.line) + ")" : "the sequence's start";
            fail_at(b.d, p.at, "'" + written_name(b, p.name) + "' (line " + std::to_string(p.at.line) + ") overlaps " + before + " by " +
                                   format_number(end - start) + " m: expected it to start at s >= " + format_number(end) + " m");
        }
        if (start > end + position_tolerance) add_gap(b, out, start - end, p.at);
        append(b, out, part, 1, false, p.at);
        end = std::max(end, start + l);
        positions[p.name] = at;
        last = &p;
    }
    if (end > length + position_tolerance)
        fail_at(b.d, last->at, "'" + written_name(b, last->name) + "' ends at s = " + format_number(end) + " m, past the end of sequence '" +
                                   s.name + "' (L = " + format_number(length) + " m)");
    if (length > end + position_tolerance) add_gap(b, out, length - end, s.at);
    return out;
}

std::vector<ring_element> expand_name(builder &b, const std::string &key, source_place at, int depth)
{
    if (b.d.elements.contains(key)) {
        const element_values &v = values_of(b, key);
        if (b.used_set.insert(key).second) b.used.push_back(key);
        if (v.length == 0) return {};
        return {{b.d.elements.at(key).name, v.length, v.k1, v.angle}};
    }
    auto line = b.d.beamlines.find(key);
    if (line == b.d.beamlines.end())
        fail_at(b.d, at, "undefined name '" + key + "': expected an element, LINE or SEQUENCE defined in the file");
    if (auto memo = b.expanded.find(key); memo != b.expanded.end()) return memo->second;
    if (std::find(b.expanding.begin(), b.expanding.end(), key) != b.expanding.end()) {
        std::string chain;
        for (const std::string &name : b.expanding) chain += name + " -> ";
        fail_at(b.d, at, "'" + line->second.name + "' contains itself (" + chain + key + "): expected a LINE that ends");
    }
    if (depth > depth_limit) fail_at(b.d, at, "LINEs nested more than 200 deep");
    b.expanding.push_back(key);
    std::vector<ring_element> out = line->second.is_sequence ? expand_sequence(b, line->second, depth)
                                                             : expand_items(b, line->second.items, depth);
    b.expanding.pop_back();
    return b.expanded[key] = out;
}

// ---- Warnings about what the ring does not model

void warn(std::vector<warning_group> &groups, const std::string &text, source_place at, const std::string &name)
{
    for (warning_group &g : groups)
        if (g.text == text) return g.names.push_back(name);
    groups.push_back({text, at, {name}});
}

bool one_of(const std::string &key, std::initializer_list<const char *> names)
{
    return std::any_of(names.begin(), names.end(), [&](const char *n) { return key == n; });
}

void element_warnings(builder &b, const element_definition &e, std::vector<warning_group> &groups)
{
    if (e.name.size() >= element_name_size) warn(groups, "names longer than 15 characters are shown cut: {}", e.at, e.name);
    if (e.kind == kind_drifted)
        warn(groups, "{} become drifts of their length: the ring holds drifts, quadrupoles and bends only (in Fentra "
                     "sextupole, octupole, solenoid and steering fields come from the keys)", e.at, e.name + " (" + e.keyword + ")");
    if (e.kind == kind_drifted || e.kind == kind_marker) return;
    if (e.kind == kind_rbend)
        warn(groups, "RBEND loaded as a sector bend of its arc length: its edge focusing is not modelled, so the tunes "
                     "differ from codes that model it: {}", e.at, e.name);
    if (e.kind == kind_sbend && (attribute_of(b, e, "e1", 0) != 0 || attribute_of(b, e, "e2", 0) != 0))
        warn(groups, "edge angles E1/E2 not modelled, loaded as sector bends (the tunes differ from codes that model "
                     "their focusing): {}", e.at, e.name);
    for (const auto &[key, a] : e.attributes) {
        if (one_of(key, {"l", "k1", "angle", "e1", "e2"})) continue;
        std::string name = key;
        for (char &c : name) c = (char)toupper((unsigned char)c);
        if (one_of(key, {"tilt", "k1s", "k2", "k2s", "k3", "k3s", "fint", "fintx", "hgap", "h1", "h2", "ks", "ktap"})) {
            if (attribute_of(b, e, key.c_str(), 0) != 0)
                warn(groups, name + " would change the optics but is not modelled: {}", a.at, e.name);
        } else if (!one_of(key, {"apertype", "aperture", "aper_offset", "aper_tol", "type", "from", "mech_sep", "v_pos",
                                  "slot_id", "assembly_id", "kmax", "kmin", "calib", "polarity", "lrad", "thick", "model",
                                  "method", "nst", "exact", "bv", "k0", "fringe", "kill_ent_fringe", "kill_exi_fringe"})) {
            warn(groups, "unknown attribute " + name + " ignored: {}", a.at, e.name);
        }
    }
}

void add_warnings(builder &b)
{
    std::vector<warning_group> groups;
    for (const std::string &key : b.used) element_warnings(b, b.d.elements.at(key), groups);
    for (const warning_group &g : groups) {
        std::string names;
        for (size_t i = 0; i < g.names.size() && i < 8; i++) names += (i ? ", " : "") + g.names[i];
        if (g.names.size() > 8) names += " and " + std::to_string(g.names.size() - 8) + " more";
        std::string text = g.text;
        text.replace(text.find("{}"), 2, names);
        b.d.notes.push_back(note_at(b.d, g.at, "warning", text));
    }
}

}  // namespace

double (*lattice_function(const std::string &name))(double)
{
    static const struct {
        const char *name;
        double (*f)(double);
    } functions[] = {
        {"sqrt", [](double x) { return std::sqrt(x); }},   {"exp", [](double x) { return std::exp(x); }},
        {"log", [](double x) { return std::log(x); }},     {"log10", [](double x) { return std::log10(x); }},
        {"sin", [](double x) { return std::sin(x); }},     {"cos", [](double x) { return std::cos(x); }},
        {"tan", [](double x) { return std::tan(x); }},     {"asin", [](double x) { return std::asin(x); }},
        {"acos", [](double x) { return std::acos(x); }},   {"atan", [](double x) { return std::atan(x); }},
        {"abs", [](double x) { return std::fabs(x); }},    {"sinh", [](double x) { return std::sinh(x); }},
        {"cosh", [](double x) { return std::cosh(x); }},   {"tanh", [](double x) { return std::tanh(x); }},
        {"floor", [](double x) { return std::floor(x); }}, {"ceil", [](double x) { return std::ceil(x); }},
        {"round", [](double x) { return std::round(x); }},
    };
    for (const auto &f : functions)
        if (name == f.name) return f.f;
    return nullptr;
}

void build_ring(lattice_definitions &d, ring_file &ring)
{
    builder b{d};
    // A used LINE of one entry repeated n times is n superperiods of that entry; a LINE that
    // only names another is looked through.
    const beamline_definition *top = &d.beamlines.at(d.used);
    bool done = false;
    for (int hops = 0; hops < depth_limit && !done && !top->is_sequence && top->items.size() == 1; hops++) {
        line_item one = top->items[0];
        if (one.repeat > 1) {
            ring.superperiod_count = one.repeat;
            one.repeat = 1;
            ring.elements = expand_items(b, {one}, 0);
            done = true;
        } else if (one.name.empty() || !d.beamlines.contains(one.name)) {
            break;
        } else {
            top = &d.beamlines.at(one.name);
        }
    }
    if (!done) ring.elements = expand_name(b, d.used, d.used_at, 0);
    if (!(total_length(ring.elements) > 0))
        fail_at(d, d.used_at, "ring '" + d.beamlines.at(d.used).name + "' has zero length: expected elements of non-zero length");
    add_warnings(b);
}

int install_ring(const ring_file &ring)
{
    element_count = 0;
    for (const ring_element &e : ring.elements) {
        if (element_count == element_capacity) break;
        int i = element_count++;
        snprintf(element_name[i], element_name_size, "%s", e.name.c_str());
        element_length[i] = e.length;
        element_strength[i] = e.k1;
        element_bend_radius[i] = e.angle != 0 ? e.length / e.angle : 0;
    }
    return ring.superperiod_count;
}
