// Screenshots: reading the frame buffer, writing it as an uncompressed 24-bit BMP, and
// turning that into a PNG with an outside image converter, keeping the BMP only when the
// conversion left no PNG. Also the file-name helpers the conversion uses.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL_opengl.h>
#ifdef __EMSCRIPTEN__
#include "Morvane/gfx_opengl/web/platform_web.h"
#endif

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

// ---------------------------------------------------------------------------------------
// [SECTION] File names and files

int bmp_row_stride(int width) { return padded_row_bytes(width, 3, 4); }

void enter_executable_directory()
{
    char *directory = executable_directory();
    if (chdir(directory) != 0) {
        // not checked: the program carries on in the directory it was started in
    }
    free(directory);
}

// The last '.' of the name, looking back from its last character and never at its first
// (a leading dot starts a name, not an extension); nullptr when there is none. The scan
// does not stop at path separators.
static const char *extension_dot(const char *name)
{
    for (size_t i = strlen(name); i-- > 1;)
        if (name[i] == '.') return name + i;
    return nullptr;
}

// The name up to its last dot (or all of it), a dot, then the extension.
char *replace_extension(const char *name, const char *extension)
{
    size_t name_length = strlen(name), extension_length = strlen(extension);
    const char *dot = extension_dot(name);
    size_t stem = dot ? (size_t)(dot - name) : name_length;
    char *out = (char *)malloc(stem + extension_length + 2);
    memcpy(out, name, stem);
    out[stem] = '.';
    memcpy(out + stem + 1, extension, extension_length + 1);
    return out;
}

int file_exists(const char *name)
{
    FILE *f = fopen(name, "rb");
    if (!f) return 0;
    fclose(f);
    return 1;
}

int delete_file(const char *name) { return remove(name) == 0; }

void screenshot_name(char *out, int size, const char *prefix, double t)
{
    // the clock in units of 0.3 s, wrapping every 30000 s
    snprintf(out, size, "%s_%05d.bmp", prefix, (int)(t * 3.3333333333333335) % 100000);
}

// ---------------------------------------------------------------------------------------
// [SECTION] BMP

static void put16(unsigned char *p, unsigned v) { p[0] = (unsigned char)v, p[1] = (unsigned char)(v >> 8); }
static void put32(unsigned char *p, unsigned v)
{
    put16(p, v & 0xFFFF);
    put16(p + 2, v >> 16);
}

void bmp_header(unsigned char h[54], int width, int height)
{
    memset(h, 0, 54);
    h[0] = 'B', h[1] = 'M';
    // Formed in 64 bits: the 32-bit field keeps the low bits for any size it is given.
    put32(h + 2, (unsigned)((long long)height * bmp_row_stride(width) + 54));
    put32(h + 10, 54);
    put32(h + 14, 40);
    put32(h + 18, (unsigned)width);
    put32(h + 22, (unsigned)height);
    put16(h + 26, 1);
    put16(h + 28, 24);
    put32(h + 34, 200208);   // a fixed image-size field; readers take the size from the file size
    put32(h + 38, 2834);     // 72 dpi in pixels per metre
    put32(h + 42, 2834);
}

// Appends name to out in single quotes, so that the shell takes every character literally; a
// quote inside is closed, escaped and reopened ('\''). out has room for 4 x strlen(name) + 3.
static char *append_quoted(char *out, const char *name)
{
    *out++ = '\'';
    for (; *name; name++) {
        if (*name == '\'') {
            memcpy(out, "'\\''", 4);
            out += 4;
        } else {
            *out++ = *name;
        }
    }
    *out++ = '\'';
    *out = 0;
    return out;
}

// The shell command that converts bmp_name to png_name: "magick" (ImageMagick 7) when it is on
// PATH, else ImageMagick 6's "convert" with the same arguments, else nothing at all (the BMP
// then stays, without a word on the console). The caller frees it.
char *converter_command(const char *bmp_name, const char *png_name)
{
    static const char *const tools[2] = {"magick", "convert"};
    size_t names = strlen(bmp_name) + strlen(png_name);
    char *command = (char *)malloc(8 * names + 200);   // each name quoted twice
    char *p = command;
    for (int k = 0; k < 2; k++) {
        p += sprintf(p, "%sif command -v %s >/dev/null 2>&1; then %s -quality 95 ",
                     k ? "el" : "", tools[k], tools[k]);
        p = append_quoted(p, bmp_name);
        *p++ = ' ';
        p = append_quoted(p, png_name);
        memcpy(p, "; ", 2);
        p += 2;
    }
    memcpy(p, "fi", 3);
    return command;
}

// Converts the BMP to a PNG of the same name; the BMP goes only when the PNG is there.
static void convert_to_png(const char *bmp_name)
{
    char *png_name = replace_extension(bmp_name, "png");
#ifdef __EMSCRIPTEN__
    // A page has no shell: the browser turns the BMP into the PNG and offers it as a download.
    offer_png_download(bmp_name, png_name);
#else
    char *command = converter_command(bmp_name, png_name);
    if (system(command) == -1) {
        // no shell: the BMP stays, as when no converter is installed
    }
    if (file_exists(png_name)) delete_file(bmp_name);
    free(command);
#endif
    free(png_name);
}

void write_bmp(const void *pixels, int width, int height, const char *file_name, int convert)
{
    unsigned char header[54];
    bmp_header(header, width, height);
    FILE *f = fopen(file_name, "wb");
    if (f) {
        fwrite(header, 1, 54, f);
        // An image with no width or no height has no rows: the header alone, as given.
        if (width > 0 && height > 0) fwrite(pixels, 1, (size_t)bmp_row_stride(width) * height, f);
        fclose(f);
    }
    if (convert) convert_to_png(file_name);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Reading the screen

// Rows bottom-up in blue, green, red order, padded to 4 bytes: the BMP layout as it is.
unsigned char *read_screen_rect(int x, int y, int width, int height)
{
    unsigned char *pixels = (unsigned char *)malloc((size_t)bmp_row_stride(width) * height);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(x, screen_height - (y + height), width, height, GL_BGR, GL_UNSIGNED_BYTE,
                 pixels);
    return pixels;
}

void save_screen_rect(int x, int y, int width, int height, const char *file_name, int convert)
{
    unsigned char *pixels = read_screen_rect(x, y, width, height);
    write_bmp(pixels, width, height, file_name, convert);
    free(pixels);
}

void save_screen(const char *file_name, int convert)
{
    save_screen_rect(0, 0, screen_width, screen_height, file_name, convert);
}

void save_screenshot(const char *prefix)
{
    char name[300];
    screenshot_name(name, sizeof name, prefix, time_now());
    save_screen(name, 1);
}
