// Rule records: what one ACL entry matches and does.
//
//   IpRuleConfig rule;                       // permit everything
//   IpFilter f;
//   f.protocolIs(6); f.protocolMaskIs(0xFF);
//   f.dstIs(Ip4Addr::fwkParse("192.0.2.1")); f.dstMaskIs(Ip4Addr(0xFFFFFFFF));
//   f.dstPortIs(RangeMatch(ValueOp::eq, 80));
//   rule.filterIs(f); rule.actionIs(RuleAction::deny);
//
// Every field has a default that matches everything and uses no optional feature; the
// uses*() predicates say which features a rule needs from the platform.
#pragma once

#include <map>
#include <vector>

#include "aclkit/model/Types.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/Record.h"

namespace Acl {

// A match on a 16-bit value (L4 port, IP length): op any, or eq/neq/lt/gt low, or range low-high.
// clang-format off
#define ACLKIT_ACL_RANGE_MATCH_FIELDS(F) F(field, op, ValueOp, ValueOp::any) F(field, low, U16, 0) F(field, high, U16, 0)
// clang-format on

class ACLKIT_EXPORT RangeMatch : public fwk::RecordBase {
  FWK_RECORD(RangeMatch, fwk::RecordBase, ACLKIT_ACL_RANGE_MATCH_FIELDS)

 public:
  RangeMatch() = default;
  // RangeError for a range whose low end lies above its high end.
  RangeMatch(ValueOp op, U16 low, U16 high = 0);
  [[nodiscard]] bool used() const noexcept { return op_ != ValueOp::any; }
  // "any", "eq 80", "range 1024 2047" (the stream output's form).
  static RangeMatch fwkParse(std::string_view text);
};

// One UDF payload element.
// clang-format off
#define ACLKIT_ACL_PAYLOAD_VALUE_FIELDS(F)   \
  F(field, alias, String, {})         \
  F(field, pattern, U32, 0)           \
  F(field, mask, U32, 0)              \
  F(field, offset, U16, 0)            \
  F(field, ownPattern, bool, false)   \
  F(field, ownMask, bool, false)
// clang-format on

class ACLKIT_EXPORT PayloadValue : public fwk::RecordBase {
  FWK_RECORD(PayloadValue, fwk::RecordBase, ACLKIT_ACL_PAYLOAD_VALUE_FIELDS)
};

// A rule's payload match: its elements in text form and their count. The text is a
// space-separated list of "offset,pattern,mask,alias,flags" where pattern and mask are hex,
// alias may be empty and flags holds "p" (own pattern) and/or "m" (own mask):
//   "2,0x1234,0xffff,,pm 6,0x0,0x0,tunnelKey,"
// clang-format off
#define ACLKIT_ACL_PAYLOAD_SPEC_FIELDS(F) F(field, offsetPattern, String, {}) F(field, count, U16, 0)
// clang-format on

class ACLKIT_EXPORT PayloadSpec : public fwk::RecordBase {
  FWK_RECORD(PayloadSpec, fwk::RecordBase, ACLKIT_ACL_PAYLOAD_SPEC_FIELDS)

 public:
  PayloadSpec() = default;
  // fwk::Error for text that is not a list of elements.
  explicit PayloadSpec(String offsetPattern);
  [[nodiscard]] bool used() const noexcept { return count_ != 0; }
  static PayloadSpec fwkParse(std::string_view text) { return PayloadSpec(String(text)); }
};

// Fills at most `count` entries of `values` from `spec`; returns how many it filled.
ACLKIT_EXPORT U16 payloadSpecToValue(PayloadValue* values, U16 count, const PayloadSpec& spec);
// The text form of the first `count` entries of `values`.
ACLKIT_EXPORT String payloadValueToOffsetPattern(U16 count, const PayloadValue* values);

// clang-format off
#define ACLKIT_ACL_MPLS_LABEL_FILTER_FIELDS(F)        \
  F(ranged, label, U32, 0, 0, 0xFFFFF)         \
  F(ranged, labelMask, U32, 0xFFFFF, 0, 0xFFFFF) \
  F(ranged, tc, U8, 0, 0, 7)                   \
  F(ranged, tcMask, U8, 0, 0, 7)
// clang-format on

class ACLKIT_EXPORT MplsLabelFilter : public fwk::RecordBase {
  FWK_RECORD(MplsLabelFilter, fwk::RecordBase, ACLKIT_ACL_MPLS_LABEL_FILTER_FIELDS)
};

// MPLS label matches keyed by label, copied and compared as a whole.
class ACLKIT_EXPORT MplsFilter {
 public:
  [[nodiscard]] const std::map<U32, MplsLabelFilter>& labels() const noexcept { return labels_; }
  [[nodiscard]] MplsLabelFilter label(U32 label) const;
  // RangeError for a label above 20 bits.
  void labelIs(U32 label, const MplsLabelFilter& filter);
  void labelDel(U32 label) { labels_.erase(label); }
  [[nodiscard]] bool empty() const noexcept { return labels_.empty(); }
  [[nodiscard]] std::size_t hash(std::uint32_t seed = 0) const noexcept;
  friend bool operator==(const MplsFilter&, const MplsFilter&) = default;
  friend bool operator<(const MplsFilter& a, const MplsFilter& b) { return a.labels_ < b.labels_; }
  static const char* fwkTypeName() { return "MplsFilter"; }
  // Space-separated labels, each matched exactly: "16 1000".
  static MplsFilter fwkParse(std::string_view text);

 private:
  std::map<U32, MplsLabelFilter> labels_;
};
ACLKIT_EXPORT std::ostream& operator<<(std::ostream& os, const MplsFilter& filter);

// Matches shared by IPv4 and IPv6 rules.
// clang-format off
#define ACLKIT_ACL_IP_FILTER_BASE_FIELDS(F)              \
  F(field, protocol, U8, 0)                       \
  F(field, protocolMask, U8, 0)                   \
  F(field, srcPort, RangeMatch, {})               \
  F(field, dstPort, RangeMatch, {})               \
  F(field, tcpFlags, U16, 0)                      \
  F(field, tcpFlagsMask, U16, 0)                  \
  F(field, icmpType, U16, icmpAny)                \
  F(field, icmpCode, U16, icmpAny)                \
  F(field, matchDscp, bool, false)                \
  F(ranged, dscp, U8, 0, 0, 63)                   \
  F(ranged, dscpMask, U8, 63, 0, 63)              \
  F(field, matchEcn, bool, false)                 \
  F(ranged, ecn, U8, 0, 0, 3)                     \
  F(field, ipLength, RangeMatch, {})              \
  F(ranged, outerVlan, U16, 0, 0, 4095)           \
  F(ranged, outerVlanMask, U16, 0, 0, 4095)       \
  F(ranged, innerVlan, U16, 0, 0, 4095)           \
  F(ranged, innerVlanMask, U16, 0, 0, 4095)       \
  F(field, greProto, U16, 0)                      \
  F(field, greProtoMask, U16, 0)                  \
  F(ranged, tni, U32, 0, 0, 16777215)             \
  F(field, vxlan, bool, false)                    \
  F(ranged, vni, U32, 0, 0, 16777215)             \
  F(field, gtp, bool, false)                      \
  F(field, teid, U32, 0)                          \
  F(field, userL4, U32, 0)                        \
  F(field, userL4Mask, U32, 0)                    \
  F(field, payload, PayloadSpec, {})              \
  F(field, vrf, VrfName, {})
// clang-format on

class ACLKIT_EXPORT IpFilterBase : public fwk::RecordBase {
 public:
  static constexpr U16 icmpAny = 0xFFFF;  // no ICMP type or code match
  static constexpr U16 greProtoNvgre = 0x6558;
  static constexpr U8 protocolGre = 47;

  FWK_RECORD(IpFilterBase, fwk::RecordBase, ACLKIT_ACL_IP_FILTER_BASE_FIELDS)

 public:
  [[nodiscard]] bool usesTcpFlags() const noexcept { return tcpFlagsMask_ != 0; }
  [[nodiscard]] bool usesDscp() const noexcept { return matchDscp_; }
  [[nodiscard]] bool usesDscpMask() const noexcept { return matchDscp_ && dscpMask_ != 63; }
  [[nodiscard]] bool usesEcn() const noexcept { return matchEcn_; }
  [[nodiscard]] bool usesIpLength() const noexcept { return ipLength_.used(); }
  [[nodiscard]] bool usesOuterVlan() const noexcept { return outerVlanMask_ != 0; }
  [[nodiscard]] bool usesInnerVlan() const noexcept { return innerVlanMask_ != 0; }
  [[nodiscard]] bool usesGre() const noexcept { return greProtoMask_ != 0; }
  [[nodiscard]] bool usesTni() const noexcept { return tni_ != 0; }
  [[nodiscard]] bool usesVxlan() const noexcept { return vxlan_; }
  [[nodiscard]] bool usesVni() const noexcept { return vni_ != 0; }
  [[nodiscard]] bool usesGtp() const noexcept { return gtp_; }
  [[nodiscard]] bool usesTeid() const noexcept { return teid_ != 0; }
  [[nodiscard]] bool usesUserL4() const noexcept { return userL4Mask_ != 0; }
  [[nodiscard]] bool usesPayload() const noexcept { return payload_.used(); }
};

// clang-format off
#define ACLKIT_ACL_IP_FILTER_FIELDS(F)                   \
  F(field, src, Ip4Addr, {})                      \
  F(field, srcMask, Ip4Addr, {})                  \
  F(field, dst, Ip4Addr, {})                      \
  F(field, dstMask, Ip4Addr, {})                  \
  F(field, ttlKind, ValueOp, ValueOp::any)        \
  F(field, ttl, U8, 0)                            \
  F(field, tracked, bool, false)                  \
  F(ranged, vlan, U16, 0, 0, 4095)                \
  F(ranged, vlanMask, U16, 0, 0, 4095)
// clang-format on

// IPv4 matches. A mask of 0.0.0.0 matches any address.
class ACLKIT_EXPORT IpFilter : public IpFilterBase {
  FWK_RECORD(IpFilter, IpFilterBase, ACLKIT_ACL_IP_FILTER_FIELDS)

 public:
  // IP protocol GRE with the transparent-Ethernet-bridging protocol type.
  [[nodiscard]] bool usesNvgre() const noexcept { return protocol() == protocolGre && greProto() == greProtoNvgre; }
  [[nodiscard]] bool usesTtlOption() const noexcept { return ttlKind_ != ValueOp::any; }
  [[nodiscard]] bool usesVlan() const noexcept { return vlan_ != 0; }
  // A VLAN match with a mask: what a VLAN interface's deep inspection cannot take.
  [[nodiscard]] bool usesMaskedVlan() const noexcept { return vlan_ != 0 && vlanMask_ != 0; }
  [[nodiscard]] bool usesDiscontiguousMask() const noexcept {
    return !srcMask_.isPrefixMask() || !dstMask_.isPrefixMask();
  }
};

// clang-format off
#define ACLKIT_ACL_IP6_FILTER_FIELDS(F)                  \
  F(field, src, Ip6Addr, {})                      \
  F(ranged, srcPrefixLen, U8, 0, 0, 128)          \
  F(field, dst, Ip6Addr, {})                      \
  F(ranged, dstPrefixLen, U8, 0, 0, 128)          \
  F(field, hopLimitKind, ValueOp, ValueOp::any)   \
  F(field, hopLimit, U8, 0)
// clang-format on

// IPv6 matches. A prefix length of 0 matches any address.
class ACLKIT_EXPORT Ip6Filter : public IpFilterBase {
  FWK_RECORD(Ip6Filter, IpFilterBase, ACLKIT_ACL_IP6_FILTER_FIELDS)

 public:
  [[nodiscard]] bool usesNvgre() const noexcept { return usesGre() && greProto() == greProtoNvgre; }
  [[nodiscard]] bool usesHopLimitOption() const noexcept { return hopLimitKind_ != ValueOp::any; }
  [[nodiscard]] bool usesHopLimit() const noexcept { return hopLimit_ != 0; }
};

// clang-format off
#define ACLKIT_ACL_MAC_FILTER_FIELDS(F)                  \
  F(field, src, MacAddr, {})                      \
  F(field, srcMask, MacAddr, {})                  \
  F(field, dst, MacAddr, {})                      \
  F(field, dstMask, MacAddr, {})                  \
  F(field, ethertype, U16, 0)                     \
  F(field, ethertypeMask, U16, 0)                 \
  F(ranged, outerVlan, U16, 0, 0, 4095)           \
  F(ranged, outerVlanMask, U16, 0, 0, 4095)       \
  F(ranged, innerVlan, U16, 0, 0, 4095)           \
  F(ranged, innerVlanMask, U16, 0, 0, 4095)       \
  F(ranged, mplsLabel, U32, 0, 0, 0xFFFFF)        \
  F(ranged, mplsInnerLabel, U32, 0, 0, 0xFFFFF)   \
  F(field, mpls, MplsFilter, {})                  \
  F(field, payload, PayloadSpec, {})
// clang-format on

// Ethernet matches. A mask of 00:00:00:00:00:00 matches any address.
class ACLKIT_EXPORT MacFilter : public fwk::RecordBase {
  FWK_RECORD(MacFilter, fwk::RecordBase, ACLKIT_ACL_MAC_FILTER_FIELDS)

 public:
  [[nodiscard]] bool usesOuterVlan() const noexcept { return outerVlanMask_ != 0; }
  [[nodiscard]] bool usesInnerVlan() const noexcept { return innerVlanMask_ != 0; }
  [[nodiscard]] bool usesMpls() const noexcept { return mplsLabel_ != 0 || !mpls_.empty(); }
  [[nodiscard]] bool usesTwoMplsLabels() const noexcept { return mplsInnerLabel_ != 0; }
  [[nodiscard]] bool usesPayload() const noexcept { return payload_.used(); }
};

// What every rule does besides matching.
// clang-format off
#define ACLKIT_ACL_RULE_CONFIG_FIELDS(F)                 \
  F(field, action, RuleAction, RuleAction::permit) \
  F(field, log, bool, false)                      \
  F(field, mirrorSession, String, {})             \
  F(field, copyToCpu, bool, false)                \
  F(field, count, bool, false)
// clang-format on

class ACLKIT_EXPORT RuleConfig : public fwk::RecordBase {
  FWK_RECORD(RuleConfig, fwk::RecordBase, ACLKIT_ACL_RULE_CONFIG_FIELDS)

 public:
  [[nodiscard]] bool usesMirror() const noexcept { return !mirrorSession_.empty(); }
};

// `vacl`: the rule applies to bridged traffic of a VLAN the ACL is attached to.
// clang-format off
#define ACLKIT_ACL_IP_RULE_CONFIG_FIELDS(F) F(field, vacl, bool, false) F(field, filter, IpFilter, {})
// clang-format on
// clang-format off
#define ACLKIT_ACL_IP6_RULE_CONFIG_FIELDS(F) F(field, filter, Ip6Filter, {})
// clang-format on
// clang-format off
#define ACLKIT_ACL_MAC_RULE_CONFIG_FIELDS(F) F(field, filter, MacFilter, {})
// clang-format on

class ACLKIT_EXPORT IpRuleConfig : public RuleConfig {
  FWK_RECORD(IpRuleConfig, RuleConfig, ACLKIT_ACL_IP_RULE_CONFIG_FIELDS)
};
class ACLKIT_EXPORT Ip6RuleConfig : public RuleConfig {
  FWK_RECORD(Ip6RuleConfig, RuleConfig, ACLKIT_ACL_IP6_RULE_CONFIG_FIELDS)
};
class ACLKIT_EXPORT MacRuleConfig : public RuleConfig {
  FWK_RECORD(MacRuleConfig, RuleConfig, ACLKIT_ACL_MAC_RULE_CONFIG_FIELDS)
};

// A remark of an ACL: its text is all there is to it.
// clang-format off
#define ACLKIT_ACL_REMARK_CONFIG_FIELDS(F) F(field, text, String, {})
// clang-format on

class ACLKIT_EXPORT RemarkConfig : public fwk::RecordBase {
  FWK_RECORD(RemarkConfig, fwk::RecordBase, ACLKIT_ACL_REMARK_CONFIG_FIELDS)

 public:
  RemarkConfig() = default;
  explicit RemarkConfig(const String& text) { textIs(text); }
};

}  // namespace Acl
