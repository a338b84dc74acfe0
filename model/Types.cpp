#include "aclkit/model/Types.h"

#include <arpa/inet.h>

#include <atomic>
#include <charconv>
#include <cstdio>
#include <ostream>
#include <string>

#include "aclkit/platform/fwk/Value.h"

namespace Acl {

namespace {
[[noreturn]] void unreadable(const char* expected, std::string_view text) {
  fwk::parseFailed(expected, text);
}

constexpr const char* macExpected = "a MAC address such as 00:00:5e:00:53:01 or 0000.5e00.5301";

bool readNumber(std::string_view text, U64& out, int base = 10) {
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out, base);
  return !text.empty() && ec == std::errc() && end == text.data() + text.size();
}
}  // namespace

void UniqueId::doInit() {
  // Starts above any small hand-made identifier; 64 bits never wrap in practice.
  static std::atomic<U64> next{U64{1} << 32};
  U64 value = next.fetch_add(1, std::memory_order_relaxed);
  high_ = static_cast<U32>(value >> 32);
  low_ = static_cast<U32>(value);
}

UniqueId UniqueId::fwkParse(std::string_view text) {
  U64 value = 0;
  if (!readNumber(text, value)) unreadable("an identifier (a number)", text);
  return UniqueId(static_cast<U32>(value >> 32), static_cast<U32>(value));
}

std::ostream& operator<<(std::ostream& os, const UniqueId& id) {
  return os << id.val();
}

Ip4Addr Ip4Addr::fwkParse(std::string_view text) {
  in_addr addr{};
  std::string copy(text);
  if (inet_pton(AF_INET, copy.c_str(), &addr) != 1) unreadable("an IPv4 address such as 192.0.2.1", text);
  return Ip4Addr(ntohl(addr.s_addr));
}

std::ostream& operator<<(std::ostream& os, const Ip4Addr& addr) {
  U32 v = addr.value();
  return os << (v >> 24) << '.' << ((v >> 16) & 0xFF) << '.' << ((v >> 8) & 0xFF) << '.' << (v & 0xFF);
}

Ip6Addr Ip6Addr::fwkParse(std::string_view text) {
  unsigned char bytes[16];
  std::string copy(text);
  if (inet_pton(AF_INET6, copy.c_str(), bytes) != 1) unreadable("an IPv6 address such as 2001:db8::1", text);
  U64 high = 0;
  U64 low = 0;
  for (int i = 0; i < 8; ++i) high = (high << 8) | bytes[i];
  for (int i = 8; i < 16; ++i) low = (low << 8) | bytes[i];
  return Ip6Addr(high, low);
}

std::ostream& operator<<(std::ostream& os, const Ip6Addr& addr) {
  unsigned char bytes[16];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(addr.high() >> (56 - 8 * i));
  for (int i = 0; i < 8; ++i) bytes[8 + i] = static_cast<unsigned char>(addr.low() >> (56 - 8 * i));
  char text[INET6_ADDRSTRLEN];
  inet_ntop(AF_INET6, bytes, text, sizeof text);
  return os << text;
}

MacAddr MacAddr::fwkParse(std::string_view text) {
  U64 value = 0;
  int digits = 0;
  char separator = 0;
  for (char c : text) {
    if (c == ':' || c == '.' || c == '-') {
      if (separator && c != separator) unreadable(macExpected, text);
      separator = c;
      continue;
    }
    U64 nibble = 0;
    if (!readNumber(std::string_view(&c, 1), nibble, 16)) unreadable(macExpected, text);
    value = (value << 4) | nibble;
    ++digits;
  }
  if (digits != 12) unreadable(macExpected, text);
  return MacAddr(value);
}

std::ostream& operator<<(std::ostream& os, const MacAddr& addr) {
  char text[18];
  U64 v = addr.value();
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", static_cast<unsigned>((v >> 40) & 0xFF),
                static_cast<unsigned>((v >> 32) & 0xFF), static_cast<unsigned>((v >> 24) & 0xFF),
                static_cast<unsigned>((v >> 16) & 0xFF), static_cast<unsigned>((v >> 8) & 0xFF),
                static_cast<unsigned>(v & 0xFF));
  return os << text;
}

std::ostream& operator<<(std::ostream& os, const IntfId& intf) {
  return os << intf.name();
}

bool VlanIntfId::isVlanIntfId(const IntfId& intf) {
  std::string_view name = intf.name().view();
  if (!name.starts_with("Vlan")) return false;
  U64 vlan = 0;
  return readNumber(name.substr(4), vlan) && vlan >= 1 && vlan <= 4094;
}

void VrfName::valueIs(String value) {
  if (value.size() > maxLength) throw fwk::RangeError("VrfName::value::bytes > VrfName::maxLength not allowed");
  value_ = std::move(value);
}

std::ostream& operator<<(std::ostream& os, const VrfName& vrf) {
  return os << vrf.value();
}

}  // namespace Acl
