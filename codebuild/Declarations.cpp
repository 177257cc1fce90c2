#include "codebuild/Declarations.h"

#include "codebuild/Arrays.h"
#include "codebuild/Assignments.h"
#include "codebuild/Conversions.h"
#include "codebuild/NameLookup.h"
#include "codebuild/Placeholders.h"
#include "codebuild/Statements.h"
#include "diag/CompileError.h"
#include "frontend/SrcContext.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolUtilities.h"

Ref<SemBase> CompileDeclaration(Ref<SemBase> names, Ref<SemBase> type, Ref<SemBase> initialiser) {
  Ref<SemBase> result = SemCode::New(IRDataType(), names ? &names->Location() : nullptr);
  Ref<SemBase> given = initialiser;
  // However many names the clause declares, the initialiser runs once.
  if (initialiser && initialiser->GetAddr() && !initialiser->IsConstant())
    initialiser = FlattenExpression(initialiser, result);

  Ref<SemBase> pending;
  SimpleVector<Ref<SemBase>> dimensions;
  auto declarePending = [&]() {
    if (!pending) return;
    Ref<SemBase> lines = DeclareOneVar(pending, dimensions, type, initialiser);
    if (lines && lines->Code()) result->Append(lines);
    dimensions.deleteAll();
  };
  Ref<SemBase> first = names && names->IsList() ? names->GetContents() : names;
  for (Ref<SemBase> e = first; e; e = names->IsList() ? e->GetNext() : Ref<SemBase>()) {
    if (e->IsIdentifier()) {
      declarePending();
      pending = e;
    } else {
      dimensions.push_back(e);
    }
  }
  declarePending();
  // As after any statement, what the initialiser's temporaries hold goes
  // now: an object made here lives as long as its variable, not its method.
  return TraceRoutine("CompileDeclaration", FilterTemporaryVariables(result), {names, type, given});
}

Ref<SemBase> DeclareOneVar(Ref<SemBase> name, SimpleVector<Ref<SemBase>>& dimensions, Ref<SemBase> type,
                           Ref<SemBase> initialiser) {
  if (!name) return Ref<SemBase>();
  IRDataType declared = type ? type->GetType() : IRDataType();
  if (dimensions.size() > 0) declared = declared.AsArray((int)dimensions.size());
  name->SetType(declared);
  AddDeclaredName(name);
  TraceRoutine("DeclareOneVar", Ref<SemBase>(), {name, type, initialiser}, {(long)dimensions.size()});
  if (RefusePendingType(declared, name->Location())) return Ref<SemBase>();
  Ref<SemBase> variable = CompileLookup(name, Ref<SemBase>(), Ref<SemBase>(), kResultCall, UnknownName, false);
  // Each array variable of a clause gets an array of its own.
  if (dimensions.size() > 0 && !initialiser && type) initialiser = AllocateNewArray(dimensions, type->GetType());
  if (!initialiser || !variable || !variable->GetAddr()) return Ref<SemBase>();
  Ref<SemBase> code = SemCode::New(IRDataType(), &name->Location());
  AssignToSymbol(variable->GetAddr(), initialiser, code);
  return code;
}

Ref<SemBase> CompileConst(Ref<SemBase> name, Ref<SemBase> value) {
  // At module or class level the miner has declared the constant already.
  if (!name || !gContext || !gContext->currentFunction) return Ref<SemBase>();
  if (!value) {
    Error(UnknownName, name->Location());
    return Ref<SemBase>();
  }
  VerifyUniqueName(name);
  ConstantDeclaration* constant = ConstantDeclaration::New();
  constant->SetName(name->toString());
  constant->SetType(value->GetType());
  if (value->IsConstant()) {
    constant->SetValue(value->GetValue());
  } else {
    constant->SetValue(IRValue::SInt32(0));
    Error(ConstNotConstant, value->Location());
  }
  gContext->currentFunction->AddConstant(constant);
  return Ref<SemBase>();
}

Ref<SemBase> CompileReservedIdentifier() {
  Error(ReservedIdentifier);
  return SemIdentifier::New(string("bogus"));
}


bool RefusePendingType(IRDataType const& type, SourceLocation const& where) {
  IRDataType t = type.GetMainType() == kTypeReference ? type.AsElement() : type;
  // An array is refused for what its elements are.
  if (t.GetMainType() == kTypeArray) t = t.AsElement();
  if (t.GetMainType() == kTypeObject) {
    if (IsVariant(t)) {
      ReportNotYetSupported("Variant", &where);
      return true;
    }
    // An unknown class has been reported as such already.
    string name = t.GetClass();
    ModuleDeclaration* module = gContext ? gContext->CurrentModule() : nullptr;
    if (name.Length() && !(module && module->LookupClass(name))) return true;
  }
  return false;
}
