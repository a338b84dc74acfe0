// Declarative edits: a whole list, or the whole set of bindings, handed over as it must be,
// and reached through the edit session with the fewest operations.
//
//   Client::ReplaceResult r = Client::replaceList(acl, "web", Acl::AclType::ip, entries);
//   r.state;             // the commit's result (succeeded, waitingForHw, errHw, a conflict...)
//   r.report.moved;      // {from, to} for each entry that only changed its number
//   r.session;           // the commit session (null when nothing had to change)
//
// A list: an entry whose rule or remark stands unchanged at its sequence is kept (the session
// never touches it, so its rule identity stays); an entry whose content stands elsewhere in
// the list is moved (taken out of its old place, written at the new one); any other current
// entry is removed and any other desired one added (a changed entry is both: removed and
// added at the same sequence). Removals run first, as ranges of neighbouring entries, then
// the additions in ascending order: an addition never meets an occupied place. One commit
// session does all of it; a desired list equal to the current one opens none and programs
// nothing.
//
// Identities. The commit keeps the identity of every kept rule. When the rules are the same
// in the same order and only numbers and remarks differ (a renumbered list), the commit
// patches the current version in place, if every dataplane programmed it, and every rule
// keeps its identity (such a patch is not one revert() undoes); a moved rule otherwise gets
// a fresh identity, as any rule the session writes at a new place.
//
// An empty desired list leaves the list in place, empty (and creates it empty when it does
// not exist): removing a list is its own verb, a remove session. Flags (counters per-entry,
// fragment rules) are not entries and stay as they are.
//
// Bindings: the desired set is every binding of every family and direction. A binding that
// stands is kept; an interface bound to another list, or not bound, is attached; a binding
// not in the set is detached. Each is its own attach or detach session.
#pragma once

#include <utility>
#include <vector>

#include "aclkit/client/Library.h"

namespace Client {

using Acl::AclDirection;

// What a replace does (or did) to a list, by sequence number.
struct ReplaceReport {
  std::vector<U32> added;
  std::vector<U32> removed;
  std::vector<std::pair<U32, U32>> moved;  // {from, to}
  std::vector<U32> kept;
  [[nodiscard]] bool changes() const noexcept { return !added.empty() || !removed.empty() || !moved.empty(); }
};

// How `desired` differs from `current`; both in any order. std::invalid_argument for two
// desired entries at one sequence.
[[nodiscard]] ReplaceReport planReplace(const std::vector<ListEntry>& current, const std::vector<ListEntry>& desired);

struct ReplaceResult {
  AclApi::ApiState state = AclApi::succeeded;  // as the session reports it; succeeded when unchanged
  ReplaceReport report;
  Ptr<AclApi::ApiSm> session;  // the commit session, for revert() after errHw; null when unchanged
};

// Makes the list `name` of family `type` hold exactly `desired` (rules of that family and
// remarks, in any order), in one commit session. `standard` applies to a list the commit
// creates; an existing list keeps its own. With `cleanup` the commit lets go of what revert
// would need (commit()); without it, commitExt(false), and a commit every dataplane has
// programmed then lets go of the replaced version (nothing is left to revert). `candidate`:
// edit a configuration session's candidate (open) instead of the running configuration.
// Refused before any session opens, changing nothing, with std::invalid_argument naming the
// entry: sequence 0 (the session would number it itself), two entries at one sequence, a rule
// of another family, a rule a standard list cannot hold, a payload match the platform would
// cut short (Library::payloadRefusal). The session's refusals (errReadOnly, conflicts with
// other sessions) come back in `state`; an edit refused before the commit is dropped, so the
// list is as it was.
[[nodiscard]] ReplaceResult replaceList(const Library& library, const String& name, AclType type,
                                        const std::vector<ListEntry>& desired, bool standard = false,
                                        bool cleanup = true, const Acl::AclConfigSession* candidate = nullptr);

// One binding: the list `list` of family `type` on `interface` in `direction`.
struct Binding {
  String interface;
  AclDirection direction = AclDirection::in;
  AclType type = AclType::ip;
  String list;
  friend bool operator==(const Binding&, const Binding&) = default;
};

// Every binding there is, by family, direction and interface.
[[nodiscard]] std::vector<Binding> bindingsOf(const Acl::IntfConfig& bindings);

struct BindingChange {
  enum class Kind { attached, detached, kept };
  Kind kind = Kind::kept;
  Binding binding;  // for a detach: the binding that was taken away
  AclApi::ApiState state = AclApi::succeeded;
  Ptr<AclApi::ApiSm> session;  // null for a kept binding
};

struct BindingsResult {
  // Detaches first, then attaches, each in family, direction and interface order; the kept
  // bindings last. The walk stops at the first change whose session neither succeeded nor
  // waits for dataplanes nor left a hardware error to revert: that change is the last here.
  std::vector<BindingChange> changes;
};

// Makes the bindings exactly `desired`. std::invalid_argument, before any session, for two
// lists of one family on one interface and direction, or an empty interface or list name.
[[nodiscard]] BindingsResult replaceBindings(const Library& library, const std::vector<Binding>& desired,
                                             const Acl::AclConfigSession* candidate = nullptr);

}  // namespace Client
