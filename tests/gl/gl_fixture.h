// The one fixture of the GL tests: a hidden window on Mesa (under Xvfb) opened once per test
// program, fatal errors printed instead of shown in a box, the back buffer read into rows from
// the top, and reference pictures for scripted scenes.
// Reference pictures live in tests/data/NAME.png. Run the GL tests with
// FENTRA_UPDATE_REFERENCES=1 to write them anew (then look at each one before committing it);
// a picture that does not match is written beside the test program as NAME.actual.png.
#pragma once

#include "Morvane/bitmapfonts.h"
#include "Morvane/gfx_opengl.h"
#include "Morvane/report.h"
#include "carried_data.h"
#include "fentra/app.h"
#include "fentra/physics/lattice.h"

#include <GL/gl.h>
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <unistd.h>
#include <vector>

// ---- Library windows ---------------------------------------------------------------------
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
        report_message_box = nullptr;   // a fatal error prints, never waits for a box
        loadfontdata(data_captionfont_fnt, data_captionfont_fnt_size, "captionfont");
        loadfontdata(data_ncgibig_fnt, data_ncgibig_fnt_size, "ncgibig");
        loadfontdata(data_ncgismall_fnt, data_ncgismall_fnt_size, "ncgismall");
        if (select_default) selectdefaultfont();
    }
};

struct rgb {
    int r, g, b;
    bool operator==(const rgb &o) const { return r == o.r && g == o.g && b == o.b; }
};

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

// ---- The program in a window -----------------------------------------------------------------

// Opens a width x height framed window once per test program and starts the program in it;
// `prepare` (if any) runs just before.
struct app_window_environment : testing::Environment {
    int width, height;
    void (*prepare)();
    app_window_environment(int w, int h, void (*p)() = nullptr) : width(w), height(h), prepare(p) {}
    void SetUp() override
    {
        if (prepare) prepare();
        report_handler = views_gl::print_fatal;   // never a message box
        windowed = 1;
        allocate_particles();
        texture_unsized_formats = 1;
        ASSERT_EQ(graphics_open(width, height, "app test", nullptr), 1);
        report_message_box = nullptr;
        start_simulation();
        // Test programs running side by side share the directory of "kora_sp.txt": the table
        // is read again from a file of this process's own.
        std::string name = "kora_sp_" + std::to_string(getpid()) + ".txt";
        write_builtin_lattice(name.c_str());
        read_lattice(name.c_str());
        remove(name.c_str());
        ASSERT_EQ(element_count, 48);
    }
};

// ---- Reference pictures ----------------------------------------------------------------------

// RGB rows from the top of the back buffer, read before the swap.
inline std::vector<unsigned char> read_back_buffer(int w, int h)
{
    std::vector<unsigned char> bottom_up((size_t)w * h * 3), rows(bottom_up.size());
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadBuffer(GL_BACK);
    glReadPixels(0, 0, w, h, GL_RGB, GL_UNSIGNED_BYTE, bottom_up.data());
    for (int y = 0; y < h; y++)
        std::copy_n(&bottom_up[(size_t)(h - 1 - y) * w * 3], (size_t)w * 3, &rows[(size_t)y * w * 3]);
    return rows;
}

// The picture matches when at most max_differing pixels differ from the reference by more than
// channel_tolerance in some channel (the two rasterisations may differ on edge pixels).
inline testing::AssertionResult matches_reference(const char *name,
                                                  const std::vector<unsigned char> &rgb, int w,
                                                  int h, int channel_tolerance = 2,
                                                  int max_differing = 0)
{
    std::string ref = std::string(FENTRA_SOURCE_DIR) + "/tests/data/" + name + ".png";
    auto write = [&](const std::string &path) {
        png_image image = {.opaque = nullptr, .version = PNG_IMAGE_VERSION, .width = (png_uint_32)w,
                           .height = (png_uint_32)h, .format = PNG_FORMAT_RGB, .flags = 0,
                           .colormap_entries = 0, .warning_or_error = 0, .message = {}};
        return png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), 0, nullptr) != 0;
    };
    const char *update = getenv("FENTRA_UPDATE_REFERENCES");
    if (update && *update && *update != '0')
        return write(ref) ? testing::AssertionSuccess() << "wrote " << ref
                          : testing::AssertionFailure() << "cannot write " << ref;
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    std::vector<unsigned char> want;
    if (png_image_begin_read_from_file(&image, ref.c_str())) {
        image.format = PNG_FORMAT_RGB;
        want.assign(PNG_IMAGE_SIZE(image), 0);
        if (!png_image_finish_read(&image, nullptr, want.data(), 0, nullptr)) want.clear();
    }
    if (want.empty()) return testing::AssertionFailure() << "cannot read " << ref;
    if ((int)image.width != w || (int)image.height != h)
        return testing::AssertionFailure() << name << ": " << w << "x" << h << ", reference "
                                           << image.width << "x" << image.height;
    int differing = 0, first = -1;
    for (size_t i = 0; i < want.size(); i += 3)
        for (int c = 0; c < 3; c++)
            if (abs(rgb[i + c] - want[i + c]) > channel_tolerance) {
                if (first < 0) first = (int)(i / 3);
                differing++;
                break;
            }
    if (differing <= max_differing) return testing::AssertionSuccess();
    write(std::string(name) + ".actual.png");
    return testing::AssertionFailure() << name << ": " << differing << " pixels differ, the first at ("
                                       << first % w << ", " << first / w << "); see " << name << ".actual.png";
}
