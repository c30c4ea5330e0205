#pragma once

#include <string>

#include "Orb/Attribute.h"
#include "Orb/Name.h"
#include "Orb/Notifiee.h"

namespace Orb {

/// An object that can be observed.
class Notifier : public PtrInterface {
 public:
  NotifieeList* notifieeList() const final { return &notifiees_; }

 protected:
  /// Announce a change that is already in force. The object may be gone when these return: make them a
  /// setter's last action. The key is copied by the caller if it lives in a collection that a notifiee may
  /// change.
  void notify(Scalar attribute) const { notifiees_.notify(attribute.id, nullptr); }
  template <class Key>
  void notify(Attribute<Key> attribute, Key const& key) const {
    notifiees_.notify(attribute.id, &key);
  }
  /// The same to those alone whose registration has a number above `after` and at most `upTo`.
  template <class Key>
  void notify(Attribute<Key> attribute, Key const& key, uint32_t after, uint32_t upTo) const {
    notifiees_.notify(attribute.id, &key, after, upTo);
  }

 private:
  mutable NotifieeList notifiees_;
};

/// An object that has a name and a place in a tree.
class Entity : public Notifier {
 public:
  static constexpr Scalar nameAttr{1};
  static constexpr Scalar fullNameAttr{2};
  static constexpr Scalar parentAttr{3};
  static constexpr Scalar parentAttrNameAttr{4};
  static constexpr Scalar entityAttr{5};

  explicit Entity(Name name) : name_(std::move(name)) {}

  TypeDescriptor const& fwkType() const override;
  static TypeDescriptor const& type();

  /// The entity itself, as the generic interface shows it.
  Entity const* entity() const noexcept { return this; }
  Name const& name() const noexcept { return name_; }
  /// The names from the root of the tree down to this entity, each after a '/'; just "/name" without a
  /// parent.
  std::string fullName() const;
  /// The entity that holds this one, or null; the parent outlives the relation. Set by the parent only.
  Entity const* parent() const noexcept { return parent_; }
  /// The parent's collection in which this entity stands; empty without a parent.
  std::string const& parentAttrName() const noexcept { return parentAttrName_; }
  /// For parents only; announces `parent`. Whoever hears of it may drop the parent.
  void parentIs(Entity const* parent, std::string attrName);

 protected:
  /// Hook: the place in the tree has changed and is in force.
  virtual void handleParent(Entity const* /*parent*/) {}

 private:
  Name name_;
  Entity const* parent_ = nullptr;
  std::string parentAttrName_;
};

}  // namespace Orb
