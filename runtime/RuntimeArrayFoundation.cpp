#include "runtime/RuntimeArrayFoundation.h"

#include <cstdarg>
#include <iterator>

#include "foundation/KvAssert.h"
#include "foundation/String.h"
#include "foundation/Utility.h"
#include "runtime/KVScriptIntrinsics.h"
#include "runtime/MathRuntime.h"
#include "runtime/RunAbort.h"
#include "runtime/RuntimeObjectFoundation.h"
#include "runtime/RuntimeStringFoundation.h"

namespace {

// Elements Insert adds to a full block at first; Redim and Remove come back to it.
constexpr int32_t kInitialGrowth = 16;
// The step stops doubling here, so that appending to a large array costs at
// most this many spare elements.
constexpr int32_t kGrowthLimit = 0x20000;
// Bounds of a Redim of this many dimensions or fewer are read onto the stack.
constexpr int32_t kDimensionsOnStack = 8;

void (*sArrayDestructionMonitor)(RuntimeArray*) = nullptr;

void RaiseOutOfMemory() { RaiseExceptionClass(OutOfMemoryExceptionLookup()); }

// The accessors reach other libraries' functions only through these local
// ones: a call within the file needs no position-independent set-up, so
// the accessors' common path has none either.
[[gnu::noinline, gnu::cold]] void RaiseOutOfBounds() { RaiseOutOfBoundsException(); }
[[gnu::noinline]] void ReleaseString(stringStorage* s) { RuntimeUnlockString(s); }
[[gnu::noinline]] void ReleaseObject(RuntimeObject* o) { RuntimeUnlockObject(o); }

// An index outside 0..upperBound; an upper bound of -1 lets none through.
inline bool Outside(int32_t index, int32_t upperBound) {
  return (uint32_t)index >= (uint32_t)upperBound + 1u;
}

// Element count of the bounds, 0 when one of them is -1. Past what any
// block may hold the count stops growing: kTooLarge says so.
constexpr int64_t kTooLarge = (int64_t)INT32_MAX + 1;
int64_t CountOf(int32_t const* bounds, int32_t dimensions) {
  int64_t count = 1;
  for (int32_t d = 0; d < dimensions; ++d) {
    if (bounds[d] == -1) return 0;
    if (count < kTooLarge) count *= (int64_t)bounds[d] + 1;
  }
  return count < kTooLarge ? count : kTooLarge;
}

inline int64_t ElementCount(RuntimeArray const* a) { return CountOf(a->mUpperBounds, a->mDimensions); }

bool AnyBelowMinusOne(int32_t const* bounds, int32_t dimensions) {
  for (int32_t d = 0; d < dimensions; ++d)
    if (bounds[d] < -1) return true;
  return false;
}

// A cleared block of `bytes` (null for 0) in *block; false when the size
// passes INT32_MAX or memory runs out. Raises nothing.
bool NewBlock(int64_t bytes, char** block) {
  *block = nullptr;
  if (bytes > INT32_MAX) return false;
  if (bytes == 0) return true;
  *block = OSalloclen((int)bytes, 0);
  if (!*block) return false;
  umemzero(*block, (int)bytes);
  return true;
}

// ---------------------------------------------------------------------------
// Element kinds: how each is stored, counted, ordered and matched

// Matches by `==` on the value: numbers and object references.
template <class T>
struct SameValue {
  explicit SameValue(T value) : mValue(value) {}
  bool Matches(T element) const { return element == mValue; }
  void Release() {}
  T mValue;
};

template <class V>
struct NumberKind {
  using T = V;
  static constexpr bool kCounted = false;
  static constexpr bool kSortable = true;
  static void Lock(T) {}
  static void Unlock(T) {}
  static bool Greater(T a, T b) { return a > b; }
  static bool Less(T a, T b) { return a < b; }
  using Needle = SameValue<T>;
};

using IntegerKind = NumberKind<int32_t>;
using SingleKind = NumberKind<float>;
using DoubleKind = NumberKind<double>;

// What the language's own `=` does on two strings, folded once: texts
// whose bytes compare as they are (one encoding tag, or one side untagged)
// are matched byte by byte through upperMap against the search text folded
// in advance; a pair that needs converting goes through the run-time's
// comparison, which converts.
class StringNeedle {
public:
  explicit StringNeedle(stringStorage* value)
      : mValue(value), mLength(stringStorage::Length(value)), mFolded(mOnStack) {
    if (mLength > (long)sizeof(mOnStack)) {
      mFolded = reinterpret_cast<unsigned char*>(OSalloclen((int)mLength, 0));
      if (!mFolded) {
        mFolded = mOnStack;
        mLength = -1;  // no room: every comparison goes the long way
      }
    }
    auto const* text = reinterpret_cast<unsigned char const*>(stringStorage::CString(value));
    for (long i = 0; i < mLength; ++i) mFolded[i] = upperMap[text[i]];
  }
  // Hands the folded copy back; called before anything that may raise.
  void Release() {
    if (mFolded != mOnStack) OSfreelen(reinterpret_cast<char*>(mFolded), (int)mLength);
    mFolded = mOnStack;
  }
  bool Matches(stringStorage* element) const {
    if (element == mValue) return true;
    if (mLength < 0 || !SameBytes(element)) return CompareStringsInternal(element, mValue) == 0;
    if (stringStorage::Length(element) != mLength) return false;
    auto const* text = reinterpret_cast<unsigned char const*>(stringStorage::CString(element));
    for (long i = 0; i < mLength; ++i)
      if (upperMap[text[i]] != mFolded[i]) return false;
    return true;
  }

private:
  bool SameBytes(stringStorage* element) const {
    if (!element || !mValue) return true;
    return element->mEncoding == mValue->mEncoding || element->mEncoding == kEncodingUnknown ||
           mValue->mEncoding == kEncodingUnknown;
  }
  stringStorage* mValue;
  long mLength;
  unsigned char* mFolded;
  unsigned char mOnStack[64];
};

struct StringKind {
  using T = stringStorage*;
  static constexpr bool kCounted = true;
  static constexpr bool kSortable = true;
  static void Lock(T s) {
    if (s) s->AddReference();
  }
  // Only the last release goes out of line.
  static void Unlock(T s) {
    if (s && s->mRefCount > 1)
      --s->mRefCount;
    else if (s)
      ReleaseString(s);
  }
  static bool Greater(T a, T b) { return CompareStringsInternal(a, b) > 0; }
  static bool Less(T a, T b) { return CompareStringsInternal(a, b) < 0; }
  using Needle = StringNeedle;
};

struct ObjectKind {
  using T = RuntimeObject*;
  static constexpr bool kCounted = true;
  static constexpr bool kSortable = false;
  // As RuntimeLockObject: an object being destroyed stays at 0.
  static void Lock(T o) {
    if (o && o->mLockCount > 0) ++o->mLockCount;
  }
  static void Unlock(T o) {
    if (o && o->mLockCount > 1)
      --o->mLockCount;
    else if (o)
      ReleaseObject(o);
  }
  static bool Greater(T, T) { return false; }
  static bool Less(T, T) { return false; }
  using Needle = SameValue<T>;
};

template <class K>
inline typename K::T* Elements(RuntimeArray* a) {
  return reinterpret_cast<typename K::T*>(a->mData);
}

// Releases elements [first, end) of `block`, each slot cleared before its
// release: a release may run a script destructor that raises, and then
// nothing here is released twice.
template <class K>
void ReleaseElements(typename K::T* block, int64_t first, int64_t end) {
  if (!K::kCounted || !block) return;
  for (int64_t i = first; i < end; ++i) {
    typename K::T element = block[i];
    block[i] = typename K::T();
    K::Unlock(element);
  }
}

// Releases what is left in a block that no array refers to any more, then
// frees it.
template <class K>
void DropBlock(char* block, int32_t bytes, int64_t count) {
  ReleaseElements<K>(reinterpret_cast<typename K::T*>(block), 0, count);
  OSfreelen(block, bytes);
}

// ---------------------------------------------------------------------------
// Element access. The one-dimension forms are leaves: the check and the access.

template <class K>
typename K::T GetLinear(RuntimeArray* a, int index) {
  if (Outside(index, a->mUpperBounds[0])) {
    RaiseOutOfBounds();
    return typename K::T();
  }
  typename K::T element = Elements<K>(a)[index];
  K::Lock(element);
  return element;
}

// The unchecked forms keep the test that the element lies inside the block:
// without it a script could read and write the host's memory. For one
// dimension that is the same test as the checked form's.
template <class K>
typename K::T GetFastLinear(RuntimeArray* a, int index) {
  return GetLinear<K>(a, index);
}

// The new value is stored before the old one is released, so that a
// release that runs a destructor finds the array already changed.
template <class K>
inline void Store(RuntimeArray* a, typename K::T value, int32_t position) {
  typename K::T* slot = Elements<K>(a) + position;
  typename K::T old = *slot;
  K::Lock(value);
  *slot = value;
  K::Unlock(old);
}

template <class K>
void SetLinear(RuntimeArray* a, typename K::T value, int index) {
  if (Outside(index, a->mUpperBounds[0])) {
    RaiseOutOfBounds();
    return;
  }
  Store<K>(a, value, index);
}

template <class K>
void SetFastLinear(RuntimeArray* a, typename K::T value, int index) {
  SetLinear<K>(a, value, index);
}

// The position of the indices that `args` holds, one per dimension, first
// index fastest; -1 after raising when one lies outside its dimension. The
// unchecked form lets an index run past its own dimension, as long as the
// position stays inside the block: outside it, it raises all the same.
constexpr int64_t kFarOutside = int64_t(1) << 40;

template <bool kChecked>
int32_t Position(RuntimeArray* a, va_list args) {
  int64_t position = 0, stride = 1;
  for (int32_t d = 0; d < a->mDimensions; ++d) {
    int32_t index = va_arg(args, int);
    int32_t upperBound = a->mUpperBounds[d];
    if (kChecked && Outside(index, upperBound)) {
      RaiseOutOfBounds();
      return -1;
    }
    position += (int64_t)index * stride;
    stride *= (int64_t)upperBound + 1;
    // Far outside already: stop before the sum can overflow.
    if (!kChecked && (position < -kFarOutside || position > kFarOutside)) break;
  }
  if (!kChecked && (position < 0 || position >= ElementCount(a))) {
    RaiseOutOfBounds();
    return -1;
  }
  return (int32_t)position;
}

template <class K, bool kChecked>
typename K::T GetAt(RuntimeArray* a, ...) {
  va_list args;
  va_start(args, a);
  int32_t position = Position<kChecked>(a, args);
  va_end(args);
  if (position < 0) return typename K::T();
  typename K::T element = Elements<K>(a)[position];
  K::Lock(element);
  return element;
}

template <class K, bool kChecked>
void SetAt(RuntimeArray* a, typename K::T value, ...) {
  va_list args;
  va_start(args, value);
  int32_t position = Position<kChecked>(a, args);
  va_end(args);
  if (position >= 0) Store<K>(a, value, position);
}

// ---------------------------------------------------------------------------
// Redim

// Moves each element whose indices all lie within `bounds` from the old
// block to its place in `block`, clearing the slot it leaves; what stays
// behind in the old block is outside the new bounds.
template <class K>
void MoveKeptElements(RuntimeArray* a, int32_t const* bounds, char* block, int32_t* indices) {
  using T = typename K::T;
  T* from = Elements<K>(a);
  T* to = reinterpret_cast<T*>(block);
  int32_t dimensions = a->mDimensions;
  int64_t count = ElementCount(a);
  for (int32_t d = 0; d < dimensions; ++d) indices[d] = 0;
  for (int64_t k = 0; k < count; ++k) {
    bool inside = true;
    int64_t position = 0, stride = 1;
    for (int32_t d = 0; d < dimensions && inside; ++d) {
      inside = indices[d] <= bounds[d];
      position += indices[d] * stride;
      stride *= (int64_t)bounds[d] + 1;
    }
    if (inside) {
      to[position] = from[k];
      from[k] = T();
    }
    for (int32_t d = 0; d < dimensions && ++indices[d] > a->mUpperBounds[d]; ++d) indices[d] = 0;
  }
}

// Gives `a` the new bounds, each element kept at its indices, then
// releases the elements outside them. False, with `a` as it was, when the
// block cannot be had; the caller raises.
template <class K>
bool Reshape(RuntimeArray* a, int32_t const* bounds, int32_t* indices) {
  int64_t count = CountOf(bounds, a->mDimensions);
  char* block;
  if (!NewBlock(count * (int64_t)sizeof(typename K::T), &block)) return false;
  char* old = a->mData;
  int32_t oldBytes = a->mAllocated;
  int64_t oldCount = ElementCount(a);
  if (old) {
    if (a->mDimensions == 1) {
      int64_t kept = count < oldCount ? count : oldCount;
      int keptBytes = (int)(kept * (int64_t)sizeof(typename K::T));
      umemcpy(block, old, keptBytes);
      // Moved, not copied: the old block keeps only what falls outside.
      if (K::kCounted) umemzero(old, keptBytes);
    } else {
      MoveKeptElements<K>(a, bounds, block, indices);
    }
  }
  a->mData = block;
  a->mAllocated = (int32_t)(count * (int64_t)sizeof(typename K::T));
  a->mGrowth = kInitialGrowth;
  for (int32_t d = 0; d < a->mDimensions; ++d) a->mUpperBounds[d] = bounds[d];
  if (old) DropBlock<K>(old, oldBytes, oldCount);
  return true;
}

template <class K>
void RedimLinear(RuntimeArray* a, int upperBound) {
  if (!a) return RaiseNilObjectException();
  if (upperBound < -1) return RaiseOutOfBoundsException();
  if (upperBound == a->mUpperBounds[0]) return;
  if (!Reshape<K>(a, &upperBound, nullptr)) RaiseOutOfMemory();
}

template <class K>
void Redim(RuntimeArray* a, ...) {
  if (!a) return RaiseNilObjectException();
  int32_t dimensions = a->mDimensions;
  int32_t onStack[2 * kDimensionsOnStack];
  int32_t scratchBytes = 2 * 4 * dimensions;
  int32_t* bounds = dimensions <= kDimensionsOnStack
                        ? onStack
                        : reinterpret_cast<int32_t*>(OSalloclen(scratchBytes, 0));
  if (!bounds) return RaiseOutOfMemory();
  va_list args;
  va_start(args, a);
  bool same = true;
  for (int32_t d = 0; d < dimensions; ++d) {
    bounds[d] = va_arg(args, int);
    same = same && bounds[d] == a->mUpperBounds[d];
  }
  va_end(args);
  // The scratch goes before a raise, which may not come back.
  bool belowMinusOne = AnyBelowMinusOne(bounds, dimensions);
  bool done = same || belowMinusOne || Reshape<K>(a, bounds, bounds + dimensions);
  if (bounds != onStack) OSfreelen(reinterpret_cast<char*>(bounds), scratchBytes);
  if (belowMinusOne) return RaiseOutOfBoundsException();
  if (!done) RaiseOutOfMemory();
}

// ---------------------------------------------------------------------------
// Insert, Remove

template <class K>
void Insert(RuntimeArray* a, int index, typename K::T value) {
  using T = typename K::T;
  constexpr int64_t kSize = sizeof(T);
  if (!a) return RaiseNilObjectException();
  int32_t count = a->mUpperBounds[0] + 1;
  if (Outside(index, count)) return RaiseOutOfBoundsException();
  T* elements = Elements<K>(a);
  if ((count + 1) * kSize > a->mAllocated) {
    int64_t bytes = a->mAllocated + a->mGrowth * kSize;
    if (bytes > INT32_MAX || bytes < (count + 1) * kSize) bytes = (count + 1) * kSize;
    char* block;
    if (!NewBlock(bytes, &block)) return RaiseOutOfMemory();
    T* grown = reinterpret_cast<T*>(block);
    if (elements) {
      umemcpy(grown, elements, (int)(index * kSize));
      umemcpy(grown + index + 1, elements + index, (int)((count - index) * kSize));
      OSfreelen(a->mData, a->mAllocated);
    }
    a->mData = block;
    a->mAllocated = (int32_t)bytes;
    if (a->mGrowth < kGrowthLimit) a->mGrowth *= 2;
    elements = grown;
  } else {
    umemmove(elements + index + 1, elements + index, (int)((count - index) * kSize));
  }
  K::Lock(value);
  elements[index] = value;
  a->mUpperBounds[0] = count;
}

// The block keeps its size until the elements fill less than a quarter of
// it, then halves, so that draining an array by Remove or Pop costs time
// in proportion to its length. Remove needs no memory: a smaller block
// that cannot be had leaves the larger one in use.
template <class K>
void Remove(RuntimeArray* a, int index) {
  using T = typename K::T;
  constexpr int64_t kSize = sizeof(T);
  if (!a) return RaiseNilObjectException();
  int32_t upperBound = a->mUpperBounds[0];
  if (Outside(index, upperBound)) return RaiseOutOfBoundsException();
  T* elements = Elements<K>(a);
  T removed = elements[index];
  umemmove(elements + index, elements + index + 1, (int)((upperBound - index) * kSize));
  elements[upperBound] = T();
  a->mUpperBounds[0] = upperBound - 1;
  a->mGrowth = kInitialGrowth;
  int64_t remaining = upperBound * kSize;
  if (remaining < a->mAllocated / 4) {
    char* block;
    if (NewBlock(remaining * 2, &block)) {
      if (block) umemcpy(block, elements, (int)remaining);
      OSfreelen(a->mData, a->mAllocated);
      a->mData = block;
      a->mAllocated = (int32_t)(remaining * 2);
    }
  }
  K::Unlock(removed);
}

// ---------------------------------------------------------------------------
// Sort, IndexOf, Shuffle

// The partition keeps the elements equal to the pivot between the two
// parts and leaves them out. The smaller part is sorted by recursion and
// the larger by the loop, so the depth stays below log2 of the length
// whatever the input; the result is that of sorting both parts in turn.
template <class K>
void QuickSort(typename K::T* a, int32_t lo, int32_t hi) {
  using T = typename K::T;
  while (lo < hi) {
    // Swaps move elements but change no counts: the pivot stays alive in the array.
    T pivot = a[(lo + hi) / 2];
    int32_t less = lo, i = lo, j = hi;
    while (i <= j) {
      if (K::Greater(a[j], pivot)) {
        --j;
        continue;
      }
      T t = a[i];
      a[i] = a[j];
      a[j] = t;
      if (K::Less(a[i], pivot)) {
        t = a[less];
        a[less] = a[i];
        a[i] = t;
        ++less;
      }
      ++i;
    }
    if (less - 1 - lo < hi - (j + 1)) {
      QuickSort<K>(a, lo, less - 1);
      lo = j + 1;
    } else {
      QuickSort<K>(a, j + 1, hi);
      hi = less - 1;
    }
  }
}

template <class K>
void Sort(RuntimeArray* a) {
  if (!a) return RaiseNilObjectException();
  if (a->mData && a->mUpperBounds[0] > 0) QuickSort<K>(Elements<K>(a), 0, a->mUpperBounds[0]);
}

template <class K>
int IndexOf(RuntimeArray* a, typename K::T value, int start) {
  if (!a) {
    RaiseNilObjectException();
    return -1;
  }
  int32_t upperBound = a->mUpperBounds[0];
  if (!a->mData || upperBound < 0) return -1;
  if (start < -1 || start > upperBound) {
    RaiseOutOfBoundsException();
    return -1;
  }
  typename K::T const* elements = Elements<K>(a);
  typename K::Needle needle(value);
  int found = -1;
  for (int32_t i = start < 0 ? 0 : start; i <= upperBound && found < 0; ++i)
    if (needle.Matches(elements[i])) found = i;
  needle.Release();
  return found;
}

// Positions only change places, so no count changes.
template <class K>
void Shuffle(RuntimeArray* a) {
  using T = typename K::T;
  if (!a) return RaiseNilObjectException();
  if (!a->mData || a->mUpperBounds[0] < 1) return;
  T* elements = Elements<K>(a);
  for (int64_t i = ElementCount(a) - 1; i >= 1; --i) {
    int64_t k = (int64_t)(rnd() * (double)(i + 1));
    T t = elements[i];
    elements[i] = elements[k];
    elements[k] = t;
  }
}

int ArrayUbound(RuntimeArray* a, int dimension) {
  if (!a) {
    RaiseNilObjectException();
    return -1;
  }
  if (dimension == -1) return a->mDimensions;
  if (dimension < 1 || dimension > a->mDimensions) {
    RaiseOutOfBoundsException();
    return -1;
  }
  return a->mUpperBounds[dimension - 1];
}

template <class K>
void ArrayDestructor(RuntimeArray* a) {
  char* block = a->mData;
  if (!block) return;
  int32_t bytes = a->mAllocated;
  int64_t count = ElementCount(a);
  a->mData = nullptr;
  a->mAllocated = 0;
  DropBlock<K>(block, bytes, count);
}

// ---------------------------------------------------------------------------
// The method tables

template <class F>
void* Slot(F* function) {
  return reinterpret_cast<void*>(function);
}

template <class K>
RuntimeArrayMethods LinearMethods(void* elementLock, void* elementUnlock) {
  return {Slot(&GetLinear<K>),  Slot(&SetLinear<K>), Slot(&GetFastLinear<K>), Slot(&SetFastLinear<K>),
          Slot(&RedimLinear<K>), Slot(&Insert<K>),   Slot(&Remove<K>),
          K::kSortable ? Slot(&Sort<K>) : nullptr,   Slot(&IndexOf<K>),       Slot(&Shuffle<K>),
          Slot(&ArrayUbound),    elementLock,        elementUnlock,           Slot(&ArrayDestructor<K>)};
}

template <class K>
RuntimeArrayMethods Methods(void* elementLock, void* elementUnlock) {
  return {Slot(&GetAt<K, true>), Slot(&SetAt<K, true>), Slot(&GetAt<K, false>), Slot(&SetAt<K, false>),
          Slot(&Redim<K>),       nullptr,               nullptr,                nullptr,
          nullptr,               Slot(&Shuffle<K>),     Slot(&ArrayUbound),     elementLock,
          elementUnlock,         Slot(&ArrayDestructor<K>)};
}

// By element kind: the one-dimension table, then the other.
RuntimeArrayMethods const kMethodTables[][2] = {
    {LinearMethods<IntegerKind>(nullptr, nullptr), Methods<IntegerKind>(nullptr, nullptr)},
    {LinearMethods<SingleKind>(nullptr, nullptr), Methods<SingleKind>(nullptr, nullptr)},
    {LinearMethods<DoubleKind>(nullptr, nullptr), Methods<DoubleKind>(nullptr, nullptr)},
    {LinearMethods<StringKind>(Slot(&RuntimeLockString), Slot(&RuntimeUnlockString)),
     Methods<StringKind>(Slot(&RuntimeLockString), Slot(&RuntimeUnlockString))},
    {LinearMethods<ObjectKind>(Slot(&RuntimeLockObject), Slot(&RuntimeUnlockObject)),
     Methods<ObjectKind>(Slot(&RuntimeLockObject), Slot(&RuntimeUnlockObject))},
};
static_assert(std::size(kMethodTables) == kArrayElementObject + 1);

int32_t ElementSize(int elementKind) { return elementKind == kArrayElementDouble ? 8 : 4; }

enum ArrayFailure { kArrayMade, kArrayBoundBelowMinusOne, kArrayTooLarge, kArrayUnknownShape };

// A record of `dimensions`, not yet filled in; null for an unknown kind or
// shape, or when memory runs out.
RuntimeArray* NewRecord(int dimensions, int elementKind, ArrayFailure* failure) {
  *failure = kArrayUnknownShape;
  if (dimensions < 1 || !ChooseMethodTable(dimensions, elementKind)) return nullptr;
  auto* a = reinterpret_cast<RuntimeArray*>(OSalloclen(RuntimeArraySize(dimensions), 0));
  *failure = a ? kArrayMade : kArrayTooLarge;
  return a;
}

// Fills in a new record whose bounds are in place and gives it its block;
// on failure frees it and returns null.
RuntimeArray* FinishArray(RuntimeArray* a, int dimensions, int elementKind, ArrayFailure* failure) {
  int64_t bytes = CountOf(a->mUpperBounds, dimensions) * ElementSize(elementKind);
  if (AnyBelowMinusOne(a->mUpperBounds, dimensions))
    *failure = kArrayBoundBelowMinusOne;
  else if (!NewBlock(bytes, &a->mData))
    *failure = kArrayTooLarge;
  if (*failure != kArrayMade) {
    OSfreelen(reinterpret_cast<char*>(a), RuntimeArraySize(dimensions));
    return nullptr;
  }
  a->mLockCount = 1;
  a->mMethods = ChooseMethodTable(dimensions, elementKind);
  a->mDimensions = dimensions;
  a->mAllocated = (int32_t)bytes;
  a->mGrowth = kInitialGrowth;
  return a;
}

void DisposeArray(RuntimeArray* a) {
  reinterpret_cast<void (*)(RuntimeArray*)>(a->mMethods->mDestructor)(a);
  OSfreelen(reinterpret_cast<char*>(a), RuntimeArraySize(a->mDimensions));
  if (sArrayDestructionMonitor) sArrayDestructionMonitor(a);
}

}  // namespace

// ---------------------------------------------------------------------------
// Entries

RuntimeArrayMethods const* ChooseMethodTable(int dimensions, int elementKind) {
  if (elementKind < 0 || elementKind > kArrayElementObject) return nullptr;
  return &kMethodTables[elementKind][dimensions == 1 ? 0 : 1];
}

void SetArrayDestructionMonitor(void (*monitor)(RuntimeArray*)) { sArrayDestructionMonitor = monitor; }

// A failure frees the record again: it leaves nothing behind.
RuntimeArray* CreateArray(int dimensions, int elementKind, ...) {
  ArrayFailure failure;
  RuntimeArray* a = NewRecord(dimensions, elementKind, &failure);
  KV_ASSERT(failure != kArrayUnknownShape);
  if (a) {
    va_list args;
    va_start(args, elementKind);
    for (int32_t d = 0; d < dimensions; ++d) a->mUpperBounds[d] = va_arg(args, int);
    va_end(args);
    a = FinishArray(a, dimensions, elementKind, &failure);
  }
  if (failure == kArrayBoundBelowMinusOne) RaiseOutOfBoundsException();
  if (failure == kArrayTooLarge) RaiseOutOfMemory();
  return a;
}

RuntimeArray* NewLinearArray(int elementKind, int upperBound) {
  ArrayFailure failure;
  RuntimeArray* a = NewRecord(1, elementKind, &failure);
  if (!a) return nullptr;
  a->mUpperBounds[0] = upperBound;
  return FinishArray(a, 1, elementKind, &failure);
}

RuntimeArray* RuntimeCreateArrayCastWrapper(RuntimeArray* array, RuntimeClass* c) {
  if (!array) return nullptr;
  if (array->mMethods != ChooseMethodTable(1, kArrayElementObject)) {
    RaiseIllegalCastException();
    return nullptr;
  }
  auto* elements = Elements<ObjectKind>(array);
  for (int32_t i = 0; i <= array->mUpperBounds[0]; ++i) {
    if (elements[i] && !RuntimeObjectIsa(elements[i], c)) {
      RaiseIllegalCastException();
      return nullptr;
    }
  }
  ++array->mLockCount;
  return array;
}

void RuntimeLockArray(RuntimeArray* array) {
  if (array) ++array->mLockCount;
}

void RuntimeUnlockArray(RuntimeArray* array) {
  if (array && --array->mLockCount == 0) DisposeArray(array);
}

void RuntimeLockUnlockArrays(RuntimeArray* newOne, RuntimeArray* oldOne) {
  if (newOne == oldOne) return;
  RuntimeLockArray(newOne);
  RuntimeUnlockArray(oldOne);
}

int RuntimeUBound(RuntimeArray* array) {
  if (!array) {
    RaiseNilObjectException();
    return 0;
  }
  return array->mUpperBounds[0];
}

int RuntimeUBound2Param(RuntimeArray* array, int dimension) { return ArrayUbound(array, dimension); }
