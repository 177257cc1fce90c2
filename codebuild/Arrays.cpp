#include "codebuild/Arrays.h"

#include "codebuild/Placeholders.h"
#include "frontend/Lexer.h"

Ref<SemBase> UnsizedArrayBound() { return SemValue::New(CurrentTLP()->GetLiteral(-1L), nullptr); }

// Array building has not landed: these return placeholders.

Ref<SemBase> CompileRedim(Ref<SemBase> array, Ref<SemBase> bounds) {
  return PendingRoutine("CompileRedim", "Redim", nullptr, PlaceholderStatement(), {array, bounds});
}

Ref<SemBase> CompileArrayFactory(Ref<SemBase> elements, IRDataType type) {
  return PendingRoutine("CompileArrayFactory", "Array", nullptr, PlaceholderValue(), {elements}, {(long)type.GetMainType()});
}
