#include "aclkit/client/Replace.h"

#include <algorithm>
#include <map>
#include <optional>
#include <stdexcept>
#include <tuple>
#include <unordered_map>

namespace Client {

namespace {

std::string entryName(U32 sequence) {
  return "entry " + std::to_string(sequence);
}

// The entries in sequence order, without copying them.
std::vector<const ListEntry*> bySequence(const std::vector<ListEntry>& entries) {
  std::vector<const ListEntry*> sorted;
  sorted.reserve(entries.size());
  for (const ListEntry& e : entries) sorted.push_back(&e);
  auto earlier = [](const ListEntry* a, const ListEntry* b) { return a->sequence < b->sequence; };
  if (!std::is_sorted(sorted.begin(), sorted.end(), earlier)) std::stable_sort(sorted.begin(), sorted.end(), earlier);
  return sorted;
}

// An entry of the current list where it is kept, read without a copy: replacing a large list
// must not cost a copy of it before the session's own.
struct Held {
  U32 sequence = 0;
  std::variant<const Acl::IpRuleConfig*, const Acl::Ip6RuleConfig*, const Acl::MacRuleConfig*, const Acl::RemarkConfig*>
      body;
};
static_assert(std::variant_size_v<decltype(Held::body)> == std::variant_size_v<Text::EntryBody>);

std::size_t hashOf(const Text::EntryBody& body) {
  return std::visit([](const auto& record) { return record.hash(static_cast<std::uint32_t>(0)); }, body) ^ body.index();
}

std::size_t hashOf(const Held& held) {
  return std::visit([](const auto* record) { return record->hash(static_cast<std::uint32_t>(0)); }, held.body) ^
         held.body.index();
}

bool same(const Held& held, const Text::EntryBody& body) {
  if (held.body.index() != body.index()) return false;
  return std::visit([&](const auto* record) { return *record == std::get<std::decay_t<decltype(*record)>>(body); },
                    held.body);
}

// The entries of a version in sequence order, rules before a remark at the same place, as
// entriesOf gives them.
std::vector<Held> heldOf(const Acl::AclSubConfig& version, AclType type) {
  std::vector<Held> held;
  held.reserve(version.ruleBySequence().size() + version.remarkBySequence().size());
  auto remark = version.remarkBySequence().begin();
  const auto remarksEnd = version.remarkBySequence().end();
  Acl::withFamily(Acl::familyOrMac(type), [&](auto family) {
    using F = decltype(family);
    static const typename F::Rule none;  // a place without its record reads as the default rule
    for (const auto& [sequence, id] : version.ruleBySequence()) {
      for (; remark != remarksEnd && remark->first < sequence; ++remark)
        held.push_back({remark->first, &remark->second});
      const typename F::Rule* rule = F::records(version).find(id);
      held.push_back({sequence, rule ? rule : &none});
    }
  });
  for (; remark != remarksEnd; ++remark) held.push_back({remark->first, &remark->second});
  return held;
}

bool isOfFamily(const Text::EntryBody& body, AclType type) {
  if (std::holds_alternative<Acl::RemarkConfig>(body)) return true;
  switch (Acl::familyOrMac(type)) {
    case AclType::ip:
      return std::holds_alternative<Acl::IpRuleConfig>(body);
    case AclType::ipv6:
      return std::holds_alternative<Acl::Ip6RuleConfig>(body);
    default:
      return std::holds_alternative<Acl::MacRuleConfig>(body);
  }
}

AclApi::ApiState add(AclApi::ApiSm& session, const ListEntry& entry) {
  return std::visit(
      [&](const auto& body) {
        using Body = std::decay_t<decltype(body)>;
        if constexpr (std::is_same_v<Body, Acl::IpRuleConfig>) return session.addIpRule(entry.sequence, body);
        if constexpr (std::is_same_v<Body, Acl::Ip6RuleConfig>) return session.addIp6Rule(entry.sequence, body);
        if constexpr (std::is_same_v<Body, Acl::MacRuleConfig>) return session.addMacRule(entry.sequence, body);
        if constexpr (std::is_same_v<Body, Acl::RemarkConfig>) return session.addRemark(body, entry.sequence);
      },
      entry.body);
}

bool settled(AclApi::ApiState state) {
  return state == AclApi::succeeded || state == AclApi::waitingForHw || state == AclApi::errHw;
}

}  // namespace

namespace {

// `have` in sequence order.
ReplaceReport planFor(const std::vector<Held>& have, const std::vector<const ListEntry*>& want) {
  for (std::size_t i = 1; i < want.size(); ++i) {
    if (want[i]->sequence == want[i - 1]->sequence) {
      throw std::invalid_argument(entryName(want[i]->sequence) + " is given twice");
    }
  }
  ReplaceReport report;
  // Same place, same content: kept. What is left over on either side is matched by content.
  std::vector<const Held*> gone;
  std::vector<const ListEntry*> fresh;
  auto h = have.begin();
  auto w = want.begin();
  while (h != have.end() || w != want.end()) {
    if (w == want.end() || (h != have.end() && h->sequence < (*w)->sequence)) {
      gone.push_back(&*h++);
    } else if (h == have.end() || (*w)->sequence < h->sequence) {
      fresh.push_back(*w++);
    } else {
      if (same(*h, (*w)->body)) {
        report.kept.push_back(h->sequence);
      } else {
        gone.push_back(&*h);
        fresh.push_back(*w);
      }
      ++h;
      ++w;
    }
  }
  // Equal contents pair up in sequence order, so a renumbered list keeps its order.
  std::unordered_map<std::size_t, std::vector<std::size_t>> byContent;
  for (std::size_t i = 0; i < gone.size(); ++i) byContent[hashOf(*gone[i])].push_back(i);
  std::vector<bool> taken(gone.size(), false);
  for (const ListEntry* entry : fresh) {
    bool moved = false;
    if (auto bucket = byContent.find(hashOf(entry->body)); bucket != byContent.end()) {
      for (std::size_t i : bucket->second) {
        if (taken[i] || !same(*gone[i], entry->body)) continue;
        taken[i] = true;
        report.moved.emplace_back(gone[i]->sequence, entry->sequence);
        moved = true;
        break;
      }
    }
    if (!moved) report.added.push_back(entry->sequence);
  }
  for (std::size_t i = 0; i < gone.size(); ++i) {
    if (!taken[i]) report.removed.push_back(gone[i]->sequence);
  }
  return report;
}

}  // namespace

ReplaceReport planReplace(const std::vector<ListEntry>& current, const std::vector<ListEntry>& desired) {
  std::vector<Held> have;
  have.reserve(current.size());
  for (const ListEntry* e : bySequence(current)) {
    have.push_back({e->sequence, {}});
    std::visit([&](const auto& record) { have.back().body = &record; }, e->body);
  }
  return planFor(have, bySequence(desired));
}

ReplaceResult replaceList(const Library& library, const String& name, AclType type,
                          const std::vector<ListEntry>& desired, bool standard, bool cleanup,
                          const Acl::AclConfigSession* candidate) {
  for (const ListEntry& entry : desired) {
    if (entry.sequence == 0) {
      throw std::invalid_argument("entry 0: a desired entry needs a sequence number from 1 up");
    }
    if (!isOfFamily(entry.body, type)) {
      throw std::invalid_argument(entryName(entry.sequence) + ": not an entry of the " + std::string(keyword(type)) +
                                  " family");
    }
  }
  if (candidate && !candidate->isOpen()) throw std::invalid_argument("the configuration session is closed");
  const Ptr<Acl::Input::Config> config = candidate ? candidate->config() : library.mounts().config;
  const Ptr<Acl::Input::AclTypeConfig> table = config ? config->config(type) : nullptr;
  const Ptr<Acl::AclConfig> live = table ? table->acl(name) : nullptr;
  // Counted: the version stays while the entries point into it.
  const Ptr<Acl::AclSubConfig> version = live ? live->currCfg() : nullptr;
  const std::vector<Held> current = version ? heldOf(*version, type) : std::vector<Held>();
  const std::vector<const ListEntry*> wanted = bySequence(desired);

  ReplaceResult result;
  result.report = planFor(current, wanted);
  const ReplaceReport& plan = result.report;
  if (live && !plan.changes()) return result;

  // What will be written, in sequence order, checked before any session opens.
  std::vector<U32> places = plan.added;
  for (const auto& [from, to] : plan.moved) places.push_back(to);
  std::sort(places.begin(), places.end());
  std::vector<const ListEntry*> writes;
  writes.reserve(places.size());
  for (U32 sequence : places) {
    writes.push_back(*std::lower_bound(wanted.begin(), wanted.end(), sequence,
                                       [](const ListEntry* e, U32 s) { return e->sequence < s; }));
  }
  const bool isStandard = live ? live->standard() : standard && type == AclType::ip;
  for (const ListEntry* entry : writes) {
    if (const auto* rule = std::get_if<Acl::IpRuleConfig>(&entry->body); rule && isStandard) {
      try {
        static_cast<void>(Text::formatStandard(*rule));
      } catch (const std::invalid_argument& e) {
        throw std::invalid_argument(entryName(entry->sequence) + ": a standard list cannot hold it: " + e.what());
      }
    }
    if (std::optional<std::string> refusal = library.payloadRefusal(entry->body, type)) {
      throw std::invalid_argument(entryName(entry->sequence) + ": " + *refusal);
    }
  }

  result.session = candidate ? library.session(name, type, AclApi::commit_, isStandard, *candidate)
                             : library.session(name, type, AclApi::commit_, isStandard);
  AclApi::ApiSm& session = *result.session;
  // Removals as ranges of entries that are neighbours in the current list.
  std::vector<U32> removals = plan.removed;
  for (const auto& [from, to] : plan.moved) removals.push_back(from);
  std::sort(removals.begin(), removals.end());
  auto next = removals.begin();
  std::optional<std::pair<U32, U32>> run;
  auto flush = [&]() -> bool {
    if (!run) return true;
    result.state = session.removeRuleBySequence(run->first, run->second);
    run.reset();
    return result.state == AclApi::succeeded;
  };
  for (const Held& entry : current) {
    if (next != removals.end() && *next == entry.sequence) {
      run = run ? std::pair(run->first, entry.sequence) : std::pair(entry.sequence, entry.sequence);
      ++next;
    } else if (!flush()) {
      return result;
    }
  }
  if (!flush()) return result;
  for (const ListEntry* entry : writes) {
    result.state = add(session, *entry);
    if (result.state != AclApi::succeeded) return result;
  }
  result.state = cleanup ? session.commit() : session.commitExt(false);
  // Programmed by every dataplane: there is nothing left to revert, and the replaced version
  // would otherwise stay in the list for as long as the list.
  if (result.state == AclApi::succeeded && !cleanup) session.cleanupOldConfig();
  return result;
}

// ---- bindings ----------------------------------------------------------------------------------

namespace {

using BindingKey = std::tuple<AclType, AclDirection, String>;

BindingKey keyOf(const Binding& b) {
  return {b.type, b.direction, b.interface};
}

}  // namespace

std::vector<Binding> bindingsOf(const Acl::IntfConfig& bindings) {
  std::vector<Binding> all;
  for (const auto& [type, family] : bindings.config()) {
    for (const auto& [direction, table] : family->intf()) {
      for (const auto& [intf, list] : table->intf()) all.push_back({intf.name(), direction, type, list});
    }
  }
  std::sort(all.begin(), all.end(), [](const Binding& a, const Binding& b) { return keyOf(a) < keyOf(b); });
  return all;
}

BindingsResult replaceBindings(const Library& library, const std::vector<Binding>& desired,
                               const Acl::AclConfigSession* candidate) {
  std::map<BindingKey, String> want;
  for (const Binding& b : desired) {
    const std::string where = std::string(keyword(b.type)) + " " + std::string(stringValue(b.direction).view()) +
                              " on interface " + std::string(b.interface.view());
    if (b.interface.empty() || b.list.empty()) {
      throw std::invalid_argument("a binding needs an interface and a list name (" + where + ")");
    }
    if (auto [at, added] = want.emplace(keyOf(b), b.list); !added && at->second != b.list) {
      throw std::invalid_argument("two lists bound " + where + ": " + std::string(at->second.view()) + " and " +
                                  std::string(b.list.view()));
    }
  }
  if (candidate && !candidate->isOpen()) throw std::invalid_argument("the configuration session is closed");
  const Ptr<Acl::IntfConfig> intfConfig = candidate ? candidate->intfConfig() : library.mounts().intfConfig;
  const std::vector<Binding> current = intfConfig ? bindingsOf(*intfConfig) : std::vector<Binding>();

  BindingsResult result;
  std::vector<BindingChange> kept;
  auto open = [&](const Binding& b, AclApi::ApiType api) {
    return candidate ? library.session(b.list, b.type, api, false, *candidate) : library.session(b.list, b.type, api);
  };
  auto run = [&](BindingChange change) {
    result.changes.push_back(std::move(change));
    return settled(result.changes.back().state);
  };
  for (const Binding& b : current) {
    const auto wanted = want.find(keyOf(b));
    if (wanted != want.end() && wanted->second == b.list) {
      kept.push_back({BindingChange::Kind::kept, b, AclApi::succeeded, nullptr});
      want.erase(wanted);
      continue;
    }
    if (wanted != want.end()) continue;  // rebound by the attach below
    Ptr<AclApi::ApiSm> session = open(b, AclApi::detach_);
    const AclApi::ApiState state = session->detach(b.interface, b.direction);
    if (!run({BindingChange::Kind::detached, b, state, session})) return result;
  }
  for (const auto& [key, list] : want) {
    const Binding b{std::get<2>(key), std::get<1>(key), std::get<0>(key), list};
    Ptr<AclApi::ApiSm> session = open(b, AclApi::attach_);
    const AclApi::ApiState state = session->attach(b.interface, b.direction);
    if (!run({BindingChange::Kind::attached, b, state, session})) return result;
  }
  for (BindingChange& change : kept) result.changes.push_back(std::move(change));
  return result;
}

}  // namespace Client
