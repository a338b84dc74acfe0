// A state store with the ACL model mounted, and edit sessions on it, for tests.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/platform/trace/Trace.h"
#include "tests/support/AclBuilders.h"

namespace build {

struct SessionWorld {
  fwk::StateStore store;
  Acl::AclMounts acl = Acl::mountAcl(store);

  fwk::Ptr<AclApi::ApiSm> session(const char* name, Acl::AclType type = Acl::AclType::ip,
                                  AclApi::ApiType apiType = AclApi::commit_) {
    return AclApi::apiSmFactory(name, type, false, apiType, acl.config, acl.paramConfig, acl.intfConfig, acl.hwConfig,
                                acl.status, acl.statusDpDir, acl.udfAlias);
  }

  // An ACL with a current version holding IPv4 rules (sequence, port) and remarks.
  fwk::Ptr<Acl::AclConfig> installAcl(const char* name, std::initializer_list<std::pair<Acl::U32, Acl::U16>> rules,
                                      std::initializer_list<std::pair<Acl::U32, const char*>> remarks = {},
                                      bool readonly = false) {
    auto a = acl.config->configIs(Acl::AclType::ip)->aclIs(name, Acl::AclType::ip, false, readonly);
    a->currCfgIs(version(*a, rules, remarks));
    a->currCfg()->committedIs(true);
    return a;
  }
};

// Every level of a trace facility switched on while it lives.
class AllLevels {
 public:
  explicit AllLevels(const char* facility = "AclApi") : facility_(fwk::TraceFacility::get(facility)) {
    facility_.levelsUpToIs(9);
  }
  ~AllLevels() { facility_.levelsIs(0); }
  AllLevels(const AllLevels&) = delete;
  AllLevels& operator=(const AllLevels&) = delete;

 private:
  fwk::TraceFacility& facility_;
};

// The messages captured since the last call, in order.
inline std::vector<std::string> take(fwk::TraceCapture& traces) {
  std::vector<std::string> all = traces.messages();
  traces.clear();
  return all;
}

}  // namespace build
