#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/SimpleVector.h"

namespace {

std::vector<std::string> Texts(SimpleVector<string> const& v) {
  std::vector<std::string> out;
  for (unsigned long i = 0; i < v.size(); ++i) out.push_back(v[i].CString());
  return out;
}

// Growing with either policy, then deleting from the front (which shrinks the
// array now and then): the survivors are all there, in order.
TEST(ContainersVector, GrowAndShrinkKeepEveryElementInOrder) {
  for (unsigned long growBy : {0ul, 5ul, 20ul}) {
    SCOPED_TRACE(growBy);
    SimpleVector<int> v;
    v.growBy = growBy;
    for (int i = 0; i < 300; ++i) v.push_back(i);
    ASSERT_EQ(v.size(), 300u);
    for (int i = 0; i < 300; ++i) ASSERT_EQ(v[i], i);
    for (int gone = 1; gone <= 300; ++gone) {
      v.deleteIdx(0);
      ASSERT_EQ(v.size(), 300u - gone);
      if (v.size()) {
        ASSERT_EQ(v[0], gone);
        ASSERT_EQ(v[v.size() - 1], 299);
      }
      ASSERT_LE(v.size(), v.capacity);
    }
  }
}

// The element passed in lives in the array that growth frees; the sanitizer
// build sees a read after the free.
TEST(ContainersVector, PushBackAndInsertOfOwnElement) {
  SimpleVector<string> v;
  v.push_back("first");
  for (int i = 0; i < 40; ++i) v.push_back(v[0]);
  v.insert(v[1], 0);
  v.insert(v[v.size() - 1], v.size() / 2);
  ASSERT_EQ(v.size(), 43u);
  for (unsigned long i = 0; i < v.size(); ++i) ASSERT_STREQ(v[i].CString(), "first") << i;
  EXPECT_EQ(v[0].Storage()->mRefCount, 43u);
}

TEST(ContainersVector, InsertDeleteAndResizeKeepTheOrder) {
  SimpleVector<string> v;
  v.insert("c", 0);
  v.insert("a", 0);
  v.insert("b", 1);
  v.insert("d", 3);
  v.push_back("e");
  EXPECT_EQ(Texts(v), (std::vector<std::string>{"a", "b", "c", "d", "e"}));
  v.deleteIdx(4);
  v.deleteIdx(1);
  EXPECT_STREQ(v.pop_back().CString(), "d");
  EXPECT_EQ(Texts(v), (std::vector<std::string>{"a", "c"}));
  v.resize(1);
  v.resize(10);  // more room, no more elements
  EXPECT_EQ(Texts(v), std::vector<std::string>{"a"});
}

TEST(ContainersVector, CopiesAreIndependent) {
  SimpleVector<string> v;
  for (char const* s : {"one", "two", "three"}) v.push_back(s);
  SimpleVector<string> copy(v);
  copy[0] = "changed";
  EXPECT_STREQ(v[0].CString(), "one");
  // Elements are shared strings, counted once per vector.
  EXPECT_EQ(v[1].Storage()->mRefCount, 2u);
  SimpleVector<string> assigned;
  assigned.push_back("old");
  assigned = v;
  SimpleVector<string>& alias = assigned;
  assigned = alias;
  EXPECT_EQ(Texts(assigned), Texts(v));
  EXPECT_EQ(v[1].Storage()->mRefCount, 3u);
  v.deleteAll();
  EXPECT_EQ(v.size(), 0u);
  EXPECT_EQ(copy[1].Storage()->mRefCount, 2u);
}

#if defined(KV_CHECKS)
// Indexing never adds elements: room made by resize is not yet in use.
TEST(ContainersVectorDeathTest, IndexPastSizeIsCaught) {
  SimpleVector<int> v;
  v.resize(8);
  v.push_back(1);
  EXPECT_DEATH(v[1] = 2, "i < count");
  EXPECT_DEATH(v.pop_back(); v.pop_back(), "count > 0");
}
#endif

}  // namespace
