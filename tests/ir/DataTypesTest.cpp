// Data types: the algebra of elements and references, equality, and what
// the code generator asks of a type.
#include "ir/DataTypes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

IRDataType Foo() { return IRDataType(string("Foo")); }

// Element and reference types come back to what they were made from, and
// the class name is found through arrays and references.
TEST(IRDataTypeAlgebra, ElementsAndReferencesComeBack) {
  IRDataType array = Foo().AsArray(2);
  EXPECT_EQ(array.GetElementType(), kTypeObject);
  EXPECT_EQ(array.GetDimensions(), 2);
  EXPECT_TRUE(array.AsElement() == Foo());
  EXPECT_EQ(array.AsElement().GetDimensions(), 0);
  EXPECT_STREQ(array.GetClass().CString(), "Foo");

  IRDataType ref = IRDataType(kTypeInteger).AsReference();
  EXPECT_EQ(ref.GetMainType(), kTypeReference);
  EXPECT_TRUE(ref.AsElement() == IRDataType(kTypeInteger));
  IRDataType refToArray = IRDataType(kTypeDouble).AsArray(1).AsReference();
  EXPECT_EQ(refToArray.GetDimensions(), 1);
  EXPECT_EQ(refToArray.referredElementType, kTypeDouble);
  EXPECT_TRUE(refToArray.AsElement() == IRDataType(kTypeDouble).AsArray(1));
  EXPECT_EQ(refToArray.AsElement().AsElement().GetMainType(), kTypeDouble);

  EXPECT_TRUE(IRDataType(kTypeInteger).AsElement().Null());
  EXPECT_EQ(IRDataType(kTypeInteger).GetElementType(), kTypeInteger);
  EXPECT_EQ(IRDataType(kTypeInteger).AsArray(257).GetDimensions(), 1) << "dimensions keep eight bits";
  EXPECT_STREQ(Foo().AsReference().GetClass().CString(), "Foo");
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

}  // namespace
