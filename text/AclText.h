// ACL entries as text, both ways: one line of the usual ACL syntax read into a rule record or
// a remark, and a record written back as its one canonical line.
//
//   Text::Entry e = Text::parse("10 permit tcp 10.0.0.0/8 host 192.0.2.1 eq https log", Acl::AclType::ip);
//   e.sequence;                                      // 10
//   const auto& rule = std::get<Acl::IpRuleConfig>(e.body);
//   Text::format(rule);                              // "permit tcp 10.0.0.0/8 host 192.0.2.1 eq 443 log"
//   Text::withSequence(10, Text::format(rule));      // "10 permit tcp ..."
//
// A bad line raises Text::ParseError, whose message reads "expected a port number or name at
// column 31": the 1-based column of the offending token (one past the end of the line when
// something is missing) and what would have been accepted there. Front ends add the file and
// line themselves. Nothing else escapes parse: values the records would refuse (a VLAN above
// 4095, a range whose low end is above its high end) are parse errors too.
//
// Reading is forgiving where it costs no ambiguity: keywords and names in any case, any run
// of blanks between words, options after the addresses in any order, and names or numbers
// (decimal or 0x-hex) wherever both exist. Writing is strict, so that equal records give
// equal lines: lower case, single spaces, the clause order of the README's "ACL syntax"
// table, and one spelling per field:
//   - the protocol by name when it has one (ip / ipv6 for any protocol), else in decimal;
//   - ports, ICMP types and codes, DSCP, ECN, TTL, hop limit, lengths, VLANs, TNI, VNI,
//     TEID and MPLS labels and traffic classes in decimal;
//   - ethertypes and GRE protocol types as four hex digits (0x0800); masks, user-L4 values
//     and payload patterns in hex without leading zeros (0xfff);
//   - IPv4 addresses as any, host A, A/len (contiguous mask) or A WILDCARD (any other mask,
//     written inverted: "10.0.0.0 0.255.0.255" matches on the first and third bytes);
//     IPv6 as any, host A or A/len; MAC as any, host M or M MASK (a mask, not a wildcard);
//   - a mask that equals the field's full width is left out ("outer-vlan 10", not
//     "outer-vlan 10 mask 0xfff");
//   - TCP flags from the lowest bit up (fin syn rst psh ack urg ece cwr ns), "syn" for a flag
//     that must be set and "!syn" for one that must be clear ("established" is read as
//     "ack": the record holds flags that must all match, so "ack or rst" has no form).
//
// Lossless: parse(format(r)) gives back r for every well-formed record r, and format of a
// parsed canonical line gives the same line. A record is well-formed when every field a
// match does not use holds its default:
//   - an IPv4 or IPv6 address has no bit set outside its mask or prefix length (a line with
//     one, "10.0.0.1/24" or "10.1.2.3 0.0.255.255", is a parse error);
//   - a port or length match that is not a range has high 0 (and low 0 when it is "any"),
//     and a range has low <= high;
//   - an ICMP type or code needs protocol icmp (IPv4) or icmpv6 (IPv6), exactly, types and
//     codes are at most 255, and a code needs a type;
//   - dscp and dscpMask keep 0 and 63 unless matchDscp, ecn keeps 0 unless matchEcn;
//   - the TTL or hop-limit kind is not range;
//   - tcpFlags lies within tcpFlagsMask, which lies within the nine flag bits (0x1ff);
//   - a payload's text is the library's own form of its elements (payloadValueToOffsetPattern);
//   - each MPLS map entry is keyed by its own label;
//   - VRF, mirror session and alias names are single words, a remark is a single line.
// format raises std::invalid_argument, naming the field, for any other record: no line could
// read back as it.
#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "aclkit/model/Rules.h"

namespace Text {

// A line that does not read as an entry of the list at hand.
class ParseError : public std::runtime_error {
 public:
  ParseError(std::size_t column, std::string expected);
  // 1-based column of the token that was not accepted.
  [[nodiscard]] std::size_t column() const noexcept { return column_; }
  // What the line needed there: "a port number or name".
  [[nodiscard]] const std::string& expected() const noexcept { return expected_; }

 private:
  std::size_t column_;
  std::string expected_;
};

// What one line of a list holds: a rule of the list's family, or a remark.
using EntryBody = std::variant<Acl::IpRuleConfig, Acl::Ip6RuleConfig, Acl::MacRuleConfig, Acl::RemarkConfig>;

struct Entry {
  std::optional<Acl::U32> sequence;  // a leading sequence number, when the line has one
  EntryBody body;
  friend bool operator==(const Entry&, const Entry&) = default;
};

// One line of a list of family `type`: "[SEQ] remark TEXT" (the text is everything after the
// one blank following "remark") or "[SEQ] permit|deny ...". A standard IPv4 list
// (`standard`, with type ip) gives only a source address and actions: "permit 10.0.0.0/8 log".
// Raises ParseError for the line; `standard` with another family is the caller's mistake,
// std::invalid_argument.
[[nodiscard]] Entry parse(std::string_view line, Acl::AclType type, bool standard = false);

// The canonical line of a record, without a sequence number; std::invalid_argument for a
// record that is not well-formed.
[[nodiscard]] std::string format(const Acl::IpRuleConfig& rule);
[[nodiscard]] std::string format(const Acl::Ip6RuleConfig& rule);
[[nodiscard]] std::string format(const Acl::MacRuleConfig& rule);
[[nodiscard]] std::string format(const Acl::RemarkConfig& remark);
// The line of a standard IPv4 list: "permit 10.0.0.0/8 log". std::invalid_argument for a rule
// that matches on anything but its source address.
[[nodiscard]] std::string formatStandard(const Acl::IpRuleConfig& rule);
// The entry's line, with its sequence number when it has one (`standard` as for parse).
[[nodiscard]] std::string format(const Entry& entry, bool standard = false);

// "10 permit ip any any" from 10 and "permit ip any any".
[[nodiscard]] std::string withSequence(Acl::U32 sequence, std::string_view line);

// What may be typed next on a line being typed, for completion and help. `partial` ends where
// the next word would start; the reader runs on it and notes, where it ends, each keyword,
// name and value it would have taken there. Nothing is offered when the line goes wrong
// before its end.
//   choicesAfter("permit tcp any ", AclType::ip)   // eq neq lt gt range any host <address>
struct Choice {
  enum class Kind { keyword, name, value };
  Kind kind;
  std::string text;       // a keyword or name as it is typed; for a value, what it is
  std::string_view help;  // a keyword's short help
  friend bool operator==(const Choice&, const Choice&) = default;
};
struct Choices {
  std::vector<Choice> next;  // in the order the reader asks for them
  bool complete = false;     // the line as it stands is a whole entry
};
[[nodiscard]] Choices choicesAfter(std::string_view partial, Acl::AclType type, bool standard = false);
// A keyword's short help ("drop matching packets" for deny); "" for a word that is no keyword.
[[nodiscard]] std::string_view keywordHelp(std::string_view keyword) noexcept;

// The values the syntax names, for front ends that read a value as an entry would (a packet to
// test): the number `name` stands for in a list of `family`, in any letter case, or nullopt.
// "icmp" is protocol 58 in an IPv6 list, as in its entries; a TCP flag's value is its bit.
enum class Named { protocol, port, icmpType, dscp, ethertype, tcpFlag };
[[nodiscard]] std::optional<unsigned> valueNamed(Named kind, std::string_view name, Acl::AclType family);

}  // namespace Text
