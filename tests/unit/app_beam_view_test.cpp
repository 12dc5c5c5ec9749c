// Beam drawing without a display: the momentum colour ramp and the star-glow image. (The
// vertex data of the streaks, dots and sprites is checked pixel for pixel against immediate
// mode in gl/app_render_test.)
#include "fentra/views/beam_view.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

// ---- Momentum colours -------------------------------------------------------------------

TEST(MomentumColour, RampFromRedThroughGreenToBlue)
{
    // spread 0.15: lo = 0.864, hi = 1.136, t = (p - 0.864) x 4 / 0.272
    const struct { const char *name; double p, spread; unsigned expected; } cases[] = {
        {"centre of the range is pure green", 1.0, 0.15, 0x00FF00},
        {"centre with another spread", 1.0, 0.05, 0x00FF00},
        {"bottom edge t = 0 is red", 0.864, 0.15, 0xFF0000},
        {"t = 0.5 is orange", 0.864 + 0.034, 0.15, 0xFF7F00},     // green trunc(0.5 x 255.9)
        {"t = 1.5 is yellow-green", 0.864 + 0.102, 0.15, 0x80FF00}, // red 255 - 127
        {"t = 2.5 is green-cyan", 0.864 + 0.17, 0.15, 0x00FF7F},
        {"t = 3.5 is cyan-blue", 0.864 + 0.238, 0.15, 0x0080FF},
        {"top edge t = 4 is blue", 1.136, 0.15, 0x0000FF},
        {"t = -1 darkens red to half", 0.864 - 0.068, 0.15, 0x7F0000}, // 255.9 / 2
        {"t = -3 darkens red to a quarter", 0.864 - 0.204, 0.15, 0x3F0000},
        {"t = 5 darkens blue to half", 1.136 + 0.068, 0.15, 0x00007F},
        {"t = 7 darkens blue to a quarter", 1.136 + 0.204, 0.15, 0x00003F},
        {"lowest drawn momentum: 255.9 / 1.206", 0.85, 0.15, 0xD40000},
        {"near the highest: 255.9 / 1.191", 1.149, 0.15, 0x0000D6},
    };
    for (const auto &c : cases) EXPECT_EQ(momentum_colour(c.p, c.spread), c.expected) << c.name;
    // Inside 1 +- (0.001 + 0.9 s) one channel is always full; beyond it the ends darken.
    for (int k = -100; k <= 100; k++) {
        double p = 1 + 0.1359 * k / 100.0;
        unsigned c = momentum_colour(p, 0.15);
        EXPECT_TRUE(c >> 16 == 255 || ((c >> 8) & 255) == 255 || (c & 255) == 255) << "p = " << p;
    }
}

// ---- Star-glow image ----------------------------------------------------------------------

static unsigned char texel(const std::vector<unsigned char> &image, int n, int row, int col)
{
    int stride = (3 * n + 3) & ~3;
    return image[row * stride + 3 * col];
}

TEST(GlowImage, BrightCentreRaysAndBlackRim)
{
    const int n = 32;
    std::vector<unsigned char> image(((3 * n + 3) & ~3) * n, 0);
    glow_image(n, image.data());
    struct texel_case {
        const char *name;
        int row, col;
        int value;
    } cases[] = {
        {"centre saturates", 16, 16, 255},
        // On an axis tan(6 theta) is about 0, so a = 0.5; next to the centre r = 1/16:
        // (0.8 - 0.05) x 0.5 x 255 = 95.6
        {"next to the centre on the horizontal axis", 16, 17, 95},
        {"on the horizontal axis at r = 0.5", 16, 24, 6},     // 0.05 x 0.5 x 255 = 6.4
        // dx = 0 is offset by 1e-6, so theta is just off 90 degrees and tan(6 theta) is tiny
        // there as well: r = 0.25 gives 0.15 x 0.5 x 255 = 19.1
        {"on the vertical axis at r = 0.25", 20, 16, 19},
        // On the diagonal tan(270 degrees) is huge, a = 1: r = 0.354 gives 0.0914 x 255
        {"on the diagonal, a ray at r = 0.354", 20, 20, 23},
        {"outside the unit circle: corner", 0, 0, 0},
        {"exactly on the rim (r = 1) stays black", 16, 0, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(texel(image, n, c.row, c.col), c.value) << c.name;
}
