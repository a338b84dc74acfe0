// Observers are the callers' own code and may do anything while the session notifies them:
// let go of the session, commit or revert it, or throw. Each case here once read freed memory
// or lost a result; the sanitizer presets run them.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/platform/trace/Clock.h"
#include "tests/support/FakeDataplane.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::FakeDataplane;
using build::ipRule;

// Calls `react` with the session's new state, as a request handler watching its session does.
class StateWatch : public ApiSm::Reactor {
 public:
  StateWatch(ApiSm* session, std::function<void(ApiState)> react) : ApiSm::Reactor(session), react_(std::move(react)) {}
  void apiStateChanged() override { react_(notifier()->apiState()); }

 private:
  std::function<void(ApiState)> react_;
};

// Calls `react` once, at the next change of a scratchpad's places.
class EditWatch : public AclSubConfig::Reactor {
 public:
  EditWatch(AclSubConfig* scratchpad, std::function<void()> react)
      : AclSubConfig::Reactor(scratchpad), react_(std::move(react)) {}
  void ruleBySequenceChanged(const U32&) override {
    if (auto react = std::exchange(react_, nullptr)) react();
  }

 private:
  std::function<void()> react_;
};

class ReentrancyTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  ReentrancyTest() { installAcl("web", {{10, 80}, {20, 443}}); }
  Ptr<AclConfig> web() { return acl.config->config(AclType::ip)->acl("web"); }

  double now = 1000;
  fwk::ClockOverride clock{[this] { return now += 1; }};
};

TEST_F(ReentrancyTest, AHandlerMayDropItsSessionWhenTheResultArrives) {
  FakeDataplane dp1(acl, "dp1");
  FakeDataplane dp2(acl, "dp2");
  const std::int64_t before = fwk::Entity::liveCount();
  for (bool failing : {false, true}) {
    SCOPED_TRACE(failing ? "errHw" : "succeeded");
    Ptr<ApiSm> held = session("web");
    ASSERT_EQ(held->addIpRule(0, ipRule(failing ? 23 : 22)), succeeded);
    std::vector<ApiState> heard;
    StateWatch watch(held.get(), [&](ApiState state) {
      heard.push_back(state);
      if (state == succeeded || state == errHw) held = nullptr;
    });
    ASSERT_EQ(held->commit(), waitingForHw);
    // Both dataplanes report errors, so the error loop goes on after the session was dropped.
    if (failing) {
      dp1.fail("no room");
      dp2.fail("parity");
    } else {
      dp1.apply();
      dp2.apply();
    }
    EXPECT_EQ(held, nullptr);
    EXPECT_EQ(heard.back(), failing ? errHw : succeeded);
    EXPECT_TRUE(dp1.status()->notifieeList().empty()) << "the dropped session stopped watching";
    dp1.recover();
    dp2.recover();
  }
  EXPECT_EQ(fwk::Entity::liveCount(), before) << "nothing of the sessions is left";

  // The same inside commit(), the caller holding no reference of its own during the call.
  dp1.status()->waitForHwStatusIs(false);
  dp2.status()->waitForHwStatusIs(false);
  Ptr<ApiSm> held = session("web");
  ApiSm* raw = held.get();
  ASSERT_EQ(raw->addIpRule(100, ipRule(8080)), succeeded);
  StateWatch watch(raw, [&](ApiState state) {
    if (state == succeeded) held = nullptr;
  });
  raw->apiStateIs(ready);  // as a handler resets it before the request
  EXPECT_EQ(raw->commit(), succeeded);
  EXPECT_EQ(held, nullptr);
  EXPECT_TRUE(web()->currCfg()->ruleBySequence().contains(100));
}

TEST_F(ReentrancyTest, AnObserverCommittingDuringAnEditLeavesNoDanglingScratchpad) {
  for (int edit = 0; edit < 2; ++edit) {
    SCOPED_TRACE(edit == 0 ? "removal" : "addition");
    Ptr<ApiSm> s = session("web");
    EditWatch watch(s->currentAcl().get(), [&] { EXPECT_EQ(s->commit(), succeeded); });
    const ApiState state = edit == 0 ? s->removeRuleBySequence(10, 10) : s->addIpRule(30, ipRule(22));
    EXPECT_EQ(state, succeeded);
    EXPECT_EQ(s->currentAcl(), nullptr) << "the commit let go of the scratchpad";
    EXPECT_TRUE(web()->currCfg());
  }
}

TEST_F(ReentrancyTest, ARevertStartedOnAnErrorKeepsItsOwnOutcome) {
  FakeDataplane dp1(acl, "dp1");
  FakeDataplane dp2(acl, "dp2");
  Ptr<ApiSm> s = session("web");
  ApiState reverted = ready;
  StateWatch watch(s.get(), [&](ApiState state) {
    if (state == errHw && reverted == ready) reverted = s->revert();
  });
  ASSERT_EQ(s->addIpRule(30, ipRule(22)), succeeded);
  ASSERT_EQ(s->commitExt(false), waitingForHw);
  Ptr<AclSubConfig> old = web()->subConfig().begin()->second;
  dp1.fail("no room");
  dp2.fail("parity");
  EXPECT_EQ(reverted, waitingForHw);
  EXPECT_EQ(s->apiState(), waitingForHw) << "the second dataplane's error does not overwrite the revert";
  EXPECT_EQ(s->errString().size(), 2u) << "both errors are still reported";
  EXPECT_EQ(web()->currCfg()->ruleBySequence().size(), 2u) << "the old version is current again";
  dp1.recover();
  dp2.recover();
  dp1.apply();
  dp2.apply();
  EXPECT_EQ(s->apiState(), succeeded) << "the revert's own wait completes";
}

TEST_F(ReentrancyTest, AThrowingObserverKeepsOtherSessionsInformed) {
  FakeDataplane dp(acl, "dp1");
  Ptr<ApiSm> first = session("web");
  ASSERT_EQ(first->addIpRule(30, ipRule(22)), succeeded);
  ASSERT_EQ(first->commit(), waitingForHw);
  installAcl("other", {{10, 1}});
  Ptr<ApiSm> second = session("other");
  ASSERT_EQ(second->addIpRule(20, ipRule(2)), succeeded);
  ASSERT_EQ(second->commit(), waitingForHw);
  StateWatch thrower(first.get(), [](ApiState) { throw std::runtime_error("handler bug"); });
  EXPECT_THROW(dp.apply(), std::runtime_error);
  EXPECT_EQ(second->apiState(), succeeded) << "the other session still heard the dataplane";
  EXPECT_EQ(first->apiState(), waitingForHw) << "the failed handling was undone, not half-done";
}

}  // namespace
