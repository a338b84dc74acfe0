// The shell in-process: the running configuration reads back as itself over generated lists
// of every family; the JSON a script reads; the saved configuration; refusals that must not
// reach a session; and a conflict with another session, which is dropped, never reverted.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
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

// Lists of every family, generated, typed in; the running configuration must show exactly
// what was typed (entries in order, flags, bindings), and read back as itself.
RC_GTEST_PROP(AclshRoundTripTest, TheRunningConfigurationShowsWhatWasTypedAndReadsBackAsItself, ()) {
  std::string script = platform;
  std::string expected;
  std::map<std::string, std::vector<std::string>> groups;  // interface -> its access-group lines
  for (const auto& [type, keyword] : {std::pair(AclType::ip, "ip"), {AclType::ipv6, "ipv6"}, {AclType::mac, "mac"}}) {
    std::map<std::string, std::string> lists;  // name -> its text in the running configuration
    for (int l = *rc::gen::inRange(0, 3); l > 0; --l) {
      const std::string name = keyword + std::string("-") + generate::word(8);
      if (lists.contains(name)) continue;
      std::string& shown = lists[name];
      script += std::string(keyword) + " access-list " + name + "\n";
      shown += std::string(keyword) + " access-list " + name + "\n";
      for (const char* flag : {"counters per-entry", "fragment-rules"}) {
        if (!generate::coin()) continue;
        script += std::string(flag) + "\n";
        shown += std::string("   ") + flag + "\n";
      }
      std::map<U32, std::string> entries;
      bool programmable = true;  // no platform takes TTL or hop-limit options or tracking
      for (int e = *rc::gen::inRange(0, 8); e > 0; --e) {
        const U32 place = *rc::gen::inRange<U32>(1, 100000);
        if (entries.contains(place)) continue;
        Text::EntryBody body = generate::coin()        ? Text::EntryBody(RemarkConfig(String(generate::word(30))))
                               : type == AclType::ip   ? Text::EntryBody(generate::anyIpRule())
                               : type == AclType::ipv6 ? Text::EntryBody(generate::anyIp6Rule())
                                                       : Text::EntryBody(generate::anyMacRule());
        if (const auto* ip = std::get_if<IpRuleConfig>(&body)) {
          programmable = programmable && !ip->filter().tracked() && !ip->filter().usesTtlOption();
        }
        if (const auto* ip6 = std::get_if<Ip6RuleConfig>(&body)) {
          programmable = programmable && !ip6->filter().usesHopLimitOption();
        }
        entries[place] = Text::format(Text::Entry{place, body});
        script += entries[place] + "\n";
      }
      for (const auto& [place, line] : entries) shown += "   " + line + "\n";
      if (programmable && generate::coin()) {
        const std::string intf = "Ethernet" + std::to_string(*rc::gen::inRange(1, 4));
        const std::string group = keyword + std::string(" access-group ") + name + (generate::coin() ? " in" : " out");
        script += "interface " + intf + "\n" + group + "\n";
        groups[intf].push_back(group);
      }
    }
    for (const auto& [name, shown] : lists) expected += shown + "!\n";
  }
  for (const auto& [intf, bound] : groups) {
    // An interface takes one list per family and direction: the one bound last stays.
    std::vector<std::string> kept;
    for (std::size_t k = 0; k < bound.size(); ++k) {
      auto sameSlot = [&](const std::string& later) {
        return later.substr(0, later.find(' ')) == bound[k].substr(0, bound[k].find(' ')) &&
               later.substr(later.rfind(' ')) == bound[k].substr(bound[k].rfind(' '));
      };
      if (std::none_of(bound.begin() + static_cast<long>(k) + 1, bound.end(), sameSlot)) kept.push_back(bound[k]);
    }
    std::sort(kept.begin(), kept.end());
    expected += "interface " + intf + "\n";
    for (const std::string& group : kept) expected += "   " + group + "\n";
    expected += "!\n";
  }
  RC_LOG() << script;
  ShellRun first;
  RC_ASSERT(first.script(script));
  const std::string running = first.running();
  RC_ASSERT(running == expected);
  ShellRun again;
  RC_ASSERT(again.script(platform + running));
  RC_ASSERT(again.running() == running);
  // Typed once more over itself, every list is found unchanged and nothing is committed.
  again.out.str("");
  RC_ASSERT(again.script(running));
  std::size_t lists = 0;
  std::size_t unchanged = 0;
  for (std::size_t at = 0; (at = running.find(" access-list ", at)) != std::string::npos; ++at) ++lists;
  for (std::size_t at = 0; (at = again.out.str().find(": unchanged\n", at)) != std::string::npos; ++at) ++unchanged;
  RC_ASSERT(unchanged == lists);
  RC_ASSERT(again.out.str().find("committed") == std::string::npos);
}

TEST(AclshTest, ShowCommandsSpeakJsonToScripts) {
  aclsh::Options options;
  options.json = true;
  ShellRun run(options);
  ASSERT_TRUE(run.script(platform + "dataplane dp1\nip access-list web\n10 remark web\n20 permit tcp any any eq 443\n"
                                    "exit\ninterface Ethernet1\nip access-group web in\nexit\n"));
  run.out.str("");
  run.shell.run("show ip access-lists", {"", 1});
  const auto lists = nlohmann::json::parse(run.out.str());
  ASSERT_EQ(lists.size(), 1u);
  EXPECT_EQ(lists[0]["name"], "web");
  EXPECT_EQ(lists[0]["entries"][0]["remark"], "web");
  EXPECT_EQ(lists[0]["entries"][1]["entry"], "permit tcp any any eq 443");
  EXPECT_EQ(lists[0]["bound"][0]["interface"], "Ethernet1");
  EXPECT_TRUE(lists[0]["programmed"]);
  run.out.str("");
  run.shell.run("test packet interface Ethernet1 in ip dst 192.0.2.1 protocol tcp dport 443", {"", 2});
  const auto verdict = nlohmann::json::parse(run.out.str());
  EXPECT_EQ(verdict["action"], "permit");
  EXPECT_EQ(verdict["sequence"], 20);
  for (const char* show : {"show running-config", "show platform", "show dataplanes"}) {
    run.out.str("");
    run.shell.run(show, {"", 3});
    EXPECT_TRUE(nlohmann::json::accept(run.out.str())) << show;
  }
  // The export goes to standard output as the document alone; what it leaves out, to errors.
  run.out.str("");
  run.shell.run("export openconfig", {"", 4});
  EXPECT_EQ(nlohmann::json::parse(run.out.str())["openconfig-acl:acl"]["acl-sets"]["acl-set"][0]["name"], "web");
  EXPECT_EQ(run.err.str(), "note: web (ACL_IPV4) entry 10: remark: not in the model; left out: web\n");
}

TEST(AclshTest, WriteSavesAWholeFileThatLoadsBack) {
  const std::filesystem::path dir = std::filesystem::temp_directory_path() / "aclsh-write-test";
  std::filesystem::create_directories(dir);
  aclsh::Options options;
  options.configFile = (dir / "startup.acl").string();
  ShellRun run(options);
  ASSERT_TRUE(
      run.script("ip access-list web\n10 permit ip any any\nexit\ninterface Ethernet1\nip access-group web in\n"));
  ASSERT_TRUE(run.script("write"));
  EXPECT_FALSE(std::filesystem::exists(options.configFile + ".tmp")) << "the temporary file was renamed";
  std::ifstream saved(options.configFile);
  const std::string text((std::istreambuf_iterator<char>(saved)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text, run.running());
  ShellRun reloaded;
  ASSERT_TRUE(reloaded.script(text));
  EXPECT_EQ(reloaded.running(), text);
  std::filesystem::remove_all(dir);
  ShellRun unsaved;
  EXPECT_FALSE(unsaved.script("write"));
  EXPECT_EQ(unsaved.err.str(), "test:1: no configuration file: start aclsh with --config FILE\n");
}

TEST(AclshTest, RefusalsAndConflictsChangeNothingTheySayTheyDoNot) {
  ShellRun run;
  // More payload elements than an alias update keeps: refused before any session sees it.
  EXPECT_FALSE(run.script("ip access-list web\n10 permit ip any any payload 0 0x1 0xff payload 4 0x2 0xff\nexit\n"));
  EXPECT_NE(run.err.str().find("test:2:1: a rule here may match at most 1 payload element (this one has 2)"),
            std::string::npos)
      << run.err.str();
  EXPECT_EQ(run.running(), "ip access-list web\n!\n") << "the list was made, empty";

  // Two shells on one store: the one that commits second finds the other's work and drops
  // its own edit rather than reverting anything.
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
  EXPECT_EQ(run.running(), "ip access-list web\n   10 permit tcp any any\n!\n");
  // A commit the platform refuses once every dataplane has taken it is put back as it was,
  // flags included.
  ASSERT_TRUE(
      run.script("platform all on\nplatform ip-mirror off\ndataplane dp1\ninterface Ethernet1\n"
                 "ip access-group web in\nexit\nip access-list web\ncounters per-entry\n"
                 "20 permit ip any any mirror tap1\nexit\n"));
  EXPECT_NE(run.out.str().find("refused by the platform (mirror not supported): undone\n"), std::string::npos)
      << run.out.str();
  EXPECT_EQ(run.running(),
            "ip access-list web\n   10 permit tcp any any\n!\ninterface Ethernet1\n   ip access-group "
            "web in\n!\n");

  ASSERT_TRUE(run.script("ip access-list web\nresequence 100 10\nexit\n"));
  EXPECT_EQ(run.running(),
            "ip access-list web\n   100 permit tcp any any\n!\ninterface Ethernet1\n   ip access-group "
            "web in\n!\n");
}

}  // namespace
