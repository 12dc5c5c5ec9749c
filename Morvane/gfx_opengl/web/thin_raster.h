// Points one pixel large and lines one pixel wide, drawn on the CPU into an RGBA picture by
// GL's rules: window positions snapped to 1/256 pixel, a point lighting the pixel that
// contains it, a line lighting the pixels whose diamonds it leaves. On a CPU renderer in a
// browser every primitive costs about a microsecond, so the web platform draws the beam's
// ten thousand streaks and dots here and hands them over as one picture.
#pragma once

// The rows are taken in bands of BAND_ROWS: for each, the columns drawn in it. A cloud of dots
// covers far less of its bands' spans than of its box, and each pixel shown costs a CPU
// renderer as much as a dot's work.
enum { BAND_ROWS = 8 };

struct thin_raster {
    unsigned char *rgba;   // width x height pixels, bottom row first; alpha 255 where drawn
    int width, height;
    int clip[4];           // x0, y0, x1, y1: the pixels that may be drawn (x1, y1 excluded)
    int box[4];            // x0, y0, x1, y1: the pixels drawn since the box was last emptied
    int *band_x;           // per band the columns drawn, x0 and x1 (x1 excluded); x1 0: none
};

// Sizes the picture (its pixels undrawn) and empties the box; the clip is the whole picture.
void thin_raster_resize(thin_raster *r, int width, int height);
void thin_raster_release(thin_raster *r);
void thin_raster_point(thin_raster *r, float x, float y, const unsigned char rgba[4]);
void thin_raster_line(thin_raster *r, float ax, float ay, float bx, float by,
                      const unsigned char rgba[4]);
// Makes the drawn pixels undrawn again and empties the box.
void thin_raster_erase(thin_raster *r);
