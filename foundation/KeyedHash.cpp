#include "foundation/KeyedHash.h"

#include <sys/random.h>
#include <unistd.h>

#include <ctime>

#include "foundation/Utility.h"

namespace {

struct HashKey {
  uint32_t k0, k1;
};

// From the kernel's random source; should that fail (a sandbox without the
// call), the clock, the process id and where the stack sits still make a key
// that a script written in advance cannot know.
HashKey DrawKey() {
  HashKey key{};
  if (getrandom(&key, sizeof key, GRND_NONBLOCK) == (ssize_t)sizeof key) return key;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  key.k0 ^= (uint32_t)now.tv_nsec ^ ((uint32_t)getpid() << 16);
  key.k1 ^= (uint32_t)now.tv_sec ^ (uint32_t)(uintptr_t)&key;
  return key;
}

HashKey const& Key() {
  static HashKey const sKey = DrawKey();
  return sKey;
}

inline uint32_t Rotl(uint32_t x, int b) { return (x << b) | (x >> (32 - b)); }

// The hash's state: four words mixed by rounds of add, rotate and xor.
struct SipState {
  uint32_t v0, v1, v2, v3;

  explicit SipState(HashKey const& key)
      : v0(key.k0), v1(key.k1), v2(0x6c796765u ^ key.k0), v3(0x74656462u ^ key.k1) {}

  void Round() {
    v0 += v1;
    v1 = Rotl(v1, 5);
    v1 ^= v0;
    v0 = Rotl(v0, 16);
    v2 += v3;
    v3 = Rotl(v3, 8);
    v3 ^= v2;
    v0 += v3;
    v3 = Rotl(v3, 7);
    v3 ^= v0;
    v2 += v1;
    v1 = Rotl(v1, 13);
    v1 ^= v2;
    v2 = Rotl(v2, 16);
  }

  // One compression round per word.
  void Absorb(uint32_t m) {
    v3 ^= m;
    Round();
    v0 ^= m;
  }

  // Three finalisation rounds.
  uint32_t Finish() {
    v2 ^= 0xff;
    Round();
    Round();
    Round();
    return v1 ^ v3;
  }
};

template <bool kFold>
uint32_t HashOf(void const* data, long length) {
  auto const* p = static_cast<unsigned char const*>(data);
  auto byte = [p](long i) -> uint32_t { return kFold ? upperMap[p[i]] : p[i]; };
  SipState s(Key());
  long whole = length & ~3L;
  for (long i = 0; i < whole; i += 4)
    s.Absorb(byte(i) | byte(i + 1) << 8 | byte(i + 2) << 16 | byte(i + 3) << 24);
  // The last word carries the length in its top byte and the 0-3 bytes left.
  uint32_t last = (uint32_t)length << 24;
  for (long i = whole; i < length; ++i) last |= byte(i) << (8 * (i - whole));
  s.Absorb(last);
  return s.Finish();
}

}  // namespace

uint32_t KeyedHash(void const* bytes, long length) { return HashOf<false>(bytes, length); }

uint32_t KeyedHashFoldingCase(void const* bytes, long length) {
  return HashOf<true>(bytes, length);
}

uint32_t KeyedHash(uint32_t word) {
  unsigned char bytes[4] = {(unsigned char)word, (unsigned char)(word >> 8),
                            (unsigned char)(word >> 16), (unsigned char)(word >> 24)};
  return HashOf<false>(bytes, 4);
}
