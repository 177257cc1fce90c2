#include "codebuild/Exceptions.h"

#include <cstdio>

#include "codebuild/Assignments.h"
#include "codebuild/Conversions.h"
#include "codebuild/Expressions.h"
#include "codebuild/Placeholders.h"
#include "codebuild/Statements.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "ir/LabelUtilities.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolTable.h"
#include "semantic/SymbolUtilities.h"

// A Try statement is laid out as: try begin, the protected statements, the
// handlers in source order, the Finally statements, try end. A handler is
// entered for every exception that reaches it; a typed one checks the class
// itself and passes on what isn't its own by raising it again, which takes
// it to the next handler behind. Which handler an exception reaches is the
// run-time's business (the back end tells it where each one stands).

namespace {

constexpr int kMaxAncestorWalk = 4096;

bool IsCatchVariable(SymbolID symbol) {
  SimpleVector<SymbolID> const& all = gContext->catchVariables;
  for (unsigned long i = 0; i < all.size(); ++i)
    if (all[i] == symbol) return true;
  return false;
}

// Does the class named `name` descend from RuntimeException (or is it)?
bool IsExceptionClass(string const& name) {
  ClassDeclaration* cls = LookupClassByName(name);
  int steps = 0;
  for (; cls && steps < kMaxAncestorWalk; cls = cls->GetParent(), ++steps)
    if (cls->GetName() == string("RuntimeException")) return true;
  return false;
}

}  // namespace

Ref<SemBase> DeclareExceptionVariable(Ref<SemBase> name, Ref<SemBase> type) {
  if (!name || !gContext) return name;
  name->SetType(type ? type->GetType() : IRDataType(string("RuntimeException")));
  Ref<SymbolTable> table = CurrentSymbolTable();
  SymbolID earlier;
  Ref<SymbolTable> foundIn = table;
  // Two handlers may name the same variable: the later one gets its own.
  if (table->Lookup(name->toString(), &foundIn, &earlier) && foundIn == table && IsCatchVariable(earlier))
    table->Retire(earlier);
  else
    VerifyUniqueName(name);
  // In the main program the table is the globals': the variable is a
  // static, whose name is also its link name, so each gets one of its own.
  string stored = name->toString();
  if (table->storageClass != LocalStorage) {
    char suffix[24];
    snprintf(suffix, sizeof suffix, "#%lu", (unsigned long)gContext->catchVariables.size());
    stored = stored + string(suffix);
  }
  gContext->catchVariables.push_back(table->Store(stored, name->GetType()));
  gContext->catchNames.push_back(name->toString());
  return name;
}

Ref<SemBase> FindCatchVariable(string const& name) {
  if (!gContext) return Ref<SemBase>();
  SimpleVector<SymbolID> const& all = gContext->catchVariables;
  for (unsigned long i = all.size(); i-- > 0;) {
    if (gContext->catchNames[i] == name && all[i].GetStorageClass() != LocalStorage)
      return SemValue::New(all[i].GetAddr(), nullptr);
  }
  return Ref<SemBase>();
}

Ref<SemBase> CompileExceptionBlock(Ref<SemBase> code, Ref<SemBase> name, Ref<SemBase> type) {
  Ref<SemBase> result = SemCode::New(IRDataType(), nullptr);
  Ref<SemBase> variable;
  if (name) {
    variable = FindLocalSymbol(name);
    if (!variable) variable = FindCatchVariable(name->toString());
  }
  TacAddr const* v = variable ? variable->GetAddr() : nilTacAddr;
  bool typed = type && !type->GetType().Null();
  if (typed) {
    IRDataType t = type->GetType();
    // An unknown class was reported where the type was read.
    bool unknown = t.GetMainType() == kTypeObject && !LookupClassByName(t.GetClass());
    if (unknown) {
      typed = false;
    } else if (t.GetMainType() != kTypeObject || !IsExceptionClass(t.GetClass())) {
      // A basic type's location is its first use's: the variable tells the line.
      Error(CatchTypeNotException, t.GetMainType() == kTypeObject || !name ? type->Location() : name->Location());
      typed = false;
    }
  }
  TacAddr const* end = NewLabel();
  result->AddLine(tac_HandleException, v, nilTacAddr, end);
  if (typed && variable) {
    // Not this handler's: on to the next one.
    TacAddr const* mine = NewLabel();
    Ref<SemBase> isA = FlattenExpression(CompileIsA(SemValue::New(v, &name->Location()), type), result);
    result->AddLine(tac_IfNEI, isA->GetAddr(), gTacFalse, mine);
    result->AddLine(tac_PutParam, v, nilTacAddr, nilTacAddr);
    result->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeReraiseException), nilTacAddr, nilTacAddr);
    result->AddLine(tac_Label, mine, nilTacAddr, nilTacAddr);
  }
  if (code) result->Append(code);
  result->AddLine(tac_Label, end, nilTacAddr, nilTacAddr);
  return TraceRoutine("CompileExceptionBlock", FilterTemporaryVariables(result), {code, name, type});
}

Ref<SemBase> CompileTry() {
  Ref<SemBase> code = SemCode::New(IRDataType(), nullptr);
  code->AddLine(tac_BeginTry, nilTacAddr, nilTacAddr, nilTacAddr);
  return TraceRoutine("CompileTry", CompileDebugEntry(code), {});
}

Ref<SemBase> CompileEndTry(Ref<SemBase> head, Ref<SemBase> rest) {
  Ref<SemBase> code = ConcatCode(head, rest);
  if (!code) code = SemCode::New(IRDataType(), nullptr);
  code->AddLine(tac_EndTry, nilTacAddr, nilTacAddr, nilTacAddr);
  return TraceRoutine("CompileEndTry", code, {head, rest});
}

Ref<SemBase> CompileRaiseException(Ref<SemBase> value) {
  Ref<SemBase> code = SemCode::New(IRDataType(), value ? &value->Location() : nullptr);
  if (!value || IsReportedFailure(value)) return TraceRoutine("CompileRaiseException", code, {value});
  Ref<SemBase> raised = CompileRefAs(value, IRDataType(string("RuntimeException")), code);
  code->AddLine(tac_PutParam, raised->GetAddr(), nilTacAddr, nilTacAddr);
  code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeRaiseException), nilTacAddr, nilTacAddr);
  return TraceRoutine("CompileRaiseException", code, {value});
}

Ref<SemBase> MakeDefaultExceptionHandler(Ref<SemBase> code, Ref<SemBase> caught) {
  Ref<SemBase> r = SemCode::New(IRDataType(), nullptr);
  TacAddr const* t = caught->GetAddr();
  TacAddr const* done = NewLabel();
  r->AddLine(tac_Store, gTacZero, nilTacAddr, t);
  r->AddLine(tac_HandleException, t, nilTacAddr, nilTacAddr);
  if (code) r->Append(code);
  r->AddLine(tac_IfEQI, t, gTacZero, done);
  r->AddLine(tac_PutParam, t, nilTacAddr, nilTacAddr);
  r->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeReraiseException), nilTacAddr, nilTacAddr);
  r->AddLine(tac_Unlock, t, nilTacAddr, nilTacAddr);
  r->AddLine(tac_Label, done, nilTacAddr, nilTacAddr);
  return r;
}

Ref<SemBase> MakeUnhandledExceptionHandler(Ref<SemBase> caught) {
  Ref<SemBase> r = SemCode::New(IRDataType(), nullptr);
  TacAddr const* t = caught->GetAddr();
  TacAddr const* done = NewLabel();
  r->AddLine(tac_Store, gTacZero, nilTacAddr, t);
  r->AddLine(tac_HandleException, t, nilTacAddr, nilTacAddr);
  r->AddLine(tac_IfEQI, t, gTacZero, done);
  r->AddLine(tac_PutParam, t, nilTacAddr, nilTacAddr);
  r->AddLine(tac_Call, gContext->GetLiteral(string("RuntimeUnhandledException")), nilTacAddr, nilTacAddr);
  r->AddLine(tac_Unlock, t, nilTacAddr, nilTacAddr);
  r->AddLine(tac_Label, done, nilTacAddr, nilTacAddr);
  return r;
}
