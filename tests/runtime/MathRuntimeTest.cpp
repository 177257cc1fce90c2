// The mathematics of the run-time library: its own edges and its random
// number generator.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "runtime/MathRuntime.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kPi = 3.14159265358979323846;

// Equal as the script would see it: NaN matches NaN, and zeros match by sign.
::testing::AssertionResult SameDouble(double expected, double actual) {
  if (std::isnan(expected) && std::isnan(actual)) return ::testing::AssertionSuccess();
  if (expected == actual && std::signbit(expected) == std::signbit(actual)) return ::testing::AssertionSuccess();
  if (expected != 0 && std::isfinite(expected) && std::fabs(expected - actual) <= 1e-15 * std::fabs(expected))
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "expected " << expected << ", got " << actual;
}

// What the run-time adds to the C library: the domain of acos and asin,
// round's halves, and the comparisons, whose NaN and signed-zero cases tell
// which argument came back. The rest is the C library's, not tested here.
TEST(MathRuntime, EdgesOfTheRuntimesOwnFunctions) {
  double const nan = NaN();
  struct {
    char const* name;
    double (*function)(double, double);
    double x, y, expected;
  } const kCases[] = {
      {"acos(-1)", [](double x, double) { return RuntimeACos(x); }, -1, 0, kPi},
      {"acos just past 1", [](double x, double) { return RuntimeACos(x); }, 1.0000001, 0, nan},
      {"acos(inf)", [](double x, double) { return RuntimeACos(x); }, kInf, 0, nan},
      {"asin(-0)", [](double x, double) { return RuntimeASin(x); }, -0.0, 0, -0.0},
      {"asin just below -1", [](double x, double) { return RuntimeASin(x); }, -1.0000001, 0, nan},
      {"round(-2.5)", [](double x, double) { return RuntimeRound(x); }, -2.5, 0, -3},
      // floor(x + 0.5) would give 1 here: the sum rounds up to 1.
      {"round(largest below 0.5)", [](double x, double) { return RuntimeRound(x); }, 0.49999999999999994, 0, 0},
      // Only a number below zero is flipped, and -0 is not below zero.
      {"abs(-0)", [](double x, double) { return RuntimeAbs(x); }, -0.0, 0, -0.0},
      {"abs(-inf)", [](double x, double) { return RuntimeAbs(x); }, -kInf, 0, kInf},
      {"max(0, -0)", RuntimeMax, 0.0, -0.0, -0.0},
      {"max(NaN, 1)", RuntimeMax, nan, 1, 1},
      {"max(1, NaN)", RuntimeMax, 1, nan, nan},
      {"max(2, 1)", RuntimeMax, 2, 1, 2},
      {"min(-0, 0)", RuntimeMin, -0.0, 0.0, 0.0},
      {"min(1, NaN)", RuntimeMin, 1, nan, nan},
      {"min(1, 2)", RuntimeMin, 1, 2, 1},
  };
  for (auto const& c : kCases) EXPECT_TRUE(SameDouble(c.expected, c.function(c.x, c.y))) << c.name;
  uint64_t bits;
  std::memcpy(&bits, &nan, sizeof bits);
  EXPECT_NE(bits & (uint64_t(1) << 51), 0u) << "NaN() is quiet";
  for (auto [x, sign] : {std::pair{-0.0, 0}, {0.0, 0}, {nan, 0}, {-kInf, -1}, {4.9e-324, 1}, {-4.9e-324, -1}})
    EXPECT_EQ(RuntimeSign(x), sign) << x;
}

// The generator's state is process-wide; each test leaves it as it found it.
class RandomGenerator : public ::testing::Test {
 protected:
  void SetUp() override { mSaved = lSeed; }
  void TearDown() override { lSeed = mSaved; }
  int32_t mSaved = 0;
};

// Park and Miller's published check: the 10000th value from seed 1. rnd()
// keeps twenty bits of each value.
TEST_F(RandomGenerator, MinimalStandardSequenceFromSeedOne) {
  lSeed = 1;
  EXPECT_EQ(16807 / 1048576.0, rnd());
  EXPECT_EQ((282475249 & 0xFFFFF) / 1048576.0, rnd());
  lSeed = 1;
  int32_t value = 0;
  for (int i = 0; i < 10000; ++i) value = rndNum();
  EXPECT_EQ(1043618065, value);
}

// Schrage's step never leaves 32 bits, and matches the direct product for
// the seeds at its boundaries; negative seeds still give values in range.
TEST_F(RandomGenerator, EverySeedStepsLikeTheDirectProduct) {
  for (int32_t seed : {1, 127772, 127773, 127774, 2836, 16807, 0x7FFFFFFE, 0x7FFFFFFF, 1234567890}) {
    lSeed = seed;
    int64_t expected = (int64_t(seed) * 16807) % 0x7FFFFFFF;
    if (expected == 0) expected = 0x7FFFFFFF;  // the modulus itself is a fixed point
    EXPECT_EQ(expected, rndNum()) << seed;
  }
  for (int32_t seed : {-1, -127773, INT32_MIN, INT32_MIN + 1}) {
    lSeed = seed;
    for (int i = 0; i < 100; ++i) {
      double r = rnd();
      ASSERT_TRUE(r >= 0.0 && r < 1.0) << seed;
    }
  }
}

// srnd truncates and hands back the old seed; a zero seed makes the next
// rnd() seed itself from the clock.
TEST_F(RandomGenerator, SrndSeedsAndZeroMeansTheClock) {
  lSeed = 77;
  EXPECT_EQ(77.0, srnd(3.9));
  EXPECT_EQ(3, lSeed);
  EXPECT_EQ(3.0, srnd(-3.9));
  EXPECT_EQ(-3, lSeed);
  srnd(0);
  double r = rnd();
  EXPECT_TRUE(r >= 0.0 && r < 1.0);
  EXPECT_NE(0, lSeed);
}

// The multiples of the modulus would hold the generator on one value; srnd
// never leaves one behind, whatever double it is given.
TEST_F(RandomGenerator, NoSeedHoldsTheGeneratorStill) {
  for (double seed : {2147483647.0, -2147483647.0, 2147483647.9, -2147483647.5, 4294967294.0, -4294967294.0}) {
    srnd(seed);
    double first = rnd(), second = rnd();
    EXPECT_NE(first, second) << seed;
    EXPECT_NE(0x7FFFFFFF, lSeed) << seed;
  }
}

}  // namespace
