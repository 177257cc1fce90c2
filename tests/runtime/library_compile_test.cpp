// Compiled scripts against the library: the compiler given the intrinsic
// list and the prefix module, its module linked against the function table.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "backend/CodeStorage.h"
#include "backend/MiniLinker.h"
#include "engine/KVScriptInterface.h"
#include "engine/Compiler.h"
#include "diag/CompileError.h"
#include "ir/Intrinsics.h"
#include "runtime/KVScriptIntrinsics.h"
#include "semantic/ScriptLibrary.h"
#include "semantic/DeclarationTable.h"

namespace {

class Errors : public CompilerDelegate {
public:
  bool CompilerError(CompileError error) override {
    codes.push_back(error.Type());
    return true;
  }
  std::vector<int> codes;
};

class Silent : public KvScriptCorrespondent {};

class LibraryCompile : public ::testing::Test {
protected:
  void SetUp() override {
    prefix = MakeKvScriptRuntimeDeclarations();
    prefix->Lock();
  }
  void TearDown() override {
    prefix->Unlink();
    prefix->Unlock();
  }

  std::unique_ptr<RunReadyCode> CompileAndLink(char const* source) {
    Compiler compiler;
    compiler.intrinsics = IntrinsicFunctionNames();
    compiler.targetFamily = kTargetIA32;
    compiler.SetPrefix(prefix);
    compiler.SetDelegate(&errors);
    Ref<CodeModule> module = compiler.Compile(source);
    if (!module) return nullptr;
    StringMap<void*>* table = MakeKvScriptRuntimeFunctionTable();
    std::unique_ptr<RunReadyCode> image(MiniLink(module, table, &errors));
    delete table;
    return image;
  }

  ModuleDeclaration* prefix = nullptr;
  Errors errors;
};

// Every import of the code around a program (start, exit, the globals)
// resolves, and the image runs, twice, from its first byte.
TEST_F(LibraryCompile, AProgramLinksAgainstTheLibraryAndRuns) {
  std::unique_ptr<RunReadyCode> image =
      CompileAndLink("Dim greeting As String\ngreeting = \"Hello, world\"\nPrint greeting\n");
  EXPECT_TRUE(errors.codes.empty());
  ASSERT_NE(image, nullptr);
  ASSERT_NE(image->CodeAddress(), nullptr);
  Silent listener;
  image->Run(&listener);
  image->Run(&listener);
}

}  // namespace
