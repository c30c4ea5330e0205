#include "Orb/Type.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>

#include "Orb/Entity.h"

namespace Orb {

namespace {

struct TypeRegistry {
  std::mutex mutex;
  std::map<std::string_view, TypeDescriptor const*> types;
};

// Made before the first descriptor is complete, so destroyed after the last one.
TypeRegistry& typeRegistry() {
  static TypeRegistry instance;
  return instance;
}

AttributeInfo const& found(TypeDescriptor const& type, auto const& sought, auto member) {
  auto const& attributes = type.attributes();
  auto const at = std::find_if(attributes.begin(), attributes.end(),
                               [&](AttributeInfo const& info) { return info.*member == sought; });
  if (at != attributes.end()) return *at;
  if constexpr (std::is_integral_v<std::decay_t<decltype(sought)>>) {
    throw UnknownAttributeError(type.name(), "#" + std::to_string(sought));
  } else {
    throw UnknownAttributeError(type.name(), sought);
  }
}

template <class Id>
Value read(PtrInterface const& object, Id id) {
  TypeDescriptor const& type = object.fwkType();
  AttributeInfo const& info = type.attribute(id);
  if (!info.read) throw AttributeAccessError(type.name(), info.name, AttributeAccessError::Access::read);
  return info.read(object);
}

template <class Id>
void write(PtrInterface& object, Id id, Value const& value) {
  TypeDescriptor const& type = object.fwkType();
  AttributeInfo const& info = type.attribute(id);
  if (!info.write) throw AttributeAccessError(type.name(), info.name, AttributeAccessError::Access::written);
  info.write(object, value);
}

template <class Id>
void invoke(PtrInterface& object, Id id) {
  TypeDescriptor const& type = object.fwkType();
  AttributeInfo const& info = type.attribute(id);
  if (!info.invoke) throw AttributeAccessError(type.name(), info.name, AttributeAccessError::Access::invoked);
  info.invoke(object);
}

}  // namespace

TypeDescriptor::TypeDescriptor(std::string_view name, std::vector<AttributeInfo> attributes,
                               TypeDescriptor const* base)
    : name_(name) {
  if (base) attributes_ = base->attributes();
  attributes_.insert(attributes_.end(), attributes.begin(), attributes.end());
  AttributeId next = firstOwnAttribute;
  for (AttributeInfo& info : attributes_) {
    if (info.id == noAttribute) info.id = next;
    next = std::max(next, info.id + 1);
  }
  std::lock_guard const lock(typeRegistry().mutex);
  typeRegistry().types[name_] = this;
}

TypeDescriptor::~TypeDescriptor() {
  std::lock_guard const lock(typeRegistry().mutex);
  auto const at = typeRegistry().types.find(name_);
  if (at != typeRegistry().types.end() && at->second == this) typeRegistry().types.erase(at);
}

AttributeInfo const& TypeDescriptor::attribute(AttributeId id) const {
  return found(*this, id, &AttributeInfo::id);
}
AttributeInfo const& TypeDescriptor::attribute(std::string_view name) const {
  return found(*this, name, &AttributeInfo::name);
}

TypeDescriptor const* TypeDescriptor::find(std::string_view name) {
  std::lock_guard const lock(typeRegistry().mutex);
  auto const at = typeRegistry().types.find(name);
  return at == typeRegistry().types.end() ? nullptr : at->second;
}

Value attribute(PtrInterface const& object, AttributeId id) { return read(object, id); }
Value attribute(PtrInterface const& object, std::string_view name) { return read(object, name); }
void attributeIs(PtrInterface& object, AttributeId id, Value const& value) { write(object, id, value); }
void attributeIs(PtrInterface& object, std::string_view name, Value const& value) {
  write(object, name, value);
}
void attributeInvoke(PtrInterface& object, AttributeId id) { invoke(object, id); }
void attributeInvoke(PtrInterface& object, std::string_view name) { invoke(object, name); }

TypeDescriptor const& PtrInterface::fwkType() const {
  static TypeDescriptor const type("Orb::PtrInterface", {});
  return type;
}

TypeDescriptor const& Entity::fwkType() const { return type(); }
TypeDescriptor const& Entity::type() {
  using A = Attributes<Entity>;
  static TypeDescriptor const descriptor(
      "Orb::Entity",
      {A::value<&Entity::name>("name", nameAttr.id), A::value<&Entity::fullName>("fullName", fullNameAttr.id),
       A::value<&Entity::parent>("parent", parentAttr.id),
       A::value<&Entity::parentAttrName>("parentAttrName", parentAttrNameAttr.id),
       A::value<&Entity::entity>("entity", entityAttr.id)});
  return descriptor;
}

}  // namespace Orb
