// A configuration session over the ACL model.
//
//   Acl::AclConfigSession session(Acl::mountAcl(store));     // candidate = copy of running
//   Ptr<AclSubConfig> v = session.newVersion(AclType::ip, "acl1");
//   ... edit v, or session.config() / session.intfConfig() directly ...
//   session.commit();                                        // or session.abort()
//
// The candidate is private to the session. Opening and committing copy through the ACL copy
// handlers, so the running configuration sees only what differs, never a half-built list,
// and keeps its dynamic and secure-monitor ACLs and their bindings. A session that is
// neither committed nor aborted aborts when it goes.
#pragma once

#include "aclkit/Acl/AclCopy.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/fwk/Export.h"

namespace Acl {

class ACLKIT_EXPORT AclConfigSession {
 public:
  explicit AclConfigSession(const AclMounts& running);
  ~AclConfigSession();
  AclConfigSession(const AclConfigSession&) = delete;
  AclConfigSession& operator=(const AclConfigSession&) = delete;

  // The candidate trees; null once the session is closed.
  [[nodiscard]] const Ptr<Input::Config>& config() const noexcept { return candidateConfig_; }
  [[nodiscard]] const Ptr<IntfConfig>& intfConfig() const noexcept { return candidateIntf_; }
  [[nodiscard]] bool isOpen() const noexcept { return candidateConfig_ != nullptr; }

  // A new version of the ACL in the candidate (the ACL is created, as a plain ACL, when it
  // is missing) holding what the current version holds, made current. Editing a new version
  // rather than the current one is what lets commit replace the running version whole.
  Ptr<AclSubConfig> newVersion(AclType type, const String& aclName);

  // Copies the candidate into the running configuration and closes the session; true when
  // the running configuration changed. fwk::Error when the session is closed.
  bool commit();
  // Drops the candidate and closes the session.
  void abort() noexcept;

 private:
  bool copy(const Ptr<Input::Config>& destConfig, const Ptr<const Input::Config>& srcConfig,
            const Ptr<IntfConfig>& destIntf, const Ptr<const IntfConfig>& srcIntf);

  Ptr<Input::Config> runningConfig_;
  Ptr<IntfConfig> runningIntf_;
  Ptr<Input::Config> candidateConfig_;
  Ptr<IntfConfig> candidateIntf_;
};

}  // namespace Acl
