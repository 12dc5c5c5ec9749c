// Fuzz target: the screenshot files. The input gives image sizes, a file name, an extension,
// a clock reading and a prefix. The BMP header must carry every field at its offset for any
// size; a BMP written to a scratch directory must be the header and exactly the pixel rows,
// its size the file-size field; the PNG-name scan must replace the text after the last dot
// that is not the first character, or add one; screenshot names must have their fixed shape.
// No conversion is run: the outside tool would be handed fuzzer-made names through the shell.
#include <climits>

#include "Morvane/gfx_opengl.h"
#include "fuzz_input.h"

static const char *scratch_dir;

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    scratch_dir = fuzz_scratch("fentra_fuzz_bmp", true);
    return 0;
}

static uint32_t get(const unsigned char *p, int bytes) {   // little-endian, 2 or 4 bytes
    return bytes == 2 ? p[0] | p[1] << 8 : p[0] | p[1] << 8 | p[2] << 16 | (uint32_t)p[3] << 24;
}

// The stride by its definition: three bytes a pixel plus three, rounded down to a multiple of 4.
static int64_t expected_stride(int64_t width) {
    return ((width * 3 + 3) >> 2) * 4;   // an arithmetic shift: rounds down also below zero
}

static void check_header(const unsigned char *h, int width, int height, const char *what) {
    uint32_t file_size = (uint32_t)(uint64_t)(height * expected_stride(width) + 54);
    const uint32_t fields[][3] = {   // offset, bytes, value
        {0, 2, 0x4D42}, {2, 4, file_size}, {6, 4, 0}, {10, 4, 54}, {14, 4, 40}, {18, 4, (uint32_t)width},
        {22, 4, (uint32_t)height}, {26, 2, 1}, {28, 2, 24}, {30, 4, 0}, {34, 4, 200208},
        {38, 4, 2834}, {42, 4, 2834}, {46, 4, 0}, {50, 4, 0},
    };
    for (const auto &f : fields)
        FUZZ_CHECK(get(h + f[0], (int)f[1]) == f[2], "%s %dx%d: field at %u is %u, expected %u", what, width, height,
                   f[0], get(h + f[0], (int)f[1]), f[2]);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    int any_width = fuzz_get<int32_t>(in), any_height = fuzz_get<int32_t>(in);
    if (any_width <= (INT_MAX - 3) / 3 && any_width >= -(INT_MAX - 3) / 3) {   // strides an int holds
        FUZZ_CHECK(bmp_row_stride(any_width) == expected_stride(any_width), "width %d: stride %d", any_width,
                   bmp_row_stride(any_width));
        unsigned char header[54];
        bmp_header(header, any_width, any_height);
        check_header(header, any_width, any_height, "header");
    }

    // A file written and read back: the header (its file-size field then the size) and the rows.
    int width = fuzz_get<int16_t>(in) % 1500, height = fuzz_get<int16_t>(in) % 300;
    uint8_t seed = fuzz_get<uint8_t>(in);
    std::string name = "f";   // never empty, never "." or ".."
    for (size_t n = fuzz_get<uint8_t>(in) % 24; n > 0; n--) name += "abcXYZ019._-"[fuzz_get<uint8_t>(in) % 12];
    size_t bytes = width > 0 && height > 0 ? (size_t)(expected_stride(width) * height) : 0;
    if (bytes <= (1 << 20)) {   // large images add time, not cases
        std::vector<unsigned char> pixels(bytes + 1);
        for (size_t i = 0; i < pixels.size(); i++) pixels[i] = (unsigned char)(seed + i * 7);
        std::string path = std::string(scratch_dir) + "/" + name, file;
        write_bmp(pixels.data(), width, height, path.c_str(), 0);
        file = fuzz_read_file(path.c_str());
        unlink(path.c_str());
        FUZZ_CHECK(file.size() == 54 + bytes, "%dx%d: file of %zu bytes", width, height, file.size());
        check_header((const unsigned char *)file.data(), width, height, "file");
        FUZZ_CHECK(memcmp(file.data() + 54, pixels.data(), bytes) == 0, "%dx%d: pixel rows changed", width, height);
    }

    std::string extension = fuzz_string(in, 8).c_str();
    double t = fuzz_get<double>(in);
    int out_size = 1 + fuzz_get<uint16_t>(in) % 300;
    std::string prefix = fuzz_string(in, 40).c_str();
    // A clock since start-up: from 0 to 6e8 s (19 years), where the count still fits an int.
    if (std::isfinite(t) && t >= 0 && t < 6e8) {
        std::vector<char> out((size_t)out_size + 8, '\x7F');
        screenshot_name(out.data(), out_size, prefix.c_str(), t);
        for (size_t i = (size_t)out_size; i < out.size(); i++)
            FUZZ_CHECK(out[i] == '\x7F', "name written past %d bytes", out_size);
        std::string shot(out.data(), strnlen(out.data(), (size_t)out_size));
        FUZZ_CHECK(shot.size() < (size_t)out_size, "name not terminated within %d bytes", out_size);
        // "<prefix>_NNNNN.bmp", the number a clock reading in units of 0.3 s, wrapping at 100000
        size_t p = prefix.size();
        if (p + 15 <= (size_t)out_size) {   // else cut short: nothing more to check
            FUZZ_CHECK(shot.size() == p + 10 && shot.compare(0, p, prefix) == 0 && shot[p] == '_' &&
                           shot.compare(p + 6, 4, ".bmp") == 0 && strspn(shot.c_str() + p + 1, "0123456789") >= 5,
                       "'%s' for prefix '%s'", shot.c_str(), prefix.c_str());
            double off = fabs(fmod(t * 10 / 3, 100000) - atoi(shot.substr(p + 1, 5).c_str()) - 0.5);
            FUZZ_CHECK(off <= 0.5 + 1e-6 || fabs(off - 100000) <= 0.5 + 1e-6, "'%s' for t = %.17g", shot.c_str(), t);
        }
    }

    // The PNG name: the text after the last dot that is not the first character replaced, or one added.
    name = fuzz_rest(in).c_str();
    char *got = replace_extension(name.c_str(), extension.c_str());
    size_t dot = name.rfind('.');
    std::string expected = dot != std::string::npos && dot > 0 ? name.substr(0, dot + 1) + extension : name + "." + extension;
    FUZZ_CHECK(expected == got, "'%s' with '%s' gave '%s'", name.c_str(), extension.c_str(), got);
    free(got);
    return 0;
}
