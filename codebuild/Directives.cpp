#include "codebuild/Directives.h"

#include "diag/CompileError.h"
#include "foundation/KvAssert.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"

Ref<SemBase> CompilePragma(Ref<SemBase> word, Ref<SemBase> value) {
  if (!word || !gContext) return Ref<SemBase>();
  pragmas pragma = kPragmaDisableBoundsChecking;
  if (!PragmaTable()->GetEntry(word->toString(), pragma)) {
    Error(UnknownPragma, word->Location());
    return Ref<SemBase>();
  }
  // Only `True` turns an option on: a bare word turns it off.
  uint8_t on = value && value->IsConstant() && value->GetValue().sint32 != 0 ? 1 : 0;
  LanguageOptions& options = gContext->options;
  switch (pragma) {
    case kPragmaDisableBoundsChecking: options.boundsChecking = 0; break;
    case kPragmaDisableBackgroundTasks: options.backgroundTasks = 0; break;
    case kPragmaDisableAutoWaitCursor: options.autoWaitCursorDisabled = 1; break;
    case kPragmaBoundsChecking: options.boundsChecking = on; break;
    case kPragmaBackgroundTasks: options.backgroundTasks = on; break;
    case kPragmaStackOverflowChecking: options.stackOverflowChecking = on; break;
    case kPragmaNilObjectChecking: options.nilObjectChecking = on; break;
    case kPragmaDebug: options.debug = on; break;
    case kPragmaReset: ResetPragmas(); break;
    case kPragmaBindingPart:
    case kPragmaBindingSpecification: break;
  }
  return Ref<SemBase>();
}

// ---------------------------------------------------------------------------
// Conditional compilation

// A condition fit to choose a branch; reports why not otherwise. A null
// handle follows an error that has been reported already.
static bool UsableCondition(Ref<SemBase> condition) {
  if (!condition) return false;
  if (!condition->IsConstant()) {
    Error(ConditionalNotConstant, condition->Location());
    return false;
  }
  if (condition->GetType().GetMainType() == kTypeNull) {
    Error(ConditionalTypeless, condition->Location());
    return false;
  }
  return true;
}

// conditionalTaken holds one entry per open block, so that #elseif and
// #endif address their own block however deep it stands: whether one of its
// branches has been compiled. An unusable condition is reported and counts
// as true, so its lines are compiled and a later #elseif is skipped.
Ref<SemBase> CompileConditionalIf(Ref<SemBase> condition) {
  if (!gContext) return Ref<SemBase>();
  ++gContext->conditionalDepth;
  // The condition starts on the line of its `#if`; the lexer may stand on
  // the next line by now.
  gContext->conditionalLines.push_back(condition ? condition->Location().startLine : current_line());
  bool taken = !UsableCondition(condition) || condition->GetValue().sint32 != 0;
  gContext->conditionalTaken.push_back(taken);
  if (!taken) SkipConditionallyCompiledLines(false);
  return Ref<SemBase>();
}

Ref<SemBase> CompileConditionalElseIf(Ref<SemBase> condition) {
  if (!gContext) return Ref<SemBase>();
  if (gContext->conditionalDepth < 1) {
    Error(ConditionalElseWithoutIf);
    return Ref<SemBase>();
  }
  bool usable = UsableCondition(condition);
  SimpleVector<bool>& taken = gContext->conditionalTaken;
  unsigned long at = (unsigned long)gContext->conditionalDepth - 1;
  KV_ASSERT(at < taken.size());
  if (at >= taken.size()) return Ref<SemBase>();
  if (taken[at]) {
    SkipConditionallyCompiledLines(true);
  } else if (!usable || condition->GetValue().sint32 != 0) {
    taken[at] = true;
  } else {
    SkipConditionallyCompiledLines(false);
  }
  return Ref<SemBase>();
}

// Reaching this means that the branch above was compiled: the else branch
// is skipped.
Ref<SemBase> CompileConditionalElse() {
  if (!gContext) return Ref<SemBase>();
  if (gContext->conditionalDepth < 1) {
    Error(ConditionalElseWithoutIf);
    return Ref<SemBase>();
  }
  SkipConditionallyCompiledLines(false);
  return Ref<SemBase>();
}

Ref<SemBase> CompileConditionalEndIf() {
  if (!gContext) return Ref<SemBase>();
  if (gContext->conditionalDepth < 1) {
    Error(ConditionalEndIfWithoutIf);
    return Ref<SemBase>();
  }
  --gContext->conditionalDepth;
  if (gContext->conditionalTaken.size() > 0) gContext->conditionalTaken.pop_back();
  if (gContext->conditionalLines.size() > 0) gContext->conditionalLines.pop_back();
  return Ref<SemBase>();
}

void ReportOpenConditionals() {
  if (!gContext) return;
  SimpleVector<int32_t> const& lines = gContext->conditionalLines;
  for (unsigned long i = 0; i < lines.size(); ++i)
    Error(ConditionalWithoutEndIf, SourceLocation(lines[i]));
}
