// The web GL layer's fixed-function state: enables, blending, depth, clear colour, scissor
// box, viewport and sizes, the modelview and projection stacks, the attribute stack and the
// queries, kept here and handed to WebGL by the draw path at each draw.
#include "Morvane/gfx_opengl/web/gl1_internal.h"
#include "Morvane/gfx_opengl/web/gl1_webgl.h"

#include <cstring>

static void identity(double m[16])
{
    for (int i = 0; i < 16; i++) m[i] = (i % 5 == 0) ? 1.0 : 0.0;
}

// m = m x n, column-major.
static void multiply(double m[16], const double n[16])
{
    double r[16];
    for (int c = 0; c < 4; c++)
        for (int row = 0; row < 4; row++) {
            double sum = 0;
            for (int k = 0; k < 4; k++) sum += m[k * 4 + row] * n[c * 4 + k];
            r[c * 4 + row] = sum;
        }
    memcpy(m, r, sizeof r);
}

void gl1_reset_state(int width, int height)
{
    gl1_attribs &s = gl1.s;
    s = gl1_attribs{};
    s.blend_src_rgb = s.blend_src_alpha = GL_ONE;
    s.blend_dst_rgb = s.blend_dst_alpha = GL_ZERO;
    s.blend_equation = GL_FUNC_ADD;
    s.clear_depth = 1.0;
    s.depth_func = GL_LESS;
    s.depth_mask = true;
    s.scissor[2] = s.viewport[2] = width;
    s.scissor[3] = s.viewport[3] = height;
    s.matrix_mode = GL_MODELVIEW;
    s.point_size = s.line_width = 1;
    memset(s.colour, 255, 4);
    identity(gl1.modelview[0]);
    identity(gl1.projection[0]);
    gl1.pack_alignment = gl1.unpack_alignment = 4;
}

// In single precision, as the GPU uses it.
void gl1_matrix(float m[16])
{
    double d[16];
    memcpy(d, gl1.projection[gl1.projection_depth], sizeof d);
    multiply(d, gl1.modelview[gl1.modelview_depth]);
    for (int i = 0; i < 16; i++) m[i] = (float)d[i];
}

static void blend_func_separate(GLenum sr, GLenum dr, GLenum sa, GLenum da)
{
    gl1.s.blend_src_rgb = sr, gl1.s.blend_dst_rgb = dr;
    gl1.s.blend_src_alpha = sa, gl1.s.blend_dst_alpha = da;
}

static void blend_equation(GLenum mode) { gl1.s.blend_equation = mode; }
static void use_program(GLuint) {}   // only the layer's own shader pair draws

// Mipmaps are built by the layer's own software chain (no glGenerateMipmap), which keeps a
// copy of each level for reading back.
void *gl1_proc_address(const char *name)
{
    static const struct { const char *name; void *function; } entries[] = {
        {"glBlendFuncSeparate", (void *)blend_func_separate},
        {"glBlendEquation", (void *)blend_equation},
        {"glUseProgram", (void *)use_program},
    };
    for (const auto &e : entries)
        if (strcmp(e.name, name) == 0) return e.function;
    return nullptr;
}

extern "C" {

// ---------------------------------------------------------------------------------------
// [SECTION] Enables, blending, depth, clipping, sizes

// Smoothing is kept (a batch drawn smoothed is not one the CPU may draw) though WebGL draws
// lines and points without it.
static bool *capability(GLenum cap)
{
    gl1_attribs &s = gl1.s;
    switch (cap) {
    case GL_BLEND: return &s.blend;
    case GL_TEXTURE_2D: return &s.texture_2d;
    case GL_DEPTH_TEST: return &s.depth_test;
    case GL_SCISSOR_TEST: return &s.scissor_test;
    case GL_LINE_SMOOTH: return &s.line_smooth;
    case GL_POINT_SMOOTH: return &s.point_smooth;
    default: return nullptr;
    }
}

// Colours always come from the vertices (colour material) and there are no cube maps, so
// those two are as good as on; lighting is never on, so turning it off is no change.
void glEnable(GLenum cap)
{
    if (bool *b = capability(cap)) *b = true;
    else if (cap != GL_COLOR_MATERIAL && cap != GL_TEXTURE_CUBE_MAP_SEAMLESS) gl1_unhandled("glEnable", cap);
}

void glDisable(GLenum cap)
{
    if (bool *b = capability(cap)) *b = false;
    else if (cap != GL_LIGHTING) gl1_unhandled("glDisable", cap);
}

GLboolean glIsEnabled(GLenum cap)
{
    bool *b = capability(cap);
    if (!b && cap != GL_LIGHTING) gl1_unhandled("glIsEnabled", cap);
    return b && *b ? GL_TRUE : GL_FALSE;
}

void glBlendFunc(GLenum src, GLenum dst) { blend_func_separate(src, dst, src, dst); }
void glDepthFunc(GLenum f) { gl1.s.depth_func = f; }
void glDepthMask(GLboolean m) { gl1.s.depth_mask = m; }
void glClearDepth(GLclampd d) { gl1.s.clear_depth = d; }
void glClearColor(GLclampf r, GLclampf g, GLclampf b, GLclampf a)
{
    gl1.s.clear_colour[0] = r, gl1.s.clear_colour[1] = g, gl1.s.clear_colour[2] = b;
    gl1.s.clear_colour[3] = a;
}

void glScissor(GLint x, GLint y, GLsizei w, GLsizei h)
{
    gl1.s.scissor[0] = x, gl1.s.scissor[1] = y, gl1.s.scissor[2] = w, gl1.s.scissor[3] = h;
}

void glViewport(GLint x, GLint y, GLsizei w, GLsizei h)
{
    gl1.s.viewport[0] = x, gl1.s.viewport[1] = y, gl1.s.viewport[2] = w, gl1.s.viewport[3] = h;
}

void glClear(GLbitfield mask)
{
    mask &= GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT;
    if (!mask) return;
    gl1_flush_drawing();
    gl1.clear_mask = mask;
    gl1.clear_state = gl1.s;
}

void glPointSize(GLfloat size) { gl1.s.point_size = size; }
void glLineWidth(GLfloat width) { gl1.s.line_width = width; }   // WebGL draws lines one pixel wide
void glHint(GLenum, GLenum) {}
void glShadeModel(GLenum) {}
void glTexEnvi(GLenum, GLenum, GLint) {}   // GL_MODULATE is the only mode drawn with
void glDrawBuffer(GLenum) {}               // everything is drawn into the back buffer
void glFinish() {}
void glFlush() {}
GLenum glGetError() { return GL_NO_ERROR; }

// ---------------------------------------------------------------------------------------
// [SECTION] Matrices

static double *top_matrix()
{
    return gl1.s.matrix_mode == GL_PROJECTION ? gl1.projection[gl1.projection_depth]
                                              : gl1.modelview[gl1.modelview_depth];
}

void glMatrixMode(GLenum mode)
{
    if (mode == GL_MODELVIEW || mode == GL_PROJECTION) gl1.s.matrix_mode = mode;
    else gl1_unhandled("glMatrixMode", mode);
}

void glLoadIdentity() { identity(top_matrix()); }
void glLoadMatrixf(const GLfloat *m)
{
    double *t = top_matrix();
    for (int i = 0; i < 16; i++) t[i] = m[i];
}

void glOrtho(GLdouble l, GLdouble r, GLdouble b, GLdouble t, GLdouble n, GLdouble f)
{
    double m[16] = {2 / (r - l), 0, 0, 0, 0, 2 / (t - b), 0, 0, 0, 0, -2 / (f - n), 0,
                    -(r + l) / (r - l), -(t + b) / (t - b), -(f + n) / (f - n), 1};
    multiply(top_matrix(), m);
}

void glScalef(GLfloat x, GLfloat y, GLfloat z)
{
    double m[16] = {x, 0, 0, 0, 0, y, 0, 0, 0, 0, z, 0, 0, 0, 0, 1};
    multiply(top_matrix(), m);
}

static int *matrix_depth(int *limit)
{
    bool projection = gl1.s.matrix_mode == GL_PROJECTION;
    *limit = projection ? PROJECTION_DEPTH : MODELVIEW_DEPTH;
    return projection ? &gl1.projection_depth : &gl1.modelview_depth;
}

void glPushMatrix()
{
    int limit = 0, *depth = matrix_depth(&limit);
    if (*depth + 1 >= limit) return;   // GL's stack overflow: nothing happens
    double *top = top_matrix();
    ++*depth;
    memcpy(top_matrix(), top, 16 * sizeof(double));
}

void glPopMatrix()
{
    int limit = 0, *depth = matrix_depth(&limit);
    if (*depth > 0) --*depth;
}

// ---------------------------------------------------------------------------------------
// [SECTION] The attribute stack

// The groups the program saves: colour and blending, the current colour, the enables, the
// bound texture and the matrix mode.
enum : GLbitfield {
    SAVED_GROUPS = GL_CURRENT_BIT | GL_COLOR_BUFFER_BIT | GL_ENABLE_BIT | GL_TEXTURE_BIT | GL_TRANSFORM_BIT
};

void glPushAttrib(GLbitfield mask)
{
    if (mask & ~SAVED_GROUPS) gl1_unhandled("glPushAttrib", mask & ~SAVED_GROUPS);
    if (gl1.attrib_depth >= ATTRIB_DEPTH) return;
    gl1.attrib_stack[gl1.attrib_depth] = gl1.s;
    gl1.attrib_masks[gl1.attrib_depth++] = mask;
}

void glPopAttrib()
{
    if (gl1.attrib_depth == 0) return;
    const gl1_attribs &o = gl1.attrib_stack[--gl1.attrib_depth];
    GLbitfield mask = gl1.attrib_masks[gl1.attrib_depth];
    gl1_attribs &s = gl1.s;
    if (mask & GL_CURRENT_BIT) {
        memcpy(s.colour, o.colour, 4);
        memcpy(s.texcoord, o.texcoord, sizeof s.texcoord);
    }
    if (mask & (GL_COLOR_BUFFER_BIT | GL_ENABLE_BIT)) s.blend = o.blend;
    if (mask & GL_COLOR_BUFFER_BIT) {
        s.blend_src_rgb = o.blend_src_rgb, s.blend_dst_rgb = o.blend_dst_rgb;
        s.blend_src_alpha = o.blend_src_alpha, s.blend_dst_alpha = o.blend_dst_alpha;
        s.blend_equation = o.blend_equation;
        memcpy(s.clear_colour, o.clear_colour, sizeof s.clear_colour);
    }
    if (mask & GL_ENABLE_BIT) {
        s.texture_2d = o.texture_2d, s.depth_test = o.depth_test, s.scissor_test = o.scissor_test;
        s.line_smooth = o.line_smooth, s.point_smooth = o.point_smooth;
    }
    if (mask & GL_TRANSFORM_BIT) s.matrix_mode = o.matrix_mode;
    if (mask & GL_TEXTURE_BIT) s.texture = o.texture;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Queries

// The values asked for, and how many; 0 for a name the layer does not keep.
static int get_doubles(GLenum name, double *out)
{
    switch (name) {
    case GL_MODELVIEW_MATRIX: memcpy(out, gl1.modelview[gl1.modelview_depth], 16 * sizeof(double)); return 16;
    case GL_PROJECTION_MATRIX: memcpy(out, gl1.projection[gl1.projection_depth], 16 * sizeof(double)); return 16;
    case GL_VIEWPORT: for (int i = 0; i < 4; i++) out[i] = gl1.s.viewport[i]; return 4;
    case GL_SCISSOR_BOX: for (int i = 0; i < 4; i++) out[i] = gl1.s.scissor[i]; return 4;
    case GL_PACK_ALIGNMENT: out[0] = gl1.pack_alignment; return 1;
    case GL_UNPACK_ALIGNMENT: out[0] = gl1.unpack_alignment; return 1;
    case GL_MAX_TEXTURE_SIZE: {
        GLint n = 0;
        emscripten_glGetIntegerv(GL_MAX_TEXTURE_SIZE, &n);
        out[0] = n;
        return 1;
    }
    default:
        gl1_unhandled("glGet", name);
        out[0] = 0;
        return 1;
    }
}

void glGetDoublev(GLenum name, GLdouble *out) { get_doubles(name, out); }

void glGetFloatv(GLenum name, GLfloat *out)
{
    double d[16];
    for (int i = 0, n = get_doubles(name, d); i < n; i++) out[i] = (float)d[i];
}

void glGetIntegerv(GLenum name, GLint *out)
{
    double d[16];
    for (int i = 0, n = get_doubles(name, d); i < n; i++) out[i] = (GLint)d[i];
}

const GLubyte *glGetString(GLenum name)
{
    switch (name) {
    case GL_VERSION: return (const GLubyte *)"1.4 (GL 1.x subset over WebGL 2)";
    case GL_EXTENSIONS: return (const GLubyte *)"";
    default: gl1_unhandled("glGetString", name); return nullptr;
    }
}

}   // extern "C"
