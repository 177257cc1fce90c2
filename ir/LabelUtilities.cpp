#include "ir/LabelUtilities.h"


static bool IsLabel(TacAddr const* target, long label) {
  return target && target->IsConstant() && target->type.GetMainType() == kTypeInteger &&
         target->GetValue().sint32 == label;
}

void PatchLabels(TacBlock& block, long label, TacAddr const* target) {
  for (TacLine* line = block.first; line; line = line->next) {
    if (line->opcode == tac_Jump && IsLabel(line->c, label)) line->c = target;
  }
}

void PatchExitLabels(TacBlock& block, TacAddr const* target) {
  PatchLabels(block, kUnresolvedExitTarget, target);
}

void PatchReturnLabels(TacBlock& block, TacAddr const* target) {
  PatchLabels(block, kFunctionReturnTarget, target);
}

TacAddr const* NewLabel() {
  TacLiteralPool* pool = CurrentTLP();
  return pool->GetLiteral((long)pool->NewLabel());
}
