// The support library's small parts: the clock, the random sequence, the growable array's
// capacities, the palette table and file, and the colour maps at landmarks worked out by hand.
#include "Morvane/clock.h"
#include "Morvane/growarray.h"
#include "Morvane/palette.h"
#include "Morvane/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <chrono>
#include <fstream>
#include <string>

namespace {

std::string hex(int colour)
{
    char buf[16];
    return std::string(buf, snprintf(buf, sizeof buf, "0x%06X", colour));
}

} // namespace

TEST(clock, readings_follow_the_monotonic_counter_and_waits_last)
{
    auto monotonic_seconds = [] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    };
    double before = monotonic_seconds(), first = time_now(), start = monotonic_seconds();
    EXPECT_TRUE(first >= before - 1e-6 && first <= start + 1e-6) << first << " not in " << before << " .. " << start;
    wait_seconds(0.0125);
    double slept = monotonic_seconds() - start;
    EXPECT_TRUE(slept >= 0.012 && slept < 2.0) << slept << " s";
}

TEST(random15, sequence_and_compositions)
{
    random15_restart();
    for (int e : {41, 18467, 6334}) EXPECT_EQ(random15(), e);
    random15_restart();
    EXPECT_EQ(random_signed(), (41.0 / 32768.0 + 18467.0) / 16384.0 - 1.0) << "the first draw is the fraction";
}

// From capacity 1 a full block grows to trunc((count + 1) / 0.8); removing shrinks it to
// trunc(count / 0.8) once use falls below 60 %; removal moves the last record into the gap.
TEST(growarray, grows_shrinks_and_fills_gaps)
{
    growarray a;
    growarray_init(&a, sizeof(int), 1);
    const unsigned grown[] = {1, 2, 3, 5, 5, 7, 7, 10, 10, 10, 13};
    for (int k = 0; k < 11; k++) {
        growarray_append(&a, &k);
        EXPECT_EQ(a.capacity, grown[k]) << "after append " << k + 1;
    }
    growarray_remove(&a, 1);
    EXPECT_EQ(((int *)a.data)[1], 10) << "the last record fills the gap";
    const unsigned shrunk[] = {13, 13, 8, 8, 8, 5};   // counts 9 down to 4: 7 of 13 and 4 of 8 are below 60 %
    for (int k = 0; k < 6; k++) {
        growarray_remove(&a, 0);
        EXPECT_EQ(a.capacity, shrunk[k]) << "down to " << a.count;
    }
    growarray_free(&a);
}

// The table, the nearest entry to a colour, and the palette file, whose channels are written
// as trunc(v x 255.9).
TEST(palette, table_entries_nearest_index_and_the_file)
{
    const int entries[][2] = {{1, 0x00007F}, {6, 0x7F7F00}, {8, 0x3F3F3F}, {12, 0xFF0000}, {27, 0x7A7A7A},
                              {41, 0x330000}, {76, 0x000033}, {254, 0xCCFFFF}, {-5, 0x000000}, {300, 0xFFFFFF}};
    for (const auto &c : entries) EXPECT_EQ(hex(palettecolour(c[0])), hex(c[1])) << "entry " << c[0];
    const int nearest[][2] = {{0x161616, 18}, {0x33CC66, 137}, {0xFFFFFF, 15}, {0xFF0000, 12}};
    for (const auto &c : nearest) EXPECT_EQ(nearestpaletteindex(c[0]), c[1]) << hex(c[0]);

    std::string path = "/tmp/palette_test_" + std::to_string(getpid());
    float r[256], g[256], b[256];
    buildpalette(r, g, b);
    r[200] = 0.999f, g[200] = 0.0039f, b[200] = 0.004f;   // 255.64 -> 255, 0.998 -> 0, 1.0236 -> 1
    writepalette(r, g, b, path.c_str());
    std::string want = "JASC-PAL\n0100\n256\n", text(want.size() + 256 * 12, '\0');
    for (int i = 0; i < 256; ++i) {
        int c = i == 200 ? 0xFF0001 : palettecolour(i);
        want += std::to_string(c >> 16) + " " + std::to_string((c >> 8) & 255) + " " + std::to_string(c & 255) + "\n";
    }
    std::ifstream in(path, std::ios::binary);
    text.resize(in.read(text.data(), text.size()).gcount());
    remove(path.c_str());
    EXPECT_EQ(text, want);
}

TEST(colour_maps, landmarks_of_every_map)
{
    struct { const char *name; int (*map)(double); double v; int colour; } cases[] = {
        {"heat5", heat5, -1e-11, 0x000000}, {"heat5", heat5, 3.5, 0xBF0040}, {"heat4", heat4, 1.5, 0x80FF00},
        {"heat4", heat4, 5, 0x00007F},      {"steps", steps, 4.999, 0x000000}, {"steps", steps, 5, 0x0000FF},
        {"steps", steps, 15, 0x00FF00},     {"steps", steps, 25, 0xFF0000},  {"greyscale", greyscale, 0.998, 0xFEFEFE},
        {"signedgrey", signedgrey, -0.5, 0x0080FF}, {"signedgrey", signedgrey, 1.5, 0xFF8000},
    };
    for (const auto &c : cases) EXPECT_EQ(hex(c.map(c.v)), hex(c.colour)) << c.name << "(" << c.v << ")";

    // Hue by angle in sectors of 60 degrees, dark inside the unit circle, paler outside.
    struct { double degrees, r; int colour; } wheel[] = {
        {0, 0.5, 0x7F0000}, {0, 2, 0xFF7F7F}, {0, 0, 0x000000}, {30, 1, 0xFF7F00}, {75, 1, 0xBFFF00},
        {150, 1, 0x00FF7F}, {-90, 1, 0x7F00FF}, {-30, 1, 0xFF007F}, {-150, 1, 0x007FFF},
    };
    for (const auto &c : wheel) {
        double a = c.degrees * M_PI / 180, x = c.r * cos(a), y = c.degrees == -90 ? -c.r : c.r * sin(a);
        EXPECT_EQ(hex(huewheel(x, y)), hex(c.colour)) << "at " << c.degrees << " degrees, r " << c.r;
    }
}
