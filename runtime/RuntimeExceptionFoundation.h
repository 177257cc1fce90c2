// How script exceptions find their handlers: tables, not code. The code
// generator records, per function, where each try statement opens and
// closes and where each handler is entered (with the offset of its resume
// point), and which source line each stretch of code came from. The linker
// turns those records into one HandlerTable per linked image; the raise path
// asks it, for a return address found on the stack, which resume point
// takes the exception, and at the first raise which line raised it. No byte
// of generated code is ever read as data.
//
// The rule, for a return address R inside a function: the function's events
// at offsets >= R are taken in order with a depth counter from 0. A try
// begin adds one (a try statement that starts behind R does not cover it,
// so its handlers are to be skipped); a try end takes one off if above 0
// (at 0 it closes the statement R stands in, whose handlers are behind R
// already, and the search goes on outwards); a handler entry at depth 0 is
// the answer. None found: the function does not handle R, and the walk goes
// on to its caller. A try statement is laid out as try begin, protected
// code, handlers in order, Finally code, try end; a handler that re-raises
// is thereby passed over by its own re-raise, which finds the next one.
//
// Invariants:
// - A table's functions are added in ascending, non-overlapping ranges and
//   each function's events and lines in ascending offsets; Finish is called
//   once, after the last, and a lookup is a binary search over functions
//   and then over the function's events: its answer was worked out per
//   event by Finish.
// - Offsets are from the start of the image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Link names the back end reaches the raise path's state by: the call that
// hands a resume point the exception in flight, and the word holding the
// lowest stack address a script may use (generated code compares esp with
// it and calls the stack check only when below).
constexpr char kTakeExceptionName[] = "RuntimeTakeException";
constexpr char kStackLimitName[] = "RuntimeStackLimit";
// The word generated code counts loop rounds down in; it calls the yield
// entry only when the count reaches 0, and the entry sets it again.
constexpr char kYieldCountdownName[] = "RuntimeYieldCountdown";

// What a lookup gives where there is no answer.
constexpr int32_t kNoHandler = -1;
constexpr int32_t kNoLine = -1;

enum HandlerEventKind : int32_t {
  kHandlerTryBegin = 0,
  kHandlerTryEnd = 1,
  kHandlerSwitch = 2,  // a handler's entry; `resume` is its resume point
  // The function's default handler, entered at `resume`, does nothing but
  // release the frame slots of the release-slot events that follow it and
  // pass the exception on. Neither kind takes part in the search.
  kHandlerPassThrough = 3,
  kHandlerReleaseSlot = 4,  // `resume` is the slot's displacement from ebp
};

// One recorded event of a function, at a code offset.
struct HandlerEvent {
  int32_t kind;
  int32_t offset;
  int32_t resume;
};

// Code from `offset` on was made from source line `line` (counted from 0).
struct RaiseLineEntry {
  int32_t offset;
  int32_t line;
};

class HandlerTable {
public:
  // Opens the next function, [start, end) of the image.
  void AddFunction(uint32_t start, uint32_t end);
  // To the function opened last; offsets from the image's start.
  void AddEvent(HandlerEventKind kind, uint32_t offset, uint32_t resume);
  void AddLine(uint32_t offset, int32_t line);
  // Works out the answer for every event.
  void Finish();

  // What takes an exception raised from the call whose return address is
  // `returnOffset`: the resume point (an image offset, kNoHandler where none
  // does), and, where that is its function's pass-through default handler,
  // the slots that handler releases (mSlots[slotFirst, slotFirst +
  // slotCount)); slotCount is -1 otherwise.
  struct Answer {
    int32_t resume = kNoHandler;
    int32_t slotFirst = 0;
    int32_t slotCount = -1;
  };
  Answer const& FindAnswer(uint32_t returnOffset) const {
    // A loop that raises asks about the same few call sites each round.
    CachedAnswer const& cached = mCache[returnOffset % kCacheSize];
    if (cached.returnOffset == returnOffset && returnOffset != 0) return cached.answer;
    return FindAnswerMissed(returnOffset);
  }
  int32_t FindHandler(uint32_t returnOffset) const { return FindAnswer(returnOffset).resume; }
  // A pass-through handler's slot, by its index in the answer's range.
  int32_t Slot(int32_t index) const { return mSlots[(size_t)index]; }
  // The source line of the call whose return address is `returnOffset`;
  // kNoLine where none is known.
  int32_t FindLine(uint32_t returnOffset) const;

  bool Empty() const { return mFunctions.empty(); }

private:
  struct Function {
    uint32_t start;
    uint32_t end;
    uint32_t firstEvent;
    uint32_t firstLine;
    // The pass-through default handler's resume point, or kNoHandler.
    int32_t passResume;
    uint32_t firstSlot;
    uint32_t slotCount;
    bool passSeen;
  };
  struct Event {
    uint32_t offset;
    int32_t kind;
    uint32_t resume;
    // The resume point found by a search that starts at this event with
    // depth 0, or kNoHandler.
    int32_t answer;
  };
  // The function holding the instruction just before `returnOffset`, or null.
  Function const* FunctionAt(uint32_t returnOffset, uint32_t* eventEnd, uint32_t* lineEnd) const;

  Answer SearchAnswer(uint32_t returnOffset) const;
  Answer const& FindAnswerMissed(uint32_t returnOffset) const;
  int32_t SearchLine(uint32_t returnOffset) const;

  std::vector<Function> mFunctions;
  std::vector<Event> mEvents;
  std::vector<RaiseLineEntry> mLines;
  std::vector<int32_t> mSlots;
  // The answers for the return addresses seen last, by the address's low
  // bits: a loop that raises asks about the same few call sites each round.
  // A key of 0 is empty (no call returns to the image's first byte).
  static constexpr uint32_t kCacheSize = 64;
  struct CachedAnswer {
    uint32_t returnOffset = 0;
    Answer answer;
  };
  struct CachedLine {
    uint32_t returnOffset = 0;
    int32_t line = kNoLine;
  };
  mutable CachedAnswer mCache[kCacheSize];
  mutable CachedLine mLineCache[kCacheSize];
};
