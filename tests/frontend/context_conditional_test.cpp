// Conditional compilation through whole parses: which statements reach the
// grammar's routines, which errors are reported at which lines, and that
// every block is closed afterwards. Lines count from 0.

#include "tests/frontend/context_Fixture.h"

namespace {

struct BranchCase {
  char const* name;
  char const* text;
  char const* reached;  // the names assigned to, in order
};

const BranchCase kBranches[] = {
    {"true takes the block", "#if True\na = 1\n#endif\nb = 1\n", "a b"},
    {"false skips the block", "#if False\na = 1\n#endif\nb = 1\n", "b"},
    {"nonzero integer is true", "#if 2\na = 1\n#endif\n", "a"},
    {"zero is false", "#if 0 Then\na = 1\n#endif\nb = 1\n", "b"},
    {"if taken skips else", "#if True\na = 1\n#else\nb = 1\n#endif\nc = 1\n", "a c"},
    {"if not taken takes else", "#if False\na = 1\n#else\nb = 1\n#endif\nc = 1\n", "b c"},
    {"first true elseif only", "#if 0\na = 1\n#ElseIf 1\nb = 1\n#ElseIf 1\nc = 1\n#else\nd = 1\n#endif\ne = 1\n", "b e"},
    {"taken if skips every elseif", "#if 1\na = 1\n#ElseIf 1\nb = 1\n#else\nc = 1\n#endif\n", "a"},
    {"no branch true takes else", "#if 0\na = 1\n#ElseIf 0\nb = 1\n#else\nc = 1\n#endif\n", "c"},
    {"false elseif without else", "#if 0\na = 1\n#ElseIf 0\nb = 1\n#endif\nc = 1\n", "c"},
    {"nested inside a taken block",
     "#if 1\n#if 0\na = 1\n#else\nb = 1\n#endif\nc = 1\n#else\nd = 1\n#endif\ne = 1\n", "b c e"},
    {"nested inside a skipped block",
     "#if 0\n#if 1\na = 1\n#else\nb = 1\n#endif\nc = 1\n#else\nd = 1\n#endif\ne = 1\n", "d e"},
    {"nested blocks skipped after a taken branch",
     "#if 1\na = 1\n#ElseIf 1\n#if 1\nb = 1\n#endif\n#else\nc = 1\n#endif\nd = 1\n", "a d"},
    {"inside a method", "Sub f()\n#if 0\na = 1\n#endif\nb = 1\nEnd Sub\n", "b"},
    {"variable condition compiles the block", "#if x\na = 1\n#endif\nb = 1\n", "a b"},
    {"variable condition: else skipped", "#if x\na = 1\n#else\nb = 1\n#endif\nc = 1\n", "a c"},
};

void PrintTo(BranchCase const& c, std::ostream* os) { *os << c.name; }

class ContextConditional : public ContextFixture, public ::testing::WithParamInterface<BranchCase> {};

TEST_P(ContextConditional, TakesAndSkipsTheRightLines) {
  BranchCase const& c = GetParam();
  ASSERT_EQ(Parse(c.text), 0) << Errors();
  EXPECT_EQ(AssignedNames(), c.reached);
  EXPECT_EQ(mContext->conditionalDepth, 0);
  EXPECT_EQ(mContext->conditionalTaken.size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Texts, ContextConditional, ::testing::ValuesIn(kBranches),
                         [](auto const& info) {
                           std::string name;
                           for (char const* p = info.param.name; *p; ++p) name += isalnum((unsigned char)*p) ? *p : '_';
                           return name;
                         });

struct ConditionalErrorCase {
  char const* text;
  CompileErrorCode code;
  int line;
  char const* reached;
};

const ConditionalErrorCase kErrors[] = {
    {"a = 1\n#endif\nb = 1\n", ConditionalEndIfWithoutIf, 1, "a b"},
    {"a = 1\n#else\nb = 1\n", ConditionalElseWithoutIf, 1, "a b"},
    {"a = 1\n\n#ElseIf 1\nb = 1\n", ConditionalElseWithoutIf, 2, "a b"},
    {"#if 1\n#endif\n#endif\n", ConditionalEndIfWithoutIf, 2, ""},
    {"a = 1\n#if x\nb = 1\n#endif\n", ConditionalNotConstant, 1, "a b"},
    {"#if 0\n#ElseIf y\na = 1\n#endif\n", ConditionalNotConstant, 1, "a"},
};

void PrintTo(ConditionalErrorCase const& c, std::ostream* os) { *os << testing::PrintToString(c.text); }

class ContextConditionalErrors : public ContextFixture,
                                 public ::testing::WithParamInterface<ConditionalErrorCase> {};

TEST_P(ContextConditionalErrors, ReportedAtTheDirectiveAndParsingGoesOn) {
  ConditionalErrorCase const& c = GetParam();
  EXPECT_EQ(Parse(c.text), 0) << Errors();
  EXPECT_EQ(LineOf(c.code), c.line) << Errors();
  EXPECT_EQ(mDelegate.errors.size(), 1u) << Errors();
  EXPECT_EQ(AssignedNames(), c.reached);
}

INSTANTIATE_TEST_SUITE_P(Texts, ContextConditionalErrors, ::testing::ValuesIn(kErrors));

// An `#if` left open at the end of a method skips the method's end with its
// lines, so the parser meets the end of the text inside the method.
TEST_F(ContextFixture, SkippedBlockSwallowsTheEndOfItsMethod) {
  EXPECT_EQ(Parse("Sub f()\n#if 0\na = 1\nEnd Sub\nb = 1\n"), 1);
  EXPECT_NE(LineOf(SyntaxError), -2) << Errors();
  EXPECT_EQ(AssignedNames(), "");
}

// A condition of the null type can't choose a branch: the block is
// compiled, and no branch is recorded for it.
TEST_F(ContextFixture, TypelessConditionIsReported) {
  InitLexer("");
  CompileConditionalIf(SemValue::New(nilTacAddr, nullptr));
  EXPECT_EQ(mDelegate.errors.size(), 1u);
  EXPECT_NE(LineOf(ConditionalTypeless), -2) << Errors();
  EXPECT_EQ(mContext->conditionalDepth, 1);
  EXPECT_EQ(mContext->conditionalTaken.size(), 0u);
  CompileConditionalEndIf();
  EXPECT_EQ(mContext->conditionalDepth, 0);
  EXPECT_EQ(mDelegate.errors.size(), 1u);
}

// Null conditions follow an error that was reported already.
TEST_F(ContextFixture, NullConditionsReportNothing) {
  InitLexer("");
  CompileConditionalIf(Ref<SemBase>());
  CompileConditionalElseIf(Ref<SemBase>());
  CompileConditionalEndIf();
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
  EXPECT_EQ(mContext->conditionalDepth, 0);
}

}  // namespace
