// The edit session: one request on one named ACL of one family.
//
//   Ptr<ApiSm> s = apiSmFactory("web", AclType::ip, false, commit_, config, paramConfig,
//                               intfConfig, hwConfig, aclStatus, statusDpDir, udfAlias);
//   s->addIpRule(0, rule);                 // next free place: last + 10
//   s->addRemark(RemarkConfig("web"), 5);
//   s->resequence(10, 10);
//
// A commit session edits a scratchpad copy of the ACL's current version; nothing reaches the
// ACL until the scratchpad is committed. Every editing operation returns an ApiState and
// stores it in apiState; the capability checks and the hardware wait also leave messages in
// errString. Operations of another session type are assertion failures. Traces go to the
// "AclApi" facility. All attributes and operations are reachable by name (reflection order
// is declaration order and is part of the interface).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "aclkit/Acl/AclCopy.h"
#include "aclkit/model/AclConfig.h"
#include "aclkit/model/Family.h"
#include "aclkit/model/IntfConfig.h"
#include "aclkit/model/Platform.h"
#include "aclkit/model/Udf.h"
#include "aclkit/platform/fwk/Dir.h"
#include "aclkit/platform/fwk/Export.h"

namespace AclApi {

using Acl::AclType;
using Acl::U16;
using Acl::U32;
using fwk::Ptr;
using fwk::String;

// clang-format off
#define ACLKIT_ACL_API_TYPES(E) E(commit_, 0) E(remove_, 1) E(attach_, 2) E(detach_, 3)
// clang-format on
FWK_ENUM(ApiType, std::uint32_t, ACLKIT_ACL_API_TYPES)

// clang-format off
#define ACLKIT_ACL_API_STATES(E)                                                                     \
  E(ready, 0) E(waitingForHw, 1) E(succeeded, 2) E(failed, 3) E(errAclDoesNotExist, 4)         \
  E(errStandardAcl, 5) E(errReadOnly, 6) E(errRuleExists, 7) E(errRemarkDoesNotExist, 8)       \
  E(errSequenceOutOfRange, 9) E(errUnsupportedRules, 10) E(errNotConfigured, 11) E(errHw, 12)  \
  E(errSessionCreate, 13) E(errSessionDelete, 14) E(errSessionModify, 15)                      \
  E(errIncorrectApiType, 16) E(errAclApi, 17)
// clang-format on
FWK_ENUM(ApiState, std::uint32_t, ACLKIT_ACL_API_STATES)

class ApiSm;

// Watches one dataplane's status record for its session.
class ACLKIT_EXPORT StatusDpEntry : public Acl::StatusDp::Reactor {
 public:
  static const char* fwkTypeName() { return "StatusDpEntry"; }
  StatusDpEntry(const Ptr<const Acl::StatusDp>& statusDp, ApiSm* owner);
  [[nodiscard]] const Ptr<const Acl::StatusDp>& statusDp() const noexcept { return statusDp_; }
  void dpAclUpdateTimeChanged() override;
  // The session lets go of the entry: it stops watching and calls nobody.
  void ownerDel() noexcept;
  // The session takes the entry (back): it watches its record and calls `owner`.
  void ownerIs(ApiSm* owner);

 private:
  Ptr<const Acl::StatusDp> statusDp_;
  ApiSm* owner_;  // cleared by the session before it drops the entry
};

// clang-format off
#define ACLKIT_ACL_API_SM_ATTRS(A)                                                                   \
  A(scalar, aclName, fwk::String, {})                                                         \
  A(scalar, aclType, Acl::AclType, Acl::AclType::ip)                                          \
  A(scalar, standard, bool, false)                                                            \
  A(customScalar, spAclSubConfig, fwk::Ptr<Acl::AclSubConfig>, {})                            \
  A(scalar, spLastSequenceNumber, Acl::U32, 0)                                                \
  A(hashMap, spIpRuleMap, Acl::IpRuleConfig, Acl::U32)                                        \
  A(hashMap, spIp6RuleMap, Acl::Ip6RuleConfig, Acl::U32)                                      \
  A(hashMap, spMacRuleMap, Acl::MacRuleConfig, Acl::U32)                                      \
  A(hashMap, spRemarkMap, Acl::RemarkConfig, Acl::U32)                                        \
  A(scalar, spRuleMapInitialized, bool, false)                                                \
  A(scalar, origAclSubConfig, fwk::Ptr<Acl::AclSubConfig>, {})                                \
  A(scalar, origAclConfig, fwk::Ptr<Acl::AclConfig>, {})                                      \
  A(scalar, intf, fwk::String, {})                                                            \
  A(scalar, direction, Acl::AclDirection, Acl::AclDirection::in)                              \
  A(scalar, origAclName, fwk::String, {})                                                     \
  A(scalar, apiType, ApiType, commit_)                                                        \
  A(scalar, config, fwk::Ptr<Acl::Input::Config>, {})                                         \
  A(scalar, paramConfig, fwk::Ptr<const Acl::ParamConfig>, {})                                \
  A(scalar, intfConfig, fwk::Ptr<Acl::IntfConfig>, {})                                        \
  A(scalar, hwConfig, fwk::Ptr<Acl::HwConfig>, {})                                            \
  A(scalar, aclStatus, fwk::Ptr<const Acl::Status>, {})                                       \
  A(scalar, statusDpDir, fwk::Ptr<const fwk::Dir>, {})                                        \
  A(scalar, udfAliasDir, fwk::Ptr<Acl::UdfAlias>, {})                                         \
  A(scalar, checkpoint, fwk::Ptr<Acl::CheckpointStatus>, {})                                  \
  A(customOrderedMap, statusDp, fwk::String, fwk::Ptr<const Acl::StatusDp>)                   \
  A(customOrderedMap, statusDpEntry, fwk::String, fwk::Ptr<StatusDpEntry>)                    \
  A(scalar, inConfigSession, bool, false)                                                     \
  A(scalar, guardsEnabled, bool, true)                                                        \
  A(constScalar, maxSequence, Acl::U32, 4294967295u)                                          \
  A(constScalar, defaultSeqInc, Acl::U32, 10)                                                 \
  A(scalar, apiState, ApiState, ready)                                                        \
  A(customOrderedMap, errString, fwk::String, fwk::String)                                    \
  A(scalar, dynamic, bool, false)                                                             \
  A(scalar, secureMonitor, bool, false)                                                       \
  A(scalar, aclCopyHelper, fwk::Ptr<Acl::AclConfigCopyHandler>, {})                           \
  A(scalar, entityCopy, fwk::Ptr<Cli::Session::EntityCopy>, {})                               \
  A(scalar, initialized, bool, false)
// clang-format on

// Operations reachable by name, in their declared order.
// clang-format off
#define ACLKIT_ACL_API_SM_OPS(O)                                                                     \
  O(handleRuleBySequence) O(initializeRuleMap) O(updateIpRuleMap) O(updateIp6RuleMap)         \
  O(updateMacRuleMap) O(updateRemarkMap) O(handleDpAclUpdateTime) O(remove) O(exists)         \
  O(getIpRule) O(getIp6Rule) O(getMacRule) O(addIpRule) O(addIp6Rule) O(addMacRule)           \
  O(removeRuleBySequence) O(removeIpRuleByConfig) O(removeIp6RuleByConfig)                    \
  O(removeMacRuleByConfig) O(addRemark) O(removeRemark) O(clearUdfAceList)                    \
  O(populateUdfAceList) O(updateUdfAliasInAcls) O(commit) O(commitExt) O(revert)              \
  O(cleanupOldConfig) O(attach) O(detach) O(attachedAcl) O(resequence) O(enableCounters)      \
  O(disableCounters) O(enableFragments) O(disableFragments) O(currentAcl) O(sameRule)         \
  O(shouldUpdateAcl) O(addRuleCommon) O(waitForHw) O(dpAclOk) O(dpAclDpiOk)                   \
  O(dpAclPreApplyOk) O(attachedToDp) O(attachingAclToVlan) O(createScratchpad)                \
  O(getLastSequenceNumber) O(handleInitialized)
// clang-format on

// The construction arguments, in order, each the attribute of that name (and its type):
//   (String aclName, AclType aclType, bool standard, ApiType apiType,
//    Ptr<Input::Config> config, Ptr<const ParamConfig> paramConfig, Ptr<IntfConfig> intfConfig,
//    Ptr<HwConfig> hwConfig, Ptr<const Status> aclStatus, Ptr<const Dir> statusDpDir,
//    Ptr<UdfAlias> udfAliasDir)
// The name is also the entity's name. config and hwConfig must not be null.
// clang-format off
#define ACLKIT_ACL_API_SM_ARGS(X, C)                                                                 \
  X(C, aclName) X(C, aclType) X(C, standard) X(C, apiType) X(C, config) X(C, paramConfig)     \
  X(C, intfConfig) X(C, hwConfig) X(C, aclStatus) X(C, statusDpDir) X(C, udfAliasDir)
// clang-format on

class ACLKIT_EXPORT ApiSm : public fwk::Entity {
  FWK_ENTITY_WITH_DESTRUCTOR(ApiSm, fwk::Entity, ACLKIT_ACL_API_SM_ATTRS)

 public:
  explicit ApiSm(FWK_ARGS_PARAMS(ApiSm, ACLKIT_ACL_API_SM_ARGS));

  // ---- session object ----
  void handleInitialized();
  // The ACL existed when the scratchpad was made.
  [[nodiscard]] bool exists() const { return origAclConfig() != nullptr; }
  // The scratchpad; null for sessions that have none.
  [[nodiscard]] Ptr<Acl::AclSubConfig> currentAcl() { return spAclSubConfig(); }
  // One message per key: a later one replaces an earlier one.
  void errStringIs(const String& key, const String& message) { errStringStore(key, message); }
  // The removed message, empty when the key was absent.
  String errStringDel(const String& key);
  void errStringDelAll();

  // ---- scratchpad and its bookkeeping ----
  void createScratchpad();
  void spAclSubConfigIs(const Ptr<Acl::AclSubConfig>& subConfig);
  void spAclSubConfigDel() { spAclSubConfigIs(nullptr); }
  void handleRuleBySequence(U32 sequence);
  void initializeRuleMap();
  void updateIpRuleMap(const Acl::IpRuleConfig& rule, std::int32_t delta);
  void updateIp6RuleMap(const Acl::Ip6RuleConfig& rule, std::int32_t delta);
  void updateMacRuleMap(const Acl::MacRuleConfig& rule, std::int32_t delta);
  void updateRemarkMap(const Acl::RemarkConfig& remark, std::int32_t delta);
  U32 getLastSequenceNumber();
  void cleanupOldConfig();

  // ---- lookups (the rule at a place, or the default rule) ----
  [[nodiscard]] Acl::IpRuleConfig getIpRule(U32 sequence) const;
  [[nodiscard]] Acl::Ip6RuleConfig getIp6Rule(U32 sequence) const;
  [[nodiscard]] Acl::MacRuleConfig getMacRule(U32 sequence) const;

  // ---- editing ----
  [[nodiscard]] ApiState addIpRule(U32 sequence, const Acl::IpRuleConfig& rule);
  [[nodiscard]] ApiState addIp6Rule(U32 sequence, const Acl::Ip6RuleConfig& rule);
  [[nodiscard]] ApiState addMacRule(U32 sequence, const Acl::MacRuleConfig& rule);
  [[nodiscard]] ApiState addRuleCommon(U32 sequence, const Acl::IpRuleConfig& ipRule, const Acl::Ip6RuleConfig& ip6Rule,
                                       const Acl::MacRuleConfig& macRule);
  [[nodiscard]] bool sameRule(const Acl::UniqueId& id, const Acl::IpRuleConfig& ipRule,
                              const Acl::Ip6RuleConfig& ip6Rule, const Acl::MacRuleConfig& macRule) const;
  [[nodiscard]] ApiState addRemark(Acl::RemarkConfig remark, U32 sequence);
  [[nodiscard]] ApiState removeRemark(Acl::RemarkConfig remark, U32 sequence);
  [[nodiscard]] ApiState removeRuleBySequence(U32 start, U32 end);
  [[nodiscard]] ApiState removeIpRuleByConfig(const Acl::IpRuleConfig& rule);
  [[nodiscard]] ApiState removeIp6RuleByConfig(const Acl::Ip6RuleConfig& rule);
  [[nodiscard]] ApiState removeMacRuleByConfig(const Acl::MacRuleConfig& rule);
  [[nodiscard]] ApiState resequence(U32 start, U32 increment);
  [[nodiscard]] ApiState enableCounters();
  [[nodiscard]] ApiState disableCounters();
  [[nodiscard]] ApiState enableFragments();
  [[nodiscard]] ApiState disableFragments();

  // ---- commit, revert, remove ----
  // Installs the scratchpad as the ACL's current version (or patches the current one in
  // place when only sequence numbers and remarks differ). Conflicts with other sessions
  // end in errSessionCreate, errSessionDelete or errSessionModify; a commit that reaches
  // reporting dataplanes ends waitingForHw. With cleanup the replaced version is deleted
  // and the session lets go of its scratchpad: commitExt(false) keeps what revert needs.
  [[nodiscard]] ApiState commitExt(bool cleanup);
  [[nodiscard]] ApiState commit() { return commitExt(true); }
  // True when the scratchpad must become a new version rather than patch the current one.
  [[nodiscard]] bool shouldUpdateAcl() const;
  // Undoes the session's last commit, attach or detach.
  [[nodiscard]] ApiState revert();
  // Deletes the ACL (a remove session).
  [[nodiscard]] ApiState remove();

  // ---- UDF aliases ----
  void clearUdfAceList();
  void populateUdfAceList(Ptr<const Acl::AclSubConfig> subConfig);
  // Rewrites every rule of this ACL that uses the alias with its new value, then commits.
  void updateUdfAliasInAcls(String alias, const Acl::PayloadValue& value);

  // ---- attach and detach ----
  // Binds the ACL (by name, existing or not) to an interface in a direction.
  [[nodiscard]] ApiState attach(String intf, Acl::AclDirection direction);
  // Unbinds the ACL (any ACL when the session's name is empty) from an interface.
  [[nodiscard]] ApiState detach(String intf, Acl::AclDirection direction);
  // The name of the ACL of the session's family bound there, or "".
  [[nodiscard]] String attachedAcl(String intf, Acl::AclDirection direction) const;
  [[nodiscard]] bool attachedToDp() const;
  [[nodiscard]] bool attachingAclToVlan() const;

  // ---- capability checks ----
  // Every rule of the current version against the platform: one errString entry per
  // unsupported feature; true when nothing was found (or the ACL is bound nowhere).
  bool dpAclOk();
  // Deep-inspection and MPLS matches while the platform's skip is non-zero, and VLAN
  // matches on an ACL bound to a VLAN interface; traces only.
  [[nodiscard]] bool dpAclDpiOk() const;
  // The guard commit and attach run first: IPv6 hop-limit matches need platform support.
  bool dpAclPreApplyOk();

  // ---- hardware status ----
  void statusDpIs(const Ptr<const Acl::StatusDp>& statusDp);
  void statusDpIs(const String& name, const Ptr<const Acl::StatusDp>& statusDp);
  void statusDpDel(const String& name);
  void statusDpDelAll();
  void statusDpEntryIs(const Ptr<const Acl::StatusDp>& statusDp);
  void statusDpEntryIs(const String& name, const Ptr<StatusDpEntry>& entry);
  void statusDpEntryDel(const String& name);
  void statusDpEntryDelAll();
  [[nodiscard]] ApiState waitForHw();
  void handleDpAclUpdateTime(const String& dataplane);

 private:
  // The tests' invariant checker reads what the reactors watch.
  friend std::vector<std::string> invariantViolations(const ApiSm& session);
  class OperationScope;

  class ScratchpadReactor : public Acl::AclSubConfig::Reactor {
   public:
    explicit ScratchpadReactor(ApiSm& owner) : owner_(owner) {}
    // Remarks share the rules' numbering, so a remark's place moves the last sequence too:
    // two automatic remarks in a row must not land on the same place. While a failed
    // operation is undone the cached sequence comes back with everything else.
    void ruleBySequenceChanged(const U32& sequence) override { followPlace(sequence); }
    void remarkBySequenceChanged(const U32& sequence) override { followPlace(sequence); }
    // A copy into the fresh scratchpad fills a collection at once: its highest place is what
    // following every entry in ascending order would have left.
    void ruleBySequenceFilled() override { followHighest(notifier()->ruleBySequence()); }
    void remarkBySequenceFilled() override { followHighest(notifier()->remarkBySequence()); }

   private:
    void followPlace(U32 sequence);
    template <class Map>
    void followHighest(const Map& places) {
      if (!places.empty()) followPlace((*places.last()).first);
    }

    ApiSm& owner_;
  };

  // The ACL as the input configuration holds it now, or null.
  [[nodiscard]] Ptr<Acl::AclConfig> liveAcl(AclType type) const;
  // The bindings of the session's family in one direction; made when `create` and missing.
  [[nodiscard]] Ptr<Acl::AclIntf> bindings(Acl::AclDirection direction, bool create) const;
  // True when some binding of the session's family names the ACL and passes `also`.
  template <class Also>
  [[nodiscard]] bool boundWhere(Also also) const;
  // The platform's capabilities; a platform that published none supports nothing.
  [[nodiscard]] const Acl::ParamConfig& capabilities() const;
  // Sets apiState and returns it, so that operations can end in one line.
  ApiState finish(ApiState state) {
    apiStateIs(state);
    return state;
  }
  // Phases of commitExt: the conflict with another session's work, if any, and the install
  // of the scratchpad as the list's new current version.
  [[nodiscard]] std::optional<ApiState> conflictingSession(const Ptr<Acl::AclConfig>& live) const;
  Ptr<Acl::AclSubConfig> installVersion(Acl::AclConfig& live, const Ptr<Acl::AclSubConfig>& scratchpad);
  // Attach, detach and their revert need an interface configuration to write to; commit and
  // remove need the input configuration.
  ApiState notConfigured();
  ApiState noAclConfig();
  // What an operation cannot go on without; null is refused as the framework refuses it.
  template <class T>
  const Ptr<T>& required(const Ptr<T>& attribute, const char* what) const {
    if (!attribute) throw fwk::NullArgumentError(what);
    return attribute;
  }
  ApiState scratchpadFlagIs(void (Acl::AclSubConfig::*set)(const bool&), bool value);
  template <Acl::AclType Type>
  ApiState removeByContent(const typename Acl::Family<Type>::Rule& rule);

  ScratchpadReactor scratchpadReactor_{*this};
};

// A new session, initialized and notifying; the arguments are ACLKIT_ACL_API_SM_ARGS.
ACLKIT_EXPORT Ptr<ApiSm> ApiSmIs(  // NOLINT(readability-identifier-naming): the framework's <Type>Is
    FWK_ARGS_PARAMS(ApiSm, ACLKIT_ACL_API_SM_ARGS));
ACLKIT_EXPORT Ptr<ApiSm> apiSmFactory(FWK_ARGS_VALUES(ApiSm, ACLKIT_ACL_API_SM_ARGS));

// The payload elements of `spec` (at most `count`) with those naming `alias` taking the
// alias's new offset, and its pattern and mask unless the element has its own.
ACLKIT_EXPORT Acl::PayloadSpec updatePayloadSpec(String alias, const Acl::PayloadValue& value,
                                                 const Acl::PayloadSpec& spec, U16 count);

// Entries (rules and remarks) of a version; the pointer must not be null.
ACLKIT_EXPORT U32 ruleCount(const Ptr<Acl::AclSubConfig>& subConfig);
// True when the set bits form one run that reaches the top bit (a prefix mask); 0 counts.
ACLKIT_EXPORT bool maskIsContiguous(U32 mask);

}  // namespace AclApi
