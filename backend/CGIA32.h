// CGIA32: three-address code to IA-32 machine code, one line at a time, in
// one pass.
//
// Three devices make a one-pass generator give tolerable code:
// - A write-through register cache. Each general register lists the operands
//   whose value it holds, so a value read twice is loaded once. Every result
//   is stored to its variable at once, so memory is always current and a
//   register never holds the only copy; that is what lets the lists be
//   dropped wholesale at every label and after every call, which is the
//   whole of the cache's "analysis".
// - Compare-and-branch fusion. A comparison whose result only the branch
//   right behind it reads (counted once per function, before its first
//   line is written) writes cmp and the jump itself, with no setcc and no
//   store, and the branch writes nothing.
// - The late prolog. A function's body is written first; at tac_Return the
//   prolog is written into a fresh block (only then is it known which
//   callee-saved registers the body used and whether a return slot is
//   needed), the body is appended behind it and the body's fix-ups are
//   moved by the prolog's length. All jumps are relative and long, so the
//   move changes no jump.
//
// Frame, from high addresses to low (T: the local table's storage, S = T + 4,
// F = S, plus 4 for an integer result slot or 8 for a float one):
//   ebp + 8 ...        the arguments, the first lowest
//   ebp + 4            return address
//   ebp                the caller's ebp
//   ebp - (off + size) a local of that storage offset and size
//   ebp - S            the stack pointer as the prolog left it
//   ebp - F            the return value, if any
//   ebp - R            padding down from F, so that below the saved registers
//                      esp sits on a 16-byte boundary
//   below              saved ebx, esi, edi: only those the body used
// Callers drop their arguments by reloading esp from ebp - S, so no count of
// pushed bytes is ever kept.
//
// Calls keep the i386 System V ABI: esp is on a 16-byte boundary at every
// call instruction, to the library and to generated functions alike. A
// function is entered that way, so R is fixed when the prolog is written;
// between lines esp holds the value kept at ebp - S, on the boundary, and
// each argument block is padded up to a multiple of 16 bytes before its
// first push.
//
// Floats never live in general registers: they pass through the x87 stack
// within one line, and the stack is empty between lines.
//
// Exceptions write no data into the code. A try's ends and each handler's
// entry are recorded with their offsets on the function block (the linker
// makes the image's handler table of them, runtime/RunAbort.h walks it). A
// handler's entry is a jump over its resume point; the resume point reloads
// esp from ebp - S, calls the library for the exception in flight and
// stores it into the handler's variable as a counted assignment. Each
// line's first offset is recorded too, for the line of a raise.
// The stack check is inline: cmp esp against the library's limit word,
// and a call only when below.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "backend/IA32OpWriter.h"
#include "backend/CodeGenerator.h"
#include "ir/Intrinsics.h"

// Register schemes: bit n allows register n.
constexpr int kSchemeGeneral = 0xCF;   // all but esp and ebp
constexpr int kSchemeByte = 0x0F;      // eax, ecx, edx, ebx: those with a byte form
constexpr int kSchemeEAX = 0x01;

constexpr int kRegisterCount = 8;

// A memory operand of the float unit: [base] when `mod` is kModNoDisp,
// else [base + disp] of that `mod`. The base is never esp.
struct MemoryOperand {
  int mod;
  int base;
  int disp;
};

// A label's place in the body, or a forward jump's rel32 field still to patch.
struct LabelPosition {
  int32_t label;
  int32_t position;
};

class CGIA32 : public CodeGenerator, public IA32OpWriter {
public:
  CGIA32();
  ~CGIA32() override;

  // Stores the options and the link names of the intrinsics, by number.
  void Configure(CGIA32Options opts, SimpleVector<string> intrinsics);

  void ia32_Write8(char byte) override;
  void ia32_Write16(int value) override;
  void ia32_Write32(int value) override;

  void BeginFunction(string name) override;
  void EndFunction() override;
  CodeModule::Family TargetProcessorFamily() override { return CodeModule::kFamilyIA32; }
  int CodeBufferLength() override;
  void CompileLineBefore(TacLine const& line) override;

  void tac_Noop(TacLine const& line) override;
  void tac_Debugout(TacLine const& line) override;
  void tac_Store(TacLine const& line) override;
  void tac_Varptr(TacLine const& line) override;
  void tac_PeekI(TacLine const& line) override;
  void tac_PeekB(TacLine const& line) override;
  void tac_PeekF(TacLine const& line) override;
  void tac_PeekD(TacLine const& line) override;
  void tac_PeekS(TacLine const& line) override;
  void tac_PeekO(TacLine const& line) override;
  void tac_PokeI(TacLine const& line) override;
  void tac_PokeB(TacLine const& line) override;
  void tac_PokeF(TacLine const& line) override;
  void tac_PokeD(TacLine const& line) override;
  void tac_PokeS(TacLine const& line) override;
  void tac_PokeO(TacLine const& line) override;
  void tac_AddI(TacLine const& line) override;
  void tac_AddD(TacLine const& line) override;
  void tac_SubI(TacLine const& line) override;
  void tac_SubD(TacLine const& line) override;
  void tac_MulI(TacLine const& line) override;
  void tac_MulD(TacLine const& line) override;
  void tac_DivI(TacLine const& line) override;
  void tac_DivD(TacLine const& line) override;
  void tac_ModI(TacLine const& line) override;
  void tac_PowD(TacLine const& line) override;
  void tac_NegI(TacLine const& line) override;
  void tac_NegD(TacLine const& line) override;
  void tac_EQD(TacLine const& line) override;
  void tac_EQI(TacLine const& line) override;
  void tac_NED(TacLine const& line) override;
  void tac_NEI(TacLine const& line) override;
  void tac_LTD(TacLine const& line) override;
  void tac_LTI(TacLine const& line) override;
  void tac_LED(TacLine const& line) override;
  void tac_LEI(TacLine const& line) override;
  void tac_ItoD(TacLine const& line) override;
  void tac_DtoI(TacLine const& line) override;
  void tac_Label(TacLine const& line) override;
  void tac_Jump(TacLine const& line) override;
  void tac_IfEQI(TacLine const& line) override;
  void tac_IfNEI(TacLine const& line) override;
  void tac_IfLTI(TacLine const& line) override;
  void tac_Lock(TacLine const& line) override;
  void tac_Unlock(TacLine const& line) override;
  void tac_SwapLocks(TacLine const& line) override;
  void tac_PutParam(TacLine const& line) override;
  void tac_GetParam(TacLine const& line) override;
  void tac_Intrinsic(TacLine const& line) override;
  void tac_Call(TacLine const& line) override;
  void tac_CallPtr(TacLine const& line) override;
  void tac_CallPtrVarargs(TacLine const& line) override;
  void tac_FuncPtr(TacLine const& line) override;
  void tac_Symbols(TacLine const& line) override;
  void tac_Baseref(TacLine const& line) override;
  void tac_Return(TacLine const& line) override;
  void tac_PutRetval(TacLine const& line) override;
  void tac_Stop(TacLine const& line) override;
  void tac_HandleException(TacLine const& line) override;
  void tac_BeginTry(TacLine const& line) override;
  void tac_EndTry(TacLine const& line) override;

  // The `mod` that a displacement needs: 8 bits where it fits, else 32.
  static int ModDisp(int displacement);
  static bool RegMatchesScheme(int reg, int scheme) { return reg >= 0 && (scheme >> reg & 1) != 0; }
  static int SchemeExclude(int reg, int scheme) { return scheme & ~(1 << reg); }
  // S: the frame offset of the stored stack pointer.
  int StoredESPOffset() const;

  // Register cache.
  // A register of `scheme`, marked used: the first with an empty list, else
  // the least recently hit one, emptied.
  int AllocateRegister(int scheme);
  uint32_t HitClock() { return ++clockValue; }
  // The register is about to change: its list goes.
  void Touch(RegisterState* state);
  // Every list emptied, and `used` and `clock` reset: a new function.
  void ResetRegisters();
  // Every list emptied: after a label, a call or a handler entry.
  void InvalidateRegisters();

  // Operands.
  // Marks the data fix-up of a global `extra` bytes into the coming
  // instruction and records the global's size for the linker.
  void LoadGlobal(TacAddr const* addr, int extra);
  // A register of `scheme` holding the value of a non-float operand.
  int LoadTacAddr(TacAddr const* addr, int scheme);
  // Writes `reg` through to the variable and lists it in `reg` alone.
  void StoreTacAddr(int reg, TacAddr const* addr);
  void PushTacAddr(TacAddr const* addr);
  // The value of an operand that an instruction can carry as its immediate:
  // a constant of any type but String and the floats.
  static bool ImmediateValue(TacAddr const* addr, int* value);
  // op reg, imm in the sign-extended byte form where the value fits.
  void ImmediateOperation(void (IA32OpWriter::*byteForm)(int, int, int),
                          void (IA32OpWriter::*wordForm)(int, int, int), int reg, int imm);
  // Writes an immediate straight to the variable, with no register; false,
  // writing nothing, where only a register can (a Boolean field's byte).
  bool StoreImmediate(int value, TacAddr const* addr);
  void PushFloatTacAddr(TacAddr const* addr);
  void PopFloatTacAddr(TacAddr const* addr);
  // Where a variable lives; a global's address is put into a register.
  MemoryOperand VariableOperand(TacAddr const* addr);
  // [pointer + offset]: a constant offset as the displacement, a variable
  // one added into the pointer's register; no offset is nilTacAddr.
  MemoryOperand PointerOperand(TacAddr const* pointer, TacAddr const* offset);
  void FloatLoad(MemoryOperand const& m, bool wide);
  // Pops st0 into memory.
  void FloatStore(MemoryOperand const& m, bool wide);

  // Labels and calls.
  // The rel32 for a jump whose field starts `extra` bytes behind the end;
  // a label not yet placed leaves the field to be patched and gives 0.
  int FindLabel(int label, int extra);
  // Pads ahead of an argument block of `argumentBytes` so that esp is on
  // the boundary at the call; the padded size, for the caller to drop.
  int AlignArgumentBlock(int argumentBytes);
  void PushCallParameters();
  void ClearCallParameters();
  void GetReturnedResult(TacAddr const* addr);

  // Read access for tests and the listing.
  RegisterState const& Register(int reg) const { return registers[reg]; }
  // F: the slots of the frame, down to the return value's.
  int32_t FrameSize() const;
  // R: what the prolog subtracts from esp, F and the padding below it.
  int32_t FrameReserve() const;
  int SavedRegisterCount() const;

private:
  // Frame displacement of a local: -(offset + size).
  static int LocalDisplacement(TacAddr const* addr);
  // Displacement of an object field from the base reference's value.
  int FieldDisplacement(TacAddr const* addr) const { return baseOffset + (int)addr->StorageOffset(); }
  int LoadBase(int scheme);
  string IntrinsicName(int number) const;

  // Writes a rel32 jump whose target lies ahead within this line; the field
  // is patched by PatchLocalJump once the target is reached.
  int LocalJump(void (IA32OpWriter::*writer)(int));
  void PatchLocalJump(int field);

  void BinaryFloats(TacAddr const* first, TacAddr const* second);
  // `op` is the register form, the two others the immediate forms of the
  // same operation, used when one side is constant; a commutative one takes
  // the constant on either side.
  void IntegerArithmetic(TacLine const& line, void (IA32OpWriter::*op)(int, int, int),
                         void (IA32OpWriter::*byteForm)(int, int, int) = nullptr,
                         void (IA32OpWriter::*wordForm)(int, int, int) = nullptr, bool commutative = false);
  // cmp x, y, or cmp x, imm when `b` is constant. When only `a` is, the
  // sides swap and `*test` becomes its mirror. The register that holds the
  // other side, or -1, is left in `*y`.
  int CompareInts(TacLine const& line, int* test, int* y);
  // Fills `mentions`, from `first` up to the next function.
  void CountMentions(TacLine const* first);
  // The tac_IfEQI or tac_IfNEI right behind a comparison that can take its
  // place, the comparison's result being read by it alone; `*onTrue` says
  // whether it jumps when the comparison holds. Null where it can't.
  TacLine const* FusableBranch(TacLine const& line, bool* onTrue) const;
  // With the flags of the comparison set, writes the jump of its fusable
  // branch and marks that branch to be skipped; false, writing nothing,
  // where there is none.
  bool FuseBranch(TacLine const& line, void (IA32OpWriter::*jump)(int), void (IA32OpWriter::*jumpUnless)(int));
  void FloatArithmetic(TacLine const& line, void (IA32OpWriter::*op)());
  void IntegerCompare(TacLine const& line, int test);
  void FloatCompare(TacLine const& line, int mask, int expected, bool negated);
  void IntegerBranch(TacLine const& line, int test);
  // The quotient lands in eax, the remainder in edx.
  void DivideEAX(TacLine const& line, bool remainder);
  void Peek(TacLine const& line, bool byteLoad);
  void PeekFloat(TacLine const& line, bool wide);
  void Poke(TacLine const& line, bool byteStore);
  void PokeFloat(TacLine const& line, bool wide);
  // Calls an intrinsic whose arguments are pushed, in a padded block of
  // `blockBytes`, and drops the block.
  void CallRuntime(int intrinsic, int blockBytes);
  void LockFamily(TacLine const& line, int stringCall, int objectCall, int arrayCall);
  void StoreZero(TacAddr const* addr);
  // Stores 0 into a counted variable with no register outside `keep` taken.
  void ClearVariable(TacAddr const* addr, int keep);
  // An object's count, changed in place; `r` holds the object, `c` is a
  // scratch register. The unlock calls the library only when the count is
  // about to reach 0, and leaves nothing known of the registers.
  void LockObjectInline(int r, int c);
  void UnlockObjectInline(int r, int c);
  void NotePassThroughHandler(TacLine const& line, int start, int resume);
  void CallIntrinsicUnless(void (IA32OpWriter::*unless)(int), int number);
  void CallSequenceStart();
  void CallSequenceEnd(TacAddr const* result);
  void WriteProlog(int reserve);
  void CopyParameters();
  void WriteEpilog(int reserve);

public:
  CGIA32Options options;
  Ref<SymbolTable> localTable;
  SimpleVector<LabelPosition> labels;
  SimpleVector<LabelPosition> pendingJumps;
  TacAddr const* baseRef;
  int32_t baseOffset;
  uint32_t clockValue;
  RegisterState registers[kRegisterCount];
  bool hasRetval;
  bool retvalIsFloat;
  SimpleVector<TacAddr const*> callParams;
  SimpleVector<TacAddr const*> funcParams;
  // How often the function being written names each result of a comparison
  // that has a branch behind it: one named twice, by the comparison and by
  // the branch, needs no store.
  std::unordered_map<TacAddr const*, int> mentions;
  bool mentionsCounted;
  // The branch already written as the jump of the comparison before it.
  TacLine const* fusedBranch;
};
