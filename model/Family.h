// The three rule families, declared once: for each, its AclType, its rule record and where a
// version keeps its records. Code that handles every family writes one template over
// Acl::Family<type> and reaches it through withFamily, instead of a switch per place.
//
//   bool found = false;
//   Acl::withFamily(type, [&](auto family) {
//     using F = decltype(family);
//     found = F::records(version).contains(id);   // ipRuleById, ip6RuleById or macRuleById
//   });
#pragma once

#include <tuple>

#include "aclkit/model/AclConfig.h"

namespace Acl {

// Each family: its AclType enumerator, the prefix of its attributes (ipRuleById) and the
// capitalized one (IpRuleConfig, spIpRuleMap). Other layers expand it for their own
// per-family members.
// clang-format off
#define ACLKIT_ACL_RULE_FAMILIES(F) F(ip, ip, Ip) F(ipv6, ip6, Ip6) F(mac, mac, Mac)
// clang-format on

template <AclType Type>
struct Family;

#define ACLKIT_ACL_FAMILY_TRAITS_(type, prefix, Prefix)                                                   \
  template <>                                                                                             \
  struct Family<AclType::type> {                                                                          \
    using Rule = Prefix##RuleConfig;                                                                      \
    static constexpr AclType aclType = AclType::type;                                                     \
    static const auto& records(const AclSubConfig& version) { return version.prefix##RuleById(); }        \
    static void recordIs(AclSubConfig& version, const UniqueId& id, const Rule& rule) {                   \
      version.prefix##RuleByIdIs(id, rule);                                                               \
    }                                                                                                     \
    static void recordDel(AclSubConfig& version, const UniqueId& id) { version.prefix##RuleByIdDel(id); } \
    /* Of the three rules an entry point for every family is given, the one of this family. */            \
    static const Rule& pick(const IpRuleConfig& ip, const Ip6RuleConfig& ip6, const MacRuleConfig& mac) { \
      return std::get<const Rule&>(std::tie(ip, ip6, mac));                                               \
    }                                                                                                     \
  };
ACLKIT_ACL_RULE_FAMILIES(ACLKIT_ACL_FAMILY_TRAITS_)
#undef ACLKIT_ACL_FAMILY_TRAITS_

// Calls fn(Family<type>{}) and returns true; returns false, calling nothing, for a type that
// names no family (AclType is open: other values are kept, and each caller says what they do).
template <class Fn>
bool withFamily(AclType type, Fn&& fn) {
  switch (type) {
    case AclType::ip:
      fn(Family<AclType::ip>{});
      return true;
    case AclType::ipv6:
      fn(Family<AclType::ipv6>{});
      return true;
    case AclType::mac:
      fn(Family<AclType::mac>{});
      return true;
  }
  return false;
}

// Calls fn for each family, in the order of the list.
template <class Fn>
void forEachFamily(Fn&& fn) {
  fn(Family<AclType::ip>{});
  fn(Family<AclType::ipv6>{});
  fn(Family<AclType::mac>{});
}

// Where the family must be one of the three, every type but ip and ipv6 counts as mac.
constexpr AclType familyOrMac(AclType type) {
  return type == AclType::ip || type == AclType::ipv6 ? type : AclType::mac;
}

}  // namespace Acl
