#include "semantic/ScriptLibrary.h"

#include "runtime/KVScriptIntrinsics.h"
#include "semantic/DeclarationTable.h"
#include "semantic/NameMangler.h"

FunctionDeclaration* MakeRuntimeMethodDeclaration(string linkName, string scriptName, IRDataType result,
                                                  IRDataType p1, IRDataType p2, IRDataType p3) {
  FunctionDeclaration* method = FunctionDeclaration::New();
  method->SetDispatchMethod(FunctionDeclaration::kDispatchNormal);
  method->SetName(linkName);
  method->SetBaseName(scriptName);
  method->SetType(result);
  IRDataType const* types[] = {&p1, &p2, &p3};
  for (int i = 0; i < 3; ++i) {
    if (types[i]->GetMainType() == kTypeNull) continue;
    ParameterDeclaration* parameter = ParameterDeclaration::New();
    parameter->SetName(string("Parameter") + (char)('1' + i));
    parameter->SetType(*types[i]);
    method->AddParameter(parameter);
  }
  return method;
}

// A library class's retriever as its own method: private, like the ones
// the miner makes for the script's classes, and linked to the library.
static FunctionDeclaration* MakeLibraryClassLookup(string linkName) {
  FunctionDeclaration* lookup = MakeRuntimeMethodDeclaration(linkName, "__Lookup", IRDataType(kTypeClassRef));
  lookup->SetScope(ScopedDeclaration::kScopePrivate);
  return lookup;
}

ClassDeclaration* MakeVariantDeclaration() {
  ClassDeclaration* variant = ClassDeclaration::New();
  variant->SetName("Variant");
  variant->SetLinkName("Variant");
  variant->SetType(IRDataType(kTypeObject));
  variant->SetStorageSize(kVariantStorageSize);
  return variant;
}

ClassDeclaration* MakeRuntimeExceptionDeclaration() {
  ClassDeclaration* exception = ClassDeclaration::New();
  exception->SetName("RuntimeException");
  exception->SetLinkName("RuntimeException");
  exception->SetType(IRDataType(kTypeObject));
  exception->AddMethod(MakeLibraryClassLookup("RuntimeExceptionLookup"));
  return exception;
}

ClassDeclaration* MakeRuntimeExceptionSubclassDeclaration(ClassDeclaration* parent, string name,
                                                          string linkName) {
  ClassDeclaration* subclass = ClassDeclaration::New();
  subclass->SetName(name);
  subclass->SetLinkName(name);
  // A class's type names its parent.
  subclass->SetType(IRDataType(parent->GetName()));
  subclass->SetParent(parent);
  subclass->SetStorageSize(parent->GetStorageSize());
  subclass->AddMethod(MakeLibraryClassLookup(linkName));
  return subclass;
}

namespace {

struct ExceptionSubclassRow {
  char const* name;
  char const* lookup;
};

ExceptionSubclassRow const kExceptionSubclasses[] = {
    {"OutOfMemoryException", "OutOfMemoryExceptionLookup"},
    {"NilObjectException", "NilObjectExceptionLookup"},
    {"IllegalCastException", "IllegalCastExceptionLookup"},
    {"TypeMismatchException", "TypeMismatchExceptionLookup"},
    {"OutOfBoundsException", "OutOfBoundsExceptionLookup"},
    {"StackOverflowException", "StackOverflowExceptionLookup"},
};

void AddLibraryFunctions(ModuleDeclaration* module) {
  IRDataType const variant(string("Variant"));
  IRDataType const none;
  IRDataType const integer(kTypeInteger), boolean(kTypeBoolean), text(kTypeString);
  // Ubound takes an array of any element type.
  IRDataType const array(kTypeArray);
  auto add = [module](FunctionDeclaration* f) { module->AddMethod(f); };
  add(MakeRuntimeMethodDeclaration("Input", "Input", text, text));
  add(MakeRuntimeMethodDeclaration("Print", "Print", none, text));
  add(MakeRuntimeMethodDeclaration("RuntimeUbound", "Ubound", integer, array));
  add(MakeRuntimeMethodDeclaration("RuntimeUbound2Param", "Ubound", integer, array, integer));
  add(MakeRuntimeMethodDeclaration("VarType", "VarType", integer, variant));
  module->AddClass(MakeVariantDeclaration());
  add(MakeRuntimeMethodDeclaration("VariantClassLookup", QualifyName("Variant", "__Lookup"),
                                   IRDataType(kTypeClassRef)));
  add(MakeRuntimeMethodDeclaration("VarType", "Type", integer, variant));
  add(MakeRuntimeMethodDeclaration("IsNumeric", "IsNumeric", boolean, variant));
  add(MakeRuntimeMethodDeclaration("IsNull", "IsNull", boolean, variant));
  add(MakeRuntimeMethodDeclaration("VariantHash", "Hash", integer, variant));
  add(MakeRuntimeMethodDeclaration("VariantEqual", "Equals", boolean, variant, variant));
  add(MakeRuntimeMethodDeclaration("variantToInt", "IntegerValue", integer, variant));
  add(MakeRuntimeMethodDeclaration("variantToColor", "ColorValue", IRDataType(kTypeColor), variant));
  add(MakeRuntimeMethodDeclaration("variantToDouble", "DoubleValue", IRDataType(kTypeDouble), variant));
  add(MakeRuntimeMethodDeclaration("variantToObject", "ObjectValue", IRDataType(kTypeObject), variant));
  add(MakeRuntimeMethodDeclaration("variantToString", "StringValue", text, variant));
  add(MakeRuntimeMethodDeclaration("variantToBoolean", "BooleanValue", boolean, variant));
}

}  // namespace

ModuleDeclaration* MakeKvScriptRuntimeDeclarations() {
  ModuleDeclaration* module = ModuleDeclaration::New();
  AddLibraryFunctions(module);
  ClassDeclaration* exception = MakeRuntimeExceptionDeclaration();
  module->AddClass(exception);
  for (ExceptionSubclassRow const& row : kExceptionSubclasses)
    module->AddClass(MakeRuntimeExceptionSubclassDeclaration(exception, row.name, row.lookup));
  return module;
}

