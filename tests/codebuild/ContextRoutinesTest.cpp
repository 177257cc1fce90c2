// What the context's routines leave behind that no script shows yet: the
// option flags of the pragmas, the locals a Dim declares, the layout of the
// program, the debugger's entry lines. Which branches conditional compilation
// takes, and the errors of declarations, are end-to-end scripts.

#include "codebuild/Declarations.h"
#include "codebuild/Directives.h"
#include "codebuild/Statements.h"
#include "backend/DebuggerSymbols.h"
#include "codebuild/Program.h"
#include "tests/grammar/ParseFixture.h"

namespace {

class Context : public CompileFixture {
protected:
  void SetUp() override {
    CompileFixture::SetUp();
    RoutineTrace::Current() = &mTrace;
    gRoutineTraceHook = &RoutineTrace::Hook;
  }
  void TearDown() override {
    gRoutineTraceHook = nullptr;
    RoutineTrace::Current() = nullptr;
    mContext->rootModule = nullptr;
    CompileFixture::TearDown();
  }

  // As a compilation does: the declarations are mined first.
  int Parse(char const* text) {
    mContext->rootModule = Mine(text);
    InitLexer(text);
    return yyparse();
  }

  // The user-visible symbols of the first local table, as "name:type@offset";
  // an array's type shows its dimensions: "Integer()2".
  std::string Locals() const {
    std::string text;
    for (unsigned long i = 0; i < mContext->tables->CountTables(); ++i) {
      SymbolTableIterator it(mContext->tables->GetTable(i));
      if (mContext->tables->GetTable(i)->storageClass != LocalStorage) continue;
      while (it.Next()) {
        SymbolID s = it.Value();
        if (!s.UserVisible()) continue;  // the temporaries of the method's own code
        IRDataType type = s.GetType();
        std::string dims = type.GetMainType() == kTypeArray ? std::to_string(type.GetDimensions()) : "";
        text += (text.empty() ? "" : " ") + Text(s.Name()) + ":" + type.ToString().CString() + dims + "@" +
                std::to_string(s.StorageOffset());
      }
      break;
    }
    return text;
  }

  RoutineTrace mTrace;
};

// The flags in the order of LanguageOptions: bounds, background, nil, stack,
// debug, wait cursor disabled.
std::string Flags(LanguageOptions const& o) {
  return {char('0' + o.boundsChecking),        char('0' + o.backgroundTasks), char('0' + o.nilObjectChecking),
          char('0' + o.stackOverflowChecking), char('0' + o.debug),           char('0' + o.autoWaitCursorDisabled)};
}

TEST_F(Context, PragmasSetTheFlags) {
  const struct {
    char const* text;
    char const* flags;  // from the defaults
  } kCases[] = {
      {"", "111100"},
      {"#pragma disableBoundsChecking\n", "011100"},
      {"#pragma disableBackgroundTasks\n", "101100"},
      {"#pragma disableAutoWaitCursor\n", "111101"},
      // Only True turns an option on: a bare word turns it off.
      {"#pragma BoundsChecking\n", "011100"},
      {"#pragma disableBoundsChecking\n#pragma BoundsChecking True\n", "111100"},
      {"#pragma BackgroundTasks False\n", "101100"},
      {"#pragma NilObjectChecking\n", "110100"},
      {"#pragma StackOverflowChecking False\n", "111000"},
      {"#pragma Debug True\n", "111110"},
      {"#pragma BOUNDSCHECKING\n#pragma debug true\n#pragma DisableBackgroundTasks\n", "001110"},
      // Nothing was pushed in the main program: Reset leaves the flags alone.
      {"#pragma disableBoundsChecking\n#pragma Reset\n", "011100"},
  };
  for (auto const& c : kCases) {
    mContext->options = LanguageOptions();
    ASSERT_EQ(Parse(c.text), 0) << c.text << Errors();
    EXPECT_EQ(Flags(mContext->options), c.flags) << c.text;
  }
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
}

// A method pushes the flags at its start and pops them at its end: Reset
// inside restores its starting flags without popping.
TEST_F(Context, ResetAndPopRestoreAMethodsStartingFlags) {
  auto pragma = [](char const* word) { CompilePragma(SemIdentifier::New(string(word)), Ref<SemBase>()); };
  pragma("disableBackgroundTasks");
  PushPragmas();
  pragma("disableBoundsChecking");
  pragma("NilObjectChecking");
  pragma("Reset");
  EXPECT_EQ(Flags(mContext->options), "101100");
  EXPECT_EQ(mContext->optionStack.size(), 1u);
  pragma("StackOverflowChecking");
  PopPragmas();
  EXPECT_EQ(Flags(mContext->options), "101100");
  PopPragmas();  // unpaired: nothing to restore
  EXPECT_EQ(Flags(mContext->options), "101100");
}

TEST_F(Context, LocalsEnterTheMethodsTableWithTheirTypes) {
  const struct {
    char const* dims;
    char const* symbols;
  } kCases[] = {
      {"Dim a As Integer, b As Double\n", "a:Integer@0 b:Double@4"},
      {"Dim a, b As String\n", "a:String@0 b:String@4"},
      // The array's making leaves a temporary behind `a`.
      {"Dim a(3), b As Integer\n", "a:Integer()1@0 b:Integer@8"},
      {"Dim a(2, 2) As Color\n", "a:Color()2@0"},
      {"Dim a() As Integer\n", "a:Integer()1@0"},
      {"Dim d As Double\nDim i As Integer\n", "d:Double@0 i:Integer@8"},
  };
  for (auto const& c : kCases) {
    ResetSymbolTables();
    std::string text = std::string("Sub f()\n") + c.dims + "End Sub\n";
    ASSERT_EQ(Parse(text.c_str()), 0) << c.dims << Errors();
    EXPECT_EQ(Locals(), c.symbols) << c.dims;
  }
  // Each array is allocated by its declaration, without a word.
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
}

// `Dim a, b As Integer = f()` calls f once: the call's lines move into the
// clause's code, and both variables are given its plain result.
TEST_F(Context, InitialiserIsEvaluatedOncePerClause) {
  // What each variable was given, read while the value is alive.
  struct Given {
    SemBase* value;
    TacAddr const* addr;
    bool hasCode;
  };
  static std::vector<Given> sGiven;
  sGiven.clear();
  gRoutineTraceHook = [](RoutineCall const& call) {
    SemBase* value = call.operands[2];
    if (std::string(call.routine) == "DeclareOneVar" && value)
      sGiven.push_back({value, value->GetAddr(), value->Code() != nullptr});
  };
  Ref<SemBase> call = SemCode::New(IRDataType(kTypeInteger), nullptr);
  call->AddLine(tac_Call, nilTacAddr, nilTacAddr, call->GetAddr());
  Ref<SemBase> names = ConcatList(SemIdentifier::New(string("a")), SemIdentifier::New(string("b")));
  Ref<SemBase> code = CompileDeclaration(names, BasicType(kTokenInteger), call);

  ASSERT_TRUE(code && code->Code() && code->Code()->first);
  EXPECT_EQ(code->Code()->first->next, nullptr) << "one call line";
  ASSERT_EQ(sGiven.size(), 2u);
  EXPECT_EQ(sGiven[0].value, sGiven[1].value);
  EXPECT_FALSE(sGiven[0].hasCode);
  EXPECT_EQ(sGiven[0].addr, call->GetAddr());
}

// -- The program ---------------------------------------------------------------

// One line as "Opcode a b c": an integer literal by its value, a string
// literal quoted, `end` as "END", any other symbol as "$", no operand as "-".
std::string Listing(Ref<SemBase> code, TacAddr const* end = nullptr) {
  std::string out;
  auto operand = [&](TacAddr const* a) -> std::string {
    if (a == nilTacAddr) return "-";
    if (a == end) return "END";
    if (!a->IsConstant()) return "$";
    if (a->type.GetMainType() == kTypeString) return "\"" + Text(a->GetValue().text) + "\"";
    return std::to_string(a->GetValue().sint32);
  };
  for (TacLine* l = code->Code()->first; l; l = l->next) {
    std::string op = l->toString().CString();
    op.erase(0, op.find_first_not_of(' '));
    op.erase(op.find_last_not_of(' ') + 1);
    out += (out.empty() ? "" : "; ") + op + " " + operand(l->a) + " " + operand(l->b) + " " + operand(l->c);
  }
  return out;
}

Ref<SemBase> CodeOf(std::initializer_list<TacLine> lines) {
  Ref<SemBase> code = SemCode::New(IRDataType(), nullptr);
  for (TacLine const& l : lines) code->Code()->AddLine(l);
  return code;
}

// Start, the global declarations, the main program with its exits and
// returns sent to its end, the exit, and then the methods.
TEST_F(Context, ProgramLaysOutMainThenMethods) {
  TacAddr const* name = mContext->GetLiteral(string("f%%"));
  Ref<SemBase> method = CodeOf({TacLine(tac_Label, name, nilTacAddr, nilTacAddr, 0),
                                TacLine(tac_Return, nilTacAddr, nilTacAddr, nilTacAddr, 0)});
  Ref<SemBase> globalDim = CodeOf({TacLine(tac_Store, gTacOne, nilTacAddr, nilTacAddr, 0)});
  Ref<SemBase> statements =
      CodeOf({TacLine(tac_Jump, nilTacAddr, nilTacAddr, mContext->GetLiteral(kUnresolvedExitTarget), 0),
              TacLine(tac_Jump, nilTacAddr, nilTacAddr, mContext->GetLiteral(kFunctionReturnTarget), 0)});

  Ref<SemBase> program = CompileProgram(ConcatList(SemList::New(method), globalDim), statements);
  ASSERT_EQ(mContext->program.Get(), program.Get());
  TacLine* end = program->Code()->first;
  while (end && !(end->opcode == tac_Label && end->a->type.GetMainType() == kTypeInteger)) end = end->next;
  ASSERT_NE(end, nullptr);
  EXPECT_EQ(Listing(program, end->a),
            "Intrn 1 - -; Store 1 - -; Jump - - END; Jump - - END; Label END - -; "
            // The catch-all, in front of the global finalisation.
            "Store 0 - $; Catch $ - -; IfEQi $ 0 2; PutP $ - -; Call \"RuntimeUnhandledException\" - -; "
            "Unlck $ - -; Label 2 - -; Unlck $ - -; Intrn 2 - $; Rval $ - -; "
            "Stop - - -; Label \"f%%\" - -; Retrn - - -");
  EXPECT_EQ(end->next->c, end->next->next->a) << "the exit status is one temporary";
  ResetSymbolTables();  // the first program's globals would be released too
  EXPECT_EQ(Listing(CompileProgram(Ref<SemBase>(), Ref<SemBase>())), "Intrn 1 - -; Intrn 2 - $; Rval $ - -; Stop - - -");
}

// With the Debug flag and symbols to fill, a statement is preceded by the
// debugger's entry, on the statement's line.
TEST_F(Context, DebugEntryOnlyWithSymbolsAndTheDebugFlag) {
  Ref<SemBase> statement = CodeOf({TacLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 5)});
  statement->Location() = SourceLocation(5);
  mContext->options.debug = 1;
  EXPECT_EQ(CompileDebugEntry(statement).Get(), statement.Get()) << "no symbols to fill";
  mContext->debugSymbols.BindNewObject(new DebuggerSymbols);
  mContext->options.debug = 0;
  EXPECT_EQ(CompileDebugEntry(statement).Get(), statement.Get());
  mContext->options.debug = 1;
  Ref<SemBase> entered = CompileDebugEntry(statement);
  EXPECT_EQ(Listing(entered), "PutP 5 - -; Intrn 43 - -; No Op - - -");
  for (TacLine* l = entered->Code()->first; l; l = l->next) EXPECT_EQ(l->line, 5);
}

// A statement's temporaries are released by the statement itself.
TEST_F(Context, TemporariesAreReleasedByTheirStatement) {
  Ref<SemBase> value = SemCode::New(IRDataType(kTypeString), nullptr);
  value->AddLine(tac_Noop, nilTacAddr, nilTacAddr, value->GetAddr());
  Ref<SemBase> filtered = FilterTemporaryVariables(value);
  ASSERT_NE(filtered.Get(), value.Get());
  EXPECT_EQ(filtered->GetAddr(), value->GetAddr());
  EXPECT_EQ(filtered->Temporaries()->size(), 0u);
  EXPECT_EQ(Listing(filtered).substr(0, 11), "No Op - - $");
}

TEST_F(Context, NamedLabelsAndSymbolAddressesAreMadeOncePerName) {
  TacAddr* top = mContext->NamedLabel(string("Top"));
  EXPECT_EQ(mContext->NamedLabel(string("TOP")), top);
  EXPECT_NE(mContext->NamedLabel(string("bottom")), top);
  EXPECT_EQ(mContext->NewLabel(), top->GetValue().sint32 + 2) << "anonymous labels don't collide";

  TacAddr* field = mContext->GetObjectSymbolAddr(IRDataType(kTypeString), string("C.name"), 8);
  EXPECT_EQ(mContext->GetObjectSymbolAddr(IRDataType(kTypeDouble), string("c.NAME"), 12), field);
  EXPECT_EQ(field->StorageOffset(), 8) << "the first request stands";
  TacAddr* global = mContext->GetStaticSymbolAddr(IRDataType(kTypeClassRef), string("C.name"));
  EXPECT_NE(global, field) << "statics and fields are kept apart";
  EXPECT_EQ(global->GetStorageClass(), StaticStorage);
  EXPECT_EQ(mContext->GetStaticSymbolAddr(IRDataType(kTypeInteger), string("C.Name")), global);
}

}  // namespace
