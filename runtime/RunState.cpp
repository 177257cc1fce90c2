#include "runtime/RunState.h"

#include "foundation/String.h"
#include "runtime/RuntimeObjectFoundation.h"

static KvScriptCorrespondent* sCorrespondent = nullptr;
RuntimeClass* mClassList = nullptr;

void KvScriptCorrespondent::ScriptError(RuntimeErrorCode, unsigned long) {}
void KvScriptCorrespondent::Print(char const*, unsigned long) {}
char* KvScriptCorrespondent::Input(char const*, unsigned long, unsigned long*) { return nullptr; }
void KvScriptCorrespondent::ScriptYield() {}

void InitKvScriptRuntime() {
  sCorrespondent = nullptr;
  mClassList = nullptr;
}

void SetRuntimeCorrespondent(KvScriptCorrespondent* correspondent) {
  sCorrespondent = correspondent;
}

KvScriptCorrespondent* GetRuntimeCorrespondent() { return sCorrespondent; }

void ExitKvScriptRuntime() {
  while (RuntimeClass* c = mClassList) {
    mClassList = c->mNext;
    if (c->mName) {
      stringStorage::RemoveReference(c->mName);
      c->mName = nullptr;
    }
    FreeRuntimeClass(c);
  }
}

RunState CurrentRunState() { return RunState{sCorrespondent, mClassList}; }

void RestoreRunState(RunState const& state) {
  sCorrespondent = state.correspondent;
  mClassList = state.classes;
}

RunStateScope::RunStateScope(KvScriptCorrespondent* correspondent) : mOuter(CurrentRunState()) {
  InitKvScriptRuntime();
  SetRuntimeCorrespondent(correspondent);
}

RunStateScope::~RunStateScope() {
  ExitKvScriptRuntime();
  RestoreRunState(mOuter);
}
