// Fentra lattice files: the reader of the MAD-X subset. It splits the text into tokens, reads
// statements (variables, elements, LINEs, SEQUENCEs, USE, CALL, skipped commands) into
// lattice_definitions, and leaves evaluation and the ring to lattice_ring.cpp.
#include "fentra/physics/lattice_definitions.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Limits that keep a hostile or broken file bounded in time, memory and stack.
const size_t file_size_limit = 16u << 20;   // bytes
const size_t piece_limit = 1000000;         // definitions, terms and entries kept: about 150 MB
const int nesting_limit = 100;              // parentheses in an expression or a LINE
const int call_depth_limit = 16;            // files reading files

struct token {
    char kind = 'e';   // 'i' name, 'n' number, 's' string, 'p' punctuation, 'o' other byte, 'e' end
    std::string text;  // name as written, string contents or punctuation
    double number = 0;
    source_place at;
};

struct reader {
    lattice_definitions &d;
    const std::string &text;
    std::string directory;   // of this file, for CALL; empty or ending in '/'
    int depth;               // CALL depth
    size_t pos = 0;
    source_place here{};
    token tok{};
    beamline_definition *sequence = nullptr;   // the SEQUENCE being read
    bool returned = false;                     // RETURN ends this file
};

std::string lower(std::string s)
{
    for (char &c : s) c = (char)tolower((unsigned char)c);
    return s;
}

std::string upper(std::string s)
{
    for (char &c : s) c = (char)toupper((unsigned char)c);
    return s;
}

[[noreturn]] void fail(const reader &r, source_place at, const std::string &message) { fail_at(r.d, at, message); }

// Counts what the reader keeps, so that no file makes it hold more than the limit.
void keep(reader &r, size_t pieces, source_place at)
{
    r.d.pieces += pieces;
    if (r.d.pieces > piece_limit)
        fail(r, at, "more than a million definitions, terms and LINE entries: expected a lattice of at most 500 elements");
}

// ---- Tokens

char peek(const reader &r, size_t ahead = 0)
{
    return r.pos + ahead < r.text.size() ? r.text[r.pos + ahead] : '\0';
}

void advance(reader &r)
{
    if (r.text[r.pos++] == '\n') r.here.line++, r.here.column = 1;
    else r.here.column++;
}

// Skips white space and comments: "!" and "//" to the end of the line, "/* ... */".
void skip_blank(reader &r)
{
    while (r.pos < r.text.size()) {
        char c = peek(r);
        if (isspace((unsigned char)c)) advance(r);
        else if (c == '!' || (c == '/' && peek(r, 1) == '/'))
            while (r.pos < r.text.size() && peek(r) != '\n') advance(r);
        else if (c == '/' && peek(r, 1) == '*') {
            source_place start = r.here;
            size_t end = r.text.find("*/", r.pos + 2);
            if (end == std::string::npos) fail(r, start, "comment not closed: expected */");
            while (r.pos < end + 2) advance(r);
        } else return;
    }
}

bool name_start(char c) { return isalpha((unsigned char)c) || c == '_'; }
bool name_part(char c) { return isalnum((unsigned char)c) || c == '_' || c == '.'; }

// A number in C form: digits, an optional fraction, an optional exponent.
void scan_number(reader &r, token &t)
{
    size_t start = r.pos;
    while (isdigit((unsigned char)peek(r))) advance(r);
    if (peek(r) == '.') advance(r);
    while (isdigit((unsigned char)peek(r))) advance(r);
    char e = peek(r), s = peek(r, 1);
    if ((e == 'e' || e == 'E') && (isdigit((unsigned char)s) || ((s == '+' || s == '-') && isdigit((unsigned char)peek(r, 2))))) {
        advance(r), advance(r);
        while (isdigit((unsigned char)peek(r))) advance(r);
    }
    t.kind = 'n';
    t.text = r.text.substr(start, r.pos - start);
    t.number = strtod(t.text.c_str(), nullptr);
}

void next(reader &r)
{
    skip_blank(r);
    token &t = r.tok;
    t = token();
    t.at = r.here;
    if (r.pos >= r.text.size()) return;
    char c = peek(r);
    if (name_start(c)) {
        size_t start = r.pos;
        while (name_part(peek(r))) advance(r);
        t.kind = 'i';
        t.text = r.text.substr(start, r.pos - start);
    } else if (isdigit((unsigned char)c) || (c == '.' && isdigit((unsigned char)peek(r, 1)))) {
        scan_number(r, t);
    } else if (c == '"' || c == '\'') {
        advance(r);
        size_t start = r.pos;
        while (r.pos < r.text.size() && peek(r) != c && peek(r) != '\n') advance(r);
        if (peek(r) != c) fail(r, t.at, std::string("string not closed: expected ") + c + " before the end of the line");
        t.kind = 's';
        t.text = r.text.substr(start, r.pos - start);
        advance(r);
    } else if ((c == ':' && peek(r, 1) == '=') || (c == '-' && peek(r, 1) == '>')) {
        t.kind = 'p';
        t.text = r.text.substr(r.pos, 2);
        advance(r), advance(r);
    } else {
        t.kind = strchr(";,:=()+-*/^{}", c) ? 'p' : 'o';
        t.text = std::string(1, c);
        advance(r);
    }
}

std::string describe(const token &t)
{
    char byte[64];
    switch (t.kind) {
    case 'e': return "the end of the file";
    case 'i': return "'" + t.text + "'";
    case 'n': return "the number " + t.text;
    case 's': return "a string";
    case 'p': return "'" + t.text + "'";
    default:
        if ((unsigned char)t.text[0] >= 0x80) snprintf(byte, sizeof byte, "the byte 0x%02X", (unsigned char)t.text[0]);
        else snprintf(byte, sizeof byte, "the character '%c'", t.text[0]);
        return byte;
    }
}

bool is(const reader &r, const char *punct) { return r.tok.kind == 'p' && r.tok.text == punct; }
bool is_word(const reader &r, const char *word) { return r.tok.kind == 'i' && lower(r.tok.text) == word; }

void expect(reader &r, const char *punct, const std::string &context)
{
    if (!is(r, punct)) fail(r, r.tok.at, std::string("expected '") + punct + "' " + context + ", found " + describe(r.tok));
    next(r);
}

// A name token, lower case.
std::string expect_name(reader &r, const std::string &what)
{
    if (r.tok.kind != 'i') fail(r, r.tok.at, "expected " + what + ", found " + describe(r.tok));
    std::string name = lower(r.tok.text);
    next(r);
    return name;
}

// ---- Expressions: + - * / ^ (right-associative, binding tighter than unary minus), calls,
// parentheses, numbers, variables and element attributes (name->attribute).

void sum(reader &r, expression &out, int depth);

void primary(reader &r, expression &out, int depth)
{
    token t = r.tok;
    if (t.kind == 'n') {
        out.push_back({'n', t.number, {}, {}, t.at});
        next(r);
    } else if (t.kind == 'i') {
        next(r);
        std::string name = lower(t.text);
        if (is(r, "(")) {
            if (!lattice_function(name)) fail(r, t.at, "unknown function '" + t.text + "': expected sqrt, exp, log, sin, cos, tan, asin, acos, atan or abs");
            next(r);
            sum(r, out, depth + 1);
            expect(r, ")", "after the function's argument");
            out.push_back({'f', 0, name, {}, t.at});
        } else if (is(r, "->")) {
            next(r);
            out.push_back({'a', 0, name, expect_name(r, "an attribute name after ->"), t.at});
        } else {
            out.push_back({'v', 0, name, {}, t.at});
        }
    } else if (is(r, "(")) {
        next(r);
        sum(r, out, depth + 1);
        expect(r, ")", "to close the parenthesis");
    } else {
        fail(r, t.at, "expected a number, a name or '(' in the expression, found " + describe(t));
    }
}

void unary(reader &r, expression &out, int depth)
{
    if (depth > nesting_limit) fail(r, r.tok.at, "expression nested too deeply (more than 100 levels)");
    if (is(r, "-") || is(r, "+")) {
        token t = r.tok;
        next(r);
        unary(r, out, depth + 1);
        if (t.text == "-") out.push_back({'~', 0, {}, {}, t.at});
        return;
    }
    primary(r, out, depth);
    if (is(r, "^")) {
        token t = r.tok;
        next(r);
        unary(r, out, depth + 1);
        out.push_back({'^', 0, {}, {}, t.at});
    }
}

void product(reader &r, expression &out, int depth)
{
    unary(r, out, depth);
    while (is(r, "*") || is(r, "/")) {
        token t = r.tok;
        next(r);
        unary(r, out, depth);
        out.push_back({t.text[0], 0, {}, {}, t.at});
    }
}

void sum(reader &r, expression &out, int depth)
{
    product(r, out, depth);
    while (is(r, "+") || is(r, "-")) {
        token t = r.tok;
        next(r);
        product(r, out, depth);
        out.push_back({t.text[0], 0, {}, {}, t.at});
    }
}

expression parse_expression(reader &r)
{
    expression e;
    source_place at = r.tok.at;
    sum(r, e, 0);
    keep(r, e.size(), at);
    return e;
}

// Skips an attribute value that is not kept (a name, a string, an array {...}, an expression).
void skip_value(reader &r)
{
    int depth = 0;
    while (r.tok.kind != 'e' && (depth > 0 || !(is(r, ",") || is(r, ";")))) {
        if (is(r, "{") || is(r, "(")) depth++;
        if (is(r, "}") || is(r, ")")) depth--;
        next(r);
    }
}

// Skips to the end of the statement, whatever it holds.
void skip_statement(reader &r)
{
    while (r.tok.kind != 'e' && !is(r, ";")) next(r);
    expect(r, ";", "to end the statement");
}

// ---- Elements

struct keyword_kind {
    const char *name;
    element_kind kind;
};
const keyword_kind element_keywords[] = {
    {"drift", kind_drift}, {"quadrupole", kind_quadrupole}, {"sbend", kind_sbend}, {"rbend", kind_rbend},
    {"marker", kind_marker}, {"sextupole", kind_drifted}, {"octupole", kind_drifted}, {"solenoid", kind_drifted},
    {"multipole", kind_drifted}, {"hkicker", kind_drifted}, {"vkicker", kind_drifted}, {"kicker", kind_drifted},
    {"tkicker", kind_drifted}, {"rfcavity", kind_drifted}, {"crabcavity", kind_drifted},
    {"rfmultipole", kind_drifted}, {"monitor", kind_drifted}, {"hmonitor", kind_drifted},
    {"vmonitor", kind_drifted}, {"instrument", kind_drifted}, {"collimator", kind_drifted},
    {"rcollimator", kind_drifted}, {"ecollimator", kind_drifted}, {"placeholder", kind_drifted},
    {"elseparator", kind_drifted}, {"beambeam", kind_drifted}, {"dipedge", kind_drifted},
    {"srotation", kind_drifted}, {"xrotation", kind_drifted}, {"yrotation", kind_drifted},
    {"translation", kind_drifted}, {"changeref", kind_drifted}, {"matrix", kind_drifted},
    {"nllens", kind_drifted}, {"twcavity", kind_drifted}, {"wire", kind_drifted},
};

const keyword_kind *find_element_keyword(const std::string &word)
{
    for (const keyword_kind &k : element_keywords)
        if (word == k.name) return &k;
    return nullptr;
}

// Attributes whose value the ring builder evaluates: the modelled ones and those it warns about.
bool evaluated_attribute(element_kind kind, const std::string &key)
{
    static const char *const modelled[] = {"l", "k1", "angle", "e1", "e2", "tilt", "k1s", "k2", "k2s", "k3",
                                           "k3s", "fint", "fintx", "hgap", "h1", "h2", "ks", "ktap"};
    if (kind == kind_marker) return false;
    if (kind == kind_drifted) return key == "l";
    return std::find_if(std::begin(modelled), std::end(modelled), [&](const char *m) { return key == m; }) !=
           std::end(modelled);
}

// ", name=value" pairs up to the ';'. AT and FROM go to the placement when there is one; other
// attributes to the element (or, for a placement of an existing element, are named in a warning).
void attributes(reader &r, element_definition *e, placement *p)
{
    while (is(r, ",")) {
        next(r);
        token name = r.tok;
        std::string key = expect_name(r, "an attribute name");
        bool valued = is(r, "=") || is(r, ":=");
        if (valued) next(r);
        if (p && key == "at" && valued) {
            p->position = parse_expression(r);
        } else if (p && key == "from" && valued) {
            p->from = expect_name(r, "the name of an element placed before, after FROM=");
        } else if (e && valued && evaluated_attribute(e->kind, key)) {
            e->attributes[key] = {parse_expression(r), name.at};
        } else {
            if (valued) skip_value(r);
            if (e) e->attributes[key] = {{}, name.at};
            else if (p) r.d.notes.push_back(note_at(r.d, name.at, "warning", "attribute " + upper(key) + " of a placed element is ignored (define a new element to change it)"));
        }
    }
    expect(r, ";", "or ',' after the attributes");
}

void forget_name(lattice_definitions &d, const std::string &key)
{
    d.elements.erase(key);
    d.beamlines.erase(key);
}

// label: KEYWORD or label: ELEMENT, then attributes; in a sequence also placed.
void element_statement(reader &r, const token &label, const token &kind_token)
{
    std::string key = lower(label.text), kind = lower(kind_token.text);
    element_definition e;
    if (const keyword_kind *k = find_element_keyword(kind)) {
        e.kind = k->kind;
        e.keyword = upper(kind);
    } else if (auto parent = r.d.elements.find(kind); parent != r.d.elements.end()) {
        e = parent->second;   // an element defined from another keeps its kind and attributes
    } else {
        fail(r, kind_token.at, "unknown keyword '" + kind_token.text +
                                   "': expected an element keyword (DRIFT, QUADRUPOLE, SBEND, RBEND, MARKER, ...), "
                                   "LINE, SEQUENCE or a defined element");
    }
    e.name = label.text;
    e.at = label.at;
    placement p;
    p.name = key;
    p.at = label.at;
    attributes(r, &e, r.sequence ? &p : nullptr);
    forget_name(r.d, key);
    keep(r, 1, label.at);
    r.d.elements[key] = e;
    if (!r.sequence) return;
    if (p.position.empty()) fail(r, label.at, "expected AT=position for '" + label.text + "' in sequence '" + r.sequence->name + "'");
    r.sequence->placements.push_back(p);
}

// ---- Lines and sequences

std::vector<line_item> line_items(reader &r, int depth)
{
    if (depth > nesting_limit) fail(r, r.tok.at, "LINE nested too deeply (more than 100 levels of parentheses)");
    std::vector<line_item> items;
    for (;;) {
        line_item it;
        it.at = r.tok.at;
        if (is(r, "-")) it.reflect = true, next(r);
        if (r.tok.kind == 'n') {
            double n = r.tok.number;
            if (!(n >= 1 && n <= 1e6 && n == floor(n))) fail(r, r.tok.at, "expected a whole repetition count from 1 to 1000000, found " + describe(r.tok));
            it.repeat = (int)n;
            next(r);
            expect(r, "*", "after the repetition count");
            if (is(r, "-")) it.reflect = !it.reflect, next(r);
        }
        if (is(r, "(")) {
            next(r);
            it.sublist = line_items(r, depth + 1);
            expect(r, ")", "or ',' in the LINE");
        } else {
            it.name = expect_name(r, "an element or line name, n*, - or '(' in the LINE");
        }
        keep(r, 1, it.at);
        items.push_back(std::move(it));
        if (!is(r, ",")) return items;
        next(r);
    }
}

void line_statement(reader &r, const token &label)
{
    beamline_definition b;
    b.name = label.text;
    b.at = label.at;
    expect(r, "=", "after LINE");
    expect(r, "(", "to open the LINE's list");
    b.items = line_items(r, 0);
    expect(r, ")", "or ',' in the LINE");
    expect(r, ";", "after the LINE");
    std::string key = lower(label.text);
    forget_name(r.d, key);
    r.d.beamlines[key] = std::move(b);
    if (!r.d.use_given) r.d.used = key, r.d.used_at = label.at;
}

void statement(reader &r);

void sequence_statement(reader &r, const token &label)
{
    if (r.sequence) fail(r, label.at, "SEQUENCE '" + label.text + "' inside SEQUENCE '" + r.sequence->name + "': expected ENDSEQUENCE first");
    beamline_definition s;
    s.name = label.text;
    s.is_sequence = true;
    s.at = label.at;
    while (is(r, ",")) {
        next(r);
        token name = r.tok;
        std::string key = expect_name(r, "a SEQUENCE attribute (L, REFER)");
        expect(r, is(r, ":=") ? ":=" : "=", "after " + name.text);
        if (key == "l") {
            s.length = parse_expression(r);
        } else if (key == "refer") {
            token v = r.tok;
            std::string where = expect_name(r, "ENTRY, CENTRE or EXIT after REFER=");
            if (where == "entry") s.refer = refer_entry;
            else if (where == "centre" || where == "center") s.refer = refer_centre;
            else if (where == "exit") s.refer = refer_exit;
            else fail(r, v.at, "expected ENTRY, CENTRE or EXIT after REFER=, found " + describe(v));
        } else {
            skip_value(r);
        }
    }
    expect(r, ";", "or ',' after the SEQUENCE's attributes");
    if (s.length.empty()) fail(r, label.at, "SEQUENCE '" + label.text + "' has no length: expected L=...");
    r.sequence = &s;
    while (!is_word(r, "endsequence")) {
        if (r.tok.kind == 'e' || r.returned || r.d.stopped) fail(r, label.at, "SEQUENCE '" + label.text + "' not closed: expected ENDSEQUENCE");
        statement(r);
    }
    next(r);
    expect(r, ";", "after ENDSEQUENCE");
    r.sequence = nullptr;
    std::string key = lower(label.text);
    forget_name(r.d, key);
    r.d.beamlines[key] = std::move(s);
    if (!r.d.use_given) r.d.used = key, r.d.used_at = label.at;
}

// ---- Commands

// Commands that do not describe the ring: read and skipped with a note.
const char *const skipped_commands[] = {
    "beam", "title", "select", "twiss", "plot", "option", "show", "value", "print", "printf", "survey",
    "setplot", "resplot", "resbeam", "assign", "eoption", "help", "system", "save", "savebeta", "esave",
    "emit", "set", "write", "coguess", "makethin", "dynap", "touschek", "sodd", "ptc_create_universe",
    "ptc_create_layout", "ptc_twiss", "ptc_normal", "ptc_end", "ptc_align", "ptc_setswitch"};

bool skipped_command(const std::string &word)
{
    return std::find_if(std::begin(skipped_commands), std::end(skipped_commands),
                        [&](const char *c) { return word == c; }) != std::end(skipped_commands);
}

void note_once(reader &r, const std::string &word, const std::string &note, source_place at, const char *kind = "note")
{
    std::vector<std::string> &seen = r.d.skipped_seen;
    if (std::find(seen.begin(), seen.end(), word) != seen.end()) return;
    seen.push_back(word);
    r.d.notes.push_back(note_at(r.d, at, kind, note));
}

// MATCH ... ENDMATCH (or TRACK ... ENDTRACK): skipped whole.
void skip_block(reader &r, const token &start, const char *end)
{
    skip_statement(r);
    while (!is_word(r, end)) {
        if (r.tok.kind == 'e') fail(r, start.at, upper(lower(start.text)) + " block not closed: expected " + upper(end));
        skip_statement(r);
    }
    next(r);
    expect(r, ";", std::string("after ") + upper(end));
}

void use_statement(reader &r, const token &use)
{
    std::string chosen;
    source_place at = use.at;
    while (is(r, ",")) {
        next(r);
        token name = r.tok;
        std::string key = expect_name(r, "PERIOD= or SEQUENCE=");
        if (!is(r, "=") && !is(r, ":=")) {   // USE, name;
            chosen = key, at = name.at;
            continue;
        }
        next(r);
        if (key == "period" || key == "sequence") at = r.tok.at, chosen = expect_name(r, "a LINE or SEQUENCE name");
        else skip_value(r);
    }
    expect(r, ";", "after USE");
    if (chosen.empty()) fail(r, use.at, "expected USE, PERIOD=name or USE, SEQUENCE=name");
    if (!r.d.beamlines.contains(chosen)) fail(r, at, "USE names '" + chosen + "': expected a LINE or SEQUENCE defined above");
    r.d.used = chosen;
    r.d.used_at = at;
    r.d.use_given = true;
}

void read_text(lattice_definitions &d, const std::string &text, const std::string &path, int depth);

std::string directory_of(const std::string &path)
{
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// Reads a whole file, refusing ones past the size limit; the text, or an error message.
bool read_whole_file(const std::string &path, std::string &text, std::string &problem)
{
    FILE *f = fopen(path.c_str(), "rb");
    if (!f) return problem = strerror(errno), false;
    char buffer[1 << 16];
    size_t n;
    text.clear();
    while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) {
        text.append(buffer, n);
        if (text.size() > file_size_limit) {
            fclose(f);
            return problem = "file larger than 16 MB: expected a lattice text file", false;
        }
    }
    bool failed = ferror(f);
    fclose(f);
    if (failed) return problem = "read error", false;
    return true;
}

void call_statement(reader &r, const token &call)
{
    std::string file;
    source_place at = call.at;
    while (is(r, ",")) {
        next(r);
        std::string key = expect_name(r, "FILE=");
        expect(r, "=", "after FILE");
        at = r.tok.at;
        if (key == "file" && (r.tok.kind == 's' || r.tok.kind == 'i')) file = r.tok.text, next(r);
        else skip_value(r);
    }
    expect(r, ";", "after CALL");
    if (file.empty()) fail(r, call.at, "expected CALL, FILE=\"name\"");
    if (r.depth + 1 > call_depth_limit) fail(r, at, "CALL nested more than 16 files deep (does a file call itself?)");
    std::string path = file[0] == '/' ? file : r.directory + file;
    std::string text, problem;
    if (!read_whole_file(path, text, problem)) fail(r, at, "cannot read '" + path + "': " + problem);
    read_text(r.d, text, path, r.depth + 1);
}

// A statement that starts with a name not followed by '=' or ':'.
void command(reader &r, const token &first)
{
    std::string word = lower(first.text);
    if (r.sequence && (r.d.elements.contains(word) || r.d.beamlines.contains(word))) {
        placement p;
        p.name = word;
        p.at = first.at;
        attributes(r, nullptr, &p);
        if (p.position.empty()) fail(r, first.at, "expected AT=position for '" + first.text + "' in sequence '" + r.sequence->name + "'");
        keep(r, 1, first.at);
        r.sequence->placements.push_back(p);
    } else if (word == "use") {
        use_statement(r, first);
    } else if (word == "call") {
        call_statement(r, first);
    } else if (word == "match") {
        note_once(r, word, "MATCH ... ENDMATCH skipped: Fentra does not run the matching, the strengths stay as written", first.at, "warning");
        skip_block(r, first, "endmatch");
    } else if (word == "track") {
        note_once(r, word, "TRACK ... ENDTRACK skipped: Fentra tracks the beam itself", first.at);
        skip_block(r, first, "endtrack");
    } else if (word == "stop" || word == "exit" || word == "quit") {
        note_once(r, word, upper(word) + ": the rest of the file is not read", first.at);
        skip_statement(r);
        r.d.stopped = true;
    } else if (word == "return") {
        skip_statement(r);
        r.returned = true;
    } else if (skipped_command(word)) {
        note_once(r, word, upper(word) + " skipped: it does not describe the ring", first.at);
        skip_statement(r);
    } else if (r.d.elements.contains(word) || r.d.beamlines.contains(word)) {
        fail(r, first.at, "'" + first.text + "' placed outside a SEQUENCE: expected it inside SEQUENCE ... ENDSEQUENCE");
    } else if (word == "endsequence") {
        fail(r, first.at, "ENDSEQUENCE without a SEQUENCE before it");
    } else {
        fail(r, first.at, "unknown keyword '" + first.text + "': expected an assignment, a definition (label: KEYWORD), USE, CALL or a command");
    }
}

void assignment(reader &r, const token &name)
{
    next(r);   // '=' or ':='
    variable_definition v;
    v.value = parse_expression(r);
    expect(r, ";", "after the expression");
    keep(r, 1, name.at);
    r.d.variables[lower(name.text)] = std::move(v);   // a later definition replaces an earlier one
}

void statement(reader &r)
{
    if (is(r, ";")) return next(r);   // an empty statement
    token first = r.tok;
    if (first.kind != 'i') fail(r, first.at, "expected a statement (a name or keyword), found " + describe(first));
    next(r);
    std::string word = lower(first.text);
    // REAL, CONST, REAL CONST, INT: declarations of a variable.
    while ((word == "real" || word == "const" || word == "int" || word == "shared") && r.tok.kind == 'i') {
        first = r.tok;
        word = lower(first.text);
        next(r);
    }
    if (is(r, "=") || is(r, ":=")) return assignment(r, first);
    if (!is(r, ":")) return command(r, first);
    next(r);
    token kind = r.tok;
    std::string what = expect_name(r, "a keyword after '" + first.text + ":'");
    if (what == "line") line_statement(r, first);
    else if (what == "sequence") sequence_statement(r, first);
    else if (skipped_command(what)) note_once(r, what, upper(what) + " skipped: it does not describe the ring", kind.at), skip_statement(r);
    else element_statement(r, first, kind);
}

// The first control byte (other than white space) marks a binary file.
void check_text(const lattice_definitions &d, const std::string &text, int file)
{
    source_place at{file, 1, 1};
    for (unsigned char c : text) {
        if ((c < 0x20 && !isspace(c)) || c == 0x7f) {
            char byte[80];
            snprintf(byte, sizeof byte, "binary data (byte 0x%02X): expected a lattice text file", c);
            fail_at(d, at, byte);
        }
        if (c == '\n') at.line++, at.column = 1;
        else at.column++;
    }
}

void read_text(lattice_definitions &d, const std::string &text, const std::string &path, int depth)
{
    int file = (int)d.files.size();
    d.files.push_back(path);
    if (text.empty()) fail_at(d, {file, 1, 1}, "empty file: expected element definitions and a LINE or SEQUENCE");
    check_text(d, text, file);
    reader r{d, text, directory_of(path), depth};
    r.here.file = file;
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) r.pos = 3;   // the byte-order mark some editors write
    next(r);
    while (r.tok.kind != 'e' && !r.returned && !d.stopped) statement(r);
}

std::string stem(const std::string &path)
{
    std::string name = path.substr(path.rfind('/') + 1);   // npos + 1 is 0
    size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

}  // namespace

void fail_at(const lattice_definitions &d, source_place at, const std::string &message)
{
    const std::string &file = at.file < (int)d.files.size() ? d.files[at.file] : std::string();
    throw lattice_failure{file + ":" + std::to_string(at.line) + ":" + std::to_string(at.column) + ": error: " + message};
}

std::string note_at(const lattice_definitions &d, source_place at, const char *kind, const std::string &text)
{
    return d.files[at.file] + ":" + std::to_string(at.line) + ": " + kind + ": " + text;
}

ring_file read_ring_text(const std::string &text, const std::string &file_name)
{
    ring_file ring;
    ring.name = stem(file_name);
    lattice_definitions d;
    try {
        read_text(d, text, file_name, 0);
        if (d.used.empty()) fail_at(d, {0, 1, 1}, "no LINE or SEQUENCE in the file: expected the ring as a LINE or SEQUENCE");
        build_ring(d, ring);
    } catch (const lattice_failure &f) {
        ring.elements.clear();
        ring.superperiod_count = 1;
        ring.error = f.message;
    }
    ring.notes = std::move(d.notes);
    return ring;
}

ring_file read_ring_file(const std::string &path)
{
    std::string text, problem;
    if (!read_whole_file(path, text, problem)) {
        ring_file ring;
        ring.name = stem(path);
        ring.error = path + ":1:1: error: cannot read the file: " + problem;
        return ring;
    }
    return read_ring_text(text, path);
}
