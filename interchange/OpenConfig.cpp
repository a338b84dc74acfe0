#include "aclkit/interchange/OpenConfig.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <span>
#include <sstream>
#include <tuple>

#include "aclkit/interchange/internal/Mapping.h"
#include "aclkit/text/AclText.h"

namespace Interchange {

using nlohmann::json;
using namespace Acl;
using namespace internal;

namespace {

// ---- names shared by both directions ---------------------------------------------------------

struct FamilyName {
  AclType type;
  const char* identity;
};
constexpr FamilyName familyNames[] = {{AclType::ip, "ACL_IPV4"}, {AclType::ipv6, "ACL_IPV6"}, {AclType::mac, "ACL_L2"}};

const char* identityOf(AclType type) {
  for (const FamilyName& f : familyNames) {
    if (f.type == familyOrMac(type)) return f.identity;
  }
  return "ACL_L2";
}

struct Named {
  const char* name;
  U32 value;
};
constexpr Named protocols[] = {{"IP_ICMP", 1},  {"IP_IGMP", 2}, {"IP_IN_IP", 4}, {"IP_TCP", 6},   {"IP_UDP", 17},
                               {"IP_RSVP", 46}, {"IP_GRE", 47}, {"IP_AUTH", 51}, {"IP_PIM", 103}, {"IP_L2TP", 115}};
constexpr Named ethertypes[] = {{"ETHERTYPE_IPV4", 0x0800}, {"ETHERTYPE_ARP", 0x0806},  {"ETHERTYPE_VLAN", 0x8100},
                                {"ETHERTYPE_IPV6", 0x86DD}, {"ETHERTYPE_MPLS", 0x8847}, {"ETHERTYPE_LLDP", 0x88CC},
                                {"ETHERTYPE_ROCE", 0x8915}};
// The TCP flags the model names, with their bits in a rule's tcpFlags (NS has no name there).
constexpr Named tcpFlags[] = {{"TCP_FIN", 0x01}, {"TCP_SYN", 0x02}, {"TCP_RST", 0x04}, {"TCP_PSH", 0x08},
                              {"TCP_ACK", 0x10}, {"TCP_URG", 0x20}, {"TCP_ECE", 0x40}, {"TCP_CWR", 0x80}};
constexpr U16 synAck = 0x02 | 0x10;

// ICMP types and codes as openconfig-icmpv4-types and -icmpv6-types name them (the models'
// spellings kept); a code's identity names its type as well. Values are the IANA ones: the
// ICMPv6 model's text gives mobile prefix solicitation 147, the registry 146.
struct IcmpCode {
  const char* name;
  U16 type;
  U16 code;
};
// clang-format off
constexpr Named icmp4Types[] = {
    {"ECHO_REPLY", 0}, {"DST_UNREACHABLE", 3}, {"REDIRECT", 5}, {"ECHO", 8},
    {"ROUTER_ADVERTISEMENT", 9}, {"ROUTER_SOLICITATION", 10}, {"TIME_EXCEEDED", 11}, {"PARAM_PROBLEM", 12},
    {"TIMESTAMP", 13}, {"TIMESTAMP_REPLY", 14}, {"TRACEROUTE", 30}, {"PHOTURIS", 40},
    {"EXT_ECHO_REQUEST", 42}, {"EXT_ECHO_REPLY", 43}};
constexpr IcmpCode icmp4Codes[] = {
    {"ECHO_REPLY_NONE", 0, 0},
    {"DST_UNREACHABLE_NET", 3, 0}, {"DST_UNREACHABLE_HOST", 3, 1}, {"DST_UNREACHABLE_PROTOCOL", 3, 2},
    {"DST_UNREACHABLE_PORT", 3, 3}, {"DST_UNREACHABLE_CANNOT_FRAGMENT", 3, 4},
    {"DST_UNREACHABLE_SRC_ROUTE_FAILED", 3, 5}, {"DST_UNREACHABLE_DST_NET_UNKNOWN", 3, 6},
    {"DST_UNREACHABLE_DST_HOST_UNKNOWN", 3, 7}, {"DST_UNREACHABLE_SRC_HOST_ISOLATED", 3, 8},
    {"DST_UNREACHABLE_DST_NET_ADMIN_PROHIBITED", 3, 9}, {"DST_UNREACHABLE_DST_HOST_ADMIN_PROHIBITED", 3, 10},
    {"DST_UNREACHABLE_NET_UNREACHABLE_FOR_TOS", 3, 11}, {"DST_UNREACHABLE_HOST_UNREACHABLE_FOR_TOS", 3, 12},
    {"DST_UNREACHABLE_ADMIN_PROHIBITED", 3, 13}, {"DST_UNREACHABLE_HOST_PRECEDENCE_VIOLATION", 3, 14},
    {"DST_UNREACHABLE_PRECEDENCE_CUTOFF", 3, 15},
    {"REDIRECT_NETWORK", 5, 0}, {"REDIRECT_HOST", 5, 1}, {"REDIRECT_TOS_NETWORK", 5, 2}, {"REDIRECT_TOS_HOST", 5, 3},
    {"ECHO_NO_CODE", 8, 0},
    {"ROUTER_ADVERTISEMENT_NORMAL", 9, 0}, {"ROUTER_ADVERTISEMENT_DOES_NOT_ROUTE_COMMON", 9, 16},
    {"ROUTER_SELECTION_NO_CODE", 10, 0},
    {"TIME_EXCEEDED_IN_TRANSIT", 11, 0}, {"TIME_EXCEEDED_FRAGMENT_REASSEMBLY_IN_TRANSIT", 11, 1},
    {"PARAM_PROBLEM_POINTER_INDICATES_ERR", 12, 0}, {"PARAM_PROBLEM_MISSING_REQ_OPTION", 12, 1},
    {"PARAM_PROBLEM_BAD_LENGTH", 12, 2},
    {"TIMESTAMP_NO_CODE", 13, 0}, {"TIMESTAMP_REPLY_NO_CODE", 14, 0},
    {"PHOTURIS_BAD_SPI", 40, 0}, {"PHOTURIS_AUTH_FAILED", 40, 1}, {"PHOTURIS_DECOMPRESS_FAILED", 40, 2},
    {"PHOTURIS_DECRYPTION_FAILED", 40, 3}, {"PHOTURIS_NEED_AUTHENTICATION", 40, 4},
    {"PHOTURIS_NEED_AUTHORIZATION", 40, 5},
    {"EXT_ECHO_REQUEST_NO_ERROR", 42, 0},
    {"EXT_ECHO_REPLY_NO_ERROR", 43, 0}, {"EXT_ECHO_REPLY_MALFORMED_QUERY", 43, 1},
    {"EXT_ECHO_REPLY_NO_SUCH_INTF", 43, 2}, {"EXT_ECHO_REPLY_NO_SUB_TABLE_ENTRY", 43, 3},
    {"EXT_ECHO_REPLY_MULTIPLE_INTF_SATISFY_QUERY", 43, 4}};
constexpr Named icmp6Types[] = {
    {"DESTINATION_UNREACHABLE", 1}, {"PACKET_TOO_BIG", 2}, {"TIME_EXCEEDED", 3}, {"PARAMETER_PROBLEM", 4},
    {"ECHO_REQUEST", 128}, {"ECHO_REPLY", 129}, {"MULTICAST_LISTENER_QUERY", 130},
    {"MULTICAST_LISTENER_REPORT", 131}, {"MULTICAST_LISTENER_DONE", 132}, {"ROUTER_SOLICITATION", 133},
    {"ROUTER_ADVERTISEMENT", 134}, {"NEIGHBOR_SOLICITATION", 135}, {"NEIGHBOR_ADVERTISEMENT", 136},
    {"REDIRECT", 137}, {"RENUNBERING", 138}, {"NODE_INFORMATION_QUERY", 139}, {"NODE_INFORMATION_RESPONSE", 140},
    {"INVERSE_NEIGHBOR_SOLICITATION", 141}, {"INVERSE_NEIGHBOR_ADVERTISEMENT", 142},
    {"VERSION2_MULTICAST_LISTENER", 143}, {"HOME_AGENT_ADDRESS_DISCOVERY_REQUEST", 144},
    {"HOME_AGENT_ADDRESS_DISCOVERY_REPLY", 145}, {"MOBILE_PREFIX_SOLICITATION", 146},
    {"MOBILE_PREFIX_ADVERTISEMENT", 147}, {"CERTIFICATION_PATH_SOLICITATION", 148},
    {"CERTIFICATION_PATH_ADVERTISEMENT", 149}, {"MULTICAST_ROUTER_ADVERTISEMENT", 151},
    {"MULTICAST_ROUTER_SOLICITATION", 152}, {"MULTICAST_ROUTER_TERMINATION", 153}, {"FMIPV6", 154},
    {"RPL_CONTROL", 155}, {"ILNPV6_LOCATOR_UPDATE", 156}, {"DUPLICATE_ADDRESS_REQUEST", 157},
    {"DUPLICATE_ADDRESS_CONFIRMATION", 158}, {"MPL_CONTROL", 159}, {"EXT_ECHO_REQUEST", 160},
    {"EXT_ECHO_REPLY", 161}};
constexpr IcmpCode icmp6Codes[] = {
    {"DST_UNREACHABLE_NO_ROUTE_TO_DST", 1, 0}, {"DST_UNREACHABLE_DST_ADMIN_PROHIBITED", 1, 1},
    {"DST_UNREACHABLE_BEYOND_SCOPE_OF_SRC", 1, 2}, {"DST_UNREACHABLE_ADDR", 1, 3}, {"DST_UNREACHABLE_PORT", 1, 4},
    {"DST_UNREACHABLE_SRC_ADDR_FAILED_POLICY", 1, 5}, {"DST_UNREACHABLE_REJECT_ROUTE_TO_DST", 1, 6},
    {"DST_UNREACHABLE_ERR_IN_SRC_ROUTING_HDR", 1, 7}, {"DST_UNREACHABLE_HDRS_TOO_LONG", 1, 8},
    {"PACKET_TOO_BIG_NO_CODE", 2, 0},
    {"TIME_EXCEEDED_HOP_LIMIT", 3, 0}, {"TIME_EXCEEDED_FRAGMENT_REASSEMBLY", 3, 1},
    {"PARAM_PROBLEM_ERR_HDR_FIELD", 4, 0}, {"PARAM_PROBLEM_UNRECOGNIZED_NET_HDR_TYPE", 4, 1},
    {"PARAM_PROBLEM_UNRECOGNIZED_IPV6_OPT", 4, 2}, {"PARAM_PROBLEM_INCOMPLETE_HDR_CHAIN", 4, 3},
    {"PARAM_PROBLEM_SR_UPPER_HDR_ERR", 4, 4}, {"PARAM_PROBLEM_UNRECOGNIZED_NEXT_HDR_TYPE", 4, 5},
    {"PARAM_PROBLEM_EXT_HDR_TOO_BIG", 4, 6}, {"PARAM_PROBLEM_EXT_HDR_CHAIN_TOO_LONG", 4, 7},
    {"PARAM_PROBLEM_TOO_MANY_EXT_HDRS", 4, 8}, {"PARAM_PROBLEM_TOO_MANY_OPTS", 4, 9},
    {"PARAM_PROBLEM_OPT_TOO_BIG", 4, 10},
    {"ECHO_REQUEST_NO_CODE", 128, 0}, {"ECHO_REPLY_NO_CODE", 129, 0},
    {"MULTICAST_LISTENER_QUERY_NO_CODE", 130, 0}, {"MULTICAST_LISTENER_REPORT_NO_CODE", 131, 0},
    {"MULTICAST_LISTENER_DONE_NO_CODE", 132, 0}, {"ROUTER_SOLICITATION_NO_CODE", 133, 0},
    {"ROUTER_ADVERTISEMENT_NO_CODE", 134, 0}, {"NEIGHBOR_SOLICITATION_NO_CODE", 135, 0},
    {"NEIGHBOR_ADVERTISEMENT_NO_CODE", 136, 0}, {"REDIRECT_NO_CODE", 137, 0},
    {"RENUMBERING_COMMAND", 138, 0}, {"RENUNBERING_RESULT", 138, 1}, {"RENUNBERING_SEQ_NUM_RESET", 138, 255},
    {"NODE_INFORMATION_QUERY_IPV6_ADDR", 139, 0}, {"NODE_INFORMATION_QUERY_NAME", 139, 1},
    {"NODE_INFORMATION_QUERY_IPV4_ADDR", 139, 2},
    {"NODE_INFORMATION_RESPONSE_SUCCESS", 140, 0}, {"NODE_INFORMATION_RESPONSE_REFUSED", 140, 1},
    {"NODE_INFORMATION_RESPONSE_UNKNOWN", 140, 2},
    {"INVERSE_NEIGHBOR_SOLICITATION_NO_CODE", 141, 0}, {"INVERSE_NEIGHBOR_ADVERTISEMENT_NO_CODE", 142, 0},
    {"HOME_AGENT_ADDRESS_DISCOVERY_REQUEST_NO_CODE", 144, 0}, {"HOME_AGENT_ADDRESS_DISCOVERY_REPLY_NO_CODE", 145, 0},
    {"MOBILE_PREFIX_SOLICITATION_NO_CODE", 146, 0}, {"MOBILE_PREFIX_ADVERTISEMENT_NO_CODE", 147, 0},
    {"DUPLICATE_ADDRESS_REQUEST_DAR", 157, 0}, {"DUPLICATE_ADDRESS_REQUEST_EDAR_ROVR64", 157, 1},
    {"DUPLICATE_ADDRESS_REQUEST_EDAR_ROVR128", 157, 2}, {"DUPLICATE_ADDRESS_REQUEST_EDAR_ROVR192", 157, 3},
    {"DUPLICATE_ADDRESS_REQUEST_EDAR_ROVR256", 157, 4},
    {"DUPLICATE_ADDRESS_REPLY_DAC", 158, 0}, {"DUPLICATE_ADDRESS_REPLY_EDAC_ROVR64", 158, 1},
    {"DUPLICATE_ADDRESS_REPLY_EDAC_ROVR128", 158, 2}, {"DUPLICATE_ADDRESS_REPLY_EDAC_ROVR192", 158, 3},
    {"DUPLICATE_ADDRESS_REPLY_EDAC_ROVR256", 158, 4},
    {"EXT_ECHO_REQUEST_NO_ERROR", 160, 0},
    {"EXT_ECHO_REPLY_NO_ERROR", 161, 0}, {"EXT_ECHO_REPLY_MALFORMED_QUERY", 161, 1},
    {"EXT_ECHO_REPLY_NO_SUCH_INTERFACE", 161, 2}, {"EXT_ECHO_REPLY_NO_SUCH_TABLE_ENTRY", 161, 3},
    {"EXT_ECHO_REPLY_MULTIPLE_INTF_SATISFY_QUERY", 161, 4}};
// clang-format on

std::string listLabel(const String& name, AclType type) {
  return std::string(name.view()) + " (" + identityOf(type) + ")";
}

template <class T>
std::string str(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

// ---- conversions: how a leaf's value and the model's stand for each other --------------------

// A number up to `max`, or an identity of `names`.
std::optional<U32> numberOrName(Reader& r, const std::string& leaf, std::uint64_t max, std::span<const Named> names,
                                const char* what) {
  const json* value = r.take(leaf);
  if (!value) return std::nullopt;
  if (value->is_string()) {
    const std::string_view s = bare(value->get_ref<const std::string&>());
    for (const Named& n : names) {
      if (s == n.name) return n.value;
    }
  }
  if (const std::optional<std::uint64_t> n = numberIn(*value); n && *n <= max) return static_cast<U32>(*n);
  r.fail(what, leaf);
}

std::pair<std::string, unsigned> splitPrefix(Reader& r, const std::string& leaf, const std::string& text,
                                             unsigned max) {
  const std::size_t slash = text.find('/');
  unsigned length = max;
  if (slash != std::string::npos) {
    const char* end = text.data() + text.size();
    if (std::from_chars(text.data() + slash + 1, end, length).ptr != end || length > max) {
      r.fail("a prefix ADDRESS/LENGTH", leaf);
    }
  }
  return {text.substr(0, slash), length};
}

template <class Addr>
Addr parseAddress(Reader& r, const std::string& leaf, const std::string& text) {
  try {
    return Addr::fwkParse(text);
  } catch (const std::exception&) {
    r.fail("an address", leaf);
  }
}

// A value matched exactly (its mask full), as a number or an identity; written as a number.
template <class T>
Codec<std::pair<T, T>> exact(std::span<const Named> names, T max, const char* what) {
  constexpr T full = std::numeric_limits<T>::max();
  return {[=](Reader& r, const std::string& leaf) -> std::optional<std::pair<T, T>> {
            const std::optional<U32> value = numberOrName(r, leaf, max, names, what);
            if (!value) return std::nullopt;
            return std::pair(static_cast<T>(*value), full);
          },
          [=](const std::pair<T, T>& v, const std::string& leaf, json& config) {
            if (v.second == full && v.first <= max) config[leaf] = v.first;
          }};
}

// A prefix whose address has bits past its length is a typing mistake as often as not: refused,
// rather than read as the network it might have meant.
const std::string hostBitsClear = "a network address (no host bits set past the prefix length)";

const Codec<std::pair<Ip4Addr, Ip4Addr>> ipv4Prefix = {
    [](Reader& r, const std::string& leaf) -> std::optional<std::pair<Ip4Addr, Ip4Addr>> {
      const std::string text = r.text(leaf);
      if (text.empty()) return std::nullopt;
      auto [address, length] = splitPrefix(r, leaf, text, 32);
      const Ip4Addr network = parseAddress<Ip4Addr>(r, leaf, address);
      const Ip4Addr mask = Ip4Addr::prefixMask(length);
      if ((network.value() & ~mask.value()) != 0) r.fail(hostBitsClear, leaf);
      return std::pair(network, mask);
    },
    [](const std::pair<Ip4Addr, Ip4Addr>& v, const std::string& leaf, json& config) {
      if (v.second.value() == 0 || !v.second.isPrefixMask()) return;
      config[leaf] = str(v.first) + "/" + std::to_string(std::popcount(v.second.value()));
    }};

const Codec<std::pair<Ip6Addr, U8>> ipv6Prefix = {
    [](Reader& r, const std::string& leaf) -> std::optional<std::pair<Ip6Addr, U8>> {
      const std::string text = r.text(leaf);
      if (text.empty()) return std::nullopt;
      auto [address, length] = splitPrefix(r, leaf, text, 128);
      const Ip6Addr network = parseAddress<Ip6Addr>(r, leaf, address);
      if (network.network(length) != network) r.fail(hostBitsClear, leaf);
      return std::pair(network, static_cast<U8>(length));
    },
    [](const std::pair<Ip6Addr, U8>& v, const std::string& leaf, json& config) {
      if (v.second != 0) config[leaf] = str(v.first) + "/" + std::to_string(v.second);
    }};

const MacAddr allOnes = MacAddr::fwkParse("ff:ff:ff:ff:ff:ff");

// An address and, in the leaf named after it with "-mask", its mask (all ones when absent).
const Codec<std::pair<MacAddr, MacAddr>> macAddress = {
    [](Reader& r, const std::string& leaf) -> std::optional<std::pair<MacAddr, MacAddr>> {
      const std::string maskLeaf = leaf + "-mask";
      const std::string text = r.text(leaf);
      const std::string maskText = r.text(maskLeaf);
      if (text.empty()) {
        if (!maskText.empty()) r.fail(leaf + " with it", maskLeaf);
        return std::nullopt;
      }
      return std::pair(parseAddress<MacAddr>(r, leaf, text),
                       maskText.empty() ? allOnes : parseAddress<MacAddr>(r, maskLeaf, maskText));
    },
    [](const std::pair<MacAddr, MacAddr>& v, const std::string& leaf, json& config) {
      if (v.second == MacAddr()) return;
      config[leaf] = str(v.first);
      if (!(v.second == allOnes)) config[leaf + "-mask"] = str(v.second);
    }};

// A TTL or hop limit, matched for equality only.
const Codec<std::pair<ValueOp, U8>> equalTo = {
    [](Reader& r, const std::string& leaf) -> std::optional<std::pair<ValueOp, U8>> {
      const std::optional<std::uint64_t> n = r.number(leaf, 255);
      if (!n) return std::nullopt;
      return std::pair(ValueOp::eq, static_cast<U8>(*n));
    },
    [](const std::pair<ValueOp, U8>& v, const std::string& leaf, json& config) {
      if (v.first == ValueOp::eq) config[leaf] = v.second;
    }};

const Codec<RangeMatch> lengthEqualTo = {  // the IP length, matched for equality only
    [](Reader& r, const std::string& leaf) -> std::optional<RangeMatch> {
      const std::optional<std::uint64_t> n = r.number(leaf, 0xFFFF);
      if (!n) return std::nullopt;
      return RangeMatch(ValueOp::eq, static_cast<U16>(*n));
    },
    [](const RangeMatch& v, const std::string& leaf, json& config) {
      if (v.op() == ValueOp::eq) config[leaf] = v.low();
    }};

const Codec<std::pair<bool, U8>> dscp = {  // from "dscp" or a "dscp-set" of one value
    [](Reader& r, const std::string& leaf) -> std::optional<std::pair<bool, U8>> {
      std::optional<std::uint64_t> value = r.number(leaf, 63);
      const std::string setLeaf = leaf + "-set";
      if (const json* set = r.take(setLeaf)) {
        if (!set->is_array()) r.fail("a list of DSCP values", setLeaf);
        if (value && !set->empty()) r.fail("dscp or dscp-set, not both", setLeaf);
        if (set->size() > 1) r.refuse(setLeaf, "a match on any of several DSCP values has no form here");
        if (set->size() == 1) {
          value = numberIn((*set)[0]);
          if (!value || *value > 63) r.fail("a list of DSCP values", setLeaf);
        }
      }
      if (!value) return std::nullopt;
      return std::pair(true, static_cast<U8>(*value));
    },
    [](const std::pair<bool, U8>& v, const std::string& leaf, json& config) {
      if (v.first) config[leaf] = v.second;
    }};

// lt and gt stand for ranges, and go out as them.
RangeMatch asRange(const RangeMatch& port) {
  if (port.op() == ValueOp::lt && port.low() > 0) return {ValueOp::range, 0, static_cast<U16>(port.low() - 1)};
  if (port.op() == ValueOp::gt && port.low() < 0xFFFF)
    return {ValueOp::range, static_cast<U16>(port.low() + 1), 0xFFFF};
  return port;
}

// A port, LOW..HIGH, or ANY. neq has no form: it is two ranges.
const Codec<RangeMatch> port = {
    [](Reader& r, const std::string& leaf) -> std::optional<RangeMatch> {
      const json* value = r.take(leaf);
      if (!value) return std::nullopt;
      if (value->is_number_unsigned() && value->get<std::uint64_t>() <= 0xFFFF) {
        return RangeMatch(ValueOp::eq, static_cast<U16>(value->get<std::uint64_t>()));
      }
      if (value->is_string()) {
        const std::string& s = value->get_ref<const std::string&>();
        if (s == "ANY") return RangeMatch();
        unsigned low = 0;
        unsigned high = 0;
        const std::size_t dots = s.find("..");
        const char* end = s.data() + s.size();
        if (dots != std::string::npos && std::from_chars(s.data(), s.data() + dots, low).ptr == s.data() + dots &&
            std::from_chars(s.data() + dots + 2, end, high).ptr == end && low <= high && high <= 0xFFFF) {
          return RangeMatch(ValueOp::range, static_cast<U16>(low), static_cast<U16>(high));
        }
        if (dots == std::string::npos && !s.empty() && std::from_chars(s.data(), end, low).ptr == end &&
            low <= 0xFFFF) {
          return RangeMatch(ValueOp::eq, static_cast<U16>(low));
        }
      }
      r.fail("a port, LOW..HIGH or ANY", leaf);
    },
    [](const RangeMatch& v, const std::string& leaf, json& config) {
      const RangeMatch m = asRange(v);
      if (m.op() == ValueOp::eq) config[leaf] = m.low();
      if (m.op() == ValueOp::range) config[leaf] = std::to_string(m.low()) + ".." + std::to_string(m.high());
    }};

// TCP flags (bits, mask), from detail-mode and the detail of that mode: BUILTIN TCP_INITIAL
// (SYN set, ACK clear), or EXPLICIT flags that must all be set.
const Codec<std::pair<U16, U16>> tcpDetail = {
    [](Reader& r, const std::string& leaf) -> std::optional<std::pair<U16, U16>> {
      const std::string mode(bare(r.text(leaf)));
      const std::string builtin(bare(r.text("builtin-detail")));
      const std::string all(bare(r.text("explicit-detail-match-mode")));
      std::vector<std::string> flags;
      if (const json* list = r.take("explicit-tcp-flags")) {
        if (!list->is_array()) r.fail("a list of TCP flags", "explicit-tcp-flags");
        for (const json& flag : *list) {
          if (!flag.is_string()) r.fail("a list of TCP flags", "explicit-tcp-flags");
          flags.emplace_back(bare(flag.get_ref<const std::string&>()));
        }
      }
      if (!mode.empty() && mode != "BUILTIN" && mode != "EXPLICIT") r.fail("BUILTIN or EXPLICIT", leaf);
      if (!all.empty() && all != "ALL" && all != "ANY") r.fail("ALL or ANY", "explicit-detail-match-mode");
      const bool builtinMode = mode == "BUILTIN" || (mode.empty() && !builtin.empty());
      // A detail given in the other mode is not read there, and is not for us to guess at.
      if (builtinMode && !flags.empty()) r.refuse("explicit-tcp-flags", "not read in BUILTIN detail-mode");
      if (!builtinMode && !builtin.empty()) r.refuse("builtin-detail", "not read in EXPLICIT detail-mode");
      if (builtinMode) {
        if (builtin == "TCP_INITIAL") return std::pair<U16, U16>(0x02, synAck);
        // ACK or RST set: one mask and value cannot say "or".
        if (builtin == "TCP_ESTABLISHED") r.refuse("builtin-detail", "TCP_ESTABLISHED has no form here");
        if (builtin == "FRAGMENT") r.refuse("builtin-detail", "FRAGMENT has no form here");
        if (!builtin.empty()) r.fail("TCP_INITIAL, TCP_ESTABLISHED or FRAGMENT", "builtin-detail");
        return std::nullopt;
      }
      if (flags.empty()) return std::nullopt;
      U16 bits = 0;
      for (const std::string& flag : flags) {
        const auto* known =
            std::find_if(std::begin(tcpFlags), std::end(tcpFlags), [&](const Named& n) { return flag == n.name; });
        if (known == std::end(tcpFlags)) r.fail("TCP flags TCP_SYN ...", "explicit-tcp-flags");
        bits = static_cast<U16>(bits | known->value);
      }
      if (all != "ALL" && flags.size() > 1) {
        r.refuse("explicit-tcp-flags", "a match on any one of several flags has no form here");
      }
      return std::pair(bits, bits);
    },
    [](const std::pair<U16, U16>& v, const std::string& leaf, json& config) {
      const auto [bits, mask] = v;
      if (bits == 0x02 && mask == synAck) {
        config[leaf] = "BUILTIN";
        config["builtin-detail"] = "TCP_INITIAL";
      } else if (mask != 0 && bits == mask && (mask & ~0xFFU) == 0) {
        json names = json::array();
        for (const Named& flag : tcpFlags) {
          if ((mask & flag.value) != 0) names.push_back(flag.name);
        }
        config[leaf] = "EXPLICIT";
        config["explicit-detail-match-mode"] = "ALL";
        config["explicit-tcp-flags"] = names;
      }
    }};

// ICMP (type, code), each by identity or number, in "type" and "code"; a code's identity gives
// the type too. Written by identity where there is one.
Codec<std::pair<U16, U16>> icmp(std::span<const Named> types, std::span<const IcmpCode> codes) {
  constexpr U16 any = IpFilterBase::icmpAny;
  return {[=](Reader& r, const std::string& leaf) -> std::optional<std::pair<U16, U16>> {
            std::optional<U32> type = numberOrName(r, leaf, 255, types, "an ICMP type, by identity or number");
            const json* code = r.take("code");
            if (!code) return type ? std::optional(std::pair(static_cast<U16>(*type), any)) : std::nullopt;
            const std::string_view name = code->is_string() ? bare(code->get_ref<const std::string&>()) : "";
            const auto named =
                std::find_if(codes.begin(), codes.end(), [&](const IcmpCode& c) { return name == c.name; });
            if (named != codes.end()) {
              if (type && *type != named->type) r.fail("a code of type " + std::to_string(*type), "code");
              return std::pair(named->type, named->code);
            }
            const std::optional<std::uint64_t> n = numberIn(*code);
            if (!n || *n > 255) r.fail("an ICMP code, by identity or number", "code");
            if (!type) r.fail("a type with a code given by number", leaf);
            return std::pair(static_cast<U16>(*type), static_cast<U16>(*n));
          },
          [=](const std::pair<U16, U16>& v, const std::string& leaf, json& config) {
            const U16 type = v.first;
            const U16 code = v.second;
            if (type > 255) return;
            const auto t = std::find_if(types.begin(), types.end(), [&](const Named& n) { return n.value == type; });
            config[leaf] = t != types.end() ? json(t->name) : json(type);
            if (code > 255) return;
            const auto c = std::find_if(codes.begin(), codes.end(),
                                        [&](const IcmpCode& k) { return k.type == type && k.code == code; });
            config["code"] = c != codes.end() ? json(c->name) : json(code);
          }};
}

const Codec<RuleAction> forwardingAction = {  // REJECT matches what DROP does: only the reply differs
    [](Reader& r, const std::string& leaf) -> std::optional<RuleAction> {
      const std::string action(bare(r.text(leaf)));
      if (action.empty()) return std::nullopt;
      if (action == "ACCEPT") return RuleAction::permit;
      if (action == "DROP") return RuleAction::deny;
      if (action != "REJECT") r.fail("ACCEPT, DROP or REJECT", leaf);
      r.note(leaf, "REJECT is imported as deny: no ICMP reply is sent");
      return RuleAction::deny;
    },
    [](const RuleAction& action, const std::string& leaf, json& config) {
      config[leaf] = action == RuleAction::permit ? "ACCEPT" : "DROP";
    }};

const Codec<bool> logAction = {  // LOG_NONE, the default, is left out
    [](Reader& r, const std::string& leaf) -> std::optional<bool> {
      const std::string log(bare(r.text(leaf)));
      if (log.empty()) return std::nullopt;
      if (log != "LOG_SYSLOG" && log != "LOG_NONE") r.fail("LOG_SYSLOG or LOG_NONE", leaf);
      return log == "LOG_SYSLOG";
    },
    [](const bool& log, const std::string& leaf, json& config) {
      if (log) config[leaf] = "LOG_SYSLOG";
    }};

// ---- the mapping -----------------------------------------------------------------------------

// Every leaf of an entry that crosses, in both directions: the container below the entry
// (its leaves are in "config"), the leaf, the model fields, and the conversion. An export reads
// each entry it writes back through these same rows and refuses one that does not come back as
// the rule it was written from; an import refuses any member no row takes.
template <class Rule>
std::vector<Row<Rule>> rowsOf() {
  using F = std::remove_cvref_t<decltype(std::declval<const Rule&>().filter())>;
  std::vector<Row<Rule>> rows{
      row("actions", "forwarding-action", ruleField<Rule, &Rule::action, &Rule::actionIs>(), forwardingAction, true),
      row("actions", "log-action", ruleField<Rule, &Rule::log, &Rule::logIs>(), logAction),
  };
  auto add = [&](std::initializer_list<Row<Rule>> more) { rows.insert(rows.end(), more); };
  if constexpr (std::is_same_v<F, MacFilter>) {
    add({row("l2", "source-mac", match<Rule, &F::src, &F::srcIs, &F::srcMask, &F::srcMaskIs>(), macAddress),
         row("l2", "destination-mac", match<Rule, &F::dst, &F::dstIs, &F::dstMask, &F::dstMaskIs>(), macAddress),
         row("l2", "ethertype", match<Rule, &F::ethertype, &F::ethertypeIs, &F::ethertypeMask, &F::ethertypeMaskIs>(),
             exact<U16>(ethertypes, 0xFFFF, "an ethertype or ETHERTYPE_IPV4 ..."))});
  } else if constexpr (std::is_same_v<F, IpFilter>) {
    add({row("ipv4", "source-address", match<Rule, &F::src, &F::srcIs, &F::srcMask, &F::srcMaskIs>(), ipv4Prefix),
         row("ipv4", "destination-address", match<Rule, &F::dst, &F::dstIs, &F::dstMask, &F::dstMaskIs>(), ipv4Prefix),
         row("ipv4", "hop-limit", match<Rule, &F::ttlKind, &F::ttlKindIs, &F::ttl, &F::ttlIs>(), equalTo),
         row("ipv4/icmpv4", "type", match<Rule, &F::icmpType, &F::icmpTypeIs, &F::icmpCode, &F::icmpCodeIs>(),
             icmp(icmp4Types, icmp4Codes))});
  } else {
    add({row("ipv6", "source-address", match<Rule, &F::src, &F::srcIs, &F::srcPrefixLen, &F::srcPrefixLenIs>(),
             ipv6Prefix),
         row("ipv6", "destination-address", match<Rule, &F::dst, &F::dstIs, &F::dstPrefixLen, &F::dstPrefixLenIs>(),
             ipv6Prefix),
         row("ipv6", "hop-limit", match<Rule, &F::hopLimitKind, &F::hopLimitKindIs, &F::hopLimit, &F::hopLimitIs>(),
             equalTo),
         row("ipv6/icmpv6", "type", match<Rule, &F::icmpType, &F::icmpTypeIs, &F::icmpCode, &F::icmpCodeIs>(),
             icmp(icmp6Types, icmp6Codes))});
  }
  if constexpr (!std::is_same_v<F, MacFilter>) {
    const std::string ip = std::is_same_v<F, IpFilter> ? "ipv4" : "ipv6";
    add({row(ip, "protocol", match<Rule, &F::protocol, &F::protocolIs, &F::protocolMask, &F::protocolMaskIs>(),
             exact<U8>(protocols, 254, "a protocol number or IP_TCP ...")),
         row(ip, "dscp", match<Rule, &F::matchDscp, &F::matchDscpIs, &F::dscp, &F::dscpIs>(), dscp),
         row(ip, "length", match<Rule, &F::ipLength, &F::ipLengthIs>(), lengthEqualTo),
         row("transport", "source-port", match<Rule, &F::srcPort, &F::srcPortIs>(), port),
         row("transport", "destination-port", match<Rule, &F::dstPort, &F::dstPortIs>(), port),
         row("transport", "detail-mode",
             match<Rule, &F::tcpFlags, &F::tcpFlagsIs, &F::tcpFlagsMask, &F::tcpFlagsMaskIs>(), tcpDetail)});
  }
  return rows;
}

template <class Rule>
const std::vector<Row<Rule>>& mapping() {
  static const std::vector<Row<Rule>> rows = rowsOf<Rule>();
  return rows;
}

// ---- reading ---------------------------------------------------------------------------------

// The value of a key member, read before the member's own Reader exists so that every finding
// and error names the set or entry.
const json* keyOf(const json& item, const char* name) {
  if (!item.is_object()) return nullptr;
  const auto it = item.find(name);
  return it == item.end() ? nullptr : &*it;
}

// The members of a YANG list ("acl-sets": {"acl-set": [...]}); the container holds nothing else.
std::vector<const json*> members(Reader& parent, std::string_view container, std::string_view list, const char* whole) {
  std::vector<const json*> all;
  const json* outer = parent.take(container);
  if (!outer) return all;
  Place place = parent.place();
  place.whole = whole;
  Reader reader(*outer, parent.pathOf(container), place);
  if (const json* items = reader.take(list)) {
    if (!items->is_array()) reader.fail("a list", list);
    for (const json& item : *items) all.push_back(&item);
  }
  reader.done();
  return all;
}

// A rule no line of a list could stand for (an ICMP match on another protocol) is refused too.
template <class Rule>
Rule readEntryRule(Reader& entry) {
  Rule rule = readRule(entry, mapping<Rule>());
  try {
    static_cast<void>(Text::format(rule));
  } catch (const std::invalid_argument& e) {
    entry.error({}, e.what());
  }
  return rule;
}

Client::ListEntry readEntry(const json& item, const std::string& path, const std::string& label, AclType type,
                            std::vector<Finding>& findings) {
  std::optional<U32> sequence;
  if (const json* key = keyOf(item, "sequence-id")) {
    if (const std::optional<std::uint64_t> n = numberIn(*key); n && *n >= 1 && *n <= 0xFFFFFFFF) {
      sequence = static_cast<U32>(*n);
    }
  }
  Reader entry(item, path, {&findings, label, sequence, "entry"});
  if (!entry.take("sequence-id") || !sequence) entry.fail("a sequence-id from 1 to 4294967295", "sequence-id");
  if (const json* config = entry.take("config")) {
    Reader c(*config, entry.pathOf("config"), entry.place());
    if (std::optional<std::uint64_t> own = c.number("sequence-id", 0xFFFFFFFF); own && *own != *sequence) {
      c.fail("the entry's key", "sequence-id");
    }
    if (!c.text("description").empty()) c.note("description", "an entry has no description here; left out");
    c.done();
  }
  Client::ListEntry result{*sequence, Acl::RemarkConfig()};
  switch (type) {
    case AclType::ip:
      result.body = readEntryRule<IpRuleConfig>(entry);
      break;
    case AclType::ipv6:
      result.body = readEntryRule<Ip6RuleConfig>(entry);
      break;
    default:
      result.body = readEntryRule<MacRuleConfig>(entry);
      break;
  }
  entry.done();
  return result;
}

AclType familyOf(Reader& r, std::string_view name, const std::string& identity) {
  for (const FamilyName& f : familyNames) {
    if (bare(identity) == f.identity) return f.type;
  }
  r.fail("type ACL_IPV4, ACL_IPV6 or ACL_L2 (the lists here)", name);
}

// A list or interface name as the configuration and the shell take it: one word.
std::string checkedName(Reader& r, std::string_view member, const std::string& name) {
  if (name.empty() ||
      std::any_of(name.begin(), name.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); })) {
    r.fail("a name without blanks", member);
  }
  return name;
}

void readSet(const json& item, Document& doc, std::set<std::pair<AclType, std::string>>& seen) {
  const std::string path = "acl-sets/acl-set";
  std::string label;
  if (const json* key = keyOf(item, "name"); key && key->is_string()) {
    label = key->get<std::string>();
    if (const json* t = keyOf(item, "type"); t && t->is_string())
      label += " (" + std::string(bare(t->get<std::string>())) + ")";
  }
  // A member left out here could be the entries themselves, misspelt: the list would be emptied.
  Reader set(item, path, {&doc.findings, label, {}, "list"});
  const std::string name = checkedName(set, "name", set.text("name", true));
  const std::string identity = set.text("type", true);
  const AclType type = familyOf(set, "type", identity);
  if (!seen.emplace(type, name).second) set.fail("one acl-set per name and type", "name");
  if (const json* config = set.take("config")) {
    Reader c(*config, path + "/config", set.place());
    if (const std::string own = c.text("name"); !own.empty() && own != name) c.fail("the set's key", "name");
    if (const std::string own = c.text("type"); !own.empty() && bare(own) != bare(identity))
      c.fail("the set's key", "type");
    if (!c.text("description").empty()) c.note("description", "a list has no description here; left out");
    c.done();
  }
  List list{String(name), type, {}};
  std::set<U32> sequences;
  for (const json* entry : members(set, "acl-entries", "acl-entry", "list")) {
    list.entries.push_back(readEntry(*entry, path + "/acl-entries/acl-entry", label, type, doc.findings));
    if (!sequences.insert(list.entries.back().sequence).second) {
      throw ImportError(label + " entry " + std::to_string(list.entries.back().sequence) + ": given twice");
    }
  }
  set.done();
  doc.lists.push_back(std::move(list));
}

// Bindings replace the configuration's: a member left out could unbind a list.
std::vector<Client::Binding> readInterfaces(const json& interfaces, std::vector<Finding>& findings) {
  std::vector<Client::Binding> bindings;
  std::map<std::tuple<AclType, AclDirection, std::string>, std::string> seen;
  Reader top(interfaces, "interfaces", {&findings, {}, {}, "bindings"});
  const json* list = top.take("interface");
  if (list && !list->is_array()) top.fail("a list", "interface");
  static const json none = json::array();
  for (const json& item : list ? *list : none) {
    Reader intf(item, "interfaces/interface", top.place());
    const std::string id = checkedName(intf, "id", intf.text("id", true));
    if (const json* config = intf.take("config")) {
      Reader c(*config, "interfaces/interface/config", top.place());
      if (const std::string own = c.text("id"); !own.empty() && own != id) c.fail("the interface's key", "id");
      c.done();
    }
    // The sets go on the interface the id names; a reference elsewhere (or to a subinterface)
    // would bind them where the document does not mean.
    if (const json* ref = intf.take("interface-ref")) {
      Reader r(*ref, intf.pathOf("interface-ref"), top.place());
      if (const json* config = r.take("config")) {
        Reader c(*config, r.pathOf("config"), top.place());
        if (c.text("interface") != id) c.refuse("interface", "an interface other than " + id + " has no binding here");
        c.done();
      }
      r.done();
    }
    for (auto [direction, prefix] : {std::pair(AclDirection::in, "ingress"), {AclDirection::out, "egress"}}) {
      const std::string sets = std::string(prefix) + "-acl-sets";
      const std::string set = std::string(prefix) + "-acl-set";
      const std::string path = intf.pathOf(sets).append("/").append(set);
      for (const json* member : members(intf, sets, set, "bindings")) {
        Reader b(*member, path, top.place());
        const std::string name = checkedName(b, "set-name", b.text("set-name", true));
        const AclType type = familyOf(b, "type", b.text("type", true));
        static_cast<void>(b.take("config"));
        static_cast<void>(b.take("acl-entries"));  // per-entry counters: state only
        auto [at, added] = seen.emplace(std::tuple(type, direction, id), name);
        if (!added) {
          std::string message = "interface " + id + ": two " + identityOf(type) + " sets on " + prefix + ": ";
          throw ImportError(message.append(at->second).append(" and ").append(name));
        }
        b.done();
        bindings.push_back({String(id), direction, type, String(name)});
      }
    }
    intf.done();
  }
  top.done();
  return bindings;
}

// ---- writing ---------------------------------------------------------------------------------

// The rule as an entry, read back through the same rows: a rule that does not come back as
// itself (ports lt and gt compared as the ranges they go out as) holds something the document
// cannot carry, and `refusal` names the first such. A per-entry counter matches nothing; noted.
template <class Rule>
json writeEntry(const Rule& rule, U32 sequence, const std::string& label, std::vector<Finding>& notes,
                std::optional<Finding>& refusal) {
  const std::vector<Row<Rule>>& rows = mapping<Rule>();
  json entry = writeRule(rule, rows);
  std::vector<Finding> unused;
  Reader reader(entry, "", {&unused, label, sequence, "entry"});
  const Rule back = readRule(reader, rows);
  reader.done();
  Rule expected = rule;
  if constexpr (!std::is_same_v<Rule, MacRuleConfig>) {
    auto f = expected.filter();
    f.srcPortIs(asRange(f.srcPort()));
    f.dstPortIs(asRange(f.dstPort()));
    expected.filterIs(f);
  }
  if (expected.count()) {
    notes.push_back({label, sequence, "count", "not in the model; left out"});
    expected.countIs(false);
  }
  if (const std::string lost = differences(expected, back); !lost.empty() && !refusal) {
    refusal = Finding{label, sequence, lost, "not in the model"};
  }
  entry["sequence-id"] = sequence;
  entry["config"] = {{"sequence-id", sequence}};
  return entry;
}

}  // namespace

Document readOpenConfig(std::string_view text) {
  json doc;
  try {
    doc = json::parse(text);
  } catch (const json::parse_error& e) {
    throw ImportError(std::string("not JSON: ") + e.what());
  }
  Document out;
  if (!doc.is_object()) throw ImportError("the document: expected an object");
  const json* body = &doc;
  std::optional<Reader> wrapper;
  if (keyOf(doc, "openconfig-acl:acl") || keyOf(doc, "acl")) {
    wrapper.emplace(doc, "", Place{&out.findings, {}, {}, nullptr});
    body = wrapper->take("acl");
  }
  {
    Reader top(*body, "", {&out.findings, {}, {}, nullptr});
    std::set<std::pair<AclType, std::string>> seen;
    for (const json* set : members(top, "acl-sets", "acl-set", "document")) readSet(*set, out, seen);
    if (const json* interfaces = top.take("interfaces")) out.bindings = readInterfaces(*interfaces, out.findings);
    top.done();
  }
  if (wrapper) wrapper->done();
  return out;
}

Client::Change changeOf(Document document) {
  Client::Change change;
  for (List& list : document.lists) {
    change.lists.push_back({list.type, list.name, false, std::move(list.entries), std::nullopt, std::nullopt});
  }
  change.bindings = std::move(document.bindings);
  return change;
}

ImportResult importOpenConfig(const Client::Library& library, std::string_view text) {
  Document doc = readOpenConfig(text);
  // A rule an existing standard list cannot hold is the document's mistake: said by entry, in
  // the document's own terms, as any other entry it cannot stand for.
  for (const List& list : doc.lists) {
    const Ptr<AclConfig> live = library.list(list.type, list.name);
    if (!live || !live->standard()) continue;
    const std::string label = listLabel(list.name, list.type);
    for (const Client::ListEntry& entry : list.entries) {
      try {
        static_cast<void>(Text::formatStandard(std::get<IpRuleConfig>(entry.body)));
      } catch (const std::invalid_argument& e) {
        throw ImportError(label + " entry " + std::to_string(entry.sequence) +
                          ": the list is a standard one and cannot hold it: " + e.what());
      }
    }
  }
  ImportResult result;
  result.findings = std::move(doc.findings);
  try {
    result.outcome = Client::apply(library, changeOf(std::move(doc)));
  } catch (const std::invalid_argument& e) {
    throw ImportError(e.what());
  }
  return result;
}

ExportResult exportOpenConfig(const Client::Library& library, const ExportOptions& options) {
  ExportResult out;
  json sets = json::array();
  for (AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    for (const Ptr<AclConfig>& list : library.lists(type)) {
      const std::string label = listLabel(list->name(), type);
      std::vector<Finding> notes;
      std::optional<Finding> refusal;
      json entries = json::array();
      if (list->standard())
        notes.push_back({label, {}, "standard", "not in the model: it reads back as an extended list"});
      if (const Ptr<AclSubConfig>& current = list->currCfg()) {
        if (current->countersEnabled())
          notes.push_back({label, {}, "counters per-entry", "not in the model; left out"});
        // Fragment rules change which packets the entries match.
        if (current->fragmentsEnabled()) refusal = Finding{label, {}, "fragment-rules", "not in the model"};
        for (const Client::ListEntry& e : Client::entriesOf(*current, type)) {
          std::visit(
              [&](const auto& body) {
                using Body = std::decay_t<decltype(body)>;
                if constexpr (std::is_same_v<Body, RemarkConfig>) {
                  notes.push_back({label, e.sequence, "remark", "not in the model; left out: " + str(body.text())});
                } else {
                  entries.push_back(writeEntry(body, e.sequence, label, notes, refusal));
                }
              },
              e.body);
        }
      }
      // A list goes out whole or not at all: without one of its entries it would match otherwise.
      if (refusal) {
        if (!options.skipLists) throw ExportError(refusal->text() + "; the list cannot be exported exactly");
        refusal->what += "; the list is left out";
        out.findings.push_back(*refusal);
        continue;
      }
      out.findings.insert(out.findings.end(), notes.begin(), notes.end());
      const std::string name(list->name().view());
      sets.push_back({{"name", name},
                      {"type", identityOf(type)},
                      {"config", {{"name", name}, {"type", identityOf(type)}}},
                      {"acl-entries", {{"acl-entry", entries}}}});
    }
  }
  // Every binding, a left-out list's too: without it, an import of the document would unbind it.
  std::map<std::string, json> byInterface;
  for (const Client::Binding& b : Client::bindingsOf(*library.mounts().intfConfig)) {
    const std::string id(b.interface.view());
    json& intf = byInterface[id];
    if (intf.is_null()) intf = {{"id", id}, {"config", {{"id", id}}}};
    const std::string prefix = b.direction == AclDirection::in ? "ingress" : "egress";
    const std::string name(b.list.view());
    intf[prefix + "-acl-sets"][prefix + "-acl-set"].push_back(
        {{"set-name", name},
         {"type", identityOf(b.type)},
         {"config", {{"set-name", name}, {"type", identityOf(b.type)}}}});
  }
  json interfaces = json::array();
  for (auto& [id, intf] : byInterface) interfaces.push_back(std::move(intf));
  const json doc = {
      {"openconfig-acl:acl", {{"acl-sets", {{"acl-set", sets}}}, {"interfaces", {{"interface", interfaces}}}}}};
  out.json = doc.dump(2) + "\n";
  return out;
}

// Built by appending: GCC 12 at -O3 misreads "literal" + string as an overlapping copy.
std::string Finding::text() const {
  std::string out = list;
  if (sequence) {
    out += out.empty() ? "entry " : " entry ";
    out += std::to_string(*sequence);
  }
  for (const std::string* part : {&field, &what}) {
    if (part->empty() && part == &field) continue;
    if (!out.empty()) out += ": ";
    out += *part;
  }
  return out;
}

}  // namespace Interchange
