// What the platform can program, switched by name: the capabilities the model declares
// (ipMirrorSupported is "ipMirror"), one at a time or all at once. Agents publish these; front
// ends and tests that simulate a platform set them here rather than attribute by attribute.
//
//   Client::Platform platform = acl.platform();
//   platform.enableAll();
//   platform.supportIs("logging", false);
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "aclkit/model/Platform.h"

namespace Client {

class Platform {
 public:
  explicit Platform(Acl::ParamConfig& config) : config_(&config) {}

  // Every capability's name, in the order the model declares them.
  [[nodiscard]] static const std::vector<std::string>& names();

  // fwk::NameError naming the capabilities for a name that is not one of them.
  [[nodiscard]] bool supports(std::string_view name) const;
  void supportIs(std::string_view name, bool supported);
  void enableAll() { config_->allSupportedIs(true); }
  void disableAll() { config_->allSupportedIs(false); }

 private:
  Acl::ParamConfig* config_;
};

}  // namespace Client
