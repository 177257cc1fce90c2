// Script exceptions find their handlers by scanning generated code for
// marker blocks that the code generator lays down in line. This header pins
// the shape of those blocks, which the generator writes and the raise path
// reads; the raise and handler-search functions come with the exception
// run-time itself.
//
// Invariants:
// - A marker block starts with a 32-bit jump (0xE9) that normal flow takes
//   over the block; the marker word follows the jump, so a scanner that
//   stops on 0xE9 finds it five bytes further on.
// - The records are packed: every byte is placed exactly as the scanner
//   reads it, with no padding, and all numbers are little-endian.
// - A function's code ends with `pop ebp; ret` (or `leave; ret`): the
//   scanner stops there, so no marker of a later function is ever taken.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// Marker words, read five bytes into a block.
constexpr uint32_t kExceptionSwitchMarker = 0x411;  // a handler entry
constexpr uint32_t kExceptionTryBeginMarker = 0x412;
constexpr uint32_t kExceptionTryEndMarker = 0x413;

// The opcodes that open a block: the generator writes only the long jump;
// the scanner also accepts the short one.
constexpr uint8_t kExceptionLongJumpOpcode = 0xE9;
constexpr uint8_t kExceptionShortJumpOpcode = 0xEB;

#pragma pack(push, 1)

// Try begin and try end: a jump over the marker word, and the word.
struct RuntimeTryMarker {
  uint8_t mJumpOpcode;
  int32_t mJumpDistance;
  uint32_t mMarker;
};

// A handler entry. Normal flow jumps over it to the code behind the handler,
// or, with no such label, just past the stack restore that opens the resume
// point, so that it runs on into the handler's code. The raise path stores
// the exception in the local at mLocalOffset from the frame pointer (none
// when 0) and returns into the resume point.
struct RuntimeSwitchBlock {
  uint8_t mJumpOpcode;
  int32_t mJumpDistance;
  uint32_t mMarker;
  uint16_t mReserved;
  int16_t mLocalOffset;
  // The resume point follows: code, beginning with the reload of the stack
  // pointer from the copy that the function's prolog stored.
};

#pragma pack(pop)

static_assert(std::is_standard_layout_v<RuntimeTryMarker>);
static_assert(offsetof(RuntimeTryMarker, mJumpOpcode) == 0);
static_assert(offsetof(RuntimeTryMarker, mJumpDistance) == 1);
static_assert(offsetof(RuntimeTryMarker, mMarker) == 5);
static_assert(sizeof(RuntimeTryMarker) == 9);

static_assert(std::is_standard_layout_v<RuntimeSwitchBlock>);
static_assert(offsetof(RuntimeSwitchBlock, mJumpOpcode) == 0);
static_assert(offsetof(RuntimeSwitchBlock, mJumpDistance) == 1);
static_assert(offsetof(RuntimeSwitchBlock, mMarker) == 5);
static_assert(offsetof(RuntimeSwitchBlock, mReserved) == 9);
static_assert(offsetof(RuntimeSwitchBlock, mLocalOffset) == 11);
static_assert(sizeof(RuntimeSwitchBlock) == 13);

// Where the scanner finds each field, counted from the jump opcode.
constexpr int32_t kMarkerJumpLength = offsetof(RuntimeTryMarker, mMarker);
constexpr int32_t kMarkerWordOffset = offsetof(RuntimeTryMarker, mMarker);
constexpr int32_t kTryMarkerSize = sizeof(RuntimeTryMarker);
constexpr int32_t kSwitchBlockMarkerOffset = offsetof(RuntimeSwitchBlock, mMarker);
constexpr int32_t kSwitchBlockReservedOffset = offsetof(RuntimeSwitchBlock, mReserved);
constexpr int32_t kSwitchBlockLocalOffset = offsetof(RuntimeSwitchBlock, mLocalOffset);
constexpr int32_t kSwitchBlockResumeOffset = sizeof(RuntimeSwitchBlock);
// A try marker's jump passes over the marker word only.
constexpr int32_t kTryMarkerJumpDistance = sizeof(RuntimeTryMarker) - offsetof(RuntimeTryMarker, mMarker);
