#include "frontend/CompileScope.h"

#include "frontend/SrcContext.h"
#include "semantic/SemBase.h"

CompileScope::CompileScope()
    : mContext(new SrcContext),
      mOuterContext(gContext),
      mOuterLexer(SaveLexerRun()),
      mOuterTemporaries(ExchangeTemporaryCounter(0)) {
  InitParserGlobals(mContext);
  InitLexer(nullptr);
}

CompileScope::~CompileScope() {
  // The lexer's text and token value belong to this compilation (the value
  // may hold literals of its pool), so they go before the context does.
  RestoreLexerRun(mOuterLexer);
  delete mContext;
  SetCurrentContext(mOuterContext);
  ExchangeTemporaryCounter(mOuterTemporaries);
}
