#include "Orb/Dir.h"

#include "Orb/Type.h"

namespace Orb {

TypeDescriptor const& Dir::fwkType() const {
  using A = Attributes<Dir>;
  static TypeDescriptor const descriptor(
      "Orb::Dir", {A::collection<Entries, &Dir::entry, &Entries::Entry::key>("entry", entryAttr.id)},
      &Entity::type());
  return descriptor;
}

Dir::~Dir() {
  for (auto const& entry : entries_) orphan(*entry.value);
}

void Dir::orphan(Entity& entity) const {
  if (entity.parent() == this) entity.parentIs(nullptr, {});
}

Ptr<Entity> const& Dir::entityPtr(Name const& name) const {
  Ptr<Entity> const* const found = entries_.find(name);
  return found ? *found : nullPtr<Entity>();
}

// A change of parent is announced, and whoever hears of it may change this directory or drop it: each step
// looks again, the announcement of the entry finds the directory alive, and arguments, which may refer into a
// collection, are copied.

void Dir::entryIs(Ptr<Entity> const& entity) {
  Ptr<Dir> const self(this);
  Ptr<Entity> const added(entity.get());
  Name const name = added->name();
  Ptr<Entity> const former = entityPtr(name);
  if (!entries_.put(name, added)) return;
  if (former) orphan(*former);
  if (entityPtr(name) == added) added->parentIs(this, "entry");
  notify(entryAttr, name);
}

Ptr<Entity> Dir::entryDel(Name const& name) {
  Ptr<Dir> const self(this);
  Name const removed(name.text());
  Ptr<Entity> entity;
  if (!entries_.take(removed, entity)) return nullptr;
  orphan(*entity);
  notify(entryAttr, removed);
  return entity;
}

void Dir::entryDelAll() {
  Ptr<Dir> const self(this);
  for (auto const& entry : entries_) entryDel(entry.key);
}

}  // namespace Orb
