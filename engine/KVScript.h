// The host class KvScript and its two exception classes: the definition
// records the host registers, the instance data it allocates for each
// object, and the methods and property setters it calls.
//
// Invariants:
// - The host allocates KvScriptData cleared and reads State,
//   CurrentLineNumber, Source, EncodingFont and Context by offset, so the
//   layout is pinned below and the property rows take their offsets from it.
// - Each string or object field holds one lock of its own.
// - State moves only as the script state table says (ScriptState).
//
// Re-entry: from an event handler of a running script, or a host method
// that it calls,
// - setting Source or Context, Run and PartialRun of the same object raise
//   KvScriptAlreadyRunningException and change nothing;
// - Reset sets State to 0; the run goes on to its end and State stays 0;
// - Precompile does nothing, since the running image is current;
// - any other KvScript object may be set up, compiled and run;
// - the object itself may be let go: Run holds a lock until it returns.
// The guard is the engine's own running flag, so Reset does not lift it.
// One thread uses these classes (see engine/KVScriptInterface.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "engine/PluginMain.h"

class KVInterpreter;

struct KvScriptData {
  long State;
  VELDstringStruct* Source;
  long CurrentLineNumber;
  KVInterpreter* interpreter;
  VELDstringStruct* EncodingFont;
  VELDobjectStruct* Context;
};

static_assert(std::is_standard_layout_v<KvScriptData>);
static_assert(offsetof(KvScriptData, State) == 0);
static_assert(offsetof(KvScriptData, Source) == 4);
static_assert(offsetof(KvScriptData, CurrentLineNumber) == 8);
static_assert(offsetof(KvScriptData, interpreter) == 12);
static_assert(offsetof(KvScriptData, EncodingFont) == 16);
static_assert(offsetof(KvScriptData, Context) == 20);
static_assert(sizeof(KvScriptData) == 24);

constexpr long kScriptStateOffset = offsetof(KvScriptData, State);
constexpr long kScriptSourceOffset = offsetof(KvScriptData, Source);
constexpr long kScriptLineNumberOffset = offsetof(KvScriptData, CurrentLineNumber);
constexpr long kScriptEncodingFontOffset = offsetof(KvScriptData, EncodingFont);
constexpr long kScriptContextOffset = offsetof(KvScriptData, Context);

// The rows of KvScriptEvents, in the order the engine addresses them.
enum KvScriptEventIndex {
  kKvScriptInputEvent,
  kKvScriptPrintEvent,
  kKvScriptCompilerErrorEvent,
  kKvScriptRuntimeErrorEvent,
  kKvScriptEventCount
};

// The host's handlers for those events take the object first.
typedef VELDstringStruct* (*KvScriptInputHandler)(VELDobjectStruct* object,
                                                  VELDstringStruct* prompt);
typedef void (*KvScriptPrintHandler)(VELDobjectStruct* object, VELDstringStruct* msg);
typedef void (*KvScriptCompilerErrorHandler)(VELDobjectStruct* object, long line,
                                             long errorNumber, VELDstringStruct* errorMsg);
typedef void (*KvScriptRuntimeErrorHandler)(VELDobjectStruct* object, long line,
                                            VELDobjectStruct* error);

// Written by the host at registration (the instance data offset), so not const.
extern VELDclassDefinition KvScriptClass;
extern VELDclassDefinition KvScriptExceptionClass;
extern VELDclassDefinition KvScriptAlreadyRunningExceptionClass;
extern VELDproperty KvScriptProperties[5];
extern VELDmethodDefinition KvScriptMethods[4];
extern VELDevent KvScriptEvents[kKvScriptEventCount];

// Registers the three classes with a host of version 4.5 or later; an older
// host gets nothing.
void PluginEntry();

void KvScriptInitializer(VELDobjectStruct* object);
void KvScriptFinalizer(VELDobjectStruct* object);
void KvScriptRun(VELDobjectStruct* object);
void KvScriptPartialRun(VELDobjectStruct* object, long milliseconds);
void KvScriptReset(VELDobjectStruct* object);
void KvScriptPrecompile(VELDobjectStruct* object);
// `param` is ignored; `value` is borrowed.
void KvScriptSetSource(VELDobjectStruct* object, long param, VELDstringStruct* value);
void KvScriptSetContext(VELDobjectStruct* object, long param, VELDobjectStruct* value);
// Raises KvScriptAlreadyRunningException in the host, if it can be made.
void ThrowScriptRunningException();
// Registers every row of the host library table on the data's interpreter.
void KvScriptInstallRuntime(KvScriptData* data);

inline KvScriptData* KvScriptDataOf(VELDobjectStruct* object) {
  return static_cast<KvScriptData*>(VELDGetClassData(object, &KvScriptClass));
}
