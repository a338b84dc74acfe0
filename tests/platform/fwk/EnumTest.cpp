#include "platform/fwk/Enum.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/fwk/Value.h"
#include "tests/support/SampleTypes.h"

namespace {

using sample::Color;

TEST(EnumTest, NamesDropTheTrailingUnderscore) {
  EXPECT_EQ(stringValue(sample::red), "red");
  EXPECT_EQ(valueToStrep(sample::blue_), "blue");
  std::ostringstream os;
  os << sample::green << ' ' << static_cast<Color>(9);
  EXPECT_EQ(os.str(), "green Color(9)");
}

TEST(EnumTest, ParsingAndConstructionRejectUnknownNamesAndNumbers) {
  EXPECT_EQ(fwk::enumFromName<Color>("blue"), sample::blue_);
  EXPECT_EQ(fwk::enumFromValue<Color>(1), sample::green);
  EXPECT_THROW((void)fwk::enumFromName<Color>("blue_"), fwk::EnumError);
  EXPECT_THROW((void)fwk::enumFromName<Color>("Red"), fwk::EnumError);
  EXPECT_THROW((void)fwk::enumFromValue<Color>(3), fwk::EnumError);
  EXPECT_THROW((void)fwk::enumFromValue<Color>(-1), fwk::EnumError);
  EXPECT_THROW(fwk::valueType<Color>().parse("purple"), fwk::EnumError);
  EXPECT_EQ(fwk::valueType<Color>().parse("red").as<Color>(), sample::red);
}

}  // namespace
