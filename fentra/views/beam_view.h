// Fentra beam drawing: the beam pipe, the particles as streaks, dots or glow sprites, the
// highlight ring, and the helpers the other views share (momentum colours, glow texture).
#pragma once

// 0xRRGGBB of a particle with momentum factor p when the spread is non-zero: red below the
// range, through yellow, green (p = 1), cyan to blue above it.
unsigned momentum_colour(double p, double spread);

// The magenta ring of 63 points, radius 5 pixels, round the highlighted particle at (cx, cy).
void draw_highlight_ring(double cx, double cy);

// The star-glow image of n x n RGB texels, rows padded to 4 bytes (zero-filled by the caller),
// and the texture made from it with mipmaps; returns the GL texture name.
void glow_image(int n, unsigned char *rgb_rows);
unsigned make_glow_texture(int n);

// ---------------------------------------------------------------------------------------
// The beam in the main view

// Where and how the beam is drawn this frame: the beam view centre in pixels, the scale, the
// step length ds of the frame's tracking step (the streaks reach 2 ds back) and the momentum
// spread (colours by momentum when non-zero).
struct beam_frame {
    int centre_x, centre_y;
    double pixels_per_metre;
    double step_length;
    double momentum_spread;
};

// The vacuum chamber of radius 0.07 m: a disc shading from black at the axis to dark grey at
// the wall, then the mid-grey wall out to 1.02 times the radius.
void draw_beam_pipe(int centre_x, int centre_y, double pixels_per_metre);

// Particles n-1 .. 0 of the beam arrays: one streak each, then a dot each, or a glow sprite
// each when luminous (additive blending with the glow texture).
void draw_beam_particles(const beam_frame &f, int n, int luminous, unsigned glow_texture);

// The vertex data of the streaks, in drawing order: two vertices a particle (its position,
// then 2 ds back along its direction), x and y in pixels worked out in double precision and
// rounded to float as GL keeps them, and a colour for each vertex. The dots are the first
// vertex of each pair. Returns the number of vertices (2 n).
int fill_streak_vertices(const beam_frame &f, int n, float *xy, unsigned char *rgb);

// The vertex data of the glow sprites: four corners a particle, half-size 16 pixels, corners
// (-,-), (-,+), (+,+), (+,-) with texture coordinates (0,0), (0,1), (1,1), (1,0), and a
// colour for each corner. Returns the number of vertices (4 n).
int fill_sprite_vertices(const beam_frame &f, int n, float *xy, float *st, unsigned char *rgb);

// The colour of particle i: its momentum colour when the spread is non-zero, else white.
unsigned particle_colour(const beam_frame &f, int i);

// The highlight ring round particle 0: centred on the middle of its streak.
void draw_particle_highlight(const beam_frame &f);
