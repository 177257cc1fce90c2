// Shared by the grammar's tests: one parse of a text, as the compiler runs
// it (a current context, the lexer started on the text, yyparse), with a
// delegate that records what the parse reports and a trace of the compile
// routines that the reductions called.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "codebuild/Placeholders.h"
#include "grammar/Parser.h"
#include "semantic/SymbolTable.h"
#include "tests/frontend/CompileFixture.h"
#include "frontend/CompileScope.h"

struct ParseOutcome {
  int result = -1;
  std::vector<ReportedError> errors;

  bool Has(CompileErrorCode code) const {
    for (ReportedError const& e : errors)
      if (e.code == code) return true;
    return false;
  }
  // The line of the first report of `code`, or -2 if there is none.
  int LineOf(CompileErrorCode code) const {
    for (ReportedError const& e : errors)
      if (e.code == code) return e.line;
    return -2;
  }
  std::string Describe() const { return "result " + std::to_string(result) + ", errors:" + DescribeErrors(errors); }
};

// Describes the values that the compile routines passed around, so that a
// test can read how the parser grouped a text: a literal by its value, a
// name by its text, a placeholder by the call that made it.
class RoutineTrace {
public:
  static RoutineTrace*& Current() {
    static RoutineTrace* sCurrent = nullptr;
    return sCurrent;
  }

  static void Hook(RoutineCall const& call) { Current()->Record(call); }

  std::string Describe(SemBase* value) const {
    if (!value) return "-";
    auto known = mNames.find(value);
    if (known != mNames.end()) return known->second;
    if (value->IsIdentifier()) return Bytes(value->toString());
    if (value->IsList()) {
      std::string text = "{";
      for (Ref<SemBase> e = value->GetContents(); e; e = e->GetNext())
        text += (text.size() > 1 ? ", " : "") + Describe(e.Get());
      return text + "}";
    }
    TacAddr const* addr = value->GetAddr();
    if (value->IsConstant() && addr) {
      IRDataType type = addr->type;
      if (type.GetMainType() == kTypeString) return "\"" + Bytes(value->GetValue().text) + "\"";
      if (type.GetMainType() == kTypeDouble) return std::to_string(value->GetValue().real64);
      return std::to_string(value->GetValue().sint32);
    }
    return "?";
  }

  // Every call in order, as "Routine(operand, ...; number, ...)".
  std::vector<std::string> calls;

private:
  static std::string Bytes(string const& s) { return std::string(s.CString(), (size_t)s.Length()); }

  static std::string OperatorText(long op) {
    switch (op) {
      case 0x3E3D: return ">=";
      case 0x3C3D: return "<=";
      case 0x213D: return "<>";
      case 37: return "Mod";
      default: return std::string(1, (char)op);
    }
  }

  void Record(RoutineCall const& call) {
    std::string name = call.routine;
    std::string args;
    for (int i = 0; i < call.operandCount; ++i) args += (i ? ", " : "") + Describe(call.operands[i]);
    std::string numbers;
    for (int i = 0; i < call.numberCount; ++i) numbers += (i ? ", " : "") + std::to_string(call.numbers[i]);
    calls.push_back(name + "(" + args + (numbers.empty() ? "" : "; " + numbers) + ")");
    if (call.result) mNames[call.result] = ValueText(call);
  }

  // The expression that a value-making call stands for.
  std::string ValueText(RoutineCall const& call) const {
    std::string name = call.routine;
    auto operand = [&](int i) { return i < call.operandCount ? Describe(call.operands[i]) : "-"; };
    if (name == "CompileBinop") return "(" + operand(0) + " " + OperatorText(call.numbers[0]) + " " + operand(1) + ")";
    if (name == "CompileAnd") return "(" + operand(0) + " And " + operand(1) + ")";
    if (name == "CompileOr") return "(" + operand(0) + " Or " + operand(1) + ")";
    if (name == "CompileIs") return "(" + operand(0) + " Is " + operand(1) + ")";
    if (name == "CompileIsA") return "(" + operand(0) + " IsA " + operand(1) + ")";
    if (name == "CompileNot") return "(Not " + operand(0) + ")";
    if (name == "CompileNegation") return "(-" + operand(0) + ")";
    if (name == "PeekSelectExpr") return "<select>";
    if (name == "CompileLookup" || name == "CompileScopeLookup") {
      int at = name == "CompileLookup" ? 0 : 1;
      std::string text = (at ? operand(0) + "." : "") + operand(at);
      if (call.operands[at + 1]) text += "(" + operand(at + 1) + ")";
      return text;
    }
    return name;
  }

  std::map<SemBase*, std::string> mNames;
};

// Parses `text` with a fresh context. The trace is kept if `trace` is set.
inline ParseOutcome ParseText(char const* text, RoutineTrace* trace = nullptr, RecordingDelegate* given = nullptr,
                              bool withDelegate = true) {
  RecordingDelegate local;
  RecordingDelegate* delegate = given ? given : &local;
  CompileScope scope;
  SrcContext* context = scope.Context();
  context->delegate = withDelegate ? delegate : nullptr;
  ResetSymbolTables();
  RoutineTrace::Current() = trace;
  gRoutineTraceHook = trace ? &RoutineTrace::Hook : nullptr;
  InitLexer(text);
  ParseOutcome outcome;
  outcome.result = yyparse();
  // Constructs whose code is not built yet are no concern of the grammar.
  for (ReportedError const& e : delegate->errors)
    if (e.code != NotYetSupported) outcome.errors.push_back(e);
  if (!withDelegate && context->hadError) outcome.errors.push_back({kNoCompileError, -1});
  gRoutineTraceHook = nullptr;
  RoutineTrace::Current() = nullptr;
  return outcome;
}
