// Shared by the front end's and the semantic model's tests: a compilation
// context for the length of one test, current as gContext, with a delegate
// that records what is reported into it. The context, the lexer and the
// mined trees are put away after the test, so that no later test reaches a
// deleted one.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diag/CompilerDelegate.h"
#include "frontend/Miner.h"
#include "diag/CompileError.h"
#include "frontend/CompileScope.h"
#include "frontend/SrcContext.h"
#include "frontend/Lexer.h"
#include "semantic/DeclarationTable.h"

struct ReportedError {
  CompileErrorCode code;
  int line;
};

// Answers the progress poll with "stop" from poll number stopAtPoll on
// (0: never), and lets every error go on.
class RecordingDelegate : public CompilerDelegate {
public:
  bool CompilerFrontendProgress(int line, int total) override {
    ++polls;
    lastLine = line;
    lastTotal = total;
    return stopAtPoll > 0 && polls >= stopAtPoll;
  }
  bool CompilerError(CompileError error) override {
    errors.push_back({error.Type(), error.Location().startLine});
    return false;
  }

  std::vector<ReportedError> errors;
  int polls = 0, lastLine = -1, lastTotal = -1;
  int stopAtPoll = 0;
};

// "Name@line" for each error, for failure messages.
inline std::string DescribeErrors(std::vector<ReportedError> const& errors) {
  std::string text;
  for (ReportedError const& e : errors) {
    char const* name = CompileErrorName(e.code);
    text += std::string(" ") + (name ? name : "?") + "@" + std::to_string(e.line);
  }
  return text;
}

class CompileFixture : public ::testing::Test {
protected:
  void SetUp() override {
    mContext->delegate = &mDelegate;
    InitLexer("");  // new semantic values take the lexer's line
  }

  void TearDown() override {
    for (ModuleDeclaration* m : mModules) {
      m->Unlink();
      delete m;
    }
  }

  // The declarations of `text`, mined as a compilation does.
  ModuleDeclaration* Mine(char const* text) {
    mFailed = false;
    ModuleDeclaration* m = ExtractDeclarations(text, mFailed, nullptr);
    mModules.push_back(m);
    return m;
  }

  std::string Errors() const { return DescribeErrors(mDelegate.errors); }

  std::vector<int> ErrorCodes() const {
    std::vector<int> codes;
    for (ReportedError const& e : mDelegate.errors) codes.push_back(e.code);
    return codes;
  }

  // A name as the grammar hands it on, typed, at line 7.
  static Ref<SemBase> Ident(char const* name, IRDataType type = IRDataType(kTypeInteger)) {
    Ref<SemBase> identifier = SemIdentifier::New(string(name), SourceLocation(7));
    identifier->SetType(type);
    return identifier;
  }

  // The class or method, or a test failure.
  static ClassDeclaration* Class(ModuleDeclaration* m, char const* name) {
    ClassDeclaration* c = m->LookupClass(name);
    EXPECT_NE(c, nullptr) << "class " << name;
    return c;
  }
  static FunctionDeclaration* Method(FunctionDeclarationListOwner* owner, char const* mangled) {
    FunctionDeclaration* f = owner->LookupMethod(mangled);
    EXPECT_NE(f, nullptr) << "method " << mangled;
    return f;
  }

  CompileScope mScope;
  SrcContext* mContext = mScope.Context();
  RecordingDelegate mDelegate;
  bool mFailed = false;
  std::vector<ModuleDeclaration*> mModules;
};

inline std::string Text(string const& s) { return std::string(s.CString(), (size_t)s.Length()); }
