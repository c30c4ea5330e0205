#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "Orb/Ptr.h"

/// Notification: the list of an object's observers, and the observer's base class.
///
/// Delivery is synchronous and may nest. A change is in force before the first notifiee is called. While a
/// delivery runs, notifiees may be added, removed and destroyed, the one that is being called and the
/// observed object included:
///   - a notifiee that is removed or destroyed before its turn is not called;
///   - a notifiee that is added meanwhile sees the next change, not this one;
///   - when the observed object dies, the delivery ends.
/// A notifiee that is inactive or a zombie is skipped and the change is not replayed. An exception ends the
/// delivery and leaves through the setter; the change stays in force.
namespace Orb {

/// The observer of one object, which it holds and never changes. It is called only while it is registered and
/// active. A reactor of one's own:
///
///   class OrbStatus : public Orb::PtrInterface::NotifieeConst {
///    public:
///     OrbStatus(Orb::Ptr<Status const> status, Machine* owner) : owner_(owner) {
///       NotifieeConst::notifierIs(status);
///       isRegisteredNotifieeIs(true);
///     }
///     void onAttribute(Orb::AttributeId id, void const* key) override { ... }
///
/// A machine's reactors have more in common: Orb/Reactor.h.
class PtrInterface::NotifieeConst : public PtrInterface {
 public:
  ~NotifieeConst() override { isRegisteredNotifieeIs(false); }

  /// An attribute of the notifier changed. `key` points at the key of the changed member of a collection and
  /// is null for a scalar; it is good for the duration of the call.
  virtual void onAttribute(AttributeId id, void const* key) = 0;

  /// Sets the observed object, or none, and takes the observer off the former one's list. Registering it with
  /// the new one is the caller's part. Runs no handler. An observer that overrides this takes an object of a
  /// type that it does not know for none.
  virtual void notifierIs(Ptr<PtrInterface const> notifier);

  /// Marks the observer for deletion or takes the mark back: it is switched off first, or on, if it has a
  /// notifier. A changed value only.
  virtual void orbDoZombieReactors(bool zombie);

  /// The last reference to an object on whose list this notifiee stands has gone. Taking a reference keeps it
  /// alive.
  virtual void onZeroReferences() {}

  /// The observed object; null when disconnected.
  Ptr<PtrInterface const> const& notifier() const noexcept { return notifier_; }

  /// Puts this notifiee at the end of its notifier's list, or takes it off. Without a notifier nothing
  /// happens. One that must not hold what it observes has no notifier and is put on the list by
  /// `NotifieeList::add()`.
  void isRegisteredNotifieeIs(bool registered);
  bool isRegisteredNotifiee() const noexcept { return list_ != nullptr; }

 private:
  friend class Orb::NotifieeList;
  Ptr<PtrInterface const> notifier_;
  NotifieeList* list_ = nullptr;
  uint32_t number_ = 0;  ///< Of its registration; see `NotifieeList::registrations()`.
};

/// The observers of one object, in the order of registration. The list counts no references.
class NotifieeList {
 public:
  using Notifiee = PtrInterface::NotifieeConst;

  NotifieeList() = default;
  NotifieeList(NotifieeList const&) = delete;
  NotifieeList& operator=(NotifieeList const&) = delete;
  ~NotifieeList();

  /// A notifiee stands on one list at a time; adding it takes it off another.
  void add(Notifiee& notifiee);
  void addFirst(Notifiee& notifiee);
  void remove(Notifiee& notifiee);
  /// Takes all off and ends the deliveries under way.
  void removeAll();
  size_t size() const noexcept { return notifiees_.size(); }
  /// Notifiees that were added so far. They are numbered from 1 on, in that order.
  uint32_t registrations() const noexcept { return registrations_; }

  /// Calls every active notifiee whose number is above `after` and at most `upTo`. The owner of the list may
  /// be gone when this returns.
  void notify(AttributeId id, void const* key, uint32_t after = 0, uint32_t upTo = UINT32_MAX);

  /// Tells every notifiee, active or not, that the last reference to the observed object has gone.
  void notifyZeroReferences();

 private:
  /// One running delivery, on the stack of notify(); the list knows all of its own and keeps their positions
  /// right.
  struct Delivery {
    explicit Delivery(NotifieeList& owner)
        : list(&owner),
          head(&owner.deliveries_),
          outer(std::exchange(owner.deliveries_, this)),
          end(owner.size()) {}
    ~Delivery() { *head = outer; }
    Notifiee* following() { return next < end ? list->notifiees_[next++] : nullptr; }

    NotifieeList* list;
    Delivery** head;  ///< Where the list keeps this delivery; itself when the list is gone.
    Delivery* outer;
    size_t next = 0;
    size_t end;
  };

  void insert(Notifiee& notifiee, size_t position);

  std::vector<Notifiee*> notifiees_;
  Delivery* deliveries_ = nullptr;
  uint32_t registrations_ = 0;
};

}  // namespace Orb
