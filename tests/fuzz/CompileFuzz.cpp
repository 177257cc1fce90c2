// Whole compilations of arbitrary bytes, as a host would start them: the
// source goes in through SetSource and Precompile runs the miner, the parser
// and whatever follows. Beside the sanitizers' findings it checks that a
// compile gives back every counted block it took.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/KVScriptInterface.h"
#include "foundation/TextEncodingUtil.h"
#include "foundation/Utility.h"

namespace {

// Counts errors, so that the reports are exercised too.
class CountingEngine : public KVScriptInterface {
public:
  void CompilerError(CompileErrorCode, unsigned long) override { ++errors; }
  using KVScriptInterface::CompilerError;
  long errors = 0;
};

void CompileOnce(char const* text, unsigned long length) {
  CountingEngine engine;
  engine.SetSource(text, length);
  engine.Precompile();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  // The first compile of a process makes the shared values that live on.
  static bool warmed = false;
  if (!warmed) {
    warmed = true;
    CompileOnce("Dim a As Integer\n", 17);
  }
  long before = gTotalAllocLen;
  // The engine refuses a text with a NUL outright; the bytes up to the first
  // one still make a script, and reach the compiler.
  auto const* text = reinterpret_cast<char const*>(data);
  CompileOnce(text, (unsigned long)strnlen(text, size));
  ClearConvertEncodingCache();
  if (gTotalAllocLen != before) {
    fprintf(stderr, "compile leaked %ld counted bytes\n", gTotalAllocLen - before);
    abort();
  }
  return 0;
}
