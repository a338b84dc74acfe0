// User-defined-field aliases: named payload elements that rules refer to, with the lists of
// the rules (by ACL and sequence) that use each alias.
#pragma once

#include "aclkit/model/Rules.h"
#include "aclkit/platform/fwk/Attributes.h"
#include "aclkit/platform/fwk/Export.h"

namespace Acl {

// clang-format off
#define ACLKIT_ACL_UDF_ACE_LIST_ATTRS(A) A(orderedMap, seq, U32, bool)
// clang-format on

// The sequence numbers of one ACL's rules that use an alias.
class ACLKIT_EXPORT UdfAceList : public fwk::Entity {
  FWK_ENTITY(UdfAceList, fwk::Entity, ACLKIT_ACL_UDF_ACE_LIST_ATTRS)

 public:
  explicit UdfAceList(const String& aclName) : Entity(aclName) {}
};

// clang-format off
#define ACLKIT_ACL_UDF_ALIAS_PAYLOAD_ATTRS(A) \
  A(scalar, value, PayloadValue, {}) A(children, aceListForAcl, fwk::String, UdfAceList)
// clang-format on

// One alias: its value, and per ACL name the rules that use it.
class ACLKIT_EXPORT UdfAliasPayload : public fwk::Entity {
  FWK_ENTITY(UdfAliasPayload, fwk::Entity, ACLKIT_ACL_UDF_ALIAS_PAYLOAD_ATTRS)

 public:
  explicit UdfAliasPayload(const String& alias) : Entity(alias) {}
};

// clang-format off
#define ACLKIT_ACL_UDF_ALIAS_ATTRS(A) \
  A(children, ipAlias, fwk::String, UdfAliasPayload) A(children, macAlias, fwk::String, UdfAliasPayload)
// clang-format on

// The aliases used by IPv4 and by MAC lists.
class ACLKIT_EXPORT UdfAlias : public fwk::Entity {
  FWK_ENTITY(UdfAlias, fwk::Entity, ACLKIT_ACL_UDF_ALIAS_ATTRS)

 public:
  explicit UdfAlias(const String& name = String()) : Entity(name) {}
};

}  // namespace Acl
