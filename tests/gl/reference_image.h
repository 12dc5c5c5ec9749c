// Reference pictures for scripted scenes: the back buffer compared with tests/data/NAME.png.
// Run the GL tests with FENTRA_UPDATE_REFERENCES=1 to write the pictures anew (then look at
// each one before committing it). A picture that does not match is written beside the test
// program as NAME.actual.png.
#pragma once

#include <GL/gl.h>
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

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

inline bool write_png(const std::string &path, const std::vector<unsigned char> &rgb, int w, int h)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = (png_uint_32)w;
    image.height = (png_uint_32)h;
    image.format = PNG_FORMAT_RGB;
    return png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), 0, nullptr) != 0;
}

inline bool read_png(const std::string &path, std::vector<unsigned char> &rgb, int &w, int &h)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
    image.format = PNG_FORMAT_RGB;
    w = (int)image.width;
    h = (int)image.height;
    rgb.assign(PNG_IMAGE_SIZE(image), 0);
    return png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr) != 0;
}

// The picture matches when at most max_differing pixels differ from the reference by more than
// channel_tolerance in some channel (the two rasterisations may differ on edge pixels).
inline testing::AssertionResult matches_reference(const char *name,
                                                  const std::vector<unsigned char> &rgb, int w,
                                                  int h, int channel_tolerance = 2,
                                                  int max_differing = 0)
{
    std::string ref = std::string(FENTRA_SOURCE_DIR) + "/tests/data/" + name + ".png";
    const char *update = getenv("FENTRA_UPDATE_REFERENCES");
    if (update && *update && *update != '0') {
        if (!write_png(ref, rgb, w, h)) return testing::AssertionFailure() << "cannot write " << ref;
        return testing::AssertionSuccess() << "wrote " << ref;
    }
    std::vector<unsigned char> want;
    int rw = 0, rh = 0;
    if (!read_png(ref, want, rw, rh)) return testing::AssertionFailure() << "cannot read " << ref;
    if (rw != w || rh != h)
        return testing::AssertionFailure() << name << ": " << w << "x" << h << ", reference " << rw << "x" << rh;
    int differing = 0, first = -1;
    for (size_t i = 0; i < want.size(); i += 3)
        for (int c = 0; c < 3; c++)
            if (abs(rgb[i + c] - want[i + c]) > channel_tolerance) {
                if (first < 0) first = (int)(i / 3);
                differing++;
                break;
            }
    if (differing <= max_differing) return testing::AssertionSuccess();
    write_png(std::string(name) + ".actual.png", rgb, w, h);
    return testing::AssertionFailure() << name << ": " << differing << " pixels differ, the first at ("
                                       << first % w << ", " << first / w << "); see " << name << ".actual.png";
}
