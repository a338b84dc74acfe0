#include "aclkit/Acl/AclApiSm.h"

#include <vector>

#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/fwk/Transaction.h"
#include "aclkit/platform/trace/Clock.h"
#include "aclkit/platform/trace/Trace.h"

namespace AclApi {

using namespace Acl;

FWK_ENTITY_DEFINE_WITH_OPS(ApiSm, ACLKIT_ACL_API_SM_ATTRS, ACLKIT_ACL_API_SM_OPS)
FWK_REGISTER_FACTORY(ApiSm, apiSmFactory)

namespace {

fwk::TraceFacility& traceApi() {
  static fwk::TraceFacility& facility = fwk::TraceFacility::get("AclApi");
  return facility;
}
#define ACL_API_TRACE(level, ...) FWK_TRACE(traceApi(), level, __VA_ARGS__)

constexpr U32 sequenceStep = 10;  // automatic numbering always steps by 10

const char* removeByContentName(AclType family) {
  switch (family) {
    case AclType::ip:
      return "removeIpRuleByConfig";
    case AclType::ipv6:
      return "removeIp6RuleByConfig";
    case AclType::mac:
      return "removeMacRuleByConfig";
  }
  return "removeRuleByConfig";
}

// The highest place of a rule or a remark, 0 when there is none.
U32 highestSequence(const AclSubConfig& sp) {
  U32 last = sp.ruleBySequence().empty() ? 0 : sp.ruleBySequence().last()->first;
  if (!sp.remarkBySequence().empty()) last = std::max(last, sp.remarkBySequence().last()->first);
  return last;
}

// Adds delta to a content count; the counts do no range check (0 - 1 wraps).
template <class Map, class Key>
U32 countAfter(const Map& map, const Key& key, std::int32_t delta) {
  const U32* stored = map.find(key);
  return (stored ? *stored : 0U) + static_cast<U32>(delta);
}

}  // namespace

// Every public operation of the session runs inside one. The session holds a counted
// reference to itself for the whole call, since an observer it notifies may let go of the
// caller's last one; and an exception (an observer's, an allocation's) leaves the store and
// the session as they were before the call.
class ApiSm::OperationScope {
 public:
  explicit OperationScope(ApiSm& session) : pin_(session.fwkReferences() > 0 ? &session : nullptr) {}

 private:
  Ptr<ApiSm> pin_;  // released after the transaction has undone what it must
  fwk::Transaction transaction_;
};

// ---- construction --------------------------------------------------------------------

StatusDpEntry::StatusDpEntry(const Ptr<const StatusDp>& statusDp, ApiSm* owner) : statusDp_(statusDp), owner_(owner) {
  notifierIs(statusDp.get());
}

void StatusDpEntry::dpAclUpdateTimeChanged() {
  if (!owner_) return;
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

ApiSm::ApiSm(const String& name, AclType aclType, bool standard, ApiType apiType, const Ptr<Input::Config>& config,
             const Ptr<const ParamConfig>& paramConfig, const Ptr<IntfConfig>& intfConfig,
             const Ptr<HwConfig>& hwConfig, const Ptr<const Status>& aclStatus, const Ptr<const fwk::Dir>& statusDpDir,
             const Ptr<UdfAlias>& udfAliasDir)
    : Entity(name) {
  aclNameIs(name);
  aclTypeIs(aclType);
  standardIs(standard);
  apiTypeIs(apiType);
  configIs(config);
  paramConfigIs(paramConfig);
  intfConfigIs(intfConfig);
  hwConfigIs(hwConfig);
  aclStatusIs(aclStatus);
  statusDpDirIs(statusDpDir);
  udfAliasDirIs(udfAliasDir);
  handleInitialized();
}

ApiSm::~ApiSm() {
  // Nobody hears the teardown; reactors stop before the state they report on goes.
  hasNotificationActiveIs(false);
  scratchpadReactor_.notifierIs(nullptr);
  statusDpDelAll();
}

void ApiSm::handleInitialized() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "handleInitialized"
                       << " > this: " << static_cast<const void*>(this));
  if (statusDpDir()) {
    for (const auto& [name, entity] : statusDpDir()->entity()) {
      if (Ptr<const StatusDp> dp = fwk::dynCast<const StatusDp>(Ptr<const fwk::Entity>(entity))) statusDpIs(dp);
    }
  }
  if (config() && !config()->config(aclType())) config()->configIs(aclType());
  Ptr<AclConfigCopyHandler> helper(new AclConfigCopyHandler());
  helper->hasNotificationActiveIs(true);
  aclCopyHelperIs(helper);
  Ptr<Cli::Session::EntityCopy> copier(new Cli::Session::EntityCopy());
  copier->hasNotificationActiveIs(true);
  entityCopyIs(copier);
  copier->srcIs(config());
  copier->handlerIs(Ptr<Cli::Session::EntityCopyHandler>(new Cli::Session::EntityCopyHandler()));
  if (apiType() == commit_) createScratchpad();
  initializedIs(true);
  ACL_API_TRACE(0, "handleInitialized"
                       << "<");
}

Ptr<ApiSm> ApiSmIs(const String& name, AclType aclType, bool standard, ApiType apiType,
                   const Ptr<Input::Config>& config, const Ptr<const ParamConfig>& paramConfig,
                   const Ptr<IntfConfig>& intfConfig, const Ptr<HwConfig>& hwConfig, const Ptr<const Status>& aclStatus,
                   const Ptr<const fwk::Dir>& statusDpDir, const Ptr<UdfAlias>& udfAliasDir) {
  // Initialization writes to the store (the family's table); a failure takes that back.
  const fwk::Transaction transaction;
  Ptr<ApiSm> session(new ApiSm(name, aclType, standard, apiType, config, paramConfig, intfConfig, hwConfig, aclStatus,
                               statusDpDir, udfAliasDir));
  session->hasNotificationActiveIs(true);
  return session;
}

Ptr<ApiSm> apiSmFactory(String name, AclType aclType, bool standard, ApiType apiType, Ptr<Input::Config> config,
                        Ptr<const ParamConfig> paramConfig, Ptr<IntfConfig> intfConfig, Ptr<HwConfig> hwConfig,
                        Ptr<const Status> aclStatus, Ptr<const fwk::Dir> statusDpDir, Ptr<UdfAlias> udfAliasDir) {
  return ApiSmIs(name, aclType, standard, apiType, config, paramConfig, intfConfig, hwConfig, aclStatus, statusDpDir,
                 udfAliasDir);
}

String ApiSm::errStringDel(const String& key) {
  const OperationScope scope(*this);
  String message = errString(key);
  errStringErase(key);
  return message;
}

void ApiSm::errStringDelAll() {
  const OperationScope scope(*this);
  while (!errString().empty()) errStringErase(errString().begin()->first);
}

Ptr<AclConfig> ApiSm::liveAcl(AclType type) const {
  if (!config()) return nullptr;
  Ptr<Input::AclTypeConfig> typeConfig = config()->config(type);
  return typeConfig ? typeConfig->acl(aclName()) : nullptr;
}

// ---- scratchpad and its bookkeeping ----------------------------------------------------

void ApiSm::createScratchpad() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "createScratchpad");
  FWK_ASSERT(apiType() == commit_);
  spAclSubConfigIs(nullptr);
  origAclSubConfigIs(nullptr);
  origAclConfigIs(nullptr);
  spLastSequenceNumberIs(0);
  spIpRuleMapDelAll();
  spIp6RuleMapDelAll();
  spMacRuleMapDelAll();
  spRuleMapInitializedIs(false);  // spRemarkMap is left as it is

  UniqueId id;
  id.doInit();
  Ptr<AclSubConfig> scratchpad(new AclSubConfig(id));
  scratchpad->hasNotificationActiveIs(true);
  spAclSubConfigIs(scratchpad);

  if (Ptr<AclConfig> acl = liveAcl(aclType())) {
    origAclConfigIs(acl);
    if (Ptr<AclSubConfig> current = acl->currCfg()) {
      entityCopy()->doCopyEntityAttrs(scratchpad, current, "", nullptr);
      origAclSubConfigIs(current);
    }
  }
}

void ApiSm::spAclSubConfigIs(const Ptr<AclSubConfig>& subConfig) {
  const OperationScope scope(*this);
  // What the reactor watches follows the attribute, also when a failure puts it back.
  if (fwk::Transaction::recording(*this)) {
    fwk::Transaction::undoWith([self = fwk::sharedFromThis(*this), old = spAclSubConfig()] {
      self->scratchpadReactor_.notifierIs(old.get());
    });
  }
  spAclSubConfigStore(subConfig);
  scratchpadReactor_.notifierIs(subConfig.get());
}

void ApiSm::handleRuleBySequence(U32 sequence) {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, " seq " << sequence);
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  bool present = sp && (sp->ruleBySequence().contains(sequence) || sp->remarkBySequence().contains(sequence));
  if (present && sequence > spLastSequenceNumber()) {
    // Taken as the last even when the cache was 0 ("unknown") and higher entries stand above
    // it: the next automatic number then aims just past this entry.
    spLastSequenceNumberIs(sequence);
    ACL_API_TRACE(1, "spLastSequenceNumber -> " << sequence);
  } else if (!present && sequence == spLastSequenceNumber()) {
    spLastSequenceNumberIs(0);  // recomputed on demand
    ACL_API_TRACE(1, "spLastSequenceNumber -> 0");
  }
}

void ApiSm::initializeRuleMap() {
  const OperationScope scope(*this);
  if (spRuleMapInitialized()) return;
  ACL_API_TRACE(0, "initializeRuleMap");
  spRuleMapInitializedIs(true);
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  if (!sp) return;
  for (const auto& [sequence, id] : sp->ruleBySequence()) {
    if (aclType() == AclType::ip) {
      if (const IpRuleConfig* rule = sp->ipRuleById().find(id)) updateIpRuleMap(*rule, 1);
    } else if (aclType() == AclType::ipv6) {
      if (const Ip6RuleConfig* rule = sp->ip6RuleById().find(id)) updateIp6RuleMap(*rule, 1);
    } else if (const MacRuleConfig* rule = sp->macRuleById().find(id)) {
      updateMacRuleMap(*rule, 1);
    }
  }
  for (const auto& [sequence, remark] : sp->remarkBySequence()) updateRemarkMap(remark, 1);
}

void ApiSm::updateIpRuleMap(const IpRuleConfig& rule, std::int32_t delta) {
  if (spRuleMapInitialized()) spIpRuleMapIs(rule, countAfter(spIpRuleMap(), rule, delta));
}

void ApiSm::updateIp6RuleMap(const Ip6RuleConfig& rule, std::int32_t delta) {
  if (spRuleMapInitialized()) spIp6RuleMapIs(rule, countAfter(spIp6RuleMap(), rule, delta));
}

void ApiSm::updateMacRuleMap(const MacRuleConfig& rule, std::int32_t delta) {
  if (spRuleMapInitialized()) spMacRuleMapIs(rule, countAfter(spMacRuleMap(), rule, delta));
}

void ApiSm::updateRemarkMap(const RemarkConfig& remark, std::int32_t delta) {
  if (spRuleMapInitialized()) spRemarkMapIs(remark, countAfter(spRemarkMap(), remark, delta));
}

U32 ApiSm::getLastSequenceNumber() {
  const OperationScope scope(*this);
  if (spLastSequenceNumber() != 0) return spLastSequenceNumber();
  U32 last = spAclSubConfig() ? highestSequence(*spAclSubConfig()) : 0;
  spLastSequenceNumberIs(last);
  return last;
}

void ApiSm::cleanupOldConfig() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "cleanupOldConfig");
  Ptr<AclConfig> acl = liveAcl(aclType());
  if (!acl) {
    ACL_API_TRACE(0, "<, aclConfig is NULL");
    return;
  }
  if (apiType() == commit_ && origAclSubConfig() && acl->currCfg() != origAclSubConfig()) {
    acl->subConfigDel(origAclSubConfig()->id());
  }
  spAclSubConfigIs(nullptr);
  origAclSubConfigIs(nullptr);
  origAclConfigIs(nullptr);
}

// ---- lookups ---------------------------------------------------------------------------

namespace {
// The rule of one family at a place of the scratchpad, or the family's default rule.
template <class Map>
typename Map::mapped_type ruleAt(const Ptr<AclSubConfig>& sp, const Map& (AclSubConfig::*byId)() const, U32 sequence) {
  using Rule = typename Map::mapped_type;
  if (!sp) return Rule();
  const UniqueId* id = sp->ruleBySequence().find(sequence);
  const Rule* rule = id ? ((*sp).*byId)().find(*id) : nullptr;
  return rule ? *rule : Rule();
}
}  // namespace

IpRuleConfig ApiSm::getIpRule(U32 sequence) const {
  return ruleAt(spAclSubConfig(), &AclSubConfig::ipRuleById, sequence);
}

Ip6RuleConfig ApiSm::getIp6Rule(U32 sequence) const {
  return ruleAt(spAclSubConfig(), &AclSubConfig::ip6RuleById, sequence);
}

MacRuleConfig ApiSm::getMacRule(U32 sequence) const {
  return ruleAt(spAclSubConfig(), &AclSubConfig::macRuleById, sequence);
}

U32 ruleCount(const Ptr<AclSubConfig>& subConfig) {
  if (!subConfig) throw fwk::NullArgumentError("ruleCount: null subConfig");
  return static_cast<U32>(subConfig->remarkBySequence().size() + subConfig->ruleBySequence().size());
}

bool maskIsContiguous(U32 mask) {
  return ((mask - 1U) | mask) == 0xFFFFFFFFU;
}

// ---- adding rules ----------------------------------------------------------------------

ApiState ApiSm::addIpRule(U32 sequence, const IpRuleConfig& rule) {
  const OperationScope scope(*this);
  return addRuleCommon(sequence, rule, Ip6RuleConfig(), MacRuleConfig());
}

ApiState ApiSm::addIp6Rule(U32 sequence, const Ip6RuleConfig& rule) {
  const OperationScope scope(*this);
  return addRuleCommon(sequence, IpRuleConfig(), rule, MacRuleConfig());
}

ApiState ApiSm::addMacRule(U32 sequence, const MacRuleConfig& rule) {
  const OperationScope scope(*this);
  return addRuleCommon(sequence, IpRuleConfig(), Ip6RuleConfig(), rule);
}

bool ApiSm::sameRule(const UniqueId& id, const IpRuleConfig& ipRule, const Ip6RuleConfig& ip6Rule,
                     const MacRuleConfig& macRule) const {
  const Ptr<AclSubConfig>& sp = spAclSubConfig();
  if (!sp) return false;  // no scratchpad holds no rule
  switch (aclType()) {
    case AclType::ip:
      return sp->ipRuleById().valueOr(id) == ipRule;
    case AclType::ipv6:
      return sp->ip6RuleById().valueOr(id) == ip6Rule;
    case AclType::mac:
      return sp->macRuleById().valueOr(id) == macRule;
  }
  return false;
}

ApiState ApiSm::addRuleCommon(U32 sequence, const IpRuleConfig& ipRule, const Ip6RuleConfig& ip6Rule,
                              const MacRuleConfig& macRule) {
  const OperationScope scope(*this);
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  // The one path that leaves apiState as it was.
  if (!sp) return failed;

  if (sequence == 0) {
    U32 last = getLastSequenceNumber();
    if (last > 0xFFFFFFFFU - sequenceStep) {
      ACL_API_TRACE(9, "< sequence out of range");
      return finish(errSequenceOutOfRange);
    }
    initializeRuleMap();
    bool duplicate = false;
    switch (aclType()) {
      case AclType::ip:
        duplicate = spIpRuleMap(ipRule) != 0;
        break;
      case AclType::ipv6:
        duplicate = spIp6RuleMap(ip6Rule) != 0;
        break;
      case AclType::mac:
        duplicate = spMacRuleMap(macRule) != 0;
        break;
    }
    if (duplicate) {
      ACL_API_TRACE(8, "< Found a duplicate");
      return finish(succeeded);
    }
    sequence = last + sequenceStep;
  }

  if (const UniqueId* existing = sp->ruleBySequence().find(sequence)) {
    return finish(sameRule(*existing, ipRule, ip6Rule, macRule) ? succeeded : errRuleExists);
  }
  if (sp->remarkBySequence().contains(sequence)) {
    ACL_API_TRACE(9, "< Remark exists with sequence: " << sequence);
    return finish(errRuleExists);
  }
  if (Ptr<AclConfig> acl = liveAcl(aclType()); acl && acl->readonly()) {
    ACL_API_TRACE(9, "<, readonly");
    return finish(errReadOnly);
  }

  UniqueId id = sp->ruleBySequence(sequence);  // a free place yields a fresh identity
  sp->ruleBySequenceIs(sequence, id);
  switch (aclType()) {
    case AclType::ip:
      sp->ipRuleByIdIs(id, ipRule);
      updateIpRuleMap(ipRule, 1);
      break;
    case AclType::ipv6:
      sp->ip6RuleByIdIs(id, ip6Rule);
      updateIp6RuleMap(ip6Rule, 1);
      break;
    case AclType::mac:
      sp->macRuleByIdIs(id, macRule);
      updateMacRuleMap(macRule, 1);
      break;
  }
  return finish(succeeded);
}

// ---- remarks ---------------------------------------------------------------------------

ApiState ApiSm::addRemark(RemarkConfig remark, U32 sequence) {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "addRemark");
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  if (!sp) return finish(failed);
  U32 where = sequence;
  if (sequence == 0) {
    initializeRuleMap();
    if (spRemarkMap(remark) != 0) {
      ACL_API_TRACE(9, "Remark exists");
      return finish(succeeded);
    }
    where = getLastSequenceNumber() + sequenceStep;  // wraps past the top, unlike rules
  }
  // The occupancy tests look at the sequence asked for, not at the place chosen.
  if (const RemarkConfig* stored = sp->remarkBySequence().find(sequence)) {
    if (*stored == remark) {
      ACL_API_TRACE(8, "Same remark exists with the sequence number: " << sequence);
      return finish(succeeded);
    }
    ACL_API_TRACE(8, "Remark exists with the sequence number: " << sequence);
    return finish(errRuleExists);
  }
  if (sp->ruleBySequence().contains(sequence)) {
    ACL_API_TRACE(8, "Rule exists with the sequence number: " << sequence);
    return finish(errRuleExists);
  }
  sp->remarkBySequenceIs(where, remark);
  updateRemarkMap(remark, 1);
  return finish(succeeded);
}

ApiState ApiSm::removeRemark(RemarkConfig remark, U32 sequence) {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "removeRemark");
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  if (!sp) return finish(failed);
  if (sequence == 0) {
    for (const auto& [at, stored] : sp->remarkBySequence()) {
      if (stored == remark) {
        const U32 place = at;  // the count's observers may change the scratchpad
        updateRemarkMap(remark, -1);
        sp->remarkBySequenceDel(place);
        break;
      }
    }
  } else {
    RemarkConfig stored = sp->remarkBySequence(sequence);
    updateRemarkMap(stored, -1);
    sp->remarkBySequenceDel(sequence);
  }
  return finish(succeeded);
}

// ---- removing rules --------------------------------------------------------------------

ApiState ApiSm::removeRuleBySequence(U32 start, U32 end) {
  const OperationScope scope(*this);
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  if (!sp) return finish(failed);
  if (Ptr<AclConfig> acl = liveAcl(aclType()); acl && acl->readonly()) {
    ACL_API_TRACE(9, "<, readonly");
    return finish(errReadOnly);
  }
  const auto& rules = sp->ruleBySequence();
  auto it = rules.lowerBound(start);
  if (it == rules.end()) it = rules.begin();
  for (; it != rules.end() && it->first <= end; ++it) {
    const U32 sequence = it->first;
    if (sequence < start) continue;
    const UniqueId id = it->second;
    switch (aclType()) {
      case AclType::ip:
        updateIpRuleMap(sp->ipRuleById(id), -1);
        sp->ipRuleByIdDel(id);
        break;
      case AclType::ipv6:
        updateIp6RuleMap(sp->ip6RuleById(id), -1);
        sp->ip6RuleByIdDel(id);
        break;
      case AclType::mac:
        updateMacRuleMap(sp->macRuleById(id), -1);
        sp->macRuleByIdDel(id);
        break;
    }
    sp->ruleBySequenceDel(sequence);  // the walk goes on from here
  }
  const auto& remarks = sp->remarkBySequence();
  for (auto r = remarks.begin(); r != remarks.end() && r->first <= end; ++r) {
    if (r->first < start) continue;
    const U32 sequence = r->first;
    updateRemarkMap(r->second, -1);
    sp->remarkBySequenceDel(sequence);
  }
  return finish(succeeded);
}

ApiState ApiSm::removeIpRuleByConfig(const IpRuleConfig& rule) {
  const OperationScope scope(*this);
  return removeByContent(AclType::ip, rule, &AclSubConfig::ipRuleById, &AclSubConfig::ipRuleByIdDel,
                         &ApiSm::updateIpRuleMap);
}

ApiState ApiSm::removeIp6RuleByConfig(const Ip6RuleConfig& rule) {
  const OperationScope scope(*this);
  return removeByContent(AclType::ipv6, rule, &AclSubConfig::ip6RuleById, &AclSubConfig::ip6RuleByIdDel,
                         &ApiSm::updateIp6RuleMap);
}

ApiState ApiSm::removeMacRuleByConfig(const MacRuleConfig& rule) {
  const OperationScope scope(*this);
  return removeByContent(AclType::mac, rule, &AclSubConfig::macRuleById, &AclSubConfig::macRuleByIdDel,
                         &ApiSm::updateMacRuleMap);
}

// The read-only test looks at the ACL of the rule's own family, whatever the session's.
template <class Rule, class Map>
ApiState ApiSm::removeByContent(AclType family, const Rule& rule, const Map& (AclSubConfig::*byId)() const,
                                void (AclSubConfig::*del)(const UniqueId&),
                                void (ApiSm::*update)(const Rule&, std::int32_t)) {
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  if (!sp) return finish(failed);
  if (Ptr<AclConfig> acl = liveAcl(family); acl && acl->readonly()) {
    FWK_TRACE_AS(traceApi(), 9, removeByContentName(family), "<, readonly");
    return finish(errReadOnly);
  }
  const Map& records = ((*sp).*byId)();
  for (const auto& [sequence, id] : sp->ruleBySequence()) {
    if (!(records.valueOr(id) == rule)) continue;
    const U32 place = sequence;
    const UniqueId removed = id;
    (this->*update)(rule, -1);
    sp->ruleBySequenceDel(place);
    ((*sp).*del)(removed);
    break;  // only the lowest equal rule goes
  }
  return finish(succeeded);
}

// ---- resequencing ----------------------------------------------------------------------

ApiState ApiSm::resequence(U32 start, U32 increment) {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "resequence");
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  if (!sp) return finish(failed);
  const std::uint64_t n = sp->ruleBySequence().size() + sp->remarkBySequence().size();
  if (n == 0) {
    ACL_API_TRACE(0, "<, no rules exist");
    return finish(succeeded);
  }
  const std::uint64_t last = std::uint64_t{start} + (n - 1) * std::uint64_t{increment};
  if (last > 0xFFFFFFFFULL) {
    ACL_API_TRACE(9, "Last sequence : " << last << " is greater than " << 4294967295U);
    return finish(errSequenceOutOfRange);
  }
  ACL_API_TRACE(6, "Starting resequence");
  std::vector<std::pair<U32, UniqueId>> rules;
  rules.reserve(sp->ruleBySequence().size());
  for (const auto& [sequence, id] : sp->ruleBySequence()) {
    ACL_API_TRACE(6, "Found rule " << sequence << " id " << id.val());
    rules.emplace_back(sequence, id);
  }
  std::vector<std::pair<U32, RemarkConfig>> remarks;
  remarks.reserve(sp->remarkBySequence().size());
  for (const auto& [sequence, remark] : sp->remarkBySequence()) {
    ACL_API_TRACE(6, "Found remark " << sequence);
    remarks.emplace_back(sequence, remark);
  }
  sp->ruleBySequenceDelAll();
  sp->remarkBySequenceDelAll();
  ACL_API_TRACE(6, "Resequence writing rules");
  constexpr std::uint64_t exhausted = 0x100000000ULL;
  auto rule = rules.begin();
  auto remark = remarks.begin();
  U32 next = start;
  while (rule != rules.end() || remark != remarks.end()) {
    std::uint64_t ruleAt = rule != rules.end() ? rule->first : exhausted;
    std::uint64_t remarkAt = remark != remarks.end() ? remark->first : exhausted;
    if (ruleAt < remarkAt) {
      ACL_API_TRACE(6, "Rule " << ruleAt << " remark " << remarkAt << " - writing rule as " << next);
      sp->ruleBySequenceIs(next, rule->second);
      ++rule;
    } else {
      ACL_API_TRACE(6, "Rule " << ruleAt << " remark " << remarkAt << " - writing remark as " << next);
      sp->remarkBySequenceIs(next, remark->second);
      ++remark;
    }
    next += increment;
  }
  spLastSequenceNumberIs(static_cast<U32>(last));
  return finish(succeeded);
}

// ---- counters and fragments ------------------------------------------------------------

ApiState ApiSm::scratchpadFlagIs(void (AclSubConfig::*set)(const bool&), bool value) {
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  if (!sp) return finish(failed);
  (sp.get()->*set)(value);
  return finish(succeeded);
}

ApiState ApiSm::enableCounters() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "enableCounters");
  return scratchpadFlagIs(&AclSubConfig::countersEnabledIs, true);
}

ApiState ApiSm::disableCounters() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "disableCounters");
  return scratchpadFlagIs(&AclSubConfig::countersEnabledIs, false);
}

ApiState ApiSm::enableFragments() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "enableFragments");
  return scratchpadFlagIs(&AclSubConfig::fragmentsEnabledIs, true);
}

ApiState ApiSm::disableFragments() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "disableFragments");
  return scratchpadFlagIs(&AclSubConfig::fragmentsEnabledIs, false);
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
  const String removed = name;  // may be the stored key
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
  apiStateIs(waitingForHw);
  const double now = fwk::now();
  ACL_API_TRACE(2, "commit time: " << now);
  hwConfig()->dpAclUpdateRequestTimeIs(now);
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

namespace AclApi {

using namespace Acl;

// ---- attach and detach -----------------------------------------------------------------

Ptr<AclIntf> ApiSm::bindings(AclDirection direction, bool create) const {
  if (!intfConfig()) return nullptr;
  Ptr<IntfTypeConfig> table = intfConfig()->config(aclType());
  if (!table && create) table = intfConfig()->configIs(aclType());
  if (!table) return nullptr;
  Ptr<AclIntf> intfs = table->intf(direction);
  return intfs || !create ? intfs : table->intfIs(direction);
}

template <class Also>
bool ApiSm::boundWhere(Also also) const {
  if (!intfConfig()) return false;
  Ptr<const IntfTypeConfig> table = Ptr<const IntfConfig>(intfConfig())->config(aclType());
  if (!table) return false;
  for (const auto& [direction, intfs] : table->intf()) {
    for (const auto& [intfId, name] : intfs->intf()) {
      if (name == aclName() && also(intfId)) return true;
    }
  }
  return false;
}

ApiState ApiSm::attach(String intfName, AclDirection aclDirection) {
  const OperationScope scope(*this);
  if (!dpAclPreApplyOk()) return finish(errAclApi);
  FWK_ASSERT(apiType() == attach_);
  if (!intfConfig()) return notConfigured();
  intfIs(intfName);
  directionIs(aclDirection);
  if (!liveAcl(aclType())) ACL_API_TRACE(9, "Acl: " << aclName() << " does not exist");
  Ptr<AclIntf> intfs = bindings(aclDirection, true);
  const IntfId id(intfName);
  origAclNameIs(intfs->intf(id));
  intfs->intfIs(id, aclName());
  return finish(waitForHw());
}

ApiState ApiSm::detach(String intfName, AclDirection aclDirection) {
  const OperationScope scope(*this);
  FWK_ASSERT(apiType() == detach_);
  if (!intfConfig()) return notConfigured();
  intfIs(intfName);
  directionIs(aclDirection);
  const IntfId id(intfName);
  Ptr<AclIntf> intfs = bindings(aclDirection, false);
  const String bound = intfs ? intfs->intf(id) : String();
  if (bound.empty()) {
    ACL_API_TRACE(8, "No acl attached to " << intfName);
    return finish(succeeded);
  }
  if (aclName().empty() || aclName() == bound) {
    origAclNameIs(bound);
    intfs->intfDel(id);
    return finish(waitForHw());
  }
  ACL_API_TRACE(8, aclName() << " is not attached to " << intfName);
  return finish(succeeded);
}

ApiState ApiSm::notConfigured() {
  ACL_API_TRACE(9, "<, no interface configuration");
  return finish(errNotConfigured);
}

String ApiSm::attachedAcl(String intfName, AclDirection aclDirection) const {
  Ptr<AclIntf> intfs = bindings(aclDirection, false);
  return intfs ? intfs->intf(IntfId(intfName)) : String();
}

bool ApiSm::attachedToDp() const {
  return boundWhere([](const IntfId&) { return true; });
}

bool ApiSm::attachingAclToVlan() const {
  ACL_API_TRACE(0, "attachingAclToVlan");
  return boundWhere([](const IntfId& intfId) { return VlanIntfId::isVlanIntfId(intfId); });
}

// ---- capability checks -----------------------------------------------------------------

namespace {
// Made at load rather than on first use, so that leak checks never count it as new.
const ParamConfig& noCapabilities = *new ParamConfig();
}  // namespace

const ParamConfig& ApiSm::capabilities() const {
  return paramConfig() ? *paramConfig() : noCapabilities;
}

namespace {

// One row of a capability table: when `refused` holds for a rule, the platform cannot
// program it; the row's trace, errString key and message say which feature it was.
template <class Rule>
struct Check {
  bool (*refused)(const Rule& rule, const ParamConfig& can, const ApiSm& session);
  const char* trace;
  const char* key;
  const char* message;
};

// The rows are in the order the checks run; families differ in rows, order and wording.
const Check<IpRuleConfig> ipChecks[] = {
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return !can.discontiguousMaskSupported() &&
              (!maskIsContiguous(r.filter().srcMask().value()) || !maskIsContiguous(r.filter().dstMask().value()));
     },
     "<, discontiguous IP mask not supported", "discontiguous IP mask", "discontiguous IP mask not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.usesMirror() && !can.ipMirrorSupported();
     },
     "<, mirroring action on IP ACL not supported", "mirror", "mirror not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.copyToCpu() && !can.copyToCpuSupported();
     },
     "<, copyToCpu action on IP ACL not supported", "copyToCpu", "copyToCpu not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) { return r.log() && !can.loggingSupported(); },
     "<, logging not supported", "logging", "logging not supported"},
    {[](const IpRuleConfig& r, const ParamConfig&, const ApiSm&) { return r.filter().tracked(); }, "<, tracked",
     "tracked", "tracked not supported"},
    {[](const IpRuleConfig& r, const ParamConfig&, const ApiSm&) { return r.filter().usesTtlOption(); },
     "<, ttl option not supported", "ttl", "ttl option not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesDscp() && !can.ipDscpSupported();
     },
     "<, dscp not supported", "dscp", "dscp not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesDscpMask() && !can.ipDscpMaskSupported();
     },
     "<, dscpMask not supported", "dscpMask", "dscpMask not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesEcn() && !can.ecnSupported();
     },
     "<, ecn not supported", "ecn", "ecn not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesIpLength() && !can.ipLengthSupported();
     },
     "<, ip-length match not supported", "ip-length", "ip-length not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesOuterVlan() && !can.outerVlanSupported();
     },
     "<, outer Vlan not supported", "outer-vlan", "outer vlan not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesInnerVlan() && !can.innerVlanSupported();
     },
     "<, inner Vlan not supported", "inner-vlan", "inner vlan not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesNvgre() && !can.dpiNvgreSupported();
     },
     "<, DPI Nvgre not supported", "dpi-nvgre", "DPI Nvgre not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesGre() && !can.dpiGreSupported();
     },
     "<, DPI Gre not supported", "dpi-gre", "DPI Gre not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesTni() && !can.dpiNvgreSupported();
     },
     "<, DPI TNI not supported", "dpi-tni", "DPI TNI not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesVxlan() && !can.dpiVxlanSupported();
     },
     "<, DPI Vxlan not supported", "dpi-vxlan", "DPI Vxlan not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesVni() && !can.dpiVxlanSupported();
     },
     "<, DPI VNI not supported", "dpi-vni", "DPI VNI not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesGtp() && !can.dpiGtpSupported();
     },
     "<, DPI Gtp not supported", "dpi-gtp", "DPI Gtp not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesTeid() && !can.dpiGtpSupported();
     },
     "<, DPI TEID not supported", "dpi-teid", "DPI TEID not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesUserL4() && !can.dpiUserL4Supported();
     },
     "<, DPI userL4 not supported", "dpi-userl4", "DPI userL4 not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesPayload() && !can.dpiPayloadSupported();
     },
     "<, DPI Payload not supported", "dpi-payload", "DPI payload not supported"},
    {[](const IpRuleConfig& r, const ParamConfig&, const ApiSm& s) {
       return r.filter().usesVlan() && s.attachingAclToVlan();
     },
     "<, trying to attach to Vlan", "vlan-vacl", "Vlan VACL not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm& s) {
       return r.vacl() && !can.vaclSupported() && s.attachingAclToVlan();
     },
     "<, trying to attach to Vlan", "vacl", "VACL not supported"},
    {[](const IpRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesTcpFlags() && !can.tcpFlagsSupported();
     },
     "<, TCP flags not supported", "tcpFlag", "TCP flag not supported"},
};

const Check<Ip6RuleConfig> ip6Checks[] = {
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.usesMirror() && !can.ip6MirrorSupported();
     },
     "<, mirroring action on IPv6 ACL not supported", "mirror", "mirror not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.copyToCpu() && !can.copyToCpuSupported();
     },
     "<, copyToCpu action on IPv6 ACL not supported", "copyToCpu", "copyToCpu not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) { return r.log() && !can.loggingSupported(); },
     "<, ipv6 logging not supported", "ipv6-logging", "ipv6 logging not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesEcn() && !can.ecnSupported();
     },
     "<, ecn not supported", "ecn", "ecn not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig&, const ApiSm&) { return r.filter().usesHopLimitOption(); },
     "<, hop-limit option not supported", "hop-limit", "hop-limit option not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesOuterVlan() && !can.outerVlanSupported();
     },
     "<, outer Vlan not supported", "outer-vlan", "outer vlan not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesInnerVlan() && !can.innerVlanSupported();
     },
     "<, inner Vlan not supported", "inner-vlan", "inner vlan not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesIpLength() && !can.ipLengthSupported();
     },
     "<, ip-length match not supported", "ip-length", "ip-length not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesNvgre() && !can.dpiNvgreSupported();
     },
     "<, DPI Nvgre not supported", "dpi-nvgre", "DPI Nvgre not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesTni() && !can.dpiNvgreSupported();
     },
     "<, DPI TNI not supported", "dpi-tni", "DPI TNI not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesVxlan() && !can.dpiVxlanSupported();
     },
     "<, DPI Vxlan not supported", "dpi-vxlan", "DPI Vxlan not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesVni() && !can.dpiVxlanSupported();
     },
     "<, DPI VNI not supported", "dpi-vni", "DPI VNI not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesGtp() && !can.dpiGtpSupported();
     },
     "<, DPI Gtp not supported", "dpi-gtp", "DPI Gtp not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesTeid() && !can.dpiGtpSupported();
     },
     "<, DPI TEID not supported", "dpi-teid", "DPI TEID not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesUserL4() && !can.dpiUserL4Supported();
     },
     "<, DPI UserL4 not supported", "dpi-userl4", "DPI UserL4 not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesPayload() && !can.dpiPayloadSupported();
     },
     "<, DPI Payload not supported", "dpi-payload", "DPI payload not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesTcpFlags() && !can.tcpFlagsSupported();
     },
     "<, TCP flag not supported", "tcpFlag", "TCP flag not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesDscp() && !can.ip6DscpSupported();
     },
     "<, dscp not supported", "dscp", "dscp not supported"},
    {[](const Ip6RuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesDscpMask() && !can.ip6DscpMaskSupported();
     },
     "<, dscpMask not supported", "dscpMask", "dscpMask not supported"},
};

const Check<MacRuleConfig> macChecks[] = {
    {[](const MacRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.usesMirror() && !can.macMirrorSupported();
     },
     "<, mirroring action on MAC ACL not supported", "mirror", "mirror not supported"},
    {[](const MacRuleConfig& r, const ParamConfig& can, const ApiSm&) { return r.log() && !can.loggingSupported(); },
     "<, mac logging not supported", "mac-logging", "mac logging not supported"},
    {[](const MacRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesOuterVlan() && !can.outerVlanSupported();
     },
     "<, outer Vlan not supported", "outer-vlan", "outer Vlan not supported"},
    {[](const MacRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesInnerVlan() && !can.innerVlanSupported();
     },
     "<, inner Vlan not supported", "inner-vlan", "inner Vlan not supported"},
    {[](const MacRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesTwoMplsLabels() && !can.mplsTwoLabelSupported();
     },
     "<, Two-label Mpls not supported", "mpls", "Two-label Mpls not supported"},
    {[](const MacRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesMpls() && !can.mplsSupported();
     },
     "<, Mpls not supported", "mpls", "Mpls not supported"},
    {[](const MacRuleConfig& r, const ParamConfig& can, const ApiSm&) {
       return r.filter().usesPayload() && !can.dpiPayloadSupported();
     },
     "<, DPI Payload not supported", "dpi-payload", "DPI payload not supported"},
};

}  // namespace

bool ApiSm::dpAclOk() {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, "dpAclOk");
  if (!attachedToDp()) {
    ACL_API_TRACE(9, "Acl " << aclName() << " is not attached to any interface");
    return true;
  }
  const ParamConfig& can = capabilities();
  if (aclType() == AclType::ipv6) {
    if (!can.ip6AclSupported()) {
      errStringIs("ip6", "ip6 Acl not supported");
      ACL_API_TRACE(9, "ip6 Acl not supported");
      return false;
    }
  } else if (!can.aclSupported()) {
    errStringIs("dpacl", "Acl not supported by hardware");
    ACL_API_TRACE(9, "Acl not supported by hw");
    return false;
  }
  bool ok = true;
  Ptr<AclConfig> acl = liveAcl(aclType());
  if (Ptr<AclSubConfig> current = acl ? acl->currCfg() : nullptr) {
    // Every rule against every row: one call reports every feature the platform lacks.
    auto run = [&](const auto& byId, const auto& checks) {
      for (const auto& [id, rule] : byId) {
        for (const auto& check : checks) {
          if (!check.refused(rule, can, *this)) continue;
          FWK_TRACE_AS(traceApi(), 0, "dpAclOk", check.trace);
          errStringIs(check.key, check.message);
          ok = false;
        }
      }
    };
    run(current->ipRuleById(), ipChecks);
    run(current->ip6RuleById(), ip6Checks);
    run(current->macRuleById(), macChecks);
  }
  ACL_API_TRACE(0, "<, " << ok);
  return ok;
}

bool ApiSm::dpAclDpiOk() const {
  ACL_API_TRACE(0, "dpAclDpiOk");
  Ptr<AclConfig> acl = liveAcl(aclType());
  Ptr<const AclSubConfig> current = acl ? acl->currCfg() : nullptr;
  if (!current) return true;
  const bool skip = capabilities().dpiSkipNonZero();
  for (const auto& [id, rule] : current->ipRuleById()) {
    const IpFilter& f = rule.filter();
    const char* refusal = nullptr;
    if (skip && f.protocol() == IpFilterBase::protocolGre && f.greProto() == IpFilterBase::greProtoNvgre) {
      refusal = "<, DPI Nvgre not supported with non-zero skip";
    } else if (skip && f.greProtoMask() != 0) {
      refusal = "<, DPI Gre not supported with non-zero skip";
    } else if (skip && f.tni() != 0) {
      refusal = "<, DPI TNI not supported with non-zero skip";
    } else if (skip && f.vxlan()) {
      refusal = "<, DPI Vxlan not supported with non-zero skip";
    } else if (skip && f.vni() != 0) {
      refusal = "<, DPI VNI not supported with non-zero skip";
    } else if (skip && f.gtp()) {
      refusal = "<, DPI Gtp not supported with non-zero skip";
    } else if (skip && f.teid() != 0) {
      refusal = "<, DPI TEID not supported with non-zero skip";
    } else if (f.vlan() != 0 && f.vlanMask() != 0 && attachingAclToVlan()) {
      refusal = "<, trying to attach to Vlan";
    }
    if (refusal) {
      ACL_API_TRACE(0, refusal);
      return false;
    }
  }
  if (capabilities().mplsSkipNonZero()) {
    for (const auto& [id, rule] : current->macRuleById()) {
      if (rule.filter().usesMpls()) {
        ACL_API_TRACE(0, "<, Mpls not supported with non-zero skip");
        return false;
      }
    }
  }
  ACL_API_TRACE(0, "<, true");
  return true;
}

bool ApiSm::dpAclPreApplyOk() {
  const OperationScope scope(*this);
  ACL_API_TRACE(5, "dpAclPreApplyOk");
  Ptr<AclSubConfig> checked;
  if (apiType() == commit_) {
    checked = spAclSubConfig();
  } else if (Ptr<AclConfig> acl = liveAcl(aclType())) {
    checked = acl->currCfg();
  }
  if (!checked || !guardsEnabled() || capabilities().ip6HopLimitSupported()) return true;
  for (const auto& [id, rule] : checked->ip6RuleById()) {
    if (rule.filter().usesHopLimit()) {
      ACL_API_TRACE(0, "<, ipv6 hop limit not supported");
      errStringIs("IPv6", "hop limit is not supported for IPv6 ACLs on this platform");
      return false;
    }
  }
  return true;
}

}  // namespace AclApi

namespace AclApi {

using namespace Acl;

// ---- commit ----------------------------------------------------------------------------

ApiState ApiSm::commitExt(bool cleanup) {
  const OperationScope scope(*this);
  ACL_API_TRACE(0, ">, [" << static_cast<const void*>(this) << "] " << aclName() << ":" << aclType());
  const Ptr<AclSubConfig> sp = spAclSubConfig();
  if (!sp) {
    ACL_API_TRACE(9, "Scratchpad is empty!");
    return finish(succeeded);
  }
  FWK_ASSERT(apiType() == commit_);
  if (attachedToDp() && !dpAclPreApplyOk()) return finish(errAclApi);

  Ptr<Input::AclTypeConfig> typeConfig = config()->config(aclType());
  if (!typeConfig) typeConfig = config()->configIs(aclType());
  Ptr<AclConfig> live = typeConfig->acl(aclName());

  // Another session may have created, deleted or replaced the ACL since the scratchpad was
  // taken; identities tell, content is not compared.
  if (!origAclConfig() && live) {
    ACL_API_TRACE(9, "Acl " << aclName() << " has been created by another session");
    return finish(errSessionCreate);
  }
  if (origAclConfig() && !live) {
    ACL_API_TRACE(9, "Acl " << aclName() << " has been deleted by another session");
    return finish(errSessionDelete);
  }
  if (live && origAclConfig() && origAclSubConfig() &&
      (!live->currCfg() || live->currCfg()->id() != origAclSubConfig()->id())) {
    ACL_API_TRACE(9, "Acl " << aclName() << " has been modified by another session");
    return finish(errSessionModify);
  }
  if (!live) {
    ACL_API_TRACE(2, "New acl " << aclName());
    live = typeConfig->aclIs(aclName(), aclType(), standard(), false);
  }
  Ptr<AclSubConfig> current = live->currCfg();

  clearUdfAceList();
  populateUdfAceList(sp);

  if (!shouldUpdateAcl()) {
    ACL_API_TRACE(2, "update existing ACL " << aclName());
    aclCopyHelper()->copyNonEssential(current, sp);
    return finish(succeeded);
  }

  ACL_API_TRACE(2, "create new subConfig for ACL " << aclName());
  // The new version is complete before it becomes current, and committed only once the
  // hardware has it.
  Ptr<AclSubConfig> fresh = live->subConfigIs(sp->id());
  entityCopy()->doCopyEntityAttrs(fresh, sp, "", nullptr);
  live->dynamicIs(dynamic());
  live->secureMonitorIs(secureMonitor());
  live->currCfgIs(fresh);
  if (waitForHw() == succeeded) {
    spAclSubConfigIs(nullptr);
    apiStateIs(succeeded);
    fresh->committedIs(true);
  }
  if (cleanup) cleanupOldConfig();
  return apiState();
}

bool ApiSm::shouldUpdateAcl() const {
  if (!exists()) return true;
  if (!spAclSubConfig()) return false;
  if (!origAclSubConfig()) return true;
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
  return !aclCopyHelper()->equalRuleConfig(aclType(), live->currCfg(), sp);
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
    Ptr<Input::AclTypeConfig> typeConfig = config()->config(aclType());
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
        addIpRule(sequence, rule);
      } else if (aclType() == AclType::mac) {
        MacRuleConfig rule = sp->macRuleById(id);
        updateMacRuleMap(rule, -1);
        sp->macRuleByIdDel(id);
        sp->ruleBySequenceDel(sequence);
        MacFilter filter = rule.filter();
        filter.payloadIs(updatePayloadSpec(alias, value, filter.payload(), count));
        rule.filterIs(filter);
        addMacRule(sequence, rule);
      }
    }
  }
  commit();
}

}  // namespace AclApi
