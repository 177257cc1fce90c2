// The small allocator for counted sizes, byte and C-string helpers, and the
// callback sorts. This layer stands below `string`: nothing here uses it in
// an inner loop. Names begin with `u` or `OS` to stay clear of the standard
// library's.
//
// Small-block invariant: a block from OSalloclen(n) must be given back with
// OSfreelen(p, n) and the same n; the size class is (n + 3) / 4 words.
#pragma once

#include <cstddef>
#include <cstdint>

class string;

// Passed along to say what an allocator should do on failure; none looks at it.
typedef int MemFullHandling;

// Size classes 1..63 are served from free lists; 64 words (253 bytes) and up go to malloc.
constexpr int kSmallBlockClasses = 64;
// Bytes taken from malloc at a time to carve small blocks from.
constexpr int kSmallBlockChunk = 8192;

extern char* gAlloclentable[kSmallBlockClasses];
extern char* gAlloclenBuf;
extern int gAlloclenBufLen;
// Sum of the sizes of live small blocks; a leak check compares it before and after.
extern long gTotalAllocLen;

char* OSalloc(int size, MemFullHandling handling);
void OSfree(char* p);
// Null for a size below 1. The block is not cleared.
char* OSalloclen(int size, MemFullHandling handling);
// Null is ignored; `size` must be what was asked of OSalloclen.
void OSfreelen(char* p, int size);
char* OSstrdup(char const* s);

void umemcpy(void* dst, void const* src, int n);
void umemmove(void* dst, void const* src, int n);
void umemzero(void* p, int n);
void umemset(void* p, char c, int n);
// Position of needle in hay, or -1.
long umemcmp(void const* hay, void const* needle, long needleLength, long hayLength);

int ustrlen(char const* s);
char* ustrcpy(char* dst, char const* src);
// Appends src at *dst and returns the terminator's address.
char* ustrcat(char** dst, char const* src);
// Copies a Pascal string, length byte included.
unsigned char* pstrcpy(unsigned char* dst, unsigned char const* src);

extern unsigned char const upperMap[256];
inline unsigned char utoupper(unsigned char c) { return upperMap[c]; }

// C-string compares: a null pointer is less than any other; two nulls are equal.
int ustrcmp(char const* a, char const* b);
int ustrcmpi(char const* a, char const* b);
// Length-aware compares: byte by byte over the shorter length, unsigned; then
// the longer text is the greater. Results are -1, 0 or 1.
int ustrcmp(char const* a, long lengthA, char const* b, long lengthB);
int ustrcmpi(char const* a, long lengthA, char const* b, long lengthB);

long uatol(char const* s);
long uatol(char const* s, int length);
double uatod(char const* s);

string ultoa(long value);
string udtoa(double value, bool exponent);
string ultohexa(unsigned long value);

string FourCharCodeToString(unsigned long code);
unsigned long StringToFourCharCode(string s);
string WriteLongAsBits(unsigned long value);
unsigned long ReadLongAsBits(unsigned char const* bytes);
string WriteShortAsBits(unsigned short value);
unsigned short ReadShortAsBits(unsigned char const* bytes);

// Sorts positions 0..count-1 through the callbacks (quick sort with a heap
// stack of pending ranges, selection for ranges of five or fewer).
void sorter(int count, bool (*less)(long a, long b), void (*swap)(long a, long b));
void sub_sorter(long lo, long hi, bool (*less)(long a, long b), void (*swap)(long a, long b));

typedef int sortDirection;
// Stable partition sort of lo..hi; a direction of 0 sorts nothing.
void orderSorter(int lo, int hi, int (*compare)(int a, int b, sortDirection d),
                 void (*swap)(int a, int b, sortDirection d), sortDirection d);

// Byte-vector queries; one process-wide instance made at first use.
class VectorStuffImp {
public:
  virtual ~VectorStuffImp() = default;
  virtual bool ContainsOnlyLowBytes(unsigned char const* bytes, long length) = 0;
};

class VectorStuffScalarImp : public VectorStuffImp {
public:
  bool ContainsOnlyLowBytes(unsigned char const* bytes, long length) override;
};

VectorStuffImp* VectorStuff();
