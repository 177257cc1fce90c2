// Finalization: the release of strings, objects and arrays that variables
// and temporaries hold when their scope or statement ends.
//
// Until variable lifetime lands, FinalizeVariable appends nothing.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// Appends to `code` the release of one variable.
void FinalizeVariable(SymbolID symbol, Ref<SemBase> code);
