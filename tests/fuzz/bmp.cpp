// Fuzz target: the screenshot files. The input gives image sizes, a file name, an extension,
// a clock reading and a prefix. The BMP header must carry every field at its offset for any
// size; a BMP written to a scratch directory must be the header and exactly the pixel rows,
// its size the file-size field; the PNG-name scan must replace the text after the last dot
// that is not the first character, or add one; screenshot names must have their fixed shape.
// No conversion is run: the outside tool would be handed fuzzer-made names through the shell.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <string>
#include <vector>

#include "Morvane/gfx_opengl.h"
#include "fuzz_input.h"

static char scratch_dir[256];

static void remove_scratch_dir() { rmdir(scratch_dir); }

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const char *tmp = getenv("TMPDIR");
    snprintf(scratch_dir, sizeof scratch_dir, "%s/fentra_fuzz_bmp_XXXXXX", tmp && *tmp ? tmp : "/tmp");
    if (!mkdtemp(scratch_dir)) abort();
    atexit(remove_scratch_dir);
    return 0;
}

static uint32_t get32(const unsigned char *p) { return p[0] | p[1] << 8 | p[2] << 16 | (uint32_t)p[3] << 24; }
static uint32_t get16(const unsigned char *p) { return p[0] | p[1] << 8; }

// The stride by its definition: three bytes a pixel plus three, rounded down to a multiple of 4.
static int64_t expected_stride(int64_t width) {
    int64_t v = width * 3 + 3;
    return (v >= 0 ? v / 4 : -((-v + 3) / 4)) * 4;
}

static void check_header(const unsigned char *h, int width, int height, const char *what) {
    int64_t stride = expected_stride(width);
    uint32_t file_size = (uint32_t)(uint64_t)(height * stride + 54);
    struct field { int offset, size; uint32_t value; };
    const field fields[] = {
        {0, 2, 0x4D42}, {2, 4, file_size}, {6, 4, 0}, {10, 4, 54}, {14, 4, 40}, {18, 4, (uint32_t)width},
        {22, 4, (uint32_t)height}, {26, 2, 1}, {28, 2, 24}, {30, 4, 0}, {34, 4, 200208},
        {38, 4, 2834}, {42, 4, 2834}, {46, 4, 0}, {50, 4, 0},
    };
    for (const field &f : fields) {
        uint32_t got = f.size == 2 ? get16(h + f.offset) : get32(h + f.offset);
        FUZZ_CHECK(got == f.value, "%s %dx%d: field at %d is %u, expected %u", what, width, height, f.offset, got, f.value);
    }
}

// ---- The BMP itself ----------------------------------------------------------------------

// Widths whose stride an int holds.
static const int widest = (INT_MAX - 3) / 3;

static void header_for_any_size(int width, int height) {
    if (width > widest || width < -widest) return;
    int stride = bmp_row_stride(width);
    FUZZ_CHECK(stride == expected_stride(width), "width %d: stride %d, expected %lld", width, stride,
               (long long)expected_stride(width));
    unsigned char header[54];
    bmp_header(header, width, height);
    check_header(header, width, height, "header");
}

static std::string safe_name(fuzz_input &in) {
    static const char alphabet[] = "abcXYZ019._-";
    std::string name = "f";   // never empty, never "." or ".."
    size_t n = fuzz_u8(in) % 24;
    for (size_t i = 0; i < n; i++) name += alphabet[fuzz_u8(in) % (sizeof alphabet - 1)];
    return name;
}

static void written_file(int width, int height, const std::string &name, uint8_t seed) {
    int64_t bytes = width > 0 && height > 0 ? expected_stride(width) * height : 0;
    if (bytes > (1 << 20)) return;   // large images add time, not cases
    std::vector<unsigned char> pixels((size_t)bytes + 1);
    for (size_t i = 0; i < pixels.size(); i++) pixels[i] = (unsigned char)(seed + i * 7);
    std::string path = std::string(scratch_dir) + "/" + name;
    write_bmp(pixels.data(), width, height, path.c_str(), 0);

    FILE *f = fopen(path.c_str(), "rb");
    FUZZ_CHECK(f != nullptr, "%s was not written", name.c_str());
    std::vector<unsigned char> file(54 + (size_t)bytes + 1);
    size_t got = fread(file.data(), 1, file.size(), f);
    fclose(f);
    unlink(path.c_str());
    FUZZ_CHECK(got == 54 + (size_t)bytes, "%dx%d: file of %zu bytes, expected %lld", width, height, got,
               (long long)(54 + bytes));
    check_header(file.data(), width, height, "file");
    if (bytes > 0)
        FUZZ_CHECK(get32(file.data() + 2) == got, "%dx%d: file-size field %u for %zu bytes", width, height,
                   get32(file.data() + 2), got);
    FUZZ_CHECK(memcmp(file.data() + 54, pixels.data(), (size_t)bytes) == 0, "%dx%d: pixel rows changed", width, height);
}

// ---- Names -----------------------------------------------------------------------------------

static void png_name(const std::string &name, const std::string &extension) {
    char *got = replace_extension(name.c_str(), extension.c_str());
    size_t dot = name.rfind('.');
    std::string expected = dot != std::string::npos && dot > 0 ? name.substr(0, dot + 1) + extension
                                                               : name + "." + extension;
    FUZZ_CHECK(expected == got, "'%s' with '%s' gave '%s', expected '%s'", name.c_str(), extension.c_str(), got,
               expected.c_str());
    free(got);
}

static void screenshot_file_name(const std::string &prefix, double t, int size) {
    std::vector<char> out((size_t)size + 8, '\x7F');
    screenshot_name(out.data(), size, prefix.c_str(), t);
    for (size_t i = (size_t)size; i < out.size(); i++) FUZZ_CHECK(out[i] == '\x7F', "name written past %d bytes", size);
    std::string name(out.data(), strnlen(out.data(), (size_t)size));
    FUZZ_CHECK(name.size() < (size_t)size, "name not terminated within %d bytes", size);
    if (prefix.size() + 15 > (size_t)size) return;   // cut short: nothing more to check
    // "<prefix>_NNNNN.bmp", the number a clock reading in units of 0.3 s, wrapping at 100000
    FUZZ_CHECK(name.size() == prefix.size() + 10 && name.compare(0, prefix.size(), prefix) == 0 &&
                   name[prefix.size()] == '_' && name.compare(name.size() - 4, 4, ".bmp") == 0,
               "'%s' for prefix '%s'", name.c_str(), prefix.c_str());
    int n = 0;
    for (size_t i = prefix.size() + 1; i < prefix.size() + 6; i++) {
        FUZZ_CHECK(isdigit((unsigned char)name[i]), "'%s': not five digits", name.c_str());
        n = n * 10 + (name[i] - '0');
    }
    double tenths_of_three = fmod(t * 10 / 3, 100000);
    double off = fabs(tenths_of_three - n - 0.5);
    FUZZ_CHECK(off <= 0.5 + 1e-6 || fabs(off - 100000) <= 0.5 + 1e-6, "'%s' for t = %.17g", name.c_str(), t);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    int any_width = (int32_t)fuzz_u32(in), any_height = (int32_t)fuzz_u32(in);
    header_for_any_size(any_width, any_height);

    int width = (int16_t)fuzz_u16(in) % 1500, height = (int16_t)fuzz_u16(in) % 300;
    uint8_t seed = fuzz_u8(in);
    written_file(width, height, safe_name(in), seed);

    std::string extension = fuzz_string(in, 8);
    double t = fuzz_f64(in);
    int name_size = 1 + fuzz_u16(in) % 300;
    std::string prefix = fuzz_string(in, 40);
    // A clock since start-up: from 0 to 6e8 s (19 years), where the count still fits an int.
    if (std::isfinite(t) && t >= 0 && t < 6e8) screenshot_file_name(prefix.substr(0, strlen(prefix.c_str())), t, name_size);

    std::string name = fuzz_rest(in);
    name = name.substr(0, strlen(name.c_str()));
    png_name(name, extension.substr(0, strlen(extension.c_str())));
    return 0;
}
