// A network namespace of the test's own with a veth pair, and packets sent through it as real
// frames: what the kernel dataplane's tests filter.
#pragma once

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "aclkit/agent/Packet.h"

namespace wire {

// Enters a new network namespace with the pair v0 (sending) and v1 (receiving), both up; an
// empty string when it did, or why it could not.
inline std::string enterNamespaceWithPair() {
  if (unshare(CLONE_NEWNET) != 0) return "cannot make a network namespace (run as root)";
  if (std::system("ip link add v0 type veth peer name v1 && ip link set v0 up && ip link set v1 up") != 0) {
    return "cannot make the veth pair v0/v1 (is iproute2 installed?)";
  }
  return {};
}

// The packet as the frame a host would send, its lengths and header fields real: an IPv4 or IPv6
// header with the packet's transport header (TCP, UDP, SCTP, ICMP; any other protocol carries
// none), padded to the packet's ipLength when that is longer; a MAC frame is its header and
// 46 bytes.
inline std::vector<std::uint8_t> frame(const Agent::Packet& p) {
  std::vector<std::uint8_t> f;
  auto put = [&](std::uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) f.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  };
  const bool mac = p.family == Acl::AclType::mac;
  put(mac ? p.dstMac.value() : 0x00005E005301ULL, 6);
  put(mac ? p.srcMac.value() : 0x00005E005302ULL, 6);
  if (mac) {
    put(p.ethertype, 2);
    f.resize(f.size() + 46);
    return f;
  }
  const bool v4 = p.family == Acl::AclType::ip;
  put(v4 ? 0x0800 : 0x86DD, 2);
  const std::size_t ipStart = f.size();
  const std::uint8_t trafficClass = static_cast<std::uint8_t>(p.dscp << 2 | p.ecn);
  if (v4) {
    put(0x45, 1);
    put(trafficClass, 1);
    put(0, 2);  // total length, below
    put(0, 4);
    put(p.ttl, 1);
    put(p.protocol, 1);
    put(0, 2);
    put(p.src4.value(), 4);
    put(p.dst4.value(), 4);
  } else {
    put(0x6ULL << 28 | std::uint64_t{trafficClass} << 20, 4);
    put(0, 2);  // payload length, below
    put(p.protocol, 1);
    put(p.ttl, 1);
    put(p.src6.high(), 8);
    put(p.src6.low(), 8);
    put(p.dst6.high(), 8);
    put(p.dst6.low(), 8);
  }
  switch (p.protocol) {
    case 6:  // TCP: ports, sequence, acknowledgement, offset and flags, window, checksum, urgent
      put(p.srcPort, 2);
      put(p.dstPort, 2);
      put(0, 8);
      put(0x5000U | (p.tcpFlags & 0x1FFU), 2);
      put(0, 6);
      break;
    case 17:  // UDP
      put(p.srcPort, 2);
      put(p.dstPort, 2);
      put(8, 2);
      put(0, 2);
      break;
    case 132:  // SCTP: ports, verification tag, checksum
      put(p.srcPort, 2);
      put(p.dstPort, 2);
      put(0, 8);
      break;
    case 1:
    case 58:
      put(p.icmpType, 1);
      put(p.icmpCode, 1);
      put(0, 6);
      break;
    default:
      break;
  }
  std::size_t length = f.size() - ipStart;
  if (p.ipLength > length) f.resize(ipStart + p.ipLength);
  length = f.size() - ipStart;
  const std::size_t field = ipStart + (v4 ? 2 : 4);
  const std::size_t value = v4 ? length : length - 40;
  f[field] = static_cast<std::uint8_t>(value >> 8);
  f[field + 1] = static_cast<std::uint8_t>(value);
  if (f.size() < 60) f.resize(60);  // the shortest Ethernet frame, padded after the IP packet
  return f;
}

// The IP length a frame() of the packet carries: what the packet's ipLength must say.
inline std::uint16_t ipLengthOf(const Agent::Packet& p) {
  Agent::Packet bare = p;
  bare.ipLength = 0;
  const std::vector<std::uint8_t> f = frame(bare);
  const bool v4 = p.family == Acl::AclType::ip;
  const std::size_t at = 14 + (v4 ? 2 : 4);
  const auto field = static_cast<std::uint16_t>(f[at] << 8 | f[at + 1]);
  return static_cast<std::uint16_t>(std::max<unsigned>(p.ipLength, v4 ? field : field + 40U));
}

// Sends frames out of a device.
class Sender {
 public:
  explicit Sender(const char* device)
      : fd_(socket(AF_PACKET, SOCK_RAW, 0)), index_(static_cast<int>(if_nametoindex(device))) {}
  ~Sender() { close(fd_); }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;
  bool send(const std::vector<std::uint8_t>& frame) const {
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = index_;
    to.sll_halen = 6;
    return sendto(fd_, frame.data(), frame.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) ==
           static_cast<ssize_t>(frame.size());
  }

 private:
  int fd_;
  int index_;
};

}  // namespace wire
