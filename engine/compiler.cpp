#include "engine/compiler.h"

#include "backend/CGIA32.h"
#include "backend/DebuggerSymbols.h"
#include "backend/TacPrinter.h"
#include "backend/codestorage.h"
#include "frontend/CompileScope.h"
#include "frontend/Miner.h"
#include "frontend/Parser.h"
#include "frontend/ParserError.h"
#include "frontend/SrcContext.h"
#include "frontend/lexer.h"
#include "semantic/DeclarationTable.h"
#include "semantic/InterRep.h"

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

Compiler::Compiler() : intrinsics(kIntrinsicCount), targetFamily(-1) {}

// Members go in reverse order of declaration: the debug reference, the
// constants map, then the intrinsic names.
Compiler::~Compiler() = default;

Ref<CodeModule> Compiler::Compile(char const* source) {
  Ref<CodeModule> result;
  CompileScope scope;
  SrcContext* context = scope.Context();
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
  int status = yyparse() | (context->hadError ? 1 : 0);
  // Debug information is only worth copying from a text that parsed
  // cleanly; the copy lands with the debugger's symbol tables.
  // The whole program's three-address code, whatever the status.
  TacBlock* block = context->program ? context->program->Code() : nullptr;
  if (status == 0 && block && listing)
    *listing = ListTacBlock(*block);
  if (status == 0 && block)
    result = GenerateCode(context, block);
  // A root module that the miner made for want of a prefix belongs to this
  // compilation; a prefix stays with the caller.
  if (!mPrefix && context->rootModule) {
    context->rootModule->Unlink();
    delete context->rootModule;
    context->rootModule = nullptr;
  }
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
