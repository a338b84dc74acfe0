// The shell in-process, for what a script cannot show: the running configuration reads back as
// itself over generated lists of every family; the saved configuration; and a conflict with
// another shell, which is dropped, never reverted.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "aclkit/aclsh/Shell.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/text/AclText.h"
#include "tests/support/RuleGenerators.h"

namespace {

using namespace Acl;
namespace generate = build::generate;

const bool defaultParams = [] { return setenv("RC_PARAMS", ACLKIT_ACLSH_PROPERTY_PARAMS, /*overwrite=*/0) == 0; }();

// A shell on a store of its own, fed lines; what it printed, and whether every line ran.
struct ShellRun {
  explicit ShellRun(aclsh::Options options = {}) : shell(store, out, err, std::move(options)) {}
  bool script(const std::string& text) {
    std::istringstream lines(text);
    std::string line;
    bool ok = true;
    for (std::size_t n = 1; std::getline(lines, line); ++n) ok = shell.run(line, {"test", n}) && ok;
    return shell.finish() && ok;
  }
  std::string running() {
    out.str("");
    shell.run("show running-config", {"test", 0});
    return out.str();
  }
  fwk::StateStore store;
  std::ostringstream out;
  std::ostringstream err;
  aclsh::Shell shell;
};

// Everything a platform can do, and room for the generated payloads.
const std::string platform = "platform all on\nplatform payload-capacity ip 8\nplatform payload-capacity mac 8\n";

// Lists of every family, generated, typed in: the running configuration shows every entry
// typed, with its list's flags and bindings, and reads back as itself; typed once more over
// itself, every list is found unchanged and nothing is committed. (Its exact layout is the
// script tests'.)
RC_GTEST_PROP(AclshRoundTripTest, TheRunningConfigurationReadsBackAsItself, ()) {
  std::string script = platform;
  std::vector<std::string> typed;  // the entries of every list, the last typed at each place
  for (const auto& [type, keyword] : {std::pair(AclType::ip, "ip"), {AclType::ipv6, "ipv6"}, {AclType::mac, "mac"}}) {
    for (int l = *rc::gen::inRange(0, 3); l > 0; --l) {
      const std::string name = keyword + std::string("-") + generate::word(8);
      script += keyword + (" access-list " + name) + (generate::coin() ? "\ncounters per-entry\n" : "\n");
      bool programmable = true;  // no platform takes TTL or hop-limit options or tracking
      std::map<U32, std::string> entries;
      for (int e = *rc::gen::inRange(0, 8); e > 0; --e) {
        const U32 place = *rc::gen::inRange<U32>(1, 100000);
        Text::EntryBody body = generate::coin()        ? Text::EntryBody(RemarkConfig(String(generate::word(30))))
                               : type == AclType::ip   ? Text::EntryBody(generate::anyIpRule())
                               : type == AclType::ipv6 ? Text::EntryBody(generate::anyIp6Rule())
                                                       : Text::EntryBody(generate::anyMacRule());
        if (const auto* ip = std::get_if<IpRuleConfig>(&body)) {
          programmable = programmable && !ip->filter().tracked() && !ip->filter().usesTtlOption();
        } else if (const auto* ip6 = std::get_if<Ip6RuleConfig>(&body)) {
          programmable = programmable && !ip6->filter().usesHopLimitOption();
        }
        script += (entries[place] = Text::format(Text::Entry{place, body})) + "\n";
      }
      for (const auto& [place, line] : entries) typed.push_back(line);
      if (programmable && generate::coin()) {
        script += "interface Ethernet" + std::to_string(*rc::gen::inRange(1, 4)) + "\n" + keyword + " access-group " +
                  name + (generate::coin() ? " in" : " out") + "\n";
      }
    }
  }
  RC_LOG() << script;
  ShellRun first;
  RC_ASSERT(first.script(script));
  const std::string running = first.running();
  for (const std::string& line : typed) RC_ASSERT(running.find("   " + line + "\n") != std::string::npos);
  ShellRun again;
  RC_ASSERT(again.script(platform + running) && again.running() == running);
  again.out.str("");
  RC_ASSERT(again.script(running) && again.out.str().find("committed") == std::string::npos);
}

TEST(AclshTest, WriteSavesAWholeFileThatLoadsBackOrLeavesEverythingAsItWas) {
  const std::filesystem::path dir = std::filesystem::temp_directory_path() / "aclsh-write-test";
  std::filesystem::create_directories(dir / "taken");
  aclsh::Options options;
  options.configFile = (dir / "startup.acl").string();
  ShellRun run(options);
  ASSERT_TRUE(
      run.script("ip access-list web\n10 permit ip any any\nexit\ninterface Ethernet1\nip access-group web in\n"));
  ASSERT_TRUE(run.script("write"));
  std::ostringstream text;
  text << std::ifstream(options.configFile).rdbuf();
  EXPECT_EQ(text.str(), run.running());
  ShellRun reloaded;
  ASSERT_TRUE(reloaded.script(text.str()));
  EXPECT_EQ(reloaded.running(), text.str());
  // A file that cannot replace what stands at its path (a directory) is not written, and no
  // temporary file is left behind.
  options.configFile = (dir / "taken").string();
  ShellRun blocked(options);
  EXPECT_FALSE(blocked.script("write"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()), 2);
  std::filesystem::remove_all(dir);
  ShellRun unsaved;
  EXPECT_FALSE(unsaved.script("write"));
  EXPECT_EQ(unsaved.err.str(), "test:1: no configuration file: start aclsh with --config FILE\n");
}

// Two shells on one store, a dataplane that answers late: the one that commits second finds
// the other's work and drops its own edit, never reverting what the other did.
TEST(AclshTest, AConflictWithAnotherShellDropsTheEditAndRevertsNothing) {
  ShellRun run;
  ASSERT_TRUE(run.script("dataplane dp1 delay 1\nip access-list web\n5 remark first\nexit\ndataplane dp1 tick\n"));
  aclsh::Shell other(run.store, run.out, run.err);
  ASSERT_TRUE(run.shell.run("ip access-list web", {"a", 1}));
  ASSERT_TRUE(run.shell.run("20 deny ip any any", {"a", 2}));
  ASSERT_TRUE(other.run("ip access-list web", {"b", 1}));
  ASSERT_TRUE(other.run("10 permit tcp any any", {"b", 2}));
  ASSERT_TRUE(other.run("exit", {"b", 3}));
  run.out.str("");
  ASSERT_TRUE(run.shell.run("exit", {"a", 3}));
  EXPECT_EQ(run.out.str(),
            "ip access-list web: not committed: another session changed it since this edit began; "
            "this edit is dropped\n");
  EXPECT_EQ(run.running(), "ip access-list web\n   5 remark first\n   10 permit tcp any any\n!\n");
}

}  // namespace
