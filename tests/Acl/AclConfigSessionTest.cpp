// Configuration sessions: what reaches running, what an open edit session then finds, the lists
// and bindings a commit must leave alone, and an abort. How versions compare and copy is the
// copy handlers' test.
#include <gtest/gtest.h>

#include <memory>

#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace Acl;
using namespace AclApi;

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

class AclConfigSessionTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  AclConfigSessionTest() {
    installAcl("web", {{10, 80}, {20, 443}}, {{5, "web servers"}});
    acl.intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(IntfId(String("Ethernet1")), "web");
  }
  Ptr<AclConfig> runningWeb() { return acl.config->config(AclType::ip)->acl("web"); }
};

TEST_F(AclConfigSessionTest, ARoundTripWithoutEditsChangesAndNotifiesNothingAndAnAbortLeavesRunningAlone) {
  TreeWatch configWatch(*acl.config);
  TreeWatch intfWatch(*acl.intfConfig);
  AclConfigSession session(acl);
  EXPECT_EQ(session.config()->config(AclType::ip)->acl("web")->currCfg()->id(), runningWeb()->currCfg()->id());
  EXPECT_EQ(session.intfConfig()->config(AclType::ip)->intf(AclDirection::in)->intf().size(), 1u);
  EXPECT_FALSE(session.commit());
  EXPECT_FALSE(session.isOpen());
  EXPECT_THROW(session.commit(), fwk::Error);
  {
    AclConfigSession dropped(acl);
    dropped.newVersion(AclType::ip, "web")->ruleBySequenceDelAll();
    dropped.config()->configIs(AclType::mac)->aclIs("m", AclType::mac, false, false);
  }  // dropped without commit
  AclConfigSession other(acl);
  other.abort();
  EXPECT_THROW(other.newVersion(AclType::ip, "web"), fwk::Error);
  EXPECT_EQ(configWatch.changes() + intfWatch.changes(), 0);
}

// A changed list reaches running as a new version, which an edit session opened before finds
// as another session's change; a renumbered one is patched in place, which it does not.
TEST_F(AclConfigSessionTest, EditSessionsFindWhatACommitChanged) {
  auto before = session("web");
  ASSERT_EQ(before->addIpRule(30, build::ipRule(22)), succeeded);
  AclConfigSession renumbering(acl);
  Ptr<AclSubConfig> v = renumbering.config()->config(AclType::ip)->acl("web")->currCfg();
  v->ruleBySequenceIs(11, v->ruleBySequence(10));
  v->ruleBySequenceDel(10);
  EXPECT_TRUE(renumbering.commit());
  EXPECT_EQ(runningWeb()->currCfg()->ruleBySequence().begin()->first, 11u);
  auto after = session("web");
  EXPECT_EQ(before->commit(), succeeded) << "the same version, patched";
  AclConfigSession dropping(acl);
  dropping.newVersion(AclType::ip, "web")->ruleBySequenceDel(20);
  EXPECT_TRUE(dropping.commit());
  ASSERT_EQ(after->addIpRule(40, build::ipRule(23)), succeeded);
  EXPECT_EQ(after->commit(), errSessionModify);
  AclConfigSession deleting(acl);
  deleting.config()->config(AclType::ip)->aclDel("web");
  auto late = session("web");
  EXPECT_TRUE(deleting.commit());
  EXPECT_EQ(late->commit(), errSessionDelete);
}

TEST_F(AclConfigSessionTest, DynamicAndSecureMonitorAclsAndTheirBindingsSurvive) {
  AclConfigSession session(acl);
  // Made in running after the session opened, so the candidate lacks them.
  Ptr<Input::AclTypeConfig> ips = acl.config->config(AclType::ip);
  Ptr<AclConfig> dyn = installAcl("dyn", {{10, 1}});
  dyn->dynamicIs(true);
  Ptr<AclConfig> mon = installAcl("mon", {{10, 2}});
  mon->secureMonitorIs(true);
  Ptr<AclIntf> in = acl.intfConfig->config(AclType::ip)->intf(AclDirection::in);
  in->intfIs(IntfId(String("Ethernet7")), "dyn");
  in->intfIs(IntfId(String("Ethernet8")), "mon");
  EXPECT_FALSE(session.commit());
  EXPECT_EQ(std::pair(ips->acl("dyn"), ips->acl("mon")), std::pair(dyn, mon));
  EXPECT_EQ(in->intf().size(), 3u);
}

}  // namespace
