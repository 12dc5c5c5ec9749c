// Shared by the program's GL tests: one framed window of a given size, opened before the
// first case with the program's start-up (fonts, lattice, state, glow texture), fatal errors
// printed instead of shown in a box, a fresh state for each case, and pixels read back from
// the back buffer.
#pragma once

#include "Morvane/gfx_opengl.h"
#include "Morvane/report.h"
#include "fentra/app.h"
#include "fentra/physics/lattice.h"

#include <GL/gl.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <unistd.h>

static int app_print_record(report_record *r)
{
    fprintf(stderr, "report %d %s:%d %s\n", r->type, r->source, r->line,
            r->message ? r->message : "");
    return 0;
}

// Opens a width x height framed window and starts the program in it.
inline void open_app_window(int width, int height, const char *title)
{
    report_handler = app_print_record;   // never a message box
    windowed = 1;
    allocate_particles();
    texture_unsized_formats = 1;
    ASSERT_EQ(graphics_open(width, height, title, nullptr), 1);
    report_message_box = nullptr;
    ASSERT_EQ(screen_width, width);
    ASSERT_EQ(screen_height, height);
    start_simulation();
    // Test programs running side by side share the directory of "kora_sp.txt": the table is
    // read again from a file of this process's own.
    char name[64];
    snprintf(name, sizeof name, "kora_sp_%d.txt", (int)getpid());
    write_builtin_lattice(name);
    read_lattice(name);
    remove(name);
    ASSERT_EQ(element_count, 48);
}

// Opens the window once per test program; `prepare` (if any) runs just before.
struct app_window_environment : testing::Environment {
    int width, height;
    const char *title;
    void (*prepare)();
    app_window_environment(int w, int h, const char *t, void (*p)() = nullptr)
        : width(w), height(h), title(t), prepare(p) {}
    void SetUp() override
    {
        if (prepare) prepare();
        open_app_window(width, height, title);
    }
};

// The initial simulation state, keeping the glow texture made at start-up.
inline void reset_state_keeping_glow()
{
    unsigned texture = sim.glow_texture;
    reset_simulation_state();
    sim.glow_texture = texture;
}

// The pixel at (x, y), y downwards, from the back buffer, as 0xRRGGBB.
inline unsigned pixel_at(int x, int y)
{
    unsigned char rgb[4] = {0, 0, 0, 0};
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(x, screen_height - 1 - y, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, rgb);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    return (unsigned)(rgb[0] << 16 | rgb[1] << 8 | rgb[2]);
}

// Pixels that must have a colour: "what" names the check.
struct expected_pixel {
    int x, y;
    unsigned colour;
    const char *what = "";
};
inline void expect_pixels(std::initializer_list<expected_pixel> want)
{
    for (const expected_pixel &e : want)
        EXPECT_EQ(pixel_at(e.x, e.y), e.colour) << std::hex << "(" << std::dec << e.x << ", " << e.y << ") " << e.what;
}

// How many pixels of the rectangle [x0, x1] x [y0, y1] (inclusive) have the colour.
inline int pixels_of(unsigned colour, int x0, int y0, int x1, int y1)
{
    int n = 0;
    for (int y = y0; y <= y1; y++)
        for (int x = x0; x <= x1; x++) n += pixel_at(x, y) == colour;
    return n;
}

inline void clear_to_black()
{
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glLoadIdentity();
}
