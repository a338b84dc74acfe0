// strep(value): the printable text of a value, as its stream output writes it.
// Used for entity names made from collection keys, for reflection and for the front ends.
#pragma once

#include <charconv>
#include <memory>
#include <ostream>
#include <string>
#include <type_traits>

#include "aclkit/platform/fwk/Enum.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/String.h"

namespace fwk {

namespace detail {
// An ostringstream behind a pointer, so that <sstream> stays out of headers.
class ACLKIT_EXPORT StrepStream {
 public:
  StrepStream();
  ~StrepStream();
  StrepStream(const StrepStream&) = delete;
  StrepStream& operator=(const StrepStream&) = delete;
  std::ostream& os();
  [[nodiscard]] std::string str() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
}  // namespace detail

template <class T>
concept Streamable = requires(std::ostream& os, const T& v) {
  os << v;
};

template <class T>
std::string strep(const T& value) {
  if constexpr (std::is_same_v<T, String>) {
    return value.str();
  } else if constexpr (std::is_same_v<T, bool>) {
    return value ? "true" : "false";
  } else if constexpr (std::is_integral_v<T>) {
    return std::to_string(value);
  } else if constexpr (Streamable<T>) {
    detail::StrepStream s;
    s.os() << value;
    return s.str();
  } else {
    return "<unprintable>";
  }
}

}  // namespace fwk
