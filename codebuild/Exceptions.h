// Exception statements: Try blocks, their handlers and Finally, Raise, and
// the handlers every method and the main program end with.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// The variable of a handler, `Catch e` or `Catch e As T`: takes the type of
// `type`, or RuntimeException when `type` is null, and is declared in the
// current scope (a static in the main program). A handler may reuse the
// name of an earlier handler's variable. Returns the declared identifier.
Ref<SemBase> DeclareExceptionVariable(Ref<SemBase> name, Ref<SemBase> type);
// The main program's handler variable of that name, or null.
Ref<SemBase> FindCatchVariable(string const& name);
// One handler; `name` is DeclareExceptionVariable's result or null, `type`
// the written type or null.
Ref<SemBase> CompileExceptionBlock(Ref<SemBase> code, Ref<SemBase> name, Ref<SemBase> type);
Ref<SemBase> CompileTry();
Ref<SemBase> CompileEndTry(Ref<SemBase> head, Ref<SemBase> rest);
Ref<SemBase> CompileRaiseException(Ref<SemBase> value);
// The handler a method ends with: `code` (the release of its locals) runs
// on the way out, normal or exceptional, and an exception goes on to the
// caller. `caught` is an object temporary of the method that its prolog
// clears.
Ref<SemBase> MakeDefaultExceptionHandler(Ref<SemBase> code, Ref<SemBase> caught);
// The main program's handler of last resort, in front of its global
// finalisation: an exception that reaches it is reported as unhandled, and
// the program finishes from there.
Ref<SemBase> MakeUnhandledExceptionHandler(Ref<SemBase> caught);
