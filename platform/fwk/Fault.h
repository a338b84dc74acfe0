// Fault injection for reliability tests.
//
// Builds configured with ACLKIT_FAULT_INJECTION (FWK_FAULT_INJECTION=1) count every fault
// point the framework passes: attribute and collection mutations, notifications, reactor
// handlers and (when the test binary routes its allocator here) allocations. A test arms
// the injector to throw InjectedFault at the Nth point (once, or at every point from the
// Nth on) and checks what state an operation leaves when it fails there:
//
//   fwk::fault::arm(fwk::fault::anySite, n, /*persistent=*/false);
//   EXPECT_THROW(session->commit(), fwk::fault::InjectedFault);
//   fwk::fault::disarm();
//
// In other builds FWK_FAULT_POINT compiles to nothing.
#pragma once

#include <cstdint>
#include <stdexcept>

#include "aclkit/platform/fwk/Export.h"

namespace fwk::fault {

enum Site : std::uint8_t { mutation = 1, notification = 2, reaction = 4, allocation = 8 };
inline constexpr std::uint8_t anySite = mutation | notification | reaction | allocation;

class ACLKIT_EXPORT InjectedFault : public std::runtime_error {
 public:
  InjectedFault() : std::runtime_error("injected fault") {}
};

// Throws at the armed point; counts otherwise.
ACLKIT_EXPORT void point(Site site);
// Arms the Nth point (from 1) among `sites`, counted from now.
ACLKIT_EXPORT void arm(std::uint8_t sites, std::uint64_t n, bool persistent);
ACLKIT_EXPORT void disarm() noexcept;
// Points of the armed sites passed since arm().
[[nodiscard]] ACLKIT_EXPORT std::uint64_t reached() noexcept;

// No point fires or counts while one lives on this thread: undoing a failed piece of work
// must not fail in turn.
class ACLKIT_EXPORT Suspend {
 public:
  Suspend() noexcept;
  ~Suspend();
  Suspend(const Suspend&) = delete;
  Suspend& operator=(const Suspend&) = delete;

 private:
  bool wasSuspended_;
};

}  // namespace fwk::fault

#if FWK_FAULT_INJECTION
#define FWK_FAULT_POINT(site) ::fwk::fault::point(::fwk::fault::site)
#else
#define FWK_FAULT_POINT(site) static_cast<void>(0)
#endif
