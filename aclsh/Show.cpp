// What the shell shows: lists with where they are bound and whether they are programmed, the
// running configuration (which the shell reads back as a script), the pending edit and its
// difference from the committed list; in words, or in JSON for scripts. And `write`, and
// the atomic file write it shares with `export`.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include "aclkit/aclsh/internal/ShellImpl.h"
#include "aclkit/kernel/Kernel.h"

namespace aclsh {

namespace {

constexpr AclType families[] = {AclType::ip, AclType::ipv6, AclType::mac};

// Where each list is bound: (family, list name) to "Ethernet1 in" and the like.
using Bindings = std::map<std::pair<AclType, std::string>, BoundAt>;

Bindings bindingsOf(const Acl::IntfConfig& intfConfig) {
  Bindings bound;
  for (AclType type : families) {
    const Ptr<const Acl::IntfTypeConfig> table = Ptr<const Acl::IntfConfig>(&intfConfig)->config(type);
    if (!table) continue;
    for (const auto& [dir, intfs] : table->intf()) {
      for (const auto& [intf, name] : intfs->intf()) {
        bound[{type, std::string(name.view())}].emplace_back(std::string(intf.name().view()), dir);
      }
    }
  }
  for (auto& [list, where] : bound) std::sort(where.begin(), where.end());
  return bound;
}

}  // namespace

namespace {

// Each entry line that has hits, with them: "   10 permit ip any any (3 packets, 180 bytes)".
std::string withHits(const std::string& rendered, const std::map<U32, Kernel::Hits>& hits) {
  if (hits.empty()) return rendered;
  std::istringstream lines(rendered);
  std::string out;
  for (std::string text; std::getline(lines, text);) {
    U32 sequence = 0;
    const std::size_t digits = text.find_first_not_of(' ');
    const auto [end, error] = std::from_chars(text.data() + digits, text.data() + text.size(), sequence);
    if (error == std::errc() && end != text.data() + digits) {
      if (auto h = hits.find(sequence); h != hits.end()) {
        text += " (" + std::to_string(h->second.packets) + " packets, " + std::to_string(h->second.bytes) + " bytes)";
      }
    }
    out += text + "\n";
  }
  return out;
}

}  // namespace

// Hits are counted where a kernel dataplane programs the list, summed over its bindings, and
// shown only for a list that counts per entry.
std::map<U32, Kernel::Hits> Shell::Impl::hitsOf(const Acl::AclConfig& list, const BoundAt* where) const {
  std::map<U32, Kernel::Hits> sum;
  if (!where || !list.currCfg() || !list.currCfg()->countersEnabled()) return sum;
  for (const auto& [name, dp] : dataplanes_) {
    if (!dp.kernel) continue;
    for (const auto& [intf, dir] : *where) {
      try {
        for (const auto& [sequence, h] : dp.kernel->hits({list.type(), Acl::IntfId(String(intf)), dir})) {
          sum[sequence].packets += h.packets;
          sum[sequence].bytes += h.bytes;
        }
      } catch (const Kernel::Error& e) {
        throw CommandError(0, "cannot read the hits of dataplane " + name + ": " + e.what());
      }
    }
  }
  return sum;
}

// show access-lists [NAME], show ip|ipv6|mac access-lists [NAME]
void Shell::Impl::showAccessLists(const Words& words) {
  const std::optional<AclType> type = family(words[1]);
  showLists(type, String(words[type ? 3 : 2]));
}

void Shell::Impl::showLists(std::optional<AclType> only, const String& name) {
  const Bindings bound = bindingsOf(*library_.mounts().intfConfig);
  Json all = Json::array();
  bool any = false;
  for (AclType type : families) {
    if (only && *only != type) continue;
    for (const Ptr<Acl::AclConfig>& list : library_.lists(type)) {
      if (!name.empty() && list->name() != name) continue;
      any = true;
      const auto where = bound.find({type, std::string(list->name().view())});
      const bool programmed = list->currCfg() && list->currCfg()->committed();
      const std::map<U32, Kernel::Hits> hits = hitsOf(*list, where == bound.end() ? nullptr : &where->second);
      if (options_.json) {
        Json l = listJson(*list);
        for (Json& entry : l["entries"]) {
          if (auto h = hits.find(entry["sequence"].get<U32>()); h != hits.end()) {
            entry["packets"] = h->second.packets;
            entry["bytes"] = h->second.bytes;
          }
        }
        l["bound"] = Json::array();
        if (where != bound.end()) {
          for (const auto& [intf, dir] : where->second) {
            l["bound"].push_back({{"interface", intf}, {"direction", std::string(stringValue(dir).view())}});
          }
        }
        l["programmed"] = programmed;
        all.push_back(std::move(l));
        continue;
      }
      out_ << withHits(Client::render(*list), hits);
      std::string places;
      if (where != bound.end()) {
        for (const auto& [intf, dir] : where->second) {
          places += (places.empty() ? "" : ", ") + intf + " " + std::string(stringValue(dir).view());
        }
      }
      line("   -- " + (places.empty() ? std::string("not bound") : "bound: " + places) +
           (dataplanes_.empty() ? ""
            : programmed        ? "; programmed by every dataplane"
                                : "; not programmed yet"));
    }
  }
  if (options_.json) {
    emit(Kind::lists, std::move(all));
  } else if (!any) {
    line(name.empty() ? "no access lists" : "no access list named " + name.str());
  }
}

// What a fresh shell needs to be as this one is. What the lists need comes first (the room
// for their payload matches, the dataplanes that program them), then the lists and the
// bindings, and last the platform's limits and how the dataplanes answer: loaded, every list
// and binding goes in as it went in here, before a limit that came later.
std::string Shell::Impl::runningConfig() const {
  const auto [room, limits] = platformConfig();
  const auto [dataplanes, answers] = dataplaneConfig();
  std::string text = room + dataplanes;
  if (!text.empty()) text += "!\n";
  for (AclType type : families) {
    for (const Ptr<Acl::AclConfig>& list : library_.lists(type)) text += Client::render(*list) + "!\n";
  }
  // interface -> its access-group lines, families and directions in order
  std::map<std::string, std::vector<std::string>> groups;
  for (const auto& [list, where] : bindingsOf(*library_.mounts().intfConfig)) {
    for (const auto& [intf, dir] : where) {
      groups[intf].push_back(std::string(Client::keyword(list.first)) + " access-group " + list.second + " " +
                             std::string(stringValue(dir).view()));
    }
  }
  for (auto& [intf, lines] : groups) {
    std::sort(lines.begin(), lines.end());
    text += "interface " + intf + "\n";
    for (const std::string& group : lines) text += "   " + group + "\n";
    text += "!\n";
  }
  if (limits.empty() && answers.empty()) return text;
  // `!` is a comment: the last list or interface block needs its end.
  const bool blocks = !groups.empty() || std::any_of(std::begin(families), std::end(families),
                                                     [&](AclType type) { return !library_.lists(type).empty(); });
  return text + (blocks ? "exit\n" : "") + limits + answers + "!\n";
}

Json Shell::Impl::runningJson() const {
  Json config{{"platform", platformJson()}, {"dataplanes", dataplanesJson(true)}};
  config["lists"] = Json::array();
  for (AclType type : families) {
    for (const Ptr<Acl::AclConfig>& list : library_.lists(type)) {
      config["lists"].push_back(listJson(*list));
    }
  }
  config["bindings"] = Json::array();
  for (const Client::Binding& b : Client::bindingsOf(*library_.mounts().intfConfig)) {
    config["bindings"].push_back(bindingJson(b));
  }
  return config;
}

void Shell::Impl::showRunning() {
  if (options_.json) return emit(Kind::runningConfig, runningJson());
  out_ << runningConfig();
}

void Shell::Impl::showPending() {
  const ListEdit& edit = *list_;
  const Ptr<Acl::AclSubConfig> pending = edit.session->currentAcl();
  if (options_.json) {
    return emit(Kind::pending, listJson(edit.type, edit.name, edit.standard, pending));
  }
  line("pending " + listName(edit.type, edit.name) + (edit.standard ? " (standard)" : ""));
  if (!pending) return;
  if (pending->countersEnabled()) line("   counters per-entry");
  if (pending->fragmentsEnabled()) line("   fragment-rules");
  for (const Client::ListEntry& entry : Client::entriesOf(*pending, edit.type)) {
    line("   " + Client::render(entry, edit.standard));
  }
}

namespace {

// A list version's lines by (sequence, text), its flags counted as lines at 0.
using Lines = std::map<std::pair<U32, std::string>, std::optional<Client::ListEntry>>;
Lines linesOf(bool counters, bool fragments, const std::vector<Client::ListEntry>& entries, bool standard) {
  Lines all;
  if (counters) all.emplace(std::pair(U32{0}, "counters per-entry"), std::nullopt);
  if (fragments) all.emplace(std::pair(U32{0}, "fragment-rules"), std::nullopt);
  for (const Client::ListEntry& entry : entries)
    all.emplace(std::pair(entry.sequence, Client::render(entry, standard)), entry);
  return all;
}

// The lines only `before` has (-) and only `after` has (+), in sequence order; their entries
// also go to json["removed"] and json["added"].
std::set<std::tuple<U32, std::string, char>> changesOf(const Lines& before, const Lines& after, Json& json,
                                                       bool standard) {
  std::set<std::tuple<U32, std::string, char>> changes;
  for (const auto& [from, to, sign, kind] :
       {std::tuple(&before, &after, '-', "removed"), {&after, &before, '+', "added"}}) {
    for (const auto& [key, entry] : *from) {
      if (to->contains(key)) continue;
      changes.emplace(key.first, key.second, sign);
      if (entry) json[kind].push_back(entryJson(*entry, standard));
    }
  }
  return changes;
}

}  // namespace

void Shell::Impl::showDiff() {
  const ListEdit& edit = *list_;
  const Ptr<Acl::AclSubConfig> pending = edit.session->currentAcl();
  const Ptr<Acl::AclConfig> live = library_.list(edit.type, edit.name);
  const Ptr<Acl::AclSubConfig> committed = live ? live->currCfg() : nullptr;
  auto lines = [&](const Ptr<Acl::AclSubConfig>& version) {
    return version ? linesOf(version->countersEnabled(), version->fragmentsEnabled(),
                             Client::entriesOf(*version, edit.type), edit.standard)
                   : Lines();
  };
  // The flags go in JSON as the pending list has them.
  Json diff{{"removed", Json::array()},
            {"added", Json::array()},
            {"countersPerEntry", pending && pending->countersEnabled()},
            {"fragmentRules", pending && pending->fragmentsEnabled()}};
  const auto changes = changesOf(lines(committed), lines(pending), diff, edit.standard);
  if (options_.json) return emit(Kind::diff, std::move(diff));
  if (changes.empty()) line("no difference from the committed list");
  for (const auto& [sequence, text, sign] : changes) line(std::string(1, sign) + " " + text);
}

// What the configuration session's commit would change: for each list that differs, its
// entries and flags that go (-) and come (+); then the bindings.
void Shell::Impl::showSessionDiff() {
  const Client::Snapshot running = Client::runningSnapshot(library_);
  const Client::Snapshot candidate = Client::snapshotOf(*config_->config(), *config_->intfConfig());
  using Key = std::pair<AclType, std::string>;
  std::map<Key, std::pair<const Client::ListState*, const Client::ListState*>> lists;
  for (const Client::ListState& l : running.lists) lists[{l.type, l.name.str()}].first = &l;
  for (const Client::ListState& l : candidate.lists) lists[{l.type, l.name.str()}].second = &l;
  auto lines = [](const Client::ListState* list) {
    return list ? linesOf(list->counters, list->fragments, list->entries, list->standard) : Lines();
  };
  Json diff{{"lists", Json::array()}, {"bindings", {{"removed", Json::array()}, {"added", Json::array()}}}};
  std::vector<std::string> text;
  for (const auto& [key, states] : lists) {
    const auto& [was, will] = states;
    if (was && will && *was == *will) continue;
    const bool standard = (will ? will : was)->standard;
    Json list{{"family", std::string(Client::keyword(key.first))},
              {"name", key.second},
              {"removed", Json::array()},
              {"added", Json::array()}};
    text.push_back(std::string(Client::keyword(key.first)) + " access-list " + (standard ? "standard " : "") +
                   key.second +
                   (!was    ? " (new)"
                    : !will ? " (removed)"
                            : ""));
    for (const auto& [sequence, line, sign] : changesOf(lines(was), lines(will), list, standard)) {
      text.push_back(std::string(1, sign) + "   " + line);
    }
    diff["lists"].push_back(std::move(list));
  }
  for (const auto& [from, to, sign, kind] : {std::tuple(&running.bindings, &candidate.bindings, '-', "removed"),
                                             {&candidate.bindings, &running.bindings, '+', "added"}}) {
    for (const Client::Binding& b : *from) {
      if (std::find(to->begin(), to->end(), b) != to->end()) continue;
      text.push_back(std::string(1, sign) + " interface " + b.interface.str() + " " +
                     std::string(Client::keyword(b.type)) + " access-group " + b.list.str() + " " +
                     std::string(stringValue(b.direction).view()));
      diff["bindings"][kind].push_back(bindingJson(b));
    }
  }
  if (options_.json) return emit(Kind::diff, std::move(diff));
  if (text.empty()) line("no difference from the running configuration");
  for (const std::string& t : text) line(t);
}

void Shell::Impl::write() {
  if (options_.configFile.empty()) throw CommandError(0, "no configuration file: start aclsh with --config FILE");
  if (!writes(options_.configFile)) return;
  writeFile(options_.configFile, runningConfig());
  message("configuration written to " + options_.configFile);
}

bool Shell::Impl::writes(const std::string& path) {
  if (options_.check) message("checking: " + path + " is not written");
  return !options_.check;
}

void writeFile(const std::string& path, const std::string& text) {
  // Through a symbolic link to the file it names, so that the link stays a link.
  std::error_code error;
  const std::filesystem::path target = std::filesystem::weakly_canonical(path, error);
  if (error) throw CommandError(0, "could not write " + path + ": " + error.message());
  struct stat existing {};
  const bool exists = ::stat(target.c_str(), &existing) == 0;
  if (exists && !S_ISREG(existing.st_mode)) throw CommandError(0, "could not write " + path + ": not a regular file");
  // A whole new file beside the old one, unique to this writer (two writers never share it),
  // with the old file's mode and owner, synced, then renamed over it and the directory synced:
  // a crash or a failure leaves the old file or the new one, never a mix.
  std::string hidden = ".";
  hidden += target.filename().string();
  hidden += ".XXXXXX";
  std::string temporary = (target.parent_path() / hidden).string();
  const int fd = ::mkstemp(temporary.data());
  const char* failed = fd < 0 ? "could not create a temporary file beside it" : nullptr;
  int reason = errno;
  // Each step runs only while every step before it went through.
  auto step = [&](const char* what, auto&& run) {
    if (failed) return;
    if (!run()) {
      failed = what;
      reason = errno;
    }
  };
  step("could not keep its mode", [&] { return ::fchmod(fd, exists ? existing.st_mode & 07777 : 0644) == 0; });
  step("could not keep its owner", [&] { return !exists || ::fchown(fd, existing.st_uid, existing.st_gid) == 0; });
  for (std::size_t done = 0; !failed && done < text.size();) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    step("could not write it", [&] { return n > 0; });
    done += n > 0 ? static_cast<std::size_t>(n) : 0;
  }
  step("could not sync it", [&] { return ::fsync(fd) == 0; });
  if (fd >= 0 && ::close(fd) != 0 && !failed) {
    failed = "could not close it";
    reason = errno;
  }
  step("could not rename it into place", [&] { return std::rename(temporary.c_str(), target.c_str()) == 0; });
  if (failed) {
    if (fd >= 0) std::remove(temporary.c_str());
    throw CommandError(0, "could not write " + path + ": " + failed + ": " + std::strerror(reason));
  }
  if (const int dir = ::open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
    static_cast<void>(::fsync(dir));
    ::close(dir);
  }
}

}  // namespace aclsh
