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
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <vector>

static int print_record(report_record *r)
{
    fprintf(stderr, "report %d %s:%d %s\n", r->type, r->source, r->line, r->message ? r->message : "");
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

static std::string hex(unsigned v)
{
    char s[16];
    snprintf(s, sizeof s, "%06X", v);
    return s;
}

struct expected_pixel {
    int x, y;
    const char *colour;
};
static void expect_pixels(std::initializer_list<expected_pixel> want)
{
    for (const expected_pixel &e : want) EXPECT_EQ(hex(pixel(e.x, e.y)), e.colour) << "(" << e.x << ", " << e.y << ")";
}

static void clear_black()
{
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    clear_colour_applied = 0;
}

static GLint gl_int(GLenum name)
{
    GLint v = 0;
    glGetIntegerv(name, &v);
    return v;
}

static std::vector<float> gl_matrix(GLenum which)   // GL keeps its matrices in single precision
{
    std::vector<float> m(16);
    glGetFloatv(which, m.data());
    return m;
}

static std::vector<unsigned char> read_file(const std::string &name)
{
    std::ifstream in(name, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

// ---------------------------------------------------------------------------------------
// Window and initial state

TEST(window, opens_over_the_whole_primary_screen_with_a_gl_context)
{
    SDL_Rect b, w;
    ASSERT_EQ(SDL_GetDisplayBounds(0, &b), 0);
    EXPECT_TRUE(b.w != 1920 || b.h == 1080) << "the test screen is 1920 x 1080";
    SDL_Window *window = graphics_window();
    ASSERT_NE(window, nullptr);
    SDL_GetWindowPosition(window, &w.x, &w.y);
    SDL_GetWindowSize(window, &w.w, &w.h);
    EXPECT_EQ(std::make_tuple(w.x, w.y, w.w, w.h, screen_width, screen_height),
              std::make_tuple(b.x, b.y, b.w, b.h, b.w, b.h));
    Uint32 flags = SDL_GetWindowFlags(window);
    EXPECT_TRUE(flags & SDL_WINDOW_BORDERLESS);
    EXPECT_FALSE(flags & SDL_WINDOW_RESIZABLE);
    EXPECT_FALSE(flags & SDL_WINDOW_FULLSCREEN) << "no display-mode change for mode 0";
    EXPECT_EQ(SDL_ShowCursor(SDL_QUERY), SDL_DISABLE) << "full screen hides the cursor";

    EXPECT_NE(SDL_GL_GetCurrentContext(), nullptr);
    EXPECT_TRUE(gl_int(GL_DOUBLEBUFFER));
    EXPECT_EQ(std::make_tuple(gl_int(GL_RED_BITS), gl_int(GL_GREEN_BITS), gl_int(GL_BLUE_BITS)),
              std::make_tuple(8, 8, 8));
    EXPECT_GE(gl_int(GL_DEPTH_BITS), 24);
    EXPECT_GE(gl_version(), 1.1);
    EXPECT_EQ(gl_version(), atof((const char *)glGetString(GL_VERSION)));
    EXPECT_EQ(report_graphics_close, &graphics_close);
}

TEST(window, initial_gl_state_and_pixel_projection)
{
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST) && glIsEnabled(GL_COLOR_MATERIAL));
    EXPECT_TRUE(glIsEnabled(0x884F)) << "seamless cube maps";
    EXPECT_EQ(std::make_tuple(gl_int(GL_DEPTH_FUNC), gl_int(GL_SHADE_MODEL), gl_int(GL_MATRIX_MODE)),
              std::make_tuple(GL_LEQUAL, GL_SMOOTH, GL_MODELVIEW));
    GLfloat clear[4] = {1, 1, 1, 1}, depth = 0;
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
    glGetFloatv(GL_DEPTH_CLEAR_VALUE, &depth);
    EXPECT_EQ(std::make_tuple(clear[0], clear[1], clear[2], clear[3], depth), std::make_tuple(0, 0, 0, 0, 1));
    EXPECT_EQ(clear_colour_applied, 0x01000000u) << "no frame has applied a clear colour yet";

    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(std::make_tuple(viewport[2], viewport[3]), std::make_tuple(screen_width, screen_height));
    std::vector<float> m = gl_matrix(GL_PROJECTION_MATRIX);
    float w = screen_width, h = screen_height, half = screen_height / 2;
    EXPECT_FLOAT_EQ(m[0], 2 / w);
    EXPECT_FLOAT_EQ(m[5], -2 / h);              // y points down
    EXPECT_FLOAT_EQ(m[10], -2 / (-half - half)); // depth range +-h/2
    EXPECT_FLOAT_EQ(m[12], -1);
    EXPECT_FLOAT_EQ(m[13], 1);                  // origin at the top-left pixel
    EXPECT_NEAR(pixel_size(), 1.0, 1e-6);
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
    for (int x = 12; x <= 108; x += 8)
        expect_pixels({{x, 20, "FF0000"}, {x, 19, "000000"}, {x, 21, "000000"}, {x, 40, "00FF00"}});
    // a vertical line and a point
    draw_line(300.5, 10.5, 300.5, 60.5, 0x123456);
    draw_point(400.5, 400.5, 0xABCDEF);
    expect_pixels({{5, 20, "000000"}, {115, 20, "000000"}, {300, 30, "123456"}, {301, 30, "000000"},
                   {400, 400, "ABCDEF"}, {401, 400, "000000"}});
    // An arc's angle runs clockwise from straight up (y downwards): the quarter from 0 to
    // pi / 2 passes the top and the right of its circle, not the bottom.
    clear_black();
    draw_arc(200.5, 200.5, 40, 0, M_PI / 2, 0xFFFFFF);
    int top = 0, bottom = 0;
    for (int x = 195; x <= 215; x++) top += pixel(x, 160) == 0xFFFFFF, bottom += pixel(x, 240) == 0xFFFFFF;
    EXPECT_GT(top, 3);
    EXPECT_EQ(bottom, 0);
}

TEST(drawing, filled_circle_and_rectangles_cover_their_pixels)
{
    clear_black();
    fill_circle(300, 300, 50, 0x0000FF);
    fill_rect(400, 100, 50, 30, 0x00FF00);
    outline_rect(600.5, 100.5, 40, 20, 0xFFFF00);
    expect_pixels({
        {300, 300, "0000FF"}, {300, 255, "0000FF"}, {255, 300, "0000FF"}, {344, 300, "0000FF"},
        {300, 344, "0000FF"}, {300, 356, "000000"}, {356, 300, "000000"}, {340, 340, "000000"},
        {400, 100, "00FF00"}, {449, 129, "00FF00"}, {425, 115, "00FF00"}, {399, 100, "000000"},
        {450, 100, "000000"}, {400, 130, "000000"}, {400, 99, "000000"},
        {600, 100, "FFFF00"}, {640, 120, "FFFF00"}, {620, 100, "FFFF00"}, {620, 110, "000000"},
    });
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
    EXPECT_EQ(std::make_tuple(r[0], r[1], r[2], r[3]), std::make_tuple(250, 100, 300, 150));
    fill_rect(0, 0, screen_width, screen_height, 0xFF00FF);
    expect_pixels({{250, 100, "FF00FF"}, {299, 149, "FF00FF"}, {249, 120, "000000"}, {300, 120, "000000"},
                   {260, 150, "000000"}});
    pop_clip();
    EXPECT_TRUE(glIsEnabled(GL_SCISSOR_TEST));
    get_clip(r);
    EXPECT_EQ(std::make_tuple(r[0], r[3]), std::make_tuple(100, 200));
    pop_clip();
    EXPECT_FALSE(glIsEnabled(GL_SCISSOR_TEST));
    pop_clip();   // on an empty stack: nothing
    EXPECT_FALSE(glIsEnabled(GL_SCISSOR_TEST));

    // clear_rect takes GL window coordinates (y up) and leaves no scissor behind
    fill_rect(0, 0, 100, 100, 0xFFFFFF);
    clear_rect(0, screen_height - 50, 50, 50);   // the top-left 50 x 50 on screen
    expect_pixels({{10, 10, "000000"}, {60, 10, "FFFFFF"}, {10, 60, "FFFFFF"}});
    EXPECT_FALSE(glIsEnabled(GL_SCISSOR_TEST));
}

// ---------------------------------------------------------------------------------------
// Frame protocol

TEST(frame, clear_colour_is_handed_to_gl_only_when_it_changes)
{
    clear_colour_applied = 0x01000000;
    end_frame(0x336699);
    EXPECT_EQ(clear_colour_applied, 0x336699u);
    expect_pixels({{5, 5, "336699"}, {screen_width - 1, screen_height - 1, "336699"}});
    glClearColor(1, 0, 0, 0);   // behind the layer's back
    end_frame(0x336699);        // same colour: GL's clear colour is not set again
    expect_pixels({{5, 5, "FF0000"}});
    end_frame(0x00FF00);
    expect_pixels({{5, 5, "00FF00"}});
    end_frame(0x000000);
    expect_pixels({{5, 5, "000000"}});
    EXPECT_EQ(gl_int(GL_MATRIX_MODE), GL_MODELVIEW);
    glTranslatef(5, 5, 0);
    end_frame(0);
    EXPECT_EQ(gl_matrix(GL_MODELVIEW_MATRIX)[12], 0.0f) << "each frame starts from the identity";
}

// ---------------------------------------------------------------------------------------
// Textures

static std::vector<unsigned char> random_bytes(size_t n, unsigned seed)
{
    std::vector<unsigned char> v(n);
    for (auto &b : v) b = (unsigned char)((seed = seed * 1103515245u + 12345u) >> 16);
    return v;
}

static GLuint bound_texture(GLenum target = GL_TEXTURE_2D)
{
    GLuint t;
    glGenTextures(1, &t);
    glBindTexture(target, t);
    return t;
}

static GLint level_parameter(int level, GLenum name)
{
    GLint v = -1;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, level, name, &v);
    return v;
}

static std::pair<int, int> level_size(int level)
{
    return {level_parameter(level, GL_TEXTURE_WIDTH), level_parameter(level, GL_TEXTURE_HEIGHT)};
}

static const std::pair<int, int> chain_64_by_16[7] = {{64, 16}, {32, 8}, {16, 4}, {8, 2}, {4, 1}, {2, 1}, {1, 1}};

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
        GLuint t = bound_texture();
        upload_texture(GL_TEXTURE_2D, components, 64, 16, random_bytes(64 * 16 * 4, 10 + components).data());
        std::vector<unsigned char> want = read_level(0, 64, 16, components);
        for (int level = 1; level < 7; ++level) {
            auto [pw, ph] = chain_64_by_16[level - 1];
            auto [w, h] = chain_64_by_16[level];
            int stride = (w * components + 3) & ~3;
            std::vector<unsigned char> next((size_t)stride * h);
            mipmap_halve(want.data(), pw, ph, components, next.data());
            SCOPED_TRACE(testing::Message() << components << " components, level " << level);
            ASSERT_EQ(level_size(level), chain_64_by_16[level]);
            std::vector<unsigned char> got = read_level(level, w, h, components);
            for (int y = 0; y < h; ++y)
                for (int i = 0; i < w * components; ++i)
                    ASSERT_EQ(got[y * stride + i], next[y * stride + i]) << "row " << y << ", byte " << i;
            want = next;
        }
        glDeleteTextures(1, &t);
    }
    gl_has_mipmap_generation = saved;
}

TEST(textures, screen_rectangle_copied_into_a_texture)
{
    clear_black();
    fill_rect(10, 10, 16, 8, 0x11AA55);
    fill_rect(10, 18, 16, 8, 0x2200FF);
    GLuint t = copy_screen_to_texture(10, 10, 16, 16, 0, 0);
    ASSERT_NE(t, 0u);
    EXPECT_EQ(level_parameter(0, GL_TEXTURE_INTERNAL_FORMAT), GL_RGB8);
    GLint filter = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &filter);
    EXPECT_EQ(filter, GL_LINEAR_MIPMAP_LINEAR);
    // texture rows run upwards: row 0 is the bottom of the rectangle on screen
    std::vector<unsigned char> texels = read_level(0, 16, 16, 3);
    EXPECT_EQ(std::make_tuple(texels[0], texels[2], texels[15 * 48], texels[15 * 48 + 1]),
              std::make_tuple(0x22, 0xFF, 0x11, 0xAA));
    EXPECT_EQ(level_size(4).first, 1) << "mipmaps were built";
    // copying again into the same texture replaces level 0
    fill_rect(10, 10, 16, 16, 0xFFFFFF);
    EXPECT_EQ(copy_screen_to_texture(10, 10, 16, 16, 0, t), t);
    EXPECT_EQ(read_level(0, 16, 16, 3)[0], 0xFF);
    glDeleteTextures(1, &t);
    anisotropic_filtering(GL_TEXTURE_2D);
    EXPECT_EQ(gl_has_anisotropy, 1);
    EXPECT_EQ(swap_interval(0) == 0 || swap_interval(0) == 1, true) << "a refusal is not an error";
}

// ---------------------------------------------------------------------------------------
// Screenshots

static double twelve_seconds() { return 12.0; }

TEST(screenshot, bmp_holds_the_drawn_pixels_top_row_last)
{
    char tmpl[] = "/tmp/gfx_shot_XXXXXX";
    std::string dir = mkdtemp(tmpl), old_path = getenv("PATH");
    std::filesystem::path cwd = std::filesystem::current_path();
    std::filesystem::current_path(dir);
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
    const unsigned char *top_left = bmp.data() + 54 + (size_t)(screen_height - 1) * stride;   // bottom-up, BGR
    EXPECT_EQ(std::make_tuple(top_left[2], top_left[0], bmp[54 + 3 * (screen_width - 1)]), std::make_tuple(0xFF, 0, 0xFF));
    unsigned char *direct = read_screen_rect(0, 0, screen_width, screen_height);
    EXPECT_EQ(memcmp(bmp.data() + 54, direct, (size_t)stride * screen_height), 0);
    free(direct);
    unsigned char *part = read_screen_rect(500, 300, 7, 3);   // 21 bytes a row, padded to 24
    EXPECT_EQ(std::make_tuple(part[0], part[2 * 24 + 6 * 3 + 2]), std::make_tuple(0x34, 0x12));
    free(part);

    save_screen_rect(0, 0, 10, 10, "corner.bmp", 0);
    std::vector<unsigned char> corner = read_file("corner.bmp");
    ASSERT_EQ(corner.size(), 54u + 32u * 10u);
    EXPECT_EQ(corner[54 + 2], 0xFF);   // red in the bottom row of the rectangle

    setenv("PATH", old_path.c_str(), 1);
    time_now = saved_clock;
    std::filesystem::current_path(cwd);
    std::filesystem::remove_all(dir);
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

static void push_window_event(Uint8 event, int data1 = 0, int data2 = 0)
{
    SDL_Event e = {};
    e.type = SDL_WINDOWEVENT;
    e.window.event = event;
    e.window.windowID = SDL_GetWindowID(graphics_window());
    e.window.data1 = data1, e.window.data2 = data2;
    SDL_PushEvent(&e);
}

static void push_mouse(Uint32 type, int button_or_wheel)
{
    SDL_Event e = {};
    e.type = type;
    if (type == SDL_MOUSEWHEEL) e.wheel.y = button_or_wheel;
    else e.button.button = (Uint8)button_or_wheel, e.button.x = 100, e.button.y = 200;
    SDL_PushEvent(&e);
}

static void drain()
{
    for (int i = 0; i < 5; ++i) pump_events();
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
    push_mouse(SDL_MOUSEWHEEL, 1);
    pump_events();
    EXPECT_EQ(mouse_buttons & 0x0C, 0x04u);
    pump_events();
    EXPECT_EQ(mouse_buttons & 0x0C, 0u);
    EXPECT_EQ(mouse_buttons_previous & 0x0C, 0x04u);
    push_mouse(SDL_MOUSEWHEEL, -3);
    pump_events();
    EXPECT_EQ(mouse_buttons & 0x0C, 0x08u);
    pump_events();
    EXPECT_EQ(mouse_buttons & 0x0C, 0u) << "wheel down lasts one frame too";

    // a button held since before the window is ignored until all buttons were up once
    mouse_click_suppressed = 1;
    mouse_buttons = mouse_raw_buttons = 0;
    push_mouse(SDL_MOUSEBUTTONDOWN, SDL_BUTTON_LEFT);
    pump_events();
    EXPECT_EQ(std::make_tuple(mouse_x, mouse_y, mouse_raw_buttons), std::make_tuple(100, 200, 0x01u));
    EXPECT_EQ(mouse_buttons & 0x13, 0u) << "suppressed";
    push_mouse(SDL_MOUSEBUTTONUP, SDL_BUTTON_LEFT);
    push_mouse(SDL_MOUSEBUTTONDOWN, SDL_BUTTON_RIGHT);
    pump_events();
    EXPECT_EQ(mouse_click_suppressed, 0);
    EXPECT_EQ(mouse_buttons & 0x13, 0x02u);
    EXPECT_FALSE(mouse_buttons_previous & 0x02);   // a press this frame
    push_mouse(SDL_MOUSEBUTTONDOWN, SDL_BUTTON_MIDDLE);
    push_mouse(SDL_MOUSEWHEEL, 2);
    pump_events();
    EXPECT_EQ(mouse_buttons, 0x02u | 0x10u | 0x04u) << "held buttons and this frame's wheel";
}

// Last: closing the window ends the program's use of it.
TEST(events, zz_close_and_quit_release_the_context)
{
    drain();
    push_window_event(SDL_WINDOWEVENT_CLOSE);
    EXPECT_EQ(pump_events(), 1);
    EXPECT_EQ(quit_requested, 1);
    EXPECT_EQ(SDL_GL_GetCurrentContext(), nullptr);

    quit_requested = 0;
    SDL_Event e = {};
    e.type = SDL_QUIT;
    SDL_PushEvent(&e);
    push_key(SDL_KEYDOWN, SDL_SCANCODE_A);
    EXPECT_EQ(pump_events(), 1);
    EXPECT_EQ(quit_requested, 1);
    EXPECT_EQ(SDL_PeepEvents(nullptr, 8, SDL_PEEKEVENT, SDL_KEYDOWN, SDL_KEYDOWN), 1)
        << "events after the quit stay in the queue";
}
