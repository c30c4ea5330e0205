#pragma once

#include <functional>
#include <string_view>
#include <tuple>
#include <utility>

#include "Orb/Errors.h"
#include "Orb/Reactor.h"

/// The scaffolding of a state machine, written once.
///
/// A machine M derives from StateMachine<M> and writes
///   - a nested reactor class `Orb<Input>` per input: its wiring (Orb/Reactor.h);
///   - an `Input<Orb<Input>>` member per input and the accessors that name it;
///   - `inputs()`, its input members in declaration order, and `children()`, its child collections, if any;
///   - `type()`, its type descriptor: the one list of its attributes (Orb/Type.h);
///   - a constructor that connects the inputs and ends with the first pass, a destructor that calls
///     teardown(), and its rules.
///
/// Life: created by Orb::create (constructor, first pass, notification on), runs inside notifications, is
/// cleaned up by its owner if the owner calls cleanup(), and destroyed with its last reference. Destruction
/// writes nothing.
namespace Orb {

/// Builds a machine with its first pass and then switches its notification on: every machine's static
/// creator.
template <class Machine, class... Args>
Ptr<Machine> create(Args&&... args) {
  Ptr<Machine> const machine = makePtr<Machine>(std::forward<Args>(args)...);
  machine->hasNotificationActiveIs(true);
  return machine;
}

/// An input of a machine: owns the reactor, null while there is no input. One kind of slot serves the inputs
/// of the constructor (`connect`, `del`) and the late ones (`lateIs`, `lateDel`). A slot that is destroyed
/// with its reactor in place, as when a constructor throws, disconnects it.
template <class Reactor>
class Input {
 public:
  using Machine = typename Reactor::Machine;
  using InputPtr = typename Reactor::InputPtr;

  Input() = default;
  Input(Input const&) = delete;
  Input& operator=(Input const&) = delete;
  ~Input() { disconnect(take()); }

  /// The observed object, or null.
  InputPtr const& notifier() const noexcept { return reactor_ ? reactor_.get()->input() : none; }
  Ptr<Reactor> const& reactor() const noexcept { return reactor_; }

  /// Construction: a reactor for a non-null input, switched on; none for a null one.
  void connect(Machine* machine, InputPtr const& input) {
    if (!input) return;
    reactor_ = makePtr<Reactor>(input, machine);
    reactor_->hasNotificationActiveIs(true);
  }

  /// The input remover: disconnects without running a handler and returns the former input (null if there was
  /// none).
  InputPtr del() { return disconnect(take()); }

  /// When the reactor of a late input that is cleared loses its owner: as seen by who holds the reactor in
  /// the pass that follows.
  enum class OwnerGoes { beforeThePass, behindThePass };

  /// A late input's setter. The same object again changes nothing at all; another one, or none, runs
  /// handleInitialized() with the new input in force.
  void lateIs(Machine* machine, InputPtr const& input, OwnerGoes ownerGoes = OwnerGoes::behindThePass) {
    if (input == notifier()) return;
    if (!input && ownerGoes == OwnerGoes::behindThePass) {
      lateDel(machine);
      return;
    }
    if (!input) {
      del();
    } else {
      if (!reactor_) connect(machine, input);
      Ptr<Reactor> const reactor = reactor_;
      reactor->notifierIs(input);
      reactor->orbDoZombieReactors(machine->isZombie());
    }
    machine->handleInitialized();
  }

  /// A late input's remover: between zombifying the reactor and clearing its owner it runs
  /// handleInitialized(), so that the machine sees its state without that input. Does nothing where there is
  /// none.
  InputPtr lateDel(Machine* machine) {
    Ptr<Reactor> const reactor = take();
    if (!reactor) return nullptr;
    reactor->orbDoZombieReactors(true);
    try {
      machine->handleInitialized();
    } catch (...) {
      disconnect(reactor);
      throw;
    }
    return disconnect(reactor);
  }

  void hasNotificationActiveIs(bool active) {
    if (Ptr<Reactor> const reactor = reactor_) reactor->hasNotificationActiveIs(active);
  }
  void orbDoZombieReactors(bool zombie) {
    if (Ptr<Reactor> const reactor = reactor_) reactor->orbDoZombieReactors(zombie);
  }
  void ownerDel() {
    if (reactor_) reactor_->ownerDel();
  }

 private:
  static inline InputPtr const none{};

  Ptr<Reactor> take() noexcept { return std::exchange(reactor_, nullptr); }

  static InputPtr disconnect(Ptr<Reactor> const& reactor) {
    if (!reactor) return nullptr;
    reactor->orbDoZombieReactors(true);
    reactor->ownerDel();
    reactor->hasNotificationActiveIs(false);
    InputPtr const input = reactor->input();
    reactor->notifierIs(nullptr);
    return input;
  }

  Ptr<Reactor> reactor_;
};

template <class M>
class StateMachine : public PtrInterface {
 public:
  template <auto attribute, Impl::Handler<M, attribute> handler>
  using On = Orb::On<M, attribute, handler>;
  template <void (M::*handler)()>
  using OnNotifier = Orb::OnNotifier<M, handler>;
  template <class Input, class... Wires>
  using Reactor = Orb::Reactor<M, Input, Wires...>;

  TypeDescriptor const& fwkType() const override { return M::type(); }

  /// Passes a changed value to the reactors in declaration order, then to the children.
  void hasNotificationActiveIs(bool active) override {
    if (active == hasNotificationActive()) return;
    PtrInterface::hasNotificationActiveIs(active);
    forEach(self().inputs(), [active](auto& input) { input.hasNotificationActiveIs(active); });
    forEach(self().children(), [active](auto& collection) {
      for (auto const& child : collection) child->hasNotificationActiveIs(active);
    });
  }

  /// Passes a changed value to the reactors in declaration order; the child machines keep their own.
  virtual void orbDoZombieReactors(bool zombie) {
    if (zombie == isZombie()) return;
    forEach(self().inputs(), [zombie](auto& input) { input.orbDoZombieReactors(zombie); });
    zombieIs(zombie);
  }

 protected:
  StateMachine() { static_cast<void>(registered); }

  static std::tuple<> children() { return {}; }

  /// The first lines of every machine's destructor: no handler runs from here on, and the children go.
  void teardown() {
    orbDoZombieReactors(true);
    forEach(self().inputs(), [](auto& input) { input.ownerDel(); });
    forEach(self().children(), [](auto& collection) { collection.memberDelAll(); });
  }

 private:
  /// From the load of its library on, the type is found by its name.
  static inline TypeDescriptor const& registered = M::type();

  M& self() { return static_cast<M&>(*this); }

  template <class Members, class Action>
  static void forEach(Members const& members, Action const& action) {
    std::apply([&action](auto&... member) { (action(member), ...); }, members);
  }
};

/// Find or create a child: the one holder of the rule that a child is never silently rebuilt with another
/// input. Returns the child of that key if `inputOf` it is the same object (or both are null) and raises the
/// re-instantiation error if it is another; without a child makes one and inserts it. Making may nest and
/// find the child created meanwhile, so the rule is applied once more before the insertion.
template <class Collection, class Key, class InputPtr, class InputOf, class Make>
auto childIs(Collection& children, std::string_view collectionName, Key const& key, InputPtr const& input,
             InputOf const& inputOf, Make const& make) {
  using Child = typename Collection::Member;
  auto const existing = [&]() -> Ptr<Child> {
    Ptr<Child> const child = children.member(key);
    if (child && std::invoke(inputOf, *child) != input) {
      Impl::throwMutatorReinstantiating(Child::type().name(), collectionName);
    }
    return child;
  };
  if (Ptr<Child> child = existing()) return child;
  Ptr<Child> const made = make();
  if (Ptr<Child> child = existing()) return child;
  children.memberIs(made);
  return made;
}

}  // namespace Orb
