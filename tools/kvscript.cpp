// kvscript: runs a script through the engine as a host application would,
// with the stand-in host in the host's place. It meets the engine only at
// its public faces: the plug-in entry, the KvScript class and EngineAPI.h.
//
//   kvscript FILE [ARG...]       run the script in FILE
//   kvscript - [ARG...]          run the script read from standard input
//   kvscript -e TEXT [ARG...]    run TEXT
//   kvscript --tac ...           print the script's three-address code instead
//
// Print writes a line to standard output, Input reads one from standard
// input; compile and run-time errors go to standard error, one line each.
// The script's context object hands it the ARGs (ArgCount, Arg), its name
// (ScriptName) and the exit status it chooses (ExitStatus).
// The exit status is the script's ExitStatus (0 unless it set one) when the
// script completed, 1 after compile errors (nothing runs then), 2 after an
// unhandled script exception, and 64 for a command-line or file problem: a
// file that can't be read, one longer than the engine takes (reading stops
// there), or standard output that can't be written.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "engine/EngineAPI.h"
#include "engine/PluginMain.h"
#include "diag/CompileError.h"
#include "engine/Compiler.h"
#include "foundation/String.h"
#include "foundation/TextEncodingUtil.h"
#include "foundation/Utility.h"
#include "host/StandInHost.h"

namespace {

constexpr char kVersion[] = "kvscript 0.1";
constexpr int kExitCompileError = 1;
constexpr int kExitRuntimeError = 2;
constexpr int kExitUsage = 64;
// Only with KVSCRIPT_LEAK_CHECK: the run did not give back what it took.
constexpr int kExitLeak = 70;

// The statuses a script may choose: the others are kvscript's own.
constexpr long kFirstScriptStatus = 3;
constexpr long kLastScriptStatus = 63;

void PrintUsage(FILE* out) {
  fprintf(out,
          "usage: kvscript [--tac] FILE [ARG...] | - [ARG...] | -e TEXT [ARG...]\n"
          "       kvscript --help | --version\n"
          "\n"
          "Compiles the script to native code and runs it. Print writes to standard\n"
          "output; Input reads a line from standard input. --tac prints the\n"
          "three-address code the script compiles to instead of running it.\n"
          "A script may hold at most %lu MiB.\n"
          "\n"
          "The script may call these functions of its context:\n"
          "  ArgCount As Integer      the number of ARGs (read-only)\n"
          "  Arg(index As Integer) As String\n"
          "                           ARG number index; \"\" outside 1 to ArgCount\n"
          "  ScriptName As String     FILE as given, \"-\" or \"-e\" (read-only)\n"
          "  ExitStatus As Integer    the status to exit with when the script\n"
          "                           completes: 0 (the start) or %ld to %ld; setting\n"
          "                           any other value leaves it as it was\n"
          "\n"
          "Exit status: ExitStatus when the script completed, 1 compile errors,\n"
          "2 unhandled exception, 64 usage, file or output problem, 70 (with\n"
          "KVSCRIPT_LEAK_CHECK set) counted memory not given back.\n",
          kMaxSourceLength >> 20, kFirstScriptStatus, kLastScriptStatus);
}

// A file name as diagnostics show it: control bytes and the backslash are
// escaped, so that no name can end a diagnostic line and forge another.
std::string Printable(char const* name) {
  std::string out;
  for (unsigned char const* p = (unsigned char const*)name; *p; ++p) {
    switch (*p) {
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      case '\\': out += "\\\\"; break;
      default:
        if (*p < 0x20 || *p == 0x7F) {
          char hex[5];
          snprintf(hex, sizeof hex, "\\x%02X", *p);
          out += hex;
        } else {
          out += (char)*p;
        }
    }
  }
  return out;
}

// A script read into memory: malloc'd, so that running out of memory is an
// answer and not an exception.
struct SourceText {
  char* bytes = nullptr;
  size_t length = 0;
  ~SourceText() { free(bytes); }
  void Release() {
    free(bytes);
    bytes = nullptr;
    length = 0;
  }
};

enum class ReadResult { kRead, kTooLarge, kUnreadable, kNoMemory };

// Reads `in` to its end, but never more than one byte past what the engine
// takes, so that an endless or huge input is refused as soon as that is
// clear. A regular file's size is known before any byte is read.
ReadResult ReadSource(FILE* in, SourceText* text) {
  size_t capacity = 64 * 1024;
  struct stat status;
  if (fstat(fileno(in), &status) == 0 && S_ISREG(status.st_mode)) {
    if ((unsigned long long)status.st_size > kMaxSourceLength) return ReadResult::kTooLarge;
    // One byte more, so that the end is seen without growing the buffer.
    capacity = (size_t)status.st_size + 1;
  }
  text->bytes = static_cast<char*>(malloc(capacity));
  if (!text->bytes) return ReadResult::kNoMemory;
  for (;;) {
    if (text->length == capacity) {
      if (capacity > kMaxSourceLength) return ReadResult::kTooLarge;
      size_t grown = capacity * 2 < kMaxSourceLength + 1 ? capacity * 2 : kMaxSourceLength + 1;
      char* bigger = static_cast<char*>(realloc(text->bytes, grown));
      if (!bigger) return ReadResult::kNoMemory;
      text->bytes = bigger;
      capacity = grown;
    }
    size_t n = fread(text->bytes + text->length, 1, capacity - text->length, in);
    if (n == 0) break;
    text->length += n;
  }
  if (ferror(in)) return ReadResult::kUnreadable;
  return text->length > kMaxSourceLength ? ReadResult::kTooLarge : ReadResult::kRead;
}

// Reports why `name` could not be read; false if it could.
bool ReportReadFailure(ReadResult result, char const* name, int error) {
  std::string shown = Printable(name);
  switch (result) {
    case ReadResult::kRead: return false;
    case ReadResult::kTooLarge:
      fprintf(stderr, "kvscript: %s: longer than %lu MiB, the most a script may hold\n",
              shown.c_str(), kMaxSourceLength >> 20);
      break;
    case ReadResult::kUnreadable:
      fprintf(stderr, "kvscript: cannot read %s: %s\n", shown.c_str(), strerror(error));
      break;
    case ReadResult::kNoMemory:
      fprintf(stderr, "kvscript: not enough memory to read %s\n", shown.c_str());
      break;
  }
  return true;
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
  // A line typed on a system that ends lines with CR LF loses both.
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return StandInString(line.data(), (long)line.size(), kEncodingUTF8);
}

// The script's name as diagnostics show it.
std::string sScriptName;
bool sRuntimeError = false;

// FILE:LINE: error CODE: NAME, with lines counted from 1.
void OnCompilerError(VELDobjectStruct*, long line, long errorNumber, VELDstringStruct*) {
  char const* name = CompileErrorNameOf(errorNumber);
  fprintf(stderr, "%s:%ld: error %ld: %s\n", sScriptName.c_str(), line + 1, errorNumber,
          name ? name : "UnknownError");
}

// FILE:LINE: runtime error: unhandled CLASS, the line of the raise counted
// from 1 as in compile errors.
void OnRuntimeError(VELDobjectStruct*, long line, VELDobjectStruct* error) {
  sRuntimeError = true;
  // The script's own class, which the host may not know; else the host's.
  char const* name = KvScriptUnhandledExceptionClass();
  if (!name && error) name = StandInClassName(error);
  fprintf(stderr, "%s:%ld: runtime error: unhandled %s\n", sScriptName.c_str(), line + 1,
          name ? name : "exception");
}

// ---------------------------------------------------------------------------
// The script's context: a host object whose public members the engine turns
// into functions of the script. A host function takes the context first,
// then the property's row parameter or the method's arguments; a String it
// returns carries one lock for the script, and "" is null.

// The command line of one run: the script's name and the arguments after it.
struct Invocation {
  char const* name;
  char** args;
  long argCount;
};

// The context's instance data. The command line outlives every run.
struct ContextData {
  Invocation run;
  long exitStatus;
};

VELDclassDefinition sContextClass;

ContextData* ContextDataOf(VELDobjectStruct* context) {
  return static_cast<ContextData*>(VELDGetClassData(context, &sContextClass));
}

VELDstringStruct* HostText(char const* text) {
  return *text ? StandInString(text, kEncodingUTF8) : nullptr;
}

long ContextArgCount(VELDobjectStruct* context, long) {
  return ContextDataOf(context)->run.argCount;
}

VELDstringStruct* ContextScriptName(VELDobjectStruct* context, long) {
  return HostText(ContextDataOf(context)->run.name);
}

long ContextGetExitStatus(VELDobjectStruct* context, long) {
  return ContextDataOf(context)->exitStatus;
}

void ContextSetExitStatus(VELDobjectStruct* context, long, long status) {
  if (status == 0 || (status >= kFirstScriptStatus && status <= kLastScriptStatus))
    ContextDataOf(context)->exitStatus = status;
}

VELDstringStruct* ContextArg(VELDobjectStruct* context, long index) {
  Invocation const& run = ContextDataOf(context)->run;
  return index >= 1 && index <= run.argCount ? HostText(run.args[index - 1]) : nullptr;
}

VELDproperty sContextProperties[] = {
    {nullptr, "ArgCount", "Integer", 0, reinterpret_cast<void*>(&ContextArgCount), nullptr, 0,
     {0, 0, 0}},
    {nullptr, "ScriptName", "String", 0, reinterpret_cast<void*>(&ContextScriptName), nullptr, 0,
     {0, 0, 0}},
    {nullptr, "ExitStatus", "Integer", 0, reinterpret_cast<void*>(&ContextGetExitStatus),
     reinterpret_cast<void*>(&ContextSetExitStatus), 0, {0, 0, 0}},
};

// A method's first parameter stands for the context object itself.
VELDmethodDefinition sContextMethods[] = {
    {reinterpret_cast<void*>(&ContextArg), 0,
     "Function Arg(context As Integer, index As Integer) As String"},
};

// A new context object for `run` with one lock, or null. The host forgets
// its classes at each reset, so the class is registered again for every run.
VELDobjectStruct* MakeContext(Invocation const& run) {
  sContextClass = VELDclassDefinition{};
  sContextClass.version = kPluginInterfaceVersion;
  sContextClass.name = "ScriptContext";
  sContextClass.dataSize = sizeof(ContextData);
  sContextClass.properties = sContextProperties;
  sContextClass.propertyCount = (long)std::size(sContextProperties);
  sContextClass.methods = sContextMethods;
  sContextClass.methodCount = (long)std::size(sContextMethods);
  if (!StandInRegisterClass(&sContextClass)) return nullptr;
  VELDobjectStruct* context = VELDnewInstance(sContextClass.name);
  if (context) ContextDataOf(context)->run = run;
  return context;
}

// ---------------------------------------------------------------------------
// Running

// With KVSCRIPT_LEAK_CHECK set, the run must give back every counted block
// it took; the values that every compilation shares for good are made first.
struct LeakCheck {
  bool on = getenv("KVSCRIPT_LEAK_CHECK") != nullptr;
  long before = 0;

  void Start() {
    if (!on) return;
    WarmUpSharedValues();
    before = CountedBytes();
  }
  bool Passed() {
    if (!on) return true;
    long now = CountedBytes();
    if (now == before) return true;
    fprintf(stderr, "kvscript: leak check: %ld counted bytes not given back\n", now - before);
    return false;
  }
};

// Hands the text to a new KvScript object as its Source, with `context` as
// its Context, then lets go of the text: from here on the host string and
// the engine's copy are all there is of it. Null if the host could not make
// the object or the string.
VELDobjectStruct* LoadScript(SourceText* text, VELDobjectStruct* context) {
  VELDobjectStruct* script = VELDnewInstance("KvScript");
  if (!script) {
    fprintf(stderr, "kvscript: the host could not make a KvScript object\n");
    return nullptr;
  }
  StandInSetEventHandler(script, "Print", reinterpret_cast<void*>(&OnPrint));
  StandInSetEventHandler(script, "Input", reinterpret_cast<void*>(&OnInput));
  StandInSetEventHandler(script, "CompilerError", reinterpret_cast<void*>(&OnCompilerError));
  StandInSetEventHandler(script, "RuntimeError", reinterpret_cast<void*>(&OnRuntimeError));
  StandInSetObjectProperty(script, "Context", context);
  bool empty = text->length == 0;
  VELDstringStruct* source = StandInString(text->bytes, (long)text->length, kEncodingUTF8);
  text->Release();
  if (!source && !empty) {
    fprintf(stderr, "kvscript: not enough memory to hold %s\n", sScriptName.c_str());
    VELDUnlockObject(script);
    return nullptr;
  }
  StandInSetStringProperty(script, "Source", source);
  VELDUnlockString(source);
  return script;
}

int RunLoadedScript(VELDobjectStruct* script, bool listOnly) {
  if (listOnly) {
    string listing;
    bool ok = KvScriptListing(script, &listing);
    fwrite(listing.CString(), 1, (size_t)listing.Length(), stdout);
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
  if (!KvScriptHasLinkedCode(script) && state != ScriptStateError)
    fprintf(stderr,
            "kvscript: %s compiled, but the engine cannot link and run code yet; "
            "nothing ran (see --tac for what it compiles to)\n", sScriptName.c_str());
  if (state == ScriptStateComplete) return 0;
  return sRuntimeError ? kExitRuntimeError : kExitCompileError;
}

int RunScript(Invocation const& run, SourceText* text, bool listOnly) {
  LeakCheck leaks;
  leaks.Start();
  sScriptName = Printable(run.name);
  StandInHostReset();
  VELDPluginMain(StandInResolve);
  int status = kExitUsage;
  VELDobjectStruct* context = MakeContext(run);
  if (!context) {
    fprintf(stderr, "kvscript: the host could not make the script's context\n");
  } else if (VELDobjectStruct* script = LoadScript(text, context)) {
    status = RunLoadedScript(script, listOnly);
    if (status == 0) status = (int)ContextDataOf(context)->exitStatus;
    VELDUnlockObject(script);
  }
  if (context) VELDUnlockObject(context);
  sScriptName.clear();
  // A run that ended in an unhandled exception is checked as well: the
  // exception went through every method's handler, which let go of what
  // the method held, and the program let go of its globals after reporting.
  return leaks.Passed() ? status : kExitLeak;
}

int RunArguments(int argc, char** argv) {
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
  SourceText text;
  if (rest >= 2 && strcmp(argv[first], "-e") == 0) {
    text.length = strlen(argv[first + 1]);
    text.bytes = static_cast<char*>(malloc(text.length + 1));
    if (!text.bytes) return kExitUsage;
    memcpy(text.bytes, argv[first + 1], text.length);
    return RunScript({"-e", argv + first + 2, rest - 2}, &text, listOnly);
  }
  char const* path = rest >= 1 ? argv[first] : nullptr;
  if (!path || (path[0] == '-' && path[1] != 0)) {
    PrintUsage(stderr);
    return kExitUsage;
  }
  bool fromStdin = strcmp(path, "-") == 0;
  FILE* file = fromStdin ? stdin : fopen(path, "rb");
  if (!file) {
    fprintf(stderr, "kvscript: cannot open %s: %s\n", Printable(path).c_str(), strerror(errno));
    return kExitUsage;
  }
  ReadResult result = ReadSource(file, &text);
  int error = errno;
  if (!fromStdin) fclose(file);
  if (ReportReadFailure(result, fromStdin ? "standard input" : path, error)) return kExitUsage;
  return RunScript({path, argv + first + 1, rest - 1}, &text, listOnly);
}

// Output that never reached standard output (a full disk, a closed pipe)
// fails a run that would have succeeded, whatever status the script chose.
int FinishOutput(int status) {
  bool failed = ferror(stdout) != 0;
  failed = fclose(stdout) != 0 || failed;
  if (!failed) return status;
  fprintf(stderr, "kvscript: cannot write standard output\n");
  bool completed = status == 0 || (status >= kFirstScriptStatus && status <= kLastScriptStatus);
  return completed ? kExitUsage : status;
}

}  // namespace

int main(int argc, char** argv) { return FinishOutput(RunArguments(argc, argv)); }
