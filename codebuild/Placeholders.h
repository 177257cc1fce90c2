// What a compile routine hands back while the construct it compiles is not
// built yet, so that whole programs parse before code building exists: a
// SemCode of an Integer temporary where the grammar wants a value, a SemCode
// of the null type where it wants a statement. Such a routine reports
// NotYetSupported (PendingRoutine), so its code without lines never runs:
// no program gets past the compiler while one stands in.
//
// The routines also announce themselves through gRoutineTraceHook, which
// only tests set: the order of the calls and their operands shows how the
// parser grouped a text, and that is what the grammar's tests check.
#pragma once

#include <initializer_list>

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// One call of a placeholder routine as the trace hook sees it. Operands that
// are null handles appear as null pointers, in the order of the parameters.
struct RoutineCall {
  static constexpr int kMaxOperands = 8;
  static constexpr int kMaxNumbers = 2;

  char const* routine;
  SemBase* result;
  SemBase* operands[kMaxOperands];
  int operandCount;
  long numbers[kMaxNumbers];
  int numberCount;
};

using RoutineTraceHook = void (*)(RoutineCall const& call);
// Null but in tests, which set it for the length of one parse.
extern RoutineTraceHook gRoutineTraceHook;

// A SemCode with no lines whose result is a new Integer temporary.
Ref<SemBase> PlaceholderValue();
// A SemCode with no lines and no result.
Ref<SemBase> PlaceholderStatement();

// A routine whose code building has not landed: reports NotYetSupported
// with the construct's word at `where` (the current line if null), then
// traces the call as TraceRoutine does and returns `result`.
Ref<SemBase> PendingRoutine(char const* routine, char const* construct, SourceLocation const* where,
                            Ref<SemBase> result, std::initializer_list<Ref<SemBase>> operands,
                            std::initializer_list<long> numbers = {});
// The report alone.
void ReportNotYetSupported(char const* construct, SourceLocation const* where);

// Is `value` what a reported failure left in place of a value: code with no
// lines, or code that leaves nothing, once an error has been reported? Its
// uses report nothing more (one fault, one error). A list such as (1, 2)
// also has no type but no report, so it is not one; the error flag also
// keeps a routine that forgot its report from compiling silently.
bool IsReportedFailure(Ref<SemBase> const& value);

// Reports the call to the trace hook, if one is set, and returns `result`.
Ref<SemBase> TraceRoutine(char const* routine, Ref<SemBase> result,
                          std::initializer_list<Ref<SemBase>> operands,
                          std::initializer_list<long> numbers = {});
