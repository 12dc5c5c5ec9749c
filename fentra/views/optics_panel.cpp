// Fentra optics panel: its layout beside the beam view, the text of the lattice and the beam,
// the beta plot over the element bar, and the tune diagram with resonance lines up to fourth
// order (the ones a superperiod structure can drive marked apart) and the footprint.
#include "fentra/views/optics_panel.h"

#include "Morvane/bitmapfonts.h"
#include "Morvane/gfx_opengl.h"
#include "fentra/physics/optics_figures.h"
#include "fentra/views/vertex_batch.h"

#include <GL/gl.h>

#include <algorithm>
#include <cstdarg>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>

// ---------------------------------------------------------------------------------------
// [SECTION] Layout

static const int text_lines = 17;

optics_panel_layout layout_optics_panel(int W, int H, bool graphs, int line_height)
{
    optics_panel_layout l;
    l.line_height = line_height;
    int right = (int)(0.94 * W) - 6, width = std::min(310, (int)(0.34 * W));
    int top = 130, bottom = graphs ? H / 2 - 4 : H - 4;
    l.panel = {right - width, top, width, std::max(bottom - top, 0)};
    const int pad = 4, inner = width - 2 * pad;
    l.text = {l.panel.x + pad, top + pad, inner, text_lines * line_height};
    int rest = l.panel.h - l.text.h - 3 * pad;
    int beta_h = graphs ? 0 : std::clamp(rest / 3, 0, 110);
    l.beta_plot = {l.text.x, l.text.y + l.text.h + pad, inner, beta_h};
    int diagram_top = l.beta_plot.y + beta_h + (beta_h ? pad : 0);
    int side = std::max(std::min(inner, top + l.panel.h - pad - diagram_top), 0);
    l.tune_diagram = {l.text.x, diagram_top, side, side};
    return l;
}

view_geometry view_beside_panel(view_geometry v, const optics_panel_layout &layout)
{
    // The pipe's ring reaches a little past 0.07 m.
    const double reach = 0.072 * v.pixels_per_metre, room = layout.panel.x - 4;
    if (v.centre_x + reach <= room) return v;
    double r = std::min(reach, room / 2);
    v.pixels_per_metre *= r / reach;
    v.centre_x = (int)(room - r);
    return v;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Tune diagram geometry

tune_window tune_window_for(double qx, double qy, const float *fx, const float *fy, int n)
{
    double lo[2] = {qx, qy}, hi[2] = {qx, qy};
    const double centre[2] = {qx, qy};
    for (int i = 0; i < n; i++) {
        double q[2] = {fx[i], fy[i]};
        for (int p = 0; p < 2; p++) {
            double v = std::clamp(q[p], centre[p] - 1.5, centre[p] + 1.5);
            lo[p] = std::min(lo[p], v), hi[p] = std::max(hi[p], v);
        }
    }
    for (int p = 0; p < 2; p++) {
        double span = std::max((hi[p] - lo[p]) * 1.1, 0.1), mid = (lo[p] + hi[p]) / 2;
        lo[p] = mid - span / 2, hi[p] = mid + span / 2;
    }
    return {lo[0], hi[0], lo[1], hi[1]};
}

bool resonance_segment(int m, int n, int p, const tune_window &w, double *ax, double *ay,
                       double *bx, double *by)
{
    // Crossings with the window's four edges; the two extreme ones bound the piece inside.
    double pts[4][2];
    int k = 0;
    auto add = [&](double x, double y) {
        const double e = 1e-12;
        if (x >= w.qx0 - e && x <= w.qx1 + e && y >= w.qy0 - e && y <= w.qy1 + e && k < 4)
            pts[k][0] = x, pts[k][1] = y, k++;
    };
    if (n != 0) {
        add(w.qx0, (p - m * w.qx0) / n);
        add(w.qx1, (p - m * w.qx1) / n);
    }
    if (m != 0) {
        add((p - n * w.qy0) / m, w.qy0);
        add((p - n * w.qy1) / m, w.qy1);
    }
    if (k < 2) return false;
    int a = 0, b = 0;
    for (int i = 1; i < k; i++) {
        auto key = [&](int j) { return pts[j][0] + pts[j][1] * 1e-3; };
        if (key(i) < key(a)) a = i;
        if (key(i) > key(b)) b = i;
    }
    *ax = pts[a][0], *ay = pts[a][1], *bx = pts[b][0], *by = pts[b][1];
    return a != b;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Drawing

// The panel goes to GL in four batches (filled boxes, lines, the footprint's points, the
// working point's cross over them) and one text cycle for all its text: a few calls a frame
// rather than one for every line, box and label.
static struct {
    vertex_batch boxes, lines, points, cross;
} panel_gl;

static void add_box(double x0, double y0, double x1, double y1, unsigned colour)
{
    batch_add(&panel_gl.boxes, x0, y0, colour);
    batch_add(&panel_gl.boxes, x1, y0, colour);
    batch_add(&panel_gl.boxes, x1, y1, colour);
    batch_add(&panel_gl.boxes, x0, y1, colour);
}

static void add_line(vertex_batch *b, double x0, double y0, double x1, double y1, unsigned colour)
{
    batch_add(b, x0, y0, colour);
    batch_add(b, x1, y1, colour);
}

// A one-pixel frame just inside the rectangle.
static void add_outline(const panel_rect &r, unsigned colour)
{
    const double x0 = r.x + 0.5, y0 = r.y + 0.5, x1 = r.x + r.w - 0.5, y1 = r.y + r.h - 0.5;
    add_line(&panel_gl.lines, x0, y0, x1, y0, colour);
    add_line(&panel_gl.lines, x1, y0, x1, y1, colour);
    add_line(&panel_gl.lines, x1, y1, x0, y1, colour);
    add_line(&panel_gl.lines, x0, y1, x0, y0, colour);
}

// Text lines down the panel's text area, inside the panel's text cycle.
struct text_pen {
    int x, y, h;
};
static void line(text_pen *t, unsigned colour, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
static void line(text_pen *t, unsigned colour, const char *format, ...)
{
    char text[128];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);   // NOLINT(clang-analyzer-valist.Uninitialized): started above
    va_end(args);
    drawtext((float)t->x, (float)t->y, 0, 0, std::string_view(text), (int)colour);
    t->y += t->h;
}

static void lattice_text(text_pen *t, const optics_model &m)
{
    const unsigned head = 0xFFFF00, body = 0xFFFFFF;
    if (!m.present) {
        line(t, head, "No lattice: no periodic solution");
        return;
    }
    const lattice_optics &o = m.optics;
    if (m.lattice.cell) line(t, head, "FODO cell (figures a cell)");
    else line(t, head, "Ring of %d superperiods, %.2f m each", m.lattice.periods, m.lattice.length);
    line(t, body, "x %s, y %s (trace %.3f, %.3f)", o.plane[0].stable ? "stable" : "unstable",
         o.plane[1].stable ? "stable" : "unstable", o.plane[0].trace, o.plane[1].trace);
    if (!o.periodic) {
        line(t, 0xFF4040, "No periodic solution");
        return;
    }
    const double deg = 180 / std::numbers::pi;
    if (m.lattice.cell)
        line(t, body, "Phase advance %.2f / %.2f deg a cell", o.plane[0].phase * deg, o.plane[1].phase * deg);
    line(t, body, "Qx %.4f   Qy %.4f", o.plane[0].tune, o.plane[1].tune);
    line(t, body, "Chromaticity x %.2f   y %.2f", o.chromaticity[0], o.chromaticity[1]);
    const beam_now &b = panel_beam;
    line(t, body, "At s = %.2f m: bx %.2f m  ax %.3f", b.position, b.lattice[0].beta, b.lattice[0].alpha);
    line(t, body, "                 by %.2f m  ay %.3f", b.lattice[1].beta, b.lattice[1].alpha);
}

static void beam_text(text_pen *t, const optics_model &m)
{
    const beam_now &b = panel_beam;
    const plane_moments &x = b.moments.plane[0], &y = b.moments.plane[1];
    const unsigned head = 0xFFFF00, body = 0xFFFFFF;
    line(t, head, "Beam now: %d particles", b.moments.count);
    line(t, body, "Centroid x %.2f mm  y %.2f mm", x.centroid * 1e3, y.centroid * 1e3);
    line(t, body, "rms size x %.2f mm  y %.2f mm", x.sigma * 1e3, y.sigma * 1e3);
    line(t, body, "Emittance x %.3f  y %.3f mm mrad", x.emittance * 1e6, y.emittance * 1e6);
    // An emittance that shows as 0.000 (a parallel beam is a line in phase space) has no
    // ellipse: its beta, alpha and mismatch would be round-off.
    const bool ellipse = x.emittance >= 5e-10 && y.emittance >= 5e-10;
    if (ellipse)
        line(t, body, "Beam bx %.2f m ax %.2f  by %.2f m ay %.2f", x.beta, x.alpha, y.beta, y.alpha);
    else
        line(t, body, "Beam b, a: none (zero emittance)");
    if (m.optics.periodic && ellipse)
        line(t, body, "Mismatch x %.3f  y %.3f (1 = matched)", b.mismatch[0], b.mismatch[1]);
    const tune_footprint &f = footprint;
    if (m.optics.periodic && f.shown > 0)
        line(t, 0x40FF40, "Footprint %d: mean Qx %.4f Qy %.4f", f.shown, f.mean_q[0], f.mean_q[1]);
    else if (m.optics.periodic)
        line(t, 0x40FF40, "Footprint: measuring...");
    if (m.optics.periodic && m.lattice.periods > 1) {
        line(t, 0xFF4040, "Red: structure resonances (p = %dk), the", m.lattice.periods);
        line(t, 0xFF4040, "only ones these fields can drive");
    }
}

static bool shows_beta_plot(const panel_rect &r, const optics_model &m) { return r.h >= 20 && m.optics.periodic; }

static void beta_plot(const panel_rect &r, const optics_model &m)
{
    add_outline(r, 0x404040);
    const int bar = 14;
    const double plot_h = r.h - bar - 2, L = m.lattice.length;
    double top = 0;
    for (int p = 0; p < 2; p++) top = std::max(top, m.optics.plane[p].beta_max);
    const unsigned colour[2] = {0xFF6060, 0x60A0FF};
    auto x_at = [&](int k) { return r.x + (r.w - 1) * k / (double)(beta_sample_count - 1); };
    auto y_at = [&](int p, int k) { return r.y + 1 + plot_h * (1 - m.beta[p][k] / top); };
    for (int p = 0; p < 2; p++)
        for (int k = 1; k < beta_sample_count; k++)
            add_line(&panel_gl.lines, x_at(k - 1), y_at(p, k - 1), x_at(k), y_at(p, k), colour[p]);
    // The element bar: focusing quadrupoles above the axis, defocusing below, bends as boxes.
    const double axis = r.y + r.h - bar / 2 - 1;
    add_line(&panel_gl.lines, r.x, axis, r.x + r.w, axis, 0x808080);
    double s = 0;
    for (int i = 0; i < m.lattice.count; i++) {
        const optics_piece &e = m.lattice.piece[i];
        double x0 = r.x + r.w * s / L, x1 = r.x + r.w * (s + e.length) / L;
        s += e.length;
        if (x1 - x0 < 1) x1 = x0 + 1;
        if (e.bend != 0) add_box(x0, axis - 3, x1, axis + 3, 0x800080);
        else if (e.k > 0) add_box(x0, axis - bar / 2, x1, axis, 0x800000);
        else if (e.k < 0) add_box(x0, axis, x1, axis + bar / 2, 0x008080);
    }
    double mx = r.x + r.w * panel_beam.position / L;
    add_line(&panel_gl.lines, mx, r.y, mx, r.y + r.h, 0xFFFFFF);
}

static void beta_plot_caption(const panel_rect &r, const optics_model &m)
{
    double top = std::max(m.optics.plane[0].beta_max, m.optics.plane[1].beta_max);
    char text[64];
    snprintf(text, sizeof text, "bx, by over one %s (max %.1f m)", m.lattice.cell ? "cell" : "superperiod", top);
    drawtext((float)(r.x + 2), (float)(r.y + 1), 0, 0, std::string_view(text), 0xC0C0C0);
}

static unsigned order_colour(int order)
{
    static const unsigned c[5] = {0, 0xE0E0E0, 0xA0A0E0, 0x7070A0, 0x484868};
    return c[order];
}

int resonance_lines(const tune_window &w, int periods, resonance_line *out, int capacity)
{
    int n = 0;
    for (int pass = 0; pass < 2; pass++)
        for (int order = 4; order >= 1; order--)
            for (int a = -order; a <= order; a++) {
                int b = order - std::abs(a);
                for (int bs : {b, -b}) {
                    if (a < 0 || (a == 0 && bs <= 0) || (b == 0 && bs < 0)) continue;
                    double c[4] = {a * w.qx0 + bs * w.qy0, a * w.qx1 + bs * w.qy0,
                                   a * w.qx0 + bs * w.qy1, a * w.qx1 + bs * w.qy1};
                    int p0 = (int)ceil(*std::min_element(c, c + 4)), p1 = (int)floor(*std::max_element(c, c + 4));
                    for (int p = p0; p <= p1 && n < capacity; p++) {
                        bool structure = periods > 1 && p % periods == 0;
                        if (structure != (pass == 1)) continue;
                        resonance_line &l = out[n];
                        if (!resonance_segment(a, bs, p, w, &l.ax, &l.ay, &l.bx, &l.by)) continue;
                        l.order = order;
                        l.colour = structure ? 0xFF4040 : order_colour(order);
                        n++;
                    }
                }
            }
    return n;
}

static bool shows_tune_diagram(const panel_rect &r, const optics_model &m) { return r.h >= 40 && m.optics.periodic; }

// The tune diagram's window and its resonance lines, the same for its lines and its labels.
static struct {
    tune_window window;
    resonance_line lines[max_resonance_lines];
    int count;
} diagram;

static double diagram_x(const panel_rect &r, double q)
{
    const tune_window &w = diagram.window;
    return r.x + (r.w - 1) * (q - w.qx0) / (w.qx1 - w.qx0);
}

static double diagram_y(const panel_rect &r, double q)
{
    const tune_window &w = diagram.window;
    return r.y + (r.h - 1) * (1 - (q - w.qy0) / (w.qy1 - w.qy0));
}

// Higher orders first, so the lower ones and the structure resonances lie on top; then the
// footprint, then the working point over it.
static void tune_diagram(const panel_rect &r, const optics_model &m)
{
    add_outline(r, 0x404040);
    const tune_footprint &f = footprint;
    const double qx = m.optics.plane[0].tune, qy = m.optics.plane[1].tune;
    const tune_window w = diagram.window = tune_window_for(qx, qy, f.qx, f.qy, f.shown);
    diagram.count = resonance_lines(w, m.lattice.periods, diagram.lines, max_resonance_lines);
    for (int i = 0; i < diagram.count; i++) {
        const resonance_line &l = diagram.lines[i];
        add_line(&panel_gl.lines, diagram_x(r, l.ax), diagram_y(r, l.ay), diagram_x(r, l.bx),
                 diagram_y(r, l.by), l.colour);
    }
    // Most particles share their pixel with others: only the points that show are drawn.
    // Tunes past the window (beyond 1.5 from the working point) are left out.
    batch_reserve(&panel_gl.points, f.shown);
    for (int i = 0; i < f.shown; i++)
        if (f.qx[i] >= w.qx0 && f.qx[i] <= w.qx1 && f.qy[i] >= w.qy0 && f.qy[i] <= w.qy1)
            batch_add(&panel_gl.points, diagram_x(r, f.qx[i]), diagram_y(r, f.qy[i]), 0x40FF40);
    batch_drop_covered_points(&panel_gl.points, screen_width, screen_height);
    const double x = diagram_x(r, qx), y = diagram_y(r, qy);
    add_line(&panel_gl.cross, x - 5, y, x + 6, y, 0xFFFF00);
    add_line(&panel_gl.cross, x, y - 5, x, y + 6, 0xFFFF00);
}

// The lines' order labels (only while the window is narrow enough for them to be read) and
// the window's extent.
static void tune_diagram_text(const panel_rect &r)
{
    const tune_window &w = diagram.window;
    if (w.qx1 - w.qx0 <= 1.2 && w.qy1 - w.qy0 <= 1.2)
        for (int i = 0; i < diagram.count; i++) {
            const resonance_line &l = diagram.lines[i];
            char label[2] = {(char)('0' + l.order), 0};
            drawtext((float)std::min(diagram_x(r, l.bx) + 1, r.x + r.w - 8.0),
                     (float)std::max(diagram_y(r, l.by) - 1, (double)r.y + 1), 1e9f, 1e9f,
                     std::string_view(label, 1), (int)l.colour);
        }
    char text[80];
    snprintf(text, sizeof text, "Qx %.3f .. %.3f", w.qx0, w.qx1);
    drawtext((float)(r.x + 2), (float)(r.y + r.h - 1 - 2 * current_line_height), 0, 0, std::string_view(text), 0xC0C0C0);
    snprintf(text, sizeof text, "Qy %.3f .. %.3f  order 1-4", w.qy0, w.qy1);
    drawtext((float)(r.x + 2), (float)(r.y + r.h - 1 - current_line_height), 0, 0, std::string_view(text), 0xC0C0C0);
}

void draw_optics_panel(const optics_panel_layout &layout)
{
    const optics_model &m = current_optics_model();
    const bool beta = shows_beta_plot(layout.beta_plot, m), tunes = shows_tune_diagram(layout.tune_diagram, m);
    panel_gl.boxes.count = panel_gl.lines.count = panel_gl.points.count = panel_gl.cross.count = 0;
    const panel_rect &p = layout.panel;
    add_box(p.x, p.y, p.x + p.w, p.y + p.h, 0x080810);
    add_outline(p, 0x606060);
    if (beta) beta_plot(layout.beta_plot, m);
    if (tunes) tune_diagram(layout.tune_diagram, m);
    glDisable(GL_DEPTH_TEST);
    batch_draw(panel_gl.boxes, GL_QUADS);
    batch_draw(panel_gl.lines, GL_LINES);
    batch_draw(panel_gl.points, GL_POINTS);
    batch_draw(panel_gl.cross, GL_LINES);
    selectfont("ncgismall");
    begintext();
    text_pen t = {layout.text.x, layout.text.y, layout.line_height};
    lattice_text(&t, m);
    t.y += layout.line_height / 2;
    beam_text(&t, m);
    if (beta) beta_plot_caption(layout.beta_plot, m);
    if (tunes) tune_diagram_text(layout.tune_diagram);
    endtext();
    selectdefaultfont();
    glEnable(GL_DEPTH_TEST);
}
