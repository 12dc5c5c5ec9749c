// Coloured vertices gathered for one glDrawArrays call: a position and a colour for every
// vertex, in the order they are drawn. The arrays grow as needed and are kept between frames.
#pragma once

struct vertex_batch {
    float *xy;            // x, y per vertex
    unsigned char *rgb;   // r, g, b per vertex
    int count, capacity;
};

// Room for count vertices in all.
void batch_reserve(vertex_batch *b, int count);
void batch_add(vertex_batch *b, double x, double y, unsigned colour);
// Leaves out the points that a later point of the batch covers again. A point of size 1 away
// from a pixel's edges fills the pixel floor(x), floor(y) (y down or up alike); a later such
// point on that pixel replaces its colour, so the earlier one changes nothing. Points within
// 1/64 pixel of an edge, where the rasteriser's own rule and its fixed-point snapping decide,
// are all kept, in their order.
void batch_drop_covered_points(vertex_batch *b, int width, int height);
// Draws the batch as mode (GL_POINTS, GL_LINES, GL_QUADS) and leaves the current colour as
// drawing the vertices one by one would have left it.
void batch_draw(const vertex_batch &b, unsigned mode);
