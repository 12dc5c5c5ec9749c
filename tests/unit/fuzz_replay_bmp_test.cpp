// Replays the inputs of the fuzz target for the BMP writer and the screenshot names through the target itself:
// its committed corpus, and the inputs that once failed.
#define FUZZ_REPLAY
#include "../fuzz/bmp.cpp"

#include "fuzz_replay.h"

FUZZ_REPLAY_TESTS("bmp")

// The file-size field keeps the low 32 bits of height x stride + 54 for sizes whose product
// does not fit an int (the stride of 715827881 pixels is 2147483644 bytes).
TEST(bmp_limits, file_size_field_of_sizes_beyond_an_int) {
    struct size_case { int width, height; uint32_t field; };
    const size_case cases[] = {
        {715827881, 3, (uint32_t)(3ull * 2147483644u + 54)},
        {-16711685, -1537, (uint32_t)(uint64_t)(-1537ll * -50135052 + 54)},   // stride -50135052
        {1366, 768, 4100u * 768 + 54},
    };
    for (const size_case &c : cases) {
        unsigned char header[54];
        bmp_header(header, c.width, c.height);
        EXPECT_EQ(get32(header + 2), c.field) << c.width << " x " << c.height;
    }
}
