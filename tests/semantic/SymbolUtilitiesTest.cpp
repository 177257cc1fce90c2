// The helpers the declaration routines share: flattening an expression into
// code, declaring and finding names, and which clash a new name meets in
// scopes no script reaches yet (a method's own declarations, a class's
// members). The clashes of global names are an end-to-end script.
#include "semantic/SymbolUtilities.h"

#include "tests/frontend/CompileFixture.h"

namespace {

using Codes = std::vector<int>;

class SymbolUtilities : public CompileFixture {};

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
  EXPECT_EQ(value->Code(), nullptr);
  EXPECT_EQ(value->GetAddr(), x.GetAddr());
  EXPECT_EQ(value->Location(), where);
  std::vector<TacOpcode> ops;
  for (TacLine* l = code->Code()->first; l; l = l->next) ops.push_back(l->opcode);
  EXPECT_EQ(ops, (std::vector<TacOpcode>{tac_Noop, tac_AddI, tac_NegI}));
  ASSERT_EQ(code->Temporaries()->size(), 1u);
  EXPECT_TRUE((*code->Temporaries())[0] == t);
  // A value without code is left as it is.
  Ref<SemBase> constant = SemValue::New(gTacOne, nullptr);
  EXPECT_TRUE(FlattenExpression(constant, code) == constant);
}

// A declared name enters only a local scope's table; a duplicate is
// reported and stored anyway, so that its uses raise no second error.
TEST_F(SymbolUtilities, DeclaredNamesAndTheirLookups) {
  AddDeclaredName(Ident("global"));
  EXPECT_EQ(CurrentSymbolTable()->symbols.size(), 0u);
  NewSymTable(ObjectStorage, string("Bar"));
  AddSymbol(Ident("field"));
  NewSymTable(LocalStorage, string("Bar.M"));
  AddDeclaredName(Ident("n", IRDataType(kTypeDouble)));
  AddDeclaredName(Ident("N"));
  EXPECT_EQ(ErrorCodes(), Codes{DuplicateName});
  EXPECT_EQ(mDelegate.errors[0].line, 7);
  EXPECT_EQ(CurrentSymbolTable()->symbols.size(), 2u);
  NewSymTable(LocalStorage, string(""));

  // Found from an inner scope, but only if it is a local.
  Ref<SemBase> n = FindLocalSymbol(Ident("n"));
  ASSERT_TRUE(n);
  EXPECT_TRUE(n->GetType() == IRDataType(kTypeDouble));
  EXPECT_FALSE(FindLocalSymbol(Ident("field")));
  EXPECT_FALSE(FindLocalSymbol(Ident("missing")));
  ProhibitSymbolInitialization(Ident("N"));
  SymbolID found;
  ASSERT_TRUE(CurrentSymbolTable()->Lookup(string("n"), nullptr, &found));
  EXPECT_FALSE(found.InitializationAllowed());
}

// Inside a method only its own declarations clash; a field meets the
// class's events and methods but not the module; a class's static meets
// the class and then the module; an open module is the one asked.
TEST_F(SymbolUtilities, ClashesDependOnTheScope) {
  ModuleDeclaration* root = Mine(
      "Sub Foo()\nEnd Sub\nConst Pi = 1\n"
      "Class Bar\n  New Event Clicked()\n  Sub Draw()\n  End Sub\n  Sub Run()\n  End Sub\nEnd Class\n"
      "Module Geo\n  Sub Local()\n  End Sub\nEnd Module\n");
  ASSERT_FALSE(mFailed);
  mContext->rootModule = root;
  ClassDeclaration* bar = Class(root, "Bar");
  FunctionDeclaration* run = Method(bar, "Bar.Run%%o<Bar>");
  ASSERT_TRUE(bar && run);
  ConstantDeclaration* kMax = ConstantDeclaration::New();
  kMax->SetName(string("kMax"));
  run->AddConstant(kMax);
  FunctionDeclaration* inner = FunctionDeclaration::New();
  inner->SetBaseName(string("Inner"));
  run->AddMethod(inner);
  auto verify = [&](char const* name) {
    mDelegate.errors.clear();
    VerifyUniqueName(Ident(name));
    return ErrorCodes();
  };

  mContext->inClass = true;
  mContext->currentClass = bar;
  NewSymTable(ObjectStorage, string("Bar"));
  EXPECT_EQ(verify("clicked"), Codes{NameClashesWithEvent});
  EXPECT_EQ(verify("Draw"), Codes{NameClashesWithClassMethod});
  EXPECT_EQ(verify("Foo"), Codes{});
  NewSymTable(StaticStorage, string("Bar"));
  EXPECT_EQ(verify("Draw"), Codes{NameClashesWithClassMethod});
  EXPECT_EQ(verify("Pi"), Codes{NameClashesWithConstant});

  mContext->currentFunction = run;
  NewSymTable(LocalStorage, string("Bar.Run"));
  EXPECT_EQ(verify("Inner"), Codes{NameClashesWithLocalMethod});
  EXPECT_EQ(verify("KMAX"), Codes{NameClashesWithConstant});
  EXPECT_EQ(verify("Draw"), Codes{}) << "a local may hide the class's names";
  AddSymbol(Ident("kMax"));
  EXPECT_EQ(verify("kmax"), Codes{DuplicateName}) << "a duplicate comes first";
  mContext->currentFunction = nullptr;
  mContext->inClass = false;

  mContext->inModule = true;
  mContext->currentModule = root->LookupModule(string("Geo"));
  NewSymTable(StaticStorage, string("Geo"));
  EXPECT_EQ(verify("Local"), Codes{NameClashesWithModuleMethod});
  mContext->inModule = false;
}

}  // namespace
