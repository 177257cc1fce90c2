#include "runtime/ColorFunctions.h"

namespace {

constexpr int kRedShift = 16;
constexpr int kGreenShift = 8;
constexpr int32_t kComponentMask = 0xFF;
constexpr int32_t kComponentMax = 255;
constexpr double kComponentScale = 255.0;
// A grey repeats one component in all three places.
constexpr int32_t kGreyMultiplier = 0x10101;

// The x87 unit keeps intermediates with a 64-bit mantissa, and a truncation
// to a component then sees what the same steps in doubles don't: 1/6 * 6
// stays below 1 and picks the wrong sextant, (1 - 0.4) * 255 stays below
// 153. A store to a volatile double rounds each step to a double; only a
// product that the 64-bit mantissa rounds onto a tie can still differ, by
// one unit in the last place.
double Rounded(double x) {
  volatile double stored = x;
  return stored;
}
double Minus(double a, double b) { return Rounded(a - b); }
double Times(double a, double b) { return Rounded(a * b); }

int32_t ClampComponent(int32_t c) {
  if (c < 0) return 0;
  return c > kComponentMax ? kComponentMax : c;
}

// A 0-1 component as 0-255, truncated. Decided on the double itself, so that
// a value past the 32-bit range saturates rather than wrapping, and a NaN,
// which has no size, gives 0.
int32_t ScaleComponent(double c) {
  double scaled = Times(c, kComponentScale);
  if (!(scaled > 0)) return 0;
  if (scaled >= kComponentMax) return kComponentMax;
  return static_cast<int32_t>(scaled);
}

int32_t Compose(int32_t r, int32_t g, int32_t b) { return (r << kRedShift) | (g << kGreenShift) | b; }

double Unit(int32_t component) { return Rounded(component / kComponentScale); }

void ColorToHSV(int32_t color, double* h, double* s, double* v) {
  RGBtoHSV(Unit(readColorRed(color)), Unit(readColorGreen(color)), Unit(readColorBlue(color)), h, s, v);
}

}  // namespace

void RGBtoHSV(double r, double g, double b, double* h, double* s, double* v) {
  double max = r > g ? r : g;
  if (b > max) max = b;
  double min = r < g ? r : g;
  if (b < min) min = b;
  double delta = max - min;
  *v = max;
  *s = max != 0 ? Rounded(delta / max) : 0;
  if (*s == 0) {
    *h = 0;
    return;
  }
  *h = 0;
  if (r == max)
    *h = Rounded((g - b) / delta);
  else if (g == max)
    *h = Rounded(2 + Rounded((b - r) / delta));
  else if (b == max)
    *h = Rounded(4 + Rounded((r - g) / delta));
  *h = Rounded(*h / 6);
  if (*h < 0) *h = Rounded(*h + 1);
}

extern "C" {

int32_t readColorRed(int32_t color) { return (color >> kRedShift) & kComponentMask; }
int32_t readColorGreen(int32_t color) { return (color >> kGreenShift) & kComponentMask; }
int32_t readColorBlue(int32_t color) { return color & kComponentMask; }

double readColorCyan(int32_t color) { return (kComponentMax - readColorRed(color)) / kComponentScale; }
double readColorMagenta(int32_t color) { return (kComponentMax - readColorGreen(color)) / kComponentScale; }
double readColorYellow(int32_t color) { return (kComponentMax - readColorBlue(color)) / kComponentScale; }

double readColorHue(int32_t color) {
  double h, s, v;
  ColorToHSV(color, &h, &s, &v);
  return h;
}

double readColorSaturation(int32_t color) {
  double h, s, v;
  ColorToHSV(color, &h, &s, &v);
  return s;
}

double readColorValue(int32_t color) {
  double h, s, v;
  ColorToHSV(color, &h, &s, &v);
  return v;
}

int32_t RuntimeRGB(int32_t r, int32_t g, int32_t b) {
  return Compose(ClampComponent(r), ClampComponent(g), ClampComponent(b));
}

int32_t fRGB(double r, double g, double b) {
  return Compose(ScaleComponent(r), ScaleComponent(g), ScaleComponent(b));
}

int32_t RuntimeCMY(double c, double m, double y) { return fRGB(Minus(1, c), Minus(1, m), Minus(1, y)); }

int32_t RuntimeHSV(double h, double s, double v) {
  if (s == 0) return ScaleComponent(v) * kGreyMultiplier;
  if (h >= 1 || h < 0) h = 0;
  double h6 = Times(h, 6);
  // h is below 1 here, so this is 0 to 5, unless h is a NaN.
  int i = h6 >= 0 && h6 < 6 ? static_cast<int>(h6) : -1;
  double f = h6 - i;
  double p = Times(Minus(1, s), v);
  double q = Times(Minus(1, Times(s, f)), v);
  double t = Times(Minus(1, Times(s, Minus(1, f))), v);
  switch (i) {
    case 0: return fRGB(v, t, p);
    case 1: return fRGB(q, v, p);
    case 2: return fRGB(p, v, t);
    case 3: return fRGB(p, q, v);
    case 4: return fRGB(t, p, v);
    case 5: return fRGB(v, p, q);
    default: return 0;
  }
}
}
