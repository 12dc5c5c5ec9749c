// The lattice: the carried KORA text written and read back, the element values, the lookup of
// the element at a ring position, the FODO rule, and files that break the table's limits.
// (Random files are the fuzz target lattice's, replayed in the suite.)
#include "fentra/physics/lattice.h"
#include "fentra/physics/state.h"

#include "Morvane/report.h"
#include "carried_data.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> warnings;

int capture_report(report_record *r)
{
    if (r->type == REPORT_WARNING) warnings.push_back(r->message ? r->message : "");
    return 0;
}

// A fresh temporary directory per test, warnings captured instead of logged.
class lattice : public ::testing::Test {
protected:
    std::string dir;
    void SetUp() override
    {
        char pattern[] = "/tmp/fentra_lattice_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        report_handler = capture_report;
        warnings.clear();
    }
    void TearDown() override
    {
        std::string cmd = "rm -rf '" + dir + "'";
        EXPECT_EQ(system(cmd.c_str()), 0);
    }
    std::string path(const char *name) { return dir + "/" + name; }
    std::string write_text(const char *name, const std::string &text)
    {
        std::string p = path(name);
        FILE *f = fopen(p.c_str(), "wb");
        fwrite(text.data(), 1, text.size(), f);
        fclose(f);
        return p;
    }
    void load_kora()
    {
        std::string p = path("kora_sp.txt");
        write_builtin_lattice(p.c_str());
        read_lattice(p.c_str());
    }
};

// Name, length, strength and bend radius of element i.
std::tuple<std::string, double, double, double> element(int i)
{
    return {element_name[i], element_length[i], element_strength[i], element_bend_radius[i]};
}

std::string read_file(const std::string &p)
{
    std::string s;
    FILE *f = fopen(p.c_str(), "rb");
    if (!f) return s;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
    fclose(f);
    return s;
}

TEST_F(lattice, written_file_is_the_carried_text_byte_for_byte)
{
    std::string p = path("kora_sp.txt");
    write_text("kora_sp.txt", "an older file that must be replaced, longer than the lattice\n" + std::string(3000, 'x'));
    write_builtin_lattice(p.c_str());
    std::string bytes = read_file(p);
    ASSERT_EQ(data_kora_sp_txt_size, 1481u);
    EXPECT_EQ(bytes, std::string((const char *)data_kora_sp_txt, 1481));
    EXPECT_EQ(bytes.substr(0, 12), "BQF1:HBF5D\t.");
    EXPECT_EQ(bytes.substr(bytes.size() - 2), "\r\n") << "the last line ends in CR LF";
}

TEST_F(lattice, kora_superperiod_reads_back_with_its_derived_values)
{
    load_kora();
    EXPECT_TRUE(warnings.empty()) << "the carried text gives no warning";
    ASSERT_EQ(element_count, 48);
    EXPECT_NEAR(lattice_length(), 16.3362818, 1e-9);
    EXPECT_STREQ(element_name[44], "BQF2:HBF1D");
    EXPECT_EQ(element_bend_radius[44], 3.8 / 0.54264);
    EXPECT_NEAR(element_bend_radius[44], 7.0028, 5e-5);
    EXPECT_STREQ(element_name[8], "DQD:QD1A");
    EXPECT_EQ(element_strength[8], -0.786049666 / 1.235293713);

    struct row {
        int index;
        const char *name;
        double length, k, radius;   // k and radius rounded as printed in the element list
    };
    const row rows[] = {
        {0, "BQF1:HBF5D", 0.16, 0.011018, 22.7726},
        {1, "BQF1:HBD6D", 0.2, -0.000812, 177.6199},
        {3, "D1", 2.5494, 0, 0},
        {14, "QFC", 0.307, 0.006101, 0},
        {20, "DQF:QF1A", 0.5042, 0.636632, 0},
        {27, "D2", 5.2445, 0, 0},
        {32, "SQ:QD1B", 0.2474, -0.727314, 0},
        {37, "D5", 0.0315818, 0, 0},
        {42, "BQF2:HBF3D", 0.2, 0.071066, 8.2420},
        {47, "BQF2:HBF4D", 0.04, 0.011018, 22.7661},
    };
    for (const row &r : rows) {
        EXPECT_STREQ(element_name[r.index], r.name) << "element " << r.index;
        EXPECT_EQ(element_length[r.index], r.length) << r.name;
        EXPECT_NEAR(element_strength[r.index], r.k, 1e-6) << r.name;
        EXPECT_NEAR(element_bend_radius[r.index], r.radius, 1e-4) << r.name;
    }

    // The bends of one superperiod add up to a tenth of a turn.
    double angle = 0;
    for (int i = 0; i < element_count; i++)
        if (element_bend_radius[i] != 0) angle += element_length[i] / element_bend_radius[i];
    EXPECT_NEAR(angle, 0.62832, 1e-9);
}

TEST_F(lattice, element_lookup_gives_the_element_whose_interval_holds_the_position)
{
    load_kora();
    const double L = lattice_length();
    // The end of D1 as the lookup sums it: a boundary belongs to the following element.
    const double end_of_d1 = element_length[0] + element_length[1] + element_length[2] + element_length[3];
    ASSERT_NEAR(end_of_d1, 2.9394, 1e-12);
    const double start_of_44 = L - 3.8 - 0.06 - 0.2 - 0.04;

    struct row {
        const char *what;
        double position;
        int index;
        double distance;
    };
    const row rows[] = {
        {"ring start", 0, 0, 0.16},
        {"inside element 0", 0.1, 0, 0.06},
        {"end of element 0", 0.16, 1, 0.2},
        {"end of D1", end_of_d1, 4, 0.05275},
        {"just before the end of D1", end_of_d1 - 1e-9, 3, 1e-9},
        {"inside the main bend", start_of_44 + 1.0, 44, 2.8},
        {"last element", L - 0.01, 47, 0.01},
        {"third superperiod, element 0", 2 * L + 0.1, 0, 0.06},
        {"tenth superperiod, end of D1", 9 * L + end_of_d1 + 1e-7, 4, 0.05275 - 1e-7},
    };
    for (const row &r : rows) {
        element_here e = find_element(r.position, L);
        EXPECT_EQ(e.index, r.index) << r.what;
        EXPECT_NEAR(e.distance_to_end, r.distance, 1e-9) << r.what;
        ASSERT_GE(e.index, 0) << r.what;
        EXPECT_EQ(e.quad_strength, element_strength[e.index]) << r.what;
        EXPECT_EQ(e.bend_active, element_bend_radius[e.index] != 0) << r.what;
    }
}

TEST_F(lattice, entering_an_element_replaces_the_keyboard_quadrupole)
{
    load_kora();
    reset_simulation_state();
    magnets.quad_strength = 4;   // "4" and Left held
    sim.ring_position = lattice_length() * 3 - 2.0;   // inside the main bend
    enter_current_element();
    EXPECT_EQ(sim.component_index, 44);
    EXPECT_NEAR(sim.distance_to_element_end, 1.7, 1e-9);   // 44 ends 0.3 m before the end
    EXPECT_TRUE(sim.bend_active);
    EXPECT_EQ(magnets.quad_strength, element_strength[44]);

    magnets.quad_strength = -2;
    sim.ring_position = 3.0;   // in DQD:QD4A, a quadrupole
    enter_current_element();
    EXPECT_EQ(sim.component_index, 5);
    EXPECT_FALSE(sim.bend_active);
    EXPECT_EQ(magnets.quad_strength, element_strength[5]);

    // With no table there is no element and the keyboard setting stays.
    element_count = 0;
    sim.superperiod_length = 0;
    magnets.quad_strength = 2;
    enter_current_element();
    EXPECT_EQ(sim.component_index, -1);
    EXPECT_EQ(sim.distance_to_element_end, 1e20);
    EXPECT_FALSE(sim.bend_active);
    EXPECT_EQ(magnets.quad_strength, 2);
}

TEST(fodo, quadrupoles_of_the_three_metre_cell)
{
    struct row {
        double position, k;
    };
    const row rows[] = {
        {0.0, 1.384},   {0.1, 1.384},   {0.2499, 1.384}, {0.25, 0},     {0.5, 0},
        {1.2499, 0},    {1.25, -1.384}, {1.5, -1.384},   {1.7499, -1.384}, {1.75, 0},
        {2.7499, 0},    {2.75, 1.384},  {2.8, 1.384},    {3.1, 1.384},  {4.5, -1.384},
        {301.5, -1.384}, {300.9, 0},
    };
    for (const row &r : rows) EXPECT_EQ(fodo_quadrupole(r.position), r.k) << "at " << r.position << " m";
}

TEST_F(lattice, lines_that_do_not_scan_keep_old_fields_and_still_count)
{
    // Old values in the table where the short lines land.
    element_length[1] = 7;
    element_strength[1] = 0;
    element_bend_radius[1] = 0;
    read_lattice(write_text("a.txt", "A 1 0 0\nZ\n").c_str());
    EXPECT_EQ(element_count, 2);
    EXPECT_EQ(element(1), std::make_tuple("Z", 7.0, 0.0, 0.0)) << "length not given: the old value stays";
    read_lattice(write_text("b.txt", "A 1 0 0\nB 2 3\n").c_str());
    EXPECT_EQ(element_count, 2);
    EXPECT_EQ(element(1), std::make_tuple("B", 2.0, 3 / 1.235293713, 0.0)) << "angle not given: no bend";
    EXPECT_TRUE(warnings.empty());
}

TEST_F(lattice, any_white_space_separates_fields_and_line_ends)
{
    struct row {
        const char *what, *text;
        int count;
    };
    const row rows[] = {
        {"LF line ends, blanks", "A .5 0 0\nB 1.5 -0.1 0.2\n", 2},
        {"no final line end", "A .5 0 0\nB 1.5 -0.1 0.2", 2},
        {"blank lines after the last", "A .5 0 0\nB 1.5 -0.1 0.2\r\n\r\n\n  \t\n", 2},
        {"everything on one line", "A .5 0 0 B 1.5 -0.1 0.2", 2},
        {"empty file", "", 1},   // the end is only seen by the scan, which then fails
    };
    for (const row &r : rows) {
        element_length[0] = 0;
        read_lattice(write_text("w.txt", r.text).c_str());
        EXPECT_EQ(element_count, r.count) << r.what;
        if (r.count == 2) {
            EXPECT_EQ(element(1), std::make_tuple("B", 1.5, -0.1 / 1.235293713, 1.5 / 0.2)) << r.what;
            EXPECT_EQ(element_length[0], 0.5) << r.what;
        }
    }
}

TEST_F(lattice, an_over_long_name_is_cut_with_a_warning)
{
    element_length[2] = -1;
    read_lattice(write_text("n.txt", "ABCDEFGHIJKLMNOPQRSTUVWXYZ 1.5 0 0\nB 2 0 0\n").c_str());
    ASSERT_EQ(element_count, 2);
    EXPECT_EQ(element(0), std::make_tuple("ABCDEFGHIJKLMNO", 1.5, 0.0, 0.0)) << "the rest is not read as the length";
    EXPECT_EQ(element(1), std::make_tuple("B", 2.0, 0.0, 0.0));
    EXPECT_EQ(element_length[2], -1) << "nothing written past the file's elements";
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("ABCDEFGHIJKLMNO"), std::string::npos) << warnings[0];

    warnings.clear();
    read_lattice(write_text("m.txt", "ABCDEFGHIJKLMNO 1 0 0\n").c_str());
    EXPECT_STREQ(element_name[0], "ABCDEFGHIJKLMNO");
    EXPECT_TRUE(warnings.empty()) << "15 characters fit";
}

TEST_F(lattice, a_file_of_more_than_500_elements_stops_at_500_with_a_warning)
{
    std::string text;
    for (int i = 0; i < 600; i++) text += "E" + std::to_string(i) + "\t0.5\t0\t0\r\n";
    read_lattice(write_text("long.txt", text).c_str());
    EXPECT_EQ(std::make_tuple(element_count, std::string(element_name[499]), lattice_length(), warnings.size()),
              std::make_tuple(500, std::string("E499"), 250.0, 1u));

    warnings.clear();
    text.clear();
    for (int i = 0; i < 500; i++) text += "E" + std::to_string(i) + " 0.5 0 0\n";
    read_lattice(write_text("full.txt", text + "\n\n").c_str());
    EXPECT_EQ(element_count, 500);
    EXPECT_TRUE(warnings.empty()) << "exactly 500 elements fit";
}

} // namespace
