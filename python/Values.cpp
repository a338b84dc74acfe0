// Values between Python and the framework's reflection: exceptions of matching classes, the
// enumerations as enum.IntEnum, and the conversion of any reflected value both ways.
#include <Python.h>

#include <map>
#include <unordered_map>
#include <utility>

#include "aclkit/Acl/AclCopy.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "aclkit/python/internal/Bindings.h"
#include "aclkit/text/AclText.h"

namespace Python {

namespace {

// ---- exceptions ------------------------------------------------------------------------------

// Module-lifetime classes, made once when the module loads.
struct ErrorClasses {
  py::handle error, range, nullArgument, enumeration, conversion, name, parse, assertion;
};
ErrorClasses errors;

}  // namespace

py::handle newError(py::module_& m, const char* name, std::initializer_list<py::handle> bases, const char* doc) {
  py::tuple all(bases.size());
  std::size_t i = 0;
  for (py::handle base : bases) all[i++] = py::reinterpret_borrow<py::object>(base);
  const std::string qualified = std::string("aclkit.") + name;
  PyObject* made = PyErr_NewExceptionWithDoc(qualified.c_str(), doc, all.ptr(), nullptr);
  if (!made) throw py::error_already_set();
  m.add_object(name, py::handle(made));
  return made;
}

namespace {

void raise(py::handle type, const char* message) {
  PyErr_SetString(type.ptr(), message);
}

// ---- enumerations ----------------------------------------------------------------------------

struct EnumClass {
  py::object type;
  std::unordered_map<std::int64_t, py::object> members;
};
std::map<std::string, EnumClass, std::less<>>& enumClasses() {
  static auto* all = new std::map<std::string, EnumClass, std::less<>>;
  return *all;
}

// An enum.IntEnum with the enumeration's names and numbers; a name that is a Python keyword
// ("in") gets a trailing underscore, as the framework's own enumerators do in C++.
void enumIs(py::module_& m, const fwk::EnumInfo& info) {
  const py::object iskeyword = py::module_::import("keyword").attr("iskeyword");
  py::list members;
  for (const fwk::EnumInfo::Enumerator& e : info.enumerators()) {
    std::string name = e.name.str();
    if (iskeyword(name).cast<bool>()) name += '_';
    members.append(py::make_tuple(name, e.value));
  }
  EnumClass made;
  made.type = py::module_::import("enum").attr("IntEnum")(info.typeName().str(), members, py::arg("module") = "aclkit");
  for (const fwk::EnumInfo::Enumerator& e : info.enumerators()) made.members[e.value] = made.type(e.value);
  m.add_object(info.typeName().c_str(), made.type);
  enumClasses()[info.typeName().str()] = std::move(made);
}

// ---- typed conversions -----------------------------------------------------------------------

std::unordered_map<const fwk::ValueType*, Codec>& codecs() {
  static auto* all = new std::unordered_map<const fwk::ValueType*, Codec>;
  return *all;
}

[[noreturn]] void notConvertible(py::handle object, const fwk::ValueType& type) {
  throw fwk::TypeConversionError("expected a " + type.name.str() + " (or its text), not a " +
                                 py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>());
}

// Text the type reads, as its fwkParse (or the framework's number and name parsing) reads it.
fwk::Value fromText(py::handle object, const fwk::ValueType& type) {
  if (!py::isinstance<py::str>(object)) notConvertible(object, type);
  return type.parse(object.cast<std::string>());
}

template <class T>
fwk::Value integerFrom(py::handle object) {
  const fwk::ValueType& type = fwk::valueType<T>();
  if (!PyLong_Check(object.ptr())) return fromText(object, type);
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(object.ptr(), &overflow);
  if (overflow == 0 && std::in_range<T>(number)) return fwk::Value(static_cast<T>(number));
  if constexpr (std::is_same_v<T, std::uint64_t>) {
    const unsigned long long big = PyLong_AsUnsignedLongLong(object.ptr());
    if (!PyErr_Occurred()) return fwk::Value(static_cast<T>(big));
    PyErr_Clear();
  }
  fwk::parseFailed(fwk::expectedText<T>(), py::str(object).cast<std::string>());
}

template <class T>
void integerIs() {
  codecIs(fwk::valueType<T>(),
          {[](const fwk::Value& v) -> py::object { return py::int_(v.as<T>()); }, &integerFrom<T>});
}

// A record from a dict of its fields (unknown names are refused), or from its text.
template <class T>
fwk::Value recordFrom(py::handle object) {
  if (!py::isinstance<py::dict>(object)) return fromText(object, fwk::valueType<T>());
  T record;
  for (auto [key, value] : py::reinterpret_borrow<py::dict>(object)) {
    const std::string name = py::str(key);
    if (!setField(&record, T::fwkFields(), name, value)) {
      throw fwk::NameError(std::string(T::fwkTypeName()) + " has no field '" + name + "'");
    }
  }
  return fwk::Value(std::move(record));
}

// A reference of type Ptr<E> from an Entity of that type, or None.
template <class E>
fwk::Value entityFrom(py::handle object) {
  using Plain = std::remove_const_t<E>;
  if (object.is_none()) return fwk::Value(fwk::Ptr<E>());
  if (!py::isinstance<fwk::Entity>(object)) notConvertible(object, fwk::valueType<fwk::Ptr<E>>());
  return fwk::Value(fwk::Ptr<E>(fwk::cast<Plain>(object.cast<fwk::Ptr<fwk::Entity>>())));
}

template <class E>
void entityIs() {
  codecIs(fwk::valueType<fwk::Ptr<E>>(), {nullptr, &entityFrom<E>});
  codecIs(fwk::valueType<fwk::Ptr<const E>>(), {nullptr, &entityFrom<const E>});
}

// The entity types reflected attributes and operations refer to.
// clang-format off
#define ACLKIT_PYTHON_ENTITY_TYPES(E)                                                                    \
  E(fwk::Entity) E(fwk::Dir) E(Acl::AclSubConfig) E(Acl::AclConfig) E(Acl::Input::Config)                \
  E(Acl::Input::AclTypeConfig) E(Acl::ParamConfig) E(Acl::IntfConfig) E(Acl::AclIntf) E(Acl::HwConfig)   \
  E(Acl::Status) E(Acl::StatusDp) E(Acl::UdfAlias) E(Acl::CheckpointStatus) E(Acl::AclConfigCopyHandler) \
  E(Cli::Session::EntityCopy) E(AclApi::ApiSm)
#define ACLKIT_PYTHON_RECORD_TYPES(E)                                                                    \
  E(Acl::RangeMatch) E(Acl::PayloadValue) E(Acl::PayloadSpec) E(Acl::MplsLabelFilter) E(Acl::IpFilter)   \
  E(Acl::Ip6Filter) E(Acl::MacFilter)
// clang-format on

void typedConversionsAre() {
  codecIs(fwk::valueType<bool>(), {[](const fwk::Value& v) -> py::object { return py::bool_(v.as<bool>()); },
                                   [](py::handle o) {
                                     if (PyBool_Check(o.ptr())) return fwk::Value(o.ptr() == Py_True);
                                     return fromText(o, fwk::valueType<bool>());
                                   }});
  integerIs<std::int8_t>();
  integerIs<std::int16_t>();
  integerIs<std::int32_t>();
  integerIs<std::int64_t>();
  integerIs<std::uint8_t>();
  integerIs<std::uint16_t>();
  integerIs<std::uint32_t>();
  integerIs<std::uint64_t>();
  codecIs(fwk::valueType<double>(), {[](const fwk::Value& v) -> py::object { return py::float_(v.as<double>()); },
                                     [](py::handle o) {
                                       if (PyFloat_Check(o.ptr()) || PyLong_Check(o.ptr())) {
                                         return fwk::Value(o.cast<double>());
                                       }
                                       return fromText(o, fwk::valueType<double>());
                                     }});
  codecIs(fwk::valueType<fwk::String>(),
          {[](const fwk::Value& v) -> py::object { return py::str(v.as<fwk::String>().str()); }, nullptr});
#define ACLKIT_PYTHON_ENTITY_(E) entityIs<E>();
  ACLKIT_PYTHON_ENTITY_TYPES(ACLKIT_PYTHON_ENTITY_)
#undef ACLKIT_PYTHON_ENTITY_
#define ACLKIT_PYTHON_RECORD_(T) codecIs(fwk::valueType<T>(), {nullptr, &recordFrom<T>});
  ACLKIT_PYTHON_RECORD_TYPES(ACLKIT_PYTHON_RECORD_)
#undef ACLKIT_PYTHON_RECORD_
}

}  // namespace

void codecIs(const fwk::ValueType& type, Codec codec) {
  codecs()[&type] = codec;
}

py::object enumMember(std::string_view typeName, std::int64_t number) {
  const auto found = enumClasses().find(typeName);
  if (found == enumClasses().end()) return py::int_(number);
  const auto member = found->second.members.find(number);
  return member != found->second.members.end() ? member->second : py::int_(number);
}

bool setField(void* record, const std::vector<fwk::FieldInfo>& fields, std::string_view name, py::handle value) {
  for (const fwk::FieldInfo& field : fields) {
    if (field.name != name) continue;
    try {
      field.set(record, fromPython(value, *field.type));
    } catch (const fwk::TypeConversionError& e) {
      throw fwk::TypeConversionError(std::string(name) + ": " + e.what());  // which field, for a record of many
    }
    return true;
  }
  return false;
}

py::object toPython(const fwk::Value& value) {
  const fwk::ValueType* type = value.type();
  if (!type) return py::none();
  if (const auto codec = codecs().find(type); codec != codecs().end() && codec->second.toPython) {
    return codec->second.toPython(value);
  }
  if (type->enumInfo) return enumMember(type->enumInfo->typeName().view(), type->enumInfo->value(value.strep()));
  if (type->entityOf) {
    const fwk::Entity* entity = type->entityOf(value.data());
    if (!entity) return py::none();
    return py::cast(fwk::Ptr<fwk::Entity>(const_cast<fwk::Entity*>(entity)));
  }
  if (type->fields) {
    py::dict fields;
    for (const fwk::FieldInfo& field : type->fields()) fields[field.name.c_str()] = toPython(field.get(value.data()));
    return fields;
  }
  return py::str(value.strep());
}

fwk::Value fromPython(py::handle object, const fwk::ValueType& type) {
  if (const auto codec = codecs().find(&type); codec != codecs().end() && codec->second.fromPython) {
    return codec->second.fromPython(object);
  }
  if (type.enumInfo && PyLong_Check(object.ptr())) return type.parse(std::to_string(object.cast<std::int64_t>()));
  return fromText(object, type);
}

py::object invokeOp(fwk::Entity& receiver, const fwk::OpInfo& op, const py::args& args) {
  // A wrong count goes through the framework's own check, for its message.
  if (args.size() != op.argTypes.size()) {
    return toPython(fwk::invoke(receiver, op.name.view(), std::vector<fwk::Value>(args.size())));
  }
  std::vector<fwk::Value> values;
  values.reserve(args.size());
  for (std::size_t i = 0; i < args.size(); ++i) values.push_back(fromPython(args[i], *op.argTypes[i]));
  return toPython(op.invoke(&receiver, values));
}

std::string signatureOf(const fwk::OpInfo& op) {
  std::string text = op.name.str() + "(";
  for (std::size_t i = 0; i < op.argTypes.size(); ++i) text += (i ? ", " : "") + op.argTypes[i]->name.str();
  return text + ") -> " + (op.resultType ? op.resultType->name.str() : "None");
}

void bindErrors(py::module_& m) {
  const py::handle base = newError(m, "Error", {PyExc_Exception}, "An error the library reports.");
  errors.error = base;
  errors.range = newError(m, "RangeError", {base, PyExc_ValueError}, "A value outside its allowed range.");
  errors.nullArgument =
      newError(m, "NullArgumentError", {base, PyExc_ValueError}, "None given where a value is required.");
  errors.enumeration =
      newError(m, "EnumError", {base, PyExc_ValueError}, "A name or number that is not an enumerator.");
  errors.conversion =
      newError(m, "TypeConversionError", {base, PyExc_TypeError}, "A value of a type that cannot be used there.");
  errors.name = newError(m, "NameError", {base, PyExc_AttributeError},
                         "An attribute, operation or type that reflection does not know.");
  errors.parse = newError(m, "ParseError", {base, PyExc_ValueError},
                          "A line that does not read as an entry; `column` (1-based) and `expected` say why.");
  errors.assertion = newError(m, "AssertionError", {base, PyExc_AssertionError},
                              "A programming error the library caught (an operation of another session type), with "
                              "the library's assertion text; nothing was changed.");
  // An interpreter outlives its user's mistakes: the library's assertions raise here instead of
  // ending the process.
  fwk::assertionsThrowIs(true);
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const Text::ParseError& e) {
      py::object error = py::reinterpret_borrow<py::object>(errors.parse)(e.what());
      error.attr("column") = e.column();
      error.attr("expected") = e.expected();
      PyErr_SetObject(errors.parse.ptr(), error.ptr());
    } catch (const fwk::RangeError& e) {
      raise(errors.range, e.what());
    } catch (const fwk::NullArgumentError& e) {
      raise(errors.nullArgument, e.what());
    } catch (const fwk::EnumError& e) {
      raise(errors.enumeration, e.what());
    } catch (const fwk::TypeConversionError& e) {
      raise(errors.conversion, e.what());
    } catch (const fwk::NameError& e) {
      raise(errors.name, e.what());
    } catch (const fwk::Error& e) {
      raise(errors.error, e.what());
    } catch (const fwk::AssertionError& e) {
      raise(errors.assertion, e.what());
    }
  });
}

void bindValues(py::module_& m) {
#define ACLKIT_PYTHON_ENUM_(E) enumIs(m, fwk::enumInfo<E>());
  ACLKIT_PYTHON_ENUMS(ACLKIT_PYTHON_ENUM_)
#undef ACLKIT_PYTHON_ENUM_
  typedConversionsAre();
}

}  // namespace Python
