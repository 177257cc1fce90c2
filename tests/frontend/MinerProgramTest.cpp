// Mined programs: top-level methods, the broken-structure flag, statements
// passed whole, modules and what they export, constants, parameters,
// properties, and the single-declaration entries.
#include "tests/frontend/CompileFixture.h"

namespace {

using PD = ParameterDeclaration;

class MinerProgram : public CompileFixture {
protected:
  static std::string MethodNames(FunctionDeclarationListOwner* owner) {
    std::string out;
    for (unsigned int i = 0; i < owner->CountMethods(); ++i)
      out += (i ? " " : "") + Text(owner->GetMethod(i)->GetName());
    return out;
  }
};

// A method below its use is declared all the same. Were a continued line
// read as a line of its own, Bogus would be a method whose body runs to
// the end of the text.
TEST_F(MinerProgram, MethodsAreFoundWhereverTheyStand) {
  ModuleDeclaration* m = Mine(
      "x = Later(2)\nPrint 1, _\n  2\nPrint 3 + _\nSub Bogus()\n"
      "Function Later(n As Integer) As Integer\n  Return n * 2\nEnd Function\nSub Earlier()\nEnd Sub\n");
  EXPECT_FALSE(mFailed);
  EXPECT_EQ(MethodNames(m), "Later%i%i Earlier%%");
  EXPECT_EQ(m->GetMethod(0)->GetType().GetMainType(), kTypeInteger);
}

TEST_F(MinerProgram, BrokenBlockStructureSetsTheFlag) {
  const struct {
    char const* source;
    bool failed;
  } kCases[] = {
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
  for (auto const& c : kCases) {
    Mine(c.source);
    EXPECT_EQ(mFailed, c.failed) << c.source;
  }
  // The method is still declared when its body ends wrongly.
  EXPECT_EQ(MethodNames(Mine("Sub Broken()\nEnd Function\nSub Later()\nEnd Sub\n")), "Broken%% Later%%");
}

TEST_F(MinerProgram, ModulesQualifyTheirMembersAndExportThePublicOnes) {
  ModuleDeclaration* root = Mine(
      "Module Geometry\n"
      "  Const kPi = 3.5\n  Private Const kSecret = 2\n  Dim count As Integer\n"
      "  Function Twice(n As Integer) As Integer\n  End Function\n  Private Sub Hidden()\n  End Sub\n"
      "  Class Point\n    Dim x As Integer\n    Sub Move(dx As Integer)\n    End Sub\n  End Class\n"
      "  Private Class Secret\n  End Class\n"
      "End Module\n");
  EXPECT_FALSE(mFailed);
  ModuleDeclaration* geometry = root->LookupModule("geometry");
  ASSERT_NE(geometry, nullptr);
  EXPECT_EQ(geometry->GetParent(), root);
  // What is public is known outside by its bare name, and linked by its
  // qualified one.
  ClassDeclaration* point = Class(root, "Point");
  ASSERT_NE(point, nullptr);
  EXPECT_EQ(Text(point->GetLinkName()), "Geometry.Point");
  EXPECT_NE(point->LookupMethod("Geometry.Point.Move%%o<Point>i"), nullptr);
  EXPECT_EQ(Text(point->LookupProperty("x")->GetLinkName()), "Geometry.Point.x");
  EXPECT_NE(root->LookupMethod("Geometry.Twice%i%i"), nullptr);
  EXPECT_EQ(root->LookupConstant("kPi")->GetValue().real64, 3.5);
  EXPECT_EQ(Text(root->LookupProperty("count")->GetLinkName()), "Geometry.count");
  // What is private stays in the module.
  EXPECT_EQ(root->LookupClass("Secret"), nullptr);
  EXPECT_NE(geometry->LookupClass("Secret"), nullptr);
  EXPECT_EQ(root->LookupMethod("Geometry.Hidden%%"), nullptr);
  EXPECT_NE(geometry->LookupMethod("Geometry.Hidden%%"), nullptr);
  EXPECT_EQ(root->LookupConstant("kSecret"), nullptr);
}

TEST_F(MinerProgram, ConstantsTakeTheirLiteralsTypeAndSign) {
  ModuleDeclaration* m = Mine(
      "Const a = -5\nConst b = -2.5\nConst s = \"hi\"\nConst t = Not True\nConst k = &cFF0000\n"
      "Const n = Nil\nConst u\nConst w = Foo\n");
  const struct {
    char const* name;
    SimpleDataType type;
    double value;
  } kCases[] = {
      {"a", kTypeInteger, -5}, {"b", kTypeDouble, -2.5}, {"s", kTypeString, 0},  {"t", kTypeBoolean, 0},
      {"k", kTypeColor, 0xFF0000}, {"n", kTypeObject, 0}, {"u", kTypeNull, 0}, {"w", kTypeNull, 0},
  };
  for (auto const& c : kCases) {
    ConstantDeclaration* k = m->LookupConstant(c.name);
    ASSERT_NE(k, nullptr) << c.name;
    EXPECT_EQ(k->GetType().GetMainType(), c.type) << c.name;
    double value = c.type == kTypeDouble ? k->GetValue().real64 : k->GetValue().sint32;
    if (c.type != kTypeString && c.type != kTypeNull) EXPECT_EQ(value, c.value) << c.name;
  }
  EXPECT_EQ(Text(m->LookupConstant("s")->GetValue().text), "hi");
}

TEST_F(MinerProgram, ParametersCarryModesDefaultsAndShapes) {
  ModuleDeclaration* m = Mine(
      "Sub P(ByRef a() As Integer, Optional b As String, c As Double = -1.5, ParamArray rest As Integer)\nEnd Sub\n"
      "Sub R(Extends x As String, Assigns v As Integer)\nEnd Sub\n"
      "Function Grid() As Integer(,)\nEnd Function\n"
      "Sub S(__Selector As Integer = 3)\nEnd Sub\n"
      "Sub T(flag As Boolean = True, tint As Color = &c00FF00, o As Object = Nil, big As Integer = 3.9)\nEnd Sub\n"
      "Sub U(huge As Integer = 1e10)\nEnd Sub\n");
  EXPECT_FALSE(mFailed);
  FunctionDeclaration* p = Method(m, "P%%&AisdAi");
  ASSERT_TRUE(p && p->CountParameters() == 4);
  EXPECT_EQ(p->GetParameter(0)->GetType(), IRDataType(kTypeInteger).AsArray(1).AsReference());
  EXPECT_EQ(p->GetParameter(0)->GetMode(), PD::kParamRequired);
  EXPECT_EQ(p->GetParameter(1)->GetMode(), PD::kParamOptional);
  EXPECT_EQ(p->GetParameter(2)->GetDefaultValue().real64, -1.5);
  EXPECT_EQ(p->GetParameter(3)->GetDesignator(), PD::kDesignatorParamArray);
  EXPECT_EQ(p->GetParameter(3)->GetType(), IRDataType(kTypeInteger).AsArray(1));
  FunctionDeclaration* r = Method(m, "=$R%%si");
  EXPECT_TRUE(r && r->PassesFilter(kFilterExtendsAssigns));
  FunctionDeclaration* grid = Method(m, "Grid%Ai%");
  EXPECT_TRUE(grid && grid->GetType().GetDimensions() == 2);
  FunctionDeclaration* s = Method(m, "S%%i");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->GetParameter(0)->GetMode(), PD::kParamHidden);
  FunctionDeclaration* t = Method(m, "T%%bco<Object>i");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->GetParameter(0)->GetDefaultValue().sint32, 1);
  EXPECT_EQ(t->GetParameter(1)->GetDefaultValue().sint32, 0x00FF00);
  EXPECT_EQ(t->GetParameter(2)->GetMode(), PD::kParamOptional);
  EXPECT_EQ(t->GetParameter(3)->GetDefaultValue().sint32, 3) << "a float default of an Integer is truncated";
  FunctionDeclaration* u = Method(m, "U%%i");
  ASSERT_NE(u, nullptr);
  EXPECT_EQ(u->GetParameter(0)->GetDefaultValue().sint32, INT32_MIN) << "out of range truncates as at run time";
}

TEST_F(MinerProgram, DeclaresAndPropertiesOfOneClause) {
  ModuleDeclaration* m = Mine(
      "Dim a, b(3) As Integer, c(2, 5) As String, d As Double = 2.0\n"
      "Class K\n  Private Dim p, q As Double\n  r As Boolean\nEnd Class\n"
      "Sub Main()\n  Declare Sub Beep Lib \"sys\" ()\n  Declare Function Count Lib kLib (n As Integer) As Integer\nEnd Sub\n");
  EXPECT_EQ(m->LookupProperty("a")->GetType(), IRDataType(kTypeInteger));
  EXPECT_EQ(m->LookupProperty("b")->GetType(), IRDataType(kTypeInteger).AsArray(1));
  EXPECT_EQ(m->LookupProperty("c")->GetType(), IRDataType(kTypeString).AsArray(2));
  EXPECT_EQ(m->LookupProperty("d")->GetType(), IRDataType(kTypeDouble));
  ClassDeclaration* k = Class(m, "K");
  ASSERT_NE(k, nullptr);
  EXPECT_EQ(k->LookupProperty("q")->GetScope(), ScopedDeclaration::kScopePrivate);
  EXPECT_EQ(k->LookupProperty("q")->GetOffset(), 8);
  EXPECT_EQ(k->LookupProperty("r")->GetScope(), ScopedDeclaration::kScopePublic) << "a scope word is for one member";
  EXPECT_EQ(k->GetStorageSize(), 20);
  // A Declare inside a method is known in that method only.
  FunctionDeclaration* main = Method(m, "Main%%");
  ASSERT_TRUE(main && main->CountMethods() == 2);
  EXPECT_EQ(Text(main->GetMethod(0)->GetName()), "Beep");
  EXPECT_EQ(Text(main->GetMethod(0)->GetSourceLibrary()), "\"sys\"") << "quotes kept";
  EXPECT_EQ(Text(main->GetMethod(1)->GetSourceLibrary()), "kLib") << "a constant's name";
  EXPECT_EQ(m->LookupMethod("Beep"), nullptr);
}

TEST_F(MinerProgram, SingleDeclarationEntries) {
  FunctionDeclaration* f = ExtractMethodDeclaration("Private Function F(a As Integer) As String", nullptr);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f->GetScope(), ScopedDeclaration::kScopePrivate);
  EXPECT_EQ(Text(f->GetName()), "F%s%i");
  delete f;
  for (char const* notAMethod : {"Dim x As Integer", "", "Public Class X"})
    EXPECT_EQ(ExtractMethodDeclaration(notAMethod, nullptr), nullptr) << notAMethod;
  ClassDeclaration* owner = ClassDeclaration::New();
  owner->SetName("Host");
  FunctionDeclaration* g = ExtractMethodDeclaration("Protected Sub Poke(v As Double)", owner);
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(Text(g->GetName()), "Host.Poke%%o<Host>d");
  EXPECT_EQ(g->GetScope(), ScopedDeclaration::kScopeProtected);
  delete g;
  delete owner;

  PropertyDeclaration* p = ExtractPropertyDeclaration("Private Dim a(3, 4) As Integer, b As String");
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(Text(p->GetName()), "a");
  EXPECT_EQ(p->GetType(), IRDataType(kTypeInteger).AsArray(2));
  delete p;
  PropertyDeclaration* q = ExtractPropertyDeclaration("Count As Double");
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(q->GetType(), IRDataType(kTypeDouble));
  delete q;
  for (char const* notAProperty : {"Sub X()", "Dim", "Dim x"})
    EXPECT_EQ(ExtractPropertyDeclaration(notAProperty), nullptr) << notAProperty;
}

}  // namespace
