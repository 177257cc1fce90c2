#include "backend/minilinker.h"

#include "engine/KVScriptInterface.h"

RunReadyCode::~RunReadyCode() = default;

// The image holds no code block or data area until the linker fills them in;
// what a run does around the code is already fixed.
void RunReadyCode::Run(KvScriptCorrespondent* correspondent) {
  InitKvScriptRuntime();
  SetRuntimeCorrespondent(correspondent);
  ExitKvScriptRuntime();
}
