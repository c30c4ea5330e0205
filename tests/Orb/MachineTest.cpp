#include <gtest/gtest.h>

#include <functional>

#include "Orb/HashMap.h"
#include "Orb/StateMachine.h"
#include "Orb/Type.h"
#include "support/Watcher.h"

namespace {

using Orb::Ptr;
using TestSupport::Source;
using SourcePtr = Ptr<Source const>;

class Toy;
using Action = std::function<void(Toy&)>;

std::string history;  // what machines did, a word each
Action pass;          // what happens inside a machine's pass, ...
Action level;         // ... and inside a handler of its inputs

// Runs a copy, since an action may replace itself.
void run(Action const action, Toy& toy) {
  if (action) action(toy);
}
std::string happened() { return std::exchange(history, {}); }
std::string nameOf(auto const& pointer) { return pointer ? pointer->name().text() : "-"; }

// A machine with one input of the constructor, a late one and children of its own kind.
class Toy : public Orb::StateMachine<Toy>, public Orb::HashLink<Toy> {
 public:
  Toy(Orb::Name key, SourcePtr const& source) : key_(std::move(key)) {
    source_.connect(this, source);
    handleInitialized();
  }
  ~Toy() override {
    teardown();
    history += "~" + key_.text() + " ";
  }
  static Orb::TypeDescriptor const& type() {
    using A = Orb::Attributes<Toy>;
    static Orb::TypeDescriptor const descriptor(
        "Toy", {A::value<&Toy::source>("source"), A::collection<Children, &Toy::toys, &Toy::key>("toy")});
    return descriptor;
  }

  Orb::Name const& key() const { return key_; }
  SourcePtr const& source() const { return source_.notifier(); }
  SourcePtr sourceDel() { return source_.del(); }
  SourcePtr const& late() const { return late_.notifier(); }
  void lateIs(SourcePtr const& late) { late_.lateIs(this, late); }
  SourcePtr lateDel() { return late_.lateDel(this); }

  Ptr<Toy> toyIs(Orb::Name const& key, SourcePtr const& source) {
    return Orb::childIs(toys_, "toy", key, source, &Toy::source,
                        [&] { return Orb::create<Toy>(key, source); });
  }

  void handleInitialized() {
    history += "pass(" + nameOf(late()) + ") ";
    run(pass, *this);
  }
  void handleLevel() {
    history += "level ";
    run(level, *this);
    history += "done ";
  }
  void handleItem(Orb::Name const& item) { history += item.text() + " "; }

  class OrbSource : public Reactor<Source, On<Source::levelAttr, &Toy::handleLevel>,
                                   On<Source::itemAttr, &Toy::handleItem>> {
    using Reactor::Reactor;
  };
  class OrbLate
      : public Reactor<Source, On<Source::levelAttr, &Toy::handleLevel>, OnNotifier<&Toy::handleLevel>> {
    using Reactor::Reactor;
  };
  Ptr<OrbSource> const& orbSource() const { return source_.reactor(); }
  Ptr<OrbLate> const& orbLate() const { return late_.reactor(); }

  using Children = Orb::HashMap<Toy, Orb::Name, &Toy::key, &Orb::Name::hash>;
  Children const& toys() const { return toys_; }

 private:
  friend StateMachine;
  auto inputs() { return std::tie(source_, late_); }
  auto children() { return std::tie(toys_); }

  Orb::Name key_;
  Orb::Input<OrbSource> source_;
  Orb::Input<OrbLate> late_;
  Children toys_;
};

class Machine : public testing::Test {
 protected:
  ~Machine() override {
    pass = level = nullptr;
    history.clear();
  }
  Ptr<Source> a = Orb::makePtr<Source>("a"), b = Orb::makePtr<Source>("b");
};

// How a reactor stands: registered, active, zombie, with an owner.
std::string state(Orb::PtrInterface::NotifieeConst const& reactor, bool owner) {
  return std::string(reactor.isRegisteredNotifiee() ? "r" : "-") +
         (reactor.hasNotificationActive() ? "a" : "-") + (reactor.isZombie() ? "z" : "-") +
         (owner ? "o" : "-");
}
std::string state(auto const& reactor) { return reactor ? state(*reactor, reactor->owner()) : "null"; }

TEST_F(Machine, IsBuiltWithItsFirstPassAndThenSwitchedOn) {
  pass = [&](Toy& toy) {
    EXPECT_EQ(state(toy.orbSource()), "ra-o");
    EXPECT_FALSE(toy.hasNotificationActive());
    Ptr<Toy> const reference(&toy);
    a->item("heard");
  };
  Ptr<Toy> const toy = Orb::create<Toy>("m", a);
  EXPECT_EQ(happened(), "pass(-) heard ");
  EXPECT_EQ(toy->references(), 1u);
  EXPECT_TRUE(toy->hasNotificationActive());

  pass = nullptr;
  Ptr<Toy> const bare = Orb::create<Toy>("bare", nullptr);
  EXPECT_EQ(state(bare->orbSource()), "null");
  EXPECT_EQ(bare->sourceDel(), nullptr);
  EXPECT_EQ(bare->lateDel(), nullptr);
  EXPECT_EQ(happened(), "pass(-) ");
}

TEST_F(Machine, AThrowingPassLeavesNothingBehind) {
  Ptr<Toy::OrbSource> escaped;
  pass = [&](Toy& toy) {
    escaped = toy.orbSource();
    if (!toy.late()) toy.lateIs(b);
    throw 1;
  };
  EXPECT_THROW(Orb::create<Toy>("m", a), int);
  EXPECT_EQ(state(escaped), "--z-");
  escaped = nullptr;
  for (Ptr<Source> const& source : {a, b}) {
    EXPECT_EQ(source->notifieeList()->size(), 0u);
    source->level();
  }
  EXPECT_EQ(a->references() + b->references(), 2u);
  EXPECT_EQ(happened(), "pass(-) pass(b) ");
}

TEST_F(Machine, RoutesByAttributeAndKey) {
  Ptr<Toy> const toy = Orb::create<Toy>("m", a);
  happened();
  Orb::Name const item("x");
  a->item(item);
  a->level();
  a->parentIs(b.get(), "child");
  toy->orbSource()->onAttribute(Source::itemAttr.id, nullptr);
  toy->orbSource()->onAttribute(Source::levelAttr.id, &item);
  EXPECT_EQ(happened(), "x level done level done ");
}

TEST_F(Machine, SwitchesReachReactorsAndMarksDoNotReachChildren) {
  Ptr<Toy> const toy = Orb::create<Toy>("m", a), child = toy->toyIs("c", a);
  toy->lateIs(b);
  happened();
  auto const states = [&] {
    return state(toy->orbSource()) + state(toy->orbLate()) + state(child->orbSource());
  };
  toy->hasNotificationActiveIs(false);
  EXPECT_EQ(states(), "r--or--or--o");
  a->level();
  child->orbSource()->hasNotificationActiveIs(true);
  toy->hasNotificationActiveIs(false);  // no change, passed to nobody
  EXPECT_EQ(states(), "r--or--ora-o");
  toy->hasNotificationActiveIs(true);
  EXPECT_EQ(happened(), "");
  toy->orbDoZombieReactors(true);
  EXPECT_EQ(states(), "r-zor-zora-o");
  a->level();
  EXPECT_EQ(happened(), "level done ");  // the child's
  toy->orbDoZombieReactors(false);
  EXPECT_EQ(states(), "ra-ora-ora-o");
  // Without a notifier the mark leaves the active flag alone.
  toy->orbLate()->notifierIs(nullptr);
  toy->orbLate()->orbDoZombieReactors(true);
  EXPECT_EQ(state(toy->orbLate()), "-azo");
}

TEST_F(Machine, RemoverDisconnectsSilently) {
  Ptr<Toy> const toy = Orb::create<Toy>("m", a);
  Ptr<Toy::OrbSource> const reactor = toy->orbSource();
  happened();
  EXPECT_EQ(toy->sourceDel(), a);
  EXPECT_EQ(toy->source(), nullptr);
  EXPECT_EQ(state(reactor), "--z-");
  reactor->hasNotificationActiveIs(true);
  reactor->notifierIs(b);
  b->level();
  reactor->onAttribute(Source::levelAttr.id, nullptr);
  reactor->orbDoZombieReactors(false);
  reactor->onAttribute(Source::levelAttr.id, nullptr);  // no zombie any more, but without an owner
  EXPECT_EQ(happened(), "");
}

TEST_F(Machine, LateInputsRunAPassWithTheNewInputInForce) {
  Ptr<Toy> const toy = Orb::create<Toy>("m", a);
  Ptr<Toy::OrbLate> reactor;
  std::string seen;
  pass = [&](Toy&) { seen = state(toy->orbLate()) + " " + (reactor ? state(reactor) : ""); };
  happened();
  toy->lateIs(nullptr);
  EXPECT_EQ(happened(), "");
  toy->lateIs(b);
  EXPECT_EQ(happened() + seen, "pass(b) ra-o ");
  toy->lateIs(b);
  EXPECT_EQ(happened(), "");
  reactor = toy->orbLate();
  toy->lateIs(a);  // the replacement is wired to a handler, which comes first
  EXPECT_EQ(happened() + seen, "level done pass(a) ra-o ra-o");
  EXPECT_EQ(toy->orbLate(), reactor);
  EXPECT_EQ(b->references(), 1u);
  // In the pass of the removal the machine has no input any more, its reactor is marked and still has its owner.
  toy->lateIs(nullptr);
  EXPECT_EQ(happened() + seen, "pass(-) null r-zo");
  EXPECT_EQ(state(reactor), "--z-");
  toy->lateIs(b);
  reactor = toy->orbLate();
  happened();
  EXPECT_EQ(toy->lateDel(), b);
  EXPECT_EQ(happened() + seen, "pass(-) null r-zo");
  EXPECT_EQ(state(reactor), "--z-");
  // A pass may set the input anew; a machine that is marked for deletion gets a silent reactor.
  toy->lateIs(b);
  pass = [&](Toy&) { pass = nullptr, toy->lateIs(a); };
  EXPECT_EQ(toy->lateDel(), b);
  EXPECT_EQ(state(toy->orbLate()), "ra-o");
  toy->lateDel();
  toy->orbDoZombieReactors(true);
  toy->lateIs(b);
  EXPECT_EQ(state(toy->orbLate()), "r-zo");
}

TEST_F(Machine, NotifierIsRegistersLast) {
  Ptr<Toy> const toy = Orb::create<Toy>("m", a);
  toy->lateIs(a);
  Ptr<Toy::OrbLate> const reactor = toy->orbLate();
  level = [&](Toy&) { history += nameOf(reactor->input()) + state(reactor) + " "; };
  happened();
  reactor->notifierIs(b);
  reactor->notifierIs(b);
  EXPECT_EQ(happened(), "level b-a-o done ");
  EXPECT_EQ(a->notifieeList()->size(), 1u);  // the other input's
  reactor->notifierIs(nullptr);
  EXPECT_EQ(b->references(), 1u);
  reactor->notifierIs(b);
  happened();
  reactor->notifierIs(toy);  // an object of another type counts as none
  EXPECT_EQ(happened() + nameOf(reactor->input()), "-");
  level = [](Toy&) { throw 1; };
  EXPECT_THROW(reactor->notifierIs(b), int);
  EXPECT_EQ(state(reactor), "ra-o");
  // The handler disconnects the input in the middle of its replacement.
  level = [](Toy& machine) { machine.lateDel(); };
  reactor->notifierIs(a);
  EXPECT_EQ(state(toy->orbLate()), "null");
  toy->orbSource()->notifierIs(b);
  EXPECT_EQ(b->notifieeList()->size(), 1u);
}

TEST_F(Machine, LivesUntilItsHandlerReturnsAndDiesSilently) {
  Ptr<Toy> toy = Orb::create<Toy>("m", a);
  toy->toyIs("c", b);
  Ptr<Toy::OrbSource> const reactor = toy->orbSource();
  level = [&](Toy&) {
    toy = nullptr;
    a->item("heard");
  };
  happened();
  a->level();
  EXPECT_EQ(happened(), "level heard done ~c ~m ");
  EXPECT_EQ(state(reactor), "--z-");
  a->level();
  EXPECT_EQ(happened(), "");
}

TEST_F(Machine, AChildIsNeverRebuilt) {
  Ptr<Toy> const toy = Orb::create<Toy>("m", nullptr), child = toy->toyIs("c", a);
  EXPECT_EQ(happened(), "pass(-) pass(-) ");
  EXPECT_EQ(toy->toyIs("c", a), child);
  for (SourcePtr const& other : {SourcePtr(b), SourcePtr()}) {
    try {
      toy->toyIs("c", other);
      FAIL();
    } catch (Orb::ReinstantiationError const& error) {
      EXPECT_STREQ(error.what(), "Toy in toy exists already with a different input");
    }
  }
  EXPECT_EQ(child->source(), a);
  Ptr<Toy> const bare = toy->toyIs("bare", nullptr);
  EXPECT_EQ(toy->toyIs("bare", nullptr), bare);
  EXPECT_EQ(happened(), "pass(-) ");
  // The first pass of a child asks for the same child: the inner one stays. A pass that throws leaves none.
  pass = [&](Toy&) { pass = nullptr, toy->toyIs("d", b); };
  Ptr<Toy> const inner = toy->toyIs("d", b);
  EXPECT_EQ(happened(), "pass(-) pass(-) ~d ");
  EXPECT_EQ(toy->toys().member("d"), inner.get());
  EXPECT_EQ(Orb::attribute(*toy, "toy").as<std::vector<Orb::Value>>().size(), 3u);
  pass = [](Toy&) { throw 1; };
  EXPECT_THROW(toy->toyIs("e", b), int);
  EXPECT_EQ(toy->toys().members(), 3u);
}

}  // namespace
