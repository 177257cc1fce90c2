// What scripts cannot show of the array run-time: block sizes and the
// growth step, sizes that pass the limit, the depth of the sort, the
// capacity a drain keeps, the order of a release, the monitor, and the
// host's Join and Split over the same records.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <string>
#include <vector>

#include "foundation/Utility.h"
#include "host/HostLibrary.h"
#include "runtime/KVScriptIntrinsics.h"
#include "runtime/RunAbort.h"
#include "runtime/RunState.h"
#include "runtime/RuntimeArrayFoundation.h"
#include "runtime/RuntimeObjectFoundation.h"
#include "runtime/RuntimeStringFoundation.h"
#include "tests/runtime/SmallStack.h"

namespace {

class Listener : public KvScriptCorrespondent {
public:
  void ScriptError(RuntimeErrorCode, unsigned long) override {
    char const* name = UnhandledExceptionClassName();
    reports.push_back(name ? name : "-");
  }
  std::vector<std::string> reports;
};

class ArrayRuntime : public ::testing::Test {
protected:
  void SetUp() override {
    InitKvScriptRuntime();
    SetRuntimeCorrespondent(&listener);
    bytesBefore = gTotalAllocLen;
  }
  void TearDown() override {
    SetArrayDestructionMonitor(nullptr);
    ExitKvScriptRuntime();
    InitKvScriptRuntime();
    EXPECT_EQ(gTotalAllocLen, bytesBefore);
  }
  // The reports since the last look.
  std::vector<std::string> Reports() {
    std::vector<std::string> r;
    r.swap(listener.reports);
    return r;
  }
  Listener listener;
  long bytesBefore = 0;
};

using Texts = std::vector<std::string>;

// Calls a table slot as generated code does.
template <class R, class... A>
R Call(void* slot, A... args) {
  return reinterpret_cast<R (*)(A...)>(slot)(args...);
}
int GetI(RuntimeArray* a, int i) { return Call<int>(a->mMethods->mGet, a, i); }
void SetI(RuntimeArray* a, int v, int i) { Call<void>(a->mMethods->mSet, a, v, i); }
void Insert(RuntimeArray* a, int i, int v) { Call<void>(a->mMethods->mInsert, a, i, v); }
void Remove(RuntimeArray* a, int i) { Call<void>(a->mMethods->mRemove, a, i); }
int Get2(RuntimeArray* a, int i, int j) { return reinterpret_cast<int (*)(RuntimeArray*, ...)>(a->mMethods->mGet)(a, i, j); }
void Redim2(RuntimeArray* a, int i, int j) { reinterpret_cast<void (*)(RuntimeArray*, ...)>(a->mMethods->mRedim)(a, i, j); }

stringStorage* Text(char const* s) { return string(s).ExtractStringStorage(); }

Texts TextsOf(RuntimeArray* a) {
  Texts out;
  auto** slots = reinterpret_cast<stringStorage**>(a->mData);
  for (int i = 0; i <= a->mUpperBounds[0]; ++i) out.push_back(stringStorage::CString(slots[i]));
  return out;
}

TEST_F(ArrayRuntime, InsertGrowsByADoublingStepThatRedimAndRemoveReset) {
  RuntimeArray* a = CreateArray(1, kArrayElementInteger, -1);
  EXPECT_EQ(a->mData, nullptr);
  EXPECT_EQ(RuntimeUBound(a), -1);
  Insert(a, 0, 7);
  EXPECT_EQ(a->mAllocated, 16 * 4);
  std::vector<int> steps = {16, 32};
  for (int i = 1; i < 140000; ++i) {
    Insert(a, i, i);
    if (a->mGrowth != steps.back()) steps.push_back(a->mGrowth);
  }
  EXPECT_EQ(steps.back(), 0x20000);
  EXPECT_EQ(steps.size(), 14u);  // 16 doubled thirteen times, then no more
  Insert(a, 0, -1);              // at the front, into spare room
  EXPECT_EQ(GetI(a, 0) + GetI(a, 1) + GetI(a, 140000), -1 + 7 + 139999);
  Insert(a, 140002, 0);  // past ub + 1
  Call<void>(a->mMethods->mRedim, a, 140000);  // the same bound
  EXPECT_EQ(a->mGrowth, 0x20000);
  Remove(a, 0);
  EXPECT_EQ(a->mGrowth, 16);
  Insert(a, 0, 1);
  Call<void>(a->mMethods->mRedim, a, 10);
  EXPECT_EQ(a->mGrowth, 16);
  EXPECT_EQ(a->mAllocated, 11 * 4);
  EXPECT_EQ(Reports(), Texts{"OutOfBoundsException"});
  RuntimeUnlockArray(a);
}

// Remove keeps the block until a quarter of it is in use, then halves it.
TEST_F(ArrayRuntime, DrainingKeepsTheBlockThenShrinks) {
  RuntimeArray* a = CreateArray(1, kArrayElementInteger, 999);
  for (int i = 0; i < 1000; ++i) SetI(a, i, i);
  Remove(a, 500);
  EXPECT_EQ(GetI(a, 499) * 1000 + GetI(a, 500), 499 * 1000 + 501);
  while (a->mUpperBounds[0] >= 250) Remove(a, a->mUpperBounds[0]);
  EXPECT_EQ(a->mAllocated, 4000);
  Remove(a, 249);
  EXPECT_EQ(a->mAllocated, 249 * 2 * 4);
  EXPECT_EQ(GetI(a, 248), 248);
  while (a->mUpperBounds[0] >= 0) Remove(a, 0);
  EXPECT_EQ(a->mData, nullptr);
  EXPECT_EQ(a->mAllocated, 0);
  Remove(a, 0);
  EXPECT_EQ(Reports(), Texts{"OutOfBoundsException"});
  RuntimeUnlockArray(a);
}

TEST_F(ArrayRuntime, RedimKeepsElementsAtTheirIndicesAndReleasesTheRest) {
  RuntimeArray* m = CreateArray(2, kArrayElementInteger, 2, 3);
  for (int i = 0; i <= 2; ++i)
    for (int j = 0; j <= 3; ++j) reinterpret_cast<void (*)(RuntimeArray*, int, ...)>(m->mMethods->mSet)(m, i * 10 + j, i, j);
  Redim2(m, 3, 1);
  EXPECT_EQ(Get2(m, 1, 1), 11);
  EXPECT_EQ(Get2(m, 2, 0), 20);
  EXPECT_EQ(Get2(m, 3, 1), 0);
  EXPECT_EQ(m->mAllocated, 4 * 2 * 4);
  EXPECT_EQ(Get2(m, 0, 2), 0);  // out of bounds now
  EXPECT_EQ(Reports(), Texts{"OutOfBoundsException"});
  Call<void>(m->mMethods->mShuffle, m);  // over both dimensions, keeping every element
  std::vector<int> shuffled(reinterpret_cast<int*>(m->mData), reinterpret_cast<int*>(m->mData) + 8);
  std::sort(shuffled.begin(), shuffled.end());
  EXPECT_EQ(shuffled, (std::vector<int>{0, 0, 0, 1, 10, 11, 20, 21}));
  RuntimeUnlockArray(m);

  stringStorage* kept = Text("kept");
  stringStorage* dropped = Text("dropped");
  RuntimeArray* s = CreateArray(2, kArrayElementString, 1, 1);
  auto set = reinterpret_cast<void (*)(RuntimeArray*, stringStorage*, ...)>(s->mMethods->mSet);
  set(s, kept, 0, 1);
  set(s, dropped, 1, 1);
  Redim2(s, 0, 2);
  EXPECT_EQ(dropped->mRefCount, 1u);
  EXPECT_EQ(kept->mRefCount, 2u);
  auto get = reinterpret_cast<stringStorage* (*)(RuntimeArray*, ...)>(s->mMethods->mGet);
  stringStorage* got = get(s, 0, 1);
  EXPECT_EQ(got, kept);
  EXPECT_EQ(kept->mRefCount, 3u);  // Get hands out a reference
  RuntimeUnlockString(got);
  RuntimeUnlockArray(s);
  EXPECT_EQ(kept->mRefCount, 1u);
  RuntimeUnlockString(kept);
  RuntimeUnlockString(dropped);
}

// Nothing changes and nothing is left behind when a size is refused.
TEST_F(ArrayRuntime, BadBoundsAndSizesPastTheLimitRaise) {
  RuntimeArray* const made[] = {
      CreateArray(1, kArrayElementInteger, -2),
      CreateArray(2, kArrayElementInteger, 65535, 32768),
      CreateArray(1, kArrayElementDouble, 0x10000000 - 1),
      CreateArray(3, kArrayElementString, 0x7FFFFFFE, 0x7FFFFFFE, 0x7FFFFFFE),
  };
  EXPECT_EQ(std::count(std::begin(made), std::end(made), nullptr), 4);
  EXPECT_EQ(NewLinearArray(kArrayElementInteger, 0x7FFFFFFF), nullptr);  // quietly
  EXPECT_EQ(Reports(), (Texts{"OutOfBoundsException", "OutOfMemoryException", "OutOfMemoryException",
                              "OutOfMemoryException"}));
  RuntimeArray* empty = CreateArray(3, kArrayElementInteger, 100000, 100000, -1);
  EXPECT_EQ(empty->mData, nullptr);
  RuntimeUnlockArray(empty);

  RuntimeArray* m = CreateArray(2, kArrayElementInteger, 1, 1);
  RuntimeArray* v = CreateArray(1, kArrayElementInteger, 3);
  char* data = m->mData;
  Redim2(m, 0x10000, 0x8000);
  Redim2(m, -5, 1);
  Call<void>(v->mMethods->mRedim, v, -5);
  Call<void>(v->mMethods->mRedim, v, 0x20000000);
  EXPECT_EQ(Reports(), (Texts{"OutOfMemoryException", "OutOfBoundsException", "OutOfBoundsException",
                              "OutOfMemoryException"}));
  EXPECT_EQ(m->mData, data);
  EXPECT_EQ(m->mUpperBounds[0] + m->mUpperBounds[1] + v->mUpperBounds[0], 1 + 1 + 3);
  RuntimeUnlockArray(m);
  RuntimeUnlockArray(v);
}

TEST_F(ArrayRuntime, NilArraysRaiseInsteadOfCrashing) {
  RuntimeArrayMethods const* t = ChooseMethodTable(1, kArrayElementString);
  Call<void>(t->mInsert, (RuntimeArray*)nullptr, 0, (stringStorage*)nullptr);
  Call<void>(t->mRemove, (RuntimeArray*)nullptr, 0);
  Call<void>(t->mSort, (RuntimeArray*)nullptr);
  EXPECT_EQ(Call<int>(t->mIndexOf, (RuntimeArray*)nullptr, (stringStorage*)nullptr, 0), -1);
  Call<void>(t->mShuffle, (RuntimeArray*)nullptr);
  Call<void>(t->mRedim, (RuntimeArray*)nullptr, 3);
  EXPECT_EQ(RuntimeUBound(nullptr), 0);
  EXPECT_EQ(RuntimeUBound2Param(nullptr, 1), -1);
  EXPECT_EQ(StringJoin(nullptr, nullptr), nullptr);
  EXPECT_EQ(Reports(), Texts(9, "NilObjectException"));
  EXPECT_EQ(ChooseMethodTable(1, 5), nullptr);
  EXPECT_EQ(ChooseMethodTable(2, kArrayElementObject)->mInsert, nullptr);
  EXPECT_EQ(ChooseMethodTable(1, kArrayElementObject)->mSort, nullptr);

  RuntimeArray* m = CreateArray(3, kArrayElementSingle, 1, 2, 3);
  EXPECT_EQ(RuntimeUBound2Param(m, -1), 3);
  EXPECT_EQ(RuntimeUBound2Param(m, 3), 3);
  EXPECT_EQ(RuntimeUBound2Param(m, 0), -1);
  EXPECT_EQ(RuntimeUBound2Param(m, 4), -1);
  EXPECT_EQ(Reports(), Texts(2, "OutOfBoundsException"));
  RuntimeUnlockArray(m);
}

// The adversary of a middle pivot: each round's middle element is the
// largest left, so a sort that recursed into both parts would go as deep
// as the array is long. Made by running the partition on labels with the
// pivot taken as the largest.
std::vector<int> MiddleIsLargest(int n) {
  std::vector<int> label(n), value(n);
  for (int i = 0; i < n; ++i) label[i] = i;
  for (int hi = n - 1, next = n - 1; hi >= 0; --next) {
    int pivot = label[hi / 2], less = 0;
    value[pivot] = next;
    for (int i = 0; i <= hi; ++i) {
      std::swap(label[i], label[hi]);
      if (label[i] != pivot) std::swap(label[less++], label[i]);
    }
    hi = less - 1;
  }
  return value;
}

void* SortAll(void*) {
  int const n = 200000;
  std::vector<std::vector<int>> inputs(5, std::vector<int>(n));
  for (int i = 0; i < n; ++i) {
    inputs[0][i] = i;
    inputs[1][i] = n - i;
    inputs[2][i] = 5;
    inputs[3][i] = i < n / 2 ? i : n - i;
  }
  inputs[4] = MiddleIsLargest(6000);
  for (std::vector<int>& input : inputs) {
    RuntimeArray* a = CreateArray(1, kArrayElementInteger, (int)input.size() - 1);
    int* sorted = reinterpret_cast<int*>(a->mData);
    std::copy(input.begin(), input.end(), sorted);
    Call<void>(a->mMethods->mSort, a);
    std::sort(input.begin(), input.end());
    EXPECT_TRUE(std::equal(input.begin(), input.end(), sorted));
    RuntimeUnlockArray(a);
  }
  return nullptr;
}

TEST_F(ArrayRuntime, SortStaysShallowOnItsWorstInputs) {
  ASSERT_TRUE(RunOnSmallStack(SortAll, nullptr, 128 * 1024));
}

// Strings order and match as the language's `=` does, ignoring case.
TEST_F(ArrayRuntime, StringsSortAndMatchIgnoringCase) {
  stringStorage* words = Text("b A a C");
  stringStorage* space = Text(" ");
  RuntimeArray* a = StringSplit(words, space);
  Call<void>(a->mMethods->mSort, a);
  EXPECT_EQ(TextsOf(a), (Texts{"a", "A", "b", "C"}));  // what the partition gives
  stringStorage* x = Text("B");
  stringStorage* longer = Text("a text longer than the sixty-four bytes the search folds on the stack");
  EXPECT_EQ(Call<int>(a->mMethods->mIndexOf, a, x, -1), 2);
  EXPECT_EQ(Call<int>(a->mMethods->mIndexOf, a, longer, 0), -1);
  EXPECT_EQ(Call<int>(a->mMethods->mIndexOf, a, (stringStorage*)nullptr, 0), -1);
  EXPECT_EQ(Call<int>(a->mMethods->mIndexOf, a, x, 4), -1);
  EXPECT_EQ(Reports(), Texts{"OutOfBoundsException"});
  Call<void>(a->mMethods->mInsert, a, 4, longer);
  EXPECT_EQ(Call<int>(a->mMethods->mIndexOf, a, longer, 3), 4);
  RuntimeArray* empty = CreateArray(1, kArrayElementString, -1);
  EXPECT_EQ(Call<int>(empty->mMethods->mIndexOf, empty, x, -1), -1);
  EXPECT_EQ(Reports(), Texts{});
  for (stringStorage* s : {x, longer, words, space}) RuntimeUnlockString(s);
  for (RuntimeArray* r : {a, empty}) RuntimeUnlockArray(r);
}

// Counted elements: a Set releases the old value after the new one is in
// place; the last unlock releases each element once, then the monitor hears.
// A cast hands out the same array, or raises for an element of another class.
RuntimeArray* sWatched = nullptr;
std::vector<std::string> sSeen;
void NoteSlot(RuntimeObject*) {
  RuntimeObject* now = Call<RuntimeObject*>(sWatched->mMethods->mGetFast, sWatched, 0);
  sSeen.push_back(now ? "new in place" : "slot empty");
  RuntimeUnlockObject(now);
}
void NoteFreed(RuntimeArray* a) { sSeen.push_back(a == sWatched ? "freed" : "other"); }

TEST_F(ArrayRuntime, ReleasesComeOnceAndAfterTheStore) {
  RuntimeClass* c = RuntimeNewClass(nullptr, 0, 0, 0, 0, 0);
  c->mInstanceSize = 24;
  c->mDestructor = NoteSlot;
  RuntimeClass* other = RuntimeNewClass(nullptr, 0, 0, 0, 0, 0);
  sSeen.clear();
  SetArrayDestructionMonitor(NoteFreed);
  sWatched = CreateArray(1, kArrayElementObject, 1);
  for (int i : {0, 0, 1}) {
    RuntimeObject* o = RuntimeNewObject(c);
    Call<void>(sWatched->mMethods->mSet, sWatched, o, i);
    RuntimeUnlockObject(o);
  }
  EXPECT_EQ(sSeen, Texts{"new in place"});
  RuntimeArray* cast = RuntimeCreateArrayCastWrapper(sWatched, c);
  EXPECT_EQ(cast, sWatched);
  EXPECT_EQ(RuntimeCreateArrayCastWrapper(sWatched, other), nullptr);
  EXPECT_EQ(RuntimeCreateArrayCastWrapper(nullptr, c), nullptr);
  RuntimeLockUnlockArrays(sWatched, sWatched);
  RuntimeUnlockArray(cast);
  EXPECT_EQ(Reports(), Texts{"IllegalCastException"});
  sSeen.clear();
  c->mDestructor = [](RuntimeObject*) { sSeen.push_back("destroyed"); };
  RuntimeUnlockArray(sWatched);
  EXPECT_EQ(sSeen, (Texts{"destroyed", "destroyed", "freed"}));
}

TEST_F(ArrayRuntime, SplitAndJoinAgree) {
  struct { char const* text; char const* delimiter; Texts fields; } const cases[] = {
      {"a b  c", " ", {"a", "b", "", "c"}},
      {"", ",", {}},
      {",x,", ",", {"", "x", ""}},
      {"oneXtwoxthree", "x", {"one", "two", "three"}},
      {"h\xC3\xA9!", "", {"h", "\xC3\xA9", "!"}},
      {"no delimiter", "--", {"no delimiter"}},
  };
  for (auto const& c : cases) {
    stringStorage* text = Text(c.text);
    stringStorage* delimiter = Text(c.delimiter);
    RuntimeArray* fields = StringSplit(text, delimiter);
    EXPECT_EQ(TextsOf(fields), c.fields) << c.text;
    stringStorage* joined = StringJoin(fields, delimiter);
    EXPECT_EQ(string(joined) == string(text), true) << c.text;
    for (stringStorage* s : {text, delimiter, joined}) RuntimeUnlockString(s);
    RuntimeUnlockArray(fields);
  }
}

}  // namespace
