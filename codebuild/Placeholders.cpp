#include "codebuild/Placeholders.h"

#include "diag/CompileError.h"

RoutineTraceHook gRoutineTraceHook = nullptr;

Ref<SemBase> PlaceholderValue() { return SemCode::New(IRDataType(kTypeInteger), nullptr); }

Ref<SemBase> PlaceholderStatement() { return SemCode::New(IRDataType(), nullptr); }

Ref<SemBase> TraceRoutine(char const* routine, Ref<SemBase> result,
                          std::initializer_list<Ref<SemBase>> operands,
                          std::initializer_list<long> numbers) {
  if (!gRoutineTraceHook) return result;
  RoutineCall call = {};
  call.routine = routine;
  call.result = result.Get();
  for (Ref<SemBase> const& operand : operands)
    if (call.operandCount < RoutineCall::kMaxOperands) call.operands[call.operandCount++] = operand.Get();
  for (long number : numbers)
    if (call.numberCount < RoutineCall::kMaxNumbers) call.numbers[call.numberCount++] = number;
  gRoutineTraceHook(call);
  return result;
}

void ReportNotYetSupported(char const* construct, SourceLocation const* where) {
  SimpleVector<string> words;
  words.push_back(string(construct));
  Error(NotYetSupported, where ? *where : SourceLocation(CurrentSourceLine()), words);
}

Ref<SemBase> PendingRoutine(char const* routine, char const* construct, SourceLocation const* where,
                            Ref<SemBase> result, std::initializer_list<Ref<SemBase>> operands,
                            std::initializer_list<long> numbers) {
  // Without a location of its own, the report goes to the first operand's
  // line: a closing routine runs at the end of its construct.
  if (!where)
    for (Ref<SemBase> const& operand : operands)
      if (operand && !where) where = &operand->Location();
  ReportNotYetSupported(construct, where);
  return TraceRoutine(routine, result, operands, numbers);
}

bool IsReportedFailure(Ref<SemBase> const& value) {
  TacBlock* block = value ? value->Code() : nullptr;
  if (!block || !gErrorSink || !gErrorSink->hadError) return false;
  return !block->first || value->GetType().Null();
}
