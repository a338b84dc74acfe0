#include "aclkit/platform/fwk/Entity.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

#include "aclkit/platform/fwk/Define.h"
#include "aclkit/platform/fwk/Fault.h"

namespace fwk {

const TypeInfo& Entity::staticType() {
  static const TypeInfo& type = *new TypeInfo("Entity", nullptr);
  return type;
}
FWK_REGISTER_TYPE(Entity)

namespace {
std::atomic<std::int64_t> liveEntities{0};
std::atomic<std::uint64_t> entitySerials{1};
}  // namespace

std::int64_t Entity::liveCount() noexcept {
  return liveEntities.load(std::memory_order_relaxed);
}

std::uint64_t Entity::nextSerial() noexcept {
  return entitySerials.load(std::memory_order_relaxed);
}

Notifiee::~Notifiee() {
  watch(nullptr);
}

Entity::Entity(String name) : name_(std::move(name)), serial_(entitySerials.fetch_add(1, std::memory_order_relaxed)) {
  liveEntities.fetch_add(1, std::memory_order_relaxed);
}

void Notifiee::watch(const Entity* entity) {
  if (entity == notifier_) return;
  if (notifier_) notifier_->removeNotifiee(this);
  notifier_ = nullptr;
  if (entity) {
    entity->addNotifiee(this);
    notifier_ = entity;
  }
}

Entity::~Entity() {
  liveEntities.fetch_sub(1, std::memory_order_relaxed);
  // Detach every observer first so that none of them can reach this entity again; each
  // is told after the list is empty, so it may start watching something else at once.
  std::vector<Notifiee*> watchers;
  watchers.swap(notifiees_);
  for (Notifiee* n : watchers) {
    if (n) n->notifier_ = nullptr;
  }
  for (Notifiee* n : watchers) {
    if (n) n->notifierDestroyed();
  }
}

String Entity::fullName() const {
  std::vector<const Entity*> chain;
  for (const Entity* e = this; e; e = e->parent_) chain.push_back(e);
  std::string path;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    if (it != chain.rbegin() || !(*it)->name_.empty()) path.append("/");
    path.append((*it)->name_.view());
  }
  return String(path);
}

std::vector<const Notifiee*> Entity::notifieeList() const {
  std::vector<const Notifiee*> list;
  for (Notifiee* n : notifiees_) {
    if (n) list.push_back(n);
  }
  return list;
}

void Entity::addNotifiee(Notifiee* notifiee) const {
  notifiees_.push_back(notifiee);
}

void Entity::removeNotifiee(Notifiee* notifiee) const noexcept {
  auto it = std::find(notifiees_.begin(), notifiees_.end(), notifiee);
  if (it == notifiees_.end()) return;
  if (dispatchDepth_ > 0) {
    // A dispatch is walking the list by index: leave a hole and compact afterwards.
    *it = nullptr;
    notifieesRemoved_ = true;
  } else {
    notifiees_.erase(it);
  }
}

void Entity::dispatch(const Change& change) const {
  // A handler may drop the last reference to this entity; keep it alive until the walk ends.
  Ptr<const Entity> keepAlive(fwkReferences() > 0 ? this : nullptr);
  ++dispatchDepth_;
  struct DepthGuard {
    const Entity& self;
    ~DepthGuard() {
      if (--self.dispatchDepth_ == 0 && self.notifieesRemoved_) {
        std::erase(self.notifiees_, nullptr);
        self.notifieesRemoved_ = false;
      }
    }
  } guard{*this};
  FWK_FAULT_POINT(notification);
  // Observers added during the walk see the next change, not this one. One observer that
  // throws does not keep the change from the others; the first exception goes on after.
  std::exception_ptr first;
  const std::size_t count = notifiees_.size();
  for (std::size_t i = 0; i < count; ++i) {
    if (Notifiee* n = notifiees_[i]) {
      try {
        FWK_FAULT_POINT(reaction);
        n->fwkDispatch(change);
      } catch (...) {
        if (!first) first = std::current_exception();
      }
    }
  }
  if (first) std::rethrow_exception(first);
}

void castFailed(const Entity& entity, const TypeInfo& wanted) {
  throw TypeConversionError("entity '" + entity.fullName().str() + "' of type " + entity.fwkType().name().str() +
                            " is not a " + wanted.name().str());
}

}  // namespace fwk
