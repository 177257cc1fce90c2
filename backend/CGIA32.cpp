#include "backend/CGIA32.h"

#include <cctype>
#include <cstring>
#include <utility>

#include "foundation/KvAssert.h"
#include "runtime/RuntimeExceptionFoundation.h"
#include "runtime/RuntimeObjectFoundation.h"

// Condition bits of the float unit's status word, as fnstsw leaves them in ax.
constexpr int kFpuC0 = 0x0100;  // st0 below the other operand
constexpr int kFpuC2 = 0x0400;  // unordered
constexpr int kFpuC3 = 0x4000;  // equal
// Rounding control of the float unit's control word; both bits: truncate.
constexpr int kFpuRoundTowardZero = 0x0C00;
// The operand-size prefix that turns a 32-bit move into a 16-bit one.
constexpr int kOperandSizePrefix = 0x66;
// Frame offset of the first argument: above the saved ebp and the return address.
constexpr int kFirstArgumentOffset = 8;
// The i386 System V ABI has esp on a 16-byte boundary at every call, so a
// callee is entered 4 bytes below one. The C library and the sanitizers
// count on it, and generated functions are called the same way.
constexpr int kStackAlignment = 16;
// What a call and the prolog's push ebp put below the caller's boundary.
constexpr int kFrameLinkBytes = 8;
static_assert(kFrameLinkBytes == kFirstArgumentOffset);

CGIA32::CGIA32()
    : baseRef(nullptr),
      baseOffset(0),
      clockValue(0),
      hasRetval(false),
      retvalIsFloat(false),
      mentionsCounted(false),
      fusedBranch(nullptr) {}

CGIA32::~CGIA32() = default;

void CGIA32::Configure(CGIA32Options opts, SimpleVector<string> intrinsics) {
  options = opts;
  intrinsicNames = intrinsics;
}

// ---------------------------------------------------------------------------
// Byte sinks

void CGIA32::ia32_Write8(char byte) {
  KV_ASSERT(currentFunction);
  if (currentFunction) currentFunction->Append8((unsigned char)byte);
}

void CGIA32::ia32_Write16(int value) {
  KV_ASSERT(currentFunction);
  if (currentFunction) currentFunction->Append16((uint16_t)value);
}

void CGIA32::ia32_Write32(int value) {
  KV_ASSERT(currentFunction);
  if (currentFunction) currentFunction->Append32((uint32_t)value);
}

int CGIA32::CodeBufferLength() { return currentFunction ? (int)currentFunction->Length() : 0; }

// The line that opens a function belongs to none: its prolog is written
// last and put in front, and the index is moved along with the body then.
// The function's first line is where its operands are counted for fusion.
void CGIA32::CompileLineBefore(TacLine const& line) {
  if (OpensFunction(line)) return;
  if (lineIndex) lineIndex->AddEntry(CodeBufferLength(), (int)line.line);
  if (currentFunction) currentFunction->MarkRaiseLine((int32_t)line.line);
  if (!mentionsCounted && currentFunction) CountMentions(&line);
}

// ---------------------------------------------------------------------------
// Functions

void CGIA32::BeginFunction(string name) {
  NewFunction(name, false);
  labels.deleteAll();
  pendingJumps.deleteAll();
  funcParams.deleteAll();
  callParams.deleteAll();
  localTable = Ref<SymbolTable>();
  baseRef = nilTacAddr;
  baseOffset = 0;
  hasRetval = false;
  retvalIsFloat = false;
  mentions.clear();
  mentionsCounted = false;
  fusedBranch = nullptr;
  ResetRegisters();
}

void CGIA32::EndFunction() {
  FinishFunction();
  localTable = Ref<SymbolTable>();
  if (pendingJumps.size() > 0) Error(UndefinedLabel);
}

int CGIA32::ModDisp(int displacement) {
  return displacement >= -128 && displacement <= 127 ? kModDisp8 : kModDisp32;
}

int CGIA32::StoredESPOffset() const { return (localTable ? localTable->GetTotalStorage() : 0) + 4; }

int32_t CGIA32::FrameSize() const {
  if (!hasRetval) return StoredESPOffset();
  return StoredESPOffset() + (retvalIsFloat ? 8 : 4);
}

int CGIA32::SavedRegisterCount() const {
  return (int)registers[kEBX].used + (int)registers[kESI].used + (int)registers[kEDI].used;
}

// Entered 4 bytes below a boundary, with ebp pushed 8 below: the frame is
// padded so that the saved registers end on the boundary again, and the body
// can call with nothing but its argument blocks to pad.
int32_t CGIA32::FrameReserve() const {
  int below = kFrameLinkBytes + FrameSize() + 4 * SavedRegisterCount();
  return FrameSize() + (-below & (kStackAlignment - 1));
}

int CGIA32::LocalDisplacement(TacAddr const* addr) {
  return -(int)(addr->StorageOffset() + addr->type.StorageSize());
}

string CGIA32::IntrinsicName(int number) const {
  KV_ASSERT(number >= 0 && (unsigned long)number < intrinsicNames.size());
  if (number < 0 || (unsigned long)number >= intrinsicNames.size()) return string();
  return intrinsicNames[(unsigned long)number];
}

// ---------------------------------------------------------------------------
// Register cache

int CGIA32::AllocateRegister(int scheme) {
  for (int r = 0; r < kRegisterCount; ++r) {
    if (RegMatchesScheme(r, scheme) && !registers[r].Valid()) {
      registers[r].used = true;
      return r;
    }
  }
  int oldest = -1;
  for (int r = 0; r < kRegisterCount; ++r) {
    if (RegMatchesScheme(r, scheme) && (oldest < 0 || registers[r].clock < registers[oldest].clock))
      oldest = r;
  }
  KV_ASSERT(oldest >= 0);
  if (oldest < 0) oldest = kEAX;
  Touch(&registers[oldest]);
  return oldest;
}

void CGIA32::Touch(RegisterState* state) {
  state->Clear();
  state->used = true;
}

void CGIA32::ResetRegisters() {
  for (RegisterState& state : registers) {
    state.Clear();
    state.used = false;
    state.clock = 0;
  }
}

void CGIA32::InvalidateRegisters() {
  for (RegisterState& state : registers) state.Clear();
}

// ---------------------------------------------------------------------------
// Operands

void CGIA32::LoadGlobal(TacAddr const* addr, int extra) {
  string name = addr->LinkName();
  MarkImport(Import::kDataIA32, name, extra);
  unsigned int size = (unsigned int)addr->type.StorageSize();
  unsigned int present = 0;
  if (module->globalSizes.GetEntry(name, present) && present >= size) return;
  module->globalSizes.AddEntry(name, size);
}

int CGIA32::LoadBase(int scheme) { return LoadTacAddr(baseRef, scheme); }

int CGIA32::LoadTacAddr(TacAddr const* addr, int scheme) {
  int noted = -1;
  for (int r = 0; r < kRegisterCount; ++r) {
    if (!registers[r].Contains(addr)) continue;
    noted = r;
    if (RegMatchesScheme(r, scheme)) {
      registers[r].clock = (int32_t)HitClock();
      return r;
    }
  }
  // Booleans are stored to object fields a byte at a time.
  if (addr->type.GetMainType() == kTypeBoolean && (scheme & kSchemeByte) != 0) scheme &= kSchemeByte;
  int r = AllocateRegister(scheme);

  if (noted >= 0) {
    ia32_mov(kModRegister, r, noted);
  } else if (addr->IsConstant()) {
    IRValue const& value = addr->GetValue();
    if (addr->type.GetMainType() == kTypeString) {
      // The empty literal is the nil string and needs no record.
      if (value.text.Length() > 0) MarkImport(Import::kStringIA32, value.text, 1);
      ia32_mov_imm32(r, 0);
    } else if (value.sint32 != 0) {
      ia32_mov_imm32(r, value.sint32);
    } else {
      ia32_xor(kModRegister, r, r);
    }
  } else if (addr->GetStorageClass() == LocalStorage) {
    int d = LocalDisplacement(addr);
    ia32_mov(ModDisp(d), r, kEBP, d);
  } else if (addr->GetStorageClass() == StaticStorage) {
    LoadGlobal(addr, 2);
    ia32_mov(kModNoDisp, r, kRMAbsolute, 0);
  } else {
    int rest = SchemeExclude(r, scheme);
    int base;
    if (rest != 0) {
      base = LoadBase(rest);
    } else {
      base = LoadBase(scheme);
      registers[r].Clear();
    }
    int d = FieldDisplacement(addr);
    ia32_mov(ModDisp(d), r, base, d);
  }
  registers[r].Record(addr);
  return r;
}

void CGIA32::StoreTacAddr(int reg, TacAddr const* addr) {
  KV_ASSERT(!addr->IsConstant());
  if (addr->IsConstant()) return;
  // A register that held the old value may also hold others that shared it;
  // which of them are still equal is not known, so all go.
  for (RegisterState& state : registers) {
    if (state.Contains(addr)) state.Clear();
  }
  registers[reg].Record(addr);

  if (addr->GetStorageClass() == LocalStorage) {
    int d = LocalDisplacement(addr);
    ia32_mov_backwards(ModDisp(d), reg, kEBP, d);
  } else if (addr->GetStorageClass() == StaticStorage) {
    LoadGlobal(addr, 2);
    ia32_mov_backwards(kModNoDisp, reg, kRMAbsolute, 0);
  } else if (addr->type.GetMainType() == kTypeBoolean) {
    // One byte of the slot: new objects come zeroed, so the rest stays 0.
    int value = reg;
    if (!RegMatchesScheme(reg, kSchemeByte)) {
      value = AllocateRegister(SchemeExclude(reg, kSchemeByte));
      ia32_mov(kModRegister, value, reg);
    }
    int base = LoadBase(SchemeExclude(value, SchemeExclude(reg, kSchemeGeneral)));
    int d = FieldDisplacement(addr);
    ia32_mov8_backwards(ModDisp(d), value, base, d);
  } else {
    int base = LoadBase(SchemeExclude(reg, kSchemeGeneral));
    int d = FieldDisplacement(addr);
    ia32_mov_backwards(ModDisp(d), reg, base, d);
  }
}

void CGIA32::PushTacAddr(TacAddr const* addr) {
  for (int r = 0; r < kRegisterCount; ++r) {
    if (registers[r].Contains(addr)) {
      registers[r].clock = (int32_t)HitClock();
      ia32_push(r);
      return;
    }
  }
  if (addr->IsConstant()) {
    IRValue const& value = addr->GetValue();
    if (addr->type.GetMainType() == kTypeString) {
      if (value.text.Length() > 0) MarkImport(Import::kStringIA32, value.text, 1);
      ia32_push_imm32(0);
    } else if (value.sint32 >= -128 && value.sint32 <= 127) {
      ia32_push_imm8_se(value.sint32);
    } else {
      ia32_push_imm32(value.sint32);
    }
  } else if (addr->GetStorageClass() == LocalStorage) {
    int d = LocalDisplacement(addr);
    ia32_push(ModDisp(d), kEBP, d);
  } else if (addr->GetStorageClass() == ObjectStorage) {
    int base = LoadBase(kSchemeGeneral);
    int d = FieldDisplacement(addr);
    ia32_push(ModDisp(d), base, d);
  } else {
    LoadGlobal(addr, 2);
    ia32_push(kModNoDisp, kRMAbsolute, 0);
  }
}

bool CGIA32::ImmediateValue(TacAddr const* addr, int* value) {
  if (!addr->IsConstant() || addr->type.GetMainType() == kTypeString || addr->type.IsFloat()) return false;
  *value = addr->GetValue().sint32;
  return true;
}

void CGIA32::ImmediateOperation(void (IA32OpWriter::*byteForm)(int, int, int),
                                void (IA32OpWriter::*wordForm)(int, int, int), int reg, int imm) {
  if (imm >= -128 && imm <= 127) (this->*byteForm)(kModRegister, reg, imm);
  else (this->*wordForm)(kModRegister, reg, imm);
}

// The registers that held the old value let it go, as in StoreTacAddr; none
// takes the new one, which a later read loads from memory.
bool CGIA32::StoreImmediate(int value, TacAddr const* addr) {
  KV_ASSERT(!addr->IsConstant());
  if (addr->IsConstant()) return false;
  bool field = addr->GetStorageClass() != LocalStorage && addr->GetStorageClass() != StaticStorage;
  if (field && addr->type.GetMainType() == kTypeBoolean) return false;
  for (RegisterState& state : registers) {
    if (state.Contains(addr)) state.Clear();
  }
  if (addr->GetStorageClass() == LocalStorage) {
    int d = LocalDisplacement(addr);
    ia32_mov_imm32(ModDisp(d), kEBP, d, value);
  } else if (addr->GetStorageClass() == StaticStorage) {
    LoadGlobal(addr, 2);
    ia32_mov_imm32(kModNoDisp, kRMAbsolute, 0, value);
  } else {
    int base = LoadBase(kSchemeGeneral);
    int d = FieldDisplacement(addr);
    ia32_mov_imm32(ModDisp(d), base, d, value);
  }
  return true;
}

// A constant goes through the stack, since the float unit loads only from
// memory. An Integer constant in a float position is taken as its value.
static void SplitFloatConstant(TacAddr const* addr, bool single, uint32_t* low, uint32_t* high) {
  IRValue const& value = addr->GetValue();
  if (single) {
    float f = addr->type.IsFloat() ? value.real32 : (float)value.sint32;
    memcpy(low, &f, sizeof f);
    *high = 0;
    return;
  }
  double d = addr->type.IsFloat() ? value.real64 : (double)value.sint32;
  uint64_t bits;
  memcpy(&bits, &d, sizeof d);
  *low = (uint32_t)bits;
  *high = (uint32_t)(bits >> 32);
}

void CGIA32::PushFloatTacAddr(TacAddr const* addr) {
  bool single = addr->type.GetMainType() == kTypeSingle;
  if (addr->IsConstant()) {
    uint32_t low, high;
    SplitFloatConstant(addr, single, &low, &high);
    if (single) {
      ia32_push_imm32((int)low);
      ia32_fld32(kModNoDisp, kRMNeedsSIB);
      ia32_add_imm32(kModRegister, kESP, 4);
    } else {
      ia32_push_imm32((int)high);
      ia32_push_imm32((int)low);
      ia32_fld64(kModNoDisp, kRMNeedsSIB);
      ia32_add_imm32(kModRegister, kESP, 8);
    }
    return;
  }
  FloatLoad(VariableOperand(addr), !single);
}

void CGIA32::PopFloatTacAddr(TacAddr const* addr) {
  KV_ASSERT(!addr->IsConstant());
  bool single = addr->type.GetMainType() == kTypeSingle;
  if (addr->IsConstant()) {
    // Nowhere to go: popped into scratch so the float stack stays empty.
    ia32_sub_imm32(kModRegister, kESP, 8);
    ia32_fstp64(kModNoDisp, kRMNeedsSIB);
    ia32_add_imm32(kModRegister, kESP, 8);
    return;
  }
  FloatStore(VariableOperand(addr), !single);
}

MemoryOperand CGIA32::VariableOperand(TacAddr const* addr) {
  if (addr->GetStorageClass() == LocalStorage) {
    int d = LocalDisplacement(addr);
    return MemoryOperand{ModDisp(d), kEBP, d};
  }
  if (addr->GetStorageClass() == StaticStorage) {
    LoadGlobal(addr, 1);
    int r = AllocateRegister(kSchemeGeneral);
    ia32_mov_imm32(r, 0);
    return MemoryOperand{kModNoDisp, r, 0};
  }
  int d = FieldDisplacement(addr);
  return MemoryOperand{ModDisp(d), LoadBase(kSchemeGeneral), d};
}

MemoryOperand CGIA32::PointerOperand(TacAddr const* pointer, TacAddr const* offset) {
  int p = LoadTacAddr(pointer, kSchemeGeneral);
  if (offset != nilTacAddr && offset->IsConstant()) {
    int disp = offset->GetValue().sint32;
    return MemoryOperand{ModDisp(disp), p, disp};
  }
  if (offset != nilTacAddr) {
    int index = LoadTacAddr(offset, SchemeExclude(p, kSchemeGeneral));
    Touch(&registers[p]);
    ia32_add(kModRegister, p, index);
  }
  return MemoryOperand{kModNoDisp, p, 0};
}

void CGIA32::FloatLoad(MemoryOperand const& m, bool wide) {
  if (m.mod == kModNoDisp && wide) ia32_fld64(kModNoDisp, m.base);
  else if (m.mod == kModNoDisp) ia32_fld32(kModNoDisp, m.base);
  else if (wide) ia32_fld64(m.mod, m.base, m.disp);
  else ia32_fld32(m.mod, m.base, m.disp);
}

void CGIA32::FloatStore(MemoryOperand const& m, bool wide) {
  if (m.mod == kModNoDisp && wide) ia32_fstp64(kModNoDisp, m.base);
  else if (m.mod == kModNoDisp) ia32_fstp32(kModNoDisp, m.base);
  else if (wide) ia32_fstp64(m.mod, m.base, m.disp);
  else ia32_fstp32(m.mod, m.base, m.disp);
}

// ---------------------------------------------------------------------------
// Labels, jumps and calls

int CGIA32::FindLabel(int label, int extra) {
  int field = CodeBufferLength() + extra;
  // Backward jumps mostly close inner loops, whose labels were placed last.
  for (unsigned long i = labels.size(); i-- > 0;) {
    if (labels[i].label == label) return labels[i].position - field - 4;
  }
  pendingJumps.push_back(LabelPosition{label, field});
  return 0;
}

int CGIA32::LocalJump(void (IA32OpWriter::*writer)(int)) {
  (this->*writer)(0);
  return CodeBufferLength() - 4;
}

void CGIA32::PatchLocalJump(int field) {
  currentFunction->Set32((unsigned)field, (unsigned long)(uint32_t)(CodeBufferLength() - (field + 4)));
}

int CGIA32::AlignArgumentBlock(int argumentBytes) {
  int pad = -argumentBytes & (kStackAlignment - 1);
  if (pad) ImmediateOperation(&IA32OpWriter::ia32_sub_imm8_se, &IA32OpWriter::ia32_sub_imm32, kESP, pad);
  return argumentBytes + pad;
}

// Doubles go as 8 bytes; everything else, Singles too, as one word.
static int PushedSize(TacAddr const* param) {
  return param->type.GetMainType() == kTypeDouble ? 8 : 4;
}

void CGIA32::PushCallParameters() {
  int bytes = 0;
  for (unsigned long i = 0; i < callParams.size(); ++i) bytes += PushedSize(callParams[i]);
  AlignArgumentBlock(bytes);
  for (unsigned long i = callParams.size(); i-- > 0;) {
    TacAddr const* param = callParams[i];
    if (!param->type.IsFloat()) {
      PushTacAddr(param);
    } else if (param->type.GetMainType() == kTypeSingle) {
      PushFloatTacAddr(param);
      ia32_sub_imm32(kModRegister, kESP, 4);
      ia32_fstp32(kModNoDisp, kRMNeedsSIB);
    } else {
      PushFloatTacAddr(param);
      ia32_sub_imm32(kModRegister, kESP, 8);
      ia32_fstp64(kModNoDisp, kRMNeedsSIB);
    }
  }
}

void CGIA32::ClearCallParameters() {
  callParams.count = 0;
  int s = -StoredESPOffset();
  ia32_mov(ModDisp(s), kESP, kEBP, s);
}

void CGIA32::GetReturnedResult(TacAddr const* addr) {
  if (addr == nilTacAddr) return;
  if (addr->type.IsFloat()) {
    PopFloatTacAddr(addr);
    return;
  }
  // Only the low byte of a returned Boolean is defined.
  if (addr->type.GetMainType() == kTypeBoolean) ia32_and_imm8_se(kModRegister, kEAX, 1);
  StoreTacAddr(kEAX, addr);
}

void CGIA32::CallSequenceStart() { PushCallParameters(); }

void CGIA32::CallSequenceEnd(TacAddr const* result) {
  ClearCallParameters();
  InvalidateRegisters();
  GetReturnedResult(result);
}

void CGIA32::CallRuntime(int intrinsic, int blockBytes) {
  MarkImport(Import::kCallIA32, IntrinsicName(intrinsic), 1);
  ia32_call_disp32(0);
  ImmediateOperation(&IA32OpWriter::ia32_add_imm8_se, &IA32OpWriter::ia32_add_imm32, kESP, blockBytes);
  InvalidateRegisters();
}

// ---------------------------------------------------------------------------
// Prolog and epilog

void CGIA32::WriteProlog(int reserve) {
  ia32_push(kEBP);
  ia32_mov(kModRegister, kEBP, kESP);
  ia32_sub_imm32(kModRegister, kESP, reserve);
  if (registers[kEBX].used) ia32_push(kEBX);
  if (registers[kESI].used) ia32_push(kESI);
  if (registers[kEDI].used) ia32_push(kEDI);
  // Handlers' resume points reload esp from the same place.
  ia32_mov_backwards(kModDisp32, kESP, kEBP, -StoredESPOffset());
}

void CGIA32::CopyParameters() {
  int offset = kFirstArgumentOffset;
  for (unsigned long i = funcParams.size(); i-- > 0;) {
    TacAddr const* param = funcParams[i];
    KV_ASSERT(param->GetStorageClass() == LocalStorage);
    ia32_mov(kModRegister, kEAX, kEBP);
    if (param->type.IsFloat()) {
      if (param->type.GetMainType() == kTypeSingle) ia32_fld32(ModDisp(offset), kEAX, offset);
      else ia32_fld64(ModDisp(offset), kEAX, offset);
      PopFloatTacAddr(param);
    } else {
      ia32_mov(ModDisp(offset), kEAX, kEAX, offset);
      StoreTacAddr(kEAX, param);
    }
    offset += param->type.StorageSize();
  }
  funcParams.deleteAll();
}

void CGIA32::WriteEpilog(int reserve) {
  int result = -FrameSize();
  if (hasRetval) {
    if (retvalIsFloat) ia32_fld64(ModDisp(result), kEBP, result);
    else ia32_mov(ModDisp(result), kEAX, kEBP, result);
  }
  if (registers[kEDI].used) ia32_pop(kEDI);
  if (registers[kESI].used) ia32_pop(kESI);
  if (registers[kEBX].used) ia32_pop(kEBX);
  ia32_add_imm32(kModRegister, kESP, reserve);
  ia32_pop(kEBP);
  ia32_ret_near();
}

void CGIA32::tac_Return(TacLine const&) {
  KV_ASSERT(currentFunction);
  if (!currentFunction) return;
  Ref<FunctionBlock> body = currentFunction;
  currentFunction.BindNewObject(new FunctionBlock(false));
  currentFunction->name = body->name;
  int reserve = FrameReserve();
  WriteProlog(reserve);
  CopyParameters();
  AdjustImportListOffsets(CodeBufferLength());
  AdjustLineIndexOffsets(CodeBufferLength());
  currentFunction->Append(body);
  body = Ref<FunctionBlock>();
  MakeImportListPermanent(currentFunction);
  WriteEpilog(reserve);
  EndFunction();
}

void CGIA32::tac_Stop(TacLine const& line) { tac_Return(line); }

void CGIA32::tac_PutRetval(TacLine const& line) {
  hasRetval = true;
  int s = StoredESPOffset();
  if (line.a->type.IsFloat()) {
    retvalIsFloat = true;
    PushFloatTacAddr(line.a);
    ia32_fstp64(ModDisp(-(s + 8)), kEBP, -(s + 8));
  } else {
    retvalIsFloat = false;
    int r = LoadTacAddr(line.a, kSchemeGeneral);
    ia32_mov_backwards(ModDisp(-(s + 4)), r, kEBP, -(s + 4));
  }
}

// ---------------------------------------------------------------------------
// Moves and memory

void CGIA32::tac_Noop(TacLine const&) { ia32_nop(); }

void CGIA32::tac_Debugout(TacLine const&) {}

void CGIA32::tac_Store(TacLine const& line) {
  if (line.a->type.IsFloat()) {
    PushFloatTacAddr(line.a);
    PopFloatTacAddr(line.c);
  } else if (line.c->type.IsFloat() && !line.a->IsConstant()) {
    // An integer into a float variable converts on the way, as tac_ItoD does.
    int r = LoadTacAddr(line.a, kSchemeGeneral);
    ia32_push(r);
    ia32_fild(kModNoDisp, kRMNeedsSIB);
    ia32_pop(r);
    PopFloatTacAddr(line.c);
  } else if (line.c->type.IsFloat()) {
    PushFloatTacAddr(line.a);
    PopFloatTacAddr(line.c);
  } else {
    int value;
    if (ImmediateValue(line.a, &value) && StoreImmediate(value, line.c)) return;
    StoreTacAddr(LoadTacAddr(line.a, kSchemeGeneral), line.c);
  }
}

void CGIA32::tac_Varptr(TacLine const& line) {
  TacAddr const* a = line.a;
  int r;
  if (a->GetStorageClass() == LocalStorage) {
    r = AllocateRegister(kSchemeGeneral);
    int d = LocalDisplacement(a);
    ia32_lea(ModDisp(d), r, kEBP, d);
  } else if (a->GetStorageClass() == StaticStorage) {
    LoadGlobal(a, 1);
    r = AllocateRegister(kSchemeGeneral);
    ia32_mov_imm32(r, 0);
  } else {
    r = LoadBase(kSchemeGeneral);
    Touch(&registers[r]);
    ia32_add_imm32(kModRegister, r, FieldDisplacement(a));
  }
  StoreTacAddr(r, line.c);
}

void CGIA32::Peek(TacLine const& line, bool byteLoad) {
  int p = LoadTacAddr(line.a, kSchemeGeneral);
  int d = AllocateRegister(SchemeExclude(p, byteLoad ? kSchemeByte : kSchemeGeneral));
  TacAddr const* b = line.b;
  int index = -1;
  if (b != nilTacAddr && !b->IsConstant())
    index = LoadTacAddr(b, SchemeExclude(d, SchemeExclude(p, kSchemeGeneral)));
  if (byteLoad) ia32_xor(kModRegister, d, d);

  if (b == nilTacAddr) {
    if (byteLoad) ia32_mov8(kModNoDisp, d, p);
    else ia32_mov(kModNoDisp, d, p);
  } else if (index < 0) {
    int disp = b->GetValue().sint32;
    if (byteLoad) ia32_mov8(ModDisp(disp), d, p, disp);
    else ia32_mov(ModDisp(disp), d, p, disp);
  } else {
    if (byteLoad) ia32_mov8(kModNoDisp, d, kRMNeedsSIB, 0, index, p);
    else ia32_mov(kModNoDisp, d, kRMNeedsSIB, 0, index, p);
  }
  StoreTacAddr(d, line.c);
}

void CGIA32::PeekFloat(TacLine const& line, bool wide) {
  FloatLoad(PointerOperand(line.a, line.b), wide);
  PopFloatTacAddr(line.c);
}

void CGIA32::Poke(TacLine const& line, bool byteStore) {
  int v = LoadTacAddr(line.a, byteStore ? kSchemeByte : kSchemeGeneral);
  int p = LoadTacAddr(line.c, SchemeExclude(v, kSchemeGeneral));
  TacAddr const* b = line.b;
  if (b == nilTacAddr) {
    if (byteStore) ia32_mov8_backwards(kModNoDisp, v, p);
    else ia32_mov_backwards(kModNoDisp, v, p);
  } else if (b->IsConstant()) {
    int disp = b->GetValue().sint32;
    if (byteStore) ia32_mov8_backwards(ModDisp(disp), v, p, disp);
    else ia32_mov_backwards(ModDisp(disp), v, p, disp);
  } else {
    int index = LoadTacAddr(b, SchemeExclude(p, SchemeExclude(v, kSchemeGeneral)));
    if (byteStore) ia32_mov8_backwards(kModNoDisp, v, kRMNeedsSIB, 0, index, p);
    else ia32_mov_backwards(kModNoDisp, v, kRMNeedsSIB, 0, index, p);
  }
}

void CGIA32::PokeFloat(TacLine const& line, bool wide) {
  PushFloatTacAddr(line.a);
  FloatStore(PointerOperand(line.c, line.b), wide);
}

void CGIA32::tac_PeekI(TacLine const& line) { Peek(line, false); }
void CGIA32::tac_PeekB(TacLine const& line) { Peek(line, true); }
void CGIA32::tac_PeekF(TacLine const& line) { PeekFloat(line, false); }
void CGIA32::tac_PeekD(TacLine const& line) { PeekFloat(line, true); }
void CGIA32::tac_PeekS(TacLine const& line) { Peek(line, false); }
void CGIA32::tac_PeekO(TacLine const& line) { Peek(line, false); }
void CGIA32::tac_PokeI(TacLine const& line) { Poke(line, false); }
void CGIA32::tac_PokeB(TacLine const& line) { Poke(line, true); }
void CGIA32::tac_PokeF(TacLine const& line) { PokeFloat(line, false); }
void CGIA32::tac_PokeD(TacLine const& line) { PokeFloat(line, true); }
void CGIA32::tac_PokeS(TacLine const& line) { Poke(line, false); }
void CGIA32::tac_PokeO(TacLine const& line) { Poke(line, false); }

// ---------------------------------------------------------------------------
// Arithmetic

void CGIA32::BinaryFloats(TacAddr const* first, TacAddr const* second) {
  PushFloatTacAddr(first);
  PushFloatTacAddr(second);
}

void CGIA32::IntegerArithmetic(TacLine const& line, void (IA32OpWriter::*op)(int, int, int),
                               void (IA32OpWriter::*byteForm)(int, int, int),
                               void (IA32OpWriter::*wordForm)(int, int, int), bool commutative) {
  TacAddr const* a = line.a;
  TacAddr const* b = line.b;
  if (commutative && a->IsConstant() && !b->IsConstant()) std::swap(a, b);
  int imm;
  if (byteForm && ImmediateValue(b, &imm)) {
    int x = LoadTacAddr(a, kSchemeGeneral);
    Touch(&registers[x]);
    ImmediateOperation(byteForm, wordForm, x, imm);
    StoreTacAddr(x, line.c);
    return;
  }
  int x = LoadTacAddr(a, kSchemeGeneral);
  int y = LoadTacAddr(b, SchemeExclude(x, kSchemeGeneral));
  Touch(&registers[x]);
  (this->*op)(kModRegister, x, y);
  StoreTacAddr(x, line.c);
}

void CGIA32::FloatArithmetic(TacLine const& line, void (IA32OpWriter::*op)()) {
  BinaryFloats(line.a, line.b);
  (this->*op)();
  PopFloatTacAddr(line.c);
}

void CGIA32::tac_AddI(TacLine const& line) {
  IntegerArithmetic(line, &IA32OpWriter::ia32_add, &IA32OpWriter::ia32_add_imm8_se, &IA32OpWriter::ia32_add_imm32,
                    true);
}
void CGIA32::tac_SubI(TacLine const& line) {
  IntegerArithmetic(line, &IA32OpWriter::ia32_sub, &IA32OpWriter::ia32_sub_imm8_se, &IA32OpWriter::ia32_sub_imm32);
}
void CGIA32::tac_MulI(TacLine const& line) { IntegerArithmetic(line, &IA32OpWriter::ia32_imul); }
void CGIA32::tac_AddD(TacLine const& line) { FloatArithmetic(line, &IA32OpWriter::ia32_faddp); }
void CGIA32::tac_SubD(TacLine const& line) { FloatArithmetic(line, &IA32OpWriter::ia32_fsubp); }
void CGIA32::tac_MulD(TacLine const& line) { FloatArithmetic(line, &IA32OpWriter::ia32_fmulp); }
void CGIA32::tac_DivD(TacLine const& line) { FloatArithmetic(line, &IA32OpWriter::ia32_fdivp); }

// idiv traps on a zero divisor and on the smallest integer divided by -1, so
// both are taken aside: by zero the quotient is 0 and the remainder the
// dividend; by -1 the quotient is the wrapped negation and the remainder 0.
void CGIA32::DivideEAX(TacLine const& line, bool remainder) {
  LoadTacAddr(line.a, kSchemeEAX);
  int y = LoadTacAddr(line.b, SchemeExclude(kEDX, SchemeExclude(kEAX, kSchemeGeneral)));
  Touch(&registers[kEAX]);
  Touch(&registers[kEDX]);
  // A literal divisor other than 0 and -1 needs neither test.
  if (line.b->IsConstant() && line.b->GetValue().sint32 != 0 && line.b->GetValue().sint32 != -1) {
    ia32_cdq();
    ia32_idiv(kModRegister, y);
    StoreTacAddr(remainder ? kEDX : kEAX, line.c);
    return;
  }

  ia32_cmp_imm8_se(kModRegister, y, 0);
  int byZero = LocalJump(&IA32OpWriter::ia32_je);
  ia32_cmp_imm8_se(kModRegister, y, -1);
  int byMinusOne = LocalJump(&IA32OpWriter::ia32_je);
  ia32_cdq();
  ia32_idiv(kModRegister, y);
  int divided = LocalJump(&IA32OpWriter::ia32_jmp);

  PatchLocalJump(byMinusOne);
  if (remainder) ia32_xor(kModRegister, kEDX, kEDX);
  else ia32_negi(kModRegister, kEAX);
  int negated = LocalJump(&IA32OpWriter::ia32_jmp);

  PatchLocalJump(byZero);
  if (remainder) ia32_mov(kModRegister, kEDX, kEAX);
  else ia32_mov_imm32(kEAX, 0);

  PatchLocalJump(divided);
  PatchLocalJump(negated);
  StoreTacAddr(remainder ? kEDX : kEAX, line.c);
}

void CGIA32::tac_DivI(TacLine const& line) { DivideEAX(line, false); }
void CGIA32::tac_ModI(TacLine const& line) { DivideEAX(line, true); }

void CGIA32::tac_PowD(TacLine const& line) {
  callParams.push_back(line.a);
  callParams.push_back(line.b);
  CallSequenceStart();
  MarkImport(Import::kCallIA32, IntrinsicName(kIntrinsicRuntimePow), 1);
  ia32_call_disp32(0);
  CallSequenceEnd(line.c);
}

void CGIA32::tac_NegI(TacLine const& line) {
  int x = LoadTacAddr(line.a, kSchemeGeneral);
  Touch(&registers[x]);
  ia32_negi(kModRegister, x);
  StoreTacAddr(x, line.c);
}

void CGIA32::tac_NegD(TacLine const& line) {
  PushFloatTacAddr(line.a);
  ia32_fchs();
  PopFloatTacAddr(line.c);
}

// ---------------------------------------------------------------------------
// Comparisons and conversions

// The integer tests by the flags a cmp leaves, each with the jumps taken
// when it holds and when it fails, and the test that holds with the sides
// swapped.
namespace {

enum IntegerTestKind { kTestEQ, kTestNE, kTestLT, kTestLE, kTestGT, kTestGE, kIntegerTestCount };

struct IntegerTest {
  void (IA32OpWriter::*set)(int, int);
  void (IA32OpWriter::*jump)(int);
  void (IA32OpWriter::*jumpUnless)(int);
  IntegerTestKind mirrored;
};

const IntegerTest kIntegerTests[] = {
    {&IA32OpWriter::ia32_sete, &IA32OpWriter::ia32_je, &IA32OpWriter::ia32_jne, kTestEQ},
    {&IA32OpWriter::ia32_setne, &IA32OpWriter::ia32_jne, &IA32OpWriter::ia32_je, kTestNE},
    {&IA32OpWriter::ia32_setl, &IA32OpWriter::ia32_jl, &IA32OpWriter::ia32_jge, kTestGT},
    {&IA32OpWriter::ia32_setle, &IA32OpWriter::ia32_jle, &IA32OpWriter::ia32_jg, kTestGE},
    {&IA32OpWriter::ia32_setg, &IA32OpWriter::ia32_jg, &IA32OpWriter::ia32_jle, kTestLT},
    {&IA32OpWriter::ia32_setge, &IA32OpWriter::ia32_jge, &IA32OpWriter::ia32_jl, kTestLE},
};
static_assert(std::size(kIntegerTests) == kIntegerTestCount);

}  // namespace

int CGIA32::CompareInts(TacLine const& line, int* test, int* y) {
  TacAddr const* a = line.a;
  TacAddr const* b = line.b;
  if (a->IsConstant() && !b->IsConstant()) {
    std::swap(a, b);
    *test = kIntegerTests[*test].mirrored;
  }
  int x = LoadTacAddr(a, kSchemeGeneral);
  int imm;
  if (ImmediateValue(b, &imm)) {
    *y = -1;
    // test x, x leaves the flags of cmp x, 0 (OF and CF clear) in a byte less.
    if (imm == 0) ia32_test(kModRegister, x, x);
    else ImmediateOperation(&IA32OpWriter::ia32_cmp_imm8_se, &IA32OpWriter::ia32_cmp_imm32, x, imm);
    return x;
  }
  *y = LoadTacAddr(b, SchemeExclude(x, kSchemeGeneral));
  ia32_cmp(kModRegister, x, *y);
  return x;
}

static bool IsComparison(TacOpcode op) {
  switch (op) {
    case ::tac_EQI: case ::tac_NEI: case ::tac_LTI: case ::tac_LEI:
    case ::tac_EQD: case ::tac_NED: case ::tac_LTD: case ::tac_LED:
      return true;
    default:
      return false;
  }
}

// Two passes: the results of comparisons with a branch behind are collected
// first, so that the count looks up every operand but stores only those few.
void CGIA32::CountMentions(TacLine const* first) {
  mentions.clear();
  mentionsCounted = true;
  TacLine const* end = first;
  for (; end && (end == first || !OpensFunction(*end)); end = end->next) {
    TacLine const* next = end->next;
    if (IsComparison(end->opcode) && next && (next->opcode == ::tac_IfEQI || next->opcode == ::tac_IfNEI))
      mentions[end->c] = 0;
  }
  if (mentions.empty()) return;
  for (TacLine const* l = first; l != end; l = l->next) {
    for (TacAddr const* addr : {l->a, l->b, l->c}) {
      auto it = mentions.find(addr);
      if (it != mentions.end()) ++it->second;
    }
  }
}

// A temporary of the main program is static, its name the eight hex digits
// of a counter; no identifier starts with a digit, and every other static
// may be read by another function or the host.
static bool IsStaticTemporary(TacAddr const* addr) {
  if (addr->GetStorageClass() != StaticStorage) return false;
  char const* name = addr->LinkName().CString();
  char const* dot = strrchr(name, '.');
  if (dot) name = dot + 1;
  if (strlen(name) != 8 || !isdigit((unsigned char)name[0])) return false;
  for (int i = 0; i < 8; ++i) {
    if (!isdigit((unsigned char)name[i]) && !(name[i] >= 'A' && name[i] <= 'F')) return false;
  }
  return true;
}

// A local named by the comparison and the branch and by no other line of the
// function is dead once the branch is taken or not, whichever way control
// reached either line; so is a temporary of the main program. A field, any
// other static, or a variable whose address is taken is seen elsewhere, and
// a Boolean test against anything but 0 or 1 is left to the branch.
TacLine const* CGIA32::FusableBranch(TacLine const& line, bool* onTrue) const {
  TacAddr const* t = line.c;
  TacLine const* branch = line.next;
  if (!branch || !t || t->IsConstant()) return nullptr;
  if (t->GetStorageClass() != LocalStorage && !IsStaticTemporary(t)) return nullptr;
  if (branch->opcode != ::tac_IfEQI && branch->opcode != ::tac_IfNEI) return nullptr;
  if (branch->a != t && branch->b != t) return nullptr;
  int value;
  if (!ImmediateValue(branch->a == t ? branch->b : branch->a, &value) || (value != 0 && value != 1)) return nullptr;
  auto it = mentions.find(t);
  if (it == mentions.end() || it->second != 2) return nullptr;
  *onTrue = (branch->opcode == ::tac_IfEQI) == (value == 1);
  return branch;
}

bool CGIA32::FuseBranch(TacLine const& line, void (IA32OpWriter::*jump)(int),
                        void (IA32OpWriter::*jumpUnless)(int)) {
  bool onTrue = false;
  TacLine const* branch = FusableBranch(line, &onTrue);
  if (!branch) return false;
  (this->*(onTrue ? jump : jumpUnless))(FindLabel(branch->c->GetValue().sint32, 2));
  fusedBranch = branch;
  return true;
}

// The result register is only chosen after the compare: choosing writes no
// code, so the flags survive until the set.
void CGIA32::IntegerCompare(TacLine const& line, int test) {
  int y;
  int x = CompareInts(line, &test, &y);
  IntegerTest const& chosen = kIntegerTests[test];
  if (FuseBranch(line, chosen.jump, chosen.jumpUnless)) return;
  int scheme = SchemeExclude(x, kSchemeByte);
  if (y >= 0) scheme = SchemeExclude(y, scheme);
  int r = AllocateRegister(scheme);
  (this->*chosen.set)(kModRegister, r);
  ia32_and_imm8_se(kModRegister, r, 1);
  StoreTacAddr(r, line.c);
}

// fcompp has left the comparison of st0 with st1 in C0, C2 and C3; the
// masked status word equals `expected` when the test holds, or fails it
// when `negated`.
void CGIA32::FloatCompare(TacLine const& line, int mask, int expected, bool negated) {
  ia32_fcompp();
  ia32_fnstsw();
  Touch(&registers[kEAX]);
  ia32_and_imm32(kModRegister, kEAX, mask);
  ia32_cmp_imm32(kModRegister, kEAX, expected);
  IntegerTest const& chosen = kIntegerTests[negated ? kTestNE : kTestEQ];
  if (FuseBranch(line, chosen.jump, chosen.jumpUnless)) return;
  int r = AllocateRegister(kSchemeByte);
  (this->*chosen.set)(kModRegister, r);
  ia32_and_imm8_se(kModRegister, r, 1);
  StoreTacAddr(r, line.c);
}

void CGIA32::tac_EQI(TacLine const& line) { IntegerCompare(line, kTestEQ); }
void CGIA32::tac_NEI(TacLine const& line) { IntegerCompare(line, kTestNE); }
void CGIA32::tac_LTI(TacLine const& line) { IntegerCompare(line, kTestLT); }
void CGIA32::tac_LEI(TacLine const& line) { IntegerCompare(line, kTestLE); }

// Equal and ordered: C3 alone of C3 and C2.
void CGIA32::tac_EQD(TacLine const& line) {
  BinaryFloats(line.a, line.b);
  FloatCompare(line, kFpuC3 | kFpuC2, kFpuC3, false);
}

void CGIA32::tac_NED(TacLine const& line) {
  BinaryFloats(line.a, line.b);
  FloatCompare(line, kFpuC3 | kFpuC2, kFpuC3, true);
}

// With `a` in st0: a below b and ordered, C0 alone of C0 and C2.
void CGIA32::tac_LTD(TacLine const& line) {
  BinaryFloats(line.b, line.a);
  FloatCompare(line, kFpuC0 | kFpuC2, kFpuC0, false);
}

// With `b` in st0: not (b below a), so an unordered pair gives true.
void CGIA32::tac_LED(TacLine const& line) {
  BinaryFloats(line.a, line.b);
  FloatCompare(line, kFpuC0 | kFpuC2, kFpuC0, true);
}

void CGIA32::tac_ItoD(TacLine const& line) {
  int r = LoadTacAddr(line.a, kSchemeGeneral);
  ia32_push(r);
  ia32_fild(kModNoDisp, kRMNeedsSIB);
  ia32_pop(r);
  PopFloatTacAddr(line.c);
}

// Truncation through a passing change of the rounding mode; ecx keeps the
// old control word meanwhile, and a pushed word serves as scratch.
void CGIA32::tac_DtoI(TacLine const& line) {
  Touch(&registers[kECX]);
  Touch(&registers[kEAX]);
  ia32_push(kECX);
  ia32_fnstcw(kModNoDisp, kRMNeedsSIB);
  ia32_WriteOpcode(kOperandSizePrefix);
  ia32_mov(kModNoDisp, kECX, kRMNeedsSIB, 0, kSIBNoIndex, kESP);
  ia32_or_imm16(kModNoDisp, kRMNeedsSIB, 0, kSIBNoIndex, kESP, kFpuRoundTowardZero);
  ia32_fldcw(kModNoDisp, kRMNeedsSIB);

  PushFloatTacAddr(line.a);
  ia32_push(kEAX);
  ia32_fistp(kModNoDisp, kRMNeedsSIB);
  int r = AllocateRegister(SchemeExclude(kECX, kSchemeByte));
  ia32_pop(r);

  ia32_WriteOpcode(kOperandSizePrefix);
  ia32_mov_backwards(kModNoDisp, kECX, kRMNeedsSIB, 0, kSIBNoIndex, kESP);
  ia32_fldcw(kModNoDisp, kRMNeedsSIB);
  StoreTacAddr(r, line.c);
  ia32_pop(kECX);
  Touch(&registers[kECX]);
}

// ---------------------------------------------------------------------------
// Flow

void CGIA32::tac_Label(TacLine const& line) {
  if (OpensFunction(line)) {
    BeginFunction(line.a->GetValue().text);
    return;
  }
  InvalidateRegisters();
  int label = line.a->GetValue().sint32;
  int here = CodeBufferLength();
  labels.push_back(LabelPosition{label, here});
  for (unsigned long i = pendingJumps.size(); i-- > 0;) {
    if (pendingJumps[i].label != label) continue;
    int field = pendingJumps[i].position;
    currentFunction->Set32((unsigned)field, (unsigned long)(uint32_t)(here - (field + 4)));
    pendingJumps.deleteIdx(i);
  }
}

void CGIA32::tac_Jump(TacLine const& line) { ia32_jmp(FindLabel(line.c->GetValue().sint32, 1)); }

void CGIA32::IntegerBranch(TacLine const& line, int test) {
  if (&line == fusedBranch) {
    fusedBranch = nullptr;
    return;
  }
  int y;
  CompareInts(line, &test, &y);
  (this->*kIntegerTests[test].jump)(FindLabel(line.c->GetValue().sint32, 2));
}

void CGIA32::tac_IfEQI(TacLine const& line) { IntegerBranch(line, kTestEQ); }
void CGIA32::tac_IfNEI(TacLine const& line) { IntegerBranch(line, kTestNE); }
void CGIA32::tac_IfLTI(TacLine const& line) { IntegerBranch(line, kTestLT); }

// ---------------------------------------------------------------------------
// Reference counts

static int PickByCountedType(TacAddr const* addr, int stringCall, int objectCall, int arrayCall) {
  switch (addr->type.GetMainType()) {
    case kTypeString: return stringCall;
    case kTypeObject: return objectCall;
    case kTypeArray: return arrayCall;
    default: return -1;
  }
}

void CGIA32::StoreZero(TacAddr const* addr) {
  StoreTacAddr(LoadTacAddr(gTacZero, kSchemeGeneral), addr);
}

// Nil, and an object in the middle of its destruction (count 0), keep
// their count, as the library's lock would.
void CGIA32::LockObjectInline(int r, int c) {
  ia32_test(kModRegister, r, r);
  int nil = LocalJump(&IA32OpWriter::ia32_je);
  ia32_mov(ModDisp(kObjectLockCountOffset), c, r, kObjectLockCountOffset);
  ia32_test(kModRegister, c, c);
  int dying = LocalJump(&IA32OpWriter::ia32_jle);
  ia32_add_imm8_se(kModRegister, c, 1);
  ia32_mov_backwards(ModDisp(kObjectLockCountOffset), c, r, kObjectLockCountOffset);
  PatchLocalJump(nil);
  PatchLocalJump(dying);
  Touch(&registers[c]);
}

// Below 1 nothing changes; at 1 the library takes the count to 0 and
// destroys the object; above, the count goes down in place.
void CGIA32::UnlockObjectInline(int r, int c) {
  ia32_test(kModRegister, r, r);
  int nil = LocalJump(&IA32OpWriter::ia32_je);
  ia32_mov(ModDisp(kObjectLockCountOffset), c, r, kObjectLockCountOffset);
  ia32_cmp_imm8_se(kModRegister, c, 1);
  int idle = LocalJump(&IA32OpWriter::ia32_jl);
  int shared = LocalJump(&IA32OpWriter::ia32_jg);
  int block = AlignArgumentBlock(4);
  ia32_push(r);
  CallRuntime(kIntrinsicRuntimeUnlockObject, block);
  int done = LocalJump(&IA32OpWriter::ia32_jmp);
  PatchLocalJump(shared);
  ia32_sub_imm8_se(kModRegister, c, 1);
  ia32_mov_backwards(ModDisp(kObjectLockCountOffset), c, r, kObjectLockCountOffset);
  PatchLocalJump(nil);
  PatchLocalJump(idle);
  PatchLocalJump(done);
  InvalidateRegisters();
}

void CGIA32::tac_Lock(TacLine const& line) {
  if (line.a->type.GetMainType() == kTypeObject) {
    int r = LoadTacAddr(line.a, kSchemeGeneral);
    LockObjectInline(r, AllocateRegister(SchemeExclude(r, kSchemeGeneral)));
    return;
  }
  int call = PickByCountedType(line.a, kIntrinsicRuntimeLockString, kIntrinsicRuntimeLockObject,
                               kIntrinsicRuntimeLockArray);
  KV_ASSERT(call >= 0);
  if (call < 0) return;
  int block = AlignArgumentBlock(4);
  PushTacAddr(line.a);
  CallRuntime(call, block);
}

// Many variables a scope lets go of still hold nil, and unlocking nil
// changes nothing: the test is made inline and the call stepped over.
// Where the skipping and the calling paths meet, nothing is known of the
// registers, as at a label.
void CGIA32::tac_Unlock(TacLine const& line) {
  int call = PickByCountedType(line.a, kIntrinsicRuntimeUnlockString, kIntrinsicRuntimeUnlockObject,
                               kIntrinsicRuntimeUnlockArray);
  KV_ASSERT(call >= 0);
  if (call < 0) return;
  // The variable is cleared before the value is let go of: a destructor run
  // by the unlock that raises must find nothing left to release again.
  int r = LoadTacAddr(line.a, kSchemeGeneral);
  ClearVariable(line.a, SchemeExclude(r, kSchemeGeneral));
  if (call == kIntrinsicRuntimeUnlockObject) {
    UnlockObjectInline(r, AllocateRegister(SchemeExclude(r, kSchemeGeneral)));
  } else {
    ia32_test(kModRegister, r, r);
    int skip = LocalJump(&IA32OpWriter::ia32_je);
    int block = AlignArgumentBlock(4);
    ia32_push(r);
    CallRuntime(call, block);
    PatchLocalJump(skip);
    InvalidateRegisters();
  }
}

// No register in `keep`'s complement is taken: those hold values still to
// be used. Every register that listed the variable forgets it.
void CGIA32::ClearVariable(TacAddr const* addr, int keep) {
  for (RegisterState& state : registers) {
    if (state.Contains(addr)) state.Clear(addr);
  }
  if (addr->GetStorageClass() == LocalStorage || addr->GetStorageClass() == StaticStorage) {
    StoreImmediate(0, addr);
    return;
  }
  int base = LoadBase(keep);
  int d = FieldDisplacement(addr);
  ia32_mov_imm32(ModDisp(d), base, d, 0);
}

// The new value is locked before the old one is let go of, so that a value
// assigned to where it already is survives; the same value is left alone.
void CGIA32::tac_SwapLocks(TacLine const& line) {
  int call = PickByCountedType(line.a, kIntrinsicRuntimeLockUnlockStrings, kIntrinsicRuntimeLockUnlockObjects,
                               kIntrinsicRuntimeLockUnlockArrays);
  KV_ASSERT(call >= 0);
  if (call < 0) return;
  // The library does nothing when the new value is the old one, two nils
  // included, so that case is told apart inline, as in tac_Unlock.
  // The old value's variable is cleared before anything is unlocked, on
  // both paths, for the reason given at tac_Unlock.
  int x = LoadTacAddr(line.a, kSchemeGeneral);
  int y = LoadTacAddr(line.b, SchemeExclude(x, kSchemeGeneral));
  ClearVariable(line.b, SchemeExclude(y, SchemeExclude(x, kSchemeGeneral)));
  ia32_cmp(kModRegister, x, y);
  int skip = LocalJump(&IA32OpWriter::ia32_je);
  if (call == kIntrinsicRuntimeLockUnlockObjects) {
    int c = AllocateRegister(SchemeExclude(y, SchemeExclude(x, kSchemeGeneral)));
    LockObjectInline(x, c);
    UnlockObjectInline(y, c);
  } else {
    int block = AlignArgumentBlock(8);
    ia32_push(y);
    ia32_push(x);
    CallRuntime(call, block);
  }
  PatchLocalJump(skip);
  InvalidateRegisters();
}

// ---------------------------------------------------------------------------
// Calls

void CGIA32::tac_PutParam(TacLine const& line) { callParams.push_back(line.a); }
void CGIA32::tac_GetParam(TacLine const& line) { funcParams.push_back(line.c); }

// The intrinsic `number`, called without arguments only when the flags the
// code before left fail the jump `unless`.
void CGIA32::CallIntrinsicUnless(void (IA32OpWriter::*unless)(int), int number) {
  int skip = LocalJump(unless);
  MarkImport(Import::kCallIA32, IntrinsicName(number), 1);
  ia32_call_disp32(0);
  PatchLocalJump(skip);
  InvalidateRegisters();
}

// Two intrinsics run on every call of a script function or every loop round
// and are tested in line: the stack check compares esp with the limit and
// calls only when esp is below it; the yield counts a word down and calls
// one round in so many (the library sets the count again).
void CGIA32::tac_Intrinsic(TacLine const& line) {
  int number = line.a->GetValue().sint32;
  if (number == kIntrinsicRuntimeCheckStack && callParams.size() == 0) {
    MarkImport(Import::kCodePtrIA32, kStackLimitName, 2);
    ia32_cmp(kModNoDisp, kESP, kRMAbsolute, 0);
    CallIntrinsicUnless(&IA32OpWriter::ia32_jae, number);
    return;
  }
  if (number == kIntrinsicVELDYieldToKV && callParams.size() == 0) {
    MarkImport(Import::kCodePtrIA32, kYieldCountdownName, 2);
    ia32_sub_imm8_se(kModNoDisp, kRMAbsolute, 0, 1);
    CallIntrinsicUnless(&IA32OpWriter::ia32_jg, number);
    return;
  }
  CallSequenceStart();
  MarkImport(Import::kCallIA32, IntrinsicName(line.a->GetValue().sint32), 1);
  ia32_call_disp32(0);
  CallSequenceEnd(line.c);
}

void CGIA32::tac_Call(TacLine const& line) {
  CallSequenceStart();
  MarkImport(Import::kCallIA32, line.a->GetValue().text, line.b->GetValue().text, 1);
  ia32_call_disp32(0);
  CallSequenceEnd(line.c);
}

void CGIA32::tac_CallPtr(TacLine const& line) {
  CallSequenceStart();
  int r = LoadTacAddr(line.a, kSchemeGeneral);
  ia32_call(kModRegister, r);
  CallSequenceEnd(line.c);
}

void CGIA32::tac_CallPtrVarargs(TacLine const& line) { tac_CallPtr(line); }

void CGIA32::tac_FuncPtr(TacLine const& line) {
  int r = AllocateRegister(kSchemeGeneral);
  MarkImport(Import::kCodePtrIA32, line.a->GetValue().text, line.b->GetValue().text, 1);
  ia32_mov_imm32(r, 0);
  StoreTacAddr(r, line.c);
}

void CGIA32::tac_Symbols(TacLine const& line) {
  long at = line.a->GetValue().sint32;
  KV_ASSERT(symbols && at >= 0 && (unsigned long)at < symbols->CountTables());
  if (symbols && at >= 0 && (unsigned long)at < symbols->CountTables())
    localTable = symbols->GetTable((unsigned long)at);
}

void CGIA32::tac_Baseref(TacLine const& line) {
  baseRef = line.a;
  if (line.b->IsConstant()) baseOffset = line.b->GetValue().sint32;
}

// ---------------------------------------------------------------------------
// Exceptions

// A try statement writes no code: its ends are recorded for the handler
// table.
void CGIA32::tac_BeginTry(TacLine const&) { currentFunction->MarkHandlerEvent(kHandlerTryBegin); }
void CGIA32::tac_EndTry(TacLine const&) { currentFunction->MarkHandlerEvent(kHandlerTryEnd); }

// A method's default handler whose code only releases frame slots and
// passes the exception on (unlocks, then "if caught = 0 skip; re-raise
// caught") is recorded with those slots: the raise path may then pass the
// frame by when the slots hold nothing (runtime/RunAbort.cpp). Anything
// else in the handler, or a slot outside the frame, and it is not recorded.
void CGIA32::NotePassThroughHandler(TacLine const& line, int start, int resume) {
  if (line.a == nilTacAddr) return;
  SimpleVector<int32_t> slots;
  TacLine const* l = line.next;
  for (; l && l->opcode == ::tac_Unlock; l = l->next) {
    if (l->a->GetStorageClass() != LocalStorage) return;
    slots.push_back(LocalDisplacement(l->a));
  }
  if (!l || l->opcode != ::tac_IfEQI || l->a != line.a) return;
  l = l->next;
  if (!l || l->opcode != ::tac_PutParam || l->a != line.a) return;
  l = l->next;
  if (!l || l->opcode != ::tac_Intrinsic || l->a->GetValue().sint32 != kIntrinsicRuntimeReraiseException) return;
  currentFunction->handlerEvents.push_back(HandlerEvent{kHandlerPassThrough, start, resume});
  for (unsigned long i = 0; i < slots.size(); ++i)
    currentFunction->handlerEvents.push_back(HandlerEvent{kHandlerReleaseSlot, start, slots[i]});
}

// A handler's entry: normal flow jumps over the resume point, to the label
// behind the handler or, with none, into the handler's code. The raise path
// returns into the resume point from a function this one called, with the
// exception held by the run state: esp comes back from the frame, the
// exception is taken (its reference passing to the code) and stored into
// the handler's variable, whose old value is let go of after the store, or
// let go of at once where the handler has no variable.
void CGIA32::tac_HandleException(TacLine const& line) {
  int start = CodeBufferLength();
  bool fallsIn = line.c == nilTacAddr;
  int jumpField = start + 1;
  ia32_jmp(fallsIn ? 0 : FindLabel(line.c->GetValue().sint32, 1));
  int resume = CodeBufferLength();
  currentFunction->handlerEvents.push_back(HandlerEvent{kHandlerSwitch, start, resume});
  NotePassThroughHandler(line, start, resume);
  InvalidateRegisters();
  int s = -StoredESPOffset();
  ia32_mov(ModDisp(s), kESP, kEBP, s);
  MarkImport(Import::kCallIA32, kTakeExceptionName, 1);
  ia32_call_disp32(0);
  InvalidateRegisters();
  if (line.a != nilTacAddr && line.a->type.GetMainType() == kTypeObject) {
    int old = LoadTacAddr(line.a, SchemeExclude(kEAX, kSchemeGeneral));
    StoreTacAddr(kEAX, line.a);
    UnlockObjectInline(old, AllocateRegister(SchemeExclude(old, SchemeExclude(kEAX, kSchemeGeneral))));
  } else {
    UnlockObjectInline(kEAX, AllocateRegister(SchemeExclude(kEAX, kSchemeGeneral)));
  }
  if (fallsIn) PatchLocalJump(jumpField);
  InvalidateRegisters();
}
