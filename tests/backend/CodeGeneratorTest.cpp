// The code generator framework: the walk over a block, errors and
// cancelling, malformed blocks, and the line index.
#include "backend/CodeGenerator.h"

#include <gtest/gtest.h>

#include <vector>

#include "backend/CodeGeneratorFixture.h"

namespace {

// Every handler records its opcode, and reports an error on `errorOn`.
class RecordingGenerator : public CodeGenerator {
public:
  void BeginFunction(string name) override { NewFunction(name, false); }
  void EndFunction() override { FinishFunction(); }
  CodeModule::Family TargetProcessorFamily() override { return CodeModule::kFamilyIA32; }
  int CodeBufferLength() override { return 0; }
#define KV_RECORD(op, text) \
  void op(TacLine const&) override { Seen(::op); }
  KV_TAC_OPCODES(KV_RECORD)
#undef KV_RECORD

  void Seen(TacOpcode op) {
    seen.push_back(op);
    if (op == ::tac_Stop) EndFunction();
    if (op == errorOn) Error(UndefinedLabel);
  }

  std::vector<int> seen;
  int errorOn = -1;
};

// The walk over a block: an opcode past the list is passed over, a poll
// after each line may cancel, and an error finishes its line and ends the
// walk at its location. Either way no module comes back.
TEST(CodeGenerator, TheWalkEndsAtACancelOrAnError) {
  InitTacConstants();
  TacBlock block;
  block.AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 10);
  block.AddLine((TacOpcode)kTacOpcodeCount, nilTacAddr, nilTacAddr, nilTacAddr, 11);
  block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, nilTacAddr, 12);
  block.AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr, 13);
  struct Case {
    char const* what;
    int stopAtPoll, errorOn;
    std::vector<int> seen;
    char const* errors;
  } const cases[] = {
      {"to the end", 0, -1, {tac_Noop, tac_Jump, tac_Stop}, ""},
      {"cancelled at the first poll", 1, -1, {tac_Noop}, ""},  // a cancel is no error
      {"an error", 0, tac_Jump, {tac_Noop, tac_Jump}, " UndefinedLabel@12"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    BackendRecorder delegate;
    delegate.stopAtPoll = c.stopAtPoll;
    RecordingGenerator generator;
    generator.errorOn = c.errorOn;
    generator.SetDelegate(&delegate);
    Ref<CodeModule> module = generator.Generate(&block, Ref<SymbolTableList>());
    EXPECT_EQ(generator.seen, c.seen);
    EXPECT_EQ(bool(module), c.stopAtPoll == 0 && c.errorOn < 0);
    EXPECT_EQ(delegate.lastTotal, 4);
    EXPECT_EQ(DescribeErrors(delegate.errors), c.errors);
  }
}

// Blocks the front end never makes: each is refused where it goes wrong,
// never turned into a module with a function missing or misplaced.
TEST(CodeGenerator, AMalformedBlockIsAnErrorAndGivesNoModule) {
  struct Case {
    char const* what;
    // Builds the block; returns the line the error is reported at.
    long (*build)(TacProgram&);
  } const cases[] = {
      {"an empty block leaves main open", [](TacProgram&) { return -1L; }},
      {"main without tac_Stop at the end", [](TacProgram& p) {
         p.Add(tac_Noop);
         return p.line;
       }},
      {"a function opened while main is", [](TacProgram& p) {
         p.Add(tac_Call, p.Text("Pending"));
         p.mainOpen = false;
         p.Function("f");
         p.Return();
         return 2L;
       }},
      {"a function opened inside another", [](TacProgram& p) {
         p.Function("f");
         p.Add(tac_Call, p.Text("Pending"));
         p.Function("g");
         p.Return();
         return 5L;
       }},
      {"a line after the last function", [](TacProgram& p) {
         p.Function("f");
         p.Return();
         p.Add(tac_Noop);
         return p.line;
       }},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    TacProgram program;
    long line = c.build(program);
    BackendRecorder delegate;
    EXPECT_FALSE(GenerateIA32(program, &delegate));
    EXPECT_EQ(DescribeErrors(delegate.errors),
              " " + std::string(CompileErrorName(kMalformedBlockError)) + "@" + std::to_string(line));
  }
}

// Each function's line index gives offsets into the function as finished,
// with its prolog in front; the line that opens a function is in none.
TEST(CodeGenerator, TheLineIndexCountsThePrologIn) {
  TacProgram program;
  program.Add(tac_Noop);  // line 1
  program.Function("f");  // tac_Stop 2, the label 3, tac_Symbols 4
  auto p = program.Params({{"a", kTypeInteger}});
  program.Add(tac_Noop);  // line 6
  program.Return(p[0]);
  CGIA32 generator;
  generator.Configure(CGIA32Options(), TestIntrinsicNames());
  Ref<DebuggerSymbols> debug;
  debug.BindNewObject(new DebuggerSymbols);
  generator.SetDebug(debug);
  Ref<CodeModule> module = generator.Generate(&program.block, program.symbols);
  ASSERT_TRUE(module);
  struct {
    long noop;
    long last;
  } const expected[] = {{1, 2}, {6, program.line}};
  ASSERT_EQ(module->functions.size(), 2u);
  for (unsigned long f = 0; f < 2; ++f) {
    Ref<CodeOffsetToLineIndex> index = generator.LineIndex(f);
    ASSERT_TRUE(index);
    int noopAt = -1;
    for (unsigned long i = 0; i < index->entries.size(); ++i) {
      if (index->entries[i].line == expected[f].noop) noopAt = index->entries[i].offset;
    }
    ASSERT_GT(noopAt, 0) << f;
    EXPECT_EQ(module->functions[f]->Get8((unsigned)noopAt), 0x90u) << f;
    EXPECT_EQ(index->LookupLine(1 << 20), expected[f].last) << f;
  }
  EXPECT_FALSE(generator.LineIndex(2));
}

}  // namespace
