// Requests, runs, the diff of a table against a version, the status written back, and the
// first-match walk.
#include "aclkit/agent/Dataplane.h"

#include <string>
#include <utility>
#include <vector>

#include "aclkit/model/Family.h"

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

// One merge walk of the version against the held entries, both in sequence order: a rule at
// a sequence that holds the same rule is kept, every other held entry goes to `drop` and every
// other rule is copied into `add`. Nothing held is touched.
template <class F>
void diff(const AclSubConfig& version, const std::map<U32, Rule>& held, std::vector<U32>& drop,
          std::map<U32, Rule>& add, RunReport& report) {
  using R = typename F::Rule;
  const auto& records = F::records(version);
  auto old = held.begin();
  const auto dropOld = [&] {
    drop.push_back(old->first);
    ++report.removed;
    ++old;
  };
  for (const auto& [sequence, id] : version.ruleBySequence()) {
    const R* rule = records.find(id);
    if (!rule) continue;  // a sequence without a record of the family holds no rule
    while (old != held.end() && old->first < sequence) dropOld();
    if (old != held.end() && old->first == sequence) {
      if (std::get<R>(old->second) == *rule) {
        ++report.kept;
        ++old;
        continue;
      }
      dropOld();
    }
    ++report.added;
    add.emplace_hint(add.end(), sequence, *rule);
  }
  while (old != held.end()) dropOld();
}

std::string count(std::size_t entries) {
  return std::to_string(entries) + (entries == 1 ? " entry" : " entries");
}

}  // namespace

void Dataplane::RequestReactor::dpAclUpdateRequestTimeChanged() {
  owner_.event(true);
}

Dataplane::Dataplane(const AclMounts& mounts, const String& name)
    : config_(mounts.config),
      intfConfig_(mounts.intfConfig),
      hw_(mounts.hwConfig),
      status_(mounts.statusDpDir->entityIs<StatusDp>(name)) {
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
  for (const auto& [key, want] : wanted) {
    const AclSubConfig& version = *want.version;
    auto held = tables_.find(key);
    std::vector<U32>* drop = nullptr;
    std::map<U32, Rule>* add = nullptr;
    if (held == tables_.end()) {
      Table& fresh = plan.fresh[key];
      fresh.acl = want.acl;
      add = &fresh.entries;
    } else {
      Plan::Edit& edit = plan.edits.emplace_back(Plan::Edit{held, want.acl, {}, {}});
      drop = &edit.drop;
      add = &edit.add;
    }
    static const std::map<U32, Rule> none;
    const std::map<U32, Rule>& old = held == tables_.end() ? none : held->second.entries;
    std::vector<U32> unused;
    withFamily(familyOrMac(key.family),
               [&](auto family) { diff<decltype(family)>(version, old, drop ? *drop : unused, *add, report); });
  }
  for (auto it = tables_.begin(); it != tables_.end(); ++it) {
    if (wanted.contains(it->first)) continue;
    report.removed += it->second.entries.size();
    plan.gone.push_back(it);
  }
  return plan;
}

// Erasing and splicing prepared nodes allocate nothing: this part does not fail half-way.
void Dataplane::apply(Plan& plan) {
  for (auto table : plan.gone) tables_.erase(table);
  for (Plan::Edit& edit : plan.edits) {
    Table& table = edit.table->second;
    table.acl = edit.acl;
    for (U32 sequence : edit.drop) table.entries.erase(sequence);
    table.entries.merge(edit.add);
  }
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
  withFamily(familyOrMac(packet.family), [&](auto family) {
    using R = typename decltype(family)::Rule;
    for (const auto& [sequence, rule] : table.entries) {
      if (matches(std::get<R>(rule), packet)) {
        verdict.entry = Entry{sequence, rule};
        verdict.action = verdict.entry->action();
        return;
      }
    }
  });
  return verdict;
}

}  // namespace Agent
