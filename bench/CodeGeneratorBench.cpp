// Three-address lines per second of the IA-32 code generator over a large
// generated block shaped like compiled methods: parameters, integer and
// float arithmetic, comparisons and branches, a loop, object fields,
// globals, string locks and calls.
// Usage: CodeGeneratorBench [functions] [repeats]   (defaults 5000 and 5)
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "backend/CGIA32.h"
#include "ir/ThreeAddressCode.h"
#include "semantic/SymbolTable.h"

namespace {

// Process CPU time: the machine is shared with builds, and wall time would
// count their turns as the generator's.
double CpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec + t.tv_nsec / 1e9;
}

class BlockBuilder {
public:
  BlockBuilder() {
    InitTacConstants();
    symbols.BindNewObject(new SymbolTableList);
    symbols->AddTable(SymbolTable::New(Ref<SymbolTable>(), StaticStorage, string()));
  }

  void Add(TacOpcode op, TacAddr const* a, TacAddr const* b, TacAddr const* c) {
    block.AddLine(op, a ? a : nilTacAddr, b ? b : nilTacAddr, c ? c : nilTacAddr, ++lines);
  }
  TacAddr const* Own(TacAddr* addr) {
    owned.emplace_back(addr);
    return addr;
  }
  TacAddr const* Int(long v) { return Own(new ConstAddr(v)); }

  // One method: 60-odd lines.
  void Method(int n) {
    Add(tac_Label, Own(new ConstAddr(string(("Method" + std::to_string(n)).c_str()))), nullptr, nullptr);
    Ref<SymbolTable> locals = SymbolTable::New(Ref<SymbolTable>(), LocalStorage, string());
    unsigned long at = symbols->AddTable(locals);
    Add(tac_Symbols, Int((long)at), nullptr, nullptr);
    auto local = [&](char const* name, SimpleDataType t) {
      return locals->Store(string(name), IRDataType(t)).GetAddr();
    };
    TacAddr const* me = local("me", kTypeObject);
    TacAddr const* k = local("k", kTypeInteger);
    TacAddr const* x = local("x", kTypeDouble);
    TacAddr const* total = local("total", kTypeInteger);
    TacAddr const* i = local("i", kTypeInteger);
    TacAddr const* t = local("t", kTypeInteger);
    TacAddr const* f = local("f", kTypeBoolean);
    // An If's condition is a temporary that only its branch reads.
    TacAddr const* cond = local("00000001", kTypeBoolean);
    TacAddr const* d = local("d", kTypeDouble);
    TacAddr const* s = local("s", kTypeString);
    Add(tac_GetParam, nullptr, nullptr, x);
    Add(tac_GetParam, nullptr, nullptr, k);
    Add(tac_GetParam, nullptr, nullptr, me);
    Add(tac_Baseref, me, Int(8), nullptr);
    TacAddr const* loop = Int(++label);
    TacAddr const* test = Int(++label);
    TacAddr const* skip = Int(++label);
    TacAddr const* ret = Int(++label);
    Add(tac_Store, gTacZero, nullptr, total);
    Add(tac_Store, gTacZero, nullptr, i);
    Add(tac_Jump, nullptr, nullptr, test);
    Add(tac_Label, loop, nullptr, nullptr);
    Add(tac_MulI, i, k, t);
    Add(tac_AddI, total, t, total);
    Add(tac_ModI, total, Int(7), t);
    Add(tac_DivI, total, Int(3), t);
    Add(tac_SubI, t, field, t);
    Add(tac_Store, t, nullptr, field);
    Add(tac_LTI, t, k, cond);
    Add(tac_IfEQI, cond, gTacFalse, skip);
    Add(tac_ItoD, t, nullptr, d);
    Add(tac_MulD, d, x, d);
    Add(tac_AddD, d, weight, weight);
    Add(tac_Label, skip, nullptr, nullptr);
    Add(tac_AddI, i, gTacOne, i);
    Add(tac_Label, test, nullptr, nullptr);
    Add(tac_IfLTI, i, Int(10), loop);
    Add(tac_PutParam, hello, nullptr, nullptr);
    Add(tac_PutParam, total, nullptr, nullptr);
    Add(tac_Call, callee, nullptr, s);
    Add(tac_SwapLocks, s, global, nullptr);
    Add(tac_Store, s, nullptr, global);
    Add(tac_LED, d, x, f);
    Add(tac_EQD, d, x, f);
    Add(tac_NegD, d, nullptr, d);
    Add(tac_DtoI, d, nullptr, t);
    Add(tac_NegI, t, nullptr, t);
    Add(tac_PeekI, me, Int(4), t);
    Add(tac_PokeI, t, Int(12), me);
    Add(tac_PutRetval, total, nullptr, nullptr);
    Add(tac_Label, ret, nullptr, nullptr);
    Add(tac_Unlock, s, nullptr, nullptr);
    Add(tac_Return, nullptr, nullptr, nullptr);
  }

  void Program(int methods) {
    field = Own(new SymbolAddr(ObjectStorage, IRDataType(kTypeInteger), string("C.count"), 0));
    weight = Own(new SymbolAddr(ObjectStorage, IRDataType(kTypeDouble), string("C.weight"), 4));
    global = Own(new SymbolAddr(StaticStorage, IRDataType(kTypeString), string("gName"), 0));
    hello = Own(new ConstAddr(string("hello")));
    callee = Own(new ConstAddr(string("Describe%s%si")));
    Add(tac_Stop, nullptr, nullptr, nullptr);
    for (int n = 0; n < methods; ++n) Method(n);
  }

  TacBlock block;
  Ref<SymbolTableList> symbols;
  long lines = 0;

private:
  std::vector<std::unique_ptr<TacAddr>> owned;
  long label = 0;
  TacAddr const* field = nullptr;
  TacAddr const* weight = nullptr;
  TacAddr const* global = nullptr;
  TacAddr const* hello = nullptr;
  TacAddr const* callee = nullptr;
};

SimpleVector<string> IntrinsicNames() {
  SimpleVector<string> names;
  for (int i = 0; i < kIntrinsicFunctionCount; ++i) names.push_back(string(("Intrinsic" + std::to_string(i)).c_str()));
  return names;
}

}  // namespace

int main(int argc, char** argv) {
  int methods = argc > 1 ? atoi(argv[1]) : 5000;
  int repeats = argc > 2 ? atoi(argv[2]) : 5;
  BlockBuilder builder;
  builder.Program(methods);
  SimpleVector<string> names = IntrinsicNames();

  double best = 0;
  size_t bytes = 0;
  for (int r = 0; r < repeats; ++r) {
    CGIA32 generator;
    generator.Configure(CGIA32Options(), names);
    double start = CpuSeconds();
    Ref<CodeModule> module = generator.Generate(&builder.block, builder.symbols);
    double seconds = CpuSeconds() - start;
    if (!module) {
      fprintf(stderr, "generation failed\n");
      return 1;
    }
    bytes = 0;
    for (unsigned long i = 0; i < module->functions.size(); ++i) bytes += module->functions[i]->Length();
    double rate = builder.lines / seconds;
    if (rate > best) best = rate;
  }
  printf("%ld three-address lines in %d functions, %zu bytes of code\n", builder.lines, methods, bytes);
  printf("best of %d: %.0f lines per second (%.1f ns per line)\n", repeats, best, 1e9 / best);
  return 0;
}
