#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "link_fixture.h"

#include "engine/KVScriptInterface.h"

using namespace linktest;

namespace {

// What the linked code did, seen from the outside functions it called.
int sCounterCalls = 0;
std::vector<uintptr_t> sRecorded;
KvScriptCorrespondent* sCorrespondentSeen = nullptr;

extern "C" void LinkTestCounter() { ++sCounterCalls; }
extern "C" void LinkTestRecord(uintptr_t value) { sRecorded.push_back(value); }
// A correspondent that hears nothing; the base's destructor is not public.
class SilentCorrespondent : public KvScriptCorrespondent {};

extern "C" void LinkTestSeeCorrespondent() { sCorrespondentSeen = GetRuntimeCorrespondent(); }

class LinkIA32 : public ::testing::Test {
protected:
  void SetUp() override {
    sCounterCalls = 0;
    sRecorded.clear();
    sCorrespondentSeen = nullptr;
    table.AddEntry("Counter", reinterpret_cast<void*>(&LinkTestCounter));
    table.AddEntry("Record", reinterpret_cast<void*>(&LinkTestRecord));
    table.AddEntry("SeeCorrespondent", reinterpret_cast<void*>(&LinkTestSeeCorrespondent));
  }

  std::unique_ptr<RunReadyCode> Link(Ref<CodeModule> module) {
    return std::unique_ptr<RunReadyCode>(MiniLink(module, &table, &delegate));
  }

  StringMap<void*> table;
  RecordingDelegate delegate;
};

// The permissions of the mapping that holds `address`, as /proc lists them.
std::string PermissionsOf(void const* address) {
  FILE* maps = fopen("/proc/self/maps", "r");
  if (!maps) return "";
  char line[512];
  std::string found;
  uintptr_t at = (uintptr_t)address;
  while (fgets(line, sizeof line, maps)) {
    unsigned long low = 0, high = 0;
    char perms[8] = {0};
    if (sscanf(line, "%lx-%lx %7s", &low, &high, perms) == 3 && at >= low && at < high) {
      found = perms;
      break;
    }
  }
  fclose(maps);
  return found;
}

TEST_F(LinkIA32, OneStubPerOutsideFunctionWithEveryCallLeadingToIt) {
  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Prolog();
  int first = main.Call("Counter");
  int second = main.Call("Counter");
  int toHelper = main.Call("Helper");
  main.Epilog();
  int helperStart = (int)main.block->Length();
  FunctionWriter helper(module, "Helper");
  helper.Prolog();
  int third = helperStart + helper.Call("counter");  // names match without regard to case
  helper.Epilog();
  int codeLength = helperStart + (int)helper.block->Length();

  auto image = Link(module);
  ASSERT_NE(image, nullptr);
  EXPECT_TRUE(delegate.codes.empty());

  // One stub, right behind the code, and all three calls go there.
  int stub = CallTarget(*image, first);
  EXPECT_EQ(stub, codeLength);
  EXPECT_EQ(CallTarget(*image, second), stub);
  EXPECT_EQ(CallTarget(*image, third), stub);
  EXPECT_EQ((int)image->code->Length(), codeLength + kIA32StubSize);
  EXPECT_EQ(image->code->Get8((unsigned int)stub), kStubPushOpcode);
  EXPECT_EQ(WordAt(*image, stub + kStubAddressOffset), (uint32_t)(uintptr_t)&LinkTestCounter);
  EXPECT_EQ(image->code->Get8((unsigned int)stub + 5), kStubReturnOpcode);
  // A script function is called straight, with no stub.
  EXPECT_EQ(CallTarget(*image, toHelper), helperStart);

  image->Run(nullptr);
  EXPECT_EQ(sCounterCalls, 3);
}

TEST_F(LinkIA32, CodeIsExecutableAndNeverWritable) {
  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Prolog();
  main.Call("Counter");
  main.Epilog();
  auto image = Link(module);
  ASSERT_NE(image, nullptr);
  ASSERT_NE(image->CodeAddress(), nullptr);
  EXPECT_EQ(PermissionsOf(image->CodeAddress()).substr(0, 3), "r-x");
  // The mapped code is the linked block, byte for byte.
  EXPECT_EQ(memcmp(image->CodeAddress(), image->code->Buffer(), image->code->Length()), 0);
  ASSERT_NE(image->image, nullptr);
  char patch = 0;
  EXPECT_FALSE(image->image->Write(0, &patch, 1));
}

TEST_F(LinkIA32, AddressOfAScriptFunctionIsItsPlaceInTheFinalBlock) {
  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Prolog();
  int pointer = main.LoadFunctionAddress("Helper");
  main.ia32_call(kModRegister, kEAX);  // call eax
  main.Call("Counter");                // a stub lands behind the code
  main.Epilog();
  int helperStart = (int)main.block->Length();
  FunctionWriter helper(module, "Helper");
  helper.Prolog();
  helper.Call("Counter");
  helper.Epilog();

  auto image = Link(module);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(WordAt(*image, pointer), (uint32_t)(uintptr_t)(image->CodeAddress() + helperStart));
  image->Run(nullptr);
  EXPECT_EQ(sCounterCalls, 2);
}

TEST_F(LinkIA32, AddressOfAnOutsideFunctionIsTheTablesAddress) {
  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Prolog();
  int pointer = main.LoadFunctionAddress("Counter");
  main.ia32_call(kModRegister, kEAX);
  main.Epilog();
  auto image = Link(module);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(WordAt(*image, pointer), (uint32_t)(uintptr_t)&LinkTestCounter);
  // Taking an address makes no stub.
  EXPECT_EQ(image->code->Length(), main.block->Length());
  image->Run(nullptr);
  EXPECT_EQ(sCounterCalls, 1);
}

TEST_F(LinkIA32, IdenticalLiteralsShareOneRecordButCaseMakesADifferentOne) {
  string hello("hello");
  string helloAgain;
  helloAgain.ConstructFromBuffer("hello", 5);  // equal text, separate record
  helloAgain.SetEncoding(hello.Encoding());
  string upper("HELLO");
  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Prolog();
  main.CallWithLiteral("Record", hello);
  main.Call("Second");
  main.Epilog();
  FunctionWriter second(module, "Second");
  second.Prolog();
  second.CallWithLiteral("Record", helloAgain);
  second.CallWithLiteral("Record", upper);
  second.CallWithLiteral("Record", string());  // the empty literal is the null record
  second.Epilog();
  ASSERT_NE(hello.Storage(), helloAgain.Storage());

  auto image = Link(module);
  ASSERT_NE(image, nullptr);
  image->Run(nullptr);
  ASSERT_EQ(sRecorded.size(), 4u);
  EXPECT_EQ(sRecorded[0], sRecorded[1]);
  EXPECT_NE(sRecorded[0], sRecorded[2]);
  EXPECT_EQ(sRecorded[3], 0u);
  EXPECT_STREQ(stringStorage::CString(reinterpret_cast<stringStorage*>(sRecorded[0])), "hello");
  EXPECT_STREQ(stringStorage::CString(reinterpret_cast<stringStorage*>(sRecorded[2])), "HELLO");
  // The image keeps the records alive: one entry for each distinct text.
  EXPECT_EQ(image->strings.size(), 3u);
}

TEST_F(LinkIA32, LiteralsOutliveTheModuleThatNamedThem) {
  uintptr_t address = 0;
  std::unique_ptr<RunReadyCode> image;
  {
    string text;
    text.ConstructFromBuffer("kept", 4);
    Ref<CodeModule> module = NewModule();
    FunctionWriter main(module, "% main");
    main.Prolog();
    main.CallWithLiteral("Record", text);
    main.Epilog();
    image = Link(module);
    address = (uintptr_t)text.Storage();
  }
  ASSERT_NE(image, nullptr);
  image->Run(nullptr);
  ASSERT_EQ(sRecorded.size(), 1u);
  EXPECT_EQ(sRecorded[0], address);
  EXPECT_STREQ(stringStorage::CString(reinterpret_cast<stringStorage*>(sRecorded[0])), "kept");
}

TEST_F(LinkIA32, AGlobalTakesItsLargestRecordedSize) {
  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Prolog();
  int wide = main.LoadGlobal("wide");  // read as 4 bytes here
  int narrow = main.LoadGlobal("narrow");
  main.Call("Other");
  main.Epilog();
  int otherStart = (int)main.block->Length();
  FunctionWriter other(module, "Other");
  other.Prolog();
  int wideAgain = otherStart + other.StoreGlobal("WIDE");
  other.Epilog();
  // The generator keeps the largest size it met: a Double elsewhere.
  module->globalSizes.AddEntry("wide", 8);
  module->globalSizes.AddEntry("narrow", 4);

  auto image = Link(module);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->dataLength, 12);
  uint32_t data = (uint32_t)(uintptr_t)image->data;
  EXPECT_EQ(WordAt(*image, wide), data);
  EXPECT_EQ(WordAt(*image, wideAgain), data);
  EXPECT_EQ(WordAt(*image, narrow), data + 8);
}

TEST_F(LinkIA32, EveryRunStartsFromTheInitialData) {
  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Prolog();
  main.LoadGlobal("g");
  main.CallWithEAX("Record");
  main.ia32_mov_imm32(kEAX, 42);
  main.StoreGlobal("g");
  main.LoadGlobal("g");
  main.CallWithEAX("Record");
  main.Epilog();
  module->globalSizes.AddEntry("g", 4);

  auto image = Link(module);
  ASSERT_NE(image, nullptr);
  for (int run = 0; run < 2; ++run) {
    SCOPED_TRACE(run);
    sRecorded.clear();
    image->Run(nullptr);
    EXPECT_EQ(sRecorded, (std::vector<uintptr_t>{0, 42}));
    int32_t after = -1;
    memcpy(&after, image->data, 4);
    EXPECT_EQ(after, 0);
  }
}

TEST_F(LinkIA32, AnEmptyDataAreaRunsAndTheCorrespondentIsSetForTheRun) {
  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Prolog();
  main.Call("SeeCorrespondent");
  main.Epilog();
  auto image = Link(module);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->dataLength, 0);
  EXPECT_NE(image->data, nullptr);
  SilentCorrespondent listener;
  SetRuntimeCorrespondent(nullptr);
  image->Run(&listener);
  image->Run(&listener);
  EXPECT_EQ(sCorrespondentSeen, &listener);
}

TEST_F(LinkIA32, UnresolvedNamesFailTheLinkAndAreReportedOnceEach) {
  struct Case {
    char const* what;
    void (*build)(Ref<CodeModule>);
    std::vector<std::string> reported;
  } const kCases[] = {
      {"a call", [](Ref<CodeModule> m) {
         FunctionWriter w(m, "% main");
         w.Call("Nowhere");
         w.Call("NOWHERE");
         w.Call("Counter");
         w.ia32_ret_near();
       }, {"Nowhere"}},
      {"an address", [](Ref<CodeModule> m) {
         FunctionWriter w(m, "% main");
         w.LoadFunctionAddress("Missing");
         w.ia32_ret_near();
       }, {"Missing"}},
      {"a global with no size", [](Ref<CodeModule> m) {
         FunctionWriter w(m, "% main");
         w.LoadGlobal("unsized");
         w.ia32_ret_near();
       }, {"unsized"}},
      {"a table row without an address", [](Ref<CodeModule> m) {
         FunctionWriter w(m, "% main");
         w.Call("NullRow");
         w.ia32_ret_near();
       }, {"NullRow"}},
      {"two names", [](Ref<CodeModule> m) {
         FunctionWriter w(m, "% main");
         w.Call("First");
         w.Call("Second");
         w.ia32_ret_near();
       }, {"First", "Second"}},
  };
  table.AddEntry("NullRow", nullptr);
  for (Case const& c : kCases) {
    SCOPED_TRACE(c.what);
    delegate.codes.clear();
    delegate.words.clear();
    delegate.lines.clear();
    Ref<CodeModule> module = NewModule();
    c.build(module);
    EXPECT_EQ(Link(module), nullptr);
    EXPECT_EQ(delegate.words, c.reported);
    EXPECT_EQ(delegate.codes, std::vector<int>(c.reported.size(), UnknownName));
    EXPECT_EQ(delegate.lines, std::vector<int>(c.reported.size(), -1));
  }
}

TEST_F(LinkIA32, AModuleWithoutAFamilyOrATableFails) {
  Ref<CodeModule> none = NewModule(CodeModule::kFamilyNone);
  EXPECT_EQ(MiniLink(none, &table, &delegate), nullptr);
  EXPECT_EQ(delegate.codes, std::vector<int>{CodeBufferFull});

  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Call("Counter");
  main.ia32_ret_near();
  EXPECT_EQ(MiniLink(module, nullptr, nullptr), nullptr);
}

TEST(RunReadyCode, AnImageWithoutCodeOnlyBracketsTheRun) {
  RunReadyCode image;
  SilentCorrespondent listener;
  SetRuntimeCorrespondent(&listener);
  image.Run(&listener);
  EXPECT_EQ(image.CodeAddress(), nullptr);
  EXPECT_EQ(image.dataLength, 0);
}

}  // namespace
