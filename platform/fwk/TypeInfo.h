// Runtime type descriptors: what reflection knows about an entity type.
//
// Every entity type has one TypeInfo (Class::staticType(), or entity.fwkType()): its name,
// its base, its attributes in declaration order and its operations. Through them a binding
// or a front end reads, writes and calls anything it knows only by name:
//
//   const fwk::AttrInfo* a = acl.fwkType().attr("readonly");
//   fwk::Value v = a->get(acl);                        // scalar
//   fwk::getAttribute(acl, "subConfig", key);         // collection entry
//   fwk::invoke(session, "addIpRule", {10u, rule});    // operation
//
// Types register themselves by name at load time (FWK_REGISTER_TYPE), so that a framework
// can find a type and create an instance with its construction arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "aclkit/platform/fwk/Enum.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/Ptr.h"
#include "aclkit/platform/fwk/String.h"

namespace fwk {

class Entity;
class Value;
class ValueType;
class CopyContext;
class TypeInfo;

// clang-format off
#define FWK_ATTR_KINDS(E) E(scalar, 0) E(orderedMap, 1) E(hashMap, 2) E(children, 3)
// clang-format on
FWK_ENUM(AttrKind, std::uint8_t, FWK_ATTR_KINDS)

// Drives a deep copy: hands each pair of child entities back to the copier (which may
// give it to a type-specific handler) and maps entity references from the source tree
// onto the destination tree.
class ACLKIT_EXPORT CopyContext {
 public:
  virtual ~CopyContext() = default;
  virtual bool copyChild(Entity& dest, const Entity& src, const String& path) = 0;
  // The destination's counterpart of an entity the source refers to, or the entity itself
  // when it lies outside the tree being copied.
  virtual Entity* resolveEntityPtr(const Entity* srcTarget) = 0;
};

// One attribute of an entity type. The operations are type-erased; a wrong kind of call
// (a key for a scalar, a write of a read-only attribute) raises fwk::Error, a value of
// the wrong type raises TypeConversionError.
class ACLKIT_EXPORT AttrInfo {
 public:
  AttrInfo(String name, AttrKind kind, std::uint16_t index, const ValueType* keyType, String valueTypeName,
           const ValueType* valueType, bool writable);
  AttrInfo(const AttrInfo&) = delete;
  AttrInfo& operator=(const AttrInfo&) = delete;
  virtual ~AttrInfo() = default;

  [[nodiscard]] const String& name() const noexcept { return name_; }
  [[nodiscard]] AttrKind kind() const noexcept { return kind_; }
  [[nodiscard]] std::uint16_t index() const noexcept { return index_; }
  [[nodiscard]] const TypeInfo* owner() const noexcept { return owner_; }
  // Key type of a collection; null for a scalar.
  [[nodiscard]] const ValueType* keyType() const noexcept { return keyType_; }
  // Value type name: the C++ value type, or the entity type of a children collection.
  [[nodiscard]] const String& valueTypeName() const noexcept { return valueTypeName_; }
  // Null for children collections.
  [[nodiscard]] const ValueType* valueType() const noexcept { return valueType_; }
  [[nodiscard]] bool writable() const noexcept { return writable_; }
  [[nodiscard]] bool isCollection() const noexcept { return kind_ != scalar; }
  // Holds references to entities (Ptr values), which a copy resolves after the structure.
  [[nodiscard]] bool refersToEntities() const noexcept { return refersToEntities_; }

  [[nodiscard]] virtual Value get(const Entity& entity) const;
  virtual void set(Entity& entity, const Value& value) const;
  [[nodiscard]] virtual Value get(const Entity& entity, const Value& key) const;
  virtual void set(Entity& entity, const Value& key, const Value& value) const;
  virtual void del(Entity& entity, const Value& key) const;
  virtual void delAll(Entity& entity) const;
  [[nodiscard]] virtual std::size_t size(const Entity& entity) const;
  [[nodiscard]] virtual std::vector<Value> keys(const Entity& entity) const;
  // Child entities of a children collection, in key order; empty for other kinds.
  [[nodiscard]] virtual std::vector<Entity*> children(const Entity& entity) const;
  // Makes dest's attribute equal to src's, notifying only real changes; true if it changed.
  // `path` names the two entities for the children it hands on to the context.
  virtual bool copy(Entity& dest, const Entity& src, CopyContext& context, const String& path) const = 0;

 protected:
  [[noreturn]] void unsupported(const char* what) const;

 private:
  friend class TypeInfo;
  String name_;
  AttrKind kind_;
  std::uint16_t index_;
  const TypeInfo* owner_ = nullptr;
  const ValueType* keyType_;
  String valueTypeName_;
  const ValueType* valueType_;
  bool writable_;

 protected:
  bool refersToEntities_ = false;
};

// An operation reachable by name. For an operation of a type, invoke's receiver must be
// an instance of it; a factory has no receiver (null).
struct ACLKIT_EXPORT OpInfo {
  String name;
  std::vector<const ValueType*> argTypes;
  const ValueType* resultType;  // null for void
  Value (*invoke)(Entity* receiver, const std::vector<Value>& args);
};

class ACLKIT_EXPORT TypeInfo {
 public:
  TypeInfo(String name, const TypeInfo* base);
  TypeInfo(const TypeInfo&) = delete;
  TypeInfo& operator=(const TypeInfo&) = delete;

  [[nodiscard]] const String& name() const noexcept { return name_; }
  [[nodiscard]] const TypeInfo* base() const noexcept { return base_; }
  [[nodiscard]] bool isA(const TypeInfo& other) const noexcept;

  // Attributes declared by this type itself, in declaration order.
  [[nodiscard]] const std::vector<std::unique_ptr<AttrInfo>>& ownAttrs() const noexcept { return attrs_; }
  // All attributes, the base type's first.
  [[nodiscard]] std::vector<const AttrInfo*> attrs() const;
  // Null when absent (searches the bases too).
  [[nodiscard]] const AttrInfo* findAttr(std::string_view name) const noexcept;
  // NameError when absent.
  [[nodiscard]] const AttrInfo& attr(std::string_view name) const;

  [[nodiscard]] const std::vector<OpInfo>& ownOps() const noexcept { return ops_; }
  [[nodiscard]] const OpInfo* findOp(std::string_view name) const noexcept;
  [[nodiscard]] const OpInfo& op(std::string_view name) const;

  // Factories registered for the type, tried in order by create().
  [[nodiscard]] const std::vector<OpInfo>& factories() const noexcept { return factories_; }
  // A new instance from construction arguments, on which an operation "initialize" without
  // arguments, when the type has one, has run; NameError when no factory takes them.
  [[nodiscard]] Ptr<Entity> create(const std::vector<Value>& args) const;

  void attrIs(std::unique_ptr<AttrInfo> attr);
  void opIs(OpInfo op);
  void factoryIs(OpInfo factory) const;

 private:
  String name_;
  const TypeInfo* base_;
  std::vector<std::unique_ptr<AttrInfo>> attrs_;
  std::vector<OpInfo> ops_;
  mutable std::vector<OpInfo> factories_;
};

// Types known by name. Registration happens at load time and is idempotent.
ACLKIT_EXPORT void registerType(const TypeInfo& type);
[[nodiscard]] ACLKIT_EXPORT const TypeInfo* findType(std::string_view name) noexcept;
[[nodiscard]] ACLKIT_EXPORT std::vector<const TypeInfo*> registeredTypes();

}  // namespace fwk
