// Uses the installed library the way an agent would, across the shared-library boundary:
// a session, values made here and read by the library's reflection, the library's
// exceptions caught here by type.
#include <aclkit/Acl/AclApiSm.h>
#include <aclkit/model/Mounts.h>
#include <aclkit/platform/fwk/Reflection.h>
#include <aclkit/platform/store/StateStore.h>

#include <cstdio>
#include <string>

#include "model/Types.h"  // this program's own

namespace {
int failed(const char* what) {
  std::fprintf(stderr, "consumer: %s\n", what);
  return 1;
}
}  // namespace

int main() {
  inventory::Types own;
  Acl::AclMounts acl = Acl::mountAcl(fwk::StateStore::instance());
  fwk::Ptr<AclApi::ApiSm> s =
      AclApi::apiSmFactory("web", Acl::AclType::ip, false, AclApi::commit_, acl.config, acl.paramConfig, acl.intfConfig,
                           acl.hwConfig, acl.status, acl.statusDpDir, acl.udfAlias);
  Acl::IpRuleConfig rule;
  fwk::Value added = fwk::invoke(*s, "addIpRule", {Acl::U32{0}, rule});
  if (added.as<AclApi::ApiState>() != AclApi::succeeded) return failed("addIpRule by name");
  if (fwk::getAttribute(*s, "aclType").as<Acl::AclType>() != Acl::AclType::ip) return failed("aclType by name");
  if (s->commit() != AclApi::succeeded) return failed("commit");
  fwk::Ptr<Acl::AclConfig> web = acl.config->config(Acl::AclType::ip)->acl("web");
  if (!web || web->currCfg()->ruleBySequence().size() != 1) return failed("the committed list");
  try {
    Acl::IpFilterBase filter;
    filter.tniIs(16777216);
    return failed("an out-of-range TNI was accepted");
  } catch (const fwk::RangeError& e) {
    if (std::string(e.what()) != "IpFilterBase::tni < 0 or > 16777215 not allowed") return failed(e.what());
  }
  try {
    fwk::invoke(*s, "noSuchOperation");
    return failed("an unknown operation ran");
  } catch (const fwk::NameError&) {
  }
  std::printf("consumer: ok (%d)\n", own.count);
  return 0;
}
