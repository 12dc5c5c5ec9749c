// The command line: --optics prints the lattice's figures one a line and exits 0 without a
// window; --help and --version; an unknown option, a missing or unknown lattice name exit 2
// with one line and the usage.
#include "fentra/command_line.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

struct outcome {
    int status;
    std::string out, err;
};

outcome run(std::vector<const char *> args)
{
    args.insert(args.begin(), "fentra");
    FILE *out = tmpfile(), *err = tmpfile();
    int status = run_command_line((int)args.size(), const_cast<char **>(args.data()), out, err);
    auto text = [](FILE *f) {
        std::string s(4096, 0);
        rewind(f);
        s.resize(fread(s.data(), 1, s.size(), f));
        fclose(f);
        return s;
    };
    return {status, text(out), text(err)};
}

TEST(command_line, optics_prints_the_lattice_figures_and_exits)
{
    const struct { const char *name; std::vector<const char *> lines; } cases[] = {
        {"kora", {"Qx: 4.4036\n", "Qy: 3.7980\n", "stability x: stable", "chromaticity x: -6.1",
                  "beta x at start: 10.59", "alpha y at start: -1.098"}},
        {"fodo", {"lattice: FODO cell\n", "phase advance x: 54.45 deg a cell\n", "beta x at start: 5.2355 m\n",
                  "beta y at start: 2.0496 m\n", "alpha x at start: 0.0000\n", "chromaticity y: -0.164\n"}},
    };
    for (const auto &c : cases) {
        outcome o = run({"--optics", c.name});
        EXPECT_EQ(o.status, 0) << c.name;
        EXPECT_EQ(o.err, "");
        for (const char *l : c.lines) EXPECT_NE(o.out.find(l), std::string::npos) << c.name << ": " << l << "\n" << o.out;
    }
    EXPECT_EQ(run({"--optics=fodo"}).out, run({"--optics", "fodo"}).out);
}

TEST(command_line, help_version_and_usage_errors)
{
    EXPECT_EQ(run({}).status, -1) << "no options: the simulation runs";
    outcome help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--optics NAME"), std::string::npos);
    EXPECT_NE(help.out.find("T optics panel"), std::string::npos);
    EXPECT_EQ(run({"--version"}).out.rfind("fentra ", 0), 0u);
    const struct { std::vector<const char *> args; const char *first_line; } errors[] = {
        {{"--bogus"}, "fentra: unknown option \"--bogus\"\n"},
        {{"--optics"}, "fentra: --optics needs a lattice name\n"},
        {{"--optics", "ring"}, "fentra: unknown lattice \"ring\" (known: kora, fodo, or a lattice file)\n"},
        {{"--help", "x"}, "fentra: unexpected argument \"x\"\n"},
    };
    for (const auto &e : errors) {
        outcome o = run(e.args);
        EXPECT_EQ(o.status, 2) << e.first_line;
        EXPECT_EQ(o.out, "");
        EXPECT_EQ(o.err.substr(0, o.err.find('\n') + 1), e.first_line);
        EXPECT_NE(o.err.find("Usage: fentra"), std::string::npos);
    }
}

// A lattice file goes where a built-in name goes: --optics prints its figures, a broken file
// exits 1 with its place and no figures, --lattice keeps the ring for the simulation; the
// built-in lattices written out read back with the same figures.
TEST(command_line, lattice_files_for_optics_export_and_the_simulation)
{
    const std::string examples = FENTRA_SOURCE_DIR "/data/examples/";
    outcome fodo = run({"--optics", (examples + "fodo_ring.madx").c_str()});
    EXPECT_EQ(fodo.status, 0);
    for (const char *l : {"lattice: 8 superperiods\n", "Qx: 2.3235\n", "Qy: 1.7352\n"})
        EXPECT_NE(fodo.out.find(l), std::string::npos) << l << "\n" << fodo.out;
    EXPECT_NE(run({"--optics", (examples + "unstable_ring.madx").c_str()}).out.find("unstable"), std::string::npos);
    // One superperiod of more than a whole turn of phase: the tune keeps its whole part.
    outcome triplet = run({"--optics", (examples + "triplet_ring.madx").c_str()});
    for (const char *l : {"lattice: 1 superperiod\n", "Qx: 2.3955\n", "Qy: 1.5470\n"})
        EXPECT_NE(triplet.out.find(l), std::string::npos) << l << "\n" << triplet.out;

    const std::string bad = "/tmp/fentra_cli_bad.madx";
    FILE *f = fopen(bad.c_str(), "w");
    fputs("qf: quadrupole, l = 0.5, k1 = 1;\nd: drift, l = -1;\nring: line = (qf, d);\n", f);
    fclose(f);
    for (const char *option : {"--optics", "--lattice"}) {
        outcome o = run({option, bad.c_str()});
        EXPECT_EQ(std::make_tuple(o.status, o.out), std::make_tuple(1, std::string())) << option;
        EXPECT_EQ(o.err.rfind("fentra: " + bad + ":2:", 0), 0u) << option << ": " << o.err;
    }
    EXPECT_FALSE(launch.has_ring);
    EXPECT_EQ(run({"--lattice", (examples + "triplet_ring.madx").c_str()}).status, -1);
    EXPECT_TRUE(launch.has_ring && launch.ring.name == "triplet_ring" && launch.ring.elements.size() > 3);

    for (const char *name : {"kora", "fodo"}) {
        outcome exported = run({"--export-lattice", name});
        const std::string file = std::string("/tmp/fentra_cli_") + name + ".madx";
        f = fopen(file.c_str(), "w");
        fputs(exported.out.c_str(), f);
        fclose(f);
        std::string built_in = run({"--optics", name}).out, read_back = run({"--optics", file.c_str()}).out;
        // The FODO cell reads back as a ring of one cell: the same figures, named a superperiod's.
        for (std::string *t : {&built_in, &read_back}) {
            t->erase(0, t->find('\n'));
            for (size_t at; (at = t->find("a superperiod")) != std::string::npos;) t->replace(at, 13, "a cell");
        }
        EXPECT_EQ(read_back, built_in) << name;
        remove(file.c_str());
    }
    EXPECT_EQ(run({"--export-lattice", "lhc"}).status, 2);
    EXPECT_EQ(run({"--lattice", "a", "--optics", "kora"}).status, 2) << "one option at a time";
    remove(bad.c_str());
}

} // namespace
