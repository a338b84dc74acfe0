// Lists and bindings as OpenConfig ACL documents (the openconfig-acl model, JSON as RFC 7951
// writes it), both ways, and never a rule that matches other packets than the one it stands for.
//
//   Interchange::ImportResult r = Interchange::importOpenConfig(acl, text);
//   for (const Interchange::Finding& f : r.findings) std::cerr << f.text() << '\n';
//   Interchange::ExportResult e = Interchange::exportOpenConfig(acl);   // e.json, e.findings
//   Interchange::exportOpenConfig(acl, {.skipLists = true});            // leaves out what cannot go
//
// Reading takes the document with or without its "openconfig-acl:acl" wrapper, member names
// and identities bare or module-prefixed ("ACL_IPV4", "openconfig-acl:ACL_IPV4"). Each leaf
// below is declared once, in one table that both directions go through (OpenConfig.cpp):
//   acl-set (name, type ACL_IPV4 | ACL_IPV6 | ACL_L2)  -> the list of family ip | ipv6 | mac
//   acl-entry sequence-id                              -> the entry's sequence
//   ipv4 / ipv6 source-address, destination-address    -> src, dst with a prefix mask or length
//   ipv4 / ipv6 protocol (number or IP_TCP ...)         -> protocol
//   dscp (or a dscp-set of one), length, hop-limit     -> dscp, ip-length eq, ttl / hop-limit eq
//   icmpv4 / icmpv6 type, code (identity or number)    -> ICMP type, code (a code's identity
//                                                         names its type too)
//   transport source-port, destination-port            -> port eq N, range L..H (ANY: none);
//                                                         lt and gt go out as the same range
//   transport BUILTIN TCP_INITIAL, EXPLICIT flags ALL  -> TCP flags (SYN !ACK; flags set)
//   l2 source-mac[-mask], destination-mac[-mask], ethertype
//   actions ACCEPT | DROP, log-action LOG_SYSLOG       -> permit | deny, log
//   interfaces/interface ingress- / egress-acl-sets    -> bindings in / out
//
// A document the model cannot stand for exactly raises ImportError naming the list, entry and
// field, and changes nothing: a match the model cannot carry (FRAGMENT, TCP_ESTABLISHED, which
// is ACK or RST, prefix and port sets, flow labels, several DSCP values or flags to match any
// of, a detail of the other detail-mode, an ICMP match on another protocol), and any member no
// row reads within a set, an entry, its match containers or the interfaces (another module's,
// or a misspelt acl-entries, which would empty the list); an interface-ref to another interface
// than the id, or to a subinterface; an ACL_MIXED set, a missing or repeated key, a bad
// address. What changes no match is a Finding, by entry and field: descriptions, REJECT
// (imported as deny: only the ICMP reply differs), members outside the acl-sets and interfaces.
// The state containers mirror the configuration and are not read.
//
// Writing gives every list of the running configuration and every binding, each entry read back
// through the same table: an entry that does not come back as the rule it was written from (a
// non-contiguous mask, neq ports, which are two ranges, TTL other than eq, VLAN, payload,
// mirror, copy to CPU, vacl and the rest), or a list with fragment rules, raises ExportError
// naming it. Asked to skip such lists, the export leaves each out whole, with a Finding, and
// keeps its bindings. Remarks, per-entry counters and standard (read back as extended) are
// Findings.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "aclkit/client/Change.h"

namespace Interchange {

using Client::AclType;
using Client::U32;
using fwk::String;

// Something that did not cross between the document and the model.
struct Finding {
  std::string list;                        // "web (ACL_IPV4)"; empty for the document as a whole
  std::optional<U32> sequence;             // the entry, when it is one entry's
  std::string field;                       // "transport/config/builtin-detail"
  std::string what;                        // "FRAGMENT has no per-entry match here; left out"
  [[nodiscard]] std::string text() const;  // "web (ACL_IPV4) entry 10: transport/...: FRAGMENT ..."
};

// A document that cannot be read: what, and where in it.
class ImportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct List {
  String name;
  AclType type = AclType::ip;
  std::vector<Client::ListEntry> entries;
};

struct Document {
  std::vector<List> lists;                               // in document order
  std::optional<std::vector<Client::Binding>> bindings;  // when the document has interfaces
  std::vector<Finding> findings;
};

// Reads a whole document; ImportError when it cannot stand for lists and bindings.
[[nodiscard]] Document readOpenConfig(std::string_view json);

// The document as one change: each of its lists replaced whole, and the bindings when it has
// interfaces (lists it does not name, and the bindings of a document without interfaces, are
// left alone).
[[nodiscard]] Client::Change changeOf(Document document);

struct ImportResult {
  std::vector<Finding> findings;
  Client::Outcome outcome;  // accepted() when every list and binding reached the configuration
};

// Reads the document and makes it one change through Client::apply: all of it or none of it.
// A document that cannot be read, or a list a standard list cannot hold, raises ImportError
// before anything changes; a change the platform refuses, or that another session gets in the
// way of, comes back in the outcome with the running configuration as it was.
[[nodiscard]] ImportResult importOpenConfig(const Client::Library& library, std::string_view json);

// A list the document cannot carry exactly: which, and the entry and fields.
class ExportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ExportOptions {
  // Leave out, whole, each list the document cannot carry exactly (a Finding names it) instead
  // of raising ExportError.
  bool skipLists = false;
};

struct ExportResult {
  std::string json;  // {"openconfig-acl:acl": {...}}, indented
  std::vector<Finding> findings;
};

// Every list (current versions) and every binding of the running configuration.
[[nodiscard]] ExportResult exportOpenConfig(const Client::Library& library, const ExportOptions& options = {});

}  // namespace Interchange
