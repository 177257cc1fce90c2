#include "codebuild/Exceptions.h"

#include "codebuild/Placeholders.h"
#include "semantic/SymbolUtilities.h"

Ref<SemBase> DeclareExceptionVariable(Ref<SemBase> name, Ref<SemBase> type) {
  if (!name) return name;
  name->SetType(type ? type->GetType() : IRDataType(string("RuntimeException")));
  return AddDeclaredName(name);
}

// Exception building has not landed: the routines below return
// placeholders and lay down no try markers or handlers.

Ref<SemBase> CompileExceptionBlock(Ref<SemBase> code, Ref<SemBase> name, Ref<SemBase> type) {
  return PendingRoutine("CompileExceptionBlock", "Catch", nullptr, PlaceholderStatement(), {code, name, type});
}

Ref<SemBase> CompileTry() { return TraceRoutine("CompileTry", PlaceholderStatement(), {}); }

Ref<SemBase> CompileEndTry(Ref<SemBase> head, Ref<SemBase> rest) {
  return PendingRoutine("CompileEndTry", "Try", nullptr, PlaceholderStatement(), {head, rest});
}

Ref<SemBase> CompileRaiseException(Ref<SemBase> value) {
  return PendingRoutine("CompileRaiseException", "Raise", nullptr, PlaceholderStatement(), {value});
}
