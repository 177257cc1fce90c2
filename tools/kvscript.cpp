// kvscript: runs a script through the engine as a host application would,
// with the stand-in host in the host's place.
//
//   kvscript FILE        run the script in FILE
//   kvscript -           run the script read from standard input
//   kvscript -e TEXT     run TEXT
//
// Print writes a line to standard output, Input reads one from standard
// input; compile and run-time errors go to standard error. The exit status
// is 0 when the script completed, 1 when it reported an error, 2 for a
// command-line or file problem.
#include <cstdio>
#include <cstring>
#include <string>

#include "engine/KVScript.h"
#include "engine/KVScriptInterface.h"
#include "engine/PluginMain.h"
#include "host/StandInHost.h"

namespace {

constexpr char kVersion[] = "kvscript 0.1";
constexpr int kExitUsage = 2;

void PrintUsage(FILE* out) {
  fprintf(out,
          "usage: kvscript FILE | kvscript - | kvscript -e TEXT\n"
          "       kvscript --help | --version\n");
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

void OnCompilerError(VELDobjectStruct*, long line, long errorNumber, VELDstringStruct* msg) {
  fprintf(stderr, "%s:%ld: error %ld: %s\n", sScriptName, line + 1, errorNumber,
          VELDstringStruct::CString(msg));
}

void OnRuntimeError(VELDobjectStruct*, long line, VELDobjectStruct* error) {
  fprintf(stderr, "%s:%ld: run-time error: %s\n", sScriptName, line + 1,
          StandInClassName(error));
}

int RunScript(char const* name, std::string const& text) {
  sScriptName = name;
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
  // A source that doesn't compile is reported once, not again by Run.
  StandInCallMethod(script, "Precompile");
  long state = 0;
  StandInGetIntegerProperty(script, "State", &state);
  if (state != ScriptStateError) {
    StandInCallMethod(script, "Run");
    StandInGetIntegerProperty(script, "State", &state);
  }

  bool compiled = KvScriptDataOf(script)->interpreter->Code() != nullptr;
  if (!compiled && state != ScriptStateError)
    fprintf(stderr,
            "kvscript: the compiler does not generate code yet; %s (%lu bytes) was "
            "accepted, compiled to nothing and ran nothing; state %ld\n",
            name, (unsigned long)text.size(), state);
  VELDUnlockObject(script);
  return state == ScriptStateComplete ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && strcmp(argv[1], "--help") == 0) {
    PrintUsage(stdout);
    return 0;
  }
  if (argc == 2 && strcmp(argv[1], "--version") == 0) {
    printf("%s\n", kVersion);
    return 0;
  }
  if (argc == 3 && strcmp(argv[1], "-e") == 0) return RunScript("-e", argv[2]);
  if (argc != 2 || (argv[1][0] == '-' && argv[1][1] != 0)) {
    PrintUsage(stderr);
    return kExitUsage;
  }
  std::string text;
  if (strcmp(argv[1], "-") == 0) {
    if (!ReadAll(stdin, &text)) {
      fprintf(stderr, "kvscript: cannot read standard input\n");
      return kExitUsage;
    }
    return RunScript("-", text);
  }
  FILE* file = fopen(argv[1], "rb");
  if (!file) {
    fprintf(stderr, "kvscript: cannot open %s\n", argv[1]);
    return kExitUsage;
  }
  bool ok = ReadAll(file, &text);
  fclose(file);
  if (!ok) {
    fprintf(stderr, "kvscript: cannot read %s\n", argv[1]);
    return kExitUsage;
  }
  return RunScript(argv[1], text);
}
