// The one way front ends change the running configuration: a list edit, a replace, a set of
// bindings, a whole document or a configuration session all end here, the same way.
//
//   Client::Change change;
//   change.lists.push_back({AclType::ip, "web", false, entries});
//   change.bindings = bindings;                         // the whole set, or nullopt to keep it
//   Client::Outcome o = Client::apply(acl, change);
//   if (!o.accepted()) for (const Client::Refusal& r : o.refusals) std::cerr << r.text() << '\n';
//
// How a change ends:
// - The change is first made on a private copy of the running configuration (a configuration
//   session's candidate), and the platform's capability check runs there for every list the
//   change leaves bound, with the bindings as they will be. A refusal ends the change before
//   anything reaches the running configuration: `refused`, by list and message.
// - Bad input (two entries at one sequence, a rule of another family, a rule a standard list
//   cannot hold, a payload the platform would cut short, a malformed binding) raises
//   std::invalid_argument before anything is written.
// - Accepted, it is made on the running configuration through edit sessions, which program the
//   dataplanes: `applied` when every dataplane has programmed it, `waiting` while one is still
//   to answer, `hardwareError` when one failed (the outcome's sessions can then revert it).
// - Another session's change getting in the way (`conflict`) or a session refusing (`failed`)
//   undoes whatever this change had already written, so the running configuration is as it
//   was, lists that existed before included; another session's own work is never undone.
// - Nothing to do: `unchanged`; no session opens and nothing is programmed.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "aclkit/client/Replace.h"

namespace Client {

// A whole list as a change wants it; flags left empty stay as they are.
struct DesiredList {
  AclType type = AclType::ip;
  String name;
  bool standard = false;  // for a list the change creates; an existing list keeps its own
  std::vector<ListEntry> entries;
  std::optional<bool> counters;
  std::optional<bool> fragments;
};

struct Change {
  std::vector<DesiredList> lists;                    // each replaced whole (created when missing)
  std::vector<std::pair<AclType, String>> removals;  // lists that go
  std::optional<std::vector<Binding>> bindings;      // the whole set of bindings, when it changes
};

// A list as the configuration holds it, as data.
struct ListState {
  AclType type = AclType::ip;
  String name;
  bool standard = false;
  bool counters = false;
  bool fragments = false;
  std::vector<ListEntry> entries;
  friend bool operator==(const ListState&, const ListState&) = default;
};

// A whole configuration (the running one, or a candidate) as data: lists by family and name,
// bindings as bindingsOf gives them.
struct Snapshot {
  std::vector<ListState> lists;
  std::vector<Binding> bindings;
  friend bool operator==(const Snapshot&, const Snapshot&) = default;
};
[[nodiscard]] Snapshot snapshotOf(const Acl::Input::Config& config, const Acl::IntfConfig& bindings);
[[nodiscard]] Snapshot runningSnapshot(const Library& library);
// What differs from `before` to `after`, a line each: "ip access-list web changed",
// "ip access-list new created", "binding of Ethernet1 in (ip) changed".
[[nodiscard]] std::vector<std::string> differences(const Snapshot& before, const Snapshot& after);

// Why a change did not go through: the list or binding it is about, and the message.
struct Refusal {
  std::string subject;  // "ip access-list web"; "" for the change as a whole
  std::string message;  // "Acl not supported by hardware"
  [[nodiscard]] std::string text() const { return subject.empty() ? message : subject + ": " + message; }
  friend bool operator==(const Refusal&, const Refusal&) = default;
};

struct ListReport {
  AclType type = AclType::ip;
  String name;
  ReplaceReport report;        // entries added, removed, moved, kept
  Ptr<AclApi::ApiSm> session;  // the last session that wrote it; null when unchanged
};

// A list a change wrote, as it found it and as it left it (nullopt: missing).
struct ListWritten {
  AclType type = AclType::ip;
  String name;
  std::optional<ListState> before;
  std::optional<ListState> after;
};

struct Outcome {
  enum class State { unchanged, applied, waiting, hardwareError, refused, conflict, failed };
  State state = State::unchanged;
  std::vector<Refusal> refusals;  // refused, conflict, failed: why
  std::vector<ListReport> lists;  // what each replaced list's session did
  std::vector<BindingChange> bindings;
  // Every session that wrote to the running configuration, in order: what `revert` undoes
  // after a hardware error.
  std::vector<Ptr<AclApi::ApiSm>> sessions;
  std::vector<std::string> behind;                                   // dataplanes still to answer
  std::vector<std::pair<std::string, std::string>> dataplaneErrors;  // dataplane, message
  // What an accepted change found and left, for taking it back (revert): the lists it wrote,
  // and the whole set of bindings before and after when it changed them.
  std::vector<ListWritten> written;
  std::optional<std::pair<std::vector<Binding>, std::vector<Binding>>> rebound;
  // The running configuration holds the change (whatever the dataplanes made of it).
  [[nodiscard]] bool accepted() const noexcept {
    return state == State::unchanged || state == State::applied || state == State::waiting ||
           state == State::hardwareError;
  }
};
// "applied", "refused", ...
[[nodiscard]] std::string_view nameOf(Outcome::State state);
// "ip access-list web": how messages name a list.
[[nodiscard]] std::string subjectOf(AclType type, const String& name);

// Makes `change` on the running configuration, as described above.
[[nodiscard]] Outcome apply(const Library& library, const Change& change);

// Takes back what an accepted change (of apply or of a list edit's commit) did, as a change of
// its own through apply, checked like any other: each list it wrote is made again as it found
// it (created lists removed), and the bindings as they were. After a hardware error the
// change's own sessions revert instead, which also lets go of the versions they kept. Nothing
// to take back: unchanged. When a list or the bindings have changed since (another session's
// work), it is a `conflict` naming them and nothing is reverted.
[[nodiscard]] Outcome revert(const Library& library, const Outcome& done);

// Commits a list edit session (commit_, on the running configuration) the same way: its
// scratchpad is checked on a candidate first, and the session's own commit then writes it,
// so a conflict with another session is still the session's to find.
[[nodiscard]] Outcome commit(const Library& library, const Ptr<AclApi::ApiSm>& edit);

// Commits a configuration session. Its candidate was taken from the running configuration as
// `openedOn` held it; when the running configuration has changed since, the commit would undo
// that other work, so it is a `conflict` naming what changed, unless `overwrite`. The changed
// lists left bound are checked as by apply; a refused or conflicting commit leaves the session
// open. Committed, the dataplanes are asked to program the result.
[[nodiscard]] Outcome commit(const Library& library, Acl::AclConfigSession& session, const Snapshot& openedOn,
                             bool overwrite);

}  // namespace Client
