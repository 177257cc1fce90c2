#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "backend/CodeStorage.h"

namespace {

Ref<DataBlock> NewBlock(bool bigEndian) {
  Ref<DataBlock> b;
  b.BindNewObject(new DataBlock(bigEndian));
  return b;
}

Ref<FunctionBlock> NewFunction(bool bigEndian = false) {
  Ref<FunctionBlock> b;
  b.BindNewObject(new FunctionBlock(bigEndian));
  return b;
}

Ref<DataBlock> BlockOf(std::vector<int> const& bytes) {
  Ref<DataBlock> b = NewBlock(false);
  for (int x : bytes) b->Append8(x);
  return b;
}

std::vector<int> BytesOf(DataBlock const& b) {
  std::vector<int> out;
  for (unsigned i = 0; i < b.Length(); ++i) out.push_back((unsigned char)b.Buffer()[i]);
  return out;
}

std::vector<std::pair<std::string, int>> ImportsOf(FunctionBlock const& f) {
  std::vector<std::pair<std::string, int>> out;
  for (unsigned long i = 0; i < f.imports.size(); ++i) {
    out.push_back({f.imports[i].name.CString(), f.imports[i].offset});
  }
  return out;
}

// ---------------------------------------------------------------------------
// Byte orders

TEST(DataBlock, ByteOrderIsTheBlocksNotTheMachines) {
  struct {
    bool bigEndian;
    std::vector<int> bytes;
  } const kCases[] = {
      {true, {0x11, 0x22, 0x33, 0x44, 0xAB, 0xCD, 0xEF}},
      {false, {0x44, 0x33, 0x22, 0x11, 0xCD, 0xAB, 0xEF}},
  };
  for (auto const& c : kCases) {
    SCOPED_TRACE(c.bigEndian ? "big-endian" : "little-endian");
    Ref<DataBlock> b = NewBlock(c.bigEndian);
    b->Append32(0x11223344);
    b->Append16(0xABCD);
    b->Append8(0xEF);
    EXPECT_EQ(BytesOf(*b.Get()), c.bytes);
    EXPECT_EQ(b->Get32(0), 0x11223344u);
    EXPECT_EQ(b->Get16(4), 0xABCDu);
    EXPECT_EQ(b->Get8(6), 0xEFu);
    // Values wider than the field keep their low bytes only.
    b->Set16(4, 0x12345678);
    EXPECT_EQ(b->Get16(4), 0x5678u);
    b->Set32(0, 0xFFFFFFFF);
    EXPECT_EQ(b->Get32(0), 0xFFFFFFFFu);
  }
}

// ---------------------------------------------------------------------------
// Fields at the end of the allocation

TEST(DataBlock, FieldsCrossingTheCapacityReadZeroAndAreNotWritten) {
  Ref<DataBlock> b = NewBlock(false);
  for (int i = 1; i <= 8; ++i) b->Append8(i);
  uint32_t cap = b->capacity;
  ASSERT_GE(cap, 12u);
  // Inside the capacity, even past the length, is fair.
  b->Set32(cap - 4, 0xAABBCCDD);
  EXPECT_EQ(b->Get32(cap - 4), 0xAABBCCDDu);
  EXPECT_EQ(b->Get32(cap - 3), 0u);
  b->Set32(cap - 3, 0x01020304);
  EXPECT_EQ(b->Get32(cap - 4), 0xAABBCCDDu);
  EXPECT_EQ(b->Get16(cap - 1), 0u);
  EXPECT_EQ(b->Get8(cap), 0u);
  b->Set8(cap, 0x55);
  b->Set16(cap - 1, 0x5555);
  EXPECT_EQ(b->Get8(cap - 1), 0xAAu);
  // An offset near the top of the range must not wrap round into the buffer.
  EXPECT_EQ(b->Get32(0xFFFFFFFE), 0u);
  b->Set32(0xFFFFFFFE, 0x12345678);
  EXPECT_EQ(BytesOf(*b.Get()), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}));

  Ref<DataBlock> empty = NewBlock(true);
  EXPECT_EQ(empty->Get8(0), 0u);
  empty->Set8(0, 1);
  EXPECT_EQ(empty->Length(), 0u);
}

// ---------------------------------------------------------------------------
// Appending

TEST(DataBlock, AppendCopiesBytesWhateverTheOtherOrder) {
  Ref<DataBlock> little = NewBlock(false);
  little->Append16(0x0102);
  Ref<DataBlock> big = NewBlock(true);
  big->Append16(0x0102);
  little->Append(big);
  EXPECT_EQ(BytesOf(*little.Get()), (std::vector<int>{2, 1, 1, 2}));
  little->Append(NewBlock(true));
  little->Append(Ref<DataBlock>());
  little->Append("ab", 0);
  EXPECT_EQ(little->Length(), 4u);
  // A block appended to itself doubles, even though growing moves its bytes.
  little->Append(little);
  EXPECT_EQ(BytesOf(*little.Get()), (std::vector<int>{2, 1, 1, 2, 2, 1, 1, 2}));
  little->Append(little->Buffer() + 1, 2);
  EXPECT_EQ(BytesOf(*little.Get()), (std::vector<int>{2, 1, 1, 2, 2, 1, 1, 2, 1, 1}));
}

// ---------------------------------------------------------------------------
// Function blocks and their fix-ups

TEST(FunctionBlock, AppendMovesTheOthersImportsBehindThisCode) {
  Ref<FunctionBlock> body = NewFunction();
  body->MarkImport(Import::kDataIA32, "first", 0);
  for (int i = 0; i < 5; ++i) body->Append8(0x90);
  body->MarkImport(Import::kStringIA32, "second", 0);
  body->Append32(0);

  Ref<FunctionBlock> f = NewFunction();
  f->MarkImport(Import::kCallIA32, "own", 10);
  for (int i = 0; i < 100; ++i) f->Append8(i);
  f->Append(body);
  EXPECT_EQ(f->Length(), 109u);
  EXPECT_EQ(ImportsOf(*f.Get()), (std::vector<std::pair<std::string, int>>{
                                     {"own", 10}, {"first", 100}, {"second", 105}}));
  EXPECT_EQ(f->imports[2].type, Import::kStringIA32);
  // The source keeps its own records as they were.
  EXPECT_EQ(ImportsOf(*body.Get()), (std::vector<std::pair<std::string, int>>{
                                        {"first", 0}, {"second", 5}}));

  // Joined with itself, each record appears twice, the copies shifted once.
  body->Append(body);
  EXPECT_EQ(ImportsOf(*body.Get()), (std::vector<std::pair<std::string, int>>{
                                        {"first", 0}, {"second", 5}, {"first", 9}, {"second", 14}}));
}

TEST(FunctionBlock, RefusesPlainBytes) {
  Ref<FunctionBlock> f = NewFunction();
  f->Append8(1);
  f->Append(BlockOf({2, 3}));
  EXPECT_EQ(f->Length(), 1u);
  // Raw bytes still go in through the pointer form.
  f->Append("\x02", 1);
  EXPECT_EQ(BytesOf(*f.Get()), (std::vector<int>{1, 2}));
  // A plain block takes a function's bytes, but it has nowhere for imports.
  Ref<DataBlock> plain = NewBlock(false);
  plain->Append(f);
  EXPECT_EQ(BytesOf(*plain.Get()), (std::vector<int>{1, 2}));
}

// ---------------------------------------------------------------------------
// Modules

TEST(CodeModule, BlocksFollowTheFamilysByteOrder) {
  CodeModule m;
  EXPECT_FALSE(m.MakeFunctionBlock());
  EXPECT_FALSE(m.MakeDataBlock());
  m.family = CodeModule::kFamilyIA32;
  EXPECT_FALSE(m.MakeFunctionBlock()->bigEndian);
  EXPECT_FALSE(m.MakeDataBlock()->bigEndian);
  m.family = CodeModule::kFamilyPPC;
  EXPECT_TRUE(m.MakeFunctionBlock()->bigEndian);
  EXPECT_TRUE(m.MakeDataBlock()->bigEndian);
  m.family = (CodeModule::Family)3;
  EXPECT_FALSE(m.MakeFunctionBlock());
}

// ---------------------------------------------------------------------------
// Line index

TEST(CodeOffsetToLineIndex, KeepsTheFirstOffsetOfEachRun) {
  CodeOffsetToLineIndex index;
  EXPECT_EQ(index.LookupLine(0), -1);
  index.AddEntry(0, 10);
  index.AddEntry(8, 10);
  index.AddEntry(12, 11);
  EXPECT_EQ(index.entries.size(), 2u);
  struct {
    int offset, line;
  } const kLookups[] = {{-1, -1}, {0, 10}, {8, 10}, {11, 10}, {12, 11}, {1000, 11}};
  for (auto const& l : kLookups) EXPECT_EQ(index.LookupLine(l.offset), l.line) << l.offset;

  // A line may come back later: only an unbroken run collapses.
  index.AddEntry(20, 10);
  EXPECT_EQ(index.entries.size(), 3u);
  EXPECT_EQ(index.LookupLine(19), 11);
  EXPECT_EQ(index.LookupLine(20), 10);

  CodeOffsetToLineIndex late;
  late.AddEntry(16, 3);
  EXPECT_EQ(late.LookupLine(15), -1);
}

}  // namespace
