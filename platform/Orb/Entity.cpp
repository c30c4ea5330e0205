#include "Orb/Entity.h"

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

}  // namespace Orb
