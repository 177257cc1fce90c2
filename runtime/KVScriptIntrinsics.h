// The script library as the linker sees it: the table of link names to
// run-time functions, and the small run-time functions that belong to no
// other family (input, output, start, yield, the classes of the library).
// The compiler's view of it, the prefix module, is semantic/ScriptLibrary.h.
//
// Invariants:
// - The function table is made anew for each link and belongs to the caller.
// - Functions that generated code calls take their arguments borrowed and
//   hand back strings with one reference; they use the plain C convention.
// - During a run, the correspondent and the class list describe the script
//   now running; RuntimeYield gives both back as it found them.
#pragma once

#include <cstdint>

#include "foundation/String.h"
#include "foundation/StringMap.h"
#include "ir/DataTypes.h"

struct RuntimeClass;
struct RuntimeObject;

// The run-time's instance sizes of the library's classes: the object
// header, plus a variant's tagged value.
constexpr uint32_t kVariantInstanceSize = 40;
constexpr uint32_t kExceptionInstanceSize = 24;
// Bytes of a Variant's own fields as the compiler lays them out.
constexpr int32_t kVariantStorageSize = 16;

// A new map from link name to function, owned by the caller.
StringMap<void*>* MakeKvScriptRuntimeFunctionTable();

// The first class of the run in progress with this name (ignoring case), or null.
RuntimeClass* FindNamedClass(string name);

extern "C" {
// Asks whoever runs the script; the empty string without anyone to ask.
stringStorage* Input(stringStorage* prompt);
void Print(stringStorage* text);
// What every script's main function calls first: makes the exception
// classes that the run-time raises by itself.
void RuntimeInit();
// Lets the host run other scripts: keeps this run's correspondent and classes.
// Generated code counts loop rounds down and calls RuntimeYield, which
// yields to the host, at one round in this many.
constexpr int32_t kYieldInterval = 64;
// Loop rounds left before the next call of RuntimeYield (kYieldCountdownName).
extern int32_t gRuntimeYieldCountdown;
void RuntimeYield();
void UnhandledException(RuntimeObject* exception);

// The library's classes: made on first use and kept by the run (not found
// by name); null after a failure, which has been reported.
RuntimeClass* VariantLookup();
RuntimeClass* RuntimeExceptionLookup();
RuntimeClass* OutOfMemoryExceptionLookup();
RuntimeClass* NilObjectExceptionLookup();
RuntimeClass* IllegalCastExceptionLookup();
RuntimeClass* TypeMismatchExceptionLookup();
RuntimeClass* OutOfBoundsExceptionLookup();
RuntimeClass* StackOverflowExceptionLookup();

// Generated code calls these; they have nothing to do.
void RuntimeDebugEntry();
void DisableAutoWaitCursor();
void EnableAutoWaitCursor();
void InitializeVariant(RuntimeObject* object);
void InitializeException(RuntimeObject* object);
void UninitializeException(RuntimeObject* object);

// Arguments of external functions. The results point into the borrowed
// string, so they live as long as the caller holds it; the empty string
// gives a text of length 0.
unsigned char const* StringToPString(stringStorage* s);
char const* StringToCString(stringStorage* s);
// The first four bytes as one big-endian word, short texts padded with spaces.
uint32_t StringToOSType(stringStorage* s);
// A 16-bit result, sign-extended.
int32_t RuntimeShortToInteger(int32_t value);
}
