// A small program over the window layer: opens the full-screen window, draws each kind of
// 2-D primitive every frame, saves a screenshot on Ctrl+S and quits on Escape.
#define MORVANE_SOURCE "gfx_example"
#include "Morvane/gfx_opengl.h"

#include <SDL_opengl.h>

#include <cmath>

// The 256 palette colours as a strip of small squares.
static void draw_palette_strip(double x, double y)
{
    for (int i = 0; i < 256; ++i) {
        set_palette_colour(i);
        double px = x + (i % 64) * 12, py = y + (i / 64) * 12;
        glBegin(GL_QUADS);
        glVertex2d(px, py);
        glVertex2d(px + 10, py);
        glVertex2d(px + 10, py + 10);
        glVertex2d(px, py + 10);
        glEnd();
    }
}

static void draw_scene(double t)
{
    const double w = screen_width, h = screen_height;
    for (int i = 0; i <= 16; ++i) {   // a frame of grid lines
        draw_line(i * w / 16, 0, i * w / 16, h, 0x202840);
        draw_line(0, i * h / 16, w, i * h / 16, 0x202840);
    }
    fill_rect(40, 40, 200, 120, 0xC03030);
    outline_rect(260.5, 40.5, 200, 120, 0x30C030);
    outline_box(480.5, 40.5, 680.5, 160.5, 0x3060FF);
    for (int k = 0; k < 6; ++k)
        fill_circle(120 + k * 110, 300, 5 + k * 9, 0xFFC000 - k * 0x202000);
    outline_circle(w / 2, h / 2, h * 0.3, 0x00FFFF);
    outline_ellipse(w / 2, h / 2, h * 0.45, h * 0.2, 0xFF00FF);
    draw_arc(w / 2, h / 2, h * 0.35, t, t + M_PI, 0xFFFFFF);

    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    fill_sector(w - 300, 300, 0, 150, 0, 2.0, 0xFF8000, 200);
    fill_sector(w - 300, 300, 100, 150, 2.3, 5.5, 0x0080FF, 160);
    glDisable(GL_BLEND);
    soft_disc(w - 300, h - 300, 80, 30, 0x80FF80, 255);
    soft_ring(w - 600, h - 300, 60, 120, 20, 0xFF80C0, 255);

    smooth_begin(1, 3);
    draw_line(40, h - 200, 40 + 400 * (0.5 + 0.5 * sin(t)), h - 60, 0xFFFFFF);
    smooth_end();
    draw_palette_strip(40, h - 420);
    fill_circle(mouse_x, mouse_y, 12, 0xFFFFFF);   // follows the pointer
    // a point circling once every two seconds shows that frames advance
    draw_point(w / 2 + 100 * sin(t * M_PI), h / 2 + 100 * cos(t * M_PI), 0xFFFFFF);
}

int main()
{
    if (!GRAPHICS()) return 1;
    double start = time_now();
    LOOP {
        if (key_held(VK_ESCAPE)) break;
        draw_scene(time_now() - start);
        if (key_held(VK_CONTROL) && key_pressed('S')) save_screenshot("gfx_example");
    }
    graphics_close();
    return 0;
}
