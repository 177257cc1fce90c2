#include "runtime/KVScriptIntrinsics.h"

#include "runtime/MathRuntime.h"
#include "runtime/RunState.h"
#include "runtime/RuntimeObjectFoundation.h"
#include "runtime/commonColorFunctions.h"
#include "runtime/RuntimeStringFoundation.h"
#include "semantic/DeclarationTable.h"
#include "semantic/NameMangler.h"

// ---------------------------------------------------------------------------
// The function table

namespace {

struct RuntimeFunctionRow {
  char const* linkName;
  void* function;
};

template <class F>
void* Entry(F* function) {
  return reinterpret_cast<void*>(function);
}

}  // namespace

StringMap<void*>* MakeKvScriptRuntimeFunctionTable() {
  // The rows of the object, exception, array and variant families join as
  // those families are built; a name without a row fails the link.
  RuntimeFunctionRow const rows[] = {
      {"Input", Entry(&Input)},
      {"Print", Entry(&Print)},
      {"RuntimeInit", Entry(&RuntimeInit)},
      {"RuntimeExit", Entry(&ExitKvScriptRuntime)},
      {"RuntimeStringCompare", Entry(&CompareStringsInternal)},
      {"RuntimeAddString", Entry(&RuntimeAddString)},
      {"RuntimeLockString", Entry(&RuntimeLockString)},
      {"RuntimeUnlockString", Entry(&RuntimeUnlockString)},
      {"RuntimeLockUnlockStrings", Entry(&RuntimeLockUnlockStrings)},
      {"VELDYieldToKV", Entry(&RuntimeYield)},
      {"RuntimeCheckStack", Entry(&RuntimeStackCheck)},
      {"DisableAutoWaitCursor", Entry(&DisableAutoWaitCursor)},
      {"EnableAutoWaitCursor", Entry(&EnableAutoWaitCursor)},
      {"RuntimeStackCheck", Entry(&RuntimeStackCheck)},
      {"RuntimeDebugEntry", Entry(&RuntimeDebugEntry)},
      {"StringToPString", Entry(&StringToPString)},
      {"StringToCString", Entry(&StringToCString)},
      {"StringToOSType", Entry(&StringToOSType)},
      {"RuntimeShortToInteger", Entry(&RuntimeShortToInteger)},
      {"RuntimePow", Entry(&RuntimePow)},
      {"readColorRed", Entry(&readColorRed)},
      {"readColorGreen", Entry(&readColorGreen)},
      {"readColorBlue", Entry(&readColorBlue)},
      {"readColorHue", Entry(&readColorHue)},
      {"readColorSaturation", Entry(&readColorSaturation)},
      {"readColorValue", Entry(&readColorValue)},
      {"readColorCyan", Entry(&readColorCyan)},
      {"readColorMagenta", Entry(&readColorMagenta)},
      {"readColorYellow", Entry(&readColorYellow)},
  };
  auto* table = new StringMap<void*>;
  for (RuntimeFunctionRow const& row : rows) table->AddEntry(row.linkName, row.function);
  return table;
}

// ---------------------------------------------------------------------------
// The prefix module

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

// ---------------------------------------------------------------------------
// Input, output, start and yield

stringStorage* Input(stringStorage* prompt) {
  string result;
  if (KvScriptCorrespondent* correspondent = GetRuntimeCorrespondent()) {
    string bytes = string(prompt).GetUTF8String();
    unsigned long received = 0;
    char* answer = correspondent->Input(bytes.CString(), (unsigned long)bytes.Length(), &received);
    if (answer) {
      result.ConstructFromBuffer(answer, (int)received);
      result.SetEncoding(kEncodingUTF8);
      delete[] answer;
    }
  }
  return result.ExtractStringStorage();
}

void Print(stringStorage* text) {
  KvScriptCorrespondent* correspondent = GetRuntimeCorrespondent();
  if (!correspondent) return;
  string bytes = string(text).GetUTF8String();
  correspondent->Print(bytes.CString(), (unsigned long)bytes.Length());
}

// The exception run-time's three standard classes and its hook for an
// exception that no handler takes are set here; that run-time keeps them,
// and until it exists there is nothing to set.
void RuntimeInit() {}

void UnhandledException(RuntimeObject*) {
  if (KvScriptCorrespondent* correspondent = GetRuntimeCorrespondent())
    correspondent->ScriptError(kRuntimeErrorUnhandledException, 0);
}

void RuntimeYield() {
  RunState kept = CurrentRunState();
  if (kept.correspondent) kept.correspondent->ScriptYield();
  RestoreRunState(kept);
}

// ---------------------------------------------------------------------------
// The library's classes

RuntimeClass* FindNamedClass(string name) {
  for (RuntimeClass* c = mClassList; c; c = c->mNext)
    if (string(c->mName) == name) return c;
  return nullptr;
}

namespace {

// The class records are made by the object run-time's RuntimeNewClass,
// which puts them on the run's list. That run-time is not part of the
// engine yet, so no library class can be made: a lookup finds only a class
// already on the list and reports the rest as not made.
RuntimeClass* NewLibraryClass(RuntimeClass* parent) {
  (void)parent;
  return nullptr;
}

void ReportClassNotMade() {
  if (KvScriptCorrespondent* correspondent = GetRuntimeCorrespondent())
    correspondent->ScriptError(kRuntimeErrorOutOfMemory, 0);
}

RuntimeClass* LookUpLibraryClass(char const* name, bool isException, uint32_t instanceSize,
                                 RuntimeObjectProc initializer, RuntimeObjectProc finalizer) {
  if (RuntimeClass* found = FindNamedClass(name)) return found;
  RuntimeClass* parent = nullptr;
  if (isException && !(string(name) == "RuntimeException")) {
    parent = RuntimeExceptionLookup();
    if (!parent) return nullptr;
  }
  RuntimeClass* made = NewLibraryClass(parent);
  if (!made) {
    ReportClassNotMade();
    return nullptr;
  }
  // The record holds a reference on its name.
  made->mName = string(name).ExtractStringStorage();
  made->mInstanceSize = instanceSize;
  made->mInitializer = initializer;
  made->mFinalizer = finalizer;
  return made;
}

RuntimeClass* LookUpException(char const* name) {
  return LookUpLibraryClass(name, true, kExceptionInstanceSize, InitializeException, UninitializeException);
}

}  // namespace

// A variant's finalizer, which drops the value it holds, comes with the
// variant run-time; so does the raise of OutOfMemoryException that a
// failed variant lookup makes, and until then it reports like the others.
RuntimeClass* VariantLookup() {
  return LookUpLibraryClass("Variant", false, kVariantInstanceSize, InitializeVariant, nullptr);
}

RuntimeClass* RuntimeExceptionLookup() { return LookUpException("RuntimeException"); }
RuntimeClass* OutOfMemoryExceptionLookup() { return LookUpException("OutOfMemoryException"); }
RuntimeClass* NilObjectExceptionLookup() { return LookUpException("NilObjectException"); }
RuntimeClass* IllegalCastExceptionLookup() { return LookUpException("IllegalCastException"); }
RuntimeClass* TypeMismatchExceptionLookup() { return LookUpException("TypeMismatchException"); }
RuntimeClass* OutOfBoundsExceptionLookup() { return LookUpException("OutOfBoundsException"); }
RuntimeClass* StackOverflowExceptionLookup() { return LookUpException("StackOverflowException"); }

// ---------------------------------------------------------------------------
// Functions with nothing to do

void RuntimeStackCheck() {}
void RuntimeDebugEntry() {}
void DisableAutoWaitCursor() {}
void EnableAutoWaitCursor() {}
void InitializeVariant(RuntimeObject*) {}
void InitializeException(RuntimeObject*) {}
void UninitializeException(RuntimeObject*) {}

// ---------------------------------------------------------------------------
// Arguments of external functions

unsigned char const* StringToPString(stringStorage* s) { return stringStorage::PString(s); }

char const* StringToCString(stringStorage* s) { return stringStorage::CString(s); }

uint32_t StringToOSType(stringStorage* s) {
  char const* text = stringStorage::CString(s);
  long length = stringStorage::Length(s);
  uint32_t code = 0;
  for (long i = 0; i < 4; ++i) code = code << 8 | (i < length ? (unsigned char)text[i] : (unsigned char)' ');
  return code;
}

int32_t RuntimeShortToInteger(int32_t value) { return (int16_t)value; }
