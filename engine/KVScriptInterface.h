// The engine behind one script object.
//
// - KvScriptCorrespondent (runtime/RunState.h): what the run-time library
//   calls (print, input, error, yield).
// - KVScriptInterface: the host-independent engine. It owns the source, the
//   linked image and the registered host callbacks, compiles on demand and
//   runs the image. It is the compiler's delegate, and the correspondent
//   (runtime/RunState.h) through which its running script talks back.
// - KVInterpreter: the engine bound to one host object, turning the
//   correspondent's calls into that object's events.
//
// One thread uses the engine: every engine object, and every compile and
// run, belongs to the thread that first compiled or ran a script (check
// builds assert it), since the compiler's and the run-time's state is
// process-wide.
//
// Re-entry. A running script calls out (Print, Input, host methods), and
// the host's code may call back into any engine while it is inside:
// - The running image lives until Run returns, whatever the call-out does:
//   Run holds its own reference on it, so ForceCompile (SetSource,
//   SetContext, the host callbacks) only drops the engine's reference.
// - Run and PartialRun of an engine that is running do nothing: the image's
//   data area is put back when a run ends, which would undo the outer run.
// - Precompile during a run compiles the source if the image was dropped,
//   and the new image becomes current at once; the running one still runs
//   to its end. Unchanged, the image stays current and nothing is compiled.
// - Another engine may compile and run in the call-out: the run state and
//   the compiler's globals are set aside around it and given back.
// - During a compile (an error event's handler), Precompile and
//   ListThreeAddressCode of the same engine do nothing; SetSource leaves the
//   text under compilation alive until that compile ends, and a compile
//   during which ForceCompile ran keeps no image.
//
// Invariants:
// - mSource is null, or text that ends in a line feed and a NUL: a private
//   copy, or a shared empty text when there is none worth keeping.
// - While mSourceFault is set, no compile reads mSource: each reports the
//   fault instead.
// - mCode is null exactly when nothing usable is compiled; everything that
//   changes what the compiler would see goes through ForceCompile.
// - Virtual slots are in a fixed order (the vtable is a contract with the
//   host's view of the engine): do not reorder the declarations below.
#pragma once

#include "diag/CompilerDelegate.h"
#include "engine/EngineAPI.h"
#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "diag/CompileError.h"
#include "foundation/String.h"
#include "runtime/RunState.h"

class CodeModule;
class RunReadyCode;
class ModuleDeclaration;
struct VELDobjectStruct;

// A host function a script can call: its address and its declaration.
struct HostMethod {
  void* entry = nullptr;
  string declaration;
  // The declaration's first parameter receives the context object.
  bool hasSelf = false;
};

// A host property: get and set functions, each optional, and the value the
// host wants passed back on each call.
struct HostProperty {
  void* getter = nullptr;
  void* setter = nullptr;
  long param = 0;
  string declaration;
};

class KVScriptInterface : public KvScriptCorrespondent, public CompilerDelegate {
public:
  KVScriptInterface();

  void ScriptError(RuntimeErrorCode code, unsigned long line) override;
  void ScriptYield() override;

  virtual ~KVScriptInterface();
  // Copies `length` bytes of `text` (none when it is null), then a line feed
  // and a NUL. Discards the image. A text past kMaxSourceLength, one there is
  // no memory to copy, and one holding a NUL are not compiled: the next
  // compile reports SourceTooLarge, OutOfMemory (both on line 0) or
  // NulInSource (on the NUL's line) instead.
  virtual void SetSource(char const* text, unsigned long length);
  virtual void SetContext(void const* context);
  virtual void RegisterHostMethod(void* entry, bool hasSelf, char const* declaration);
  virtual void RegisterHostProperty(void* getter, void* setter, long param,
                                    char const* declaration);
  virtual void ClearHostCallbacks();
  // Compiles and links the source unless there is none or the image is current.
  virtual void Precompile();
  virtual void Run();
  // Runs nothing: there is no time slicing. Always false ("not finished").
  virtual bool PartialRun(unsigned long milliseconds);
  virtual void CompilerError(CompileErrorCode code, unsigned long line);
  virtual void RuntimeError(RuntimeErrorCode code, unsigned long line);
  virtual void YieldToOtherThreads();
  virtual unsigned long GetStackLimit();
  virtual void SetStackLimit(unsigned long limit);
  virtual void InitStackChecker(unsigned long value);
  // The compiler's report: forwarded as (code, line) and answered true.
  bool CompilerError(CompileError error) override;

  // Drops the engine's reference on the image, so the next Run or
  // Precompile compiles again; a run under way keeps its own.
  void ForceCompile();
  // Adds every registered host method and property to `module` as
  // functions. Its body needs the declaration parser, which the engine does
  // not have yet: until then it adds nothing.
  void EncodeHostCallbacks(ModuleDeclaration* module);
  // Compiles the source as Precompile would, without keeping an image, and
  // fills `listing` with its three-address code; errors go to the events as
  // usual. False if the source didn't compile.
  bool ListThreeAddressCode(string* listing);

  char const* Source() const { return mSource; }
  RunReadyCode* Code() const { return mCode.Get(); }
  void const* Context() const { return mContext; }
  // True while Run is inside: the guard against re-entry, which no host
  // property can clear.
  bool IsRunning() const { return mRunning; }
  bool IsPartial() const { return mPartial; }
  SimpleVector<HostMethod> const& HostMethods() const { return mHostMethods; }
  SimpleVector<HostProperty> const& HostProperties() const { return mHostProperties; }

protected:
  char* mSource;
  bool mRunning;
  bool mPartial;
  Ref<RunReadyCode> mCode;
  void const* mContext;
  SimpleVector<HostMethod> mHostMethods;
  SimpleVector<HostProperty> mHostProperties;
  // Why mSource is not to be compiled (kNoCompileError: it is), and the line
  // to report that at.
  CompileErrorCode mSourceFault;
  unsigned long mSourceFaultLine;

private:
  void ReleaseSource();
  // The text that the compile under way reads, or null: SetSource leaves
  // it for that compile to free.
  char const* mCompiling = nullptr;
  // Counts ForceCompile calls, so that a compile can tell that what it
  // read was changed under it.
  unsigned long mChanges = 0;

  // One compile of mSource with the library's and the host's declarations
  // in front; the module, or null after errors (reported to the events).
  Ref<CodeModule> CompileSource(string* listing);

  KVScriptInterface(KVScriptInterface const&) = delete;
  KVScriptInterface& operator=(KVScriptInterface const&) = delete;
};

class KVInterpreter : public KVScriptInterface {
public:
  KVInterpreter() : mOwner(nullptr) {}
  ~KVInterpreter() override;

  void Print(char const* text, unsigned long length) override;
  char* Input(char const* prompt, unsigned long length, unsigned long* outLength) override;
  void Run() override;
  bool PartialRun(unsigned long milliseconds) override;
  using KVScriptInterface::CompilerError;
  void CompilerError(CompileErrorCode code, unsigned long line) override;
  void RuntimeError(RuntimeErrorCode code, unsigned long line) override;
  void YieldToOtherThreads() override;
  unsigned long GetStackLimit() override;
  void SetStackLimit(unsigned long limit) override;
  void InitStackChecker(unsigned long value) override;

  // The font bracket around a run: nothing to do on this platform.
  void StorePreviousFont() {}
  void SetScriptFont() {}
  void RestorePreviousFont() {}

  // The host object that owns this engine; set once by the class
  // initializer, not counted.
  VELDobjectStruct* mOwner;

private:
  void SetOwnerState(long state);
};
