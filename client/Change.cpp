#include "aclkit/client/Change.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace Client {

namespace {

using ListKey = std::pair<AclType, String>;
using BindingKey = std::tuple<AclType, AclDirection, String>;
using State = Outcome::State;

constexpr AclType kFamilies[] = {AclType::ip, AclType::ipv6, AclType::mac};

Ptr<Acl::Input::Config> configOf(const Library& library, const Acl::AclConfigSession* candidate) {
  return candidate ? candidate->config() : library.mounts().config;
}

Ptr<Acl::AclConfig> listIn(Acl::Input::Config& config, AclType type, const String& name) {
  const Ptr<Acl::Input::AclTypeConfig> table = config.config(type);
  return table ? table->acl(name) : nullptr;
}

ListState stateOf(const Acl::AclConfig& list) {
  const AclType type = list.type();
  ListState state;
  state.type = type;
  state.name = list.name();
  state.standard = list.standard();
  if (const Ptr<Acl::AclSubConfig>& current = list.currCfg()) {
    state.counters = current->countersEnabled();
    state.fragments = current->fragmentsEnabled();
    state.entries = entriesOf(*current, type);
  }
  return state;
}

std::optional<ListState> stateOf(Acl::Input::Config& config, AclType type, const String& name) {
  const Ptr<Acl::AclConfig> list = listIn(config, type, name);
  return list ? std::optional(stateOf(*list)) : std::nullopt;
}

Ptr<AclApi::ApiSm> open(const Library& library, const String& name, AclType type, AclApi::ApiType api, bool standard,
                        const Acl::AclConfigSession* candidate) {
  return candidate ? library.session(name, type, api, standard, *candidate)
                   : library.session(name, type, api, standard);
}

bool settled(AclApi::ApiState state) {
  return state == AclApi::succeeded || state == AclApi::waitingForHw || state == AclApi::errHw;
}

std::vector<Refusal> messagesOf(const AclApi::ApiSm& session, const std::string& subject) {
  std::vector<Refusal> all;
  for (const auto& [key, message] : session.errString()) all.push_back({subject, message.str()});
  return all;
}

// What a session's refusal means for the change as a whole.
void stop(Outcome& outcome, const AclApi::ApiSm& session, const std::string& subject) {
  switch (const AclApi::ApiState state = session.apiState()) {
    case AclApi::errSessionCreate:
    case AclApi::errSessionDelete:
    case AclApi::errSessionModify: {
      const char* what = state == AclApi::errSessionCreate   ? "created"
                         : state == AclApi::errSessionDelete ? "deleted"
                                                             : "changed";
      outcome.state = State::conflict;
      outcome.refusals.push_back({subject, std::string("another session ") + what + " it since this edit began"});
      return;
    }
    case AclApi::errAclApi:
      outcome.state = State::refused;
      outcome.refusals = messagesOf(session, subject);
      return;
    case AclApi::errReadOnly:
      outcome.state = State::failed;
      outcome.refusals.push_back({subject, "read-only"});
      return;
    default:
      outcome.state = State::failed;
      outcome.refusals.push_back({subject, "refused (" + std::string(stringValue(state).view()) + ")"});
  }
}

// Writes a change through edit sessions, on a candidate or on the running configuration, and
// notes what it wrote (for an undo). Each step returns false when a session refused; the
// outcome then says why.
class Writer {
 public:
  Writer(const Library& library, const Acl::AclConfigSession* candidate, Outcome& outcome)
      : library_(library), candidate_(candidate), outcome_(outcome) {}

  bool all(const Change& change) {
    for (const auto& [type, name] : change.removals) {
      if (!remove(type, name)) return false;
    }
    for (const DesiredList& list : change.lists) {
      if (!this->list(list)) return false;
    }
    return !change.bindings || bindings(*change.bindings);
  }

  bool list(const DesiredList& desired) {
    // Commits on a candidate program nothing; on the running configuration they keep what a
    // revert after a hardware error needs.
    const bool cleanup = candidate_ != nullptr;
    const std::string subject = subjectOf(desired.type, desired.name);
    ReplaceResult r =
        replaceList(library_, desired.name, desired.type, desired.entries, desired.standard, cleanup, candidate_);
    if (r.session && !keep(r.session, subject, {desired.type, desired.name})) return false;
    outcome_.lists.push_back({desired.type, desired.name, std::move(r.report), r.session});
    const Ptr<Acl::AclConfig> live = listIn(*configOf(library_, candidate_), desired.type, desired.name);
    const Ptr<Acl::AclSubConfig> current = live ? live->currCfg() : nullptr;
    const bool counters = desired.counters && current && *desired.counters != current->countersEnabled();
    const bool fragments = desired.fragments && current && *desired.fragments != current->fragmentsEnabled();
    if (!counters && !fragments) return true;
    const Ptr<AclApi::ApiSm> s =
        open(library_, desired.name, desired.type, AclApi::commit_, live->standard(), candidate_);
    if (counters) static_cast<void>(*desired.counters ? s->enableCounters() : s->disableCounters());
    if (fragments) static_cast<void>(*desired.fragments ? s->enableFragments() : s->disableFragments());
    static_cast<void>(cleanup ? s->commit() : s->commitExt(false));
    if (s->apiState() == AclApi::succeeded && !cleanup) s->cleanupOldConfig();
    outcome_.lists.back().session = s;
    return keep(s, subject, {desired.type, desired.name});
  }

  bool remove(AclType type, const String& name) {
    const Ptr<Acl::AclConfig> live = listIn(*configOf(library_, candidate_), type, name);
    if (!live) return true;
    const Ptr<AclApi::ApiSm> s = open(library_, name, type, AclApi::remove_, live->standard(), candidate_);
    const bool bound = s->attachedToDp();
    static_cast<void>(s->remove());
    // A removal waits for no dataplane; one that programs a binding of it must be asked to.
    if (s->apiState() == AclApi::succeeded && bound && !candidate_) library_.requestProgramming();
    return keep(s, subjectOf(type, name), {type, name});
  }

  bool bindings(const std::vector<Binding>& desired) {
    BindingsResult r = replaceBindings(library_, desired, candidate_);
    bool ok = true;
    for (const BindingChange& change : r.changes) {
      if (change.kind == BindingChange::Kind::kept) continue;
      bindingsWritten_ = true;
      const std::string subject = "interface " + change.binding.interface.str();
      if (!candidate_) outcome_.sessions.push_back(change.session);
      if (!settled(change.state)) {
        stop(outcome_, *change.session, subject);
        ok = false;
      }
    }
    outcome_.bindings = std::move(r.changes);
    return ok;
  }

  [[nodiscard]] const std::vector<ListKey>& listsWritten() const { return listsWritten_; }
  [[nodiscard]] bool bindingsWritten() const { return bindingsWritten_; }
  [[nodiscard]] bool changed() const {
    return !listsWritten_.empty() || bindingsWritten_ ||
           std::any_of(outcome_.lists.begin(), outcome_.lists.end(),
                       [](const ListReport& l) { return l.report.changes(); });
  }

 private:
  // A session that wrote: kept for the outcome when it stands, its refusal otherwise.
  bool keep(const Ptr<AclApi::ApiSm>& session, const std::string& subject, const ListKey& key) {
    if (!settled(session->apiState())) {
      stop(outcome_, *session, subject);
      return false;
    }
    if (std::find(listsWritten_.begin(), listsWritten_.end(), key) == listsWritten_.end()) listsWritten_.push_back(key);
    if (!candidate_) outcome_.sessions.push_back(session);
    return true;
  }

  const Library& library_;
  const Acl::AclConfigSession* candidate_;
  Outcome& outcome_;
  std::vector<ListKey> listsWritten_;
  bool bindingsWritten_ = false;
};

// The platform's verdict on a candidate: every list in `lists`, and every list a binding the
// candidate has and `before` had not names, checked where the candidate binds it.
std::vector<Refusal> check(const Library& library, const Acl::AclConfigSession& candidate, std::set<ListKey> lists,
                           const std::vector<Binding>& before) {
  const std::vector<Binding> after = bindingsOf(*candidate.intfConfig());
  std::set<ListKey> bound;
  for (const Binding& b : after) {
    bound.insert({b.type, b.list});
    if (std::find(before.begin(), before.end(), b) == before.end()) lists.insert({b.type, b.list});
  }
  std::vector<Refusal> refusals;
  for (const ListKey& key : lists) {
    if (!bound.contains(key)) continue;
    const Ptr<AclApi::ApiSm> s = library.session(key.second, key.first, AclApi::attach_, false, candidate);
    if (s->dpAclOk()) continue;
    for (Refusal& r : messagesOf(*s, subjectOf(key.first, key.second))) refusals.push_back(std::move(r));
  }
  return refusals;
}

// A trial's outcome, handed out without the candidate's sessions, which edit a copy that is
// about to go.
Outcome withoutSessions(Outcome trial) {
  for (ListReport& list : trial.lists) list.session = nullptr;
  for (BindingChange& change : trial.bindings) change.session = nullptr;
  return trial;
}

// Where the dataplanes are with what the outcome's sessions wrote.
void settle(const Library& library, Outcome& outcome) {
  if (outcome.sessions.empty()) return;
  outcome.state = State::applied;
  for (const Ptr<AclApi::ApiSm>& s : outcome.sessions) {
    if (s->apiState() == AclApi::waitingForHw && outcome.state == State::applied) outcome.state = State::waiting;
    if (s->apiState() != AclApi::errHw) continue;
    outcome.state = State::hardwareError;
    for (const auto& [dataplane, message] : s->errString()) outcome.dataplaneErrors.emplace_back(dataplane, message);
  }
  outcome.behind = library.dataplanesBehind();
}

// Puts back what a stopped change wrote, from the states taken before it.
void undo(const Library& library, const Writer& written, const std::map<ListKey, std::optional<ListState>>& before,
          const std::vector<Binding>& bindingsBefore, Outcome& outcome) {
  Outcome undoing;
  Writer writer(library, nullptr, undoing);
  const std::vector<ListKey>& lists = written.listsWritten();
  bool ok = !written.bindingsWritten() || writer.bindings(bindingsBefore);
  for (auto it = lists.rbegin(); ok && it != lists.rend(); ++it) {
    const std::optional<ListState>& was = before.at(*it);
    ok = was ? writer.list({was->type, was->name, was->standard, was->entries, was->counters, was->fragments})
             : writer.remove(it->first, it->second);
  }
  if (!ok) {
    for (const Refusal& r : undoing.refusals)
      outcome.refusals.push_back({r.subject, "could not be undone: " + r.message});
  }
}

// Lists by key, for comparing two snapshots.
std::map<ListKey, const ListState*> byKey(const Snapshot& s) {
  std::map<ListKey, const ListState*> all;
  for (const ListState& list : s.lists) all[{list.type, list.name}] = &list;
  return all;
}

std::map<BindingKey, String> bindingsByKey(const Snapshot& s) {
  std::map<BindingKey, String> all;
  for (const Binding& b : s.bindings) all[{b.type, b.direction, b.interface}] = b.list;
  return all;
}

std::set<ListKey> listsThatDiffer(const Snapshot& before, const Snapshot& after) {
  const auto was = byKey(before);
  const auto is = byKey(after);
  std::set<ListKey> differ;
  for (const auto& [key, list] : was) {
    if (auto found = is.find(key); found == is.end() || !(*found->second == *list)) differ.insert(key);
  }
  for (const auto& [key, list] : is) {
    if (!was.contains(key)) differ.insert(key);
  }
  return differ;
}

}  // namespace

std::string subjectOf(AclType type, const String& name) {
  return std::string(keyword(type)) + " access-list " + name.str();
}

std::string_view nameOf(Outcome::State state) {
  switch (state) {
    case State::unchanged:
      return "unchanged";
    case State::applied:
      return "applied";
    case State::waiting:
      return "waiting";
    case State::hardwareError:
      return "hardware error";
    case State::refused:
      return "refused";
    case State::conflict:
      return "conflict";
    default:
      return "failed";
  }
}

Snapshot snapshotOf(const Acl::Input::Config& config, const Acl::IntfConfig& bindings) {
  Snapshot snapshot;
  for (AclType type : kFamilies) {
    if (const Ptr<const Acl::Input::AclTypeConfig> table = config.config(type)) {
      for (const auto& [name, list] : table->acl()) snapshot.lists.push_back(stateOf(*list));
    }
  }
  snapshot.bindings = bindingsOf(bindings);
  return snapshot;
}

Snapshot runningSnapshot(const Library& library) {
  return snapshotOf(*library.mounts().config, *library.mounts().intfConfig);
}

std::vector<std::string> differences(const Snapshot& before, const Snapshot& after) {
  std::vector<std::string> lines;
  const auto was = byKey(before);
  const auto is = byKey(after);
  for (const ListKey& key : listsThatDiffer(before, after)) {
    const char* how = !was.contains(key) ? " created" : !is.contains(key) ? " removed" : " changed";
    lines.push_back(subjectOf(key.first, key.second) + how);
  }
  const auto bound = bindingsByKey(before);
  const auto bindingsNow = bindingsByKey(after);
  std::set<BindingKey> keys;
  for (const auto& [key, list] : bound) keys.insert(key);
  for (const auto& [key, list] : bindingsNow) keys.insert(key);
  for (const BindingKey& key : keys) {
    const auto old = bound.find(key);
    const auto now = bindingsNow.find(key);
    if (old != bound.end() && now != bindingsNow.end() && old->second == now->second) continue;
    lines.push_back("binding of " + std::get<2>(key).str() + " " + std::string(stringValue(std::get<1>(key)).view()) +
                    " (" + std::string(keyword(std::get<0>(key))) + ")" +
                    (old == bound.end()         ? " added"
                     : now == bindingsNow.end() ? " removed"
                                                : " changed"));
  }
  return lines;
}

Outcome apply(const Library& library, const Change& change) {
  std::set<ListKey> touched;
  for (const DesiredList& list : change.lists) touched.insert({list.type, list.name});
  for (const ListKey& key : change.removals) touched.insert(key);
  const Acl::AclMounts& running = library.mounts();
  const std::vector<Binding> bindingsBefore = bindingsOf(*running.intfConfig);

  // First on a private copy: what the platform refuses never reaches the running configuration.
  {
    Outcome trial;
    Acl::AclConfigSession candidate(running);
    Writer writer(library, &candidate, trial);
    if (!writer.all(change)) return withoutSessions(std::move(trial));
    trial.refusals = check(library, candidate, touched, bindingsBefore);
    if (!trial.refusals.empty()) {
      trial.state = State::refused;
      return withoutSessions(std::move(trial));
    }
    if (!writer.changed()) return withoutSessions(std::move(trial));
  }

  std::map<ListKey, std::optional<ListState>> before;
  for (const ListKey& key : touched) before[key] = stateOf(*running.config, key.first, key.second);
  Outcome outcome;
  Writer writer(library, nullptr, outcome);
  bool written = false;
  try {
    written = writer.all(change);
  } catch (...) {
    // Something the trial did not meet (the platform changed in between, a failed write):
    // what this change already wrote goes before the error does.
    undo(library, writer, before, bindingsBefore, outcome);
    throw;
  }
  if (!written) {
    undo(library, writer, before, bindingsBefore, outcome);
    outcome.sessions.clear();
    return outcome;
  }
  for (const ListKey& key : writer.listsWritten()) {
    outcome.written.push_back({key.first, key.second, before.at(key), stateOf(*running.config, key.first, key.second)});
  }
  if (writer.bindingsWritten()) outcome.rebound.emplace(bindingsBefore, bindingsOf(*running.intfConfig));
  settle(library, outcome);
  return outcome;
}

Outcome revert(const Library& library, const Outcome& done) {
  Outcome outcome;
  if (!done.accepted() || (done.written.empty() && !done.rebound)) return outcome;
  Acl::Input::Config& config = *library.mounts().config;
  for (const ListWritten& list : done.written) {
    if (stateOf(config, list.type, list.name) != list.after) {
      outcome.refusals.push_back({subjectOf(list.type, list.name), "changed since; not reverted"});
    }
  }
  if (done.rebound && bindingsOf(*library.mounts().intfConfig) != done.rebound->second) {
    outcome.refusals.push_back({"bindings", "changed since; not reverted"});
  }
  if (!outcome.refusals.empty()) {
    outcome.state = State::conflict;
    return outcome;
  }
  if (done.state == State::hardwareError) {
    for (auto it = done.sessions.rbegin(); it != done.sessions.rend(); ++it) {
      static_cast<void>((*it)->revert());
      outcome.sessions.push_back(*it);
    }
    settle(library, outcome);
    return outcome;
  }
  Change back;
  for (const ListWritten& list : done.written) {
    if (!list.before) {
      back.removals.emplace_back(list.type, list.name);
      continue;
    }
    const ListState& was = *list.before;
    back.lists.push_back({was.type, was.name, was.standard, was.entries, was.counters, was.fragments});
  }
  if (done.rebound) back.bindings = done.rebound->first;
  return apply(library, back);
}

Outcome commit(const Library& library, const Ptr<AclApi::ApiSm>& edit) {
  Outcome outcome;
  const Ptr<Acl::AclSubConfig> scratchpad = edit->currentAcl();
  if (!scratchpad) return outcome;
  const AclType type = edit->aclType();
  const String& name = edit->aclName();
  const std::string subject = subjectOf(type, name);
  const std::optional<ListState> was = stateOf(*library.mounts().config, type, name);
  DesiredList desired{type,
                      name,
                      edit->standard(),
                      entriesOf(*scratchpad, type),
                      scratchpad->countersEnabled(),
                      scratchpad->fragmentsEnabled()};
  ReplaceReport report = planReplace(was ? was->entries : std::vector<ListEntry>(), desired.entries);
  if (was && !report.changes() && was->counters == *desired.counters && was->fragments == *desired.fragments) {
    outcome.lists.push_back({type, name, std::move(report), nullptr});
    return outcome;
  }
  {
    Acl::AclConfigSession candidate(library.mounts());
    Writer writer(library, &candidate, outcome);
    if (!writer.list(desired)) return withoutSessions(std::move(outcome));
    outcome.refusals = check(library, candidate, {{type, name}}, bindingsOf(*library.mounts().intfConfig));
    if (!outcome.refusals.empty()) {
      outcome.state = State::refused;
      return withoutSessions(std::move(outcome));
    }
  }
  outcome.lists.assign(1, {type, name, std::move(report), edit});
  static_cast<void>(edit->commitExt(false));
  if (!settled(edit->apiState())) {
    stop(outcome, *edit, subject);
    return outcome;
  }
  // Programmed by every dataplane: nothing is left to revert.
  if (edit->apiState() == AclApi::succeeded) edit->cleanupOldConfig();
  outcome.sessions.push_back(edit);
  outcome.written.push_back({type, name, was, stateOf(*library.mounts().config, type, name)});
  settle(library, outcome);
  return outcome;
}

Outcome commit(const Library& library, Acl::AclConfigSession& session, const Snapshot& openedOn, bool overwrite) {
  Outcome outcome;
  const Snapshot now = runningSnapshot(library);
  if (now != openedOn && !overwrite) {
    outcome.state = State::conflict;
    for (std::string& what : differences(openedOn, now)) {
      outcome.refusals.push_back({std::move(what), "changed since the configuration session opened"});
    }
    return outcome;
  }
  const Snapshot candidate = snapshotOf(*session.config(), *session.intfConfig());
  const std::set<ListKey> changed = listsThatDiffer(now, candidate);
  outcome.refusals = check(library, session, changed, now.bindings);
  if (!outcome.refusals.empty()) {
    outcome.state = State::refused;
    return outcome;
  }
  const auto was = byKey(now);
  const auto will = byKey(candidate);
  for (const ListKey& key : changed) {
    const auto old = was.find(key);
    const auto next = will.find(key);
    outcome.lists.push_back({key.first, key.second,
                             planReplace(old != was.end() ? old->second->entries : std::vector<ListEntry>(),
                                         next != will.end() ? next->second->entries : std::vector<ListEntry>()),
                             nullptr});
  }
  if (!session.commit()) return outcome;
  library.requestProgramming();
  outcome.behind = library.dataplanesBehind();
  outcome.state = outcome.behind.empty() ? State::applied : State::waiting;
  return outcome;
}

}  // namespace Client
