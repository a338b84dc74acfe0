#include "aclkit/client/Platform.h"

#include "aclkit/platform/fwk/Errors.h"

namespace Client {

namespace {

struct Capability {
  std::string_view flag;  // "ipMirrorSupported"
  const bool& (Acl::ParamConfig::*get)() const noexcept;
  void (Acl::ParamConfig::*set)(const bool&);
};

// The model's one list of capabilities.
constexpr Capability capabilities[] = {
#define ACLKIT_CLIENT_CAPABILITY_(kind, flag, T, def) {#flag, &Acl::ParamConfig::flag, &Acl::ParamConfig::flag##Is},
    ACLKIT_ACL_CAPABILITIES(ACLKIT_CLIENT_CAPABILITY_)
#undef ACLKIT_CLIENT_CAPABILITY_
};

// Its name without "Supported".
constexpr std::string_view nameOf(const Capability& c) {
  return c.flag.substr(0, c.flag.size() - std::string_view("Supported").size());
}

const Capability& named(std::string_view name) {
  for (const Capability& c : capabilities) {
    if (nameOf(c) == name) return c;
  }
  std::string known;
  for (const std::string& n : Platform::names()) known += (known.empty() ? "" : ", ") + n;
  throw fwk::NameError("the platform has no capability '" + std::string(name) + "' (it has " + known + ")");
}

}  // namespace

const std::vector<std::string>& Platform::names() {
  static const std::vector<std::string> all = [] {
    std::vector<std::string> list;
    for (const Capability& c : capabilities) list.emplace_back(nameOf(c));
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
