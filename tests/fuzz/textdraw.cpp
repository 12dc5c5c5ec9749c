// Fuzz target: arbitrary bytes with their length, measured and drawn as compiled text, with and
// without word wrap, in monospace and with unrounded advances. The bytes lie in a buffer of
// exactly their size, so a read past their end is caught. A last item cut by the end counts for
// nothing: the width and the pen's final y are those of the whole items before it. Whole text
// gives the same through the zero-terminated forms. Drawing runs without a GL context, whose
// calls do nothing: what is checked is what the walk reads and the y it returns.
#include "../unit/text_fonts.h"
#include "fuzz_input.h"

// A font to measure with: 512 records of widths 1 .. 7, registered without a texture.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    std::vector<glyph_shape> glyphs;
    for (int c = 0; c < font_slots; c++) glyphs.push_back({1 + c % 7, 1 + c % 5, 15});
    register_test_font("fuzzfont", font_block(glyphs));
    text_screen_space = 0;   // no projection to set up without a window
    return 0;
}

// Whether a glyph-code item among the whole items has a zero high byte, which ends a
// zero-terminated text there.
static bool has_zero_high_byte(std::string_view text) {
    for (size_t i = 0; i < text.size(); i += text[i] == 2 ? 3 : text[i] == 5 ? 6 : 1)
        if (text[i] == 2 && text[i + 1] == 0) return true;
    return false;
}

// The pen y after drawing text at (10, 20) in one begin / end cycle.
static float drawn_y(std::string_view text, float right, float bottom) {
    begintext();
    float y = drawtext(10, 20, right, bottom, text, 0xFFFFFF);
    endtext();
    return y;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    uint8_t mode = fuzz_get<uint8_t>(in);
    float right = fuzz_get<int16_t>(in), bottom = fuzz_get<int16_t>(in);
    if (!(mode & 1)) right = bottom = 0;   // no word wrap
    int n = fuzz_get<int16_t>(in);
    std::string rest = fuzz_rest(in);
    std::vector<char> bytes(rest.begin(), rest.end());   // exactly their size
    std::string_view text(bytes.data(), bytes.size());

    text_monospace = (mode >> 1) & 1;
    text_shader_program = (mode >> 2) & 1;
    size_t whole = compiledlength(text);
    std::string_view items = text.substr(0, whole);
    FUZZ_CHECK(whole <= text.size(), "%zu whole bytes of %zu", whole, text.size());
    float width = textwidth(text);
    FUZZ_CHECK(std::isfinite(width) && width == textwidth(items), "width %g, of the whole items %g", width, textwidth(items));
    FUZZ_CHECK(fuzz_same(textwidthn(text, n), textwidthn(items, n)), "width of the first %d bytes", n);
    float y = drawn_y(text, right, bottom);
    FUZZ_CHECK(fuzz_same(y, drawn_y(items, right, bottom)), "pen y %g, of the whole items %g", y, drawn_y(items, right, bottom));
    printtextboxed(0, 0, text, 0xFFFFFF, 0x0000FF);

    // Whole text with no end item inside, as a zero-terminated string.
    if (whole == text.size() && !has_zero_high_byte(text)) {
        std::string terminated(text);
        FUZZ_CHECK(compiledlength(terminated.c_str()) == whole && textwidth(terminated.c_str()) == width,
                   "zero-terminated: %zu bytes, width %g", compiledlength(terminated.c_str()), textwidth(terminated.c_str()));
        FUZZ_CHECK(fuzz_same(textwidthn(terminated.c_str(), n), textwidthn(text, n)), "zero-terminated, first %d bytes", n);
        begintext();
        float terminated_y = drawtext(10, 20, right, bottom, terminated.c_str(), 0xFFFFFF);
        endtext();
        FUZZ_CHECK(fuzz_same(terminated_y, y), "zero-terminated: pen y %g, the view's %g", terminated_y, y);
    }
    text_monospace = 0;
    text_shader_program = 0;
    return 0;
}
