// Configuration-session copy handlers for ACLs.
//
// When a configuration session copies the ACL configuration (Input::AclTypeConfig, one per
// family) or the ACL bindings (IntfTypeConfig) between the running configuration and its
// candidate, these handlers replace the generic attribute copy:
//   - ACLs are compared version against version, rule by rule; when only sequence numbers
//     or remarks differ the destination's current version is patched in place (rule
//     identities kept), otherwise a complete new version is built and made current before
//     the old one is removed, so an observer of currCfg never sees a half-built list;
//   - dynamic and secure-monitor ACLs of the destination, and bindings that point at them,
//     are left alone when the source lacks them;
//   - an ACL whose construction arguments (standard, readonly) differ is recreated.
// Traces go to the "AclCopy" facility.
#pragma once

#include "aclkit/model/AclConfig.h"
#include "aclkit/model/IntfConfig.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/session/EntityCopy.h"

namespace Acl {

using Cli::Session::AttributeFilter;
using Cli::Session::EntityCopy;

// clang-format off
#define ACLKIT_ACL_CONFIG_COPY_HANDLER_ATTRS(A) \
  A(ownedChild, filteredAttribute, fwk::Ptr<Cli::Session::AttributeFilter>, {})
// clang-format on

// clang-format off
#define ACLKIT_ACL_CONFIG_COPY_HANDLER_OPS(O) \
  O(initialize) O(equalRuleConfig) O(equalSequence) O(equalRemark) O(copyNonEssential) O(copySequence) O(copyRemark)
// clang-format on

class ACLKIT_EXPORT AclConfigCopyHandler : public Cli::Session::EntityCopyGlobalSessionHandler {
  FWK_ENTITY(AclConfigCopyHandler, Cli::Session::EntityCopyGlobalSessionHandler, ACLKIT_ACL_CONFIG_COPY_HANDLER_ATTRS)

 public:
  explicit AclConfigCopyHandler(const String& name = String()) : EntityCopyGlobalSessionHandler(name) {}

  // Fills the filter with the ACL attributes the handler copies itself or never copies.
  void initialize();
  Ptr<AttributeFilter> filteredAttributeIs();
  void filteredAttributeDel();

  // Same rules, position by position, and the same counters and fragments flags (or both
  // opaque). Sequence numbers and remarks do not count. Neither pointer may be null.
  [[nodiscard]] bool equalRuleConfig(AclType aclType, const Ptr<const AclSubConfig>& a,
                                     const Ptr<const AclSubConfig>& b) const;
  // Same sequence numbers of rules, position by position.
  [[nodiscard]] bool equalSequence(const Ptr<const AclSubConfig>& a, const Ptr<const AclSubConfig>& b) const;
  // Same remarks at the same sequence numbers.
  [[nodiscard]] bool equalRemark(const Ptr<const AclSubConfig>& a, const Ptr<const AclSubConfig>& b) const;

  // Patches dest's sequence numbers and remarks from src (only when their rules are equal);
  // true when dest changed.
  bool copyNonEssential(const Ptr<AclSubConfig>& dest, const Ptr<const AclSubConfig>& src) const;
  // dest keeps its rule identities, in order, under src's sequence numbers.
  void copySequence(const Ptr<AclSubConfig>& dest, const Ptr<const AclSubConfig>& src) const;
  void copyRemark(const Ptr<AclSubConfig>& dest, const Ptr<const AclSubConfig>& src) const;

  // Copies one family's ACLs (dest and src are Input::AclTypeConfig); true when dest changed.
  bool handleEntity(const Ptr<EntityCopy>& entityCopy, const Ptr<fwk::Entity>& dest, const Ptr<const fwk::Entity>& src,
                    const String& name) override;
  // Copies one ACL; true when dest changed.
  bool handleAclConfig(const Ptr<EntityCopy>& entityCopy, const Ptr<AclConfig>& destConfig,
                       const Ptr<const AclConfig>& srcConfig, const String& path);
};

ACLKIT_EXPORT Ptr<AclConfigCopyHandler> aclConfigCopyHandlerFactory();

// clang-format off
#define ACLKIT_ACL_INTF_CONFIG_COPY_HANDLER_ATTRS(A) A(constScalar, config, fwk::Ptr<Input::Config>, {})
// clang-format on

// Copies one family's bindings (IntfTypeConfig). `config` is the input configuration whose
// ACLs decide which destination bindings are dynamic and must stay.
class ACLKIT_EXPORT AclIntfConfigCopyHandler : public Cli::Session::EntityCopyGlobalSessionHandler {
  FWK_ENTITY(AclIntfConfigCopyHandler, Cli::Session::EntityCopyGlobalSessionHandler,
             ACLKIT_ACL_INTF_CONFIG_COPY_HANDLER_ATTRS)

 public:
  explicit AclIntfConfigCopyHandler(const Ptr<Input::Config>& config) { configStore(config); }

  bool handleEntity(const Ptr<EntityCopy>& entityCopy, const Ptr<fwk::Entity>& dest, const Ptr<const fwk::Entity>& src,
                    const String& name) override;
};

ACLKIT_EXPORT Ptr<AclIntfConfigCopyHandler> aclIntfConfigCopyHandlerFactory(Ptr<Input::Config> config);

// clang-format off
#define ACLKIT_ACL_CONFIG_COPY_HANDLER_DIR_ATTRS(A) A(ownedChild, copyHandler, fwk::Ptr<AclConfigCopyHandler>, {})
// clang-format on

// Holds the ACL configuration copy handler of a configuration session framework.
class ACLKIT_EXPORT AclConfigCopyHandlerDir : public fwk::Entity {
  FWK_ENTITY(AclConfigCopyHandlerDir, fwk::Entity, ACLKIT_ACL_CONFIG_COPY_HANDLER_DIR_ATTRS)

 public:
  explicit AclConfigCopyHandlerDir(const String& name) : Entity(name) {}
  // The handler, created (and parented here) on first call.
  Ptr<AclConfigCopyHandler> copyHandlerIs();
  void copyHandlerDel();
};

// clang-format off
#define ACLKIT_ACL_INTF_CONFIG_COPY_HANDLER_DIR_ATTRS(A) \
  A(ownedChild, copyHandler, fwk::Ptr<AclIntfConfigCopyHandler>, {})
// clang-format on

class ACLKIT_EXPORT AclIntfConfigCopyHandlerDir : public fwk::Entity {
  FWK_ENTITY(AclIntfConfigCopyHandlerDir, fwk::Entity, ACLKIT_ACL_INTF_CONFIG_COPY_HANDLER_DIR_ATTRS)

 public:
  explicit AclIntfConfigCopyHandlerDir(const String& name) : Entity(name) {}
  // The handler for `config`: kept when it already serves that configuration, else replaced.
  Ptr<AclIntfConfigCopyHandler> copyHandlerIs(const Ptr<Input::Config>& config);
  void copyHandlerDel();
};

ACLKIT_EXPORT Ptr<AclConfigCopyHandlerDir> aclConfigCopyHandlerDirFactory(String name);
ACLKIT_EXPORT Ptr<AclIntfConfigCopyHandlerDir> aclIntfConfigCopyHandlerDirFactory(String name);

}  // namespace Acl
