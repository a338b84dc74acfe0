// Observers are the callers' own code and may do anything while the session notifies them: let
// go of the session, commit or revert it. Each case here once read freed memory or lost a
// result; the sanitizer presets run them. An observer that throws is the fault-injection
// test's subject, and the framework's tests say who still hears a change then.
#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/platform/fwk/Transaction.h"
#include "aclkit/platform/trace/Clock.h"
#include "tests/support/FakeDataplane.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::FakeDataplane;
using build::ipRule;

// Calls `react` with the session's new state, as a request handler watching its session does,
// and notes whether the session went while one of its operations was still running.
class StateWatch : public ApiSm::Reactor {
 public:
  StateWatch(ApiSm* session, std::function<void(ApiState)> react) : ApiSm::Reactor(session), react_(std::move(react)) {}
  void apiStateChanged() override { react_(notifier()->apiState()); }
  void notifierDestroyed() override { destroyedMidCall = fwk::Transaction::active(); }
  bool destroyedMidCall = false;

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

TEST_F(ReentrancyTest, AHandlerMayLetGoOfItsSessionMidEditOrWhenTheResultArrives) {
  const std::int64_t before = fwk::Entity::liveCount();
  // The last reference goes in the middle of an edit, before the session changed anything of
  // its own (15 lies below the last place): the session lives until the edit is done.
  Ptr<ApiSm> held = session("web");
  ApiSm* raw = held.get();
  StateWatch gone(raw, [](ApiState) {});
  EditWatch letGo(raw->currentAcl().get(), [&] { held = nullptr; });
  EXPECT_EQ(raw->addIpRule(15, ipRule(22)), succeeded);
  EXPECT_EQ(gone.notifier(), nullptr) << "let go of once the edit returned";
  EXPECT_FALSE(gone.destroyedMidCall) << "freed while its edit was still running";

  // At the result a dataplane's report brings: both dataplanes report errors, so the error
  // loop goes on after the session was dropped.
  FakeDataplane dp1(acl, "dp1");
  FakeDataplane dp2(acl, "dp2");
  for (bool failing : {false, true}) {
    SCOPED_TRACE(failing ? "errHw" : "succeeded");
    held = session("web");
    ASSERT_EQ(held->addIpRule(0, ipRule(failing ? 23 : 22)), succeeded);
    std::vector<ApiState> heard;
    StateWatch watch(held.get(), [&](ApiState state) {
      heard.push_back(state);
      if (state == succeeded || state == errHw) held = nullptr;
    });
    ASSERT_EQ(held->commit(), waitingForHw);
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
  EXPECT_EQ(fwk::Entity::liveCount(), before + 2) << "nothing of the sessions is left, only the dataplanes";
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

}  // namespace
