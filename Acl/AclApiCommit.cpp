// Installing the scratchpad, undoing it, deleting a list, and keeping the rules that use a
// user-defined-field alias in step with it.
#include <optional>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/internal/Session.h"

namespace AclApi {

using namespace Acl;

// ---- commit ----------------------------------------------------------------------------

// A commit runs in four phases. Validate: the pre-apply guard, and what other sessions did to
// the list since the scratchpad was taken. Prepare: the list, made when new, and the alias
// lists of the rules about to be current. Apply: the current version patched in place when
// only numbering and remarks differ, else a new version installed. Finish: the wait for the
// dataplanes, then letting go of what the session no longer needs.
ApiState ApiSm::commitExt(bool cleanup) {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, ">, [" << static_cast<const void*>(this) << "] " << aclName() << ":" << aclType());
  const Ptr<AclSubConfig> sp = spAclSubConfig();
  if (!sp) {
    ACL_API_TRACE(9, "Scratchpad is empty!");
    return finish(succeeded);
  }
  FWK_ASSERT(apiType() == commit_);

  // validate
  if (attachedToDp() && !dpAclPreApplyOk()) return finish(errAclApi);
  if (!config()) return noAclConfig();
  const Ptr<Input::AclTypeConfig> table = config()->configIs(aclType());
  Ptr<AclConfig> live = table->acl(aclName());
  if (const std::optional<ApiState> conflict = conflictingSession(live)) return finish(*conflict);

  // prepare
  if (!live) {
    ACL_API_TRACE(2, "New acl " << aclName());
    live = table->aclIs(aclName(), aclType(), standard(), false);
  }
  const Ptr<AclSubConfig> current = live->currCfg();
  clearUdfAceList();
  populateUdfAceList(sp);

  // apply
  if (!shouldUpdateAcl()) {
    ACL_API_TRACE(2, "update existing ACL " << aclName());
    required(aclCopyHelper(), "commit: null aclCopyHelper")->copyNonEssential(current, sp);
    return finish(succeeded);
  }
  const Ptr<AclSubConfig> fresh = installVersion(*live, sp);

  // finish
  if (waitForHw() == succeeded) {
    spAclSubConfigIs(nullptr);
    apiStateIs(succeeded);
    fresh->committedIs(true);
  }
  if (cleanup) cleanupOldConfig();
  return apiState();
}

// Another session may have created, deleted or replaced the list since the scratchpad was
// taken; identities tell, content is not compared.
std::optional<ApiState> ApiSm::conflictingSession(const Ptr<AclConfig>& live) const {
  if (!origAclConfig() && live) {
    ACL_API_TRACE(9, "Acl " << aclName() << " has been created by another session");
    return errSessionCreate;
  }
  if (origAclConfig() && !live) {
    ACL_API_TRACE(9, "Acl " << aclName() << " has been deleted by another session");
    return errSessionDelete;
  }
  if (live && origAclConfig() && origAclSubConfig() &&
      (!live->currCfg() || live->currCfg()->id() != origAclSubConfig()->id())) {
    ACL_API_TRACE(9, "Acl " << aclName() << " has been modified by another session");
    return errSessionModify;
  }
  return std::nullopt;
}

// The new version is complete before it becomes current, and committed only once the
// hardware has it.
Ptr<AclSubConfig> ApiSm::installVersion(AclConfig& live, const Ptr<AclSubConfig>& scratchpad) {
  ACL_API_TRACE(2, "create new subConfig for ACL " << aclName());
  Ptr<AclSubConfig> fresh = live.subConfigIs(scratchpad->id());
  required(entityCopy(), "commit: null entityCopy")->doCopyEntityAttrs(fresh, scratchpad, "", nullptr);
  live.dynamicIs(dynamic());
  live.secureMonitorIs(secureMonitor());
  live.currCfgIs(fresh);
  return fresh;
}

bool ApiSm::shouldUpdateAcl() const {
  if (!exists()) return true;
  if (!spAclSubConfig()) return false;
  if (!origAclSubConfig() || !config()) return true;
  Ptr<Input::AclTypeConfig> typeConfig = config()->config(aclType());
  FWK_ASSERT(typeConfig);
  Ptr<AclConfig> live = typeConfig->acl(aclName());
  if (!live || !live->currCfg()) return true;
  // Only a version the hardware has programmed may be patched in place.
  if (!origAclSubConfig()->committed()) return true;
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  if (sp->countersEnabled() != origAclSubConfig()->countersEnabled() ||
      sp->fragmentsEnabled() != origAclSubConfig()->fragmentsEnabled()) {
    return true;
  }
  return !required(aclCopyHelper(), "shouldUpdateAcl: null aclCopyHelper")
              ->equalRuleConfig(aclType(), live->currCfg(), sp);
}

// ---- revert and remove ------------------------------------------------------------------

ApiState ApiSm::revert() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "revert"
                       << " > " << aclName() << aclType() << apiState());
  if (apiType() == commit_) {
    const Ptr<AclSubConfig> sp = spAclSubConfig();
    if (!sp) {
      ACL_API_TRACE(8, "Scratchpad empty. Nothing to revert");
      return apiState();
    }
    ACL_API_TRACE(8, "Failed while committing");
    clearUdfAceList();
    Ptr<Input::AclTypeConfig> typeConfig = config() ? config()->config(aclType()) : nullptr;
    if (!origAclSubConfig()) {
      ACL_API_TRACE(8, "origAclSubConfig does not exist. Deleting the acl");
      if (typeConfig) typeConfig->aclDel(aclName());
      return finish(succeeded);
    }
    const Ptr<AclSubConfig> original = origAclSubConfig();
    ACL_API_TRACE(8, "Reverting to " << original->id());
    Ptr<AclConfig> acl = typeConfig ? typeConfig->acl(aclName()) : nullptr;
    if (acl) acl->subConfigDel(sp->id());
    Ptr<AclSubConfig> kept = acl ? acl->subConfig(original->id()) : nullptr;
    if (kept) {
      ACL_API_TRACE(2, "Setting the currCfg to : " << kept);
      acl->currCfgIs(kept);
      populateUdfAceList(kept);
      return finish(waitForHw());
    }
    ACL_API_TRACE(2, "Cannot revert as the original subConfig has been deleted");
    return finish(succeeded);
  }
  if (apiType() == attach_ || apiType() == detach_) {
    ACL_API_TRACE(8, "Failed while " << apiType());
    if (!intfConfig()) return notConfigured();
    Ptr<AclIntf> intfs = bindings(direction(), true);
    const IntfId id(intf());
    if (origAclName().empty()) {
      intfs->intfDel(id);
    } else {
      intfs->intfIs(id, origAclName());
    }
    return finish(waitForHw());
  }
  ACL_API_TRACE(8, "apiType: " << apiType());
  return apiState();
}

ApiState ApiSm::remove() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "remove"
                       << " >, " << aclName() << aclType());
  FWK_ASSERT(apiType() == remove_);
  if (!config()) return noAclConfig();
  Ptr<Input::AclTypeConfig> typeConfig = config()->config(aclType());
  FWK_ASSERT(typeConfig);
  Ptr<AclConfig> acl = typeConfig->acl(aclName());
  if (!acl) {
    ACL_API_TRACE(9, "<, errAclDoesNotExist");
    return finish(errAclDoesNotExist);
  }
  if (acl->standard() != standard()) {
    ACL_API_TRACE(9, "<, errStandardAcl");
    return finish(errStandardAcl);
  }
  if (acl->readonly()) {
    ACL_API_TRACE(9, "<, errReadOnly");
    return finish(errReadOnly);
  }
  typeConfig->aclDel(aclName());
  spAclSubConfigIs(nullptr);
  origAclSubConfigIs(nullptr);
  origAclConfigIs(nullptr);
  apiStateIs(succeeded);
  if (udfAliasDir()) {
    if (aclType() == AclType::ip || aclType() == AclType::mac) {
      const auto& aliases = aclType() == AclType::ip ? udfAliasDir()->ipAlias() : udfAliasDir()->macAlias();
      for (const auto& [name, payload] : aliases) payload->aceListForAclDel(aclName());
    }
  }
  return apiState();
}

// ---- UDF aliases ---------------------------------------------------------------------------

PayloadSpec updatePayloadSpec(String alias, const PayloadValue& value, const PayloadSpec& spec, U16 count) {
  std::vector<PayloadValue> values(count);
  const U16 n = payloadSpecToValue(values.data(), count, spec);
  for (U16 i = 0; i < n; ++i) {
    PayloadValue& entry = values[i];
    if (entry.alias() != alias) continue;
    entry.offsetIs(value.offset());
    if (!entry.ownPattern()) entry.patternIs(value.pattern());
    if (!entry.ownMask()) entry.maskIs(value.mask());
  }
  return PayloadSpec(payloadValueToOffsetPattern(n, values.data()));
}

void ApiSm::clearUdfAceList() {
  const OperationScope scope(*this);
  ACL_API_TRACE(7, "clearUdfAceList");
  if (!udfAliasDir() || (aclType() != AclType::ip && aclType() != AclType::mac)) return;
  const auto& aliases = aclType() == AclType::ip ? udfAliasDir()->ipAlias() : udfAliasDir()->macAlias();
  for (const auto& [name, payload] : aliases) payload->aceListForAclDel(aclName());
}

void ApiSm::populateUdfAceList(Ptr<const AclSubConfig> subConfig) {
  const OperationScope scope(*this);
  ACL_API_TRACE(7, "populateUdfAceList");
  if (!udfAliasDir() || !subConfig || (aclType() != AclType::ip && aclType() != AclType::mac)) return;
  const bool ip = aclType() == AclType::ip;
  const auto& aliases = ip ? udfAliasDir()->ipAlias() : udfAliasDir()->macAlias();
  if (aliases.empty()) return;
  std::vector<PayloadValue> values;
  for (const auto& [sequence, id] : subConfig->ruleBySequence()) {
    const PayloadSpec& spec = ip ? subConfig->ipRuleById().valueOr(id).filter().payload()
                                 : subConfig->macRuleById().valueOr(id).filter().payload();
    if (!spec.used()) continue;
    values.assign(spec.count(), PayloadValue());
    const U16 n = payloadSpecToValue(values.data(), spec.count(), spec);
    for (U16 i = 0; i < n; ++i) {
      const Ptr<UdfAliasPayload>* payload = aliases.find(values[i].alias());
      if (!payload) continue;
      ACL_API_TRACE(9,
                    "Adding sequence " << sequence << " from alias: " << values[i].alias() << " in acl: " << aclName());
      (*payload)->aceListForAclIs(aclName())->seqIs(sequence, true);
    }
  }
}

void ApiSm::updateUdfAliasInAcls(String alias, const PayloadValue& value) {
  const OperationScope scope(*this);
  ACL_API_TRACE(7, "updateUdfAliasInAcls");
  const bool ip = aclType() == AclType::ip;
  Ptr<UdfAliasPayload> payload;
  if (udfAliasDir()) payload = ip ? udfAliasDir()->ipAlias(alias) : udfAliasDir()->macAlias(alias);
  const U16 capacity = aclStatus() ? (ip ? aclStatus()->ipPayloadCapacity() : aclStatus()->macPayloadCapacity()) : 0;
  const U16 count = static_cast<U16>(capacity + 1);
  Ptr<UdfAceList> users = payload ? payload->aceListForAcl(aclName()) : nullptr;
  const Ptr<AclSubConfig> sp = spAclSubConfig();
  if (users && sp) {
    std::vector<U32> sequences;
    for (const auto& entry : users->seq()) sequences.push_back(entry.first);
    for (U32 sequence : sequences) {
      // The rule leaves its place and comes back to it, rewritten, with a fresh identity.
      const UniqueId id = sp->ruleBySequence(sequence);
      if (aclType() == AclType::ip) {
        IpRuleConfig rule = sp->ipRuleById(id);
        sp->ipRuleByIdDel(id);
        sp->ruleBySequenceDel(sequence);
        updateIpRuleMap(rule, -1);
        IpFilter filter = rule.filter();
        filter.payloadIs(updatePayloadSpec(alias, value, filter.payload(), count));
        rule.filterIs(filter);
        static_cast<void>(addIpRule(sequence, rule));  // its result is the session's state
      } else if (aclType() == AclType::mac) {
        MacRuleConfig rule = sp->macRuleById(id);
        updateMacRuleMap(rule, -1);
        sp->macRuleByIdDel(id);
        sp->ruleBySequenceDel(sequence);
        MacFilter filter = rule.filter();
        filter.payloadIs(updatePayloadSpec(alias, value, filter.payload(), count));
        rule.filterIs(filter);
        static_cast<void>(addMacRule(sequence, rule));
      }
    }
  }
  static_cast<void>(commit());  // reported, as every result, in apiState
}

}  // namespace AclApi
