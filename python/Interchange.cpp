// Declarative replace and OpenConfig from Python: a whole list or the whole set of bindings
// handed over as it must be, and OpenConfig ACL documents read and written, as aclsh's
// replace, import openconfig and export openconfig do.
#include <pybind11/stl.h>

#include <string>
#include <tuple>
#include <vector>

#include "aclkit/client/Replace.h"
#include "aclkit/interchange/OpenConfig.h"
#include "aclkit/python/internal/Bindings.h"

namespace Python {

namespace {

using BindingTuple = std::tuple<fwk::String, Acl::AclDirection, Acl::AclType, fwk::String>;

BindingTuple tupleOf(const Client::Binding& b) {
  return {b.interface, b.direction, b.type, b.list};
}

std::vector<std::string> textsOf(const std::vector<Interchange::Finding>& findings) {
  std::vector<std::string> texts;
  texts.reserve(findings.size());
  for (const Interchange::Finding& f : findings) texts.push_back(f.text());
  return texts;
}

const char* kindName(Client::BindingChange::Kind kind) {
  switch (kind) {
    case Client::BindingChange::Kind::attached:
      return "attached";
    case Client::BindingChange::Kind::detached:
      return "detached";
    default:
      return "kept";
  }
}

py::list changesOf(const Client::BindingsResult& result) {
  py::list changes;
  for (const Client::BindingChange& c : result.changes) {
    changes.append(py::make_tuple(kindName(c.kind), tupleOf(c.binding), c.state, c.session));
  }
  return changes;
}

const char* const replaceDoc =
    "Makes the list hold exactly `entries` ((sequence, rule or Remark) pairs, any order) in one commit "
    "session: unchanged entries are not touched, entries found at another number are moved, the rest "
    "removed or added. A list equal to `entries` opens no session. ValueError (changing nothing) for a "
    "sequence 0, a sequence given twice, a rule of another family or one the platform would cut short.";

}  // namespace

void bindInterchange(py::module_& m) {
  py::register_exception<Interchange::ImportError>(m, "OpenConfigError", m.attr("Error"));
  py::register_exception<Interchange::ExportError>(m, "OpenConfigExportError", m.attr("OpenConfigError"));

  py::class_<Client::ReplaceResult>(m, "ReplaceResult", "What a declarative replace of a list did.")
      .def_property_readonly(
          "state", [](const Client::ReplaceResult& r) { return r.state; },
          "The commit's result; succeeded when nothing had to change.")
      .def_property_readonly("added", [](const Client::ReplaceResult& r) { return r.report.added; })
      .def_property_readonly("removed", [](const Client::ReplaceResult& r) { return r.report.removed; })
      .def_property_readonly(
          "moved", [](const Client::ReplaceResult& r) { return r.report.moved; },
          "(from, to) for each entry that only changed its number.")
      .def_property_readonly("kept", [](const Client::ReplaceResult& r) { return r.report.kept; })
      .def_property_readonly(
          "session", [](const Client::ReplaceResult& r) { return r.session; },
          "The commit session (for revert() after errHw), or None when nothing changed.");

  py::class_<Interchange::ImportResult>(m, "ImportResult", "What an OpenConfig import did.")
      .def_property_readonly(
          "findings", [](const Interchange::ImportResult& r) { return textsOf(r.findings); },
          "What the document holds beyond the model, by entry and field.")
      .def_property_readonly(
          "lists",
          [](const Interchange::ImportResult& r) {
            py::list lists;
            for (const Interchange::ListOutcome& l : r.lists) lists.append(py::make_tuple(l.name, l.type, l.result));
            return lists;
          },
          "(name, type, ReplaceResult) for each list, in the document's order, up to one that stopped the import.")
      .def_property_readonly(
          "bindings",
          [](const Interchange::ImportResult& r) -> py::object {
            return r.bindings ? py::object(changesOf(*r.bindings)) : py::none();
          },
          "The bindings' changes as for Library.replaceBindings, or None when the document has no interfaces.")
      .def_property_readonly(
          "complete", [](const Interchange::ImportResult& r) { return r.complete; },
          "Every list and binding reached the configuration.");

  auto library = py::reinterpret_borrow<py::class_<Client::Library>>(m.attr("Library"));
  library
      .def(
          "replaceList",
          [](const Client::Library& lib, const fwk::String& name, Acl::AclType type, const py::iterable& entries,
             bool standard) {
            std::vector<Client::ListEntry> desired;
            for (py::handle item : entries) {
              const auto pair = item.cast<py::tuple>();
              if (pair.size() != 2) throw fwk::TypeConversionError("expected (sequence, rule or Remark) pairs");
              desired.push_back({pair[0].cast<Acl::U32>(), bodyOf(pair[1])});
            }
            return Client::replaceList(lib, name, type, desired, standard, /*cleanup=*/false);
          },
          py::arg("name"), py::arg("type"), py::arg("entries"), py::arg("standard") = false, replaceDoc)
      .def(
          "bindings",
          [](const Client::Library& lib) {
            std::vector<BindingTuple> all;
            for (const Client::Binding& b : Client::bindingsOf(*lib.mounts().intfConfig)) all.push_back(tupleOf(b));
            return all;
          },
          "Every binding of the running configuration as (interface, direction, type, list).")
      .def(
          "replaceBindings",
          [](const Client::Library& lib, const std::vector<BindingTuple>& desired) {
            std::vector<Client::Binding> bindings;
            bindings.reserve(desired.size());
            for (const auto& [intf, direction, type, list] : desired) bindings.push_back({intf, direction, type, list});
            return changesOf(Client::replaceBindings(lib, bindings));
          },
          py::arg("bindings"),
          "Makes the bindings exactly `bindings` ((interface, direction, type, list) tuples), each change its own "
          "attach or detach session; returns (kind, binding, state, session) per change.")
      .def(
          "importOpenConfig",
          [](const Client::Library& lib, const std::string& json) { return Interchange::importOpenConfig(lib, json); },
          py::arg("json"),
          "A declarative replace of every list of an OpenConfig ACL document, then of its bindings. "
          "OpenConfigError (changing nothing) for a document the model cannot stand for.")
      .def(
          "exportOpenConfig",
          [](const Client::Library& lib, bool skipLists) {
            Interchange::ExportResult exported = Interchange::exportOpenConfig(lib, {.skipLists = skipLists});
            return py::make_tuple(exported.json, textsOf(exported.findings));
          },
          py::arg("skipLists") = false,
          "The running lists and bindings as an OpenConfig ACL document: (json, findings), the findings naming "
          "what the records hold beyond the model. OpenConfigExportError for a list the document cannot carry "
          "exactly, unless `skipLists`, which leaves each such list out whole, with a finding.");
}

}  // namespace Python
