// Morvane bitmap text: the library's drawing settings and the layout rules that drawing and
// measuring share (glyph advance, letter spacing, monospace), and measuring text width.
#include <cstdint>

#include "Morvane/bitmapfonts/fonts_internal.h"

int text_screen_space = 1;
float text_scale_x = 1.0f, text_scale_y = 1.0f;
int text_blend_mode = 3;
float text_letter_spacing = 0.1f;
unsigned char text_monospace = 0;
unsigned text_shader_program = 0;

float text_advance(const BitmapFont *f, int c, int s) {
    if (text_monospace) return (float)current_reference_advance;
    const BitmapFont *base = f->style.base;
    float width = glyph_width_of(base, c) - 2 * base->padding;
    float sx = f->style.scaleX * s / 256;
    float spacing = current_line_height * text_letter_spacing;
    float advance = spacing + width * sx * (1 + f->style.boldness);
    // A text shader places glyphs itself and can use fractional pens; fixed-function drawing
    // keeps every pen on a whole pixel so that glyph texels land on screen pixels.
    return text_shader_program ? advance : (float)whole_pixels(advance + 0.5);
}

size_t terminated_length(const char *text) {
    size_t i = 0;
    while (text[i] && !(text[i] == 2 && text[i + 1] == 0)) i += text_item_size(text + i);
    return i;
}

// The whole items of text that start before byte limit.
static float measure(std::string_view text, size_t limit) {
    const BitmapFont *f = current_font;
    if (!f) return 0;
    text = text.substr(0, compiledlength(text));
    int s = 256;
    float x = 0;
    for (size_t i = 0; i < text.size() && i < limit; i += text_item_size(text.data() + i)) {
        const unsigned char *p = (const unsigned char *)text.data() + i;
        if (p[0] == 2) {
            x += text_advance(f, p[1] * 256 + p[2], s);
        } else if (p[0] == 5) {
            uint32_t payload = p[2] | p[3] << 8 | p[4] << 16 | (uint32_t)p[5] << 24;
            if (p[1] == text_command_pen_x) x = (float)(int32_t)payload;
            else if (p[1] == text_command_script) s = payload & 0xFFFF;
        } else if (p[0] != 10) {
            x += text_advance(f, p[0], s);
        }
    }
    return x;
}

float textwidth(std::string_view text) {
    return measure(text, text.size());
}

float textwidthn(std::string_view text, int n) {
    return measure(text, n < 0 ? text.size() : (size_t)n);
}

float textwidth(const char *text) {
    return textwidth(terminated_view(text));
}

float textwidthn(const char *text, int n) {
    return textwidthn(terminated_view(text), n);
}
