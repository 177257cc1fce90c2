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

std::string KeyName(int i) { return "key" + std::to_string(i); }

TEST(ContainersStringMap, HashValues) {
  StringMap<int> folding;
  StringMapCase<int> exact;
  struct {
    char const* key;
    unsigned long folded, cased;
  } const kCases[] = {
      {"", 0, 0},
      {"A", 65, 65},
      {"a", 65, 97},
      {"ab", 65 * 31 + 66, 97 * 31 + 98},
      {"1R", 49 * 31 + 82, 49 * 31 + 82},
      // Bytes are signed: 0xC0 counts as -64.
      {"\xC0", 0xFFFFFFC0ul, 0xFFFFFFC0ul},
      {"\xC0z", 0xFFFFFFC0ul * 31 + 90, 0xFFFFFFC0ul * 31 + 122},
      // Only a to z fold; '{' and '@' are left alone.
      {"{@", 123 * 31 + 64, 123 * 31 + 64},
  };
  for (auto const& c : kCases) {
    SCOPED_TRACE(c.key);
    EXPECT_EQ(folding.hashString(c.key), c.folded & 0xFFFFFFFFul);
    EXPECT_EQ(exact.hashString(c.key), c.cased & 0xFFFFFFFFul);
  }
}

TEST(ContainersStringMap, CaseOnlyDifferenceReplacesAndKeepsFirstSpelling) {
  StringMap<int> map;
  map.AddEntry("Counter", 1);
  map.AddEntry("COUNTER", 2);
  map.AddEntry("other", 3);
  EXPECT_EQ(map.count, 2u);
  int value = 0;
  ASSERT_TRUE(map.GetEntry("counter", value));
  EXPECT_EQ(value, 2);
  EXPECT_EQ(KeysInOrder(map), (std::vector<std::string>{"Counter", "other"}));

  StringMapCase<int> exact;
  exact.AddEntry("Counter", 1);
  exact.AddEntry("COUNTER", 2);
  EXPECT_EQ(exact.count, 2u);
  ASSERT_TRUE(exact.GetEntry("Counter", value));
  EXPECT_EQ(value, 1);
  ASSERT_TRUE(exact.GetEntry("COUNTER", value));
  EXPECT_EQ(value, 2);
  EXPECT_FALSE(exact.HasEntry("counter"));
}

TEST(ContainersStringMap, CaseMapMatchRules) {
  StringMapCase<int> map;
  auto tagged = [](char const* text, unsigned long encoding) {
    string s(text);
    s.SetEncoding(encoding);
    return s;
  };
  string a = tagged("same", kEncodingUTF8);
  string b = tagged("same", kEncodingUTF8);
  string c = tagged("same", kEncodingMacRoman);
  EXPECT_TRUE(map.StringsMatch(a, a));
  EXPECT_TRUE(map.StringsMatch(a, b));
  EXPECT_FALSE(map.StringsMatch(a, c));  // same bytes, different tags
  EXPECT_TRUE(map.StringsMatch(string(), string()));
  EXPECT_FALSE(map.StringsMatch(string(), a));
  EXPECT_FALSE(map.StringsMatch(a, tagged("sam", kEncodingUTF8)));
  EXPECT_FALSE(map.StringsMatch(a, tagged("Same", kEncodingUTF8)));
  // Bytes past a NUL still count.
  string withNul1, withNul2;
  withNul1.ConstructFromBuffer("x\0y", 3);
  withNul2.ConstructFromBuffer("x\0z", 3);
  EXPECT_FALSE(map.StringsMatch(withNul1, withNul2));

  map.AddEntry(a, 1);
  map.AddEntry(c, 2);
  EXPECT_EQ(map.count, 2u);
  int value = 0;
  ASSERT_TRUE(map.GetEntry(c, value));
  EXPECT_EQ(value, 2);
}

TEST(ContainersStringMap, EmptyMapHasNoBins) {
  StringMap<int> map;
  EXPECT_EQ(map.binCount, 256u);
  EXPECT_EQ(map.bins, nullptr);
  int calls = 0;
  auto callback = [](string, int, long context) {
    ++*(int*)context;
    return true;
  };
  EXPECT_TRUE(map.Iterate(callback, (long)&calls));
  EXPECT_EQ(calls, 0);
  int value = 5;
  EXPECT_FALSE(map.GetEntry("x", value));
  EXPECT_EQ(value, 5);
  EXPECT_FALSE(map.HasEntry("x"));
  map.DeleteEntry("x");
  EXPECT_EQ(map.bins, nullptr);
  EXPECT_EQ(KeysInOrder(map), std::vector<std::string>{});
}

TEST(ContainersStringMap, InsertionOrderSurvivesRehash) {
  struct {
    int entries;
    unsigned int binCount;
  } const kCases[] = {
      {192, 256},   // 192 is three quarters of 256: no rehash yet
      {193, 512},
      {384, 512},
      {385, 1024},
  };
  for (auto const& c : kCases) {
    SCOPED_TRACE(c.entries);
    StringMap<int> map;
    std::vector<std::string> expected;
    for (int i = 0; i < c.entries; ++i) {
      // Keys descend, so that bin order and insertion order differ.
      expected.push_back(KeyName(c.entries - i));
      map.AddEntry(expected.back().c_str(), i);
    }
    EXPECT_EQ(map.binCount, c.binCount);
    EXPECT_EQ(map.count, (unsigned)c.entries);
    EXPECT_EQ(KeysInOrder(map), expected);
    for (int i = 0; i < c.entries; ++i) {
      int value = -1;
      ASSERT_TRUE(map.GetEntry(expected[i].c_str(), value)) << expected[i];
      EXPECT_EQ(value, i);
    }
  }
}

TEST(ContainersStringMap, IterateWalksBinsNewestFirst) {
  StringMap<int> map;
  // "A" and "1R" both hash to bin 65 of 256; "B" is alone in bin 66.
  map.AddEntry("B", 1);
  map.AddEntry("A", 2);
  map.AddEntry("1R", 3);
  std::vector<std::string> seen;
  auto collect = [](string key, int, long context) {
    ((std::vector<std::string>*)context)->push_back(key.CString());
    return true;
  };
  EXPECT_TRUE(map.Iterate(collect, (long)&seen));
  EXPECT_EQ(seen, (std::vector<std::string>{"1R", "A", "B"}));
  EXPECT_EQ(KeysInOrder(map), (std::vector<std::string>{"B", "A", "1R"}));

  seen.clear();
  auto stopAtA = [](string key, int, long context) {
    ((std::vector<std::string>*)context)->push_back(key.CString());
    return !(key == "a");
  };
  EXPECT_FALSE(map.Iterate(stopAtA, (long)&seen));
  EXPECT_EQ(seen, (std::vector<std::string>{"1R", "A"}));
}

TEST(ContainersStringMap, DeleteEntryFromChainAndOrder) {
  StringMap<int> map;
  for (char const* k : {"A", "1R", "B", "C"}) map.AddEntry(k, 0);
  map.DeleteEntry("a");     // at the tail of its bin chain
  map.DeleteEntry("nope");  // absent: nothing changes
  EXPECT_EQ(map.count, 3u);
  EXPECT_TRUE(map.HasEntry("1R"));
  EXPECT_FALSE(map.HasEntry("A"));
  map.DeleteEntry("C");  // the last entry: appending must still work
  map.AddEntry("D", 0);
  map.DeleteEntry("1r");  // the first entry
  EXPECT_EQ(KeysInOrder(map), (std::vector<std::string>{"B", "D"}));
  EXPECT_EQ(map.count, 2u);
  map.DeleteEntry("B");
  map.DeleteEntry("D");
  EXPECT_EQ(map.first, nullptr);
  EXPECT_EQ(map.last, nullptr);
  map.AddEntry("E", 0);
  EXPECT_EQ(KeysInOrder(map), std::vector<std::string>{"E"});
  EXPECT_EQ(map.binCount, 256u);
}

TEST(ContainersStringMap, IteratorStates) {
  StringMap<int> map;
  map.AddEntry("one", 1);
  map.AddEntry("two", 2);
  StringMapIterator<int> it(&map);
  int value = 0;
  EXPECT_FALSE(it.Value(value));  // not started
  EXPECT_EQ(it.Key().Length(), 0);
  it.Delete();  // not started: nothing to delete
  EXPECT_EQ(map.count, 2u);
  ASSERT_TRUE(it.Next(value));
  EXPECT_EQ(value, 1);
  EXPECT_STREQ(it.Key().CString(), "one");
  ASSERT_TRUE(it.Next(value));
  EXPECT_EQ(value, 2);
  EXPECT_FALSE(it.Next());
  EXPECT_FALSE(it.Next(value));
  EXPECT_EQ(it.Key().Length(), 0);
  it.Delete();  // past the end: nothing to delete
  EXPECT_EQ(map.count, 2u);
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
  EXPECT_FALSE(map.HasEntry("c"));
  EXPECT_EQ(KeysInOrder(map), (std::vector<std::string>{"a", "b", "d", "e"}));

  int value = 0;
  ASSERT_TRUE(deleter.Next(value));
  EXPECT_EQ(value, 'd');
  ASSERT_TRUE(bystander.Next());
  EXPECT_STREQ(bystander.Key().CString(), "d");  // d is not skipped
  ASSERT_TRUE(behind.Next());
  EXPECT_STREQ(behind.Key().CString(), "b");  // an iterator elsewhere is untouched

  // Deleting every entry through one iterator empties the map in order.
  StringMapIterator<int> sweeper(&map);
  std::vector<std::string> swept;
  while (sweeper.Next()) {
    swept.push_back(sweeper.Key().CString());
    sweeper.Delete();
  }
  EXPECT_EQ(swept, (std::vector<std::string>{"a", "b", "d", "e"}));
  EXPECT_EQ(map.count, 0u);
  EXPECT_FALSE(deleter.Next());
  EXPECT_FALSE(bystander.Next());
}

// A fresh iterator stands on the first entry before its first Next; deleting
// that entry must not leave it on freed memory.
TEST(ContainersStringMap, UnstartedIteratorOnDeletedEntry) {
  StringMap<string> map;
  map.AddEntry("a", "first");
  map.AddEntry("b", "second");
  StringMapIterator<string> it(&map);
  map.DeleteEntry("a");
  string value;
  ASSERT_TRUE(it.Next(value));
  EXPECT_STREQ(value.CString(), "second");
}

TEST(ContainersStringMap, MapDeletesIteratorsItOutlives) {
  auto* map = new StringMap<int>;
  map->AddEntry("k", 1);
  StringMapIterator<int>* a = map->NewIterator();
  StringMapIterator<int>* b = map->NewIterator();
  StringMapIterator<int>* c = map->NewIterator();
  EXPECT_EQ(map->iterators, c);
  delete b;  // unchains from the middle
  EXPECT_EQ(map->iterators, c);
  EXPECT_EQ(c->nextIterator, a);
  EXPECT_EQ(a->nextIterator, nullptr);
  delete map;  // takes a and c with it; the sanitizer build checks for leaks
}

TEST(ContainersStringMap, ValuesAreOwnedCopies) {
  StringMap<string> map;
  {
    string key("name");
    string value("text");
    map.AddEntry(key, value);
  }
  string out;
  ASSERT_TRUE(map.GetEntry("NAME", out));
  EXPECT_STREQ(out.CString(), "text");
  map.AddEntry("Name", "replaced");
  ASSERT_TRUE(map.GetEntry("name", out));
  EXPECT_STREQ(out.CString(), "replaced");
}

TEST(ContainersStringMap, FlatFunctions) {
  EXPECT_EQ(getStringMapEntry(nullptr, "x"), 0u);
  EXPECT_EQ(getStringMapIterator(nullptr), nullptr);
  EXPECT_FALSE(smIteratorNext(nullptr));
  EXPECT_EQ(smIteratorKey(nullptr).Length(), 0);

  StringMap<unsigned long>* map = newStringMap();
  addStringMapEntry(map, "alpha", 10);
  addStringMapEntry(map, "beta", 20);
  addStringMapEntry(map, "gamma", 30);
  EXPECT_EQ(getStringMapEntry(map, "ALPHA"), 10u);
  EXPECT_EQ(getStringMapEntry(map, "delta"), 0u);
  deleteStringMapEntry(map, "beta");

  unsigned long sum = 0;
  auto add = [](string, unsigned long value, long context) {
    *(unsigned long*)context += value;
    return true;
  };
  EXPECT_TRUE(iterateStringMap(map, add, (long)&sum));
  EXPECT_EQ(sum, 40u);

  StringMapIterator<unsigned long>* it = getStringMapIterator(map);
  EXPECT_EQ(smIteratorValue(it), 0u);
  ASSERT_TRUE(smIteratorNext(it));
  EXPECT_STREQ(smIteratorKey(it).CString(), "alpha");
  EXPECT_EQ(smIteratorValue(it), 10u);
  smIteratorDelete(it);
  ASSERT_TRUE(smIteratorNext(it));
  EXPECT_EQ(smIteratorValue(it), 30u);
  EXPECT_FALSE(smIteratorNext(it));
  smDisposeIterator(it);
  EXPECT_EQ(getStringMapEntry(map, "alpha"), 0u);
  EXPECT_EQ(map->iterators, nullptr);
  disposeStringMap(map);
}

TEST(ContainersIntMap, ReplaceAndCollidingKeys) {
  IntMap<int> map;
  // 0, 1024 and 2048 share bin 0; -1 and 1023 share bin 1011.
  int const kKeys[] = {0, 1024, 2048, -1, 1023, 5};
  for (int k : kKeys) map.AddEntry(k, k * 2);
  map.AddEntry(1024, 7);
  map.AddEntry(-1, 8);
  struct {
    int key;
    bool found;
    int value;
  } const kLookups[] = {
      {0, true, 0}, {1024, true, 7}, {2048, true, 4096}, {-1, true, 8},
      {1023, true, 2046}, {5, true, 10}, {3072, false, 0}, {-1025, false, 0},
  };
  for (auto const& c : kLookups) {
    SCOPED_TRACE(c.key);
    int value = 0;
    EXPECT_EQ(map.GetEntry(c.key, value), c.found);
    if (c.found) {
      EXPECT_EQ(value, c.value);
    }
  }
  // The newest entry heads its bin; the order list keeps insertion order.
  ASSERT_NE(map.bins[0], nullptr);
  EXPECT_EQ(map.bins[0]->key, 2048);
  EXPECT_EQ(map.bins[1011]->key, 1023);
  std::vector<int> order;
  for (IntMapEntry<int>* e = map.first; e; e = e->orderNext) order.push_back(e->key);
  EXPECT_EQ(order, std::vector<int>(std::begin(kKeys), std::end(kKeys)));
  EXPECT_EQ(map.last->key, 5);
}

}  // namespace
