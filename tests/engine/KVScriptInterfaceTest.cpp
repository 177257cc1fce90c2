// The host-independent engine: source copying, source faults, the image's
// lifetime, the virtual slot order and the run-time correspondent's class
// list.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "backend/MiniLinker.h"
#include "engine/HostedFixture.h"
#include "engine/KVScriptInterface.h"
#include "foundation/Utility.h"
#include "runtime/RuntimeObjectFoundation.h"

namespace {

// An engine whose image can be planted, and which records the compile
// errors that reach it.
class ProbeEngine : public KVScriptInterface {
public:
  void PlantImage() { mCode.BindNewObject(new RunReadyCode); }

  using KVScriptInterface::CompilerError;
  void CompilerError(CompileErrorCode code, unsigned long line) override {
    compileErrors.push_back({(long)code, (long)line});
  }

  struct Report {
    long code;
    long line;
  };
  std::vector<Report> compileErrors;
};

// Itanium C++ ABI: a pointer to a virtual member function holds
// 1 + the byte offset of its slot in the vtable.
template <class F>
long SlotOf(F f) {
  struct {
    uintptr_t ptr;
    ptrdiff_t adj;
  } rep;
  static_assert(sizeof(f) == sizeof(rep));
  memcpy(&rep, &f, sizeof rep);
  return rep.ptr & 1 ? (long)((rep.ptr - 1) / sizeof(void*)) : -1;
}

TEST(KVScriptInterface, VirtualSlotsAreInTheirFixedOrder) {
  using I = KVScriptInterface;
  EXPECT_EQ(0, SlotOf(&KvScriptCorrespondent::ScriptError));
  EXPECT_EQ(1, SlotOf(&KvScriptCorrespondent::Print));
  EXPECT_EQ(2, SlotOf(&KvScriptCorrespondent::Input));
  EXPECT_EQ(3, SlotOf(&KvScriptCorrespondent::ScriptYield));
  // Slots 4 and 5 are the destructors.
  EXPECT_EQ(6, SlotOf(&I::SetSource));
  EXPECT_EQ(7, SlotOf(&I::SetContext));
  EXPECT_EQ(8, SlotOf(&I::RegisterHostMethod));
  EXPECT_EQ(9, SlotOf(&I::RegisterHostProperty));
  EXPECT_EQ(10, SlotOf(&I::ClearHostCallbacks));
  EXPECT_EQ(11, SlotOf(&I::Precompile));
  EXPECT_EQ(12, SlotOf(&I::Run));
  EXPECT_EQ(13, SlotOf(&I::PartialRun));
  EXPECT_EQ(14, SlotOf(static_cast<void (I::*)(CompileErrorCode, unsigned long)>(&I::CompilerError)));
  EXPECT_EQ(15, SlotOf(&I::RuntimeError));
  EXPECT_EQ(16, SlotOf(&I::YieldToOtherThreads));
  EXPECT_EQ(17, SlotOf(&I::GetStackLimit));
  EXPECT_EQ(18, SlotOf(&I::SetStackLimit));
  EXPECT_EQ(19, SlotOf(&I::InitStackChecker));
  EXPECT_EQ(20, SlotOf(static_cast<bool (I::*)(CompileError)>(&I::CompilerError)));
  // The delegate's own table keeps its order in the second base.
  EXPECT_EQ(0, SlotOf(&CompilerDelegate::CompilerFrontendProgress));
  EXPECT_EQ(3, SlotOf(&CompilerDelegate::CompilerError));
  EXPECT_EQ(4, SlotOf(&CompilerDelegate::CompilerFailed));
}

struct SourceCase {
  char const* name;
  char const* text;
  unsigned long length;
  std::vector<char> stored;  // length + 2 bytes
};

TEST(KVScriptInterface, SetSourceCopiesLengthBytesThenLineFeedAndNul) {
  static char const kEmbeddedNul[] = {'a', 'b', 0, 'c', 'd'};
  SourceCase const cases[] = {
      {"empty", "", 0, {'\n', 0}},
      {"null text, length 0", nullptr, 0, {'\n', 0}},
      {"plain", "Print 1", 7, {'P', 'r', 'i', 'n', 't', ' ', '1', '\n', 0}},
      {"shorter than the text", "abcdef", 3, {'a', 'b', 'c', '\n', 0}},
      {"keeps a NUL, which no compile reads", kEmbeddedNul, 5, {'a', 'b', 0, 'c', 'd', '\n', 0}},
      {"already ends in a line feed", "x\n", 2, {'x', '\n', 0}},
      {"ends in a bare CR", "x\r", 2, {'x', '\r', '\n', 0}},
  };
  for (SourceCase const& c : cases) {
    SCOPED_TRACE(c.name);
    ProbeEngine engine;
    engine.SetSource(c.text, c.length);
    ASSERT_NE(nullptr, engine.Source());
    EXPECT_EQ(0, memcmp(c.stored.data(), engine.Source(), c.stored.size()));
  }
  char text[] = "Print 1";
  ProbeEngine engine;
  engine.SetSource(text, 7);
  text[0] = 'X';
  EXPECT_STREQ("Print 1\n", engine.Source()) << "a private copy";
}

// A source that can't be compiled is refused by SetSource and reported by
// every compile after it, until the next SetSource.
TEST(KVScriptInterface, SourceFaultsAreReportedByEveryCompile) {
  const struct {
    char const* name;
    char const* text;
    unsigned long length;
    ProbeEngine::Report report;
  } cases[] = {
      // Refused before a byte is read, so the short text is never overrun.
      {"past the cap", "x", kMaxSourceLength + 1, {SourceTooLarge, 0}},
      {"a NUL after CRLF, CR and LF", "a\r\nb\rc\n\0d", 9, {NulInSource, 3}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    ProbeEngine engine;
    engine.SetSource(c.text, c.length);
    engine.Precompile();
    string listing;
    EXPECT_FALSE(engine.ListThreeAddressCode(&listing));
    ASSERT_EQ(2u, engine.compileErrors.size());
    for (ProbeEngine::Report const& r : engine.compileErrors) {
      EXPECT_EQ(c.report.code, r.code);
      EXPECT_EQ(c.report.line, r.line);
    }
    EXPECT_EQ(nullptr, engine.Code());
    engine.SetSource("Dim a As Integer", 16);
    engine.Precompile();
    EXPECT_EQ(2u, engine.compileErrors.size());
  }
}

// Every operation that changes what the compiler sees discards the image.
TEST(KVScriptInterface, OperationsThatChangeTheInputDiscardTheImage) {
  struct Case {
    char const* name;
    std::function<void(ProbeEngine&)> operation;
  };
  Case const cases[] = {
      {"SetSource", [](ProbeEngine& e) { e.SetSource("x", 1); }},
      {"SetContext", [](ProbeEngine& e) { e.SetContext(&e); }},
      {"RegisterHostMethod", [](ProbeEngine& e) { e.RegisterHostMethod(nullptr, false, "Sub F()"); }},
      {"RegisterHostProperty",
       [](ProbeEngine& e) { e.RegisterHostProperty(nullptr, nullptr, 0, "P As Integer"); }},
      {"ClearHostCallbacks", [](ProbeEngine& e) { e.ClearHostCallbacks(); }},
      {"ForceCompile", [](ProbeEngine& e) { e.ForceCompile(); }},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    ProbeEngine engine;
    engine.PlantImage();
    ASSERT_NE(nullptr, engine.Code());
    c.operation(engine);
    EXPECT_EQ(nullptr, engine.Code());
  }
}

TEST(KVScriptInterface, PrecompileAndRunKeepAPlantedImage) {
  ProbeEngine engine;
  engine.SetSource("x", 1);
  engine.PlantImage();
  RunReadyCode* image = engine.Code();
  engine.Precompile();
  engine.Run();
  engine.Run();
  EXPECT_EQ(image, engine.Code());
}

TEST(KVScriptInterfaceDeathTest, ACallFromASecondThreadStopsACheckBuild) {
#if !defined(KV_CHECKS)
  GTEST_SKIP() << "only check builds record the engine's thread";
#endif
  ProbeEngine engine;
  engine.Run();
  EXPECT_DEATH(std::thread([&engine] { engine.Run(); }).join(), "internal check failed");
}

// ---------------------------------------------------------------------------
// The run-time correspondent

TEST(RuntimeCorrespondent, InitClearsAndExitFreesEveryClassAndItsName) {
  ProbeEngine engine;
  SetRuntimeCorrespondent(&engine);
  InitKvScriptRuntime();
  EXPECT_EQ(nullptr, GetRuntimeCorrespondent());
  EXPECT_EQ(nullptr, mClassList);
  long before = gTotalAllocLen;
  MakeClass("First", 2, 1);
  MakeClass("Second", 40, 3);  // large enough to leave the small-block lists
  RuntimeClass* unnamed = MakeClass("x", 0, 0);
  stringStorage::RemoveReference(unnamed->mName);
  unnamed->mName = nullptr;
  ASSERT_GT(gTotalAllocLen, before);
  ExitKvScriptRuntime();
  EXPECT_EQ(nullptr, mClassList);
  EXPECT_EQ(before, gTotalAllocLen);
  ExitKvScriptRuntime();
  EXPECT_EQ(nullptr, mClassList);
  EXPECT_EQ(before, gTotalAllocLen);
}

}  // namespace
