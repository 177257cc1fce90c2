#include "semantic/SymbolUtilities.h"

#include "diag/CompileError.h"
#include "semantic/NameScope.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolTable.h"

Ref<SemBase> AddDeclaredName(Ref<SemBase> identifier) {
  if (!identifier || !gNameScope) return identifier;
  // A clash is reported and the name stored anyway, so that later uses of
  // it raise no second error.
  VerifyUniqueName(identifier);
  if (CurrentSymbolTable()->storageClass == LocalStorage) AddSymbol(identifier);
  return identifier;
}

// A set handle is a clash even when no overload passes the filter: the base
// name is known there.
static bool HasPlainMethods(FunctionDeclarationListOwner const* owner, string const& name) {
  return owner && owner->LookupMethodsByBase(name, kFilterPlain);
}

static bool DeclaredInCurrentTable(string const& name) {
  Ref<SymbolTable> table = CurrentSymbolTable();
  Ref<SymbolTable> foundIn = table;
  return table->Lookup(name, &foundIn, nullptr) && foundIn == table;
}

// Inside a method only the method's own declarations can clash: its locals
// may hide anything outside.
static CompileErrorCode FunctionClash(FunctionDeclaration const* function, string const& name) {
  if (HasPlainMethods(function, name)) return NameClashesWithLocalMethod;
  if (function->LookupConstant(name)) return NameClashesWithConstant;
  return kNoCompileError;
}

static CompileErrorCode ClassClash(ClassDeclaration const* owner, string const& name) {
  if (!owner) return kNoCompileError;
  if (owner->LookupEvent(name)) return NameClashesWithEvent;
  if (HasPlainMethods(owner, name)) return NameClashesWithClassMethod;
  return kNoCompileError;
}

static CompileErrorCode ModuleClash(ModuleDeclaration const* module, string const& name) {
  if (!module) return kNoCompileError;
  if (HasPlainMethods(module, name)) return NameClashesWithModuleMethod;
  if (module->LookupClass(name)) return NameClashesWithClass;
  if (module->LookupModule(name)) return NameClashesWithModule;
  if (module->LookupConstant(name)) return NameClashesWithConstant;
  return kNoCompileError;
}

static CompileErrorCode FirstNameClash(string const& name) {
  if (DeclaredInCurrentTable(name)) return DuplicateName;
  if (gNameScope->currentFunction) return FunctionClash(gNameScope->currentFunction, name);
  StorageClass storage = CurrentSymbolTable()->storageClass;
  CompileErrorCode code = kNoCompileError;
  if (gNameScope->inClass && storage != LocalStorage) code = ClassClash(gNameScope->currentClass, name);
  if (code == kNoCompileError && storage != LocalStorage && storage != ObjectStorage)
    code = ModuleClash(gNameScope->CurrentModule(), name);
  return code;
}

void VerifyUniqueName(Ref<SemBase> identifier) {
  if (!identifier || !gNameScope) return;
  CompileErrorCode code = FirstNameClash(identifier->toString());
  if (code != kNoCompileError) Error(code, identifier->Location());
}

Ref<SemBase> FindLocalSymbol(Ref<SemBase> identifier) {
  if (!identifier || !gNameScope) return Ref<SemBase>();
  Ref<SymbolTable> table = CurrentSymbolTable();
  Ref<SymbolTable> foundIn = table;
  SymbolID symbol;
  if (!table->Lookup(identifier->toString(), &foundIn, &symbol)) return Ref<SemBase>();
  if (foundIn->storageClass != LocalStorage) return Ref<SemBase>();
  return SemValue::New(symbol.GetAddr(), &identifier->Location());
}

void ProhibitSymbolInitialization(Ref<SemBase> identifier) {
  if (!identifier || !gNameScope) return;
  SymbolID symbol;
  if (CurrentSymbolTable()->Lookup(identifier->toString(), nullptr, &symbol))
    symbol.ProhibitInitialization();
}

Ref<SemBase> FlattenExpression(Ref<SemBase> expression, Ref<SemBase> code) {
  if (!expression || !code) return expression;
  if (!expression->Code()) return expression;
  code->Append(expression);
  return SemValue::New(expression->GetAddr(), &expression->Location());
}
