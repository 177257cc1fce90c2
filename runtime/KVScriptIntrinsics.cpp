#include "runtime/KVScriptIntrinsics.h"

#include "ir/Intrinsics.h"
#include "runtime/RunState.h"
#include "runtime/MathRuntime.h"
#include "runtime/RunState.h"
#include "runtime/RuntimeObjectFoundation.h"
#include "runtime/ColorFunctions.h"
#include "runtime/RuntimeStringFoundation.h"

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
  // those families are built; a name without a row fails the link. An
  // intrinsic's row takes its name from the intrinsic list, so the two
  // cannot drift apart.
  RuntimeFunctionRow const rows[] = {
      {"Input", Entry(&Input)},
      {"Print", Entry(&Print)},
      {IntrinsicFunctionName(kIntrinsicRuntimeInit), Entry(&RuntimeInit)},
      {IntrinsicFunctionName(kIntrinsicRuntimeExit), Entry(&ExitKvScriptRuntime)},
      {IntrinsicFunctionName(kIntrinsicRuntimeStringCompare), Entry(&CompareStringsInternal)},
      {IntrinsicFunctionName(kIntrinsicRuntimeAddString), Entry(&RuntimeAddString)},
      {IntrinsicFunctionName(kIntrinsicRuntimeLockString), Entry(&RuntimeLockString)},
      {IntrinsicFunctionName(kIntrinsicRuntimeUnlockString), Entry(&RuntimeUnlockString)},
      {IntrinsicFunctionName(kIntrinsicRuntimeLockUnlockStrings), Entry(&RuntimeLockUnlockStrings)},
      {IntrinsicFunctionName(kIntrinsicVELDYieldToKV), Entry(&RuntimeYield)},
      {IntrinsicFunctionName(kIntrinsicRuntimeCheckStack), Entry(&RuntimeStackCheck)},
      {IntrinsicFunctionName(kIntrinsicDisableAutoWaitCursor), Entry(&DisableAutoWaitCursor)},
      {IntrinsicFunctionName(kIntrinsicEnableAutoWaitCursor), Entry(&EnableAutoWaitCursor)},
      {"RuntimeStackCheck", Entry(&RuntimeStackCheck)},
      {IntrinsicFunctionName(kIntrinsicRuntimeDebugEntry), Entry(&RuntimeDebugEntry)},
      {IntrinsicFunctionName(kIntrinsicStringToPString), Entry(&StringToPString)},
      {IntrinsicFunctionName(kIntrinsicStringToCString), Entry(&StringToCString)},
      {IntrinsicFunctionName(kIntrinsicStringToOSType), Entry(&StringToOSType)},
      {IntrinsicFunctionName(kIntrinsicRuntimeShortToInteger), Entry(&RuntimeShortToInteger)},
      {IntrinsicFunctionName(kIntrinsicRuntimePow), Entry(&RuntimePow)},
      {IntrinsicFunctionName(kIntrinsicReadColorRed), Entry(&readColorRed)},
      {IntrinsicFunctionName(kIntrinsicReadColorGreen), Entry(&readColorGreen)},
      {IntrinsicFunctionName(kIntrinsicReadColorBlue), Entry(&readColorBlue)},
      {IntrinsicFunctionName(kIntrinsicReadColorHue), Entry(&readColorHue)},
      {IntrinsicFunctionName(kIntrinsicReadColorSaturation), Entry(&readColorSaturation)},
      {IntrinsicFunctionName(kIntrinsicReadColorValue), Entry(&readColorValue)},
      {IntrinsicFunctionName(kIntrinsicReadColorCyan), Entry(&readColorCyan)},
      {IntrinsicFunctionName(kIntrinsicReadColorMagenta), Entry(&readColorMagenta)},
      {IntrinsicFunctionName(kIntrinsicReadColorYellow), Entry(&readColorYellow)},
  };
  auto* table = new StringMap<void*>;
  for (RuntimeFunctionRow const& row : rows) table->AddEntry(row.linkName, row.function);
  return table;
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
