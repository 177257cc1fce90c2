// The default rendering of numbers: the examples the language gives, the
// edges of the fixed range, signs of values that round to zero, and inputs
// that must end (infinities) or stay bounded (absurd precisions).
#include "runtime/FormatNumber.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

TEST(FormatNumber, DefaultRendering) {
  double const inf = std::numeric_limits<double>::infinity();
  struct {
    double value;
    char const* text;
  } const kCases[] = {
      {1234.5, "1234.5"},         {1000000, "1000000"},     {1000001.0, "1.000001e+6"},
      {0, "0"},                   {-0.0, "0"},              {0.00001, "0.00001"},
      {1.0 / 3, "0.3333333"},     {-2.5, "-2.5"},           {100, "100"},
      {0.1f, "0.1"},              {123456.75, "123456.8"},  {0.000009, "9.000000e-06"},
      {-1e300, "-1.000000e+300"}, {1e7, "1.000000e+7"},     {inf, "inf"},
      {-inf, "-inf"},
  };
  for (auto const& c : kCases) EXPECT_STREQ(doubleStr(c.value, -1, 7).CString(), c.text) << c.value;
}

TEST(FormatNumber, ExplicitModesAndDigits) {
  struct {
    double value;
    long mode;
    unsigned long precision;
    char const* text;
  } const kCases[] = {
      {1.5e7, 0, 2, "1.5e+7"},
      {1.5e-7, 0, 2, "1.5e-07"},
      {-0.0001, 1, 2, "0"},            // rounds to zero: no sign
      {12345678.0, 1, 3, "12345678"},  // wider than the precision: no fraction
      {std::numeric_limits<double>::infinity(), 1, 7, "inf"},
  };
  for (auto const& c : kCases)
    EXPECT_STREQ(doubleStr(c.value, c.mode, c.precision).CString(), c.text) << c.value << " mode " << c.mode;
  EXPECT_STREQ(StandardNumToStr(-0.0004, 1, 3).CString(), "0.000");
  EXPECT_EQ(StandardNumToStr(1.0, 1, 1 << 30).Length(), 2 + kMaxNumberDigits);
}

}  // namespace
