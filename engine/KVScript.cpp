#include "engine/KVScript.h"

#include <iterator>

#include "engine/KVScriptInterface.h"
#include "foundation/Utility.h"
#include "runtime/HostLibraryTable.h"

// The oldest host whose plug-in interface this engine can use.
static constexpr double kMinimumHostVersion = 4.5;

VELDproperty KvScriptProperties[5] = {
    {nullptr, "State", "Integer", 2, kHostAccessesField, kHostAccessesField,
     kScriptStateOffset, {0, 0, 0}},
    {nullptr, "CurrentLineNumber", "Integer", 2, kHostAccessesField, nullptr,
     kScriptLineNumberOffset, {0, 0, 0}},
    {nullptr, "Source", "String", 0, kHostAccessesField,
     reinterpret_cast<void*>(&KvScriptSetSource), kScriptSourceOffset, {0, 0, 0}},
    {nullptr, "EncodingFont", "String", 0, kHostAccessesField, kHostAccessesField,
     kScriptEncodingFontOffset, {0, 0, 0}},
    {nullptr, "Context", "Object", 2, kHostAccessesField,
     reinterpret_cast<void*>(&KvScriptSetContext), kScriptContextOffset, {0, 0, 0}},
};

VELDmethodDefinition KvScriptMethods[4] = {
    {reinterpret_cast<void*>(&KvScriptRun), 0, "Run()"},
    {reinterpret_cast<void*>(&KvScriptPartialRun), 0, "PartialRun(millisec As Integer)"},
    {reinterpret_cast<void*>(&KvScriptReset), 0, "Reset()"},
    {reinterpret_cast<void*>(&KvScriptPrecompile), 0, "Precompile()"},
};

VELDevent KvScriptEvents[kKvScriptEventCount] = {
    {"Input(prompt As String) As String", 0},
    {"Print(msg As String)", 0},
    {"CompilerError(line As Integer, errorNumber As Integer, errorMsg As String)", 0},
    {"RuntimeError(line As Integer, error As RuntimeException)", 0},
};

VELDclassDefinition KvScriptClass = {
    kPluginInterfaceVersion,
    "KvScript",
    nullptr,
    sizeof(KvScriptData),
    0,
    &KvScriptInitializer,
    &KvScriptFinalizer,
    KvScriptProperties,
    (long)std::size(KvScriptProperties),
    KvScriptMethods,
    (long)std::size(KvScriptMethods),
    KvScriptEvents,
    (long)std::size(KvScriptEvents),
    {0, 0, 0, 0, 0, 0, 0},
};

VELDclassDefinition KvScriptExceptionClass = {
    kPluginInterfaceVersion, "KvScriptException", "RuntimeException", 0, 0, nullptr, nullptr,
    nullptr, 0, nullptr, 0, nullptr, 0, {0, 0, 0, 0, 0, 0, 0},
};

VELDclassDefinition KvScriptAlreadyRunningExceptionClass = {
    kPluginInterfaceVersion, "KvScriptAlreadyRunningException", "KvScriptException", 0, 0,
    nullptr, nullptr, nullptr, 0, nullptr, 0, nullptr, 0, {0, 0, 0, 0, 0, 0, 0},
};

void PluginEntry() {
  if (VELDGetKVVersion() < kMinimumHostVersion) return;
  VELDRegisterClass(&KvScriptClass);
  VELDRegisterClass(&KvScriptExceptionClass);
  VELDRegisterClass(&KvScriptAlreadyRunningExceptionClass);
}

void KvScriptInitializer(VELDobjectStruct* object) {
  KvScriptData* data = KvScriptDataOf(object);
  data->State = ScriptStateIdle;
  data->CurrentLineNumber = 0;
  data->Source = nullptr;
  data->interpreter = new KVInterpreter;
  data->interpreter->mOwner = object;
  data->EncodingFont = nullptr;
  KvScriptInstallRuntime(data);
}

void KvScriptFinalizer(VELDobjectStruct* object) {
  KvScriptData* data = KvScriptDataOf(object);
  if (data->Source) VELDUnlockString(data->Source);
  data->Source = nullptr;
  delete data->interpreter;
  data->interpreter = nullptr;
  if (data->EncodingFont) VELDUnlockString(data->EncodingFont);
  data->EncodingFont = nullptr;
  if (data->Context) VELDUnlockObject(data->Context);
  data->Context = nullptr;
}

void KvScriptInstallRuntime(KvScriptData* data) {
  if (!data->interpreter) return;
  // A row the host can't supply is registered with a null entry all the
  // same: the script still knows the name, and a call of it is a compile
  // error rather than a call of address 0.
  for (HostLibraryFunction const& row : kHostLibraryTable)
    data->interpreter->RegisterHostMethod(Resolver(row.entryName), false, row.declaration);
}

// Whether the object's script is on the stack: the engine's own flag,
// which neither Reset nor the host's write to State can clear.
static bool ScriptIsRunning(KvScriptData* data) {
  return data->interpreter && data->interpreter->IsRunning();
}

// Setting Source or Context is refused while a run is under way, or after
// a PartialRun until Reset or Run.
static bool RefusedWhileRunning(KvScriptData* data) {
  if (data->State != ScriptStateRunning && !ScriptIsRunning(data)) return false;
  ThrowScriptRunningException();
  return true;
}

void KvScriptReset(VELDobjectStruct* object) { KvScriptDataOf(object)->State = ScriptStateIdle; }

void KvScriptRun(VELDobjectStruct* object) {
  KvScriptData* data = KvScriptDataOf(object);
  if (!data->interpreter) return;
  if (ScriptIsRunning(data)) return ThrowScriptRunningException();
  if (data->State != ScriptStateIdle) KvScriptReset(object);
  // A handler may let go of the object: it lives until its run is over.
  VELDLockObject(object);
  data->State = ScriptStateRunning;
  data->interpreter->Run();
  if (data->State == ScriptStateRunning) data->State = ScriptStateComplete;
  VELDUnlockObject(object);
}

void KvScriptPartialRun(VELDobjectStruct* object, long milliseconds) {
  KvScriptData* data = KvScriptDataOf(object);
  if (!data->interpreter) return;
  if (ScriptIsRunning(data)) return ThrowScriptRunningException();
  if (data->State == ScriptStateRunning || data->State == ScriptStateError) KvScriptReset(object);
  data->State = ScriptStateRunning;
  bool finished = data->interpreter->PartialRun((unsigned long)milliseconds);
  if (finished && data->State == ScriptStateRunning) data->State = ScriptStateComplete;
}

void KvScriptPrecompile(VELDobjectStruct* object) {
  KvScriptData* data = KvScriptDataOf(object);
  if (data->interpreter) data->interpreter->Precompile();
}

void ThrowScriptRunningException() {
  VELDobjectStruct* exception = VELDnewInstance("KvScriptAlreadyRunningException");
  if (exception) VELDRaiseException(exception);
}

void KvScriptSetSource(VELDobjectStruct* object, long, VELDstringStruct* value) {
  KvScriptData* data = KvScriptDataOf(object);
  if (RefusedWhileRunning(data)) return;
  if (data->State != ScriptStateIdle) KvScriptReset(object);
  if (data->Source) VELDUnlockString(data->Source);
  data->Source = VELDConvertString(value, kEncodingUTF8);
  if (data->interpreter)
    data->interpreter->SetSource(VELDstringStruct::CString(data->Source),
                                 (unsigned long)VELDstringStruct::Length(data->Source));
}

// True when a member declaration starts with "Private " in any case.
static bool IsPrivateDeclaration(string const& declaration) {
  static constexpr char kPrivate[] = "Private ";
  constexpr long kPrivateLength = sizeof(kPrivate) - 1;
  return declaration.Length() >= kPrivateLength &&
         ustrcmpi(declaration.CString(), kPrivateLength, kPrivate, kPrivateLength) == 0;
}

static void RegisterContextMembers(KVInterpreter* interpreter, VELDclassRefStruct* classRef) {
  unsigned long methodCount = VELDCountClassMethods(classRef);
  for (unsigned long i = 0; i < methodCount; ++i) {
    void* entry = nullptr;
    string declaration;
    if (VELDGetClassMethod(classRef, i, &entry, &declaration) &&
        !IsPrivateDeclaration(declaration))
      interpreter->RegisterHostMethod(entry, true, declaration.CString());
  }
  unsigned long propertyCount = VELDCountClassProperties(classRef);
  for (unsigned long i = 0; i < propertyCount; ++i) {
    void* getter = nullptr;
    void* setter = nullptr;
    long param = 0;
    string declaration;
    if (!VELDGetClassProperty(classRef, i, &getter, &setter, &param, &declaration) ||
        IsPrivateDeclaration(declaration))
      continue;
    // A side the host serves from the field itself has no function to call:
    // to a script it is missing.
    if (getter == kHostAccessesField) getter = nullptr;
    if (setter == kHostAccessesField) setter = nullptr;
    interpreter->RegisterHostProperty(getter, setter, param, declaration.CString());
  }
}

void KvScriptSetContext(VELDobjectStruct* object, long, VELDobjectStruct* value) {
  KvScriptData* data = KvScriptDataOf(object);
  if (RefusedWhileRunning(data)) return;
  // Lock before unlocking, so setting the same object again keeps it alive.
  if (value) VELDLockObject(value);
  if (data->Context) VELDUnlockObject(data->Context);
  data->Context = value;
  KVInterpreter* interpreter = data->interpreter;
  if (!interpreter) return;
  interpreter->SetContext(value);
  interpreter->ClearHostCallbacks();
  KvScriptInstallRuntime(data);
  if (!value) return;
  RegisterContextMembers(interpreter, VELDClassOf(value));
}
