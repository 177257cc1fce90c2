#include "runtime/MathRuntime.h"

#include <cmath>
#include <ctime>
#include <limits>

#include "ir/DataTypes.h"

int32_t lSeed = 0;

namespace {

// Park and Miller's minimal standard generator: multiplier 16807 modulo
// 2^31 - 1, computed by Schrage's method so that no product leaves 32 bits.
constexpr int32_t kRandomMultiplier = 16807;
constexpr int32_t kRandomModulus = 0x7FFFFFFF;
constexpr int32_t kRandomQuotient = kRandomModulus / kRandomMultiplier;   // 127773
constexpr int32_t kRandomRemainder = kRandomModulus % kRandomMultiplier;  // 2836
static_assert(kRandomQuotient == 127773 && kRandomRemainder == 2836);

// A clock seed is stepped this many times before use, so that seeds taken a
// second apart don't start with nearly equal values.
constexpr int kClockSeedWarmUp = 7;
// rnd() keeps the low 20 bits of the generator's value.
constexpr int32_t kRandomFractionMask = 0xFFFFF;
constexpr double kRandomFractionScale = 1048576.0;

// A seed that is a multiple of the modulus (0, 0x7FFFFFFF, -0x7FFFFFFF)
// steps to 0x7FFFFFFF and stays there, so that rnd() would give the same
// value for ever; any other seed, negative ones too, lands in 1 to
// 0x7FFFFFFE and cycles through all of it. Such a seed starts from 1 instead.
int32_t UsableSeed(int32_t seed) { return seed % kRandomModulus == 0 ? 1 : seed; }

void SeedFromClock() {
  int64_t now = static_cast<int64_t>(std::time(nullptr));
  lSeed = UsableSeed(static_cast<int32_t>(now & 0x7FFFFFFF));
}

}  // namespace

extern "C" {

int32_t BitwiseAnd(int32_t a, int32_t b) { return a & b; }
int32_t BitwiseOr(int32_t a, int32_t b) { return a | b; }
int32_t BitwiseXor(int32_t a, int32_t b) { return a ^ b; }

double RuntimeACos(double x) {
  if (x >= -1.0 && x <= 1.0) return std::acos(x);
  return std::isnan(x) ? x : NaN();
}

double RuntimeASin(double x) {
  if (x >= -1.0 && x <= 1.0) return std::asin(x);
  return std::isnan(x) ? x : NaN();
}

double RuntimeATan(double x) { return std::atan(x); }
double RuntimeATan2(double y, double x) { return std::atan2(y, x); }
double RuntimeCos(double x) { return std::cos(x); }
double RuntimeExp(double x) { return std::exp(x); }
double RuntimeLog(double x) { return std::log(x); }
double RuntimeSin(double x) { return std::sin(x); }
double RuntimeSqrt(double x) { return std::sqrt(x); }
double RuntimeTan(double x) { return std::tan(x); }
double RuntimePow(double x, double y) { return std::pow(x, y); }
double RuntimeCeil(double x) { return std::ceil(x); }
double RuntimeFloor(double x) { return std::floor(x); }
double RuntimeRound(double x) { return std::round(x); }

double RuntimeAbs(double x) { return x < 0 ? -x : x; }

int32_t RuntimeSign(double x) {
  if (x < 0) return -1;
  if (x > 0) return 1;
  return 0;
}

double RuntimeMax(double a, double b) { return a > b ? a : b; }
double RuntimeMin(double a, double b) { return a < b ? a : b; }

double NaN() { return std::numeric_limits<double>::quiet_NaN(); }

int32_t rndNum() {
  int32_t hi = lSeed / kRandomQuotient;
  int32_t lo = lSeed % kRandomQuotient;
  int32_t test = kRandomMultiplier * lo - kRandomRemainder * hi;
  lSeed = test > 0 ? test : test + kRandomModulus;
  return lSeed & 0x7FFFFFFF;
}

double rnd() {
  if (lSeed == 0) {
    SeedFromClock();
    for (int i = 0; i < kClockSeedWarmUp; ++i) rnd();
  }
  return (rndNum() & kRandomFractionMask) / kRandomFractionScale;
}

double srnd(double seed) {
  double old = lSeed;
  int32_t next = TruncateToInt32(seed);
  // 0 is kept: it is how a caller hands the choice back to the clock.
  lSeed = next == 0 ? 0 : UsableSeed(next);
  return old;
}
}
