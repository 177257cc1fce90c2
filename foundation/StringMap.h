// Hash maps keyed by `string` (StringMap, StringMapCase) and by int (IntMap).
//
// Invariants:
// - Every entry sits in exactly one bin chain and once in the insertion
//   list (first to last through orderNext, back through orderPrev).
//   Iterators and Iterate walk the insertion list: a map gives its entries
//   back in the order they came, whatever the hash, and that keeps the order
//   of generated items stable.
// - Keys are hashed under the process's secret key (KeyedHash.h), so no
//   script can crowd its names or literals into one bin. Each entry keeps
//   its hash: growing never hashes a key again, and keys are compared only
//   when their hashes are equal.
// - The bins are a power of two in number. None exist until the first
//   AddEntry; then there are kFirstBins, doubled whenever the entries would
//   pass three quarters of the bins, so every operation does O(1) expected
//   work however large the map.
// - StringMap keys match as the language's names do, through string's
//   operator==, which ignores case by upperMap; the hash folds by the same
//   table, so keys that match hash alike. (Texts that match only once one is
//   converted to the other's 8-bit encoding may not: the compiler's keys
//   are ASCII or come in the source's one encoding.) A key that matches an
//   existing one replaces its value and leaves the first spelling in place.
// - Every live iterator is on its map's chain, so deleting an entry can move
//   the iterators that stand on it. A map deletes the iterators still chained
//   when it dies: a stack iterator must die before its map.
// - Entries own their keys and values by value; pointer values are not
//   deleted with them.
#pragma once

#include <cstdint>
#include <cstring>

#include "foundation/KeyedHash.h"
#include "foundation/KvAssert.h"
#include "foundation/String.h"

// The bins and the insertion list behind each map, over entries that carry
// binNext, orderNext, orderPrev and hash. The table owns its entries.
template <class Entry>
class HashChains {
public:
  HashChains() = default;
  HashChains(HashChains const&) = delete;
  HashChains& operator=(HashChains const&) = delete;

  ~HashChains() {
    for (Entry* e = mFirst; e;) {
      Entry* following = e->orderNext;
      delete e;
      e = following;
    }
    delete[] mBins;
  }

  unsigned long Count() const { return mCount; }
  Entry* First() const { return mFirst; }

  // The entry of `hash` that `match` accepts, or null.
  template <class Match>
  Entry* Find(uint32_t hash, Match const& match) const {
    if (!mBins) return nullptr;
    for (Entry* e = mBins[hash & mMask]; e; e = e->binNext) {
      if (e->hash == hash && match(*e)) return e;
    }
    return nullptr;
  }

  // Takes `e`, its hash set, and puts it last in order.
  void Append(Entry* e) {
    if (!mBins || mCount + 1 > (mMask + 1) / 4 * 3) Grow();
    Chain(e);
    e->orderPrev = mLast;
    e->orderNext = nullptr;
    if (mLast) mLast->orderNext = e; else mFirst = e;
    mLast = e;
    ++mCount;
  }

  // Unlinks `e`, an entry of this table, and deletes it.
  void Remove(Entry* e) {
    Entry** link = &mBins[e->hash & mMask];
    while (*link && *link != e) link = &(*link)->binNext;
    KV_ASSERT(*link == e);
    *link = e->binNext;
    if (e->orderPrev) e->orderPrev->orderNext = e->orderNext; else mFirst = e->orderNext;
    if (e->orderNext) e->orderNext->orderPrev = e->orderPrev; else mLast = e->orderPrev;
    --mCount;
    delete e;
  }

private:
  // Eight bins hold six entries: most maps (a class's events, a module's
  // constants) never grow past that.
  static constexpr uint32_t kFirstBins = 8;

  void Chain(Entry* e) {
    Entry*& head = mBins[e->hash & mMask];
    e->binNext = head;
    head = e;
  }

  // The new array is made before the old one goes: when memory runs out,
  // the compile's out-of-memory report unwinds through this map, which must
  // still be whole for its destructor.
  void Grow() {
    uint32_t bins = mBins ? (mMask + 1) * 2 : kFirstBins;
    Entry** grown = new Entry*[bins]();
    delete[] mBins;
    mBins = grown;
    mMask = bins - 1;
    for (Entry* e = mFirst; e; e = e->orderNext) Chain(e);
  }

  Entry** mBins = nullptr;
  // The bin count less one: the bin of a hash is its low bits.
  uint32_t mMask = 0;
  unsigned long mCount = 0;
  Entry* mFirst = nullptr;
  Entry* mLast = nullptr;
};

template <class V> class StringMapIterator;

template <class V>
struct StringMapEntry {
  StringMapEntry* binNext;
  StringMapEntry* orderNext;
  StringMapEntry* orderPrev;
  uint32_t hash;
  string key;
  V value;
};

template <class V>
class StringMap {
public:
  StringMap() = default;
  StringMap(StringMap const&) = delete;
  StringMap& operator=(StringMap const&) = delete;

  virtual ~StringMap() {
    // Each iterator unchains itself as it goes; the entries go with mEntries.
    while (iterators) delete iterators;
  }

  virtual unsigned long hashString(string const& key) const {
    return KeyedHashFoldingCase(key.CString(), key.Length());
  }
  virtual bool StringsMatch(string const& a, string const& b) const { return a == b; }

  void AddEntry(string const& key, V value) {
    uint32_t hash = (uint32_t)hashString(key);
    if (StringMapEntry<V>* e = Find(key, hash)) {
      e->value = value;
      return;
    }
    mEntries.Append(new StringMapEntry<V>{nullptr, nullptr, nullptr, hash, key, value});
  }

  bool HasEntry(string const& key) const { return Find(key) != nullptr; }

  bool GetEntry(string const& key, V& out) const {
    StringMapEntry<V>* e = Find(key);
    if (!e) return false;
    out = e->value;
    return true;
  }

  void DeleteEntry(string const& key) {
    StringMapEntry<V>* doomed = Find(key);
    if (!doomed) return;
    MoveIteratorsOff(doomed);
    mEntries.Remove(doomed);
  }

  unsigned long Count() const { return mEntries.Count(); }

  // The caller deletes the iterator, or the map does when it dies first.
  StringMapIterator<V>* NewIterator() { return new StringMapIterator<V>(this); }

  // Calls back in insertion order; stops at the first callback that returns
  // false and returns false.
  bool Iterate(bool (*callback)(string key, V value, long context), long context) {
    for (StringMapEntry<V>* e = mEntries.First(); e; e = e->orderNext) {
      if (!callback(e->key, e->value, context)) return false;
    }
    return true;
  }

  StringMapIterator<V>* iterators = nullptr;

private:
  friend class StringMapIterator<V>;

  StringMapEntry<V>* Find(string const& key) const { return Find(key, (uint32_t)hashString(key)); }

  StringMapEntry<V>* Find(string const& key, uint32_t hash) const {
    return mEntries.Find(hash, [&](StringMapEntry<V> const& e) { return StringsMatch(e.key, key); });
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

  HashChains<StringMapEntry<V>> mEntries;
};

template <class V>
class StringMapIterator {
public:
  explicit StringMapIterator(StringMap<V>* owner)
      : map(owner), started(false), current(owner->mEntries.First()),
        nextIterator(owner->iterators) {
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
    return KeyedHash(key.CString(), key.Length());
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
  IntMapEntry* orderPrev;
  uint32_t hash;
  int key;
  V value;
};

template <class V>
class IntMap {
public:
  IntMap() = default;
  IntMap(IntMap const&) = delete;
  IntMap& operator=(IntMap const&) = delete;

  void AddEntry(int key, V value) {
    uint32_t hash = KeyedHash((uint32_t)key);
    if (IntMapEntry<V>* e = Find(key, hash)) {
      e->value = value;
      return;
    }
    mEntries.Append(new IntMapEntry<V>{nullptr, nullptr, nullptr, hash, key, value});
  }

  bool GetEntry(int key, V& out) const {
    IntMapEntry<V>* e = Find(key, KeyedHash((uint32_t)key));
    if (!e) return false;
    out = e->value;
    return true;
  }

  unsigned long Count() const { return mEntries.Count(); }

private:
  IntMapEntry<V>* Find(int key, uint32_t hash) const {
    return mEntries.Find(hash, [key](IntMapEntry<V> const& e) { return e.key == key; });
  }

  HashChains<IntMapEntry<V>> mEntries;
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
