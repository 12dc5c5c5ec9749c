// The web GL layer's context and draw path: the canvas's WebGL 2 context with one shader pair,
// the vertex stream, immediate mode and client arrays gathered into batches, each batch drawn
// with the state of its time (batches in a row in the same state joined into one draw), and
// the swap. The canvas's own drawing buffer is the back
// buffer: the swap lets the page show it, and a clear waits for the next draw, so that a wait
// in between shows no half-made frame.
#include "Morvane/gfx_opengl/web/gl1_internal.h"
#include "Morvane/gfx_opengl/web/gl1_webgl.h"
#include "Morvane/gfx_opengl/web/platform_web.h"

#include <emscripten.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

gl1_layer gl1;

void gl1_unhandled(const char *call, unsigned value)
{
    static std::vector<std::string> said;
    char kind[64];
    snprintf(kind, sizeof kind, "%s(0x%04X)", call, value);
    if (std::find(said.begin(), said.end(), kind) != said.end()) return;
    said.push_back(kind);
    emscripten_log(EM_LOG_CONSOLE | EM_LOG_WARN, "GL 1.x subset: %s is not handled and is left out", kind);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Shaders and the vertex stream

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

// A full buffer is given new storage: WebGL then need not wait for the draws that still read
// the old one. Re-specifying the buffer for every draw would cost about half a millisecond a
// draw on a CPU renderer; writing into unused parts costs next to nothing.
enum { STREAM_VERTICES = 1 << 18 };   // 6 MB, a few frames of vertices

GLint gl1_stream_vertices(const gl1_vertex *v, size_t count)
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
void gl1_send_draws() { emscripten_glFlush(); }

const gl1_program &gl1_use_program(int which)
{
    if (gl1.program_in_use != which) emscripten_glUseProgram(gl1.programs[which].id);
    gl1.program_in_use = which;
    return gl1.programs[which];
}

// ---------------------------------------------------------------------------------------
// [SECTION] Opening and the swap

// clang-format off
// Marks the canvas shown once the page has shown it: after the display frame's callback, in
// the next task, which runs after the canvas went to the page. Module.shown_times, when a
// benchmark sets it to an array, receives the time of each.
EM_JS(void, page_show_canvas, (), {
    Module.gl1_shown = false;
    requestAnimationFrame(() => setTimeout(() => {
        Module.gl1_shown = true;
        if (Module.shown_times) Module.shown_times.push(performance.now());
        if (Module.gl1_on_shown) Module.gl1_on_shown();
    }, 0));
});
// Returns once the browser has shown the canvas, at the moment it has (a timer polled would
// wake up to 4 ms late, as browsers hold back timers set from timers); at once while the page
// is hidden, which has no display frames, or when it becomes hidden; after 1 s at most. The
// program goes on from a timer of the runtime's own (safeSetTimeout), as after
// emscripten_sleep, so that its end reaches the page (Module.onExit). Named as an
// asynchronous import, so the program can wait in it; handleSleep is called every time, as
// the runtime calls the import again when it resumes the program.
#define PAGE_WAIT_JS(...) #__VA_ARGS__
_EM_JS(void, page_wait_until_shown, __asyncjs__page_wait_until_shown, (), PAGE_WAIT_JS({
    return Asyncify.handleSleep((wakeUp) => {
        if (Module.gl1_shown || document.hidden) return wakeUp();
        const done = () => {
            clearTimeout(limit);
            document.removeEventListener("visibilitychange", hidden);
            Module.gl1_on_shown = null;
            safeSetTimeout(wakeUp, 0);
        };
        const hidden = () => { if (document.hidden) done(); };
        const limit = setTimeout(done, 1000);
        document.addEventListener("visibilitychange", hidden);
        Module.gl1_on_shown = done;
    });
}));
// clang-format on

// The shader pair, the vertex stream's buffer and layout, and the pixel transfers the layer
// makes itself (rows tightly packed): made at the start and again after a lost context.
static bool make_pipeline()
{
    GLuint vertex_shader = compile(GL_VERTEX_SHADER, vertex_source);
    if (!link(&gl1.programs[0], vertex_shader, plain_fragment_source) ||
        !link(&gl1.programs[1], vertex_shader, textured_fragment_source))
        return false;
    gl1.program_in_use = 1;

    emscripten_glGenVertexArrays(1, &gl1.vertex_array);
    emscripten_glBindVertexArray(gl1.vertex_array);
    emscripten_glGenBuffers(1, &gl1.vertex_buffer);
    emscripten_glBindBuffer(GL_ARRAY_BUFFER, gl1.vertex_buffer);
    gl1.buffer_vertices = gl1.buffer_used = 0;
    const GLsizei stride = sizeof(gl1_vertex);
    emscripten_glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, stride, (void *)offsetof(gl1_vertex, x));
    emscripten_glVertexAttribPointer(1, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride, (void *)offsetof(gl1_vertex, rgba));
    emscripten_glVertexAttribPointer(2, 2, GL_FLOAT, GL_FALSE, stride, (void *)offsetof(gl1_vertex, s));
    for (int i = 0; i < 3; i++) emscripten_glEnableVertexAttribArray((GLuint)i);
    emscripten_glPixelStorei(GL_PACK_ALIGNMENT, 1);
    emscripten_glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    return true;
}

// A context the browser has lost (a GPU reset, a tablet freeing a background tab's memory)
// comes back only when the loss is accepted; then everything it held is made again from the
// layer's copies, and the program's next frame draws the picture again.
static EM_BOOL on_context_lost(int, const void *, void *) { return 1; }

static EM_BOOL on_context_restored(int, const void *, void *)
{
    emscripten_webgl_make_context_current(gl1.context);
    gl1.pending.vertices.clear();
    gl1.thin_texture = 0;
    gl1.thin_texture_size[0] = gl1.thin_texture_size[1] = 0;
    gl1.frame_texture = 0;
    gl1.frame_texture_size[0] = gl1.frame_texture_size[1] = 0;
    make_pipeline();
    gl1_remake_textures();
    return 1;
}

// Where WebGL runs on the CPU (SwiftShader, llvmpipe, softpipe, WARP), it costs far more to
// fill a pixel or to draw one of thousands of one-pixel points and lines than the layer's own
// drawing does; a GPU does either in well under a millisecond. So there whole frames are drawn
// on the CPU where they can be ("frame"), and elsewhere WebGL draws everything ("webgl").
// The renderer's name tells which: the browsers asked here create a context even with
// failIfMajorPerformanceCaveat on a software renderer, so that flag does not. The name is the
// unmasked one where the browser masks RENDERER. ?thin=frame, ?thin=cpu (only thin batches on
// the CPU, into WebGL's frame) or ?thin=webgl in the page's address forces a path, to measure.
// Returns 2 for frames, 1 for thin batches, 0 for WebGL.
// clang-format off
EM_JS(int, page_drawing_path, (), {
    const gl = Module.canvas.getContext("webgl2");
    let name = gl ? String(gl.getParameter(gl.RENDERER)) : "";
    if (gl && /^webkit webgl$/i.test(name)) {
        const info = gl.getExtension("WEBGL_debug_renderer_info");
        if (info) name = String(gl.getParameter(info.UNMASKED_RENDERER_WEBGL));
    }
    const forced = new URLSearchParams(location.search).get("thin");
    const software = /swiftshader|llvmpipe|softpipe|software|basic render driver/i.test(name);
    const path = ["frame", "cpu", "webgl"].includes(forced) ? forced : software ? "frame" : "webgl";
    Module.webgl_renderer = name;
    Module.thin_path = path;
    return path === "frame" ? 2 : path === "cpu" ? 1 : 0;
});
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
    const int path = page_drawing_path();
    gl1.cpu_thin = path >= 1;
    gl1.cpu_frames = gl1.frame_on_cpu = gl1.frame_drawable = gl1.opening = path == 2;
    gl1.depth_floor = -INFINITY;
    if (!make_pipeline()) return false;
    emscripten_set_webglcontextlost_callback(canvas_selector, nullptr, 1, on_context_lost);
    emscripten_set_webglcontextrestored_callback(canvas_selector, nullptr, 1, on_context_restored);

    gl1_reset_state(width, height);
    gl1.textures.resize(1);
    gl1.begin_mode = ~0u;
    emscripten_glViewport(0, 0, width, height);
    gl1.open = true;
    return true;
}

bool gl1_drawing_unshown() { return gl1.unshown; }

void gl1_present()
{
    if (!gl1.open) return;
    gl1_flush_drawing();
    gl1_frame_present();
    gl1.unshown = false;
    page_show_canvas();
    page_wait_until_shown();
}

// ---------------------------------------------------------------------------------------
// [SECTION] Handing the state to WebGL and drawing

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

void gl1_webgl_clear(GLbitfield mask)
{
    apply_state();
    const float *c = gl1.s.clear_colour;
    emscripten_glClearColor(c[0], c[1], c[2], c[3]);
    emscripten_glClearDepthf((float)gl1.s.clear_depth);
    emscripten_glClear(mask);
}

// The clear asked for last, made now with the state of its time.
static void make_pending_clear()
{
    if (!gl1.clear_mask) return;
    if (!gl1_frame_clear(gl1.clear_mask, gl1.clear_state)) {
        gl1_attribs now = gl1.s;
        gl1.s = gl1.clear_state;
        gl1_webgl_clear(gl1.clear_mask);
        gl1.s = now;
    }
    gl1.clear_mask = 0;
}

void gl1_flush_drawing()
{
    gl1_send_pending_draw();
    make_pending_clear();
    gl1_show_thin();
}

// Quads become two triangles each (0 1 2, 0 2 3), in gl1.triangles; returns their count.
static size_t quads_as_triangles(const gl1_vertex *v, size_t count)
{
    count -= count % 4;
    gl1.triangles.resize(count / 4 * 6);
    gl1_vertex *t = gl1.triangles.data();
    for (size_t q = 0; q < count; q += 4) {
        *t++ = v[q], *t++ = v[q + 1], *t++ = v[q + 2];
        *t++ = v[q], *t++ = v[q + 2], *t++ = v[q + 3];
    }
    return gl1.triangles.size();
}

// The modes the program draws with; a quad strip is a triangle strip.
static bool drawable(GLenum mode)
{
    switch (mode) {
    case GL_POINTS: case GL_LINES: case GL_LINE_LOOP: case GL_LINE_STRIP: case GL_TRIANGLES:
    case GL_TRIANGLE_STRIP: case GL_TRIANGLE_FAN: case GL_QUADS: case GL_QUAD_STRIP:
        return true;
    default:
        gl1_unhandled("glBegin", mode);
        return false;
    }
}

// What a draw reads beside the fixed-function state: mode, program, texture and matrix; zeroed
// first, so that two keys compare byte for byte.
static gl1_draw_key draw_key(GLenum mode)
{
    gl1_draw_key k;
    memset(&k, 0, sizeof k);
    k.mode = mode;
    gl1_texture *t = gl1_bound_texture();
    k.textured = gl1.s.texture_2d && t && t->named && t->rgba[0];
    if (k.textured) k.texture = t->webgl, k.lod_bias = t->lod_bias;
    gl1_matrix(k.matrix);
    return k;
}

static bool same_draw_state(const gl1_attribs &a, const gl1_attribs &b)
{
    return a.blend == b.blend && a.blend_src_rgb == b.blend_src_rgb &&
           a.blend_dst_rgb == b.blend_dst_rgb && a.blend_src_alpha == b.blend_src_alpha &&
           a.blend_dst_alpha == b.blend_dst_alpha && a.blend_equation == b.blend_equation &&
           a.depth_test == b.depth_test && a.depth_func == b.depth_func &&
           a.depth_mask == b.depth_mask && a.scissor_test == b.scissor_test &&
           memcmp(a.scissor, b.scissor, sizeof a.scissor) == 0 &&
           memcmp(a.viewport, b.viewport, sizeof a.viewport) == 0 && a.point_size == b.point_size;
}

// Hands a draw to WebGL in the current state.
static void issue_draw(const gl1_draw_key &k, const gl1_vertex *v, size_t count)
{
    apply_state();
    const gl1_program &p = gl1_use_program(k.textured);
    emscripten_glUniformMatrix4fv(p.u_matrix, 1, GL_FALSE, k.matrix);
    emscripten_glUniform1f(p.u_point_size, gl1.s.point_size);
    emscripten_glUniform1i(p.u_points, k.mode == GL_POINTS);
    const int *view = gl1.s.viewport;
    emscripten_glUniform4f(p.u_viewport, (float)view[0], (float)view[1], (float)view[2], (float)view[3]);
    if (k.textured) {
        emscripten_glBindTexture(GL_TEXTURE_2D, k.texture);
        emscripten_glUniform1f(p.u_lod_bias, k.lod_bias);
    }
    emscripten_glDrawArrays(k.mode, gl1_stream_vertices(v, count), (GLsizei)count);
    gl1_send_draws();
}

// Quads as WebGL draws them: separate quads as triangles (in gl1.triangles), a quad strip as a
// triangle strip.
static GLenum as_webgl_mode(GLenum mode, const gl1_vertex **v, size_t *count)
{
    if (mode == GL_QUADS) {
        *count = quads_as_triangles(*v, *count);
        *v = gl1.triangles.data();
        return GL_TRIANGLES;
    }
    return mode == GL_QUAD_STRIP ? GL_TRIANGLE_STRIP : mode;
}

void gl1_webgl_draw(GLenum mode, const float matrix[16], const gl1_vertex *v, size_t count)
{
    mode = as_webgl_mode(mode, &v, &count);
    gl1_draw_key k;
    memset(&k, 0, sizeof k);
    k.mode = mode;
    memcpy(k.matrix, matrix, sizeof k.matrix);
    if (count) issue_draw(k, v, count);
}

void gl1_send_pending_draw()
{
    gl1_pending_draw &d = gl1.pending;
    if (d.vertices.empty()) return;
    gl1_attribs now = gl1.s;
    gl1.s = d.state;
    issue_draw(d.key, d.vertices.data(), d.vertices.size());
    gl1.s = now;
    d.vertices.clear();
}

// A draw of independent primitives waits, to be joined by the next one made in the same
// state with nothing drawn on the CPU in between (which shows before that next one).
void gl1_draw(GLenum mode, const gl1_vertex *v, size_t count)
{
    if (count == 0 || !drawable(mode)) return;
    gl1.unshown = true;
    if (gl1.cpu_frames) {
        make_pending_clear();
        if (gl1_frame_draw(mode, v, count)) return;
    }
    if (gl1.cpu_thin && gl1_draw_thin(mode, v, count)) return;
    mode = as_webgl_mode(mode, &v, &count);
    if (count == 0) return;
    const gl1_draw_key k = draw_key(mode);
    gl1_pending_draw &d = gl1.pending;
    const int *thin = gl1.thin.box;
    if (!d.vertices.empty() && thin[2] <= thin[0] && memcmp(&k, &d.key, sizeof k) == 0 &&
        same_draw_state(gl1.s, d.state)) {
        d.vertices.insert(d.vertices.end(), v, v + count);
        return;
    }
    gl1_flush_drawing();
    if (mode == GL_TRIANGLES || mode == GL_LINES || mode == GL_POINTS) {
        d.key = k;
        d.state = gl1.s;
        d.vertices.assign(v, v + count);
        return;
    }
    issue_draw(k, v, count);
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

unsigned char gl1_unit_to_byte(double f)
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
    gl1_draw(gl1.begin_mode, gl1.vertices.data(), gl1.vertices.size());
    gl1.begin_mode = ~0u;
}

void glVertex2d(GLdouble x, GLdouble y) { gl1.vertices.push_back(current_vertex(x, y, 0)); }
void glVertex2f(GLfloat x, GLfloat y) { gl1.vertices.push_back(current_vertex(x, y, 0)); }
void glVertex3f(GLfloat x, GLfloat y, GLfloat z) { gl1.vertices.push_back(current_vertex(x, y, z)); }

void glColor4ub(GLubyte r, GLubyte g, GLubyte b, GLubyte a)
{
    gl1.s.colour[0] = r, gl1.s.colour[1] = g, gl1.s.colour[2] = b, gl1.s.colour[3] = a;
}

void glColor3ub(GLubyte r, GLubyte g, GLubyte b) { glColor4ub(r, g, b, 255); }
void glColor3f(GLfloat r, GLfloat g, GLfloat b) { glColor4ub(gl1_unit_to_byte(r), gl1_unit_to_byte(g), gl1_unit_to_byte(b), 255); }
void glTexCoord2f(GLfloat s, GLfloat t) { gl1.s.texcoord[0] = s, gl1.s.texcoord[1] = t; }

static client_array *array_of(GLenum kind)
{
    switch (kind) {
    case GL_VERTEX_ARRAY: return &gl1.vertex_array_state;
    case GL_COLOR_ARRAY: return &gl1.colour_array;
    case GL_TEXTURE_COORD_ARRAY: return &gl1.texcoord_array;
    default: gl1_unhandled("glEnableClientState", kind); return nullptr;
    }
}

void glEnableClientState(GLenum kind) { if (client_array *a = array_of(kind)) a->enabled = true; }
void glDisableClientState(GLenum kind) { if (client_array *a = array_of(kind)) a->enabled = false; }

// Positions and texture coordinates in float or double, colours in unsigned bytes.
static void set_array(client_array *a, const char *call, GLint size, GLenum type, GLsizei stride,
                      const void *p, bool colours)
{
    bool known = colours ? type == GL_UNSIGNED_BYTE : type == GL_FLOAT || type == GL_DOUBLE;
    if (!known) gl1_unhandled(call, type);
    a->size = size, a->type = known ? type : 0, a->stride = stride, a->pointer = p;
}

void glVertexPointer(GLint size, GLenum type, GLsizei stride, const void *p)
{
    set_array(&gl1.vertex_array_state, "glVertexPointer", size, type, stride, p, false);
}
void glColorPointer(GLint size, GLenum type, GLsizei stride, const void *p)
{
    set_array(&gl1.colour_array, "glColorPointer", size, type, stride, p, true);
}
void glTexCoordPointer(GLint size, GLenum type, GLsizei stride, const void *p)
{
    set_array(&gl1.texcoord_array, "glTexCoordPointer", size, type, stride, p, false);
}

// Component k of element i of a client array, as a double.
static double array_value(const client_array &a, int i, int k)
{
    int bytes = a.type == GL_DOUBLE ? 8 : a.type == GL_FLOAT ? 4 : 1;
    const unsigned char *p = (const unsigned char *)a.pointer +
                             (size_t)i * (a.stride ? a.stride : a.size * bytes) + (size_t)k * bytes;
    switch (a.type) {
    case GL_DOUBLE: { double d; memcpy(&d, p, 8); return d; }
    case GL_FLOAT: { float f; memcpy(&f, p, 4); return f; }
    default: return *p;
    }
}

void glDrawArrays(GLenum mode, GLint first, GLsizei count)
{
    const client_array &va = gl1.vertex_array_state, &ca = gl1.colour_array, &ta = gl1.texcoord_array;
    if (!va.enabled || !va.type || count <= 0) return;
    if ((ca.enabled && !ca.type) || (ta.enabled && !ta.type)) return;
    gl1.vertices.resize((size_t)count);
    for (int n = 0; n < count; n++) {
        int i = first + n;
        gl1_vertex &v = gl1.vertices[(size_t)n];
        v = current_vertex(array_value(va, i, 0), array_value(va, i, 1),
                           va.size > 2 ? array_value(va, i, 2) : 0);
        if (ca.enabled) {
            for (int k = 0; k < ca.size && k < 4; k++) v.rgba[k] = (unsigned char)array_value(ca, i, k);
            if (ca.size == 3) v.rgba[3] = 255;
        }
        if (ta.enabled) v.s = (float)array_value(ta, i, 0), v.t = (float)array_value(ta, i, 1);
    }
    gl1_draw(mode, gl1.vertices.data(), gl1.vertices.size());
}

}   // extern "C"
