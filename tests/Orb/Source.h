#pragma once

#include "Orb/Entity.h"

/// An entity with a scalar and a collection, which announces whatever it is told to.
class Source : public Orb::Entity {
 public:
  static constexpr Orb::Scalar levelAttr{256};
  static constexpr Orb::Attribute<Orb::Name> itemAttr{257};

  explicit Source(Orb::Name name = "source") : Entity(std::move(name)) {}
  void level() const { notify(levelAttr); }
  void item(Orb::Name const& key) const { notify(itemAttr, key); }
};
