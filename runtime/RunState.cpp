#include "runtime/RunState.h"

#include "runtime/RuntimeObjectFoundation.h"
#include "runtime/RuntimeStringFoundation.h"


static KvScriptCorrespondent* sCorrespondent = nullptr;
RuntimeClass* mClassList = nullptr;

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

// ---------------------------------------------------------------------------
// KvScriptCorrespondent: a listener that ignores everything

void KvScriptCorrespondent::ScriptError(RuntimeErrorCode, unsigned long) {}
void KvScriptCorrespondent::Print(char const*, unsigned long) {}
char* KvScriptCorrespondent::Input(char const*, unsigned long, unsigned long*) { return nullptr; }
void KvScriptCorrespondent::ScriptYield() {}

