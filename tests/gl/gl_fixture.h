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

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

// ---- Windows ---------------------------------------------------------------------------------
namespace views_gl {

inline int print_fatal(report_record *r)
{
    if (r->type == REPORT_FATAL) fprintf(stderr, "FATAL %s: %s\n", r->source, r->message);
    return 0;
}

// Opens a width x height window once per test program, never reaching a message box. A library
// window loads the carried fonts, the default one made current (fonts_default) or the first
// loaded staying so (fonts_first); a program window is framed and starts the program in it,
// `prepare` (if any) running first.
enum window_kind { fonts_default, fonts_first, program };
struct window : ::testing::Environment {
    int width, height; window_kind kind; void (*prepare)();
    window(int w, int h, window_kind k = fonts_default, void (*p)() = nullptr) : width(w), height(h), kind(k), prepare(p) {}
    void SetUp() override
    {
        if (prepare) prepare();
        report_handler = print_fatal;
        if (kind == program) windowed = 1, allocate_particles(), texture_unsized_formats = 1;
        ASSERT_EQ(graphics_open(width, height, "test", nullptr), 1);
        report_message_box = nullptr;   // a fatal error prints, never waits for a box
        if (kind != program) {
            loadfontdata(data_captionfont_fnt, data_captionfont_fnt_size, "captionfont");
            loadfontdata(data_ncgibig_fnt, data_ncgibig_fnt_size, "ncgibig");
            loadfontdata(data_ncgismall_fnt, data_ncgismall_fnt_size, "ncgismall");
            if (kind == fonts_default) selectdefaultfont();
            return;
        }
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

inline void clear_screen() { glClearColor(0, 0, 0, 0), glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT), glLoadIdentity(); }

} // namespace views_gl

// ---- Reference pictures ----------------------------------------------------------------------

// RGB rows from the top of the back buffer, read before the swap.
inline std::vector<unsigned char> read_back_buffer(int w, int h)
{
    std::vector<unsigned char> rows((size_t)w * h * 3);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadBuffer(GL_BACK);
    for (int y = 0; y < h; y++) glReadPixels(0, h - 1 - y, w, 1, GL_RGB, GL_UNSIGNED_BYTE, &rows[(size_t)y * w * 3]);
    return rows;
}

// The picture matches when no channel of any pixel differs from the reference by more than 2
// (the two rasterisations may round differently).
inline testing::AssertionResult matches_reference(const char *name, const std::vector<unsigned char> &rgb, int w, int h)
{
    std::string ref = std::string(FENTRA_SOURCE_DIR) + "/tests/data/" + name + ".png";
    auto write = [&](const std::string &path) {
        png_image out = {};
        out.version = PNG_IMAGE_VERSION, out.width = (png_uint_32)w, out.height = (png_uint_32)h, out.format = PNG_FORMAT_RGB;
        return png_image_write_to_file(&out, path.c_str(), 0, rgb.data(), 0, nullptr) != 0;
    };
    const char *update = getenv("FENTRA_UPDATE_REFERENCES");
    if (update && *update && *update != '0')
        return write(ref) ? testing::AssertionSuccess() << "wrote " << ref
                          : testing::AssertionFailure() << "cannot write " << ref;
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    std::vector<unsigned char> want(rgb.size());
    bool read = png_image_begin_read_from_file(&image, ref.c_str()) && (int)image.width == w &&
                (int)image.height == h && (image.format = PNG_FORMAT_RGB, true) &&
                png_image_finish_read(&image, nullptr, want.data(), 0, nullptr);
    png_image_free(&image);
    if (!read) return testing::AssertionFailure() << "cannot read " << ref << " as a " << w << "x" << h << " picture";
    for (size_t i = 0; i < want.size(); i++)
        if (abs(rgb[i] - want[i]) > 2) {
            write(std::string(name) + ".actual.png");
            return testing::AssertionFailure() << name << ": pixel (" << i / 3 % w << ", " << i / 3 / w
                                               << ") differs; see " << name << ".actual.png";
        }
    return testing::AssertionSuccess();
}
