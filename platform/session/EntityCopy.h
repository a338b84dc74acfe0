// The configuration-session copy framework: copying entity trees between the running
// configuration and a session's candidate copy.
//
//   Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
//   copy->handlerIs(new EntityCopyHandler);           // the fallback handler
//   bool changed = copy->copyTree(candidateRoot, runningRoot);
//
// copyTree hands every entity to the handler registered for its type (searching its base
// types too), or to the fallback handler; the plain EntityCopyHandler copies attributes
// generically with doCopyEntityAttrs, recursing into children the same way. Only real
// differences are written, so observers of the destination see exactly what changed.
#pragma once

#include <map>

#include "aclkit/platform/fwk/Attributes.h"
#include "aclkit/platform/fwk/Export.h"

namespace Cli::Session {

using fwk::Entity;
using fwk::Ptr;
using fwk::String;

// clang-format off
#define ACLKIT_CLI_ATTRIBUTE_FILTER_ATTRS(A) A(hashMap, attributeName, fwk::String, bool)
// clang-format on

// The names of attributes a copy must leave alone (those mapped to true).
class ACLKIT_EXPORT AttributeFilter : public Entity {
  FWK_ENTITY(AttributeFilter, fwk::Entity, ACLKIT_CLI_ATTRIBUTE_FILTER_ATTRS)

 public:
  explicit AttributeFilter(String name = String()) : Entity(std::move(name)) {}
  [[nodiscard]] bool filtered(const String& attribute) const { return attributeName(attribute); }
};

class EntityCopy;

// clang-format off
#define ACLKIT_CLI_ENTITY_COPY_HANDLER_ATTRS(A)
// clang-format on

// Copies one entity onto its counterpart. Subclasses take over the copy of the types they
// are registered for.
class ACLKIT_EXPORT EntityCopyHandler : public Entity {
  FWK_ENTITY(EntityCopyHandler, fwk::Entity, ACLKIT_CLI_ENTITY_COPY_HANDLER_ATTRS)

 public:
  explicit EntityCopyHandler(String name = String()) : Entity(std::move(name)) {}

  // Makes dest like src; true when dest changed. `name` is the path of the pair, for
  // traces and for the children's paths. The default copies every attribute generically.
  virtual bool handleEntity(const Ptr<EntityCopy>& entityCopy, const Ptr<Entity>& dest, const Ptr<const Entity>& src,
                            const String& name);
  // The destination's counterpart of an entity the source refers to.
  virtual Ptr<Entity> resolveEntityPtr(const Ptr<EntityCopy>& entityCopy, const Ptr<const Entity>& srcTarget);
  // Called for the parent of an entity the copy created; nothing to do by default.
  virtual void handleParent(const Ptr<EntityCopy>& entityCopy, const Ptr<Entity>& destParent,
                            const Ptr<const Entity>& srcParent);
};

// clang-format off
#define ACLKIT_CLI_ENTITY_COPY_GLOBAL_SESSION_HANDLER_ATTRS(A)
// clang-format on

// Base of handlers that hold for a whole configuration session (not one copy).
class ACLKIT_EXPORT EntityCopyGlobalSessionHandler : public EntityCopyHandler {
  FWK_ENTITY(EntityCopyGlobalSessionHandler, EntityCopyHandler, ACLKIT_CLI_ENTITY_COPY_GLOBAL_SESSION_HANDLER_ATTRS)

 public:
  explicit EntityCopyGlobalSessionHandler(String name = String()) : EntityCopyHandler(std::move(name)) {}
};

// Which handler copies which entity type.
class ACLKIT_EXPORT CopyHandlerRegistry {
 public:
  // The registry every EntityCopy uses unless given another.
  static CopyHandlerRegistry& instance();

  void handlerIs(const fwk::TypeInfo& type, const Ptr<EntityCopyHandler>& handler);
  void handlerDel(const fwk::TypeInfo& type);
  // The handler of the type or of its nearest base that has one; null when none.
  [[nodiscard]] Ptr<EntityCopyHandler> handler(const fwk::TypeInfo& type) const;

 private:
  std::map<const fwk::TypeInfo*, Ptr<EntityCopyHandler>> handlers_;
};

// clang-format off
#define ACLKIT_CLI_ENTITY_COPY_ATTRS(A)                        \
  A(scalar, src, fwk::Ptr<const fwk::Entity>, {})       \
  A(scalar, dest, fwk::Ptr<fwk::Entity>, {})            \
  A(scalar, handler, fwk::Ptr<EntityCopyHandler>, {})
// clang-format on

class ACLKIT_EXPORT EntityCopy : public Entity, private fwk::CopyContext {
  FWK_ENTITY(EntityCopy, fwk::Entity, ACLKIT_CLI_ENTITY_COPY_ATTRS)

 public:
  explicit EntityCopy(String name = String()) : Entity(std::move(name)) {}

  // Copies every attribute of src onto dest (the same type) except those `filter` names
  // (a null filter copies all); children go through their handlers. True when dest changed.
  bool doCopyEntityAttrs(const Ptr<Entity>& destEntity, const Ptr<const Entity>& srcEntity, const String& prefix,
                         const Ptr<const AttributeFilter>& filter);
  // Copies the tree under srcRoot onto destRoot, starting with the roots' own handler.
  bool copyTree(const Ptr<Entity>& destRoot, const Ptr<const Entity>& srcRoot);
  // Hands one pair to the handler of its type, else to `handler`, else copies generically.
  bool copyEntity(const Ptr<Entity>& destEntity, const Ptr<const Entity>& srcEntity, const String& path);
  // Maps an entity below `src` to the entity at the same place below `dest`; an entity
  // outside `src` maps to itself, one without a counterpart to null.
  [[nodiscard]] Ptr<Entity> counterpart(const Ptr<const Entity>& srcTarget) const;

  void registryIs(const CopyHandlerRegistry* registry) noexcept { registry_ = registry; }

 private:
  bool copyChild(Entity& destEntity, const Entity& srcEntity, const String& path) override;
  Entity* resolveEntityPtr(const Entity* srcTarget) override;

  const CopyHandlerRegistry* registry_ = &CopyHandlerRegistry::instance();
};

ACLKIT_EXPORT Ptr<EntityCopy> entityCopyFactory();

}  // namespace Cli::Session
