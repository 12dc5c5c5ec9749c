// Fuzz target: the markup passes (greekcodes, scriptcodes, tagcodes, compiletext) working in a
// buffer of a fuzzer-chosen capacity with guard bytes behind it. After any pass the guard bytes
// must be untouched and the compiled items must end on a terminator inside the capacity, so
// that walking them (as measuring and drawing do) never leaves the buffer. Well-formed text
// must also compile the same in a tight buffer as in a roomy one whenever the result fits, and
// a roomy buffer must leave no Greek name or tag behind.
#include <cctype>
#include <cmath>
#include <vector>

#include "Morvane/bitmapfonts.h"
#include "fuzz_input.h"

static const size_t guard_size = 32;
static const unsigned char guard_byte = 0xC5;

// A font to measure with: 512 records of widths 1 .. 7, registered without a texture.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    std::vector<unsigned char> block;
    for (int c = 0; c < font_slots; c++) {
        int w = 1 + c % 7, h = 1 + c % 5;
        block.push_back((unsigned char)w);
        block.push_back((unsigned char)h);
        block.insert(block.end(), (size_t)(w * h), 15);
    }
    BitmapFont *f = (BitmapFont *)calloc(1, sizeof(BitmapFont));
    packfontdata(block.data(), block.size(), 2048, f);
    f->name = strdup("fuzzfont");
    f->style = fontstyle{f, 1.0f, 1.0f, 0.0f, 0.0f, font_slots, 0};
    registerfont(f);
    return 0;
}

static size_t item_size(unsigned char lead) { return lead == 2 ? 3 : lead == 5 ? 6 : 1; }

// Where the item walk from the start meets a terminator, or capacity when it runs past it.
static size_t item_walk_end(const char *text, size_t capacity) {
    size_t i = 0;
    while (i < capacity && text[i]) i += item_size((unsigned char)text[i]);
    return i < capacity ? i : capacity;
}

enum pass_kind { pass_greek, pass_scripts, pass_compile, pass_tags };

struct pass_args {
    pass_kind kind;
    int depth, raise, scale;
};

static void run_pass(const pass_args &a, char *text, size_t capacity) {
    switch (a.kind) {
    case pass_greek: greekcodes(text, capacity); break;
    case pass_scripts: scriptcodes(text, capacity, a.depth, a.raise, a.scale); break;
    case pass_compile: compiletext(text, capacity, a.depth); break;
    case pass_tags: tagcodes(text, capacity); break;
    }
}

static const char *const greek_and_var_names[] = {
    "alpha", "beta", "gamma", "delta", "epsilon", "zeta", "eta", "theta", "iota", "kappa", "lambda", "mu",
    "nu", "xi", "omicron", "pi", "rho", "sigma", "tau", "upsilon", "phi", "chi", "psi", "omega",
    "varomega", "varphi", "vartheta", "varzeta", "vardelta"};

static bool starts_with_folded(const char *text, const char *word) {
    for (; *word; text++, word++)
        if (tolower((unsigned char)*text) != *word) return false;
    return true;
}

// The first item of the compiled text that still starts a Greek name (or a tag), or -1.
static long leftover_markup(const char *text, pass_kind kind) {
    for (size_t i = 0; text[i]; i += item_size((unsigned char)text[i])) {
        if (kind == pass_tags) {
            if (text[i] == '#' && (starts_with_folded(text + i + 1, "col=") || starts_with_folded(text + i + 1, "tab=")))
                return (long)i;
        } else {
            for (const char *name : greek_and_var_names)
                if (starts_with_folded(text + i, name)) return (long)i;
        }
    }
    return -1;
}

static bool plain_text(const std::string &text) {
    for (unsigned char c : text)
        if (c == 0 || c == 2 || c == 5) return false;
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    uint8_t mode = fuzz_u8(in);
    pass_args args = {(pass_kind)(mode % 4), 0, 0, 256};
    // depth: -1 (no limit, as the program passes it) or 0 .. 6
    args.depth = (mode >> 2) % 8 == 7 ? -1 : (mode >> 2) % 8;
    if (mode & 0x80) {
        args.raise = (int16_t)fuzz_u16(in);
        args.scale = 1 + fuzz_u16(in) % 1024;
    }
    size_t capacity = 1 + fuzz_u16(in) % 1024;
    unsigned char fill = fuzz_u8(in);   // what the buffer holds behind the text's terminator
    std::string text = fuzz_rest(in);

    std::vector<char> buffer(capacity + guard_size);
    memset(buffer.data(), fill, capacity);
    memset(buffer.data() + capacity, guard_byte, guard_size);
    memcpy(buffer.data(), text.data(), text.size() < capacity ? text.size() : capacity);
    if (text.size() < capacity) buffer[text.size()] = 0;
    char *t = buffer.data();
    run_pass(args, t, capacity);

    for (size_t g = 0; g < guard_size; g++)
        FUZZ_CHECK((unsigned char)t[capacity + g] == guard_byte, "pass %d wrote guard byte %zu (capacity %zu)",
                   args.kind, g, capacity);
    size_t end = item_walk_end(t, capacity);
    FUZZ_CHECK(end < capacity, "pass %d: the compiled items run past the capacity %zu", args.kind, capacity);
    float width = textwidth(t);
    FUZZ_CHECK(std::isfinite(width), "width %g", width);
    textwidthn(t, (int)(fuzz_u16(in) % (capacity + 1)) - 1);

    // Well-formed text (every item whole, ended by its terminator) in a tight buffer and in a
    // roomy one. Scripts and tags only grow the text step by step, so whenever the roomy result
    // fits the tight buffer, no step ran out of room and both must agree; the Greek pass can
    // grow and then shrink, so it is compared only when the buffer has room for any growth.
    if (text.size() >= capacity || item_walk_end(text.c_str(), text.size() + 1) != text.size()) return 0;
    size_t roomy_capacity = 16 * text.size() + 256;
    std::vector<char> roomy(roomy_capacity, 0);
    memcpy(roomy.data(), text.c_str(), text.size() + 1);
    run_pass(args, roomy.data(), roomy_capacity);
    size_t roomy_length = item_walk_end(roomy.data(), roomy_capacity);
    FUZZ_CHECK(roomy_length < roomy_capacity, "roomy buffer overrun");
    bool greek = args.kind == pass_greek || args.kind == pass_compile;
    bool comparable = roomy_length < capacity && (!greek || capacity >= 2 * text.size() + 4);
    if (comparable)
        FUZZ_CHECK(end == roomy_length && memcmp(t, roomy.data(), end) == 0,
                   "pass %d: capacity %zu gives %zu bytes, a roomy buffer %zu", args.kind, capacity, end, roomy_length);
    if ((args.kind == pass_greek || args.kind == pass_tags) && plain_text(text)) {
        long left = leftover_markup(roomy.data(), args.kind);
        FUZZ_CHECK(left < 0, "pass %d left markup at byte %ld", args.kind, left);
    }
    return 0;
}
