// Name lookup's two entries, which the grammar calls for every name, until
// name lookup lands.

#include "codebuild/Placeholders.h"
#include "codebuild/NameLookup.h"
#include "diag/CompileError.h"

// ---------------------------------------------------------------------------
// Name lookup

// Name lookup has not landed: a name yields a placeholder, a value where
// one is needed (mode 0) and a statement otherwise; nothing is reported.
Ref<SemBase> CompileLookup(Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                           CompileErrorCode defaultError, bool isCallStatement) {
  Ref<SemBase> result = mode == kResultNeeded ? PlaceholderValue() : PlaceholderStatement();
  (void)isCallStatement;
  return TraceRoutine("CompileLookup", result, {name, args, value}, {mode, defaultError});
}

Ref<SemBase> CompileScopeLookup(Ref<SemBase> left, Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value,
                                FunctionResultMode mode) {
  Ref<SemBase> result = mode == kResultNeeded ? PlaceholderValue() : PlaceholderStatement();
  return TraceRoutine("CompileScopeLookup", result, {left, name, args, value}, {mode});
}
