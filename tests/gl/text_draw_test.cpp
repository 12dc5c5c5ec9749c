// Bitmap text on a real GL context (run under Xvfb): the carried fonts' textures and their
// retouched mipmaps, glyph pixels on screen in place and colour, the blend modes, the GL state
// around a drawing cycle, word wrap against the bottom limit, scripts, variants sharing
// textures, the fall-back font and the fatal errors.
#include "gl_fixture.h"

#include <GL/glext.h>
#include <SDL.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <tuple>

#include "Morvane/palette.h"

using namespace views_gl;

namespace {

const int window_width = 640, window_height = 480;
// The carried fonts loaded; the first one loaded stays current.
::testing::Environment *const gl_window =
    ::testing::AddGlobalTestEnvironment(new window(window_width, window_height, false));

struct carried_font {
    const char *name;
    const unsigned char *bytes;
};
const carried_font carried[] = {
    {"captionfont", data_captionfont_fnt}, {"ncgibig", data_ncgibig_fnt}, {"ncgismall", data_ncgismall_fnt}};

BitmapFont *font_named(const char *name) {
    for (int i = 0; i < font_registry.count; i++)
        if (strcmp(font_registry.fonts[i]->name, name) == 0) return font_registry.fonts[i];
    return nullptr;
}

// The record of code c in a block: its width, height and pixels.
struct glyph_record {
    int w, h;
    const unsigned char *pixels;
};
glyph_record record_of(const carried_font &f, int c) {
    size_t offset = 0;
    for (int i = 0; i < c; i++) offset += 2 + (size_t)f.bytes[offset] * f.bytes[offset + 1];
    return {f.bytes[offset], f.bytes[offset + 1], f.bytes + offset + 2};
}

// The palette colour of index k, as a texel or a pixel holds it.
rgb palette_rgb(int k) {
    static float red[256], green[256], blue[256];
    static bool built = (buildpalette(red, green, blue), true);
    (void)built;
    return {(int)(red[k] * 255.9), (int)(green[k] * 255.9), (int)(blue[k] * 255.9)};
}

// Brightest channel in the screen rectangle [x0, x1) x [y0, y1).
int brightest(const screen &s, int x0, int y0, int x1, int y1) {
    int best = 0;
    s.count(x0, y0, x1, y1, [&best](rgb c) { return best = std::max({best, c.r, c.g, c.b}), false; });
    return best;
}


// ---------------------------------------------------------------------------------------
// Loading

TEST(TextGlLoad, TexturesHoldTheGlyphsInPaletteColours) {
    const int sizes[3][2] = {{2048, 64}, {2048, 8}, {1024, 8}};
    for (int n = 0; n < 3; n++) {
        const carried_font &cf = carried[n];
        BitmapFont *f = font_registry.fonts[n];
        SCOPED_TRACE(cf.name);
        ASSERT_STREQ(f->name, cf.name) << "registry keeps the loading order";
        EXPECT_EQ(std::make_tuple(f->textureWidth, f->textureHeight, f->style.base, f->style.slots),
                  std::make_tuple(sizes[n][0], sizes[n][1], f, 512));
        std::vector<unsigned char> level0((size_t)f->textureWidth * f->textureHeight * 4);
        glBindTexture(GL_TEXTURE_2D, f->texture);
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, level0.data());
        std::vector<char> covered(level0.size() / 4, 0);
        for (int c = 0; c < 256; c++) {
            glyph_record g = record_of(cf, c);
            for (int row = 0; row < g.h; row++)
                for (int col = 0; col < g.w; col++) {
                    int k = g.pixels[row * g.w + col];
                    size_t texel = (size_t)(f->glyphY[c] + row) * f->textureWidth + f->glyphX[c] + col;
                    covered[texel] = 1;
                    const unsigned char *t = &level0[texel * 4];
                    rgb want = k == 255 ? rgb{0, 0, 0} : palette_rgb(k);   // index 255 is transparent
                    ASSERT_EQ(std::make_tuple(t[0], t[1], t[2], t[3]),
                              std::make_tuple(want.r, want.g, want.b, k == 255 ? 0 : 255))
                        << "code " << c << " at " << col << "," << row;
                }
        }
        for (size_t texel = 0; texel < covered.size(); texel++)
            if (!covered[texel]) { ASSERT_EQ(level0[texel * 4 + 3], 0) << "texel " << texel; }
    }
    EXPECT_EQ(current_font, font_registry.fonts[0]) << "the first font loaded is current";
}

// Each smaller level's digits are normalised to their brightest byte and lifted by a 0.4
// gamma; everything else is the level as the mipmap builder made it.
TEST(TextGlLoad, DigitsAreRetouchedInSmallerLevels) {
    BitmapFont *f = font_named("ncgibig");
    ASSERT_NE(f, nullptr);
    // The same level 0 in a scratch texture, mipmapped the same way but not retouched.
    std::vector<unsigned char> level0((size_t)f->textureWidth * f->textureHeight * 4);
    glBindTexture(GL_TEXTURE_2D, f->texture);
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, level0.data());
    GLuint scratch;
    glGenTextures(1, &scratch);
    glBindTexture(GL_TEXTURE_2D, scratch);
    upload_texture_level(GL_TEXTURE_2D, 0, 4, f->textureWidth, f->textureHeight, GL_UNSIGNED_BYTE, level0.data());
    generate_mipmaps(GL_TEXTURE_2D);
    int checked_digits = 0;
    for (int level = 1; level <= 3; level++) {
        int w = f->textureWidth >> level, h = std::max(f->textureHeight >> level, 1);
        std::vector<unsigned char> plain((size_t)w * h * 4), font((size_t)w * h * 4);
        glBindTexture(GL_TEXTURE_2D, scratch);
        glGetTexImage(GL_TEXTURE_2D, level, GL_RGBA, GL_UNSIGNED_BYTE, plain.data());
        glBindTexture(GL_TEXTURE_2D, f->texture);
        glGetTexImage(GL_TEXTURE_2D, level, GL_RGBA, GL_UNSIGNED_BYTE, font.data());
        std::vector<unsigned char> expected = plain;
        for (int g = '0'; g <= '9'; g++) {
            int y0 = f->glyphY[g] >> level, y1 = (f->glyphY[g] + f->lineHeight) >> level;
            int x0 = f->glyphX[g] >> level, x1 = x0 + (f->glyphWidth[g] >> level);
            double m = 0.001;
            for (int y = y0; y < y1; y++)
                for (int b = x0 * 4; b < x1 * 4; b++) m = std::max(m, (double)expected[(size_t)y * w * 4 + b]);
            for (int y = y0; y < y1; y++)
                for (int b = x0 * 4; b < x1 * 4; b++) {
                    unsigned char &v = expected[(size_t)y * w * 4 + b];
                    int index = (int)(v * 255.4 / m);
                    v = (unsigned char)(int)(255.9 * pow(index / 255.9, 0.4));
                }
            if (x1 > x0 && y1 > y0) checked_digits++;
        }
        for (size_t i = 0; i < font.size(); i++)
            ASSERT_NEAR(font[i], expected[i], 1) << "level " << level << ", byte " << i;
    }
    EXPECT_GT(checked_digits, 20);
    glDeleteTextures(1, &scratch);
}

TEST(TextGlLoad, FallbackFontForAnEmptyRegistry) {
    fontregistry saved = font_registry;
    BitmapFont *saved_current = current_font;
    fontstyle saved_style = current_style;
    font_registry = fontregistry{nullptr, 0, 0};
    current_font = nullptr;

    BitmapFont *variant = findfont("ghost:scale=2");
    ASSERT_EQ(font_registry.count, 2);
    BitmapFont *ghost = font_registry.fonts[0];
    EXPECT_STREQ(ghost->name, "ghost");
    EXPECT_EQ(std::make_tuple(ghost->lineHeight, ghost->glyphWidth[0], ghost->textureWidth, ghost->textureHeight),
              std::make_tuple(1, 1, 1, 1));
    EXPECT_TRUE(glIsTexture(ghost->texture));
    EXPECT_STREQ(variant->name, "ghost:width=2:height=2");
    EXPECT_EQ(variant->style.base, ghost);
    unloadfontfamily("ghost");
    EXPECT_EQ(font_registry.count, 0);

    free(font_registry.fonts);
    font_registry = saved;
    setfont(saved_current);   // the metrics too
    current_style = saved_style;
}

TEST(TextGlLoadDeathTest, FatalErrors) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");   // a fresh process with its own context
    // 54 glyphs of 255 x 200 take nine shelves of 250 rows: 2250 rows, a 4096-row texture.
    std::vector<unsigned char> tall;
    for (int i = 0; i < 54; i++) tall.push_back(255), tall.push_back(200), tall.insert(tall.end(), 255 * 200, 15);
    EXPECT_EXIT(loadfontdata(tall.data(), tall.size(), "tall"), ::testing::ExitedWithCode(1),
                "FATAL Morvane/bitmapfonts: Font 'tall' required texture of size 2048x4096 but maxtx=2048");
    EXPECT_EXIT(loadfont("/nonexistent/dir/x.fnt", "x"), ::testing::ExitedWithCode(1),
                "FATAL Morvane/bitmapfonts: loadfont: '/nonexistent/dir/x.fnt' not found");
}

// ---------------------------------------------------------------------------------------
// Drawing

struct TextGlDraw : ::testing::Test {
    void SetUp() override {
        glViewport(0, 0, window_width, window_height);
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glOrtho(0, window_width, window_height, 0, -1, 1);
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
        glDisable(GL_BLEND);
        glDisable(GL_TEXTURE_2D);
        glDisable(GL_DEPTH_TEST);
        clear_screen(0);
    }
    void TearDown() override {
        text_blend_mode = 3;
        selectdefaultfont();
    }
};

// Every pixel of the line's box against the glyph bitmaps: each glyph's texels land 1:1 on
// pixels at the pen, tinted by the text colour, with the letter spacing black between them.
void expect_line_pixels(const carried_font &cf, const char *text, int x, int y, rgb tint) {
    selectfont(cf.name);
    int line = current_line_height;
    ASSERT_EQ(line, current_font->lineHeight) << cf.name;
    float spacing = line * 0.1f;
    clear_screen();
    printtext(x, y, text, tint.r << 16 | tint.g << 8 | tint.b);
    screen s = read_screen();
    int x0 = x - 2, y0 = y - 2, w = (int)textwidth(text) + 8, h = line + 4;   // the box, with a margin
    std::vector<rgb> expected((size_t)w * h, rgb{0, 0, 0});
    int pen = x;
    for (const char *p = text; *p; p++) {
        glyph_record g = record_of(cf, (unsigned char)*p);
        for (int row = 0; row < g.h; row++)
            for (int col = 0; col < g.w; col++) {
                int k = g.pixels[row * g.w + col];
                if (k == 255 || *p == ' ') continue;
                rgb c = palette_rgb(k);
                expected[(size_t)(y + row - y0) * w + (pen + col - x0)] = {c.r * tint.r / 255, c.g * tint.g / 255,
                                                                           c.b * tint.b / 255};
            }
        pen += (int)(spacing + 0.5f + g.w);
    }
    int lit = 0;
    for (int py = y0; py < y0 + h; py++)
        for (int px = x0; px < x0 + w; px++) {
            rgb got = s.at(px, py), want = expected[(size_t)(py - y0) * w + (px - x0)];
            ASSERT_TRUE(abs(got.r - want.r) <= 2 && abs(got.g - want.g) <= 2 && abs(got.b - want.b) <= 2)
                << cf.name << " \"" << text << "\" at " << px << "," << py << ": " << got.r << " " << got.g << " "
                << got.b << ", expected " << want.r << " " << want.g << " " << want.b;
            lit += got.r + got.g + got.b > 300;
        }
    EXPECT_GT(lit, 20) << cf.name << ": the text is visible at all";
}

TEST_F(TextGlDraw, GlyphsLandInPlaceAndColour) {
    expect_line_pixels(carried[0], "Fentra", 100, 50, {255, 255, 255});
    expect_line_pixels(carried[2], "Beam lost 12.5%", 37, 211, {0, 255, 255});
    expect_line_pixels(carried[1], "KORA x=3", 300, 400, {255, 255, 0});
}


TEST_F(TextGlDraw, WordWrapStopsAtTheBottomLimit) {
    selectfont("ncgibig");   // 'a' .. 'e' advance 9, the space 3, line height 8
    const char text[] = "aaaa bbbb cccc dddd eeee";
    // Breaks before "cccc" (y 19) and before "eeee" (y 28).
    struct wrap_case { float bottom; float end_y; bool third_line; };
    const wrap_case cases[] = {{0, 28, true}, {30, 28, true}, {25, 28, false}, {15, 19, false}};
    for (const wrap_case &c : cases) {
        clear_screen(0);
        float y = printtextwrapped(10, 10, 100, c.bottom, text, 0xFFFFFF);
        EXPECT_FLOAT_EQ(y, c.end_y) << "bottom " << c.bottom;
        screen s = read_screen();
        EXPECT_GT(brightest(s, 10, 10, 100, 18), 100) << "first line, bottom " << c.bottom;
        EXPECT_EQ(brightest(s, 100, 0, 200, 60) > 100, false) << "nothing right of the limit, bottom " << c.bottom;
        EXPECT_EQ(brightest(s, 10, 28, 100, 36) > 100, c.third_line) << "third line, bottom " << c.bottom;
    }
    // A word longer than the line breaks after the glyph that crosses the limit.
    clear_screen(0);
    float y = printtextwrapped(10, 10, 40, 0, "abcdefgh", 0xFFFFFF);
    EXPECT_FLOAT_EQ(y, 19 + 9) << "breaks after the 4th and the 8th glyph (the last: nothing follows)";
    screen s = read_screen();
    EXPECT_GT(brightest(s, 10, 19, 46, 27), 100) << "efgh on the second line";
    EXPECT_EQ(brightest(s, 47, 0, 100, 40) > 100, false);
}

TEST_F(TextGlDraw, NullAndBoxedText) {
    selectfont("ncgibig");
    clear_screen(0);
    EXPECT_FLOAT_EQ(printtext(10, 10, nullptr, 0xFFFFFF), 10);
    EXPECT_GT(brightest(read_screen(), 10, 10, 10 + (int)textwidth("NULL?"), 18), 100) << "\"NULL?\" is drawn";
    EXPECT_FLOAT_EQ(printtext(10, 50, "", 0xFFFFFF), 50);

    clear_screen(0);
    printtextboxed(100, 100, "ab", 0x000000, 0x0000FF);
    screen box = read_screen();
    // The box covers textwidth x line height in the box colour; the text is black on it.
    EXPECT_EQ(std::make_tuple(box.at(100, 100).b, box.at(117, 107).b, box.at(118, 104).b, box.at(110, 108).b),
              std::make_tuple(255, 255, 0, 0));
}

}  // namespace

// Lines, scripts, Greek letters, a scaled variant, word wrap and colours in one picture.
TEST_F(TextGlDraw, ScriptedTextMatchesItsReferencePicture) {
    selectdefaultfont();
    printtext(10, 10, "Two lines\nof text", 0xFFFFFF);
    char formula[128] = "Luminosity: 2.5 x 10^{33} alpha_{x}^2 Omega";
    compiletext(formula, sizeof formula, -1);
    printtext(10, 80, formula, 0xFFF000);
    selectfont("ncgibig:scale=2");
    printtext(10, 130, "Scaled 2x", 0x00FFFF);
    selectfont("captionfont");
    begintext();
    drawtext(10, 220, 300, 400, "Word wrap keeps whole words together until the bottom limit is passed", 0xFF8080);
    endtext();
    EXPECT_TRUE(matches_reference("text_scene", read_back_buffer(window_width, window_height), window_width,
                                  window_height));
}
