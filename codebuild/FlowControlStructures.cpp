#include "codebuild/FlowControlStructures.h"

#include <limits>

#include "codebuild/Arrays.h"
#include "codebuild/Assignments.h"
#include "codebuild/Conversions.h"
#include "codebuild/Expressions.h"
#include "codebuild/NameLookup.h"
#include "codebuild/Placeholders.h"
#include "codebuild/Statements.h"
#include "diag/CompileError.h"
#include "frontend/SrcContext.h"
#include "ir/Intrinsics.h"
#include "ir/LabelUtilities.h"
#include "semantic/SymbolUtilities.h"

Ref<SemBase> ReportMissingThen() {
  Error(MissingThen);
  return Ref<SemBase>();
}

Ref<SemBase> CompileCaseRange(Ref<SemBase> low, Ref<SemBase> high) {
  Ref<SemBase> atLeast = CompileBinop(PeekSelectExpr(), kOpGreaterEqual, low);
  Ref<SemBase> atMost = CompileBinop(PeekSelectExpr(), kOpLessEqual, high);
  return CompileAnd(atLeast, atMost);
}


namespace {

Ref<SemBase> NewCode(SourceLocation const* loc = nullptr) { return SemCode::New(IRDataType(), loc); }

TacAddr const* Literal(long value) { return CurrentTLP()->GetLiteral(value); }

// The condition as a Boolean, its code appended to `code` with what it held
// released before the branch that tests it. Null when there is nothing to
// test (after a reported error).
TacAddr const* TestCondition(Ref<SemBase> condition, Ref<SemBase> code) {
  if (!condition) return nullptr;
  Ref<SemBase> test = NewCode(&condition->Location());
  Ref<SemBase> v = CompileRefAs(condition, IRDataType(kTypeBoolean), test);
  code->Append(FilterTemporaryVariables(test));
  return v ? v->GetAddr() : nullptr;
}

void Branch(TacOpcode op, TacAddr const* v, TacAddr const* label, Ref<SemBase> code) {
  if (v) code->AddLine(op, v, gTacFalse, label);
}

void Jump(TacAddr const* label, Ref<SemBase> code) { code->AddLine(tac_Jump, nilTacAddr, nilTacAddr, label); }

void Place(TacAddr const* label, Ref<SemBase> code) { code->AddLine(tac_Label, label, nilTacAddr, nilTacAddr); }

void AppendCode(Ref<SemBase> code, Ref<SemBase> part) {
  if (part && part->Code()) code->Append(part);
}

// A loop's back edge lets the host's background tasks run, unless the
// script has asked for none.
void Yield(Ref<SemBase> code) {
  if (gContext && gContext->options.backgroundTasks)
    code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicVELDYieldToKV), nilTacAddr, nilTacAddr);
}

// An ElseIf's or a Case's block: when the condition holds, the code runs
// and leaves the whole If or Select (the -1 jump is patched to its end).
void GuardedBlock(Ref<SemBase> condition, Ref<SemBase> code, Ref<SemBase> into) {
  TacAddr const* next = NewLabel();
  Branch(tac_IfEQI, TestCondition(condition, into), next, into);
  AppendCode(into, code);
  Jump(Literal(kUnresolvedExitTarget), into);
  Place(next, into);
}

TacAddr const* OpenLoop() {
  TacAddr const* exit = NewLabel();
  if (gContext) gContext->exitTargets.push_back(exit);
  return exit;
}

TacAddr const* CloseLoop() {
  if (gContext && gContext->exitTargets.size() > 0) return gContext->exitTargets.pop_back();
  return NewLabel();
}

void CheckNextName(Ref<SemBase> const& name, Ref<SemBase> const& nextName) {
  if (name && nextName && name->toString() != nextName->toString()) Error(NextNameMismatch, nextName->Location());
}

Ref<SemBase> ReadVariable(Ref<SemBase> name) {
  return CompileLookup(name, Ref<SemBase>(), Ref<SemBase>(), kResultNeeded, UnknownName, false);
}

Ref<SemBase> AssignVariable(Ref<SemBase> name, Ref<SemBase> value) {
  return CompileLookup(name, Ref<SemBase>(), value, kResultStatement, UnknownName, false);
}

// The sign of a constant step: 1, -1, or 0 for zero or a step known only
// at run time.
int ConstantSign(Ref<SemBase> const& step) {
  if (!step->IsConstant()) return 0;
  SimpleDataType t = step->GetType().GetMainType();
  if (t == kTypeInteger) return step->GetValue().sint32 > 0 ? 1 : step->GetValue().sint32 < 0 ? -1 : 0;
  return 0;
}

// An Integer loop variable that the step carries past the end of the
// integers would wrap round to the other end and the loop would never end:
// the loop ends instead, after its last value, with the variable holding
// the wrapped value. The step wrapped if the new value moved against the
// step's direction; `rising` is whether a positive step makes the variable
// rise (To) or fall (DownTo).
void LeaveOnWrap(Ref<SemBase> before, Ref<SemBase> after, Ref<SemBase> step, bool rising, TacAddr const* exit,
                 Ref<SemBase> code) {
  int sign = ConstantSign(step);
  Ref<SemBase> wrapped;
  Ref<SemBase> fell = CompileBinop(after, kOpLess, before);
  Ref<SemBase> rose = CompileBinop(before, kOpLess, after);
  Ref<SemBase> up = rising ? fell : rose, down = rising ? rose : fell;
  if (sign > 0) {
    wrapped = up;
  } else if (sign < 0) {
    wrapped = down;
  } else {
    // The sign is known only at run time.
    Ref<SemBase> positive = CompileBinop(SemValue::New(gTacZero, nullptr), kOpLess, step);
    Ref<SemBase> negative = CompileBinop(step, kOpLess, SemValue::New(gTacZero, nullptr));
    wrapped = CompileOr(CompileAnd(positive, up), CompileAnd(negative, down));
  }
  TacAddr const* v = TestCondition(wrapped, code);
  Branch(tac_IfNEI, v, exit, code);
}

bool IsIntegerVariable(Ref<SemBase> const& variable) {
  IRDataType t = variable ? variable->GetType() : IRDataType();
  if (t.GetMainType() == kTypeReference) t = t.AsElement();
  return t.GetMainType() == kTypeInteger;
}

}  // namespace

Ref<SemBase> CompileIf(Ref<SemBase> condition) {
  TraceRoutine("CompileIf", Ref<SemBase>(), {condition});
  return CompileDebugEntry(NewCode(condition ? &condition->Location() : nullptr));
}

Ref<SemBase> CompileEndIf(Ref<SemBase> condition, Ref<SemBase> header, Ref<SemBase> thenCode,
                          Ref<SemBase> elseIfs, Ref<SemBase> elseCode) {
  if (!header) header = CompileDebugEntry(NewCode(condition ? &condition->Location() : nullptr));
  if (!condition) Error(ConditionNotBoolean, header->Location());
  TacAddr const* otherwise = NewLabel();
  bool hasElse = elseIfs || elseCode;
  TacAddr const* end = hasElse ? NewLabel() : otherwise;
  TacAddr const* v = TestCondition(condition, header);
  Branch(tac_IfEQI, v, otherwise, header);
  AppendCode(header, thenCode);
  if (hasElse) {
    Jump(end, header);
    Place(otherwise, header);
  }
  if (elseIfs && elseIfs->Code()) {
    PatchExitLabels(*elseIfs->Code(), end);
    header->Append(elseIfs);
  }
  AppendCode(header, elseCode);
  Place(end, header);
  return TraceRoutine("CompileEndIf", header, {condition, header, thenCode, elseIfs, elseCode});
}

Ref<SemBase> CompileElseIf(Ref<SemBase> condition, Ref<SemBase> code) {
  Ref<SemBase> result = NewCode(condition ? &condition->Location() : nullptr);
  if (!condition) Error(ConditionNotBoolean, result->Location());
  GuardedBlock(condition, code, result);
  return TraceRoutine("CompileElseIf", result, {condition, code});
}

// The value is computed once; a plain variable is tested as it stands, so a
// Case expression that changes it changes what the later Cases see.
Ref<SemBase> CompileSelectCase(Ref<SemBase> value) {
  Ref<SemBase> code = NewCode(value ? &value->Location() : nullptr);
  Ref<SemBase> tested = value && !value->GetType().Null() ? FlattenExpression(value, code)
                                                          : code->NewTemp(IRDataType(kTypeInteger), nullptr);
  if (gContext) gContext->selectStack.push_back(tested);
  TraceRoutine("CompileSelectCase", Ref<SemBase>(), {value});
  return CompileDebugEntry(code);
}

Ref<SemBase> PeekSelectExpr() {
  Ref<SemBase> top = gContext && gContext->selectStack.size() ? gContext->selectStack.peek_back() : Ref<SemBase>();
  Ref<SemBase> result = top;
  if (!top) {
    Error(CaseOutsideSelect);
    result = NewCode();
  }
  return TraceRoutine("PeekSelectExpr", result, {});
}

Ref<SemBase> CompileCase(Ref<SemBase> conditions, Ref<SemBase> header, Ref<SemBase> code) {
  if (!header) header = NewCode();
  GuardedBlock(conditions, code, header);
  return TraceRoutine("CompileCase", header, {conditions, header, code});
}

Ref<SemBase> CompileCaseElse(Ref<SemBase> header, Ref<SemBase> code) {
  if (!header) header = NewCode();
  AppendCode(header, code);
  Jump(Literal(kUnresolvedExitTarget), header);
  if (gContext) {
    Ref<SemBase> top = gContext->selectStack.size() ? gContext->selectStack.pop_back() : Ref<SemBase>();
    if (!top) Error(CaseOutsideSelect, header->Location());
    gContext->selectStack.push_back(Ref<SemBase>());
  }
  return TraceRoutine("CompileCaseElse", header, {header, code});
}

Ref<SemBase> CompileEndSelect(Ref<SemBase> head, Ref<SemBase> cases) {
  Ref<SemBase> code = NewCode(head ? &head->Location() : nullptr);
  AppendCode(code, head);
  AppendCode(code, cases);
  TacAddr const* end = NewLabel();
  Place(end, code);
  PatchExitLabels(*code->Code(), end);
  if (gContext && gContext->selectStack.size()) gContext->selectStack.pop_back();
  // The value under test lives to the end of the whole Select.
  return TraceRoutine("CompileEndSelect", FilterTemporaryVariables(code), {head, cases});
}

Ref<SemBase> CompileForLoop(Ref<SemBase> name, Ref<SemBase> start) {
  OpenLoop();
  Ref<SemBase> assignment = name && start ? AssignVariable(name, start) : NewCode();
  TraceRoutine("CompileForLoop", Ref<SemBase>(), {name, start});
  return CompileDebugEntry(FilterTemporaryVariables(assignment));
}

Ref<SemBase> CompileNext(Ref<SemBase> name, Ref<SemBase> header, int downTo, Ref<SemBase> limit, Ref<SemBase> step,
                         Ref<SemBase> body, Ref<SemBase> nextName) {
  TacAddr const* exit = CloseLoop();
  TacAddr const* top = NewLabel();
  if (!header) header = NewCode();
  CheckNextName(name, nextName);
  Place(top, header);
  if (name && limit) {
    // The variable is looked up afresh at each use, so that a property
    // with accessors is read again rather than through a stale temporary.
    Ref<SemBase> variable = ReadVariable(name);
    Ref<SemBase> past = downTo ? CompileBinop(variable, kOpLess, limit) : CompileBinop(limit, kOpLess, variable);
    Ref<SemBase> test = NewCode();
    Ref<SemBase> t = FlattenExpression(past, test);
    header->Append(FilterTemporaryVariables(test));
    Branch(tac_IfNEI, t ? t->GetAddr() : nullptr, exit, header);
  }
  AppendCode(header, body);
  Yield(header);
  Ref<SemBase> next = NewCode();
  if (name) {
    if (!step) step = SemValue::New(gTacOne, nullptr);
    step = FlattenExpression(step, next);
    Ref<SemBase> before = ReadVariable(name);
    bool integral = IsIntegerVariable(before);
    if (integral) {
      // A copy: the variable itself would hold the new value by the test.
      Ref<SemBase> value = FlattenExpression(CompileRefAs(before, IRDataType(kTypeInteger), next), next);
      before = next->NewTemp(IRDataType(kTypeInteger), nullptr);
      next->AddLine(tac_Store, value->GetAddr(), nilTacAddr, before->GetAddr());
    }
    Ref<SemBase> value = CompileBinop(integral ? before : ReadVariable(name), downTo ? kOpSubtract : kOpAdd, step);
    next->Append(FilterTemporaryVariables(AssignVariable(name, value)));
    if (integral && IsIntegerVariable(step)) LeaveOnWrap(before, ReadVariable(name), step, !downTo, exit, next);
  }
  Jump(top, next);
  header->Append(CompileDebugEntry(next));
  Place(exit, header);
  return TraceRoutine("CompileNext", header, {name, header, limit, step, body, nextName}, {downTo});
}

Ref<SemBase> CompileForEachLoop(Ref<SemBase> name, Ref<SemBase> array) {
  OpenLoop();
  TraceRoutine("CompileForEachLoop", Ref<SemBase>(), {name, array});
  return CompileDebugEntry(NewCode(array ? &array->Location() : nullptr));
}

// The loop holds a reference of its own to the array, so that the body may
// assign the variable it came from; the index runs from 0 and the bound is
// read afresh on each round, so elements the body appends are visited too.
Ref<SemBase> CompileNextEachLoop(Ref<SemBase> name, Ref<SemBase> array, Ref<SemBase> header, Ref<SemBase> body,
                                 Ref<SemBase> nextName) {
  TacAddr const* exit = CloseLoop();
  CheckNextName(name, nextName);
  if (!header) header = NewCode();
  Ref<SemBase> result = TraceRoutine("CompileNextEachLoop", header, {name, array, header, body, nextName});
  if (!name || !array || IsReportedFailure(array)) return result;
  IRDataType type = array->GetType();
  if (type.GetMainType() == kTypeReference) type = type.AsElement();
  if (type.GetMainType() != kTypeArray) {
    Error(NotAnArray, array->Location());
    return result;
  }
  if (type.GetDimensions() != 1) {
    Error(TooManySubscripts, array->Location());
    return result;
  }
  Ref<SemBase> prepare = NewCode(&array->Location());
  Ref<SemBase> value = CheckedArrayValue(array, prepare);
  Ref<SemBase> held = header->NewTemp(type, nullptr);
  AssignToSymbol(held->GetAddr(), value, prepare);
  header->Append(FilterTemporaryVariables(prepare));

  Ref<SemBase> index = header->NewTemp(IRDataType(kTypeInteger), nullptr);
  TacAddr const* top = NewLabel();
  header->AddLine(tac_Store, gTacZero, nilTacAddr, index->GetAddr());
  Place(top, header);
  Ref<SemBase> bound = ArrayFirstUpperBound(held, header);
  header->AddLine(tac_IfLTI, bound->GetAddr(), index->GetAddr(), exit);
  // The element stands where the array was written: a mismatch with the
  // variable is reported there.
  Ref<SemBase> element = GetArrayElement(SemValue::New(held->GetAddr(), &array->Location()), index, true);
  header->Append(FilterTemporaryVariables(AssignVariable(name, element)));
  header->AddLine(tac_AddI, index->GetAddr(), gTacOne, index->GetAddr());
  AppendCode(header, body);
  Ref<SemBase> next = NewCode();
  Yield(next);
  Jump(top, next);
  header->Append(CompileDebugEntry(next));
  Place(exit, header);
  header->AddLine(tac_Unlock, held->GetAddr(), nilTacAddr, nilTacAddr);
  return result;
}

Ref<SemBase> CompileWhileLoop(Ref<SemBase> condition) {
  OpenLoop();
  TraceRoutine("CompileWhileLoop", Ref<SemBase>(), {condition});
  return CompileDebugEntry(NewCode(condition ? &condition->Location() : nullptr));
}

Ref<SemBase> CompileWend(Ref<SemBase> condition, Ref<SemBase> header, Ref<SemBase> body) {
  TacAddr const* exit = CloseLoop();
  TacAddr const* top = NewLabel();
  if (!header) header = NewCode();
  if (!condition) Error(ConditionNotBoolean, header->Location());
  Place(top, header);
  Branch(tac_IfEQI, TestCondition(condition, header), exit, header);
  AppendCode(header, body);
  Yield(header);
  Jump(top, header);
  Place(exit, header);
  return TraceRoutine("CompileWend", header, {condition, header, body});
}

Ref<SemBase> CompileDoLoop(Ref<SemBase> topCondition) {
  OpenLoop();
  TraceRoutine("CompileDoLoop", Ref<SemBase>(), {topCondition});
  return CompileDebugEntry(NewCode(topCondition ? &topCondition->Location() : nullptr));
}

Ref<SemBase> CompileLoopUntil(Ref<SemBase> topCondition, Ref<SemBase> header, Ref<SemBase> body,
                              Ref<SemBase> bottomCondition) {
  TacAddr const* exit = CloseLoop();
  TacAddr const* top = NewLabel();
  if (!header) header = NewCode();
  Place(top, header);
  if (topCondition) Branch(tac_IfNEI, TestCondition(topCondition, header), exit, header);
  AppendCode(header, body);
  Yield(header);
  Ref<SemBase> bottom = NewCode(bottomCondition ? &bottomCondition->Location() : nullptr);
  if (bottomCondition)
    Branch(tac_IfEQI, TestCondition(bottomCondition, bottom), top, bottom);
  else
    Jump(top, bottom);
  header->Append(CompileDebugEntry(bottom));
  Place(exit, header);
  return TraceRoutine("CompileLoopUntil", header, {topCondition, header, body, bottomCondition});
}

// `Exit` outside any loop leaves the method, through its finalisation.
Ref<SemBase> CompileExit() {
  Ref<SemBase> code = NewCode();
  TacAddr const* target = gContext && gContext->exitTargets.size() ? gContext->exitTargets.peek_back()
                                                                   : Literal(kFunctionReturnTarget);
  Jump(target, code);
  return TraceRoutine("CompileExit", code, {});
}

Ref<SemBase> CompileGoto(Ref<SemBase> name) {
  Ref<SemBase> code = NewCode(name ? &name->Location() : nullptr);
  if (name && gContext) Jump(gContext->NamedLabel(name->toString()), code);
  return TraceRoutine("CompileGoto", code, {name});
}

// A label placed twice in one method would take forward jumps to the first
// and backward jumps to the last: it is a DuplicateName instead.
Ref<SemBase> CompileLabel(Ref<SemBase> name) {
  Ref<SemBase> code = NewCode(name ? &name->Location() : nullptr);
  if (name && gContext) {
    string text = name->toString();
    int32_t scope = -1;
    if (gContext->placedLabels.GetEntry(text, scope) && scope == gContext->labelScope) {
      Error(DuplicateName, name->Location());
    } else {
      if (gContext->placedLabels.HasEntry(text)) gContext->placedLabels.DeleteEntry(text);
      gContext->placedLabels.AddEntry(text, gContext->labelScope);
      Place(gContext->NamedLabel(text), code);
    }
  }
  return TraceRoutine("CompileLabel", code, {name});
}
