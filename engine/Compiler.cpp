#include "engine/Compiler.h"

#include "backend/CGIA32.h"
#include "backend/DebuggerSymbols.h"
#include "backend/CodeStorage.h"
#include "frontend/CompileScope.h"
#include "ir/TacPrinter.h"
#include "frontend/Miner.h"
#include "codebuild/Directives.h"
#include "grammar/Parser.h"
#include "diag/CompileError.h"
#include "frontend/SrcContext.h"
#include "frontend/Lexer.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolTable.h"

bool SyntaxFilterDelegate::CompilerFrontendProgress(int current, int total) {
  return mForward && mForward->CompilerFrontendProgress(current, total);
}

bool SyntaxFilterDelegate::CompilerOptimizerProgress(int current, int total) {
  return mForward && mForward->CompilerOptimizerProgress(current, total);
}

bool SyntaxFilterDelegate::CompilerBackendProgress(int current, int total) {
  return mForward && mForward->CompilerBackendProgress(current, total);
}

bool SyntaxFilterDelegate::CompilerError(CompileError error) {
  if (error.Type() != SyntaxError || !mForward)
    return false;
  return mForward->CompilerError(error);
}

void SyntaxFilterDelegate::CompilerFailed(string message) {
  if (mForward)
    mForward->CompilerFailed(message);
}

Compiler::Compiler() : intrinsics(kIntrinsicFunctionCount), targetFamily(-1) {}

// Members go in reverse order of declaration: the debug reference, the
// constants map, then the intrinsic names.
Compiler::~Compiler() = default;

namespace {

// A root module that the miner made for want of a prefix belongs to the
// compilation, and goes with it however it ends, an allocation failure
// unwinding through it included; a prefix stays with the caller.
struct RootModuleGuard {
  SrcContext* context;
  bool owned;

  ~RootModuleGuard() {
    if (!owned || !context->rootModule) return;
    context->rootModule->Unlink();
    delete context->rootModule;
    context->rootModule = nullptr;
  }
};

}  // namespace

Ref<CodeModule> Compiler::Compile(char const* source) {
  Ref<CodeModule> result;
  CompileScope scope;
  SrcContext* context = scope.Context();
  // Declared after the scope, so it runs before the scope deletes the context.
  RootModuleGuard root{context, mPrefix == nullptr};
  context->options = options;
  context->options.debug = debugSymbols ? 1 : 0;

  // The miner reads the declarations first, so that the parser can use a
  // method or class that stands further down the text.
  bool brokenBlocks = false;
  context->rootModule = ExtractDeclarations(source, brokenBlocks, mPrefix);
  SyntaxFilterDelegate filter(mDelegate);
  context->delegate = brokenBlocks ? &filter : mDelegate;
  context->debugSymbols = debugSymbols;
  AddCallerConstants(context->rootModule);

  InitLexer(source);
  int status = yyparse();
  // Only a parse that reached the end of the text knows which blocks stay open.
  if (status == 0) ReportOpenConditionals();
  status |= context->hadError ? 1 : 0;
  // Debug information is only worth copying from a text that parsed
  // cleanly; the copy lands with the debugger's symbol tables.
  // The whole program's three-address code, whatever the status.
  TacBlock* block = context->program ? context->program->Code() : nullptr;
  if (status == 0 && block && listing)
    *listing = ListTacBlock(*block);
  if (status == 0 && block)
    result = GenerateCode(context, block);
  return result;
}

void Compiler::AddCallerConstants(ModuleDeclaration* root) {
  if (!root)
    return;
  StringMapIterator<bool>* it = constants.NewIterator();
  bool value;
  while (it->Next(value)) {
    ConstantDeclaration* constant = ConstantDeclaration::New();
    constant->SetName(it->Key());
    constant->SetType(IRDataType(kTypeBoolean));
    constant->SetScope(ScopedDeclaration::kScopePublic);
    constant->SetValue(IRValue::SInt32(value ? 1 : 0));
    root->AddConstant(constant);
  }
  delete it;
}

Ref<CodeModule> Compiler::GenerateCode(SrcContext* context, TacBlock* block) {
  if (targetFamily != kTargetIA32) {
    // The PowerPC generator is not part of this build.
    if (mDelegate)
      mDelegate->CompilerFailed(string("no code generator for this target family"));
    return Ref<CodeModule>();
  }
  CGIA32 generator;
  generator.Configure(ia32Options, intrinsics);
  // The real delegate, never the syntax filter: the back end's errors count.
  generator.SetDelegate(mDelegate);
  generator.SetDebug(debugSymbols);
  return generator.Generate(block, context->tables);
}
