// What the grammar accepts and rejects, one text per case, through a whole
// parse. Lines in expectations count from 0, as the compiler reports them.

#include "tests/grammar/ParseFixture.h"

namespace {

struct AcceptCase {
  char const* name;
  char const* text;
};

// Texts that parse without a syntax error. Some report semantic errors
// (names unknown to the placeholders' callers do not), which is not what
// these cases look at.
const AcceptCase kAccepted[] = {
    {"empty text", ""},
    {"only blank lines and comments", "\n\n' note\n// more\nRem end\n"},
    {"assignment", "x = 1\n"},
    {"chained comparison assigned", "a = b = c\n"},
    {"command call with arguments", "f 1, 2\n"},
    {"command call in parentheses", "f(1, 2)\n"},
    {"call statement drops a result", "Call f(1, 2)\n"},
    {"method call with one argument", "x.y z\n"},
    {"dotted call without arguments", "a.b.c\n"},
    {"assignment to an element", "a(1, 2) = 3\n"},
    {"assignment through a chain", "a.b(x = 1).c = 2\n"},
    {"assignment to a property of Self", "Self.x = 1\n"},
    {"assignment to a property of Me", "Me.x = 1\n"},
    {"Super call", "Super.f 1\n"},
    {"New in an assignment", "x = New Foo\n"},
    {"New with arguments then member", "x = New Foo(1, 2).Bar\n"},
    {"Raise New", "Raise New Foo\n"},
    {"label alone on its line", "top:\n"},
    {"label with a comment", "top: ' the start\nGoTo top\n"},
    {"GoTo", "GoTo there\nthere:\n"},
    {"Return with and without value", "Return\nReturn 1 + 2\n"},
    {"Exit alone", "While True\nExit\nWend\n"},
    {"Redim by name", "Redim a(10)\n"},
    {"Redim by member", "Redim o.a(10, 2)\n"},
    {"unary minus and Not", "x = -a * Not b\n"},
    {"every binary operator", "x = a + b - c * d / e \\ f Mod g ^ h\n"},
    {"every comparison", "x = a < b Or a > b Or a <= b Or a >= b Or a <> b Or a = b\n"},
    {"Is and IsA", "x = a Is b And c IsA Foo And d IsA Object\n"},
    {"class reference", "x = Class Foo\n"},
    {"Array literal", "x = Array(1, 2, 3)\n"},
    {"empty parentheses", "x = f()\n"},
    {"parenthesized list as a value", "x = (1, 2)\n"},
    {"AddressOf a name", "x = AddressOf f\n"},
    {"AddressOf a member", "x = AddressOf o.p.f\n"},
    {"literals", "x = 1\nx = 1.5\nx = \"s\"\nx = True\nx = False\nx = &cFF0000\nx = Nil\nx = &HFF\n"},
    {"line continuation", "x = 1 + _\n  2\n"},
    {"block If without else", "If a Then\nx = 1\nEnd If\n"},
    {"block If closed by End", "If a Then\nx = 1\nEnd\n"},
    {"If ElseIf Else", "If a Then\nx = 1\nElseIf b Then\nx = 2\nElseIf c Then\nElse\nx = 3\nEnd If\n"},
    {"empty block If", "If a Then\nEnd If\n"},
    {"one-line If", "If a Then x = 1\n"},
    {"one-line If Else", "If a Then x = 1 Else y = 2\n"},
    {"one-line If with call and Exit", "If a Then f 1, 2 Else Exit\n"},
    {"one-line If with Return", "If a Then Return\n"},
    {"For To", "For i = 1 To 10\nx = i\nNext\n"},
    {"For To Step with Next name", "For i = 10 To 1 Step -1\nNext i\n"},
    {"For DownTo", "For i = 10 DownTo 1\nNext\n"},
    {"For Each", "For Each v In list\nf v\nNext v\n"},
    {"While Wend", "While a < 10\na = a + 1\nWend\n"},
    {"Do Loop", "Do\nLoop\n"},
    {"Do Until", "Do Until a\nLoop\n"},
    {"Loop Until", "Do\nLoop Until a > 3\n"},
    {"Do Until Loop Until", "Do Until a\nLoop Until b\n"},
    {"Select Case", "Select Case x\nCase 1\ny = 1\nCase 2, 3\nCase 4 To 6\nCase Is > 7, Is <= 0\nCase Else\nEnd Select\n"},
    {"Select with plain Else", "Select Case x\nCase 1\nElse\ny = 2\nEnd\n"},
    {"Select without cases", "Select Case x\nEnd Select\n"},
    {"every Is comparison", "Select Case x\nCase Is < 1, Is = 2, Is >= 3, Is <> 4\nEnd Select\n"},
    {"Try Catch Finally", "Try\nf\nCatch\ng\nCatch e\nException e As MyError\nFinally\nh\nEnd Try\n"},
    {"Try closed by End", "Try\nEnd\n"},
    {"Dim forms", "Dim a As Integer\nDim b, c As String, d() As Double\nDim e(3), f(2, 2) As Integer\nDim g As New Foo\nDim h As New Foo(1)\nDim i As Integer = 1\n"},
    {"Dim of a class type", "Dim a As Foo\n"},
    {"Dim array of no elements", "Dim a() As Integer\n"},
    {"Const forms", "Const a = 1\nConst b = -1\nConst c = -1.5\nConst d = \"x\"\nConst e = True\nConst f = &c00FF00\nConst g = Nil\nConst h = a\n"},
    {"Dim reserved word reports", "Dim Catch As Integer\n"},
    {"Dim Me reports nothing syntactic", "Dim Me As Integer\n"},
    {"Declare as a statement", "Declare Sub Beep Lib \"sys\"\n"},
    {"Declare with everything", "Declare Function F Lib libName Alias \"G\" (ByVal a As Integer, b As Ptr) As Short Inline68k(\"4E75\")\n"},
    {"Declare Function without As", "Declare Function F Lib \"x\"\n"},
    {"pragma forms", "#pragma Debug\n#pragma BoundsChecking True\n#pragma Reset False\n#pragma BindingPart a, \"b\", \"c\"\n#pragma BindingSpecification a, b, \"c\"\n"},
    {"conditional compilation", "#if True Then\nx = 1\n#else\nx = 2\n#endif\n"},
    {"conditional elseif", "#if False\nx = 1\n#ElseIf True\nx = 2\n#endif\n"},
    {"Sub with parameters", "Sub f(a As Integer, ByRef b As String, c() As Double, Optional d As Integer = 3)\nEnd Sub\n"},
    {"Sub with every modifier", "Sub f(ByVal a As Integer, Assigns b As Integer, Extends c As Foo, ParamArray d As Integer)\nEnd Sub\n"},
    {"Function with array return", "Function f() As Integer()\nEnd Function\nFunction g() As Integer(,)\nEnd Function\n"},
    {"parameter default a name", "Sub f(a As Integer = y)\nEnd Sub\n"},
    {"parameter named Me", "Sub f(Me As Integer)\nEnd Sub\n"},
    {"Handles Event", "Class C\nSub Open() Handles Event\nEnd Sub\nEnd Class\n"},
    {"method body with locals and handlers", "Sub f()\nDim a As Integer\na = 1\nConst b = 2\nCatch e\nFinally\nEnd Sub\n"},
    {"method body ending in handler only", "Function f() As Integer\nReturn 1\nException\nReturn 0\nEnd Function\n"},
    {"statements after methods", "Sub f()\nEnd Sub\nf\n"},
    {"Dim before methods", "Dim a As Integer\nConst b = 1\nSub f()\nEnd Sub\n"},
    {"class members", "Class C\nInherits B\nImplements I\nx As Integer\nPrivate Dim y(3) As String\nPublic Sub f()\nEnd Sub\nProtected Function g() As Integer\nEnd Function\nNew Event E(a As Integer) As Boolean\nDeclare Sub Beep Lib \"sys\"\nPrivate Const k = 3\nEnd Class\n"},
    {"Inherits Object", "Class C\nInherits Object\nEnd Class\n"},
    {"empty class", "Class C\nEnd Class\n"},
    {"interface", "Interface I\nSub f(a As Integer)\nFunction g() As String\nEnd Interface\n"},
    {"module", "Module M\nx As Integer\nSub f()\nEnd Sub\nPublic Function g() As Integer\nEnd Function\nConst k = 1\nPrivate Class C\nEnd Class\nEnd Module\n"},
    {"CRLF line breaks", "x = 1\r\ny = 2\r\n"},
    {"nested blocks", "For i = 1 To 3\nWhile a\nIf b Then\nSelect Case c\nCase 1\nTry\nDo\nLoop\nEnd Try\nEnd Select\nEnd If\nWend\nNext\n"},
};

class GrammarAccepts : public ::testing::TestWithParam<AcceptCase> {};

TEST_P(GrammarAccepts, ParsesWithoutSyntaxError) {
  ParseText("x = = 1\n");  // leaves a syntax error behind
  ParseOutcome outcome = ParseText(GetParam().text);
  EXPECT_EQ(yynerrs, 0);
  EXPECT_EQ(outcome.result, 0) << outcome.Describe();
  EXPECT_FALSE(outcome.Has(SyntaxError)) << outcome.Describe();
  EXPECT_FALSE(outcome.Has(ParserStackOverflow)) << outcome.Describe();
}

INSTANTIATE_TEST_SUITE_P(Texts, GrammarAccepts, ::testing::ValuesIn(kAccepted),
                         [](::testing::TestParamInfo<AcceptCase> const& info) {
                           std::string name;
                           for (char const* p = info.param.name; *p; ++p)
                             name += isalnum((unsigned char)*p) ? *p : '_';
                           return name;
                         });

struct RejectCase {
  char const* text;
  int line;  // of the SyntaxError
};

// Texts that end in a SyntaxError at the line given.
const RejectCase kRejected[] = {
    {"x = \n", 0},
    {"x = 1 +\ny = 2\n", 0},
    {"If a Then\nDim x As Integer\nEnd If\n", 1},
    {"x = 1 ? 2\n", 0},
    {"x = 1 & 2\n", 0},
    {"x# = 1\n", 0},
    {"New Foo\n", 0},
    {"x = a(1)(2)\n", 0},
    {"(a).b = 1\n", 0},
    {"Exit For\n", 0},
    {"Exit Sub\n", 0},
    {"If a Then\nx = 1\nElse y = 2\nEnd If\n", 2},
    {"If a Then\nElseIf b\nEnd If\n", 1},
    {"If a Then For i = 1 To 2\n", 0},
    {"Dim x As Integer()\n", 0},
    {"Dim x As Integer(3)\n", 0},
    {"For i As Integer = 1 To 3\nNext\n", 0},
    {"x = 1 + +2\n", 0},
    {"Sub Catch()\nEnd Sub\n", 0},
    {"Sub f\nEnd Sub\n", 0},
    {"Function f()\nEnd Function\n", 0},
    {"Class C\nx As Integer = 1\nEnd Class\n", 1},
    {"Class C\na, b As Integer\nEnd Class\n", 1},
    {"Module M\nDeclare Sub f Lib \"x\"\nEnd Module\n", 1},
    {"Class C\nPublic Declare Sub f Lib \"x\"\nEnd Class\n", 1},
    {"Module M\nNew Event E()\nEnd Module\n", 1},
    {"Class C\nClass D\nEnd Class\nEnd Class\n", 1},
    {"Interface I\nSub f()\nEnd Sub\nEnd Interface\n", 2},
    {"x = 1\nSub f()\nEnd Sub\n", 1},
    {"x = 1\nDim a As Integer\n", 1},
    {"x = 1\nConst a = 1\n", 1},
    {"x = 1\nClass C\nEnd Class\n", 1},
    {"Public Sub f()\nEnd Sub\n", 0},
    {"Sub f(a As Integer())\nEnd Sub\n", 0},
    {"Const x = Not True\n", 0},
    {"Const x = 1 + 2\n", 0},
    {"Do While a\nLoop\n", 0},
    {"x = 1 : y = 2\n", 0},
    {"x _ y\n", 0},
    {"x = a...b\n", 0},
    {"Dim Of As Integer\n", 0},
    {"Sub f()\nx = 1\nEnd Function\n", 2},
    {"While a\nx = 1\n", 1},
    {"#pragma\n", 0},
    {"#foo\n", 0},
    {"#pragma Debug\nSub f()\nEnd Sub\n", 1},
    {"Class C\n#if True\n#endif\nEnd Class\n", 1},
    {"If a Then\nEnd If x\n", 1},
    {"Try\nCatch e As\nEnd Try\n", 1},
    {"Select Case x\nx = 1\nEnd Select\n", 1},
    {"Inherits Foo\n", 0},
    {"Else\n", 0},
    {"x = 1\n\n\n  End Sub\n", 3},
    // Every statement ends in a line break, the last one too.
    {"x = 1", 0},
    // The line break behind an unterminated string belongs to the string,
    // so the statement runs on into the next line.
    {"x = \"abc\ny = 1\n", 0},
};

class GrammarRejects : public ::testing::TestWithParam<RejectCase> {};

TEST_P(GrammarRejects, EndsInSyntaxErrorAtItsLine) {
  ParseOutcome outcome = ParseText(GetParam().text);
  EXPECT_EQ(outcome.result, 1) << outcome.Describe();
  ASSERT_TRUE(outcome.Has(SyntaxError)) << outcome.Describe();
  EXPECT_EQ(outcome.LineOf(SyntaxError), GetParam().line) << outcome.Describe();
  // No recovery: the syntax error is the last report, and the only one
  // that yynerrs counts, whatever the parses before it did.
  EXPECT_EQ(outcome.errors.back().code, SyntaxError) << outcome.Describe();
  EXPECT_EQ(yynerrs, 1);
}

INSTANTIATE_TEST_SUITE_P(Texts, GrammarRejects, ::testing::ValuesIn(kRejected));

struct NamedErrorCase {
  char const* text;
  CompileErrorCode code;
  int line;
};

// Errors that the grammar's own actions report; the parse goes on.
const NamedErrorCase kNamedErrors[] = {
    {"x = 1\nIf b\ny = 2\nEnd If\n", MissingThen, 1},
    {"If b Return\n", MissingThen, 0},
    {"Declare Function F Lib \"x\"\n", DeclareFunctionWithoutType, 0},
    {"Sub f()\nDeclare Function F Lib \"x\" (a As Integer)\nEnd Sub\n", DeclareFunctionWithoutType, 1},
    {"Class C\nDeclare Function F Lib \"x\" Inline68k(\"4E75\")\nEnd Class\n", DeclareFunctionWithoutType, 1},
    {"Dim Catch As Integer\n", ReservedIdentifier, 0},
    {"Sub f(Try As Integer)\nEnd Sub\n", ReservedIdentifier, 0},
    {"Class C\nLib As Integer\nEnd Class\n", ReservedIdentifier, 1},
    {"Dim a, Delegate As Integer\n", ReservedIdentifier, 0},
    {"x = \"abc\n + y\n", UnterminatedString, 0},
    {"x = 1\nf \"abc\n, 2\n", UnterminatedString, 1},
    {"#endif\n", ConditionalEndIfWithoutIf, 0},
    {"#else\n", ConditionalElseWithoutIf, 0},
    {"#pragma Nonsense\n", UnknownPragma, 0},
    {"#if x\ny = 1\n#endif\n", ConditionalNotConstant, 0},
};

class GrammarReports : public ::testing::TestWithParam<NamedErrorCase> {};

TEST_P(GrammarReports, NamedErrorAndParsesOn) {
  NamedErrorCase const& c = GetParam();
  ParseOutcome outcome = ParseText(c.text);
  EXPECT_EQ(outcome.result, 0) << outcome.Describe();
  EXPECT_FALSE(outcome.Has(SyntaxError)) << outcome.Describe();
  EXPECT_EQ(outcome.LineOf(c.code), c.line) << outcome.Describe();
}

INSTANTIATE_TEST_SUITE_P(Texts, GrammarReports, ::testing::ValuesIn(kNamedErrors));

TEST(GrammarReports, MissingThenOnlyForBlockIfNotElseIf) {
  ParseOutcome outcome = ParseText("If True Then\nElseIf False Then\nEnd If\nIf True\nEnd If\n");
  EXPECT_EQ(outcome.result, 0);
  ASSERT_EQ(outcome.errors.size(), 1u) << outcome.Describe();
  EXPECT_EQ(outcome.errors[0].code, MissingThen);
  EXPECT_EQ(outcome.errors[0].line, 3);
}

// Conditional compilation skips the branch not taken, so what stands there
// is never parsed: a syntax error in it goes unseen.
TEST(GrammarConditional, BranchNotTakenIsNotParsed) {
  EXPECT_EQ(ParseText("#if False\nx = = =\n#endif\ny = 1\n").result, 0);
  EXPECT_EQ(ParseText("#if True\ny = 1\n#else\nx = = =\n#endif\n").result, 0);
  EXPECT_EQ(ParseText("#if False\nx = = =\n#ElseIf True\ny = 1\n#else\nz = = =\n#endif\n").result, 0);
  ParseOutcome taken = ParseText("#if True\nx = = =\n#endif\n");
  EXPECT_EQ(taken.LineOf(SyntaxError), 1) << taken.Describe();
}

// The delegate is polled with the line the parse has reached and the
// text's length, and stops the parse by answering so; without a delegate, a
// reported error stops it at the next poll.
TEST(GrammarPoll, DelegateHearsProgressAndCanStop) {
  RecordingDelegate delegate;
  delegate.stopAtPoll = 4;
  ParseOutcome outcome = ParseText("a = 1\nb = 2\nc = 3\nd = 4\n", nullptr, &delegate);
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(delegate.polls, 4);
  EXPECT_TRUE(delegate.lastLine > 0 && delegate.lastLine < 3) << "stopped mid-text, at " << delegate.lastLine;
  EXPECT_EQ(delegate.lastTotal, 4);
  EXPECT_FALSE(outcome.Has(SyntaxError)) << outcome.Describe();
  // No declarations are mined here, so only statements that name nothing
  // parse without a report.
  EXPECT_EQ(ParseText("Dim Catch As Integer\nReturn\n", nullptr, nullptr, false).result, 1);
  EXPECT_EQ(ParseText("Return\nReturn\n", nullptr, nullptr, false).result, 0);
}

}  // namespace
