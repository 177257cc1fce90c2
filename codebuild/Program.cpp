#include "codebuild/Program.h"

#include "ir/LabelUtilities.h"
#include "codebuild/Assignments.h"
#include "codebuild/Exceptions.h"
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

// The globals of the program are the properties of its modules, which live
// in the data area rather than in the global table: each counted one is
// released at the end of the main program as well as the table's symbols
// (the main program's temporaries), or every run would leak what they hold.
// A public property of an inner module is also listed by the enclosing one:
// each is released once, by its link name.
static void ReleaseModuleProperties(ModuleDeclaration* module, Ref<SemBase> program, StringMap<int>& released,
                                    int depth) {
  if (!module || depth > 64) return;
  for (unsigned int i = 0; i < module->CountProperties(); ++i) {
    PropertyDeclaration* p = module->GetProperty(i);
    if (p->isComputed || !p->GetType().RefCounted() || released.HasEntry(p->GetLinkName())) continue;
    released.AddEntry(p->GetLinkName(), 1);
    TacAddr const* addr = gContext->GetStaticSymbolAddr(p->GetType(), p->GetLinkName());
    program->AddLine(tac_Unlock, addr, nilTacAddr, nilTacAddr);
  }
  for (unsigned int i = 0; i < module->CountModules(); ++i)
    ReleaseModuleProperties(module->GetModule(i), program, released, depth + 1);
}

Ref<SemBase> CompileProgram(Ref<SemBase> declarations, Ref<SemBase> statements) {
  TraceRoutine("CompileProgram", Ref<SemBase>(), {declarations, statements});
  Ref<SemBase> program = SemCode::New(IRDataType(), nullptr);
  if (!gContext) return program;
  if (declarations && !declarations->IsList()) declarations = SemList::New(declarations);

  program->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeInit), nilTacAddr, nilTacAddr);
  if (declarations) AppendDeclarations(program, declarations, false);
  AppendMainStatements(program, statements);
  // An exception that nothing caught ends the statements here; what the
  // program holds is released all the same.
  if (declarations || statements) {
    Ref<SemBase> caught = program->NewTemp(IRDataType(kTypeObject), nullptr);
    program->Append(MakeUnhandledExceptionHandler(caught));
  }
  FinalizeSymbols(CurrentSymbolTableList()->GetGlobalTable(), program);
  StringMap<int> released;
  ReleaseModuleProperties(gContext->rootModule, program, released, 0);
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
    gContext->moduleStack.push_back(gContext->inModule ? gContext->currentModule : nullptr);
    ModuleDeclaration* outer = gContext->CurrentModule();
    gContext->currentModule = outer ? outer->LookupModule(text) : nullptr;
    gContext->inModule = true;
  }
  return SemValue::New(CurrentTLP()->GetLiteral((long)index), nullptr);
}

Ref<SemBase> CompileEndModule(Ref<SemBase>, Ref<SemBase> members) {
  if (gContext) {
    ModuleDeclaration* outer = gContext->moduleStack.size() ? gContext->moduleStack.pop_back() : nullptr;
    gContext->inModule = outer != nullptr;
    gContext->currentModule = outer;
  }
  PopSymTable();
  return members;
}
