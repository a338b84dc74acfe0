// What the platform publishes and how the library and the dataplanes talk: capabilities
// (ParamConfig), requests (HwConfig), overall and per-dataplane status.
#pragma once

#include "aclkit/model/Types.h"
#include "aclkit/platform/fwk/Attributes.h"
#include "aclkit/platform/fwk/Export.h"

namespace Acl {

// What the platform can program, one flag per feature, declared once: the attributes of
// ParamConfig and allSupportedIs both come from this list. A platform that publishes
// nothing supports nothing.
// clang-format off
#define ACLKIT_ACL_CAPABILITIES(A)                     \
  A(scalar, aclSupported, bool, false)                 \
  A(scalar, ip6AclSupported, bool, false)              \
  A(scalar, discontiguousMaskSupported, bool, false)   \
  A(scalar, ipMirrorSupported, bool, false)            \
  A(scalar, ip6MirrorSupported, bool, false)           \
  A(scalar, macMirrorSupported, bool, false)           \
  A(scalar, copyToCpuSupported, bool, false)           \
  A(scalar, loggingSupported, bool, false)             \
  A(scalar, ipDscpSupported, bool, false)              \
  A(scalar, ip6DscpSupported, bool, false)             \
  A(scalar, ipDscpMaskSupported, bool, false)          \
  A(scalar, ip6DscpMaskSupported, bool, false)         \
  A(scalar, ecnSupported, bool, false)                 \
  A(scalar, ipLengthSupported, bool, false)            \
  A(scalar, outerVlanSupported, bool, false)           \
  A(scalar, innerVlanSupported, bool, false)           \
  A(scalar, dpiNvgreSupported, bool, false)            \
  A(scalar, dpiGreSupported, bool, false)              \
  A(scalar, dpiVxlanSupported, bool, false)            \
  A(scalar, dpiGtpSupported, bool, false)              \
  A(scalar, dpiUserL4Supported, bool, false)           \
  A(scalar, dpiPayloadSupported, bool, false)          \
  A(scalar, vaclSupported, bool, false)                \
  A(scalar, tcpFlagsSupported, bool, false)            \
  A(scalar, mplsTwoLabelSupported, bool, false)        \
  A(scalar, mplsSupported, bool, false)                \
  A(scalar, ip6HopLimitSupported, bool, false)
// clang-format on

// The capabilities, then dpiSkipNonZero and mplsSkipNonZero: the deep-inspection and MPLS
// skip in force are non-zero (such matches cannot then be programmed).
// clang-format off
#define ACLKIT_ACL_PARAM_CONFIG_ATTRS(A)               \
  ACLKIT_ACL_CAPABILITIES(A)                           \
  A(scalar, dpiSkipNonZero, bool, false)               \
  A(scalar, mplsSkipNonZero, bool, false)
// clang-format on

class ACLKIT_EXPORT ParamConfig : public fwk::Entity {
  FWK_ENTITY(ParamConfig, fwk::Entity, ACLKIT_ACL_PARAM_CONFIG_ATTRS)

 public:
  explicit ParamConfig(const String& name = String()) : Entity(name) {}
  // Sets every capability (the skip flags stay as they are): a platform that can program
  // everything, or nothing.
  void allSupportedIs(bool supported);
};

// clang-format off
#define ACLKIT_ACL_HW_CONFIG_ATTRS(A) A(scalar, dpAclUpdateRequestTime, double, 0.0)
// clang-format on

// Requests from the library to the dataplanes.
class ACLKIT_EXPORT HwConfig : public fwk::Entity {
  FWK_ENTITY(HwConfig, fwk::Entity, ACLKIT_ACL_HW_CONFIG_ATTRS)

 public:
  explicit HwConfig(const String& name = String()) : Entity(name) {}
};

// Overall ACL status: the number of payload elements a rule may carry, per family.
// clang-format off
#define ACLKIT_ACL_STATUS_ATTRS(A) A(scalar, ipPayloadCapacity, U16, 0) A(scalar, macPayloadCapacity, U16, 0)
// clang-format on

class ACLKIT_EXPORT Status : public fwk::Entity {
  FWK_ENTITY(Status, fwk::Entity, ACLKIT_ACL_STATUS_ATTRS)

 public:
  explicit Status(const String& name = String()) : Entity(name) {}
};

// One dataplane's report (its name is the entity name): whether it reports hardware
// status at all, when it last applied the ACL configuration, and its errors by key.
// clang-format off
#define ACLKIT_ACL_STATUS_DP_ATTRS(A)                      \
  A(scalar, waitForHwStatus, bool, false)              \
  A(scalar, dpAclUpdateTime, double, 0.0)           \
  A(orderedMap, error, fwk::String, fwk::String)
// clang-format on

class ACLKIT_EXPORT StatusDp : public fwk::Entity {
  FWK_ENTITY(StatusDp, fwk::Entity, ACLKIT_ACL_STATUS_DP_ATTRS)

 public:
  explicit StatusDp(const String& name = String()) : Entity(name) {}
};

// clang-format off
#define ACLKIT_ACL_CHECKPOINT_STATUS_ATTRS(A) A(scalar, checkpointTime, double, 0.0) A(scalar, sequence, U64, 0)
// clang-format on

// A checkpoint a client may hand to a session; the library only holds it.
class ACLKIT_EXPORT CheckpointStatus : public fwk::Entity {
  FWK_ENTITY(CheckpointStatus, fwk::Entity, ACLKIT_ACL_CHECKPOINT_STATUS_ATTRS)

 public:
  explicit CheckpointStatus(const String& name = String()) : Entity(name) {}
};

}  // namespace Acl
