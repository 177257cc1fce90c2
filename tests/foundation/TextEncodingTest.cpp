#include <gtest/gtest.h>

#include <string>

#include "foundation/TextEncodingUtil.h"
#include "foundation/String.h"
#include "foundation/Utility.h"

namespace {

std::string Bytes(string const& s) { return std::string(s.CString(), s.Length()); }

string Tagged(std::string const& text, unsigned long tag) {
  string s;
  s.ConstructFromBuffer(text.data(), (int)text.size());
  s.SetEncoding(tag);
  return s;
}

constexpr unsigned long kLatin1 = 513;
constexpr unsigned long kWindows1252 = 1280;

struct CommonCase {
  unsigned long a, b;
  unsigned char allow;
  unsigned long expected;
};

TEST(Encodings, CommonEncodingRules) {
  CommonCase const cases[] = {
      {kLatin1, kLatin1, 0, kLatin1},
      {kEncodingASCII, kEncodingUTF8, 0, kEncodingUTF8},
      {kEncodingUTF8, kEncodingASCII, 0, kEncodingUTF8},
      {kEncodingASCII, kEncodingMacRoman, 0, kEncodingMacRoman},
      {kEncodingMacRoman, kEncodingASCII, 0, kEncodingMacRoman},
      {kEncodingASCII, kEncodingUTF16, 0, kEncodingUnknown},  // wide: needs a conversion
      {kEncodingASCII, kEncodingUTF16, 1, kEncodingUTF16},
      {kLatin1, kEncodingMacRoman, 0, kEncodingUnknown},
      {kLatin1, kEncodingMacRoman, 1, kEncodingUTF8},
      {kEncodingUTF8, kEncodingUTF16, 1, kEncodingUTF8},
      {kLatin1, kEncodingUTF16, 1, kEncodingUTF16},
  };
  for (auto const& c : cases)
    EXPECT_EQ(CommonEncoding(c.a, c.b, c.allow), c.expected) << c.a << " " << c.b << " " << int(c.allow);
}

struct ConversionCase {
  char const* name;
  std::string text;
  unsigned long from, to;
  std::string expected;
};

TEST(Encodings, RealConversionsThroughIconv) {
  ConversionCase const cases[] = {
      {"MacRoman e-acute to UTF-8", "caf\x8E", kEncodingMacRoman, kEncodingUTF8, "caf\xC3\xA9"},
      {"Latin-1 to UTF-8", "\xE9t\xE9", kLatin1, kEncodingUTF8, "\xC3\xA9t\xC3\xA9"},
      {"UTF-8 to Latin-1", "\xC3\xA9", kEncodingUTF8, kLatin1, "\xE9"},
      {"Windows-1252 euro to UTF-8", "\x80", kWindows1252, kEncodingUTF8, "\xE2\x82\xAC"},
      {"UTF-8 to UTF-16", "A\xC3\xA9", kEncodingUTF8, kEncodingUTF16, std::string("A\0\xE9\0", 4)},
      {"UTF-16 to UTF-8", std::string("\x3A\x26", 2), kEncodingUTF16, kEncodingUTF8, "\xE2\x98\xBA"},
      {"MacRoman byte with no ASCII counterpart", "a\x8Ez", kEncodingMacRoman, kEncodingASCII, "a?z"},
      {"UTF-8 with no Latin-1 counterpart", "x\xE2\x98\xBAy", kEncodingUTF8, kLatin1, "x???y"},
  };
  for (auto const& c : cases) {
    string source = Tagged(c.text, c.from);
    string out;
    out.AdoptReference(ConvertTextUnix(source.Storage(), c.from, c.to));
    EXPECT_EQ(Bytes(out), c.expected) << c.name;
    EXPECT_EQ(out.Encoding(), c.to) << c.name;
  }
}

TEST(Encodings, UnnamedTagLeavesTextAsItWas) {
  string s = Tagged("abc\xE9", kLatin1);
  stringStorage* back = ConvertTextUnix(s.Storage(), 4242, kEncodingUTF8);
  EXPECT_EQ(back, s.Storage());
  EXPECT_EQ(back->mRefCount, 2u);  // a new reference for the caller
  stringStorage::RemoveReference(back);
  EXPECT_EQ(ConvertEncoding(s, 4242).Storage(), s.Storage());
}

TEST(Encodings, ConvertEncodingShortcutsAndCache) {
  string ascii("plain");
  string asUtf8 = ConvertEncoding(ascii, kEncodingUTF8);
  EXPECT_NE(asUtf8.Storage(), ascii.Storage());  // a copy, retagged, no iconv
  EXPECT_EQ(asUtf8.Encoding(), kEncodingUTF8);
  EXPECT_EQ(Bytes(asUtf8), "plain");
  EXPECT_EQ(ConvertEncoding(ascii, kEncodingUTF8).Storage(), asUtf8.Storage());  // cached
  EXPECT_EQ(ConvertEncoding(asUtf8, kEncodingUTF8).Storage(), asUtf8.Storage());  // already there
  EXPECT_EQ(ConvertEncoding(ascii, kEncodingUnknown).Storage(), ascii.Storage());
  EXPECT_EQ(ConvertEncoding(string(), kEncodingUTF8).Storage(), nullptr);
  string latin = Tagged("\xE9", kLatin1);
  string once = ConvertEncoding(latin, kEncodingUTF8);
  string twice = ConvertEncoding(latin, kEncodingUTF8);
  EXPECT_EQ(once.Storage(), twice.Storage());
  EXPECT_EQ(Bytes(once), "\xC3\xA9");
  ClearConvertEncodingCache();
}

TEST(Encodings, ConversionsDoNotLeak) {
  ClearConvertEncodingCache();
  long before = gTotalAllocLen;
  for (int i = 0; i < 100; i++) {
    string s = Tagged("caf\x8E and more text", kEncodingMacRoman);
    string u = ConvertEncoding(s, kEncodingUTF8);
    string back = ConvertEncoding(u, kEncodingMacRoman);
    EXPECT_EQ(Bytes(back), "caf\x8E and more text");
  }
  ClearConvertEncodingCache();
  EXPECT_EQ(gTotalAllocLen, before);
}

}  // namespace
