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
// A host that must outlive its caller's programming error (an interpreter, whose user typed
// an operation of the wrong session) makes them throw AssertionError with the text instead.
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

// A failed assertion, when assertions throw; what() is the assertion's text.
class ACLKIT_EXPORT AssertionError : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// Whether failed assertions throw AssertionError (true) or abort the process (false, the
// default); for the whole process.
ACLKIT_EXPORT void assertionsThrowIs(bool enabled) noexcept;

[[noreturn]] ACLKIT_EXPORT void assertionFailed(const char* text, const char* file, int line, const char* function);

}  // namespace fwk

#define FWK_ASSERT_TEXT(cond, text) \
  ((cond) ? static_cast<void>(0) : ::fwk::assertionFailed(text, __FILE__, __LINE__, __func__))
#define FWK_ASSERT(cond) FWK_ASSERT_TEXT(cond, #cond)

#ifdef NDEBUG
#define FWK_DEBUG_ASSERT(cond) static_cast<void>(0)
#else
#define FWK_DEBUG_ASSERT(cond) FWK_ASSERT(cond)
#endif
