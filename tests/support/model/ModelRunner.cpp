#include "tests/support/model/ModelRunner.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Transaction.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/platform/trace/Clock.h"
#include "tests/support/AclBuilders.h"
#include "tests/support/SessionInvariants.h"
#include "tests/support/StoreSnapshot.h"
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
                                            "dataplaneWaits", "dataplaneAnswers", "dataplaneError", "configSession",
                                            "observe",        "openWithNull"};
constexpr AclType kTypes[] = {AclType::ip, AclType::ipv6, AclType::mac};
constexpr const char* kNames[] = {"a", "b", "ro"};
constexpr const char* kIntfs[] = {"Ethernet1", "Vlan10"};
// Content numbers kDefaultRule .. kContents - 1 stand for distinct rules of each family.
constexpr int kContents = 6;
constexpr int kMissingRule = -2;  // a place whose record is missing from the version
constexpr int kUnknownRule = -3;  // a record no content number describes
// Results beside the ApiState values: a configuration session's commit, and a throw.
constexpr int kChanged = 1000;
constexpr int kUnchanged = 1001;
constexpr int kNullArgument = 1002;

std::string resultText(int result) {
  if (result == kChanged) return "changed";
  if (result == kUnchanged) return "unchanged";
  if (result == kNullArgument) return "NullArgumentError";
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

// A snapshot cut into one text per entity, by identity: after a failed step the entities
// still reachable must read as they did, and none may be new.
std::map<std::string, std::string> entitiesOf(const std::string& snapshot) {
  std::map<std::string, std::string> all;
  std::string* current = nullptr;
  std::size_t at = 0;
  while (at < snapshot.size()) {
    std::size_t end = snapshot.find('\n', at);
    if (end == std::string::npos) end = snapshot.size();
    const std::string_view line(snapshot.data() + at, end - at);
    if (!line.empty() && line[0] == '#') current = &all[std::string(line.substr(0, line.find(' ')))];
    if (current) current->append(line).push_back('\n');
    at = end + 1;
  }
  return all;
}

// What a throwing observer raises; nothing in the library raises it.
struct ObserverFault : std::runtime_error {
  ObserverFault() : std::runtime_error("an observer failed") {}
};

// The checker's messages about content counts name the map first.
constexpr const char* kCountMaps[] = {"spIpRuleMap: ", "spIp6RuleMap: ", "spMacRuleMap: ", "spRemarkMap: "};
int countMapOf(const std::string& message) {
  for (int i = 0; i < 4; ++i) {
    if (message.starts_with(kCountMaps[i])) return i;
  }
  return -1;
}

}  // namespace

std::ostream& operator<<(std::ostream& os, const Op& op) {
  os << kOpNames[static_cast<int>(op.kind) % kOpKinds] << "(slot " << int(op.slot);
  for (std::uint8_t a : op.arg) os << ", " << int(a);
  return os << ")";
}

struct Runner::Impl {
  // ---- observers: what callers' handlers do while the library notifies them ----

  enum class Watch : std::uint8_t { state, places, requestTime, current };

  // Throws once, at the next change of what it watches.
  template <class Base>
  class Thrower : public Base {
   public:
    Thrower(Impl& w, const typename Base::Notifier* watched) : w_(w) { this->notifierIs(watched); }

   protected:
    void fire() {
      if (fired_) return;
      fired_ = true;
      w_.throwerFired = true;
      throw ObserverFault();
    }
    Impl& w_;
    bool fired_ = false;
  };
  struct StateThrower : Thrower<ApiSm::Reactor> {
    using Thrower::Thrower;
    void apiStateChanged() override { fire(); }
  };
  struct PlacesThrower : Thrower<AclSubConfig::Reactor> {
    using Thrower::Thrower;
    void ruleBySequenceChanged(const U32&) override { fire(); }
    void remarkBySequenceChanged(const U32&) override { fire(); }
  };
  struct RequestThrower : Thrower<::Acl::HwConfig::Reactor> {
    using Thrower::Thrower;
    void dpAclUpdateRequestTimeChanged() override { fire(); }
  };
  struct CurrentThrower : Thrower<::Acl::AclConfig::Reactor> {
    using Thrower::Thrower;
    void currCfgChanged() override { fire(); }
  };

  // Lets go of the session when it reports its result.
  class Releaser : public ApiSm::Reactor {
   public:
    Releaser(Impl& w, std::size_t slot) : ApiSm::Reactor(w.sessions[slot].get()), w_(w), slot_(slot) {}
    void apiStateChanged() override {
      const ApiState state = notifier()->apiState();
      if ((state != succeeded && state != errHw) || w_.sessions[slot_].get() != notifier()) return;
      if (!fwk::Transaction::recording(*notifier())) return;  // a result being taken back
      w_.released[slot_] = true;
      w_.sessions[slot_] = nullptr;
    }

   private:
    Impl& w_;
    std::size_t slot_;
  };

  // Commits the session at the next change of its scratchpad's places.
  class Committer : public AclSubConfig::Reactor {
   public:
    Committer(Impl& w, std::size_t slot) : w_(w), slot_(slot), session_(w.sessions[slot].get()) {
      notifierIs(session_->currentAcl().get());
    }
    void ruleBySequenceChanged(const U32&) override { act(); }
    void remarkBySequenceChanged(const U32&) override { act(); }
    [[nodiscard]] bool pending() const { return !done_; }

   private:
    void act() {
      // A failed operation being taken back is not an edit to commit.
      if (done_ || w_.sessions[slot_].get() != session_ || !fwk::Transaction::recording(*session_)) return;
      done_ = true;
      w_.reentered = true;
      static_cast<void>(session_->commit());  // its outcome is the session's state
    }
    Impl& w_;
    std::size_t slot_;
    ApiSm* session_;
    bool done_ = false;
  };

  // Reverts the session when it reports errHw.
  class Reverter : public ApiSm::Reactor {
   public:
    Reverter(Impl& w, std::size_t slot) : ApiSm::Reactor(w.sessions[slot].get()), w_(w), slot_(slot) {}
    void apiStateChanged() override {
      if (done_ || notifier()->apiState() != errHw || w_.sessions[slot_].get() != notifier()) return;
      if (!fwk::Transaction::recording(*notifier())) return;  // an errHw being taken back
      done_ = true;
      w_.reentered = true;
      static_cast<void>(w_.sessions[slot_]->revert());
    }
    [[nodiscard]] bool pending() const { return !done_; }

   private:
    Impl& w_;
    std::size_t slot_;
    bool done_ = false;
  };

  // The armed throwing observer: what it watches, in model terms too.
  struct Armed {
    Armed(std::unique_ptr<fwk::Entity::Reactor> o, Watch w, std::size_t s)
        : observer(std::move(o)), watch(w), slot(s) {}
    std::unique_ptr<fwk::Entity::Reactor> observer;
    Watch watch;
    std::size_t slot;  // state, places: dropped with the slot's session
    AclKey acl;        // current
    int incarnation = 0;
  };

  // ---- state ----

  World model;
  bool modelled = true;
  fwk::StateStore store;
  ::Acl::AclMounts acl = ::Acl::mountAcl(store);
  std::array<Ptr<::Acl::StatusDp>, 2> dataplanes;
  std::array<Ptr<ApiSm>, World::kSessions> sessions;
  std::array<std::vector<std::unique_ptr<fwk::Entity::Reactor>>, World::kSessions> observers;
  std::array<bool, World::kSessions> releasing{};  // a Releaser watches the slot's session
  std::array<bool, World::kSessions> released{};   // the slot was let go of in this step
  // Sessions whose content counts no longer match their places: the model says which while
  // it runs; the library alone knows only that a drifting operation ran, or that the
  // scratchpad came with a place holding no record.
  std::array<bool, World::kSessions> countsAdrift{};
  std::optional<Armed> armed;
  bool throwerFired = false;
  bool reentered = false;
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

  // ---- one step ----

  // An operation decoded: what to call on each side. `library` may throw; `model` runs only
  // while the model follows the library. Neither is set for an observer being installed.
  struct Call {
    std::function<int()> library;
    std::function<int()> model;
    std::size_t slot = 0;
    bool opens = false;         // the slot gets a new session
    bool nullArgument = false;  // the library must throw NullArgumentError
    bool reports = false;       // a dataplane reports (its time is heard again when taken back)
    // What the step can change, and so what is compared after it (everything is, at the end).
    enum class Sessions : std::uint8_t { none, slot, all } sessions = Sessions::slot;
    bool store = false;  // ACLs, versions, bindings, the request time
  };

  // An observer that commits or reverts and has not yet done so may in this step: one that
  // commits on an edit of its session, one that reverts on a change of its session's state.
  bool reentrantMayAct(const Call& call) const {
    for (std::size_t i = 0; i < observers.size(); ++i) {
      const bool ownStep = call.sessions == Call::Sessions::slot && call.slot == i;
      for (const auto& observer : observers[i]) {
        const auto* committer = dynamic_cast<const Committer*>(observer.get());
        const auto* reverter = dynamic_cast<const Reverter*>(observer.get());
        if (committer && committer->pending() && ownStep) return true;
        if (reverter && reverter->pending() && (ownStep || call.sessions == Call::Sessions::all)) return true;
      }
    }
    return false;
  }

  // Whether the step can reach what the armed observer watches, whatever it then does.
  bool mayReachWatched(const Call& call) const {
    if (!armed) return false;
    switch (armed->watch) {
      case Watch::state:
        return call.sessions == Call::Sessions::all ||
               (call.sessions == Call::Sessions::slot && call.slot == armed->slot);
      case Watch::places:
        return call.sessions == Call::Sessions::slot && call.slot == armed->slot;
      case Watch::requestTime:
      case Watch::current:
        return call.store;
    }
    return false;
  }

  // Reads `op` against the library's state; false when it does not apply.
  bool decode(const Op& op, std::ostringstream& what, Call& call) {
    const std::size_t slot = op.slot % World::kSessions;
    const auto& a = op.arg;
    call.slot = slot;
    switch (op.kind) {
      case OpKind::open:
      case OpKind::openWithNull:
        return decodeOpen(op, slot, what, call);
      case OpKind::dataplaneWaits: {
        const std::size_t dp = slot % 2;
        const bool waits = a[0] % 2;
        what << model.dataplanes[dp].name << " waits " << waits;
        call.sessions = Call::Sessions::none;
        call.library = [=, this] { return dataplanes[dp]->waitForHwStatusIs(waits), 0; };
        call.model = [=, this] { return model.dataplanes[dp].waits = waits, 0; };
        return true;
      }
      case OpKind::dataplaneAnswers: {
        const std::size_t dp = slot % 2;
        const double time = acl.hwConfig->dpAclUpdateRequestTime() - (a[0] % 4 == 0 ? 0.5 : 0.0);
        what << model.dataplanes[dp].name << " programmed up to " << time;
        call.reports = true;
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
      case OpKind::dataplaneError: {
        const std::size_t dp = slot % 2;
        const std::string name = model.dataplanes[dp].name;
        call.sessions = Call::Sessions::none;
        if (a[0] % 3 == 0) {
          what << name << " errors cleared";
          call.library = [=, this] { return dataplanes[dp]->errorDelAll(), 0; };
          call.model = [=, this] { return model.dataplanes[dp].errors.clear(), 0; };
        } else {
          const std::string text = a[0] % 3 == 1 ? "no space" : "parity";
          what << name << " error " << text;
          call.library = [=, this] { return dataplanes[dp]->errorIs("e", String(text)), 0; };
          call.model = [=, this] { return model.dataplanes[dp].errors["e"] = text, 0; };
        }
        return true;
      }
      case OpKind::configSession:
        call.sessions = Call::Sessions::none;
        call.store = true;
        return decodeConfigSession(a, what, call);
      default:
        break;
    }
    if (!sessions[slot]) return false;
    ApiSm* s = sessions[slot].get();
    const AclType type = s->aclType();
    what << "slot " << slot << " ";
    // Model operations run on the slot's model session; in library-only mode there is none.
    auto onModel = [this, slot](auto fn) {
      return [this, slot, fn] { return static_cast<int>(fn(model, *model.sessions[slot])); };
    };
    switch (op.kind) {
      case OpKind::addRule: {
        const U32 at = placeOf(placesOf(s->currentAcl().get()), a[0], a[1]);
        const int c = a[2] % (kContents + 1) - 1;
        const AclType family = familyOf(type, a[3]);
        what << "add " << family << " rule " << c << " at " << at;
        call.library = [=] {
          return family == AclType::ip     ? s->addIpRule(at, ipRules().of(c))
                 : family == AclType::ipv6 ? s->addIp6Rule(at, ip6Rules().of(c))
                                           : s->addMacRule(at, macRules().of(c));
        };
        call.model = onModel([=](World& m, Session& ms) { return m.addRule(ms, family, at, c); });
        return true;
      }
      case OpKind::addRemark: {
        const U32 at = placeOf(placesOf(s->currentAcl().get()), a[0], a[1]);
        const std::string text = remarkText(a[2]);
        what << "add remark " << text << " at " << at;
        noteDrift(slot, at == 0 && lastSequenceOf(*s) > kTop - 10);
        call.library = [=] { return s->addRemark(RemarkConfig(String(text)), at); };
        call.model = onModel([=](World& m, Session& ms) { return m.addRemark(ms, text, at); });
        return true;
      }
      case OpKind::removeRemark: {
        const std::string text = remarkText(a[2]);
        const Ptr<AclSubConfig> sp = s->currentAcl();
        U32 at = 0;
        if (a[0] % 4 == 1 || a[0] % 4 == 2) {  // where a remark stands, when one does
          if (sp && !sp->remarkBySequence().empty()) {
            auto it = sp->remarkBySequence().begin();
            std::advance(it, a[1] % sp->remarkBySequence().size());
            at = it->first;
          }
        } else if (a[0] % 4 == 3) {  // any place, in use or not
          at = placeOf(placesOf(sp.get()), a[3], a[1]);
        }
        what << "remove remark " << text << " at " << at;
        noteDrift(slot, at != 0 && sp && !sp->remarkBySequence().contains(at));
        call.library = [=] { return s->removeRemark(RemarkConfig(String(text)), at); };
        call.model = onModel([=](World& m, Session& ms) { return m.removeRemark(ms, text, at); });
        return true;
      }
      case OpKind::removeRange: {
        const U32 start = placeOf(placesOf(s->currentAcl().get()), a[0], a[1]);
        const std::uint64_t span = a[3] % 4 == 0 ? 1000u * a[2] : a[2];
        const U32 end = a[3] % 8 == 1 ? start / 2 : static_cast<U32>(std::min<std::uint64_t>(kTop, start + span));
        what << "remove places " << start << " to " << end;
        call.library = [=] { return s->removeRuleBySequence(start, end); };
        call.model = onModel([=](World& m, Session& ms) { return m.removeRange(ms, start, end); });
        return true;
      }
      case OpKind::removeByContent: {
        const int c = a[2] % (kContents + 1) - 1;
        const AclType family = familyOf(type, a[3]);
        what << "remove " << family << " rule " << c;
        noteDrift(slot, family != type && c == kDefaultRule);
        call.library = [=] {
          return family == AclType::ip     ? s->removeIpRuleByConfig(ipRules().of(c))
                 : family == AclType::ipv6 ? s->removeIp6RuleByConfig(ip6Rules().of(c))
                                           : s->removeMacRuleByConfig(macRules().of(c));
        };
        call.model = onModel([=](World& m, Session& ms) { return m.removeByContent(ms, family, c); });
        return true;
      }
      case OpKind::resequence: {
        const U32 start = a[0] % 3 == 0 ? 0 : a[0] % 3 == 1 ? 10u * (1 + a[1] % 10) : kTop - a[1] % 64;
        const U32 increment = a[3] % 8 == 0 ? 0x80000000u : a[3] % 8 == 1 ? 0u : 1u + a[2] % 16;
        what << "resequence from " << start << " by " << increment;
        noteDrift(slot, increment == 0);
        call.library = [=] { return s->resequence(start, increment); };
        call.model = onModel([=](World& m, Session& ms) { return m.resequence(ms, start, increment); });
        return true;
      }
      case OpKind::flag: {
        const bool counters = a[0] % 2;
        const bool value = (a[0] / 2) % 2;
        what << (value ? "enable " : "disable ") << (counters ? "counters" : "fragments");
        call.library = [=] {
          return counters ? (value ? s->enableCounters() : s->disableCounters())
                          : (value ? s->enableFragments() : s->disableFragments());
        };
        call.model = onModel([=](World& m, Session& ms) { return m.flag(ms, counters, value); });
        return true;
      }
      case OpKind::commit: {
        const bool cleanup = a[0] % 4 != 0;
        what << (cleanup ? "commit" : "commit keeping the old version");
        call.store = true;
        call.library = [=] { return s->commitExt(cleanup); };
        call.model = onModel([=](World& m, Session& ms) { return m.commit(ms, cleanup); });
        return true;
      }
      case OpKind::revert:
        what << "revert";
        call.store = true;
        call.library = [=] { return s->revert(); };
        call.model = onModel([](World& m, Session& ms) { return m.revert(ms); });
        return true;
      case OpKind::remove:
        if (s->apiType() != remove_) return false;
        what << "remove the ACL";
        call.store = true;
        call.library = [=] { return s->remove(); };
        call.model = onModel([](World& m, Session& ms) { return m.remove(ms); });
        return true;
      case OpKind::attachDetach: {
        const ApiType api = s->apiType();
        if (api != attach_ && api != detach_) return false;
        const std::string intf = kIntfs[a[0] % 2];
        const AclDirection direction = directionOf(a[1]);
        what << api << " " << intf << " " << direction;
        call.store = true;
        call.library = [=] {
          return api == attach_ ? s->attach(String(intf), direction) : s->detach(String(intf), direction);
        };
        call.model = onModel([=](World& m, Session& ms) {
          return api == attach_ ? m.attach(ms, intf, direction) : m.detach(ms, intf, direction);
        });
        return true;
      }
      case OpKind::observe:
        return decodeObserve(slot, a, what);
      default:
        return false;
    }
  }

  // The runner's last sequence of a session as the library would start an automatic number.
  static U32 lastSequenceOf(ApiSm& s) {
    if (s.spLastSequenceNumber() != 0 || !s.currentAcl()) return s.spLastSequenceNumber();
    const std::vector<U32> places = placesOf(s.currentAcl().get());
    return places.empty() ? 0 : places.back();
  }

  // An operation that may leave the slot's content counts behind its places.
  void noteDrift(std::size_t slot, bool drifts) {
    if (drifts) countsAdrift[slot] = true;
  }

  bool decodeOpen(const Op& op, std::size_t slot, std::ostringstream& what, Call& call) {
    const auto& a = op.arg;
    const AclType type = typeOf(a[1]);
    const ApiType api = a[2] % 8 < 5 ? commit_ : static_cast<ApiType>(a[2] % 8 - 4);
    const std::string name = api == detach_ && a[0] % 4 == 3 ? "" : kNames[a[0] % 3];
    const bool standard = a[3] % 16 == 0;
    // The argument left null, when the kind says so.
    enum Null : std::uint8_t { none, config, hwConfig, intfConfig, statusDpDir, udfAlias, paramConfig, aclStatus };
    static constexpr const char* kNullNames[] = {"",
                                                 " without config",
                                                 " without hwConfig",
                                                 " without intfConfig",
                                                 " without statusDpDir",
                                                 " without udfAlias",
                                                 " without paramConfig",
                                                 " without aclStatus"};
    const Null null = op.kind == OpKind::openWithNull ? static_cast<Null>(1 + (a[3] / 16) % 7) : none;
    what << "slot " << slot << " open " << (name.empty() ? "\"\"" : name) << " " << type << " " << api
         << (standard ? " standard" : "") << kNullNames[null];
    call.nullArgument = null == config || null == hwConfig;
    call.opens = !call.nullArgument;
    call.library = [=, this] {
      Ptr<ApiSm> opened =
          apiSmFactory(String(name), type, standard, api, null == config ? nullptr : acl.config,
                       null == paramConfig ? nullptr : acl.paramConfig, null == intfConfig ? nullptr : acl.intfConfig,
                       null == hwConfig ? nullptr : acl.hwConfig, null == aclStatus ? nullptr : acl.status,
                       null == statusDpDir ? nullptr : acl.statusDpDir, null == udfAlias ? nullptr : acl.udfAlias);
      dropObservers(slot);
      sessions[slot] = opened;
      return 0;
    };
    if (call.nullArgument) {
      call.model = [] { return kNullArgument; };
      return true;
    }
    call.model = [=, this] {
      model.openSession(static_cast<int>(slot), name, type, api, standard);
      Session& s = *model.sessions[slot];
      s.intfConfig = null != intfConfig;
      s.dataplanes = null != statusDpDir;
      s.capabilities = null != paramConfig;
      return 0;
    };
    return true;
  }

  bool decodeConfigSession(const std::array<std::uint8_t, 4>& a, std::ostringstream& what, Call& call) {
    const AclType type = typeOf(a[1]);
    const std::string name = kNames[a[2] % 3];
    switch (a[0] % 4) {
      case 0:  // drop the first rule (creates the ACL when missing)
        what << "config session: drop the first rule of " << name << " " << type;
        call.library = [=, this] {
          ::Acl::AclConfigSession config(acl);
          Ptr<AclSubConfig> v = config.newVersion(type, String(name));
          for (const auto& [place, id] : v->ruleBySequence()) {
            const ::Acl::UniqueId gone = id;
            v->ruleBySequenceDel(place);
            v->ipRuleByIdDel(gone);
            v->ip6RuleByIdDel(gone);
            v->macRuleByIdDel(gone);
            break;
          }
          return config.commit() ? kChanged : kUnchanged;
        };
        call.model = [=, this] { return model.configDropFirstRule(type, name) ? kChanged : kUnchanged; };
        return true;
      case 1:  // every place one higher: same rules, so the running version is patched
        what << "config session: renumber " << name << " " << type;
        call.library = [=, this] {
          ::Acl::AclConfigSession config(acl);
          Ptr<::Acl::Input::AclTypeConfig> types = config.config()->config(type);
          Ptr<::Acl::AclConfig> candidate = types ? types->acl(String(name)) : nullptr;
          if (candidate) renumberUnlessAtTop(*candidate->currCfg());
          return config.commit() ? kChanged : kUnchanged;
        };
        call.model = [=, this] { return model.configRenumber(type, name) ? kChanged : kUnchanged; };
        return true;
      case 2:
        what << "config session: delete " << name << " " << type;
        call.library = [=, this] {
          ::Acl::AclConfigSession config(acl);
          if (auto types = config.config()->config(type)) types->aclDel(String(name));
          return config.commit() ? kChanged : kUnchanged;
        };
        call.model = [=, this] { return model.configDeleteAcl(type, name) ? kChanged : kUnchanged; };
        return true;
      default: {
        const std::string intf = kIntfs[a[3] % 2];
        const AclDirection direction = directionOf(a[3] / 2);
        what << "config session: bind or unbind " << intf << " " << direction << " " << name << " " << type;
        call.library = [=, this] {
          ::Acl::AclConfigSession config(acl);
          Ptr<::Acl::AclIntf> bindings = config.intfConfig()->configIs(type)->intfIs(direction);
          if (bindings->intf().contains(IntfId(String(intf)))) {
            bindings->intfDel(IntfId(String(intf)));
          } else {
            bindings->intfIs(IntfId(String(intf)), String(name));
          }
          return config.commit() ? kChanged : kUnchanged;
        };
        call.model = [=, this] {
          return model.configToggleBinding(type, direction, intf, name) ? kChanged : kUnchanged;
        };
        return true;
      }
    }
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

  // Installs an observer on the slot's session; it runs in later steps.
  bool decodeObserve(std::size_t slot, const std::array<std::uint8_t, 4>& a, std::ostringstream& what) {
    ApiSm* s = sessions[slot].get();
    auto arm = [&](Watch watch, std::unique_ptr<fwk::Entity::Reactor> observer) {
      armed.reset();  // one at a time: which of two would throw first is not the model's to say
      armed.emplace(std::move(observer), watch, slot);
    };
    switch (a[0] % 16) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
        what << "let go of the session at its result";
        observers[slot].push_back(std::make_unique<Releaser>(*this, slot));
        releasing[slot] = true;
        return true;
      case 5:
      case 6:
      case 7:
        what << "throw at the next change of its state";
        arm(Watch::state, std::make_unique<StateThrower>(*this, s));
        return true;
      case 8:
      case 9: {
        const Ptr<AclSubConfig> sp = s->currentAcl();
        if (!sp) return false;
        what << "throw at the next change of its places";
        arm(Watch::places, std::make_unique<PlacesThrower>(*this, sp.get()));
        return true;
      }
      case 10:
      case 11:
        what << "throw at the next request to the hardware";
        arm(Watch::requestTime, std::make_unique<RequestThrower>(*this, acl.hwConfig.get()));
        return true;
      case 12:
      case 13: {
        std::vector<std::pair<AclKey, Ptr<::Acl::AclConfig>>> all;
        for (AclType type : kTypes) {
          if (auto types = acl.config->config(type)) {
            for (const auto& [name, entry] : types->acl())
              all.emplace_back(AclKey{type, std::string(name.view())}, entry);
          }
        }
        if (all.empty()) return false;
        const auto& [key, watched] = all[a[1] % all.size()];
        what << "throw at the next change of the current version of " << key.second << " " << key.first;
        arm(Watch::current, std::make_unique<CurrentThrower>(*this, watched.get()));
        armed->acl = key;
        if (const AclState* m = modelled ? model.acl(key.first, key.second) : nullptr)
          armed->incarnation = m->incarnation;
        return true;
      }
      case 14:
        if (!s->currentAcl()) return false;
        what << "commit at the next change of its places";
        observers[slot].push_back(std::make_unique<Committer>(*this, slot));
        return true;
      default:
        what << "revert at errHw";
        observers[slot].push_back(std::make_unique<Reverter>(*this, slot));
        return true;
    }
  }

  void dropObservers(std::size_t slot) {
    observers[slot].clear();
    releasing[slot] = false;
    countsAdrift[slot] = false;
    if (armed && (armed->watch == Watch::state || armed->watch == Watch::places) && armed->slot == slot) armed.reset();
  }

  // ---- what the model says the step changes ----

  struct Before {
    std::array<bool, World::kSessions> held{};
    std::array<ApiState, World::kSessions> state{};
    std::array<int, World::kSessions> placeChanges{};
    double requestTime = 0;
    int current = 0;  // the watched ACL's current version, 0 when it is gone
  };

  int watchedCurrent() {
    if (!armed || armed->watch != Watch::current) return 0;
    const AclState* a = model.acl(armed->acl.first, armed->acl.second);
    return a && a->incarnation == armed->incarnation && a->current ? a->current->token : 0;
  }

  Before modelBefore() {
    Before b;
    for (std::size_t i = 0; i < sessions.size(); ++i) {
      if (!model.sessions[i]) continue;
      b.held[i] = true;
      b.state[i] = model.sessions[i]->state;
      b.placeChanges[i] = model.sessions[i]->placeChanges;
    }
    b.requestTime = model.requestTime;
    b.current = watchedCurrent();
    return b;
  }

  // The session in `slot` is the one it was before the step.
  bool sameSession(const Before& b, std::size_t slot, const Call& call) {
    return b.held[slot] && model.sessions[slot] && !(call.opens && call.slot == slot);
  }
  bool stateChanged(const Before& b, std::size_t slot, const Call& call) {
    return sameSession(b, slot, call) && model.sessions[slot]->state != b.state[slot];
  }

  bool watchedChanges(const Before& b, const Call& call) {
    if (!armed) return false;
    switch (armed->watch) {
      case Watch::state:
        return stateChanged(b, armed->slot, call);
      case Watch::places:
        return sameSession(b, armed->slot, call) &&
               model.sessions[armed->slot]->placeChanges != b.placeChanges[armed->slot];
      case Watch::requestTime:
        return model.requestTime != b.requestTime;
      case Watch::current: {
        const int now = watchedCurrent();
        return b.current != 0 && now != 0 && now != b.current;
      }
    }
    return false;
  }

  // ---- comparing ----

  // Every slot's holding and state; all the rest of the sessions `full` says.
  std::string compareSessions(const std::function<bool(std::size_t)>& full) {
    for (std::size_t i = 0; i < sessions.size(); ++i) {
      const std::string who = "session " + std::to_string(i) + ": ";
      if (!sessions[i] != !model.sessions[i]) {
        return who + (sessions[i] ? "still held, the model let go of it" : "let go of, the model holds it");
      }
      if (!sessions[i]) continue;
      ApiSm& s = *sessions[i];
      const Session& m = *model.sessions[i];
      if (s.apiState() != m.state) {
        return who + "apiState " + std::string(stringValue(s.apiState()).view()) + ", model says " +
               std::string(stringValue(m.state).view());
      }
      if (!full(i)) continue;
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
      if (std::string fault = compareCounts(s, m, i); !fault.empty()) return who + fault;
    }
    return "";
  }

  // The content counts as the model keeps them, and the checker reporting exactly the counts
  // that no longer match the scratchpad.
  std::string compareCounts(const ApiSm& s, const Session& m, std::size_t slot) {
    if (s.spRuleMapInitialized() != m.countsKept) return "content counts kept differently from the model";
    // Every count the library keeps is the model's, and the model keeps no other (0 counts
    // nothing, on either side).
    auto countOf = [](const auto& counts, const auto& key) {
      auto it = counts.find(key);
      return it == counts.end() ? 0u : it->second;
    };
    std::size_t kept = 0;
    bool same = true;
    auto read = [&](const auto& counts, const auto& contents, AclType family) {
      for (const auto& [rule, n] : counts) {
        if (n == 0) continue;
        ++kept;
        same = same && countOf(m.ruleCounts, RuleKey{family, contents.contentOf(rule)}) == n;
      }
    };
    read(s.spIpRuleMap(), ipRules(), AclType::ip);
    read(s.spIp6RuleMap(), ip6Rules(), AclType::ipv6);
    read(s.spMacRuleMap(), macRules(), AclType::mac);
    auto modelKept = [](const auto& counts) {
      return static_cast<std::size_t>(
          std::count_if(counts.begin(), counts.end(), [](const auto& e) { return e.second; }));
    };
    if (!same || kept != modelKept(m.ruleCounts)) return "rule content counts differ from the model";
    kept = 0;
    for (const auto& [remark, n] : s.spRemarkMap()) {
      if (n == 0) continue;
      ++kept;
      same = same && countOf(m.remarkCounts, std::string(remark.text().view())) == n;
    }
    if (!same || kept != modelKept(m.remarkCounts)) return "remark content counts differ from the model";

    const std::array<int, 4> drifted = m.countsAdrift();
    countsAdrift[slot] = drifted != std::array<int, 4>{};
    std::array<int, 4> reported{};
    for (const std::string& broken : invariantViolations(s)) {
      const int map = countMapOf(broken);
      if (map < 0) return broken;
      ++reported[static_cast<std::size_t>(map)];
    }
    for (std::size_t i = 0; i < 4; ++i) {
      if (reported[i] != drifted[i]) {
        return std::string(kCountMaps[i]) + std::to_string(reported[i]) + " counts reported adrift, model says " +
               std::to_string(drifted[i]);
      }
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
    if (acl.hwConfig->dpAclUpdateRequestTime() != model.requestTime) return "hardware request time differs";
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

  // Library alone: the invariants, except the counts of a session they can no longer hold for.
  std::string checkInvariants(const std::function<bool(std::size_t)>& full) {
    for (std::size_t i = 0; i < sessions.size(); ++i) {
      if (!sessions[i] || !full(i)) continue;
      for (const std::string& broken : invariantViolations(*sessions[i])) {
        const bool countsOnly = countMapOf(broken) >= 0 || broken.ends_with("has no record");
        if (!(countsAdrift[i] && countsOnly)) return "session " + std::to_string(i) + ": " + broken;
      }
    }
    return "";
  }

  // A scratchpad that came with a place holding no record (a version committed by an observer
  // in the middle of an edit) counts what it cannot find as default rules.
  static bool placeWithoutRecord(ApiSm& s) {
    const Ptr<AclSubConfig> sp = s.currentAcl();
    if (!sp) return false;
    for (const auto& [place, id] : sp->ruleBySequence()) {
      const bool found = s.aclType() == AclType::ip     ? sp->ipRuleById().find(id) != nullptr
                         : s.aclType() == AclType::ipv6 ? sp->ip6RuleById().find(id) != nullptr
                                                        : sp->macRuleById().find(id) != nullptr;
      if (!found) return true;
    }
    return false;
  }

  std::string snapshot() {
    return build::storeSnapshot({store.root().get(), sessions[0].get(), sessions[1].get(), sessions[2].get()});
  }

  // After a failed step: what is still reachable reads as before, and nothing is new; only
  // what a session let go of in the step may be gone.
  std::string sameAsBefore(const std::string& before, bool letGo) {
    const std::string after = snapshot();
    if (after == before) return "";
    const auto was = entitiesOf(before);
    const auto now = entitiesOf(after);
    for (const auto& [id, text] : now) {
      auto it = was.find(id);
      if (it == was.end()) return "the failed step left a new entity: " + text;
      if (it->second != text) return "the failed step left an entity changed: " + it->second + "now\n" + text;
    }
    return letGo ? "" : "the failed step left entities gone";
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

  std::ostringstream description;  // the step's, reused

  std::string step(const Op& op) {
    model.clock += 1;
    description.str({});
    Call call;
    if (!decode(op, description, call)) {
      said = "skipped";
      return "";
    }
    ++ran;
    said = description.str();
    history += said + "\n";
    if (!call.library) return "";  // an observer installed: it acts in later steps

    // The model goes first, so that it can say whether the library must throw.
    std::optional<World> undo;
    Before before;
    int want = 0;
    bool mustThrow = false;
    if (modelled) {
      if (armed || call.nullArgument) undo.emplace(model.clone());
      before = modelBefore();
      want = call.model();
      mustThrow = watchedChanges(before, call);
    }
    // Only an armed observer or a null argument makes the library throw. The store is
    // photographed before the steps where that may happen and the model cannot say what
    // they do (a reentrant observer may act, or the library runs alone); a refused null
    // argument is otherwise held to the model, which does nothing.
    const bool reentrant = reentrantMayAct(call);
    const bool tookSnapshot = modelled ? armed && (mustThrow || reentrant)
                                       : (armed && (reentrant || mayReachWatched(call))) || call.nullArgument;
    const std::string snapshotBefore = tookSnapshot ? snapshot() : std::string();
    const std::int64_t entitiesBefore = fwk::Entity::liveCount();

    const std::array<bool, World::kSessions> releasers = releasing;
    released.fill(false);
    throwerFired = false;
    reentered = false;
    int got = 0;
    bool threw = false;
    try {
      got = call.library();
    } catch (const ObserverFault&) {
      threw = true;
    } catch (const fwk::NullArgumentError&) {
      if (!call.nullArgument) return said + ": threw NullArgumentError";
      threw = true;
      got = kNullArgument;
    } catch (const std::exception& e) {
      return said + ": threw " + e.what();
    }
    if (armed && throwerFired) armed.reset();  // spent
    for (std::size_t i = 0; i < sessions.size(); ++i) {
      if (released[i]) dropObservers(i);
    }
    if (armed && !armed->observer->notifier()) armed.reset();  // what it watches is gone

    // An observer that commits or reverts inside another operation does what the model
    // cannot follow: from this step on the library runs alone.
    const bool followed = modelled && !reentered;
    if (throwerFired && !threw) return said + ": an observer's exception was lost";
    if (call.nullArgument && !threw) return said + ": a null argument was accepted";
    if (followed && threw && !call.nullArgument && !mustThrow) {
      return said + ": threw, though the model says nothing watched changed";
    }
    if (followed && !threw && mustThrow)
      return said + ": the model says a watched value changed, but nothing was heard";
    if (threw && tookSnapshot) {
      const bool letGo = std::find(released.begin(), released.end(), true) != released.end();
      if (std::string fault = sameAsBefore(snapshotBefore, letGo); !fault.empty()) {
        return said + ": " + fault;
      }
    } else if (threw && !call.nullArgument) {
      return said + ": threw where no observer could have";
    } else if (threw && fwk::Entity::liveCount() != entitiesBefore) {
      return said + ": the refused session left entities behind";
    }
    if (!followed) {
      if (modelled) {
        modelled = false;
        for (std::size_t i = 0; i < sessions.size(); ++i) {
          countsAdrift[i] = countsAdrift[i] || (sessions[i] && placeWithoutRecord(*sessions[i]));
        }
      }
      if (call.opens && sessions[call.slot]) countsAdrift[call.slot] = placeWithoutRecord(*sessions[call.slot]);
      return prefixed(checkInvariants(reached(call)));
    }

    if (threw) {
      model = std::move(*undo);  // the step never happened
      for (std::size_t i = 0; i < sessions.size(); ++i) {
        if (released[i]) model.sessions[i].reset();  // gone before the report was taken back
      }
    } else {
      if (got != want) return said + ": returned " + resultText(got) + ", model says " + resultText(want);
      for (std::size_t i = 0; i < sessions.size(); ++i) {
        const bool predicted = releasers[i] && stateChanged(before, i, call) &&
                               (model.sessions[i]->state == succeeded || model.sessions[i]->state == errHw);
        if (released[i] != predicted) {
          return said + ": session " + std::to_string(i) +
                 (released[i] ? " let go of, the model says its state did not become a result"
                              : " kept, though its state became a result");
        }
        if (released[i]) model.sessions[i].reset();
      }
    }
    // A failed step is compared whole: the store came back from wherever the step had gone.
    return prefixed(compare(threw ? everything : reached(call), threw || call.store));
  }

  static constexpr auto everything = [](std::size_t) { return true; };

  // The sessions a step can change: its own, all (a dataplane report), or none.
  static std::function<bool(std::size_t)> reached(const Call& call) {
    switch (call.sessions) {
      case Call::Sessions::none:
        return [](std::size_t) { return false; };
      case Call::Sessions::slot:
        return [slot = call.slot](std::size_t i) { return i == slot; };
      case Call::Sessions::all:
        break;
    }
    return everything;
  }

  std::string compare(const std::function<bool(std::size_t)>& sessionsReached, bool storeReached) {
    if (std::string fault = compareSessions(sessionsReached); !fault.empty()) return fault;
    if (!storeReached) return "";
    if (std::string fault = compareAcls(); !fault.empty()) return fault;
    return compareBindings();
  }

  std::string prefixed(const std::string& fault) const { return fault.empty() ? fault : said + ": " + fault; }
};

Runner::Runner() : impl_(std::make_unique<Impl>()) {}
Runner::~Runner() {
  // Observers go before the sessions they watch, as a handler's owner would drop them.
  for (auto& slot : impl_->observers) slot.clear();
  impl_->armed.reset();
}

std::string Runner::step(const Op& op) {
  return impl_->step(op);
}

std::string Runner::finish() {
  Impl& w = *impl_;
  // Steps compare what they can change; whatever else changed shows here.
  const std::string fault = w.modelled ? w.compare(Impl::everything, true) : w.checkInvariants(Impl::everything);
  if (!fault.empty()) return fault;
  for (auto& slot : w.observers) slot.clear();
  w.armed.reset();
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
bool Runner::modelled() const {
  return impl_->modelled;
}

}  // namespace model
