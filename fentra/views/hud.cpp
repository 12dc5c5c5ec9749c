// Fentra heads-up display: magnet pole pictures, the KORA lines, the magnet strengths, the
// luminosity block and bar, beam loss, the scraper line, the touch "Reset" button and the
// help hint, each at its fixed place, font and colour.
#include "fentra/views/hud.h"

#include "Morvane/bitmapfonts.h"
#include "Morvane/gfx_opengl.h"
#include "fentra/physics/collective.h"
#include "fentra/physics/lattice.h"
#include "fentra/views/views.h"

#include <GL/gl.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

using namespace std::string_view_literals;

static void set_rgb(unsigned colour)
{
    glColor3ub((GLubyte)(colour >> 16), (GLubyte)(colour >> 8), (GLubyte)colour);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Magnet pole pictures

bool pole_is_north(int k, int n, double s)
{
    bool first = (n - 1 - k) % 2 == 0;
    return first ? s < 0 : s > 0;
}

// A ring sector between two radii covering two thirds of the pole's sector, centred on c.
static void pole_strip(double cx, double cy, double c, double sector, double r1, double r2)
{
    glBegin(GL_QUAD_STRIP);
    for (int i = -10; i <= 10; i++) {
        double a = c + i * sector / 30, ca = cos(a), sa = sin(a);
        glVertex2d(cx + r1 * ca, cy + r1 * sa);
        glVertex2d(cx + r2 * ca, cy + r2 * sa);
    }
    glEnd();
}

void draw_magnet_poles(const view_geometry &v, int n, double s)
{
    selectfont("captionfont");
    const float f = (float)(0.07 * v.pixels_per_metre);   // the pipe radius in pixels
    const double sector = 2 * M_PI / n;
    const int h = current_line_height;
    for (int k = n - 1; k >= 0; k--) {
        double c = (k + 0.5) * sector;
        bool north = pole_is_north(k, n, s);
        if (north) glColor3f(1.0f, 0.2f, 0.2f);
        else glColor3f(0.2f, 0.6f, 1.0f);
        pole_strip(v.centre_x, v.centre_y, c, sector, 1.03 * f, 1.06 * f);
        glColor3f(0.2f, 0.2f, 0.2f);
        pole_strip(v.centre_x, v.centre_y, c, sector, 1.06 * f, 3 * f);
        printtext((float)(v.centre_x + 1.1 * 1.03 * f * cos(c) - h / 2),
                  (float)(v.centre_y + 1.1 * 1.03 * f * sin(c) - h / 2), north ? "N"sv : "S"sv,
                  0xFFFFFF);
    }
}

void draw_pole_pictures(const view_geometry &v, const magnet_settings &m)
{
    if (m.steering != 0) draw_magnet_poles(v, 2, m.steering);
    if (m.quad_strength != 0) draw_magnet_poles(v, 4, m.quad_strength);
    if (m.sextupole != 0) draw_magnet_poles(v, 6, m.sextupole);
    if (m.octupole != 0) draw_magnet_poles(v, 8, m.octupole);
}

// ---------------------------------------------------------------------------------------
// [SECTION] KORA lines and scraper

kora_lines kora_line_texts()
{
    kora_lines t;
    const double circumference = sim.superperiod_count * sim.superperiod_length;
    int i = sim.component_index;
    snprintf(t.component, sizeof t.component, "Component #%d %s", i, i >= 0 ? element_name[i] : "");
    snprintf(t.speed, sizeof t.speed, "Simulation speed %.2f m/s", sim.simulation_speed);
    snprintf(t.distance, sizeof t.distance, "Distance around ring %.2f m",
             fmod(sim.ring_position, circumference));
    // The superperiod number is taken modulo 10 before it becomes an int, so a long run
    // cannot overflow it.
    const int n = sim.superperiod_count;
    int superperiod = (int)fmod(floor(sim.ring_position / sim.superperiod_length), (double)n) + 1;
    snprintf(t.superperiod, sizeof t.superperiod, "Superperiod %d / %d", superperiod, n);
    return t;
}

void draw_kora_lines()
{
    const int x = screen_width / 4;
    kora_lines t = kora_line_texts();
    selectfont("ncgismall");
    printtext(x, 20, std::string_view(t.component), 0xFFFFFF);
    if (lattice_ring_name[0]) printtext(x, 30, std::string_view(lattice_ring_name), 0xFFFFFF);
    printtext(x, 40, std::string_view(t.speed), 0xFFFFFF);
    printtext(x, 50, std::string_view(t.distance), 0xFFFFFF);
    printtext(x, 60, std::string_view(t.superperiod), 0xFFFFFF);
}

void draw_scraper(const view_geometry &v)
{
    scraper_chord c = scraper_chord_geometry(screen_width, sim.scraper_x, v.pixels_per_metre);
    draw_line(c.x, v.centre_y - c.half_height, c.x, v.centre_y + c.half_height, 0x800000);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Text overlay

static unsigned strength_colour(double value) { return value != 0 ? 0x00FF00 : 0x008000; }

static void magnet_line(int x, int y, const char *format, double value)
{
    char text[64];
    snprintf(text, sizeof text, format, value);
    printtext(x, y, std::string_view(text), strength_colour(value));
}

void draw_luminosity_bar(int W, int H, double L, double peak, unsigned colour)
{
    luminosity_bar b = luminosity_bar_geometry(W, H, L, peak);
    glBegin(GL_QUADS);
    set_rgb(colour);
    glVertex2d(b.left, b.bottom);
    glVertex2d(b.right, b.bottom);
    glVertex2d(b.right, b.top);
    glVertex2d(b.left, b.top);
    glEnd();
    glBegin(GL_LINE_LOOP);
    glColor3ub(0, 0, 255);
    glVertex2d(b.left, b.bottom);
    glVertex2d(b.peak_right, b.bottom);
    glVertex2d(b.peak_right, b.peak_top);
    glVertex2d(b.left, b.peak_top);
    glEnd();
}

bool touch_reset_hit(int x, int y, float reset_width, int line_height)
{
    // The region lies at the left edge although the word is drawn at the screen's centre.
    return x < reset_width + line_height && (unsigned)y >= (unsigned)(50 - line_height) &&
           (unsigned)y < (unsigned)(50 + 2 * line_height);
}

static void touch_reset_button(int line_height)
{
    unsigned colour = sim.particle_count == 0 ? 0xFFFFFF : 0x800000;
    if (touch_reset_hit(mouse_x, mouse_y, textwidth("Reset"sv), line_height)) {
        // A touch screen moves the pointer only when touched: moving it away ends the press.
        set_cursor_position(screen_width / 2, screen_height / 2);
        sim.particle_count = 0;
        colour = 0xFFFFFF;
    }
    printtext(screen_width / 2, 50, "Reset"sv, colour);
}

std::string_view luminosity_line_text(char *text, size_t size, void (*format)(char *, int, double), double value)
{
    format(text, 100, value);
    return std::string_view(text, compiletext(text, strlen(text), size, -1));
}

static void luminosity_line(float x, float y, void (*format)(char *, int, double), double value,
                            unsigned colour)
{
    char text[200];
    printtext(x, y, luminosity_line_text(text, sizeof text, format, value), colour);
}

int sparks_for_luminosity(double L)
{
    // Three sparks for every 1e33; a beam squeezed to a point (up to 3e43) would overflow the
    // count and bury the screen, so at most 1000 triplets come in one frame.
    double n = L * 1e-33;
    if (!(n > 0)) return 0;   // no particles, or a beam whose angles went NaN
    return n < 1000 ? (int)n : 1000;
}

double draw_text_overlay(const track_sums &sums)
{
    const int W = screen_width, H = screen_height;
    char text[100];
    if (sim.fodo_cell) printtext(W / 2, 0, "FODO cell"sv, 0x00FFFF);
    if (sim.space_charge) printtext(W / 2, 0, "Space-Charge"sv, 0x00FFFF);
    if (sim.kora_lattice && sim.component_index >= 0) {
        snprintf(text, sizeof text, "Bend Radius: %.2f", element_bend_radius[sim.component_index]);
        printtext(W / 4, 0, std::string_view(text), sim.bend_active ? 0x00FF00 : 0x008000);
    }
    magnet_line(3 * W / 4, 0, "Quadrupole: %.2f", magnets.quad_strength);
    magnet_line(3 * W / 4, 10, "Sextupole: %.2f", magnets.sextupole);
    magnet_line(3 * W / 4, 20, "Octupole: %.2f", magnets.octupole);
    magnet_line(3 * W / 4, 35, "Solenoid: %.2f", magnets.solenoid);

    double L = luminosity(sim.particle_count, sums.sx, sums.sy);
    update_peak_luminosity(L);
    luminosity_reading reading = read_luminosity(L);
    draw_title_overlay();

    selectfont(":scale=2");
    const int h = current_line_height;
    luminosity_line(3 * W / 4, 50, luminosity_text, L, reading.colour);
    luminosity_line(3 * W / 4, 1.5f * h + 50, peak_text, sim.peak_luminosity, 0x0000FF);
    if (sim.particle_count != particle_capacity) {
        beam_loss_text(text, sizeof text, sim.particle_count);
        printtext(3 * W / 4, 3 * h + 50, std::string_view(text), 0xFF0000);
    }
    if (sim.touch_mode) touch_reset_button(h);
    selectdefaultfont();

    draw_luminosity_bar(W, H, L, sim.peak_luminosity, reading.colour);
    spawn_sparks(&sim.spark_list, sparks_for_luminosity(L));
    printtext(0, H - current_line_height, "Press F1 for help"sv, 0x808080);
    return L;
}
