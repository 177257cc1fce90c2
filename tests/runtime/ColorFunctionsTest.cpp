#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "runtime/MathRuntime.h"
#include "runtime/ColorFunctions.h"

namespace {

struct ComponentCase {
  double a, b, c;
  int32_t expected;
};

TEST(Colors, RgbClampsEachComponent) {
  struct {
    int32_t r, g, b, expected;
  } const cases[] = {
      {300, -5, 16, 0xFF0010}, {0, 0, 0, 0},       {255, 255, 255, 0xFFFFFF},
      {256, 255, -1, 0xFFFF00}, {INT32_MIN, INT32_MAX, 1, 0x00FF01}, {1, 2, 3, 0x010203},
  };
  for (auto const& c : cases)
    EXPECT_EQ(c.expected, RuntimeRGB(c.r, c.g, c.b)) << c.r << ", " << c.g << ", " << c.b;
}

TEST(Colors, ComponentsReadFromAnyBitsAboveTwentyThree) {
  struct {
    int32_t color, red, green, blue;
  } const cases[] = {
      {0x123456, 0x12, 0x34, 0x56},
      {int32_t(0xFF123456), 0x12, 0x34, 0x56},
      {int32_t(0x80FF00FF), 0xFF, 0x00, 0xFF},
      {-1, 0xFF, 0xFF, 0xFF},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(c.red, readColorRed(c.color)) << std::hex << c.color;
    EXPECT_EQ(c.green, readColorGreen(c.color)) << std::hex << c.color;
    EXPECT_EQ(c.blue, readColorBlue(c.color)) << std::hex << c.color;
  }
}

TEST(Colors, FractionalComponentsAreTruncatedThenClamped) {
  double const nan = NaN();
  double const inf = std::numeric_limits<double>::infinity();
  ComponentCase const cases[] = {
      {0.999, 0, 0, 0xFE0000},  // 254.745 truncates to 254
      {1, 1, 1, 0xFFFFFF},
      {1.5, -0.1, 0.5, 0xFF007F},
      {-0.003, 0.003, 0, 0x000000},
      // Past the 32-bit range a component still saturates, and NaN has no size.
      {1e300, -1e300, nan, 0xFF0000},
      {inf, -inf, 0, 0xFF0000},
  };
  for (ComponentCase const& c : cases)
    EXPECT_EQ(c.expected, fRGB(c.a, c.b, c.c)) << c.a << ", " << c.b << ", " << c.c;
  // CMY is the complement.
  EXPECT_EQ(0xFFFFFF, RuntimeCMY(0, 0, 0));
  EXPECT_EQ(0x7FFF00, RuntimeCMY(0.5, 0, 1));
  EXPECT_EQ(0xFF00BF, RuntimeCMY(-1, 2, 0.25));
}

TEST(Colors, HsvPicksItsSextantFromTheHue) {
  // Hues of exact binary fractions, so that each product is exact and only
  // the truncation decides the last bit.
  ComponentCase const cases[] = {
      {0, 1, 1, 0xFF0000},
      {0.125, 1, 1, 0xFFBF00},  // sextant 0: t rises
      {0.25, 1, 1, 0x7FFF00},   // 1: q falls
      {0.375, 1, 1, 0x00FF3F},  // 2
      {0.5, 1, 1, 0x00FFFF},    // 3 at its start
      {0.625, 1, 1, 0x003FFF},  // 3
      {0.75, 1, 1, 0x7F00FF},   // 4
      {0.875, 1, 1, 0xFF00BF},  // 5
      {0, 0.5, 1, 0xFF7F7F},
      {0.5, 1, 0.5, 0x007F7F},
      // A hue of 1 or more, or below 0, is red: it doesn't wrap round.
      {1.0, 1, 1, 0xFF0000},
      {1.5, 1, 1, 0xFF0000},
      {-0.25, 1, 1, 0xFF0000},
      {NaN(), 1, 1, 0},
      // Without saturation a grey, whatever the hue.
      {0.3, 0, 0.5, 0x7F7F7F}, {7, 0, 0, 0}, {0.1, 0, 2, 0xFFFFFF}, {0.1, 0, -1, 0}, {NaN(), 0, 1, 0xFFFFFF},
  };
  for (ComponentCase const& c : cases)
    EXPECT_EQ(c.expected, RuntimeHSV(c.a, c.b, c.c)) << c.a << ", " << c.b << ", " << c.c;
}

struct HsvReading {
  int32_t color;
  double hue, saturation, value;
};

TEST(Colors, HueSaturationAndValueReadBackFromRgb) {
  HsvReading const cases[] = {
      {0xFF0000, 0, 1, 1},
      {0xFFFF00, 1.0 / 6, 1, 1},
      {0x00FF00, 2.0 / 6, 1, 1},
      {0x0000FF, 4.0 / 6, 1, 1},
      {0xFF00FF, 5.0 / 6, 1, 1},  // a negative hue wraps once into 0-1
      {0xFF0080, 1 - 128.0 / 255 / 6, 1, 1},
      {0x808080, 0, 0, 128.0 / 255},
      {0x000000, 0, 0, 0},
      {0xFF8080, 0, 1 - 128.0 / 255, 1},
      {int32_t(0xAA00FF00), 2.0 / 6, 1, 1},
  };
  for (HsvReading const& c : cases) {
    EXPECT_NEAR(c.hue, readColorHue(c.color), 1e-12) << std::hex << c.color;
    EXPECT_NEAR(c.saturation, readColorSaturation(c.color), 1e-12) << std::hex << c.color;
    EXPECT_NEAR(c.value, readColorValue(c.color), 1e-12) << std::hex << c.color;
  }
}

TEST(Colors, CyanMagentaAndYellowAreTheMissingParts) {
  EXPECT_DOUBLE_EQ(1.0, readColorCyan(0x00FFFF));
  EXPECT_DOUBLE_EQ(0.0, readColorCyan(0xFF0000));
  EXPECT_DOUBLE_EQ(191.0 / 255, readColorMagenta(0x004000));
  EXPECT_DOUBLE_EQ(1.0, readColorYellow(int32_t(0xFF000000)));
  EXPECT_DOUBLE_EQ(0.0, readColorYellow(0x0000FF));
}

}  // namespace
