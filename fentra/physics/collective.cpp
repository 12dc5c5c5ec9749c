// Fentra collective effects: space charge in the uniform-beam approximation, the luminosity
// figure with its peak, text, colour and bar, the beam-loss figure and the scraper.
#include "fentra/physics/collective.h"

#include "fentra/physics/state.h"

#include <cmath>
#include <cstdio>

// ---- Space charge

// angle += position x ds x (1 / extent) x c / p over n particles; the main loop runs over a
// multiple of four particles so that it compiles to vector code.
static void kick_plane(int n, double *__restrict angle, const double *__restrict position,
                       const double *__restrict momentum, double ds, double inverse_extent,
                       double c)
{
    int n4 = n & ~3;
    for (int i = 0; i < n4; i++) angle[i] += position[i] * ds * inverse_extent * c / momentum[i];
    for (int i = n4; i < n; i++) angle[i] += position[i] * ds * inverse_extent * c / momentum[i];
}

void space_charge_kick()
{
    int n = sim.particle_count;
    if (n <= 0) return;
    double a = 0, b = 0;
    for (int i = 0; i < n; i++) {
        double ax = fabs(beam_x[i]), ay = fabs(beam_y[i]);
        if (ax > a) a = ax;
        if (ay > b) b = ay;
    }
    // The field inside a uniform ellipse of semi-axes a, b grows as x / (a (a + b)) and
    // y / (b (a + b)); 0.0005 is the beam's fixed strength. A beam with no extent in one plane
    // (every particle at 0 there) divides by zero: that plane's angles become NaN, as the
    // program has always done; the particles then survive the aperture test (NaN compares
    // false) until the next beam replaces them.
    const double c = 0.0005 / (a + b);
    kick_plane(n, beam_xp, beam_x, beam_momentum, sim.step_length, 1 / a, c);
    kick_plane(n, beam_yp, beam_y, beam_momentum, sim.step_length, 1 / b, c);
}

// ---- Luminosity

double luminosity(int n, double sum_x2, double sum_y2)
{
    double mean_x2 = n > 0 ? sum_x2 / n : 0;
    double mean_y2 = n > 0 ? sum_y2 / n : 0;
    double my = mean_y2 > 1e-16 ? mean_y2 : 1e-16;
    double mx = mean_x2 > 1e-16 ? mean_x2 : 1e-16;
    // 10000 particles in a beam of 1 m^2 rms area give 3e27.
    return (double)n * 0.0001 * (3e27 / sqrt(my * mx));
}

unsigned luminosity_colour(int exponent)
{
    if (exponent < 31) return 0x808000;
    if (exponent == 31) return 0xC0C000;
    if (exponent == 32) return 0xFFF000;
    if (exponent == 33) return 0xFFFF80;
    return 0xFFFFFF;
}

luminosity_reading read_luminosity(double L)
{
    luminosity_reading r;
    // log10 of zero (no particles) or of a non-finite value has no integer exponent.
    r.exponent = L > 0 && std::isfinite(L) ? (int)floor(log10(L)) : 0;
    // The exponent is fixed before the mantissa is rounded for display, so 9.99e32 reads 10.0.
    r.mantissa = L * pow(10.0, -r.exponent);
    r.colour = luminosity_colour(r.exponent);
    return r;
}

void update_peak_luminosity(double L)
{
    if (L > sim.peak_luminosity) sim.peak_luminosity = L;
}

void luminosity_text(char *out, int size, double L)
{
    luminosity_reading r = read_luminosity(L);
    snprintf(out, size, "Luminosity: %.1lf x 10^{%d}", r.mantissa, r.exponent);
}

void peak_text(char *out, int size, double peak)
{
    luminosity_reading r = read_luminosity(peak);
    snprintf(out, size, "Peak: %.1lf x 10^{%d}", r.mantissa, r.exponent);
}

// ---- Beam loss

float loss_percentage(int particle_count)
{
    // Every beam starts with 10000 particles.
    return (1 - particle_count * 0.0001f) * 100;
}

void beam_loss_text(char *out, int size, int particle_count)
{
    snprintf(out, size, "BEAM LOSS: %.2f%%", loss_percentage(particle_count));
}

luminosity_bar luminosity_bar_geometry(int W, int H, double L, double peak)
{
    // -2.666666666666667e-34 is -1 / 3.75e33: the bar fills the height at L = 3.75e33.
    luminosity_bar b;
    b.left = 0.94 * W;
    b.right = 0.99 * W;
    b.bottom = H;
    b.top = H + H * -2.666666666666667e-34 * L;
    b.peak_right = 0.99 * W - 1;
    b.peak_top = H + 1 + H * -2.666666666666667e-34 * peak;
    return b;
}

// ---- Scraper

void move_scraper(bool left_held, bool right_held)
{
    if (left_held) {
        sim.scraper_x -= 0.0005;
        if (sim.scraper_x < 0) sim.scraper_x = 0;
    }
    if (right_held) {
        sim.scraper_x += 0.0005;
        if (sim.scraper_x > 0.07) sim.scraper_x = 0.07;
    }
}

scraper_chord scraper_chord_geometry(int W, double scraper_x, double pixels_per_metre)
{
    scraper_chord c;
    c.x = (int)(W / 2 + scraper_x * pixels_per_metre);
    // 0.0049 is the square of the 0.07 m pipe radius; at the pipe itself the rounded square of
    // the edge can exceed it, which leaves a chord of zero length.
    double r2 = 0.0049 - scraper_x * scraper_x;
    c.half_height = (int)(sqrt(r2 > 0 ? r2 : 0) * pixels_per_metre);
    return c;
}
