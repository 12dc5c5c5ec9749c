// Filled triangles, text from a magnified texture and the thin-line picture drawn into a frame on
// the CPU.
#include "Morvane/gfx_opengl/web/frame_raster.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

void frame_raster_resize(frame_raster *f, int width, int height)
{
    frame_raster_release(f);
    f->rgba = (unsigned char *)malloc((size_t)width * height * 4);
    f->width = width;
    f->height = height;
    f->clip[0] = f->clip[1] = 0;
    f->clip[2] = width;
    f->clip[3] = height;
    const unsigned char black[4] = {0, 0, 0, 255};
    frame_raster_clear(f, black);
}

void frame_raster_release(frame_raster *f)
{
    free(f->rgba);
    f->rgba = nullptr;
    f->width = f->height = 0;
}

unsigned char *frame_raster_pixel(const frame_raster &f, int x, int y)
{
    return f.rgba + ((size_t)(f.height - 1 - y) * f.width + x) * 4;
}

static unsigned char *pixel(frame_raster *f, int x, int y) { return frame_raster_pixel(*f, x, y); }

void frame_raster_clear(frame_raster *f, const unsigned char rgba[4])
{
    uint32_t word;
    const unsigned char opaque[4] = {rgba[0], rgba[1], rgba[2], 255};
    memcpy(&word, opaque, 4);
    const int width = f->clip[2] - f->clip[0];
    if (width <= 0 || f->clip[3] <= f->clip[1]) return;
    uint32_t *first = (uint32_t *)(void *)pixel(f, f->clip[0], f->clip[1]);
    std::fill(first, first + width, word);
    for (int y = f->clip[1] + 1; y < f->clip[3]; y++) memcpy(pixel(f, f->clip[0], y), first, (size_t)width * 4);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Blending: on the colour as the pixel stores it, each product rounded to a byte, as
// GL's software renderers on the desktop blend

static int times(int a, int b)   // a * b / 255, rounded
{
    int p = a * b + 128;
    return (p + (p >> 8)) >> 8;
}

static int factor(frame_factor k, const unsigned char src[4], const unsigned char *dst, int c)
{
    switch (k) {
    case FACTOR_ZERO: return 0;
    case FACTOR_ONE: return 255;
    case FACTOR_SRC_COLOUR: return src[c];
    case FACTOR_ONE_MINUS_SRC_COLOUR: return 255 - src[c];
    case FACTOR_SRC_ALPHA: return src[3];
    case FACTOR_ONE_MINUS_SRC_ALPHA: return 255 - src[3];
    case FACTOR_DST_COLOUR: return dst[c];
    case FACTOR_ONE_MINUS_DST_COLOUR: return 255 - dst[c];
    }
    return 0;
}

// Blends a colour into a pixel.
static void blend_into(unsigned char *p, const unsigned char src[4], const frame_blend &b)
{
    if (b.src == FACTOR_ONE && b.dst == FACTOR_ONE_MINUS_SRC_COLOUR) {   // text's, most often
        for (int c = 0; c < 3; c++) p[c] = (unsigned char)std::min(255, src[c] + times(p[c], 255 - src[c]));
        return;
    }
    const unsigned char dst[3] = {p[0], p[1], p[2]};
    for (int c = 0; c < 3; c++)
        p[c] = (unsigned char)std::min(255, times(src[c], factor(b.src, src, dst, c)) + times(dst[c], factor(b.dst, src, dst, c)));
}

// Whether a colour of nothing leaves a pixel as it is under the blending (as text's empty
// texels do), so that such pixels can be passed over.
static bool nothing_leaves_pixel(const frame_blend &b)
{
    const unsigned char zero[4] = {0, 0, 0, 0}, dst[3] = {255, 255, 255};
    return b.on && factor(b.dst, zero, dst, 0) == 255 && b.dst != FACTOR_DST_COLOUR;
}

static void write(unsigned char *p, const unsigned char src[4], const frame_blend &b)
{
    if (b.on) blend_into(p, src, b);
    else p[0] = src[0], p[1] = src[1], p[2] = src[2];
}

// ---------------------------------------------------------------------------------------
// [SECTION] Triangles

// Window positions are held to 1/256 pixel, as the rasteriser's fixed point holds them.
static int64_t fixed(float v) { return (int64_t)std::floor((double)v * 256.0 + 0.5); }

static int64_t floor_div(int64_t a, int64_t b)   // b > 0
{
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// One edge from a to b, the triangle on its left. Its value at pixel (x, y)'s centre is
// k + step_x x, k moving by step_y a row; positive inside, and a centre on the edge counts as
// inside (`least` 0) on the triangle's left or bottom side, else not (`least` 1). Along the
// rows the first (step_x > 0) or last (step_x < 0) column inside is `column`, followed exactly
// as a quotient and remainder that each row moves by a whole and a part.
struct edge {
    int64_t step_x, k, step_y, least;
    int64_t column, rest, whole, part, divisor;
};

static edge make_edge(int64_t ax, int64_t ay, int64_t bx, int64_t by, int64_t row)
{
    edge e = {};
    const int64_t dx = bx - ax, dy = by - ay;
    e.step_x = -dy * 256, e.step_y = dx * 256;
    e.k = dx * (row * 256 + 128 - ay) - dy * (128 - ax);
    e.least = (dy < 0 || (dy == 0 && dx > 0)) ? 0 : 1;
    e.divisor = e.step_x < 0 ? -e.step_x : e.step_x;
    if (e.step_x == 0) return e;
    // step_x > 0: the first column is ceil(n / d) for n = least - k, kept as n = column d - rest;
    // step_x < 0: the last is floor(m / d) for m = k - least, kept as m = column d + rest.
    const int64_t n = e.step_x > 0 ? e.least - e.k : e.k - e.least;
    const int64_t moves = e.step_x > 0 ? -e.step_y : e.step_y;   // n's change a row
    if (e.step_x > 0) {
        e.column = -floor_div(-n, e.divisor);
        e.rest = e.column * e.divisor - n;
    } else {
        e.column = floor_div(n, e.divisor);
        e.rest = n - e.column * e.divisor;
    }
    e.whole = floor_div(moves, e.divisor);
    e.part = moves - e.whole * e.divisor;
    return e;
}

static void next_row(edge &e)
{
    e.k += e.step_y;
    if (e.step_x > 0) {   // n - (whole d + part) = (column + whole) d - (rest - part)
        e.column += e.whole, e.rest -= e.part;
        if (e.rest < 0) e.column++, e.rest += e.divisor;
    } else if (e.step_x < 0) {   // m + whole d + part = (column + whole) d + (rest + part)
        e.column += e.whole, e.rest += e.part;
        if (e.rest >= e.divisor) e.column++, e.rest -= e.divisor;
    }
}

// Narrows [*x0, *x1) on the edge's current row to the pixels inside it.
static void clip_span(const edge &e, int64_t *x0, int64_t *x1)
{
    if (e.step_x > 0) *x0 = std::max(*x0, e.column);
    else if (e.step_x < 0) *x1 = std::min(*x1, e.column + 1);
    else if (e.k < e.least) *x1 = *x0;
}

static uint32_t packed(int32_t r, int32_t g, int32_t b)
{
    return (uint32_t)(r >> 16) | (uint32_t)(g >> 16) << 8 | (uint32_t)(b >> 16) << 16 | 0xff000000u;
}

// One row of a triangle: colours in bytes with 16 bits of fraction, starting half a byte up so
// that the fraction's cut rounds; held to the bytes' range at both ends of the row (between
// them the colour goes straight), so the pixels between need no holding.
static void shade_row(unsigned char *p, int64_t count, const int64_t start[4], const int32_t step[4], const frame_blend &b)
{
    int32_t colour[4];
    for (int c = 0; c < 4; c++) {
        const int64_t last = start[c] + step[c] * (count - 1);
        const int64_t lo = std::min(start[c], last), hi = std::max(start[c], last);
        const bool held = lo < 0 || hi >= (int64_t)256 << 16;
        colour[c] = (int32_t)std::clamp<int64_t>(start[c], 0, ((int64_t)256 << 16) - 1);
        if (held) {   // a rounding past the range at an end: each pixel held on its own
            for (int64_t n = 0; n < count; n++, p += 4) {
                unsigned char src[4];
                for (int k = 0; k < 4; k++)
                    src[k] = (unsigned char)std::clamp<int64_t>((start[k] + step[k] * n) >> 16, 0, 255);
                if (b.on) blend_into(p, src, b);
                else p[0] = src[0], p[1] = src[1], p[2] = src[2];
            }
            return;
        }
    }
    if (!b.on) {
        uint32_t *q = (uint32_t *)(void *)p;
        if (step[0] == step[1] && step[1] == step[2] && colour[0] == colour[1] && colour[1] == colour[2]) {
            for (int64_t n = 0; n < count; n++, colour[0] += step[0])   // grey
                q[n] = (uint32_t)(colour[0] >> 16) * 0x010101u | 0xff000000u;
            return;
        }
        for (int64_t n = 0; n < count; n++) {
            q[n] = packed(colour[0], colour[1], colour[2]);
            colour[0] += step[0], colour[1] += step[1], colour[2] += step[2];
        }
        return;
    }
    for (int64_t n = 0; n < count; n++, p += 4) {
        const unsigned char src[4] = {(unsigned char)(colour[0] >> 16), (unsigned char)(colour[1] >> 16),
                                      (unsigned char)(colour[2] >> 16), (unsigned char)(colour[3] >> 16)};
        for (int c = 0; c < 4; c++) colour[c] += step[c];
        blend_into(p, src, b);
    }
}

void frame_raster_triangle(frame_raster *f, const frame_vertex v[3], const frame_blend &b)
{
    int64_t X[3], Y[3];
    for (int i = 0; i < 3; i++) X[i] = fixed(v[i].x), Y[i] = fixed(v[i].y);
    int64_t area = (X[1] - X[0]) * (Y[2] - Y[0]) - (X[2] - X[0]) * (Y[1] - Y[0]);
    if (area == 0) return;
    int order[3] = {0, 1, 2};
    if (area < 0) std::swap(order[1], order[2]), area = -area;
    const int64_t y_lo = std::max<int64_t>(floor_div(std::min({Y[0], Y[1], Y[2]}), 256), f->clip[1]);
    const int64_t y_hi = std::min<int64_t>(floor_div(std::max({Y[0], Y[1], Y[2]}), 256) + 1, f->clip[3]);
    const int64_t x_lo = std::max<int64_t>(floor_div(std::min({X[0], X[1], X[2]}), 256), f->clip[0]);
    const int64_t x_hi = std::min<int64_t>(floor_div(std::max({X[0], X[1], X[2]}), 256) + 1, f->clip[2]);
    if (y_lo >= y_hi || x_lo >= x_hi) return;
    // edges[i] lies opposite corner order[i]: its value over the area is that corner's weight
    edge edges[3];
    for (int i = 0; i < 3; i++) {
        int a = order[(i + 1) % 3], c = order[(i + 2) % 3];
        edges[i] = make_edge(X[a], Y[a], X[c], Y[c], y_lo);
    }
    // each colour as a plane over the pixel grid, in bytes with 32 bits of fraction:
    // at (x, y) c0 + cx x + cy (y - y_lo)
    int64_t c0[4], cx[4], cy[4];
    int32_t step[4];   // ... and cx with 16 bits of fraction, for the pixels of a row
    const double over_area = 4294967296.0 / (double)area;
    for (int c = 0; c < 4; c++) {
        double at0 = 0, along_x = 0, along_y = 0;
        for (int i = 0; i < 3; i++) {
            const double weight = v[order[i]].rgba[c] * over_area;
            at0 += (double)edges[i].k * weight;
            along_x += (double)edges[i].step_x * weight;
            along_y += (double)edges[i].step_y * weight;
        }
        c0[c] = (int64_t)std::floor(at0 + 0.5), cx[c] = (int64_t)std::floor(along_x + 0.5);
        cy[c] = (int64_t)std::floor(along_y + 0.5);
        step[c] = (int32_t)((cx[c] + 32768) >> 16);
    }
    for (int64_t y = y_lo; y < y_hi; y++) {
        int64_t x0 = x_lo, x1 = x_hi;
        for (const edge &e : edges) clip_span(e, &x0, &x1);
        if (x1 > x0) {
            int64_t start[4];
            for (int c = 0; c < 4; c++) start[c] = ((c0[c] + cx[c] * x0 + cy[c] * (y - y_lo) + 32768) >> 16) + 32768;
            shade_row(pixel(f, (int)x0, (int)y), x1 - x0, start, step, b);
        }
        for (edge &e : edges) next_row(e);
    }
}

// ---------------------------------------------------------------------------------------
// [SECTION] Text: upright rectangles of a magnified texture

// The rectangle's corners held to 1/256 pixel, and the texel coordinates at its left and right
// edges (s) and at its bottom and top edges (t).
struct texture_rect {
    int64_t x0, y0, x1, y1;
    float s0, s1, t0, t1;
};

// False unless the four corners go round the rectangle (each next to the last), s the same
// at each left and each right corner and t at each bottom and top; a rectangle of no area
// passes, to draw nothing.
static bool rectangle_of(const frame_vertex v[4], texture_rect *r)
{
    int64_t X[4], Y[4];
    for (int i = 0; i < 4; i++) {
        if (!(std::fabs(v[i].x) < 1e6f && std::fabs(v[i].y) < 1e6f)) return false;
        X[i] = fixed(v[i].x), Y[i] = fixed(v[i].y);
    }
    r->x0 = std::min({X[0], X[1], X[2], X[3]}), r->x1 = std::max({X[0], X[1], X[2], X[3]});
    r->y0 = std::min({Y[0], Y[1], Y[2], Y[3]}), r->y1 = std::max({Y[0], Y[1], Y[2], Y[3]});
    if (r->x0 == r->x1 || r->y0 == r->y1) return true;
    float s_at[2] = {NAN, NAN}, t_at[2] = {NAN, NAN};
    int corner[4], seen = 0;
    for (int i = 0; i < 4; i++) {
        if ((X[i] != r->x0 && X[i] != r->x1) || (Y[i] != r->y0 && Y[i] != r->y1)) return false;
        corner[i] = (X[i] == r->x1) + 2 * (Y[i] == r->y1);
        seen |= 1 << corner[i];
        float &s = s_at[X[i] == r->x1], &t = t_at[Y[i] == r->y1];
        if (std::isnan(s)) s = v[i].s;
        if (std::isnan(t)) t = v[i].t;
        if (s != v[i].s || t != v[i].t) return false;
    }
    for (int i = 0; i < 4; i++) {
        const int step = corner[i] ^ corner[(i + 1) % 4];
        if (step != 1 && step != 2) return false;
    }
    if (seen != 15) return false;
    for (float c : {s_at[0], s_at[1], t_at[0], t_at[1]})
        if (!(std::fabs(c) < 1e6f)) return false;
    r->s0 = s_at[0], r->s1 = s_at[1], r->t0 = t_at[0], r->t1 = t_at[1];
    return true;
}

bool frame_texture_rect(const frame_vertex v[4], float most_texels)
{
    texture_rect r;
    if (!rectangle_of(v, &r)) return false;
    if (r.x1 == r.x0 || r.y1 == r.y0) return true;   // covers no pixel
    const double per_x = std::fabs(r.s1 - r.s0) * 256.0 / (double)(r.x1 - r.x0);
    const double per_y = std::fabs(r.t1 - r.t0) * 256.0 / (double)(r.y1 - r.y0);
    return per_x <= most_texels && per_y <= most_texels;
}

static int wrap(int i, int size, bool repeat)
{
    if (i >= 0 && i < size) return i;
    if (repeat) return ((i % size) + size) % size;
    return i < 0 ? 0 : size - 1;
}

// A texel coordinate less half a texel, in 1/256 texel: the texel below the sample and the
// weight of the one above, rounded to 1/256 as GL's software renderers on the desktop weigh.
static int sample_fixed(double u) { return (int)std::floor((u - 0.5) * 256.0 + 0.5); }

// The texture filtered linearly at (u, v): u0 and u1 the columns, a the weight of u1, rows
// r0 and r1 with b the weight of r1.
static void sample(const frame_texture &t, int ufix, const unsigned char *r0, const unsigned char *r1, int b,
                   unsigned char out[4])
{
    const int iu = ufix >> 8, a = ufix & 255;
    const int u0 = wrap(iu, t.width, t.repeat_s) * 4;
    if (a == 0 && b == 0) {   // at a texel's centre
        memcpy(out, r0 + u0, 4);
        return;
    }
    const int u1 = wrap(iu + 1, t.width, t.repeat_s) * 4;
    for (int c = 0; c < 4; c++) {
        const int bottom = r0[u0 + c] * (256 - a) + r0[u1 + c] * a;
        const int top = r1[u0 + c] * (256 - a) + r1[u1 + c] * a;
        out[c] = (unsigned char)((bottom * (256 - b) + top * b + 32768) >> 16);
    }
}

// Whether the four texels a sample reads are all empty (all channels zero), as most of a
// glyph's box is.
static bool four_empty(const frame_texture &t, int ufix, const unsigned char *r0, const unsigned char *r1)
{
    const int iu = ufix >> 8;
    const int u0 = wrap(iu, t.width, t.repeat_s) * 4, u1 = wrap(iu + 1, t.width, t.repeat_s) * 4;
    uint32_t w[4];
    memcpy(&w[0], r0 + u0, 4), memcpy(&w[1], r0 + u1, 4), memcpy(&w[2], r1 + u0, 4), memcpy(&w[3], r1 + u1, 4);
    return (w[0] | w[1] | w[2] | w[3]) == 0;
}

// The pixels whose centres lie in [lo, hi) (1/256 pixel units): edges on the left and bottom
// hold their centres, as for triangles.
static void centres_within(int64_t lo, int64_t hi, int *first, int *end)
{
    *first = (int)-floor_div(-(lo - 128), 256);
    *end = (int)-floor_div(-(hi - 128), 256);
}

void frame_raster_texture_rect(frame_raster *f, const frame_vertex v[4], const frame_texture &t,
                               const frame_blend &b)
{
    texture_rect r;
    if (!rectangle_of(v, &r) || r.x1 == r.x0 || r.y1 == r.y0) return;
    int x0, x1, y0, y1;
    centres_within(r.x0, r.x1, &x0, &x1);
    centres_within(r.y0, r.y1, &y0, &y1);
    x0 = std::max(x0, f->clip[0]), x1 = std::min(x1, f->clip[2]);
    y0 = std::max(y0, f->clip[1]), y1 = std::min(y1, f->clip[3]);
    // texel coordinates at pixel centres
    const double su = (r.s1 - r.s0) / (double)(r.x1 - r.x0), sv = (r.t1 - r.t0) / (double)(r.y1 - r.y0);
    const double s_first = r.s0 + ((double)x0 * 256 + 128 - (double)r.x0) * su, s_step = su * 256;
    const unsigned char *colour = v[0].rgba;
    const bool skip_empty = nothing_leaves_pixel(b);
    for (int y = y0; y < y1; y++) {
        const int vfix = sample_fixed(r.t0 + ((double)y * 256 + 128 - (double)r.y0) * sv);
        const size_t row = (size_t)t.width * 4;
        const unsigned char *r0 = t.texels + wrap(vfix >> 8, t.height, t.repeat_t) * row;
        const unsigned char *r1 = t.texels + wrap((vfix >> 8) + 1, t.height, t.repeat_t) * row;
        unsigned char *p = pixel(f, x0, y);
        for (int x = x0; x < x1; x++, p += 4) {
            unsigned char src[4];
            const int ufix = sample_fixed(s_first + (double)(x - x0) * s_step);
            if (skip_empty && four_empty(t, ufix, r0, r1)) continue;
            sample(t, ufix, r0, r1, vfix & 255, src);
            for (int c = 0; c < 4; c++) src[c] = (unsigned char)times(src[c], colour[c]);
            if (skip_empty && (src[0] | src[1] | src[2] | src[3]) == 0) continue;
            write(p, src, b);
        }
    }
}

// ---------------------------------------------------------------------------------------
// [SECTION] The thin-line picture

void frame_raster_put_thin(frame_raster *f, const thin_raster &r)
{
    const int *b = r.box;
    for (int band = b[1] / BAND_ROWS; band * BAND_ROWS < b[3]; band++) {
        const int *span = r.band_x + 2 * band;
        const int y1 = std::min({(band + 1) * BAND_ROWS, r.height, f->height});
        for (int y = band * BAND_ROWS; span[1] > span[0] && y < y1; y++) {
            const unsigned char *q = r.rgba + ((size_t)y * r.width + span[0]) * 4;
            unsigned char *p = pixel(f, span[0], y);
            for (int x = span[0]; x < span[1] && x < f->width; x++, p += 4, q += 4)
                if (q[3]) p[0] = q[0], p[1] = q[1], p[2] = q[2];
        }
    }
}
