// The embedded state store: an in-process tree of directories in which configuration and
// status entities live, found by path and created on demand.
//
//   fwk::StateStore& store = fwk::StateStore::instance();    // the default store
//   auto config = store.mount<Acl::Input::Config>("acl/input/config");
//   auto dpDir = store.mount<fwk::Dir>("acl/status/dp");
//
// mount<T>(path) creates the missing directories and, at the end of the path, a T, then
// returns that same T on every later call (TypeConversionError if the path holds another
// type). A test that wants isolation makes its own StateStore.
#pragma once

#include <string_view>
#include <utility>

#include "aclkit/platform/fwk/Dir.h"
#include "aclkit/platform/fwk/Export.h"

namespace fwk {

class ACLKIT_EXPORT StateStore {
 public:
  StateStore();
  StateStore(const StateStore&) = delete;
  StateStore& operator=(const StateStore&) = delete;

  // The store shared by everything in this process that does not bring its own.
  static StateStore& instance();

  [[nodiscard]] const Ptr<Dir>& root() const noexcept { return root_; }
  [[nodiscard]] Ptr<Entity> find(std::string_view path) const { return root_->lookup(path); }

  template <class T, class... Args>
  Ptr<T> mount(std::string_view path, Args&&... args) {
    auto [parent, leaf] = parentOf(path);
    return parent->entityIs<T>(String(leaf), std::forward<Args>(args)...);
  }

 private:
  // The directory holding the last element of path (made as needed), and that element.
  std::pair<Ptr<Dir>, std::string_view> parentOf(std::string_view path);

  Ptr<Dir> root_;
};

}  // namespace fwk
