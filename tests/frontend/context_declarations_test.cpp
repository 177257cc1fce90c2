// Dim and Const: which variables a clause declares, with which types, into
// which table, and that an initialiser is evaluated once per clause.

#include "tests/frontend/context_Fixture.h"

namespace {

// The calls of one routine in the trace, in order.
std::vector<std::string> CallsOf(RoutineTrace const& trace, char const* routine) {
  std::vector<std::string> out;
  std::string prefix = std::string(routine) + "(";
  for (std::string const& call : trace.calls)
    if (call.rfind(prefix, 0) == 0) out.push_back(call);
  return out;
}

// The table whose storage class is local, the first one made.
unsigned long FirstLocalTable(SrcContext* context) {
  for (unsigned long i = 0; i < context->tables->CountTables(); ++i)
    if (context->tables->GetTable(i)->storageClass == LocalStorage) return i;
  return 0;
}

struct LocalCase {
  char const* dims;     // the Dim lines inside a method
  char const* symbols;  // the method's table afterwards
};

const LocalCase kLocals[] = {
    {"Dim a As Integer\n", "a:Integer@0"},
    {"Dim a As Integer, b As Double\n", "a:Integer@0 b:Double@4"},
    {"Dim a, b As String\n", "a:String@0 b:String@4"},
    {"Dim a(3), b As Integer\n", "a:Integer()1@0 b:Integer@4"},
    {"Dim a(2, 2) As Color\n", "a:Color()2@0"},
    {"Dim a() As Integer\n", "a:Integer()1@0"},
    {"Dim d As Double\nDim i As Integer\n", "d:Double@0 i:Integer@8"},
    {"Dim s As String = \"x\"\n", "s:String@0"},
};

void PrintTo(LocalCase const& c, std::ostream* os) { *os << testing::PrintToString(c.dims); }

class ContextLocals : public ContextFixture, public ::testing::WithParamInterface<LocalCase> {};

TEST_P(ContextLocals, EnterTheMethodsTableWithTheirTypes) {
  std::string text = std::string("Sub f()\n") + GetParam().dims + "End Sub\n";
  ASSERT_EQ(Parse(text.c_str()), 0) << Errors();
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
  unsigned long local = FirstLocalTable(mContext);
  ASSERT_NE(local, 0u);
  EXPECT_EQ(Symbols(local), GetParam().symbols);
  EXPECT_EQ(Symbols(0), "");
}

INSTANTIATE_TEST_SUITE_P(Texts, ContextLocals, ::testing::ValuesIn(kLocals));

// Globals are laid out with the module's properties: a Dim of the main
// program stores nothing in the global table, but still finds its variable.
TEST_F(ContextFixture, GlobalDimLooksItsVariableUp) {
  ASSERT_EQ(Parse("Dim g As Integer\n"), 0) << Errors();
  EXPECT_EQ(Symbols(0), "");
  EXPECT_EQ(CallsOf(mTrace, "CompileLookup"), std::vector<std::string>{"CompileLookup(g, -, -; 2, 11)"});
}

TEST_F(ContextFixture, DuplicateLocalIsReportedAndStored) {
  ASSERT_EQ(Parse("Sub f()\nDim a As Integer\n\nDim A As String\nEnd Sub\n"), 0);
  EXPECT_EQ(LineOf(DuplicateName), 3) << Errors();
  EXPECT_EQ(Symbols(FirstLocalTable(mContext)), "a:Integer@0 A:String@4");
}

// The variables of a clause, in order, with their dimension counts.
TEST_F(ContextFixture, ClauseDeclaresEachNameWithItsDimensions) {
  ASSERT_EQ(Parse("Dim a(3), b, c(1, n) As Integer\n"), 0) << Errors();
  std::vector<std::string> expected = {"DeclareOneVar(a, Integer, -; 1)", "DeclareOneVar(b, Integer, -; 0)",
                                       "DeclareOneVar(c, Integer, -; 2)"};
  EXPECT_EQ(CallsOf(mTrace, "DeclareOneVar"), expected);
}

// `Dim a, b As Integer = f()` calls f once: its lines are moved into the
// clause's code, and both variables get the same plain value.
TEST_F(ContextFixture, InitialiserIsEvaluatedOncePerClause) {
  InitLexer("");
  // What each variable was given, read while the value is alive.
  struct Given {
    SemBase* value;
    TacAddr const* addr;
    bool hasCode;
  };
  static std::vector<Given> sGiven;
  sGiven.clear();
  gRoutineTraceHook = [](RoutineCall const& call) {
    if (std::string(call.routine) != "DeclareOneVar" || !call.operands[2]) return;
    SemBase* value = call.operands[2];
    sGiven.push_back({value, value->GetAddr(), value->Code() != nullptr});
  };
  Ref<SemBase> call = SemCode::New(IRDataType(kTypeInteger), nullptr);
  call->AddLine(tac_Call, nilTacAddr, nilTacAddr, call->GetAddr());
  Ref<SemBase> names = SemList::New(SemIdentifier::New(string("a")));
  names->Append(SemIdentifier::New(string("b")));
  Ref<SemBase> code = CompileDeclaration(names, BasicType(kTokenInteger), call);

  ASSERT_TRUE(code && code->Code());
  int lines = 0;
  for (TacLine* l = code->Code()->first; l; l = l->next) ++lines;
  EXPECT_EQ(lines, 1);
  EXPECT_EQ(code->GetType().GetMainType(), kTypeNull);
  ASSERT_EQ(sGiven.size(), 2u);
  EXPECT_EQ(sGiven[1].value, sGiven[0].value);
  EXPECT_FALSE(sGiven[0].hasCode);
  EXPECT_EQ(sGiven[0].addr, call->GetAddr());
}

// A constant initialiser has nothing to evaluate and is passed as it is.
TEST_F(ContextFixture, ConstantInitialiserIsPassedAsItIs) {
  ASSERT_EQ(Parse("Dim a, b As Integer = 5\n"), 0) << Errors();
  std::vector<std::string> expected = {"DeclareOneVar(a, Integer, 5; 0)", "DeclareOneVar(b, Integer, 5; 0)"};
  EXPECT_EQ(CallsOf(mTrace, "DeclareOneVar"), expected);
}

TEST_F(ContextFixture, DeclarationToleratesNullOperands) {
  InitLexer("");
  EXPECT_TRUE(CompileDeclaration(Ref<SemBase>(), Ref<SemBase>(), Ref<SemBase>()));
  Ref<SemBase> code = CompileDeclaration(SemIdentifier::New(string("x")), Ref<SemBase>(), Ref<SemBase>());
  ASSERT_TRUE(code);
  EXPECT_TRUE(code->Code()->IsEmpty());
  SimpleVector<Ref<SemBase>> none;
  EXPECT_FALSE(DeclareOneVar(Ref<SemBase>(), none, Ref<SemBase>(), Ref<SemBase>()));
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
}

// -- Const -------------------------------------------------------------------

class ContextConst : public ContextFixture {
protected:
  void SetUp() override {
    ContextFixture::SetUp();
    InitLexer("");
    mFunction = FunctionDeclaration::New();
    mFunction->Lock();
  }
  void TearDown() override {
    mContext->currentFunction = nullptr;
    mFunction->Unlock();
    ContextFixture::TearDown();
  }

  static Ref<SemBase> Name(char const* text) { return SemIdentifier::New(string(text)); }

  FunctionDeclaration* mFunction = nullptr;
};

TEST_F(ContextConst, InAMethodAddsTheConstant) {
  mContext->currentFunction = mFunction;
  EXPECT_FALSE(CompileConst(Name("limit"), SemValue::New(mContext->GetLiteral(42L), nullptr)));
  EXPECT_FALSE(CompileConst(Name("title"), SemValue::New(mContext->GetLiteral(string("t")), nullptr)));
  ConstantDeclaration* limit = mFunction->LookupConstant(string("LIMIT"));
  ASSERT_NE(limit, nullptr);
  EXPECT_EQ(limit->GetType().GetMainType(), kTypeInteger);
  EXPECT_EQ(limit->GetValue().sint32, 42);
  ConstantDeclaration* title = mFunction->LookupConstant(string("title"));
  ASSERT_NE(title, nullptr);
  EXPECT_EQ(title->GetType().GetMainType(), kTypeString);
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
}

TEST_F(ContextConst, ValueNotConstantIsReportedAndZero) {
  mContext->currentFunction = mFunction;
  CompileConst(Name("k"), SemCode::New(IRDataType(kTypeInteger), nullptr));
  ConstantDeclaration* k = mFunction->LookupConstant(string("k"));
  ASSERT_NE(k, nullptr);
  EXPECT_EQ(k->GetValue().sint32, 0);
  EXPECT_NE(LineOf(ConstNotConstant), -2) << Errors();
}

TEST_F(ContextConst, MissingValueIsAnUnknownName) {
  mContext->currentFunction = mFunction;
  CompileConst(Name("k"), Ref<SemBase>());
  EXPECT_EQ(mFunction->LookupConstant(string("k")), nullptr);
  ASSERT_EQ(mDelegate.errors.size(), 1u);
  EXPECT_EQ(mDelegate.errors[0].code, UnknownName);
}

TEST_F(ContextConst, SecondOfOneNameClashes) {
  mContext->currentFunction = mFunction;
  CompileConst(Name("k"), SemValue::New(mContext->GetLiteral(1L), nullptr));
  CompileConst(Name("K"), SemValue::New(mContext->GetLiteral(2L), nullptr));
  EXPECT_NE(LineOf(NameClashesWithConstant), -2) << Errors();
}

// Outside a method the miner has taken the constant: nothing happens here.
TEST_F(ContextConst, OutsideAMethodDoesNothing) {
  CompileConst(Name("k"), SemValue::New(mContext->GetLiteral(1L), nullptr));
  CompileConst(Name("j"), Ref<SemBase>());
  EXPECT_EQ(mFunction->LookupConstant(string("k")), nullptr);
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
  ASSERT_EQ(Parse("Const a = 1\nModule M\nConst b = 2\nEnd Module\n", true), 0) << Errors();
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
}

}  // namespace
