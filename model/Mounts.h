// The ACL model's places in the embedded state store.
//
//   Acl::AclMounts acl = Acl::mountAcl(fwk::StateStore::instance());
//   acl.config->configIs(Acl::AclType::ip);
#pragma once

#include "model/AclConfig.h"
#include "model/IntfConfig.h"
#include "model/Platform.h"
#include "model/Udf.h"
#include "platform/fwk/Dir.h"

namespace fwk {
class StateStore;
}

namespace Acl {

struct AclMounts {
  Ptr<Input::Config> config;
  Ptr<IntfConfig> intfConfig;
  Ptr<ParamConfig> paramConfig;
  Ptr<HwConfig> hwConfig;
  Ptr<Status> status;
  Ptr<fwk::Dir> statusDpDir;  // one StatusDp per dataplane
  Ptr<UdfAlias> udfAlias;
};

// Creates the mount points that are missing and returns all of them.
AclMounts mountAcl(fwk::StateStore& store);

}  // namespace Acl
