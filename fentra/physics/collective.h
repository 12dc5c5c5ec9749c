// Fentra collective effects and figures of merit: the space-charge kick, the luminosity with
// its peak, colour and bar, the beam loss, and the scraper's movement and chord.
#pragma once

// Kicks every live particle outwards by the linear field inside a uniformly filled elliptical
// beam whose semi-axes are the largest |x| and |y|, over sim.step_length.
void space_charge_kick();

// N x 3e23 / (rms x . rms y) from the sums of x^2 and y^2 over n particles (0 for none);
// the mean squares are floored at 1e-16 m^2.
double luminosity(int n, double sum_x2, double sum_y2);

// The luminosity as shown: exponent floor(log10 L), mantissa L x 10^-e and the colour of the
// exponent. A luminosity that is not positive and finite (no particles) has exponent 0 and
// mantissa L itself, so an empty beam reads "0.0 x 10^{0}".
struct luminosity_reading {
    int exponent;
    double mantissa;
    unsigned colour;   // 0xRRGGBB
};
luminosity_reading read_luminosity(double L);
unsigned luminosity_colour(int exponent);

// Raises sim.peak_luminosity to L when L is larger.
void update_peak_luminosity(double L);

// "Luminosity: %.1lf x 10^{%d}" and "Peak: %.1lf x 10^{%d}" for the value given.
void luminosity_text(char *out, int size, double L);
void peak_text(char *out, int size, double peak);

// Per cent of the 10000 particles lost, formed in single precision.
float loss_percentage(int particle_count);
// "BEAM LOSS: %.2f%%" for the count given.
void beam_loss_text(char *out, int size, int particle_count);

// Luminosity bar at the right edge of a W x H screen (y downwards): the filled quad spans
// x left .. right and y bottom .. top; the peak outline spans left .. peak_right and
// bottom .. peak_top. The bar reaches the top of the screen at 3.75e33.
struct luminosity_bar {
    double left, right, bottom, top;
    double peak_right, peak_top;
};
luminosity_bar luminosity_bar_geometry(int W, int H, double L, double peak);

// Left / Right held move sim.scraper_x by 0.0005 m within [0, 0.07].
void move_scraper(bool left_held, bool right_held);

// The scraper line: x pixel and half height h of the aperture's chord at the scraper edge.
struct scraper_chord {
    int x;
    int half_height;
};
scraper_chord scraper_chord_geometry(int W, double scraper_x, double pixels_per_metre);
