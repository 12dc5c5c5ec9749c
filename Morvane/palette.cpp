// Morvane palette: the 256-colour table, conversions between indices and packed colours,
// the palette-file writer and the colour maps.
#include "Morvane/palette.h"

#include <cmath>
#include <cstdio>

static struct {
    bool built;
    float red[256], green[256], blue[256];
    int packed[256];
} palette;

static int pack(int r, int g, int b) { return (r << 16) | (g << 8) | b; }
static int channel_byte(double v) { return (int)(v * 255.9); }

void buildpalette(float red[256], float green[256], float blue[256])
{
    for (int i = 0; i < 16; ++i) {
        float on = (i & 8) ? 1.0f : 0.5f;
        red[i] = (i & 4) ? on : 0.0f;
        green[i] = (i & 2) ? on : 0.0f;
        blue[i] = (i & 1) ? on : 0.0f;
    }
    // Bright with no colour would repeat black: it is the dark grey instead.
    red[8] = green[8] = blue[8] = 0.25f;
    for (int i = 16; i < 40; ++i) red[i] = green[i] = blue[i] = (float)((i - 16) * 0.04347826);
    for (int i = 40; i < 256; ++i) {
        int j = i - 40;
        red[i] = (float)((j % 6) * 0.2);
        green[i] = (float)((j / 6 % 6) * 0.2);
        blue[i] = (float)((j / 36) * 0.2);
    }
}

static void palette_build_once()
{
    if (palette.built) return;
    buildpalette(palette.red, palette.green, palette.blue);
    for (int i = 0; i < 256; ++i)
        palette.packed[i] = pack(channel_byte(palette.red[i]), channel_byte(palette.green[i]),
                                 channel_byte(palette.blue[i]));
    palette.built = true;
}

int palettecolour(int index)
{
    palette_build_once();
    index = index < 0 ? 0 : index > 255 ? 255 : index;
    return palette.packed[index];
}

static double distance2(int index, double r, double g, double b)
{
    double dr = r - palette.red[index], dg = g - palette.green[index], db = b - palette.blue[index];
    return dr * dr + dg * dg + db * db;
}

int nearestpaletteindex(int colour)
{
    palette_build_once();
    double r = ((colour >> 16) & 255) / 255.0;
    double g = ((colour >> 8) & 255) / 255.0;
    double b = (colour & 255) / 255.0;
    int candidates[4] = {
        4 * (r >= 0.25) + 2 * (g >= 0.25) + (b >= 0.25),
        8 + 4 * (r >= 0.5) + 2 * (g >= 0.5) + (b >= 0.5),
        16 + (int)((r + g + b) * 7.666667 + 0.499),
        40 + (int)(5 * r + 0.499) + 6 * (int)(5 * g + 0.499) + 36 * (int)(5 * b + 0.499),
    };
    int best = candidates[0];
    double best_d = distance2(best, r, g, b);
    for (int c = 1; c < 4; ++c) {
        double d = distance2(candidates[c], r, g, b);
        if (d < best_d) {
            best = candidates[c];
            best_d = d;
        }
    }
    return best;
}

void writepalette(const float red[256], const float green[256], const float blue[256],
                  const char *path)
{
    FILE *f = fopen(path, "wt");
    if (!f) return;
    fputs("JASC-PAL\n0100\n256\n", f);
    for (int i = 0; i < 256; ++i)
        fprintf(f, "%d %d %d\n", channel_byte(red[i]), channel_byte(green[i]), channel_byte(blue[i]));
    fclose(f);
}

// ---- Heat maps -----------------------------------------------------------------------------------

int heat5(double v)
{
    if (v < -1e-12) return 0;
    if (v < 1) { int n = channel_byte(v); return pack(0, n, 255 - n); }
    if (v < 2) { int n = channel_byte(v - 1); return pack(n, 255, 0); }
    if (v < 3) { int n = channel_byte(v - 2); return pack(255, 255 - n, 0); }
    if (v < 4) { int m = (int)((v - 3) * 128); return pack(255 - m, 0, m); }
    if (v < 5) { int k = (int)((v - 4) * 127.9); return pack(128 + k, 2 * k, 128 + k); }
    return 0xFFFFFF;
}

int heat5range(double x, double lo, double hi) { return heat5((x - lo) * 5 / (hi - lo)); }
int heat5unit(double x) { return heat5(x * 5); }

int heat4(double v)
{
    if (v < 0) return pack((int)(255.9 / (1 - v)), 0, 0);
    if (v > 4) return pack(0, 0, (int)(255.9 / (v - 3)));
    if (v < 1) return pack(255, channel_byte(v), 0);
    if (v < 2) return pack(255 - channel_byte(v - 1), 255, 0);
    if (v < 3) return pack(0, 255, channel_byte(v - 2));
    return pack(0, 255 - channel_byte(v - 3), 255);
}

int heat4range(double x, double lo, double hi) { return heat4((x - lo) * 4 / (hi - lo)); }

int steps(double v)
{
    if (v < 5) return 0x000000;
    if (v < 10) return 0x0000FF;
    if (v < 15) return 0x00FFFF;
    if (v < 20) return 0x00FF00;
    if (v < 25) return 0xFFFF00;
    return 0xFF0000;
}

// ---- Grey scales ---------------------------------------------------------------------------------

int greyscale(double v)
{
    int g = (int)(v * 255 + 0.5);
    if (g > 254) return 0xFFFFFF;
    if (g < 0) return 0;
    return pack(g, g, g);
}

int signedgrey(double v)
{
    if (v < 0) {
        int n = (int)(-v * 255 + 0.5);
        return pack(0, n < 255 ? n : 255, 255);
    }
    if (v > 1) {
        int n = (int)((v - 1) * 255 + 0.5);
        return pack(255, n < 255 ? n : 255, 0);
    }
    int g = (int)(v * 255 + 0.5);
    return pack(g, g, g);
}

// ---- Hue wheel -----------------------------------------------------------------------------------

int huewheel(double x, double y)
{
    double h = atan2(y, x) * 0.954929658551372; // 3 / pi: six sectors round the circle
    int k = (int)floor(h);
    double f = h - k;
    double d2 = x * x + y * y;
    double hi, lo;
    if (d2 < 1) { hi = sqrt(d2); lo = 0; }       // darker towards the centre
    else { hi = 1; lo = 1 - 1 / sqrt(d2); }      // paler outwards
    float up = (float)(f * (hi - lo) + lo);
    float down = (float)(hi + lo - up);
    double r, g, b;
    switch (k) {
    case 0: r = hi; g = up; b = lo; break;
    case 1: r = down; g = hi; b = lo; break;
    case 2: r = lo; g = hi; b = up; break;
    case -2: r = up; g = lo; b = hi; break;
    case -1: r = hi; g = lo; b = down; break;
    default: r = lo; g = down; b = hi; break; // 3 and -3: the sector round the negative x axis
    }
    return pack((int)(r * 255), (int)(g * 255), (int)(b * 255));
}

// ---- Log-scale spectra ---------------------------------------------------------------------------

static double spectrum_position(double v) { return -5.135 - 13.18 * log(v * 1e6); }

int spectrum7(double v)
{
    double t = spectrum_position(v);
    if (!(t > 0 && t < 7)) return 0;
    int segment = (int)t;
    int n = (int)((t - segment) * 255.999);
    switch (segment) {
    case 0: return pack(n, 0, 0);
    case 1: return pack(255, n, 0);
    case 2: return pack(255 - n, 255, 0);
    case 3: return pack(0, 255, n);
    case 4: return pack(0, 255 - n, 255);
    case 5: return pack(n, 0, 255);
    default: return pack(255 - n, 0, 255 - n);
    }
}

int spectrum8(double v)
{
    double t = spectrum_position(v);
    if (!(t > -1 && t < 8)) return 0;
    double u = 5 - t;
    if (t <= 1) { double a = (1 + t) / 2; return pack((int)(a * a * 255.99), 0, 0); }
    if (t <= 2) return pack(255, (int)((t - 1) * 255.99), 0);
    if (t <= 3) return pack((int)((3 - t) * 255.99), 255, 0);
    if (t <= 4) return pack(0, 255, (int)((1 - u * u / 4) * 255.99));
    if (t <= 5) return pack(0, (int)(u * 255.99), (int)((1 - u * u / 4) * 255.99));
    if (t <= 6) return pack((int)((t - 5) * 182.85), 0, 255);
    double w = (8 - t) / 2 * ((8 - t) / 2);
    return pack((int)(182.85 * w), 0, (int)(255.99 * w));
}
