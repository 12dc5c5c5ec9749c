// Morvane bitmap text: font specifiers ("captionfont", ":scale=2", "ncgibig:bold:angle=10°"),
// matching a parsed style against the registered variants, and making new variants.
#include <GL/gl.h>
#include <strings.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Morvane/bitmapfonts/fonts_internal.h"

static const fontstyle default_style = {nullptr, 1.0f, 1.0f, 0.0f, 0.0f, 0, 0};

// ---------------------------------------------------------------------------------------
// [SECTION] Parsing

// One "keyword[=value]" segment, with the marks found in its value text.
struct specifier_segment {
    const char *keyword;
    size_t keyword_length;
    double value;
    int pixels, percent, degrees;
};

static specifier_segment read_segment(const char *p, size_t length) {
    specifier_segment s = {p, length, 0.0, 0, 0, 0};
    const char *equals = (const char *)memchr(p, '=', length);
    if (!equals) return s;
    s.keyword_length = equals - p;
    char value[64];
    size_t n = length - s.keyword_length - 1;
    if (n > sizeof value - 1) n = sizeof value - 1;
    memcpy(value, equals + 1, n);
    value[n] = 0;
    s.value = atof(value);
    s.pixels = strstr(value, "px") != nullptr;
    s.percent = strchr(value, '%') != nullptr;
    s.degrees = strchr(value, 0xB0) != nullptr;   // also inside the UTF-8 form C2 B0
    return s;
}

static bool keyword_is(const specifier_segment &s, const char *word) {
    return strlen(word) == s.keyword_length && strncasecmp(s.keyword, word, s.keyword_length) == 0;
}

// A factor or addend, with '%' read as hundredths (pixels are handled by each keyword).
static double plain_value(const specifier_segment &s) {
    return s.percent ? s.value * 0.01 : s.value;
}

static void apply_modifier(fontstyle &key, const specifier_segment &s) {
    const BitmapFont *base = key.base;
    if (keyword_is(s, "normal")) {
        BitmapFont *keep = key.base;
        key = default_style;
        key.base = keep;
    } else if (keyword_is(s, "scale") || keyword_is(s, "size")) {
        if (s.pixels) {
            key.scaleX = key.scaleY = (float)(s.value / base->lineHeight);
        } else {
            key.scaleX *= plain_value(s);
            key.scaleY *= plain_value(s);
        }
    } else if (keyword_is(s, "big")) {
        key.scaleX *= 1.5f;
        key.scaleY *= 1.5f;
    } else if (keyword_is(s, "small")) {
        key.scaleX *= 0.6666667f;
        key.scaleY *= 0.6666667f;
    } else if (keyword_is(s, "width")) {
        key.scaleX = s.pixels ? (float)(s.value / base->lineHeight) : key.scaleX * plain_value(s);
    } else if (keyword_is(s, "height")) {
        key.scaleY = s.pixels ? (float)(s.value / base->lineHeight) : key.scaleY * plain_value(s);
    } else if (keyword_is(s, "boldness")) {
        // Pixels are a share of the widest glyph; a font whose glyphs are all 0 wide has
        // nothing to embolden.
        if (!s.pixels) key.boldness += plain_value(s);
        else if (base->maxGlyphWidth > 0) key.boldness += s.value / base->maxGlyphWidth;
    } else if (keyword_is(s, "demibold")) {
        key.boldness += 0.03f;
    } else if (keyword_is(s, "bold")) {
        key.boldness += 0.05f;
        key.scaleX *= 1.1f;
    } else if (keyword_is(s, "black")) {
        key.boldness += 0.08f;
        key.scaleX *= 1.2f;
    } else if (keyword_is(s, "skew") || keyword_is(s, "angle")) {
        if (s.degrees) key.skew = (float)tan(s.value * M_PI / 180);
        else key.skew += s.pixels ? s.value / base->lineHeight : plain_value(s);
    } else if (keyword_is(s, "italic")) {
        key.skew += 0.4f;
    }
}

fontstyle parsefontspec(const char *specifier) {
    if (!specifier) specifier = "";
    fontstyle key = default_style;
    size_t name_length = strcspn(specifier, ":");
    if (font_registry.count > 0) {
        int found = name_length > 0 ? find_registered_name(specifier, name_length) : -1;
        if (found >= 0) key = font_registry.fonts[found]->style;
        else if (current_font) key.base = current_font->style.base;
        else key.base = random_registered_font()->style.base;
    } else {
        char *name = strndup(specifier, name_length);
        key.base = fallbackfont(name);
        free(name);
    }
    const char *p = specifier + name_length;
    while (*p == ':') {
        p++;
        size_t length = strcspn(p, ":");
        apply_modifier(key, read_segment(p, length));
        p += length;
    }
    return key;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Matching and variants

// 1 / ln 1.05: a 5 % size difference costs one point.
static const double per_five_percent = 20.49593431428785;

double fontvariantscore(const fontstyle *key, const BitmapFont *record) {
    const fontstyle &r = record->style;
    if (r.base != key->base) return -1000;
    const BitmapFont *base = key->base;
    double dw = fmin(fabs(2.0 * (key->scaleX - r.scaleX) * base->maxGlyphWidth),
                     fabs(log((double)key->scaleX / r.scaleX)) * per_five_percent);
    double dh = fmin(fabs(2.0 * (key->scaleY - r.scaleY) * base->lineHeight),
                     fabs(log((double)key->scaleY / r.scaleY)) * per_five_percent);
    double style_cost = fabs((key->boldness - r.boldness) * 50.0) + fabs((key->skew - r.skew) * 20.0);
    return 1.0 - style_cost - (dw + dh) / 2;
}

static char *variant_name(const fontstyle *key) {
    const char *base_name = key->base->name;
    size_t size = strlen(base_name) + 4 * 48;
    char *name = (char *)malloc(size);
    int n = snprintf(name, size, "%s", base_name);
    if (key->scaleX != 1.0f) n += snprintf(name + n, size - n, ":width=%g", key->scaleX);
    if (key->scaleY != 1.0f) n += snprintf(name + n, size - n, ":height=%g", key->scaleY);
    if (key->boldness != 0.0f) n += snprintf(name + n, size - n, ":boldness=%g", key->boldness);
    if (key->skew != 0.0f) snprintf(name + n, size - n, ":skew=%g", key->skew);
    return name;
}

static BitmapFont *make_variant(const fontstyle *key, const BitmapFont *templ) {
    BitmapFont *v = (BitmapFont *)malloc(sizeof(BitmapFont));
    // Same texture and glyph tables; the texture's size is the one recorded when it was made.
    *v = *templ->style.base;
    v->name = variant_name(key);
    v->style = *key;
    v->style.slots = 0;
    v->style.spare = 0;
    int widest = 0;
    for (int i = 0; i < font_slots; i++)
        if (v->glyphWidth[i] > widest) widest = v->glyphWidth[i];
    v->maxGlyphWidth = widest;
    v->referenceAdvance = v->glyphWidth[(unsigned char)'C'] + 1;
    registerfont(v);
    return v;
}

BitmapFont *fontvariant(const fontstyle *key) {
    BitmapFont *best = nullptr, *templ = nullptr;
    double best_score = 0, template_score = -HUGE_VAL;
    // Later registrations win ties: they are met first.
    for (int i = font_registry.count - 1; i >= 0; i--) {
        BitmapFont *r = font_registry.fonts[i];
        double score = fontvariantscore(key, r);
        if (score > best_score) best = r, best_score = score;
        if (r->style.slots == font_slots && score > template_score) templ = r, template_score = score;
    }
    if (best) return best;
    return make_variant(key, templ ? templ : key->base);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Choosing the current font

void usefont(const fontstyle *key) {
    // Byte for byte, so that a key with a NaN scale (a specifier may give one) still matches
    // itself and does not make a new variant every time it is selected.
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
    if (memcmp(key, &current_style, sizeof(fontstyle)) == 0) return;
    setfont(fontvariant(key));
    current_style = *key;
}

void selectfont(const char *specifier) {
    if (current_font && specifier && strcasecmp(current_font->name, specifier) == 0) return;
    fontstyle key = parsefontspec(specifier);
    usefont(&key);
}

void selectdefaultfont() {
    selectfont("ncgibig");
}

BitmapFont *findfont(const char *specifier) {
    fontstyle key = parsefontspec(specifier);
    return fontvariant(&key);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Fall-back font

BitmapFont *fallbackfont(const char *name) {
    for (int i; (i = find_registered_name(name, strlen(name))) >= 0;)
        unload_record(font_registry.fonts[i]);
    BitmapFont *f = (BitmapFont *)calloc(1, sizeof(BitmapFont));
    f->name = strdup(name);
    f->lineHeight = 1;
    f->glyphWidth[0] = 1;
    f->maxGlyphWidth = 1;
    f->style = default_style;
    f->style.base = f;
    static const unsigned char texel[4] = {0, 0, 0, 0};   // one black texel, rows padded to 4
    glGenTextures(1, &f->texture);
    glBindTexture(GL_TEXTURE_2D, f->texture);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 1, 1, 0, GL_RGB, GL_UNSIGNED_BYTE, texel);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_LOD_BIAS, -0.5f);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &f->textureWidth);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &f->textureHeight);
    f->referenceAdvance = f->glyphWidth[(unsigned char)'C'] + 1;
    registerfont(f);
    return f;
}
