// The shell in-process, for what a script cannot show: the saved configuration, which loads
// back as itself and, typed again, commits nothing; and a conflict with another shell, which
// is dropped, never reverted.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "aclkit/aclsh/Shell.h"
#include "aclkit/client/Replace.h"
#include "aclkit/platform/store/StateStore.h"
#include "tests/support/AclBuilders.h"

namespace {

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

// Lists of every family, a standard one, the per-list flags, remarks, bindings in both
// directions, a limited platform and dataplanes with their settings: what write saves is the
// running configuration, which a fresh shell (whose platform can bind anything) loads back
// and writes again byte for byte, a binding made before a limit included; typed once more
// over itself, it finds every list unchanged and commits nothing. (Each entry's own round
// trip is the text layer's property.)
TEST(AclshTest, WriteSavesAWholeFileThatLoadsBackOrLeavesEverythingAsItWas) {
  const std::filesystem::path dir = std::filesystem::temp_directory_path() / "aclsh-write-test";
  std::filesystem::create_directories(dir / "taken");
  aclsh::Options options;
  options.configFile = (dir / "startup.acl").string();
  ShellRun run(options);
  ASSERT_TRUE(run.script(
      "platform payload-capacity ip 1\ndataplane dp1\ndataplane dp2\n"
      "ip access-list web\ncounters per-entry\n10 remark web servers\n20 permit tcp any host 192.0.2.1 eq 443\n"
      "30 permit ip any any payload 0 0x1 0xff payload 4 0x2 0xff\n40 permit ip any any mirror tap1\n"
      "ip access-list standard mgmt\n10 permit 198.51.100.0/24 log\n"
      "ipv6 access-list web6\nfragment-rules\n5 deny ipv6 any 2001:db8::/32\n"
      "mac access-list lab\n7 permit host 00:00:5e:00:53:01 any ethertype 0x0806\nexit\n"
      "interface Ethernet1\nip access-group web in\nipv6 access-group web6 out\n"
      "interface Ethernet2\nmac access-group lab in\nip access-group mgmt in\nexit\n"
      "platform ip-mirror off\nplatform mpls-skip on\ndataplane dp2 waits off\ndataplane dp2 capacity 100\n"
      "dataplane dp2 delay 2\ndataplane dp2 error TCAM bank 2 is full\n"));
  ASSERT_TRUE(run.script("write"));
  std::ostringstream text;
  text << std::ifstream(options.configFile).rdbuf();
  EXPECT_EQ(
      text.str(),
      "platform payload-capacity ip 1\ndataplane dp1\ndataplane dp2\n!\n"
      "ip access-list standard mgmt\n   10 permit 198.51.100.0/24 log\n!\n"
      "ip access-list web\n   counters per-entry\n   10 remark web servers\n"
      "   20 permit tcp any host 192.0.2.1 eq 443\n   30 permit ip any any payload 0 0x1 0xff payload 4 0x2 0xff\n"
      "   40 permit ip any any mirror tap1\n!\n"
      "ipv6 access-list web6\n   fragment-rules\n   5 deny ipv6 any 2001:db8::/32\n!\n"
      "mac access-list lab\n   7 permit host 00:00:5e:00:53:01 any ethertype 0x0806\n!\n"
      "interface Ethernet1\n   ip access-group web in\n   ipv6 access-group web6 out\n!\n"
      "interface Ethernet2\n   ip access-group mgmt in\n   mac access-group lab in\n!\n"
      "exit\nplatform ip-mirror off\nplatform mpls-skip on\ndataplane dp2 waits off\ndataplane dp2 capacity 100\n"
      "dataplane dp2 delay 2\ndataplane dp2 error TCAM bank 2 is full\n!\n");
  aclsh::Options again;
  again.configFile = (dir / "again.acl").string();
  ShellRun reloaded(again);
  ASSERT_TRUE(reloaded.script(text.str() + "write")) << reloaded.err.str();
  std::ostringstream rewritten;
  rewritten << std::ifstream(again.configFile).rdbuf();
  EXPECT_EQ(rewritten.str(), text.str());
  std::filesystem::remove(again.configFile);
  // An export written to a file holds what it prints.
  run.out.str("");
  ASSERT_TRUE(run.script("export openconfig skip-inexact"));
  const std::string printed = run.out.str();
  ASSERT_TRUE(run.script("export openconfig skip-inexact " + (dir / "oc.json").string()));
  std::ostringstream exported;
  exported << std::ifstream(dir / "oc.json").rdbuf();
  EXPECT_EQ(exported.str(), printed);
  std::filesystem::remove(dir / "oc.json");
  run.err.str("");
  reloaded.out.str("");
  ASSERT_TRUE(reloaded.script(text.str()));
  EXPECT_EQ(reloaded.out.str().find("committed"), std::string::npos) << reloaded.out.str();
  // An entry no line can show (an address with host bits set, as an import may bring) fails
  // the command rather than the shell, and the saved file is left as it was.
  const Acl::IpRuleConfig hostBits = build::ruleWith<Acl::IpRuleConfig>(
      [](Acl::IpFilter& f) { f.srcIs(Acl::Ip4Addr(0xC0000201)), f.srcMaskIs(Acl::Ip4Addr(0xFFFFFF00)); });
  ASSERT_EQ(Client::replaceList(Client::Library(run.store), "odd", Acl::AclType::ip, {{10, hostBits}}).state,
            AclApi::succeeded);
  EXPECT_FALSE(run.script("write"));
  EXPECT_EQ(run.err.str(), "test:1: no ACL line reads back as this record: src has bits outside srcMask\n");
  std::ostringstream kept;
  kept << std::ifstream(options.configFile).rdbuf();
  EXPECT_EQ(kept.str(), text.str());
  // Checking runs every line as a load would, and writes no file at all.
  aclsh::Options checking = options;
  checking.check = true;
  ShellRun checked(checking);
  ASSERT_TRUE(checked.script(text.str() + "no mac access-list lab\nwrite\nexport openconfig skip-inexact " +
                             (dir / "oc.json").string()));
  EXPECT_NE(checked.out.str().find("checking: " + options.configFile + " is not written"), std::string::npos);
  std::ostringstream unchanged;
  unchanged << std::ifstream(options.configFile).rdbuf();
  EXPECT_EQ(unchanged.str(), text.str());
  EXPECT_FALSE(std::filesystem::exists(dir / "oc.json"));
  // A list the platform refuses is reported by a load, but fails a check.
  checked.err.str("");
  EXPECT_FALSE(checked.script("platform ip-mirror off\nip access-list web\n50 permit ip any any mirror tap2\nexit"));
  EXPECT_NE(checked.err.str().find("refused (mirror not supported): nothing changed"), std::string::npos)
      << checked.err.str();
  // Through a symbolic link the file it names is written, keeping its mode; the link stays.
  std::filesystem::permissions(options.configFile,
                               std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  std::filesystem::create_symlink("startup.acl", dir / "link.acl");
  aclsh::Options linked = options;
  linked.configFile = (dir / "link.acl").string();
  ShellRun viaLink(linked);
  ASSERT_TRUE(viaLink.script(text.str() + "no mac access-list lab\nwrite"));
  EXPECT_TRUE(std::filesystem::is_symlink(dir / "link.acl"));
  EXPECT_EQ(std::filesystem::status(options.configFile).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  std::ostringstream written;
  written << std::ifstream(options.configFile).rdbuf();
  EXPECT_EQ(written.str(), viaLink.running());
  // A write that fails half-way (here: past the file size limit) leaves the old file whole.
  {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small{16, limit.rlim_max};
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool wrote = viaLink.script("write");
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_FALSE(wrote);
    std::ostringstream afterFailure;
    afterFailure << std::ifstream(options.configFile).rdbuf();
    EXPECT_EQ(afterFailure.str(), written.str());
  }
  // A file that cannot replace what stands at its path (a directory) is not written, and no
  // temporary file is left behind.
  options.configFile = (dir / "taken").string();
  ShellRun blocked(options);
  EXPECT_FALSE(blocked.script("write"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()), 3);
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
  EXPECT_EQ(run.running(),
            "dataplane dp1\n!\nip access-list web\n   5 remark first\n   10 permit tcp any any\n!\n"
            "exit\ndataplane dp1 delay 1\n!\n");
}

// On a terminal a failed line leaves the edit open for the line typed again (the prompt shows
// the mode); text that is not UTF-8 is refused there too, at its first bad byte, and never
// stored.
// The commands' one grammar answers dispatch, Tab and ?: a unique prefix runs as its keyword,
// an ambiguous one names the candidates, an entry's keywords are typed whole, `do` reaches
// the top from a list, and exit at the top ends the shell.
TEST(AclshTest, TheGrammarRunsAbbreviationsAndAnswersTabAndHelp) {
  ShellRun run;
  const std::pair<const char*, const char*> lines[] = {
      {"dataplane dp", ""},
      {"ip access-list stand", ""},  // a name, where standard could stand
      {"exit", ""},
      {"conf s maint", ""},
      {"ip access-list web", ""},
      {"re", "1:1: ambiguous re: remark or resequence\n"},
      {"perm tcp any any", "1:1: expected permit (an entry's words are typed whole)\n"},
      {"10 permit tcp any any eq 443", ""},
      {"end", ""},
      {"sh session-config d", ""},
      {"commit", ""},
      {"interface Ethernet1", ""},
      {"ip access-g web in", ""},
      {"do sh ip access-l web", ""},
      {"do no ip access-list web", "1:7: expected dataplane\n"},
  };
  for (const auto& [line, error] : lines) {
    run.err.str("");
    run.shell.run(line, {"", 1});
    EXPECT_EQ(run.err.str(), error) << line;
  }
  EXPECT_NE(run.out.str().find("+   10 permit tcp any any eq 443"), std::string::npos) << run.out.str();
  EXPECT_NE(run.out.str().find("-- bound: Ethernet1 in"), std::string::npos) << run.out.str();

  const std::pair<const char*, std::vector<std::string>> completions[] = {
      {"sh", {"show"}},
      {"show r", {"running-config"}},
      {"do show ip access-lists ", {"stand", "web"}},
      {"ip access-group ", {"stand", "web"}},
      {"no ip access-group ", {"in", "out", "stand", "web"}},
      {"bogus ", {}},
      {"do dataplane ", {"dp"}},
  };
  for (const auto& [line, words] : completions) EXPECT_EQ(run.shell.complete(line), words) << line;
  EXPECT_EQ(run.shell.help("ip access-group web "), "  in   arriving packets\n  out  leaving packets\n");
  EXPECT_EQ(run.shell.help("ip x"), "% nothing starts with x here\n");
  EXPECT_EQ(run.shell.help("do dataplane dp error two words "), "  TEXT  the error's text\n  <cr>\n");
  EXPECT_EQ(run.shell.help("bogus "), "% expected ip, ipv6, mac, no, show, exit, end or do at column 1\n");
  run.shell.run("end", {"", 1});
  EXPECT_EQ(run.shell.complete("ip access-list w"), std::vector<std::string>{"web"});
  run.shell.run("ip access-list web", {"", 1});
  EXPECT_EQ(run.shell.complete("permit tcp any any eq ht"), (std::vector<std::string>{"http", "https"}));
  EXPECT_EQ(run.shell.help("permit tcp any any log co"),
            "  copy-to-cpu  copy matching packets to the CPU\n  count        count matching packets\n");
  EXPECT_EQ(run.shell.help("no 10 "),
            "  remark  a line of text between the entries\n  deny    drop matching packets\n"
            "  permit  let matching packets through\n  <cr>\n");

  // exit and quit end the shell at the top only; Ctrl-D is end in a list (which commits it).
  run.shell.run("20 deny ip any any", {"", 1});
  run.shell.endOfTyping();
  EXPECT_TRUE(run.shell.atTop());
  EXPECT_FALSE(run.shell.ended());
  EXPECT_NE(run.running().find("20 deny ip any any"), std::string::npos);
  run.shell.run("configure session late", {"", 1});
  run.shell.run("quit", {"", 1});
  run.shell.endOfTyping();
  EXPECT_FALSE(run.shell.ended());
  run.shell.run("abort", {"", 1});
  run.shell.run("quit", {"", 1});
  EXPECT_TRUE(run.shell.ended());

  // In a script a stray exit at the top is passed over; quit ends it.
  ShellRun script;
  EXPECT_TRUE(script.script("exit\nip access-list web\nexit\nexit\nquit\n"));
  EXPECT_TRUE(script.shell.ended());
  EXPECT_EQ(script.running(), "ip access-list web\n!\n");
}

TEST(AclshTest, ATerminalKeepsTheEditOpenAfterAFailedLine) {
  ShellRun run;
  const std::pair<const char*, const char*> lines[] = {{"configure session maint", "aclsh(config-s-maint)# "},
                                                       {"interface Ethernet1", "aclsh(config-s-maint-if-Ethernet1)# "},
                                                       {"exit", "aclsh(config-s-maint)# "},
                                                       {"abort", "aclsh# "},
                                                       {"ip access-list web", "aclsh(acl-web)# "},
                                                       {"10 remark caf\xe9", "aclsh(acl-web)# "},
                                                       {"10 permit tcp any any eq 443 bogus", "aclsh(acl-web)# "},
                                                       {"10 permit tcp any any eq 443", "aclsh(acl-web)# "},
                                                       {"exit", "aclsh# "}};
  for (const auto& [line, prompt] : lines) {
    run.shell.run(line, {"", 1});
    EXPECT_EQ(run.shell.prompt(), prompt) << line;
  }
  EXPECT_TRUE(run.shell.atTop());
  EXPECT_EQ(run.err.str(), "1:14: expected UTF-8 text\n1:30: expected an option or the end of the line\n");
  EXPECT_EQ(run.running(), "ip access-list web\n   10 permit tcp any any eq 443\n!\n");
}

}  // namespace
