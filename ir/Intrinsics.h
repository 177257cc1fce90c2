// The intrinsic list: each run-time service that code building and the
// code generators call by number, with the link name the linker resolves it
// by and whether it can raise a script exception.
//
// Invariants:
// - Numbers are fixed: compiled calls and the code generators use them, so
//   an entry never moves and nothing is inserted. 0 and 44 are empty names.
// - Calls that can reach the object, array, variant or exception run-time
//   may raise; the plain string and colour helpers do not.
// - This list is the one source of the numbering: the enum, the names, the
//   raises column and the run-time table's rows keyed by number all come
//   from it.
#pragma once

#include "foundation/SimpleVector.h"
#include "foundation/String.h"

// X(enumerator, link name, raises), by number from 0.
#define KV_INTRINSICS(X) \
  X(kIntrinsicUnused0, "", false)                                       \
  X(kIntrinsicRuntimeInit, "RuntimeInit", false)                        \
  X(kIntrinsicRuntimeExit, "RuntimeExit", false)                        \
  X(kIntrinsicRuntimeStringCompare, "RuntimeStringCompare", false)      \
  X(kIntrinsicRuntimeAddString, "RuntimeAddString", false)              \
  X(kIntrinsicStringToPString, "StringToPString", false)                \
  X(kIntrinsicStringToCString, "StringToCString", false)                \
  X(kIntrinsicStringToOSType, "StringToOSType", false)                  \
  X(kIntrinsicRuntimeShortToInteger, "RuntimeShortToInteger", false)    \
  X(kIntrinsicRuntimePow, "RuntimePow", false)                          \
  X(kIntrinsicRuntimeNewObject, "RuntimeNewObject", true)               \
  X(kIntrinsicRuntimeNewClass, "RuntimeNewClass", true)                 \
  X(kIntrinsicRuntimeNewVtable, "RuntimeNewVtable", true)               \
  X(kIntrinsicRuntimeObjectIsa, "RuntimeObjectIsa", false)              \
  X(kIntrinsicRuntimeCheckCast, "RuntimeCheckCast", true)               \
  X(kIntrinsicRuntimeLookupInterfaceVtable, "RuntimeLookupInterfaceVtable", true)\
  X(kIntrinsicVariantToInt, "variantToInt", true)                       \
  X(kIntrinsicVariantToColor, "variantToColor", true)                   \
  X(kIntrinsicVariantToDouble, "variantToDouble", true)                 \
  X(kIntrinsicVariantToObject, "variantToObject", true)                 \
  X(kIntrinsicVariantToString, "variantToString", true)                 \
  X(kIntrinsicVariantToBoolean, "variantToBoolean", true)               \
  X(kIntrinsicIntToVariant, "intToVariant", true)                       \
  X(kIntrinsicColorToVariant, "colorToVariant", true)                   \
  X(kIntrinsicDoubleToVariant, "doubleToVariant", true)                 \
  X(kIntrinsicObjectToVariant, "objectToVariant", true)                 \
  X(kIntrinsicStringToVariant, "stringToVariant", true)                 \
  X(kIntrinsicBooleanToVariant, "booleanToVariant", true)               \
  X(kIntrinsicRuntimeCreateArray, "RuntimeCreateArray", true)           \
  X(kIntrinsicRuntimeCreateArrayCastWrapper, "RuntimeCreateArrayCastWrapper", true)\
  X(kIntrinsicRuntimeNilObject, "RuntimeNilObject", true)               \
  X(kIntrinsicRuntimeRaiseException, "RuntimeRaiseException", true)     \
  X(kIntrinsicRuntimeReraiseException, "RuntimeReraiseException", true) \
  X(kIntrinsicReadColorRed, "readColorRed", false)                      \
  X(kIntrinsicReadColorGreen, "readColorGreen", false)                  \
  X(kIntrinsicReadColorBlue, "readColorBlue", false)                    \
  X(kIntrinsicReadColorHue, "readColorHue", false)                      \
  X(kIntrinsicReadColorSaturation, "readColorSaturation", false)        \
  X(kIntrinsicReadColorValue, "readColorValue", false)                  \
  X(kIntrinsicReadColorCyan, "readColorCyan", false)                    \
  X(kIntrinsicReadColorMagenta, "readColorMagenta", false)              \
  X(kIntrinsicReadColorYellow, "readColorYellow", false)                \
  X(kIntrinsicVELDYieldToKV, "VELDYieldToKV", false)                    \
  X(kIntrinsicRuntimeDebugEntry, "RuntimeDebugEntry", false)            \
  X(kIntrinsicUnused44, "", false)                                      \
  X(kIntrinsicRuntimeCheckStack, "RuntimeCheckStack", true)             \
  X(kIntrinsicDisableAutoWaitCursor, "DisableAutoWaitCursor", false)    \
  X(kIntrinsicEnableAutoWaitCursor, "EnableAutoWaitCursor", false)      \
  X(kIntrinsicRuntimeLockArray, "RuntimeLockArray", false)              \
  X(kIntrinsicRuntimeUnlockArray, "RuntimeUnlockArray", true)           \
  X(kIntrinsicRuntimeLockUnlockArrays, "RuntimeLockUnlockArrays", true) \
  X(kIntrinsicRuntimeLockString, "RuntimeLockString", false)            \
  X(kIntrinsicRuntimeUnlockString, "RuntimeUnlockString", false)        \
  X(kIntrinsicRuntimeLockUnlockStrings, "RuntimeLockUnlockStrings", false)\
  X(kIntrinsicRuntimeLockObject, "RuntimeLockObject", false)            \
  X(kIntrinsicRuntimeUnlockObject, "RuntimeUnlockObject", true)         \
  X(kIntrinsicRuntimeLockUnlockObjects, "RuntimeLockUnlockObjects", true) \
  X(kIntrinsicRuntimeUnhandledException, "RuntimeUnhandledException", false)

enum IntrinsicNumber : int {
#define KV_INTRINSIC_ENUM(value, name, raises) value,
  KV_INTRINSICS(KV_INTRINSIC_ENUM)
#undef KV_INTRINSIC_ENUM
  kIntrinsicFunctionCount
};

// The link name of intrinsic `index`; "" for an empty entry or a number
// outside the list.
char const* IntrinsicFunctionName(int index);
// The link names by intrinsic number; made once, on first use.
SimpleVector<string> const& IntrinsicFunctionNames();
// Whether intrinsic `index` can raise a script exception; false outside the list.
bool IntrinsicFunctionRaisesExceptions(int index);
