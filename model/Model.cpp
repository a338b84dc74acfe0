#include "model/Mounts.h"
#include "platform/fwk/Reflection.h"
#include "platform/store/StateStore.h"

namespace Acl {

FWK_ENTITY_DEFINE(AclSubConfig, ACL_SUB_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(AclConfig, ACL_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(AclIntf, ACL_INTF_ATTRS)
FWK_ENTITY_DEFINE(IntfTypeConfig, ACL_INTF_TYPE_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(IntfConfig, ACL_INTF_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(ParamConfig, ACL_PARAM_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(HwConfig, ACL_HW_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(Status, ACL_STATUS_ATTRS)
FWK_ENTITY_DEFINE(StatusDp, ACL_STATUS_DP_ATTRS)
FWK_ENTITY_DEFINE(CheckpointStatus, ACL_CHECKPOINT_STATUS_ATTRS)
FWK_ENTITY_DEFINE(UdfAceList, ACL_UDF_ACE_LIST_ATTRS)
FWK_ENTITY_DEFINE(UdfAliasPayload, ACL_UDF_ALIAS_PAYLOAD_ATTRS)
FWK_ENTITY_DEFINE(UdfAlias, ACL_UDF_ALIAS_ATTRS)

namespace Input {
FWK_ENTITY_DEFINE(AclTypeConfig, ACL_INPUT_ACL_TYPE_CONFIG_ATTRS)
FWK_ENTITY_DEFINE(Config, ACL_INPUT_CONFIG_ATTRS)
}  // namespace Input

void ParamConfig::allSupportedIs(bool supported) {
  for (const fwk::AttrInfo* attr : fwkType().attrs()) {
    if (attr->name().view().ends_with("Supported")) attr->set(*this, fwk::Value(supported));
  }
}

AclMounts mountAcl(fwk::StateStore& store) {
  AclMounts m;
  m.config = store.mount<Input::Config>(fwk::mountPoint::aclInputConfig);
  m.intfConfig = store.mount<IntfConfig>(fwk::mountPoint::aclIntfConfig);
  m.paramConfig = store.mount<ParamConfig>(fwk::mountPoint::aclParamConfig);
  m.hwConfig = store.mount<HwConfig>(fwk::mountPoint::aclHwConfig);
  m.status = store.mount<Status>(fwk::mountPoint::aclStatus);
  m.statusDpDir = store.mount<fwk::Dir>(fwk::mountPoint::aclStatusDpDir);
  m.udfAlias = store.mount<UdfAlias>(fwk::mountPoint::aclUdfAlias);
  return m;
}

}  // namespace Acl
