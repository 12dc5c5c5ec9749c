// Morvane clock: seconds as a double from a replaceable function pointer.
#pragma once

// Starts as time_init, which picks the source on its first call and replaces itself.
// Tests may point it at their own clock.
extern double (*time_now)();
double time_init();

// Sleeps for the integer part of s x 1000 milliseconds.
void wait_seconds(double s);
