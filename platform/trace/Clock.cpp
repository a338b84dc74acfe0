#include "aclkit/platform/trace/Clock.h"

#include <chrono>
#include <utility>

namespace fwk {

namespace {
std::function<double()>& source() {
  static std::function<double()> current;
  return current;
}
}  // namespace

double now() {
  if (const auto& override = source()) return override();
  using Seconds = std::chrono::duration<double>;
  return std::chrono::duration_cast<Seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

ClockOverride::ClockOverride(std::function<double()> replacement)
    : previous_(std::exchange(source(), std::move(replacement))) {}
ClockOverride::~ClockOverride() {
  source() = std::move(previous_);
}

}  // namespace fwk
