#include "aclkit/Acl/AclConfigSession.h"

#include "aclkit/platform/fwk/Errors.h"
#include "aclkit/platform/fwk/Transaction.h"

namespace Acl {

AclConfigSession::AclConfigSession(const AclMounts& running)
    : runningConfig_(running.config),
      runningIntf_(running.intfConfig),
      candidateConfig_(new Input::Config(String("candidate"))),
      candidateIntf_(new IntfConfig(String("candidateIntf"))) {
  if (!runningConfig_ || !runningIntf_)
    throw fwk::NullArgumentError("a configuration session needs the running configuration");
  candidateConfig_->hasNotificationActiveIs(true);
  candidateIntf_->hasNotificationActiveIs(true);
  copy(candidateConfig_, runningConfig_, candidateIntf_, runningIntf_);
}

AclConfigSession::~AclConfigSession() {
  abort();
}

bool AclConfigSession::copy(const Ptr<Input::Config>& destConfig, const Ptr<const Input::Config>& srcConfig,
                            const Ptr<IntfConfig>& destIntf, const Ptr<const IntfConfig>& srcIntf) {
  // The bindings are judged against the destination's ACLs, which are copied first.
  Cli::Session::CopyHandlerRegistry handlers;
  Ptr<AclConfigCopyHandler> aclHandler = aclConfigCopyHandlerFactory();
  aclHandler->initialize();
  handlers.handlerIs(Input::AclTypeConfig::staticType(), aclHandler);
  handlers.handlerIs(IntfTypeConfig::staticType(), aclIntfConfigCopyHandlerFactory(destConfig));

  Ptr<EntityCopy> aclCopy = Cli::Session::entityCopyFactory();
  aclCopy->registryIs(&handlers);
  bool changed = aclCopy->copyTree(destConfig, srcConfig);
  Ptr<EntityCopy> intfCopy = Cli::Session::entityCopyFactory();
  intfCopy->registryIs(&handlers);
  changed = intfCopy->copyTree(destIntf, srcIntf) || changed;
  return changed;
}

Ptr<AclSubConfig> AclConfigSession::newVersion(AclType type, const String& aclName) {
  if (!isOpen()) throw fwk::Error("the configuration session is closed");
  const fwk::Transaction transaction;
  Ptr<AclConfig> acl = candidateConfig_->configIs(type)->aclIs(aclName, type, false, false);
  Ptr<AclSubConfig> old = acl->currCfg();
  Ptr<AclSubConfig> fresh = acl->subConfigIs(UniqueId());
  if (old) {
    Ptr<EntityCopy> copier = Cli::Session::entityCopyFactory();
    copier->doCopyEntityAttrs(fresh, old, "", nullptr);
  }
  acl->currCfgIs(fresh);
  if (old) acl->subConfigDel(old->id());
  return fresh;
}

bool AclConfigSession::commit() {
  if (!isOpen()) throw fwk::Error("the configuration session is closed");
  // All or nothing: a failure part-way puts the running configuration back as it was, and
  // the session stays open.
  const fwk::Transaction transaction;
  bool changed = copy(runningConfig_, candidateConfig_, runningIntf_, candidateIntf_);
  abort();
  return changed;
}

void AclConfigSession::abort() noexcept {
  candidateConfig_ = nullptr;
  candidateIntf_ = nullptr;
}

}  // namespace Acl
