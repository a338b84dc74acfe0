#include "aclkit/platform/fwk/Errors.h"

#include <cstdio>
#include <cstdlib>

namespace fwk {

void assertionFailed(const char* text, const char* file, int line, const char* function) noexcept {
  std::fprintf(stderr, "Assertion failed: %s (%s:%d %s)\n", text, file, line, function);
  std::fflush(stderr);
  std::abort();
}

}  // namespace fwk
