// Which batches the web GL layer draws on the CPU (thin_raster.cpp) rather than with WebGL:
// large batches of single-pixel points and one-pixel lines that GL would only write into
// pixels. What the CPU drew goes to the canvas as one picture before anything else is drawn.
#include "Morvane/gfx_opengl/web/gl1_internal.h"

#include <algorithm>
#include <cstring>
#include <vector>

// Large batches only: a few lines go faster the usual way than through a picture.
enum { THIN_BATCH = 256 };

// Whether a vertex lies between the near and far planes under an affine matrix.
static bool within_depth(const float m[16], const gl1_vertex &v)
{
    float cz = m[2] * v.x + m[6] * v.y + m[10] * v.z + m[14];
    return cz >= -1.0f && cz <= 1.0f;
}

// Window position of a vertex under an affine matrix (w stays 1), as the GPU computes it in
// single precision.
void gl1_window_position(const float m[16], const gl1_vertex &v, float *x, float *y)
{
    float cx = m[0] * v.x + m[4] * v.y + m[8] * v.z + m[12];
    float cy = m[1] * v.x + m[5] * v.y + m[9] * v.z + m[13];
    const int *vp = gl1.s.viewport;
    *x = (cx * 0.5f + 0.5f) * (float)vp[2] + (float)vp[0];
    *y = (cy * 0.5f + 0.5f) * (float)vp[3] + (float)vp[1];
}

// The texture that shows the picture, as large as the picture.
static void size_thin_texture(const thin_raster &r)
{
    if (gl1.thin_texture && gl1.thin_texture_size[0] >= r.width && gl1.thin_texture_size[1] >= r.height) return;
    if (!gl1.thin_texture) emscripten_glGenTextures(1, &gl1.thin_texture);
    emscripten_glBindTexture(GL_TEXTURE_2D, gl1.thin_texture);
    emscripten_glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, r.width, r.height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    emscripten_glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    emscripten_glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    gl1.thin_texture_size[0] = r.width, gl1.thin_texture_size[1] = r.height;
}

// The quads that show the drawn columns of each band of the picture, with the box's texture
// coordinates (the box is uploaded from its corner at texel 0, 0).
static size_t band_quads(const thin_raster &r, std::vector<gl1_vertex> *q)
{
    const int *b = r.box;
    const float tw = (float)gl1.thin_texture_size[0], th = (float)gl1.thin_texture_size[1];
    q->clear();
    for (int band = b[1] / BAND_ROWS; band * BAND_ROWS < b[3]; band++) {
        const int *span = r.band_x + 2 * band;
        if (span[1] <= span[0]) continue;
        const float x0 = (float)span[0], x1 = (float)span[1];
        const float y0 = (float)std::max(band * BAND_ROWS, b[1]), y1 = (float)std::min((band + 1) * BAND_ROWS, b[3]);
        const float corner[6][2] = {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y0}, {x1, y1}, {x0, y1}};
        for (const auto &c : corner) {
            gl1_vertex v = {};
            v.x = c[0], v.y = c[1];
            v.s = (c[0] - (float)b[0]) / tw, v.t = (c[1] - (float)b[1]) / th;
            memset(v.rgba, 255, 4);
            q->push_back(v);
        }
    }
    return q->size();
}

// Shows what the CPU drew, blended over the canvas in the drawn columns of each band.
void gl1_show_thin()
{
    thin_raster &r = gl1.thin;
    const int *b = r.box;
    int w = b[2] - b[0], h = b[3] - b[1];
    if (w <= 0 || h <= 0) return;
    if (gl1.frame_on_cpu) {
        frame_raster_put_thin(&gl1.frame, r);
        thin_raster_erase(&r);
        return;
    }
    size_thin_texture(r);
    // The box is read straight out of the whole picture, a row being the picture's width.
    emscripten_glBindTexture(GL_TEXTURE_2D, gl1.thin_texture);
    emscripten_glPixelStorei(GL_UNPACK_ROW_LENGTH, r.width);
    emscripten_glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE,
                               r.rgba + ((size_t)b[1] * r.width + b[0]) * 4);
    emscripten_glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);

    // Drawn pixels have alpha 1 and replace the canvas's; the others leave it as it is.
    static std::vector<gl1_vertex> quads;
    size_t count = band_quads(r, &quads);
    const float to_clip[16] = {2 / (float)r.width, 0, 0, 0, 0, 2 / (float)r.height, 0, 0,
                               0, 0, 1, 0, -1, -1, 0, 1};
    emscripten_glEnable(GL_BLEND);
    emscripten_glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ZERO, GL_ONE);
    emscripten_glBlendEquation(GL_FUNC_ADD);
    emscripten_glDisable(GL_DEPTH_TEST);
    emscripten_glDisable(GL_SCISSOR_TEST);
    emscripten_glViewport(0, 0, r.width, r.height);
    const gl1_program &p = gl1_use_program(1);
    emscripten_glUniformMatrix4fv(p.u_matrix, 1, GL_FALSE, to_clip);
    emscripten_glUniform1i(p.u_points, 0);
    emscripten_glUniform1f(p.u_lod_bias, 0);
    emscripten_glDrawArrays(GL_TRIANGLES, gl1_stream_vertices(quads.data(), count), (GLsizei)count);
    gl1_send_draws();
    thin_raster_erase(&r);
}

// The CPU draws a batch only where GL would write its colours into single pixels: no
// blending, texture, depth test or smoothing, points of size 1, lines of one colour each
// that the near and far planes do not cut, and an affine matrix.
static bool cpu_draws_like_gl(GLenum mode, const gl1_vertex *v, size_t count, const float m[16])
{
    const gl1_attribs &s = gl1.s;
    if ((mode != GL_POINTS && mode != GL_LINES) || count < THIN_BATCH) return false;
    if (s.blend || s.texture_2d || s.depth_test || s.point_smooth || s.line_smooth) return false;
    if (mode == GL_POINTS ? s.point_size > 1 : s.line_width != 1) return false;
    if (m[3] != 0 || m[7] != 0 || m[11] != 0 || m[15] != 1) return false;
    if (mode == GL_LINES)
        for (size_t i = 0; i + 1 < count; i += 2)
            if (memcmp(v[i].rgba, v[i + 1].rgba, 4) != 0 || within_depth(m, v[i]) != within_depth(m, v[i + 1]))
                return false;
    return true;
}

void gl1_clip_box(int width, int height, int clip[4])
{
    const gl1_attribs &s = gl1.s;
    const int *vp = s.viewport;
    int c[4] = {vp[0], vp[1], vp[0] + vp[2], vp[1] + vp[3]};
    if (s.scissor_test) {
        const int *sc = s.scissor;
        c[0] = std::max(c[0], sc[0]), c[1] = std::max(c[1], sc[1]);
        c[2] = std::min(c[2], sc[0] + sc[2]), c[3] = std::min(c[3], sc[1] + sc[3]);
    }
    clip[0] = std::max(c[0], 0), clip[1] = std::max(c[1], 0);
    clip[2] = std::min(c[2], width), clip[3] = std::min(c[3], height);
}

// The picture as large as the canvas.
static void prepare_picture(thin_raster &r)
{
    int width = 0, height = 0;
    emscripten_webgl_get_drawing_buffer_size(gl1.context, &width, &height);
    if (width != r.width || height != r.height) thin_raster_resize(&r, width, height);
    gl1_clip_box(width, height, r.clip);
}

void gl1_thin_into_picture(GLenum mode, const gl1_vertex *v, size_t count, const float m[16])
{
    thin_raster &r = gl1.thin;
    prepare_picture(r);
    float ax, ay, bx, by;
    if (mode == GL_POINTS) {
        for (size_t i = 0; i < count; i++) {
            if (!within_depth(m, v[i])) continue;
            gl1_window_position(m, v[i], &ax, &ay);
            thin_raster_point(&r, ax, ay, v[i].rgba);
        }
        return;
    }
    for (size_t i = 0; i + 1 < count; i += 2) {
        if (!within_depth(m, v[i])) continue;
        gl1_window_position(m, v[i], &ax, &ay);
        gl1_window_position(m, v[i + 1], &bx, &by);
        thin_raster_line(&r, ax, ay, bx, by, v[i].rgba);
    }
}

bool gl1_draw_thin(GLenum mode, const gl1_vertex *v, size_t count)
{
    float m[16];
    gl1_matrix(m);
    if (!cpu_draws_like_gl(mode, v, count, m)) return false;
    gl1_thin_into_picture(mode, v, count, m);
    return true;
}
