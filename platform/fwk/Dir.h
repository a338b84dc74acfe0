// fwk::Dir: a directory entity holding named children of any entity type.
//
//   Ptr<Dir> status = root->mkdir("status");
//   Ptr<StatusDp> dp = status->entityIs<StatusDp>("dp1");   // created once, typed
//   for (const auto& [name, child] : status->entity())
//     if (Ptr<StatusDp> s = fwk::dynCast<StatusDp>(child)) ...
//   root->lookup("status/dp1");                              // by path
#pragma once

#include <string_view>
#include <type_traits>
#include <utility>

#include "aclkit/platform/fwk/Attributes.h"
#include "aclkit/platform/fwk/Export.h"

namespace fwk {

// clang-format off
#define FWK_DIR_ATTRS(A) A(customChildren, entity, String, Entity)
// clang-format on

class ACLKIT_EXPORT Dir : public Entity {
  FWK_ENTITY(Dir, Entity, FWK_DIR_ATTRS)

 public:
  explicit Dir(String name = String()) : Entity(std::move(name)) {}

  // The child named `name` as a T, created with (name, args...) or (args...) when absent;
  // TypeConversionError when a child of another type holds the name.
  template <class T, class... Args>
  Ptr<T> entityIs(const String& name, Args&&... args) {
    if (Ptr<Entity> existing = entity_.valueOr(name)) return cast<T>(existing);
    Ptr<T> child;
    if constexpr (NewableFrom<T, const String&, Args...>) {
      child = new T(name, std::forward<Args>(args)...);
    } else {
      child = new T(std::forward<Args>(args)...);
    }
    child->hasNotificationActiveIs(true);
    detail::CollectionAccess::adoptChild<Entity>(*this, entity_, name, Ptr<Entity>(child), FWK_ATTR_ID_(entity));
    return child;
  }
  // Puts an existing, parentless entity into the directory under `name`.
  void entityAttach(const String& name, const Ptr<Entity>& child) {
    detail::CollectionAccess::adoptChild<Entity>(*this, entity_, name, child, FWK_ATTR_ID_(entity));
  }
  Ptr<Dir> mkdir(const String& name) { return entityIs<Dir>(name); }

  // The entity at a '/'-separated path below this directory, or null.
  [[nodiscard]] Ptr<Entity> lookup(std::string_view path) const;
};

}  // namespace fwk
