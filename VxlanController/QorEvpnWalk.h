/// How machines walk a shared table, and a collection whose entries become rows of one.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace QorEvpn {

/// The next row of a walk over `table`, or null at its end. Damage that the engine meets goes to the table's
/// corruption handler and ends the walk; every other exception leaves. What the caller does with a row, and
/// what other tables raise meanwhile, is none of this.
///
///   for (auto walk = hosts.hostWalk(vni); Host const* row = nextRow(hosts, walk);) ...
template <class Table, class Walk>
auto nextRow(Table const& table, Walk& walk) {
  return walk.next([&table](std::string const& message) { table.handleCorruption(message); });
}

/// Calls `action(key)` for every entry of `collection`, where the entry's row in `hosts` has the key
/// `keyOf(entry)`. The table hears of some tens of keys before they are acted on, so that their rows are in
/// the processor's cache by then. The action may change the collection: an entry that is there throughout is
/// acted on once.
template <class Table, class Collection, class KeyOf, class Action>
void forEachKey(Table const& hosts, Collection const& collection, KeyOf const& keyOf, Action const& action) {
  std::array<decltype(keyOf(*collection.begin())), 32> ahead;
  std::size_t unused = 0;
  for (auto entry = collection.begin(); entry != collection.end(); ++entry) {
    if (unused == 0) {
      for (auto next = entry; unused < ahead.size() && next != collection.end(); ++next)
        ahead[unused++] = keyOf(*next);
      hosts.hostStage({ahead.data(), unused});
    }
    --unused;
    action(keyOf(*entry));
  }
}

}  // namespace QorEvpn
