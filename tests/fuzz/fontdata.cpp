// Fuzz target: the font data block loader's packing (packfontdata), which needs no GL. The
// input is a block of glyph records and the widest shelf allowed. The packing may read only
// the block (the block is copied to a buffer of exactly its size), must take the records a
// plain walk of the block finds, and must place every glyph inside the texture, on its shelf,
// without overlapping its neighbours.
#include "Morvane/bitmapfonts.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }   // nothing to set up

static bool power_of_two(int v) { return v > 0 && (v & (v - 1)) == 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    // The loader asks the GL for its texture size and keeps at most 2048; any GL gives 64 or more.
    int maxtx = 64 + fuzz_get<uint16_t>(in) % (2048 - 64 + 1);
    std::string rest = fuzz_rest(in);
    std::vector<unsigned char> block(rest.begin(), rest.end());
    static BitmapFont font;
    memset(&font, 0x5A, sizeof font);   // stale values must not survive the packing
    int records = packfontdata(block.data(), block.size(), maxtx, &font);

    // The whole records from the start of the block, at most font_slots: where they start.
    std::vector<size_t> starts;
    int tallest = 1, widest = 0;
    for (size_t at = 0; (int)starts.size() < font_slots && at + 2 <= block.size();) {
        size_t next = at + 2 + (size_t)block[at] * block[at + 1];
        if (next > block.size()) break;
        starts.push_back(at);
        tallest = std::max(tallest, (int)block[at + 1]), widest = std::max(widest, (int)block[at]);
        at = next;
    }
    FUZZ_CHECK(records == (int)starts.size(), "records %d, the block holds %zu", records, starts.size());
    FUZZ_CHECK(font.lineHeight == tallest, "lineHeight %d, tallest glyph %d", font.lineHeight, tallest);
    FUZZ_CHECK(font.maxGlyphWidth == widest, "maxGlyphWidth %d, widest %d", font.maxGlyphWidth, widest);
    FUZZ_CHECK(power_of_two(font.textureWidth) && power_of_two(font.textureHeight), "texture %dx%d",
               font.textureWidth, font.textureHeight);
    int gap = tallest / 4, shelf_y = 0, shelf_end = 0;   // the current shelf's row and first free column
    for (int i = 0; i < font_slots; i++) {
        int w = i < records ? block[starts[i]] : 0, x = font.glyphX[i], y = font.glyphY[i];
        FUZZ_CHECK(font.glyphWidth[i] == w, "slot %d: width %d, record says %d", i, font.glyphWidth[i], w);
        if (i >= records) continue;
        FUZZ_CHECK(x >= 0 && x + w <= font.textureWidth && y >= 0 && y + tallest <= font.textureHeight,
                   "slot %d: %dx%d at (%d,%d) outside the texture", i, w, tallest, x, y);
        if (y != shelf_y) {
            FUZZ_CHECK(y >= shelf_y + tallest + gap && x == 0, "slot %d: new shelf at (%d,%d) after row %d", i, x, y, shelf_y);
            shelf_y = y, shelf_end = 0;
        }
        FUZZ_CHECK(x >= shelf_end, "slot %d at column %d overlaps the glyph before it", i, x);
        // A shelf is never made wider than maxtx, except by a glyph that is wider on its own.
        FUZZ_CHECK(x == 0 || x + w + gap <= maxtx, "slot %d: ends at %d past maxtx %d", i, x + w + gap, maxtx);
        shelf_end = x + w + gap;
    }
    FUZZ_CHECK(font.referenceAdvance == font.glyphWidth['C' + 0] + 1, "referenceAdvance %d", font.referenceAdvance);
    return 0;
}
