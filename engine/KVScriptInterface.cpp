#include "engine/KVScriptInterface.h"

#include <cstring>
#include <memory>
#include <new>
#include <thread>

#include "backend/CodeStorage.h"
#include "backend/MiniLinker.h"
#include "engine/Compiler.h"
#include "engine/KVScript.h"
#include "engine/PluginMain.h"
#include "foundation/KvAssert.h"
#include "foundation/Utility.h"
#include "runtime/RuntimeObjectFoundation.h"
#include "frontend/CompileScope.h"
#include "frontend/Miner.h"
#include "ir/Intrinsics.h"
#include "runtime/KVScriptIntrinsics.h"
#include "runtime/RunAbort.h"
#include "semantic/ScriptLibrary.h"
#include "frontend/SrcContext.h"
#include "semantic/DeclarationTable.h"

// ---------------------------------------------------------------------------
// The engine's thread

// Every compile and run belongs to the thread that made the first one: the
// compiler's globals and the run state are process-wide. A check, not a
// lock: check builds stop at the first call from another thread.
static void AssertEngineThread() {
#if defined(KV_CHECKS)
  static std::thread::id const sOwner = std::this_thread::get_id();
  KV_ASSERT(sOwner == std::this_thread::get_id());
#endif
}

// ---------------------------------------------------------------------------
// KVScriptInterface

KVScriptInterface::KVScriptInterface()
    : mSource(nullptr),
      mRunning(false),
      mPartial(false),
      mContext(nullptr),
      mSourceFault(kNoCompileError),
      mSourceFaultLine(0) {}

KVScriptInterface::~KVScriptInterface() {
  KV_ASSERT(!mRunning && !mCompiling);
  ReleaseSource();
}

void KVScriptInterface::ScriptError(RuntimeErrorCode code, unsigned long line) {
  RuntimeError(code, line);
}

// A yield reaches no host code: giving the host's threads time is
// YieldToOtherThreads' business, and nothing asks for it during a run.
void KVScriptInterface::ScriptYield() {}

void KVScriptInterface::ForceCompile() {
  mCode = Ref<RunReadyCode>();
  ++mChanges;
}

namespace {

// The text of a source that is not to be compiled: shared, never written.
char sNoSource[] = "\n";

// The line of `at` in `text`, counted from 0 as the lexer counts: CR, LF and
// CRLF are one line break each.
unsigned long LineOf(char const* text, char const* at) {
  unsigned long line = 0;
  for (char const* p = text; p < at; ++p) {
    if (*p == '\r' && p + 1 < at && p[1] == '\n') ++p;
    if (*p == '\r' || *p == '\n') ++line;
  }
  return line;
}

}  // namespace

// The text that a compile under way reads stays for that compile to free.
void KVScriptInterface::ReleaseSource() {
  if (mSource != sNoSource && mSource != mCompiling) delete[] mSource;
  mSource = nullptr;
}

void KVScriptInterface::SetSource(char const* text, unsigned long length) {
  ReleaseSource();
  ForceCompile();
  mSourceFault = kNoCompileError;
  mSourceFaultLine = 0;
  if (!text) length = 0;
  if (length > kMaxSourceLength) {
    mSourceFault = SourceTooLarge;
    mSource = sNoSource;
    return;
  }
  // The copy is the biggest block a compile asks for; without the room for
  // it the host hears so from the compile, as it hears of any other fault.
  char* copy = new (std::nothrow) char[length + 2];
  if (!copy) {
    mSourceFault = OutOfMemory;
    mSource = sNoSource;
    return;
  }
  if (length > 0) memcpy(copy, text, length);
  // The lexer relies on every line, the last one included, ending in a line
  // feed. A text that ends in one keeps its line count; after a bare CR the
  // feed makes a CR LF of it.
  unsigned long end = length;
  if (length == 0 || copy[length - 1] != '\n') copy[end++] = '\n';
  copy[end] = 0;
  mSource = copy;
  // The lexer would take a NUL for the end and drop the rest unread.
  if (auto const* nul = static_cast<char const*>(memchr(copy, 0, length))) {
    mSourceFault = NulInSource;
    mSourceFaultLine = LineOf(copy, nul);
  }
}

void KVScriptInterface::SetContext(void const* context) {
  ForceCompile();
  mContext = context;
}

void KVScriptInterface::RegisterHostMethod(void* entry, bool hasSelf, char const* declaration) {
  ForceCompile();
  HostMethod method;
  method.entry = entry;
  method.declaration = string(declaration);
  method.hasSelf = hasSelf;
  mHostMethods.push_back(method);
}

void KVScriptInterface::RegisterHostProperty(void* getter, void* setter, long param,
                                             char const* declaration) {
  ForceCompile();
  HostProperty property;
  property.getter = getter;
  property.setter = setter;
  property.param = param;
  property.declaration = string(declaration);
  mHostProperties.push_back(property);
}

void KVScriptInterface::ClearHostCallbacks() {
  ForceCompile();
  mHostMethods.deleteAll();
  mHostProperties.deleteAll();
}

namespace {

// Host functions can't hand objects back to a script.
bool IsRefusedHostType(IRDataType const& type) {
  return type.GetMainType() == kTypeObject || type.GetMainType() == kTypeClassRef;
}

// Nor take them: a script's object is a run-time object, not a host object,
// whether it comes plain, in an array or by reference.
bool IsRefusedParameterType(IRDataType type) {
  while (type.GetMainType() == kTypeArray || type.GetMainType() == kTypeReference)
    type = type.AsElement();
  return IsRefusedHostType(type);
}

// Whether a host method can be called as declared. With `hasSelf` its first
// parameter stands for the context, so it must have one; that parameter's
// declared type is replaced and not checked.
bool IsCallableHostMethod(FunctionDeclaration* method, bool hasSelf) {
  if (IsRefusedHostType(method->GetType())) return false;
  unsigned count = method->CountParameters();
  if (hasSelf && count == 0) return false;
  for (unsigned i = hasSelf ? 1 : 0; i < count; ++i)
    if (IsRefusedParameterType(method->GetParameter(i)->GetType())) return false;
  return true;
}

// A parameter the script never passes: the call supplies `value` itself.
ParameterDeclaration* HiddenIntegerParameter(char const* name, long value) {
  ParameterDeclaration* p = ParameterDeclaration::New();
  p->SetName(string(name));
  p->SetType(IRDataType(kTypeInteger));
  p->SetMode(ParameterDeclaration::kParamHidden);
  p->SetDefaultValue(IRValue::SInt32(value));
  return p;
}

// A function at a host address, called directly with the host's arguments.
FunctionDeclaration* HostFunction(string name, IRDataType const& result, void* entry) {
  FunctionDeclaration* f = FunctionDeclaration::New();
  f->SetName(name);
  f->SetBaseName(name);
  f->SetType(result);
  f->SetDispatchMethod(FunctionDeclaration::kDispatchHardCoded);
  f->SetDispatchID((int32_t)reinterpret_cast<intptr_t>(entry));
  return f;
}

}  // namespace

void KVScriptInterface::EncodeHostCallbacks(ModuleDeclaration* module) {
  if (!module) return;
  // The declaration reader needs a compilation context of its own.
  CompileScope scope;
  // The context's address travels as a script Integer: 32 bits.
  static_assert(sizeof(void const*) == sizeof(int32_t), "a host address must fit an Integer");
  long self = (long)reinterpret_cast<intptr_t>(mContext);
  for (unsigned long i = 0; i < mHostMethods.size(); ++i) {
    HostMethod const& item = mHostMethods[i];
    FunctionDeclaration* method = ExtractMethodDeclaration(item.declaration, nullptr);
    if (!method) continue;
    if (!IsCallableHostMethod(method, item.hasSelf)) {
      delete method;  // never added, so never locked: its maker deletes it
      continue;
    }
    method->SetDispatchMethod(FunctionDeclaration::kDispatchHardCoded);
    method->SetDispatchID((int32_t)reinterpret_cast<intptr_t>(item.entry));
    if (item.hasSelf) {
      ParameterDeclaration* first = method->GetParameter(0);
      first->SetName(string("self"));
      first->SetType(IRDataType(kTypeInteger));
      first->SetMode(ParameterDeclaration::kParamHidden);
      first->SetDefaultValue(IRValue::SInt32(self));
    }
    module->AddMethod(method);
  }
  for (unsigned long i = 0; i < mHostProperties.size(); ++i) {
    HostProperty const& item = mHostProperties[i];
    PropertyDeclaration* property = ExtractPropertyDeclaration(item.declaration);
    if (!property) continue;
    if (!IsRefusedHostType(property->GetType())) {
      // A getter takes (self, param); a setter (self, param, value).
      if (item.getter) {
        FunctionDeclaration* get = HostFunction(property->GetName(), property->GetType(), item.getter);
        get->AddParameter(HiddenIntegerParameter("self", self));
        get->AddParameter(HiddenIntegerParameter("param", item.param));
        module->AddMethod(get);
      }
      if (item.setter) {
        FunctionDeclaration* set = HostFunction(property->GetName(), IRDataType(), item.setter);
        set->AddParameter(HiddenIntegerParameter("self", self));
        set->AddParameter(HiddenIntegerParameter("param", item.param));
        ParameterDeclaration* value = ParameterDeclaration::New();
        value->SetName(string("value"));
        value->SetType(property->GetType());
        value->SetDesignator(ParameterDeclaration::kDesignatorAssigns);
        set->AddParameter(value);
        module->AddMethod(set);
      }
    }
    delete property;  // it only lent its name and type
  }
}

Ref<CodeModule> KVScriptInterface::CompileSource(string* listing) {
  if (mSourceFault != kNoCompileError) {
    CompilerError(mSourceFault, mSourceFaultLine);
    return Ref<CodeModule>();
  }
  Compiler compiler;
  compiler.intrinsics = IntrinsicFunctionNames();
  compiler.targetFamily = kTargetIA32;
  compiler.listing = listing;
  // The script library's declarations, with the host's callbacks encoded
  // into them; the lock keeps the module, and everything merged into it,
  // until the compile is over.
  struct PrefixLock {
    ModuleDeclaration* module;
    ~PrefixLock() {
      module->Unlink();
      module->Unlock();
    }
  } prefix{MakeKvScriptRuntimeDeclarations()};
  prefix.module->Lock();
  EncodeHostCallbacks(prefix.module);
  compiler.SetPrefix(prefix.module);
  compiler.SetDelegate(this);
  // The errors go to the events, whose handlers may set another source:
  // the text under compilation stays until the compile is over, on every
  // path out of it.
  struct CompilingText {
    KVScriptInterface* engine;
    char* source;
    ~CompilingText() {
      engine->mCompiling = nullptr;
      if (engine->mSource != source && source != sNoSource) delete[] source;
    }
  } text{this, mSource};
  mCompiling = mSource;
  return compiler.Compile(text.source);
}

// A host must never see a C++ exception. The engine throws none of its
// own, but operator new throws when memory runs out, anywhere in a compile;
// the two compile entries below catch that and report OutOfMemory instead.
// The compilation's scopes free what it built on the way out, so the report
// finds memory again.
void KVScriptInterface::Precompile() {
  AssertEngineThread();
  if (!mSource || mCode || mCompiling) return;
  try {
    unsigned long changes = mChanges;
    Ref<CodeModule> module = CompileSource(nullptr);
    // Whatever the compile read was changed by an event's handler meanwhile.
    if (!module || changes != mChanges) return;
    // A name that resolves nowhere fails the link, reported like a compile
    // error; mCode then stays null and Run executes nothing.
    std::unique_ptr<StringMap<void*>> table(MakeKvScriptRuntimeFunctionTable());
    RunReadyCode* linked = MiniLink(module, table.get(), this);
    if (linked && changes == mChanges) mCode.BindNewObject(linked);
    else delete linked;
  } catch (std::bad_alloc const&) {
    CompilerError(OutOfMemory, 0);
  }
}

bool KVScriptInterface::ListThreeAddressCode(string* listing) {
  AssertEngineThread();
  if (!mSource || !listing || mCompiling) return false;
  *listing = string();
  try {
    return (bool)CompileSource(listing);
  } catch (std::bad_alloc const&) {
    CompilerError(OutOfMemory, 0);
    return false;
  }
}

void KVScriptInterface::Run() {
  AssertEngineThread();
  // A second run of one image would put its data area back under the first.
  if (mRunning) return;
  mRunning = true;
  mPartial = false;
  if (!mCode) Precompile();
  // The script's call-outs may drop mCode; this reference keeps the image
  // mapped until the script has returned.
  Ref<RunReadyCode> running = mCode;
  if (running) running->Run(this, (uintptr_t)GetStackLimit());
  mRunning = false;
}

bool KVScriptInterface::PartialRun(unsigned long) {
  AssertEngineThread();
  if (mRunning) return false;
  mRunning = true;
  mPartial = true;
  mRunning = false;
  return false;
}

void KVScriptInterface::CompilerError(CompileErrorCode, unsigned long) {}
void KVScriptInterface::RuntimeError(RuntimeErrorCode, unsigned long) {}
void KVScriptInterface::YieldToOtherThreads() {}
unsigned long KVScriptInterface::GetStackLimit() { return 0; }
void KVScriptInterface::SetStackLimit(unsigned long) {}
void KVScriptInterface::InitStackChecker(unsigned long) {}

bool KVScriptInterface::CompilerError(CompileError error) {
  // A link error has no place in the text; the host sees it on line 0.
  long line = error.Location().startLine;
  CompilerError(error.Type(), (unsigned long)(line < 0 ? 0 : line));
  return true;
}

// ---------------------------------------------------------------------------
// KVInterpreter: the correspondent's calls become the owner's events

static constexpr char kCompileErrorMessage[] = "Error found while compiling";

KVInterpreter::~KVInterpreter() = default;

void KVInterpreter::SetOwnerState(long state) {
  if (mOwner) KvScriptDataOf(mOwner)->State = state;
}

void KVInterpreter::Run() {
  StorePreviousFont();
  SetScriptFont();
  KVScriptInterface::Run();
  RestorePreviousFont();
}

bool KVInterpreter::PartialRun(unsigned long milliseconds) {
  StorePreviousFont();
  SetScriptFont();
  bool finished = KVScriptInterface::PartialRun(milliseconds);
  RestorePreviousFont();
  return finished;
}

static VELDstringStruct* BuildUTF8String(char const* text, unsigned long length) {
  VELDstringStruct* s = VELDBuildString(text, (int)length);
  VELDSetStringEncoding(s, kEncodingUTF8);
  return s;
}

void KVInterpreter::Print(char const* text, unsigned long length) {
  auto handler = reinterpret_cast<KvScriptPrintHandler>(
      VELDGetEventInstance(mOwner, &KvScriptEvents[kKvScriptPrintEvent]));
  if (!handler) return;
  VELDstringStruct* message = BuildUTF8String(text, length);
  handler(mOwner, message);
  VELDUnlockString(message);
  // The handler may have changed the font.
  SetScriptFont();
}

char* KVInterpreter::Input(char const* prompt, unsigned long length, unsigned long* outLength) {
  auto handler = reinterpret_cast<KvScriptInputHandler>(
      VELDGetEventInstance(mOwner, &KvScriptEvents[kKvScriptInputEvent]));
  if (!handler) {
    if (outLength) *outLength = 0;
    return nullptr;
  }
  VELDstringStruct* promptString = BuildUTF8String(prompt, length);
  VELDstringStruct* answer = handler(mOwner, promptString);
  VELDstringStruct* converted = VELDConvertString(answer, kEncodingUTF8);
  VELDUnlockString(answer);
  unsigned long received = (unsigned long)VELDstringStruct::Length(converted);
  if (outLength) *outLength = received;
  char* buffer = nullptr;
  if (received != 0) {
    buffer = new char[received];
    umemcpy(buffer, VELDstringStruct::CString(converted), (int)received);
  }
  VELDUnlockString(promptString);
  VELDUnlockString(converted);
  SetScriptFont();
  return buffer;
}

void KVInterpreter::CompilerError(CompileErrorCode code, unsigned long line) {
  auto handler = reinterpret_cast<KvScriptCompilerErrorHandler>(
      VELDGetEventInstance(mOwner, &KvScriptEvents[kKvScriptCompilerErrorEvent]));
  if (handler) {
    VELDstringStruct* message =
        VELDBuildString(kCompileErrorMessage, (int)sizeof(kCompileErrorMessage) - 1);
    handler(mOwner, (long)line, (long)code, message);
    VELDUnlockString(message);
  }
  SetOwnerState(ScriptStateError);
}

// The host's exception class that stands for a run-time error code.
static char const* RuntimeErrorClassName(RuntimeErrorCode code) {
  switch (code) {
    case kRuntimeErrorStackOverflow:
    case kRuntimeErrorStackLimit:
      return "stackOverflowException";
    case kRuntimeErrorOutOfBounds:
      return "OutOfBoundsException";
    default:
      return "RuntimeException";
  }
}

void KVInterpreter::RuntimeError(RuntimeErrorCode code, unsigned long line) {
  auto handler = reinterpret_cast<KvScriptRuntimeErrorHandler>(
      VELDGetEventInstance(mOwner, &KvScriptEvents[kKvScriptRuntimeErrorEvent]));
  if (handler) {
    // The host may know the script's exception class by its own name.
    char const* raised = code == kRuntimeErrorUnhandledException ? UnhandledExceptionClassName() : nullptr;
    VELDobjectStruct* error = raised ? VELDnewInstance(raised) : nullptr;
    if (!error) error = VELDnewInstance(RuntimeErrorClassName(code));
    handler(mOwner, (long)line, error);
    VELDUnlockObject(error);
  }
  if (mOwner) KvScriptDataOf(mOwner)->CurrentLineNumber = (long)line;
  SetOwnerState(ScriptStateError);
}

void KVInterpreter::YieldToOtherThreads() { VELDYieldToKV(); }
unsigned long KVInterpreter::GetStackLimit() { return VELDGetStackLimit(); }
void KVInterpreter::SetStackLimit(unsigned long limit) { VELDSetStackLimit(limit); }
void KVInterpreter::InitStackChecker(unsigned long value) { VELDInitStackChecker(value); }
