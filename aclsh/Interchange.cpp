// Whole lists and documents handed over at once: `replace ... access-list NAME FILE` (a list
// in the shell's own entry syntax), `import openconfig FILE` and `export openconfig [FILE]`.
#include <fstream>
#include <sstream>

#include "aclkit/aclsh/internal/ShellImpl.h"
#include "aclkit/client/Replace.h"
#include "aclkit/interchange/OpenConfig.h"

namespace aclsh {

namespace {

std::string counted(std::size_t n, const char* what) {
  return std::to_string(n) + " " + what;
}

std::string summary(const Client::ReplaceReport& r) {
  return counted(r.added.size(), "added") + ", " + counted(r.removed.size(), "removed") + ", " +
         counted(r.moved.size(), "moved") + ", " + counted(r.kept.size(), "kept");
}

// The entries of a file in the entry syntax: blank lines and lines starting with ! or # are
// skipped; an entry without a sequence number goes after the highest so far, by tens.
std::vector<Client::ListEntry> readEntries(const std::string& path, AclType type, bool standard) {
  std::istringstream text(readFile(path));
  std::vector<Client::ListEntry> entries;
  U32 last = 0;
  std::string line;
  for (std::size_t n = 1; std::getline(text, line); ++n) {
    const auto where = [&](std::size_t column) {
      return path + ":" + std::to_string(n) + (column != 0 ? ":" + std::to_string(column) : "") + ": ";
    };
    std::string_view typed;
    try {
      typed = typedLine(line);
    } catch (const CommandError& e) {
      throw CommandError(0, where(e.column()) + e.what());
    }
    const Words words(typed);
    if (words.empty() || words[0].starts_with('!') || words[0].starts_with('#')) continue;
    try {
      const Text::Entry e = Text::parse(typed, type, standard);
      const std::uint64_t sequence = e.sequence ? *e.sequence : std::uint64_t{last} + 10;
      if (sequence > 0xFFFFFFFFULL) throw CommandError(0, where(0) + "no sequence number is left");
      entries.push_back({static_cast<U32>(sequence), e.body});
      last = std::max(last, static_cast<U32>(sequence));
    } catch (const Text::ParseError& e) {
      throw CommandError(0, where(e.column()) + "expected " + e.expected());
    }
  }
  return entries;
}

}  // namespace

// What a conversion left out or changed: "note: ..." on `text` (standard output, or standard
// error beside a printed document), a note object in JSON mode.
void Shell::Impl::note(const Interchange::Finding& finding, std::ostream& text) const {
  if (options_.json) return emit(Kind::note, noteJson(finding.list, finding.sequence, finding.field, finding.what));
  text << "note: " << finding.text() << '\n';
}

// A change of whole lists and bindings through the pipeline; bad input is a CommandError.
Client::Outcome Shell::Impl::applyChange(const Client::Change& change, const std::string& subject) {
  try {
    return Client::apply(library_, change);
  } catch (const std::invalid_argument& e) {
    throw CommandError(0, subject + ": " + e.what());
  }
}

// A replace's or an import's outcome: each list and binding it changed, or why nothing did.
void Shell::Impl::report(const Client::Outcome& outcome, const std::string& subject) {
  using State = Client::Outcome::State;
  if (options_.json) emit(Kind::outcome, outcomeJson(outcome, subject, "replaced"));
  if (!outcome.accepted()) {
    const std::string why = reasons(outcome, subject);
    const char* how = outcome.state == State::refused    ? "refused by the platform"
                      : outcome.state == State::conflict ? "not applied"
                                                         : "failed";
    throw CommandError(0, subject + ": " + how + " (" + why + "): nothing changed");
  }
  for (const Client::ListReport& list : outcome.lists) {
    const std::string name = listName(list.type, list.name);
    if (!list.session) {
      if (!options_.json) line(name + ": unchanged (" + counted(list.report.kept.size(), "kept") + ")");
    } else {
      settle(list.session, name, "replaced: " + summary(list.report));
    }
  }
  std::size_t kept = 0;
  for (const Client::BindingChange& change : outcome.bindings) {
    const Client::Binding& b = change.binding;
    if (change.kind == Client::BindingChange::Kind::kept) {
      ++kept;
      continue;
    }
    const bool attached = change.kind == Client::BindingChange::Kind::attached;
    settle(
        change.session, "interface " + b.interface.str(),
        listName(b.type, b.list) + (attached ? " bound " : " unbound ") + std::string(stringValue(b.direction).view()));
  }
  if (kept != 0 && !options_.json) line(counted(kept, kept == 1 ? "binding" : "bindings") + " unchanged");
}

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  if (!in || !(text << in.rdbuf())) throw CommandError(0, "could not read " + path);
  return text.str();
}

// replace ip|ipv6|mac access-list [standard] NAME FILE
void Shell::Impl::replaceList(const Words& words) {
  const std::optional<AclType> type = family(words[1]);
  const bool standard = words.is(3, "standard");
  const std::size_t nameAt = 3 + (standard ? 1 : 0);
  if (standard && *type != AclType::ip)
    throw CommandError(words.column(3), "expected a list name (only ip lists are standard)");
  const String name(words[nameAt]);
  const std::string subject = listName(*type, name);
  const Ptr<Acl::Input::AclTypeConfig> table = (config_ ? config_->config() : library_.mounts().config)->config(*type);
  if (const Ptr<Acl::AclConfig> existing = table ? table->acl(name) : nullptr;
      existing && existing->standard() != standard) {
    throw CommandError(0, subject + (existing->standard() ? " is a standard list" : " is not a standard list"));
  }
  const std::vector<Client::ListEntry> entries = readEntries(std::string(words[nameAt + 1]), *type, standard);
  if (config_) {
    Client::ReplaceResult r;
    try {
      r = Client::replaceList(library_, name, *type, entries, standard, /*cleanup=*/true, config_.get());
    } catch (const std::invalid_argument& e) {
      throw CommandError(0, subject + ": " + e.what());
    }
    if (!r.session) return message(subject + ": unchanged (" + counted(r.report.kept.size(), "kept") + ")");
    if (r.state == AclApi::errReadOnly) throw CommandError(0, subject + " is read-only");
    return message(subject + ": replaced: " + summary(r.report) + " in configuration session " + configName_);
  }
  Client::Change change;
  change.lists.push_back({*type, name, standard, entries, std::nullopt, std::nullopt});
  report(applyChange(change, subject), subject);
}

// import openconfig FILE
void Shell::Impl::importOpenConfig(const Words& words) {
  if (config_) throw CommandError(0, "import works on the running configuration: commit or abort the session first");
  const std::string path(words[2]);
  Interchange::Document document;
  try {
    document = Interchange::readOpenConfig(readFile(path));
  } catch (const Interchange::ImportError& e) {
    throw CommandError(0, path + ": " + e.what());
  }
  for (const Interchange::Finding& f : document.findings) note(f, out_);
  report(applyChange(Interchange::changeOf(std::move(document)), path), path);
}

// export openconfig [skip-inexact] [FILE]
void Shell::Impl::exportOpenConfig(const Words& words) {
  const bool skip = words.is(2, "skip-inexact");
  const std::size_t fileAt = skip ? 3 : 2;
  Interchange::ExportResult r;
  try {
    r = Interchange::exportOpenConfig(library_, {.skipLists = skip});
  } catch (const Interchange::ExportError& e) {
    throw CommandError(0, std::string(e.what()) + " (skip-inexact leaves such lists out)");
  }
  // Printed, the document stands alone on standard output (its notes go to standard error),
  // unless every line there is JSON anyway.
  if (words[fileAt].empty()) {
    for (const Interchange::Finding& f : r.findings) note(f, err_);
    if (options_.json) return emit(Kind::openconfig, Json::parse(r.json));
    out_ << r.json;
    return;
  }
  const std::string path(words[fileAt]);
  if (!writes(path)) return;
  writeFile(path, r.json);
  for (const Interchange::Finding& f : r.findings) note(f, out_);
  message("openconfig written to " + path);
}

}  // namespace aclsh
