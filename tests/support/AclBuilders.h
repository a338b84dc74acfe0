// Small builders for ACL model content in tests.
#pragma once

#include <initializer_list>
#include <utility>

#include "aclkit/model/AclConfig.h"
#include "aclkit/platform/fwk/Entity.h"

namespace build {

using namespace Acl;

// A rule whose filter `edit` fills in: ruleWith<IpRuleConfig>([](IpFilter& f) { f.tniIs(5); }).
template <class Rule, class Edit>
Rule ruleWith(Edit edit) {
  Rule rule;
  auto filter = rule.filter();
  edit(filter);
  rule.filterIs(filter);
  return rule;
}

inline IpRuleConfig ipRule(U16 dstPort, RuleAction action = RuleAction::permit) {
  IpRuleConfig rule = ruleWith<IpRuleConfig>([&](IpFilter& f) {
    f.protocolIs(6);
    f.protocolMaskIs(0xFF);
    f.dstPortIs(RangeMatch(ValueOp::eq, dstPort));
  });
  rule.actionIs(action);
  return rule;
}

// A version with IPv4 rules (sequence, destination port) and remarks (sequence, text).
inline Ptr<AclSubConfig> version(AclConfig& acl, std::initializer_list<std::pair<U32, U16>> rules,
                                 std::initializer_list<std::pair<U32, const char*>> remarks = {},
                                 const UniqueId& id = UniqueId()) {
  Ptr<AclSubConfig> sub = acl.subConfigIs(id);
  for (const auto& [seq, port] : rules) {
    UniqueId ruleId;
    sub->ruleBySequenceIs(seq, ruleId);
    sub->ipRuleByIdIs(ruleId, ipRule(port));
  }
  for (const auto& [seq, text] : remarks) sub->remarkBySequenceIs(seq, RemarkConfig(String(text)));
  return sub;
}

// A free-standing version (not in any ACL).
inline Ptr<AclSubConfig> looseVersion(std::initializer_list<std::pair<U32, U16>> rules,
                                      std::initializer_list<std::pair<U32, const char*>> remarks = {}) {
  Ptr<AclConfig> holder(new AclConfig("holder", AclType::ip, false, false));
  Ptr<AclSubConfig> sub = version(*holder, rules, remarks);
  holder->subConfigDel(sub->id());
  return sub;
}

// Counts every change of one entity, whatever the attribute.
class AnyChange : public fwk::Entity::Reactor {
 public:
  explicit AnyChange(const fwk::Entity* entity) { notifierIs(entity); }
  int count = 0;

 protected:
  void fwkDispatch(const fwk::Change&) override { ++count; }
};

}  // namespace build
