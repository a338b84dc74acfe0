// nf_tables over netlink, with libnftnl building the messages and libmnl the socket: a
// transaction is one batch sent in one write, which the kernel applies whole or not at all.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

struct nftnl_rule;
struct mnl_socket;

namespace Kernel::nft {

// The hook a base chain sits on, and where among the chains of that hook.
struct Hook {
  std::string device;
  bool egress = false;
  std::int32_t priority = 0;
};

// One rule as it is listed back: its handle and its counter.
struct ListedRule {
  std::uint64_t handle = 0;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
};

// The messages of one transaction, in order. Every table and chain is of the netdev family.
class Batch {
 public:
  Batch();
  ~Batch();
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  void addTable(const std::string& table);
  void deleteTable(const std::string& table);
  void addChain(const std::string& table, const std::string& chain, const Hook& hook);
  void deleteChain(const std::string& table, const std::string& chain);
  void flushChain(const std::string& table, const std::string& chain);
  // Takes the rule (its expressions set); puts it after the rule with handle `after`, or at
  // the end of the chain when `after` is 0. The returned ticket finds its handle once sent.
  std::uint32_t addRule(const std::string& table, const std::string& chain, nftnl_rule* rule, std::uint64_t after);
  void deleteRule(const std::string& table, const std::string& chain, std::uint64_t handle);

  [[nodiscard]] bool empty() const noexcept { return messages_ == 0; }
  [[nodiscard]] std::size_t bytes() const noexcept { return used_; }

 private:
  friend class Socket;
  char* next();
  void done(const void* message);
  void seal();

  std::vector<char> buffer_;
  std::size_t used_ = 0;
  std::size_t messages_ = 0;
  std::uint32_t sequence_ = 1;
  std::uint32_t rules_ = 0;  // rules echoed back, for the receive buffer's size
  bool sealed_ = false;
};

class Socket {
 public:
  // Error when netlink cannot be opened.
  Socket();
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // Sends the batch as one transaction; the handles of its added rules by ticket, or the
  // kernel's reason for refusing the whole of it.
  struct Outcome {
    std::string error;  // empty when the kernel made every change
    std::map<std::uint32_t, std::uint64_t> handles;
  };
  [[nodiscard]] Outcome send(Batch& batch);

  // The netdev tables' names.
  [[nodiscard]] std::vector<std::string> tables();
  // The rules of a chain, in order; nothing when it does not exist.
  [[nodiscard]] std::vector<ListedRule> rules(const std::string& table, const std::string& chain);

 private:
  mnl_socket* socket_ = nullptr;
  std::uint32_t sequence_ = 0;
};

}  // namespace Kernel::nft
