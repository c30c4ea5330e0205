#pragma once

#include <type_traits>
#include <utility>

#include "Orb/Attribute.h"
#include "Orb/Notifiee.h"

/// A machine's reactors: one observer per input, whose wiring is a type.
///
///   class OrbVniDir : public Reactor<Orb::Dir, On<Orb::Dir::entryAttr, &QorEvpnTxSm::handleVniFdbStatus>> {
///    public:
///     using Reactor::Reactor;
///   };
///
/// `On` joins an attribute of the input with a handler of the machine. The attribute's key type chooses
/// the overload: a collection's handler takes the key, by value or by reference, and a notification
/// without one is ignored; a scalar's handler takes nothing. Attributes that are not wired are ignored,
/// and so is everything while the reactor is a zombie or has no owner.
namespace Orb {

namespace Impl {

/// A handler that a change of an attribute calls: one that takes the key, by value or by reference, or one
/// that takes nothing where the attribute is a scalar.
template <class Machine, class Key>
struct HandlerOf {
  constexpr HandlerOf(void (Machine::*handler)(Key)) : byValue(handler) {}             // NOLINT
  constexpr HandlerOf(void (Machine::*handler)(Key const&)) : byReference(handler) {}  // NOLINT
  void (Machine::*byValue)(Key) = nullptr;
  void (Machine::*byReference)(Key const&) = nullptr;
};
template <class Machine>
struct HandlerOf<Machine, void> {
  constexpr HandlerOf(void (Machine::*handler)()) : plain(handler) {}  // NOLINT
  void (Machine::*plain)() = nullptr;
};

template <class Machine, auto attribute>
using Handler = HandlerOf<Machine, typename decltype(attribute)::Key>;

}  // namespace Impl

/// Wiring: a change of `attribute` calls `handler`.
template <class Machine, auto attribute, Impl::Handler<Machine, attribute> handler>
struct On {
  static bool attributeChanged(Machine& machine, AttributeId id, void const* key) {
    using Key = typename decltype(attribute)::Key;
    if (id != attribute.id) return false;
    if constexpr (std::is_void_v<Key>) {
      (machine.*handler.plain)();
    } else if (!key) {
      // No member of the collection has changed.
    } else if constexpr (handler.byValue != nullptr) {
      (machine.*handler.byValue)(*static_cast<Key const*>(key));
    } else {
      (machine.*handler.byReference)(*static_cast<Key const*>(key));
    }
    return true;
  }
  static void notifierChanged(Machine&) {}
};

/// Wiring: another, non-null input calls `handler`.
template <class Machine, void (Machine::*handler)()>
struct OnNotifier {
  static bool attributeChanged(Machine&, AttributeId, void const*) { return false; }
  static void notifierChanged(Machine& machine) { (machine.*handler)(); }
};

template <class Machine_, class Input, class... Wires>
class Reactor : public PtrInterface::NotifieeConst {
 public:
  using Machine = Machine_;
  using InputPtr = Ptr<Input const>;

  /// Observes `input` on behalf of `owner`, which it does not count; runs no handler.
  Reactor(InputPtr const& input, Machine* owner) : owner_(owner) {
    inputIs(input);
    isRegisteredNotifieeIs(true);
  }

  InputPtr const& input() const noexcept { return input_; }
  Machine* owner() const noexcept { return owner_; }
  /// Cuts the reactor off from its machine; for the machine's own use.
  void ownerDel() noexcept { owner_ = nullptr; }

  /// The machine is held while its handler runs, so that it may drop what holds it.
  void onAttribute(AttributeId id, void const* key) override {
    if (isZombie() || !owner_) return;
    Ptr<Machine> const machine(owner_);
    static_cast<void>((Wires::attributeChanged(*machine, id, key) || ...));
  }

  /// Sets the notifier, runs the handlers wired to its replacement and, last, registers, also when a handler
  /// throws.
  void notifierIs(Ptr<PtrInterface const> notifier) override {
    auto const input = ptrCast<Input const>(notifier);
    if (input == input_) return;
    Ptr<Reactor> const self(this);
    InputPtr const former = input_;  // lives until the handlers have run
    inputIs(input);
    try {
      if (input && !isZombie() && owner_) {
        Ptr<Machine> const machine(owner_);
        (Wires::notifierChanged(*machine), ...);
      }
    } catch (...) {
      isRegisteredNotifieeIs(true);
      throw;
    }
    isRegisteredNotifieeIs(true);
  }

 private:
  void inputIs(InputPtr const& input) {
    input_ = input;
    NotifieeConst::notifierIs(input);
  }

  InputPtr input_;  ///< The notifier, as what it is.
  Machine* owner_;
};

}  // namespace Orb
