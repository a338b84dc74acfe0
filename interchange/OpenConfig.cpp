#include "aclkit/interchange/OpenConfig.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cctype>
#include <charconv>
#include <exception>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <span>
#include <sstream>
#include <tuple>

namespace Interchange {

using nlohmann::json;
using namespace Acl;

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

// "openconfig-acl:ACL_IPV4" and "ACL_IPV4" name the same identity.
std::string_view bare(std::string_view name) {
  const std::size_t colon = name.rfind(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

std::string listLabel(const String& name, AclType type) {
  return std::string(name.view()) + " (" + identityOf(type) + ")";
}

template <class T>
std::string str(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

// ---- reading ---------------------------------------------------------------------------------

// A number, or a string of digits (RFC 7951 writes 64-bit numbers so, and some writers every
// number).
std::optional<std::uint64_t> numberIn(const json& value) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>();
  if (!value.is_string()) return std::nullopt;
  const std::string& s = value.get_ref<const std::string&>();
  std::uint64_t n = 0;
  if (s.empty() || std::from_chars(s.data(), s.data() + s.size(), n).ptr != s.data() + s.size()) return std::nullopt;
  return n;
}

// One JSON object being read: the members taken are the ones the model knows; done() reports
// the rest as left out (every reader must get there, or fail).
class Reader {
 public:
  Reader(const json& object, std::string path, std::vector<Finding>& findings, std::string list = {},
         std::optional<U32> sequence = {})
      : object_(object), path_(std::move(path)), findings_(findings), list_(std::move(list)), sequence_(sequence) {
    if (!object.is_object()) fail("an object");
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader() { assert(done_ || std::uncaught_exceptions() != 0); }

  void done() {
    done_ = true;
    for (const auto& [key, value] : object_.items()) {
      const std::string name(bare(key));
      if (taken_.contains(name) || name == "state") continue;
      note(name, "not in this model; left out");
    }
  }

  [[nodiscard]] const json* take(std::string_view name) {
    taken_.emplace(name);
    for (const auto& [key, value] : object_.items()) {
      if (bare(key) == name) return &value;
    }
    return nullptr;
  }
  [[nodiscard]] std::string pathOf(std::string_view name) const {
    return path_.empty() ? std::string(name) : path_ + "/" + std::string(name);
  }
  void note(std::string_view name, const std::string& what) {
    findings_.push_back({list_, sequence_, pathOf(name), what});
  }
  [[noreturn]] void fail(const std::string& expected, std::string_view name = {}) const {
    std::string where = list_.empty() ? std::string() : list_;
    if (sequence_) where += " entry " + std::to_string(*sequence_);
    const std::string at = name.empty() ? path_ : pathOf(name);
    throw ImportError((where.empty() ? "" : where + ": ") + (at.empty() ? "the document" : at) + ": expected " +
                      expected);
  }

  [[nodiscard]] std::string text(std::string_view name, bool required = false) {
    const json* value = take(name);
    if (!value) {
      if (required) fail("a value", name);
      return {};
    }
    if (!value->is_string()) fail("a string", name);
    return value->get<std::string>();
  }
  [[nodiscard]] std::optional<std::uint64_t> number(std::string_view name, std::uint64_t max) {
    const json* value = take(name);
    if (!value) return std::nullopt;
    const std::optional<std::uint64_t> n = numberIn(*value);
    if (!n || *n > max) fail("a number up to " + std::to_string(max), name);
    return n;
  }
  // A number, or an identity of `names`.
  [[nodiscard]] std::optional<U32> numberOrName(std::string_view name, std::uint64_t max, std::span<const Named> names,
                                                const char* what) {
    const json* value = take(name);
    if (!value) return std::nullopt;
    if (value->is_string()) {
      const std::string_view s = bare(value->get_ref<const std::string&>());
      for (const Named& n : names) {
        if (s == n.name) return n.value;
      }
    }
    if (value->is_number_unsigned() && value->get<std::uint64_t>() <= max) {
      return static_cast<U32>(value->get<std::uint64_t>());
    }
    fail(what, name);
  }
  [[nodiscard]] const std::string& list() const { return list_; }
  [[nodiscard]] std::optional<U32> sequence() const { return sequence_; }
  [[nodiscard]] std::vector<Finding>& findings() { return findings_; }

 private:
  const json& object_;
  std::string path_;
  std::vector<Finding>& findings_;
  std::string list_;
  std::optional<U32> sequence_;
  std::set<std::string, std::less<>> taken_;
  bool done_ = false;
};

// The "config" container of an object, when there is one.
template <class Fn>
void withConfig(Reader& parent, std::string_view container, Fn&& fn) {
  const json* object = parent.take(container);
  if (!object) return;
  Reader outer(*object, parent.pathOf(container), parent.findings(), parent.list(), parent.sequence());
  if (const json* config = outer.take("config")) {
    Reader inner(*config, outer.pathOf("config"), parent.findings(), parent.list(), parent.sequence());
    fn(inner);
    inner.done();
  }
  outer.done();
}

// The members of a YANG list ("acl-sets": {"acl-set": [...]}).
std::vector<const json*> members(Reader& parent, std::string_view container, std::string_view list) {
  std::vector<const json*> all;
  const json* outer = parent.take(container);
  if (!outer) return all;
  Reader reader(*outer, parent.pathOf(container), parent.findings(), parent.list(), parent.sequence());
  if (const json* items = reader.take(list)) {
    if (!items->is_array()) reader.fail("a list", list);
    for (const json& item : *items) all.push_back(&item);
  }
  reader.done();
  return all;
}

std::pair<std::string, unsigned> splitPrefix(Reader& r, std::string_view name, const std::string& text, unsigned max) {
  const std::size_t slash = text.find('/');
  unsigned length = max;
  if (slash != std::string::npos) {
    const char* end = text.data() + text.size();
    if (std::from_chars(text.data() + slash + 1, end, length).ptr != end || length > max) {
      r.fail("a prefix ADDRESS/LENGTH", name);
    }
  }
  return {text.substr(0, slash), length};
}

template <class Addr>
Addr parseAddress(Reader& r, std::string_view name, const std::string& text) {
  try {
    return Addr::fwkParse(text);
  } catch (const std::exception&) {
    r.fail("an address", name);
  }
}

void readIpv4(Reader& r, IpFilter& f) {
  for (auto [name, isSource] : {std::pair("source-address", true), {"destination-address", false}}) {
    const std::string text = r.text(name);
    if (text.empty()) continue;
    auto [address, length] = splitPrefix(r, name, text, 32);
    const Ip4Addr addr = parseAddress<Ip4Addr>(r, name, address);
    const Ip4Addr mask(length == 0 ? 0U : ~U32{0} << (32 - length));
    if (isSource) {
      f.srcIs(addr);
      f.srcMaskIs(mask);
    } else {
      f.dstIs(addr);
      f.dstMaskIs(mask);
    }
  }
  if (std::optional<std::uint64_t> ttl = r.number("hop-limit", 255)) {
    f.ttlKindIs(ValueOp::eq);
    f.ttlIs(static_cast<U8>(*ttl));
  }
}

void readIpv6(Reader& r, Ip6Filter& f) {
  for (auto [name, isSource] : {std::pair("source-address", true), {"destination-address", false}}) {
    const std::string text = r.text(name);
    if (text.empty()) continue;
    auto [address, length] = splitPrefix(r, name, text, 128);
    const Ip6Addr addr = parseAddress<Ip6Addr>(r, name, address);
    if (isSource) {
      f.srcIs(addr);
      f.srcPrefixLenIs(static_cast<U8>(length));
    } else {
      f.dstIs(addr);
      f.dstPrefixLenIs(static_cast<U8>(length));
    }
  }
  if (std::optional<std::uint64_t> limit = r.number("hop-limit", 255)) {
    f.hopLimitKindIs(ValueOp::eq);
    f.hopLimitIs(static_cast<U8>(*limit));
  }
}

// What IPv4 and IPv6 share: protocol, DSCP, length.
void readIpCommon(Reader& r, IpFilterBase& f) {
  if (std::optional<U32> protocol = r.numberOrName("protocol", 254, protocols, "a protocol number or IP_TCP ...")) {
    f.protocolIs(static_cast<U8>(*protocol));
    f.protocolMaskIs(0xFF);
  }
  std::optional<std::uint64_t> dscp = r.number("dscp", 63);
  if (const json* set = r.take("dscp-set")) {
    if (!set->is_array()) r.fail("a list of DSCP values", "dscp-set");
    if (dscp && !set->empty()) r.fail("dscp or dscp-set, not both", "dscp-set");
    if (set->size() == 1 && (*set)[0].is_number_unsigned() && (*set)[0].get<std::uint64_t>() <= 63) {
      dscp = (*set)[0].get<std::uint64_t>();
    } else if (!set->empty()) {
      r.note("dscp-set", "a match on any of several DSCP values has no form here; left out");
    }
  }
  if (dscp) {
    f.matchDscpIs(true);
    f.dscpIs(static_cast<U8>(*dscp));
  }
  if (std::optional<std::uint64_t> length = r.number("length", 0xFFFF)) {
    f.ipLengthIs(RangeMatch(ValueOp::eq, static_cast<U16>(*length)));
  }
}

RangeMatch readPort(Reader& r, std::string_view name) {
  const json* value = r.take(name);
  if (!value) return {};
  if (value->is_number_unsigned() && value->get<std::uint64_t>() <= 0xFFFF) {
    return {ValueOp::eq, static_cast<U16>(value->get<std::uint64_t>())};
  }
  if (value->is_string()) {
    const std::string& s = value->get_ref<const std::string&>();
    if (s == "ANY") return {};
    unsigned low = 0;
    unsigned high = 0;
    const std::size_t dots = s.find("..");
    const char* end = s.data() + s.size();
    if (dots != std::string::npos && std::from_chars(s.data(), s.data() + dots, low).ptr == s.data() + dots &&
        std::from_chars(s.data() + dots + 2, end, high).ptr == end && low <= high && high <= 0xFFFF) {
      return {ValueOp::range, static_cast<U16>(low), static_cast<U16>(high)};
    }
    if (dots == std::string::npos && !s.empty() && std::from_chars(s.data(), end, low).ptr == end && low <= 0xFFFF) {
      return {ValueOp::eq, static_cast<U16>(low)};
    }
  }
  r.fail("a port, LOW..HIGH or ANY", name);
}

void readTransport(Reader& r, IpFilterBase& f) {
  f.srcPortIs(readPort(r, "source-port"));
  f.dstPortIs(readPort(r, "destination-port"));
  const std::string mode(bare(r.text("detail-mode")));
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
  if (!mode.empty() && mode != "BUILTIN" && mode != "EXPLICIT") r.fail("BUILTIN or EXPLICIT", "detail-mode");
  if (!all.empty() && all != "ALL" && all != "ANY") r.fail("ALL or ANY", "explicit-detail-match-mode");
  const bool builtinMode = mode == "BUILTIN" || (mode.empty() && !builtin.empty());
  // Each detail belongs to one mode; the other mode's is not read.
  if (builtinMode && !flags.empty()) r.note("explicit-tcp-flags", "not read in BUILTIN detail-mode; left out");
  if (!builtinMode && !builtin.empty()) r.note("builtin-detail", "not read in EXPLICIT detail-mode; left out");
  if (builtinMode) {
    if (builtin.empty()) return;
    if (builtin == "TCP_INITIAL") {
      f.tcpFlagsIs(0x02);
      f.tcpFlagsMaskIs(synAck);
    } else if (builtin == "TCP_ESTABLISHED") {
      f.tcpFlagsIs(0x10);
      f.tcpFlagsMaskIs(0x10);
      r.note("builtin-detail", "TCP_ESTABLISHED is imported as ack: a packet with only RST set is not matched");
    } else if (builtin == "FRAGMENT") {
      r.note("builtin-detail", "FRAGMENT has no per-entry match here; left out");
    } else {
      r.fail("TCP_INITIAL, TCP_ESTABLISHED or FRAGMENT", "builtin-detail");
    }
    return;
  }
  if (flags.empty()) return;
  U16 bits = 0;
  for (const std::string& flag : flags) {
    const auto* known =
        std::find_if(std::begin(tcpFlags), std::end(tcpFlags), [&](const Named& n) { return flag == n.name; });
    if (known == std::end(tcpFlags)) r.fail("TCP flags TCP_SYN ...", "explicit-tcp-flags");
    bits = static_cast<U16>(bits | known->value);
  }
  if (all != "ALL" && flags.size() > 1) {
    r.note("explicit-tcp-flags", "a match on any one of several flags has no form here; left out");
    return;
  }
  f.tcpFlagsIs(bits);
  f.tcpFlagsMaskIs(bits);
}

void readL2(Reader& r, MacFilter& f) {
  for (auto [name, isSource] : {std::pair("source-mac", true), {"destination-mac", false}}) {
    const std::string text = r.text(name);
    const std::string maskName = std::string(name) + "-mask";
    const std::string maskText = r.text(maskName);
    if (text.empty()) {
      if (!maskText.empty()) r.note(maskName, "a mask without an address; left out");
      continue;
    }
    const MacAddr addr = parseAddress<MacAddr>(r, name, text);
    const MacAddr mask =
        maskText.empty() ? MacAddr::fwkParse("ff:ff:ff:ff:ff:ff") : parseAddress<MacAddr>(r, maskName, maskText);
    if (isSource) {
      f.srcIs(addr);
      f.srcMaskIs(mask);
    } else {
      f.dstIs(addr);
      f.dstMaskIs(mask);
    }
  }
  if (std::optional<U32> type = r.numberOrName("ethertype", 0xFFFF, ethertypes, "an ethertype or ETHERTYPE_IPV4 ...")) {
    f.ethertypeIs(static_cast<U16>(*type));
    f.ethertypeMaskIs(0xFFFF);
  }
}

void readActions(Reader& entry, RuleConfig& rule) {
  bool seen = false;
  withConfig(entry, "actions", [&](Reader& r) {
    const std::string action(bare(r.text("forwarding-action", true)));
    seen = true;
    if (action == "ACCEPT") {
      rule.actionIs(RuleAction::permit);
    } else if (action == "DROP" || action == "REJECT") {
      rule.actionIs(RuleAction::deny);
      if (action == "REJECT") r.note("forwarding-action", "REJECT is imported as deny: no ICMP reply is sent");
    } else {
      r.fail("ACCEPT, DROP or REJECT", "forwarding-action");
    }
    const std::string log(bare(r.text("log-action")));
    if (log == "LOG_SYSLOG") {
      rule.logIs(true);
    } else if (!log.empty() && log != "LOG_NONE") {
      r.fail("LOG_SYSLOG or LOG_NONE", "log-action");
    }
  });
  if (!seen) entry.fail("actions/config/forwarding-action");
}

// The value of a key member, read before the member's own Reader exists so that every finding
// and error names the set or entry.
const json* keyOf(const json& item, const char* name) {
  if (!item.is_object()) return nullptr;
  const auto it = item.find(name);
  return it == item.end() ? nullptr : &*it;
}

template <class Rule, class Filter>
Rule readRule(Reader& entry, AclType type) {
  Rule rule;
  Filter f;
  readActions(entry, rule);
  if constexpr (std::is_same_v<Filter, MacFilter>) {
    withConfig(entry, "l2", [&](Reader& r) { readL2(r, f); });
  } else {
    withConfig(entry, type == AclType::ip ? "ipv4" : "ipv6", [&](Reader& r) {
      readIpCommon(r, f);
      if constexpr (std::is_same_v<Filter, IpFilter>) {
        readIpv4(r, f);
      } else {
        readIpv6(r, f);
      }
    });
    withConfig(entry, "transport", [&](Reader& r) { readTransport(r, f); });
  }
  rule.filterIs(f);
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
  Reader entry(item, path, findings, label, sequence);
  if (!entry.take("sequence-id") || !sequence) entry.fail("a sequence-id from 1 to 4294967295", "sequence-id");
  if (const json* config = entry.take("config")) {
    Reader c(*config, entry.pathOf("config"), findings, label, sequence);
    if (std::optional<std::uint64_t> own = c.number("sequence-id", 0xFFFFFFFF); own && *own != *sequence) {
      c.fail("the entry's key", "sequence-id");
    }
    if (!c.text("description").empty()) c.note("description", "an entry has no description here; left out");
    c.done();
  }
  Client::ListEntry result{*sequence, Acl::RemarkConfig()};
  switch (type) {
    case AclType::ip:
      result.body = readRule<IpRuleConfig, IpFilter>(entry, type);
      break;
    case AclType::ipv6:
      result.body = readRule<Ip6RuleConfig, Ip6Filter>(entry, type);
      break;
    default:
      result.body = readRule<MacRuleConfig, MacFilter>(entry, type);
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
  Reader set(item, path, doc.findings, label);
  const std::string name = checkedName(set, "name", set.text("name", true));
  const std::string identity = set.text("type", true);
  const AclType type = familyOf(set, "type", identity);
  if (!seen.emplace(type, name).second) set.fail("one acl-set per name and type", "name");
  if (const json* config = set.take("config")) {
    Reader c(*config, path + "/config", doc.findings, label);
    if (const std::string own = c.text("name"); !own.empty() && own != name) c.fail("the set's key", "name");
    if (const std::string own = c.text("type"); !own.empty() && bare(own) != bare(identity))
      c.fail("the set's key", "type");
    if (!c.text("description").empty()) c.note("description", "a list has no description here; left out");
    c.done();
  }
  List list{String(name), type, {}};
  std::set<U32> sequences;
  for (const json* entry : members(set, "acl-entries", "acl-entry")) {
    list.entries.push_back(readEntry(*entry, path + "/acl-entries/acl-entry", label, type, doc.findings));
    if (!sequences.insert(list.entries.back().sequence).second) {
      throw ImportError(label + " entry " + std::to_string(list.entries.back().sequence) + ": given twice");
    }
  }
  set.done();
  doc.lists.push_back(std::move(list));
}

std::vector<Client::Binding> readInterfaces(const json& interfaces, std::vector<Finding>& findings) {
  std::vector<Client::Binding> bindings;
  std::map<std::tuple<AclType, AclDirection, std::string>, std::string> seen;
  Reader top(interfaces, "interfaces", findings);
  const json* list = top.take("interface");
  if (list && !list->is_array()) top.fail("a list", "interface");
  static const json none = json::array();
  for (const json& item : list ? *list : none) {
    Reader intf(item, "interfaces/interface", findings);
    const std::string id = checkedName(intf, "id", intf.text("id", true));
    if (const json* config = intf.take("config")) {
      Reader c(*config, "interfaces/interface/config", findings);
      if (const std::string own = c.text("id"); !own.empty() && own != id) c.fail("the interface's key", "id");
      c.done();
    }
    for (auto [direction, prefix] : {std::pair(AclDirection::in, "ingress"), {AclDirection::out, "egress"}}) {
      const std::string sets = std::string(prefix) + "-acl-sets";
      const std::string set = std::string(prefix) + "-acl-set";
      const std::string path = intf.pathOf(sets).append("/").append(set);
      for (const json* member : members(intf, sets, set)) {
        Reader b(*member, path, findings);
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

std::optional<json> portJson(const RangeMatch& port) {
  switch (port.op()) {
    case ValueOp::eq:
      return json(port.low());
    case ValueOp::range:
      return json(std::to_string(port.low()) + ".." + std::to_string(port.high()));
    case ValueOp::lt:  // the same ports, as a range
      if (port.low() > 0) return json("0.." + std::to_string(port.low() - 1));
      return std::nullopt;
    case ValueOp::gt:
      if (port.low() < 0xFFFF) return json(std::to_string(port.low() + 1) + "..65535");
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

// The fields of `f` the model carries, written to `ip` and `transport`, and cleared in `rest`.
void writeIpCommon(const IpFilterBase& f, IpFilterBase& rest, json& ip, json& transport) {
  if (f.protocolMask() == 0xFF && f.protocol() <= 254) {
    ip["protocol"] = f.protocol();
    rest.protocolIs(0);
    rest.protocolMaskIs(0);
  }
  if (f.matchDscp() && f.dscpMask() == 63) {
    ip["dscp"] = f.dscp();
    rest.matchDscpIs(false);
    rest.dscpIs(0);
  }
  if (f.ipLength().op() == ValueOp::eq) {
    ip["length"] = f.ipLength().low();
    rest.ipLengthIs({});
  }
  for (auto [name, port, clear] : {std::tuple("source-port", f.srcPort(), &IpFilterBase::srcPortIs),
                                   {"destination-port", f.dstPort(), &IpFilterBase::dstPortIs}}) {
    if (std::optional<json> value = portJson(port)) {
      transport[name] = *value;
      (rest.*clear)(RangeMatch());
    }
  }
  const U16 mask = f.tcpFlagsMask();
  if (mask == 0) return;
  if (f.tcpFlags() == 0x02 && mask == synAck) {
    transport["detail-mode"] = "BUILTIN";
    transport["builtin-detail"] = "TCP_INITIAL";
  } else if (f.tcpFlags() == mask && (mask & ~0xFFU) == 0) {
    json names = json::array();
    for (const Named& flag : tcpFlags) {
      if ((mask & flag.value) != 0) names.push_back(flag.name);
    }
    transport["detail-mode"] = "EXPLICIT";
    transport["explicit-detail-match-mode"] = "ALL";
    transport["explicit-tcp-flags"] = names;
  } else {
    return;
  }
  rest.tcpFlagsIs(0);
  rest.tcpFlagsMaskIs(0);
}

void writeFilter(const IpFilter& f, IpFilter& rest, json& entry) {
  json ip = json::object();
  json transport = json::object();
  writeIpCommon(f, rest, ip, transport);
  for (auto [name, addr, mask, isSource] : {std::tuple("source-address", f.src(), f.srcMask(), true),
                                            {"destination-address", f.dst(), f.dstMask(), false}}) {
    if (mask.value() == 0 || !mask.isPrefixMask()) continue;
    ip[name] = str(addr) + "/" + std::to_string(std::popcount(mask.value()));
    if (isSource) {
      rest.srcIs({});
      rest.srcMaskIs({});
    } else {
      rest.dstIs({});
      rest.dstMaskIs({});
    }
  }
  if (f.ttlKind() == ValueOp::eq) {
    ip["hop-limit"] = f.ttl();
    rest.ttlKindIs(ValueOp::any);
    rest.ttlIs(0);
  }
  if (!ip.empty()) entry["ipv4"]["config"] = ip;
  if (!transport.empty()) entry["transport"]["config"] = transport;
}

void writeFilter(const Ip6Filter& f, Ip6Filter& rest, json& entry) {
  json ip = json::object();
  json transport = json::object();
  writeIpCommon(f, rest, ip, transport);
  if (f.srcPrefixLen() != 0) {
    ip["source-address"] = str(f.src()) + "/" + std::to_string(f.srcPrefixLen());
    rest.srcIs({});
    rest.srcPrefixLenIs(0);
  }
  if (f.dstPrefixLen() != 0) {
    ip["destination-address"] = str(f.dst()) + "/" + std::to_string(f.dstPrefixLen());
    rest.dstIs({});
    rest.dstPrefixLenIs(0);
  }
  if (f.hopLimitKind() == ValueOp::eq) {
    ip["hop-limit"] = f.hopLimit();
    rest.hopLimitKindIs(ValueOp::any);
    rest.hopLimitIs(0);
  }
  if (!ip.empty()) entry["ipv6"]["config"] = ip;
  if (!transport.empty()) entry["transport"]["config"] = transport;
}

void writeFilter(const MacFilter& f, MacFilter& rest, json& entry) {
  json l2 = json::object();
  const MacAddr full = MacAddr::fwkParse("ff:ff:ff:ff:ff:ff");
  for (auto [name, addr, mask, isSource] :
       {std::tuple("source-mac", f.src(), f.srcMask(), true), {"destination-mac", f.dst(), f.dstMask(), false}}) {
    if (mask == MacAddr()) continue;
    l2[name] = str(addr);
    if (!(mask == full)) l2[std::string(name) + "-mask"] = str(mask);
    if (isSource) {
      rest.srcIs({});
      rest.srcMaskIs({});
    } else {
      rest.dstIs({});
      rest.dstMaskIs({});
    }
  }
  if (f.ethertypeMask() == 0xFFFF) {
    l2["ethertype"] = f.ethertype();
    rest.ethertypeIs(0);
    rest.ethertypeMaskIs(0);
  }
  if (!l2.empty()) entry["l2"]["config"] = l2;
}

template <class Rule>
json writeRule(const Rule& rule, U32 sequence, const std::string& label, std::vector<Finding>& findings) {
  json entry = {{"sequence-id", sequence}, {"config", {{"sequence-id", sequence}}}};
  json actions = {{"forwarding-action", rule.action() == RuleAction::permit ? "ACCEPT" : "DROP"}};
  if (rule.log()) actions["log-action"] = "LOG_SYSLOG";
  entry["actions"]["config"] = actions;
  Rule rest = rule;
  rest.actionIs(RuleAction::permit);
  rest.logIs(false);
  const auto& filter = rule.filter();
  auto restFilter = filter;
  writeFilter(filter, restFilter, entry);
  rest.filterIs(restFilter);
  if (!(rest == Rule())) findings.push_back({label, sequence, str(rest), "not in the model; left out"});
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
    wrapper.emplace(doc, "", out.findings);
    body = wrapper->take("acl");
  }
  {
    Reader top(*body, "", out.findings);
    std::set<std::pair<AclType, std::string>> seen;
    for (const json* set : members(top, "acl-sets", "acl-set")) readSet(*set, out, seen);
    if (const json* interfaces = top.take("interfaces")) out.bindings = readInterfaces(*interfaces, out.findings);
    top.done();
  }
  if (wrapper) wrapper->done();
  return out;
}

ImportResult importOpenConfig(const Client::Library& library, std::string_view text) {
  Document doc = readOpenConfig(text);
  ImportResult result;
  result.findings = std::move(doc.findings);
  // What the sessions would refuse half-way, refused before any of them opens.
  for (const List& list : doc.lists) {
    const Ptr<AclConfig> live = library.list(list.type, list.name);
    if (!live) continue;
    const std::string label = listLabel(list.name, list.type);
    if (live->readonly()) {
      const std::vector<Client::ListEntry> current =
          live->currCfg() ? Client::entriesOf(*live->currCfg(), list.type) : std::vector<Client::ListEntry>();
      if (Client::planReplace(current, list.entries).changes()) throw ImportError(label + ": the list is read-only");
    }
    if (!live->standard()) continue;
    for (const Client::ListEntry& entry : list.entries) {
      try {
        static_cast<void>(Text::formatStandard(std::get<IpRuleConfig>(entry.body)));
      } catch (const std::invalid_argument& e) {
        throw ImportError(label + " entry " + std::to_string(entry.sequence) +
                          ": the list is a standard one and cannot hold it: " + e.what());
      }
    }
  }
  auto settled = [](AclApi::ApiState s) {
    return s == AclApi::succeeded || s == AclApi::waitingForHw || s == AclApi::errHw;
  };
  for (const List& list : doc.lists) {
    result.lists.push_back(
        {list.name, list.type,
         Client::replaceList(library, list.name, list.type, list.entries, false, /*cleanup=*/false)});
    if (!settled(result.lists.back().result.state)) return result;
  }
  if (doc.bindings) {
    result.bindings = Client::replaceBindings(library, *doc.bindings);
    for (const Client::BindingChange& change : result.bindings->changes) {
      if (!settled(change.state)) return result;
    }
  }
  result.complete = true;
  return result;
}

ExportResult exportOpenConfig(const Client::Library& library) {
  ExportResult out;
  json sets = json::array();
  for (AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    for (const Ptr<AclConfig>& list : library.lists(type)) {
      const std::string label = listLabel(list->name(), type);
      json entries = json::array();
      if (list->standard())
        out.findings.push_back({label, {}, "standard", "not in the model: it reads back as an extended list"});
      if (const Ptr<AclSubConfig>& current = list->currCfg()) {
        if (current->countersEnabled())
          out.findings.push_back({label, {}, "counters per-entry", "not in the model; left out"});
        if (current->fragmentsEnabled())
          out.findings.push_back({label, {}, "fragment-rules", "not in the model; left out"});
        for (const Client::ListEntry& e : Client::entriesOf(*current, type)) {
          std::visit(
              [&](const auto& body) {
                using Body = std::decay_t<decltype(body)>;
                if constexpr (std::is_same_v<Body, RemarkConfig>) {
                  out.findings.push_back(
                      {label, e.sequence, "remark", "not in the model; left out: " + str(body.text())});
                } else {
                  entries.push_back(writeRule(body, e.sequence, label, out.findings));
                }
              },
              e.body);
        }
      }
      const std::string name(list->name().view());
      sets.push_back({{"name", name},
                      {"type", identityOf(type)},
                      {"config", {{"name", name}, {"type", identityOf(type)}}},
                      {"acl-entries", {{"acl-entry", entries}}}});
    }
  }
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
