#include "aclkit/interchange/internal/Mapping.h"

#include <charconv>

namespace Interchange::internal {

std::string_view bare(std::string_view name) {
  const std::size_t colon = name.rfind(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

std::optional<std::uint64_t> numberIn(const json& value) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>();
  if (!value.is_string()) return std::nullopt;
  const std::string& s = value.get_ref<const std::string&>();
  std::uint64_t n = 0;
  if (s.empty() || std::from_chars(s.data(), s.data() + s.size(), n).ptr != s.data() + s.size()) return std::nullopt;
  return n;
}

Reader::Reader(const json& object, std::string path, Place place)
    : object_(object), path_(std::move(path)), place_(std::move(place)) {
  if (!object.is_object()) fail("an object");
}

void Reader::done() {
  done_ = true;
  for (const auto& [key, value] : object_.items()) {
    const std::string name(bare(key));
    if (taken_.contains(name) || name == "state") continue;
    if (place_.whole) refuse(name, "not in this model");
    note(name, "not in this model; left out");
  }
}

const json* Reader::take(std::string_view name) {
  taken_.emplace(name);
  for (const auto& [key, value] : object_.items()) {
    if (bare(key) == name) return &value;
  }
  return nullptr;
}

std::string Reader::pathOf(std::string_view name) const {
  return path_.empty() ? std::string(name) : path_ + "/" + std::string(name);
}

void Reader::note(std::string_view name, const std::string& what) {
  place_.findings->push_back({place_.list, place_.sequence, pathOf(name), what});
}

void Reader::error(std::string_view name, const std::string& text) const {
  std::string where = place_.list;
  if (place_.sequence) where += " entry " + std::to_string(*place_.sequence);
  const std::string at = name.empty() ? path_ : pathOf(name);
  throw ImportError((where.empty() ? "" : where + ": ") + (at.empty() ? "the document" : at) + ": " + text);
}

void Reader::refuse(std::string_view name, const std::string& why) const {
  error(name, why + "; the " + (place_.whole ? place_.whole : "entry") + " cannot be imported exactly");
}

std::string Reader::text(std::string_view name, bool required) {
  const json* value = take(name);
  if (!value) {
    if (required) fail("a value", name);
    return {};
  }
  if (!value->is_string()) fail("a string", name);
  return value->get<std::string>();
}

std::optional<std::uint64_t> Reader::number(std::string_view name, std::uint64_t max) {
  const json* value = take(name);
  if (!value) return std::nullopt;
  const std::optional<std::uint64_t> n = numberIn(*value);
  if (!n || *n > max) fail("a number up to " + std::to_string(max), name);
  return n;
}

}  // namespace Interchange::internal
