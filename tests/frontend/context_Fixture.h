// Shared by the compilation context's tests: a context that stays alive
// after its parse, so that a test can read what the grammar's routines left
// in it (options, symbol tables, the program's code), together with the
// errors reported and the trace of the placeholder routines.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frontend/CompileScope.h"
#include "frontend/Miner.h"
#include "frontend/Modules.h"
#include "semantic/DeclarationTable.h"
#include "tests/frontend/grammar_ParseFixture.h"

class ContextFixture : public ::testing::Test {
protected:
  void SetUp() override {
    mContext->delegate = &mDelegate;
    RoutineTrace::Current() = &mTrace;
    gRoutineTraceHook = &RoutineTrace::Hook;
  }

  void TearDown() override {
    gRoutineTraceHook = nullptr;
    RoutineTrace::Current() = nullptr;
    if (mContext->rootModule) {
      mContext->rootModule->Unlink();
      delete mContext->rootModule;
    }
  }

  // Parses `text` in this fixture's context; with `mine`, the miner reads
  // it first, as a compilation does, so that its classes and modules exist.
  int Parse(char const* text, bool mine = false) {
    if (mine) Mine(text);
    InitLexer(text);
    return yyparse();
  }

  // The declarations of `text` become the context's root module.
  void Mine(char const* text) {
    bool broken = false;
    mContext->rootModule = ExtractDeclarations(text, broken, nullptr);
    EXPECT_FALSE(broken);
  }

  // The names assigned to by statements that reached the grammar's
  // routines, in order: "a = 1" shows as "a".
  std::string AssignedNames() const {
    std::string names;
    for (std::string const& call : mTrace.calls) {
      if (call.rfind("CompileLookup(", 0) != 0 || call.find("; 1, ") == std::string::npos) continue;
      size_t from = sizeof("CompileLookup(") - 1;
      names += (names.empty() ? "" : " ") + call.substr(from, call.find(',') - from);
    }
    return names;
  }

  std::string Errors() const {
    ParseOutcome outcome;
    outcome.result = 0;
    outcome.errors = mDelegate.errors;
    return outcome.Describe();
  }

  int LineOf(CompileErrorCode code) const {
    for (ReportedError const& e : mDelegate.errors)
      if (e.code == code) return e.line;
    return -2;
  }

  // The user-visible symbols of table `at`, as "name:type@offset" items; an
  // array's type shows its dimensions: "Integer()2".
  std::string Symbols(unsigned long at) const {
    std::string text;
    SymbolTableIterator it(mContext->tables->GetTable(at));
    while (it.Next()) {
      SymbolID s = it.Value();
      if (!s.UserVisible()) continue;
      IRDataType type = s.GetType();
      std::string dims = type.GetMainType() == kTypeArray ? std::to_string(type.GetDimensions()) : "";
      text += (text.empty() ? "" : " ") + std::string(s.Name().CString()) + ":" + type.ToString().CString() + dims +
              "@" + std::to_string(s.StorageOffset());
    }
    return text;
  }

  CompileScope mScope;
  SrcContext* mContext = mScope.Context();
  RecordingDelegate mDelegate;
  RoutineTrace mTrace;
};
