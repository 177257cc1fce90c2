#include "ir/LabelUtilities.h"

#include <gtest/gtest.h>

namespace {

class LabelPatchTest : public ::testing::Test {
protected:
  void SetUp() override {
    InitTacConstants();
    exitLit = pool.GetLiteral(kUnresolvedExitTarget);
    returnLit = pool.GetLiteral(kFunctionReturnTarget);
    ordinary = pool.GetLiteral(5L);
    target = pool.GetLiteral(40L);
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, exitLit, 1);        // 0
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, returnLit, 2);      // 1
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, ordinary, 3);       // 2
    block.AddLine(tac_IfEQI, gTacOne, gTacOne, exitLit, 4);             // 3
    block.AddLine(tac_Label, exitLit, nilTacAddr, nilTacAddr, 5);       // 4
    block.AddLine(tac_Store, exitLit, nilTacAddr, exitLit, 6);          // 5
    // A Color of -1 is no label, though its payload holds -1.
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr,
                  pool.GetLiteral(IRValue::SInt32(-1), IRDataType(kTypeColor)), 7);  // 6
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, exitLit, 8);        // 7
  }

  TacLine* Line(int n) {
    TacLine* l = block.first;
    while (n-- > 0) l = l->next;
    return l;
  }

  TacLiteralPool pool;
  TacBlock block;
  TacAddr const* exitLit;
  TacAddr const* returnLit;
  TacAddr const* ordinary;
  TacAddr const* target;
};

TEST_F(LabelPatchTest, ExitPatchTouchesOnlyJumpsToTheExitPlaceholder) {
  TacAddr const* colour = Line(6)->c;
  PatchExitLabels(block, target);
  EXPECT_EQ(Line(0)->c, target);
  EXPECT_EQ(Line(1)->c, returnLit);
  EXPECT_EQ(Line(2)->c, ordinary);
  EXPECT_EQ(Line(3)->c, exitLit);  // conditional jumps never carry a placeholder
  EXPECT_EQ(Line(4)->a, exitLit);
  EXPECT_EQ(Line(5)->a, exitLit);
  EXPECT_EQ(Line(5)->c, exitLit);
  EXPECT_EQ(Line(6)->c, colour);
  EXPECT_EQ(Line(7)->c, target);
}

TEST_F(LabelPatchTest, ReturnPatchTouchesOnlyJumpsToTheReturnPlaceholder) {
  PatchReturnLabels(block, target);
  EXPECT_EQ(Line(0)->c, exitLit);
  EXPECT_EQ(Line(1)->c, target);
  EXPECT_EQ(Line(2)->c, ordinary);
  EXPECT_EQ(Line(7)->c, exitLit);
}

TEST_F(LabelPatchTest, AnyLabelNumberCanBePatched) {
  PatchLabels(block, 5, target);
  EXPECT_EQ(Line(2)->c, target);
  EXPECT_EQ(Line(0)->c, exitLit);
  EXPECT_EQ(Line(1)->c, returnLit);
}

TEST(LabelPatch, EmptyBlockIsFine) {
  TacBlock empty;
  PatchExitLabels(empty, nullptr);
  EXPECT_TRUE(empty.IsEmpty());
}

}  // namespace
