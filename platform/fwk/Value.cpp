#include "aclkit/platform/fwk/Value.h"

#include <charconv>
#include <sstream>

namespace fwk {

void parseFailed(std::string_view expected, std::string_view text) {
  throw TypeConversionError("expected " + std::string(expected) + ", not '" + std::string(text) + "'");
}

namespace detail {

struct StrepStream::Impl {
  std::ostringstream os;
};
StrepStream::StrepStream() : impl_(std::make_unique<Impl>()) {}
StrepStream::~StrepStream() = default;
std::ostream& StrepStream::os() {
  return impl_->os;
}
std::string StrepStream::str() const {
  return impl_->os.str();
}

bool parseBool(std::string_view text, bool& out) {
  if (text == "true" || text == "1") {
    out = true;
  } else if (text == "false" || text == "0") {
    out = false;
  } else {
    return false;
  }
  return true;
}

namespace {
int baseOf(std::string_view& text) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    return 16;
  }
  return 10;
}
}  // namespace

bool parseUnsigned(std::string_view text, std::uint64_t& out) {
  int base = baseOf(text);
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out, base);
  return ec == std::errc() && end == text.data() + text.size() && !text.empty();
}

bool parseSigned(std::string_view text, std::int64_t& out) {
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out, 10);
  return ec == std::errc() && end == text.data() + text.size() && !text.empty();
}

bool parseDouble(std::string_view text, double& out) {
  std::string copy(text);
  char* end = nullptr;
  errno = 0;
  out = std::strtod(copy.c_str(), &end);
  return !copy.empty() && end == copy.c_str() + copy.size() && errno == 0;
}

}  // namespace detail

void Value::conversionFailed(const String& wanted) const {
  throw TypeConversionError("value of type " + (holder_ ? holder_->type().name.str() : "none") + " is not a " +
                            wanted.str());
}

}  // namespace fwk
