// What scripts cannot show of the object run-time: record layout and sizes,
// the order of destruction, the deferred destruction of long chains, the
// references the class tables hold, and the end of a run by a raise.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <string>
#include <vector>

#include "foundation/Utility.h"
#include "runtime/KVScriptIntrinsics.h"
#include "runtime/RunAbort.h"
#include "runtime/RunState.h"
#include "runtime/RuntimeObjectFoundation.h"
#include "runtime/RuntimeStringFoundation.h"
#include "tests/runtime/SmallStack.h"

namespace {

std::vector<std::string> sLog;

class Listener : public KvScriptCorrespondent {
public:
  void ScriptError(RuntimeErrorCode code, unsigned long) override {
    char const* name = UnhandledExceptionClassName();
    reports.push_back(std::to_string(code) + " " + (name ? name : "-"));
  }
  std::vector<std::string> reports;
};

class ObjectRuntime : public ::testing::Test {
protected:
  void SetUp() override {
    InitKvScriptRuntime();
    SetRuntimeCorrespondent(&listener);
    sLog.clear();
    objectsBefore = CountAllocatedObjects();
  }
  void TearDown() override {
    EXPECT_EQ(CountAllocatedObjects(), objectsBefore);
    SetObjectDestructionMonitor(nullptr);
    ExitKvScriptRuntime();
    InitKvScriptRuntime();
  }
  Listener listener;
  long objectsBefore = 0;
};

stringStorage* Name(char const* text) { return string(text).ExtractStringStorage(); }

// A name stored the way generated retriever code must: a counted store.
void StoreName(RuntimeMethodEntry* table, int slot, stringStorage* name) {
  RuntimeLockUnlockStrings(name, table[slot].mName);
  table[slot].mName = name;
}

RuntimeClass* Class(RuntimeClass* parent, uint32_t size, RuntimeObjectProc destructor = nullptr,
                    RuntimeObjectProc finalizer = nullptr) {
  RuntimeClass* c = RuntimeNewClass(parent, 0, 0, 0, 0, 0);
  c->mInstanceSize = size;
  c->mDestructor = destructor;
  c->mFinalizer = finalizer;
  return c;
}

RuntimeObject*& Field(RuntimeObject* o) { return *reinterpret_cast<RuntimeObject**>(o + 1); }
void ReleaseField(RuntimeObject* o) { RuntimeUnlockObject(Field(o)); }

TEST_F(ObjectRuntime, RecordLayoutAndAllocationSizes) {
  long before = gTotalAllocLen;
  RuntimeClass* c = RuntimeNewClass(nullptr, 2, 1, 3, 1, 1);
  EXPECT_EQ(gTotalAllocLen - before, 68 + 2 * 8 + 12 + 3 * 8 + 8 + 16);
  char* base = reinterpret_cast<char*>(c);
  EXPECT_EQ(reinterpret_cast<char*>(c->mMethods) - base, 68 + 12);
  EXPECT_EQ(reinterpret_cast<char*>(c->mEvents) - base, 68 + 12 + 16);
  EXPECT_EQ(reinterpret_cast<char*>(c->mReserved) - base, 68 + 12 + 16 + 24);
  EXPECT_EQ(reinterpret_cast<char*>(c->mProperties) - base, 68 + 12 + 16 + 24 + 8);
  EXPECT_EQ(mClassList, c);
  for (int size : {0, 24, 40}) {  // an interface's record says 0: the header still fits
    c->mInstanceSize = (uint32_t)size;
    long start = gTotalAllocLen;
    RuntimeObject* o = RuntimeNewObject(c);
    EXPECT_EQ(gTotalAllocLen - start, size < 24 ? 24 : size);
    EXPECT_EQ(o->mVtable, c->mMethods);
    EXPECT_EQ(o->mEvents, c->mEvents);
    EXPECT_EQ(o->mLockCount, 1);
    EXPECT_EQ(GetActiveObjectListHead(), o);
    RuntimeUnlockObject(o);
    EXPECT_EQ(gTotalAllocLen, start);
  }
  char* junk = OSalloclen(8 + 3 * 8, 0);  // a used block that the vtable gets again
  memset(junk, 0x5A, 8 + 3 * 8);
  OSfreelen(junk, 8 + 3 * 8);
  RuntimeMethodEntry* vtable = RuntimeNewVtable(3);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(vtable[i].mFunction == nullptr && vtable[i].mName == nullptr);
}

// Smaller counts than the parent's are raised to them; the parent's tables
// are copied in and the copied names hold a reference of the subclass.
TEST_F(ObjectRuntime, SubclassInheritsTablesAndCountsOfItsParent) {
  RuntimeClass* face = RuntimeNewClass(nullptr, 1, 0, 0, 0, 0);
  face->mIsInterface = 1;
  RuntimeClass* parent = RuntimeNewClass(nullptr, 3, 1, 2, 0, 2);
  stringStorage* method = Name("M");
  StoreName(parent->mMethods, 2, method);
  StoreName(parent->mEvents, 1, method);
  parent->mProperties[1].mFieldOffset = 28;
  parent->Interfaces()[0] = {face, 0, RuntimeNewVtable(1)};
  RuntimeClass* child = RuntimeNewClass(parent, 1, 0, 3, 0, 0);
  EXPECT_EQ(child->mMethodCount, 3u);
  EXPECT_EQ(child->mInterfaceCount, 1u);
  EXPECT_EQ(child->mEventSlotCount, 3u);
  EXPECT_EQ(child->mPropertyCount, 2u);
  EXPECT_EQ(child->mMethods[2].mName, method);
  EXPECT_EQ(child->mProperties[1].mFieldOffset, 28u);
  EXPECT_EQ(method->mRefCount, 5u);  // ours, and two slots of each class
  child->mInstanceSize = 24;
  RuntimeObject* o = RuntimeNewObject(child);
  EXPECT_EQ(RuntimeLookupInterfaceVtable(o, face), parent->Interfaces()[0].mVtable);
  struct { RuntimeObject* object; RuntimeClass* c; int isa; } const cases[] = {
      {nullptr, parent, 0}, {o, nullptr, 1}, {o, parent, 1}, {o, child, 1}, {o, face, 1},
  };
  for (auto const& c : cases) EXPECT_EQ(RuntimeObjectIsa(c.object, c.c), c.isa);
  RuntimeObject* p = RuntimeNewObject(parent);
  EXPECT_EQ(RuntimeObjectIsa(p, child), 0);
  for (RuntimeClass* target : {parent, (RuntimeClass*)nullptr}) {  // always a new reference
    EXPECT_EQ(RuntimeCheckCast(o, target), o);
    EXPECT_EQ(o->mLockCount, 2);
    RuntimeUnlockObject(o);
  }
  EXPECT_EQ(RuntimeCheckCast(nullptr, child), nullptr);
  RuntimeUnlockObject(o);
  RuntimeUnlockObject(p);
  ExitKvScriptRuntime();
  EXPECT_EQ(method->mRefCount, 1u);
  stringStorage::RemoveReference(method);
}

void LogDerived(RuntimeObject* o) {
  sLog.push_back("destroy D");
  RuntimeLockObject(o);  // at 0 the count stays 0, and nothing destroys twice
  EXPECT_EQ(o->mLockCount, 0);
  RuntimeUnlockObject(o);
}
void LogBase(RuntimeObject*) { sLog.push_back("destroy B"); }
void LogInner(RuntimeObject*) { sLog.push_back("destroy inner"); }
void LogFinalize(RuntimeObject* o) {
  sLog.push_back("finalize");
  ReleaseField(o);
}
void InitBase(RuntimeObject*) { sLog.push_back("init B"); }
void InitDerived(RuntimeObject*) { sLog.push_back("init D"); }
void LogFreed(RuntimeObject* o) { sLog.push_back("freed " + std::to_string(o->mClass->mInstanceSize)); }

TEST_F(ObjectRuntime, DestructorsFirstMostDerivedFirstAndNestedFreesWait) {
  RuntimeClass* base = Class(nullptr, 28, LogBase, LogFinalize);
  RuntimeClass* derived = Class(base, 32, LogDerived);
  RuntimeClass* inner = Class(nullptr, 24, LogInner);
  base->mInitializer = InitBase;
  derived->mInitializer = InitDerived;
  SetObjectDestructionMonitor(LogFreed);
  RuntimeObject* outer = RuntimeNewObject(derived);
  Field(outer) = RuntimeNewObject(inner);
  RuntimeLockUnlockObjects(outer, outer);
  EXPECT_EQ(outer->mLockCount, 1);
  RuntimeUnlockObject(outer);
  EXPECT_EQ(sLog, (std::vector<std::string>{"init B", "init D", "destroy D", "destroy B", "finalize", "destroy inner",
                                            "freed 32", "freed 24"}));
}

// A chain of objects, each releasing the next in its finalizer, goes with
// no growth of the stack: it runs on a thread with a small stack.
void* DestroyChain(void* arg) {
  RuntimeClass* c = static_cast<RuntimeClass*>(arg);
  RuntimeObject* head = RuntimeNewObject(c);
  RuntimeObject* last = head;
  for (int i = 1; i < 100000; ++i) last = Field(last) = RuntimeNewObject(c);
  RuntimeUnlockObject(head);
  return nullptr;
}

TEST_F(ObjectRuntime, LongChainIsDestroyedWithoutStackGrowth) {
  RuntimeClass* c = Class(nullptr, 28, nullptr, ReleaseField);
  ASSERT_TRUE(RunOnSmallStack(DestroyChain, c, 256 * 1024));
}

// A run builds a class, a subclass and an interface table the way retriever
// code does; its end gives back every counted byte and every reference.
TEST_F(ObjectRuntime, RunEndReleasesTableNamesAndVtablesExactly) {
  stringStorage* shared = Name("Shared");
  stringStorage* own = Name("Own");
  long before = gTotalAllocLen;
  RuntimeClass* face = RuntimeNewClass(nullptr, 1, 0, 0, 0, 0);
  RuntimeClass* parent = RuntimeNewClass(nullptr, 2, 1, 1, 0, 1);
  parent->mName = Name("Parent");
  StoreName(parent->mMethods, 0, shared);
  StoreName(parent->mMethods, 1, own);
  StoreName(parent->mEvents, 0, own);
  parent->mProperties[0].mName = own;  // property names take no reference
  RuntimeMethodEntry* vtable = RuntimeNewVtable(1);
  StoreName(vtable, 0, shared);
  parent->Interfaces()[0] = {face, 0, vtable};
  RuntimeClass* child = RuntimeNewClass(parent, 3, 1, 1, 0, 1);
  StoreName(child->mMethods, 0, shared);  // the inherited slot again, same record
  StoreName(child->mMethods, 1, shared);  // an override under another name
  StoreName(child->mMethods, 2, own);
  StoreName(RuntimeNewVtable(2), 1, own);  // its own table; slot 0 without a match
  EXPECT_EQ(shared->mRefCount, 5u);
  EXPECT_EQ(own->mRefCount, 6u);
  ExitKvScriptRuntime();
  EXPECT_EQ(gTotalAllocLen, before);
  EXPECT_EQ(shared->mRefCount, 1u);
  EXPECT_EQ(own->mRefCount, 1u);
  stringStorage::RemoveReference(shared);
  stringStorage::RemoveReference(own);
}

// The library's classes are kept by the run, never found by name.
TEST_F(ObjectRuntime, LibraryClassesAreTheRunsOwn) {
  RuntimeClass* impostor = Class(nullptr, 24);
  impostor->mName = Name("NilObjectException");
  RuntimeClass* nil = NilObjectExceptionLookup();
  EXPECT_NE(nil, impostor);
  EXPECT_EQ(NilObjectExceptionLookup(), nil);
  EXPECT_EQ(nil->mParent, RuntimeExceptionLookup());
  EXPECT_EQ(string(nil->mName), string("NilObjectException"));
}

RuntimeObject* sKept = nullptr;
bool sReachedEnd = false;

void CastBadly() {
  RuntimeClass* other = Class(nullptr, 24);
  sKept = RuntimeNewObject(Class(nullptr, 28));
  Field(sKept) = RuntimeNewObject(other);
  RuntimeCheckCast(sKept, other);
  sReachedEnd = true;
}
void UseNil() { RuntimeNewObject(nullptr); sReachedEnd = true; }
void RaiseNothing() { RaiseExceptionClass(nullptr); sReachedEnd = true; }
void RunInner() {
  EXPECT_FALSE(RunScriptCode(UseNil));
  sReachedEnd = true;
}
// A finalizer that ends the run in the middle of a destruction.
void FinalizeBadly(RuntimeObject*) { RaiseNilObjectException(); }
void DestroyBadly() {
  RuntimeObject* o = RuntimeNewObject(Class(nullptr, 24, nullptr, FinalizeBadly));
  RuntimeUnlockObject(o);
  sReachedEnd = true;
}

// A raise ends the run at once: the report names the class, the run's
// objects are freed, and a nested run returns to its own start.
TEST_F(ObjectRuntime, RaiseAbandonsTheRunAndFreesItsObjects) {
  struct { void (*start)(); bool finished; char const* report; } const cases[] = {
      {CastBadly, false, "2 IllegalCastException"},
      {UseNil, false, "2 NilObjectException"},
      {RaiseNothing, false, "10 -"},
      {RunInner, true, "2 NilObjectException"},
      {DestroyBadly, false, "2 NilObjectException"},
  };
  for (auto const& c : cases) {
    listener.reports.clear();
    sReachedEnd = false;
    EXPECT_EQ(RunScriptCode(c.start), c.finished) << c.report;
    EXPECT_EQ(sReachedEnd, c.finished) << c.report;
    EXPECT_EQ(listener.reports, std::vector<std::string>{c.report});
    EXPECT_EQ(CountAllocatedObjects(), objectsBefore) << c.report;
    EXPECT_EQ(GetActiveObjectListHead(), nullptr);
    EXPECT_EQ(GetRunAbortPoint(), nullptr);
  }
  // The destruction that was cut short left nothing behind.
  RuntimeObject* o = RuntimeNewObject(Class(nullptr, 24, LogInner));
  RuntimeUnlockObject(o);
  EXPECT_EQ(sLog, std::vector<std::string>{"destroy inner"});
  // Outside a run a raise returns.
  listener.reports.clear();
  RaiseIllegalCastException();
  EXPECT_EQ(listener.reports, std::vector<std::string>{"2 IllegalCastException"});
}

}  // namespace
