// Fuzzes the edit session and configuration sessions with a small operation language: each
// input byte picks an operation and its arguments. After every step the sessions'
// bookkeeping must agree with their scratchpads and every ACL's current version must be
// whole (each place has its rule record); otherwise the harness aborts, which the fuzzer
// reports with the input that got there.
//
// Operations the library documents as letting the content counts drift (a by-content
// removal of another family's default rule, a remark removed at an empty place, automatic
// remark numbers wrapping past the top, resequencing with an increment of 0) are not
// generated; tests pin them separately.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Acl/AclApiInvariants.h"
#include "Acl/AclApiSm.h"
#include "Acl/AclConfigSession.h"
#include "model/Mounts.h"
#include "platform/store/StateStore.h"
#include "tests/support/AclBuilders.h"

namespace {

using namespace Acl;
using namespace AclApi;

class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  [[nodiscard]] bool more() const { return at_ < size_; }
  std::uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
  U32 sequence() {
    switch (byte() % 4) {
      case 0:
        return 0;
      case 1:
        return 1 + byte();
      case 2:
        return 10 * (1 + byte() % 20);
      default:
        return 0xFFFFFFFFU - byte() % 16;
    }
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "invariant broken: %s\n", what.c_str());
  std::abort();
}

// ACLKIT_FUZZ_TRACE=1 prints every step, to read a crash input.
const bool verbose = std::getenv("ACLKIT_FUZZ_TRACE") != nullptr;

struct World {
  fwk::StateStore store;
  AclMounts acl = mountAcl(store);
  Ptr<StatusDp> dp;
  Ptr<ApiSm> sessions[3];

  World() {
    dp = acl.statusDpDir->entityIs<StatusDp>("dp");
    acl.paramConfig->allSupportedIs(true);
  }

  static IpRuleConfig ipRule(std::uint8_t b) {
    return build::ruleWith<IpRuleConfig>([&](IpFilter& f) {
      f.protocolIs(b % 3 == 0 ? 6 : 17);
      f.protocolMaskIs(0xFF);
      f.dstPortIs(RangeMatch(ValueOp::eq, static_cast<U16>(b % 8)));
    });
  }
  static Ip6RuleConfig ip6Rule(std::uint8_t b) {
    return build::ruleWith<Ip6RuleConfig>([&](Ip6Filter& f) { f.hopLimitIs(static_cast<U8>(b % 6)); });
  }
  static MacRuleConfig macRule(std::uint8_t b) {
    return build::ruleWith<MacRuleConfig>([&](MacFilter& f) { f.ethertypeIs(static_cast<U16>(b % 6)); });
  }

  void step(Bytes& in) {
    const int slot = in.byte() % 3;
    Ptr<ApiSm>& s = sessions[slot];
    const std::uint8_t op = in.byte() % 16;
    if (verbose) std::fprintf(stderr, "slot %d op %d\n", slot, op);
    if (op == 0 || !s) {
      const char* name = in.byte() % 2 ? "a" : "b";
      const auto type = static_cast<AclType>(in.byte() % 3);
      const auto apiType = static_cast<ApiType>(in.byte() % 4);
      s = apiSmFactory(name, type, false, apiType, acl.config, acl.paramConfig, acl.intfConfig, acl.hwConfig,
                       acl.status, acl.statusDpDir, acl.udfAlias);
      if (verbose) std::fprintf(stderr, "  new session %s type %u api %u\n", name, unsigned(type), unsigned(apiType));
      return;
    }
    const std::uint8_t arg = in.byte();
    switch (op) {
      case 1:
      case 2:
        if (verbose) std::fprintf(stderr, "  add rule %u\n", arg);
        if (s->aclType() == AclType::ip) s->addIpRule(in.sequence(), ipRule(arg));
        if (s->aclType() == AclType::ipv6) s->addIp6Rule(in.sequence(), ip6Rule(arg));
        if (s->aclType() == AclType::mac) s->addMacRule(in.sequence(), macRule(arg));
        break;
      case 3: {
        U32 at = in.sequence();
        if (at == 0 && s->currentAcl() && s->getLastSequenceNumber() > 0xFFFFFFF5U) break;
        s->addRemark(RemarkConfig(String(std::string(1, static_cast<char>('a' + arg % 4)))), at);
        break;
      }
      case 4:
        if (Ptr<AclSubConfig> sp = s->currentAcl()) {
          auto standing = sp->remarkBySequence().lowerBound(in.sequence());
          U32 at = standing == sp->remarkBySequence().end() ? 0 : standing->first;
          s->removeRemark(RemarkConfig(String(std::string(1, static_cast<char>('a' + arg % 4)))), at);
        }
        break;
      case 5: {
        U32 start = in.sequence();
        s->removeRuleBySequence(start, arg % 2 ? start + in.byte() : in.sequence());
        break;
      }
      case 6:
        if (s->aclType() == AclType::ip) s->removeIpRuleByConfig(ipRule(arg));
        if (s->aclType() == AclType::ipv6) s->removeIp6RuleByConfig(ip6Rule(arg));
        if (s->aclType() == AclType::mac) s->removeMacRuleByConfig(macRule(arg));
        break;
      case 7:  // an increment of 0 collapses places by design; see the file comment
        s->resequence(in.sequence(), 1U + arg);
        break;
      case 8:
        s->commitExt(arg % 2 == 0);
        break;
      case 9:
        s->revert();
        break;
      case 10:
        if (s->apiType() == remove_) s->remove();
        break;
      case 11:
        if (s->apiType() == attach_) s->attach(arg % 2 ? "Ethernet1" : "Vlan10", AclDirection::in);
        if (s->apiType() == detach_) s->detach(arg % 2 ? "Ethernet1" : "Vlan10", AclDirection::in);
        break;
      case 12:
        switch (arg % 4) {
          case 0:
            dp->waitForHwStatusIs(!dp->waitForHwStatus());
            break;
          case 1:
            dp->dpAclUpdateTimeIs(acl.hwConfig->dpAclUpdateRequestTime());
            break;
          case 2:
            dp->errorIs("e", "failed");
            break;
          default:
            dp->errorDelAll();
            break;
        }
        break;
      case 13: {
        AclConfigSession config(acl);
        Ptr<AclSubConfig> v = config.newVersion(AclType::ip, arg % 2 ? "a" : "c");
        if (!v->ruleBySequence().empty()) v->ruleBySequenceDel(v->ruleBySequence().begin()->first);
        if (in.byte() % 2) config.commit();
        break;
      }
      case 14:
        arg % 2 ? s->enableCounters() : s->disableFragments();
        break;
      default:
        s->dpAclOk();
        break;
    }
  }

  void check() {
    for (const Ptr<ApiSm>& s : sessions) {
      if (!s) continue;
      if (verbose && s->currentAcl()) {
        std::fprintf(stderr, "  state %s last=%u:", s->apiState() == succeeded ? "ok" : "-", s->spLastSequenceNumber());
        for (const auto& [seq, id] : s->currentAcl()->ruleBySequence()) std::fprintf(stderr, " %u", seq);
        std::fprintf(stderr, "\n");
      }
      auto violations = invariantViolations(*s);
      if (!violations.empty()) fail(violations.front());
    }
    for (const auto& [type, family] : acl.config->config()) {
      for (const auto& [name, a] : family->acl()) {
        const Ptr<AclSubConfig>& v = a->currCfg();
        if (!v) continue;
        for (const auto& [seq, id] : v->ruleBySequence()) {
          bool recorded = type == AclType::ip     ? v->ipRuleById().contains(id)
                          : type == AclType::ipv6 ? v->ip6RuleById().contains(id)
                                                  : v->macRuleById().contains(id);
          if (!recorded) fail("a place of " + name.str() + "'s current version has no rule");
        }
      }
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes in(data, size);
  World world;
  for (int steps = 0; in.more() && steps < 400; ++steps) {
    world.step(in);
    world.check();
  }
  return 0;
}
