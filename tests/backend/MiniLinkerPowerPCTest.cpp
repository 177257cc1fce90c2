// PowerPC images are linked but never run here: the checks read the words.
#include <memory>

#include "backend/MiniLinkerFixture.h"

using namespace linktest;

namespace {

constexpr uint32_t kBranchAndLink = 0x48000001;  // bl 0
constexpr uint32_t kReturn = 0x4e800020;         // blr
constexpr uint32_t kLoadWord = 0x80620000;       // lwz r3,0(r2)
constexpr uint32_t kAddImmediate = 0x38620000;   // addi r3,r2,0

int sOutside, sOutsideToo;

uint32_t BigEndianWord(char const* at) {
  auto const* b = reinterpret_cast<unsigned char const*>(at);
  return (uint32_t)b[0] << 24 | (uint32_t)b[1] << 16 | (uint32_t)b[2] << 8 | b[3];
}

// Appends a word and marks it.
int Word(Ref<FunctionBlock> block, uint32_t word, Import::Type type = Import::kCallPPC,
         char const* name = nullptr) {
  int offset = (int)block->Length();
  if (name) block->MarkImport(type, name, 0);
  block->Append32(word);
  return offset;
}

TEST(LinkPPC, StubsSlotsAndTransitionVectors) {
  Ref<CodeModule> module = NewModule(CodeModule::kFamilyPPC);
  Ref<FunctionBlock> main = module->MakeFunctionBlock();
  main->name = "% main";
  Ref<FunctionBlock> helper = module->MakeFunctionBlock();
  helper->name = "Helper";
  module->functions.push_back(main);
  module->functions.push_back(helper);

  int callOutside = Word(main, kBranchAndLink, Import::kCallPPC, "Outside");
  Word(main, kPPCRestoreTOC);
  int callHelper = Word(main, kBranchAndLink, Import::kCallPPC, "Helper");
  Word(main, kPPCRestoreTOC);
  int global = Word(main, kLoadWord, Import::kDataPPC, "g");
  int literal = Word(main, kLoadWord, Import::kStringPPC, "lit");
  int helperPointer = Word(main, kAddImmediate, Import::kCodePtrPPC, "Helper");
  int outsidePointer = Word(main, kAddImmediate, Import::kCodePtrPPC, "OutsideToo");
  Word(main, kReturn);
  int helperStart = (int)main->Length();
  Word(helper, kReturn);
  module->globalSizes.AddEntry("g", 4);

  StringMap<void*> table;
  table.AddEntry("Outside", &sOutside);
  table.AddEntry("OutsideToo", &sOutsideToo);
  RecordingDelegate delegate;
  std::unique_ptr<RunReadyCode> image(MiniLink(module, &table, &delegate));
  ASSERT_NE(image, nullptr);
  EXPECT_TRUE(delegate.codes.empty());
  EXPECT_EQ(image->CodeAddress(), nullptr);  // not for this processor

  // Behind the code: the pointer glue, then the stub.
  int glue = helperStart + 4;
  int stub = glue + (int)sizeof(kPPCPointerGlue);
  ASSERT_EQ((int)image->code->Length(), stub + (int)sizeof(kPPCStub));
  for (unsigned i = 0; i < std::size(kPPCPointerGlue); ++i)
    EXPECT_EQ(WordAt(*image, glue + 4 * (int)i), kPPCPointerGlue[i]) << i;
  for (unsigned i = 0; i < std::size(kPPCStub); ++i)
    EXPECT_EQ(WordAt(*image, stub + 4 * (int)i), kPPCStub[i]) << i;  // its slot is 0

  // The outside call goes to the stub and keeps its restore; the direct one loses it.
  EXPECT_EQ(WordAt(*image, callOutside), kBranchAndLink | (uint32_t)(stub - callOutside));
  EXPECT_EQ(WordAt(*image, callOutside + 4), kPPCRestoreTOC);
  EXPECT_EQ(WordAt(*image, callHelper), kBranchAndLink | (uint32_t)(helperStart - callHelper));
  EXPECT_EQ(WordAt(*image, callHelper + 4), kPPCNop);

  // Data area: Outside's slot 0, g at 4, the literal's slot at 8, then two
  // two-word entries for the pointers.
  EXPECT_EQ(image->dataLength, 28);
  EXPECT_EQ(WordAt(*image, global), kLoadWord | 4);
  EXPECT_EQ(WordAt(*image, literal), kLoadWord | 8);
  EXPECT_EQ(WordAt(*image, helperPointer), kAddImmediate | 12);
  EXPECT_EQ(WordAt(*image, outsidePointer), ((kAddImmediate & 0x3ffffff) | kPPCLoadFromLow) | 20);
  char const* data = image->data;
  EXPECT_EQ(BigEndianWord(data + 0), (uint32_t)(uintptr_t)&sOutside);
  ASSERT_EQ(image->strings.size(), 1u);
  EXPECT_EQ(BigEndianWord(data + 8), (uint32_t)(uintptr_t)image->strings[0].Storage());
  EXPECT_EQ(BigEndianWord(data + 12), (uint32_t)(uintptr_t)(image->code->Buffer() + helperStart));
  EXPECT_EQ(BigEndianWord(data + 16), (uint32_t)(uintptr_t)image->data);
  EXPECT_EQ(BigEndianWord(data + 20), (uint32_t)(uintptr_t)&sOutsideToo);
}

TEST(LinkPPC, FormsWithWideDataOffsetsFailTheLink) {
  for (Import::Type type : {Import::kCodePtrHighPPC, Import::kCodePtrBasePPC, Import::kStringHighPPC,
                            Import::kPicBasePPC, Import::kPicLowPPC, Import::kPicHighPPC}) {
    SCOPED_TRACE((int)type);
    Ref<CodeModule> module = NewModule(CodeModule::kFamilyPPC);
    Ref<FunctionBlock> main = module->MakeFunctionBlock();
    main->name = "% main";
    module->functions.push_back(main);
    Word(main, kAddImmediate, type, "Helper");
    Word(main, kReturn);
    StringMap<void*> table;
    RecordingDelegate delegate;
    EXPECT_EQ(MiniLink(module, &table, &delegate), nullptr);
    EXPECT_EQ(delegate.codes, std::vector<int>{CodeBufferFull});
  }
}

}  // namespace
