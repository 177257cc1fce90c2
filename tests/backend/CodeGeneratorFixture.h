// Test support for the code generators: a builder of three-address blocks
// with their symbol tables, a delegate that records what the generator says,
// and a small linker that places a generated module in executable memory so
// that its functions can be called from the tests.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "backend/CGIA32.h"
#include "ir/ThreeAddressCode.h"
#include "diag/CompileError.h"
#include "semantic/SymbolTable.h"

// Records errors and progress; can ask to stop at a given progress call.
class RecordingDelegate : public CompilerDelegate {
public:
  bool CompilerBackendProgress(int current, int total) override {
    progress.push_back({current, total});
    return stopAt >= 0 && current >= stopAt;
  }
  bool CompilerError(CompileError error) override {
    errors.push_back(error);
    return false;
  }

  std::vector<std::pair<int, int>> progress;
  std::vector<CompileError> errors;
  int stopAt = -1;
};

// Builds one block of three-address code, the way the front end lays it out:
// "% main" first (opened by the generator itself, closed by tac_Stop), then
// functions, each opened by a string label and closed by tac_Return.
class TacProgram {
public:
  TacProgram() {
    InitTacConstants();
    symbols.BindNewObject(new SymbolTableList);
    symbols->AddTable(SymbolTable::New(Ref<SymbolTable>(), StaticStorage, string()));
  }

  void Add(TacOpcode op, TacAddr const* a = nullptr, TacAddr const* b = nullptr,
           TacAddr const* c = nullptr) {
    block.AddLine(op, a ? a : nilTacAddr, b ? b : nilTacAddr, c ? c : nilTacAddr, ++line);
    if (op == tac_Stop) mainOpen = false;
  }

  TacAddr const* Int(long value) { return Own(new ConstAddr(value)); }
  TacAddr const* Text(char const* text) { return Own(new ConstAddr(string(text))); }
  TacAddr const* Dbl(double value) {
    return Own(new ConstAddr(IRValue::Real64(value), IRDataType(kTypeDouble)));
  }
  TacAddr const* Sgl(float value) {
    return Own(new ConstAddr(IRValue::Real32(value), IRDataType(kTypeSingle)));
  }
  TacAddr const* Bool(bool value) { return value ? gTacTrue : gTacFalse; }
  TacAddr const* Global(char const* name, SimpleDataType type) {
    return Own(new SymbolAddr(StaticStorage, IRDataType(type), string(name), 0));
  }
  TacAddr const* Field(char const* name, SimpleDataType type, unsigned offset) {
    return Own(new SymbolAddr(ObjectStorage, IRDataType(type), string(name), offset));
  }

  // Opens a function: its label and its table of locals. The main program
  // comes first, so a main still open is closed here.
  void Function(char const* name) {
    EmptyMain();
    Add(tac_Label, Text(name));
    locals = SymbolTable::New(Ref<SymbolTable>(), LocalStorage, string());
    unsigned long at = symbols->AddTable(locals);
    Add(tac_Symbols, Int((long)at));
  }
  TacAddr const* Local(char const* name, SimpleDataType type) {
    return locals->Store(string(name), IRDataType(type)).GetAddr();
  }
  // Declares parameters, first to last, as locals; the lines go out last first.
  std::vector<TacAddr const*> Params(std::vector<std::pair<char const*, SimpleDataType>> list) {
    std::vector<TacAddr const*> params;
    for (auto const& p : list) params.push_back(Local(p.first, p.second));
    for (size_t i = params.size(); i-- > 0;) Add(tac_GetParam, nullptr, nullptr, params[i]);
    return params;
  }
  void Return(TacAddr const* value = nullptr) {
    if (value) Add(tac_PutRetval, value);
    Add(tac_Return);
  }
  // Ends the main program, if it is still open.
  void EmptyMain() {
    if (mainOpen) Add(tac_Stop);
  }

  TacBlock block;
  Ref<SymbolTableList> symbols;
  Ref<SymbolTable> locals;
  long line = 0;
  bool mainOpen = true;

private:
  TacAddr const* Own(TacAddr* addr) {
    owned.emplace_back(addr);
    return addr;
  }
  std::vector<std::unique_ptr<TacAddr>> owned;
};

// Intrinsic link names by number: "intrinsic<n>" unless given.
inline SimpleVector<string> TestIntrinsicNames(std::map<int, char const*> const& named = {}) {
  SimpleVector<string> names;
  for (int i = 0; i < kIntrinsicFunctionCount; ++i) {
    auto it = named.find(i);
    names.push_back(it != named.end() ? string(it->second)
                                      : string(("intrinsic" + std::to_string(i)).c_str()));
  }
  return names;
}

// Places every function of a module one behind the other in one mapping,
// gives each global zeroed storage of its recorded size, makes a string
// record for each string literal, and patches every import. The mapping is
// writable while it is filled and read+execute after; never both.
class TestImage {
public:
  TestImage() = default;
  TestImage(TestImage const&) = delete;
  TestImage& operator=(TestImage const&) = delete;
  ~TestImage() {
    if (code) munmap(code, mapped);
  }

  // `externals` names the C functions (and any globals the test owns).
  bool Link(Ref<CodeModule> module, std::map<std::string, void*> const& externals) {
    if (!module) return Fail("no module");
    size_t total = 0;
    for (unsigned long i = 0; i < module->functions.size(); ++i) total += module->functions[i]->Length();
    size_t page = (size_t)sysconf(_SC_PAGESIZE);
    mapped = (total + page - 1) / page * page;
    if (mapped == 0) mapped = page;
    void* memory = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return Fail("mmap");
    code = (uint8_t*)memory;

    std::vector<uint8_t*> starts;
    uint8_t* at = code;
    for (unsigned long i = 0; i < module->functions.size(); ++i) {
      Ref<FunctionBlock> f = module->functions[i];
      memcpy(at, f->Buffer(), f->Length());
      functions[f->name.CString()] = at;
      starts.push_back(at);
      at += f->Length();
    }
    AllocateGlobals(module, externals);
    for (unsigned long i = 0; i < module->functions.size(); ++i) {
      Ref<FunctionBlock> f = module->functions[i];
      for (unsigned long k = 0; k < f->imports.size(); ++k) {
        if (!Patch(f->imports[k], starts[i], externals)) return false;
      }
    }
    if (mprotect(code, mapped, PROT_READ | PROT_EXEC) != 0) return Fail("mprotect");
    return true;
  }

  template <class Fn>
  Fn Entry(char const* name) {
    auto it = functions.find(name);
    return it == functions.end() ? nullptr : reinterpret_cast<Fn>(it->second);
  }
  void* Global(char const* name) {
    auto it = globals.find(name);
    return it == globals.end() ? nullptr : it->second;
  }
  stringStorage* Literal(char const* text) {
    auto it = literals.find(text);
    return it == literals.end() ? nullptr : it->second.Storage();
  }

  std::string error;
  std::map<std::string, int> importCounts;

private:
  bool Fail(std::string const& why) {
    error = why;
    return false;
  }

  void AllocateGlobals(Ref<CodeModule> module, std::map<std::string, void*> const& externals) {
    StringMapIterator<unsigned int>* it = module->globalSizes.NewIterator();
    unsigned int size = 0;
    while (it->Next(size)) {
      std::string name = it->Key().CString();
      auto ext = externals.find(name);
      if (ext != externals.end()) {
        globals[name] = ext->second;
        continue;
      }
      storage.emplace_back((size + 7) / 8 + 1, 0);
      globals[name] = storage.back().data();
    }
    delete it;
  }

  bool Patch(Import const& imp, uint8_t* start, std::map<std::string, void*> const& externals) {
    uint8_t* field = start + imp.offset;
    std::string name = imp.name.CString();
    ++importCounts[name];
    uint32_t value = 0;
    switch (imp.type) {
      case Import::kCallIA32:
      case Import::kCodePtrIA32: {
        void* target = nullptr;
        auto own = functions.find(name);
        if (own != functions.end()) target = own->second;
        auto ext = externals.find(name);
        if (!target && ext != externals.end()) target = ext->second;
        if (!target) return Fail("unresolved " + name);
        value = imp.type == Import::kCallIA32 ? (uint32_t)((uintptr_t)target - (uintptr_t)(field + 4))
                                              : (uint32_t)(uintptr_t)target;
        break;
      }
      case Import::kDataIA32: {
        void* g = Global(name.c_str());
        if (!g) return Fail("no global " + name);
        value = (uint32_t)(uintptr_t)g;
        break;
      }
      case Import::kStringIA32: {
        auto lit = literals.find(name);
        if (lit == literals.end()) lit = literals.emplace(name, imp.name).first;
        value = (uint32_t)(uintptr_t)lit->second.Storage();
        break;
      }
      default:
        return Fail("import type for another processor");
    }
    memcpy(field, &value, 4);
    return true;
  }

  uint8_t* code = nullptr;
  size_t mapped = 0;
  std::map<std::string, uint8_t*> functions;
  std::map<std::string, void*> globals;
  std::map<std::string, string> literals;
  std::vector<std::vector<uint64_t>> storage;
};

// Generates a program with an IA-32 generator configured with `intrinsics`.
inline Ref<CodeModule> GenerateIA32(TacProgram& program, RecordingDelegate* delegate = nullptr,
                                    SimpleVector<string> intrinsics = TestIntrinsicNames()) {
  CGIA32 generator;
  generator.Configure(CGIA32Options(), intrinsics);
  if (delegate) generator.SetDelegate(delegate);
  return generator.Generate(&program.block, program.symbols);
}

inline Ref<FunctionBlock> FindFunction(Ref<CodeModule> module, char const* name) {
  if (!module) return Ref<FunctionBlock>();
  for (unsigned long i = 0; i < module->functions.size(); ++i) {
    if (strcmp(module->functions[i]->name.CString(), name) == 0) return module->functions[i];
  }
  return Ref<FunctionBlock>();
}
