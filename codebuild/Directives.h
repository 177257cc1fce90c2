// Directives: `#pragma` and conditional compilation. The lexer skips the
// branches not taken. Each routine returns a null handle, the value of the
// directive as a statement.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// `#pragma word value`.
Ref<SemBase> CompilePragma(Ref<SemBase> word, Ref<SemBase> value);
Ref<SemBase> CompileConditionalIf(Ref<SemBase> condition);
Ref<SemBase> CompileConditionalElseIf(Ref<SemBase> condition);
Ref<SemBase> CompileConditionalElse();
Ref<SemBase> CompileConditionalEndIf();
// At the end of a parse that reached the end of the text: reports
// ConditionalWithoutEndIf at the `#if` of each block still open.
void ReportOpenConditionals();
