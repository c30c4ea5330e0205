#include "Orb/Value.h"

#include <algorithm>
#include <mutex>

namespace Orb {

namespace {

struct ValueRegistry {
  std::mutex mutex;
  std::vector<ValueType const*> types;
};

// Made before the first descriptor is complete, so destroyed after the last one.
ValueRegistry& valueRegistry() {
  static ValueRegistry instance;
  return instance;
}

[[maybe_unused]] ValueType const* const builtins[] = {&valueType<bool>(), &valueType<uint8_t>(),
                                                      &valueType<uint32_t>(), &valueType<uint64_t>(),
                                                      &valueType<std::string>()};

}  // namespace

ValueType::ValueType(std::string name, size_t size, size_t align, Operations operations,
                     std::vector<ValueAttribute> attributes)
    : name_(std::move(name)),
      size_(size),
      align_(align),
      operations_(operations),
      attributes_(std::move(attributes)) {
  AttributeId id = firstOwnAttribute;
  for (ValueAttribute& attribute : attributes_) attribute.id = id++;
  std::lock_guard const lock(valueRegistry().mutex);
  valueRegistry().types.push_back(this);
}

ValueType::~ValueType() {
  std::lock_guard const lock(valueRegistry().mutex);
  std::erase(valueRegistry().types, this);
}

void ValueType::construct(void* at) const {
  if (operations_.construct == nullptr) throw UnsupportedOperationError(name_, "default");
  operations_.construct(at);
}

bool ValueType::equal(void const* left, void const* right) const {
  if (operations_.equal == nullptr) throw UnsupportedOperationError(name_, "equality");
  return operations_.equal(left, right);
}

bool ValueType::less(void const* left, void const* right) const {
  if (operations_.less == nullptr) throw UnsupportedOperationError(name_, "order");
  return operations_.less(left, right);
}

uint32_t ValueType::hash(void const* object) const {
  if (operations_.hash == nullptr) throw UnhashableTypeError(name_);
  return operations_.hash(object);
}

void ValueType::appendText(std::string& out, void const* object) const {
  if (operations_.appendText == nullptr) throw UnsupportedOperationError(name_, "text form");
  operations_.appendText(out, object);
}

Value ValueType::parse(std::string_view text) const {
  if (operations_.parse == nullptr) throw UnsupportedOperationError(name_, "parser");
  return operations_.parse(text);
}

ValueAttribute const& ValueType::attribute(AttributeId id) const {
  auto const found = std::ranges::find(attributes_, id, &ValueAttribute::id);
  if (found == attributes_.end()) throw UnknownAttributeError(name_, "#" + std::to_string(id));
  return *found;
}

ValueAttribute const& ValueType::attribute(std::string_view name) const {
  auto const found = std::ranges::find(attributes_, name, &ValueAttribute::name);
  if (found == attributes_.end()) throw UnknownAttributeError(name_, name);
  return *found;
}

ValueType const& ValueType::byName(std::string_view name) {
  std::lock_guard const lock(valueRegistry().mutex);
  auto const found = std::ranges::find(valueRegistry().types, name, &ValueType::name_);
  if (found == valueRegistry().types.end()) throw UnknownTypeError(name);
  return **found;
}

std::vector<std::string> ValueType::names() {
  std::lock_guard const lock(valueRegistry().mutex);
  std::vector<std::string> names;
  for (ValueType const* type : valueRegistry().types) names.push_back(type->name_);
  std::ranges::sort(names);
  return names;
}

Value::Value(ValueType const& type, void const* from) {
  std::align_val_t const align{type.align()};
  void* const object = ::operator new(type.size(), align);
  try {
    type.copy(object, from);
  } catch (...) {
    ::operator delete(object, align);
    throw;
  }
  type_ = &type;
  object_ = object;
}

Value::Value(Value const& other) {
  if (!other.empty()) *this = Value(*other.type_, other.object_);
}

Value& Value::operator=(Value other) noexcept {
  std::swap(type_, other.type_);
  std::swap(object_, other.object_);
  return *this;
}

Value::~Value() {
  if (empty()) return;
  type_->destroy(object_);
  ::operator delete (object_, std::align_val_t{type_->align()});
}

ValueType const& Value::type() const {
  if (empty()) throw WrongTypeError("any", "none");
  return *type_;
}

std::string Value::text() const {
  std::string text;
  type().appendText(text, object_);
  return text;
}

void Value::write(ValueAttribute const& attribute, Value const& value) {
  if (attribute.write == nullptr) {
    throw AttributeAccessError(type_->name(), attribute.name, AttributeAccessError::Access::written);
  }
  attribute.write(object_, value);
}

bool operator==(Value const& left, Value const& right) {
  if (left.empty() || right.empty()) return left.empty() && right.empty();
  return left.type() == right.type() && left.type().equal(left.object_, right.object_);
}

}  // namespace Orb
