// How a run ends before its time. The run-time has no exception handlers
// yet, so a raise of one of the library's exceptions makes the exception
// object, reports it to the correspondent as unhandled, and leaves the
// generated code at once by a long jump to the point where the run began:
// returning into generated code after a raise would go on with a nil value.
//
// Invariants:
// - Each run on the stack has its own abort point, kept in the run state
//   (runtime/RunState.h), so a script run from another's event handler
//   returns to its own start.
// - The run-time frames that the jump may cross (object destruction and
//   creation, which run script code) hold nothing with a destructor.
// - Outside a run (no abort point) a raise returns to its caller, which
//   goes on with the null or 0 it was given.
// - One raise at a time: a raise that fails (the exception class or object
//   cannot be made) reports kRuntimeErrorOutOfMemory once and ends the run,
//   instead of raising again.
#pragma once

#include <csetjmp>

#include "runtime/RuntimeObjectFoundation.h"

struct RuntimeAbortPoint {
  jmp_buf mJump;
  RuntimeAbortPoint* mOuter;
  RuntimeObjectRun mObjects;
};

// Calls `start` with an abort point set. True if it returned; false if the
// run was abandoned, and then the objects it had made are freed (memory
// only) and the destruction in progress is forgotten.
bool RunScriptCode(void (*start)());

// Jumps to the innermost run's abort point; returns only outside a run.
void AbortScriptRun();

// A raise with no handler: reports the exception as unhandled (code 2,
// through UnhandledException) and ends the run, taking over the caller's
// lock on `exception`. Outside a run it releases that lock and returns.
void EndRunWithException(RuntimeObject* exception);

// Tells the correspondent that memory ran out (kRuntimeErrorOutOfMemory);
// within one raise, only the first time.
void ReportOutOfMemory();

// The class name of the unhandled exception being reported, for the host to
// find its own class by; null when no report is in progress. Valid only
// while the correspondent hears of it.
char const* UnhandledExceptionClassName();

extern "C" {
// Makes an object of `c` and raises it; a null class reports OutOfMemory.
void RaiseExceptionClass(RuntimeClass* c);
// Generated nil checks call this one as "RuntimeNilObject".
void RaiseNilObjectException();
void RaiseIllegalCastException();
void RaiseOutOfBoundsException();
}
