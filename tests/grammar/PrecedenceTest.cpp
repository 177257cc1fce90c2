// How the parser groups what it reads, seen through the order in which the
// reductions call the compile routines and the operands they pass: each
// value-making call is written out as the expression it stands for.

#include "tests/grammar/ParseFixture.h"

namespace {

// The last call of the parse that made a statement, as traced.
std::string LastStatementCall(RoutineTrace const& trace) {
  for (auto it = trace.calls.rbegin(); it != trace.calls.rend(); ++it)
    if (it->rfind("CompileLookup", 0) == 0 || it->rfind("CompileScopeLookup", 0) == 0) return *it;
  return "<none>";
}

struct GroupingCase {
  char const* text;
  // The statement's lookup: CompileLookup(name, args, value; mode, error).
  char const* call;
};

const GroupingCase kGrouping[] = {
    {"x = Not a = b\n", "CompileLookup(x, -, ((Not a) = b); 1, 11)"},
    {"x = Not a And b\n", "CompileLookup(x, -, ((Not a) And b); 1, 11)"},
    {"x = -a ^ b\n", "CompileLookup(x, -, (-(a ^ b)); 1, 11)"},
    {"x = -a * b\n", "CompileLookup(x, -, ((-a) * b); 1, 11)"},
    {"x = 2 ^ 3 ^ 2\n", "CompileLookup(x, -, (2 ^ (3 ^ 2)); 1, 11)"},
    {"a = b = c\n", "CompileLookup(a, -, (b = c); 1, 11)"},
    {"x = a = b = c\n", "CompileLookup(x, -, ((a = b) = c); 1, 11)"},
    {"x = a - b - c\n", "CompileLookup(x, -, ((a - b) - c); 1, 11)"},
    {"x = a / b * c\n", "CompileLookup(x, -, ((a / b) * c); 1, 11)"},
    {"x = a + b * c\n", "CompileLookup(x, -, (a + (b * c)); 1, 11)"},
    {"x = a * b + c\n", "CompileLookup(x, -, ((a * b) + c); 1, 11)"},
    {"x = a \\ b Mod c\n", "CompileLookup(x, -, ((a \\ b) Mod c); 1, 11)"},
    {"x = a Or b And c\n", "CompileLookup(x, -, (a Or (b And c)); 1, 11)"},
    {"x = a And b Or c\n", "CompileLookup(x, -, ((a And b) Or c); 1, 11)"},
    {"x = a < b + 1\n", "CompileLookup(x, -, (a < (b + 1)); 1, 11)"},
    {"x = a <> b And c >= d\n", "CompileLookup(x, -, ((a <> b) And (c >= d)); 1, 11)"},
    {"x = a <= b Or Not c\n", "CompileLookup(x, -, ((a <= b) Or (Not c)); 1, 11)"},
    {"x = a Is b = c\n", "CompileLookup(x, -, ((a Is b) = c); 1, 11)"},
    {"x = a + b IsA Foo\n", "CompileLookup(x, -, (a + (b IsA Foo)); 1, 11)"},
    {"x = Not a IsA Foo\n", "CompileLookup(x, -, (Not (a IsA Foo)); 1, 11)"},
    {"x = -2 ^ -3\n", "CompileLookup(x, -, (-(2 ^ (-3))); 1, 11)"},
    {"x = (a + b) * c\n", "CompileLookup(x, -, ((a + b) * c); 1, 11)"},
    {"x = Not Not a\n", "CompileLookup(x, -, (Not (Not a)); 1, 11)"},
    // Statements and their arguments.
    {"f 1, 2\n", "CompileLookup(f, {1, 2}, -; 1, 11)"},
    {"f(1, 2)\n", "CompileLookup(f, {1, 2}, -; 1, 11)"},
    {"f (1) + 2\n", "CompileLookup(f, (1 + 2), -; 1, 11)"},
    {"f\n", "CompileLookup(f, -, -; 1, 11)"},
    {"Call f(1, 2)\n", "CompileLookup(f, {1, 2}, -; 2, 0)"},
    {"x.y z\n", "CompileScopeLookup(x, y, z, -; 1)"},
    {"a(1) = 3\n", "CompileLookup(a, 1, 3; 1, 11)"},
    {"a(1).b = 3\n", "CompileScopeLookup(a(1), b, -, 3; 1)"},
    {"a.b(2) = c.d\n", "CompileScopeLookup(a, b, 2, c.d; 1)"},
    {"Call o.m 1\n", "CompileScopeLookup(o, m, 1, -; 2)"},
    {"x = f(g(1), \"s\")\n", "CompileLookup(x, -, f({g(1), \"s\"}); 1, 11)"},
};

class GrammarGrouping : public ::testing::TestWithParam<GroupingCase> {};

TEST_P(GrammarGrouping, ReductionsShowTheGrouping) {
  RoutineTrace trace;
  ParseOutcome outcome = ParseText(GetParam().text, &trace);
  ASSERT_EQ(outcome.result, 0) << outcome.Describe();
  EXPECT_EQ(LastStatementCall(trace), GetParam().call);
}

INSTANTIATE_TEST_SUITE_P(Texts, GrammarGrouping, ::testing::ValuesIn(kGrouping));

// The whole sequence for one text shows that operands are reduced before
// their operator and left before right.
TEST(GrammarOrder, OperandsBeforeOperatorsLeftFirst) {
  RoutineTrace trace;
  ASSERT_EQ(ParseText("x = a * b + c\n", &trace).result, 0);
  std::vector<std::string> expected = {
      "CompileLookup(a, -, -; 0, 11)", "CompileLookup(b, -, -; 0, 11)", "CompileBinop(a, b; 42)",
      "CompileLookup(c, -, -; 0, 11)", "CompileBinop((a * b), c; 43)",  "CompileLookup(x, -, ((a * b) + c); 1, 11)",
      "CompileProgram(-, x)",
  };
  EXPECT_EQ(trace.calls, expected);
}

// Mid-rule actions run once the head line is read, before the body, and
// see the head's symbols.
TEST(GrammarOrder, OpeningRoutinesRunBeforeTheBody) {
  RoutineTrace trace;
  ASSERT_EQ(ParseText("For i = 1 To n\nf i\nNext\n", &trace).result, 0);
  // The loop's own lookups of its variable sit between these.
  auto at = [&](std::string const& prefix) {
    for (size_t i = 0; i < trace.calls.size(); ++i)
      if (trace.calls[i].rfind(prefix, 0) == 0) return (long)i;
    return -1L;
  };
  EXPECT_EQ(at("CompileLookup(n, -, -; 0, 11)"), 0);
  EXPECT_LT(at("CompileLookup(n, "), at("CompileForLoop(i, 1)"));
  EXPECT_LT(at("CompileForLoop(i, 1)"), at("CompileLookup(i, -, -; 0, 11)"));
  EXPECT_LT(at("CompileLookup(i, -, -; 0, 11)"), at("CompileLookup(f, i, -; 1, 11)"));
  EXPECT_LT(at("CompileLookup(f, i, -; 1, 11)"), at("CompileNext(i, "));
}

TEST(GrammarOrder, MethodRoutinesInTheirOrder) {
  RoutineTrace trace;
  ASSERT_EQ(ParseText("Function f(a As Integer) As String Handles Event\nReturn a\nEnd Function\n", &trace).result, 0);
  std::vector<std::string> names;
  for (std::string const& call : trace.calls) names.push_back(call.substr(0, call.find('(')));
  std::vector<std::string> expected = {"AddSelfParameter", "CompileParameter", "CompileFunction", "CompileLookup",
                                       "CompileReturn", "CompileEndFunction", "CompileProgram"};
  EXPECT_EQ(names, expected);
  EXPECT_EQ(trace.calls[2].rfind("CompileFunction(f, CompileParameter, String, 1)", 0), 0u) << trace.calls[2];
}

TEST(GrammarOrder, CaseConditionsCompareTheSelectValue) {
  RoutineTrace trace;
  ASSERT_EQ(ParseText("Select Case x\nCase 1, 2 To 3, Is > 4\nEnd Select\n", &trace).result, 0);
  std::string conditions;
  for (std::string const& call : trace.calls)
    if (call.rfind("CompileCase(", 0) == 0) conditions = call;
  EXPECT_EQ(conditions.rfind("CompileCase((((<select> = 1) Or ((<select> >= 2) And (<select> <= 3))) Or (<select> > 4)), ", 0),
            0u)
      << conditions;
}

// Nesting deeper than the first stacks (200 entries) grows them; the
// values on the stack survive the move.
TEST(GrammarStacks, DeepNestingWithinTheLimitParses) {
  std::string text = "x = " + std::string(3000, '(') + "1" + std::string(3000, ')') + " + 2\n";
  RoutineTrace trace;
  ParseOutcome outcome = ParseText(text.c_str(), &trace);
  EXPECT_EQ(outcome.result, 0) << outcome.Describe();
  EXPECT_EQ(LastStatementCall(trace), "CompileLookup(x, -, (1 + 2); 1, 11)");
}

TEST(GrammarStacks, NestingBeyondTheLimitIsParserStackOverflow) {
  std::string text = "x = " + std::string(10001, '(') + "1" + std::string(10001, ')') + "\n";
  ParseOutcome outcome = ParseText(text.c_str());
  EXPECT_EQ(outcome.result, 2) << outcome.Describe();
  ASSERT_EQ(outcome.errors.size(), 1u) << outcome.Describe();
  EXPECT_EQ(outcome.errors[0].code, ParserStackOverflow);
}

TEST(GrammarStacks, DeepBlocksOverflowToo) {
  std::string text;
  for (int i = 0; i < 3000; ++i) text += "If a Then\n";
  for (int i = 0; i < 3000; ++i) text += "End If\n";
  ParseOutcome outcome = ParseText(text.c_str());
  EXPECT_EQ(outcome.result, 2) << outcome.Describe();
  EXPECT_TRUE(outcome.Has(ParserStackOverflow)) << outcome.Describe();
  // The stacks are back to their first size for the next parse.
  EXPECT_EQ(ParseText("If a Then\nEnd If\n").result, 0);
}

}  // namespace
