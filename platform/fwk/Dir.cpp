#include "aclkit/platform/fwk/Dir.h"

#include "aclkit/platform/fwk/Define.h"

namespace fwk {

FWK_ENTITY_DEFINE(Dir, FWK_DIR_ATTRS)

Ptr<Entity> Dir::lookup(std::string_view path) const {
  Ptr<Entity> current = sharedFromThis<Entity>(const_cast<Dir&>(*this));
  while (!path.empty()) {
    std::string_view part = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(path.size(), part.size() + 1));
    if (part.empty()) continue;
    Ptr<Dir> dir = dynCast<Dir>(current);
    if (!dir) return nullptr;
    current = dir->entity(String(part));
    if (!current) return nullptr;
  }
  return current;
}

}  // namespace fwk
