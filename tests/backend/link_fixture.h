// Hand-assembled modules for the linker's tests: functions written with the
// instruction writer, their fix-ups marked as a code generator marks them,
// and outside functions that record what the linked code did.
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

  // The library is compiled for a stack aligned to 16 bytes at each call,
  // and the sanitizers rely on it: the frame aligns itself.
  void Prolog() {
    ia32_push(kEBP);
    ia32_mov(kModRegister, kEBP, kESP);
    ia32_and_imm8_se(kModRegister, kESP, -16);
  }
  void Epilog() {
    ia32_mov(kModRegister, kESP, kEBP);
    ia32_pop(kEBP);
    ia32_ret_near();
  }
  // Room that keeps the stack aligned once `count` arguments are pushed.
  void ReserveArgs(int count) {
    int pad = (16 - 4 * count % 16) % 16;
    if (pad) ia32_sub_imm32(kModRegister, kESP, pad);
  }
  void DropArgs(int count) { ia32_add_imm32(kModRegister, kESP, (4 * count + 15) / 16 * 16); }
  // call rel32 to a named function; returns the offset of the rel32 field.
  int Call(char const* name) {
    int field = (int)block->Length() + 1;
    block->MarkImport(Import::kCallIA32, name, 1);
    ia32_call_disp32(0);
    return field;
  }
  // push imm32 of a literal's record address.
  int PushLiteral(string text) {
    int field = (int)block->Length() + 1;
    block->MarkImport(Import::kStringIA32, text, 1);
    ia32_push_imm32(0);
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
  // Calls a one-argument outside function with eax and drops the argument.
  void CallWithEAX(char const* name) {
    ReserveArgs(1);
    ia32_push(kEAX);
    Call(name);
    DropArgs(1);
  }
  // Calls a one-argument outside function with a literal.
  void CallWithLiteral(char const* name, string text) {
    ReserveArgs(1);
    PushLiteral(text);
    Call(name);
    DropArgs(1);
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

// Where a rel32 call field leads, as an offset in the linked block.
inline int CallTarget(RunReadyCode const& image, int field) {
  return field + 4 + (int32_t)WordAt(image, field);
}

}  // namespace linktest
