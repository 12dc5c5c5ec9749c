// Morvane bitmap text: what the files of the text module share among themselves and nobody
// else needs (walking compiled items, measuring with a byte limit, removing a registry entry).
#pragma once

#include <cstddef>
#include <string_view>

#include "Morvane/bitmapfonts.h"

// Bytes taken by the compiled item whose lead byte is at p: 3 for a glyph code above 255,
// 6 for a command, else 1.
inline size_t text_item_size(const char *p) {
    unsigned char lead = (unsigned char)*p;
    return lead == 2 ? 3 : lead == 5 ? 6 : 1;
}

// Length of a zero-terminated compiled text as the reading functions take it: its items up to
// the terminator, or up to a glyph code whose high byte is the terminator (no code above 255
// has a zero high byte). Needs whole items otherwise.
size_t terminated_length(const char *text);

// The same text as a view; a null pointer is the text "NULL?".
inline std::string_view terminated_view(const char *text) {
    if (!text) text = "NULL?";
    return std::string_view(text, terminated_length(text));
}

// Advance of glyph code c at script scale s in font f (its base gives the width), with the
// current line height's spacing, by the monospace, rounded and shader rules.
float text_advance(const BitmapFont *f, int c, int s);

// Whole pixels of a size or position, truncated toward zero. A style may scale a font by any
// factor a specifier gives, even an infinite or undefined one (a pixel boldness on a font whose
// glyphs are all 0 wide): NaN counts as 0 and sizes are held within +-2^30, far beyond any
// screen, so that they stay whole numbers that can still be added to.
inline int whole_pixels(double v) {
    if (!(v == v)) return 0;
    const double limit = 1073741824.0;
    return (int)(v < -limit ? -limit : v > limit ? limit : v);
}

// Width of glyph code c in the base font; codes without a slot have none.
inline int glyph_width_of(const BitmapFont *base, int c) {
    return c >= 0 && c < font_slots ? base->glyphWidth[c] : 0;
}

// Removes the registry entry at index, closing the gap.
void registry_remove(int index);

// A registered font picked at random: index (int)(count x (r1 / 32768 + r2) / 32768), clamped
// to count - 1. Null when the registry is empty (the two draws are still taken).
BitmapFont *random_registered_font();

// Index of the first registered font named name (ignoring case), or -1.
int find_registered_name(const char *name, size_t length);

// Frees one record: its texture too when no other registered record uses it.
void unload_record(BitmapFont *font);
