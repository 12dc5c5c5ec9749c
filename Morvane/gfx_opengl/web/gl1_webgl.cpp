// The GL 1.x subset that Fentra and Morvane draw with, over WebGL 2 (which has no fixed-function
// pipeline): immediate mode and client arrays become vertex streams drawn by one shader pair;
// the matrix stacks, the current colour and texture coordinate, the enables, blending, scissor,
// depth, point size and the attribute stack are kept here and handed to WebGL at each draw.
// Textures keep a copy of every level, so the layer can read them back as GL 1.x does. The
// canvas's own drawing buffer is the back buffer: the swap lets the page show it, and a clear
// waits for the next draw, so that a wait in between shows no half-made frame.
#include "Morvane/gfx_opengl/web/gl1_webgl.h"
#include "Morvane/gfx_opengl/web/thin_raster.h"

#include <GL/gl.h>
#include <emscripten.h>
#include <emscripten/html5.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

// GL 1.2 to 3.0 names that <GL/gl.h> may leave out.
#ifndef GL_TEXTURE_LOD_BIAS
#define GL_TEXTURE_LOD_BIAS 0x8501
#endif
#ifndef GL_ARRAY_BUFFER
#define GL_ARRAY_BUFFER 0x8892
#define GL_STREAM_DRAW 0x88E0
#endif
#ifndef GL_FRAGMENT_SHADER
#define GL_FRAGMENT_SHADER 0x8B30
#define GL_VERTEX_SHADER 0x8B31
#define GL_COMPILE_STATUS 0x8B81
#define GL_LINK_STATUS 0x8B82
#endif
#ifndef GL_FUNC_ADD
#define GL_FUNC_ADD 0x8006
#endif
#ifndef GL_TEXTURE0
#define GL_TEXTURE0 0x84C0
#endif
#ifndef GL_TEXTURE_MAX_LEVEL
#define GL_TEXTURE_MAX_LEVEL 0x813D
#endif

// WebGL 2 through Emscripten's second names for its GL functions, which stay reachable while
// this file defines the GL 1.x names itself.
extern "C" {
void emscripten_glActiveTexture(GLenum);
void emscripten_glAttachShader(GLuint, GLuint);
void emscripten_glBindAttribLocation(GLuint, GLuint, const char *);
void emscripten_glBindBuffer(GLenum, GLuint);
void emscripten_glBindTexture(GLenum, GLuint);
void emscripten_glBindVertexArray(GLuint);
void emscripten_glBlendEquation(GLenum);
void emscripten_glBlendFuncSeparate(GLenum, GLenum, GLenum, GLenum);
void emscripten_glBufferData(GLenum, long, const void *, GLenum);
void emscripten_glBufferSubData(GLenum, long, long, const void *);
void emscripten_glClear(GLbitfield);
void emscripten_glClearColor(GLfloat, GLfloat, GLfloat, GLfloat);
void emscripten_glClearDepthf(GLfloat);
void emscripten_glCompileShader(GLuint);
GLuint emscripten_glCreateProgram();
GLuint emscripten_glCreateShader(GLenum);
void emscripten_glDeleteTextures(GLsizei, const GLuint *);
void emscripten_glDepthFunc(GLenum);
void emscripten_glDepthMask(GLboolean);
void emscripten_glDisable(GLenum);
void emscripten_glDrawArrays(GLenum, GLint, GLsizei);
void emscripten_glEnable(GLenum);
void emscripten_glEnableVertexAttribArray(GLuint);
void emscripten_glFlush();
void emscripten_glGenBuffers(GLsizei, GLuint *);
void emscripten_glGenTextures(GLsizei, GLuint *);
void emscripten_glGenVertexArrays(GLsizei, GLuint *);
void emscripten_glGetIntegerv(GLenum, GLint *);
void emscripten_glGetProgramiv(GLuint, GLenum, GLint *);
void emscripten_glGetShaderiv(GLuint, GLenum, GLint *);
void emscripten_glGetShaderInfoLog(GLuint, GLsizei, GLsizei *, char *);
GLint emscripten_glGetUniformLocation(GLuint, const char *);
void emscripten_glLinkProgram(GLuint);
void emscripten_glPixelStorei(GLenum, GLint);
void emscripten_glReadPixels(GLint, GLint, GLsizei, GLsizei, GLenum, GLenum, void *);
void emscripten_glScissor(GLint, GLint, GLsizei, GLsizei);
void emscripten_glShaderSource(GLuint, GLsizei, const char *const *, const GLint *);
void emscripten_glTexImage2D(GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum, GLenum,
                             const void *);
void emscripten_glTexParameteri(GLenum, GLenum, GLint);
void emscripten_glTexSubImage2D(GLenum, GLint, GLint, GLint, GLsizei, GLsizei, GLenum, GLenum,
                                const void *);
void emscripten_glUniform1f(GLint, GLfloat);
void emscripten_glUniform1i(GLint, GLint);
void emscripten_glUniform4f(GLint, GLfloat, GLfloat, GLfloat, GLfloat);
void emscripten_glUniformMatrix4fv(GLint, GLsizei, GLboolean, const GLfloat *);
void emscripten_glUseProgram(GLuint);
void emscripten_glVertexAttribPointer(GLuint, GLint, GLenum, GLboolean, GLsizei, const void *);
void emscripten_glViewport(GLint, GLint, GLsizei, GLsizei);
}

// ---------------------------------------------------------------------------------------
// [SECTION] State

// One vertex as the shader reads it.
struct gl1_vertex {
    float x, y, z;
    unsigned char rgba[4];
    float s, t;
};

enum { MAX_LEVELS = 16, MODELVIEW_DEPTH = 32, OTHER_DEPTH = 4, ATTRIB_DEPTH = 16 };

struct gl1_texture {
    GLuint webgl;                       // 0: the name is free
    int width[MAX_LEVELS], height[MAX_LEVELS];
    int internal[MAX_LEVELS];           // as given to glTexImage2D
    unsigned char *rgba[MAX_LEVELS];    // every level as RGBA rows, tightly packed
    float lod_bias;
};

// What glPushAttrib saves: everything, restored group by group.
struct gl1_attribs {
    bool blend, texture_2d, depth_test, scissor_test, lighting, colour_material;
    bool line_smooth, point_smooth, cull_face;
    GLenum blend_src_rgb, blend_dst_rgb, blend_src_alpha, blend_dst_alpha, blend_equation;
    float clear_colour[4];
    double clear_depth;
    GLenum depth_func;
    bool depth_mask;
    int scissor[4];
    int viewport[4];
    GLenum matrix_mode;
    GLuint texture;                     // bound GL_TEXTURE_2D name
    float point_size, line_width;
    unsigned char colour[4];
    float texcoord[2];
};

// A shader pair and where its uniforms are.
struct gl1_program {
    GLuint id;
    GLint u_matrix, u_point_size, u_points, u_viewport, u_lod_bias;
};

struct client_array {
    bool enabled;
    int size;
    GLenum type;
    int stride;
    const void *pointer;
};

static struct {
    bool open;
    bool unshown;                       // drawn since the canvas was last shown
    GLbitfield clear_mask;              // a clear not yet made, with the state it was asked in
    gl1_attribs clear_state;
    EMSCRIPTEN_WEBGL_CONTEXT_HANDLE context;
    thin_raster thin;                   // thin points and lines drawn on the CPU, not yet shown
    GLuint thin_texture;                // ... and the texture that shows them
    int thin_texture_size[2];
    gl1_program programs[2];            // plain and textured
    int program_in_use;                 // -1 before the first draw
    GLuint vertex_buffer, vertex_array;
    size_t buffer_vertices, buffer_used;   // the vertex buffer's size and its part in use

    gl1_attribs s;                      // the current state
    gl1_attribs attrib_stack[ATTRIB_DEPTH];
    GLbitfield attrib_masks[ATTRIB_DEPTH];
    int attrib_depth;

    double modelview[MODELVIEW_DEPTH][16], projection[OTHER_DEPTH][16], texture_matrix[OTHER_DEPTH][16];
    int modelview_depth, projection_depth, texture_depth;   // index of the top

    int pack_alignment, unpack_alignment;
    std::vector<gl1_texture> textures;  // by name; name 0 is the default texture

    GLenum begin_mode;                  // the mode between glBegin and glEnd, or ~0u
    std::vector<gl1_vertex> vertices;   // gathered by glBegin/glEnd and glDrawArrays
    std::vector<gl1_vertex> triangles;  // quads turned into triangles
    client_array vertex_array_state, colour_array, texcoord_array;
} gl1;

static double *top_matrix()
{
    switch (gl1.s.matrix_mode) {
    case GL_PROJECTION: return gl1.projection[gl1.projection_depth];
    case GL_TEXTURE: return gl1.texture_matrix[gl1.texture_depth];
    default: return gl1.modelview[gl1.modelview_depth];
    }
}

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

static gl1_texture *bound_texture()
{
    GLuint name = gl1.s.texture;
    return name < gl1.textures.size() ? &gl1.textures[name] : nullptr;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Opening, the back buffer and the swap

// GL 1.x lights the pixel that contains a point of size 1 (its window position snapped to
// 1/256 pixel, then rounded down); a WebGL point sprite lights the pixel whose centre is
// nearest, which is the pixel below and left when the position falls on a pixel corner. So
// such points are moved to the centre of GL's pixel first.
static const char vertex_source[] =
    "#version 300 es\n"
    "in vec3 a_position; in vec4 a_colour; in vec2 a_texcoord;\n"
    "uniform mat4 u_matrix; uniform float u_point_size; uniform bool u_points;\n"
    "uniform vec4 u_viewport;\n"
    "out vec4 v_colour; out vec2 v_texcoord;\n"
    "void main() {\n"
    "  gl_Position = u_matrix * vec4(a_position, 1.0);\n"
    "  if (u_points && u_point_size <= 1.0) {\n"
    "    vec2 window = (gl_Position.xy / gl_Position.w * 0.5 + 0.5) * u_viewport.zw + u_viewport.xy;\n"
    "    window = floor(floor(window * 256.0 + 0.5) / 256.0) + 0.5;\n"
    "    gl_Position.xy = ((window - u_viewport.xy) / u_viewport.zw * 2.0 - 1.0) * gl_Position.w;\n"
    "  }\n"
    "  gl_PointSize = u_point_size;\n"
    "  v_colour = a_colour; v_texcoord = a_texcoord;\n"
    "}\n";

// The vertex colour, or with a texture GL_MODULATE: the texel times the vertex colour. Two
// programs, as a CPU renderer would pay for the texture's code on every pixel of a fill.
static const char plain_fragment_source[] =
    "#version 300 es\n"
    "precision highp float;\n"
    "in vec4 v_colour; out vec4 colour;\n"
    "void main() { colour = v_colour; }\n";
static const char textured_fragment_source[] =
    "#version 300 es\n"
    "precision highp float;\n"
    "uniform sampler2D u_texture; uniform float u_lod_bias;\n"
    "in vec4 v_colour; in vec2 v_texcoord; out vec4 colour;\n"
    "void main() { colour = v_colour * texture(u_texture, v_texcoord, u_lod_bias); }\n";

static GLuint compile(GLenum kind, const char *source)
{
    GLuint shader = emscripten_glCreateShader(kind);
    emscripten_glShaderSource(shader, 1, &source, nullptr);
    emscripten_glCompileShader(shader);
    return shader;
}

static bool link(gl1_program *p, GLuint vertex_shader, const char *fragment_source)
{
    p->id = emscripten_glCreateProgram();
    emscripten_glAttachShader(p->id, vertex_shader);
    emscripten_glAttachShader(p->id, compile(GL_FRAGMENT_SHADER, fragment_source));
    emscripten_glBindAttribLocation(p->id, 0, "a_position");
    emscripten_glBindAttribLocation(p->id, 1, "a_colour");
    emscripten_glBindAttribLocation(p->id, 2, "a_texcoord");
    emscripten_glLinkProgram(p->id);
    GLint linked = 0;
    emscripten_glGetProgramiv(p->id, GL_LINK_STATUS, &linked);
    if (!linked) return false;
    emscripten_glUseProgram(p->id);
    p->u_matrix = emscripten_glGetUniformLocation(p->id, "u_matrix");
    p->u_point_size = emscripten_glGetUniformLocation(p->id, "u_point_size");
    p->u_points = emscripten_glGetUniformLocation(p->id, "u_points");
    p->u_viewport = emscripten_glGetUniformLocation(p->id, "u_viewport");
    p->u_lod_bias = emscripten_glGetUniformLocation(p->id, "u_lod_bias");
    emscripten_glUniform1i(emscripten_glGetUniformLocation(p->id, "u_texture"), 0);
    return true;
}

// Puts the vertices after the ones already in the vertex buffer and returns the index of the
// first. A full buffer is given new storage: WebGL then need not wait for the draws that
// still read the old one. Re-specifying the buffer for every draw would cost about half a
// millisecond a draw on a CPU renderer; writing into unused parts costs next to nothing.
enum { STREAM_VERTICES = 1 << 18 };   // 6 MB, a few frames of vertices

static GLint stream_vertices(const gl1_vertex *v, size_t count)
{
    if (gl1.buffer_used + count > gl1.buffer_vertices) {
        gl1.buffer_vertices = std::max({gl1.buffer_vertices, count, (size_t)STREAM_VERTICES});
        emscripten_glBufferData(GL_ARRAY_BUFFER, (long)(gl1.buffer_vertices * sizeof(gl1_vertex)), nullptr, GL_STREAM_DRAW);
        gl1.buffer_used = 0;
    }
    GLint first = (GLint)gl1.buffer_used;
    emscripten_glBufferSubData(GL_ARRAY_BUFFER, (long)(gl1.buffer_used * sizeof(gl1_vertex)),
                               (long)(count * sizeof(gl1_vertex)), v);
    gl1.buffer_used += count;
    return first;
}

// Hands each draw to the browser's renderer at once, so that it renders them while the
// program goes on with its frame rather than after it (measured without a GPU: the default
// beam's frames 26 -> 22 ms apart, against 25 ms when flushing at most every 0.5 ms).
static void send_draws() { emscripten_glFlush(); }

// Makes program 0 (plain) or 1 (textured) current, and returns it.
static const gl1_program &use(int which)
{
    if (gl1.program_in_use != which) emscripten_glUseProgram(gl1.programs[which].id);
    gl1.program_in_use = which;
    return gl1.programs[which];
}

// clang-format off
// Marks the canvas shown once the page has shown it: after the display frame's callback, in
// the next task, which runs after the canvas went to the page. Module.shown_times, when a
// benchmark sets it to an array, receives the time of each.
EM_JS(void, page_show_canvas, (), {
    Module.gl1_shown = false;
    requestAnimationFrame(() => setTimeout(() => {
        Module.gl1_shown = true;
        if (Module.shown_times) Module.shown_times.push(performance.now());
    }, 0));
});
EM_JS(int, page_canvas_shown, (), { return Module.gl1_shown ? 1 : 0; });
// clang-format on

bool gl1_open(const char *canvas_selector, int width, int height)
{
    EmscriptenWebGLContextAttributes a;
    emscripten_webgl_init_context_attributes(&a);
    a.majorVersion = 2;
    a.minorVersion = 0;
    a.alpha = 0;            // the window's pixel format has no alpha channel
    a.depth = 1;
    a.stencil = 0;
    a.antialias = 0;
    a.preserveDrawingBuffer = 0;
    EMSCRIPTEN_WEBGL_CONTEXT_HANDLE context = emscripten_webgl_create_context(canvas_selector, &a);
    if (context <= 0 || emscripten_webgl_make_context_current(context) != EMSCRIPTEN_RESULT_SUCCESS)
        return false;
    gl1.context = context;

    GLuint vertex_shader = compile(GL_VERTEX_SHADER, vertex_source);
    if (!link(&gl1.programs[0], vertex_shader, plain_fragment_source) ||
        !link(&gl1.programs[1], vertex_shader, textured_fragment_source))
        return false;
    gl1.program_in_use = 1;

    emscripten_glGenVertexArrays(1, &gl1.vertex_array);
    emscripten_glBindVertexArray(gl1.vertex_array);
    emscripten_glGenBuffers(1, &gl1.vertex_buffer);
    emscripten_glBindBuffer(GL_ARRAY_BUFFER, gl1.vertex_buffer);
    const GLsizei stride = sizeof(gl1_vertex);
    emscripten_glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, stride, (void *)offsetof(gl1_vertex, x));
    emscripten_glVertexAttribPointer(1, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride, (void *)offsetof(gl1_vertex, rgba));
    emscripten_glVertexAttribPointer(2, 2, GL_FLOAT, GL_FALSE, stride, (void *)offsetof(gl1_vertex, s));
    for (int i = 0; i < 3; i++) emscripten_glEnableVertexAttribArray((GLuint)i);


    // GL 1.x's initial state.
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
    identity(gl1.texture_matrix[0]);
    gl1.pack_alignment = gl1.unpack_alignment = 4;
    gl1.textures.resize(1);
    gl1.begin_mode = ~0u;
    emscripten_glPixelStorei(GL_PACK_ALIGNMENT, 1);
    emscripten_glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    emscripten_glViewport(0, 0, width, height);
    gl1.open = true;
    return true;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Handing the state to WebGL

static void set_capability(GLenum cap, bool on)
{
    if (on) emscripten_glEnable(cap);
    else emscripten_glDisable(cap);
}

// The fixed-function state that WebGL shares; applied before every draw and clear (a few
// calls a draw, against hundreds of vertices).
static void apply_state()
{
    const gl1_attribs &s = gl1.s;
    set_capability(GL_BLEND, s.blend);
    emscripten_glBlendFuncSeparate(s.blend_src_rgb, s.blend_dst_rgb, s.blend_src_alpha,
                                   s.blend_dst_alpha);
    emscripten_glBlendEquation(s.blend_equation);
    set_capability(GL_DEPTH_TEST, s.depth_test);
    emscripten_glDepthFunc(s.depth_func);
    emscripten_glDepthMask(s.depth_mask);
    set_capability(GL_SCISSOR_TEST, s.scissor_test);
    emscripten_glScissor(s.scissor[0], s.scissor[1], s.scissor[2], s.scissor[3]);
    emscripten_glViewport(s.viewport[0], s.viewport[1], s.viewport[2], s.viewport[3]);
}

// The clear asked for last, made now with the state of its time.
static void make_pending_clear()
{
    if (!gl1.clear_mask) return;
    gl1_attribs now = gl1.s;
    gl1.s = gl1.clear_state;
    apply_state();
    const float *c = gl1.s.clear_colour;
    emscripten_glClearColor(c[0], c[1], c[2], c[3]);
    emscripten_glClearDepthf((float)gl1.s.clear_depth);
    emscripten_glClear(gl1.clear_mask);
    gl1.s = now;
    gl1.clear_mask = 0;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Thin points and lines on the CPU

// Large batches only: a few lines go faster the usual way than through a picture.
enum { THIN_BATCH = 256 };

static void multiplied_matrix(double m[16])
{
    memcpy(m, gl1.projection[gl1.projection_depth], 16 * sizeof(double));
    multiply(m, gl1.modelview[gl1.modelview_depth]);
}

// Whether a vertex lies between the near and far planes under an affine matrix.
static bool within_depth(const float m[16], const gl1_vertex &v)
{
    float cz = m[2] * v.x + m[6] * v.y + m[10] * v.z + m[14];
    return cz >= -1.0f && cz <= 1.0f;
}

// Window position of a vertex under an affine matrix (w stays 1), as the GPU computes it in
// single precision.
static void window_position(const float m[16], const gl1_vertex &v, float *x, float *y)
{
    float cx = m[0] * v.x + m[4] * v.y + m[8] * v.z + m[12];
    float cy = m[1] * v.x + m[5] * v.y + m[9] * v.z + m[13];
    const int *vp = gl1.s.viewport;
    *x = (cx * 0.5f + 0.5f) * (float)vp[2] + (float)vp[0];
    *y = (cy * 0.5f + 0.5f) * (float)vp[3] + (float)vp[1];
}

// Shows what the CPU drew, as one picture blended over the canvas where it drew.
static void show_thin()
{
    thin_raster &r = gl1.thin;
    const int *b = r.box;
    int w = b[2] - b[0], h = b[3] - b[1];
    if (w <= 0 || h <= 0) return;
    if (!gl1.thin_texture || gl1.thin_texture_size[0] < r.width || gl1.thin_texture_size[1] < r.height) {
        if (!gl1.thin_texture) emscripten_glGenTextures(1, &gl1.thin_texture);
        emscripten_glBindTexture(GL_TEXTURE_2D, gl1.thin_texture);
        emscripten_glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, r.width, r.height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        emscripten_glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        emscripten_glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        gl1.thin_texture_size[0] = r.width, gl1.thin_texture_size[1] = r.height;
    }
    // The box is read straight out of the whole picture, a row being the picture's width.
    emscripten_glBindTexture(GL_TEXTURE_2D, gl1.thin_texture);
    emscripten_glPixelStorei(GL_UNPACK_ROW_LENGTH, r.width);
    emscripten_glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE,
                               r.rgba + ((size_t)b[1] * r.width + b[0]) * 4);
    emscripten_glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);

    // Drawn pixels have alpha 1 and replace the canvas's; the others leave it as it is.
    const float tw = (float)gl1.thin_texture_size[0], th = (float)gl1.thin_texture_size[1];
    const float x0 = (float)b[0], y0 = (float)b[1], x1 = (float)b[2], y1 = (float)b[3];
    const float s1 = (float)w / tw, t1 = (float)h / th;
    gl1_vertex q[6] = {};
    const float corner[6][4] = {{x0, y0, 0, 0}, {x1, y0, s1, 0}, {x1, y1, s1, t1},
                                {x0, y0, 0, 0}, {x1, y1, s1, t1}, {x0, y1, 0, t1}};
    for (int i = 0; i < 6; i++) {
        q[i].x = corner[i][0], q[i].y = corner[i][1], q[i].s = corner[i][2], q[i].t = corner[i][3];
        memset(q[i].rgba, 255, 4);
    }
    const float to_clip[16] = {2 / (float)r.width, 0, 0, 0, 0, 2 / (float)r.height, 0, 0,
                               0, 0, 1, 0, -1, -1, 0, 1};
    emscripten_glEnable(GL_BLEND);
    emscripten_glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ZERO, GL_ONE);
    emscripten_glBlendEquation(GL_FUNC_ADD);
    emscripten_glDisable(GL_DEPTH_TEST);
    emscripten_glDisable(GL_SCISSOR_TEST);
    emscripten_glViewport(0, 0, r.width, r.height);
    const gl1_program &p = use(1);
    emscripten_glUniformMatrix4fv(p.u_matrix, 1, GL_FALSE, to_clip);
    emscripten_glUniform1i(p.u_points, 0);
    emscripten_glUniform1f(p.u_lod_bias, 0);
    emscripten_glDrawArrays(GL_TRIANGLES, stream_vertices(q, 6), 6);
    send_draws();
    thin_raster_erase(&r);
}

// Draws the batch on the CPU when GL would only write its colours into single pixels: no
// blending, texture, depth test or smoothing, points of size 1, lines of one colour each,
// and an affine matrix. False leaves the batch to WebGL.
static bool draw_thin(GLenum mode, const gl1_vertex *v, size_t count)
{
    const gl1_attribs &s = gl1.s;
    if ((mode != GL_POINTS && mode != GL_LINES) || count < THIN_BATCH) return false;
    if (s.blend || s.texture_2d || s.depth_test || s.point_smooth || s.line_smooth) return false;
    if (mode == GL_POINTS ? s.point_size > 1 : s.line_width != 1) return false;
    double m[16];
    multiplied_matrix(m);
    if (m[3] != 0 || m[7] != 0 || m[11] != 0 || m[15] != 1) return false;
    float mf[16];
    for (int i = 0; i < 16; i++) mf[i] = (float)m[i];
    // Lines cut at the near or far plane, or shaded from one colour to another, go to WebGL.
    if (mode == GL_LINES)
        for (size_t i = 0; i + 1 < count; i += 2)
            if (memcmp(v[i].rgba, v[i + 1].rgba, 4) != 0 || within_depth(mf, v[i]) != within_depth(mf, v[i + 1]))
                return false;

    thin_raster &r = gl1.thin;
    int width = 0, height = 0;
    emscripten_webgl_get_drawing_buffer_size(gl1.context, &width, &height);
    if (width != r.width || height != r.height) thin_raster_resize(&r, width, height);
    const int *vp = s.viewport;
    int clip[4] = {vp[0], vp[1], vp[0] + vp[2], vp[1] + vp[3]};
    if (s.scissor_test) {
        const int *sc = s.scissor;
        clip[0] = std::max(clip[0], sc[0]), clip[1] = std::max(clip[1], sc[1]);
        clip[2] = std::min(clip[2], sc[0] + sc[2]), clip[3] = std::min(clip[3], sc[1] + sc[3]);
    }
    r.clip[0] = std::max(clip[0], 0), r.clip[1] = std::max(clip[1], 0);
    r.clip[2] = std::min(clip[2], width), r.clip[3] = std::min(clip[3], height);
    float ax, ay, bx, by;
    if (mode == GL_POINTS) {
        for (size_t i = 0; i < count; i++) {
            if (!within_depth(mf, v[i])) continue;
            window_position(mf, v[i], &ax, &ay);
            thin_raster_point(&r, ax, ay, v[i].rgba);
        }
        return true;
    }
    for (size_t i = 0; i + 1 < count; i += 2) {
        if (!within_depth(mf, v[i])) continue;
        window_position(mf, v[i], &ax, &ay);
        window_position(mf, v[i + 1], &bx, &by);
        thin_raster_line(&r, ax, ay, bx, by, v[i].rgba);
    }
    return true;
}

// What the CPU drew goes to the canvas before anything else is drawn, read or shown.
static void flush_drawing()
{
    make_pending_clear();
    show_thin();
}

bool gl1_drawing_unshown() { return gl1.unshown; }

void gl1_present()
{
    if (!gl1.open) return;
    flush_drawing();
    gl1.unshown = false;
    page_show_canvas();
    // Waits of a millisecond, at most 1 s in all (a hidden page has no display frames): the
    // program's end after a wait of another kind would not reach the page (Module.onExit).
    double start = emscripten_get_now();
    while (!page_canvas_shown() && emscripten_get_now() - start < 1000) emscripten_sleep(1);
}

static void draw(GLenum mode, const gl1_vertex *v, size_t count)
{
    if (count == 0) return;
    gl1.unshown = true;
    if (draw_thin(mode, v, count)) return;
    // Quads become two triangles each (0 1 2, 0 2 3); a quad strip is a triangle strip.
    if (mode == GL_QUADS) {
        count -= count % 4;
        gl1.triangles.resize(count / 4 * 6);
        gl1_vertex *t = gl1.triangles.data();
        for (size_t q = 0; q < count; q += 4) {
            *t++ = v[q], *t++ = v[q + 1], *t++ = v[q + 2];
            *t++ = v[q], *t++ = v[q + 2], *t++ = v[q + 3];
        }
        v = gl1.triangles.data();
        count = gl1.triangles.size();
        mode = GL_TRIANGLES;
    } else if (mode == GL_QUAD_STRIP) {
        mode = GL_TRIANGLE_STRIP;
    } else if (mode == GL_POLYGON) {
        mode = GL_TRIANGLE_FAN;
    }
    if (count == 0) return;
    flush_drawing();
    apply_state();
    double m[16];
    multiplied_matrix(m);
    float mf[16];
    for (int i = 0; i < 16; i++) mf[i] = (float)m[i];
    gl1_texture *t = bound_texture();
    bool textured = gl1.s.texture_2d && t && t->webgl && t->rgba[0];
    const gl1_program &p = use(textured);
    emscripten_glUniformMatrix4fv(p.u_matrix, 1, GL_FALSE, mf);
    emscripten_glUniform1f(p.u_point_size, gl1.s.point_size);
    emscripten_glUniform1i(p.u_points, mode == GL_POINTS);
    const int *view = gl1.s.viewport;
    emscripten_glUniform4f(p.u_viewport, (float)view[0], (float)view[1], (float)view[2], (float)view[3]);
    if (textured) {
        emscripten_glBindTexture(GL_TEXTURE_2D, t->webgl);
        emscripten_glUniform1f(p.u_lod_bias, t->lod_bias);
    }
    emscripten_glDrawArrays(mode, stream_vertices(v, count), (GLsizei)count);
    send_draws();
}

// ---------------------------------------------------------------------------------------
// [SECTION] Immediate mode and client arrays

static gl1_vertex current_vertex(double x, double y, double z)
{
    gl1_vertex v;
    v.x = (float)x, v.y = (float)y, v.z = (float)z;
    memcpy(v.rgba, gl1.s.colour, 4);
    v.s = gl1.s.texcoord[0], v.t = gl1.s.texcoord[1];
    return v;
}

static unsigned char unit_to_byte(double f)
{
    f = f < 0 ? 0 : f > 1 ? 1 : f;
    return (unsigned char)lround(f * 255.0);
}

extern "C" {

void glBegin(GLenum mode)
{
    gl1.begin_mode = mode;
    gl1.vertices.clear();
}

void glEnd()
{
    draw(gl1.begin_mode, gl1.vertices.data(), gl1.vertices.size());
    gl1.begin_mode = ~0u;
}

void glVertex2d(GLdouble x, GLdouble y) { gl1.vertices.push_back(current_vertex(x, y, 0)); }
void glVertex2f(GLfloat x, GLfloat y) { gl1.vertices.push_back(current_vertex(x, y, 0)); }
void glVertex2i(GLint x, GLint y) { gl1.vertices.push_back(current_vertex(x, y, 0)); }
void glVertex3f(GLfloat x, GLfloat y, GLfloat z) { gl1.vertices.push_back(current_vertex(x, y, z)); }
void glVertex3d(GLdouble x, GLdouble y, GLdouble z) { gl1.vertices.push_back(current_vertex(x, y, z)); }

void glColor3ub(GLubyte r, GLubyte g, GLubyte b)
{
    gl1.s.colour[0] = r, gl1.s.colour[1] = g, gl1.s.colour[2] = b, gl1.s.colour[3] = 255;
}

void glColor4ub(GLubyte r, GLubyte g, GLubyte b, GLubyte a)
{
    gl1.s.colour[0] = r, gl1.s.colour[1] = g, gl1.s.colour[2] = b, gl1.s.colour[3] = a;
}

void glColor3f(GLfloat r, GLfloat g, GLfloat b) { glColor4ub(unit_to_byte(r), unit_to_byte(g), unit_to_byte(b), 255); }
void glColor4f(GLfloat r, GLfloat g, GLfloat b, GLfloat a) { glColor4ub(unit_to_byte(r), unit_to_byte(g), unit_to_byte(b), unit_to_byte(a)); }
void glColor3d(GLdouble r, GLdouble g, GLdouble b) { glColor3f((float)r, (float)g, (float)b); }

void glTexCoord2f(GLfloat s, GLfloat t) { gl1.s.texcoord[0] = s, gl1.s.texcoord[1] = t; }
void glTexCoord2d(GLdouble s, GLdouble t) { glTexCoord2f((float)s, (float)t); }

static client_array *array_of(GLenum kind)
{
    switch (kind) {
    case GL_VERTEX_ARRAY: return &gl1.vertex_array_state;
    case GL_COLOR_ARRAY: return &gl1.colour_array;
    case GL_TEXTURE_COORD_ARRAY: return &gl1.texcoord_array;
    default: return nullptr;
    }
}

void glEnableClientState(GLenum kind) { if (client_array *a = array_of(kind)) a->enabled = true; }
void glDisableClientState(GLenum kind) { if (client_array *a = array_of(kind)) a->enabled = false; }

static void set_array(client_array *a, GLint size, GLenum type, GLsizei stride, const void *p)
{
    a->size = size, a->type = type, a->stride = stride, a->pointer = p;
}

void glVertexPointer(GLint size, GLenum type, GLsizei stride, const void *p) { set_array(&gl1.vertex_array_state, size, type, stride, p); }
void glColorPointer(GLint size, GLenum type, GLsizei stride, const void *p) { set_array(&gl1.colour_array, size, type, stride, p); }
void glTexCoordPointer(GLint size, GLenum type, GLsizei stride, const void *p) { set_array(&gl1.texcoord_array, size, type, stride, p); }

// Component k of element i of a client array, as a double.
static double array_value(const client_array &a, int i, int k)
{
    int bytes = a.type == GL_DOUBLE ? 8 : a.type == GL_FLOAT || a.type == GL_INT ? 4
              : a.type == GL_SHORT ? 2 : 1;
    const unsigned char *p = (const unsigned char *)a.pointer +
                             (size_t)i * (a.stride ? a.stride : a.size * bytes) + (size_t)k * bytes;
    switch (a.type) {
    case GL_DOUBLE: { double d; memcpy(&d, p, 8); return d; }
    case GL_FLOAT: { float f; memcpy(&f, p, 4); return f; }
    case GL_INT: { int n; memcpy(&n, p, 4); return n; }
    case GL_SHORT: { short n; memcpy(&n, p, 2); return n; }
    default: return *p;
    }
}

void glDrawArrays(GLenum mode, GLint first, GLsizei count)
{
    const client_array &va = gl1.vertex_array_state, &ca = gl1.colour_array, &ta = gl1.texcoord_array;
    if (!va.enabled || count <= 0) return;
    gl1.vertices.resize((size_t)count);
    for (int n = 0; n < count; n++) {
        int i = first + n;
        gl1_vertex &v = gl1.vertices[(size_t)n];
        v = current_vertex(array_value(va, i, 0), array_value(va, i, 1),
                           va.size > 2 ? array_value(va, i, 2) : 0);
        if (ca.enabled) {
            for (int k = 0; k < ca.size && k < 4; k++) {
                double c = array_value(ca, i, k);
                v.rgba[k] = ca.type == GL_UNSIGNED_BYTE ? (unsigned char)c : unit_to_byte(c);
            }
            if (ca.size == 3) v.rgba[3] = 255;
        }
        if (ta.enabled) v.s = (float)array_value(ta, i, 0), v.t = (float)array_value(ta, i, 1);
    }
    draw(mode, gl1.vertices.data(), gl1.vertices.size());
}

// ---------------------------------------------------------------------------------------
// [SECTION] Enables, blending, depth, clipping, sizes

static bool *capability(GLenum cap)
{
    gl1_attribs &s = gl1.s;
    switch (cap) {
    case GL_BLEND: return &s.blend;
    case GL_TEXTURE_2D: return &s.texture_2d;
    case GL_DEPTH_TEST: return &s.depth_test;
    case GL_SCISSOR_TEST: return &s.scissor_test;
    case GL_LIGHTING: return &s.lighting;
    case GL_COLOR_MATERIAL: return &s.colour_material;
    case GL_LINE_SMOOTH: return &s.line_smooth;
    case GL_POINT_SMOOTH: return &s.point_smooth;
    case GL_CULL_FACE: return &s.cull_face;
    default: return nullptr;   // states the subset does not draw with (seamless cube maps ...)
    }
}

void glEnable(GLenum cap) { if (bool *b = capability(cap)) *b = true; }
void glDisable(GLenum cap) { if (bool *b = capability(cap)) *b = false; }
GLboolean glIsEnabled(GLenum cap)
{
    bool *b = capability(cap);
    return b && *b ? GL_TRUE : GL_FALSE;
}

void glBlendFunc(GLenum src, GLenum dst)
{
    gl1.s.blend_src_rgb = gl1.s.blend_src_alpha = src;
    gl1.s.blend_dst_rgb = gl1.s.blend_dst_alpha = dst;
}

static void blend_func_separate(GLenum sr, GLenum dr, GLenum sa, GLenum da)
{
    gl1.s.blend_src_rgb = sr, gl1.s.blend_dst_rgb = dr;
    gl1.s.blend_src_alpha = sa, gl1.s.blend_dst_alpha = da;
}

static void blend_equation(GLenum mode) { gl1.s.blend_equation = mode; }

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
    flush_drawing();
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

void glMatrixMode(GLenum mode) { gl1.s.matrix_mode = mode; }
void glLoadIdentity() { identity(top_matrix()); }
void glLoadMatrixf(const GLfloat *m)
{
    double *t = top_matrix();
    for (int i = 0; i < 16; i++) t[i] = m[i];
}
void glLoadMatrixd(const GLdouble *m) { memcpy(top_matrix(), m, 16 * sizeof(double)); }
void glMultMatrixd(const GLdouble *m) { multiply(top_matrix(), m); }

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

void glTranslatef(GLfloat x, GLfloat y, GLfloat z)
{
    double m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1};
    multiply(top_matrix(), m);
}

void glPushMatrix()
{
    double *top = top_matrix();
    int *depth = gl1.s.matrix_mode == GL_PROJECTION ? &gl1.projection_depth
               : gl1.s.matrix_mode == GL_TEXTURE ? &gl1.texture_depth : &gl1.modelview_depth;
    int limit = depth == &gl1.modelview_depth ? MODELVIEW_DEPTH : OTHER_DEPTH;
    if (*depth + 1 >= limit) return;   // GL's stack overflow: nothing happens
    ++*depth;
    memcpy(top_matrix(), top, 16 * sizeof(double));
}

void glPopMatrix()
{
    int *depth = gl1.s.matrix_mode == GL_PROJECTION ? &gl1.projection_depth
               : gl1.s.matrix_mode == GL_TEXTURE ? &gl1.texture_depth : &gl1.modelview_depth;
    if (*depth > 0) --*depth;
}

// ---------------------------------------------------------------------------------------
// [SECTION] The attribute stack

void glPushAttrib(GLbitfield mask)
{
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
        s.lighting = o.lighting, s.colour_material = o.colour_material;
        s.line_smooth = o.line_smooth, s.point_smooth = o.point_smooth, s.cull_face = o.cull_face;
    }
    if (mask & GL_DEPTH_BUFFER_BIT) {
        s.depth_test = o.depth_test, s.depth_func = o.depth_func, s.depth_mask = o.depth_mask;
        s.clear_depth = o.clear_depth;
    }
    if (mask & GL_SCISSOR_BIT) {
        s.scissor_test = o.scissor_test;
        memcpy(s.scissor, o.scissor, sizeof s.scissor);
    }
    if (mask & GL_VIEWPORT_BIT) memcpy(s.viewport, o.viewport, sizeof s.viewport);
    if (mask & GL_TRANSFORM_BIT) s.matrix_mode = o.matrix_mode;
    if (mask & GL_TEXTURE_BIT) s.texture = o.texture;
    if (mask & GL_POINT_BIT) s.point_size = o.point_size, s.point_smooth = o.point_smooth;
    if (mask & GL_LINE_BIT) s.line_width = o.line_width, s.line_smooth = o.line_smooth;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Textures

void glGenTextures(GLsizei n, GLuint *names)
{
    for (int i = 0; i < n; i++) {
        gl1_texture t = {};
        emscripten_glGenTextures(1, &t.webgl);
        names[i] = (GLuint)gl1.textures.size();
        gl1.textures.push_back(t);
    }
}

void glDeleteTextures(GLsizei n, const GLuint *names)
{
    for (int i = 0; i < n; i++) {
        if (names[i] == 0 || names[i] >= gl1.textures.size()) continue;
        gl1_texture &t = gl1.textures[names[i]];
        emscripten_glDeleteTextures(1, &t.webgl);
        for (unsigned char *level : t.rgba) free(level);
        t = gl1_texture{};
    }
}

void glBindTexture(GLenum, GLuint name) { gl1.s.texture = name; }

void glTexParameteri(GLenum, GLenum name, GLint value)
{
    gl1_texture *t = bound_texture();
    if (!t || !t->webgl) return;
    emscripten_glBindTexture(GL_TEXTURE_2D, t->webgl);
    emscripten_glTexParameteri(GL_TEXTURE_2D, name, value);
}

void glTexParameterf(GLenum target, GLenum name, GLfloat value)
{
    gl1_texture *t = bound_texture();
    if (!t) return;
    if (name == GL_TEXTURE_LOD_BIAS) t->lod_bias = value;
    else if (name == GL_TEXTURE_MIN_FILTER || name == GL_TEXTURE_MAG_FILTER ||
             name == GL_TEXTURE_WRAP_S || name == GL_TEXTURE_WRAP_T)
        glTexParameteri(target, name, (GLint)value);
}

// Bytes of a row of `width` pixels of `components` bytes each, padded to the alignment.
static size_t row_bytes(int width, int components, int alignment)
{
    size_t n = (size_t)width * components;
    return (n + alignment - 1) / alignment * alignment;
}

static int components_of_format(GLenum format)
{
    switch (format) {
    case GL_LUMINANCE: case GL_ALPHA: case GL_RED: return 1;
    case GL_LUMINANCE_ALPHA: return 2;
    case GL_RGB: case GL_BGR: return 3;
    default: return 4;
    }
}

// Stores a level as RGBA and hands it to WebGL. Pixels may be null (an empty level).
static void store_level(gl1_texture *t, int level, int internal, int w, int h, GLenum format,
                        const unsigned char *pixels, int alignment)
{
    free(t->rgba[level]);
    unsigned char *rgba = (unsigned char *)calloc((size_t)w * h, 4);
    int c = components_of_format(format);
    for (int y = 0; y < h && pixels; y++) {
        const unsigned char *p = pixels + row_bytes(w, c, alignment) * y;
        unsigned char *q = rgba + (size_t)y * w * 4;
        for (int x = 0; x < w; x++, p += c, q += 4) {
            switch (format) {
            case GL_LUMINANCE: q[0] = q[1] = q[2] = p[0], q[3] = 255; break;
            case GL_ALPHA: q[0] = q[1] = q[2] = 0, q[3] = p[0]; break;
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
    emscripten_glBindTexture(GL_TEXTURE_2D, t->webgl);
    emscripten_glTexImage2D(GL_TEXTURE_2D, level, GL_RGBA8, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
}

void glTexImage2D(GLenum, GLint level, GLint internal, GLsizei w, GLsizei h, GLint, GLenum format,
                  GLenum, const void *pixels)
{
    gl1_texture *t = bound_texture();
    if (!t || !t->webgl || level < 0 || level >= MAX_LEVELS || w < 0 || h < 0) return;
    store_level(t, level, internal, w, h, format, (const unsigned char *)pixels, gl1.unpack_alignment);
}

void glGetTexLevelParameteriv(GLenum, GLint level, GLenum name, GLint *value)
{
    gl1_texture *t = bound_texture();
    bool known = t && level >= 0 && level < MAX_LEVELS && t->rgba[level];
    switch (name) {
    case GL_TEXTURE_WIDTH: *value = known ? t->width[level] : 0; break;
    case GL_TEXTURE_HEIGHT: *value = known ? t->height[level] : 0; break;
    case GL_TEXTURE_INTERNAL_FORMAT: *value = known ? t->internal[level] : 1; break;
    default: *value = 0; break;
    }
}

// From the level's RGBA copy into the given format, rows padded to the pack alignment.
void glGetTexImage(GLenum, GLint level, GLenum format, GLenum, void *pixels)
{
    gl1_texture *t = bound_texture();
    if (!t || level < 0 || level >= MAX_LEVELS || !t->rgba[level]) return;
    int w = t->width[level], h = t->height[level], c = components_of_format(format);
    for (int y = 0; y < h; y++) {
        const unsigned char *p = t->rgba[level] + (size_t)y * w * 4;
        unsigned char *q = (unsigned char *)pixels + row_bytes(w, c, gl1.pack_alignment) * y;
        for (int x = 0; x < w; x++, p += 4, q += c) {
            switch (format) {
            case GL_LUMINANCE: case GL_RED: q[0] = p[0]; break;
            case GL_ALPHA: q[0] = p[3]; break;
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
    if (name == GL_UNPACK_ALIGNMENT) gl1.unpack_alignment = value;
}

void glReadPixels(GLint x, GLint y, GLsizei w, GLsizei h, GLenum format, GLenum, void *pixels)
{
    if (w <= 0 || h <= 0) return;
    flush_drawing();
    unsigned char *rgba = (unsigned char *)malloc((size_t)w * h * 4);
    emscripten_glReadPixels(x, y, w, h, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    int c = components_of_format(format);
    for (int row = 0; row < h; row++) {
        const unsigned char *p = rgba + (size_t)row * w * 4;
        unsigned char *q = (unsigned char *)pixels + row_bytes(w, c, gl1.pack_alignment) * row;
        for (int i = 0; i < w; i++, p += 4, q += c) {
            if (format == GL_BGR || format == GL_BGRA) q[0] = p[2], q[1] = p[1], q[2] = p[0];
            else for (int k = 0; k < c && k < 3; k++) q[k] = p[k];
            if (c == 4) q[3] = 255;
        }
    }
    free(rgba);
}

void glCopyTexImage2D(GLenum target, GLint level, GLenum internal, GLint x, GLint y, GLsizei w,
                      GLsizei h, GLint)
{
    unsigned char *rgba = (unsigned char *)malloc((size_t)w * h * 4);
    int pack = gl1.pack_alignment;
    gl1.pack_alignment = 4;
    glReadPixels(x, y, w, h, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    gl1.pack_alignment = pack;
    gl1_texture *t = bound_texture();
    if (t && t->webgl && level >= 0 && level < MAX_LEVELS) store_level(t, level, (GLint)internal, w, h, GL_RGBA, rgba, 4);
    free(rgba);
    (void)target;
}

void glCopyTexSubImage2D(GLenum target, GLint level, GLint, GLint, GLint x, GLint y, GLsizei w,
                         GLsizei h)
{
    gl1_texture *t = bound_texture();
    if (t && level >= 0 && level < MAX_LEVELS)
        glCopyTexImage2D(target, level, (GLenum)t->internal[level], x, y, w, h, 0);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Queries

static void get_doubles(GLenum name, double *out)
{
    switch (name) {
    case GL_MODELVIEW_MATRIX: memcpy(out, gl1.modelview[gl1.modelview_depth], 16 * sizeof(double)); break;
    case GL_PROJECTION_MATRIX: memcpy(out, gl1.projection[gl1.projection_depth], 16 * sizeof(double)); break;
    case GL_TEXTURE_MATRIX: memcpy(out, gl1.texture_matrix[gl1.texture_depth], 16 * sizeof(double)); break;
    case GL_VIEWPORT: for (int i = 0; i < 4; i++) out[i] = gl1.s.viewport[i]; break;
    case GL_SCISSOR_BOX: for (int i = 0; i < 4; i++) out[i] = gl1.s.scissor[i]; break;
    case GL_POINT_SIZE: out[0] = gl1.s.point_size; break;
    case GL_LINE_WIDTH: out[0] = gl1.s.line_width; break;
    case GL_MATRIX_MODE: out[0] = gl1.s.matrix_mode; break;
    case GL_PACK_ALIGNMENT: out[0] = gl1.pack_alignment; break;
    case GL_UNPACK_ALIGNMENT: out[0] = gl1.unpack_alignment; break;
    case GL_TEXTURE_BINDING_2D: out[0] = gl1.s.texture; break;
    case GL_MAX_TEXTURE_SIZE: {
        GLint n = 0;
        emscripten_glGetIntegerv(GL_MAX_TEXTURE_SIZE, &n);
        out[0] = n;
        break;
    }
    default: out[0] = 0; break;
    }
}

static int query_count(GLenum name)
{
    switch (name) {
    case GL_MODELVIEW_MATRIX: case GL_PROJECTION_MATRIX: case GL_TEXTURE_MATRIX: return 16;
    case GL_VIEWPORT: case GL_SCISSOR_BOX: return 4;
    default: return 1;
    }
}

void glGetDoublev(GLenum name, GLdouble *out) { get_doubles(name, out); }

void glGetFloatv(GLenum name, GLfloat *out)
{
    double d[16];
    get_doubles(name, d);
    for (int i = 0; i < query_count(name); i++) out[i] = (float)d[i];
}

void glGetIntegerv(GLenum name, GLint *out)
{
    double d[16];
    get_doubles(name, d);
    for (int i = 0; i < query_count(name); i++) out[i] = (GLint)d[i];
}

const GLubyte *glGetString(GLenum name)
{
    switch (name) {
    case GL_VERSION: return (const GLubyte *)"1.4 (GL 1.x subset over WebGL 2)";
    case GL_VENDOR: return (const GLubyte *)"Morvane";
    case GL_RENDERER: return (const GLubyte *)"WebGL 2";
    case GL_EXTENSIONS: return (const GLubyte *)"";
    default: return nullptr;
    }
}

static void use_program(GLuint) {}   // only the layer's own shader pair draws

}   // extern "C"

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
