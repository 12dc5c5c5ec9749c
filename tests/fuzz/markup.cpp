// Fuzz target: the markup passes (greekcodes, scriptcodes, tagcodes, compiletext) working on a
// text of a given length in a buffer of a fuzzer-chosen capacity with guard bytes behind it.
// After any pass the guard bytes must be untouched, the result must be whole items ended by a
// terminator inside the capacity, and what the buffer held behind the text must not matter.
// Well-formed text must compile the same through the zero-terminated forms, and the same in a
// tight buffer as in a roomy one whenever the result fits; a roomy buffer must leave no Greek
// name or tag behind.
#include "../unit/text_fonts.h"
#include "fuzz_input.h"

// A font to measure with: 512 records of widths 1 .. 7, registered without a texture.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    std::vector<glyph_shape> glyphs;
    for (int c = 0; c < font_slots; c++) glyphs.push_back({1 + c % 7, 1 + c % 5, 15});
    register_test_font("fuzzfont", font_block(glyphs));
    return 0;
}

static size_t item_size(char lead) { return lead == 2 ? 3 : lead == 5 ? 6 : 1; }

enum pass_kind { pass_greek, pass_scripts, pass_compile, pass_tags };

static size_t run_pass(pass_kind kind, int depth, int raise, int scale, char *text, size_t length, size_t capacity) {
    if (kind == pass_greek) return greekcodes(text, length, capacity);
    if (kind == pass_tags) return tagcodes(text, length, capacity);
    if (kind == pass_scripts) return scriptcodes(text, length, capacity, depth, raise, scale);
    return compiletext(text, length, capacity, depth);
}

// The same through the zero-terminated form; returns the compiled length.
static size_t run_terminated_pass(pass_kind kind, int depth, int raise, int scale, char *text, size_t capacity) {
    if (kind == pass_greek) greekcodes(text, capacity);
    if (kind == pass_tags) tagcodes(text, capacity);
    if (kind == pass_scripts) scriptcodes(text, capacity, depth, raise, scale);
    if (kind == pass_compile) compiletext(text, capacity, depth);
    return compiledlength(text);
}

// The first item of the compiled text that still starts a Greek name (or a tag), or -1.
static long leftover_markup(const char *text, pass_kind kind) {
    static const char *const greek[] = {
        "alpha", "beta", "gamma", "delta", "epsilon", "zeta", "eta", "theta", "iota", "kappa", "lambda", "mu", "nu",
        "xi", "omicron", "pi", "rho", "sigma", "tau", "upsilon", "phi", "chi", "psi", "omega", "varomega", "varphi",
        "vartheta", "varzeta", "vardelta"};
    static const char *const tags[] = {"#col=", "#tab="};
    const char *const *words = kind == pass_tags ? tags : greek;
    size_t count = kind == pass_tags ? 2 : 29;
    for (size_t i = 0; text[i]; i += item_size(text[i]))
        for (size_t w = 0; w < count; w++)
            if (strncasecmp(text + i, words[w], strlen(words[w])) == 0) return (long)i;
    return -1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    uint8_t mode = fuzz_get<uint8_t>(in);
    pass_kind kind = (pass_kind)(mode % 4);
    int depth = (mode >> 2) % 8 == 7 ? -1 : (mode >> 2) % 8;   // -1 (no limit, as the program passes it) or 0 .. 6
    int raise = 0, scale = 256;
    if (mode & 0x80) raise = fuzz_get<int16_t>(in), scale = 1 + fuzz_get<uint16_t>(in) % 1024;
    size_t capacity = 1 + fuzz_get<uint16_t>(in) % 1024;
    unsigned char fill = fuzz_get<uint8_t>(in);   // what the buffer holds behind the text's terminator
    std::string text = fuzz_rest(in);

    // The text in the buffer, and behind it a fill byte: twice, with two different fills.
    const size_t guard_size = 32;
    const char guard_byte = (char)0xC5;
    std::vector<char> buffers[2];
    size_t lengths[2];
    for (int b = 0; b < 2; b++) {
        std::vector<char> &buffer = buffers[b];
        buffer.assign(capacity + guard_size, guard_byte);
        memset(buffer.data(), b ? fill ^ 0xFF : fill, capacity);
        memcpy(buffer.data(), text.data(), std::min(text.size(), capacity));
        lengths[b] = run_pass(kind, depth, raise, scale, buffer.data(), text.size(), capacity);
        for (size_t g = 0; g < guard_size; g++)
            FUZZ_CHECK(buffer[capacity + g] == guard_byte, "pass %d wrote guard byte %zu (capacity %zu)", kind, g, capacity);
    }
    char *t = buffers[0].data();
    size_t end = lengths[0];
    FUZZ_CHECK(end < capacity && t[end] == 0 && compiledlength(std::string_view(t, end)) == end,
               "pass %d: %zu bytes of whole items and a terminator in the capacity %zu", kind, end, capacity);
    FUZZ_CHECK(lengths[1] == end && memcmp(buffers[1].data(), t, end) == 0,
               "pass %d took in what lay behind the text (%zu or %zu bytes)", kind, end, lengths[1]);
    std::string_view compiled(t, end);
    FUZZ_CHECK(std::isfinite(textwidth(compiled)), "width %g", textwidth(compiled));
    textwidthn(compiled, (int)(fuzz_get<uint16_t>(in) % (capacity + 1)) - 1);

    // Well-formed text (every item whole, no end item inside) through the zero-terminated forms
    // in the same buffer, and in a roomy one. Scripts and tags only grow the text step by step,
    // so whenever the roomy result fits the tight buffer, no step ran out of room and both must
    // agree; the Greek pass can grow and then shrink, so it is compared only when the buffer has
    // room for any growth.
    if (text.size() >= capacity || compiledlength(std::string_view(text)) != text.size()) return 0;
    std::vector<char> terminated(capacity, fill);
    memcpy(terminated.data(), text.c_str(), text.size() + 1);
    size_t terminated_end = run_terminated_pass(kind, depth, raise, scale, terminated.data(), capacity);
    FUZZ_CHECK(terminated_end == end && memcmp(terminated.data(), t, end) == 0,
               "pass %d: the zero-terminated form gives %zu bytes, the length form %zu", kind, terminated_end, end);
    std::vector<char> roomy(16 * text.size() + 256, 0);
    memcpy(roomy.data(), text.c_str(), text.size() + 1);
    size_t roomy_length = run_pass(kind, depth, raise, scale, roomy.data(), text.size(), roomy.size());
    FUZZ_CHECK(roomy_length < roomy.size(), "roomy buffer overrun");
    bool greek = kind == pass_greek || kind == pass_compile;
    if (roomy_length < capacity && (!greek || capacity >= 2 * text.size() + 4))
        FUZZ_CHECK(end == roomy_length && memcmp(t, roomy.data(), end) == 0,
                   "pass %d: capacity %zu gives %zu bytes, a roomy buffer %zu", kind, capacity, end, roomy_length);
    bool plain = text.find_first_of(std::string("\0\2\5", 3)) == std::string::npos;   // no items, no terminator
    long left = (kind == pass_greek || kind == pass_tags) && plain ? leftover_markup(roomy.data(), kind) : -1;
    FUZZ_CHECK(left < 0, "pass %d left markup at byte %ld", kind, left);
    return 0;
}
