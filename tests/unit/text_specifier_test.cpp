// Font specifiers without a display: parsing every keyword and unit, name lookup and its
// fall-backs, variant scoring, reuse and creation, and the current-font switches.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "Morvane/random.h"
#include "carried_data.h"
#include "text_fonts.h"

namespace {

struct TextSpecifiers : ::testing::Test {
    BitmapFont *caption = nullptr, *big = nullptr, *small = nullptr;
    void SetUp() override {
        reset_test_fonts();
        caption = register_test_font("captionfont",
                                     {data_captionfont_fnt, data_captionfont_fnt + data_captionfont_fnt_size});
        big = register_test_font("ncgibig", ascii_block(8, 8));
        small = register_test_font("ncgismall", ascii_block(3, 5));
    }
    void TearDown() override { reset_test_fonts(); }
};

TEST_F(TextSpecifiers, KeywordsAndUnits) {
    setfont(big);   // line height 8, widest glyph 8
    struct specifier_case { const char *text; float sx, sy, skew, bold; };
    const float third = 0.6666667f;
    const specifier_case cases[] = {
        {"ncgibig", 1, 1, 0, 0},
        {"ncgibig:scale=2", 2, 2, 0, 0},
        {"ncgibig:size=50%", 0.5f, 0.5f, 0, 0},
        {"ncgibig:size=16px", 2, 2, 0, 0},
        {"ncgibig:scale=3:size=4px", 0.5f, 0.5f, 0, 0},   // pixels set, they do not multiply
        {"ncgibig:big", 1.5f, 1.5f, 0, 0},
        {"ncgibig:small", third, third, 0, 0},
        {"ncgibig:width=3", 3, 1, 0, 0},
        {"ncgibig:width=24px", 3, 1, 0, 0},
        {"ncgibig:height=4px", 1, 0.5f, 0, 0},
        {"ncgibig:height=200%", 1, 2, 0, 0},
        {"ncgibig:boldness=0.2", 1, 1, 0, 0.2f},
        {"ncgibig:boldness=4px", 1, 1, 0, 0.5f},
        {"ncgibig:boldness=10%", 1, 1, 0, 0.1f},
        {"ncgibig:demibold", 1, 1, 0, 0.03f},
        {"ncgibig:bold", 1.1f, 1, 0, 0.05f},
        {"ncgibig:black", 1.2f, 1, 0, 0.08f},
        {"ncgibig:skew=0.25", 1, 1, 0.25f, 0},
        {"ncgibig:skew=2px", 1, 1, 0.25f, 0},
        {"ncgibig:italic", 1, 1, 0.4f, 0},
        {"ncgibig:italic:skew=0.1", 1, 1, 0.5f, 0},
        {"ncgibig:italic:angle=30\xB0", 1, 1, 0.57735027f, 0},
        {"ncgibig:skew=0.3:angle=30\xC2\xB0", 1, 1, 0.57735027f, 0},   // UTF-8 degree sign
        {"ncgibig:angle=45\xB0:italic", 1, 1, 1.4f, 0},
        {"ncgibig:scale=2:scale=3", 6, 6, 0, 0},
        {"ncgibig:bold:big", 1.65f, 1.5f, 0, 0.05f},
        {"ncgibig:scale=2:italic:normal", 1, 1, 0, 0},
        {"NCGIBIG:SCALE=2:Bold", 2.2f, 2, 0, 0.05f},
        {"ncgibig:sparkle=7:scale=2", 2, 2, 0, 0},   // unknown keywords are ignored
    };
    for (const specifier_case &c : cases) {
        fontstyle key = parsefontspec(c.text);
        EXPECT_EQ(key.base, big) << c.text;
        EXPECT_NEAR(key.scaleX, c.sx, 1e-5) << c.text;
        EXPECT_NEAR(key.scaleY, c.sy, 1e-5) << c.text;
        EXPECT_NEAR(key.skew, c.skew, 1e-5) << c.text;
        EXPECT_NEAR(key.boldness, c.bold, 1e-5) << c.text;
        EXPECT_EQ(key.spare, 0) << c.text;
    }
}

TEST_F(TextSpecifiers, NameGivesBaseAndStyle) {
    setfont(small);
    fontstyle named = parsefontspec("CaptionFont");
    EXPECT_EQ(named.base, caption);
    EXPECT_EQ(named.slots, font_slots) << "a registered font's whole style is copied";
    EXPECT_EQ(0, memcmp(&named, &caption->style, sizeof named));

    // Empty or unknown names take the current font's base with the default style.
    for (const char *text : {":scale=2", "nosuchfont:scale=2"}) {
        fontstyle key = parsefontspec(text);
        EXPECT_EQ(key.base, small) << text;
        EXPECT_EQ(key.slots, 0) << text;
        EXPECT_EQ(key.scaleX, 2.0f) << text;
    }

    // With no current font, a random registered font: the first draws 41, 18467 pick index 1 of 3.
    current_font = nullptr;
    random15_restart();
    EXPECT_EQ(parsefontspec("").base, big);
}

TEST_F(TextSpecifiers, ScaleTwoOnCaptionFontMakesOneVariant) {
    selectfont("captionfont");
    int before = font_registry.count;
    selectfont(":scale=2");
    ASSERT_EQ(font_registry.count, before + 1);
    BitmapFont *variant = font_registry.fonts[before];
    EXPECT_STREQ(variant->name, "captionfont:width=2:height=2");
    EXPECT_EQ(std::make_tuple(current_font, variant->style.base, variant->style.slots, variant->texture,
                              variant->lineHeight),
              std::make_tuple(variant, caption, 0, caption->texture, caption->lineHeight));
    EXPECT_EQ(0, memcmp(variant->glyphX, caption->glyphX, sizeof caption->glyphX));
    EXPECT_EQ(std::make_tuple(current_line_height, current_cell_width),
              std::make_tuple(2 * caption->lineHeight, 2 * caption->maxGlyphWidth));

    fontstyle again = parsefontspec("captionfont:scale=2");
    EXPECT_DOUBLE_EQ(fontvariantscore(&again, variant), 1.0);
    EXPECT_EQ(fontvariant(&again), variant);
    EXPECT_EQ(font_registry.count, before + 1);
}

TEST_F(TextSpecifiers, CloseVariantsAreReusedDistantOnesMade) {
    BitmapFont *doubled = findfont("captionfont:scale=2");
    int count = font_registry.count;

    fontstyle five = parsefontspec("captionfont:width=2.1:height=2");
    EXPECT_NEAR(fontvariantscore(&five, doubled), 0.5, 1e-4);
    EXPECT_EQ(fontvariant(&five), doubled) << "5 % wider reuses the variant";
    EXPECT_EQ(font_registry.count, count);

    BitmapFont *wider = findfont("captionfont:scale=2.4");
    EXPECT_NE(wider, doubled) << "20 % larger makes a new variant";
    EXPECT_EQ(font_registry.count, count + 1);
    EXPECT_STREQ(wider->name, "captionfont:width=2.4:height=2.4");

    BitmapFont *styled = findfont("ncgibig:boldness=0.25:skew=0.5");
    EXPECT_STREQ(styled->name, "ncgibig:boldness=0.25:skew=0.5");
    EXPECT_EQ(styled->style.base, big);
}

}  // namespace
