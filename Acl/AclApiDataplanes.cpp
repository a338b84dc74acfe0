// Following the dataplanes: one status reactor per dataplane record, the hardware request
// stamp, and the evaluation that ends a wait in succeeded or errHw.
#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/internal/Session.h"
#include "aclkit/platform/trace/Clock.h"

namespace AclApi {

using namespace Acl;

StatusDpEntry::StatusDpEntry(const Ptr<const StatusDp>& statusDp, ApiSm* owner) : statusDp_(statusDp), owner_(owner) {
  notifierIs(statusDp.get());
}

void StatusDpEntry::dpAclUpdateTimeChanged() {
  // A report being taken back is no report: the session's state comes back with it.
  if (!owner_ || fwk::Transaction::undoing()) return;
  // The session's observers may let go of the session or of this entry during the call.
  const Ptr<StatusDpEntry> self(fwkReferences() > 0 ? this : nullptr);
  const Ptr<ApiSm> owner = fwk::sharedFromThis(*owner_);
  const String dataplane = statusDp_->name();
  owner->handleDpAclUpdateTime(dataplane);
}

void StatusDpEntry::ownerDel() noexcept {
  owner_ = nullptr;
  notifierIs(nullptr);
}

void StatusDpEntry::ownerIs(ApiSm* owner) {
  owner_ = owner;
  notifierIs(statusDp_.get());
}

// ---- hardware status -------------------------------------------------------------------

void ApiSm::statusDpIs(const Ptr<const StatusDp>& statusDp) {
  const OperationScope scope(*this);
  if (!statusDp) throw fwk::NullArgumentError("statusDpIs: null StatusDp");
  statusDpIs(statusDp->name(), statusDp);
}

void ApiSm::statusDpIs(const String& name, const Ptr<const StatusDp>& statusDp) {
  const OperationScope scope(*this);
  if (!statusDp) throw fwk::NullArgumentError("statusDpIs: null StatusDp");
  FWK_ASSERT_TEXT(name == statusDp->name(), "fwkKey() == KeyFunktor()( _value )");
  statusDpStore(name, statusDp);
  statusDpEntryIs(statusDp);
}

void ApiSm::statusDpDel(const String& name) {
  const OperationScope scope(*this);
  const String removed = name;  // NOLINT(performance-unnecessary-copy-initialization): may be the stored key
  statusDpErase(removed);
  statusDpEntryDel(removed);
}

void ApiSm::statusDpDelAll() {
  const OperationScope scope(*this);
  while (!statusDp().empty()) statusDpDel(statusDp().begin()->first);
  statusDpEntryDelAll();
}

void ApiSm::statusDpEntryIs(const Ptr<const StatusDp>& statusDp) {
  const OperationScope scope(*this);
  if (!statusDp) throw fwk::NullArgumentError("statusDpEntryIs: null StatusDp");
  if (const Ptr<StatusDpEntry>* entry = statusDpEntry().find(statusDp->name());
      entry && (*entry)->statusDp() == statusDp) {
    return;
  }
  statusDpEntryDel(statusDp->name());
  statusDpEntryStore(statusDp->name(), Ptr<StatusDpEntry>(new StatusDpEntry(statusDp, this)));
}

void ApiSm::statusDpEntryIs(const String& name, const Ptr<StatusDpEntry>& entry) {
  const OperationScope scope(*this);
  if (!entry) throw fwk::NullArgumentError("statusDpEntryIs: null entry");
  FWK_ASSERT_TEXT(name == entry->statusDp()->name(), "fwkKey() == KeyFunktor()( _value )");
  if (const Ptr<StatusDpEntry>* old = statusDpEntry().find(name); old && *old != entry) {
    if (fwk::Transaction::recording(*this)) {
      fwk::Transaction::undoWith([self = fwk::sharedFromThis(*this), back = *old] { back->ownerIs(self.get()); });
    }
    (*old)->ownerDel();
  }
  statusDpEntryStore(name, entry);
}

void ApiSm::statusDpEntryDel(const String& name) {
  const OperationScope scope(*this);
  // Whoever else holds the entry must not reach this session through it.
  if (const Ptr<StatusDpEntry>* entry = statusDpEntry().find(name)) {
    if (fwk::Transaction::recording(*this)) {
      fwk::Transaction::undoWith([self = fwk::sharedFromThis(*this), back = *entry] { back->ownerIs(self.get()); });
    }
    (*entry)->ownerDel();
  }
  statusDpEntryErase(name);
}

void ApiSm::statusDpEntryDelAll() {
  const OperationScope scope(*this);
  while (!statusDpEntry().empty()) statusDpEntryDel(statusDpEntry().begin()->first);
}

ApiState ApiSm::waitForHw() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "waitForHw");
  if (statusDp().empty()) {
    ACL_API_TRACE(0, "<, No statusDp");
    return finish(succeeded);
  }
  if (inConfigSession()) {
    ACL_API_TRACE(0, "<, inConfigSession");
    return finish(succeeded);
  }
  bool anyReports = false;
  for (const auto& [name, dp] : statusDp()) anyReports = anyReports || dp->waitForHwStatus();
  if (!anyReports) {
    ACL_API_TRACE(0, "<, waitForHwStatus is false");
    return finish(succeeded);
  }
  const Ptr<HwConfig>& hw = required(hwConfig(), "waitForHw: null hwConfig");
  apiStateIs(waitingForHw);
  const double now = fwk::now();
  ACL_API_TRACE(2, "commit time: " << now);
  hw->dpAclUpdateRequestTimeIs(now);
  // A dataplane on this thread may answer inside the stamp; its answer stands.
  return apiState();
}

void ApiSm::handleDpAclUpdateTime(const String& dataplane) {
  const OperationScope scope(*this);
  const void* self = this;
  ACL_API_TRACE(0, "> [" << self << "] " << dataplane);
  if (apiState() != waitingForHw) {
    ACL_API_TRACE(8, "[ " << self << " ] - Not waiting for hw " << apiState());
    return;
  }
  // Without the request there is nothing to measure the dataplanes against: keep waiting.
  if (!hwConfig()) return;
  const double requested = hwConfig()->dpAclUpdateRequestTime();
  // Entries are walked through counted copies: the observers of what this writes may drop
  // entries or the session's records.
  for (auto it = statusDpEntry().begin(); it != statusDpEntry().end(); ++it) {
    const String name = it->first;
    const Ptr<const StatusDp> dp = it->second->statusDp();
    ACL_API_TRACE(2, name << " : " << dp->dpAclUpdateTime() << ": " << requested);
    if (dp->waitForHwStatus() && dp->dpAclUpdateTime() < requested) {
      ACL_API_TRACE(2, "Not updated");
      return;
    }
  }
  // errHw is raised once: an observer of it may already have started something new (a
  // revert that waits again), whose state a later dataplane's error must not overwrite.
  bool raised = false;
  for (auto it = statusDpEntry().begin(); it != statusDpEntry().end(); ++it) {
    const String name = it->first;
    const Ptr<const StatusDp> dp = it->second->statusDp();
    if (!dp->waitForHwStatus() || dp->error().empty()) continue;
    const String firstError = dp->error().begin()->second;
    ACL_API_TRACE(8, firstError);
    errStringIs(name, firstError);
    if (!raised) {
      raised = true;
      apiStateIs(errHw);
    }
  }
  if (raised) return;
  ACL_API_TRACE(2, "[ " << self << "] Succeeded!");
  if (Ptr<AclConfig> acl = liveAcl(aclType()); acl && acl->currCfg()) acl->currCfg()->committedIs(true);
  apiStateIs(succeeded);
}

}  // namespace AclApi
