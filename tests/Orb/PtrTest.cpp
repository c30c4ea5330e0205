#include "Orb/Ptr.h"

#include <gtest/gtest.h>

#include <latch>
#include <thread>

#include "support/Scale.h"

namespace {

using Orb::makePtr, Orb::Ptr;

struct Base : Orb::PtrInterface {
  static inline int alive = 0;
  Base() { ++alive, touch(); }
  ~Base() override { touch(), --alive; }
  void mark(bool zombie) { zombieIs(zombie); }
  void touch() { Ptr<Base> const first(this), second = first; }  // takes and drops counted references
};
struct Derived : Base {};
struct Throwing : Base {
  Throwing() { throw 1; }
};

template <class T>
concept CanBeNewed = requires {
  new T;
};
static_assert(!CanBeNewed<Base>);  // whose first reference nobody would have

TEST(Ptr, CountsAndDestroysOnce) {
  {
    Ptr<Derived> derived = makePtr<Derived>();
    derived->hasNotificationActiveIs(true);
    derived->mark(true);
    Ptr<Base> base = derived;
    base = base.get();
    EXPECT_EQ(Orb::ptrCast<Derived>(base), derived);
    EXPECT_EQ(derived->references(), 2u);
    Ptr<Base const> constBase = std::move(derived);
    base = nullptr;
    EXPECT_EQ(constBase->references(), 1u);
    EXPECT_TRUE(constBase->isZombie() && constBase->hasNotificationActive());
    EXPECT_EQ(Orb::ptrCast<Derived>(makePtr<Base>()), derived);
  }
  EXPECT_THROW(makePtr<Throwing>(), int);
  EXPECT_EQ(Base::alive, 0);
}

TEST(Ptr, ThreadSafeSwitch) {
  Orb::threadSafePtrsIs(true);
  Ptr<Base> const shared = makePtr<Base>();
  std::latch start(2);
  auto const use = [&](bool active) {
    start.arrive_and_wait();
    for (size_t i = 0; i < TestSupport::scaled(2000000); ++i) {
      Ptr<Base> const copy = shared;
      active ? copy->hasNotificationActiveIs(i % 2 == 0) : copy->mark(i % 2 == 0);
    }
  };
  std::thread other(use, true);
  use(false);
  other.join();
  Orb::threadSafePtrsIs(false);
  EXPECT_EQ(shared->references(), 1u);
  EXPECT_FALSE(shared->isZombie() || shared->hasNotificationActive());
}

TEST(PtrDeathTest, FaultsStopTheProcess) {
  Ptr<Base> const null;
  EXPECT_DEATH(
      null->touch(),
      "null Orb::Ptr dereferenced: .*operator->.*Base.*, called from .*\\(.*tests-Orb\\+0x[0-9a-f]+\\)");
  EXPECT_DEATH((*null).touch(), "null Orb::Ptr dereferenced: .*operator\\*");
  EXPECT_DEATH(Base().newRef(), "assertion failed: references\\(\\) == 1");
}

}  // namespace
