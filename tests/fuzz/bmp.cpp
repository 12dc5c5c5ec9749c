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
#include <vector>

#include "Morvane/gfx_opengl.h"
#include "fuzz_input.h"

static char scratch_dir[256];

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const char *tmp = getenv("TMPDIR");
    snprintf(scratch_dir, sizeof scratch_dir, "%s/fentra_fuzz_bmp_XXXXXX", tmp && *tmp ? tmp : "/tmp");
    if (!mkdtemp(scratch_dir)) abort();
    atexit([] { rmdir(scratch_dir); });
    return 0;
}

static uint32_t get(const unsigned char *p, int bytes) {
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; i--) v = v << 8 | p[i];
    return v;
}

// The stride by its definition: three bytes a pixel plus three, rounded down to a multiple of 4.
static int64_t expected_stride(int64_t width) {
    int64_t v = width * 3 + 3;
    return (v >= 0 ? v / 4 : -((-v + 3) / 4)) * 4;
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

static void header_for_any_size(int width, int height) {
    if (width > (INT_MAX - 3) / 3 || width < -(INT_MAX - 3) / 3) return;   // strides an int holds
    int stride = bmp_row_stride(width);
    FUZZ_CHECK(stride == expected_stride(width), "width %d: stride %d", width, stride);
    unsigned char header[54];
    bmp_header(header, width, height);
    check_header(header, width, height, "header");
}

static void written_file(int width, int height, const std::string &name, uint8_t seed) {
    int64_t bytes = width > 0 && height > 0 ? expected_stride(width) * height : 0;
    if (bytes > (1 << 20)) return;   // large images add time, not cases
    std::vector<unsigned char> pixels((size_t)bytes + 1), file(54 + (size_t)bytes + 1);
    for (size_t i = 0; i < pixels.size(); i++) pixels[i] = (unsigned char)(seed + i * 7);
    std::string path = std::string(scratch_dir) + "/" + name;
    write_bmp(pixels.data(), width, height, path.c_str(), 0);
    FILE *f = fopen(path.c_str(), "rb");
    FUZZ_CHECK(f != nullptr, "%s was not written", name.c_str());
    size_t got = fread(file.data(), 1, file.size(), f);
    fclose(f);
    unlink(path.c_str());
    FUZZ_CHECK(got == 54 + (size_t)bytes, "%dx%d: file of %zu bytes", width, height, got);
    check_header(file.data(), width, height, "file");   // its file-size field is then the size
    FUZZ_CHECK(memcmp(file.data() + 54, pixels.data(), (size_t)bytes) == 0, "%dx%d: pixel rows changed", width, height);
}

static void png_name(const std::string &name, const std::string &extension) {
    char *got = replace_extension(name.c_str(), extension.c_str());
    size_t dot = name.rfind('.');
    std::string expected = dot != std::string::npos && dot > 0 ? name.substr(0, dot + 1) + extension
                                                               : name + "." + extension;
    FUZZ_CHECK(expected == got, "'%s' with '%s' gave '%s'", name.c_str(), extension.c_str(), got);
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
    size_t p = prefix.size();
    FUZZ_CHECK(name.size() == p + 10 && name.compare(0, p, prefix) == 0 && name[p] == '_' &&
                   name.compare(p + 6, 4, ".bmp") == 0 && strspn(name.c_str() + p + 1, "0123456789") >= 5,
               "'%s' for prefix '%s'", name.c_str(), prefix.c_str());
    double off = fabs(fmod(t * 10 / 3, 100000) - atoi(name.substr(p + 1, 5).c_str()) - 0.5);
    FUZZ_CHECK(off <= 0.5 + 1e-6 || fabs(off - 100000) <= 0.5 + 1e-6, "'%s' for t = %.17g", name.c_str(), t);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    int any_width = fuzz_get<int32_t>(in), any_height = fuzz_get<int32_t>(in);
    header_for_any_size(any_width, any_height);

    int width = fuzz_get<int16_t>(in) % 1500, height = fuzz_get<int16_t>(in) % 300;
    uint8_t seed = fuzz_get<uint8_t>(in);
    std::string name = "f";   // never empty, never "." or ".."
    for (size_t n = fuzz_get<uint8_t>(in) % 24; n > 0; n--) name += "abcXYZ019._-"[fuzz_get<uint8_t>(in) % 12];
    written_file(width, height, name, seed);

    std::string extension = fuzz_string(in, 8).c_str();
    double t = fuzz_get<double>(in);
    int name_size = 1 + fuzz_get<uint16_t>(in) % 300;
    std::string prefix = fuzz_string(in, 40).c_str();
    // A clock since start-up: from 0 to 6e8 s (19 years), where the count still fits an int.
    if (std::isfinite(t) && t >= 0 && t < 6e8) screenshot_file_name(prefix, t, name_size);
    png_name(fuzz_rest(in).c_str(), extension);
    return 0;
}
