// Runs scripts full of Try, Catch, Finally and Raise, and checks what they
// print against a model. The fuzzer's bytes choose a well-formed script:
// a few exception classes, a few Subs that call one another without
// recursion, and bodies of Print, Raise, Return, calls, loops and nested
// Try statements. The model walks the same statements and predicts the
// printed lines, whether the run ends in an unhandled exception, and how
// many objects with destructors have died at each point. The script then
// compiles and runs in this process, and any difference aborts, as do
// counted memory that the run did not give back and a stack pointer that
// it left moved.
//
// Until the engine compiles Try, the generator keeps to what it can build
// today (calls, loops, destructors and the raise of a call on Nil), so that
// the model and the host side are exercised all the same.
//
// EXCFUZZ_SHOW=1 prints each script with the lines the model expects.
// EXCFUZZ_FULL=1 generates Try and Raise even where the engine can't build
// them yet: the scripts are then shown, not judged.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "engine/EngineAPI.h"
#include "engine/KVScriptInterface.h"

namespace {

// ---------------------------------------------------------------------------
// Scripts

// Exception classes, by index: the two of the library, then the script's.
// Each script chooses the parents of its own classes.
constexpr int kRuntimeException = 0;
constexpr int kNilObjectException = 1;
constexpr int kFirstScriptClass = 2;
constexpr int kClassCount = 5;
char const* const kClassNames[kClassCount] = {"RuntimeException", "NilObjectException", "E1",
                                              "E2", "E3"};

// Bounds that keep a script small and its run short: nesting, statements
// per list, Subs, and the model's steps (calls inside loops multiply).
constexpr int kMaxDepth = 3;
constexpr int kMaxListLength = 3;
constexpr int kMaxSubs = 4;
constexpr int kMaxStatements = 40;
constexpr long kMaxSteps = 4000;

enum class Kind {
  kPrint,       // Print "pN"
  kPrintGone,   // Print "g" + gone: an x for each destructor run so far
  kPrintText,   // Print s: the Sub's String local
  kCall,        // Sj
  kPrintCall,   // Print "pN" + Tj(): Tj calls Sj, then returns gone
  kRaise,       // Raise New C
  kRaiseNil,    // nb.Poke on a Box that is Nil: the library raises
  kReraise,     // Raise x, in x's handler
  kIsA,         // If x IsA C Then Print "pN"
  kLoop,        // For L = 1 To 2
  kTry,
  kExit,        // Return: leaves the Sub past every Finally in it
};

struct Statement;

struct Handler {
  int type = -1;  // class index; -1 takes everything
  int var = -1;   // receives the exception: xN; -1 for none
  bool exceptionWord = false;  // spelt Exception rather than Catch
  std::vector<Statement> body;
};

// Handlers and a Finally, after a Try's statements or at a Sub's end.
struct Handlers {
  std::vector<Handler> list;
  bool hasFinally = false;
  std::vector<Statement> finally;
};

struct Statement {
  Kind kind = Kind::kPrint;
  int a = 0;  // marker, Sub, class or variable, by kind
  int b = 0;  // the class of kIsA, the marker of kIsA
  int c = 0;
  std::vector<Statement> body;
  Handlers handlers;
};

struct Sub {
  bool tracker = false;  // Dim t As Tracker = New Tracker
  bool text = false;     // Dim s As String = gone + "sN", N the Sub's index
  int loops = 0;         // loop variables L0.. it needs
  std::vector<Statement> body;
  Handlers handlers;     // exception blocks at the end of the body
};

struct Script {
  int parent[kClassCount] = {-1, kRuntimeException, kRuntimeException, 0, 0};
  std::vector<Sub> subs;
  std::vector<Statement> main;
  int mainLoops = 0;
  int vars = 0;  // handler variables x0..
  bool full = false;  // Try, Raise and the script's exception classes
};

bool IsA(Script const& s, int cls, int type) {
  for (; cls >= 0; cls = s.parent[cls])
    if (cls == type) return true;
  return false;
}

// Where a statement is made: which Sub (-1 for the main program), and the
// handler variables around it.
struct Place {
  int sub = -1;
  bool text = false;  // the Sub has its String local
  int depth = 0;
  std::vector<int> vars;
};

class Generator {
public:
  Generator(FuzzedDataProvider& in, bool full) : mIn(in), mFull(full) {}

  Script Make() {
    Script s;
    s.full = mFull;
    s.parent[3] = mIn.ConsumeBool() ? 2 : kRuntimeException;
    s.parent[4] = mIn.PickValueInArray({kRuntimeException, 2, 3});
    s.subs.resize(mIn.ConsumeIntegralInRange(1, kMaxSubs));
    mScript = &s;
    // The main program first: the bytes run out, and what main doesn't
    // reach is never run.
    Place top;
    s.main = List(top, kMaxListLength * 2);
    s.mainLoops = mLoops;
    for (size_t i = 0; i < s.subs.size(); ++i) MakeSub(s.subs[i], (int)i);
    s.vars = mVar;
    return s;
  }

private:
  void MakeSub(Sub& sub, int index) {
    sub.tracker = mIn.ConsumeBool();
    sub.text = mIn.ConsumeBool();
    Place place;
    place.sub = index;
    place.text = sub.text;
    mLoops = 0;
    sub.body = List(place);
    if (mFull && mIn.ConsumeIntegralInRange(0, 3) == 0) sub.handlers = MakeHandlers(place);
    sub.loops = mLoops;
  }

  std::vector<Statement> List(Place& place, int most = kMaxListLength) {
    std::vector<Statement> list;
    int n = mIn.ConsumeIntegralInRange(0, most);
    for (int i = 0; i < n && mCount < kMaxStatements && mIn.remaining_bytes() > 0; ++i) {
      ++mCount;
      list.push_back(One(place));
    }
    return list;
  }

  Statement One(Place& place) {
    Statement st;
    bool nest = place.depth < kMaxDepth;
    int lastSub = (int)mScript->subs.size() - 1;
    // Main calls more often than the Subs do, so that their code runs.
    int choice = place.sub < 0 && mIn.ConsumeBool() ? 4 : mIn.ConsumeIntegralInRange(0, 11);
    switch (choice) {
      case 0: case 1: st.kind = Kind::kPrint; st.a = mMarker++; break;
      case 2: st.kind = Kind::kPrintGone; break;
      case 3:
        st.kind = place.text ? Kind::kPrintText : Kind::kPrint;
        st.a = mMarker++;
        break;
      case 4: case 5:
        if (place.sub == lastSub) return Marker();
        st.kind = mIn.ConsumeIntegralInRange(0, 3) == 0 ? Kind::kPrintCall : Kind::kCall;
        st.a = mIn.ConsumeIntegralInRange(place.sub + 1, lastSub);
        st.b = mMarker++;
        break;
      case 6:
        if (!mFull) return Marker();
        st.kind = Kind::kRaise;
        st.a = mIn.ConsumeIntegralInRange(0, kClassCount - 1);
        break;
      case 7: st.kind = Kind::kRaiseNil; break;
      case 8:
        if (place.vars.empty()) return Marker();
        st.kind = Kind::kReraise;
        st.a = place.vars[mIn.ConsumeIntegralInRange<size_t>(0, place.vars.size() - 1)];
        break;
      case 9:
        if (place.vars.empty()) return Marker();
        st.kind = Kind::kIsA;
        st.a = place.vars[mIn.ConsumeIntegralInRange<size_t>(0, place.vars.size() - 1)];
        st.b = mIn.ConsumeIntegralInRange(0, kClassCount - 1);
        st.c = mMarker++;
        break;
      case 10:
        if (place.sub >= 0 && mIn.ConsumeIntegralInRange(0, 3) == 0) {
          st.kind = Kind::kExit;
          break;
        }
        if (!nest) return Marker();
        st.kind = Kind::kLoop;
        st.a = place.depth;
        if (mLoops < place.depth + 1) mLoops = place.depth + 1;
        ++place.depth;
        st.body = List(place);
        --place.depth;
        break;
      default:
        if (!nest || !mFull) return Marker();
        st.kind = Kind::kTry;
        ++place.depth;
        st.body = List(place);
        st.handlers = MakeHandlers(place);
        --place.depth;
        break;
    }
    return st;
  }

  Statement Marker() {
    Statement st;
    st.a = mMarker++;
    return st;
  }

  Handlers MakeHandlers(Place& place) {
    Handlers h;
    int n = mIn.ConsumeIntegralInRange(0, 3);
    for (int i = 0; i < n; ++i) {
      Handler one;
      one.exceptionWord = mIn.ConsumeIntegralInRange(0, 3) == 0;
      switch (mIn.ConsumeIntegralInRange(0, 3)) {
        case 0: break;
        case 1: one.var = mVar++; break;
        default:
          one.var = mVar++;
          one.type = mIn.ConsumeIntegralInRange(0, kClassCount - 1);
          break;
      }
      if (one.var >= 0) place.vars.push_back(one.var);
      one.body = List(place);
      if (one.var >= 0) place.vars.pop_back();
      h.list.push_back(std::move(one));
    }
    h.hasFinally = mIn.ConsumeBool();
    if (h.hasFinally) h.finally = List(place);
    return h;
  }

  FuzzedDataProvider& mIn;
  bool mFull;
  Script* mScript = nullptr;
  int mMarker = 0;
  int mVar = 0;
  int mCount = 0;
  int mLoops = 0;
};

// ---------------------------------------------------------------------------
// Script text

class Writer {
public:
  explicit Writer(Script const& s) : mScript(s) {}

  std::string Text() {
    for (int c = kFirstScriptClass; mScript.full && c < kClassCount; ++c) {
      Line(0, std::string("Class ") + kClassNames[c]);
      Line(1, std::string("Inherits ") + kClassNames[mScript.parent[c]]);
      Line(0, "End Class");
    }
    Line(0, "Class Tracker");
    Line(1, "Sub Destructor()");
    Line(2, "gone = gone + \"x\"");
    Line(1, "End Sub");
    Line(0, "End Class");
    Line(0, "Class Box");
    Line(1, "Sub Poke()");
    Line(1, "End Sub");
    Line(0, "End Class");
    Line(0, "Dim gone As String");
    Line(0, "Dim nb As Box");
    for (int i = 0; i < mScript.mainLoops; ++i) Line(0, "Dim G" + std::to_string(i) + " As Integer");
    // A callee comes before its callers.
    for (int i = (int)mScript.subs.size() - 1; i >= 0; --i) {
      WriteSub(i);
      std::string n = std::to_string(i);
      Line(0, "Function T" + n + "() As String");
      Line(1, "S" + n);
      Line(1, "Return gone");
      Line(0, "End Function");
    }
    mLoopPrefix = "G";
    List(0, mScript.main);
    Line(0, "Print \"end \" + gone");
    return mText;
  }

private:
  void WriteSub(int index) {
    Sub const& sub = mScript.subs[index];
    std::string name = "S" + std::to_string(index);
    Line(0, "Sub " + name + "()");
    if (sub.tracker) Line(1, "Dim t As Tracker = New Tracker");
    if (sub.text) Line(1, "Dim s As String = gone + \"s" + std::to_string(index) + "\"");
    for (int i = 0; i < sub.loops; ++i) Line(1, "Dim L" + std::to_string(i) + " As Integer");
    mLoopPrefix = "L";
    List(1, sub.body);
    WriteHandlers(0, sub.handlers);
    Line(0, "End Sub");
  }

  void List(int indent, std::vector<Statement> const& list) {
    for (Statement const& st : list) One(indent, st);
  }

  void One(int indent, Statement const& st) {
    switch (st.kind) {
      case Kind::kPrint: Line(indent, "Print \"p" + std::to_string(st.a) + "\""); break;
      case Kind::kPrintGone: Line(indent, "Print \"g\" + gone"); break;
      case Kind::kPrintText: Line(indent, "Print s"); break;
      case Kind::kCall: Line(indent, "S" + std::to_string(st.a)); break;
      case Kind::kPrintCall:
        Line(indent, "Print \"p" + std::to_string(st.b) + "\" + T" + std::to_string(st.a) + "()");
        break;
      case Kind::kRaise: Line(indent, std::string("Raise New ") + kClassNames[st.a]); break;
      case Kind::kRaiseNil: Line(indent, "nb.Poke"); break;
      case Kind::kReraise: Line(indent, "Raise x" + std::to_string(st.a)); break;
      case Kind::kIsA:
        Line(indent, "If x" + std::to_string(st.a) + " IsA " + kClassNames[st.b] +
                         " Then Print \"p" + std::to_string(st.c) + "\"");
        break;
      case Kind::kLoop: {
        std::string var = mLoopPrefix + std::to_string(st.a);
        Line(indent, "For " + var + " = 1 To 2");
        List(indent + 1, st.body);
        Line(indent, "Next");
        break;
      }
      case Kind::kExit: Line(indent, "Return"); break;
      case Kind::kTry:
        Line(indent, "Try");
        List(indent + 1, st.body);
        WriteHandlers(indent, st.handlers);
        Line(indent, "End Try");
        break;
    }
  }

  void WriteHandlers(int indent, Handlers const& h) {
    for (Handler const& one : h.list) {
      std::string head = one.exceptionWord ? "Exception" : "Catch";
      if (one.var >= 0) head += " x" + std::to_string(one.var);
      if (one.type >= 0) head += std::string(" As ") + kClassNames[one.type];
      Line(indent, head);
      List(indent + 1, one.body);
    }
    if (h.hasFinally) {
      Line(indent, "Finally");
      List(indent + 1, h.finally);
    }
  }

  void Line(int indent, std::string const& text) {
    mText.append(2 * indent, ' ');
    mText += text;
    mText += '\n';
  }

  Script const& mScript;
  std::string mText;
  std::string mLoopPrefix;
};

// ---------------------------------------------------------------------------
// The model

// What running some statements came to: normal completion, a Return
// on its way to the Sub's end, or an exception of class `cls` on its way out.
struct Outcome {
  bool raised = false;
  bool exited = false;
  int cls = 0;
  bool Abrupt() const { return raised || exited; }
};

Outcome Raised(int cls) {
  Outcome o;
  o.raised = true;
  o.cls = cls;
  return o;
}

class Model {
public:
  explicit Model(Script const& s) : mScript(s), mVars((size_t)s.vars) {}

  // False when the run would take too long to be worth it.
  bool Run() {
    Outcome o = List(mScript.main);
    if (mSteps > kMaxSteps) return false;
    if (o.raised) {
      unhandled = true;
    } else {
      trace.push_back("end " + Gone());
    }
    return true;
  }

  std::vector<std::string> trace;
  bool unhandled = false;

private:
  Outcome List(std::vector<Statement> const& list) {
    for (Statement const& st : list) {
      if (++mSteps > kMaxSteps) return Raised(kRuntimeException);
      Outcome o = One(st);
      if (o.Abrupt()) return o;
    }
    return Outcome();
  }

  Outcome One(Statement const& st) {
    switch (st.kind) {
      case Kind::kPrint: trace.push_back("p" + std::to_string(st.a)); break;
      case Kind::kPrintGone: trace.push_back("g" + Gone()); break;
      case Kind::kPrintText: trace.push_back(mText); break;
      case Kind::kCall: return Call(st.a);
      case Kind::kPrintCall: {
        // The text is made before the call; a raise drops it unprinted.
        Outcome o = Call(st.a);
        if (!o.raised) trace.push_back("p" + std::to_string(st.b) + Gone());
        return o;
      }
      case Kind::kRaise: return Raised(st.a);
      case Kind::kRaiseNil: return Raised(kNilObjectException);
      case Kind::kReraise: return Raised(mVars[st.a]);
      case Kind::kIsA:
        if (IsA(mScript, mVars[st.a], st.b)) trace.push_back("p" + std::to_string(st.c));
        break;
      case Kind::kLoop:
        for (int i = 0; i < 2; ++i) {
          Outcome o = List(st.body);
          if (o.Abrupt()) return o;
        }
        break;
      case Kind::kTry: return Protect(List(st.body), st.handlers);
      case Kind::kExit: {
        Outcome o;
        o.exited = true;
        return o;
      }
    }
    return Outcome();
  }

  // The handlers see the exception in order; one that doesn't take it
  // passes it on, and so does one whose own code raises: the next handler
  // behind it is offered the new exception. Finally runs only when the
  // whole comes to a normal end.
  Outcome Protect(Outcome o, Handlers const& h) {
    for (Handler const& one : h.list) {
      if (!o.raised) break;
      if (one.var >= 0) mVars[one.var] = o.cls;
      if (one.type >= 0 && !IsA(mScript, o.cls, one.type)) continue;
      o = List(one.body);
    }
    if (o.Abrupt()) return o;
    return List(h.finally);
  }

  Outcome Call(int index) {
    Sub const& sub = mScript.subs[index];
    std::string callers = mText;
    mText = Gone() + "s" + std::to_string(index);
    Outcome o = Protect(List(sub.body), sub.handlers);
    o.exited = false;
    // The locals go at the end of the Sub, however it is left.
    if (sub.tracker) ++mGone;
    mText = callers;
    return o;
  }

  // What the script's `gone` holds: an x for each Tracker gone.
  std::string Gone() const { return std::string((size_t)mGone, 'x'); }

  Script const& mScript;
  std::string mText;  // the running Sub's s
  int mGone = 0;
  long mSteps = 0;
  // The class of the exception each handler variable holds.
  std::vector<int> mVars;
};

// ---------------------------------------------------------------------------
// The engine

class TraceEngine : public KVScriptInterface {
public:
  void Print(char const* text, unsigned long length) override { lines.emplace_back(text, length); }
  void CompilerError(CompileErrorCode code, unsigned long line) override {
    compileErrors.push_back("error " + std::to_string((int)code) + " on line " +
                            std::to_string(line + 1));
  }
  using KVScriptInterface::CompilerError;
  void RuntimeError(RuntimeErrorCode code, unsigned long line) override {
    runtimeErrors.push_back((int)code);
    runtimeLine = line;
  }

  std::vector<std::string> lines;
  std::vector<std::string> compileErrors;
  std::vector<int> runtimeErrors;
  unsigned long runtimeLine = 0;
};

// True when the engine compiles a Try with a handler and a Raise.
bool EngineBuildsExceptions() {
  char const kProbe[] =
      "Class P\n  Inherits RuntimeException\nEnd Class\n"
      "Try\n  Raise New P\nCatch e As P\nFinally\nEnd Try\n";
  TraceEngine engine;
  engine.SetSource(kProbe, sizeof kProbe - 1);
  engine.Precompile();
  return engine.compileErrors.empty();
}

bool sExceptionsBuild = false;
bool sFull = false;
bool sShow = false;

void Show(std::string const& text, Model const& model) {
  fprintf(stderr, "---- script\n%s---- expected\n", text.c_str());
  for (std::string const& line : model.trace) fprintf(stderr, "%s\n", line.c_str());
  if (model.unhandled) fprintf(stderr, "(unhandled exception)\n");
}

[[noreturn]] void Finding(char const* what, std::string const& text, Model const& model,
                          TraceEngine const& engine) {
  fprintf(stderr, "\n==== %s\n", what);
  Show(text, model);
  fprintf(stderr, "---- printed\n");
  for (std::string const& line : engine.lines) fprintf(stderr, "%s\n", line.c_str());
  for (std::string const& error : engine.compileErrors) fprintf(stderr, "compile %s\n", error.c_str());
  for (int code : engine.runtimeErrors) fprintf(stderr, "runtime error %d\n", code);
  abort();
}

void Check(std::string const& text, Model const& model) {
  long before = CountedBytes();
  {
    TraceEngine engine;
    engine.SetSource(text.data(), (unsigned long)text.size());
    engine.Precompile();
    if (!engine.compileErrors.empty()) {
      // Scripts with Try are only judged once the engine builds them.
      if (sFull && !sExceptionsBuild) return;
      Finding("a generated script does not compile", text, model, engine);
    }
    engine.Run();
    // With the image current this does nothing but check, in check builds,
    // that the engine's record of its thread survived the run.
    engine.Precompile();
    if (engine.lines != model.trace) Finding("the printed lines differ", text, model, engine);
    std::vector<int> expected;
    if (model.unhandled) expected.push_back(kRuntimeErrorUnhandledException);
    if (engine.runtimeErrors != expected)
      Finding("the run-time errors differ", text, model, engine);
  }
  long after = CountedBytes();
  if (after != before) {
    fprintf(stderr, "the run kept %ld counted bytes\n", after - before);
    TraceEngine none;
    Finding("counted memory was not given back", text, model, none);
  }
}

// The frame address of a fresh call: the same before and after a run,
// unless the run left the stack pointer somewhere else.
__attribute__((noinline)) uintptr_t StackMark() {
  return reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  WarmUpSharedValues();
  sExceptionsBuild = EngineBuildsExceptions();
  sFull = sExceptionsBuild || getenv("EXCFUZZ_FULL") != nullptr;
  sShow = getenv("EXCFUZZ_SHOW") != nullptr;
  if (!sExceptionsBuild)
    fprintf(stderr, "ExceptionFuzz: the engine does not build Try yet; %s\n",
            sFull ? "scripts with Try are shown, not judged"
                  : "scripts keep to calls, loops and library raises");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  FuzzedDataProvider in(data, size);
  Script script = Generator(in, sFull).Make();
  Model model(script);
  if (!model.Run()) return -1;
  std::string text = Writer(script).Text();
  if (sShow) Show(text, model);
  uintptr_t stack = StackMark();
  std::thread::id thread = std::this_thread::get_id();
  Check(text, model);
  // The thread's own block (found through a segment register) must be the
  // same after the run: the engine checks its thread against it.
  if (std::this_thread::get_id() != thread) {
    TraceEngine none;
    Finding("the run changed the thread's identity", text, model, none);
  }
  if (StackMark() != stack) {
    fprintf(stderr, "the stack pointer moved by %ld bytes\n", (long)(StackMark() - stack));
    TraceEngine none;
    Finding("the run did not give the stack back", text, model, none);
  }
  return 0;
}
