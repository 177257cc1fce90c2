// The mini-linker, and the linked, runnable image of one compiled script.
//
// MiniLink lays a CodeModule's functions end to end in one block ("% main"
// first, so the image starts at offset 0), gives every global its place in
// one zeroed data area, gives each distinct string literal one record, and
// patches every Import. Nothing is relocated afterwards: the code holds
// absolute addresses of the data area, the literals and the library.
//
// IA-32 code calls the library straight: the code memory is mapped before
// the fix-ups are made, so a call's rel32 is known from where it will run.
// A stub (one per name) stands in only for a function out of a rel32's
// reach. PowerPC calls every outside function through a stub, which loads
// the callee's transition vector.
//
// Invariants:
// - Code memory is mapped writable, filled and patched, then switched to
//   read+execute by CodeMapping. It is never writable and executable at
//   once, and never writable again.
// - A RunReadyCode's `strings` hold a reference on every literal record, as
//   the code holds their raw addresses.
// - Run saves the data area before the script runs and puts it back after,
//   so every run starts from the data the linker laid down.
// - Run sets the run state up for its script and gives the one it found
//   back (RunStateScope, runtime/RunState.h), so another image may run
//   from inside the script's call-outs.
// - A name that resolves nowhere never becomes an address: the link fails.
// - The handler table holds every function of the module, in image order,
//   with its handler events and raise lines; the stubs behind belong to
//   none, so a return address there has no handler.
#pragma once

#include <cstdint>

#include "backend/CodeStorage.h"
#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "foundation/String.h"
#include "foundation/StringMap.h"
#include "runtime/RuntimeExceptionFoundation.h"

class CompilerDelegate;
class KvScriptCorrespondent;

// Names the linker makes. A stub stands for an outside function; the glue
// makes a PowerPC call through a function pointer.
constexpr char kStubPrefix[] = "%__glink.";
constexpr char kPointerGlueName[] = "%__ptr_glue";

// IA-32 stub: FF 25 disp32, jmp [disp32], through the word right behind it
// that holds the function's address. It uses no register and no stack, so
// arguments and results pass through untouched, and the return address
// stays the caller's, so returns are predicted.
constexpr uint8_t kStubJumpOpcode = 0xFF;
constexpr uint8_t kStubJumpModRM = 0x25;  // mod 0, /4, rm 5: an absolute address
constexpr int32_t kStubSlotAddressOffset = 2;
constexpr int32_t kStubTargetOffset = 6;
constexpr int32_t kIA32StubSize = 10;

// Whether a rel32 at `next` (the address behind the call) reaches `target`.
// 32-bit code adds the displacement to eip modulo 2^32, so there every
// address is in reach; a wider address space would limit it to +-2 GiB.
bool Rel32Reaches(uintptr_t next, uintptr_t target);

// PowerPC words that the linker writes or recognises.
constexpr uint32_t kPPCRestoreTOC = 0x80410014;  // lwz r2,20(r1), behind a bl
constexpr uint32_t kPPCNop = 0x60000000;
constexpr uint32_t kPPCDisplacementMask = 0x3fffffc;
constexpr uint32_t kPPCLoadFromLow = 0x80000000;  // turns an addi/ori into a lwz
constexpr uint32_t kPPCStub[] = {0x81820000, 0x90410014, 0x800c0000,
                                 0x804c0004, 0x7c0903a6, 0x4e800420};
constexpr uint32_t kPPCPointerGlue[] = {0x800c0000, 0x90410014, 0x7c0903a6, 0x804c0004,
                                        0x4e800420};

// Memory for code that will run. Made writable; Seal turns it read+execute
// for good. The only place in the engine that asks the system for such memory.
class CodeMapping {
public:
  // At least one page is mapped, so an empty image still has an address.
  explicit CodeMapping(unsigned int length);
  ~CodeMapping();
  CodeMapping(CodeMapping const&) = delete;
  CodeMapping& operator=(CodeMapping const&) = delete;

  // False when the system refused the memory.
  bool Valid() const { return mAddress != nullptr; }
  char* Address() const { return mAddress; }
  unsigned int Length() const { return mLength; }
  bool Sealed() const { return mSealed; }
  // Copies `count` bytes to `offset`; refused (false) once sealed or outside the mapping.
  bool Write(unsigned int offset, char const* bytes, unsigned int count);
  // Read+execute from here on; false if the system refused the change, and
  // then the memory is left unusable rather than writable and executable.
  bool Seal();

private:
  char* mAddress;
  unsigned int mLength;
  unsigned int mMappedLength;
  bool mSealed;
};

class RunReadyCode {
public:
  // An image with no code: Run only brackets the correspondent.
  RunReadyCode();
  // Takes over `dataArea` (from array new) and `image`, copies the literals.
  // A null `image` means the code is kept but not run (a foreign family).
  RunReadyCode(Ref<FunctionBlock> block, char* dataArea, int dataAreaLength,
               SimpleVector<string> const& literals, CodeMapping* image = nullptr);
  virtual ~RunReadyCode();
  RunReadyCode(RunReadyCode const&) = delete;
  RunReadyCode& operator=(RunReadyCode const&) = delete;

  // Runs the image with `correspondent` hearing what the script says. The
  // caller keeps the image alive until Run returns, whatever the script's
  // call-outs do. Not re-entrant: an overlapping run of one image would put
  // its data back under the other (check builds stop there).
  // `stackLimit`: the host's lowest stack address for the script, or 0.
  void Run(KvScriptCorrespondent* correspondent, uintptr_t stackLimit = 0);

  // Where the code runs from; null for an image without executable code.
  char* CodeAddress() const { return image ? image->Address() : nullptr; }

  char* data;
  int32_t dataLength;
  Ref<FunctionBlock> code;
  // Where the image's handlers and raise lines are, by code offset.
  HandlerTable handlers;
  SimpleVector<string> strings;
  CodeMapping* image;

private:
  bool mRunning = false;
};

// Links `module` against `table` (link name to address). Null when the link
// fails: a name that is neither in the module nor in the table, a global
// with no recorded size, a fix-up this linker cannot make, or no code memory.
// Each failure goes to `delegate`, if any, as a compile error with an
// unknown location; a name is reported once however often it is used.
RunReadyCode* MiniLink(Ref<CodeModule> module, StringMap<void*>* table,
                       CompilerDelegate* delegate = nullptr);

// The stages of MiniLink.
// For PowerPC, appends the pointer glue as a function; nothing for IA-32.
void PrepareCodeModule(Ref<CodeModule> module);
// One block of all functions in order; `merged` gets each one's offset.
Ref<FunctionBlock> MergeModuleFunctions(Ref<CodeModule> module, StringMap<unsigned int>* merged);
// The handler table of a block merged from `module`'s functions.
void BuildHandlerTable(Ref<CodeModule> module, Ref<FunctionBlock> block, HandlerTable* table);
// PowerPC: fills each literal's data slot with its record's address.
void PokeInStringPointers(char* dataArea, StringMap<unsigned long>* stringSlots);
// PowerPC: fills each function slot with its transition vector (code
// address, data area) or the table's address.
void PokeInCodePointers(CodeModule::Family family, char* dataArea,
                        StringMap<unsigned long>* codeSlots, void* codeAddress,
                        StringMap<unsigned int>* merged, StringMap<void*>* table);
