// OpenConfig documents: the shared samples import and say what they hold beyond the model;
// our own documents exercise every mapping, wrapper and prefix; bad documents change nothing;
// and export then import gives back the lists and bindings.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "aclkit/interchange/OpenConfig.h"
#include "aclkit/platform/store/StateStore.h"

namespace {

using namespace Acl;
using Interchange::Finding;

std::string slurp(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Every list of every family, as the shell shows them.
std::string shown(const Client::Library& acl) {
  std::string all;
  for (AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    for (const Ptr<AclConfig>& list : acl.lists(type)) all += Client::render(*list, " ");
  }
  return all;
}

std::vector<std::string> texts(const std::vector<Finding>& findings) {
  std::vector<std::string> all;
  for (const Finding& f : findings) all.push_back(f.text());
  return all;
}

// Each entry's description is reported, by entry and field; beyond that, only the transport
// details named here.
TEST(OpenConfigSamplesTest, EverySharedSampleImportsAndReportsWhatItHoldsBeyondTheModel) {
  const std::string detail =
      " (ACL_IPV4) entry 1: acl-sets/acl-set/acl-entries/acl-entry/transport/config/builtin-detail: ";
  const std::tuple<const char*, const char*, std::vector<std::string>> samples[] = {
      {"v6_saddr", "ipv6 access-list test-v6-filter\n 1 permit ipv6 host 2001:4860:8000::5 any\n", {}},
      {"mixed_daddr",
       "ip access-list test-mixed-filter4\n 1 permit ip any host 10.2.3.4\n"
       "ipv6 access-list test-mixed-filter6\n 2 permit ipv6 any host 2001:4860:8000::5\n",
       {}},
      {"sport", "ip access-list test-filter\n 1 permit tcp any eq 53 any\n", {}},
      {"dport_tcp_established",
       "ip access-list test-filter\n 1 permit tcp any any eq 53 ack\n",
       {"test-filter" + detail + "TCP_ESTABLISHED is imported as ack: a packet with only RST set is not matched"}},
      {"everything",
       "ip access-list test-filter\n 1 permit udp host 10.2.3.4 host 10.2.3.4 eq 53\n"
       " 2 permit tcp host 10.2.3.4 host 10.2.3.4 eq 53 syn !ack\n",
       {"test-filter" + detail + "FRAGMENT has no per-entry match here; left out"}},
  };
  for (const auto& [name, lists, details] : samples) {
    SCOPED_TRACE(name);
    fwk::StateStore store;
    const Client::Library acl(store);
    const Interchange::ImportResult r = Interchange::importOpenConfig(
        acl, slurp(std::filesystem::path(ACLKIT_OPENCONFIG_SAMPLES) / (std::string(name) + ".json")));
    EXPECT_TRUE(r.complete);
    EXPECT_EQ(shown(acl), lists);
    std::vector<Finding> rest = r.findings;
    const std::size_t descriptions = std::erase_if(rest, [](const Finding& f) {
      return f.sequence && f.field == "acl-sets/acl-set/acl-entries/acl-entry/config/description";
    });
    const auto lines = static_cast<std::size_t>(std::ranges::count(std::string_view(lists), '\n'));
    EXPECT_EQ(descriptions, lines - r.lists.size());  // one for each entry
    EXPECT_EQ(texts(rest), details);
  }
}

TEST(OpenConfigTest, OwnDocumentMapsEveryFieldAndReportsTheRest) {
  fwk::StateStore store;
  const Client::Library acl(store);
  // own.json: the wrapper, prefixed member names and identities, all three families, every
  // mapped field, what is left out, and bindings. On a platform without hop-limit matches the
  // attach of the IPv6 list is refused, and the import stops there, the lists committed and the
  // first binding made.
  const std::string ownDocument = slurp(std::filesystem::path(ACLKIT_INTERCHANGE_DOCUMENTS) / "own.json");
  const Interchange::ImportResult stopped = Interchange::importOpenConfig(acl, ownDocument);
  EXPECT_FALSE(stopped.complete);
  EXPECT_EQ(stopped.lists.size(), 3U);
  ASSERT_EQ(stopped.bindings->changes.size(), 2U);
  EXPECT_EQ(stopped.bindings->changes[0].state, AclApi::succeeded);
  EXPECT_EQ(stopped.bindings->changes[1].state, AclApi::errAclApi);
  EXPECT_EQ(Client::bindingsOf(*acl.mounts().intfConfig).size(), 1U);

  acl.mounts().paramConfig->allSupportedIs(true);
  const Interchange::ImportResult r = Interchange::importOpenConfig(acl, ownDocument);
  EXPECT_TRUE(r.complete);
  for (const auto& list : r.lists) EXPECT_EQ(list.result.session, nullptr) << list.name;
  EXPECT_EQ(
      shown(acl),
      "ip access-list edge\n 10 permit tcp 198.51.100.0/24 range 1024 2047 any eq 443 syn ack dscp 46 ttl eq 64 log\n"
      " 20 deny udp any any ip-length eq 1500\n"
      "ipv6 access-list edge\n 5 deny ipv6 any 2001:db8::/32 hop-limit eq 1\n"
      "mac access-list l2\n 7 permit host 00:00:5e:00:53:01 00:00:5e:00:53:00 ff:ff:ff:ff:ff:00 ethertype 0x0806\n");
  const std::string entry = "acl-sets/acl-set/acl-entries/acl-entry/";
  EXPECT_EQ(texts(r.findings),
            (std::vector<std::string>{
                "edge (ACL_IPV4) entry 10: " + entry + "ipv4/config/fragment-offsets: not in this model; left out",
                "edge (ACL_IPV4) entry 10: " + entry +
                    "transport/config/builtin-detail: not read in EXPLICIT detail-mode; left out",
                "edge (ACL_IPV4) entry 20: " + entry +
                    "actions/config/forwarding-action: REJECT is imported as deny: no ICMP reply is sent",
                "edge (ACL_IPV4) entry 20: " + entry +
                    "ipv4/config/dscp-set: a match on any of several DSCP values has no form here; left out",
                "edge (ACL_IPV4) entry 20: " + entry + "ipv4/icmpv4: not in this model; left out",
                "edge (ACL_IPV6) entry 5: " + entry + "ipv6/config/source-flow-label: not in this model; left out",
                "interfaces/interface/interface-ref: not in this model; left out"}));
  EXPECT_EQ(Client::bindingsOf(*acl.mounts().intfConfig),
            (std::vector<Client::Binding>{{"Ethernet1", AclDirection::in, AclType::ip, "edge"},
                                          {"Ethernet1", AclDirection::in, AclType::ipv6, "edge"},
                                          {"Ethernet1", AclDirection::out, AclType::mac, "l2"}}));
}

TEST(OpenConfigTest, BadDocumentsChangeNothing) {
  fwk::StateStore store;
  const Client::Library acl(store);
  ASSERT_EQ(Client::replaceList(acl, "std", AclType::ip,
                                {{10, Text::parse("permit host 192.0.2.1", AclType::ip, true).body}}, true)
                .state,
            AclApi::succeeded);
  acl.mounts().config->configIs(AclType::mac)->aclIs("ro", AclType::mac, false, true);
  const std::string good = R"({"name": "a", "type": "ACL_IPV4", "acl-entries": {"acl-entry": [
      {"sequence-id": 1, "actions": {"config": {"forwarding-action": "ACCEPT"}}}]}})";
  auto withSet = [&](const std::string& set) { return R"({"acl-sets": {"acl-set": [)" + good + ", " + set + "]}}"; };
  // A set b (or another) with one entry: its sequence-id, then the members given.
  auto withEntry = [&](const std::string& members, const std::string& set = R"("b", "type": "ACL_IPV4")") {
    return withSet(R"({"name": )" + set + R"(, "acl-entries": {"acl-entry": [{"sequence-id": )" + members + "}]}}");
  };
  const std::string accept = R"(3, "actions": {"config": {"forwarding-action": "ACCEPT"}})";
  const std::string at = "acl-sets/acl-set/acl-entries/acl-entry";
  const std::pair<std::string, std::string> bad[] = {
      {"[1]", "the document: expected an object"},
      {withSet(R"({"name": "m", "type": "ACL_MIXED"})"),
       "m (ACL_MIXED): acl-sets/acl-set/type: expected type ACL_IPV4, ACL_IPV6 or ACL_L2 (the lists here)"},
      {withEntry("0"), "b (ACL_IPV4): " + at + "/sequence-id: expected a sequence-id from 1 to 4294967295"},
      {withEntry("3"), "b (ACL_IPV4) entry 3: " + at + ": expected actions/config/forwarding-action"},
      {withEntry(accept + R"(, "ipv4": {"config": {"source-address": "192.0.2.300/32"}})"),
       "b (ACL_IPV4) entry 3: " + at + "/ipv4/config/source-address: expected an address"},
      {withEntry(accept + R"(, "transport": {"config": {"source-port": "9..1"}})"),
       "b (ACL_IPV4) entry 3: " + at + "/transport/config/source-port: expected a port, LOW..HIGH or ANY"},
      {withSet(good), "a (ACL_IPV4): acl-sets/acl-set/name: expected one acl-set per name and type"},
      {withEntry(accept + R"(, "ipv4": {"config": {"protocol": 6}})", R"("std", "type": "ACL_IPV4")"),
       "std (ACL_IPV4) entry 3: the list is a standard one and cannot hold it: no ACL line reads back as this "
       "record: a standard list matches on the source address alone"},
      {withEntry(accept, R"("ro", "type": "ACL_L2")"), "ro (ACL_L2): the list is read-only"},
      {R"({"interfaces": {"interface": [{"id": "Ethernet1", "ingress-acl-sets": {"ingress-acl-set": [
            {"set-name": "a", "type": "ACL_IPV4"}, {"set-name": "b", "type": "ACL_IPV4"}]}}]}})",
       "interface Ethernet1: two ACL_IPV4 sets on ingress: a and b"},
  };
  for (const auto& [doc, expected] : bad) {
    try {
      static_cast<void>(Interchange::importOpenConfig(acl, doc));
      ADD_FAILURE() << "accepted: " << doc;
    } catch (const Interchange::ImportError& e) {
      EXPECT_EQ(e.what(), expected);
    }
  }
  EXPECT_EQ(shown(acl), "ip access-list standard std\n 10 permit host 192.0.2.1\nmac access-list ro\n");
  EXPECT_TRUE(Client::bindingsOf(*acl.mounts().intfConfig).empty());
}

TEST(OpenConfigTest, ExportThenImportReproducesListsAndBindings) {
  fwk::StateStore store;
  const Client::Library acl(store);
  acl.mounts().paramConfig->allSupportedIs(true);  // the hop-limit match
  auto put = [&](const char* name, AclType type, std::initializer_list<const char*> entries) {
    std::vector<Client::ListEntry> all;
    for (const char* line : entries) {
      Text::Entry e = Text::parse(line, type);
      all.push_back({*e.sequence, e.body});
    }
    ASSERT_EQ(Client::replaceList(acl, name, type, all).state, AclApi::succeeded);
  };
  put("web", AclType::ip,
      {"10 permit tcp 192.0.2.0/24 any range 80 81 syn !ack log", "20 deny udp host 203.0.113.9 eq 53 any dscp 10",
       "30 permit ip any any ttl eq 3 ip-length eq 60", "40 permit tcp any any fin syn rst psh ack urg ece cwr"});
  put("web", AclType::ipv6, {"10 deny tcp 2001:db8::/48 eq 22 any hop-limit eq 255"});
  put("sw", AclType::mac, {"10 permit 00:00:5e:00:53:00 ff:ff:ff:ff:00:00 any ethertype 0x88cc", "20 deny any any"});
  put("empty", AclType::ip, {});
  // In the order bindingsOf gives: family, direction, interface.
  const std::vector<Client::Binding> bindings{{"Ethernet1", AclDirection::in, AclType::ip, "web"},
                                              {"Ethernet2", AclDirection::in, AclType::ipv6, "web"},
                                              {"Ethernet1", AclDirection::out, AclType::mac, "sw"}};
  ASSERT_EQ(Client::replaceBindings(acl, bindings).changes.size(), 3U);

  const Interchange::ExportResult out = Interchange::exportOpenConfig(acl);
  EXPECT_TRUE(out.findings.empty()) << texts(out.findings)[0];
  // exported.json: the document as the schema names things (each entry's key again under
  // config, and each binding's), written two spaces deep.
  EXPECT_EQ(out.json, slurp(std::filesystem::path(ACLKIT_INTERCHANGE_DOCUMENTS) / "exported.json"));

  fwk::StateStore other;
  const Client::Library copy(other);
  copy.mounts().paramConfig->allSupportedIs(true);
  EXPECT_TRUE(Interchange::importOpenConfig(copy, out.json).complete);
  EXPECT_EQ(shown(copy), shown(acl));
  EXPECT_EQ(Client::bindingsOf(*copy.mounts().intfConfig), bindings);

  // What a record holds beyond the model goes out without it, named; lt and gt go out as the
  // same ports, a range.
  put("web", AclType::ip,
      {"5 remark edge", "10 permit tcp any any neq 80 vlan 10 count", "20 permit tcp any lt 80 any gt 1023"});
  const Interchange::ExportResult lossy = Interchange::exportOpenConfig(acl);
  EXPECT_EQ(texts(lossy.findings),
            (std::vector<std::string>{"web (ACL_IPV4) entry 5: remark: not in the model; left out: edge",
                                      "web (ACL_IPV4) entry 10: IpRuleConfig{count=true, filter=IpFilter{dstPort=neq "
                                      "80, vlan=10, vlanMask=4095}}: not in the model; left out"}));
  EXPECT_TRUE(Interchange::importOpenConfig(copy, lossy.json).complete);
  EXPECT_EQ(Client::render(*copy.list(AclType::ip, "web"), " "),
            "ip access-list web\n 10 permit tcp any any\n 20 permit tcp any range 0 79 any range 1024 65535\n");
}

}  // namespace
