// Coloured vertex batches, drawn from client-side arrays.
#include "fentra/views/vertex_batch.h"

#include <SDL_opengl.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <vector>

void batch_reserve(vertex_batch *b, int count)
{
    if (count <= b->capacity) return;
    b->capacity = count;
    b->xy = (float *)realloc(b->xy, sizeof(float) * 2 * count);
    b->rgb = (unsigned char *)realloc(b->rgb, 3 * (size_t)count);
    if (!b->xy || !b->rgb) abort();
}

void batch_add(vertex_batch *b, double x, double y, unsigned colour)
{
    if (b->count == b->capacity) batch_reserve(b, 2 * b->capacity + 64);
    int i = b->count++;
    b->xy[2 * i] = (float)x;
    b->xy[2 * i + 1] = (float)y;
    b->rgb[3 * i] = (unsigned char)(colour >> 16);
    b->rgb[3 * i + 1] = (unsigned char)(colour >> 8);
    b->rgb[3 * i + 2] = (unsigned char)colour;
}

void batch_drop_covered_points(vertex_batch *b, int width, int height)
{
    // A frame's mark on each pixel: no clearing between frames.
    static std::vector<unsigned> mark;
    static std::vector<unsigned char> keep;
    static unsigned frame;
    const float edge_margin = 1.0f / 64;
    // A new size, or the frame count running out, starts the marks again.
    if (mark.size() != (size_t)width * height || frame == UINT_MAX) {
        mark.assign((size_t)width * height, 0);
        frame = 0;
    }
    frame++;
    keep.resize(b->count);
    for (int i = b->count - 1; i >= 0; i--) {
        const float x = b->xy[2 * i], y = b->xy[2 * i + 1], fx = x - floorf(x), fy = y - floorf(y);
        const int px = (int)floorf(x), py = (int)floorf(y);
        const bool edge = fx < edge_margin || fx > 1 - edge_margin || fy < edge_margin || fy > 1 - edge_margin;
        if (edge || px < 0 || py < 0 || px >= width || py >= height) {
            keep[i] = 1;
            continue;
        }
        unsigned &m = mark[(size_t)py * width + px];
        keep[i] = m != frame;
        m = frame;
    }
    int n = 0;
    for (int i = 0; i < b->count; i++) {
        if (!keep[i]) continue;
        b->xy[2 * n] = b->xy[2 * i], b->xy[2 * n + 1] = b->xy[2 * i + 1];
        for (int c = 0; c < 3; c++) b->rgb[3 * n + c] = b->rgb[3 * i + c];
        n++;
    }
    b->count = n;
}

void batch_draw(const vertex_batch &b, unsigned mode)
{
    if (b.count == 0) return;
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_COLOR_ARRAY);
    glVertexPointer(2, GL_FLOAT, 0, b.xy);
    glColorPointer(3, GL_UNSIGNED_BYTE, 0, b.rgb);
    glDrawArrays(mode, 0, b.count);
    glDisableClientState(GL_COLOR_ARRAY);
    glDisableClientState(GL_VERTEX_ARRAY);
    const unsigned char *last = b.rgb + 3 * (b.count - 1);
    glColor3ub(last[0], last[1], last[2]);
}
