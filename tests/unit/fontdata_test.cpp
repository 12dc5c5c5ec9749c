// The three fonts carried in data/ (and built into the program from there) are what the
// generator in tools/ makes, byte for byte. (How they pack is checked in text_test.)
#include "carried_data.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

TEST(FontGenerator, ReproducesTheCarriedFontsByteForByte) {
#ifndef FONTGEN_PATH
    GTEST_SKIP() << "fontgen was not built (FreeType missing)";
#else
    const std::string dir = testing::TempDir() + "fontgen_test_" + std::to_string(getpid());
    ASSERT_EQ(std::system(("mkdir -p " + dir + " && " FONTGEN_PATH " " + dir + " > /dev/null").c_str()), 0);
    struct carried { const char *file; const unsigned char *bytes; unsigned size; };
    for (auto [file, bytes, size] : {carried{"captionfont.fnt", data_captionfont_fnt, data_captionfont_fnt_size},
                                     {"ncgibig.fnt", data_ncgibig_fnt, data_ncgibig_fnt_size},
                                     {"ncgismall.fnt", data_ncgismall_fnt, data_ncgismall_fnt_size}}) {
        std::ifstream in(dir + "/" + file, std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), std::string((const char *)bytes, size)) << file;
    }
    (void)!std::system(("rm -rf " + dir).c_str());
#endif
}
