#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

/// The framework's errors. Faults of a caller or of outside data are exceptions derived from `Orb::Error`;
/// broken invariants are assertions (Orb/Assert.h) and never exceptions.
///
/// `Error` is a virtual base, so that one error can be two things: an `AttributeRangeError` is caught as a
/// `RangeError` by code that cares about values and as an `AttributeError` by code that cares about
/// attributes.
namespace Orb {

class Error : public std::runtime_error {
 public:
  explicit Error(std::string const& message) : std::runtime_error(message) {}
};

/// A value outside of what its type allows.
class RangeError : public virtual Error {
 public:
  explicit RangeError(std::string const& message) : Error(message) {}
};

/// A text that is not of the expected form.
class ParseError : public virtual Error {
 public:
  ParseError(size_t position, std::string_view expectation, std::string_view rest);

  /// Characters between the place where the outermost parser began and the fault.
  size_t position() const { return position_; }
  /// What should have stood there: a fixed piece in quotes, or words such as "a digit".
  std::string const& expectation() const { return expectation_; }

 private:
  size_t position_;
  std::string expectation_;
};

/// An error of one attribute of a value or an object; `what()` is "<attribute>: <message>".
class AttributeError : public virtual Error {
 public:
  AttributeError(std::string_view attribute, std::string_view message);

  std::string const& attribute() const { return attribute_; }
  /// The message without the attribute. Where attributes nest, it begins with the inner attribute's name.
  std::string const& message() const { return message_; }

 private:
  std::string attribute_;
  std::string message_;
};

/// A range error of an attribute's value. Attributes nest by raising it again for the outer attribute:
/// "key: vni: Vni::value < Vni::min or > Vni::max not allowed".
class AttributeRangeError : public RangeError, public AttributeError {
 public:
  AttributeRangeError(std::string_view attribute, RangeError const& cause);
};

/// A type has no attribute of that name or identifier.
class UnknownAttributeError : public AttributeError {
 public:
  UnknownAttributeError(std::string_view type, std::string_view attribute);
};

/// An attribute that exists but does not allow the access through the generic interface: `what()` reads
/// "<attribute>: <type> does not let it be <refused>".
class AttributeAccessError : public AttributeError {
 public:
  enum class Access { read, written, invoked };
  AttributeAccessError(std::string_view type, std::string_view attribute, Access refused);
};

/// A generic value holds another type than the one asked for.
class WrongTypeError : public virtual Error {
 public:
  WrongTypeError(std::string_view wanted, std::string_view actual);
};

/// No type of that name is registered.
class UnknownTypeError : public virtual Error {
 public:
  explicit UnknownTypeError(std::string_view type);
};

/// An operation that the type does not have, asked for through the generic value interface.
class UnsupportedOperationError : public virtual Error {
 public:
  UnsupportedOperationError(std::string_view type, std::string_view operation);
};

/// The hash of a value whose type has none.
class UnhashableTypeError : public UnsupportedOperationError {
 public:
  explicit UnhashableTypeError(std::string_view type);
};

/// A member of a keyed collection exists already with other inputs than those it was asked for with.
class ReinstantiationError : public virtual Error {
 public:
  ReinstantiationError(std::string_view childType, std::string_view collection);
};

namespace Impl {

/// Raises `ReinstantiationError`; out of line to keep the look-up that calls it small.
[[noreturn, gnu::cold]] void throwMutatorReinstantiating(std::string_view childType,
                                                         std::string_view collection);

}  // namespace Impl

}  // namespace Orb
