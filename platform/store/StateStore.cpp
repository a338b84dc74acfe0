#include "aclkit/platform/store/StateStore.h"

namespace fwk {

StateStore::StateStore() : root_(new Dir()) {
  root_->hasNotificationActiveIs(true);
}

StateStore& StateStore::instance() {
  static StateStore& store = *new StateStore;
  return store;
}

std::pair<Ptr<Dir>, std::string_view> StateStore::parentOf(std::string_view path) {
  while (path.ends_with('/')) path.remove_suffix(1);
  if (path.empty()) throw Error("a mount point needs a non-empty path");
  Ptr<Dir> dir = root_;
  while (true) {
    std::string_view part = path.substr(0, path.find('/'));
    if (part.size() == path.size()) return {dir, part};
    path.remove_prefix(part.size() + 1);
    if (!part.empty()) dir = dir->mkdir(String(part));
  }
}

}  // namespace fwk
