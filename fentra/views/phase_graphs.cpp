// Fentra phase-space graphs: x against x' in the left third of the lower half, y against y'
// in the right third, the statistics of the largest coordinates between them, and the
// highlighted particle ringed in each graph.
#include "fentra/views/phase_graphs.h"

#include "Morvane/bitmapfonts.h"
#include "Morvane/gfx_opengl.h"
#include "fentra/views/beam_view.h"
#include "fentra/views/vertex_batch.h"
#include "fentra/views/views.h"

#include <SDL_opengl.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

phase_maxima phase_records = {0, 0, 0, 0};

// The dots go to GL as one batch, in the order the points are drawn.
static vertex_batch dots;

// ---------------------------------------------------------------------------------------
// [SECTION] Statistics

phase_maxima current_maxima(const double *x, const double *y, const double *xp,
                            const double *yp, int n)
{
    phase_maxima m = {0, 0, 0, 0};
    for (int i = 0; i < n; i++) {
        if (x[i] > m.x) m.x = x[i];
        if (xp[i] > m.xp) m.xp = xp[i];
        if (y[i] > m.y) m.y = y[i];
        if (yp[i] > m.yp) m.yp = yp[i];
    }
    return m;
}

void update_phase_records(const phase_maxima &current, bool r_held)
{
    if (r_held) phase_records = {0, 0, 0, 0};
    phase_records.x = fmax(phase_records.x, current.x);
    phase_records.xp = fmax(phase_records.xp, current.xp);
    phase_records.y = fmax(phase_records.y, current.y);
    phase_records.yp = fmax(phase_records.yp, current.yp);
}

void phase_statistics_text(char *out, int size, const phase_maxima &current,
                           const phase_maxima &record)
{
    snprintf(out, size,
             "Max |x| = %lg m (%lg)\nMax |x'| = %lg (%lg)\nMax |y| = %lg m (%lg)\n"
             "Max |y'| = %lg (%lg)",
             current.x, record.x, current.xp, record.xp, current.y, record.y, current.yp,
             record.yp);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Dot positions

graph_dot left_graph_dot(double x, double xp, double S, double A, int W, int H)
{
    graph_dot d;
    d.px = (float)(x * S + W / 6);
    d.py = (float)(3 * H / 4 - xp * A);
    d.drawn = d.px <= W / 3 && d.py >= H / 2;
    return d;
}

graph_dot right_graph_dot(double y, double yp, double S, double A, int W, int H)
{
    graph_dot d;
    d.px = (float)(5 * W / 6 + y * S);
    d.py = (float)(3 * H / 4 - yp * A);
    d.drawn = d.px >= 2 * W / 3 && d.py >= H / 2;
    return d;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Drawing

static void add_dot(double x, double y, unsigned colour) { batch_add(&dots, x, y, colour); }

// The highlight ring: 63 magenta points 5 pixels round the dot, the angle growing by 0.1 in
// single precision so the ring stops at 6.2 rad, just short of closing.
static void add_highlight_ring(float cx, float cy)
{
    float a = 0;
    for (int k = 0; k < 63; k++, a += 0.1f)
        add_dot(cx + (float)(5 * cos((double)a)), cy + (float)(5 * sin((double)a)), 0xFF00FF);
}

// A one-pixel axis with line smoothing off for it and put back as it was.
static void draw_axis(int x1, int y1, int x2, int y2)
{
    GLboolean smooth = glIsEnabled(GL_LINE_SMOOTH);
    glDisable(GL_LINE_SMOOTH);
    draw_line(x1, y1, x2, y2, 0x808080);
    if (smooth) glEnable(GL_LINE_SMOOTH);
}

void draw_phase_graphs(const double *x, const double *y, const double *xp, const double *yp,
                       const double *p, int n, bool highlight, double S, double A,
                       double spread)
{
    const int W = screen_width, H = screen_height;
    draw_axis(0, 3 * H / 4, W / 3, 3 * H / 4);
    draw_axis(W / 6, H / 2, W / 6, H - 1);
    draw_axis(2 * W / 3, 3 * H / 4, W - 1, 3 * H / 4);
    draw_axis(5 * W / 6, H / 2, 5 * W / 6, H - 1);

    phase_maxima current = current_maxima(x, y, xp, yp, n);
    update_phase_records(current, key_held('R'));
    char text[300];
    phase_statistics_text(text, sizeof text, current, phase_records);
    BitmapFont *previous = current_font;
    selectfont("ncgismall");
    printtext((float)(0.45 * W), (float)(3 * H / 4), std::string_view(text), 0xFFFFFF);
    setfont(previous);

    batch_reserve(&dots, 2 * n + 2 * 63);
    dots.count = 0;
    for (int i = n - 1; i >= 0; i--) {
        unsigned colour = spread > 0 ? momentum_colour(p[i], spread) : 0xFFFFFF;
        graph_dot left = left_graph_dot(x[i], xp[i], S, A, W, H);
        if (left.drawn) {
            add_dot(left.px, left.py, colour);
            if (highlight && i == 0) add_highlight_ring(left.px, left.py);
        }
        graph_dot right = right_graph_dot(y[i], yp[i], S, A, W, H);
        if (right.drawn) {
            add_dot(right.px, right.py, colour);
            if (highlight && i == 0) add_highlight_ring(right.px, right.py);
        }
    }
    // Everything here is flat at depth 0, where the depth test always passes: switching it off
    // changes no pixel.
    batch_drop_covered_points(&dots, W, H);
    glDisable(GL_DEPTH_TEST);
    batch_draw(dots, GL_POINTS);
    glEnable(GL_DEPTH_TEST);
}
