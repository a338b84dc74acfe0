// The simulated hardware: what the platform can program, the dataplanes that program it, and
// packet checks against what a dataplane holds.
#include <charconv>

#include "aclkit/aclsh/internal/ShellImpl.h"
#include "aclkit/agent/Dataplane.h"
#include "aclkit/kernel/Kernel.h"
#include "aclkit/platform/trace/Clock.h"
#include "aclkit/text/AclText.h"

namespace aclsh {

namespace {

using Acl::U16;
using Acl::U8;

// A capability as an operator names it ("ip-mirror") and as the platform does ("ipMirror").
struct Capability {
  std::string name;
  std::string model;
};

// The skips in force, set like capabilities but off on a fresh platform; and their JSON names.
struct Skip {
  std::string_view name;
  const bool& (Acl::ParamConfig::*get)() const noexcept;
  void (Acl::ParamConfig::*set)(const bool&);
  const char* json;
};
const Skip skips[] = {
    {"deep-inspection-skip", &Acl::ParamConfig::dpiSkipNonZero, &Acl::ParamConfig::dpiSkipNonZeroIs,
     "deepInspectionSkip"},
    {"mpls-skip", &Acl::ParamConfig::mplsSkipNonZero, &Acl::ParamConfig::mplsSkipNonZeroIs, "mplsSkip"},
};

// The words of the settings that the running configuration writes back as commands.
constexpr std::string_view payloadCapacity = "payload-capacity";
constexpr std::string_view waits = "waits";
constexpr std::string_view capacity = "capacity";
constexpr std::string_view delay = "delay";
constexpr std::string_view forcedError = "error";
constexpr std::string_view inKernel = "kernel";

std::string kebab(std::string_view camel) {
  std::string out;
  for (char c : camel) {
    if (c >= 'A' && c <= 'Z') {
      out += '-';
      out += static_cast<char>(c - 'A' + 'a');
    } else {
      out += c;
    }
  }
  return out;
}

const std::vector<Capability>& capabilities() {
  static const std::vector<Capability> all = [] {
    std::vector<Capability> list;
    for (const std::string& name : Client::Platform::names()) list.push_back({kebab(name), name});
    return list;
  }();
  return all;
}

// The grammar lets only "on" or "off" through.
bool onOff(const Words& words, std::size_t i) {
  return words.is(i, "on");
}

template <class Address>
Address address(const Words& words, std::size_t i, std::string_view what) {
  try {
    return Address::fwkParse(words[i]);
  } catch (const std::exception&) {
    throw CommandError(words.column(i), "expected " + std::string(what));
  }
}

template <class T>
T small(const Words& words, std::size_t i, std::string_view what, unsigned max) {
  const U32 value = number(words, i, what);
  if (value > max)
    throw CommandError(words.column(i), "expected " + std::string(what) + " up to " + std::to_string(max));
  return static_cast<T>(value);
}

// A value by the name an entry gives it in a list of that family, or by number.
template <class T>
T namedOr(Text::Named kind, AclType type, const Words& words, std::size_t i, std::string_view what, U32 max) {
  if (const std::optional<unsigned> value = Text::valueNamed(kind, words[i], type)) return static_cast<T>(*value);
  return small<T>(words, i, what, max);
}

// An ethertype by name (arp) or in hex (0x0806), as entries take it.
U16 ethertypeOf(const Words& words, std::size_t i) {
  if (const std::optional<unsigned> named = Text::valueNamed(Text::Named::ethertype, words[i], AclType::mac)) {
    return static_cast<U16>(*named);
  }
  U32 value = 0;
  const std::string_view text = words[i].starts_with("0x") ? words[i].substr(2) : words[i];
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || value > 0xFFFF) {
    throw CommandError(words.column(i), "expected an ethertype name or hex number");
  }
  return static_cast<U16>(value);
}

U16 tcpFlagsOf(const Words& words, std::size_t i) {
  U16 flags = 0;
  std::string_view list = words[i];
  while (!list.empty()) {
    const std::string_view flag = list.substr(0, list.find(','));
    list.remove_prefix(std::min(list.size(), flag.size() + 1));
    const std::optional<unsigned> bit = Text::valueNamed(Text::Named::tcpFlag, flag, AclType::ip);
    if (!bit) throw CommandError(words.column(i), "expected TCP flags such as syn,ack");
    flags = static_cast<U16>(flags | *bit);
  }
  return flags;
}

}  // namespace

// ---- platform ---------------------------------------------------------------------------------

std::vector<std::string> Shell::Impl::capabilityNames() {
  std::vector<std::string> names;
  for (const Capability& c : capabilities()) names.push_back(c.name);
  for (const Skip& s : skips) names.emplace_back(s.name);
  return names;
}

void Shell::Impl::platform(const Words& words) {
  Acl::ParamConfig& flags = *library_.mounts().paramConfig;
  Client::Platform can = library_.platform();
  const std::string_view what = words[1];
  const auto& all = capabilities();
  const auto found = std::find_if(all.begin(), all.end(), [&](const Capability& c) { return c.name == what; });
  const auto* skip = std::find_if(std::begin(skips), std::end(skips), [&](const Skip& s) { return s.name == what; });
  if (what == "all") {
    (onOff(words, 2) ? can.enableAll() : can.disableAll());
  } else if (what == payloadCapacity) {
    const auto type = family(words[2]);
    const auto elements = small<Acl::U16>(words, 3, "a number of payload elements", 0xFFFF);
    if (*type == AclType::ip) library_.mounts().status->ipPayloadCapacityIs(elements);
    if (*type == AclType::mac) library_.mounts().status->macPayloadCapacityIs(elements);
  } else if (skip != std::end(skips)) {
    (flags.*skip->set)(onOff(words, 2));
  } else if (found != all.end()) {
    can.supportIs(found->model, onOff(words, 2));
  } else {
    std::string expected = "expected a capability (see show platform), all, " + std::string(payloadCapacity);
    for (const Skip& s : skips) expected += (&s == std::end(skips) - 1 ? " or " : ", ") + std::string(s.name);
    throw CommandError(words.column(1), expected);
  }
}

Json Shell::Impl::platformJson() const {
  const Acl::ParamConfig& flags = *library_.mounts().paramConfig;
  const Client::Platform can = library_.platform();
  const Acl::Status& status = *library_.mounts().status;
  Json j{{"capabilities", Json::object()}};
  for (const Capability& c : capabilities()) j["capabilities"][c.name] = can.supports(c.model);
  for (const Skip& s : skips) j[s.json] = (flags.*s.get)();
  j["payloadCapacity"] = {{"ip", status.ipPayloadCapacity()}, {"mac", status.macPayloadCapacity()}};
  return j;
}

std::pair<std::string, std::string> Shell::Impl::platformConfig() const {
  const Acl::ParamConfig& flags = *library_.mounts().paramConfig;
  const Client::Platform can = library_.platform();
  const Acl::Status& status = *library_.mounts().status;
  std::string room;
  for (const auto& [type, elements] :
       {std::pair(AclType::ip, status.ipPayloadCapacity()), std::pair(AclType::mac, status.macPayloadCapacity())}) {
    if (elements == 0) continue;
    room += "platform " + std::string(payloadCapacity) + " " + std::string(Client::keyword(type)) + " " +
            std::to_string(elements) + "\n";
  }
  std::string limits;
  for (const Capability& c : capabilities()) {
    if (!can.supports(c.model)) limits += "platform " + c.name + " off\n";
  }
  for (const Skip& s : skips) {
    if ((flags.*s.get)()) limits += "platform " + std::string(s.name) + " on\n";
  }
  return {room, limits};
}

void Shell::Impl::showPlatform() {
  if (options_.json) return emit(Kind::platform, platformJson());
  const Acl::ParamConfig& can = *library_.mounts().paramConfig;
  const Client::Platform platform = library_.platform();
  const Acl::Status& status = *library_.mounts().status;
  std::string yes;
  std::string no;
  for (const Capability& c : capabilities()) (platform.supports(c.model) ? yes : no) += " " + c.name;
  line("supported:" + (yes.empty() ? std::string(" nothing") : yes));
  line("not supported:" + (no.empty() ? std::string(" nothing") : no));
  line("deep-inspection skip " + std::string(can.dpiSkipNonZero() ? "on" : "off") + ", mpls skip " +
       (can.mplsSkipNonZero() ? "on" : "off") + "; payload elements per rule: ip " +
       std::to_string(status.ipPayloadCapacity() + 1) + ", mac " + std::to_string(status.macPayloadCapacity() + 1));
}

// ---- dataplanes ---------------------------------------------------------------------------------

Shell::Impl::Dataplane::Dataplane(std::unique_ptr<Agent::Dataplane> s, std::unique_ptr<Kernel::Dataplane> k)
    : simulated(std::move(s)), kernel(std::move(k)) {}
Shell::Impl::Dataplane::Dataplane(Dataplane&&) noexcept = default;
Shell::Impl::Dataplane& Shell::Impl::Dataplane::operator=(Dataplane&&) noexcept = default;
Shell::Impl::Dataplane::~Dataplane() = default;
Agent::Dataplane* Shell::Impl::Dataplane::get() const {
  return kernel ? &kernel->agent() : simulated.get();
}

// [no] dataplane NAME [SETTING ...]; the grammar has let through only the settings of each form.
void Shell::Impl::dataplane(const Words& words, bool negated) {
  const std::size_t at = negated ? 2 : 1;
  const std::string name(words[at]);
  auto found = dataplanes_.find(name);
  if (negated && found == dataplanes_.end()) throw CommandError(words.column(at), "there is no dataplane " + name);
  const std::string_view setting = words[at + 1];
  if (negated && setting.empty()) {
    found->second->waitForHwStatusIs(false);  // sessions stop waiting for it before it goes
    const bool inTheKernel = found->second.kernel != nullptr;
    dataplanes_.erase(found);
    if (inTheKernel) {
      try {
        Kernel::removeTables(name);
      } catch (const Kernel::Error& e) {
        throw CommandError(0, "dataplane " + name + " removed, but its tables stay in the kernel: " + e.what());
      }
    }
    message("dataplane " + name + " removed");
    return;
  }
  if (setting == inKernel) {
    if (found != dataplanes_.end()) {
      if (found->second.kernel) return;
      throw CommandError(words.column(at), "dataplane " + name + " is a simulated one; remove it first");
    }
    try {
      auto kernel = std::make_unique<Kernel::Dataplane>(library_.mounts(), String(name));
      dataplanes_.emplace(name, Dataplane(nullptr, std::move(kernel)));
    } catch (const Kernel::Error& e) {
      throw CommandError(words.column(at + 1), "no kernel dataplane here: " + std::string(e.what()));
    }
    return;
  }
  if (found == dataplanes_.end()) {
    found = dataplanes_
                .emplace(name, Dataplane(std::make_unique<Agent::Dataplane>(library_.mounts(), String(name)), nullptr))
                .first;
  }
  Agent::Dataplane& dp = *found->second.get();
  if (setting == waits) {
    dp.waitForHwStatusIs(onOff(words, at + 2));
  } else if (setting == capacity) {
    dp.capacityIs(negated ? Agent::Dataplane::unlimited : number(words, at + 2, "a number of entries"));
  } else if (setting == delay) {
    dp.delayIs(number(words, at + 2, "a number of events"));
  } else if (setting == forcedError) {
    if (negated) {
      dp.forcedErrorDel();
    } else {
      dp.forcedErrorIs(String(words.from(at + 2)));
    }
  } else if (setting == "tick") {
    dp.tick();
  }
}

std::pair<std::string, std::string> Shell::Impl::dataplaneConfig() const {
  std::string made;
  std::string answers;
  for (const auto& [name, dp] : dataplanes_) {
    const std::string command = "dataplane " + name;
    made += command + (dp.kernel ? " kernel\n" : "\n");
    const auto set = [&](std::string_view setting, const std::string& value) {
      answers.append(command).append(" ").append(setting).append(" ").append(value).append("\n");
    };
    if (!dp->waitForHwStatus()) set(waits, "off");
    if (dp->capacity() != Agent::Dataplane::unlimited) set(capacity, std::to_string(dp->capacity()));
    if (dp->delay() != 0) set(delay, std::to_string(dp->delay()));
    if (!dp->forcedError().empty()) set(forcedError, dp->forcedError().str());
  }
  return {made, answers};
}

Json Shell::Impl::dataplanesJson(bool settingsOnly) const {
  Json all = Json::array();
  for (const auto& [name, dp] : dataplanes_) {
    Json d{{"name", name}, {"kernel", dp.kernel != nullptr}, {"waits", dp->waitForHwStatus()}};
    d["capacity"] = dp->capacity() == Agent::Dataplane::unlimited ? Json() : Json(dp->capacity());
    d["delay"] = dp->delay();
    d["forcedError"] = dp->forcedError().str();
    if (!settingsOnly) {
      const Agent::RunReport& run = dp->lastRun();
      d["entries"] = dp->entryCount();
      d["upToDate"] = dp->upToDate();
      d["lastRun"] = {{"added", run.added}, {"removed", run.removed}, {"kept", run.kept}, {"error", run.error.str()}};
    }
    all.push_back(std::move(d));
  }
  return all;
}

void Shell::Impl::showDataplanes() {
  if (options_.json) return emit(Kind::dataplanes, dataplanesJson(false));
  for (const auto& [name, dp] : dataplanes_) {
    const Agent::RunReport& run = dp->lastRun();
    std::string settings = dp->waitForHwStatus() ? "waited for" : "not waited for";
    if (dp->capacity() != Agent::Dataplane::unlimited) settings += ", capacity " + std::to_string(dp->capacity());
    if (dp->delay() != 0) settings += ", delay " + std::to_string(dp->delay());
    if (!dp->forcedError().empty()) settings += ", forced error \"" + dp->forcedError().str() + "\"";
    std::string heading = "dataplane ";
    heading += name;
    if (dp.kernel) heading += " (kernel)";
    heading += ": ";
    heading += settings;
    line(heading);
    line("   " + std::to_string(dp->entryCount()) + " entries programmed; " +
         (dp->pending()    ? "a request is waiting"
          : dp->upToDate() ? "up to date"
                           : "behind") +
         "; last run: " + std::to_string(run.added) + " added, " + std::to_string(run.removed) + " removed, " +
         std::to_string(run.kept) + " kept" + (run.programmed() ? "" : " (failed: " + run.error.str() + ")"));
  }
  if (dataplanes_.empty()) line("no dataplanes");
}

void Shell::Impl::reportProgramming() {
  if (dataplanes_.empty()) return;
  std::string names;
  for (const std::string& name : library_.dataplanesBehind()) names += (names.empty() ? "" : ", ") + name;
  line(names.empty() ? "  programmed by every dataplane" : "  the dataplanes program it: waiting for " + names);
}

// ---- packet checks -----------------------------------------------------------------------------

// test packet [dataplane NAME] interface INTF in|out ip|ipv6|mac FIELD VALUE ...
void Shell::Impl::testPacket(const Words& words) {
  std::size_t at = 2;
  const Agent::Dataplane* dp = nullptr;
  if (words.is(at, "dataplane")) {
    const auto found = dataplanes_.find(std::string(words[at + 1]));
    if (found == dataplanes_.end()) throw CommandError(words.column(at + 1), "expected the name of a dataplane");
    dp = found->second.get();
    at += 2;
  } else if (!dataplanes_.empty()) {
    dp = dataplanes_.begin()->second.get();
  }
  if (!dp) throw CommandError(0, "no dataplane to ask: add one with dataplane NAME");
  const Acl::IntfId intf{String(words[at + 1])};
  const AclDirection dir = direction(words, at + 2);
  const auto type = family(words[at + 3]);
  Agent::Packet packet;
  packet.family = *type;
  const bool ip4 = *type == AclType::ip;
  for (std::size_t i = at + 4; i < words.size(); i += 2) {
    const std::string_view field = words[i];
    const std::size_t v = i + 1;
    if (words[v].empty()) throw CommandError(words.column(v), "expected a value for " + std::string(field));
    if (field == "src" || field == "dst") {
      const bool src = field == "src";
      if (*type == AclType::mac) {
        (src ? packet.srcMac : packet.dstMac) = address<Acl::MacAddr>(words, v, "a MAC address");
      } else if (ip4) {
        (src ? packet.src4 : packet.dst4) = address<Acl::Ip4Addr>(words, v, "an IPv4 address");
      } else {
        (src ? packet.src6 : packet.dst6) = address<Acl::Ip6Addr>(words, v, "an IPv6 address");
      }
    } else if (field == "protocol") {
      packet.protocol = namedOr<U8>(Text::Named::protocol, *type, words, v, "a protocol name or number", 255);
    } else if (field == "sport" || field == "dport") {
      (field == "sport" ? packet.srcPort : packet.dstPort) =
          namedOr<U16>(Text::Named::port, *type, words, v, "a port name or number", 0xFFFF);
    } else if (field == "flags") {
      packet.tcpFlags = tcpFlagsOf(words, v);
    } else if (field == "icmp-type") {
      packet.icmpType = namedOr<U8>(Text::Named::icmpType, *type, words, v, "an ICMP type name or number", 255);
    } else if (field == "icmp-code") {
      packet.icmpCode = small<U8>(words, v, "an ICMP code", 255);
    } else if (field == "dscp") {
      packet.dscp = namedOr<U8>(Text::Named::dscp, *type, words, v, "a DSCP name or value", 63);
    } else if (field == "ecn") {
      packet.ecn = small<Acl::U8>(words, v, "an ECN value", 3);
    } else if (field == "ttl" || field == "hop-limit") {
      packet.ttl = small<Acl::U8>(words, v, "a TTL", 255);
    } else if (field == "length") {
      packet.ipLength = small<U16>(words, v, "a length", 0xFFFF);
    } else if (field == "vlan" || field == "inner-vlan") {
      (field == "vlan" ? packet.outerVlan : packet.innerVlan) = small<U16>(words, v, "a VLAN", 4095);
    } else if (field == "vrf") {
      packet.vrf = Acl::VrfName(String(words[v]));
    } else if (field == "ethertype") {
      packet.ethertype = ethertypeOf(words, v);
    } else if (field == "mpls") {
      packet.mplsLabels.push_back(small<U32>(words, v, "an MPLS label", 0xFFFFF));
    } else {
      throw CommandError(words.column(i),
                         "expected a packet field (src, dst, protocol, sport, dport, flags, icmp-type, icmp-code, "
                         "dscp, ecn, ttl, hop-limit, length, vlan, inner-vlan, vrf, ethertype, mpls)");
    }
  }
  const Agent::Verdict verdict = dp->check(intf, dir, packet);
  std::string entry;
  if (verdict.entry) {
    std::visit([&](const auto& rule) { entry = Text::format(rule); }, verdict.entry->rule);
  }
  const std::string action = verdict.action == Acl::RuleAction::permit ? "permit" : "deny";
  if (options_.json) {
    Json j{{"dataplane", dp->name().str()},
           {"interface", intf.name().str()},
           {"direction", std::string(stringValue(dir).view())},
           {"action", action},
           {"list", verdict.acl.str()},
           {"entry", nullptr}};
    if (verdict.entry) {
      const Ptr<Acl::AclConfig> list = library_.list(*type, verdict.acl);
      std::visit(
          [&](const auto& rule) {
            j["entry"] = entryJson({verdict.entry->sequence, rule}, list && list->standard());
          },
          verdict.entry->rule);
    }
    return emit(Kind::packet, std::move(j));
  }
  const std::string where = dp->name().str() + " " + intf.name().str() + " " + std::string(stringValue(dir).view());
  if (verdict.entry) {
    line(where + ": " + action + " by " + std::string(Client::keyword(*type)) + " access-list " + verdict.acl.str() +
         " entry " + std::to_string(verdict.entry->sequence) + ": " + entry);
  } else {
    line(where + ": deny (" +
         (verdict.acl.empty() ? "no list bound" : "no entry of " + verdict.acl.str() + " matches") + ")");
  }
}

}  // namespace aclsh
