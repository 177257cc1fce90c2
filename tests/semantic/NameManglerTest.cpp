// Mangled names: the code of each type, the worked examples built both as
// the miner and as the grammar pass build them, and each piece alone.
#include "semantic/NameMangler.h"

#include <functional>

#include "tests/frontend/CompileFixture.h"

namespace {

IRDataType Obj(char const* name) { return IRDataType(string(name)); }
IRDataType Plain(SimpleDataType t) { return IRDataType(t); }

TEST(ManglerTypeCode, EveryTypeAndPrefix) {
  const struct {
    IRDataType type;
    char const* code;
  } kCases[] = {
      {Plain(kTypeBoolean), "b"}, {Plain(kTypeInteger), "i"},   {Plain(kTypeSingle), "f"},
      {Plain(kTypeDouble), "d"},  {Plain(kTypeColor), "c"},     {Plain(kTypeString), "s"},
      {Plain(kTypeClassRef), "x"}, {Obj("BAR"), "o<BAR>"},      {Obj(""), "o<Object>"},
      {Plain(kTypeObject), "o<Object>"},
      // Types of external declarations, and the null type, leave no code.
      {Plain(kTypeNull), ""},     {Plain(kTypeShort), ""},      {Plain(kTypePtr), ""},
      {Plain(kTypeCString), ""},  {Plain(kTypeWindowPtr), ""},  {Plain(kTypeInteger32), ""},
      // "&" for a reference goes in front of "A" for an array; dimensions
      // are not spelled.
      {Plain(kTypeInteger).AsReference(), "&i"},
      {Plain(kTypeInteger).AsArray(3), "Ai"},
      {Obj("Bar").AsArray(2).AsReference(), "&Ao<Bar>"},
      {Plain(kTypeString).AsArray(1).AsReference(), "&As"},
  };
  for (auto const& c : kCases) EXPECT_EQ(Text(TypeCode(c.type)), c.code) << Text(c.type.ToString());
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

// Typed values as the grammar hands them to MangleFunctionName.
Ref<SemBase> Typed(char const* name, IRDataType type) {
  Ref<SemBase> identifier = SemIdentifier::New(string(name));
  identifier->SetType(type);
  return identifier;
}

Ref<SemBase> List(std::initializer_list<Ref<SemBase>> items) {
  Ref<SemBase> list;
  for (Ref<SemBase> const& item : items) list = ConcatList(list, item);
  return list;
}

struct PieceCase {
  char const* call;
  std::function<string()> run;
  char const* expected;
};
#define PIECE(expected, ...) PieceCase{#__VA_ARGS__, [] { return __VA_ARGS__; }, expected}

class ManglerPieces : public CompileFixture {};

TEST_F(ManglerPieces, EachPieceAlone) {
  const PieceCase kCases[] = {
      // The return type goes in before or after the parameters, once.
      PIECE("Foo%%", AddReturnTypeDescriptionToName(string("Foo"), IRDataType())),
      PIECE("Foo%s%i", AddReturnTypeDescriptionToName(AddParameterDescriptionToName(string("Foo"), Plain(kTypeInteger)),
                                                      Plain(kTypeString))),
      PIECE("Foo%s%i", AddParameterDescriptionToName(AddReturnTypeDescriptionToName(string("Foo"), Plain(kTypeString)),
                                                     Plain(kTypeInteger))),
      PIECE("Foo%%io<Bar>", AddParameterDescriptionToName(AddParameterDescriptionToName(string("Foo"), Plain(kTypeInteger)),
                                                          Obj("Bar"))),
      // A parameter without a code still opens the section.
      PIECE("Foo%%", AddParameterDescriptionToName(string("Foo"), Plain(kTypeShort))),
      // Designators go right after the last dot, whatever the dot is in.
      PIECE("Bar.Size.=Set", AddDesignatorToName(string("Bar.Size.Set"), string("="))),
      PIECE("=$Foo%%o<Bar>", AddDesignatorToName(string("$Foo%%o<Bar>"), string("="))),
      PIECE("Bar.=$Foo%%o<Bar>i", AddDesignatorToName(string("Bar.$Foo%%o<Bar>i"), string("="))),
      PIECE("Foo%%o<Mod.=Bar>", AddDesignatorToName(string("Foo%%o<Mod.Bar>"), string("="))),
      PIECE("Bar.$Foo", AddExtendsDesignatorToName(string("Bar.Foo"))),
      PIECE("Bar.Tmr#Click", AddEventDesignatorToName(string("Bar.Click"), string("Tmr"))),
      PIECE("x", QualifyName(string(""), string("x"))),
      PIECE("Mod.Bar.x", QualifyName(string("Mod"), string("Bar.x"))),
      PIECE("~Bar", MakeDestructorBaseName(string("Bar"))),
      PIECE("Bar:IShape", AddInterfaceToClassName(string("Bar"), string("IShape"))),
      PIECE("", MangledMethodName(nullptr)),
      // From the grammar's values: one parameter that is no list; a value of
      // the null type describes nothing; markers match without case, but
      // only as identifiers.
      PIECE("F%%d", MangleFunctionName(string("F"), Typed("a", Plain(kTypeDouble)), Ref<SemBase>())),
      PIECE("=F%%s", MangleFunctionName(string("F"), List({Typed("a", IRDataType()), SemIdentifier::New(string("assigns")),
                                                            Typed("v", Plain(kTypeString))}),
                                        Ref<SemBase>())),
      PIECE("F", MangleFunctionName(string("F"), Ref<SemBase>(), Ref<SemBase>())),
      PIECE("F%i%", MangleFunctionName(string("F"), Ref<SemBase>(), Typed("Integer", Plain(kTypeInteger)))),
      PIECE("F%%s", MangleFunctionName(string("F"), SemValue::New(gContext->GetLiteral(string("ASSIGNS")), nullptr),
                                       Ref<SemBase>())),
  };
  for (PieceCase const& c : kCases) EXPECT_EQ(Text(c.run()), c.expected) << c.call;
}

// Properties, and a ParamArray, which leaves only its array's code.
TEST(ManglerDeclarations, PropertiesAndParamArrays) {
  PropertyDeclaration* size = PropertyDeclaration::New();
  size->SetName(string("Size"));
  size->SetType(Obj("Bar").AsArray(1));
  EXPECT_EQ(Text(MangledPropertyName(size)), "Size%Ao<Bar>%");
  delete size;
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

}  // namespace
