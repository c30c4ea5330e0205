#pragma once

#include "Orb/Entity.h"
#include "Orb/FlatMap.h"

namespace Orb {

/// A directory of entities by name.
///
/// It announces `entry` with the name once for an add, once for a remove and once for a replace, after it is
/// in force. Putting the entity that is already there announces nothing.
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

  /// Adds or replaces the entity under its own name. An entity that stands in several directories has the
  /// latest as its parent.
  void entryIs(Ptr<Entity> const& entity);
  /// Removes and returns the entity; null where the name is absent.
  Ptr<Entity> entryDel(Name const& name);
  void entryDelAll();

 private:
  /// The entity has left: it loses its parent, if that is this directory.
  void orphan(Entity& entity) const;

  Entries entries_;
};

}  // namespace Orb
