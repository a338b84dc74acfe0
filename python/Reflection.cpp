// The generic path: any entity's attributes and operations by name, its collections as
// mappings, and what reflection knows of each type.
#include "aclkit/platform/fwk/Reflection.h"

#include <pybind11/stl.h>

#include "aclkit/python/internal/Bindings.h"

namespace Python {

namespace {

// A live view of one collection attribute of one entity.
struct Collection {
  fwk::Ptr<fwk::Entity> owner;
  const fwk::AttrInfo* attr;

  [[nodiscard]] fwk::Value key(py::handle key) const { return fromPython(key, *attr->keyType()); }
  [[nodiscard]] bool contains(const fwk::Value& key) const {
    if (attr->kind() == fwk::children) return static_cast<bool>(attr->get(*owner, key).as<fwk::Ptr<fwk::Entity>>());
    const std::string wanted = key.strep();
    for (const fwk::Value& k : attr->keys(*owner)) {
      if (k.strep() == wanted) return true;
    }
    return false;
  }
  [[nodiscard]] py::object get(py::handle k) const {
    const fwk::Value typed = key(k);
    if (!contains(typed)) throw py::key_error(py::repr(k).cast<std::string>());
    return toPython(attr->get(*owner, typed));
  }
  [[nodiscard]] py::list keys() const {
    py::list all;
    for (const fwk::Value& k : attr->keys(*owner)) all.append(toPython(k));
    return all;
  }
  [[nodiscard]] py::list items() const {
    py::list all;
    for (const fwk::Value& k : attr->keys(*owner))
      all.append(py::make_tuple(toPython(k), toPython(attr->get(*owner, k))));
    return all;
  }
};

// A scalar's value, or a collection's view.
py::object attributeOf(const fwk::Ptr<fwk::Entity>& entity, const fwk::AttrInfo& attr) {
  if (attr.isCollection()) return py::cast(Collection{entity, &attr});
  return toPython(attr.get(*entity));
}

std::vector<std::string> attributeNames(const fwk::TypeInfo& type) {
  std::vector<std::string> names;
  for (const fwk::AttrInfo* attr : type.attrs()) names.push_back(attr->name().str());
  return names;
}

std::vector<std::string> operationNames(const fwk::TypeInfo& type) {
  std::vector<std::string> names;
  for (const fwk::TypeInfo* t = &type; t; t = t->base()) {
    for (const fwk::OpInfo& op : t->ownOps()) names.push_back(op.name.str());
  }
  return names;
}

const fwk::TypeInfo& typeNamed(const std::string& name) {
  if (const fwk::TypeInfo* type = fwk::findType(name)) return *type;
  throw fwk::NameError("no type named '" + name + "'");
}

}  // namespace

void bindReflection(py::module_& m) {
  py::class_<Collection>(m, "Collection",
                         "A live view of a collection attribute: a mapping from its keys to its values (child "
                         "entities for a children collection). Writable where the collection has setters.")
      .def("__len__", [](const Collection& c) { return c.attr->size(*c.owner); })
      .def("__getitem__", &Collection::get)
      .def("__contains__", [](const Collection& c, py::handle k) { return c.contains(c.key(k)); })
      .def("__iter__", [](const Collection& c) { return py::iter(c.keys()); })
      .def("keys", &Collection::keys, "The keys, in the collection's order.")
      .def("values",
           [](const Collection& c) {
             py::list all;
             for (const fwk::Value& k : c.attr->keys(*c.owner)) all.append(toPython(c.attr->get(*c.owner, k)));
             return all;
           })
      .def("items", &Collection::items, "(key, value) pairs, in the collection's order.")
      .def(
          "get",
          [](const Collection& c, py::handle k, py::object fallback) {
            const fwk::Value typed = c.key(k);
            return c.contains(typed) ? toPython(c.attr->get(*c.owner, typed)) : std::move(fallback);
          },
          py::arg("key"), py::arg("default") = py::none())
      .def("__setitem__", [](const Collection& c, py::handle k,
                             py::handle v) { c.attr->set(*c.owner, c.key(k), fromPython(v, *c.attr->valueType())); })
      .def("__delitem__",
           [](const Collection& c, py::handle k) {
             const fwk::Value typed = c.key(k);
             if (!c.contains(typed)) throw py::key_error(py::repr(k).cast<std::string>());
             c.attr->del(*c.owner, typed);
           })
      .def("__eq__", [](const Collection& c, const py::object& other) { return py::dict(c.items()).equal(other); })
      .def("__repr__", [](const Collection& c) { return py::repr(py::dict(c.items())); });
  py::module_::import("collections.abc").attr("Mapping").attr("register")(m.attr("Collection"));

  py::class_<fwk::Entity, fwk::Ptr<fwk::Entity>>(
      m, "Entity",
      "Any entity of the library, by reflection: attributes read as e.name (or e.get), operations called as "
      "e.name(...) (or e.call); every name reflection knows, in declaration order.")
      .def_property_readonly("name", [](const fwk::Entity& e) { return e.name().str(); })
      .def_property_readonly(
          "typeName", [](const fwk::Entity& e) { return e.fwkType().name().str(); }, "The entity's type, by name.")
      .def(
          "attributes", [](const fwk::Entity& e) { return attributeNames(e.fwkType()); },
          "The names of the type's attributes, the base type's first.")
      .def(
          "operations", [](const fwk::Entity& e) { return operationNames(e.fwkType()); },
          "The names of the operations reachable by name, in declaration order.")
      .def(
          "get",
          [](const fwk::Ptr<fwk::Entity>& e, const std::string& name, py::object key) {
            const fwk::AttrInfo& attr = e->fwkType().attr(name);
            if (key.is_none()) return attributeOf(e, attr);
            return toPython(attr.get(*e, fromPython(key, *attr.keyType())));
          },
          py::arg("name"), py::arg("key") = py::none(),
          "A scalar's value, a collection's view, or with a key the collection's value there.")
      .def(
          "set",
          [](fwk::Entity& e, const std::string& name, py::args keyAndValue) {
            const fwk::AttrInfo& attr = e.fwkType().attr(name);
            if (keyAndValue.size() == 1) {
              const fwk::ValueType* type = attr.valueType();
              attr.set(e, type ? fromPython(keyAndValue[0], *type) : fwk::Value());
            } else if (keyAndValue.size() == 2 && attr.isCollection()) {
              attr.set(e, fromPython(keyAndValue[0], *attr.keyType()), fromPython(keyAndValue[1], *attr.valueType()));
            } else {
              throw py::type_error("set(name, value) or set(name, key, value)");
            }
          },
          "set(name, value) sets a scalar; set(name, key, value) a collection's entry.")
      .def(
          "delete",
          [](fwk::Entity& e, const std::string& name, py::handle key) {
            const fwk::AttrInfo& attr = e.fwkType().attr(name);
            attr.del(e, fromPython(key, *attr.keyType()));
          },
          "Removes a collection's entry.")
      .def(
          "call",
          [](fwk::Entity& e, const std::string& name, const py::args& args) {
            return invokeOp(e, e.fwkType().op(name), args);
          },
          "Calls the operation `name` with the arguments converted to its argument types.")
      .def("__getattr__",
           [](const fwk::Ptr<fwk::Entity>& e, const std::string& name) -> py::object {
             if (const fwk::AttrInfo* attr = e->fwkType().findAttr(name)) return attributeOf(e, *attr);
             if (const fwk::OpInfo* op = e->fwkType().findOp(name)) {
               return py::cpp_function([e, op](const py::args& args) { return invokeOp(*e, *op, args); },
                                       py::name(op->name.c_str()), py::doc(signatureOf(*op).c_str()));
             }
             throw fwk::NameError(e->fwkType().name().str() + " has no attribute or operation '" + name + "'");
           })
      .def("__dir__",
           [](const fwk::Entity& e) {
             std::vector<std::string> names = attributeNames(e.fwkType());
             for (std::string& op : operationNames(e.fwkType())) names.push_back(std::move(op));
             return names;
           })
      .def("__eq__", [](const fwk::Entity& a, const fwk::Entity& b) { return &a == &b; })
      .def("__hash__", [](const fwk::Entity& e) { return std::hash<const void*>()(&e); })
      .def("__repr__", [](const fwk::Entity& e) {
        return "<aclkit " + e.fwkType().name().str() + " '" + e.fullName().str() + "'>";
      });

  m.def(
      "operations",
      [](const std::string& typeName) {
        std::vector<std::pair<std::string, std::string>> all;
        for (const fwk::TypeInfo* t = &typeNamed(typeName); t; t = t->base()) {
          for (const fwk::OpInfo& op : t->ownOps()) all.emplace_back(op.name.str(), signatureOf(op));
        }
        return all;
      },
      py::arg("typeName"), "(name, signature) of each operation of the type called `typeName`, in declaration order.");
  m.def(
      "attributes",
      [](const std::string& typeName) {
        std::vector<std::pair<std::string, std::string>> all;
        for (const fwk::AttrInfo* attr : typeNamed(typeName).attrs()) {
          all.emplace_back(attr->name().str(), stringValue(attr->kind()).str());
        }
        return all;
      },
      py::arg("typeName"), "(name, kind) of each attribute of the type called `typeName`, the base type's first.");
}

}  // namespace Python
