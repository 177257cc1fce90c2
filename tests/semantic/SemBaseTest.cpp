// The semantic values the grammar's actions pass around: lists, values,
// code with its temporaries, and where each says it comes from.
#include "semantic/SemBase.h"

#include <cstdlib>

#include "frontend/CompileScope.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "semantic/SymbolTable.h"
#include "tests/frontend/CompileFixture.h"

namespace {

std::string Text(Ref<SemBase> const& v) { return v ? std::string(v->toString().CString()) : "<none>"; }

Ref<SemBase> Id(char const* name, int line = 0) { return SemIdentifier::New(string(name), SourceLocation(line)); }

int LineCount(Ref<SemBase> const& code) {
  int n = 0;
  for (TacLine* l = code->Code()->first; l; l = l->next) ++n;
  return n;
}

// Symbol handles for the temporaries lists: only their identity matters.
SymbolID Fake(int n) {
  static int sEntries[4];
  return SymbolID(reinterpret_cast<SymbolTableEntry*>(&sEntries[n]));
}

class SemBaseTest : public CompileFixture {};

TEST_F(SemBaseTest, NewValuesStartAtTheLexersCurrentLine) {
  InitLexer("a\n\n  b\n");
  for (int i = 0; i < 3; ++i) GetToken();
  EXPECT_EQ(SemBase::New()->Location(), SourceLocation(2));
  EXPECT_EQ(SemValue::New(gTacOne, nullptr)->Location(), SourceLocation(2));
  EXPECT_EQ(SemCode::New(IRDataType(), nullptr)->Location(), SourceLocation(2));
  SourceLocation given(7, 1, 7, 4);
  EXPECT_EQ(SemValue::New(gTacOne, &given)->Location(), given);
}

TEST(SourceLocationCover, Table) {
  const struct {
    SourceLocation a, b, expected;
  } kCases[] = {
      {{1, 4, 1, 9}, {1, 2, 1, 6}, {1, 2, 1, 9}},
      {{1, 4, 2, 3}, {3, 0, 5, 1}, {1, 4, 5, 1}},
      {{3, 0, 5, 1}, {1, 4, 2, 3}, {1, 4, 5, 1}},
      {{2, 8, 4, 2}, {2, 3, 4, 7}, {2, 3, 4, 7}},
      // Unknown is -1 and loses no comparison of its own: it takes the start.
      {SourceLocation(), {2, 3, 4, 7}, {-1, -1, 4, 7}},
      {SourceLocation(6), {6, 3, 6, 7}, {6, -1, 6, 7}},
  };
  for (auto const& c : kCases) {
    SourceLocation r = c.a + c.b;
    EXPECT_EQ(r, c.expected) << r.startLine << ":" << r.startOffset << "-" << r.endLine << ":" << r.endOffset;
  }
}

TEST_F(SemBaseTest, ConcatListSplicesAndPassesNullsThrough) {
  Ref<SemBase> x = Id("x");
  EXPECT_TRUE(ConcatList(Ref<SemBase>(), x) == x);
  EXPECT_TRUE(ConcatList(x, Ref<SemBase>()) == x);
  EXPECT_TRUE(ConcatList(x, SemList::New(Ref<SemBase>())) == x);
  EXPECT_FALSE(x->IsList());
  // Two lists splice into the first, without nesting, and appending goes
  // on from the true end.
  Ref<SemBase> list1 = ConcatList(Id("a"), Id("b"));
  Ref<SemBase> joined = ConcatList(list1, ConcatList(Id("c"), Id("d")));
  EXPECT_TRUE(joined == list1);
  ConcatList(joined, Id("e"));
  EXPECT_EQ(Text(list1), "[a,b,c,d,e]");
  for (Ref<SemBase> e = joined->GetContents(); e; e = e->GetNext()) EXPECT_FALSE(e->IsList());
  // ConcatSemBase joins values into a list too.
  EXPECT_EQ(Text(ConcatSemBase(Id("a"), Id("b"))), "[a,b]");
}

TEST_F(SemBaseTest, ListLocationTypeAndClone) {
  Ref<SemBase> list = SemList::New(Id("first", 5));
  EXPECT_EQ(list->Location(), SourceLocation(0)) << "the first element's location is not taken";
  list->Append(SemIdentifier::New(string("second"), SourceLocation(3, 2, 3, 8)));
  EXPECT_EQ(list->Location(), SourceLocation(0, -1, 3, 8));
  list->SetType(IRDataType(kTypeString));
  for (Ref<SemBase> e = list->GetContents(); e; e = e->GetNext()) EXPECT_EQ(e->GetType().GetMainType(), kTypeString);
  Ref<SemBase> copy = list->Clone();
  EXPECT_EQ(Text(copy), "[first,second]");
  EXPECT_EQ(copy->Location(), list->Location());
  for (Ref<SemBase> e = list->GetContents(), f = copy->GetContents(); e || f; e = e->GetNext(), f = f->GetNext()) {
    ASSERT_TRUE(e && f);
    EXPECT_FALSE(e == f);
    EXPECT_EQ(e->Location(), f->Location());
    EXPECT_TRUE(f->GetType().Null()) << "a cloned identifier drops its type";
  }
}

TEST_F(SemBaseTest, ValueForwardsItsOperand) {
  Ref<SemBase> literal = SemValue::New(mContext->GetLiteral(42L), nullptr);
  EXPECT_TRUE(literal->IsConstant());
  EXPECT_EQ(Text(literal), "42");
  EXPECT_EQ(Text(SemValue::New(mContext->GetLiteral(string("hi")), nullptr)), "\"hi\"");
  SymbolAddr x(LocalStorage, IRDataType(kTypeSingle), string("x"), 4);
  Ref<SemBase> symbol = SemValue::New(&x, nullptr);
  EXPECT_TRUE(symbol->IsSymbol());
  EXPECT_FALSE(symbol->IsConstant());
  symbol->SetType(IRDataType(kTypeString));
  EXPECT_EQ(symbol->GetType().GetMainType(), kTypeSingle) << "a value's type is its operand's";

  // Code around a constant is no constant, though its result is.
  Ref<SemBase> code = SemCode::NewValueWrapper(literal, nullptr);
  EXPECT_FALSE(code->IsConstant());
  EXPECT_EQ(code->GetValue().sint32, 0);
  EXPECT_EQ(code->GetAddr(), mContext->GetLiteral(42L));
  EXPECT_EQ(code->Temporaries()->size(), 0u);
  EXPECT_EQ(SemCode::New(IRDataType(), nullptr)->GetAddr(), nilTacAddr);
}

TEST_F(SemBaseTest, AppendMovesLinesAndGathersTemporaries) {
  SourceLocation la(3, 0, 3, 5), lb(6, 2, 8, 1);
  Ref<SemBase> result = SemValue::New(gTacOne, nullptr);
  Ref<SemBase> a = SemCode::NewValueWrapper(result, &la);
  a->AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr);
  EXPECT_EQ(a->Code()->first->line, 3) << "a line takes the code's start line";
  a->Temporaries()->push_back(Fake(0));
  Ref<SemBase> b = SemCode::New(IRDataType(), &lb);
  b->AddLine(tac_Debugout, nilTacAddr, nilTacAddr, nilTacAddr);
  b->Temporaries()->push_back(Fake(1));

  EXPECT_TRUE(ConcatSemBase(a, b) == a);
  EXPECT_TRUE(static_cast<SemCode*>(a.Get())->result == result) << "the left keeps its result";
  EXPECT_EQ(LineCount(a), 2);
  EXPECT_EQ(a->Code()->first->next->opcode, tac_Debugout);
  EXPECT_TRUE(b->Code()->IsEmpty());
  ASSERT_EQ(a->Temporaries()->size(), 2u);
  EXPECT_TRUE((*a->Temporaries())[1] == Fake(1));
  EXPECT_EQ(b->Temporaries()->size(), 1u) << "the other's list is left";
  EXPECT_EQ(a->Location(), SourceLocation(3, 0, 8, 1));
  a->Append(a);
  EXPECT_EQ(LineCount(a), 2) << "appending code to itself loses and doubles nothing";
  EXPECT_EQ(a->Temporaries()->size(), 2u);
  EXPECT_TRUE(ConcatCode(Ref<SemBase>(), b) == b);
  EXPECT_TRUE(ConcatCode(a, Ref<SemBase>()) == a);
}

TEST_F(SemBaseTest, ClonesShareTheResultAndOwnTheirLines) {
  Ref<SemBase> result = SemValue::New(gTacOne, nullptr);
  Ref<SemBase> source = SemCode::NewValueWrapper(result, nullptr);
  source->AddLine(tac_Store, gTacOne, nilTacAddr, nilTacAddr);
  source->AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr);
  source->Temporaries()->push_back(Fake(0));
  Ref<SemBase> clone1 = source->Clone();
  Ref<SemBase> clone2 = source->Clone();
  EXPECT_TRUE(static_cast<SemCode*>(clone1.Get())->result == result);
  EXPECT_NE(clone1->Code()->first, clone2->Code()->first);
  EXPECT_EQ(clone1->Code()->first->a, gTacOne);
  ASSERT_EQ(clone1->Temporaries()->size(), 1u);
  Ref<SemBase> elsewhere = SemCode::New(IRDataType(), nullptr);
  elsewhere->Append(clone1);
  EXPECT_EQ(LineCount(source), 2);
  EXPECT_EQ(LineCount(clone2), 2);
  elsewhere->Append(source);
  EXPECT_EQ(LineCount(elsewhere), 4);
}

TEST_F(SemBaseTest, WrongKindCallsYieldTheDefaults) {
  Ref<SemBase> plain = SemBase::New();
  for (Ref<SemBase> const& v : {plain, Id("a")}) {
    EXPECT_EQ(v->Code(), nullptr);
    EXPECT_EQ(v->Temporaries(), nullptr);
    EXPECT_FALSE(v->NewTemp(IRDataType(kTypeInteger), nullptr));
    EXPECT_EQ(v->GetAddr(), nilTacAddr);
    EXPECT_FALSE(v->GetContents());
    v->AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr);
    v->Append(Id("b"));
    EXPECT_FALSE(v->GetNext());
  }
  EXPECT_FALSE(plain->Clone());
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
  ASSERT_EQ(code->Temporaries()->size(), 1u);
  SymbolID temp = (*code->Temporaries())[0];
  EXPECT_FALSE(temp.UserVisible());
  EXPECT_EQ(temp.GetType().GetMainType(), kTypeDouble);
  EXPECT_EQ(code->GetAddr(), temp.GetAddr());
  EXPECT_EQ(static_cast<SemCode*>(code.Get())->result->Location(), loc);
  EXPECT_TRUE(CurrentSymbolTable()->Contains(temp));
  Ref<SemBase> extra = code->NewTemp(IRDataType(kTypeString), nullptr);
  ASSERT_EQ(code->Temporaries()->size(), 2u);
  EXPECT_EQ((*code->Temporaries())[1].GetAddr(), extra->GetAddr());
  EXPECT_EQ(code->GetAddr(), temp.GetAddr()) << "the result stays";
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
