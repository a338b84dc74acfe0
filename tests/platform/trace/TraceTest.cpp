// Traces: a disabled level costs nothing, a line carries its facility, level, position and
// pieces to the innermost capture, and facilities are shared by name and enabled from options.
#include <gtest/gtest.h>

#include <algorithm>

#include "aclkit/platform/trace/Trace.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/SampleTypes.h"

namespace {

fwk::TraceFacility& facility() {
  return fwk::TraceFacility::get("TraceTest");
}

TEST(TraceTest, ADisabledLevelEvaluatesNothingAndALineCarriesItsPiecesToTheInnermostCapture) {
  facility().levelsIs(0);
  facility().levelIs(7, true);
  fwk::TraceCapture capture;
  int evaluated = 0;
  auto piece = [&evaluated] { return ++evaluated; };
  const long long before = alloccount::allocations();
  for (int i = 0; i < 100; ++i) FWK_TRACE(facility(), 2, "text " << piece() << std::string(100, 'x'));
  EXPECT_EQ(std::pair(alloccount::allocations() - before, evaluated), std::pair(0LL, 0));
  EXPECT_TRUE(capture.lines().empty());
  fwk::Ptr<sample::Node> node(new sample::Node("n"));
  FWK_TRACE(facility(), 7,
            "seq " << 4294967295u << " ok " << true << " at " << node << " " << fwk::Ptr<sample::Node>() << " "
                   << sample::blue_ << " " << fwk::String("s") << " " << 1.5 << " " << piece());
  ASSERT_EQ(capture.lines().size(), 1u);
  const auto& line = capture.lines()[0];
  EXPECT_EQ(std::tuple(line.facility.str(), line.level, line.file, line.function, line.message),
            std::tuple(std::string("TraceTest"), 7, std::string("tests/platform/trace/TraceTest.cpp"),
                       std::string("TestBody"), std::string("seq 4294967295 ok true at /n <null> blue s 1.5 1")));
  EXPECT_EQ(fwk::formatTrace(fwk::TraceRecord{&facility(), 7, "f.cpp", 3, "fn", "msg"}),
            "TraceTest[7] f.cpp:3 fn: msg");
  {
    fwk::TraceCapture inner;
    FWK_TRACE(facility(), 7, "inner");
    EXPECT_EQ(inner.count("inner"), 1u);
  }
  FWK_TRACE(facility(), 7, "outer");
  EXPECT_EQ(capture.messages("TraceTest").back(), "outer");
  EXPECT_EQ(capture.count("inner"), 0u);
  facility().levelsIs(0);
}

// With no capture, a line goes to standard error in the format above.
TEST(TraceTest, FacilitiesAreSharedByNameAndEnabledFromOptionsOrLevelByLevel) {
  EXPECT_EQ(&fwk::TraceFacility::get("Shared"), &fwk::TraceFacility::get("Shared"));
  fwk::enableTraces("OptA/2-4,,OptB,OptC/9");
  EXPECT_EQ(fwk::TraceFacility::get("OptA").levels(), 0b11100);
  EXPECT_EQ(fwk::TraceFacility::get("OptB").levels(), 0x3FF);
  fwk::TraceFacility& c = fwk::TraceFacility::get("OptC");
  EXPECT_TRUE(c.enabled(9) && !c.enabled(8));
  for (const char* bad : {"OptD/10", "OptD/x", "OptD/1-"}) EXPECT_THROW(fwk::enableTraces(bad), fwk::Error) << bad;
  testing::internal::CaptureStderr();
  FWK_TRACE(c, 9, "uncaptured");
  EXPECT_EQ(testing::internal::GetCapturedStderr().substr(0, 40), "OptC[9] tests/platform/trace/TraceTest.c");
  c.levelsUpToIs(2);
  c.levelIs(1, false);
  EXPECT_EQ(c.levels(), 0b101);
  EXPECT_THROW(c.levelIs(10, true), fwk::RangeError);
  EXPECT_THROW(c.levelsUpToIs(10), fwk::RangeError);
  EXPECT_EQ(std::ranges::count(fwk::TraceFacility::all(), &c), 1);
}

}  // namespace
