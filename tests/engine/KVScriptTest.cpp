// The host class KvScript driven through the stand-in host as a host
// application drives it: objects from PluginNewInstance, Source and Context
// through their property setters, the methods by name, events through the
// host's handlers.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "engine/HostedFixture.h"
#include "engine/KVScript.h"
#include "engine/KVScriptInterface.h"
#include "runtime/HostLibraryTable.h"

namespace {

// What the host's handlers saw.
struct EventLog {
  std::vector<std::string> printed;
  std::vector<std::string> prompts;
  std::string answer;
  unsigned long answerEncoding = kEncodingUTF8;
  struct CompileReport {
    long line;
    long number;
    std::string message;
    long stateDuringEvent;
  };
  std::vector<CompileReport> compileReports;
  struct RuntimeReport {
    long line;
    std::string className;
    long errorLocks;
  };
  std::vector<RuntimeReport> runtimeReports;
  std::vector<unsigned long> encodings;
};
EventLog sLog;

void OnPrint(VELDobjectStruct*, VELDstringStruct* msg) {
  sLog.printed.emplace_back(VELDstringStruct::CString(msg), (size_t)VELDstringStruct::Length(msg));
  sLog.encodings.push_back(msg ? msg->mEncoding : 0);
}

VELDstringStruct* OnInput(VELDobjectStruct*, VELDstringStruct* prompt) {
  sLog.prompts.emplace_back(VELDstringStruct::CString(prompt),
                            (size_t)VELDstringStruct::Length(prompt));
  sLog.encodings.push_back(prompt ? prompt->mEncoding : 0);
  return StandInString(sLog.answer.data(), (long)sLog.answer.size(), sLog.answerEncoding);
}

void OnCompilerError(VELDobjectStruct* object, long line, long number, VELDstringStruct* msg) {
  sLog.compileReports.push_back({line, number, VELDstringStruct::CString(msg), StateOf(object)});
}

void OnRuntimeError(VELDobjectStruct*, long line, VELDobjectStruct* error) {
  sLog.runtimeReports.push_back({line, StandInClassName(error), StandInLockCount(error)});
}

class KvScriptTest : public HostedTest {
protected:
  void SetUp() override {
    HostedTest::SetUp();
    sLog = EventLog();
    mScript = VELDnewInstance("KvScript");
    ASSERT_NE(nullptr, mScript);
  }

  void TearDown() override {
    VELDUnlockObject(mScript);
    HostedTest::TearDown();
  }

  KVInterpreter* Engine() { return KvScriptDataOf(mScript)->interpreter; }

  void SetSource(char const* text) { SetSourceProperty(mScript, text); }

  void HandleAllEvents() {
    ASSERT_TRUE(StandInSetEventHandler(mScript, "Print", reinterpret_cast<void*>(&OnPrint)));
    ASSERT_TRUE(StandInSetEventHandler(mScript, "Input", reinterpret_cast<void*>(&OnInput)));
    ASSERT_TRUE(StandInSetEventHandler(mScript, "CompilerError",
                                       reinterpret_cast<void*>(&OnCompilerError)));
    ASSERT_TRUE(StandInSetEventHandler(mScript, "RuntimeError",
                                       reinterpret_cast<void*>(&OnRuntimeError)));
  }

  VELDobjectStruct* mScript = nullptr;
};

// ---------------------------------------------------------------------------
// Object life

TEST_F(KvScriptTest, ANewObjectIsIdleWithTheLibraryRegistered) {
  EXPECT_EQ(ScriptStateIdle, StateOf(mScript));
  EXPECT_FALSE(StandInSetIntegerProperty(mScript, "CurrentLineNumber", 5)) << "read-only";
  EXPECT_EQ(nullptr, StandInGetStringProperty(mScript, "Source"));
  ASSERT_NE(nullptr, Engine());
  EXPECT_EQ(mScript, Engine()->mOwner);
  EXPECT_EQ((unsigned long)kHostLibraryFunctionCount, Engine()->HostMethods().size());
}

void HostAbs() {}

TEST_F(KvScriptTest, LibraryRowsTakeTheHostsEntriesByNameAndNullWhereItHasNone) {
  StandInDefineEntry("RuntimeAbs", reinterpret_cast<void*>(&HostAbs));
  StandInWithhold("RuntimeACos");
  VELDobjectStruct* other = VELDnewInstance("KvScript");
  KVInterpreter* engine = KvScriptDataOf(other)->interpreter;
  EXPECT_STREQ("Function Abs(val As Double) As Double",
               engine->HostMethods()[0].declaration.CString());
  EXPECT_EQ(reinterpret_cast<void*>(&HostAbs), engine->HostMethods()[0].entry);
  EXPECT_EQ(nullptr, engine->HostMethods()[1].entry);
  VELDUnlockObject(other);
}

TEST_F(KvScriptTest, TheFinalizerReleasesEverythingTheObjectHeld) {
  HandleAllEvents();
  SetSource("Print 1");
  VELDstringStruct* font = StandInString("Courier", kEncodingASCII);
  EXPECT_TRUE(StandInSetStringProperty(mScript, "EncodingFont", font));
  VELDUnlockString(font);
  VELDobjectStruct* context = VELDnewInstance("RuntimeException");
  EXPECT_TRUE(StandInSetObjectProperty(mScript, "Context", context));
  VELDUnlockObject(context);
  EXPECT_EQ(1, StandInLockCount(context)) << "the script holds the only lock";
  // TearDown unlocks the script and checks that nothing is left.
}

// ---------------------------------------------------------------------------
// The state table

enum Operation { kRun, kPartialRun, kReset, kPrecompile, kSetSource, kSetContext,
                 kCompileError, kRuntimeError };

struct TransitionCase {
  Operation operation;
  long before;
  long after;
  bool raises;
};

char const* const kOperationNames[] = {"Run", "PartialRun", "Reset", "Precompile", "set Source",
                                       "set Context", "compile error", "run-time error"};

TEST_F(KvScriptTest, EveryTransitionOfTheStateTable) {
  TransitionCase const cases[] = {
      {kRun, 0, 2, false},          {kRun, 1, 2, false},
      {kRun, 2, 2, false},          {kRun, 3, 2, false},
      {kPartialRun, 0, 1, false},   {kPartialRun, 1, 1, false},
      {kPartialRun, 2, 1, false},   {kPartialRun, 3, 1, false},
      {kReset, 0, 0, false},        {kReset, 1, 0, false},
      {kReset, 2, 0, false},        {kReset, 3, 0, false},
      {kPrecompile, 0, 0, false},   {kPrecompile, 1, 1, false},
      {kPrecompile, 2, 2, false},   {kPrecompile, 3, 3, false},
      {kSetSource, 0, 0, false},    {kSetSource, 1, 1, true},
      {kSetSource, 2, 0, false},    {kSetSource, 3, 0, false},
      {kSetContext, 0, 0, false},   {kSetContext, 1, 1, true},
      {kSetContext, 2, 2, false},   {kSetContext, 3, 3, false},
      {kCompileError, 0, 3, false}, {kCompileError, 1, 3, false},
      {kCompileError, 2, 3, false}, {kCompileError, 3, 3, false},
      {kRuntimeError, 0, 3, false}, {kRuntimeError, 1, 3, false},
      {kRuntimeError, 2, 3, false}, {kRuntimeError, 3, 3, false},
  };
  SetSource("Print \"1\"");
  for (TransitionCase const& c : cases) {
    SCOPED_TRACE(std::string(kOperationNames[c.operation]) + " from state " +
                 std::to_string(c.before));
    StandInClearRaisedException();
    long raisesBefore = StandInRaiseCount();
    // The host writes State itself, as its property row says.
    ASSERT_TRUE(StandInSetIntegerProperty(mScript, "State", c.before));
    switch (c.operation) {
      case kRun: EXPECT_TRUE(StandInCallMethod(mScript, "Run")); break;
      case kPartialRun: EXPECT_TRUE(StandInCallMethod(mScript, "PartialRun", 10)); break;
      case kReset: EXPECT_TRUE(StandInCallMethod(mScript, "Reset")); break;
      case kPrecompile: EXPECT_TRUE(StandInCallMethod(mScript, "Precompile")); break;
      case kSetSource: SetSource("Print \"2\""); break;
      case kSetContext: EXPECT_TRUE(StandInSetObjectProperty(mScript, "Context", nullptr)); break;
      case kCompileError: Engine()->CompilerError(CompileError(SyntaxError, SourceLocation(1))); break;
      case kRuntimeError: Engine()->ScriptError(kRuntimeErrorUnhandledException, 0); break;
    }
    EXPECT_EQ(c.after, StateOf(mScript));
    EXPECT_EQ(c.raises ? raisesBefore + 1 : raisesBefore, StandInRaiseCount());
  }
}

TEST_F(KvScriptTest, RunCompletesWithoutSourceAndWithoutReports) {
  HandleAllEvents();
  EXPECT_TRUE(StandInCallMethod(mScript, "Run"));
  EXPECT_EQ(ScriptStateComplete, StateOf(mScript));
  EXPECT_TRUE(sLog.compileReports.empty());
  EXPECT_TRUE(sLog.runtimeReports.empty());
  EXPECT_FALSE(Engine()->IsRunning());
}

// The state table shows the raise; here nothing the refused call brought
// may stick, and Reset lifts the guard.
TEST_F(KvScriptTest, SettingSourceOrContextDuringARunChangesNothing) {
  SetSource("Print 1");
  VELDobjectStruct* context = VELDnewInstance("RuntimeException");
  ASSERT_TRUE(StandInSetObjectProperty(mScript, "Context", context));
  ASSERT_TRUE(StandInCallMethod(mScript, "PartialRun", 100));
  long contextLocks = StandInLockCount(context);

  SetSource("Print 2");
  VELDobjectStruct* other = VELDnewInstance("RuntimeException");
  EXPECT_TRUE(StandInSetObjectProperty(mScript, "Context", other));
  EXPECT_STREQ("KvScriptAlreadyRunningException", StandInClassName(StandInRaisedException()));
  EXPECT_EQ(1, StandInLockCount(other)) << "the refused context was not kept";
  VELDUnlockObject(other);
  EXPECT_STREQ("Print 1\n", Engine()->Source());
  EXPECT_EQ(context, StandInGetObjectProperty(mScript, "Context"));
  EXPECT_EQ(context, Engine()->Context());
  EXPECT_EQ(contextLocks, StandInLockCount(context));

  ASSERT_TRUE(StandInCallMethod(mScript, "Reset"));
  SetSource("Print 3");
  EXPECT_STREQ("Print 3\n", Engine()->Source());
  VELDUnlockObject(context);
}

TEST_F(KvScriptTest, WithoutTheExceptionClassTheGuardStillRefuses) {
  StandInWithhold("PluginNewInstance");
  Reload();
  SetSource("Print 1");
  ASSERT_TRUE(StandInCallMethod(mScript, "PartialRun", 1));
  SetSource("Print 2");
  EXPECT_EQ(0, StandInRaiseCount()) << "no object could be made, so nothing is raised";
  EXPECT_STREQ("Print 1\n", Engine()->Source());
}

TEST_F(KvScriptTest, SourceIsStoredConvertedAndCopiedIntoTheEngine) {
  VELDstringStruct* latin1 = StandInString("caf\xE9", 513);
  ASSERT_TRUE(StandInSetStringProperty(mScript, "Source", latin1));
  VELDUnlockString(latin1);
  VELDstringStruct* stored = StandInGetStringProperty(mScript, "Source");
  ASSERT_NE(nullptr, stored);
  EXPECT_EQ(kEncodingUTF8, stored->mEncoding);
  EXPECT_STREQ("caf\xC3\xA9", VELDstringStruct::CString(stored));
  EXPECT_STREQ("caf\xC3\xA9\n", Engine()->Source());

  // The same text again still discards the image and resets the state.
  ASSERT_TRUE(StandInSetIntegerProperty(mScript, "State", ScriptStateComplete));
  VELDstringStruct* same = StandInString("caf\xC3\xA9", kEncodingUTF8);
  ASSERT_TRUE(StandInSetStringProperty(mScript, "Source", same));
  VELDUnlockString(same);
  EXPECT_EQ(ScriptStateIdle, StateOf(mScript));
}

// ---------------------------------------------------------------------------
// Print and Input

TEST_F(KvScriptTest, PrintRaisesThePrintEventWithUTF8TextOrNothing) {
  ASSERT_TRUE(StandInSetIntegerProperty(mScript, "State", ScriptStateRunning));
  Engine()->Print("lost", 4);  // no handler yet
  EXPECT_EQ(ScriptStateRunning, StateOf(mScript));
  HandleAllEvents();
  // Through the run-time's channel, as a running script reaches it.
  SetRuntimeCorrespondent(Engine());
  GetRuntimeCorrespondent()->Print("h\xC3\xA9llo", 6);
  SetRuntimeCorrespondent(nullptr);
  EXPECT_EQ(std::vector<std::string>{"h\xC3\xA9llo"}, sLog.printed);
  EXPECT_EQ(std::vector<unsigned long>{kEncodingUTF8}, sLog.encodings);
}

// The answer comes back as UTF-8 bytes; nothing, or no handler, is a null
// buffer of length 0. A null length is accepted.
TEST_F(KvScriptTest, InputReturnsTheHandlersAnswerAsUTF8Bytes) {
  unsigned long length = 999;
  EXPECT_EQ(nullptr, Engine()->Input("?", 1, &length));
  EXPECT_EQ(0u, length);
  HandleAllEvents();
  struct Case {
    char const* name;
    std::string answer;
    unsigned long encoding;
    std::string expected;
  };
  Case const cases[] = {
      {"UTF-8 answer", "yes", kEncodingUTF8, "yes"},
      {"Latin-1 answer", "\xE9", 513, "\xC3\xA9"},
      {"embedded NUL", std::string("a\0b", 3), kEncodingUTF8, std::string("a\0b", 3)},
      {"nothing", "", kEncodingUTF8, ""},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    sLog.answer = c.answer;
    sLog.answerEncoding = c.encoding;
    for (unsigned long* received : {&length, (unsigned long*)nullptr}) {
      length = 999;
      char* buffer = Engine()->Input("Name? ", 6, received);
      EXPECT_EQ(c.expected.empty(), buffer == nullptr);
      if (received) {
        EXPECT_EQ(c.expected, buffer ? std::string(buffer, length) : std::string(length, '?'));
      }
      delete[] buffer;
    }
  }
  EXPECT_EQ("Name? ", sLog.prompts[0]);
  EXPECT_EQ(kEncodingUTF8, sLog.encodings[0]);
}

// ---------------------------------------------------------------------------
// Error events

// The whole path from the parser's report to the host's event.
TEST_F(KvScriptTest, ASyntaxErrorInTheSourceReachesTheHostOnEveryCompile) {
  HandleAllEvents();
  SetSource("Print 1 +");
  ASSERT_TRUE(StandInCallMethod(mScript, "Precompile"));
  EXPECT_EQ(ScriptStateError, StateOf(mScript)) << "although nothing ran";
  ASSERT_EQ(1u, sLog.compileReports.size());
  EXPECT_EQ(SyntaxError, sLog.compileReports[0].number);
  EXPECT_EQ(0, sLog.compileReports[0].line);
  EXPECT_EQ("Error found while compiling", sLog.compileReports[0].message);
  EXPECT_EQ(ScriptStateIdle, sLog.compileReports[0].stateDuringEvent);
  EXPECT_EQ(nullptr, Engine()->Code());
  // Run resets, compiles again, reports again and ends in the error state.
  ASSERT_TRUE(StandInCallMethod(mScript, "Run"));
  EXPECT_EQ(ScriptStateError, StateOf(mScript));
  ASSERT_EQ(2u, sLog.compileReports.size());
  EXPECT_EQ(ScriptStateRunning, sLog.compileReports[1].stateDuringEvent);
  EXPECT_TRUE(sLog.printed.empty());
}

TEST_F(KvScriptTest, RunTimeErrorsNameTheHostExceptionClassByCode) {
  HandleAllEvents();
  struct Case {
    long code;
    char const* className;
  };
  Case const cases[] = {
      {2, "RuntimeException"}, {6, "stackOverflowException"}, {7, "stackOverflowException"},
      {9, "OutOfBoundsException"}, {10, "RuntimeException"}, {3, "RuntimeException"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.code);
    sLog.runtimeReports.clear();
    ASSERT_TRUE(StandInSetIntegerProperty(mScript, "State", ScriptStateRunning));
    Engine()->ScriptError((RuntimeErrorCode)c.code, 0);
    ASSERT_EQ(1u, sLog.runtimeReports.size());
    EXPECT_EQ(0, sLog.runtimeReports[0].line);
    EXPECT_EQ(c.className, sLog.runtimeReports[0].className);
    EXPECT_EQ(1, sLog.runtimeReports[0].errorLocks);
    EXPECT_EQ(ScriptStateError, StateOf(mScript));
  }
  // The fixture's object count shows that each exception object was released.
}

// ---------------------------------------------------------------------------
// Context

void ContextMethod() {}
void ContextGetter() {}
void ContextSetter() {}

VELDmethodDefinition sContextMethods[] = {
    {reinterpret_cast<void*>(&ContextMethod), 0, "Sub Beep(self As Integer)"},
    {reinterpret_cast<void*>(&ContextMethod), 0, "Private Sub Hidden(self As Integer)"},
    {reinterpret_cast<void*>(&ContextMethod), 0, "private Function Low(self As Integer) As Integer"},
    {reinterpret_cast<void*>(&ContextMethod), 0, "PRIVATE Sub Loud(self As Integer)"},
    {reinterpret_cast<void*>(&ContextMethod), 0, "PrivateSub(self As Integer)"},
    {reinterpret_cast<void*>(&ContextMethod), 0, "Function Count(self As Integer) As Integer"},
};
VELDproperty sContextProperties[] = {
    {nullptr, "Title", "String", 0, reinterpret_cast<void*>(&ContextGetter),
     reinterpret_cast<void*>(&ContextSetter), 0, {0, 0, 0}},
    {nullptr, "Private Secret", "Integer", 0, reinterpret_cast<void*>(&ContextGetter), nullptr, 4,
     {0, 0, 0}},
    {nullptr, "Size", "Integer", 0, reinterpret_cast<void*>(&ContextGetter), nullptr, 8, {0, 0, 0}},
};
VELDclassDefinition sContextClass = {
    kPluginInterfaceVersion, "TestContext", nullptr, 12, 0, nullptr, nullptr,
    sContextProperties, 3, sContextMethods, 6, nullptr, 0, {0, 0, 0, 0, 0, 0, 0},
};

TEST_F(KvScriptTest, ContextRegistersItsPublicMembersAfterTheLibrary) {
  ASSERT_TRUE(StandInRegisterClass(&sContextClass));
  VELDobjectStruct* context = VELDnewInstance("TestContext");
  ASSERT_TRUE(StandInSetIntegerProperty(mScript, "State", ScriptStateComplete));
  ASSERT_TRUE(StandInSetObjectProperty(mScript, "Context", context));
  EXPECT_EQ(ScriptStateComplete, StateOf(mScript)) << "setting Context keeps the state";
  EXPECT_EQ(context, Engine()->Context());

  auto const& methods = Engine()->HostMethods();
  ASSERT_EQ((unsigned long)kHostLibraryFunctionCount + 3, methods.size());
  std::vector<std::string> added;
  for (unsigned long i = kHostLibraryFunctionCount; i < methods.size(); ++i) {
    added.push_back(methods[i].declaration.CString());
    EXPECT_TRUE(methods[i].hasSelf);
    EXPECT_EQ(reinterpret_cast<void*>(&ContextMethod), methods[i].entry);
  }
  EXPECT_EQ((std::vector<std::string>{"Sub Beep(self As Integer)", "PrivateSub(self As Integer)",
                                      "Function Count(self As Integer) As Integer"}),
            added);

  auto const& properties = Engine()->HostProperties();
  ASSERT_EQ(2u, properties.size());
  EXPECT_STREQ("Title As String", properties[0].declaration.CString());
  EXPECT_EQ(reinterpret_cast<void*>(&ContextSetter), properties[0].setter);
  EXPECT_STREQ("Size As Integer", properties[1].declaration.CString());
  EXPECT_EQ(8, properties[1].param);
  EXPECT_EQ(nullptr, properties[1].setter);

  // The same object again: locked before the old lock goes, so it survives.
  long locks = StandInLockCount(context);
  ASSERT_TRUE(StandInSetObjectProperty(mScript, "Context", context));
  EXPECT_EQ(locks, StandInLockCount(context));
  EXPECT_EQ((unsigned long)kHostLibraryFunctionCount + 3, Engine()->HostMethods().size());

  // Nil removes the context's members and keeps the library.
  ASSERT_TRUE(StandInSetObjectProperty(mScript, "Context", nullptr));
  EXPECT_EQ(locks - 1, StandInLockCount(context));
  EXPECT_EQ((unsigned long)kHostLibraryFunctionCount, Engine()->HostMethods().size());
  EXPECT_EQ(0u, Engine()->HostProperties().size());
  EXPECT_EQ(nullptr, Engine()->Context());
  VELDUnlockObject(context);
}

TEST_F(KvScriptTest, AContextWhoseMembersTheHostWontDescribeAddsNothing) {
  ASSERT_TRUE(StandInRegisterClass(&sContextClass));
  StandInWithhold("VELDGetClassMethod");
  StandInWithhold("VELDCountClassProperties");
  Reload();
  VELDobjectStruct* context = VELDnewInstance("TestContext");
  ASSERT_TRUE(StandInSetObjectProperty(mScript, "Context", context));
  EXPECT_EQ((unsigned long)kHostLibraryFunctionCount, Engine()->HostMethods().size());
  EXPECT_EQ(0u, Engine()->HostProperties().size());
  VELDUnlockObject(context);
}

// ---------------------------------------------------------------------------
// Host services the engine forwards to

TEST_F(KvScriptTest, YieldAndStackServicesReachTheHost) {
  Engine()->YieldToOtherThreads();
  Engine()->SetStackLimit(65536);
  Engine()->InitStackChecker(12);
  EXPECT_EQ(1, StandInYieldCount());
  EXPECT_EQ(65536u, StandInStackLimit());
  EXPECT_EQ(65536u, Engine()->GetStackLimit());
  EXPECT_EQ(12u, StandInStackCheckerValue());
}

}  // namespace
