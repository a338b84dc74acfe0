#include <gtest/gtest.h>

#include "aclkit/platform/trace/Trace.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/SampleTypes.h"

namespace {

struct CountingPiece {
  int* formatted;
};
std::ostream& operator<<(std::ostream& os, const CountingPiece& piece) {
  ++*piece.formatted;
  return os << "piece";
}

int evaluated = 0;
int sideEffect() {
  ++evaluated;
  return 42;
}

fwk::TraceFacility& facility() {
  return fwk::TraceFacility::get("TraceTest");
}

TEST(TraceTest, ADisabledLevelEvaluatesFormatsAndAllocatesNothing) {
  facility().levelsIs(0);
  facility().levelIs(3, true);
  fwk::TraceCapture capture;
  int formatted = 0;
  evaluated = 0;
  long long before = alloccount::allocations();
  for (int i = 0; i < 100; ++i) {
    FWK_TRACE(facility(), 2, "text " << CountingPiece{&formatted} << sideEffect() << std::string(100, 'x'));
  }
  long long after = alloccount::allocations();
  EXPECT_EQ(after - before, 0);
  EXPECT_EQ(formatted, 0);
  EXPECT_EQ(evaluated, 0);
  EXPECT_TRUE(capture.lines().empty());
  FWK_TRACE(facility(), 3, "text " << CountingPiece{&formatted} << sideEffect());
  EXPECT_EQ(formatted, 1);
  EXPECT_EQ(evaluated, 1);
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_EQ(capture.lines()[0].message, "text piece42");
}

TEST(TraceTest, LinesCarryFacilityLevelPositionAndPiecesToTheInnermostCapture) {
  facility().levelsUpToIs(9);
  fwk::TraceCapture capture;
  fwk::Ptr<sample::Node> node(new sample::Node("n"));
  fwk::Ptr<sample::Node> none;
  FWK_TRACE(facility(), 7,
            "seq " << 4294967295u << " ok " << true << " at " << node << " " << none << " " << sample::blue_ << " "
                   << fwk::String("s") << " " << 1.5);
  ASSERT_EQ(capture.lines().size(), 1u);
  const auto& line = capture.lines()[0];
  EXPECT_EQ(line.facility, "TraceTest");
  EXPECT_EQ(line.level, 7);
  EXPECT_EQ(line.file, "tests/platform/trace/TraceTest.cpp") << "paths are relative to the project";
  EXPECT_EQ(line.function, "TestBody");
  EXPECT_EQ(line.message, "seq 4294967295 ok true at /n <null> blue s 1.5");
  EXPECT_EQ(fwk::formatTrace(fwk::TraceRecord{&facility(), 7, "f.cpp", 3, "fn", "msg"}),
            "TraceTest[7] f.cpp:3 fn: msg");

  // A capture made inside another takes the lines until it goes, then the outer one again.
  {
    fwk::TraceCapture inner;
    FWK_TRACE(facility(), 0, "inner");
    EXPECT_EQ(inner.count("inner"), 1u);
  }
  FWK_TRACE(facility(), 0, "outer");
  EXPECT_EQ(capture.messages("TraceTest").back(), "outer");
  EXPECT_EQ(capture.count("inner"), 0u);
  facility().levelsIs(0);
}

TEST(TraceTest, FacilitiesAreSharedByNameAndEnabledFromOptions) {
  EXPECT_EQ(&fwk::TraceFacility::get("Shared"), &fwk::TraceFacility::get("Shared"));
  fwk::enableTraces("OptA/2-4,OptB,OptC/9");
  EXPECT_EQ(fwk::TraceFacility::get("OptA").levels(), 0b11100);
  EXPECT_EQ(fwk::TraceFacility::get("OptB").levels(), 0x3FF);
  EXPECT_TRUE(fwk::TraceFacility::get("OptC").enabled(9));
  EXPECT_FALSE(fwk::TraceFacility::get("OptC").enabled(8));
  EXPECT_THROW(fwk::enableTraces("OptD/10"), fwk::Error);
  EXPECT_THROW(fwk::enableTraces("OptD/x"), fwk::Error);
}

}  // namespace
