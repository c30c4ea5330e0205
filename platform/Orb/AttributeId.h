#pragma once

#include <cstdint>

namespace Orb {

/// Identifies an attribute within its class; a notifiee is told which attribute changed by this number, and
/// the generic interface reads, writes and invokes by it. Identifiers are stable for the life of a process
/// only: feeds, tables and tools name attributes by text.
///
/// Ranges: 0 names no attribute; 1 to 255 belong to the framework (an entity's name, parent and the like, the
/// same in every class); a class numbers its own attributes from `firstOwnAttribute` up, in order of
/// declaration.
using AttributeId = uint32_t;

inline constexpr AttributeId noAttribute = 0;
inline constexpr AttributeId firstOwnAttribute = 256;

}  // namespace Orb
