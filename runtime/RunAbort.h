// How a raise reaches its handler, and how a run ends before its time.
//
// A raise keeps the exception in the run (one reference, "in flight") and
// walks the saved frame-pointer chain up from its own frame. Each frame whose
// return address lies inside the running image's code is looked up in the
// image's handler table (runtime/RuntimeExceptionFoundation.h); at the first
// hit that return address is overwritten with the handler's resume point and
// the raise returns: the functions between, script or library, return in
// the usual way, and the last of them returns into the resume point, which
// takes the exception (RuntimeTakeException). Frames of the library and of
// the host are passed without looking at their code.
//
// A walk that finds no handler reports the exception as unhandled (code 2)
// and ends the run by a long jump to the point where it began: returning
// into generated code after such a raise would go on with a nil value. With
// the main program's catch-all that only happens for a raise from code with
// no script frame.
//
// Invariants:
// - Each run on the stack has its own abort point, kept in the run state
//   (runtime/RunState.h): its code, handler table, stack boundary (the frame
//   that called the script), in-flight exception, raise line and stack
//   limit. A script run from another's event handler walks only its own
//   frames and returns to its own start.
// - The walk steps from a frame to the saved one only while
//   frame < next <= boundary (unsigned): a broken, looping or foreign chain
//   ends the walk instead of being followed.
// - The run-time frames that the long jump may cross (object destruction
//   and creation, which run script code) hold nothing with a destructor.
// - Outside a run (no abort point) a raise reports and returns to its
//   caller, which goes on with the null or 0 it was given.
// - One library raise at a time: a raise that fails (the exception class or
//   object cannot be made) reports kRuntimeErrorOutOfMemory once and ends
//   the run, instead of raising again.
#pragma once

#include <csetjmp>
#include <cstdint>

#include "runtime/RuntimeObjectFoundation.h"

class HandlerTable;

constexpr uint32_t kNoRaiseOffset = 0xFFFFFFFFu;

struct RuntimeAbortPoint {
  jmp_buf mJump;
  RuntimeAbortPoint* mOuter;
  RuntimeObjectRun mObjects;
  // The image the run executes; null code for a run of library code only.
  HandlerTable const* mHandlers;
  uintptr_t mCode;
  uintptr_t mCodeLength;
  // The frame of RunScriptCode, which called the script.
  uintptr_t mBoundary;
  // Holds one reference between a raise and its resume point.
  RuntimeObject* mInFlight;
  // The image offset of the first return address into the image on the
  // walk of the last first raise (the raise site), or kNoRaiseOffset.
  uint32_t mRaiseOffset;
  // The stack limit of the run around this one, given back at the end.
  uintptr_t mOuterStackLimit;
};

// Calls `start` with an abort point set, for the image of `length` bytes at
// `code` whose handlers `handlers` lists (none for library code). True if
// it returned; false if the run was abandoned, and then the objects it had
// made are freed (memory only) and the destruction in progress is
// forgotten. The stack limit is the thread's lowest stack address plus
// kStackReserve, or `hostStackLimit` (an address) where that lies above it
// on this thread's stack, below the caller's frame.
bool RunScriptCode(void (*start)(), HandlerTable const* handlers = nullptr, char const* code = nullptr,
                   uintptr_t length = 0, uintptr_t hostStackLimit = 0);

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

// The line of the innermost run's last first raise, counted from 0; 0 when
// none is known.
unsigned long RaiseLine();

// Called at each raise (not at a re-raise) with the exception, before the
// walk; null for none.
void SetExceptionMonitor(void (*monitor)(RuntimeObject*));

// The bytes kept free below the stack limit for the raise of
// StackOverflowException and what its handlers run before they return.
constexpr uintptr_t kStackReserve = 512 * 1024;

extern "C" {
// Generated code's limit word: a call of a script function with esp below
// it raises StackOverflowException (RuntimeCheckStack).
extern uintptr_t gRuntimeStackLimit;

// Raises `exception` (null does nothing): the caller keeps its own
// reference; the run takes one more for the flight. The first raise of an
// exception tells the monitor and records the raise line.
void RuntimeRaiseException(RuntimeObject* exception);
// The same from a handler passing the exception on: no monitor, no line.
// The caller keeps its reference here too. Where the next handler lies in a
// calling function, the re-raising function runs on to its return, which
// leads into that handler; what follows the call (the release of the
// handler's variable) still runs.
void RuntimeReraiseException(RuntimeObject* exception);
// What a resume point calls: the exception in flight, whose reference
// passes to the caller; null if none.
RuntimeObject* RuntimeTakeException();
// The main program's catch-all: reports `exception` (borrowed) as unhandled
// with the line of its raise and its class name, and returns; null, as a
// catch-all reached by normal flow holds, reports nothing.
void RuntimeUnhandledException(RuntimeObject* exception);
// Raises StackOverflowException when esp is below the limit.
void RuntimeCheckStack();

// Makes an object of `c` and raises it, then lets go of the maker's lock;
// a null class reports OutOfMemory.
void RaiseExceptionClass(RuntimeClass* c);
// Generated nil checks call this one as "RuntimeNilObject".
void RaiseNilObjectException();
void RaiseIllegalCastException();
void RaiseOutOfBoundsException();
}
