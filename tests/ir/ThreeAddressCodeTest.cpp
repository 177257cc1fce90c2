#include "ir/ThreeAddressCode.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "frontend/CompileScope.h"
#include "frontend/SrcContext.h"

namespace {

class TacTest : public ::testing::Test {
protected:
  void SetUp() override { InitTacConstants(); }
};

TEST(TacOpcodes, PrintedNamesAreFiveCharactersWithTheirBlanks) {
  std::set<std::string> seen;
  for (int op = 0; op < kTacOpcodeCount; ++op) {
    std::string name = TacLine((TacOpcode)op, nullptr, nullptr, nullptr, 0).toString().CString();
    EXPECT_EQ(name.size(), 5u) << op;
    EXPECT_TRUE(seen.insert(name).second) << "duplicate printed name " << name;
  }
  // The blanks are part of the names, and the numbering is fixed.
  struct Case {
    TacOpcode op;
    int number;
    char const* text;
  } const cases[] = {
      {tac_Varptr, 3, " Ref "}, {tac_ModI, 24, " Mod "},  {tac_EQD, 28, " EQd "},
      {tac_Label, 38, "Label"}, {tac_BeginTry, 58, "Try  "}, {tac_Stop, 60, "Stop "},
  };
  for (auto const& c : cases) {
    EXPECT_EQ((int)c.op, c.number) << c.text;
    EXPECT_STREQ(kOpMnemonics[c.op], c.text);
  }
}

TEST_F(TacTest, SharedConstantsHaveTheirTypesAndValues) {
  ConstAddr const* before = nilTacAddr;
  InitTacConstants();
  EXPECT_EQ(nilTacAddr, before);  // made once only
  EXPECT_TRUE(nilTacAddr->type.Null());
  EXPECT_EQ(gTacTrue->type.GetMainType(), kTypeBoolean);
  EXPECT_EQ(gTacTrue->GetValue().sint32, 1);
  EXPECT_EQ(gTacFalse->GetValue().sint32, 0);
  EXPECT_EQ(gTacOne->type.GetMainType(), kTypeInteger);
  EXPECT_EQ(gTacFloatZero->type.GetMainType(), kTypeDouble);
  EXPECT_EQ(gTacFloatZero->GetValue().real64, 0.0);
}

TEST_F(TacTest, IntrinsicAddressesAreMadeOnceEach) {
  TacAddr const* pow = IntrinsicTacAddr(9);
  EXPECT_EQ(IntrinsicTacAddr(9), pow);
  EXPECT_NE(IntrinsicTacAddr(10), pow);
  EXPECT_EQ(pow->GetValue().sint32, 9);
  EXPECT_EQ(pow->type.GetMainType(), kTypeInteger);
  EXPECT_EQ(IntrinsicTacAddr(56)->GetValue().sint32, 56);
}

TEST_F(TacTest, PoolSharesIntegersAndExactStringsOnly) {
  TacLiteralPool pool;
  EXPECT_EQ(pool.GetLiteral(7L), pool.GetLiteral(7L));
  EXPECT_NE(pool.GetLiteral(7L), pool.GetLiteral(8L));
  EXPECT_EQ(pool.GetLiteral(IRValue::SInt32(7), IRDataType(kTypeInteger)), pool.GetLiteral(7L));
  EXPECT_EQ(pool.GetLiteral(string("x")), pool.GetLiteral(string("x")));
  EXPECT_NE(pool.GetLiteral(string("x")), pool.GetLiteral(string("X")));
  IRValue s;
  s.text = string("x");
  EXPECT_EQ(pool.GetLiteral(s, IRDataType(kTypeString)), pool.GetLiteral(string("x")));
  // The encoding tag is part of a string literal's identity.
  string utf8("x");
  utf8.SetEncoding(kEncodingUTF8);
  string roman("x");
  roman.SetEncoding(kEncodingMacRoman);
  EXPECT_NE(pool.GetLiteral(utf8), pool.GetLiteral(roman));
  EXPECT_EQ(pool.GetLiteral(string()), pool.GetLiteral(string("")));
}

TEST_F(TacTest, PoolNeverSharesFloatsOrColours) {
  TacLiteralPool pool;
  TacAddr const* d1 = pool.GetLiteral(IRValue::Real64(1.5), IRDataType(kTypeDouble));
  TacAddr const* d2 = pool.GetLiteral(IRValue::Real64(1.5), IRDataType(kTypeDouble));
  EXPECT_NE(d1, d2);
  EXPECT_EQ(d1->GetValue().real64, 1.5);
  EXPECT_EQ(d1->type.GetMainType(), kTypeDouble);
  TacAddr const* c1 = pool.GetLiteral(IRValue::SInt32(0xFF), IRDataType(kTypeColor));
  EXPECT_NE(c1, pool.GetLiteral(IRValue::SInt32(0xFF), IRDataType(kTypeColor)));
  EXPECT_NE(c1, pool.GetLiteral(0xFFL));
  EXPECT_EQ(pool.owned.size(), 5u);
}

TEST_F(TacTest, PoolBooleansAreTheSharedConstantsAndAllocateNothing) {
  TacLiteralPool pool;
  EXPECT_EQ(pool.GetLiteral(IRValue::SInt32(1), IRDataType(kTypeBoolean)), gTacTrue);
  EXPECT_EQ(pool.GetLiteral(IRValue::SInt32(-1), IRDataType(kTypeBoolean)), gTacTrue);
  EXPECT_EQ(pool.GetLiteral(IRValue::SInt32(0), IRDataType(kTypeBoolean)), gTacFalse);
  EXPECT_EQ(pool.owned.size(), 0u);
}

int Count(TacBlock const& block) {
  int n = 0;
  TacBlockIterator it(&block);
  while (it.Next()) ++n;
  return n;
}

TEST_F(TacTest, IteratorOnAnEmptyBlockFindsNothing) {
  TacBlock empty;
  TacBlockIterator it(&empty);
  EXPECT_EQ(it.Value(), nullptr);
  EXPECT_FALSE(it.Next());
  EXPECT_FALSE(it.Next());
}

TEST_F(TacTest, IteratorWalksInOrderAndStopsForGood) {
  TacBlock block;
  block.AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 1);
  block.AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr, 2);
  TacBlockIterator it(&block);
  ASSERT_TRUE(it.Next());
  EXPECT_EQ(it.Value()->opcode, tac_Noop);
  ASSERT_TRUE(it.Next());
  EXPECT_EQ(it.Value()->line, 2);
  EXPECT_FALSE(it.Next());
  EXPECT_FALSE(it.Next());
}

TEST_F(TacTest, AppendMovesLinesAndLeavesTheSourceReusable) {
  TacBlock target, source, empty;
  target.AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 1);
  TacLine* onlyLine = target.first;
  target.Append(empty);
  EXPECT_EQ(target.first, onlyLine);
  EXPECT_EQ(target.last, onlyLine);
  EXPECT_EQ(onlyLine->next, nullptr);

  source.AddLine(tac_Debugout, nilTacAddr, nilTacAddr, nilTacAddr, 2);
  source.AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr, 3);
  TacLine* moved = source.first;
  target.Append(source);
  EXPECT_TRUE(source.IsEmpty());
  EXPECT_EQ(source.last, nullptr);
  EXPECT_EQ(onlyLine->next, moved);  // spliced, not copied
  EXPECT_EQ(target.last->opcode, tac_Stop);
  EXPECT_EQ(Count(target), 3);

  source.AddLine(tac_Return, nilTacAddr, nilTacAddr, nilTacAddr, 4);
  EXPECT_EQ(Count(source), 1);
  empty.Append(source);
  EXPECT_EQ(Count(empty), 1);
  EXPECT_EQ(empty.first, empty.last);
}

TEST_F(TacTest, AddingACopiedLineCutsItsLink) {
  TacBlock a, b;
  a.AddLine(tac_AddI, gTacOne, gTacZero, nilTacAddr, 5);
  a.AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr, 6);
  TacLine copy(*a.first);
  EXPECT_EQ(copy.next, a.first->next);  // the copy constructor copies all six fields
  b.AddLine(*a.first);
  EXPECT_NE(b.first, a.first);
  EXPECT_EQ(b.first->next, nullptr);
  EXPECT_EQ(b.first->a, gTacOne);
  EXPECT_EQ(b.first->line, 5);
  EXPECT_EQ(Count(a), 2);
}

TEST_F(TacTest, NewLabelGivesFreshIntegerLiteralsOfTheCurrentContext) {
  CompileScope scope;
  SrcContext& context = *scope.Context();
  TacAddr const* l1 = NewLabel();
  TacAddr const* l2 = NewLabel();
  EXPECT_NE(l1, l2);
  EXPECT_EQ(l1->type.GetMainType(), kTypeInteger);
  EXPECT_NE(l1->GetValue().sint32, l2->GetValue().sint32);
  EXPECT_GE(l1->GetValue().sint32, 0);
  // A label is the context's literal of its number.
  EXPECT_EQ(context.GetLiteral((long)l2->GetValue().sint32), l2);
}

}  // namespace
