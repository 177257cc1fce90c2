#include "frontend/Modules.h"

#include "codebuild/Placeholders.h"
#include "frontend/SrcContext.h"
#include "frontend/lexer.h"
#include "semantic/DeclarationTable.h"
#include "semantic/InterRep.h"

// Not finished: the layout of the main program needs the run-time
// library's intrinsic numbers (RuntimeInit, RuntimeExit) and the release of
// the globals, which have not landed. Until then `program` receives a
// placeholder and the parse's code is dropped.
Ref<SemBase> CompileProgram(Ref<SemBase> declarations, Ref<SemBase> statements) {
  Ref<SemBase> program = TraceRoutine("CompileProgram", PlaceholderStatement(), {declarations, statements});
  if (gContext) gContext->program = program;
  return program;
}

Ref<SemBase> CompileModule(Ref<SemBase> name) {
  string text = name ? name->toString() : string("");
  unsigned long index = NewSymTable(StaticStorage, text);
  if (gContext) {
    ModuleDeclaration* outer = gContext->CurrentModule();
    gContext->currentModule = outer ? outer->LookupModule(text) : nullptr;
    gContext->inModule = true;
  }
  return SemValue::New(CurrentTLP()->GetLiteral((long)index), nullptr);
}

Ref<SemBase> CompileEndModule(Ref<SemBase>, Ref<SemBase> members) {
  if (gContext) {
    gContext->inModule = false;
    gContext->currentModule = nullptr;
  }
  PopSymTable();
  return members;
}
