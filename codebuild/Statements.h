// What every simple statement gets around its own code: the debugger's
// entry call and the release of its temporaries.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// In debug mode, puts the debugger's call in front of a statement's code.
Ref<SemBase> CompileDebugEntry(Ref<SemBase> code);
// Releases the temporaries of one simple statement at its end.
Ref<SemBase> FilterTemporaryVariables(Ref<SemBase> code);
