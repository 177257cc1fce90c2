#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frontend/CompileScope.h"
#include "frontend/SrcContext.h"
#include "semantic/DeclarationTable.h"
#include "semantic/NameMangler.h"
#include "semantic/SemBase.h"

namespace {

std::string Text(string const& s) { return std::string(s.CString(), (size_t)s.Length()); }

IRDataType Obj(char const* name) { return IRDataType(string(name)); }
IRDataType Plain(SimpleDataType t) { return IRDataType(t); }

TEST(ManglerTypeCode, EveryTypeAndPrefix) {
  const struct {
    IRDataType type;
    char const* code;
  } kCases[] = {
      {Plain(kTypeBoolean), "b"},
      {Plain(kTypeInteger), "i"},
      {Plain(kTypeSingle), "f"},
      {Plain(kTypeDouble), "d"},
      {Plain(kTypeColor), "c"},
      {Plain(kTypeString), "s"},
      {Plain(kTypeClassRef), "x"},
      {Obj("Bar"), "o<Bar>"},
      {Obj(""), "o<Object>"},
      {Plain(kTypeObject), "o<Object>"},
      // Types of external declarations, and the null type, leave no code.
      {Plain(kTypeNull), ""},
      {Plain(kTypeShort), ""},
      {Plain(kTypePtr), ""},
      {Plain(kTypeOSType), ""},
      {Plain(kTypeCString), ""},
      {Plain(kTypePString), ""},
      {Plain(kTypeWindowPtr), ""},
      {Plain(kTypeInteger32), ""},
      // "&" for a reference goes in front of "A" for an array; dimensions
      // are not spelled.
      {Plain(kTypeInteger).AsReference(), "&i"},
      {Plain(kTypeInteger).AsArray(1), "Ai"},
      {Plain(kTypeInteger).AsArray(3), "Ai"},
      {Plain(kTypeInteger).AsArray(2).AsReference(), "&Ai"},
      {Obj("Bar").AsArray(1), "Ao<Bar>"},
      {Obj("Bar").AsReference(), "&o<Bar>"},
      {Obj("Bar").AsArray(2).AsReference(), "&Ao<Bar>"},
      {Plain(kTypeString).AsArray(1).AsReference(), "&As"},
  };
  for (auto const& c : kCases)
    EXPECT_EQ(Text(TypeCode(c.type)), c.code) << Text(c.type.ToString());
}

TEST(ManglerTypeCode, ClassNameKeepsItsSpellingButComparesBlind) {
  string upper = TypeCode(Obj("BAR"));
  string lower = TypeCode(Obj("Bar"));
  EXPECT_EQ(Text(upper), "o<BAR>");
  EXPECT_TRUE(upper == lower);
  EXPECT_NE(upper.CompareWithCase(lower), 0);
}

// The worked examples, built two ways: as the miner describes a finished
// declaration, and as the grammar pass spells a method from its semantic
// values. Both must give the same name, since one finds the other by it.
struct Param {
  IRDataType type;
  int designator;
};

struct ExampleRow {
  char const* declaration;
  char const* qualifier;  // the class, whose self comes first
  char const* base;
  IRDataType returnType;
  std::vector<Param> params;
  char const* mangled;
};

std::vector<ExampleRow> ExampleRows() {
  const int kAssigns = ParameterDeclaration::kDesignatorAssigns;
  const int kExtends = ParameterDeclaration::kDesignatorExtends;
  return {
      {"Sub Foo()", "", "Foo", IRDataType(), {}, "Foo%%"},
      {"Function Foo(a As Integer, b As String) As Double", "", "Foo", Plain(kTypeDouble),
       {{Plain(kTypeInteger), 0}, {Plain(kTypeString), 0}}, "Foo%d%is"},
      {"the same in class Bar", "Bar", "Foo", Plain(kTypeDouble),
       {{Plain(kTypeInteger), 0}, {Plain(kTypeString), 0}}, "Bar.Foo%d%o<Bar>is"},
      {"Sub Foo(ByRef a() As Integer)", "", "Foo", IRDataType(),
       {{Plain(kTypeInteger).AsArray(1).AsReference(), 0}}, "Foo%%&Ai"},
      {"Sub Foo(x As Bar, Assigns v As Integer)", "", "Foo", IRDataType(),
       {{Obj("Bar"), 0}, {Plain(kTypeInteger), kAssigns}}, "=Foo%%o<Bar>i"},
      {"Sub Foo(Extends x As Bar, Assigns v As Integer)", "", "Foo", IRDataType(),
       {{Obj("Bar"), kExtends}, {Plain(kTypeInteger), kAssigns}}, "=$Foo%%o<Bar>i"},
      {"getter of Integer property Size of class Bar", "Bar", "Size.Get", Plain(kTypeInteger),
       {{Plain(kTypeInteger), 0}}, "Bar.Size.Get%i%o<Bar>i"},
  };
}

TEST(ManglerExamples, FromTheGrammarPass) {
  for (ExampleRow const& row : ExampleRows()) {
    string name = QualifyName(string(row.qualifier), string(row.base));
    if (*row.qualifier) name = AddParameterDescriptionToName(name, Obj(row.qualifier));
    Ref<SemBase> list;
    for (Param const& p : row.params) {
      if (p.designator == ParameterDeclaration::kDesignatorAssigns)
        list = ConcatList(list, SemIdentifier::New(string("ASSIGNS")));
      if (p.designator == ParameterDeclaration::kDesignatorExtends)
        list = ConcatList(list, SemIdentifier::New(string("EXTENDS")));
      Ref<SemBase> parameter = SemIdentifier::New(string("p"));
      parameter->SetType(p.type);
      list = ConcatList(list, parameter);
    }
    // A Sub hands up a value of the null type, not a null handle: that is
    // what closes the name of a Sub without parameters with "%%".
    Ref<SemBase> returnType = SemBase::New();
    if (!row.returnType.Null()) {
      returnType = SemIdentifier::New(row.returnType.ToString());
      returnType->SetType(row.returnType);
    }
    EXPECT_EQ(Text(MangleFunctionName(name, list, returnType)), row.mangled) << row.declaration;
  }
}

// A finished declaration has its self as a parameter; its own mangled name
// is unqualified, and the miner puts the class in front.
TEST(ManglerExamples, FromAFinishedDeclaration) {
  for (ExampleRow const& row : ExampleRows()) {
    FunctionDeclaration* method = FunctionDeclaration::New();
    method->SetBaseName(string(row.base));
    method->SetType(row.returnType);
    std::vector<Param> params = row.params;
    if (*row.qualifier) params.insert(params.begin(), Param{Obj(row.qualifier), 0});
    for (Param const& p : params) {
      ParameterDeclaration* parameter = ParameterDeclaration::New();
      parameter->SetType(p.type);
      parameter->designator = p.designator;
      method->AddParameter(parameter);
    }
    string name = QualifyName(string(row.qualifier), MangledMethodName(method));
    EXPECT_EQ(Text(name), row.mangled) << row.declaration;
    delete method;
  }
}

TEST(ManglerPieces, ReturnTypeBeforeOrAfterTheParameters) {
  EXPECT_EQ(Text(AddReturnTypeDescriptionToName(string("Foo"), IRDataType())), "Foo%%");
  string params = AddParameterDescriptionToName(string("Foo"), Plain(kTypeInteger));
  EXPECT_EQ(Text(params), "Foo%%i");
  EXPECT_EQ(Text(AddReturnTypeDescriptionToName(params, Plain(kTypeString))), "Foo%s%i");
  string first = AddReturnTypeDescriptionToName(string("Foo"), Plain(kTypeString));
  EXPECT_EQ(Text(first), "Foo%s%");
  EXPECT_EQ(Text(AddParameterDescriptionToName(first, Plain(kTypeInteger))), "Foo%s%i");
  // A second parameter opens no second section.
  EXPECT_EQ(Text(AddParameterDescriptionToName(params, Obj("Bar"))), "Foo%%io<Bar>");
  // A parameter without a code still opens the section.
  EXPECT_EQ(Text(AddParameterDescriptionToName(string("Foo"), Plain(kTypeShort))), "Foo%%");
}

TEST(ManglerPieces, LossyOnPurpose) {
  // Short has no code, so a hand-declared Foo(a As Short) is Foo().
  ParameterDeclaration* shortParam = ParameterDeclaration::New();
  shortParam->SetType(Plain(kTypeShort));
  FunctionDeclaration* withShort = FunctionDeclaration::New();
  withShort->SetBaseName(string("Foo"));
  withShort->AddParameter(shortParam);
  FunctionDeclaration* without = FunctionDeclaration::New();
  without->SetBaseName(string("Foo"));
  EXPECT_EQ(Text(MangledMethodName(withShort)), Text(MangledMethodName(without)));
  delete withShort;
  delete without;
  EXPECT_EQ(Text(AddParameterDescriptionToName(string("F"), Plain(kTypeDouble).AsArray(1))),
            Text(AddParameterDescriptionToName(string("F"), Plain(kTypeDouble).AsArray(4))));
}

TEST(ManglerPieces, DesignatorsGoAfterTheLastDot) {
  const struct {
    char const* name;
    char const* designator;
    char const* expected;
  } kCases[] = {
      {"Bar.Size.Set", "=", "Bar.Size.=Set"},
      {"Foo", "=", "=Foo"},
      {"$Foo%%o<Bar>", "=", "=$Foo%%o<Bar>"},
      {"Bar.$Foo%%o<Bar>i", "=", "Bar.=$Foo%%o<Bar>i"},
      {"", "$", "$"},
      // The whole name is searched, type codes included.
      {"Foo%%o<Mod.Bar>", "=", "Foo%%o<Mod.=Bar>"},
  };
  for (auto const& c : kCases)
    EXPECT_EQ(Text(AddDesignatorToName(string(c.name), string(c.designator))), c.expected)
        << c.name;
  EXPECT_EQ(Text(AddAssignsDesignatorToName(string("Bar.Foo"))), "Bar.=Foo");
  EXPECT_EQ(Text(AddExtendsDesignatorToName(string("Bar.Foo"))), "Bar.$Foo");
  EXPECT_EQ(Text(AddEventDesignatorToName(string("Bar.Click"))), "Bar.#Click");
  EXPECT_EQ(Text(AddEventDesignatorToName(string("Bar.Click"), string("Tmr"))), "Bar.Tmr#Click");
}

TEST(ManglerPieces, OtherFormsOfName) {
  EXPECT_EQ(Text(QualifyName(string(""), string("x"))), "x");
  EXPECT_EQ(Text(QualifyName(string("Mod"), string("Bar.x"))), "Mod.Bar.x");
  EXPECT_EQ(Text(MakeDestructorBaseName(string("Bar"))), "~Bar");
  EXPECT_EQ(Text(AddInterfaceToClassName(string("Bar"), string("IShape"))), "Bar:IShape");

  PropertyDeclaration* size = PropertyDeclaration::New();
  size->SetName(string("Size"));
  size->SetType(Plain(kTypeInteger));
  EXPECT_EQ(Text(MangledPropertyName(size)), "Size%i%");
  size->SetType(Obj("Bar").AsArray(1));
  EXPECT_EQ(Text(MangledPropertyName(size)), "Size%Ao<Bar>%");
  delete size;
  EXPECT_EQ(Text(MangledPropertyName(nullptr)), "");
  EXPECT_EQ(Text(MangledMethodName(nullptr)), "");
}

TEST(ManglerDeclarations, ParamArrayLeavesOnlyItsArrayCode) {
  FunctionDeclaration* method = FunctionDeclaration::New();
  method->SetBaseName(string("Sum"));
  method->SetType(Plain(kTypeInteger));
  ParameterDeclaration* values = ParameterDeclaration::New();
  values->SetType(Plain(kTypeInteger).AsArray(1));
  values->designator = ParameterDeclaration::kDesignatorParamArray;
  method->AddParameter(values);
  EXPECT_EQ(Text(MangledMethodName(method)), "Sum%i%Ai");
  delete method;
}

class ManglerGrammar : public ::testing::Test {
protected:
  // Semantic values start at the lexer's line, and string literals need a
  // pool: give them a context.
  CompileScope mScope;
  static Ref<SemBase> Typed(char const* name, IRDataType type) {
    Ref<SemBase> identifier = SemIdentifier::New(string(name));
    identifier->SetType(type);
    return identifier;
  }
  SrcContext* mContext = mScope.Context();
};

TEST_F(ManglerGrammar, SingleValueNullTypesAndMarkers) {
  // One parameter that is no list.
  EXPECT_EQ(Text(MangleFunctionName(string("F"), Typed("a", Plain(kTypeDouble)), Ref<SemBase>())),
            "F%%d");
  // A value of the null type describes nothing; markers match without case.
  Ref<SemBase> list = ConcatList(Typed("a", IRDataType()), SemIdentifier::New(string("assigns")));
  list = ConcatList(list, Typed("v", Plain(kTypeString)));
  EXPECT_EQ(Text(MangleFunctionName(string("F"), list, Ref<SemBase>())), "=F%%s");
  // No parameters and no return type leave the base alone; a return type
  // alone makes the whole form.
  EXPECT_EQ(Text(MangleFunctionName(string("F"), Ref<SemBase>(), Ref<SemBase>())), "F");
  EXPECT_EQ(Text(MangleFunctionName(string("F"), Ref<SemBase>(), Typed("Integer", Plain(kTypeInteger)))),
            "F%i%");
  // A non-identifier whose text happens to read ASSIGNS is no marker.
  Ref<SemBase> constant = SemValue::New(mContext->GetLiteral(string("ASSIGNS")), nullptr);
  EXPECT_EQ(Text(MangleFunctionName(string("F"), constant, Ref<SemBase>())), "F%%s");
}

}  // namespace
