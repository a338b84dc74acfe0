// Requests, runs, the diff of a table against a version, the status written back, and the
// first-match walk.
#include "aclkit/agent/Dataplane.h"

#include <string>
#include <utility>
#include <vector>

#include "aclkit/model/Family.h"

namespace Agent {

using namespace Acl;

RuleAction Entry::action() const {
  return std::visit([](const auto& r) { return r.action(); }, rule);
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

// The entries of `version` in sequence order, each kept from `held` when the same rule sits at
// the same sequence there: one merge walk over two ordered sequences.
template <class F>
std::vector<Entry> diff(const AclSubConfig& version, const std::vector<Entry>& held, RunReport& report) {
  using R = typename F::Rule;
  const auto& records = F::records(version);
  std::vector<Entry> next;
  next.reserve(version.ruleBySequence().size());
  auto old = held.begin();
  for (const auto& [sequence, id] : version.ruleBySequence()) {
    const R* rule = records.find(id);
    if (!rule) continue;  // a sequence without a record of the family holds no rule
    for (; old != held.end() && old->sequence < sequence; ++old) ++report.removed;
    if (old != held.end() && old->sequence == sequence) {
      const Entry& there = *old++;
      if (std::get<R>(there.rule) == *rule) {
        ++report.kept;
        next.push_back(there);
        continue;
      }
      ++report.removed;
    }
    ++report.added;
    next.push_back(Entry{sequence, *rule});
  }
  report.removed += static_cast<std::size_t>(held.end() - old);
  return next;
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
  std::map<TableKey, Table> next;
  if (!forcedError_.empty()) {
    report.errorKey = "forced";
    report.error = name().str() + " could not program its lists: " + forcedError_.str();
  } else {
    reprogram(next, report);
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
    tables_ = std::move(next);
    entryCount_ = report.added + report.kept;
  } else {
    report.kept = entryCount_;
  }
  lastRun_ = report;
  publish(report);
}

// Builds the tables the bindings ask for into `next`, counting against what is held; what is
// held is not touched, so a run that is refused, or throws, leaves it as it was.
void Dataplane::reprogram(std::map<TableKey, Table>& next, RunReport& report) const {
  static const std::vector<Entry> none;
  const std::map<TableKey, Wanted> wanted = boundLists(*config_, *intfConfig_);
  for (const auto& [key, want] : wanted) {
    auto held = tables_.find(key);
    const std::vector<Entry>& old = held == tables_.end() ? none : held->second.entries;
    const AclSubConfig& version = *want.version;
    Table& table = next[key];
    table.acl = want.acl;
    withFamily(familyOrMac(key.family),
               [&](auto family) { table.entries = diff<decltype(family)>(version, old, report); });
  }
  for (const auto& [key, table] : tables_) {
    if (!wanted.contains(key)) report.removed += table.entries.size();
  }
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
    for (const Entry& entry : table.entries) {
      if (matches(std::get<R>(entry.rule), packet)) {
        verdict.entry = entry;
        verdict.action = entry.action();
        return;
      }
    }
  });
  return verdict;
}

}  // namespace Agent
