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

// "héllo": six bytes, five characters.
char const kHello[] = "h\xC3\xA9llo";

// What each function computes is end-to-end scripts (tests/e2e/library);
// what a script can't see is that every text result carries exactly the
// caller's one reference, and that the empty string is null.
TEST(HostLibrary, TextResultsCarryOneReference) {
  RunTextCases({
      TEXT_CASE("h\xC3\xA9", StringDBCSLeft(Arg(kHello), 2)),
      TEXT_CASE("\xA9llo", StringRight(Arg(kHello), 4)),
      TEXT_CASE(kHello, StringDBCSMid2(Arg(kHello), -4)),
      TEXT_CASE("", StringDBCSMid3(Arg(kHello), 6, 1)),
      TEXT_CASE("", StringDBCSLeft(nullptr, 2)),
      TEXT_CASE("H\xC3\x89LLO", StringUCase(Arg(kHello))),
      TEXT_CASE("0.3333333", StringStr(1.0 / 3)),
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
  // Format needs the number formatter.
  std::set<std::string> const kLaterFamilies = {"StringFormat"};
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
