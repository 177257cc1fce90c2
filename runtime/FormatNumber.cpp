#include "runtime/FormatNumber.h"

#include <cmath>
#include <cstdio>
#include <string>

namespace {

std::string Printed(char const* format, int digits, double value) {
  int length = snprintf(nullptr, 0, format, digits, value);
  if (length <= 0) return std::string();
  std::string text((size_t)length + 1, '\0');
  snprintf(&text[0], text.size(), format, digits, value);
  text.resize((size_t)length);
  return text;
}

// "-0.000" and the like: a value that rounds to zero has no sign.
bool IsSignedZero(std::string const& text) {
  if (text.empty() || text[0] != '-') return false;
  for (size_t i = 1; i < text.size(); ++i)
    if (text[i] != '0' && text[i] != '.') return false;
  return true;
}

}  // namespace

string StandardNumToStr(double value, int fixed, int digits) {
  if (value == 0) value = 0;  // a negative zero loses its sign
  if (digits > kMaxNumberDigits) digits = kMaxNumberDigits;
  if (digits < 0) digits = 0;
  std::string text = fixed ? Printed("%.*f", digits, value) : Printed("%.*e", digits > 0 ? digits - 1 : 0, value);
  if (!fixed) {
    size_t at = text.find("e+0");
    if (at != std::string::npos) text.erase(at + 2, 1);
  }
  size_t first = text.find_first_not_of(' ');
  text.erase(0, first == std::string::npos ? text.size() : first);
  if (IsSignedZero(text)) text.erase(0, 1);
  return string(text.c_str());
}

string doubleStr(double value, long mode, unsigned long precision) {
  // printf shows a NaN's sign bit ("-nan" for 0/0, "nan" for ACos(2)); the
  // language has one NaN text.
  if (std::isnan(value)) return string("nan");
  if (value == 0) value = 0;
  double magnitude = std::fabs(value);
  if (mode == -1) mode = magnitude != 0 && (magnitude > 1000000.0 || magnitude < 0.00001) ? 0 : 1;
  if (precision > (unsigned long)kMaxNumberDigits) precision = kMaxNumberDigits;
  long digits = (long)precision;
  // Only a finite value has integer digits to count: an infinity divided by
  // ten stays infinite, and the count would never end.
  if (mode == 1 && std::isfinite(magnitude)) {
    for (double rest = magnitude; rest >= 1; rest /= 10) --digits;
    // A fixed rendering wider than the precision shows no fraction rather
    // than a negative digit count.
    if (digits < 0) digits = 0;
  }
  std::string text = StandardNumToStr(value, (int)mode, (int)digits).CString();
  // Only zeros behind a decimal point are a fraction's trailing zeros.
  if (mode == 1 && digits != 0 && text.find('.') != std::string::npos) {
    while (!text.empty() && text.back() == '0') text.pop_back();
    if (!text.empty() && text.back() == '.') text.pop_back();
  }
  return string(text.c_str());
}
