#include "ir/LabelUtilities.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Each patch replaces the target of the unconditional jumps to its label
// and nothing else: not a conditional jump, not a label or a store that
// holds the same literal, not a colour whose payload holds the same number.
TEST(LabelPatch, EachPatchTouchesOnlyJumpsToItsLabel) {
  InitTacConstants();
  TacLiteralPool pool;
  TacAddr const* exit = pool.GetLiteral(kUnresolvedExitTarget);
  TacAddr const* ret = pool.GetLiteral(kFunctionReturnTarget);
  TacAddr const* five = pool.GetLiteral(5L);
  TacAddr const* colour = pool.GetLiteral(IRValue::SInt32(-1), IRDataType(kTypeColor));
  TacAddr const* target = pool.GetLiteral(40L);
  struct Case {
    char const* what;
    void (*patch)(TacBlock&, TacAddr const*);
    std::vector<int> patched;  // the lines whose c becomes the target
  } const cases[] = {
      {"exit", [](TacBlock& b, TacAddr const* t) { PatchExitLabels(b, t); }, {0, 7}},
      {"return", [](TacBlock& b, TacAddr const* t) { PatchReturnLabels(b, t); }, {1}},
      {"label 5", [](TacBlock& b, TacAddr const* t) { PatchLabels(b, 5, t); }, {2}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    TacBlock block;
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, exit, 0);
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, ret, 1);
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, five, 2);
    block.AddLine(tac_IfEQI, gTacOne, gTacOne, exit, 3);
    block.AddLine(tac_Label, exit, nilTacAddr, nilTacAddr, 4);
    block.AddLine(tac_Store, exit, nilTacAddr, exit, 5);
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, colour, 6);
    block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, exit, 7);
    c.patch(block, target);
    std::vector<int> patched;
    for (TacLine* l = block.first; l; l = l->next) {
      if (l->c == target) patched.push_back((int)l->line);
      if (l->line == 4 || l->line == 5) {
        EXPECT_EQ(l->a, exit);
      }
    }
    EXPECT_EQ(patched, c.patched);
  }
  TacBlock empty;
  PatchExitLabels(empty, target);
  EXPECT_TRUE(empty.IsEmpty());
}

}  // namespace
