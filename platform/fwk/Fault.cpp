#include "aclkit/platform/fwk/Fault.h"

namespace fwk::fault {

namespace {
struct State {
  std::uint8_t sites = 0;
  std::uint64_t target = 0;
  std::uint64_t count = 0;
  bool persistent = false;
  bool throwing = false;  // no point fires while a fault is being raised
  bool suspended = false;
};
thread_local State state;
}  // namespace

void point(Site site) {
  State& s = state;
  if ((s.sites & site) == 0 || s.throwing || s.suspended) return;
  ++s.count;
  if (s.count < s.target || (!s.persistent && s.count > s.target)) return;
  s.throwing = true;
  struct Reset {
    State& s;
    ~Reset() { s.throwing = false; }
  } reset{s};
  throw InjectedFault();
}

void arm(std::uint8_t sites, std::uint64_t n, bool persistent) {
  state = State{sites, n, 0, persistent, false, state.suspended};
}

void disarm() noexcept {
  state.sites = 0;
}

std::uint64_t reached() noexcept {
  return state.count;
}

Suspend::Suspend() noexcept : wasSuspended_(state.suspended) {
  state.suspended = true;
}

Suspend::~Suspend() {
  state.suspended = wasSuspended_;
}

}  // namespace fwk::fault
