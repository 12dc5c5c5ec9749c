// What the files of the web GL layer share: the layer's state (current GL 1.x state, matrix
// stacks, textures with their copies, the WebGL objects), the WebGL 2 entry points it draws
// with, and the few functions one file offers the others.
#pragma once

#include "Morvane/gfx_opengl/web/frame_raster.h"
#include "Morvane/gfx_opengl/web/thin_raster.h"

#include <GL/gl.h>
#include <emscripten/html5.h>

#include <cstddef>
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
#define GL_LINK_STATUS 0x8B82
#endif
#ifndef GL_FUNC_ADD
#define GL_FUNC_ADD 0x8006
#endif
#ifndef GL_TEXTURE_CUBE_MAP_SEAMLESS
#define GL_TEXTURE_CUBE_MAP_SEAMLESS 0x884F
#endif

// WebGL 2 through Emscripten's second names for its GL functions, which stay reachable while
// the layer defines the GL 1.x names itself.
extern "C" {
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
void emscripten_glColorMask(GLboolean, GLboolean, GLboolean, GLboolean);
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

// One vertex as the shader reads it.
struct gl1_vertex {
    float x, y, z;
    unsigned char rgba[4];
    float s, t;
};

enum { MAX_LEVELS = 16, MODELVIEW_DEPTH = 32, PROJECTION_DEPTH = 4, ATTRIB_DEPTH = 16 };

// A texture name with a copy of everything WebGL holds for it, so that the texture can be
// read back, and made again when the browser has lost the context.
struct gl1_texture {
    bool named;                         // false: the name is free
    GLuint webgl;
    int width[MAX_LEVELS], height[MAX_LEVELS];
    int internal[MAX_LEVELS];           // as given to glTexImage2D
    unsigned char *rgba[MAX_LEVELS];    // every level as RGBA rows, tightly packed
    float lod_bias;
    GLint filters_and_wraps[4];         // min and mag filter, wrap s and t; 0: WebGL's default
};

// The current state, and what glPushAttrib saves (all of it, restored group by group).
struct gl1_attribs {
    bool blend, texture_2d, depth_test, scissor_test, line_smooth, point_smooth;
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

// A draw of independent triangles, lines or points not yet handed to WebGL: the next such
// draw in the same state joins it, as one WebGL draw costs a CPU renderer about as much as
// two hundred glyphs.
struct gl1_draw_key {
    GLenum mode;
    int textured;
    GLuint texture;
    float lod_bias, matrix[16];
};

struct gl1_pending_draw {
    gl1_draw_key key;
    gl1_attribs state;
    std::vector<gl1_vertex> vertices;   // empty: no draw pending
};

// A clear (mask not 0) or a draw in a frame drawn on the CPU, kept with its state: the depth
// written, to be made again in WebGL if the frame moves there; the frame's first clears and
// fills, to be drawn only when they differ from the last frame's.
struct gl1_step {
    GLbitfield mask;
    GLenum mode;
    gl1_attribs state;
    float matrix[16];
    std::vector<gl1_vertex> vertices;
};

struct gl1_layer {
    bool open;
    bool unshown;                       // drawn since the canvas was last shown
    GLbitfield clear_mask;              // a clear not yet made, with the state it was asked in
    gl1_attribs clear_state;
    EMSCRIPTEN_WEBGL_CONTEXT_HANDLE context;
    bool cpu_thin;                      // large thin batches drawn on the CPU (a software WebGL)
    bool cpu_frames;                    // whole frames drawn on the CPU where they can be
    bool frame_on_cpu;                  // this frame is drawn on the CPU so far
    bool frame_drawable;                // every draw of this frame could be drawn on the CPU
    frame_raster frame;                 // ... the frame
    std::vector<frame_vertex> frame_vertices;
    double depth_floor;                 // no depth in the depth buffer is below this
    std::vector<gl1_step> depth_steps;
    bool opening;                       // the frame so far is clears and plain fills, kept undrawn
    std::vector<gl1_step> opening_steps;
    std::vector<unsigned char> opening_bytes;   // the last drawn opening, as bytes
    unsigned char *opening_picture;     // ... and the frame it made
    GLuint frame_texture;               // a frame moving to WebGL goes there through this
    int frame_texture_size[2];
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

    double modelview[MODELVIEW_DEPTH][16], projection[PROJECTION_DEPTH][16];
    int modelview_depth, projection_depth;   // index of the top

    int pack_alignment, unpack_alignment;
    std::vector<gl1_texture> textures;  // by name; name 0 is the default texture

    GLenum begin_mode;                  // the mode between glBegin and glEnd, or ~0u
    std::vector<gl1_vertex> vertices;   // gathered by glBegin/glEnd and glDrawArrays
    std::vector<gl1_vertex> triangles;  // quads turned into triangles
    gl1_pending_draw pending;
    client_array vertex_array_state, colour_array, texcoord_array;
};
extern gl1_layer gl1;

// Says once on the console, for each call and value, that the layer does not handle what the
// caller passed (and so draws or keeps nothing for it).
void gl1_unhandled(const char *call, unsigned value);

// gl1_state.cpp: GL 1.x's initial state; the projection times the modelview matrix.
void gl1_reset_state(int width, int height);
void gl1_matrix(float m[16]);

// gl1_context.cpp: the draw path.
void gl1_draw(GLenum mode, const gl1_vertex *v, size_t count);
// Makes a draw and a clear still pending and shows what the CPU drew: before anything else
// is drawn, read or shown.
void gl1_flush_drawing();
// Hands a pending draw to WebGL: before a texture it may read changes.
void gl1_send_pending_draw();
// A colour component in the unit range as a byte, as GL converts it.
unsigned char gl1_unit_to_byte(double f);
// Puts vertices into the stream buffer; returns the index of the first.
GLint gl1_stream_vertices(const gl1_vertex *v, size_t count);
// Makes program 0 (plain) or 1 (textured) current, and returns it.
const gl1_program &gl1_use_program(int which);
void gl1_send_draws();

// Hands a clear, or a draw with a matrix of its own, to WebGL at once in the current state.
void gl1_webgl_clear(GLbitfield mask);
void gl1_webgl_draw(GLenum mode, const float matrix[16], const gl1_vertex *v, size_t count);
// Puts width x height pixels (top row first) over the whole canvas, blending nothing.
void gl1_put_picture(const unsigned char *rgba, int width, int height);

// gl1_textures.cpp: the bound texture, or nullptr; every named texture made again in WebGL
// from its copy.
gl1_texture *gl1_bound_texture();
void gl1_remake_textures();

// thin_batches.cpp: draws a batch on the CPU when that gives GL's pixels (false leaves it to
// WebGL), and shows what the CPU drew.
bool gl1_draw_thin(GLenum mode, const gl1_vertex *v, size_t count);
void gl1_show_thin();
// Draws points, or separate lines, into the thin picture.
void gl1_thin_into_picture(GLenum mode, const gl1_vertex *v, size_t count, const float m[16]);
// A vertex's window position under an affine matrix, as the GPU computes it.
void gl1_window_position(const float m[16], const gl1_vertex &v, float *x, float *y);
// The pixels a draw may reach: the viewport and the scissor box, inside the canvas.
void gl1_clip_box(int width, int height, int clip[4]);

// frame_path.cpp: the frame drawn on the CPU. A draw or a clear it made says true; a draw it
// cannot make moves the frame to WebGL first. The swap shows the frame; a read reads it.
bool gl1_frame_draw(GLenum mode, const gl1_vertex *v, size_t count);
bool gl1_frame_clear(GLbitfield mask, const gl1_attribs &state);
void gl1_frame_present();
bool gl1_frame_read(int x, int y, int w, int h, unsigned char *rgba);
