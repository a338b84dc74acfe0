// OpenConfig from Python: ACL documents imported as one change and written from the running
// configuration, as aclsh's import openconfig and export openconfig do, and the bindings read.
#include <pybind11/stl.h>

#include <string>
#include <vector>

#include "aclkit/interchange/OpenConfig.h"
#include "aclkit/python/internal/Bindings.h"

namespace Python {

namespace {

BindingTuple tupleOf(const Client::Binding& b) {
  return {b.interface, b.direction, b.type, b.list};
}

std::vector<std::string> textsOf(const std::vector<Interchange::Finding>& findings) {
  std::vector<std::string> texts;
  texts.reserve(findings.size());
  for (const Interchange::Finding& f : findings) texts.push_back(f.text());
  return texts;
}

}  // namespace

void bindInterchange(py::module_& m) {
  py::register_exception<Interchange::ImportError>(m, "OpenConfigError", m.attr("Error"));
  py::register_exception<Interchange::ExportError>(m, "OpenConfigExportError", m.attr("OpenConfigError"));

  py::class_<Interchange::ImportResult>(m, "ImportResult", "What an OpenConfig import did.")
      .def_property_readonly(
          "findings", [](const Interchange::ImportResult& r) { return textsOf(r.findings); },
          "What the document holds beyond the model that changes no match, by entry and field.")
      .def_property_readonly(
          "outcome", [](const Interchange::ImportResult& r) { return r.outcome; }, "The change's Outcome.");

  auto library = py::reinterpret_borrow<py::class_<Client::Library>>(m.attr("Library"));
  library
      .def(
          "bindings",
          [](const Client::Library& lib) {
            std::vector<BindingTuple> all;
            for (const Client::Binding& b : Client::bindingsOf(*lib.mounts().intfConfig)) all.push_back(tupleOf(b));
            return all;
          },
          "Every binding of the running configuration as (interface, direction, type, list).")
      .def(
          "importOpenConfig",
          [](const Client::Library& lib, const std::string& json) {
            Interchange::ImportResult imported = Interchange::importOpenConfig(lib, json);
            if (!imported.outcome.accepted()) raiseRefused(imported.outcome);
            return imported;
          },
          py::arg("json"),
          "Every list of an OpenConfig ACL document, and its bindings when it has interfaces, as one change "
          "(Library.apply): all of it or none. OpenConfigError for a document the model cannot stand for exactly, "
          "ChangeError for a change not taken; either way nothing changes.")
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
