#include <gtest/gtest.h>

#include <memory>

#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/store/StateStore.h"
#include "tests/support/AclBuilders.h"

namespace {

using namespace Acl;

// Watches every entity below a root, so a test can tell whether anything at all changed.
class TreeWatch {
 public:
  explicit TreeWatch(const fwk::Entity& root) { watch(root); }
  [[nodiscard]] int changes() const {
    int n = 0;
    for (const auto& w : watchers_) n += w->count;
    return n;
  }

 private:
  void watch(const fwk::Entity& e) {
    watchers_.push_back(std::make_unique<build::AnyChange>(&e));
    for (const fwk::AttrInfo* attr : e.fwkType().attrs()) {
      for (fwk::Entity* child : attr->children(e)) watch(*child);
    }
  }
  std::vector<std::unique_ptr<build::AnyChange>> watchers_;
};

// What reaches running through a configuration session (new, changed, renumbered and deleted
// lists, bindings) is the property test's and the copy handlers' tests'; these pin what neither
// sees: notifications, ACLs the candidate never had, and an abort.
class AclConfigSessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Ptr<AclConfig> a = running.config->configIs(AclType::ip)->aclIs("web", AclType::ip, false, false);
    a->currCfgIs(build::version(*a, {{10, 80}, {20, 443}}, {{5, "web servers"}}));
    a->currCfg()->committedIs(true);
    running.intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(IntfId(String("Ethernet1")), "web");
  }
  Ptr<AclConfig> runningWeb() { return running.config->config(AclType::ip)->acl("web"); }

  fwk::StateStore store;
  AclMounts running = mountAcl(store);
};

TEST_F(AclConfigSessionTest, ARoundTripWithoutEditsChangesAndNotifiesNothing) {
  TreeWatch configWatch(*running.config);
  TreeWatch intfWatch(*running.intfConfig);
  AclConfigSession session(running);
  Ptr<AclConfig> candidateWeb = session.config()->config(AclType::ip)->acl("web");
  ASSERT_TRUE(candidateWeb);
  EXPECT_EQ(candidateWeb->currCfg()->id(), runningWeb()->currCfg()->id());
  EXPECT_EQ(session.intfConfig()->config(AclType::ip)->intf(AclDirection::in)->intf().size(), 1u);
  EXPECT_FALSE(session.commit());
  EXPECT_EQ(configWatch.changes() + intfWatch.changes(), 0);
  EXPECT_FALSE(session.isOpen());
  EXPECT_THROW(session.commit(), fwk::Error);
}

TEST_F(AclConfigSessionTest, DynamicAndSecureMonitorAclsAndTheirBindingsSurvive) {
  AclConfigSession session(running);
  // Made in running after the session opened, so the candidate lacks them.
  Ptr<Input::AclTypeConfig> ips = running.config->config(AclType::ip);
  Ptr<AclConfig> dyn = ips->aclIs("dyn", AclType::ip, false, false);
  dyn->dynamicIs(true);
  dyn->currCfgIs(build::version(*dyn, {{10, 1}}));
  Ptr<AclConfig> mon = ips->aclIs("mon", AclType::ip, false, false);
  mon->secureMonitorIs(true);
  mon->currCfgIs(build::version(*mon, {{10, 2}}));
  Ptr<AclIntf> in = running.intfConfig->config(AclType::ip)->intf(AclDirection::in);
  in->intfIs(IntfId(String("Ethernet7")), "dyn");
  in->intfIs(IntfId(String("Ethernet8")), "mon");
  EXPECT_FALSE(session.commit());
  EXPECT_EQ(ips->acl("dyn"), dyn);
  EXPECT_EQ(ips->acl("mon"), mon);
  EXPECT_EQ(in->intf().size(), 3u);
}

TEST_F(AclConfigSessionTest, AbortLeavesRunningAlone) {
  TreeWatch watch(*running.config);
  {
    AclConfigSession session(running);
    session.newVersion(AclType::ip, "web")->ruleBySequenceDelAll();
    session.config()->configIs(AclType::mac)->aclIs("m", AclType::mac, false, false);
  }  // dropped without commit
  AclConfigSession other(running);
  other.abort();
  EXPECT_FALSE(other.isOpen());
  EXPECT_THROW(other.newVersion(AclType::ip, "web"), fwk::Error);
  EXPECT_EQ(watch.changes(), 0);
  EXPECT_EQ(runningWeb()->currCfg()->ruleBySequence().size(), 2u);
}

}  // namespace
