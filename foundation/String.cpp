#include "foundation/String.h"

#include <cstring>

#include "foundation/Utility.h"

unsigned char const kNullPString[256] = {};
wchar_t const kNullWString[1] = {0};

// Targets of pointers handed out for the empty string: the read-only view and
// MutableChar's private byte, which a caller may scribble on harmlessly.
static char const sNullChar = 0;
static char sScratchChar;

void InitializeStringCriticalSection() {}
void deleteStringCriticalSection() {}
void EnterStringCriticalSection() {}
void LeaveStringCriticalSection() {}

void stringStorage::RemoveReference(stringStorage* s) {
  if (!s)
    return;
  EnterStringCriticalSection();
  bool dead = --s->mRefCount == 0;
  LeaveStringCriticalSection();
  if (dead) {
    OSfreelen(s->mBuffer, (int)s->mAllocLength);
    OSfreelen(reinterpret_cast<char*>(s), sizeof(stringStorage));
  }
}

unsigned char const* stringStorage::PString(stringStorage const* s) {
  return s ? reinterpret_cast<unsigned char const*>(s->mBuffer) : kNullPString;
}

string::string(char const* text) : mStorage(nullptr) {
  int n = ustrlen(text);
  if (n > 0) {
    ConstructFromBuffer(text, n);
    SetEncoding(kEncodingASCII);
  }
}

string::string(char c) : mStorage(nullptr) {
  ConstructFromBuffer(&c, 1);
  SetEncoding(kEncodingASCII);
}

string::string(string const& other) : mStorage(other.mStorage) {
  if (mStorage)
    mStorage->AddReference();
}

string::string(stringStorage* storage) : mStorage(storage) {
  if (mStorage)
    mStorage->AddReference();
}

string::~string() { stringStorage::RemoveReference(mStorage); }

string& string::operator=(string const& other) {
  if (other.mStorage == mStorage)
    return *this;
  if (other.mStorage)
    other.mStorage->AddReference();
  EnterStringCriticalSection();
  stringStorage* old = mStorage;
  mStorage = other.mStorage;
  LeaveStringCriticalSection();
  stringStorage::RemoveReference(old);
  return *this;
}

void string::AllocateBuffer(int length) {
  stringStorage* old = mStorage;
  mStorage = nullptr;
  stringStorage::RemoveReference(old);
  if (length < 1)
    return;
  char* buffer = OSalloclen(length + 2, 1);
  if (!buffer)
    return;
  auto* s = reinterpret_cast<stringStorage*>(OSalloclen(sizeof(stringStorage), 0));
  if (!s) {
    OSfreelen(buffer, length + 2);
    return;
  }
  s->mRefCount = 1;
  s->mBuffer = buffer;
  s->mAllocLength = length + 2;
  s->mLength = length;
  s->mEncoding = kEncodingUnknown;
  buffer[0] = (char)(length < 256 ? length : 255);
  buffer[length] = 0;
  buffer[length + 1] = 0;
  mStorage = s;
}

void string::ConstructFromBuffer(char const* data, int length) {
  // `data` may point into the storage being replaced: keep it alive until copied.
  stringStorage* old = mStorage;
  if (old)
    old->AddReference();
  AllocateBuffer(length);
  if (mStorage && data)
    std::memcpy(mStorage->mBuffer + 1, data, length);
  stringStorage::RemoveReference(old);
}

void string::ConstructFromBuffer(stringStorage* storage) {
  ConstructFromBuffer(storage ? storage->mBuffer + 1 : nullptr, (int)stringStorage::Length(storage));
}

void string::ConstructFromWString(wchar_t const* data, int count) {
  if (count < 1) {
    AllocateBuffer(0);
    return;
  }
  // Two more bytes than the text so that a wide view ends in a zero unit.
  AllocateBuffer(2 * count + 2);
  if (!mStorage)
    return;
  char* text = mStorage->mBuffer + 1;
  for (int i = 0; i < count; i++) {
    text[2 * i] = (char)(data[i] & 0xFF);
    text[2 * i + 1] = (char)((data[i] >> 8) & 0xFF);
  }
  text[2 * count] = 0;
  text[2 * count + 1] = 0;
  mStorage->mLength = 2 * count;
  mStorage->mBuffer[0] = (char)(2 * count < 256 ? 2 * count : 255);
  mStorage->mEncoding = kEncodingUTF16;
}

void string::AdoptReference(stringStorage* storage) {
  // Also right when `storage` is the record already held: the adopted
  // reference replaces ours.
  stringStorage* old = mStorage;
  mStorage = storage;
  stringStorage::RemoveReference(old);
}

stringStorage* string::ExtractStringStorage() const {
  if (mStorage)
    mStorage->AddReference();
  return mStorage;
}

unsigned char const* string::PString() const { return stringStorage::PString(mStorage); }

wchar_t const* string::WString() const {
  if (mStorage && mStorage->mEncoding == kEncodingUTF16)
    return reinterpret_cast<wchar_t const*>(mStorage->mBuffer + 1);
  return kNullWString;
}

void string::SetEncoding(unsigned long encoding) {
  if (mStorage)
    mStorage->mEncoding = (uint32_t)encoding;
}

char const* string::operator[](int index) const {
  return mStorage ? mStorage->mBuffer + 1 + index : &sNullChar;
}

char const* string::operator[](long index) const {
  return mStorage ? mStorage->mBuffer + 1 + index : &sNullChar;
}

char* string::MutableChar(int index) {
  if (!mStorage) {
    sScratchChar = 0;
    return &sScratchChar;
  }
  if (mStorage->mRefCount != 1)
    ConstructFromBuffer(mStorage);
  return mStorage->mBuffer + 1 + index;
}

bool string::ContainsOnlyASCII() const {
  if (!mStorage)
    return true;
  if (IsWideEncoding(mStorage->mEncoding))
    return false;
  return VectorStuff()->ContainsOnlyLowBytes(reinterpret_cast<unsigned char const*>(CString()),
                                              Length());
}

static int CompareStrings(string const& a, string const& b, bool withCase) {
  if (a.Storage() == b.Storage())
    return 0;
  string x = a, y = b;
  unsigned long tagA = x.Encoding(), tagB = y.Encoding();
  if (tagA != tagB && tagA != kEncodingUnknown && tagB != kEncodingUnknown)
    ConvertToSameEncoding(&x, &y);
  return withCase ? ustrcmp(x.CString(), x.Length(), y.CString(), y.Length())
                  : ustrcmpi(x.CString(), x.Length(), y.CString(), y.Length());
}

int string::Compare(string const& other) const { return CompareStrings(*this, other, false); }

int string::CompareWithCase(string const& other) const { return CompareStrings(*this, other, true); }

int string::CompareWithCase(char const* other) const { return ustrcmp(CString(), other); }

bool string::operator==(char const* other) const { return ustrcmpi(CString(), other) == 0; }

// The bytes of a and b joined in a new record tagged `encoding`.
static string Joined(string const& a, char const* b, long lengthB, unsigned long encoding) {
  long lengthA = a.Length();
  string result;
  result.ConstructFromBuffer(nullptr, (int)(lengthA + lengthB));
  if (result.Storage()) {
    // The record is new and ours alone: MutableChar copies nothing.
    std::memcpy(result.MutableChar(0), a.CString(), lengthA);
    std::memcpy(result.MutableChar((int)lengthA), b, lengthB);
    result.SetEncoding(encoding);
  }
  return result;
}

string operator+(string const& a, string const& b) {
  if (b.Length() == 0)
    return a;
  if (a.Length() == 0)
    return b;
  if (a.Encoding() == b.Encoding())
    return Joined(a, b.CString(), b.Length(), a.Encoding());
  string x = a, y = b;
  unsigned long tag = ConvertToSameEncoding(&x, &y);
  return Joined(x, y.CString(), y.Length(), tag);
}

string operator+(string const& a, char c) {
  unsigned long tag = kEncodingUnknown;
  if ((unsigned char)c < 128)
    tag = a.Length() ? CommonEncoding(a.Encoding(), kEncodingASCII, 0) : kEncodingASCII;
  return Joined(a, &c, 1, tag);
}

string& string::operator+=(string const& rhs) {
  if (rhs.Length() == 0)
    return *this;
  if (mStorage && Encoding() != rhs.Encoding())
    return *this = *this + rhs;
  unsigned long tag = mStorage ? Encoding() : rhs.Encoding();
  return *this = Joined(*this, rhs.CString(), rhs.Length(), tag);
}

string& string::operator+=(char const* rhs) {
  int n = ustrlen(rhs);
  if (!mStorage) {
    ConstructFromBuffer(rhs, n);
    return *this;
  }
  if (n > 0)
    *this = Joined(*this, rhs, n, Encoding());
  return *this;
}

// A new record of `count` bytes of s from `start`, with s's tag.
static string Slice(string const& s, long start, long count) {
  string result;
  result.ConstructFromBuffer(s.CString() + start, (int)count);
  result.SetEncoding(s.Encoding());
  return result;
}

string left(string s, int n) {
  if (n >= s.Length())
    return s;
  return n > 0 ? Slice(s, 0, n) : string();
}

string right(string const& s, int n) {
  if (n >= s.Length())
    return s;
  return n > 0 ? Slice(s, s.Length() - n, n) : string();
}

string mid(string const& s, int start) {
  if (start < 0)
    start = 0;
  if (start >= s.Length())
    return string();
  if (start == 0)
    return s;
  return Slice(s, start, s.Length() - start);
}

string mid(string const& s, int start, int count) {
  if (start < 0) {
    count += start;
    start = 0;
  }
  if (start >= s.Length() || count <= 0)
    return string();
  if (start == 0 && count == s.Length())
    return s;
  long available = s.Length() - start;
  return Slice(s, start, count < available ? count : available);
}

static bool IsBlank(char c) { return c == ' ' || c == '\t'; }

string ltrim(string s) {
  long n = s.Length(), i = 0;
  char const* text = s.CString();
  while (i < n && IsBlank(text[i]))
    i++;
  return i == 0 ? s : (i == n ? string() : Slice(s, i, n - i));
}

string rtrim(string s) {
  long n = s.Length();
  char const* text = s.CString();
  while (n > 0 && IsBlank(text[n - 1]))
    n--;
  return n == s.Length() ? s : (n == 0 ? string() : Slice(s, 0, n));
}

string trim(string s) { return ltrim(rtrim(s)); }

int UTF8Encode(unsigned long code, unsigned char* out) {
  if (code < 0x80) {
    out[0] = (unsigned char)code;
    return 1;
  }
  if (code < 0x800) {
    out[0] = (unsigned char)(0xC0 | (code >> 6));
    out[1] = (unsigned char)(0x80 | (code & 0x3F));
    return 2;
  }
  if (code < 0x10000) {
    out[0] = (unsigned char)(0xE0 | (code >> 12));
    out[1] = (unsigned char)(0x80 | ((code >> 6) & 0x3F));
    out[2] = (unsigned char)(0x80 | (code & 0x3F));
    return 3;
  }
  if (code > 0x10FFFF) {
    // Beyond Unicode: the replacement character stands in.
    return UTF8Encode(0xFFFD, out);
  }
  out[0] = (unsigned char)(0xF0 | (code >> 18));
  out[1] = (unsigned char)(0x80 | ((code >> 12) & 0x3F));
  out[2] = (unsigned char)(0x80 | ((code >> 6) & 0x3F));
  out[3] = (unsigned char)(0x80 | (code & 0x3F));
  return 4;
}

void AdvanceUTF8(unsigned char** cursor, unsigned char const* end, int count) {
  unsigned char* p = *cursor;
  while (count-- > 0 && p < end) {
    // A lead byte, or a stray continuation byte counted as one character;
    // its own continuation bytes follow it.
    p++;
    while (p < end && (*p & 0xC0) == 0x80)
      p++;
  }
  *cursor = p;
}

string UnicodeChar(unsigned long code, unsigned long encoding) {
  string result;
  if (encoding == kEncodingUTF16) {
    char unit[2] = {char(code & 0xFF), char((code >> 8) & 0xFF)};
    result.ConstructFromBuffer(unit, 2);
    result.SetEncoding(kEncodingUTF16);
    return result;
  }
  unsigned char bytes[16];
  int n = UTF8Encode(code, bytes);
  result.ConstructFromBuffer(reinterpret_cast<char*>(bytes), n);
  result.SetEncoding(kEncodingUTF8);
  return encoding == kEncodingUTF8 ? result : ConvertEncoding(result, encoding);
}
