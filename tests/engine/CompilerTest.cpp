// The compiler driver: the order of its passes as seen from outside, the
// filter that a broken block structure puts in front of the delegate, the
// caller's constants, and the road of an error from inside Compile to the
// host's CompilerError event.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/HostedFixture.h"
#include "backend/CodeStorage.h"
#include "engine/KVScript.h"
#include "engine/KVScriptInterface.h"
#include "engine/Compiler.h"
#include "diag/CompileError.h"
#include "semantic/DeclarationTable.h"

namespace {

struct Report {
  int code;
  int line;
};

// Records every call, and answers progress with a stop after `stopAfter` polls.
class RecordingDelegate : public CompilerDelegate {
public:
  bool CompilerFrontendProgress(int current, int total) override {
    polls.push_back({current, total});
    return stopAfter >= 0 && (int)polls.size() > stopAfter;
  }
  bool CompilerError(CompileError error) override {
    errors.push_back({(int)error.Type(), (int)error.Location().startLine});
    return true;
  }
  void CompilerFailed(string message) override { failures.push_back(message.CString()); }

  int stopAfter = -1;
  std::vector<std::pair<int, int>> polls;
  std::vector<Report> errors;
  std::vector<std::string> failures;
};

std::vector<Report> CompileErrors(char const* source, ModuleDeclaration* prefix = nullptr) {
  RecordingDelegate delegate;
  Compiler compiler;
  compiler.targetFamily = kTargetIA32;
  compiler.SetDelegate(&delegate);
  compiler.SetPrefix(prefix);
  Ref<CodeModule> module = compiler.Compile(source);
  EXPECT_FALSE(module && !delegate.errors.empty()) << "code made despite errors";
  return delegate.errors;
}


TEST(SyntaxFilter, PassesSyntaxErrorsOnly) {
  RecordingDelegate target;
  SyntaxFilterDelegate filter(&target);
  EXPECT_TRUE(filter.CompilerError(CompileError(SyntaxError, SourceLocation(4))));
  EXPECT_FALSE(filter.CompilerError(CompileError(UnknownName, SourceLocation(5))));
  EXPECT_FALSE(filter.CompilerError(CompileError(MissingThen, SourceLocation(6))));
  ASSERT_EQ(target.errors.size(), 1u);
  EXPECT_EQ(target.errors[0].code, (int)SyntaxError);
  EXPECT_EQ(target.errors[0].line, 4);
  // Progress and failures go through as they are.
  target.stopAfter = 0;
  EXPECT_TRUE(filter.CompilerFrontendProgress(3, 9));
  ASSERT_EQ(target.polls.size(), 1u);
  EXPECT_EQ(target.polls[0], std::make_pair(3, 9));
  filter.CompilerFailed(string("why"));
  EXPECT_EQ(target.failures, std::vector<std::string>{"why"});
  // With nowhere to forward to, nothing is reported and nothing stops.
  SyntaxFilterDelegate lonely(nullptr);
  EXPECT_FALSE(lonely.CompilerError(CompileError(SyntaxError, SourceLocation(1))));
  EXPECT_FALSE(lonely.CompilerFrontendProgress(1, 2));
}

TEST(CompilerDriver, ConstructorPreparesTheIntrinsicList) {
  Compiler compiler;
  EXPECT_EQ(compiler.intrinsics.size(), (unsigned long)kIntrinsicFunctionCount);
  EXPECT_EQ(compiler.intrinsics[0].Storage(), nullptr);
  EXPECT_EQ(compiler.options.boundsChecking, 1);
  EXPECT_EQ(compiler.options.debug, 0);
}

TEST(CompilerDriver, ASyntaxErrorStopsTheParseAtItsLine) {
  auto errors = CompileErrors("Dim a As Integer\nx = \nIf a Then\n");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].code, (int)SyntaxError);
  EXPECT_EQ(errors[0].line, 1);
}

TEST(CompilerDriver, SemanticErrorsDoNotStopTheParse) {
  // Both missing Thens are reported, in source order.
  auto errors = CompileErrors("Dim a As Boolean\nIf a\nEnd If\nIf a\nEnd If\n");
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0].code, (int)MissingThen);
  EXPECT_EQ(errors[0].line, 1);
  EXPECT_EQ(errors[1].code, (int)MissingThen);
  EXPECT_EQ(errors[1].line, 3);
}

TEST(CompilerDriver, BrokenBlockStructureLetsOnlySyntaxErrorsThrough) {
  // The Sub never ends: the miner flags the text, so the missing Then inside
  // it is swallowed and only the syntax error at the end arrives.
  auto errors = CompileErrors("Sub Main()\n  If True\n  End If\n");
  for (Report const& r : errors)
    EXPECT_EQ(r.code, (int)SyntaxError) << "line " << r.line;
  EXPECT_FALSE(errors.empty());
  // The same fault in a well-formed text is reported.
  auto whole = CompileErrors("Sub Main()\n  If True\n  End If\nEnd Sub\n");
  ASSERT_EQ(whole.size(), 1u);
  EXPECT_EQ(whole[0].code, (int)MissingThen);
}

TEST(CompilerDriver, AStopFromTheDelegateEndsTheParse) {
  std::string text;
  for (int i = 0; i < 50; i++)
    text += "If True\nEnd If\n";
  RecordingDelegate delegate;
  delegate.stopAfter = 1;
  Compiler compiler;
  compiler.targetFamily = kTargetIA32;
  compiler.SetDelegate(&delegate);
  EXPECT_FALSE(compiler.Compile(text.c_str()));
  EXPECT_EQ(delegate.polls.size(), 2u);
  EXPECT_LT(delegate.errors.size(), 50u);
  ASSERT_FALSE(delegate.polls.empty());
  EXPECT_EQ(delegate.polls[0].second, 100);  // total lines of the text
}

TEST(CompilerDriver, WithoutADelegateTheFirstErrorStopsAtTheNextPoll) {
  Compiler compiler;
  compiler.targetFamily = kTargetIA32;
  EXPECT_FALSE(compiler.Compile("If True\nEnd If\nIf True\nEnd If\n"));
}

TEST(CompilerDriver, ACleanParseIsGeneratedForIA32) {
  RecordingDelegate delegate;
  Compiler compiler;
  compiler.targetFamily = kTargetIA32;
  compiler.SetDelegate(&delegate);
  Ref<CodeModule> module = compiler.Compile("Dim a As Integer\nSub Main()\nEnd Sub\n");
  ASSERT_TRUE(module);
  EXPECT_TRUE(delegate.errors.empty());
  EXPECT_EQ(module->family, CodeModule::kFamilyIA32);
  EXPECT_GE(module->functions.size(), 1u);
}

TEST(CompilerDriver, OneSemanticErrorSkipsCodeGeneration) {
  RecordingDelegate delegate;
  Compiler compiler;
  compiler.targetFamily = kTargetIA32;
  compiler.SetDelegate(&delegate);
  EXPECT_FALSE(compiler.Compile("Dim a As Boolean\nIf a\nEnd If\n"));
  EXPECT_EQ(delegate.errors.size(), 1u);
}

TEST(CompilerDriver, TheUnbuiltPowerPCFamilyFailsPlainly) {
  RecordingDelegate delegate;
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

TEST(CompilerDriver, NoConstantsAddNothing) {
  ModuleDeclaration* prefix = new ModuleDeclaration;
  prefix->Lock();
  {
    Compiler compiler;
    compiler.targetFamily = kTargetIA32;
    compiler.SetPrefix(prefix);
    compiler.Compile("");
  }
  EXPECT_EQ(prefix->CountConstants(), 0u);
  prefix->Unlock();
}

// ---------------------------------------------------------------------------
// From Compile to the host's event

std::vector<std::pair<long, long>> sHostReports;  // line, error number

void OnCompilerError(VELDobjectStruct*, long line, long number, VELDstringStruct*) {
  sHostReports.push_back({line, number});
}

class CompileThroughHost : public HostedTest {};

TEST_F(CompileThroughHost, ASyntaxErrorReachesTheCompilerErrorEvent) {
  sHostReports.clear();
  VELDobjectStruct* script = VELDnewInstance("KvScript");
  ASSERT_NE(script, nullptr);
  ASSERT_TRUE(StandInSetEventHandler(script, "CompilerError", reinterpret_cast<void*>(&OnCompilerError)));
  VELDstringStruct* source = StandInString("Dim a As Integer\n\na = (1 +\n", kEncodingUTF8);
  ASSERT_TRUE(StandInSetStringProperty(script, "Source", source));
  VELDUnlockString(source);
  ASSERT_TRUE(StandInCallMethod(script, "Precompile"));
  ASSERT_EQ(sHostReports.size(), 1u);
  EXPECT_EQ(sHostReports[0].first, 2);  // lines count from 0 inside the engine
  EXPECT_EQ(sHostReports[0].second, (long)SyntaxError);
  long state = -1;
  ASSERT_TRUE(StandInGetIntegerProperty(script, "State", &state));
  EXPECT_EQ(state, 3);
  // A Run compiles again and reports the same error again.
  ASSERT_TRUE(StandInCallMethod(script, "Run"));
  EXPECT_EQ(sHostReports.size(), 2u);
  ASSERT_TRUE(StandInGetIntegerProperty(script, "State", &state));
  EXPECT_EQ(state, 3);
  VELDUnlockObject(script);
}

TEST_F(CompileThroughHost, AnErrorWithoutAHandlerStillSetsTheState) {
  VELDobjectStruct* script = VELDnewInstance("KvScript");
  VELDstringStruct* source = StandInString("If\n", kEncodingUTF8);
  ASSERT_TRUE(StandInSetStringProperty(script, "Source", source));
  VELDUnlockString(source);
  ASSERT_TRUE(StandInCallMethod(script, "Precompile"));
  long state = -1;
  ASSERT_TRUE(StandInGetIntegerProperty(script, "State", &state));
  EXPECT_EQ(state, 3);
  VELDUnlockObject(script);
}

}  // namespace

namespace {

class RunThroughHost : public HostedTest {};

TEST_F(RunThroughHost, EmptyAndDeclarationOnlyScriptsRunAsNativeCode) {
  char const* const sources[] = {
      "",
      "' only a comment\n",
      "Const kLimit = 3\nDim a As Integer\nSub Main()\nEnd Sub\nFunction F(x As Integer) As Integer\nEnd Function\n",
  };
  for (char const* text : sources) {
    sHostReports.clear();
    VELDobjectStruct* script = VELDnewInstance("KvScript");
    ASSERT_TRUE(StandInSetEventHandler(script, "CompilerError", reinterpret_cast<void*>(&OnCompilerError)));
    VELDstringStruct* source = StandInString(text, kEncodingUTF8);
    ASSERT_TRUE(StandInSetStringProperty(script, "Source", source));
    VELDUnlockString(source);
    KVInterpreter* engine = KvScriptDataOf(script)->interpreter;
    for (int run = 0; run < 2; run++) {
      ASSERT_TRUE(StandInCallMethod(script, "Run"));
      long state = -1;
      ASSERT_TRUE(StandInGetIntegerProperty(script, "State", &state));
      EXPECT_EQ(state, 2) << text;
      EXPECT_NE(engine->Code(), nullptr) << "linked image kept: " << text;
    }
    EXPECT_TRUE(sHostReports.empty()) << text;
    VELDUnlockObject(script);
  }
}

}  // namespace
