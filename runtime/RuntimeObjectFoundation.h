// Script classes in memory. Generated class-retriever code fills these
// records and generated method calls read them, so every offset is pinned.
//
// Invariants:
// - A RuntimeClass is one allocation: the 68-byte header, then its tables in
//   this order: interface entries (in line at offset 68), methods, events,
//   reserved entries, properties. The counts in the header are the room each
//   table has, so the size of the allocation follows from the header alone.
// - The allocation comes from OSalloclen(RuntimeClassAllocationSize(...))
//   and goes back through FreeRuntimeClass.
// - Every class of the run in progress is on mClassList, linked by mNext,
//   and holds one reference on its name.
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

// Offset of an object's lock count in its header.
constexpr int32_t kObjectLockCountOffset = 12;
