// Test helpers for the bitmap text: glyph-record blocks built in code, fonts registered from
// them without a GL texture, and emptying the registry between tests.
#pragma once

#include <cstdlib>
#include <cstring>
#include <vector>

#include "Morvane/bitmapfonts.h"

struct glyph_shape { int width, height; unsigned char colour; };   // colour: every pixel's

// A block of records: glyphs[i] is the record for code i.
inline std::vector<unsigned char> font_block(const std::vector<glyph_shape> &glyphs) {
    std::vector<unsigned char> bytes;
    for (const glyph_shape &g : glyphs) {
        bytes.insert(bytes.end(), {(unsigned char)g.width, (unsigned char)g.height});
        bytes.insert(bytes.end(), (size_t)g.width * g.height, g.colour);
    }
    return bytes;
}

// Registers a font built from bytes with no texture, as a loaded font is (its own base,
// 512 slots), packed for a 2048 texel wide texture.
inline BitmapFont *register_test_font(const char *name, const std::vector<unsigned char> &bytes) {
    BitmapFont *f = (BitmapFont *)calloc(1, sizeof(BitmapFont));
    packfontdata(bytes.data(), bytes.size(), 2048, f);
    f->name = strdup(name);
    f->style = fontstyle{f, 1.0f, 1.0f, 0.0f, 0.0f, font_slots, 0};
    registerfont(f);
    return f;
}

// Empties the registry and forgets the current font (records are freed; none has a texture).
inline void reset_test_fonts() {
    for (int i = 0; i < font_registry.count; i++) free(font_registry.fonts[i]->name), free(font_registry.fonts[i]);
    free(font_registry.fonts);
    font_registry = fontregistry{nullptr, 0, 0};
    current_font = nullptr;
    current_style = fontstyle{nullptr, 1.0f, 1.0f, 0.0f, 0.0f, 0, 0};
    current_cell_width = current_line_height = current_reference_advance = 0;
}
