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
  string empty("");
  EXPECT_EQ(empty.Storage(), nullptr);
  EXPECT_EQ(empty.Encoding(), kEncodingASCII);
  EXPECT_TRUE(empty == string());
  EXPECT_STREQ(string().CString(), "");
  EXPECT_EQ(string().PString(), kNullPString);
  EXPECT_EQ(string().WString(), kNullWString);
  EXPECT_EQ(string((char const*)nullptr).Storage(), nullptr);
  string built;
  built.ConstructFromBuffer("abc", 0);
  EXPECT_EQ(built.Storage(), nullptr);
  EXPECT_EQ(stringStorage::Length(nullptr), 0);
  EXPECT_STREQ(stringStorage::CString(nullptr), "");
  stringStorage::RemoveReference(nullptr);  // accepted and ignored
}

TEST(String, RecordLayoutOfABuffer) {
  string s("hello");
  stringStorage* r = s.Storage();
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->mRefCount, 1u);
  EXPECT_EQ(r->mLength, 5u);
  EXPECT_EQ(r->mAllocLength, 7u);
  EXPECT_EQ((unsigned char)r->mBuffer[0], 5);
  EXPECT_EQ(r->mBuffer[6], 0);
  EXPECT_EQ(std::memcmp(r->mBuffer + 1, "hello", 5), 0);
  EXPECT_EQ(s.Encoding(), kEncodingASCII);
}

TEST(String, PascalByteCapsAt255) {
  for (int n : {254, 255, 256, 1000}) {
    std::string text(n, 'x');
    string s(text.c_str());
    EXPECT_EQ(s.Length(), n);
    EXPECT_EQ(s.PString()[0], n < 256 ? n : 255) << n;
    EXPECT_EQ(s.CString()[n], 0);
  }
}

TEST(String, CopiesShareStorageAndCount) {
  string a("shared");
  {
    string b = a;
    string c(a.Storage());
    EXPECT_EQ(b.Storage(), a.Storage());
    EXPECT_EQ(a.Storage()->mRefCount, 3u);
    c = c;  // self-assignment changes nothing
    EXPECT_EQ(a.Storage()->mRefCount, 3u);
  }
  EXPECT_EQ(a.Storage()->mRefCount, 1u);
}

TEST(String, MutableCharUnshares) {
  string a("abc");
  string b = a;
  *b.MutableChar(0) = 'X';
  EXPECT_EQ(Bytes(a), "abc");
  EXPECT_EQ(Bytes(b), "Xbc");
  EXPECT_NE(a.Storage(), b.Storage());
  EXPECT_EQ(b.Encoding(), kEncodingUnknown);  // the private copy is untagged
  string sole("q");
  stringStorage* before = sole.Storage();
  *sole.MutableChar(0) = 'r';
  EXPECT_EQ(sole.Storage(), before);
  string none;
  *none.MutableChar(3) = 'z';  // harmless on the empty string
  EXPECT_EQ(none.Storage(), nullptr);
}

TEST(String, OneByteStringsIncludingNul) {
  string nul('\0');
  ASSERT_NE(nul.Storage(), nullptr);
  EXPECT_EQ(nul.Length(), 1);
  EXPECT_EQ(nul.CString()[0], 0);
}

TEST(String, ExtractAndAdoptBalanceReferences) {
  string a("xyz");
  stringStorage* handed = a.ExtractStringStorage();
  EXPECT_EQ(handed->mRefCount, 2u);
  string b;
  b.AdoptReference(handed);
  EXPECT_EQ(handed->mRefCount, 2u);
  b.AdoptReference(a.ExtractStringStorage());  // the same record again
  EXPECT_EQ(handed->mRefCount, 2u);
  EXPECT_EQ(string().ExtractStringStorage(), nullptr);
}

TEST(String, CompareIgnoresCaseThroughUpperMap) {
  EXPECT_TRUE(string("abc") == string("ABC"));
  EXPECT_NE(string("abc").CompareWithCase(string("ABC")), 0);
  EXPECT_EQ(string("abc").Compare(string("abd")), -1);
  EXPECT_EQ(string("abcd").Compare(string("abc")), 1);
  EXPECT_EQ(string().Compare(string("a")), -1);
  // 0x8A upper-cases to 0x80 in the Mac Roman page.
  EXPECT_EQ(Tagged("\x8A", 1, kEncodingMacRoman).Compare(Tagged("\x80", 1, kEncodingMacRoman)), 0);
  EXPECT_NE(Tagged("\x8A", 1, kEncodingMacRoman).CompareWithCase(Tagged("\x80", 1, kEncodingMacRoman)), 0);
  // Bytes compare unsigned: 0xE9 is greater than 'z'.
  EXPECT_EQ(Tagged("\xE9", 1, kEncodingUnknown).CompareWithCase(Tagged("z", 1, kEncodingUnknown)), 1);
  EXPECT_TRUE(string("Hello") == "hELLO");
  EXPECT_FALSE(string("Hello") != "HELLO");
}

TEST(String, CompareConvertsDifferentEncodings) {
  // "é" in Latin-1 and in UTF-8 are the same text.
  EXPECT_EQ(Tagged("caf\xE9", 4, 513).Compare(Tagged("caf\xC3\xA9", 5, kEncodingUTF8)), 0);
  // With an unknown tag the bytes compare as they stand.
  EXPECT_NE(Tagged("caf\xE9", 4, kEncodingUnknown).Compare(Tagged("caf\xC3\xA9", 5, kEncodingUTF8)), 0);
}

TEST(String, EmbeddedNulKeepsFullLength) {
  string s = Tagged("ab\0cd", 5, kEncodingASCII);
  EXPECT_EQ(Bytes(left(s, 4)), std::string("ab\0c", 4));
  EXPECT_EQ(Bytes(mid(s, 1, 3)), std::string("b\0c", 3));
  EXPECT_EQ(Bytes(right(s, 3)), std::string("\0cd", 3));
  EXPECT_EQ(Bytes(s + s), std::string("ab\0cdab\0cd", 10));
  EXPECT_NE(s, Tagged("ab\0ce", 5, kEncodingASCII));
}

struct SubstringCase {
  char const* name;
  string (*op)(string const&);
  char const* expected;  // nullptr: the empty string
};

string Left2(string const& s) { return left(s, 2); }
string Left0(string const& s) { return left(s, 0); }
string Right2(string const& s) { return right(s, 2); }
string RightNeg(string const& s) { return right(s, -1); }
string Mid3(string const& s) { return mid(s, 3); }
string MidNeg(string const& s) { return mid(s, -4); }
string MidPast(string const& s) { return mid(s, 6); }
string MidNegCount(string const& s) { return mid(s, -2, 5); }
string MidCount(string const& s) { return mid(s, 2, 2); }
string MidOverrun(string const& s) { return mid(s, 4, 10); }
string MidZeroCount(string const& s) { return mid(s, 1, 0); }

TEST(String, ByteWiseSubstrings) {
  SubstringCase const cases[] = {
      {"left 2", Left2, "ab"},          {"left 0", Left0, nullptr},
      {"right 2", Right2, "ef"},        {"right -1", RightNeg, nullptr},
      {"mid 3", Mid3, "def"},           {"mid -4", MidNeg, "abcdef"},
      {"mid past", MidPast, nullptr},   {"mid -2,5", MidNegCount, "abc"},
      {"mid 2,2", MidCount, "cd"},      {"mid 4,10", MidOverrun, "ef"},
      {"mid 1,0", MidZeroCount, nullptr},
  };
  string s = Tagged("abcdef", 6, 513);
  for (auto const& c : cases) {
    string r = c.op(s);
    if (!c.expected) {
      EXPECT_EQ(r.Storage(), nullptr) << c.name;
      continue;
    }
    EXPECT_EQ(Bytes(r), c.expected) << c.name;
    EXPECT_EQ(r.Encoding(), 513u) << c.name;  // the source's tag travels
  }
}

TEST(String, SubstringsShareWhenIdentical) {
  string s("abcdef");
  EXPECT_EQ(mid(s, 0, 6).Storage(), s.Storage());
  string longer = mid(s, 0, 7);
  EXPECT_NE(longer.Storage(), s.Storage());
  EXPECT_EQ(Bytes(longer), "abcdef");
  EXPECT_EQ(left(s, 6).Storage(), s.Storage());
  EXPECT_EQ(right(s, 99).Storage(), s.Storage());
  EXPECT_EQ(mid(s, 0).Storage(), s.Storage());
}

TEST(String, Trims) {
  EXPECT_EQ(Bytes(trim(string(" \t a b \t "))), "a b");
  EXPECT_EQ(Bytes(ltrim(string("  x "))), "x ");
  EXPECT_EQ(Bytes(rtrim(string("  x "))), "  x");
  EXPECT_EQ(trim(string(" \t ")).Storage(), nullptr);
  string clean("x");
  EXPECT_EQ(trim(clean).Storage(), clean.Storage());
}

TEST(String, ConcatenationReturnsOperandForEmptySide) {
  string a("abc");
  EXPECT_EQ((a + string()).Storage(), a.Storage());
  EXPECT_EQ((string() + a).Storage(), a.Storage());
  string sum = a + string("def");
  EXPECT_EQ(Bytes(sum), "abcdef");
  EXPECT_EQ(sum.Encoding(), kEncodingASCII);
  EXPECT_EQ(sum.Storage()->mRefCount, 1u);
}

TEST(String, ConcatenationEncodings) {
  // ASCII with Mac Roman needs no conversion and keeps Mac Roman.
  string roman = Tagged("\x8A", 1, kEncodingMacRoman);
  string joined = string("a") + roman;
  EXPECT_EQ(joined.Encoding(), kEncodingMacRoman);
  EXPECT_EQ(Bytes(joined), "a\x8A");
  // Latin-1 with UTF-8 converts to UTF-8.
  string mixed = Tagged("\xE9", 1, 513) + Tagged("\xC3\xA9", 2, kEncodingUTF8);
  EXPECT_EQ(mixed.Encoding(), kEncodingUTF8);
  EXPECT_EQ(Bytes(mixed), "\xC3\xA9\xC3\xA9");
  // A byte of 128 or above leaves the result untagged.
  EXPECT_EQ((string("a") + 'b').Encoding(), kEncodingASCII);
  EXPECT_EQ((Tagged("a", 1, kEncodingUTF8) + 'b').Encoding(), kEncodingUTF8);
  EXPECT_EQ((string("a") + '\xE9').Encoding(), kEncodingUnknown);
  EXPECT_EQ((string() + 'b').Encoding(), kEncodingASCII);
}

TEST(String, AppendOperators) {
  string s;
  s += "abc";
  EXPECT_EQ(Bytes(s), "abc");
  EXPECT_EQ(s.Encoding(), kEncodingUnknown);  // built from a buffer
  s.SetEncoding(kEncodingASCII);
  string before = s;
  s += "";
  EXPECT_EQ(s.Storage(), before.Storage());
  s += string("d");
  EXPECT_EQ(Bytes(s), "abcd");
  EXPECT_EQ(Bytes(before), "abc");  // a new record: the shared one is untouched
  string t;
  t += Tagged("x", 1, kEncodingUTF8);
  EXPECT_EQ(t.Encoding(), kEncodingUTF8);
  s += Tagged("\xC3\xA9", 2, kEncodingUTF8);
  EXPECT_EQ(s.Encoding(), kEncodingUTF8);
}

TEST(String, WideStrings) {
  wchar_t const text[] = {L'h', 0x263A, L'i'};
  string w;
  w.ConstructFromWString(text, 3);
  EXPECT_EQ(w.Length(), 6);
  EXPECT_EQ(w.Encoding(), kEncodingUTF16);
  EXPECT_EQ(Bytes(w), std::string("h\0\x3A\x26i\0", 6));
  EXPECT_EQ(w.CString()[6], 0);
  EXPECT_EQ(w.CString()[7], 0);
  w.ConstructFromWString(text, 0);
  EXPECT_EQ(w.Storage(), nullptr);
}

TEST(String, ContainsOnlyASCII) {
  EXPECT_TRUE(string().ContainsOnlyASCII());
  EXPECT_TRUE(string("plain").ContainsOnlyASCII());
  EXPECT_FALSE(Tagged("\xE9", 1, 513).ContainsOnlyASCII());
  EXPECT_FALSE(Tagged("a\0", 2, kEncodingUTF16).ContainsOnlyASCII());
}

struct Utf8Case {
  unsigned long code;
  char const* bytes;
};

TEST(Utf8, EncodeEachWidth) {
  Utf8Case const cases[] = {
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
}

TEST(Utf8, AdvanceCountsCharactersAndStopsAtEnd) {
  unsigned char text[] = "a\xC3\xA9\xE2\x98\xBA" "b";
  unsigned char const* end = text + sizeof text - 1;
  unsigned char* p = text;
  AdvanceUTF8(&p, end, 2);
  EXPECT_EQ(p - text, 3);
  AdvanceUTF8(&p, end, 1);
  EXPECT_EQ(p - text, 6);
  AdvanceUTF8(&p, end, 10);
  EXPECT_EQ(p, end);
  // A truncated sequence at the end never carries the cursor past it.
  unsigned char cut[] = "\xE2\x98";
  p = cut;
  AdvanceUTF8(&p, cut + 2, 5);
  EXPECT_EQ(p, cut + 2);
}

TEST(Utf8, UnicodeCharInEachForm) {
  EXPECT_EQ(Bytes(UnicodeChar(0xE9, kEncodingUTF8)), "\xC3\xA9");
  string wide = UnicodeChar(0x263A, kEncodingUTF16);
  EXPECT_EQ(Bytes(wide), "\x3A\x26");
  string latin = UnicodeChar(0xE9, 513);
  EXPECT_EQ(latin.Encoding(), 513u);
  EXPECT_EQ(Bytes(latin), "\xE9");
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
