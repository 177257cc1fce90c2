#include "runtime/KVScriptIntrinsics.h"

#include <iterator>

#include "ir/Intrinsics.h"
#include "runtime/ColorFunctions.h"
#include "runtime/MathRuntime.h"
#include "runtime/RunAbort.h"
#include "runtime/RuntimeArrayFoundation.h"
#include "runtime/RuntimeExceptionFoundation.h"
#include "runtime/RunState.h"
#include "runtime/RuntimeObjectFoundation.h"
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
  // The rows of the variant family join as that family is built; a name
  // without a row fails the link. Two rows are not functions
  // of the intrinsic list: the word holding the stack limit, and the call
  // by which a handler takes the exception in flight. An
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
      {IntrinsicFunctionName(kIntrinsicRuntimeCheckStack), Entry(&RuntimeCheckStack)},
      {kStackLimitName, Entry(&gRuntimeStackLimit)},
      {kYieldCountdownName, Entry(&gRuntimeYieldCountdown)},
      {IntrinsicFunctionName(kIntrinsicRuntimeRaiseException), Entry(&RuntimeRaiseException)},
      {IntrinsicFunctionName(kIntrinsicRuntimeReraiseException), Entry(&RuntimeReraiseException)},
      {IntrinsicFunctionName(kIntrinsicRuntimeUnhandledException), Entry(&RuntimeUnhandledException)},
      {kTakeExceptionName, Entry(&RuntimeTakeException)},
      {IntrinsicFunctionName(kIntrinsicDisableAutoWaitCursor), Entry(&DisableAutoWaitCursor)},
      {IntrinsicFunctionName(kIntrinsicEnableAutoWaitCursor), Entry(&EnableAutoWaitCursor)},
      {"RuntimeStackCheck", Entry(&RuntimeCheckStack)},
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
      {IntrinsicFunctionName(kIntrinsicRuntimeNewObject), Entry(&RuntimeNewObject)},
      {IntrinsicFunctionName(kIntrinsicRuntimeNewClass), Entry(&RuntimeNewClass)},
      {IntrinsicFunctionName(kIntrinsicRuntimeNewVtable), Entry(&RuntimeNewVtable)},
      {IntrinsicFunctionName(kIntrinsicRuntimeObjectIsa), Entry(&RuntimeObjectIsa)},
      {IntrinsicFunctionName(kIntrinsicRuntimeCheckCast), Entry(&RuntimeCheckCast)},
      {IntrinsicFunctionName(kIntrinsicRuntimeLookupInterfaceVtable), Entry(&RuntimeLookupInterfaceVtable)},
      {IntrinsicFunctionName(kIntrinsicRuntimeNilObject), Entry(&RaiseNilObjectException)},
      {IntrinsicFunctionName(kIntrinsicRuntimeLockObject), Entry(&RuntimeLockObject)},
      {IntrinsicFunctionName(kIntrinsicRuntimeUnlockObject), Entry(&RuntimeUnlockObject)},
      {IntrinsicFunctionName(kIntrinsicRuntimeLockUnlockObjects), Entry(&RuntimeLockUnlockObjects)},
      {IntrinsicFunctionName(kIntrinsicRuntimeCreateArray), Entry(&CreateArray)},
      {IntrinsicFunctionName(kIntrinsicRuntimeCreateArrayCastWrapper), Entry(&RuntimeCreateArrayCastWrapper)},
      {IntrinsicFunctionName(kIntrinsicRuntimeLockArray), Entry(&RuntimeLockArray)},
      {IntrinsicFunctionName(kIntrinsicRuntimeUnlockArray), Entry(&RuntimeUnlockArray)},
      {IntrinsicFunctionName(kIntrinsicRuntimeLockUnlockArrays), Entry(&RuntimeLockUnlockArrays)},
      {"RuntimeUbound", Entry(&RuntimeUBound)},
      {"RuntimeUbound2Param", Entry(&RuntimeUBound2Param)},
      {"RuntimeExceptionLookup", Entry(&RuntimeExceptionLookup)},
      {"OutOfMemoryExceptionLookup", Entry(&OutOfMemoryExceptionLookup)},
      {"NilObjectExceptionLookup", Entry(&NilObjectExceptionLookup)},
      {"IllegalCastExceptionLookup", Entry(&IllegalCastExceptionLookup)},
      {"TypeMismatchExceptionLookup", Entry(&TypeMismatchExceptionLookup)},
      {"OutOfBoundsExceptionLookup", Entry(&OutOfBoundsExceptionLookup)},
      {"StackOverflowExceptionLookup", Entry(&StackOverflowExceptionLookup)},
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

// The classes that the run-time raises by itself are made before the script
// needs them, so that a raise when memory is short need not make one, and a
// script's Catch of one of them names the same record.
void RuntimeInit() {
  OutOfMemoryExceptionLookup();
  NilObjectExceptionLookup();
  IllegalCastExceptionLookup();
  OutOfBoundsExceptionLookup();
  StackOverflowExceptionLookup();
}

void UnhandledException(RuntimeObject*) {
  if (KvScriptCorrespondent* correspondent = GetRuntimeCorrespondent())
    correspondent->ScriptError(kRuntimeErrorUnhandledException, RaiseLine());
}

int32_t gRuntimeYieldCountdown = kYieldInterval;

void RuntimeYield() {
  // Generated code counts the rounds down in line and calls here when the
  // count runs out: a round is often a handful of instructions, and setting
  // the run state aside and back costs more than that. The host hears of
  // one round in kYieldInterval.
  gRuntimeYieldCountdown = kYieldInterval;
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

struct LibraryClassRow {
  char const* name;
  bool isException;
  uint32_t instanceSize;
  RuntimeObjectProc initializer;
  RuntimeObjectProc finalizer;
};

// By LibraryClass slot. A variant's finalizer, which drops the value it
// holds, comes with the variant run-time.
LibraryClassRow const kLibraryClassRows[] = {
    {"Variant", false, kVariantInstanceSize, InitializeVariant, nullptr},
    {"RuntimeException", true, kExceptionInstanceSize, InitializeException, UninitializeException},
    {"OutOfMemoryException", true, kExceptionInstanceSize, InitializeException, UninitializeException},
    {"NilObjectException", true, kExceptionInstanceSize, InitializeException, UninitializeException},
    {"IllegalCastException", true, kExceptionInstanceSize, InitializeException, UninitializeException},
    {"TypeMismatchException", true, kExceptionInstanceSize, InitializeException, UninitializeException},
    {"OutOfBoundsException", true, kExceptionInstanceSize, InitializeException, UninitializeException},
    {"StackOverflowException", true, kExceptionInstanceSize, InitializeException, UninitializeException},
};
static_assert(std::size(kLibraryClassRows) == kLibraryClassCount);

// The run keeps each class it has made by slot: a script class of the same
// name is never taken for it, and a lookup costs no search. A failed
// RuntimeNewClass has raised already; only outside a run does it come back.
RuntimeClass* LookUpLibraryClass(LibraryClass which) {
  if (RuntimeClass* made = GetLibraryClass(which)) return made;
  LibraryClassRow const& row = kLibraryClassRows[which];
  RuntimeClass* parent = nullptr;
  if (row.isException && which != kLibraryRuntimeException) {
    parent = RuntimeExceptionLookup();
    if (!parent) return nullptr;
  }
  RuntimeClass* made = RuntimeNewClass(parent, 0, 0, 0, 0, 0);
  if (!made) {
    ReportOutOfMemory();
    return nullptr;
  }
  // The record holds a reference on its name.
  made->mName = string(row.name).ExtractStringStorage();
  made->mInstanceSize = row.instanceSize;
  made->mInitializer = row.initializer;
  made->mFinalizer = row.finalizer;
  SetLibraryClass(which, made);
  return made;
}

}  // namespace

RuntimeClass* VariantLookup() { return LookUpLibraryClass(kLibraryVariant); }
RuntimeClass* RuntimeExceptionLookup() { return LookUpLibraryClass(kLibraryRuntimeException); }
RuntimeClass* OutOfMemoryExceptionLookup() { return LookUpLibraryClass(kLibraryOutOfMemoryException); }
RuntimeClass* NilObjectExceptionLookup() { return LookUpLibraryClass(kLibraryNilObjectException); }
RuntimeClass* IllegalCastExceptionLookup() { return LookUpLibraryClass(kLibraryIllegalCastException); }
RuntimeClass* TypeMismatchExceptionLookup() { return LookUpLibraryClass(kLibraryTypeMismatchException); }
RuntimeClass* OutOfBoundsExceptionLookup() { return LookUpLibraryClass(kLibraryOutOfBoundsException); }
RuntimeClass* StackOverflowExceptionLookup() { return LookUpLibraryClass(kLibraryStackOverflowException); }

// ---------------------------------------------------------------------------
// Functions with nothing to do

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
