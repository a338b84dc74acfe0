// Working on entities by name: attributes read and written, operations called and whole
// entities copied through the reflection tables, for front ends, bindings and the generic
// copy.
//
//   fwk::getAttribute(entity, "readonly")              -> Value
//   fwk::setAttribute(entity, "dynamic", true)
//   fwk::getAttribute(entity, "acl", String("acl1"))   -> Value holding the child's Ptr
//   fwk::invoke(session, "addIpRule", {10u, rule})     -> Value (empty for void)
//   fwk::copyAttributes(dest, src, context, path, skip) -> changed
//
// Types describe themselves in their source files with the macros of Define.h.
#pragma once

#include <string_view>
#include <vector>

#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/TypeInfo.h"
#include "aclkit/platform/fwk/Value.h"

namespace fwk {

// ---- working on entities by name -----------------------------------------------------

ACLKIT_EXPORT Value getAttribute(const Entity& entity, std::string_view name);
ACLKIT_EXPORT void setAttribute(Entity& entity, std::string_view name, const Value& value);
ACLKIT_EXPORT Value getAttribute(const Entity& entity, std::string_view name, const Value& key);
ACLKIT_EXPORT void setAttribute(Entity& entity, std::string_view name, const Value& key, const Value& value);
ACLKIT_EXPORT void delAttribute(Entity& entity, std::string_view name, const Value& key);
ACLKIT_EXPORT Value invoke(Entity& entity, std::string_view operation, const std::vector<Value>& args = {});

// Copies every attribute of src onto dest (same type) except those for which
// skip(attributeName) is true; true when anything in dest changed. Attributes holding
// entity references go last, so that what they point at in dest exists by then.
template <class Skip>
bool copyAttributes(Entity& dest, const Entity& src, CopyContext& context, const String& path, Skip&& skip) {
  if (&dest.fwkType() != &src.fwkType()) {
    throw TypeConversionError("cannot copy a " + src.fwkType().name().str() + " onto a " + dest.fwkType().name().str());
  }
  bool changed = false;
  const std::vector<const AttrInfo*> attrs = src.fwkType().attrs();
  for (bool references : {false, true}) {
    for (const AttrInfo* attr : attrs) {
      if (attr->refersToEntities() != references || skip(attr->name())) continue;
      changed = attr->copy(dest, src, context, path) || changed;
    }
  }
  return changed;
}

}  // namespace fwk
