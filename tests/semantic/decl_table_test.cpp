// The declaration tables on their own: method lists and overload filters,
// class and module indices, lock counting and the access rule.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frontend/CompileScope.h"
#include "frontend/SrcContext.h"
#include "semantic/DeclarationTable.h"

namespace {

ParameterDeclaration* Param(char const* name, IRDataType type, int32_t designator = 0) {
  ParameterDeclaration* p = ParameterDeclaration::New();
  p->SetName(name);
  p->SetType(type);
  p->SetDesignator(designator);
  return p;
}

// A method with parameters of the given designators, all Integer.
FunctionDeclaration* Method(char const* base, char const* name, std::vector<int32_t> designators) {
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

class DeclarationTableTest : public ::testing::Test {
protected:
  CompileScope mScope;
  SrcContext* mContext = mScope.Context();
};

TEST_F(DeclarationTableTest, OverloadFiltersSelectByDesignators) {
  ClassDeclaration* cls = ClassDeclaration::New();
  cls->AddMethod(Method("Foo", "plain", {kNone, kNone}));
  cls->AddMethod(Method("Foo", "extends", {kExtends, kNone}));
  cls->AddMethod(Method("Foo", "assigns", {kNone, kAssigns}));
  cls->AddMethod(Method("Foo", "both", {kExtends, kAssigns}));
  // One parameter that is first and last: Assigns makes it assign only.
  cls->AddMethod(Method("Foo", "single", {kAssigns}));
  cls->AddMethod(Method("Foo", "none", {}));
  cls->AddMethod(Method("Bar", "other", {}));

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
  delete cls;
}

TEST_F(DeclarationTableTest, UnknownBaseNameIsNullButNoMatchIsAnEmptyList) {
  ClassDeclaration* cls = ClassDeclaration::New();
  EXPECT_FALSE(cls->LookupMethodsByBase("foo", kFilterAll)) << "no method at all yet";
  cls->AddMethod(Method("foo", "foo%%", {kNone}));
  Ref<SimpleVector<FunctionDeclaration*> > none = cls->LookupMethodsByBase("foo", kFilterAssigns);
  ASSERT_TRUE(none);
  EXPECT_EQ(none->size(), 0u);
  EXPECT_FALSE(cls->LookupMethodsByBase("bar", kFilterAll));
  delete cls;
}

TEST_F(DeclarationTableTest, LookupMethodFindsByMangledNameIgnoringCase) {
  ModuleDeclaration* module = ModuleDeclaration::New();
  module->AddMethod(Method("Foo", "Foo%%i", {kNone}));
  module->AddMethod(Method("Foo", "Foo%%s", {kNone}));
  ASSERT_NE(module->LookupMethod("FOO%%S"), nullptr);
  EXPECT_EQ(module->LookupMethod("foo%%s"), module->GetMethod(1));
  EXPECT_EQ(module->LookupMethod("Foo"), nullptr) << "the base name is not a mangled name";
  EXPECT_EQ(module->CountMethods(), 2u);
  delete module;
}

TEST_F(DeclarationTableTest, ModuleMethodListsPutInnerModulesFirst) {
  ModuleDeclaration* outer = ModuleDeclaration::New();
  ModuleDeclaration* inner = ModuleDeclaration::New();
  inner->SetParent(outer);
  outer->AddModule(inner);
  outer->AddMethod(Method("Foo", "outer1", {}));
  outer->AddMethod(Method("Bar", "outerBar", {}));
  inner->AddMethod(Method("Foo", "inner1", {}));

  EXPECT_EQ(Names(inner->LookupMethodsByBase("foo", kFilterAll)),
            (std::vector<std::string>{"inner1", "outer1"}));
  // Only the parent knows it: the parent's list is the answer.
  EXPECT_EQ(Names(inner->LookupMethodsByBase("bar", kFilterAll)), std::vector<std::string>{"outerBar"});
  EXPECT_FALSE(inner->LookupMethodsByBase("baz", kFilterAll));
  EXPECT_EQ(Names(outer->LookupMethodsByBase("foo", kFilterAll)), std::vector<std::string>{"outer1"});
  outer->Unlink();
  delete outer;
}

TEST_F(DeclarationTableTest, ModuleLookupsAskTheEnclosingModuleClassesDoNot) {
  ModuleDeclaration* outer = ModuleDeclaration::New();
  outer->SetName("Outer");
  ModuleDeclaration* inner = ModuleDeclaration::New();
  inner->SetName("Inner");
  inner->SetParent(outer);
  outer->AddModule(inner);

  ConstantDeclaration* k = ConstantDeclaration::New();
  k->SetName("kLimit");
  outer->AddConstant(k);
  ClassDeclaration* cls = ClassDeclaration::New();
  cls->SetName("Shape");
  outer->AddClass(cls);
  PropertyDeclaration* prop = PropertyDeclaration::New();
  prop->SetName("count");
  outer->AddProperty(prop);

  EXPECT_EQ(inner->LookupConstant("KLIMIT"), k);
  EXPECT_EQ(inner->LookupClass("shape"), cls);
  EXPECT_EQ(inner->LookupProperty("Count"), prop);
  EXPECT_EQ(inner->LookupModule("inner"), inner) << "found in the enclosing module's list";
  EXPECT_EQ(outer->LookupModule("Missing"), nullptr);

  ClassDeclaration* parent = ClassDeclaration::New();
  ClassDeclaration* child = ClassDeclaration::New();
  child->SetParent(parent);
  ConstantDeclaration* c = ConstantDeclaration::New();
  c->SetName("c");
  parent->AddConstant(c);
  EXPECT_EQ(parent->LookupConstant("C"), c);
  EXPECT_EQ(child->LookupConstant("c"), nullptr) << "a class holds copies of what it inherits";

  outer->Unlink();
  delete outer;
  delete child;
  delete parent;
}

TEST_F(DeclarationTableTest, ClassIndicesFindPropertiesEventsAndHandlers) {
  ClassDeclaration* cls = ClassDeclaration::New();
  for (char const* name : {"a", "b", "c", "d", "e", "f", "g"}) {
    PropertyDeclaration* p = PropertyDeclaration::New();
    p->SetName(name);
    cls->AddProperty(p);
  }
  // More entries than the index starts with: growth must keep them all.
  for (char const* name : {"a", "b", "c", "d", "e", "f", "g"}) {
    PropertyDeclaration* found = cls->LookupProperty(string(name));
    ASSERT_NE(found, nullptr) << name;
    EXPECT_EQ(found->GetName(), string(name));
  }
  FunctionDeclaration* event = Method("Changed", "Shape.Changed%%o<Shape>", {kNone});
  cls->AddEvent(event);
  EXPECT_EQ(cls->LookupEvent("changed"), event) << "events are indexed by base name";
  EXPECT_EQ(cls->LookupEvent("Shape.Changed%%o<Shape>"), nullptr);

  cls->AddHandledEvent(HandledEvent::New("Changed", "Shape.#Changed%%o<Shape>"));
  ASSERT_NE(cls->LookupHandledEvent("CHANGED"), nullptr);
  EXPECT_EQ(cls->LookupHandledEvent("Changed")->GetHandlerName(), string("Shape.#Changed%%o<Shape>"));

  cls->AddImplementedInterface("Drawable");
  cls->InsertImplementedInterface(0, "Sized");
  EXPECT_EQ(cls->GetImplementedInterface(0), string("Sized"));
  EXPECT_TRUE(cls->LookupImplementedInterface("drawable"));
  EXPECT_FALSE(cls->LookupImplementedInterface("Movable"));
  delete cls;
}

TEST_F(DeclarationTableTest, AnItemInTwoListsLivesUntilBothAreGone) {
  ClassDeclaration* parent = ClassDeclaration::New();
  ClassDeclaration* child = ClassDeclaration::New();
  FunctionDeclaration* shared = Method("Draw", "Draw%%", {});
  EXPECT_EQ(shared->lockCount, 0);
  parent->AddMethod(shared);
  child->AddMethod(shared);
  EXPECT_EQ(shared->lockCount, 2);
  delete parent;
  // The sanitizer build catches a use after free here.
  EXPECT_EQ(shared->lockCount, 1);
  EXPECT_EQ(child->LookupMethod("draw%%"), shared);
  delete child;
}

TEST_F(DeclarationTableTest, ExternalAnswersForALibraryWithoutTheFlag) {
  FunctionDeclaration* f = FunctionDeclaration::New();
  EXPECT_FALSE(f->External());
  f->SetSourceLibrary("libc");
  EXPECT_TRUE(f->External());
  f->SetSourceLibrary(string());
  f->SetExternal(true);
  EXPECT_TRUE(f->External());
  delete f;
}

TEST_F(DeclarationTableTest, UnlinkClearsTheUnlockedLinks) {
  ModuleDeclaration* root = ModuleDeclaration::New();
  ModuleDeclaration* inner = ModuleDeclaration::New();
  inner->SetParent(root);
  root->AddModule(inner);
  ClassDeclaration* base = ClassDeclaration::New();
  ClassDeclaration* derived = ClassDeclaration::New();
  derived->SetParent(base);
  root->AddClass(base);
  inner->AddClass(derived);
  root->Unlink();
  EXPECT_EQ(inner->GetParent(), nullptr);
  EXPECT_EQ(derived->GetParent(), nullptr);
  delete root;
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
