// The linked, runnable image of one compiled script.
//
// A RunReadyCode is made by the linker from a compiled module and can be run
// any number of times, one run at a time. Each run brackets the script with
// the run-time correspondent (InitKvScriptRuntime ... ExitKvScriptRuntime).
#pragma once

class KvScriptCorrespondent;

class RunReadyCode {
public:
  RunReadyCode() = default;
  virtual ~RunReadyCode();

  // Runs the image with `correspondent` hearing what the script says.
  void Run(KvScriptCorrespondent* correspondent);

private:
  RunReadyCode(RunReadyCode const&) = delete;
  RunReadyCode& operator=(RunReadyCode const&) = delete;
};
