#include "codebuild/Classes.h"

#include "codebuild/Declarations.h"
#include "codebuild/Placeholders.h"
#include "frontend/Lexer.h"
#include "semantic/SymbolTable.h"

Ref<SemBase> OpenInterfaceScope() {
  unsigned long index = NewSymTable(ObjectStorage, string(""));
  return SemValue::New(CurrentTLP()->GetLiteral((long)index), nullptr);
}

Ref<SemBase> EndInterfaceMethod() {
  PopSymTable();
  return Ref<SemBase>();
}

Ref<SemBase> EndEventDeclaration(Ref<SemBase> name, Ref<SemBase> parameters, Ref<SemBase> type) {
  Ref<SemBase> event = CompileEvent(name, parameters, type, Ref<SemBase>());
  PopSymTable();
  return event;
}

// Class building has not landed: the routines below return placeholders.
// CompileClass opens no table and CompileEndClass closes none, so the tables
// of the methods inside nest under the enclosing scope; the interface's
// table is closed here because OpenInterfaceScope, which is final, opened it.

Ref<SemBase> CompileClass(Ref<SemBase> name) {
  return PendingRoutine("CompileClass", "Class", nullptr, PlaceholderStatement(), {name});
}

Ref<SemBase> CompileEndClass(Ref<SemBase> name, Ref<SemBase> tableValue, Ref<SemBase> members) {
  return TraceRoutine("CompileEndClass", PlaceholderStatement(), {name, tableValue, members});
}

Ref<SemBase> CompileInheritance(Ref<SemBase> parentName, Ref<SemBase> result) {
  TraceRoutine("CompileInheritance", result, {parentName});
  return result;
}

Ref<SemBase> CompileImplements(Ref<SemBase> interfaceName) {
  return TraceRoutine("CompileImplements", PlaceholderStatement(), {interfaceName});
}

Ref<SemBase> CompileInterface(Ref<SemBase> name, Ref<SemBase> code) {
  PopSymTable();
  return PendingRoutine("CompileInterface", "Interface", nullptr, PlaceholderStatement(), {name, code});
}

// A module's properties are laid out by the miner and reached by name
// lookup; their code waits for classes, and objects and arrays for their
// run-times.
Ref<SemBase> CompileProperty(Ref<SemBase> name, Ref<SemBase> dimensions, Ref<SemBase> type) {
  if (name && type) {
    IRDataType declared = type->GetType();
    if (dimensions) declared = declared.AsArray(1);
    RefusePendingType(declared, name->Location());
  }
  return TraceRoutine("CompileProperty", PlaceholderStatement(), {name, dimensions, type});
}

Ref<SemBase> CompileEvent(Ref<SemBase> name, Ref<SemBase> parameters, Ref<SemBase> type, Ref<SemBase> result) {
  TraceRoutine("CompileEvent", result, {name, parameters, type});
  return result;
}
