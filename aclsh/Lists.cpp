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

std::string joined(const std::vector<std::string>& items) {
  std::string all;
  for (const std::string& item : items) all += (all.empty() ? "" : ", ") + item;
  return all;
}

}  // namespace

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
  list_ = ListEdit{type, name, standard, newSession(name, type, AclApi::commit_, standard)};
}

void Shell::Impl::listCommand(const Words& words) {
  ListEdit& edit = *list_;
  ApiSm& s = *edit.session;
  const std::string_view verb = words[0];
  if (verb == "exit" || verb == "end") return commitList();
  if (verb == "abort") {
    line(listName(edit.type, edit.name) + ": edit discarded");
    list_.reset();
    return;
  }
  if (verb == "show") return show(words);
  const std::string name = listName(edit.type, edit.name);
  if (verb == "resequence") {
    const U32 start = words.size() > 1 ? number(words, 1, "a first sequence number") : 10;
    const U32 step = words.size() > 2 ? number(words, 2, "a step") : 10;
    if (words.size() > 3) throw CommandError(words.column(3), "expected the end of the line");
    return refuseEdit(s.resequence(start, step), words.column(1), name, "the numbering");
  }
  const bool negated = verb == "no";
  const std::size_t at = negated ? 1 : 0;
  if (words.is(at, "counters") && words.is(at + 1, "per-entry")) {
    return refuseEdit(negated ? s.disableCounters() : s.enableCounters(), 0, name, "");
  }
  if (words.is(at, "fragment-rules")) {
    return refuseEdit(negated ? s.disableFragments() : s.enableFragments(), 0, name, "");
  }
  if (negated) return removeEntry(words, 1);
  editEntry(words, 0);
}

void Shell::Impl::editEntry(const Words& words, std::size_t first) {
  ListEdit& edit = *list_;
  const Text::Entry entry = parseEntry(words, first, edit.type, edit.standard);
  const U32 sequence = entry.sequence.value_or(0);
  const std::string name = listName(edit.type, edit.name);
  const std::string place = "sequence " + std::to_string(sequence);
  if (const auto* remark = std::get_if<Acl::RemarkConfig>(&entry.body)) {
    return refuseEdit(edit.session->addRemark(*remark, sequence), words.column(first), name, place);
  }
  if (std::optional<std::string> refusal = library_.payloadRefusal(entry.body, edit.type)) {
    throw CommandError(words.column(first), *refusal);
  }
  ApiState state = AclApi::failed;
  std::visit(
      [&](const auto& body) {
        using Body = std::decay_t<decltype(body)>;
        if constexpr (std::is_same_v<Body, Acl::IpRuleConfig>) state = edit.session->addIpRule(sequence, body);
        if constexpr (std::is_same_v<Body, Acl::Ip6RuleConfig>) state = edit.session->addIp6Rule(sequence, body);
        if constexpr (std::is_same_v<Body, Acl::MacRuleConfig>) state = edit.session->addMacRule(sequence, body);
      },
      entry.body);
  refuseEdit(state, words.column(first), name, place);
}

void Shell::Impl::removeEntry(const Words& words, std::size_t first) {
  ListEdit& edit = *list_;
  ApiSm& s = *edit.session;
  const std::string name = listName(edit.type, edit.name);
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
  const Ptr<Acl::AclConfig> live =
      (config_ ? config_->config() : library_.mounts().config)->configIs(edit.type)->acl(edit.name);
  const Ptr<Acl::AclSubConfig> pending = edit.session->currentAcl();
  // Nothing edited: no commit, nothing for the dataplanes to do.
  if (live && live->currCfg() && pending && pending->countersEnabled() == live->currCfg()->countersEnabled() &&
      pending->fragmentsEnabled() == live->currCfg()->fragmentsEnabled() &&
      Client::sameEntries(*pending, *live->currCfg(), edit.type)) {
    line(name + ": unchanged");
    return;
  }
  if (config_) {
    static_cast<void>(edit.session->commit());
    line(name + ": staged in configuration session " + configName_);
    return;
  }
  static_cast<void>(edit.session->commitExt(false));
  settle(edit.session, name, "committed");
}

void Shell::Impl::removeList(AclType type, const String& name) {
  if (config_) {
    if (auto table = config_->config()->config(type)) table->aclDel(name);
    line(listName(type, name) + ": removed from configuration session " + configName_);
    return;
  }
  const Ptr<Acl::AclConfig> existing = library_.list(type, name);
  const Ptr<ApiSm> session = newSession(name, type, AclApi::remove_, existing && existing->standard());
  const bool bound = session->attachedToDp();
  switch (session->remove()) {
    case AclApi::succeeded:
      line(listName(type, name) + ": removed");
      if (bound) requestProgramming();
      return;
    case AclApi::errAclDoesNotExist:
      throw CommandError(0, "there is no " + listName(type, name));
    case AclApi::errReadOnly:
      throw CommandError(0, listName(type, name) + " is read-only");
    default:
      throw CommandError(
          0, listName(type, name) + ": not removed (" + std::string(stringValue(session->apiState()).view()) + ")");
  }
}

// ---- bindings ----------------------------------------------------------------------------------

void Shell::Impl::bind(const Words& words, bool unbind) {
  const std::size_t at = unbind ? 1 : 0;
  const AclType type = *family(words[at]);
  // [no] ip access-group NAME in|out; "no ip access-group in" unbinds whatever is bound.
  const bool named = !(unbind && (words.is(at + 2, "in") || words.is(at + 2, "out")));
  if (named && words[at + 2].empty()) throw CommandError(words.column(at + 2), "expected a list name");
  const String name = named ? String(words[at + 2]) : String();
  const std::size_t dirAt = at + 2 + (named ? 1 : 0);
  const AclDirection dir = direction(words, dirAt);
  if (words.size() > dirAt + 1) throw CommandError(words.column(dirAt + 1), "expected the end of the line");
  const std::string subject = "interface " + std::string(intf_->name.view());
  const std::string how = std::string(stringValue(dir).view());
  if (!unbind) {
    const Ptr<ApiSm> session = newSession(name, type, AclApi::attach_);
    static_cast<void>(session->attach(intf_->name, dir));
    settle(session, subject, listName(type, name) + " bound " + how);
    return;
  }
  const Ptr<ApiSm> session = newSession(name, type, AclApi::detach_);
  const String bound = session->attachedAcl(intf_->name, dir);
  if (bound.empty() || (named && bound != name)) {
    throw CommandError(words.column(at + 2),
                       (named ? listName(type, name) : std::string(Client::keyword(type)) + " access-list") +
                           " is not bound " + how + " on " + subject);
  }
  static_cast<void>(session->detach(intf_->name, dir));
  settle(session, subject, listName(type, bound) + " unbound " + how);
}

// ---- outcomes ----------------------------------------------------------------------------------

void Shell::Impl::settle(const Ptr<ApiSm>& session, const std::string& subject, const std::string& change) {
  if (config_) {
    line(subject + ": " + change + " in configuration session " + configName_);
    return;
  }
  const ApiState state = session->apiState();
  switch (state) {
    case AclApi::errSessionCreate:
    case AclApi::errSessionDelete:
    case AclApi::errSessionModify: {
      // Never revert here: the session's revert would undo the other session's work.
      const char* what = state == AclApi::errSessionCreate   ? "created"
                         : state == AclApi::errSessionDelete ? "deleted"
                                                             : "changed";
      line(subject + ": not committed: another session " + what + " it since this edit began; this edit is dropped");
      return;
    }
    case AclApi::errAclApi: {
      std::vector<std::string> messages;
      for (const auto& [key, message] : session->errString()) messages.emplace_back(message.view());
      line(subject + ": refused: " + joined(messages));
      return;
    }
    case AclApi::succeeded:
    case AclApi::waitingForHw:
    case AclApi::errHw:
      break;
    default:
      line(subject + ": " + change + " (" + std::string(stringValue(state).view()) + ")");
      return;
  }
  if (!platformAccepts(session, subject, change)) return;
  // Accepted and programmed by every dataplane: nothing is left to revert, so the version the
  // commit replaced goes (a commit still waiting lets go of it once it is programmed).
  if (state == AclApi::succeeded) letGoOfReplaced(*session);
  std::string outcome = change;
  if (state == AclApi::succeeded && dataplanesWaitedFor() != 0) {
    outcome += session->attachedToDp() ? ", programmed by every dataplane" : " (bound to no interface yet)";
  } else if (state == AclApi::waitingForHw) {
    outcome += ", waiting for " + joined(dataplanesBehind());
  } else if (state == AclApi::errHw) {
    outcome += ", but not programmed";
  }
  line(subject + ": " + outcome);
  if (state == AclApi::errHw) reportHardwareErrors(*session);
  if (state != AclApi::succeeded) {
    auto watch = std::make_unique<Outstanding>(*this, session, subject);
    watch->failed = state == AclApi::errHw;
    outstanding_.push_back(std::move(watch));
  }
}

void Shell::Impl::reportHardwareErrors(ApiSm& session) {
  for (const auto& [dataplane, message] : session.errString()) {
    line("   dataplane " + std::string(dataplane.view()) + ": " + std::string(message.view()));
  }
  line("   abort reverts the change");
}

void Shell::Impl::Outstanding::apiStateChanged() {
  if (reporting) return;  // the shell reports what happens inside its own calls itself
  const ApiState state = session->apiState();
  if (state == AclApi::succeeded) shell.line(subject + ": programmed by every dataplane");
  if (state == AclApi::errHw) {
    shell.line(subject + ": not programmed");
    shell.reportHardwareErrors(*session);
  }
  failed = state == AclApi::errHw;
  done = state == AclApi::succeeded;
}

bool Shell::Impl::platformAccepts(const Ptr<ApiSm>& session, const std::string& subject, const std::string& change) {
  // The check writes its findings where the hardware wrote its errors: keep those.
  std::vector<std::pair<String, String>> earlier(session->errString().begin(), session->errString().end());
  session->errStringDelAll();
  const bool accepted = session->dpAclOk();
  std::vector<std::string> refusals;
  for (const auto& [key, message] : session->errString()) refusals.emplace_back(message.view());
  session->errStringDelAll();
  for (const auto& [key, message] : earlier) session->errStringIs(key, message);
  if (accepted) return true;
  session->errStringDelAll();
  const ApiState undone = undo(session);
  line(subject + ": " + change + ", refused by the platform (" + joined(refusals) + "): undone" +
       (undone == AclApi::succeeded || undone == AclApi::waitingForHw
            ? ""
            : " (" + std::string(stringValue(undone).view()) + ")"));
  return false;
}

ApiState Shell::Impl::undo(const Ptr<ApiSm>& session) {
  if (session->apiType() != AclApi::commit_ || session->currentAcl()) return session->revert();
  // Every dataplane took the commit, so the session let go of the scratchpad revert needs; a
  // second commit puts back the version it replaced, or removes the list it made.
  const String& name = session->aclName();
  const AclType type = session->aclType();
  if (!session->origAclConfig()) return newSession(name, type, AclApi::remove_, session->standard())->remove();
  const Ptr<ApiSm> again = newSession(name, type, AclApi::commit_, session->standard());
  const Ptr<Acl::AclSubConfig> refused = again->currentAcl();
  ApiState state = refused && (!refused->ruleBySequence().empty() || !refused->remarkBySequence().empty())
                       ? again->removeRuleBySequence(0, again->maxSequence())
                       : AclApi::succeeded;
  if (const Ptr<Acl::AclSubConfig> before = session->origAclSubConfig()) {
    for (const Client::ListEntry& entry : Client::entriesOf(*before, type)) {
      if (state != AclApi::succeeded) break;
      std::visit(
          [&](const auto& body) {
            using Body = std::decay_t<decltype(body)>;
            if constexpr (std::is_same_v<Body, Acl::RemarkConfig>) state = again->addRemark(body, entry.sequence);
            if constexpr (std::is_same_v<Body, Acl::IpRuleConfig>) state = again->addIpRule(entry.sequence, body);
            if constexpr (std::is_same_v<Body, Acl::Ip6RuleConfig>) state = again->addIp6Rule(entry.sequence, body);
            if constexpr (std::is_same_v<Body, Acl::MacRuleConfig>) state = again->addMacRule(entry.sequence, body);
          },
          entry.body);
    }
    if (state == AclApi::succeeded)
      state = before->countersEnabled() ? again->enableCounters() : again->disableCounters();
    if (state == AclApi::succeeded) {
      state = before->fragmentsEnabled() ? again->enableFragments() : again->disableFragments();
    }
  }
  return state == AclApi::succeeded ? again->commit() : state;
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
    std::string outcome = "change reverted";
    if (state == AclApi::succeeded) outcome += dataplanesWaitedFor() != 0 ? ", programmed by every dataplane" : "";
    if (state == AclApi::waitingForHw) outcome += ", waiting for " + joined(dataplanesBehind());
    if (state == AclApi::errHw) outcome += ", but not programmed";
    line(failed.subject + ": " + outcome);
    if (state == AclApi::errHw) reportHardwareErrors(*failed.session);
    failed.failed = state == AclApi::errHw;
    failed.done = state == AclApi::succeeded;
    return;
  }
  throw CommandError(0, "nothing to abort: no change was refused by a dataplane");
}

}  // namespace aclsh
