// Where ACLs are bound: per family and direction, a map from interface to ACL name.
//
//   intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(IntfId("Ethernet1"), "acl1");
#pragma once

#include "aclkit/model/Types.h"
#include "aclkit/platform/fwk/Attributes.h"
#include "aclkit/platform/fwk/Export.h"

namespace Acl {

// clang-format off
#define ACLKIT_ACL_INTF_ATTRS(A) A(constScalar, direction, AclDirection, AclDirection::in) A(hashMap, intf, IntfId, fwk::String)
// clang-format on

// The bindings of one family and direction: interface to ACL name.
class ACLKIT_EXPORT AclIntf : public fwk::Entity {
  FWK_ENTITY(AclIntf, fwk::Entity, ACLKIT_ACL_INTF_ATTRS)

 public:
  explicit AclIntf(AclDirection direction) { directionStore(direction); }
};

// clang-format off
#define ACLKIT_ACL_INTF_TYPE_CONFIG_ATTRS(A) \
  A(constScalar, type, AclType, AclType::ip) A(children, intf, AclDirection, AclIntf)
// clang-format on

class ACLKIT_EXPORT IntfTypeConfig : public fwk::Entity {
  FWK_ENTITY(IntfTypeConfig, fwk::Entity, ACLKIT_ACL_INTF_TYPE_CONFIG_ATTRS)

 public:
  explicit IntfTypeConfig(AclType type) { typeStore(type); }
};

// clang-format off
#define ACLKIT_ACL_INTF_CONFIG_ATTRS(A) A(children, config, AclType, IntfTypeConfig)
// clang-format on

// The ACL bindings of all families.
class ACLKIT_EXPORT IntfConfig : public fwk::Entity {
  FWK_ENTITY(IntfConfig, fwk::Entity, ACLKIT_ACL_INTF_CONFIG_ATTRS)

 public:
  explicit IntfConfig(const fwk::String& name = fwk::String()) : Entity(name) {}
};

}  // namespace Acl
