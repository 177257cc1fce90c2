// The run state: what the run-time library knows of the script now running.
// Shared by the linked image's Run and the library's entries: who hears the
// script (the correspondent: print, input, errors, yield), the head of the
// list of classes the run has built (mClassList, declared with the class
// records in runtime/RuntimeObjectFoundation.h), the interface vtables it
// has made, the library's classes it has made, and the point a run that
// cannot go on returns to (runtime/RunAbort.h).
//
// Invariants:
// - The words describe the innermost run on the stack. A run begins inside
//   a RunStateScope, which sets the outer run's words aside and gives them
//   back when the run ends, so a script run from another script's event
//   handler leaves the outer one hearing its own correspondent, owning its
//   own classes and returning to its own abort point.
// - Between runs every word is null and the lists are empty.
// - A library class record, once made, is also on the class list; the
//   class list owns it and Exit forgets it with the rest.
// - The words are process-wide: one thread uses the engine (see
//   engine/KVScriptInterface.h).
#pragma once

struct RuntimeClass;
struct RuntimeVtableBlock;
struct RuntimeAbortPoint;

// The library's classes, which a run makes on first use and keeps by slot
// rather than by name, so that a script class of the same name is never
// taken for one of them.
enum LibraryClass {
  kLibraryVariant,
  kLibraryRuntimeException,
  kLibraryOutOfMemoryException,
  kLibraryNilObjectException,
  kLibraryIllegalCastException,
  kLibraryTypeMismatchException,
  kLibraryOutOfBoundsException,
  kLibraryStackOverflowException,
  kLibraryClassCount
};

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

// Clears every word, letting go of the lists without freeing them.
void InitKvScriptRuntime();
void SetRuntimeCorrespondent(KvScriptCorrespondent* correspondent);
KvScriptCorrespondent* GetRuntimeCorrespondent();
// Frees every class of the run, head first, releasing its name and the
// names its tables hold, then the run's interface vtables, and forgets the
// library classes. The correspondent and the abort point stay. Safe to call
// twice: the second pass finds the lists empty. Generated code calls it as
// "RuntimeExit" at the end of a script's main program.
void ExitKvScriptRuntime();

RuntimeVtableBlock* GetRunVtables();
void SetRunVtables(RuntimeVtableBlock* vtables);
// The innermost run's abort point, read on every raise: a plain word, so
// that the raise path makes no call to find it.
extern RuntimeAbortPoint* gRunAbortPoint;
inline RuntimeAbortPoint* GetRunAbortPoint() { return gRunAbortPoint; }
void SetRunAbortPoint(RuntimeAbortPoint* point);
RuntimeClass* GetLibraryClass(LibraryClass which);
void SetLibraryClass(LibraryClass which, RuntimeClass* c);

// Every word, as a value to set aside and put back.
struct RunState {
  KvScriptCorrespondent* correspondent;
  RuntimeClass* classes;
  RuntimeVtableBlock* vtables;
  RuntimeAbortPoint* abortPoint;
  RuntimeClass* libraryClasses[kLibraryClassCount];
};
RunState CurrentRunState();
void RestoreRunState(RunState const& state);

// One run's hold on the run state: opens with `correspondent` and empty
// lists, and on leaving frees the classes and vtables the run built and
// gives the outer run's words back.
class RunStateScope {
public:
  explicit RunStateScope(KvScriptCorrespondent* correspondent);
  ~RunStateScope();
  RunStateScope(RunStateScope const&) = delete;
  RunStateScope& operator=(RunStateScope const&) = delete;

private:
  RunState mOuter;
};
