// What the text and views GL tests share: a window with the carried fonts (loaded in the order
// captionfont, ncgibig, ncgismall), and the back buffer read into rows from the top.
#pragma once

#include "Morvane/bitmapfonts.h"
#include "Morvane/gfx_opengl.h"
#include "Morvane/report.h"
#include "carried_data.h"

#include <gtest/gtest.h>

#include <GL/gl.h>

#include <cstdio>
#include <functional>
#include <vector>

namespace views_gl {

inline int print_fatal(report_record *record)
{
    if (record->type == REPORT_FATAL) fprintf(stderr, "FATAL %s: %s\n", record->source, record->message);
    return 0;
}

// Opens the window once per test program, never reaching a message box.
struct window : ::testing::Environment {
    int width, height;
    bool select_default;   // the default font made current; else the first loaded stays so
    window(int w, int h, bool select = true) : width(w), height(h), select_default(select) {}
    void SetUp() override
    {
        report_handler = print_fatal;
        ASSERT_EQ(graphics_open(width, height, "views test", nullptr), 1);
        loadfontdata(data_captionfont_fnt, data_captionfont_fnt_size, "captionfont");
        loadfontdata(data_ncgibig_fnt, data_ncgibig_fnt_size, "ncgibig");
        loadfontdata(data_ncgismall_fnt, data_ncgismall_fnt_size, "ncgismall");
        if (select_default) selectdefaultfont();
    }
};

struct rgb {
    int r, g, b;
    bool operator==(const rgb &o) const { return r == o.r && g == o.g && b == o.b; }
    bool black() const { return r == 0 && g == 0 && b == 0; }
};

inline rgb colour_of(unsigned c) { return {(int)(c >> 16) & 255, (int)(c >> 8) & 255, (int)c & 255}; }

// The whole back buffer, read before any swap.
struct screen {
    int w, h;
    std::vector<unsigned char> data;
    rgb at(int x, int y) const
    {
        const unsigned char *p = &data[((size_t)(h - 1 - y) * w + x) * 3];
        return {p[0], p[1], p[2]};
    }
    // Pixels of the rectangle [x0, x1) x [y0, y1) (clipped to the screen) that pass the test.
    int count(int x0, int y0, int x1, int y1, const std::function<bool(rgb)> &test) const
    {
        int n = 0;
        for (int y = y0 < 0 ? 0 : y0; y < y1 && y < h; y++)
            for (int x = x0 < 0 ? 0 : x0; x < x1 && x < w; x++)
                if (test(at(x, y))) n++;
        return n;
    }
};

inline screen read_screen()
{
    screen s{screen_width, screen_height,
             std::vector<unsigned char>((size_t)screen_width * screen_height * 3)};
    glFinish();
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadBuffer(GL_BACK);
    glReadPixels(0, 0, s.w, s.h, GL_RGB, GL_UNSIGNED_BYTE, s.data.data());
    return s;
}

inline void clear_screen(float grey = 0)
{
    glClearColor(grey, grey, grey, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glLoadIdentity();
}

} // namespace views_gl
