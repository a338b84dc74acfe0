#include "aclkit/platform/fwk/Define.h"
#include "aclkit/platform/fwk/Record.h"

namespace fwk {

namespace detail {

void argumentCountMismatch(const String& name, std::size_t wanted, std::size_t given) {
  throw Error("operation " + name.str() + " takes " + std::to_string(wanted) + " argument(s), not " +
              std::to_string(given));
}

void copyOfUncreatableChild(const AttrInfo& attr, const String& typeName) {
  throw Error("a generic copy cannot create a " + typeName.str() + " in " +
              (attr.owner() ? attr.owner()->name().str() : std::string("?")) + "::" + attr.name().str() +
              ": it needs construction arguments; register a copy handler for its parent");
}

}  // namespace detail

Value getAttribute(const Entity& entity, std::string_view name) {
  return entity.fwkType().attr(name).get(entity);
}

void setAttribute(Entity& entity, std::string_view name, const Value& value) {
  entity.fwkType().attr(name).set(entity, value);
}

Value getAttribute(const Entity& entity, std::string_view name, const Value& key) {
  return entity.fwkType().attr(name).get(entity, key);
}

void setAttribute(Entity& entity, std::string_view name, const Value& key, const Value& value) {
  entity.fwkType().attr(name).set(entity, key, value);
}

void delAttribute(Entity& entity, std::string_view name, const Value& key) {
  entity.fwkType().attr(name).del(entity, key);
}

Value invoke(Entity& entity, std::string_view operation, const std::vector<Value>& args) {
  const OpInfo& op = entity.fwkType().op(operation);
  if (args.size() != op.argTypes.size()) detail::argumentCountMismatch(op.name, op.argTypes.size(), args.size());
  return op.invoke(&entity, args);
}

}  // namespace fwk

namespace fwk::detail {

void fieldOutOfRange(const char* record, const char* field, const char* min, const char* max) {
  throw RangeError(std::string(record) + "::" + field + " < " + min + " or > " + max + " not allowed");
}

}  // namespace fwk::detail
