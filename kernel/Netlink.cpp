// Batches and the socket. A batch is sent in one write; the kernel applies it inside that write,
// so by the time the write returns every answer (an echoed rule, an error) is queued, and
// reading until nothing is left collects them all.
#include "aclkit/kernel/internal/Netlink.h"

#include <libmnl/libmnl.h>
#include <libnftnl/chain.h>
#include <libnftnl/common.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <libnftnl/table.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

#include "aclkit/kernel/Kernel.h"

namespace Kernel::nft {

namespace {

// Room for the largest message one call builds: a rule of a few dozen expressions.
constexpr std::size_t messageRoom = 16384;

template <class T, void (*Free)(const T*)>
struct Freed {
  void operator()(T* object) const { Free(object); }
};
using TablePtr = std::unique_ptr<nftnl_table, Freed<nftnl_table, nftnl_table_free>>;
using ChainPtr = std::unique_ptr<nftnl_chain, Freed<nftnl_chain, nftnl_chain_free>>;
using RulePtr = std::unique_ptr<nftnl_rule, Freed<nftnl_rule, nftnl_rule_free>>;

TablePtr table(const std::string& name) {
  TablePtr t(nftnl_table_alloc());
  nftnl_table_set_u32(t.get(), NFTNL_TABLE_FAMILY, NFPROTO_NETDEV);
  nftnl_table_set_str(t.get(), NFTNL_TABLE_NAME, name.c_str());
  return t;
}

ChainPtr chain(const std::string& tableName, const std::string& name) {
  ChainPtr c(nftnl_chain_alloc());
  nftnl_chain_set_u32(c.get(), NFTNL_CHAIN_FAMILY, NFPROTO_NETDEV);
  nftnl_chain_set_str(c.get(), NFTNL_CHAIN_TABLE, tableName.c_str());
  nftnl_chain_set_str(c.get(), NFTNL_CHAIN_NAME, name.c_str());
  return c;
}

void place(nftnl_rule* rule, const std::string& tableName, const std::string& chainName) {
  nftnl_rule_set_u32(rule, NFTNL_RULE_FAMILY, NFPROTO_NETDEV);
  nftnl_rule_set_str(rule, NFTNL_RULE_TABLE, tableName.c_str());
  nftnl_rule_set_str(rule, NFTNL_RULE_CHAIN, chainName.c_str());
}

std::uint16_t type(std::uint16_t message) {
  return static_cast<std::uint16_t>((NFNL_SUBSYS_NFTABLES << 8) | message);
}

// The text of an error message: errno's and, when the kernel gave one, its own.
std::string errorText(const nlmsghdr* header) {
  const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header));
  std::string text = std::strerror(-error->error);
  if ((header->nlmsg_flags & NLM_F_ACK_TLVS) == 0) return text;
  // The attributes follow the echoed request (only its header, with NLM_F_CAPPED).
  std::size_t offset = sizeof(nlmsghdr) + sizeof(nlmsgerr);
  if ((header->nlmsg_flags & NLM_F_CAPPED) == 0) offset += error->msg.nlmsg_len - sizeof(nlmsghdr);
  const nlattr* attribute = nullptr;
  // NOLINTNEXTLINE: libmnl's iteration macro
  for (attribute = static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(header, offset - sizeof(nlmsghdr)));
       mnl_attr_ok(attribute, static_cast<int>(static_cast<const char*>(mnl_nlmsg_get_payload_tail(header)) -
                                               reinterpret_cast<const char*>(attribute)));
       attribute = mnl_attr_next(attribute)) {
    if (mnl_attr_get_type(attribute) == NLMSGERR_ATTR_MSG) {
      return text + " (" + mnl_attr_get_str(attribute) + ")";
    }
  }
  return text;
}

}  // namespace

// ---- Batch -------------------------------------------------------------------------------------

Batch::Batch() {
  nftnl_batch_begin(next(), sequence_++);
  done(buffer_.data());
}

Batch::~Batch() = default;

char* Batch::next() {
  if (buffer_.size() < used_ + messageRoom) buffer_.resize(std::max(buffer_.size() * 2, used_ + messageRoom));
  return buffer_.data() + used_;
}

void Batch::done(const void* message) {
  used_ += NLMSG_ALIGN(static_cast<const nlmsghdr*>(message)->nlmsg_len);
}

void Batch::seal() {
  if (sealed_) return;
  nftnl_batch_end(next(), sequence_++);
  done(buffer_.data() + used_);
  sealed_ = true;
}

void Batch::addTable(const std::string& name) {
  const TablePtr t = table(name);
  nlmsghdr* header = nftnl_nlmsg_build_hdr(next(), NFT_MSG_NEWTABLE, NFPROTO_NETDEV, NLM_F_CREATE, sequence_++);
  nftnl_table_nlmsg_build_payload(header, t.get());
  done(header);
  ++messages_;
}

void Batch::deleteTable(const std::string& name) {
  const TablePtr t = table(name);
  nlmsghdr* header = nftnl_nlmsg_build_hdr(next(), NFT_MSG_DELTABLE, NFPROTO_NETDEV, 0, sequence_++);
  nftnl_table_nlmsg_build_payload(header, t.get());
  done(header);
  ++messages_;
}

void Batch::addChain(const std::string& tableName, const std::string& name, const Hook& hook) {
  const ChainPtr c = chain(tableName, name);
  nftnl_chain_set_u32(c.get(), NFTNL_CHAIN_HOOKNUM, hook.egress ? NF_NETDEV_EGRESS : NF_NETDEV_INGRESS);
  nftnl_chain_set_s32(c.get(), NFTNL_CHAIN_PRIO, hook.priority);
  nftnl_chain_set_str(c.get(), NFTNL_CHAIN_TYPE, "filter");
  nftnl_chain_set_str(c.get(), NFTNL_CHAIN_DEV, hook.device.c_str());
  nftnl_chain_set_u32(c.get(), NFTNL_CHAIN_POLICY, NF_ACCEPT);
  nlmsghdr* header = nftnl_nlmsg_build_hdr(next(), NFT_MSG_NEWCHAIN, NFPROTO_NETDEV, NLM_F_CREATE, sequence_++);
  nftnl_chain_nlmsg_build_payload(header, c.get());
  done(header);
  ++messages_;
}

void Batch::deleteChain(const std::string& tableName, const std::string& name) {
  const ChainPtr c = chain(tableName, name);
  nlmsghdr* header = nftnl_nlmsg_build_hdr(next(), NFT_MSG_DELCHAIN, NFPROTO_NETDEV, 0, sequence_++);
  nftnl_chain_nlmsg_build_payload(header, c.get());
  done(header);
  ++messages_;
}

void Batch::flushChain(const std::string& tableName, const std::string& name) {
  const RulePtr r(nftnl_rule_alloc());
  place(r.get(), tableName, name);
  nlmsghdr* header = nftnl_nlmsg_build_hdr(next(), NFT_MSG_DELRULE, NFPROTO_NETDEV, 0, sequence_++);
  nftnl_rule_nlmsg_build_payload(header, r.get());
  done(header);
  ++messages_;
}

std::uint32_t Batch::addRule(const std::string& tableName, const std::string& name, nftnl_rule* rule,
                             std::uint64_t after) {
  const RulePtr r(rule);
  place(r.get(), tableName, name);
  if (after != 0) nftnl_rule_set_u64(r.get(), NFTNL_RULE_POSITION, after);
  const std::uint32_t ticket = sequence_++;
  nlmsghdr* header =
      nftnl_nlmsg_build_hdr(next(), NFT_MSG_NEWRULE, NFPROTO_NETDEV, NLM_F_CREATE | NLM_F_APPEND | NLM_F_ECHO, ticket);
  nftnl_rule_nlmsg_build_payload(header, r.get());
  done(header);
  ++messages_;
  ++rules_;
  return ticket;
}

void Batch::deleteRule(const std::string& tableName, const std::string& name, std::uint64_t handle) {
  const RulePtr r(nftnl_rule_alloc());
  place(r.get(), tableName, name);
  nftnl_rule_set_u64(r.get(), NFTNL_RULE_HANDLE, handle);
  nlmsghdr* header = nftnl_nlmsg_build_hdr(next(), NFT_MSG_DELRULE, NFPROTO_NETDEV, 0, sequence_++);
  nftnl_rule_nlmsg_build_payload(header, r.get());
  done(header);
  ++messages_;
}

// ---- Socket ------------------------------------------------------------------------------------

Socket::Socket() : socket_(mnl_socket_open(NETLINK_NETFILTER)) {
  if (!socket_) throw Error(std::string("cannot open a netfilter netlink socket: ") + std::strerror(errno));
  if (mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) < 0) {
    const int why = errno;
    mnl_socket_close(socket_);
    throw Error(std::string("cannot bind a netfilter netlink socket: ") + std::strerror(why));
  }
  int on = 1;
  mnl_socket_setsockopt(socket_, NETLINK_EXT_ACK, &on, sizeof on);
  mnl_socket_setsockopt(socket_, NETLINK_CAP_ACK, &on, sizeof on);
}

Socket::~Socket() {
  mnl_socket_close(socket_);
}

namespace {

// Grows a socket buffer to `bytes`, past the system's limit when privileged.
void bufferAtLeast(int fd, int option, int forced, std::size_t bytes) {
  int have = 0;
  socklen_t length = sizeof have;
  getsockopt(fd, SOL_SOCKET, option, &have, &length);
  if (static_cast<std::size_t>(have) >= bytes) return;
  const int want = static_cast<int>(std::min<std::size_t>(bytes, 1U << 30));
  if (setsockopt(fd, SOL_SOCKET, forced, &want, sizeof want) != 0)
    setsockopt(fd, SOL_SOCKET, option, &want, sizeof want);
}

}  // namespace

Socket::Outcome Socket::send(Batch& batch) {
  Outcome outcome;
  batch.seal();
  const int fd = mnl_socket_get_fd(socket_);
  // Room for every echoed rule, about as long as the message that added it.
  bufferAtLeast(fd, SO_SNDBUF, SO_SNDBUFFORCE, batch.used_ + 4096);
  bufferAtLeast(fd, SO_RCVBUF, SO_RCVBUFFORCE, batch.used_ * 2 + (1U << 20));
  if (mnl_socket_sendto(socket_, batch.buffer_.data(), batch.used_) < 0) {
    outcome.error = std::string("the kernel took no batch: ") + std::strerror(errno);
    return outcome;
  }
  std::vector<char> buffer(std::max<std::size_t>(MNL_SOCKET_BUFFER_SIZE, 1U << 16));
  const unsigned port = mnl_socket_get_portid(socket_);
  while (true) {
    const ssize_t got = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (got < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK) break;
      // Answers were lost (the buffer overflowed): what the kernel did is not known here.
      if (outcome.error.empty()) outcome.error = std::string("lost the kernel's answer: ") + std::strerror(errno);
      break;
    }
    auto remaining = static_cast<int>(got);
    for (const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data()); mnl_nlmsg_ok(header, remaining);
         header = mnl_nlmsg_next(header, &remaining)) {
      if (header->nlmsg_pid != port && header->nlmsg_pid != 0) continue;
      if (header->nlmsg_type == NLMSG_ERROR) {
        const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header));
        if (error->error != 0 && outcome.error.empty()) outcome.error = errorText(header);
      } else if (header->nlmsg_type == type(NFT_MSG_NEWRULE)) {
        const RulePtr rule(nftnl_rule_alloc());
        if (nftnl_rule_nlmsg_parse(header, rule.get()) == 0 && nftnl_rule_is_set(rule.get(), NFTNL_RULE_HANDLE)) {
          outcome.handles[header->nlmsg_seq] = nftnl_rule_get_u64(rule.get(), NFTNL_RULE_HANDLE);
        }
      }
    }
  }
  if (outcome.error.empty() && outcome.handles.size() != batch.rules_) {
    outcome.error = "the kernel echoed " + std::to_string(outcome.handles.size()) + " of " +
                    std::to_string(batch.rules_) + " rules";
  }
  return outcome;
}

namespace {

// Sends a dump request and hands each answer to `take`; false when the kernel refused it.
template <class Take>
bool dump(mnl_socket* socket, std::uint32_t sequence, nlmsghdr* request, Take&& take) {
  if (mnl_socket_sendto(socket, request, request->nlmsg_len) < 0) return false;
  std::vector<char> buffer(std::max<std::size_t>(MNL_SOCKET_BUFFER_SIZE, 1U << 16));
  const unsigned port = mnl_socket_get_portid(socket);
  while (true) {
    const ssize_t got = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
    if (got <= 0) return false;
    auto remaining = static_cast<int>(got);
    for (const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data()); mnl_nlmsg_ok(header, remaining);
         header = mnl_nlmsg_next(header, &remaining)) {
      if (header->nlmsg_seq != sequence || header->nlmsg_pid != port) continue;
      if (header->nlmsg_type == NLMSG_DONE) return true;
      if (header->nlmsg_type == NLMSG_ERROR) {
        return static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header))->error == 0;
      }
      take(header);
    }
  }
}

}  // namespace

std::vector<std::string> Socket::tables() {
  std::vector<char> request(messageRoom);
  const std::uint32_t sequence = ++sequence_ + static_cast<std::uint32_t>(std::time(nullptr));
  nlmsghdr* header = nftnl_nlmsg_build_hdr(request.data(), NFT_MSG_GETTABLE, NFPROTO_NETDEV, NLM_F_DUMP, sequence);
  std::vector<std::string> names;
  const bool read = dump(socket_, sequence, header, [&](const nlmsghdr* answer) {
    const TablePtr t(nftnl_table_alloc());
    if (nftnl_table_nlmsg_parse(answer, t.get()) == 0)
      names.emplace_back(nftnl_table_get_str(t.get(), NFTNL_TABLE_NAME));
  });
  if (!read) throw Error(std::string("cannot list the kernel's tables: ") + std::strerror(errno));
  return names;
}

std::vector<ListedRule> Socket::rules(const std::string& tableName, const std::string& chainName) {
  std::vector<char> request(messageRoom);
  const std::uint32_t sequence = ++sequence_ + static_cast<std::uint32_t>(std::time(nullptr));
  nlmsghdr* header = nftnl_nlmsg_build_hdr(request.data(), NFT_MSG_GETRULE, NFPROTO_NETDEV, NLM_F_DUMP, sequence);
  const RulePtr filter(nftnl_rule_alloc());
  place(filter.get(), tableName, chainName);
  nftnl_rule_nlmsg_build_payload(header, filter.get());
  std::vector<ListedRule> listed;
  dump(socket_, sequence, header, [&](const nlmsghdr* answer) {
    const RulePtr rule(nftnl_rule_alloc());
    if (nftnl_rule_nlmsg_parse(answer, rule.get()) != 0) return;
    ListedRule entry{nftnl_rule_get_u64(rule.get(), NFTNL_RULE_HANDLE), 0, 0};
    nftnl_expr_foreach(
        rule.get(),
        [](nftnl_expr* expression, void* into) {
          if (std::strcmp(nftnl_expr_get_str(expression, NFTNL_EXPR_NAME), "counter") == 0) {
            auto* e = static_cast<ListedRule*>(into);
            e->packets = nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_PACKETS);
            e->bytes = nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_BYTES);
          }
          return 0;
        },
        &entry);
    listed.push_back(entry);
  });
  return listed;
}

}  // namespace Kernel::nft
