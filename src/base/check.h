// Checks of invariants whose breach is a fault in this program, never in a file or in typed
// text: those are answered with error values and messages. A debug build stops at the broken
// invariant with its place; a release build compiles the check away.
#pragma once

[[noreturn]] void AssertionFailed(const char* condition, const char* file, int line);

#ifdef NDEBUG
#define DEBUG_ASSERT(condition) ((void)0)
#else
#define DEBUG_ASSERT(condition) \
  ((condition) ? (void)0 : AssertionFailed(#condition, __FILE__, __LINE__))
#endif
