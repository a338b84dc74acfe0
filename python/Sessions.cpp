// The state store, the library over its mounts, edit sessions with the operations of ApiSm
// under their own names, a commit session as a context manager, and lists read as entries.
#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <variant>

#include "aclkit/client/Change.h"
#include "aclkit/client/Library.h"
#include "aclkit/model/Family.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/python/internal/Bindings.h"

namespace Python {

namespace {

using Acl::AclType;
using AclApi::ApiSm;
using fwk::Ptr;

// The family of a version: its list's, or for a scratchpad (which has no list) the family
// whose rule records it holds; a version of remarks only reads the same in any family.
AclType familyOf(const Acl::AclSubConfig& version) {
  if (const auto* list = dynamic_cast<const Acl::AclConfig*>(version.parent())) return list->type();
  AclType found = AclType::ip;
  Acl::forEachFamily([&](auto family) {
    using F = decltype(family);
    if (!F::records(version).empty()) found = F::aclType;
  });
  return found;
}

py::list entriesOf(const Acl::AclSubConfig& version) {
  py::list all;
  for (Client::ListEntry& entry : Client::entriesOf(version, familyOf(version))) {
    all.append(py::make_tuple(entry.sequence, std::visit([](auto& body) { return py::cast(body); }, entry.body)));
  }
  return all;
}

// An edit as a block: leaving it commits through the change pipeline, so that a change the
// platform refuses raises instead of being left in the session's state.
struct Edit {
  const Client::Library* library;
  Ptr<ApiSm> session;
  std::optional<Client::Outcome> outcome;

  // The session's scratchpad is the list's current version: the block committed it, and the
  // session still holds what revert() needs.
  [[nodiscard]] bool committedInBlock() const {
    const Ptr<Acl::AclSubConfig> scratchpad = session->currentAcl();
    const Ptr<Acl::Input::AclTypeConfig> table = session->config()->config(session->aclType());
    const Ptr<Acl::AclConfig> live = table ? table->acl(session->aclName()) : nullptr;
    return scratchpad && live && live->currCfg() && live->currCfg()->id() == scratchpad->id();
  }

  void exit(bool raised) {
    if (!raised) {
      if (!session->currentAcl() || committedInBlock()) return;
      outcome = Client::commit(*library, session);
      if (!outcome->accepted()) {
        session->spAclSubConfigDel();  // not taken: the list stays as it was, and the edit goes
        raiseRefused(*outcome);
      }
      return;
    }
    if (committedInBlock()) {
      static_cast<void>(session->revert());
    } else {
      session->spAclSubConfigDel();  // the edit never reached the list: drop it
    }
  }
};

const char* const libraryDoc =
    "The ACL model mounted in a state store (the process's own by default), and sessions on it.";
const char* const editDoc =
    "A commit session as a context manager:\n\n"
    "    with lib.edit('web', AclType.ip) as s:\n"
    "        s.addIpRule(0, IpRule('permit tcp any any eq 443'))\n\n"
    "Leaving the block commits the edit as any change is (Library.apply): checked against the platform "
    "first, then committed. Its Outcome is the Edit's `outcome` (lib.revert(edit.outcome) takes it back); "
    "a change not taken raises ChangeError carrying it, the edit dropped and the list as it was. When the "
    "block raises, the edit is dropped, and a commit the block made itself is reverted (a commit every "
    "dataplane already confirmed has let go of what revert needs, and stays).";

}  // namespace

Text::EntryBody bodyOf(py::handle object) {
  std::optional<Text::EntryBody> body;
  Acl::forEachFamily([&](auto family) {
    using Rule = typename decltype(family)::Rule;
    if (!body && py::isinstance<Rule>(object)) body = object.cast<Rule>();
  });
  if (!body && py::isinstance<Acl::RemarkConfig>(object)) body = object.cast<Acl::RemarkConfig>();
  if (!body) throw fwk::TypeConversionError("expected a rule record or a Remark");
  return *body;
}

void bindSessions(py::module_& m) {
  py::class_<fwk::StateStore>(m, "Store", "An embedded state store: a tree of directories of entities.")
      .def(py::init<>(), "A new, empty store of this program's own.")
      .def_static("instance", &fwk::StateStore::instance, py::return_value_policy::reference,
                  "The store shared by everything in this process.")
      .def_property_readonly(
          "root", [](const fwk::StateStore& store) { return Ptr<fwk::Entity>(store.root()); },
          "The root directory (an Entity).")
      .def("find", &fwk::StateStore::find, py::arg("path"), "The entity at a '/'-separated path, or None.");

  py::class_<Acl::AclSubConfig, fwk::Entity, Ptr<Acl::AclSubConfig>>(
      m, "AclVersion", "One version of a list: iterates as (sequence, rule or Remark) pairs in sequence order.")
      .def("__iter__", [](const Acl::AclSubConfig& v) { return py::iter(entriesOf(v)); })
      .def("__len__",
           [](const Acl::AclSubConfig& v) { return v.ruleBySequence().size() + v.remarkBySequence().size(); })
      .def("entries", &entriesOf, "The (sequence, rule or Remark) pairs, in sequence order.");

  py::class_<Acl::AclConfig, fwk::Entity, Ptr<Acl::AclConfig>>(
      m, "AclList", "A named list with its versions; str() is the whole list in the syntax.")
      .def("__str__", [](const Acl::AclConfig& list) { return Client::render(list); });

  py::class_<ApiSm, fwk::Entity, Ptr<ApiSm>> session(
      m, "ApiSm",
      "An edit session: every operation reachable by name is a method of the same name, and every attribute "
      "reads by name (an Entity). errString reads as a dict.");
  for (const fwk::OpInfo& op : ApiSm::staticType().ownOps()) {
    session.def(
        op.name.c_str(), [&op](ApiSm& self, const py::args& args) { return invokeOp(self, op, args); },
        signatureOf(op).c_str());
  }
  session.def_property_readonly(
      "errString",
      [](const ApiSm& s) {
        py::dict messages;
        for (const auto& [key, message] : s.errString()) messages[key.c_str()] = message.str();
        return messages;
      },
      "The messages of the capability checks and of the dataplanes, by key (a copy).");

  py::class_<Edit>(m, "Edit", editDoc)
      .def("__enter__", [](const Edit& e) { return e.session; })
      .def_property_readonly(
          "outcome", [](const Edit& e) { return e.outcome; },
          "The commit's Outcome once the block is left, None before or when the block committed itself.")
      .def("__exit__", [](Edit& e, const py::object& type, const py::object&, const py::object&) {
        e.exit(!type.is_none());
        return false;
      });

  py::class_<Client::Platform>(m, "Platform",
                               "What the platform can program, by capability name (`logging`, `ipMirror`, ...): "
                               "read and set as attributes, or all at once.")
      .def("__getattr__", [](const Client::Platform& p, const std::string& name) { return p.supports(name); })
      .def("__setattr__",
           [](Client::Platform& p, const std::string& name, bool supported) { p.supportIs(name, supported); })
      .def("__dir__", [](const Client::Platform&) { return Client::Platform::names(); })
      .def("enableAll", &Client::Platform::enableAll, "Every capability on: a platform that programs anything.")
      .def("disableAll", &Client::Platform::disableAll, "Every capability off: one that programs no list.")
      .def_static("names", &Client::Platform::names, "Every capability's name, in the model's order.");

  py::class_<Client::Library>(m, "Library", libraryDoc)
      .def(py::init([](fwk::StateStore* store) {
             return std::make_unique<Client::Library>(store ? *store : fwk::StateStore::instance());
           }),
           py::arg("store") = nullptr, py::keep_alive<1, 2>(),
           "Mounts the ACL model in `store`, making what is missing.")
      .def_property_readonly(
          "mounts",
          [](const Client::Library& lib) {
            const Acl::AclMounts& a = lib.mounts();
            py::dict all;
            all["config"] = Ptr<fwk::Entity>(a.config);
            all["intfConfig"] = Ptr<fwk::Entity>(a.intfConfig);
            all["paramConfig"] = Ptr<fwk::Entity>(a.paramConfig);
            all["hwConfig"] = Ptr<fwk::Entity>(a.hwConfig);
            all["status"] = Ptr<fwk::Entity>(a.status);
            all["statusDpDir"] = Ptr<fwk::Entity>(a.statusDpDir);
            all["udfAlias"] = Ptr<fwk::Entity>(a.udfAlias);
            return all;
          },
          "The model's mount points, by the name of their session attribute (Entities).")
      .def_property_readonly("platform", &Client::Library::platform, py::keep_alive<0, 1>(),
                             "What the platform can program (a Platform), switched by name.")
      .def(
          "session",
          [](const Client::Library& lib, const fwk::String& name, AclType type, AclApi::ApiType api, bool standard) {
            return lib.session(name, type, api, standard);
          },
          py::arg("name"), py::arg("type"), py::arg("api") = AclApi::commit_, py::arg("standard") = false,
          "A new edit session on the list `name` of family `type`.")
      .def(
          "edit",
          [](const Client::Library& lib, const fwk::String& name, AclType type, bool standard) {
            return Edit{&lib, lib.session(name, type, AclApi::commit_, standard), std::nullopt};
          },
          py::arg("name"), py::arg("type"), py::arg("standard") = false, py::keep_alive<0, 1>(), editDoc)
      .def("list", &Client::Library::list, py::arg("type"), py::arg("name"),
           "The list as the running configuration holds it (an AclList), or None.")
      .def("lists", &Client::Library::lists, py::arg("type"), "Every list of the family, by name.")
      .def(
          "payloadRefusal",
          [](const Client::Library& lib, py::handle rule, AclType type) {
            return lib.payloadRefusal(bodyOf(rule), type);
          },
          py::arg("rule"), py::arg("type"),
          "Why the rule cannot go into a list of this platform (its payload holds more elements than an alias "
          "update keeps), or None.");
}

}  // namespace Python
