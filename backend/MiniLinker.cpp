#include "backend/MiniLinker.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "diag/CompileError.h"
#include "diag/CompilerDelegate.h"
#include "foundation/KvAssert.h"
#include "runtime/RunAbort.h"
#include "runtime/RunState.h"

// ---------------------------------------------------------------------------
// CodeMapping

static unsigned int RoundUpToPage(unsigned int length) {
  unsigned int page = (unsigned int)sysconf(_SC_PAGESIZE);
  if (length == 0) return page;
  return (length + page - 1) / page * page;
}

CodeMapping::CodeMapping(unsigned int length)
    : mAddress(nullptr), mLength(length), mMappedLength(RoundUpToPage(length)), mSealed(false) {
  void* memory = mmap(nullptr, mMappedLength, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory != MAP_FAILED) mAddress = static_cast<char*>(memory);
}

CodeMapping::~CodeMapping() {
  if (mAddress) munmap(mAddress, mMappedLength);
}

bool CodeMapping::Write(unsigned int offset, char const* bytes, unsigned int count) {
  if (!mAddress || mSealed || offset > mLength || mLength - offset < count) return false;
  if (count) memcpy(mAddress + offset, bytes, count);
  return true;
}

bool CodeMapping::Seal() {
  if (!mAddress || mSealed) return mSealed;
  mSealed = true;
  if (mprotect(mAddress, mMappedLength, PROT_READ | PROT_EXEC) == 0) return true;
  // Whatever state the pages are in, none of it may run.
  mprotect(mAddress, mMappedLength, PROT_NONE);
  munmap(mAddress, mMappedLength);
  mAddress = nullptr;
  return false;
}

// ---------------------------------------------------------------------------
// RunReadyCode

RunReadyCode::RunReadyCode() : data(new char[0]), dataLength(0), image(nullptr) {}

RunReadyCode::RunReadyCode(Ref<FunctionBlock> block, char* dataArea, int dataAreaLength,
                           SimpleVector<string> const& literals, CodeMapping* codeImage)
    : data(dataArea), dataLength(dataAreaLength), code(block), strings(literals), image(codeImage) {}

RunReadyCode::~RunReadyCode() {
  delete image;
  delete[] data;
}

void RunReadyCode::Run(KvScriptCorrespondent* correspondent, uintptr_t stackLimit) {
  KV_ASSERT(!mRunning);
  mRunning = true;
  char* saved = new char[dataLength > 0 ? dataLength : 0];
  if (dataLength > 0) memcpy(saved, data, (size_t)dataLength);
  {
    RunStateScope runState(correspondent);
    // A run that ends early has told the correspondent why already.
    if (image && image->Sealed() && image->Address())
      RunScriptCode(reinterpret_cast<void (*)()>(image->Address()), &handlers, image->Address(),
                    image->Length(), stackLimit);
  }
  if (dataLength > 0) memcpy(data, saved, (size_t)dataLength);
  delete[] saved;
  mRunning = false;
}

// ---------------------------------------------------------------------------
// Stages

bool Rel32Reaches(uintptr_t next, uintptr_t target) {
  if (sizeof(uintptr_t) == 4) return true;
  int64_t distance = (int64_t)target - (int64_t)next;
  return distance >= INT32_MIN && distance <= INT32_MAX;
}

static bool IsStubName(string const& name) {
  long prefix = (long)sizeof(kStubPrefix) - 1;
  return name.Length() >= prefix && left(name, (int)prefix).CompareWithCase(kStubPrefix) == 0;
}

void PrepareCodeModule(Ref<CodeModule> module) {
  if (!module || module->family != CodeModule::kFamilyPPC) return;
  Ref<FunctionBlock> glue = module->MakeFunctionBlock();
  glue->name = kPointerGlueName;
  for (uint32_t word : kPPCPointerGlue) glue->Append32(word);
  module->functions.push_back(glue);
}

Ref<FunctionBlock> MergeModuleFunctions(Ref<CodeModule> module, StringMap<unsigned int>* merged) {
  Ref<FunctionBlock> block = module->MakeFunctionBlock();
  for (unsigned long i = 0; i < module->functions.size(); ++i) {
    Ref<FunctionBlock> function = module->functions[i];
    if (!function) continue;
    merged->AddEntry(function->name, block->Length());
    block->Append(function);
  }
  return block;
}

// Stores a word in the data area in the block's byte order.
static void StoreDataWord(char* dataArea, unsigned long offset, uint32_t value, bool bigEndian) {
  for (int i = 0; i < 4; ++i) {
    int shift = bigEndian ? 8 * (3 - i) : 8 * i;
    dataArea[offset + i] = (char)(value >> shift);
  }
}

void PokeInStringPointers(char* dataArea, StringMap<unsigned long>* stringSlots) {
  StringMapIterator<unsigned long>* it = stringSlots->NewIterator();
  unsigned long slot;
  while (it->Next(slot)) {
    // The map keeps the first spelling of a key, which is the record that
    // the literal list holds. The slots exist on PowerPC only: big-endian.
    StoreDataWord(dataArea, slot, (uint32_t)(uintptr_t)it->Key().Storage(), true);
  }
  delete it;
}

void PokeInCodePointers(CodeModule::Family family, char* dataArea,
                        StringMap<unsigned long>* codeSlots, void* codeAddress,
                        StringMap<unsigned int>* merged, StringMap<void*>* table) {
  bool ppc = family == CodeModule::kFamilyPPC;
  StringMapIterator<unsigned long>* it = codeSlots->NewIterator();
  unsigned long slot;
  while (it->Next(slot)) {
    string name = it->Key();
    unsigned int offset = 0;
    void* outside = nullptr;
    if (merged->GetEntry(name, offset)) {
      StoreDataWord(dataArea, slot, (uint32_t)((uintptr_t)codeAddress + offset), ppc);
      // A transition vector: the code, then the data register it expects.
      if (ppc) StoreDataWord(dataArea, slot + 4, (uint32_t)(uintptr_t)dataArea, ppc);
    } else if (table->GetEntry(name, outside)) {
      StoreDataWord(dataArea, slot, (uint32_t)(uintptr_t)outside, ppc);
    }
  }
  delete it;
}

void BuildHandlerTable(Ref<CodeModule> module, Ref<FunctionBlock> block, HandlerTable* table) {
  uint32_t start = 0;
  unsigned long event = 0;
  unsigned long line = 0;
  SimpleVector<HandlerEvent> const& events = block->handlerEvents;
  SimpleVector<RaiseLineEntry> const& lines = block->raiseLines;
  for (unsigned long i = 0; i < module->functions.size(); ++i) {
    Ref<FunctionBlock> function = module->functions[i];
    if (!function) continue;
    uint32_t end = start + function->Length();
    table->AddFunction(start, end);
    for (; event < events.size() && (uint32_t)events[event].offset < end; ++event)
      table->AddEvent((HandlerEventKind)events[event].kind, (uint32_t)events[event].offset,
                      (uint32_t)events[event].resume);
    for (; line < lines.size() && (uint32_t)lines[line].offset < end; ++line)
      table->AddLine((uint32_t)lines[line].offset, lines[line].line);
    start = end;
  }
  table->Finish();
}

// ---------------------------------------------------------------------------
// MiniLink

namespace {

// The working tables of one link, and its two walks over the imports.
class Linker {
public:
  Linker(Ref<CodeModule> linked, StringMap<void*>* runtimeTable, CompilerDelegate* errors)
      : module(linked), table(runtimeTable), delegate(errors),
        ppc(linked->family == CodeModule::kFamilyPPC) {}
  ~Linker() {
    delete[] data;
    delete image;
  }

  RunReadyCode* Link();

private:
  void AssignSpace(Import const& import);
  void Resolve(Import const& import);
  void ResolveCall(Import const& import);
  void ResolveCallPPC(Import const& import);
  void ResolveGlobal(Import const& import);
  void ResolveCodePointer(Import const& import);
  void ResolveString(Import const& import);
  unsigned int StubFor(string const& name, void* address);
  bool LookUpOutside(string const& name, void*& address);
  uintptr_t CodeBase() const { return (uintptr_t)image->Address(); }
  bool MapIA32Code();
  bool PlaceIA32Code();
  void Fail(CompileErrorCode code, string const& word);
  RunReadyCode* ReportFailures();

  void OrWord(int32_t offset, uint32_t bits) {
    block->Set32((unsigned int)offset, block->Get32((unsigned int)offset) | bits);
  }

  Ref<CodeModule> module;
  StringMap<void*>* table;
  CompilerDelegate* delegate;
  bool ppc;
  Ref<FunctionBlock> block;
  StringMap<unsigned int> merged;
  StringMap<unsigned long> dataOffsets;
  StringMapCase<unsigned long> stringSlots;
  SimpleVector<string> strings;
  StringMap<unsigned long> codeSlots;
  uint32_t dataSize = 0;
  char* data = nullptr;
  // IA-32: where the block will run, mapped before the fix-ups are made,
  // with room behind the block for a stub per outside name.
  CodeMapping* image = nullptr;
  StringMap<int> outsideCalls;
  unsigned int outsideCallCount = 0;
  // Each failing name once, in order of discovery, with its code.
  StringMap<int> failedNames;
  SimpleVector<string> failures;
  SimpleVector<int> failureCodes;
};

bool IsCall(Import::Type type) { return type == Import::kCallPPC || type == Import::kCallIA32; }
bool IsGlobal(Import::Type type) { return type == Import::kDataPPC || type == Import::kDataIA32; }
bool IsString(Import::Type type) { return type == Import::kStringPPC || type == Import::kStringIA32; }
bool IsPPCCodePointer(Import::Type type) { return type == Import::kCodePtrPPC; }

// Forms that need 32-bit offsets into the data area, which only
// non-default PowerPC options produce and this linker cannot make.
bool IsUnsupported(Import::Type type) {
  switch (type) {
    case Import::kCodePtrHighPPC:
    case Import::kCodePtrBasePPC:
    case Import::kStringHighPPC:
    case Import::kPicBasePPC:
    case Import::kPicLowPPC:
    case Import::kPicHighPPC:
      return true;
    default:
      return false;
  }
}

void Linker::Fail(CompileErrorCode code, string const& word) {
  if (failedNames.HasEntry(word)) return;
  failedNames.AddEntry(word, (int)code);
  failures.push_back(word);
  failureCodes.push_back((int)code);
}

RunReadyCode* Linker::ReportFailures() {
  for (unsigned long i = 0; i < failures.size() && delegate; ++i) {
    SimpleVector<string> words;
    if (failures[i].Length()) words.push_back(failures[i]);
    delegate->CompilerError(CompileError((CompileErrorCode)failureCodes[i], SourceLocation(), words));
  }
  return nullptr;
}

// Data space by first use; on IA-32 also the room for a stub per outside name.
void Linker::AssignSpace(Import const& import) {
  if (IsCall(import.type)) {
    if (merged.HasEntry(import.name)) return;
    if (!ppc) {
      if (outsideCalls.HasEntry(import.name)) return;
      outsideCalls.AddEntry(import.name, 0);
      ++outsideCallCount;
    } else if (!codeSlots.HasEntry(import.name)) {
      codeSlots.AddEntry(import.name, dataSize);
      dataSize += 4;
    }
  } else if (IsGlobal(import.type)) {
    if (dataOffsets.HasEntry(import.name)) return;
    unsigned int size = 0;
    if (!module->globalSizes.GetEntry(import.name, size)) {
      Fail(UnknownName, import.name);
      return;
    }
    dataOffsets.AddEntry(import.name, dataSize);
    dataSize += size;
  } else if (IsPPCCodePointer(import.type) || import.type == Import::kCodePtrIA32) {
    if (ppc && !codeSlots.HasEntry(import.name)) {
      codeSlots.AddEntry(import.name, dataSize);
      dataSize += 8;
    }
  } else if (IsString(import.type)) {
    if (stringSlots.HasEntry(import.name)) return;
    stringSlots.AddEntry(import.name, ppc ? dataSize : strings.size());
    if (ppc) dataSize += 4;
    strings.push_back(import.name);
  }
}

bool Linker::LookUpOutside(string const& name, void*& address) {
  address = nullptr;
  if (table && table->GetEntry(name, address) && address) return true;
  Fail(UnknownName, name);
  return false;
}

// Appends the stub of an outside function, once per name. On PowerPC the
// stub's import, which fills in the function's slot, is reached later in
// the walk; an IA-32 stub is complete at once, as the mapping is known.
unsigned int Linker::StubFor(string const& name, void* address) {
  string stubName = string(kStubPrefix) + name;
  unsigned int target = 0;
  if (merged.GetEntry(stubName, target)) return target;
  target = block->Length();
  merged.AddEntry(stubName, target);
  if (ppc) {
    for (uint32_t word : kPPCStub) block->Append32(word);
    block->MarkImport(Import::kCodePtrPPC, name, (int)target - (int)block->Length());
  } else {
    block->Append8(kStubJumpOpcode);
    block->Append8(kStubJumpModRM);
    block->Append32((uint32_t)(CodeBase() + target + kStubTargetOffset));
    block->Append32((uint32_t)(uintptr_t)address);
  }
  return target;
}

void Linker::ResolveCallPPC(Import const& import) {
  unsigned int target = 0;
  bool direct = false;
  if (merged.GetEntry(import.name, target)) {
    direct = !(import.name == kPointerGlueName) && !IsStubName(import.name);
  } else {
    void* outside = nullptr;
    if (!LookUpOutside(import.name, outside)) return;
    target = StubFor(import.name, outside);
  }
  int32_t distance = (int32_t)target - import.offset;
  OrWord(import.offset, (uint32_t)distance & kPPCDisplacementMask);
  unsigned int next = (unsigned int)import.offset + 4;
  if (direct && block->Get32(next) == kPPCRestoreTOC) block->Set32(next, kPPCNop);
}

// A rel32 counts from the end of its field: the field is the call's last word.
void Linker::ResolveCall(Import const& import) {
  if (ppc) {
    ResolveCallPPC(import);
    return;
  }
  unsigned int next = (unsigned int)import.offset + 4;
  unsigned int target = 0;
  if (!merged.GetEntry(import.name, target)) {
    void* outside = nullptr;
    if (!LookUpOutside(import.name, outside)) return;
    uintptr_t from = CodeBase() + next;
    if (Rel32Reaches(from, (uintptr_t)outside)) {
      block->Set32((unsigned int)import.offset, (uint32_t)((uintptr_t)outside - from));
      return;
    }
    target = StubFor(import.name, outside);
  }
  block->Set32((unsigned int)import.offset, (uint32_t)(target - next));
}

void Linker::ResolveGlobal(Import const& import) {
  unsigned long offset = 0;
  if (!dataOffsets.GetEntry(import.name, offset)) return;  // reported by AssignSpace
  if (ppc) OrWord(import.offset, (uint32_t)offset & 0xffff);
  else block->Set32((unsigned int)import.offset, (uint32_t)((uintptr_t)data + offset));
}

void Linker::ResolveCodePointer(Import const& import) {
  bool inside = merged.HasEntry(import.name);
  void* outside = nullptr;
  if (!inside && !LookUpOutside(import.name, outside)) return;
  if (!ppc) {
    unsigned int offset = 0;
    merged.GetEntry(import.name, offset);
    uintptr_t address = inside ? CodeBase() + offset : (uintptr_t)outside;
    block->Set32((unsigned int)import.offset, (uint32_t)address);
    return;
  }
  unsigned long slot = 0;
  codeSlots.GetEntry(import.name, slot);
  if (!inside) {
    // An outside function comes as a pointer to its two-word entry: load it.
    uint32_t word = (uint32_t)block->Get32((unsigned int)import.offset);
    block->Set32((unsigned int)import.offset, (word & 0x3ffffff) | kPPCLoadFromLow);
  }
  OrWord(import.offset, (uint32_t)slot & 0xffff);
}

void Linker::ResolveString(Import const& import) {
  unsigned long slot = 0;
  stringSlots.GetEntry(import.name, slot);
  if (ppc) OrWord(import.offset, (uint32_t)slot & 0xffff);
  else block->Set32((unsigned int)import.offset, (uint32_t)(uintptr_t)strings[slot].Storage());
}

// Patches one import.
void Linker::Resolve(Import const& import) {
  if (IsUnsupported(import.type)) Fail(CodeBufferFull, string());
  else if (IsCall(import.type)) ResolveCall(import);
  else if (IsGlobal(import.type)) ResolveGlobal(import);
  else if (IsPPCCodePointer(import.type) || import.type == Import::kCodePtrIA32) ResolveCodePointer(import);
  else if (IsString(import.type)) ResolveString(import);
}

// The block's address is fixed before its fix-ups are made: calls to the
// library and pointers to the block's own functions depend on it.
bool Linker::MapIA32Code() {
  image = new CodeMapping(block->Length() + outsideCallCount * (unsigned int)kIA32StubSize);
  return image->Valid();
}

bool Linker::PlaceIA32Code() {
  return image->Write(0, block->Buffer(), block->Length()) && image->Seal();
}

RunReadyCode* Linker::Link() {
  PrepareCodeModule(module);
  block = MergeModuleFunctions(module, &merged);
  for (unsigned long i = 0; i < block->imports.size(); ++i) AssignSpace(block->imports[i]);
  data = new char[dataSize]();
  if (!ppc && !MapIA32Code()) {
    Fail(CodeBufferFull, string());
    return ReportFailures();
  }
  // PowerPC stubs add imports as the walk goes: the size is read on every
  // step, and each import is copied out before the list can move.
  for (unsigned long i = 0; i < block->imports.size(); ++i) {
    Import import = block->imports[i];
    Resolve(import);
  }
  if (failures.size()) return ReportFailures();
  void* codeAddress = block->Buffer();
  if (!ppc) {
    if (!PlaceIA32Code()) {
      Fail(CodeBufferFull, string());
      return ReportFailures();
    }
    codeAddress = image->Address();
  } else {
    PokeInStringPointers(data, &stringSlots);
  }
  PokeInCodePointers(module->family, data, &codeSlots, codeAddress, &merged, table);
  auto* linked = new RunReadyCode(block, data, (int)dataSize, strings, image);
  data = nullptr;
  image = nullptr;
  BuildHandlerTable(module, block, &linked->handlers);
  return linked;
}

}  // namespace

RunReadyCode* MiniLink(Ref<CodeModule> module, StringMap<void*>* table, CompilerDelegate* delegate) {
  if (!module || (module->family != CodeModule::kFamilyIA32 && module->family != CodeModule::kFamilyPPC)) {
    if (delegate) delegate->CompilerError(CompileError(CodeBufferFull, SourceLocation()));
    return nullptr;
  }
  Linker linker(module, table, delegate);
  return linker.Link();
}
