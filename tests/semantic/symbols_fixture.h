// A compilation context with fresh symbol tables for the length of one
// test, and a delegate that records the errors reported into it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/CompilerDelegate.h"
#include "frontend/CompileScope.h"
#include "frontend/ParserError.h"
#include "frontend/SrcContext.h"
#include "semantic/InterRep.h"
#include "semantic/SemBase.h"

class SymbolErrorRecorder : public CompilerDelegate {
public:
  bool CompilerError(CompileError error) override {
    errors.push_back(error);
    return false;
  }
  std::vector<CompileError> errors;
};

class SymbolsFixture : public ::testing::Test {
protected:
  void SetUp() override {
    mContext->delegate = &mErrors;
    ResetSymbolTables();
  }

  static Ref<SemBase> Ident(char const* name, IRDataType type = IRDataType(kTypeInteger)) {
    Ref<SemBase> identifier = SemIdentifier::New(string(name), SourceLocation(7));
    identifier->SetType(type);
    return identifier;
  }

  // The codes reported so far, in order.
  std::vector<int> ErrorCodes() const {
    std::vector<int> codes;
    for (CompileError const& e : mErrors.errors) codes.push_back((int)e.Type());
    return codes;
  }

  CompileScope mScope;
  SrcContext* mContext = mScope.Context();
  SymbolErrorRecorder mErrors;
};

inline std::string Text(string const& s) { return std::string(s.CString(), (size_t)s.Length()); }
