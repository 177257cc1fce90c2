#include "ir/DataTypes.h"

#include "foundation/Utility.h"

IRValue const kIRZeroValue;

IRDataType::IRDataType()
    : mainType(kTypeNull), elementType(kTypeNull), referredElementType(kTypeNull), dimensions(0) {}

IRDataType::IRDataType(SimpleDataType t)
    : mainType(t), elementType(kTypeNull), referredElementType(kTypeNull), dimensions(0) {}

IRDataType::IRDataType(string name)
    : mainType(kTypeObject),
      elementType(kTypeNull),
      referredElementType(kTypeNull),
      dimensions(0),
      className(name) {}

static bool IsArrayOrReference(SimpleDataType t) {
  return t == kTypeArray || t == kTypeReference;
}

SimpleDataType IRDataType::GetElementType() const {
  return IsArrayOrReference(mainType) ? elementType : mainType;
}

IRDataType IRDataType::AsArray(int dims) const {
  IRDataType r(kTypeArray);
  r.elementType = mainType;
  r.dimensions = (unsigned char)(dims & 0xFF);
  r.className = className;
  return r;
}

IRDataType IRDataType::AsReference() const {
  IRDataType r(kTypeReference);
  r.elementType = mainType;
  r.referredElementType = elementType;
  r.dimensions = dimensions;
  r.className = className;
  return r;
}

IRDataType IRDataType::AsElement() const {
  if (!IsArrayOrReference(mainType)) return IRDataType();
  IRDataType r(elementType);
  r.elementType = referredElementType;
  r.className = className;
  // A reference keeps the shape of the array it refers to.
  r.dimensions = mainType == kTypeReference ? dimensions : 0;
  return r;
}

unsigned char IRDataType::GetDimensions() const {
  if (mainType == kTypeArray) return dimensions;
  if (mainType == kTypeReference && elementType == kTypeArray) return dimensions;
  return 0;
}

string IRDataType::GetClass() const {
  if (mainType == kTypeObject || elementType == kTypeObject) return className;
  return string();
}

bool IRDataType::RefCounted() const {
  return mainType == kTypeString || mainType == kTypeObject || mainType == kTypeArray;
}

bool IRDataType::IsFloat() const { return mainType == kTypeSingle || mainType == kTypeDouble; }

int IRDataType::StorageSize() const { return mainType == kTypeDouble ? 8 : 4; }

// The text of each plain type; a number that has none prints as unknown.
static char const* PlainTypeName(SimpleDataType t) {
  switch (t) {
    case kTypeBoolean: return "Boolean";
    case kTypeInteger: return "Integer";
    case kTypeInteger32: return "Integer";
    case kTypeSingle: return "Single";
    case kTypeDouble: return "Double";
    case kTypeString: return "String";
    case kTypeColor: return "Color";
    case kTypeCString: return "CString";
    case kTypePString: return "PString";
    case kTypeWindowPtr: return "Window";
    case kTypePtr: return "Ptr";
    case kTypeOSType: return "OSType";
    case kTypeShort: return "Short";
    default: return "Unknown Type";
  }
}

string IRDataType::ToString() const {
  switch (mainType) {
    case kTypeReference: return AsElement().ToString();
    case kTypeArray: return AsElement().ToString() + string("()");
    case kTypeObject: {
      string name = GetClass();
      return name.Length() ? name : string("Object");
    }
    default: return string(PlainTypeName(mainType));
  }
}

bool IRDataType::operator==(IRDataType const& other) const {
  if (mainType != other.mainType) return false;
  switch (mainType) {
    case kTypeArray:
      return dimensions == other.dimensions && elementType == other.elementType &&
             (elementType != kTypeObject || className == other.className);
    case kTypeReference:
      // Neither class nor shape counts: a reference to one class equals a
      // reference to any other.
      return elementType == other.elementType;
    case kTypeObject: return className == other.className;
    default: return true;
  }
}

IRValue IRValue::SInt32(long value) {
  IRValue v;
  v.sint32 = (int32_t)value;
  return v;
}

IRValue IRValue::Real32(float value) {
  IRValue v;
  v.real32 = value;
  return v;
}

IRValue IRValue::Real64(double value) {
  IRValue v;
  v.real64 = value;
  return v;
}

string IRValue::toString(IRDataType type) const {
  switch (type.GetMainType()) {
    case kTypeBoolean: return string(sint32 == 1 ? "True" : "False");
    case kTypeInteger: return ultoa(sint32);
    case kTypeSingle: return udtoa((double)real32, false);
    case kTypeDouble: return udtoa(real64, false);
    case kTypeString: return string("\"") + text + string("\"");
    case kTypeArray: return string("<array>");
    case kTypeReference: return toString(IRDataType(type.GetElementType())) + string("->");
    default: return string();
  }
}
