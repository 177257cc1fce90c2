#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>

#include "host/HostLibrary.h"
#include "host/StandInHost.h"
#include "runtime/HostLibraryTable.h"

namespace {

// Each case makes its own arguments and releases them: a leak or a double
// release shows under the sanitizers.
struct Arg {
  explicit Arg(char const* text, unsigned long encoding = kEncodingUTF8) {
    string s(text);
    if (s.Length()) s.SetEncoding(encoding);
    storage = s.ExtractStringStorage();
  }
  ~Arg() { stringStorage::RemoveReference(storage); }
  operator stringStorage*() const { return storage; }
  stringStorage* storage;
};

// The text of a result, which must carry exactly the caller's reference.
std::string Take(stringStorage* result) {
  if (!result) return "";
  EXPECT_EQ(result->mRefCount, 1u);
  EXPECT_GT(result->mLength, 0u) << "the empty string is null";
  std::string text(stringStorage::CString(result), result->mLength);
  stringStorage::RemoveReference(result);
  return text;
}

struct TextCase {
  char const* call;
  std::function<stringStorage*()> run;
  std::string expected;
};
#define TEXT_CASE(expected, ...) TextCase{#__VA_ARGS__, [] { return __VA_ARGS__; }, expected}

void RunTextCases(std::initializer_list<TextCase> cases) {
  for (TextCase const& c : cases) EXPECT_EQ(Take(c.run()), c.expected) << c.call;
}

struct NumberCase {
  char const* call;
  std::function<double()> run;
  double expected;
};
#define NUMBER_CASE(expected, ...) NumberCase{#__VA_ARGS__, [] { return (double)(__VA_ARGS__); }, expected}

void RunNumberCases(std::initializer_list<NumberCase> cases) {
  for (NumberCase const& c : cases) EXPECT_EQ(c.run(), c.expected) << c.call;
}

// "héllo": six bytes, five characters.
char const kHello[] = "h\xC3\xA9llo";

TEST(HostLibrary, LengthsAndCodes) {
  RunNumberCases({
      NUMBER_CASE(5, StringDBCSLen(Arg(kHello))),
      NUMBER_CASE(6, StringLen(Arg(kHello))),
      NUMBER_CASE(0, StringDBCSLen(nullptr)),
      NUMBER_CASE(2, StringDBCSLen(Arg("\x80" "a"))),  // a stray byte is one character
      NUMBER_CASE(0xE9, StringDBCSAsc(Arg("\xC3\xA9t\xC3\xA9"))),
      NUMBER_CASE(0xC3, StringAsc(Arg("\xC3\xA9t\xC3\xA9"))),
      NUMBER_CASE(0x20AC, StringDBCSAsc(Arg("\xE2\x82\xAC"))),
      NUMBER_CASE(0x1F600, StringDBCSAsc(Arg("\xF0\x9F\x98\x80"))),
      NUMBER_CASE(0, StringDBCSAsc(nullptr)),
  });
}

TEST(HostLibrary, Characters) {
  RunTextCases({
      TEXT_CASE("\xC3\xA9", StringDBCSChr(0xE9)),
      TEXT_CASE("\xE2\x82\xAC", StringDBCSChr(0x20AC)),
      TEXT_CASE(std::string(1, '\0'), StringDBCSChr(0)),
      TEXT_CASE("\xEF\xBF\xBD", StringDBCSChr(-1)),
      TEXT_CASE("\xEF\xBF\xBD", StringDBCSChr(0x110000)),
      TEXT_CASE("\xE9", StringChr(0xE9)),
      TEXT_CASE("A", StringChr(0x141)),
  });
}

TEST(HostLibrary, PiecesCountCharactersOrBytes) {
  RunTextCases({
      TEXT_CASE("h\xC3\xA9", StringDBCSLeft(Arg(kHello), 2)),
      TEXT_CASE("h\xC3", StringLeft(Arg(kHello), 2)),
      TEXT_CASE("", StringDBCSLeft(Arg(kHello), -3)),
      TEXT_CASE(kHello, StringDBCSLeft(Arg(kHello), 99)),
      TEXT_CASE("", StringDBCSLeft(nullptr, 2)),
      TEXT_CASE("\xC3\xA9llo", StringDBCSRight(Arg(kHello), 4)),
      TEXT_CASE("\xA9llo", StringRight(Arg(kHello), 4)),
      TEXT_CASE("", StringDBCSRight(Arg(kHello), -1)),
      TEXT_CASE("\xC3\xA9ll", StringDBCSMid3(Arg(kHello), 2, 3)),
      TEXT_CASE("\xC3\xA9l", StringMid3(Arg(kHello), 2, 3)),
      TEXT_CASE("h", StringDBCSMid3(Arg(kHello), -5, 1)),
      TEXT_CASE("o", StringDBCSMid3(Arg(kHello), 5, 9)),
      TEXT_CASE("", StringDBCSMid3(Arg(kHello), 6, 1)),
      TEXT_CASE("", StringMid3(Arg(kHello), 7, 1)),
      TEXT_CASE("llo", StringDBCSMid2(Arg(kHello), 3)),
      TEXT_CASE("\xA9llo", StringMid2(Arg(kHello), 3)),
      TEXT_CASE(kHello, StringDBCSMid2(Arg(kHello), -4)),
      TEXT_CASE("", StringDBCSMid2(Arg(kHello), 6)),
  });
}

TEST(HostLibrary, SearchingIgnoresCaseExceptInTheByteForms) {
  RunNumberCases({
      NUMBER_CASE(7, StringInStr(0, Arg("Hello World"), Arg("world"))),
      NUMBER_CASE(5, StringInStr(1, Arg("Hello World"), Arg("O"))),
      NUMBER_CASE(8, StringInStr(6, Arg("Hello World"), Arg("o"))),
      NUMBER_CASE(0, StringInStr(9, Arg("Hello World"), Arg("o"))),
      NUMBER_CASE(3, StringInStr(0, Arg(kHello), Arg("LL"))),
      NUMBER_CASE(2, StringInStr(0, Arg("\xC3\x80\xC3\x89"), Arg("\xC3\xA9"))),  // "ÀÉ", "é"
      NUMBER_CASE(0, StringInStr(0, Arg("abc"), nullptr)),
      NUMBER_CASE(4, StringInStrB(1, Arg(kHello), Arg("ll"))),
      NUMBER_CASE(0, StringInStrB(0, Arg("Hello"), Arg("h"))),
      NUMBER_CASE(4, StringExtendsInStr(Arg("abcABC"), 2, Arg("a"))),
      NUMBER_CASE(0, StringExtendsInStrB(Arg("abcABC"), 2, Arg("a"))),
      NUMBER_CASE(3, StringExtendsInStrB(Arg("\xC3\xA9" "a"), 0, Arg("a"))),
  });
}

TEST(HostLibrary, Fields) {
  RunNumberCases({
      NUMBER_CASE(4, StringCountFields(Arg("a,b,,c"), Arg(","))),
      NUMBER_CASE(1, StringCountFields(Arg("abc"), nullptr)),
      NUMBER_CASE(3, StringCountFields(Arg("aXbxc"), Arg("x"))),
      NUMBER_CASE(2, StringCountFields(Arg("a,"), Arg(","))),
      NUMBER_CASE(3, StringCountFields(Arg("a\xE2\x86\x92" "b\xE2\x86\x92" "c"), Arg("\xE2\x86\x92"))),
  });
  RunTextCases({
      TEXT_CASE("b", StringNthField(Arg("a,b,,c"), Arg(","), 2)),
      TEXT_CASE("", StringNthField(Arg("a,b,,c"), Arg(","), 3)),
      TEXT_CASE("c", StringNthField(Arg("a,b,,c"), Arg(","), 4)),
      TEXT_CASE("", StringNthField(Arg("a,b,,c"), Arg(","), 0)),
      TEXT_CASE("one", StringNthField(Arg("one--TWO"), Arg("--"), 1)),
      TEXT_CASE("TWO", StringNthField(Arg("oneABtwoabTWO"), Arg("ab"), 3)),
      TEXT_CASE("c", StringNthField(Arg("a\xE2\x86\x92" "b\xE2\x86\x92" "c"), Arg("\xE2\x86\x92"), 3)),
      TEXT_CASE("abc", StringNthField(Arg("abc"), nullptr, 1)),
      TEXT_CASE("", StringNthField(Arg("abc"), nullptr, 2)),
  });
}

TEST(HostLibrary, Replacing) {
  RunTextCases({
      TEXT_CASE("bye hello", StringReplace(Arg("Hello hello"), Arg("HELLO"), Arg("bye"))),
      TEXT_CASE("bye bye", StringReplaceAll(Arg("Hello hello"), Arg("HELLO"), Arg("bye"))),
      TEXT_CASE("Hello bye", StringReplaceB(Arg("Hello hello"), Arg("hello"), Arg("bye"))),
      TEXT_CASE("bb", StringReplaceAllB(Arg("aaaa"), Arg("aa"), Arg("b"))),
      TEXT_CASE("ba", StringReplaceAll(Arg("aaa"), Arg("aa"), Arg("b"))),
      TEXT_CASE("abc", StringReplace(Arg("abc"), nullptr, Arg("x"))),
      TEXT_CASE("hello", StringReplaceAll(Arg(kHello), Arg("\xC3\x89"), Arg("e"))),
      TEXT_CASE("ac", StringReplaceAll(Arg("abc"), Arg("B"), nullptr)),
      TEXT_CASE("", StringReplaceAll(Arg("aa"), Arg("a"), nullptr)),
  });
}

TEST(HostLibrary, CaseAndTrimming) {
  RunTextCases({
      TEXT_CASE("H\xC3\x89LLO W\xC3\x96RLD", StringUCase(Arg("h\xC3\xA9llo w\xC3\xB6rld"))),
      TEXT_CASE("\xC3\xA0\xC3\xA9 \xCF\x83\xCE\xB1", StringLCase(Arg("\xC3\x80\xC3\x89 \xCE\xA3\xCE\x91"))),
      TEXT_CASE("STRA\xC3\x9F" "E", StringUCase(Arg("stra\xC3\x9F" "e"))),  // ß stays
      TEXT_CASE("\xC5\xB8", StringUCase(Arg("\xC3\xBF"))),                  // ÿ, Ÿ
      TEXT_CASE("\xC5\xBD", StringUCase(Arg("\xC5\xBE"))),                  // ž, Ž
      TEXT_CASE("\xC4\x80", StringUCase(Arg("\xC4\x81"))),                  // ā, Ā
      TEXT_CASE("\xD0\x9F\xD0\xA0\xD0\x98", StringUCase(Arg("\xD0\xBF\xD1\x80\xD0\xB8"))),  // при
      TEXT_CASE("\x80" "A", StringUCase(Arg("\x80" "a"))),                  // a stray byte stays
      TEXT_CASE("Hello World-Foo Don't 2nd", StringTitleCase(Arg("hELLO wORLD-foo don't 2ND"))),
      TEXT_CASE("\xC3\x89t\xC3\xA9", StringTitleCase(Arg("\xC3\xA9T\xC3\x89"))),
      TEXT_CASE("a b", runTrim(Arg("  a b \t\r\n"))),
      TEXT_CASE("a ", runLTrim(Arg(" \ta "))),
      TEXT_CASE(" a", runRTrim(Arg(" a \n"))),
      TEXT_CASE("", runTrim(Arg("   "))),
  });
}

TEST(HostLibrary, Comparing) {
  RunNumberCases({
      NUMBER_CASE(1, StringStrCompare(Arg("abc"), Arg("ABC"), 0)),
      NUMBER_CASE(0, StringStrCompare(Arg("abc"), Arg("ABC"), 1)),
      NUMBER_CASE(-1, StringStrCompare(Arg("ab"), Arg("abc"), 0)),
      NUMBER_CASE(0, StringStrCompare(nullptr, nullptr, 0)),
      NUMBER_CASE(-1, StringStrCompare(nullptr, Arg("a"), 1)),
      NUMBER_CASE(1, StringStrCompare(Arg("b"), Arg("A"), 1)),
      NUMBER_CASE(1, StringStrCompare(Arg("\xC3\xA9"), Arg("z"), 0)),  // bytes above 127 sort last
  });
}

TEST(HostLibrary, TextToNumbers) {
  RunNumberCases({
      NUMBER_CASE(12, StringVal(Arg("12abc"))),
      NUMBER_CASE(-350, StringVal(Arg("  -3.5e2x"))),
      NUMBER_CASE(0.5, StringVal(Arg(".5"))),
      NUMBER_CASE(1, StringVal(Arg("1e"))),
      NUMBER_CASE(10, StringVal(Arg("1e+1"))),
      NUMBER_CASE(255, StringVal(Arg("&hFF"))),
      NUMBER_CASE(4294967295.0, StringVal(Arg("&hFFFFFFFF"))),
      NUMBER_CASE(15, StringVal(Arg("&o17"))),
      NUMBER_CASE(5, StringVal(Arg("&b1012"))),
      NUMBER_CASE(0, StringVal(Arg("&x1"))),
      NUMBER_CASE(0, StringVal(Arg("0x10"))),
      NUMBER_CASE(0, StringVal(Arg("inf"))),
      NUMBER_CASE(0, StringVal(Arg("-"))),
      NUMBER_CASE(0, StringVal(nullptr)),
      NUMBER_CASE(2.25, runCDbl(Arg("2.25"))),
      NUMBER_CASE(0, runCDbl(nullptr)),
  });
}

TEST(HostLibrary, NumbersToText) {
  RunTextCases({
      TEXT_CASE("0.5", StringStr(0.5)),
      TEXT_CASE("0", StringStr(-0.0)),
      TEXT_CASE("-12.25", StringStr(-12.25)),
      TEXT_CASE("1.000000e+20", StringStr(1e20)),
      TEXT_CASE("0.3333333", StringStr(1.0 / 3)),
      TEXT_CASE("1.000001e+6", StringStr(1000001)),
      TEXT_CASE("0.1", runCStr(0.1)),
      TEXT_CASE("FF", RuntimeHex(255)),
      TEXT_CASE("FFFFFFFF", RuntimeHex(-1)),
      TEXT_CASE("80000000", RuntimeHex(-2147483647L - 1)),
      TEXT_CASE("37777777777", RuntimeOct(-1)),
      TEXT_CASE("101", RuntimeBin(5)),
      TEXT_CASE("0", RuntimeBin(0)),
      TEXT_CASE("1" + std::string(31, '0'), RuntimeBin(-2147483647L - 1)),
  });
}

TEST(HostLibrary, ResultsKeepTheTagOfTheTextTheyCameFrom) {
  Arg ascii("abc", kEncodingASCII);
  stringStorage* piece = StringLeft(ascii, 2);
  ASSERT_NE(piece, nullptr);
  EXPECT_EQ(piece->mEncoding, kEncodingASCII);
  // A whole text comes back as a record of its own.
  stringStorage* whole = StringDBCSLeft(ascii, 3);
  EXPECT_NE(whole, ascii.storage);
  EXPECT_EQ(ascii.storage->mRefCount, 1u);
  stringStorage* made = StringDBCSChr(0xE9);
  EXPECT_EQ(made->mEncoding, kEncodingUTF8);
  for (stringStorage* s : {piece, whole, made}) stringStorage::RemoveReference(s);
}

// Both clocks count from one point: sixty ticks a second.
TEST(HostLibrary, ClocksRunForwardTogether) {
  double micro = RuntimeMicroseconds();
  EXPECT_GT(micro, 0);
  EXPECT_NEAR((double)RuntimeTicks(), micro * 60 / 1e6, 2);
}

TEST(HostLibrary, TheStandInHostAnswersTheEntriesByName) {
  StandInHostReset();
  RegisterHostLibrary();
  // Join and Split need the array run-time, Format the number formatter.
  std::set<std::string> const kLaterFamilies = {"StringJoin", "StringSplit", "StringFormat"};
  int resolved = 0;
  for (HostLibraryFunction const& row : kHostLibraryTable) {
    std::string entry = row.entryName;
    bool ours = !kLaterFamilies.count(entry);
    EXPECT_EQ(StandInResolve(row.entryName) != nullptr, ours) << entry;
    resolved += ours;
  }
  EXPECT_GT(resolved, 80);
  // Sign is declared As Double: its entry must hand back a double, in the
  // float register, whatever the run-time's own Sign returns.
  auto sign = reinterpret_cast<double (*)(double)>(StandInResolve("RuntimeSign"));
  EXPECT_EQ(sign(-2.5), -1.0);
  EXPECT_EQ(sign(0.0), 0.0);
  StandInHostReset();
}

}  // namespace
