// Fentra heads-up display: the magnet pole pictures round the beam pipe, the KORA lines, the
// text overlay with the magnet strengths, luminosity, peak and beam loss, the luminosity bar,
// the scraper line and the touch "Reset" button.
#pragma once

#include "fentra/physics/state.h"
#include "fentra/physics/tracking.h"

#include <cstddef>
#include <string_view>

// The pole pictures of every non-zero magnet setting: steering (2 poles), quadrupole (4),
// sextupole (6), octupole (8), with their "N" and "S" letters in the caption font.
void draw_pole_pictures(const view_geometry &v, const magnet_settings &m);
// One magnet of n poles and strength s; the first pole drawn is "S" for s > 0, "N" for s < 0.
void draw_magnet_poles(const view_geometry &v, int n, double s);
// The letter of pole k of n (the first pole drawn is k = n - 1): true for "N".
bool pole_is_north(int k, int n, double s);

// The KORA lines: current element, speed, distance round the ring and superperiod.
struct kora_lines {
    char component[64], speed[64], distance[64], superperiod[64];
};
kora_lines kora_line_texts();
void draw_kora_lines();   // in "ncgismall", white, at W/4 and y = 20, 40, 50, 60

// The line of the scraper edge across the pipe.
void draw_scraper(const view_geometry &v);

// The text overlay of the frame, with the luminosity from the tracking step's sums; also
// raises the peak, draws the game overlay, the bar and spawns the sparks. Returns the
// luminosity. With no particles the luminosity is 0 and reads "0.0 x 10^{0}".
double draw_text_overlay(const track_sums &sums);

// A luminosity or peak line formatted into text (size bytes, at least 200) and compiled, so
// that the exponent becomes a superscript; the compiled bytes, whose commands hold zero bytes.
std::string_view luminosity_line_text(char *text, size_t size, void (*format)(char *, int, double), double value);

// Spark triplets for a luminosity: one per 1e33, at most 1000.
int sparks_for_luminosity(double L);

// The bar at the right edge in the colour of the luminosity line, and the peak's outline.
void draw_luminosity_bar(int W, int H, double L, double peak, unsigned colour);

// Whether the pointer counts as pressing the touch "Reset": left of the word's width plus a
// line height, from a line height above y = 50 to two below it (y compared as unsigned).
bool touch_reset_hit(int x, int y, float reset_width, int line_height);
