// Shared by the program's GL tests: one framed window of a given size, opened before the
// first case with the program's start-up (fonts, lattice, state, glow texture), fatal errors
// printed instead of shown in a box, and pixels read back from the back buffer.
#pragma once

#include "Morvane/gfx_opengl.h"
#include "Morvane/report.h"
#include "fentra/app.h"
#include "fentra/lattice.h"

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

// The pixel at (x, y), y downwards, from the back buffer, as 0xRRGGBB.
inline unsigned pixel_at(int x, int y)
{
    unsigned char rgb[4] = {0, 0, 0, 0};
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(x, screen_height - 1 - y, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, rgb);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    return (unsigned)(rgb[0] << 16 | rgb[1] << 8 | rgb[2]);
}

inline void clear_to_black()
{
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glLoadIdentity();
}
