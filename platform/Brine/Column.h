#pragma once

#include <cstdint>

#include "Brine/Layout.h"

namespace Brine {

/// The first id in [from, to) whose column word at `column[id - from]` is `word`, or `to`. For the writer,
/// who alone stores these words and so may read them with plain, wide loads.
uint32_t findInOwnColumn(ColumnWord const* column, uint32_t from, uint32_t to, ColumnWord word);

/// The same for readers, by atomic loads of four words at a time.
uint32_t findInSharedColumn(ColumnWord const* column, uint32_t from, uint32_t to, ColumnWord word);

}  // namespace Brine
