// The run in progress, as the linker that starts it and the run-time
// library that serves it share it: who hears the script (its correspondent)
// and the classes it has built.
//
// Invariants:
// - Both describe the one script executing now; a run that lets another
//   script run in between saves and restores them.
#pragma once

struct RuntimeClass;

// What the run-time library reports through ScriptError. Only these values
// mean anything; others may arrive and are treated like any other error.
enum RuntimeErrorCode {
  kRuntimeErrorUnhandledException = 2,
  kRuntimeErrorStackOverflow = 6,
  kRuntimeErrorStackLimit = 7,
  kRuntimeErrorOutOfBounds = 9,
  kRuntimeErrorOutOfMemory = 10,
};

class KvScriptCorrespondent {
public:
  virtual void ScriptError(RuntimeErrorCode code, unsigned long line);
  virtual void Print(char const* text, unsigned long length);
  // A buffer from new[] for the caller to delete[], or null; without an
  // answer *outLength is left alone.
  virtual char* Input(char const* prompt, unsigned long length, unsigned long* outLength);
  virtual void ScriptYield();

protected:
  // Never deleted through this base: the interface's destructors are the
  // first ones in the table.
  ~KvScriptCorrespondent() = default;
};

void InitKvScriptRuntime();
void SetRuntimeCorrespondent(KvScriptCorrespondent* correspondent);
KvScriptCorrespondent* GetRuntimeCorrespondent();
// Frees every class of the run, head first, releasing each name. Safe to
// call twice: the second pass finds the list empty.
void ExitKvScriptRuntime();

// The classes built by the run in progress are mClassList
// (runtime/RuntimeObjectFoundation.h).
