// A small agent: it programs a software dataplane, puts a list and its binding in place as one
// change, adds an entry through an edit session, and asks the dataplane what a packet hits.
#include <aclkit/agent/Dataplane.h>
#include <aclkit/client/Change.h>
#include <aclkit/platform/store/StateStore.h>

#include <iostream>
#include <vector>

using Acl::AclDirection;
using Acl::AclType;

int main() {
  Client::Library acl(fwk::StateStore::instance());
  acl.platform().enableAll();                // what this platform can program
  Agent::Dataplane dp(acl.mounts(), "dp1");  // before the sessions that wait for it

  std::vector<Client::ListEntry> web;
  for (const char* line : {"10 permit tcp any host 192.0.2.1 eq https", "20 deny ip any any"}) {
    Text::Entry e = Text::parse(line, AclType::ip);
    web.push_back({*e.sequence, e.body});
  }
  Client::Change change;
  change.lists.push_back({AclType::ip, "web", false, web, {}, {}});  // not standard; flags as they are
  change.bindings = {{{"Ethernet1", AclDirection::in, AclType::ip, "web"}}};
  Client::Outcome done = Client::apply(acl, change);  // checked whole before anything is written
  for (const Client::Refusal& r : done.refusals) std::cerr << r.text() << '\n';
  if (done.state != Client::Outcome::State::applied) return 1;

  auto s = acl.session("web", AclType::ip, AclApi::commit_);
  Text::Entry dns = Text::parse("permit udp any host 192.0.2.1 eq 53", AclType::ip);
  if (s->addIpRule(15, std::get<Acl::IpRuleConfig>(dns.body)) != AclApi::succeeded) return 1;
  if (Client::commit(acl, s).state != Client::Outcome::State::applied) return 1;

  Agent::Packet p = Agent::Packet::ip(Acl::Ip4Addr::fwkParse("203.0.113.9"), Acl::Ip4Addr::fwkParse("192.0.2.1"), 17);
  p.dstPort = 53;
  Agent::Verdict v = dp.check(Acl::IntfId("Ethernet1"), AclDirection::in, p);
  std::cout << Client::render(*acl.list(AclType::ip, "web"));
  if (v.implicitDeny()) return 1;
  std::cout << "udp to 192.0.2.1 port 53: entry " << v.entry->sequence << '\n';
}
