// Fentra beam drawing: the beam pipe, the particles as streaks, dots or glow sprites, the
// highlight ring, the momentum colour ramp and the star-glow sprite texture.
// The per-particle passes fill client-side vertex arrays in one pass and draw each with one
// glDrawArrays call, with the primitives, vertex order, coordinates and colours of one
// glBegin/glEnd batch, so the pixels are the same at a fraction of the call count. GL keeps
// vertex positions in single precision, so positions worked out in double are stored rounded
// to float, as glVertex2d would round them.
#include "fentra/views/beam_view.h"

#include "Morvane/gfx_opengl.h"
#include "fentra/physics/state.h"

#include <GL/gl.h>

#include <cmath>
#include <cstdlib>

// Vertex arrays for all particles, allocated on first use and kept.
static struct {
    float *streak_xy;            // 2 vertices x 2 coordinates a particle
    unsigned char *streak_rgb;   // 2 vertices x 3 bytes
    float *sprite_xy;            // 4 corners x 2 coordinates
    float *sprite_st;            // 4 corners x 2 texture coordinates
    unsigned char *sprite_rgb;   // 4 corners x 3 bytes
} view;

// ---------------------------------------------------------------------------------------
// [SECTION] Colours

unsigned momentum_colour(double p, double spread)
{
    // The ramp spans the momentum range widened by a little on each side; t runs 0 .. 4
    // from red through yellow, green (p = 1, t = 2) and cyan to blue.
    double lo = 0.999 - 0.9 * spread, hi = 1.001 + 0.9 * spread;
    double t = (p - lo) * 4 / (hi - lo);
    if (t < 0) return (unsigned)(int)(255.9 / (1 - t)) << 16;   // darkening red below
    if (t > 4) return (unsigned)(int)(255.9 / (t - 3));         // darkening blue above
    if (t < 1) return ((unsigned)(int)(t * 255.9) + 0xFF00) * 0x100;
    if (t < 2) return (255 - (unsigned)(int)((t - 1) * 255.9)) * 0x10000 + 0xFF00;
    if (t < 3) return 0xFF00 + (unsigned)(int)((t - 2) * 255.9);
    return (255 - (unsigned)(int)((t - 3) * 255.9)) * 0x100 + 0xFF;
}

unsigned particle_colour(const beam_frame &f, int i)
{
    return f.momentum_spread > 0 ? momentum_colour(beam_momentum[i], f.momentum_spread)
                                 : 0xFFFFFFu;
}

static inline void put_rgb(unsigned char *rgb, unsigned colour)
{
    rgb[0] = (unsigned char)(colour >> 16);
    rgb[1] = (unsigned char)(colour >> 8);
    rgb[2] = (unsigned char)colour;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Beam pipe and highlight

void draw_beam_pipe(int centre_x, int centre_y, double pixels_per_metre)
{
    const float R = (float)(0.07 * pixels_per_metre);   // the 0.07 m pipe radius in pixels
    const float wall = (float)(1.02 * R);
    const double step = 2 * M_PI / 100;
    glBegin(GL_TRIANGLE_FAN);
    glColor3f(0, 0, 0);
    glVertex2d(centre_x, centre_y);
    glColor3f(0.15f, 0.15f, 0.15f);
    for (int i = 0; i <= 100; i++)
        glVertex2d(centre_x + R * cos(i * step), centre_y + R * sin(i * step));
    glEnd();
    glBegin(GL_QUAD_STRIP);
    glColor3f(0.5f, 0.5f, 0.5f);
    for (int i = 0; i <= 100; i++) {
        double c = cos(i * step), s = sin(i * step);
        glVertex2d(centre_x + R * c, centre_y + R * s);
        glVertex2d(centre_x + wall * c, centre_y + wall * s);
    }
    glEnd();
}

void draw_highlight_ring(double cx, double cy)
{
    glBegin(GL_POINTS);
    glColor3f(1, 0, 1);
    // The angle is kept in single precision, so 63 steps of 0.1 end at 6.2 rad and the ring
    // is not quite closed.
    float a = 0;
    for (int k = 0; k < 63; k++) {
        float ox = (float)(5 * cos((double)a)), oy = (float)(5 * sin((double)a));
        glVertex2d(cx + ox, cy + oy);
        a += 0.1f;
    }
    glEnd();
}

void draw_particle_highlight(const beam_frame &f)
{
    const double S = f.pixels_per_metre, ds = f.step_length;
    draw_highlight_ring(f.centre_x + (beam_x[0] - ds * beam_xp[0]) * S,
                        f.centre_y + (beam_y[0] - ds * beam_yp[0]) * S);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Particles

int fill_streak_vertices(const beam_frame &f, int n, float *xy, unsigned char *rgb)
{
    const double S = f.pixels_per_metre, ds2 = 2 * f.step_length;
    const double cx = f.centre_x, cy = f.centre_y;
    for (int i = n - 1; i >= 0; i--, xy += 4, rgb += 6) {
        double x = beam_x[i], y = beam_y[i];
        xy[0] = (float)(cx + x * S);
        xy[1] = (float)(cy + y * S);
        xy[2] = (float)(cx + (x - ds2 * beam_xp[i]) * S);
        xy[3] = (float)(cy + (y - ds2 * beam_yp[i]) * S);
        unsigned colour = particle_colour(f, i);
        put_rgb(rgb, colour);
        put_rgb(rgb + 3, colour);
    }
    return 2 * n;
}

int fill_sprite_vertices(const beam_frame &f, int n, float *xy, float *st, unsigned char *rgb)
{
    static const float corner_x[4] = {-16, -16, 16, 16}, corner_y[4] = {-16, 16, 16, -16};
    static const float tex_s[4] = {0, 0, 1, 1}, tex_t[4] = {0, 1, 1, 0};
    const double S = f.pixels_per_metre;
    for (int i = n - 1; i >= 0; i--) {
        double px = f.centre_x + beam_x[i] * S, py = f.centre_y + beam_y[i] * S;
        unsigned colour = particle_colour(f, i);
        for (int k = 0; k < 4; k++, xy += 2, st += 2, rgb += 3) {
            xy[0] = (float)(px + corner_x[k]);
            xy[1] = (float)(py + corner_y[k]);
            st[0] = tex_s[k];
            st[1] = tex_t[k];
            put_rgb(rgb, colour);
        }
    }
    return 4 * n;
}

static void allocate_vertex_arrays()
{
    if (view.streak_xy) return;
    const size_t n = particle_capacity;
    view.streak_xy = (float *)malloc(sizeof(float) * 4 * n);
    view.streak_rgb = (unsigned char *)malloc(6 * n);
    view.sprite_xy = (float *)malloc(sizeof(float) * 8 * n);
    view.sprite_st = (float *)malloc(sizeof(float) * 8 * n);
    view.sprite_rgb = (unsigned char *)malloc(12 * n);
}

// The dots are every other streak vertex: the particle's own position.
static void draw_dots_from_streaks(const beam_frame &f, int n)
{
    glColor3f(1, 1, 1);
    glVertexPointer(2, GL_FLOAT, 4 * sizeof(float), view.streak_xy);
    if (f.momentum_spread > 0) {
        glEnableClientState(GL_COLOR_ARRAY);
        glColorPointer(3, GL_UNSIGNED_BYTE, 6, view.streak_rgb);
    }
    glDrawArrays(GL_POINTS, 0, n);
    glDisableClientState(GL_COLOR_ARRAY);
}

static void draw_sprites(const beam_frame &f, int n, unsigned glow_texture)
{
    int count = fill_sprite_vertices(f, n, view.sprite_xy, view.sprite_st, view.sprite_rgb);
    glEnable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, glow_texture);
    glEnable(GL_BLEND);
    // Screen-like blending: overlapping glows brighten towards white without passing it.
    glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_COLOR);
    glColor3f(1, 1, 1);
    glEnableClientState(GL_TEXTURE_COORD_ARRAY);
    glEnableClientState(GL_COLOR_ARRAY);
    glVertexPointer(2, GL_FLOAT, 0, view.sprite_xy);
    glTexCoordPointer(2, GL_FLOAT, 0, view.sprite_st);
    glColorPointer(3, GL_UNSIGNED_BYTE, 0, view.sprite_rgb);
    glDrawArrays(GL_QUADS, 0, count);
    glDisableClientState(GL_COLOR_ARRAY);
    glDisableClientState(GL_TEXTURE_COORD_ARRAY);
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_BLEND);
}

void draw_beam_particles(const beam_frame &f, int n, int luminous, unsigned glow_texture)
{
    if (n <= 0) return;
    allocate_vertex_arrays();
    int count = fill_streak_vertices(f, n, view.streak_xy, view.streak_rgb);
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_COLOR_ARRAY);
    glVertexPointer(2, GL_FLOAT, 0, view.streak_xy);
    glColorPointer(3, GL_UNSIGNED_BYTE, 0, view.streak_rgb);
    glDrawArrays(GL_LINES, 0, count);
    glDisableClientState(GL_COLOR_ARRAY);
    if (luminous) draw_sprites(f, n, glow_texture);
    else draw_dots_from_streaks(f, n);
    glDisableClientState(GL_VERTEX_ARRAY);
    // The current colour is undefined after drawing from a colour array; leave it white.
    glColor3f(1, 1, 1);
}

// ---------------------------------------------------------------------------------------
// [SECTION] Star-glow texture

void glow_image(int n, unsigned char *rgb_rows)
{
    const size_t stride = (size_t)((3 * n + 3) & ~3);
    const int h = n / 2;
    for (int i = n - 1; i >= 0; i--) {
        for (int j = n - 1; j >= 0; j--) {
            float dx = (float)(j - h), dy = (float)(i - h);
            float r = (float)(sqrt(dx * dx + dy * dy + 1e-6) / h);
            if (r >= 1) continue;
            float theta = (float)atan2(dy, dx + 1e-6);
            // tan(6 theta) gives the twelve rays; the product is taken in single precision.
            double q = tan((double)(6 * theta));
            float a = (float)(fmin(fabs(q), 0.5) + 0.5);
            double brightness = fmin((0.05 / r - 0.05) * a, 1.0);
            unsigned char value = (unsigned char)(int)(brightness * 255);
            unsigned char *texel = rgb_rows + (size_t)i * stride + (size_t)(3 * j);
            texel[0] = texel[1] = texel[2] = value;
        }
    }
}

unsigned make_glow_texture(int n)
{
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    unsigned char *image = (unsigned char *)calloc((size_t)((3 * n + 3) & ~3) * n, 1);
    glow_image(n, image);
    // Rows padded to 4 bytes match GL's default unpack alignment.
    upload_texture_level(GL_TEXTURE_2D, 0, 3, n, n, GL_UNSIGNED_BYTE, image);
    generate_mipmaps(GL_TEXTURE_2D);
    free(image);
    return texture;
}
