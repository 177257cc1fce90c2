#include <gtest/gtest.h>

#include <string>

#include "foundation/TextEncodingUtil.h"
#include "foundation/Utility.h"
#include "runtime/RuntimeStringFoundation.h"

namespace {

// A record as generated code would hold it: one reference, owned by the test.
stringStorage* Record(char const* text, unsigned long tag = kEncodingASCII) {
  string s(text);
  s.SetEncoding(tag);
  return s.ExtractStringStorage();
}

TEST(RuntimeStrings, AddNullAndEmptySides) {
  EXPECT_EQ(RuntimeAddString(nullptr, nullptr), nullptr);
  stringStorage* a = Record("abc");
  stringStorage* sum = RuntimeAddString(a, nullptr);
  EXPECT_EQ(sum, a);  // the operand's own record, with a reference for the caller
  EXPECT_EQ(a->mRefCount, 2u);
  RuntimeUnlockString(sum);
  sum = RuntimeAddString(nullptr, a);
  EXPECT_EQ(sum, a);
  RuntimeUnlockString(sum);
  EXPECT_EQ(a->mRefCount, 1u);
  RuntimeUnlockString(a);
}

TEST(RuntimeStrings, AddMakesANewRecord) {
  long before = gTotalAllocLen;
  stringStorage* a = Record("ab");
  stringStorage* b = Record("cd");
  stringStorage* sum = RuntimeAddString(a, b);
  EXPECT_EQ(std::string(stringStorage::CString(sum)), "abcd");
  EXPECT_EQ(sum->mRefCount, 1u);
  EXPECT_EQ(a->mRefCount, 1u);  // arguments are borrowed
  for (stringStorage* s : {a, b, sum})
    RuntimeUnlockString(s);
  EXPECT_EQ(gTotalAllocLen, before);
}

TEST(RuntimeStrings, LockUnlockIsAnAssignment) {
  stringStorage* s = Record("x");
  RuntimeLockUnlockStrings(s, s);
  EXPECT_EQ(s->mRefCount, 1u);
  stringStorage* t = Record("y");
  RuntimeLockString(t);  // the variable's reference to the old value
  RuntimeLockUnlockStrings(s, t);
  EXPECT_EQ(s->mRefCount, 2u);
  EXPECT_EQ(t->mRefCount, 1u);
  RuntimeLockUnlockStrings(nullptr, s);
  EXPECT_EQ(s->mRefCount, 1u);
  RuntimeLockString(nullptr);
  RuntimeUnlockString(nullptr);
  RuntimeUnlockString(s);
  RuntimeUnlockString(t);
}

TEST(RuntimeStrings, CompareIgnoresCaseAndEncodings) {
  stringStorage* upper = Record("ABC");
  stringStorage* lower = Record("abc");
  EXPECT_EQ(CompareStringsInternal(upper, lower), 0);
  stringStorage* latin = Record("caf\xE9", 513);
  stringStorage* utf8 = Record("CAF\xC3\xA9", kEncodingUTF8);
  EXPECT_EQ(CompareStringsInternal(latin, utf8), 0);
  EXPECT_EQ(CompareStringsInternal(nullptr, lower), -1);
  EXPECT_EQ(CompareStringsInternal(lower, nullptr), 1);
  EXPECT_EQ(CompareStringsInternal(nullptr, nullptr), 0);
  // The short cuts (same record, an empty side, one encoding) agree in sign
  // with the general comparison, for every pair.
  stringStorage* empty = Record("");
  stringStorage* longer = Record("abcd");
  stringStorage* after = Record("ABD");
  stringStorage* all[] = {nullptr, empty, upper, lower, latin, utf8, longer, after};
  auto sign = [](int v) { return (v > 0) - (v < 0); };
  for (stringStorage* a : all)
    for (stringStorage* b : all)
      EXPECT_EQ(sign(CompareStringsInternal(a, b)), sign(string(a).Compare(string(b))))
          << string(a).CString() << " / " << string(b).CString();
  EXPECT_LT(CompareStringsInternal(lower, longer), 0);
  EXPECT_LT(CompareStringsInternal(lower, after), 0);
  for (stringStorage* s : {upper, lower, latin, utf8, empty, longer, after})
    RuntimeUnlockString(s);
  ClearConvertEncodingCache();
}

}  // namespace
