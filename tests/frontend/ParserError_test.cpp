#include <gtest/gtest.h>

#include <vector>

#include "LexerFixture.h"
#include "engine/CompilerDelegate.h"
#include "frontend/ParserError.h"

namespace {

class RecordingDelegate : public CompilerDelegate {
public:
  bool CompilerFrontendProgress(int current, int total) override {
    progressCalls.push_back({current, total});
    return stop;
  }
  bool CompilerError(CompileError error) override {
    errors.push_back(error);
    return true;
  }
  std::vector<std::pair<int, int>> progressCalls;
  std::vector<CompileError> errors;
  bool stop = false;
};

class ErrorRoutines : public CompilationFixture {
protected:
  // Puts the lexer on the line of `count` tokens into `source`.
  void ReadTokens(char const* source, int count) {
    InitLexer(source);
    for (int i = 0; i < count; ++i) GetToken();
  }
  RecordingDelegate mDelegate;
};

TEST(CompileErrorTable, NamesAndNumbers) {
  const struct {
    int value;
    char const* name;
  } kCases[] = {
      {1, "SyntaxError"},         {2, "TypeMismatch"},           {5, "ParserStackOverflow"},
      {11, "UnknownName"},        {22, "DuplicateName"},         {24, "AmbiguousCall"},
      {41, "SuperOutsideClass"},  {68, "UnterminatedString"},    {86, "MissingThen"},
      {87, "UnknownPragma"},      {95, "BranchOutOfRange"},
  };
  for (auto const& c : kCases) {
    char const* name = CompileErrorName((CompileErrorCode)c.value);
    ASSERT_NE(name, nullptr) << c.value;
    EXPECT_STREQ(name, c.name);
  }
  // The gaps are never raised and have no name.
  for (int gap : {0, 3, 4, 8, 13, 23, 30, 40, 100})
    EXPECT_EQ(CompileErrorName((CompileErrorCode)gap), nullptr) << gap;
  EXPECT_EQ(CompileErrorCount(), 92);
  EXPECT_EQ((int)ConflictingModifiers, 74);
}

TEST(CompileErrorTable, RecordKeepsWhatItWasGiven) {
  SimpleVector<string> words;
  words.push_back("Integer");
  words.push_back("String");
  CompileError e(TypeMismatch, SourceLocation(3, 4, 5, 6), words);
  CompileError copy = e;
  EXPECT_EQ(copy.Type(), TypeMismatch);
  EXPECT_EQ(copy.Location().startLine, 3);
  EXPECT_EQ(copy.Location().endOffset, 6);
  ASSERT_EQ(copy.Params().size(), 2u);
  EXPECT_TRUE(copy.Params()[1] == "String");
  EXPECT_EQ(CompileError(UnknownName, SourceLocation(1)).Params().size(), 0u);
}

TEST_F(ErrorRoutines, ErrorAtTheCurrentLineReachesTheDelegate) {
  mContext->delegate = &mDelegate;
  ReadTokens("a\nb\nc = 1", 5);  // a NL b NL c
  Error(UnknownName);
  ASSERT_EQ(mDelegate.errors.size(), 1u);
  CompileError const& e = mDelegate.errors[0];
  EXPECT_EQ(e.Type(), UnknownName);
  EXPECT_EQ(e.Location().startLine, 2);
  EXPECT_EQ(e.Location().endLine, 2);
  EXPECT_EQ(e.Location().startOffset, -1);
  EXPECT_EQ(e.Location().endOffset, -1);
  EXPECT_TRUE(mContext->hadError);
}

TEST_F(ErrorRoutines, ErrorWithLocationAndParams) {
  mContext->delegate = &mDelegate;
  Error(NotAssignable, SourceLocation(7, 1, 7, 9));
  SimpleVector<string> words;
  words.push_back("ByRef");
  words.push_back("ParamArray");
  Error(ConflictingModifiers, SourceLocation(8), words);
  ASSERT_EQ(mDelegate.errors.size(), 2u);
  EXPECT_EQ(mDelegate.errors[0].Type(), NotAssignable);
  EXPECT_EQ(mDelegate.errors[0].Location().startOffset, 1);
  EXPECT_EQ(mDelegate.errors[0].Location().endOffset, 9);
  EXPECT_EQ(mDelegate.errors[0].Params().size(), 0u);
  EXPECT_EQ(mDelegate.errors[1].Type(), ConflictingModifiers);
  ASSERT_EQ(mDelegate.errors[1].Params().size(), 2u);
  EXPECT_TRUE(mDelegate.errors[1].Params()[0] == "ByRef");
  EXPECT_TRUE(mDelegate.errors[1].Params()[1] == "ParamArray");
}

TEST_F(ErrorRoutines, WithoutDelegateOnlyTheFlagIsSet) {
  EXPECT_FALSE(CheckDelegate());
  Error(TypeMismatch, SourceLocation(1));
  EXPECT_TRUE(mContext->hadError);
  EXPECT_TRUE(CheckDelegate());
  EXPECT_TRUE(CheckDelegate());
}

TEST_F(ErrorRoutines, YyerrorTellsOverflowFromSyntax) {
  mContext->delegate = &mDelegate;
  ReadTokens("x\ny\n", 3);
  yyerror("parser stack overflow");
  yyerror("parse error");
  yyerror("syntax error, unexpected NEWLINE");
  ASSERT_EQ(mDelegate.errors.size(), 3u);
  EXPECT_EQ(mDelegate.errors[0].Type(), ParserStackOverflow);
  EXPECT_EQ(mDelegate.errors[1].Type(), SyntaxError);
  EXPECT_EQ(mDelegate.errors[2].Type(), SyntaxError);
  for (CompileError const& e : mDelegate.errors) {
    EXPECT_EQ(e.Location().startLine, 1);
    EXPECT_EQ(e.Location().startOffset, -1);
  }
  EXPECT_TRUE(mContext->hadError);
}

TEST_F(ErrorRoutines, YyerrorWithoutDelegateSetsTheFlag) {
  yyerror("parse error");
  EXPECT_TRUE(mContext->hadError);
}

TEST_F(ErrorRoutines, CheckDelegateAsksForProgress) {
  mContext->delegate = &mDelegate;
  ReadTokens("a\nb\nc\nd\n", 5);
  EXPECT_FALSE(CheckDelegate());
  ASSERT_EQ(mDelegate.progressCalls.size(), 1u);
  EXPECT_EQ(mDelegate.progressCalls[0].first, 2);
  EXPECT_EQ(mDelegate.progressCalls[0].second, 4);
  // An interactive delegate hears every error: the flag does not stop the parse.
  Error(UnknownName);
  EXPECT_FALSE(CheckDelegate());
  mDelegate.stop = true;
  EXPECT_TRUE(CheckDelegate());
}

}  // namespace
