// What a host tool needs of the engine beyond the plug-in entry and the
// KvScript class it registers: the limits a host must respect, the names of
// compile error numbers, a look at what a script compiles to, and the counts
// behind a leak check. Everything here is a plain function of host records,
// so a tool never reaches behind a KvScript object into the engine.
//
// Threads: one thread at a time uses the engine, and in practice the first
// one that compiles or runs: a compile's state and a run's state are
// process-wide, and a script runs on the caller's stack. Check builds stop
// at a compile or run from another thread. Scripts of several KvScript
// objects may compile and run in turn on that thread, and one object's
// event handler may run another object's script.
#pragma once

#include "engine/PluginMain.h"
#include "foundation/String.h"

// The longest source text the engine takes, in bytes. A script is read whole
// into memory and then copied once, and a compile needs several times the
// text again; 64 MiB is a thousand times any script written by hand, and
// still leaves a 32-bit process room to compile it. A longer text set as
// Source is refused: its compile reports SourceTooLarge on line 0.
constexpr unsigned long kMaxSourceLength = 64ul * 1024 * 1024;

// The values of a KvScript object's State property.
enum ScriptState {
  ScriptStateIdle = 0,
  ScriptStateRunning = 1,
  ScriptStateComplete = 2,
  ScriptStateError = 3,
};

// The name of a compile error number as the CompilerError event reports it
// ("SyntaxError"), or null for a number that names no error.
char const* CompileErrorNameOf(long errorNumber);

// Compiles the Source of a KvScript object as Precompile would, without
// keeping code, and fills `listing` with its three-address code. Errors go
// to the object's CompilerError event as usual. False when the source did
// not compile. `script` must be a KvScript object or null.
bool KvScriptListing(VELDobjectStruct* script, string* listing);

// True when the KvScript object (or null) holds linked code, ready to run.
bool KvScriptHasLinkedCode(VELDobjectStruct* script);
// While a RuntimeError event is being delivered for an unhandled script
// exception: the name of the exception's own class (a script's class that
// the host cannot know, such as `Fatal`, included); null otherwise.
char const* KvScriptUnhandledExceptionClass();

// A leak check compares the counted bytes before and after a run. The first
// compile of a process makes values that every later one shares and that
// live until the process ends; WarmUpSharedValues makes them, so they fall
// outside the comparison. CountedBytes first drops what caches keep for
// reuse, so only what a run failed to give back remains.
void WarmUpSharedValues();
long CountedBytes();
