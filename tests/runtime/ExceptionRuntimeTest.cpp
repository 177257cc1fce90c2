// What scripts cannot show of the raise path: the handler table's answers
// for every kind of position, the walk over made-up frame chains (a hit, a
// skipped zero return address, chains that loop, point down or leave the
// run), null raises, and the monitor.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/KVScriptIntrinsics.h"
#include "runtime/RunAbort.h"
#include "runtime/RunState.h"
#include "runtime/RuntimeExceptionFoundation.h"
#include "runtime/RuntimeObjectFoundation.h"

namespace {

// Function A: an outer try around an inner one, each with a handler, then
// a default handler; function B: a try that never ends, with a handler.
HandlerTable MakeTable() {
  HandlerTable table;
  table.AddFunction(0, 100);
  table.AddEvent(kHandlerTryBegin, 10, 0);
  table.AddEvent(kHandlerTryBegin, 20, 0);
  table.AddEvent(kHandlerSwitch, 30, 35);
  table.AddEvent(kHandlerTryEnd, 40, 0);
  table.AddEvent(kHandlerSwitch, 50, 55);
  table.AddEvent(kHandlerTryEnd, 60, 0);
  table.AddEvent(kHandlerSwitch, 80, 85);
  table.AddLine(0, 1);
  table.AddLine(30, 4);
  table.AddFunction(100, 150);
  table.AddEvent(kHandlerTryBegin, 110, 0);
  table.AddEvent(kHandlerSwitch, 120, 125);
  table.AddLine(100, 7);
  table.Finish();
  return table;
}

TEST(HandlerTable, TheCoveringHandlerFollowsTheDepthRule) {
  HandlerTable table = MakeTable();
  struct { uint32_t at; int32_t resume; } const cases[] = {
      {5, 85},    // before both tries: only the default handler covers it
      {15, 55},   // in the outer try, before the inner: the inner is skipped
      {25, 35},   // in the inner try
      {30, 35},   // a call right in front of the handler
      {36, 55},   // a re-raise from the inner handler reaches the outer one
      {56, 85},   // and one from the outer handler the default one
      {86, -1},   // the default handler's re-raise leaves the function
      {0, -1},    // no return address
      {100, -1},  // the last byte of A is before it: A has nothing there
      {105, -1},  // a try that never ends covers nothing behind it
      {115, 125},
      {151, -1},  // past every function
  };
  for (auto const& c : cases) EXPECT_EQ(table.FindHandler(c.at), c.resume) << c.at;
  struct { uint32_t at; int32_t line; } const lines[] = {{1, 1}, {30, 1}, {31, 4}, {100, 4}, {101, 7}, {0, -1}, {160, -1}};
  for (auto const& c : lines) EXPECT_EQ(table.FindLine(c.at), c.line) << c.at;
}

class Listener : public KvScriptCorrespondent {
public:
  void ScriptError(RuntimeErrorCode code, unsigned long line) override {
    char const* name = UnhandledExceptionClassName();
    reports.push_back(std::to_string(code) + " " + std::to_string(line) + " " + (name ? name : "-"));
  }
  std::vector<std::string> reports;
};

int sMonitored = 0;
void Monitor(RuntimeObject*) { ++sMonitored; }

class RaisePath : public ::testing::Test {
protected:
  void SetUp() override {
    InitKvScriptRuntime();
    SetRuntimeCorrespondent(&listener);
    SetExceptionMonitor(Monitor);
    sMonitored = 0;
    objectsBefore = CountAllocatedObjects();
  }
  void TearDown() override {
    SetExceptionMonitor(nullptr);
    EXPECT_EQ(CountAllocatedObjects(), objectsBefore);
    ExitKvScriptRuntime();
    InitKvScriptRuntime();
  }
  Listener listener;
  long objectsBefore = 0;
};

// Outside a run a raise reports and returns; the monitor hears raises only.
TEST_F(RaisePath, NullDoesNothingAndTheMonitorHearsRaisesOnly) {
  RuntimeRaiseException(nullptr);
  RuntimeReraiseException(nullptr);
  RuntimeUnhandledException(nullptr);
  EXPECT_TRUE(listener.reports.empty());
  EXPECT_EQ(sMonitored, 0);
  RuntimeObject* o = RuntimeNewObject(OutOfBoundsExceptionLookup());
  RuntimeRaiseException(o);
  RuntimeReraiseException(o);
  EXPECT_EQ(sMonitored, 1);
  EXPECT_EQ(listener.reports, (std::vector<std::string>{"2 0 OutOfBoundsException", "2 0 OutOfBoundsException"}));
  EXPECT_EQ(o->mLockCount, 1);
  RuntimeUnlockObject(o);
}

// A made-up image: its only function handles every call in its first 8
// bytes at offset 16.
char sCode[64];
HandlerTable sTable;
RuntimeObject* sThrown = nullptr;
RuntimeObject* sTaken = nullptr;
uintptr_t sResumedTo = 0;

// Calls RuntimeRaiseException with ebp at `frames`, as if the frames there
// had called it, with esp on the boundary.
__attribute__((noinline)) void RaiseThrough(uintptr_t* frames, RuntimeObject* object) {
  void (*raise)(RuntimeObject*) = RuntimeRaiseException;
  uintptr_t a = (uintptr_t)frames, c = (uintptr_t)object, d = (uintptr_t)raise;
  asm volatile(
      "push %%ebp\n\t"
      "mov %%esp, %%esi\n\t"
      "mov %0, %%ebp\n\t"
      "and $-16, %%esp\n\t"
      "sub $12, %%esp\n\t"
      "push %1\n\t"
      "call *%2\n\t"
      "mov %%esi, %%esp\n\t"
      "pop %%ebp\n\t"
      : "+a"(a), "+c"(c), "+d"(d)
      :
      : "memory", "cc", "esi");
}

// frames[0] links to frames[2] with a zero return address, which is passed;
// frames[2] returns into the image, where the handler is.
void RaiseToAHandler() {
  uintptr_t frames[4];
  frames[0] = (uintptr_t)&frames[2];
  frames[1] = 0;
  frames[2] = (uintptr_t)__builtin_frame_address(0);
  frames[3] = (uintptr_t)sCode + 4;
  RaiseThrough(frames, sThrown);
  sResumedTo = frames[3];
  sTaken = RuntimeTakeException();
}
// A chain that loops, one that points down, one beyond the boundary: each
// frame returns into the image where nothing handles the call, and gives
// the raise its line. The exception is the run's own, freed with it.
void RaiseThroughALink(uintptr_t link) {
  uintptr_t frames[2] = {link, (uintptr_t)sCode + 40};
  if (!link) frames[0] = (uintptr_t)frames;
  RaiseThrough(frames, RuntimeNewObject(IllegalCastExceptionLookup()));
}
void RaiseThroughALoop() { RaiseThroughALink(0); }
void RaiseThroughADownwardLink() { RaiseThroughALink((uintptr_t)__builtin_frame_address(0) - 256); }
void RaiseThroughTheBoundary() { RaiseThroughALink((uintptr_t)__builtin_frame_address(0) + 0x100000); }

TEST_F(RaisePath, TheWalkFollowsOnlyUpwardLinksWithinTheRun) {
  sTable = HandlerTable();
  sTable.AddFunction(0, 64);
  sTable.AddEvent(kHandlerSwitch, 8, 16);
  sTable.AddLine(0, 12);
  sTable.Finish();
  sThrown = RuntimeNewObject(IllegalCastExceptionLookup());

  EXPECT_TRUE(RunScriptCode(RaiseToAHandler, &sTable, sCode, sizeof sCode));
  EXPECT_EQ(sResumedTo, (uintptr_t)sCode + 16);
  EXPECT_EQ(sTaken, sThrown);
  EXPECT_EQ(sThrown->mLockCount, 2);
  RuntimeUnlockObject(sTaken);
  EXPECT_TRUE(listener.reports.empty());

  for (void (*start)() : {RaiseThroughALoop, RaiseThroughADownwardLink, RaiseThroughTheBoundary}) {
    listener.reports.clear();
    EXPECT_FALSE(RunScriptCode(start, &sTable, sCode, sizeof sCode));
    EXPECT_EQ(listener.reports, std::vector<std::string>{"2 12 IllegalCastException"});
  }
  EXPECT_EQ(sMonitored, 4);
  EXPECT_EQ(sThrown->mLockCount, 1);
  RuntimeUnlockObject(sThrown);
}

// A made-up image of two functions: the first [0, 32) has a default handler
// at 16 that only releases the slot at ebp-4; the second [32, 64) handles
// calls before 40 at 48 and nothing after. The chain: w[0] returns into the
// first at 4 with its frame at w[4] (slot w[3]), which returns into the
// second at `back` with its frame at w[8].
// The frames stand on the stack, as the walk requires; sWords keeps what
// the raise left in them, with addresses made relative to w.
intptr_t sWords[12];
void RaiseThroughAPassingFrame(uintptr_t slot, uintptr_t back) {
  uintptr_t w[12];
  w[0] = (uintptr_t)&w[4];
  w[1] = (uintptr_t)sCode + 4;
  w[3] = slot;
  w[4] = (uintptr_t)&w[8];
  w[5] = (uintptr_t)sCode + back;
  w[8] = (uintptr_t)__builtin_frame_address(0);
  w[9] = 0;
  RaiseThrough(w, sThrown);
  sTaken = RuntimeTakeException();
  sWords[0] = (intptr_t)(w[0] - (uintptr_t)w) / (intptr_t)sizeof(uintptr_t);
  sWords[1] = (intptr_t)(w[1] - (uintptr_t)sCode);
  sWords[3] = (intptr_t)w[3];
}
uintptr_t sSlot = 0;
uintptr_t sBack = 0;
void RaisePassing() { RaiseThroughAPassingFrame(sSlot, sBack); }

TEST_F(RaisePath, AFrameThatHoldsNothingElseIsPassedBy) {
  sTable = HandlerTable();
  sTable.AddFunction(0, 32);
  sTable.AddEvent(kHandlerSwitch, 8, 16);
  sTable.AddEvent(kHandlerPassThrough, 8, 16);
  sTable.AddEvent(kHandlerReleaseSlot, 8, (uint32_t)-4);
  sTable.AddFunction(32, 64);
  sTable.AddEvent(kHandlerSwitch, 40, 48);
  sTable.Finish();
  sThrown = RuntimeNewObject(IllegalCastExceptionLookup());
  RuntimeObject* other = RuntimeNewObject(IllegalCastExceptionLookup());
  struct Case {
    uintptr_t slot;
    uintptr_t back;
    uintptr_t resumedTo;  // from the image's start
    bool passed;          // w[0] now links to the second function's frame
  } const cases[] = {
      {0, 36, 48, true},                     // empty slot: straight to the handler
      {(uintptr_t)sThrown, 36, 48, true},    // holds the exception: its reference dropped
      {(uintptr_t)other, 36, 16, false},     // holds something else: its own handler runs
      {0, 60, 16, false},                    // nothing behind handles it: its own handler runs
  };
  for (Case const& c : cases) {
    sSlot = c.slot;
    sBack = c.back;
    if (c.slot == (uintptr_t)sThrown) RuntimeLockObject(sThrown);  // the slot's reference
    EXPECT_TRUE(RunScriptCode(RaisePassing, &sTable, sCode, sizeof sCode));
    EXPECT_EQ(sWords[1], (intptr_t)c.resumedTo);
    EXPECT_EQ(sWords[0], c.passed ? 8 : 4);  // the frame it links to, as an index
    EXPECT_EQ((uintptr_t)sWords[3], c.slot == (uintptr_t)sThrown ? 0 : c.slot);
    EXPECT_EQ(sTaken, sThrown);
    EXPECT_EQ(sThrown->mLockCount, 2);  // the test's and the taken one
    RuntimeUnlockObject(sTaken);
  }
  EXPECT_TRUE(listener.reports.empty());
  RuntimeUnlockObject(other);
  RuntimeUnlockObject(sThrown);
}

}  // namespace
