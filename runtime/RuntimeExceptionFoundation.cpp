#include "runtime/RuntimeExceptionFoundation.h"

#include <algorithm>

namespace {
// A try begin whose function ends before its try end.
constexpr int64_t kUnmatched = -1;
}  // namespace

void HandlerTable::AddFunction(uint32_t start, uint32_t end) {
  mFunctions.push_back(Function{start, end, (uint32_t)mEvents.size(), (uint32_t)mLines.size(), kNoHandler,
                                (uint32_t)mSlots.size(), 0, false});
}

void HandlerTable::AddEvent(HandlerEventKind kind, uint32_t offset, uint32_t resume) {
  if (kind == kHandlerPassThrough || kind == kHandlerReleaseSlot) {
    if (mFunctions.empty()) return;
    Function& f = mFunctions.back();
    if (kind == kHandlerPassThrough) {
      // One per function; a second would make the slots ambiguous, and then
      // neither passes.
      f.passResume = f.passSeen ? kNoHandler : (int32_t)resume;
      f.passSeen = true;
    } else {
      mSlots.push_back((int32_t)resume);
      ++f.slotCount;
    }
    return;
  }
  mEvents.push_back(Event{offset, kind, resume, kNoHandler});
}

void HandlerTable::AddLine(uint32_t offset, int32_t line) {
  if (!mLines.empty() && mLines.back().line == line && mFunctions.size() &&
      mLines.size() > mFunctions.back().firstLine)
    return;
  mLines.push_back(RaiseLineEntry{(int32_t)offset, line});
}

// Per function: each try begin is matched with the try end that brings the
// depth back to where it was (none when the function ends first). Walking
// backwards, an event's answer is then its own resume point (a handler), the
// answer of the event after it (a try end, whose depth-0 step changes
// nothing), or the answer behind its matching try end (a try begin: all in
// between is skipped by depth); an unmatched try begin never returns to
// depth 0, so nothing after it is found.
void HandlerTable::Finish() {
  for (CachedAnswer& cached : mCache) cached = CachedAnswer();
  for (CachedLine& cached : mLineCache) cached = CachedLine();
  for (size_t f = 0; f < mFunctions.size(); ++f) {
    size_t first = mFunctions[f].firstEvent;
    size_t last = f + 1 < mFunctions.size() ? mFunctions[f + 1].firstEvent : mEvents.size();
    std::vector<int64_t> match(last - first, kUnmatched);
    std::vector<size_t> open;
    for (size_t i = first; i < last; ++i) {
      if (mEvents[i].kind == kHandlerTryBegin) {
        open.push_back(i);
      } else if (mEvents[i].kind == kHandlerTryEnd && !open.empty()) {
        match[open.back() - first] = (int64_t)i;
        open.pop_back();
      }
    }
    for (size_t i = last; i-- > first;) {
      Event& e = mEvents[i];
      int32_t next = i + 1 < last ? mEvents[i + 1].answer : kNoHandler;
      if (e.kind == kHandlerSwitch) {
        e.answer = (int32_t)e.resume;
      } else if (e.kind == kHandlerTryEnd) {
        e.answer = next;
      } else {
        int64_t end = match[i - first];
        e.answer = end == kUnmatched || (size_t)end + 1 >= last ? kNoHandler : mEvents[(size_t)end + 1].answer;
      }
    }
  }
}

HandlerTable::Function const* HandlerTable::FunctionAt(uint32_t returnOffset, uint32_t* eventEnd,
                                                       uint32_t* lineEnd) const {
  if (returnOffset == 0) return nullptr;
  uint32_t at = returnOffset - 1;
  auto it = std::upper_bound(mFunctions.begin(), mFunctions.end(), at,
                             [](uint32_t x, Function const& f) { return x < f.start; });
  if (it == mFunctions.begin()) return nullptr;
  --it;
  if (at >= it->end) return nullptr;
  auto following = it + 1;
  *eventEnd = following == mFunctions.end() ? (uint32_t)mEvents.size() : following->firstEvent;
  *lineEnd = following == mFunctions.end() ? (uint32_t)mLines.size() : following->firstLine;
  return &*it;
}

HandlerTable::Answer const& HandlerTable::FindAnswerMissed(uint32_t returnOffset) const {
  CachedAnswer& cached = mCache[returnOffset % kCacheSize];
  cached.returnOffset = returnOffset;
  cached.answer = SearchAnswer(returnOffset);
  return cached.answer;
}

HandlerTable::Answer HandlerTable::SearchAnswer(uint32_t returnOffset) const {
  Answer answer;
  uint32_t eventEnd = 0, lineEnd = 0;
  Function const* f = FunctionAt(returnOffset, &eventEnd, &lineEnd);
  if (!f) return answer;
  auto begin = mEvents.begin() + f->firstEvent;
  auto end = mEvents.begin() + eventEnd;
  auto it = std::lower_bound(begin, end, returnOffset,
                             [](Event const& e, uint32_t x) { return e.offset < x; });
  if (it == end) return answer;
  answer.resume = it->answer;
  if (answer.resume != kNoHandler && answer.resume == f->passResume) {
    answer.slotFirst = (int32_t)f->firstSlot;
    answer.slotCount = (int32_t)f->slotCount;
  }
  return answer;
}

int32_t HandlerTable::FindLine(uint32_t returnOffset) const {
  CachedLine& cached = mLineCache[returnOffset % kCacheSize];
  if (returnOffset == 0 || cached.returnOffset != returnOffset) {
    cached.returnOffset = returnOffset;
    cached.line = SearchLine(returnOffset);
  }
  return cached.line;
}

int32_t HandlerTable::SearchLine(uint32_t returnOffset) const {
  uint32_t eventEnd = 0, lineEnd = 0;
  Function const* f = FunctionAt(returnOffset, &eventEnd, &lineEnd);
  if (!f) return kNoLine;
  uint32_t at = returnOffset - 1;
  auto begin = mLines.begin() + f->firstLine;
  auto end = mLines.begin() + lineEnd;
  auto it = std::upper_bound(begin, end, at,
                             [](uint32_t x, RaiseLineEntry const& e) { return x < (uint32_t)e.offset; });
  if (it == begin) return kNoLine;
  return (it - 1)->line;
}
