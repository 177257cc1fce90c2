// Runs a test body on a thread of its own with a small stack, so that a
// recursion that grows with the input fails at once instead of passing on
// the main thread's eight megabytes.
#pragma once

#include <pthread.h>

#include <cstddef>

inline bool RunOnSmallStack(void* (*body)(void*), void* argument, size_t bytes) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, bytes);
  pthread_t thread;
  bool started = pthread_create(&thread, &attributes, body, argument) == 0;
  if (started) pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  return started;
}
