#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "backend/CodeGeneratorFixture.h"
#include "backend/MiniLinker.h"
#include "engine/KVScriptInterface.h"
#include "runtime/KVScriptIntrinsics.h"
#include "runtime/RuntimeObjectFoundation.h"

namespace {

// Hears the run-time library and answers input with a set text.
class Listener : public KvScriptCorrespondent {
public:
  void ScriptError(RuntimeErrorCode code, unsigned long line) override {
    errors.push_back((int)code);
    errorLines.push_back(line);
  }
  void Print(char const* text, unsigned long length) override { printed.push_back(std::string(text, length)); }
  char* Input(char const* prompt, unsigned long length, unsigned long* outLength) override {
    prompts.push_back(std::string(prompt, length));
    if (!answer) return nullptr;
    size_t n = strlen(answer);
    char* buffer = new char[n + 1];
    memcpy(buffer, answer, n + 1);
    *outLength = n;
    return buffer;
  }
  void ScriptYield() override {
    ++yields;
    // Another script runs meanwhile and leaves the run globals its own way.
    SetRuntimeCorrespondent(nullptr);
    mClassList = nullptr;
  }

  char const* answer = nullptr;
  std::vector<std::string> printed, prompts;
  std::vector<int> errors;
  std::vector<unsigned long> errorLines;
  int yields = 0;
};

class LibraryFunctions : public ::testing::Test {
protected:
  void SetUp() override { InitKvScriptRuntime(); }
  void TearDown() override {
    ExitKvScriptRuntime();
    InitKvScriptRuntime();
  }

  // A class record such as the object run-time makes, put on the run's list.
  RuntimeClass* ListClass(char const* name) {
    auto* c = reinterpret_cast<RuntimeClass*>(OSalloclen((int)RuntimeClassAllocationSize(0, 0, 0, 0, 0), 0));
    memset(c, 0, sizeof(RuntimeClass));
    c->mName = string(name).ExtractStringStorage();
    c->mNext = mClassList;
    mClassList = c;
    return c;
  }

  Listener listener;
};

stringStorage* Text(char const* s) {
  string text(s);
  text.SetEncoding(kEncodingUTF8);
  return text.ExtractStringStorage();
}

// Without a correspondent output is dropped and input is empty.
TEST_F(LibraryFunctions, PrintAndInputGoThroughTheCorrespondent) {
  stringStorage* greeting = Text("h\xC3\xA9llo");
  Print(greeting);
  EXPECT_EQ(Input(greeting), nullptr);
  SetRuntimeCorrespondent(&listener);
  Print(greeting);
  Print(nullptr);
  EXPECT_EQ(listener.printed, (std::vector<std::string>{"h\xC3\xA9llo", ""}));

  struct {
    char const* answer;
    char const* expected;
  } const kAnswers[] = {{"Ada", "Ada"}, {"", nullptr}, {nullptr, nullptr}};
  for (auto const& c : kAnswers) {
    listener.answer = c.answer;
    stringStorage* got = Input(greeting);
    if (!c.expected) {
      EXPECT_EQ(got, nullptr);
      continue;
    }
    ASSERT_NE(got, nullptr);
    EXPECT_STREQ(stringStorage::CString(got), c.expected);
    EXPECT_EQ(got->mEncoding, kEncodingUTF8);
    EXPECT_EQ(got->mRefCount, 1u);  // the caller's one reference
    stringStorage::RemoveReference(got);
  }
  EXPECT_EQ(listener.prompts, std::vector<std::string>(3, "h\xC3\xA9llo"));
  stringStorage::RemoveReference(greeting);
}

// A yield lets another script run, which leaves the run globals its own
// way: they are put back. An unhandled exception is error 2 on line 0.
TEST_F(LibraryFunctions, YieldKeepsTheRunsGlobalsAndErrorsReachTheCorrespondent) {
  UnhandledException(nullptr);  // no one to tell
  SetRuntimeCorrespondent(&listener);
  UnhandledException(nullptr);
  EXPECT_EQ(listener.errors, std::vector<int>{kRuntimeErrorUnhandledException});
  EXPECT_EQ(listener.errorLines, std::vector<unsigned long>{0});
  RuntimeClass* mine = ListClass("Mine");
  gRuntimeYieldCountdown = 0;
  RuntimeYield();  // generated code calls when its count has run out
  EXPECT_EQ(listener.yields, 1);
  EXPECT_EQ(gRuntimeYieldCountdown, kYieldInterval);
  EXPECT_EQ(GetRuntimeCorrespondent(), &listener);
  EXPECT_EQ(mClassList, mine);
  SetRuntimeCorrespondent(nullptr);
  RuntimeYield();  // nobody to yield to
  EXPECT_EQ(listener.yields, 1);
}

TEST_F(LibraryFunctions, ClassesAreFoundByNameIgnoringCase) {
  ListClass("RuntimeException");
  RuntimeClass* nilObject = ListClass("nilobjectexception");
  EXPECT_EQ(FindNamedClass("NilObjectException"), nilObject);
  EXPECT_EQ(FindNamedClass("Nil"), nullptr);
  EXPECT_EQ(FindNamedClass(""), nullptr);
  // The first of two records of one name wins.
  RuntimeClass* again = ListClass("NILOBJECTEXCEPTION");
  EXPECT_EQ(FindNamedClass("NilObjectException"), again);
}

TEST_F(LibraryFunctions, ArgumentsForExternalFunctions) {
  stringStorage* abc = Text("abc");
  unsigned char const* pascal = StringToPString(abc);
  EXPECT_EQ(pascal[0], 3);
  EXPECT_EQ(memcmp(pascal + 1, "abc", 3), 0);
  EXPECT_EQ(StringToPString(nullptr)[0], 0);
  EXPECT_STREQ(StringToCString(abc), "abc");
  EXPECT_STREQ(StringToCString(nullptr), "");

  struct {
    char const* text;
    uint32_t code;
  } const kCodes[] = {{"TEXT", 0x54455854}, {"ab", 0x61622020}, {"", 0x20202020}, {"longer", 0x6c6f6e67}};
  for (auto const& c : kCodes) {
    stringStorage* s = Text(c.text);
    EXPECT_EQ(StringToOSType(s), c.code) << c.text;
    stringStorage::RemoveReference(s);
  }
  struct {
    int32_t in, out;
  } const kShorts[] = {{5, 5}, {0xFFFF, -1}, {0x18000, -32768}, {-2, -2}, {0x7FFF, 32767}};
  for (auto const& c : kShorts) EXPECT_EQ(RuntimeShortToInteger(c.in), c.out) << c.in;
  stringStorage::RemoveReference(abc);
}

// The library as generated code meets it: a main that prints a literal and
// what Input gave back, through the real table.
TEST_F(LibraryFunctions, LinkedCodePrintsThroughTheTable) {
  TacProgram program;
  TacAddr const* answer = program.Global("answer", kTypeString);
  auto call = [&](char const* name, TacAddr const* argument, TacAddr const* result = nullptr) {
    if (argument) program.Add(tac_PutParam, argument);
    program.Add(tac_Call, program.Text(name), nullptr, result);
  };
  call("RuntimeInit", nullptr);
  call("Input", program.Text("who?"), answer);
  call("Print", answer);
  call("RuntimeUnlockString", answer);
  call("Print", program.Text("bye"));
  call("RuntimeExit", nullptr);
  program.EmptyMain();
  Ref<CodeModule> module = GenerateIA32(program);
  ASSERT_TRUE(module);

  StringMap<void*>* table = MakeKvScriptRuntimeFunctionTable();
  std::unique_ptr<RunReadyCode> image(MiniLink(module, table));
  delete table;  // only the addresses live on in the image
  ASSERT_NE(image, nullptr);
  listener.answer = "Grace";
  image->Run(&listener);
  EXPECT_EQ(listener.prompts, std::vector<std::string>{"who?"});
  EXPECT_EQ(listener.printed, (std::vector<std::string>{"Grace", "bye"}));
}

}  // namespace
