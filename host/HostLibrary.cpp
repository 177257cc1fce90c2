#include "host/HostLibrary.h"

#include "runtime/FormatNumber.h"
#include "runtime/MathRuntime.h"
#include "runtime/ColorFunctions.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "foundation/String.h"
#include "host/StandInHost.h"
#include "runtime/KVScriptIntrinsics.h"
#include "runtime/RunAbort.h"
#include "runtime/RuntimeArrayFoundation.h"

namespace {

// ---------------------------------------------------------------------------
// Text as units: characters of UTF-8, or bytes

// Upper and lower case of the letters the searching functions fold, as
// Unicode's simple case mapping has them. Where the two cases stand a fixed
// distance apart, a run of upper case letters maps onto its lower case run.
struct CaseShift {
  uint32_t first, last;  // the upper case letters
  int32_t toLower;
};
constexpr CaseShift kCaseShifts[] = {
    {0xC0, 0xD6, 32},   {0xD8, 0xDE, 32},   {0x178, 0x178, -121}, {0x386, 0x386, 38},
    {0x388, 0x38A, 37}, {0x38C, 0x38C, 64}, {0x38E, 0x38F, 63},   {0x391, 0x3A1, 32},
    {0x3A3, 0x3AB, 32}, {0x400, 0x40F, 80}, {0x410, 0x42F, 32},   {0x4C0, 0x4C0, 15},
};

// Blocks where the cases alternate: each upper case letter sits at an even
// code point (an odd one where `upperOdd`) with its lower case one above it.
struct CasePairs {
  uint32_t first, last;
  bool upperOdd;
};
constexpr CasePairs kCasePairs[] = {
    {0x100, 0x12F, false}, {0x132, 0x137, false}, {0x139, 0x148, true},  {0x14A, 0x177, false},
    {0x179, 0x17E, true},  {0x460, 0x481, false}, {0x48A, 0x4BF, false}, {0x4C1, 0x4CE, true},
    {0x4D0, 0x52F, false},
};

CasePairs const* PairsOf(uint32_t c) {
  for (CasePairs const& p : kCasePairs)
    if (c >= p.first && c <= p.last) return &p;
  return nullptr;
}

bool IsPairedUpper(CasePairs const& p, uint32_t c) { return ((c & 1) != 0) == p.upperOdd; }

// ASCII, most of any text, is settled before the tables are searched.
uint32_t ToUpper(uint32_t c) {
  if (c < 0x80) return c >= 'a' && c <= 'z' ? c - 32 : c;
  if (c == 0x3C2) return 0x3A3;  // final sigma
  if (CasePairs const* p = PairsOf(c)) return IsPairedUpper(*p, c) ? c : c - 1;
  for (CaseShift const& s : kCaseShifts) {
    uint32_t upper = c - (uint32_t)s.toLower;
    if (upper >= s.first && upper <= s.last) return upper;
  }
  return c;
}

uint32_t ToLower(uint32_t c) {
  if (c < 0x80) return c >= 'A' && c <= 'Z' ? c + 32 : c;
  if (CasePairs const* p = PairsOf(c)) return IsPairedUpper(*p, c) ? c + 1 : c;
  for (CaseShift const& s : kCaseShifts)
    if (c >= s.first && c <= s.last) return c + (uint32_t)s.toLower;
  return c;
}

// Letters of these blocks that have no partner in the other case.
bool IsCaselessLetter(uint32_t c) {
  switch (c) {
    case 0xAA: case 0xB5: case 0xBA: case 0xDF: case 0x130: case 0x131:
    case 0x138: case 0x149: case 0x17F: case 0x390: case 0x3B0:
      return true;
    default:
      return false;
  }
}

bool IsLetterOrDigit(uint32_t c) {
  return ToUpper(c) != ToLower(c) || IsCaselessLetter(c) || (c >= '0' && c <= '9');
}

// A text cut into units. `start` has one more entry than there are units:
// the byte offset of each unit, then the text's length.
struct Units {
  char const* bytes = "";
  std::vector<uint32_t> value;
  // What matching compares: the value, folded to upper case where case is ignored.
  std::vector<uint32_t> key;
  std::vector<size_t> start;
  unsigned long encoding = kEncodingUTF8;

  size_t Count() const { return value.size(); }
  size_t Length() const { return start.back(); }
};

// The bytes a UTF-8 sequence with this lead byte takes; 1 for a byte that
// leads none.
size_t SequenceLength(unsigned char lead) {
  if (lead >= 0xC0 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  if (lead >= 0xF0 && lead < 0xF8) return 4;
  return 1;
}

// The code point of the character of `length` bytes at `p`; a stray byte
// or a sequence cut short stands for its first byte.
uint32_t DecodeUTF8(unsigned char const* p, size_t length) {
  uint32_t lead = p[0];
  if (length == 1 || length != SequenceLength(p[0])) return lead;
  uint32_t code = lead & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) code = code << 6 | (p[i] & 0x3F);
  return code;
}

// A character is a lead byte with the continuation bytes it calls for; a
// continuation byte beyond those is a character of its own.
Units Cut(stringStorage* s, bool characters, bool foldCase) {
  Units u;
  u.bytes = stringStorage::CString(s);
  if (s) u.encoding = s->mEncoding;
  size_t length = (size_t)stringStorage::Length(s);
  auto const* p = reinterpret_cast<unsigned char const*>(u.bytes);
  size_t at = 0;
  while (at < length) {
    size_t next = at + 1;
    size_t end = characters ? at + SequenceLength(p[at]) : next;
    while (next < end && next < length && (p[next] & 0xC0) == 0x80) ++next;
    uint32_t v = characters ? DecodeUTF8(p + at, next - at) : p[at];
    u.start.push_back(at);
    u.value.push_back(v);
    u.key.push_back(foldCase ? ToUpper(v) : v);
    at = next;
  }
  u.start.push_back(length);
  return u;
}

Units Characters(stringStorage* s, bool foldCase = false) { return Cut(s, true, foldCase); }
Units Bytes(stringStorage* s) { return Cut(s, false, false); }

// The unit index of the first match of `needle` at or after `from`, or -1.
long Find(Units const& hay, Units const& needle, size_t from) {
  size_t n = needle.Count();
  if (n == 0 || hay.Count() < n) return -1;
  for (size_t i = from; i + n <= hay.Count(); ++i) {
    size_t k = 0;
    while (k < n && hay.key[i + k] == needle.key[k]) ++k;
    if (k == n) return (long)i;
  }
  return -1;
}

// ---------------------------------------------------------------------------
// Results

stringStorage* NewText(std::string const& bytes, unsigned long encoding) {
  string result;
  if (!bytes.empty()) {
    result.ConstructFromBuffer(bytes.data(), (int)bytes.size());
    result.SetEncoding(encoding);
  }
  return result.ExtractStringStorage();
}

// Units [first, first + count) of `u`, clipped to the text.
stringStorage* Slice(Units const& u, size_t first, size_t count) {
  if (first >= u.Count() || count == 0) return nullptr;
  size_t last = first + count < u.Count() ? first + count : u.Count();
  return NewText(std::string(u.bytes + u.start[first], u.start[last] - u.start[first]), u.encoding);
}

stringStorage* LeftOf(Units const& u, long count) { return count < 1 ? nullptr : Slice(u, 0, (size_t)count); }

stringStorage* RightOf(Units const& u, long count) {
  if (count < 1) return nullptr;
  size_t n = (size_t)count < u.Count() ? (size_t)count : u.Count();
  return Slice(u, u.Count() - n, n);
}

stringStorage* MidOf(Units const& u, long start, long count) {
  if (count < 1) return nullptr;
  size_t first = start < 1 ? 0 : (size_t)(start - 1);
  return Slice(u, first, (size_t)count);
}

long InStrOf(long start, Units const& hay, Units const& needle) {
  size_t from = start <= 1 ? 0 : (size_t)(start - 1);
  long found = Find(hay, needle, from);
  return found < 0 ? 0 : found + 1;
}

stringStorage* ReplaceIn(Units const& source, Units const& old, stringStorage* replacement, bool all) {
  std::string out;
  std::string with(stringStorage::CString(replacement), (size_t)stringStorage::Length(replacement));
  size_t copied = 0;  // units of the source already in `out`
  for (long at = Find(source, old, 0); at >= 0; at = all ? Find(source, old, copied) : -1) {
    out.append(source.bytes + source.start[copied], source.start[(size_t)at] - source.start[copied]);
    out += with;
    copied = (size_t)at + old.Count();
  }
  out.append(source.bytes + source.start[copied], source.Length() - source.start[copied]);
  return NewText(out, source.encoding);
}

// Each unit mapped through `map`, written back as UTF-8; a stray byte is kept as it is.
template <class Map>
stringStorage* MapCharacters(stringStorage* text, Map map) {
  Units u = Characters(text);
  std::string out;
  for (size_t i = 0; i < u.Count(); ++i) {
    size_t length = u.start[i + 1] - u.start[i];
    uint32_t mapped = map(u, i);
    if (mapped == u.value[i]) {
      out.append(u.bytes + u.start[i], length);
      continue;
    }
    unsigned char encoded[16];
    int n = UTF8Encode(mapped, encoded);
    out.append(reinterpret_cast<char*>(encoded), (size_t)n);
  }
  return NewText(out, u.encoding);
}

bool IsTrimmed(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

stringStorage* Trimmed(stringStorage* text, bool front, bool back) {
  char const* bytes = stringStorage::CString(text);
  long first = 0, end = stringStorage::Length(text);
  while (front && first < end && IsTrimmed(bytes[first])) ++first;
  while (back && end > first && IsTrimmed(bytes[end - 1])) --end;
  return NewText(std::string(bytes + first, (size_t)(end - first)), text ? text->mEncoding : kEncodingUTF8);
}

// ---------------------------------------------------------------------------
// Numbers

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 99;
}

double ParseNumber(stringStorage* text) {
  std::string s(stringStorage::CString(text), (size_t)stringStorage::Length(text));
  size_t i = 0;
  while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) ++i;
  if (i + 1 < s.size() && s[i] == '&') {
    char kind = (char)(s[i + 1] | 0x20);
    unsigned base = kind == 'h' ? 16 : kind == 'o' ? 8 : kind == 'b' ? 2 : 0;
    if (base) {
      uint32_t value = 0;
      for (i += 2; i < s.size() && DigitValue(s[i]) < (int)base; ++i) value = value * base + (uint32_t)DigitValue(s[i]);
      return (double)value;
    }
  }
  // Only what reads as a decimal number goes to strtod, which would also
  // take words such as "inf" and forms such as "0x1p3".
  size_t from = i;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  size_t digits = 0;
  for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) ++digits;
  if (i < s.size() && s[i] == '.')
    for (++i; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) ++digits;
  if (digits == 0) return 0.0;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    size_t j = i + 1;
    if (j < s.size() && (s[j] == '+' || s[j] == '-')) ++j;
    if (j < s.size() && s[j] >= '0' && s[j] <= '9') {
      for (i = j; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {}
    }
  }
  return strtod(s.substr(from, i - from).c_str(), nullptr);
}

// The language's default rendering, the text a Variant holding the value gives.
// A NaN's sign bit means nothing, yet the C library shows it: the x87
// default NaN of Sqrt(-1) has it set and NaN() has it clear. Both read "nan".
stringStorage* NumberText(double value) {
  return NewText(std::string(doubleStr(value, -1, 7).CString()), kEncodingUTF8);
}

stringStorage* InBase(long value, unsigned bitsPerDigit) {
  static char const kDigits[] = "0123456789ABCDEF";
  uint32_t v = (uint32_t)value;
  uint32_t mask = (1u << bitsPerDigit) - 1;
  std::string out;
  do {
    out.insert(out.begin(), kDigits[v & mask]);
    v >>= bitsPerDigit;
  } while (v);
  return NewText(out, kEncodingUTF8);
}

double MonotonicMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec * 1e6 + (double)now.tv_nsec / 1e3;
}

}  // namespace

// ---------------------------------------------------------------------------
// Entries

long StringDBCSAsc(stringStorage* text) {
  Units u = Characters(text);
  return u.Count() ? (long)u.value[0] : 0;
}

long StringAsc(stringStorage* text) {
  return stringStorage::Length(text) ? (long)(unsigned char)stringStorage::CString(text)[0] : 0;
}

stringStorage* StringDBCSChr(long code) {
  uint32_t c = (uint32_t)code;
  if (code < 0 || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
  unsigned char encoded[16];
  int n = UTF8Encode(c, encoded);
  return NewText(std::string(reinterpret_cast<char*>(encoded), (size_t)n), kEncodingUTF8);
}

stringStorage* StringChr(long code) {
  unsigned char byte = (unsigned char)code;
  return NewText(std::string(1, (char)byte), byte < 0x80 ? kEncodingUTF8 : kEncodingUnknown);
}

long StringDBCSLen(stringStorage* text) { return (long)Characters(text).Count(); }
long StringLen(stringStorage* text) { return stringStorage::Length(text); }

stringStorage* StringDBCSLeft(stringStorage* text, long count) { return LeftOf(Characters(text), count); }
stringStorage* StringLeft(stringStorage* text, long count) { return LeftOf(Bytes(text), count); }
stringStorage* StringDBCSRight(stringStorage* text, long count) { return RightOf(Characters(text), count); }
stringStorage* StringRight(stringStorage* text, long count) { return RightOf(Bytes(text), count); }

stringStorage* StringDBCSMid3(stringStorage* text, long start, long count) {
  return MidOf(Characters(text), start, count);
}
stringStorage* StringDBCSMid2(stringStorage* text, long start) {
  Units u = Characters(text);
  return MidOf(u, start, (long)u.Count());
}
stringStorage* StringMid3(stringStorage* text, long start, long count) { return MidOf(Bytes(text), start, count); }
stringStorage* StringMid2(stringStorage* text, long start) {
  Units u = Bytes(text);
  return MidOf(u, start, (long)u.Count());
}

long StringInStr(long start, stringStorage* haystack, stringStorage* needle) {
  return InStrOf(start, Characters(haystack, true), Characters(needle, true));
}
long StringInStrB(long start, stringStorage* haystack, stringStorage* needle) {
  return InStrOf(start, Bytes(haystack), Bytes(needle));
}
long StringExtendsInStr(stringStorage* haystack, long start, stringStorage* needle) {
  return StringInStr(start, haystack, needle);
}
long StringExtendsInStrB(stringStorage* haystack, long start, stringStorage* needle) {
  return StringInStrB(start, haystack, needle);
}

long StringCountFields(stringStorage* text, stringStorage* delimiter) {
  Units t = Characters(text, true), d = Characters(delimiter, true);
  if (t.Count() == 0) return 0;
  long fields = 1;
  for (long at = Find(t, d, 0); at >= 0; at = Find(t, d, (size_t)at + d.Count())) ++fields;
  return fields;
}

stringStorage* StringNthField(stringStorage* text, stringStorage* delimiter, long index) {
  Units t = Characters(text, true), d = Characters(delimiter, true);
  if (index < 1 || t.Count() == 0) return nullptr;
  size_t first = 0;
  for (long n = 1;; ++n) {
    long end = Find(t, d, first);
    size_t last = end < 0 ? t.Count() : (size_t)end;
    if (n == index) return Slice(t, first, last - first);
    if (end < 0) return nullptr;
    first = last + d.Count();
  }
}

stringStorage* StringReplace(stringStorage* source, stringStorage* old, stringStorage* replacement) {
  return ReplaceIn(Characters(source, true), Characters(old, true), replacement, false);
}
stringStorage* StringReplaceAll(stringStorage* source, stringStorage* old, stringStorage* replacement) {
  return ReplaceIn(Characters(source, true), Characters(old, true), replacement, true);
}
stringStorage* StringReplaceB(stringStorage* source, stringStorage* old, stringStorage* replacement) {
  return ReplaceIn(Bytes(source), Bytes(old), replacement, false);
}
stringStorage* StringReplaceAllB(stringStorage* source, stringStorage* old, stringStorage* replacement) {
  return ReplaceIn(Bytes(source), Bytes(old), replacement, true);
}

stringStorage* StringLCase(stringStorage* text) {
  return MapCharacters(text, [](Units const& u, size_t i) { return ToLower(u.value[i]); });
}

stringStorage* StringUCase(stringStorage* text) {
  return MapCharacters(text, [](Units const& u, size_t i) { return ToUpper(u.value[i]); });
}

stringStorage* StringTitleCase(stringStorage* text) {
  return MapCharacters(text, [](Units const& u, size_t i) {
    bool wordGoesOn = i > 0 && (IsLetterOrDigit(u.value[i - 1]) || u.value[i - 1] == '\'');
    return wordGoesOn ? ToLower(u.value[i]) : ToUpper(u.value[i]);
  });
}

stringStorage* runLTrim(stringStorage* text) { return Trimmed(text, true, false); }
stringStorage* runRTrim(stringStorage* text) { return Trimmed(text, false, true); }
stringStorage* runTrim(stringStorage* text) { return Trimmed(text, true, true); }

stringStorage* StringJoin(RuntimeArray* fields, stringStorage* delimiter) {
  if (!fields) {
    RaiseNilObjectException();
    return nullptr;
  }
  auto* texts = reinterpret_cast<stringStorage**>(fields->mData);
  long count = fields->mUpperBounds[0] + 1;
  std::string out;
  // The fields' own tag when they all agree with the delimiter's, else UTF-8.
  unsigned long encoding = delimiter ? delimiter->mEncoding : kEncodingUnknown;
  bool mixed = false;
  for (long i = 0; i < count; ++i) {
    if (i > 0) out.append(stringStorage::CString(delimiter), (size_t)stringStorage::Length(delimiter));
    stringStorage* field = texts[i];
    if (!field) continue;
    out.append(stringStorage::CString(field), (size_t)stringStorage::Length(field));
    if (encoding == kEncodingUnknown) encoding = field->mEncoding;
    mixed = mixed || field->mEncoding != encoding;
  }
  return NewText(out, mixed || encoding == kEncodingUnknown ? kEncodingUTF8 : encoding);
}

namespace {

// The pieces of StringSplit in a new array, or null when memory runs out.
// Raises nothing: the caller raises once the vectors here are gone.
RuntimeArray* SplitFields(stringStorage* source, stringStorage* delimiter) {
  Units t = Characters(source, true), d = Characters(delimiter, true);
  std::vector<stringStorage*> pieces;
  size_t first = 0;
  while (first < t.Count()) {
    long end = d.Count() ? Find(t, d, first) : (long)first + 1;
    size_t last = end < 0 ? t.Count() : (size_t)end;
    pieces.push_back(Slice(t, first, last - first));
    if (end < 0) break;
    first = last + d.Count();
    // A delimiter at the very end leaves one empty field behind it.
    if (d.Count() && first == t.Count()) pieces.push_back(nullptr);
  }
  RuntimeArray* result = NewLinearArray(kArrayElementString, (int)pieces.size() - 1);
  auto* slots = result ? reinterpret_cast<stringStorage**>(result->mData) : nullptr;
  // Each piece's reference passes to the array, or goes if there is none.
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (slots)
      slots[i] = pieces[i];
    else
      stringStorage::RemoveReference(pieces[i]);
  }
  return result;
}

}  // namespace

RuntimeArray* StringSplit(stringStorage* source, stringStorage* delimiter) {
  RuntimeArray* result = SplitFields(source, delimiter);
  if (!result) RaiseExceptionClass(OutOfMemoryExceptionLookup());
  return result;
}

long StringStrCompare(stringStorage* a, stringStorage* b, long mode) {
  if (mode != 0) return string(a).Compare(string(b));
  Units x = Bytes(a), y = Bytes(b);
  for (size_t i = 0; i < x.Count() && i < y.Count(); ++i)
    if (x.value[i] != y.value[i]) return x.value[i] < y.value[i] ? -1 : 1;
  return x.Count() == y.Count() ? 0 : x.Count() < y.Count() ? -1 : 1;
}

double StringVal(stringStorage* text) { return ParseNumber(text); }
double runCDbl(stringStorage* text) { return ParseNumber(text); }
stringStorage* StringStr(double value) { return NumberText(value); }
stringStorage* runCStr(double value) { return NumberText(value); }
stringStorage* RuntimeHex(long value) { return InBase(value, 4); }
stringStorage* RuntimeOct(long value) { return InBase(value, 3); }
stringStorage* RuntimeBin(long value) { return InBase(value, 1); }

double RuntimeMicroseconds() { return MonotonicMicroseconds(); }
// Ticks wrap around at 32 bits, so that the difference of two stays right in
// Integer arithmetic however long the machine has been up.
long RuntimeTicks() { return (long)(uint32_t)(int64_t)(MonotonicMicroseconds() * 60.0 / 1e6); }

// ---------------------------------------------------------------------------
// Maths and colours: the engine's own run-time functions serve, but for Sign,
// which the library declares As Double: an int would come back in eax while
// the caller reads the float register.

double HostSign(double value) { return (double)RuntimeSign(value); }

// ---------------------------------------------------------------------------
// Registration

void RegisterHostLibrary() {
  struct Row {
    char const* name;
    void* entry;
  };
#define KV_HOST_ENTRY(f) Row{#f, reinterpret_cast<void*>(&f)}
  Row const rows[] = {
      KV_HOST_ENTRY(StringDBCSAsc),     KV_HOST_ENTRY(StringAsc),          KV_HOST_ENTRY(StringDBCSChr),
      KV_HOST_ENTRY(StringChr),         KV_HOST_ENTRY(StringDBCSLen),      KV_HOST_ENTRY(StringLen),
      KV_HOST_ENTRY(StringDBCSLeft),    KV_HOST_ENTRY(StringLeft),         KV_HOST_ENTRY(StringDBCSRight),
      KV_HOST_ENTRY(StringRight),       KV_HOST_ENTRY(StringDBCSMid3),     KV_HOST_ENTRY(StringDBCSMid2),
      KV_HOST_ENTRY(StringMid3),        KV_HOST_ENTRY(StringMid2),         KV_HOST_ENTRY(StringInStr),
      KV_HOST_ENTRY(StringInStrB),      KV_HOST_ENTRY(StringExtendsInStr), KV_HOST_ENTRY(StringExtendsInStrB),
      KV_HOST_ENTRY(StringCountFields), KV_HOST_ENTRY(StringNthField),     KV_HOST_ENTRY(StringReplace),
      KV_HOST_ENTRY(StringReplaceAll),  KV_HOST_ENTRY(StringReplaceB),     KV_HOST_ENTRY(StringReplaceAllB),
      KV_HOST_ENTRY(StringLCase),       KV_HOST_ENTRY(StringUCase),        KV_HOST_ENTRY(StringTitleCase),
      KV_HOST_ENTRY(runLTrim),          KV_HOST_ENTRY(runRTrim),           KV_HOST_ENTRY(runTrim),
      KV_HOST_ENTRY(StringStrCompare),  KV_HOST_ENTRY(StringVal),          KV_HOST_ENTRY(runCDbl),
      KV_HOST_ENTRY(StringStr),         KV_HOST_ENTRY(runCStr),            KV_HOST_ENTRY(RuntimeHex),
      KV_HOST_ENTRY(RuntimeOct),        KV_HOST_ENTRY(RuntimeBin),         KV_HOST_ENTRY(RuntimeMicroseconds),
      KV_HOST_ENTRY(RuntimeTicks),      KV_HOST_ENTRY(RuntimeAbs),         KV_HOST_ENTRY(RuntimeACos),
      KV_HOST_ENTRY(RuntimeASin),       KV_HOST_ENTRY(RuntimeATan),        KV_HOST_ENTRY(RuntimeATan2),
      KV_HOST_ENTRY(RuntimeCeil),       KV_HOST_ENTRY(RuntimeCos),         KV_HOST_ENTRY(RuntimeExp),
      KV_HOST_ENTRY(RuntimeFloor),      KV_HOST_ENTRY(RuntimeLog),         KV_HOST_ENTRY(RuntimeMax),
      KV_HOST_ENTRY(RuntimeMin),        KV_HOST_ENTRY(RuntimePow),         KV_HOST_ENTRY(RuntimeRound),
      KV_HOST_ENTRY(RuntimeSin),        KV_HOST_ENTRY(RuntimeSqrt),        KV_HOST_ENTRY(RuntimeTan),
      KV_HOST_ENTRY(BitwiseAnd),        KV_HOST_ENTRY(BitwiseOr),          KV_HOST_ENTRY(BitwiseXor),
      KV_HOST_ENTRY(RuntimeRGB),        KV_HOST_ENTRY(RuntimeHSV),         KV_HOST_ENTRY(RuntimeCMY),
      KV_HOST_ENTRY(rnd),               KV_HOST_ENTRY(StringJoin),         KV_HOST_ENTRY(StringSplit),
      Row{"RuntimeSign", reinterpret_cast<void*>(&HostSign)},
  };
#undef KV_HOST_ENTRY
  for (Row const& row : rows) StandInDefineEntry(row.name, row.entry);
}
