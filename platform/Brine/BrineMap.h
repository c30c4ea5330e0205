#pragma once

#include <optional>
#include <string>
#include <utility>

#include "Brine/Table.h"
#include "Orb/Entity.h"

namespace Brine {

/// The place of an entity below `parent`, which may be null: the names from the root of the tree down to it,
/// each behind a '/'. Within a name a '\' stands in front of each '/' and '\', so places differ where names
/// do.
std::string placeOf(Orb::Entity const& entity, Orb::Entity const* parent);

/// Binds a table in shared memory to the entity that presents it: gives it its place, from the entity's place
/// in the directory, and routes its callbacks. Built first, then initialized by `bind()`, which only then
/// lets it be mounted and notify.
template <TableRow Row>
class BrineMap {
 public:
  using Key = typename Codec<Row>::Key;

  BrineMap() = default;
  BrineMap(BrineMap const&) = delete;
  BrineMap& operator=(BrineMap const&) = delete;

  bool initialized() const { return entity_ != nullptr; }

  /// Binds the rows of `entity`, which outlives the binding, and switches notifying on. The hooks of
  /// `table()` have been set.
  void bind(Orb::Entity const& entity) {
    entity_ = &entity;
    notifyingIs(true);
  }

  /// Whether deliveries take place. What happens while it is off is delivered when it is on again. Switching
  /// on raises `StateError` before `bind()`.
  bool notifying() const { return notifying_; }
  void notifyingIs(bool notifying) {
    if (notifying && !initialized()) {
      throw StateError("BrineMap::notifyingIs() not allowed at this time, initialized:false");
    }
    notifying_ = notifying;
  }

  /// The directory that the entity stands in, or null. Counts for the next mount.
  void parentIs(Orb::Entity const* parent) { parent_ = parent; }

  /// Mounts the table; without a name in the options, at the entity's place. Raises `StateError` if it is
  /// mounted.
  MountStatus mount(MountOptions options) {
    if (!initialized()) throw StateError("BrineMap::mount() not allowed at this time, initialized:false");
    if (options.name.empty()) options.name = placeOf(*entity_, parent_);
    return table_->mount(options);
  }

  DeliverResult deliver(uint64_t limit) { return notifying_ ? table_->deliver(limit) : DeliverResult{}; }

  /// Ends mount and notifying, calls no hook, and lets the binding be bound again, with a new table. Call it
  /// from no hook, and with no cursor of the table open. Raises `StateError` before `bind()`.
  void cleanup() {
    if (!initialized()) throw StateError("trying to cleanup uninitialized brine.");
    table_.emplace();
    notifying_ = false;
    entity_ = nullptr;
  }

  Table<Row>& table() { return *table_; }
  Table<Row> const& table() const { return *table_; }

 private:
  Orb::Entity const* entity_ = nullptr;
  Orb::Entity const* parent_ = nullptr;
  bool notifying_ = false;
  std::optional<Table<Row>> table_{std::in_place};
};

}  // namespace Brine
