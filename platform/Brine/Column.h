#pragma once

#include <cstdint>

namespace Brine {

/// The first id in [from, to) whose column word at `column[id - from]` is `value`, or `to`. For the writer,
/// who alone stores these words and so may read them with plain, wide loads.
uint32_t findInOwnColumn(uint32_t const* column, uint32_t from, uint32_t to, uint32_t value);

/// The same for readers, by atomic loads of two words at a time.
uint32_t findInSharedColumn(uint32_t const* column, uint32_t from, uint32_t to, uint32_t value);

}  // namespace Brine
