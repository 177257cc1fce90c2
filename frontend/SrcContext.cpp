#include "frontend/SrcContext.h"

#include "backend/DebuggerSymbols.h"

SrcContext* gContext = nullptr;

SrcContext::SrcContext() {
  tables.BindNewObject(new SymbolTableList());
  currentTable = SymbolTable::New(Ref<SymbolTable>(), StaticStorage, string());
  tables->AddTable(currentTable);
}

SrcContext::~SrcContext() = default;

void InitParserGlobals(SrcContext* context) {
  gContext = context;
  InitTacConstants();
}
