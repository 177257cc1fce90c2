#include "runtime/RunAbort.h"

#include <pthread.h>

#include "runtime/KVScriptIntrinsics.h"
#include "runtime/RunState.h"
#include "runtime/RuntimeExceptionFoundation.h"

uintptr_t gRuntimeStackLimit = 0;

namespace {

// From the start of a library raise until its object exists. A raise that
// starts while another is under way has failed: the first could not make
// its class or its object.
bool sRaising = false;
bool sFailureReported = false;
// Borrowed from the class record for the time of the report.
stringStorage* sUnhandledClassName = nullptr;
void (*sExceptionMonitor)(RuntimeObject*) = nullptr;
// The limit as the run set it; gRuntimeStackLimit is lowered below it while
// a stack overflow is being handled, so that the handlers can run.
uintptr_t sNormalStackLimit = 0;

void EndRaise() {
  sRaising = false;
  sFailureReported = false;
}

// Nothing more can be raised: say so once, and stop.
void FailRaise() {
  ReportOutOfMemory();
  AbortScriptRun();
}

bool BeginRaise() {
  if (sRaising) {
    FailRaise();
    return false;
  }
  sRaising = true;
  return true;
}

// The exception object, or null once the failure has been told. Once the
// object exists the raise can no longer fail, so the guard is let go before
// the raise, whose handlers may raise again.
RuntimeObject* MakeException(RuntimeClass* c) {
  RuntimeObject* exception = nullptr;
  if (!c)
    FailRaise();
  else
    exception = RuntimeNewObject(c);
  EndRaise();
  return exception;
}

// Whether the frame of a script function whose pass-through default handler
// `answer` names (entered by its frame pointer `ebp`) may be left without
// running that handler: every slot the handler would release is empty, or
// holds the exception being raised. If so, the references those slots hold
// on the exception are dropped here; the raise holds one more, so no count
// reaches 0 and nothing is destroyed.
bool PassBy(HandlerTable const* handlers, HandlerTable::Answer const& answer, uintptr_t ebp,
            RuntimeObject* exception) {
  int32_t held = 0;
  for (int32_t i = 0; i < answer.slotCount; ++i) {
    uintptr_t value = *reinterpret_cast<uintptr_t*>(ebp + handlers->Slot(answer.slotFirst + i));
    if (value == 0) continue;
    if (value != (uintptr_t)exception) return false;
    ++held;
  }
  for (int32_t i = 0; held > 0 && i < answer.slotCount; ++i) {
    uintptr_t* slot = reinterpret_cast<uintptr_t*>(ebp + handlers->Slot(answer.slotFirst + i));
    if (*slot != (uintptr_t)exception) continue;
    *slot = 0;
    --held;
    if (exception->mLockCount > 1) --exception->mLockCount;
  }
  return true;
}

// Looks for a handler from `frame` up to the run's boundary; on a hit the
// return address of the frame it is found through is made the handler's
// resume point. `frame` is the frame of a library function on the chain
// (the entry that generated code called, or this function's caller). On
// the first raise of an exception the first return address inside the
// image is kept: it gives the raise line, should the exception go
// unhandled.
//
// A script function called by script code, whose default handler would
// only release slots that hold nothing of its own and pass the exception
// on, is passed by: the frame that returns into the first such function is
// given both the handler's frame pointer and its resume point, so that its
// return lands in the handler's frame directly (the handler reloads esp
// from its own frame). Where the walk meets, behind passed-by functions, a
// script frame without a handler, the last one passed by runs its default
// handler after all, as it would have without passing.
__attribute__((noinline)) bool ActivateNextExceptionHandler(RuntimeAbortPoint* point, uintptr_t frame,
                                                            bool first) {
  uintptr_t const boundary = point->mBoundary;
  HandlerTable const* handlers = point->mHandlers;
  if (!handlers) return false;
  bool offsetWanted = first;
  // The frame that returns into the first function passed by, the one that
  // returns into the last, and the last one's default handler.
  uintptr_t volatile* patch = nullptr;
  uintptr_t volatile* lastVia = nullptr;
  int32_t lastResume = kNoHandler;
  auto resumeAt = [&](uintptr_t volatile* via, int32_t resume) {
    uintptr_t volatile* target = patch ? patch : via;
    target[0] = via[0];
    target[1] = point->mCode + (uint32_t)resume;
  };
  while (frame < boundary) {
    uintptr_t volatile* words = reinterpret_cast<uintptr_t volatile*>(frame);
    uintptr_t offset = words[1] - point->mCode;
    // The frame of the function the return address lies in.
    uintptr_t next = words[0];
    bool chained = frame < next && next <= boundary;
    if (offset < point->mCodeLength) {
      if (offsetWanted) {
        point->mRaiseOffset = (uint32_t)offset;
        offsetWanted = false;
      }
      HandlerTable::Answer const& answer = handlers->FindAnswer((uint32_t)offset);
      if (answer.resume != kNoHandler) {
        bool calledByScript =
            chained && reinterpret_cast<uintptr_t volatile*>(next)[1] - point->mCode < point->mCodeLength;
        if (answer.slotCount >= 0 && calledByScript && PassBy(handlers, answer, next, point->mInFlight)) {
          if (!patch) patch = words;
          lastVia = words;
          lastResume = answer.resume;
          frame = next;
          continue;
        }
        resumeAt(words, answer.resume);
        return true;
      }
      if (lastVia) {
        resumeAt(lastVia, lastResume);
        return true;
      }
    }
    if (!chained) break;
    frame = next;
  }
  return false;
}

// Raises `exception`, whose caller keeps its own reference, looking for a
// handler from `frame` on. Returns when a handler will take it, or outside
// a run after the report. Generated code raises once or twice in every
// round of a loop that catches: this path calls nothing but the walk.
inline void RaiseObject(RuntimeObject* exception, bool first, uintptr_t frame) {
  if (!exception) return;
  if (first && sExceptionMonitor) sExceptionMonitor(exception);
  // The lock, as RuntimeLockObject makes it.
  if (exception->mLockCount > 0) ++exception->mLockCount;
  RuntimeAbortPoint* point = gRunAbortPoint;
  if (!point) {
    EndRunWithException(exception);
    return;
  }
  if (first) point->mRaiseOffset = kNoRaiseOffset;
  // One in flight at a time: a raise that finds one not yet taken (a raise
  // from a destructor that the walk's own release ran) lets go of it.
  if (RuntimeObject* stale = point->mInFlight) {
    point->mInFlight = nullptr;
    RuntimeUnlockObject(stale);
  }
  point->mInFlight = exception;
  if (ActivateNextExceptionHandler(point, frame, first)) return;
  point->mInFlight = nullptr;
  EndRunWithException(exception);
}

__attribute__((noinline)) void RaiseObjectHere(RuntimeObject* exception) {
  RaiseObject(exception, true, (uintptr_t)__builtin_frame_address(0));
}

void RaiseLibraryException(RuntimeClass* (*lookup)()) {
  if (!BeginRaise()) return;
  if (RuntimeObject* exception = MakeException(lookup())) {
    RaiseObjectHere(exception);
    RuntimeUnlockObject(exception);
  }
}

// The thread's lowest usable stack address plus the reserve, or the host's
// limit where that lies higher on this stack; 0 (no check) where the system
// does not say.
uintptr_t ThreadStackLimit(uintptr_t hostLimit) {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
  void* lowest = nullptr;
  size_t size = 0;
  int failed = pthread_attr_getstack(&attributes, &lowest, &size);
  pthread_attr_destroy(&attributes);
  if (failed || size <= 2 * kStackReserve) return 0;
  uintptr_t limit = (uintptr_t)lowest + kStackReserve;
  // The host's limit counts where it lies on this stack, above the reserve.
  if (hostLimit > limit && hostLimit < (uintptr_t)__builtin_frame_address(0)) limit = hostLimit;
  return limit;
}

void LeaveRun(RuntimeAbortPoint* point, bool abandoned) {
  if (abandoned) {
    EndRaise();
    sUnhandledClassName = nullptr;
  }
  // A raise the run ended with, never taken, is let go of with the rest.
  if (RuntimeObject* stale = point->mInFlight) {
    point->mInFlight = nullptr;
    if (!abandoned) RuntimeUnlockObject(stale);
  }
  CloseObjectRun(&point->mObjects, abandoned);
  SetRunAbortPoint(point->mOuter);
  gRuntimeStackLimit = point->mOuterStackLimit;
  sNormalStackLimit = point->mOuterStackLimit;
}

}  // namespace

__attribute__((noinline)) bool RunScriptCode(void (*start)(), HandlerTable const* handlers, char const* code,
                                             uintptr_t length, uintptr_t hostStackLimit) {
  RuntimeAbortPoint point;
  point.mOuter = GetRunAbortPoint();
  point.mHandlers = handlers;
  point.mCode = (uintptr_t)code;
  point.mCodeLength = code ? length : 0;
  point.mBoundary = (uintptr_t)__builtin_frame_address(0);
  point.mInFlight = nullptr;
  point.mRaiseOffset = kNoRaiseOffset;
  point.mOuterStackLimit = sNormalStackLimit;
  OpenObjectRun(&point.mObjects);
  SetRunAbortPoint(&point);
  sNormalStackLimit = ThreadStackLimit(hostStackLimit);
  gRuntimeStackLimit = sNormalStackLimit;
  if (setjmp(point.mJump) == 0) {
    start();
    LeaveRun(&point, false);
    return true;
  }
  LeaveRun(&point, true);
  return false;
}

void AbortScriptRun() {
  if (RuntimeAbortPoint* point = GetRunAbortPoint()) longjmp(point->mJump, 1);
}

void ReportOutOfMemory() {
  if (sFailureReported) return;
  sFailureReported = sRaising;
  if (KvScriptCorrespondent* correspondent = GetRuntimeCorrespondent())
    correspondent->ScriptError(kRuntimeErrorOutOfMemory, 0);
}

void EndRunWithException(RuntimeObject* exception) {
  RuntimeUnhandledException(exception);
  AbortScriptRun();
  RuntimeUnlockObject(exception);
}

char const* UnhandledExceptionClassName() {
  return sUnhandledClassName ? stringStorage::CString(sUnhandledClassName) : nullptr;
}

unsigned long RaiseLine() {
  RuntimeAbortPoint* point = GetRunAbortPoint();
  if (!point || !point->mHandlers || point->mRaiseOffset == kNoRaiseOffset) return 0;
  int32_t line = point->mHandlers->FindLine(point->mRaiseOffset);
  return line != kNoLine ? (unsigned long)line : 0;
}

void SetExceptionMonitor(void (*monitor)(RuntimeObject*)) { sExceptionMonitor = monitor; }

// The walk starts at the entry's own frame, whose return address lies in
// the image. The empty statement after the raise keeps it from being a
// tail call, which would give that frame up before the walk patches it.
void RuntimeRaiseException(RuntimeObject* exception) {
  RaiseObject(exception, true, (uintptr_t)__builtin_frame_address(0));
  asm volatile("" ::: "memory");
}

void RuntimeReraiseException(RuntimeObject* exception) {
  RaiseObject(exception, false, (uintptr_t)__builtin_frame_address(0));
  asm volatile("" ::: "memory");
}

RuntimeObject* RuntimeTakeException() {
  RuntimeAbortPoint* point = gRunAbortPoint;
  if (!point) return nullptr;
  RuntimeObject* exception = point->mInFlight;
  point->mInFlight = nullptr;
  // Back above the limit: the next overflow is caught at the limit again.
  if (gRuntimeStackLimit < sNormalStackLimit && (uintptr_t)__builtin_frame_address(0) > sNormalStackLimit)
    gRuntimeStackLimit = sNormalStackLimit;
  return exception;
}

void RuntimeUnhandledException(RuntimeObject* exception) {
  if (!exception) return;
  RuntimeClass* c = RuntimeClassOf(exception);
  sUnhandledClassName = c ? c->mName : nullptr;
  UnhandledException(exception);
  sUnhandledClassName = nullptr;
}

// While the overflow is raised and handled the limit stands half the
// reserve lower, so that the handlers' own calls do not raise it again.
void RuntimeCheckStack() {
  if ((uintptr_t)__builtin_frame_address(0) >= gRuntimeStackLimit) return;
  if (gRuntimeStackLimit == sNormalStackLimit) gRuntimeStackLimit = sNormalStackLimit - kStackReserve / 2;
  RaiseLibraryException(StackOverflowExceptionLookup);
}

void RaiseExceptionClass(RuntimeClass* c) {
  if (!BeginRaise()) return;
  if (RuntimeObject* exception = MakeException(c)) {
    RaiseObjectHere(exception);
    RuntimeUnlockObject(exception);
  }
}

void RaiseNilObjectException() { RaiseLibraryException(NilObjectExceptionLookup); }
void RaiseIllegalCastException() { RaiseLibraryException(IllegalCastExceptionLookup); }
void RaiseOutOfBoundsException() { RaiseLibraryException(OutOfBoundsExceptionLookup); }
