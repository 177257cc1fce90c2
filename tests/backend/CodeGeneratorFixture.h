// Test support for the code generators: a builder of three-address blocks
// with their symbol tables, a delegate that records what the generator and
// the linker say, and a module linked so that its functions can be called
// from the tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "backend/CGIA32.h"
#include "backend/MiniLinker.h"
#include "ir/ThreeAddressCode.h"
#include "diag/CompileError.h"
#include "frontend/CompileFixture.h"
#include "semantic/SymbolTable.h"

// The shared recorder, told the back end's progress as well, and keeping
// the word each error names (the linker names what it could not resolve).
class BackendRecorder : public RecordingDelegate {
public:
  bool CompilerBackendProgress(int current, int total) override {
    return CompilerFrontendProgress(current, total);
  }
  bool CompilerError(CompileError error) override {
    words.push_back(error.Params().size() ? error.Params()[0].CString() : "");
    return RecordingDelegate::CompilerError(error);
  }
  std::vector<std::string> words;
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

// A module linked by MiniLink, as a script's is, with its functions found by
// name so that a test can call each one straight from C. `outside` names the
// C functions the code calls.
class LinkedModule {
public:
  explicit LinkedModule(Ref<CodeModule> module, std::map<std::string, void*> const& outside = {}) {
    if (!module) return;
    StringMap<void*> table;
    for (auto const& entry : outside) table.AddEntry(entry.first.c_str(), entry.second);
    unsigned int at = 0;
    for (unsigned long i = 0; i < module->functions.size(); ++i) {
      starts[module->functions[i]->name.CString()] = at;
      at += module->functions[i]->Length();
    }
    image.reset(MiniLink(module, &table, &delegate));
  }
  explicit operator bool() const { return image && image->CodeAddress(); }

  template <class Fn>
  Fn Entry(char const* name) const {
    auto it = starts.find(name);
    return it == starts.end() ? nullptr : reinterpret_cast<Fn>(image->CodeAddress() + it->second);
  }
  // The word the linker wrote into the first fix-up of `type` that names
  // `name`: a global's or a literal's address. Null if there is none.
  void* Address(char const* name, Import::Type type = Import::kDataIA32) const {
    SimpleVector<Import> const& imports = image->code->imports;
    for (unsigned long i = 0; i < imports.size(); ++i) {
      if (imports[i].type == type && imports[i].name.CompareWithCase(string(name)) == 0)
        return reinterpret_cast<void*>((uintptr_t)image->code->Get32((unsigned)imports[i].offset));
    }
    return nullptr;
  }
  // How many fix-ups name `name`.
  int Uses(char const* name) const {
    int count = 0;
    for (unsigned long i = 0; i < image->code->imports.size(); ++i)
      count += image->code->imports[i].name.CompareWithCase(string(name)) == 0;
    return count;
  }

  BackendRecorder delegate;
  std::unique_ptr<RunReadyCode> image;

private:
  std::map<std::string, unsigned int> starts;
};

// Generates a program with an IA-32 generator configured with `intrinsics`.
inline Ref<CodeModule> GenerateIA32(TacProgram& program, BackendRecorder* delegate = nullptr,
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
