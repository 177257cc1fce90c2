// Script classes and objects in memory. Generated class-retriever code fills
// the class records and generated method calls read the object header, so
// every offset is pinned.
//
// Invariants:
// - A RuntimeClass is one allocation: the 68-byte header, then its tables in
//   this order: interface entries (in line at offset 68), methods, events,
//   reserved entries, properties. The counts in the header are the room each
//   table has, so the size of the allocation follows from the header alone.
//   No count is below the parent's: the parent's tables are copied in.
// - The allocation comes from OSalloclen(RuntimeClassAllocationSize(...))
//   and goes back through FreeRuntimeClass.
// - Every class of the run in progress is on mClassList, linked by mNext.
// - Name references. A class holds one reference on its name, and one on
//   every non-null name in its method table and its event table; every
//   non-null name in an interface vtable holds one reference too. So a name
//   stored into one of these slots is stored as a counted assignment: lock
//   the new name, release the one the slot held (RuntimeLockUnlockStrings,
//   which leaves the count alone when both are one record). RuntimeNewClass
//   takes a reference for each name it copies from the parent, so that a
//   subclass's retriever may store over an inherited slot in that way.
//   Property names hold no reference. ExitKvScriptRuntime releases exactly
//   these references.
// - Interface vtables come from RuntimeNewVtable, cleared, and belong to the
//   run, not to a class: a copied interface entry may share its parent's
//   table. ExitKvScriptRuntime frees each one once.
// - Every live object is on the active list, and has a lock count of at
//   least 1 until its last unlock; from then until its memory goes the count
//   is 0 and stays 0, whatever locks and unlocks its destructors make. An
//   object that a destructor stores away (resurrection) is not supported:
//   what holds it holds freed memory afterwards.
// - An object's memory is OSalloclen(RuntimeObjectAllocationSize(class)).
//   A private event table, if an object gets one, is OSalloclen of its
//   class's event slot count times 8.
// - The entries below that raise (NilObjectException when memory runs out
//   or an argument is nil, IllegalCastException) do so through the raise
//   path (runtime/RunAbort.h) and then return null or 0: inside a run their
//   caller returns into a handler, or the run has ended.
// - While a run is on the stack (RunScriptCode), a boundary record stands
//   on the active list behind the objects the run made: a header with a
//   null class and a lock count of 0, never counted. What walks the list
//   skips records without a class.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "foundation/Utility.h"

struct stringStorage;
struct RuntimeObject;
struct RuntimeClass;

typedef void (*RuntimeObjectProc)(RuntimeObject*);

// A method table or interface vtable entry; also the event table's shape,
// with the event's base name in place of the mangled method name.
struct RuntimeMethodEntry {
  void* mFunction;
  stringStorage* mName;
};
static_assert(sizeof(RuntimeMethodEntry) == 8);

struct RuntimeReservedEntry {
  uint32_t mWords[2];
};
static_assert(sizeof(RuntimeReservedEntry) == 8);

struct RuntimePropertyEntry {
  stringStorage* mName;
  // Offset of the field in the object, header included.
  uint32_t mFieldOffset;
  uint32_t mOne1;
  uint32_t mOne2;
};
static_assert(sizeof(RuntimePropertyEntry) == 16);

struct RuntimeInterfaceEntry {
  RuntimeClass* mInterface;
  uint32_t mUnused;
  RuntimeMethodEntry* mVtable;
};
static_assert(sizeof(RuntimeInterfaceEntry) == 12);

struct RuntimeClass {
  RuntimeClass* mParent;
  stringStorage* mName;
  RuntimeClass* mNext;
  uint32_t mInstanceSize;
  uint32_t mIsInterface;
  RuntimeObjectProc mInitializer;
  RuntimeObjectProc mDestructor;
  RuntimeObjectProc mFinalizer;
  uint32_t mMethodCount;
  RuntimeMethodEntry* mMethods;
  uint32_t mEventSlotCount;
  RuntimeMethodEntry* mEvents;
  uint32_t mReservedCount;
  RuntimeReservedEntry* mReserved;
  uint32_t mPropertyCount;
  RuntimePropertyEntry* mProperties;
  uint32_t mInterfaceCount;
  // The interface entries follow the header in line.
  RuntimeInterfaceEntry* Interfaces() {
    return reinterpret_cast<RuntimeInterfaceEntry*>(reinterpret_cast<char*>(this) + sizeof(*this));
  }
};

static_assert(std::is_standard_layout_v<RuntimeClass>);
static_assert(offsetof(RuntimeClass, mParent) == 0);
static_assert(offsetof(RuntimeClass, mName) == 4);
static_assert(offsetof(RuntimeClass, mNext) == 8);
static_assert(offsetof(RuntimeClass, mInstanceSize) == 12);
static_assert(offsetof(RuntimeClass, mIsInterface) == 16);
static_assert(offsetof(RuntimeClass, mInitializer) == 20);
static_assert(offsetof(RuntimeClass, mDestructor) == 24);
static_assert(offsetof(RuntimeClass, mFinalizer) == 28);
static_assert(offsetof(RuntimeClass, mMethodCount) == 32);
static_assert(offsetof(RuntimeClass, mMethods) == 36);
static_assert(offsetof(RuntimeClass, mEventSlotCount) == 40);
static_assert(offsetof(RuntimeClass, mEvents) == 44);
static_assert(offsetof(RuntimeClass, mReservedCount) == 48);
static_assert(offsetof(RuntimeClass, mReserved) == 52);
static_assert(offsetof(RuntimeClass, mPropertyCount) == 56);
static_assert(offsetof(RuntimeClass, mProperties) == 60);
static_assert(offsetof(RuntimeClass, mInterfaceCount) == 64);
static_assert(sizeof(RuntimeClass) == 68);

// Offsets that generated code uses to reach a class record's fields.
constexpr int32_t kClassParentOffset = offsetof(RuntimeClass, mParent);
constexpr int32_t kClassNameOffset = offsetof(RuntimeClass, mName);
constexpr int32_t kClassNextOffset = offsetof(RuntimeClass, mNext);
constexpr int32_t kClassInstanceSizeOffset = offsetof(RuntimeClass, mInstanceSize);
constexpr int32_t kClassIsInterfaceOffset = offsetof(RuntimeClass, mIsInterface);
constexpr int32_t kClassInitializerOffset = offsetof(RuntimeClass, mInitializer);
constexpr int32_t kClassDestructorOffset = offsetof(RuntimeClass, mDestructor);
constexpr int32_t kClassFinalizerOffset = offsetof(RuntimeClass, mFinalizer);
constexpr int32_t kClassMethodCountOffset = offsetof(RuntimeClass, mMethodCount);
constexpr int32_t kClassMethodsOffset = offsetof(RuntimeClass, mMethods);
constexpr int32_t kClassEventSlotCountOffset = offsetof(RuntimeClass, mEventSlotCount);
constexpr int32_t kClassEventsOffset = offsetof(RuntimeClass, mEvents);
constexpr int32_t kClassReservedCountOffset = offsetof(RuntimeClass, mReservedCount);
constexpr int32_t kClassReservedOffset = offsetof(RuntimeClass, mReserved);
constexpr int32_t kClassPropertyCountOffset = offsetof(RuntimeClass, mPropertyCount);
constexpr int32_t kClassPropertiesOffset = offsetof(RuntimeClass, mProperties);
constexpr int32_t kClassInterfaceCountOffset = offsetof(RuntimeClass, mInterfaceCount);
constexpr int32_t kClassInterfacesOffset = sizeof(RuntimeClass);
constexpr int32_t kRuntimeClassHeaderSize = sizeof(RuntimeClass);

// Bytes of a class record with room for the given table sizes.
constexpr uint32_t RuntimeClassAllocationSize(uint32_t methods, uint32_t interfaces,
                                              uint32_t eventSlots, uint32_t reservedEntries,
                                              uint32_t properties) {
  return kRuntimeClassHeaderSize + methods * sizeof(RuntimeMethodEntry) +
         interfaces * sizeof(RuntimeInterfaceEntry) + eventSlots * sizeof(RuntimeMethodEntry) +
         reservedEntries * sizeof(RuntimeReservedEntry) + properties * sizeof(RuntimePropertyEntry);
}

inline uint32_t RuntimeClassAllocationSize(RuntimeClass const* c) {
  return RuntimeClassAllocationSize(c->mMethodCount, c->mInterfaceCount, c->mEventSlotCount,
                                    c->mReservedCount, c->mPropertyCount);
}

// Gives a class record's memory back; the name is the caller's business.
inline void FreeRuntimeClass(RuntimeClass* c) {
  OSfreelen(reinterpret_cast<char*>(c), (int)RuntimeClassAllocationSize(c));
}

// Head of the class list of the run in progress; cleared when a run starts.
extern RuntimeClass* mClassList;

// ---------------------------------------------------------------------------
// Objects

// The header of every script object; the fields of its class follow it.
struct RuntimeObject {
  // Copied from the class, so a method call needs one load less.
  RuntimeMethodEntry* mVtable;
  RuntimeClass* mClass;
  // The class's event table, or a private copy of it.
  RuntimeMethodEntry* mEvents;
  int32_t mLockCount;
  // The active list, newest first.
  RuntimeObject* mPrevious;
  RuntimeObject* mNext;
};

static_assert(std::is_standard_layout_v<RuntimeObject>);
static_assert(offsetof(RuntimeObject, mVtable) == 0);
static_assert(offsetof(RuntimeObject, mClass) == 4);
static_assert(offsetof(RuntimeObject, mEvents) == 8);
static_assert(offsetof(RuntimeObject, mLockCount) == 12);
static_assert(offsetof(RuntimeObject, mPrevious) == 16);
static_assert(offsetof(RuntimeObject, mNext) == 20);
static_assert(sizeof(RuntimeObject) == 24);

// Offsets that generated code uses to reach an object's header.
constexpr int32_t kObjectVtableOffset = offsetof(RuntimeObject, mVtable);
constexpr int32_t kObjectClassOffset = offsetof(RuntimeObject, mClass);
constexpr int32_t kObjectEventTableOffset = offsetof(RuntimeObject, mEvents);
constexpr int32_t kObjectLockCountOffset = offsetof(RuntimeObject, mLockCount);
constexpr int32_t kObjectPreviousOffset = offsetof(RuntimeObject, mPrevious);
constexpr int32_t kObjectNextOffset = offsetof(RuntimeObject, mNext);
// The fields of a class start here; a class's instance size counts it.
constexpr int32_t kRuntimeObjectHeaderSize = sizeof(RuntimeObject);

// Bytes of an object of `c`: its instance size, but never less than the
// header, since an interface's record says 0.
inline uint32_t RuntimeObjectAllocationSize(RuntimeClass const* c) {
  return c->mInstanceSize > (uint32_t)kRuntimeObjectHeaderSize ? c->mInstanceSize
                                                               : (uint32_t)kRuntimeObjectHeaderSize;
}

// What one run's objects keep while the run is on the stack: the boundary
// on the active list, and the outer run's deferred destruction, set aside.
struct RuntimeObjectRun {
  RuntimeObject mBoundary;
  bool mOuterDestroyerBusy;
  unsigned long mOuterCondemnedFloor;
};

extern "C" {
// A new class on the run's list with room for the given tables, each count
// raised to the parent's, the parent's tables copied in and everything else
// 0. Raises when memory runs out.
RuntimeClass* RuntimeNewClass(RuntimeClass* parent, uint32_t methods, uint32_t interfaces,
                              uint32_t eventSlots, uint32_t reservedEntries, uint32_t properties);
// A cleared table of `entries` method entries, owned by the run.
RuntimeMethodEntry* RuntimeNewVtable(uint32_t entries);
// A new object of `c` holding one lock, its initializers run, root class
// first. Raises for a null class or when memory runs out.
RuntimeObject* RuntimeNewObject(RuntimeClass* c);
void RuntimeLockObject(RuntimeObject* object);
// The last unlock destroys the object: destructors, then finalizers, most
// derived class first.
void RuntimeUnlockObject(RuntimeObject* object);
// An object assignment: locks the new value, unlocks the old, unless they are one object.
void RuntimeLockUnlockObjects(RuntimeObject* newOne, RuntimeObject* oldOne);
// 1 if `object` is of `c`, a subclass of it, or implements it; a null
// object is of no class, and every object is of the null class.
int RuntimeObjectIsa(RuntimeObject* object, RuntimeClass* c);
// The object with one more lock when it is of `c` (or `c` is null); null
// for null; raises IllegalCastException otherwise.
RuntimeObject* RuntimeCheckCast(RuntimeObject* object, RuntimeClass* c);
// The object's vtable for `interface`. Raises NilObjectException when
// either is null, IllegalCastException when `interface` is not one or the
// object's class does not implement it.
RuntimeMethodEntry* RuntimeLookupInterfaceVtable(RuntimeObject* object, RuntimeClass* interface);
}

// Null for null.
RuntimeClass* RuntimeClassOf(RuntimeObject* object);
// Called for each object just before its memory goes; null for none.
void SetObjectDestructionMonitor(RuntimeObjectProc monitor);
// Objects made and not yet freed, in all runs.
long CountAllocatedObjects();
RuntimeClass* GetClassListHead();
RuntimeObject* GetActiveObjectListHead();

// A run's hold on the objects: OpenObjectRun puts the boundary at the head
// of the active list and starts a destruction of its own; CloseObjectRun
// takes it away and gives the outer run's back. An abandoned run's objects
// are freed, memory only: no script code runs, and what their fields hold
// stays lost. A finished run's objects that are still alive are taken off
// the list, since their classes go with the run.
void OpenObjectRun(RuntimeObjectRun* run);
void CloseObjectRun(RuntimeObjectRun* run, bool abandoned);

// The end of a run's classes: releases the names the class holds in its
// tables (not its own name) and frees the interface vtables the run made.
void ReleaseClassTableNames(RuntimeClass* c);
void FreeRunVtables();
