// Mined classes: storage layout, method and event slots across an
// inheritance chain, overloads across levels, interfaces, events, and
// Inherits lines that loop.
#include "tests/frontend/CompileFixture.h"

namespace {

using FD = FunctionDeclaration;

class MinerClassesTest : public CompileFixture {};

char const kShapes[] =
    "Class Shape\n"
    "  Dim x As Integer\n"
    "  Dim d As Double\n"
    "  Private secret As Integer\n"
    "  Protected Const kSides = 0\n"
    "  Const kName = \"shape\"\n"
    "  Private Const kHidden = 1\n"
    "  Sub Draw()\n"
    "  End Sub\n"
    "  Function Area() As Double\n"
    "    Return 0\n"
    "  End Function\n"
    "  Private Sub Helper()\n"
    "  End Sub\n"
    "  New Event Changed(v As Integer)\n"
    "End Class\n"
    "\n"
    "Class Circle\n"
    "  Inherits Shape\n"
    "  Dim r As Double\n"
    "  Function Area() As Double\n"      // overrides Shape's slot 1
    "  End Function\n"
    "  Sub Grow(by As Integer)\n"        // new slot 2
    "  End Sub\n"
    "  Sub Helper()\n"                   // the parent's is private: new slot 3
    "  End Sub\n"
    "  New Event Resized()\n"
    "End Class\n"
    "\n"
    "Class Dot\n"
    "  Inherits Circle\n"
    "  Sub Draw()\n"                     // overrides Shape's slot 0
    "  End Sub\n"
    "  Sub Grow(by As String)\n"         // an overload beside Circle's: slot 4
    "  End Sub\n"
    "End Class\n";

TEST_F(MinerClassesTest, BaseClassLaysOutFieldsAndNumbersSlots) {
  ModuleDeclaration* m = Mine(kShapes);
  EXPECT_FALSE(mFailed);
  ClassDeclaration* shape = Class(m, "Shape");
  ASSERT_NE(shape, nullptr);
  EXPECT_EQ(shape->GetParent(), nullptr);
  const struct {
    char const* name;
    int32_t offset, index;
  } kFields[] = {{"x", 0, 0}, {"d", 4, 1}, {"secret", 12, 2}};
  for (auto const& f : kFields) {
    PropertyDeclaration* p = shape->LookupProperty(f.name);
    ASSERT_NE(p, nullptr) << f.name;
    EXPECT_EQ(p->GetOffset(), f.offset) << f.name;
    EXPECT_EQ(p->GetIndex(), f.index) << f.name;
  }
  EXPECT_EQ(Text(shape->LookupProperty("d")->GetLinkName()), "Shape.d");
  EXPECT_EQ(shape->GetStorageSize(), 16);
  EXPECT_EQ(shape->propertySlotCount, 3);

  FD* area = Method(shape, "Shape.Area%d%o<Shape>");
  FD* helper = Method(shape, "Shape.Helper%%o<Shape>");
  FD* lookup = Method(shape, "Shape.__Lookup");
  ASSERT_TRUE(area && helper && lookup);
  EXPECT_EQ(Method(shape, "Shape.Draw%%o<Shape>")->GetDispatchID(), 0);
  EXPECT_EQ(area->GetDispatchMethod(), FD::kDispatchVtable);
  EXPECT_EQ(area->GetDispatchID(), 1);
  EXPECT_EQ(area->GetParameter(0)->GetType(), IRDataType(string("Shape"))) << "self comes first";
  EXPECT_EQ(helper->GetDispatchMethod(), FD::kDispatchNormal) << "private methods aren't virtual";
  EXPECT_EQ(lookup->GetDispatchMethod(), FD::kDispatchNormal);
  EXPECT_EQ(lookup->GetType().GetMainType(), kTypeClassRef);
  EXPECT_EQ(shape->vtableSlotCount, 2);

  ASSERT_EQ(shape->CountEvents(), 1u);
  EXPECT_EQ(shape->GetEvent(0)->GetDispatchMethod(), FD::kDispatchEvent);
  EXPECT_EQ(shape->GetEventTableSlotCount(), 1u);
}

TEST_F(MinerClassesTest, SubclassStoresBehindItsParentAndTakesOverSlots) {
  ModuleDeclaration* m = Mine(kShapes);
  ClassDeclaration* shape = Class(m, "Shape");
  ClassDeclaration* circle = Class(m, "Circle");
  ASSERT_TRUE(shape && circle);
  EXPECT_EQ(circle->GetParent(), shape);
  EXPECT_EQ(circle->LookupProperty("r")->GetOffset(), 16);
  EXPECT_EQ(circle->LookupProperty("r")->GetIndex(), 3) << "the parent's private field keeps its slot";
  EXPECT_EQ(circle->GetStorageSize(), 24);
  EXPECT_EQ(circle->LookupProperty("x"), shape->LookupProperty("x")) << "inherited fields are shared";
  EXPECT_EQ(circle->LookupProperty("secret"), nullptr) << "private fields aren't inherited";

  EXPECT_EQ(Method(circle, "Circle.Area%d%o<Circle>")->GetDispatchID(), 1);
  EXPECT_TRUE(Method(shape, "Shape.Area%d%o<Shape>")->IsOverridden());
  EXPECT_EQ(Method(circle, "Circle.Grow%%o<Circle>i")->GetDispatchID(), 2);
  EXPECT_EQ(Method(circle, "Circle.Helper%%o<Circle>")->GetDispatchID(), 3);
  EXPECT_EQ(circle->vtableSlotCount, 4);
  EXPECT_EQ(circle->LookupMethod("Shape.Draw%%o<Shape>"), shape->LookupMethod("Shape.Draw%%o<Shape>"));
  EXPECT_EQ(circle->LookupMethod("Shape.Helper%%o<Shape>"), nullptr);
  EXPECT_EQ(circle->LookupMethod("Shape.__Lookup"), nullptr) << "each class has its own retriever";

  ASSERT_EQ(circle->CountEvents(), 1u);
  EXPECT_EQ(circle->GetEvent(0)->GetDispatchID(), 1) << "behind the parent's event slot";
  EXPECT_EQ(circle->GetEventTableSlotCount(), 2u);
  EXPECT_NE(circle->LookupConstant("kSides"), nullptr) << "protected constants are inherited";
  EXPECT_EQ(circle->LookupConstant("kHidden"), nullptr);
}

TEST_F(MinerClassesTest, OverloadsAcrossLevelsStandSideBySide) {
  ModuleDeclaration* m = Mine(kShapes);
  ClassDeclaration* dot = Class(m, "Dot");
  ASSERT_NE(dot, nullptr);
  EXPECT_EQ(Method(dot, "Dot.Draw%%o<Dot>")->GetDispatchID(), 0);
  FD* inheritedGrow = Method(dot, "Circle.Grow%%o<Circle>i");
  ASSERT_NE(inheritedGrow, nullptr);
  EXPECT_EQ(Method(dot, "Dot.Grow%%o<Dot>s")->GetDispatchID(), 4);
  EXPECT_EQ(inheritedGrow->GetDispatchID(), 2);
  EXPECT_FALSE(inheritedGrow->IsOverridden());
  EXPECT_EQ(dot->vtableSlotCount, 5);
  EXPECT_EQ(dot->LookupMethodsByBase("grow", kFilterAll)->size(), 2u);
  // Shape's Draw is overridden two levels down and isn't copied in again.
  EXPECT_EQ(dot->LookupMethod("Shape.Draw%%o<Shape>"), nullptr);
  EXPECT_EQ(dot->LookupProperty("r")->GetOffset(), 16);
}

// A child declared before its parent gets the same layout; of two Inherits
// lines the first stands (`Inherits Object` names no parent); an unknown
// parent leaves the class numbered on its own.
TEST_F(MinerClassesTest, ParentsWhereverAndHoweverNamed) {
  ModuleDeclaration* m = Mine(
      "Class Child\n Inherits Base\n Dim c As Integer\n Sub Run()\n End Sub\nEnd Class\n"
      "Class Base\n Dim b As Double\n Sub Stop()\n End Sub\nEnd Class\n"
      "Class C\n  Inherits Base\n  Inherits Child\nEnd Class\n"
      "Class D\n  Inherits Object\n  Inherits Child\nEnd Class\n"
      "Class Orphan\n  Inherits Missing\n  Sub A()\n  End Sub\n  Sub B()\n  End Sub\nEnd Class\n");
  EXPECT_FALSE(mFailed);
  ClassDeclaration* child = Class(m, "Child");
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->GetParent(), Class(m, "Base"));
  EXPECT_EQ(child->LookupProperty("c")->GetOffset(), 8);
  EXPECT_EQ(child->GetStorageSize(), 12);
  EXPECT_EQ(Method(child, "Child.Run%%o<Child>")->GetDispatchID(), 1);
  EXPECT_EQ(Class(m, "C")->GetParent(), Class(m, "Base"));
  EXPECT_EQ(Class(m, "D")->GetParent(), child);
  ClassDeclaration* orphan = Class(m, "Orphan");
  ASSERT_NE(orphan, nullptr);
  EXPECT_EQ(orphan->GetParent(), nullptr);
  EXPECT_EQ(Method(orphan, "Orphan.B%%o<Orphan>")->GetDispatchID(), 1);
}

TEST_F(MinerClassesTest, InterfacesNumberTheirSlotsAndPassThemDown) {
  ModuleDeclaration* m = Mine(
      "Interface Drawable\n"
      "  Sub Draw()\n"
      "  Function Size() As Integer\n"
      "End Interface\n"
      "Class Box\n  Implements Drawable\n  Sub Draw()\n  End Sub\nEnd Class\n"
      "Class Crate\n  Inherits Box\n  Implements Sized\nEnd Class\n");
  EXPECT_FALSE(mFailed);
  ClassDeclaration* drawable = Class(m, "Drawable");
  ASSERT_NE(drawable, nullptr);
  EXPECT_TRUE(drawable->IsInterface());
  EXPECT_EQ(drawable->GetParent(), nullptr) << "its type names itself, not a parent";
  EXPECT_EQ(Method(drawable, "Drawable.Draw%%o<Drawable>")->GetDispatchID(), 0);
  EXPECT_EQ(Method(drawable, "Drawable.Size%i%o<Drawable>")->GetDispatchID(), 1);
  EXPECT_EQ(drawable->vtableSlotCount, 2);
  EXPECT_NE(drawable->LookupMethod("Drawable.__Lookup"), nullptr);

  ClassDeclaration* crate = Class(m, "Crate");
  ASSERT_NE(crate, nullptr);
  ASSERT_EQ(crate->CountImplementedInterfaces(), 2u);
  EXPECT_EQ(crate->GetImplementedInterface(0), string("Drawable")) << "the parent's come first";
  EXPECT_EQ(crate->GetImplementedInterface(1), string("Sized"));
}

TEST_F(MinerClassesTest, HandlersAreRenamedAndRecorded) {
  ModuleDeclaration* m = Mine(
      "Class Button\n"
      "  New Event Clicked(x As Integer)\n"
      "  New Event Hovered()\n"
      "End Class\n"
      "Class OkButton\n"
      "  Inherits Button\n"
      "  New Event Confirmed() As Boolean\n"
      "  Sub Clicked(x As Integer) Handles Event\n"
      "  End Sub\n"
      "End Class\n");
  EXPECT_FALSE(mFailed);
  ClassDeclaration* button = Class(m, "Button");
  ClassDeclaration* ok = Class(m, "OkButton");
  ASSERT_TRUE(button && ok);
  FD* clicked = button->LookupEvent("clicked");
  ASSERT_NE(clicked, nullptr);
  EXPECT_EQ(clicked->GetScope(), ScopedDeclaration::kScopePrivate);
  EXPECT_EQ(clicked->CountParameters(), 2u) << "self and x";
  EXPECT_EQ(button->LookupEvent("Hovered")->GetDispatchID(), 1);
  EXPECT_EQ(button->GetEventTableSlotCount(), 2u);

  EXPECT_EQ(ok->LookupEvent("Confirmed")->GetDispatchID(), 2);
  EXPECT_EQ(ok->GetEventTableSlotCount(), 3u);

  HandledEvent* handled = ok->LookupHandledEvent("Clicked");
  ASSERT_NE(handled, nullptr);
  EXPECT_EQ(handled->GetHandlerName(), string("OkButton.#Clicked%%o<OkButton>i"));
  EXPECT_NE(Method(ok, "OkButton.#Clicked%%o<OkButton>i"), nullptr);
}

TEST_F(MinerClassesTest, CircularInheritanceIsConnectedButNotFollowedRound) {
  ModuleDeclaration* m = Mine(
      "Class A\n  Inherits B\n  Sub F()\n  End Sub\n  Dim a As Integer\nEnd Class\n"
      "Class B\n  Inherits A\n  Dim b As Double\nEnd Class\n"
      "Class Narcissus\n  Inherits Narcissus\n  Sub G()\n  End Sub\nEnd Class\n"
      "Class Three1\n Inherits Three3\nEnd Class\n"
      "Class Three2\n Inherits Three1\nEnd Class\n"
      "Class Three3\n Inherits Three2\nEnd Class\n");
  EXPECT_FALSE(mFailed) << "a cycle is the grammar's to report";
  ClassDeclaration* a = Class(m, "A");
  ClassDeclaration* b = Class(m, "B");
  ASSERT_TRUE(a && b);
  EXPECT_EQ(a->GetParent(), b);
  EXPECT_EQ(b->GetParent(), a);
  ClassDeclaration* self = Class(m, "Narcissus");
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(self->GetParent(), self);
  EXPECT_EQ(self->CountMethods(), 2u) << "nothing copied from itself";
  // Walking up a three-class loop comes back to its start.
  ClassDeclaration* start = Class(m, "Three1");
  ASSERT_NE(start, nullptr);
  EXPECT_EQ(start->GetParent()->GetParent()->GetParent(), start);
}

TEST_F(MinerClassesTest, ExternalMethodsKeepTheirLinkNames) {
  ModuleDeclaration* m = Mine(
      "Class Win\n"
      "  Declare Function GetIt Lib \"user\" Alias \"RealGet\" (p As Ptr, ByRef n As Short, s As CString) As Short\n"
      "  Declare Sub Plain Lib libname (w As WindowPtr)\n"
      "End Class\n");
  ClassDeclaration* win = Class(m, "Win");
  ASSERT_NE(win, nullptr);
  FD* get = Method(win, "RealGet");
  ASSERT_NE(get, nullptr);
  EXPECT_TRUE(get->External());
  EXPECT_EQ(get->GetBaseName(), string("GetIt"));
  EXPECT_EQ(get->GetSourceLibrary(), string("user"));
  ASSERT_EQ(get->CountParameters(), 4u);
  EXPECT_EQ(get->GetParameter(1)->GetType().GetMainType(), kTypePtr);
  EXPECT_EQ(get->GetParameter(2)->GetType(), IRDataType(kTypeShort).AsReference());
  EXPECT_EQ(get->GetParameter(3)->GetType().GetMainType(), kTypeCString);
  FD* plain = Method(win, "Plain");
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(plain->GetSourceLibrary(), string()) << "a name as library has no value here";
  EXPECT_EQ(plain->GetParameter(1)->GetType().GetMainType(), kTypeWindowPtr);
}

TEST_F(MinerClassesTest, ALongChainIsLaidOutWithoutDeepRecursion) {
  // The most derived class comes first, so the first class worked on pulls
  // in the whole chain of ancestors.
  const int kDepth = 50000;
  std::string source;
  for (int i = kDepth; i > 0; --i) {
    source += "Class C" + std::to_string(i) + "\n";
    if (i > 1) source += "  Inherits C" + std::to_string(i - 1) + "\n";
    source += "  Private f As Integer\nEnd Class\n";
  }
  ModuleDeclaration* m = Mine(source.c_str());
  EXPECT_FALSE(mFailed);
  ClassDeclaration* last = Class(m, ("C" + std::to_string(kDepth)).c_str());
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->GetStorageSize(), 4 * kDepth);
  EXPECT_EQ(last->LookupProperty("f")->GetOffset(), 4 * (kDepth - 1));
  EXPECT_EQ(last->propertySlotCount, kDepth);
  EXPECT_EQ(Class(m, "C2")->GetParent(), Class(m, "C1"));
}

}  // namespace
