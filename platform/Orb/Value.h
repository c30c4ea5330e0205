#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Orb/AttributeId.h"
#include "Orb/Hash.h"
#include "Orb/Text.h"
#include "Orb/ValueTraits.h"

/// The generic value interface: values of any registered type, handled without knowing the type. Tools, feeds
/// and the generic attribute interface of machines use it; nothing on the path of an event does.
namespace Orb {

class Value;
class ValueType;

/// One attribute of a value type. Made by `readOnly` and `readWrite` below.
struct ValueAttribute {
  std::string_view name;         ///< A literal.
  AttributeId id = noAttribute;  ///< Given when the type is registered.
  Value (*read)(void const* object) = nullptr;
  void (*write)(void* object, Value const& value) = nullptr;  ///< Null where the attribute cannot be written.
};

/// Describes a type of values. Pointers to values are to objects of exactly that type. Two descriptors are
/// the same type when their names are equal, so that a library loaded at run time may bring a copy of one.
class ValueType {
 public:
  ValueType(ValueType const&) = delete;
  ValueType& operator=(ValueType const&) = delete;
  ~ValueType();

  std::string const& name() const { return name_; }
  size_t size() const { return size_; }
  size_t align() const { return align_; }

  /// Each of these three works on uninitialised memory of `size()` bytes aligned to `align()`.
  void construct(void* at) const;
  void copy(void* at, void const* from) const { operations_.copy(at, from); }
  void destroy(void* object) const { operations_.destroy(object); }

  bool equal(void const* left, void const* right) const;
  bool less(void const* left, void const* right) const;
  /// Raises `UnhashableTypeError` where the type has no hash.
  uint32_t hash(void const* object) const;
  void appendText(std::string& out, void const* object) const;
  /// Reads a value that takes the whole text.
  Value parse(std::string_view text) const;

  /// In order of declaration, with identifiers from `firstOwnAttribute` up.
  std::span<ValueAttribute const> attributes() const { return attributes_; }
  /// Raise `UnknownAttributeError`.
  ValueAttribute const& attribute(AttributeId id) const;
  ValueAttribute const& attribute(std::string_view name) const;

  friend bool operator==(ValueType const& left, ValueType const& right) {
    return &left == &right || left.name_ == right.name_;
  }

  /// The registered type of that name; raises `UnknownTypeError`. Takes time linear in the number of types.
  static ValueType const& byName(std::string_view name);
  /// The names of all registered types, sorted.
  static std::vector<std::string> names();

 private:
  template <class T>
  friend ValueType const& valueType();

  // What the type does not have is null.
  struct Operations {
    void (*construct)(void*) = nullptr;
    void (*copy)(void*, void const*) = nullptr;
    void (*destroy)(void*) = nullptr;
    bool (*equal)(void const*, void const*) = nullptr;
    bool (*less)(void const*, void const*) = nullptr;
    uint32_t (*hash)(void const*) = nullptr;
    void (*appendText)(std::string&, void const*) = nullptr;
    Value (*parse)(std::string_view) = nullptr;
  };

  template <class T>
  static Operations operationsOf();

  ValueType(std::string name, size_t size, size_t align, Operations operations,
            std::vector<ValueAttribute> attributes);

  std::string name_;
  size_t size_;
  size_t align_;
  Operations operations_;
  std::vector<ValueAttribute> attributes_;
};

/// Types that `ValueTraits` is specialised for; they can be copied.
template <class T>
concept ValueLike = requires {
  { ValueTraits<T>::name() } -> std::convertible_to<std::string>;
};

/// The descriptor of T, registered by the first call.
template <class T>
ValueType const& valueType();

/// Owns one value of any registered type, or none. Copies are deep.
class Value {
 public:
  Value() = default;
  Value(Value const& other);
  Value(Value&& other) noexcept
      : type_(std::exchange(other.type_, nullptr)), object_(std::exchange(other.object_, nullptr)) {}
  Value& operator=(Value other) noexcept;
  ~Value();

  template <ValueLike T>
  Value(T const& value)  // NOLINT(google-explicit-constructor): a value of any type is a Value
      : Value(valueType<T>(), &value) {}
  /// A copy of the object at `from`, which is of `type`.
  Value(ValueType const& type, void const* from);

  bool empty() const { return type_ == nullptr; }
  /// All of the following raise `WrongTypeError` on an empty value.
  ValueType const& type() const;
  template <ValueLike T>
  T const& as() const {
    if (type() != valueType<T>()) throw WrongTypeError(valueType<T>().name(), type().name());
    return *static_cast<T const*>(object_);
  }
  void const* object() const { return type(), object_; }

  std::string text() const;
  uint32_t hash() const { return type().hash(object_); }

  /// An attribute by identifier or name. Errors: `UnknownAttributeError`; on writing also
  /// `AttributeAccessError` and, where `value` is not of the attribute's type, `WrongTypeError`.
  Value attribute(AttributeId id) const { return type().attribute(id).read(object_); }
  Value attribute(std::string_view name) const { return type().attribute(name).read(object_); }
  void attributeIs(AttributeId id, Value const& value) { write(type().attribute(id), value); }
  void attributeIs(std::string_view name, Value const& value) { write(type().attribute(name), value); }

  /// Equal when both are empty, or of one type and equal by it.
  friend bool operator==(Value const& left, Value const& right);

 private:
  void write(ValueAttribute const& attribute, Value const& value);

  ValueType const* type_ = nullptr;
  void* object_ = nullptr;
};

// ---- How descriptors are made ----

namespace Impl {

template <auto get>
struct Getter;
template <class Owner_, class Result, Result (Owner_::*get)() const>
struct Getter<get> {
  using Owner = Owner_;
  using Attribute = std::remove_cvref_t<Result>;
};
template <class Owner_, class Result, Result (Owner_::*get)() const noexcept>
struct Getter<get> {
  using Owner = Owner_;
  using Attribute = std::remove_cvref_t<Result>;
};

}  // namespace Impl

/// An attribute that is read through the accessor `get`.
template <auto get>
ValueAttribute readOnly(std::string_view name) {
  using Owner = typename Impl::Getter<get>::Owner;
  return {name, noAttribute,
          [](void const* object) { return Value((static_cast<Owner const*>(object)->*get)()); }, nullptr};
}

/// An attribute that is read through the accessor `get` and written through the setter `set`.
template <auto get, auto set>
ValueAttribute readWrite(std::string_view name) {
  using Owner = typename Impl::Getter<get>::Owner;
  using Attribute = typename Impl::Getter<get>::Attribute;
  ValueAttribute attribute = readOnly<get>(name);
  attribute.write = [](void* object, Value const& value) {
    (static_cast<Owner*>(object)->*set)(value.as<Attribute>());
  };
  return attribute;
}

template <class T>
ValueType::Operations ValueType::operationsOf() {
  Operations operations;
  operations.copy = [](void* at, void const* from) { ::new (at) T(*static_cast<T const*>(from)); };
  operations.destroy = [](void* object) { std::destroy_at(static_cast<T*>(object)); };
  if constexpr (std::default_initializable<T>) operations.construct = [](void* at) { ::new (at) T(); };
  if constexpr (std::equality_comparable<T>) {
    operations.equal = [](void const* left, void const* right) {
      return *static_cast<T const*>(left) == *static_cast<T const*>(right);
    };
  }
  if constexpr (requires(T const& value) { static_cast<bool>(value < value); }) {
    operations.less = [](void const* left, void const* right) {
      return static_cast<bool>(*static_cast<T const*>(left) < *static_cast<T const*>(right));
    };
  }
  if constexpr (Hashable<T>) {
    operations.hash = [](void const* object) { return hashOf(*static_cast<T const*>(object)); };
  }
  if constexpr (Writable<T>) {
    operations.appendText = [](std::string& out, void const* object) {
      appendTexts(out, *static_cast<T const*>(object));
    };
  }
  if constexpr (Parsable<T>)
    operations.parse = [](std::string_view text) { return Value(parseWhole<T>(text)); };
  return operations;
}

template <class T>
ValueType const& valueType() {
  static_assert(ValueLike<T>, "specialise Orb::ValueTraits for this type");
  static ValueType const type(ValueTraits<T>::name(), sizeof(T), alignof(T), ValueType::operationsOf<T>(),
                              [] {
                                if constexpr (requires { ValueTraits<T>::attributes(); }) {
                                  return ValueTraits<T>::attributes();
                                } else {
                                  return std::vector<ValueAttribute>();
                                }
                              }());
  return type;
}

template <>
struct ValueTraits<bool> {
  static std::string name() { return "bool"; }
};
template <>
struct ValueTraits<uint8_t> {
  static std::string name() { return "uint8_t"; }
};
template <>
struct ValueTraits<uint32_t> {
  static std::string name() { return "uint32_t"; }
};
template <>
struct ValueTraits<uint64_t> {
  static std::string name() { return "uint64_t"; }
};
template <>
struct ValueTraits<std::string> {
  static std::string name() { return "std::string"; }
};

}  // namespace Orb
