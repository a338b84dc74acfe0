// The ACL model's places in the embedded state store.
//
//   Acl::AclMounts acl = Acl::mountAcl(fwk::StateStore::instance());
//   acl.config->configIs(Acl::AclType::ip);
#pragma once

#include <string_view>

#include "aclkit/model/AclConfig.h"
#include "aclkit/model/IntfConfig.h"
#include "aclkit/model/Platform.h"
#include "aclkit/model/Udf.h"
#include "aclkit/platform/fwk/Dir.h"
#include "aclkit/platform/fwk/Export.h"

namespace fwk {
class StateStore;
}

namespace Acl {

// Where the ACL model lives in the store.
namespace mountPoint {
inline constexpr std::string_view inputConfig = "acl/input/config";
inline constexpr std::string_view intfConfig = "acl/input/intf";
inline constexpr std::string_view paramConfig = "acl/param";
inline constexpr std::string_view hwConfig = "acl/hw/config";
inline constexpr std::string_view status = "acl/status/all";
inline constexpr std::string_view statusDpDir = "acl/status/dp";
inline constexpr std::string_view udfAlias = "acl/input/udfAlias";
}  // namespace mountPoint

struct ACLKIT_EXPORT AclMounts {
  Ptr<Input::Config> config;
  Ptr<IntfConfig> intfConfig;
  Ptr<ParamConfig> paramConfig;
  Ptr<HwConfig> hwConfig;
  Ptr<Status> status;
  Ptr<fwk::Dir> statusDpDir;  // one StatusDp per dataplane
  Ptr<UdfAlias> udfAlias;
};

// Creates the mount points that are missing and returns all of them.
ACLKIT_EXPORT AclMounts mountAcl(fwk::StateStore& store);

}  // namespace Acl
