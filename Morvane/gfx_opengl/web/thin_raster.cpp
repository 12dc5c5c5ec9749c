// Thin points and lines on the CPU, pixel for pixel as GL draws them.
#include "Morvane/gfx_opengl/web/thin_raster.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

static int bands_of(int height) { return (height + BAND_ROWS - 1) / BAND_ROWS; }

// Only the drawn columns of each band are cleared.
void thin_raster_erase(thin_raster *r)
{
    const int *b = r->box;
    for (int band = b[1] / BAND_ROWS; band * BAND_ROWS < b[3]; band++) {
        int *span = r->band_x + 2 * band;
        int y1 = std::min((band + 1) * BAND_ROWS, r->height);
        for (int y = band * BAND_ROWS; span[1] > span[0] && y < y1; y++)
            memset(r->rgba + ((size_t)y * r->width + span[0]) * 4, 0, (size_t)(span[1] - span[0]) * 4);
        span[0] = span[1] = 0;
    }
    r->box[0] = r->box[1] = r->box[2] = r->box[3] = 0;
}

void thin_raster_resize(thin_raster *r, int width, int height)
{
    thin_raster_release(r);
    r->rgba = (unsigned char *)calloc((size_t)width * height, 4);
    r->band_x = (int *)calloc((size_t)bands_of(height) * 2, sizeof(int));
    r->width = width;
    r->height = height;
    r->clip[0] = r->clip[1] = 0;
    r->clip[2] = width;
    r->clip[3] = height;
    r->box[0] = r->box[1] = r->box[2] = r->box[3] = 0;
}

void thin_raster_release(thin_raster *r)
{
    free(r->rgba);
    free(r->band_x);
    r->rgba = nullptr;
    r->band_x = nullptr;
}

static void put(thin_raster *r, int x, int y, const unsigned char rgba[4])
{
    if (x < r->clip[0] || y < r->clip[1] || x >= r->clip[2] || y >= r->clip[3]) return;
    unsigned char *p = r->rgba + ((size_t)y * r->width + x) * 4;
    p[0] = rgba[0], p[1] = rgba[1], p[2] = rgba[2], p[3] = 255;
    int *span = r->band_x + 2 * (y / BAND_ROWS);
    if (span[1] <= span[0]) span[0] = x, span[1] = x + 1;
    else if (x < span[0]) span[0] = x;
    else if (x >= span[1]) span[1] = x + 1;
    int *b = r->box;
    if (b[2] <= b[0]) {
        b[0] = x, b[1] = y, b[2] = x + 1, b[3] = y + 1;
        return;
    }
    if (x < b[0]) b[0] = x;
    if (y < b[1]) b[1] = y;
    if (x >= b[2]) b[2] = x + 1;
    if (y >= b[3]) b[3] = y + 1;
}

// Window positions are held to 1/256 pixel, as the rasteriser's fixed point holds them.
static double snap(float v) { return std::floor((double)v * 256.0 + 0.5) / 256.0; }

void thin_raster_point(thin_raster *r, float x, float y, const unsigned char rgba[4])
{
    double sx = std::floor(snap(x)), sy = std::floor(snap(y));
    if (sx < -1e9 || sx > 1e9 || sy < -1e9 || sy > 1e9) return;
    put(r, (int)sx, (int)sy, rgba);
}

// GL's rasteriser settles lines that run along pixel edges or end on a diamond's edge as if
// each window position lay a hair lower and further left, x twice as far as y (measured
// against Mesa). Along a line, u is the major axis and v the minor: the hair in each, in
// units of the smaller.
struct hair {
    int u, v;
};

// Whether a point (du, dv) from a pixel's centre, taken the hair back, lies in the pixel's
// diamond: the points less than half a pixel from the centre in u plus v.
static bool in_diamond(double du, double dv, hair h)
{
    const double d = std::fabs(du) + std::fabs(dv);
    if (d != 0.5) return d < 0.5;
    return (du > 0 ? -h.u : h.u) + (dv > 0 ? -h.v : h.v) < 0;
}

// A line lights pixel (c, row) when it leaves the pixel's diamond. Along u, each column's
// diamond is met where the line crosses the column's centre, or at the start when the line
// starts inside it; the pixel is left out when the line ends inside the same diamond.
static void line_along(thin_raster *r, double au, double av, double bu, double bv, bool u_is_x,
                       const unsigned char rgba[4])
{
    const hair h = u_is_x ? hair{2, 1} : hair{1, 2};
    const double slope = (bv - av) / (bu - au);
    const double lo = au < bu ? au : bu, hi = au < bu ? bu : au;
    double first = std::floor(lo) - 1, last = std::floor(hi) + 1;
    const int limit_lo = u_is_x ? r->clip[0] : r->clip[1], limit_hi = u_is_x ? r->clip[2] : r->clip[3];
    if (first < limit_lo - 1) first = limit_lo - 1;
    if (last > limit_hi) last = limit_hi;
    for (double c = first; c <= last; c++) {
        const double cu = c + 0.5;
        double row;
        if (cu >= lo && cu < hi) {   // the line, a hair back, crosses the column's centre
            const double v = av + (cu - au) * slope;
            row = std::floor(v);
            if (v == row && slope * h.u - h.v < 0) row--;   // on a pixel edge, going below it
        } else {
            row = std::ceil(av) - 1;
            if (!in_diamond(au - cu, av - (row + 0.5), h)) continue;
        }
        if (in_diamond(bu - cu, bv - (row + 0.5), h)) continue;
        if (u_is_x) put(r, (int)c, (int)row, rgba);
        else put(r, (int)row, (int)c, rgba);
    }
}

void thin_raster_line(thin_raster *r, float ax, float ay, float bx, float by,
                      const unsigned char rgba[4])
{
    double x0 = snap(ax), y0 = snap(ay), x1 = snap(bx), y1 = snap(by);
    if (!(std::fabs(x0) < 1e7 && std::fabs(y0) < 1e7 && std::fabs(x1) < 1e7 && std::fabs(y1) < 1e7))
        return;
    if (x0 == x1 && y0 == y1) return;
    if (std::fabs(x1 - x0) >= std::fabs(y1 - y0)) line_along(r, x0, y0, x1, y1, true, rgba);
    else line_along(r, y0, x0, y1, x1, false, rgba);
}
