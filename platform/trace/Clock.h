// The system clock in seconds since the epoch, as the dataplanes stamp their status.
// Tests replace it with ClockOverride so that time-based decisions are reproducible.
#pragma once

#include <functional>

namespace fwk {

double now();

// While it lives, now() returns what `source` returns.
class ClockOverride {
 public:
  explicit ClockOverride(std::function<double()> source);
  ~ClockOverride();
  ClockOverride(const ClockOverride&) = delete;
  ClockOverride& operator=(const ClockOverride&) = delete;

 private:
  std::function<double()> previous_;
};

}  // namespace fwk
