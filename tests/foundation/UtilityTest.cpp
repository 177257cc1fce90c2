#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "foundation/String.h"
#include "foundation/Utility.h"

namespace {

TEST(SmallBlocks, SizeClassBoundary) {
  long before = gTotalAllocLen;
  char* small = OSalloclen(252, 0);
  ASSERT_NE(small, nullptr);
  EXPECT_EQ(gTotalAllocLen, before + 252);  // counted: from a list or a chunk
  char* large = OSalloclen(253, 0);
  ASSERT_NE(large, nullptr);
  EXPECT_EQ(gTotalAllocLen, before + 252);  // not counted: straight from malloc
  std::memset(small, 1, 252);
  std::memset(large, 2, 253);
  OSfreelen(large, 253);
  OSfreelen(small, 252);
  EXPECT_EQ(gTotalAllocLen, before);
  EXPECT_EQ(OSalloclen(0, 0), nullptr);
  EXPECT_EQ(OSalloclen(-5, 0), nullptr);
  OSfreelen(nullptr, 12);
}

#if !defined(KV_DIRECT_ALLOC)
TEST(SmallBlocks, FreedBlockIsReusedByItsClass) {
  char* a = OSalloclen(10, 0);  // class 3: sizes 9 to 12
  OSfreelen(a, 10);
  EXPECT_EQ(OSalloclen(12, 0), a);
  OSfreelen(a, 12);
  char* other = OSalloclen(13, 0);  // class 4 does not take it
  EXPECT_NE(other, a);
  OSfreelen(other, 13);
}

TEST(SmallBlocks, ChunksAreCarvedWithoutOverlap) {
  std::vector<char*> blocks;
  for (int i = 0; i < 200; i++) {  // more than one 8192-byte chunk of 248-byte blocks
    char* p = OSalloclen(248, 0);
    std::memset(p, i, 248);
    blocks.push_back(p);
  }
  for (int i = 0; i < 200; i++)
    EXPECT_EQ((unsigned char)blocks[i][247], (unsigned char)i) << i;
  for (char* p : blocks)
    OSfreelen(p, 248);
}
#endif

TEST(Bytes, MemcpyHandlesOverlap) {
  char buf[] = "abcdefgh";
  umemcpy(buf + 2, buf, 5);
  EXPECT_STREQ(buf, "ababcdeh");
  char buf2[] = "abcdefgh";
  umemcpy(buf2, buf2 + 3, 5);
  EXPECT_STREQ(buf2, "defghfgh");
  char buf3[] = "abcdefgh";
  umemmove(buf3 + 1, buf3, 6);
  EXPECT_STREQ(buf3, "aabcdefh");
  umemcpy(buf3, "zz", 0);
  EXPECT_EQ(buf3[0], 'a');
}

TEST(Bytes, SearchWithUmemcmp) {
  char const hay[] = "aaab_aab";
  EXPECT_EQ(umemcmp(hay, "aab", 3, 8), 1);  // a partial match restarts from the next byte
  EXPECT_EQ(umemcmp(hay, "_aab", 4, 8), 4);
  EXPECT_EQ(umemcmp(hay, "abc", 3, 8), -1);
  EXPECT_EQ(umemcmp(hay, "aab", 3, 2), -1);
}

TEST(Bytes, CStringsAndCase) {
  char buf[32] = "ab";
  char* cursor = buf;
  EXPECT_EQ(ustrcat(&cursor, "cd"), buf + 4);
  EXPECT_STREQ(buf, "abcd");
  EXPECT_EQ(ustrlen(nullptr), 0);
  EXPECT_EQ(ustrcmpi("abc", "ABC"), 0);
  EXPECT_EQ(ustrcmp("abc", "ABC"), 1);
  EXPECT_EQ(ustrcmpi(nullptr, "a"), -1);
  EXPECT_EQ(ustrcmpi("a", nullptr), 1);
  EXPECT_EQ(ustrcmpi(nullptr, nullptr), 0);
  EXPECT_EQ(ustrcmpi("ab", "abc"), -1);
  EXPECT_EQ(ustrcmpi("\x8E", "\x83"), 0);  // Mac Roman e acute, lower and upper case
  EXPECT_EQ(ustrcmp("ab", 2, "ab\0", 3), -1);
  // Case folding: a-z and nothing else below 128; folding twice changes nothing.
  for (int c = 0; c < 256; c++) {
    int up = utoupper((unsigned char)c);
    EXPECT_EQ(utoupper((unsigned char)up), up) << c;
    if (c < 128) {
      EXPECT_EQ(up, c >= 'a' && c <= 'z' ? c - 32 : c) << c;
    }
  }
}

TEST(Numbers, ParsedAndAsText) {
  EXPECT_EQ(uatol("  -12x"), -12);
  EXPECT_EQ(uatol("+7"), 7);
  EXPECT_EQ(uatol("\t5"), 0);  // only blanks are skipped
  EXPECT_EQ(uatol("12345", 3), 123);
  EXPECT_DOUBLE_EQ(uatod("2.5e2"), 250.0);
  EXPECT_STREQ(ultohexa(0xDEADBEEF).CString(), "DEADBEEF");
  EXPECT_STREQ(ultoa(-42).CString(), "-42");
  EXPECT_STREQ(udtoa(-0.0, false).CString(), "0");
  EXPECT_STREQ(udtoa(1.5, false).CString(), "1.5");
  EXPECT_STREQ(udtoa(1.5, true).CString(), "1.500000e+00");
}

}  // namespace
