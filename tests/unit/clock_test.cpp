// The clock: time_init's one-time choice of source, agreement with the monotonic counter (so
// readings never go backwards), and the millisecond sleep.
#include "Morvane/clock.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

double monotonic_seconds()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

} // namespace

TEST(clock, time_init_installs_its_source_and_returns_the_first_reading)
{
    time_now = time_init;
    double before = monotonic_seconds();
    double first = time_now();
    double after = monotonic_seconds();
    EXPECT_NE(time_now, time_init) << "time_init must replace itself";
    // The nanosecond counter read as seconds lies between the two direct readings.
    EXPECT_GE(first, before - 1e-6);
    EXPECT_LE(first, after + 1e-6);
    before = monotonic_seconds();
    double second = time_now();
    after = monotonic_seconds();
    EXPECT_GE(second, first);
    EXPECT_GE(second, before - 1e-6);
    EXPECT_LE(second, after + 1e-6);
}

TEST(clock, wait_seconds_sleeps_at_least_the_whole_milliseconds)
{
    struct {
        double seconds, at_least;
    } cases[] = {{0.05, 0.049}, {0.0125, 0.012}, {0.002, 0.0019}};
    for (const auto &c : cases) {
        double start = monotonic_seconds();
        wait_seconds(c.seconds);
        double slept = monotonic_seconds() - start;
        EXPECT_GE(slept, c.at_least) << "wait_seconds(" << c.seconds << ")";
        EXPECT_LT(slept, c.seconds + 2.0) << "wait_seconds(" << c.seconds << ")"; // loose: shared machine
    }
    double start = monotonic_seconds();
    wait_seconds(0);
    wait_seconds(-1);
    EXPECT_LT(monotonic_seconds() - start, 2.0);
}
