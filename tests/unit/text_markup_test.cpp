// Text markup and measuring without a display: the compiled byte sequences of the Greek,
// script and tag passes, buffers too small for the growth, and text widths by the layout
// rules. (Random text through every pass is the fuzz target markup's, replayed in the suite.)
#include <gtest/gtest.h>

#include <string>

#include "text_fonts.h"

namespace {

using bytes = std::vector<unsigned char>;

// The compiled form of raw, run through pass in a buffer of the given capacity (0: roomy).
bytes compiled(const std::string &raw, char *(*pass)(char *, size_t), size_t capacity = 0) {
    if (capacity == 0) capacity = raw.size() * 16 + 64;
    std::vector<char> buffer(capacity, 0);
    memcpy(buffer.data(), raw.c_str(), raw.size() + 1);
    pass(buffer.data(), capacity);
    size_t length = compiledlength(buffer.data());
    return bytes(buffer.begin(), buffer.begin() + length);
}

char *scripts(char *text, size_t capacity) { return scriptcodes(text, capacity, -1, 0, 256); }
char *compile(char *text, size_t capacity) { return compiletext(text, capacity, -1); }

bytes b(std::initializer_list<int> values) {
    bytes out;
    for (int v : values) out.push_back((unsigned char)v);
    return out;
}

std::string show(const bytes &v) {
    std::string s;
    for (unsigned char c : v) {
        if (c >= 32 && c < 127) s.push_back((char)c);
        else s.append("<").append(std::to_string(c)).append(">");
    }
    return s;
}

// Script command bytes: 5, 2, scale u16, raise s16, little-endian.
#define SCRIPT(scale, raise) 5, 2, (scale) & 255, (scale) >> 8, (raise) & 255, ((raise) >> 8) & 255

TEST(TextMarkup, ScriptSequences) {
    struct script_case { const char *name; std::string raw; bytes expected; };
    const script_case cases[] = {
        {"braced superscript", "10^{5}", b({'1', '0', SCRIPT(179, 38), '5', SCRIPT(256, 0)})},
        {"digit run", "10^52x", b({'1', '0', SCRIPT(179, 38), '5', '2', SCRIPT(256, 0), 'x'})},
        {"letter run only", "x_ab2", b({'x', SCRIPT(179, -115), 'a', 'b', SCRIPT(256, 0), '2'})},
        {"one other byte", "x^-1", b({'x', SCRIPT(179, 38), '-', SCRIPT(256, 0), '1'})},
        {"nested groups", "e^{x^{2}}",
         b({'e', SCRIPT(179, 38), 'x', SCRIPT(138, 71), '2', SCRIPT(179, 38), SCRIPT(256, 0)})},
        {"subscript in superscript", "a^{b_c}",
         b({'a', SCRIPT(179, 38), 'b', SCRIPT(138, -36), 'c', SCRIPT(179, 38), SCRIPT(256, 0)})},
        {"run of Greek codes", std::string("x^\x02\x01\x00\x02\x01\x18y", 9),
         b({'x', SCRIPT(179, 38), 2, 1, 0, 2, 1, 24, SCRIPT(256, 0), 'y'})},
        {"negative exponent group", "10^{-3} m", b({'1', '0', SCRIPT(179, 38), '-', '3', SCRIPT(256, 0), ' ', 'm'})},
        {"missing close brace", "a^{bc", b({'a', SCRIPT(179, 38), 'b', 'c', SCRIPT(256, 0)})},
        {"mark at the very end stays", "ab^", b({'a', 'b', '^'})},
        {"two scripts", "a^2b_3", b({'a', SCRIPT(179, 38), '2', SCRIPT(256, 0), 'b', SCRIPT(179, -115), '3', SCRIPT(256, 0)})},
    };
    for (const script_case &c : cases) {
        // Copied with its length: Greek codes hold zero bytes.
        std::vector<char> buffer(256, 0);
        memcpy(buffer.data(), c.raw.data(), c.raw.size());
        scriptcodes(buffer.data(), buffer.size(), -1, 0, 256);
        bytes got(buffer.begin(), buffer.begin() + compiledlength(buffer.data()));
        EXPECT_EQ(got, c.expected) << c.name << ": got " << show(got) << ", expected " << show(c.expected);
    }
}

TEST(TextMarkup, GreekNames) {
    struct greek_case { const char *raw; bytes expected; };
    const greek_case cases[] = {
        {"Alpha", b({2, 1, 24})},
        {"ALPHA", b({2, 1, 24})},
        {"aLPHA", b({2, 1, 0})},
        {"alphabet", b({2, 1, 0, 'b', 'e', 't'})},
        {"zeta", b({2, 1, 5})},          // not "z" + eta
        {"beta", b({2, 1, 1})},
        {"mu=3", b({2, 1, 11, '=', '3'})}, // a two-letter name grows by one byte
        {"Omega", b({2, 1, 47})},
        {"vartheta", b({2, 1, 50})},
        {"varphi", b({2, 1, 51})},
        {"VAROMEGA", b({2, 1, 52})},     // var-names have no capital forms
        {"vardelta", b({2, 1, 48})},
        {"piXi", b({2, 1, 15, 2, 1, 37})},
        {"the ta", b({'t', 'h', 'e', ' ', 't', 'a'})},
    };
    for (const greek_case &c : cases) {
        bytes got = compiled(c.raw, greekcodes);
        EXPECT_EQ(got, c.expected) << c.raw << ": got " << show(got);
    }
    EXPECT_EQ(compiled("sigma^2", compile), b({2, 1, 17, SCRIPT(179, 38), '2', SCRIPT(256, 0)}));
}

TEST(TextMarkup, Tags) {
    struct tag_case { const char *raw; bytes expected; };
    const tag_case cases[] = {
        {"#col=16711680#red", b({5, 0, 0, 0, 255, 0, 'r', 'e', 'd'})},
        {"a#TAB=300#b", b({'a', 5, 1, 44, 1, 0, 0, 'b'})},
        {"#Col=#", b({5, 0, 0, 0, 0, 0})},
        {"x#col=65280", b({'x', 5, 0, 0, 255, 0, 0})},   // runs to the end without a '#'
        {"#col=1:#x", b({5, 0, 20, 0, 0, 0, 'x'})},      // ':' is taken as the digit 10
        {"#size=3#", b({'#', 's', 'i', 'z', 'e', '=', '3', '#'})},
    };
    for (const tag_case &c : cases) {
        bytes got = compiled(c.raw, tagcodes);
        EXPECT_EQ(got, c.expected) << c.raw << ": got " << show(got);
    }
}

// A pass with too little room makes no replacement that does not fit, stops there, and never
// writes a byte at or past the capacity (the guard bytes behind it stay as they were).
TEST(TextMarkup, SmallBuffersAreNeverOverrun) {
    struct room_case { const char *raw; char *(*pass)(char *, size_t); };
    const room_case cases[] = {
        {"10^{5}", scripts}, {"x_ab2 y^3", scripts}, {"e^{x^{2}}", scripts}, {"a^{b^{c^{d}}}", scripts},
        {"mu nu xi", greekcodes}, {"#col=", tagcodes}, {"pi^{mu}", compile},
    };
    const unsigned char guard = 0xA5;
    for (const room_case &c : cases) {
        bytes full = compiled(c.raw, c.pass);
        size_t needed = full.size() + 1;
        for (size_t capacity = 1; capacity <= needed + 2; capacity++) {
            std::vector<char> buffer(capacity + 32, (char)guard);
            size_t copy = std::min(strlen(c.raw) + 1, capacity);
            memcpy(buffer.data(), c.raw, copy);
            c.pass(buffer.data(), capacity);
            for (size_t i = capacity; i < buffer.size(); i++)
                ASSERT_EQ((unsigned char)buffer[i], guard) << c.raw << ", capacity " << capacity << ", byte " << i;
            size_t length = compiledlength(buffer.data());
            ASSERT_LT(length, capacity) << c.raw << ", capacity " << capacity;
            bytes got(buffer.begin(), buffer.begin() + length);
            if (capacity >= needed) {
                EXPECT_EQ(got, full) << c.raw << ", capacity " << capacity;
            }
        }
    }
    // Refusal leaves the markup as written: one byte short, nothing of "10^{5}" is replaced.
    char buffer[16] = "10^{5}";
    scriptcodes(buffer, 15, -1, 0, 256);
    EXPECT_STREQ(buffer, "10^{5}");
}

// ---------------------------------------------------------------------------------------
// Measuring

struct TextMeasure : ::testing::Test {
    BitmapFont *font = nullptr;
    void SetUp() override {
        reset_test_fonts();
        font = register_test_font("measure", ascii_block(8, 8));   // line height 8: spacing 0.8
    }
    void TearDown() override {
        text_monospace = 0;
        text_shader_program = 0;
        text_letter_spacing = 0.1f;
        reset_test_fonts();
    }
    static float width_of(const std::string &raw, bool compile_first = false) {
        std::vector<char> buffer(raw.size() * 16 + 64, 0);
        memcpy(buffer.data(), raw.data(), raw.size());
        if (compile_first) {
            compiletext(buffer.data(), buffer.size(), -1);
            tagcodes(buffer.data(), buffer.size());
        }
        return textwidth(buffer.data());
    }
};

TEST_F(TextMeasure, AdvancesAndCommands) {
    struct width_case { const char *name, *raw; bool markup; float width; };
    const width_case cases[] = {
        {"glyph 8 wide advances (int)(0.8 + 0.5 + 8)", "ab", false, 18},
        {"narrow glyph and space", "i i", false, 9},
        {"line break adds nothing", "ab\ncd", false, 36},
        {"same as without the break", "abcd", false, 36},
        {"empty text", "", false, 0},
        {"superscript at scale 179", "a^2", true, 9 + 6},
        {"pen x set by a tab", "a#tab=100#b", true, 109},
        {"colour command measures nothing", "#col=255#ab", true, 18},
        {"Greek code without a glyph: spacing only", "alpha", true, 1},
    };
    for (const width_case &c : cases) EXPECT_FLOAT_EQ(width_of(c.raw, c.markup), c.width) << c.name;
    EXPECT_FLOAT_EQ(textwidth(nullptr), 45) << "a null text measures as \"NULL?\"";
}

}  // namespace
