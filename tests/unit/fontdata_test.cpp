// The three fonts carried in data/ (and built into the program from there) are what the
// generator in tools/ makes, byte for byte. (How they pack is checked in text_test.)
#include "carried_data.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

TEST(FontGenerator, ReproducesTheCarriedFontsByteForByte) {
#ifndef FONTGEN_PATH
    GTEST_SKIP() << "fontgen was not built (FreeType missing)";
#else
    std::filesystem::path dir = std::filesystem::temp_directory_path() / ("fontgen_test_" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    ASSERT_EQ(std::system((std::string(FONTGEN_PATH) + " " + dir.string() + " > /dev/null").c_str()), 0);
    struct carried { const char *file; const unsigned char *bytes; unsigned size; };
    for (const carried &f : {carried{"captionfont.fnt", data_captionfont_fnt, data_captionfont_fnt_size},
                             carried{"ncgibig.fnt", data_ncgibig_fnt, data_ncgibig_fnt_size},
                             carried{"ncgismall.fnt", data_ncgismall_fnt, data_ncgismall_fnt_size}}) {
        std::ifstream in(dir / f.file, std::ios::binary);
        EXPECT_EQ(std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {}),
                  std::vector<unsigned char>(f.bytes, f.bytes + f.size)) << f.file;
    }
    std::filesystem::remove_all(dir);
#endif
}
