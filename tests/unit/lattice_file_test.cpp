// Lattice files in the course language: what good files load as (lines, reflections,
// repetitions, sequences, expressions, CALL), the notes and warnings, every kind of bad input
// with its file:line:col message, the ring installed in the element table, the built-in
// lattices written out and read back, and the example rings with the tunes their comments state.
#include "fentra/physics/lattice.h"
#include "fentra/physics/lattice_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string>

namespace {

ring_file load(const std::string &text) { return read_ring_text(text, "t.madx"); }

// "name L k1 angle" for each element, joined by "; ", with %g numbers: short to write in a table.
std::string summary(const ring_file &r)
{
    std::string s;
    char e[160];
    for (const ring_element &x : r.elements) {
        snprintf(e, sizeof e, "%s%s %g %g %g", s.empty() ? "" : "; ", x.name.c_str(), x.length, x.k1, x.angle);
        s += e;
    }
    return s;
}

std::string all_notes(const ring_file &r)
{
    std::string s;
    for (const std::string &n : r.notes) s += n + "\n";
    return s;
}

// ---- An independent thick-lens optics of one superperiod, repeated.

struct mat2 {
    double a, b, c, d;
};

mat2 thick(double L, double K)
{
    double s = sqrt(fabs(K)), phi = s * L;
    if (K > 0) return {cos(phi), sin(phi) / s, -s * sin(phi), cos(phi)};
    if (K < 0) return {cosh(phi), sinh(phi) / s, s * sinh(phi), cosh(phi)};
    return {1, L, 0, 1};
}

mat2 times(const mat2 &m, const mat2 &n)
{
    return {m.a * n.a + m.b * n.c, m.a * n.b + m.b * n.d, m.c * n.a + m.d * n.c, m.c * n.b + m.d * n.d};
}

struct plane_optics {
    bool stable;
    double trace, tune;   // whole tune of the ring, from the phase advance summed element by element
};

// Plane x: K = k + 1/rho^2 (rho = L / angle); plane y: K = -k. Elements as (L, k, angle).
plane_optics optics(const std::vector<ring_element> &elements, int periods, bool x)
{
    std::vector<mat2> m;
    mat2 M = {1, 0, 0, 1};
    for (const ring_element &e : elements) {
        double h = e.angle / e.length;
        m.push_back(thick(e.length, x ? e.k1 + h * h : -e.k1));
        M = times(m.back(), M);
    }
    double trace = M.a + M.d;
    if (fabs(trace) >= 2) return {false, trace, 0};
    double mu = acos(trace / 2);
    if (M.b < 0) mu = 2 * std::numbers::pi - mu;
    double beta = M.b / sin(mu), alpha = (M.a - M.d) / (2 * sin(mu)), phase = 0;
    for (const mat2 &t : m) {
        phase += atan2(t.b, beta * t.a - alpha * t.b);
        double gamma = (1 + alpha * alpha) / beta;
        double b2 = t.a * t.a * beta - 2 * t.a * t.b * alpha + t.b * t.b * gamma;
        alpha = -t.a * t.c * beta + (t.a * t.d + t.b * t.c) * alpha - t.b * t.d * gamma;
        beta = b2;
    }
    return {true, trace, periods * phase / (2 * std::numbers::pi)};
}

// ---- Good files

struct good_case {
    const char *what, *text;
    int superperiods;
    const char *elements;   // summary()
};

const good_case good_cases[] = {
    {"comments, case and dots, after a byte-order mark, with CR LF line ends",
     "\xEF\xBB\xBF! a comment\r\n// another\n/* a block\n   comment */ Q.F1: quadrupole, l=0.5, K1=1.2; ! after\n"
     "d: DRIFT, L=2;\nB.1: SBend, L=1, Angle=0.1, k1=-0.05;\nRING: line=(q.f1, D, b.1, d);",
     1, "Q.F1 0.5 1.2 0; d 2 0 0; B.1 1 -0.05 0.1; d 2 0 0"},
    {"expressions: precedence, unary minus, power, functions, constants",
     "a = 2 + 3*4^2/8 - -1;\nb := -2^2;\nREAL CONST c = sqrt(16) + abs(-3) - exp(0) + log(e);\n"
     "const p = atan(1)*4 / pi + sin(0) + cos(0) + tan(0) + asin(0) + acos(1);\nREAL r = twopi/pi;\n"
     "x: drift, l=a; y: quadrupole, l=c, k1=b; z: drift, l=p*r + 1.5e1 + .5 + 5. + 1E-1;\nl: line=(x, y, z);",
     1, "x 9 0 0; y 7 -4 0; z 24.6 0 0"},
    {"variables used before they are assigned, and reassigned (the last value holds)",
     "q: quadrupole, l=lq, k1=kq;\nlq = 2*half;\nhalf = 0.25;\nkq = 1;\nkq = 3;\nl: line=(q);",
     1, "q 0.5 3 0"},
    {"element defined from another keeps kind and attributes, overrides some",
     "qf: quadrupole, l=0.3, k1=1;\nqf2: qf, k1=1.2;\nb: sbend, l=2, angle=0.2;\nb2: b, k1=0.1;\nl: line=(qf, qf2, b2);",
     1, "qf 0.3 1 0; qf2 0.3 1.2 0; b2 2 0.1 0.2"},
    {"element attribute in an expression",
     "qf: quadrupole, l=0.3, k1=1;\nd: drift, l=2*qf->l + qf->k1;\nl: line=(qf, d);", 1, "qf 0.3 1 0; d 1.6 0 0"},
    {"repetitions and sub-lists",
     "a: drift, l=1; b: drift, l=2; c: quadrupole, l=0.1, k1=1; d: drift, l=4;\nl: line=(a, 2*(b, c), 2*d);",
     1, "a 1 0 0; b 2 0 0; c 0.1 1 0; b 2 0 0; c 0.1 1 0; d 4 0 0; d 4 0 0"},
    {"reflection of a line, nested reflection",
     "a: drift, l=1; b: drift, l=2; c: drift, l=3;\nbc: line=(b, c);\nl: line=(-(a, -bc), a);",
     1, "b 2 0 0; c 3 0 0; a 1 0 0; a 1 0 0"},
    {"reflection with a repetition", "a: drift, l=1; b: drift, l=2;\nl: line=(2*-(a, b));", 2, "b 2 0 0; a 1 0 0"},
    {"a top-level n*name makes n superperiods",
     "q: quadrupole, l=1, k1=0.5; d: drift, l=2;\ncell: line=(q, d);\nring: line=(10*cell);", 10,
     "q 1 0.5 0; d 2 0 0"},
    {"a top-level n*(...) makes n superperiods", "q: quadrupole, l=1, k1=0.5; d: drift, l=2;\nring: line=(6*(q, d, d));",
     6, "q 1 0.5 0; d 2 0 0; d 2 0 0"},
    {"a line naming one line is looked through for superperiods",
     "d: drift, l=2;\ncell: line=(d);\narc: line=(4*cell);\nring: line=(arc);", 4, "d 2 0 0"},
    {"repetitions deeper in the line are expanded", "d: drift, l=2; e: drift, l=1;\nring: line=(3*d, e);", 1,
     "d 2 0 0; d 2 0 0; d 2 0 0; e 1 0 0"},
    {"USE chooses a line other than the last", "a: drift, l=1; b: drift, l=2;\nla: line=(a);\nUSE, PERIOD=la;\nlb: line=(b);",
     1, "a 1 0 0"},
    {"USE, SEQUENCE= and the old USE, name form",
     "a: drift, l=1;\ns: sequence, l=3;\na, at=1;\nendsequence;\nuse, sequence=s;\nx: line=(a);\nuse, x;", 1, "a 1 0 0"},
    {"the last line or sequence defined is the ring without USE",
     "a: drift, l=1;\nla: line=(a);\ns: sequence, l=2; a, at=0.5; endsequence;", 1, "a 1 0 0; drift_0 1 0 0"},
    {"sequence, centre reference (the default): gaps become drifts",
     "q: quadrupole, l=1, k1=2;\ns: sequence, l=10;\nq, at=2;\nq2: q, k1=-2, at=5;\nendsequence;", 1,
     "drift_0 1.5 0 0; q 1 2 0; drift_1 2 0 0; q2 1 -2 0; drift_2 4.5 0 0"},
    {"sequence, entry and exit references",
     "q: quadrupole, l=1, k1=2;\ns: sequence, l=10, refer=entry;\nq, at=2;\nendsequence;\n"
     "t: sequence, l=10, refer=exit;\nq, at=2;\nq, at=3;\nendsequence;", 1, "drift_0 1 0 0; q 1 2 0; q 1 2 0; drift_1 7 0 0"},
    {"sequence: FROM an element placed before, markers dropped",
     "m: marker;\nq: quadrupole, l=1, k1=2;\ns: sequence, l=6, refer=entry;\nm, at=1;\nq, at=2, from=m;\nendsequence;",
     1, "drift_0 1 0 0; drift_1 2 0 0; q 1 2 0; drift_2 2 0 0"},
    {"a sequence placed in a sequence",
     "q: quadrupole, l=1, k1=2;\ninner: sequence, l=3;\nq, at=1.5;\nendsequence;\n"
     "outer: sequence, l=8, refer=entry;\ninner, at=1;\ninner, at=4;\nendsequence;", 1,
     "drift_2 1 0 0; drift_0 1 0 0; q 1 2 0; drift_1 1 0 0; drift_0 1 0 0; q 1 2 0; drift_1 1 0 0; drift_3 1 0 0"},
    {"RBEND: chord length made the sector bend's arc",
     "b: rbend, l=2*sin(0.5), angle=1;\nl: line=(b);", 1, "b 1 0 1"},
    {"sextupoles, kickers, monitors become drifts of their length; zero-length ones vanish",
     "s: sextupole, l=0.2, k2=5; k: hkicker, l=0.1, kick=0.001; m: monitor; o: octupole, l=0.3, k3=1;\n"
     "q: quadrupole, l=1, k1=1;\nl: line=(s, k, m, q, o);",
     1, "s 0.2 0 0; k 0.1 0 0; q 1 1 0; o 0.3 0 0"},
    {"ignored attributes, commands and blocks",
     "TITLE, \"a ring\"; BEAM, particle=proton, pc=0.37; option, echo=false;\n"
     "q: quadrupole, l=1, k1=1, apertype=ellipse, aperture={0.07, 0.05}, type=\"MQ\", mech_sep=0.1;\n"
     "l: line=(q);\nuse, period=l;\nselect, flag=twiss, column=name,s,betx;\ntwiss, file='x.twiss';\n"
     "plot, haxis=s, vaxis=betx;\nshow, q;\nvalue, q->k1;\nmatch, sequence=l;\nconstraint, range=#e, betx<10;\n"
     "vary, name=kq, step=1e-5;\nlmdif, calls=10;\nendmatch;\nstop;\nthis is not read at all, @@@ ;",
     1, "q 1 1 0"},
};

TEST(lattice_file, good_files_load_as_written)
{
    for (const good_case &c : good_cases) {
        ring_file r = load(c.text);
        EXPECT_EQ(r.error, "") << c.what;
        EXPECT_EQ(r.superperiod_count, c.superperiods) << c.what;
        EXPECT_EQ(summary(r), c.elements) << c.what;
        EXPECT_EQ(r.name, "t") << c.what;
    }
}

TEST(lattice_file, call_reads_a_file_relative_to_the_calling_one)
{
    std::filesystem::path dir = std::filesystem::temp_directory_path() / "fentra_call_test";
    std::filesystem::create_directories(dir / "sub");
    std::ofstream(dir / "sub" / "elements.madx") << "kq = 0.8;\nq: quadrupole, l=0.5, k1=kq;\ncall, file=\"more.madx\";\n";
    std::ofstream(dir / "sub" / "more.madx") << "d: drift, l=1.5;\nreturn;\nd: drift, l=99;\n";
    std::ofstream(dir / "ring.madx") << "CALL, FILE=\"sub/elements.madx\";\nkq = 1.1;\ncell: line=(q, d);\nr: line=(5*cell);\n";
    std::ofstream(dir / "bad.madx") << "call, file=\"sub/missing.madx\";\n";
    ring_file r = read_ring_file((dir / "ring.madx").string());
    EXPECT_EQ(r.error, "");
    EXPECT_EQ(r.name, "ring");
    EXPECT_EQ(r.superperiod_count, 5);
    EXPECT_EQ(summary(r), "q 0.5 1.1 0; d 1.5 0 0");
    ring_file bad = read_ring_file((dir / "bad.madx").string());
    EXPECT_EQ(bad.error, (dir / "bad.madx").string() + ":1:12: error: cannot read '" + (dir / "sub/missing.madx").string() +
                             "': No such file or directory");
    std::ofstream(dir / "sub" / "broken.madx") << "x = 1;\ny = (2;\n";
    std::ofstream(dir / "calls_broken.madx") << "call, file=\"sub/broken.madx\";\n";
    EXPECT_EQ(read_ring_file((dir / "calls_broken.madx").string()).error,
              (dir / "sub/broken.madx").string() + ":2:7: error: expected ')' to close the parenthesis, found ';'");
    std::ofstream(dir / "loop.madx") << "call, file=\"loop.madx\";\n";
    EXPECT_NE(read_ring_file((dir / "loop.madx").string()).error.find("CALL nested more than 16 files deep"), std::string::npos);
    std::filesystem::remove_all(dir);
}

// ---- Notes and warnings

struct note_case {
    const char *what, *text, *note;
};

const note_case note_cases[] = {
    {"skipped command, once however often it appears", "twiss; twiss, file=x; d: drift, l=1; l: line=(d);",
     "t.madx:1: note: TWISS skipped: it does not describe the ring\n"},
    {"MATCH block", "d: drift, l=1; l: line=(d);\nmatch, sequence=l;\nvary, name=x;\nendmatch;",
     "t.madx:2: warning: MATCH ... ENDMATCH skipped: Fentra does not run the matching, the strengths stay as written\n"},
    {"STOP", "d: drift, l=1; l: line=(d); stop;", "t.madx:1: note: STOP: the rest of the file is not read\n"},
    {"elements held as drifts, named in one line",
     "s: sextupole, l=0.2; k: vkicker, l=0.1; r: rfcavity, l=0.5, volt=1;\nl: line=(s, k, r, s);",
     "t.madx:1: warning: s (SEXTUPOLE), k (VKICKER), r (RFCAVITY) become drifts of their length: the ring holds "
     "drifts, quadrupoles and bends only (in Fentra sextupole, octupole, solenoid and steering fields come from the keys)\n"},
    {"RBEND edges", "b: rbend, l=1, angle=0.1;\nl: line=(b);",
     "t.madx:1: warning: RBEND loaded as a sector bend of its arc length: its edge focusing is not modelled, so the "
     "tunes differ from codes that model it: b\n"},
    {"SBEND edge angles", "b: sbend, l=1, angle=0.1, e1=0.05;\nc: sbend, l=1, angle=0.1, e2=0;\nl: line=(b, c);",
     "t.madx:1: warning: edge angles E1/E2 not modelled, loaded as sector bends (the tunes differ from codes that "
     "model their focusing): b\n"},
    {"unmodelled optics attributes, only when not zero",
     "q: quadrupole, l=1, k1=1, tilt=pi/4;\nr: quadrupole, l=1, k1=1, tilt=0, k1s=0.1;\nb: sbend, l=1, angle=0.1, fint=0.5, hgap=0.02;\nl: line=(q, r, b);",
     "t.madx:1: warning: TILT would change the optics but is not modelled: q\n"
     "t.madx:2: warning: K1S would change the optics but is not modelled: r\n"
     "t.madx:3: warning: FINT would change the optics but is not modelled: b\n"
     "t.madx:3: warning: HGAP would change the optics but is not modelled: b\n"},
    {"unknown attribute", "q: quadrupole, l=1, k1=1, colour=red;\nl: line=(q);",
     "t.madx:1: warning: unknown attribute COLOUR ignored: q\n"},
    {"long names", "a_very_long_quadrupole_name: quadrupole, l=1, k1=1;\nl: line=(a_very_long_quadrupole_name);",
     "t.madx:1: warning: names longer than 15 characters are shown cut: a_very_long_quadrupole_name\n"},
    {"many names are counted, not all listed",
     "s1: sextupole, l=1; s2: s1; s3: s1; s4: s1; s5: s1; s6: s1; s7: s1; s8: s1; s9: s1; s10: s1;\n"
     "l: line=(s1, s2, s3, s4, s5, s6, s7, s8, s9, s10);",
     "t.madx:1: warning: s1 (SEXTUPOLE), s2 (SEXTUPOLE), s3 (SEXTUPOLE), s4 (SEXTUPOLE), s5 (SEXTUPOLE), s6 (SEXTUPOLE), "
     "s7 (SEXTUPOLE), s8 (SEXTUPOLE) and 2 more become drifts of their length: the ring holds drifts, quadrupoles and "
     "bends only (in Fentra sextupole, octupole, solenoid and steering fields come from the keys)\n"},
    {"unused elements are not warned about", "s: sextupole, l=1; b: rbend, l=1, angle=1; d: drift, l=1; l: line=(d);", ""},
};

TEST(lattice_file, notes_and_warnings_name_what_is_not_modelled)
{
    for (const note_case &c : note_cases) {
        ring_file r = load(c.text);
        EXPECT_EQ(r.error, "") << c.what;
        EXPECT_EQ(all_notes(r), c.note) << c.what;
    }
}

// ---- Bad input: the message starts with file:line:col and says what was expected.

struct bad_case {
    const char *what, *text, *error;
};

const bad_case bad_cases[] = {
    {"empty file", "", "t.madx:1:1: error: empty file: expected element definitions and a LINE or SEQUENCE"},
    {"only comments", "! nothing\n/* here */\n",
     "t.madx:1:1: error: no LINE or SEQUENCE in the file: expected the ring as a LINE or SEQUENCE"},
    {"binary data", "q: quadrupole, l=1;\n\x89PNG\r\n\x1a\n\0\0",
     "t.madx:3:1: error: binary data (byte 0x1A): expected a lattice text file"},
    {"syntax error: missing semicolon", "q: quadrupole, l=1\nd: drift, l=1;",
     "t.madx:2:1: error: expected ';' or ',' after the attributes, found 'd'"},
    {"syntax error: stray character", "a = 1 $ 2;", "t.madx:1:7: error: expected ';' after the expression, found the character '$'"},
    {"syntax error: non-ASCII outside a comment", "a = \xc3\xa9;",
     "t.madx:1:5: error: expected a number, a name or '(' in the expression, found the byte 0xC3"},
    {"syntax error: unclosed comment", "a = 1; /* never closed\n", "t.madx:1:8: error: comment not closed: expected */"},
    {"syntax error: unclosed string", "title, \"no end\n;", "t.madx:1:8: error: string not closed: expected \" before the end of the line"},
    {"syntax error: statement starting with a number", "3 = a;", "t.madx:1:1: error: expected a statement (a name or keyword), found the number 3"},
    {"unknown keyword as element kind", "q: quadrupol, l=1;",
     "t.madx:1:4: error: unknown keyword 'quadrupol': expected an element keyword (DRIFT, QUADRUPOLE, SBEND, RBEND, "
     "MARKER, ...), LINE, SEQUENCE or a defined element"},
    {"unknown keyword as command", "d: drift, l=1; l: line=(d);\nseqedit, sequence=l;",
     "t.madx:2:1: error: unknown keyword 'seqedit': expected an assignment, a definition (label: KEYWORD), USE, CALL or a command"},
    {"unknown function", "a = sqr(2);", "t.madx:1:5: error: unknown function 'sqr': expected sqrt, exp, log, sin, cos, tan, asin, acos, atan or abs"},
    {"undefined variable", "d: drift, l=2*lq;\nl: line=(d);",
     "t.madx:1:15: error: undefined variable 'lq': expected a variable assigned in the file"},
    {"circular variables", "a = b + 1;\nb = 2*a;\nd: drift, l=a;\nl: line=(d);",
     "t.madx:2:7: error: circular definition: 'a' depends on itself"},
    {"variable defined by itself", "a = a + 1;\nd: drift, l=a;\nl: line=(d);",
     "t.madx:1:5: error: circular definition: 'a' depends on itself"},
    {"circular element attributes", "q: quadrupole, l=q->l, k1=1;\nl: line=(q);",
     "t.madx:1:16: error: attributes defined through more than 200 others (a circular definition?)"},
    {"a line naming itself", "d: drift, l=1;\nl: line=(d, l);", "t.madx:2:13: error: 'l' contains itself (l -> l): expected a LINE that ends"},
    {"lines naming each other", "d: drift, l=1;\na: line=(d, b);\nb: line=(2*a);\nr: line=(d, a);",
     "t.madx:3:10: error: 'a' contains itself (r -> a -> b -> a): expected a LINE that ends"},
    {"division by zero", "z = 0;\nd: drift, l=1/(z*2);\nl: line=(d);", "t.madx:2:14: error: division by zero"},
    {"NaN", "d: drift, l=sqrt(-1);\nl: line=(d);", "t.madx:1:13: error: result is not a number (NaN): expected a finite value"},
    {"infinity", "d: drift, l=1e300*1e300;\nl: line=(d);", "t.madx:1:18: error: result is infinite: expected a finite value"},
    {"negative length", "d: drift, l=-1;\nl: line=(d);", "t.madx:1:11: error: negative length L = -1 of 'd': expected a length of 0 or more"},
    {"negative sequence length", "s: sequence, l=-5;\nendsequence;", "t.madx:1:1: error: negative length L = -5 of sequence 's'"},
    {"ring of zero length", "m: marker;\nd: drift, l=0;\nl: line=(m, d, 3*m);",
     "t.madx:3:1: error: ring 'l' has zero length: expected elements of non-zero length"},
    {"sequence of zero length", "m: marker;\ns: sequence, l=0;\nm, at=0;\nendsequence;",
     "t.madx:2:1: error: ring 's' has zero length: expected elements of non-zero length"},
    {"thin quadrupole", "q: quadrupole, k1=1;\nl: line=(q);",
     "t.madx:1:1: error: zero-length quadrupole 'q': Fentra's tracking steps through elements of non-zero length only, expected L > 0"},
    {"thin bend", "d: drift, l=1;\nb: sbend, l=0, angle=0.1;\nl: line=(d, b);",
     "t.madx:2:1: error: zero-length bend 'b': Fentra's tracking steps through elements of non-zero length only, expected L > 0"},
    {"more than 500 elements after expansion", "d: drift, l=1; q: quadrupole, l=1, k1=1;\ncell: line=(d, q);\nring: line=(d, 250*cell);",
     "t.madx:3:16: error: more than 500 elements in a superperiod after expansion: expected at most 500, the element table's size"},
    {"overlap in a sequence, both named with their lines",
     "qf: quadrupole, l=1, k1=1; qd: quadrupole, l=1, k1=-1;\ns: sequence, l=10;\nqf, at=2;\nqd, at=2.9;\nendsequence;",
     "t.madx:4:1: error: 'qd' (line 4) overlaps 'qf' (line 3) by 0.1 m: expected it to start at s >= 2.5 m"},
    {"element before the sequence's start", "q: quadrupole, l=1, k1=1;\ns: sequence, l=10;\nq, at=0.2;\nendsequence;",
     "t.madx:3:1: error: 'q' (line 3) overlaps the sequence's start by 0.3 m: expected it to start at s >= 0 m"},
    {"element past the sequence's end", "q: quadrupole, l=1, k1=1;\ns: sequence, l=10;\nq, at=9.8;\nendsequence;",
     "t.madx:3:1: error: 'q' ends at s = 10.3 m, past the end of sequence 's' (L = 10 m)"},
    {"placement without AT", "q: quadrupole, l=1, k1=1;\ns: sequence, l=10;\nq;\nendsequence;",
     "t.madx:3:1: error: expected AT=position for 'q' in sequence 's'"},
    {"FROM an element not placed", "q: quadrupole, l=1, k1=1;\ns: sequence, l=10;\nq, at=2, from=m;\nendsequence;",
     "t.madx:3:1: error: FROM=m: expected an element placed earlier in sequence 's'"},
    {"sequence not closed", "q: quadrupole, l=1, k1=1;\ns: sequence, l=10;\nq, at=2;\n", "t.madx:2:1: error: SEQUENCE 's' not closed: expected ENDSEQUENCE"},
    {"sequence without length", "s: sequence, refer=entry;\nendsequence;", "t.madx:1:1: error: SEQUENCE 's' has no length: expected L=..."},
    {"bad REFER", "s: sequence, l=1, refer=middle;", "t.madx:1:25: error: expected ENTRY, CENTRE or EXIT after REFER=, found 'middle'"},
    {"element placed outside a sequence", "q: quadrupole, l=1;\nq, at=1;",
     "t.madx:2:1: error: 'q' placed outside a SEQUENCE: expected it inside SEQUENCE ... ENDSEQUENCE"},
    {"undefined name in a line", "d: drift, l=1;\nl: line=(d, qf);",
     "t.madx:2:13: error: undefined name 'qf': expected an element, LINE or SEQUENCE defined in the file"},
    {"USE of an unknown line", "d: drift, l=1; l: line=(d);\nuse, period=ring;",
     "t.madx:2:13: error: USE names 'ring': expected a LINE or SEQUENCE defined above"},
    {"bad repetition count", "d: drift, l=1;\nl: line=(2.5*d);", "t.madx:2:10: error: expected a whole repetition count from 1 to 1000000, found the number 2.5"},
    {"MATCH without ENDMATCH", "d: drift, l=1; l: line=(d);\nmatch, sequence=l;\nvary, name=x;\n",
     "t.madx:2:1: error: MATCH block not closed: expected ENDMATCH"},
    {"empty line list", "l: line=();", "t.madx:1:10: error: expected an element or line name, n*, - or '(' in the LINE, found ')'"},
};

TEST(lattice_file, bad_input_names_file_line_column_and_what_was_expected)
{
    for (const bad_case &c : bad_cases) {
        ring_file r = load(c.text);
        EXPECT_EQ(r.error, c.error) << c.what;
        EXPECT_TRUE(r.elements.empty()) << c.what;
    }
}

TEST(lattice_file, a_missing_file_is_an_error_naming_it)
{
    ring_file r = read_ring_file("/nonexistent/ring.madx");
    EXPECT_EQ(r.error, "/nonexistent/ring.madx:1:1: error: cannot read the file: No such file or directory");
    EXPECT_EQ(r.name, "ring");
    EXPECT_EQ(load(std::string("d\0rift", 6)).error, "t.madx:1:2: error: binary data (byte 0x00): expected a lattice text file");
}

// Several megabytes, deep nesting and huge repetitions: each ends, with the ring or a clear error.
TEST(lattice_file, large_and_deep_inputs_stay_bounded)
{
    std::string many;   // 100000 variables, about 3 MB
    for (int i = 0; i < 100000; i++) many += "v" + std::to_string(i) + " = " + std::to_string(i) + " * 0.5; ! comment\n";
    many += "d: drift, l=v3; l: line=(d);\n";
    EXPECT_EQ(summary(load(many)), "d 1.5 0 0");

    std::string comments(5 << 20, ' ');
    for (size_t i = 0; i + 1 < comments.size(); i += 80) comments.replace(i, 2, "!\n");
    EXPECT_EQ(summary(load(comments + "d: drift, l=1; l: line=(d);")), "d 1 0 0");

    std::string parens = "a = " + std::string(100000, '(') + "1" + std::string(100000, ')') + ";";
    EXPECT_EQ(load(parens).error, "t.madx:1:106: error: expression nested too deeply (more than 100 levels)");
    std::string minus = "a = " + std::string(100000, '-') + "1;";
    EXPECT_EQ(load(minus).error, "t.madx:1:106: error: expression nested too deeply (more than 100 levels)");
    std::string sublists = "l: line=" + std::string(100000, '(');
    EXPECT_EQ(load(sublists).error, "t.madx:1:111: error: LINE nested too deeply (more than 100 levels of parentheses)");

    std::string chain = "v0 = 1;\n";   // each variable defined by the one before
    for (int i = 1; i < 100000; i++) chain += "v" + std::to_string(i) + " = v" + std::to_string(i - 1) + ";\n";
    EXPECT_NE(load(chain + "d: drift, l=v99999; l: line=(d);").error.find("variables defined through more than 200 others"), std::string::npos);

    std::string lines = "d: drift, l=1;\nl0: line=(d);\n";
    for (int i = 1; i < 100000; i++) lines += "l" + std::to_string(i) + ": line=(l" + std::to_string(i - 1) + ", d);\n";
    EXPECT_NE(load(lines).error.find("LINEs nested more than 200 deep"), std::string::npos);

    std::string terms = "a = 1";
    for (int i = 0; i < 1000000; i++) terms += "+1";
    EXPECT_EQ(load(terms + ";").error,
              "t.madx:1:5: error: more than a million definitions, terms and LINE entries: expected a lattice of at most 500 elements");
    std::string huge_path = std::string(FENTRA_BINARY_DIR) + "/huge_lattice_test.madx";
    std::ofstream(huge_path) << std::string(17 << 20, ' ');
    EXPECT_EQ(read_ring_file(huge_path).error, huge_path + ":1:1: error: cannot read the file: file larger than 16 MB: expected a lattice text file");
    remove(huge_path.c_str());

    ring_file markers = load("m: marker; d: drift, l=1;\nl: line=(1000000*(1000000*m, 1000000*(m, m)), d);");
    EXPECT_EQ(summary(markers), "d 1 0 0");
    EXPECT_EQ(load("d: drift, l=1;\nl: line=(1000000*(1000000*d));").error,
              "t.madx:2:19: error: more than 500 elements in a superperiod after expansion: expected at most 500, the element table's size");
}

// ---- The ring in the element table

TEST(lattice_file, install_ring_fills_the_element_table)
{
    ring_file r = load("q: quadrupole, l=0.5, k1=-1.25;\nb_with_a_long_name: sbend, l=2, angle=0.25, k1=0.1;\nd: drift, l=1;\n"
                       "ring: line=(7*(q, d, b_with_a_long_name));");
    ASSERT_EQ(r.error, "");
    element_count = 99;
    EXPECT_EQ(install_ring(r), 7);
    ASSERT_EQ(element_count, 3);
    EXPECT_STREQ(element_name[0], "q");
    EXPECT_STREQ(element_name[2], "b_with_a_long_n");
    const double length[] = {0.5, 1, 2}, k[] = {-1.25, 0, 0.1}, radius[] = {0, 0, 8};
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(element_length[i], length[i]) << i;
        EXPECT_EQ(element_strength[i], k[i]) << i;
        EXPECT_EQ(element_bend_radius[i], radius[i]) << i;
    }
    EXPECT_EQ(lattice_length(), 3.5);
}

// ---- The built-in lattices written out and read back

TEST(lattice_file, exported_kora_reads_back_as_the_built_in_table)
{
    std::string path = std::string(FENTRA_BINARY_DIR) + "/kora_export_test.txt";
    write_builtin_lattice(path.c_str());
    read_lattice(path.c_str());
    remove(path.c_str());
    std::vector<ring_element> builtin;
    for (int i = 0; i < element_count; i++) {
        std::string name = element_name[i];
        for (char &c : name) c = c == ':' ? '.' : c;
        builtin.push_back({name, element_length[i], element_strength[i],
                           element_bend_radius[i] != 0 ? element_length[i] / element_bend_radius[i] : 0});
    }
    double radius[element_capacity];
    memcpy(radius, element_bend_radius, sizeof radius);
    ASSERT_EQ(builtin.size(), 48u);

    ring_file r = read_ring_text(export_builtin_lattice("kora"), "kora.madx");
    ASSERT_EQ(r.error, "");
    EXPECT_EQ(r.name, "kora");
    EXPECT_EQ(all_notes(r), "");
    ASSERT_EQ(install_ring(r), 10);
    ASSERT_EQ(element_count, 48);
    for (int i = 0; i < 48; i++) {
        EXPECT_EQ(element_name[i], builtin[i].name) << i;
        EXPECT_EQ(element_length[i], builtin[i].length) << i;
        EXPECT_EQ(element_strength[i], builtin[i].k1) << i;
        EXPECT_EQ(element_bend_radius[i], radius[i]) << i;   // the same division as the table reader's
    }
    for (bool x : {true, false}) {
        plane_optics a = optics(builtin, 10, x), b = optics(r.elements, 10, x);
        ASSERT_TRUE(a.stable && b.stable);
        EXPECT_NEAR(a.tune, b.tune, 1e-9);
        EXPECT_NEAR(b.tune, x ? 4.4036 : 3.7980, 1e-4);   // reference values computed outside the project
    }
}

TEST(lattice_file, exported_fodo_reads_back_as_the_cell_rule)
{
    ring_file r = read_ring_text(export_builtin_lattice("fodo"), "fodo.madx");
    ASSERT_EQ(r.error, "");
    EXPECT_EQ(r.superperiod_count, 1);
    double s = 0;
    for (const ring_element &e : r.elements) {
        for (double f : {0.001, 0.5, 0.999}) EXPECT_EQ(e.k1, fodo_quadrupole(s + f * e.length)) << e.name << " at " << s;
        EXPECT_EQ(e.angle, 0);
        s += e.length;
    }
    EXPECT_EQ(s, 3.0);
    for (bool x : {true, false}) {
        plane_optics p = optics(r.elements, 1, x);
        ASSERT_TRUE(p.stable);
        EXPECT_NEAR(p.tune * 360, 54.45, 0.005);   // degrees a cell, reference computed outside the project
    }
    EXPECT_EQ(export_builtin_lattice("lhc"), "");
}

// ---- The example rings load with the tunes their comments state

TEST(lattice_file, example_rings_load_with_the_stated_tunes)
{
    int sequences = 0, lines = 0, unstable = 0, examples = 0;
    for (const auto &entry : std::filesystem::directory_iterator(std::string(FENTRA_SOURCE_DIR) + "/data/examples")) {
        if (entry.path().extension() != ".madx") continue;
        examples++;
        std::string name = entry.path().filename().string();
        std::ifstream in(entry.path());
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        ring_file r = read_ring_file(entry.path().string());
        ASSERT_EQ(r.error, "") << name;
        EXPECT_NE(text.find("What it teaches"), std::string::npos) << name;
        EXPECT_EQ(text.find("ispersion"), std::string::npos) << name << ": the model has no dispersion";
        sequences += text.find("SEQUENCE,") != std::string::npos;
        lines += text.find("LINE =") != std::string::npos;
        plane_optics x = optics(r.elements, r.superperiod_count, true), y = optics(r.elements, r.superperiod_count, false);
        const std::string stated = "Tunes (thick-lens model, whole tunes): Qx = ";
        size_t at = text.find(stated);
        double qx = 0, qy = 0;
        if (at != std::string::npos && sscanf(text.c_str() + at + stated.size(), "%lf, Qy = %lf", &qx, &qy) == 2) {
            ASSERT_TRUE(x.stable && y.stable) << name;
            EXPECT_NEAR(x.tune, qx, 5e-5) << name;
            EXPECT_NEAR(y.tune, qy, 5e-5) << name;
        } else {
            ASSERT_NE(text.find("none, the ring is unstable in both planes"), std::string::npos) << name << ": no tunes stated";
            EXPECT_FALSE(x.stable || y.stable) << name;
            unstable++;
        }
    }
    EXPECT_GE(examples, 3);
    EXPECT_GE(sequences, 1);
    EXPECT_GE(lines, 1);
    EXPECT_GE(unstable, 1);
}

}  // namespace
