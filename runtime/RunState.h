// The run state: what the run-time library knows of the script now running.
// Two words, shared by the linked image's Run and the library's entries:
// who hears the script (the correspondent: print, input, errors, yield) and
// the head of the list of classes the run has built (mClassList, declared
// with the class records in runtime/RuntimeObjectFoundation.h).
//
// Invariants:
// - Both words describe the innermost run on the stack. A run begins inside
//   a RunStateScope, which sets the outer run's words aside and gives them
//   back when the run ends, so a script run from another script's event
//   handler leaves the outer one hearing its own correspondent and owning
//   its own classes.
// - Between runs the correspondent is null and the class list empty.
// - The words are process-wide: one thread uses the engine (see
//   engine/KVScriptInterface.h).
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

// The channel through which a running script talks back; a listener that
// ignores everything.
class KvScriptCorrespondent {
public:
  virtual void ScriptError(RuntimeErrorCode code, unsigned long line);
  virtual void Print(char const* text, unsigned long length);
  // A buffer from new[] for the caller to delete[], or null; without an
  // answer *outLength is left alone.
  virtual char* Input(char const* prompt, unsigned long length, unsigned long* outLength);
  virtual void ScriptYield();

protected:
  // Never deleted through this base: the engine's destructors are the first
  // slots after these four in its table.
  ~KvScriptCorrespondent() = default;
};

// Clears both words, letting go of the list without freeing it.
void InitKvScriptRuntime();
void SetRuntimeCorrespondent(KvScriptCorrespondent* correspondent);
KvScriptCorrespondent* GetRuntimeCorrespondent();
// Frees every class of the run, head first, releasing each name. Safe to
// call twice: the second pass finds the list empty. Generated code calls it
// as "RuntimeExit" at the end of a script's main program.
void ExitKvScriptRuntime();

// Both words, as a value to set aside and put back.
struct RunState {
  KvScriptCorrespondent* correspondent;
  RuntimeClass* classes;
};
RunState CurrentRunState();
void RestoreRunState(RunState const& state);

// One run's hold on the run state: opens with `correspondent` and an empty
// class list, and on leaving frees the classes the run built and gives the
// outer run's words back.
class RunStateScope {
public:
  explicit RunStateScope(KvScriptCorrespondent* correspondent);
  ~RunStateScope();
  RunStateScope(RunStateScope const&) = delete;
  RunStateScope& operator=(RunStateScope const&) = delete;

private:
  RunState mOuter;
};
