#include "ir/DataTypes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

IRDataType Foo() { return IRDataType(string("Foo")); }

TEST(IRDataTypeAlgebra, ArrayOfClassComesBackAsTheClass) {
  IRDataType array = Foo().AsArray(2);
  EXPECT_EQ(array.GetMainType(), kTypeArray);
  EXPECT_EQ(array.GetElementType(), kTypeObject);
  EXPECT_EQ(array.GetDimensions(), 2);
  IRDataType element = array.AsElement();
  EXPECT_EQ(element.GetMainType(), kTypeObject);
  EXPECT_EQ(element.GetDimensions(), 0);
  EXPECT_STREQ(element.GetClass().CString(), "Foo");
  EXPECT_TRUE(element == Foo());
}

TEST(IRDataTypeAlgebra, ReferenceToPlainTypeComesBack) {
  IRDataType ref = IRDataType(kTypeInteger).AsReference();
  EXPECT_EQ(ref.GetMainType(), kTypeReference);
  EXPECT_EQ(ref.GetElementType(), kTypeInteger);
  EXPECT_EQ(ref.GetDimensions(), 0);
  EXPECT_TRUE(ref.AsElement() == IRDataType(kTypeInteger));
}

TEST(IRDataTypeAlgebra, ReferenceToArrayKeepsTheArraysShape) {
  IRDataType array = IRDataType(kTypeDouble).AsArray(1);
  IRDataType ref = array.AsReference();
  EXPECT_EQ(ref.GetDimensions(), 1);
  EXPECT_EQ(ref.GetElementType(), kTypeArray);
  EXPECT_EQ(ref.referredElementType, kTypeDouble);
  IRDataType back = ref.AsElement();
  EXPECT_TRUE(back == array);
  EXPECT_EQ(back.GetElementType(), kTypeDouble);
  EXPECT_EQ(back.AsElement().GetMainType(), kTypeDouble);
}

TEST(IRDataTypeAlgebra, PlainTypeHasNoElementButAnswersItsOwnElementType) {
  IRDataType integer(kTypeInteger);
  EXPECT_TRUE(integer.AsElement().Null());
  EXPECT_EQ(integer.GetElementType(), kTypeInteger);
  EXPECT_TRUE(IRDataType().Null());
  EXPECT_TRUE(IRDataType().AsElement().Null());
}

TEST(IRDataTypeAlgebra, DimensionsKeepTheLowEightBits) {
  EXPECT_EQ(IRDataType(kTypeInteger).AsArray(257).GetDimensions(), 1);
}

TEST(IRDataTypeAlgebra, ClassNameIsFoundThroughArraysAndReferences) {
  EXPECT_STREQ(IRDataType(kTypeInteger).AsArray(1).GetClass().CString(), "");
  EXPECT_STREQ(Foo().AsReference().GetClass().CString(), "Foo");
  EXPECT_STREQ(Foo().AsArray(1).GetClass().CString(), "Foo");
  // An array of Foo under a reference: the element word is Array, not Object.
  EXPECT_STREQ(Foo().AsArray(1).AsReference().GetClass().CString(), "");
}

struct EqualityCase {
  char const* what;
  IRDataType a;
  IRDataType b;
  bool equal;
};

IRDataType IntegerNamed(char const* name) {
  IRDataType t(kTypeInteger);
  t.className = string(name);
  return t;
}

TEST(IRDataTypeEquality, Table) {
  EqualityCase const cases[] = {
      {"same plain type", IRDataType(kTypeInteger), IRDataType(kTypeInteger), true},
      {"different plain types", IRDataType(kTypeInteger), IRDataType(kTypeDouble), false},
      {"Integer32 is its own main type", IRDataType(kTypeInteger), IRDataType(kTypeInteger32), false},
      {"root Object vs Foo", IRDataType(string("")), Foo(), false},
      {"class names ignore case", IRDataType(string("foo")), IRDataType(string("FOO")), true},
      {"array dims differ", IRDataType(kTypeInteger).AsArray(1), IRDataType(kTypeInteger).AsArray(2), false},
      {"array elements differ", IRDataType(kTypeInteger).AsArray(1), IRDataType(kTypeString).AsArray(1), false},
      {"arrays of Integer ignore className", IntegerNamed("X").AsArray(1), IRDataType(kTypeInteger).AsArray(1), true},
      {"arrays of classes compare names", Foo().AsArray(1), IRDataType(string("Bar")).AsArray(1), false},
      {"references ignore the class", Foo().AsReference(), IRDataType(string("Bar")).AsReference(), true},
      {"references ignore dimensions", IRDataType(kTypeInteger).AsArray(1).AsReference(),
       IRDataType(kTypeString).AsArray(3).AsReference(), true},
      {"references compare the referred main type", IRDataType(kTypeInteger).AsReference(),
       IRDataType(kTypeString).AsReference(), false},
      {"reference vs what it refers to", IRDataType(kTypeInteger).AsReference(), IRDataType(kTypeInteger), false},
      {"null types", IRDataType(), IRDataType(), true},
  };
  for (EqualityCase const& c : cases) {
    EXPECT_EQ(c.a == c.b, c.equal) << c.what;
    EXPECT_EQ(c.a != c.b, !c.equal) << c.what;
  }
}

TEST(IRDataTypeText, Table) {
  struct Case {
    IRDataType type;
    char const* text;
  } const cases[] = {
      {IRDataType(), "Unknown Type"},
      {IRDataType(kTypeBoolean), "Boolean"},
      {IRDataType(kTypeInteger), "Integer"},
      {IRDataType(kTypeInteger32), "Integer"},
      {IRDataType(kTypeSingle), "Single"},
      {IRDataType(kTypeDouble), "Double"},
      {IRDataType(kTypeString), "String"},
      {IRDataType(kTypeColor), "Color"},
      {IRDataType(kTypeClassRef), "Unknown Type"},
      {IRDataType(kTypeCString), "CString"},
      {IRDataType(kTypePString), "PString"},
      {IRDataType(kTypeWindowPtr), "Window"},
      {IRDataType(kTypePtr), "Ptr"},
      {IRDataType(kTypeOSType), "OSType"},
      {IRDataType(kTypeShort), "Short"},
      {IRDataType((SimpleDataType)3), "Unknown Type"},
      {IRDataType(string("")), "Object"},
      {Foo(), "Foo"},
      {Foo().AsArray(1), "Foo()"},
      {IRDataType(kTypeInteger).AsArray(3), "Integer()"},
      {IRDataType(kTypeString).AsReference(), "String"},
      {Foo().AsArray(2).AsReference(), "Foo()"},
  };
  for (auto const& c : cases) EXPECT_STREQ(c.type.ToString().CString(), c.text) << c.text;
}

TEST(IRDataTypeProperties, CountingFloatsAndSizes) {
  struct Case {
    IRDataType type;
    bool refCounted;
    bool isFloat;
    int size;
  } const cases[] = {
      {IRDataType(kTypeString), true, false, 4},
      {Foo(), true, false, 4},
      {IRDataType(kTypeInteger).AsArray(1), true, false, 4},
      {IRDataType(kTypeString).AsReference(), false, false, 4},
      {IRDataType(kTypeInteger).AsReference(), false, false, 4},
      {IRDataType(kTypeDouble).AsReference(), false, false, 4},
      {IRDataType(kTypeSingle), false, true, 4},
      {IRDataType(kTypeDouble), false, true, 8},
      {IRDataType(kTypeShort), false, false, 4},
      {IRDataType(kTypeBoolean), false, false, 4},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.type.ToString().CString());
    EXPECT_EQ(c.type.RefCounted(), c.refCounted);
    EXPECT_EQ(c.type.IsFloat(), c.isFloat);
    EXPECT_EQ(c.type.StorageSize(), c.size);
  }
}

IRValue Text(char const* s) {
  IRValue v;
  v.text = string(s);
  return v;
}

TEST(IRValueText, Table) {
  struct Case {
    IRValue value;
    IRDataType type;
    char const* text;
  } const cases[] = {
      {IRValue::SInt32(1), IRDataType(kTypeBoolean), "True"},
      {IRValue::SInt32(0), IRDataType(kTypeBoolean), "False"},
      // Only exactly 1 spells True.
      {IRValue::SInt32(2), IRDataType(kTypeBoolean), "False"},
      {IRValue::SInt32(-42), IRDataType(kTypeInteger), "-42"},
      {IRValue::Real64(2.5), IRDataType(kTypeDouble), "2.5"},
      {IRValue::Real32(0.25f), IRDataType(kTypeSingle), "0.25"},
      {Text("a\"b"), IRDataType(kTypeString), "\"a\"b\""},
      {IRValue(), IRDataType(kTypeInteger).AsArray(1), "<array>"},
      {IRValue::SInt32(7), IRDataType(kTypeInteger).AsReference(), "7->"},
      {IRValue::SInt32(0xFF0000), IRDataType(kTypeColor), ""},
      {IRValue::SInt32(3), IRDataType(), ""},
  };
  for (auto const& c : cases) EXPECT_STREQ(c.value.toString(c.type).CString(), c.text) << c.text;
}

TEST(IRValueText, SharedZeroIsAllZero) {
  EXPECT_EQ(kIRZeroValue.sint32, 0);
  EXPECT_EQ(kIRZeroValue.real64, 0.0);
  EXPECT_EQ(kIRZeroValue.text.Length(), 0);
}

}  // namespace
