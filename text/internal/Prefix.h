// Prefix masks, shared by the reader and the writer so that both agree on which bits of an
// address a match looks at.
#pragma once

#include <algorithm>

#include "aclkit/model/Types.h"

namespace Text::internal {

// The IPv4 mask of a prefix of `length` bits (0 to 32).
constexpr Acl::U32 ip4PrefixMask(unsigned length) noexcept {
  return length == 0 ? 0 : ~Acl::U32{0} << (32 - length);
}

// `addr` with the bits past its first `length` cleared.
constexpr Acl::Ip6Addr ip6Network(const Acl::Ip6Addr& addr, unsigned length) noexcept {
  const unsigned bits = std::min(length, 128U);
  const Acl::U64 high = bits == 0 ? 0 : bits >= 64 ? ~Acl::U64{0} : ~Acl::U64{0} << (64 - bits);
  const Acl::U64 low = bits <= 64 ? 0 : ~Acl::U64{0} << (128 - bits);
  return {addr.high() & high, addr.low() & low};
}

}  // namespace Text::internal
