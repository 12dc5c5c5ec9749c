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
// Draws the batch as mode (GL_POINTS, GL_LINES, GL_QUADS) and leaves the current colour as
// drawing the vertices one by one would have left it.
void batch_draw(const vertex_batch &b, unsigned mode);
