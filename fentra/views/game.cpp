// Fentra focussing game: the title and goal, and the collision sparks: a cloud of red, green
// and blue charges born at the screen centre in proportion to the luminosity, pushing like
// kinds apart and pulling unlike kinds together, drawn as glowing sprites until they leave.
#include "fentra/views/game.h"

#include "Morvane/bitmapfonts.h"
#include "Morvane/clock.h"
#include "Morvane/gfx_opengl.h"
#include "fentra/physics/beam.h"
#include "fentra/views/beam_view.h"
#include "fentra/views/views.h"

#include <SDL_opengl.h>

#include <cmath>
#include <cstdlib>
#include <string_view>

using namespace std::string_view_literals;

const char game_goal_text[] =
    "Goal: to make the beam as small\nas possible to create collisions.\n\nThe left/right "
    "arrow keys apply\n'quadrupole' magnets to change\nthe beam shape.\n\n'Luminosity' of "
    "collisions is shown\nat the right of the screen.\n\nPress Space Bar to reset.";

static struct {
    double previous_time;   // clock at the previous spark update; negative before the first
    unsigned texture;       // the sparks' own star-glow texture, 0 until first used
    spark_sprite *sprites;  // this frame's sparks as drawn
    float *vertices;        // two textured squares per sprite, four corners each
    float *texcoords;
    unsigned char *colours;
    unsigned capacity;      // sprites the buffers hold
} sparks = {-1, 0, nullptr, nullptr, nullptr, nullptr, 0};

// ---------------------------------------------------------------------------------------
// [SECTION] Title

void draw_title_overlay()
{
    selectfont("captionfont");
    printtext(0, 0, "Fentra"sv, 0xFFFFFF);
    printtext(0, (float)(2 * current_line_height), std::string_view(game_goal_text), 0x80C080);
    selectdefaultfont();
}

// ---------------------------------------------------------------------------------------
// [SECTION] Spark physics

// Three sparks per unit, one of each kind in every triplet, in a Gaussian cloud of 10 pixels'
// standard deviation round the centre; the pairs are drawn as for a Gaussian beam.
void spawn_sparks(growarray *list, int n)
{
    for (int k = 3 * n; k >= 1; k--) {
        double a, b;
        gaussian_pair(&a, &b);
        spark s = {10 * a, 10 * b, 0, 0, k % 3};
        growarray_append(list, &s);
    }
}

double spark_time_step(double now)
{
    if (sparks.previous_time < 0) sparks.previous_time = now;
    double dt = (now - sparks.previous_time) * 10;
    sparks.previous_time = now;
    return dt;
}

void spark_clock_restart() { sparks.previous_time = -1; }

void spark_forces(spark *s, unsigned count, double dt)
{
    for (int i = (int)count - 1; i >= 1; i--) {
        for (int j = i - 1; j >= 0; j--) {
            double dx = s[j].x - s[i].x, dy = s[j].y - s[i].y;
            double r2 = dx * dx + dy * dy;
            double a = 1 / sqrt(r2);     // 1 / r
            double b = 1 / (r2 * r2);    // times the unnormalised d: 1 / r^3 repulsion
            double c = s[i].kind == s[j].kind ? -2.0 / 3 : 1.0 / 3;
            double f = a < 0.02 ? 50 * a * a : a;   // beyond 50 pixels the force falls as 1/r
            double k = c * f;
            s[i].vx += (k - b) * dx * dt;
            s[i].vy += (k - b) * dy * dt;
            s[j].vx += (b - k) * dx * dt;
            s[j].vy += (b - k) * dy * dt;
        }
    }
}

static const unsigned kind_colours[3] = {0xFF0000, 0x00FF00, 0x0000FF};

unsigned move_sparks(growarray *list, double dt, int W, int H, spark_sprite *sprites)
{
    // Removals may move the storage: the alias keeps this loop's pointer valid.
    spark *s = (spark *)list->data;
    void **saved_alias = list->alias;
    list->alias = (void **)&s;
    unsigned drawn = 0;
    for (int i = (int)list->count - 1; i >= 0; i--) {
        s[i].x += s[i].vx * dt;
        s[i].y += s[i].vy * dt;
        if (fabs(s[i].x) > W / 2 || fabs(s[i].y) > H / 2) {
            growarray_remove(list, (unsigned)i);
            continue;
        }
        sprites[drawn++] = {W / 2 + s[i].x, H / 2 - s[i].y, kind_colours[s[i].kind]};
    }
    list->alias = saved_alias;
    return drawn;
}

// ---------------------------------------------------------------------------------------
// [SECTION] Spark drawing

static void reserve_sprites(unsigned count)
{
    if (count <= sparks.capacity) return;
    sparks.capacity = count;
    sparks.sprites = (spark_sprite *)realloc(sparks.sprites, sizeof(spark_sprite) * count);
    sparks.vertices = (float *)realloc(sparks.vertices, sizeof(float) * 16 * count);
    sparks.texcoords = (float *)realloc(sparks.texcoords, sizeof(float) * 16 * count);
    sparks.colours = (unsigned char *)realloc(sparks.colours, 24 * (size_t)count);
}

// A square of half-size h round (x, y) with the whole texture on it: texture (0,0) at the
// corner (-,-), then (0,1) at (-,+), (1,1) at (+,+) and (1,0) at (+,-).
static void add_square(unsigned *corner, double x, double y, double h, unsigned colour)
{
    static const float offsets[4][2] = {{-1, -1}, {-1, 1}, {1, 1}, {1, -1}};
    static const float tex[4][2] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    for (int c = 0; c < 4; c++) {
        unsigned v = (*corner)++;
        sparks.vertices[2 * v] = (float)(x + offsets[c][0] * h);
        sparks.vertices[2 * v + 1] = (float)(y + offsets[c][1] * h);
        sparks.texcoords[2 * v] = tex[c][0];
        sparks.texcoords[2 * v + 1] = tex[c][1];
        sparks.colours[3 * v] = (unsigned char)(colour >> 16);
        sparks.colours[3 * v + 1] = (unsigned char)(colour >> 8);
        sparks.colours[3 * v + 2] = (unsigned char)colour;
    }
}

void update_and_draw_sparks(growarray *list)
{
    if (!sparks.texture) sparks.texture = make_glow_texture(32);
    double dt = spark_time_step(time_now());
    spark_forces((spark *)list->data, list->count, dt);

    reserve_sprites(list->count > 0 ? list->count : 1);
    unsigned drawn = move_sparks(list, dt, screen_width, screen_height, sparks.sprites);

    // Each spark: a large square in its kind's colour, then a small white one on top.
    unsigned corners = 0;
    for (unsigned i = 0; i < drawn; i++) {
        const spark_sprite &p = sparks.sprites[i];
        add_square(&corners, p.x, p.y, 28, p.colour);
        add_square(&corners, p.x, p.y, 14, 0xFFFFFF);
    }

    glEnable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, sparks.texture);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_COLOR);   // overlapping glows brighten toward white
    if (corners) {
        glEnableClientState(GL_VERTEX_ARRAY);
        glEnableClientState(GL_TEXTURE_COORD_ARRAY);
        glEnableClientState(GL_COLOR_ARRAY);
        glVertexPointer(2, GL_FLOAT, 0, sparks.vertices);
        glTexCoordPointer(2, GL_FLOAT, 0, sparks.texcoords);
        glColorPointer(3, GL_UNSIGNED_BYTE, 0, sparks.colours);
        glDrawArrays(GL_QUADS, 0, (GLsizei)corners);
        glDisableClientState(GL_COLOR_ARRAY);
        glDisableClientState(GL_TEXTURE_COORD_ARRAY);
        glDisableClientState(GL_VERTEX_ARRAY);
        glColor3ub(255, 255, 255);   // the colour the last small square left
    }
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_BLEND);
}
