// The numeric functions of the script library. Generated code and the host
// library table call them by link name through plain C pointers, so each
// takes and returns `double` or a 32-bit integer and nothing else.
//
// Invariants:
// - The domain is not checked except where stated: the standard maths
//   library decides what an infinity or a NaN argument gives.
// - `lSeed` is the one state of the random generator, shared by every
//   script of the process and by array shuffling; 0 means "not seeded yet",
//   and the next `rnd()` seeds it from the clock.
#pragma once

#include <cstdint>

extern "C" {

extern int32_t lSeed;

int32_t BitwiseAnd(int32_t a, int32_t b);
int32_t BitwiseOr(int32_t a, int32_t b);
int32_t BitwiseXor(int32_t a, int32_t b);

// NaN() outside -1 to 1; a NaN argument passes through.
double RuntimeACos(double x);
double RuntimeASin(double x);

double RuntimeATan(double x);
double RuntimeATan2(double y, double x);
double RuntimeCos(double x);
double RuntimeExp(double x);
double RuntimeLog(double x);
double RuntimeSin(double x);
double RuntimeSqrt(double x);
double RuntimeTan(double x);
double RuntimePow(double x, double y);
double RuntimeCeil(double x);
double RuntimeFloor(double x);
// Halves go away from zero.
double RuntimeRound(double x);
// Only a number below zero changes: -0 and NaNs keep their sign bit.
double RuntimeAbs(double x);
// -1, 0 or 1; -0 and NaN give 0.
int32_t RuntimeSign(double x);
// `a` only when it is strictly greater (smaller): ties and NaNs give `b`.
double RuntimeMax(double a, double b);
double RuntimeMin(double a, double b);
double NaN();

// The next value of the generator, 1 to 0x7FFFFFFE once seeded by srnd()
// or by rnd() from the clock. Does not seed itself: from a seed stored
// directly that is a multiple of 0x7FFFFFFF, 0 included, it gives
// 0x7FFFFFFF for ever.
int32_t rndNum();
// From 0 up to, not including, 1, with 20 significant bits.
double rnd();
// Sets the seed (truncated to an integer) and returns the old one; a seed
// of 0 hands the choice back to the clock. The other multiples of
// 0x7FFFFFFF, on which the generator would stand still, count as 1.
double srnd(double seed);
}
