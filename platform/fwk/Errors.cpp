#include "aclkit/platform/fwk/Errors.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace fwk {

namespace {
std::atomic<bool> assertionsThrow{false};
}  // namespace

void assertionsThrowIs(bool enabled) noexcept {
  assertionsThrow = enabled;
}

void assertionFailed(const char* text, const char* file, int line, const char* function) {
  if (assertionsThrow) throw AssertionError(text);
  std::fprintf(stderr, "Assertion failed: %s (%s:%d %s)\n", text, file, line, function);
  std::fflush(stderr);
  std::abort();
}

}  // namespace fwk
