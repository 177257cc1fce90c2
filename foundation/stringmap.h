// Hash maps keyed by `string` (StringMap, StringMapCase) and by int (IntMap).
//
// Invariants:
// - Every entry sits in exactly one bin chain and once in the insertion
//   list (first .. last, through orderNext). Iterators walk the insertion
//   list, which is what makes the order of generated items stable; Iterate
//   walks the bins, which is cheaper and in no useful order.
// - StringMap keys match as the language's names do: without regard to case.
//   The hash folds only a to z, so it agrees with the match for ASCII names.
//   A key that matches an existing one replaces its value and leaves the
//   first spelling of the key in place.
// - The bins stay unallocated until the first AddEntry, and only ever grow.
// - Every live iterator is on its map's chain, so deleting an entry can move
//   the iterators that stand on it. A map deletes the iterators still chained
//   when it dies: a stack iterator must die before its map.
// - Entries own their keys and values by value; pointer values are not
//   deleted with them.
#pragma once

#include <cstring>

#include "foundation/kvassert.h"
#include "foundation/string.h"

template <class V> class StringMapIterator;

template <class V>
struct StringMapEntry {
  StringMapEntry* binNext;
  StringMapEntry* orderNext;
  string key;
  V value;
};

template <class V>
class StringMap {
public:
  StringMap() { Initialize(256); }
  StringMap(StringMap const&) = delete;
  StringMap& operator=(StringMap const&) = delete;

  virtual ~StringMap() {
    // Each iterator unchains itself as it goes.
    while (iterators) delete iterators;
    for (StringMapEntry<V>* e = first; e;) {
      StringMapEntry<V>* following = e->orderNext;
      delete e;
      e = following;
    }
    delete[] bins;
  }

  virtual unsigned long hashString(string const& key) const { return HashBytes(key, true); }
  virtual bool StringsMatch(string const& a, string const& b) const { return a == b; }

  void AddEntry(string const& key, V value) {
    if (!bins) AllocateBins();
    unsigned int bin = hashString(key) % binCount;
    for (StringMapEntry<V>* e = bins[bin]; e; e = e->binNext) {
      if (StringsMatch(e->key, key)) {
        e->value = value;
        return;
      }
    }
    StringMapEntry<V>* e = new StringMapEntry<V>{bins[bin], nullptr, key, value};
    bins[bin] = e;
    if (last) last->orderNext = e; else first = e;
    last = e;
    ++count;
    if (count > binCount * 3 / 4) ResizeBinArray(binCount * 2);
  }

  bool HasEntry(string const& key) const { return Find(key) != nullptr; }

  bool GetEntry(string const& key, V& out) const {
    StringMapEntry<V>* e = Find(key);
    if (!e) return false;
    out = e->value;
    return true;
  }

  void DeleteEntry(string const& key) {
    if (!bins) return;
    StringMapEntry<V>* doomed = UnlinkFromBin(key);
    if (!doomed) return;
    MoveIteratorsOff(doomed);
    StringMapEntry<V>* before = nullptr;
    for (StringMapEntry<V>* e = first; e; before = e, e = e->orderNext) {
      if (e != doomed) continue;
      if (before) before->orderNext = e->orderNext; else first = e->orderNext;
      if (last == e) last = before;
      delete e;
      --count;
      return;
    }
    KV_ASSERT(!"entry of a bin missing from the insertion list");
  }

  // The caller deletes the iterator, or the map does when it dies first.
  StringMapIterator<V>* NewIterator() { return new StringMapIterator<V>(this); }

  // Calls back bin by bin; stops at the first callback that returns false and
  // returns false. A map that never had an entry returns true at once.
  bool Iterate(bool (*callback)(string key, V value, long context), long context) {
    if (!bins) return true;
    for (unsigned int i = 0; i < binCount; ++i) {
      for (StringMapEntry<V>* e = bins[i]; e; e = e->binNext) {
        if (!callback(e->key, e->value, context)) return false;
      }
    }
    return true;
  }

  unsigned int binCount;
  unsigned int count;
  StringMapEntry<V>** bins;
  StringMapEntry<V>* first;
  StringMapEntry<V>* last;
  StringMapIterator<V>* iterators;

protected:
  // Bytes are taken as signed chars, as the hash has always been computed.
  static unsigned long HashBytes(string const& key, bool foldCase) {
    uint32_t hash = 0;
    char const* bytes = key.CString();
    for (long i = 0, n = key.Length(); i < n; ++i) {
      int c = (signed char)bytes[i];
      if (foldCase && c >= 'a' && c <= 'z') c -= 32;
      hash = hash * 31 + (uint32_t)c;
    }
    return hash;
  }

private:
  friend class StringMapIterator<V>;

  void Initialize(unsigned int n) {
    binCount = n;
    count = 0;
    bins = nullptr;
    first = last = nullptr;
    iterators = nullptr;
  }

  void AllocateBins() {
    bins = new StringMapEntry<V>*[binCount]();
  }

  // Re-entering in insertion order keeps each chain's head the newest entry,
  // as it was before. The new array is made before the old one goes, so a
  // failed allocation leaves the map whole.
  void ResizeBinArray(unsigned int n) {
    if (n == binCount) return;
    StringMapEntry<V>** grown = new StringMapEntry<V>*[n]();
    delete[] bins;
    bins = grown;
    binCount = n;
    for (StringMapEntry<V>* e = first; e; e = e->orderNext) {
      unsigned int bin = hashString(e->key) % binCount;
      e->binNext = bins[bin];
      bins[bin] = e;
    }
  }

  StringMapEntry<V>* Find(string const& key) const {
    if (!bins) return nullptr;
    for (StringMapEntry<V>* e = bins[hashString(key) % binCount]; e; e = e->binNext) {
      if (StringsMatch(e->key, key)) return e;
    }
    return nullptr;
  }

  StringMapEntry<V>* UnlinkFromBin(string const& key) {
    StringMapEntry<V>** link = &bins[hashString(key) % binCount];
    for (; *link; link = &(*link)->binNext) {
      StringMapEntry<V>* e = *link;
      if (StringsMatch(e->key, key)) {
        *link = e->binNext;
        return e;
      }
    }
    return nullptr;
  }

  // An iterator standing on the entry goes to the one that followed it, and
  // is left unstarted so that its next Next() lands there. An iterator not
  // yet started is moved too: it would otherwise keep a dead entry.
  void MoveIteratorsOff(StringMapEntry<V>* doomed) {
    for (StringMapIterator<V>* it = iterators; it; it = it->nextIterator) {
      if (it->current != doomed) continue;
      it->current = doomed->orderNext;
      it->started = false;
    }
  }
};

template <class V>
class StringMapIterator {
public:
  explicit StringMapIterator(StringMap<V>* owner)
      : map(owner), started(false), current(owner->first), nextIterator(owner->iterators) {
    owner->iterators = this;
  }
  StringMapIterator(StringMapIterator const&) = delete;
  StringMapIterator& operator=(StringMapIterator const&) = delete;

  virtual ~StringMapIterator() {
    for (StringMapIterator** link = &map->iterators; *link; link = &(*link)->nextIterator) {
      if (*link == this) {
        *link = nextIterator;
        return;
      }
    }
  }

  // The first call lands on the first entry; false once past the end.
  bool Next() {
    if (started) {
      if (current) current = current->orderNext;
    } else {
      started = true;
    }
    return current != nullptr;
  }

  bool Next(V& out) {
    Next();
    return Value(out);
  }

  bool Value(V& out) const {
    if (!started || !current) return false;
    out = current->value;
    return true;
  }

  string Key() const { return started && current ? current->key : string(); }

  // Deletes the entry under the iterator; the next Next() lands on the one
  // that followed it.
  void Delete() {
    if (!started || !current) return;
    string key = current->key;
    current = current->orderNext;
    started = false;
    map->DeleteEntry(key);
  }

  StringMap<V>* map;
  bool started;
  StringMapEntry<V>* current;
  StringMapIterator* nextIterator;
};

// Keys match byte for byte, and the encoding tag is part of the key.
template <class V>
class StringMapCase : public StringMap<V> {
public:
  unsigned long hashString(string const& key) const override {
    return StringMap<V>::HashBytes(key, false);
  }

  bool StringsMatch(string const& a, string const& b) const override {
    stringStorage* sa = a.Storage();
    stringStorage* sb = b.Storage();
    if (sa == sb) return true;
    if (!sa || !sb) return false;
    if (sa->mLength != sb->mLength || sa->mEncoding != sb->mEncoding) return false;
    return std::memcmp(a.CString(), b.CString(), sa->mLength) == 0;
  }
};

template <class V>
struct IntMapEntry {
  IntMapEntry* binNext;
  IntMapEntry* orderNext;
  int key;
  V value;
};

// A fixed table of 1024 bins; the order list is kept for the destructor.
template <class V>
class IntMap {
public:
  static constexpr int kBinCount = 1024;

  IntMap() : first(nullptr), last(nullptr) {
    for (int i = 0; i < kBinCount; ++i) bins[i] = nullptr;
  }
  IntMap(IntMap const&) = delete;
  IntMap& operator=(IntMap const&) = delete;

  virtual ~IntMap() {
    for (IntMapEntry<V>* e = first; e;) {
      IntMapEntry<V>* following = e->orderNext;
      delete e;
      e = following;
    }
  }

  void AddEntry(int key, V value) {
    unsigned int bin = BinOf(key);
    for (IntMapEntry<V>* e = bins[bin]; e; e = e->binNext) {
      if (e->key == key) {
        e->value = value;
        return;
      }
    }
    IntMapEntry<V>* e = new IntMapEntry<V>{bins[bin], nullptr, key, value};
    bins[bin] = e;
    if (last) last->orderNext = e; else first = e;
    last = e;
  }

  bool GetEntry(int key, V& out) const {
    for (IntMapEntry<V>* e = bins[BinOf(key)]; e; e = e->binNext) {
      if (e->key == key) {
        out = e->value;
        return true;
      }
    }
    return false;
  }

  IntMapEntry<V>* bins[kBinCount];
  IntMapEntry<V>* first;
  IntMapEntry<V>* last;

private:
  // Multiplied in unsigned arithmetic: same low bits, no signed overflow.
  static unsigned int BinOf(int key) { return ((unsigned int)key * 13u) & 0x3FF; }
};

// A template-free wrapper over StringMap<unsigned long>. Every entry accepts
// null handles and then does nothing, or returns 0 / false / empty.
StringMap<unsigned long>* newStringMap();
void disposeStringMap(StringMap<unsigned long>* map);
void addStringMapEntry(StringMap<unsigned long>* map, string const& key, unsigned long value);
// 0 when the key is absent.
unsigned long getStringMapEntry(StringMap<unsigned long>* map, string const& key);
void deleteStringMapEntry(StringMap<unsigned long>* map, string const& key);
bool iterateStringMap(StringMap<unsigned long>* map,
                      bool (*callback)(string key, unsigned long value, long context),
                      long context);
// The caller disposes of the iterator with smDisposeIterator while the map
// lives; disposing of the map disposes of its remaining iterators too.
StringMapIterator<unsigned long>* getStringMapIterator(StringMap<unsigned long>* map);
bool smIteratorNext(StringMapIterator<unsigned long>* it);
void smIteratorDelete(StringMapIterator<unsigned long>* it);
// 0 when the iterator isn't on an entry.
unsigned long smIteratorValue(StringMapIterator<unsigned long>* it);
string smIteratorKey(StringMapIterator<unsigned long>* it);
void smDisposeIterator(StringMapIterator<unsigned long>* it);
