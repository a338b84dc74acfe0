// The library end to end on the embedded state store: an ACL is edited in a session,
// committed, programmed by a (simulated) dataplane, renumbered in place, bound to an
// interface, and changed again through a configuration session. Traces show each step.
//
//   aclkit-demo [--trace Facility/levels,...]     (default: Demo,AclApi/2,AclCopy/0-2)
#include <cstring>
#include <iostream>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/platform/trace/Trace.h"

namespace demo {

using namespace Acl;
using AclApi::ApiSm;
using fwk::Ptr;

fwk::TraceFacility& trace() {
  return fwk::TraceFacility::get("Demo");
}

IpRuleConfig tcpTo(const char* host, U16 port, RuleAction action = RuleAction::permit) {
  IpRuleConfig rule;
  IpFilter f;
  f.protocolIs(6);
  f.protocolMaskIs(0xFF);
  f.dstIs(Ip4Addr::fwkParse(host));
  f.dstMaskIs(Ip4Addr(0xFFFFFFFF));
  f.dstPortIs(RangeMatch(ValueOp::eq, port));
  rule.filterIs(f);
  rule.actionIs(action);
  return rule;
}

void show(const AclConfig& acl) {
  std::cout << "ip access-list " << acl.name() << '\n';
  const Ptr<AclSubConfig>& v = acl.currCfg();
  if (!v) return;
  auto rule = v->ruleBySequence().begin();
  auto remark = v->remarkBySequence().begin();
  while (rule != v->ruleBySequence().end() || remark != v->remarkBySequence().end()) {
    if (remark == v->remarkBySequence().end() || (rule != v->ruleBySequence().end() && rule->first < remark->first)) {
      std::cout << "  " << rule->first << ' ' << v->ipRuleById(rule->second) << '\n';
      ++rule;
    } else {
      std::cout << "  " << remark->first << ' ' << remark->second << '\n';
      ++remark;
    }
  }
  std::cout << "  (version " << v->id() << (v->committed() ? ", programmed" : ", not yet programmed") << ")\n";
}

// A dataplane agent that programs every request as soon as it is made.
class Dataplane : public HwConfig::Reactor {
 public:
  Dataplane(const AclMounts& acl, const char* name) : status_(acl.statusDpDir->entityIs<StatusDp>(name)) {
    status_->waitForHwStatusIs(true);
    notifierIs(acl.hwConfig.get());
  }
  void dpAclUpdateRequestTimeChanged() override {
    FWK_TRACE(trace(), 0, status_->name() << " programs the request of " << notifier()->dpAclUpdateRequestTime());
    status_->dpAclUpdateTimeIs(notifier()->dpAclUpdateRequestTime());
  }

 private:
  Ptr<StatusDp> status_;
};

int run() {
  AclMounts acl = mountAcl(fwk::StateStore::instance());
  acl.paramConfig->allSupportedIs(true);
  Dataplane linecard(acl, "Linecard1");
  auto session = [&](AclApi::ApiType type) {
    return AclApi::apiSmFactory("web", AclType::ip, false, type, acl.config, acl.paramConfig, acl.intfConfig,
                                acl.hwConfig, acl.status, acl.statusDpDir, acl.udfAlias);
  };

  FWK_TRACE(trace(), 0, "1. a new ACL, rules numbered automatically");
  Ptr<ApiSm> edit = session(AclApi::commit_);
  for (AclApi::ApiState added :
       {edit->addRemark(RemarkConfig(String("web servers")), 0), edit->addIpRule(0, tcpTo("192.0.2.1", 80)),
        edit->addIpRule(0, tcpTo("192.0.2.1", 443)), edit->addIpRule(0, tcpTo("192.0.2.1", 22, RuleAction::deny))}) {
    if (added != AclApi::succeeded) std::cout << "edit refused: " << added << '\n';
  }
  std::cout << "commit: " << edit->commit() << '\n';
  Ptr<AclConfig> web = acl.config->config(AclType::ip)->acl("web");
  show(*web);

  FWK_TRACE(trace(), 0, "2. renumbering only: the programmed version is patched in place");
  Ptr<ApiSm> renumber = session(AclApi::commit_);
  std::cout << "resequence: " << renumber->resequence(100, 100) << '\n';
  std::cout << "commit: " << renumber->commit() << '\n';
  show(*web);

  FWK_TRACE(trace(), 0, "3. bound to an interface");
  std::cout << "attach: " << session(AclApi::attach_)->attach("Ethernet1", AclDirection::in) << '\n';

  FWK_TRACE(trace(), 0, "4. a configuration session: edit a candidate, commit only what differs");
  AclConfigSession config(acl);
  Ptr<AclSubConfig> candidate = config.newVersion(AclType::ip, "web");
  UniqueId id;
  candidate->ruleBySequenceIs(150, id);
  candidate->ipRuleByIdIs(id, tcpTo("192.0.2.2", 8080));
  std::cout << "configuration session changed running: " << std::boolalpha << config.commit() << '\n';
  show(*web);
  return 0;
}

}  // namespace demo

int main(int argc, char** argv) {
  const char* traces = "Demo,AclApi/2,AclCopy/0-2";
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--trace") == 0 && i + 1 < argc) {
      traces = argv[++i];
    } else {
      std::cerr << "usage: " << argv[0] << " [--trace Facility/levels,...]\n";
      return 2;
    }
  }
  try {
    fwk::enableTraces(traces);
    return demo::run();
  } catch (const std::exception& e) {
    std::cerr << "error: " << e.what() << '\n';
    return 1;
  }
}
