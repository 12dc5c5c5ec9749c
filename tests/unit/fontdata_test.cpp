// Checks the three fonts carried in data/: their glyph records, the sizes and colours the text
// code relies on, and that the generator in tools/ still makes them byte for byte. (How they
// pack into their textures is checked with the loader's own packing in text_packing_test.)

#include "carried_data.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

struct glyph_record {
  int width, height;
  std::vector<unsigned char> pixels;
};

struct parsed_block {
  std::vector<glyph_record> glyphs;
  size_t end;       // offset just after the last record read
  bool truncated;   // the last record runs past the block
};

// Reads records until the block ends or 512 have been read, as the loader does.
parsed_block parse_block(const unsigned char* bytes, size_t size)
{
  parsed_block block{{}, 0, false};
  while (block.end < size && block.glyphs.size() < 512) {
    if (block.end + 2 > size) return block.truncated = true, block;
    int w = bytes[block.end], h = bytes[block.end + 1];
    size_t next = block.end + 2 + (size_t)w * h;
    if (next > size) return block.truncated = true, block;
    const unsigned char* p = bytes + block.end + 2;
    block.glyphs.push_back({w, h, std::vector<unsigned char>(p, p + w * h)});
    block.end = next;
  }
  return block;
}

struct carried_font {
  const char* name;
  const unsigned char* bytes;
  unsigned size;
  int line_height;
  std::set<int> allowed_pixels;
  int ink;   // the index of a glyph's strokes: every printable glyph has at least one
};

const carried_font fonts[] = {
    {"ncgibig", data_ncgibig_fnt, data_ncgibig_fnt_size, 8, {0, 15, 255}, 15},
    {"ncgismall", data_ncgismall_fnt, data_ncgismall_fnt_size, 5, {0, 7, 15}, 15},
    {"captionfont", data_captionfont_fnt, data_captionfont_fnt_size, 20,
     {4, 11, 12, 15, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35,
      36, 37, 38, 39, 255},
     39},
};

const carried_font& font_named(const std::string& name)
{
  for (const carried_font& f : fonts)
    if (name == f.name) return f;
  throw std::runtime_error("no font " + name);
}

std::vector<glyph_record> glyphs_of(const carried_font& f)
{
  return parse_block(f.bytes, f.size).glyphs;
}

TEST(CarriedFonts, AreExactly256WholeRecordsWithTheirLineHeight)
{
  for (const carried_font& f : fonts) {
    parsed_block block = parse_block(f.bytes, f.size);
    EXPECT_FALSE(block.truncated) << f.name;
    EXPECT_EQ(block.glyphs.size(), 256u) << f.name;
    EXPECT_EQ(block.end, f.size) << f.name << ": records must end exactly at the block's end";
    int tallest = 0;
    for (const glyph_record& g : block.glyphs) tallest = std::max(tallest, g.height);
    EXPECT_EQ(tallest, f.line_height) << f.name;
  }
}

TEST(CarriedFonts, NamedGlyphsHaveTheirSizesAndColours)
{
  struct expected_glyph {
    const char* font;
    int code, width, height;
    int only_pixel;   // -1: any content
  };
  const expected_glyph table[] = {
      {"captionfont", ',', 5, 20, -1},   {"captionfont", 'g', 10, 20, -1},
      {"captionfont", '-', 6, 11, -1},   {"captionfont", '=', 12, 13, -1},
      {"captionfont", 9, 16, 1, 255},    {"captionfont", ' ', 2, 1, 255},
      {"ncgibig", ' ', 2, 1, 255},       {"ncgismall", ' ', 1, 1, 0},
  };
  for (const expected_glyph& e : table) {
    const glyph_record g = glyphs_of(font_named(e.font))[e.code];
    std::string where = std::string(e.font) + " code " + std::to_string(e.code);
    EXPECT_EQ(g.width, e.width) << where;
    EXPECT_EQ(g.height, e.height) << where;
    if (e.only_pixel >= 0) {
      for (unsigned char k : g.pixels) EXPECT_EQ(k, e.only_pixel) << where;
    }
  }
}

#ifdef FONTGEN_PATH
std::vector<unsigned char> read_file(const std::filesystem::path& path)
{
  std::ifstream in(path, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}
#endif

TEST(FontGenerator, ReproducesTheCarriedFontsByteForByte)
{
#ifndef FONTGEN_PATH
  GTEST_SKIP() << "fontgen was not built (FreeType missing)";
#else
  std::filesystem::path dir = std::filesystem::temp_directory_path() /
                              ("fontgen_test_" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  std::string command = std::string(FONTGEN_PATH) + " " + dir.string() + " > " +
                        (dir / "log.txt").string() + " 2>&1";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  for (const carried_font& f : fonts) {
    std::string file = std::string(f.name) + ".fnt";
    std::vector<unsigned char> made = read_file(dir / file);
    std::vector<unsigned char> committed = read_file(std::filesystem::path(FENTRA_SOURCE_DIR) /
                                                     "data" / file);
    EXPECT_EQ(made, committed) << file << " differs from the generator's output";
    EXPECT_EQ(made, std::vector<unsigned char>(f.bytes, f.bytes + f.size))
        << file << " differs from the block built into the program";
  }
  std::filesystem::remove_all(dir);
#endif
}

}   // namespace
