// Flow control: If, Select Case, the loops, Exit, GoTo and labels. An
// opening routine (CompileIf, CompileForLoop, ...) runs when the head of its
// construct has been read and returns the header that the closing routine
// takes back.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

Ref<SemBase> CompileIf(Ref<SemBase> condition);
// `header` is CompileIf's; `elseIfs` and `elseCode` may be null. A one-line
// If passes a null header and elseIfs.
Ref<SemBase> CompileEndIf(Ref<SemBase> condition, Ref<SemBase> header, Ref<SemBase> thenCode,
                          Ref<SemBase> elseIfs, Ref<SemBase> elseCode);
Ref<SemBase> CompileElseIf(Ref<SemBase> condition, Ref<SemBase> code);
// A block If without Then: reports MissingThen at the line in hand and
// yields the null handle that an absent Then stands for.
Ref<SemBase> ReportMissingThen();

Ref<SemBase> CompileSelectCase(Ref<SemBase> value);
Ref<SemBase> CompileCase(Ref<SemBase> conditions, Ref<SemBase> header, Ref<SemBase> code);
Ref<SemBase> CompileCaseElse(Ref<SemBase> header, Ref<SemBase> code);
Ref<SemBase> CompileEndSelect(Ref<SemBase> head, Ref<SemBase> cases);
// The value under test of the innermost open Select Case.
Ref<SemBase> PeekSelectExpr();
// `Case low To high`: the Select's value >= low, And, <= high; the lower
// bound's comparison is built first.
Ref<SemBase> CompileCaseRange(Ref<SemBase> low, Ref<SemBase> high);

Ref<SemBase> CompileForLoop(Ref<SemBase> name, Ref<SemBase> start);
// `downTo` is 0 for To, 1 for DownTo; `step` and `nextName` may be null.
Ref<SemBase> CompileNext(Ref<SemBase> name, Ref<SemBase> header, int downTo, Ref<SemBase> limit,
                         Ref<SemBase> step, Ref<SemBase> body, Ref<SemBase> nextName);
Ref<SemBase> CompileForEachLoop(Ref<SemBase> name, Ref<SemBase> array);
Ref<SemBase> CompileNextEachLoop(Ref<SemBase> name, Ref<SemBase> array, Ref<SemBase> header,
                                 Ref<SemBase> body, Ref<SemBase> nextName);
Ref<SemBase> CompileWhileLoop(Ref<SemBase> condition);
Ref<SemBase> CompileWend(Ref<SemBase> condition, Ref<SemBase> header, Ref<SemBase> body);
// Either condition may be null: `Do Until`, `Loop Until`, or neither.
Ref<SemBase> CompileDoLoop(Ref<SemBase> topCondition);
Ref<SemBase> CompileLoopUntil(Ref<SemBase> topCondition, Ref<SemBase> header, Ref<SemBase> body,
                              Ref<SemBase> bottomCondition);

Ref<SemBase> CompileExit();
Ref<SemBase> CompileGoto(Ref<SemBase> name);
Ref<SemBase> CompileLabel(Ref<SemBase> name);
