// Bitmap text without a display: shelf packing of glyph-record blocks (synthetic and carried
// ones), the registry's order and growth, the current font's metrics, and unloading. (Random
// and cut-short blocks, and the metrics taken from a block, are the fuzz target fontdata's,
// replayed in the suite.)
#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "Morvane/random.h"
#include "carried_data.h"
#include "text_fonts.h"

namespace {

struct packed {
    BitmapFont font;
    int records;
};

std::unique_ptr<packed> pack(const std::vector<unsigned char> &bytes, int maxtx) {
    auto p = std::make_unique<packed>();
    memset(&p->font, 0x5A, sizeof p->font);   // every table entry must be written
    p->records = packfontdata(bytes.data(), bytes.size(), maxtx, &p->font);
    return p;
}

struct shelf_case {
    const char *name;
    std::vector<glyph_shape> glyphs;
    int maxtx;
    int records, line_height, texture_width, texture_height;
    std::vector<std::pair<int, int>> positions;   // glyphX, glyphY of the first glyphs
};

TEST(TextPacking, ShelvesGapsAndTextureSizes) {
    const shelf_case cases[] = {
        {"one 3x5 glyph, gap 1", {{3, 5, 15}}, 2048, 1, 5, 4, 8, {{0, 0}, {4, 0}}},
        {"third glyph starts a shelf", {{5, 8, 15}, {5, 8, 15}, {5, 8, 15}}, 16, 3, 8, 16, 32,
         {{0, 0}, {7, 0}, {0, 10}, {7, 10}}},
        {"a glyph ending exactly at maxtx stays", {{5, 8, 15}, {5, 8, 15}, {5, 8, 15}}, 14, 3, 8, 16, 32,
         {{0, 0}, {7, 0}, {0, 10}}},
        {"a glyph wider than maxtx widens the texture", {{40, 8, 15}}, 16, 1, 8, 64, 32, {{0, 10}}},
        {"line height is the tallest glyph, gap a quarter of it", {{2, 3, 15}, {2, 13, 15}}, 2048, 2, 13,
         8, 16, {{0, 0}, {5, 0}, {10, 0}}},
        {"zero-width glyphs take only the gap", {{0, 4, 15}, {0, 4, 15}, {3, 4, 15}}, 2048, 3, 4, 8, 4,
         {{0, 0}, {1, 0}, {2, 0}, {6, 0}}},
    };
    for (const shelf_case &c : cases) {
        auto p = pack(font_block(c.glyphs), c.maxtx);
        const BitmapFont &f = p->font;
        SCOPED_TRACE(c.name);
        EXPECT_EQ(std::make_tuple(p->records, f.lineHeight, f.textureWidth, f.textureHeight),
                  std::make_tuple(c.records, c.line_height, c.texture_width, c.texture_height));
        for (size_t i = 0; i < c.positions.size(); i++)
            EXPECT_EQ(std::make_pair(f.glyphX[i], f.glyphY[i]), c.positions[i]) << "glyph " << i;
        // Slots past the block have no width and sit at the cursor where packing ended.
        for (int i = c.records; i < font_slots; i++)
            ASSERT_EQ(std::make_tuple(f.glyphWidth[i], f.glyphX[i], f.glyphY[i]),
                      std::make_tuple(0, f.glyphX[font_slots - 1], f.glyphY[font_slots - 1]))
                << "slot " << i;
    }
}

// The three fonts the program carries, packed against a 2048-texel limit.
TEST(TextPacking, CarriedFonts) {
    struct carried { const char *name; const unsigned char *bytes; unsigned size; int line_height, gap,
                     texture_width, texture_height, shelves; };
    const carried fonts[] = {
        {"captionfont", data_captionfont_fnt, data_captionfont_fnt_size, 20, 5, 2048, 64, 2},
        {"ncgibig", data_ncgibig_fnt, data_ncgibig_fnt_size, 8, 2, 2048, 8, 1},
        {"ncgismall", data_ncgismall_fnt, data_ncgismall_fnt_size, 5, 1, 1024, 8, 1},
    };
    for (const carried &c : fonts) {
        BitmapFont f;
        int records = packfontdata(c.bytes, c.size, 2048, &f);
        EXPECT_EQ(std::make_tuple(records, f.lineHeight, f.textureWidth, f.textureHeight),
                  std::make_tuple(256, c.line_height, c.texture_width, c.texture_height))
            << c.name;
        // Glyphs on one shelf sit their width plus the gap apart.
        int shelves = 1;
        for (int i = 1; i < 256; i++) {
            if (f.glyphY[i] == f.glyphY[i - 1]) {
                ASSERT_EQ(f.glyphX[i], f.glyphX[i - 1] + f.glyphWidth[i - 1] + c.gap) << c.name << " " << i;
            } else {
                ASSERT_EQ(f.glyphY[i], f.glyphY[i - 1] + c.line_height + c.gap) << c.name << " " << i;
                ASSERT_EQ(f.glyphX[i], 0) << c.name << " " << i;
                shelves++;
            }
        }
        EXPECT_EQ(shelves, c.shelves) << c.name;
    }
    BitmapFont caption;
    packfontdata(data_captionfont_fnt, data_captionfont_fnt_size, 2048, &caption);
    EXPECT_EQ(caption.glyphY[255], 25) << "the caption font's second shelf starts at row 25";
}

// ---------------------------------------------------------------------------------------
// Registry

struct TextRegistry : ::testing::Test {
    void SetUp() override { reset_test_fonts(); }
    void TearDown() override { reset_test_fonts(); }
};

TEST_F(TextRegistry, SetfontComputesScaledMetrics) {
    BitmapFont *a = register_test_font("a", ascii_block(6, 10));
    BitmapFont *b = register_test_font("b", ascii_block(8, 8));
    EXPECT_EQ(current_line_height, 10);
    EXPECT_EQ(current_cell_width, 6);
    EXPECT_EQ(current_reference_advance, 7);
    // A variant of a: its metrics come from a's tables scaled by its own style.
    BitmapFont variant = *b;
    variant.style = fontstyle{a, 1.5f, 2.25f, 0.0f, 0.0f, 0, 0};
    setfont(&variant);
    EXPECT_EQ(current_cell_width, 9);
    EXPECT_EQ(current_line_height, 22);
    EXPECT_EQ(current_reference_advance, 10);   // (int)(7 x 1.5)
    EXPECT_EQ(current_style.scaleY, 2.25f);
    setfont(nullptr);
    EXPECT_EQ(current_font, &variant);
    current_line_height = 99;
    setfont(&variant);
    EXPECT_EQ(current_line_height, 99) << "setting the current font again recomputes nothing";
    setfont(b);
    EXPECT_EQ(current_line_height, 8);
}

TEST_F(TextRegistry, UnloadingCurrentFontPicksARandomSuccessor) {
    std::vector<unsigned char> block = ascii_block(8, 8);
    BitmapFont *a = register_test_font("a", block);
    BitmapFont *b = register_test_font("b", block);
    BitmapFont *c = register_test_font("c", block);
    BitmapFont *d = register_test_font("d", block);
    setfont(c);
    // The generator's first draws are 41 and 18467: (int)(3 x (41 / 32768 + 18467) / 32768) = 1.
    random15_restart();
    unloadfont("C");
    ASSERT_EQ(font_registry.count, 3);
    EXPECT_EQ(std::make_tuple(font_registry.fonts[0], font_registry.fonts[1], font_registry.fonts[2], current_font),
              std::make_tuple(a, b, d, b));

    unloadfont("nothing-of-that-name");
    EXPECT_EQ(font_registry.count, 3);
    unloadfont("a");   // not current: no draw, no change of font
    EXPECT_EQ(current_font, b);
    EXPECT_EQ(font_registry.count, 2);
}

TEST_F(TextRegistry, UnloadingFamilyRemovesBaseAndVariants) {
    std::vector<unsigned char> block = ascii_block(8, 8);
    BitmapFont *a = register_test_font("a", block);
    BitmapFont *b = register_test_font("b", block);
    findfont("b:scale=2");
    findfont("a:scale=3");
    findfont("b:italic");
    ASSERT_EQ(font_registry.count, 5);
    unloadfontfamily("b");
    ASSERT_EQ(font_registry.count, 2);
    EXPECT_EQ(font_registry.fonts[0], a);
    EXPECT_STREQ(font_registry.fonts[1]->name, "a:width=3:height=3");
    EXPECT_EQ(current_font, a);
    (void)b;
    // A variant's family is only the variant itself when nothing derives from it: nothing goes.
    unloadfontfamily("a:scale=3");
    EXPECT_EQ(font_registry.count, 2);
}

}  // namespace
