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
        {{"--optics", "ring"}, "fentra: unknown lattice \"ring\" (known: kora, fodo)\n"},
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

} // namespace
