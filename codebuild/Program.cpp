#include "codebuild/Program.h"

#include "ir/LabelUtilities.h"
#include "codebuild/Placeholders.h"
#include "frontend/SrcContext.h"
#include "frontend/Lexer.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolTable.h"

bool BlockIsFunction(TacBlock const* block) {
  if (!block || !block->first || block->first->opcode != tac_Label) return false;
  TacAddr const* name = block->first->a;
  return name && name->IsConstant() && name->type.GetMainType() == kTypeString;
}

// The elements of `declarations` whose code is, or is not, a function's, in
// the order written. Elements without code (after an error) are passed over.
static void AppendDeclarations(Ref<SemBase> program, Ref<SemBase> declarations, bool functions) {
  for (Ref<SemBase> e = declarations->GetContents(); e; e = e->GetNext()) {
    TacBlock* block = e->Code();
    if (block && BlockIsFunction(block) == functions) program->Append(e);
  }
}

// `Return` and a stray `Exit` in the main program jump to its end.
static void AppendMainStatements(Ref<SemBase> program, Ref<SemBase> statements) {
  TacBlock* block = statements ? statements->Code() : nullptr;
  if (!block) return;
  TacAddr const* end = NewLabel();
  PatchExitLabels(*block, end);
  PatchReturnLabels(*block, end);
  program->Append(statements);
  program->AddLine(tac_Label, end, nilTacAddr, nilTacAddr);
}

// Not finished: the release of the globals at the end of the main program
// (the finalisation of the global table) needs variable lifetime, which has
// not landed, so the globals are not released yet.
Ref<SemBase> CompileProgram(Ref<SemBase> declarations, Ref<SemBase> statements) {
  TraceRoutine("CompileProgram", Ref<SemBase>(), {declarations, statements});
  Ref<SemBase> program = SemCode::New(IRDataType(), nullptr);
  if (!gContext) return program;
  if (declarations && !declarations->IsList()) declarations = SemList::New(declarations);

  program->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeInit), nilTacAddr, nilTacAddr);
  if (declarations) AppendDeclarations(program, declarations, false);
  AppendMainStatements(program, statements);
  Ref<SemBase> status = program->NewTemp(IRDataType(kTypeInteger), nullptr);
  program->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeExit), nilTacAddr, status->GetAddr());
  program->AddLine(tac_PutRetval, status->GetAddr(), nilTacAddr, nilTacAddr);
  program->AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr);
  if (declarations) AppendDeclarations(program, declarations, true);

  gContext->program = program;
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
