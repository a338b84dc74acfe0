// A dataplane agent as an edit session sees it: one status record that reports when the
// test says so. apply() programs the latest request (its update time rises to the request
// time), fail() reports an error and then applies, and doing nothing stays behind.
#pragma once

#include "aclkit/model/Mounts.h"

namespace build {

class FakeDataplane {
 public:
  FakeDataplane(const Acl::AclMounts& acl, const char* name, bool reports = true)
      : hw_(acl.hwConfig), status_(acl.statusDpDir->entityIs<Acl::StatusDp>(name)) {
    status_->waitForHwStatusIs(reports);
  }
  void apply() { status_->dpAclUpdateTimeIs(hw_->dpAclUpdateRequestTime()); }
  void fail(const char* message, const char* key = "hw") {
    status_->errorIs(key, message);
    apply();
  }
  void recover() { status_->errorDelAll(); }
  [[nodiscard]] const fwk::Ptr<Acl::StatusDp>& status() const noexcept { return status_; }

 private:
  fwk::Ptr<Acl::HwConfig> hw_;
  fwk::Ptr<Acl::StatusDp> status_;
};

}  // namespace build
