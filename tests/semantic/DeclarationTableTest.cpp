// The declaration tables on their own: method lists and overload filters,
// class and module indices, and the access rule.
#include "tests/frontend/CompileFixture.h"

namespace {

ParameterDeclaration* Param(char const* name, IRDataType type, int32_t designator = 0) {
  ParameterDeclaration* p = ParameterDeclaration::New();
  p->SetName(name);
  p->SetType(type);
  p->SetDesignator(designator);
  return p;
}

// A method with parameters of the given designators, all Integer.
FunctionDeclaration* NewMethod(char const* base, char const* name, std::vector<int32_t> designators) {
  FunctionDeclaration* f = FunctionDeclaration::New();
  f->SetBaseName(base);
  f->SetName(name);
  for (int32_t d : designators) f->AddParameter(Param("p", IRDataType(kTypeInteger), d));
  return f;
}

std::vector<std::string> Names(Ref<SimpleVector<FunctionDeclaration*> > const& list) {
  std::vector<std::string> out;
  for (unsigned long i = 0; i < list->size(); ++i) out.push_back((*list.Get())[i]->GetName().CString());
  return out;
}

constexpr int32_t kNone = ParameterDeclaration::kDesignatorNone;
constexpr int32_t kAssigns = ParameterDeclaration::kDesignatorAssigns;
constexpr int32_t kExtends = ParameterDeclaration::kDesignatorExtends;

class DeclarationTableTest : public CompileFixture {};

TEST_F(DeclarationTableTest, OverloadFiltersSelectByDesignators) {
  ClassDeclaration* cls = ClassDeclaration::New();
  cls->AddMethod(NewMethod("Foo", "plain", {kNone, kNone}));
  cls->AddMethod(NewMethod("Foo", "extends", {kExtends, kNone}));
  cls->AddMethod(NewMethod("Foo", "assigns", {kNone, kAssigns}));
  cls->AddMethod(NewMethod("Foo", "both", {kExtends, kAssigns}));
  // One parameter that is first and last: Assigns makes it assign only.
  cls->AddMethod(NewMethod("Foo", "single", {kAssigns}));
  cls->AddMethod(NewMethod("Foo", "none", {}));
  cls->AddMethod(NewMethod("Bar", "other", {}));

  struct Case {
    MethodFilter filter;
    std::vector<std::string> expected;
  } const cases[] = {
      {kFilterAll, {"plain", "extends", "assigns", "both", "single", "none"}},
      {kFilterPlain, {"plain", "none"}},
      {kFilterExtends, {"extends"}},
      {kFilterAssigns, {"assigns", "single"}},
      {kFilterExtendsAssigns, {"both"}},
  };
  for (Case const& c : cases) {
    Ref<SimpleVector<FunctionDeclaration*> > list = cls->LookupMethodsByBase("FOO", c.filter);
    ASSERT_TRUE(list) << "filter " << c.filter;
    EXPECT_EQ(Names(list), c.expected) << "filter " << c.filter;
  }
  // An unknown base name is null, a known one that no overload passes an
  // empty list; a mangled name is found without regard to case.
  EXPECT_FALSE(cls->LookupMethodsByBase("Baz", kFilterAll));
  EXPECT_EQ(cls->LookupMethodsByBase("Bar", kFilterAssigns)->size(), 0u);
  EXPECT_EQ(cls->LookupMethod("ASSIGNS"), cls->GetMethod(2));
  EXPECT_EQ(cls->LookupMethod("Foo"), nullptr) << "the base name is not a mangled name";
  delete cls;
}

TEST_F(DeclarationTableTest, ModuleMethodListsPutInnerModulesFirst) {
  ModuleDeclaration* outer = ModuleDeclaration::New();
  ModuleDeclaration* inner = ModuleDeclaration::New();
  inner->SetParent(outer);
  outer->AddModule(inner);
  outer->AddMethod(NewMethod("Foo", "outer1", {}));
  outer->AddMethod(NewMethod("Bar", "outerBar", {}));
  inner->AddMethod(NewMethod("Foo", "inner1", {}));

  EXPECT_EQ(Names(inner->LookupMethodsByBase("foo", kFilterAll)),
            (std::vector<std::string>{"inner1", "outer1"}));
  // Only the parent knows it: the parent's list is the answer.
  EXPECT_EQ(Names(inner->LookupMethodsByBase("bar", kFilterAll)), std::vector<std::string>{"outerBar"});
  EXPECT_FALSE(inner->LookupMethodsByBase("baz", kFilterAll));
  EXPECT_EQ(Names(outer->LookupMethodsByBase("foo", kFilterAll)), std::vector<std::string>{"outer1"});
  outer->Unlink();
  delete outer;
}

// A module's lookups go on to the enclosing module; indices that start
// small keep every entry through their growth.
TEST_F(DeclarationTableTest, LookupsReachTheEnclosingModuleAndEveryIndexedEntry) {
  ModuleDeclaration* root = Mine(
      "Const kLimit = 1\nDim count As Integer\nClass Shape\n Dim a, b, c, d, e, f, g As Integer\nEnd Class\n"
      "Module Inner\nEnd Module\n");
  ModuleDeclaration* inner = root->LookupModule("Inner");
  ASSERT_NE(inner, nullptr);
  EXPECT_EQ(inner->LookupConstant("KLIMIT"), root->LookupConstant("kLimit"));
  EXPECT_EQ(inner->LookupProperty("Count"), root->LookupProperty("count"));
  EXPECT_EQ(inner->LookupModule("inner"), inner) << "found in the enclosing module's list";
  EXPECT_EQ(root->LookupModule("Missing"), nullptr);
  ModuleDeclaration* twin = ModuleDeclaration::New();
  twin->SetName("INNER");
  root->AddModule(twin);
  EXPECT_EQ(root->LookupModule("Inner"), inner) << "of two modules of one name, the first";
  ClassDeclaration* cls = inner->LookupClass("shape");
  ASSERT_NE(cls, nullptr);
  for (char const* name : {"a", "b", "c", "d", "e", "f", "g"}) EXPECT_NE(cls->LookupProperty(name), nullptr) << name;

  FunctionDeclaration* event = NewMethod("Changed", "Shape.Changed%%o<Shape>", {kNone});
  cls->AddEvent(event);
  EXPECT_EQ(cls->LookupEvent("changed"), event) << "events are indexed by base name";
  cls->AddHandledEvent(HandledEvent::New("Changed", "Shape.#Changed%%o<Shape>"));
  EXPECT_EQ(Text(cls->LookupHandledEvent("CHANGED")->GetHandlerName()), "Shape.#Changed%%o<Shape>");
  cls->AddImplementedInterface("Drawable");
  cls->InsertImplementedInterface(0, "Sized");
  EXPECT_EQ(Text(cls->GetImplementedInterface(0)), "Sized");
  EXPECT_TRUE(cls->LookupImplementedInterface("drawable"));
  EXPECT_FALSE(cls->LookupImplementedInterface("Movable"));
}

// Access from the class being compiled to a member of `owner`.
struct AccessCase {
  char const* current;  // null: outside any class
  char const* owner;
  ScopedDeclaration::Scope scope;
  bool allowed;
};

TEST_F(DeclarationTableTest, AccessFollowsScopeAndAncestry) {
  ClassDeclaration* shape = ClassDeclaration::New();
  shape->SetName("Shape");
  ClassDeclaration* circle = ClassDeclaration::New();
  circle->SetName("Circle");
  circle->SetParent(shape);
  ClassDeclaration* dot = ClassDeclaration::New();
  dot->SetName("Dot");
  dot->SetParent(circle);
  ClassDeclaration* other = ClassDeclaration::New();
  other->SetName("Other");
  ClassDeclaration* classes[] = {shape, circle, dot, other};
  auto find = [&](char const* name) -> ClassDeclaration* {
    for (ClassDeclaration* c : classes)
      if (c->GetName() == name) return c;
    return nullptr;
  };

  using S = ScopedDeclaration;
  AccessCase const cases[] = {
      {nullptr, "Shape", S::kScopePublic, true},
      {nullptr, "Shape", S::kScopeProtected, false},
      {nullptr, "Shape", S::kScopePrivate, false},
      {"Shape", "Shape", S::kScopePrivate, true},
      {"Shape", "Shape", S::kScopeProtected, true},
      {"Circle", "Shape", S::kScopeProtected, true},
      {"Dot", "Shape", S::kScopeProtected, true},
      {"Circle", "Shape", S::kScopePrivate, false},
      {"Shape", "Circle", S::kScopeProtected, false},
      {"Other", "Shape", S::kScopeProtected, false},
      {"Other", "Shape", S::kScopePublic, true},
  };
  for (AccessCase const& c : cases) {
    mContext->inClass = c.current != nullptr;
    mContext->currentClass = c.current ? find(c.current) : nullptr;
    EXPECT_EQ(CurrentlyHasPermissionToAccess(find(c.owner), c.scope), c.allowed)
        << (c.current ? c.current : "(outside)") << " -> " << c.owner << " scope " << c.scope;
  }

  // A loop of parents that doesn't pass through the current class ends.
  shape->SetParent(circle);
  mContext->inClass = true;
  mContext->currentClass = dot;
  EXPECT_FALSE(CurrentlyHasPermissionToAccess(other, S::kScopeProtected));
  mContext->currentClass = circle;
  EXPECT_FALSE(CurrentlyHasPermissionToAccess(other, S::kScopeProtected));
  for (ClassDeclaration* c : classes) delete c;
}

}  // namespace
