// Name lookup: a bare name, and `left.name`. `args` holds the subscripts or
// arguments, `value` the right side of an assignment (null when the name is
// read); `defaultError` is raised for an unknown name (kNoCompileError:
// none).
#pragma once

#include "diag/CompileError.h"
#include "foundation/Ref.h"
#include "semantic/SemBase.h"

enum FunctionResultMode : int {
  kResultNeeded = 0,     // an expression: a Sub is NoResultValue
  kResultStatement = 1,  // `foo args` or an assignment: a Function is ResultIgnored
  kResultCall = 2,       // `Call foo args`: both are allowed
};
Ref<SemBase> CompileLookup(Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                           CompileErrorCode defaultError, bool isCallStatement);
Ref<SemBase> CompileScopeLookup(Ref<SemBase> left, Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value,
                                FunctionResultMode mode);
