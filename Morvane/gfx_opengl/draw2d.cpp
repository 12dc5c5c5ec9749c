// 2-D drawing in screen pixels over immediate-mode GL: colours and palette colours, lines,
// points, rectangles, circles with their segment rule and off-screen culling, arcs and
// sectors, soft-edged shapes, smoothing and overlay states, and the clip-rectangle stack.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL_opengl.h>

#include <cmath>
#include <cstdlib>

#ifndef GL_TEXTURE_CUBE_MAP_SEAMLESS
#define GL_TEXTURE_CUBE_MAP_SEAMLESS 0x884F
#endif

int cull_offscreen = 1;

static struct {
    clip_stack clips;
} draw2d;

// ---------------------------------------------------------------------------------------
// [SECTION] Plain rules

int circle_segments(double r, double pixel)
{
    int n = (int)(5 * sqrt(r / pixel));
    return n < 1 ? 1 : n;
}

int arc_segments(double angle, double r, double pixel)
{
    int m = (int)(fabs(angle) * 0.8 * sqrt(fabs(r) / pixel));
    return m < 1 ? 1 : m;
}

int circle_on_screen(double x, double y, double r, int w, int h)
{
    return !(x - r > w || x + r < 0 || y - r > h || y + r < 0);
}

// A circle much larger than the screen is drawn only when its outline passes near the
// screen: within one radius R = (w + h) / 2 of the screen's centre, i.e. when the distance
// d between the centres satisfies (R - r)^2 <= d^2 <= (R + r)^2.
int outline_on_screen(double x, double y, double r, int w, int h)
{
    if (!circle_on_screen(x, y, r, w, h)) return 0;
    if (r <= (w + h) / 2.0) return 1;
    double dx = w / 2 - x, dy = h / 2 - y, big = (w + h) / 2.0;
    return fabs(dx * dx + dy * dy - big * big - r * r) <= (double)(w + h) * r;
}

void palette_index_rgb(int i, float rgb[3])
{
    if (i < 0) i = 0;
    if (i > 255) i = 255;
    if (i < 8 || (i > 8 && i < 16)) {
        float on = i < 8 ? 0.5f : 1.0f;
        rgb[0] = (i & 4) ? on : 0.0f;
        rgb[1] = (i & 2) ? on : 0.0f;
        rgb[2] = (i & 1) ? on : 0.0f;
    } else if (i == 8) {
        rgb[0] = rgb[1] = rgb[2] = 0.25f;
    } else if (i < 40) {
        rgb[0] = rgb[1] = rgb[2] = (i - 16) * 0.04347826f; // 24 steps of 1/23
    } else {
        int k = i - 40; // 6 x 6 x 6 cube, red fastest
        rgb[0] = (k % 6) * 0.2f;
        rgb[1] = (k / 6 % 6) * 0.2f;
        rgb[2] = (k / 36) * 0.2f;
    }
}

int clip_stack_push(clip_stack *stack, int x1, int y1, int x2, int y2)
{
    if (stack->depth >= CLIP_STACK_DEPTH) return 0;
    if (stack->depth > 0) {
        const int *top = stack->rect[stack->depth - 1];
        auto clamp = [](int v, int lo, int hi) { return v < lo ? lo : v > hi ? hi : v; };
        x1 = clamp(x1, top[0], top[2]);
        x2 = clamp(x2, top[0], top[2]);
        y1 = clamp(y1, top[1], top[3]);
        y2 = clamp(y2, top[1], top[3]);
    }
    int *r = stack->rect[stack->depth++];
    r[0] = x1, r[1] = y1, r[2] = x2, r[3] = y2;
    return 1;
}

int clip_stack_pop(clip_stack *stack)
{
    if (stack->depth == 0) return -1;
    return --stack->depth;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Colours, lines, points, rectangles

void set_colour(unsigned c)
{
    glColor3ub((GLubyte)(c >> 16), (GLubyte)(c >> 8), (GLubyte)c);
}

static void set_colour_alpha(unsigned c, int alpha)
{
    glColor4ub((GLubyte)(c >> 16), (GLubyte)(c >> 8), (GLubyte)c, (GLubyte)alpha);
}

void set_palette_colour(int index)
{
    float rgb[3];
    palette_index_rgb(index, rgb);
    glColor3f(rgb[0], rgb[1], rgb[2]);
}

void draw_line(double x1, double y1, double x2, double y2, unsigned colour)
{
    GLboolean lighting = glIsEnabled(GL_LIGHTING);
    glDisable(GL_LIGHTING);
    glBegin(GL_LINES);
    set_colour(colour);
    glVertex2d(x1, y1);
    glVertex2d(x2, y2);
    glEnd();
    if (lighting) glEnable(GL_LIGHTING);
}

void draw_point(double x, double y, unsigned colour)
{
    glBegin(GL_POINTS);
    set_colour(colour);
    glVertex2d(x, y);
    glEnd();
}

void point_vertex(double x, double y, unsigned colour)
{
    set_colour(colour);
    glVertex2d(x, y);
}

void line_vertices(double x1, double y1, double x2, double y2, unsigned colour)
{
    set_colour(colour);
    glVertex2d(x1, y1);
    glVertex2d(x2, y2);
}

void rect_vertices(double x, double y, double w, double h, unsigned colour)
{
    set_colour(colour);
    glVertex2d(x, y);
    glVertex2d(x + w, y);
    glVertex2d(x + w, y + h);
    glVertex2d(x, y + h);
}

void fill_rect(double x, double y, double w, double h, unsigned colour)
{
    glBegin(GL_QUADS);
    rect_vertices(x, y, w, h, colour);
    glEnd();
}

void outline_rect(double x, double y, double w, double h, unsigned colour)
{
    glBegin(GL_LINE_LOOP);
    rect_vertices(x, y, w, h, colour);
    glEnd();
}

void outline_box(double x1, double y1, double x2, double y2, unsigned colour)
{
    glBegin(GL_LINE_LOOP);
    set_colour(colour);
    glVertex2d(x1, y1);
    glVertex2d(x2, y1);
    glVertex2d(x2, y2);
    glVertex2d(x1, y2);
    glEnd();
}

// ---------------------------------------------------------------------------------------
// [SECTION] Circles, arcs and sectors
// Circles start straight below the centre on screen (y grows downwards); arcs and sectors
// measure their angles clockwise from straight up.

void fill_circle(double x, double y, double r, unsigned colour)
{
    if (cull_offscreen && !circle_on_screen(x, y, r, screen_width, screen_height)) return;
    int n = circle_segments(r, pixel_size());
    double step = 2 * M_PI / n;
    glBegin(GL_TRIANGLE_FAN);
    set_colour(colour);
    glVertex2d(x, y);
    for (int k = 0; k <= n; ++k) glVertex2d(x + r * sin(k * step), y + r * cos(k * step));
    glEnd();
}

void outline_circle(double x, double y, double r, unsigned colour)
{
    if (cull_offscreen && !outline_on_screen(x, y, r, screen_width, screen_height)) return;
    int n = circle_segments(r, pixel_size());
    double step = 2 * M_PI / n;
    glBegin(GL_LINE_LOOP);
    set_colour(colour);
    for (int k = 0; k < n; ++k) glVertex2d(x + r * sin(k * step), y + r * cos(k * step));
    glEnd();
}

void outline_ellipse(double x, double y, double rx, double ry, unsigned colour)
{
    int n = circle_segments(rx > ry ? rx : ry, pixel_size());
    double step = 2 * M_PI / n;
    glBegin(GL_LINE_LOOP);
    set_colour(colour);
    for (int k = 0; k < n; ++k) glVertex2d(x + rx * sin(k * step), y + ry * cos(k * step));
    glEnd();
}

void draw_arc(double x, double y, double r, double a0, double a1, unsigned colour)
{
    if (cull_offscreen && !outline_on_screen(x, y, r, screen_width, screen_height)) return;
    int m = arc_segments(a1 - a0, r, pixel_size());
    glBegin(GL_LINE_STRIP);
    set_colour(colour);
    for (int k = 0; k <= m; ++k) {
        double a = a0 + k * (a1 - a0) / m;
        glVertex2d(x + r * sin(a), y - r * cos(a));
    }
    glEnd();
}

void fill_sector(double x, double y, double r_inner, double r_outer, double a0, double a1,
                 unsigned colour, int alpha)
{
    if (cull_offscreen && !circle_on_screen(x, y, r_outer, screen_width, screen_height)) return;
    int m = arc_segments(a1 - a0, r_outer, pixel_size());
    set_colour_alpha(colour, alpha);
    glBegin(r_inner == 0 ? GL_TRIANGLE_FAN : GL_QUAD_STRIP);
    if (r_inner == 0) glVertex2d(x, y);
    for (int k = 0; k <= m; ++k) {
        double a = a0 + k * (a1 - a0) / m, s = sin(a), c = cos(a);
        if (r_inner != 0) glVertex2d(x + r_inner * s, y - r_inner * c);
        glVertex2d(x + r_outer * s, y - r_outer * c);
    }
    glEnd();
}

// ---------------------------------------------------------------------------------------
// [SECTION] Soft-edged shapes
// The colour blends over what is there while the alpha channel accumulates coverage, so
// colour and alpha take different blend factors.

// A band between radii r0 and r1 whose alpha goes from a0 to a1 across it.
static void soft_band(double x, double y, double r0, double r1, int a0, int a1, unsigned colour,
                      int n)
{
    double step = 2 * M_PI / n;
    glBegin(GL_QUAD_STRIP);
    for (int k = 0; k <= n; ++k) {
        double s = sin(k * step), c = cos(k * step);
        set_colour_alpha(colour, a0);
        glVertex2d(x + r0 * s, y + r0 * c);
        set_colour_alpha(colour, a1);
        glVertex2d(x + r1 * s, y + r1 * c);
    }
    glEnd();
}

static void soft_begin()
{
    glPushAttrib(GL_COLOR_BUFFER_BIT | GL_CURRENT_BIT);
    glEnable(GL_BLEND);
    blend_func_separate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
}

void soft_disc(double x, double y, double r, double edge, unsigned colour, int alpha)
{
    if (cull_offscreen && !circle_on_screen(x, y, r, screen_width, screen_height)) return;
    int n = circle_segments(r, pixel_size());
    double inner = r - edge > 0 ? r - edge : 0, step = 2 * M_PI / n;
    soft_begin();
    glBegin(GL_TRIANGLE_FAN);
    set_colour_alpha(colour, alpha);
    glVertex2d(x, y);
    for (int k = 0; k <= n; ++k) glVertex2d(x + inner * sin(k * step), y + inner * cos(k * step));
    glEnd();
    soft_band(x, y, inner, r, alpha, 0, colour, n);
    glPopAttrib();
}

void soft_ring(double x, double y, double r_inner, double r_outer, double edge,
               unsigned colour, int alpha)
{
    if (cull_offscreen && !outline_on_screen(x, y, r_outer, screen_width, screen_height))
        return;
    int n = circle_segments(r_outer, pixel_size());
    double middle = (r_inner + r_outer) / 2;
    double in = r_inner + edge < middle ? r_inner + edge : middle;
    double out = r_outer - edge > middle ? r_outer - edge : middle;
    soft_begin();
    soft_band(x, y, r_inner, in, 0, alpha, colour, n);
    if (out > in) soft_band(x, y, in, out, alpha, alpha, colour, n);
    soft_band(x, y, out, r_outer, alpha, 0, colour, n);
    glPopAttrib();
}

// ---------------------------------------------------------------------------------------
// [SECTION] Drawing states

void smooth_begin(int additive, double width)
{
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, additive ? GL_ONE : GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_LINE_SMOOTH);
    glHint(GL_LINE_SMOOTH_HINT, GL_NICEST);
    glEnable(GL_POINT_SMOOTH);
    glHint(GL_POINT_SMOOTH_HINT, GL_NICEST);
    glLineWidth((float)width);
    glPointSize((float)width);
}

void smooth_end()
{
    glDisable(GL_BLEND);
    glDisable(GL_LINE_SMOOTH);
    glDisable(GL_POINT_SMOOTH);
    glLineWidth(1);
    glPointSize(1);
}

// Flat drawing in screen pixels over a 3-D scene, within the current viewport.
void overlay_begin()
{
    int v[4];
    glGetIntegerv(GL_VIEWPORT, v);
    glMatrixMode(GL_MODELVIEW);
    glPushMatrix();
    glLoadIdentity();
    glMatrixMode(GL_PROJECTION);
    glPushMatrix();
    glLoadIdentity();
    double bottom = screen_height - v[1], top = screen_height - (v[1] + v[3]);
    glOrtho(v[0], v[0] + v[2], bottom, top, screen_height / 2, -(screen_height / 2));
    glMatrixMode(GL_MODELVIEW);
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
}

void overlay_end()
{
    glMatrixMode(GL_PROJECTION);
    glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
    glPopMatrix();
    glEnable(GL_DEPTH_TEST);
    glDepthMask(GL_TRUE);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Clipping and clearing

void set_clip(const int rect[4])
{
    glEnable(GL_SCISSOR_TEST);
    glScissor(rect[0], screen_height - rect[3], rect[2] - rect[0], rect[3] - rect[1]);
}

void get_clip(int rect[4])
{
    int box[4];
    glGetIntegerv(GL_SCISSOR_BOX, box);
    rect[0] = box[0];
    rect[2] = box[0] + box[2];
    rect[3] = screen_height - box[1];
    rect[1] = rect[3] - box[3];
}

void push_clip(int x1, int y1, int x2, int y2)
{
    if (clip_stack_push(&draw2d.clips, x1, y1, x2, y2))
        set_clip(draw2d.clips.rect[draw2d.clips.depth - 1]);
}

void pop_clip()
{
    int depth = clip_stack_pop(&draw2d.clips);
    if (depth == 0) glDisable(GL_SCISSOR_TEST);
    else if (depth > 0) set_clip(draw2d.clips.rect[depth - 1]);
}

void clear_rect(int x, int y, int w, int h)
{
    glEnable(GL_SCISSOR_TEST);
    glScissor(x, y, w, h);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
}

// ---------------------------------------------------------------------------------------
// [SECTION] GL state

// The state a new window starts with: black clear colour, far depth, depth test with
// less-or-equal, smooth shading, colour material and seamless cube maps.
void reset_gl(int width, int height)
{
    glClearColor(0, 0, 0, 0);
    glClearDepth(1.0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glDepthFunc(GL_LEQUAL);
    glEnable(GL_DEPTH_TEST);
    glShadeModel(GL_SMOOTH);
    glEnable(GL_COLOR_MATERIAL);
    glEnable(GL_TEXTURE_CUBE_MAP_SEAMLESS);
    resize_view(width, height);
    glLoadIdentity();
}

double gl_version()
{
    const char *version = (const char *)glGetString(GL_VERSION);
    return version ? atof(version) : 0.0;
}
