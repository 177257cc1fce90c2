// IRDataType, the one description of a type that the whole compiler shares,
// from declarations to the code generators, and IRValue, the constant that
// goes with it.
//
// Invariants:
// - A type has at most one level of structure: a plain type or class, a
//   one-level array of either, or a reference to any of those. Arrays of
//   arrays and references to references can't be described.
// - `elementType` is set only for arrays (the element's main type) and
//   references (the referred type's main type); `referredElementType` only
//   for a reference to an array. Everywhere else both are kTypeNull.
// - An IRValue never knows its own type: it is read with an IRDataType.
#pragma once

#include <cstdint>

#include "foundation/String.h"

// A Double's conversion to Integer as the processor's truncation gives it: a
// NaN or a value outside the 32-bit range becomes the "integer indefinite"
// 0x80000000. The run time converts so, and a conversion folded at compile
// time must give what the same conversion gives at run time.
inline int32_t TruncateToInt32(double x) {
  if (!(x > -2147483649.0 && x < 2147483648.0)) return INT32_MIN;
  return static_cast<int32_t>(x);
}

// The numbers are fixed: other parts of the compiler and the tables that
// describe the script library compare against them, so gaps stay gaps.
enum SimpleDataType : int32_t {
  kTypeNull = 0,
  kTypeBoolean = 1,
  kTypeInteger = 5,
  // A second integer kind that no routine makes; kept so its number prints
  // and converts like an Integer.
  kTypeInteger32 = 7,
  kTypeSingle = 8,
  kTypeDouble = 9,
  kTypeString = 12,
  kTypeColor = 13,
  kTypeObject = 14,
  kTypeArray = 15,
  kTypeReference = 16,
  kTypeClassRef = 17,
  // The rest exist only in external declarations.
  kTypeCString = 18,
  kTypePString = 19,
  kTypeWindowPtr = 20,
  kTypePtr = 21,
  kTypeOSType = 22,
  kTypeShort = 23,
};

class IRDataType {
public:
  // The null type: every field zero or empty.
  IRDataType();
  IRDataType(SimpleDataType t);
  // An object type of that class; an empty name is the root Object.
  explicit IRDataType(string className);

  SimpleDataType GetMainType() const { return mainType; }
  bool Null() const { return mainType == kTypeNull; }
  // For arrays and references the element's main type, else the main type.
  SimpleDataType GetElementType() const;
  IRDataType AsArray(int dims) const;
  IRDataType AsReference() const;
  // Undoes AsArray or AsReference; the null type for anything else.
  IRDataType AsElement() const;
  unsigned char GetDimensions() const;
  // The class name of an object, or of an array of or reference to one.
  string GetClass() const;
  // Strings, objects and arrays carry a count; a reference to one does not.
  bool RefCounted() const;
  bool IsFloat() const;
  // Bytes a variable of this type takes in a frame, object or data area.
  int StorageSize() const;
  string ToString() const;

  bool operator==(IRDataType const& other) const;
  bool operator!=(IRDataType const& other) const { return !(*this == other); }

  SimpleDataType mainType;
  SimpleDataType elementType;
  SimpleDataType referredElementType;
  unsigned char dimensions;
  string className;
};

class IRValue {
public:
  // The payload is zeroed rather than left unset, so a stray read is stable.
  IRValue() : real64(0.0) {}

  static IRValue SInt32(long value);
  static IRValue Real32(float value);
  static IRValue Real64(double value);

  // Spells the value for diagnostics and listings, read as `type`.
  string toString(IRDataType type) const;

  // Integers, booleans (1 or 0) and colours in sint32; Single in real32,
  // Double in real64.
  union {
    int32_t sint32;
    float real32;
    double real64;
  };
  // The text of a string constant.
  string text;
};

static_assert(sizeof(double) == 8, "the payload of a constant is eight bytes");

// The shared zero: payload all zero, text empty.
extern IRValue const kIRZeroValue;
