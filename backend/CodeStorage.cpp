#include "backend/CodeStorage.h"

#include <cstring>

#include "foundation/KvAssert.h"

DataBlock::DataBlock(bool bigEndianOrder)
    : buffer(nullptr), capacity(0), length(0), growAmount(0), bigEndian(bigEndianOrder) {}

DataBlock::DataBlock(void* data, int count)
    : buffer(nullptr), capacity(0), length(0), growAmount(0), bigEndian(false) {
  set_machine_byte_order();
  if (data && count >= 1) {
    resize((unsigned int)count);
    memcpy(buffer, data, (size_t)count);
    length = (uint32_t)count;
  }
}

DataBlock::~DataBlock() { delete[] buffer; }

// The bytes of "cafe" as a 32-bit value: stored to memory, the first byte
// tells which end the machine puts first.
void DataBlock::set_machine_byte_order() {
  uint32_t probe = 0x63616665;
  char first;
  memcpy(&first, &probe, 1);
  bigEndian = first == 'c';
}

void DataBlock::resize(unsigned int newCapacity) {
  if (newCapacity == capacity) return;
  capacity = newCapacity;
  if (length > newCapacity) {
    length = newCapacity;
    growAmount = kMinGrowAmount;
  }
  // Zeroed, so bytes reserved by SetLength read as 0 rather than garbage.
  char* fresh = new char[newCapacity]();
  if (buffer && length) memcpy(fresh, buffer, length);
  delete[] buffer;
  buffer = fresh;
}

void DataBlock::growby(unsigned int extra) {
  if (length + extra <= capacity) return;
  uint32_t step = extra > growAmount ? extra : growAmount;
  if (step < capacity / 2) step = capacity / 2;
  resize(capacity + step);
  growAmount *= 2;
  if (growAmount < kMinGrowAmount) growAmount = kMinGrowAmount;
  if (growAmount > kMaxGrowAmount) growAmount = kMaxGrowAmount;
}

void DataBlock::SetLength(unsigned int newLength) {
  resize(newLength);
  length = newLength;
}

void DataBlock::Store(unsigned int at, unsigned long value, unsigned int size) {
  for (unsigned int i = 0; i < size; ++i) {
    unsigned int shift = bigEndian ? 8 * (size - 1 - i) : 8 * i;
    buffer[at + i] = (char)(value >> shift);
  }
}

unsigned long DataBlock::Load(unsigned int at, unsigned int size) const {
  unsigned long value = 0;
  for (unsigned int i = 0; i < size; ++i) {
    unsigned int shift = bigEndian ? 8 * (size - 1 - i) : 8 * i;
    value |= (unsigned long)(unsigned char)buffer[at + i] << shift;
  }
  return value;
}

void DataBlock::Append8(unsigned long value) {
  growby(1);
  Store(length, value, 1);
  length += 1;
}

void DataBlock::Append16(unsigned long value) {
  growby(2);
  Store(length, value, 2);
  length += 2;
}

void DataBlock::Append32(unsigned long value) {
  growby(4);
  Store(length, value, 4);
  length += 4;
}

unsigned long DataBlock::Get8(unsigned int offset) const { return Fits(offset, 1) ? Load(offset, 1) : 0; }
unsigned long DataBlock::Get16(unsigned int offset) const { return Fits(offset, 2) ? Load(offset, 2) : 0; }
unsigned long DataBlock::Get32(unsigned int offset) const { return Fits(offset, 4) ? Load(offset, 4) : 0; }

void DataBlock::Set8(unsigned int offset, unsigned long value) {
  if (Fits(offset, 1)) Store(offset, value, 1);
}

void DataBlock::Set16(unsigned int offset, unsigned long value) {
  if (Fits(offset, 2)) Store(offset, value, 2);
}

void DataBlock::Set32(unsigned int offset, unsigned long value) {
  if (Fits(offset, 4)) Store(offset, value, 4);
}

void DataBlock::AppendBytes(char const* data, unsigned long count) {
  if (!data || count == 0) return;
  // Bytes from this very block would move when it grows: note where they sit.
  bool inside = buffer && data >= buffer && data < buffer + capacity;
  size_t from = inside ? (size_t)(data - buffer) : 0;
  growby((unsigned int)count);
  memcpy(buffer + length, inside ? buffer + from : data, count);
  length += (uint32_t)count;
}

void DataBlock::Append(char const* data, unsigned long count) { AppendBytes(data, count); }

void DataBlock::Append(Ref<DataBlock> other) {
  if (other) AppendBytes(other->buffer, other->length);
}

void DataBlock::Append(Ref<FunctionBlock> other) {
  if (other) AppendBytes(other->buffer, other->length);
}

Ref<DataBlock> DataBlock::Get(unsigned int offset, unsigned int count) const {
  Ref<DataBlock> piece;
  piece.BindNewObject(new DataBlock(bigEndian));
  if (offset < length) {
    unsigned int available = length - offset;
    piece->AppendBytes(buffer + offset, count < available ? count : available);
  }
  return piece;
}

void DataBlock::Set(unsigned int offset, unsigned int count, Ref<DataBlock> other) {
  KV_ASSERT(offset <= length);
  unsigned int end = offset + count;
  Ref<DataBlock> tail = Get(end, end < length ? length - end : 0);
  resize(offset);
  Append(other);
  Append(tail);
}

void FunctionBlock::Append(Ref<DataBlock>) {}

void FunctionBlock::Append(Ref<FunctionBlock> other) {
  if (!other) return;
  // Counted first: appending a block to itself must not see its own new entries.
  unsigned long count = other->imports.size();
  for (unsigned long i = 0; i < count; ++i) {
    Import moved = other->imports[i];
    moved.offset += (int32_t)length;
    imports.push_back(moved);
  }
  unsigned long events = other->handlerEvents.size();
  for (unsigned long i = 0; i < events; ++i) {
    HandlerEvent moved = other->handlerEvents[i];
    moved.offset += (int32_t)length;
    // A released slot's word is a frame displacement, not a code offset.
    if (moved.kind != kHandlerReleaseSlot) moved.resume += (int32_t)length;
    handlerEvents.push_back(moved);
  }
  unsigned long lines = other->raiseLines.size();
  for (unsigned long i = 0; i < lines; ++i) {
    RaiseLineEntry moved = other->raiseLines[i];
    moved.offset += (int32_t)length;
    raiseLines.push_back(moved);
  }
  DataBlock::Append(other);
}

void FunctionBlock::MarkHandlerEvent(HandlerEventKind kind, int32_t resume) {
  handlerEvents.push_back(HandlerEvent{kind, (int32_t)length, resume});
}

void FunctionBlock::MarkRaiseLine(int32_t line) {
  unsigned long n = raiseLines.size();
  if (n > 0 && raiseLines[n - 1].line == line) return;
  if (n > 0 && raiseLines[n - 1].offset == (int32_t)length) {
    raiseLines[n - 1].line = line;
    return;
  }
  raiseLines.push_back(RaiseLineEntry{(int32_t)length, line});
}

void FunctionBlock::MarkImport(Import::Type type, string importName, string library, int extra) {
  imports.push_back(Import(type, importName, library, (int32_t)length + extra));
}

void FunctionBlock::MarkImport(Import::Type type, string importName, int extra) {
  MarkImport(type, importName, string(), extra);
}

void CodeOffsetToLineIndex::AddEntry(int offset, int line) {
  unsigned long n = entries.size();
  if (n > 0 && entries[n - 1].line == line) return;
  KV_ASSERT(n == 0 || entries[n - 1].offset <= offset);
  entries.push_back(cotlis{offset, line});
}

int CodeOffsetToLineIndex::LookupLine(int offset) const {
  for (unsigned long i = entries.size(); i > 0; --i) {
    if (entries[i - 1].offset <= offset) return entries[i - 1].line;
  }
  return -1;
}

Ref<FunctionBlock> CodeModule::MakeFunctionBlock() const {
  Ref<FunctionBlock> block;
  if (family == kFamilyPPC || family == kFamilyIA32) {
    block.BindNewObject(new FunctionBlock(family == kFamilyPPC));
  }
  return block;
}

Ref<DataBlock> CodeModule::MakeDataBlock() const {
  Ref<DataBlock> block;
  if (family == kFamilyPPC || family == kFamilyIA32) {
    block.BindNewObject(new DataBlock(family == kFamilyPPC));
  }
  return block;
}
