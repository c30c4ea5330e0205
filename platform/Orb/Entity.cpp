#include "Orb/Dir.h"

namespace Orb {

std::string Entity::fullName() const {
  std::string const above = parent_ ? parent_->fullName() : std::string();
  return above + '/' + name_.text();
}

void Entity::parentIs(Entity const* parent, std::string attrName) {
  if (parent == parent_ && attrName == parentAttrName_) return;
  parent_ = parent;
  parentAttrName_ = std::move(attrName);
  handleParent(parent_);
  notify(parentAttr);
}

Dir::~Dir() {
  for (auto const& entry : entries_) entry.value->parentIs(nullptr, {});
}

Ptr<Entity> const& Dir::entityPtr(Name const& name) const {
  Ptr<Entity> const* const found = entries_.find(name);
  return found ? *found : nullPtr<Entity>();
}

void Dir::entryIs(Ptr<Entity> const& entity) {
  Name const name = entity->name();
  Ptr<Entity> const former = entityPtr(name);
  if (!entries_.put(name, entity)) return;
  if (former) former->parentIs(nullptr, {});
  entity->parentIs(this, "entry");
  notify(entryAttr, name);
}

Ptr<Entity> Dir::entryDel(Name const& name) {
  Name const removed = name;
  Ptr<Entity> entity;
  if (!entries_.take(removed, entity)) return nullptr;
  entity->parentIs(nullptr, {});
  notify(entryAttr, removed);
  return entity;
}

void Dir::entryDelAll() {
  Ptr<Dir> const self(this);
  for (auto const& entry : entries_) entryDel(entry.key);
}

}  // namespace Orb
