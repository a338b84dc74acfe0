// A reference software dataplane: it programs the bound lists into first-match tables when
// the library asks for it, reports in its own status record as a hardware agent would, and
// answers packet checks from what it holds.
//
//   Acl::AclMounts acl = Acl::mountAcl(store);
//   Agent::Dataplane a(acl, "dp1"), b(acl, "dp2");    // before the sessions that wait for them
//   b.delayIs(1);                                      // dp2 answers one event late
//   auto s = AclApi::apiSmFactory("web", Acl::AclType::ip, false, AclApi::commit_, acl.config, ...);
//   s->addIpRule(10, rule);
//   s->commit();                                       // waitingForHw: dp1 answered, dp2 not yet
//   b.tick();                                          // dp2 programs and answers: succeeded
//   Agent::Verdict v = a.check(Acl::IntfId("Ethernet1"), Acl::AclDirection::in, packet);
//   v.implicitDeny() ? "deny (no entry)" : Text::format(std::get<Acl::IpRuleConfig>(v.entry->rule));
//
// Events. A dataplane is driven by the framework's notifications on the caller's thread: it
// never starts a thread, sleeps or polls. An event is a change of the hardware request time
// (HwConfig::dpAclUpdateRequestTime) or a call to tick(). A request with delay 0 is answered
// inside the change, before the requester's write returns. With delay n, the first request not
// yet answered starts a count and the n-th event after it answers; later requests in between
// do not restart the count, and the answer programs the configuration as it stands then and
// reports the latest request time. Requests made by observers of an answer (a session that
// reverts on errHw) are taken once the answer is out.
//
// A run. Every binding of every family and direction names a list; the list's current version
// is programmed into the table of that (family, interface, direction): its rules in ascending
// sequence order, remarks left out. An unbound interface, or one bound to a list that does not
// exist or has no current version, has no table. A table is changed entry by entry: an entry
// (a rule at a sequence) whose sequence and rule are unchanged is kept, others are removed or
// added, and tables no longer bound lose all their entries. A table holds its version by
// sharing the version's storage, so a run copies no rule: a list that did not change costs
// nothing, one whose records are all shared with what is held costs the places that changed,
// and any other one walk of the version against its table. The run then writes its status: the error map holds
// this run's error, if any, and nothing else (a run that succeeds clears earlier errors), and
// dpAclUpdateTime becomes the request time, last, so that a session that sees the time also
// sees the errors.
//
// Errors, by key in the status record's error map:
//   "forced"    forcedErrorIs(reason) holds: each run fails with "<name> could not program its
//               lists: <reason>" until forcedErrorDel();
//   "capacity"  the run would hold more entries than capacity(): "<name> needs N entries but
//               holds at most C; it keeps its M entries programmed."
//   the programmer's key, when the programmer refused the run's changes (see Programmer).
// A failed run keeps every table as it was and still answers, so a waiting session ends in
// errHw with the message. A dataplane also runs once when it is made, to hold what is bound.
//
// The status record stays in statusDpDir when the dataplane goes. The dataplane must outlive
// the notifications it is in (an observer of its answer must not destroy it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "aclkit/agent/Packet.h"
#include "aclkit/model/Mounts.h"

namespace Agent {

using Rule = std::variant<Acl::IpRuleConfig, Acl::Ip6RuleConfig, Acl::MacRuleConfig>;
[[nodiscard]] Acl::RuleAction actionOf(const Rule& rule);

// One programmed entry: a rule at its sequence.
struct Entry {
  U32 sequence = 0;
  Rule rule;
  [[nodiscard]] Acl::RuleAction action() const;
  friend bool operator==(const Entry&, const Entry&) = default;
};

// Where a table applies.
struct TableKey {
  Acl::AclType family = Acl::AclType::ip;
  Acl::IntfId intf;
  Acl::AclDirection direction = Acl::AclDirection::in;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 misreads a defaulted <=>
  friend auto operator<=>(const TableKey&, const TableKey&) = default;
};

// The entries of one (family, interface, direction): the places and rule records of the list
// version programmed there, held by sharing that version's storage, so that programming a
// list copies none of its rules. A place whose identity has no record of the family holds no
// entry.
struct Table {
  using Records =
      std::variant<fwk::HashMap<Acl::UniqueId, Acl::IpRuleConfig>, fwk::HashMap<Acl::UniqueId, Acl::Ip6RuleConfig>,
                   fwk::HashMap<Acl::UniqueId, Acl::MacRuleConfig>>;

  fwk::String acl;  // the list they come from
  fwk::OrderedMap<U32, Acl::UniqueId> places;
  Records records;
  std::size_t size = 0;  // the entries: places that hold a rule

  // Calls visit(sequence, rule) for each entry in ascending sequence order from `first` on,
  // with the rule's own record type; a visit that returns true ends the walk.
  template <class Visit>
  void forEachEntry(Visit&& visit, U32 first = 0) const {
    std::visit(
        [&](const auto& byId) {
          for (auto at = places.lowerBound(first); at != places.end(); ++at) {
            const auto& [sequence, id] = *at;
            if (const auto* rule = byId.find(id); rule && visit(sequence, *rule)) return;
          }
        },
        records);
  }
  // The rule at a sequence, or nothing.
  [[nodiscard]] std::optional<Rule> at(U32 sequence) const;
};

// What one run did.
struct RunReport {
  std::uint64_t run = 0;  // runs so far, this one included; 0 before the first
  double requestTime = 0;
  std::size_t added = 0;
  std::size_t removed = 0;
  std::size_t kept = 0;  // a failed run keeps every entry it held
  fwk::String errorKey;  // "forced", "capacity" or the programmer's; empty when the run programmed
  fwk::String error;     // the message written under errorKey
  [[nodiscard]] bool programmed() const noexcept { return errorKey.empty(); }
};

// What one run changes in one table, for a dataplane that keeps its entries somewhere of its own
// (a kernel): the entries that go and those that come, in no particular order. An entry whose
// rule changed at its sequence is in both. A table no longer bound is `gone` and
// lists nothing; one not held before lists all its entries as added.
struct TableChange {
  TableKey key;
  bool gone = false;
  const Table* table = nullptr;  // what the table holds after the run; null when gone
  std::vector<Entry> removed;
  std::vector<Entry> added;
};

// Where a dataplane puts its entries besides its own tables. program() is called with every
// run's changes before the tables change, and only when the run has nothing else against it; it
// makes all of them or none, and says why in a message that names no dataplane when it made none.
class Programmer {
 public:
  virtual ~Programmer() = default;
  // The key of the error map that holds its failures.
  [[nodiscard]] virtual const char* errorKey() const noexcept = 0;
  // An empty string when every change was made; otherwise nothing was.
  [[nodiscard]] virtual std::string program(const std::vector<TableChange>& changes) = 0;
};

// The outcome of a packet check.
struct Verdict {
  Acl::RuleAction action = Acl::RuleAction::deny;
  std::optional<Entry> entry;  // the first entry that matched; empty for the implicit deny
  fwk::String acl;             // the list programmed there; empty when there is no table
  [[nodiscard]] bool implicitDeny() const noexcept { return !entry.has_value(); }
};

class Dataplane {
 public:
  static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

  // Takes the StatusDp called `name` in mounts.statusDpDir (making it when absent), sets it to
  // take part in hardware waits, watches mounts.hwConfig and runs once. With a programmer, every
  // run hands it the run's changes, and a run it refuses fails with "<name> could not program
  // its lists: <its message>" under its error key; the programmer must outlive the dataplane.
  Dataplane(const Acl::AclMounts& mounts, const fwk::String& name, Programmer* programmer = nullptr);
  ~Dataplane();
  Dataplane(const Dataplane&) = delete;
  Dataplane& operator=(const Dataplane&) = delete;

  [[nodiscard]] const fwk::String& name() const noexcept;
  [[nodiscard]] const fwk::Ptr<Acl::StatusDp>& status() const noexcept { return status_; }

  // ---- settings ----
  // Whether sessions wait for this dataplane. One that does not still programs every request.
  [[nodiscard]] bool waitForHwStatus() const noexcept;
  void waitForHwStatusIs(bool wait);
  // The most entries all its tables may hold together.
  [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }
  void capacityIs(std::size_t entries) { capacity_ = entries; }
  // Events between a request and its answer; a count already running keeps its own.
  [[nodiscard]] unsigned delay() const noexcept { return delay_; }
  void delayIs(unsigned events) { delay_ = events; }
  // Runs fail with this reason while it is set; an empty reason clears it.
  [[nodiscard]] const fwk::String& forcedError() const noexcept { return forcedError_; }
  void forcedErrorIs(const fwk::String& reason) { forcedError_ = reason; }
  void forcedErrorDel() { forcedError_ = fwk::String(); }

  // ---- events ----
  void tick();

  // ---- what it holds ----
  [[nodiscard]] const std::map<TableKey, Table>& tables() const noexcept { return tables_; }
  // The table of that (family, interface, direction), or null.
  [[nodiscard]] const Table* table(Acl::AclType family, const Acl::IntfId& intf, Acl::AclDirection direction) const;
  [[nodiscard]] std::size_t entryCount() const noexcept { return entryCount_; }
  [[nodiscard]] const RunReport& lastRun() const noexcept { return lastRun_; }
  // A request is waiting for its answer.
  [[nodiscard]] bool pending() const noexcept { return pending_; }
  // It has answered the latest request and that run programmed.
  [[nodiscard]] bool upToDate() const;

  // The first entry of the table for the packet's family, the interface and the direction that
  // matches the packet, or the implicit deny.
  [[nodiscard]] Verdict check(const Acl::IntfId& intf, Acl::AclDirection direction, const Packet& packet) const;

 private:
  class RequestReactor : public Acl::HwConfig::Reactor {
   public:
    explicit RequestReactor(Dataplane& owner) : owner_(owner) {}
    void dpAclUpdateRequestTimeChanged() override;

   private:
    Dataplane& owner_;
  };

  // What a run changes, prepared before anything held is touched: per held table still bound,
  // what it holds next; the tables not held yet; the held tables no longer bound; and, with a
  // programmer, the entries that change.
  struct Plan {
    struct Edit {
      std::map<TableKey, Table>::iterator table;
      Table next;
    };
    std::vector<Edit> edits;
    std::map<TableKey, Table> fresh;
    std::vector<std::map<TableKey, Table>::iterator> gone;
    std::vector<TableChange> changes;
  };

  void event(bool request);
  void run();
  // Changes nothing; its iterators are for apply().
  [[nodiscard]] Plan prepare(RunReport& report);
  void apply(Plan& plan);
  void publish(const RunReport& report);

  fwk::Ptr<Acl::Input::Config> config_;
  fwk::Ptr<Acl::IntfConfig> intfConfig_;
  fwk::Ptr<Acl::HwConfig> hw_;
  fwk::Ptr<Acl::StatusDp> status_;
  Programmer* programmer_;

  std::size_t capacity_ = unlimited;
  unsigned delay_ = 0;
  fwk::String forcedError_;

  bool pending_ = false;
  unsigned countdown_ = 0;
  bool answering_ = false;
  bool requestedWhileAnswering_ = false;

  std::map<TableKey, Table> tables_;
  std::size_t entryCount_ = 0;
  RunReport lastRun_;

  // Last, so that it stops watching before anything it reaches goes.
  RequestReactor reactor_{*this};
};

}  // namespace Agent
