// The value machinery behind attributes and reflection: enumerations by name and number,
// type-erased values and what they read from text, and the fault injector's counting. (Records'
// equality, order and hashing are held field by field over the real rule records in the model
// tests; strings are what every other test reads and writes.)
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "aclkit/platform/fwk/Enum.h"
#include "aclkit/platform/fwk/Fault.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::String;
using sample::Color;

template <class Error, class Fn>
std::string messageOf(Fn fn) {
  try {
    fn();
  } catch (const Error& e) {
    return e.what();
  }
  return "no error";
}

// Names and numbers of enumerations are read everywhere text comes in; what only they show is
// how a number that names nothing prints.
TEST(ValueTest, EnumerationsGoByNameAndNumberAndRefuseTheRest) {
  EXPECT_EQ(stringValue(sample::blue_), "blue") << "the trailing underscore is not part of the name";
  EXPECT_EQ(fwk::parseValue<Color>("1"), sample::green) << "a number that names one";
  EXPECT_EQ(messageOf<fwk::EnumError>([] { fwk::enumFromName<Color>("purple"); }), "'purple' is not a name of Color");
  std::ostringstream os;
  os << sample::green << ' ' << static_cast<Color>(9);
  EXPECT_EQ(os.str(), "green Color(9)") << "a stray number still prints";
}

TEST(ValueTest, TypeErasedValuesKeepTheirTypeAndReadOnlyWholeNumbers) {
  const fwk::Value number(std::uint32_t{7});
  EXPECT_TRUE(number.is<std::uint32_t>() && fwk::Value("seven").is<String>() && fwk::Value().empty());
  EXPECT_EQ(fwk::Value(number).as<std::uint32_t>(), 7u) << "a copy holds its own";
  EXPECT_EQ(messageOf<fwk::TypeConversionError>([&] { static_cast<void>(number.as<bool>()); }),
            "value of type U32 is not a bool");
  EXPECT_EQ(fwk::parseValue<std::uint32_t>("0x10"), 16u);
  for (const char* bad : {"256", "-1", "80x", "", "0x"}) {
    EXPECT_EQ(messageOf<fwk::TypeConversionError>([&] { fwk::parseValue<std::uint8_t>(bad); }),
              std::string("expected a number from 0 to 255, not '") + bad + "'");
  }
  EXPECT_EQ(
      std::tuple(fwk::parseValue<std::int32_t>("-5"), fwk::parseValue<double>("0.25"), fwk::parseValue<bool>("true")),
      std::tuple(-5, 0.25, true));
  for (const char* bad : {"128", "-129", "x"})
    EXPECT_THROW(fwk::parseValue<std::int8_t>(bad), fwk::TypeConversionError);
  EXPECT_THROW(fwk::parseValue<double>("1.5x"), fwk::TypeConversionError);
  EXPECT_THROW(fwk::parseValue<bool>("yes"), fwk::TypeConversionError);
}

// Whether an armed point fires once or from there on, and that a Suspend quiets it, the edit
// session's fault-injection test holds to account at every point; here, what it cannot see.
TEST(ValueTest, TheFaultInjectorCountsOnlyTheSitesItIsArmedFor) {
  fwk::fault::arm(fwk::fault::mutation, 2, false);
  fwk::fault::point(fwk::fault::notification);  // not an armed site: not counted
  fwk::fault::point(fwk::fault::mutation);
  EXPECT_THROW(fwk::fault::point(fwk::fault::mutation), fwk::fault::InjectedFault);
  fwk::fault::point(fwk::fault::mutation);
  EXPECT_EQ(fwk::fault::reached(), 3u);
  fwk::fault::disarm();
}

}  // namespace
