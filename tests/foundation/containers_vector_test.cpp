#include <gtest/gtest.h>

#include <vector>

#include "foundation/SimpleVector.h"

namespace {

// Capacities seen after each push_back that changed it.
std::vector<unsigned long> GrowthSteps(unsigned long growBy, int pushes) {
  SimpleVector<int> v;
  v.growBy = growBy;
  std::vector<unsigned long> seen;
  for (int i = 0; i < pushes; ++i) {
    unsigned long before = v.capacity;
    v.push_back(i);
    if (v.capacity != before) seen.push_back(v.capacity);
  }
  for (int i = 0; i < pushes; ++i) EXPECT_EQ(v[i], i);
  return seen;
}

TEST(ContainersVector, GrowthSequence) {
  struct {
    unsigned long growBy;
    int pushes;
    std::vector<unsigned long> capacities;
  } const kCases[] = {
      {0, 129, {16, 32, 64, 128, 256}},  // doubling, starting at 16
      {5, 40, {16, 32, 48}},             // small steps are raised to 16
      {20, 61, {20, 40, 60, 80}},
  };
  for (auto const& c : kCases) {
    SCOPED_TRACE(c.growBy);
    EXPECT_EQ(GrowthSteps(c.growBy, c.pushes), c.capacities);
  }
}

TEST(ContainersVector, SizedConstructor) {
  SimpleVector<int> empty(0);
  EXPECT_EQ(empty.data, nullptr);
  EXPECT_EQ(empty.size(), 0u);
  SimpleVector<string> v(3);
  EXPECT_EQ(v.size(), 3u);
  EXPECT_EQ(v.capacity, 3u);
  EXPECT_EQ(v.growBy, 0u);
  EXPECT_EQ(v[2].Length(), 0);
  v.push_back("x");  // full: grows by 16, as a step of 3 would be too small
  EXPECT_EQ(v.capacity, 19u);
}

// Deleting from the front, one element at a time, and the capacity seen at
// given sizes on the way down.
TEST(ContainersVector, DeleteIdxShrinkRule) {
  struct Checkpoint {
    unsigned long size, capacity;
  };
  struct {
    unsigned long growBy;
    unsigned long filled;
    std::vector<Checkpoint> checkpoints;
  } const kCases[] = {
      // growBy 0: shrinks once free > 2 * size, to (size & ~15) + 16.
      {0, 40, {{39, 64}, {22, 64}, {21, 32}, {11, 32}, {10, 16}, {1, 16}, {0, 16}}},
      // growBy 8: shrinks once free > 16, to (size / 8 + 1) * 8.
      {8, 20, {{19, 32}, {16, 32}, {15, 16}, {0, 16}}},
  };
  for (auto const& c : kCases) {
    SCOPED_TRACE(c.growBy);
    SimpleVector<int> v;
    v.growBy = c.growBy;
    for (unsigned long i = 0; i < c.filled; ++i) v.push_back((int)i);
    size_t next = 0;
    while (v.size() > 0) {
      v.deleteIdx(0);
      // The survivors keep their order.
      if (v.size() > 0) {
        ASSERT_EQ(v[0], (int)(c.filled - v.size()));
        ASSERT_EQ(v[v.size() - 1], (int)c.filled - 1);
      }
      if (next < c.checkpoints.size() && c.checkpoints[next].size == v.size()) {
        EXPECT_EQ(v.capacity, c.checkpoints[next].capacity) << "at size " << v.size();
        ++next;
      }
    }
    EXPECT_EQ(next, c.checkpoints.size());
  }
}

TEST(ContainersVector, DeleteIdxMiddleAndLast) {
  SimpleVector<string> v;
  for (char const* s : {"a", "b", "c", "d"}) v.push_back(s);
  v.deleteIdx(1);
  v.deleteIdx(2);
  ASSERT_EQ(v.size(), 2u);
  EXPECT_STREQ(v[0].CString(), "a");
  EXPECT_STREQ(v[1].CString(), "c");
}

TEST(ContainersVector, InsertAtFrontMiddleEnd) {
  SimpleVector<int> v;
  v.insert(2, 0);
  v.insert(0, 0);
  v.insert(1, 1);
  v.insert(3, 3);
  ASSERT_EQ(v.size(), 4u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(v[i], i);
  // Insertion grows like push_back.
  for (int i = 4; i < 17; ++i) v.insert(i, v.size());
  EXPECT_EQ(v.capacity, 32u);
  EXPECT_EQ(v[16], 16);
}

TEST(ContainersVector, ResizeSmallerDiscardsTail) {
  SimpleVector<string> v;
  for (char const* s : {"a", "b", "c", "d", "e"}) v.push_back(s);
  string* before = v.data;
  v.resize(16);  // the capacity it already has: nothing moves
  EXPECT_EQ(v.data, before);
  v.resize(3);
  EXPECT_EQ(v.capacity, 3u);
  ASSERT_EQ(v.size(), 3u);
  EXPECT_STREQ(v[2].CString(), "c");
  v.resize(10);
  EXPECT_EQ(v.size(), 3u);
  EXPECT_STREQ(v[0].CString(), "a");
  EXPECT_EQ(v.data[3].Length(), 0);  // the discarded tail did not come back
  v.resize(0);
  EXPECT_EQ(v.size(), 0u);
  EXPECT_EQ(v.data, nullptr);
}

TEST(ContainersVector, IndexAtSizeExtends) {
  SimpleVector<int> v;
  v.resize(8);
  EXPECT_EQ(v.size(), 0u);
  v[0] = 10;
  EXPECT_EQ(v.size(), 1u);
  v[1] = 11;  // at size: one more, without push_back
  EXPECT_EQ(v.size(), 2u);
  v[5] = 15;  // past size: everything up to it is in use
  EXPECT_EQ(v.size(), 6u);
  v[3] = 13;  // below size: no change
  EXPECT_EQ(v.size(), 6u);
  SimpleVector<int> const& cv = v;
  EXPECT_EQ(cv[7], 0);
  EXPECT_EQ(v.size(), 6u);
  EXPECT_EQ(v.capacity, 8u);
}

TEST(ContainersVector, PopAndPeekBack) {
  SimpleVector<int> v;
  v.push_back(1);
  v.push_back(2);
  EXPECT_EQ(v.peek_back(), 2);
  EXPECT_EQ(v.size(), 2u);
  EXPECT_EQ(v.pop_back(), 2);
  EXPECT_EQ(v.size(), 1u);
  EXPECT_EQ(v.peek_back(), 1);
  v.push_back(3);
  EXPECT_EQ(v.peek_back(), 3);
}

TEST(ContainersVector, CopiesAreIndependent) {
  SimpleVector<string> v;
  v.growBy = 4;
  for (char const* s : {"one", "two", "three"}) v.push_back(s);
  SimpleVector<string> copy(v);
  EXPECT_EQ(copy.growBy, 4u);
  EXPECT_EQ(copy.capacity, v.capacity);
  ASSERT_EQ(copy.size(), 3u);
  EXPECT_NE(copy.data, v.data);
  copy[0] = "changed";
  EXPECT_STREQ(v[0].CString(), "one");
  // Elements are shared strings, counted once per vector.
  EXPECT_EQ(v[1].Storage(), copy[1].Storage());
  EXPECT_EQ(v[1].Storage()->mRefCount, 2u);

  SimpleVector<string> assigned;
  assigned.push_back("old");
  assigned = v;
  SimpleVector<string>& alias = assigned;
  assigned = alias;
  ASSERT_EQ(assigned.size(), 3u);
  EXPECT_STREQ(assigned[2].CString(), "three");
  EXPECT_EQ(v[1].Storage()->mRefCount, 3u);
  v.deleteAll();
  EXPECT_EQ(v.data, nullptr);
  EXPECT_EQ(v.capacity, 0u);
  EXPECT_EQ(copy[1].Storage()->mRefCount, 2u);
}

TEST(ContainersVector, LinkedContainerEntryVector) {
  SimpleVector<LinkedContainerEntry> v;
  LinkedContainerEntry e;
  e.key = "sym";
  e.value = 7;
  v.push_back(e);
  EXPECT_STREQ(v[0].key.CString(), "sym");
  EXPECT_EQ(v[0].value, 7u);
  EXPECT_EQ(v[0].next, 0u);
}

}  // namespace
