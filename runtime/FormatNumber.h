// The language's own rendering of numbers as text. StandardNumToStr does the
// digit work over the C library's formatter; doubleStr is the default
// rendering of a number, what `Str` and a Variant holding a Double give:
// doubleStr(value, -1, 7), seven significant digits without trailing zeros.
//
// Invariants:
// - A value that is or rounds to zero never shows a sign.
// - An exponent has no leading zero after a "+" ("1.5e+7"); a negative one
//   keeps it ("1.5e-07").
#pragma once

#include "foundation/String.h"

// `fixed`: "%.{digits}f", else "%.{digits - 1}e". A `digits` past
// kMaxNumberDigits is taken as kMaxNumberDigits.
string StandardNumToStr(double value, int fixed, int digits);

// `mode`: 0 scientific, 1 fixed, -1 fixed for magnitudes from 0.00001 to
// 1000000 (and 0) and scientific beyond. In fixed form `precision` counts
// significant digits, the integer part's included, and trailing zeros go.
string doubleStr(double value, long mode, unsigned long precision);

// More digits than a double holds are noise; the bound keeps a script's
// absurd precision from asking the formatter for megabytes.
constexpr int kMaxNumberDigits = 400;
