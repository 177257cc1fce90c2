#include "runtime/RuntimeObjectFoundation.h"

#include <cstring>

#include "foundation/SimpleVector.h"
#include "foundation/String.h"
#include "runtime/RunAbort.h"
#include "runtime/RunState.h"

// Every vtable that RuntimeNewVtable hands out stands behind one of these,
// so that the end of the run finds them all without asking the classes.
struct RuntimeVtableBlock {
  RuntimeVtableBlock* mNext;
  uint32_t mEntries;
  RuntimeMethodEntry* Entries() { return reinterpret_cast<RuntimeMethodEntry*>(this + 1); }
};
static_assert(sizeof(RuntimeVtableBlock) == 8);

namespace {

RuntimeObject* sActiveObjectList = nullptr;
long sCurrentObjectCount = 0;
RuntimeObjectProc sObjectDestructionMonitor = nullptr;

// Deferred destruction: while one object's memory is being given back, an
// object that its finalizers release only has its destructors run, and
// waits here; the outermost destruction frees them one after the other, so
// a long chain of objects costs no stack. Entries below the floor belong to
// a destruction of an outer run, which this run's loop leaves alone.
bool sDestroyerBusy = false;
SimpleVector<RuntimeObject*> sCondemned;
unsigned long sCondemnedFloor = 0;

// A class record larger than this is refused as if memory had run out: its
// size would not fit the allocator's int.
constexpr uint64_t kLargestClassRecord = 0x7FFFFFFF;

void AddObjectToList(RuntimeObject* object) {
  object->mPrevious = nullptr;
  object->mNext = sActiveObjectList;
  if (sActiveObjectList) sActiveObjectList->mPrevious = object;
  sActiveObjectList = object;
}

void RemoveObjectFromList(RuntimeObject* object) {
  if (object->mPrevious) object->mPrevious->mNext = object->mNext;
  if (object->mNext) object->mNext->mPrevious = object->mPrevious;
  if (sActiveObjectList == object) sActiveObjectList = object->mNext;
  object->mPrevious = object->mNext = nullptr;
}

uint32_t Raised(uint32_t count, uint32_t parentCount) { return count < parentCount ? parentCount : count; }

template <class Entry>
void CopyTable(Entry* to, Entry const* from, uint32_t count) {
  if (count && from) memcpy(to, from, count * sizeof(Entry));
}

// The copied names now hold a reference of the new class as well.
void LockTableNames(RuntimeMethodEntry* table, uint32_t count) {
  for (uint32_t i = 0; table && i < count; ++i)
    if (table[i].mName) table[i].mName->AddReference();
}

void ReleaseTableNames(RuntimeMethodEntry* table, uint32_t count) {
  for (uint32_t i = 0; table && i < count; ++i) {
    stringStorage::RemoveReference(table[i].mName);
    table[i].mName = nullptr;
  }
}

void InheritTables(RuntimeClass* c, RuntimeClass const* parent) {
  CopyTable(c->Interfaces(), const_cast<RuntimeClass*>(parent)->Interfaces(), parent->mInterfaceCount);
  CopyTable(c->mMethods, parent->mMethods, parent->mMethodCount);
  CopyTable(c->mEvents, parent->mEvents, parent->mEventSlotCount);
  CopyTable(c->mReserved, parent->mReserved, parent->mReservedCount);
  CopyTable(c->mProperties, parent->mProperties, parent->mPropertyCount);
  LockTableNames(c->mMethods, parent->mMethodCount);
  LockTableNames(c->mEvents, parent->mEventSlotCount);
}

// Base classes first, so a subclass's initial values may rest on its parent's.
// Every New runs this, so the chain is walked once, without a call per
// class; a chain deeper than the buffer has its upper part run first by
// recursion.
void RunInitializers(RuntimeClass* c, RuntimeObject* object) {
  constexpr int kPendingRoom = 32;
  RuntimeObjectProc pending[kPendingRoom];
  int count = 0;
  for (; c && count < kPendingRoom; c = c->mParent)
    if (c->mInitializer) pending[count++] = c->mInitializer;
  if (c) RunInitializers(c, object);
  while (count > 0) pending[--count](object);
}

inline __attribute__((always_inline)) void FreeObjectMemory(RuntimeObject* object) {
  RuntimeClass* c = object->mClass;
  if (object->mEvents && object->mEvents != c->mEvents)
    OSfreelen(reinterpret_cast<char*>(object->mEvents), (int)(c->mEventSlotCount * sizeof(RuntimeMethodEntry)));
  RemoveObjectFromList(object);
  OSfreelen(reinterpret_cast<char*>(object), (int)RuntimeObjectAllocationSize(c));
  --sCurrentObjectCount;
}

inline __attribute__((always_inline)) void Destroy1Instance(RuntimeObject* object) {
  for (RuntimeClass* c = object->mClass; c; c = c->mParent)
    if (c->mFinalizer) c->mFinalizer(object);
  if (sObjectDestructionMonitor) sObjectDestructionMonitor(object);
  FreeObjectMemory(object);
}

// Script code runs in here (destructors, finalizers) and may end the run
// by a jump past these frames: nothing here may need cleaning up.
__attribute__((noinline)) void DestroyInstance(RuntimeObject* object) {
  for (RuntimeClass* c = object->mClass; c; c = c->mParent)
    if (c->mDestructor) c->mDestructor(object);
  if (sDestroyerBusy) {
    sCondemned.push_back(object);
    return;
  }
  sDestroyerBusy = true;
  Destroy1Instance(object);
  while (sCondemned.size() > sCondemnedFloor) Destroy1Instance(sCondemned.pop_back());
  sDestroyerBusy = false;
}

bool ImplementsInterface(RuntimeClass* c, RuntimeClass* interface, RuntimeMethodEntry** vtable) {
  RuntimeInterfaceEntry* entries = c->Interfaces();
  for (uint32_t i = 0; i < c->mInterfaceCount; ++i)
    if (entries[i].mInterface == interface) {
      if (vtable) *vtable = entries[i].mVtable;
      return true;
    }
  return false;
}

}  // namespace

// ---------------------------------------------------------------------------
// Classes and vtables

RuntimeClass* RuntimeNewClass(RuntimeClass* parent, uint32_t methods, uint32_t interfaces,
                              uint32_t eventSlots, uint32_t reservedEntries, uint32_t properties) {
  if (parent) {
    methods = Raised(methods, parent->mMethodCount);
    interfaces = Raised(interfaces, parent->mInterfaceCount);
    eventSlots = Raised(eventSlots, parent->mEventSlotCount);
    reservedEntries = Raised(reservedEntries, parent->mReservedCount);
    properties = Raised(properties, parent->mPropertyCount);
  }
  uint64_t size = kRuntimeClassHeaderSize + (uint64_t)interfaces * sizeof(RuntimeInterfaceEntry) +
                  ((uint64_t)methods + eventSlots + reservedEntries) * sizeof(RuntimeMethodEntry) +
                  (uint64_t)properties * sizeof(RuntimePropertyEntry);
  char* memory = size <= kLargestClassRecord ? OSalloclen((int)size, 0) : nullptr;
  if (!memory) {
    RaiseNilObjectException();
    return nullptr;
  }
  memset(memory, 0, (size_t)size);
  auto* c = reinterpret_cast<RuntimeClass*>(memory);
  c->mMethodCount = methods;
  c->mInterfaceCount = interfaces;
  c->mEventSlotCount = eventSlots;
  c->mReservedCount = reservedEntries;
  c->mPropertyCount = properties;
  char* table = memory + kRuntimeClassHeaderSize + interfaces * sizeof(RuntimeInterfaceEntry);
  c->mMethods = reinterpret_cast<RuntimeMethodEntry*>(table);
  table += methods * sizeof(RuntimeMethodEntry);
  c->mEvents = reinterpret_cast<RuntimeMethodEntry*>(table);
  table += eventSlots * sizeof(RuntimeMethodEntry);
  c->mReserved = reinterpret_cast<RuntimeReservedEntry*>(table);
  table += reservedEntries * sizeof(RuntimeReservedEntry);
  c->mProperties = reinterpret_cast<RuntimePropertyEntry*>(table);
  if (parent) InheritTables(c, parent);
  c->mParent = parent;
  c->mNext = mClassList;
  mClassList = c;
  return c;
}

RuntimeMethodEntry* RuntimeNewVtable(uint32_t entries) {
  uint64_t size = sizeof(RuntimeVtableBlock) + (uint64_t)entries * sizeof(RuntimeMethodEntry);
  char* memory = size <= kLargestClassRecord ? OSalloclen((int)size, 0) : nullptr;
  if (!memory) {
    RaiseNilObjectException();
    return nullptr;
  }
  memset(memory, 0, (size_t)size);
  auto* block = reinterpret_cast<RuntimeVtableBlock*>(memory);
  block->mEntries = entries;
  block->mNext = GetRunVtables();
  SetRunVtables(block);
  return block->Entries();
}

void ReleaseClassTableNames(RuntimeClass* c) {
  ReleaseTableNames(c->mMethods, c->mMethodCount);
  ReleaseTableNames(c->mEvents, c->mEventSlotCount);
}

void FreeRunVtables() {
  while (RuntimeVtableBlock* block = GetRunVtables()) {
    SetRunVtables(block->mNext);
    ReleaseTableNames(block->Entries(), block->mEntries);
    OSfreelen(reinterpret_cast<char*>(block),
              (int)(sizeof(RuntimeVtableBlock) + block->mEntries * sizeof(RuntimeMethodEntry)));
  }
}

// ---------------------------------------------------------------------------
// Objects

RuntimeObject* RuntimeNewObject(RuntimeClass* c) {
  if (!c) {
    RaiseNilObjectException();
    return nullptr;
  }
  uint32_t size = RuntimeObjectAllocationSize(c);
  auto* object = reinterpret_cast<RuntimeObject*>(OSalloclen((int)size, 0));
  if (!object) {
    RaiseNilObjectException();
    return nullptr;
  }
  memset(object, 0, size);
  ++sCurrentObjectCount;
  AddObjectToList(object);
  object->mVtable = c->mMethods;
  object->mClass = c;
  object->mEvents = c->mEvents;
  object->mLockCount = 1;
  RunInitializers(c, object);
  return object;
}

// Generated code locks and unlocks on every call and assignment: these stay
// leaf functions, and only the last unlock calls out.
void RuntimeLockObject(RuntimeObject* object) {
  if (object && object->mLockCount > 0) ++object->mLockCount;
}

void RuntimeUnlockObject(RuntimeObject* object) {
  if (object && object->mLockCount > 0 && --object->mLockCount == 0) DestroyInstance(object);
}

void RuntimeLockUnlockObjects(RuntimeObject* newOne, RuntimeObject* oldOne) {
  if (newOne == oldOne) return;
  RuntimeLockObject(newOne);
  RuntimeUnlockObject(oldOne);
}

int RuntimeObjectIsa(RuntimeObject* object, RuntimeClass* c) {
  if (!object) return 0;
  if (!c) return 1;
  // An inherited interface is in the object's own table, copied there.
  if (c->mIsInterface) return ImplementsInterface(object->mClass, c, nullptr);
  for (RuntimeClass* k = object->mClass; k; k = k->mParent)
    if (k == c) return 1;
  return 0;
}

RuntimeObject* RuntimeCheckCast(RuntimeObject* object, RuntimeClass* c) {
  if (!object) return nullptr;
  if (!RuntimeObjectIsa(object, c)) {
    RaiseIllegalCastException();
    return nullptr;
  }
  RuntimeLockObject(object);
  return object;
}

RuntimeMethodEntry* RuntimeLookupInterfaceVtable(RuntimeObject* object, RuntimeClass* interface) {
  if (!object || !interface) {
    RaiseNilObjectException();
    return nullptr;
  }
  RuntimeMethodEntry* vtable = nullptr;
  if (!interface->mIsInterface || !ImplementsInterface(object->mClass, interface, &vtable)) {
    RaiseIllegalCastException();
    return nullptr;
  }
  return vtable;
}

RuntimeClass* RuntimeClassOf(RuntimeObject* object) { return object ? object->mClass : nullptr; }

void SetObjectDestructionMonitor(RuntimeObjectProc monitor) { sObjectDestructionMonitor = monitor; }
long CountAllocatedObjects() { return sCurrentObjectCount; }
RuntimeClass* GetClassListHead() { return mClassList; }
RuntimeObject* GetActiveObjectListHead() { return sActiveObjectList; }

// ---------------------------------------------------------------------------
// A run's objects

void OpenObjectRun(RuntimeObjectRun* run) {
  memset(&run->mBoundary, 0, sizeof(run->mBoundary));
  AddObjectToList(&run->mBoundary);
  run->mOuterDestroyerBusy = sDestroyerBusy;
  run->mOuterCondemnedFloor = sCondemnedFloor;
  sDestroyerBusy = false;
  sCondemnedFloor = sCondemned.size();
}

void CloseObjectRun(RuntimeObjectRun* run, bool abandoned) {
  // The run's objects stand in front of its boundary, newest first.
  while (sActiveObjectList && sActiveObjectList != &run->mBoundary) {
    RuntimeObject* object = sActiveObjectList;
    if (abandoned) {
      FreeObjectMemory(object);
    } else {
      RemoveObjectFromList(object);
    }
  }
  RemoveObjectFromList(&run->mBoundary);
  // An abandoned destruction leaves objects it had not reached; they were
  // on the list and are gone now.
  while (sCondemned.size() > sCondemnedFloor) sCondemned.pop_back();
  sDestroyerBusy = run->mOuterDestroyerBusy;
  sCondemnedFloor = run->mOuterCondemnedFloor;
}
