// The code generator framework: the register record, the walk over a block,
// dispatch, fix-up bookkeeping, errors and cancelling.
#include "backend/CodeGenerator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "backend/CodeGeneratorFixture.h"

namespace {

TEST(RegisterState, AFullListKeepsItsOldestEntries) {
  RegisterState state;
  ConstAddr addrs[kMaxCachedTacAddrs + 1] = {
#define ONE(n) ConstAddr(long(n))
      ONE(0),  ONE(1),  ONE(2),  ONE(3),  ONE(4),  ONE(5),  ONE(6),  ONE(7),  ONE(8),  ONE(9),  ONE(10),
      ONE(11), ONE(12), ONE(13), ONE(14), ONE(15), ONE(16), ONE(17), ONE(18), ONE(19), ONE(20), ONE(21),
      ONE(22), ONE(23), ONE(24), ONE(25), ONE(26), ONE(27), ONE(28), ONE(29), ONE(30), ONE(31), ONE(32),
      ONE(33), ONE(34), ONE(35), ONE(36), ONE(37), ONE(38), ONE(39), ONE(40), ONE(41), ONE(42), ONE(43),
      ONE(44), ONE(45), ONE(46), ONE(47), ONE(48), ONE(49), ONE(50), ONE(51), ONE(52), ONE(53), ONE(54),
      ONE(55), ONE(56), ONE(57), ONE(58), ONE(59), ONE(60), ONE(61), ONE(62), ONE(63), ONE(64),
#undef ONE
  };
  EXPECT_FALSE(state.Valid());
  EXPECT_FALSE(state.used);
  for (int i = 0; i < kMaxCachedTacAddrs - 1; ++i) state.Record(&addrs[i]);
  EXPECT_EQ(state.Count(), kMaxCachedTacAddrs - 1);
  EXPECT_TRUE(state.used);

  state.Record(&addrs[63]);  // the 64th
  EXPECT_EQ(state.Count(), 63);
  EXPECT_FALSE(state.Contains(&addrs[63]));
  state.Record(&addrs[64]);
  EXPECT_EQ(state.Count(), 63);
  EXPECT_TRUE(state.Contains(&addrs[0]));
  EXPECT_TRUE(state.Contains(&addrs[62]));
}

TEST(RegisterState, ClearingOneEntryMovesTheLastIntoItsPlace) {
  RegisterState state;
  ConstAddr a(1L), b(2L), c(3L), d(4L), absent(5L);
  for (TacAddr const* x : {&a, &b, &c, &d}) state.Record(x);

  state.Clear(&b);
  ASSERT_EQ(state.Count(), 3);
  EXPECT_EQ(state.Item(0), &a);
  EXPECT_EQ(state.Item(1), &d);
  EXPECT_EQ(state.Item(2), &c);

  state.Clear(&absent);
  EXPECT_EQ(state.Count(), 3);
  state.Clear(&c);  // the last one
  EXPECT_EQ(state.Count(), 2);
  EXPECT_FALSE(state.Contains(&c));

  state.Clear();
  EXPECT_FALSE(state.Valid());
  EXPECT_TRUE(state.used);  // the register was still written
}

// Every handler records its opcode, so dispatch can be checked line by line.
class RecordingGenerator : public CodeGenerator {
public:
  void BeginFunction(string name) override {
    NewFunction(name, false);
    begun.push_back(name.CString());
  }
  void EndFunction() override { FinishFunction(); }
  CodeModule::Family TargetProcessorFamily() override { return CodeModule::kFamilyIA32; }
  int CodeBufferLength() override { return length; }
  void CompileLineBefore(TacLine const& line) override { order.push_back(-1 - (int)line.line); }
#define KV_RECORD(op, text) \
  void op(TacLine const& line) override { Seen(::op, line); }
  KV_TAC_OPCODES(KV_RECORD)
#undef KV_RECORD

  void Seen(TacOpcode op, TacLine const& line) {
    seen.push_back(op);
    order.push_back(op);
    if (op == ::tac_Stop) EndFunction();
    if (op == errorOn) Error(UndefinedLabel);
    lines.push_back(location.startLine);
    EXPECT_EQ(location.startLine, line.line);
    EXPECT_EQ(location.endLine, line.line);
    EXPECT_EQ(location.startOffset, -1);
    EXPECT_EQ(location.endOffset, -1);
  }

  std::vector<int> seen;
  std::vector<int> order;
  std::vector<long> lines;
  std::vector<std::string> begun;
  int length = 0;
  int errorOn = -1;
};

TEST(CodeGenerator, EachOpcodeReachesTheHandlerOfItsName) {
  InitTacConstants();
  TacBlock block;
  std::vector<int> expected;
  for (int op = 0; op < kTacOpcodeCount; ++op) {
    if (op == tac_Stop) continue;
    block.AddLine((TacOpcode)op, nilTacAddr, nilTacAddr, nilTacAddr, 100 + op);
    expected.push_back(op);
  }
  // A number past the list has no handler and is passed over.
  block.AddLine((TacOpcode)kTacOpcodeCount, nilTacAddr, nilTacAddr, nilTacAddr, 999);
  // No line may follow the one that closes "% main".
  block.AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr, 100 + tac_Stop);
  expected.push_back(tac_Stop);

  RecordingGenerator generator;
  Ref<CodeModule> module = generator.Generate(&block, Ref<SymbolTableList>());
  ASSERT_TRUE(module);
  EXPECT_EQ(generator.seen, expected);
  // The hook before each line runs ahead of its handler.
  EXPECT_EQ(generator.order[0], -101);
  EXPECT_EQ(generator.order[1], tac_Noop);
  auto unknown = std::find(generator.order.begin(), generator.order.end(), -1000);
  ASSERT_NE(unknown, generator.order.end());
  EXPECT_EQ(unknown[1], -101 - tac_Stop);
  ASSERT_EQ(generator.begun.size(), 1u);
  EXPECT_EQ(generator.begun[0], "% main");
  // tac_Stop closed "% main".
  ASSERT_EQ(module->functions.size(), 1u);
  EXPECT_STREQ(module->functions[0]->name.CString(), "% main");
  EXPECT_EQ(module->family, CodeModule::kFamilyIA32);
}

TEST(CodeGenerator, ProgressCountsLinesOnlyWithADelegate) {
  InitTacConstants();
  TacBlock block;
  for (int i = 0; i < 5; ++i) block.AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, i);
  block.AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr, 5);

  RecordingDelegate delegate;
  RecordingGenerator generator;
  generator.SetDelegate(&delegate);
  ASSERT_TRUE(generator.Generate(&block, Ref<SymbolTableList>()));
  ASSERT_EQ(delegate.progress.size(), 6u);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(delegate.progress[i].first, i);
    EXPECT_EQ(delegate.progress[i].second, 6);
  }
  EXPECT_TRUE(delegate.errors.empty());

  RecordingGenerator alone;
  EXPECT_TRUE(alone.Generate(&block, Ref<SymbolTableList>()));
  EXPECT_EQ(alone.seen.size(), 6u);
}

TEST(CodeGenerator, ACancelStopsBeforeTheNextLineAndDropsTheModule) {
  InitTacConstants();
  TacBlock block;
  for (int i = 0; i < 4; ++i) block.AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, i);
  block.AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr, 4);

  RecordingDelegate delegate;
  delegate.stopAt = 0;
  RecordingGenerator generator;
  generator.SetDelegate(&delegate);
  EXPECT_FALSE(generator.Generate(&block, Ref<SymbolTableList>()));
  EXPECT_EQ(generator.seen.size(), 1u);
  EXPECT_TRUE(delegate.errors.empty());  // a cancel is not an error
}

TEST(CodeGenerator, AnErrorFinishesTheLineReportsItsLocationAndStops) {
  InitTacConstants();
  TacBlock block;
  block.AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 10);
  block.AddLine(tac_Jump, nilTacAddr, nilTacAddr, nilTacAddr, 11);
  block.AddLine(tac_Noop, nilTacAddr, nilTacAddr, nilTacAddr, 12);
  block.AddLine(tac_Stop, nilTacAddr, nilTacAddr, nilTacAddr, 13);

  RecordingDelegate delegate;
  RecordingGenerator generator;
  generator.errorOn = tac_Jump;
  generator.SetDelegate(&delegate);
  EXPECT_FALSE(generator.Generate(&block, Ref<SymbolTableList>()));
  EXPECT_EQ(generator.seen, (std::vector<int>{tac_Noop, tac_Jump}));
  ASSERT_EQ(delegate.errors.size(), 1u);
  EXPECT_EQ(delegate.errors[0].Type(), UndefinedLabel);
  EXPECT_EQ(delegate.errors[0].Location(), SourceLocation(11));
}

TEST(CodeGenerator, ImportsAreMovedByThePrologAndHandedToTheBlock) {
  InitTacConstants();
  RecordingGenerator generator;
  generator.BeginFunction(string("f"));
  generator.length = 10;
  generator.MarkImport(Import::kCallIA32, string("callee"), 1);
  generator.length = 20;
  generator.MarkImport(Import::kCodePtrIA32, string("other"), string("lib"), 1);
  generator.AdjustImportListOffsets(7);

  Ref<FunctionBlock> target;
  target.BindNewObject(new FunctionBlock(false));
  generator.MakeImportListPermanent(target);
  EXPECT_EQ(generator.PendingImportCount(), 0);
  ASSERT_EQ(target->imports.size(), 2u);
  EXPECT_EQ(target->imports[0].type, Import::kCallIA32);
  EXPECT_STREQ(target->imports[0].name.CString(), "callee");
  EXPECT_EQ(target->imports[0].offset, 18);
  EXPECT_EQ(target->imports[1].offset, 28);
  EXPECT_STREQ(target->imports[1].library.CString(), "lib");

  // Nothing pending: the block is left alone.
  Ref<FunctionBlock> untouched;
  untouched.BindNewObject(new FunctionBlock(false));
  generator.MakeImportListPermanent(untouched);
  EXPECT_EQ(untouched->imports.size(), 0u);
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
    RecordingDelegate delegate;
    EXPECT_FALSE(GenerateIA32(program, &delegate));
    EXPECT_EQ(delegate.errors.size(), 1u);
    if (delegate.errors.empty()) continue;
    EXPECT_EQ(delegate.errors[0].Type(), kMalformedBlockError);
    EXPECT_EQ(delegate.errors[0].Location().startLine, line);
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
