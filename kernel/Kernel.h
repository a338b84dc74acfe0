// A dataplane in the Linux kernel: the reference dataplane's contract (its status record, the
// hardware request, errors in its error map, what it holds kept when a run fails), with every
// bound list also programmed into nf_tables in the network namespace the process runs in.
//
//   Acl::AclMounts acl = Acl::mountAcl(store);
//   Kernel::Dataplane kernel(acl, "kernel");          // publishes what nf_tables can hold
//   ... a session binds list web to eth0 in, commits; the run programs eth0's ingress
//   kernel.hits({Acl::AclType::ip, Acl::IntfId("eth0"), Acl::AclDirection::in});  // {10: {3, 252}}
//
// What the kernel holds, per bound (interface, direction), on that device's netdev ingress or
// egress hook:
//   - for each bound list, its entries in sequence order, split into pieces of about a thousand
//     entries; each piece is a table "aclkit:N:<name>" with one base chain "entries", the pieces
//     ordered by hook priority. A change touches only the pieces that hold the changed entries,
//     and the kernel checks only the tables a transaction changes, so a one-entry change costs
//     the same on a list of 100 or 100,000 entries;
//   - a table "aclkit::<name>" with, per (interface, direction), a chain "enter" before every
//     piece and a chain "leave" after them, which holds the implicit deny of each bound list.
// An IPv4 list sees IPv4 packets, an IPv6 list IPv6 packets, and a MAC list every other frame.
// Since a permit in one piece must end the walk of the pieces after it, a permitted packet
// carries bit 31 of the packet mark (permitMark) from its entry to "leave"; "enter" and "leave"
// clear it, so the bit is not the packet's own on a bound interface. Each entry counts its
// packets and bytes (hits()).
//
// A run sends only its changes, in one nf_tables transaction: the packets see the old rules or
// the new, never a mix. A transaction the kernel refuses changes nothing there, and the run
// fails under the error key "kernel" with "<name> could not program its lists: <why>", the
// kernel's own message included; so does a run with an entry nf_tables cannot hold (see
// unsupported()) or an interface with no device in this namespace.
//
// A dataplane made with the name of one that ran before in this namespace takes over its tables
// in its first run's transaction, so the interfaces are never left unfiltered between the two.
// The tables stay in the kernel when the dataplane goes (as a ruleset stays when nft exits);
// removeTables() takes them out.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "aclkit/agent/Dataplane.h"

namespace Kernel {

// The mark bit that carries a permit between the pieces of one list.
inline constexpr std::uint32_t permitMark = 0x80000000U;

// No access to nf_tables: no privilege, or no netlink.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Hits {
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  friend bool operator==(const Hits&, const Hits&) = default;
};

// A capability of the platform that nf_tables cannot hold here, and why.
struct Unsupported {
  const char* name;  // as Client::Platform names it: "logging"
  const char* why;
};
[[nodiscard]] const std::vector<Unsupported>& unsupported();

// Takes out of this namespace's kernel the tables of the dataplane called `name`, which must
// not be running; how many it took. Error when the kernel refuses.
std::size_t removeTables(const std::string& name);

class Dataplane {
 public:
  // Error when nf_tables cannot be reached. Publishes the capabilities: every one except
  // those unsupported() names is on.
  Dataplane(const Acl::AclMounts& mounts, const fwk::String& name);
  ~Dataplane();
  Dataplane(const Dataplane&) = delete;
  Dataplane& operator=(const Dataplane&) = delete;

  // Its settings, tables, runs and packet checks, as for the reference dataplane.
  [[nodiscard]] Agent::Dataplane& agent() noexcept { return *agent_; }
  [[nodiscard]] const Agent::Dataplane& agent() const noexcept { return *agent_; }

  // Each entry's packets and bytes, by sequence, read from the kernel; empty when the table is
  // not held. Error when the kernel cannot be read.
  [[nodiscard]] std::map<Acl::U32, Hits> hits(const Agent::TableKey& table) const;

  class Programmer;

 private:
  std::unique_ptr<Programmer> programmer_;
  std::unique_ptr<Agent::Dataplane> agent_;
};

}  // namespace Kernel
