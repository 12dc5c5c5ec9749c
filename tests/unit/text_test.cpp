// Bitmap text without a display: the markup passes and their capacity limits, texts that end at
// their length (measured, and drawn with GL calls that do nothing here), measuring, shelf packing, the current font's metrics, unloading, and font specifiers with their
// variants. (Random input through these is the fuzz targets' markup, fontdata and fontspec,
// replayed in the suite.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>

#include "Morvane/random.h"
#include "carried_data.h"
#include "text_fonts.h"

namespace {

using std::string;
using pass_fn = char *(*)(char *, size_t);

// Compiled items: a script command (scale, raise), a glyph code above 255, a tag command.
string S(int scale, int raise) { return {5, 2, char(scale), char(scale >> 8), char(raise), char(raise >> 8)}; }
string G(int code) { return {2, char(code >> 8), char(code)}; }
string T(int command, unsigned v) { return {5, char(command), char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; }
const string up = S(179, 38), down = S(179, -115), back = S(256, 0);

char *scripts(char *text, size_t capacity) { return scriptcodes(text, capacity, -1, 0, 256); }
char *compile(char *text, size_t capacity) { return compiletext(text, capacity, -1); }

// The compiled bytes of raw run through pass in a buffer of capacity bytes.
string run(pass_fn pass, const string &raw, size_t capacity = 256) {
    std::vector<char> buffer(capacity + 16, '\xA5');
    memcpy(buffer.data(), raw.c_str(), std::min(raw.size() + 1, capacity));
    pass(buffer.data(), capacity);
    return string(buffer.data(), compiledlength(buffer.data()));
}

TEST(TextMarkup, Passes) {
    struct markup_case { const char *name; pass_fn pass; string raw, expected; };
    const markup_case cases[] = {
        {"group, digit run", scripts, "10^{-3} 10^52x", "10" + up + "-3" + back + " 10" + up + "52" + back + "x"},
        {"letter run, one byte", scripts, "x_ab2^-1", "x" + down + "ab" + back + "2" + up + "-" + back + "1"},
        {"nested groups", scripts, "e^{x^{2}}", "e" + up + "x" + S(138, 71) + "2" + up + back},
        {"subscript in superscript", scripts, "a^{b_c}", "a" + up + "b" + S(138, -36) + "c" + up + back},
        {"Greek code run", scripts, string("x^\2\1\0\2\1\x18y", 9), "x" + up + G(256) + G(280) + back + "y"},
        {"missing brace, mark at the end", scripts, "a^{bc^", "a" + up + "bc^" + back},
        {"capitals", greekcodes, "Alpha ALPHA aLPHA alphabet", G(280) + " " + G(280) + " " + G(256) + " " + G(256) + "bet"},
        {"names", greekcodes, "zeta mu=3 piXi the ta VAROMEGA", G(261) + " " + G(267) + "=3 " + G(271) + G(293) + " the ta " + G(308)},
        {"Greek (growing), then scripts", compile, "mu^2", G(267) + up + "2" + back},
        {"colour, tab", tagcodes, "#col=16711680#r#TAB=300#b#size=3#", T(0, 0xFF0000) + "r" + T(1, 300) + "b#size=3#"},
        {"':' is digit 10, no closing '#'", tagcodes, "#col=1:#x#col=6", T(0, 20) + "x" + T(0, 6)},
    };
    for (const markup_case &c : cases) EXPECT_EQ(run(c.pass, c.raw), c.expected) << c.name;
    // One byte short, a replacement is not made. (Every capacity is the fuzz target markup's.)
    EXPECT_EQ(std::make_tuple(run(scripts, "10^{5}", 15), run(greekcodes, "mu", 3), run(tagcodes, "#col=", 6)),
              std::make_tuple("10^{5}", "mu", "#col="));
}

// The length forms take the text's own bytes only: what lies behind them in the buffer (here
// the bytes that would complete the markup) is never read into it, and an item cut by the
// length is dropped.
TEST(TextMarkup, LengthFormsStopAtTheLength) {
    using length_pass = size_t (*)(char *, size_t, size_t);
    length_pass greek = greekcodes, tags = tagcodes;
    length_pass scripts = [](char *t, size_t n, size_t c) { return scriptcodes(t, n, c, -1, 0, 256); };
    length_pass compile = [](char *t, size_t n, size_t c) { return compiletext(t, n, c, -1); };
    struct length_case { const char *name; length_pass pass; string text, behind, expected; };
    const length_case cases[] = {
        {"mark at the end", scripts, "x^", "2", "x^"},
        {"digit run", scripts, "x^1", "23", "x" + up + "1" + back},
        {"group runs to the end", compile, "a^{b", "}c", "a" + up + "b" + back},
        {"name", greek, "alph", "a", "alph"},
        {"tag value", tags, "#col=12", "3#", T(0, 12)},
        {"cut command", tags, "ab\5\2", string(4, '\0'), "ab"},
        {"cut code after a mark", scripts, "x^\2\1", string(1, '\0'), "x^"},
        {"end item inside", greek, string("mu\0pi", 5), "", G(267)},
    };
    for (const length_case &c : cases) {
        string bytes = c.text + c.behind;
        std::vector<char> buffer(bytes.begin(), bytes.end());
        buffer.resize(64, '\xA5');
        size_t length = c.pass(buffer.data(), c.text.size(), buffer.size());
        EXPECT_EQ(string(buffer.data(), length), c.expected) << c.name;
        EXPECT_EQ(buffer[length], 0) << c.name;
    }
}

TEST(TextPacking, Shelves) {
    struct shelf_case { const char *name; std::vector<glyph_shape> glyphs; int maxtx, line, tw, th;
                        std::vector<std::pair<int, int>> at; };   // glyphX, glyphY from glyph 0; the cursor last,
                                                        // where the slots left over sit
    const shelf_case cases[] = {
        {"ending at maxtx stays", {{5, 8, 15}, {5, 8, 15}, {5, 8, 15}}, 14, 8, 16, 32, {{0, 0}, {7, 0}, {0, 10}, {7, 10}}},
        {"too wide widens the texture", {{40, 8, 15}}, 16, 8, 64, 32, {{0, 10}, {42, 10}}},
        {"gap a quarter of the tallest", {{0, 3, 15}, {2, 13, 15}}, 2048, 13, 8, 16, {{0, 0}, {3, 0}, {8, 0}}},
    };
    for (const shelf_case &c : cases) {
        BitmapFont f;   // every table entry must be written
        memset(&f, 0x5A, sizeof f);
        std::vector<unsigned char> bytes = font_block(c.glyphs);
        EXPECT_EQ(std::make_tuple(packfontdata(bytes.data(), bytes.size(), c.maxtx, &f), f.lineHeight, f.textureWidth,
                                  f.textureHeight, f.glyphWidth[511]), std::make_tuple((int)c.glyphs.size(), c.line, c.tw, c.th, 0)) << c.name;
        for (size_t i = 0; i <= c.at.size(); i++)
            EXPECT_EQ(std::make_pair(f.glyphX[i], f.glyphY[i]), c.at[std::min(i, c.at.size() - 1)]) << c.name << ", glyph " << i;
    }
}

// ---------------------------------------------------------------------------------------
// The carried caption font and two synthetic ones: every glyph the same size but the space, 2 x 1.

std::vector<unsigned char> block(int width, int height) {
    std::vector<glyph_shape> glyphs(256, {width, height, 15});
    glyphs[' '] = {2, 1, 255};
    return font_block(glyphs);
}

struct TextFonts : ::testing::Test {
    BitmapFont *caption = register_test_font("captionfont", {data_captionfont_fnt, data_captionfont_fnt + data_captionfont_fnt_size});
    BitmapFont *big = register_test_font("ncgibig", block(8, 8));
    BitmapFont *small = register_test_font("ncgismall", block(3, 5));
    void TearDown() override { text_shader_program = 0, text_screen_space = 1; reset_test_fonts(); }
};

TEST_F(TextFonts, Measuring) {
    setfont(big);   // a glyph 8 wide advances whole_pixels(0.8 spacing + 8 + 0.5)
    const std::pair<const char *, float> cases[] = {{"ab\ncd", 36},      {"a a", 21},          {"", 0}, {"a^2", 9 + 6},
                                                    {"a#tab=100#b", 109}, {"#col=255#ab", 18}, {"alpha", 1}};
    for (const auto &[raw, width] : cases) EXPECT_FLOAT_EQ(textwidth(run(tagcodes, run(compile, raw)).c_str()), width) << raw;
    EXPECT_FLOAT_EQ(textwidth(nullptr), 45) << "measured as \"NULL?\"";
    text_shader_program = 1;
    EXPECT_FLOAT_EQ(textwidth("ab"), 17.6f) << "a text shader's pens are not rounded";
}

// Texts as bytes with their length, in buffers of exactly that size so that a read past the end
// is caught under the address sanitizer.
struct exact_text {
    std::vector<char> bytes;
    explicit exact_text(const string &s) : bytes(s.begin(), s.end()) {}
    std::string_view view() const { return {bytes.data(), bytes.size()}; }
};

// The pen y after drawing text at (10, 0) with a right limit 5 pixels on: the 'a' breaks the
// line after it (9 pixels down), and so does each glyph 8 wide drawn after it.
float drawn_y(std::string_view text) {
    begintext();
    float y = drawtext(10, 0, 15, 0, text, 0xFFFFFF);
    endtext();
    return y;
}

TEST_F(TextFonts, TextsEndAtTheirLength) {
    setfont(big);   // 'a' advances 9; a code above 255 has no glyph here and advances 1
    text_screen_space = 0;
    const std::pair<exact_text, size_t> texts[] = {{exact_text(string("\x02X", 2)), 0}, {exact_text("\x05"), 0}, {exact_text("a\x05"), 1}};
    for (const auto &[text, whole] : texts)
        EXPECT_EQ(std::make_tuple(compiledlength(text.view()), textwidth(text.view()), textwidthn(text.view(), 5), drawn_y(text.view())),
                  std::make_tuple(whole, 9.0f * whole, 9.0f * whole, 9.0f * whole)) << text.view().size() << " bytes";

    // Each item after an 'a', cut at every byte: nothing of it counts until it is whole.
    struct item_case { string item; float whole_width, whole_y; };
    const item_case items[] = {
        {"b", 18, 18},           {"\n", 9, 18},          {G(256), 10, 9},         {G(280), 10, 9},
        {S(179, 38), 9, 8},      {T(0, 0xFF0000), 9, 9},  {T(1, 100), 100, 9},     {string("\2\0A", 3), 18, 18},
    };
    for (const item_case &c : items) {
        for (size_t cut = 0; cut < c.item.size(); cut++) {
            exact_text text("a" + c.item.substr(0, cut));
            EXPECT_EQ(std::make_tuple(compiledlength(text.view()), textwidth(text.view()), textwidthn(text.view(), -1), drawn_y(text.view())),
                      std::make_tuple(size_t(1), 9.0f, 9.0f, 9.0f)) << "item led by " << int(c.item[0]) << " cut after " << cut;
        }
        exact_text text("a" + c.item);
        EXPECT_EQ(std::make_tuple(compiledlength(text.view()), textwidth(text.view()), drawn_y(text.view())),
                  std::make_tuple(1 + c.item.size(), c.whole_width, c.whole_y)) << "whole item led by " << int(c.item[0]);
    }
    // An end item ends a view; the zero-terminated form stops at a code whose high byte is
    // its terminator, and a word to wrap is measured up to the view's end.
    EXPECT_EQ(std::make_tuple(textwidth(std::string_view("ab\0cd", 5)), textwidth("ab\x02"), textwidthn(std::string_view("abc", 3), 2)),
              std::make_tuple(18.0f, 18.0f, 18.0f));
    begintext();
    EXPECT_EQ(std::make_tuple(drawtext(0, 0, 50, 0, exact_text("ab cdef").view(), 0), drawtext(0, 0, 50, 0, exact_text("ab cde\x05").view(), 0)),
              std::make_tuple(9.0f, 0.0f)) << "'cdef' does not fit beside 'ab', 'cde' does";
    endtext();
}

TEST_F(TextFonts, UnloadingABaseTakesItsVariants) {
    findfont("ncgibig:scale=2");
    BitmapFont *caption3 = findfont("captionfont:scale=3");
    findfont("ncgibig:italic");
    setfont(big);
    // Variants go first; then the draws 41 and 18467 pick index (int)(3 x 18467.001 / 32768) = 1
    // among the three that remain.
    random15_restart();
    unloadfont("NCGIBIG");
    EXPECT_EQ(std::make_tuple(font_registry.count, font_registry.fonts[0], font_registry.fonts[1], font_registry.fonts[2],
                              current_font), std::make_tuple(3, caption, small, caption3, small));
    unloadfontfamily("captionfont:scale=3");   // nothing derives from a variant, and it stays
    unloadfont("captionfont");                 // with its variant; not current: no change of font
    EXPECT_EQ(std::make_tuple(font_registry.count, font_registry.fonts[0], current_font), std::make_tuple(1, small, small));
}

TEST_F(TextFonts, Specifiers) {
    setfont(big);   // line height 8, widest glyph 8
    struct specifier_case { const char *text; float sx, sy, skew, bold; };
    const specifier_case cases[] = {
        {":size=50%:scale=2", 1, 1, 0, 0},        {":scale=3:size=4px", 0.5f, 0.5f, 0, 0},
        {":big:small", 1, 1, 0, 0},               {":small:width=24px", 3, 0.6666667f, 0, 0},
        {":height=200%:bold", 1.1f, 2, 0, 0.05f}, {":height=4px:boldness=4px", 1, 0.5f, 0, 0.5f},
        {":boldness=10%:demibold", 1, 1, 0, 0.13f}, {":black:big", 1.8f, 1.5f, 0, 0.08f},
        {":skew=2px:italic", 1, 1, 0.65f, 0},     {":italic:angle=30\xB0", 1, 1, 0.57735027f, 0},
        {":skew=0.3:angle=30\xC2\xB0", 1, 1, 0.57735027f, 0}, {":angle=45\xB0:skew=0.1", 1, 1, 1.1f, 0},
        {":scale=2:italic:normal:width=3", 3, 1, 0, 0}, {"NCGIBIG:SCALE=2:sparkle=7", 2, 2, 0, 0},
        {"nosuchfont:height=2", 1, 2, 0, 0},   // the current font's base
    };
    for (const specifier_case &c : cases) {
        fontstyle k = parsefontspec(c.text);
        EXPECT_TRUE(k.base == big && fabs(k.scaleX - c.sx) < 1e-5 && fabs(k.scaleY - c.sy) < 1e-5 &&
                    fabs(k.skew - c.skew) < 1e-5 && fabs(k.boldness - c.bold) < 1e-5 && k.spare == 0)
            << c.text << ": " << k.scaleX << " " << k.scaleY << " " << k.skew << " " << k.boldness;
    }
    fontstyle named = parsefontspec("CaptionFont");
    EXPECT_EQ(0, memcmp(&named, &caption->style, sizeof named)) << "a registered font's whole style";
    current_font = nullptr;   // a random font: the draws 41, 18467 pick index 1 of 3
    random15_restart();
    EXPECT_EQ(parsefontspec("").base, big);
}

TEST_F(TextFonts, VariantsAreMadeOnceAndReusedWhenClose) {
    selectfont(":scale=2");   // the first font registered is current
    BitmapFont *doubled = current_font;
    EXPECT_STREQ(doubled->name, "captionfont:width=2:height=2");
    EXPECT_EQ(std::make_tuple(font_registry.fonts[font_registry.count - 1], doubled->style.base, doubled->style.slots, doubled->lineHeight,
                              current_line_height, current_cell_width, current_reference_advance, doubled->glyphX[100]),
              std::make_tuple(doubled, caption, 0, 20, 40, 2 * caption->maxGlyphWidth, 2 * caption->referenceAdvance,
                              caption->glyphX[100]));
    fontstyle again = parsefontspec("captionfont:scale=2"), wider = parsefontspec("captionfont:width=2.1:height=2");
    // 5 % wider costs one point in width (the float 2.1 is a hair over 5 % wider).
    EXPECT_NEAR(fontvariantscore(&wider, doubled), 1 - log((double)2.1f / 2) / log(1.05) / 2, 1e-12);
    EXPECT_EQ(std::make_tuple(fontvariantscore(&again, doubled), fontvariant(&wider), font_registry.count),
              std::make_tuple(1.0, doubled, 4));
    EXPECT_STREQ(findfont("captionfont:scale=2.4")->name, "captionfont:width=2.4:height=2.4") << "20 % larger";
    EXPECT_STREQ(findfont("ncgibig:boldness=0.25:skew=0.5")->name, "ncgibig:boldness=0.25:skew=0.5");
}

}  // namespace
