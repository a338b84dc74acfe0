// Random operation sequences over three sessions and two dataplanes,
// run on the library and on the reference model: every result, session, ACL version and
// binding must agree after every step, the library's invariants must hold, and once the
// sessions are gone nothing may still watch the store, hold a version or stay alive.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <vector>

#include "aclkit/platform/fwk/Entity.h"
#include "tests/support/model/ModelRunner.h"

namespace rc {

template <>
struct Arbitrary<model::Op> {
  static Gen<model::Op> arbitrary() {
    // A kind in proportion to its weight; shrinks towards the first kinds.
    int total = 0;
    for (int weight : model::kOpWeights) total += weight;
    const Gen<model::OpKind> kind = gen::map(gen::inRange(0, total), [](int n) {
      std::size_t k = 0;
      for (; n >= model::kOpWeights[k]; ++k) n -= model::kOpWeights[k];
      return static_cast<model::OpKind>(k);
    });
    return gen::build<model::Op>(gen::set(&model::Op::kind, kind),
                                 gen::set(&model::Op::slot, gen::inRange<std::uint8_t>(0, 3)),
                                 gen::set(&model::Op::arg, gen::arbitrary<std::array<std::uint8_t, 4>>()));
  }
};

}  // namespace rc

namespace {

// Reproducible by default: a fixed seed and case count unless RC_PARAMS says otherwise.
const bool defaultParams = [] { return setenv("RC_PARAMS", ACLKIT_PROPERTY_PARAMS, /*overwrite=*/0) == 0; }();

RC_GTEST_PROP(ModelPropertyTest, LibraryAgreesWithTheModel, ()) {
  const auto ops = *rc::gen::scale(2.0, rc::gen::arbitrary<std::vector<model::Op>>());
  const std::int64_t entitiesBefore = fwk::Entity::liveCount();
  {
    model::Runner runner;
    for (std::size_t i = 0; i < ops.size(); ++i) {
      std::string fault = runner.step(ops[i]);
      if (!fault.empty()) RC_FAIL(runner.history() + "^ " + fault);
    }
    std::string fault = runner.finish();
    if (!fault.empty()) RC_FAIL(runner.history() + "after the sessions: " + fault);
    RC_TAG(runner.stepsRun() * 5 / static_cast<int>(ops.size() + 1));
  }
  RC_ASSERT(fwk::Entity::liveCount() == entitiesBefore);
}

}  // namespace
