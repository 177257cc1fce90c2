#include "codebuild/Declarations.h"

#include "codebuild/NameLookup.h"
#include "codebuild/Placeholders.h"
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
  return TraceRoutine("CompileDeclaration", result, {names, type, given});
}

// Not finished: the allocation of an array that has dimensions but no
// initialiser, and the assignment of the initialiser, need the array and
// assignment routines, which have not landed. The name is declared and
// looked up; the initialiser reaches the trace hook as `DeclareOneVar`'s
// operand, with the number of dimensions, and is not stored yet.
Ref<SemBase> DeclareOneVar(Ref<SemBase> name, SimpleVector<Ref<SemBase>>& dimensions, Ref<SemBase> type,
                           Ref<SemBase> initialiser) {
  if (!name) return Ref<SemBase>();
  IRDataType declared = type ? type->GetType() : IRDataType();
  if (dimensions.size() > 0) declared = declared.AsArray((int)dimensions.size());
  name->SetType(declared);
  AddDeclaredName(name);
  Ref<SemBase> variable = CompileLookup(name, Ref<SemBase>(), Ref<SemBase>(), kResultCall, UnknownName, false);
  (void)variable;
  TraceRoutine("DeclareOneVar", Ref<SemBase>(), {name, type, initialiser}, {(long)dimensions.size()});
  return Ref<SemBase>();
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

