// The script library as the compiler and the linker see it: the prefix
// module of everything a script may name without declaring it, the table
// of link names to run-time functions, and the small run-time functions
// that belong to no other family (input, output, start, yield, the classes
// of the library).
//
// Invariants:
// - The prefix module and the function table are made anew for each
//   compile and belong to the caller.
// - Functions that generated code calls take their arguments borrowed and
//   hand back strings with one reference; they use the plain C convention.
// - During a run, the correspondent and the class list describe the script
//   now running; RuntimeYield gives both back as it found them.
#pragma once

#include <cstdint>

#include "foundation/string.h"
#include "foundation/stringmap.h"
#include "semantic/datatypes.h"

class ClassDeclaration;
class FunctionDeclaration;
class ModuleDeclaration;
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

// A new module holding the library's functions and classes; the caller
// owns it (it is not locked).
ModuleDeclaration* MakeKvScriptRuntimeDeclarations();

// A function of the library: dispatched by link name, named `linkName`,
// called `scriptName`. Each parameter type that is not the null type adds a
// parameter "ParameterN", N being its position. Not locked.
FunctionDeclaration* MakeRuntimeMethodDeclaration(string linkName, string scriptName, IRDataType result,
                                                  IRDataType p1 = IRDataType(),
                                                  IRDataType p2 = IRDataType(),
                                                  IRDataType p3 = IRDataType());
ClassDeclaration* MakeVariantDeclaration();
ClassDeclaration* MakeRuntimeExceptionDeclaration();
// A subclass with the parent's storage, already connected to it.
ClassDeclaration* MakeRuntimeExceptionSubclassDeclaration(ClassDeclaration* parent, string name,
                                                          string linkName);

// The first class of the run in progress with this name (ignoring case), or null.
RuntimeClass* FindNamedClass(string name);

extern "C" {
// Asks whoever runs the script; the empty string without anyone to ask.
stringStorage* Input(stringStorage* prompt);
void Print(stringStorage* text);
// What every script's main function calls first.
void RuntimeInit();
// Lets the host run other scripts: keeps this run's correspondent and classes.
void RuntimeYield();
void UnhandledException(RuntimeObject* exception);

// The library's classes: found on the run's class list, made on first use.
RuntimeClass* VariantLookup();
RuntimeClass* RuntimeExceptionLookup();
RuntimeClass* OutOfMemoryExceptionLookup();
RuntimeClass* NilObjectExceptionLookup();
RuntimeClass* IllegalCastExceptionLookup();
RuntimeClass* TypeMismatchExceptionLookup();
RuntimeClass* OutOfBoundsExceptionLookup();
RuntimeClass* StackOverflowExceptionLookup();

// Generated code calls these; they have nothing to do.
void RuntimeStackCheck();
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
