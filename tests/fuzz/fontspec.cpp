// Fuzz target: font specifiers. Three fonts are registered from glyph-record blocks without a
// texture (packfontdata + registerfont, no GL); the input is a specifier, parsed, matched or
// made into a variant, made current and measured with. The key must take the named font (or
// the current one) as its base; one more modifier must change the key as that modifier says;
// a made variant must carry the key's style; and every registry entry must stay valid.
#include <strings.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "../unit/text_fonts.h"
#include "fuzz_input.h"

// Blocks of 256 records: every glyph width x height, or widths that vary with the code.
static std::vector<unsigned char> block(int width, int height, bool varied) {
    std::vector<glyph_shape> glyphs;
    for (int c = 0; c < 256; c++) glyphs.push_back({varied ? c % 13 : width, height, 15});
    return font_block(glyphs);
}

// Frees every record (none has a texture) and starts again with the three fonts.
static void reset_fonts() {
    static const std::vector<unsigned char> big = block(8, 8, false), caption = block(0, 20, true),
                                            blank = block(0, 1, false);
    reset_test_fonts();
    register_test_font("ncgibig", big);
    register_test_font("CaptionFont", caption);
    register_test_font("blank", blank);   // every width 0: pixel boldness divides by 0
}

// Checked once at the start: sizes from extreme or undefined specifier values stay whole
// pixels. A pixel boldness on a font whose glyphs are all 0 wide adds nothing, factors beyond
// any screen are held at 2^30 pixels, and an undefined factor gives 0.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const float held = 1073741824.0f;
    // The key's boldness, the line height of the font it makes current, the width of "AB" in it.
    const struct { const char *specifier; float boldness; int line_height; float width_of_AB; } cases[] = {
        {"blank:boldness=1px", 0.0f, 1, 0.0f},                  // spacing (int)(1 x 0.1 + 0.5) = 0
        {"ncgibig:boldness=4px", 0.5f, 8, 2 * 13.0f},           // 8 x 1.5 + 0.8 + 0.5 = 13.3
        {"ncgibig:scale=1e30", 0.0f, (int)held, 2 * held},
        {"ncgibig:size=nan", 0.0f, 0, 0.0f},
    };
    for (const auto &c : cases) {
        reset_fonts();
        fontstyle key = parsefontspec(c.specifier);
        usefont(&key);
        float width = textwidth("AB");
        FUZZ_CHECK(key.boldness == c.boldness && current_line_height == c.line_height && width == c.width_of_AB,
                   "'%s': boldness %g, line height %d, width of AB %g", c.specifier, key.boldness, current_line_height,
                   width);
    }
    reset_fonts();
    return 0;
}

static bool registered(const BitmapFont *f) {
    return std::find(font_registry.fonts, font_registry.fonts + font_registry.count, f) !=
           font_registry.fonts + font_registry.count;
}

// One modifier appended to a specifier, and the key it must then give, from the key without it.
struct suffix_rule {
    const char *text;
    fontstyle (*apply)(fontstyle);
};
static const suffix_rule suffixes[] = {
    {":normal", [](fontstyle k) { return fontstyle{k.base, 1.0f, 1.0f, 0.0f, 0.0f, 0, 0}; }},
    {":ITALIC", [](fontstyle k) { k.skew += 0.4f; return k; }},
    {":big", [](fontstyle k) { k.scaleX *= 1.5f, k.scaleY *= 1.5f; return k; }},
    {":height=50%", [](fontstyle k) { k.scaleY = (float)(k.scaleY * 0.5); return k; }},
    {":bold", [](fontstyle k) { k.boldness += 0.05f, k.scaleX *= 1.1f; return k; }},
    {":unknown=3", [](fontstyle k) { return k; }},
};

static bool same_key(const fontstyle &a, const fontstyle &b) {
    const float x[] = {a.scaleX, a.scaleY, a.skew, a.boldness}, y[] = {b.scaleX, b.scaleY, b.skew, b.boldness};
    for (int i = 0; i < 4; i++)
        if (x[i] != y[i] && !(std::isnan(x[i]) && std::isnan(y[i]))) return false;
    return a.base == b.base && a.slots == b.slots && a.spare == b.spare;
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
    fontstyle made = key;
    made.slots = made.spare = 0;
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
    textwidth("Ag\x02\x01\x05 x");
    selectfont(s);
    FUZZ_CHECK(registered(findfont(s)), "'%s': findfont gave no registered font", s);
    for (int i = 0; i < font_registry.count; i++)
        FUZZ_CHECK(registered(font_registry.fonts[i]->style.base), "record %d has a base outside the registry", i);
    reset_fonts();
    return 0;
}
