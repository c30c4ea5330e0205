#pragma once

#include <functional>

#include "Orb/Entity.h"

namespace TestSupport {

/// Calls a function with whatever its source announces. Does not keep the source alive.
class Watcher : public Orb::PtrInterface::NotifieeConst {
 public:
  using Heard = std::function<void(Orb::AttributeId, void const* key)>;

  Watcher(Orb::Notifier const& source, Heard heard) : heard_(std::move(heard)) {
    hasNotificationActiveIs(true);
    source.notifieeList()->add(*this);
  }
  void onAttribute(Orb::AttributeId id, void const* key) override {
    Heard const heard = heard_;  // outlives a watcher that is destroyed while it is called
    heard(id, key);
  }
  void onZeroReferences() override { heard_(Orb::noAttribute, nullptr); }

 private:
  Heard heard_;
};

/// An entity with a scalar and a collection, which announces whatever it is told to.
class Source : public Orb::Entity {
 public:
  static constexpr Orb::Scalar levelAttr{256};
  static constexpr Orb::Attribute<Orb::Name> itemAttr{257};

  explicit Source(Orb::Name name = "source") : Entity(std::move(name)) {}
  void level() const { notify(levelAttr); }
  void item(Orb::Name const& key) const { notify(itemAttr, key); }
};

}  // namespace TestSupport
