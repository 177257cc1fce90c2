#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "foundation/String.h"
#include "foundation/Utility.h"

namespace {

std::string Bytes(string const& s) { return std::string(s.CString(), s.Length()); }

string Tagged(char const* text, int length, unsigned long tag) {
  string s;
  s.ConstructFromBuffer(text, length);
  s.SetEncoding(tag);
  return s;
}

TEST(String, EmptyStringsAreNullStorage) {
  string built;
  built.ConstructFromBuffer("abc", 0);
  for (string const& empty : {string(""), string((char const*)nullptr), string(), built}) {
    EXPECT_EQ(empty.Storage(), nullptr);
    EXPECT_STREQ(empty.CString(), "");
    EXPECT_EQ(empty.PString(), kNullPString);
    EXPECT_TRUE(empty == string());
  }
  stringStorage::RemoveReference(nullptr);  // accepted and ignored
}

// The buffer generated code reads: a Pascal length byte capped at 255, the
// text, and a NUL behind it; n + 2 bytes in all.
TEST(String, RecordLayoutOfABuffer) {
  for (int n : {1, 5, 255, 256, 1000}) {
    SCOPED_TRACE(n);
    std::string text(n, 'x');
    string s(text.c_str());
    stringStorage* r = s.Storage();
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->mRefCount, 1u);
    EXPECT_EQ(r->mLength, (uint32_t)n);
    EXPECT_EQ(r->mAllocLength, (uint32_t)n + 2);
    EXPECT_EQ((unsigned char)r->mBuffer[0], n < 256 ? n : 255);
    EXPECT_EQ(std::memcmp(r->mBuffer + 1, text.data(), (size_t)n), 0);
    EXPECT_EQ(r->mBuffer[n + 1], 0);
  }
  string nul('\0');
  ASSERT_NE(nul.Storage(), nullptr);
  EXPECT_EQ(nul.Length(), 1);
}

TEST(String, CopiesShareAndAWriteUnshares) {
  string a("abc");
  {
    string b = a;
    string c(a.Storage());
    c = c;
    EXPECT_EQ(a.Storage()->mRefCount, 3u);
    *b.MutableChar(0) = 'X';
    EXPECT_EQ(Bytes(a), "abc");
    EXPECT_EQ(Bytes(b), "Xbc");
    EXPECT_EQ(b.Encoding(), kEncodingUnknown);  // the private copy is untagged
    EXPECT_EQ(a.Storage()->mRefCount, 2u);
  }
  stringStorage* sole = a.Storage();
  *a.MutableChar(0) = 'r';
  EXPECT_EQ(a.Storage(), sole);
  string none;
  *none.MutableChar(3) = 'z';  // harmless on the empty string
  EXPECT_EQ(none.Storage(), nullptr);

  stringStorage* handed = a.ExtractStringStorage();
  EXPECT_EQ(handed->mRefCount, 2u);
  string adopter;
  adopter.AdoptReference(handed);
  adopter.AdoptReference(a.ExtractStringStorage());  // the same record again
  EXPECT_EQ(handed->mRefCount, 2u);
  EXPECT_EQ(string().ExtractStringStorage(), nullptr);
}

// Compare folds case through upperMap (Mac Roman letters too), converts
// between known encodings, and orders bytes unsigned.
TEST(String, Compare) {
  struct {
    string a, b;
    int compare, withCase;
  } const cases[] = {
      {string("abc"), string("ABC"), 0, 1},
      {string("abc"), string("abd"), -1, -1},
      {string("abcd"), string("abc"), 1, 1},
      {string(), string("a"), -1, -1},
      {Tagged("\x8A", 1, kEncodingMacRoman), Tagged("\x80", 1, kEncodingMacRoman), 0, 1},
      {Tagged("\xE9", 1, kEncodingUnknown), Tagged("z", 1, kEncodingUnknown), 1, 1},
      {Tagged("caf\xE9", 4, 513), Tagged("caf\xC3\xA9", 5, kEncodingUTF8), 0, 0},
      {Tagged("caf\xE9", 4, kEncodingUnknown), Tagged("caf\xC3\xA9", 5, kEncodingUTF8), 1, 1},
      {Tagged("ab\0cd", 5, kEncodingASCII), Tagged("ab\0ce", 5, kEncodingASCII), -1, -1},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(Bytes(c.a) + " vs " + Bytes(c.b));
    EXPECT_EQ(c.a.Compare(c.b), c.compare);
    EXPECT_EQ(c.a.CompareWithCase(c.b) != 0, c.withCase != 0);
    EXPECT_EQ(c.a == c.b, c.compare == 0);
  }
  EXPECT_TRUE(string("Hello") == "hELLO");
}

// Byte-wise substrings and trims keep the source's tag, give the empty
// string as null, and give back the source's own record when nothing is cut.
TEST(String, SubstringsAndTrims) {
  struct {
    char const* name;
    char const* text;
    string (*op)(string const&);
    char const* expected;  // nullptr: the empty string; "=": the source record
  } const cases[] = {
      {"left 2", "abcdef", [](string const& s) { return left(s, 2); }, "ab"},
      {"left 0", "abcdef", [](string const& s) { return left(s, 0); }, nullptr},
      {"left 6", "abcdef", [](string const& s) { return left(s, 6); }, "="},
      {"right 2", "abcdef", [](string const& s) { return right(s, 2); }, "ef"},
      {"right -1", "abcdef", [](string const& s) { return right(s, -1); }, nullptr},
      {"right 99", "abcdef", [](string const& s) { return right(s, 99); }, "="},
      {"mid 3", "abcdef", [](string const& s) { return mid(s, 3); }, "def"},
      {"mid 0", "abcdef", [](string const& s) { return mid(s, 0); }, "="},
      {"mid -4", "abcdef", [](string const& s) { return mid(s, -4); }, "="},
      {"mid past", "abcdef", [](string const& s) { return mid(s, 6); }, nullptr},
      {"mid -2,5", "abcdef", [](string const& s) { return mid(s, -2, 5); }, "abc"},
      {"mid 2,2", "abcdef", [](string const& s) { return mid(s, 2, 2); }, "cd"},
      {"mid 4,10", "abcdef", [](string const& s) { return mid(s, 4, 10); }, "ef"},
      {"mid 1,0", "abcdef", [](string const& s) { return mid(s, 1, 0); }, nullptr},
      {"mid 0,6", "abcdef", [](string const& s) { return mid(s, 0, 6); }, "="},
      {"trim", " \t a b \t ", [](string const& s) { return trim(s); }, "a b"},
      {"ltrim", "  x ", [](string const& s) { return ltrim(s); }, "x "},
      {"rtrim", "  x ", [](string const& s) { return rtrim(s); }, "  x"},
      {"trim blanks", " \t ", [](string const& s) { return trim(s); }, nullptr},
      {"trim clean", "x", [](string const& s) { return trim(s); }, "="},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    string s = Tagged(c.text, (int)strlen(c.text), 513);
    string r = c.op(s);
    if (!c.expected) {
      EXPECT_EQ(r.Storage(), nullptr);
    } else if (strcmp(c.expected, "=") == 0) {
      EXPECT_EQ(r.Storage(), s.Storage());
    } else {
      EXPECT_EQ(Bytes(r), c.expected);
      EXPECT_EQ(r.Encoding(), 513u);
    }
  }
  string nul = Tagged("ab\0cd", 5, kEncodingASCII);
  EXPECT_EQ(Bytes(mid(nul, 1, 3)), std::string("b\0c", 3));
  EXPECT_EQ(Bytes(mid(nul, 0, 7)), Bytes(nul));
}

// The tag of a joined text: ASCII gives way to the other side (converted
// when that side is wide); two 8-bit encodings meet in UTF-8; an unknown
// tag converts nothing; a char of 128 or above leaves the text untagged.
// An empty side gives back the other's record.
TEST(String, ConcatenationEncodings) {
  struct {
    string a, b;
    std::string bytes;
    unsigned long encoding;
  } const cases[] = {
      {string("a"), Tagged("\x8A", 1, kEncodingMacRoman), "a\x8A", kEncodingMacRoman},
      {Tagged("\xE9", 1, 513), Tagged("\xC3\xA9", 2, kEncodingUTF8), "\xC3\xA9\xC3\xA9", kEncodingUTF8},
      {string("ab"), string("c"), "abc", kEncodingASCII},
      {string("a"), string('b'), "ab", kEncodingASCII},
      {Tagged("a", 1, kEncodingUTF8), string('b'), "ab", kEncodingUTF8},
      {Tagged("\xE9", 1, 513), Tagged("\x8E", 1, kEncodingMacRoman), "\xC3\xA9\xC3\xA9", kEncodingUTF8},
      {string("hi"), Tagged("o\0k\0", 4, kEncodingUTF16), std::string("h\0i\0o\0k\0", 8), kEncodingUTF16},
      {Tagged("\xE9", 1, kEncodingUnknown), Tagged("\xE9", 1, 513), "\xE9\xE9", kEncodingUnknown},
  };
  for (auto const& c : cases) {
    string joined = c.a + c.b;
    EXPECT_EQ(Bytes(joined), c.bytes);
    EXPECT_EQ(joined.Encoding(), c.encoding) << c.bytes;
    EXPECT_EQ(joined.Storage()->mRefCount, 1u);
  }
  EXPECT_EQ((string("a") + '\xE9').Encoding(), kEncodingUnknown);
  string a("abc");
  EXPECT_EQ((a + string()).Storage(), a.Storage());
  EXPECT_EQ((string() + a).Storage(), a.Storage());

  string s = a;
  s += "d";
  EXPECT_EQ(Bytes(s), "abcd");
  EXPECT_EQ(Bytes(a), "abc");  // a new record: the shared one is untouched
  s += Tagged("\xC3\xA9", 2, kEncodingUTF8);
  EXPECT_EQ(s.Encoding(), kEncodingUTF8);
}

TEST(String, WideStringsAndASCII) {
  wchar_t const text[] = {L'h', 0x263A, L'i'};
  string w;
  w.ConstructFromWString(text, 3);
  EXPECT_EQ(w.Encoding(), kEncodingUTF16);
  EXPECT_EQ(Bytes(w), std::string("h\0\x3A\x26i\0", 6));
  EXPECT_EQ(w.CString()[7], 0);  // two zero bytes behind a wide text
  EXPECT_FALSE(w.ContainsOnlyASCII());
  EXPECT_TRUE(string("plain").ContainsOnlyASCII());
  EXPECT_FALSE(Tagged("\xE9", 1, 513).ContainsOnlyASCII());
}

TEST(Utf8, EncodeEachWidthAndAdvance) {
  struct {
    unsigned long code;
    char const* bytes;
  } const cases[] = {
      {0x41, "A"},          {0x7F, "\x7F"},         {0x80, "\xC2\x80"},
      {0x7FF, "\xDF\xBF"},  {0x800, "\xE0\xA0\x80"}, {0xFFFF, "\xEF\xBF\xBF"},
      {0x10000, "\xF0\x90\x80\x80"}, {0x10FFFF, "\xF4\x8F\xBF\xBF"},
      {0x110000, "\xEF\xBF\xBD"},
  };
  for (auto const& c : cases) {
    unsigned char out[16];
    int n = UTF8Encode(c.code, out);
    EXPECT_EQ(std::string((char*)out, n), c.bytes) << std::hex << c.code;
  }
  EXPECT_EQ(Bytes(UnicodeChar(0x263A, kEncodingUTF16)), "\x3A\x26");
  EXPECT_EQ(Bytes(UnicodeChar(0xE9, 513)), "\xE9");

  unsigned char text[] = "a\xC3\xA9\xE2\x98\xBA" "b";
  unsigned char* p = text;
  AdvanceUTF8(&p, text + 7, 2);
  EXPECT_EQ(p - text, 3);
  AdvanceUTF8(&p, text + 7, 10);
  EXPECT_EQ(p, text + 7);
  // A truncated sequence at the end never carries the cursor past it.
  unsigned char cut[] = "\xE2\x98";
  p = cut;
  AdvanceUTF8(&p, cut + 2, 5);
  EXPECT_EQ(p, cut + 2);
}

TEST(String, RecordsGoBackToTheAllocator) {
  ClearConvertEncodingCache();
  long before = gTotalAllocLen;
  {
    string a("some text");
    string b = a + string(" and more");
    string c = mid(b, 2, 5);
    string d = Tagged("\xE9t\xE9", 3, 513) + Tagged("\xC3\xA9", 2, kEncodingUTF8);
  }
  ClearConvertEncodingCache();
  EXPECT_EQ(gTotalAllocLen, before);
}

}  // namespace
