// Morvane palette: the fixed 256-colour table (16 basic colours, a 24-step grey ramp, a
// 6x6x6 colour cube), index <-> packed colour conversions, palette files and colour maps.
// Packed colours are ints 0x00RRGGBB; a channel value v in 0..1 becomes (int)(v x 255.9).
#pragma once

void buildpalette(float red[256], float green[256], float blue[256]);
int palettecolour(int index);            // index clamped to 0..255
int nearestpaletteindex(int colour);     // best of four candidates (basic dim/bright, grey, cube)
// Writes "JASC-PAL\n0100\n256\n" and one "r g b" line per entry.
void writepalette(const float red[256], const float green[256], const float blue[256],
                  const char *path);

// ---- Colour maps: a number to a packed colour -------------------------------------------------
int heat5(double v);                           // 0..5: blue, green, yellow, red, purple, white
int heat5range(double x, double lo, double hi);
int heat5unit(double x);                       // heat5 of 5x
int heat4(double v);                           // 0..4: red, yellow, green, cyan, blue
int heat4range(double x, double lo, double hi);
int steps(double v);                           // bands of 5: black, blue, cyan, green, yellow, red
int greyscale(double v);                       // 0..1 black to white
int signedgrey(double v);                      // grey on 0..1, blue-cyan below, red-yellow above
int huewheel(double x, double y);              // hue by angle, dark centre, paling outside r = 1
int spectrum7(double v);                       // log scale in seven bands
int spectrum8(double v);                       // log scale, smooth rainbow
