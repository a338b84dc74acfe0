// Rule records and remarks as Python values: made from one line of the ACL syntax or from
// their fields by keyword, printed as their line, compared, hashed, never changed in place.
#include <pybind11/stl.h>

#include <optional>
#include <stdexcept>
#include <variant>

#include "aclkit/client/Library.h"
#include "aclkit/model/Family.h"
#include "aclkit/python/internal/Bindings.h"
#include "aclkit/text/AclText.h"

namespace Python {

namespace {

using Acl::AclType;

// The record's own fields, then those of its filter: one flat set of names, as the line reads.
template <class Rule>
void fieldsAre(Rule& rule, const py::kwargs& fields) {
  for (auto [key, value] : fields) {
    const std::string name = py::str(key);
    if (setField(&rule, Rule::fwkFields(), name, value)) continue;
    auto filter = rule.filter();
    if (!setField(&filter, decltype(filter)::fwkFields(), name, value)) {
      throw fwk::NameError(std::string(Rule::fwkTypeName()) + " has no field '" + name + "'");
    }
    rule.filterIs(filter);
  }
}

template <class Rule>
py::object fieldOf(const Rule& rule, const std::string& name) {
  for (const fwk::FieldInfo& field : Rule::fwkFields()) {
    if (field.name == name) return toPython(field.get(&rule));
  }
  for (const fwk::FieldInfo& field : std::remove_cvref_t<decltype(rule.filter())>::fwkFields()) {
    if (field.name == name) return toPython(field.get(&rule.filter()));
  }
  throw fwk::NameError(std::string(Rule::fwkTypeName()) + " has no field '" + name + "'");
}

template <class Rule>
py::dict fieldsOf(const Rule& rule) {
  py::dict all;
  for (const fwk::FieldInfo& field : Rule::fwkFields()) {
    if (field.name != "filter") all[field.name.c_str()] = toPython(field.get(&rule));
  }
  for (const fwk::FieldInfo& field : std::remove_cvref_t<decltype(rule.filter())>::fwkFields()) {
    all[field.name.c_str()] = toPython(field.get(&rule.filter()));
  }
  return all;
}

// A line without a sequence number that holds a `Body`; ValueError otherwise.
template <class Body>
Body parsedAs(const std::string& line, AclType type) {
  Text::Entry entry = Text::parse(line, type);
  if (entry.sequence) throw py::value_error("'" + line + "' has a sequence number: read it with parse_rule");
  Body* body = std::get_if<Body>(&entry.body);
  if (!body) throw py::value_error("'" + line + "' is not a " + std::string(Body::fwkTypeName()));
  return std::move(*body);
}

// The record's line, if one can carry it.
template <class Body>
std::optional<std::string> lineOf(const Body& body) {
  try {
    return Text::format(body);
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

// A field's value as plain Python data the record's constructor reads back: enumerators by
// name, records as dicts of the same.
py::object plain(py::handle value) {
  static const auto* intEnum = new py::object(py::module_::import("enum").attr("IntEnum"));  // outlives exit
  if (py::isinstance(value, *intEnum)) return value.attr("name");
  if (py::isinstance<py::dict>(value)) {
    py::dict out;
    for (const auto& [key, item] : value.cast<py::dict>()) out[key] = plain(item);
    return out;
  }
  if (py::isinstance<py::list>(value)) {
    py::list out;
    for (py::handle item : value) out.append(plain(item));
    return out;
  }
  return py::reinterpret_borrow<py::object>(value);
}

template <class Rule>
py::dict plainFieldsOf(const Rule& rule) {
  return plain(fieldsOf(rule)).template cast<py::dict>();
}

// Records are values: printed as their line (or their fields when no line carries them), with a
// repr that evaluates back, and pickled (hence copied) as their fields.
template <class Rule, class Class>
void ruleOperationsAre(Class& cls) {
  cls.def("__str__", [](const Rule& rule) { return lineOf(rule).value_or(fwk::strep(rule)); })
      .def("__repr__",
           [](const py::object& self) {
             const auto& rule = self.cast<const Rule&>();
             const py::object name = py::type::handle_of(self).attr("__name__");
             if (const std::optional<std::string> line = lineOf(rule)) return py::str("{}({!r})").format(name, *line);
             return py::str("{}(**{!r})").format(name, plainFieldsOf(rule));
           })
      .def(py::pickle([](const Rule& rule) { return plainFieldsOf(rule); },
                      [](const py::dict& fields) {
                        Rule rule;
                        fieldsAre(rule, py::reinterpret_borrow<py::kwargs>(fields));
                        return rule;
                      }));
}

template <class Body, class Class>
void valueOperationsAre(Class& cls) {
  cls.def("__eq__", [](const Body& a, const Body& b) { return a == b; })
      .def("__lt__", [](const Body& a, const Body& b) { return a < b; })
      .def("__hash__", [](const Body& body) { return body.hash(); });
}

template <AclType Type>
void ruleClassIs(py::module_& m, const char* name) {
  using Rule = typename Acl::Family<Type>::Rule;
  py::class_<Rule> cls(m, name,
                       ("A rule of a " + std::string(Client::keyword(Type)) +
                        " list: Rule(line, **fields) reads one line of the syntax without a sequence number, then "
                        "sets the fields given by name (the record's and its filter's: action, log, protocol, "
                        "dstPort, ...). Immutable: replace() makes a changed copy.")
                           .c_str());
  cls.def(py::init([](const std::optional<std::string>& line, const py::kwargs& fields) {
            Rule rule = line ? parsedAs<Rule>(*line, Type) : Rule();
            fieldsAre(rule, fields);
            return rule;
          }),
          py::arg("line") = py::none())
      .def("__getattr__", &fieldOf<Rule>)
      .def(
          "replace",
          [](Rule rule, const py::kwargs& fields) {
            fieldsAre(rule, fields);
            return rule;
          },
          "A copy with the fields given by name changed.")
      .def("fields", &fieldsOf<Rule>, "Every field by name, the record's then its filter's.");
  ruleOperationsAre<Rule>(cls);
  valueOperationsAre<Rule>(cls);
  codecIs(fwk::valueType<Rule>(), {[](const fwk::Value& v) { return py::cast(v.as<Rule>()); },
                                   [](py::handle o) {
                                     if (py::isinstance<Rule>(o)) return fwk::Value(o.cast<Rule>());
                                     if (py::isinstance<py::str>(o)) {
                                       return fwk::Value(parsedAs<Rule>(o.cast<std::string>(), Type));
                                     }
                                     if (py::isinstance<py::dict>(o)) {
                                       Rule rule;
                                       fieldsAre(rule, py::reinterpret_borrow<py::kwargs>(o));
                                       return fwk::Value(std::move(rule));
                                     }
                                     throw fwk::TypeConversionError("expected a " + std::string(Rule::fwkTypeName()) +
                                                                    ", its line or its fields");
                                   }});
}

}  // namespace

void bindRecords(py::module_& m) {
#define ACLKIT_PYTHON_RULE_CLASS_(type, prefix, Prefix) ruleClassIs<AclType::type>(m, #Prefix "Rule");
  ACLKIT_ACL_RULE_FAMILIES(ACLKIT_PYTHON_RULE_CLASS_)
#undef ACLKIT_PYTHON_RULE_CLASS_

  py::class_<Acl::RemarkConfig> remark(m, "Remark", "A remark of a list: its text is all there is to it.");
  remark.def(py::init<const fwk::String&>(), py::arg("text"))
      .def_property_readonly("text", &Acl::RemarkConfig::text)
      .def("__str__", [](const Acl::RemarkConfig& r) { return Text::format(r); })
      .def("__repr__", [](const Acl::RemarkConfig& r) { return py::str("Remark({!r})").format(r.text().str()); })
      .def(py::pickle([](const Acl::RemarkConfig& r) { return r.text().str(); },
                      [](const std::string& text) { return Acl::RemarkConfig(fwk::String(text)); }));
  valueOperationsAre<Acl::RemarkConfig>(remark);
  codecIs(fwk::valueType<Acl::RemarkConfig>(),
          {[](const fwk::Value& v) { return py::cast(v.as<Acl::RemarkConfig>()); },
           [](py::handle o) {
             if (py::isinstance<py::str>(o)) return fwk::Value(Acl::RemarkConfig(fwk::String(o.cast<std::string>())));
             return fwk::Value(o.cast<Acl::RemarkConfig>());
           }});

  m.def(
      "parse_rule",
      [](const std::string& line, AclType type, bool standard) {
        Text::Entry entry = Text::parse(line, type, standard);
        return py::make_tuple(entry.sequence ? py::object(py::int_(*entry.sequence)) : py::object(py::none()),
                              std::visit([](const auto& body) { return py::cast(body); }, entry.body));
      },
      py::arg("line"), py::arg("type") = AclType::ip, py::arg("standard") = false,
      "(sequence or None, rule or Remark): one line of a list of family `type`; ParseError when it does not read.");
}

}  // namespace Python
