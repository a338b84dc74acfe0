// ACL configuration entities: one version of an ACL's content (AclSubConfig), one named
// ACL with its versions (AclConfig), and the input configuration that holds the ACLs by
// family and name (Input::Config, Input::AclTypeConfig).
//
//   Ptr<Input::AclTypeConfig> ip = config->configIs(AclType::ip);
//   Ptr<AclConfig> acl = ip->aclIs("acl1", AclType::ip, false, false);
//   Ptr<AclSubConfig> sub = acl->subConfigIs(UniqueId());
//   sub->ruleBySequenceIs(10, ruleId);  sub->ipRuleByIdIs(ruleId, rule);
//   acl->currCfgIs(sub);
#pragma once

#include "aclkit/model/Rules.h"
#include "aclkit/model/Types.h"
#include "aclkit/platform/fwk/Attributes.h"
#include "aclkit/platform/fwk/Export.h"

namespace Acl {

using fwk::Ptr;

// `opaque`: the content is managed elsewhere; two opaque versions count as equal and are
//           never patched into each other.
// `committed`: the hardware has programmed this version (or it came committed from another
//           tree). It belongs to the tree it is set in, so a copy never carries it over.
// `id`: the identity the version was created with (its key in AclConfig::subConfig).
// clang-format off
#define ACLKIT_ACL_SUB_CONFIG_ATTRS(A)                           \
  A(scalar, opaque, bool, false)                          \
  A(statusScalar, committed, bool, false)                 \
  A(orderedMap, ruleBySequence, U32, UniqueId)            \
  A(orderedMap, remarkBySequence, U32, RemarkConfig)      \
  A(hashMap, ipRuleById, UniqueId, IpRuleConfig)          \
  A(hashMap, ip6RuleById, UniqueId, Ip6RuleConfig)        \
  A(hashMap, macRuleById, UniqueId, MacRuleConfig)        \
  A(scalar, countersEnabled, bool, false)                 \
  A(scalar, fragmentsEnabled, bool, false)                \
  A(constScalar, id, UniqueId, UniqueId(0, 0))
// clang-format on

class ACLKIT_EXPORT AclSubConfig : public fwk::Entity {
  FWK_ENTITY(AclSubConfig, fwk::Entity, ACLKIT_ACL_SUB_CONFIG_ATTRS)

 public:
  explicit AclSubConfig(const UniqueId& id) { idStore(id); }
};

// Construction arguments (fixed for the ACL's life): name (the entity name), type,
// standard, readonly. `counterUpdateRequestTime` is a request stamp of the tree it is in.
// clang-format off
#define ACLKIT_ACL_CONFIG_ATTRS(A)                                  \
  A(constScalar, type, AclType, AclType::ip)                 \
  A(constScalar, standard, bool, false)                      \
  A(constScalar, readonly, bool, false)                      \
  A(scalar, dynamic, bool, false)                            \
  A(scalar, secureMonitor, bool, false)                      \
  A(children, subConfig, UniqueId, AclSubConfig)             \
  A(scalar, currCfg, fwk::Ptr<AclSubConfig>, {})             \
  A(statusScalar, counterUpdateRequestTime, double, 0.0)
// clang-format on

class ACLKIT_EXPORT AclConfig : public fwk::Entity {
  FWK_ENTITY(AclConfig, fwk::Entity, ACLKIT_ACL_CONFIG_ATTRS)

 public:
  AclConfig(const String& name, AclType type, bool standard, bool readonly) : Entity(name) {
    typeStore(type);
    standardStore(standard);
    readonlyStore(readonly);
  }
  // An empty ACL with the same construction arguments, for copies between trees.
  static Ptr<AclConfig> fwkConstructLike(const AclConfig& src) {
    return Ptr<AclConfig>(new AclConfig(src.name(), src.type(), src.standard(), src.readonly()));
  }
};

namespace Input {

// clang-format off
#define ACLKIT_ACL_INPUT_ACL_TYPE_CONFIG_ATTRS(A) \
  A(constScalar, type, AclType, AclType::ip) A(children, acl, fwk::String, AclConfig)
// clang-format on

// The ACLs of one family, by name.
class ACLKIT_EXPORT AclTypeConfig : public fwk::Entity {
  FWK_ENTITY(AclTypeConfig, fwk::Entity, ACLKIT_ACL_INPUT_ACL_TYPE_CONFIG_ATTRS)

 public:
  explicit AclTypeConfig(AclType type) { typeStore(type); }
};

// clang-format off
#define ACLKIT_ACL_INPUT_CONFIG_ATTRS(A) A(children, config, AclType, AclTypeConfig)
// clang-format on

// The input configuration root: one AclTypeConfig per family.
class ACLKIT_EXPORT Config : public fwk::Entity {
  FWK_ENTITY(Config, fwk::Entity, ACLKIT_ACL_INPUT_CONFIG_ATTRS)

 public:
  explicit Config(const String& name = String()) : Entity(name) {}
};

}  // namespace Input
}  // namespace Acl
