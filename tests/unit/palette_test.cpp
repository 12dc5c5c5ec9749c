// The palette table, index <-> colour conversions, the palette file and every colour map,
// checked at landmarks and segment boundaries worked out by hand.
#include "Morvane/palette.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <unistd.h>

namespace {

std::string hex(int colour)
{
    char buf[16];
    snprintf(buf, sizeof buf, "0x%06X", colour);
    return buf;
}

struct map_case {
    double input;
    int colour;
};

// Runs one colour map over a table of inputs and expected packed colours.
void check_map(const char *name, int (*map)(double), std::initializer_list<map_case> cases)
{
    for (const map_case &c : cases)
        EXPECT_EQ(hex(map(c.input)), hex(c.colour)) << name << "(" << c.input << ")";
}

// The input that puts a log-scale spectrum at position t: t = -5.135 - 13.18 ln(v x 1e6).
double spectrum_input(double t) { return exp(-(t + 5.135) / 13.18) * 1e-6; }

} // namespace

// ---- Table -------------------------------------------------------------------------------------

TEST(palette, landmark_entries)
{
    struct {
        int index, colour;
        const char *what;
    } cases[] = {
        {0, 0x000000, "black"},
        {1, 0x00007F, "dim blue"},
        {2, 0x007F00, "dim green"},
        {4, 0x7F0000, "dim red"},
        {6, 0x7F7F00, "dim yellow"},
        {7, 0x7F7F7F, "grey 0.5"},
        {8, 0x3F3F3F, "grey 0.25, not black"},
        {9, 0x0000FF, "bright blue"},
        {12, 0xFF0000, "bright red"},
        {15, 0xFFFFFF, "white"},
        {16, 0x000000, "grey ramp start"},
        {27, 0x7A7A7A, "grey ramp step 11 of 23"},
        {39, 0xFFFFFF, "grey ramp end"},
        {40, 0x000000, "cube origin"},
        {41, 0x330000, "cube red 0.2"},
        {46, 0x003300, "cube green 0.2"},
        {76, 0x000033, "cube blue 0.2"},
        {254, 0xCCFFFF, "cube (0.8, 1, 1)"},
        {255, 0xFFFFFF, "cube corner"},
    };
    for (const auto &c : cases) EXPECT_EQ(hex(palettecolour(c.index)), hex(c.colour)) << c.index << " " << c.what;

    float r[256], g[256], b[256];
    buildpalette(r, g, b);
    EXPECT_EQ(std::make_tuple(r[8], g[7], r[14], g[14], b[14], b[3], r[3]),
              std::make_tuple(0.25f, 0.5f, 1.0f, 1.0f, 0.0f, 0.5f, 0.0f));
    EXPECT_NEAR(r[17], 1.0 / 23, 1e-6);
    EXPECT_NEAR(b[40 + 36 * 3 + 6 * 2 + 1], 0.6, 1e-6);
    EXPECT_NEAR(g[40 + 36 * 3 + 6 * 2 + 1], 0.4, 1e-6);
    EXPECT_NEAR(r[40 + 36 * 3 + 6 * 2 + 1], 0.2, 1e-6);
}

TEST(palette, indices_are_clamped)
{
    struct {
        int index, colour;
    } cases[] = {{-5, 0x000000}, {-1000000, 0x000000}, {256, 0xFFFFFF}, {300, 0xFFFFFF}, {-1, 0x000000}};
    for (const auto &c : cases) EXPECT_EQ(hex(palettecolour(c.index)), hex(c.colour)) << c.index;
}

// ---- Nearest index -------------------------------------------------------------------------------

TEST(palette, nearest_index_keeps_the_first_of_the_nearest_candidates)
{
    struct {
        int colour, index;
        const char *why;
    } cases[] = {
        // dim 0, bright 8, grey 18 (0.087 against 0.086), cube 40: the grey ramp wins.
        {0x161616, 18, "grey candidate nearest"},
        // dim 3, bright 10, grey 27, cube 137 = (0.2, 0.8, 0.4) exactly: the cube wins.
        {0x33CC66, 137, "cube candidate nearest"},
        // dim 0, grey 16 and cube 40 are all exact black: the later ones only tie.
        {0x000000, 0, "ties keep the dim colour"},
        // bright 15, grey 39 and cube 255 are all white: ties keep the bright colour.
        {0xFFFFFF, 15, "ties keep the bright colour"},
        // dim 4 is (0.5, 0, 0); bright 12 is exact; cube 45 ties with it.
        {0xFF0000, 12, "bright replaces dim, cube only ties"},
        // 0.498 grey: dim 7 (0.5) beats grey 27 (0.478).
        {0x7F7F7F, 7, "dim grey nearest"},
    };
    for (const auto &c : cases) EXPECT_EQ(nearestpaletteindex(c.colour), c.index) << hex(c.colour) << ": " << c.why;
}

TEST(palette, every_entry_is_found_again_by_its_colour)
{
    for (int i = 0; i < 256; ++i) {
        int colour = palettecolour(i);
        EXPECT_EQ(hex(palettecolour(nearestpaletteindex(colour))), hex(colour)) << "entry " << i;
    }
}

// ---- Palette file --------------------------------------------------------------------------------

TEST(palette, file_has_the_text_header_and_one_line_per_entry)
{
    char path[] = "/tmp/palette_test_XXXXXX";
    close(mkstemp(path));
    float r[256], g[256], b[256];
    buildpalette(r, g, b);
    // An entry with values at the edges of the 255.9 conversion: 255.64 -> 255, 0.998 -> 0, 1.0236 -> 1.
    r[200] = 0.999f, g[200] = 0.0039f, b[200] = 0.004f;
    writepalette(r, g, b, path);
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), {});
    remove(path);

    // LF line ends; every line agrees with the packed colours (hand-checked ones above).
    std::string want = "JASC-PAL\n0100\n256\n";
    for (int i = 0; i < 256; ++i) {
        int c = i == 200 ? 0xFF0001 : palettecolour(i);
        want += std::to_string(c >> 16) + " " + std::to_string((c >> 8) & 255) + " " + std::to_string(c & 255) + "\n";
    }
    EXPECT_EQ(text, want);
}

// ---- Colour maps ---------------------------------------------------------------------------------

TEST(colour_maps, heat5_segments)
{
    check_map("heat5", heat5,
              {{-1e-11, 0x000000}, {-1e-13, 0x0000FF}, {0, 0x0000FF}, {0.5, 0x007F80},
               {0.999, 0x00FF00}, {1, 0x00FF00}, {1.5, 0x7FFF00}, {2, 0xFFFF00},
               {2.999, 0xFF0000}, {3, 0xFF0000}, {3.5, 0xBF0040}, {3.999, 0x80007F},
               {4, 0x800080}, {4.5, 0xBF7EBF}, {4.999, 0xFFFEFF}, {5, 0xFFFFFF}, {100, 0xFFFFFF}});
    EXPECT_EQ(hex(heat5range(15, 10, 20)), hex(0xFF8000)); // heat5(2.5)
    EXPECT_EQ(hex(heat5range(10, 10, 20)), hex(0x0000FF));
    EXPECT_EQ(hex(heat5range(-5, 20, 10)), hex(0xFFFFFF)); // reversed range: (−25) × 5 / (−10) = 12.5
    EXPECT_EQ(hex(heat5unit(0.5)), hex(0xFF8000));
    EXPECT_EQ(hex(heat5unit(0.9998)), hex(0xFFFEFF));
}

TEST(colour_maps, heat4_segments_and_dark_ends)
{
    check_map("heat4", heat4,
              {{-1, 0x7F0000}, {-3, 0x3F0000}, {-0.0001, 0xFF0000}, {0, 0xFF0000}, {0.5, 0xFF7F00},
               {1, 0xFFFF00}, {1.5, 0x80FF00}, {2, 0x00FF00}, {2.5, 0x00FF7F}, {3, 0x00FFFF},
               {3.5, 0x0080FF}, {4, 0x0000FF}, {4.0001, 0x0000FF}, {5, 0x00007F}, {7, 0x00003F}});
    EXPECT_EQ(hex(heat4range(3, 2, 4)), hex(0x00FF00));
    EXPECT_EQ(hex(heat4range(0, 0, 8)), hex(0xFF0000));
}

TEST(colour_maps, steps_and_grey_scales)
{
    check_map("steps", steps,
              {{-100, 0x000000}, {4.999, 0x000000}, {5, 0x0000FF}, {9.99, 0x0000FF}, {10, 0x00FFFF},
               {15, 0x00FF00}, {20, 0xFFFF00}, {24.9, 0xFFFF00}, {25, 0xFF0000}, {1e9, 0xFF0000}});
    check_map("greyscale", greyscale,
              {{-0.01, 0x000000}, {-0.001, 0x000000}, {0, 0x000000}, {0.5, 0x808080},
               {0.996, 0xFEFEFE}, {0.998, 0xFEFEFE}, {0.999, 0xFFFFFF}, {2, 0xFFFFFF}});
    check_map("signedgrey", signedgrey,
              {{-3, 0x00FFFF}, {-1, 0x00FFFF}, {-0.5, 0x0080FF}, {-0.001, 0x0000FF}, {0, 0x000000},
               {0.5, 0x808080}, {1, 0xFFFFFF}, {1.5, 0xFF8000}, {2, 0xFFFF00}, {5, 0xFFFF00}});
}

TEST(colour_maps, hue_wheel_sectors_and_radius)
{
    const double c30 = cos(M_PI / 6), s30 = sin(M_PI / 6);
    struct {
        double x, y;
        int colour;
        const char *where;
    } cases[] = {
        {1, 0, 0xFF0000, "0 degrees on the circle"},
        {0.5, 0, 0x7F0000, "0 degrees, half radius: darker"},
        {2, 0, 0xFF7F7F, "0 degrees, twice the radius: paler"},
        {0, 0, 0x000000, "centre"},
        {c30, s30, 0xFF7F00, "30 degrees"},
        {0, 1, 0x7FFF00, "90 degrees"},
        {-c30, s30, 0x00FF7F, "150 degrees"},
        {-1, 0, 0x00FFFF, "180 degrees"},
        {0, -1, 0x7F00FF, "-90 degrees"},
        {c30, -s30, 0xFF007F, "-30 degrees"},
        {-c30, -s30, 0x007FFF, "-150 degrees"},
    };
    for (const auto &c : cases) EXPECT_EQ(hex(huewheel(c.x, c.y)), hex(c.colour)) << c.where;
}

TEST(colour_maps, log_spectra_by_position)
{
    struct {
        double t;
        int seven, eight;
    } cases[] = {
        {-1.5, 0x000000, 0x000000}, {-0.5, 0x000000, 0x0F0000}, {0.5, 0x7F0000, 0x8F0000},
        {1.5, 0xFF7F00, 0xFF7F00},  {2.5, 0x80FF00, 0x7FFF00},  {3.5, 0x00FF7F, 0x00FF6F},
        {4.5, 0x0080FF, 0x007FEF},  {5.5, 0x7F00FF, 0x5B00FF},  {6.5, 0x800080, 0x66008F},
        {7.5, 0x000000, 0x0B000F},  {8.5, 0x000000, 0x000000},
    };
    for (const auto &c : cases) {
        double v = spectrum_input(c.t);
        EXPECT_EQ(hex(spectrum7(v)), hex(c.seven)) << "spectrum7 at t = " << c.t;
        EXPECT_EQ(hex(spectrum8(v)), hex(c.eight)) << "spectrum8 at t = " << c.t;
    }
    for (double v : {0.0, -1.0, 1.0}) {
        EXPECT_EQ(spectrum7(v), 0) << v;
        EXPECT_EQ(spectrum8(v), 0) << v;
    }
}
