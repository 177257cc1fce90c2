// The sink through which a compilation reports progress and errors. A true
// answer to a progress call stops the pass that asked.
#pragma once

#include "foundation/String.h"

class CompileError;

class CompilerDelegate {
public:
  // Current line and total lines of the source; true stops the parse.
  virtual bool CompilerFrontendProgress(int current, int total);
  // No pass of this engine reports optimizer progress; kept for the interface.
  virtual bool CompilerOptimizerProgress(int current, int total);
  // Lines of three-address code done and in all; true stops code generation.
  virtual bool CompilerBackendProgress(int current, int total);
  virtual bool CompilerError(CompileError error);
  virtual void CompilerFailed(string message);

protected:
  // Delegates are never deleted through this base.
  ~CompilerDelegate() = default;
};
