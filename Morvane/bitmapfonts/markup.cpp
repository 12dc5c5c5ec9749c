// Morvane bitmap text: the markup passes that turn readable text into compiled items in place:
// Greek letter names, '^' / '_' scripts with {groups}, and "#col=N#" / "#tab=N#" tags.
// Every pass is told the buffer's capacity and makes no replacement that would not fit.
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Morvane/bitmapfonts/fonts_internal.h"

size_t compiledlength(const char *text) {
    size_t i = 0;
    while (text[i]) i += text_item_size(text + i);
    return i;
}

size_t compiledlength(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && text[i]) {
        size_t n = text_item_size(text.data() + i);
        if (n > text.size() - i) break;   // cut by the end
        i += n;
    }
    return i;
}

// Length of the compiled text in a buffer of capacity bytes (capacity >= 1), walking its items
// to the terminator. An item that would run into the buffer's last byte, or text with no
// terminator, is cut off there.
static size_t bounded_length(const char *text, size_t capacity) {
    size_t i = 0;
    while (text[i]) {
        size_t n = text_item_size(text + i);
        if (i + n >= capacity) break;
        i += n;
    }
    return i;
}

// The content the passes work on: the whole items of the first length bytes that leave room
// for the terminator, which is written behind them.
static size_t content_length(char *text, size_t length, size_t capacity) {
    size_t n = compiledlength(std::string_view(text, length < capacity ? length : capacity - 1));
    text[n] = 0;
    return n;
}

static inline unsigned char fold(unsigned char c) {
    return c >= 'A' && c <= 'Z' ? c + 32 : c;
}

// Whether text starts with word (lower case), comparing with A-Z folded to lower case.
static bool starts_folded(const char *text, const char *word) {
    for (; *word; text++, word++)
        if (fold((unsigned char)*text) != (unsigned char)*word) return false;
    return true;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Greek letters

static const char *const greek_names[24] = {
    "alpha", "beta", "gamma", "delta", "epsilon", "zeta", "eta", "theta",
    "iota", "kappa", "lambda", "mu", "nu", "xi", "omicron", "pi",
    "rho", "sigma", "tau", "upsilon", "phi", "chi", "psi", "omega",
};
static const char *const var_names[5] = {"varomega", "varphi", "vartheta", "varzeta", "vardelta"};
static const int var_codes[5] = {308, 307, 306, 305, 304};

// Length of the Greek name text starts with (0 for none), and its glyph code.
static size_t match_greek(const char *text, int *code) {
    for (int k = 0; k < 24; k++) {
        if (!starts_folded(text, greek_names[k])) continue;
        *code = 256 + k + ((unsigned char)text[0] < 'a' ? 24 : 0);
        return strlen(greek_names[k]);
    }
    for (int k = 0; k < 5; k++) {
        if (!starts_folded(text, var_names[k])) continue;
        *code = var_codes[k];
        return strlen(var_names[k]);
    }
    return 0;
}

size_t greekcodes(char *text, size_t length, size_t capacity) {
    if (!text || capacity == 0) return 0;
    length = content_length(text, length, capacity);
    // The walk never looks back at codes it has written, so the length is kept by hand:
    // the codes hold zero bytes. Codes and commands already in the text are stepped over
    // whole: their payload bytes are not letters, and rewriting them would cut the item.
    // A name never runs into an item or past the terminator: neither holds letters at its lead.
    for (size_t i = 0; i < length;) {
        if (text[i] == 2 || text[i] == 5) {
            i += text_item_size(text + i);
            continue;
        }
        int code = 0;
        size_t n = match_greek(text + i, &code);
        if (n == 0) {
            i++;
            continue;
        }
        if (length - n + 3 >= capacity) break;   // a two-letter name grows by one byte
        memmove(text + i + 3, text + i + n, length - (i + n) + 1);
        text[i] = 2;
        text[i + 1] = (char)(code >> 8);
        text[i + 2] = (char)(code & 255);
        length = length - n + 3;
        i += 3;
    }
    return length;
}

char *greekcodes(char *text, size_t capacity) {
    if (text && capacity) greekcodes(text, bounded_length(text, capacity), capacity);
    return text;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Superscripts and subscripts

static void put_script(char *p, int scale, int raise) {
    p[0] = 5;
    p[1] = text_command_script;
    p[2] = (char)(scale & 255);
    p[3] = (char)((scale >> 8) & 255);
    p[4] = (char)(raise & 255);
    p[5] = (char)((raise >> 8) & 255);
}

// End of the run of items from start that all satisfy the test on their lead byte.
static size_t run_end(const char *text, size_t start, size_t length, int (*test)(int)) {
    size_t k = start;
    while (k < length && test((unsigned char)text[k])) k += text_item_size(text + k);
    return k;
}

static int is_glyph_code_lead(int c) { return c == 2; }

// Position of the '}' that closes a group whose contents start at start, or length.
static size_t group_end(const char *text, size_t start, size_t length) {
    int nesting = 1;
    size_t k = start;
    for (; k < length; k += text_item_size(text + k)) {
        if (text[k] == '{') nesting++;
        else if (text[k] == '}' && --nesting == 0) break;
    }
    return k;
}

// The script pass over text of the given length in a buffer of capacity bytes. Returns the new
// length; stops early, leaving the rest as written, when a script would not fit.
static size_t script_pass(char *text, size_t capacity, size_t length, int depth, int raise, int scale) {
    // Each level is about 0.7 of the one outside it, centred on the outer text's middle and
    // moved up or down by 0.3 of its size.
    int inner_scale = (int)(1792.0 * scale / (3.0 * scale + 1792) + 0.5);
    double half_shrink = (scale - inner_scale) / 2.0;
    size_t i = 0;
    while (i < length) {
        unsigned char mark = (unsigned char)text[i];
        if (mark != '^' && mark != '_') {
            i += text_item_size(text + i);
            continue;
        }
        size_t j = i + 1;
        if (j >= length) break;   // a mark at the very end is left as it is
        double shift = (mark == '^' ? 0.3 : -0.3) * scale - half_shrink;
        int inner_raise = (int)(raise + shift);
        unsigned char next = (unsigned char)text[j];

        if (next == '{') {
            size_t start = j + 1, close = group_end(text, start, length);
            size_t contents = close - start;
            size_t tail = close < length ? close + 1 : length;   // a missing '}' ends the group at the end
            size_t outside = i + (length - tail);
            if (outside + 12 + contents >= capacity) return length;
            size_t room = capacity - 1 - outside - 12;   // the most the compiled contents may take
            char *scratch = (char *)malloc(room + 1);
            memcpy(scratch, text + start, contents);
            scratch[contents] = 0;
            size_t compiled = contents;
            if (depth - 1 != 0)
                compiled = script_pass(scratch, room + 1, contents, depth - 1, raise + (int)shift, inner_scale);
            memmove(text + i + 12 + compiled, text + tail, length - tail + 1);
            memcpy(text + i + 6, scratch, compiled);
            free(scratch);
            put_script(text + i, inner_scale, inner_raise);
            put_script(text + i + 6 + compiled, scale, raise);
            length = outside + 12 + compiled;
            i += 12 + compiled;
            continue;
        }

        size_t end;
        if (isalpha(next)) end = run_end(text, j, length, isalpha);
        else if (isdigit(next)) end = run_end(text, j, length, isdigit);
        else if (next == 2) end = run_end(text, j, length, is_glyph_code_lead);
        else end = j + text_item_size(text + j);
        if (length + 11 >= capacity) return length;
        size_t run = end - j;
        memmove(text + end + 11, text + end, length - end + 1);
        memmove(text + i + 6, text + j, run);
        put_script(text + i, inner_scale, inner_raise);
        put_script(text + i + 6 + run, scale, raise);
        length += 11;
        i += 12 + run;
    }
    return length;
}

size_t scriptcodes(char *text, size_t length, size_t capacity, int depth, int raise, int scale) {
    if (!text || capacity == 0) return 0;
    length = content_length(text, length, capacity);   // cut even when there is nothing to do
    return depth != 0 ? script_pass(text, capacity, length, depth, raise, scale) : length;
}

char *scriptcodes(char *text, size_t capacity, int depth, int raise, int scale) {
    if (text && capacity) scriptcodes(text, bounded_length(text, capacity), capacity, depth, raise, scale);
    return text;
}

size_t compiletext(char *text, size_t length, size_t capacity, int depth) {
    length = greekcodes(text, length, capacity);
    return scriptcodes(text, length, capacity, depth, 0, 256);
}

char *compiletext(char *text, size_t capacity, int depth) {
    if (text && capacity) compiletext(text, bounded_length(text, capacity), capacity, depth);
    return text;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Colour and tab tags

size_t tagcodes(char *text, size_t length, size_t capacity) {
    if (!text || capacity == 0) return 0;
    length = content_length(text, length, capacity);
    size_t i = 0;
    while (i < length) {
        int command = -1;
        if (text[i] == '#') {
            if (starts_folded(text + i + 1, "col=")) command = text_command_colour;
            else if (starts_folded(text + i + 1, "tab=")) command = text_command_pen_x;
        }
        if (command < 0) {
            i += text_item_size(text + i);
            continue;
        }
        // The value's bytes are taken as decimal digits whatever they are.
        uint32_t value = 0;
        size_t k = i + 5;
        for (; k < length && text[k] != '#'; k += text_item_size(text + k))
            for (size_t b = 0; b < text_item_size(text + k); b++)
                value = value * 10u + (uint32_t)((unsigned char)text[k + b] - '0');
        size_t tail = k < length ? k + 1 : length;
        size_t new_length = length - (tail - i) + 6;
        if (new_length >= capacity) return length;   // "#col=" at the end grows by one byte
        memmove(text + i + 6, text + tail, length - tail + 1);
        text[i] = 5;
        text[i + 1] = (char)command;
        for (int b = 0; b < 4; b++) text[i + 2 + b] = (char)((value >> (8 * b)) & 255);
        length = new_length;
        i += 6;
    }
    return length;
}

char *tagcodes(char *text, size_t capacity) {
    if (text && capacity) tagcodes(text, bounded_length(text, capacity), capacity);
    return text;
}
