// Drawing in window coordinates, as GL's rasteriser sees them (origin at the bottom-left
// corner, one unit a pixel), with nothing on that changes a pixel's colour: no blending,
// texture, depth test, scissor or smoothing, points and lines one pixel large.
#pragma once

#include <GL/gl.h>

inline void window_coordinates(int width, int height)
{
    glViewport(0, 0, width, height);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(0, width, 0, height, -1, 1);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glDisable(GL_BLEND), glDisable(GL_DEPTH_TEST), glDisable(GL_TEXTURE_2D), glDisable(GL_SCISSOR_TEST);
    glDisable(GL_LINE_SMOOTH), glDisable(GL_POINT_SMOOTH);
    glLineWidth(1), glPointSize(1);
}
