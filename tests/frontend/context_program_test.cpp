// The context's own services (labels, the addresses of statics and object
// fields), the type nonterminals, the statement wrappers, modules, the
// layout of the whole program, and what a compilation leaves behind.

#include "backend/DebuggerSymbols.h"
#include "foundation/utility.h"
#include "tests/frontend/context_Fixture.h"

namespace {

// One line as "Opcode a b c": an integer literal by its value, a string
// literal quoted, a symbol as "$", the absent operand as "-".
std::string Operand(TacAddr const* a, TacAddr const* label) {
  if (a == nilTacAddr) return "-";
  if (a == label) return "END";
  if (!a->IsConstant()) return "$";
  if (a->type.GetMainType() == kTypeString) return "\"" + std::string(a->GetValue().text.CString()) + "\"";
  return std::to_string(a->GetValue().sint32);
}

std::vector<std::string> Listing(Ref<SemBase> code, TacAddr const* label = nullptr) {
  std::vector<std::string> out;
  for (TacLine* l = code->Code()->first; l; l = l->next) {
    std::string op = l->toString().CString();
    while (!op.empty() && op.back() == ' ') op.pop_back();
    while (!op.empty() && op.front() == ' ') op.erase(0, 1);
    out.push_back(op + " " + Operand(l->a, label) + " " + Operand(l->b, label) + " " + Operand(l->c, label));
  }
  return out;
}

Ref<SemBase> CodeOf(std::initializer_list<TacLine> lines) {
  Ref<SemBase> code = SemCode::New(IRDataType(), nullptr);
  for (TacLine const& l : lines) code->Code()->AddLine(l);
  return code;
}

// -- Labels and symbol addresses ---------------------------------------------

TEST_F(ContextFixture, NamedLabelsAreMadeOnceAndMatchIgnoringCase) {
  int32_t before = mContext->nextLabel;
  TacAddr* top = mContext->NamedLabel(string("Top"));
  TacAddr* bottom = mContext->NamedLabel(string("bottom"));
  ASSERT_TRUE(top && bottom);
  EXPECT_NE(top, bottom);
  EXPECT_EQ(mContext->NamedLabel(string("TOP")), top);
  EXPECT_EQ(mContext->NamedLabel(string("Bottom")), bottom);
  EXPECT_EQ(top->GetValue().sint32, before);
  EXPECT_EQ(bottom->GetValue().sint32, before + 1);
  EXPECT_EQ(top->type.GetMainType(), kTypeInteger);
  EXPECT_EQ(mContext->nextLabel, before + 2);
  // A later anonymous label does not collide with them.
  EXPECT_EQ(mContext->NewLabel(), before + 2);
}

TEST_F(ContextFixture, SymbolAddressesAreKeptPerLinkName) {
  unsigned long owned = mContext->owned.size();
  TacAddr* field = mContext->GetObjectSymbolAddr(IRDataType(kTypeString), string("C.name"), 8);
  EXPECT_EQ(field->GetStorageClass(), ObjectStorage);
  EXPECT_EQ(field->StorageOffset(), 8);
  EXPECT_EQ(field->type.GetMainType(), kTypeString);
  EXPECT_STREQ(field->LinkName().CString(), "C.name");
  // The first request's type and offset stand.
  EXPECT_EQ(mContext->GetObjectSymbolAddr(IRDataType(kTypeDouble), string("c.NAME"), 12), field);
  EXPECT_EQ(field->StorageOffset(), 8);

  TacAddr* global = mContext->GetStaticSymbolAddr(IRDataType(kTypeClassRef), string("C.name"));
  EXPECT_NE(global, field);  // statics and fields are kept apart
  EXPECT_EQ(global->GetStorageClass(), StaticStorage);
  EXPECT_EQ(global->StorageOffset(), 0);
  EXPECT_EQ(global->type.GetMainType(), kTypeClassRef);
  EXPECT_EQ(mContext->GetStaticSymbolAddr(IRDataType(kTypeInteger), string("C.Name")), global);
  EXPECT_NE(mContext->GetStaticSymbolAddr(IRDataType(kTypeInteger), string("C.other")), global);
  // The pool owns them, and deletes them with the context.
  EXPECT_EQ(mContext->owned.size(), owned + 3);
}

// -- Types -------------------------------------------------------------------

TEST_F(ContextFixture, BasicTypesAreSharedIdentifiers) {
  struct {
    int token;
    char const* name;
    SimpleDataType type;
  } const kTypes[] = {
      {kTokenInteger, "Integer", kTypeInteger}, {kTokenString, "String", kTypeString},
      {kTokenSingle, "Single", kTypeSingle},    {kTokenDouble, "Double", kTypeDouble},
      {kTokenBoolean, "Boolean", kTypeBoolean}, {kTokenColor, "Color", kTypeColor},
      {kTokenObject, "Object", kTypeObject},    {kTokenClass, "Class", kTypeClassRef},
  };
  for (auto const& t : kTypes) {
    Ref<SemBase> type = BasicType(t.token);
    ASSERT_TRUE(type) << t.name;
    EXPECT_TRUE(type->IsIdentifier());
    EXPECT_STREQ(type->toString().CString(), t.name);
    EXPECT_EQ(type->GetType().GetMainType(), t.type) << t.name;
    EXPECT_EQ(BasicType(t.token).Get(), type.Get()) << t.name;
  }
  EXPECT_FALSE(BasicType(kTokenDim));
}

TEST_F(ContextFixture, ArrayRankAndArrayType) {
  InitLexer("");
  EXPECT_EQ(ArrayRank(Ref<SemBase>())->GetValue().sint32, 1);
  Ref<SemBase> commas = SemList::New(SemBase::New());
  EXPECT_EQ(ArrayRank(commas)->GetValue().sint32, 2);
  commas->Append(SemBase::New());
  Ref<SemBase> rank = ArrayRank(commas);
  EXPECT_EQ(rank->GetValue().sint32, 3);

  Ref<SemBase> element = BasicType(kTokenDouble);
  Ref<SemBase> array = ArrayType(element, rank);
  EXPECT_NE(array.Get(), element.Get());
  EXPECT_STREQ(array->toString().CString(), "Double");
  EXPECT_EQ(array->GetType().GetMainType(), kTypeArray);
  EXPECT_EQ(array->GetType().GetElementType(), kTypeDouble);
  EXPECT_EQ(array->GetType().GetDimensions(), 3);
  EXPECT_EQ(element->GetType().GetMainType(), kTypeDouble);  // the shared one is untouched
  EXPECT_FALSE(ArrayType(Ref<SemBase>(), rank));
}

TEST_F(ContextFixture, ClassTypeFindsTheClassInTheCurrentModule) {
  ASSERT_EQ(Parse("Class Shape\nEnd Class\nModule Inner\nClass Dot\nEnd Class\nEnd Module\n", true), 0) << Errors();
  Ref<SemBase> shape = ClassType(SemIdentifier::New(string("shape")));
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
  EXPECT_EQ(shape->GetType().GetMainType(), kTypeObject);
  EXPECT_STREQ(shape->GetType().GetClass().CString(), "shape");

  Ref<SemBase> missing = ClassType(SemIdentifier::New(string("Missing"), SourceLocation(7)));
  EXPECT_EQ(LineOf(UnknownClass), 7) << Errors();
  EXPECT_STREQ(missing->GetType().GetClass().CString(), "Missing");  // typed all the same

  // Inside a module the search starts there.
  mContext->currentModule = mContext->rootModule->LookupModule(string("Inner"));
  mContext->inModule = true;
  mDelegate.errors.clear();
  ClassType(SemIdentifier::New(string("Dot")));
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
  mContext->currentModule = nullptr;
  ClassType(SemIdentifier::New(string("Shape")));
  EXPECT_EQ(mDelegate.errors.size(), 1u) << Errors();
  mContext->inModule = false;
}

// -- Modules -----------------------------------------------------------------

TEST_F(ContextFixture, ModulesOpenATableAndMakeTheModuleCurrent) {
  Mine("Module Outer\nModule Inner\nEnd Module\nEnd Module\n");
  InitLexer("");
  ModuleDeclaration* root = mContext->rootModule;
  ModuleDeclaration* outer = root->LookupModule(string("Outer"));
  ASSERT_NE(outer, nullptr);
  Ref<SymbolTable> global = mContext->currentTable;

  Ref<SemBase> table = CompileModule(SemIdentifier::New(string("Outer")));
  ASSERT_TRUE(table);
  Ref<SymbolTable> opened = mContext->tables->GetTable((unsigned long)table->GetValue().sint32);
  EXPECT_EQ(opened.Get(), mContext->currentTable.Get());
  EXPECT_EQ(opened->storageClass, StaticStorage);
  EXPECT_STREQ(opened->name.CString(), "Outer");
  EXPECT_EQ(mContext->CurrentModule(), outer);

  CompileModule(SemIdentifier::New(string("Inner")));
  EXPECT_EQ(mContext->CurrentModule(), outer->LookupModule(string("Inner")));
  Ref<SemBase> members = SemList::New(SemBase::New());
  EXPECT_EQ(CompileEndModule(Ref<SemBase>(), members).Get(), members.Get());
  // Modules don't nest in this respect: no outer module is current.
  EXPECT_EQ(mContext->CurrentModule(), root);
  EXPECT_EQ(mContext->currentTable.Get(), opened.Get());
  CompileEndModule(table, Ref<SemBase>());
  EXPECT_EQ(mContext->currentTable.Get(), global.Get());
}

// -- Statement wrappers ------------------------------------------------------

TEST_F(ContextFixture, DebugEntryOnlyWithSymbolsAndTheDebugFlag) {
  InitLexer("");
  Ref<SemBase> statement = CodeOf({TacLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 5)});
  statement->Location() = SourceLocation(5);
  EXPECT_EQ(CompileDebugEntry(statement).Get(), statement.Get());
  mContext->options.debug = 1;
  EXPECT_EQ(CompileDebugEntry(statement).Get(), statement.Get());  // no symbols to fill
  mContext->debugSymbols.BindNewObject(new DebuggerSymbols);
  mContext->options.debug = 0;
  EXPECT_EQ(CompileDebugEntry(statement).Get(), statement.Get());
  mContext->options.debug = 1;

  Ref<SemBase> entered = CompileDebugEntry(statement);
  std::vector<std::string> expected = {"PutP 5 - -", "Intrn 43 - -", "No Op - - -"};
  EXPECT_EQ(Listing(entered), expected);
  for (TacLine* l = entered->Code()->first; l; l = l->next) EXPECT_EQ(l->line, 5);
  EXPECT_FALSE(CompileDebugEntry(Ref<SemBase>()));
}

TEST_F(ContextFixture, TemporariesAreReleasedByTheirStatement) {
  InitLexer("");
  Ref<SemBase> plain = CodeOf({TacLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 0)});
  EXPECT_EQ(FilterTemporaryVariables(plain).Get(), plain.Get());

  Ref<SemBase> value = SemCode::New(IRDataType(kTypeString), nullptr);
  value->AddLine(tac_Noop, nilTacAddr, nilTacAddr, value->GetAddr());
  ASSERT_EQ(value->Temporaries()->size(), 1u);
  Ref<SemBase> filtered = FilterTemporaryVariables(value);
  ASSERT_NE(filtered.Get(), value.Get());
  EXPECT_EQ(filtered->GetAddr(), value->GetAddr());
  EXPECT_EQ(filtered->Temporaries()->size(), 0u);
  EXPECT_EQ(Listing(filtered).front(), "No Op - - $");
  EXPECT_FALSE(FilterTemporaryVariables(Ref<SemBase>()));
}

// -- The program ---------------------------------------------------------------

TEST_F(ContextFixture, BlockIsFunctionByItsFirstLine) {
  InitLexer("");
  TacAddr const* name = mContext->GetLiteral(string("f%%"));
  TacAddr const* number = mContext->GetLiteral(3L);
  EXPECT_FALSE(BlockIsFunction(nullptr));
  EXPECT_FALSE(BlockIsFunction(CodeOf({})->Code()));
  EXPECT_TRUE(BlockIsFunction(CodeOf({TacLine(tac_Label, name, nilTacAddr, nilTacAddr, 0)})->Code()));
  EXPECT_FALSE(BlockIsFunction(CodeOf({TacLine(tac_Label, number, nilTacAddr, nilTacAddr, 0)})->Code()));
  EXPECT_FALSE(BlockIsFunction(CodeOf({TacLine(tac_Noop, name, nilTacAddr, nilTacAddr, 0)})->Code()));
}

TEST_F(ContextFixture, ProgramLaysOutMainThenMethods) {
  InitLexer("");
  TacAddr const* exitTarget = mContext->GetLiteral(kUnresolvedExitTarget);
  TacAddr const* returnTarget = mContext->GetLiteral(kFunctionReturnTarget);
  TacAddr const* name = mContext->GetLiteral(string("f%%"));
  Ref<SemBase> method = CodeOf({TacLine(tac_Label, name, nilTacAddr, nilTacAddr, 0),
                                TacLine(tac_Return, nilTacAddr, nilTacAddr, nilTacAddr, 0)});
  Ref<SemBase> globalDim = CodeOf({TacLine(tac_Store, gTacOne, nilTacAddr, nilTacAddr, 0)});
  Ref<SemBase> declarations = ConcatList(SemList::New(method), globalDim);
  Ref<SemBase> statements = CodeOf({TacLine(tac_Jump, nilTacAddr, nilTacAddr, exitTarget, 0),
                                    TacLine(tac_Jump, nilTacAddr, nilTacAddr, returnTarget, 0),
                                    TacLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 0)});

  Ref<SemBase> program = CompileProgram(declarations, statements);
  ASSERT_EQ(mContext->program.Get(), program.Get());
  TacLine* label = nullptr;
  for (TacLine* l = program->Code()->first; l; l = l->next)
    if (l->opcode == tac_Label && l->a->type.GetMainType() == kTypeInteger) label = l;
  ASSERT_NE(label, nullptr);
  std::vector<std::string> expected = {
      "Intrn 1 - -", "Store 1 - -", "Jump - - END", "Jump - - END", "No Op - - -", "Label END - -",
      "Intrn 2 - $", "Rval $ - -",  "Stop - - -",   "Label \"f%%\" - -", "Retrn - - -",
  };
  EXPECT_EQ(Listing(program, label->a), expected);
  // The status temporary is one symbol, taken by both lines.
  TacLine* exit = label->next;
  EXPECT_EQ(exit->c, exit->next->a);
  EXPECT_EQ(program->GetType().GetMainType(), kTypeNull);
}

TEST_F(ContextFixture, ProgramOfNothingStillStartsAndStops) {
  InitLexer("");
  Ref<SemBase> program = CompileProgram(Ref<SemBase>(), Ref<SemBase>());
  std::vector<std::string> expected = {"Intrn 1 - -", "Intrn 2 - $", "Rval $ - -", "Stop - - -"};
  EXPECT_EQ(Listing(program), expected);
  // A lone declaration, not in a list, is taken as a list of one.
  Ref<SemBase> one = CompileProgram(CodeOf({TacLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 0)}),
                                    Ref<SemBase>());
  EXPECT_EQ(Listing(one)[1], "No Op - - -");
}

TEST_F(ContextFixture, ParsedProgramIsLaidOut) {
  ASSERT_EQ(Parse("x = 1\nReturn\n"), 0) << Errors();
  ASSERT_TRUE(mContext->program);
  std::vector<std::string> listing = Listing(mContext->program);
  ASSERT_FALSE(listing.empty());
  EXPECT_EQ(listing.front(), "Intrn 1 - -");
  EXPECT_EQ(listing.back(), "Stop - - -");
}

// -- What a compilation leaves behind ------------------------------------------

// Parses in a context of its own, as a compilation does, and lets it go.
void ParseAndDiscard(char const* text) {
  CompileScope scope;
  InitLexer(text);
  yyparse();
}

TEST(ContextLifetime, LaterCompilationsLeaveNoAllocationBehind) {
  char const* text =
      "#pragma disableBoundsChecking\n#pragma Debug True\n"
      "Dim g(3), h As Double\nDim s As String = \"x\"\n"
      "#if True\nx = 1\n#else\ny = 2\n#endif\n"
      "Sub f(a As Integer, b() As Color)\nDim o As Object\nDim c As Class\nDim t As Single\nDim b2 As Boolean\n"
      "Const k = 1\n#pragma Reset\ntop:\nGoTo top\nEnd Sub\n";
  ParseAndDiscard(text);
  long before = gTotalAllocLen;
  ParseAndDiscard(text);
  EXPECT_EQ(gTotalAllocLen, before);
}

}  // namespace
