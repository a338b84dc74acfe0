// Each match of an entry as nf_tables expressions: load a field into a register, mask it, compare.
// Fields are loaded as they stand on the wire (network byte order), so that the kernel's
// byte-wise comparisons order numbers as numbers.
#include "aclkit/kernel/internal/Encode.h"

#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "aclkit/kernel/Kernel.h"

namespace Kernel::nft {

using namespace Acl;

namespace {

constexpr std::uint8_t protocolIcmp = 1;
constexpr std::uint8_t protocolTcp = 6;
constexpr std::uint8_t protocolUdp = 17;
constexpr std::uint8_t protocolIcmp6 = 58;
constexpr std::uint8_t protocolSctp = 132;
constexpr std::uint16_t ethertypeIp = 0x0800;
constexpr std::uint16_t ethertypeIp6 = 0x86DD;

// A value as `size` bytes, most significant first.
struct Bytes {
  std::array<std::uint8_t, 16> data{};
  std::uint32_t size = 0;

  static Bytes of(std::uint64_t value, std::uint32_t size) {
    Bytes b;
    b.size = size;
    for (std::uint32_t i = 0; i < size; ++i) b.data[size - 1 - i] = static_cast<std::uint8_t>(value >> (8 * i));
    return b;
  }
  static Bytes of(const Ip6Addr& a) {
    Bytes b = of(a.high(), 8);
    const Bytes low = of(a.low(), 8);
    std::memcpy(b.data.data() + 8, low.data.data(), 8);
    b.size = 16;
    return b;
  }
  [[nodiscard]] bool allZero() const {
    for (std::uint32_t i = 0; i < size; ++i) {
      if (data[i] != 0) return false;
    }
    return true;
  }
  [[nodiscard]] bool allOnes() const {
    for (std::uint32_t i = 0; i < size; ++i) {
      if (data[i] != 0xFF) return false;
    }
    return true;
  }
  [[nodiscard]] Bytes operator&(const Bytes& mask) const {
    Bytes b = *this;
    for (std::uint32_t i = 0; i < size; ++i) b.data[i] &= mask.data[i];
    return b;
  }
};

// Where a field is read from: a payload at an offset of a header, or a meta key.
struct Field {
  std::uint32_t base;  // NFT_PAYLOAD_*, or metaKey
  std::uint32_t offset;
  std::uint32_t size;
  static constexpr std::uint32_t metaKey = 0xFFFFFFFF;
};
constexpr Field meta(std::uint32_t key, std::uint32_t size) {
  return {Field::metaKey, key, size};
}
constexpr Field network(std::uint32_t offset, std::uint32_t size) {
  return {NFT_PAYLOAD_NETWORK_HEADER, offset, size};
}
constexpr Field transport(std::uint32_t offset, std::uint32_t size) {
  return {NFT_PAYLOAD_TRANSPORT_HEADER, offset, size};
}
constexpr Field link(std::uint32_t offset, std::uint32_t size) {
  return {NFT_PAYLOAD_LL_HEADER, offset, size};
}

constexpr Field l4Protocol = meta(NFT_META_L4PROTO, 1);
constexpr Field ethertype = meta(NFT_META_PROTOCOL, 2);
constexpr Field sourcePort = transport(0, 2);
constexpr Field destinationPort = transport(2, 2);
constexpr Field tcpFlagBits = transport(12, 2);  // the data offset's byte too: masked off
constexpr Field icmpType = transport(0, 1);
constexpr Field icmpCode = transport(1, 1);

class RuleBuilder {
 public:
  RuleBuilder() : rule_(nftnl_rule_alloc()) {}
  ~RuleBuilder() {
    if (rule_) nftnl_rule_free(rule_);
  }
  RuleBuilder(const RuleBuilder&) = delete;
  RuleBuilder& operator=(const RuleBuilder&) = delete;
  nftnl_rule* release() { return std::exchange(rule_, nullptr); }

  void load(const Field& field) {
    if (field.base == Field::metaKey) {
      nftnl_expr* e = expression("meta");
      nftnl_expr_set_u32(e, NFTNL_EXPR_META_KEY, field.offset);
      nftnl_expr_set_u32(e, NFTNL_EXPR_META_DREG, NFT_REG_1);
    } else {
      nftnl_expr* e = expression("payload");
      nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_BASE, field.base);
      nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_OFFSET, field.offset);
      nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_LEN, field.size);
      nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_DREG, NFT_REG_1);
    }
  }
  void bitwise(const Bytes& mask, const Bytes& flip) {
    nftnl_expr* e = expression("bitwise");
    nftnl_expr_set_u32(e, NFTNL_EXPR_BITWISE_SREG, NFT_REG_1);
    nftnl_expr_set_u32(e, NFTNL_EXPR_BITWISE_DREG, NFT_REG_1);
    nftnl_expr_set_u32(e, NFTNL_EXPR_BITWISE_LEN, mask.size);
    nftnl_expr_set(e, NFTNL_EXPR_BITWISE_MASK, mask.data.data(), mask.size);
    nftnl_expr_set(e, NFTNL_EXPR_BITWISE_XOR, flip.data.data(), flip.size);
  }
  void compare(std::uint32_t op, const Bytes& value) {
    nftnl_expr* e = expression("cmp");
    nftnl_expr_set_u32(e, NFTNL_EXPR_CMP_SREG, NFT_REG_1);
    nftnl_expr_set_u32(e, NFTNL_EXPR_CMP_OP, op);
    nftnl_expr_set(e, NFTNL_EXPR_CMP_DATA, value.data.data(), value.size);
  }
  void between(const Bytes& low, const Bytes& high) {
    nftnl_expr* e = expression("range");
    nftnl_expr_set_u32(e, NFTNL_EXPR_RANGE_SREG, NFT_REG_1);
    nftnl_expr_set_u32(e, NFTNL_EXPR_RANGE_OP, NFT_RANGE_EQ);
    nftnl_expr_set(e, NFTNL_EXPR_RANGE_FROM_DATA, low.data.data(), low.size);
    nftnl_expr_set(e, NFTNL_EXPR_RANGE_TO_DATA, high.data.data(), high.size);
  }
  // The field under the mask equals the value under it; nothing when the mask is empty.
  void masked(const Field& field, std::uint64_t value, std::uint64_t mask) {
    masked(field, Bytes::of(value, field.size), Bytes::of(mask, field.size));
  }
  void masked(const Field& field, const Bytes& value, const Bytes& mask) {
    if (mask.allZero()) return;
    load(field);
    if (!mask.allOnes()) bitwise(mask, Bytes::of(0, field.size));
    compare(NFT_CMP_EQ, value & mask);
  }
  void equals(const Field& field, std::uint64_t value) { masked(field, value, ~std::uint64_t{0}); }
  void inRange(const Field& field, const RangeMatch& match) {
    if (!match.used()) return;
    load(field);
    const Bytes low = Bytes::of(match.low(), field.size);
    switch (match.op()) {
      case ValueOp::eq:
        return compare(NFT_CMP_EQ, low);
      case ValueOp::neq:
        return compare(NFT_CMP_NEQ, low);
      case ValueOp::lt:
        return compare(NFT_CMP_LT, low);
      case ValueOp::gt:
        return compare(NFT_CMP_GT, low);
      case ValueOp::range:
        return between(low, Bytes::of(match.high(), field.size));
      case ValueOp::any:
        return;
    }
  }
  // A packet length matched through a field that holds it less `less` bytes (IPv6's payload
  // length, without its 40-byte header).
  void inRange(const Field& field, const RangeMatch& match, unsigned less) {
    if (!match.used() || less == 0) return inRange(field, match);
    const unsigned low = match.low();
    const unsigned high = match.op() == ValueOp::range ? match.high() : low;
    const bool below = low < less;  // the value names a length shorter than any packet
    switch (match.op()) {
      case ValueOp::eq:
      case ValueOp::lt:
        if (below || (match.op() == ValueOp::lt && low == less)) return never(field);
        break;
      case ValueOp::neq:
      case ValueOp::gt:
        if (below) return;
        break;
      case ValueOp::range:
        if (high < less) return never(field);
        return inRange(field, RangeMatch(ValueOp::range, static_cast<U16>(std::max(low, less) - less),
                                         static_cast<U16>(high - less)));
      case ValueOp::any:
        return;
    }
    inRange(field, RangeMatch(match.op(), static_cast<U16>(low - less)));
  }
  void never(const Field& field) {
    load(field);
    compare(NFT_CMP_LT, Bytes::of(0, field.size));
  }
  void markHasPermit(bool has) {
    load(meta(NFT_META_MARK, 4));
    bitwise(hostOrder(permitMark), hostOrder(0));
    compare(has ? NFT_CMP_NEQ : NFT_CMP_EQ, hostOrder(0));
  }
  // mark = (mark & ~permitMark) ^ (set ? permitMark : 0)
  void setPermitMark(bool set) {
    load(meta(NFT_META_MARK, 4));
    bitwise(hostOrder(~permitMark), hostOrder(set ? permitMark : 0));
    nftnl_expr* e = expression("meta");
    nftnl_expr_set_u32(e, NFTNL_EXPR_META_KEY, NFT_META_MARK);
    nftnl_expr_set_u32(e, NFTNL_EXPR_META_SREG, NFT_REG_1);
  }
  void counter() { expression("counter"); }
  void verdict(int code) {
    nftnl_expr* e = expression("immediate");
    nftnl_expr_set_u32(e, NFTNL_EXPR_IMM_DREG, NFT_REG_VERDICT);
    nftnl_expr_set_u32(e, NFTNL_EXPR_IMM_VERDICT, static_cast<std::uint32_t>(code));
  }

 private:
  // The mark is a host-order number in its register.
  static Bytes hostOrder(std::uint32_t value) {
    Bytes b;
    b.size = 4;
    std::memcpy(b.data.data(), &value, 4);
    return b;
  }
  nftnl_expr* expression(const char* name) {
    nftnl_expr* e = nftnl_expr_alloc(name);
    nftnl_rule_add_expr(rule_, e);
    return e;
  }

  nftnl_rule* rule_;
};

// A match that names its protocol needs that protocol exactly: nf_tables reads a port or a
// flag wherever the transport header is, whatever it holds.
bool exactly(const IpFilterBase& f, std::uint8_t protocol) {
  return f.protocolMask() == 0xFF && f.protocol() == protocol;
}

// The matches IPv4 and IPv6 share; the traffic class is the family's (`dscpEcn`).
std::string common(RuleBuilder& r, const IpFilterBase& f, std::uint8_t icmp, const Field& trafficClass,
                   unsigned classShift, const Field& length, unsigned lengthLess) {
  if (f.vrf().value().empty() == false) return "a VRF match";
  r.masked(l4Protocol, f.protocol(), f.protocolMask());
  if (f.srcPort().used() || f.dstPort().used()) {
    if (!exactly(f, protocolTcp) && !exactly(f, protocolUdp) && !exactly(f, protocolSctp)) {
      return "a port match without tcp, udp or sctp";
    }
    r.inRange(sourcePort, f.srcPort());
    r.inRange(destinationPort, f.dstPort());
  }
  if (f.usesTcpFlags()) {
    if (!exactly(f, protocolTcp)) return "a TCP flag match without tcp";
    r.masked(tcpFlagBits, f.tcpFlags(), f.tcpFlagsMask() & 0x1FFU);
  }
  if (f.icmpType() != IpFilterBase::icmpAny || f.icmpCode() != IpFilterBase::icmpAny) {
    if (!exactly(f, icmp)) return "an ICMP type or code without its protocol";
    if (f.icmpType() != IpFilterBase::icmpAny) r.equals(icmpType, f.icmpType());
    if (f.icmpCode() != IpFilterBase::icmpAny) r.equals(icmpCode, f.icmpCode());
  }
  // DSCP is the top six bits of the traffic class, ECN the bottom two.
  if (f.matchDscp()) {
    r.masked(trafficClass, std::uint64_t{f.dscp()} << (classShift + 2),
             std::uint64_t{f.dscpMask()} << (classShift + 2));
  }
  if (f.matchEcn()) r.masked(trafficClass, std::uint64_t{f.ecn()} << classShift, std::uint64_t{3} << classShift);
  r.inRange(length, f.ipLength(), lengthLess);
  return {};
}

std::string matches(RuleBuilder& r, const IpRuleConfig& rule) {
  const IpFilter& f = rule.filter();
  if (f.tracked()) return "a connection-tracking match";
  if (f.usesTtlOption()) return "a TTL match";
  if (f.vlanMask() != 0) return "a VLAN match";
  r.masked(network(12, 4), f.src().value(), f.srcMask().value());
  r.masked(network(16, 4), f.dst().value(), f.dstMask().value());
  // The type-of-service byte; the total length.
  return common(r, f, protocolIcmp, network(1, 1), 0, network(2, 2), 0);
}

std::string matches(RuleBuilder& r, const Ip6RuleConfig& rule) {
  const Ip6Filter& f = rule.filter();
  if (f.usesHopLimitOption()) return "a hop-limit match";
  const Ip6Addr all(~U64{0}, ~U64{0});
  r.masked(network(8, 16), Bytes::of(f.src()), Bytes::of(all.network(f.srcPrefixLen())));
  r.masked(network(24, 16), Bytes::of(f.dst()), Bytes::of(all.network(f.dstPrefixLen())));
  // The traffic class sits in bits 4 to 11 of the first two bytes; the packet's length is its
  // payload length and the 40 bytes of its header.
  return common(r, f, protocolIcmp6, network(0, 2), 4, network(4, 2), 40);
}

std::string matches(RuleBuilder& r, const MacRuleConfig& rule) {
  const MacFilter& f = rule.filter();
  if (f.usesMpls() || f.usesTwoMplsLabels()) return "an MPLS match";
  r.masked(link(6, 6), f.src().value(), f.srcMask().value());
  r.masked(link(0, 6), f.dst().value(), f.dstMask().value());
  r.masked(ethertype, f.ethertype(), f.ethertypeMask());
  return {};
}

// What the capability check lets through but the kernel has no match for.
std::string beyondMatches(const RuleConfig& rule) {
  if (rule.log()) return "logging";
  if (rule.usesMirror()) return "a mirror session";
  if (rule.copyToCpu()) return "copy to CPU";
  return {};
}

std::string beyondFilter(const IpFilterBase& f) {
  if (f.usesOuterVlan() || f.usesInnerVlan()) return "a VLAN match";
  if (f.usesGre() || f.usesTni() || f.usesVxlan() || f.usesVni() || f.usesGtp() || f.usesTeid() || f.usesUserL4() ||
      f.usesPayload()) {
    return "a deep-inspection match";
  }
  return {};
}
std::string beyondFilter(const MacFilter& f) {
  if (f.usesOuterVlan() || f.usesInnerVlan()) return "a VLAN match";
  if (f.usesPayload()) return "a deep-inspection match";
  return {};
}

}  // namespace

nftnl_rule* entryRule(const Agent::Rule& rule, std::string& why) {
  RuleBuilder r;
  why = std::visit(
      [&](const auto& record) {
        std::string beyond = beyondMatches(record);
        if (beyond.empty()) beyond = beyondFilter(record.filter());
        return beyond.empty() ? matches(r, record) : beyond;
      },
      rule);
  if (!why.empty()) return nullptr;
  r.counter();
  if (Agent::actionOf(rule) == RuleAction::permit) {
    r.setPermitMark(true);
    r.verdict(NF_ACCEPT);
  } else {
    r.verdict(NF_DROP);
  }
  return r.release();
}

namespace {

// Frames of another family than the piece's: IPv4 and IPv6 have their own lists, and a MAC
// list takes every other frame.
std::vector<std::uint16_t> passedBy(AclType family) {
  if (family == AclType::ip) return {ethertypeIp6};
  if (family == AclType::ipv6) return {ethertypeIp};
  return {ethertypeIp, ethertypeIp6};
}

}  // namespace

std::vector<nftnl_rule*> pieceHead(AclType family) {
  std::vector<nftnl_rule*> head;
  RuleBuilder permitted;
  permitted.markHasPermit(true);
  permitted.verdict(NF_ACCEPT);
  head.push_back(permitted.release());
  if (family == AclType::mac) {
    for (std::uint16_t other : passedBy(family)) {
      RuleBuilder r;
      r.equals(ethertype, other);
      r.verdict(NF_ACCEPT);
      head.push_back(r.release());
    }
  } else {
    RuleBuilder r;
    r.load(ethertype);
    r.compare(NFT_CMP_NEQ, Bytes::of(family == AclType::ip ? ethertypeIp : ethertypeIp6, 2));
    r.verdict(NF_ACCEPT);
    head.push_back(r.release());
  }
  return head;
}

nftnl_rule* implicitDeny(AclType family) {
  RuleBuilder r;
  r.markHasPermit(false);
  if (family == AclType::mac) {
    for (std::uint16_t other : passedBy(family)) {
      r.load(ethertype);
      r.compare(NFT_CMP_NEQ, Bytes::of(other, 2));
    }
  } else {
    r.equals(ethertype, family == AclType::ip ? ethertypeIp : ethertypeIp6);
  }
  r.verdict(NF_DROP);
  return r.release();
}

nftnl_rule* clearPermitMark() {
  RuleBuilder r;
  r.setPermitMark(false);
  return r.release();
}

}  // namespace Kernel::nft
