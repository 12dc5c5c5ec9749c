// The web GL layer's textures and read-back: texture names, levels and parameters, a copy of
// every level kept as RGBA rows (so the layer can read textures back as GL 1.x does, which
// WebGL cannot), and reading the back buffer into pixels or textures.
#include "Morvane/gfx_opengl/gfx_internal.h"
#include "Morvane/gfx_opengl/web/gl1_internal.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

gl1_texture *gl1_bound_texture()
{
    GLuint name = gl1.s.texture;
    return name < gl1.textures.size() ? &gl1.textures[name] : nullptr;
}

// The formats pixels are handed over in: luminance, luminance and alpha, RGB, RGBA, and BGR
// for reading the screen; 0 bytes a pixel for any other, which is said once.
static int components_handled(const char *call, GLenum format)
{
    bool known = format == GL_LUMINANCE || format == GL_LUMINANCE_ALPHA || format == GL_RGB ||
                 format == GL_RGBA || format == GL_BGR;
    if (!known) gl1_unhandled(call, format);
    return known ? format_components(format) : 0;
}

static const GLenum filter_and_wrap_names[4] = {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER,
                                                GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T};

static void upload_level(const gl1_texture &t, int level)
{
    emscripten_glBindTexture(GL_TEXTURE_2D, t.webgl);
    emscripten_glTexImage2D(GL_TEXTURE_2D, level, GL_RGBA8, t.width[level], t.height[level], 0,
                            GL_RGBA, GL_UNSIGNED_BYTE, t.rgba[level]);
}

// A new WebGL texture for each name, with its levels and parameters; the old ones went with
// the lost context.
void gl1_remake_textures()
{
    for (gl1_texture &t : gl1.textures) {
        if (!t.named) continue;
        emscripten_glGenTextures(1, &t.webgl);
        for (int level = 0; level < MAX_LEVELS; level++)
            if (t.rgba[level]) upload_level(t, level);
        for (int i = 0; i < 4; i++)
            if (t.filters_and_wraps[i]) emscripten_glTexParameteri(GL_TEXTURE_2D, filter_and_wrap_names[i], t.filters_and_wraps[i]);
    }
}

extern "C" {

// ---------------------------------------------------------------------------------------
// [SECTION] Names and parameters

void glGenTextures(GLsizei n, GLuint *names)
{
    for (int i = 0; i < n; i++) {
        gl1_texture t = {};
        t.named = true;
        emscripten_glGenTextures(1, &t.webgl);
        names[i] = (GLuint)gl1.textures.size();
        gl1.textures.push_back(t);
    }
}

void glDeleteTextures(GLsizei n, const GLuint *names)
{
    gl1_send_pending_draw();
    for (int i = 0; i < n; i++) {
        if (names[i] == 0 || names[i] >= gl1.textures.size()) continue;
        gl1_texture &t = gl1.textures[names[i]];
        emscripten_glDeleteTextures(1, &t.webgl);
        for (unsigned char *level : t.rgba) free(level);
        t = gl1_texture{};
    }
}

void glBindTexture(GLenum target, GLuint name)
{
    if (target == GL_TEXTURE_2D) gl1.s.texture = name;
    else gl1_unhandled("glBindTexture", target);
}

void glTexParameteri(GLenum, GLenum name, GLint value)
{
    const GLenum *end = filter_and_wrap_names + 4, *kind = std::find(filter_and_wrap_names, end, name);
    if (kind == end) return gl1_unhandled("glTexParameteri", name);
    gl1_texture *t = gl1_bound_texture();
    if (!t || !t->named || t->filters_and_wraps[kind - filter_and_wrap_names] == value) return;
    gl1_send_pending_draw();
    t->filters_and_wraps[kind - filter_and_wrap_names] = value;
    emscripten_glBindTexture(GL_TEXTURE_2D, t->webgl);
    emscripten_glTexParameteri(GL_TEXTURE_2D, name, value);
}

void glTexParameterf(GLenum target, GLenum name, GLfloat value)
{
    gl1_texture *t = gl1_bound_texture();
    if (name != GL_TEXTURE_LOD_BIAS) glTexParameteri(target, name, (GLint)value);
    else if (t) t->lod_bias = value;   // read by a draw when it is made, pending or not
}

// ---------------------------------------------------------------------------------------
// [SECTION] Levels

// Stores a level as RGBA and hands it to WebGL. Pixels may be null (an empty level).
static void store_level(gl1_texture *t, int level, int internal, int w, int h, GLenum format,
                        int c, const unsigned char *pixels, int alignment)
{
    gl1_send_pending_draw();
    free(t->rgba[level]);
    unsigned char *rgba = (unsigned char *)calloc((size_t)w * h, 4);
    for (int y = 0; y < h && pixels; y++) {
        const unsigned char *p = pixels + (size_t)padded_row_bytes(w, c, alignment) * y;
        unsigned char *q = rgba + (size_t)y * w * 4;
        for (int x = 0; x < w; x++, p += c, q += 4) {
            switch (format) {
            case GL_LUMINANCE: q[0] = q[1] = q[2] = p[0], q[3] = 255; break;
            case GL_LUMINANCE_ALPHA: q[0] = q[1] = q[2] = p[0], q[3] = p[1]; break;
            case GL_RGB: q[0] = p[0], q[1] = p[1], q[2] = p[2], q[3] = 255; break;
            case GL_BGR: q[0] = p[2], q[1] = p[1], q[2] = p[0], q[3] = 255; break;
            default: memcpy(q, p, 4); break;
            }
        }
    }
    t->rgba[level] = rgba;
    t->width[level] = w;
    t->height[level] = h;
    t->internal[level] = internal;
    upload_level(*t, level);
}

void glTexImage2D(GLenum target, GLint level, GLint internal, GLsizei w, GLsizei h, GLint,
                  GLenum format, GLenum, const void *pixels)
{
    if (target != GL_TEXTURE_2D) return gl1_unhandled("glTexImage2D", target);
    int c = components_handled("glTexImage2D", format);
    gl1_texture *t = gl1_bound_texture();
    if (!c || !t || !t->named || level < 0 || level >= MAX_LEVELS || w < 0 || h < 0) return;
    store_level(t, level, internal, w, h, format, c, (const unsigned char *)pixels, gl1.unpack_alignment);
}

void glGetTexLevelParameteriv(GLenum, GLint level, GLenum name, GLint *value)
{
    gl1_texture *t = gl1_bound_texture();
    bool known = t && level >= 0 && level < MAX_LEVELS && t->rgba[level];
    switch (name) {
    case GL_TEXTURE_WIDTH: *value = known ? t->width[level] : 0; break;
    case GL_TEXTURE_HEIGHT: *value = known ? t->height[level] : 0; break;
    case GL_TEXTURE_INTERNAL_FORMAT: *value = known ? t->internal[level] : 1; break;
    default: gl1_unhandled("glGetTexLevelParameteriv", name); *value = 0; break;
    }
}

// From the level's RGBA copy into the given format, rows padded to the pack alignment.
void glGetTexImage(GLenum, GLint level, GLenum format, GLenum, void *pixels)
{
    int c = components_handled("glGetTexImage", format);
    gl1_texture *t = gl1_bound_texture();
    if (!c || !t || level < 0 || level >= MAX_LEVELS || !t->rgba[level]) return;
    int w = t->width[level], h = t->height[level];
    for (int y = 0; y < h; y++) {
        const unsigned char *p = t->rgba[level] + (size_t)y * w * 4;
        unsigned char *q = (unsigned char *)pixels + (size_t)padded_row_bytes(w, c, gl1.pack_alignment) * y;
        for (int x = 0; x < w; x++, p += 4, q += c) {
            switch (format) {
            case GL_LUMINANCE: q[0] = p[0]; break;
            case GL_LUMINANCE_ALPHA: q[0] = p[0], q[1] = p[3]; break;
            case GL_RGB: q[0] = p[0], q[1] = p[1], q[2] = p[2]; break;
            case GL_BGR: q[0] = p[2], q[1] = p[1], q[2] = p[0]; break;
            default: memcpy(q, p, 4); break;
            }
        }
    }
}

// ---------------------------------------------------------------------------------------
// [SECTION] Reading the back buffer

void glPixelStorei(GLenum name, GLint value)
{
    if (name == GL_PACK_ALIGNMENT) gl1.pack_alignment = value;
    else if (name == GL_UNPACK_ALIGNMENT) gl1.unpack_alignment = value;
    else gl1_unhandled("glPixelStorei", name);
}

void glReadPixels(GLint x, GLint y, GLsizei w, GLsizei h, GLenum format, GLenum, void *pixels)
{
    int c = components_handled("glReadPixels", format);
    if (w <= 0 || h <= 0 || !c) return;
    gl1_flush_drawing();
    unsigned char *rgba = (unsigned char *)malloc((size_t)w * h * 4);
    if (!gl1_frame_read(x, y, w, h, rgba)) emscripten_glReadPixels(x, y, w, h, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    for (int row = 0; row < h; row++) {
        const unsigned char *p = rgba + (size_t)row * w * 4;
        unsigned char *q = (unsigned char *)pixels + (size_t)padded_row_bytes(w, c, gl1.pack_alignment) * row;
        for (int i = 0; i < w; i++, p += 4, q += c) {
            if (format == GL_BGR) q[0] = p[2], q[1] = p[1], q[2] = p[0];
            else for (int k = 0; k < c && k < 3; k++) q[k] = p[k];
            if (c == 4) q[3] = 255;
        }
    }
    free(rgba);
}

void glCopyTexImage2D(GLenum, GLint level, GLenum internal, GLint x, GLint y, GLsizei w,
                      GLsizei h, GLint)
{
    unsigned char *rgba = (unsigned char *)malloc((size_t)w * h * 4);
    int pack = gl1.pack_alignment;
    gl1.pack_alignment = 4;
    glReadPixels(x, y, w, h, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    gl1.pack_alignment = pack;
    gl1_texture *t = gl1_bound_texture();
    if (t && t->named && level >= 0 && level < MAX_LEVELS)
        store_level(t, level, (GLint)internal, w, h, GL_RGBA, 4, rgba, 4);
    free(rgba);
}

void glCopyTexSubImage2D(GLenum target, GLint level, GLint, GLint, GLint x, GLint y, GLsizei w,
                         GLsizei h)
{
    gl1_texture *t = gl1_bound_texture();
    if (t && level >= 0 && level < MAX_LEVELS)
        glCopyTexImage2D(target, level, (GLenum)t->internal[level], x, y, w, h, 0);
}

}   // extern "C"
