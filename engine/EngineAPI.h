// What a host tool needs of the engine beyond the plug-in entry and the
// KvScript class it registers: the limits a host must respect and the values
// of the State property.
#pragma once

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
