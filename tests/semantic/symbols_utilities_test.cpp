#include <gtest/gtest.h>

#include "semantic/DeclarationTable.h"
#include "semantic/SymbolUtilities.h"
#include "symbols_fixture.h"

namespace {

using Codes = std::vector<int>;

class SymbolUtilities : public SymbolsFixture {};

// FlattenExpression

TEST_F(SymbolUtilities, FlattenMovesTheLinesBehindTheTargetsOwn) {
  SymbolID x = CurrentSymbolTable()->Store(string("x"), IRDataType(kTypeInteger));
  SymbolID t = CurrentSymbolTable()->Store(string("t"), IRDataType(kTypeString));
  SourceLocation where(3, 1, 3, 9);
  Ref<SemBase> expression = SemCode::NewValueWrapper(SemValue::New(x.GetAddr(), nullptr), &where);
  expression->AddLine(tac_AddI, gTacOne, gTacOne, x.GetAddr());
  expression->AddLine(tac_NegI, x.GetAddr(), nilTacAddr, x.GetAddr());
  expression->Temporaries()->push_back(t);

  Ref<SemBase> code = SemCode::New(IRDataType(), nullptr);
  code->AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr);
  Ref<SemBase> value = FlattenExpression(expression, code);

  ASSERT_TRUE(value);
  EXPECT_EQ(value->tag, kSemValueTag);
  EXPECT_EQ(value->Code(), nullptr);
  EXPECT_EQ(value->GetAddr(), x.GetAddr());
  EXPECT_EQ(value->Location().startLine, 3);
  EXPECT_EQ(value->Location().endOffset, 9);
  // What came first in `code` runs first.
  std::vector<TacOpcode> ops;
  TacBlockIterator it(code->Code());
  while (it.Next()) ops.push_back(it.Value()->opcode);
  EXPECT_EQ(ops, (std::vector<TacOpcode>{tac_Noop, tac_AddI, tac_NegI}));
  EXPECT_TRUE(expression->Code()->IsEmpty());
  ASSERT_EQ(code->Temporaries()->size(), 1u);
  EXPECT_TRUE((*code->Temporaries())[0] == t);
}

TEST_F(SymbolUtilities, FlattenLeavesAPlainValueAlone) {
  Ref<SemBase> code = SemCode::New(IRDataType(), nullptr);
  Ref<SemBase> constant = SemValue::New(gTacOne, nullptr);
  EXPECT_TRUE(FlattenExpression(constant, code) == constant);
  Ref<SemBase> identifier = Ident("a");
  EXPECT_TRUE(FlattenExpression(identifier, code) == identifier);
  EXPECT_TRUE(code->Code()->IsEmpty());
  EXPECT_FALSE(FlattenExpression(Ref<SemBase>(), code));
}

// Declaring and finding names

TEST_F(SymbolUtilities, AddDeclaredNameStoresOnlyInLocalScopes) {
  AddDeclaredName(Ident("global"));
  EXPECT_EQ(CurrentSymbolTable()->symbols.size(), 0u);

  NewSymTable(LocalStorage, string("f"));
  Ref<SemBase> local = Ident("n", IRDataType(kTypeDouble));
  EXPECT_TRUE(AddDeclaredName(local) == local);
  SymbolID found;
  ASSERT_TRUE(CurrentSymbolTable()->Lookup(string("N"), nullptr, &found));
  EXPECT_TRUE(found.GetType() == IRDataType(kTypeDouble));
  EXPECT_TRUE(mErrors.errors.empty());
  EXPECT_FALSE(AddDeclaredName(Ref<SemBase>()));
}

TEST_F(SymbolUtilities, DuplicateIsReportedAndStoredAnyway) {
  NewSymTable(LocalStorage, string("f"));
  AddDeclaredName(Ident("n"));
  AddDeclaredName(Ident("N"));
  EXPECT_EQ(ErrorCodes(), Codes{DuplicateName});
  EXPECT_EQ(mErrors.errors[0].Location().startLine, 7);
  EXPECT_EQ(CurrentSymbolTable()->symbols.size(), 2u);
  EXPECT_TRUE(mContext->hadError);
}

TEST_F(SymbolUtilities, FindLocalSymbolSkipsGlobalsAndFields) {
  AddSymbol(Ident("g"));
  NewSymTable(ObjectStorage, string("Bar"));
  AddSymbol(Ident("field"));
  NewSymTable(LocalStorage, string("Bar.M"));
  SymbolID outerLocal = AddSymbol(Ident("p"));
  NewSymTable(LocalStorage, string(""));
  SymbolID innerLocal = AddSymbol(Ident("q"));

  Ref<SemBase> p = FindLocalSymbol(Ident("P"));
  ASSERT_TRUE(p);
  EXPECT_EQ(p->GetAddr(), outerLocal.GetAddr());
  EXPECT_EQ(p->Location().startLine, 7);
  Ref<SemBase> q = FindLocalSymbol(Ident("q"));
  ASSERT_TRUE(q);
  EXPECT_EQ(q->GetAddr(), innerLocal.GetAddr());
  // Found by the search, but not a local.
  EXPECT_FALSE(FindLocalSymbol(Ident("g")));
  EXPECT_FALSE(FindLocalSymbol(Ident("field")));
  EXPECT_FALSE(FindLocalSymbol(Ident("missing")));
}

TEST_F(SymbolUtilities, ProhibitInitializationReachesOuterScopes) {
  NewSymTable(LocalStorage, string("f"));
  SymbolID parameter = AddSymbol(Ident("arg"));
  NewSymTable(LocalStorage, string(""));
  SymbolID local = AddSymbol(Ident("other"));
  ProhibitSymbolInitialization(Ident("ARG"));
  ProhibitSymbolInitialization(Ident("missing"));
  EXPECT_FALSE(parameter.InitializationAllowed());
  EXPECT_TRUE(local.InitializationAllowed());
}

// VerifyUniqueName: one error, the first that applies in a fixed order.
//
// The declarations: module "Root" with method Foo, class Bar, module Mod,
// constant Pi, and a name "Both" that is class and constant at once; class
// Bar with event Clicked, method Draw, and "Twice", an event and a method;
// method Bar.Run with constant kMax, inner method Inner, and "Same", inner
// method and constant at once; "SetOnly", a method whose only overload
// assigns.
class NameClashes : public SymbolsFixture {
protected:
  void SetUp() override {
    SymbolsFixture::SetUp();
    mRoot = ModuleDeclaration::New();
    mRoot->SetName(string("Root"));
    mRoot->AddMethod(Method("Foo"));
    mRoot->AddMethod(Method("SetOnly", ParameterDeclaration::kDesignatorAssigns));
    mClass = ClassDeclaration::New();
    mClass->SetName(string("Bar"));
    mRoot->AddClass(mClass);
    ModuleDeclaration* sub = ModuleDeclaration::New();
    sub->SetName(string("Mod"));
    sub->SetParent(mRoot);
    mRoot->AddModule(sub);
    mRoot->AddConstant(Constant("Pi"));
    mRoot->AddConstant(Constant("Both"));
    ClassDeclaration* both = ClassDeclaration::New();
    both->SetName(string("Both"));
    mRoot->AddClass(both);

    mClass->AddEvent(Method("Clicked"));
    mClass->AddEvent(Method("Twice"));
    mClass->AddMethod(Method("Draw"));
    mClass->AddMethod(Method("Twice"));

    mFunction = Method("Run");
    mFunction->AddConstant(Constant("kMax"));
    mFunction->AddConstant(Constant("Same"));
    mFunction->AddMethod(Method("Inner"));
    mFunction->AddMethod(Method("Same"));
    mClass->AddMethod(mFunction);

    mContext->rootModule = mRoot;
  }
  void TearDown() override {
    mRoot->Unlink();
    delete mRoot;
    SymbolsFixture::TearDown();
  }

  static FunctionDeclaration* Method(char const* base, int lastDesignator = 0) {
    FunctionDeclaration* f = FunctionDeclaration::New();
    f->SetBaseName(string(base));
    f->SetName(string(base) + "%%");
    if (lastDesignator) {
      ParameterDeclaration* p = ParameterDeclaration::New();
      p->SetType(IRDataType(kTypeInteger));
      p->designator = lastDesignator;
      f->AddParameter(p);
    }
    return f;
  }
  static ConstantDeclaration* Constant(char const* name) {
    ConstantDeclaration* c = ConstantDeclaration::New();
    c->SetName(string(name));
    c->SetType(IRDataType(kTypeInteger));
    return c;
  }

  void EnterClass() {
    mContext->inClass = true;
    mContext->currentClass = mClass;
  }
  void EnterMethod() {
    EnterClass();
    NewSymTable(ObjectStorage, string("Bar"));
    mContext->currentFunction = mFunction;
    NewSymTable(LocalStorage, string("Bar.Run"));
  }

  // The codes that verifying each name reports, one run per name.
  Codes Verify(char const* name) {
    mErrors.errors.clear();
    VerifyUniqueName(Ident(name));
    return ErrorCodes();
  }

  ModuleDeclaration* mRoot = nullptr;
  ClassDeclaration* mClass = nullptr;
  FunctionDeclaration* mFunction = nullptr;
};

TEST_F(NameClashes, AtModuleLevel) {
  const struct {
    char const* name;
    Codes expected;
  } kCases[] = {
      {"Foo", {NameClashesWithModuleMethod}},  {"foo", {NameClashesWithModuleMethod}},
      {"Bar", {NameClashesWithClass}},         {"Mod", {NameClashesWithModule}},
      {"Pi", {NameClashesWithConstant}},       {"Both", {NameClashesWithClass}},
      {"SetOnly", {NameClashesWithModuleMethod}},
      // Members of a class or method are not in the module's way.
      {"Draw", {}},                            {"kMax", {}},
      {"fresh", {}},
  };
  for (auto const& c : kCases) EXPECT_EQ(Verify(c.name), c.expected) << c.name;
}

TEST_F(NameClashes, DuplicateComesFirstAndOnlyOneErrorIsReported) {
  AddSymbol(Ident("Foo"));
  EXPECT_EQ(Verify("FOO"), Codes{DuplicateName});
  EnterMethod();
  AddSymbol(Ident("kMax"));
  EXPECT_EQ(Verify("kmax"), Codes{DuplicateName});
  SourceLocation expected(7);
  EXPECT_EQ(mErrors.errors[0].Location().startLine, expected.startLine);
}

TEST_F(NameClashes, InsideAMethodOnlyItsOwnDeclarationsCount) {
  EnterMethod();
  const struct {
    char const* name;
    Codes expected;
  } kCases[] = {
      {"Inner", {NameClashesWithLocalMethod}}, {"kMax", {NameClashesWithConstant}},
      {"Same", {NameClashesWithLocalMethod}},
      // The class's and module's names may be hidden by a local.
      {"Draw", {}}, {"Clicked", {}}, {"Foo", {}}, {"Bar", {}}, {"Pi", {}},
  };
  for (auto const& c : kCases) EXPECT_EQ(Verify(c.name), c.expected) << c.name;
}

TEST_F(NameClashes, HidingAnOuterVariableIsNoClash) {
  AddSymbol(Ident("x"));
  NewSymTable(LocalStorage, string("f"));
  EXPECT_EQ(Verify("x"), Codes{});
}

TEST_F(NameClashes, FieldsMeetTheClassButNotTheModule) {
  EnterClass();
  NewSymTable(ObjectStorage, string("Bar"));
  const struct {
    char const* name;
    Codes expected;
  } kCases[] = {
      {"Clicked", {NameClashesWithEvent}}, {"Draw", {NameClashesWithClassMethod}},
      {"Twice", {NameClashesWithEvent}},   {"Run", {NameClashesWithClassMethod}},
      {"Foo", {}},                         {"Pi", {}},
      {"Inner", {}},
  };
  for (auto const& c : kCases) EXPECT_EQ(Verify(c.name), c.expected) << c.name;
}

TEST_F(NameClashes, StaticsOfAClassMeetTheClassThenTheModule) {
  EnterClass();
  NewSymTable(StaticStorage, string("Bar"));
  EXPECT_EQ(Verify("Draw"), Codes{NameClashesWithClassMethod});
  EXPECT_EQ(Verify("Foo"), Codes{NameClashesWithModuleMethod});
  EXPECT_EQ(Verify("Mod"), Codes{NameClashesWithModule});
}

TEST_F(NameClashes, LocalScopeOutsideAnyMethodMeetsNothingDeclared) {
  EnterClass();
  NewSymTable(LocalStorage, string("Bar.__Init"));
  EXPECT_EQ(Verify("Draw"), Codes{});
  EXPECT_EQ(Verify("Foo"), Codes{});
}

TEST_F(NameClashes, AnOpenModuleIsTheOneAsked) {
  ModuleDeclaration* sub = mRoot->LookupModule(string("Mod"));
  ASSERT_NE(sub, nullptr);
  sub->AddMethod(Method("Local"));
  mContext->inModule = true;
  mContext->currentModule = sub;
  NewSymTable(StaticStorage, string("Mod"));
  EXPECT_EQ(Verify("Local"), Codes{NameClashesWithModuleMethod});
  // The enclosing module's declarations are found through the parent.
  EXPECT_EQ(Verify("Foo"), Codes{NameClashesWithModuleMethod});
  EXPECT_EQ(Verify("Pi"), Codes{NameClashesWithConstant});
}

}  // namespace
