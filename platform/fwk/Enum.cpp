#include "aclkit/platform/fwk/Enum.h"

#include <ostream>
#include <string>

namespace fwk {

EnumInfo::EnumInfo(std::string_view typeName, std::initializer_list<std::pair<std::int64_t, const char*>> list)
    : typeName_(typeName) {
  enumerators_.reserve(list.size());
  for (const auto& [value, id] : list) {
    std::string_view name(id);
    if (name.ends_with('_')) name.remove_suffix(1);
    enumerators_.push_back({value, String(name)});
  }
}

const String* EnumInfo::findName(std::int64_t value) const noexcept {
  for (const auto& e : enumerators_) {
    if (e.value == value) return &e.name;
  }
  return nullptr;
}

const std::int64_t* EnumInfo::findValue(std::string_view name) const noexcept {
  for (const auto& e : enumerators_) {
    if (e.name == name) return &e.value;
  }
  return nullptr;
}

const String& EnumInfo::name(std::int64_t value) const {
  if (const String* found = findName(value)) return *found;
  throw EnumError(std::to_string(value) + " is not a value of " + typeName_.str());
}

std::int64_t EnumInfo::value(std::string_view name) const {
  if (const std::int64_t* found = findValue(name)) return *found;
  throw EnumError("'" + std::string(name) + "' is not a name of " + typeName_.str());
}

std::ostream& writeEnum(std::ostream& os, const EnumInfo& info, std::int64_t value) {
  if (const String* name = info.findName(value)) return os << *name;
  return os << info.typeName() << '(' << value << ')';
}

}  // namespace fwk
