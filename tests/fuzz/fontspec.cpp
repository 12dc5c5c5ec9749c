// Fuzz target: font specifiers. Three fonts are registered from glyph-record blocks without a
// texture (packfontdata + registerfont, no GL); the input is a specifier, parsed, matched or
// made into a variant, made current and measured with. The key must take the named font (or
// the current one) as its base; one more modifier must change the key as that modifier says;
// a made variant must carry the key's style; and every registry entry must stay valid.
#include <strings.h>

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

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    reset_fonts();
    return 0;
}

static bool same_value(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

static bool registered(const BitmapFont *f) {
    for (int i = 0; i < font_registry.count; i++)
        if (font_registry.fonts[i] == f) return true;
    return false;
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
    return a.base == b.base && same_value(a.scaleX, b.scaleX) && same_value(a.scaleY, b.scaleY) &&
           same_value(a.skew, b.skew) && same_value(a.boldness, b.boldness) && a.slots == b.slots &&
           a.spare == b.spare;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    uint8_t mode = fuzz_u8(in);
    // With no current font, an unknown name takes a registered font at random.
    if (mode & 1) current_font = nullptr, current_style = fontstyle{nullptr, 1.0f, 1.0f, 0.0f, 0.0f, 0, 0};
    std::string spec = fuzz_rest(in);
    spec = spec.substr(0, strlen(spec.c_str()));
    const BitmapFont *current_base = current_font ? current_font->style.base : nullptr;

    fontstyle key = parsefontspec(spec.c_str());
    std::string name = spec.substr(0, spec.find(':'));
    const BitmapFont *named = nullptr;
    for (int i = 0; i < font_registry.count && !named && !name.empty(); i++)
        if (strcasecmp(font_registry.fonts[i]->name, name.c_str()) == 0) named = font_registry.fonts[i];
    if (named) FUZZ_CHECK(key.base == named, "'%s': base is not the font named", spec.c_str());
    else if (current_base) FUZZ_CHECK(key.base == current_base, "'%s': base is not the current font's", spec.c_str());
    else FUZZ_CHECK(registered(key.base), "'%s': base is no registered font", spec.c_str());

    const suffix_rule &rule = suffixes[(mode >> 1) % (sizeof suffixes / sizeof suffixes[0])];
    fontstyle longer = parsefontspec((spec + rule.text).c_str());
    bool random_pick = !named && !current_base;   // the two parses may pick different fonts
    FUZZ_CHECK(random_pick || same_key(longer, rule.apply(key)), "'%s' + '%s' does not act as that modifier",
               spec.c_str(), rule.text);

    int count_before = font_registry.count;
    BitmapFont *variant = fontvariant(&key);
    FUZZ_CHECK(registered(variant) && variant->style.base == key.base, "'%s': variant of another base", spec.c_str());
    if (font_registry.count == count_before) {
        FUZZ_CHECK(fontvariantscore(&key, variant) > 0, "'%s': reused a record scoring %g", spec.c_str(),
                   fontvariantscore(&key, variant));
    } else {
        FUZZ_CHECK(font_registry.count == count_before + 1 && variant == font_registry.fonts[count_before],
                   "'%s': a made variant is not the last record", spec.c_str());
        fontstyle made = key;
        made.slots = made.spare = 0;
        FUZZ_CHECK(same_key(variant->style, made), "'%s': the made variant has another style", spec.c_str());
        FUZZ_CHECK(strncasecmp(variant->name, key.base->name, strlen(key.base->name)) == 0,
                   "'%s': variant name '%s' does not start with its base's", spec.c_str(), variant->name);
    }

    usefont(&key);
    FUZZ_CHECK(current_font == variant || registered(current_font), "'%s': current font not registered", spec.c_str());
    float width = textwidth("Ag\x02\x01\x05 x");
    (void)width;
    selectfont(spec.c_str());
    FUZZ_CHECK(registered(findfont(spec.c_str())), "'%s': findfont gave no registered font", spec.c_str());
    for (int i = 0; i < font_registry.count; i++)
        FUZZ_CHECK(registered(font_registry.fonts[i]->style.base), "record %d has a base outside the registry", i);
    reset_fonts();
    return 0;
}
