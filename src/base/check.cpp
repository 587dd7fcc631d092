// The stop of a debug build at a broken invariant.
#include "base/check.h"

#include <cstdio>
#include <cstdlib>

void AssertionFailed(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: broken invariant: %s\n", file, line, condition);
  std::abort();
}
