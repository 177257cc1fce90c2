// Mined programs: top-level methods, the broken-structure flag, statements
// passed whole, modules and what they export, constants, parameters, and
// the single-declaration entries.
#include "miner_fixture.h"

#include <cmath>

namespace {

using PD = ParameterDeclaration;

class MinerProgramTest : public MinerFixture {};

TEST_F(MinerProgramTest, AMethodBelowItsUseIsDeclared) {
  ModuleDeclaration* m = Mine(
      "x = Later(2)\n"
      "Print x\n"
      "Function Later(n As Integer) As Integer\n"
      "  Return n * 2\n"
      "End Function\n"
      "Sub Earlier()\n"
      "End Sub\n");
  EXPECT_FALSE(mFailed);
  EXPECT_EQ(MethodNames(m), (std::vector<std::string>{"Later%i%i", "Earlier%%"}));
  FunctionDeclaration* later = m->GetMethod(0);
  EXPECT_EQ(later->GetBaseName(), string("Later"));
  EXPECT_EQ(later->GetType().GetMainType(), kTypeInteger);
  EXPECT_EQ(later->GetDispatchMethod(), FunctionDeclaration::kDispatchNormal);
}

TEST_F(MinerProgramTest, BrokenBlockStructureSetsTheFlag) {
  struct Case {
    char const* source;
    bool failed;
  } const cases[] = {
      {"Sub A()\n  x = 1\nEnd Sub\n", false},
      {"Sub A()\nEnd Function\n", true},
      {"Function F() As Integer\n  Return 1\n", true},
      {"Sub A()\n  If x Then\n  End If\nEnd Sub\n", false},
      {"If x Then\n  y = 1\nEnd If\nSub A()\nEnd Sub\n", false},
      {"Class C\n  Sub A()\n  End Sub\n", true},
      {"Class C\nEnd Sub\n", true},
      {"Class C\n  End If\nEnd Class\n", false},
      {"Sub A()\nEnd Class\nEnd Sub\n", true},
      {"Interface I\n  Sub A()\nEnd Class\n", true},
      {"Interface I\n  Sub A()\n", true},
      {"Module M\n  Sub A()\n  End Sub\nEnd Module\n", false},
      {"Module M\n  Class C\n  End Class\nEnd Sub\n", true},
      {"Module M\n  Dim x As Integer\n", true},
      {"", false},
  };
  for (Case const& c : cases) {
    Mine(c.source);
    EXPECT_EQ(mFailed, c.failed) << c.source;
  }
  // The method is still declared when its body ends wrongly.
  ModuleDeclaration* m = Mine("Sub Broken()\nEnd Function\nSub Later()\nEnd Sub\n");
  EXPECT_NE(m->LookupMethod("Broken%%"), nullptr);
  EXPECT_NE(m->LookupMethod("Later%%"), nullptr);
}

TEST_F(MinerProgramTest, AContinuedStatementIsPassedWhole) {
  // Were the second half read as a line of its own, Bogus would be a
  // method whose body runs to the end of the text.
  ModuleDeclaration* m = Mine(
      "Print 1, _\n"
      "  2\n"
      "Print 3 + _\n"
      "Sub Bogus()\n"
      "Sub Real()\n"
      "End Sub\n");
  EXPECT_FALSE(mFailed);
  EXPECT_EQ(MethodNames(m), std::vector<std::string>{"Real%%"});
}

TEST_F(MinerProgramTest, ModulesQualifyTheirMembersAndExportThePublicOnes) {
  ModuleDeclaration* root = Mine(
      "Module Geometry\n"
      "  Const kPi = 3.5\n"
      "  Private Const kSecret = 2\n"
      "  Dim count As Integer\n"
      "  Function Twice(n As Integer) As Integer\n"
      "  End Function\n"
      "  Private Sub Hidden()\n"
      "  End Sub\n"
      "  Class Point\n"
      "    Dim x As Integer\n"
      "    Sub Move(dx As Integer)\n"
      "    End Sub\n"
      "  End Class\n"
      "  Private Class Secret\n"
      "  End Class\n"
      "End Module\n");
  EXPECT_FALSE(mFailed);
  ASSERT_EQ(root->CountModules(), 1u);
  ModuleDeclaration* geometry = root->GetModule(0);
  EXPECT_EQ(geometry->GetName(), string("Geometry"));
  EXPECT_EQ(geometry->GetParent(), root);
  EXPECT_EQ(root->LookupModule("geometry"), geometry);

  // A public class is known outside by its bare name.
  ClassDeclaration* point = root->LookupClass("Point");
  ASSERT_NE(point, nullptr);
  EXPECT_EQ(point->GetName(), string("Point"));
  EXPECT_EQ(point->GetLinkName(), string("Geometry.Point"));
  EXPECT_NE(point->LookupMethod("Geometry.Point.Move%%o<Point>i"), nullptr);
  EXPECT_NE(point->LookupMethod("Geometry.Point.__Lookup"), nullptr);
  EXPECT_EQ(point->LookupProperty("x")->GetLinkName(), string("Geometry.Point.x"));
  EXPECT_EQ(root->LookupClass("Secret"), nullptr);
  EXPECT_NE(geometry->LookupClass("Secret"), nullptr);

  FunctionDeclaration* twice = root->LookupMethod("Geometry.Twice%i%i");
  ASSERT_NE(twice, nullptr);
  EXPECT_EQ(twice->GetDispatchMethod(), FunctionDeclaration::kDispatchNormal);
  EXPECT_EQ(root->LookupMethod("Geometry.Hidden%%"), nullptr);
  EXPECT_NE(geometry->LookupMethod("Geometry.Hidden%%"), nullptr);
  EXPECT_TRUE(root->LookupMethodsByBase("Twice", kFilterAll));

  ConstantDeclaration* pi = root->LookupConstant("kPi");
  ASSERT_NE(pi, nullptr);
  EXPECT_EQ(pi->GetValue().real64, 3.5);
  EXPECT_EQ(root->LookupConstant("kSecret"), nullptr);
  EXPECT_NE(geometry->LookupConstant("kSecret"), nullptr);
  PropertyDeclaration* count = root->LookupProperty("count");
  ASSERT_NE(count, nullptr);
  EXPECT_EQ(count->GetLinkName(), string("Geometry.count"));
}

TEST_F(MinerProgramTest, ConstantsTakeTheirLiteralsTypeAndSign) {
  ModuleDeclaration* m = Mine(
      "Const a = -5\n"
      "Const b = 1.5\n"
      "Const c = -2.5\n"
      "Const s = \"hi\"\n"
      "Const t = Not True\n"
      "Const f = False\n"
      "Const k = &cFF0000\n"
      "Const n = Nil\n"
      "Const u\n"
      "Const w = Foo\n");
  struct Case {
    char const* name;
    SimpleDataType type;
    int32_t integer;
    double real;
    char const* text;
  } const cases[] = {
      {"a", kTypeInteger, -5, 0, ""},        {"b", kTypeDouble, 0, 1.5, ""},
      {"c", kTypeDouble, 0, -2.5, ""},       {"s", kTypeString, 0, 0, "hi"},
      {"t", kTypeBoolean, 0, 0, ""},         {"f", kTypeBoolean, 0, 0, ""},
      {"k", kTypeColor, 0xFF0000, 0, ""},    {"n", kTypeObject, 0, 0, ""},
      {"u", kTypeNull, 0, 0, ""},            {"w", kTypeNull, 0, 0, ""},
  };
  for (Case const& c : cases) {
    ConstantDeclaration* k = m->LookupConstant(c.name);
    ASSERT_NE(k, nullptr) << c.name;
    EXPECT_EQ(k->GetType().GetMainType(), c.type) << c.name;
    if (c.type == kTypeDouble) {
      EXPECT_EQ(k->GetValue().real64, c.real) << c.name;
    } else if (c.type == kTypeString) {
      EXPECT_EQ(k->GetValue().text, string(c.text)) << c.name;
    } else if (c.type != kTypeNull) {
      EXPECT_EQ(k->GetValue().sint32, c.integer) << c.name;
    }
  }
  EXPECT_EQ(m->CountConstants(), 10u);
}

TEST_F(MinerProgramTest, ParametersCarryModesDefaultsAndShapes) {
  ModuleDeclaration* m = Mine(
      "Sub P(ByRef a() As Integer, Optional b As String, c As Double = -1.5, ParamArray rest As Integer)\n"
      "End Sub\n"
      "Sub Q(x As Integer, Assigns v As Integer)\nEnd Sub\n"
      "Sub R(Extends x As String, Assigns v As Integer)\nEnd Sub\n"
      "Function Grid() As Integer(,)\nEnd Function\n"
      "Sub S(__Selector As Integer = 3)\nEnd Sub\n"
      "Sub T(flag As Boolean = True, tint As Color = &c00FF00, o As Object = Nil, big As Integer = 3.9)\nEnd Sub\n");
  EXPECT_FALSE(mFailed);
  FunctionDeclaration* p = Method(m, "P%%&AisdAi");
  ASSERT_NE(p, nullptr);
  ASSERT_EQ(p->CountParameters(), 4u);
  EXPECT_EQ(p->GetParameter(0)->GetType(), IRDataType(kTypeInteger).AsArray(1).AsReference());
  EXPECT_EQ(p->GetParameter(1)->GetMode(), PD::kParamOptional);
  EXPECT_EQ(p->GetParameter(2)->GetMode(), PD::kParamOptional);
  EXPECT_EQ(p->GetParameter(2)->GetDefaultValue().real64, -1.5);
  EXPECT_EQ(p->GetParameter(3)->GetDesignator(), PD::kDesignatorParamArray);
  EXPECT_EQ(p->GetParameter(3)->GetType(), IRDataType(kTypeInteger).AsArray(1));
  EXPECT_EQ(p->GetParameter(0)->GetMode(), PD::kParamRequired);

  EXPECT_NE(m->LookupMethod("=Q%%ii"), nullptr);
  FunctionDeclaration* r = Method(m, "=$R%%si");
  ASSERT_NE(r, nullptr);
  EXPECT_TRUE(r->PassesFilter(kFilterExtendsAssigns));

  FunctionDeclaration* grid = Method(m, "Grid%Ai%");
  ASSERT_NE(grid, nullptr);
  EXPECT_EQ(grid->GetType().GetDimensions(), 2);

  FunctionDeclaration* s = Method(m, "S%%i");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->GetParameter(0)->GetMode(), PD::kParamHidden);
  EXPECT_EQ(s->GetParameter(0)->GetDefaultValue().sint32, 3);

  FunctionDeclaration* t = Method(m, "T%%bco<Object>i");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->GetParameter(0)->GetDefaultValue().sint32, 1);
  EXPECT_EQ(t->GetParameter(1)->GetDefaultValue().sint32, 0x00FF00);
  EXPECT_EQ(t->GetParameter(2)->GetMode(), PD::kParamOptional);
  EXPECT_EQ(t->GetParameter(3)->GetDefaultValue().sint32, 3) << "a float default of an Integer is truncated";
}

TEST_F(MinerProgramTest, ALocalDeclareIsKnownInItsMethodOnly) {
  ModuleDeclaration* m = Mine(
      "Sub Main()\n"
      "  Declare Sub Beep Lib \"sys\" ()\n"
      "  Declare Function Count Lib kLib (n As Integer) As Integer\n"
      "End Sub\n");
  EXPECT_FALSE(mFailed);
  FunctionDeclaration* main = Method(m, "Main%%");
  ASSERT_NE(main, nullptr);
  ASSERT_EQ(main->CountMethods(), 2u);
  FunctionDeclaration* beep = main->GetMethod(0);
  EXPECT_EQ(beep->GetBaseName(), string("% declare"));
  EXPECT_EQ(beep->GetName(), string("Beep"));
  EXPECT_EQ(beep->GetSourceLibrary().CompareWithCase("\"sys\""), 0) << "quotes kept";
  EXPECT_EQ(main->GetMethod(1)->GetSourceLibrary(), string("kLib")) << "a constant's name";
  EXPECT_EQ(m->LookupMethod("Beep"), nullptr);
}

TEST_F(MinerProgramTest, PropertiesOfOneClauseShareTheirType) {
  ModuleDeclaration* m = Mine(
      "Dim a, b(3) As Integer, c(2, 5) As String, d As Double = 2.0\n"
      "Class K\n  Private Dim p, q As Double\n  r As Boolean\nEnd Class\n");
  struct Case {
    char const* name;
    IRDataType type;
  } const cases[] = {
      {"a", IRDataType(kTypeInteger)},
      {"b", IRDataType(kTypeInteger).AsArray(1)},
      {"c", IRDataType(kTypeString).AsArray(2)},
      {"d", IRDataType(kTypeDouble)},
  };
  for (Case const& c : cases) {
    PropertyDeclaration* p = m->LookupProperty(c.name);
    ASSERT_NE(p, nullptr) << c.name;
    EXPECT_EQ(p->GetType(), c.type) << c.name;
  }
  EXPECT_EQ(m->CountProperties(), 4u);
  ClassDeclaration* k = Class(m, "K");
  ASSERT_NE(k, nullptr);
  EXPECT_EQ(k->LookupProperty("q")->GetScope(), ScopedDeclaration::kScopePrivate);
  EXPECT_EQ(k->LookupProperty("q")->GetOffset(), 8);
  EXPECT_EQ(k->LookupProperty("r")->GetScope(), ScopedDeclaration::kScopePublic) << "a scope word is for one member";
  EXPECT_EQ(k->GetStorageSize(), 20);
}

TEST_F(MinerProgramTest, APrefixModuleReceivesTheText) {
  ModuleDeclaration* prefix = ModuleDeclaration::New();
  mModules.push_back(prefix);
  ConstantDeclaration* known = ConstantDeclaration::New();
  known->SetName("kKnown");
  prefix->AddConstant(known);
  ClassDeclaration* base = ClassDeclaration::New();
  base->SetName("LibraryBase");
  base->SetType(IRDataType(kTypeObject));
  prefix->AddClass(base);
  ModuleDeclaration* result = ExtractDeclarations("Class Mine\n  Inherits LibraryBase\nEnd Class\nSub Go()\nEnd Sub\n", mFailed, prefix);
  EXPECT_EQ(result, prefix);
  EXPECT_EQ(prefix->LookupConstant("kKnown"), known);
  EXPECT_NE(prefix->LookupMethod("Go%%"), nullptr);
  ASSERT_NE(prefix->LookupClass("Mine"), nullptr);
  EXPECT_EQ(prefix->LookupClass("Mine")->GetParent(), base);
}

TEST_F(MinerProgramTest, SingleDeclarationEntries) {
  FunctionDeclaration* f = ExtractMethodDeclaration("Private Function F(a As Integer) As String", nullptr);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f->GetScope(), ScopedDeclaration::kScopePrivate);
  EXPECT_EQ(f->GetName(), string("F%s%i"));
  delete f;
  EXPECT_EQ(ExtractMethodDeclaration("Dim x As Integer", nullptr), nullptr);
  EXPECT_EQ(ExtractMethodDeclaration("", nullptr), nullptr);
  EXPECT_EQ(ExtractMethodDeclaration("Public Class X", nullptr), nullptr);

  ClassDeclaration* owner = ClassDeclaration::New();
  owner->SetName("Host");
  FunctionDeclaration* g = ExtractMethodDeclaration("Protected Sub Poke(v As Double)", owner);
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(g->GetName(), string("Host.Poke%%o<Host>d"));
  EXPECT_EQ(g->CountParameters(), 2u);
  EXPECT_EQ(g->GetScope(), ScopedDeclaration::kScopeProtected);
  delete g;
  delete owner;

  PropertyDeclaration* p = ExtractPropertyDeclaration("Private Dim a(3, 4) As Integer, b As String");
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->GetName(), string("a"));
  EXPECT_EQ(p->GetScope(), ScopedDeclaration::kScopePrivate);
  EXPECT_EQ(p->GetType(), IRDataType(kTypeInteger).AsArray(2));
  delete p;
  PropertyDeclaration* q = ExtractPropertyDeclaration("Count As Double");
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(q->GetType(), IRDataType(kTypeDouble));
  delete q;
  EXPECT_EQ(ExtractPropertyDeclaration("Sub X()"), nullptr);
  EXPECT_EQ(ExtractPropertyDeclaration("Dim"), nullptr);
  EXPECT_EQ(ExtractPropertyDeclaration("Dim x"), nullptr) << "no type, no property";
}

}  // namespace
