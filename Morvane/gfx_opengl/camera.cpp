// Projection: the resize step (viewport with the orthographic or the fixed perspective
// projection), the camera helpers for 3-D scenes (depth range, field of view, perspective with
// the 4:3 rule), and the size of one screen pixel in drawing units. Matrices are column-major,
// as GL loads them.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL_opengl.h>

#include <cmath>
#include <cstring>

int ortho_mode = 1;
int screen_width = 0, screen_height = 0;          // the drawing area, in pixels
int window_offset_x = 0, window_offset_y = 0;     // its place on the desktop

// ---------------------------------------------------------------------------------------
// [SECTION] Plain matrix arithmetic

// Near plane 0.1 and far plane 1000, worked in single precision as GL stores them
// (m[10] comes out as 0xBF80068D, m[14] as 0xBE4CD20B). The wider of the two axes is
// fixed: a screen wider than 4:3 keeps the 4:3 vertical scale.
void perspective_matrix(int width, int height, float m[16])
{
    const float near_plane = 0.1f, far_plane = 1000.0f;
    memset(m, 0, 16 * sizeof(float));
    float aspect = (float)height / (float)width;
    if (aspect < 0.75f) {
        m[0] = (float)(height / (0.75 * width));
        m[5] = 4.0f / 3.0f;
    } else {
        m[0] = 1.0f;
        m[5] = 1.0f / aspect;
    }
    m[10] = (far_plane + near_plane) / (near_plane - far_plane);
    m[11] = -1.0f;
    m[14] = 2 * far_plane * near_plane / (near_plane - far_plane);
}

void matrix_depth_range(float m[16], double near_plane, double far_plane)
{
    m[10] = (float)((near_plane + far_plane) / (near_plane - far_plane));
    m[14] = (float)(2 * far_plane * near_plane / (near_plane - far_plane));
}

static double half_angle_tangent(double angle) { return tan(angle * M_PI / 360.0); }

// x and y scales for a field of view: a screen taller than 4:3 keeps the given angle
// across its width; a wider one keeps the 4:3 vertical angle.
static void scales_43(double angle, int width, int height, double *x, double *y)
{
    double t = half_angle_tangent(angle);
    *x = t;
    *y = t * height / width;
    if (*y < 0.75 * t) {
        *x = width * 0.75 * t / height;
        *y = 0.75 * t;
    }
}

void matrix_field_of_view(float m[16], double angle, int width, int height)
{
    double x, y;
    scales_43(angle, width, height, &x, &y);
    m[0] = (float)(1 / x);
    m[5] = (float)(1 / y);
}

double matrix_field_of_view_x(const float m[16])
{
    return atan(1.0 / m[0]) * 114.59155902616465; // 2 x atan in degrees: 360 / pi
}

double matrix_field_of_view_43(const float m[16], int width, int height)
{
    double v = 1.0 / m[0];
    double aspect = (double)height / width;
    if (aspect < 0.75) v *= aspect * 4.0 / 3.0;
    return atan(v) * 114.59155902616465;
}

void matrix_perspective(float m[16], double angle, double near_plane, double far_plane,
                        int width, int height)
{
    double t = half_angle_tangent(angle);
    memset(m, 0, 16 * sizeof(float));
    m[0] = (float)(1 / t);
    m[5] = (float)(1 / (t * height / width));
    matrix_depth_range(m, near_plane, far_plane);
    m[11] = -1.0f;
}

void matrix_perspective_43(float m[16], double angle, double near_plane, double far_plane,
                           int width, int height)
{
    matrix_perspective(m, angle, near_plane, far_plane, width, height);
    matrix_field_of_view(m, angle, width, height);
}

// The window position of the point (x, y, 0) is (vx + vw (cx/cw + 1) / 2, ...), with c the
// clip coordinates P M (x, y, 0, 1). Its derivatives at the origin form J; a pixel covers
// 1 / |det J| square units, so its side is 1 / sqrt |det J|.
double pixel_size_of(const double projection[16], const double modelview[16],
                     const int viewport[4])
{
    double pm[16];
    for (int col = 0; col < 4; ++col)
        for (int row = 0; row < 4; ++row) {
            double s = 0;
            for (int k = 0; k < 4; ++k) s += projection[k * 4 + row] * modelview[col * 4 + k];
            pm[col * 4 + row] = s;
        }
    double cx = pm[12], cy = pm[13], cw = pm[15];
    double dxdx = viewport[2] * 0.5 * (pm[0] * cw - cx * pm[3]) / (cw * cw);
    double dxdy = viewport[2] * 0.5 * (pm[4] * cw - cx * pm[7]) / (cw * cw);
    double dydx = viewport[3] * 0.5 * (pm[1] * cw - cy * pm[3]) / (cw * cw);
    double dydy = viewport[3] * 0.5 * (pm[5] * cw - cy * pm[7]) / (cw * cw);
    return 1.0 / sqrt(fabs(dxdx * dydy - dxdy * dydx));
}

// ---------------------------------------------------------------------------------------
// [SECTION] On the current projection

static void load_projection(const float m[16])
{
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixf(m);
    glMatrixMode(GL_MODELVIEW);
}

void set_depth_range(double near_plane, double far_plane)
{
    float m[16];
    glGetFloatv(GL_PROJECTION_MATRIX, m);
    matrix_depth_range(m, near_plane, far_plane);
    load_projection(m);
}

void set_field_of_view(double angle)
{
    float m[16];
    glGetFloatv(GL_PROJECTION_MATRIX, m);
    matrix_field_of_view(m, angle, screen_width, screen_height);
    load_projection(m);
}

double field_of_view_x()
{
    float m[16];
    glGetFloatv(GL_PROJECTION_MATRIX, m);
    return matrix_field_of_view_x(m);
}

double field_of_view_43()
{
    float m[16];
    glGetFloatv(GL_PROJECTION_MATRIX, m);
    return matrix_field_of_view_43(m, screen_width, screen_height);
}

void set_perspective(double angle, double near_plane, double far_plane)
{
    float m[16];
    matrix_perspective(m, angle, near_plane, far_plane, screen_width, screen_height);
    load_projection(m);
}

void set_perspective_43(double angle, double near_plane, double far_plane)
{
    float m[16];
    matrix_perspective_43(m, angle, near_plane, far_plane, screen_width, screen_height);
    load_projection(m);
}

double pixel_size()
{
    double projection[16], modelview[16];
    int viewport[4];
    glGetDoublev(GL_PROJECTION_MATRIX, projection);
    glGetDoublev(GL_MODELVIEW_MATRIX, modelview);
    glGetIntegerv(GL_VIEWPORT, viewport);
    return pixel_size_of(projection, modelview, viewport);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Projection

void resize_view(int width, int height)
{
    screen_width = width;
    screen_height = height > 1 ? height : 1;
    glViewport(0, 0, width, height);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    if (ortho_mode) {
        // one unit a pixel, origin at the top-left pixel, y down (bottom = height, top = 0),
        // depth range +-h/2
        // NOLINTNEXTLINE(readability-suspicious-call-argument)
        glOrtho(0, width, height, 0, height / 2, -(height / 2));
    } else {
        float m[16];
        perspective_matrix(width, height, m);
        glLoadMatrixf(m);
    }
    glMatrixMode(GL_MODELVIEW);
}
