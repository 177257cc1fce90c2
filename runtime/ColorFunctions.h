// Colour arithmetic. A colour is a plain 32-bit integer 0xRRGGBB: red in
// bits 16-23, green in 8-15, blue in 0-7. What this unit builds has bits
// 24-31 clear; what it reads may have them set, and they are ignored.
// Components given as doubles run from 0 to 1.
#pragma once

#include <cstdint>

extern "C" {

int32_t readColorRed(int32_t color);
int32_t readColorGreen(int32_t color);
int32_t readColorBlue(int32_t color);
double readColorCyan(int32_t color);
double readColorMagenta(int32_t color);
double readColorYellow(int32_t color);
double readColorHue(int32_t color);
double readColorSaturation(int32_t color);
double readColorValue(int32_t color);

// Each component clamped to 0-255.
int32_t RuntimeRGB(int32_t r, int32_t g, int32_t b);
// A hue outside 0 (included) to 1 (excluded) counts as 0; it doesn't wrap.
int32_t RuntimeHSV(double h, double s, double v);
int32_t RuntimeCMY(double c, double m, double y);
// Each component times 255, truncated (not rounded) and clamped to 0-255.
int32_t fRGB(double r, double g, double b);
}

// Components from 0 to 1; a grey has hue and saturation 0.
void RGBtoHSV(double r, double g, double b, double* h, double* s, double* v);
