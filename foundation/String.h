// The one string type of the engine, in the compiler and in the run-time
// library alike. A `string` is a single pointer to a shared, counted
// `stringStorage`; a null pointer is the empty string. Script `String` values
// at run time are the same records, so the record layout below is a contract
// with generated code and is pinned by static_asserts.
//
// Invariants:
// - A text of length 0 is always null storage: no record exists for it.
// - Buffer of a text of n bytes: n + 2 bytes. Byte 0 is a Pascal length
//   (n, capped at 255); the text starts at byte 1; byte n + 1 is a NUL, so
//   buffer + 1 is always a C string. Text may contain NULs: mLength rules.
// - Storage is shared freely; anyone who changes bytes goes through
//   MutableChar, which unshares.
// - Equality ignores case (through upperMap) and respects encodings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "foundation/TextEncodingUtil.h"

struct stringStorage {
  uint32_t mRefCount;
  char* mBuffer;
  // Kept so the buffer can be handed back to OSfreelen with its size.
  uint32_t mAllocLength;
  uint32_t mLength;
  uint32_t mEncoding;

  void AddReference() { ++mRefCount; }
  // The members below take the record as an argument because a null record
  // is the empty string and must be accepted; calling through null is not C++.
  // RemoveReference frees the buffer and the record when the count reaches 0.
  static void RemoveReference(stringStorage* s);
  static long Length(stringStorage const* s) { return s ? (long)s->mLength : 0; }
  static char const* CString(stringStorage const* s) { return s ? s->mBuffer + 1 : ""; }
  static unsigned char const* PString(stringStorage const* s);
};

static_assert(std::is_standard_layout_v<stringStorage>);
static_assert(offsetof(stringStorage, mRefCount) == 0);
static_assert(offsetof(stringStorage, mBuffer) == 4);
static_assert(offsetof(stringStorage, mAllocLength) == 8);
static_assert(offsetof(stringStorage, mLength) == 12);
static_assert(offsetof(stringStorage, mEncoding) == 16);
static_assert(sizeof(stringStorage) == 20);

// Offsets that generated code uses to reach a string record's fields.
constexpr int32_t kStringRefCountOffset = offsetof(stringStorage, mRefCount);
constexpr int32_t kStringBufferOffset = offsetof(stringStorage, mBuffer);
constexpr int32_t kStringAllocLengthOffset = offsetof(stringStorage, mAllocLength);
constexpr int32_t kStringLengthOffset = offsetof(stringStorage, mLength);
constexpr int32_t kStringEncodingOffset = offsetof(stringStorage, mEncoding);
constexpr int32_t kStringStorageSize = sizeof(stringStorage);

// Pascal view of the empty string: 256 zero bytes.
extern unsigned char const kNullPString[256];
// Wide view of the empty string: one zero unit.
extern wchar_t const kNullWString[1];

class string {
public:
  string() : mStorage(nullptr) {}
  string(char const* text);
  explicit string(char c);
  string(string const& other);
  string(stringStorage* storage);
  ~string();
  string& operator=(string const& other);

  // Replaces the contents with `length` bytes of `data`; with a null `data`
  // the bytes are left for the caller to fill. Tagged kEncodingUnknown.
  void ConstructFromBuffer(char const* data, int length);
  void ConstructFromBuffer(stringStorage* storage);
  // Stores the low 16 bits of each unit, then two zero bytes; tagged UTF-16.
  void ConstructFromWString(wchar_t const* data, int count);
  // Takes over a record that already holds a reference for this string.
  void AdoptReference(stringStorage* storage);
  // Hands the record to a new owner with a reference of its own; null stays null.
  stringStorage* ExtractStringStorage() const;
  // Drops the old storage and makes a record for `length` bytes, count 1,
  // tagged kEncodingUnknown; a length below 1 or a failed allocation leaves null.
  void AllocateBuffer(int length);

  stringStorage* Storage() const { return mStorage; }
  long Length() const { return mStorage ? (long)mStorage->mLength : 0; }
  char const* CString() const { return mStorage ? mStorage->mBuffer + 1 : ""; }
  unsigned char const* PString() const;
  wchar_t const* WString() const;
  unsigned long Encoding() const { return mStorage ? mStorage->mEncoding : kEncodingASCII; }
  void SetEncoding(unsigned long encoding);

  // Read-only pointers into the text, without bounds checks.
  char const* operator[](int index) const;
  char const* operator[](long index) const;
  // A writable byte: unshares a shared record first, so no other string
  // sees the change.
  char* MutableChar(int index);

  // Share this string's storage; no conversion is made whatever the tag.
  string GetUTF8String() const { return *this; }
  string GetUTF16String() const { return *this; }

  bool ContainsOnlyASCII() const;

  // -1, 0 or 1. Compare ignores case through upperMap; both convert copies to
  // a common encoding first when the tags differ and neither is unknown.
  int Compare(string const& other) const;
  int CompareWithCase(string const& other) const;
  int CompareWithCase(char const* other) const;

  bool operator==(string const& other) const { return Compare(other) == 0; }
  bool operator!=(string const& other) const { return Compare(other) != 0; }
  bool operator==(char const* other) const;
  bool operator!=(char const* other) const { return !(*this == other); }

  string& operator+=(string const& rhs);
  string& operator+=(char const* rhs);

private:
  stringStorage* mStorage;
};

string operator+(string const& a, string const& b);
string operator+(string const& a, char c);

// Byte-wise substring helpers with 0-based positions; results keep the
// source's tag and share its storage when they would be identical.
string left(string s, int n);
string right(string const& s, int n);
string mid(string const& s, int start);
string mid(string const& s, int start, int count);
string ltrim(string s);
string rtrim(string s);
string trim(string s);

// A one-character string for `code`, tagged `encoding`.
string UnicodeChar(unsigned long code, unsigned long encoding);

// Writes the UTF-8 form of `code` to `out` (at least 16 bytes) and returns
// the number of bytes written.
int UTF8Encode(unsigned long code, unsigned char* out);
// Moves *cursor forward by `count` characters, never past `end`.
void AdvanceUTF8(unsigned char** cursor, unsigned char const* end, int count);

// The string critical section: empty, as the engine runs on one thread.
void InitializeStringCriticalSection();
void deleteStringCriticalSection();
void EnterStringCriticalSection();
void LeaveStringCriticalSection();
