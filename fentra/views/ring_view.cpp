// Fentra ring map: a pen walks the lattice round the whole ring, bending in the dipoles, and
// leaves the orbit line, a pair of boxes for every magnet with a focusing strength and the
// beam's point; the camera shifts and turns the map so that the beam's point stays put.
#include "fentra/views/ring_view.h"

#include "Morvane/gfx_opengl.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/state.h"
#include "fentra/views/views.h"

#include <SDL_opengl.h>

#include <cmath>
#include <cstdlib>

ring_camera ring_view_camera = {0, 0, 0};

static struct {
    ring_walk walk;   // reused from frame to frame so its storage is allocated once
    bool walk_ready;
    double *vertices;         // x, y of both ends of every segment, as the walk left them
    unsigned char *colours;   // r, g, b for every end
    unsigned capacity;        // segments the two arrays hold
} ring_view;

double ring_anchor_x(int W) { return W / 4 + 0.5; }
double ring_anchor_y(int H) { return H / 3 + 0.5; }

// ---------------------------------------------------------------------------------------
// [SECTION] The walk

namespace {

struct pen {
    double x, y;
    double heading;   // the pen moves by (-sin h, cos h) per unit; growing h bends like a dipole
};

void add_segment(growarray *segments, double x1, double y1, double x2, double y2,
                 unsigned colour)
{
    ring_segment s = {x1, y1, x2, y2, colour};
    growarray_append(segments, &s);
}

// A box of half-width w round the element's path from start (heading h0) to end (heading h1):
// the corners stand off the path across the direction of travel.
void add_box(growarray *segments, const pen &start, const pen &end, double w, unsigned colour)
{
    double ax = start.x + w * cos(start.heading), ay = start.y + w * sin(start.heading);
    double bx = end.x + w * cos(end.heading), by = end.y + w * sin(end.heading);
    double cx = end.x - w * cos(end.heading), cy = end.y - w * sin(end.heading);
    double dx = start.x - w * cos(start.heading), dy = start.y - w * sin(start.heading);
    add_segment(segments, ax, ay, bx, by, colour);
    add_segment(segments, bx, by, cx, cy, colour);
    add_segment(segments, cx, cy, dx, dy, colour);
    add_segment(segments, dx, dy, ax, ay, colour);
}

// The point a distance d along the element from the pen (q pixels per metre).
void point_along(const pen &p, double d, double radius, double q, double *x, double *y)
{
    if (radius == 0) {
        *x = p.x - d * q * sin(p.heading);
        *y = p.y + d * q * cos(p.heading);
    } else {
        double phi = d / radius;
        *x = p.x + radius * q * (cos(p.heading + phi) - cos(p.heading));
        *y = p.y + radius * q * (sin(p.heading + phi) - sin(p.heading));
    }
}

// An arc drawn one pixel per step. The step and the limit are single precision; a reverse
// bend (negative radius) fails the loop test at once and draws nothing, though the pen still
// moves to the arc's end and turns.
void walk_bend(growarray *segments, pen *p, double length, double radius, double q,
               unsigned colour)
{
    float step = (float)(1.0 / (radius * q));
    float limit = (float)(length / radius + step);
    double last_x = p->x, last_y = p->y;
    // One-pixel steps counted in single precision, as the map has always drawn its arcs.
    // NOLINTNEXTLINE(clang-analyzer-security.FloatLoopCounter)
    for (float phi = step; phi < limit; phi += step) {
        double x = p->x + radius * q * (cos(p->heading + phi) - cos(p->heading));
        double y = p->y + radius * q * (sin(p->heading + phi) - sin(p->heading));
        add_segment(segments, last_x, last_y, x, y, colour);
        last_x = x;
        last_y = y;
    }
    point_along(*p, length, radius, q, &p->x, &p->y);
    p->heading += length / radius;
}

} // namespace

void walk_ring(ring_walk *walk, ring_camera *camera, int W, int H, double ring_position,
               int superperiods, double superperiod_length, const ring_colours &colours)
{
    const int q = W / 100;                 // pixels per metre of ring
    const float inner = (float)(0.8 * q);  // half-width of the inner magnet box
    const double anchor_x = ring_anchor_x(W), anchor_y = ring_anchor_y(H);

    walk->segments.count = 0;
    walk->marker_found = false;
    double s = fmod(ring_position, superperiods * superperiod_length);
    pen p = {anchor_x - camera->ox, anchor_y - camera->oy, -camera->angle};
    walk->start_x = p.x;
    walk->start_y = p.y;

    for (int period = 0; period < superperiods; period++) {
        for (int e = 0; e < element_count; e++) {
            double length = element_length[e];
            double radius = element_bend_radius[e];
            double k = element_strength[e];
            if (s >= 0 && length > s) {
                // The beam is in this element: find its point, then move the camera so that
                // the point comes to the anchor and the heading turns a hundredth toward 0.
                point_along(p, s, radius, q, &walk->marker_x, &walk->marker_y);
                walk->marker_found = true;
                walk->marker_heading = p.heading;
                camera->ox += walk->marker_x - anchor_x;
                camera->oy += walk->marker_y - anchor_y;
                camera->angle += 0.01 * p.heading;
            }
            s -= length;

            pen start = p;
            if (radius == 0) {
                point_along(start, length, 0, q, &p.x, &p.y);
                add_segment(&walk->segments, start.x, start.y, p.x, p.y, colours.orbit);
            } else {
                walk_bend(&walk->segments, &p, length, radius, q, colours.orbit);
            }
            if (k != 0) {
                unsigned colour = k > 0 ? colours.focusing : colours.defocusing;
                float outer = (float)(fabs(k) * q + inner);
                add_box(&walk->segments, start, p, inner, colour);
                add_box(&walk->segments, start, p, outer, colour);
            }
        }
    }
    walk->end_x = p.x;
    walk->end_y = p.y;
    walk->end_heading = p.heading;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Drawing

// A plain one-pixel line, with line smoothing off for it and put back as it was.
static void plain_line(double x1, double y1, double x2, double y2, unsigned colour)
{
    GLboolean smooth = glIsEnabled(GL_LINE_SMOOTH);
    glDisable(GL_LINE_SMOOTH);
    draw_line(x1, y1, x2, y2, colour);
    if (smooth) glEnable(GL_LINE_SMOOTH);
}

// A small diamond: a five-pixel bar and two shorter bars above and below it.
static void draw_marker(int X, int Y, unsigned colour)
{
    plain_line(X - 2, Y, X + 2, Y, colour);
    for (int k = 0; k <= 1; k++) {
        plain_line(X - k, Y - 2 + k, X + k, Y - 2 + k, colour);
        plain_line(X - k, Y + 2 - k, X + k, Y + 2 - k, colour);
    }
}

// The segments as one list of lines from client arrays: the ends keep their double
// coordinates, so GL sees the same vertices as from one call per end.
static void draw_segments(const ring_segment *segments, unsigned count)
{
    if (count == 0) return;
    if (count > ring_view.capacity) {
        ring_view.capacity = count;
        ring_view.vertices = (double *)realloc(ring_view.vertices, sizeof(double) * 4 * count);
        ring_view.colours = (unsigned char *)realloc(ring_view.colours, 6 * (size_t)count);
    }
    double *v = ring_view.vertices;
    unsigned char *c = ring_view.colours;
    for (unsigned i = 0; i < count; i++, v += 4, c += 6) {
        const ring_segment &s = segments[i];
        v[0] = s.x1;
        v[1] = s.y1;
        v[2] = s.x2;
        v[3] = s.y2;
        c[0] = c[3] = (unsigned char)(s.colour >> 16);
        c[1] = c[4] = (unsigned char)(s.colour >> 8);
        c[2] = c[5] = (unsigned char)s.colour;
    }
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_COLOR_ARRAY);
    glVertexPointer(2, GL_DOUBLE, 0, ring_view.vertices);
    glColorPointer(3, GL_UNSIGNED_BYTE, 0, ring_view.colours);
    glDrawArrays(GL_LINES, 0, (GLsizei)(2 * count));
    glDisableClientState(GL_COLOR_ARRAY);
    glDisableClientState(GL_VERTEX_ARRAY);
    // Leave the current colour as setting it segment by segment would have left it.
    c -= 6;
    glColor3ub(c[0], c[1], c[2]);
}

void draw_ring_view(unsigned orbit, unsigned focusing, unsigned defocusing, unsigned marker,
                    double ring_position)
{
    if (!ring_view.walk_ready) {
        growarray_init(&ring_view.walk.segments, sizeof(ring_segment), 4096);
        ring_view.walk_ready = true;
    }
    ring_walk *walk = &ring_view.walk;
    walk_ring(walk, &ring_view_camera, screen_width, screen_height, ring_position,
              sim.superperiod_count, sim.superperiod_length,
              {orbit, focusing, defocusing, marker});

    draw_segments((const ring_segment *)walk->segments.data, walk->segments.count);
    if (walk->marker_found) draw_marker((int)walk->marker_x, (int)walk->marker_y, marker);
}
