#include "foundation/Utility.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/KvAssert.h"
#include "foundation/String.h"

#if defined(KV_CHECKS)
void KvAssertFailed(char const* expr, char const* file, int line) {
  std::fprintf(stderr, "%s:%d: internal check failed: %s\n", file, line, expr);
  std::abort();
}
#endif

char* gAlloclentable[kSmallBlockClasses];
char* gAlloclenBuf;
int gAlloclenBufLen;
long gTotalAllocLen;

char* OSalloc(int size, MemFullHandling) { return static_cast<char*>(std::malloc(size)); }

void OSfree(char* p) { std::free(p); }

static int SizeClass(int size) { return (size + 3) / 4; }

char* OSalloclen(int size, MemFullHandling handling) {
  if (size < 1)
    return nullptr;
  int cls = SizeClass(size);
  if (cls >= kSmallBlockClasses)
    return OSalloc(size, handling);
  gTotalAllocLen += size;
#if defined(KV_DIRECT_ALLOC)
  // Sanitizer builds: every block is its own malloc so overruns and
  // use-after-free are seen; the byte count is still kept for leak checks.
  return OSalloc(size, handling);
#else
  if (char* block = gAlloclentable[cls]) {
    gAlloclentable[cls] = *reinterpret_cast<char**>(block);
    return block;
  }
  int bytes = cls * 4;
  if (gAlloclenBufLen < bytes) {
    // What is left of the old chunk is abandoned: at most 248 bytes.
    gAlloclenBuf = static_cast<char*>(std::malloc(kSmallBlockChunk));
    gAlloclenBufLen = gAlloclenBuf ? kSmallBlockChunk : 0;
    if (!gAlloclenBuf) {
      gTotalAllocLen -= size;
      return nullptr;
    }
  }
  char* block = gAlloclenBuf;
  gAlloclenBuf += bytes;
  gAlloclenBufLen -= bytes;
  return block;
#endif
}

void OSfreelen(char* p, int size) {
  if (!p)
    return;
  int cls = SizeClass(size);
  if (size < 1 || cls >= kSmallBlockClasses) {
    OSfree(p);
    return;
  }
  gTotalAllocLen -= size;
#if defined(KV_DIRECT_ALLOC)
  OSfree(p);
#else
  *reinterpret_cast<char**>(p) = gAlloclentable[cls];
  gAlloclentable[cls] = p;
#endif
}

char* OSstrdup(char const* s) {
  if (!s)
    return nullptr;
  int n = ustrlen(s) + 1;
  char* copy = OSalloc(n, 0);
  if (copy)
    std::memcpy(copy, s, n);
  return copy;
}

void umemcpy(void* dst, void const* src, int n) {
  if (n < 1)
    return;
  std::memmove(dst, src, n);
}

void umemmove(void* dst, void const* src, int n) {
  if (n < 1)
    return;
  char* tmp = OSalloclen(n, 0);
  if (!tmp)
    return;
  std::memcpy(tmp, src, n);
  std::memcpy(dst, tmp, n);
  OSfreelen(tmp, n);
}

void umemzero(void* p, int n) {
  char* b = static_cast<char*>(p);
  for (int i = 0; i < n; i++)
    b[i] = 0;
}

void umemset(void* p, char c, int n) {
  char* b = static_cast<char*>(p);
  for (int i = 0; i < n; i++)
    b[i] = c;
}

long umemcmp(void const* hay, void const* needle, long needleLength, long hayLength) {
  auto const* h = static_cast<unsigned char const*>(hay);
  auto const* n = static_cast<unsigned char const*>(needle);
  if (needleLength < 1)
    return needleLength == 0 ? 0 : -1;
  for (long start = 0; start + needleLength <= hayLength; start++) {
    long matched = 0;
    while (matched < needleLength && h[start + matched] == n[matched])
      matched++;
    if (matched == needleLength)
      return start;
  }
  return -1;
}

int ustrlen(char const* s) {
  if (!s)
    return 0;
  int n = 0;
  while (s[n])
    n++;
  return n;
}

char* ustrcpy(char* dst, char const* src) {
  char* d = dst;
  while ((*d++ = *src++) != 0) {
  }
  return dst;
}

char* ustrcat(char** dst, char const* src) {
  char* d = *dst;
  while (*d)
    d++;
  while ((*d = *src++) != 0)
    d++;
  return d;
}

unsigned char* pstrcpy(unsigned char* dst, unsigned char const* src) {
  std::memcpy(dst, src, src[0] + 1);
  return dst;
}

// Upper case of each byte in the Mac Roman code page.
unsigned char const upperMap[256] = {
    0,   1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  15,
    16,  17,  18,  19,  20,  21,  22,  23,  24,  25,  26,  27,  28,  29,  30,  31,
    32,  33,  34,  35,  36,  37,  38,  39,  40,  41,  42,  43,  44,  45,  46,  47,
    48,  49,  50,  51,  52,  53,  54,  55,  56,  57,  58,  59,  60,  61,  62,  63,
    64,  65,  66,  67,  68,  69,  70,  71,  72,  73,  74,  75,  76,  77,  78,  79,
    80,  81,  82,  83,  84,  85,  86,  87,  88,  89,  90,  91,  92,  93,  94,  95,
    96,  65,  66,  67,  68,  69,  70,  71,  72,  73,  74,  75,  76,  77,  78,  79,
    80,  81,  82,  83,  84,  85,  86,  87,  88,  89,  90,  123, 124, 125, 126, 127,
    128, 129, 130, 131, 132, 133, 134, 231, 203, 229, 128, 204, 129, 130, 131, 233,
    230, 232, 234, 237, 235, 236, 132, 238, 241, 239, 133, 205, 242, 244, 243, 134,
    160, 161, 162, 163, 164, 165, 166, 167, 168, 169, 170, 171, 172, 173, 174, 175,
    176, 177, 178, 179, 180, 181, 182, 183, 184, 185, 186, 187, 188, 189, 174, 175,
    192, 193, 194, 195, 196, 197, 198, 199, 200, 201, 202, 203, 204, 205, 206, 206,
    208, 209, 210, 211, 212, 213, 214, 215, 217, 217, 218, 219, 220, 221, 222, 223,
    224, 225, 226, 227, 228, 229, 230, 231, 232, 233, 234, 235, 236, 237, 238, 239,
    240, 241, 242, 243, 244, 73,  246, 247, 248, 249, 250, 251, 252, 253, 254, 255,
};

static int Sign(int d) { return d < 0 ? -1 : (d > 0 ? 1 : 0); }

int ustrcmp(char const* a, char const* b) {
  if (!a || !b)
    return a == b ? 0 : (a ? 1 : -1);
  auto const* x = reinterpret_cast<unsigned char const*>(a);
  auto const* y = reinterpret_cast<unsigned char const*>(b);
  while (*x && *x == *y) {
    x++;
    y++;
  }
  return Sign(int(*x) - int(*y));
}

int ustrcmpi(char const* a, char const* b) {
  if (!a || !b)
    return a == b ? 0 : (a ? 1 : -1);
  auto const* x = reinterpret_cast<unsigned char const*>(a);
  auto const* y = reinterpret_cast<unsigned char const*>(b);
  while (*x && upperMap[*x] == upperMap[*y]) {
    x++;
    y++;
  }
  return Sign(int(upperMap[*x]) - int(upperMap[*y]));
}

template <bool kFold>
static int CompareBytes(char const* a, long lengthA, char const* b, long lengthB) {
  auto const* x = reinterpret_cast<unsigned char const*>(a);
  auto const* y = reinterpret_cast<unsigned char const*>(b);
  long n = lengthA < lengthB ? lengthA : lengthB;
  for (long i = 0; i < n; i++) {
    unsigned char p = kFold ? upperMap[x[i]] : x[i];
    unsigned char q = kFold ? upperMap[y[i]] : y[i];
    if (p != q)
      return p < q ? -1 : 1;
  }
  return lengthA == lengthB ? 0 : (lengthA < lengthB ? -1 : 1);
}

int ustrcmp(char const* a, long lengthA, char const* b, long lengthB) {
  return CompareBytes<false>(a, lengthA, b, lengthB);
}

int ustrcmpi(char const* a, long lengthA, char const* b, long lengthB) {
  return CompareBytes<true>(a, lengthA, b, lengthB);
}

long uatol(char const* s, int length) {
  int i = 0;
  while (i < length && s[i] == ' ')
    i++;
  bool negative = false;
  if (i < length && (s[i] == '-' || s[i] == '+'))
    negative = s[i++] == '-';
  unsigned long value = 0;  // wraps silently: no overflow check, as documented
  while (i < length && s[i] >= '0' && s[i] <= '9')
    value = value * 10 + (s[i++] - '0');
  return negative ? -(long)value : (long)value;
}

long uatol(char const* s) { return uatol(s, ustrlen(s)); }

double uatod(char const* s) { return std::atof(s); }

static string Formatted(char const* text) {
  string s(text);
  s.SetEncoding(kEncodingASCII);
  return s;
}

string ultoa(long value) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%ld", value);
  return Formatted(buf);
}

string udtoa(double value, bool exponent) {
  if (value == 0)
    value = 0;  // a negative zero prints without its sign
  char buf[64];
  std::snprintf(buf, sizeof buf, exponent ? "%e" : "%g", value);
  return Formatted(buf);
}

string ultohexa(unsigned long value) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%08lX", value & 0xFFFFFFFFul);
  return Formatted(buf);
}

string FourCharCodeToString(unsigned long code) {
  uint32_t word = (uint32_t)code;
  string s;
  s.ConstructFromBuffer(reinterpret_cast<char const*>(&word), 4);
  s.SetEncoding(kEncodingMacRoman);
  return s;
}

unsigned long StringToFourCharCode(string s) {
  string roman = ConvertEncoding(s, kEncodingMacRoman);
  uint32_t word;
  std::memcpy(&word, roman.Length() == 4 ? roman.CString() : "????", 4);
  return word;
}

string WriteLongAsBits(unsigned long value) {
  char bytes[4] = {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
  string s;
  s.ConstructFromBuffer(bytes, 4);
  return s;
}

unsigned long ReadLongAsBits(unsigned char const* b) {
  return (unsigned long)b[0] << 24 | (unsigned long)b[1] << 16 | (unsigned long)b[2] << 8 | b[3];
}

string WriteShortAsBits(unsigned short value) {
  char bytes[2] = {char(value), char(value >> 8)};
  string s;
  s.ConstructFromBuffer(bytes, 2);
  return s;
}

unsigned short ReadShortAsBits(unsigned char const* b) { return (unsigned short)(b[0] | b[1] << 8); }

// A heap stack of pending ranges keeps the sorts' stack use flat.
struct PendingRanges {
  long* items = nullptr;
  int count = 0;
  int capacity = 0;
  ~PendingRanges() { std::free(items); }
  void Push(long lo, long hi) {
    if (count + 2 > capacity) {
      capacity = capacity ? capacity * 2 : 32;
      items = static_cast<long*>(std::realloc(items, capacity * sizeof(long)));
    }
    items[count++] = lo;
    items[count++] = hi;
  }
  bool Pop(long& lo, long& hi) {
    if (count == 0)
      return false;
    hi = items[--count];
    lo = items[--count];
    return true;
  }
};

void sorter(int count, bool (*less)(long, long), void (*swap)(long, long)) {
  if (count > 1)
    sub_sorter(0, count - 1, less, swap);
}

void sub_sorter(long lo, long hi, bool (*less)(long, long), void (*swap)(long, long)) {
  PendingRanges pending;
  do {
    while (hi - lo > 4) {
      swap((lo + hi) / 2, lo);
      long store = lo;
      for (long i = lo + 1; i <= hi; i++) {
        if (less(i, lo))
          swap(++store, i);
      }
      swap(lo, store);
      if (store + 1 < hi)
        pending.Push(store + 1, hi);
      hi = store - 1;
    }
    // Selection sort of the short rest: the greatest goes to the end.
    for (long end = hi; end > lo; end--) {
      long greatest = lo;
      for (long i = lo + 1; i <= end; i++) {
        if (less(greatest, i))
          greatest = i;
      }
      if (greatest != end)
        swap(greatest, end);
    }
  } while (pending.Pop(lo, hi));
}

void orderSorter(int lo, int hi, int (*compare)(int, int, sortDirection),
                 void (*swap)(int, int, sortDirection), sortDirection d) {
  if (d == 0)
    return;
  PendingRanges pending;
  long plo = lo, phi = hi;
  do {
    lo = (int)plo;
    hi = (int)phi;
    while (lo < hi) {
      // Bubble every element that is less than the pivot to its left through
      // adjacent swaps: equal elements never pass each other.
      int pivot = (lo + hi) / 2;
      for (int i = pivot + 1; i <= hi; i++) {
        if (compare(i, pivot, d) < 0) {
          for (int j = i; j > pivot; j--)
            swap(j - 1, j, d);
          pivot++;
        }
      }
      for (int i = pivot - 1; i >= lo; i--) {
        if (compare(i, pivot, d) > 0) {
          for (int j = i; j < pivot; j++)
            swap(j, j + 1, d);
          pivot--;
        }
      }
      if (pivot + 1 < hi)
        pending.Push(pivot + 1, hi);
      hi = pivot - 1;
    }
  } while (pending.Pop(plo, phi));
}

bool VectorStuffScalarImp::ContainsOnlyLowBytes(unsigned char const* bytes, long length) {
  for (long i = 0; i < length; i++) {
    if (bytes[i] > 127)
      return false;
  }
  return true;
}

VectorStuffImp* VectorStuff() {
  static VectorStuffScalarImp sInstance;
  return &sInstance;
}
