// The window layer on a real SDL window and Mesa GL context (run under Xvfb): the window
// and its initial state, pixels of drawn primitives read back before the swap, the clear
// colour rule, mipmap chains, screenshots, and events fed through the pump.
#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL.h>
#include <SDL_opengl.h>
#include <gtest/gtest.h>
#include <SDL_syswm.h>   // after gtest: the X11 headers define short macro names

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

static int print_record(report_record *r)
{
    fprintf(stderr, "report %d %s:%d %s\n", r->type, r->source, r->line,
            r->message ? r->message : "");
    return 0;
}

// One window for every case of this program.
struct window_environment : testing::Environment {
    void SetUp() override
    {
        report_handler = print_record;   // never a message box
        ASSERT_EQ(graphics_open(0, 0, "gfx window test", nullptr), 1);
        report_message_box = nullptr;
    }
};
static testing::Environment *const environment =
    testing::AddGlobalTestEnvironment(new window_environment);

// The pixel at (x, y) with y downwards, from the back buffer, as 0xRRGGBB.
static unsigned pixel(int x, int y)
{
    unsigned char rgb[4] = {0, 0, 0, 0};
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(x, screen_height - 1 - y, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, rgb);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    return rgb[0] << 16 | rgb[1] << 8 | rgb[2];
}

static void clear_black()
{
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    clear_colour_applied = 0;
}

static std::string hex(unsigned v)
{
    char s[16];
    snprintf(s, sizeof s, "%06X", v);
    return s;
}

// ---------------------------------------------------------------------------------------
// Window and initial state

TEST(window, opens_over_the_whole_primary_screen_with_a_gl_context)
{
    SDL_Rect bounds;
    ASSERT_EQ(SDL_GetDisplayBounds(0, &bounds), 0);
    EXPECT_EQ(screen_width, bounds.w);
    EXPECT_EQ(screen_height, bounds.h);
    if (bounds.w == 1920) {
        EXPECT_EQ(bounds.h, 1080) << "the test screen is 1920 x 1080";
    }
    SDL_Window *w = graphics_window();
    ASSERT_NE(w, nullptr);
    int x, y, ww, wh;
    SDL_GetWindowPosition(w, &x, &y);
    SDL_GetWindowSize(w, &ww, &wh);
    EXPECT_EQ(x, bounds.x);
    EXPECT_EQ(y, bounds.y);
    EXPECT_EQ(ww, bounds.w);
    EXPECT_EQ(wh, bounds.h);
    Uint32 flags = SDL_GetWindowFlags(w);
    EXPECT_TRUE(flags & SDL_WINDOW_BORDERLESS);
    EXPECT_FALSE(flags & SDL_WINDOW_RESIZABLE);
    EXPECT_FALSE(flags & SDL_WINDOW_FULLSCREEN) << "no display-mode change for mode 0";
    EXPECT_EQ(SDL_ShowCursor(SDL_QUERY), SDL_DISABLE) << "full screen hides the cursor";

    EXPECT_NE(SDL_GL_GetCurrentContext(), nullptr);
    GLboolean doublebuffer = GL_FALSE;
    glGetBooleanv(GL_DOUBLEBUFFER, &doublebuffer);
    EXPECT_TRUE(doublebuffer);
    GLint red = 0, green = 0, blue = 0, depth = 0;
    glGetIntegerv(GL_RED_BITS, &red);
    glGetIntegerv(GL_GREEN_BITS, &green);
    glGetIntegerv(GL_BLUE_BITS, &blue);
    glGetIntegerv(GL_DEPTH_BITS, &depth);
    EXPECT_EQ(red, 8);
    EXPECT_EQ(green, 8);
    EXPECT_EQ(blue, 8);
    EXPECT_GE(depth, 24);
    EXPECT_GE(gl_version(), 1.1);
    EXPECT_EQ(gl_version(), atof((const char *)glGetString(GL_VERSION)));

    EXPECT_NE(report_graphics_close, nullptr);
    EXPECT_EQ(report_graphics_close, &graphics_close);
}

TEST(window, initial_gl_state_and_pixel_projection)
{
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST));
    EXPECT_TRUE(glIsEnabled(GL_COLOR_MATERIAL));
    EXPECT_TRUE(glIsEnabled(0x884F)) << "seamless cube maps";
    GLint v = 0;
    glGetIntegerv(GL_DEPTH_FUNC, &v);
    EXPECT_EQ(v, GL_LEQUAL);
    glGetIntegerv(GL_SHADE_MODEL, &v);
    EXPECT_EQ(v, GL_SMOOTH);
    glGetIntegerv(GL_MATRIX_MODE, &v);
    EXPECT_EQ(v, GL_MODELVIEW);
    GLfloat clear[4] = {1, 1, 1, 1}, depth = 0;
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
    glGetFloatv(GL_DEPTH_CLEAR_VALUE, &depth);
    for (float c : clear) EXPECT_EQ(c, 0.0f);
    EXPECT_EQ(depth, 1.0f);
    EXPECT_EQ(clear_colour_applied, 0x01000000u) << "no frame has applied a clear colour yet";

    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(viewport[2], screen_width);
    EXPECT_EQ(viewport[3], screen_height);
    float m[16];   // GL keeps its matrices in single precision
    glGetFloatv(GL_PROJECTION_MATRIX, m);
    float w = screen_width, h = screen_height, half = screen_height / 2;
    EXPECT_FLOAT_EQ(m[0], 2 / w);
    EXPECT_FLOAT_EQ(m[5], -2 / h);              // y points down
    EXPECT_FLOAT_EQ(m[10], -2 / (-half - half)); // depth range +-h/2
    EXPECT_FLOAT_EQ(m[12], -1);
    EXPECT_FLOAT_EQ(m[13], 1);                  // origin at the top-left pixel
    EXPECT_NEAR(pixel_size(), 1.0, 1e-6);
}

TEST(window, resize_view_perspective_and_height_floor)
{
    ortho_mode = 0;
    resize_view(1920, 1080);
    float m[16];
    glGetFloatv(GL_PROJECTION_MATRIX, m);
    unsigned b10, b14;
    memcpy(&b10, &m[10], 4);
    memcpy(&b14, &m[14], 4);
    EXPECT_EQ(b10, 0xBF80068Du);
    EXPECT_EQ(b14, 0xBE4CD20Bu);
    EXPECT_FLOAT_EQ(m[0], 0.75f);
    EXPECT_FLOAT_EQ(m[5], 4.0f / 3.0f);
    EXPECT_EQ(m[11], -1.0f);
    GLint mode;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    EXPECT_EQ(mode, GL_MODELVIEW);
    ortho_mode = 1;

    resize_view(800, 0);
    EXPECT_EQ(screen_width, 800);
    EXPECT_EQ(screen_height, 1);
    resize_view(0, 600);
    EXPECT_EQ(screen_width, 0);
    EXPECT_EQ(screen_height, 600);
    SDL_Rect b;
    SDL_GetDisplayBounds(0, &b);
    reset_gl(b.w, b.h);
    EXPECT_EQ(screen_width, b.w);
    EXPECT_EQ(screen_height, b.h);
}

// ---------------------------------------------------------------------------------------
// 2-D primitives

TEST(drawing, line_lands_on_its_pixels_and_leaves_lighting_as_it_was)
{
    clear_black();
    glEnable(GL_LIGHTING);   // a lit line would come out dark
    draw_line(10.5, 20.5, 110.5, 20.5, 0xFF0000);
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));
    glDisable(GL_LIGHTING);
    draw_line(10.5, 40.5, 110.5, 40.5, 0x00FF00);
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    for (int x = 12; x <= 108; x += 8) {
        EXPECT_EQ(hex(pixel(x, 20)), "FF0000") << "x " << x;
        EXPECT_EQ(hex(pixel(x, 19)), "000000") << "x " << x;
        EXPECT_EQ(hex(pixel(x, 21)), "000000") << "x " << x;
        EXPECT_EQ(hex(pixel(x, 40)), "00FF00") << "x " << x;
    }
    EXPECT_EQ(hex(pixel(5, 20)), "000000");
    EXPECT_EQ(hex(pixel(115, 20)), "000000");
    // a vertical line and a point
    draw_line(300.5, 10.5, 300.5, 60.5, 0x123456);
    draw_point(400.5, 400.5, 0xABCDEF);
    EXPECT_EQ(hex(pixel(300, 30)), "123456");
    EXPECT_EQ(hex(pixel(301, 30)), "000000");
    EXPECT_EQ(hex(pixel(400, 400)), "ABCDEF");
    EXPECT_EQ(hex(pixel(401, 400)), "000000");
}

TEST(drawing, filled_circle_and_rectangles_cover_their_pixels)
{
    clear_black();
    fill_circle(300, 300, 50, 0x0000FF);
    fill_rect(400, 100, 50, 30, 0x00FF00);
    outline_rect(600.5, 100.5, 40, 20, 0xFFFF00);
    const struct { int x, y; const char *colour; } expect[] = {
        {300, 300, "0000FF"}, {300, 255, "0000FF"}, {255, 300, "0000FF"}, {344, 300, "0000FF"},
        {300, 344, "0000FF"}, {300, 356, "000000"}, {356, 300, "000000"}, {340, 340, "000000"},
        {400, 100, "00FF00"}, {449, 129, "00FF00"}, {425, 115, "00FF00"}, {399, 100, "000000"},
        {450, 100, "000000"}, {400, 130, "000000"}, {400, 99, "000000"},
        {600, 100, "FFFF00"}, {640, 120, "FFFF00"}, {620, 100, "FFFF00"}, {620, 110, "000000"},
    };
    for (const auto &e : expect)
        EXPECT_EQ(hex(pixel(e.x, e.y)), e.colour) << "(" << e.x << ", " << e.y << ")";
}

// Triangles and lines that reach GL, counted in feedback mode.
struct primitive_count { int triangles, lines, points; };
static primitive_count count_primitives(void (*draw)())
{
    static GLfloat buffer[1 << 16];
    glFeedbackBuffer(1 << 16, GL_2D, buffer);
    glRenderMode(GL_FEEDBACK);
    draw();
    int n = glRenderMode(GL_RENDER);
    primitive_count c = {0, 0, 0};
    for (int i = 0; i < n;) {
        int token = (int)buffer[i];
        if (token == GL_POLYGON_TOKEN) {
            int vertices = (int)buffer[i + 1];
            c.triangles += vertices - 2;
            i += 2 + 2 * vertices;
        } else if (token == GL_LINE_TOKEN || token == GL_LINE_RESET_TOKEN) {
            c.lines++;
            i += 5;
        } else if (token == GL_POINT_TOKEN) {
            c.points++;
            i += 3;
        } else {
            i += 2;   // pass-through and bitmap tokens
        }
    }
    return c;
}

TEST(drawing, circle_segment_rule_and_culling_reach_gl)
{
    const struct { const char *what; void (*draw)(); int triangles, lines; } cases[] = {
        {"disc of radius 100: 50 segments", [] { fill_circle(500, 500, 100, 0xFFFFFF); }, 50, 0},
        {"disc of radius 50: 35 segments", [] { fill_circle(500, 500, 50, 0xFFFFFF); }, 35, 0},
        {"disc off the left edge is skipped", [] { fill_circle(-200, 50, 100, 0xFFFFFF); }, 0, 0},
        {"outline of radius 100: 50 lines", [] { outline_circle(500, 500, 100, 0xFFFFFF); }, 0, 50},
        {"outline off screen is skipped", [] { outline_circle(500, -300, 100, 0xFFFFFF); }, 0, 0},
        {"huge outline containing the screen is skipped",
         [] { outline_circle(960, 540, 5000, 0xFFFFFF); }, 0, 0},
        {"ellipse uses the larger radius", [] { outline_ellipse(500, 500, 25, 100, 0xFFFFFF); }, 0, 50},
        {"half-turn arc of radius 100: 25 lines",
         [] { draw_arc(500, 500, 100, 0, M_PI, 0xFFFFFF); }, 0, 25},
        {"quarter sector, fan", [] { fill_sector(500, 500, 0, 100, 0, M_PI / 2, 0xFFFFFF, 255); }, 12, 0},
        {"quarter sector, band", [] { fill_sector(500, 500, 50, 100, 0, M_PI / 2, 0xFFFFFF, 255); }, 24, 0},
        {"rectangle", [] { fill_rect(10, 10, 20, 20, 0xFFFFFF); }, 2, 0},
        {"box outline", [] { outline_box(10, 10, 30, 40, 0xFFFFFF); }, 0, 4},
    };
    for (const auto &c : cases) {
        primitive_count got = count_primitives(c.draw);
        EXPECT_EQ(got.triangles, c.triangles) << c.what;
        EXPECT_EQ(got.lines, c.lines) << c.what;
    }
    cull_offscreen = 0;
    EXPECT_EQ(count_primitives([] { fill_circle(-200, 50, 100, 0xFFFFFF); }).triangles, 0)
        << "clipped by GL anyway";
    EXPECT_EQ(count_primitives([] { fill_circle(-50, 50, 100, 0xFFFFFF); }).triangles > 0, true);
    cull_offscreen = 1;
    // a scaled modelview changes the pixel size and so the segment count
    glPushMatrix();
    glScalef(4, 4, 1);
    EXPECT_EQ(count_primitives([] { fill_circle(100, 100, 25, 0xFFFFFF); }).triangles, 50);
    glPopMatrix();
}

TEST(drawing, clip_stack_limits_drawing_and_reads_back)
{
    clear_black();
    push_clip(100, 100, 300, 200);
    push_clip(250, 50, 400, 150);   // intersected: 250..300 x 100..150
    int r[4];
    get_clip(r);
    EXPECT_EQ(r[0], 250);
    EXPECT_EQ(r[1], 100);
    EXPECT_EQ(r[2], 300);
    EXPECT_EQ(r[3], 150);
    fill_rect(0, 0, screen_width, screen_height, 0xFF00FF);
    EXPECT_EQ(hex(pixel(250, 100)), "FF00FF");
    EXPECT_EQ(hex(pixel(299, 149)), "FF00FF");
    EXPECT_EQ(hex(pixel(249, 120)), "000000");
    EXPECT_EQ(hex(pixel(300, 120)), "000000");
    EXPECT_EQ(hex(pixel(260, 150)), "000000");
    pop_clip();
    EXPECT_TRUE(glIsEnabled(GL_SCISSOR_TEST));
    get_clip(r);
    EXPECT_EQ(r[0], 100);
    EXPECT_EQ(r[3], 200);
    pop_clip();
    EXPECT_FALSE(glIsEnabled(GL_SCISSOR_TEST));
    pop_clip();   // on an empty stack: nothing
    EXPECT_FALSE(glIsEnabled(GL_SCISSOR_TEST));

    // clear_rect takes GL window coordinates (y up) and leaves no scissor behind
    fill_rect(0, 0, 100, 100, 0xFFFFFF);
    clear_rect(0, screen_height - 50, 50, 50);   // the top-left 50 x 50 on screen
    EXPECT_EQ(hex(pixel(10, 10)), "000000");
    EXPECT_EQ(hex(pixel(60, 10)), "FFFFFF");
    EXPECT_EQ(hex(pixel(10, 60)), "FFFFFF");
    EXPECT_FALSE(glIsEnabled(GL_SCISSOR_TEST));
}

TEST(drawing, palette_colours_and_soft_disc)
{
    clear_black();
    const struct { int index; const char *colour; } cases[] = {
        {12, "FF0000"}, {4, "800000"}, {8, "404040"}, {15, "FFFFFF"}, {39, "FFFFFF"},
        {45, "FF0000"}, {76, "000033"},
    };
    int x = 10;
    for (const auto &c : cases) {
        set_palette_colour(c.index);
        glBegin(GL_QUADS);
        glVertex2d(x, 500);
        glVertex2d(x + 10, 500);
        glVertex2d(x + 10, 510);
        glVertex2d(x, 510);
        glEnd();
        EXPECT_EQ(hex(pixel(x + 5, 505)), c.colour) << "palette index " << c.index;
        x += 20;
    }
    // soft disc: opaque inside, faded at the rim, blending state restored
    soft_disc(800, 800, 40, 10, 0xFFFFFF, 255);
    EXPECT_EQ(hex(pixel(800, 800)), "FFFFFF");
    unsigned rim = pixel(835, 800) & 0xFF;
    EXPECT_GT(rim, 40u);
    EXPECT_LT(rim, 215u);
    EXPECT_EQ(hex(pixel(842, 800)), "000000");
    EXPECT_FALSE(glIsEnabled(GL_BLEND));
}

TEST(drawing, overlay_over_a_perspective_scene_and_camera_helpers)
{
    clear_black();
    set_perspective(90, 1, 100);
    EXPECT_NEAR(field_of_view_x(), 90.0, 1e-3);
    set_field_of_view(60);
    EXPECT_NEAR(field_of_view_43(), 60.0, 1e-3);
    set_depth_range(2, 20);
    float before[16];
    glGetFloatv(GL_PROJECTION_MATRIX, before);
    EXPECT_FLOAT_EQ(before[10], 22.0f / -18.0f);
    EXPECT_FLOAT_EQ(before[14], 80.0f / -18.0f);
    set_perspective_43(60, 1, 100);
    EXPECT_NEAR(field_of_view_43(), 60.0, 1e-3);
    glGetFloatv(GL_PROJECTION_MATRIX, before);
    GLint mode;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    EXPECT_EQ(mode, GL_MODELVIEW);

    glTranslatef(0, 0, -5);
    overlay_begin();   // flat drawing in pixels, whatever the scene's matrices
    EXPECT_FALSE(glIsEnabled(GL_DEPTH_TEST));
    fill_rect(10, 10, 10, 10, 0x00FFFF);
    EXPECT_NEAR(pixel_size(), 1.0, 1e-6);
    overlay_end();
    EXPECT_EQ(hex(pixel(15, 15)), "00FFFF");
    EXPECT_EQ(hex(pixel(21, 15)), "000000");
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST));
    GLboolean writes = GL_FALSE;
    glGetBooleanv(GL_DEPTH_WRITEMASK, &writes);
    EXPECT_TRUE(writes);
    float after[16];
    glGetFloatv(GL_PROJECTION_MATRIX, after);
    EXPECT_EQ(memcmp(before, after, sizeof before), 0) << "the scene's projection is back";
    double mv[16];
    glGetDoublev(GL_MODELVIEW_MATRIX, mv);
    EXPECT_EQ(mv[14], -5.0) << "and its modelview";
    glLoadIdentity();
    resize_view(screen_width, screen_height);
}

// ---------------------------------------------------------------------------------------
// Frame protocol

TEST(frame, clear_colour_is_handed_to_gl_only_when_it_changes)
{
    clear_colour_applied = 0x01000000;
    end_frame(0x336699);
    EXPECT_EQ(clear_colour_applied, 0x336699u);
    EXPECT_EQ(hex(pixel(5, 5)), "336699");
    EXPECT_EQ(hex(pixel(screen_width - 1, screen_height - 1)), "336699");

    glClearColor(1, 0, 0, 0);   // behind the layer's back
    end_frame(0x336699);        // same colour: GL's clear colour is not set again
    EXPECT_EQ(hex(pixel(5, 5)), "FF0000");

    end_frame(0x00FF00);
    EXPECT_EQ(hex(pixel(5, 5)), "00FF00");
    // only the low 24 bits reach GL, but the whole value is remembered
    end_frame(0x000000);
    EXPECT_EQ(hex(pixel(5, 5)), "000000");
    GLint mode;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    EXPECT_EQ(mode, GL_MODELVIEW);
    glTranslatef(5, 5, 0);
    end_frame(0);
    double m[16];
    glGetDoublev(GL_MODELVIEW_MATRIX, m);
    EXPECT_EQ(m[12], 0.0) << "each frame starts from the identity";
}

TEST(frame, twice_and_no_clear_variants)
{
    end_frame_twice(0x204060);
    EXPECT_EQ(clear_colour_applied, 0x204060u);
    EXPECT_EQ(hex(pixel(100, 100)), "204060");

    glTranslatef(5, 5, 0);
    end_frame_no_clear();   // later drawing goes straight to the visible buffer
    GLint buffer = 0;
    glGetIntegerv(GL_DRAW_BUFFER, &buffer);
    EXPECT_EQ(buffer, GL_FRONT);
    double m[16];
    glGetDoublev(GL_MODELVIEW_MATRIX, m);
    EXPECT_EQ(m[12], 0.0);
    glDrawBuffer(GL_BACK);
    end_frame(0);
}

// ---------------------------------------------------------------------------------------
// Textures

static std::vector<unsigned char> random_bytes(size_t n, unsigned seed)
{
    std::vector<unsigned char> v(n);
    for (auto &b : v) b = (unsigned char)((seed = seed * 1103515245u + 12345u) >> 16);
    return v;
}

static void level_size(int level, int *w, int *h)
{
    glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_WIDTH, w);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_HEIGHT, h);
}

static const int chain_64_by_16[7][2] = {{64, 16}, {32, 8}, {16, 4}, {8, 2}, {4, 1}, {2, 1}, {1, 1}};

TEST(textures, generate_mipmaps_gives_every_level)
{
    GLuint t;
    glGenTextures(1, &t);
    glBindTexture(GL_TEXTURE_2D, t);
    std::vector<unsigned char> img = random_bytes(64 * 16 * 3, 3);
    upload_texture(GL_TEXTURE_2D, 3, 64, 16, img.data());
    EXPECT_EQ(gl_has_mipmap_generation, 1) << "Mesa offers mipmap generation";
    for (int level = 0; level < 7; ++level) {
        int w = 0, h = 0;
        level_size(level, &w, &h);
        EXPECT_EQ(w, chain_64_by_16[level][0]) << "level " << level;
        EXPECT_EQ(h, chain_64_by_16[level][1]) << "level " << level;
    }
    int w = -1, h = -1;
    level_size(7, &w, &h);
    EXPECT_EQ(w, 0);
    glDeleteTextures(1, &t);
}

// Reads a level back as `components` bytes a texel, rows padded to 4.
static std::vector<unsigned char> read_level(int level, int w, int h, int components)
{
    std::vector<unsigned char> v((size_t)((w * components + 3) & ~3) * h);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glGetTexImage(GL_TEXTURE_2D, level, texture_pixel_formats[components], GL_UNSIGNED_BYTE, v.data());
    return v;
}

TEST(textures, software_chain_matches_the_block_rule_level_by_level)
{
    int saved = gl_has_mipmap_generation;
    gl_has_mipmap_generation = 0;   // as on a driver without mipmap generation
    for (int components = 1; components <= 4; ++components) {
        GLuint t;
        glGenTextures(1, &t);
        glBindTexture(GL_TEXTURE_2D, t);
        std::vector<unsigned char> img = random_bytes(64 * 16 * 4, 10 + components);
        upload_texture(GL_TEXTURE_2D, components, 64, 16, img.data());
        std::vector<unsigned char> want = read_level(0, 64, 16, components);
        for (int level = 1; level < 7; ++level) {
            int pw = chain_64_by_16[level - 1][0], ph = chain_64_by_16[level - 1][1];
            int w = chain_64_by_16[level][0], h = chain_64_by_16[level][1];
            std::vector<unsigned char> next((size_t)((w * components + 3) & ~3) * h);
            mipmap_halve(want.data(), pw, ph, components, next.data());
            int gw = 0, gh = 0;
            level_size(level, &gw, &gh);
            ASSERT_EQ(gw, w) << components << " components, level " << level;
            ASSERT_EQ(gh, h) << components << " components, level " << level;
            std::vector<unsigned char> got = read_level(level, w, h, components);
            int stride = (w * components + 3) & ~3;
            for (int y = 0; y < h; ++y)
                for (int i = 0; i < w * components; ++i)
                    ASSERT_EQ(got[y * stride + i], next[y * stride + i])
                        << components << " components, level " << level << ", row " << y << ", byte " << i;
            want = next;
        }
        glDeleteTextures(1, &t);
    }
    gl_has_mipmap_generation = saved;
}

TEST(textures, sized_rgba_level_is_rebuilt_as_rgb)
{
    int saved = gl_has_mipmap_generation;
    gl_has_mipmap_generation = 0;
    texture_unsized_formats = 0;
    GLuint t;
    glGenTextures(1, &t);
    glBindTexture(GL_TEXTURE_2D, t);
    std::vector<unsigned char> img = random_bytes(8 * 8 * 4, 99);
    upload_texture(GL_TEXTURE_2D, 4, 8, 8, img.data());
    GLint internal = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &internal);
    EXPECT_EQ(internal, GL_RGBA8);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 1, GL_TEXTURE_INTERNAL_FORMAT, &internal);
    EXPECT_EQ(internal, GL_RGB8) << "a sized format counts as RGB";
    std::vector<unsigned char> rgb = read_level(0, 8, 8, 3);
    std::vector<unsigned char> want(4 * 3 * 4);
    mipmap_halve(rgb.data(), 8, 8, 3, want.data());
    EXPECT_EQ(read_level(1, 4, 4, 3), want);
    texture_unsized_formats = 1;
    gl_has_mipmap_generation = saved;
    glDeleteTextures(1, &t);
}

TEST(textures, screen_rectangle_copied_into_a_texture)
{
    clear_black();
    fill_rect(10, 10, 16, 8, 0x11AA55);
    fill_rect(10, 18, 16, 8, 0x2200FF);
    GLuint t = copy_screen_to_texture(10, 10, 16, 16, 0, 0);
    ASSERT_NE(t, 0u);
    GLint internal = 0, filter = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &internal);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &filter);
    EXPECT_EQ(internal, GL_RGB8);
    EXPECT_EQ(filter, GL_LINEAR_MIPMAP_LINEAR);
    std::vector<unsigned char> texels = read_level(0, 16, 16, 3);
    // texture rows run upwards: row 0 is the bottom of the rectangle on screen
    EXPECT_EQ(texels[0], 0x22);
    EXPECT_EQ(texels[2], 0xFF);
    EXPECT_EQ(texels[15 * 48 + 0], 0x11);
    EXPECT_EQ(texels[15 * 48 + 1], 0xAA);
    int w = 0, h = 0;
    level_size(4, &w, &h);
    EXPECT_EQ(w, 1) << "mipmaps were built";
    // copying again into the same texture replaces level 0
    fill_rect(10, 10, 16, 16, 0xFFFFFF);
    EXPECT_EQ(copy_screen_to_texture(10, 10, 16, 16, 0, t), t);
    EXPECT_EQ(read_level(0, 16, 16, 3)[0], 0xFF);
    glDeleteTextures(1, &t);
    anisotropic_filtering(GL_TEXTURE_2D);
    EXPECT_EQ(gl_has_anisotropy, 1);
    EXPECT_EQ(swap_interval(0) == 0 || swap_interval(0) == 1, true) << "a refusal is not an error";
}

TEST(textures, cube_faces_in_order_and_blend_equation)
{
    GLuint t;
    glGenTextures(1, &t);
    glBindTexture(GL_TEXTURE_CUBE_MAP, t);
    std::vector<unsigned char> faces[6];
    const void *data[6];
    for (int i = 0; i < 6; ++i) {
        faces[i].assign(8 * 8 * 3, (unsigned char)(40 * i + 1));
        data[i] = faces[i].data();
    }
    upload_cube_texture(3, 8, data);
    const unsigned targets[6] = {GL_TEXTURE_CUBE_MAP_POSITIVE_X, GL_TEXTURE_CUBE_MAP_NEGATIVE_X,
                                 GL_TEXTURE_CUBE_MAP_POSITIVE_Y, GL_TEXTURE_CUBE_MAP_NEGATIVE_Y,
                                 GL_TEXTURE_CUBE_MAP_POSITIVE_Z, GL_TEXTURE_CUBE_MAP_NEGATIVE_Z};
    for (int i = 0; i < 6; ++i) {
        unsigned char texel[8 * 8 * 3];
        glPixelStorei(GL_PACK_ALIGNMENT, 4);
        glGetTexImage(targets[i], 0, GL_RGB, GL_UNSIGNED_BYTE, texel);
        EXPECT_EQ(texel[0], 40 * i + 1) << "face " << i;
    }
    while (glGetError() != GL_NO_ERROR) {
    }
    glDeleteTextures(1, &t);

    blend_equation(GL_FUNC_REVERSE_SUBTRACT);
    GLint equation = 0;
    glGetIntegerv(GL_BLEND_EQUATION_RGB, &equation);
    EXPECT_EQ(equation, GL_FUNC_REVERSE_SUBTRACT);
    blend_equation(GL_FUNC_ADD);
    blend_func_separate(GL_SRC_ALPHA, GL_ONE, GL_ZERO, GL_ONE);
    GLint alpha_source = -1;
    glGetIntegerv(GL_BLEND_SRC_ALPHA, &alpha_source);
    EXPECT_EQ(alpha_source, GL_ZERO);
    glBlendFunc(GL_ONE, GL_ZERO);
}

// ---------------------------------------------------------------------------------------
// Screenshots

static std::vector<unsigned char> read_file(const std::string &name)
{
    std::vector<unsigned char> bytes;
    FILE *f = fopen(name.c_str(), "rb");
    if (!f) return bytes;
    fseek(f, 0, SEEK_END);
    bytes.resize(ftell(f));
    fseek(f, 0, SEEK_SET);
    if (fread(bytes.data(), 1, bytes.size(), f) != bytes.size()) bytes.clear();
    fclose(f);
    return bytes;
}

static double twelve_seconds() { return 12.0; }

TEST(screenshot, bmp_holds_the_drawn_pixels_and_converts_with_magick)
{
    char tmpl[] = "/tmp/gfx_shot_XXXXXX";
    std::string dir = mkdtemp(tmpl);
    char *cwd = getcwd(nullptr, 0);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    std::string old_path = getenv("PATH");
    double (*saved_clock)() = time_now;
    time_now = twelve_seconds;

    clear_black();
    fill_rect(0, 0, 100, 50, 0xFF0000);                                   // top left
    fill_rect(screen_width - 100, screen_height - 50, 100, 50, 0x0000FF); // bottom right
    fill_rect(500, 300, 7, 3, 0x12AB34);

    setenv("PATH", dir.c_str(), 1);   // no converter: the BMP stays
    save_screenshot("gfxshot");
    std::vector<unsigned char> bmp = read_file("gfxshot_00040.bmp");
    int stride = bmp_row_stride(screen_width);
    ASSERT_EQ(bmp.size(), 54u + (size_t)stride * screen_height);
    unsigned char header[54];
    bmp_header(header, screen_width, screen_height);
    EXPECT_EQ(memcmp(bmp.data(), header, 54), 0);
    auto at = [&](int x, int y) {   // y downwards on screen; the file runs bottom-up, BGR
        const unsigned char *p = bmp.data() + 54 + (size_t)(screen_height - 1 - y) * stride + 3 * x;
        return (unsigned)(p[2] << 16 | p[1] << 8 | p[0]);
    };
    EXPECT_EQ(hex(at(0, 0)), "FF0000");
    EXPECT_EQ(hex(at(99, 49)), "FF0000");
    EXPECT_EQ(hex(at(100, 49)), "000000");
    EXPECT_EQ(hex(at(screen_width - 1, screen_height - 1)), "0000FF");
    EXPECT_EQ(hex(at(503, 301)), "12AB34");
    EXPECT_EQ(hex(at(503, 303)), "000000");
    unsigned char *direct = read_screen_rect(0, 0, screen_width, screen_height);
    EXPECT_EQ(memcmp(bmp.data() + 54, direct, (size_t)stride * screen_height), 0);
    free(direct);
    unsigned char *part = read_screen_rect(500, 300, 7, 3);   // 21 bytes a row, padded to 24
    EXPECT_EQ(part[0], 0x34);
    EXPECT_EQ(part[2 * 24 + 6 * 3 + 2], 0x12);
    free(part);

    // a stand-in "magick" that copies its input to its output
    std::string tool = dir + "/magick";
    FILE *f = fopen(tool.c_str(), "w");
    fputs("#!/bin/sh\n[ \"$1 $2\" = \"-quality 95\" ] && cp \"$3\" \"$4\"\n", f);
    fclose(f);
    chmod(tool.c_str(), 0755);
    setenv("PATH", (dir + ":" + old_path).c_str(), 1);
    remove("gfxshot_00040.bmp");
    save_screenshot("gfxshot");
    EXPECT_FALSE(file_exists("gfxshot_00040.bmp")) << "the BMP goes once the PNG is there";
    EXPECT_EQ(read_file("gfxshot_00040.png"), bmp);

    save_screen_rect(0, 0, 10, 10, "corner.bmp", 0);
    std::vector<unsigned char> corner = read_file("corner.bmp");
    ASSERT_EQ(corner.size(), 54u + 32u * 10u);
    EXPECT_EQ(corner[54 + 2], 0xFF);   // red in the bottom row of the rectangle

    setenv("PATH", old_path.c_str(), 1);
    time_now = saved_clock;
    EXPECT_EQ(chdir(cwd), 0);
    free(cwd);
    (void)!system(("rm -rf " + dir).c_str());
}

// ---------------------------------------------------------------------------------------
// Events fed through the pump

static void push_key(Uint32 type, SDL_Scancode scancode, int repeat = 0, Uint16 mod = 0)
{
    SDL_Event e = {};
    e.type = type;
    e.key.windowID = SDL_GetWindowID(graphics_window());
    e.key.state = type == SDL_KEYDOWN ? SDL_PRESSED : SDL_RELEASED;
    e.key.repeat = (Uint8)repeat;
    e.key.keysym.scancode = scancode;
    e.key.keysym.mod = mod;
    SDL_PushEvent(&e);
}

static void drain()
{
    for (int i = 0; i < 5; ++i) pump_events();
}

TEST(events, quick_tap_counts_for_one_frame_and_repeats_change_nothing)
{
    drain();
    push_key(SDL_KEYDOWN, SDL_SCANCODE_K);
    push_key(SDL_KEYUP, SDL_SCANCODE_K);
    EXPECT_EQ(pump_events(), 0);
    EXPECT_TRUE(key_pressed('K'));
    pump_events();
    EXPECT_FALSE(key_held('K'));
    EXPECT_TRUE(key_state_previous['K'] & 0x80);
    pump_events();
    EXPECT_FALSE(key_state_previous['K'] & 0x80);

    push_key(SDL_KEYDOWN, SDL_SCANCODE_J, 1);   // auto-repeat of a key not held
    pump_events();
    EXPECT_FALSE(key_held('J'));

    // a test may also set the snapshot directly
    key_state[VK_F1] = 0x80;
    EXPECT_TRUE(key_pressed(VK_F1));
    pump_events();
    EXPECT_FALSE(key_held(VK_F1));
}

TEST(events, quick_tap_keeps_the_modifier_held_when_it_went_down)
{
    // Ctrl was down when S went down, but both are up again by the pump: the snapshot still
    // shows Ctrl and S down together, so a quick Ctrl+S on a slow frame stays a Ctrl+S.
    drain();
    push_key(SDL_KEYDOWN, SDL_SCANCODE_S, 0, KMOD_LCTRL);
    push_key(SDL_KEYUP, SDL_SCANCODE_S);
    pump_events();
    EXPECT_TRUE(key_pressed('S'));
    EXPECT_TRUE(key_held(VK_CONTROL));
    EXPECT_TRUE(key_held(VK_LCONTROL));
    EXPECT_FALSE(key_held(VK_SHIFT));
    pump_events();
    EXPECT_FALSE(key_held('S'));
    EXPECT_FALSE(key_held(VK_CONTROL));
}

TEST(events, text_wheel_and_buttons)
{
    drain();
    typed_text[0] = 0;
    SDL_Event e = {};
    e.type = SDL_TEXTINPUT;
    strcpy(e.text.text, "hi!");
    SDL_PushEvent(&e);
    pump_events();
    EXPECT_STREQ(typed_text, "hi!");
    EXPECT_EQ(next_typed_char(), 'h');

    // the wheel bits last exactly one frame
    e = {};
    e.type = SDL_MOUSEWHEEL;
    e.wheel.y = 1;
    SDL_PushEvent(&e);
    pump_events();
    EXPECT_EQ(mouse_buttons & 0x0C, 0x04u);
    pump_events();
    EXPECT_EQ(mouse_buttons & 0x0C, 0u);
    EXPECT_EQ(mouse_buttons_previous & 0x0C, 0x04u);
    e.wheel.y = -3;
    SDL_PushEvent(&e);
    pump_events();
    EXPECT_EQ(mouse_buttons & 0x0C, 0x08u);

    // a button held since before the window is ignored until all buttons were up once
    mouse_click_suppressed = 1;
    mouse_buttons = 0;
    mouse_raw_buttons = 0;
    e = {};
    e.type = SDL_MOUSEBUTTONDOWN;
    e.button.button = SDL_BUTTON_LEFT;
    e.button.x = 100;
    e.button.y = 200;
    SDL_PushEvent(&e);
    pump_events();
    EXPECT_EQ(mouse_x, 100);
    EXPECT_EQ(mouse_y, 200);
    EXPECT_EQ(mouse_raw_buttons, 0x01u);
    EXPECT_EQ(mouse_buttons & 0x13, 0u) << "suppressed";
    e.type = SDL_MOUSEBUTTONUP;
    SDL_PushEvent(&e);
    e.type = SDL_MOUSEBUTTONDOWN;
    e.button.button = SDL_BUTTON_RIGHT;
    SDL_PushEvent(&e);
    pump_events();
    EXPECT_EQ(mouse_click_suppressed, 0);
    EXPECT_EQ(mouse_buttons & 0x13, 0x02u);
    EXPECT_FALSE(mouse_buttons_previous & 0x02);   // a press this frame
    e.button.button = SDL_BUTTON_MIDDLE;
    SDL_PushEvent(&e);
    e = {};
    e.type = SDL_MOUSEWHEEL;
    e.wheel.y = 2;
    SDL_PushEvent(&e);
    pump_events();
    EXPECT_EQ(mouse_buttons, 0x02u | 0x10u | 0x04u) << "held buttons and this frame's wheel";
}

TEST(events, size_change_resizes_the_view)
{
    drain();
    SDL_Event e = {};
    e.type = SDL_WINDOWEVENT;
    e.window.event = SDL_WINDOWEVENT_SIZE_CHANGED;
    e.window.windowID = SDL_GetWindowID(graphics_window());
    e.window.data1 = 800;
    e.window.data2 = 0;
    SDL_PushEvent(&e);
    pump_events();
    EXPECT_EQ(screen_width, 800);
    EXPECT_EQ(screen_height, 1);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(viewport[2], 800);
    e.window.data1 = 1024;
    e.window.data2 = 768;
    SDL_PushEvent(&e);
    pump_events();
    EXPECT_EQ(screen_width, 1024);
    EXPECT_EQ(screen_height, 768);
    SDL_Rect b;
    SDL_GetDisplayBounds(0, &b);
    resize_view(b.w, b.h);
}

// Real key presses from the X server, sent with xdotool while the test pumps frames.
// SDL lets go of every key when its window loses the focus, so this case runs again on
// an X server of its own, where no other program's window can take the focus.
TEST(events, keys_from_the_x_server_with_edge_detection)
{
    if (system("command -v xdotool > /dev/null 2>&1") != 0) GTEST_SKIP() << "xdotool missing";
    if (!getenv("GFX_OWN_DISPLAY")) {
        if (system("command -v xvfb-run > /dev/null 2>&1") != 0) GTEST_SKIP() << "xvfb-run missing";
        char self[512];
        ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
        ASSERT_GT(n, 0);
        self[n] = 0;
        std::string log = std::string("/tmp/gfx_keys_") + std::to_string(getpid()) + ".log";
        std::string command = std::string("GFX_OWN_DISPLAY=1 timeout -k 5 60 xvfb-run -a -s "
                                          "'-screen 0 1920x1080x24' '") + self +
                              "' --gtest_filter=events.keys_from_the_x_server_with_edge_detection > " +
                              log + " 2>&1";
        int status = system(command.c_str());
        std::vector<unsigned char> output = read_file(log);
        remove(log.c_str());
        EXPECT_EQ(status, 0) << std::string(output.begin(), output.end());
        return;
    }
    SDL_SysWMinfo info;
    SDL_VERSION(&info.version);
    ASSERT_TRUE(SDL_GetWindowWMInfo(graphics_window(), &info));
    ASSERT_EQ(info.subsystem, SDL_SYSWM_X11);
    unsigned long id = (unsigned long)info.info.x11.window;
    drain();
    char command[256];
    snprintf(command, sizeof command,
             "(xdotool keydown --window %lu z; sleep 0.3; xdotool keyup --window %lu z)"
             " > /dev/null 2>&1 &", id, id);
    ASSERT_EQ(system(command), 0);
    int pressed = 0, held = 0, released = 0;
    Uint32 start = SDL_GetTicks();
    while (SDL_GetTicks() - start < 5000 && !released) {
        pump_events();
        pressed += key_pressed('Z');
        held += key_held('Z');
        released += !key_held('Z') && (key_state_previous['Z'] & 0x80);
        SDL_Delay(12);
    }
    EXPECT_EQ(pressed, 1);
    EXPECT_GE(held, 5) << "held for about 0.3 s";
    EXPECT_EQ(released, 1);

    // a tap shorter than a frame is still seen, once
    drain();
    snprintf(command, sizeof command, "xdotool key --window %lu x > /dev/null 2>&1", id);
    ASSERT_EQ(system(command), 0);
    pressed = 0;
    start = SDL_GetTicks();
    while (SDL_GetTicks() - start < 1000) {
        SDL_Delay(50);   // a slow frame: down and up both happen before the pump
        pump_events();
        pressed += key_pressed('X');
    }
    EXPECT_EQ(pressed, 1);
}

TEST(events, alt_tab_minimises_the_window)
{
    drain();
    push_key(SDL_KEYDOWN, SDL_SCANCODE_LALT);
    push_key(SDL_KEYDOWN, SDL_SCANCODE_TAB);
    pump_events();
    EXPECT_TRUE(key_held(VK_MENU) && key_held(VK_TAB));
    EXPECT_EQ(minimised_by_alt_tab, 1);
    SDL_Delay(100);
    pump_events();
    if (SDL_GetWindowFlags(graphics_window()) & SDL_WINDOW_MINIMIZED) {
        pump_events();
        EXPECT_EQ(minimised_by_alt_tab, 0) << "cleared once the window is seen minimised";
        SDL_RestoreWindow(graphics_window());
    } else {
        // no window manager to carry out the minimising: the pump keeps asking for it
        EXPECT_EQ(minimised_by_alt_tab, 1);
        minimised_by_alt_tab = 0;
    }
    drain();
}

// Last: closing the window ends the program's use of it.
TEST(events, zz_close_and_quit_release_the_context)
{
    drain();
    SDL_Event e = {};
    e.type = SDL_WINDOWEVENT;
    e.window.event = SDL_WINDOWEVENT_CLOSE;
    e.window.windowID = SDL_GetWindowID(graphics_window());
    SDL_PushEvent(&e);
    EXPECT_EQ(pump_events(), 1);
    EXPECT_EQ(quit_requested, 1);
    EXPECT_EQ(SDL_GL_GetCurrentContext(), nullptr);

    quit_requested = 0;
    e = {};
    e.type = SDL_QUIT;
    SDL_PushEvent(&e);
    push_key(SDL_KEYDOWN, SDL_SCANCODE_A);
    EXPECT_EQ(pump_events(), 1);
    EXPECT_EQ(quit_requested, 1);
    EXPECT_EQ(SDL_PeepEvents(nullptr, 8, SDL_PEEKEVENT, SDL_KEYDOWN, SDL_KEYDOWN), 1)
        << "events after the quit stay in the queue";
}
