// The option flags of one compilation; the pragmas change them inside it.
#pragma once

#include <cstdint>

struct LanguageOptions {
  uint8_t boundsChecking = 1;
  uint8_t backgroundTasks = 1;
  uint8_t nilObjectChecking = 1;
  uint8_t stackOverflowChecking = 1;
  uint8_t debug = 0;
  uint8_t autoWaitCursorDisabled = 0;
};

static_assert(sizeof(LanguageOptions) == 6);
