// The value machinery behind attributes and reflection: strings, enumerations by name and
// number, records' equality, order, hashing and text, type-erased values and what they read
// from text, and the fault injector's counting. A slip in any of these would pass every entity
// test that only sets and reads.
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "aclkit/platform/fwk/Enum.h"
#include "aclkit/platform/fwk/Fault.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::String;
using sample::Color;
using sample::Match;

template <class Error, class Fn>
std::string messageOf(Fn fn) {
  try {
    fn();
  } catch (const Error& e) {
    return e.what();
  }
  return "no error";
}

TEST(ValueTest, StringsCompareOrderAndHashByContentAndShareTheirBytes) {
  const String a("acl1");
  EXPECT_TRUE(a == String(std::string("acl1")) && a.hash() == String(std::string("acl1")).hash());
  EXPECT_EQ(String().hash(), String("").hash());
  const std::set<String> ordered{String("acl2"), a, String("acl10"), String()};
  EXPECT_EQ(std::vector<String>(ordered.begin(), ordered.end()),
            (std::vector<String>{String(), a, String("acl10"), String("acl2")}));
  String copy;
  {
    const String original("a longer string that lives on the heap");
    copy = original;
    EXPECT_EQ(copy.c_str(), original.c_str()) << "shared, not duplicated";
  }
  EXPECT_EQ(copy, "a longer string that lives on the heap");
}

TEST(ValueTest, EnumerationsGoByNameAndNumberAndRefuseTheRest) {
  EXPECT_EQ(stringValue(sample::blue_), "blue") << "the trailing underscore is not part of the name";
  EXPECT_EQ(fwk::enumFromName<Color>("blue"), sample::blue_);
  EXPECT_EQ(fwk::enumFromValue<Color>(0), sample::red);
  EXPECT_EQ(fwk::parseValue<Color>("1"), sample::green) << "a number that names one";
  EXPECT_EQ(messageOf<fwk::EnumError>([] { fwk::enumFromName<Color>("purple"); }), "'purple' is not a name of Color");
  EXPECT_EQ(messageOf<fwk::EnumError>([] { fwk::enumFromValue<Color>(9); }), "9 is not a value of Color");
  std::ostringstream os;
  os << sample::green << ' ' << static_cast<Color>(9);
  EXPECT_EQ(os.str(), "green Color(9)") << "a stray number still prints";
}

TEST(ValueTest, RecordsCompareOrderHashAndPrintByEveryField) {
  Match a;
  Match b;
  EXPECT_TRUE(a == b && a.hash() == b.hash());
  b.tniIs(5);
  EXPECT_TRUE(a != b && a < b && !(b < a) && a.hash() != b.hash()) << "a total order, field by field";
  EXPECT_NE(a.hash(1), a.hash(2)) << "the seed is mixed in";
  a.protocolIs(6);
  EXPECT_TRUE(b < a) << "earlier fields decide first";
  b.noteIs("x");
  EXPECT_EQ(fwk::strep(b), "Match{tni=5, note=x}") << "only what differs from a default record";
  EXPECT_EQ(messageOf<fwk::RangeError>([&] { b.tniIs(16777216); }), "Match::tni < 0 or > 16777215 not allowed");
  EXPECT_EQ(b.tni(), 5u);
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
              std::string("cannot read a U8 from '") + bad + "'");
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
