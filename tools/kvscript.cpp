// kvscript: runs a script through the engine as a host application would,
// with the stand-in host in the host's place.
//
//   kvscript FILE        run the script in FILE
//   kvscript -           run the script read from standard input
//   kvscript -e TEXT     run TEXT
//   kvscript --tac ...   print the script's three-address code instead
//
// Print writes a line to standard output, Input reads one from standard
// input; compile and run-time errors go to standard error, one line each.
// The exit status is 0 when the script completed, 1 after compile errors
// (nothing runs then), 2 after an unhandled script exception, and 64 for a
// command-line or file problem.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "engine/KVScript.h"
#include "engine/KVScriptInterface.h"
#include "engine/PluginMain.h"
#include "engine/Compiler.h"
#include "foundation/TextEncodingUtil.h"
#include "foundation/Utility.h"
#include "diag/CompileError.h"
#include "host/StandInHost.h"

namespace {

constexpr char kVersion[] = "kvscript 0.1";
constexpr int kExitCompileError = 1;
constexpr int kExitRuntimeError = 2;
constexpr int kExitUsage = 64;
// Only with KVSCRIPT_LEAK_CHECK: the run did not give back what it took.
constexpr int kExitLeak = 70;

void PrintUsage(FILE* out) {
  fprintf(out,
          "usage: kvscript [--tac] FILE | - | -e TEXT\n"
          "       kvscript --help | --version\n"
          "\n"
          "Compiles the script to native code and runs it. Print writes to standard\n"
          "output; Input reads a line from standard input. --tac prints the\n"
          "three-address code the script compiles to instead of running it.\n"
          "Exit status: 0 done, 1 compile errors, 2 unhandled exception, 64 usage.\n");
}

bool ReadAll(FILE* in, std::string* text) {
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, in)) > 0) text->append(buffer, n);
  return !ferror(in);
}

void OnPrint(VELDobjectStruct*, VELDstringStruct* msg) {
  fwrite(VELDstringStruct::CString(msg), 1, (size_t)VELDstringStruct::Length(msg), stdout);
  fputc('\n', stdout);
}

VELDstringStruct* OnInput(VELDobjectStruct*, VELDstringStruct* prompt) {
  fwrite(VELDstringStruct::CString(prompt), 1, (size_t)VELDstringStruct::Length(prompt), stdout);
  fflush(stdout);
  std::string line;
  int c;
  while ((c = fgetc(stdin)) != EOF && c != '\n') line += (char)c;
  return StandInString(line.data(), (long)line.size(), kEncodingUTF8);
}

char const* sScriptName = "";
bool sRuntimeError = false;

// FILE:LINE: error CODE: NAME, with lines counted from 1.
void OnCompilerError(VELDobjectStruct*, long line, long errorNumber, VELDstringStruct*) {
  char const* name = CompileErrorName((CompileErrorCode)errorNumber);
  fprintf(stderr, "%s:%ld: error %ld: %s\n", sScriptName, line + 1, errorNumber,
          name ? name : "UnknownError");
}

void OnRuntimeError(VELDobjectStruct*, long, VELDobjectStruct* error) {
  sRuntimeError = true;
  char const* name = error ? StandInClassName(error) : nullptr;
  fprintf(stderr, "%s: runtime error: unhandled %s\n", sScriptName, name ? name : "exception");
}

// With KVSCRIPT_LEAK_CHECK set, the run must give back every counted block
// it took; the values that every compilation shares for good are made first.
struct LeakCheck {
  bool on = getenv("KVSCRIPT_LEAK_CHECK") != nullptr;
  long before = 0;

  void Start() {
    if (!on) return;
    KVScriptInterface warmUp;
    char const kWarmUp[] = "#pragma BoundsChecking True\nDim a As Integer\nPrint \"a\"\n";
    warmUp.SetSource(kWarmUp, sizeof kWarmUp - 1);
    warmUp.Precompile();
    ClearConvertEncodingCache();
    before = gTotalAllocLen;
  }
  bool Passed() {
    if (!on) return true;
    ClearConvertEncodingCache();
    if (gTotalAllocLen == before) return true;
    fprintf(stderr, "kvscript: leak check: %ld counted bytes not given back\n", gTotalAllocLen - before);
    return false;
  }
};

int RunScriptChecked(char const* name, std::string const& text, bool listOnly) {
  sScriptName = name;
  StandInHostReset();
  VELDPluginMain(StandInResolve);
  VELDobjectStruct* script = VELDnewInstance("KvScript");
  if (!script) {
    fprintf(stderr, "kvscript: the host could not make a KvScript object\n");
    return kExitUsage;
  }
  StandInSetEventHandler(script, "Print", reinterpret_cast<void*>(&OnPrint));
  StandInSetEventHandler(script, "Input", reinterpret_cast<void*>(&OnInput));
  StandInSetEventHandler(script, "CompilerError", reinterpret_cast<void*>(&OnCompilerError));
  StandInSetEventHandler(script, "RuntimeError", reinterpret_cast<void*>(&OnRuntimeError));

  VELDstringStruct* source = StandInString(text.data(), (long)text.size(), kEncodingUTF8);
  StandInSetStringProperty(script, "Source", source);
  VELDUnlockString(source);
  if (listOnly) {
    string listing;
    bool ok = KvScriptDataOf(script)->interpreter->ListThreeAddressCode(&listing);
    fwrite(listing.CString(), 1, (size_t)listing.Length(), stdout);
    VELDUnlockObject(script);
    return ok ? 0 : kExitCompileError;
  }
  // A source that doesn't compile is reported once, not again by Run.
  StandInCallMethod(script, "Precompile");
  long state = 0;
  StandInGetIntegerProperty(script, "State", &state);
  if (state != ScriptStateError) {
    StandInCallMethod(script, "Run");
    StandInGetIntegerProperty(script, "State", &state);
  }

  bool linked = KvScriptDataOf(script)->interpreter->Code() != nullptr;
  if (!linked && state != ScriptStateError)
    fprintf(stderr,
            "kvscript: %s compiled, but the engine cannot link and run code yet; "
            "nothing ran (see --tac for what it compiles to)\n", name);
  VELDUnlockObject(script);
  if (state == ScriptStateComplete) return 0;
  return sRuntimeError ? kExitRuntimeError : kExitCompileError;
}

int RunScript(char const* name, std::string const& text, bool listOnly) {
  LeakCheck leaks;
  leaks.Start();
  int status = RunScriptChecked(name, text, listOnly);
  return leaks.Passed() ? status : kExitLeak;
}

}  // namespace

int main(int argc, char** argv) {
  int first = 1;
  bool listOnly = false;
  if (argc == 2 && strcmp(argv[1], "--help") == 0) {
    PrintUsage(stdout);
    return 0;
  }
  if (argc == 2 && strcmp(argv[1], "--version") == 0) {
    printf("%s\n", kVersion);
    return 0;
  }
  if (argc > 1 && strcmp(argv[1], "--tac") == 0) {
    listOnly = true;
    first = 2;
  }
  int rest = argc - first;
  if (rest == 2 && strcmp(argv[first], "-e") == 0)
    return RunScript("-e", argv[first + 1], listOnly);
  char const* path = rest == 1 ? argv[first] : nullptr;
  if (!path || (path[0] == '-' && path[1] != 0)) {
    PrintUsage(stderr);
    return kExitUsage;
  }
  std::string text;
  if (strcmp(path, "-") == 0) {
    if (!ReadAll(stdin, &text)) {
      fprintf(stderr, "kvscript: cannot read standard input\n");
      return kExitUsage;
    }
    return RunScript("-", text, listOnly);
  }
  FILE* file = fopen(path, "rb");
  if (!file) {
    fprintf(stderr, "kvscript: cannot open %s\n", path);
    return kExitUsage;
  }
  bool ok = ReadAll(file, &text);
  fclose(file);
  if (!ok) {
    fprintf(stderr, "kvscript: cannot read %s\n", path);
    return kExitUsage;
  }
  return RunScript(path, text, listOnly);
}
