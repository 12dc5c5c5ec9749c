// Software mipmap averaging on byte rows padded to 4 bytes: the rounding, the sizes of a
// whole chain, and every texel size against a per-texel reference (thin images and random
// padding bytes included).
#include "Morvane/gfx_opengl.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

static int stride_of(int width, int components) { return (width * components + 3) & ~3; }

// The 2 x 2 block rule written texel by texel; a block that runs off a one-texel-wide or
// one-texel-high image pairs the edge texel with itself.
static std::vector<unsigned char> reference_halve(const std::vector<unsigned char> &src, int w,
                                                  int h, int c)
{
    int ow = w / 2 > 1 ? w / 2 : 1, oh = h / 2 > 1 ? h / 2 : 1;
    int in_stride = stride_of(w, c), out_stride = stride_of(ow, c);
    std::vector<unsigned char> out((size_t)out_stride * oh, 0);
    for (int y = 0; y < oh; ++y)
        for (int x = 0; x < ow; ++x)
            for (int k = 0; k < c; ++k) {
                int x0 = 2 * x, x1 = 2 * x + 1 < w ? 2 * x + 1 : w - 1;
                int y0 = 2 * y, y1 = 2 * y + 1 < h ? 2 * y + 1 : h - 1;
                auto at = [&](int yy, int xx) { return src[yy * in_stride + xx * c + k]; };
                out[y * out_stride + x * c + k] =
                    (unsigned char)((at(y0, x0) + at(y0, x1) + at(y1, x0) + at(y1, x1) + 2) / 4);
            }
    return out;
}

static std::vector<unsigned char> random_image(int w, int h, int c, unsigned seed)
{
    std::vector<unsigned char> img((size_t)stride_of(w, c) * h);
    for (auto &b : img) b = (unsigned char)((seed = seed * 1103515245u + 12345u) >> 16);
    return img;
}

static std::vector<unsigned char> halve(const std::vector<unsigned char> &src, int w, int h, int c)
{
    int ow = w / 2 > 1 ? w / 2 : 1, oh = h / 2 > 1 ? h / 2 : 1;
    std::vector<unsigned char> out((size_t)stride_of(ow, c) * oh, 0);
    mipmap_halve(src.data(), w, h, c, out.data());
    return out;
}

// Compares texels only: the padding bytes at the end of each row carry nothing.
static void expect_same_texels(const std::vector<unsigned char> &got,
                               const std::vector<unsigned char> &want, int w, int h, int c,
                               const char *what)
{
    int stride = stride_of(w, c);
    for (int y = 0; y < h; ++y)
        for (int i = 0; i < w * c; ++i)
            ASSERT_EQ(got[y * stride + i], want[y * stride + i])
                << what << ": row " << y << " byte " << i;
}

TEST(mipmaps, rounding_of_a_block_is_plus_two_then_quarter)
{
    const struct { unsigned char a, b, c, d, out; } cases[] = {
        {0, 1, 1, 1, 1}, {0, 0, 1, 1, 1}, {0, 0, 0, 1, 0}, {0, 0, 0, 2, 1},
        {1, 2, 3, 4, 3}, {255, 255, 255, 255, 255}, {255, 255, 255, 254, 255},
        {254, 254, 254, 253, 254}, {0, 0, 0, 0, 0}, {10, 0, 0, 0, 3},
    };
    for (const auto &t : cases) {
        // a 2 x 2 one-byte image: rows padded to 4 bytes
        const unsigned char img[8] = {t.a, t.b, 0x5A, 0x5A, t.c, t.d, 0x5A, 0x5A};
        unsigned char out[4] = {0, 0, 0, 0};
        mipmap_halve(img, 2, 2, 1, out);
        EXPECT_EQ(out[0], t.out) << (int)t.a << "," << (int)t.b << "," << (int)t.c << ","
                                 << (int)t.d;
    }
}

TEST(mipmaps, chain_of_a_64_by_16_rgb_image)
{
    int w = 64, h = 16;
    std::vector<unsigned char> level = random_image(w, h, 3, 7);
    const int sizes[][2] = {{32, 8}, {16, 4}, {8, 2}, {4, 1}, {2, 1}, {1, 1}};
    int n = 0;
    while (w > 1 || h > 1) {
        std::vector<unsigned char> next = halve(level, w, h, 3);
        std::vector<unsigned char> want = reference_halve(level, w, h, 3);
        w = w / 2 > 1 ? w / 2 : 1;
        h = h / 2 > 1 ? h / 2 : 1;
        ASSERT_LT(n, 6);
        EXPECT_EQ(w, sizes[n][0]) << "level " << n + 1;
        EXPECT_EQ(h, sizes[n][1]) << "level " << n + 1;
        expect_same_texels(next, want, w, h, 3, "64 x 16 chain");
        level = next;
        ++n;
    }
    EXPECT_EQ(n, 6);
}

// One texel wide or high: the block pairs the edge texel with itself.
TEST(mipmaps, thin_images_follow_the_block_rule)
{
    const struct { int w, h, c; } sizes[] = {{1, 4, 1}, {1, 5, 3}, {1, 1, 4}, {6, 1, 2}, {3, 3, 3}};
    for (const auto &s : sizes) {
        std::vector<unsigned char> img = random_image(s.w, s.h, s.c, 3 + s.w * 7 + s.h);
        int ow = s.w / 2 > 1 ? s.w / 2 : 1, oh = s.h / 2 > 1 ? s.h / 2 : 1;
        expect_same_texels(halve(img, s.w, s.h, s.c), reference_halve(img, s.w, s.h, s.c), ow, oh, s.c, "thin image");
    }
}
