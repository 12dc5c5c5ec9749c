// A whole frame drawn on the CPU, by GL's rules, for the drawing the program does most: filled
// triangles with colours shaded across them, text from a font texture on upright rectangles,
// and what the thin-line picture holds. Where WebGL itself runs on the CPU, each pixel it fills
// costs several times what this does, and a frame made here goes to the page as one picture.
#pragma once

#include "Morvane/gfx_opengl/web/thin_raster.h"

// Blend factors, as GL names them (the window has no alpha channel: its alpha reads as one).
enum frame_factor {
    FACTOR_ZERO, FACTOR_ONE, FACTOR_SRC_COLOUR, FACTOR_ONE_MINUS_SRC_COLOUR, FACTOR_SRC_ALPHA,
    FACTOR_ONE_MINUS_SRC_ALPHA, FACTOR_DST_COLOUR, FACTOR_ONE_MINUS_DST_COLOUR
};

struct frame_blend {
    bool on;
    frame_factor src, dst;   // for colour; the equation is always the sum
};

// A vertex in window coordinates with its colour and, for text, its texel position.
struct frame_vertex {
    float x, y;
    unsigned char rgba[4];
    float s, t;              // in texels
};

struct frame_raster {
    unsigned char *rgba;     // width x height pixels, top row first as a page takes them, alpha 255
    int width, height;
    int clip[4];             // x0, y0, x1, y1: the pixels that may be drawn (x1, y1 excluded)
};

void frame_raster_resize(frame_raster *f, int width, int height);
// Pixel (x, y) in GL's window coordinates (y up from the bottom row).
unsigned char *frame_raster_pixel(const frame_raster &f, int x, int y);
void frame_raster_release(frame_raster *f);
// Fills the clip with one colour.
void frame_raster_clear(frame_raster *f, const unsigned char rgba[4]);
// A triangle lights the pixels whose centres it holds, a centre on an edge going to the triangle
// on the edge's left or bottom side, its colour shaded across it from the corners.
void frame_raster_triangle(frame_raster *f, const frame_vertex v[3], const frame_blend &b);
// A texture as GL magnifies it with linear filtering: its first level, repeated or clamped to
// its edges.
struct frame_texture {
    const unsigned char *texels;   // RGBA rows, tightly packed
    int width, height;
    bool repeat_s, repeat_t;
};
// Whether the quad v[0..3] is a rectangle on the window's axes with s changing along x only and
// t along y only, at most `most_texels` texels to a pixel along either.
bool frame_texture_rect(const frame_vertex v[4], float most_texels);
// Such a rectangle: each pixel the texture sampled at its centre times the first corner's colour.
void frame_raster_texture_rect(frame_raster *f, const frame_vertex v[4], const frame_texture &t,
                               const frame_blend &b);
// The pixels drawn in the thin-line picture, over the frame.
void frame_raster_put_thin(frame_raster *f, const thin_raster &r);
