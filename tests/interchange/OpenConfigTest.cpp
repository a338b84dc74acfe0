// OpenConfig documents: the shared samples import and say what they hold beyond the model;
// our own documents exercise every mapping, wrapper and prefix; bad documents change nothing;
// and export then import gives back the lists and bindings.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
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

// The list's entries as lines of the syntax.
std::vector<std::string> lines(const Client::Library& acl, AclType type, const char* name) {
  std::vector<std::string> all;
  const Ptr<AclConfig> list = acl.list(type, name);
  if (!list || !list->currCfg()) return all;
  for (const Client::ListEntry& e : Client::entriesOf(*list->currCfg(), type)) all.push_back(Client::render(e, false));
  return all;
}

std::vector<std::string> texts(const std::vector<Finding>& findings) {
  std::vector<std::string> all;
  for (const Finding& f : findings) all.push_back(f.text());
  return all;
}

TEST(OpenConfigSamplesTest, EverySharedSampleImportsAndReportsWhatItHoldsBeyondTheModel) {
  std::size_t samples = 0;
  for (const auto& file : std::filesystem::directory_iterator(ACLKIT_OPENCONFIG_SAMPLES)) {
    if (file.path().extension() != ".json") continue;
    ++samples;
    SCOPED_TRACE(file.path().filename().string());
    const std::string text = slurp(file.path());
    const nlohmann::json doc = nlohmann::json::parse(text);
    fwk::StateStore store;
    const Client::Library acl(store);
    const Interchange::ImportResult r = Interchange::importOpenConfig(acl, text);
    EXPECT_TRUE(r.complete);
    ASSERT_EQ(r.lists.size(), doc["acl-sets"]["acl-set"].size());
    std::size_t entries = 0;
    for (const auto& set : doc["acl-sets"]["acl-set"]) {
      const std::string name = set["name"];
      const AclType type = set["type"] == "ACL_IPV6" ? AclType::ipv6 : AclType::ip;
      EXPECT_EQ(lines(acl, type, name.c_str()).size(), set["acl-entries"]["acl-entry"].size());
      entries += set["acl-entries"]["acl-entry"].size();
    }
    // Every entry's description is reported, by entry and field, and nothing else but the
    // transport details below.
    std::size_t descriptions = 0;
    for (const Finding& f : r.findings) {
      ASSERT_TRUE(f.sequence.has_value()) << f.text();
      descriptions += f.field == "acl-sets/acl-set/acl-entries/acl-entry/config/description" ? 1 : 0;
    }
    EXPECT_EQ(descriptions, entries);
    if (file.path().filename() == "everything.json") {
      EXPECT_EQ(lines(acl, AclType::ip, "test-filter"),
                (std::vector<std::string>{"1 permit udp host 10.2.3.4 host 10.2.3.4 eq 53",
                                          "2 permit tcp host 10.2.3.4 host 10.2.3.4 eq 53 syn !ack"}));
      EXPECT_EQ(texts(r.findings)[1],
                "test-filter (ACL_IPV4) entry 1: acl-sets/acl-set/acl-entries/acl-entry/transport/config/"
                "builtin-detail: FRAGMENT has no per-entry match here; left out");
      EXPECT_EQ(r.findings.size(), 3U);
    }
    if (file.path().filename() == "dport_tcp_established.json") {
      EXPECT_EQ(lines(acl, AclType::ip, "test-filter"), std::vector<std::string>{"1 permit tcp any any eq 53 ack"});
      EXPECT_EQ(r.findings.size(), 2U);
    }
    if (file.path().filename() == "mixed_daddr.json") {
      EXPECT_EQ(lines(acl, AclType::ipv6, "test-mixed-filter6"),
                std::vector<std::string>{"2 permit ipv6 any host 2001:4860:8000::5"});
    }
    if (entries == descriptions && file.path().filename() != "everything.json" &&
        file.path().filename() != "dport_tcp_established.json") {
      EXPECT_EQ(r.findings.size(), entries);
    }
  }
  EXPECT_EQ(samples, 5U) << "the public samples are expected in " << ACLKIT_OPENCONFIG_SAMPLES;
}

TEST(OpenConfigTest, OwnDocumentMapsEveryFieldAndReportsTheRest) {
  fwk::StateStore store;
  const Client::Library acl(store);
  // A platform without hop-limit matches: the attach of the IPv6 list is refused, and the
  // import stops there, with the lists committed and the first binding made.
  // own.json: the wrapper, prefixed member names and identities, all three families, every
  // mapped field, what is left out, and bindings.
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
  EXPECT_EQ(lines(acl, AclType::ip, "edge"),
            (std::vector<std::string>{
                "10 permit tcp 198.51.100.0/24 range 1024 2047 any eq 443 syn ack dscp 46 ttl eq 64 log",
                "20 deny udp any any ip-length eq 1500"}));
  EXPECT_EQ(lines(acl, AclType::ipv6, "edge"),
            std::vector<std::string>{"5 deny ipv6 any 2001:db8::/32 hop-limit eq 1"});
  EXPECT_EQ(
      lines(acl, AclType::mac, "l2"),
      std::vector<std::string>{"7 permit host 00:00:5e:00:53:01 00:00:5e:00:53:00 ff:ff:ff:ff:ff:00 ethertype 0x0806"});
  const std::string entry = "acl-sets/acl-set/acl-entries/acl-entry/";
  EXPECT_EQ(texts(r.findings),
            (std::vector<std::string>{
                "edge (ACL_IPV4) entry 10: " + entry + "ipv4/config/fragment-offsets: not in this model; left out",
                "edge (ACL_IPV4) entry 10: " + entry +
                    "transport/config/builtin-detail: not read in EXPLICIT detail-mode; left out",
                "edge (ACL_IPV4) entry 20: " + entry +
                    "actions/config/forwarding-action: REJECT is imported as deny: "
                    "no ICMP reply is sent",
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
  auto refused = [&](const std::string& doc, const std::string& expected) {
    try {
      static_cast<void>(Interchange::importOpenConfig(acl, doc));
      ADD_FAILURE() << "accepted: " << doc;
    } catch (const Interchange::ImportError& e) {
      EXPECT_EQ(e.what(), expected);
    }
    EXPECT_EQ(acl.lists(AclType::ip).size(), 1U);
    EXPECT_TRUE(Client::bindingsOf(*acl.mounts().intfConfig).empty());
  };
  const std::string good = R"({"name": "a", "type": "ACL_IPV4", "acl-entries": {"acl-entry": [
      {"sequence-id": 1, "actions": {"config": {"forwarding-action": "ACCEPT"}}}]}})";
  auto withSet = [&](const std::string& set) { return R"({"acl-sets": {"acl-set": [)" + good + ", " + set + "]}}"; };
  refused("[1]", "the document: expected an object");
  refused(withSet(R"({"name": "m", "type": "ACL_MIXED"})"),
          "m (ACL_MIXED): acl-sets/acl-set/type: expected type ACL_IPV4, ACL_IPV6 or ACL_L2 (the lists here)");
  refused(withSet(R"({"name": "b", "type": "ACL_IPV4", "acl-entries": {"acl-entry": [{"sequence-id": 0}]}})"),
          "b (ACL_IPV4): acl-sets/acl-set/acl-entries/acl-entry/sequence-id: expected a sequence-id from 1 to "
          "4294967295");
  refused(withSet(R"({"name": "b", "type": "ACL_IPV4", "acl-entries": {"acl-entry": [{"sequence-id": 3}]}})"),
          "b (ACL_IPV4) entry 3: acl-sets/acl-set/acl-entries/acl-entry: expected actions/config/forwarding-action");
  refused(withSet(R"({"name": "b", "type": "ACL_IPV4", "acl-entries": {"acl-entry": [{"sequence-id": 3,
            "actions": {"config": {"forwarding-action": "ACCEPT"}},
            "ipv4": {"config": {"source-address": "192.0.2.300/32"}}}]}})"),
          "b (ACL_IPV4) entry 3: acl-sets/acl-set/acl-entries/acl-entry/ipv4/config/source-address: expected an "
          "address");
  refused(withSet(R"({"name": "b", "type": "ACL_IPV4", "acl-entries": {"acl-entry": [{"sequence-id": 3,
            "actions": {"config": {"forwarding-action": "ACCEPT"}}, "transport": {"config": {"source-port": "9..1"}}}]}})"),
          "b (ACL_IPV4) entry 3: acl-sets/acl-set/acl-entries/acl-entry/transport/config/source-port: expected a "
          "port, LOW..HIGH or ANY");
  refused(withSet(good), "a (ACL_IPV4): acl-sets/acl-set/name: expected one acl-set per name and type");
  refused(withSet(R"({"name": "std", "type": "ACL_IPV4", "acl-entries": {"acl-entry": [{"sequence-id": 3,
            "actions": {"config": {"forwarding-action": "ACCEPT"}}, "ipv4": {"config": {"protocol": 6}}}]}})"),
          "std (ACL_IPV4) entry 3: the list is a standard one and cannot hold it: no ACL line reads back as this "
          "record: a standard list matches on the source address alone");
  acl.mounts().config->configIs(AclType::mac)->aclIs("ro", AclType::mac, false, true);
  refused(withSet(R"({"name": "ro", "type": "ACL_L2", "acl-entries": {"acl-entry": [{"sequence-id": 3,
            "actions": {"config": {"forwarding-action": "ACCEPT"}}}]}})"),
          "ro (ACL_L2): the list is read-only");
  refused(R"({"interfaces": {"interface": [{"id": "Ethernet1", "ingress-acl-sets": {"ingress-acl-set": [
            {"set-name": "a", "type": "ACL_IPV4"}, {"set-name": "b", "type": "ACL_IPV4"}]}}]}})",
          "interface Ethernet1: two ACL_IPV4 sets on ingress: a and b");
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

  // Into the same store: nothing differs, so no list opens a session and every binding stays.
  const Interchange::ImportResult same = Interchange::importOpenConfig(acl, out.json);
  ASSERT_EQ(same.lists.size(), 4U);
  for (const auto& list : same.lists) EXPECT_EQ(list.result.session, nullptr) << list.name;
  ASSERT_TRUE(same.bindings.has_value());
  for (const auto& change : same.bindings->changes) EXPECT_EQ(change.kind, Client::BindingChange::Kind::kept);

  fwk::StateStore other;
  const Client::Library copy(other);
  copy.mounts().paramConfig->allSupportedIs(true);
  EXPECT_TRUE(Interchange::importOpenConfig(copy, out.json).complete);
  for (AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    for (const Ptr<AclConfig>& list : acl.lists(type)) {
      const std::string name(list->name().view());
      EXPECT_EQ(lines(copy, type, name.c_str()), lines(acl, type, name.c_str())) << name;
    }
    EXPECT_EQ(copy.lists(type).size(), acl.lists(type).size());
  }
  EXPECT_EQ(Client::bindingsOf(*copy.mounts().intfConfig), bindings);

  // What a record holds beyond the model goes out without it, named.
  put("web", AclType::ip, {"5 remark edge", "10 permit tcp any any neq 80 vlan 10 count"});
  const Interchange::ExportResult lossy = Interchange::exportOpenConfig(acl);
  EXPECT_EQ(texts(lossy.findings),
            (std::vector<std::string>{"web (ACL_IPV4) entry 5: remark: not in the model; left out: edge",
                                      "web (ACL_IPV4) entry 10: IpRuleConfig{count=true, filter=IpFilter{dstPort=neq "
                                      "80, vlan=10, vlanMask=4095}}: not in the model; left out"}));
}

}  // namespace
