#pragma once

#include <cstdio>
#include <cstdlib>

/// Stops the process when an invariant of ours is broken: a programming error, never an outside condition (those are
/// `Result`s). On in every build, so that what the tests saw is what users run.
#define QB_CHECK(condition)                                                              \
  do {                                                                                   \
    if (!(condition)) [[unlikely]] {                                                     \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                      \
    }                                                                                    \
  } while (false)
