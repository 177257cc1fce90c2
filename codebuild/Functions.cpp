#include "codebuild/Functions.h"

#include "codebuild/Placeholders.h"
#include "frontend/Lexer.h"
#include "semantic/SymbolTable.h"

Ref<SemBase> OpenMethodScope() {
  unsigned long index = NewSymTable(LocalStorage, string(""));
  Ref<SemBase> table = SemValue::New(CurrentTLP()->GetLiteral((long)index), nullptr);
  AddSelfParameter();
  return table;
}

bool BlockIsFunction(TacBlock* block) {
  if (!block || !block->first) return false;
  TacLine const* line = block->first;
  return line->opcode == tac_Label && line->a && line->a->IsConstant() &&
         line->a->type.GetMainType() == kTypeString;
}

// Function building has not landed: the routines below return placeholders,
// declare no parameters and check no modifiers, names or return types.

void AddSelfParameter() { TraceRoutine("AddSelfParameter", Ref<SemBase>(), {}); }

Ref<SemBase> CompileParameter(Ref<SemBase> modifiers, Ref<SemBase> name, Ref<SemBase> type,
                              Ref<SemBase> defaultValue) {
  return TraceRoutine("CompileParameter", PlaceholderStatement(), {modifiers, name, type, defaultValue});
}

Ref<SemBase> CompileMeParam() { return TraceRoutine("CompileMeParam", SemIdentifier::New(string("Me")), {}); }

void CompileFunction(Ref<SemBase> name, Ref<SemBase> parameters, Ref<SemBase> returnType,
                     Ref<SemBase> handledEvent) {
  TraceRoutine("CompileFunction", Ref<SemBase>(), {name, parameters, returnType, handledEvent});
}

// The method's table is closed here, as the final routine will, so that the
// tables of the methods that follow nest where they should.
Ref<SemBase> CompileEndFunction(Ref<SemBase> name, Ref<SemBase> table, Ref<SemBase> parameters,
                                Ref<SemBase> handledEvent, Ref<SemBase> body) {
  PopSymTable();
  return TraceRoutine("CompileEndFunction", PlaceholderStatement(), {name, table, parameters, handledEvent, body});
}

Ref<SemBase> CompileReturn(Ref<SemBase> value) {
  return TraceRoutine("CompileReturn", PlaceholderStatement(), {value});
}
