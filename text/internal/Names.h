// Names the ACL syntax accepts in place of numbers, shared by the reader and the writer.
//
//   std::optional<unsigned> port = Text::internal::valueOf(portNames(), "https");  // 443
//   std::string_view name = Text::internal::nameOf(ipProtocolNames(), 6);           // "tcp"
//
// In each table the first name of a value is the one the writer prints; later ones are
// synonyms accepted on input.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace Text::internal {

struct Name {
  std::string_view name;
  unsigned value;
};

std::span<const Name> ipProtocolNames();
std::span<const Name> ip6ProtocolNames();
std::span<const Name> portNames();
std::span<const Name> icmpTypeNames();
std::span<const Name> icmp6TypeNames();
std::span<const Name> dscpNames();
std::span<const Name> ethertypeNames();
// TCP flags by bit, in header order (fin first).
std::span<const Name> tcpFlagNames();

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept;
// The value of `word` in `names`, in any letter case.
std::optional<unsigned> valueOf(std::span<const Name> names, std::string_view word) noexcept;
// The printed name of `value`, or an empty view when it has none.
std::string_view nameOf(std::span<const Name> names, unsigned value) noexcept;

}  // namespace Text::internal
