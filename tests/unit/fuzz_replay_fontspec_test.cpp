// Replays the inputs of the fuzz target for font specifiers through the target itself:
// its committed corpus, and the inputs that once failed.
#define FUZZ_REPLAY
#include "../fuzz/fontspec.cpp"

#include "fuzz_replay.h"

FUZZ_REPLAY_TESTS("fontspec")

// Sizes from extreme or undefined specifier values stay whole pixels: a pixel boldness on a
// font whose glyphs are all 0 wide adds nothing, factors beyond any screen are held at 2^30
// pixels, and an undefined factor gives 0.
TEST(font_specifier_limits, extreme_values_give_whole_pixel_sizes) {
    fuzz_replay_initialise();
    const float held = 1073741824.0f;
    struct limit_case {
        const char *specifier;
        float boldness;
        int line_height;     // of the font made current by the key
        float width_of_AB;   // measured in that font
    };
    const limit_case cases[] = {
        {"blank:boldness=1px", 0.0f, 1, 0.0f},                  // spacing (int)(1 x 0.1 + 0.5) = 0
        {"ncgibig:boldness=4px", 0.5f, 8, 2 * 13.0f},           // 8 x 1.5 + 0.8 + 0.5 = 13.3
        {"ncgibig:scale=1e30", 0.0f, (int)held, 2 * held},
        {"ncgibig:size=nan", 0.0f, 0, 0.0f},
    };
    for (const limit_case &c : cases) {
        fontstyle key = parsefontspec(c.specifier);
        EXPECT_EQ(key.boldness, c.boldness) << c.specifier;
        usefont(&key);
        EXPECT_EQ(current_line_height, c.line_height) << c.specifier;
        EXPECT_EQ(textwidth("AB"), c.width_of_AB) << c.specifier;
        reset_fonts();
    }
}
