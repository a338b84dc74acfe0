// What front ends (the shell, the bindings, the interchange code) share over the edit
// session: the state store's mounts opened once, sessions made from them by name, a list
// version read as its entries in sequence order, and a whole list written in the ACL syntax.
//
//   Client::Library acl(store);
//   Ptr<AclApi::ApiSm> s = acl.session("web", Acl::AclType::ip, AclApi::commit_);
//   if (auto refusal = acl.payloadRefusal(body, Acl::AclType::ip)) ...   // before it reaches s
//   for (const Client::ListEntry& e : Client::entriesOf(*acl.list(Acl::AclType::ip, "web")->currCfg(),
//   Acl::AclType::ip)) std::cout << Client::render(*acl.list(Acl::AclType::ip, "web"));
//
// The session's own operations and their signatures are untouched: this layer only saves
// its callers the repetition.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/client/Platform.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/text/AclText.h"

namespace fwk {
class StateStore;
}

namespace Client {

using Acl::AclType;
using Acl::U32;
using fwk::Ptr;
using fwk::String;

// One entry of a list: a rule of the list's family or a remark, at its sequence number.
struct ListEntry {
  U32 sequence = 0;
  Text::EntryBody body;
  friend bool operator==(const ListEntry&, const ListEntry&) = default;
};

class Library {
 public:
  // Mounts the ACL model in `store` (creating what is missing).
  explicit Library(fwk::StateStore& store);

  [[nodiscard]] const Acl::AclMounts& mounts() const noexcept { return mounts_; }
  // What the platform can program, switched by name.
  [[nodiscard]] Platform platform() const { return Platform(*mounts_.paramConfig); }

  // A new edit session on the list `name` of family `type`.
  [[nodiscard]] Ptr<AclApi::ApiSm> session(const String& name, AclType type, AclApi::ApiType api,
                                           bool standard = false) const;
  // The same on a configuration session's candidate: it edits the candidate's lists and
  // bindings, and waits for no dataplane (a candidate programs nothing).
  [[nodiscard]] Ptr<AclApi::ApiSm> session(const String& name, AclType type, AclApi::ApiType api, bool standard,
                                           const Acl::AclConfigSession& candidate) const;
  // The list as the running configuration holds it, or null.
  [[nodiscard]] Ptr<Acl::AclConfig> list(AclType type, const String& name) const;
  // Every list of the family, by name.
  [[nodiscard]] std::vector<Ptr<Acl::AclConfig>> lists(AclType type) const;

  // Why a rule cannot go into a list of this platform, or nothing: a payload match with more
  // elements than an alias update keeps (the platform's capacity plus one) would lose the
  // extra elements on the next update, and so match more than was written.
  [[nodiscard]] std::optional<std::string> payloadRefusal(const Text::EntryBody& body, AclType type) const;

  // The dataplanes sessions wait for that have not yet programmed the latest request, by name.
  [[nodiscard]] std::vector<std::string> dataplanesBehind() const;
  // Asks every dataplane to program what is configured now: what a change that went around
  // the edit sessions (a configuration session's commit) needs.
  void requestProgramming() const;

 private:
  Acl::AclMounts mounts_;
};

// "ip", "ipv6" or "mac": the keyword of the family in the syntax.
[[nodiscard]] std::string_view keyword(AclType type);

// The entries of a version in sequence order, rules and remarks merged; a place without its
// rule record reads as the family's default rule, as the session's lookups do.
[[nodiscard]] std::vector<ListEntry> entriesOf(const Acl::AclSubConfig& version, AclType type);
// Whether two versions hold the same entries at the same places: entriesOf(a) == entriesOf(b),
// without building either.
[[nodiscard]] bool sameEntries(const Acl::AclSubConfig& a, const Acl::AclSubConfig& b, AclType type);

// A whole list in the syntax: "ip access-list [standard] NAME", its flags
// ("counters per-entry", "fragment-rules") and its entries, each line indented by `indent`.
[[nodiscard]] std::string render(const Acl::AclConfig& list, std::string_view indent = "   ");
// One entry's line, with its sequence number.
[[nodiscard]] std::string render(const ListEntry& entry, bool standard);

}  // namespace Client
