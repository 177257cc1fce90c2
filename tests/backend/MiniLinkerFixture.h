// Hand-assembled modules for the linker's tests that read the linked words
// without running them: functions written with the instruction writer, their
// fix-ups marked as a code generator marks them. Code that runs comes from
// the code generator itself, so that what is tested is what scripts run.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "backend/IA32OpWriter.h"
#include "backend/CodeStorage.h"
#include "backend/MiniLinker.h"
#include "diag/CompilerDelegate.h"
#include "diag/CompileError.h"

namespace linktest {

// Writes instructions at the end of one function block.
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

inline Ref<CodeModule> NewModule(CodeModule::Family family = CodeModule::kFamilyIA32) {
  Ref<CodeModule> module;
  module.BindNewObject(new CodeModule);
  module->family = family;
  return module;
}

// Collects what the linker reports.
class RecordingDelegate : public CompilerDelegate {
public:
  bool CompilerError(CompileError error) override {
    codes.push_back(error.Type());
    words.push_back(error.Params().size() ? error.Params()[0].CString() : "");
    lines.push_back(error.Location().startLine);
    return true;
  }
  std::vector<int> codes;
  std::vector<std::string> words;
  std::vector<int> lines;
};

inline uint32_t WordAt(RunReadyCode const& image, int offset) {
  return (uint32_t)image.code->Get32((unsigned int)offset);
}

// Where a rel32 call field leads once the code runs from its mapping.
inline uintptr_t CallDestination(RunReadyCode const& image, int field) {
  return (uintptr_t)image.CodeAddress() + (uintptr_t)field + 4 + WordAt(image, field);
}

}  // namespace linktest
