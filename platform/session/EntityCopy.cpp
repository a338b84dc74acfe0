#include "aclkit/platform/session/EntityCopy.h"

#include <vector>

#include "aclkit/platform/fwk/Define.h"

namespace Cli::Session {

FWK_ENTITY_DEFINE(AttributeFilter, ACLKIT_CLI_ATTRIBUTE_FILTER_ATTRS)
FWK_ENTITY_DEFINE(EntityCopyHandler, ACLKIT_CLI_ENTITY_COPY_HANDLER_ATTRS)
FWK_ENTITY_DEFINE(EntityCopyGlobalSessionHandler, ACLKIT_CLI_ENTITY_COPY_GLOBAL_SESSION_HANDLER_ATTRS)
FWK_ENTITY_DEFINE(EntityCopy, ACLKIT_CLI_ENTITY_COPY_ATTRS)

bool EntityCopyHandler::handleEntity(const Ptr<EntityCopy>& entityCopy, const Ptr<Entity>& dest,
                                     const Ptr<const Entity>& src, const String& name) {
  return entityCopy->doCopyEntityAttrs(dest, src, name, nullptr);
}

Ptr<Entity> EntityCopyHandler::resolveEntityPtr(const Ptr<EntityCopy>& entityCopy, const Ptr<const Entity>& srcTarget) {
  return entityCopy->counterpart(srcTarget);
}

void EntityCopyHandler::handleParent(const Ptr<EntityCopy>&, const Ptr<Entity>&, const Ptr<const Entity>&) {}

CopyHandlerRegistry& CopyHandlerRegistry::instance() {
  static CopyHandlerRegistry& registry = *new CopyHandlerRegistry;
  return registry;
}

void CopyHandlerRegistry::handlerIs(const fwk::TypeInfo& type, const Ptr<EntityCopyHandler>& handler) {
  if (!handler) throw fwk::NullArgumentError("null copy handler is not allowed");
  handlers_[&type] = handler;
}

void CopyHandlerRegistry::handlerDel(const fwk::TypeInfo& type) {
  handlers_.erase(&type);
}

Ptr<EntityCopyHandler> CopyHandlerRegistry::handler(const fwk::TypeInfo& type) const {
  for (const fwk::TypeInfo* t = &type; t; t = t->base()) {
    if (auto it = handlers_.find(t); it != handlers_.end()) return it->second;
  }
  return nullptr;
}

bool EntityCopy::doCopyEntityAttrs(const Ptr<Entity>& destEntity, const Ptr<const Entity>& srcEntity,
                                   const String& prefix, const Ptr<const AttributeFilter>& filter) {
  if (!destEntity || !srcEntity) throw fwk::NullArgumentError("doCopyEntityAttrs needs a source and a destination");
  return fwk::copyAttributes(*destEntity, *srcEntity, *this, prefix,
                             [&](const String& attribute) { return filter && filter->filtered(attribute); });
}

bool EntityCopy::copyTree(const Ptr<Entity>& destRoot, const Ptr<const Entity>& srcRoot) {
  if (!destRoot || !srcRoot) throw fwk::NullArgumentError("copyTree needs a source and a destination");
  srcIs(srcRoot);
  destIs(destRoot);
  return copyEntity(destRoot, srcRoot, srcRoot->fullName());
}

bool EntityCopy::copyEntity(const Ptr<Entity>& destEntity, const Ptr<const Entity>& srcEntity, const String& path) {
  Ptr<EntityCopyHandler> chosen = registry_ ? registry_->handler(srcEntity->fwkType()) : nullptr;
  if (!chosen) chosen = handler();
  if (chosen) return chosen->handleEntity(fwk::sharedFromThis(*this), destEntity, srcEntity, path);
  return doCopyEntityAttrs(destEntity, srcEntity, path, nullptr);
}

bool EntityCopy::copyChild(Entity& destEntity, const Entity& srcEntity, const String& path) {
  return copyEntity(Ptr<Entity>(&destEntity), Ptr<const Entity>(&srcEntity), path);
}

Entity* EntityCopy::resolveEntityPtr(const Entity* srcTarget) {
  Ptr<EntityCopyHandler> chosen = registry_ ? registry_->handler(srcTarget->fwkType()) : nullptr;
  if (!chosen) chosen = handler();
  Ptr<Entity> resolved = chosen ? chosen->resolveEntityPtr(fwk::sharedFromThis(*this), Ptr<const Entity>(srcTarget))
                                : counterpart(Ptr<const Entity>(srcTarget));
  return resolved.get();
}

namespace {
// Where a child stands in its parent: the children attribute and the key.
struct Step {
  const fwk::AttrInfo* attr;
  fwk::Value key;
};

bool stepFromParent(const Entity& parent, const Entity& child, Step& step) {
  for (const fwk::AttrInfo* attr : parent.fwkType().attrs()) {
    if (attr->kind() != fwk::AttrKind::children) continue;
    std::vector<Entity*> kids = attr->children(parent);
    for (std::size_t i = 0; i < kids.size(); ++i) {
      if (kids[i] == &child) {
        step = Step{attr, attr->keys(parent)[i]};
        return true;
      }
    }
  }
  return false;
}
}  // namespace

Ptr<Entity> EntityCopy::counterpart(const Ptr<const Entity>& srcTarget) const {
  if (!srcTarget) return nullptr;
  Ptr<Entity> asIs(const_cast<Entity*>(srcTarget.get()));
  if (!src() || !dest()) return asIs;
  std::vector<Step> steps;
  const Entity* e = srcTarget.get();
  for (; e && e != src().get(); e = e->parent()) {
    Step step;
    // Not below the copied tree: an outside reference stays as it is.
    if (!e->parent() || !stepFromParent(*e->parent(), *e, step)) return asIs;
    steps.push_back(step);
  }
  Ptr<Entity> current = dest();
  for (auto it = steps.rbegin(); it != steps.rend() && current; ++it) {
    current = it->attr->get(*current, it->key).as<Ptr<Entity>>();
  }
  return current;
}

Ptr<EntityCopy> entityCopyFactory() {
  Ptr<EntityCopy> copy(new EntityCopy());
  copy->hasNotificationActiveIs(true);
  return copy;
}

}  // namespace Cli::Session
