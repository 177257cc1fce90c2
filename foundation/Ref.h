// Ref<T>: the counted handle by which the compiler holds its objects.
//
// Invariants:
// - Handles share one RefRep<T> per object; refCount is the number of
//   handles bound to it, and the record and its object go when it reaches 0.
// - A record whose object was deleted on unlock stays alive, emptied, while
//   handles remain: such a handle tests false though its rep is set.
// - Destruction never recurses through chains of handles. The last release
//   puts the record on its type's destroy list, and only the outermost
//   release on the stack empties that list, so a syntax tree or list of any
//   length is freed at constant stack depth, last in, first out.
// - Objects are deleted as T*: a base class held by Ref needs a virtual
//   destructor.
#pragma once

#include <cstdint>

template <class T>
struct RefRep {
  explicit RefRep(T* o) : object(o), refCount(0), lockCount(0), deleteWhenUnlocked(0), next(nullptr) {}
  RefRep(RefRep const&) = delete;
  RefRep& operator=(RefRep const&) = delete;
  ~RefRep() { delete object; }

  // Called when the last handle let go.
  void Destroy() {
    // The extra count keeps a record on the list from being destroyed twice.
    next = sDestroyList;
    sDestroyList = this;
    ++refCount;
    if (sDestroyerBusy) return;
    sDestroyerBusy = true;
    while (sDestroyList) {
      RefRep* head = sDestroyList;
      sDestroyList = head->next;
      --head->refCount;
      delete head;
    }
    sDestroyerBusy = false;
  }

  T* object;
  // 32 bits, not 16: one shared value (a type word, the empty token value)
  // can be held by more than 65,535 handles in a large script, and a count
  // that wrapped would free it under its holders.
  uint32_t refCount;
  uint16_t lockCount;
  uint16_t deleteWhenUnlocked;
  RefRep* next;

  static inline RefRep* sDestroyList = nullptr;
  // Set while a Destroy further up the stack is emptying the list.
  static inline bool sDestroyerBusy = false;
};

template <class T>
class Ref {
public:
  Ref() : rep(nullptr), locked(0) {}
  // Lets 0 stand for a null handle, in returns and arguments.
  Ref(int) : rep(nullptr), locked(0) {}
  Ref(Ref const& other) : rep(nullptr), locked(0) { Bind(other.rep); }
  ~Ref() { Unbind(); }

  // The new record is counted before the old one is let go, so that
  // `node = node->next` survives the release of `node`'s object.
  Ref& operator=(Ref const& other) {
    RefRep<T>* incoming = other.rep;
    if (incoming) ++incoming->refCount;
    Unbind();
    rep = incoming;
    locked = 0;
    return *this;
  }

  // Takes ownership of `object`, which may be null.
  void BindNewObject(T* object) {
    Unbind();
    Bind(new RefRep<T>(object));
  }

  void Bind(RefRep<T>* r) {
    rep = r;
    if (rep) ++rep->refCount;
    locked = 0;
  }

  void Unbind() {
    if (!rep) return;
    Unlock();
    RefRep<T>* old = rep;
    rep = nullptr;
    if (--old->refCount == 0) old->Destroy();
  }

  void Unlock() {
    if (!locked) return;
    locked = 0;
    if (!rep) return;
    --rep->lockCount;
    if (rep->deleteWhenUnlocked && rep->lockCount == 0) {
      delete rep->object;
      rep->object = nullptr;
    }
  }

  T* operator->() const { return rep->object; }
  // The object, or null for a null or emptied handle.
  T* Get() const { return rep ? rep->object : nullptr; }

  // Explicit, so that `ref == 0` means the handle comparison below.
  explicit operator bool() const { return rep && rep->object; }
  bool operator==(Ref const& other) const { return rep == other.rep; }
  bool operator!=(Ref const& other) const { return rep != other.rep; }

  RefRep<T>* rep;
  // Whether this handle holds one of the record's locks.
  uint16_t locked;
};
