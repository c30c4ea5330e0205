#include "Orb/Notifiee.h"

#include <algorithm>

namespace Orb {

void PtrInterface::NotifieeConst::notifierIs(Ptr<PtrInterface const> notifier) {
  if (notifier == notifier_) return;
  isRegisteredNotifieeIs(false);
  std::swap(notifier_, notifier);  // the former one may go, and whatever goes with it, when all is in place
}

void PtrInterface::NotifieeConst::orbDoZombieReactors(bool zombie) {
  if (zombie == isZombie()) return;
  if (notifier_) hasNotificationActiveIs(!zombie);
  zombieIs(zombie);
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (!registered) {
    if (list_) list_->remove(*this);
  } else if (NotifieeList* const list = notifier_ ? notifier_.get()->notifieeList() : nullptr) {
    list->add(*this);
  }
}

NotifieeList::~NotifieeList() { removeAll(); }

void NotifieeList::removeAll() {
  for (Notifiee* notifiee : notifiees_) notifiee->list_ = nullptr;
  notifiees_.clear();
  for (Delivery* delivery = deliveries_; delivery; delivery = delivery->outer) {
    delivery->head = &delivery->outer;
    delivery->end = 0;
  }
  deliveries_ = nullptr;
}

void NotifieeList::add(Notifiee& notifiee) {
  if (notifiee.list_ != this) insert(notifiee, notifiees_.size());
}

void NotifieeList::addFirst(Notifiee& notifiee) { insert(notifiee, 0); }

void NotifieeList::insert(Notifiee& notifiee, size_t position) {
  if (notifiee.list_) notifiee.list_->remove(notifiee);
  position = std::min(position, notifiees_.size());
  notifiees_.insert(notifiees_.begin() + static_cast<ptrdiff_t>(position), &notifiee);
  notifiee.list_ = this;
  notifiee.number_ = ++registrations_;
  for (Delivery* delivery = deliveries_; delivery; delivery = delivery->outer) {
    if (position < delivery->end) {
      ++delivery->end;
      if (position <= delivery->next) ++delivery->next;
    }
  }
}

void NotifieeList::remove(Notifiee& notifiee) {
  auto const found = std::find(notifiees_.begin(), notifiees_.end(), &notifiee);
  if (found == notifiees_.end()) return;
  auto const position = static_cast<size_t>(found - notifiees_.begin());
  notifiees_.erase(found);
  notifiee.list_ = nullptr;
  for (Delivery* delivery = deliveries_; delivery; delivery = delivery->outer) {
    if (position < delivery->end) --delivery->end;
    if (position < delivery->next) --delivery->next;
  }
}

void NotifieeList::notify(AttributeId id, void const* key, uint32_t after, uint32_t upTo) {
  Delivery delivery(*this);
  while (Notifiee* notifiee = delivery.following()) {
    if (notifiee->isListening() && notifiee->number_ > after && notifiee->number_ <= upTo)
      notifiee->onAttribute(id, key);
  }
}

void NotifieeList::notifyZeroReferences() {
  Delivery delivery(*this);
  while (Notifiee* notifiee = delivery.following()) notifiee->onZeroReferences();
}

}  // namespace Orb
