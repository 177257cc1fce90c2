// What the parser reports on its own behalf: its two error messages, and
// its poll of the delegate.
#include <cstring>

#include "diag/CompilerDelegate.h"
#include "foundation/KvAssert.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "grammar/Parser.h"

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
