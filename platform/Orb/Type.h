#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "Orb/Ptr.h"
#include "Orb/Value.h"

template <>
struct Orb::ValueTraits<Orb::Ptr<Orb::PtrInterface const>> {
  static std::string name() { return "Orb::Ptr"; }
};
template <>
struct Orb::ValueTraits<std::vector<Orb::Value>> {
  static std::string name() { return "Orb::ValueList"; }
};

/// Type descriptors and the generic attribute interface: every attribute and argument-free handler of an
/// object can be read, written and invoked by identifier and by name.
///
/// A class lists its attributes once:
///
///   Orb::TypeDescriptor const& QorEvpnIntegrationModeSm::type() {
///     using A = Orb::Attributes<QorEvpnIntegrationModeSm>;
///     static Orb::TypeDescriptor const descriptor("QorEvpn::QorEvpnIntegrationModeSm", {
///         A::value<&QorEvpnIntegrationModeSm::controllerdbStatus>("controllerdbStatus"),
///         A::handler<&QorEvpnIntegrationModeSm::handleInitialized>("handleInitialized"),
///     });
///     return descriptor;
///   }
///
/// A reference to an object reads as Ptr<PtrInterface const>, a keyed collection as the list of its keys
/// (std::vector<Value>, in the collection's order of iteration), anything else as its own value type.
namespace Orb {

/// One attribute of a class. An access that is not offered is a null pointer.
struct AttributeInfo {
  std::string_view name;
  Value (*read)(PtrInterface const& object) = nullptr;
  void (*write)(PtrInterface& object, Value const& value) = nullptr;
  void (*invoke)(PtrInterface& object) = nullptr;
  /// Where it is not given, the descriptor assigns the next one behind all before it in the list, those of
  /// the base included, from firstOwnAttribute up.
  AttributeId id = noAttribute;
};

class TypeDescriptor {
 public:
  /// Registers the type under its name for as long as the descriptor lives. `base` lends its attributes.
  TypeDescriptor(std::string_view name, std::vector<AttributeInfo> attributes,
                 TypeDescriptor const* base = nullptr);
  TypeDescriptor(TypeDescriptor const&) = delete;
  TypeDescriptor& operator=(TypeDescriptor const&) = delete;
  ~TypeDescriptor();

  std::string_view name() const noexcept { return name_; }
  /// The class's attributes in declaration order, those of the base first.
  std::vector<AttributeInfo> const& attributes() const noexcept { return attributes_; }
  /// Raise UnknownAttributeError where there is none.
  AttributeInfo const& attribute(AttributeId id) const;
  AttributeInfo const& attribute(std::string_view name) const;

  /// The registered type of that name, or null. A state machine's registers when its library is loaded,
  /// another type when it is first asked for.
  static TypeDescriptor const* find(std::string_view name);

 private:
  std::string_view name_;
  std::vector<AttributeInfo> attributes_;
};

/// Reads an attribute by identifier or name. Raises UnknownAttributeError, or AttributeAccessError for a
/// handler.
Value attribute(PtrInterface const& object, AttributeId id);
Value attribute(PtrInterface const& object, std::string_view name);

/// Writes an attribute through its setter. Raises UnknownAttributeError, AttributeAccessError where it cannot
/// be written and WrongTypeError for a value of another type; nothing is changed then.
void attributeIs(PtrInterface& object, AttributeId id, Value const& value);
void attributeIs(PtrInterface& object, std::string_view name, Value const& value);

/// Invokes a handler. Raises UnknownAttributeError, or AttributeAccessError for what is no handler or needs
/// an argument.
void attributeInvoke(PtrInterface& object, AttributeId id);
void attributeInvoke(PtrInterface& object, std::string_view name);

/// Builders of a class's attribute list.
template <class T>
struct Attributes {
  /// Read through a const accessor.
  template <auto getter>
  static constexpr AttributeInfo value(std::string_view name, AttributeId id = noAttribute) {
    return {.name = name, .read = &read<getter>, .id = id};
  }
  /// Read and written through an accessor and a setter of one scalar type.
  template <auto getter, auto setter>
  static constexpr AttributeInfo writable(std::string_view name, AttributeId id = noAttribute) {
    return {.name = name, .read = &read<getter>, .write = &write<getter, setter>, .id = id};
  }
  /// A keyed collection; `getter` returns the container and `keyOf` turns one of its members into its key.
  template <class Container, Container const& (T::*getter)() const, auto keyOf>
  static constexpr AttributeInfo collection(std::string_view name, AttributeId id = noAttribute) {
    return {.name = name, .read = &readKeys<getter, keyOf>, .id = id};
  }
  /// A handler; of an overloaded one the argument-free form.
  template <void (T::*function)()>
  static constexpr AttributeInfo handler(std::string_view name) {
    return {.name = name, .invoke = [](PtrInterface& object) { (static_cast<T&>(object).*function)(); }};
  }
  /// A handler that only exists with an argument: listed, but not to be invoked by name.
  static constexpr AttributeInfo handlerWithArgument(std::string_view name) { return {.name = name}; }

 private:
  static T const& self(PtrInterface const& object) { return static_cast<T const&>(object); }

  template <auto getter>
  static Value read(PtrInterface const& object) {
    using Result = std::decay_t<std::invoke_result_t<decltype(getter), T const&>>;
    if constexpr (std::is_pointer_v<Result>) {
      return Value(Ptr<PtrInterface const>(std::invoke(getter, self(object))));
    } else if constexpr (requires(Result result) { Ptr<PtrInterface const>(result); }) {
      return Value(Ptr<PtrInterface const>(std::invoke(getter, self(object))));
    } else {
      return Value(Result(std::invoke(getter, self(object))));
    }
  }

  template <auto getter, auto setter>
  static void write(PtrInterface& object, Value const& value) {
    using Result = std::decay_t<std::invoke_result_t<decltype(getter), T const&>>;
    std::invoke(setter, static_cast<T&>(object), value.as<Result>());
  }

  template <auto getter, auto keyOf>
  static Value readKeys(PtrInterface const& object) {
    std::vector<Value> keys;
    for (auto const& member : std::invoke(getter, self(object)))
      keys.emplace_back(std::invoke(keyOf, member));
    return Value(keys);
  }
};

}  // namespace Orb
