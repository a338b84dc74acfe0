#include "aclkit/platform/fwk/TypeInfo.h"

#include <map>
#include <mutex>

#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Value.h"

namespace fwk {

AttrInfo::AttrInfo(String name, AttrKind kind, std::uint16_t index, const ValueType* keyType, String valueTypeName,
                   const ValueType* valueType, bool writable)
    : name_(std::move(name)),
      kind_(kind),
      index_(index),
      keyType_(keyType),
      valueTypeName_(std::move(valueTypeName)),
      valueType_(valueType),
      writable_(writable) {}

void AttrInfo::unsupported(const char* what) const {
  throw Error("attribute " + (owner_ ? owner_->name().str() : std::string("?")) + "::" + name_.str() + " (" +
              stringValue(kind_).str() + (writable_ ? "" : ", read-only") + ") does not support " + what);
}

Value AttrInfo::get(const Entity&) const {
  unsupported("get without a key");
}
void AttrInfo::set(Entity&, const Value&) const {
  unsupported("set without a key");
}
Value AttrInfo::get(const Entity&, const Value&) const {
  unsupported("get with a key");
}
void AttrInfo::set(Entity&, const Value&, const Value&) const {
  unsupported("set with a key");
}
void AttrInfo::del(Entity&, const Value&) const {
  unsupported("del");
}
void AttrInfo::delAll(Entity&) const {
  unsupported("delAll");
}
std::size_t AttrInfo::size(const Entity&) const {
  unsupported("size");
}
std::vector<Value> AttrInfo::keys(const Entity&) const {
  unsupported("keys");
}
std::vector<Entity*> AttrInfo::children(const Entity&) const {
  return {};
}

TypeInfo::TypeInfo(String name, const TypeInfo* base) : name_(std::move(name)), base_(base) {}

bool TypeInfo::isA(const TypeInfo& other) const noexcept {
  for (const TypeInfo* t = this; t; t = t->base_) {
    if (t == &other) return true;
  }
  return false;
}

std::vector<const AttrInfo*> TypeInfo::attrs() const {
  std::vector<const AttrInfo*> all = base_ ? base_->attrs() : std::vector<const AttrInfo*>();
  for (const auto& a : attrs_) all.push_back(a.get());
  return all;
}

const AttrInfo* TypeInfo::findAttr(std::string_view name) const noexcept {
  for (const TypeInfo* t = this; t; t = t->base_) {
    for (const auto& a : t->attrs_) {
      if (a->name() == name) return a.get();
    }
  }
  return nullptr;
}

const AttrInfo& TypeInfo::attr(std::string_view name) const {
  if (const AttrInfo* a = findAttr(name)) return *a;
  throw NameError(name_.str() + " has no attribute '" + std::string(name) + "'");
}

const OpInfo* TypeInfo::findOp(std::string_view name) const noexcept {
  for (const TypeInfo* t = this; t; t = t->base_) {
    for (const auto& op : t->ops_) {
      if (op.name == name) return &op;
    }
  }
  return nullptr;
}

const OpInfo& TypeInfo::op(std::string_view name) const {
  if (const OpInfo* op = findOp(name)) return *op;
  throw NameError(name_.str() + " has no operation '" + std::string(name) + "'");
}

Ptr<Entity> TypeInfo::create(const std::vector<Value>& args) const {
  for (const OpInfo& factory : factories_) {
    if (factory.argTypes.size() != args.size()) continue;
    bool match = true;
    for (std::size_t i = 0; i < args.size() && match; ++i) match = args[i].type() == factory.argTypes[i];
    if (!match) continue;
    Ptr<Entity> made = factory.invoke(nullptr, args).as<Ptr<Entity>>();
    // A type that needs a second step after construction names it "initialize".
    if (const OpInfo* init = made->fwkType().findOp("initialize"); init && init->argTypes.empty()) {
      init->invoke(made.get(), {});
    }
    return made;
  }
  throw NameError("no factory of " + name_.str() + " takes " + std::to_string(args.size()) +
                  " argument(s) of these types");
}

void TypeInfo::attrIs(std::unique_ptr<AttrInfo> attr) {
  attr->owner_ = this;
  attrs_.push_back(std::move(attr));
}

void TypeInfo::opIs(OpInfo op) {
  ops_.push_back(std::move(op));
}
void TypeInfo::factoryIs(OpInfo factory) const {
  factories_.push_back(std::move(factory));
}

namespace {
struct Registry {
  std::mutex mutex;
  std::map<std::string, const TypeInfo*, std::less<>> types;
};
Registry& registry() {
  static Registry& r = *new Registry;
  return r;
}
}  // namespace

void registerType(const TypeInfo& type) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  r.types.emplace(type.name().str(), &type);
}

const TypeInfo* findType(std::string_view name) noexcept {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto it = r.types.find(name);
  return it == r.types.end() ? nullptr : it->second;
}

std::vector<const TypeInfo*> registeredTypes() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  std::vector<const TypeInfo*> all;
  for (const auto& [name, type] : r.types) all.push_back(type);
  return all;
}

}  // namespace fwk
