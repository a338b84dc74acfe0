// The pieces of each bound list in the kernel, and what a run sends to change them: one batch,
// whose handles are written down only once the kernel has taken all of it.
#include <net/if.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <set>
#include <utility>

#include "aclkit/kernel/Kernel.h"
#include "aclkit/kernel/internal/Encode.h"
#include "aclkit/kernel/internal/Netlink.h"
#include "aclkit/model/Platform.h"

namespace Kernel {

using namespace Acl;
using Agent::TableChange;
using Agent::TableKey;
using nft::Batch;
using nft::Hook;

namespace {

// A new piece holds this many entries; one that would grow past pieceLimit is laid out anew.
constexpr std::size_t pieceSize = 1000;
constexpr std::size_t pieceLimit = 2 * pieceSize;
// The pieces lie strictly between "enter" and "leave".
constexpr std::int32_t enterPriority = -(1 << 30);
constexpr std::int32_t leavePriority = 1 << 30;
const std::string entriesChain = "entries";

std::string controlTable(const std::string& name) {
  return "aclkit::" + name;
}
std::string pieceTable(const std::string& name, std::uint64_t number) {
  return "aclkit:" + std::to_string(number) + ":" + name;
}
// The number of a piece's table of this dataplane, or nothing for any other table (the
// control table included).
std::optional<std::uint64_t> pieceNumber(const std::string& table, const std::string& name) {
  const std::string_view prefix = "aclkit:";
  if (!table.starts_with(prefix)) return std::nullopt;
  const std::size_t colon = table.find(':', prefix.size());
  if (colon == std::string::npos || colon == prefix.size() || table.compare(colon + 1, std::string::npos, name) != 0) {
    return std::nullopt;
  }
  std::uint64_t number = 0;
  const char* first = table.data() + prefix.size();
  const char* last = table.data() + colon;
  if (std::from_chars(first, last, number).ptr != last) return std::nullopt;
  return number;
}

std::string hookChain(const char* what, const IntfId& intf, AclDirection direction) {
  return std::string(what) + "-" + intf.name().str() + (direction == AclDirection::in ? "-in" : "-out");
}

struct HookKey {
  IntfId intf;
  AclDirection direction = AclDirection::in;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 misreads a defaulted <=>
  friend auto operator<=>(const HookKey&, const HookKey&) = default;
};

}  // namespace

class Dataplane::Programmer final : public Agent::Programmer {
 public:
  explicit Programmer(std::string name) : name_(std::move(name)), control_(controlTable(name_)) {
    for (const std::string& table : socket_.tables()) {
      if (table == control_) {
        leftover_.push_back(table);
      } else if (auto number = pieceNumber(table, name_)) {
        leftover_.push_back(table);
        nextPiece_ = std::max(nextPiece_, *number + 1);
      }
    }
  }

  [[nodiscard]] const char* errorKey() const noexcept override { return "kernel"; }
  [[nodiscard]] std::string program(const std::vector<TableChange>& changes) override;
  [[nodiscard]] std::map<U32, Hits> hits(const TableKey& key);

 private:
  struct Piece {
    std::string table;
    std::int32_t priority = 0;
    U32 from = 0;  // its first sequence; the first piece's is 0
    std::uint64_t lastHead = 0;
    std::map<U32, std::uint64_t> handles;  // sequence to rule handle
  };
  struct Held {
    std::vector<Piece> pieces;  // in sequence order, which is priority order
  };
  // A piece to be made: where its handles will be found once the batch is sent.
  struct NewPiece {
    Piece piece;
    std::uint32_t headTicket = 0;
    std::vector<std::pair<U32, std::uint32_t>> tickets;
  };
  // What a run does to one held list, written down once the kernel has taken it.
  struct ListPlan {
    TableKey key;
    bool gone = false;
    std::optional<std::vector<NewPiece>> whole;           // laid out anew: every piece replaced
    std::map<std::size_t, std::vector<NewPiece>> splits;  // a piece replaced by these
    std::map<std::size_t, std::vector<U32>> removed;
    std::map<std::size_t, std::vector<std::pair<U32, std::uint32_t>>> added;
  };

  std::string planList(const TableChange& change, Batch& batch, ListPlan& plan);
  std::string layOut(const TableKey& key, const Agent::Table& table, U32 from, std::optional<U32> until,
                     std::int32_t after, std::int32_t before, Batch& batch, std::vector<NewPiece>& pieces);
  void apply(ListPlan& plan, const nft::Socket::Outcome& outcome);

  std::string name_;
  std::string control_;
  nft::Socket socket_;
  std::vector<std::string> leftover_;  // tables of an earlier dataplane of this name
  std::uint64_t nextPiece_ = 1;
  bool controlMade_ = false;
  std::map<TableKey, Held> held_;
  std::map<HookKey, std::set<AclType>> hooks_;  // the families with a list there
};

// Lays out the entries of `table` from `from` up to (not including) `until` as new pieces of
// pieceSize entries, at priorities spread between `after` and `before`.
std::string Dataplane::Programmer::layOut(const TableKey& key, const Agent::Table& table, U32 from,
                                          std::optional<U32> until, std::int32_t after, std::int32_t before,
                                          Batch& batch, std::vector<NewPiece>& pieces) {
  std::vector<std::pair<U32, Agent::Rule>> entries;
  table.forEachEntry(
      [&](U32 sequence, const auto& rule) {
        if (until && sequence >= *until) return true;
        entries.emplace_back(sequence, Agent::Rule(rule));
        return false;
      },
      from);
  const std::size_t count = std::max<std::size_t>(1, (entries.size() + pieceSize - 1) / pieceSize);
  const std::int64_t gap = (std::int64_t{before} - after) / static_cast<std::int64_t>(count + 1);
  const Hook hookBase{key.intf.name().str(), key.direction == AclDirection::out, 0};
  for (std::size_t p = 0; p < count; ++p) {
    NewPiece made;
    made.piece.table = pieceTable(name_, nextPiece_++);
    made.piece.priority = static_cast<std::int32_t>(after + gap * static_cast<std::int64_t>(p + 1));
    made.piece.from = p == 0 ? from : entries[p * pieceSize].first;
    batch.addTable(made.piece.table);
    Hook hook = hookBase;
    hook.priority = made.piece.priority;
    batch.addChain(made.piece.table, entriesChain, hook);
    for (nftnl_rule* head : nft::pieceHead(key.family)) {
      made.headTicket = batch.addRule(made.piece.table, entriesChain, head, 0);
    }
    const std::size_t end = std::min(entries.size(), (p + 1) * pieceSize);
    for (std::size_t e = p * pieceSize; e < end; ++e) {
      std::string why;
      nftnl_rule* rule = nft::entryRule(entries[e].second, why);
      if (!rule)
        return "entry " + std::to_string(entries[e].first) + " of " + table.acl.str() + " has " + why +
               ", which nf_tables cannot hold here";
      made.tickets.emplace_back(entries[e].first, batch.addRule(made.piece.table, entriesChain, rule, 0));
    }
    pieces.push_back(std::move(made));
  }
  return {};
}

std::string Dataplane::Programmer::planList(const TableChange& change, Batch& batch, ListPlan& plan) {
  plan.key = change.key;
  auto found = held_.find(change.key);
  if (change.gone) {
    plan.gone = true;
    for (const Piece& piece : found->second.pieces) batch.deleteTable(piece.table);
    return {};
  }
  const Agent::Table& table = *change.table;
  auto whole = [&]() -> std::string {
    if (found != held_.end()) {
      for (const Piece& piece : found->second.pieces) batch.deleteTable(piece.table);
    }
    plan.whole.emplace();
    return layOut(change.key, table, 0, std::nullopt, enterPriority, leavePriority, batch, *plan.whole);
  };
  if (found == held_.end()) return whole();
  std::vector<Piece>& pieces = found->second.pieces;
  auto pieceOf = [&](U32 sequence) {
    auto after = std::upper_bound(pieces.begin(), pieces.end(), sequence,
                                  [](U32 s, const Piece& piece) { return s < piece.from; });
    return static_cast<std::size_t>(after - pieces.begin()) - 1;
  };
  std::map<std::size_t, std::vector<const Agent::Entry*>> adds;
  std::map<std::size_t, std::set<U32>> removes;
  for (const Agent::Entry& entry : change.removed) removes[pieceOf(entry.sequence)].insert(entry.sequence);
  for (const Agent::Entry& entry : change.added) adds[pieceOf(entry.sequence)].push_back(&entry);
  std::set<std::size_t> touched;
  for (const auto& [index, entries] : removes) touched.insert(index);
  for (const auto& [index, entries] : adds) touched.insert(index);
  // A piece that grows too long is laid out again in the room between its neighbours' priorities;
  // where there is too little, the whole list is.
  auto size = [&](std::size_t index) {
    return pieces[index].handles.size() - removes[index].size() + adds[index].size();
  };
  auto after = [&](std::size_t index) { return index == 0 ? enterPriority : pieces[index - 1].priority; };
  auto before = [&](std::size_t index) {
    return index + 1 == pieces.size() ? leavePriority : pieces[index + 1].priority;
  };
  for (std::size_t index : touched) {
    const std::size_t count = (size(index) + pieceSize - 1) / pieceSize;
    if (size(index) > pieceLimit && std::int64_t{before(index)} - after(index) <= static_cast<std::int64_t>(count)) {
      return whole();
    }
  }
  for (std::size_t index : touched) {
    Piece& piece = pieces[index];
    const std::set<U32>& gone = removes[index];
    std::vector<const Agent::Entry*>& coming = adds[index];
    if (size(index) > pieceLimit) {
      const std::optional<U32> until =
          index + 1 == pieces.size() ? std::nullopt : std::optional<U32>(pieces[index + 1].from);
      batch.deleteTable(piece.table);
      std::string why =
          layOut(change.key, table, piece.from, until, after(index), before(index), batch, plan.splits[index]);
      if (!why.empty()) return why;
      continue;
    }
    for (U32 sequence : gone) {
      batch.deleteRule(piece.table, entriesChain, piece.handles.at(sequence));
      plan.removed[index].push_back(sequence);
    }
    // Each entry goes after the entry before it that stays, or after the head; entries that go
    // after the same one are sent last first, so that they end in order.
    std::sort(coming.begin(), coming.end(),
              [](const Agent::Entry* a, const Agent::Entry* b) { return a->sequence > b->sequence; });
    for (const Agent::Entry* entry : coming) {
      std::uint64_t anchor = piece.lastHead;
      for (auto earlier = piece.handles.lower_bound(entry->sequence); earlier != piece.handles.begin();) {
        --earlier;
        if (!gone.contains(earlier->first)) {
          anchor = earlier->second;
          break;
        }
      }
      std::string why;
      nftnl_rule* rule = nft::entryRule(entry->rule, why);
      if (!rule)
        return "entry " + std::to_string(entry->sequence) + " of " + table.acl.str() + " has " + why +
               ", which nf_tables cannot hold here";
      plan.added[index].emplace_back(entry->sequence, batch.addRule(piece.table, entriesChain, rule, anchor));
    }
  }
  return {};
}

void Dataplane::Programmer::apply(ListPlan& plan, const nft::Socket::Outcome& outcome) {
  auto made = [&](std::vector<NewPiece>& pieces) {
    std::vector<Piece> done;
    for (NewPiece& p : pieces) {
      p.piece.lastHead = outcome.handles.at(p.headTicket);
      for (const auto& [sequence, ticket] : p.tickets) p.piece.handles.emplace(sequence, outcome.handles.at(ticket));
      done.push_back(std::move(p.piece));
    }
    return done;
  };
  if (plan.gone) {
    held_.erase(plan.key);
    return;
  }
  if (plan.whole) {
    held_[plan.key].pieces = made(*plan.whole);
    return;
  }
  std::vector<Piece>& pieces = held_.at(plan.key).pieces;
  for (const auto& [index, sequences] : plan.removed) {
    for (U32 sequence : sequences) pieces[index].handles.erase(sequence);
  }
  for (const auto& [index, tickets] : plan.added) {
    for (const auto& [sequence, ticket] : tickets) pieces[index].handles[sequence] = outcome.handles.at(ticket);
  }
  // Splits last, from the back, so that the indexes before each stay as planned.
  for (auto split = plan.splits.rbegin(); split != plan.splits.rend(); ++split) {
    std::vector<Piece> replacing = made(split->second);
    const auto at = pieces.begin() + static_cast<std::ptrdiff_t>(split->first);
    pieces.insert(pieces.erase(at), std::make_move_iterator(replacing.begin()),
                  std::make_move_iterator(replacing.end()));
  }
}

std::string Dataplane::Programmer::program(const std::vector<TableChange>& changes) {
  // The families bound at each (interface, direction) once the run is done.
  std::map<HookKey, std::set<AclType>> hooks = hooks_;
  for (const TableChange& change : changes) {
    const HookKey at{change.key.intf, change.key.direction};
    if (change.gone) {
      if (auto h = hooks.find(at); h != hooks.end() && h->second.erase(change.key.family) && h->second.empty()) {
        hooks.erase(h);
      }
    } else {
      hooks[at].insert(change.key.family);
    }
  }
  for (const auto& [at, families] : hooks) {
    if (!hooks_.contains(at) && if_nametoindex(at.intf.name().str().c_str()) == 0) {
      return "interface " + at.intf.name().str() + " has no device in this network namespace";
    }
  }

  Batch batch;
  for (const std::string& table : leftover_) batch.deleteTable(table);
  if (!controlMade_) batch.addTable(control_);
  std::vector<ListPlan> plans(changes.size());
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (std::string why = planList(changes[i], batch, plans[i]); !why.empty()) return why;
  }
  // The hooks whose families changed get their enter and leave chains anew.
  std::set<HookKey> redone;
  for (const auto& [at, families] : hooks_) {
    if (!hooks.contains(at) || hooks.at(at) != families) redone.insert(at);
  }
  for (const auto& [at, families] : hooks) {
    if (!hooks_.contains(at)) redone.insert(at);
  }
  for (const HookKey& at : redone) {
    const std::string enter = hookChain("enter", at.intf, at.direction);
    const std::string leave = hookChain("leave", at.intf, at.direction);
    const bool egress = at.direction == AclDirection::out;
    if (hooks_.contains(at)) {
      batch.deleteChain(control_, enter);
      batch.deleteChain(control_, leave);
    }
    auto now = hooks.find(at);
    if (now == hooks.end()) continue;
    batch.addChain(control_, enter, Hook{at.intf.name().str(), egress, enterPriority});
    batch.addRule(control_, enter, nft::clearPermitMark(), 0);
    batch.addChain(control_, leave, Hook{at.intf.name().str(), egress, leavePriority});
    for (AclType family : now->second) batch.addRule(control_, leave, nft::implicitDeny(family), 0);
    batch.addRule(control_, leave, nft::clearPermitMark(), 0);
  }

  const nft::Socket::Outcome outcome = socket_.send(batch);
  if (!outcome.error.empty()) return "the kernel refused the change: " + outcome.error;
  leftover_.clear();
  controlMade_ = true;
  for (ListPlan& plan : plans) apply(plan, outcome);
  hooks_ = std::move(hooks);
  return {};
}

std::map<U32, Hits> Dataplane::Programmer::hits(const TableKey& key) {
  std::map<U32, Hits> hits;
  auto found = held_.find(key);
  if (found == held_.end()) return hits;
  for (const Piece& piece : found->second.pieces) {
    std::map<std::uint64_t, U32> sequenceOf;
    for (const auto& [sequence, handle] : piece.handles) sequenceOf.emplace(handle, sequence);
    for (const nft::ListedRule& rule : socket_.rules(piece.table, entriesChain)) {
      if (auto s = sequenceOf.find(rule.handle); s != sequenceOf.end()) hits[s->second] = {rule.packets, rule.bytes};
    }
  }
  return hits;
}

// ---- Dataplane ---------------------------------------------------------------------------------

const std::vector<Unsupported>& unsupported() {
  static const std::vector<Unsupported> list = {
      {"ipMirror", "a mirror session names no device nf_tables could duplicate to"},
      {"ip6Mirror", "a mirror session names no device nf_tables could duplicate to"},
      {"macMirror", "a mirror session names no device nf_tables could duplicate to"},
      {"copyToCpu", "a host has no CPU port to copy to"},
      {"logging", "not programmed yet (nf_tables could log through nflog)"},
      {"outerVlan", "most devices take the tag off before the netdev hooks see the frame"},
      {"innerVlan", "most devices take the tag off before the netdev hooks see the frame"},
      {"dpiNvgre", "nf_tables does not parse tunnel headers"},
      {"dpiGre", "nf_tables does not parse tunnel headers"},
      {"dpiVxlan", "nf_tables does not parse tunnel headers"},
      {"dpiGtp", "nf_tables does not parse tunnel headers"},
      {"dpiUserL4", "not programmed (a raw payload match would hold it)"},
      {"dpiPayload", "not programmed (a raw payload match would hold it)"},
      {"vacl", "a netdev hook does not tell bridged from routed traffic"},
      {"mplsTwoLabel", "not programmed yet"},
      {"mpls", "not programmed yet"},
      {"ip6HopLimit", "hop-limit matches are refused on every platform"},
  };
  return list;
}

namespace {

// Every capability on, then those nf_tables cannot hold off.
void publish(ParamConfig& platform) {
  platform.allSupportedIs(true);
  struct Setter {
    std::string_view name;
    void (ParamConfig::*set)(const bool&);
  };
  static constexpr Setter setters[] = {
#define ACLKIT_KERNEL_SETTER_(kind, flag, T, def) \
  {std::string_view(#flag).substr(0, std::string_view(#flag).size() - 9), &ParamConfig::flag##Is},
      ACLKIT_ACL_CAPABILITIES(ACLKIT_KERNEL_SETTER_)
#undef ACLKIT_KERNEL_SETTER_
  };
  for (const Unsupported& off : unsupported()) {
    for (const Setter& s : setters) {
      if (s.name == off.name) (platform.*s.set)(false);
    }
  }
}

}  // namespace

Dataplane::Dataplane(const AclMounts& mounts, const fwk::String& name)
    : programmer_(std::make_unique<Programmer>(name.str())) {
  publish(*mounts.paramConfig);
  agent_ = std::make_unique<Agent::Dataplane>(mounts, name, programmer_.get());
}

Dataplane::~Dataplane() = default;

std::map<U32, Hits> Dataplane::hits(const TableKey& table) const {
  return programmer_->hits(table);
}

std::size_t removeTables(const std::string& name) {
  nft::Socket socket;
  Batch batch;
  std::size_t count = 0;
  for (const std::string& table : socket.tables()) {
    if (table == controlTable(name) || pieceNumber(table, name)) {
      batch.deleteTable(table);
      ++count;
    }
  }
  if (count == 0) return 0;
  if (std::string error = socket.send(batch).error; !error.empty()) {
    throw Error("the kernel kept the tables of " + name + ": " + error);
  }
  return count;
}

}  // namespace Kernel
