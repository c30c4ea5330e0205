#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Orb/AttributeId.h"

namespace Orb {

class Activity;
class NotifieeList;
class TypeDescriptor;
template <class T>
class Ptr;

namespace Impl {
extern std::atomic<bool> threadSafePtrs;
}

/// The process-wide switch between plain (off, the default) and atomic reference counting. Switch it before a
/// second thread holds references; objects may cross threads only while it is on.
inline bool threadSafePtrs() { return Impl::threadSafePtrs.load(std::memory_order_relaxed); }
inline void threadSafePtrsIs(bool on) { Impl::threadSafePtrs.store(on, std::memory_order_relaxed); }

/// The reference-counted object that everything observable or observing derives from.
///
/// One 32-bit word per object holds the count and two flags of the framework:
///
///   bit 31      zombie: marked for deletion; a zombie reactor ignores every notification
///   bit 30      notification active: a reactor without it is skipped, and what it misses is not replayed
///   bits 0..29  count of references
///
/// The count of a new object is one, and Orb::makePtr adopts that reference: code that a constructor runs may
/// take and drop references to the object without destroying it. While a destructor runs, the count is held
/// at one for the same reason. A reference that outlives its object is a fault and stops the process.
class PtrInterface {
 public:
  class NotifieeConst;

  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;

  /// A plain `new` would leave the first reference to nobody.
  static void* operator new(std::size_t) = delete;  // Objects are made by Orb::makePtr<T>(arguments...).

 protected:
  virtual ~PtrInterface();  // the first of the virtual operations

 public:
  /// Reference counting; called by Orb::Ptr. Dropping the last reference tells the notifiees
  /// (NotifieeConst::onZeroReferences) and then, unless one of them took a new reference, destroys the
  /// object.
  [[gnu::always_inline]] void newRef() const noexcept { wordAdd(1); }
  [[gnu::always_inline]] void deleteRef() const {
    if ((wordAdd(~uint32_t{0}) & countMask) == 0) [[unlikely]]
      zeroReferences();
  }
  uint32_t references() const noexcept { return word() & countMask; }

  bool isZombie() const noexcept { return (word() & zombieFlag) != 0; }
  bool hasNotificationActive() const noexcept { return (word() & activeFlag) != 0; }
  /// Active and no zombie: whether a notifiee is told of changes.
  bool isListening() const noexcept { return (word() & (zombieFlag | activeFlag)) == activeFlag; }

  /// Switches notification on or off. State machines pass the value to their reactors and children.
  virtual void hasNotificationActiveIs(bool active) { flagIs(activeFlag, active); }

  /// The scheduled task of an object that has one; null in every object that works inside notifications only.
  virtual Activity* orbFwkActivity() const { return nullptr; }

  /// The type's name and its attributes for the generic interface (Orb/Type.h).
  virtual TypeDescriptor const& fwkType() const;

  /// The observers of this object; null in an object that cannot be observed.
  virtual NotifieeList* notifieeList() const { return nullptr; }

 protected:
  PtrInterface() = default;

  /// Marks the object for deletion or takes the mark back.
  void zombieIs(bool zombie) noexcept { flagIs(zombieFlag, zombie); }

 private:
  static constexpr uint32_t zombieFlag = 0x80000000U;
  static constexpr uint32_t activeFlag = 0x40000000U;
  static constexpr uint32_t countMask = 0x3FFFFFFFU;

  uint32_t word() const noexcept { return word_.load(std::memory_order_relaxed); }

  /// Adds to the word and returns the new value. Taking one reference away is adding all ones; the borrow
  /// from the flags' side never happens since the count is above zero.
  [[gnu::always_inline]] uint32_t wordAdd(uint32_t delta) const noexcept {
    if (threadSafePtrs()) [[unlikely]]
      return word_.fetch_add(delta, std::memory_order_acq_rel) + delta;
    uint32_t const value = word() + delta;
    word_.store(value, std::memory_order_relaxed);
    return value;
  }

  void flagIs(uint32_t flag, bool on) const noexcept;
  void zeroReferences() const;

  mutable std::atomic<uint32_t> word_{1};
};

}  // namespace Orb
