#pragma once

#include "Orb/AttributeId.h"

/// Typed attribute identifiers: what an entity announces and what a reactor's wiring names.
namespace Orb {

/// The identifier of a collection attribute whose members have keys of type Key, or of a scalar (Key is
/// void).
template <class Key_>
struct Attribute {
  using Key = Key_;
  AttributeId id;
};

using Scalar = Attribute<void>;

}  // namespace Orb
