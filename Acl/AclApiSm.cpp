#include "aclkit/Acl/AclApiSm.h"

#include <vector>

#include "aclkit/Acl/internal/Session.h"
#include "aclkit/platform/fwk/Define.h"

namespace AclApi {

using namespace Acl;

FWK_ENTITY_DEFINE_WITH_OPS(ApiSm, ACLKIT_ACL_API_SM_ATTRS, ACLKIT_ACL_API_SM_OPS)
FWK_REGISTER_FACTORY(ApiSm, apiSmFactory)

namespace {

// The highest place of a rule or a remark, 0 when there is none.
U32 highestSequence(const AclSubConfig& sp) {
  U32 last = sp.ruleBySequence().empty() ? 0 : sp.ruleBySequence().last()->first;
  if (!sp.remarkBySequence().empty()) last = std::max(last, sp.remarkBySequence().last()->first);
  return last;
}

// Adds delta to a content count; the counts do no range check (0 - 1 wraps).
auto adding(std::int32_t delta) {
  return [delta](const U32* stored) { return (stored ? *stored : 0U) + static_cast<U32>(delta); };
}

}  // namespace

// ---- construction --------------------------------------------------------------------

ApiSm::ApiSm(FWK_ARGS_PARAMS(ApiSm, ACLKIT_ACL_API_SM_ARGS)) : Entity(aclNameArg) {
  FWK_ARGS_STORE(ACLKIT_ACL_API_SM_ARGS)
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

Ptr<ApiSm> ApiSmIs(FWK_ARGS_PARAMS(ApiSm, ACLKIT_ACL_API_SM_ARGS)) {
  // Every operation of a session needs these two; its setters store whatever they are given.
  if (!configArg) throw fwk::NullArgumentError("apiSmFactory: null config");
  if (!hwConfigArg) throw fwk::NullArgumentError("apiSmFactory: null hwConfig");
  // Initialization writes to the store (the family's table); a failure takes that back.
  const fwk::Transaction transaction;
  Ptr<ApiSm> session(new ApiSm(FWK_ARGS_NAMES(ACLKIT_ACL_API_SM_ARGS)));
  session->hasNotificationActiveIs(true);
  return session;
}

Ptr<ApiSm> apiSmFactory(FWK_ARGS_VALUES(ApiSm, ACLKIT_ACL_API_SM_ARGS)) {
  return ApiSmIs(FWK_ARGS_NAMES(ACLKIT_ACL_API_SM_ARGS));
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
      required(entityCopy(), "createScratchpad: null entityCopy")->doCopyEntityAttrs(scratchpad, current, "", nullptr);
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

void ApiSm::ScratchpadReactor::followPlace(U32 sequence) {
  if (!fwk::Transaction::undoing()) owner_.handleRuleBySequence(sequence);
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
  withFamily(familyOrMac(aclType()), [&](auto family) {
    using F = decltype(family);
    for (const auto& [sequence, id] : sp->ruleBySequence()) {
      if (const auto* rule = F::records(*sp).find(id)) SessionFamily<F::aclType>::count(*this, *rule, 1);
    }
  });
  for (const auto& [sequence, remark] : sp->remarkBySequence()) updateRemarkMap(remark, 1);
}

void ApiSm::updateIpRuleMap(const IpRuleConfig& rule, std::int32_t delta) {
  if (spRuleMapInitialized()) spIpRuleMapUpdate(rule, adding(delta));
}

void ApiSm::updateIp6RuleMap(const Ip6RuleConfig& rule, std::int32_t delta) {
  if (spRuleMapInitialized()) spIp6RuleMapUpdate(rule, adding(delta));
}

void ApiSm::updateMacRuleMap(const MacRuleConfig& rule, std::int32_t delta) {
  if (spRuleMapInitialized()) spMacRuleMapUpdate(rule, adding(delta));
}

void ApiSm::updateRemarkMap(const RemarkConfig& remark, std::int32_t delta) {
  if (spRuleMapInitialized()) spRemarkMapUpdate(remark, adding(delta));
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
  bool same = false;
  withFamily(aclType(), [&](auto family) {
    using F = decltype(family);
    same = F::records(*sp).valueOr(id) == F::pick(ipRule, ip6Rule, macRule);
  });
  return same;
}

ApiState ApiSm::addRuleCommon(U32 sequence, const IpRuleConfig& ipRule, const Ip6RuleConfig& ip6Rule,
                              const MacRuleConfig& macRule) {
  const OperationScope scope(*this);
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  // The one path that leaves apiState as it was.
  if (!sp) return failed;

  if (sequence == 0) {
    U32 last = getLastSequenceNumber();
    if (last > maxSequence() - defaultSeqInc()) {
      ACL_API_TRACE(9, "< sequence out of range");
      return finish(errSequenceOutOfRange);
    }
    initializeRuleMap();
    bool duplicate = false;
    withFamily(aclType(), [&](auto family) {
      using F = decltype(family);
      duplicate = SessionFamily<F::aclType>::counts(*this).valueOr(F::pick(ipRule, ip6Rule, macRule)) != 0;
    });
    if (duplicate) {
      ACL_API_TRACE(8, "< Found a duplicate");
      return finish(succeeded);
    }
    sequence = last + defaultSeqInc();
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
  withFamily(aclType(), [&](auto family) {
    using F = decltype(family);
    const auto& rule = F::pick(ipRule, ip6Rule, macRule);
    F::recordIs(*sp, id, rule);
    SessionFamily<F::aclType>::count(*this, rule, 1);
  });
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
    where = getLastSequenceNumber() + defaultSeqInc();  // wraps past the top, unlike rules
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
    withFamily(aclType(), [&](auto family) {
      using F = decltype(family);
      const typename F::Rule rule = F::records(*sp).valueOr(id);  // a copy: the count's observers may edit
      SessionFamily<F::aclType>::count(*this, rule, -1);
      F::recordDel(*sp, id);
    });
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
  return removeByContent<AclType::ip>(rule);
}

ApiState ApiSm::removeIp6RuleByConfig(const Ip6RuleConfig& rule) {
  const OperationScope scope(*this);
  return removeByContent<AclType::ipv6>(rule);
}

ApiState ApiSm::removeMacRuleByConfig(const MacRuleConfig& rule) {
  const OperationScope scope(*this);
  return removeByContent<AclType::mac>(rule);
}

// The read-only test looks at the ACL of the rule's own family, whatever the session's.
template <AclType Type>
ApiState ApiSm::removeByContent(const typename Family<Type>::Rule& rule) {
  using F = Family<Type>;
  const Ptr<AclSubConfig> sp = spAclSubConfig();  // counted: a reentrant commit may drop it
  if (!sp) return finish(failed);
  if (Ptr<AclConfig> acl = liveAcl(Type); acl && acl->readonly()) {
    FWK_TRACE_AS(traceApi(), 9, SessionFamily<Type>::removeByContentName, "<, readonly");
    return finish(errReadOnly);
  }
  const auto& records = F::records(*sp);
  for (const auto& [sequence, id] : sp->ruleBySequence()) {
    if (!(records.valueOr(id) == rule)) continue;
    const U32 place = sequence;
    const UniqueId removed = id;
    SessionFamily<Type>::count(*this, rule, -1);
    sp->ruleBySequenceDel(place);
    F::recordDel(*sp, removed);
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
  if (last > maxSequence()) {
    ACL_API_TRACE(9, "Last sequence : " << last << " is greater than " << maxSequence());
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

}  // namespace AclApi
