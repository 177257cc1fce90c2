// The compiler driver where no script reaches: the filter that a broken
// block structure puts in front of the delegate, a stop from the delegate,
// a family with no generator, and the caller's constants. What a script
// shows (errors with their lines, code made or not) is in tests/e2e.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/Compiler.h"
#include "frontend/CompileFixture.h"

namespace {

class FailureRecorder : public RecordingDelegate {
public:
  void CompilerFailed(string message) override { failures.push_back(message.CString()); }
  std::vector<std::string> failures;
};

TEST(SyntaxFilter, PassesSyntaxErrorsOnly) {
  FailureRecorder target;
  SyntaxFilterDelegate filter(&target);
  filter.CompilerError(CompileError(SyntaxError, SourceLocation(4)));
  EXPECT_FALSE(filter.CompilerError(CompileError(MissingThen, SourceLocation(6))));
  EXPECT_EQ(DescribeErrors(target.errors), " SyntaxError@4");
  // Progress and failures go through as they are.
  target.stopAtPoll = 1;
  EXPECT_TRUE(filter.CompilerFrontendProgress(3, 9));
  EXPECT_EQ(target.lastLine, 3);
  filter.CompilerFailed(string("why"));
  EXPECT_EQ(target.failures, std::vector<std::string>{"why"});
  // With nowhere to forward to, nothing is reported and nothing stops.
  SyntaxFilterDelegate lonely(nullptr);
  EXPECT_FALSE(lonely.CompilerError(CompileError(SyntaxError, SourceLocation(1))));
  EXPECT_FALSE(lonely.CompilerFrontendProgress(1, 2));
}

// A stop from the delegate ends the parse at the next poll; without a
// delegate the first error does.
TEST(CompilerDriver, AStopEndsTheParse) {
  std::string text;
  for (int i = 0; i < 50; i++) text += "If True\nEnd If\n";
  RecordingDelegate delegate;
  delegate.stopAtPoll = 2;
  Compiler compiler;
  compiler.targetFamily = kTargetIA32;
  compiler.SetDelegate(&delegate);
  EXPECT_FALSE(compiler.Compile(text.c_str()));
  EXPECT_EQ(delegate.polls, 2);
  EXPECT_EQ(delegate.lastTotal, 100);  // the lines of the text
  EXPECT_LT(delegate.errors.size(), 50u);

  Compiler alone;
  alone.targetFamily = kTargetIA32;
  EXPECT_FALSE(alone.Compile("If True\nEnd If\nIf True\nEnd If\n"));
}

TEST(CompilerDriver, TheUnbuiltPowerPCFamilyFailsPlainly) {
  FailureRecorder delegate;
  Compiler compiler;
  compiler.targetFamily = kTargetPowerPC;
  compiler.SetDelegate(&delegate);
  EXPECT_FALSE(compiler.Compile("Dim a As Integer\n"));
  EXPECT_EQ(delegate.failures.size(), 1u);
  EXPECT_TRUE(delegate.errors.empty());
}

TEST(CompilerDriver, CallerConstantsBecomeBooleanConstantsOfTheRoot) {
  ModuleDeclaration* prefix = new ModuleDeclaration;
  prefix->Lock();
  {
    Compiler compiler;
    compiler.targetFamily = kTargetIA32;
    compiler.constants.AddEntry(string("TargetLinux"), true);
    compiler.constants.AddEntry(string("DebugBuild"), false);
    compiler.SetPrefix(prefix);
    compiler.Compile("Dim a As Integer\n");
  }
  ConstantDeclaration* on = prefix->LookupConstant(string("targetlinux"));
  ConstantDeclaration* off = prefix->LookupConstant(string("DEBUGBUILD"));
  ASSERT_NE(on, nullptr);
  ASSERT_NE(off, nullptr);
  EXPECT_EQ(on->GetType().GetMainType(), kTypeBoolean);
  EXPECT_EQ(on->GetValue().sint32, 1);
  EXPECT_EQ(off->GetValue().sint32, 0);
  EXPECT_EQ(prefix->CountConstants(), 2u);
  prefix->Unlock();
}

}  // namespace
