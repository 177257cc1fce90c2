#include "codebuild/ExternalDeclarations.h"

#include "codebuild/Placeholders.h"
#include "diag/CompileError.h"
#include "semantic/SymbolTable.h"

Ref<SemBase> EndExternDeclaration(Ref<SemBase> name, Ref<SemBase> library, Ref<SemBase> alias,
                                  Ref<SemBase> parameters, Ref<SemBase> returnType) {
  Ref<SemBase> declaration = CompileExternDeclaration(name, library, alias, parameters, returnType);
  PopSymTable();
  return declaration;
}

Ref<SemBase> ReportDeclareFunctionWithoutType() {
  Error(DeclareFunctionWithoutType);
  return Ref<SemBase>();
}

// External declarations have not landed: the routines below return their
// name or a placeholder, and check no types, libraries or aliases.

Ref<SemBase> DeclareParamType(Ref<SemBase> name) { return TraceRoutine("DeclareParamType", name, {name}); }

Ref<SemBase> DeclareReturnType(Ref<SemBase> name) { return TraceRoutine("DeclareReturnType", name, {name}); }

Ref<SemBase> CompileExternLib(Ref<SemBase> name) { return TraceRoutine("CompileExternLib", name, {name}); }

Ref<SemBase> CompileExternAlias(Ref<SemBase> word, Ref<SemBase> text) {
  return TraceRoutine("CompileExternAlias", text, {word, text});
}

Ref<SemBase> CompileExternDeclaration(Ref<SemBase> name, Ref<SemBase> library, Ref<SemBase> alias,
                                      Ref<SemBase> parameters, Ref<SemBase> returnType) {
  return PendingRoutine("CompileExternDeclaration", "Declare", nullptr, PlaceholderStatement(),
                      {name, library, alias, parameters, returnType});
}

Ref<SemBase> CompileAddressOf(Ref<SemBase> name) {
  return PendingRoutine("CompileAddressOf", "AddressOf", nullptr, PlaceholderValue(), {name});
}

Ref<SemBase> CompileAddressOf(Ref<SemBase> object, Ref<SemBase> name) {
  return PendingRoutine("CompileAddressOf", "AddressOf", nullptr, PlaceholderValue(), {object, name});
}
