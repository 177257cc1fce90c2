// Resolving placeholder labels. Only tac_Jump lines are patched: the
// conditional jumps never carry a placeholder.
#pragma once

#include "ir/ThreeAddressCode.h"

// In every tac_Jump line of `block` whose target is the Integer label
// `label`, the target becomes `target`. Every other line stays as it is.
void PatchLabels(TacBlock& block, long label, TacAddr const* target);
// Jumps out of the enclosing construct go to `target`.
void PatchExitLabels(TacBlock& block, TacAddr const* target);
// Jumps that return from the function go to `target`.
void PatchReturnLabels(TacBlock& block, TacAddr const* target);
