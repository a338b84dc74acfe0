// Requests, runs, the diff of a table against a version, the status written back, and the
// first-match walk.
#include "aclkit/agent/Dataplane.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "aclkit/model/Family.h"
#include "aclkit/platform/fwk/Hash.h"

namespace Agent {

using namespace Acl;

RuleAction actionOf(const Rule& rule) {
  return std::visit([](const auto& r) { return r.action(); }, rule);
}

RuleAction Entry::action() const {
  return actionOf(rule);
}

namespace {

// What one binding asks for: the list's name and the version to program.
struct Wanted {
  String acl;
  Ptr<const AclSubConfig> version;
};

std::map<TableKey, Wanted> boundLists(const Input::Config& config, const IntfConfig& intfConfig) {
  std::map<TableKey, Wanted> wanted;
  for (const auto& [type, bindings] : intfConfig.config()) {
    const Ptr<const Input::AclTypeConfig> lists = config.config(type);
    for (const auto& [direction, intfs] : bindings->intf()) {
      for (const auto& [intf, name] : intfs->intf()) {
        const Ptr<const AclConfig> acl = lists && !name.empty() ? lists->acl(name) : nullptr;
        if (!acl || !acl->currCfg()) continue;
        wanted.emplace(TableKey{type, intf, direction}, Wanted{name, acl->currCfg()});
      }
    }
  }
  return wanted;
}

// The version's places and records of the family, held by sharing: O(1), nothing copied.
template <class F>
Table snapshot(const String& acl, const AclSubConfig& version) {
  return Table{acl, version.ruleBySequence(), Table::Records(F::records(version)), 0};
}

// Counts what programming `next` over `held` (null for a table not held yet) changes, and sets
// next.size: an entry (a rule at a sequence) whose sequence and rule stay is kept, every other
// held entry is removed and every other new one added. What the two versions share is equal
// unread: the places are compared along their differing paths only, and a place that kept its
// identity can change only if that identity's record did; those records come from the
// storage the two record maps do not share. A list rebuilt apart from the one held (nothing
// shared) is one merge walk of both in sequence order.
// With `listed`, it also lists the entries that go and come.
template <class F>
void diff(const Table* held, Table& next, RunReport& report, TableChange* listed) {
  using R = typename F::Rule;
  using Records = fwk::HashMap<UniqueId, R>;
  const Records& records = std::get<Records>(next.records);
  auto ruleOf = [](const Records& byId, const UniqueId* id) { return id ? byId.find(*id) : nullptr; };
  if (!held) {
    next.forEachEntry([&](U32 sequence, const auto& rule) {
      if (listed) listed->added.push_back(Entry{sequence, Rule(rule)});
      return ++next.size, false;
    });
    report.added += next.size;
    return;
  }
  const Records& heldRecords = std::get<Records>(held->records);
  std::size_t added = 0;
  std::size_t removed = 0;
  auto change = [&](U32 sequence, const R* before, const R* after) {
    if (before && after && *before == *after) return;
    removed += before ? 1 : 0;
    added += after ? 1 : 0;
    if (!listed) return;
    if (before) listed->removed.push_back(Entry{sequence, *before});
    if (after) listed->added.push_back(Entry{sequence, *after});
  };
  // Identities whose record changed, unless so many did that a walk of everything is cheaper.
  std::unordered_set<UniqueId, fwk::Hash<UniqueId>> changedIds;
  bool walkAll = false;
  if (!heldRecords.sharesAllWith(records)) {
    const std::size_t budget = std::max(records.size(), heldRecords.size()) / 8 + 1;
    heldRecords.forEachUnsharedKey(records, [&](const UniqueId& id) {
      if (walkAll || changedIds.contains(id)) return;
      const R* before = heldRecords.find(id);
      const R* after = records.find(id);
      if (before && after && *before == *after) return;
      changedIds.insert(id);
      walkAll = changedIds.size() > budget;
    });
  }
  if (walkAll) {
    auto old = held->places.begin();
    auto now = next.places.begin();
    while (old != held->places.end() || now != next.places.end()) {
      if (now == next.places.end() || (old != held->places.end() && (*old).first < (*now).first)) {
        change((*old).first, ruleOf(heldRecords, &(*old).second), nullptr);
        ++old;
      } else if (old == held->places.end() || (*now).first < (*old).first) {
        change((*now).first, nullptr, ruleOf(records, &(*now).second));
        ++now;
      } else {
        change((*now).first, ruleOf(heldRecords, &(*old).second), ruleOf(records, &(*now).second));
        ++old;
        ++now;
      }
    }
  } else {
    std::unordered_set<U32> movedPlaces;
    held->places.forEachDifference(next.places,
                                   [&](const U32& sequence, const UniqueId* before, const UniqueId* after) {
                                     change(sequence, ruleOf(heldRecords, before), ruleOf(records, after));
                                     if (!changedIds.empty()) movedPlaces.insert(sequence);
                                   });
    // A place outside the differing paths holds the same identity in both versions.
    if (!changedIds.empty()) {
      for (const auto& [sequence, id] : next.places) {
        if (changedIds.contains(id) && !movedPlaces.contains(sequence)) {
          change(sequence, heldRecords.find(id), records.find(id));
        }
      }
    }
  }
  next.size = held->size - removed + added;
  report.added += added;
  report.removed += removed;
  report.kept += next.size - added;
}

std::string count(std::size_t entries) {
  return std::to_string(entries) + (entries == 1 ? " entry" : " entries");
}

}  // namespace

void Dataplane::RequestReactor::dpAclUpdateRequestTimeChanged() {
  owner_.event(true);
}

Dataplane::Dataplane(const AclMounts& mounts, const String& name, Programmer* programmer)
    : config_(mounts.config),
      intfConfig_(mounts.intfConfig),
      hw_(mounts.hwConfig),
      status_(mounts.statusDpDir->entityIs<StatusDp>(name)),
      programmer_(programmer) {
  status_->waitForHwStatusIs(true);
  reactor_.notifierIs(hw_.get());
  pending_ = true;
  event(false);
}

Dataplane::~Dataplane() = default;

const String& Dataplane::name() const noexcept {
  return status_->name();
}

bool Dataplane::waitForHwStatus() const noexcept {
  return status_->waitForHwStatus();
}

void Dataplane::waitForHwStatusIs(bool wait) {
  status_->waitForHwStatusIs(wait);
}

void Dataplane::tick() {
  event(false);
}

bool Dataplane::upToDate() const {
  return !pending_ && lastRun_.programmed() && status_->dpAclUpdateTime() >= hw_->dpAclUpdateRequestTime();
}

const Table* Dataplane::table(AclType family, const IntfId& intf, AclDirection direction) const {
  auto it = tables_.find(TableKey{family, intf, direction});
  return it == tables_.end() ? nullptr : &it->second;
}

// A request starts a count when none runs; every later event brings the answer one closer.
// Observers of an answer may make a new request: it is taken after the answer, not inside it.
void Dataplane::event(bool request) {
  if (answering_) {
    requestedWhileAnswering_ = requestedWhileAnswering_ || request;
    return;
  }
  if (request && !pending_) {
    pending_ = true;
    countdown_ = delay_;
  } else if (pending_ && countdown_ > 0) {
    --countdown_;
  }
  while (pending_ && countdown_ == 0) {
    pending_ = false;
    struct Answering {
      Dataplane& dp;
      explicit Answering(Dataplane& d) : dp(d) { dp.answering_ = true; }
      ~Answering() { dp.answering_ = false; }
      Answering(const Answering&) = delete;
      Answering& operator=(const Answering&) = delete;
    };
    {
      const Answering scope(*this);
      run();
    }
    if (std::exchange(requestedWhileAnswering_, false)) {
      pending_ = true;
      countdown_ = delay_;
    }
  }
}

void Dataplane::run() {
  RunReport report;
  report.run = lastRun_.run + 1;
  report.requestTime = hw_->dpAclUpdateRequestTime();
  Plan plan;
  if (!forcedError_.empty()) {
    report.errorKey = "forced";
    report.error = name().str() + " could not program its lists: " + forcedError_.str();
  } else {
    plan = prepare(report);
    const std::size_t total = report.added + report.kept;
    if (total > capacity_) {
      RunReport refused;
      refused.run = report.run;
      refused.requestTime = report.requestTime;
      report = refused;
      report.errorKey = "capacity";
      report.error = name().str() + " needs " + count(total) + " but holds at most " + std::to_string(capacity_) +
                     "; it keeps its " + count(entryCount_) + " programmed.";
    } else if (programmer_) {
      if (std::string why = programmer_->program(plan.changes); !why.empty()) {
        RunReport refused;
        refused.run = report.run;
        refused.requestTime = report.requestTime;
        report = refused;
        report.errorKey = programmer_->errorKey();
        report.error = name().str() + " could not program its lists: " + why;
      }
    }
  }
  if (report.programmed()) {
    apply(plan);
    entryCount_ = report.added + report.kept;
  } else {
    report.kept = entryCount_;
  }
  lastRun_ = report;
  publish(report);
}

// Everything that can fail or allocate happens here, before anything held changes: a run that
// is refused, or throws, leaves the tables as they were.
Dataplane::Plan Dataplane::prepare(RunReport& report) {
  Plan plan;
  const std::map<TableKey, Wanted> wanted = boundLists(*config_, *intfConfig_);
  for (const auto& entry : wanted) {
    const TableKey& key = entry.first;  // named, not bound: a lambda below reads them
    const Wanted& want = entry.second;
    auto held = tables_.find(key);
    withFamily(familyOrMac(key.family), [&](auto family) {
      using F = decltype(family);
      Table next = snapshot<F>(want.acl, *want.version);
      TableChange* listed = nullptr;
      if (programmer_) listed = &plan.changes.emplace_back(TableChange{key, false, nullptr, {}, {}});
      diff<F>(held == tables_.end() ? nullptr : &held->second, next, report, listed);
      if (listed && listed->added.empty() && listed->removed.empty()) plan.changes.pop_back();
      if (held == tables_.end()) {
        plan.fresh.emplace(key, std::move(next));
      } else {
        plan.edits.push_back(Plan::Edit{held, std::move(next)});
      }
    });
  }
  // The tables the changes leave, now that neither the edits nor the fresh tables move.
  if (!plan.changes.empty()) {
    std::map<TableKey, const Table*> next;
    for (const auto& [key, table] : plan.fresh) next.emplace(key, &table);
    for (const Plan::Edit& edit : plan.edits) next.emplace(edit.table->first, &edit.next);
    for (TableChange& change : plan.changes) change.table = next.at(change.key);
  }
  for (auto it = tables_.begin(); it != tables_.end(); ++it) {
    if (wanted.contains(it->first)) continue;
    report.removed += it->second.size;
    plan.gone.push_back(it);
    if (programmer_) plan.changes.push_back(TableChange{it->first, true, nullptr, {}, {}});
  }
  return plan;
}

// Erasing, moving shared storage and splicing prepared nodes allocate nothing: this part does
// not fail half-way.
void Dataplane::apply(Plan& plan) {
  for (auto table : plan.gone) tables_.erase(table);
  for (Plan::Edit& edit : plan.edits) edit.table->second = std::move(edit.next);
  tables_.merge(plan.fresh);
}

// Errors first, the time last: a session reads the errors when it sees the time.
void Dataplane::publish(const RunReport& report) {
  std::vector<String> stale;
  for (const auto& [key, message] : status_->error()) {
    if (key != report.errorKey) stale.push_back(key);
  }
  for (const String& key : stale) status_->errorDel(key);
  if (!report.programmed()) status_->errorIs(report.errorKey, report.error);
  status_->dpAclUpdateTimeIs(report.requestTime);
}

Verdict Dataplane::check(const IntfId& intf, AclDirection direction, const Packet& packet) const {
  Verdict verdict;
  auto found = tables_.find(TableKey{packet.family, intf, direction});
  if (found == tables_.end()) return verdict;
  const Table& table = found->second;
  verdict.acl = table.acl;
  table.forEachEntry([&](U32 sequence, const auto& rule) {
    if (!matches(rule, packet)) return false;
    verdict.entry = Entry{sequence, rule};
    verdict.action = verdict.entry->action();
    return true;
  });
  return verdict;
}

std::optional<Rule> Table::at(U32 sequence) const {
  const UniqueId* id = places.find(sequence);
  if (!id) return std::nullopt;
  return std::visit(
      [&](const auto& byId) -> std::optional<Rule> {
        const auto* rule = byId.find(*id);
        return rule ? std::optional<Rule>(*rule) : std::nullopt;
      },
      records);
}

}  // namespace Agent
