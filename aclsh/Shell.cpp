#include "aclkit/aclsh/Shell.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "aclkit/aclsh/internal/ShellImpl.h"
#include "aclkit/agent/Dataplane.h"
#include "aclkit/platform/fwk/Errors.h"

namespace aclsh {

// ---- words --------------------------------------------------------------------------------

Words::Words(std::string_view line) : line_(line), end_(line.size() + 1) {
  std::size_t at = 0;
  while (at < line.size()) {
    while (at < line.size() && (line[at] == ' ' || line[at] == '\t')) ++at;
    if (at >= line.size()) break;
    const std::size_t start = at;
    while (at < line.size() && line[at] != ' ' && line[at] != '\t') ++at;
    words_.push_back(line.substr(start, at - start));
    columns_.push_back(start + 1);
  }
}

std::string_view Words::from(std::size_t i) const {
  return i < columns_.size() ? line_.substr(columns_[i] - 1) : std::string_view();
}

Words Words::tail(std::size_t i) const {
  Words rest = *this;
  const auto skipped = static_cast<std::ptrdiff_t>(std::min(i, words_.size()));
  rest.words_.erase(rest.words_.begin(), rest.words_.begin() + skipped);
  rest.columns_.erase(rest.columns_.begin(), rest.columns_.begin() + skipped);
  return rest;
}

namespace {

// The length of the UTF-8 character at the start of `text`, or 0 when none starts there
// (a stray continuation byte, a truncated sequence, an overlong form, a surrogate, past
// U+10FFFF).
std::size_t characterLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  const std::size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                             : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                            : 0;
  if (length == 0 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  // The second byte's range rules out overlong forms, surrogates and what lies past U+10FFFF.
  const unsigned char second = byte(1);
  if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
      (lead == 0xF4 && second > 0x8F)) {
    return 0;
  }
  return length;
}

}  // namespace

std::string_view typedLine(std::string_view text) {
  if (text.ends_with('\r')) text.remove_suffix(1);
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = characterLength(text.substr(at));
    if (length == 0) throw CommandError(at + 1, "expected UTF-8 text");
    at += length;
  }
  return text;
}

std::size_t partialStart(std::string_view line) {
  const std::size_t blank = line.find_last_of(" \t");
  return blank == std::string_view::npos ? 0 : blank + 1;
}

U32 number(const Words& words, std::size_t i, std::string_view what) {
  const std::string_view word = words[i];
  U32 value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (word.empty() || error != std::errc() || end != word.data() + word.size()) {
    throw CommandError(words.column(i), "expected " + std::string(what));
  }
  return value;
}

AclDirection direction(const Words& words, std::size_t i) {
  return words.is(i, "in") ? AclDirection::in : AclDirection::out;
}

std::optional<AclType> family(std::string_view word) {
  if (word == "ip") return AclType::ip;
  if (word == "ipv6") return AclType::ipv6;
  if (word == "mac") return AclType::mac;
  return std::nullopt;
}

// ---- the shell ------------------------------------------------------------------------------

Shell::Impl::Impl(fwk::StateStore& store, std::ostream& out, std::ostream& err, Options options)
    : library_(store), out_(out), err_(err), options_(std::move(options)) {
  // The simulated platform starts able to program everything; `platform ... off` sets limits.
  library_.platform().enableAll();
}

Shell::Impl::~Impl() = default;

bool Shell::Impl::run(std::string_view text, const Location& where) {
  where_ = where;
  endedOnce_ = false;
  sweep();
  bool opening = false;  // the line opens a list
  try {
    Words words(typedLine(text));
    if (words.empty() || words[0].starts_with('!') || words[0].starts_with('#') || skipped(words)) return true;
    opening = family(words[0]) && words.is(1, "access-list");
    dispatch(words);
    return true;
  } catch (const CommandError& e) {
    error(where.line, e.column(), e.what());
  } catch (const fwk::Error& e) {
    error(where.line, 0, e.what());
  } catch (const std::invalid_argument& e) {
    // An entry no line can show (an imported address with host bits set): the command fails,
    // not the shell.
    error(where.line, 0, e.what());
  }
  // From a file, a list block with an error in it goes whole, up to its end; on a terminal
  // the edit stays open for the line typed again.
  if (!where.file.empty() && (list_ || opening)) {
    dropBlock();
    skipping_ = true;
  }
  return false;
}

bool Shell::Impl::skipped(const Words& words) {
  if (!skipping_) return false;
  if (opensBlock(words)) {
    skipping_ = false;
    return false;
  }
  skipping_ = !words.is(0, "exit") && !words.is(0, "end");
  return true;
}

bool Shell::Impl::opensBlock(const Words& words) const {
  // Typed whole (an abbreviation may mean something else in the mode), and an opening line
  // with a mistake after its keywords still opens: its error is reported, not skipped.
  // Most lines in a list are entries: they are turned away here, without a walk that fails.
  const std::vector<Syntax>& commands = grammar().top.next;
  if (std::none_of(commands.begin(), commands.end(), [&](const Syntax& s) { return s.word == words[0]; })) {
    return false;
  }
  Words exact = words;
  Resolved resolved;
  try {
    walk(grammar().top, exact, false, true, resolved);
  } catch (const CommandError&) {
  }
  return resolved.leaves;
}

void Shell::Impl::dropBlock() {
  if (list_) message(listName(list_->type, list_->name) + ": edit dropped, nothing committed");
  list_.reset();
}

void Shell::Impl::dispatch(Words& words) {
  // A line that opens a list or an interface leaves the mode the shell is in, as `exit`
  // would (a list is committed): that is how the running configuration reads back.
  if ((list_ || intf_) && opensBlock(words)) {
    Words exit("exit");
    dispatch(exit);
  }
  const Resolved command = resolve(mode(), words);
  command.run(*this, command.first == 0 ? words : words.tail(command.first));
}

// ip|ipv6|mac access-list [standard] NAME, and the no form
void Shell::Impl::listBlock(const Words& words) {
  const bool negated = words.is(0, "no");
  const std::size_t at = negated ? 1 : 0;
  const AclType type = *family(words[at]);
  const bool standard = words.is(at + 2, "standard");
  if (standard && type != AclType::ip) {
    throw CommandError(words.column(at + 2), "expected a list name (only ip lists are standard)");
  }
  const String name(words[at + 2 + (standard ? 1 : 0)]);
  if (negated) return removeList(type, name);
  openList(type, name, standard);
}

void Shell::Impl::abortTop() {
  if (!config_) return revertFailed();
  config_.reset();
  message("configuration session " + configName_ + " aborted");
}

void Shell::Impl::leaveTop(const Words& words) {
  if (config_) throw CommandError(words.column(0), "commit or abort the configuration session first");
  // On a terminal exit and quit end the shell. In a script a stray exit at the top is passed
  // over, as it always was (the lines after it are configuration too); quit ends it.
  if (words.is(0, "quit") || (words.is(0, "exit") && where_.file.empty())) ended_ = true;
}

void Shell::Impl::endOfTyping() {
  if (list_ || intf_) {
    run("end", where_);
  } else if (config_ && !endedOnce_) {
    error(where_.line, 0,
          "configuration session " + configName_ + " is open: commit or abort it (Ctrl-D again aborts it and leaves)");
    endedOnce_ = true;
  } else {
    ended_ = true;
  }
}

void Shell::Impl::openConfigSession(const std::string& name) {
  if (config_) throw CommandError(0, "configuration session " + configName_ + " is open already");
  configOpenedOn_ = Client::runningSnapshot(library_);
  config_ = std::make_unique<Acl::AclConfigSession>(library_.mounts());
  configName_ = name;
}

void Shell::Impl::commitConfigSession(bool overwrite) {
  const std::string subject = "configuration session " + configName_;
  const Client::Outcome outcome = Client::commit(library_, *config_, configOpenedOn_, overwrite);
  using State = Client::Outcome::State;
  const bool stays = outcome.state == State::conflict || outcome.state == State::refused;
  if (!stays) config_.reset();
  if (options_.json) emit(Kind::outcome, outcomeJson(outcome, subject, "committed"));
  if (stays) {
    const std::string why = reasons(outcome, subject);
    throw CommandError(0, subject + " not committed: " + why +
                              (outcome.state == State::conflict ? "; commit force overwrites them" : "") +
                              "; the session stays open");
  }
  if (options_.json) return;
  if (outcome.state == State::unchanged) {
    line(subject + " committed: nothing changed");
    return;
  }
  line(subject + " committed: the running configuration changed");
  reportProgramming();
}

std::string Shell::Impl::prompt() const {
  std::string mode;
  if (config_) mode.append("config-s-").append(configName_);
  if (list_ || intf_) mode.append(mode.empty() ? "" : "-").append(list_ ? "acl-" : "if-");
  if (list_) mode.append(list_->name.view());
  if (intf_) mode.append(intf_->name.view());
  return mode.empty() ? "aclsh# " : std::string("aclsh(").append(mode).append(")# ");
}

bool Shell::Impl::finish() {
  bool ok = true;
  skipping_ = false;
  if (list_) ok = run("exit", where_);
  intf_.reset();
  if (config_) {
    error(std::nullopt, 0, "configuration session " + configName_ + " left open at the end of input: aborted");
    config_.reset();
    ok = false;
  }
  return ok;
}

void Shell::Impl::abandon() {
  dropBlock();
  skipping_ = false;
  intf_.reset();
  config_.reset();
}

// ---- the public face ------------------------------------------------------------------------

Shell::Shell(fwk::StateStore& store, std::ostream& out, std::ostream& err, Options options)
    : impl_(std::make_unique<Impl>(store, out, err, std::move(options))) {}
Shell::~Shell() = default;
bool Shell::run(std::string_view line, const Location& where) {
  return impl_->run(line, where);
}
bool Shell::finish() {
  return impl_->finish();
}
void Shell::abandon() {
  impl_->abandon();
}
std::string Shell::prompt() const {
  return impl_->prompt();
}
std::vector<std::string> Shell::complete(std::string_view line) const {
  return impl_->complete(line);
}
std::string Shell::help(std::string_view line) const {
  return impl_->help(line);
}
bool Shell::ended() const {
  return impl_->ended();
}
void Shell::endOfTyping() {
  impl_->endOfTyping();
}
bool Shell::atTop() const {
  return impl_->atTop();
}

}  // namespace aclsh
