// Encoding tags and conversion between encodings. A tag is an unsigned
// 32-bit number in the platform's text-encoding numbering; tags 256 to 511
// are wide forms whose text is no superset of ASCII. Conversions go through
// iconv; a conversion that can't be made returns its input, tag unchanged.
#pragma once

#include <cstdint>

class string;
struct stringStorage;

constexpr unsigned long kEncodingUnknown = 0xFFFF;
constexpr unsigned long kEncodingASCII = 0x600;
constexpr unsigned long kEncodingUTF8 = 0x08000100;
constexpr unsigned long kEncodingUTF16 = 0x100;
constexpr unsigned long kEncodingMacRoman = 0;

// True for the wide forms (256..511), whose text isn't ASCII-compatible.
inline bool IsWideEncoding(unsigned long tag) { return tag >= 256 && tag <= 511; }

// The iconv name of a tag, or null if it has none.
char const* GetCodeNameFromEncoding(unsigned long tag);
// The tag under which text of `a` and of `b` can stand together, or kEncodingUnknown.
unsigned long CommonEncoding(unsigned long a, unsigned long b, unsigned char allowConversion);
// Brings both strings to one tag, replacing them if needed; returns that tag.
unsigned long ConvertToSameEncoding(string* a, string* b);
// The text of `s` in `tag`; `s` itself when no conversion is possible or needed.
string ConvertEncoding(string s, unsigned long tag);
// Drops the records that ConvertEncoding keeps for its one-entry cache, so a
// leak check can count the small-block bytes of a run exactly.
void ClearConvertEncodingCache();
// Returns a record holding a new reference for the caller.
stringStorage* ConvertTextUnix(stringStorage* s, unsigned long from, unsigned long to);
void GetEncodingAttributes(unsigned long tag, int& base, int& variant, int& format);
unsigned long GetSystemEncoding();
unsigned long GetEncodingFromFont(string font);
string ConvertToSystemEncoding(string s);
