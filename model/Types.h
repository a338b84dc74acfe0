// Basic value types of the ACL model: identities, families, directions, addresses,
// interface ids and VRF names.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>

#include "aclkit/platform/fwk/Enum.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/Hash.h"
#include "aclkit/platform/fwk/String.h"

namespace Acl {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using fwk::String;

// ACL families. Code that dispatches on the family treats every value but ip and ipv6 as mac.
// clang-format off
#define ACLKIT_ACL_TYPES(E) E(ip, 0) E(ipv6, 1) E(mac, 2)
// clang-format on
FWK_OPEN_ENUM_CLASS(AclType, U32, ACLKIT_ACL_TYPES)

// clang-format off
#define ACLKIT_ACL_DIRECTIONS(E) E(in, 0) E(out, 1)
// clang-format on
FWK_ENUM_CLASS(AclDirection, U32, ACLKIT_ACL_DIRECTIONS)

// clang-format off
#define ACLKIT_ACL_RULE_ACTIONS(E) E(permit, 0) E(deny, 1)
// clang-format on
FWK_ENUM_CLASS(RuleAction, U8, ACLKIT_ACL_RULE_ACTIONS)

// How a value is matched. `any` (1) is the default and means "no match on this value";
// platforms support TTL and hop-limit options only in that kind.
// clang-format off
#define ACLKIT_ACL_VALUE_OPS(E) E(eq, 0) E(any, 1) E(neq, 2) E(lt, 3) E(gt, 4) E(range, 5)
// clang-format on
FWK_ENUM_CLASS(ValueOp, U8, ACLKIT_ACL_VALUE_OPS)

// Identifies one sub-configuration or one rule. A default-constructed UniqueId is a fresh
// identity, distinct from every other one made in this process.
class ACLKIT_EXPORT UniqueId {
 public:
  UniqueId() { doInit(); }
  UniqueId(U32 high, U32 low) : high_(high), low_(low) {}

  // Gives this identifier a fresh value.
  void doInit();
  [[nodiscard]] U64 val() const noexcept { return (U64{high_} << 32) | low_; }
  [[nodiscard]] U32 high() const noexcept { return high_; }
  [[nodiscard]] U32 low() const noexcept { return low_; }
  [[nodiscard]] std::size_t hash() const noexcept { return fwk::mixHash(val()); }
  friend bool operator==(const UniqueId&, const UniqueId&) = default;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 misreads a defaulted <=>
  friend auto operator<=>(const UniqueId&, const UniqueId&) = default;

  static const char* fwkTypeName() { return "UniqueId"; }
  static UniqueId fwkParse(std::string_view text);

 private:
  U32 high_ = 0xFFFFFFFF;
  U32 low_ = 0xFFFFFFFF;
};
ACLKIT_EXPORT std::ostream& operator<<(std::ostream& os, const UniqueId& id);

// An IPv4 address or mask, printed dotted.
class ACLKIT_EXPORT Ip4Addr {
 public:
  constexpr Ip4Addr() = default;
  constexpr explicit Ip4Addr(U32 value) : value_(value) {}
  [[nodiscard]] constexpr U32 value() const noexcept { return value_; }
  // As a mask: its set bits form one run from the top bit (a prefix); 0.0.0.0 counts.
  [[nodiscard]] constexpr bool isPrefixMask() const noexcept { return ((value_ - 1U) | value_) == 0xFFFFFFFFU; }
  // The mask of a prefix of `length` bits, 0 to 32 (longer counts as 32).
  [[nodiscard]] static constexpr Ip4Addr prefixMask(unsigned length) noexcept {
    return Ip4Addr(length == 0 ? 0U : ~U32{0} << (32 - (length < 32 ? length : 32)));
  }
  [[nodiscard]] std::size_t hash() const noexcept { return fwk::mixHash(value_); }
  friend bool operator==(const Ip4Addr&, const Ip4Addr&) = default;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 misreads a defaulted <=>
  friend auto operator<=>(const Ip4Addr&, const Ip4Addr&) = default;
  static const char* fwkTypeName() { return "Ip4Addr"; }
  // "192.0.2.3"; fwk::TypeConversionError otherwise.
  static Ip4Addr fwkParse(std::string_view text);

 private:
  U32 value_ = 0;
};
ACLKIT_EXPORT std::ostream& operator<<(std::ostream& os, const Ip4Addr& addr);

// An IPv6 address, printed in its compressed text form.
class ACLKIT_EXPORT Ip6Addr {
 public:
  constexpr Ip6Addr() = default;
  constexpr Ip6Addr(U64 high, U64 low) : high_(high), low_(low) {}
  [[nodiscard]] constexpr U64 high() const noexcept { return high_; }
  [[nodiscard]] constexpr U64 low() const noexcept { return low_; }
  // This address with every bit past its first `length` cleared: the network of that prefix.
  [[nodiscard]] constexpr Ip6Addr network(unsigned length) const noexcept {
    const unsigned bits = length < 128 ? length : 128;
    const U64 highMask = bits == 0 ? 0 : bits >= 64 ? ~U64{0} : ~U64{0} << (64 - bits);
    const U64 lowMask = bits <= 64 ? 0 : ~U64{0} << (128 - bits);
    return {high_ & highMask, low_ & lowMask};
  }
  [[nodiscard]] std::size_t hash() const noexcept { return fwk::hashCombine(fwk::mixHash(high_), low_); }
  friend bool operator==(const Ip6Addr&, const Ip6Addr&) = default;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 misreads a defaulted <=>
  friend auto operator<=>(const Ip6Addr&, const Ip6Addr&) = default;
  static const char* fwkTypeName() { return "Ip6Addr"; }
  static Ip6Addr fwkParse(std::string_view text);

 private:
  U64 high_ = 0;
  U64 low_ = 0;
};
ACLKIT_EXPORT std::ostream& operator<<(std::ostream& os, const Ip6Addr& addr);

// A 48-bit Ethernet address or mask, printed "00:00:5e:00:53:01".
class ACLKIT_EXPORT MacAddr {
 public:
  constexpr MacAddr() = default;
  constexpr explicit MacAddr(U64 value) : value_(value & 0xFFFFFFFFFFFFULL) {}
  [[nodiscard]] constexpr U64 value() const noexcept { return value_; }
  [[nodiscard]] std::size_t hash() const noexcept { return fwk::mixHash(value_); }
  friend bool operator==(const MacAddr&, const MacAddr&) = default;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 misreads a defaulted <=>
  friend auto operator<=>(const MacAddr&, const MacAddr&) = default;
  static const char* fwkTypeName() { return "MacAddr"; }
  // "00:00:5e:00:53:01" or "0000.5e00.5301".
  static MacAddr fwkParse(std::string_view text);

 private:
  U64 value_ = 0;
};
ACLKIT_EXPORT std::ostream& operator<<(std::ostream& os, const MacAddr& addr);

// An interface, named as the operator names it ("Ethernet1", "Vlan10").
class ACLKIT_EXPORT IntfId {
 public:
  IntfId() = default;
  explicit IntfId(String name) : name_(std::move(name)) {}
  [[nodiscard]] const String& name() const noexcept { return name_; }
  [[nodiscard]] std::size_t hash() const noexcept { return name_.hash(); }
  friend bool operator==(const IntfId&, const IntfId&) = default;
  friend auto operator<=>(const IntfId& a, const IntfId& b) { return a.name_ <=> b.name_; }
  static const char* fwkTypeName() { return "IntfId"; }
  static IntfId fwkParse(std::string_view text) { return IntfId(String(text)); }

 private:
  String name_;
};
ACLKIT_EXPORT std::ostream& operator<<(std::ostream& os, const IntfId& intf);

struct ACLKIT_EXPORT VlanIntfId {
  // True for a VLAN interface: "Vlan" followed by a VLAN number from 1 to 4094.
  static bool isVlanIntfId(const IntfId& intf);
};

// The name of a VRF, at most maxLength bytes.
class ACLKIT_EXPORT VrfName {
 public:
  static constexpr U32 maxLength = 100;
  VrfName() = default;
  explicit VrfName(String value) { valueIs(std::move(value)); }
  [[nodiscard]] const String& value() const noexcept { return value_; }
  // fwk::RangeError "VrfName::value::bytes > VrfName::maxLength not allowed".
  void valueIs(String value);
  [[nodiscard]] std::size_t hash() const noexcept { return value_.hash(); }
  friend bool operator==(const VrfName&, const VrfName&) = default;
  friend auto operator<=>(const VrfName& a, const VrfName& b) { return a.value_ <=> b.value_; }
  static const char* fwkTypeName() { return "VrfName"; }
  static VrfName fwkParse(std::string_view text) { return VrfName(String(text)); }

 private:
  String value_;
};
ACLKIT_EXPORT std::ostream& operator<<(std::ostream& os, const VrfName& vrf);

}  // namespace Acl
