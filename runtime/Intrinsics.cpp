#include "runtime/Intrinsics.h"

#include <iterator>

#include "engine/compiler.h"

namespace {

struct IntrinsicRow {
  char const* name;
  bool raises;
};

// By number. Calls that can reach the object, array, variant or exception
// run-time may raise; the plain string and colour helpers do not.
IntrinsicRow const kIntrinsics[] = {
    {"", false},                                   // 0
    {"RuntimeInit", false},                        // 1
    {"RuntimeExit", false},                        // 2
    {"RuntimeStringCompare", false},               // 3
    {"RuntimeAddString", false},                   // 4
    {"StringToPString", false},                    // 5
    {"StringToCString", false},                    // 6
    {"StringToOSType", false},                     // 7
    {"RuntimeShortToInteger", false},              // 8
    {"RuntimePow", false},                         // 9
    {"RuntimeNewObject", true},                    // 10
    {"RuntimeNewClass", true},                     // 11
    {"RuntimeNewVtable", true},                    // 12
    {"RuntimeObjectIsa", false},                   // 13
    {"RuntimeCheckCast", true},                    // 14
    {"RuntimeLookupInterfaceVtable", true},        // 15
    {"variantToInt", true},                        // 16
    {"variantToColor", true},                      // 17
    {"variantToDouble", true},                     // 18
    {"variantToObject", true},                     // 19
    {"variantToString", true},                     // 20
    {"variantToBoolean", true},                    // 21
    {"intToVariant", true},                        // 22
    {"colorToVariant", true},                      // 23
    {"doubleToVariant", true},                     // 24
    {"objectToVariant", true},                     // 25
    {"stringToVariant", true},                     // 26
    {"booleanToVariant", true},                    // 27
    {"RuntimeCreateArray", true},                  // 28
    {"RuntimeCreateArrayCastWrapper", true},       // 29
    {"RuntimeNilObject", true},                    // 30
    {"RuntimeRaiseException", true},               // 31
    {"RuntimeReraiseException", true},             // 32
    {"readColorRed", false},                       // 33
    {"readColorGreen", false},                     // 34
    {"readColorBlue", false},                      // 35
    {"readColorHue", false},                       // 36
    {"readColorSaturation", false},                // 37
    {"readColorValue", false},                     // 38
    {"readColorCyan", false},                      // 39
    {"readColorMagenta", false},                   // 40
    {"readColorYellow", false},                    // 41
    {"VELDYieldToKV", false},                      // 42
    {"RuntimeDebugEntry", false},                  // 43
    {"", false},                                   // 44
    {"RuntimeCheckStack", true},                   // 45
    {"DisableAutoWaitCursor", false},              // 46
    {"EnableAutoWaitCursor", false},               // 47
    {"RuntimeLockArray", false},                   // 48
    {"RuntimeUnlockArray", true},                  // 49
    {"RuntimeLockUnlockArrays", true},             // 50
    {"RuntimeLockString", false},                  // 51
    {"RuntimeUnlockString", false},                // 52
    {"RuntimeLockUnlockStrings", false},           // 53
    {"RuntimeLockObject", false},                  // 54
    {"RuntimeUnlockObject", true},                 // 55
    {"RuntimeLockUnlockObjects", true},            // 56
};
static_assert(std::size(kIntrinsics) == kIntrinsicFunctionCount);
static_assert(kIntrinsicFunctionCount == kIntrinsicCount);

}  // namespace

SimpleVector<string> const& IntrinsicFunctionNames() {
  static SimpleVector<string> const sNames = [] {
    SimpleVector<string> names;
    for (IntrinsicRow const& row : kIntrinsics) names.push_back(string(row.name));
    return names;
  }();
  return sNames;
}

bool IntrinsicFunctionRaisesExceptions(int index) {
  if (index < 0 || index >= kIntrinsicFunctionCount) return false;
  return kIntrinsics[index].raises;
}
