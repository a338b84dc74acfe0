// The stream output of a value, for comparing text forms in tests.
#pragma once

#include <sstream>
#include <string>

namespace testtext {

template <class T>
std::string text(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

}  // namespace testtext
