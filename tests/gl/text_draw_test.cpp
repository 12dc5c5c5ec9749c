// Bitmap text on a real GL context (run under Xvfb): one reference picture holds every printable
// glyph of the carried fonts drawn 1:1 from their textures in a colour, line breaks, scripts, a
// scaled variant, digits drawn small from the retouched mipmaps, word wrap with and without a
// bottom limit, and boxed text. Then texts cut inside an item, the fall-back font, shared
// textures and the fatal errors.
#include "gl_fixture.h"

#include <string>
#include <tuple>
#include <utility>

namespace {

// A 640 x 480 window with the carried fonts loaded; the first one loaded stays current.
::testing::Environment *const gl_window = ::testing::AddGlobalTestEnvironment(new views_gl::window(640, 480, views_gl::fonts_first));

TEST(TextGl, SceneMatchesItsReferencePicture) {
    views_gl::clear_screen();
    overlay_begin();   // the box of a boxed text is drawn in the caller's projection
    std::string glyphs;   // the printable codes, 32 to a line
    for (int c = 33; c < 127; c++) glyphs += std::string(1, (char)c) + (c % 32 == 0 ? "\n" : "");
    char formula[128] = "2.5 x 10^{33} cm^{-2}, e^{x^{2}}_i alpha_{x}^2";
    compiletext(formula, sizeof formula, -1);
    struct text { const char *font; float x, y, right; const char *text; int colour; };
    const text texts[] = {
        {"ncgibig", 4, 4, 0, glyphs.c_str(), 0xFFF000},   {"ncgismall", 330, 4, 0, glyphs.c_str(), 0x00FFFF},
        {"captionfont", 4, 36, 0, glyphs.c_str(), 0xFF8080}, {"captionfont", 4, 104, 0, formula, 0xFFFFFF},
        {"ncgibig:scale=2", 330, 104, 0, "Scaled 2x", 0x00FFFF}, {"ncgibig:scale=0.5", 330, 130, 0, "0123456789", 0xFFFFFF},
        {"captionfont:scale=0.25", 400, 130, 0, "0123456789 0123456789", 0xFFFFFF},
        {"captionfont", 4, 140, 300, "Word wrap keeps whole words together until the bottom limit is passed", 0xFF8080},
    };
    for (const text &t : texts) {
        selectfont(t.font);
        printtextwrapped(t.x, t.y, t.right, 0, t.text, t.colour);
    }
    // 'a' .. 'h' advance 9, the space 3, lines 9 apart: breaks before "cccc" and "eeee".
    selectdefaultfont();
    const char *words = "aaaa bbbb cccc dddd eeee";
    EXPECT_EQ(std::make_tuple(printtextwrapped(10, 260, 100, 0, words, 0xFFFFFF),
                              printtextwrapped(110, 260, 200, 275, words, 0xFFFFFF),   // no third line
                              printtextwrapped(210, 260, 300, 265, words, 0xFFFFFF),   // one line
                              printtextwrapped(310, 260, 340, 0, "abcdefgh", 0xFFFFFF),   // after 4th, 8th
                              printtext(400, 260, nullptr, 0xFFFFFF), printtext(400, 280, "", 0xFFFFFF)),
              std::make_tuple(278.0f, 278.0f, 269.0f, 278.0f, 260.0f, 280.0f));
    printtextboxed(460, 260, "ab", 0x000000, 0x0000FF);   // the box in its colour, the text black on it
    overlay_end();
    EXPECT_TRUE(matches_reference("text_scene", read_back_buffer(640, 480), 640, 480));
}

// The picture of text drawn at (10, 10) in the caption font, from a buffer of exactly its bytes.
std::vector<unsigned char> drawn(const std::string &bytes) {
    std::vector<char> exact(bytes.begin(), bytes.end());
    views_gl::clear_screen();
    selectfont("captionfont");
    printtext(10, 10, std::string_view(exact.data(), exact.size()), 0xFFFFFF);
    return read_back_buffer(640, 480);
}

// An item cut by the text's end draws nothing: every cut of a glyph item after an 'a' draws
// the 'a' alone, and the whole item adds its glyph.
TEST(TextGl, AnItemCutByTheEndIsNotDrawn) {
    const std::vector<unsigned char> a = drawn("a");
    const std::string items[] = {"b", std::string("\2\0b", 3)};   // 'b', and 'b' as a 3-byte code
    for (const std::string &item : items) {
        for (size_t cut = 0; cut < item.size(); cut++)
            EXPECT_TRUE(drawn("a" + item.substr(0, cut)) == a) << "item led by " << int(item[0]) << " cut after " << cut;
        EXPECT_FALSE(drawn("a" + item) == a) << "whole item led by " << int(item[0]);
    }
}

TEST(TextGl, FallbackFontAndSharedTextures) {
    BitmapFont *small = font_registry.fonts[2];
    findfont("ncgismall:scale=3");
    unloadfont("ncgismall:scale=3");
    EXPECT_TRUE(glIsTexture(small->texture)) << "unloading a variant keeps its base's texture";

    // An empty registry: the name becomes a 1 x 1 stand-in font, with the variant asked for.
    fontregistry saved = std::exchange(font_registry, fontregistry{nullptr, 0, 0});
    BitmapFont *saved_current = std::exchange(current_font, nullptr);
    BitmapFont *variant = findfont("ghost:scale=2"), *ghost = font_registry.fonts[0];
    EXPECT_EQ(std::make_tuple(font_registry.count, std::string(ghost->name), std::string(variant->name), variant->style.base,
                              ghost->lineHeight, ghost->glyphWidth[0], ghost->textureWidth, ghost->textureHeight,
                              glIsTexture(ghost->texture)),
              std::make_tuple(2, "ghost", "ghost:width=2:height=2", ghost, 1, 1, 1, 1, GL_TRUE));
    unloadfontfamily("ghost");
    EXPECT_EQ(font_registry.count, 0);
    free(font_registry.fonts);
    font_registry = saved;
    setfont(saved_current);
}

TEST(TextGlDeathTest, FatalErrors) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");   // a fresh process with its own context
    // 54 glyphs of 255 x 200 take nine shelves of 250 rows: 2250 rows, a 4096-row texture.
    std::vector<unsigned char> tall;
    for (int i = 0; i < 54; i++) tall.push_back(255), tall.push_back(200), tall.insert(tall.end(), 255 * 200, 15);
    EXPECT_EXIT(loadfontdata(tall.data(), tall.size(), "tall"), ::testing::ExitedWithCode(1),
                "FATAL Morvane/bitmapfonts: Font 'tall' required texture of size 2048x4096 but maxtx=2048");
    EXPECT_EXIT(loadfont("/nonexistent/dir/x.fnt", "x"), ::testing::ExitedWithCode(1),
                "FATAL Morvane/bitmapfonts: loadfont: '/nonexistent/dir/x.fnt' not found");
}

}  // namespace
