#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "backend/CodeGeneratorFixture.h"
#include "engine/KVScriptInterface.h"

namespace {

// Hand-assembled functions for what the code generator never makes (a
// global without a recorded size, names that resolve nowhere): written with
// the instruction writer, their fix-ups marked as the generator marks them.
class FunctionWriter : public IA32OpWriter {
public:
  FunctionWriter(Ref<CodeModule> module, char const* name) : block(module->MakeFunctionBlock()) {
    block->name = name;
    module->functions.push_back(block);
  }
  void ia32_Write8(char byte) override { block->Append8((unsigned char)byte); }
  void ia32_Write16(int value) override { block->Append16((unsigned long)value); }
  void ia32_Write32(int value) override { block->Append32((unsigned long)value); }

  // call rel32 to a named function; returns the offset of the rel32 field.
  int Call(char const* name) {
    int field = (int)block->Length() + 1;
    block->MarkImport(Import::kCallIA32, name, 1);
    ia32_call_disp32(0);
    return field;
  }
  // mov eax, imm32 of a function's address.
  int LoadFunctionAddress(char const* name) {
    int field = (int)block->Length() + 1;
    block->MarkImport(Import::kCodePtrIA32, name, 1);
    ia32_mov_imm32(kEAX, 0);
    return field;
  }
  // mov eax, [global]
  int LoadGlobal(char const* name) {
    int field = (int)block->Length() + 2;
    block->MarkImport(Import::kDataIA32, name, 2);
    ia32_mov(kModNoDisp, kEAX, kRMAbsolute, 0);
    return field;
  }
  // mov [global], eax
  int StoreGlobal(char const* name) {
    int field = (int)block->Length() + 2;
    block->MarkImport(Import::kDataIA32, name, 2);
    ia32_mov_backwards(kModNoDisp, kEAX, kRMAbsolute, 0);
    return field;
  }
  Ref<FunctionBlock> block;
};

Ref<CodeModule> NewModule(CodeModule::Family family = CodeModule::kFamilyIA32) {
  Ref<CodeModule> module;
  module.BindNewObject(new CodeModule);
  module->family = family;
  return module;
}

uint32_t WordAt(RunReadyCode const& image, int offset) {
  return (uint32_t)image.code->Get32((unsigned int)offset);
}

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
  BackendRecorder delegate;
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

// Calls reach the library and script functions straight, names matching
// without regard to case: the image is the functions, with no stub.
TEST_F(LinkIA32, CallsGoStraightToTheLibraryAndToScriptFunctions) {
  TacProgram program;
  program.Add(tac_Call, program.Text("Counter"));
  program.Add(tac_Call, program.Text("Counter"));
  program.Add(tac_Call, program.Text("Helper"));
  program.Function("Helper");
  program.Add(tac_Call, program.Text("counter"));
  program.Return();
  Ref<CodeModule> module = GenerateIA32(program);
  ASSERT_TRUE(module);
  unsigned int codeLength = module->functions[0]->Length() + module->functions[1]->Length();
  auto image = Link(module);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->code->Length(), codeLength);
  image->Run(nullptr);
  EXPECT_EQ(sCounterCalls, 3);
}

TEST_F(LinkIA32, CodeIsExecutableAndNeverWritable) {
  TacProgram program;
  program.Add(tac_Call, program.Text("Counter"));
  program.EmptyMain();
  auto image = Link(GenerateIA32(program));
  ASSERT_NE(image, nullptr);
  ASSERT_NE(image->CodeAddress(), nullptr);
  EXPECT_EQ(PermissionsOf(image->CodeAddress()).substr(0, 3), "r-x");
  // The mapped code is the linked block, byte for byte.
  EXPECT_EQ(memcmp(image->CodeAddress(), image->code->Buffer(), image->code->Length()), 0);
  ASSERT_NE(image->image, nullptr);
  char patch = 0;
  EXPECT_FALSE(image->image->Write(0, &patch, 1));
}

TEST_F(LinkIA32, IdenticalLiteralsShareOneRecordButCaseMakesADifferentOne) {
  string hello("hello");
  string helloAgain;
  helloAgain.ConstructFromBuffer("hello", 5);  // equal text, separate record
  helloAgain.SetEncoding(hello.Encoding());
  ASSERT_NE(hello.Storage(), helloAgain.Storage());
  ConstAddr first(hello), again(helloAgain), upper(string("HELLO")), empty((string()));
  TacProgram program;
  TacAddr const* record = program.Text("Record");
  program.Add(tac_PutParam, &first);
  program.Add(tac_Call, record);
  program.Add(tac_Call, program.Text("Second"));
  program.Function("Second");
  for (TacAddr const* literal : {&again, &upper, &empty}) {  // the empty literal is the null record
    program.Add(tac_PutParam, literal);
    program.Add(tac_Call, record);
  }
  program.Return();

  auto image = Link(GenerateIA32(program));
  ASSERT_NE(image, nullptr);
  image->Run(nullptr);
  ASSERT_EQ(sRecorded.size(), 4u);
  EXPECT_EQ(sRecorded[0], sRecorded[1]);
  EXPECT_NE(sRecorded[0], sRecorded[2]);
  EXPECT_EQ(sRecorded[3], 0u);
  EXPECT_STREQ(stringStorage::CString(reinterpret_cast<stringStorage*>(sRecorded[0])), "hello");
  EXPECT_STREQ(stringStorage::CString(reinterpret_cast<stringStorage*>(sRecorded[2])), "HELLO");
  // The image keeps the records alive: one entry for each distinct text.
  EXPECT_EQ(image->strings.size(), 2u);
}

TEST_F(LinkIA32, LiteralsOutliveTheModuleThatNamedThem) {
  uintptr_t address = 0;
  std::unique_ptr<RunReadyCode> image;
  {
    string text;
    text.ConstructFromBuffer("kept", 4);
    ConstAddr literal(text);
    TacProgram program;
    program.Add(tac_PutParam, &literal);
    program.Add(tac_Call, program.Text("Record"));
    program.EmptyMain();
    image = Link(GenerateIA32(program));
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
  int wide = main.LoadGlobal("wide");  // read as 4 bytes here
  int narrow = main.LoadGlobal("narrow");
  main.Call("Other");
  int otherStart = (int)main.block->Length();
  FunctionWriter other(module, "Other");
  int wideAgain = otherStart + other.StoreGlobal("WIDE");
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
  TacProgram program;
  TacAddr const* g = program.Global("g", kTypeInteger);
  TacAddr const* record = program.Text("Record");
  program.Add(tac_PutParam, g);
  program.Add(tac_Call, record);
  program.Add(tac_Store, program.Int(42), nullptr, g);
  program.Add(tac_PutParam, g);
  program.Add(tac_Call, record);
  program.EmptyMain();

  auto image = Link(GenerateIA32(program));
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
  TacProgram program;
  program.Add(tac_Call, program.Text("SeeCorrespondent"));
  program.EmptyMain();
  auto image = Link(GenerateIA32(program));
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
    delegate = BackendRecorder();
    Ref<CodeModule> module = NewModule();
    c.build(module);
    EXPECT_EQ(Link(module), nullptr);
    EXPECT_EQ(delegate.words, c.reported);
    // Unknown names, at no line of the source.
    std::string expected;
    for (size_t i = 0; i < c.reported.size(); ++i) expected += " UnknownName@-1";
    EXPECT_EQ(DescribeErrors(delegate.errors), expected);
  }
}

TEST_F(LinkIA32, AModuleWithoutAFamilyOrATableFails) {
  Ref<CodeModule> none = NewModule(CodeModule::kFamilyNone);
  EXPECT_EQ(MiniLink(none, &table, &delegate), nullptr);
  EXPECT_EQ(DescribeErrors(delegate.errors), " CodeBufferFull@-1");

  Ref<CodeModule> module = NewModule();
  FunctionWriter main(module, "% main");
  main.Call("Counter");
  main.ia32_ret_near();
  EXPECT_EQ(MiniLink(module, nullptr, nullptr), nullptr);
}

}  // namespace
