#include "codebuild/Placeholders.h"

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
