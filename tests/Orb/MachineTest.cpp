#include <gmock/gmock.h>

#include <functional>

#include "Orb/HashMap.h"
#include "Orb/StateMachine.h"
#include "Orb/Type.h"
#include "support/Watcher.h"

namespace {

using Orb::Ptr;
using TestSupport::Source;
using SourcePtr = Ptr<Source const>;

std::string history;           // what machines did, a word each
std::function<void()> inside;  // what happens, once, in the next pass or handler

void run() {
  if (auto const once = std::exchange(inside, {})) once();
}

// How a reactor stands: registered, active, zombie, with an owner.
std::string state(auto const& reactor) {
  if (!reactor) return "none";
  return std::string(reactor->isRegisteredNotifiee() ? "r" : "-") +
         (reactor->hasNotificationActive() ? "a" : "-") + (reactor->isZombie() ? "z" : "-") +
         (reactor->owner() ? "o" : "-");
}

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
    static Orb::TypeDescriptor const descriptor("Toy", {});
    return descriptor;
  }

  Orb::Name const& key() const { return key_; }
  SourcePtr const& source() const { return source_.notifier(); }
  SourcePtr sourceDel() { return source_.del(); }
  SourcePtr const& late() const { return late_.notifier(); }
  void lateIs(SourcePtr const& late) { late_.lateIs(this, late); }
  void lateIsCutFirst(SourcePtr const& late) {
    late_.lateIs(this, late, decltype(late_)::OwnerGoes::beforeThePass);
  }
  SourcePtr lateDel() { return late_.lateDel(this); }
  Ptr<Toy> toyIs(Orb::Name const& key, SourcePtr const& source) {
    return Orb::childIs(toys, "toy", key, source, &Toy::source,
                        [&] { return Orb::create<Toy>(key, source); });
  }

  void handleInitialized() { handle("pass"); }
  void handleLevel() { handle("level"); }
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

  Orb::HashMap<Toy, Orb::Name, &Toy::key, &Orb::Name::hash> toys;

 private:
  friend StateMachine;
  auto inputs() { return std::tie(source_, late_); }
  auto children() { return std::tie(toys); }

  // Notes what the machine sees of its late input from inside.
  void handle(std::string const& what) {
    history += what + "(" + (late() ? late()->name().text() : "-") + " " + state(orbLate()) + ") ";
    run();
    history += ". ";
  }

  Orb::Name key_;
  Orb::Input<OrbSource> source_;
  Orb::Input<OrbLate> late_;
};

class Machine : public testing::Test {
 protected:
  Machine() { make(), history.clear(); }
  ~Machine() override { inside = nullptr; }
  void make() { toy = nullptr, toy = Orb::create<Toy>("m", a); }
  std::string did(std::function<void()> const& action) {
    action();
    return std::exchange(history, {});
  }
  std::string states() const { return state(toy->orbSource()) + " " + state(toy->orbLate()); }

  Ptr<Source> a = Orb::makePtr<Source>("a"), b = Orb::makePtr<Source>("b");
  Ptr<Toy> toy;
};

TEST_F(Machine, IsBuiltWithItsFirstPassAndThenSwitchedOn) {
  inside = [&] { a->item("heard"); };
  EXPECT_EQ(did([&] { make(); }), "~m pass(- none) heard . ");
  EXPECT_EQ(states(), "ra-o none");
  EXPECT_TRUE(toy->hasNotificationActive());
  toy = Orb::create<Toy>("bare", nullptr);
  EXPECT_EQ(states(), "none none");
  EXPECT_EQ(toy->sourceDel(), nullptr);
  EXPECT_EQ(did([&] { EXPECT_EQ(toy->lateDel(), nullptr); }), "pass(- none) . ~m ");
}

TEST_F(Machine, AThrowingPassLeavesNothingBehind) {
  toy = nullptr;
  Ptr<Toy::OrbSource> escaped;
  struct Failing : Toy {
    Failing(Ptr<OrbSource>& reactor, Ptr<Source> const& source, Ptr<Source> const& late) : Toy("f", source) {
      reactor = orbSource();
      inside = [] { throw 1; };
      lateIs(late);
    }
  };
  EXPECT_THROW(Orb::makePtr<Failing>(escaped, a, b), int);
  EXPECT_EQ(state(escaped), "--z-");
  escaped = nullptr;
  inside = [] { throw 1; };
  EXPECT_THROW(make(), int);
  EXPECT_EQ(a->references() + b->references() + a->notifieeList()->size() + b->notifieeList()->size(), 2u);
}

TEST_F(Machine, RoutesByAttributeAndKey) {
  Orb::Name const item("x");
  EXPECT_EQ(did([&] { a->item(item), a->level(), a->parentIs(b.get(), "child"); }), "x level(- none) . ");
  EXPECT_EQ(did([&] { toy->orbSource()->onAttribute(Source::itemAttr.id, nullptr); }), "");
  EXPECT_EQ(did([&] { toy->orbSource()->onAttribute(Source::levelAttr.id, &item); }), "level(- none) . ");
}

TEST_F(Machine, SwitchesReachReactorsAndChildrenMarksOnlyReactors) {
  Ptr<Toy> const child = toy->toyIs("c", a);
  toy->lateIs(b);
  auto const all = [&] { return states() + " " + state(child->orbSource()); };
  EXPECT_EQ(did([&] { toy->hasNotificationActiveIs(false), history.clear(), a->level(); }), "");
  EXPECT_EQ(all(), "r--o r--o r--o");
  child->orbSource()->hasNotificationActiveIs(true);
  toy->hasNotificationActiveIs(false);  // no change, passed to nobody
  EXPECT_EQ(all(), "r--o r--o ra-o");
  EXPECT_EQ(did([&] { toy->hasNotificationActiveIs(true); }), "");
  toy->orbDoZombieReactors(true);
  EXPECT_EQ(all(), "r-zo r-zo ra-o");
  toy->orbDoZombieReactors(false);
  EXPECT_EQ(all(), "ra-o ra-o ra-o");
  toy->orbLate()->notifierIs(nullptr);  // without a notifier the mark leaves the active flag alone
  toy->orbLate()->orbDoZombieReactors(true);
  EXPECT_EQ(states(), "ra-o -azo");
}

TEST_F(Machine, RemoverDisconnectsSilently) {
  Ptr<Toy::OrbSource> const reactor = toy->orbSource();
  EXPECT_EQ(did([&] { EXPECT_EQ(toy->sourceDel(), a); }), "");
  EXPECT_EQ(states() + " " + state(reactor), "none none --z-");
  EXPECT_EQ(reactor->notifier(), nullptr);
  EXPECT_EQ(did([&] { reactor->notifierIs(b), reactor->onAttribute(Source::levelAttr.id, nullptr); }), "");
  reactor->orbDoZombieReactors(false);  // now it only lacks an owner
  EXPECT_EQ(did([&] { b->level(); }), "");
}

TEST_F(Machine, LateInputsRunAPassWithTheNewInputInForce) {
  EXPECT_EQ(did([&] { toy->lateIs(nullptr); }), "");
  EXPECT_EQ(did([&] { toy->lateIs(b); }), "pass(b ra-o) . ");
  EXPECT_EQ(did([&] { toy->lateIs(b); }), "");
  Ptr<Toy::OrbLate> reactor = toy->orbLate();
  // This input is wired to a handler of its own for replacement, which runs before the pass.
  EXPECT_EQ(did([&] { toy->lateIs(a); }), "level(a -a-o) . pass(a ra-o) . ");
  EXPECT_EQ(toy->orbLate(), reactor);
  EXPECT_EQ(b->references(), 1u);
  // In the pass of a removal the machine has no input, and its reactor is marked but has its owner.
  for (bool del : {false, true}) {
    toy->lateIs(b);
    reactor = toy->orbLate();
    history.clear();
    inside = [&] { history += state(reactor) + " "; };
    EXPECT_EQ(did([&] { del ? void(toy->lateDel()) : toy->lateIs(nullptr); }), "pass(- none) r-zo . ");
    EXPECT_EQ(state(reactor), "--z-");
  }
  toy->lateIs(b);
  reactor = toy->orbLate();
  history.clear();
  inside = [&] { history += state(reactor) + " "; };
  EXPECT_EQ(did([&] { toy->lateIsCutFirst(nullptr), toy->lateIsCutFirst(nullptr); }), "pass(- none) --z- . ");
  inside = [&] { toy->lateIs(a); };  // a pass may set the input anew
  toy->lateIs(b);
  EXPECT_EQ(did([&] { EXPECT_EQ(toy->lateDel(), a); }),
            "pass(b ra-o) level(a -a-o) . pass(a ra-o) . . pass(- none) . ");
  toy->lateIs(b);
  reactor = toy->orbLate();
  inside = [] { throw 1; };
  EXPECT_THROW(toy->lateDel(), int);
  EXPECT_EQ(state(reactor), "--z-");
  history.clear();
  toy->orbDoZombieReactors(true);
  EXPECT_EQ(did([&] { toy->lateIs(b); }), "pass(b r-zo) . ");
}

TEST_F(Machine, NotifierIsRegistersLast) {
  toy->lateIs(a);
  Ptr<Toy::OrbLate> const reactor = toy->orbLate();
  history.clear();
  EXPECT_EQ(did([&] { reactor->notifierIs(b), reactor->notifierIs(b); }), "level(b -a-o) . ");
  EXPECT_EQ(a->notifieeList()->size(), 1u);  // the other input's
  EXPECT_EQ(did([&] { reactor->notifierIs(nullptr); }), "");
  EXPECT_EQ(b->references(), 1u);
  inside = [] { throw 1; };
  EXPECT_THROW(reactor->notifierIs(b), int);
  EXPECT_EQ(state(reactor), "ra-o");
  EXPECT_EQ(did([&] { reactor->notifierIs(toy); }), "level(b -a-o) ");  // another type counts as none
  EXPECT_EQ(reactor->input(), nullptr);
  inside = [&] { toy->lateDel(); };  // disconnected in the middle of its replacement
  EXPECT_EQ(did([&] { reactor->notifierIs(a); }), "level(a -a-o) pass(- none) . . ");
  EXPECT_EQ(did([&] { reactor->notifierIs(b), toy->orbSource()->notifierIs(b); }), "");
}

// A reactor as somebody writes it who has read no more than what an observer is.
class HandWritten : public Orb::PtrInterface::NotifieeConst {
 public:
  HandWritten(Ptr<Source const> source, std::string* owner) : owner_(owner) {
    NotifieeConst::notifierIs(source);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Orb::AttributeId id, void const* key) override {
    if (!isZombie() && id == Source::levelAttr.id && !key) *owner_ += "level ";
  }
  void notifierIs(Ptr<Orb::PtrInterface const> p) override {
    auto const source = Orb::ptrCast<Source const>(p);
    if (source == notifier()) return;
    NotifieeConst::notifierIs(source);
    isRegisteredNotifieeIs(true);
  }

 private:
  std::string* owner_;
};

TEST_F(Machine, AReactorMayBeWrittenByHand) {
  std::string heard;
  auto const reactor = Orb::makePtr<HandWritten>(a, &heard);
  EXPECT_EQ(reactor->notifier(), a);
  a->level();
  reactor->notifierIs(b);
  a->level(), b->level();
  EXPECT_EQ(std::exchange(heard, {}), "level level ");
  reactor->orbDoZombieReactors(true);
  EXPECT_FALSE(reactor->hasNotificationActive());
  b->level();
  reactor->orbDoZombieReactors(false);
  reactor->notifierIs(toy);  // of another type: none
  EXPECT_EQ(reactor->notifier(), nullptr);
  EXPECT_EQ(b->references() + b->notifieeList()->size(), 1u);
  b->level();
  EXPECT_EQ(heard, "");
}

TEST_F(Machine, LivesUntilItsHandlerReturnsAndDiesSilently) {
  toy->toyIs("c", b);
  Ptr<Toy::OrbSource> const reactor = toy->orbSource();
  history.clear();
  inside = [&] { toy = nullptr, a->item("heard"); };
  EXPECT_EQ(did([&] { a->level(), a->level(); }), "level(- none) heard . ~c ~m ");
  EXPECT_EQ(state(reactor), "--z-");
}

TEST_F(Machine, AChildIsNeverRebuilt) {
  Ptr<Toy> const child = toy->toyIs("c", a), bare = toy->toyIs("bare", nullptr);
  history.clear();
  EXPECT_EQ(did([&] { EXPECT_TRUE(toy->toyIs("c", a) == child && toy->toyIs("bare", nullptr) == bare); }),
            "");
  for (SourcePtr const& other : {SourcePtr(b), SourcePtr()}) {
    EXPECT_THAT([&] { toy->toyIs("c", other); }, testing::ThrowsMessage<Orb::ReinstantiationError>(
                                                     "Toy in toy exists already with a different input"));
  }
  EXPECT_EQ(child->source(), a);
  inside = [&] { toy->toyIs("d", b); };  // the child that the first pass asks for stays
  EXPECT_EQ(did([&] { toy->toyIs("d", b)->handleItem("d"); }), "pass(- none) pass(- none) . . ~d d ");
  EXPECT_TRUE(toy->toys.member("d"));
  inside = [] { throw 1; };
  EXPECT_THROW(toy->toyIs("e", b), int);
  EXPECT_EQ(toy->toys.members(), 3u);
}

}  // namespace
