// The compiler driver: turns one source text into a CodeModule by running
// the passes in their order (miner, parser, code generator), and reports
// errors and progress through a CompilerDelegate. It knows nothing of hosts,
// events or linking.
//
// The lexer, the parser's globals and gContext are process-wide: each
// Compile holds them through a CompileScope for its length, so a compile
// may start inside another (from the outer one's error report) and leaves
// nothing behind that points into it. One thread compiles.
#pragma once

#include <cstdint>

#include "backend/CodeGenerator.h"
#include "diag/CompilerDelegate.h"
#include "frontend/LanguageOptions.h"
#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "foundation/StringMap.h"
#include "foundation/String.h"
#include "ir/Intrinsics.h"

class CodeModule;
class DebuggerSymbols;
class ModuleDeclaration;
class SrcContext;
class TacBlock;

// Target processor families of the code generators.
enum TargetFamily : int32_t { kTargetPowerPC = 0, kTargetIA32 = 1 };

// Forwards everything to another delegate but compile errors, of which only
// syntax errors pass. Used when the miner found the block structure broken:
// the declarations are then incomplete and any other error would only echo
// the same fault.
class SyntaxFilterDelegate : public CompilerDelegate {
public:
  explicit SyntaxFilterDelegate(CompilerDelegate* forward) : mForward(forward) {}
  void SetForward(CompilerDelegate* forward) { mForward = forward; }

  bool CompilerFrontendProgress(int current, int total) override;
  bool CompilerOptimizerProgress(int current, int total) override;
  bool CompilerBackendProgress(int current, int total) override;
  bool CompilerError(CompileError error) override;
  void CompilerFailed(string message) override;

private:
  CompilerDelegate* mForward;
};

class Compiler {
public:
  Compiler();
  ~Compiler();
  Compiler(Compiler const&) = delete;
  Compiler& operator=(Compiler const&) = delete;

  void SetDelegate(CompilerDelegate* delegate) { mDelegate = delegate; }
  // The module the source's declarations are merged into; not owned.
  void SetPrefix(ModuleDeclaration* prefix) { mPrefix = prefix; }

  // `source` must be NUL-terminated and stay valid during the call. A null
  // result means the compilation failed or was stopped; the errors have
  // gone to the delegate.
  Ref<CodeModule> Compile(char const* source);

  LanguageOptions options;
  // Link names of the intrinsic functions, by intrinsic number.
  SimpleVector<string> intrinsics;
  // Must be set by the caller: the constructor leaves it unset.
  int32_t targetFamily;
  CGPPCOptions ppcOptions;
  CGIA32Options ia32Options;
  // Named boolean compile-time constants given by the caller.
  StringMap<bool> constants;
  // When set, receives the listing of the program's three-address code of
  // a clean parse, for users who ask to see what their script compiles to.
  string* listing = nullptr;

private:
  void AddCallerConstants(ModuleDeclaration* root);
  Ref<CodeModule> GenerateCode(SrcContext* context, TacBlock* block);

  CompilerDelegate* mDelegate = nullptr;
  ModuleDeclaration* mPrefix = nullptr;

public:
  // Null means that no debug information is wanted.
  Ref<DebuggerSymbols> debugSymbols;
};
