#include "codebuild/FlowControlStructures.h"

#include "codebuild/Expressions.h"
#include "codebuild/Placeholders.h"
#include "diag/CompileError.h"

Ref<SemBase> ReportMissingThen() {
  Error(MissingThen);
  return Ref<SemBase>();
}

Ref<SemBase> CompileCaseRange(Ref<SemBase> low, Ref<SemBase> high) {
  Ref<SemBase> atLeast = CompileBinop(PeekSelectExpr(), kOpGreaterEqual, low);
  Ref<SemBase> atMost = CompileBinop(PeekSelectExpr(), kOpLessEqual, high);
  return CompileAnd(atLeast, atMost);
}

// Flow control has not landed: the routines below return placeholders; no
// condition is tested, no label made, no Select value kept.

Ref<SemBase> CompileIf(Ref<SemBase> condition) {
  return TraceRoutine("CompileIf", PlaceholderStatement(), {condition});
}

Ref<SemBase> CompileEndIf(Ref<SemBase> condition, Ref<SemBase> header, Ref<SemBase> thenCode,
                          Ref<SemBase> elseIfs, Ref<SemBase> elseCode) {
  return PendingRoutine("CompileEndIf", "If", nullptr, PlaceholderStatement(), {condition, header, thenCode, elseIfs, elseCode});
}

Ref<SemBase> CompileElseIf(Ref<SemBase> condition, Ref<SemBase> code) {
  return TraceRoutine("CompileElseIf", PlaceholderStatement(), {condition, code});
}

Ref<SemBase> CompileSelectCase(Ref<SemBase> value) {
  return TraceRoutine("CompileSelectCase", PlaceholderStatement(), {value});
}

Ref<SemBase> CompileCase(Ref<SemBase> conditions, Ref<SemBase> header, Ref<SemBase> code) {
  return TraceRoutine("CompileCase", PlaceholderStatement(), {conditions, header, code});
}

Ref<SemBase> CompileCaseElse(Ref<SemBase> header, Ref<SemBase> code) {
  return TraceRoutine("CompileCaseElse", PlaceholderStatement(), {header, code});
}

Ref<SemBase> CompileEndSelect(Ref<SemBase> head, Ref<SemBase> cases) {
  return PendingRoutine("CompileEndSelect", "Select Case", nullptr, PlaceholderStatement(), {head, cases});
}

Ref<SemBase> PeekSelectExpr() { return TraceRoutine("PeekSelectExpr", PlaceholderValue(), {}); }

Ref<SemBase> CompileForLoop(Ref<SemBase> name, Ref<SemBase> start) {
  return TraceRoutine("CompileForLoop", PlaceholderStatement(), {name, start});
}

Ref<SemBase> CompileNext(Ref<SemBase> name, Ref<SemBase> header, int downTo, Ref<SemBase> limit,
                         Ref<SemBase> step, Ref<SemBase> body, Ref<SemBase> nextName) {
  return PendingRoutine("CompileNext", "For", nullptr, PlaceholderStatement(), {name, header, limit, step, body, nextName}, {downTo});
}

Ref<SemBase> CompileForEachLoop(Ref<SemBase> name, Ref<SemBase> array) {
  return TraceRoutine("CompileForEachLoop", PlaceholderStatement(), {name, array});
}

Ref<SemBase> CompileNextEachLoop(Ref<SemBase> name, Ref<SemBase> array, Ref<SemBase> header,
                                 Ref<SemBase> body, Ref<SemBase> nextName) {
  return PendingRoutine("CompileNextEachLoop", "For Each", nullptr, PlaceholderStatement(), {name, array, header, body, nextName});
}

Ref<SemBase> CompileWhileLoop(Ref<SemBase> condition) {
  return TraceRoutine("CompileWhileLoop", PlaceholderStatement(), {condition});
}

Ref<SemBase> CompileWend(Ref<SemBase> condition, Ref<SemBase> header, Ref<SemBase> body) {
  return PendingRoutine("CompileWend", "While", nullptr, PlaceholderStatement(), {condition, header, body});
}

Ref<SemBase> CompileDoLoop(Ref<SemBase> topCondition) {
  return TraceRoutine("CompileDoLoop", PlaceholderStatement(), {topCondition});
}

Ref<SemBase> CompileLoopUntil(Ref<SemBase> topCondition, Ref<SemBase> header, Ref<SemBase> body,
                              Ref<SemBase> bottomCondition) {
  return PendingRoutine("CompileLoopUntil", "Do", nullptr, PlaceholderStatement(), {topCondition, header, body, bottomCondition});
}

Ref<SemBase> CompileExit() { return PendingRoutine("CompileExit", "Exit", nullptr, PlaceholderStatement(), {}); }

Ref<SemBase> CompileGoto(Ref<SemBase> name) {
  return PendingRoutine("CompileGoto", "GoTo", nullptr, PlaceholderStatement(), {name});
}

Ref<SemBase> CompileLabel(Ref<SemBase> name) {
  return PendingRoutine("CompileLabel", "label", nullptr, PlaceholderStatement(), {name});
}
