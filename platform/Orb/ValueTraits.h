#pragma once

#include <string>
#include <vector>

/// What a header of values needs to declare, without the machinery behind it (Orb/Text.h, Orb/Value.h).
namespace Orb {

class TextCursor;
struct ValueAttribute;

/// Specialised for each type that takes part in the generic value interface:
///
///   template <>
///   struct Orb::ValueTraits<QorEvpn::Host> {
///     static std::string name();                           // registered name, "QorEvpn::Host"
///     static std::vector<ValueAttribute> attributes();     // optional; identifiers follow from the order
///   };
///
/// Whatever else the interface offers (default construction, order, hash, text, parser) is taken from the
/// type itself where it has it, and raises an error where not. One source file then registers the type by
/// naming `Orb::valueType<T>()` in the initialiser of a static.
template <class T>
struct ValueTraits;

}  // namespace Orb
