#include "codebuild/Arrays.h"

#include "codebuild/Placeholders.h"
#include "frontend/Lexer.h"

Ref<SemBase> UnsizedArrayBound() { return SemValue::New(CurrentTLP()->GetLiteral(-1L), nullptr); }

// Array building has not landed: these return placeholders.

Ref<SemBase> CompileRedim(Ref<SemBase> array, Ref<SemBase> bounds) {
  return TraceRoutine("CompileRedim", PlaceholderStatement(), {array, bounds});
}

Ref<SemBase> CompileArrayFactory(Ref<SemBase> elements, IRDataType type) {
  return TraceRoutine("CompileArrayFactory", PlaceholderValue(), {elements}, {(long)type.GetMainType()});
}
