// Writing a record as its canonical line. Each clause writer first checks that the fields it
// covers hold something a line can say; a record that does not is refused rather than
// written as a line that would read back as another record.
#include <algorithm>
#include <bit>
#include <charconv>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "aclkit/text/AclText.h"
#include "aclkit/text/internal/Names.h"

namespace Text {

using namespace Acl;

namespace {

[[noreturn]] void refuse(const std::string& why) {
  throw std::invalid_argument("no ACL line reads back as this record: " + why);
}

std::string dec(U64 value) {
  return std::to_string(value);
}

std::string hex(U64 value, int minDigits = 1) {
  char digits[16];
  auto end = std::to_chars(digits, digits + sizeof digits, value, 16).ptr;
  auto length = static_cast<int>(end - digits);
  return "0x" + std::string(static_cast<std::size_t>(std::max(0, minDigits - length)), '0') + std::string(digits, end);
}

// Names of VRFs, sessions and aliases are one word each on a line.
void requireWord(std::string_view text, const char* field) {
  if (text.empty() || text.find_first_of(" \t\r\n") != std::string_view::npos) {
    refuse(std::string(field) + " is not a single word");
  }
}

// Words joined by single blanks.
class Line {
 public:
  Line& operator<<(std::string_view word) {
    if (!text_.empty()) text_.push_back(' ');
    text_.append(word);
    return *this;
  }
  // "KEYWORD VALUE [mask M]", the mask left out when it is the field's full width.
  void masked(std::string_view keyword, const std::string& value, U64 mask, U64 fullMask) {
    *this << keyword << value;
    if (mask != fullMask) *this << "mask" << hex(mask);
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

// `field` names the address, for a refusal: "src" or "dst".
void ip4Address(Line& line, Ip4Addr addr, Ip4Addr mask, std::string_view field) {
  auto text = [](U32 v) {
    return dec(v >> 24) + '.' + dec((v >> 16) & 0xFF) + '.' + dec((v >> 8) & 0xFF) + '.' + dec(v & 0xFF);
  };
  U32 m = mask.value();
  if (addr.value() & ~m) refuse(std::string(field) + " has bits outside " + std::string(field) + "Mask");
  if (m == 0) {
    line << "any";
  } else if (m == 0xFFFFFFFF) {
    line << "host" << text(addr.value());
  } else if (mask.isPrefixMask()) {
    line << text(addr.value()) + '/' + dec(static_cast<U64>(std::popcount(m)));
  } else {
    line << text(addr.value()) << text(~m);  // the wildcard: set bits are the ones not matched
  }
}

void ip6Address(Line& line, Ip6Addr addr, U8 length, std::string_view field) {
  if (addr.network(length) != addr) {
    refuse(std::string(field) + " has bits past " + std::string(field) + "PrefixLen");
  }
  std::ostringstream text;
  text << addr;
  if (length == 0) {
    line << "any";
  } else if (length == 128) {
    line << "host" << text.str();
  } else {
    line << text.str() + '/' + dec(length);
  }
}

void macAddress(Line& line, MacAddr addr, MacAddr mask) {
  auto text = [](MacAddr a) {
    std::ostringstream os;
    os << a;
    return os.str();
  };
  if (addr == MacAddr() && mask == MacAddr()) {
    line << "any";
  } else if (mask == MacAddr(0xFFFFFFFFFFFFULL)) {
    line << "host" << text(addr);
  } else {
    line << text(addr) << text(mask);
  }
}

// "OP LOW" or "range LOW HIGH", nothing for any.
void rangeMatch(Line& line, const RangeMatch& match, const char* field) {
  switch (match.op()) {
    case ValueOp::any:
      if (match.low() != 0 || match.high() != 0) refuse(std::string(field) + " holds values without an operator");
      return;
    case ValueOp::range:
      if (match.low() > match.high()) refuse(std::string(field) + " is a range whose low end is above its high end");
      line << "range" << dec(match.low()) << dec(match.high());
      return;
    default:
      if (match.high() != 0) refuse(std::string(field) + " holds a high end but is not a range");
      line << stringValue(match.op()).view() << dec(match.low());
      return;
  }
}

void tcpFlags(Line& line, U16 flags, U16 mask) {
  if ((flags & ~mask) != 0) refuse("tcpFlags has bits outside tcpFlagsMask");
  unsigned named = 0;
  for (const internal::Name& flag : internal::tcpFlagNames()) named |= flag.value;
  if ((mask & ~named) != 0) refuse("tcpFlagsMask has bits outside the nine TCP flags");
  for (const internal::Name& flag : internal::tcpFlagNames()) {
    if (!(mask & flag.value)) continue;
    std::string word((flags & flag.value) ? "" : "!");
    word += flag.name;
    line << word;
  }
}

void icmpMessage(Line& line, const IpFilterBase& f, U8 icmpProtocol) {
  if (f.icmpType() == IpFilterBase::icmpAny) {
    if (f.icmpCode() != IpFilterBase::icmpAny) refuse("icmpCode is set without icmpType");
    return;
  }
  if (f.protocol() != icmpProtocol || f.protocolMask() != 0xFF)
    refuse("icmpType is set for a protocol that is not ICMP");
  if (f.icmpType() > 255) refuse("icmpType is above 255");
  line << dec(f.icmpType());
  if (f.icmpCode() == IpFilterBase::icmpAny) return;
  if (f.icmpCode() > 255) refuse("icmpCode is above 255");
  line << dec(f.icmpCode());
}

// "KEYWORD [OP] VALUE" for a TTL or hop limit, whose kind any may still carry a value.
void limit(Line& line, std::string_view keyword, ValueOp kind, U8 value) {
  if (kind == ValueOp::range) refuse(std::string(keyword) + " kind is range, which needs two values");
  if (kind == ValueOp::any && value == 0) return;
  line << keyword;
  if (kind != ValueOp::any) line << stringValue(kind).view();
  line << dec(value);
}

void vlan(Line& line, std::string_view keyword, U16 value, U16 mask) {
  if (value != 0 || mask != 0) line.masked(keyword, dec(value), mask, 0xFFF);
}

void payload(Line& line, const PayloadSpec& spec) {
  std::vector<PayloadValue> elements(spec.count());
  U16 read = payloadSpecToValue(elements.data(), spec.count(), spec);
  if (read != spec.count() || payloadValueToOffsetPattern(read, elements.data()) != spec.offsetPattern()) {
    refuse("payload text is not the library's form of its elements");
  }
  for (const PayloadValue& element : elements) {
    line << "payload" << dec(element.offset()) << hex(element.pattern()) << hex(element.mask());
    if (!element.alias().empty()) {
      requireWord(element.alias().view(), "payload alias");
      line << "alias" << element.alias().view();
    }
    if (element.ownPattern()) line << "own-pattern";
    if (element.ownMask()) line << "own-mask";
  }
}

void actions(Line& line, const RuleConfig& rule) {
  if (rule.log()) line << "log";
  if (rule.usesMirror()) {
    requireWord(rule.mirrorSession().view(), "mirrorSession");
    line << "mirror" << rule.mirrorSession().view();
  }
  if (rule.copyToCpu()) line << "copy-to-cpu";
  if (rule.count()) line << "count";
}

template <class Rule>
std::string ipLine(const Rule& rule) {
  constexpr bool ip4 = std::is_same_v<Rule, IpRuleConfig>;
  const auto& f = rule.filter();
  Line line;
  line << stringValue(rule.action()).view();

  if (f.protocol() == 0 && f.protocolMask() == 0) {
    line << (ip4 ? "ip" : "ipv6");
  } else {
    std::string_view name =
        internal::nameOf(ip4 ? internal::ipProtocolNames() : internal::ip6ProtocolNames(), f.protocol());
    line << (name.empty() ? dec(f.protocol()) : std::string(name));
    if (f.protocolMask() != 0xFF) line << "mask" << hex(f.protocolMask());
  }
  if constexpr (ip4) {
    ip4Address(line, f.src(), f.srcMask(), "src");
  } else {
    ip6Address(line, f.src(), f.srcPrefixLen(), "src");
  }
  rangeMatch(line, f.srcPort(), "srcPort");
  if constexpr (ip4) {
    ip4Address(line, f.dst(), f.dstMask(), "dst");
  } else {
    ip6Address(line, f.dst(), f.dstPrefixLen(), "dst");
  }
  rangeMatch(line, f.dstPort(), "dstPort");
  icmpMessage(line, f, ip4 ? 1 : 58);
  tcpFlags(line, f.tcpFlags(), f.tcpFlagsMask());

  if (f.matchDscp()) {
    line.masked("dscp", dec(f.dscp()), f.dscpMask(), 63);
  } else if (f.dscp() != 0 || f.dscpMask() != 63) {
    refuse("dscp or dscpMask is set without matchDscp");
  }
  if (f.matchEcn()) {
    line << "ecn" << dec(f.ecn());
  } else if (f.ecn() != 0) {
    refuse("ecn is set without matchEcn");
  }
  if constexpr (ip4) {
    limit(line, "ttl", f.ttlKind(), f.ttl());
  } else {
    limit(line, "hop-limit", f.hopLimitKind(), f.hopLimit());
  }
  if (f.ipLength().used()) line << "ip-length";
  rangeMatch(line, f.ipLength(), "ipLength");
  if constexpr (ip4) vlan(line, "vlan", f.vlan(), f.vlanMask());
  vlan(line, "outer-vlan", f.outerVlan(), f.outerVlanMask());
  vlan(line, "inner-vlan", f.innerVlan(), f.innerVlanMask());
  if (f.greProto() != 0 || f.greProtoMask() != 0)
    line.masked("gre-proto", hex(f.greProto(), 4), f.greProtoMask(), 0xFFFF);
  if (f.tni() != 0) line << "tni" << dec(f.tni());
  if (f.vxlan()) line << "vxlan";
  if (f.vni() != 0) line << "vni" << dec(f.vni());
  if (f.gtp()) line << "gtp";
  if (f.teid() != 0) line << "teid" << dec(f.teid());
  if (f.userL4() != 0 || f.userL4Mask() != 0) line.masked("user-l4", hex(f.userL4()), f.userL4Mask(), 0xFFFFFFFF);
  payload(line, f.payload());
  if constexpr (ip4) {
    if (f.tracked()) line << "tracked";
  }
  if (!f.vrf().value().empty()) {
    requireWord(f.vrf().value().view(), "vrf");
    line << "vrf" << f.vrf().value().view();
  }
  if constexpr (ip4) {
    if (rule.vacl()) line << "vacl";
  }
  actions(line, rule);
  return line.take();
}

}  // namespace

std::string format(const IpRuleConfig& rule) {
  return ipLine(rule);
}

std::string format(const Ip6RuleConfig& rule) {
  return ipLine(rule);
}

std::string format(const MacRuleConfig& rule) {
  const MacFilter& f = rule.filter();
  Line line;
  line << stringValue(rule.action()).view();
  macAddress(line, f.src(), f.srcMask());
  macAddress(line, f.dst(), f.dstMask());
  if (f.ethertype() != 0 || f.ethertypeMask() != 0) {
    line.masked("ethertype", hex(f.ethertype(), 4), f.ethertypeMask(), 0xFFFF);
  }
  vlan(line, "outer-vlan", f.outerVlan(), f.outerVlanMask());
  vlan(line, "inner-vlan", f.innerVlan(), f.innerVlanMask());
  if (f.mplsLabel() != 0) line << "mpls-label" << dec(f.mplsLabel());
  if (f.mplsInnerLabel() != 0) line << "mpls-inner-label" << dec(f.mplsInnerLabel());
  for (const auto& [label, entry] : f.mpls().labels()) {
    if (entry.label() != label) refuse("an mpls entry is keyed by another label than its own");
    line.masked("mpls", dec(label), entry.labelMask(), 0xFFFFF);
    if (entry.tc() != 0 || entry.tcMask() != 0) line.masked("tc", dec(entry.tc()), entry.tcMask(), 7);
  }
  payload(line, f.payload());
  actions(line, rule);
  return line.take();
}

std::string format(const RemarkConfig& remark) {
  std::string_view text = remark.text().view();
  if (text.find_first_of("\r\n") != std::string_view::npos) refuse("a remark holds a line break");
  return text.empty() ? "remark" : "remark " + std::string(text);
}

std::string formatStandard(const IpRuleConfig& rule) {
  IpFilter rest = rule.filter();
  rest.srcIs({});
  rest.srcMaskIs({});
  if (!(rest == IpFilter()) || rule.vacl()) refuse("a standard list matches on the source address alone");
  Line line;
  line << stringValue(rule.action()).view();
  ip4Address(line, rule.filter().src(), rule.filter().srcMask(), "src");
  actions(line, rule);
  return line.take();
}

std::string format(const Entry& entry, bool standard) {
  std::string line = std::visit(
      [standard](const auto& body) {
        if constexpr (std::is_same_v<std::decay_t<decltype(body)>, IpRuleConfig>) {
          if (standard) return formatStandard(body);
        }
        return format(body);
      },
      entry.body);
  return entry.sequence ? withSequence(*entry.sequence, line) : line;
}

std::string withSequence(U32 sequence, std::string_view line) {
  return dec(sequence) + ' ' + std::string(line);
}

}  // namespace Text
