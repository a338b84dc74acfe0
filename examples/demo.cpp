// A walk through the platform layer on the embedded state store: entities declared once,
// watched by a reactor, edited in a candidate copy and copied back, with traces.
//
//   aclkit-demo [--trace Facility/levels,...]      (default: Demo/0-9)
#include <cstdint>
#include <cstring>
#include <iostream>

#include "platform/fwk/Attributes.h"
#include "platform/fwk/Reflection.h"
#include "platform/session/EntityCopy.h"
#include "platform/store/StateStore.h"
#include "platform/trace/Trace.h"

namespace demo {

using fwk::Ptr;
using fwk::String;

fwk::TraceFacility& trace() { return fwk::TraceFacility::get("Demo"); }

#define DEMO_PORT_ATTRS(A)                       \
  A(scalar, description, fwk::String, {})        \
  A(scalar, enabled, bool, true)                 \
  A(orderedMap, allowedVlan, std::uint32_t, bool)

class Port : public fwk::Entity {
  FWK_ENTITY(Port, fwk::Entity, DEMO_PORT_ATTRS)

 public:
  explicit Port(const String& name) : Entity(name) {}
};

#define DEMO_SWITCH_ATTRS(A) A(scalar, hostname, fwk::String, {}) A(children, port, fwk::String, Port)

class SwitchConfig : public fwk::Entity {
  FWK_ENTITY(SwitchConfig, fwk::Entity, DEMO_SWITCH_ATTRS)

 public:
  explicit SwitchConfig(const String& name = String()) : Entity(name) {}
};

FWK_ENTITY_DEFINE(Port, DEMO_PORT_ATTRS)
FWK_ENTITY_DEFINE(SwitchConfig, DEMO_SWITCH_ATTRS)

// Reports every change made to the running configuration's ports.
class PortWatcher : public Port::Reactor {
 public:
  using Port::Reactor::Reactor;
  void descriptionChanged() override {
    FWK_TRACE(trace(), 1, notifier() << " description -> '" << notifier()->description() << "'");
  }
  void enabledChanged() override { FWK_TRACE(trace(), 1, notifier() << " enabled -> " << notifier()->enabled()); }
  void allowedVlanChanged(const std::uint32_t& vlan) override {
    FWK_TRACE(trace(), 1, notifier() << " vlan " << vlan << (notifier()->allowedVlan().contains(vlan) ? " added" : " removed"));
  }
};

int run() {
  fwk::StateStore& store = fwk::StateStore::instance();
  Ptr<SwitchConfig> running = store.mount<SwitchConfig>("demo/running");
  running->hostnameIs("leaf1");
  for (const char* name : {"Ethernet1", "Ethernet2"}) {
    Ptr<Port> port = running->portIs(name);
    port->allowedVlanIs(10, true);
  }
  FWK_TRACE(trace(), 0, "running configuration built at " << running);

  PortWatcher watchEth1(running->port("Ethernet1").get());
  PortWatcher watchEth2(running->port("Ethernet2").get());

  // A candidate copy: edits there are invisible to the running configuration's watchers.
  Ptr<SwitchConfig> candidate = store.mount<SwitchConfig>("demo/candidate");
  Ptr<Cli::Session::EntityCopy> copy = Cli::Session::entityCopyFactory();
  bool changed = copy->copyTree(candidate, running);
  FWK_TRACE(trace(), 0, "running -> candidate, changed: " << changed);

  candidate->port("Ethernet1")->descriptionIs("uplink");
  candidate->port("Ethernet1")->allowedVlanIs(20, true);
  candidate->port("Ethernet2")->enabledIs(false);
  candidate->port("Ethernet2")->enabledIs(false);  // no change, nobody hears it
  FWK_TRACE(trace(), 0, "candidate edited; committing");

  changed = copy->copyTree(running, candidate);
  FWK_TRACE(trace(), 0, "candidate -> running, changed: " << changed);
  changed = copy->copyTree(running, candidate);
  FWK_TRACE(trace(), 0, "again, changed: " << changed << " (only differences are ever written)");

  // Reflection: what a command front end or a script sees.
  for (const fwk::AttrInfo* attr : Port::staticType().attrs()) {
    std::cout << "Port." << attr->name() << " : " << attr->kind() << " of " << attr->valueTypeName() << '\n';
  }
  std::cout << "Ethernet1.description = " << fwk::getAttribute(*running->port("Ethernet1"), "description").strep()
            << '\n';
  return 0;
}

}  // namespace demo

int main(int argc, char** argv) {
  const char* traces = "Demo/0-9";
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--trace") == 0 && i + 1 < argc) {
      traces = argv[++i];
    } else {
      std::cerr << "usage: " << argv[0] << " [--trace Facility/levels,...]\n";
      return 2;
    }
  }
  try {
    fwk::enableTraces(traces);
    return demo::run();
  } catch (const std::exception& e) {
    std::cerr << "error: " << e.what() << '\n';
    return 1;
  }
}
