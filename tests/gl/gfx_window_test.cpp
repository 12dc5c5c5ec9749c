// The window layer on a real window under Xvfb: pixels of arcs and clip rectangles, the
// frame's clear colour, the screen read for screenshots and copied into a texture, and the
// wheel and key events fed through the pump.
#include "gl_fixture.h"
#include "Morvane/gfx_opengl/gfx_internal.h"

#include <SDL.h>

#include <cmath>
#include <cstdlib>
#include <tuple>
#include <vector>

static testing::Environment *const environment = testing::AddGlobalTestEnvironment(new views_gl::window(0, 0));

// How many pixels of the rectangle [x0, x1] x [y0, y1] (inclusive) have the colour 0xRRGGBB.
static int pixels_of(unsigned colour, int x0, int y0, int x1, int y1)
{
    std::vector<unsigned char> rows = read_back_buffer(screen_width, screen_height);
    int n = 0;
    for (int y = y0; y <= y1; y++)
        for (const unsigned char *p = &rows[((size_t)y * screen_width + x0) * 3], *end = p + 3 * (x1 - x0 + 1); p < end; p += 3)
            n += (unsigned)(p[0] << 16 | p[1] << 8 | p[2]) == colour;
    return n;
}

TEST(drawing, arcs_clips_and_the_clear_colour)
{
    // An arc's angle runs clockwise from straight up (y downwards): the quarter from 0 to
    // pi / 2 passes the top of its circle, not the bottom.
    views_gl::clear_screen();
    draw_arc(200.5, 200.5, 40, 0, M_PI / 2, 0xFFFFFF);
    EXPECT_GT(pixels_of(0xFFFFFF, 195, 160, 215, 160), 3);
    EXPECT_EQ(pixels_of(0xFFFFFF, 195, 240, 215, 240), 0);

    push_clip(100, 100, 300, 200);
    push_clip(250, 50, 400, 150);   // intersected: 250..300 x 100..150
    fill_rect(0, 0, screen_width, screen_height, 0xFF00FF);
    pop_clip();
    pop_clip();
    for (auto [x, y, colour] : {std::tuple{250, 100, 0xFF00FFu}, {299, 149, 0xFF00FFu}, {249, 120, 0u}, {300, 120, 0u},
                                {260, 150, 0u}, {260, 99, 0u}})
        EXPECT_EQ(pixels_of(colour, x, y, x, y), 1) << "(" << x << ", " << y << ")";

    // The clear colour is handed to GL only when it changes.
    end_frame(0x336699);
    EXPECT_EQ(pixels_of(0x336699, 5, 5, 5, 5), 1);
    glClearColor(1, 0, 0, 0);   // behind the layer's back
    end_frame(0x336699);
    EXPECT_EQ(pixels_of(0xFF0000, 5, 5, 5, 5), 1) << "same colour: not set again";
    end_frame(0);
}

TEST(screen, rectangles_read_bottom_up_for_files_and_textures)
{
    views_gl::clear_screen();
    fill_rect(10, 10, 16, 8, 0x11AA55);
    fill_rect(10, 18, 16, 8, 0x2200FF);
    unsigned char *bmp = read_screen_rect(10, 16, 7, 3);   // BGR, 21 bytes a row padded to 24
    EXPECT_EQ(std::make_tuple(bmp[0], bmp[2], bmp[2 * 24 + 6 * 3 + 2]), std::make_tuple(0xFF, 0x22, 0x11));
    free(bmp);
    GLuint t = copy_screen_to_texture(10, 10, 16, 16, 0, 0);
    std::vector<unsigned char> texels(16 * 16 * 3);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGB, GL_UNSIGNED_BYTE, texels.data());
    EXPECT_EQ(std::make_tuple(texels[0], texels[2], texels[15 * 48], texels[15 * 48 + 1]),
              std::make_tuple(0x22, 0xFF, 0x11, 0xAA)) << "row 0 is the bottom of the rectangle";
    glDeleteTextures(1, &t);
}

TEST(events, wheel_turns_and_quick_key_taps_last_one_frame)
{
    for (int i = 0; i < 5; ++i) pump_events();
    for (int turn : {1, -3}) {
        SDL_Event e = {};
        e.type = SDL_MOUSEWHEEL, e.wheel.y = turn;
        SDL_PushEvent(&e);
        pump_events();
        EXPECT_EQ(mouse_buttons & 0x0C, turn > 0 ? 0x04u : 0x08u) << "turn " << turn;
        pump_events();
        EXPECT_EQ(mouse_buttons & 0x0C, 0u) << "turn " << turn << ", next frame";
    }
    // Ctrl was down when S went down, but both are up again by the pump: the snapshot still
    // shows Ctrl and S down together, so a quick Ctrl+S on a slow frame stays a Ctrl+S.
    SDL_Event key = {};
    key.type = SDL_KEYDOWN, key.key.windowID = SDL_GetWindowID(graphics_window()), key.key.state = SDL_PRESSED;
    key.key.keysym.scancode = SDL_SCANCODE_S, key.key.keysym.mod = KMOD_LCTRL;
    SDL_PushEvent(&key);
    key.type = SDL_KEYUP, key.key.state = SDL_RELEASED, key.key.keysym.mod = 0;
    SDL_PushEvent(&key);
    pump_events();
    EXPECT_TRUE(key_pressed('S') && key_held(VK_CONTROL) && key_held(VK_LCONTROL));
    EXPECT_FALSE(key_held(VK_SHIFT));
    pump_events();
    EXPECT_FALSE(key_held('S') || key_held(VK_CONTROL));
}
