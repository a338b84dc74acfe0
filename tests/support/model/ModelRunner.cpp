#include "tests/support/model/ModelRunner.h"

#include <algorithm>
#include <optional>
#include <ostream>
#include <sstream>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/platform/trace/Clock.h"
#include "tests/support/AclBuilders.h"
#include "tests/support/SessionInvariants.h"
#include "tests/support/model/ReferenceModel.h"

namespace model {

namespace {

using namespace AclApi;
using ::Acl::AclSubConfig;
using ::Acl::IntfId;
using ::Acl::Ip6RuleConfig;
using ::Acl::IpRuleConfig;
using ::Acl::MacRuleConfig;
using ::Acl::RemarkConfig;
using fwk::Ptr;
using fwk::String;

constexpr const char* kOpNames[kOpKinds] = {"open",           "addRule",          "addRemark",      "removeRemark",
                                            "removeRange",    "removeByContent",  "resequence",     "flag",
                                            "commit",         "revert",           "remove",         "attachOrDetach",
                                            "dataplaneWaits", "dataplaneAnswers", "dataplaneError", "configSession"};
constexpr AclType kTypes[] = {AclType::ip, AclType::ipv6, AclType::mac};
constexpr const char* kNames[] = {"a", "b", "ro"};
constexpr const char* kIntfs[] = {"Ethernet1", "Vlan10"};
constexpr int kContents = 6;
constexpr int kMissingRule = -2;  // a place whose record is missing from the version
constexpr int kUnknownRule = -3;  // a record no content number describes
// Results of a configuration session's commit, beside the ApiState values of the others.
constexpr int kChanged = 1000;
constexpr int kUnchanged = 1001;

std::string resultText(int result) {
  if (result == kChanged) return "changed";
  if (result == kUnchanged) return "unchanged";
  return std::string(stringValue(static_cast<ApiState>(result)).view());
}

AclType typeOf(std::uint8_t b) {
  return kTypes[b % 3];
}
AclDirection directionOf(std::uint8_t b) {
  return b % 2 ? AclDirection::out : AclDirection::in;
}
std::string remarkText(std::uint8_t b) {
  return "r" + std::to_string(b % 4);
}

// The family an entry point serves: mostly the session's own, sometimes another.
AclType familyOf(AclType own, std::uint8_t b) {
  if (b % 4 != 3) return own;
  return kTypes[(static_cast<int>(own) + 1 + (b / 4) % 2) % 3];
}

// Content numbers stand for distinct, non-default rules of each family.
IpRuleConfig ipRuleFor(int c) {
  return c == kDefaultRule ? IpRuleConfig() : build::ipRule(static_cast<::Acl::U16>(c));
}
Ip6RuleConfig ip6RuleFor(int c) {
  if (c == kDefaultRule) return Ip6RuleConfig();
  return build::ruleWith<Ip6RuleConfig>([&](::Acl::Ip6Filter& f) { f.hopLimitIs(static_cast<::Acl::U8>(c + 1)); });
}
MacRuleConfig macRuleFor(int c) {
  if (c == kDefaultRule) return MacRuleConfig();
  return build::ruleWith<MacRuleConfig>(
      [&](::Acl::MacFilter& f) { f.ethertypeIs(static_cast<::Acl::U16>(0x800 + c)); });
}

template <class Rule, class Map>
int contentOf(const Map& byId, const ::Acl::UniqueId& id, Rule (*ruleFor)(int)) {
  const Rule* rule = byId.find(id);
  if (!rule) return kMissingRule;
  for (int c = kDefaultRule; c < kContents; ++c) {
    if (*rule == ruleFor(c)) return c;
  }
  return kUnknownRule;
}

// The model's view of a library version: places, contents, flags; `problem` says what the
// model cannot express (a place holding both a rule and a remark, a record without a place).
List listOf(const AclSubConfig& v, AclType type, std::string& problem) {
  List list;
  list.counters = v.countersEnabled();
  list.fragments = v.fragmentsEnabled();
  for (const auto& [place, id] : v.ruleBySequence()) {
    int c = type == AclType::ip     ? contentOf(v.ipRuleById(), id, ipRuleFor)
            : type == AclType::ipv6 ? contentOf(v.ip6RuleById(), id, ip6RuleFor)
                                    : contentOf(v.macRuleById(), id, macRuleFor);
    list.places[place] = ruleEntry(c);
  }
  for (const auto& [place, remark] : v.remarkBySequence()) {
    if (list.places.contains(place)) problem = "place " + std::to_string(place) + " holds a rule and a remark";
    list.places[place] = remarkEntry(std::string(remark.text().view()));
  }
  const std::size_t records = v.ipRuleById().size() + v.ip6RuleById().size() + v.macRuleById().size();
  if (records != v.ruleBySequence().size()) {
    problem = std::to_string(records) + " rule records for " + std::to_string(v.ruleBySequence().size()) + " places";
  }
  return list;
}

std::string show(const List& list) {
  std::ostringstream os;
  os << "{";
  for (const auto& [place, e] : list.places) {
    os << " " << place << ":" << (e.remark ? e.text : std::to_string(e.rule));
  }
  os << (list.counters ? " counters" : "") << (list.fragments ? " fragments" : "") << " }";
  return os.str();
}

}  // namespace

std::ostream& operator<<(std::ostream& os, const Op& op) {
  os << kOpNames[static_cast<int>(op.kind) % kOpKinds] << "(slot " << int(op.slot);
  for (std::uint8_t a : op.arg) os << ", " << int(a);
  return os << ")";
}

struct Runner::Impl {
  World model;
  fwk::StateStore store;
  ::Acl::AclMounts acl = ::Acl::mountAcl(store);
  std::array<Ptr<::Acl::StatusDp>, 2> dataplanes;
  std::array<Ptr<ApiSm>, World::kSessions> sessions;
  fwk::ClockOverride clock{[this] { return model.clock; }};
  std::string said;
  std::string history;
  int ran = 0;

  Impl() {
    acl.paramConfig->allSupportedIs(true);
    for (std::size_t i = 0; i < dataplanes.size(); ++i) {
      dataplanes[i] = acl.statusDpDir->entityIs<::Acl::StatusDp>(String(model.dataplanes[i].name));
    }
    auto ro = acl.config->configIs(AclType::ip)->aclIs("ro", AclType::ip, false, true);
    ro->currCfgIs(build::version(*ro, {{10, 0}, {20, 1}}, {{15, "r0"}}));
    ro->currCfg()->committedIs(true);
  }

  // ---- reading arguments against the current state ----

  // 0, a place the list holds, a low place, or one near the top.
  static U32 placeOf(const std::optional<List>& list, std::uint8_t how, std::uint8_t value) {
    switch (how % 4) {
      case 0:
        return 0;
      case 1:
        if (list && !list->places.empty()) {
          auto it = list->places.begin();
          std::advance(it, value % list->places.size());
          return it->first;
        }
        return 1 + value;
      case 2:
        return 5 * (1 + value % 80);
      default:
        return kTop - value % 16;
    }
  }

  template <class Fn>
  ApiState byFamily(AclType family, int c, Fn fn) {
    if (family == AclType::ip) return fn(ipRuleFor(c), ip6RuleFor(kDefaultRule), macRuleFor(kDefaultRule));
    if (family == AclType::ipv6) return fn(ipRuleFor(kDefaultRule), ip6RuleFor(c), macRuleFor(kDefaultRule));
    return fn(ipRuleFor(kDefaultRule), ip6RuleFor(kDefaultRule), macRuleFor(c));
  }

  // Runs one operation on both sides. Returns false when it does not apply; otherwise sets
  // `got` and `want` to the library's and the model's results.
  bool run(const Op& op, std::ostringstream& what, int& got, int& want) {
    const std::size_t slot = op.slot % World::kSessions;
    const auto& a = op.arg;
    if (op.kind == OpKind::open) {
      const AclType type = typeOf(a[1]);
      const ApiType api = a[2] % 8 < 5 ? commit_ : static_cast<ApiType>(a[2] % 8 - 4);
      const char* name = api == detach_ && a[0] % 4 == 3 ? "" : kNames[a[0] % 3];
      const bool standard = a[3] % 16 == 0;
      what << "open " << (*name ? name : "\"\"") << " " << type << " " << api << (standard ? " standard" : "");
      sessions[slot] = apiSmFactory(name, type, standard, api, acl.config, acl.paramConfig, acl.intfConfig,
                                    acl.hwConfig, acl.status, acl.statusDpDir, acl.udfAlias);
      model.openSession(static_cast<int>(slot), name, type, api, standard);
      got = want = 0;
      return true;
    }
    switch (op.kind) {
      case OpKind::dataplaneWaits: {
        const bool waits = a[0] % 2;
        what << model.dataplanes[slot % 2].name << " waits " << waits;
        dataplanes[slot % 2]->waitForHwStatusIs(waits);
        model.dataplanes[slot % 2].waits = waits;
        got = want = 0;
        return true;
      }
      case OpKind::dataplaneAnswers: {
        const double time = model.requestTime - (a[0] % 4 == 0 ? 0.5 : 0.0);
        what << model.dataplanes[slot % 2].name << " programmed up to " << time;
        // The model decides before the library notifies: both see the same record states.
        model.dataplaneTimeIs(static_cast<int>(slot % 2), time);
        dataplanes[slot % 2]->dpAclUpdateTimeIs(time);
        got = want = 0;
        return true;
      }
      case OpKind::dataplaneError: {
        Dataplane& dp = model.dataplanes[slot % 2];
        if (a[0] % 3 == 0) {
          what << dp.name << " errors cleared";
          dataplanes[slot % 2]->errorDelAll();
          dp.errors.clear();
        } else {
          const std::string text = a[0] % 3 == 1 ? "no space" : "parity";
          what << dp.name << " error " << text;
          dataplanes[slot % 2]->errorIs("e", String(text));
          dp.errors["e"] = text;
        }
        got = want = 0;
        return true;
      }
      case OpKind::configSession:
        return runConfigSession(a, what, got, want);
      default:
        break;
    }
    if (!sessions[slot]) return false;
    ApiSm& s = *sessions[slot];
    Session& m = *model.sessions[slot];
    what << "slot " << slot << " ";
    switch (op.kind) {
      case OpKind::addRule: {
        const U32 at = placeOf(m.scratchpad, a[0], a[1]);
        const int c = a[2] % kContents;
        const AclType family = familyOf(m.type, a[3]);
        what << "add " << family << " rule " << c << " at " << at;
        got = byFamily(family, c, [&](const auto& ip, const auto& ip6, const auto& mac) {
          return family == AclType::ip     ? s.addIpRule(at, ip)
                 : family == AclType::ipv6 ? s.addIp6Rule(at, ip6)
                                           : s.addMacRule(at, mac);
        });
        want = model.addRule(m, family, at, c);
        return true;
      }
      case OpKind::addRemark: {
        const U32 at = placeOf(m.scratchpad, a[0], a[1]);
        if (at == 0 && m.scratchpad && lastSequenceOf(m) > kTop - 10) return false;  // wraps by design
        const std::string text = remarkText(a[2]);
        what << "add remark " << text << " at " << at;
        got = s.addRemark(RemarkConfig(String(text)), at);
        want = model.addRemark(m, text, at);
        return true;
      }
      case OpKind::removeRemark: {
        const std::string text = remarkText(a[2]);
        U32 at = 0;
        if (a[0] % 3 != 0) {  // by place: only where a remark stands
          if (!m.scratchpad) return false;
          std::vector<U32> remarks;
          for (const auto& [place, e] : m.scratchpad->places) {
            if (e.remark) remarks.push_back(place);
          }
          if (remarks.empty() || (at = remarks[a[1] % remarks.size()]) == 0) return false;
        }
        what << "remove remark " << text << " at " << at;
        got = s.removeRemark(RemarkConfig(String(text)), at);
        want = model.removeRemark(m, text, at);
        return true;
      }
      case OpKind::removeRange: {
        const U32 start = placeOf(m.scratchpad, a[0], a[1]);
        const std::uint64_t span = a[3] % 4 == 0 ? 1000u * a[2] : a[2];
        const U32 end = a[3] % 8 == 1 ? start / 2 : static_cast<U32>(std::min<std::uint64_t>(kTop, start + span));
        what << "remove places " << start << " to " << end;
        got = s.removeRuleBySequence(start, end);
        want = model.removeRange(m, start, end);
        return true;
      }
      case OpKind::removeByContent: {
        const int c = a[2] % kContents;
        const AclType family = familyOf(m.type, a[3]);
        what << "remove " << family << " rule " << c;
        got = byFamily(family, c, [&](const auto& ip, const auto& ip6, const auto& mac) {
          return family == AclType::ip     ? s.removeIpRuleByConfig(ip)
                 : family == AclType::ipv6 ? s.removeIp6RuleByConfig(ip6)
                                           : s.removeMacRuleByConfig(mac);
        });
        want = model.removeByContent(m, family, c);
        return true;
      }
      case OpKind::resequence: {
        const U32 start = a[0] % 3 == 0 ? 0 : a[0] % 3 == 1 ? 10u * (1 + a[1] % 10) : kTop - a[1] % 64;
        const U32 increment = a[3] % 8 == 0 ? 0x80000000u : 1u + a[2] % 16;
        what << "resequence from " << start << " by " << increment;
        got = s.resequence(start, increment);
        want = model.resequence(m, start, increment);
        return true;
      }
      case OpKind::flag: {
        const bool counters = a[0] % 2;
        const bool value = (a[0] / 2) % 2;
        what << (value ? "enable " : "disable ") << (counters ? "counters" : "fragments");
        got = counters ? (value ? s.enableCounters() : s.disableCounters())
                       : (value ? s.enableFragments() : s.disableFragments());
        want = model.flag(m, counters, value);
        return true;
      }
      case OpKind::commit: {
        if (m.api != commit_) return false;
        const bool cleanup = a[0] % 4 != 0;
        what << (cleanup ? "commit" : "commit keeping the old version");
        got = s.commitExt(cleanup);
        want = model.commit(m, cleanup);
        return true;
      }
      case OpKind::revert:
        what << "revert";
        got = s.revert();
        want = model.revert(m);
        return true;
      case OpKind::remove:
        if (m.api != remove_) return false;
        what << "remove the ACL";
        got = s.remove();
        want = model.remove(m);
        return true;
      case OpKind::attachDetach: {
        if (m.api != attach_ && m.api != detach_) return false;
        const char* intf = kIntfs[a[0] % 2];
        const AclDirection direction = directionOf(a[1]);
        what << m.api << " " << intf << " " << direction;
        got = m.api == attach_ ? s.attach(intf, direction) : s.detach(intf, direction);
        want = m.api == attach_ ? model.attach(m, intf, direction) : model.detach(m, intf, direction);
        return true;
      }
      default:
        return false;
    }
  }

  bool runConfigSession(const std::array<std::uint8_t, 4>& a, std::ostringstream& what, int& got, int& want) {
    const AclType type = typeOf(a[1]);
    const std::string name = kNames[a[2] % 3];
    ::Acl::AclConfigSession config(acl);
    bool changed = false;
    switch (a[0] % 4) {
      case 0: {  // drop the first rule (creates the ACL when missing)
        what << "config session: drop the first rule of " << name << " " << type;
        Ptr<AclSubConfig> v = config.newVersion(type, String(name));
        for (const auto& [place, id] : v->ruleBySequence()) {
          const ::Acl::UniqueId gone = id;
          v->ruleBySequenceDel(place);
          v->ipRuleByIdDel(gone);
          v->ip6RuleByIdDel(gone);
          v->macRuleByIdDel(gone);
          break;
        }
        changed = model.configDropFirstRule(type, name);
        break;
      }
      case 1: {  // every place one higher: same rules, so the running version is patched
        what << "config session: renumber " << name << " " << type;
        Ptr<::Acl::Input::AclTypeConfig> types = config.config()->config(type);
        Ptr<::Acl::AclConfig> candidate = types ? types->acl(String(name)) : nullptr;
        if (candidate) renumberUnlessAtTop(*candidate->currCfg());
        changed = model.configRenumber(type, name);
        break;
      }
      case 2:
        what << "config session: delete " << name << " " << type;
        if (auto types = config.config()->config(type)) types->aclDel(String(name));
        changed = model.configDeleteAcl(type, name);
        break;
      default: {
        const char* intf = kIntfs[a[3] % 2];
        const AclDirection direction = directionOf(a[3] / 2);
        what << "config session: bind or unbind " << intf << " " << direction << " " << name << " " << type;
        Ptr<::Acl::AclIntf> bindings = config.intfConfig()->configIs(type)->intfIs(direction);
        if (bindings->intf().contains(IntfId(String(intf)))) {
          bindings->intfDel(IntfId(String(intf)));
        } else {
          bindings->intfIs(IntfId(String(intf)), String(name));
        }
        changed = model.configToggleBinding(type, direction, intf, name);
        break;
      }
    }
    got = config.commit() ? kChanged : kUnchanged;
    want = changed ? kChanged : kUnchanged;
    return true;
  }

  static void renumberUnlessAtTop(AclSubConfig& v) {
    const bool empty = v.ruleBySequence().empty() && v.remarkBySequence().empty();
    const U32 last = std::max(v.ruleBySequence().empty() ? 0u : v.ruleBySequence().last()->first,
                              v.remarkBySequence().empty() ? 0u : v.remarkBySequence().last()->first);
    if (empty || last == kTop) return;
    std::vector<std::pair<U32, ::Acl::UniqueId>> rules(v.ruleBySequence().begin(), v.ruleBySequence().end());
    std::vector<std::pair<U32, RemarkConfig>> remarks(v.remarkBySequence().begin(), v.remarkBySequence().end());
    v.ruleBySequenceDelAll();
    v.remarkBySequenceDelAll();
    for (const auto& [place, id] : rules) v.ruleBySequenceIs(place + 1, id);
    for (const auto& [place, remark] : remarks) v.remarkBySequenceIs(place + 1, remark);
  }

  // ---- comparing ----

  std::string compareSessions() {
    for (std::size_t i = 0; i < sessions.size(); ++i) {
      const std::string who = "session " + std::to_string(i) + ": ";
      if (!sessions[i]) continue;
      ApiSm& s = *sessions[i];
      const Session& m = *model.sessions[i];
      if (s.apiState() != m.state) {
        return who + "apiState " + std::string(stringValue(s.apiState()).view()) + ", model says " +
               std::string(stringValue(m.state).view());
      }
      if ((s.currentAcl() != nullptr) != m.scratchpad.has_value()) {
        return who + (m.scratchpad ? "the scratchpad is gone" : "a scratchpad is left");
      }
      if (m.scratchpad) {
        std::string problem;
        const List sp = listOf(*s.currentAcl(), m.type, problem);
        if (!problem.empty()) return who + "scratchpad: " + problem;
        if (!(sp == *m.scratchpad)) return who + "scratchpad " + show(sp) + ", model says " + show(*m.scratchpad);
        if (s.spLastSequenceNumber() != m.lastCache) {
          return who + "spLastSequenceNumber " + std::to_string(s.spLastSequenceNumber()) + ", model says " +
                 std::to_string(m.lastCache);
        }
      }
      std::map<std::string, std::string> errors;
      for (const auto& [key, text] : s.errString()) errors[std::string(key.view())] = std::string(text.view());
      if (errors != m.errString) return who + "errString differs from the model";
      if (std::vector<std::string> broken = invariantViolations(s); !broken.empty()) return who + broken.front();
    }
    return "";
  }

  std::string compareAcls() {
    std::size_t libraryAcls = 0;
    for (AclType type : kTypes) {
      Ptr<::Acl::Input::AclTypeConfig> types = acl.config->config(type);
      if (!types) continue;
      libraryAcls += types->acl().size();
      for (const auto& [name, a] : types->acl()) {
        const std::string who = "ACL " + std::string(name.view()) + " " + std::string(stringValue(type).view()) + ": ";
        const AclState* m = model.acl(type, std::string(name.view()));
        if (!m) return who + "exists, the model has none";
        if (a->standard() != m->standard || a->readonly() != m->readonly) return who + "construction flags differ";
        const Ptr<AclSubConfig>& current = a->currCfg();
        if (!current) return who + "no current version";
        std::string problem;
        const List list = listOf(*current, type, problem);
        if (!problem.empty()) return who + "current version: " + problem;
        if (!(list == m->current->list))
          return who + "current " + show(list) + ", model says " + show(m->current->list);
        if (current->committed() != m->current->committed) return who + "committed flag differs";
        if (a->subConfig().size() != m->versions.size()) {
          return who + std::to_string(a->subConfig().size()) + " versions, model says " +
                 std::to_string(m->versions.size());
        }
        const bool listed = a->subConfig().contains(current->id());
        if (listed != m->versions.contains(m->current->token)) return who + "current version listed differently";
      }
    }
    if (libraryAcls != model.acls.size())
      return std::to_string(libraryAcls) + " ACLs, model says " + std::to_string(model.acls.size());
    return "";
  }

  std::string compareBindings() {
    std::map<BindingKey, std::string> library;
    for (AclType type : kTypes) {
      Ptr<::Acl::IntfTypeConfig> types = acl.intfConfig->config(type);
      if (!types) continue;
      for (const auto& [direction, bindings] : types->intf()) {
        if (bindings->parent() != types.get()) return "a binding list outlived its interface table";
        for (const auto& [intf, name] : bindings->intf()) {
          library[{type, direction, std::string(intf.name().view())}] = std::string(name.view());
        }
      }
    }
    return library == model.bindings ? "" : "bindings differ from the model";
  }

  // After the sessions are gone nothing may watch the store, and every version is held by
  // its ACL's table and, when current, by currCfg: anything more is a leaked reference.
  std::string checkQuiescent() {
    auto watched = [](const fwk::Entity& e) { return !e.notifieeList().empty(); };
    for (const auto& dp : dataplanes) {
      if (watched(*dp)) return "a reactor is left on dataplane " + std::string(dp->name().view());
    }
    for (AclType type : kTypes) {
      Ptr<::Acl::Input::AclTypeConfig> types = acl.config->config(type);
      if (!types) continue;
      for (const auto& [name, a] : types->acl()) {
        const std::string who = "ACL " + std::string(name.view()) + ": ";
        if (watched(*a)) return who + "still watched";
        for (const auto& [id, v] : a->subConfig()) {
          if (watched(*v)) return who + "a version is still watched";
          const std::uint32_t holders = 1 + (a->currCfg() == v ? 1 : 0);
          if (v->fwkReferences() != holders) {
            return who + "a version has " + std::to_string(v->fwkReferences()) + " references, expected " +
                   std::to_string(holders);
          }
        }
        const Ptr<AclSubConfig>& current = a->currCfg();
        if (!a->subConfig().contains(current->id()) && current->fwkReferences() != 1) {
          return who + "the unlisted current version has extra references";
        }
      }
    }
    return "";
  }
};

Runner::Runner() : impl_(std::make_unique<Impl>()) {}
Runner::~Runner() = default;

std::string Runner::step(const Op& op) {
  Impl& w = *impl_;
  w.model.clock += 1;
  std::ostringstream what;
  int got = 0;
  int want = 0;
  if (!w.run(op, what, got, want)) {
    w.said = "skipped";
    return "";
  }
  ++w.ran;
  w.said = what.str();
  w.history += w.said + "\n";
  if (got != want) {
    return w.said + ": returned " + resultText(got) + ", model says " + resultText(want);
  }
  for (std::string fault : {w.compareSessions(), w.compareAcls(), w.compareBindings()}) {
    if (!fault.empty()) return w.said + ": " + fault;
  }
  return "";
}

std::string Runner::finish() {
  Impl& w = *impl_;
  for (auto& s : w.sessions) s = nullptr;
  for (auto& s : w.model.sessions) s.reset();
  return w.checkQuiescent();
}

const std::string& Runner::lastStep() const {
  return impl_->said;
}
const std::string& Runner::history() const {
  return impl_->history;
}
int Runner::stepsRun() const {
  return impl_->ran;
}

}  // namespace model
