#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "Orb/Assert.h"
#include "Orb/PtrInterface.h"

namespace Orb {

/// A counted reference to a PtrInterface. Pass it by reference on paths that run per event: a copy counts.
template <class T>
class Ptr {
 public:
  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}
  Ptr(T* object) noexcept : object_(object) { retain(); }
  Ptr(Ptr const& other) noexcept : object_(other.object_) { retain(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other)
  noexcept : object_(other.get()) { retain(); }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ~Ptr() {
    if (object_) object_->deleteRef();
  }

  /// Lets the former object go before it returns, with the new one already in place.
  Ptr& operator=(Ptr other) noexcept {
    T* const former = std::exchange(object_, std::exchange(other.object_, nullptr));
    if (former) former->deleteRef();
    return *this;
  }

  /// Takes over a reference that the caller owns, without counting.
  static Ptr adopt(T* object) noexcept {
    Ptr result;
    result.object_ = object;
    return result;
  }

  T* get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  /// Dereferencing a null pointer names the pointer's type and the call site and aborts, in every build.
  [[gnu::always_inline]] T* operator->() const { return checked(__PRETTY_FUNCTION__); }
  [[gnu::always_inline]] T& operator*() const { return *checked(__PRETTY_FUNCTION__); }

  template <class U>
  bool operator==(Ptr<U> const& other) const noexcept {
    return object_ == other.get();
  }
  bool operator==(std::nullptr_t) const noexcept { return object_ == nullptr; }

 private:
  template <class U>
  friend class Ptr;

  void retain() const noexcept {
    if (object_) object_->newRef();
  }
  // Inlined with its callers into the faulty code, where the report takes its address from.
  [[gnu::always_inline]] T* checked(char const* function) const {
    if (!object_) [[unlikely]]
      Impl::nullDereference(function);
    return object_;
  }

  T* object_ = nullptr;
};

/// Builds an object and adopts its first reference: the only way to make one on the heap. What the
/// constructor throws leaves nothing behind.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>::adopt(::new T(std::forward<Args>(args)...));
}

/// Down-cast; null for a null pointer and for an object of another type.
template <class T, class U>
Ptr<T> ptrCast(Ptr<U> const& pointer) {
  return Ptr<T>(dynamic_cast<T*>(pointer.get()));
}

/// What an accessor that returns a reference answers where there is no object.
template <class T>
Ptr<T> const& nullPtr() noexcept {
  static constinit Ptr<T> const null;
  return null;
}

}  // namespace Orb
