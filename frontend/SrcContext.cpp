#include "frontend/SrcContext.h"

SrcContext* gContext = nullptr;

void InitParserGlobals(SrcContext* context) {
  gContext = context;
  InitTacConstants();
}
