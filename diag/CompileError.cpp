// The error routines: every compile error passes here on its way to the
// delegate, and the context's flag remembers it even when no one listens.
#include "diag/CompileError.h"

#include "diag/CompilerDelegate.h"
#include "foundation/KvAssert.h"

CompileErrorSink* gErrorSink = nullptr;

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
  KV_ASSERT(gErrorSink);
  if (!gErrorSink) return;
  gErrorSink->hadError = true;
  if (gErrorSink->delegate) gErrorSink->delegate->CompilerError(error);
}

}  // namespace

char const* CompileErrorName(CompileErrorCode code) {
  for (CompileErrorEntry const& e : kCompileErrors)
    if (e.code == code) return e.name;
  return nullptr;
}

int CompileErrorCount() { return (int)(sizeof(kCompileErrors) / sizeof(kCompileErrors[0])); }

int CurrentSourceLine() { return gErrorSink ? gErrorSink->CurrentLine() : -1; }

void Error(CompileErrorCode code) {
  Error(code, SourceLocation(CurrentSourceLine()));
}

void Error(CompileErrorCode code, SourceLocation const& where) {
  Report(CompileError(code, where));
}

void Error(CompileErrorCode code, SourceLocation const& where, SimpleVector<string> params) {
  Report(CompileError(code, where, params));
}
