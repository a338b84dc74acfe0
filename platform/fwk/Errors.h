// The framework's exceptions and assertions.
//
// Exceptions report bad input from a caller and are never caught by the library:
//   RangeError           a value outside its allowed range; the message is exact
//   NullArgumentError    a null pointer handed to a mutator that refuses it
//   EnumError            an unknown enumeration name or number
//   TypeConversionError  a checked conversion to a type the object is not
//   NameError            reflection asked for an attribute, operation or type that is not there
//
// Assertions report programming errors: they print "Assertion failed: <text>" with the
// source position to standard error and abort the process.
//   FWK_ASSERT(apiType() == commit_);            text is the expression
//   FWK_ASSERT_TEXT(a != nullptr, "a");          text given explicitly
#pragma once

#include <stdexcept>

#include "aclkit/platform/fwk/Export.h"

namespace fwk {

class ACLKIT_EXPORT Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
class ACLKIT_EXPORT RangeError : public Error {
 public:
  using Error::Error;
};
class ACLKIT_EXPORT NullArgumentError : public Error {
 public:
  using Error::Error;
};
class ACLKIT_EXPORT EnumError : public Error {
 public:
  using Error::Error;
};
class ACLKIT_EXPORT TypeConversionError : public Error {
 public:
  using Error::Error;
};
class ACLKIT_EXPORT NameError : public Error {
 public:
  using Error::Error;
};

[[noreturn]] ACLKIT_EXPORT void assertionFailed(const char* text, const char* file, int line,
                                                const char* function) noexcept;

}  // namespace fwk

#define FWK_ASSERT_TEXT(cond, text) \
  ((cond) ? static_cast<void>(0) : ::fwk::assertionFailed(text, __FILE__, __LINE__, __func__))
#define FWK_ASSERT(cond) FWK_ASSERT_TEXT(cond, #cond)

#ifdef NDEBUG
#define FWK_DEBUG_ASSERT(cond) static_cast<void>(0)
#else
#define FWK_DEBUG_ASSERT(cond) FWK_ASSERT(cond)
#endif
