// Screenshot files without a window: BMP stride and header bytes, the PNG name scan,
// clock-based names, and the conversion step with and without a "magick" on the path.
#include "Morvane/gfx_opengl.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

static unsigned read32(const unsigned char *p) { return p[0] | p[1] << 8 | p[2] << 16 | (unsigned)p[3] << 24; }
static unsigned read16(const unsigned char *p) { return p[0] | p[1] << 8; }

TEST(bmp, row_stride_pads_three_bytes_a_pixel_to_four)
{
    const struct { int width, stride; } cases[] = {
        {1366, 4100}, {1, 4}, {2, 8}, {3, 12}, {4, 12}, {5, 16}, {1920, 5760}, {0, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(bmp_row_stride(c.width), c.stride) << "width " << c.width;
}

TEST(bmp, header_fields_for_several_sizes)
{
    const struct { int width, height; } cases[] = {{1366, 768}, {1, 1}, {2, 3}, {3, 2}, {4, 7}};
    for (const auto &c : cases) {
        unsigned char h[54];
        memset(h, 0xEE, sizeof h);
        bmp_header(h, c.width, c.height);
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
        EXPECT_EQ(h[0], 'B');
        EXPECT_EQ(h[1], 'M');
        EXPECT_EQ(read32(h + 2), (unsigned)(54 + c.height * bmp_row_stride(c.width)));
        EXPECT_EQ(read32(h + 6), 0u);            // both reserved words
        EXPECT_EQ(read32(h + 10), 54u);
        EXPECT_EQ(read32(h + 14), 40u);
        EXPECT_EQ(read32(h + 18), (unsigned)c.width);
        EXPECT_EQ(read32(h + 22), (unsigned)c.height);
        EXPECT_EQ(read16(h + 26), 1u);
        EXPECT_EQ(read16(h + 28), 24u);
        EXPECT_EQ(read32(h + 30), 0u);
        EXPECT_EQ(read32(h + 34), 200208u);     // the fixed image-size field, whatever the size
        EXPECT_EQ(read32(h + 38), 2834u);
        EXPECT_EQ(read32(h + 42), 2834u);
        EXPECT_EQ(read32(h + 46), 0u);
        EXPECT_EQ(read32(h + 50), 0u);
    }
}

TEST(bmp, header_bytes_of_a_full_1366_screen)
{
    unsigned char h[54];
    bmp_header(h, 1366, 768);
    const unsigned char expected[54] = {
        'B', 'M', 0x36, 0x0C, 0x30, 0x00, 0, 0, 0, 0, 54, 0, 0, 0,   // 54 + 4100 x 768 = 0x300C36
        40, 0, 0, 0, 0x56, 0x05, 0, 0, 0x00, 0x03, 0, 0, 1, 0, 24, 0,
        0, 0, 0, 0, 0x10, 0x0E, 0x03, 0x00, 0x12, 0x0B, 0, 0, 0x12, 0x0B, 0, 0,
        0, 0, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < 54; ++i) EXPECT_EQ(h[i], expected[i]) << "byte " << i;
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

TEST(write_bmp, file_is_header_then_rows_unchanged)
{
    scratch_dir scratch;
    const int w = 3, h = 2, stride = 12;
    unsigned char pixels[stride * h];
    for (int i = 0; i < stride * h; ++i) pixels[i] = (unsigned char)(i * 7 + 1);
    std::string name = scratch.at("small.bmp");
    write_bmp(pixels, w, h, name.c_str(), 0);
    std::vector<unsigned char> file = read_file(name);
    ASSERT_EQ(file.size(), 54u + stride * h);
    unsigned char header[54];
    bmp_header(header, w, h);
    EXPECT_EQ(0, memcmp(file.data(), header, 54));
    EXPECT_EQ(0, memcmp(file.data() + 54, pixels, stride * h));
}

TEST(write_bmp, conversion_keeps_the_bmp_when_no_png_appears)
{
    scratch_dir scratch;
    std::string old_path = getenv("PATH") ? getenv("PATH") : "";
    unsigned char pixels[4] = {1, 2, 3, 0};
    std::string bmp = scratch.at("keep.bmp");

    setenv("PATH", scratch.dir.c_str(), 1); // no magick here: the command fails
    write_bmp(pixels, 1, 1, bmp.c_str(), 1);
    EXPECT_TRUE(file_exists(bmp.c_str()));
    EXPECT_FALSE(file_exists(scratch.at("keep.png").c_str()));

    // a tool that runs but writes nothing leaves the BMP too
    std::string tool = scratch.at("magick");
    FILE *f = fopen(tool.c_str(), "w");
    fputs("#!/bin/sh\nexit 0\n", f);
    fclose(f);
    chmod(tool.c_str(), 0755);
    write_bmp(pixels, 1, 1, bmp.c_str(), 1);
    EXPECT_TRUE(file_exists(bmp.c_str()));
    setenv("PATH", old_path.c_str(), 1);
}

TEST(write_bmp, conversion_passes_quality_and_both_names_then_deletes_the_bmp)
{
    scratch_dir scratch;
    std::string old_path = getenv("PATH") ? getenv("PATH") : "";
    std::string tool = scratch.at("magick");
    FILE *f = fopen(tool.c_str(), "w");
    fprintf(f, "#!/bin/sh\nprintf '%%s\\n' \"$@\" > '%s'\ncp \"$3\" \"$4\"\n",
            scratch.at("args.txt").c_str());
    fclose(f);
    chmod(tool.c_str(), 0755);
    setenv("PATH", (scratch.dir + ":" + old_path).c_str(), 1);

    unsigned char pixels[8] = {9, 8, 7, 0, 6, 5, 4, 0};
    std::string bmp = scratch.at("two words.bmp");   // the names are quoted in the command
    write_bmp(pixels, 1, 2, bmp.c_str(), 1);
    setenv("PATH", old_path.c_str(), 1);

    EXPECT_FALSE(file_exists(bmp.c_str()));
    std::vector<unsigned char> png = read_file(scratch.at("two words.png"));
    ASSERT_EQ(png.size(), 54u + 8u);   // the stand-in tool copied the BMP
    EXPECT_EQ(png[54], 9);
    std::vector<unsigned char> args = read_file(scratch.at("args.txt"));
    std::string expected = "-quality\n95\n" + bmp + "\n" + scratch.at("two words.png") + "\n";
    EXPECT_EQ(std::string(args.begin(), args.end()), expected);
}

TEST(file_helpers, exists_and_delete)
{
    scratch_dir scratch;
    std::string name = scratch.at("f.txt");
    EXPECT_EQ(file_exists(name.c_str()), 0);
    EXPECT_EQ(delete_file(name.c_str()), 0);
    FILE *f = fopen(name.c_str(), "w");
    fclose(f);
    EXPECT_EQ(file_exists(name.c_str()), 1);
    EXPECT_EQ(delete_file(name.c_str()), 1);
    EXPECT_EQ(file_exists(name.c_str()), 0);
}
