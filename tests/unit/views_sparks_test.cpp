// The game's sparks without a window: how many are born for a luminosity and where, the time
// step from the clock, the pairwise forces (hand-computed cases), and movement with removal
// at the screen edge before drawing.
#include "fentra/physics/beam.h"
#include "fentra/views/game.h"
#include "fentra/views/hud.h"
#include "fentra/views/views.h"

#include "Morvane/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <vector>

namespace {

struct spark_list {
    growarray list;
    spark_list() { growarray_init(&list, sizeof(spark), 1); }
    ~spark_list() { growarray_free(&list); }
    spark *at(unsigned i) { return (spark *)list.data + i; }
    void add(const spark &s) { growarray_append(&list, &s); }
};

} // namespace

TEST(sparks, luminosity_below_1e33_spawns_none_and_2_5e33_spawns_six)
{
    struct case_ {
        double luminosity;
        unsigned sparks;
    };
    // Three a unit of 1e33, at most 1000 units; no number, or a negative one, spawns none.
    const case_ cases[] = {{0, 0},     {9.99e32, 0},   {1e33, 3},      {2.5e33, 6},   {3.5e33, 9}, {1e34, 30},
                           {7.9e35, 2370}, {1e36, 3000}, {3e43, 3000}, {NAN, 0}, {-1e33, 0}};
    for (const case_ &c : cases) {
        spark_list s;
        random15_restart();
        spawn_sparks(&s.list, sparks_for_luminosity(c.luminosity));
        EXPECT_EQ(s.list.count, c.sparks) << "L = " << c.luminosity;
        if (c.sparks == 0) {
            // nothing was drawn from the random source either
            int next = random15();
            random15_restart();
            EXPECT_EQ(next, random15()) << "L = " << c.luminosity;
        }
    }
}

// Ten pixels times one pair of the beam's Gaussian draws (checked in beam_test) per spark.
TEST(sparks, each_spark_takes_one_gaussian_pair_and_triplets_hold_every_kind)
{
    spark_list s;
    random15_restart();
    spawn_sparks(&s.list, 2);
    ASSERT_EQ(s.list.count, 6u);
    random15_restart();
    const int kinds[6] = {0, 2, 1, 0, 2, 1};   // k = 6 down to 1, kind k mod 3
    for (unsigned i = 0; i < 6; i++) {
        double a, b;
        gaussian_pair(&a, &b);
        const spark &k = *s.at(i);
        EXPECT_EQ(std::make_tuple(k.x, k.y, k.vx, k.vy, k.kind), std::make_tuple(10 * a, 10 * b, 0.0, 0.0, kinds[i]))
            << "spark " << i;
    }
}

TEST(sparks, like_kinds_repel_and_unlike_kinds_attract)
{
    // Two sparks, the second at (dx, dy) from the first, dt = 1. Expected velocity of the
    // second; the first gets the opposite.
    struct case_ {
        const char *name;
        int kind0, kind1;
        double dx, dy;
        double vx1, vy1;
    };
    const case_ cases[] = {
        // r = 10: a = 0.1, b = 1e-4, c = -2/3: (k - b) = -0.0667667, times d = (-10, 0)
        {"like, 10 apart", 0, 0, 10, 0, 0.667666666666667, 0},
        // c = +1/3: (k - b) = 0.0332333, pulled back toward the first
        {"unlike, 10 apart", 1, 2, 10, 0, -0.332333333333333, 0},
        // r = 5 on the diagonal: a = 0.2, b = 0.0016, k = -0.133333; (k - b) x (-3, -4)
        {"like, 3-4-5", 2, 2, 3, 4, 0.4048, 0.539733333333333},
        // r = 50: a = 0.02 is not below 0.02, so f = a and the push is 2/3 + 1/r^2 = 0.6666747
        {"like, 50 apart", 1, 1, 0, 50, 0, 0.666674666666667},
        // r = 100: f = 50 a^2 = 0.005, the force 50 / r x 2/3 = 1/3, plus 1e-8 x 100
        {"like, 100 apart", 0, 0, 100, 0, 0.333334333333333, 0},
        {"unlike, 100 apart", 0, 1, -100, 0, 0.166665666666667, 0},
    };
    for (const case_ &c : cases) {
        spark_list s;
        s.add({0, 0, 0, 0, c.kind0});
        s.add({c.dx, c.dy, 0, 0, c.kind1});
        spark_forces(s.at(0), 2, 1.0);
        EXPECT_NEAR(s.at(1)->vx, c.vx1, 1e-12) << c.name;
        EXPECT_NEAR(s.at(1)->vy, c.vy1, 1e-12) << c.name;
        EXPECT_NEAR(s.at(0)->vx, -c.vx1, 1e-12) << c.name;
        EXPECT_NEAR(s.at(0)->vy, -c.vy1, 1e-12) << c.name;
        // Positions do not change here; that is the movement's job.
        EXPECT_EQ(s.at(1)->x, c.dx) << c.name;
    }
}

TEST(sparks, a_spark_leaving_the_screen_is_removed_before_it_is_drawn)
{
    // A 200 x 100 screen: sparks stay while |x| <= 100 and |y| <= 50.
    spark_list s;
    s.add({0, 0, 1, 0, 0});      // A
    s.add({99, 0, 2, 0, 1});     // B: to 101, off the right edge
    s.add({10, 10, 1, 1, 2});    // C
    spark_sprite sprites[3];
    unsigned drawn = move_sparks(&s.list, 1.0, 200, 100, sprites);
    ASSERT_EQ(drawn, 2u);
    ASSERT_EQ(s.list.count, 2u);
    // Drawn from the last down: C, then A; B never.
    // y is drawn upward: 50 - 11
    EXPECT_EQ(std::make_tuple(sprites[0].x, sprites[0].y, sprites[0].colour), std::make_tuple(111, 39, 0x0000FFu));
    EXPECT_EQ(std::make_tuple(sprites[1].x, sprites[1].y, sprites[1].colour), std::make_tuple(101, 50, 0xFF0000u));
    // C took B's place and was not moved a second time.
    EXPECT_EQ(std::make_tuple(s.at(1)->x, s.at(1)->kind), std::make_tuple(11.0, 2));
    EXPECT_EQ(s.list.alias, nullptr) << "the alias is put back after the pass";
}

TEST(sparks, the_screen_edges_are_exclusive_of_the_half_sizes)
{
    struct case_ {
        const char *name;
        double x, y, vx, vy;
        bool kept;
    };
    const case_ cases[] = {
        {"on the right edge", 99, 0, 1, 0, true},
        {"past the right edge", 99, 0, 1.5, 0, false},
        {"past the left edge", -99, 0, -1.5, 0, false},
        {"on the top edge", 0, 49, 0, 1, true},
        {"past the top edge", 0, 49, 0, 1.5, false},
        {"past the bottom edge", 0, -49, 0, -1.5, false},
        {"still at the centre", 0, 0, 0, 0, true},
    };
    for (const case_ &c : cases) {
        spark_list s;
        s.add({c.x, c.y, c.vx, c.vy, 1});
        spark_sprite sprite;
        EXPECT_EQ(move_sparks(&s.list, 1.0, 200, 100, &sprite), c.kept ? 1u : 0u) << c.name;
        EXPECT_EQ(s.list.count, c.kept ? 1u : 0u) << c.name;
    }
    // 201 x 101: W/2 = 100 and H/2 = 50, so 100.5 is off screen.
    spark_list s;
    s.add({100, 0, 0.5, 0, 0});
    spark_sprite sprite;
    EXPECT_EQ(move_sparks(&s.list, 1.0, 201, 101, &sprite), 0u);
}
