#include "backend/IA32OpWriter.h"

#include "foundation/KvAssert.h"

// ---------------------------------------------------------------------------
// Encoding helpers

void IA32OpWriter::ia32_WriteOpcode(int opcode) { ia32_Write8((char)opcode); }

void IA32OpWriter::ia32_WriteOpcode(int first, int second) {
  ia32_Write8((char)first);
  ia32_Write8((char)second);
}

void IA32OpWriter::ia32_WriteRegisterOpcode(int opcode, int reg) {
  KV_ASSERT(reg >= 0 && reg <= 7 && (opcode & 7) == 0);
  ia32_Write8((char)(opcode | reg));
}

void IA32OpWriter::ia32_WriteModRM(int mod, int reg, int rm) {
  KV_ASSERT(mod >= 0 && mod <= 3 && reg >= 0 && reg <= 7 && rm >= 0 && rm <= 7);
  ia32_Write8((char)(mod << 6 | reg << 3 | rm));
}

void IA32OpWriter::ia32_WriteSIB(int scale, int index, int base) {
  KV_ASSERT(scale >= 0 && scale <= 3 && index >= 0 && index <= 7 && base >= 0 && base <= 7);
  ia32_Write8((char)(scale << 6 | index << 3 | base));
}

void IA32OpWriter::ia32_WriteDisplacement(int mod, int value) {
  KV_ASSERT(mod >= 0 && mod <= 3 && (mod != kModDisp8 || (value >= -128 && value <= 127)));
  if (mod == kModDisp8) ia32_Write8((char)value);
  else if (mod == kModNoDisp || mod == kModDisp32) ia32_Write32(value);
}

// Plain: no displacement may be due, and no SIB byte.
void IA32OpWriter::WritePlainOperand(int mod, int reg, int rm) {
  KV_ASSERT(mod == kModRegister || (mod == kModNoDisp && rm != kRMNeedsSIB && rm != kRMAbsolute));
  ia32_WriteModRM(mod, reg, rm);
}

// Mod 0 takes a displacement only as the absolute form.
void IA32OpWriter::WriteDispOperand(int mod, int reg, int rm, int disp) {
  KV_ASSERT(mod == kModRegister || rm != kRMNeedsSIB);
  KV_ASSERT(mod != kModNoDisp || rm == kRMAbsolute);
  ia32_WriteModRM(mod, reg, rm);
  ia32_WriteDisplacement(mod, disp);
}

// A SIB operand carries no displacement, so it is mod 0 and base 5 (which
// would mean disp32 with no base) is out.
void IA32OpWriter::WriteSIBOperand(int mod, int reg, int rm, int scale, int index, int base) {
  KV_ASSERT(mod == kModNoDisp && rm == kRMNeedsSIB && base != kEBP);
  ia32_WriteModRM(mod, reg, rm);
  ia32_WriteSIB(scale, index, base);
}

void IA32OpWriter::WriteFloatOperand(int mod, int reg, int rm) {
  KV_ASSERT(mod == kModNoDisp && rm != kRMAbsolute);
  ia32_WriteModRM(mod, reg, rm);
  if (rm == kRMNeedsSIB) ia32_WriteSIB(0, kSIBNoIndex, kESP);
}

// ---------------------------------------------------------------------------
// Integer operations and moves

void IA32OpWriter::ia32_add(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x03);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_sub(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x2B);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_xor(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x33);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_cmp(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x3B);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_cmp(int mod, int reg, int rm, int disp) {
  ia32_WriteOpcode(0x3B);
  WriteDispOperand(mod, reg, rm, disp);
}

void IA32OpWriter::ia32_imul(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x0F, 0xAF);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_test(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x85);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_mov(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x8B);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_mov(int mod, int reg, int rm, int disp) {
  ia32_WriteOpcode(0x8B);
  WriteDispOperand(mod, reg, rm, disp);
}

void IA32OpWriter::ia32_mov(int mod, int reg, int rm, int scale, int index, int base) {
  ia32_WriteOpcode(0x8B);
  WriteSIBOperand(mod, reg, rm, scale, index, base);
}

void IA32OpWriter::ia32_mov8(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x8A);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_mov8(int mod, int reg, int rm, int disp) {
  ia32_WriteOpcode(0x8A);
  WriteDispOperand(mod, reg, rm, disp);
}

void IA32OpWriter::ia32_mov8(int mod, int reg, int rm, int scale, int index, int base) {
  ia32_WriteOpcode(0x8A);
  WriteSIBOperand(mod, reg, rm, scale, index, base);
}

void IA32OpWriter::ia32_mov_backwards(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x89);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_mov_backwards(int mod, int reg, int rm, int disp) {
  ia32_WriteOpcode(0x89);
  WriteDispOperand(mod, reg, rm, disp);
}

void IA32OpWriter::ia32_mov_backwards(int mod, int reg, int rm, int scale, int index, int base) {
  ia32_WriteOpcode(0x89);
  WriteSIBOperand(mod, reg, rm, scale, index, base);
}

void IA32OpWriter::ia32_mov8_backwards(int mod, int reg, int rm) {
  ia32_WriteOpcode(0x88);
  WritePlainOperand(mod, reg, rm);
}

void IA32OpWriter::ia32_mov8_backwards(int mod, int reg, int rm, int disp) {
  ia32_WriteOpcode(0x88);
  WriteDispOperand(mod, reg, rm, disp);
}

void IA32OpWriter::ia32_mov8_backwards(int mod, int reg, int rm, int scale, int index, int base) {
  ia32_WriteOpcode(0x88);
  WriteSIBOperand(mod, reg, rm, scale, index, base);
}

// An address is never register direct.
void IA32OpWriter::ia32_lea(int mod, int reg, int rm, int disp) {
  KV_ASSERT(mod != kModRegister);
  ia32_WriteOpcode(0x8D);
  WriteDispOperand(mod, reg, rm, disp);
}

void IA32OpWriter::ia32_mov_imm32(int reg, int imm) {
  ia32_WriteRegisterOpcode(0xB8, reg);
  ia32_Write32(imm);
}

// The immediate follows the whole operand, displacement included.
void IA32OpWriter::ia32_mov_imm32(int mod, int rm, int disp, int imm) {
  ia32_WriteOpcode(0xC7);
  WriteDispOperand(mod, 0, rm, disp);
  ia32_Write32(imm);
}

// ---------------------------------------------------------------------------
// Opcode extensions

void IA32OpWriter::ia32_add_imm32(int mod, int rm, int imm) {
  ia32_WriteOpcode(0x81);
  WritePlainOperand(mod, 0, rm);
  ia32_Write32(imm);
}

void IA32OpWriter::ia32_or_imm16(int mod, int rm, int scale, int index, int base, int imm) {
  ia32_WriteOpcode(0x66, 0x81);
  WriteSIBOperand(mod, 1, rm, scale, index, base);
  ia32_Write16(imm);
}

void IA32OpWriter::ia32_and_imm32(int mod, int rm, int imm) {
  ia32_WriteOpcode(0x81);
  WritePlainOperand(mod, 4, rm);
  ia32_Write32(imm);
}

void IA32OpWriter::ia32_sub_imm32(int mod, int rm, int imm) {
  ia32_WriteOpcode(0x81);
  WritePlainOperand(mod, 5, rm);
  ia32_Write32(imm);
}

void IA32OpWriter::ia32_cmp_imm32(int mod, int rm, int imm) {
  ia32_WriteOpcode(0x81);
  WritePlainOperand(mod, 7, rm);
  ia32_Write32(imm);
}

void IA32OpWriter::WriteImm8Operation(int extension, int mod, int rm, int imm) {
  KV_ASSERT(imm >= -128 && imm <= 127);
  ia32_WriteOpcode(0x83);
  WritePlainOperand(mod, extension, rm);
  ia32_Write8((char)imm);
}

void IA32OpWriter::ia32_add_imm8_se(int mod, int rm, int imm) { WriteImm8Operation(0, mod, rm, imm); }
void IA32OpWriter::ia32_and_imm8_se(int mod, int rm, int imm) { WriteImm8Operation(4, mod, rm, imm); }
void IA32OpWriter::ia32_sub_imm8_se(int mod, int rm, int imm) { WriteImm8Operation(5, mod, rm, imm); }
void IA32OpWriter::ia32_cmp_imm8_se(int mod, int rm, int imm) { WriteImm8Operation(7, mod, rm, imm); }

void IA32OpWriter::ia32_sub_imm8_se(int mod, int rm, int disp, int imm) {
  KV_ASSERT(imm >= -128 && imm <= 127);
  ia32_WriteOpcode(0x83);
  WriteDispOperand(mod, 5, rm, disp);
  ia32_Write8((char)imm);
}

void IA32OpWriter::ia32_negi(int mod, int rm) {
  ia32_WriteOpcode(0xF7);
  WritePlainOperand(mod, 3, rm);
}

void IA32OpWriter::ia32_idiv(int mod, int rm) {
  ia32_WriteOpcode(0xF7);
  WritePlainOperand(mod, 7, rm);
}

void IA32OpWriter::ia32_call(int mod, int rm) {
  ia32_WriteOpcode(0xFF);
  WritePlainOperand(mod, 2, rm);
}

void IA32OpWriter::ia32_push(int mod, int rm, int disp) {
  ia32_WriteOpcode(0xFF);
  WriteDispOperand(mod, 6, rm, disp);
}

void IA32OpWriter::ia32_sete(int mod, int rm) {
  ia32_WriteOpcode(0x0F, 0x94);
  WritePlainOperand(mod, 0, rm);
}

void IA32OpWriter::ia32_setne(int mod, int rm) {
  ia32_WriteOpcode(0x0F, 0x95);
  WritePlainOperand(mod, 0, rm);
}

void IA32OpWriter::ia32_setl(int mod, int rm) {
  ia32_WriteOpcode(0x0F, 0x9C);
  WritePlainOperand(mod, 0, rm);
}

void IA32OpWriter::ia32_setle(int mod, int rm) {
  ia32_WriteOpcode(0x0F, 0x9E);
  WritePlainOperand(mod, 0, rm);
}

void IA32OpWriter::ia32_setg(int mod, int rm) {
  ia32_WriteOpcode(0x0F, 0x9F);
  WritePlainOperand(mod, 0, rm);
}

void IA32OpWriter::ia32_setge(int mod, int rm) {
  ia32_WriteOpcode(0x0F, 0x9D);
  WritePlainOperand(mod, 0, rm);
}

// ---------------------------------------------------------------------------
// No operands, or one in the opcode or behind it

void IA32OpWriter::ia32_cdq() { ia32_WriteOpcode(0x99); }
void IA32OpWriter::ia32_nop() { ia32_WriteOpcode(0x90); }
void IA32OpWriter::ia32_ret_near() { ia32_WriteOpcode(0xC3); }
void IA32OpWriter::ia32_push(int reg) { ia32_WriteRegisterOpcode(0x50, reg); }
void IA32OpWriter::ia32_pop(int reg) { ia32_WriteRegisterOpcode(0x58, reg); }

void IA32OpWriter::ia32_push_imm32(int imm) {
  ia32_WriteOpcode(0x68);
  ia32_Write32(imm);
}

void IA32OpWriter::ia32_push_imm8_se(int imm) {
  KV_ASSERT(imm >= -128 && imm <= 127);
  ia32_WriteOpcode(0x6A);
  ia32_Write8((char)imm);
}

void IA32OpWriter::ia32_call_disp32(int rel) {
  ia32_WriteOpcode(0xE8);
  ia32_Write32(rel);
}

void IA32OpWriter::ia32_jmp(int rel) {
  ia32_WriteOpcode(0xE9);
  ia32_Write32(rel);
}

void IA32OpWriter::ia32_je(int rel) {
  ia32_WriteOpcode(0x0F, 0x84);
  ia32_Write32(rel);
}

void IA32OpWriter::ia32_jne(int rel) {
  ia32_WriteOpcode(0x0F, 0x85);
  ia32_Write32(rel);
}

void IA32OpWriter::ia32_jl(int rel) {
  ia32_WriteOpcode(0x0F, 0x8C);
  ia32_Write32(rel);
}

void IA32OpWriter::ia32_jle(int rel) {
  ia32_WriteOpcode(0x0F, 0x8E);
  ia32_Write32(rel);
}

void IA32OpWriter::ia32_jg(int rel) {
  ia32_WriteOpcode(0x0F, 0x8F);
  ia32_Write32(rel);
}

void IA32OpWriter::ia32_jge(int rel) {
  ia32_WriteOpcode(0x0F, 0x8D);
  ia32_Write32(rel);
}

void IA32OpWriter::ia32_jae(int rel) {
  ia32_WriteOpcode(0x0F, 0x83);
  ia32_Write32(rel);
}

// ---------------------------------------------------------------------------
// Float unit

void IA32OpWriter::ia32_faddp() { ia32_WriteOpcode(0xDE, 0xC1); }
void IA32OpWriter::ia32_fsubp() { ia32_WriteOpcode(0xDE, 0xE9); }
void IA32OpWriter::ia32_fmulp() { ia32_WriteOpcode(0xDE, 0xC9); }
void IA32OpWriter::ia32_fdivp() { ia32_WriteOpcode(0xDE, 0xF9); }
void IA32OpWriter::ia32_fchs() { ia32_WriteOpcode(0xD9, 0xE0); }
void IA32OpWriter::ia32_fcompp() { ia32_WriteOpcode(0xDE, 0xD9); }
void IA32OpWriter::ia32_fnstsw() { ia32_WriteOpcode(0xDF, 0xE0); }

void IA32OpWriter::ia32_fild(int mod, int rm) {
  ia32_WriteOpcode(0xDB);
  WriteFloatOperand(mod, 0, rm);
}

void IA32OpWriter::ia32_fistp(int mod, int rm) {
  ia32_WriteOpcode(0xDB);
  WriteFloatOperand(mod, 3, rm);
}

void IA32OpWriter::ia32_fld32(int mod, int rm) {
  ia32_WriteOpcode(0xD9);
  WriteFloatOperand(mod, 0, rm);
}

void IA32OpWriter::ia32_fstp32(int mod, int rm) {
  ia32_WriteOpcode(0xD9);
  WriteFloatOperand(mod, 3, rm);
}

void IA32OpWriter::ia32_fld64(int mod, int rm) {
  ia32_WriteOpcode(0xDD);
  WriteFloatOperand(mod, 0, rm);
}

void IA32OpWriter::ia32_fstp64(int mod, int rm) {
  ia32_WriteOpcode(0xDD);
  WriteFloatOperand(mod, 3, rm);
}

void IA32OpWriter::ia32_fldcw(int mod, int rm) {
  ia32_WriteOpcode(0xD9);
  WriteFloatOperand(mod, 5, rm);
}

void IA32OpWriter::ia32_fnstcw(int mod, int rm) {
  ia32_WriteOpcode(0xD9);
  WriteFloatOperand(mod, 7, rm);
}

void IA32OpWriter::ia32_fld32(int mod, int rm, int disp) {
  ia32_WriteOpcode(0xD9);
  WriteDispOperand(mod, 0, rm, disp);
}

void IA32OpWriter::ia32_fstp32(int mod, int rm, int disp) {
  ia32_WriteOpcode(0xD9);
  WriteDispOperand(mod, 3, rm, disp);
}

void IA32OpWriter::ia32_fld64(int mod, int rm, int disp) {
  ia32_WriteOpcode(0xDD);
  WriteDispOperand(mod, 0, rm, disp);
}

void IA32OpWriter::ia32_fstp64(int mod, int rm, int disp) {
  ia32_WriteOpcode(0xDD);
  WriteDispOperand(mod, 3, rm, disp);
}
