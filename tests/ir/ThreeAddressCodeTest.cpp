#include "ir/ThreeAddressCode.h"

#include <gtest/gtest.h>

#include "frontend/CompileScope.h"
#include "frontend/SrcContext.h"

namespace {

class TacTest : public ::testing::Test {
protected:
  void SetUp() override { InitTacConstants(); }
};

// Integers and strings with the same bytes and tag are one literal; the
// tag, the case, and the type (a colour is no integer) make another.
TEST_F(TacTest, PoolSharesIntegersAndExactStringsOnly) {
  TacLiteralPool pool;
  EXPECT_EQ(pool.GetLiteral(7L), pool.GetLiteral(7L));
  EXPECT_NE(pool.GetLiteral(7L), pool.GetLiteral(8L));
  EXPECT_EQ(pool.GetLiteral(IRValue::SInt32(7), IRDataType(kTypeInteger)), pool.GetLiteral(7L));
  EXPECT_EQ(pool.GetLiteral(string("x")), pool.GetLiteral(string("x")));
  EXPECT_NE(pool.GetLiteral(string("x")), pool.GetLiteral(string("X")));
  string utf8("x");
  utf8.SetEncoding(kEncodingUTF8);
  string roman("x");
  roman.SetEncoding(kEncodingMacRoman);
  EXPECT_NE(pool.GetLiteral(utf8), pool.GetLiteral(roman));
  EXPECT_EQ(pool.GetLiteral(string()), pool.GetLiteral(string("")));
  TacAddr const* colour = pool.GetLiteral(IRValue::SInt32(0xFF), IRDataType(kTypeColor));
  EXPECT_NE(colour, pool.GetLiteral(0xFFL));
  EXPECT_EQ(colour->type.GetMainType(), kTypeColor);
  // Booleans are the shared constants, whatever nonzero value stands for True.
  EXPECT_EQ(pool.GetLiteral(IRValue::SInt32(-1), IRDataType(kTypeBoolean)), gTacTrue);
  EXPECT_EQ(pool.GetLiteral(IRValue::SInt32(0), IRDataType(kTypeBoolean)), gTacFalse);
}

int Count(TacBlock const& block) {
  int n = 0;
  TacBlockIterator it(&block);
  while (it.Next()) ++n;
  EXPECT_FALSE(it.Next()) << "an iterator at the end stays there";
  return n;
}

TEST_F(TacTest, AppendSplicesLinesAndLeavesTheSourceReusable) {
  TacBlock target, source, empty;
  EXPECT_EQ(Count(empty), 0);
  target.AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 1);
  TacLine* onlyLine = target.first;
  target.Append(empty);
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
  empty.Append(source);
  EXPECT_EQ(Count(empty), 1);
  EXPECT_EQ(empty.first, empty.last);

  // A line added by copy is a line of its own, not a link into another block.
  TacBlock copy;
  copy.AddLine(*target.first);
  EXPECT_NE(copy.first, target.first);
  EXPECT_EQ(copy.first->next, nullptr);
  EXPECT_EQ(Count(target), 3);
}

TEST_F(TacTest, NewLabelGivesFreshIntegerLiteralsOfTheCurrentContext) {
  CompileScope scope;
  SrcContext& context = *scope.Context();
  TacAddr const* l1 = NewLabel();
  TacAddr const* l2 = NewLabel();
  EXPECT_NE(l1->GetValue().sint32, l2->GetValue().sint32);
  EXPECT_GE(l1->GetValue().sint32, 0);
  // A label is the context's literal of its number.
  EXPECT_EQ(context.GetLiteral((long)l2->GetValue().sint32), l2);
}

}  // namespace
