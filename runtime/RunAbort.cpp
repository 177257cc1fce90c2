#include "runtime/RunAbort.h"

#include "runtime/KVScriptIntrinsics.h"
#include "runtime/RunState.h"

namespace {

// From the start of a raise to its end. A raise that starts while another is
// under way has failed: the first could not make its class or its object.
bool sRaising = false;
bool sFailureReported = false;
// Borrowed from the class record for the time of the report.
stringStorage* sUnhandledClassName = nullptr;

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
// the report, whose listener may run other scripts.
RuntimeObject* MakeException(RuntimeClass* c) {
  RuntimeObject* exception = nullptr;
  if (!c)
    FailRaise();
  else
    exception = RuntimeNewObject(c);
  EndRaise();
  return exception;
}

void RaiseLibraryException(RuntimeClass* (*lookup)()) {
  if (!BeginRaise()) return;
  if (RuntimeObject* exception = MakeException(lookup())) EndRunWithException(exception);
}

void LeaveRun(RuntimeAbortPoint* point, bool abandoned) {
  if (abandoned) {
    EndRaise();
    sUnhandledClassName = nullptr;
  }
  CloseObjectRun(&point->mObjects, abandoned);
  SetRunAbortPoint(point->mOuter);
}

}  // namespace

bool RunScriptCode(void (*start)()) {
  RuntimeAbortPoint point;
  point.mOuter = GetRunAbortPoint();
  OpenObjectRun(&point.mObjects);
  SetRunAbortPoint(&point);
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
  RuntimeClass* c = RuntimeClassOf(exception);
  sUnhandledClassName = c ? c->mName : nullptr;
  UnhandledException(exception);
  sUnhandledClassName = nullptr;
  AbortScriptRun();
  RuntimeUnlockObject(exception);
}

char const* UnhandledExceptionClassName() {
  return sUnhandledClassName ? stringStorage::CString(sUnhandledClassName) : nullptr;
}

void RaiseExceptionClass(RuntimeClass* c) {
  if (!BeginRaise()) return;
  if (RuntimeObject* exception = MakeException(c)) EndRunWithException(exception);
}

void RaiseNilObjectException() { RaiseLibraryException(NilObjectExceptionLookup); }
void RaiseIllegalCastException() { RaiseLibraryException(IllegalCastExceptionLookup); }
void RaiseOutOfBoundsException() { RaiseLibraryException(OutOfBoundsExceptionLookup); }
