#include "tests/support/model/ModelRunner.h"

#include <algorithm>
#include <functional>
#include <ostream>
#include <set>
#include <span>
#include <sstream>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Transaction.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/platform/trace/Clock.h"
#include "tests/support/AclBuilders.h"
#include "tests/support/SessionInvariants.h"
#include "tests/support/model/ReferenceModel.h"

namespace model {

namespace {

using namespace AclApi;
using ::Acl::AclSubConfig;
using ::Acl::Ip6RuleConfig;
using ::Acl::IpRuleConfig;
using ::Acl::MacRuleConfig;
using ::Acl::RemarkConfig;
using fwk::Ptr;
using fwk::String;
using Args = std::array<std::uint8_t, 4>;

#define MODEL_OP_NAME_(name, weight) #name,
constexpr const char* kOpNames[] = {MODEL_OPS(MODEL_OP_NAME_)};
#undef MODEL_OP_NAME_
constexpr AclType kTypes[] = {AclType::ip, AclType::ipv6, AclType::mac};
constexpr const char* kNames[] = {"a", "b", "ro"};
constexpr const char* kIntfs[] = {"Ethernet1", "Vlan10"};
// Content numbers kDefaultRule .. kContents - 1 stand for distinct rules of each family.
constexpr int kContents = 6;
constexpr int kMissingRule = -2;  // a place whose record is missing from the version
constexpr int kUnknownRule = -3;  // a record no content number describes
std::string resultText(int result) {
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
int contentOf(std::uint8_t b) {
  return b % (kContents + 1) - 1;
}

// The family an entry point serves: mostly the session's own, sometimes another.
AclType familyOf(AclType own, std::uint8_t b) {
  if (b % 4 != 3) return own;
  return kTypes[(static_cast<int>(own) + 1 + (b / 4) % 2) % 3];
}

// The records content numbers stand for, made once: comparing against them is most of what
// reading a version back costs.
template <class Rule>
struct Contents {
  std::array<Rule, kContents + 1> rules;  // by content number + 1
  template <class Make>
  explicit Contents(Make make) {
    for (int c = kDefaultRule; c < kContents; ++c) rules[static_cast<std::size_t>(c + 1)] = make(c);
  }
  [[nodiscard]] const Rule& of(int c) const { return rules[static_cast<std::size_t>(c + 1)]; }
  [[nodiscard]] int contentOf(const Rule& rule) const {
    for (int c = kDefaultRule; c < kContents; ++c) {
      if (of(c) == rule) return c;
    }
    return kUnknownRule;
  }
};
const Contents<IpRuleConfig>& ipRules() {
  static const Contents<IpRuleConfig> all(
      [](int c) { return c == kDefaultRule ? IpRuleConfig() : build::ipRule(static_cast<::Acl::U16>(c)); });
  return all;
}
const Contents<Ip6RuleConfig>& ip6Rules() {
  static const Contents<Ip6RuleConfig> all([](int c) {
    if (c == kDefaultRule) return Ip6RuleConfig();
    return build::ruleWith<Ip6RuleConfig>([&](::Acl::Ip6Filter& f) { f.hopLimitIs(static_cast<::Acl::U8>(c + 1)); });
  });
  return all;
}
const Contents<MacRuleConfig>& macRules() {
  static const Contents<MacRuleConfig> all([](int c) {
    if (c == kDefaultRule) return MacRuleConfig();
    return build::ruleWith<MacRuleConfig>(
        [&](::Acl::MacFilter& f) { f.ethertypeIs(static_cast<::Acl::U16>(0x800 + c)); });
  });
  return all;
}

// The library call of a family's entry point with the rule a content number stands for.
template <class Ip, class Ip6, class Mac>
ApiState byFamily(AclType family, int content, Ip ip, Ip6 ip6, Mac mac) {
  return family == AclType::ip     ? ip(ipRules().of(content))
         : family == AclType::ipv6 ? ip6(ip6Rules().of(content))
                                   : mac(macRules().of(content));
}

template <class Rule, class Map>
int contentAt(const Map& byId, const ::Acl::UniqueId& id, const Contents<Rule>& contents) {
  const Rule* rule = byId.find(id);
  return rule ? contents.contentOf(*rule) : kMissingRule;
}

// The model's view of a library version; `problem` says what the model cannot express (a
// record of another family).
List listOf(const AclSubConfig& v, AclType type, std::string& problem) {
  List list;
  list.counters = v.countersEnabled();
  list.fragments = v.fragmentsEnabled();
  for (const auto& [place, id] : v.ruleBySequence()) {
    list.rules.emplace_hint(list.rules.end(), place,
                            type == AclType::ip     ? contentAt(v.ipRuleById(), id, ipRules())
                            : type == AclType::ipv6 ? contentAt(v.ip6RuleById(), id, ip6Rules())
                                                    : contentAt(v.macRuleById(), id, macRules()));
  }
  for (const auto& [place, remark] : v.remarkBySequence()) {
    list.remarks.emplace_hint(list.remarks.end(), place, remark.text().view());
  }
  // As many records as places, each place with its own record: nothing is left unplaced.
  const std::size_t records = v.ipRuleById().size() + v.ip6RuleById().size() + v.macRuleById().size();
  if (records == v.ruleBySequence().size() && list.rules.count(kMissingRule) == 0) return list;
  std::set<::Acl::UniqueId> placed;
  for (const auto& [place, id] : v.ruleBySequence()) placed.insert(id);
  auto unplaced = [&](const auto& byId, const auto& contents, AclType family) {
    for (const auto& [id, rule] : byId) {
      if (placed.contains(id)) continue;
      if (family != type) problem = "a record of another family";
      list.unplaced.insert(contents.contentOf(rule));
    }
  };
  unplaced(v.ipRuleById(), ipRules(), AclType::ip);
  unplaced(v.ip6RuleById(), ip6Rules(), AclType::ipv6);
  unplaced(v.macRuleById(), macRules(), AclType::mac);
  return list;
}

std::string show(const List& list) {
  std::ostringstream os;
  os << "{";
  for (const auto& [place, rule] : list.rules) os << " " << place << ":" << rule;
  for (const auto& [place, text] : list.remarks) os << " " << place << ":" << text;
  for (int rule : list.unplaced) os << " unplaced:" << rule;
  os << (list.counters ? " counters" : "") << (list.fragments ? " fragments" : "") << " }";
  return os.str();
}

// Every place in use, rules and remarks together, ascending.
std::vector<U32> placesOf(const AclSubConfig* sp) {
  std::vector<U32> places;
  if (!sp) return places;
  for (const auto& entry : sp->ruleBySequence()) places.push_back(entry.first);
  for (const auto& entry : sp->remarkBySequence()) places.push_back(entry.first);
  std::sort(places.begin(), places.end());
  places.erase(std::unique(places.begin(), places.end()), places.end());
  return places;
}

// 0, a place in use, a low place, or one near the top.
U32 placeOf(const std::vector<U32>& places, std::uint8_t how, std::uint8_t value) {
  switch (how % 4) {
    case 0:
      return 0;
    case 1:
      return places.empty() ? 1u + value : places[value % places.size()];
    case 2:
      return 5 * (1 + value % 80);
    default:
      return kTop - value % 16;
  }
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

  // ---- the operations --------------------------------------------------------------------

  // An operation decoded: what to call on each side, and what it can change (and so what is
  // compared after it; everything is, at the end).
  struct Call {
    std::ostringstream what;
    std::function<int()> library;
    std::function<int()> model;
    std::size_t slot = 0;
    enum class Sessions : std::uint8_t { none, slot, all } sessions = Sessions::slot;
    bool store = false;  // ACLs, versions, bindings, the request time
  };
  using Decoder = bool (Impl::*)(std::size_t slot, const Args& a, Call& call);

  // A session operation runs on the slot's session in both worlds; none there, nothing to run.
  template <class Library, class Model>
  bool onSession(std::size_t slot, Call& call, Library library, Model onModel) {
    ApiSm* s = sessions[slot].get();
    if (!s) return false;
    call.library = [s, library] { return static_cast<int>(library(*s)); };
    call.model = [this, slot, onModel] { return static_cast<int>(onModel(model, *model.sessions[slot])); };
    return true;
  }
  ApiSm* held(std::size_t slot) { return sessions[slot].get(); }
  std::vector<U32> placesIn(std::size_t slot) {
    return placesOf(held(slot) ? held(slot)->currentAcl().get() : nullptr);
  }

  bool open(std::size_t slot, const Args& a, Call& call) {
    const AclType type = typeOf(a[1]);
    const ApiType api = a[2] % 8 < 5 ? commit_ : static_cast<ApiType>(a[2] % 8 - 4);
    const std::string name = api == detach_ && a[0] % 4 == 3 ? "" : kNames[a[0] % 3];
    const bool standard = a[3] % 16 == 0;
    call.what << "open " << (name.empty() ? "\"\"" : name) << " " << type << " " << api
              << (standard ? " standard" : "");
    call.library = [=, this] {
      sessions[slot] = apiSmFactory(String(name), type, standard, api, acl.config, acl.paramConfig, acl.intfConfig,
                                    acl.hwConfig, acl.status, acl.statusDpDir, acl.udfAlias);
      return 0;
    };
    call.model = [=, this] { return model.openSession(static_cast<int>(slot), name, type, api, standard), 0; };
    return true;
  }

  bool addRule(std::size_t slot, const Args& a, Call& call) {
    if (!held(slot)) return false;
    const U32 at = placeOf(placesIn(slot), a[0], a[1]);
    const int c = contentOf(a[2]);
    const AclType family = familyOf(held(slot)->aclType(), a[3]);
    call.what << "add " << family << " rule " << c << " at " << at;
    return onSession(
        slot, call,
        [=](ApiSm& s) {
          return byFamily(
              family, c, [&](const auto& r) { return s.addIpRule(at, r); },
              [&](const auto& r) { return s.addIp6Rule(at, r); }, [&](const auto& r) { return s.addMacRule(at, r); });
        },
        [=](World& m, Session& s) { return m.addRule(s, family, at, c); });
  }

  bool addRemark(std::size_t slot, const Args& a, Call& call) {
    const U32 at = placeOf(placesIn(slot), a[0], a[1]);
    const std::string text = remarkText(a[2]);
    call.what << "add remark " << text << " at " << at;
    return onSession(
        slot, call, [=](ApiSm& s) { return s.addRemark(RemarkConfig(String(text)), at); },
        [=](World& m, Session& s) { return m.addRemark(s, text, at); });
  }

  bool removeRemark(std::size_t slot, const Args& a, Call& call) {
    const Ptr<AclSubConfig> sp = held(slot) ? held(slot)->currentAcl() : nullptr;
    U32 at = 0;
    if (a[0] % 4 == 1 || a[0] % 4 == 2) {  // where a remark stands, when one does
      if (sp && !sp->remarkBySequence().empty()) {
        auto it = sp->remarkBySequence().begin();
        std::advance(it, a[1] % sp->remarkBySequence().size());
        at = it->first;
      }
    } else if (a[0] % 4 == 3) {  // any place, in use or not
      at = placeOf(placesIn(slot), a[3], a[1]);
    }
    const std::string text = remarkText(a[2]);
    call.what << "remove remark " << text << " at " << at;
    return onSession(
        slot, call, [=](ApiSm& s) { return s.removeRemark(RemarkConfig(String(text)), at); },
        [=](World& m, Session& s) { return m.removeRemark(s, text, at); });
  }

  bool removeRange(std::size_t slot, const Args& a, Call& call) {
    const U32 start = placeOf(placesIn(slot), a[0], a[1]);
    const std::uint64_t span = a[3] % 4 == 0 ? 1000u * a[2] : a[2];
    const U32 end = a[3] % 8 == 1 ? start / 2 : static_cast<U32>(std::min<std::uint64_t>(kTop, start + span));
    call.what << "remove places " << start << " to " << end;
    return onSession(
        slot, call, [=](ApiSm& s) { return s.removeRuleBySequence(start, end); },
        [=](World& m, Session& s) { return m.removeRange(s, start, end); });
  }

  bool removeByContent(std::size_t slot, const Args& a, Call& call) {
    if (!held(slot)) return false;
    const int c = contentOf(a[2]);
    const AclType family = familyOf(held(slot)->aclType(), a[3]);
    call.what << "remove " << family << " rule " << c;
    return onSession(
        slot, call,
        [=](ApiSm& s) {
          return byFamily(
              family, c, [&](const auto& r) { return s.removeIpRuleByConfig(r); },
              [&](const auto& r) { return s.removeIp6RuleByConfig(r); },
              [&](const auto& r) { return s.removeMacRuleByConfig(r); });
        },
        [=](World& m, Session& s) { return m.removeByContent(s, family, c); });
  }

  bool resequence(std::size_t slot, const Args& a, Call& call) {
    const U32 start = a[0] % 3 == 0 ? 0 : a[0] % 3 == 1 ? 10u * (1 + a[1] % 10) : kTop - a[1] % 64;
    const U32 increment = a[3] % 8 == 0 ? 0x80000000u : a[3] % 8 == 1 ? 0u : 1u + a[2] % 16;
    call.what << "resequence from " << start << " by " << increment;
    return onSession(
        slot, call, [=](ApiSm& s) { return s.resequence(start, increment); },
        [=](World& m, Session& s) { return m.resequence(s, start, increment); });
  }

  bool flag(std::size_t slot, const Args& a, Call& call) {
    const bool counters = a[0] % 2;
    const bool value = (a[0] / 2) % 2;
    call.what << (value ? "enable " : "disable ") << (counters ? "counters" : "fragments");
    return onSession(
        slot, call,
        [=](ApiSm& s) {
          return counters ? (value ? s.enableCounters() : s.disableCounters())
                          : (value ? s.enableFragments() : s.disableFragments());
        },
        [=](World& m, Session& s) { return m.flag(s, counters, value); });
  }

  bool commit(std::size_t slot, const Args& a, Call& call) {
    const bool cleanup = a[0] % 4 != 0;
    call.what << (cleanup ? "commit" : "commit keeping the old version");
    call.store = true;
    return onSession(
        slot, call, [=](ApiSm& s) { return s.commitExt(cleanup); },
        [=](World& m, Session& s) { return m.commit(s, cleanup); });
  }

  bool revert(std::size_t slot, const Args&, Call& call) {
    call.what << "revert";
    call.store = true;
    return onSession(
        slot, call, [](ApiSm& s) { return s.revert(); }, [](World& m, Session& s) { return m.revert(s); });
  }

  bool remove(std::size_t slot, const Args&, Call& call) {
    if (!held(slot) || held(slot)->apiType() != remove_) return false;
    call.what << "remove the ACL";
    call.store = true;
    return onSession(
        slot, call, [](ApiSm& s) { return s.remove(); }, [](World& m, Session& s) { return m.remove(s); });
  }

  bool attachDetach(std::size_t slot, const Args& a, Call& call) {
    const ApiType api = held(slot) ? held(slot)->apiType() : commit_;
    if (api != attach_ && api != detach_) return false;
    const std::string intf = kIntfs[a[0] % 2];
    const AclDirection direction = directionOf(a[1]);
    call.what << api << " " << intf << " " << direction;
    call.store = true;
    return onSession(
        slot, call,
        [=](ApiSm& s) {
          return api == attach_ ? s.attach(String(intf), direction) : s.detach(String(intf), direction);
        },
        [=](World& m, Session& s) {
          return api == attach_ ? m.attach(s, intf, direction) : m.detach(s, intf, direction);
        });
  }

  bool dataplaneWaits(std::size_t slot, const Args& a, Call& call) {
    const std::size_t dp = slot % 2;
    const bool waits = a[0] % 2;
    call.what << model.dataplanes[dp].name << " waits " << waits;
    call.sessions = Call::Sessions::none;
    call.library = [=, this] { return dataplanes[dp]->waitForHwStatusIs(waits), 0; };
    call.model = [=, this] { return model.dataplanes[dp].waits = waits, 0; };
    return true;
  }

  bool dataplaneAnswers(std::size_t slot, const Args& a, Call& call) {
    const std::size_t dp = slot % 2;
    const double time = acl.hwConfig->dpAclUpdateRequestTime() - (a[0] % 4 == 0 ? 0.5 : 0.0);
    call.what << model.dataplanes[dp].name << " programmed up to " << time;
    call.sessions = Call::Sessions::all;
    call.store = true;
    call.library = [=, this] {
      // A dataplane agent applies its report as one unit: a failure takes all of it back.
      const fwk::Transaction transaction;
      dataplanes[dp]->dpAclUpdateTimeIs(time);
      return 0;
    };
    call.model = [=, this] { return model.dataplaneTimeIs(static_cast<int>(dp), time), 0; };
    return true;
  }

  bool dataplaneError(std::size_t slot, const Args& a, Call& call) {
    const std::size_t dp = slot % 2;
    const std::string name = model.dataplanes[dp].name;
    call.sessions = Call::Sessions::none;
    if (a[0] % 3 == 0) {
      call.what << name << " errors cleared";
      call.library = [=, this] { return dataplanes[dp]->errorDelAll(), 0; };
      call.model = [=, this] { return model.dataplanes[dp].errors.clear(), 0; };
    } else {
      const std::string text = a[0] % 3 == 1 ? "no space" : "parity";
      call.what << name << " error " << text;
      call.library = [=, this] { return dataplanes[dp]->errorIs("e", String(text)), 0; };
      call.model = [=, this] { return model.dataplanes[dp].errors["e"] = text, 0; };
    }
    return true;
  }

#define MODEL_OP_DECODER_(name, weight) &Impl::name,
  static constexpr Decoder kDecoders[] = {MODEL_OPS(MODEL_OP_DECODER_)};
#undef MODEL_OP_DECODER_

  // ---- comparing -------------------------------------------------------------------------

  // The library read back into the model's terms, so that one rendering serves both sides.
  struct Observed {
    std::array<std::optional<Session>, World::kSessions> sessions;
    std::map<AclKey, AclState> acls;
    std::map<BindingKey, std::string> bindings;
    double requestTime = 0;
    std::string problem;  // what the model cannot express
  };

  // Only what `reached` and `withStore` ask for is read: a step compares what it can change.
  Observed observe(const std::function<bool(std::size_t)>& reached, bool withStore) {
    Observed o;
    for (std::size_t i = 0; i < sessions.size(); ++i) {
      if (!sessions[i]) continue;
      ApiSm& s = *sessions[i];
      Session& seen = o.sessions[i].emplace();
      seen.state = s.apiState();
      if (!reached(i)) continue;
      if (const Ptr<AclSubConfig> sp = s.currentAcl()) {
        seen.scratchpad = listOf(*sp, model.sessions[i] ? model.sessions[i]->type : s.aclType(), o.problem);
        seen.lastCache = s.spLastSequenceNumber();
      }
      seen.countsKept = s.spRuleMapInitialized();
      auto counts = [&](const auto& byRule, const auto& contents, AclType family) {
        for (const auto& [rule, n] : byRule) seen.ruleCounts[{family, contents.contentOf(rule)}] += n;
      };
      counts(s.spIpRuleMap(), ipRules(), AclType::ip);
      counts(s.spIp6RuleMap(), ip6Rules(), AclType::ipv6);
      counts(s.spMacRuleMap(), macRules(), AclType::mac);
      for (const auto& [remark, n] : s.spRemarkMap()) seen.remarkCounts[std::string(remark.text().view())] += n;
      for (const auto& [key, text] : s.errString()) seen.errString[key.str()] = text.str();
    }
    for (AclType type : withStore ? kTypes : std::span<const AclType>()) {
      if (Ptr<::Acl::Input::AclTypeConfig> types = acl.config->config(type)) {
        for (const auto& [name, a] : types->acl()) {
          AclState& seen = o.acls[{type, name.str()}];
          seen.standard = a->standard();
          seen.readonly = a->readonly();
          // Versions by their place in the table; the current one by its place too, or -1.
          for (int token = 0; token < static_cast<int>(a->subConfig().size()); ++token) seen.versions[token] = nullptr;
          if (const Ptr<AclSubConfig>& current = a->currCfg()) {
            const int listed = a->subConfig().contains(current->id()) ? 0 : -1;
            seen.current =
                std::make_shared<Version>(Version{listed, listOf(*current, type, o.problem), current->committed()});
          }
        }
      }
      if (Ptr<::Acl::IntfTypeConfig> intfs = acl.intfConfig->config(type)) {
        for (const auto& [direction, bindings] : intfs->intf()) {
          if (bindings->parent() != intfs.get()) o.problem = "a binding list outlived its interface table";
          for (const auto& [intf, name] : bindings->intf())
            o.bindings[{type, direction, intf.name().str()}] = name.str();
        }
      }
    }
    o.requestTime = acl.hwConfig->dpAclUpdateRequestTime();
    return o;
  }

  // What a step can reach, one line a session (its state; for a reached slot its scratchpad,
  // cached last sequence, content counts while kept and errors) and, with the store, a line an
  // ACL, a line a binding and the hardware request time.
  static std::string render(const Observed& o, const std::function<bool(std::size_t)>& reached, bool withStore) {
    std::ostringstream os;
    os.precision(17);
    for (std::size_t i = 0; i < o.sessions.size(); ++i) {
      os << "session " << i << ":";
      if (!o.sessions[i]) {
        os << " none\n";
        continue;
      }
      const Session& s = *o.sessions[i];
      os << " " << s.state;
      if (!reached(i)) {
        os << "\n";
        continue;
      }
      if (s.scratchpad) os << " " << show(*s.scratchpad) << " last " << s.lastCache;
      if (s.countsKept) {
        os << " counts";  // a count of 0 counts nothing, on either side
        for (const auto& [key, n] : s.ruleCounts) {
          if (n != 0) os << " " << key.first << ":" << key.second << "=" << n;
        }
        for (const auto& [text, n] : s.remarkCounts) {
          if (n != 0) os << " " << text << "=" << n;
        }
      }
      for (const auto& [key, text] : s.errString) os << " error " << key << "=" << text;
      os << "\n";
    }
    if (!withStore) return os.str();
    for (const auto& [key, a] : o.acls) {
      os << "acl " << key.first << " " << key.second << (a.standard ? " standard" : "") << (a.readonly ? " ro" : "");
      if (a.current) {
        os << " " << show(a.current->list) << (a.current->committed ? " committed" : "")
           << (a.versions.contains(a.current->token) ? " listed" : "");
      }
      os << " versions " << a.versions.size() << "\n";
    }
    for (const auto& [key, name] : o.bindings) {
      os << "bind " << std::get<0>(key) << " " << std::get<1>(key) << " " << std::get<2>(key) << " " << name << "\n";
    }
    os << "request " << o.requestTime << "\n" << o.problem;
    return os.str();
  }

  // The first line on which the library and the model differ; then the library's invariants.
  std::string compare(const std::function<bool(std::size_t)>& reached, bool withStore) {
    std::istringstream library(render(observe(reached, withStore), reached, withStore));
    std::istringstream expected(
        render({model.sessions, model.acls, model.bindings, model.requestTime, ""}, reached, withStore));
    for (;;) {
      std::string mine;
      std::string theirs;
      const bool more = static_cast<bool>(std::getline(library, mine));
      if (!std::getline(expected, theirs) && !more) break;
      if (mine != theirs) return "the library has \"" + mine + "\", the model \"" + theirs + "\"";
    }
    for (std::size_t i = 0; i < sessions.size(); ++i) {
      if (!sessions[i] || !reached(i)) continue;
      for (const std::string& broken : invariantViolations(*sessions[i]))
        return "session " + std::to_string(i) + ": " + broken;
    }
    return "";
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

  // ---- one step --------------------------------------------------------------------------

  std::string step(const Op& op) {
    model.clock += 1;
    Call call;
    call.slot = op.slot % World::kSessions;
    call.what << "slot " << call.slot << " ";
    if (!(this->*kDecoders[static_cast<int>(op.kind) % kOpKinds])(call.slot, op.arg, call)) {
      said = "skipped";
      return "";
    }
    ++ran;
    said = call.what.str();
    history += said + "\n";

    const int want = call.model();
    int got = 0;
    try {
      got = call.library();
    } catch (const std::exception& e) {
      return said + ": threw " + e.what();
    }
    if (got != want) return said + ": returned " + resultText(got) + ", model says " + resultText(want);
    // The sessions a step can change (its own, all for a dataplane's report, or none), and
    // the store when it can change that.
    const auto reached = [&call](std::size_t i) {
      return call.sessions == Call::Sessions::all || (call.sessions == Call::Sessions::slot && i == call.slot);
    };
    const std::string fault = compare(reached, call.store);
    return fault.empty() ? fault : said + ": " + fault;
  }
};

Runner::Runner() : impl_(std::make_unique<Impl>()) {}
Runner::~Runner() = default;

std::string Runner::step(const Op& op) {
  return impl_->step(op);
}

std::string Runner::finish() {
  Impl& w = *impl_;
  // Steps compare what they can change; whatever else changed shows here.
  if (std::string fault = w.compare([](std::size_t) { return true; }, true); !fault.empty()) return fault;
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
