// The intrinsic list: each run-time service that code building and the back
// ends call by number, with the link name the linker resolves it by.
//
// Invariants:
// - Numbers are fixed: the code generators and the compiled calls use them,
//   so an entry never moves. Numbers 0 and 44 are empty names.
// - The list is made once, on first use, and never changes.
#pragma once

#include "foundation/SimpleVector.h"
#include "foundation/string.h"

// Entries of the list; the compiler's intrinsic table has one per number.
constexpr int kIntrinsicFunctionCount = 57;

// The link names by intrinsic number.
SimpleVector<string> const& IntrinsicFunctionNames();
// Whether intrinsic `index` can raise a script exception; false outside the list.
bool IntrinsicFunctionRaisesExceptions(int index);
