// Fuzz target: the font data block loader's packing (packfontdata), which needs no GL. The
// input is a block of glyph records and the widest shelf allowed. The packing may read only
// the block (the block is copied to a buffer of exactly its size), must take the records a
// plain walk of the block finds, and must place every glyph inside the texture, on its shelf,
// without overlapping its neighbours.
#include <vector>

#include "Morvane/bitmapfonts.h"
#include "fuzz_input.h"

// Whole records from the start of the block, at most 512, with the tallest glyph.
static int walk_records(const std::vector<unsigned char> &block, int *tallest) {
    int records = 0;
    size_t at = 0;
    *tallest = 1;
    while (records < font_slots && at + 2 <= block.size()) {
        size_t size = 2 + (size_t)block[at] * block[at + 1];
        if (at + size > block.size()) break;
        if (block[at + 1] > *tallest) *tallest = block[at + 1];
        at += size;
        records++;
    }
    return records;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }   // nothing to set up

static bool power_of_two(int v) { return v > 0 && (v & (v - 1)) == 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    // The loader asks the GL for its texture size and keeps at most 2048; any GL gives 64 or more.
    int maxtx = 64 + fuzz_u16(in) % (2048 - 64 + 1);
    std::string rest = fuzz_rest(in);
    std::vector<unsigned char> block(rest.begin(), rest.end());

    static BitmapFont font;
    memset(&font, 0x5A, sizeof font);   // stale values must not survive the packing
    int records = packfontdata(block.data(), block.size(), maxtx, &font);

    int tallest = 0;
    int expected_records = walk_records(block, &tallest);
    FUZZ_CHECK(records == expected_records, "records %d, the block holds %d", records, expected_records);
    FUZZ_CHECK(font.lineHeight == tallest, "lineHeight %d, tallest glyph %d", font.lineHeight, tallest);
    FUZZ_CHECK(power_of_two(font.textureWidth) && power_of_two(font.textureHeight), "texture %dx%d",
               font.textureWidth, font.textureHeight);

    int gap = tallest / 4, widest = 0;
    size_t at = 0;
    int shelf_y = 0, shelf_end = 0;   // the current shelf's row and its first free column
    for (int i = 0; i < font_slots; i++) {
        int w = i < records ? block[at] : 0;
        if (i < records) at += 2 + (size_t)block[at] * block[at + 1];
        if (w > widest) widest = w;
        FUZZ_CHECK(font.glyphWidth[i] == w, "slot %d: width %d, record says %d", i, font.glyphWidth[i], w);
        if (i >= records) continue;
        int x = font.glyphX[i], y = font.glyphY[i];
        FUZZ_CHECK(x >= 0 && x + w <= font.textureWidth && y >= 0 && y + tallest <= font.textureHeight,
                   "slot %d: %dx%d at (%d,%d) outside the %dx%d texture", i, w, tallest, x, y,
                   font.textureWidth, font.textureHeight);
        if (y != shelf_y) {
            FUZZ_CHECK(y >= shelf_y + tallest + gap && x == 0, "slot %d: new shelf at (%d,%d) after row %d",
                       i, x, y, shelf_y);
            shelf_y = y;
            shelf_end = 0;
        }
        FUZZ_CHECK(x >= shelf_end, "slot %d at column %d overlaps the glyph before it (free from %d)", i, x, shelf_end);
        // A shelf is never made wider than maxtx, except by a glyph that is wider on its own.
        FUZZ_CHECK(x == 0 || x + w + gap <= maxtx, "slot %d: ends at %d past maxtx %d", i, x + w + gap, maxtx);
        shelf_end = x + w + gap;
    }
    FUZZ_CHECK(font.maxGlyphWidth == widest, "maxGlyphWidth %d, widest %d", font.maxGlyphWidth, widest);
    FUZZ_CHECK(font.referenceAdvance == font.glyphWidth['C' + 0] + 1, "referenceAdvance %d", font.referenceAdvance);
    return 0;
}
