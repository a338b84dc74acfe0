// The reference dataplanes and the packet check: a script commits, sees the session wait,
// lets the dataplanes program, and asks which entry a packet hits.
#include <pybind11/stl.h>

#include <limits>
#include <memory>
#include <variant>

#include "aclkit/agent/Dataplane.h"
#include "aclkit/client/Library.h"
#include "aclkit/python/internal/Bindings.h"

namespace Python {

namespace {

using Agent::Dataplane;
using Agent::Packet;

py::object ruleOf(const Agent::Rule& rule) {
  return std::visit([](const auto& r) { return py::cast(r); }, rule);
}

// A packet of the constructor's family with the other fields given by name.
template <auto Make, class Address>
py::object packet(const Address& src, const Address& dst, std::uint32_t third, const py::kwargs& fields) {
  py::object made = py::cast(Make(src, dst, third));
  for (auto [name, value] : fields) py::setattr(made, name, value);
  return made;
}

Packet ipPacket(Acl::Ip4Addr src, Acl::Ip4Addr dst, std::uint32_t protocol) {
  return Packet::ip(src, dst, static_cast<Acl::U8>(protocol));
}
Packet ip6Packet(Acl::Ip6Addr src, Acl::Ip6Addr dst, std::uint32_t protocol) {
  return Packet::ip6(src, dst, static_cast<Acl::U8>(protocol));
}
Packet macPacket(Acl::MacAddr src, Acl::MacAddr dst, std::uint32_t ethertype) {
  return Packet::mac(src, dst, static_cast<Acl::U16>(ethertype));
}

}  // namespace

void bindAgents(py::module_& m) {
  py::class_<Packet>(m, "Packet",
                     "What the packet check reads of a packet. Made by Packet.ip, Packet.ip6 or Packet.mac with "
                     "the other fields by name (srcPort=..., dstPort=..., tcpFlags=..., outerVlan=...).")
      .def_static("ip", &packet<&ipPacket, Acl::Ip4Addr>, py::arg("src"), py::arg("dst"), py::arg("protocol") = 0)
      .def_static("ip6", &packet<&ip6Packet, Acl::Ip6Addr>, py::arg("src"), py::arg("dst"), py::arg("protocol") = 0)
      .def_static("mac", &packet<&macPacket, Acl::MacAddr>, py::arg("src"), py::arg("dst"), py::arg("ethertype") = 0)
      .def_readwrite("family", &Packet::family)
      .def_readwrite("src4", &Packet::src4)
      .def_readwrite("dst4", &Packet::dst4)
      .def_readwrite("src6", &Packet::src6)
      .def_readwrite("dst6", &Packet::dst6)
      .def_readwrite("srcMac", &Packet::srcMac)
      .def_readwrite("dstMac", &Packet::dstMac)
      .def_readwrite("protocol", &Packet::protocol)
      .def_readwrite("srcPort", &Packet::srcPort)
      .def_readwrite("dstPort", &Packet::dstPort)
      .def_readwrite("tcpFlags", &Packet::tcpFlags)
      .def_readwrite("icmpType", &Packet::icmpType)
      .def_readwrite("icmpCode", &Packet::icmpCode)
      .def_readwrite("dscp", &Packet::dscp)
      .def_readwrite("ecn", &Packet::ecn)
      .def_readwrite("ttl", &Packet::ttl)
      .def_readwrite("ipLength", &Packet::ipLength)
      .def_readwrite("vrf", &Packet::vrf)
      .def_readwrite("outerVlan", &Packet::outerVlan)
      .def_readwrite("innerVlan", &Packet::innerVlan)
      .def_readwrite("ethertype", &Packet::ethertype)
      .def_readwrite("mplsLabels", &Packet::mplsLabels);

  py::class_<Agent::Verdict>(m, "Verdict", "The outcome of a packet check.")
      .def_readonly("action", &Agent::Verdict::action)
      .def_property_readonly("implicitDeny", &Agent::Verdict::implicitDeny, "No entry matched.")
      .def_readonly("acl", &Agent::Verdict::acl, "The list programmed there; empty when there is no table.")
      .def_property_readonly(
          "sequence",
          [](const Agent::Verdict& v) {
            return v.entry ? py::object(py::int_(v.entry->sequence)) : py::object(py::none());
          },
          "The sequence of the entry that matched, or None.")
      .def_property_readonly(
          "rule", [](const Agent::Verdict& v) { return v.entry ? ruleOf(v.entry->rule) : py::object(py::none()); },
          "The rule that matched, or None.");

  py::class_<Dataplane>(m, "Dataplane",
                        "A reference software dataplane on a Library's mounts: programs the bound lists when asked "
                        "and reports in its status record (its name). Make it before the sessions that wait for it.")
      .def(py::init([](const Client::Library& lib, const fwk::String& name) {
             return std::make_unique<Dataplane>(lib.mounts(), name);
           }),
           py::arg("library"), py::arg("name"), py::keep_alive<1, 2>())
      .def_property_readonly("name", &Dataplane::name)
      .def_property_readonly(
          "status", [](const Dataplane& d) { return fwk::Ptr<fwk::Entity>(d.status()); }, "Its StatusDp entity.")
      .def_property("waitForHwStatus", &Dataplane::waitForHwStatus, &Dataplane::waitForHwStatusIs,
                    "Whether sessions wait for it.")
      .def_property(
          "capacity",
          [](const Dataplane& d) {
            return d.capacity() == Dataplane::unlimited ? py::object(py::none()) : py::object(py::int_(d.capacity()));
          },
          [](Dataplane& d, const std::optional<std::size_t>& entries) {
            d.capacityIs(entries.value_or(Dataplane::unlimited));
          },
          "The most entries its tables hold together; None for no limit.")
      .def_property("delay", &Dataplane::delay, &Dataplane::delayIs, "Events between a request and its answer.")
      .def_property(
          "forcedError", [](const Dataplane& d) { return d.forcedError().str(); },
          [](Dataplane& d, const std::optional<fwk::String>& reason) {
            d.forcedErrorIs(reason.value_or(fwk::String()));
          },
          "Runs fail with this reason while it is set; '' or None clears it.")
      .def("tick", &Dataplane::tick, "One event: a delayed answer comes one event closer.")
      .def_property_readonly("pending", &Dataplane::pending, "A request is waiting for its answer.")
      .def_property_readonly("upToDate", &Dataplane::upToDate, "It answered the latest request, and programmed.")
      .def_property_readonly("entryCount", &Dataplane::entryCount)
      .def_property_readonly(
          "lastRun",
          [](const Dataplane& d) {
            const Agent::RunReport& r = d.lastRun();
            py::dict run;
            run["run"] = r.run;
            run["requestTime"] = r.requestTime;
            run["added"] = r.added;
            run["removed"] = r.removed;
            run["kept"] = r.kept;
            run["errorKey"] = r.errorKey.str();
            run["error"] = r.error.str();
            return run;
          },
          "What the last run did.")
      .def_property_readonly(
          "tables",
          [](const Dataplane& d) {
            py::dict all;
            for (const auto& [key, table] : d.tables()) {
              py::list entries;
              table.forEachEntry([&](Acl::U32 sequence, const auto& rule) {
                entries.append(py::make_tuple(sequence, ruleOf(Agent::Rule(rule))));
                return false;
              });
              all[py::make_tuple(key.family, key.intf, key.direction)] = py::make_tuple(table.acl.str(), entries);
            }
            return all;
          },
          "{(family, interface, direction): (list name, [(sequence, rule), ...])}")
      .def("check", &Dataplane::check, py::arg("intf"), py::arg("direction"), py::arg("packet"),
           "The first entry of the table for the packet's family, the interface and the direction that matches, "
           "or the implicit deny.");
}

}  // namespace Python
