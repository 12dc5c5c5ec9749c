// The random source: the fixed 15-bit sequence and the compositions built on it.
#include "Morvane/random.h"

#include <gtest/gtest.h>

TEST(random15, first_values_of_the_sequence_are_fixed)
{
    random15_restart();
    // state 1 -> 1*214013+2531011 = 2745024, >>16 = 41; then 18467, 6334, 26500 ...
    const int expected[] = {41, 18467, 6334, 26500, 19169, 15724, 11478, 29358};
    for (int e : expected) EXPECT_EQ(random15(), e);
}

TEST(random15, compositions_use_r1_first)
{
    random15_restart();
    EXPECT_DOUBLE_EQ(random30(), 41.0 / 32768.0 + 18467.0);
    random15_restart();
    EXPECT_DOUBLE_EQ(random_unit(), (41.0 / 32768.0 + 18467.0) / 32768.0);
    random15_restart();
    EXPECT_DOUBLE_EQ(random_signed(), (41.0 / 32768.0 + 18467.0) / 16384.0 - 1.0);
}

TEST(random15, output_stays_in_fifteen_bits_and_covers_the_range)
{
    random15_restart();
    int lo = 32767, hi = 0;
    for (int i = 0; i < 200000; ++i) {
        int r = random15();
        ASSERT_GE(r, 0);
        ASSERT_LE(r, 32767);
        lo = r < lo ? r : lo;
        hi = r > hi ? r : hi;
    }
    EXPECT_EQ(lo, 0);
    EXPECT_EQ(hi, 32767);
    double u = 0;
    for (int i = 0; i < 1000; ++i) {
        u = random_signed();
        ASSERT_GE(u, -1.0);
        ASSERT_LT(u, 1.0);
    }
}
