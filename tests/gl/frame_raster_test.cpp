// The CPU's whole-frame drawing against Mesa's GL: shaded triangles of every shape, blended in
// each way the program blends, and text rectangles read texel for pixel from a mipmapped
// texture with the font's filters.
#include "gl_fixture.h"
#include "Morvane/gfx_opengl/web/frame_raster.h"
#include "../web/window_coordinates.h"

#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

static testing::Environment *const environment = testing::AddGlobalTestEnvironment(new views_gl::window(640, 480));

static const int W = 640, H = 480;

struct comparison {
    int largest;      // the largest difference of a channel
};

// Mesa's picture against the frame; rows from the bottom both.
static comparison compare(const frame_raster &f)
{
    std::vector<unsigned char> gl((size_t)W * H * 3);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadBuffer(GL_BACK);
    glReadPixels(0, 0, W, H, GL_RGB, GL_UNSIGNED_BYTE, gl.data());
    comparison c = {0};
    for (int i = 0; i < W * H; i++)
        for (int k = 0; k < 3; k++)
            c.largest = std::max(c.largest, std::abs(gl[(size_t)i * 3 + k] - frame_raster_pixel(f, i % W, i / W)[k]));
    return c;
}

// Both pictures cleared to one colour.
static void fresh(frame_raster *f, const unsigned char rgba[4])
{
    window_coordinates(W, H);
    glClearColor(rgba[0] / 255.0f, rgba[1] / 255.0f, rgba[2] / 255.0f, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    if (f->width != W) frame_raster_resize(f, W, H);
    frame_raster_clear(f, rgba);
}

static float place(std::mt19937 &rng, float lo, float hi)
{
    float v = std::uniform_real_distribution<float>(lo, hi)(rng);
    switch (rng() % 4) {
    case 0: return v;
    case 1: return std::floor(v * 256) / 256;
    case 2: return std::floor(v);                // corners and edges through pixel corners
    default: return std::floor(v) + 0.5f;        // ... and through pixel centres
    }
}

static frame_vertex random_vertex(std::mt19937 &rng, float x0, float y0, float span)
{
    frame_vertex v = {};
    v.x = place(rng, x0, x0 + span), v.y = place(rng, y0, y0 + span);
    for (int c = 0; c < 4; c++) v.rgba[c] = (unsigned char)(rng() % 256);
    return v;
}

static const GLenum gl_factor[] = {GL_ZERO, GL_ONE, GL_SRC_COLOR, GL_ONE_MINUS_SRC_COLOR, GL_SRC_ALPHA,
                                   GL_ONE_MINUS_SRC_ALPHA, GL_DST_COLOR, GL_ONE_MINUS_DST_COLOR};

// The blendings the program uses, and none.
static const frame_blend blendings[] = {
    {false, FACTOR_ONE, FACTOR_ZERO},
    {true, FACTOR_ONE, FACTOR_ONE_MINUS_SRC_COLOUR},
    {true, FACTOR_SRC_ALPHA, FACTOR_ONE_MINUS_SRC_ALPHA},
    {true, FACTOR_DST_COLOUR, FACTOR_ONE_MINUS_SRC_ALPHA},
    {true, FACTOR_ONE, FACTOR_ZERO},
    {true, FACTOR_ZERO, FACTOR_ONE_MINUS_DST_COLOUR},
};

static void gl_blending(const frame_blend &b)
{
    if (b.on) glEnable(GL_BLEND);
    else glDisable(GL_BLEND);
    glBlendFunc(gl_factor[b.src], gl_factor[b.dst]);
}

// Overlapping triangles over a grey ground: where two share an edge through pixel centres,
// each such pixel goes to one of them only, so with blending on an overlap shows twice.
TEST(frame_raster, triangles_cover_and_shade_as_gl_does)
{
    std::mt19937 rng(5);
    frame_raster f = {};
    const unsigned char ground[4] = {90, 60, 30, 255};
    for (const frame_blend &b : blendings) {
        fresh(&f, ground);
        gl_blending(b);
        glBegin(GL_TRIANGLES);
        for (int cell = 0; cell < 48; cell++) {
            float x0 = (float)(cell % 8) * 80, y0 = (float)(cell / 8) * 80;
            float span = cell % 3 == 0 ? 6.0f : 76.0f;   // slivers and large ones
            frame_vertex v[3] = {random_vertex(rng, x0, y0, span), random_vertex(rng, x0, y0, span),
                                 random_vertex(rng, x0, y0, span)};
            frame_vertex fan[3] = {v[0], v[2], random_vertex(rng, x0, y0, span)};   // shares v0-v2
            for (const frame_vertex *t : {v, fan})
                for (int i = 0; i < 3; i++) glColor4ub(t[i].rgba[0], t[i].rgba[1], t[i].rgba[2], t[i].rgba[3]), glVertex2f(t[i].x, t[i].y);
            frame_raster_triangle(&f, v, b);
            frame_raster_triangle(&f, fan, b);
        }
        glEnd();
        comparison c = compare(f);
        EXPECT_LE(c.largest, 1) << "blending " << b.src << " " << b.dst;
    }
    glDisable(GL_BLEND);
    frame_raster_release(&f);
}

TEST(frame_raster, a_triangle_stays_in_the_clip)
{
    frame_raster f = {};
    const unsigned char black[4] = {0, 0, 0, 255};
    fresh(&f, black);
    f.clip[0] = 100, f.clip[1] = 50, f.clip[2] = 200, f.clip[3] = 60;
    frame_vertex v[3] = {{-50, -50, {255, 255, 255, 255}, 0, 0}, {900, -50, {255, 255, 255, 255}, 0, 0},
                         {0, 900, {255, 255, 255, 255}, 0, 0}};
    frame_raster_triangle(&f, v, blendings[0]);
    int lit = 0, outside = 0;
    for (int y = 0; y < H; y++)
        for (int x = 0; x < W; x++)
            if (frame_raster_pixel(f, x, y)[0]) lit++, outside += x < 100 || x >= 200 || y < 50 || y >= 60;
    EXPECT_EQ(lit, 100 * 10);
    EXPECT_EQ(outside, 0);
    frame_raster_release(&f);
}

// A texture of random texels, mipmapped and filtered as the font is.
static std::vector<unsigned char> font_like_texture(std::mt19937 &rng, int size, GLuint *name)
{
    std::vector<unsigned char> texels((size_t)size * size * 4, 0);
    for (size_t i = 0; i < texels.size(); i += 4)   // a third left empty, as between glyphs
        for (int c = 0; c < 4 && rng() % 3; c++) texels[i + c] = (unsigned char)(rng() % 256);
    glGenTextures(1, name);
    glBindTexture(GL_TEXTURE_2D, *name);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexParameteri(GL_TEXTURE_2D, GL_GENERATE_MIPMAP, GL_TRUE);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, size, size, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels.data());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_LOD_BIAS, -0.5f);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    return texels;
}

// Upright rectangles of the texture anywhere and at any magnification, some mirrored, some
// reaching past the texture's edge, in every blending, repeated or clamped: each pixel is the
// texture filtered at its centre times the colour, as GL samples it (Mesa's filter weights
// round on their own: up to 2 apart).
TEST(frame_raster, text_rectangles_sample_the_texture_as_gl_does)
{
    std::mt19937 rng(9);
    const int T = 64;
    GLuint name;
    std::vector<unsigned char> texels = font_like_texture(rng, T, &name);
    frame_raster f = {};
    const unsigned char ground[4] = {40, 160, 220, 255};
    int round = 0;
    for (const frame_blend &b : blendings) {
        const bool repeat = round++ % 2 == 0;
        fresh(&f, ground);
        gl_blending(b);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, repeat ? GL_REPEAT : GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, repeat ? GL_REPEAT : GL_CLAMP_TO_EDGE);
        const frame_texture ft = {texels.data(), T, T, repeat, repeat};
        glEnable(GL_TEXTURE_2D);
        glBegin(GL_QUADS);
        for (int cell = 0; cell < 48; cell++) {
            const float scale = cell % 4 == 0 ? 1.0f : 1.0f + (float)(rng() % 200) / 100.0f;
            const float x0 = (float)((cell % 8) * 80) + place(rng, 0, 8), y0 = (float)((cell / 8) * 80) + place(rng, 0, 8);
            const int w = 1 + (int)(rng() % 24), h = 1 + (int)(rng() % 24);
            const int s0 = (int)(rng() % (T + 8)) - 4, t0 = (int)(rng() % (T + 8)) - 4;   // may pass the edges
            const bool mirror_s = cell % 2, mirror_t = cell % 5 == 0;
            const float sl = (float)(mirror_s ? s0 + w : s0), sr = (float)(mirror_s ? s0 : s0 + w);
            const float tb = (float)(mirror_t ? t0 + h : t0), tt = (float)(mirror_t ? t0 : t0 + h);
            const float x1 = x0 + (float)w * scale, y1 = y0 + (float)h * scale;
            const unsigned char colour[4] = {(unsigned char)(rng() % 256), (unsigned char)(rng() % 256),
                                             (unsigned char)(rng() % 256), (unsigned char)(rng() % 256)};
            frame_vertex q[4] = {{x0, y0, {}, sl, tb}, {x1, y0, {}, sr, tb}, {x1, y1, {}, sr, tt}, {x0, y1, {}, sl, tt}};
            glColor4ub(colour[0], colour[1], colour[2], colour[3]);
            for (frame_vertex &v : q) {
                memcpy(v.rgba, colour, 4);
                glTexCoord2f(v.s / T, v.t / T), glVertex2f(v.x, v.y);
            }
            ASSERT_TRUE(frame_texture_rect(q, 1.41f));
            frame_raster_texture_rect(&f, q, ft, b);
        }
        glEnd();
        glDisable(GL_TEXTURE_2D);
        EXPECT_LE(compare(f).largest, 2) << "blending " << b.src << " " << b.dst << (repeat ? " repeated" : " clamped");
    }
    glDisable(GL_BLEND);
    glDeleteTextures(1, &name);
    frame_raster_release(&f);
}

// Rectangles GL would minify, or that are not upright, are left to GL's own filtering.
TEST(frame_raster, only_upright_magnified_rectangles_are_taken)
{
    struct shape { const char *what; float x0, y0, x1, y1, s0, t0, s1, t1; bool taken; };
    const shape shapes[] = {
        {"one texel a pixel", 10, 20, 18, 30, 0, 0, 8, 10, true},
        {"mirrored in s, anywhere", 10.3f, 20.7f, 18.3f, 30.7f, 8, 0, 0, 10, true},
        {"magnified", 10, 20, 26, 40, 0, 0, 8, 10, true},
        {"1.4 texels a pixel in t", 10, 20, 18, 30, 0, 0, 8, 14, true},
        {"1.5 texels a pixel in s", 10, 20, 18, 30, 0, 0, 12, 10, false},
        {"halved", 10, 20, 14, 25, 0, 0, 8, 10, false},
    };
    for (const shape &s : shapes) {
        frame_vertex q[4] = {{s.x0, s.y0, {}, s.s0, s.t0}, {s.x1, s.y0, {}, s.s1, s.t0},
                             {s.x1, s.y1, {}, s.s1, s.t1}, {s.x0, s.y1, {}, s.s0, s.t1}};
        EXPECT_EQ(frame_texture_rect(q, 1.41f), s.taken) << s.what;
    }
    frame_vertex slanted[4] = {{10, 20, {}, 0, 0}, {18, 21, {}, 8, 0}, {18, 31, {}, 8, 10}, {10, 30, {}, 0, 10}};
    EXPECT_FALSE(frame_texture_rect(slanted, 1.41f));
    frame_vertex turned[4] = {{10, 20, {}, 0, 0}, {18, 20, {}, 0, 8}, {18, 30, {}, 10, 8}, {10, 30, {}, 10, 0}};
    EXPECT_FALSE(frame_texture_rect(turned, 1.41f)) << "s along y";
    frame_vertex crossed[4] = {{10, 20, {}, 0, 0}, {18, 30, {}, 8, 10}, {18, 20, {}, 8, 0}, {10, 30, {}, 0, 10}};
    EXPECT_FALSE(frame_texture_rect(crossed, 1.41f)) << "corners not in turn";
    frame_vertex three[4] = {{10, 20, {}, 0, 0}, {18, 20, {}, 8, 0}, {18, 30, {}, 8, 10}, {18, 20, {}, 8, 0}};
    EXPECT_FALSE(frame_texture_rect(three, 1.41f)) << "three corners";
    frame_vertex flat[4] = {{10, 20, {}, 0, 0}, {18, 20, {}, 8, 0}, {18, 20, {}, 8, 10}, {10, 20, {}, 0, 10}};
    EXPECT_TRUE(frame_texture_rect(flat, 1.41f)) << "no area: nothing to draw";
}

TEST(frame_raster, the_thin_picture_goes_over_the_frame_where_drawn)
{
    frame_raster f = {};
    thin_raster r = {};
    const unsigned char ground[4] = {10, 20, 30, 255}, red[4] = {255, 0, 0, 255};
    fresh(&f, ground);
    thin_raster_resize(&r, W, H);
    thin_raster_line(&r, 5.5f, 100.5f, 305.5f, 100.5f, red);
    thin_raster_point(&r, 600.5f, 400.5f, red);
    frame_raster_put_thin(&f, r);
    int red_pixels = 0, ground_pixels = 0;
    for (int i = 0; i < W * H; i++) {
        const unsigned char *p = f.rgba + (size_t)i * 4;
        red_pixels += p[0] == 255 && p[1] == 0 && p[2] == 0;
        ground_pixels += p[0] == 10 && p[1] == 20 && p[2] == 30 && p[3] == 255;
    }
    EXPECT_EQ(red_pixels, 301);
    EXPECT_EQ(ground_pixels, W * H - 301);
    // rows top first, as the page takes them: the point at (600, 400) from the bottom
    EXPECT_EQ(f.rgba[((size_t)(H - 1 - 400) * W + 600) * 4], 255);
    thin_raster_release(&r);
    frame_raster_release(&f);
}
