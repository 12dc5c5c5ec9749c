// Fuzz target: font specifiers. Three fonts are registered from glyph-record blocks without a
// texture (packfontdata + registerfont, no GL); the input is a specifier, parsed, matched or
// made into a variant, made current and measured with. The key must take the named font (or
// the current one) as its base; one more modifier must change the key as that modifier says;
// a made variant must carry the key's style; and every registry entry must stay valid.
#include "../unit/text_fonts.h"
#include "fuzz_input.h"

// Frees every record (none has a texture) and starts again with three fonts of 256 records:
// glyphs 8 x 8; 20 high, 0 to 12 wide by code; and all 0 wide (pixel boldness divides by 0).
static void reset_fonts() {
    reset_test_fonts();
    const glyph_shape shapes[] = {{8, 8, 15}, {0, 20, 15}, {0, 1, 15}};
    const char *const names[] = {"ncgibig", "CaptionFont", "blank"};
    for (int f = 0; f < 3; f++) {
        std::vector<glyph_shape> glyphs(256, shapes[f]);
        for (int c = 0; c < 256 && f == 1; c++) glyphs[c].width = c % 13;
        register_test_font(names[f], font_block(glyphs));
    }
}

// Checked once at the start: sizes from extreme or undefined specifier values stay whole
// pixels. A pixel boldness on a font whose glyphs are all 0 wide adds nothing, factors beyond
// any screen are held at 2^30 pixels, and an undefined factor gives 0.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // The key's boldness, the line height of the font it makes current, the width of "AB" in it.
    const struct { const char *specifier; float boldness; int line_height; float width_of_AB; } cases[] = {
        {"blank:boldness=1px", 0.0f, 1, 0.0f},                  // spacing (int)(1 x 0.1 + 0.5) = 0
        {"ncgibig:boldness=4px", 0.5f, 8, 2 * 13.0f},           // 8 x 1.5 + 0.8 + 0.5 = 13.3
        {"ncgibig:scale=1e30", 0.0f, 1 << 30, 0x1p31f},
        {"ncgibig:size=nan", 0.0f, 0, 0.0f},
    };
    for (const auto &c : cases) {
        reset_fonts();
        fontstyle key = parsefontspec(c.specifier);
        usefont(&key);
        float width = textwidth(std::string_view("AB"));
        FUZZ_CHECK(key.boldness == c.boldness && current_line_height == c.line_height && width == c.width_of_AB,
                   "'%s': boldness %g, line height %d, width of AB %g", c.specifier, key.boldness, current_line_height, width);
    }
    reset_fonts();
    return 0;
}

static bool registered(const BitmapFont *f) {
    return std::count(font_registry.fonts, font_registry.fonts + font_registry.count, f) > 0;
}

// One modifier appended to a specifier, and the key it must then give, from the key without it.
static const struct suffix_rule { const char *text; fontstyle (*apply)(fontstyle); } suffixes[] = {
    {":normal", [](fontstyle k) { return fontstyle{k.base, 1.0f, 1.0f, 0.0f, 0.0f, 0, 0}; }},
    {":ITALIC", [](fontstyle k) { k.skew += 0.4f; return k; }},
    {":big", [](fontstyle k) { k.scaleX *= 1.5f, k.scaleY *= 1.5f; return k; }},
    {":height=50%", [](fontstyle k) { k.scaleY = (float)(k.scaleY * 0.5); return k; }},
    {":bold", [](fontstyle k) { k.boldness += 0.05f, k.scaleX *= 1.1f; return k; }},
    {":unknown=3", [](fontstyle k) { return k; }},
};

static bool same_key(const fontstyle &a, const fontstyle &b) {
    return fuzz_same(a.scaleX, b.scaleX) && fuzz_same(a.scaleY, b.scaleY) && fuzz_same(a.skew, b.skew) &&
           fuzz_same(a.boldness, b.boldness) && a.base == b.base && a.slots == b.slots && a.spare == b.spare;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    uint8_t mode = fuzz_get<uint8_t>(in);
    // With no current font, an unknown name takes a registered font at random.
    if (mode & 1) current_font = nullptr, current_style = fontstyle{nullptr, 1.0f, 1.0f, 0.0f, 0.0f, 0, 0};
    std::string spec = fuzz_rest(in).c_str();
    const char *s = spec.c_str();
    const BitmapFont *current_base = current_font ? current_font->style.base : nullptr, *named = nullptr;

    fontstyle key = parsefontspec(s);
    std::string name = spec.substr(0, spec.find(':'));
    for (int i = 0; i < font_registry.count && !named && !name.empty(); i++)
        if (strcasecmp(font_registry.fonts[i]->name, name.c_str()) == 0) named = font_registry.fonts[i];
    const BitmapFont *base = named ? named : current_base;
    FUZZ_CHECK(base ? key.base == base : registered(key.base), "'%s': base is not the font named, the current one or any", s);

    const suffix_rule &rule = suffixes[(mode >> 1) % (sizeof suffixes / sizeof suffixes[0])];
    fontstyle longer = parsefontspec((spec + rule.text).c_str());
    // Without a base to go by, the two parses may pick different fonts.
    FUZZ_CHECK(!base || same_key(longer, rule.apply(key)), "'%s' + '%s' does not act as that modifier", s, rule.text);

    int count_before = font_registry.count;
    BitmapFont *variant = fontvariant(&key);
    FUZZ_CHECK(registered(variant) && variant->style.base == key.base, "'%s': variant of another base", s);
    const fontstyle made = {key.base, key.scaleX, key.scaleY, key.skew, key.boldness, 0, 0};
    if (font_registry.count == count_before)
        FUZZ_CHECK(fontvariantscore(&key, variant) > 0, "'%s': reused a record scoring %g", s, fontvariantscore(&key, variant));
    else
        FUZZ_CHECK(font_registry.count == count_before + 1 && variant == font_registry.fonts[count_before] &&
                       same_key(variant->style, made) &&
                       strncasecmp(variant->name, key.base->name, strlen(key.base->name)) == 0,
                   "'%s': the made variant '%s' is not the last record, of the key's style and named after its base", s,
                   variant->name);

    usefont(&key);
    FUZZ_CHECK(current_font == variant || registered(current_font), "'%s': current font not registered", s);
    textwidth(std::string_view("Ag\x02\x01\x05 x"));
    selectfont(s);
    FUZZ_CHECK(registered(findfont(s)), "'%s': findfont gave no registered font", s);
    for (int i = 0; i < font_registry.count; i++)
        FUZZ_CHECK(registered(font_registry.fonts[i]->style.base), "record %d has a base outside the registry", i);
    reset_fonts();
    return 0;
}
