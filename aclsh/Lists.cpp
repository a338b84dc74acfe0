// Editing lists and bindings: the list mode's entry lines and commands, commits, removals,
// attach and detach, and the report of each session's outcome.
#include <algorithm>

#include "aclkit/aclsh/internal/ShellImpl.h"
#include "aclkit/platform/trace/Clock.h"
#include "aclkit/text/AclText.h"

namespace aclsh {

using AclApi::ApiSm;

namespace {

// An entry line of the list at hand, from word `first` on; bad text is a CommandError at the
// column of the line.
Text::Entry parseEntry(const Words& words, std::size_t first, AclType type, bool standard) {
  try {
    return Text::parse(words.from(first), type, standard);
  } catch (const Text::ParseError& e) {
    throw CommandError(words.column(first) - 1 + e.column(), "expected " + e.expected());
  }
}

// What a refused edit means, in words.
void refuseEdit(ApiState state, std::size_t column, const std::string& list, std::string_view what) {
  switch (state) {
    case AclApi::succeeded:
      return;
    case AclApi::errRuleExists:
      throw CommandError(column, std::string(what) + " is taken by another entry");
    case AclApi::errReadOnly:
      throw CommandError(0, list + " is read-only");
    case AclApi::errSequenceOutOfRange:
      throw CommandError(column, "no sequence number is left: the numbers would run past 4294967295");
    default:
      throw CommandError(0, list + ": the edit was refused (" + std::string(stringValue(state).view()) + ")");
  }
}

CommandError notBound(const Words& words, std::size_t at, AclType type, const String& name, bool named,
                      const std::string& subject, const std::string& how) {
  return CommandError(words.column(at + 2),
                      (named ? Client::subjectOf(type, name) : std::string(Client::keyword(type)) + " access-list") +
                          " is not bound " + how + " on " + subject);
}

std::string joined(const std::vector<std::string>& items) {
  std::string all;
  for (const std::string& item : items) all += (all.empty() ? "" : ", ") + item;
  return all;
}

}  // namespace

std::string reasons(const Client::Outcome& outcome, const std::string& subject) {
  std::vector<std::string> all;
  for (const Client::Refusal& r : outcome.refusals) all.push_back(r.subject == subject ? r.message : r.text());
  return joined(all);
}

std::string Shell::Impl::listName(AclType type, const String& name) const {
  return std::string(Client::keyword(type)) + " access-list " + std::string(name.view());
}

Ptr<ApiSm> Shell::Impl::newSession(const String& name, AclType type, AclApi::ApiType api, bool standard) const {
  return config_ ? library_.session(name, type, api, standard, *config_) : library_.session(name, type, api, standard);
}

// ---- the list mode -----------------------------------------------------------------------------

void Shell::Impl::openList(AclType type, const String& name, bool standard) {
  const Ptr<Acl::Input::AclTypeConfig> table = (config_ ? config_->config() : library_.mounts().config)->config(type);
  if (const Ptr<Acl::AclConfig> existing = table ? table->acl(name) : nullptr;
      existing && existing->standard() != standard) {
    throw CommandError(0, listName(type, name) + (existing->standard() ? " is a standard list: type ip access-list "
                                                                         "standard " +
                                                                             std::string(name.view())
                                                                       : " is not a standard list"));
  }
  list_ = ListEdit{type, name, standard, newSession(name, type, AclApi::commit_, standard), std::nullopt};
}

void Shell::Impl::abortList() {
  message(listName(list_->type, list_->name) + ": edit discarded");
  list_.reset();
}

void Shell::Impl::resequence(const Words& words) {
  // Sequence 0 stands for "after the last" and is no place; a step of 0 would put every
  // entry on one place.
  const U32 start = words.size() > 1 ? number(words, 1, "a first sequence number") : 10;
  if (start == 0) throw CommandError(words.column(1), "expected a first sequence number from 1 up");
  const U32 step = words.size() > 2 ? number(words, 2, "a step") : 10;
  if (step == 0) throw CommandError(words.column(2), "expected a step from 1 up");
  list_->held.reset();
  refuseEdit(list_->session->resequence(start, step), words.column(1), listName(list_->type, list_->name),
             "the numbering");
}

void Shell::Impl::listFlag(const Words& words) {
  const bool negated = words.is(0, "no");
  ApiSm& s = *list_->session;
  const std::string name = listName(list_->type, list_->name);
  if (words.is(negated ? 1 : 0, "counters")) {
    return refuseEdit(negated ? s.disableCounters() : s.enableCounters(), 0, name, "");
  }
  refuseEdit(negated ? s.disableFragments() : s.enableFragments(), 0, name, "");
}

void Shell::Impl::editEntry(const Words& words, std::size_t first) {
  ListEdit& edit = *list_;
  const Text::Entry entry = parseEntry(words, first, edit.type, edit.standard);
  const U32 sequence = entry.sequence.value_or(0);
  const std::string name = listName(edit.type, edit.name);
  const std::string place = "sequence " + std::to_string(sequence);
  const auto* remark = std::get_if<Acl::RemarkConfig>(&entry.body);
  if (!remark) {
    if (std::optional<std::string> refusal = library_.payloadRefusal(entry.body, edit.type)) {
      throw CommandError(words.column(first), *refusal);
    }
  }
  // Without a sequence the session would quietly add nothing; at a place of its own a rule
  // the list holds already never matches there.
  const std::optional<U32> held = heldElsewhere(entry.body, sequence);
  const std::string holder = held ? "sequence " + std::to_string(*held) + " holds this entry already" : "";
  if (held && sequence == 0) throw CommandError(words.column(first), holder);
  ApiState state = AclApi::failed;
  std::visit(
      [&](const auto& body) {
        using Body = std::decay_t<decltype(body)>;
        if constexpr (std::is_same_v<Body, Acl::RemarkConfig>) state = edit.session->addRemark(body, sequence);
        if constexpr (std::is_same_v<Body, Acl::IpRuleConfig>) state = edit.session->addIpRule(sequence, body);
        if constexpr (std::is_same_v<Body, Acl::Ip6RuleConfig>) state = edit.session->addIp6Rule(sequence, body);
        if constexpr (std::is_same_v<Body, Acl::MacRuleConfig>) state = edit.session->addMacRule(sequence, body);
      },
      entry.body);
  refuseEdit(state, words.column(first), name, place);
  if (edit.held) {
    const U32 at = sequence != 0 ? sequence : edit.session->getLastSequenceNumber();
    if (const auto [it, added] = edit.held->emplace(entry.body, at); !added) it->second = std::min(it->second, at);
  }
  if (!held || remark) return;
  if (options_.json) return emit(Kind::note, noteJson(name, sequence, "", holder));
  line("note: " + name + " entry " + std::to_string(sequence) + ": " + holder);
}

std::optional<U32> Shell::Impl::heldElsewhere(const Text::EntryBody& body, U32 sequence) {
  ListEdit& edit = *list_;
  const Ptr<Acl::AclSubConfig> pending = edit.session->currentAcl();
  // A place taken already: the session keeps the same entry there, or refuses another.
  if (!pending || (sequence != 0 &&
                   (pending->ruleBySequence().contains(sequence) || pending->remarkBySequence().contains(sequence)))) {
    return std::nullopt;
  }
  if (!edit.held) {
    edit.held.emplace();
    for (const Client::ListEntry& e : Client::entriesOf(*pending, edit.type)) edit.held->emplace(e.body, e.sequence);
  }
  const auto found = edit.held->find(body);
  return found != edit.held->end() ? std::optional(found->second) : std::nullopt;
}

void Shell::Impl::removeEntry(const Words& words, std::size_t first) {
  ListEdit& edit = *list_;
  ApiSm& s = *edit.session;
  const std::string name = listName(edit.type, edit.name);
  edit.held.reset();
  // "no 30": whatever stands at that place.
  if (words.size() == first + 1 && !words[first].empty() && std::isdigit(static_cast<unsigned char>(words[first][0]))) {
    const U32 sequence = number(words, first, "a sequence number or an entry");
    return refuseEdit(s.removeRuleBySequence(sequence, sequence), words.column(first), name, "");
  }
  const Text::Entry entry = parseEntry(words, first, edit.type, edit.standard);
  if (const auto* remark = std::get_if<Acl::RemarkConfig>(&entry.body)) {
    return refuseEdit(s.removeRemark(*remark, entry.sequence.value_or(0)), words.column(first), name, "");
  }
  ApiState state = AclApi::failed;
  std::visit(
      [&](const auto& body) {
        using Body = std::decay_t<decltype(body)>;
        if constexpr (std::is_same_v<Body, Acl::IpRuleConfig>) state = s.removeIpRuleByConfig(body);
        if constexpr (std::is_same_v<Body, Acl::Ip6RuleConfig>) state = s.removeIp6RuleByConfig(body);
        if constexpr (std::is_same_v<Body, Acl::MacRuleConfig>) state = s.removeMacRuleByConfig(body);
      },
      entry.body);
  refuseEdit(state, words.column(first), name, "");
}

void Shell::Impl::commitList() {
  const ListEdit edit = *list_;
  list_.reset();
  const std::string name = listName(edit.type, edit.name);
  if (config_) {
    const Ptr<Acl::AclConfig> live = config_->config()->configIs(edit.type)->acl(edit.name);
    const Ptr<Acl::AclSubConfig> pending = edit.session->currentAcl();
    // Nothing edited: no commit.
    if (live && live->currCfg() && pending && pending->countersEnabled() == live->currCfg()->countersEnabled() &&
        pending->fragmentsEnabled() == live->currCfg()->fragmentsEnabled() &&
        Client::sameEntries(*pending, *live->currCfg(), edit.type)) {
      message(name + ": unchanged");
      return;
    }
    static_cast<void>(edit.session->commit());
    message(name + ": staged in configuration session " + configName_);
    return;
  }
  report(Client::commit(library_, edit.session), name, "committed");
}

void Shell::Impl::removeList(AclType type, const String& name) {
  if (config_) {
    if (auto table = config_->config()->config(type)) table->aclDel(name);
    message(listName(type, name) + ": removed from configuration session " + configName_);
    return;
  }
  if (!library_.list(type, name)) throw CommandError(0, "there is no " + listName(type, name));
  const std::vector<Client::Binding> bindings = Client::bindingsOf(*library_.mounts().intfConfig);
  const bool bound = std::any_of(bindings.begin(), bindings.end(),
                                 [&](const Client::Binding& b) { return b.type == type && b.list == name; });
  Client::Change change;
  change.removals.emplace_back(type, name);
  const Client::Outcome outcome = Client::apply(library_, change);
  if (outcome.state == Client::Outcome::State::failed && !outcome.refusals.empty() &&
      outcome.refusals.front().message == "read-only") {
    throw CommandError(0, listName(type, name) + " is read-only");
  }
  report(outcome, listName(type, name), "removed");
  if (bound && outcome.accepted() && !options_.json) reportProgramming();
}

// ---- bindings ----------------------------------------------------------------------------------

void Shell::Impl::bind(const Words& words, bool unbind) {
  const std::size_t at = unbind ? 1 : 0;
  const AclType type = *family(words[at]);
  // [no] ip access-group NAME in|out; "no ip access-group in" unbinds whatever is bound.
  const bool named = !(unbind && (words.is(at + 2, "in") || words.is(at + 2, "out")));
  const String name = named ? String(words[at + 2]) : String();
  const AclDirection dir = direction(words, at + 2 + (named ? 1 : 0));
  const std::string subject = "interface " + std::string(intf_->name.view());
  const std::string how = std::string(stringValue(dir).view());
  if (config_) {
    const Ptr<ApiSm> session = newSession(name, type, unbind ? AclApi::detach_ : AclApi::attach_);
    const String bound = session->attachedAcl(intf_->name, dir);
    if (unbind && (bound.empty() || (named && bound != name)))
      throw notBound(words, at, type, name, named, subject, how);
    static_cast<void>(unbind ? session->detach(intf_->name, dir) : session->attach(intf_->name, dir));
    message(subject + ": " + listName(type, unbind ? bound : name) + (unbind ? " unbound " : " bound ") + how +
            " in configuration session " + configName_);
    return;
  }
  std::vector<Client::Binding> bindings = Client::bindingsOf(*library_.mounts().intfConfig);
  const auto here = std::find_if(bindings.begin(), bindings.end(), [&](const Client::Binding& b) {
    return b.type == type && b.direction == dir && b.interface == intf_->name;
  });
  const String bound = here != bindings.end() ? here->list : String();
  if (unbind && (bound.empty() || (named && bound != name))) throw notBound(words, at, type, name, named, subject, how);
  if (here != bindings.end()) bindings.erase(here);
  if (!unbind) bindings.push_back({intf_->name, dir, type, name});
  Client::Change change;
  change.bindings = std::move(bindings);
  report(Client::apply(library_, change), subject,
         listName(type, unbind ? bound : name) + (unbind ? " unbound " : " bound ") + how);
}

// ---- outcomes ----------------------------------------------------------------------------------

void Shell::Impl::report(const Client::Outcome& outcome, const std::string& subject, const std::string& change) {
  using State = Client::Outcome::State;
  const std::string why = reasons(outcome, subject);
  if (options_.json) emit(Kind::outcome, outcomeJson(outcome, subject, change));
  if (outcome.state == State::failed) throw CommandError(0, subject + ": " + why + "; nothing changed");
  // A check asks whether the whole file would load: a change the platform refuses, or another
  // session gets in the way of, fails it.
  if (options_.check && !outcome.accepted()) {
    throw CommandError(0, subject + ": " + change + ", " + std::string(Client::nameOf(outcome.state)) + " (" + why +
                              "): nothing changed");
  }
  if (!outcome.accepted() || outcome.state == State::unchanged) {
    if (options_.json) return;
    if (outcome.state == State::unchanged) return line(subject + ": unchanged");
    if (outcome.state == State::refused) {
      return line(subject + ": " + change + ", refused by the platform (" + why + "): nothing changed");
    }
    return line(subject + ": not committed: " + why + "; this edit is dropped");
  }
  for (const Client::ListReport& list : outcome.lists) {
    if (list.session) settle(list.session, subject, change);
  }
  for (const Client::BindingChange& b : outcome.bindings) {
    if (b.session) settle(b.session, subject, change);
  }
  const bool removed = std::any_of(outcome.sessions.begin(), outcome.sessions.end(),
                                   [](const Ptr<ApiSm>& s) { return s->apiType() == AclApi::remove_; });
  if (removed && !options_.json) line(std::string(subject).append(": ").append(change));
}

// Reports where a session that wrote to the running configuration stands (in JSON mode the
// change's outcome said it), and keeps it while that may still change.
void Shell::Impl::settle(const Ptr<ApiSm>& session, const std::string& subject, const std::string& change) {
  const ApiState state = session->apiState();
  if (state != AclApi::succeeded) {
    auto watch = std::make_unique<Outstanding>(*this, session, subject);
    watch->failed = state == AclApi::errHw;
    outstanding_.push_back(std::move(watch));
  }
  if (options_.json) return;
  std::string outcome = change;
  if (state == AclApi::succeeded && dataplanesWaitedFor() != 0) {
    outcome += session->attachedToDp() ? ", programmed by every dataplane" : " (bound to no interface yet)";
  } else if (state == AclApi::waitingForHw) {
    outcome += ", waiting for " + joined(library_.dataplanesBehind());
  } else if (state == AclApi::errHw) {
    outcome += ", but not programmed";
  }
  line(subject + ": " + outcome);
  if (state == AclApi::errHw) reportHardwareErrors(*session);
}

void Shell::Impl::reportHardwareErrors(ApiSm& session) {
  for (const auto& [dataplane, message] : session.errString()) {
    line("   dataplane " + std::string(dataplane.view()) + ": " + std::string(message.view()));
  }
  line("   abort reverts the change");
}

namespace {

// How a session that wrote a change stands with the dataplanes, for a report after the
// change's own: its answer coming in, or its revert.
Client::Outcome standing(const Client::Library& library, AclApi::ApiSm& session) {
  using State = Client::Outcome::State;
  Client::Outcome outcome;
  const ApiState state = session.apiState();
  outcome.state = state == AclApi::succeeded      ? State::applied
                  : state == AclApi::waitingForHw ? State::waiting
                                                  : State::hardwareError;
  for (const auto& [dataplane, message] : session.errString()) outcome.dataplaneErrors.emplace_back(dataplane, message);
  outcome.behind = library.dataplanesBehind();
  return outcome;
}

}  // namespace

void Shell::Impl::Outstanding::apiStateChanged() {
  if (reporting) return;  // the shell reports what happens inside its own calls itself
  const ApiState state = session->apiState();
  failed = state == AclApi::errHw;
  done = state == AclApi::succeeded;
  if (!failed && !done) return;
  if (shell.options_.json) {
    shell.emit(Kind::outcome, outcomeJson(standing(shell.library_, *session), subject, "programmed"));
    return;
  }
  shell.line(subject + (done ? ": programmed by every dataplane" : ": not programmed"));
  if (failed) shell.reportHardwareErrors(*session);
}

std::size_t Shell::Impl::dataplanesWaitedFor() const {
  std::size_t count = 0;
  for (const auto& [name, entity] : library_.mounts().statusDpDir->entity()) {
    const auto dp = fwk::dynCast<const Acl::StatusDp>(Ptr<const fwk::Entity>(entity));
    count += dp && dp->waitForHwStatus() ? 1 : 0;
  }
  return count;
}

void Shell::Impl::sweep() {
  std::erase_if(outstanding_, [](const std::unique_ptr<Outstanding>& o) {
    if (o->done) letGoOfReplaced(*o->session);
    return o->done;
  });
}

void Shell::Impl::letGoOfReplaced(ApiSm& session) {
  if (session.apiType() == AclApi::commit_ && session.apiState() == AclApi::succeeded) session.cleanupOldConfig();
}

void Shell::Impl::revertFailed() {
  for (auto it = outstanding_.rbegin(); it != outstanding_.rend(); ++it) {
    Outstanding& failed = **it;
    if (!failed.failed || failed.done) continue;
    failed.failed = false;
    failed.reporting = true;
    failed.session->errStringDelAll();
    const ApiState state = failed.session->revert();
    failed.reporting = false;
    failed.failed = state == AclApi::errHw;
    failed.done = state == AclApi::succeeded;
    if (options_.json)
      return emit(Kind::outcome, outcomeJson(standing(library_, *failed.session), failed.subject, "reverted"));
    std::string outcome = "change reverted";
    if (state == AclApi::succeeded) outcome += dataplanesWaitedFor() != 0 ? ", programmed by every dataplane" : "";
    if (state == AclApi::waitingForHw) outcome += ", waiting for " + joined(library_.dataplanesBehind());
    if (state == AclApi::errHw) outcome += ", but not programmed";
    line(failed.subject + ": " + outcome);
    if (state == AclApi::errHw) reportHardwareErrors(*failed.session);
    return;
  }
  throw CommandError(0, "nothing to abort: no change was refused by a dataplane");
}

}  // namespace aclsh
