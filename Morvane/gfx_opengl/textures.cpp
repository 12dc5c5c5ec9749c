// Texture uploads with the right pixel format, mipmap chains built by GL or in software,
// and the optional GL features looked up by name once: anisotropy, swap interval,
// blend equation and separate blend functions.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL.h>
#include <SDL_opengl.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#ifndef GL_TEXTURE_MAX_ANISOTROPY_EXT
#define GL_TEXTURE_MAX_ANISOTROPY_EXT 0x84FE
#endif
#ifndef GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT
#define GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT 0x84FF
#endif

int texture_unsized_formats = 1;
const unsigned texture_pixel_formats[5] = {0, GL_LUMINANCE, GL_LUMINANCE_ALPHA, GL_RGB, GL_RGBA};
const unsigned texture_sized_formats[5] = {0, GL_LUMINANCE8, GL_LUMINANCE8_ALPHA8, GL_RGB8,
                                           GL_RGBA8};

int gl_has_mipmap_generation = -1;
int gl_has_anisotropy = -1;
int gl_has_swap_control = -1;

typedef void (APIENTRY *generate_mipmap_fn)(GLenum target);
typedef void (APIENTRY *blend_equation_fn)(GLenum mode);
typedef void (APIENTRY *blend_func_separate_fn)(GLenum, GLenum, GLenum, GLenum);

// Entry points looked up once by name; `looked_up` marks a lookup done even when it found nothing.
static struct {
    generate_mipmap_fn generate_mipmap;
    blend_equation_fn blend_equation;
    blend_func_separate_fn blend_func_separate;
    bool looked_up_generate, looked_up_equation, looked_up_separate;
    float max_anisotropy;   // 0 until asked
} textures;

static bool extension_present(const char *name)
{
    const char *all = (const char *)glGetString(GL_EXTENSIONS);
    return all && strstr(all, name);
}

static void *lookup(const char *name, bool *looked_up, void *current)
{
    if (*looked_up) return current;
    *looked_up = true;
    return SDL_GL_GetProcAddress(name);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Uploads

void upload_texture_level(unsigned target, int level, int components, int width, int height,
                          unsigned type, const void *data)
{
    if (components < 1 || components > 4) components = 3;
    int internal = texture_unsized_formats ? components : (int)texture_sized_formats[components];
    glGetError(); // a stale error must not be taken for this upload's
    glTexImage2D(target, level, internal, width, height, 0, texture_pixel_formats[components],
                 type, data);
}

void upload_texture(unsigned target, int components, int width, int height, const void *data)
{
    upload_texture_level(target, 0, components, width, height, GL_UNSIGNED_BYTE, data);
    generate_mipmaps(target);
}

void upload_cube_texture(int components, int size, const void *const faces[6])
{
    for (int i = 0; i < 6; ++i) {
        unsigned face = GL_TEXTURE_CUBE_MAP_POSITIVE_X + i; // +X, -X, +Y, -Y, +Z, -Z
        upload_texture_level(face, 0, components, size, size, GL_UNSIGNED_BYTE, faces[i]);
        generate_mipmaps(face);
    }
}

// ---------------------------------------------------------------------------------------
// [SECTION] Mipmaps

// The driver builds the chain when the extension string names mipmap generation and the
// entry point really exists (the pointer is tested as well as the name).
void generate_mipmaps(unsigned target)
{
    if (gl_has_mipmap_generation < 0) {
        gl_has_mipmap_generation = extension_present("GL_SGIS_generate_mipmap") ? 1 : 0;
        textures.generate_mipmap = (generate_mipmap_fn)lookup(
            "glGenerateMipmap", &textures.looked_up_generate, (void *)textures.generate_mipmap);
        if (!textures.generate_mipmap) gl_has_mipmap_generation = 0;
    }
    if (gl_has_mipmap_generation) textures.generate_mipmap(target);
    else software_mipmaps();
}

// One output row from a pair of source rows, for a known texel size C: with the texel
// loop unrolled and the cost model that accepts a loop tail, the compiler processes 16
// bytes at a time for 1, 2 and 4 components (3-byte texels stay one at a time).
#if defined(__GNUC__) && !defined(__clang__)
#define VECTORISE_WITH_TAIL __attribute__((optimize("vect-cost-model=dynamic")))
#else
#define VECTORISE_WITH_TAIL   // clang has no per-function cost model to choose
#endif
template <int C>
VECTORISE_WITH_TAIL
static void halve_row(const unsigned char *__restrict a, const unsigned char *__restrict b,
                      unsigned char *__restrict d, int out_width)
{
    for (int x = 0; x < out_width; ++x) {
#pragma GCC unroll 4
        for (int k = 0; k < C; ++k) {
            int i = 2 * C * x + k;
            d[C * x + k] = (unsigned char)((a[i] + a[i + C] + b[i] + b[i + C] + 2) >> 2);
        }
    }
}

void mipmap_halve(const unsigned char *source, int width, int height, int components,
                  unsigned char *destination)
{
    int out_width = width / 2 > 1 ? width / 2 : 1;
    int out_height = height / 2 > 1 ? height / 2 : 1;
    int in_stride = padded_row_bytes(width, components, 4);
    int out_stride = padded_row_bytes(out_width, components, 4);
    for (int y = 0; y < out_height; ++y) {
        const unsigned char *a = source + (ptrdiff_t)2 * y * in_stride;
        const unsigned char *b = height > 1 ? a + in_stride : a; // one row: it pairs with itself
        unsigned char *d = destination + (ptrdiff_t)y * out_stride;
        if (width < 2) {
            // one texel wide: the block is the texel above and the one below
            for (int k = 0; k < components; ++k)
                d[k] = (unsigned char)((2 * a[k] + 2 * b[k] + 2) >> 2);
            continue;
        }
        switch (components) {
        case 1: halve_row<1>(a, b, d, out_width); break;
        case 2: halve_row<2>(a, b, d, out_width); break;
        case 4: halve_row<4>(a, b, d, out_width); break;
        default: halve_row<3>(a, b, d, out_width); break;
        }
    }
}

// GL's alignments are powers of two (1, 2, 4 or 8): the mask rounds down, below zero too.
int padded_row_bytes(int width, int components, int alignment)
{
    return (width * components + alignment - 1) & ~(alignment - 1);
}

int format_components(unsigned format)
{
    switch (format) {
    case GL_LUMINANCE: return 1;
    case GL_LUMINANCE_ALPHA: return 2;
    case GL_RGB: case GL_BGR: return 3;
    case GL_RGBA: case GL_BGRA: return 4;
    case 1: case 2: case 3: case 4: return (int)format;
    default: return 0;
    }
}

// Texel size of a level from its internal format; sized formats count as RGB.
static int components_of(int internal)
{
    int c = format_components((unsigned)internal);
    return c ? c : 3;
}

void software_mipmaps()
{
    int width = 0, height = 0, internal = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &internal);
    if (width < 1 || height < 1) return;
    int components = components_of(internal);
    // level 0 first, each following level after the previous one, rows padded to 4 bytes
    size_t total = 0;
    for (int w = width, h = height;; w = w / 2 > 1 ? w / 2 : 1, h = h / 2 > 1 ? h / 2 : 1) {
        total += (size_t)padded_row_bytes(w, components, 4) * h;
        if (w == 1 && h == 1) break;
    }
    unsigned char *chain = (unsigned char *)malloc(total);
    int pack = 4, unpack = 4;
    glGetIntegerv(GL_PACK_ALIGNMENT, &pack);
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &unpack);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glGetTexImage(GL_TEXTURE_2D, 0, texture_pixel_formats[components], GL_UNSIGNED_BYTE, chain);
    unsigned char *level = chain;
    int level_number = 0;
    while (width > 1 || height > 1) {
        unsigned char *next = level + (size_t)padded_row_bytes(width, components, 4) * height;
        mipmap_halve(level, width, height, components, next);
        width = width / 2 > 1 ? width / 2 : 1;
        height = height / 2 > 1 ? height / 2 : 1;
        upload_texture_level(GL_TEXTURE_2D, ++level_number, components, width, height,
                             GL_UNSIGNED_BYTE, next);
        level = next;
    }
    glPixelStorei(GL_PACK_ALIGNMENT, pack);
    glPixelStorei(GL_UNPACK_ALIGNMENT, unpack);
    free(chain);
}

unsigned copy_screen_to_texture(int x, int y, int width, int height, int with_alpha,
                                unsigned texture)
{
    int gl_y = screen_height - (y + height);
    if (texture) {
        glBindTexture(GL_TEXTURE_2D, texture);
        glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, x, gl_y, width, height);
    } else {
        GLuint name = 0;
        glGenTextures(1, &name);
        texture = name;
        glBindTexture(GL_TEXTURE_2D, texture);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
        glCopyTexImage2D(GL_TEXTURE_2D, 0, with_alpha ? GL_RGBA8 : GL_RGB8, x, gl_y, width,
                         height, 0);
    }
    generate_mipmaps(GL_TEXTURE_2D);
    return texture;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Optional features

void anisotropic_filtering(unsigned target)
{
    if (gl_has_anisotropy < 0)
        gl_has_anisotropy = extension_present("GL_EXT_texture_filter_anisotropic") ? 1 : 0;
    if (!gl_has_anisotropy) return;
    if (textures.max_anisotropy == 0)
        glGetFloatv(GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT, &textures.max_anisotropy);
    glTexParameterf(target, GL_TEXTURE_MAX_ANISOTROPY_EXT, textures.max_anisotropy);
}

// SDL owns the swap control on every platform; a driver without it (a virtual X server,
// say) refuses the first request, and later requests are not made.
int swap_interval(int interval)
{
    if (gl_has_swap_control == 0) return 0;
    int taken = SDL_GL_SetSwapInterval(interval) == 0;
    if (gl_has_swap_control < 0) gl_has_swap_control = taken;
    return taken;
}

void blend_equation(unsigned mode)
{
    textures.blend_equation = (blend_equation_fn)lookup(
        "glBlendEquation", &textures.looked_up_equation, (void *)textures.blend_equation);
    if (textures.blend_equation) textures.blend_equation(mode);
}

void blend_func_separate(unsigned src_rgb, unsigned dst_rgb, unsigned src_alpha,
                         unsigned dst_alpha)
{
    textures.blend_func_separate = (blend_func_separate_fn)lookup(
        "glBlendFuncSeparate", &textures.looked_up_separate,
        (void *)textures.blend_func_separate);
    if (textures.blend_func_separate)
        textures.blend_func_separate(src_rgb, dst_rgb, src_alpha, dst_alpha);
    else
        glBlendFunc(src_rgb, dst_rgb);
}
