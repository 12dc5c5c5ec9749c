// Coloured vertex batches, drawn from client-side arrays.
#include "fentra/views/vertex_batch.h"

#include <SDL_opengl.h>

#include <cstdlib>

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
