// The system clock in seconds since the epoch, as the dataplanes stamp their status.
// Tests replace it with ClockOverride so that time-based decisions are reproducible.
#pragma once

#include <functional>

#include "aclkit/platform/fwk/Export.h"

namespace fwk {

ACLKIT_EXPORT double now();

// While it lives, now() returns what `source` returns.
class ACLKIT_EXPORT ClockOverride {
 public:
  explicit ClockOverride(std::function<double()> source);
  ~ClockOverride();
  ClockOverride(const ClockOverride&) = delete;
  ClockOverride& operator=(const ClockOverride&) = delete;

 private:
  std::function<double()> previous_;
};

}  // namespace fwk
