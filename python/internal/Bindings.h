// What the files of the Python module share: entities held by their own counted pointer, the
// address-like values as strings, the conversion of reflected values both ways, and one
// bind function per group of Python names (Module.cpp calls them in order).
#pragma once

#include <pybind11/pybind11.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/model/Types.h"
#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Strep.h"
#include "aclkit/platform/fwk/TypeInfo.h"
#include "aclkit/platform/fwk/Value.h"
#include "aclkit/text/AclText.h"

// Python objects hold entities by the framework's own intrusive count, so that a Python
// reference and a C++ one keep the same object alive.
PYBIND11_DECLARE_HOLDER_TYPE(T, fwk::Ptr<T>, true)

namespace Client {
struct Outcome;
}  // namespace Client

namespace Python {

namespace py = pybind11;

// ---- values --------------------------------------------------------------------------------

// A reflected value as Python sees it: None for an empty value or a null entity; bool, int,
// float, str; the module's enum.IntEnum member for an enumeration it knows; the rule record
// classes; an Entity for an entity reference; a dict of fields for other records; the value's
// text for everything else (addresses, interfaces, ranges).
py::object toPython(const fwk::Value& value);
// A Python object as a value of `type`: what toPython gives back, and also an int or a name
// for an enumeration, a dict of fields for a record, and text the type reads (fwkParse) for
// any type. fwk::TypeConversionError for anything else, fwk::EnumError for an unknown name.
fwk::Value fromPython(py::handle object, const fwk::ValueType& type);

// An operation called with Python arguments, converted to its argument types in order.
py::object invokeOp(fwk::Entity& receiver, const fwk::OpInfo& op, const py::args& args);
// "addIpRule(U32, IpRuleConfig) -> ApiState": what a reflected operation takes and gives.
std::string signatureOf(const fwk::OpInfo& op);

// How the values of one type cross over, where the generic ways (above) do not do: a typed
// conversion registered for the type's descriptor. A null fromPython leaves that direction
// to the generic ways.
struct Codec {
  py::object (*toPython)(const fwk::Value& value) = nullptr;
  fwk::Value (*fromPython)(py::handle object) = nullptr;
};
void codecIs(const fwk::ValueType& type, Codec codec);
// Sets the field `name` of a record (fields: its FieldInfo) from a Python value; false when
// the record has no such field.
bool setField(void* record, const std::vector<fwk::FieldInfo>& fields, std::string_view name, py::handle value);

// The enumerations the module names, each an enum.IntEnum of the same name with the same
// numbers.
// clang-format off
#define ACLKIT_PYTHON_ENUMS(E) \
  E(Acl::AclType) E(Acl::AclDirection) E(Acl::RuleAction) E(Acl::ValueOp) E(AclApi::ApiType) E(AclApi::ApiState)
// clang-format on
// The member of the module's enum.IntEnum class `typeName` ("ApiState") with that number.
py::object enumMember(std::string_view typeName, std::int64_t number);

// A rule record of any family or a Remark, as the entry body the client layer takes;
// fwk::TypeConversionError for anything else.
Text::EntryBody bodyOf(py::handle object);

// A binding as Python sees it: (interface, direction, type, list).
using BindingTuple = std::tuple<fwk::String, Acl::AclDirection, Acl::AclType, fwk::String>;

// A new exception class `aclkit.<name>` with those bases, added to the module.
py::handle newError(py::module_& m, const char* name, std::initializer_list<py::handle> bases, const char* doc);

// Raises aclkit.ChangeError carrying `outcome` (a change the pipeline did not accept).
[[noreturn]] void raiseRefused(const Client::Outcome& outcome);

// ---- one function per group of names -------------------------------------------------------

void bindErrors(py::module_& m);
void bindValues(py::module_& m);
void bindReflection(py::module_& m);
void bindRecords(py::module_& m);
void bindSessions(py::module_& m);
void bindAgents(py::module_& m);
void bindChanges(py::module_& m);
void bindInterchange(py::module_& m);

}  // namespace Python

namespace pybind11::detail {

// Values of the address-like types travel as their text: "192.0.2.1", "Ethernet1".
template <class T>
struct AclkitTextCaster {
  PYBIND11_TYPE_CASTER(T, const_name("str"));
  bool load(handle src, bool) {
    if (!isinstance<str>(src)) return false;
    value = T::fwkParse(src.cast<std::string>());
    return true;
  }
  static handle cast(const T& src, return_value_policy, handle) { return str(fwk::strep(src)).release(); }
};

// Enumerations travel as the module's enum.IntEnum members, and are taken also as their
// number or name (EnumError for one that is not an enumerator).
template <class E>
struct AclkitEnumCaster {
  PYBIND11_TYPE_CASTER(E, const_name("IntEnum"));
  bool load(handle src, bool) {
    if (isinstance<str>(src)) {
      value = fwk::enumFromName<E>(src.cast<std::string>());
    } else if (isinstance<int_>(src)) {
      value = fwk::enumFromValue<E>(src.cast<std::int64_t>());
    } else {
      return false;
    }
    return true;
  }
  static handle cast(E src, return_value_policy, handle) {
    return Python::enumMember(fwk::enumInfo<E>().typeName().view(), static_cast<std::int64_t>(src)).release();
  }
};

template <>
struct type_caster<Acl::Ip4Addr> : AclkitTextCaster<Acl::Ip4Addr> {};
template <>
struct type_caster<Acl::Ip6Addr> : AclkitTextCaster<Acl::Ip6Addr> {};
template <>
struct type_caster<Acl::MacAddr> : AclkitTextCaster<Acl::MacAddr> {};
template <>
struct type_caster<Acl::IntfId> : AclkitTextCaster<Acl::IntfId> {};
template <>
struct type_caster<Acl::VrfName> : AclkitTextCaster<Acl::VrfName> {};
template <>
struct type_caster<fwk::String> {
  PYBIND11_TYPE_CASTER(fwk::String, const_name("str"));
  bool load(handle src, bool) {
    if (!isinstance<str>(src)) return false;
    value = fwk::String(src.cast<std::string>());
    return true;
  }
  static handle cast(const fwk::String& src, return_value_policy, handle) { return str(src.str()).release(); }
};
#define ACLKIT_PYTHON_ENUM_CASTER_(E) \
  template <>                         \
  struct type_caster<E> : AclkitEnumCaster<E> {};
ACLKIT_PYTHON_ENUMS(ACLKIT_PYTHON_ENUM_CASTER_)
#undef ACLKIT_PYTHON_ENUM_CASTER_
}  // namespace pybind11::detail
