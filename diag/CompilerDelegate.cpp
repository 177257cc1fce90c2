#include "diag/CompilerDelegate.h"

#include "diag/CompileError.h"

// A delegate that overrides nothing lets every pass run to its end and
// ignores what it is told.
bool CompilerDelegate::CompilerFrontendProgress(int, int) { return false; }
bool CompilerDelegate::CompilerOptimizerProgress(int, int) { return false; }
bool CompilerDelegate::CompilerBackendProgress(int, int) { return false; }
bool CompilerDelegate::CompilerError(CompileError) { return false; }
void CompilerDelegate::CompilerFailed(string) {}
