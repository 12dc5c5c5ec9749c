// Morvane bitmap text: the font registry, the current font and its metrics, the shelf packing
// of glyph-record blocks, and unloading (with the shared-texture rule and the random fall-back).
#include <GL/gl.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "Morvane/bitmapfonts/fonts_internal.h"
#include "Morvane/random.h"

fontregistry font_registry = {nullptr, 0, 0};
BitmapFont *current_font = nullptr;
fontstyle current_style = {nullptr, 1.0f, 1.0f, 0.0f, 0.0f, 0, 0};
int current_cell_width = 0;
int current_line_height = 0;
int current_reference_advance = 0;

// ---------------------------------------------------------------------------------------
// [SECTION] Packing

static int power_of_two_at_least(int v) {
    int p = 1;
    while (p < v) p <<= 1;
    return p;
}

int packfontdata(const unsigned char *bytes, size_t count, int maxtx, BitmapFont *font) {
    // First pass: the whole records (a record running past the block ends it) and the
    // tallest glyph, which is the line height.
    int records = 0, line_height = 1;
    size_t offset = 0;
    for (int i = 0; i < font_slots; i++) font->glyphWidth[i] = 0;
    while (records < font_slots && count - offset >= 2) {
        int w = bytes[offset], h = bytes[offset + 1];
        size_t size = 2 + (size_t)w * h;
        if (size > count - offset) break;
        font->glyphWidth[records++] = w;
        if (h > line_height) line_height = h;
        offset += size;
    }
    int gap = line_height / 4;   // keeps mipmapped neighbours from bleeding into each other

    // Second pass: glyphs side by side on shelves one line (plus gap) tall.
    int x = 0, y = 0, needed_width = 1, widest = 0;
    for (int i = 0; i < font_slots; i++) {
        int w = font->glyphWidth[i];
        font->glyphX[i] = x;
        font->glyphY[i] = y;
        if (i >= records) continue;
        x += w + gap;
        if (x > maxtx) {
            y += line_height + gap;
            font->glyphX[i] = 0;
            font->glyphY[i] = y;
            x = w + gap;
        }
        if (font->glyphX[i] + w > needed_width) needed_width = font->glyphX[i] + w;
        if (w > widest) widest = w;
    }
    font->textureWidth = power_of_two_at_least(needed_width);
    font->textureHeight = power_of_two_at_least(y + line_height);
    font->lineHeight = line_height;
    font->maxGlyphWidth = widest;
    font->referenceAdvance = font->glyphWidth[(unsigned char)'C'] + 1;
    return records;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Registry and current font

// The registry holds pointers to the records, not the records.
static const size_t entry_size = sizeof(BitmapFont *); // NOLINT(bugprone-sizeof-expression)

void registerfont(BitmapFont *font) {
    fontregistry &r = font_registry;
    if (!r.fonts) {
        r.capacity = 1;
        r.fonts = (BitmapFont **)malloc(entry_size);
    }
    if (r.count >= r.capacity) {
        r.capacity = (int)((r.count + 1) / 0.8);
        r.fonts = (BitmapFont **)realloc(r.fonts, r.capacity * entry_size);
    }
    r.fonts[r.count++] = font;
    if (!current_font) setfont(font);
}

void registry_remove(int index) {
    fontregistry &r = font_registry;
    if (index < 0 || index >= r.count) return;
    memmove(r.fonts + index, r.fonts + index + 1, (r.count - index - 1) * entry_size);
    r.count--;
}

void setfont(BitmapFont *font) {
    if (!font || font == current_font) return;
    current_font = font;
    current_style = font->style;
    const BitmapFont *base = font->style.base;
    current_cell_width = whole_pixels(base->maxGlyphWidth * font->style.scaleX);
    current_line_height = whole_pixels(base->lineHeight * font->style.scaleY);
    current_reference_advance = whole_pixels(base->referenceAdvance * font->style.scaleX);
}

BitmapFont *random_registered_font() {
    int count = font_registry.count;
    int index = (int)(count * random30() / 32768);
    if (index > count - 1) index = count - 1;
    return index >= 0 ? font_registry.fonts[index] : nullptr;
}

int find_registered_name(const char *name, size_t length) {
    for (int i = 0; i < font_registry.count; i++) {
        const char *n = font_registry.fonts[i]->name;
        if (strlen(n) == length && strncasecmp(n, name, length) == 0) return i;
    }
    return -1;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Unloading

void unload_record(BitmapFont *font) {
    const fontregistry &r = font_registry;
    int index = -1, shared = 0;
    for (int i = 0; i < r.count; i++) {
        if (r.fonts[i] == font) index = i;
        else if (r.fonts[i]->texture == font->texture) shared = 1;
    }
    if (!shared && font->texture != 0) glDeleteTextures(1, &font->texture);
    registry_remove(index);
    int was_current = font == current_font;
    free(font->name);
    free(font);
    if (!was_current) return;
    // No order of earlier fonts is kept, so the successor is any font that remains.
    current_font = nullptr;
    BitmapFont *next = random_registered_font();
    if (next) {
        setfont(next);
    } else {
        current_style = fontstyle{nullptr, 1.0f, 1.0f, 0.0f, 0.0f, 0, 0};
        current_cell_width = current_line_height = current_reference_advance = 0;
    }
}

// The name part of a specifier must name a registered font, else nothing is unloaded.
static BitmapFont *registered_specifier_font(const char *specifier) {
    if (!specifier) return nullptr;
    const char *colon = strchr(specifier, ':');
    size_t length = colon ? (size_t)(colon - specifier) : strlen(specifier);
    if (find_registered_name(specifier, length) < 0) return nullptr;
    return findfont(specifier);
}

// Every record whose base is family is unloaded, from the last to the first, and family itself
// when it is a base font.
static void unload_family(BitmapFont *family) {
    for (int i = font_registry.count - 1; i >= 0; i--) {
        BitmapFont *f = font_registry.fonts[i];
        // The family's own record is freed last, so its address is only compared while valid.
        if (f != family && f->style.base == family) unload_record(f);
    }
    if (family->style.base == family) unload_record(family);
}

// A base font takes its variants with it: they use its glyphs and metrics.
void unloadfont(const char *specifier) {
    BitmapFont *font = registered_specifier_font(specifier);
    if (!font) return;
    if (font->style.base == font) unload_family(font);
    else unload_record(font);
}

void unloadfontfamily(const char *specifier) {
    BitmapFont *family = registered_specifier_font(specifier);
    if (family) unload_family(family);
}
