#include "Orb/Errors.h"

#include <initializer_list>

namespace Orb {

namespace {

std::string joined(std::initializer_list<std::string_view> pieces) {
  std::string text;
  for (std::string_view piece : pieces) text += piece;
  return text;
}

// Enough of the offending text to recognise it by, not so much that it floods a log.
std::string excerpt(std::string_view rest) {
  constexpr size_t most = 24;
  if (rest.empty()) return "the end";
  return joined({"\"", rest.substr(0, most), rest.size() > most ? "..." : "", "\""});
}

std::string attributeText(std::string_view attribute, std::string_view message) {
  return joined({attribute, ": ", message});
}

std::string unknownMessage(std::string_view type) { return joined({type, " has no such attribute"}); }

std::string refusedMessage(std::string_view type, AttributeAccessError::Access refused) {
  constexpr std::string_view words[] = {"read", "written", "invoked without an argument"};
  return joined({type, " does not let it be ", words[static_cast<size_t>(refused)]});
}

}  // namespace

ParseError::ParseError(size_t position, std::string_view expectation, std::string_view rest)
    : Error(joined(
          {"expected ", expectation, " at position ", std::to_string(position), ", found ", excerpt(rest)})),
      position_(position),
      expectation_(expectation) {}

AttributeError::AttributeError(std::string_view attribute, std::string_view message)
    : Error(attributeText(attribute, message)), attribute_(attribute), message_(message) {}

// The virtual base is built by the most derived class, so each of these states the whole text again.
AttributeRangeError::AttributeRangeError(std::string_view attribute, RangeError const& cause)
    : Error(attributeText(attribute, cause.what())),
      RangeError(cause),
      AttributeError(attribute, cause.what()) {}

UnknownAttributeError::UnknownAttributeError(std::string_view type, std::string_view attribute)
    : Error(attributeText(attribute, unknownMessage(type))),
      AttributeError(attribute, unknownMessage(type)) {}

AttributeAccessError::AttributeAccessError(std::string_view type, std::string_view attribute, Access refused)
    : Error(attributeText(attribute, refusedMessage(type, refused))),
      AttributeError(attribute, refusedMessage(type, refused)) {}

WrongTypeError::WrongTypeError(std::string_view wanted, std::string_view actual)
    : Error(joined({"a value of type ", wanted, " is needed, not of type ", actual})) {}

UnknownTypeError::UnknownTypeError(std::string_view type)
    : Error(joined({"no type ", type, " is registered"})) {}

UnsupportedOperationError::UnsupportedOperationError(std::string_view type, std::string_view operation)
    : Error(joined({"values of type ", type, " have no ", operation})) {}

UnhashableTypeError::UnhashableTypeError(std::string_view type)
    : Error(joined({"values of type ", type, " have no hash"})), UnsupportedOperationError(type, "hash") {}

ReinstantiationError::ReinstantiationError(std::string_view childType, std::string_view collection)
    : Error(joined({childType, " in ", collection, " exists already with a different input"})) {}

namespace Impl {

void throwMutatorReinstantiating(std::string_view childType, std::string_view collection) {
  throw ReinstantiationError(childType, collection);
}

}  // namespace Impl

}  // namespace Orb
