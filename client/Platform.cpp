#include "aclkit/client/Platform.h"

#include <algorithm>

#include "aclkit/platform/fwk/Errors.h"

namespace Client {

namespace {

struct Capability {
  std::string name;
  const bool& (Acl::ParamConfig::*get)() const noexcept;
  void (Acl::ParamConfig::*set)(const bool&);
};

// From the model's one list of capabilities, each name without its "Supported".
const std::vector<Capability>& capabilities() {
  static const std::vector<Capability> all = [] {
    constexpr std::string_view suffix = "Supported";
    std::vector<Capability> list;
#define ACLKIT_CLIENT_CAPABILITY_(kind, flag, T, def) \
  list.push_back({#flag, &Acl::ParamConfig::flag, &Acl::ParamConfig::flag##Is});
    ACLKIT_ACL_CAPABILITIES(ACLKIT_CLIENT_CAPABILITY_)
#undef ACLKIT_CLIENT_CAPABILITY_
    for (Capability& c : list) c.name.resize(c.name.size() - suffix.size());
    return list;
  }();
  return all;
}

const Capability& named(std::string_view name) {
  const auto& all = capabilities();
  const auto found = std::find_if(all.begin(), all.end(), [&](const Capability& c) { return c.name == name; });
  if (found != all.end()) return *found;
  std::string known;
  for (const Capability& c : all) known += (known.empty() ? "" : ", ") + c.name;
  throw fwk::NameError("the platform has no capability '" + std::string(name) + "' (it has " + known + ")");
}

}  // namespace

const std::vector<std::string>& Platform::names() {
  static const std::vector<std::string> all = [] {
    std::vector<std::string> list;
    for (const Capability& c : capabilities()) list.push_back(c.name);
    return list;
  }();
  return all;
}

bool Platform::supports(std::string_view name) const {
  return (config_->*named(name).get)();
}

void Platform::supportIs(std::string_view name, bool supported) {
  (config_->*named(name).set)(supported);
}

}  // namespace Client
