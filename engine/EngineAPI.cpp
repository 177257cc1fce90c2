#include "engine/EngineAPI.h"

#include "engine/KVScript.h"
#include "engine/KVScriptInterface.h"
#include "foundation/TextEncodingUtil.h"
#include "foundation/Utility.h"
#include "diag/CompileError.h"
#include "runtime/RunAbort.h"

char const* CompileErrorNameOf(long errorNumber) {
  return CompileErrorName((CompileErrorCode)errorNumber);
}

static KVInterpreter* InterpreterOf(VELDobjectStruct* script) {
  return script ? KvScriptDataOf(script)->interpreter : nullptr;
}

bool KvScriptListing(VELDobjectStruct* script, string* listing) {
  KVInterpreter* interpreter = InterpreterOf(script);
  return interpreter && interpreter->ListThreeAddressCode(listing);
}

bool KvScriptHasLinkedCode(VELDobjectStruct* script) {
  KVInterpreter* interpreter = InterpreterOf(script);
  return interpreter && interpreter->Code() != nullptr;
}

char const* KvScriptUnhandledExceptionClass() { return UnhandledExceptionClassName(); }

void WarmUpSharedValues() {
  // Whatever a script may touch at compile time: the pragma table, a
  // declaration, a string literal and the library's declarations.
  char const kWarmUp[] = "#pragma BoundsChecking True\nDim a As Integer\nPrint \"a\"\n";
  KVScriptInterface engine;
  engine.SetSource(kWarmUp, sizeof kWarmUp - 1);
  engine.Precompile();
}

long CountedBytes() {
  ClearConvertEncodingCache();
  return gTotalAllocLen;
}
