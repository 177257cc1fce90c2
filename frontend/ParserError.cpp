// The error routines: every compile error passes here on its way to the
// delegate, and the context's flag remembers it even when no one listens.
#include "frontend/ParserError.h"

#include <cstring>

#include "engine/CompilerDelegate.h"
#include "foundation/kvassert.h"
#include "frontend/SrcContext.h"
#include "frontend/lexer.h"

namespace {

struct CompileErrorEntry {
  CompileErrorCode code;
  char const* name;
};

constexpr CompileErrorEntry kCompileErrors[] = {
#define KV_ERROR_ENTRY(name, value) {name, #name},
    KV_COMPILE_ERRORS(KV_ERROR_ENTRY)
#undef KV_ERROR_ENTRY
};

void Report(CompileError const& error) {
  KV_ASSERT(gContext);
  if (!gContext) return;
  gContext->hadError = true;
  if (gContext->delegate) gContext->delegate->CompilerError(error);
}

}  // namespace

char const* CompileErrorName(CompileErrorCode code) {
  for (CompileErrorEntry const& e : kCompileErrors)
    if (e.code == code) return e.name;
  return nullptr;
}

int CompileErrorCount() { return (int)(sizeof(kCompileErrors) / sizeof(kCompileErrors[0])); }

void Error(CompileErrorCode code) {
  Error(code, SourceLocation(current_line()));
}

void Error(CompileErrorCode code, SourceLocation const& where) {
  Report(CompileError(code, where));
}

void Error(CompileErrorCode code, SourceLocation const& where, SimpleVector<string> params) {
  Report(CompileError(code, where, params));
}

void yyerror(char const* message) {
  bool overflow = message && strcmp(message, "parser stack overflow") == 0;
  Error(overflow ? ParserStackOverflow : SyntaxError, SourceLocation(current_line()));
}

bool CheckDelegate() {
  KV_ASSERT(gContext);
  if (!gContext) return true;
  if (gContext->delegate)
    return gContext->delegate->CompilerFrontendProgress(current_line(), total_lines());
  return gContext->hadError;
}
