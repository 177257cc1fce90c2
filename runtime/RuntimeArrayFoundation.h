// Script arrays in memory. Generated code reads the record's method table
// and bounds and calls through the table, so every offset is pinned.
//
// Invariants:
// - A RuntimeArray is one allocation of RuntimeArraySize(dimensions) bytes;
//   its element block is a second allocation of mAllocated bytes (null when
//   the array has no room), first index varying fastest.
// - The lock count is 1 after creation; the last unlock releases the
//   counted elements (strings, objects), the block and the record.
// - Every upper bound is at least -1; the element count, computed in 64
//   bits, fits the block: count * element size <= mAllocated <= INT32_MAX.
// - Element kinds: 0 Integer (and every 4-byte value type: Boolean,
//   Color), 1 Single, 2 Double, 3 String (counted), 4 Object (counted).
// - The entries that raise (NilObjectException, OutOfBoundsException,
//   OutOfMemoryException) do so through the raise path and then return
//   their failure value; a failed change leaves the array as it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

struct RuntimeArray;
struct RuntimeClass;

// The method table: fourteen words, chosen at creation by element kind and
// by whether the array has one dimension. A null word is an operation the
// kind does not have (several dimensions: insert, remove, sort, index of;
// objects: sort). The one-dimension accessors take (array, index) and
// (array, value, index); the others take one int per dimension after those.
struct RuntimeArrayMethods {
  void* mGet;            // checked get
  void* mSet;            // checked set
  void* mGetFast;        // unchecked get
  void* mSetFast;        // unchecked set
  void* mRedim;          // (array, upper bound per dimension)
  void* mInsert;         // (array, int index, value)
  void* mRemove;         // (array, int index)
  void* mSort;           // (array)
  void* mIndexOf;        // (array, value, int start) -> int
  void* mShuffle;        // (array)
  void* mUbound;         // (array, int dimension) -> int
  void* mElementLock;    // (element), or null
  void* mElementUnlock;  // (element), or null
  void* mDestructor;     // (array)
};
static_assert(sizeof(RuntimeArrayMethods) == 14 * 4);

// Byte offsets of the table's slots, as generated code loads them.
constexpr int32_t kArrayGetSlot = offsetof(RuntimeArrayMethods, mGet);
constexpr int32_t kArraySetSlot = offsetof(RuntimeArrayMethods, mSet);
constexpr int32_t kArrayGetFastSlot = offsetof(RuntimeArrayMethods, mGetFast);
constexpr int32_t kArraySetFastSlot = offsetof(RuntimeArrayMethods, mSetFast);
constexpr int32_t kArrayRedimSlot = offsetof(RuntimeArrayMethods, mRedim);
constexpr int32_t kArrayInsertSlot = offsetof(RuntimeArrayMethods, mInsert);
constexpr int32_t kArrayRemoveSlot = offsetof(RuntimeArrayMethods, mRemove);
constexpr int32_t kArraySortSlot = offsetof(RuntimeArrayMethods, mSort);
constexpr int32_t kArrayIndexOfSlot = offsetof(RuntimeArrayMethods, mIndexOf);
constexpr int32_t kArrayShuffleSlot = offsetof(RuntimeArrayMethods, mShuffle);
constexpr int32_t kArrayUboundSlot = offsetof(RuntimeArrayMethods, mUbound);
constexpr int32_t kArrayElementLockSlot = offsetof(RuntimeArrayMethods, mElementLock);
constexpr int32_t kArrayElementUnlockSlot = offsetof(RuntimeArrayMethods, mElementUnlock);
constexpr int32_t kArrayDestructorSlot = offsetof(RuntimeArrayMethods, mDestructor);
static_assert(kArrayGetSlot == 0 && kArraySetSlot == 4 && kArrayGetFastSlot == 8 &&
              kArraySetFastSlot == 12 && kArrayRedimSlot == 16 && kArrayInsertSlot == 20 &&
              kArrayRemoveSlot == 24 && kArraySortSlot == 28 && kArrayIndexOfSlot == 32 &&
              kArrayShuffleSlot == 36 && kArrayUboundSlot == 40 && kArrayDestructorSlot == 52);

struct RuntimeArray {
  int32_t mLockCount;
  RuntimeArrayMethods const* mMethods;
  char* mData;
  int32_t mDimensions;
  int32_t mAllocated;
  int32_t mGrowth;
  // One per dimension: the highest valid index, -1 for none.
  int32_t mUpperBounds[1];
};
static_assert(std::is_standard_layout_v<RuntimeArray>);
static_assert(offsetof(RuntimeArray, mLockCount) == 0);
static_assert(offsetof(RuntimeArray, mMethods) == 4);
static_assert(offsetof(RuntimeArray, mData) == 8);
static_assert(offsetof(RuntimeArray, mDimensions) == 12);
static_assert(offsetof(RuntimeArray, mAllocated) == 16);
static_assert(offsetof(RuntimeArray, mGrowth) == 20);
static_assert(offsetof(RuntimeArray, mUpperBounds) == 24);

// Offsets that generated code uses to reach an array's fields.
constexpr int32_t kArrayLockCountOffset = offsetof(RuntimeArray, mLockCount);
constexpr int32_t kArrayMethodsOffset = offsetof(RuntimeArray, mMethods);
constexpr int32_t kArrayDataOffset = offsetof(RuntimeArray, mData);
constexpr int32_t kArrayDimensionsOffset = offsetof(RuntimeArray, mDimensions);
constexpr int32_t kArrayUpperBoundsOffset = offsetof(RuntimeArray, mUpperBounds);

constexpr int32_t RuntimeArraySize(int32_t dimensions) { return 24 + 4 * dimensions; }

// Element kinds, as CreateArray takes them.
enum RuntimeArrayElementKind : int32_t {
  kArrayElementInteger = 0,
  kArrayElementSingle = 1,
  kArrayElementDouble = 2,
  kArrayElementString = 3,
  kArrayElementObject = 4,
};

// ---------------------------------------------------------------------------
// Entries of the run-time function table

// (dimensions, element kind, one upper bound per dimension). Null, having
// raised OutOfMemoryException, when the size passes the limit or memory
// runs out; OutOfBoundsException for a bound below -1.
extern "C" RuntimeArray* CreateArray(int dimensions, int elementKind, ...);
// The cast of an array to an array of a class: a new reference to a
// one-dimensional object array, IllegalCastException when an element is
// not of the class (nil elements pass).
extern "C" RuntimeArray* RuntimeCreateArrayCastWrapper(RuntimeArray* array, RuntimeClass* c);
extern "C" void RuntimeLockArray(RuntimeArray* array);
extern "C" void RuntimeUnlockArray(RuntimeArray* array);
// Locks the first and releases the second, unless they are one array.
extern "C" void RuntimeLockUnlockArrays(RuntimeArray* newOne, RuntimeArray* oldOne);
// Ubound(a): nil raises NilObjectException and gives 0.
extern "C" int RuntimeUBound(RuntimeArray* array);
// Ubound(a, d): -1 gives the number of dimensions; d outside 1..dimensions
// raises OutOfBoundsException and gives -1; nil raises NilObjectException.
extern "C" int RuntimeUBound2Param(RuntimeArray* array, int dimension);

// A one-dimension array of upperBound + 1 cleared elements holding one
// lock, for library code that makes arrays; null for a bound below -1, a
// size past the limit or no memory. Raises nothing, so that a caller that
// holds C++ objects can let them go before it raises.
RuntimeArray* NewLinearArray(int elementKind, int upperBound);

// The table for a kind and dimension count; null for an unknown kind.
RuntimeArrayMethods const* ChooseMethodTable(int dimensions, int elementKind);
// Called with each array's address (an identity only) after it is freed.
void SetArrayDestructionMonitor(void (*monitor)(RuntimeArray*));
