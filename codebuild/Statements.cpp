#include "codebuild/Statements.h"

#include "codebuild/Assignments.h"
#include "frontend/SrcContext.h"
#include "semantic/SymbolUtilities.h"

Ref<SemBase> CompileDebugEntry(Ref<SemBase> code) {
  if (!code || !gContext || !gContext->debugSymbols || !gContext->options.debug) return code;
  // Both lines take the entry's start line, which is the statement's.
  Ref<SemBase> entry = SemCode::New(IRDataType(), &code->Location());
  long line = code->Location().startLine;
  entry->AddLine(tac_PutParam, gContext->GetLiteral(line), nilTacAddr, nilTacAddr);
  entry->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeDebugEntry), nilTacAddr, nilTacAddr);
  return ConcatCode(entry, code);
}

Ref<SemBase> FilterTemporaryVariables(Ref<SemBase> code) {
  SimpleVector<SymbolID>* temporaries = code ? code->Temporaries() : nullptr;
  if (!temporaries || temporaries->size() == 0) return code;
  Ref<SemBase> wrapper = SemCode::NewValueWrapper(code, nullptr);
  wrapper->Append(code);
  SimpleVector<SymbolID>* held = wrapper->Temporaries();
  for (unsigned long i = 0; i < held->size(); ++i) FinalizeVariable((*held)[i], wrapper);
  held->deleteAll();
  return wrapper;
}

