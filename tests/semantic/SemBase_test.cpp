#include "semantic/SemBase.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "frontend/CompileScope.h"
#include "frontend/SrcContext.h"
#include "frontend/lexer.h"
#include "semantic/InterRep.h"

namespace {

std::string Text(Ref<SemBase> const& v) { return v ? std::string(v->toString().CString()) : "<none>"; }

Ref<SemBase> Ident(char const* name, int line) {
  return SemIdentifier::New(string(name), SourceLocation(line));
}

// Symbol handles for the temporaries lists: only their identity matters here.
SymbolTableEntry* FakeEntry(int n) {
  static int sEntries[8];
  return reinterpret_cast<SymbolTableEntry*>(&sEntries[n]);
}

class SemBaseTest : public ::testing::Test {
protected:
  void SetUp() override {
    InitTacConstants();
    InitLexer("");
  }
  TacLiteralPool pool;
};

TEST_F(SemBaseTest, NewValuesStartAtTheLexersCurrentLine) {
  InitLexer("a\n\n  b\n");
  EXPECT_EQ(GetToken(), kTokenIDENT);
  EXPECT_EQ(GetToken(), kTokenNEWLINE);
  EXPECT_EQ(GetToken(), kTokenIDENT);
  Ref<SemBase> plain = SemBase::New();
  EXPECT_EQ(plain->Location(), SourceLocation(2));
  EXPECT_EQ(plain->tag, kSemBaseTag);
  SourceLocation given(7, 1, 7, 4);
  EXPECT_EQ(SemValue::New(pool.GetLiteral(1L), &given)->Location(), given);
  EXPECT_EQ(SemValue::New(pool.GetLiteral(1L), nullptr)->Location(), SourceLocation(2));
  EXPECT_EQ(SemCode::New(IRDataType(), nullptr)->Location(), SourceLocation(2));
}

TEST(SourceLocationCover, Table) {
  struct Case {
    SourceLocation a, b, expected;
  } const cases[] = {
      {{1, 4, 1, 9}, {1, 2, 1, 6}, {1, 2, 1, 9}},
      {{1, 4, 2, 3}, {3, 0, 5, 1}, {1, 4, 5, 1}},
      {{3, 0, 5, 1}, {1, 4, 2, 3}, {1, 4, 5, 1}},
      {{2, 8, 4, 2}, {2, 3, 4, 7}, {2, 3, 4, 7}},
      // Unknown is -1 and loses no comparison of its own: it takes the start.
      {SourceLocation(), {2, 3, 4, 7}, {-1, -1, 4, 7}},
      {SourceLocation(6), {6, 3, 6, 7}, {6, -1, 6, 7}},
  };
  for (auto const& c : cases) {
    SourceLocation r = c.a + c.b;
    EXPECT_EQ(r, c.expected) << r.startLine << ":" << r.startOffset << "-" << r.endLine << ":" << r.endOffset;
  }
}

TEST_F(SemBaseTest, ConcatListWithANullOperandReturnsTheOtherUnwrapped) {
  Ref<SemBase> x = Ident("x", 0);
  EXPECT_TRUE(ConcatList(Ref<SemBase>(), x) == x);
  EXPECT_TRUE(ConcatList(x, Ref<SemBase>()) == x);
  EXPECT_FALSE(x->IsList());
  EXPECT_FALSE(ConcatList(Ref<SemBase>(), Ref<SemBase>()));
}

TEST_F(SemBaseTest, ConcatListOfTwoListsSplicesIntoTheFirst) {
  Ref<SemBase> list1 = ConcatList(Ident("a", 0), Ident("b", 0));
  Ref<SemBase> otherHolder = list1;
  Ref<SemBase> list2 = ConcatList(Ident("c", 0), Ident("d", 0));
  Ref<SemBase> joined = ConcatList(list1, list2);
  EXPECT_TRUE(joined == list1);
  EXPECT_EQ(Text(otherHolder), "[a,b,c,d]");
  // No nesting: the elements themselves are chained.
  int count = 0;
  for (Ref<SemBase> e = joined->GetContents(); e; e = e->GetNext()) {
    EXPECT_FALSE(e->IsList());
    ++count;
  }
  EXPECT_EQ(count, 4);
  // Appending goes on from the true end, not from the spliced list's start.
  ConcatList(joined, Ident("e", 0));
  EXPECT_EQ(Text(list1), "[a,b,c,d,e]");
}

TEST_F(SemBaseTest, ConcatListWithAnEmptyListOnTheRightChangesNothing) {
  Ref<SemBase> a = Ident("a", 0);
  EXPECT_TRUE(ConcatList(a, SemList::New(Ref<SemBase>())) == a);
  EXPECT_FALSE(a->IsList());
}

TEST_F(SemBaseTest, ListLocationCoversAppendedElementsButNotTheFirst) {
  InitLexer("");  // current line 0
  Ref<SemBase> list = SemList::New(Ident("first", 5));
  EXPECT_EQ(list->Location(), SourceLocation(0));
  list->Append(SemIdentifier::New(string("second"), SourceLocation(3, 2, 3, 8)));
  EXPECT_EQ(list->Location(), SourceLocation(0, -1, 3, 8));
}

TEST_F(SemBaseTest, ListCloneIsDeepAndKeepsTheLocation) {
  Ref<SemBase> list = ConcatList(ConcatList(Ident("a", 1), Ident("b", 2)), Ident("c", 3));
  list->Location() = SourceLocation(9, 1, 9, 2);
  Ref<SemBase> copy = list->Clone();
  EXPECT_EQ(Text(copy), "[a,b,c]");
  EXPECT_EQ(copy->Location(), SourceLocation(9, 1, 9, 2));
  for (Ref<SemBase> e = list->GetContents(), f = copy->GetContents(); e || f; e = e->GetNext(), f = f->GetNext()) {
    ASSERT_TRUE(e && f);
    EXPECT_FALSE(e == f);
    EXPECT_EQ(e->Location(), f->Location());
  }
}

TEST_F(SemBaseTest, ListSetTypeReachesEveryElement) {
  Ref<SemBase> list = ConcatList(Ident("a", 0), Ident("b", 0));
  list->SetType(IRDataType(kTypeString));
  for (Ref<SemBase> e = list->GetContents(); e; e = e->GetNext())
    EXPECT_EQ(e->GetType().GetMainType(), kTypeString);
}

TEST_F(SemBaseTest, IdentifierCloneDropsTheType) {
  Ref<SemBase> id = SemIdentifier::New(string("Count"), SourceLocation(4, 2, 4, 7));
  id->SetType(IRDataType(kTypeDouble));
  EXPECT_EQ(id->GetType().GetMainType(), kTypeDouble);
  Ref<SemBase> copy = id->Clone();
  EXPECT_TRUE(copy->GetType().Null());
  EXPECT_EQ(Text(copy), "Count");
  EXPECT_EQ(copy->Location(), id->Location());
  EXPECT_TRUE(copy->IsIdentifier());
}

TEST_F(SemBaseTest, ValueForwardsItsOperand) {
  Ref<SemBase> literal = SemValue::New(pool.GetLiteral(42L), nullptr);
  EXPECT_TRUE(literal->IsConstant());
  EXPECT_FALSE(literal->IsSymbol());
  EXPECT_EQ(Text(literal), "42");
  EXPECT_EQ(literal->GetValue().sint32, 42);
  EXPECT_EQ(Text(SemValue::New(pool.GetLiteral(string("hi")), nullptr)), "\"hi\"");

  SymbolAddr x(LocalStorage, IRDataType(kTypeSingle), string("x"), 4);
  Ref<SemBase> symbol = SemValue::New(&x, nullptr);
  EXPECT_TRUE(symbol->IsSymbol());
  EXPECT_FALSE(symbol->IsConstant());
  EXPECT_EQ(symbol->GetAddr(), &x);
  // "Symbol" and the operand's identity as a decimal number.
  std::string text = Text(symbol);
  ASSERT_EQ(text.compare(0, 6, "Symbol"), 0);
  EXPECT_EQ(std::strtoul(text.c_str() + 6, nullptr, 10), (unsigned long)(uintptr_t)&x);
  // A value's type is its operand's, whatever is asked.
  symbol->SetType(IRDataType(kTypeString));
  EXPECT_EQ(symbol->GetType().GetMainType(), kTypeSingle);
}

TEST_F(SemBaseTest, CodeAroundAConstantIsNoConstant) {
  Ref<SemBase> literal = SemValue::New(pool.GetLiteral(7L), nullptr);
  Ref<SemBase> code = SemCode::NewValueWrapper(literal, nullptr);
  EXPECT_FALSE(code->IsConstant());
  EXPECT_FALSE(code->IsSymbol());
  EXPECT_EQ(code->GetValue().sint32, 0);
  EXPECT_EQ(code->GetType().GetMainType(), kTypeInteger);
  EXPECT_EQ(code->GetAddr(), pool.GetLiteral(7L));
  EXPECT_TRUE(code->Code()->IsEmpty());
  EXPECT_EQ(code->Temporaries()->size(), 0u);
  EXPECT_EQ(Text(code), "<code>");
}

TEST_F(SemBaseTest, CodeOfTheNullTypeHasNoResult) {
  Ref<SemBase> code = SemCode::New(IRDataType(), nullptr);
  EXPECT_EQ(code->GetAddr(), nilTacAddr);
  EXPECT_TRUE(code->GetType().Null());
  EXPECT_EQ(code->Temporaries()->size(), 0u);
}

TEST_F(SemBaseTest, AddLineTakesTheCodesStartLine) {
  SourceLocation loc(12, 0, 14, 3);
  Ref<SemBase> code = SemCode::New(IRDataType(), &loc);
  code->AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr);
  ASSERT_FALSE(code->Code()->IsEmpty());
  EXPECT_EQ(code->Code()->first->line, 12);
  EXPECT_EQ(code->Code()->first->a, nilTacAddr);
}

int LineCount(Ref<SemBase> const& code) {
  int n = 0;
  TacBlockIterator it(code->Code());
  while (it.Next()) ++n;
  return n;
}

TEST_F(SemBaseTest, ConcatSemBaseWithCodeOnTheLeftKeepsItsResult) {
  Ref<SemBase> result = SemValue::New(pool.GetLiteral(1L), nullptr);
  Ref<SemBase> left = SemCode::NewValueWrapper(result, nullptr);
  left->AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr);
  Ref<SemBase> right = SemCode::NewValueWrapper(SemValue::New(pool.GetLiteral(2L), nullptr), nullptr);
  right->AddLine(tac_Debugout, nilTacAddr, nilTacAddr, nilTacAddr);
  right->AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr);

  Ref<SemBase> joined = ConcatSemBase(left, right);
  EXPECT_TRUE(joined == left);
  EXPECT_TRUE(static_cast<SemCode*>(left.Get())->result == result);
  TacLine* line = left->Code()->first;
  ASSERT_EQ(LineCount(left), 3);
  EXPECT_EQ(line->opcode, tac_Noop);
  EXPECT_EQ(line->next->opcode, tac_Debugout);
  EXPECT_EQ(line->next->next->opcode, tac_Stop);
  EXPECT_TRUE(right->Code()->IsEmpty());
}

TEST_F(SemBaseTest, ConcatSemBaseWithAValueOnTheLeftMakesAList) {
  Ref<SemBase> a = Ident("a", 0);
  Ref<SemBase> joined = ConcatSemBase(a, Ident("b", 0));
  EXPECT_TRUE(joined->IsList());
  EXPECT_EQ(Text(joined), "[a,b]");
}

TEST_F(SemBaseTest, ConcatCodeAppendsOrPassesThrough) {
  Ref<SemBase> b = SemCode::New(IRDataType(), nullptr);
  EXPECT_TRUE(ConcatCode(Ref<SemBase>(), b) == b);
  Ref<SemBase> a = SemCode::New(IRDataType(), nullptr);
  EXPECT_TRUE(ConcatCode(a, Ref<SemBase>()) == a);
  b->AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr);
  EXPECT_TRUE(ConcatCode(a, b) == a);
  EXPECT_EQ(LineCount(a), 1);
}

TEST_F(SemBaseTest, ClonesShareTheResultAndOwnTheirLines) {
  Ref<SemBase> result = SemValue::New(pool.GetLiteral(5L), nullptr);
  Ref<SemBase> source = SemCode::NewValueWrapper(result, nullptr);
  source->AddLine(tac_Store, pool.GetLiteral(5L), nilTacAddr, nilTacAddr);
  source->AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr);
  source->Temporaries()->push_back(SymbolID(FakeEntry(0)));

  Ref<SemBase> clone1 = source->Clone();
  Ref<SemBase> clone2 = source->Clone();
  auto* c1 = static_cast<SemCode*>(clone1.Get());
  auto* c2 = static_cast<SemCode*>(clone2.Get());
  EXPECT_TRUE(c1->result == result);
  EXPECT_TRUE(c2->result == result);
  EXPECT_NE(c1->code.first, c2->code.first);
  EXPECT_NE(c1->code.first, source->Code()->first);
  // Same operands on the new lines.
  EXPECT_EQ(c1->code.first->a, source->Code()->first->a);
  ASSERT_EQ(c1->temporaries.size(), 1u);
  EXPECT_TRUE(c1->temporaries[0] == SymbolID(FakeEntry(0)));

  Ref<SemBase> elsewhere = SemCode::New(IRDataType(), nullptr);
  elsewhere->Append(clone1);
  EXPECT_EQ(LineCount(elsewhere), 2);
  EXPECT_EQ(LineCount(source), 2);
  EXPECT_EQ(LineCount(clone2), 2);
  elsewhere->Append(source);
  EXPECT_EQ(LineCount(elsewhere), 4);
  EXPECT_TRUE(source->Code()->IsEmpty());
}

TEST_F(SemBaseTest, AppendGathersTemporariesAndLeavesTheOthersList) {
  Ref<SemBase> a = SemCode::New(IRDataType(), nullptr);
  Ref<SemBase> b = SemCode::New(IRDataType(), nullptr);
  a->Temporaries()->push_back(SymbolID(FakeEntry(0)));
  b->Temporaries()->push_back(SymbolID(FakeEntry(1)));
  b->Temporaries()->push_back(SymbolID(FakeEntry(2)));
  a->Append(b);
  SimpleVector<SymbolID>& temps = *a->Temporaries();
  ASSERT_EQ(temps.size(), 3u);
  EXPECT_TRUE(temps[0] == SymbolID(FakeEntry(0)));
  EXPECT_TRUE(temps[1] == SymbolID(FakeEntry(1)));
  EXPECT_TRUE(temps[2] == SymbolID(FakeEntry(2)));
  EXPECT_EQ(b->Temporaries()->size(), 2u);
  // Appending code to itself must neither lose nor double anything.
  a->Append(a);
  EXPECT_EQ(a->Temporaries()->size(), 3u);
}

TEST_F(SemBaseTest, AppendWidensTheLocation) {
  SourceLocation la(3, 0, 3, 5), lb(6, 2, 8, 1);
  Ref<SemBase> a = SemCode::New(IRDataType(), &la);
  a->Append(SemCode::New(IRDataType(), &lb));
  EXPECT_EQ(a->Location(), SourceLocation(3, 0, 8, 1));
}

TEST_F(SemBaseTest, WrongKindCallsYieldTheDefaults) {
  Ref<SemBase> plain = SemBase::New();
  Ref<SemBase> id = Ident("a", 0);
  for (Ref<SemBase> const& v : {plain, id}) {
    EXPECT_EQ(v->Code(), nullptr);
    EXPECT_EQ(v->Temporaries(), nullptr);
    EXPECT_FALSE(v->NewTemp(IRDataType(kTypeInteger), nullptr));
    EXPECT_EQ(v->GetAddr(), nilTacAddr);
    EXPECT_FALSE(v->GetContents());
    EXPECT_FALSE(v->IsList());
    v->AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr);
    v->Append(Ident("b", 0));
    EXPECT_FALSE(v->GetNext());
  }
  EXPECT_FALSE(plain->Clone());
  EXPECT_EQ(Text(plain), "<null>");
  EXPECT_TRUE(plain->GetType().Null());
  plain->SetType(IRDataType(kTypeInteger));
  EXPECT_TRUE(plain->GetType().Null());
}

TEST(TemporaryNames, EightUpperCaseHexDigits) {
  EXPECT_STREQ(TemporaryName(0).CString(), "00000000");
  EXPECT_STREQ(TemporaryName(1).CString(), "00000001");
  EXPECT_STREQ(TemporaryName(10).CString(), "0000000A");
  EXPECT_STREQ(TemporaryName(0xABCDEF12u).CString(), "ABCDEF12");
  EXPECT_STREQ(TemporaryName(0xFFFFFFFFu).CString(), "FFFFFFFF");
}

// Temporaries live in the symbol tables of a compilation.
class TemporaryTest : public ::testing::Test {
protected:
  void SetUp() override { ResetSymbolTables(); }

  static unsigned long Number(string const& name) { return std::strtoul(name.CString(), nullptr, 16); }

  CompileScope mScope;
};

TEST_F(TemporaryTest, CodeOfATypeGetsAHiddenTemporaryAsItsResult) {
  SourceLocation loc(3, 1, 3, 9);
  Ref<SemBase> code = SemCode::New(IRDataType(kTypeDouble), &loc);
  SimpleVector<SymbolID>& temps = *code->Temporaries();
  ASSERT_EQ(temps.size(), 1u);
  SymbolID temp = temps[0];
  EXPECT_FALSE(temp.UserVisible());
  EXPECT_EQ(temp.GetType().GetMainType(), kTypeDouble);
  EXPECT_EQ(code->GetAddr(), temp.GetAddr());
  EXPECT_EQ(code->GetType().GetMainType(), kTypeDouble);
  Ref<SemBase> result = static_cast<SemCode*>(code.Get())->result;
  ASSERT_TRUE(result);
  EXPECT_TRUE(result->IsSymbol());
  EXPECT_EQ(result->Location(), loc);
  EXPECT_TRUE(CurrentSymbolTable()->Contains(temp));
  // The name is the counter's spelling: eight hexadecimal digits.
  EXPECT_EQ(temp.Name().Length(), 8);
  EXPECT_EQ(std::string(TemporaryName((uint32_t)Number(temp.Name())).CString()), temp.Name().CString());
}

TEST_F(TemporaryTest, NewTempAddsToTheListAndLeavesTheResult) {
  Ref<SemBase> code = SemCode::New(IRDataType(kTypeInteger), nullptr);
  Ref<SemBase> result = static_cast<SemCode*>(code.Get())->result;
  Ref<SemBase> extra = code->NewTemp(IRDataType(kTypeString), nullptr);
  EXPECT_TRUE(static_cast<SemCode*>(code.Get())->result == result);
  ASSERT_EQ(code->Temporaries()->size(), 2u);
  EXPECT_EQ((*code->Temporaries())[1].GetAddr(), extra->GetAddr());
  EXPECT_EQ(extra->GetType().GetMainType(), kTypeString);
  // A clone keeps the list of temporaries, not new ones.
  Ref<SemBase> copy = code->Clone();
  ASSERT_EQ(copy->Temporaries()->size(), 2u);
  EXPECT_TRUE((*copy->Temporaries())[0] == (*code->Temporaries())[0]);
}

TEST_F(TemporaryTest, EachCompilationCountsFromZeroAndGivesTheOuterCountBack) {
  EXPECT_EQ(Number(NextTemporaryName()), 0u);
  EXPECT_EQ(Number(NextTemporaryName()), 1u);
  Ref<SemBase> code = SemCode::New(IRDataType(kTypeInteger), nullptr);
  EXPECT_EQ(Number((*code->Temporaries())[0].Name()), 2u);
  {
    CompileScope inner;
    ResetSymbolTables();
    EXPECT_EQ(Number(NextTemporaryName()), 0u);
  }
  EXPECT_EQ(Number(NextTemporaryName()), 3u);
}

}  // namespace
