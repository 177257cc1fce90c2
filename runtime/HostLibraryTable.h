// The functions of the script library that the host application provides:
// for each, the name the host knows its entry by and the declaration that
// scripts see. Every script object registers all rows, in this order, as
// host methods without a context (KvScriptInstallRuntime).
//
// A row whose declaration has `Extends` before its first parameter repeats
// the row before it with the same entry, so that `s.Left(2)` works as well
// as `Left(s, 2)`.
#pragma once

struct HostLibraryFunction {
  char const* entryName;
  char const* declaration;
};

constexpr int kHostLibraryFunctionCount = 94;
extern HostLibraryFunction const kHostLibraryTable[kHostLibraryFunctionCount];
