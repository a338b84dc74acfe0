// OpenConfig documents: the shared samples import exactly or not at all; our own documents
// exercise every mapping, wrapper and prefix; bad documents, and matches the model cannot carry,
// change nothing; export then import gives back the lists and bindings, and a list the document
// cannot carry fails the export or is left out whole.
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

// Makes list `name` hold exactly the entries, given as lines with their sequence numbers.
void put(const Client::Library& acl, const char* name, AclType type, std::initializer_list<const char*> entries) {
  std::vector<Client::ListEntry> all;
  for (const char* line : entries) {
    Text::Entry e = Text::parse(line, type);
    all.push_back({*e.sequence, e.body});
  }
  ASSERT_EQ(Client::replaceList(acl, name, type, all).state, AclApi::succeeded);
}

std::vector<std::string> texts(const std::vector<Finding>& findings) {
  std::vector<std::string> all;
  for (const Finding& f : findings) all.push_back(f.text());
  return all;
}

// A sample whose every match the model carries imports, each entry's description noted; one
// holding a match it cannot carry exactly is refused, naming it, and changes nothing.
TEST(OpenConfigSamplesTest, EverySharedSampleImportsExactlyOrNotAtAll) {
  const std::string detail =
      "test-filter (ACL_IPV4) entry 1: acl-sets/acl-set/acl-entries/acl-entry/transport/config/builtin-detail: ";
  const std::string inexact = " has no form here; the entry cannot be imported exactly";
  const std::tuple<const char*, const char*, std::string> samples[] = {
      {"v6_saddr", "ipv6 access-list test-v6-filter\n 1 permit ipv6 host 2001:4860:8000::5 any\n", ""},
      {"mixed_daddr",
       "ip access-list test-mixed-filter4\n 1 permit ip any host 10.2.3.4\n"
       "ipv6 access-list test-mixed-filter6\n 2 permit ipv6 any host 2001:4860:8000::5\n",
       ""},
      {"sport", "ip access-list test-filter\n 1 permit tcp any eq 53 any\n", ""},
      {"dport_tcp_established", "", detail + "TCP_ESTABLISHED" + inexact},
      {"everything", "", detail + "FRAGMENT" + inexact},
  };
  for (const auto& [name, lists, refusal] : samples) {
    SCOPED_TRACE(name);
    fwk::StateStore store;
    const Client::Library acl(store);
    try {
      const Interchange::ImportResult r = Interchange::importOpenConfig(
          acl, slurp(std::filesystem::path(ACLKIT_OPENCONFIG_SAMPLES) / (std::string(name) + ".json")));
      EXPECT_EQ(r.outcome.state, Client::Outcome::State::applied);
      EXPECT_EQ(refusal, "");
      const auto lines = static_cast<std::size_t>(std::ranges::count(std::string_view(lists), '\n'));
      EXPECT_EQ(r.findings.size(), lines - r.outcome.lists.size());  // one for each entry
      for (const Finding& f : r.findings)
        EXPECT_EQ(f.field, "acl-sets/acl-set/acl-entries/acl-entry/config/description");
    } catch (const Interchange::ImportError& e) {
      EXPECT_EQ(e.what(), refusal);
    }
    EXPECT_EQ(shown(acl), lists);
  }
}

TEST(OpenConfigTest, OwnDocumentMapsEveryFieldAndReportsTheRest) {
  fwk::StateStore store;
  const Client::Library acl(store);
  // own.json: the wrapper, prefixed member names and identities, all three families, every
  // mapped field (ICMP codes by identity, one alone), what changes no match, and bindings. On a
  // platform that supports no list at all, it is refused whole, naming each list it binds.
  const std::string ownDocument = slurp(std::filesystem::path(ACLKIT_INTERCHANGE_DOCUMENTS) / "own.json");
  const Interchange::ImportResult refused = Interchange::importOpenConfig(acl, ownDocument);
  EXPECT_EQ(refused.outcome.state, Client::Outcome::State::refused);
  EXPECT_EQ(refused.outcome.refusals,
            (std::vector<Client::Refusal>{{"ip access-list edge", "Acl not supported by hardware"},
                                          {"mac access-list l2", "Acl not supported by hardware"}}));
  EXPECT_EQ(Client::runningSnapshot(acl), Client::Snapshot{});

  acl.mounts().paramConfig->allSupportedIs(true);
  const Interchange::ImportResult r = Interchange::importOpenConfig(acl, ownDocument);
  EXPECT_EQ(r.outcome.state, Client::Outcome::State::applied);
  EXPECT_EQ(
      shown(acl),
      "ip access-list edge\n 10 permit tcp 198.51.100.0/24 range 1024 2047 any eq 443 syn ack dscp 46 log\n"
      " 20 deny icmp any any 3 4 dscp 10 ip-length eq 1500\n"
      "ipv6 access-list edge\n 5 deny ipv6 any 2001:db8::/32 hop-limit eq 1\n 6 permit icmpv6 any any 128 0\n"
      "mac access-list l2\n 7 permit host 00:00:5e:00:53:01 00:00:5e:00:53:00 ff:ff:ff:ff:ff:00 ethertype 0x0806\n");
  EXPECT_EQ(texts(r.findings),
            (std::vector<std::string>{"edge (ACL_IPV4) entry 20: acl-sets/acl-set/acl-entries/acl-entry/actions/config/"
                                      "forwarding-action: REJECT is imported as deny: no ICMP reply is sent",
                                      "system: not in this model; left out"}));
  EXPECT_EQ(Client::bindingsOf(*acl.mounts().intfConfig),
            (std::vector<Client::Binding>{{"Ethernet1", AclDirection::in, AclType::ip, "edge"},
                                          {"Ethernet1", AclDirection::out, AclType::mac, "l2"}}));
}

// A document the model cannot stand for, or that holds a match it cannot carry exactly, is
// refused whole, naming the entry and field.
TEST(OpenConfigTest, BadDocumentsChangeNothing) {
  fwk::StateStore store;
  const Client::Library acl(store);
  ASSERT_EQ(Client::replaceList(acl, "std", AclType::ip,
                                {{10, Text::parse("permit host 192.0.2.1", AclType::ip, true).body}}, true)
                .state,
            AclApi::succeeded);
  const Ptr<AclConfig> readOnly = acl.mounts().config->configIs(AclType::mac)->aclIs("ro", AclType::mac, false, true);
  readOnly->currCfgIs(readOnly->subConfigIs(UniqueId()));
  const std::string good = R"({"name": "a", "type": "ACL_IPV4", "acl-entries": {"acl-entry": [
      {"sequence-id": 1, "actions": {"config": {"forwarding-action": "ACCEPT"}}}]}})";
  auto withSet = [&](const std::string& set) { return R"({"acl-sets": {"acl-set": [)" + good + ", " + set + "]}}"; };
  // A set b (or another) with one entry: its sequence-id, then the members given.
  auto withEntry = [&](const std::string& members, const std::string& set = R"("b", "type": "ACL_IPV4")") {
    return withSet(R"({"name": )" + set + R"(, "acl-entries": {"acl-entry": [{"sequence-id": )" + members + "}]}}");
  };
  const std::string accept = R"(3, "actions": {"config": {"forwarding-action": "ACCEPT"}})";
  const std::string at = "acl-sets/acl-set/acl-entries/acl-entry";
  const std::string inexact = "; the entry cannot be imported exactly";
  const std::pair<std::string, std::string> bad[] = {
      {"[1]", "the document: expected an object"},
      {withSet(R"({"name": "m", "type": "ACL_MIXED"})"),
       "m (ACL_MIXED): acl-sets/acl-set/type: expected type ACL_IPV4, ACL_IPV6 or ACL_L2 (the lists here)"},
      {withEntry("0"), "b (ACL_IPV4): " + at + "/sequence-id: expected a sequence-id from 1 to 4294967295"},
      {withEntry("3"), "b (ACL_IPV4) entry 3: " + at + ": expected actions/config/forwarding-action"},
      {withEntry(accept + R"(, "ipv4": {"config": {"source-address": "192.0.2.300/32"}})"),
       "b (ACL_IPV4) entry 3: " + at + "/ipv4/config/source-address: expected an address"},
      {withEntry(accept + R"(, "ipv4": {"config": {"destination-address": "198.51.100.1/28"}})"),
       "b (ACL_IPV4) entry 3: " + at +
           "/ipv4/config/destination-address: expected a network address (no host bits set past the prefix length)"},
      {withEntry(accept + R"(, "ipv6": {"config": {"source-address": "2001:db8::1:0/96"}})",
                 R"("b", "type": "ACL_IPV6")"),
       "b (ACL_IPV6) entry 3: " + at +
           "/ipv6/config/source-address: expected a network address (no host bits set past the prefix length)"},
      {withEntry(accept + R"(, "transport": {"config": {"source-port": "9..1"}})"),
       "b (ACL_IPV4) entry 3: " + at + "/transport/config/source-port: expected a port, LOW..HIGH or ANY"},
      {withSet(good), "a (ACL_IPV4): acl-sets/acl-set/name: expected one acl-set per name and type"},
      {withEntry(accept + R"(, "ipv4": {"config": {"protocol": 6}})", R"("std", "type": "ACL_IPV4")"),
       "std (ACL_IPV4) entry 3: the list is a standard one and cannot hold it: no ACL line reads back as this "
       "record: a standard list matches on the source address alone"},
      {R"({"interfaces": {"interface": [{"id": "Ethernet1", "ingress-acl-sets": {"ingress-acl-set": [
            {"set-name": "a", "type": "ACL_IPV4"}, {"set-name": "b", "type": "ACL_IPV4"}]}}]}})",
       "interface Ethernet1: two ACL_IPV4 sets on ingress: a and b"},
      // Left out, these would widen or narrow the entry, empty the list, or move a binding.
      {withEntry(accept + R"(, "ipv4": {"config": {"source-address-prefix-set": "hosts"}})"),
       "b (ACL_IPV4) entry 3: " + at + "/ipv4/config/source-address-prefix-set: not in this model" + inexact},
      {withEntry(accept + R"(, "transport": {"config": {"destination-port-set": "web"}})"),
       "b (ACL_IPV4) entry 3: " + at + "/transport/config/destination-port-set: not in this model" + inexact},
      {withEntry(accept + R"(, "ipv6": {"config": {"source-flow-label": 7}})", R"("b", "type": "ACL_IPV6")"),
       "b (ACL_IPV6) entry 3: " + at + "/ipv6/config/source-flow-label: not in this model" + inexact},
      {withEntry(accept + R"(, "ipv4": {"other-module:options": {}})"),
       "b (ACL_IPV4) entry 3: " + at + "/ipv4/options: not in this model" + inexact},
      {withEntry(accept + R"(, "mpls": {"config": {"traffic-class": 1}})"),
       "b (ACL_IPV4) entry 3: " + at + "/mpls: not in this model" + inexact},
      {withEntry(accept + R"(, "ipv4": {"config": {"dscp-set": [10, 12]}})"),
       "b (ACL_IPV4) entry 3: " + at + "/ipv4/config/dscp-set: a match on any of several DSCP values has no form here" +
           inexact},
      {withEntry(accept + R"(, "transport": {"config": {"explicit-tcp-flags": ["TCP_SYN", "TCP_ACK"]}})"),
       "b (ACL_IPV4) entry 3: " + at +
           "/transport/config/explicit-tcp-flags: a match on any one of several flags has no form here" + inexact},
      {withEntry(accept + R"(, "transport": {"config": {"detail-mode": "EXPLICIT", "builtin-detail": "TCP_INITIAL"}})"),
       "b (ACL_IPV4) entry 3: " + at + "/transport/config/builtin-detail: not read in EXPLICIT detail-mode" + inexact},
      {withEntry(accept + R"(, "ipv4": {"config": {"protocol": 6}, "icmpv4": {"config": {"type": "ECHO"}}})"),
       "b (ACL_IPV4) entry 3: " + at +
           ": no ACL line reads back as this record: icmpType is set for a protocol that is not ICMP"},
      {withEntry(accept + R"(, "ipv4": {"icmpv4": {"config": {"type": "ECHO", "code": "DST_UNREACHABLE_PORT"}}})"),
       "b (ACL_IPV4) entry 3: " + at + "/ipv4/icmpv4/config/code: expected a code of type 8"},
      {withEntry(accept + R"(, "ipv4": {"icmpv4": {"config": {"code": 3}}})"),
       "b (ACL_IPV4) entry 3: " + at + "/ipv4/icmpv4/config/type: expected a type with a code given by number"},
      {withSet(R"({"name": "b", "type": "ACL_IPV4", "acl-entires": {"acl-entry": []}})"),
       "b (ACL_IPV4): acl-sets/acl-set/acl-entires: not in this model; the list cannot be imported exactly"},
      {withSet(R"({"name": "b", "type": "ACL_IPV4", "acl-entries": {"entry": []}})"),
       "b (ACL_IPV4): acl-sets/acl-set/acl-entries/entry: not in this model; the list cannot be imported exactly"},
      {R"({"interfaces": {"interface": [{"id": "Ethernet1", "ingres-acl-sets": {}}]}})",
       "interfaces/interface/ingres-acl-sets: not in this model; the bindings cannot be imported exactly"},
      {R"({"interfaces": {"interface": [
            {"id": "Ethernet1", "interface-ref": {"config": {"interface": "Ethernet2"}}}]}})",
       "interfaces/interface/interface-ref/config/interface: an interface other than Ethernet1 has no binding here; "
       "the bindings cannot be imported exactly"},
  };
  for (const auto& [doc, expected] : bad) {
    try {
      static_cast<void>(Interchange::importOpenConfig(acl, doc));
      ADD_FAILURE() << "accepted: " << doc;
    } catch (const Interchange::ImportError& e) {
      EXPECT_EQ(e.what(), expected);
    }
  }
  // A read-only list is the session's to refuse, as for any change.
  const Interchange::ImportResult refused =
      Interchange::importOpenConfig(acl, withEntry(accept, R"("ro", "type": "ACL_L2")"));
  EXPECT_EQ(refused.outcome.state, Client::Outcome::State::failed);
  EXPECT_EQ(refused.outcome.refusals, (std::vector<Client::Refusal>{{"mac access-list ro", "read-only"}}));
  EXPECT_EQ(shown(acl), "ip access-list standard std\n 10 permit host 192.0.2.1\nmac access-list ro\n");
  EXPECT_TRUE(Client::bindingsOf(*acl.mounts().intfConfig).empty());
}

TEST(OpenConfigTest, ExportThenImportReproducesListsAndBindings) {
  fwk::StateStore store;
  const Client::Library acl(store);
  acl.mounts().paramConfig->allSupportedIs(true);  // the hop-limit match
  // ICMP by identity (type alone, type and code) and by number where the models name none.
  put(acl, "web", AclType::ip,
      {"10 permit tcp 192.0.2.0/24 any range 80 81 syn !ack log", "20 deny udp host 203.0.113.9 eq 53 any dscp 10",
       "30 permit ip any any ttl eq 3 ip-length eq 60", "40 permit tcp any any fin syn rst psh ack urg ece cwr",
       "50 deny ip 198.51.100.0/24 any log", "60 permit icmp any any echo", "70 deny icmp any any 3 4",
       "80 permit icmp any any 3 200", "90 permit icmp any any 99 1"});
  put(acl, "web", AclType::ipv6,
      {"10 deny tcp 2001:db8::/48 eq 22 any hop-limit eq 255", "20 permit icmpv6 any any 1 4"});
  put(acl, "sw", AclType::mac,
      {"10 permit 00:00:5e:00:53:00 ff:ff:ff:ff:00:00 any ethertype 0x88cc", "20 deny any any"});
  put(acl, "empty", AclType::ip, {});
  // In the order bindingsOf gives: family, direction, interface.
  // TTL and hop-limit options are matches no platform programs: those lists stay unbound.
  const std::vector<Client::Binding> bindings{{"Ethernet1", AclDirection::in, AclType::ip, "empty"},
                                              {"Ethernet1", AclDirection::out, AclType::mac, "sw"}};
  ASSERT_EQ(Client::replaceBindings(acl, bindings).changes.size(), 2U);

  const Interchange::ExportResult out = Interchange::exportOpenConfig(acl);
  EXPECT_TRUE(out.findings.empty()) << texts(out.findings)[0];
  // exported.json: the document as the schema names things (each entry's key again under
  // config, and each binding's), written two spaces deep.
  EXPECT_EQ(out.json, slurp(std::filesystem::path(ACLKIT_INTERCHANGE_DOCUMENTS) / "exported.json"));

  fwk::StateStore other;
  const Client::Library copy(other);
  copy.mounts().paramConfig->allSupportedIs(true);
  EXPECT_EQ(Interchange::importOpenConfig(copy, out.json).outcome.state, Client::Outcome::State::applied);
  EXPECT_EQ(shown(copy), shown(acl));
  EXPECT_EQ(Client::bindingsOf(*copy.mounts().intfConfig), bindings);

  // lt and gt go out as the same ports, a range; a remark and a per-entry counter match
  // nothing, and are only noted.
  put(acl, "web", AclType::ip, {"5 remark edge", "10 permit tcp any any count", "20 permit tcp any lt 80 any gt 1023"});
  const Interchange::ExportResult noted = Interchange::exportOpenConfig(acl);
  EXPECT_EQ(texts(noted.findings),
            (std::vector<std::string>{"web (ACL_IPV4) entry 5: remark: not in the model; left out: edge",
                                      "web (ACL_IPV4) entry 10: count: not in the model; left out"}));
  EXPECT_EQ(Interchange::importOpenConfig(copy, noted.json).outcome.state, Client::Outcome::State::applied);
  EXPECT_EQ(Client::render(*copy.list(AclType::ip, "web"), " "),
            "ip access-list web\n 10 permit tcp any any\n 20 permit tcp any range 0 79 any range 1024 65535\n");
}

// An entry the document cannot carry exactly fails the export, naming the entry and what it
// holds beyond the document; asked to, the export leaves that list out whole instead.
TEST(OpenConfigTest, AListTheDocumentCannotCarryFailsTheExportOrIsLeftOutWhole) {
  fwk::StateStore store;
  const Client::Library acl(store);
  acl.mounts().paramConfig->allSupportedIs(true);
  put(acl, "ok", AclType::ip, {"10 permit ip any any"});
  ASSERT_EQ(Client::replaceBindings(acl, {{"Ethernet1", AclDirection::in, AclType::ip, "web"}}).changes.size(), 1U);
  const std::pair<const char*, std::string> refused[] = {
      {"20 permit tcp any any neq 80", "dstPort=neq 80"},
      {"20 deny ip 198.51.0.1 0.0.255.0 any log", "src=198.51.0.1, srcMask=255.255.0.255"},  // not a prefix
      {"20 permit ip any any vlan 10", "vlan=10, vlanMask=4095"},
      {"20 permit ip any any ttl gt 5", "ttlKind=gt, ttl=5"},
      {"20 permit tcp any any !syn", "tcpFlagsMask=2"},
      {"20 permit udp any any lt 0", "dstPort=lt 0"},
      {"20 permit ip any any mirror tap1", "mirrorSession=tap1"},
      {"20 permit ip any any payload 0 0x1 0xff", "payload=payload(0,0x1,0xff,,)"},
  };
  // The export's refusal, or nothing when it goes through.
  auto refusal = [&]() -> std::string {
    try {
      static_cast<void>(Interchange::exportOpenConfig(acl));
      return "";
    } catch (const Interchange::ExportError& e) {
      return e.what();
    }
  };
  for (const auto& [line, fields] : refused) {
    put(acl, "web", AclType::ip, {"10 permit ip any any", line});
    EXPECT_EQ(refusal(),
              "web (ACL_IPV4) entry 20: " + fields + ": not in the model; the list cannot be exported exactly");
  }
  // The list's binding stays: without it, importing the document would unbind the list.
  const Interchange::ExportResult skipped = Interchange::exportOpenConfig(acl, {.skipLists = true});
  EXPECT_EQ(texts(skipped.findings),
            (std::vector<std::string>{
                "web (ACL_IPV4) entry 20: payload=payload(0,0x1,0xff,,): not in the model; the list is left out"}));
  EXPECT_NE(skipped.json.find(R"("name": "ok")"), std::string::npos);
  EXPECT_EQ(skipped.json.find(R"("name": "web")"), std::string::npos);
  EXPECT_NE(skipped.json.find(R"("set-name": "web")"), std::string::npos);

  const Ptr<AclApi::ApiSm> fragments = acl.session("ok", AclType::ip, AclApi::commit_);
  ASSERT_EQ(fragments->enableFragments(), AclApi::succeeded);
  ASSERT_EQ(fragments->commit(), AclApi::succeeded);
  EXPECT_EQ(refusal(), "ok (ACL_IPV4): fragment-rules: not in the model; the list cannot be exported exactly");
}

}  // namespace
