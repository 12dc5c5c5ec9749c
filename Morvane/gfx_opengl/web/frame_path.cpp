// Whole frames on the CPU, where WebGL itself runs on the CPU: a frame whose every draw the
// CPU can make exactly as GL would (frame_raster.cpp, thin_raster.cpp) is drawn into memory and
// put on a plain 2D canvas laid over the WebGL one, which costs a CPU renderer a fraction of
// filling the same pixels through WebGL. A draw the CPU cannot make moves the frame to WebGL
// there and then: what was drawn so far goes over as one picture, and the depth it wrote is
// drawn again, so the rest of the frame is drawn as before. A frame that moved starts the next
// one in WebGL, until a frame shows that all its draws could have been made on the CPU.
#include "Morvane/gfx_opengl/web/gl1_internal.h"
#include "Morvane/gfx_opengl/web/gl1_webgl.h"

#include <emscripten.h>

#include <algorithm>
#include <cmath>
#include <cstring>

// ---------------------------------------------------------------------------------------
// [SECTION] What the CPU draws like GL

static bool frame_factor_of(GLenum f, frame_factor *k)
{
    switch (f) {
    case GL_ZERO: *k = FACTOR_ZERO; return true;
    case GL_ONE: *k = FACTOR_ONE; return true;
    case GL_SRC_COLOR: *k = FACTOR_SRC_COLOUR; return true;
    case GL_ONE_MINUS_SRC_COLOR: *k = FACTOR_ONE_MINUS_SRC_COLOUR; return true;
    case GL_SRC_ALPHA: *k = FACTOR_SRC_ALPHA; return true;
    case GL_ONE_MINUS_SRC_ALPHA: *k = FACTOR_ONE_MINUS_SRC_ALPHA; return true;
    case GL_DST_COLOR: *k = FACTOR_DST_COLOUR; return true;
    case GL_ONE_MINUS_DST_COLOR: *k = FACTOR_ONE_MINUS_DST_COLOUR; return true;
    default: return false;
    }
}

static bool blending(frame_blend *b)
{
    const gl1_attribs &s = gl1.s;
    b->on = s.blend;
    b->src = FACTOR_ONE, b->dst = FACTOR_ZERO;
    return !s.blend || (s.blend_equation == GL_FUNC_ADD && frame_factor_of(s.blend_src_rgb, &b->src) &&
                        frame_factor_of(s.blend_dst_rgb, &b->dst));
}

static gl1_step step_of(GLbitfield mask, GLenum mode, const float m[16], const gl1_vertex *v, size_t count)
{
    gl1_step step;
    step.mask = mask, step.mode = mode, step.state = gl1.s;
    if (m) memcpy(step.matrix, m, sizeof step.matrix);
    else memset(step.matrix, 0, sizeof step.matrix);
    step.vertices.assign(v, v + count);
    return step;
}

static float clip_depth(const float m[16], const gl1_vertex &v)
{
    return m[2] * v.x + m[6] * v.y + m[10] * v.z + m[14];
}

// A draw's window depth when all its vertices have the same one inside the depth range,
// else NAN.
static float common_depth(const float m[16], const gl1_vertex *v, size_t count)
{
    const float z = clip_depth(m, v[0]);
    for (size_t i = 1; i < count; i++)
        if (clip_depth(m, v[i]) != z) return NAN;
    return z >= -1.0f && z <= 1.0f ? z * 0.5f + 0.5f : NAN;
}

// Without the depth test: lines and triangles wholly between the near and far planes (points
// beyond them are left out one by one). With it: taken only where it passes everywhere, the
// draw's one depth lying below every depth in the buffer; a draw that writes depth is kept, to
// be drawn again if the frame moves to WebGL.
static bool depth_passes(GLenum mode, const float m[16], const gl1_vertex *v, size_t count, bool draw)
{
    const gl1_attribs &s = gl1.s;
    if (!s.depth_test) {
        for (size_t i = 0; mode != GL_POINTS && i < count; i++)
            if (!(std::fabs(clip_depth(m, v[i])) <= 1.0f)) return false;
        return true;
    }
    const float z = common_depth(m, v, count);
    if (std::isnan(z)) return false;
    const bool passes = s.depth_func == GL_ALWAYS || (s.depth_func == GL_LEQUAL && z <= gl1.depth_floor) ||
                        (s.depth_func == GL_LESS && z < gl1.depth_floor - 1e-6);
    if (!passes || !s.depth_mask) return passes;
    gl1.depth_floor = std::min(gl1.depth_floor, (double)z);
    if (draw) gl1.depth_steps.push_back(step_of(0, mode, m, v, count));
    return true;
}

static frame_vertex window_vertex(const float m[16], const gl1_vertex &v, const gl1_texture *t)
{
    frame_vertex w;
    gl1_window_position(m, v, &w.x, &w.y);
    memcpy(w.rgba, v.rgba, 4);
    w.s = t ? v.s * (float)t->width[0] : 0, w.t = t ? v.t * (float)t->height[0] : 0;
    return w;
}

// The frame as large as the canvas, its clip the viewport and the scissor box.
static void prepare_frame()
{
    int width = 0, height = 0;
    emscripten_webgl_get_drawing_buffer_size(gl1.context, &width, &height);
    frame_raster &f = gl1.frame;
    if (width != f.width || height != f.height) {
        frame_raster_resize(&f, width, height);
        free(gl1.opening_picture);
        gl1.opening_picture = nullptr;
    }
    gl1_clip_box(width, height, f.clip);
}

// Triangles of any kind, as corner indices into the draw's vertices.
static void triangle_corners(GLenum mode, size_t count, std::vector<unsigned> *corners)
{
    corners->clear();
    auto add = [corners](size_t a, size_t b, size_t c) {
        corners->push_back((unsigned)a), corners->push_back((unsigned)b), corners->push_back((unsigned)c);
    };
    if (mode == GL_TRIANGLES)
        for (size_t i = 0; i + 2 < count; i += 3) add(i, i + 1, i + 2);
    else if (mode == GL_TRIANGLE_FAN)
        for (size_t i = 1; i + 1 < count; i++) add(0, i, i + 1);
    else if (mode == GL_QUADS)
        for (size_t i = 0; i + 3 < count; i += 4) add(i, i + 1, i + 2), add(i, i + 2, i + 3);
    else   // triangle and quad strips
        for (size_t i = 0; i + 2 < count; i++) add(i, i + 1, i + 2);
}

// WebGL's defaults where the program set nothing.
static GLint filter_or_wrap(const gl1_texture *t, int which)
{
    static const GLint defaults[4] = {GL_NEAREST_MIPMAP_LINEAR, GL_LINEAR, GL_REPEAT, GL_REPEAT};
    return t->filters_and_wraps[which] ? t->filters_and_wraps[which] : defaults[which];
}

// Whether a mipmapped texture has every level down to one texel (else GL samples black).
static bool mipmaps_complete(const gl1_texture *t)
{
    int w = t->width[0], h = t->height[0];
    for (int level = 1; level < MAX_LEVELS && (w > 1 || h > 1); level++) {
        w = std::max(1, w / 2), h = std::max(1, h / 2);
        if (!t->rgba[level] || t->width[level] != w || t->height[level] != h) return false;
    }
    return true;
}

// How the texture is sampled where GL magnifies it (then only its first level is read), and
// how many texels to a pixel it may have for that: GL magnifies while log2 of that number plus
// the texture's bias is at most 0. False where the CPU cannot sample as GL does.
static bool magnified(const gl1_texture *t, frame_texture *ft, float *most_texels)
{
    const GLint min = filter_or_wrap(t, 0), mag = filter_or_wrap(t, 1);
    const GLint wrap_s = filter_or_wrap(t, 2), wrap_t = filter_or_wrap(t, 3);
    if (mag != GL_LINEAR || (wrap_s != GL_REPEAT && wrap_s != GL_CLAMP_TO_EDGE) ||
        (wrap_t != GL_REPEAT && wrap_t != GL_CLAMP_TO_EDGE))
        return false;
    const bool mipmapped = min != GL_NEAREST && min != GL_LINEAR;
    if (mipmapped && !mipmaps_complete(t)) return false;
    *ft = {t->rgba[0], t->width[0], t->height[0], wrap_s == GL_REPEAT, wrap_t == GL_REPEAT};
    *most_texels = min == mag ? INFINITY : std::exp2(-t->lod_bias);
    return true;
}

// Text: upright rectangles of one colour each over a magnified texture.
static bool texture_quads(const float m[16], const gl1_vertex *v, size_t count, const gl1_texture *t,
                          const frame_blend &b, bool draw)
{
    frame_texture ft;
    float most_texels;
    if (count % 4 != 0 || !magnified(t, &ft, &most_texels)) return false;
    std::vector<frame_vertex> &w = gl1.frame_vertices;
    w.resize(count);
    for (size_t i = 0; i < count; i++) w[i] = window_vertex(m, v[i], t);
    for (size_t q = 0; q < count; q += 4) {
        for (int i = 1; i < 4; i++)
            if (memcmp(w[q].rgba, w[q + i].rgba, 4) != 0) return false;
        if (!frame_texture_rect(&w[q], most_texels)) return false;
    }
    for (size_t q = 0; draw && q < count; q += 4) frame_raster_texture_rect(&gl1.frame, &w[q], ft, b);
    return true;
}

// The texture a draw samples, or nullptr.
static const gl1_texture *texture_in_use()
{
    const gl1_texture *t = gl1_bound_texture();
    return gl1.s.texture_2d && t && t->named && t->rgba[0] ? t : nullptr;
}

// Triangles of any kind, shaded; text over a texture. Window positions far off the canvas
// are left to WebGL, which clips them.
static bool filled(GLenum mode, const float m[16], const gl1_vertex *v, size_t count, const frame_blend &b, bool draw)
{
    if (const gl1_texture *t = texture_in_use()) return mode == GL_QUADS && texture_quads(m, v, count, t, b, draw);
    std::vector<frame_vertex> &w = gl1.frame_vertices;
    w.resize(count);
    for (size_t i = 0; i < count; i++) {
        w[i] = window_vertex(m, v[i], nullptr);
        if (!(std::fabs(w[i].x) < 1e5f && std::fabs(w[i].y) < 1e5f)) return false;
    }
    if (!draw) return true;
    static std::vector<unsigned> corners;
    triangle_corners(mode, count, &corners);
    for (size_t i = 0; i < corners.size(); i += 3) {
        const frame_vertex tri[3] = {w[corners[i]], w[corners[i + 1]], w[corners[i + 2]]};
        frame_raster_triangle(&gl1.frame, tri, b);
    }
    return true;
}

// Line strips and loops as separate lines, each line of one colour.
static const gl1_vertex *as_lines(GLenum mode, const gl1_vertex *v, size_t *count)
{
    if (mode == GL_LINES) {
        *count -= *count % 2;
    } else {
        std::vector<gl1_vertex> &l = gl1.triangles;
        l.clear();
        for (size_t i = 0; i + 1 < *count; i++) l.push_back(v[i]), l.push_back(v[i + 1]);
        if (mode == GL_LINE_LOOP && *count > 2) l.push_back(v[*count - 1]), l.push_back(v[0]);
        v = l.data(), *count = l.size();
    }
    for (size_t i = 0; i < *count; i += 2)
        if (memcmp(v[i].rgba, v[i + 1].rgba, 4) != 0) return nullptr;
    return v;
}

static bool thin(GLenum mode, const float m[16], const gl1_vertex *v, size_t count, bool draw)
{
    const gl1_attribs &s = gl1.s;
    if (s.blend || s.texture_2d || s.point_smooth || s.line_smooth) return false;
    if (mode == GL_POINTS ? s.point_size > 1 : s.line_width != 1) return false;
    if (mode != GL_POINTS && !(v = as_lines(mode, v, &count))) return false;
    if (draw) gl1_thin_into_picture(mode == GL_POINTS ? GL_POINTS : GL_LINES, v, count, m);
    return true;
}

// ---------------------------------------------------------------------------------------
// [SECTION] The frame's opening: the background that stays from frame to frame

static void clear_frame(GLbitfield mask, const gl1_attribs &state);
static bool clears_everything(const gl1_attribs &state, int width, int height);

static void append(std::vector<unsigned char> *bytes, const void *p, size_t n)
{
    bytes->insert(bytes->end(), (const unsigned char *)p, (const unsigned char *)p + n);
}

// A frame starts with clears and plain fills (the pipe, the panels' grounds) that are most
// often the last frame's own. They are kept undrawn until something else comes; then, when
// they are the last frame's opening byte for byte, the frame that opening made is copied
// back instead of drawn again.
static void end_opening()
{
    if (!gl1.opening) return;
    gl1.opening = false;
    static std::vector<unsigned char> bytes;
    bytes.clear();
    for (const gl1_step &step : gl1.opening_steps) {
        append(&bytes, &step.mask, sizeof step.mask), append(&bytes, &step.mode, sizeof step.mode);
        append(&bytes, &step.state, sizeof step.state), append(&bytes, step.matrix, sizeof step.matrix);
        append(&bytes, step.vertices.data(), step.vertices.size() * sizeof(gl1_vertex));
    }
    frame_raster &f = gl1.frame;
    const size_t size = (size_t)f.width * f.height * 4;
    // only an opening that starts by clearing every pixel makes the same frame each time
    const std::vector<gl1_step> &steps = gl1.opening_steps;
    if (steps.empty() || !(steps[0].mask & GL_COLOR_BUFFER_BIT) || !clears_everything(steps[0].state, f.width, f.height))
        bytes.clear();
    if (gl1.opening_picture && !bytes.empty() && bytes == gl1.opening_bytes) {
        memcpy(f.rgba, gl1.opening_picture, size);
        return;
    }
    gl1_attribs now = gl1.s;
    for (const gl1_step &step : gl1.opening_steps) {
        gl1.s = step.state;
        if (step.mask) {
            clear_frame(step.mask, step.state);
            continue;
        }
        frame_blend b;
        blending(&b);
        gl1_clip_box(f.width, f.height, f.clip);
        filled(step.mode, step.matrix, step.vertices.data(), step.vertices.size(), b, true);
    }
    gl1.s = now;
    gl1.opening_bytes = bytes;
    if (bytes.empty()) return;
    if (!gl1.opening_picture) gl1.opening_picture = (unsigned char *)malloc(size);
    memcpy(gl1.opening_picture, f.rgba, size);
}

// Draws a batch into the frame, or with `draw` false only says whether it could; either way
// the depth the batch would write is counted.
static bool take(GLenum mode, const gl1_vertex *v, size_t count, bool draw)
{
    float m[16];
    gl1_matrix(m);
    frame_blend b;
    if (m[3] != 0 || m[7] != 0 || m[11] != 0 || m[15] != 1 || !blending(&b)) return false;
    const bool points_or_lines = mode == GL_POINTS || mode == GL_LINES || mode == GL_LINE_STRIP || mode == GL_LINE_LOOP;
    // Said before the depth counts, so that a batch left to WebGL counts none.
    if (points_or_lines ? !thin(mode, m, v, count, false) : !filled(mode, m, v, count, b, false)) return false;
    if (!depth_passes(mode, m, v, count, draw)) return false;
    if (!draw) return true;
    if (gl1.opening && !points_or_lines && !texture_in_use()) {
        gl1.opening_steps.push_back(step_of(0, mode, m, v, count));
        return true;
    }
    end_opening();
    if (points_or_lines) return thin(mode, m, v, count, true);
    gl1_show_thin();
    return filled(mode, m, v, count, b, true);
}

// ---------------------------------------------------------------------------------------
// [SECTION] The frame's course

static void frame_to_webgl();

bool gl1_frame_draw(GLenum mode, const gl1_vertex *v, size_t count)
{
    if (!gl1.cpu_frames) return false;
    if (!gl1.frame_on_cpu) {
        gl1.frame_drawable = gl1.frame_drawable && take(mode, v, count, false);
        return false;
    }
    prepare_frame();
    if (take(mode, v, count, true)) return true;
    frame_to_webgl();
    return false;
}

// A full clear of the depth buffer gives it one depth; a clear of part of it, a lower bound.
bool gl1_frame_clear(GLbitfield mask, const gl1_attribs &state)
{
    if (!gl1.cpu_frames) return false;
    int width = 0, height = 0;
    emscripten_webgl_get_drawing_buffer_size(gl1.context, &width, &height);
    if (mask & GL_DEPTH_BUFFER_BIT) {
        const bool whole = clears_everything(state, width, height);
        gl1.depth_floor = whole ? state.clear_depth : std::min(gl1.depth_floor, state.clear_depth);
        if (whole) gl1.depth_steps.clear();
        gl1_attribs now = gl1.s;
        gl1.s = state;
        if (gl1.frame_on_cpu) gl1.depth_steps.push_back(step_of(GL_DEPTH_BUFFER_BIT, 0, nullptr, nullptr, 0));
        gl1.s = now;
    }
    if (!gl1.frame_on_cpu) return false;
    prepare_frame();
    if (gl1.opening) {
        gl1_attribs now = gl1.s;
        gl1.s = state;
        gl1.opening_steps.push_back(step_of(mask, 0, nullptr, nullptr, 0));
        gl1.s = now;
        return true;
    }
    gl1_show_thin();
    clear_frame(mask, state);
    return true;
}

// The pixels a clear reaches: the scissor box, if on, inside the canvas (not the viewport).
static void clear_box(const gl1_attribs &state, int width, int height, int box[4])
{
    const int *sc = state.scissor;
    box[0] = 0, box[1] = 0, box[2] = width, box[3] = height;
    if (!state.scissor_test) return;
    box[0] = std::max(sc[0], 0), box[1] = std::max(sc[1], 0);
    box[2] = std::min(sc[0] + sc[2], width), box[3] = std::min(sc[1] + sc[3], height);
}

static bool clears_everything(const gl1_attribs &state, int width, int height)
{
    int box[4];
    clear_box(state, width, height, box);
    return box[0] == 0 && box[1] == 0 && box[2] == width && box[3] == height;
}

static void clear_frame(GLbitfield mask, const gl1_attribs &state)
{
    if (!(mask & GL_COLOR_BUFFER_BIT)) return;
    clear_box(state, gl1.frame.width, gl1.frame.height, gl1.frame.clip);
    const float *c = state.clear_colour;
    const unsigned char rgba[4] = {gl1_unit_to_byte(c[0]), gl1_unit_to_byte(c[1]), gl1_unit_to_byte(c[2]), 255};
    frame_raster_clear(&gl1.frame, rgba);
}

// clang-format off
// The frame on a 2D canvas laid exactly over the WebGL canvas, which it hides; made the first
// time. It takes no pointer events, so the program's canvas still receives them.
EM_JS(void, page_show_frame, (const unsigned char *rgba, int width, int height), {
    const canvas = Module.canvas;
    let over = Module.frame_canvas;
    if (!over) {
        over = document.createElement("canvas");
        over.style.position = "absolute";
        over.style.pointerEvents = "none";
        canvas.parentNode.insertBefore(over, canvas.nextSibling);
        Module.frame_canvas = over;
        Module.frame_context = over.getContext("2d", { alpha: false });
    }
    if (over.width !== width || over.height !== height) over.width = width, over.height = height;
    over.style.left = canvas.offsetLeft + "px";
    over.style.top = canvas.offsetTop + "px";
    over.style.width = canvas.style.width;
    over.style.height = canvas.style.height;
    over.style.imageRendering = canvas.style.imageRendering;
    over.style.display = canvas.style.display;
    const pixels = new Uint8ClampedArray(HEAPU8.buffer, rgba, width * height * 4);
    Module.frame_context.putImageData(new ImageData(pixels, width, height), 0, 0);
    Module.frames_by_cpu = (Module.frames_by_cpu || 0) + 1;
});
EM_JS(void, page_hide_frame, (), {
    if (Module.frame_canvas) Module.frame_canvas.style.display = "none";
    Module.frames_by_webgl = (Module.frames_by_webgl || 0) + 1;
});
// clang-format on

void gl1_frame_present()
{
    if (!gl1.cpu_frames) return;
    if (gl1.frame_on_cpu) {
        prepare_frame();
        end_opening();
        gl1_show_thin();
        page_show_frame(gl1.frame.rgba, gl1.frame.width, gl1.frame.height);
    } else {
        page_hide_frame();
    }
    gl1.frame_on_cpu = gl1.opening = gl1.frame_drawable;
    gl1.opening_steps.clear();
    gl1.frame_drawable = true;
    gl1.depth_floor = -INFINITY;   // what the depth buffer holds is known again from its next clear
    gl1.depth_steps.clear();
}

void gl1_put_picture(const unsigned char *rgba, int width, int height)
{
    if (!gl1.frame_texture) emscripten_glGenTextures(1, &gl1.frame_texture);
    emscripten_glBindTexture(GL_TEXTURE_2D, gl1.frame_texture);
    if (gl1.frame_texture_size[0] != width || gl1.frame_texture_size[1] != height) {
        emscripten_glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        emscripten_glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        emscripten_glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        gl1.frame_texture_size[0] = width, gl1.frame_texture_size[1] = height;
    }
    emscripten_glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    // the top row, first in memory, is texel row 0: it goes to the canvas's top
    gl1_vertex q[6] = {};
    const float corner[6][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}};
    for (int i = 0; i < 6; i++) {
        q[i].x = corner[i][0] * 2 - 1, q[i].y = corner[i][1] * 2 - 1;
        q[i].s = corner[i][0], q[i].t = 1 - corner[i][1];
        memset(q[i].rgba, 255, 4);
    }
    const float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    emscripten_glDisable(GL_BLEND);
    emscripten_glDisable(GL_DEPTH_TEST);
    emscripten_glDisable(GL_SCISSOR_TEST);
    emscripten_glViewport(0, 0, width, height);
    const gl1_program &p = gl1_use_program(1);
    emscripten_glUniformMatrix4fv(p.u_matrix, 1, GL_FALSE, identity);
    emscripten_glUniform1i(p.u_points, 0);
    emscripten_glUniform1f(p.u_lod_bias, 0);
    emscripten_glDrawArrays(GL_TRIANGLES, gl1_stream_vertices(q, 6), 6);
    gl1_send_draws();
}

// The frame so far goes to WebGL as one picture over the whole canvas; the depth it wrote is
// drawn again there with colours masked.
static void frame_to_webgl()
{
    end_opening();
    gl1_show_thin();
    const frame_raster &f = gl1.frame;
    gl1.frame_on_cpu = false;
    gl1.frame_drawable = false;
    gl1_put_picture(f.rgba, f.width, f.height);
    emscripten_glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    gl1_attribs now = gl1.s;
    for (const gl1_step &step : gl1.depth_steps) {
        gl1.s = step.state;
        if (step.mask) gl1_webgl_clear(GL_DEPTH_BUFFER_BIT);
        else gl1_webgl_draw(step.mode, step.matrix, step.vertices.data(), step.vertices.size());
    }
    gl1.s = now;
    gl1.depth_steps.clear();
    emscripten_glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
}

// Rows from the bottom, as GL reads them.
bool gl1_frame_read(int x, int y, int w, int h, unsigned char *rgba)
{
    if (!gl1.cpu_frames || !gl1.frame_on_cpu) return false;
    prepare_frame();
    end_opening();
    gl1_show_thin();
    const frame_raster &f = gl1.frame;
    for (int row = 0; row < h; row++)
        for (int col = 0; col < w; col++) {
            unsigned char *q = rgba + ((size_t)row * w + col) * 4;
            const int fx = x + col, fy = y + row;
            if (fx < 0 || fy < 0 || fx >= f.width || fy >= f.height) memset(q, 0, 4);
            else memcpy(q, frame_raster_pixel(f, fx, fy), 4);
        }
    return true;
}
