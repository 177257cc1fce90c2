// Shared by the miner's tests: mines a text inside a compilation context
// (the lexer's literals need a pool) and lets the tree go afterwards.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frontend/CompileScope.h"
#include "frontend/Miner.h"
#include "frontend/SrcContext.h"
#include "frontend/lexer.h"
#include "semantic/SemBase.h"

class MinerFixture : public ::testing::Test {
protected:
  void TearDown() override {
    for (ModuleDeclaration* m : mModules) {
      m->Unlink();
      delete m;
    }
  }

  ModuleDeclaration* Mine(char const* source) {
    mFailed = false;
    ModuleDeclaration* m = ExtractDeclarations(source, mFailed, nullptr);
    mModules.push_back(m);
    return m;
  }

  // The class, or a test failure.
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

  static std::vector<std::string> MethodNames(FunctionDeclarationListOwner* owner) {
    std::vector<std::string> out;
    for (unsigned int i = 0; i < owner->CountMethods(); ++i) out.push_back(owner->GetMethod(i)->GetName().CString());
    return out;
  }

  CompileScope mScope;
  bool mFailed = false;
  std::vector<ModuleDeclaration*> mModules;
};
