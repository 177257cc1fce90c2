#include "codebuild/Finalization.h"

#include "codebuild/Placeholders.h"

// Variable lifetime has not landed: nothing is released yet.
void FinalizeVariable(SymbolID, Ref<SemBase> code) { TraceRoutine("FinalizeVariable", Ref<SemBase>(), {code}); }
