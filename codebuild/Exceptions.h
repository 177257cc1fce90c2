// Exception statements: Try blocks, their handlers and Finally, and Raise.
//
// Until exception building lands, the routines report NotYetSupported and
// hand back the placeholders of codebuild/Placeholders.h;
// DeclareExceptionVariable is final.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// The variable of a handler, `Catch e` or `Catch e As T`: takes the type of
// `type`, or RuntimeException when `type` is null, and is declared in the
// current scope. Returns the declared identifier.
Ref<SemBase> DeclareExceptionVariable(Ref<SemBase> name, Ref<SemBase> type);
// One handler; `name` is DeclareExceptionVariable's result or null, `type`
// the written type or null.
Ref<SemBase> CompileExceptionBlock(Ref<SemBase> code, Ref<SemBase> name, Ref<SemBase> type);
Ref<SemBase> CompileTry();
Ref<SemBase> CompileEndTry(Ref<SemBase> head, Ref<SemBase> rest);
Ref<SemBase> CompileRaiseException(Ref<SemBase> value);
