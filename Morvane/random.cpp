// Morvane random source: a linear congruential generator with the classic 15-bit output.
#include "Morvane/random.h"

#include <cstdint>

static uint32_t random_state = 1;

int random15()
{
    random_state = random_state * 214013u + 2531011u;
    return (int)((random_state >> 16) & 0x7FFF);
}

void random15_restart() { random_state = 1; }

double random30()
{
    double r1 = random15();
    double r2 = random15();
    return r1 / 32768.0 + r2;
}

double random_unit() { return random30() / 32768.0; }

double random_signed() { return random30() * 6.103515625e-5 - 1.0; }
