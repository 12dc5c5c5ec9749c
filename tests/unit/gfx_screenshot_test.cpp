// Screenshot files without a window: BMP stride and header bytes, the PNG name scan,
// clock-based names, and the conversion step with and without a "magick" on the path.
// (Headers of any size and the written file are the fuzz target bmp's, replayed in the suite.)
#include "Morvane/gfx_opengl.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// The whole header of a 1366 x 768 screen, byte for byte; other sizes differ from it only in
// the file size and the two sides.
TEST(bmp, header_bytes)
{
    const unsigned char full_1366[54] = {
        'B', 'M', 0x36, 0x0C, 0x30, 0x00, 0, 0, 0, 0, 54, 0, 0, 0,   // 54 + 4100 x 768 = 0x300C36
        40, 0, 0, 0, 0x56, 0x05, 0, 0, 0x00, 0x03, 0, 0, 1, 0, 24, 0,
        0, 0, 0, 0, 0x10, 0x0E, 0x03, 0x00, 0x12, 0x0B, 0, 0, 0x12, 0x0B, 0, 0,   // 200208, 2834
        0, 0, 0, 0, 0, 0, 0, 0};
    const struct { int width, height; unsigned file_size; } cases[] = {
        {1366, 768, 0x300C36}, {1, 1, 58}, {2, 3, 78}, {3, 2, 78}, {4, 7, 138}};
    for (const auto &c : cases) {
        unsigned char want[54], h[54];
        memcpy(want, full_1366, 54);
        const unsigned fields[3][2] = {{2, c.file_size}, {18, (unsigned)c.width}, {22, (unsigned)c.height}};
        for (const auto &f : fields)
            for (int i = 0; i < 4; i++) want[f[0] + i] = (unsigned char)(f[1] >> (8 * i));
        memset(h, 0xEE, sizeof h);
        bmp_header(h, c.width, c.height);
        for (int i = 0; i < 54; ++i) EXPECT_EQ(h[i], want[i]) << c.width << " x " << c.height << ", byte " << i;
    }
}

TEST(file_names, extension_scan)
{
    const struct { const char *name, *ext, *out; } cases[] = {
        {"Fentra_00040.bmp", "png", "Fentra_00040.png"},
        {"shots/a.b/picture", "png", "shots/a.png"},   // the scan does not stop at a '/'
        {".profile", "png", ".profile.png"},           // a leading dot does not count
        {"picture", "png", "picture.png"},
        {"a.", "png", "a.png"},
        {"x.tar.gz", "bmp", "x.tar.bmp"},
        {"a.bmp", "", "a."},
        {"b", "jpeg", "b.jpeg"},
    };
    for (const auto &c : cases) {
        char *got = replace_extension(c.name, c.ext);
        EXPECT_STREQ(got, c.out) << c.name << " + " << c.ext;
        free(got);
    }
}

TEST(file_names, screenshot_name_counts_the_clock_in_tenths_of_three)
{
    const struct { double t; const char *out; } cases[] = {
        {12.0, "Fentra_00040.bmp"},
        {0.0, "Fentra_00000.bmp"},
        {0.29, "Fentra_00000.bmp"},
        {0.3, "Fentra_00001.bmp"},       // 0.3 x 3.33.. rounds to exactly 1
        {29999.99, "Fentra_99999.bmp"},
        {30000.0, "Fentra_00000.bmp"},   // wraps every 30000 s
        {30000.3, "Fentra_00001.bmp"},
        {123456.7, "Fentra_11522.bmp"},
    };
    for (const auto &c : cases) {
        char name[64];
        screenshot_name(name, sizeof name, "Fentra", c.t);
        EXPECT_STREQ(name, c.out) << "t = " << c.t;
    }
}

// Writes a BMP into a fresh directory and, with convert set, runs the conversion with
// PATH pointing at `path` only.
struct scratch_dir {
    std::string dir;
    scratch_dir()
    {
        char tmpl[] = "/tmp/gfx_bmp_XXXXXX";
        dir = mkdtemp(tmpl);
    }
    ~scratch_dir() { (void)!system(("rm -rf " + dir).c_str()); }
    std::string at(const char *name) const { return dir + "/" + name; }
};

static std::vector<unsigned char> read_file(const std::string &name)
{
    std::vector<unsigned char> bytes;
    FILE *f = fopen(name.c_str(), "rb");
    if (!f) return bytes;
    int c;
    while ((c = fgetc(f)) != EOF) bytes.push_back((unsigned char)c);
    fclose(f);
    return bytes;
}

// The converter found on PATH: "magick" before "convert", else none and the BMP stays, quietly.
// File names holding shell syntax reach the tool literally and run nothing.
TEST(write_bmp, converts_with_magick_else_convert_else_keeps_the_bmp)
{
    struct row { const char *stubs[2]; const char *tool; };
    const row rows[] = {{{"magick", "convert"}, "magick"}, {{"convert", nullptr}, "convert"}, {{nullptr, nullptr}, nullptr}};
    const std::string old_path = getenv("PATH") ? getenv("PATH") : "";
    for (const row &r : rows) {
        scratch_dir scratch;
        for (const char *stub : r.stubs) {
            if (!stub) continue;
            FILE *f = fopen(scratch.at(stub).c_str(), "w");
            fprintf(f, "#!/bin/sh\nprintf '%%s\\n' \"${0##*/}\" \"$@\" > '%s'\n/bin/cp \"$3\" \"$4\"\n",
                    scratch.at("args.txt").c_str());
            fclose(f);
            chmod(scratch.at(stub).c_str(), 0755);
        }
        const std::string stem = scratch.at("a\"b $(touch pwned) `touch pwned2` 'c'");
        unsigned char pixels[4] = {9, 8, 7, 0};
        setenv("PATH", scratch.dir.c_str(), 1);
        write_bmp(pixels, 1, 1, (stem + ".bmp").c_str(), 1);
        setenv("PATH", old_path.c_str(), 1);
        std::vector<unsigned char> args = read_file(scratch.at("args.txt"));
        SCOPED_TRACE(r.tool ? r.tool : "no converter");
        EXPECT_EQ(std::string(args.begin(), args.end()),
                  r.tool ? std::string(r.tool) + "\n-quality\n95\n" + stem + ".bmp\n" + stem + ".png\n" : "");
        EXPECT_EQ(file_exists((stem + ".bmp").c_str()), r.tool == nullptr) << "the BMP goes once the PNG is there";
        EXPECT_EQ(read_file(stem + ".png").size(), r.tool ? 58u : 0u);
        EXPECT_FALSE(file_exists("pwned") || file_exists("pwned2") || file_exists(scratch.at("pwned").c_str()));
    }
}
