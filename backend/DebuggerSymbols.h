// The record a debugger reads: variables of functions, classes and modules,
// and the line of each code offset. Made only when debug information is asked
// for. Its tables and line indices are filled by the debugger-symbols work;
// for now the record exists so that the driver can carry the request.
#pragma once

class DebuggerSymbols {
public:
  virtual ~DebuggerSymbols() = default;
};
