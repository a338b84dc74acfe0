#include "tests/support/StoreSnapshot.h"

#include <algorithm>
#include <deque>
#include <set>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Reflection.h"

namespace build {

namespace {

std::string identity(const fwk::Entity* entity) {
  return entity ? '#' + std::to_string(entity->serial()) : "null";
}

class Snapshot {
 public:
  std::string take(std::initializer_list<const fwk::Entity*> roots) {
    for (const fwk::Entity* root : roots) reach(root);
    while (!pending_.empty()) {
      const fwk::Entity* next = pending_.front();
      pending_.pop_front();
      described_.push_back(next);
      describe(*next);
    }
    return out_;
  }

  [[nodiscard]] const std::vector<const fwk::Entity*>& described() const { return described_; }

 private:
  void reach(const fwk::Entity* entity) {
    if (entity && seen_.insert(entity).second) pending_.push_back(entity);
  }

  // A value as text; an entity reference by identity, and the entity is described too.
  std::string text(const fwk::Value& value) {
    const fwk::ValueType* type = value.type();
    if (type && type->entityOf) {
      const fwk::Entity* target = type->entityOf(value.data());
      reach(target);
      return identity(target);
    }
    return value.strep();
  }

  void describe(const fwk::Entity& entity) {
    out_ += identity(&entity) + " " + entity.fwkType().name().str() + " '" + entity.fullName().str() + "'\n";
    for (const fwk::AttrInfo* attr : entity.fwkType().attrs()) {
      out_.append("  ").append(attr->name().view()).append(":");
      if (attr->kind() == fwk::AttrKind::scalar) {
        out_.append(" ").append(text(attr->get(entity))).append("\n");
        continue;
      }
      if (attr->kind() == fwk::AttrKind::children) {
        for (fwk::Entity* child : attr->children(entity)) {
          out_.append(" ").append(identity(child));
          reach(child);
        }
        out_ += "\n";
        continue;
      }
      // Ordered maps keep their order; hash maps are compared as sets of entries.
      std::vector<std::string> entries;
      for (const fwk::Value& key : attr->keys(entity))
        entries.push_back(text(key) + "=" + text(attr->get(entity, key)));
      if (attr->kind() == fwk::AttrKind::hashMap) std::sort(entries.begin(), entries.end());
      for (const std::string& entry : entries) out_.append("\n    ").append(entry);
      out_ += "\n";
    }
  }

  std::set<const fwk::Entity*> seen_;
  std::deque<const fwk::Entity*> pending_;
  std::vector<const fwk::Entity*> described_;
  std::string out_;
};

}  // namespace

std::string storeSnapshot(std::initializer_list<const fwk::Entity*> roots) {
  return Snapshot().take(roots);
}

std::vector<const fwk::Entity*> reachableEntities(std::initializer_list<const fwk::Entity*> roots) {
  Snapshot snapshot;
  static_cast<void>(snapshot.take(roots));
  return snapshot.described();
}

}  // namespace build
