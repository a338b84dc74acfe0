// A state store with the ACL model mounted, and edit sessions on it, for tests.
#pragma once

#include <initializer_list>
#include <utility>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/store/StateStore.h"
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

}  // namespace build
