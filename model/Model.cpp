#include "aclkit/model/Mounts.h"
#include "aclkit/platform/fwk/Define.h"
#include "aclkit/platform/store/StateStore.h"

namespace Acl {

FWK_ENTITY_DEFINE(AclSubConfig, ACLKIT_ACL_SUB_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(AclConfig, ACLKIT_ACL_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(AclIntf, ACLKIT_ACL_INTF_ATTRS)
FWK_ENTITY_DEFINE(IntfTypeConfig, ACLKIT_ACL_INTF_TYPE_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(IntfConfig, ACLKIT_ACL_INTF_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(ParamConfig, ACLKIT_ACL_PARAM_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(HwConfig, ACLKIT_ACL_HW_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(Status, ACLKIT_ACL_STATUS_ATTRS)
FWK_ENTITY_DEFINE(StatusDp, ACLKIT_ACL_STATUS_DP_ATTRS)
FWK_ENTITY_DEFINE(CheckpointStatus, ACLKIT_ACL_CHECKPOINT_STATUS_ATTRS)
FWK_ENTITY_DEFINE(UdfAceList, ACLKIT_ACL_UDF_ACE_LIST_ATTRS)
FWK_ENTITY_DEFINE(UdfAliasPayload, ACLKIT_ACL_UDF_ALIAS_PAYLOAD_ATTRS)
FWK_ENTITY_DEFINE(UdfAlias, ACLKIT_ACL_UDF_ALIAS_ATTRS)

namespace Input {
FWK_ENTITY_DEFINE(AclTypeConfig, ACLKIT_ACL_INPUT_ACL_TYPE_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(Config, ACLKIT_ACL_INPUT_CONFIG_ATTRS)
}  // namespace Input

void ParamConfig::allSupportedIs(bool supported) {
#define ACLKIT_ACL_SET_CAPABILITY_(kind, name, T, def) name##Is(supported);
  ACLKIT_ACL_CAPABILITIES(ACLKIT_ACL_SET_CAPABILITY_)
#undef ACLKIT_ACL_SET_CAPABILITY_
}

AclMounts mountAcl(fwk::StateStore& store) {
  AclMounts m;
  m.config = store.mount<Input::Config>(mountPoint::inputConfig);
  m.intfConfig = store.mount<IntfConfig>(mountPoint::intfConfig);
  m.paramConfig = store.mount<ParamConfig>(mountPoint::paramConfig);
  m.hwConfig = store.mount<HwConfig>(mountPoint::hwConfig);
  m.status = store.mount<Status>(mountPoint::status);
  m.statusDpDir = store.mount<fwk::Dir>(mountPoint::statusDpDir);
  m.udfAlias = store.mount<UdfAlias>(mountPoint::udfAlias);
  return m;
}

}  // namespace Acl
