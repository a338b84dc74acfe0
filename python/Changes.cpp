// The change pipeline from Python: whole lists, removals and bindings handed over as one change,
// an outcome as Python values, and the exception that carries a refused one. Every door of the
// module that changes the running configuration (Library.apply, replaceList, replaceBindings,
// importOpenConfig, the edit context manager) ends here, as aclsh's commands do.
#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "aclkit/client/Change.h"
#include "aclkit/python/internal/Bindings.h"

namespace Python {

namespace {

py::handle changeError;

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

std::vector<Client::ListEntry> entriesFrom(const py::iterable& entries) {
  std::vector<Client::ListEntry> desired;
  for (py::handle item : entries) {
    const auto pair = item.cast<py::tuple>();
    if (pair.size() != 2) throw fwk::TypeConversionError("expected (sequence, rule or Remark) pairs");
    desired.push_back({pair[0].cast<Acl::U32>(), bodyOf(pair[1])});
  }
  return desired;
}

std::vector<Client::Binding> bindingsFrom(const std::vector<BindingTuple>& desired) {
  std::vector<Client::Binding> bindings;
  bindings.reserve(desired.size());
  for (const auto& [intf, direction, type, list] : desired) bindings.push_back({intf, direction, type, list});
  return bindings;
}

// The outcome when the running configuration holds the change; aclkit.ChangeError otherwise.
Client::Outcome accepted(Client::Outcome outcome) {
  if (!outcome.accepted()) raiseRefused(outcome);
  return outcome;
}

// "refused: ip access-list web: Acl not supported by hardware; ..."
std::string summaryOf(const Client::Outcome& outcome) {
  std::string text(Client::nameOf(outcome.state));
  for (std::size_t i = 0; i < outcome.refusals.size(); ++i) text += (i ? "; " : ": ") + outcome.refusals[i].text();
  return text;
}

const char* const applyDoc =
    "Makes one change on the running configuration: each of `lists` ((type, name, entries) or (type, name, "
    "entries, standard), entries as (sequence, rule or Remark) pairs) replaced whole, created when missing; "
    "`removals` ((type, name)) removed; the bindings made exactly `bindings` ((interface, direction, type, list)) "
    "unless None. Checked against the platform on a copy first, then written: all of it or none. Returns the "
    "Outcome; ChangeError (carrying it, the configuration as it was) when refused, in conflict or failed; "
    "ValueError for bad input, changing nothing.";

}  // namespace

void raiseRefused(const Client::Outcome& outcome) {
  py::object error = py::reinterpret_borrow<py::object>(changeError)(summaryOf(outcome));
  error.attr("outcome") = py::cast(outcome);
  PyErr_SetObject(changeError.ptr(), error.ptr());
  throw py::error_already_set();
}

void bindChanges(py::module_& m) {
  changeError = newError(m, "ChangeError", {m.attr("Error")},
                         "A change the running configuration did not take: refused by the platform, in conflict "
                         "with another session, or failed. `outcome` says why; nothing was changed.");

  py::class_<Client::ListReport>(m, "ListReport", "What a change did to one list.")
      .def_property_readonly("type", [](const Client::ListReport& l) { return l.type; })
      .def_property_readonly("name", [](const Client::ListReport& l) { return l.name; })
      .def_property_readonly("added", [](const Client::ListReport& l) { return l.report.added; })
      .def_property_readonly("removed", [](const Client::ListReport& l) { return l.report.removed; })
      .def_property_readonly(
          "moved", [](const Client::ListReport& l) { return l.report.moved; },
          "(from, to) for each entry that only changed its number.")
      .def_property_readonly("kept", [](const Client::ListReport& l) { return l.report.kept; });

  py::class_<Client::Outcome>(m, "Outcome", "How a change ended.")
      .def_property_readonly(
          "state", [](const Client::Outcome& o) { return std::string(Client::nameOf(o.state)); },
          "'unchanged', 'applied', 'waiting', 'hardware error', 'refused', 'conflict' or 'failed'.")
      .def_property_readonly("accepted", &Client::Outcome::accepted,
                             "The running configuration holds the change (whatever the dataplanes made of it).")
      .def_property_readonly(
          "refusals",
          [](const Client::Outcome& o) {
            std::vector<std::pair<std::string, std::string>> all;
            for (const Client::Refusal& r : o.refusals) all.emplace_back(r.subject, r.message);
            return all;
          },
          "(subject, message) for each reason the change did not go through.")
      .def_property_readonly(
          "lists", [](const Client::Outcome& o) { return o.lists; }, "A ListReport for each list the change wrote.")
      .def_property_readonly(
          "bindings",
          [](const Client::Outcome& o) {
            py::list changes;
            for (const Client::BindingChange& c : o.bindings) {
              const Client::Binding& b = c.binding;
              changes.append(
                  py::make_tuple(kindName(c.kind), BindingTuple{b.interface, b.direction, b.type, b.list}, c.state));
            }
            return changes;
          },
          "(kind: 'attached', 'detached' or 'kept', (interface, direction, type, list), state) per binding.")
      .def_property_readonly(
          "behind", [](const Client::Outcome& o) { return o.behind; }, "The dataplanes still to program it.")
      .def_property_readonly(
          "dataplaneErrors", [](const Client::Outcome& o) { return o.dataplaneErrors; },
          "(dataplane, message) for each dataplane that could not program it.")
      .def("__repr__", [](const Client::Outcome& o) { return "<Outcome " + summaryOf(o) + ">"; });

  auto library = py::reinterpret_borrow<py::class_<Client::Library>>(m.attr("Library"));
  library
      .def(
          "apply",
          [](const Client::Library& lib, const py::iterable& lists, const py::iterable& removals,
             const std::optional<std::vector<BindingTuple>>& bindings) {
            Client::Change change;
            for (py::handle item : lists) {
              const auto list = item.cast<py::tuple>();
              if (list.size() != 3 && list.size() != 4) {
                throw fwk::TypeConversionError("expected (type, name, entries) or (type, name, entries, standard)");
              }
              change.lists.push_back({list[0].cast<Acl::AclType>(), list[1].cast<fwk::String>(),
                                      list.size() == 4 && list[3].cast<bool>(), entriesFrom(list[2]), std::nullopt,
                                      std::nullopt});
            }
            for (py::handle item : removals) {
              change.removals.push_back(item.cast<std::pair<Acl::AclType, fwk::String>>());
            }
            if (bindings) change.bindings = bindingsFrom(*bindings);
            return accepted(Client::apply(lib, change));
          },
          py::arg("lists") = py::tuple(), py::arg("removals") = py::tuple(), py::arg("bindings") = py::none(), applyDoc)
      .def(
          "replaceList",
          [](const Client::Library& lib, const fwk::String& name, Acl::AclType type, const py::iterable& entries,
             bool standard) {
            Client::Change change;
            change.lists.push_back({type, name, standard, entriesFrom(entries), std::nullopt, std::nullopt});
            return accepted(Client::apply(lib, change));
          },
          py::arg("name"), py::arg("type"), py::arg("entries"), py::arg("standard") = false,
          "apply() of one list: it holds exactly `entries` afterwards; unchanged entries are not touched, entries "
          "found at another number are moved.")
      .def(
          "replaceBindings",
          [](const Client::Library& lib, const std::vector<BindingTuple>& desired) {
            Client::Change change;
            change.bindings = bindingsFrom(desired);
            return accepted(Client::apply(lib, change));
          },
          py::arg("bindings"), "apply() of the bindings alone: they are exactly `bindings` afterwards.")
      .def(
          "revert",
          [](const Client::Library& lib, const Client::Outcome& done) { return accepted(Client::revert(lib, done)); },
          py::arg("outcome"),
          "Takes back an accepted change, as a change of its own: each list it wrote as it found it, the bindings "
          "as they were. ChangeError (conflict) when one of them has changed since.");
}

}  // namespace Python
