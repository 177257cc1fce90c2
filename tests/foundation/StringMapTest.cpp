#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/StringMap.h"

namespace {

template <class V>
std::vector<std::string> KeysInOrder(StringMap<V>& map) {
  std::vector<std::string> keys;
  StringMapIterator<V> it(&map);
  while (it.Next()) keys.push_back(it.Key().CString());
  return keys;
}

// The bits of i spelt with one of two pairs per bit: "Aa"/"BB" and "B0"/"AO"
// are pairs that a multiply-by-31 hash cannot tell apart.
std::string PairSpelling(int i, char const* zero, char const* one) {
  std::string out;
  for (int bit = 11; bit >= 0; --bit) out += (i >> bit) & 1 ? one : zero;
  return out;
}

// Thousands of keys, in families that once all shared a bin, through many
// doublings: each is found with its own value, and the iterator gives them
// back in the order they went in.
TEST(ContainersStringMap, ManyKeysFoundInInsertionOrder) {
  struct {
    char const* zero;
    char const* one;
  } const kFamilies[] = {{"Aa", "BB"}, {"B0", "AO"}, {"x", "y"}};
  for (auto const& f : kFamilies) {
    SCOPED_TRACE(f.zero);
    StringMap<int> folding;
    StringMapCase<int> exact;
    std::vector<std::string> keys;
    for (int i = 0; i < 4096; ++i) {
      keys.push_back(PairSpelling(4095 - i, f.zero, f.one));
      folding.AddEntry(keys.back().c_str(), i);
      exact.AddEntry(keys.back().c_str(), i);
    }
    EXPECT_EQ(folding.Count(), 4096u);
    EXPECT_EQ(exact.Count(), 4096u);
    EXPECT_EQ(KeysInOrder(folding), keys);
    EXPECT_EQ(KeysInOrder(exact), keys);
    for (int i = 0; i < 4096; ++i) {
      int a = -1, b = -1;
      ASSERT_TRUE(folding.GetEntry(keys[i].c_str(), a)) << keys[i];
      ASSERT_TRUE(exact.GetEntry(keys[i].c_str(), b)) << keys[i];
      EXPECT_EQ(a, i);
      EXPECT_EQ(b, i);
    }
    EXPECT_FALSE(folding.HasEntry((keys[0] + f.zero).c_str()));
  }
}

// StringMap matches as string's operator== does, by upperMap: ASCII and the
// Mac Roman accented letters. Matching keys must hash alike or the second
// spelling would be entered as a key of its own.
TEST(ContainersStringMap, CaseFoldedKeysReplaceAndKeepFirstSpelling) {
  struct {
    char const* first;
    char const* second;
  } const kPairs[] = {
      {"Counter", "COUNTER"},
      {"counter_9", "cOUNTER_9"},
      {"caf\x8E", "CAF\x83"},      // e acute, lower and upper case
      {"\x8A\x9A\xBF", "\x80\x85\xAF"},  // a, o umlaut and o slash
  };
  StringMap<int> map;
  std::vector<std::string> firsts;
  for (auto const& p : kPairs) {
    map.AddEntry(p.first, 1);
    map.AddEntry(p.second, 2);
    firsts.push_back(p.first);
    int value = 0;
    ASSERT_TRUE(map.GetEntry(p.first, value)) << p.first;
    EXPECT_EQ(value, 2);
  }
  EXPECT_EQ(map.Count(), 4u);
  EXPECT_EQ(KeysInOrder(map), firsts);
  EXPECT_FALSE(map.HasEntry("Counte"));
  EXPECT_FALSE(map.HasEntry("Counter_"));
}

TEST(ContainersStringMap, CaseMapKeysAreExactBytesAndTag) {
  auto tagged = [](char const* text, int length, unsigned long encoding) {
    string s;
    s.ConstructFromBuffer(text, length);
    s.SetEncoding(encoding);
    return s;
  };
  string const kKeys[] = {
      tagged("same", 4, kEncodingUTF8),
      tagged("same", 4, kEncodingMacRoman),  // same bytes, another tag
      tagged("Same", 4, kEncodingUTF8),
      tagged("x\0y", 3, kEncodingUTF8),  // bytes past a NUL count
      tagged("x\0z", 3, kEncodingUTF8),
      string(),
  };
  StringMapCase<int> map;
  for (int i = 0; i < 6; ++i) map.AddEntry(kKeys[i], i);
  EXPECT_EQ(map.Count(), 6u);
  for (int i = 0; i < 6; ++i) {
    int value = -1;
    // A copy of the record, so that the match is by content.
    string copy = tagged(kKeys[i].CString(), (int)kKeys[i].Length(), kKeys[i].Encoding());
    ASSERT_TRUE(map.GetEntry(copy, value)) << i;
    EXPECT_EQ(value, i);
  }
  EXPECT_FALSE(map.HasEntry(tagged("SAME", 4, kEncodingUTF8)));
}

TEST(ContainersStringMap, DeleteKeepsOrderOfTheRest) {
  StringMap<int> map;
  int value = 5;
  EXPECT_FALSE(map.GetEntry("x", value));  // nothing allocated yet
  EXPECT_EQ(value, 5);
  map.DeleteEntry("x");
  for (int i = 0; i < 100; ++i) map.AddEntry(std::to_string(i).c_str(), i);
  map.DeleteEntry("0");   // first
  map.DeleteEntry("99");  // last: appending must still work
  map.DeleteEntry("50");  // middle
  map.DeleteEntry("nope");
  map.AddEntry("new", 100);
  std::vector<std::string> expected;
  for (int i = 1; i < 99; ++i)
    if (i != 50) expected.push_back(std::to_string(i));
  expected.push_back("new");
  EXPECT_EQ(KeysInOrder(map), expected);
  EXPECT_EQ(map.Count(), 98u);
  for (auto const& k : expected) map.DeleteEntry(k.c_str());
  EXPECT_EQ(map.Count(), 0u);
  map.AddEntry("again", 1);
  EXPECT_EQ(KeysInOrder(map), std::vector<std::string>{"again"});
}

TEST(ContainersStringMap, DeleteThroughIteratorMovesOthersOnSameEntry) {
  StringMap<int> map;
  for (char const* k : {"a", "b", "c", "d", "e"}) map.AddEntry(k, k[0]);
  StringMapIterator<int> deleter(&map);
  StringMapIterator<int> bystander(&map);
  StringMapIterator<int> behind(&map);
  for (int i = 0; i < 3; ++i) {
    deleter.Next();
    bystander.Next();
  }
  behind.Next();  // on "a"
  ASSERT_STREQ(deleter.Key().CString(), "c");
  deleter.Delete();
  EXPECT_EQ(deleter.Key().Length(), 0);  // between entries until Next
  EXPECT_EQ(KeysInOrder(map), (std::vector<std::string>{"a", "b", "d", "e"}));
  int value = 0;
  ASSERT_TRUE(deleter.Next(value));
  EXPECT_EQ(value, 'd');
  ASSERT_TRUE(bystander.Next());
  EXPECT_STREQ(bystander.Key().CString(), "d");  // d is not skipped
  ASSERT_TRUE(behind.Next());
  EXPECT_STREQ(behind.Key().CString(), "b");  // an iterator elsewhere is untouched

  // An unstarted iterator stands on the first entry: deleting that entry
  // must not leave it on freed memory.
  StringMapIterator<int> fresh(&map);
  map.DeleteEntry("a");
  ASSERT_TRUE(fresh.Next());
  EXPECT_STREQ(fresh.Key().CString(), "b");

  std::vector<std::string> swept;
  StringMapIterator<int> sweeper(&map);
  while (sweeper.Next()) {
    swept.push_back(sweeper.Key().CString());
    sweeper.Delete();
  }
  EXPECT_EQ(swept, (std::vector<std::string>{"b", "d", "e"}));
  EXPECT_EQ(map.Count(), 0u);
  EXPECT_FALSE(deleter.Next());
}

TEST(ContainersStringMap, MapDeletesIteratorsItOutlives) {
  auto* map = new StringMap<string>;
  map->AddEntry("k", "v");
  map->NewIterator();
  StringMapIterator<string>* middle = map->NewIterator();
  map->NewIterator();
  delete middle;  // unchains from the middle
  delete map;     // takes the other two; the sanitizer build checks for leaks
}

// Multiples of 1,024 once shared one bin of a fixed table.
TEST(ContainersIntMap, ManyKeysAndReplacement) {
  IntMap<int> map;
  for (int i = -2000; i < 2000; ++i) map.AddEntry(i * 1024, i);
  map.AddEntry(1024, 7);
  EXPECT_EQ(map.Count(), 4000u);
  for (int i = -2000; i < 2000; ++i) {
    int value = 0;
    ASSERT_TRUE(map.GetEntry(i * 1024, value)) << i;
    EXPECT_EQ(value, i == 1 ? 7 : i);
  }
  int value = 0;
  EXPECT_FALSE(map.GetEntry(1, value));
  EXPECT_FALSE(map.GetEntry(2000 * 1024, value));
}

}  // namespace
