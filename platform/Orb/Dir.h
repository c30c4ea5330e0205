/// Orb::Dir: a directory of entities by name.
///
/// It announces `entry` with the name once for an add, once for a remove and once for a replace, after it is
/// in force. Putting the entity that is already there announces nothing.
#pragma once

#include "Orb/Entity.h"
#include "Orb/FlatMap.h"

namespace Orb {

class Dir : public Entity {
 public:
  static constexpr Attribute<Name> entryAttr{256};
  using Entries = FlatMap<Name, Ptr<Entity>>;

  using Entity::Entity;
  ~Dir() override;

  TypeDescriptor const& fwkType() const override;

  /// The entity of a name, or null.
  Ptr<Entity> const& entityPtr(Name const& name) const;
  /// All entries; the walk tolerates every change of the directory.
  Entries const& entry() const noexcept { return entries_; }

  /// Adds or replaces the entity under its own name. An entity stands in one directory at a time.
  void entryIs(Ptr<Entity> const& entity);
  /// Removes and returns the entity; null where the name is absent.
  Ptr<Entity> entryDel(Name const& name);
  void entryDelAll();

 private:
  Entries entries_;
};

}  // namespace Orb
