// IA32OpWriter: the bytes of IA-32 instructions, and nothing else.
//
// Invariants:
// - The writer keeps no state: no registers, no labels, no position. Every
//   byte goes out through the three sinks, which the code generator points at
//   the function being written.
// - Every argument is the hardware's own number: register numbers, `mod`
//   values and SIB fields go into the encoding as given, so a call reads like
//   the manual's operand table. The field helpers assert their ranges.
// - Jumps and calls are always the rel32 forms: an instruction's size never
//   depends on its target, so a forward jump can be patched in place.
// - Memory operands come in three shapes. "Plain" is register direct (mod 3)
//   or [reg] (mod 0) and takes no displacement. "Disp" adds the displacement
//   that `mod` asks for: 8 bits for mod 1, 32 for mod 2, and for mod 0 with
//   rm 5 the absolute 32-bit address. "SIB" is [base + index], mod 0, rm 4.
//   A displacement with esp as base would need both and is not offered: the
//   generator never addresses that way.
#pragma once

#include <cstdint>

// Register numbers as the ModR/M, SIB and +r opcode fields encode them.
constexpr int kEAX = 0;
constexpr int kECX = 1;
constexpr int kEDX = 2;
constexpr int kEBX = 3;
constexpr int kESP = 4;
constexpr int kEBP = 5;
constexpr int kESI = 6;
constexpr int kEDI = 7;

// ModR/M `mod` values.
constexpr int kModNoDisp = 0;    // [reg]; with rm 5 an absolute disp32 instead
constexpr int kModDisp8 = 1;     // [reg + disp8]
constexpr int kModDisp32 = 2;    // [reg + disp32]
constexpr int kModRegister = 3;  // the register itself
// rm 4 with a memory `mod` says a SIB byte follows; as a SIB index, 4 means none.
constexpr int kRMNeedsSIB = 4;
constexpr int kSIBNoIndex = 4;
// rm 5 with mod 0 is an absolute address, not [ebp].
constexpr int kRMAbsolute = 5;

class IA32OpWriter {
public:
  // The byte sinks. Multi-byte values go out least significant byte first.
  virtual void ia32_Write8(char byte) = 0;
  virtual void ia32_Write16(int value) = 0;
  virtual void ia32_Write32(int value) = 0;

  // Encoding helpers.
  void ia32_WriteOpcode(int opcode);
  void ia32_WriteOpcode(int first, int second);
  void ia32_WriteRegisterOpcode(int opcode, int reg);
  void ia32_WriteModRM(int mod, int reg, int rm);
  void ia32_WriteSIB(int scale, int index, int base);
  // One byte for mod 1, four for mod 0 (only ever with rm 5) and mod 2,
  // nothing for mod 3.
  void ia32_WriteDisplacement(int mod, int value);

  // Integer operations, reg op= r/m.
  void ia32_add(int mod, int reg, int rm);   // 03 /r     add r32, r/m32
  void ia32_sub(int mod, int reg, int rm);   // 2B /r     sub r32, r/m32
  void ia32_xor(int mod, int reg, int rm);   // 33 /r     xor r32, r/m32
  void ia32_cmp(int mod, int reg, int rm);   // 3B /r     cmp r32, r/m32
  void ia32_cmp(int mod, int reg, int rm, int disp);  // 3B /r  cmp r32, r/m32
  void ia32_imul(int mod, int reg, int rm);  // 0F AF /r  imul r32, r/m32
  void ia32_test(int mod, int reg, int rm);  // 85 /r     test r/m32, r32

  // Moves.
  void ia32_mov(int mod, int reg, int rm);                                     // 8B /r  mov r32, r/m32
  void ia32_mov(int mod, int reg, int rm, int disp);                           // 8B /r  mov r32, r/m32
  void ia32_mov(int mod, int reg, int rm, int scale, int index, int base);     // 8B /r  mov r32, r/m32
  void ia32_mov8(int mod, int reg, int rm);                                    // 8A /r  mov r8, r/m8
  void ia32_mov8(int mod, int reg, int rm, int disp);                          // 8A /r  mov r8, r/m8
  void ia32_mov8(int mod, int reg, int rm, int scale, int index, int base);    // 8A /r  mov r8, r/m8
  void ia32_mov_backwards(int mod, int reg, int rm);                           // 89 /r  mov r/m32, r32
  void ia32_mov_backwards(int mod, int reg, int rm, int disp);                 // 89 /r  mov r/m32, r32
  void ia32_mov_backwards(int mod, int reg, int rm, int scale, int index, int base);   // 89 /r  mov r/m32, r32
  void ia32_mov8_backwards(int mod, int reg, int rm);                          // 88 /r  mov r/m8, r8
  void ia32_mov8_backwards(int mod, int reg, int rm, int disp);                // 88 /r  mov r/m8, r8
  void ia32_mov8_backwards(int mod, int reg, int rm, int scale, int index, int base);  // 88 /r  mov r/m8, r8
  void ia32_lea(int mod, int reg, int rm, int disp);                           // 8D /r  lea r32, m
  void ia32_mov_imm32(int reg, int imm);                                       // B8+rd id  mov r32, imm32
  void ia32_mov_imm32(int mod, int rm, int disp, int imm);                     // C7 /0 id  mov r/m32, imm32

  // Operations with an opcode extension in the reg field.
  void ia32_add_imm32(int mod, int rm, int imm);     // 81 /0 id  add r/m32, imm32
  void ia32_or_imm16(int mod, int rm, int scale, int index, int base, int imm);  // 66 81 /1 iw  or r/m16, imm16
  void ia32_and_imm32(int mod, int rm, int imm);     // 81 /4 id  and r/m32, imm32
  void ia32_sub_imm32(int mod, int rm, int imm);     // 81 /5 id  sub r/m32, imm32
  void ia32_cmp_imm32(int mod, int rm, int imm);     // 81 /7 id  cmp r/m32, imm32
  void ia32_add_imm8_se(int mod, int rm, int imm);   // 83 /0 ib  add r/m32, imm8
  void ia32_and_imm8_se(int mod, int rm, int imm);   // 83 /4 ib  and r/m32, imm8
  void ia32_sub_imm8_se(int mod, int rm, int imm);   // 83 /5 ib  sub r/m32, imm8
  void ia32_sub_imm8_se(int mod, int rm, int disp, int imm);  // with a displacement
  void ia32_cmp_imm8_se(int mod, int rm, int imm);   // 83 /7 ib  cmp r/m32, imm8
  void ia32_negi(int mod, int rm);                   // F7 /3     neg r/m32
  void ia32_idiv(int mod, int rm);                   // F7 /7     idiv r/m32
  void ia32_call(int mod, int rm);                   // FF /2     call r/m32
  void ia32_push(int mod, int rm, int disp);         // FF /6     push r/m32
  void ia32_sete(int mod, int rm);                   // 0F 94 /0  sete r/m8
  void ia32_setne(int mod, int rm);                  // 0F 95 /0  setne r/m8
  void ia32_setl(int mod, int rm);                   // 0F 9C /0  setl r/m8
  void ia32_setle(int mod, int rm);                  // 0F 9E /0  setle r/m8
  void ia32_setg(int mod, int rm);                   // 0F 9F /0  setg r/m8
  void ia32_setge(int mod, int rm);                  // 0F 9D /0  setge r/m8

  // No operands, or one in the opcode or behind it.
  void ia32_cdq();                  // 99        cdq
  void ia32_nop();                  // 90        nop
  void ia32_ret_near();             // C3        ret
  void ia32_push(int reg);          // 50+rd     push r32
  void ia32_pop(int reg);           // 58+rd     pop r32
  void ia32_push_imm32(int imm);    // 68 id     push imm32
  void ia32_push_imm8_se(int imm);  // 6A ib     push imm8
  void ia32_call_disp32(int rel);   // E8 cd     call rel32
  void ia32_jmp(int rel);           // E9 cd     jmp rel32
  void ia32_je(int rel);            // 0F 84 cd  je rel32
  void ia32_jne(int rel);           // 0F 85 cd  jne rel32
  void ia32_jl(int rel);            // 0F 8C cd  jl rel32
  void ia32_jle(int rel);           // 0F 8E cd  jle rel32
  void ia32_jg(int rel);            // 0F 8F cd  jg rel32
  void ia32_jge(int rel);           // 0F 8D cd  jge rel32
  void ia32_jae(int rel);           // 0F 83 cd  jae rel32

  // Float unit, register stack.
  void ia32_faddp();    // DE C1  faddp st(1), st(0)
  void ia32_fsubp();    // DE E9  fsubp st(1), st(0)
  void ia32_fmulp();    // DE C9  fmulp st(1), st(0)
  void ia32_fdivp();    // DE F9  fdivp st(1), st(0)
  void ia32_fchs();     // D9 E0  fchs
  void ia32_fcompp();   // DE D9  fcompp
  void ia32_fnstsw();   // DF E0  fnstsw ax

  // Float unit with memory: [reg], or [esp] when rm is 4.
  void ia32_fild(int mod, int rm);     // DB /0  fild m32int
  void ia32_fistp(int mod, int rm);    // DB /3  fistp m32int
  void ia32_fld32(int mod, int rm);    // D9 /0  fld m32fp
  void ia32_fstp32(int mod, int rm);   // D9 /3  fstp m32fp
  void ia32_fld64(int mod, int rm);    // DD /0  fld m64fp
  void ia32_fstp64(int mod, int rm);   // DD /3  fstp m64fp
  void ia32_fldcw(int mod, int rm);    // D9 /5  fldcw m2byte
  void ia32_fnstcw(int mod, int rm);   // D9 /7  fnstcw m2byte
  // The same with a displacement, no SIB byte.
  void ia32_fld32(int mod, int rm, int disp);    // D9 /0  fld m32fp
  void ia32_fstp32(int mod, int rm, int disp);   // D9 /3  fstp m32fp
  void ia32_fld64(int mod, int rm, int disp);    // DD /0  fld m64fp
  void ia32_fstp64(int mod, int rm, int disp);   // DD /3  fstp m64fp

protected:
  // Not virtual, so that the sinks keep the first slots; nobody deletes a
  // generator through this base.
  ~IA32OpWriter() = default;

private:
  // The operand shapes of the header comment: ModR/M and what must follow it.
  void WritePlainOperand(int mod, int reg, int rm);
  void WriteDispOperand(int mod, int reg, int rm, int disp);
  void WriteSIBOperand(int mod, int reg, int rm, int scale, int index, int base);
  // A float operand [reg], or [esp] through a SIB byte when rm is 4.
  void WriteFloatOperand(int mod, int reg, int rm);
  // 83 /extension ib: the byte is sign-extended, so only -128..127 mean themselves.
  void WriteImm8Operation(int extension, int mod, int rm, int imm);
};
