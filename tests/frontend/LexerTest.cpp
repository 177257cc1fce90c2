#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "frontend/LexerFixture.h"

namespace {

struct StreamCase {
  char const* source;
  char const* expected;
};

class LexerStream : public CompilationFixture {};

void CheckStreams(StreamCase const* cases, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    EXPECT_EQ(LexAll(cases[i].source), cases[i].expected) << "source: " << Printable(cases[i].source);
  }
}
#define CHECK_STREAMS(table) CheckStreams(table, sizeof(table) / sizeof(table[0]))

TEST_F(LexerStream, AssignmentIsToldFromComparison) {
  const StreamCase kCases[] = {
      {"x = 1", "id:x := int:1"},
      {"If a = 1 Then b = 2 Else c = 3",
       "If id:a = int:1 Then id:b := int:2 Else id:c := int:3"},
      {"a = b = c", "id:a := id:b = id:c"},
      {"a.b(x = 1).c = 2", "id:a . id:b ( id:x = int:1 ) . id:c := int:2"},
      {"a(1, 2) = 3", "id:a ( int:1 , int:2 ) := int:3"},
      {"Self.x = 1", "Self . id:x := int:1"},
      {"Me.x = 1", "Me . id:x := int:1"},
      {"Super.x = 1", "Super . id:x := int:1"},
      {"Dim a As Integer = 1", "Dim id:a As Integer = int:1"},
      // A dotted chain must end on a name: `a. = 1` and `a b = 1` are no assignments.
      {"a. = 1", "id:a . = int:1"},
      {"a b = 1", "id:a id:b = int:1"},
      {"a, b = 1", "id:a , id:b = int:1"},
      {"(a) = 1", "( id:a ) = int:1"},
      // Each line starts afresh, and so does an unclosed parenthesis.
      {"a = 1\nb = 2", "id:a := int:1 NL id:b := int:2"},
      {"x(1\ny = 2", "id:x ( int:1 NL id:y := int:2"},
      {"If x Then\ny = 1\nEnd If", "If id:x Then NL id:y := int:1 NL End If"},
      {"For i = 1 To 3", "For id:i = int:1 To int:3"},
      {"a\t=\t1", "id:a := int:1"},
  };
  CHECK_STREAMS(kCases);
}

TEST_F(LexerStream, CommentsAndLineContinuation) {
  const StreamCase kCases[] = {
      {"x = 1 ' note\n", "id:x := int:1 NL"},
      {"x = 1 // note\n", "id:x := int:1 NL"},
      {"x = 1 Rem note\n", "id:x := int:1 NL"},
      {"x = 1 REM note\ny", "id:x := int:1 NL id:y"},
      {"x = 4 / 2", "id:x := int:4 / int:2"},
      {"Remark = 1", "id:Remark := int:1"},
      {"a _\n= 2", "id:a := int:2"},
      {"a _\r\n= 2", "id:a := int:2"},
      {"a _ ' why\n= 2", "id:a := int:2"},
      {"a _\n_\n= 2", "id:a := int:2"},
      {"a _ b", "id:a _ id:b"},
      {"a = _", "id:a := _"},
      {"a _\n\nb", "id:a NL id:b"},
      {"_a = 1", "id:_a := int:1"},
      // Empty lines and line breaks at the start of the text vanish.
      {"", ""},
      {"\n\n' c\n// d\n\nRem e\n", ""},
      {"\n\na\n\n\nb\n\n", "id:a NL id:b NL"},
  };
  CHECK_STREAMS(kCases);
}

TEST_F(LexerStream, NumberLiterals) {
  const StreamCase kCases[] = {
      {"0 7 2147483647", "int:0 int:7 int:2147483647"},
      {"2147483648", "float:2147483648"},
      {"-2147483648", "- float:2147483648"},
      {"4294967297", "float:4294967297"},
      {"1.5 1. 1.25e2 1.e-1 2E+3", "float:1.5 float:1 float:125 float:0.10000000000000001 float:2000"},
      {"1e 1else", "float:1 float:1 id:lse"},
      {".5 .5e3", "float:0.5 float:0.5 id:e3"},
      {"x = .5", "id:x := float:0.5"},
      {"a.5", "id:a float:0.5"},
      {"007", "int:7"},
  };
  CHECK_STREAMS(kCases);
}

TEST_F(LexerStream, RadixAndColourLiterals) {
  const StreamCase kCases[] = {
      {"&HFF &hff &HFFFFFFFF &H1FFFFFFFF", "int:255 int:255 int:-1 int:-1"},
      {"&O17 &o8 &B101 &b2", "int:15 int:0 int:8 int:5 int:0 int:2"},
      {"&H &HG", "int:0 int:0 id:G"},
      {"&cFF0000 &cF &c12 &C00ff00", "color:0xFF0000 color:0xF00000 color:0x120000 color:0x00FF00"},
      {"&c1234567", "color:0x123456 int:7"},
      {"&c", "color:0x000000"},
      {"a & b", "id:a & id:b"},
      {"&Z", "& id:Z"},
      // A literal at the start clears the assignment flag as any value does.
      {"&H1 = 2", "int:1 = int:2"},
  };
  CHECK_STREAMS(kCases);
}

TEST_F(LexerStream, StringLiterals) {
  const StreamCase kCases[] = {
      {"\"abc\"", "str:abc"},
      {"\"\"", "str:"},
      {"\"a\"\"b\"", "str:a\"b"},
      {"\"\"\"\"", "str:\""},
      {"x = \"a\" + \"b\"", "id:x := str:a + str:b"},
      // Unterminated: the line break goes with the string, uncounted.
      {"x = \"abc\ny = 1", "id:x := bad:abc id:y = int:1"},
      {"\"abc", "bad:abc"},
      {"\"ab\"\"", "bad:ab\""},
      {"\"abc\r\n1", "bad:abc NL int:1"},
      {"\"abc\n", "bad:abc NL"},
      // Escaped strings.
      {"\\\"a\\tb\"", "str:a\\x09b"},
      {"\\\"q\\\"q\"", "str:q\"q"},
      {"\\\"\\\\\"x", "str:\\ id:x"},
      {"\\\"line1\nline2\"", "str:line1\\x0Aline2"},
      {"\\\"abc", "str:abc"},
      {"\\\"ab\\", "str:ab\\"},
      {"7 \\ 2", "int:7 \\ int:2"},
      {"\"caf\xC3\xA9\"", "str:caf\\xC3\\xA9"},
  };
  CHECK_STREAMS(kCases);
}

TEST_F(LexerStream, NamesKeywordsAndCharacters) {
  const StreamCase kCases[] = {
      {"iF tHeN eLsE END", "If Then Else End"},
      {"True False", "True=1 False=0"},
      {"x = True", "id:x := True=1"},
      {"GoTo DownTo ParamArray Inline68k", "GoTo DownTo ParamArray Inline68k"},
      {"Of Shared Namespace Static", "Of Shared Namespace Static"},
      {"Ifx If_ If1", "id:Ifx id:If_ id:If1"},
      {"~a a~b", "id:~a id:a id:~b"},
      {"\xC3\x84 = \xC3\xA4", "id:\\xC3\\x84 := id:\\xC3\\xA4"},
      {"na\xC3\xAFve1", "id:na\\xC3\\xAFve1"},
      {">= <= <> > <", ">= <= <> > <"},
      {"a..b...c", "id:a .. id:b ... id:c"},
      {"! $ % ? @ ; [ ] { } | : ^ * +", "! $ % ? @ ; [ ] { } | : ^ * +"},
      {"#IF #If #if #foo #pragma #ElseIf #ELSE #endif", "#if #if #if # #pragma #ElseIf #else #endif"},
      {"#elseifx #", "# #"},
      {"#bad", "#"},
  };
  CHECK_STREAMS(kCases);
}

TEST_F(LexerStream, LineEndsOfEveryKind) {
  const StreamCase kCases[] = {
      {"a\rb\nc\r\nd", "id:a NL id:b NL id:c NL id:d"},
      {"a\n\rb", "id:a NL id:b"},
      {"a\r\rb", "id:a NL id:b"},
  };
  CHECK_STREAMS(kCases);

  InitLexer("a\rb\nc\r\nd\n\re");
  const int kLines[] = {0, 0, 1, 1, 2, 2, 3, 3, 5};
  for (int expected : kLines) {
    GetToken();
    EXPECT_EQ(current_line(), expected);
  }
  // Only LF bytes count towards the total.
  EXPECT_EQ(total_lines(), 3);
}

struct LocationCase {
  char const* token;
  int startLine, startOffset, endLine, endOffset;
};

TEST_F(CompilationFixture, TokenLocations) {
  InitLexer("ab = 12.5\n\tx.y \"q\"\"\" &HFF Then\r\n  \"open\nfin");
  const LocationCase kCases[] = {
      {"id:ab", 0, 0, 0, 2},       {":=", 0, 3, 0, 3},          {"float:12.5", 0, 5, 0, 9},
      {"NL", 0, 9, 0, 9},          {"id:x", 1, 1, 1, 2},        {".", 1, 2, 1, 2},
      {"id:y", 1, 3, 1, 4},        {"str:q\"", 1, 5, 1, 10},    {"int:255", 1, 11, 1, 11},
      {"Then", 1, 16, 1, 20},      {"NL", 1, 20, 1, 20},        {"bad:open", 2, 2, 2, 8},
      // The bad string's line break is not counted: the line stays 2 and
      // offsets still run from that line's start.
      {"id:fin", 2, 8, 2, 11},
  };
  for (LocationCase const& c : kCases) {
    int token = GetToken();
    ASSERT_EQ(DescribeToken(token), c.token);
    SourceLocation loc = CurrentTokenLocation();
    EXPECT_EQ(loc.startLine, c.startLine) << c.token;
    EXPECT_EQ(loc.startOffset, c.startOffset) << c.token;
    EXPECT_EQ(loc.endLine, c.endLine) << c.token;
    EXPECT_EQ(loc.endOffset, c.endOffset) << c.token;
    EXPECT_EQ(current_line(), c.startLine) << c.token;
    if (yylval != kNullSemBase) {
      SourceLocation const& vloc = yylval->Location();
      EXPECT_EQ(vloc.startOffset, c.startOffset) << c.token;
      EXPECT_EQ(vloc.endOffset, c.endOffset) << c.token;
      EXPECT_EQ(vloc.startLine, c.startLine) << c.token;
    }
  }
  EXPECT_EQ(GetToken(), kEndOfText);
}

TEST_F(CompilationFixture, TokensWithoutValueHoldTheNullValue) {
  InitLexer("x = (1)\n");
  const int kExpected[] = {kTokenIDENT, kTokenASSIGN, '(', kTokenINT_LIT, ')', kTokenNEWLINE};
  for (int expected : kExpected) {
    ASSERT_EQ(GetToken(), expected);
    bool hasValue = expected == kTokenIDENT || expected == kTokenINT_LIT;
    EXPECT_TRUE((bool)yylval);
    EXPECT_EQ(yylval == kNullSemBase, !hasValue);
  }
}

TEST_F(CompilationFixture, EndOfTextRepeats) {
  InitLexer("a");
  EXPECT_EQ(GetToken(), kTokenIDENT);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(GetToken(), kEndOfText);
  InitLexer(nullptr);
  EXPECT_EQ(GetToken(), kEndOfText);
  EXPECT_EQ(total_lines(), 0);
}

// The end of the text stands on the line of its last byte: a final line
// break opens no line of its own.
TEST_F(CompilationFixture, EndOfTextIsOnTheLastLine) {
  const std::pair<char const*, int> kCases[] = {
      {"", 0}, {"a", 0}, {"a\n", 0}, {"a\r\n", 0}, {"a\r", 0}, {"a\nb", 1}, {"a\n\n", 1}, {"a\n\r\n", 1},
  };
  for (auto const& c : kCases) {
    InitLexer(c.first);
    while (GetToken() != kEndOfText) {
    }
    EXPECT_EQ(current_line(), c.second) << c.first;
    EXPECT_EQ(CurrentTokenLocation().startLine, c.second) << c.first;
  }
}

TEST_F(CompilationFixture, ContinuationCountsItsLine) {
  InitLexer("a _\n= 2");
  LexNext(2);
  EXPECT_EQ(current_line(), 1);
}

// -- Limits of the token buffer ---------------------------------------------

TEST_F(CompilationFixture, OverlongNameIsCutAtACharacterBoundary) {
  std::string ascii(3000, 'a');
  EXPECT_EQ(LexAll((ascii + " = 1").c_str()), "id:" + std::string(kTokenBufferSize - 1, 'a') + " := int:1");

  // Two-byte characters: the cut at 2047 bytes would split one.
  std::string wide;
  for (int i = 0; i < 1500; ++i) wide += "\xC3\xA9";
  std::string source = wide + "\nb";  // must outlive the run
  InitLexer(source.c_str());
  ASSERT_EQ(GetToken(), kTokenIDENT);
  string name = static_cast<SemIdentifier*>(yylval.Get())->name;
  EXPECT_EQ(name.Length(), kTokenBufferSize - 2);
  EXPECT_EQ((unsigned char)name.CString()[name.Length() - 1], 0xA9);
  EXPECT_EQ(LexNext(3), "NL id:b EOF");
}

TEST_F(CompilationFixture, OverlongNumbersKeepTheirValue) {
  std::string zerosThenOne = std::string(3000, '0') + "1";
  EXPECT_EQ(LexAll(zerosThenOne.c_str()), "int:1");
  std::string huge = "1" + std::string(400, '0');
  EXPECT_EQ(LexAll(huge.c_str()), "float:inf");
  std::string fraction = "0." + std::string(3000, '0') + "5 x";
  EXPECT_EQ(LexAll(fraction.c_str()), "float:0 id:x");
  std::string hex = "&H" + std::string(3000, 'F') + " x";
  EXPECT_EQ(LexAll(hex.c_str()), "int:-1 id:x");
  std::string word = "#" + std::string(3000, 'i') + " x";
  EXPECT_EQ(LexAll(word.c_str()), "# id:x");
}

TEST_F(CompilationFixture, LongStringsAreNotLimitedByTheTokenBuffer) {
  std::string text(10000, 's');
  EXPECT_EQ(LexAll(("\"" + text + "\"").c_str()), "str:" + text);
  EXPECT_EQ(LexAll(("\\\"" + text + "\"").c_str()), "str:" + text);
}

// -- Conditional compilation -------------------------------------------------

struct SkipCase {
  char const* source;
  bool stopAtEndifOnly;
  char const* rest;  // what the parser reads after the skip
};

TEST_F(CompilationFixture, SkipConditionallyCompiledLines) {
  const SkipCase kCases[] = {
      // The parser reads the #endif itself.
      {"a\nb\n#endif\nc", false, "#endif NL id:c EOF"},
      // Nested blocks are passed whole.
      {"a\n#if x\nb\n#endif\nc\n#endif\nd", false, "#endif NL id:d EOF"},
      {"#if x\n#else\n#endif\n#endif\nd", false, "#endif NL id:d EOF"},
      // #else at depth 0 is consumed with its line break.
      {"a\n#else\nb\n#endif", false, "id:b NL #endif EOF"},
      {"a\n#else\nb\n#endif", true, "#endif EOF"},
      {"a\n#ElseIf y\nb", false, "#ElseIf id:y NL id:b EOF"},
      {"a\n#elseif y\nb\n#endif\n", true, "#endif NL EOF"},
      // `End Sub` and `End Function` end the skip with both consumed.
      {"a\nEnd Sub\nb", false, "NL id:b EOF"},
      {"a\nEnd Function\nb", true, "NL id:b EOF"},
      {"End If\nEnd\nSub\n#endif", false, "#endif EOF"},
      {"a\nb", false, "EOF"},
  };
  for (SkipCase const& c : kCases) {
    InitLexer(c.source);
    SkipConditionallyCompiledLines(c.stopAtEndifOnly);
    int count = 0;
    for (char const* p = c.rest; *p; ++p) count += *p == ' ';
    EXPECT_EQ(LexNext(count + 1), c.rest) << Printable(c.source);
  }
}

// -- Helpers -----------------------------------------------------------------

TEST_F(CompilationFixture, DecodeBackslashEscape) {
  const struct {
    char const* in;
    std::string out;
  } kCases[] = {
      {"", ""},
      {"plain", "plain"},
      {"\\\"\\'\\?\\\\", "\"'?\\"},
      {"\\a\\b\\f\\n\\r\\t\\v", "\a\b\f\n\r\t\v"},
      {"\\x41\\x7a", "Az"},
      // Letters count on past F, and other bytes are skipped.
      {"\\xG1", std::string(1, '\x01')},
      {"\\x-1", std::string(1, '\x01')},
      {"\\x4", "\x04"},
      {"\\x", std::string(1, '\0')},
      // An escape not in the table yields the byte behind the backslash.
      {"\\q", "q"},
      {"a\\", "a\\"},
  };
  for (auto const& c : kCases) {
    string in;
    in.ConstructFromBuffer(c.in, (int)strlen(c.in));
    EXPECT_EQ(Bytes(DecodeBackslashEscape(in)), c.out) << Printable(c.in);
  }
}

TEST(LexerHelpers, StrcmpiFoldsAsciiAndMacRoman) {
  const struct {
    char const* a;
    char const* b;
    int result;
  } kCases[] = {
      {"#PRAGMA", "#pragma", 0}, {"abc", "abd", -1}, {"abd", "abc", 1}, {"ab", "abc", -1},
      {"", "", 0},               {"\x87", "\xE7", 0}, {"\xF5", "I", 0},   {"\xD8", "\xD9", 0},
      {"\xC3\xA4", "\xC3\x84", 1}, {"[", "{", -1},
  };
  for (auto const& c : kCases)
    EXPECT_EQ(lexer_strcmpi(c.a, c.b), c.result) << Printable(c.a) << " vs " << Printable(c.b);
}

}  // namespace
