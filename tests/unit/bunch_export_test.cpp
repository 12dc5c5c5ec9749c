// Setups as text, the bunch as CSV and the run without a window: the texts a teacher hands
// out parse to the state they name (and bad ones say why), the CSV holds the live arrays
// exactly with the panel's figures in its header, and a turn-by-turn record of the FODO cell
// gives its phase advance by the textbook's own normalisation.
#include "fentra/command_line.h"
#include "fentra/physics/beam.h"
#include "fentra/physics/bunch_export.h"
#include "fentra/physics/headless_run.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/setup_string.h"
#include "fentra/physics/state.h"

#include "Morvane/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <numbers>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

TEST(setup_text, good_texts_read_to_their_canonical_form_and_bad_ones_say_why)
{
    const std::pair<const char *, const char *> good[] = {
        {"", ""},
        {"#lattice=kora&beam=K&graphs=1&spread=1", "lattice=kora&beam=K&spread=1&graphs=1"},
        {"?beam=game&&speed=0.5", "beam=game&speed=0.5"},
        {"lattice=FODO&panel=1&highlight=1", "lattice=fodo&highlight=1&panel=1"},
        {"scraper=1&edge=0.0215&spacecharge=1&luminous=1&graphs=0", "scraper=1&spacecharge=1&luminous=1&edge=0.0215"},
        {"lattice=none&beam=g&speed=1", "beam=G"},
    };
    for (const auto &[text, canonical] : good) {
        fentra_setup s;
        std::string error;
        ASSERT_TRUE(parse_setup(text, &s, &error)) << text << ": " << error;
        EXPECT_EQ(format_setup(s), canonical) << text;
        fentra_setup again;
        ASSERT_TRUE(parse_setup(format_setup(s), &again, &error));
        EXPECT_EQ(format_setup(again), canonical) << "read back: " << text;
    }
    const std::pair<std::string, std::string> bad[] = {
        {"lattice=lhc", "setup: bad value \"lhc\" for lattice (expected kora, fodo, ring or none)"},
        {"beam=X", "setup: bad value \"X\" for beam (expected P, K, W, G or game)"},
        {"spread=yes", "setup: bad value \"yes\" for spread (expected 0 or 1)"},
        {"edge=0.08", "setup: bad value \"0.08\" for edge (expected metres from 0 to 0.07)"},
        {"speed=0", "setup: bad value \"0\" for speed (expected m/s from 1/1024 to 1024)"},
        {"speed=2x", "setup: bad value \"2x\" for speed (expected m/s from 1/1024 to 1024)"},
        {"colour=red", "setup: unknown key \"colour\" (known: lattice, beam, spread, graphs, scraper, edge, "
                       "spacecharge, luminous, highlight, panel, speed)"},
        {"graphs", "setup: \"graphs\" has no value (key=value)"},
        {"beam=K&beam=P", "setup: beam is given twice"},
        {std::string(1001, 'a'), "setup: the text is 1001 characters long, at most 1000 are read"},
    };
    for (const auto &[text, message] : bad) {
        fentra_setup s;
        std::string error;
        EXPECT_FALSE(parse_setup(text, &s, &error)) << text;
        EXPECT_EQ(error, message);
        EXPECT_EQ(format_setup(s), "") << "a bad text leaves the default setup";
    }
}

void fresh_kora()
{
    allocate_particles();
    random15_restart();
    load_builtin_lattice();
    reset_simulation_state();
}

// Each setup puts the simulation where the keys would: the lattice, its beam, the toggles.
TEST(setup_text, applied_setups_give_the_state_they_name)
{
    const struct { const char *text; bool kora, fodo; double spread, speed; bool graphs, highlight, panel, scraper; double edge; } rows[] = {
        {"lattice=kora&beam=W&graphs=1&spread=1", true, false, 0.15, 1, true, false, false, false, 0.03},
        {"lattice=kora&spread=1&luminous=1", true, false, 0.15, 1, false, false, false, false, 0.03},
        {"lattice=fodo&panel=1&highlight=1", false, true, 0, 1, false, true, true, false, 0.03},
        {"scraper=1&edge=0.02&speed=4", false, false, 0, 4, false, false, false, true, 0.02},
    };
    for (const auto &r : rows) {
        fresh_kora();
        fentra_setup s;
        std::string error;
        ASSERT_TRUE(parse_setup(r.text, &s, &error));
        apply_setup(s);
        EXPECT_EQ(std::make_tuple(sim.kora_lattice, sim.beam_made_for_kora, sim.fodo_cell, sim.momentum_spread,
                                  sim.simulation_speed, sim.show_graphs, sim.highlight, sim.optics_panel, sim.scraper_on,
                                  sim.scraper_x, sim.particle_count),
                  std::make_tuple(r.kora, r.kora, r.fodo, r.spread, r.speed, r.graphs, r.highlight, r.panel, r.scraper,
                                  r.edge, particle_capacity)) << r.text;
        EXPECT_EQ(format_setup(current_setup()), format_setup(s)) << r.text;
        double most_delta = 0;
        for (int i = 0; i < sim.particle_count; i++) most_delta = fmax(most_delta, fabs(beam_momentum[i] - 1));
        EXPECT_NEAR(most_delta, r.spread, 1e-3) << r.text;
    }
    // The FODO cell's own beam is its matched one: on the 4-sphere of beta 5.2355 m and 2.0496 m.
    fresh_kora();
    fentra_setup s;
    std::string error;
    ASSERT_TRUE(parse_setup("lattice=fodo", &s, &error));
    apply_setup(s);
    double q = beam_x[7] * beam_x[7] / 0.05720499999999999 / 0.05720499999999999 +
               beam_xp[7] * beam_xp[7] / 0.010925618390000875 / 0.010925618390000875 +
               beam_y[7] * beam_y[7] / 0.03579625 / 0.03579625 + beam_yp[7] * beam_yp[7] / 0.017459929461884974 / 0.017459929461884974;
    EXPECT_NEAR(q, 1, 1e-6);
    // A beam named in the FODO cell is that beam, not the matched one.
    fresh_kora();
    ASSERT_TRUE(parse_setup("lattice=fodo&beam=P", &s, &error));
    apply_setup(s);
    EXPECT_EQ(std::make_tuple(sim.fodo_cell, beam_xp[7], beam_yp[7], format_setup(current_setup())),
              std::make_tuple(true, 0.0, 0.0, std::string("lattice=fodo&beam=P")));
}

std::string read_text(const std::string &name)
{
    std::ifstream in(name, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::vector<std::string>> csv_rows(const std::string &text, std::string *header, std::string *columns)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.starts_with("#")) { *header += line + "\n"; continue; }
        if (columns->empty()) { *columns = line; continue; }
        std::vector<std::string> cells;
        std::string cell;
        std::istringstream l(line);
        while (std::getline(l, cell, ',')) cells.push_back(cell);
        if (line.ends_with(",")) cells.push_back("");
        rows.push_back(cells);
    }
    return rows;
}

// The CSV holds every live particle's coordinates to the last bit, the tunes once measured,
// and a header with the lattice's and the beam's figures; a file that cannot be written
// leaves nothing behind.
TEST(bunch_csv, rows_are_the_live_arrays_and_the_header_the_panel_figures)
{
    fresh_kora();
    fentra_setup s;
    std::string error;
    ASSERT_TRUE(parse_setup("lattice=kora&spread=1", &s, &error));
    apply_setup(s);
    const std::string name = "/tmp/bunch_test_" + std::to_string(getpid()) + ".csv";
    ASSERT_TRUE(export_bunch(name, "lattice=kora&spread=1", &error)) << error;
    std::string header, columns;
    auto rows = csv_rows(read_text(name), &header, &columns);
    EXPECT_EQ(columns, "x,xp,y,yp,delta,Qx,Qy");
    ASSERT_EQ((int)rows.size(), sim.particle_count);
    for (int i = 0; i < sim.particle_count; i += 97) {
        ASSERT_EQ(rows[i].size(), 7u) << "row " << i;
        const double want[5] = {beam_x[i], beam_xp[i], beam_y[i], beam_yp[i], beam_momentum[i] - 1};
        for (int k = 0; k < 5; k++) EXPECT_EQ(strtod(rows[i][k].c_str(), nullptr), want[k]) << "row " << i << " column " << k;
        EXPECT_EQ(rows[i][5] + rows[i][6], "") << "tunes are not measured yet";
    }
    for (const char *line : {"# Fentra ", "# setup: lattice=kora&spread=1\n", "# ring position: 0.000000 m\n",
                             "# particles: 10000\n", "# lattice: 10 superperiods\n", "# Qx: 4.4036\n", "# Qy: 3.7980\n",
                             "# beta x at start: 10.5940 m\n", "# beam x: centroid "})
        EXPECT_NE(header.find(line), std::string::npos) << line << "\n" << header;
    remove(name.c_str());
    for (const std::string bad : {"/nonexistent/bunch.csv", "/proc/bunch.csv"}) {
        EXPECT_FALSE(export_bunch(bad, "", &error));
        EXPECT_EQ(error.rfind("cannot write " + bad + ": ", 0), 0u) << error;
    }
}

int run(std::vector<const char *> args, std::string *err_text = nullptr)
{
    args.insert(args.begin(), "fentra");
    FILE *err = tmpfile();
    int status = run_command_line((int)args.size(), const_cast<char **>(args.data()), stdout, err);
    if (err_text) {
        rewind(err);
        char line[400] = "";
        if (fgets(line, sizeof line, err)) *err_text = line;
    }
    fclose(err);
    return status;
}

// The mean phase advance a cell of every particle between the rows of a turn-by-turn record,
// normalised with the FODO cell's textbook Twiss functions at the cell start (alpha 0).
std::pair<double, double> phase_advance_a_cell(const std::string &file)
{
    std::string header, columns;
    auto rows = csv_rows(read_text(file), &header, &columns);
    EXPECT_EQ(columns, "s,particle,x,xp,y,yp,delta");
    std::map<int, std::vector<std::array<double, 4>>> by_particle;
    for (const auto &r : rows)
        by_particle[atoi(r[1].c_str())].push_back({atof(r[2].c_str()), atof(r[3].c_str()), atof(r[4].c_str()), atof(r[5].c_str())});
    const double beta[2] = {5.2355, 2.0496};
    double sum[2] = {0, 0};
    int count = 0;
    for (const auto &[id, obs] : by_particle) {
        for (int p = 0; p < 2; p++)
            for (size_t k = 1; k < obs.size(); k++) {
                double a0 = atan2(beta[p] * obs[k - 1][2 * p + 1], obs[k - 1][2 * p]);
                double a1 = atan2(beta[p] * obs[k][2 * p + 1], obs[k][2 * p]);
                sum[p] += fmod(a0 - a1 + 4 * std::numbers::pi, 2 * std::numbers::pi);
            }
        count += (int)obs.size() - 1;
    }
    return {sum[0] / count * 180 / std::numbers::pi, sum[1] / count * 180 / std::numbers::pi};
}

// A matched beam in the FODO cell, observed once a cell: fine steps give the thick-lens
// 54.45 degrees; the default 0.012 m steps give the stepping's own 53.65 degrees (250 steps
// a cell cut the quadrupoles the same way every cell). The same run writes the same bytes.
TEST(headless_run, a_turn_by_turn_record_gives_the_cells_phase_advance)
{
    const std::string a = "/tmp/headless_a_" + std::to_string(getpid()) + ".csv", b = a + ".b";
    // The 0.012 m steps land up to a step past the cell start: four cells even that out.
    const struct { const char *step, *run; double want, tolerance; } rows[] = {{"0.001", "9", 54.45, 0.2},
                                                                              {"0.012", "12", 53.65, 0.1}};
    for (const auto &r : rows) {
        ASSERT_EQ(run({"--setup", "lattice=fodo", "--run", r.run, "--every", "3", "--step", r.step, "--export", a.c_str()}), 0);
        auto [mx, my] = phase_advance_a_cell(a);
        EXPECT_NEAR(mx, r.want, r.tolerance) << "x, step " << r.step;
        EXPECT_NEAR(my, r.want, r.tolerance) << "y, step " << r.step;
    }
    ASSERT_EQ(run({"--setup", "lattice=kora&spread=1", "--run", "1", "--export", a.c_str()}), 0);
    ASSERT_EQ(run({"--setup", "lattice=kora&spread=1", "--run", "1", "--export", b.c_str()}), 0);
    EXPECT_EQ(read_text(a), read_text(b));
    EXPECT_NE(read_text(a).find("# ring position: 1.0"), std::string::npos);
    remove(a.c_str());
    remove(b.c_str());
}

// Bad figures and paths: one line, the usual exit status, and no file left behind.
TEST(headless_run, bad_figures_and_paths_say_so_and_leave_nothing)
{
    const std::string name = "/tmp/headless_bad_" + std::to_string(getpid()) + ".csv";
    const char *x = name.c_str();
    const struct { std::vector<const char *> args; int status; const char *first_line; } rows[] = {
        {{"--run", "-5", "--export", x}, 2, "fentra: --run needs a positive distance in metres\n"},
        {{"--run", "1e30", "--export", x}, 2, "fentra: --run over --step would take more than 1e9 steps\n"},
        {{"--run", "ten", "--export", x}, 2, "fentra: --run needs a distance in metres, not \"ten\"\n"},
        {{"--every", "3", "--export", x}, 2, "fentra: --export needs --run METRES\n"},
        {{"--run", "3", "--every", "3"}, 2, "fentra: --run needs --export FILE.csv\n"},
        {{"--setup", "beam=Q", "--run", "1", "--export", x}, 2,
         "fentra: setup: bad value \"Q\" for beam (expected P, K, W, G or game)\n"},
        {{"--setup", "lattice=ring", "--run", "1", "--export", x}, 2,
         "fentra: setup: lattice=ring needs a ring loaded with --lattice FILE\n"},
        {{"--run", "0.1", "--export", "/nonexistent/x.csv"}, 1, "fentra: cannot write /nonexistent/x.csv: No such file or directory\n"},
    };
    for (const auto &r : rows) {
        std::string first;
        EXPECT_EQ(run(r.args, &first), r.status) << r.first_line;
        EXPECT_EQ(first, r.first_line);
    }
    EXPECT_NE(access(x, F_OK), 0) << "no file written";
    // A record past 1 GB is refused before anything runs (checked on the figures alone, so a
    // fault here cannot write gigabytes).
    headless_options big;
    big.run = 100000, big.step = 0.012, big.every = 0.1;
    std::string error;
    EXPECT_FALSE(check_headless_options(big, &error));
    EXPECT_EQ(error, "the turn-by-turn record would pass 1 GB (1000001 observations of up to 10000 particles): "
                     "use a larger --every or a shorter --run");
    big.every = 1000;   // 101 observations: under 200 MB
    EXPECT_TRUE(check_headless_options(big, &error)) << error;
    std::string canonical;
    EXPECT_EQ(run({"--check-setup", "#graphs=1&lattice=kora"}), 0);
    EXPECT_EQ(run({"--check-setup", "graphs=2"}, &canonical), 1);
    EXPECT_EQ(canonical, "fentra: setup: bad value \"2\" for graphs (expected 0 or 1)\n");
}

} // namespace
