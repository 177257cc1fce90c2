// SimpleVector<T>: the growable array behind every list of the compiler.
//
// Invariants:
// - `data` is null or came from array new with `capacity` elements, all of
//   them constructed (value-initialised, so slots past `count` of a vector
//   of ints or pointers read as 0); the first `count` are in use.
// - `count <= capacity`. Only push_back, insert and resize change how many
//   elements are in use; indexing never does.
// - An index at or past `count`, and pop_back or peek_back on an empty
//   vector, are the caller's fault: KV_ASSERT catches them in check builds,
//   and nothing is thrown.
// - Elements move by assignment, so `string` and `Ref` elements keep their
//   counts right across growth, insertion and deletion.
#pragma once

#include "foundation/KvAssert.h"
#include "foundation/String.h"

template <class T>
class SimpleVector {
public:
  SimpleVector() : growBy(0), data(nullptr), count(0), capacity(0) {}
  explicit SimpleVector(unsigned long n)
      : growBy(0), data(n ? new T[n]() : nullptr), count(n), capacity(n) {}
  SimpleVector(SimpleVector const& other)
      : growBy(0), data(nullptr), count(0), capacity(0) {
    CopyFrom(other);
  }
  ~SimpleVector() { delete[] data; }

  SimpleVector& operator=(SimpleVector const& other) {
    if (this != &other) {
      delete[] data;
      data = nullptr;
      CopyFrom(other);
    }
    return *this;
  }

  unsigned long size() const { return count; }

  T& operator[](unsigned long i) {
    KV_ASSERT(i < count);
    return data[i];
  }
  T const& operator[](unsigned long i) const {
    KV_ASSERT(i < count);
    return data[i];
  }

  // `x` may be an element of this vector: it is copied before growing
  // frees the array it lives in.
  void push_back(T const& x) {
    if (count < capacity) {
      data[count++] = x;
      return;
    }
    T copy = x;
    Grow();
    data[count++] = copy;
  }

  // Before position `at` (0 to count); `x` may be an element of this vector.
  void insert(T const& x, unsigned long at) {
    KV_ASSERT(at <= count);
    T copy = x;
    Grow();
    for (unsigned long i = count; i > at; --i) data[i] = data[i - 1];
    data[at] = copy;
    ++count;
  }

  // The popped slot is not reset: its element lives on until overwritten
  // or until the array goes.
  T pop_back() {
    KV_ASSERT(count > 0);
    return data[--count];
  }
  T peek_back() const {
    KV_ASSERT(count > 0);
    return data[count - 1];
  }

  void deleteIdx(unsigned long i) {
    KV_ASSERT(i < count);
    for (unsigned long j = i + 1; j < count; ++j) data[j - 1] = data[j];
    --count;
    unsigned long freeSlots = capacity - count;
    if (growBy) {
      if (freeSlots > 2 * growBy) resize((count / growBy + 1) * growBy);
    } else if (freeSlots > 2 * count) {
      resize((count & ~15UL) + 16);
    }
  }

  void deleteAll() {
    delete[] data;
    data = nullptr;
    count = 0;
    capacity = 0;
  }

  // Sets the capacity to exactly n; a smaller n discards the tail.
  void resize(unsigned long n) {
    if (n == capacity) return;
    T* fresh = n ? new T[n]() : nullptr;
    unsigned long keep = count < n ? count : n;
    for (unsigned long i = 0; i < keep; ++i) fresh[i] = data[i];
    delete[] data;
    data = fresh;
    capacity = n;
    if (count > n) count = n;
  }

  // Growth step; 0 doubles the capacity. Steps below 16 are raised to 16.
  unsigned long growBy;
  T* data;
  // Elements in use; named apart from size() so both can exist.
  unsigned long count;
  unsigned long capacity;

private:
  void Grow() {
    while (capacity <= count) {
      unsigned long step = growBy ? growBy : capacity;
      if (step < 16) step = 16;
      resize(capacity + step);
    }
  }

  void CopyFrom(SimpleVector const& other) {
    growBy = other.growBy;
    count = other.count;
    capacity = other.capacity;
    data = capacity ? new T[capacity]() : nullptr;
    for (unsigned long i = 0; i < count; ++i) data[i] = other.data[i];
  }
};

// An entry of a debugger-symbol side list: a name and two machine words.
struct LinkedContainerEntry {
  string key;
  unsigned long value = 0;
  unsigned long next = 0;
};
