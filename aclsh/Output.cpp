// What the shell prints in JSON mode: one object a line, its one member named for what it
// holds (the kinds below), built here and nowhere else. Entries carry their rule record's
// fields by name beside their line, so a script reads a match without parsing the syntax.

#include "aclkit/aclsh/internal/ShellImpl.h"
#include "aclkit/platform/fwk/Value.h"

namespace aclsh {

namespace {

// By Kind, in its order.
constexpr std::string_view kindNames[] = {"error", "message",        "note",     "outcome",    "lists",  "pending",
                                          "diff",  "running-config", "platform", "dataplanes", "packet", "openconfig"};
static_assert(std::size(kindNames) == static_cast<std::size_t>(Kind::openconfig) + 1);

// Numbers and truth values as themselves, records as objects of their fields, anything else
// (enumerators, addresses, names) as its text.
Json valueJson(const fwk::Value& value) {
  if (value.is<bool>()) return value.as<bool>();
  if (value.is<std::uint8_t>()) return value.as<std::uint8_t>();
  if (value.is<std::uint16_t>()) return value.as<std::uint16_t>();
  if (value.is<std::uint32_t>()) return value.as<std::uint32_t>();
  if (const fwk::ValueType* type = value.type(); type && type->fields) {
    Json fields = Json::object();
    for (const fwk::FieldInfo& field : type->fields()) fields[field.name.str()] = valueJson(field.get(value.data()));
    return fields;
  }
  return value.strep();
}

// The record's own fields, then its filter's, in one flat set: as the line reads.
template <class Body>
Json fieldsOf(const Body& body) {
  Json fields = Json::object();
  for (const fwk::FieldInfo& field : Body::fwkFields()) {
    if (field.name != "filter") fields[field.name.str()] = valueJson(field.get(&body));
  }
  if constexpr (requires { body.filter(); }) {
    for (const fwk::FieldInfo& field : std::remove_cvref_t<decltype(body.filter())>::fwkFields()) {
      fields[field.name.str()] = valueJson(field.get(&body.filter()));
    }
  }
  return fields;
}

}  // namespace

Json entryJson(const Client::ListEntry& entry, bool standard) {
  const std::string line = Client::render(entry, standard);
  Json e{{"sequence", entry.sequence}, {"line", line.substr(line.find(' ') + 1)}};
  std::visit([&](const auto& body) { e["fields"] = fieldsOf(body); }, entry.body);
  return e;
}

Json listJson(AclType type, const String& name, bool standard, const Ptr<Acl::AclSubConfig>& version) {
  Json l{{"family", std::string(Client::keyword(type))}, {"name", name.str()}, {"standard", standard}};
  l["countersPerEntry"] = version && version->countersEnabled();
  l["fragmentRules"] = version && version->fragmentsEnabled();
  l["entries"] = Json::array();
  if (version) {
    for (const Client::ListEntry& entry : Client::entriesOf(*version, type)) {
      l["entries"].push_back(entryJson(entry, standard));
    }
  }
  return l;
}

Json listJson(const Acl::AclConfig& list) {
  return listJson(list.type(), list.name(), list.standard(), list.currCfg());
}

Json bindingJson(const Client::Binding& b) {
  return {{"interface", b.interface.str()},
          {"direction", std::string(stringValue(b.direction).view())},
          {"family", std::string(Client::keyword(b.type))},
          {"list", b.list.str()}};
}

Json outcomeJson(const Client::Outcome& outcome, const std::string& subject, const std::string& change) {
  Json o{{"subject", subject}, {"change", change}, {"state", std::string(Client::nameOf(outcome.state))}};
  o["refusals"] = Json::array();
  for (const Client::Refusal& r : outcome.refusals)
    o["refusals"].push_back({{"subject", r.subject}, {"message", r.message}});
  o["lists"] = Json::array();
  for (const Client::ListReport& list : outcome.lists) {
    Json l{{"family", std::string(Client::keyword(list.type))}, {"name", list.name.str()}};
    l["added"] = list.report.added;
    l["removed"] = list.report.removed;
    l["moved"] = Json::array();
    for (const auto& [from, to] : list.report.moved) l["moved"].push_back({{"from", from}, {"to", to}});
    l["kept"] = list.report.kept;
    o["lists"].push_back(std::move(l));
  }
  o["bindings"] = Json::array();
  for (const Client::BindingChange& b : outcome.bindings) {
    using K = Client::BindingChange::Kind;
    Json binding = bindingJson(b.binding);
    binding["change"] = b.kind == K::attached ? "attached" : b.kind == K::detached ? "detached" : "kept";
    o["bindings"].push_back(std::move(binding));
  }
  o["behind"] = outcome.behind;
  o["dataplaneErrors"] = Json::array();
  for (const auto& [dataplane, message] : outcome.dataplaneErrors) {
    o["dataplaneErrors"].push_back({{"dataplane", dataplane}, {"message", message}});
  }
  return o;
}

Json noteJson(const std::string& list, std::optional<U32> sequence, const std::string& field,
              const std::string& message) {
  return {{"list", list}, {"sequence", sequence ? Json(*sequence) : Json()}, {"field", field}, {"message", message}};
}

void Shell::Impl::emit(Kind kind, Json body) const {
  Json line = Json::object();
  line[kindNames[static_cast<std::size_t>(kind)]] = std::move(body);
  // A file name need not be UTF-8; what the shell read as input is.
  out_ << line.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

void Shell::Impl::message(const std::string& text) const {
  if (options_.json) return emit(Kind::message, text);
  line(text);
}

void Shell::Impl::error(std::optional<std::size_t> at, std::size_t column, const std::string& message) const {
  if (options_.json) {
    return emit(Kind::error, {{"file", where_.file},
                              {"line", at ? Json(*at) : Json()},
                              {"column", column != 0 ? Json(column) : Json()},
                              {"message", message}});
  }
  if (at) {
    err_ << where_.file << (where_.file.empty() ? "" : ":") << *at;
    if (column != 0) err_ << ':' << column;
    err_ << ": ";
  }
  err_ << message << '\n';
}

}  // namespace aclsh
