#include "runtime/RunState.h"

#include "foundation/String.h"
#include "runtime/RuntimeObjectFoundation.h"

namespace {

// The run's words but for the class list, which keeps its own global name.
struct RunWords {
  KvScriptCorrespondent* correspondent;
  RuntimeVtableBlock* vtables;
  RuntimeClass* libraryClasses[kLibraryClassCount];
};

RunWords sRun = {};

}  // namespace

RuntimeClass* mClassList = nullptr;
RuntimeAbortPoint* gRunAbortPoint = nullptr;

void KvScriptCorrespondent::ScriptError(RuntimeErrorCode, unsigned long) {}
void KvScriptCorrespondent::Print(char const*, unsigned long) {}
char* KvScriptCorrespondent::Input(char const*, unsigned long, unsigned long*) { return nullptr; }
void KvScriptCorrespondent::ScriptYield() {}

void InitKvScriptRuntime() {
  sRun = RunWords{};
  mClassList = nullptr;
  gRunAbortPoint = nullptr;
}

void SetRuntimeCorrespondent(KvScriptCorrespondent* correspondent) {
  sRun.correspondent = correspondent;
}

KvScriptCorrespondent* GetRuntimeCorrespondent() { return sRun.correspondent; }

void ExitKvScriptRuntime() {
  while (RuntimeClass* c = mClassList) {
    mClassList = c->mNext;
    ReleaseClassTableNames(c);
    if (c->mName) {
      stringStorage::RemoveReference(c->mName);
      c->mName = nullptr;
    }
    FreeRuntimeClass(c);
  }
  FreeRunVtables();
  for (RuntimeClass*& c : sRun.libraryClasses) c = nullptr;
}

RuntimeVtableBlock* GetRunVtables() { return sRun.vtables; }
void SetRunVtables(RuntimeVtableBlock* vtables) { sRun.vtables = vtables; }
void SetRunAbortPoint(RuntimeAbortPoint* point) { gRunAbortPoint = point; }
RuntimeClass* GetLibraryClass(LibraryClass which) { return sRun.libraryClasses[which]; }
void SetLibraryClass(LibraryClass which, RuntimeClass* c) { sRun.libraryClasses[which] = c; }

RunState CurrentRunState() {
  RunState state = {sRun.correspondent, mClassList, sRun.vtables, gRunAbortPoint, {}};
  for (int i = 0; i < kLibraryClassCount; ++i) state.libraryClasses[i] = sRun.libraryClasses[i];
  return state;
}

void RestoreRunState(RunState const& state) {
  sRun.correspondent = state.correspondent;
  mClassList = state.classes;
  sRun.vtables = state.vtables;
  gRunAbortPoint = state.abortPoint;
  for (int i = 0; i < kLibraryClassCount; ++i) sRun.libraryClasses[i] = state.libraryClasses[i];
}

RunStateScope::RunStateScope(KvScriptCorrespondent* correspondent) : mOuter(CurrentRunState()) {
  InitKvScriptRuntime();
  SetRuntimeCorrespondent(correspondent);
}

RunStateScope::~RunStateScope() {
  ExitKvScriptRuntime();
  RestoreRunState(mOuter);
}
