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

// Rows of a screen rectangle that hold any lit pixel.
std::vector<int> lit_rows(const screen &s, int x0, int y0, int x1, int y1) {
    std::vector<int> rows;
    for (int y = y0; y < y1; y++)
        if (brightest(s, x0, y, x1, y + 1) > 100) rows.push_back(y);
    return rows;
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

TEST(TextGlLoad, VariantsShareTheTextureUntilTheLastGoes) {
    loadfontdata(data_ncgismall_fnt, data_ncgismall_fnt_size, "spare");
    BitmapFont *spare = font_named("spare");
    ASSERT_NE(spare, nullptr);
    unsigned texture = spare->texture;
    BitmapFont *variant = findfont("spare:scale=3");
    EXPECT_EQ(variant->texture, texture);
    unloadfont("spare:scale=3");
    EXPECT_TRUE(glIsTexture(texture)) << "the base still uses it";
    findfont("spare:big");
    unloadfontfamily("spare");
    EXPECT_EQ(font_named("spare"), nullptr);
    EXPECT_EQ(font_named("spare:width=1.5:height=1.5"), nullptr);
    EXPECT_FALSE(glIsTexture(texture)) << "deleted with the last record that used it";
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

TEST(TextGlLoad, LoadfontReadsAFile) {
    std::string path = std::string(FENTRA_BINARY_DIR) + "/text_test_small.fnt";
    std::ofstream(path, std::ios::binary).write((const char *)data_ncgismall_fnt, data_ncgismall_fnt_size);
    loadfont(path.c_str(), "fromfile");
    BitmapFont *loaded = font_named("fromfile");
    BitmapFont *small = font_named("ncgismall");
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(0, memcmp(loaded->glyphWidth, small->glyphWidth, sizeof small->glyphWidth));
    EXPECT_EQ(loaded->textureWidth, small->textureWidth);
    unloadfont("fromfile");
    remove(path.c_str());
}

// Random blocks as font data: every record is read inside the block and every glyph written
// inside the texture image (the sanitizer build watches both).
TEST(TextGlLoad, RandomBlocksLoadAndUnload) {
    uint32_t state = 77;
    auto next = [&state]() { state = state * 1664525u + 1013904223u; return state >> 8; };
    int loaded = 0;
    for (int iteration = 0; iteration < 150; iteration++) {
        size_t size = next() % 1500;
        std::vector<unsigned char> block(size);
        for (unsigned char &byte : block) byte = (unsigned char)(next() % 3 ? next() % 12 : next());
        BitmapFont probe;
        packfontdata(block.data(), size, 2048, &probe);
        if (probe.textureHeight > 2048) continue;   // would be the fatal "required texture" error
        int count = font_registry.count;
        loadfontdata(block.data(), size, "fuzz");
        ASSERT_EQ(font_registry.count, count + 1);
        BitmapFont *f = font_registry.fonts[count];
        EXPECT_EQ(std::make_tuple(f->textureWidth, f->textureHeight), std::make_tuple(probe.textureWidth, probe.textureHeight))
            << "iteration " << iteration;
        unloadfont("fuzz");
        ASSERT_EQ(font_registry.count, count);
        loaded++;
    }
    EXPECT_GT(loaded, 100);
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
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

TEST_F(TextGlDraw, BlendModes) {
    // An ncgibig glyph is white strokes on an opaque black box; over a grey background:
    struct blend_case { int mode; int stroke, box; };
    const blend_case cases[] = {
        {1, 255, 0},     // copy: the box hides the background
        {2, 128, 0},     // multiply by the glyph, keep what its alpha lets through
        {3, 255, 128},   // add-screen: the box leaves the background as it was
        {4, 255, 0},     // alpha blending: the opaque box covers it
        {7, 128, 128},   // other values keep the caller's blend function (here: keep the screen)
    };
    selectfont("ncgibig");
    glyph_record h = record_of(carried[1], 'H');
    int stroke = -1, box = -1;   // the first stroke and the first box cell, row by row
    for (int i = 0; i < h.w * h.h; i++) {
        if (h.pixels[i] == 15 && stroke < 0) stroke = i;
        if (h.pixels[i] == 0 && box < 0) box = i;
    }
    ASSERT_GE(stroke, 0);
    ASSERT_GE(box, 0);
    for (const blend_case &c : cases) {
        clear_screen(128 / 255.0f);
        text_blend_mode = c.mode;
        glBlendFunc(GL_ZERO, GL_ONE);
        printtext(200, 200, "H", 0xFFFFFF);
        screen s = read_screen();
        EXPECT_NEAR(s.at(200 + stroke % h.w, 200 + stroke / h.w).g, c.stroke, 2) << "blend mode " << c.mode;
        EXPECT_NEAR(s.at(200 + box % h.w, 200 + box / h.w).g, c.box, 2) << "blend mode " << c.mode;
    }
}

// The GL state text drawing touches: switches, depth mask, blend function, bound texture,
// matrix mode, then the modelview and projection matrices.
std::vector<double> gl_state() {
    std::vector<double> s;
    for (GLenum e : {GL_DEPTH_TEST, GL_BLEND, GL_TEXTURE_2D, GL_LIGHTING}) s.push_back(glIsEnabled(e));
    for (GLenum e : {GL_DEPTH_WRITEMASK, GL_BLEND_SRC, GL_BLEND_DST, GL_TEXTURE_BINDING_2D, GL_MATRIX_MODE}) {
        GLint v = 0;
        glGetIntegerv(e, &v);
        s.push_back(v);
    }
    for (GLenum e : {GL_MODELVIEW_MATRIX, GL_PROJECTION_MATRIX}) {
        GLfloat m[16];
        glGetFloatv(e, m);
        s.insert(s.end(), m, m + 16);
    }
    return s;
}

TEST_F(TextGlDraw, StateAfterEndtextIsStateBefore) {
    GLuint texture;
    glGenTextures(1, &texture);
    struct state_case { const char *name; bool depth, blend, tex2d, lighting; GLenum mode; int screen_space; };
    const state_case cases[] = {
        {"all off, modelview", false, false, false, false, GL_MODELVIEW, 1},
        {"all on, projection selected", true, true, true, true, GL_PROJECTION, 1},
        {"depth only, texture matrix", true, false, false, false, GL_TEXTURE, 1},
        {"caller's own coordinates", false, true, false, false, GL_MODELVIEW, 0},
    };
    for (const state_case &c : cases) {
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glOrtho(0, window_width, window_height, 0, -5, 5);
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
        glTranslatef(3, 4, 0);
        glRotatef(7, 0, 0, 1);
        glMatrixMode(c.mode);
        (c.depth ? glEnable : glDisable)(GL_DEPTH_TEST);
        (c.blend ? glEnable : glDisable)(GL_BLEND);
        (c.tex2d ? glEnable : glDisable)(GL_TEXTURE_2D);
        (c.lighting ? glEnable : glDisable)(GL_LIGHTING);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE);
        glBindTexture(GL_TEXTURE_2D, texture);
        glDepthMask(GL_TRUE);
        text_screen_space = c.screen_space;
        std::vector<double> before = gl_state();
        begintext();
        drawtext(10, 10, 0, 0, "state", 0xFFFFFF);
        drawtext(10, 30, 0, 0, "10^{5}", 0xFF0000);
        endtext();
        text_screen_space = 1;
        EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR) << c.name;
        EXPECT_EQ(gl_state(), before) << c.name;
    }
    glMatrixMode(GL_MODELVIEW);
    glDisable(GL_LIGHTING);
    glDeleteTextures(1, &texture);
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

TEST_F(TextGlDraw, SuperscriptIsSmallerRaisedAndFontRestored) {
    selectfont("ncgibig");
    BitmapFont *big = current_font;
    char text[64] = "10^{5}";
    compiletext(text, sizeof text, -1);
    clear_screen(0);
    float end_y = printtext(50, 300, text, 0xFFFFFF);
    EXPECT_FLOAT_EQ(end_y, 300);
    EXPECT_EQ(current_font, big);
    EXPECT_EQ(current_line_height, 8);
    EXPECT_NE(font_named("ncgibig:width=0.699219:height=0.699219"), nullptr);
    // '1' and '0' span rows 300..307; the '5' starts one row higher ((8 x 38 + 128) / 256 = 1)
    // and is 0.7 as tall.
    screen s = read_screen();
    std::vector<int> digits = lit_rows(s, 50, 290, 68, 310), exponent = lit_rows(s, 68, 290, 78, 310);
    ASSERT_FALSE(digits.empty());
    ASSERT_FALSE(exponent.empty());
    EXPECT_GE(digits.front(), 300);
    EXPECT_LE(digits.back(), 307);
    EXPECT_GE(exponent.front(), 299);
    EXPECT_LT(exponent.back(), 305) << "the '5' ends well above the baseline digits";
    EXPECT_LE(exponent.size(), 6u);
}

TEST_F(TextGlDraw, ScaledLineIsTwiceAsLarge) {
    // The same word drawn unscaled and with ":scale=2": its ink is twice as far below the top,
    // twice as tall and twice as wide.
    struct ink { int top, bottom, left, right; };
    auto draw_ink = [](const char *spec) {
        selectfont(spec);
        clear_screen(0);
        printtext(20, 100, "Peak", 0xFFFFFF);
        screen s = read_screen();
        std::vector<int> rows = lit_rows(s, 0, 80, 300, 160);
        ink k{rows.empty() ? -1 : rows.front(), rows.empty() ? -1 : rows.back(), 300, -1};
        for (int x = 0; x < 300; x++)
            if (brightest(s, x, 80, x + 1, 160) > 100) k.left = std::min(k.left, x), k.right = x;
        return k;
    };
    ink normal = draw_ink("captionfont");
    float normal_width = textwidth("Peak");
    ink doubled = draw_ink(":scale=2");
    EXPECT_STREQ(current_font->name, "captionfont:width=2:height=2");
    EXPECT_EQ(current_line_height, 40);
    EXPECT_FLOAT_EQ(textwidth("Peak"), 2 * normal_width) << "glyphs and spacing both double";
    ASSERT_GE(normal.top, 100);
    EXPECT_NEAR(doubled.top - 100, 2 * (normal.top - 100), 1);
    EXPECT_NEAR(doubled.bottom - doubled.top, 2 * (normal.bottom - normal.top), 2);
    EXPECT_NEAR(doubled.right - doubled.left, 2 * (normal.right - normal.left), 3);
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

// A text shader is active only between begintext and endtext, and draws every glyph quad.
TEST_F(TextGlDraw, ShaderProgramIsUsedWhileDrawing) {
    auto create_shader = (PFNGLCREATESHADERPROC)SDL_GL_GetProcAddress("glCreateShader");
    auto shader_source = (PFNGLSHADERSOURCEPROC)SDL_GL_GetProcAddress("glShaderSource");
    auto compile_shader = (PFNGLCOMPILESHADERPROC)SDL_GL_GetProcAddress("glCompileShader");
    auto create_program = (PFNGLCREATEPROGRAMPROC)SDL_GL_GetProcAddress("glCreateProgram");
    auto attach_shader = (PFNGLATTACHSHADERPROC)SDL_GL_GetProcAddress("glAttachShader");
    auto link_program = (PFNGLLINKPROGRAMPROC)SDL_GL_GetProcAddress("glLinkProgram");
    auto delete_program = (PFNGLDELETEPROGRAMPROC)SDL_GL_GetProcAddress("glDeleteProgram");
    ASSERT_TRUE(create_shader && shader_source && compile_shader && create_program && attach_shader &&
                link_program && delete_program);
    const char *vertex = "void main() { gl_Position = ftransform(); }";
    const char *fragment = "void main() { gl_FragColor = vec4(1.0, 0.0, 0.0, 1.0); }";
    GLuint program = create_program();
    for (auto [type, source] : {std::pair{GL_VERTEX_SHADER, vertex}, std::pair{GL_FRAGMENT_SHADER, fragment}}) {
        GLuint shader = create_shader(type);
        shader_source(shader, 1, &source, nullptr);
        compile_shader(shader);
        attach_shader(program, shader);
    }
    link_program(program);

    selectfont("ncgibig");
    glyph_record h = record_of(carried[1], 'H');
    int box = 0;   // first black cell of the glyph
    while (box < h.w * h.h - 1 && h.pixels[box] != 0) box++;
    ASSERT_EQ(h.pixels[box], 0);
    clear_screen(0);
    text_shader_program = program;
    printtext(200, 200, "H", 0xFFFFFF);
    text_shader_program = 0;
    GLint current = -1;
    glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    EXPECT_EQ(current, 0) << "endtext leaves no program in use";
    rgb cell = read_screen().at(200 + box % h.w, 200 + box / h.w);
    EXPECT_TRUE(cell.r == 255 && cell.g == 0) << "the black box cell comes out in the shader's red";
    delete_program(program);
}

}  // namespace
