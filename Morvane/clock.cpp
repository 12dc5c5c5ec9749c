// Morvane clock: the replaceable time source and the millisecond sleep.
// time_now starts as time_init, which picks the best source once and installs it.
#include "Morvane/clock.h"

#include <cerrno>
#include <cstdint>
#include <ctime>

static struct {
    double period; // seconds per tick of the high-resolution counter
} clock_state;

// The high-resolution counter: CLOCK_MONOTONIC in nanoseconds, read as a signed high word
// and an unsigned low word so the sum is formed the same way at every magnitude.
static bool counter_read(int64_t *ticks)
{
    timespec ts;
    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) return false;
    *ticks = (int64_t)ts.tv_sec * 1000000000 + ts.tv_nsec;
    return true;
}

static double words_to_double(int64_t v)
{
    int32_t high = (int32_t)(v >> 32);
    uint32_t low = (uint32_t)(v & 0xFFFFFFFFu);
    return high * 4294967296.0 + low;
}

static double time_counter()
{
    int64_t ticks = 0;
    counter_read(&ticks);
    return words_to_double(ticks) * clock_state.period;
}

// Fallback: a millisecond tick count, kept to 32 bits like a tick counter, in seconds.
static double time_ticks()
{
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    uint32_t ms = (uint32_t)((uint64_t)ts.tv_sec * 1000u + (uint64_t)ts.tv_nsec / 1000000u);
    return ms * 0.001;
}

double time_init()
{
    int64_t ticks;
    if (counter_read(&ticks)) {
        const int64_t frequency = 1000000000; // ticks per second of a nanosecond counter
        clock_state.period = 1.0 / words_to_double(frequency);
        time_now = time_counter;
    } else {
        time_now = time_ticks;
    }
    return time_now();
}

double (*time_now)() = time_init;

void wait_seconds(double s)
{
    long ms = (long)(s * 1000.0);
    if (ms <= 0) return;
    timespec want = {ms / 1000, (ms % 1000) * 1000000L};
    // A signal may cut the sleep short; sleep on for what remains.
    while (nanosleep(&want, &want) != 0 && errno == EINTR) {
    }
}
