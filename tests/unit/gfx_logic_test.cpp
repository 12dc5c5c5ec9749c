// The window layer's logic without a window: placement on a list of monitors, the camera
// matrices, the circle rules, the key table, typed text, the clip stack, software mipmaps,
// BMP headers, screenshot names and the PNG conversion step.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL_scancode.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <tuple>
#include <vector>

// Primary 1920 x 1080; a second screen to its right; a third to the left, lower down.
static const screen_rect three_monitors[] = {{0, 0, 1920, 1080}, {1920, 0, 3200, 1024}, {-800, 200, 0, 800}};

TEST(placement, areas_by_mode_argument_and_frame)
{
    const struct { const char *what; int mode, arg, windowed, pointer_x, pointer_y, frame, caption;
                   int x, y, w, h, outer_w, outer_h; } cases[] = {
        {"primary screen", 0, 0, 0, 0, 0, 0, 0, 0, 0, 1920, 1080, 1920, 1080},
        {"monitor 3", 0, 3, 0, 0, 0, 0, 0, -800, 200, 800, 600, 800, 600},
        {"monitor 5 of 3 falls back to 1", 0, 5, 0, 0, 0, 0, 0, 0, 0, 1920, 1080, 1920, 1080},
        {"virtual screen", -1, 0, 0, 0, 0, 0, 0, -800, 0, 4000, 1080, 4000, 1080},
        {"mask 0b110: monitors 2 and 3", -1, 0b110, 0, 0, 0, 0, 0, -800, 0, 4000, 1024, 4000, 1024},
        {"windowed: 4:3 on 60 % of the height, centred on the pointer", 0, 0, 1, 960, 540, 0, 0,
         528, 216, 864, 648, 864, 648},
        {"windowed with frame and caption", 0, 0, 1, 960, 540, 4, 23, 524, 201, 864, 648, 872, 679},
        {"windowed, clamped into the virtual screen", 0, 0, 1, -700, 1070, 0, 0, -800, 432, 864, 648, 864, 648},
    };
    for (const auto &c : cases) {
        window_placement p = place_window(c.mode, c.arg, three_monitors, 3, c.windowed, 0, 0, c.pointer_x,
                                          c.pointer_y, c.frame, c.frame, c.caption);
        EXPECT_EQ(std::make_tuple(p.x, p.y, p.width, p.height, p.outer_width, p.outer_height),
                  std::make_tuple(c.x, c.y, c.w, c.h, c.outer_w, c.outer_h))
            << c.what;
    }
}

TEST(matrices, field_of_view_keeps_the_4_by_3_angle)
{
    float m[16];
    matrix_perspective(m, 90, 1, 101, 1920, 1080);
    EXPECT_NEAR(matrix_field_of_view_x(m), 90.0, 1e-4);
    EXPECT_FLOAT_EQ(m[5], (float)(1920.0 / 1080.0));
    for (auto [w, h] : {std::pair{1920, 1080}, std::pair{600, 800}})
        for (double angle : {20.0, 60.0, 120.0}) {
            matrix_field_of_view(m, angle, w, h);
            EXPECT_NEAR(matrix_field_of_view_43(m, w, h), angle, 1e-4) << w << " x " << h << ", " << angle;
            double t = tan(angle * M_PI / 360);
            EXPECT_FLOAT_EQ(m[5], (float)(w * 3 > h * 4 ? 1 / (0.75 * t) : w / (t * h))) << w << " x " << h;
        }
}

TEST(circles, segment_counts_and_culling)
{
    const struct { double r, pixel; int n; } segments[] = {{100, 1, 50}, {1, 1, 5}, {0, 1, 1}, {100, 4, 25}};
    for (const auto &c : segments) EXPECT_EQ(circle_segments(c.r, c.pixel), c.n) << "r " << c.r << ", pixel " << c.pixel;
    EXPECT_EQ(std::make_tuple(arc_segments(-M_PI, 100, 1), arc_segments(0.01, 100, 1)), std::make_tuple(25, 1));
    const struct { const char *what; double x, y, r; int disc, outline; } cases[] = {
        {"touching the left edge", -100, 50, 100, 1, 1},
        {"left of the screen", -200, 50, 100, 0, 0},
        {"right of the screen", 2100, 50, 100, 0, 0},
        {"above", 500, -101, 100, 0, 0},
        {"below", 500, 1181, 100, 0, 0},
        {"huge, containing the screen", 960, 540, 5000, 1, 0},
        {"huge, outline crossing the screen", -4000, 540, 4500, 1, 1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(circle_on_screen(c.x, c.y, c.r, 1920, 1080), c.disc) << c.what;
        EXPECT_EQ(outline_on_screen(c.x, c.y, c.r, 1920, 1080), c.outline) << c.what;
    }
}

TEST(keys, scancodes_to_virtual_keys)
{
    const struct { int scancode, vk; } cases[] = {
        {SDL_SCANCODE_0, '0'}, {SDL_SCANCODE_9, '9'}, {SDL_SCANCODE_Z, 'Z'}, {SDL_SCANCODE_F12, 0x7B},
        {SDL_SCANCODE_F13, 0x7C}, {SDL_SCANCODE_KP_ENTER, 0x0D}, {SDL_SCANCODE_KP_9, 0x69},
        {SDL_SCANCODE_RCTRL, 0xA3}, {SDL_SCANCODE_GRAVE, 0xC0}, {SDL_SCANCODE_MUTE, 0}, {-1, 0},
        {SDL_NUM_SCANCODES, 0},
    };
    for (const auto &c : cases) EXPECT_EQ(scancode_virtual_key(c.scancode), c.vk) << "scancode " << c.scancode;
}

TEST(typed_text, queue_keeps_499_characters_in_order)
{
    typed_text[0] = 0;
    std::string typed, out;
    int kept = 0;
    for (int i = 0; i < 600; ++i) kept += typed_text_append((char)('a' + i % 26)), typed += (char)('a' + i % 26);
    EXPECT_EQ(kept, 499);
    EXPECT_EQ(next_typed_char(), 'a');
    EXPECT_EQ(typed_text_append('!'), 1) << "taking one makes room for one";
    for (char c; out.size() < 600 && (c = next_typed_char()) != 0;) out += c;
    EXPECT_EQ(out, typed.substr(1, 498) + "!");
}

TEST(clip_stack, pushes_intersect_with_the_top)
{
    clip_stack s = {};
    const struct { int in[4], out[4]; } pushes[] = {
        {{0, 0, 100, 100}, {0, 0, 100, 100}},
        {{50, -10, 200, 60}, {50, 0, 100, 60}},
        {{-5, 20, 70, 500}, {50, 20, 70, 60}},
        {{150, 150, 300, 300}, {70, 60, 70, 60}},   // wholly outside: an empty rectangle
    };
    for (const auto &p : pushes) {
        ASSERT_EQ(clip_stack_push(&s, p.in[0], p.in[1], p.in[2], p.in[3]), 1);
        const int *r = s.rect[s.depth - 1];
        EXPECT_EQ(std::make_tuple(r[0], r[1], r[2], r[3]), std::make_tuple(p.out[0], p.out[1], p.out[2], p.out[3]))
            << "push " << s.depth;
    }
    for (int depth : {3, 2, 1, 0, -1}) EXPECT_EQ(clip_stack_pop(&s), depth);
}

// Each output texel is the rounded mean of a 2 x 2 block, (sum + 2) / 4; a block that runs off
// a one-texel-wide or one-texel-high image pairs the edge texel with itself. Rows are padded
// to 4 bytes, the padding holding random bytes.
TEST(mipmaps, halving_follows_the_block_rule)
{
    const struct { int w, h, c; } sizes[] = {{64, 16, 3}, {4, 2, 4}, {6, 1, 2}, {1, 5, 3}, {3, 3, 1}, {1, 1, 4}};
    unsigned seed = 7;
    for (const auto &s : sizes) {
        int ow = s.w / 2 > 1 ? s.w / 2 : 1, oh = s.h / 2 > 1 ? s.h / 2 : 1;
        int in_stride = (s.w * s.c + 3) & ~3, out_stride = (ow * s.c + 3) & ~3;
        std::vector<unsigned char> img((size_t)in_stride * s.h), out((size_t)out_stride * oh);
        for (auto &b : img) b = (unsigned char)((seed = seed * 1103515245u + 12345u) >> 16);
        mipmap_halve(img.data(), s.w, s.h, s.c, out.data());
        auto at = [&](int y, int x, int k) { return img[y * in_stride + (x < s.w ? x : s.w - 1) * s.c + k]; };
        for (int y = 0; y < oh; ++y)
            for (int x = 0; x < ow * s.c; ++x) {
                int y1 = 2 * y + 1 < s.h ? 2 * y + 1 : s.h - 1, t = x / s.c, k = x % s.c;
                int want = (at(2 * y, 2 * t, k) + at(2 * y, 2 * t + 1, k) + at(y1, 2 * t, k) + at(y1, 2 * t + 1, k) + 2) / 4;
                ASSERT_EQ(out[y * out_stride + x], want) << s.w << " x " << s.h << " x " << s.c << ": row " << y << " byte " << x;
            }
    }
}

// The header of a 1366 x 768 screen, byte for byte.
TEST(screenshot, bmp_header_bytes)
{
    const unsigned char want[54] = {
        'B', 'M', 0x36, 0x0C, 0x30, 0x00, 0, 0, 0, 0, 54, 0, 0, 0,   // 54 + 4100 x 768 = 0x300C36
        40, 0, 0, 0, 0x56, 0x05, 0, 0, 0x00, 0x03, 0, 0, 1, 0, 24, 0,
        0, 0, 0, 0, 0x10, 0x0E, 0x03, 0x00, 0x12, 0x0B, 0, 0, 0x12, 0x0B, 0, 0,   // 200208, 2834
        0, 0, 0, 0, 0, 0, 0, 0};
    unsigned char h[54];
    memset(h, 0xEE, sizeof h);
    bmp_header(h, 1366, 768);
    for (int i = 0; i < 54; ++i) EXPECT_EQ(h[i], want[i]) << "byte " << i;
}

TEST(screenshot, file_names)
{
    const struct { const char *name, *ext, *out; } cases[] = {
        {"shots/a.b/picture", "png", "shots/a.png"},   // the scan does not stop at a '/'
        {".profile", "png", ".profile.png"},           // a leading dot does not count
        {"x.tar.gz", "bmp", "x.tar.bmp"},
        {"a.", "png", "a.png"},
    };
    for (const auto &c : cases) {
        char *got = replace_extension(c.name, c.ext);
        EXPECT_STREQ(got, c.out) << c.name << " + " << c.ext;
        free(got);
    }
    char name[64];
    for (auto [t, want] : {std::pair{12.0, "F_00040.bmp"}, {0.3, "F_00001.bmp"}, {3000.45, "F_10001.bmp"}, {30000.3, "F_00001.bmp"}}) {
        screenshot_name(name, sizeof name, "F", t);   // the clock in steps of 0.3 s, wrapping at 30000 s
        EXPECT_STREQ(name, want) << "t = " << t;
    }
}

static std::string file_text(const std::string &name)
{
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The converter found on PATH: "magick" before "convert", else none and the BMP stays, quietly.
// File names holding shell syntax reach the tool literally and run nothing.
TEST(screenshot, converts_with_magick_else_convert_else_keeps_the_bmp)
{
    const struct { const char *stubs[2], *tool; } rows[] = {
        {{"magick", "convert"}, "magick"}, {{"convert", nullptr}, "convert"}, {{nullptr, nullptr}, nullptr}};
    const std::string old_path = getenv("PATH");
    for (const auto &r : rows) {
        char tmpl[] = "/tmp/gfx_bmp_XXXXXX";
        const std::string dir = mkdtemp(tmpl), stem = dir + "/a\"b $(touch pwned) `touch pwned2` 'c'";
        for (const char *stub : r.stubs)
            if (stub) {
                std::ofstream(dir + "/" + stub) << "#!/bin/sh\nprintf '%s\\n' \"${0##*/}\" \"$@\" > '" << dir
                                                << "/args.txt'\n/bin/cp \"$3\" \"$4\"\n";
                chmod((dir + "/" + stub).c_str(), 0755);
            }
        unsigned char pixels[4] = {9, 8, 7, 0};
        setenv("PATH", dir.c_str(), 1);
        write_bmp(pixels, 1, 1, (stem + ".bmp").c_str(), 1);
        setenv("PATH", old_path.c_str(), 1);
        SCOPED_TRACE(r.tool ? r.tool : "no converter");
        EXPECT_EQ(file_text(dir + "/args.txt"),
                  r.tool ? std::string(r.tool) + "\n-quality\n95\n" + stem + ".bmp\n" + stem + ".png\n" : "");
        EXPECT_EQ(file_exists((stem + ".bmp").c_str()), r.tool == nullptr) << "the BMP goes once the PNG is there";
        EXPECT_EQ(file_text(stem + ".png").size(), r.tool ? 58u : 0u);
        EXPECT_FALSE(file_exists("pwned") || file_exists("pwned2") || file_exists((dir + "/pwned").c_str()));
        (void)!system(("rm -rf " + dir).c_str());
    }
}
