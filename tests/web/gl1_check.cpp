// GL 1.x behaviours that the web platform's own GL layer must keep, checked by reading pixels
// back: a clear waits for the next draw yet keeps its order and its scissor box, the batches
// drawn on the CPU keep the depth test, shading, scissor box and far plane as GL does, draws
// in a row, which the layer joins when it can, keep their own state and textures, and frames
// drawn on the CPU keep their depth when handed over and their own opening when it is reused.
// The same program runs on the desktop's GL, which shows that the expectations are GL's.
// Prints "ok: ..." or "FAIL: ..." a case, then "gl1 check: N failed"; exits with 1 on a failure.
// In a page whose address has ?empty it shows empty frames instead (see empty_frames).
#include "Morvane/clock.h"
#include "Morvane/gfx_opengl.h"
#include "window_coordinates.h"

#include <GL/gl.h>

#include <cstdio>

enum { W = 256, H = 256, MANY = 300 };   // MANY vertices: a batch the CPU draws

static unsigned pixel(int x, int y)
{
    unsigned char rgb[4] = {};
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(x, y, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, rgb);
    return (unsigned)rgb[0] << 16 | (unsigned)rgb[1] << 8 | rgb[2];
}

static void clear_to(float r, float g, float b)
{
    glClearColor(r, g, b, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

// MANY white points, on pixel centres from (x0, y0) in steps of `step`, 20 to a row.
static void white_points(float x0, float y0, float step, float z = 0)
{
    glColor3ub(255, 255, 255);
    glBegin(GL_POINTS);
    for (int i = 0; i < MANY; i++) glVertex3f(x0 + (float)(i % 20) * step, y0 + (float)(i / 20) * step, z);
    glEnd();
}

static void grey_line(float x1, float y1, float x2, float y2)
{
    glColor3ub(128, 128, 128);
    glBegin(GL_LINES);
    glVertex2f(x1, y1), glVertex2f(x2, y2);
    glEnd();
}

static bool clear_comes_before_later_points()
{
    clear_to(1, 0, 0);
    white_points(10.5f, 10.5f, 2);
    return pixel(10, 10) == 0xFFFFFF && pixel(11, 10) == 0xFF0000;
}

static bool clear_keeps_its_scissor_box()
{
    clear_to(0, 0, 1);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 20, 20);
    clear_to(0, 1, 0);
    glDisable(GL_SCISSOR_TEST);
    grey_line(0.5f, 200.5f, 255.5f, 200.5f);
    return pixel(10, 10) == 0x00FF00 && pixel(100, 100) == 0x0000FF;
}

static bool depth_test_keeps_the_line_drawn_first()
{
    clear_to(0, 0, 0);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    grey_line(0.5f, 50.5f, 255.5f, 50.5f);
    white_points(10.5f, 40.5f, 5);   // rows 40, 45, 50, ...
    glDisable(GL_DEPTH_TEST);
    return pixel(10, 50) == 0x808080 && pixel(10, 45) == 0xFFFFFF;
}

static bool lines_shade_from_end_to_end()
{
    clear_to(0, 0, 0);
    glBegin(GL_LINES);
    glColor3ub(255, 0, 0), glVertex2f(0.5f, 120.5f);
    glColor3ub(0, 0, 255), glVertex2f(255.5f, 120.5f);
    glColor3ub(255, 255, 255);
    for (int i = 1; i < MANY / 2; i++) glVertex2f(0.5f, 200.5f), glVertex2f(50.5f, 200.5f);
    glEnd();
    unsigned middle = pixel(128, 120);
    unsigned red = middle >> 16, blue = middle & 255;
    return red > 60 && red < 200 && blue > 60 && blue < 200;
}

static bool points_keep_to_the_scissor_box()
{
    clear_to(0, 0, 0);
    glEnable(GL_SCISSOR_TEST);
    glScissor(100, 100, 50, 50);
    white_points(80.5f, 80.5f, 5);
    glDisable(GL_SCISSOR_TEST);
    return pixel(85, 85) == 0 && pixel(120, 120) == 0xFFFFFF;
}

static bool points_beyond_the_far_plane_are_not_drawn()
{
    clear_to(0, 0, 0);
    white_points(10.5f, 10.5f, 2, -2);   // window depth beyond 1 under glOrtho(..., -1, 1)
    white_points(11.5f, 11.5f, 2, 0.5f);
    return pixel(10, 10) == 0 && pixel(11, 11) == 0xFFFFFF;
}

static void quad(float x0, float y0, float x1, float y1)
{
    glBegin(GL_QUADS);
    glTexCoord2f(0, 0), glVertex2f(x0, y0);
    glTexCoord2f(1, 0), glVertex2f(x1, y0);
    glTexCoord2f(1, 1), glVertex2f(x1, y1);
    glTexCoord2f(0, 1), glVertex2f(x0, y1);
    glEnd();
}

// Draws one after another in the same place, each in its own blending and matrix.
static bool each_draw_keeps_its_own_state()
{
    clear_to(0, 0, 0);
    glColor3ub(255, 0, 0);
    quad(10, 10, 30, 30);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE);
    glColor3ub(0, 255, 0);
    quad(10, 10, 30, 30);
    glDisable(GL_BLEND);
    glPushMatrix();
    glScalef(4, 1, 1);   // x 40 to 120
    glColor3ub(0, 0, 255);
    quad(10, 10, 30, 30);
    glPopMatrix();
    return pixel(20, 20) == 0xFFFF00 && pixel(100, 20) == 0x0000FF;
}

// A texture changed between two draws: the first draw reads it as it was. Red | green texels
// across a quad; magnified without blending, the pixel left of the middle is red.
static bool a_draw_reads_the_texture_as_it_was()
{
    static const unsigned char red_green[6] = {255, 0, 0, 0, 255, 0}, blue[6] = {0, 0, 255, 0, 0, 255};
    GLuint t = 0;
    glGenTextures(1, &t);
    glBindTexture(GL_TEXTURE_2D, t);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 2, 1, 0, GL_RGB, GL_UNSIGNED_BYTE, red_green);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    clear_to(0, 0, 0);
    glEnable(GL_TEXTURE_2D);
    glColor3ub(255, 255, 255);
    quad(10, 60, 30, 80);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    quad(40, 60, 60, 80);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 2, 1, 0, GL_RGB, GL_UNSIGNED_BYTE, blue);
    quad(70, 60, 90, 80);
    glDisable(GL_TEXTURE_2D);
    glDeleteTextures(1, &t);
    return pixel(19, 70) == 0xFF0000 && pixel(49, 70) != 0xFF0000 && (pixel(49, 70) >> 8 & 255) > 0 &&
           pixel(79, 70) == 0x0000FF;
}

static void filled_square(float x0, float y0, float x1, float y1, unsigned char r, unsigned char g, unsigned char b)
{
    glColor3ub(r, g, b);
    quad(x0, y0, x1, y1);
}

// A square drawn, then one the depth test must cut where the first wrote depth at the same
// depth: what was drawn, and the depth it wrote, both hold on (where a layer drawing frames on
// the CPU hands the frame over for the second square).
static bool depth_written_before_holds_after()
{
    clear_to(0, 0, 0);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    filled_square(10, 10, 30, 30, 255, 0, 0);
    filled_square(20, 20, 40, 40, 0, 255, 0);
    glDisable(GL_DEPTH_TEST);
    return pixel(15, 15) == 0xFF0000 && pixel(25, 25) == 0xFF0000 && pixel(35, 35) == 0x00FF00;
}

// Frames that open alike (a clear and a square, kept and drawn again from the last frame's
// picture on the CPU) show their opening as drawn, never the last frame's later drawing; a
// changed opening shows as changed.
static bool a_frame_opening_as_the_last_shows_its_own_drawing()
{
    bool ok = true;
    for (int frame = 0; frame < 3; frame++) {
        end_frame(0);
        clear_to(0, 0, 1);
        filled_square(10, 10, 30, 30, frame < 2 ? 255 : 0, frame < 2 ? 0 : 255, 0);
        white_points(100.5f + (float)frame, 100.5f, 3);   // ends the opening
        ok = ok && pixel(20, 20) == (frame < 2 ? 0xFF0000u : 0x00FF00u) && pixel(50, 50) == 0x0000FF;
        ok = ok && pixel(100 + frame, 100) == 0xFFFFFF;
        for (int before = 0; before < frame; before++) ok = ok && pixel(100 + before, 100) == 0x0000FF;
    }
    return ok;
}

#ifdef __EMSCRIPTEN__
#include <emscripten.h>
EM_JS(int, page_asks_for_empty_frames, (), { return new URLSearchParams(location.search).has("empty") ? 1 : 0; });
#else
static int page_asks_for_empty_frames() { return 0; }
#endif

// Empty frames at Fentra's size (the whole window) and pacing, for ever: the frame interval of
// the browser's own work, which the browser benchmark sets beside Fentra's.
static int empty_frames()
{
    if (!graphics_open(0, 0, "empty frames", nullptr)) return 1;
    while (!pump_events()) {
        double start = time_now();
        end_frame(0);
        pace_frame(start);
    }
    return 0;
}

int main()
{
    if (page_asks_for_empty_frames()) return empty_frames();
    windowed = 1;
    if (!graphics_open(W, H, "gl1 check", nullptr)) return 1;
    window_coordinates(W, H);
    static const struct { const char *name; bool (*check)(); } cases[] = {
        {"a clear waits for the next draw and comes before it", clear_comes_before_later_points},
        {"a clear keeps the scissor box it was asked with", clear_keeps_its_scissor_box},
        {"many points keep the depth test", depth_test_keeps_the_line_drawn_first},
        {"many lines shade from one end's colour to the other's", lines_shade_from_end_to_end},
        {"many points keep to the scissor box", points_keep_to_the_scissor_box},
        {"many points beyond the far plane are not drawn", points_beyond_the_far_plane_are_not_drawn},
        {"draws one after another keep their own blending and matrix", each_draw_keeps_its_own_state},
        {"a draw reads a texture as it was, changed after it", a_draw_reads_the_texture_as_it_was},
        {"depth written before a draw that the depth test cuts holds", depth_written_before_holds_after},
        {"frames that open as the last one show their own drawing", a_frame_opening_as_the_last_shows_its_own_drawing},
    };
    int failed = 0;
    for (const auto &c : cases) {
        // Two swaps: the case starts a frame of its own, after a frame with no drawing.
        end_frame(0);
        end_frame(0);
        bool ok = c.check();
        failed += !ok;
        printf("%s: %s\n", ok ? "ok" : "FAIL", c.name);
    }
    // Something the web layer does not handle, asked for twice: it says so once (the browser
    // test counts the console's warnings); then it is undone.
    glEnable(GL_LIGHTING);
    glEnable(GL_LIGHTING);
    glDisable(GL_LIGHTING);
    printf("gl1 check: %d failed\n", failed);
    fflush(stdout);
    return failed ? 1 : 0;
}
