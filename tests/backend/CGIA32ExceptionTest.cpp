// Generated exception code run for real: the handler table the generator and
// linker make, the raise walking up to a resume point, the resume point
// storing into a local and a global, the inline stack check, and counted
// variables cleared before their old value is let go of.
#include <gtest/gtest.h>

#include <cstdint>

#include "backend/CodeGeneratorFixture.h"
#include "runtime/KVScriptIntrinsics.h"
#include "runtime/RunAbort.h"
#include "runtime/RunState.h"
#include "runtime/RuntimeExceptionFoundation.h"
#include "runtime/RuntimeObjectFoundation.h"

namespace {

// An object as far as counting goes: its count, and room below it.
struct CountedWords {
  uint32_t words[kObjectLockCountOffset / 4 + 1] = {};
  explicit CountedWords(uint32_t count) { words[kObjectLockCountOffset / 4] = count; }
  int Count() const { return (int)words[kObjectLockCountOffset / 4]; }
  RuntimeObject* Object() { return reinterpret_cast<RuntimeObject*>(words); }
};

RuntimeObject* gThrown = nullptr;
int gRaiseAt = 0;
unsigned long gRaiseLine = 0;
void Raiser(int site) {
  if (site != gRaiseAt) return;
  RuntimeRaiseException(gThrown);
  gRaiseLine = RaiseLine();
}

std::map<std::string, void*> RuntimeEntries(std::map<std::string, void*> more) {
  StringMap<void*>* table = MakeKvScriptRuntimeFunctionTable();
  for (char const* name : {"RuntimeTakeException", "RuntimeUnlockObject", "RuntimeReraiseException",
                           "RuntimeCheckStack", "RuntimeStackLimit", "RuntimeNewObject"}) {
    void* address = nullptr;
    table->GetEntry(name, address);
    more[name] = address;
  }
  delete table;
  return more;
}

void* gEntry = nullptr;
void CallEntry() { reinterpret_cast<void (*)()>(gEntry)(); }
bool RunIn(LinkedModule const& image, char const* function) {
  gEntry = (void*)image.Entry<void (*)()>(function);
  return RunScriptCode(CallEntry, &image.image->handlers, image.image->CodeAddress(),
                       image.image->code->Length());
}

// A call in front of an inner try skips that try's handler by depth and
// reaches the outer one; a call inside it reaches the inner one, whose
// re-raise passes it and reaches the outer one. The first handler keeps
// the exception in a local, the second in a global.
TEST(Exceptions, TheTableFindsTheCoveringHandlerAndTheResumePointStoresTheException) {
  TacProgram program;
  program.Function("guarded");
  TacAddr const* ex = program.Local("ex", kTypeObject);
  TacAddr const* r = program.Local("r", kTypeInteger);
  TacAddr const* gx = program.Global("gx", kTypeObject);
  TacAddr const* gr = program.Global("gr", kTypeInteger);
  TacAddr const* gex = program.Global("gex", kTypeObject);
  TacAddr const* inner = program.Int(10);
  TacAddr const* outer = program.Int(20);
  program.Add(tac_Store, program.Int(0), nullptr, r);
  program.Add(tac_BeginTry);
  program.Add(tac_PutParam, program.Int(1));
  program.Add(tac_Call, program.Text("Raiser"));
  long firstSite = program.line;
  program.Add(tac_BeginTry);
  program.Add(tac_PutParam, program.Int(2));
  program.Add(tac_Call, program.Text("Raiser"));
  program.Add(tac_AddI, r, program.Int(1000), r);
  program.Add(tac_HandleException, ex, nullptr, inner);
  program.Add(tac_AddI, r, program.Int(1), r);
  program.Add(tac_Store, ex, nullptr, gex);
  program.Add(tac_PutParam, ex);
  program.Add(tac_Intrinsic, program.Int(kIntrinsicRuntimeReraiseException));
  program.Add(tac_AddI, r, program.Int(1000), r);
  program.Add(tac_Label, inner);
  program.Add(tac_EndTry);
  program.Add(tac_AddI, r, program.Int(100), r);
  program.Add(tac_HandleException, gx, nullptr, outer);
  program.Add(tac_AddI, r, program.Int(10), r);
  program.Add(tac_Label, outer);
  program.Add(tac_EndTry);
  program.Add(tac_Store, r, nullptr, gr);
  program.Return();
  Ref<CodeModule> module = GenerateIA32(program, nullptr, IntrinsicFunctionNames());
  ASSERT_TRUE(module);
  LinkedModule image(module, RuntimeEntries({{"Raiser", (void*)Raiser}}));
  ASSERT_TRUE(image);

  // Recorded in order, each handler's resume point behind its entry.
  SimpleVector<HandlerEvent> const& events = FindFunction(module, "guarded")->handlerEvents;
  std::vector<int> kinds;
  for (unsigned long i = 0; i < events.size(); ++i) {
    kinds.push_back(events[i].kind);
    if (i) {
      EXPECT_LE(events[i - 1].offset, events[i].offset);
    }
    if (events[i].kind == kHandlerSwitch) {
      EXPECT_GT(events[i].resume, events[i].offset);
    }
  }
  EXPECT_EQ(kinds, (std::vector<int>{kHandlerTryBegin, kHandlerTryBegin, kHandlerSwitch, kHandlerTryEnd,
                                     kHandlerSwitch, kHandlerTryEnd}));

  auto* globalX = (RuntimeObject**)image.Address("gx");
  auto* globalEx = (RuntimeObject**)image.Address("gex");
  auto* result = (int*)image.Address("gr");
  struct { int site; int result; int held; bool inLocal; } const cases[] = {
      {0, 1100, 0, false}, {1, 10, 1, false}, {2, 11, 2, true}};
  for (auto const& c : cases) {
    CountedWords thrown(1);
    gThrown = thrown.Object();
    gRaiseAt = c.site;
    gRaiseLine = 0;
    *globalX = nullptr;
    *globalEx = nullptr;
    EXPECT_TRUE(RunIn(image, "guarded")) << c.site;
    EXPECT_EQ(*result, c.result) << c.site;
    EXPECT_EQ(*globalX, c.site ? gThrown : nullptr) << c.site;
    EXPECT_EQ(*globalEx, c.inLocal ? gThrown : nullptr) << c.site;
    // The raiser's own reference, and one for each variable given it.
    EXPECT_EQ(thrown.Count(), 1 + c.held) << c.site;
    if (c.site == 1) {
      EXPECT_EQ(gRaiseLine, (unsigned long)firstSite);
    }
  }
}

// 1,000,000 calls deep the inline check reaches the limit: the overflow is
// raised where the check calls the library, passes every frame's default
// handler (each re-raising the exception it took) and is caught around the
// outermost call, holding one reference.
TEST(Exceptions, DeepRecursionRaisesACatchableStackOverflow) {
  TacProgram program;
  program.Function("deep");
  auto n = program.Params({{"n", kTypeInteger}});
  TacAddr const* m = program.Local("m", kTypeInteger);
  TacAddr const* t = program.Local("t", kTypeObject);
  TacAddr const* done = program.Int(30);
  TacAddr const* quiet = program.Int(32);
  program.Add(tac_Store, gTacZero, nullptr, t);
  program.Add(tac_Intrinsic, program.Int(kIntrinsicRuntimeCheckStack));
  program.Add(tac_IfEQI, n[0], program.Int(0), done);
  program.Add(tac_SubI, n[0], program.Int(1), m);
  program.Add(tac_PutParam, m);
  program.Add(tac_Call, program.Text("deep"));
  program.Add(tac_Label, done);
  program.Add(tac_HandleException, t);
  program.Add(tac_IfEQI, t, gTacZero, quiet);
  program.Add(tac_PutParam, t);
  program.Add(tac_Intrinsic, program.Int(kIntrinsicRuntimeReraiseException));
  program.Add(tac_Unlock, t);
  program.Add(tac_Label, quiet);
  program.Return();
  program.Function("top");
  TacAddr const* caught = program.Global("caught", kTypeObject);
  TacAddr const* after = program.Int(31);
  program.Add(tac_BeginTry);
  program.Add(tac_PutParam, program.Int(1000000));
  program.Add(tac_Call, program.Text("deep"));
  program.Add(tac_HandleException, caught, nullptr, after);
  program.Add(tac_Label, after);
  program.Add(tac_EndTry);
  program.Return();
  LinkedModule image(GenerateIA32(program, nullptr, IntrinsicFunctionNames()), RuntimeEntries({}));
  ASSERT_TRUE(image);

  InitKvScriptRuntime();
  auto* object = (RuntimeObject**)image.Address("caught");
  ASSERT_TRUE(RunIn(image, "top"));
  ASSERT_NE(*object, nullptr);
  EXPECT_EQ(RuntimeClassOf(*object), StackOverflowExceptionLookup());
  EXPECT_EQ((*object)->mLockCount, 1);
  RuntimeUnlockObject(*object);
  ExitKvScriptRuntime();
  InitKvScriptRuntime();
}

// What a destructor run by an unlock sees of the variable that held the
// object: already nil, for a plain unlock and for a swap alike.
RuntimeObject** gWatched[2];
std::vector<uintptr_t> gSeen;
void WatchUnlock(RuntimeObject*) {
  for (RuntimeObject** at : gWatched) gSeen.push_back((uintptr_t)*at);
}

TEST(Exceptions, UnlockAndSwapClearTheVariableBeforeLettingGo) {
  TacProgram program;
  program.Function("release");
  auto p = program.Params({{"fresh", kTypeObject}});
  TacAddr const* g = program.Global("g", kTypeObject);
  TacAddr const* h = program.Global("h", kTypeObject);
  TacAddr const* sum = program.Local("sum", kTypeInteger);
  // Read first, so that a register holds the value the unlock clears.
  program.Add(tac_AddI, g, h, sum);
  program.Add(tac_Unlock, g);
  program.Add(tac_SwapLocks, p[0], h);
  program.Add(tac_AddI, g, h, sum);
  program.Return(sum);
  LinkedModule image(GenerateIA32(program, nullptr, TestIntrinsicNames({{kIntrinsicRuntimeUnlockObject, "UO"}})),
                     {{"UO", (void*)WatchUnlock}});
  ASSERT_TRUE(image);
  gWatched[0] = (RuntimeObject**)image.Address("g");
  gWatched[1] = (RuntimeObject**)image.Address("h");
  CountedWords first(1), second(1), fresh(3);
  *gWatched[0] = first.Object();
  *gWatched[1] = second.Object();
  gSeen.clear();
  EXPECT_EQ(image.Entry<int (*)(RuntimeObject*)>("release")(fresh.Object()), 0);
  EXPECT_EQ(gSeen, (std::vector<uintptr_t>{0, (uintptr_t)second.Object(), 0, 0}));
  EXPECT_EQ(fresh.Count(), 4);
}

}  // namespace
