// Morvane random source: the program's one generator, with 15-bit output.
// Every random draw of Fentra and of the library (beams, highlight pick, sparks,
// font fall-back) comes from here, in call order; it is never reseeded.
#pragma once

constexpr int random15_max = 32767;

// Next value in 0 .. 32767: state = state * 214013 + 2531011 (mod 2^32), output bits 16..30.
int random15();

// Restarts the sequence from its initial state (state 1). For tests only: the program never reseeds.
void random15_restart();

// Two successive draws r1, r2 (r1 first) combined into r = r1 / 32768 + r2, in [0, 32768).
double random30();

// Uniform in [0, 1): r / 32768.
double random_unit();

// Uniform in [-1, 1): r / 16384 - 1.
double random_signed();
