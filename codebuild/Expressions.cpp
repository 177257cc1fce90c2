#include "codebuild/Expressions.h"

#include "codebuild/Placeholders.h"
#include "diag/CompileError.h"
#include "frontend/Lexer.h"

// Expression building has not landed: these routines return placeholders
// and check nothing (no types, no folding, no operator methods).

Ref<SemBase> CompileBinop(Ref<SemBase> left, unsigned long op, Ref<SemBase> right) {
  return TraceRoutine("CompileBinop", PlaceholderValue(), {left, right}, {(long)op});
}

Ref<SemBase> CompileAnd(Ref<SemBase> left, Ref<SemBase> right) {
  return TraceRoutine("CompileAnd", PlaceholderValue(), {left, right});
}

Ref<SemBase> CompileOr(Ref<SemBase> left, Ref<SemBase> right) {
  return TraceRoutine("CompileOr", PlaceholderValue(), {left, right});
}

Ref<SemBase> CompileNot(Ref<SemBase> value) {
  return TraceRoutine("CompileNot", PlaceholderValue(), {value});
}

Ref<SemBase> CompileNegation(Ref<SemBase> value) {
  return TraceRoutine("CompileNegation", PlaceholderValue(), {value});
}

Ref<SemBase> CompileStringLiteral(Ref<SemBase> literal) { return literal; }

Ref<SemBase> CompileUnterminatedString(Ref<SemBase> literal) {
  Error(UnterminatedString, literal ? literal->Location() : SourceLocation(current_line()));
  return literal;
}

Ref<SemBase> CompileNilLiteral() {
  return SemValue::New(CurrentTLP()->GetLiteral(kIRZeroValue, IRDataType(string(""))), nullptr);
}

Ref<SemBase> CompileNew(Ref<SemBase> classIdentifier, Ref<SemBase> args, bool callConstructor) {
  return TraceRoutine("CompileNew", PlaceholderValue(), {classIdentifier, args}, {callConstructor ? 1 : 0});
}

Ref<SemBase> CompileIsA(Ref<SemBase> value, Ref<SemBase> classIdentifier) {
  return TraceRoutine("CompileIsA", PlaceholderValue(), {value, classIdentifier});
}

Ref<SemBase> CompileIs(Ref<SemBase> left, Ref<SemBase> right) {
  return TraceRoutine("CompileIs", PlaceholderValue(), {left, right});
}

Ref<SemBase> CompileSelf() { return TraceRoutine("CompileSelf", PlaceholderValue(), {}); }

Ref<SemBase> CompileMe() { return TraceRoutine("CompileMe", PlaceholderValue(), {}); }

Ref<SemBase> CompileSuper() { return TraceRoutine("CompileSuper", PlaceholderValue(), {}); }

Ref<SemBase> CompileClassReference(Ref<SemBase> identifier) {
  return TraceRoutine("CompileClassReference", PlaceholderValue(), {identifier});
}
