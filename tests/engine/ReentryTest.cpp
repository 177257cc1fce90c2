// Re-entry and alternation through the host class. Whatever a running
// script's Print or Input handler does to its own object or to another, the
// running image lives until Run returns, the refused calls raise
// KvScriptAlreadyRunningException, and every counted block and host object
// comes back (the fixture's checks). Two objects compile in turn, or one
// inside the other's error event, each with its own results.
//
// A script's Print and Input statements emit no calls yet, so the running
// objects get an image generated from three-address code instead:
//   Print "before" : Input "?" : Print "after"
// linked by MiniLink against the script library's own table and put in the
// engine's place for a compiled one. Run then goes the whole way: the host
// class, the engine, the image, the library's Print and Input, the events.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "engine/HostedFixture.h"
#include "backend/MiniLinker.h"
#include "backend/CodeGeneratorFixture.h"
#include "engine/KVScript.h"
#include "engine/KVScriptInterface.h"
#include "frontend/SrcContext.h"
#include "runtime/KVScriptIntrinsics.h"

namespace {

class PlantedEngine : public KVInterpreter {
public:
  void PlantImage() {
    TacProgram program;
    TacAddr const* answer = program.Global("answer", kTypeString);
    auto call = [&](char const* name, TacAddr const* argument, TacAddr const* result = nullptr) {
      program.Add(tac_PutParam, argument);
      program.Add(tac_Call, program.Text(name), nullptr, result);
    };
    call("Print", program.Text("before"));
    call("Input", program.Text("?"), answer);
    call("RuntimeUnlockString", answer);  // the answer comes with a reference
    call("Print", program.Text("after"));
    program.EmptyMain();
    Ref<CodeModule> module = GenerateIA32(program);
    ASSERT_TRUE(module);
    StringMap<void*>* table = MakeKvScriptRuntimeFunctionTable();
    RunReadyCode* image = MiniLink(module, table, nullptr);
    delete table;
    ASSERT_NE(nullptr, image);
    mCode.BindNewObject(image);
  }
};

// Gives the object a planted engine in place of the one it was made with.
void PlantEngine(VELDobjectStruct* object) {
  KvScriptData* data = KvScriptDataOf(object);
  delete data->interpreter;
  auto* engine = new PlantedEngine;
  engine->mOwner = object;
  data->interpreter = engine;
  KvScriptInstallRuntime(data);
  engine->PlantImage();
}

KVInterpreter* EngineOf(VELDobjectStruct* object) { return KvScriptDataOf(object)->interpreter; }

// ---------------------------------------------------------------------------
// From inside a handler

enum ReentryCall {
  kSetSource, kSetContext, kReset, kResetThenSetSource, kPrecompile, kRunSelf, kPartialRunSelf,
  kRunOther, kEngineSetSource, kEngineSetSourceThenPrecompile, kReleaseSelf,
};
enum Handler { kInPrint, kInInput };
enum ImageAfter { kSameImage, kNoImage, kNewImage };

struct ReentryCase {
  char const* name;
  ReentryCall what;
  bool raises;
  long stateAfter;
  ImageAfter image;
};

ReentryCase const kReentryCases[] = {
    {"SetSource", kSetSource, true, ScriptStateComplete, kSameImage},
    {"SetContext", kSetContext, true, ScriptStateComplete, kSameImage},
    {"Reset", kReset, false, ScriptStateIdle, kSameImage},
    // Reset clears State, so the guard must not rest on it.
    {"ResetThenSetSource", kResetThenSetSource, true, ScriptStateIdle, kSameImage},
    {"Precompile", kPrecompile, false, ScriptStateComplete, kSameImage},
    {"RunSelf", kRunSelf, true, ScriptStateComplete, kSameImage},
    {"PartialRunSelf", kPartialRunSelf, true, ScriptStateComplete, kSameImage},
    {"RunOther", kRunOther, false, ScriptStateComplete, kSameImage},
    // The engine's own calls, which no host guard stands in front of.
    {"EngineSetSource", kEngineSetSource, false, ScriptStateComplete, kNoImage},
    {"EngineSetSourceThenPrecompile", kEngineSetSourceThenPrecompile, false, ScriptStateComplete,
     kNewImage},
};

// What the handlers share with the test.
struct Scene {
  VELDobjectStruct* script = nullptr;
  VELDobjectStruct* other = nullptr;
  ReentryCall what = kSetSource;
  Handler where = kInPrint;
  bool acted = false;
  bool released = false;
  long raisedByAct = 0;
  std::vector<std::string> heard;
};
Scene sScene;

void InsideTheOuterRun() {
  static char const kNewSource[] = "Dim a As Integer\n";
  VELDobjectStruct* script = sScene.script;
  switch (sScene.what) {
    case kSetSource: SetSourceProperty(script, "Print 2"); break;
    case kSetContext: {
      VELDobjectStruct* context = VELDnewInstance("RuntimeException");
      StandInSetObjectProperty(script, "Context", context);
      VELDUnlockObject(context);
      break;
    }
    case kReset: StandInCallMethod(script, "Reset"); break;
    case kResetThenSetSource:
      StandInCallMethod(script, "Reset");
      SetSourceProperty(script, "Print 2");
      break;
    case kPrecompile: StandInCallMethod(script, "Precompile"); break;
    case kRunSelf: StandInCallMethod(script, "Run"); break;
    case kPartialRunSelf: StandInCallMethod(script, "PartialRun", 10); break;
    case kRunOther: {
      // A class the outer run has built: the inner run must neither free it
      // nor leave the outer run without it.
      RuntimeClass* outerClass = MakeClass("Outer");
      StandInCallMethod(sScene.other, "Run");
      EXPECT_EQ(outerClass, mClassList);
      EXPECT_EQ(ScriptStateComplete, StateOf(sScene.other));
      break;
    }
    case kEngineSetSource: EngineOf(script)->SetSource(kNewSource, sizeof kNewSource - 1); break;
    case kEngineSetSourceThenPrecompile:
      EngineOf(script)->SetSource(kNewSource, sizeof kNewSource - 1);
      StandInCallMethod(script, "Precompile");
      break;
    case kReleaseSelf:
      VELDUnlockObject(script);
      sScene.released = true;
      break;
  }
}

void Act(VELDobjectStruct* object, Handler where) {
  if (object != sScene.script || where != sScene.where || sScene.acted) return;
  sScene.acted = true;
  long raisesBefore = StandInRaiseCount();
  InsideTheOuterRun();
  sScene.raisedByAct = StandInRaiseCount() - raisesBefore;
}

std::string Heard(VELDobjectStruct* object, VELDstringStruct* text) {
  return std::string(object == sScene.script ? "script " : "other ") + VELDstringStruct::CString(text);
}

void OnPrint(VELDobjectStruct* object, VELDstringStruct* msg) {
  sScene.heard.push_back(Heard(object, msg));
  Act(object, kInPrint);
}

VELDstringStruct* OnInput(VELDobjectStruct* object, VELDstringStruct* prompt) {
  sScene.heard.push_back(Heard(object, prompt));
  Act(object, kInInput);
  return StandInString("yes", kEncodingUTF8);
}

class Reentry : public HostedTest,
                public ::testing::WithParamInterface<std::tuple<ReentryCase, Handler>> {
protected:
  void SetUp() override {
    HostedTest::SetUp();
    sScene = Scene();
    sScene.script = VELDnewInstance("KvScript");
    sScene.other = VELDnewInstance("KvScript");
    for (VELDobjectStruct* object : {sScene.script, sScene.other}) {
      PlantEngine(object);
      ASSERT_TRUE(StandInSetEventHandler(object, "Print", reinterpret_cast<void*>(&OnPrint)));
      ASSERT_TRUE(StandInSetEventHandler(object, "Input", reinterpret_cast<void*>(&OnInput)));
    }
  }

  void TearDown() override {
    if (!sScene.released) VELDUnlockObject(sScene.script);
    VELDUnlockObject(sScene.other);
    HostedTest::TearDown();
  }
};

// The fixture's count of live objects shows that the object went after its run.
TEST_F(Reentry, AnObjectLetGoByItsOwnHandlerLivesUntilItsRunIsOver) {
  sScene.what = kReleaseSelf;
  sScene.where = kInPrint;
  ASSERT_TRUE(StandInCallMethod(sScene.script, "Run"));
  EXPECT_EQ((std::vector<std::string>{"script before", "script ?", "script after"}), sScene.heard);
}

TEST_P(Reentry, TheRunningImageLivesAndTheCallHasItsDocumentedResult) {
  ReentryCase const& c = std::get<0>(GetParam());
  sScene.what = c.what;
  sScene.where = std::get<1>(GetParam());
  RunReadyCode* planted = EngineOf(sScene.script)->Code();

  ASSERT_TRUE(StandInCallMethod(sScene.script, "Run"));

  EXPECT_TRUE(sScene.acted);
  EXPECT_EQ(c.raises ? 1 : 0, sScene.raisedByAct);
  if (c.raises) {
    EXPECT_STREQ("KvScriptAlreadyRunningException", StandInClassName(StandInRaisedException()));
  }
  std::vector<std::string> expected = {"script before", "script ?", "script after"};
  if (c.what == kRunOther)
    expected.insert(expected.begin() + (sScene.where == kInPrint ? 1 : 2),
                    {"other before", "other ?", "other after"});
  EXPECT_EQ(expected, sScene.heard) << "the outer script ran to its end, heard by its own object";
  EXPECT_EQ(c.stateAfter, StateOf(sScene.script));
  EXPECT_FALSE(EngineOf(sScene.script)->IsRunning());
  EXPECT_EQ(nullptr, StandInGetStringProperty(sScene.script, "Source"));
  EXPECT_EQ(nullptr, StandInGetObjectProperty(sScene.script, "Context"));
  RunReadyCode* after = EngineOf(sScene.script)->Code();
  switch (c.image) {
    case kSameImage: EXPECT_EQ(planted, after); break;
    case kNoImage: EXPECT_EQ(nullptr, after); break;
    case kNewImage:
      EXPECT_NE(nullptr, after);
      EXPECT_NE(planted, after);
      break;
  }
  EXPECT_EQ(nullptr, GetRuntimeCorrespondent()) << "the run state is given back";
  EXPECT_EQ(nullptr, mClassList);
}

INSTANTIATE_TEST_SUITE_P(
    FromAHandler, Reentry,
    ::testing::Combine(::testing::ValuesIn(kReentryCases), ::testing::Values(kInPrint, kInInput)),
    [](::testing::TestParamInfo<std::tuple<ReentryCase, Handler>> const& info) {
      return std::string(std::get<0>(info.param).name) +
             (std::get<1>(info.param) == kInPrint ? "_InPrint" : "_InInput");
    });

// ---------------------------------------------------------------------------
// Compiles of two objects

struct CompileReport {
  VELDobjectStruct* object;
  long line;
  long number;
};
std::vector<CompileReport> sReports;
// Set for the nested compile: what the first report of `sOuter` starts.
VELDobjectStruct* sOuter = nullptr;
VELDobjectStruct* sInner = nullptr;

void OnCompilerError(VELDobjectStruct* object, long line, long number, VELDstringStruct*) {
  // The texts use objects, whose code is not built yet; only the unknown
  // classes they name matter here.
  if (number == NotYetSupported) return;
  sReports.push_back({object, line, number});
  if (object != sOuter || sReports.size() != 1) return;
  // The outer compile is inside its parse: another compile starts, and the
  // outer object's text is replaced under its own compile.
  StandInCallMethod(sInner, "Precompile");
  SetSourceProperty(sOuter, "Dim w As Integer\n");
}

class TwoScripts : public HostedTest {
protected:
  void SetUp() override {
    HostedTest::SetUp();
    sReports.clear();
    sOuter = sInner = nullptr;
    a = VELDnewInstance("KvScript");
    b = VELDnewInstance("KvScript");
    for (VELDobjectStruct* object : {a, b})
      ASSERT_TRUE(StandInSetEventHandler(object, "CompilerError",
                                         reinterpret_cast<void*>(&OnCompilerError)));
  }
  void TearDown() override {
    VELDUnlockObject(a);
    VELDUnlockObject(b);
    HostedTest::TearDown();
  }

  // A report as "b 1 63": the object, the line and the error number.
  static std::string Report(char const* object, long line, long number = UnknownClass) {
    return std::string(object) + " " + std::to_string(line) + " " + std::to_string(number);
  }
  std::vector<std::string> Reports() const {
    std::vector<std::string> out;
    for (CompileReport const& r : sReports) out.push_back(Report(r.object == a ? "a" : "b", r.line, r.number));
    return out;
  }

  VELDobjectStruct* a = nullptr;
  VELDobjectStruct* b = nullptr;
};

TEST_F(TwoScripts, CompileAndRunAlternatelyEachWithItsOwnResults) {
  SetSourceProperty(a, "Dim x As Integer\nDim s As String\n");
  SetSourceProperty(b, "Dim y As Integer\nDim z As Nowhere\n");
  string firstListing;
  ASSERT_TRUE(EngineOf(a)->ListThreeAddressCode(&firstListing));
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    for (char const* method : {"Precompile", "Run"}) {
      ASSERT_TRUE(StandInCallMethod(b, method));
      EXPECT_EQ(nullptr, gContext) << "nothing points into the compile that is over";
      ASSERT_TRUE(StandInCallMethod(a, method));
      EXPECT_EQ(nullptr, gContext);
    }
    EXPECT_NE(nullptr, EngineOf(a)->Code());
    EXPECT_EQ(nullptr, EngineOf(b)->Code());
    EXPECT_EQ(ScriptStateComplete, StateOf(a));
    EXPECT_EQ(ScriptStateError, StateOf(b));
    // Each Precompile of b and each Run, which compiles b again, reports.
    std::vector<std::string> expected((size_t)(2 * (round + 1)), Report("b", 1));
    EXPECT_EQ(expected, Reports());
    string listing;
    ASSERT_TRUE(EngineOf(a)->ListThreeAddressCode(&listing));
    EXPECT_STREQ(firstListing.CString(), listing.CString()) << "b's compiles left a's unchanged";
  }
}

TEST_F(TwoScripts, ACompileInsideAnotherLeavesTheOuterOneAsItWas) {
  sOuter = a;
  sInner = b;
  // The first error is reported with the parser holding a look-ahead token.
  SetSourceProperty(a, "Dim o As Object\no = New Foo\no = New Bar\n");
  SetSourceProperty(b, "Dim p As Integer\nDim q As Baz\n");
  ASSERT_TRUE(StandInCallMethod(a, "Precompile"));
  // a's compile went on past b's, on its own text, to its own second error.
  EXPECT_EQ((std::vector<std::string>{Report("a", 1), Report("b", 1), Report("a", 2)}), Reports());
  EXPECT_EQ(nullptr, gContext);
  EXPECT_EQ(nullptr, EngineOf(a)->Code());
  // The text set during the compile is the one compiled next.
  EXPECT_STREQ("Dim w As Integer\n", EngineOf(a)->Source());
  ASSERT_TRUE(StandInCallMethod(a, "Precompile"));
  EXPECT_NE(nullptr, EngineOf(a)->Code());
  EXPECT_EQ(3u, sReports.size());
}

// From inside a's exception handler, a's Print event runs b, whose
// exception no handler of b takes: b's run ends with its own RuntimeError,
// and a goes on in its handler.
std::vector<std::string> sEvents;
void OnPrintRunsB(VELDobjectStruct* object, VELDstringStruct* msg) {
  std::string text(VELDstringStruct::CString(msg), (size_t)VELDstringStruct::Length(msg));
  sEvents.push_back((object == sOuter ? "a: " : "b: ") + text);
  if (object == sOuter && text == "go") StandInCallMethod(sInner, "Run");
}
void OnRuntimeErrorNoted(VELDobjectStruct* object, long line, VELDobjectStruct* error) {
  sEvents.push_back(std::string(object == sOuter ? "a" : "b") + " unhandled " + StandInClassName(error) +
                    " on " + std::to_string(line));
}

TEST_F(TwoScripts, ARunInsideAHandlerKeepsItsExceptionsApart) {
  sOuter = a;
  sInner = b;
  sEvents.clear();
  for (VELDobjectStruct* object : {a, b}) {
    ASSERT_TRUE(StandInSetEventHandler(object, "Print", reinterpret_cast<void*>(&OnPrintRunsB)));
    ASSERT_TRUE(StandInSetEventHandler(object, "RuntimeError", reinterpret_cast<void*>(&OnRuntimeErrorNoted)));
  }
  SetSourceProperty(a, "Try\nRaise New RuntimeException\nCatch e\nPrint \"go\"\nPrint \"a handles on\"\nEnd Try\n");
  SetSourceProperty(b, "Print \"b runs\"\nRaise New NilObjectException\nPrint \"never\"\n");
  ASSERT_TRUE(StandInCallMethod(a, "Run"));
  EXPECT_EQ((std::vector<std::string>{"a: go", "b: b runs", "b unhandled NilObjectException on 1", "a: a handles on"}),
            sEvents);
  EXPECT_EQ(ScriptStateComplete, StateOf(a));
  EXPECT_EQ(ScriptStateError, StateOf(b));
}

}  // namespace
