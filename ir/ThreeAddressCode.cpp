#include "ir/ThreeAddressCode.h"

#include "foundation/KvAssert.h"
#include "ir/Intrinsics.h"

char const kOpMnemonics[kTacOpcodeCount][kOpMnemonicSize] = {
#define KV_TAC_TEXT(op, text) text,
    KV_TAC_OPCODES(KV_TAC_TEXT)
#undef KV_TAC_TEXT
};

// A shorter name would be padded silently by the table above; every printed
// name is exactly five characters.
#define KV_TAC_WIDTH(op, text) \
  static_assert(sizeof(text) == kOpMnemonicSize, "printed name of " #op " is not 5 characters");
KV_TAC_OPCODES(KV_TAC_WIDTH)
#undef KV_TAC_WIDTH

// TacAddr

static IRValue const sZeroInteger = IRValue::SInt32(0);
static string const sNoLinkName;

IRValue const& TacAddr::GetValue() const { return sZeroInteger; }
long TacAddr::StorageOffset() const { return 0; }
StorageClass TacAddr::GetStorageClass() const { return StaticStorage; }
string const& TacAddr::LinkName() const { return sNoLinkName; }
TacAddr::~TacAddr() = default;

SymbolAddr::SymbolAddr() : storageClass(StaticStorage), offset(0) {}

SymbolAddr::SymbolAddr(StorageClass storage, IRDataType const& t, string const& name,
                       unsigned int off)
    : storageClass(storage), linkName(name), offset(off) {
  type = t;
}

ConstAddr::ConstAddr(long v) : value(IRValue::SInt32(v)) { type = IRDataType(kTypeInteger); }

ConstAddr::ConstAddr(string text) {
  value.sint32 = 0;
  value.text = text;
  type = IRDataType(kTypeString);
}

ConstAddr::ConstAddr(IRValue const& v, IRDataType const& t) : value(v) { type = t; }

// Process-wide constants

ConstAddr const* gTacOne = nullptr;
ConstAddr const* gTacZero = nullptr;
ConstAddr const* gTacTrue = nullptr;
ConstAddr const* gTacFalse = nullptr;
ConstAddr const* gTacFloatZero = nullptr;
ConstAddr const* nilTacAddr = nullptr;

static void MakeOnce(ConstAddr const*& slot, IRValue const& value, SimpleDataType type) {
  if (!slot) slot = new ConstAddr(value, IRDataType(type));
}

void InitTacConstants() {
  MakeOnce(gTacOne, IRValue::SInt32(1), kTypeInteger);
  MakeOnce(gTacZero, IRValue::SInt32(0), kTypeInteger);
  MakeOnce(gTacTrue, IRValue::SInt32(1), kTypeBoolean);
  MakeOnce(gTacFalse, IRValue::SInt32(0), kTypeBoolean);
  MakeOnce(gTacFloatZero, IRValue::Real64(0.0), kTypeDouble);
  MakeOnce(nilTacAddr, IRValue::SInt32(0), kTypeNull);
}

static ConstAddr* sIntrinsicAddrPtrs[kIntrinsicFunctionCount];

TacAddr const* IntrinsicTacAddr(long index) {
  KV_ASSERT(index >= 0 && index < kIntrinsicFunctionCount);
  if (index < 0 || index >= kIntrinsicFunctionCount) return nilTacAddr;
  if (!sIntrinsicAddrPtrs[index]) sIntrinsicAddrPtrs[index] = new ConstAddr(index);
  return sIntrinsicAddrPtrs[index];
}

// TacLine and TacBlock

TacLine::TacLine(TacOpcode op, TacAddr const* a_, TacAddr const* b_, TacAddr const* c_, long l)
    : opcode(op), a(a_), b(b_), c(c_), line(l), next(nullptr) {}

string TacLine::toString() const {
  KV_ASSERT(opcode >= 0 && opcode < kTacOpcodeCount);
  return string(kOpMnemonics[opcode]);
}

TacBlock::~TacBlock() {
  for (TacLine* l = first; l;) {
    TacLine* following = l->next;
    delete l;
    l = following;
  }
}

void TacBlock::AddLine(TacOpcode op, TacAddr const* a, TacAddr const* b, TacAddr const* c,
                       long line) {
  AppendToList(new TacLine(op, a, b, c, line));
}

void TacBlock::AddLine(TacLine const& line) { AppendToList(new TacLine(line)); }

void TacBlock::AppendToList(TacLine* line) {
  line->next = nullptr;
  if (last) last->next = line; else first = line;
  last = line;
}

void TacBlock::Append(TacBlock& other) {
  if (&other == this || other.IsEmpty()) return;
  if (last) last->next = other.first; else first = other.first;
  last = other.last;
  other.first = nullptr;
  other.last = nullptr;
}

bool TacBlockIterator::Next() {
  if (!mCurrent) {
    // Before the first line; once past the last, the block isn't walked again.
    if (mStarted) return false;
    mStarted = true;
    mCurrent = mBlock ? mBlock->first : nullptr;
  } else {
    mCurrent = mCurrent->next;
  }
  return mCurrent != nullptr;
}

// TacLiteralPool

TacLiteralPool* gLiteralPool = nullptr;

TacLiteralPool* CurrentTLP() {
  if (gLiteralPool) return gLiteralPool;
  // Held by pointer so that no destructor runs at the process's exit.
  static TacLiteralPool* sFallbackPool = new TacLiteralPool;
  return sFallbackPool;
}

TacLiteralPool::~TacLiteralPool() {
  for (unsigned long i = 0; i < owned.size(); ++i) delete owned[i];
}

TacAddr const* TacLiteralPool::GetLiteral(long v) {
  TacAddr* found = nullptr;
  if (integers.GetEntry((int)v, found)) return found;
  found = new ConstAddr(v);
  integers.AddEntry((int)v, found);
  owned.push_back(found);
  return found;
}

TacAddr const* TacLiteralPool::GetLiteral(string text) {
  TacAddr* found = nullptr;
  if (strings.GetEntry(text, found)) return found;
  found = new ConstAddr(text);
  strings.AddEntry(text, found);
  owned.push_back(found);
  return found;
}

TacAddr const* TacLiteralPool::GetLiteral(IRValue const& value, IRDataType const& type) {
  switch (type.GetMainType()) {
    case kTypeInteger: return GetLiteral((long)value.sint32);
    case kTypeString: return GetLiteral(value.text);
    case kTypeBoolean:
      InitTacConstants();
      return value.sint32 ? gTacTrue : gTacFalse;
    default: {
      // Floats and colours are never shared: each request is a new address.
      TacAddr* fresh = new ConstAddr(value, type);
      owned.push_back(fresh);
      return fresh;
    }
  }
}
